// The asynchronous socket layer, whole: what a program that embeds it includes.
#pragma once

#include "socket/client.h"      // outgoing connections
#include "socket/connection.h"  // what can be done with any connection
#include "socket/encoding.h"    // zero-terminated and chunked messages out of bytes
#include "socket/endpoint.h"    // unix-domain datagrams
#include "socket/listener.h"    // listening sockets
#include "socket/message.h"     // sending messages, reading chunked ones
#include "socket/poll.h"        // the loop
#include "socket/registry.h"    // which objects there are
