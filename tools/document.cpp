#include "tools/document.h"

#include <cstdio>

#include "core/failure.h"
#include "fs/file_interface.h"
#include "fs/path.h"
#include "schema/layout.h"
#include "schema/version_info_bin.h"
#include "stream/istream.h"
#include "tools/failure.h"

namespace runenv {

void read_document(const char* path, const Document& document) {
  OwnedBucket name(fs_init(path));
  const owner<istream, istream_destroy> stream(fs_open_read(&name));
  if (stream == nullptr) {
    throw_errno_of(path);
  }
  const int result =
      image___version_info___parse_bin_f(document.allocator.get(), document.root, stream.get());
  // The parser takes a failure to read for the end of the file.
  if (std::ferror(reinterpret_cast<istream_file*>(stream.get())->file) != 0) {
    throw_errno_of(path);
  }
  if (result != 0) {
    throw_failure_of(path, document.root->error);
  }
}

std::vector<std::string> item_directories(const Document& document) {
  std::vector<std::string> result{
      fs::path_t(Layout::kPlatform).join(document.root->platform_version).cstring()};
  image___version_info___root___system_types_t___iterator_t iterator;
  for (const auto* type = image___version_info___root___system_types_t___cit_init(
           document.root->system_types, &iterator);
       type != nullptr; type = image___version_info___root___system_types_t___cit_next(&iterator)) {
    result.emplace_back(
        fs::path_t(Layout::kSystemTypes).join(type->key).join(type->version).cstring());
  }
  return result;
}

}  // namespace runenv
