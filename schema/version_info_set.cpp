#include "schema/version_info_set.h"

#include <cstring>
#include <utility>

#include "schema/version_info.h"

using entry_t = image___version_info___root___system_types_t;
using iterator_t = sglib_image___version_info___root___system_types_t_iterator;
using Path = sglib_image___version_info___root___system_types_t_place;
using comparator_t = sglib_image___version_info___root___system_types_t_comparator;

static constexpr uint8_t kBlack = 0;
static constexpr uint8_t kRed = 1;

enum Order : uint32_t { kPreorder, kInorder, kPostorder };

static entry_t*& child(entry_t* entry, bool right) {
  return right ? entry->right : entry->left;
}

static bool is_red(const entry_t* entry) {
  return entry != nullptr && entry->colour == kRed;
}

static int compare_keys(const entry_t* a, const entry_t* b) {
  return std::strcmp(a->key, b->key);
}

// Lowers the entry at `link` to its left or right; the child opposite takes its place and its
// colour, and gives it its own.
static void rotate(entry_t** link, bool right) {
  entry_t* const lowered = *link;
  entry_t* const raised = child(lowered, !right);
  child(lowered, !right) = child(raised, right);
  child(raised, right) = lowered;
  std::swap(lowered->colour, raised->colour);
  *link = raised;
}

// The path ends at a red entry whose parent may be red as well, the only fault in the tree. The
// fault moves up two levels at a time until it meets a black parent, the top or a rotation; of the
// path, what holds afterwards is left.
static void repair_red_parent(Path* path) {
  for (unsigned i = path->depth - 1; i >= 2; i -= 2) {
    entry_t** const parent_link = path->links[i - 1];
    entry_t** const grandparent_link = path->links[i - 2];
    entry_t* const parent = *parent_link;
    entry_t* const grandparent = *grandparent_link;
    if (!is_red(parent)) {
      return;
    }
    const bool right = parent == grandparent->right;
    entry_t* const uncle = child(grandparent, !right);
    if (!is_red(uncle)) {
      if (*path->links[i] == child(parent, !right)) {
        rotate(parent_link, right);  // an inner grandchild comes to the outer side first
      }
      rotate(grandparent_link, !right);
      path->depth = i - 1;
      return;
    }
    parent->colour = kBlack;
    uncle->colour = kBlack;
    grandparent->colour = kRed;
  }
}

// The path ends at a place below which every way down is one black entry short, the only fault in
// the tree. The fault moves up until a red entry or a rotation makes up for it, or it covers all.
static void repair_missing_black(Path* path) {
  while (path->depth >= 2) {
    entry_t** const place = path->pop();
    entry_t** link = path->last();
    entry_t* const parent = *link;
    const bool right = place == &parent->right;
    entry_t** const sibling = &child(parent, !right);
    if (is_red(*sibling)) {
      entry_t* const raised = *sibling;
      rotate(link, right);  // the parent gets a black sibling of the place, and is red itself
      link = &child(raised, right);
    }
    // A place that is one black entry short always has a sibling.
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
      rotate(sibling, !right);  // a red inner nephew comes to the outer side first
    }
    child(*sibling, !right)->colour = kBlack;
    rotate(link, right);
    return;
  }
}

// Fills the empty place at the end of the path.
static void insert_at(Path* path, entry_t* entry) {
  entry->left = nullptr;
  entry->right = nullptr;
  entry->colour = kRed;
  *path->last() = entry;
  repair_red_parent(path);
  (*path->links[0])->colour = kBlack;
}

// Lets the entry at the end of the path, which has two children, change places with its successor,
// so that it has one child at most; the path follows it down.
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

// Takes the entry at the end of the path out of the tree.
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
  if (*path->links[0] != nullptr) {
    (*path->links[0])->colour = kBlack;
  }
}

// Asks for the record and the start of its key, which the document lays out right behind it. A null
// one does no harm, whereas a branch on it could not be foretold.
static void prefetch(const entry_t* entry) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(entry) + 64;
  __builtin_prefetch(entry);
  // NOLINTNEXTLINE(performance-no-int-to-ptr): a pointer may not be moved from null
  __builtin_prefetch(reinterpret_cast<const void*>(address));
}

// Leads the path to an entry with the key, or to the empty place for one; returns what is there.
static entry_t* descend_to_key(Path* path, entry_t** top, const char* key) {
  path->depth = 0;
  path->at_end = true;
  for (entry_t** link = path->push(top); *link != nullptr;) {
    prefetch((*link)->left);
    prefetch((*link)->right);
    const int side = std::strcmp(key, (*link)->key);
    if (side == 0) {
      break;
    }
    path->at_end &= side > 0;
    link = path->push(&child(*link, side > 0));
  }
  return *path->last();
}

// Leads the path to this very entry and returns true, or false when it is not below `link`.
static bool descend_to_entry(Path* path, entry_t** link, const entry_t* entry) {
  while (*path->push(link) != nullptr) {
    if (*link == entry) {
      return true;
    }
    const int side = compare_keys(entry, *link);
    if (side == 0) {
      // Rotations may have put entries with the same key on either side.
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
  insert_at(&path, entry);
}

void sglib_image___version_info___root___system_types_t_delete(entry_t** top, entry_t* entry) {
  Path path;
  if (descend_to_entry(&path, top, entry)) {
    remove_at(&path);
  }
}

entry_t* sglib_image___version_info___root___system_types_t_find_place(entry_t** top,
                                                                       const char* key,
                                                                       Path* place) {
  if (place->at_end && place->depth >= 2 && *place->last() == nullptr &&
      std::strcmp(key, (*place->links[place->depth - 2])->key) > 0) {
    return nullptr;  // past the greatest entry, where the place still leads
  }
  return descend_to_key(place, top, key);
}

void sglib_image___version_info___root___system_types_t_add_at(Path* place, entry_t* entry) {
  insert_at(place, entry);
  // The links down to the one where a rotation took place still hold; the end is not far below.
  while (place->at_end && *place->last() != nullptr) {
    place->push(&(*place->last())->right);
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
  insert_at(&path, entry);
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

static entry_t* start(iterator_t* iterator, entry_t* top, Order order, comparator_t comparator,
                      const entry_t* probe) {
  iterator->current = nullptr;
  iterator->depth = 0;
  iterator->order = order;
  iterator->probe = probe;
  iterator->comparator = comparator == nullptr ? compare_keys : comparator;
  push(iterator, top);
  return sglib_image___version_info___root___system_types_t_it_next(iterator);
}

entry_t* sglib_image___version_info___root___system_types_t_it_init(iterator_t* iterator,
                                                                    entry_t* top) {
  return start(iterator, top, kPostorder, nullptr, nullptr);
}

entry_t* sglib_image___version_info___root___system_types_t_it_init_preorder(iterator_t* iterator,
                                                                             entry_t* top) {
  return start(iterator, top, kPreorder, nullptr, nullptr);
}

entry_t* sglib_image___version_info___root___system_types_t_it_init_inorder(iterator_t* iterator,
                                                                            entry_t* top) {
  return start(iterator, top, kInorder, nullptr, nullptr);
}

entry_t* sglib_image___version_info___root___system_types_t_it_init_postorder(iterator_t* iterator,
                                                                              entry_t* top) {
  return start(iterator, top, kPostorder, nullptr, nullptr);
}

entry_t* sglib_image___version_info___root___system_types_t_it_init_on_equal(
    iterator_t* iterator, entry_t* top, comparator_t comparator, const entry_t* probe) {
  return start(iterator, top, kInorder, comparator, probe);
}

entry_t* sglib_image___version_info___root___system_types_t_it_current(const iterator_t* iterator) {
  return iterator->current;
}

// The walk comes to every entry three times: before its left children, before its right ones and
// after both. It gives the entry out at the pass that has the number of the order.
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
