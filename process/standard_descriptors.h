// Internal: opening descriptors 0 to 2 if the program was started without them.
#pragma once

namespace runenv {

// Opens /dev/null on each closed descriptor of 0, 1 and 2. Otherwise a file opened later could get
// that number and receive the program's output. Reading standard input and writing standard output
// and error still fail, as on a closed descriptor. Call it first in main.
void open_standard_descriptors();

}  // namespace runenv
