// Joining and splitting, in both file interfaces, against their description in terms of strings.
#include "fs/file_interface.h"
#include "fs/path.h"
#include "fuzz/input.h"

static std::string join(const std::string& path, const std::string& component, bool backslash) {
  if (component.empty()) return path;
  if (component[0] == '/' || (backslash && component[0] == '\\') || path.empty()) return component;
  return path + (path.back() == '/' ? "" : "/") + component;
}

static std::string directory_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

static std::string base_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(slash + 1);
}

static std::string text_of(bucket_t* bucket) {
  const std::string text = bucket_cstring(bucket);
  REQUIRE(text.size() == bucket->length);
  return text;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  std::string object_model = input.c_text(input.byte() % 32), c_model = object_model;
  fs::path_t path(object_model.c_str());
  bucket_t bucket = fs_init(c_model.c_str()), out;
  bucket_nil(&out);
  while (!input.empty()) {
    const std::string first = input.c_text(input.byte() % 16), last = input.c_text(2);
    switch (input.byte() % 3) {
      case 0:
        path.join(first.c_str());
        object_model = join(object_model, first, false);
        fs_join(&bucket, first.c_str());
        c_model = join(c_model, first, true);
        break;
      case 1:
        path.join_ext(first.c_str(), last.c_str());
        object_model = join(object_model, first, false) + last;
        fs_join_ext(&bucket, first.c_str(), last.c_str());
        c_model = join(c_model, first, true) + last;
        break;
      case 2:
        path.join(first.c_str()).join(nullptr).join(last.c_str());
        object_model = join(join(object_model, first, false), last, false);
        fs_joinv(&bucket, first.c_str(), "", last.c_str(), nullptr);
        c_model = join(join(c_model, first, true), last, true);
        break;
    }
    REQUIRE(path.cstring() == object_model);
    REQUIRE(path.dir_name().cstring() == directory_of(object_model));
    REQUIRE(path.base_name().cstring() == base_of(object_model));
    REQUIRE(text_of(&bucket) == c_model);
    REQUIRE(text_of(fs_dirname(&bucket, &out)) == directory_of(c_model));
    REQUIRE(text_of(fs_basename(&bucket, &out)) == base_of(c_model));
  }
  bucket_release(&bucket);
  bucket_release(&out);
  return 0;
}
