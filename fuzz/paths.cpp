// Compares joining and splitting in both file interfaces with a model on strings.
#include <cstring>

#include "fs/file_interface.h"
#include "fs/path.h"
#include "fuzz/input.h"

struct Model {
  std::string text;
  const char* absolute;  // the first characters of an absolute component

  void join(const std::string& component, const std::string& ext = "") {
    if (!component.empty()) {
      const bool replaces = text.empty() || strchr(absolute, component[0]) != nullptr;
      text = (replaces ? "" : text.back() == '/' ? text : text + '/') + component;
    }
    text += ext;
  }
  size_t slash() const { return text.rfind('/'); }
  std::string directory() const {
    return slash() == text.npos ? "." : slash() == 0 ? "/" : text.substr(0, slash());
  }
  std::string base() const { return slash() == text.npos ? "" : text.substr(slash() + 1); }
};

static bool holds(bucket_t* bucket, const std::string& text) {
  return std::string(bucket_cstring(bucket), bucket->length + 1) == text + '\0';
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  Model object{input.c_text(input.byte() % 32), "/"}, c{object.text, "/\\"};
  fs::path_t path(object.text.c_str());
  bucket_t bucket = fs_init(c.text.c_str()), out{};
  while (!input.empty()) {
    const uint8_t decision = input.byte();
    const std::string name = input.c_text(decision / 4 % 8), ext = input.c_text(decision / 32);
    // Joins two components, or a component and an extension. Both may lie in the path.
    const auto join = [&](Model* model, const char* text, bool components, const auto& call) {
      const char* const end = text + model->text.size() - std::min(model->text.size(), name.size());
      const char* const first = decision % 2 == 0 ? end : name.c_str();
      const char* const second = decision % 3 == 0 ? end : ext.c_str();
      model->join(first, components ? "" : second);
      if (components) model->join(second);
      call(first, second);
    };
    join(&object, path.cstring(), false,
         [&](auto a, auto b) { path.join(nullptr).join_ext(a, b); });
    join(&c, bucket.data, true,
         [&](auto a, auto b) { fs_joinv(&bucket, a, "", b, nullptr, "no"); });
    join(&c, bucket.data, false, [&](auto a, auto b) { fs_join_ext(&bucket, a, b); });
    fs_join(&bucket, nullptr);
    REQUIRE(path.cstring() == object.text);
    REQUIRE(path.dir_name().cstring() == object.directory());
    REQUIRE(path.base_name().cstring() == object.base());
    REQUIRE(holds(&bucket, c.text) && holds(fs_basename(&bucket, &out), c.base()));
    REQUIRE(holds(fs_dirname(&bucket, &out), c.directory()));
    const Model above{c.directory(), ""};
    REQUIRE(holds(fs_dirname(&out, &out), above.directory()));  // in place
    REQUIRE(holds(fs_basename(&out, &out), Model{above.directory(), ""}.base()));
  }
  bucket_release(&bucket);
  bucket_release(&out);
  return 0;
}
