// Copies a file in capital letters. One function works with every kind of stream.

#include <cctype>
#include <cstdio>
#include <cstring>

#include "core/error.h"
#include "stream/instream.h"
#include "stream/outstream.h"

static void capitalise(Instream from, Outstream to) {
  char block[4096];
  for (long long n; (n = from.cstream()->read_block(block, sizeof block)) > 0;) {
    for (long long i = 0; i < n; ++i) {
      block[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(block[i])));
    }
    to.write_len(block, static_cast<unsigned long>(n));
  }
}

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: streams FROM TO\n", stderr);
    return 1;
  }
  try {
    // From memory to memory.
    InstreamMemImpl text(argv[1], std::strlen(argv[1]));
    OutstreamMemImpl title(0);
    capitalise(text.stream(), title.stream());
    title.finalize(true);  // flushes the writer and appends a NUL
    std::puts(title.buffer.get_unmanaged_array());

    // From file to file.
    InstreamPathImpl input{fs::path_t(argv[1])};
    OutstreamPathImpl output(argv[2], true);
    capitalise(input.stream(), output.stream());
    if (output.finalize() != 0) {
      throw Error(Error::Type::Failure, "the last bytes could not be written");
    }
  } catch (const Error& error) {
    std::fprintf(stderr, "streams: %s\n", error.message);
    return 1;
  }
  return 0;
}
