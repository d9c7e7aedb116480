#include "schema/pointer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/allocation.h"
#include "core/buffer.h"
#include "core/failure.h"
#include "stream/instream.h"

// A stream tries a read that fails again and again, so that is found out before.
static void check_readable(FILE* file, const char* path) {
  const int first = std::fgetc(file);
  if (first == EOF && std::ferror(file) != 0) {
    runenv::throw_failure("Unable to open '" + std::string(path) +
                          "' for reading: " + std::strerror(errno));
  }
  std::ungetc(first, file);  // nothing at the end of the file
}

char* read_pointer_line(const char* path) {
  InstreamPathImpl file{fs::path_t(path)};
  check_readable(file.file, path);
  Buffer content(true, Instream(file.stream()));
  const size_t length = std::strcspn(content.array, "\r\n");
  // The line is the content's own storage, cut to size: a huge pointer is not held twice.
  char* const line = content.array;
  content.capacity = 0;
  line[length] = '\0';
  return static_cast<char*>(runenv::reallocate(line, length + 1));
}
