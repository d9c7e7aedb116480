#include "tools/served_pointers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "core/error.h"
#include "core/owner.h"
#include "schema/layout.h"
#include "schema/pointer.h"
#include "tools/command_line.h"
#include "tools/failure.h"
#include "tools/run_tool.h"
#include "tools/tree.h"

namespace runenv {

namespace {

// A directory that only this user may enter, removed with its scope.
class PrivateDirectory {
 public:
  PrivateDirectory() {
    const char* const parent = std::getenv("TMPDIR");
    path = std::string(parent != nullptr && *parent != '\0' ? parent : "/tmp") +
           "/runenv-status-XXXXXX";
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

// As curl's configuration file has it.
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

std::vector<std::optional<std::string>> fetch_pointers(const std::string& base_url,
                                                       const std::vector<std::string>& items) {
  const PrivateDirectory directory;
  const std::string wanted = directory.file("wanted");
  std::ofstream list(wanted);
  for (size_t i = 0; i < items.size(); ++i) {
    list << "url = "
         << quoted(base_url + "/" + Layout::kTreeRoot + "/" + Layout::kEnvironment + "/" +
                   items[i] + "/" + Layout::kLatest)
         << "\noutput = " << quoted(directory.file(std::to_string(i))) << "\n";
  }
  list.close();
  try {
    run_tool({"curl", "-s", "-S", "-f", "-L", "-g", "-K", wanted.c_str(), nullptr}, kNoFile,
             kNoFile, fs::path_t("curl"), "failed");
  } catch (const Error& error) {
    // One transfer that fails does not keep the others from being made.
    std::fprintf(stderr, "%s: %s\n", program_name(), error.message);
  }
  std::vector<std::optional<std::string>> result(items.size());
  for (size_t i = 0; i < items.size(); ++i) {
    const std::string file = directory.file(std::to_string(i));
    if (access(file.c_str(), R_OK) == 0) {
      result[i] = malloc_ptr<char>(read_pointer_line(file.c_str())).get();
    }
  }
  return result;
}

}  // namespace runenv
