#include "tools/template.h"

#include <stdexcept>

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

// Removes the text up to and including `end`. Returns the part before `end`.
static std::string_view take_until(const std::string& end, std::string_view* text) {
  const size_t at = text->find(end);
  if (at == std::string_view::npos) {
    throw std::invalid_argument("the page has no " + end);
  }
  const std::string_view result = text->substr(0, at);
  text->remove_prefix(at + end.size());
  return result;
}

std::string fill_template(std::string_view text, const json& values) {
  std::string page;
  for (size_t at; (at = text.find("{{")) != std::string_view::npos;) {
    page += text.substr(0, at);
    text.remove_prefix(at + 2);
    const std::string tag(take_until("}}", &text));
    if (!tag.starts_with('#')) {
      page += escaped(values.at(tag).get_ref<const std::string&>());
      continue;
    }
    const std::string name = tag.substr(1);
    const std::string_view section = take_until("{{/" + name + "}}", &text);
    const json& value = values.at(name);
    if (value.is_array()) {
      for (const json& element : value) {
        page += fill_template(section, element);
      }
    } else if (value != "" && value != false) {
      page += fill_template(section, values);
    }
  }
  return page.append(text);
}

}  // namespace runenv
