#include "tools/content.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <vector>

#include "tools/failure.h"
#include "tools/published_name.h"
#include "tools/signature.h"
#include "tools/tree.h"

namespace runenv {

// The components of a path, without "." and empty ones.
static std::vector<std::string_view> components(std::string_view path) {
  std::vector<std::string_view> result;
  while (!path.empty()) {
    const std::string_view name = path.substr(0, path.find('/'));
    if (!name.empty() && name != ".") {
      result.push_back(name);
    }
    path.remove_prefix(std::min(name.size() + 1, path.size()));
  }
  return result;
}

// Returns the name for a message: printable, without "./" in front and "/" at the end.
static std::string plain(std::string_view name) {
  name.remove_prefix(name.starts_with("./") && name.size() > 2 ? 2 : 0);
  name.remove_suffix(name.ends_with('/') && name.size() > 1 ? 1 : 0);
  return printable(name);
}

void ContentCheck::refuse(const std::string& name, const std::string& why) const {
  throw_failure_of(shown.c_str(), "'" + plain(name) + "' " + why);
}

void ContentCheck::refuse_as_producer(const std::string& name, const std::string& why) const {
  if (judge == Judge::kProducer) {
    refuse(name, why + ", or give --as-is");
  }
}

static bool leaves_the_release(const std::string& name) {
  const std::vector<std::string_view> parts = components(name);
  return name.starts_with('/') || std::find(parts.begin(), parts.end(), "..") != parts.end();
}

// Returns the same key for all spellings of a path.
static std::string key_of(const std::string& name) {
  std::string result;
  for (const std::string_view part : components(name)) {
    result.append("/").append(part);
  }
  return result;
}

// Returns whether the kernel accepts the name and the target.
static bool can_be_made(const ContentEntry& entry) {
  const std::vector<std::string_view> parts = components(entry.name);
  return entry.name.size() < PATH_MAX && entry.target.size() < PATH_MAX &&
         (entry.type == 'd' || !entry.name.ends_with("/.")) &&
         (entry.type != 'l' || !entry.target.empty()) &&
         std::all_of(parts.begin(), parts.end(),
                     [](std::string_view part) { return part.size() <= NAME_MAX; });
}

// Refuses what tar could not unpack or would unpack outside the release, and the file that only
// runenv-verify may create.
void ContentCheck::check_place(const ContentEntry& entry) const {
  if (std::strchr("-dlh", entry.type) == nullptr) {
    refuse(entry.name, "is neither a file nor a directory nor a link");
  }
  if (!can_be_made(entry)) {
    refuse(entry.name, "has a name or target that is not valid: no client could unpack it");
  }
  if (leaves_the_release(entry.name) || (entry.type == 'h' && leaves_the_release(entry.target))) {
    refuse(entry.name, "has a name or target outside the release");
  }
  if (components(entry.name) == std::vector<std::string_view>{kRememberedSignature}) {
    refuse(entry.name, "is a file that only runenv-verify may create: remove it");
  }
}

// tar can make a hard link only to a file that it has already unpacked.
void ContentCheck::check_hard_link(const ContentEntry& entry) const {
  if (entry.type != 'h') {
    return;
  }
  const auto target = seen.find(key_of(entry.target));
  if (target == seen.end() || target->second) {
    refuse(entry.name, "is a hard link to '" + plain(entry.target) +
                           "', which is not in the archive before it: no client could unpack it");
  }
}

// A path is either always a directory or never: the parents of an entry are directories. tar could
// fail if one path occurs as both.
void ContentCheck::check_kind(const ContentEntry& entry) {
  bool as_directory = entry.type == 'd';
  for (std::string key = key_of(entry.name);; key.resize(key.rfind('/')), as_directory = true) {
    const auto [known, is_new] = seen.emplace(key, as_directory);
    if (known->second != as_directory) {
      refuse("." + key, "is both a directory and something else: remove one of the entries");
    }
    if (!is_new) {
      return;  // its parents are known, too
    }
  }
}

void ContentCheck::check_link(const ContentEntry& entry) const {
  const int depth = static_cast<int>(components(entry.name).size());
  if (entry.type != 'l' || stays_inside(entry.target, depth - 1)) {
    return;
  }
  const std::string what =
      "is a link that could lead out of the release, to '" + printable(entry.target) + "': ";
  if (judge == Judge::kVerifier) {
    refuse(entry.name, what + "machines that verify signatures refuse it");
  }
  refuse_as_producer(entry.name, what +
                                     "a client would find its own file there, or none; link to "
                                     "something in the release");
}

// Refuses, as a producer, what a client could unpack but what looks like a mistake.
void ContentCheck::check_use(const ContentEntry& entry) const {
  if (entry.type == 'l') {
    return;
  }
  const bool is_directory = entry.type == 'd';
  if (!is_directory && (entry.mode & (S_ISUID | S_ISGID)) != 0) {
    refuse_as_producer(entry.name,
                       "is a set-user-ID or set-group-ID file: everybody on a client that root "
                       "updates could run it as root; clear these bits (chmod ug-s)");
  }
  if (is_directory && (entry.mode & S_IWUSR) == 0) {
    refuse_as_producer(entry.name,
                       "cannot be written by its owner: a client of an ordinary user could not "
                       "unpack the release again, as after a rollback; permit it (chmod u+w)");
  }
  const mode_t needed = is_directory ? S_IROTH | S_IXOTH : S_IROTH;
  if ((entry.mode & needed) != needed) {
    refuse_as_producer(entry.name,
                       "cannot be read by others: on a client, only the user who updates could "
                       "use it; permit it (chmod a+rX)");
  }
}

void ContentCheck::note_top(const ContentEntry& entry) {
  const std::vector<std::string_view> parts = components(entry.name);
  if (parts.empty()) {
    return;
  }
  has_more =
      has_more || (only_top && *only_top != parts[0]) || (parts.size() == 1 && entry.type != 'd');
  only_top = parts[0];
}

void ContentCheck::take(const ContentEntry& entry) {
  check_place(entry);
  check_hard_link(entry);
  check_kind(entry);
  check_link(entry);
  check_use(entry);
  note_top(entry);
}

void ContentCheck::finish() const {
  if (only_top && !has_more) {
    refuse_as_producer(*only_top,
                       "is a directory around everything: a client would find the files in it, "
                       "one level down; publish what is in it");
  }
}

static char type_letter(mode_t mode) {
  return S_ISREG(mode) ? '-' : S_ISDIR(mode) ? 'd' : S_ISLNK(mode) ? 'l' : '?';
}

uint64_t ContentCheck::take_directory(const fs::path_t& directory) {
  const std::string root = std::string(directory.cstring()) + "/.";
  uint64_t bytes = 0;
  const bool complete = walk_tree(root, [&](const FTSENT& entry) {
    if (entry.fts_level == FTS_ROOTLEVEL || entry.fts_info == FTS_DP) {
      return;
    }
    if (entry.fts_info == FTS_NS) {
      throw_failure_of(printable(entry.fts_path), std::strerror(entry.fts_errno));
    }
    const struct stat& status = *entry.fts_statp;
    const char type = type_letter(status.st_mode);
    const std::optional<std::string> target = type == 'l' ? link_target(entry) : "";
    if (!target) {
      throw_errno_of(printable(entry.fts_path));
    }
    take({.type = type,
          .mode = status.st_mode & ALLPERMS,
          .name = "." + std::string(entry.fts_path).substr(root.size()),
          .target = *target});
    bytes += S_ISREG(status.st_mode) ? static_cast<uint64_t>(status.st_size) : 0;
  });
  if (!complete) {
    throw_errno_of(directory.cstring());
  }
  return bytes;
}

// Returns the mode bits for nine letters such as "rwsr-xr-x".
static mode_t read_mode(std::string_view letters) {
  mode_t mode = 0;
  for (size_t i = 0; i < letters.size(); ++i) {
    const char c = letters[i];
    mode = mode << 1 | static_cast<mode_t>(c != '-' && c != 'S' && c != 'T');
  }
  const auto special = [&](size_t place, mode_t bit) {
    return std::strchr("sStT", letters[place]) != nullptr ? bit : 0;
  };
  return mode | special(2, S_ISUID) | special(5, S_ISGID) | special(8, S_ISVTX);
}

// Removes a text in double quotes from the front of the line and returns it with C's escapes
// resolved. Returns nothing if the line does not begin with one.
static std::optional<std::string> take_quoted(std::string_view* line) {
  static constexpr char kEscapes[] = "a\ab\bf\fn\nr\rt\tv\v";
  if (!line->starts_with('"')) {
    return std::nullopt;
  }
  std::string text;
  for (size_t i = 1; i < line->size(); ++i) {
    char c = (*line)[i];
    if (c == '"') {
      line->remove_prefix(i + 1);
      return text;
    }
    if (c == '\\' && i + 1 < line->size()) {
      c = (*line)[++i];
      const char* const letter = std::strchr(kEscapes, c);
      if (c >= '0' && c <= '3' && i + 2 < line->size()) {
        c = static_cast<char>((c - '0') * 64 + ((*line)[i + 1] - '0') * 8 + ((*line)[i + 2] - '0'));
        i += 2;
      } else if (letter != nullptr && c != '\0') {
        c = letter[1];
      }
    }
    text += c;
  }
  return std::nullopt;
}

std::optional<ContentEntry> read_listing(std::string_view line) {
  static constexpr size_t kLetters = 10;
  const size_t name_at = line.find('"');
  if (line.size() < kLetters || name_at == line.npos || name_at < kLetters) {
    return std::nullopt;
  }
  ContentEntry entry{line[0], read_mode(line.substr(1, kLetters - 1)), "", ""};
  line.remove_prefix(name_at);
  const std::optional<std::string> name = take_quoted(&line);
  if (!name) {
    return std::nullopt;
  }
  entry.name = *name;
  line.remove_prefix(std::min(line.find('"'), line.size()));  // " -> " or a translated text
  entry.target = take_quoted(&line).value_or("");
  return entry;
}

}  // namespace runenv
