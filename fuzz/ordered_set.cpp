// The ordered set against std::multimap, which also keeps equal keys in the order of their arrival.
// After every operation the balance of the tree and every walk over it are checked.
#include <cstring>
#include <map>
#include <vector>

#include "fuzz/input.h"
#include "schema/version_info.h"

#define SET(name) sglib_image___version_info___root___system_types_t_##name
#define DOCUMENT(name) image___version_info___##name
using entry_t = DOCUMENT(root___system_types_t);
using Entries = std::vector<const entry_t*>;

// Notes the entries in pre-order, in-order and post-order and returns the number of black entries
// on a way down, which is the same for every way. No red entry is below a red one.
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
  entry_t* out = nullptr;  // an entry that was taken out
  while (!input.empty()) {
    const uint8_t decision = input.byte();
    std::string key = input.c_text(decision / 8 % 4);
    if (decision / 8 % 4 == 3 && !model.empty()) {
      key.insert(0, model.rbegin()->first);  // the greatest key or one behind it
    }
    const size_t known = model.count(key);
    entry_t* const found = DOCUMENT(root___system_types_t___find_f)(root, key.c_str());
    REQUIRE(found == nullptr ? known == 0 : found->key == key);
    REQUIRE(found == DOCUMENT(root___system_types_t___find_cf)(root, key.c_str()));
    entry_t *added = nullptr, *removed = nullptr;
    if (decision % 8 == 0 && !model.empty()) {  // one of several with the same key, too
      removed = std::next(model.begin(), decision / 8 % static_cast<int>(model.size()))->second;
      REQUIRE(SET(is_member)(*top, removed) == 1);
      SET(delete)(top, removed);
    } else if (decision % 8 == 1 && known != 0) {
      DOCUMENT(root_t___system_types___iwrite_unlink_entry)(allocator, root, key.c_str());
      removed = found;
    } else if (decision % 8 == 2 && out != nullptr) {
      REQUIRE(SET(is_member)(*top, out) == 0);
      SET(delete)(top, out);  // changes nothing
      entry_t* existing;
      const bool is_new = SET(add_if_not_member)(top, out, &existing) == 1;
      REQUIRE(is_new == (model.count(out->key) == 0) && is_new == (existing == nullptr));
      REQUIRE(is_new || strcmp(existing->key, out->key) == 0);
      added = is_new ? out : nullptr;
    } else if (decision % 8 == 3) {
      added =
          DOCUMENT(root___system_types_t___allocate_f)(allocator, root, key.c_str(), key.size());
    } else {
      added = DOCUMENT(root_t___system_types___iwrite_create_entry)(allocator, root, key.c_str());
      REQUIRE((added != nullptr) == (known == 0));
    }
    if (removed != nullptr) {
      const auto same = [&](const auto& pair) { return pair.second == removed; };
      model.erase(std::find_if(model.begin(), model.end(), same));
      out = removed;
    } else if (added != nullptr) {
      model.emplace(added->key, added);
      out = added == out ? nullptr : out;
    }

    Entries orders[3], in_order, equal, same_start;
    look_at(*top, true, orders);  // the top is black as well
    for (const auto& [name, entry] : model) {
      in_order.push_back(entry);
      if (name == key) equal.push_back(entry);
      if (strncmp(name.c_str(), key.c_str(), 1) == 0) same_start.push_back(entry);
    }
    entry_t probe{};
    probe.key = key.data();
    SET(iterator) it;
    REQUIRE(in_order == orders[1] && SET(len)(*top) == static_cast<int>(model.size()));
    SET(it_init_preorder)(&it, *top);  // a walk that ends early leaves nothing for the next one
    check_walk(&it, SET(it_init)(&it, *top), orders[2]);
    check_walk(&it, SET(it_init_preorder)(&it, *top), orders[0]);
    check_walk(&it, SET(it_init_inorder)(&it, *top), orders[1]);
    check_walk(&it, SET(it_init_postorder)(&it, *top), orders[2]);
    check_walk(&it, SET(it_init_on_equal)(&it, *top, nullptr, &probe), equal);
    check_walk(&it, SET(it_init_on_equal)(&it, *top, compare_first_bytes, &probe), same_start);
  }
  // A post-order walk does not look at an entry again.
  SET(iterator) it;
  for (entry_t* entry = SET(it_init)(&it, *top); entry != nullptr; model.erase(model.begin())) {
    memset(static_cast<void*>(entry), 0xff, sizeof *entry);
    entry = SET(it_next)(&it);
  }
  REQUIRE(model.empty());
  DOCUMENT(destroy_allocator_f)(allocator);
  return 0;
}
