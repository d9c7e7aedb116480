// Plain C strings: comparing, copying and ordering.
//
// No function here takes a null string. A failed allocation ends the process (see
// core/allocation.h).
#pragma once

// True when the two strings are the same, byte for byte.
bool equal(const char* a, const char* b);

// Stores a malloc'ed copy of `source` in `*target` and returns it. The caller owns the copy. What
// `*target` pointed at before is not freed.
char* copy_string(char** target, const char* source);

// Orders C strings by plain byte value, a shorter prefix first; for sorted containers.
struct ByteArrayComparator {
  // True when `a` comes before `b`.
  bool operator()(const char* a, const char* b) const;
};
