#include "tools/file_list.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <utility>

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

// Reverses `escaped`. For any other text, returns some string.
static std::string unescaped(std::string_view field) {
  static constexpr size_t kCode = sizeof "\\xNN" - 1;
  std::string result;
  for (size_t i = 0; i < field.size(); ++i) {
    const std::string_view code = field.substr(i, kCode);
    unsigned char byte = 0;
    if (code.starts_with("\\x") && code.size() == kCode) {
      std::from_chars(code.data() + 2, code.end(), byte, kHexadecimal);
      i += kCode - 1;
    } else {
      byte = static_cast<unsigned char>(field[i]);
    }
    result += static_cast<char>(byte);
  }
  return result;
}

static std::string line_of(const std::string& path, const ListedFile& file) {
  char mode[sizeof "7777"];
  std::snprintf(mode, sizeof mode, "%o", file.mode & kAllModes);
  return std::string(1, file.type) + " " + (file.type == 'l' ? "-" : mode) + " " +
         (file.type == 'd' ? "-" : escaped(file.content)) + " " + escaped(path);
}

std::string to_text(const FileList& list) {
  std::string result = std::string(kFirstLine) + "\n";
  for (const auto& [path, file] : list) {
    result += line_of(path, file) + "\n";
  }
  return result + kLastLine + "\n";
}

// Returns whether the path is "." or has only components that lead further down.
static bool is_below(const std::string& path) {
  const std::string framed = "/" + path + "/";
  const auto has = [&](const char* part) { return framed.find(part) != std::string::npos; };
  return path == "." || !(has("//") || has("/./") || has("/../"));
}

static bool is_possible(const ListedFile& file) {
  const bool is_digest = file.content.size() == kDigestLength &&
                         file.content.find_first_not_of("0123456789abcdef") == std::string::npos;
  return file.type == 'f' ? is_digest : file.type == 'l' ? !file.content.empty() : file.type == 'd';
}

// Adds the entry of the line to the list. Returns false unless the line is exactly what to_text
// writes for some file, has no NUL in its fields, and its path comes after all others.
static bool add_entry(std::string_view line, FileList* list) {
  std::array<std::string_view, 4> fields;
  std::string_view rest = line;
  for (std::string_view& field : fields) {
    field = rest.substr(0, rest.find(' '));
    rest.remove_prefix(std::min(field.size() + 1, rest.size()));
  }
  const auto& [type, mode, content, last] = fields;
  const std::string path = unescaped(last);
  ListedFile file{.type = type.empty() ? '?' : type[0], .mode = 0, .content = ""};
  std::from_chars(mode.data(), mode.end(), file.mode, kOctal);
  file.content = file.type == 'd' ? "" : unescaped(content);
  const bool well = is_possible(file) && is_below(path) && line_of(path, file) == line &&
                    line.find("\\x00") == std::string_view::npos &&
                    (list->empty() || list->rbegin()->first < path);
  if (well) {
    list->emplace_hint(list->end(), path, std::move(file));
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
      throw_failure_of(kFileList, number == 1
                                      ? "is not a list of version 1"
                                      : "line " + std::to_string(number) + " is not an entry");
    }
  }
}

}  // namespace runenv
