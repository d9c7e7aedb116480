// The binary form of a version info document.
//
// An integer is unsigned and has 32 bits, most significant byte first. A text is an integer, its
// length, and that many bytes without a terminator.
//
//   fingerprint   64 ASCII characters
//   text          platform version
//   integer       number of system types, in any order
//   text, text    name and version of each
//
// A name is a C string: it ends at its first NUL. A version may hold any bytes.
//
// Each function returns 0 on success. It returns -1 on failure, with a static message in the root's
// `error`.
#pragma once

#include "schema/version_info.h"
#include "stream/istream.h"

class Buffer;

// Reads one whole document into `root`, an empty document of `allocator`. Further data in the
// stream is a failure. What was read before a failure stays in the document.
//
// Lengths are trusted: the memory for a text is reserved before its bytes are read. Reserving
// touches at most one page of the allocator, 10 MiB. The rest is touched as bytes arrive.
int image___version_info___parse_bin_f(dympage_t* allocator, image___version_info___root_t* root,
                                       istream* stream);

// The same for a stream in which other data follows. That data is left unread.
int image___version_info___parse_bin_tail_f(dympage_t* allocator,
                                            image___version_info___root_t* root, istream* stream);

// Appends the whole document to `target`, the system types in key order. A text that was never
// assigned is written as an empty one. A text or a number of system types that does not fit 32 bits
// is a failure; then nothing is appended.
int image___version_info___write_bin_f(image___version_info___root_t* root, Buffer* target);
