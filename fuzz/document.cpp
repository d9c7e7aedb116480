// The document reader against a checker of the format of its own, and against the writer.
#include <map>

#include "core/buffer.h"
#include "fuzz/input.h"
#include "schema/version_info.h"
#include "schema/version_info_bin.h"
#include "stream/istream.h"

static const std::string kFingerprint =
    "d95b246cca0c3b04d105771d58246fa0e706a6d44ac97d6cb4bab99390a02582";

// What a document should be read as.
struct Model {
  explicit Model(const std::string& document) : bytes(document) {
    try {
      check();
    } catch (const char* message) {
      error = message;
    }
  }

  std::string take(uint64_t n, const char* shortage) {
    if (bytes.size() - at < n) {
      claimed = n;
      throw shortage;
    }
    return bytes.substr((at += n) - n, n);
  }
  uint32_t number() {
    uint32_t value = 0;
    for (const char c : take(4, "insufficient bytes to read uint32")) {
      value = value << 8 | static_cast<uint8_t>(c);
    }
    return value;
  }
  void check() {
    if (take(64, "insufficient bytes to read fingerprint") != kFingerprint) {
      throw "fingerprint mismatch in binary data";
    }
    platform = take(number(), "insufficient data to read text");
    for (uint32_t count = number(); count != 0; --count) {
      // A key ends at its first NUL.
      const std::string key = take(number(), "insufficient bytes to read entry key").c_str();
      if (types.count(key) != 0) {
        throw "duplicate key";
      }
      types[key] = take(number(), "insufficient data to read text");
    }
    if (at != bytes.size()) {
      throw "trailing bytes";
    }
  }

  const std::string bytes;
  size_t at = 0;
  uint64_t claimed = 0;  // the length that the bytes do not suffice for
  std::string error, platform;
  std::map<std::string, std::string> types;
};

// Reads `bytes`, holds the result against the model and returns it written again.
static std::string read_and_write(const std::string& bytes, const Model& model) {
  dympage_t* const allocator = dympage_create2(512);  // small: a document needs several pages
  auto* const root = image___version_info___root_t___allocate_f(allocator);
  istream* const stream = istream_create_memory(bytes.data(), bytes.size());
  const int result = image___version_info___parse_bin_f(allocator, root, stream);
  REQUIRE(result == (model.error.empty() ? 0 : -1));
  REQUIRE(result == 0 || root->error == model.error);
  Buffer written(0);
  if (result == 0) {
    REQUIRE(std::string(root->platform_version, root->platform_version_len) == model.platform);
    REQUIRE(root->system_types_count == model.types.size());
    image___version_info___root___system_types_t___iterator_t it;
    auto* entry = image___version_info___root___system_types_t___it_init(root->system_types, &it);
    for (const auto& [key, version] : model.types) {
      REQUIRE(entry != nullptr && entry->key == key);
      REQUIRE(std::string(entry->version, entry->version_len + 1) == version + '\0');
      entry = image___version_info___root___system_types_t___it_next(&it);
    }
    REQUIRE(entry == nullptr && image___version_info___write_bin_f(root, &written) == 0);
  }
  istream_destroy(stream);
  image___version_info___destroy_allocator_f(allocator);
  return {written.get_unmanaged_array(), written.length()};
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  // Most inputs get the fingerprint for nothing.
  const std::string document = (input.byte() != '-' ? kFingerprint : "") + input.text(size);
  const Model model(document);
  if (model.claimed > 1 << 20) {
    return 0;  // space for it is reserved, which costs time here and shows nothing new
  }
  const std::string written = read_and_write(document, model);
  if (model.error.empty()) {
    REQUIRE(read_and_write(written, model) == written);
  }
  return 0;
}
