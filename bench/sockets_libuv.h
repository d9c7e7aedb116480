// The server of the socket benchmark on libuv.
#pragma once

#include <uv.h>

#include <algorithm>
#include <cstring>

#include "bench/sockets_contender.h"

namespace libuv {

// A listener or a connection.
struct Peer {
  union {
    uv_stream_t stream;
    uv_tcp_t tcp;
    uv_pipe_t pipe;
  };
  const Address& address;
  Service service;
  std::string partial;  // received bytes that were not sent back yet
};

struct Write {
  uv_write_t request;
  char* bytes;
};

// Takes ownership of the malloc'ed bytes.
inline void write(Peer* peer, char* bytes, size_t length) {
  auto* const written = new Write{{}, bytes};
  const uv_buf_t buffer = uv_buf_init(bytes, static_cast<unsigned>(length));
  uv_write(&written->request, &peer->stream, &buffer, 1, [](uv_write_t* request, int) {
    auto* const done = reinterpret_cast<Write*>(request);
    std::free(done->bytes);
    delete done;
  });
}

// Returns the size of all complete messages (with their zeros) or chunks (with their lengths).
inline size_t whole_pieces(const std::string& partial, Service service) {
  if (service == Service::Messages) {
    return partial.rfind('\0') + 1;
  }
  size_t end = 0;
  while (partial.size() - end >= 4) {
    const size_t length = size_t{4} + runenv::read_big_endian(&partial[end]);
    if (partial.size() - end < length) {
      break;
    }
    end += length;
  }
  return end;
}

inline void on_read(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
  auto* const peer = reinterpret_cast<Peer*>(stream);
  const auto length = static_cast<size_t>(std::max<ssize_t>(count, 0));
  if (length != 0 && peer->service == Service::Bytes) {
    return write(peer, buffer->base, length);
  }
  peer->partial.append(buffer->base, length);
  std::free(buffer->base);
  if (const size_t whole = whole_pieces(peer->partial, peer->service)) {
    auto* const bytes = static_cast<char*>(std::malloc(whole));
    write(peer, static_cast<char*>(std::memcpy(bytes, peer->partial.data(), whole)), whole);
    peer->partial.erase(0, whole);
  }
  if (count < 0) {
    uv_close(reinterpret_cast<uv_handle_t*>(stream),
             [](uv_handle_t* handle) { delete reinterpret_cast<Peer*>(handle); });
  }
}

inline Peer* make_peer(const Address& address, Service service) {
  auto* const peer = new Peer{{}, address, service, {}};
  address.path.empty() ? uv_tcp_init(uv_default_loop(), &peer->tcp)
                       : uv_pipe_init(uv_default_loop(), &peer->pipe, 0);
  return peer;
}

inline void on_connection(uv_stream_t* stream, int) {
  const auto* const listener = reinterpret_cast<Peer*>(stream);
  Peer* const connection = make_peer(listener->address, listener->service);
  require(uv_accept(stream, &connection->stream) == 0, "uv_accept");
  if (listener->address.path.empty()) {
    uv_tcp_nodelay(&connection->tcp, 1);
  }
  const auto allocate = [](uv_handle_t*, size_t suggested, uv_buf_t* buffer) {
    *buffer =
        uv_buf_init(static_cast<char*>(std::malloc(suggested)), static_cast<unsigned>(suggested));
  };
  uv_read_start(&connection->stream, allocate, on_read);
}

inline void serve(const Address& address, Service service) {
  Peer* const listener = make_peer(address, service);
  const int fd = listen_at(address);
  require((address.path.empty() ? uv_tcp_open(&listener->tcp, fd)
                                : uv_pipe_open(&listener->pipe, fd)) == 0,
          "opening the listener");
  require(uv_listen(&listener->stream, SOMAXCONN, on_connection) == 0, "uv_listen");
  uv_run(uv_default_loop(), UV_RUN_DEFAULT);
}

}  // namespace libuv
