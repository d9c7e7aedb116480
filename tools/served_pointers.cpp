#include "tools/served_pointers.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "core/error.h"
#include "core/owner.h"
#include "process/interruption.h"
#include "schema/layout.h"
#include "schema/pointer.h"
#include "tools/command_line.h"
#include "tools/environment.h"
#include "tools/failure.h"
#include "tools/run_tool.h"
#include "tools/tree.h"

namespace runenv {

namespace {

// A temporary directory that only this user may enter. The destructor removes it.
class PrivateDirectory {
 public:
  PrivateDirectory() : path(temporary_directory() + "/runenv-status-XXXXXX") {
    if (mkdtemp(path.data()) == nullptr) {
      throw_errno_of(path);
    }
  }
  ~PrivateDirectory() { remove_whole_tree(path); }
  PrivateDirectory(const PrivateDirectory&) = delete;
  PrivateDirectory& operator=(const PrivateDirectory&) = delete;

  std::string file(const std::string& name) const { return path + "/" + name; }

 private:
  std::string path;
};

}  // namespace

// Returns the text in quotes for curl's configuration file.
static std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      result += '\\';
    }
    result += c == '\n' ? "\\n" : c == '\r' ? "\\r" : std::string(1, c);  // a line is one setting
  }
  return result + '"';
}

// Writes curl's configuration file. With "remove-on-error", an incomplete file is not taken for a
// pointer; curl before 7.83 ignores this setting.
static void write_wishes(const PrivateDirectory& directory, const std::string& path,
                         const std::string& base_url, const std::vector<std::string>& items) {
  std::ofstream list(path);
  list << "remove-on-error\nmax-filesize = " << kPointerLimit << "\n";
  for (size_t i = 0; i < items.size(); ++i) {
    list << "url = "
         << quoted(base_url + "/" + Layout::kTreeRoot + "/" + Layout::kEnvironment + "/" +
                   items[i] + "/" + Layout::kLatest)
         << "\noutput = " << quoted(directory.file(std::to_string(i))) << "\n";
  }
  list.close();
  if (!list) {
    throw_errno_of(path);
  }
}

// Fetches the pointers into the directory and returns them. Sets `problem` if curl fails.
static std::vector<std::optional<std::string>> fetch_into(const PrivateDirectory& directory,
                                                          const std::string& base_url,
                                                          const std::vector<std::string>& items,
                                                          std::string* problem) {
  const std::string wishes = directory.file("wishes");
  write_wishes(directory, wishes, base_url, items);
  try {
    run_tool({"curl", "-s", "-S", "-f", "-L", "-g", "-K", wishes}, kNoFile, kNoFile,
             fs::path_t("curl"), "failed");
  } catch (const Error& error) {
    *problem = error.message;  // other transfers may have succeeded, so go on
  }
  std::vector<std::optional<std::string>> result(items.size());
  for (size_t i = 0; i < items.size(); ++i) {
    const std::string file = directory.file(std::to_string(i));
    struct stat status;
    if (stat(file.c_str(), &status) == 0 && status.st_size <= kPointerLimit) {
      result[i] = malloc_ptr<char>(read_pointer_line(file.c_str())).get();
    }
  }
  return result;
}

std::vector<std::optional<std::string>> fetch_pointers(const std::string& base_url,
                                                       const std::vector<std::string>& items) {
  undo_on_signals();
  const SignalsHeld held;  // until the directory is removed
  std::string problem;
  auto result = fetch_into(PrivateDirectory(), base_url, items, &problem);
  if (!problem.empty()) {
    std::fprintf(stderr, "%s: %s\n", program_name(), problem.c_str());
  }
  return result;
}

}  // namespace runenv
