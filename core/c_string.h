// Plain C strings: comparing, copying and ordering.
//
// No argument may be null. A failed allocation prints an error and ends the process.
#pragma once

// Returns true if the two strings have the same bytes.
bool equal(const char* a, const char* b);

// Stores a malloc'ed copy of `source` in `*target` and returns it. The caller owns the copy. Does
// not free what `*target` pointed to before.
char* copy_string(char** target, const char* source);

// Orders C strings as strcmp does, for sorted containers.
struct ByteArrayComparator {
  // Returns true if `a` comes before `b`.
  bool operator()(const char* a, const char* b) const;
};
