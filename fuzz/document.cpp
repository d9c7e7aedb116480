// Compares the document reader and writer with a model: whole documents, truncated documents,
// documents with a wrong fingerprint, with a duplicate key and with trailing bytes.
#include <map>
#include <vector>

#include "core/buffer.h"
#include "fuzz/input.h"
#include "schema/version_info.h"
#include "schema/version_info_bin.h"
#include "stream/istream.h"

#define DOCUMENT(name) image___version_info___##name

// The bytes of a document, and for each byte the failure of a document that is truncated before it.
struct Model {
  std::string bytes, failure;  // failure: of the whole document
  std::vector<std::string> reasons;

  void put(const std::string& more, const char* reason) {
    bytes += more;
    reasons.resize(bytes.size(), failure.empty() ? reason : failure);
  }
  void put_fingerprint() {
    put("d95b246cca0c3b04d105771d58246fa0e706a6d44ac97d6cb4bab99390a02582",
        "insufficient bytes to read fingerprint");
  }
  void put_number(size_t n) {
    put({char(n >> 24), char(n >> 16), char(n >> 8), char(n)}, "insufficient bytes to read uint32");
  }
  void put_text(const std::string& text, const char* reason = "insufficient data to read text") {
    put_number(text.size());
    put(text, reason);
  }
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const uint8_t kind = input.byte(), place = input.byte();
  Model model, sorted;
  std::map<std::string, std::string> entries;
  model.put_fingerprint();
  if (kind % 8 == 0) {
    model.bytes[place % 64] ^= 1;
    model.failure = "fingerprint mismatch in binary data";
  }
  const std::string platform = input.text(input.byte() % 8);
  model.put_text(platform);
  const unsigned count = input.byte() % 8;
  model.put_number(count);
  for (unsigned i = 0; i < count; ++i) {
    const std::string key = input.text(input.byte() % 4), version = input.text(input.byte());
    model.put_text(key, "insufficient bytes to read entry key");
    const bool is_new = entries.emplace(key.c_str(), version).second;  // ends at its first NUL
    if (!is_new && model.failure.empty()) model.failure = "duplicate key";
    model.put_text(version);
  }
  const bool cut = kind % 8 < 4 && place < model.bytes.size(), tail = kind % 16 < 8;
  const std::string rest = cut ? "" : input.text(kind / 16 % 4);
  std::string reason = cut ? model.reasons[place] : model.failure;
  if (reason.empty() && !tail && !rest.empty()) reason = "trailing bytes";

  const std::string bytes = cut ? model.bytes.substr(0, place) : model.bytes + rest;
  dympage_t* const allocator = dympage_create2(512);  // most documents need several pages
  auto* const root = DOCUMENT(root_t___allocate_f)(allocator);
  istream* const stream = istream_create_memory(bytes.data(), bytes.size());
  const auto parse = tail ? DOCUMENT(parse_bin_tail_f) : DOCUMENT(parse_bin_f);
  REQUIRE(parse(allocator, root, stream) == (reason.empty() ? 0 : -1));
  REQUIRE(reason == (root->error == nullptr ? "" : root->error));
  if (reason.empty()) {
    char area[4] = {};
    REQUIRE(istream_read_len(stream, area, 4) == (tail ? rest.size() : 0));
    DOCUMENT(finalize_f)(root);
    sorted.put_fingerprint();
    sorted.put_text(platform);
    sorted.put_number(entries.size());
    DOCUMENT(root___system_types_t___iterator_t) it;
    const auto* entry = DOCUMENT(root___system_types_t___it_init)(root->system_types, &it);
    for (const auto& [key, version] : entries) {
      sorted.put_text(key);
      sorted.put_text(version);
      REQUIRE(entry->key == key &&
              std::string(entry->version, version.size() + 1) == version + '\0');
      entry = DOCUMENT(root___system_types_t___it_next)(&it);
    }
    Buffer written(0);
    REQUIRE(entry == nullptr && root->system_types_count == entries.size());
    REQUIRE(DOCUMENT(write_bin_f)(root, &written) == 0);
    REQUIRE(std::string(written.array, written.size) == sorted.bytes);
  }
  istream_destroy(stream);
  DOCUMENT(destroy_allocator_f)(allocator);
  return 0;
}
