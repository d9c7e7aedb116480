#include "socket/listener.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "core/owner.h"
#include "fs/path.h"
#include "runtime/runtime_core.h"
#include "socket/descriptor.h"
#include "socket/ending.h"
#include "socket/first_exception.h"
#include "socket/registry.h"
#include "socket/serving.h"

namespace SocketASync {

using Factory = std::function<void*(void*, Connection*)>;
using Closed = std::function<void(void*, Connection*)>;

static constexpr int kBacklog = 10;

static Listener* add_listener(runenv::unique_fd fd, Factory factory, Closed closed,
                              const char* name, void* context) {
  runenv::set_non_blocking(fd.get());
  auto listener = std::make_unique<Listener>(Listener{.fd = fd.get(),
                                                      .factory = std::move(factory),
                                                      .closed = std::move(closed),
                                                      .connections = {},
                                                      .name = name,
                                                      .context = context});
  pending_state.listeners.push_back(listener.get());
  fd.release();
  return listener.release();
}

static void report_not_open(const char* service) {
  Runtime.error("Socket[%s] not open: %s\n", service, std::strerror(errno));
}

// Returns a socket with SO_REUSEADDR for the first address that allows it, or -1.
static runenv::unique_fd open_reusable(const addrinfo* list) {
  const int on = 1;
  for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    auto fd = runenv::open_socket(entry->ai_family, entry->ai_socktype, entry->ai_protocol);
    if (fd.get() < 0) {
      continue;
    }
    if (setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0) {
      return fd;
    }
    fd.release();  // left open on purpose
  }
  return runenv::unique_fd();
}

Listener* create_listener(const char* node, const char* service, const char* name, void* context,
                          Factory factory, Closed closed) {
  const char* const shown_name = name != nullptr ? name : "<no-name>";
  runenv::AddressList list;
  const int lookup = runenv::look_up(node, service, &list);
  if (lookup != 0) {
    Runtime.error("Error by getaddrinfo: %s\n", gai_strerror(lookup));
    return nullptr;
  }
  if (list == nullptr) {
    Runtime.error("Error getting address info, no results returned!\n");
    return nullptr;
  }
  runenv::unique_fd fd = open_reusable(list.get());
  if (fd.get() >= 0) {
    // Always binds to the first address, whichever the socket was opened for.
    if (bind(fd.get(), list->ai_addr, list->ai_addrlen) != 0) {
      report_not_open(service);
      return nullptr;
    }
    if (genv_debug_info) {
      Runtime.log("Socket open: %s -> %d [%s].\n", service, fd.get(), shown_name);
    }
  }
  if (listen(fd.get(), kBacklog) != 0) {  // also without a socket: "Bad file descriptor"
    report_not_open(service);
    return nullptr;
  }
  return add_listener(std::move(fd), std::move(factory), std::move(closed), shown_name, context);
}

// Binds `fd` to `path` and listens. On failure prints an error and returns false.
static bool listen_at(int fd, const char* path, const runenv::UnixAddress& address) {
  if (fs::path_t(path).exists() && unlink(path) != 0) {
    Runtime.error("Unable to unlink '%s': %s\n", path, std::strerror(errno));
    return false;
  }
  if (bind(fd, address.get(), address.length) != 0) {
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
  const auto address = runenv::unix_address(path);
  if (!address) {
    // Clients and endpoints print "to long". Scripts look for either message.
    Runtime.error("Unix domain socket path is too long (%ld)!\n",
                  static_cast<long>(std::strlen(path)));
    return nullptr;
  }
  runenv::unique_fd fd = runenv::open_socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd.get() < 0) {
    Runtime.error("Unable to create socket: %s\n", std::strerror(errno));
    return nullptr;
  }
  if (!listen_at(fd.get(), path, *address)) {
    return nullptr;
  }
  return add_listener(std::move(fd), std::move(factory), std::move(closed), path, context);
}

void destroy_listener(Listener* listener) {
  auto& active = active_state.listeners;
  const auto found = std::find(active.begin(), active.end(), listener);
  if (found == active.end()) {
    return;
  }
  if (listener == runenv::visited_listener) {
    Runtime.error("Listener '%s' destroyed by a callback of its own!\n", listener->name.c_str());
    std::abort();
  }
  active.erase(found);
  close(listener->fd);
  runenv::FirstException failure;
  while (!listener->connections.empty()) {
    failure.run([&] { runenv::end_connection(listener->connections, 0, listener->closed); });
  }
  delete listener;
  failure.rethrow();
}

}  // namespace SocketASync
