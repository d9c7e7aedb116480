#include "schema/version_info.h"

#include <cstring>

using root_t = image___version_info___root_t;
using entry_t = image___version_info___root___system_types_t;
using iterator_t = image___version_info___root___system_types_t___iterator_t;

static constexpr uint64_t kCopiedTextAlignment = 1;
static constexpr uint64_t kFilledTextAlignment = 8;  // for a text that the caller fills

namespace {

// A text property of a record. It can be assigned once.
struct Property {
  root_t* root;
  uint8_t* set;
  char** text;
  uint64_t* length;
  const char* reassigned;  // the message for a second assignment
};

}  // namespace

dympage_t* image___version_info___create_allocator_f() {
  return dympage_create();
}

void image___version_info___destroy_allocator_f(dympage_t* allocator) {
  dympage_destroy(allocator);
}

void* image___version_info___allocate_block_f(dympage_t* allocator, uint64_t size,
                                              uint64_t alignment) {
  return dympage_alloc(allocator, size, alignment);
}

// Returns a zero-filled block for a text of `length` bytes and its NUL.
static char* allocate_text(dympage_t* allocator, uint64_t length, uint64_t alignment) {
  // For UINT64_MAX the sum would overflow. That size alone cannot be allocated.
  const uint64_t size = length == UINT64_MAX ? length : length + 1;
  return static_cast<char*>(image___version_info___allocate_block_f(allocator, size, alignment));
}

char* image___version_info___allocate_text_f(dympage_t* allocator, const char* text,
                                             uint64_t length) {
  char* const copy = allocate_text(allocator, length, kCopiedTextAlignment);
  std::memcpy(copy, text, strnlen(text, length));
  return copy;
}

void image___version_info___allocator_warn_sup_f() {}

root_t* image___version_info___root_t___allocate_f(dympage_t* allocator) {
  auto* root = static_cast<root_t*>(
      image___version_info___allocate_block_f(allocator, sizeof(root_t), alignof(root_t)));
  root->root = root;
  return root;
}

// Returns an entry that is not in the collection yet.
static entry_t* make_entry(dympage_t* allocator, root_t* root, const char* key,
                           uint64_t key_length) {
  auto* entry = static_cast<entry_t*>(
      image___version_info___allocate_block_f(allocator, sizeof(entry_t), alignof(entry_t)));
  entry->key = image___version_info___allocate_text_f(allocator, key, key_length);
  entry->root = root;
  return entry;
}

entry_t* image___version_info___root___system_types_t___allocate_f(dympage_t* allocator,
                                                                   root_t* root, const char* key,
                                                                   uint64_t key_length) {
  entry_t* const entry = make_entry(allocator, root, key, key_length);
  sglib_image___version_info___root___system_types_t_add(&root->system_types, entry);
  ++root->system_types_count;
  return entry;
}

void image___version_info___finalize_f(root_t* root) {
  iterator_t iterator;
  const entry_t* entry =
      image___version_info___root___system_types_t___it_init(root->system_types, &iterator);
  while (entry != nullptr) {
    entry = image___version_info___root___system_types_t___it_next(&iterator);
  }
}

static void report_failure(root_t* root, const char* message) {
  if (root->error_hook != nullptr) {
    root->error_hook(message);
  }
  root->error = message;
}

static Property platform_version_of(root_t* root) {
  return {.root = root->root,
          .set = &root->platform_version_set,
          .text = &root->platform_version,
          .length = &root->platform_version_len,
          .reassigned = "reassigning property: platform_version"};
}

static Property version_of(entry_t* entry) {
  return {.root = entry->root,
          .set = &entry->version_set,
          .text = &entry->version,
          .length = &entry->version_len,
          .reassigned = "reassigning property: version"};
}

// Marks the property as assigned and returns true. If it is already assigned, reports a failure and
// returns false.
static bool begin_assignment(const Property& property, uint64_t length) {
  if (*property.set != 0) {
    report_failure(property.root, property.reassigned);
    return false;
  }
  *property.set = 1;
  *property.length = length;
  return true;
}

static int set_text(dympage_t* allocator, const Property& property, const char* text) {
  const uint64_t length = std::strlen(text);
  if (!begin_assignment(property, length)) {
    return -1;
  }
  *property.text = image___version_info___allocate_text_f(allocator, text, length);
  return 0;
}

static char* alloc_text(dympage_t* allocator, const Property& property, uint64_t length) {
  if (!begin_assignment(property, length)) {
    return nullptr;
  }
  *property.text = allocate_text(allocator, length, kFilledTextAlignment);
  return *property.text;
}

int image___version_info___root_t___platform_version___iwrite_set(dympage_t* allocator,
                                                                  root_t* root, const char* text) {
  return set_text(allocator, platform_version_of(root), text);
}

char* image___version_info___root_t___platform_version___iwrite_alloc(dympage_t* allocator,
                                                                      root_t* root,
                                                                      uint64_t length) {
  return alloc_text(allocator, platform_version_of(root), length);
}

int image___version_info___root___system_types_t___version___iwrite_set(dympage_t* allocator,
                                                                        entry_t* entry,
                                                                        const char* text) {
  return set_text(allocator, version_of(entry), text);
}

char* image___version_info___root___system_types_t___version___iwrite_alloc(dympage_t* allocator,
                                                                            entry_t* entry,
                                                                            uint64_t length) {
  return alloc_text(allocator, version_of(entry), length);
}

entry_t* image___version_info___root_t___system_types___iwrite_create_entry(dympage_t* allocator,
                                                                            root_t* root,
                                                                            const char* key) {
  // One search finds either a duplicate or the place for the entry. A rejected entry stays unused
  // in its page.
  entry_t* const entry = make_entry(allocator, root, key, std::strlen(key));
  entry_t* existing;
  if (sglib_image___version_info___root___system_types_t_add_if_not_member(&root->system_types,
                                                                           entry, &existing) == 0) {
    report_failure(root->root, "duplicate entry in collection: system_types");
    return nullptr;
  }
  ++root->system_types_count;
  return entry;
}

void image___version_info___root_t___system_types___iwrite_unlink_entry(dympage_t*, root_t* root,
                                                                        const char* key) {
  image___version_info___root___system_types_t___unlink_f(root, key);
}

// Returns a record for searching the set, which only reads its key.
static entry_t probe_for(const char* key) {
  entry_t probe{};
  probe.key = const_cast<char*>(key);
  return probe;
}

entry_t* image___version_info___root___system_types_t___find_f(root_t* root, const char* key) {
  const entry_t probe = probe_for(key);
  return sglib_image___version_info___root___system_types_t_find_member(root->system_types, &probe);
}

const entry_t* image___version_info___root___system_types_t___find_cf(const root_t* root,
                                                                      const char* key) {
  const entry_t probe = probe_for(key);
  return sglib_image___version_info___root___system_types_t_find_member(root->system_types, &probe);
}

void image___version_info___root___system_types_t___unlink_f(root_t* root, const char* key) {
  const entry_t probe = probe_for(key);
  entry_t* removed = nullptr;
  sglib_image___version_info___root___system_types_t_delete_if_member(&root->system_types, &probe,
                                                                      &removed);
  // On purpose the count is decremented for a missing key, too: callers only unlink keys that are
  // present.
  --root->system_types_count;
}

entry_t* image___version_info___root___system_types_t___it_init(entry_t* top,
                                                                iterator_t* iterator) {
  return sglib_image___version_info___root___system_types_t_it_init_inorder(iterator, top);
}

entry_t* image___version_info___root___system_types_t___it_next(iterator_t* iterator) {
  return sglib_image___version_info___root___system_types_t_it_next(iterator);
}

// The iteration itself modifies nothing, so the const variants can use the same functions.
const entry_t* image___version_info___root___system_types_t___cit_init(const entry_t* top,
                                                                       iterator_t* iterator) {
  return image___version_info___root___system_types_t___it_init(const_cast<entry_t*>(top),
                                                                iterator);
}

const entry_t* image___version_info___root___system_types_t___cit_next(iterator_t* iterator) {
  return image___version_info___root___system_types_t___it_next(iterator);
}
