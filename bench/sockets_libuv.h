// The server of the socket benchmark on libuv.
#pragma once

#include <uv.h>

#include "bench/sockets_contender.h"

namespace libuv {

union Stream {
  uv_stream_t stream;
  uv_tcp_t tcp;
  uv_pipe_t pipe;
};

struct Connection {
  Stream handle;
  std::string partial;  // the beginning of a chunk
};

struct Write {
  uv_write_t request;
  char* bytes;
};

struct Listener {
  Stream handle;
  Address address;
  Service service;
};

inline void write(uv_stream_t* stream, char* bytes, size_t length) {
  auto* const written = new Write{{}, bytes};
  const uv_buf_t buffer = uv_buf_init(bytes, static_cast<unsigned>(length));
  uv_write(&written->request, stream, &buffer, 1, [](uv_write_t* request, int) {
    auto* const done = reinterpret_cast<Write*>(request);
    std::free(done->bytes);
    delete done;
  });
}

inline void on_ended(uv_stream_t* stream) {
  uv_close(reinterpret_cast<uv_handle_t*>(stream),
           [](uv_handle_t* handle) { delete reinterpret_cast<Connection*>(handle); });
}

inline void on_bytes(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
  if (count > 0) {
    write(stream, buffer->base, static_cast<size_t>(count));
    return;
  }
  std::free(buffer->base);
  if (count < 0) {
    on_ended(stream);
  }
}

inline void on_chunks(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
  std::string& partial = reinterpret_cast<Connection*>(stream)->partial;
  if (count < 0) {
    std::free(buffer->base);
    on_ended(stream);
    return;
  }
  partial.append(buffer->base, static_cast<size_t>(count));
  std::free(buffer->base);
  size_t complete = 0;
  while (partial.size() - complete >= 4) {
    const size_t length = 4 + size_t{chunk_length(partial.data() + complete)};
    if (partial.size() - complete < length) {
      break;
    }
    complete += length;
  }
  if (complete != 0) {
    auto* const bytes = static_cast<char*>(std::malloc(complete));
    std::memcpy(bytes, partial.data(), complete);
    write(stream, bytes, complete);
    partial.erase(0, complete);
  }
}

inline void open_stream(uv_loop_t* loop, Stream* handle, const Address& address) {
  if (address.path.empty()) {
    uv_tcp_init(loop, &handle->tcp);
  } else {
    uv_pipe_init(loop, &handle->pipe, 0);
  }
}

inline void on_connection(uv_stream_t* stream, int) {
  const auto* const listener = reinterpret_cast<Listener*>(stream);
  auto* const connection = new Connection{};
  open_stream(stream->loop, &connection->handle, listener->address);
  require(uv_accept(stream, &connection->handle.stream) == 0, "uv_accept");
  if (listener->address.path.empty()) {
    uv_tcp_nodelay(&connection->handle.tcp, 1);
  }
  const auto allocate = [](uv_handle_t*, size_t suggested, uv_buf_t* buffer) {
    *buffer =
        uv_buf_init(static_cast<char*>(std::malloc(suggested)), static_cast<unsigned>(suggested));
  };
  uv_read_start(&connection->handle.stream, allocate,
                listener->service == Service::Bytes ? on_bytes : on_chunks);
}

inline void serve(const Address& address, Service service) {
  uv_loop_t* const loop = uv_default_loop();
  Listener listener{{}, address, service};
  open_stream(loop, &listener.handle, address);
  const int fd = listen_at(address);
  require(address.path.empty() ? uv_tcp_open(&listener.handle.tcp, fd) == 0
                               : uv_pipe_open(&listener.handle.pipe, fd) == 0,
          "opening the listener");
  require(uv_listen(&listener.handle.stream, SOMAXCONN, on_connection) == 0, "uv_listen");
  uv_run(loop, UV_RUN_DEFAULT);
}

}  // namespace libuv
