#include "socket/endpoint.h"

#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>

#include "core/owner.h"
#include "runtime/runtime_core.h"
#include "socket/datagram.h"
#include "socket/descriptor.h"
#include "socket/registry.h"

namespace SocketASync {

using Callback = std::function<void(void*, const void*, unsigned short, const char*, EndPoint*)>;

EndPoint* endpoint_create(const char* path, void* context, Callback callback) {
  const auto address = runenv::unix_address(path);
  if (!address) {
    runenv::report_long_path(path);
    return nullptr;
  }
  runenv::unique_fd fd = runenv::open_socket(AF_UNIX, SOCK_DGRAM, 0);
  if (fd.get() < 0) {
    Runtime.error("Unable to create socket: %s\n", std::strerror(errno));
    return nullptr;
  }
  unlink(path);  // usually the socket of an earlier run
  if (bind(fd.get(), address->get(), address->length) != 0) {
    Runtime.error("Unable to bind socket to '%s': %s\n", path, std::strerror(errno));
    return nullptr;
  }
  runenv::set_non_blocking(fd.get());
  auto endpoint = std::make_unique<EndPoint>(
      EndPoint{.context = context, .name = path, .fd = fd.get(), .callback = std::move(callback)});
  pending_state.endpoints.push_back(endpoint.get());
  fd.release();
  if (genv_debug_info) {
    Runtime.log("EndPoint '%s' opened.\n", endpoint->name.c_str());
  }
  return endpoint.release();
}

void endpoint_destroy(EndPoint* endpoint) {
  if (!runenv::callback_runs(endpoint)) {
    endpoint->callback = nullptr;
  }
  endpoint->closing = true;
}

bool endpoint_sendto(EndPoint* endpoint, const char* destination_path, const void* payload,
                     unsigned short length) {
  auto address = runenv::unix_address(destination_path);
  if (!address) {
    runenv::report_long_path(destination_path);
    return false;
  }
  if (length > runenv::kMaximumPayload) {
    return false;
  }
  iovec pieces[] = {{const_cast<char*>(runenv::kPrefix), sizeof runenv::kPrefix},
                    {const_cast<void*>(payload), length}};
  msghdr message{};
  message.msg_name = &address->address;
  message.msg_namelen = address->length;
  message.msg_iov = pieces;
  message.msg_iovlen = std::size(pieces);
  const ssize_t sent = sendmsg(endpoint->fd, &message, 0);
  if (sent < 0) {
    if (genv_debug_info) {
      Runtime.error("EndPoint '%s' failed to send to '%s': %s\n", endpoint->name.c_str(),
                    destination_path, std::strerror(errno));
    }
    return false;
  }
  return sent == length;  // only `sent` includes the prefix, on purpose
}

}  // namespace SocketASync
