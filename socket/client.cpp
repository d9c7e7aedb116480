#include "socket/client.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "core/owner.h"
#include "runtime/runtime_core.h"
#include "socket/descriptor.h"
#include "socket/registry.h"

namespace SocketASync {

using Closed = std::function<void(void*, Connection*)>;

static Client* add_client(runenv::unique_fd fd, std::string name, void* context, Closed closed) {
  runenv::set_non_blocking(fd.get());
  auto owned = std::make_unique<Client>();
  pending_state.clients.push_back(owned.get());
  Client* const client = owned.release();
  client->fd = fd.release();
  client->name = std::move(name);
  client->context_object = context;
  client->closed = std::move(closed);
  if (genv_debug_info) {
    Runtime.log("Client '%s' connected.\n", client->name.c_str());
  }
  return client;
}

Client* create_client(const char* host, const char* port, void* context, Closed closed) {
  runenv::AddressList list;
  const int lookup = runenv::look_up(host, port, &list);
  if (lookup != 0) {
    Runtime.error("Unable to get address info: %s\n", gai_strerror(lookup));
    return nullptr;
  }
  if (list == nullptr) {
    Runtime.error("Unable to get address info: no result\n");
    return nullptr;
  }
  runenv::unique_fd fd = runenv::open_socket(list->ai_family, list->ai_socktype, list->ai_protocol);
  if (fd.get() < 0) {
    Runtime.error("Unable to open socket '%s:%s': %s\n", host, port, std::strerror(errno));
    return nullptr;
  }
  if (runenv::connect_waiting(fd.get(), list->ai_addr, list->ai_addrlen) != 0) {
    if (genv_debug_info) {
      Runtime.error("Unable to connect to %s:%s: %s\n", host, port, std::strerror(errno));
    }
    return nullptr;
  }
  runenv::set_no_delay(fd.get());
  return add_client(std::move(fd), std::string(host) + ":" + port, context, std::move(closed));
}

Client* create_client(const char* path, void* context, Closed closed) {
  const auto address = runenv::unix_address(path);
  if (!address) {
    runenv::report_long_path(path);
    return nullptr;
  }
  runenv::unique_fd fd = runenv::open_socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd.get() < 0) {
    Runtime.error("Unable to create socket: %s\n", std::strerror(errno));
    return nullptr;
  }
  if (runenv::connect_waiting(fd.get(), address->get(), address->length) != 0) {
    if (genv_debug_info) {
      Runtime.error("Unable to connect socket to '%s': %s\n", path, std::strerror(errno));
    }
    return nullptr;
  }
  return add_client(std::move(fd), path, context, std::move(closed));
}

}  // namespace SocketASync
