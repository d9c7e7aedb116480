// A stream socket with its send queue and its receiver.
//
// The socket layer is not thread-safe. All callbacks run on the thread that polls.
//
// The states of a connection:
//   pending  After create_client, until the next poll. Output is queued. An accepted connection
//            starts as active, before the call of its listener's factory.
//   active   Every poll reads once and sends once. The state ends with mark_close or when the
//            connection is lost: the peer has closed it, an error occurred, or accepting it failed.
//            A lost connection is closed at once, and its queued output is dropped.
//   marked   No more output is queued. The following polls send the queued output and no longer
//            read. Bytes that were already read are still delivered. If a callback of another
//            connection marks this one, the running poll may still read from it once. The first
//            poll that begins with an empty queue closes the connection.
//   closed   The descriptor is closed, and the closed callback of the owner runs, once.
//   freed    The callback has returned. All pointers to the connection are invalid.
// destroy_listener closes and frees the listener's connections at once, in any state.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "socket/send_queue.h"

// The asynchronous socket layer: stream connections, messages on them, and datagrams.
namespace SocketASync {

// How messages are framed.
enum class EncodingKind : uint32_t {
  None = 0,            // no framing
  ZeroTerminated = 1,  // a zero byte ends each message
  Chunked = 2,         // a message is a sequence of chunks with their lengths
};

// A connection. It is owned by its listener or is a Client. The layer frees it after the closed
// callback. The destructor frees all that the record owns but does not close the descriptor.
struct Connection {
  Connection() = default;
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  int32_t fd = 0;              // the descriptor
  SendQueue send_queue;        // queued output
  bool has_receiver = false;   // if false, received bytes are dropped
  bool marked_closed = false;  // no more output is queued; closed when the queue is empty
  // Called with the bytes of each read of poll. They are valid during the call. A lambda with
  // captures must not be replaced while it runs, not even by create_encoding.
  std::function<void(char* data, unsigned int length, void* context, Connection*)> receiver;
  std::string name;                // for log lines
  void* context_object = nullptr;  // passed to the callbacks, not owned
  uint32_t timeout = 0;            // of blocking reads, in seconds; 0 means no limit
  EncodingKind encoding_kind = EncodingKind::None;  // the installed encoding
  void* encoder_state = nullptr;  // ZeroTerminatedState or ChunkedState, depending on the kind
};

// Makes poll close the connection once its queued output has been sent.
void mark_close(Connection* connection);

// Returns the connection's context object.
void* get_context_object(Connection* connection);

// Sets the timeout of blocking reads in seconds; 0 means no limit.
void set_timeout(Connection* connection, unsigned int seconds);

// Returns the address of a TCP peer as text, or an empty string for a unix-domain peer. The result
// is a static buffer, which the next call overwrites.
const char* get_peer_name(Connection* connection);

// Closes a descriptor. Do not use it for a connection or listener, because poll would fail from
// then on. End a connection with mark_close.
void sock_close(int fd);

// Handles the error `errnum` of a failed `operation` ("send", "recv", "recv_blocked" or "accept").
// Returns false for EAGAIN. Otherwise the connection is lost: returns true, and prints an unusual
// error with the state of the connection.
bool report_socket_error(const char* operation, Connection* connection, int errnum);

// Bytes without framing.
namespace Raw {

// Makes poll pass the bytes of each read to `receiver`. They are valid during the call. With a null
// receiver, the next delivery throws std::bad_function_call.
void register_raw_receiver(Connection* connection,
                           void (*receiver)(const char* data, unsigned int length, void* context,
                                            Connection* connection));

// Queues a copy of `length` bytes. Does nothing if `length` is 0 or the connection is marked
// closed.
void send_raw_block(Connection* connection, const char* data, unsigned int length);

}  // namespace Raw
}  // namespace SocketASync
