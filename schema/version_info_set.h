// The system types of a version info document as an ordered set: an intrusive red-black tree,
// ordered by strcmp of the keys.
//
// A set is a pointer to the root entry of the tree, null for an empty set. The set does not own its
// entries and allocates nothing. No function fails. `_add` accepts a key that the set already
// holds: the new entry comes after the others with that key.
//
// schema/version_info.h explains the names.
#pragma once

#include <cstdint>

struct image___version_info___root___system_types_t;

// Returns a number less than, equal to or greater than 0, as strcmp does.
using sglib_image___version_info___root___system_types_t_comparator =
    int (*)(const image___version_info___root___system_types_t*,
            const image___version_info___root___system_types_t*);

// An iteration over a set. The record can be reused and needs no release. The set must not be
// modified during an iteration, with one exception: the caller may free an entry that a post-order
// iteration has returned, because the iteration does not access it again.
struct sglib_image___version_info___root___system_types_t_iterator {
  static constexpr unsigned kMaxDepth = 128;              // no red-black tree in memory is higher
  image___version_info___root___system_types_t* current;  // null at the end
  image___version_info___root___system_types_t* path[kMaxDepth];  // from the root downwards
  uint8_t pass[kMaxDepth];  // number of visits to each entry of the path
  uint32_t depth;           // number of entries in the path
  uint32_t order;           // 0 pre-order, 1 in-order, 2 post-order
  const image___version_info___root___system_types_t* probe;  // null: visit all entries
  sglib_image___version_info___root___system_types_t_comparator comparator;  // for the probe
};

// Adds `entry`. Its child pointers need not be initialised. The set may already hold its key.
void sglib_image___version_info___root___system_types_t_add(
    image___version_info___root___system_types_t** top,
    image___version_info___root___system_types_t* entry);

// Removes `entry` itself, not another entry with its key. Does nothing if it is not in the set.
void sglib_image___version_info___root___system_types_t_delete(
    image___version_info___root___system_types_t** top,
    image___version_info___root___system_types_t* entry);

// Adds `entry`, stores null in `*existing` and returns 1. If the set already holds its key, adds
// nothing, stores the entry with that key in `*existing` and returns 0.
int sglib_image___version_info___root___system_types_t_add_if_not_member(
    image___version_info___root___system_types_t** top,
    image___version_info___root___system_types_t* entry,
    image___version_info___root___system_types_t** existing);

// Removes an entry with the key of `probe`, stores it in `*removed` and returns 1. If there is
// none, stores null and returns 0.
int sglib_image___version_info___root___system_types_t_delete_if_member(
    image___version_info___root___system_types_t** top,
    const image___version_info___root___system_types_t* probe,
    image___version_info___root___system_types_t** removed);

// Returns an entry with the key of `probe`, or null. Only the key of a probe is read.
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_find_member(
    image___version_info___root___system_types_t* top,
    const image___version_info___root___system_types_t* probe);

// Returns 1 if `entry` itself is in the set, not just another entry with its key, otherwise 0.
int sglib_image___version_info___root___system_types_t_is_member(
    image___version_info___root___system_types_t* top,
    const image___version_info___root___system_types_t* entry);

// Returns the number of entries. Takes linear time.
int sglib_image___version_info___root___system_types_t_len(
    image___version_info___root___system_types_t* top);

// Start an iteration over all entries and return the first one, or null for an empty set. In-order
// is ascending key order. Post-order visits children before their parent. `_it_init` is post-order.
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

// Starts an in-order iteration over the entries that are equal to `probe` and returns the first
// one, or null. The comparator gets the probe as its first argument. It must be consistent with the
// key order, but may treat different keys as equal, for example those with the same first byte. A
// null comparator compares the keys. A null probe is equal to every entry.
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_it_init_on_equal(
    sglib_image___version_info___root___system_types_t_iterator* iterator,
    image___version_info___root___system_types_t* top,
    sglib_image___version_info___root___system_types_t_comparator comparator,
    const image___version_info___root___system_types_t* probe);

// Returns the current entry, or null at the end.
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_it_current(
    const sglib_image___version_info___root___system_types_t_iterator* iterator);

// Moves to the next entry and returns it, or null at the end.
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_it_next(
    sglib_image___version_info___root___system_types_t_iterator* iterator);
