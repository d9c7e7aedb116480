#include "schema/version_info_bin.h"

#include <cstring>

#include "core/allocation.h"
#include "core/buffer.h"
#include "core/owner.h"

using root_t = image___version_info___root_t;
using entry_t = image___version_info___root___system_types_t;
using place_t = sglib_image___version_info___root___system_types_t_place;
using iterator_t = image___version_info___root___system_types_t___iterator_t;

static constexpr char kFingerprint[] =
    "d95b246cca0c3b04d105771d58246fa0e706a6d44ac97d6cb4bab99390a02582";
static constexpr size_t kFingerprintLength = sizeof(kFingerprint) - 1;
static_assert(kFingerprintLength == 64);

static int fail(root_t* root, const char* message) {
  root->root->error = message;
  return -1;
}

static bool read_fully(istream* stream, char* destination, uint64_t count) {
  return istream_read_len(stream, destination, count) == count;
}

static int read_fingerprint(root_t* root, istream* stream) {
  char fingerprint[kFingerprintLength];
  if (!read_fully(stream, fingerprint, kFingerprintLength)) {
    return fail(root, "insufficient bytes to read fingerprint");
  }
  if (std::memcmp(fingerprint, kFingerprint, kFingerprintLength) != 0) {
    return fail(root, "fingerprint mismatch in binary data");
  }
  return 0;
}

static int read_uint32(root_t* root, istream* stream, uint32_t* value) {
  unsigned char bytes[4];
  if (!read_fully(stream, reinterpret_cast<char*>(bytes), sizeof bytes)) {
    return fail(root, "insufficient bytes to read uint32");
  }
  *value = uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
  return 0;
}

// Fills a text from iwrite_alloc, whose NUL is in place already; null is its failure.
static int read_text(root_t* root, istream* stream, char* text, uint32_t length) {
  if (text == nullptr) {
    return -1;
  }
  return read_fully(stream, text, length) ? 0 : fail(root, "insufficient data to read text");
}

static int read_platform_version(dympage_t* allocator, root_t* root, istream* stream) {
  uint32_t length;
  if (read_uint32(root, stream, &length) != 0) {
    return -1;
  }
  char* const text =
      image___version_info___root_t___platform_version___iwrite_alloc(allocator, root, length);
  return read_text(root, stream, text, length);
}

static int read_version(dympage_t* allocator, root_t* root, istream* stream, entry_t* entry) {
  uint32_t length;
  if (read_uint32(root, stream, &length) != 0) {
    return -1;
  }
  char* const text = image___version_info___root___system_types_t___version___iwrite_alloc(
      allocator, entry, length);
  return read_text(root, stream, text, length);
}

// The key being read; one block serves many keys. Memory is reserved for a claimed length but only
// touched by bytes that arrive.
struct KeyBlock {
  runenv::malloc_ptr<char> bytes;
  uint64_t capacity = 0;

  char* reserve(uint64_t size) {
    if (size > capacity) {
      bytes.reset();
      bytes.reset(static_cast<char*>(runenv::allocate(size)));
      capacity = size;
    }
    return bytes.get();
  }
};

static int read_entry(dympage_t* allocator, root_t* root, istream* stream, KeyBlock* block,
                      place_t* place) {
  uint32_t length;
  if (read_uint32(root, stream, &length) != 0) {
    return -1;
  }
  char* const key = block->reserve(uint64_t{length} + 1);
  if (!read_fully(stream, key, length)) {
    return fail(root, "insufficient bytes to read entry key");
  }
  key[length] = '\0';
  entry_t* const entry = image___version_info___root_t___system_types___iwrite_create_entry_at(
      allocator, root, place, key);
  if (entry == nullptr) {
    return fail(root, "duplicate key");
  }
  return read_version(allocator, root, stream, entry);
}

int image___version_info___parse_bin_tail_f(dympage_t* allocator, root_t* root, istream* stream) {
  uint32_t count;
  if (read_fingerprint(root, stream) != 0 || read_platform_version(allocator, root, stream) != 0 ||
      read_uint32(root, stream, &count) != 0) {
    return -1;
  }
  KeyBlock block;
  place_t place;
  for (uint32_t i = 0; i < count; ++i) {
    if (read_entry(allocator, root, stream, &block, &place) != 0) {
      return -1;
    }
  }
  return 0;
}

int image___version_info___parse_bin_f(dympage_t* allocator, root_t* root, istream* stream) {
  if (image___version_info___parse_bin_tail_f(allocator, root, stream) != 0) {
    return -1;
  }
  char extra;
  return istream_read_len(stream, &extra, 1) == 0 ? 0 : fail(root, "trailing bytes");
}

// What the 32-bit fields must hold: the number of entries and the length of the longest text.
struct Extent {
  uint64_t entries = 0;
  uint64_t longest = 0;

  void cover(uint64_t length) { longest = length > longest ? length : longest; }
};

static Extent measure(const root_t* root) {
  Extent extent;
  extent.cover(root->platform_version_len);
  iterator_t iterator;
  for (const entry_t* entry =
           image___version_info___root___system_types_t___cit_init(root->system_types, &iterator);
       entry != nullptr;
       entry = image___version_info___root___system_types_t___cit_next(&iterator)) {
    extent.cover(std::strlen(entry->key));
    extent.cover(entry->version_len);
    ++extent.entries;
  }
  return extent;
}

static void write_uint32(Buffer* target, uint64_t value) {
  const char bytes[] = {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
                        static_cast<char>(value >> 8), static_cast<char>(value)};
  target->append(bytes, sizeof bytes);
}

static void write_text(Buffer* target, const char* text, uint64_t length) {
  write_uint32(target, length);
  target->append(text, length);
}

int image___version_info___write_bin_f(root_t* root, Buffer* target) {
  const Extent extent = measure(root);
  if (extent.longest > UINT32_MAX) {
    return fail(root, "text too long for binary data");
  }
  if (extent.entries > UINT32_MAX) {
    return fail(root, "too many entries for binary data");
  }
  target->append(kFingerprint, kFingerprintLength);
  write_text(target, root->platform_version, root->platform_version_len);
  write_uint32(target, extent.entries);  // system_types_count may be off after a vain unlink
  iterator_t iterator;
  for (const entry_t* entry =
           image___version_info___root___system_types_t___cit_init(root->system_types, &iterator);
       entry != nullptr;
       entry = image___version_info___root___system_types_t___cit_next(&iterator)) {
    write_text(target, entry->key, std::strlen(entry->key));
    write_text(target, entry->version, entry->version_len);
  }
  return 0;
}
