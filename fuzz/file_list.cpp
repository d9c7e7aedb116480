// The list of a release's files: what is written is read back, and what is read is exactly what is
// written.
#include "tools/file_list.h"

#include "core/error.h"
#include "fuzz/input.h"

using namespace runenv;

static void check_text(const std::string& text) {
  try {
    const FileList list = parse_file_list(text);
    REQUIRE(to_text(list) == text);
    for (const auto& [path, file] : list) {
      REQUIRE(!path.empty() && path[0] != '/' && path.find('\0') == path.npos);
      for (const char* part : {"/../", "//"}) REQUIRE(("/" + path + "/").find(part) == path.npos);
      REQUIRE(file.type != 'f' || file.content.size() == 64);
    }
  } catch (const Error&) {
  }
}

// A name without "/", which may be any other bytes.
static std::string name_of(Input* input) {
  std::string name = "n" + input->text(input->byte() % 16);
  for (char& c : name)
    if (c == '/' || c == '\0') c = '\\';
  return name;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  check_text({reinterpret_cast<const char*>(data), size});
  Input input(data, size);
  FileList list{{".", {.type = 'd', .mode = 0755, .content = ""}}};
  for (int i = 0; i < 5; ++i) {
    const char type = "fdl"[input.byte() % 3];
    const std::string digest(64, "0123456789abcdef"[input.byte() % 16]);
    list[name_of(&input) + "/" + name_of(&input)] = {.type = type,
                                                     .mode = type == 'l' ? 0 : input.byte() * 16U,
                                                     .content = type == 'f'   ? digest
                                                                : type == 'l' ? name_of(&input)
                                                                              : ""};
  }
  const FileList read = parse_file_list(to_text(list));
  REQUIRE(read.size() == list.size() && to_text(read) == to_text(list));
  for (const auto& [path, file] : read) {
    REQUIRE(list.at(path).content == file.content && list.at(path).mode == file.mode);
  }
  return 0;
}
