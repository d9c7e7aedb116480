// The version info document in memory: the platform version, and the system types with their
// versions, ordered by name.
//
// The names have the form of generated code. `___` separates their parts:
//
//   image___              the prefix of all such names
//   version_info___       the schema: this document
//   root_t___             the record that the function takes: the document's root
//   system_types___       a property of that record
//   iwrite_create_entry   the operation; `iwrite_` modifies the document
//
// `image___version_info___root___system_types_t` is a type (`_t`): an entry of the root's property
// `system_types`. The suffix `___find_f` names a function (`_f`) for such entries, `___find_cf` its
// const variant. The prefix `sglib_` and the suffix `_add` name the operation `add` of the ordered
// set of such entries, see schema/version_info_set.h.
//
// All records and texts of a document are allocated from its own page allocator and cannot be freed
// one by one. Texts are NUL-terminated. Lengths are in bytes, without the NUL. A failed allocation
// and a length that no memory can hold end the process.
//
// A setter that fails calls the root's `error_hook`, if any, with a message, stores the message in
// the root's `error` and returns -1 or null. No function throws or calls longjmp. The hook must not
// do so either, because it would skip destructors of the reader. Call longjmp on `recovery` after
// the setter or the reader has returned.
#pragma once

#include <csetjmp>
#include <cstddef>
#include <cstdint>

#include "core/dympage.h"
#include "schema/version_info_set.h"

// A document.
struct image___version_info___root_t {
  image___version_info___root_t* root;      // this record
  void (*error_hook)(const char* message);  // may be null; must return
  jmp_buf recovery;                         // for the caller, to longjmp to after a failure
  const char* error;                        // the last failure, a static string; null if none
  uint8_t platform_version_set;             // 1 if assigned
  char* platform_version;                   // null unless assigned
  uint64_t platform_version_len;            // in bytes
  image___version_info___root___system_types_t* system_types;  // root of the tree, null if empty
  uint64_t system_types_count;                                 // number of entries
};

// A system type, an entry of the document's collection.
struct image___version_info___root___system_types_t {
  char* key;                                            // its name
  image___version_info___root_t* root;                  // the document
  image___version_info___root___system_types_t* left;   // subtree of earlier entries, or null
  image___version_info___root___system_types_t* right;  // subtree of later entries, or null
  uint8_t colour;                                       // 0 black, 1 red
  uint8_t version_set;                                  // 1 if assigned
  char* version;                                        // null unless assigned
  uint64_t version_len;                                 // in bytes
};

// Create and destroy the allocator of one document. Destroying it frees the document.
dympage_t* image___version_info___create_allocator_f();
void image___version_info___destroy_allocator_f(dympage_t* allocator);

// Returns a zero-filled block, aligned to `alignment`, which must be a power of two.
void* image___version_info___allocate_block_f(dympage_t* allocator, uint64_t size,
                                              uint64_t alignment);

// Returns a zero-filled block of `length` + 1 bytes that begins with a copy of `text`. Copies up to
// the first NUL, at most `length` bytes.
char* image___version_info___allocate_text_f(dympage_t* allocator, const char* text,
                                             uint64_t length);

// Does nothing.
void image___version_info___allocator_warn_sup_f();

// Returns an empty document.
image___version_info___root_t* image___version_info___root_t___allocate_f(dympage_t* allocator);

// Adds a new entry with a copy of `key` to the collection and returns it. Does not look for a
// duplicate.
image___version_info___root___system_types_t*
image___version_info___root___system_types_t___allocate_f(dympage_t* allocator,
                                                          image___version_info___root_t* root,
                                                          const char* key, uint64_t key_length);

// Visits every entry in key order and modifies nothing. Call it once after a successful read.
void image___version_info___finalize_f(image___version_info___root_t* root);

// Assign a property, which is possible only once. `_set` assigns a copy of `text` and returns 0, or
// -1 if the property is already assigned. `_alloc` assigns a zero-filled text of `length` bytes and
// returns it for the caller to fill, or returns null if the property is already assigned.
int image___version_info___root_t___platform_version___iwrite_set(
    dympage_t* allocator, image___version_info___root_t* root, const char* text);
char* image___version_info___root_t___platform_version___iwrite_alloc(
    dympage_t* allocator, image___version_info___root_t* root, uint64_t length);
int image___version_info___root___system_types_t___version___iwrite_set(
    dympage_t* allocator, image___version_info___root___system_types_t* entry, const char* text);
char* image___version_info___root___system_types_t___version___iwrite_alloc(
    dympage_t* allocator, image___version_info___root___system_types_t* entry, uint64_t length);

// Adds a new entry with a copy of `key` and returns it. Returns null if the collection already
// holds the key.
image___version_info___root___system_types_t*
image___version_info___root_t___system_types___iwrite_create_entry(
    dympage_t* allocator, image___version_info___root_t* root, const char* key);

// Removes the entry with `key`, which must exist, see `unlink_f`.
void image___version_info___root_t___system_types___iwrite_unlink_entry(
    dympage_t* allocator, image___version_info___root_t* root, const char* key);

// Returns the entry with `key`, or null.
image___version_info___root___system_types_t* image___version_info___root___system_types_t___find_f(
    image___version_info___root_t* root, const char* key);
const image___version_info___root___system_types_t*
image___version_info___root___system_types_t___find_cf(const image___version_info___root_t* root,
                                                       const char* key);

// Removes the entry with `key`, if there is one. Always decrements `system_types_count`, so unlink
// only keys that are present.
void image___version_info___root___system_types_t___unlink_f(image___version_info___root_t* root,
                                                             const char* key);

// Iteration in ascending key order. `_init` takes `top`, the `system_types` of a document, and
// returns the first entry. `_next` returns the next entry. Both return null at the end. The caller
// owns the iterator, which needs no release; `it_bsize` is its size in bytes. The functions with
// `cit` return const entries.
using image___version_info___root___system_types_t___iterator_t =
    sglib_image___version_info___root___system_types_t_iterator;
inline constexpr size_t image___version_info___root___system_types_t___it_bsize =
    sizeof(image___version_info___root___system_types_t___iterator_t);
image___version_info___root___system_types_t*
image___version_info___root___system_types_t___it_init(
    image___version_info___root___system_types_t* top,
    image___version_info___root___system_types_t___iterator_t* iterator);
image___version_info___root___system_types_t*
image___version_info___root___system_types_t___it_next(
    image___version_info___root___system_types_t___iterator_t* iterator);
const image___version_info___root___system_types_t*
image___version_info___root___system_types_t___cit_init(
    const image___version_info___root___system_types_t* top,
    image___version_info___root___system_types_t___iterator_t* iterator);
const image___version_info___root___system_types_t*
image___version_info___root___system_types_t___cit_next(
    image___version_info___root___system_types_t___iterator_t* iterator);
