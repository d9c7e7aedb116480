#include "socket/listener.h"

#include <netdb.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "fs/path.h"
#include "runtime/runtime_core.h"
#include "socket/descriptor.h"
#include "socket/ending.h"
#include "socket/first_exception.h"
#include "socket/registry.h"

namespace SocketASync {

using Factory = std::function<void*(void*, Connection*)>;
using Closed = std::function<void(void*, Connection*)>;

static constexpr int kBacklog = 10;

static Listener* add_listener(int fd, Factory factory, Closed closed, const char* name,
                              void* context) {
  set_non_blocking(fd);
  auto listener = std::make_unique<Listener>(
      Listener{fd, std::move(factory), std::move(closed), {}, name, context});
  pending_state.listeners.push_back(listener.get());
  return listener.release();
}

// A socket of the first entry that gives one, bound to the address of the first entry of the list,
// whichever that is. -1 when none gives a socket; -2 when binding failed, which is reported.
static int bind_tcp(const addrinfo* list, const char* service, const char* name) {
  int fd = -1;
  for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    const int on = 1;
    fd = open_socket(entry->ai_family, entry->ai_socktype, entry->ai_protocol);
    if (fd < 0) {
      continue;
    }
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
      fd = -1;  // the socket is abandoned open
      continue;
    }
    if (bind(fd, list->ai_addr, list->ai_addrlen) != 0) {
      Runtime.error("Socket[%s] not open: %s\n", service, std::strerror(errno));
      close(fd);
      return -2;
    }
    if (genv_debug_info) {
      Runtime.log("Socket open: %s -> %d [%s].\n", service, fd, name);
    }
    break;
  }
  return fd;
}

Listener* create_listener(const char* node, const char* service, const char* name, void* context,
                          Factory factory, Closed closed) {
  const char* const shown_name = name != nullptr ? name : "<no-name>";
  addrinfo* list;
  const int lookup = look_up(node, service, &list);
  if (lookup != 0) {
    Runtime.error("Error by getaddrinfo: %s\n", gai_strerror(lookup));
    return nullptr;
  }
  if (list == nullptr) {
    Runtime.error("Error getting address info, no results returned!\n");
    return nullptr;
  }
  const int fd = bind_tcp(list, service, shown_name);
  freeaddrinfo(list);
  if (fd == -2) {
    return nullptr;
  }
  if (listen(fd, kBacklog) != 0) {
    Runtime.error("Socket[%s] not open: %s\n", service, std::strerror(errno));
    close(fd);
    return nullptr;
  }
  return add_listener(fd, std::move(factory), std::move(closed), shown_name, context);
}

// Binds `fd` to `path` and listens there; on failure reports it.
static bool listen_at(int fd, const char* path, const sockaddr_un& address, unsigned int length) {
  if (fs::path_t(path).exists() && unlink(path) != 0) {
    Runtime.error("Unable to unlink '%s': %s\n", path, std::strerror(errno));
    return false;
  }
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    Runtime.error("Unable to bind socket to '%s': %s\n", path, std::strerror(errno));
    return false;
  }
  if (listen(fd, kBacklog) != 0) {
    Runtime.error("Unable to listen on '%s': %s\n", path, std::strerror(errno));
    return false;
  }
  return true;
}

Listener* create_listener(const char* path, void* context, Factory factory, Closed closed) {
  sockaddr_un address;
  unsigned int length;
  if (!set_unix_address(path, &address, &length)) {
    Runtime.error("Unix domain socket path is too long (%ld)!\n",
                  static_cast<long>(std::strlen(path)));
    return nullptr;
  }
  const int fd = open_socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd < 0) {
    Runtime.error("Unable to create socket: %s\n", std::strerror(errno));
    return nullptr;
  }
  if (!listen_at(fd, path, address, length)) {
    close(fd);
    return nullptr;
  }
  return add_listener(fd, std::move(factory), std::move(closed), path, context);
}

void destroy_listener(Listener* listener) {
  auto& active = active_state.listeners;
  const auto found = std::find(active.begin(), active.end(), listener);
  if (found == active.end()) {
    return;
  }
  if (listener == served_listener) {
    Runtime.error("Listener '%s' destroyed by a callback of its own!\n", listener->name.c_str());
    std::abort();
  }
  active.erase(found);
  close(listener->fd);
  FirstException failure;
  while (!listener->connections.empty()) {
    failure.run([&] { end_connection(listener->connections, 0, listener->closed); });
  }
  delete listener;
  failure.rethrow();
}

}  // namespace SocketASync
