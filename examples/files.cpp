// Writes an index of the files in a directory: the size and name of each.

#include <cstdio>

#include "core/error.h"
#include "fs/file_interface.h"
#include "fs/iterator.h"
#include "fs/path.h"

static void write_index(const fs::path_t& directory, const fs::path_t& index) {
  FILE* const file = index.open_write(true);  // true: create missing parent directories
  for (fs::iterator_t entry(directory, false); entry.has_item(); entry.move_next()) {
    const fs::path_t path = entry.get_path();
    if (path.is_regular_file()) {
      bucket_t name = fs_init(path.cstring());  // the path type of the C functions
      std::fprintf(file, "%8lld  %s\n", fs_size(&name), entry.get_name());
      bucket_release(&name);
    }
  }
  std::fclose(file);
}

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: files DIRECTORY INDEX\n", stderr);
    return 1;
  }
  try {
    // real_path throws if the directory does not exist. An iterator would just find no entry.
    write_index(fs::path_t(argv[1]).real_path(), argv[2]);
  } catch (const Error& error) {
    std::fprintf(stderr, "files: %s\n", error.message);
    return 1;
  }
  return 0;
}
