// The floors of the socket benchmark: servers of bare system calls. Chunks that are sent back one
// by one are the same bytes, so nothing looks into them.
#pragma once

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "bench/sockets_contender.h"

namespace system_calls {

inline void add(int loop, int fd) {
  epoll_event event{EPOLLIN, {}};
  event.data.fd = fd;
  require(epoll_ctl(loop, EPOLL_CTL_ADD, fd, &event) == 0, "epoll_ctl");
}

inline void answer(int fd) {
  static char bytes[65536];
  const ssize_t n = recv(fd, bytes, sizeof bytes, 0);
  if (n <= 0) {
    close(fd);
    return;
  }
  for (ssize_t sent = 0; sent < n;) {
    const ssize_t m = send(fd, bytes + sent, static_cast<size_t>(n - sent), MSG_NOSIGNAL);
    if (m < 0) {
      return;
    }
    sent += m;
  }
}

inline void serve_epoll(const Address& address, Service) {
  const int listener = listen_at(address), loop = epoll_create1(EPOLL_CLOEXEC);
  add(loop, listener);
  for (;;) {
    epoll_event events[1024];
    const int ready = epoll_wait(loop, events, 1024, -1);
    for (int i = 0; i < ready; ++i) {
      if (events[i].data.fd != listener) {
        answer(events[i].data.fd);
        continue;
      }
      const int fd = accept(listener, nullptr, nullptr);
      send_at_once(fd, address);
      add(loop, fd);
    }
  }
}

// What a connection has read and not sent back yet.
using Queues = std::map<int, std::string>;

// One read and one send, as the sets allow; false when the peer has gone.
inline bool serve_once(int fd, std::string& queue, const fd_set& readable, const fd_set& writable) {
  static char bytes[4096];
  if (FD_ISSET(fd, &readable)) {
    const ssize_t n = recv(fd, bytes, sizeof bytes, 0);
    if (n == 0) {
      return false;
    }
    queue.append(bytes, static_cast<size_t>(std::max<ssize_t>(n, 0)));
  }
  if (FD_ISSET(fd, &writable)) {
    const ssize_t n = send(fd, queue.data(), queue.size(), MSG_NOSIGNAL);
    queue.erase(0, static_cast<size_t>(std::max<ssize_t>(n, 0)));
  }
  return true;
}

inline void serve_select(const Address& address, Service) {
  const int listener = listen_at(address);
  Queues queues;
  for (;;) {
    fd_set readable, writable;
    timeval limit{1, 0};
    FD_ZERO(&readable);
    FD_ZERO(&writable);
    FD_SET(listener, &readable);
    for (const auto& [fd, queue] : queues) {
      FD_SET(fd, &readable);
      if (!queue.empty()) {
        FD_SET(fd, &writable);
      }
    }
    const int highest = queues.empty() ? listener : std::max(listener, queues.rbegin()->first);
    if (select(highest + 1, &readable, &writable, nullptr, &limit) <= 0) {
      continue;
    }
    for (auto at = queues.begin(); at != queues.end();) {
      const auto current = at++;
      if (!serve_once(current->first, current->second, readable, writable)) {
        close(current->first);
        queues.erase(current);
      }
    }
    if (FD_ISSET(listener, &readable)) {
      const int fd = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
      send_at_once(fd, address);
      queues[fd];
    }
  }
}

}  // namespace system_calls
