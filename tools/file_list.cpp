#include "tools/file_list.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <optional>

#include "core/failure.h"
#include "tools/failure.h"

namespace runenv {

static constexpr char kFirstLine[] = "runenv-files 1";
static constexpr char kLastLine[] = "end";
static constexpr mode_t kAllModes = 07777;
static constexpr int kOctal = 8, kHexadecimal = 16;
static constexpr size_t kDigestLength = 64;

static bool is_odd(char c) {
  return static_cast<unsigned char>(c) <= ' ' || c == '\x7f' || c == '\\';
}

static std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    char code[sizeof "\\xNN"] = {c};
    if (is_odd(c)) {
      std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(c));
    }
    result += code;
  }
  return result;
}

// The text of a field; none if it could not come from `escaped`.
static std::optional<std::string> unescaped(std::string_view field) {
  static constexpr size_t kCode = sizeof "\\xNN" - 1;
  std::string result;
  for (size_t i = 0; i < field.size(); ++i) {
    char c = field[i];
    if (c == '\\') {
      const std::string_view code = field.substr(i, kCode);
      unsigned char byte = 0;
      if (code.size() != kCode || code[1] != 'x' ||
          std::from_chars(code.data() + 2, code.end(), byte, kHexadecimal).ptr != code.end()) {
        return std::nullopt;
      }
      c = static_cast<char>(byte);
      i += kCode - 1;
    } else if (is_odd(c)) {
      return std::nullopt;
    }
    result += c;
    if (c == '\0') {
      return std::nullopt;
    }
  }
  return result;
}

std::string to_text(const FileList& list) {
  std::string result = std::string(kFirstLine) + "\n";
  for (const auto& [path, file] : list) {
    char mode[sizeof "7777"];
    std::snprintf(mode, sizeof mode, "%o", file.mode & kAllModes);
    result += std::string(1, file.type) + " " + (file.type == 'l' ? "-" : mode) + " " +
              (file.type == 'd' ? "-" : escaped(file.content)) + " " + escaped(path) + "\n";
  }
  return result + kLastLine + "\n";
}

// Whether every component of the path names something below the release.
static bool is_below(const std::string& path) {
  const std::string framed = "/" + path + "/";
  const auto has = [&](const char* part) { return framed.find(part) != std::string::npos; };
  return path == "." || !(has("//") || has("/./") || has("/../"));
}

static std::optional<mode_t> parse_mode(std::string_view field) {
  mode_t mode = 0;
  const auto [rest, error] = std::from_chars(field.data(), field.end(), mode, kOctal);
  return error == std::errc() && rest == field.end() && mode <= kAllModes
             ? std::optional<mode_t>(mode)
             : std::nullopt;
}

static bool is_digest(std::string_view field) {
  return field.size() == kDigestLength &&
         field.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

// Adds the entry of the line, which must come after all others. Returns whether it is one.
static bool add_entry(std::string_view line, FileList* list) {
  std::array<std::string_view, 4> fields;
  if (std::count(line.begin(), line.end(), ' ') != std::ssize(fields) - 1) {
    return false;
  }
  for (std::string_view& field : fields) {
    field = line.substr(0, line.find(' '));
    line.remove_prefix(std::min(field.size() + 1, line.size()));
  }
  const auto& [type, mode, content, path] = fields;
  const std::optional<std::string> name = unescaped(path), text = unescaped(content);
  const std::optional<mode_t> permissions = mode == "-" ? mode_t{0} : parse_mode(mode);
  const bool well = name && text && permissions && is_below(*name) &&
                    (list->empty() || list->rbegin()->first < *name) &&
                    (mode == "-") == (type == "l") &&
                    ((type == "f" && is_digest(content)) || (type == "d" && content == "-") ||
                     (type == "l" && !text->empty()));
  if (well) {
    list->emplace_hint(list->end(), *name, ListedFile{type[0], *permissions, *text});
  }
  return well;
}

FileList parse_file_list(std::string_view text) {
  FileList result;
  for (size_t number = 1;; ++number) {
    const size_t end = text.find('\n');
    if (end == std::string_view::npos) {
      throw_failure_of(kFileList, "is cut off");
    }
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end + 1);
    if (number > 1 && line == kLastLine && text.empty()) {
      return result;
    }
    if (number == 1 ? line != kFirstLine : !add_entry(line, &result)) {
      throw_failure_of(kFileList, number == 1 ? "is no list of version 1"
                                              : "line " + std::to_string(number) + " is no entry");
    }
  }
}

}  // namespace runenv
