// Sorts the words of the command line, removes duplicates and counts the rest.

#include <cstdio>
#include <set>

#include "core/bucket.h"
#include "core/buffer.h"
#include "core/c_string.h"
#include "core/string_array.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: strings WORD...\n", stderr);
    return 1;
  }
  // The array owns a copy of every word. Its strings are valid until the array is modified.
  StringArray words;
  words.copy_from(argv + 1, static_cast<unsigned>(argc - 1));
  std::set<const char*, ByteArrayComparator> sorted;
  for (unsigned i = 0; i < words.get_size(); ++i) {
    sorted.insert(words.get_unmanaged_string(i));
  }

  // A string builder. Its calls can be chained.
  bucket_t line;
  bucket_nil(&line);
  for (const char* word : sorted) {
    bucket_push(bucket_append(&line, word), ' ');
  }
  bucket_appendv(&line, "- ", "words: ", nullptr);
  bucket_append_int(&line, static_cast<long long>(sorted.size()));
  std::puts(bucket_cstring(&line));

  // A buffer: append bytes at the end, read them from the front.
  Buffer bytes(0);
  bytes.append(line.data, line.length);
  bytes.consume(2);
  std::printf("%llu bytes from the third on: %.*s\n", bytes.length(),
              static_cast<int>(bytes.length()), bytes.get_unmanaged_array());
  bucket_release(&line);
  return 0;
}
