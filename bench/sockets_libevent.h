// The server of the socket benchmark on libevent's bufferevents.
#pragma once

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/listener.h>

#include "bench/sockets_contender.h"

namespace libevent {

struct Listener {
  event_base* base;
  Address address;
  Service service;
};

inline void on_bytes(bufferevent* connection, void*) {
  evbuffer_add_buffer(bufferevent_get_output(connection), bufferevent_get_input(connection));
}

inline void on_messages(bufferevent* connection, void*) {
  evbuffer* const input = bufferevent_get_input(connection);
  size_t length;
  while (char* const message = evbuffer_readln(input, &length, EVBUFFER_EOL_NUL)) {
    bufferevent_write(connection, message, length + 1);
    std::free(message);
  }
}

inline void on_chunks(bufferevent* connection, void*) {
  evbuffer* const input = bufferevent_get_input(connection);
  char header[4];
  while (evbuffer_copyout(input, header, 4) == 4) {
    const size_t length = size_t{4} + runenv::read_big_endian(header);
    if (evbuffer_get_length(input) < length) {
      break;
    }
    evbuffer_remove_buffer(input, bufferevent_get_output(connection), length);
  }
}

inline void on_connection(evconnlistener*, int fd, sockaddr*, int, void* context) {
  static constexpr bufferevent_data_cb kServices[] = {on_bytes, on_messages, on_chunks};
  const auto* const listener = static_cast<Listener*>(context);
  send_at_once(fd, listener->address);
  bufferevent* const connection = bufferevent_socket_new(listener->base, fd, BEV_OPT_CLOSE_ON_FREE);
  const auto on_ended = [](bufferevent* ended, short, void*) { bufferevent_free(ended); };
  bufferevent_setcb(connection, kServices[static_cast<int>(listener->service)], nullptr, on_ended,
                    nullptr);
  bufferevent_enable(connection, EV_READ | EV_WRITE);
}

inline void serve(const Address& address, Service service) {
  Listener listener{event_base_new(), address, service};
  const int fd = listen_at(address);
  evutil_make_socket_nonblocking(fd);
  require(evconnlistener_new(listener.base, on_connection, &listener, 0, 0, fd) != nullptr,
          "evconnlistener_new");
  event_base_dispatch(listener.base);
}

}  // namespace libevent
