#include "socket/client.h"

#include <netdb.h>
#include <sys/socket.h>
#include <sys/un.h>

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
  set_non_blocking(fd.get());
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
  addrinfo* list;
  const int lookup = look_up(host, port, &list);
  if (lookup != 0) {
    Runtime.error("Unable to get address info: %s\n", gai_strerror(lookup));
    return nullptr;
  }
  if (list == nullptr) {
    Runtime.error("Unable to get address info: no result\n");
    return nullptr;
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> first(list, freeaddrinfo);
  runenv::unique_fd fd(open_socket(first->ai_family, first->ai_socktype, first->ai_protocol));
  if (fd.get() < 0) {
    Runtime.error("Unable to open socket '%s:%s': %s\n", host, port, std::strerror(errno));
    return nullptr;
  }
  if (connect_waiting(fd.get(), first->ai_addr, first->ai_addrlen) != 0) {
    if (genv_debug_info) {
      Runtime.error("Unable to connect to %s:%s: %s\n", host, port, std::strerror(errno));
    }
    return nullptr;
  }
  set_no_delay(fd.get());
  return add_client(std::move(fd), std::string(host) + ":" + port, context, std::move(closed));
}

Client* create_client(const char* path, void* context, Closed closed) {
  sockaddr_un address;
  unsigned int length;
  if (!set_unix_address(path, &address, &length)) {
    Runtime.error("Unix domain socket path is to long (%ld)!\n",
                  static_cast<long>(std::strlen(path)));
    return nullptr;
  }
  runenv::unique_fd fd(open_socket(AF_UNIX, SOCK_STREAM, 0));
  if (fd.get() < 0) {
    Runtime.error("Unable to create socket: %s\n", std::strerror(errno));
    return nullptr;
  }
  if (connect_waiting(fd.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    if (genv_debug_info) {
      Runtime.error("Unable to connect socket to '%s': %s\n", path, std::strerror(errno));
    }
    return nullptr;
  }
  return add_client(std::move(fd), path, context, std::move(closed));
}

}  // namespace SocketASync
