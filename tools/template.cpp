#include "tools/template.h"

#include <stdexcept>
#include <vector>

namespace runenv {

using nlohmann::json;

static std::string escaped(std::string_view text) {
  static constexpr std::string_view kMarkup = "&<>\"'";
  static constexpr const char* kEscapes[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;"};
  std::string result;
  for (const char c : text) {
    const size_t at = kMarkup.find(c);
    if (at != std::string_view::npos) {
      result += kEscapes[at];
    } else {
      result += c;
    }
  }
  return result;
}

static bool is_there(const json& value) {
  return value.is_boolean()  ? value.get<bool>()
         : value.is_string() ? !value.get_ref<const std::string&>().empty()
                             : !value.empty();
}

// Takes what comes before `end` from the text, and drops the end.
static std::string_view take_until(const std::string& end, std::string_view* text) {
  const size_t at = text->find(end);
  if (at == std::string_view::npos) {
    throw std::invalid_argument("the page has no " + end);
  }
  const std::string_view result = text->substr(0, at);
  text->remove_prefix(at + end.size());
  return result;
}

namespace {

class Filler {
 public:
  void fill(std::string_view text, const json& values) {
    around.push_back(&values);
    for (size_t at; (at = text.find("{{")) != std::string_view::npos;) {
      page += text.substr(0, at);
      text.remove_prefix(at + 2);
      const std::string tag(take_until("}}", &text));
      const std::string name = tag.substr(tag.find_first_not_of("#^"));
      const json& value = find(name);
      if (name == tag) {
        page += escaped(value.is_string() ? value.get_ref<const std::string&>() : value.dump());
      } else {
        section(tag[0] == '#', value, take_until("{{/" + name + "}}", &text));
      }
    }
    page += text;
    around.pop_back();
  }

  std::string page;

 private:
  const json& find(const std::string& name) const {
    static const json kNothing;
    for (auto values = around.rbegin(); values != around.rend(); ++values) {
      if ((*values)->is_object() && (*values)->contains(name)) {
        return (**values)[name];
      }
    }
    return kNothing;
  }

  void section(bool if_there, const json& value, std::string_view body) {
    if (is_there(value) != if_there) {
      return;
    }
    if (value.is_array() && if_there) {
      for (const json& element : value) {
        fill(body, element);
      }
    } else {
      fill(body, value);
    }
  }

  std::vector<const json*> around;
};

}  // namespace

std::string fill_template(std::string_view text, const json& values) {
  Filler filler;
  filler.fill(text, values);
  return filler.page;
}

}  // namespace runenv
