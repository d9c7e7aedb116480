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
  std::string error;
  std::string platform;
  std::map<std::string, std::string> types;
  bool hostile = false;  // claims much more than it holds; a test of its own looks at that
};

class Checker {
 public:
  explicit Checker(const std::string& document) : bytes(document) { check(); }
  Model model;

 private:
  bool take(size_t n, const char* error, std::string* into) {
    if (bytes.size() - at < n) {
      model.error = error;
      model.hostile = n > bytes.size() + (1 << 16);
      return false;
    }
    *into = bytes.substr(at, n);
    at += n;
    return true;
  }
  bool number(uint32_t* value) {
    std::string four;
    if (!take(4, "insufficient bytes to read uint32", &four)) {
      return false;
    }
    *value = 0;
    for (const char c : four) {
      *value = *value << 8 | static_cast<uint8_t>(c);
    }
    return true;
  }
  bool text(const char* error, std::string* into) {
    uint32_t length;
    return number(&length) && take(length, error, into);
  }
  void check() {
    std::string fingerprint;
    uint32_t count;
    if (!take(64, "insufficient bytes to read fingerprint", &fingerprint)) {
      return;
    }
    if (fingerprint != kFingerprint) {
      model.error = "fingerprint mismatch in binary data";
      return;
    }
    if (!text("insufficient data to read text", &model.platform) || !number(&count)) {
      return;
    }
    for (; count != 0; --count) {
      std::string key, version;
      if (!text("insufficient bytes to read entry key", &key)) {
        return;
      }
      key = key.c_str();  // a key ends at its first NUL
      if (model.types.count(key) != 0) {
        model.error = "duplicate key";
        return;
      }
      if (!text("insufficient data to read text", &version)) {
        return;
      }
      model.types[key] = version;
    }
    if (at != bytes.size()) {
      model.error = "trailing bytes";
    }
  }

  const std::string& bytes;
  size_t at = 0;
};

// Reads `bytes`, holds the result against the model and returns it written again.
static std::string read_and_write(const std::string& bytes, const Model& model) {
  dympage_t* const allocator = dympage_create2(4096);  // as create_allocator_f, but quickly made
  auto* const root = image___version_info___root_t___allocate_f(allocator);
  istream* const stream = istream_create_memory(bytes.data(), bytes.size());
  const int result = image___version_info___parse_bin_f(allocator, root, stream);
  REQUIRE(result == (model.error.empty() ? 0 : -1));
  REQUIRE(result == 0 || root->error == model.error);
  Buffer written(0);
  if (result == 0) {
    REQUIRE(std::string(root->platform_version, root->platform_version_len) == model.platform);
    REQUIRE(root->system_types_count == model.types.size());
    image___version_info___root___system_types_t___iterator_t iterator;
    auto* entry =
        image___version_info___root___system_types_t___it_init(root->system_types, &iterator);
    for (const auto& [key, version] : model.types) {
      REQUIRE(entry != nullptr && entry->key == key);
      REQUIRE(std::string(entry->version, entry->version_len) == version);
      entry = image___version_info___root___system_types_t___it_next(&iterator);
    }
    REQUIRE(entry == nullptr);
    REQUIRE(image___version_info___write_bin_f(root, &written) == 0);
  }
  istream_destroy(stream);
  image___version_info___destroy_allocator_f(allocator);
  return {written.get_unmanaged_array(), written.length()};
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  // Most inputs get the fingerprint for nothing.
  const std::string document = (input.byte() != 0 ? kFingerprint : "") + input.rest();
  const Model model = Checker(document).model;
  if (model.hostile) {
    return 0;
  }
  const std::string written = read_and_write(document, model);
  if (model.error.empty()) {
    REQUIRE(read_and_write(written, model) == written);
  }
  return 0;
}
