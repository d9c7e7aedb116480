// Compares the ordered set with std::multimap, which also keeps equal keys in the order of
// insertion. Checks the balance of the tree and every kind of iteration after every operation.
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "fuzz/input.h"
#include "schema/version_info.h"

#define SET(name) sglib_image___version_info___root___system_types_t_##name
#define DOCUMENT(name) image___version_info___##name
using entry_t = DOCUMENT(root___system_types_t);
using Entries = std::vector<const entry_t*>;

// Stores the entries in pre-order, in-order and post-order, and returns the number of black entries
// on a path down, which must be the same for every path. No red entry may have a red parent.
static int look_at(const entry_t* entry, bool below_red, Entries (&orders)[3]) {
  if (entry == nullptr) return 0;
  const bool red = entry->colour != 0;
  REQUIRE(!(red && below_red));
  orders[0].push_back(entry);
  const int left = look_at(entry->left, red, orders);
  orders[1].push_back(entry);
  const int right = look_at(entry->right, red, orders);
  orders[2].push_back(entry);
  REQUIRE(left == right);
  return left + !red;
}

static void check_walk(SET(iterator) * it, const entry_t* entry, const Entries& expected) {
  for (const entry_t* const wanted : expected) {
    REQUIRE(entry == wanted && SET(it_current)(it) == wanted);
    entry = SET(it_next)(it);
  }
  REQUIRE(entry == nullptr && SET(it_current)(it) == nullptr);
}

static int compare_first_bytes(const entry_t* a, const entry_t* b) {
  return strncmp(a->key, b->key, 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  dympage_t* const allocator = dympage_create2(4096);
  auto* const root = DOCUMENT(root_t___allocate_f)(allocator);
  entry_t** const top = &root->system_types;
  std::multimap<std::string, entry_t*> model;
  entry_t* out = nullptr;  // an entry that was removed
  SET(iterator) it;
  while (!input.empty()) {
    const uint8_t decision = input.byte(), operation = decision % 8, choice = decision / 8;
    std::string key = input.c_text(choice % 4);
    // The greatest key or a greater one.
    if (choice % 4 == 3 && !model.empty()) key.insert(0, model.rbegin()->first);
    const size_t known = model.count(key);
    entry_t probe{};
    probe.key = key.data();
    entry_t* const found = DOCUMENT(root___system_types_t___find_f)(root, key.c_str());
    REQUIRE(found == nullptr ? known == 0 : found->key == key);
    REQUIRE(found == DOCUMENT(root___system_types_t___find_cf)(root, key.c_str()));
    entry_t *added = nullptr, *removed = nullptr;
    if (operation == 0 && !model.empty()) {  // may have the same key as others
      removed = std::next(model.begin(), choice % static_cast<int>(model.size()))->second;
      REQUIRE(SET(is_member)(*top, removed) == 1);
      SET(delete)(top, removed);
    } else if (operation == 1) {
      REQUIRE(SET(delete_if_member)(top, &probe, &removed) == (known != 0 ? 1 : 0));
      REQUIRE(removed == found);
    } else if (operation == 4 && known != 0) {
      DOCUMENT(root_t___system_types___iwrite_unlink_entry)(allocator, root, key.c_str());
      removed = found;
    } else if (operation == 2 && out != nullptr) {
      REQUIRE(SET(is_member)(*top, out) == 0);
      SET(delete)(top, out);  // changes nothing
      entry_t* existing;
      const bool is_new = SET(add_if_not_member)(top, out, &existing) == 1;
      REQUIRE(is_new == (model.count(out->key) == 0) && is_new == (existing == nullptr));
      REQUIRE(is_new || strcmp(existing->key, out->key) == 0);
      added = is_new ? std::exchange(out, nullptr) : nullptr;
    } else if (operation == 3) {
      const auto add = DOCUMENT(root___system_types_t___allocate_f);
      added = add(allocator, root, key.c_str(), key.size());
    } else {
      added = DOCUMENT(root_t___system_types___iwrite_create_entry)(allocator, root, key.c_str());
      REQUIRE((added != nullptr) == (known == 0));
    }
    if (added != nullptr) model.emplace(added->key, added);
    if (removed != nullptr) {
      std::erase_if(model, [&](const auto& pair) { return pair.second == removed; });
      out = removed;
    }

    Entries orders[3], in_order, equal, same_start;
    look_at(*top, true, orders);  // true: the root must be black
    for (const auto& [name, entry] : model) {
      in_order.push_back(entry);
      if (name == key) equal.push_back(entry);
      if (strncmp(name.c_str(), key.c_str(), 1) == 0) same_start.push_back(entry);
    }
    REQUIRE(in_order == orders[1] && SET(len)(*top) == static_cast<int>(model.size()));
    SET(it_init_preorder)(&it, *top);  // an unfinished iteration must not affect the next one
    check_walk(&it, SET(it_init)(&it, *top), orders[2]);
    check_walk(&it, SET(it_init_preorder)(&it, *top), orders[0]);
    check_walk(&it, SET(it_init_inorder)(&it, *top), orders[1]);
    check_walk(&it, SET(it_init_postorder)(&it, *top), orders[2]);
    check_walk(&it, SET(it_init_on_equal)(&it, *top, nullptr, &probe), equal);
    check_walk(&it, SET(it_init_on_equal)(&it, *top, compare_first_bytes, &probe), same_start);
  }
  // A post-order iteration does not access an entry again.
  for (entry_t* entry = SET(it_init)(&it, *top); entry != nullptr; entry = SET(it_next)(&it)) {
    memset(static_cast<void*>(entry), 0xff, sizeof *entry);
  }
  DOCUMENT(destroy_allocator_f)(allocator);
  return 0;
}
