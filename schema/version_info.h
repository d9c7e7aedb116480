// The version info document in memory: one platform version and the system types, ordered by name,
// each with its version.
//
// All records and texts of a document live in the page allocator made for it and are never freed
// one by one. Texts end with a NUL; lengths are bytes and do not count it. A failed allocation ends
// the process, and so does a length that no memory can hold.
//
// A setter that fails reports through the document's root: it calls `error_hook`, if any, with the
// message, stores the message in `error` and returns -1 or null. Nothing throws or jumps, nor may
// the hook: a jump out of it passes over destructors of the reader, which leaks and is undefined.
// Jump when the setter or the reader has returned.
#pragma once

#include <csetjmp>
#include <cstddef>
#include <cstdint>

#include "core/dympage.h"
#include "schema/version_info_set.h"

struct image___version_info___root_t {
  image___version_info___root_t* root;      // this record
  void (*error_hook)(const char* message);  // may be null; must return
  jmp_buf recovery;                         // where the caller may jump to when reading fails
  const char* error;                        // the last failure, a static text; null: none
  uint8_t platform_version_set;             // 1: assigned
  char* platform_version;
  uint64_t platform_version_len;
  image___version_info___root___system_types_t* system_types;  // top of the tree, null when empty
  uint64_t system_types_count;
};

struct image___version_info___root___system_types_t {
  char* key;
  image___version_info___root_t* root;
  image___version_info___root___system_types_t* left;
  image___version_info___root___system_types_t* right;
  uint8_t colour;       // 0 black, 1 red
  uint8_t version_set;  // 1: assigned
  char* version;
  uint64_t version_len;
};

// The allocator of one document; destroying it ends the document.
dympage_t* image___version_info___create_allocator_f();
void image___version_info___destroy_allocator_f(dympage_t* allocator);

// A zero-filled block at a multiple of `alignment`.
void* image___version_info___allocate_block_f(dympage_t* allocator, uint64_t size,
                                              uint64_t alignment);

// A zero-filled block of `length` + 1 bytes with a copy of `text`, which is cut at its first NUL
// and at `length` bytes.
char* image___version_info___allocate_text_f(dympage_t* allocator, const char* text,
                                             uint64_t length);

// Does nothing.
void image___version_info___allocator_warn_sup_f();

// An empty document.
image___version_info___root_t* image___version_info___root_t___allocate_f(dympage_t* allocator);

// A new entry in the collection, with a copy of `key`. Does not look for a duplicate.
image___version_info___root___system_types_t*
image___version_info___root___system_types_t___allocate_f(dympage_t* allocator,
                                                          image___version_info___root_t* root,
                                                          const char* key, uint64_t key_length);

// To be called once after a successful read. Visits every entry in key order and changes nothing.
void image___version_info___finalize_f(image___version_info___root_t* root);

// Assign a text, once: `_set` a copy of `text` (0, or -1 when it is assigned already), `_alloc` a
// zero-filled text of `length` bytes for the caller to fill (null when it is assigned already).
int image___version_info___root_t___platform_version___iwrite_set(
    dympage_t* allocator, image___version_info___root_t* root, const char* text);
char* image___version_info___root_t___platform_version___iwrite_alloc(
    dympage_t* allocator, image___version_info___root_t* root, uint64_t length);
int image___version_info___root___system_types_t___version___iwrite_set(
    dympage_t* allocator, image___version_info___root___system_types_t* entry, const char* text);
char* image___version_info___root___system_types_t___version___iwrite_alloc(
    dympage_t* allocator, image___version_info___root___system_types_t* entry, uint64_t length);

// A new entry with a copy of `key`; null when the key is in the collection already.
image___version_info___root___system_types_t*
image___version_info___root_t___system_types___iwrite_create_entry(
    dympage_t* allocator, image___version_info___root_t* root, const char* key);

// The same for whoever creates many in a row: one `place`, default-made, serves as long as nothing
// else changes the collection; after that, take a fresh one.
image___version_info___root___system_types_t*
image___version_info___root_t___system_types___iwrite_create_entry_at(
    dympage_t* allocator, image___version_info___root_t* root,
    sglib_image___version_info___root___system_types_t_place* place, const char* key);

// Removes the entry with `key`, which must be in the collection; see unlink_f.
void image___version_info___root_t___system_types___iwrite_unlink_entry(
    dympage_t* allocator, image___version_info___root_t* root, const char* key);

// The entry with `key`, or null.
image___version_info___root___system_types_t* image___version_info___root___system_types_t___find_f(
    image___version_info___root_t* root, const char* key);
const image___version_info___root___system_types_t*
image___version_info___root___system_types_t___find_cf(const image___version_info___root_t* root,
                                                       const char* key);

// Removes the entry with `key`, if there is one, and counts one entry less in every case: unlink
// only keys that are present.
void image___version_info___root___system_types_t___unlink_f(image___version_info___root_t* root,
                                                             const char* key);

// In ascending key order, the first entry below `top` (a document's `system_types`) and each next
// one; null at the end. The caller holds the iterator, which needs no release.
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
