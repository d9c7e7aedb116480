// The ordered set against std::map, with the balance of its tree checked after every operation.
#include <map>

#include "fuzz/input.h"
#include "schema/version_info.h"

#define SET(name) sglib_image___version_info___root___system_types_t_##name

using entry_t = image___version_info___root___system_types_t;

// The number of black entries on every way down; equal on all of them, and no red one below a red.
static int black_height(const entry_t* entry, bool below_red) {
  if (entry == nullptr) {
    return 0;
  }
  const bool red = entry->colour != 0;
  REQUIRE(!(red && below_red));
  const int left = black_height(entry->left, red);
  REQUIRE(left == black_height(entry->right, red));
  return left + !red;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  dympage_t* const allocator = dympage_create2(4096);  // as create_allocator_f, but quickly made
  auto* const root = image___version_info___root_t___allocate_f(allocator);
  std::map<std::string, entry_t*> model;
  while (!input.empty()) {
    const uint8_t operation = input.byte();
    const std::string key = input.c_text(operation / 4 % 3);
    const auto known = model.find(key);
    entry_t* const found = image___version_info___root___system_types_t___find_f(root, key.c_str());
    REQUIRE(found == (known == model.end() ? nullptr : known->second));
    REQUIRE(found == nullptr || SET(is_member)(root->system_types, found) == 1);
    if (operation % 16 == 1) {
      // The layer below: taken out as this very entry and put back, no other takes its place.
      entry_t probe{}, *existing = nullptr;
      probe.key = const_cast<char*>(key.c_str());
      REQUIRE(SET(is_member)(root->system_types, &probe) == 0);
      if (found != nullptr) {
        REQUIRE(SET(add_if_not_member)(&root->system_types, &probe, &existing) == 0);
        REQUIRE(existing == found);
        SET(delete)(&root->system_types, found);
        REQUIRE(SET(add_if_not_member)(&root->system_types, found, &existing) == 1);
      } else {
        REQUIRE(SET(delete_if_member)(&root->system_types, &probe, &existing) == 0);
        REQUIRE(existing == nullptr);
      }
    } else if (operation % 4 != 0) {
      entry_t* const made = image___version_info___root_t___system_types___iwrite_create_entry(
          allocator, root, key.c_str());
      REQUIRE((made != nullptr) == (known == model.end()));
      model.emplace(key, made);
    } else if (known != model.end()) {
      image___version_info___root_t___system_types___iwrite_unlink_entry(allocator, root,
                                                                         key.c_str());
      model.erase(known);
    }
    black_height(root->system_types, true);  // the top is black as well
    REQUIRE(root->system_types_count == model.size());
    REQUIRE(SET(len)(root->system_types) == static_cast<int>(model.size()));
    image___version_info___root___system_types_t___iterator_t iterator;
    const entry_t* entry =
        image___version_info___root___system_types_t___it_init(root->system_types, &iterator);
    for (const auto& [wanted_key, wanted] : model) {
      REQUIRE(entry == wanted && entry->key == wanted_key);
      entry = image___version_info___root___system_types_t___it_next(&iterator);
    }
    REQUIRE(entry == nullptr);
  }
  image___version_info___destroy_allocator_f(allocator);
  return 0;
}
