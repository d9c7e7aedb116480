// One stream socket of the layer: its send queue, its receiver, and how its errors are classified.
//
// Single-threaded like the whole layer: everything, callbacks included, runs on the thread that
// polls.
//
// The life of a connection:
//   pending  create_client has made it, and no poll has taken it up yet. What is sent is queued. An
//            accepted connection begins as active, with the call of its listener's factory.
//   active   Every poll reads and sends once. This ends with mark_close, or when the connection is
//            lost: the peer has closed, an error has come, or accepting it had failed. A lost one
//            is closed at once, and what is queued is dropped.
//   marked   Nothing more is queued. The polls that follow send what is queued, but no longer read.
//            Bytes that have been read are still delivered. When another connection's callback
//            marks this one before the running poll has come to it, that poll may still read once.
//            The first poll that begins with an empty queue closes the connection.
//   closed   The descriptor is closed, and the owner's closed callback runs, once.
//   freed    The callback has returned, and every pointer to the connection is void.
// destroy_listener closes and frees the listener's connections at once, whatever they are.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "socket/send_queue.h"

// The asynchronous socket layer: stream connections, messages on them, and datagrams.
namespace SocketASync {

// How messages are told apart.
enum class EncodingKind : uint32_t {
  None = 0,            // not at all: bytes
  ZeroTerminated = 1,  // each ends with a zero byte
  Chunked = 2,         // each is a row of pieces with their lengths
};

// A connection is owned by its listener or is a client; the layer frees it after the owner's closed
// callback. The destructor frees all that the record owns but does not close the descriptor.
struct Connection {
  Connection() = default;
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  int32_t fd = 0;              // the descriptor
  SendQueue send_queue;        // what is still to be sent
  bool has_receiver = false;   // received bytes are delivered; without it they are dropped
  bool marked_closed = false;  // queues nothing more, is closed once its queue has gone out
  // Gets each piece of bytes that poll reads, valid during the call.
  std::function<void(char* data, unsigned int length, void* context, Connection*)> receiver;
  std::string name;                // for log lines
  void* context_object = nullptr;  // the user's
  uint32_t timeout = 0;            // of blocking reads, in seconds; 0 waits without limit
  EncodingKind encoding_kind = EncodingKind::None;  // the one that is installed
  void* encoder_state = nullptr;  // ZeroTerminatedState or ChunkedState, by the kind
};

// Asks for the end of a connection: what is queued still goes out, then poll closes it.
void mark_close(Connection* connection);

// The user's object that the connection was made with.
void* get_context_object(Connection* connection);

// Limits blocking reads to `seconds`; 0 lifts the limit.
void set_timeout(Connection* connection, unsigned int seconds);

// The address of a TCP peer as text, empty for a unix-domain peer. Every call overwrites the
// result of the one before.
const char* get_peer_name(Connection* connection);

// Closes a descriptor. Never that of a connection or listener: poll would fail from then on.
// mark_close ends a connection.
void sock_close(int fd);

// Classifies a failed `operation` ("send", "recv", "recv_blocked" or "accept"). False: nothing is
// there yet. True: the connection is lost; an unusual error is reported with a dump of its state.
bool report_socket_error(const char* operation, Connection* connection, int errnum);

// Bytes without any framing.
namespace Raw {

// From now on `receiver` gets each piece of bytes as poll reads it, valid during the call. A null
// receiver makes the next delivery throw std::bad_function_call.
void register_raw_receiver(Connection* connection,
                           void (*receiver)(const char* data, unsigned int length, void* context,
                                            Connection* connection));

// Queues a copy of `length` bytes; nothing when that is 0 or the connection is marked closed.
void send_raw_block(Connection* connection, const char* data, unsigned int length);

}  // namespace Raw
}  // namespace SocketASync
