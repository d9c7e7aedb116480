// A version info document in memory.
#pragma once

#include <string>
#include <vector>

#include "core/owner.h"
#include "schema/version_info.h"

namespace runenv {

struct Document {
  owner<dympage_t, image___version_info___destroy_allocator_f> allocator{
      image___version_info___create_allocator_f()};
  image___version_info___root_t* root = image___version_info___root_t___allocate_f(allocator.get());
};

// Reads the file into `document`. Throws Error if it cannot be read or is not a document.
void read_document(const char* path, const Document& document);

// Returns the directories of the document's items below "runenv", such as "platform/5" and
// "system-types/linker/0.9", in the order in which the bootstrapper updates them.
std::vector<std::string> item_directories(const Document& document);

}  // namespace runenv
