#include "tools/published_name.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

#include "core/failure.h"

namespace runenv {

static bool is_control(char c) {
  return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
}

std::string printable(std::string_view text) {
  std::string result;
  size_t coded = 0;  // how many bytes from here on
  for (; !text.empty(); text.remove_prefix(1)) {
    // Terminals obey U+0080 to U+009F, too.
    const bool is_wide_control = text.size() > 1 && text[0] == '\xc2' && (text[1] & 0xe0) == 0x80;
    coded = is_wide_control ? 2 : std::max<size_t>(coded, is_control(text[0]) ? 1 : 0);
    if (coded == 0) {
      result += text[0];
      continue;
    }
    char code[sizeof "\\xNN"];
    std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(text[0]));
    result += code;
    --coded;
  }
  return result;
}

std::string_view last_component(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

// curl rejects control characters and blanks, and expands "[]{}". A URL's path ends at "?" and "#".
// Servers decode "%". tar takes a backslash in the name of its directory for an escape. A pointer
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
      throw_failure(subject + "has '" + printable({&c, 1}) +
                    "' in it, which readers would not take as it is");
    }
  }
  const size_t longest = NAME_MAX - std::strlen(appended);
  if (name.size() > longest) {
    throw_failure(subject + "is longer than " + std::to_string(longest) + " bytes");
  }
}

}  // namespace runenv
