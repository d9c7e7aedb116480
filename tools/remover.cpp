#include "tools/remover.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "tools/command_line.h"
#include "tools/failure.h"
#include "tools/published_name.h"
#include "tools/replacement.h"
#include "tools/size_text.h"
#include "tools/tree.h"

namespace runenv {

// Returns the name of an entry while it is being removed. No release can have this name.
static std::string removing_name() {
  return std::string(".") + program_name() + "#removing";
}

void Remover::remove_from(const std::string& directory, const std::string& name,
                          const std::string& shown) {
  const std::string path = directory + "/" + name, removing = directory + "/" + removing_name();
  tell(path, shown + "/" + name);
  if (is_dry) {
    return;
  }
  if (path != removing) {
    remove_whole_tree(removing);  // a leftover of an interrupted run would block the new name
    if (rename(path.c_str(), removing.c_str()) != 0) {
      throw_errno_of(printable(shown + "/" + name));
    }
    sync_directory(open_directory(directory).get(), shown);
  }
  if (remove_whole_tree(removing) != 0) {
    throw_errno_of(printable(shown + "/" + name));
  }
}

void Remover::remove_leftover_from(const std::string& directory, const std::string& shown) {
  struct stat status;
  if (lstat((directory + "/" + removing_name()).c_str(), &status) == 0) {
    remove_from(directory, removing_name(), shown);
  }
}

void Remover::remove_file(const std::string& path, const std::string& shown) {
  tell(path, shown);
  if (!is_dry && unlink(path.c_str()) != 0) {
    throw_errno_of(printable(shown));
  }
}

void Remover::sum_up() const {
  std::printf("%s %s\n", is_dry ? "would free" : "freed", size_text(freed).c_str());
}

void Remover::tell(const std::string& path, const std::string& shown) {
  const uint64_t bytes = size_on_disk(path);
  std::printf("%s %s (%s)\n", is_dry ? "would remove" : "removing", printable(shown).c_str(),
              size_text(bytes).c_str());
  freed += bytes;
}

}  // namespace runenv
