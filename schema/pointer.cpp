#include "schema/pointer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/allocation.h"
#include "core/buffer.h"
#include "core/failure.h"
#include "stream/instream.h"

static constexpr size_t kBlockSize = 4096;  // the block size of the stream

// Call this before each block: the stream itself would repeat a failing read for ever.
static void throw_if_unreadable(FILE* file, const char* path) {
  const int next = std::fgetc(file);
  if (next == EOF && std::ferror(file) != 0) {
    const char* const reason = std::strerror(errno);
    runenv::throw_failure("Unable to open '" + std::string(path) + "' for reading: " + reason);
  }
  std::ungetc(next, file);  // does nothing for EOF
}

char* read_pointer_line(const char* path) {
  InstreamPathImpl file{fs::path_t(path)};
  Buffer content(0);
  char block[kBlockSize];
  for (;;) {
    throw_if_unreadable(file.file, path);
    const long long n = file.stream()->read_block(block, sizeof block);
    if (n < 0) {
      break;
    }
    content.append(block, static_cast<unsigned long long>(n));
  }
  content.append("", 1);
  const size_t length = std::strcspn(content.array, "\r\n");
  // The line takes over the storage of the buffer, so that a huge file is not in memory twice.
  char* const line = content.array;
  content.capacity = 0;  // the buffer no longer owns it
  line[length] = '\0';
  return static_cast<char*>(runenv::reallocate(line, length + 1));
}
