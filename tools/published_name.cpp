#include "tools/published_name.h"

#include <climits>
#include <cstdio>
#include <cstring>

#include "core/failure.h"

namespace runenv {

static bool is_control(char c) {
  return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
}

// Returns whether the text begins with a character from U+0080 to U+009F. Many terminals obey
// these: U+009B, for example, means the same as the escape character and "[".
static bool is_control_of_two_bytes(std::string_view text) {
  return text.size() >= 2 && text[0] == '\xc2' && (text[1] & 0xe0) == 0x80;
}

std::string printable(std::string_view text) {
  std::string result;
  for (size_t i = 0; i < text.size();) {
    const size_t controls = is_control_of_two_bytes(text.substr(i)) ? 2 : is_control(text[i]);
    if (controls == 0) {
      result += text[i++];
    }
    for (const size_t end = i + controls; i < end; ++i) {
      char code[sizeof "\\xNN"];
      std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(text[i]));
      result += code;
    }
  }
  return result;
}

std::string_view last_component(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

bool is_temporary_name(std::string_view name) {
  return name.starts_with(".runenv-") && name.find('#') != std::string_view::npos;
}

// curl rejects control characters and blanks, and expands "[]{}". A URL's path ends at "?" and "#".
// Servers decode "%". tar treats a backslash in the name of its directory as an escape. A pointer
// ends at a line end.
static bool is_reserved(char c) {
  return is_control(c) || std::strchr("/ #%?[]{}\\", c) != nullptr;
}

void check_name(const char* what, const std::string& name, const char* appended) {
  if (name.empty()) {
    throw_failure(std::string(what) + " is empty");
  }
  const std::string subject = std::string(what) + " '" + printable(name) + "' ";
  if (name == "." || name == "..") {
    throw_failure(subject + "names another directory");
  }
  for (const char& c : name) {
    if (is_reserved(c)) {
      throw_failure(subject + "contains '" + printable({&c, 1}) +
                    "', which is a special character for clients or servers");
    }
  }
  const size_t longest = NAME_MAX - std::strlen(appended);
  if (name.size() > longest) {
    throw_failure(subject + "is longer than " + std::to_string(longest) + " bytes");
  }
}

}  // namespace runenv
