// Internal: descriptors 0 to 2, which a program may have been started without.
#pragma once

namespace runenv {

// Opens /dev/null on each of descriptors 0, 1 and 2 that is closed, so that no file opened later
// gets its number and is written to as standard output or error. Reading and writing there fail as
// they would on the closed descriptor. A program calls it before it does anything else.
void open_standard_descriptors();

}  // namespace runenv
