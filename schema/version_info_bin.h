// The binary form of a version info document.
//
// An integer is a 32-bit unsigned big-endian number. A text is an integer, its length, followed by
// that many bytes without a terminator.
//
//   fingerprint   64 ASCII characters
//   text          platform version
//   integer       number of system types, in any order
//   text, text    name and version of each
//
// A name ends at its first NUL. A version may contain any bytes.
//
// Each function returns 0 on success. On failure it stores a static message in the root's `error`
// and returns -1.
#pragma once

#include "schema/version_info.h"
#include "stream/istream.h"

class Buffer;

// Reads one whole document into `root`, an empty document of `allocator`. Fails if more data
// follows. After a failure the document keeps what was read before.
//
// Lengths are trusted: memory for a text is allocated before its bytes are read. This touches at
// most one page of the allocator, 10 MiB. The rest is touched as bytes arrive.
int image___version_info___parse_bin_f(dympage_t* allocator, image___version_info___root_t* root,
                                       istream* stream);

// The same for a stream in which other data follows. Leaves that data unread.
int image___version_info___parse_bin_tail_f(dympage_t* allocator,
                                            image___version_info___root_t* root, istream* stream);

// Appends the whole document to `target`, with the system types in key order. Writes an unassigned
// text as an empty one. Fails and appends nothing if the length of a text or the number of system
// types does not fit in 32 bits.
int image___version_info___write_bin_f(image___version_info___root_t* root, Buffer* target);
