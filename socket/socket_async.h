// The whole asynchronous socket layer. Include this header to use it.
#pragma once

#include "socket/client.h"      // outgoing connections
#include "socket/connection.h"  // operations on any connection
#include "socket/encoding.h"    // decoding zero-terminated and chunked messages
#include "socket/endpoint.h"    // unix-domain datagrams
#include "socket/listener.h"    // listening sockets
#include "socket/message.h"     // sending messages, reading chunked ones
#include "socket/poll.h"        // the event loop
#include "socket/registry.h"    // the objects of the layer
