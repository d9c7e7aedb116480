// The document reader and writer. A document that is accepted is written again whole and in order.
// Every other one is refused with a reason.
#include "core/buffer.h"
#include "fuzz/input.h"
#include "schema/version_info.h"
#include "schema/version_info_bin.h"
#include "stream/istream.h"

#define DOCUMENT(name) image___version_info___##name

static const std::string kFingerprint =
    "d95b246cca0c3b04d105771d58246fa0e706a6d44ac97d6cb4bab99390a02582";

// Whether a text claims far more bytes than there are. Reserving memory for it costs time and shows
// nothing new.
static bool claims_much(const std::string& bytes) {
  size_t at = kFingerprint.size();
  for (int field = 0; at + 4 <= bytes.size(); ++field) {
    size_t number = 0;
    for (int i = 0; i < 4; ++i) number = number << 8 | static_cast<uint8_t>(bytes[at++]);
    at += field == 1 ? 0 : number;  // the second number is a count
  }
  return at > bytes.size() + (1 << 20);
}

// Reads a document and returns what the writer makes of it, "" for a document that is refused.
static std::string read_and_write(const std::string& bytes) {
  dympage_t* const allocator = dympage_create2(512);  // most documents need several pages
  auto* const root = DOCUMENT(root_t___allocate_f)(allocator);
  istream* const stream = istream_create_memory(bytes.data(), bytes.size());
  const int result = DOCUMENT(parse_bin_f)(allocator, root, stream);
  REQUIRE(result == (root->error == nullptr ? 0 : -1));
  Buffer written(0);
  if (result == 0) {
    DOCUMENT(root___system_types_t___iterator_t) it;
    auto* entry = DOCUMENT(root___system_types_t___it_init)(root->system_types, &it);
    for (std::string last; entry != nullptr; --root->system_types_count) {
      REQUIRE((last.empty() || last < entry->key) && entry->version[entry->version_len] == '\0');
      last = entry->key;
      entry = DOCUMENT(root___system_types_t___it_next)(&it);
    }
    REQUIRE(root->system_types_count == 0 && DOCUMENT(write_bin_f)(root, &written) == 0);
  }
  istream_destroy(stream);
  DOCUMENT(destroy_allocator_f)(allocator);
  return {written.get_unmanaged_array(), written.length()};
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  // Most inputs get a correct fingerprint.
  const std::string document = (input.byte() != '-' ? kFingerprint : "") + input.text(size);
  if (claims_much(document)) return 0;
  const std::string written = read_and_write(document);
  if (!written.empty()) {
    // A key ends at its first NUL. Otherwise only the order may change.
    REQUIRE(written.size() < document.size() ||
            std::is_permutation(written.begin(), written.end(), document.begin(), document.end()));
    REQUIRE(read_and_write(written) == written);
    REQUIRE(read_and_write(written + "x").empty());
    REQUIRE(read_and_write(written.substr(0, written.size() - 1)).empty());
  }
  return 0;
}
