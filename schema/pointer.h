// The "latest" pointer of an item: a small file whose first line names a release.
#pragma once

// Returns the first line of the file at `path` as a malloc'ed C string that the caller owns. The
// line ends at a NUL, a line feed, a carriage return or the end of the file. Throws Error if the
// file cannot be opened or cannot be read to its end.
char* read_pointer_line(const char* path);
