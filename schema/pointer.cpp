#include "schema/pointer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/allocation.h"
#include "core/buffer.h"
#include "core/failure.h"
#include "stream/instream.h"

// A stream tries a read that fails again and again, so that is found out before each block.
static void check_readable(FILE* file, const char* path) {
  const int next = std::fgetc(file);
  if (next == EOF && std::ferror(file) != 0) {
    runenv::throw_failure("Unable to open '" + std::string(path) +
                          "' for reading: " + std::strerror(errno));
  }
  std::ungetc(next, file);  // nothing at the end of the file
}

char* read_pointer_line(const char* path) {
  InstreamPathImpl file{fs::path_t(path)};
  Buffer content(0);
  char block[4096];  // as much as the stream takes at a time
  for (;;) {
    check_readable(file.file, path);
    const long long n = file.stream()->read_block(block, sizeof block);
    if (n < 0) {
      break;
    }
    content.append(block, static_cast<unsigned long long>(n));
  }
  content.append("", 1);
  const size_t length = std::strcspn(content.array, "\r\n");
  // The line is the content's own storage, cut to size: a huge pointer is not held twice.
  char* const line = content.array;
  content.capacity = 0;
  line[length] = '\0';
  return static_cast<char*>(runenv::reallocate(line, length + 1));
}
