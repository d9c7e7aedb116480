// The binary form of a version info document.
//
// Integers are unsigned, 32 bits, most significant byte first; a text is its length and that many
// bytes, without a terminator:
//
//   fingerprint   64 ASCII characters
//   text          platform version
//   integer       number of system types, in any order
//   text, text    name and version of each
//
// A name is a C string: it ends at its first NUL. A version may hold any bytes.
//
// Each function returns 0, or -1 with a static message in the root's `error`.
#pragma once

#include "schema/version_info.h"
#include "stream/istream.h"

class Buffer;

// Reads one whole document into `root`, an empty document of `allocator`. Further data in the
// stream is a failure. What was read before a failure stays in the document.
//
// Lengths are trusted: memory for a text is reserved before its bytes come; beyond one page of the
// allocator, 10 MiB, it is not touched.
int image___version_info___parse_bin_f(dympage_t* allocator, image___version_info___root_t* root,
                                       istream* stream);

// The same for a stream that goes on with other data, which is left there.
int image___version_info___parse_bin_tail_f(dympage_t* allocator,
                                            image___version_info___root_t* root, istream* stream);

// Appends the whole document to `target`, the system types in key order; a text that was never
// assigned counts as empty. Appends nothing when a text or the number of system types does not fit
// its 32 bits.
int image___version_info___write_bin_f(image___version_info___root_t* root, Buffer* target);
