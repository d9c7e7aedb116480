#include "schema/version_info_bin.h"

#include <algorithm>
#include <cstring>

#include "core/allocation.h"
#include "core/big_endian.h"
#include "core/buffer.h"
#include "core/owner.h"

using root_t = image___version_info___root_t;
using entry_t = image___version_info___root___system_types_t;
using iterator_t = image___version_info___root___system_types_t___iterator_t;

static constexpr auto first_entry = image___version_info___root___system_types_t___cit_init;
static constexpr auto next_entry = image___version_info___root___system_types_t___cit_next;

static constexpr char kFingerprint[] =
    "d95b246cca0c3b04d105771d58246fa0e706a6d44ac97d6cb4bab99390a02582";
static constexpr size_t kFingerprintLength = sizeof(kFingerprint) - 1;
static_assert(kFingerprintLength == 64);

namespace {

// The size of a document in binary form.
struct Extent {
  uint64_t bytes = 0;
  uint64_t entries = 0;
  uint64_t longest_text = 0;

  void add_text(uint64_t length) {
    bytes += sizeof(uint32_t) + length;
    longest_text = std::max(longest_text, length);
  }
};

}  // namespace

// Stores the message in the document and returns -1.
static int report_fault(root_t* root, const char* message) {
  root->root->error = message;
  return -1;
}

static bool read_fully(istream* stream, char* destination, uint64_t count) {
  return istream_read_len(stream, destination, count) == count;
}

static int read_fingerprint(root_t* root, istream* stream) {
  char fingerprint[kFingerprintLength];
  if (!read_fully(stream, fingerprint, kFingerprintLength)) {
    return report_fault(root, "insufficient bytes to read fingerprint");
  }
  if (std::memcmp(fingerprint, kFingerprint, kFingerprintLength) != 0) {
    return report_fault(root, "fingerprint mismatch in binary data");
  }
  return 0;
}

static int read_uint32(root_t* root, istream* stream, uint32_t* value) {
  char bytes[sizeof *value];
  if (!read_fully(stream, bytes, sizeof bytes)) {
    return report_fault(root, "insufficient bytes to read uint32");
  }
  *value = runenv::read_big_endian(bytes);
  return 0;
}

// Fills `text`, the result of iwrite_alloc, with `length` bytes. Its NUL is already there. If it is
// null, iwrite_alloc has failed and reported the failure.
static int read_text(root_t* root, istream* stream, char* text, uint32_t length) {
  if (text == nullptr) {
    return -1;
  }
  return read_fully(stream, text, length) ? 0
                                          : report_fault(root, "insufficient data to read text");
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

static int read_entry(dympage_t* allocator, root_t* root, istream* stream) {
  uint32_t length;
  if (read_uint32(root, stream, &length) != 0) {
    return -1;
  }
  const runenv::malloc_ptr<char> key(static_cast<char*>(runenv::allocate(uint64_t{length} + 1)));
  if (!read_fully(stream, key.get(), length)) {
    return report_fault(root, "insufficient bytes to read entry key");
  }
  key.get()[length] = '\0';
  entry_t* const entry = image___version_info___root_t___system_types___iwrite_create_entry(
      allocator, root, key.get());
  if (entry == nullptr) {
    return report_fault(root, "duplicate key");
  }
  return read_version(allocator, root, stream, entry);
}

int image___version_info___parse_bin_tail_f(dympage_t* allocator, root_t* root, istream* stream) {
  uint32_t count;
  if (read_fingerprint(root, stream) != 0 || read_platform_version(allocator, root, stream) != 0 ||
      read_uint32(root, stream, &count) != 0) {
    return -1;
  }
  for (uint32_t i = 0; i < count; ++i) {
    if (read_entry(allocator, root, stream) != 0) {
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
  return istream_read_len(stream, &extra, 1) == 0 ? 0 : report_fault(root, "trailing bytes");
}

static Extent measure(const root_t* root) {
  Extent extent{.bytes = kFingerprintLength + sizeof(uint32_t)};
  extent.add_text(root->platform_version_len);
  iterator_t iterator;
  for (const entry_t* entry = first_entry(root->system_types, &iterator); entry != nullptr;
       entry = next_entry(&iterator)) {
    extent.add_text(std::strlen(entry->key));
    extent.add_text(entry->version_len);
    ++extent.entries;
  }
  return extent;
}

// Stores the value, which must fit in 32 bits, at `end`. Returns the new end.
static char* put_uint32(char* end, uint64_t value) {
  runenv::write_big_endian(end, static_cast<uint32_t>(value));
  return end + sizeof(uint32_t);
}

static char* put_text(char* end, const char* text, uint64_t length) {
  return std::copy_n(text, length, put_uint32(end, length));
}

int image___version_info___write_bin_f(root_t* root, Buffer* target) {
  const Extent extent = measure(root);
  if (extent.longest_text > UINT32_MAX) {
    return report_fault(root, "text too long for binary data");
  }
  if (extent.entries > UINT32_MAX) {
    return report_fault(root, "too many entries for binary data");
  }
  const runenv::malloc_ptr<char> bytes(static_cast<char*>(runenv::allocate(extent.bytes)));
  char* end = std::copy_n(kFingerprint, kFingerprintLength, bytes.get());
  end = put_text(end, root->platform_version, root->platform_version_len);
  // Not `system_types_count`, which is too low if a missing key was unlinked.
  end = put_uint32(end, extent.entries);
  iterator_t iterator;
  for (const entry_t* entry = first_entry(root->system_types, &iterator); entry != nullptr;
       entry = next_entry(&iterator)) {
    end = put_text(end, entry->key, std::strlen(entry->key));
    end = put_text(end, entry->version, entry->version_len);
  }
  target->append(bytes.get(), extent.bytes);
  return 0;
}
