// The "latest" pointer of an item: a small file whose first line names a release.
#pragma once

// The first line of the file at `path`, up to a NUL, line feed or carriage return: a malloc'ed C
// string that the caller owns. Throws Error when the file cannot be opened or not be read to its
// end.
char* read_pointer_line(const char* path);
