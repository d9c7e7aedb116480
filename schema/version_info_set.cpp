#include "schema/version_info_set.h"

#include <cstring>
#include <utility>

#include "schema/version_info.h"

using entry_t = image___version_info___root___system_types_t;
using iterator_t = sglib_image___version_info___root___system_types_t_iterator;
using comparator_t = sglib_image___version_info___root___system_types_t_comparator;

static constexpr uint8_t kBlack = 0;
static constexpr uint8_t kRed = 1;

namespace {

enum Order : uint32_t { kPreorder, kInorder, kPostorder };

// The path from the root of the tree to an entry, or to the empty place for one. It consists of
// links: pointers to the pointers that lead down. The first link is the set's root pointer, the
// others are child fields. The parent of an entry is found without a search, and the root needs no
// special case.
struct Path {
  entry_t** links[iterator_t::kMaxDepth];
  unsigned depth = 0;

  entry_t** push(entry_t** link) { return links[depth++] = link; }
  entry_t** pop() { return links[--depth]; }
  entry_t** last() const { return links[depth - 1]; }
};

}  // namespace

static entry_t*& child(entry_t* entry, bool right) {
  return right ? entry->right : entry->left;
}

static bool is_red(const entry_t* entry) {
  return entry != nullptr && entry->colour == kRed;
}

static int compare_keys(const entry_t* a, const entry_t* b) {
  return std::strcmp(a->key, b->key);
}

// Rotates the entry at `link` down to the right or left. The child on the other side takes its
// place, and the two exchange their colours.
static void rotate(entry_t** link, bool right) {
  entry_t* const lowered = *link;
  entry_t* const raised = child(lowered, !right);
  child(lowered, !right) = child(raised, right);
  child(raised, right) = lowered;
  std::swap(lowered->colour, raised->colour);
  *link = raised;
}

// Repairs a tree in which the entry at the end of the path and its parent may both be red.
// Recolouring moves the violation up by two levels. It ends at a black parent, at the root or with
// a rotation.
static void repair_red_parent(const Path& path) {
  for (unsigned i = path.depth - 1; i >= 2; i -= 2) {
    entry_t** const parent_link = path.links[i - 1];
    entry_t** const grandparent_link = path.links[i - 2];
    entry_t* const parent = *parent_link;
    entry_t* const grandparent = *grandparent_link;
    if (!is_red(parent)) {
      return;
    }
    const bool right = parent == grandparent->right;
    entry_t* const uncle = child(grandparent, !right);
    if (!is_red(uncle)) {
      if (*path.links[i] == child(parent, !right)) {
        rotate(parent_link, right);  // moves an inner grandchild to the outer side
      }
      rotate(grandparent_link, !right);
      return;
    }
    parent->colour = kBlack;
    uncle->colour = kBlack;
    grandparent->colour = kRed;
  }
}

// Repairs a tree in which every path through the end of `path` has one black entry too few. The
// violation moves up until a red entry becomes black or a rotation repairs it. At the root there is
// no violation any more, because then all paths have lost one black entry.
static void repair_missing_black(Path* path) {
  while (path->depth >= 2) {
    entry_t** const place = path->pop();
    entry_t** link = path->last();
    entry_t* const parent = *link;
    const bool right = place == &parent->right;
    entry_t** const sibling = &child(parent, !right);
    if (is_red(*sibling)) {
      entry_t* const raised = *sibling;
      rotate(link, right);  // the parent becomes red, and the new sibling is black
      link = &child(raised, right);
    }
    // There is always a sibling, because its side has at least one more black entry.
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): the analyzer cannot know that
    if (!is_red((*sibling)->left) && !is_red((*sibling)->right)) {
      (*sibling)->colour = kRed;
      if (is_red(parent)) {
        parent->colour = kBlack;
        return;
      }
      continue;
    }
    if (!is_red(child(*sibling, !right))) {
      rotate(sibling, !right);  // moves a red inner nephew to the outer side
    }
    child(*sibling, !right)->colour = kBlack;
    rotate(link, right);
    return;
  }
}

// Puts `entry` into the empty place at the end of the path.
static void insert_at(const Path& path, entry_t* entry) {
  entry->left = nullptr;
  entry->right = nullptr;
  entry->colour = kRed;
  *path.last() = entry;
  repair_red_parent(path);
  (*path.links[0])->colour = kBlack;
}

// Exchanges the entry at the end of the path, which has two children, with its successor, and
// extends the path to the new place of the entry. The entry then has at most one child.
static void sink_to_successor(Path* path) {
  entry_t** const link = path->last();
  entry_t* const entry = *link;
  const unsigned below = path->depth;
  path->push(&entry->right);
  while ((*path->last())->left != nullptr) {
    path->push(&(*path->last())->left);
  }
  entry_t* const successor = *path->last();
  *link = successor;
  *path->last() = entry;
  std::swap(entry->left, successor->left);
  std::swap(entry->right, successor->right);
  std::swap(entry->colour, successor->colour);
  path->links[below] = &successor->right;
}

// Removes the entry at the end of the path from the tree.
static void remove_at(Path* path) {
  entry_t* const entry = *path->last();
  if (entry->left != nullptr && entry->right != nullptr) {
    sink_to_successor(path);
  }
  entry_t* const heir = entry->left != nullptr ? entry->left : entry->right;
  *path->last() = heir;
  if (is_red(heir)) {
    heir->colour = kBlack;
  } else if (!is_red(entry)) {
    repair_missing_black(path);
  }
}

// Extends the path to an entry with the key and returns the entry. If there is none, extends the
// path to the empty place for one and returns null.
//
// Steps to the right have their own loop. With one loop for both sides, the compiler uses a
// conditional move, and the search takes up to twice as long.
static entry_t* descend_to_key(Path* path, entry_t** top, const char* key) {
  entry_t** link = path->push(top);
  for (;;) {
    int side = 0;
    while (*link != nullptr && (side = std::strcmp(key, (*link)->key)) > 0) {
      link = path->push(&(*link)->right);
    }
    if (*link == nullptr || side == 0) {
      return *link;
    }
    link = path->push(&(*link)->left);
  }
}

// Extends the path to `entry` itself and returns true. Returns false if it is not below `link`.
static bool descend_to_entry(Path* path, entry_t** link, const entry_t* entry) {
  while (*path->push(link) != nullptr) {
    if (*link == entry) {
      return true;
    }
    const int side = compare_keys(entry, *link);
    if (side == 0) {
      // Rotations can move entries with equal keys to either side.
      const unsigned depth = path->depth;
      if (descend_to_entry(path, &(*link)->left, entry)) {
        return true;
      }
      path->depth = depth;
    }
    link = &child(*link, side >= 0);
  }
  return false;
}

void sglib_image___version_info___root___system_types_t_add(entry_t** top, entry_t* entry) {
  Path path;
  for (entry_t** link = path.push(top); *link != nullptr;) {
    link = path.push(&child(*link, compare_keys(entry, *link) >= 0));
  }
  insert_at(path, entry);
}

void sglib_image___version_info___root___system_types_t_delete(entry_t** top, entry_t* entry) {
  Path path;
  if (descend_to_entry(&path, top, entry)) {
    remove_at(&path);
  }
}

int sglib_image___version_info___root___system_types_t_add_if_not_member(entry_t** top,
                                                                         entry_t* entry,
                                                                         entry_t** existing) {
  Path path;
  *existing = descend_to_key(&path, top, entry->key);
  if (*existing != nullptr) {
    return 0;
  }
  insert_at(path, entry);
  return 1;
}

int sglib_image___version_info___root___system_types_t_delete_if_member(entry_t** top,
                                                                        const entry_t* probe,
                                                                        entry_t** removed) {
  Path path;
  *removed = descend_to_key(&path, top, probe->key);
  if (*removed == nullptr) {
    return 0;
  }
  remove_at(&path);
  return 1;
}

entry_t* sglib_image___version_info___root___system_types_t_find_member(entry_t* top,
                                                                        const entry_t* probe) {
  while (top != nullptr) {
    const int side = compare_keys(probe, top);
    if (side == 0) {
      break;
    }
    top = child(top, side > 0);
  }
  return top;
}

int sglib_image___version_info___root___system_types_t_is_member(entry_t* top,
                                                                 const entry_t* entry) {
  Path path;
  return descend_to_entry(&path, &top, entry) ? 1 : 0;
}

int sglib_image___version_info___root___system_types_t_len(entry_t* top) {
  int length = 0;
  iterator_t iterator;
  for (const entry_t* entry =
           sglib_image___version_info___root___system_types_t_it_init(&iterator, top);
       entry != nullptr;
       entry = sglib_image___version_info___root___system_types_t_it_next(&iterator)) {
    ++length;
  }
  return length;
}

static void push(iterator_t* iterator, entry_t* entry) {
  if (entry != nullptr) {
    iterator->path[iterator->depth] = entry;
    iterator->pass[iterator->depth] = 0;
    ++iterator->depth;
  }
}

static entry_t* start(iterator_t* iterator, entry_t* top, Order order,
                      comparator_t comparator = nullptr, const entry_t* probe = nullptr) {
  iterator->depth = 0;
  iterator->order = order;
  iterator->probe = probe;
  iterator->comparator = comparator == nullptr ? compare_keys : comparator;
  push(iterator, top);
  return sglib_image___version_info___root___system_types_t_it_next(iterator);
}

entry_t* sglib_image___version_info___root___system_types_t_it_init(iterator_t* iterator,
                                                                    entry_t* top) {
  return start(iterator, top, kPostorder);
}

entry_t* sglib_image___version_info___root___system_types_t_it_init_preorder(iterator_t* iterator,
                                                                             entry_t* top) {
  return start(iterator, top, kPreorder);
}

entry_t* sglib_image___version_info___root___system_types_t_it_init_inorder(iterator_t* iterator,
                                                                            entry_t* top) {
  return start(iterator, top, kInorder);
}

entry_t* sglib_image___version_info___root___system_types_t_it_init_postorder(iterator_t* iterator,
                                                                              entry_t* top) {
  return start(iterator, top, kPostorder);
}

entry_t* sglib_image___version_info___root___system_types_t_it_init_on_equal(
    iterator_t* iterator, entry_t* top, comparator_t comparator, const entry_t* probe) {
  return start(iterator, top, kInorder, comparator, probe);
}

entry_t* sglib_image___version_info___root___system_types_t_it_current(const iterator_t* iterator) {
  return iterator->current;
}

// The iteration visits every entry three times: before its left subtree, between its subtrees, and
// after its right subtree. It returns the entry at the visit whose number is the order.
entry_t* sglib_image___version_info___root___system_types_t_it_next(iterator_t* iterator) {
  while (iterator->depth != 0) {
    entry_t* const entry = iterator->path[iterator->depth - 1];
    const int side = iterator->probe == nullptr ? 0 : iterator->comparator(iterator->probe, entry);
    const uint8_t pass = iterator->pass[iterator->depth - 1]++;
    if (pass == 0 && side <= 0) {
      push(iterator, entry->left);
    } else if (pass == 1 && side >= 0) {
      push(iterator, entry->right);
    } else if (pass == 2) {
      --iterator->depth;
    }
    if (pass == iterator->order && side == 0) {
      return iterator->current = entry;
    }
  }
  return iterator->current = nullptr;
}
