// Named unix-domain datagram sockets. Every datagram is the four bytes "QVIR" and a payload of up
// to 65,531 bytes; whatever begins otherwise is dropped.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace SocketASync {

// Owned by the layer from its creation until the poll that follows endpoint_destroy.
struct EndPoint {
  void* context;     // the user's object, given to the callback
  std::string name;  // the path it is bound to
  int32_t fd;        // the descriptor
  // Called for every datagram. The payload is valid during the call; the sender's path is empty
  // for a sender without one. It may destroy the endpoint, but may not replace itself.
  std::function<void(void* context, const void* payload, unsigned short length,
                     const char* sender_path, EndPoint*)>
      callback;
  bool closing = false;  // the next poll closes and frees it
};

// An endpoint at a path of at most 107 bytes; whatever file stands there is removed. Null on
// failure, which is reported on standard error.
EndPoint* endpoint_create(
    const char* path, void* context,
    std::function<void(void* context, const void* payload, unsigned short length,
                       const char* sender_path, EndPoint*)>
        callback);

// Drops the callback and lets the next poll close and free the endpoint. A callback that runs is
// dropped when it returns. A second call before that poll changes nothing. The file stays.
void endpoint_destroy(EndPoint* endpoint);

// Sends one datagram to the endpoint at a path. Returns whether as many bytes were sent, prefix
// included, as `length` says: false for a complete send as for a failed one. Kept on purpose.
bool endpoint_sendto(EndPoint* endpoint, const char* destination_path, const void* payload,
                     unsigned short length);

}  // namespace SocketASync
