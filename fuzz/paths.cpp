// Joining and splitting, in both file interfaces, against their description in terms of strings.
#include "fs/file_interface.h"
#include "fs/path.h"
#include "fuzz/input.h"

static std::string join(const std::string& path, const char* component, const char* absolute) {
  if (component == nullptr || *component == '\0') {
    return path;
  }
  if (path.empty() || std::string(absolute).find(*component) != std::string::npos) {
    return component;
  }
  return path + (path.back() == '/' ? "" : "/") + component;
}

static std::string directory_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

static std::string base_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(slash + 1);
}

static std::string text_of(bucket_t* bucket) {
  return {bucket_cstring(bucket), bucket->length + 1};
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const char* const kObject = "/";
  static const char* const kC = "/\\";  // what begins an absolute component
  Input input(data, size);
  std::string object_model = input.c_text(input.byte() % 32), c_model = object_model;
  fs::path_t path(object_model.c_str());
  bucket_t bucket = fs_init(c_model.c_str()), out;
  bucket_nil(&out);
  while (!input.empty()) {
    const uint8_t decision = input.byte();
    const std::string text = input.c_text(decision / 4 % 8), last = input.c_text(decision / 32);
    const char* const first = decision % 4 == 3 ? nullptr : text.c_str();
    if (decision % 4 == 0) {
      path.join(first);
      object_model = join(object_model, first, kObject);
      fs_joinv(&bucket, first, "", last.c_str(), nullptr);
      c_model = join(join(c_model, first, kC), last.c_str(), kC);
    } else if (decision % 4 == 2) {  // texts of their own
      const size_t own = std::min({text.size(), object_model.size(), c_model.size()});
      std::string end = object_model.substr(object_model.size() - own);
      const char* const in_path = path.cstring() + object_model.size() - own;
      path.join_ext(in_path, in_path);
      object_model = join(object_model, end.c_str(), kObject) + end;
      end = c_model.substr(c_model.size() - own);
      const char* in_bucket = bucket.data + c_model.size() - own;
      fs_joinv(&bucket, in_bucket, in_bucket, nullptr);
      c_model = join(join(c_model, end.c_str(), kC), end.c_str(), kC);
      in_bucket = bucket.data + c_model.size() - own;
      fs_join_ext(&bucket, in_bucket, in_bucket);
      c_model = join(c_model, end.c_str(), kC) + end;
    } else {
      path.join_ext(first, last.c_str());
      object_model = join(object_model, first, kObject) + last;
      fs_join_ext(&bucket, first, last.c_str());
      c_model = join(c_model, first, kC) + last;
    }
    REQUIRE(path.cstring() == object_model);
    REQUIRE(path.dir_name().cstring() == directory_of(object_model));
    REQUIRE(path.base_name().cstring() == base_of(object_model));
    REQUIRE(text_of(&bucket) == c_model + '\0');
    REQUIRE(text_of(fs_dirname(&bucket, &out)) == directory_of(c_model) + '\0');
    const std::string above = directory_of(directory_of(c_model));
    REQUIRE(text_of(fs_dirname(&out, &out)) == above + '\0');
    REQUIRE(text_of(fs_basename(&out, &out)) == base_of(above) + '\0');
    REQUIRE(text_of(fs_basename(&bucket, &out)) == base_of(c_model) + '\0');
  }
  bucket_release(&bucket);
  bucket_release(&out);
  return 0;
}
