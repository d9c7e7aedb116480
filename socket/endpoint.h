// Named unix-domain datagram sockets. A datagram is the four bytes "QVIR" and a payload of up to
// 65,531 bytes. A received datagram with another beginning is dropped.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace SocketASync {

// A datagram socket. It is owned by the layer until the next poll after endpoint_destroy.
struct EndPoint {
  void* context;     // passed to the callback, not owned
  std::string name;  // the path that it is bound to
  int32_t fd;        // the descriptor
  // Called for every datagram. The payload and the sender's path are valid during the call. The
  // path is empty if the sender has none. The callback may destroy the endpoint but must not assign
  // another callback.
  std::function<void(void* context, const void* payload, unsigned short length,
                     const char* sender_path, EndPoint*)>
      callback;
  bool closing = false;  // the next poll closes and frees it
};

// Creates an endpoint at a path of at most 107 bytes. Removes an existing file at the path. On
// failure prints an error and returns null.
EndPoint* endpoint_create(
    const char* path, void* context,
    std::function<void(void* context, const void* payload, unsigned short length,
                       const char* sender_path, EndPoint*)>
        callback);

// Drops the callback and makes the next poll close and free the endpoint. A running callback is
// dropped when it returns. A second call before that poll has no effect. The file is not removed.
void endpoint_destroy(EndPoint* endpoint);

// Sends one datagram to the endpoint at a path. Ignore the result: it is false even on success,
// because the number of bytes sent includes the prefix and is compared with `length`. Kept on
// purpose.
bool endpoint_sendto(EndPoint* endpoint, const char* destination_path, const void* payload,
                     unsigned short length);

}  // namespace SocketASync
