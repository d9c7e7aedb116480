// The system types of a version info document as an ordered set: a red-black tree of the entries
// themselves, in strcmp order of their keys.
//
// A set is a pointer to its top entry, null for an empty set. The set owns no entry and allocates
// nothing. No function here fails. The plain `_add` accepts a key that the set already holds: the
// new entry comes after the others with that key.
//
// schema/version_info.h explains how the names are made.
#pragma once

#include <cstdint>

struct image___version_info___root___system_types_t;

// Returns a number below, at or above 0, as strcmp does.
using sglib_image___version_info___root___system_types_t_comparator =
    int (*)(const image___version_info___root___system_types_t*,
            const image___version_info___root___system_types_t*);

// One walk over a set. The same record can serve one walk after another; it needs no release. The
// set must not change during a walk. One exception: a post-order walk never looks again at an entry
// that it has returned, so the caller may free that entry.
struct sglib_image___version_info___root___system_types_t_iterator {
  static constexpr unsigned kMaxDepth = 128;              // no red-black tree in memory is higher
  image___version_info___root___system_types_t* current;  // null at the end
  image___version_info___root___system_types_t* path[kMaxDepth];  // from the top downwards
  uint8_t pass[kMaxDepth];  // for each entry on the path: how often the walk has visited it
  uint32_t depth;           // number of entries on the path
  uint32_t order;           // 0 pre-order, 1 in-order, 2 post-order
  const image___version_info___root___system_types_t* probe;  // null: all entries are equal to it
  sglib_image___version_info___root___system_types_t_comparator comparator;  // by which they are
};

// Adds `entry`, whatever its child pointers hold. The set may already hold its key.
void sglib_image___version_info___root___system_types_t_add(
    image___version_info___root___system_types_t** top,
    image___version_info___root___system_types_t* entry);

// Removes `entry` itself, not another one with its key. Changes nothing when it is not in the set.
void sglib_image___version_info___root___system_types_t_delete(
    image___version_info___root___system_types_t** top,
    image___version_info___root___system_types_t* entry);

// Adds `entry`, stores null in `*existing` and returns 1. When the set already holds its key, adds
// nothing, stores the entry with that key in `*existing` and returns 0.
int sglib_image___version_info___root___system_types_t_add_if_not_member(
    image___version_info___root___system_types_t** top,
    image___version_info___root___system_types_t* entry,
    image___version_info___root___system_types_t** existing);

// Removes an entry with the key of `probe`, stores it in `*removed` and returns 1. When there is
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

// Returns 1 when `entry` itself is in the set, 0 otherwise, also for another entry with its key.
int sglib_image___version_info___root___system_types_t_is_member(
    image___version_info___root___system_types_t* top,
    const image___version_info___root___system_types_t* entry);

// Returns the number of entries, which it counts in a walk.
int sglib_image___version_info___root___system_types_t_len(
    image___version_info___root___system_types_t* top);

// Each of these four starts a walk over all entries and returns the first one, or null for an empty
// set. In-order is ascending key order. Post-order visits children before their parent; it is the
// order of the plain `_it_init` too.
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

// Starts an in-order walk over the entries that are equal to `probe` and returns the first one, or
// null. The comparator gets the probe as its first argument. It must agree with the key order, but
// may treat different keys as equal, for example those with the same first byte. A null comparator
// compares the keys. A null probe is equal to every entry.
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_it_init_on_equal(
    sglib_image___version_info___root___system_types_t_iterator* iterator,
    image___version_info___root___system_types_t* top,
    sglib_image___version_info___root___system_types_t_comparator comparator,
    const image___version_info___root___system_types_t* probe);

// Returns the entry that the walk stands at, or null at the end.
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_it_current(
    const sglib_image___version_info___root___system_types_t_iterator* iterator);

// Moves on to the next entry and returns it, or null at the end.
image___version_info___root___system_types_t*
sglib_image___version_info___root___system_types_t_it_next(
    sglib_image___version_info___root___system_types_t_iterator* iterator);
