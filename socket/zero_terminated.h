// The zero-terminated encoding: the bytes of a message, then one zero byte.
#pragma once

#include "core/buffer.h"
#include "socket/connection.h"

namespace SocketASync {

// The decoder of a connection.
struct ZeroTerminatedState {
  // Called for every message.
  void (*callback)(Buffer* message, void* context, Connection* connection);
  Buffer collected{0};      // the message being received
  bool delivering = false;  // the callback is running for it
};

// Messages that are received whole.
namespace Encoding::ZeroTerminated {

// `callback` gets every message whole, without its zero byte; the buffer is the decoder's and valid
// during the call.
void create_encoding(Connection* connection,
                     void (*callback)(Buffer* message, void* context, Connection* connection));

// The receiver: feeds `length` bytes to the decoder.
void collect(const char* data, unsigned int length, void* context, Connection* connection);

}  // namespace Encoding::ZeroTerminated
}  // namespace SocketASync
