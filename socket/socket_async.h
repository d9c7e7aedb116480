// The whole asynchronous socket layer. Include this header and runtime/runtime_core.h to use it.
//
// The usual order of calls is Runtime.startsocket, create_listener or create_client, and
// Runtime.poll in a loop, which calls the callbacks. The listener's factory, or the program for a
// client, calls create_encoding or register_raw_receiver to receive. Callbacks and the program call
// create_outbound, send_chunk and finalize_outbound, or send_raw_block, to send, and mark_close to
// end a connection.
#pragma once

#include "socket/client.h"      // outgoing connections
#include "socket/connection.h"  // operations on any connection
#include "socket/encoding.h"    // decoding zero-terminated and chunked messages
#include "socket/endpoint.h"    // unix-domain datagrams
#include "socket/listener.h"    // listening sockets
#include "socket/message.h"     // sending messages, reading chunked ones
#include "socket/poll.h"        // the event loop
#include "socket/registry.h"    // the objects of the layer
