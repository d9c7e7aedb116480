// The lower bounds of the socket benchmark: servers of plain system calls. They send all bytes back
// as they arrive, whatever the service.
#pragma once

#include <sys/epoll.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "bench/sockets_contender.h"

namespace system_calls {

inline void serve_epoll(const Address& address, Service) {
  static char bytes[65536];
  const int listener = listen_at(address), loop = epoll_create1(EPOLL_CLOEXEC);
  const auto add = [loop](int fd) {
    epoll_event event{EPOLLIN, {.fd = fd}};
    require(epoll_ctl(loop, EPOLL_CTL_ADD, fd, &event) == 0, "epoll_ctl");
  };
  for (add(listener);;) {
    epoll_event events[1024];
    const int ready = epoll_wait(loop, events, 1024, -1);
    for (int i = 0; i < ready; ++i) {
      int fd = events[i].data.fd;
      if (fd == listener) {
        fd = accept(listener, nullptr, nullptr);
        send_at_once(fd, address);
        add(fd);
        continue;
      }
      const ssize_t n = recv(fd, bytes, sizeof bytes, 0);
      if (n <= 0 || send(fd, bytes, static_cast<size_t>(n), MSG_NOSIGNAL) != n) {
        close(fd);
      }
    }
  }
}

// Each pass reads once and sends once per connection. It sends what an earlier pass has read.
inline void serve_select(const Address& address, Service) {
  static char bytes[4096];
  std::vector<std::string> queues(FD_SETSIZE);
  fd_set open{}, queued{};
  const int listener = listen_at(address);
  FD_SET(listener, &open);
  for (int highest = listener;;) {
    fd_set readable = open, writable = queued;
    timeval limit{1, 0};
    const int ready = select(highest + 1, &readable, &writable, nullptr, &limit);
    for (int fd = listener + 1; ready > 0 && fd <= highest; ++fd) {
      std::string& queue = queues[static_cast<size_t>(fd)];
      const ssize_t n = FD_ISSET(fd, &readable) ? recv(fd, bytes, sizeof bytes, 0) : -1;
      if (n == 0) {
        close(fd);
        FD_CLR(fd, &open);
        FD_CLR(fd, &queued);
      } else if (n > 0) {
        queue.append(bytes, static_cast<size_t>(n));
        FD_SET(fd, &queued);
      }
      if (FD_ISSET(fd, &writable)) {
        const ssize_t sent = send(fd, queue.data(), queue.size(), MSG_NOSIGNAL);
        queue.erase(0, static_cast<size_t>(std::max<ssize_t>(sent, 0)));
        queue.empty() ? FD_CLR(fd, &queued) : FD_SET(fd, &queued);
      }
    }
    if (ready > 0 && FD_ISSET(listener, &readable)) {
      const int fd = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
      send_at_once(fd, address);
      FD_SET(fd, &open);
      highest = std::max(highest, fd);
    }
  }
}

}  // namespace system_calls
