// The "latest" pointer of an item: a small file whose first line names a release.
#pragma once

// Returns the first line of the file at `path`, up to a NUL, a line feed or a carriage return, as a
// malloc'ed C string that the caller owns. Throws Error when the file cannot be opened or cannot be
// read to its end.
char* read_pointer_line(const char* path);
