// The zero-terminated encoding: the bytes of a message, then one zero byte.
#pragma once

#include "core/buffer.h"
#include "socket/connection.h"

namespace SocketASync {

// The state of a connection's decoder.
struct ZeroTerminatedState {
  // Called for every message.
  void (*callback)(Buffer* message, void* context, Connection* connection);
  Buffer collected{0};      // the message being received
  bool delivering = false;  // the callback is running
};

// Messages that are delivered whole.
namespace Encoding::ZeroTerminated {

// Installs the encoding. `callback` is called with every whole message, without its zero byte. The
// buffer is owned by the decoder and valid during the call.
void create_encoding(Connection* connection,
                     void (*callback)(Buffer* message, void* context, Connection* connection));

// The receiver: passes `length` bytes to the decoder.
void collect(const char* data, unsigned int length, void* context, Connection* connection);

}  // namespace Encoding::ZeroTerminated
}  // namespace SocketASync
