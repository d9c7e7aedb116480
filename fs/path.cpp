#include "fs/path.h"

#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "core/c_string.h"
#include "core/failure.h"
#include "core/owner.h"
#include "fs/tree.h"

namespace fs {

// The message comes in pieces, so that building it cannot change errno before it is read.
[[noreturn]] static void throw_system_error(const char* before, const std::string& path,
                                            const char* after) {
  const char* const reason = std::strerror(errno);
  runenv::throw_failure(before + path + after + ": " + reason);
}

// Returns the type bits of the file at the path, or 0 if stat fails. Follows links.
static mode_t type_of(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 ? status.st_mode & S_IFMT : 0;
}

path_t& path_t::join(const char* component) {
  if (component == nullptr || component[0] == '\0') {
    return *this;
  }
  if (component[0] == '/') {
    text = component;
    return *this;
  }
  // Insert the "/" last: a component that lies in this path must not move before it is copied.
  const size_t end = text.size();
  text += component;
  if (end != 0 && text[end - 1] != '/') {
    text.insert(end, 1, '/');
  }
  return *this;
}

path_t& path_t::join_ext(const char* name, const char* ext) {
  const std::string suffix(ext);  // may lie in this path
  join(name);
  text += suffix;
  return *this;
}

path_t& path_t::real_path() {
  const runenv::malloc_ptr<char> resolved(realpath(text.c_str(), nullptr));
  if (resolved == nullptr) {
    throw_system_error("Unable to get realpath to '", text, "'");
  }
  text = resolved.get();
  return *this;
}

path_t path_t::dir_name() const {
  const size_t slash = text.rfind('/');
  if (slash == std::string::npos) {
    return ".";
  }
  if (slash == 0) {
    return "/";
  }
  return text.substr(0, slash);
}

path_t path_t::base_name() const {
  const size_t slash = text.rfind('/');
  if (slash == std::string::npos) {
    return "";  // on purpose: not the whole name
  }
  return text.substr(slash + 1);
}

FILE* path_t::open_for(const char* mode, const char* after) const {
  FILE* const file = std::fopen(text.c_str(), mode);
  if (file == nullptr) {
    throw_system_error("Unable to open '", text, after);
  }
  return file;
}

// Files are opened close-on-exec ("e"): no child process inherits them.
FILE* path_t::open_read() const {
  if (is_directory()) {
    runenv::throw_failure("Unable to open '" + text + "' for reading: it is a directory");
  }
  return open_for("rbe", "' for reading");
}

FILE* path_t::open_write(bool create_parents) const {
  if (create_parents) {
    dir_name().create_directory(true);
  }
  return open_for("wbe", "' for writing");
}

FILE* path_t::open_append(bool create_parents) const {
  if (create_parents) {
    dir_name().create_directory(true);
  }
  return open_for("abe", "' for appending");
}

const path_t& path_t::create_directory(bool recursive) const {
  if (recursive) {
    create_missing_ancestors();
  } else if (mkdir(text.c_str(), runenv::kDirectoryMode) != 0 && errno != EEXIST) {
    // EEXIST is not a failure: another process may be creating the same directories.
    throw_system_error("Unable to create directory '", text, "'");
  }
  return *this;
}

path_t& path_t::create_directory(bool recursive) {
  std::as_const(*this).create_directory(recursive);
  return *this;
}

// Returns the directories to create for `path`, the outermost one last. Returns none if not even
// "/" can be accessed.
static std::vector<path_t> missing_chain(const std::string& path) {
  std::vector<path_t> missing{path.substr(0, runenv::creatable_length(path))};
  while (!missing.back().is_root()) {  // throws for the empty path
    path_t parent = missing.back().dir_name();
    const mode_t type = type_of(parent.cstring());
    // The parent of "." is "." again. If it cannot be accessed, creating fails and reports why.
    if (type == S_IFDIR || equal(parent.cstring(), missing.back().cstring())) {
      return missing;
    }
    if (type != 0) {
      runenv::throw_failure("Unable to create directory '" + path + "': component '" +
                            parent.cstring() + "' of path is not a directory");
    }
    missing.push_back(std::move(parent));
  }
  return {};
}

void path_t::create_missing_ancestors() const {
  const mode_t type = type_of(text.c_str());
  if (type == S_IFDIR) {
    return;
  }
  if (type != 0) {
    // The spelling "byt" is kept: scripts look for this message.
    runenv::throw_failure("Unable to create directory '" + text +
                          "': already exists byt is not a directory");
  }
  for (std::vector<path_t> missing = missing_chain(text); !missing.empty(); missing.pop_back()) {
    missing.back().create_directory(false);
  }
}

bool path_t::is_directory() const {
  return type_of(text.c_str()) == S_IFDIR;
}

bool path_t::is_regular_file() const {
  return type_of(text.c_str()) == S_IFREG;
}

bool path_t::exists(bool no_follow) const {
  struct stat status;
  return (no_follow ? lstat : stat)(text.c_str(), &status) == 0;
}

bool path_t::is_root() const {
  if (text.empty()) {
    runenv::throw_failure("empty string is not a path");
  }
  return text == "/";
}

long long path_t::get_mtime() const {
  struct stat status;
  return stat(text.c_str(), &status) == 0 ? status.st_mtime : 0;
}

int path_t::set_utime(long atime, long mtime) const {
  const utimbuf times{atime, mtime};
  return utime(text.c_str(), &times);
}

bool path_t::symlink(const char* target) const {
  return ::symlink(target, text.c_str()) == 0;
}

// The result is inverted on purpose.
bool path_t::remove() const {
  return std::remove(text.c_str()) != 0;
}

bool path_t::remove_directory() const {
  if (runenv::remove_tree(text.c_str()) != 0) {
    return false;
  }
  // The walk has already removed the top directory, so this fails and returns true.
  return remove();
}

}  // namespace fs
