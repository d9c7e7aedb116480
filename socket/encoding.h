// Messages out of the bytes of a connection, by one of two encodings.
//
// An encoding is installed on a connection in the listener's factory or right after the client is
// made, as a rule. Installing another one later replaces it and drops what it holds of an
// unfinished message. A message callback may do that too: it runs on to its end, and all that has
// been read and not been given to it goes to the new decoder. A chunked message is over with that:
// its recv_chunk no longer gives its chunks.
//
// When a message callback throws, the messages behind in the same read are delivered all the same.
// Then the first exception passes on, and later ones are lost.
#pragma once

#include "socket/chunked.h"          // pieces with their length; a message may come in many
#include "socket/zero_terminated.h"  // whole messages, each ended by a zero byte
