// The system types of a version info document as an ordered set: a red-black tree that links the
// entries themselves, in strcmp order of their keys.
//
// A set is its top entry, null when empty. It owns nothing: entries belong to whoever made them.
// Nothing here fails. The tree may hold several entries with one key, added by the plain `_add`; a
// later one comes after the earlier ones.
#pragma once

#include <cstdint>

struct image___version_info___root___system_types_t;

// Returns below, at or above 0 as for strcmp.
using sglib_image___version_info___root___system_types_t_comparator =
    int (*)(const image___version_info___root___system_types_t*,
            const image___version_info___root___system_types_t*);

// One walk over a set. A record may be used for any number of walks and needs no release. The set
// must not change during a walk, save that in post-order an entry may be freed once it was given.
struct sglib_image___version_info___root___system_types_t_iterator {
  static constexpr unsigned kMaxDepth = 128;  // higher than any red-black tree that memory can hold
  image___version_info___root___system_types_t* current;          // null at the end
  image___version_info___root___system_types_t* path[kMaxDepth];  // from the top downwards
  uint8_t pass[kMaxDepth];  // how often the walk has come to the entry on the path
  uint32_t depth;           // entries on the path
  uint32_t order;           // 0 pre-order, 1 in-order, 2 post-order
  const image___version_info___root___system_types_t* probe;  // null: the walk covers all entries
  sglib_image___version_info___root___system_types_t_comparator comparator;
};

// A place in a set, by the way from the top down to it, as the links that lead there: the set's own
// top pointer first, then the child fields followed. A change above needs no search for a parent,
// and the top needs no case of its own.
//
// One record serves any number of additions to one set, as long as nothing else changes the set. It
// keeps the end of the set in sight, so that entries that come in order are added in constant time.
struct sglib_image___version_info___root___system_types_t_place {
  image___version_info___root___system_types_t**
      links[sglib_image___version_info___root___system_types_t_iterator::kMaxDepth];
  unsigned depth = 0;   // 0: nowhere yet
  bool at_end = false;  // every step led to the right: the greatest entry is on the way

  auto push(image___version_info___root___system_types_t** link) { return links[depth++] = link; }
  auto pop() { return links[--depth]; }
  auto last() { return links[depth - 1]; }
};

// The entry with `key`, or null; `place` is then where one belongs.
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_find_place(
    image___version_info___root___system_types_t** top, const char* key,
    sglib_image___version_info___root___system_types_t_place* place);

// Adds `entry` at the place that was just found for its key.
void sglib_image___version_info___root___system_types_t_add_at(
    sglib_image___version_info___root___system_types_t_place* place,
    image___version_info___root___system_types_t* entry);

// Adds `entry`, whatever its links hold; its key may already be in the set.
void sglib_image___version_info___root___system_types_t_add(
    image___version_info___root___system_types_t** top,
    image___version_info___root___system_types_t* entry);

// Removes this very entry. One that is not in the set changes nothing.
void sglib_image___version_info___root___system_types_t_delete(
    image___version_info___root___system_types_t** top,
    image___version_info___root___system_types_t* entry);

// Adds `entry` unless its key is in the set: 1 and a null `*existing`, or 0 and the entry found.
int sglib_image___version_info___root___system_types_t_add_if_not_member(
    image___version_info___root___system_types_t** top,
    image___version_info___root___system_types_t* entry,
    image___version_info___root___system_types_t** existing);

// Removes the entry with the key of `probe`: 1 and the entry in `*removed`, or 0 and null.
int sglib_image___version_info___root___system_types_t_delete_if_member(
    image___version_info___root___system_types_t** top,
    const image___version_info___root___system_types_t* probe,
    image___version_info___root___system_types_t** removed);

// The entry with the key of `probe`, or null. Of a probe only the key is read.
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_find_member(
    image___version_info___root___system_types_t* top,
    const image___version_info___root___system_types_t* probe);

// 1 when this very entry is in the set, else 0.
int sglib_image___version_info___root___system_types_t_is_member(
    image___version_info___root___system_types_t* top,
    const image___version_info___root___system_types_t* entry);

// The number of entries, counted by a walk.
int sglib_image___version_info___root___system_types_t_len(
    image___version_info___root___system_types_t* top);

// Start a walk over all entries and return the first, null when there is none. In-order is
// ascending key order; the plain `_it_init` is post-order, children before their parent.
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_it_init(
    sglib_image___version_info___root___system_types_t_iterator* iterator,
    image___version_info___root___system_types_t* top);
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_it_init_preorder(
    sglib_image___version_info___root___system_types_t_iterator* iterator,
    image___version_info___root___system_types_t* top);
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_it_init_inorder(
    sglib_image___version_info___root___system_types_t_iterator* iterator,
    image___version_info___root___system_types_t* top);
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_it_init_postorder(
    sglib_image___version_info___root___system_types_t_iterator* iterator,
    image___version_info___root___system_types_t* top);

// Starts an in-order walk over the entries equal to `probe`. The comparator gets the probe first
// and must agree with the key order, though it may be coarser (equal on a prefix, say); a null one
// stands for the key order itself. A null probe equals every entry.
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_it_init_on_equal(
    sglib_image___version_info___root___system_types_t_iterator* iterator,
    image___version_info___root___system_types_t* top,
    sglib_image___version_info___root___system_types_t_comparator comparator,
    const image___version_info___root___system_types_t* probe);

// The entry that the walk stands at; the one after it, moving on. Null at the end.
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_it_current(
    const sglib_image___version_info___root___system_types_t_iterator* iterator);
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_it_next(
    sglib_image___version_info___root___system_types_t_iterator* iterator);
