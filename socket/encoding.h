// Decoding the bytes of a connection into messages, with one of two encodings.
//
// Usually the listener's factory installs an encoding, or the program does after create_client.
// Installing another encoding later replaces the old one and drops its unfinished message. A
// message callback may do so, too. It then runs to its end. All bytes that were read but not passed
// to it go to the new decoder. If the old encoding is chunked, its message ends there: recv_chunk
// returns no more of its chunks.
//
// If a message callback throws, the remaining messages of the same read are still delivered. Then
// the first exception is rethrown. Later ones are lost.
#pragma once

#include "socket/chunked.h"          // messages of chunks, read while they arrive
#include "socket/zero_terminated.h"  // whole messages that end with a zero byte
