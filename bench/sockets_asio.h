// The server of the socket benchmark on Boost.Asio.
#pragma once

#include <array>
#include <boost/asio.hpp>
#include <vector>

#include "bench/sockets_contender.h"

namespace asio_server {

namespace asio = boost::asio;
using asio::ip::tcp;
using asio::local::stream_protocol;
using boost::system::error_code;

// One connection, with one step at a time: what is read is answered before more is read. It deletes
// itself when its peer has gone.
template <typename Socket>
struct Session {
  explicit Session(Socket accepted) : socket(std::move(accepted)), bytes(65536) {}

  // Goes on with `next` after a step that succeeded.
  auto then(void (Session::*next)(size_t)) {
    return [this, next](error_code error, size_t count) {
      if (error) {
        delete this;
      } else {
        (this->*next)(count);
      }
    };
  }

  void read_bytes(size_t = 0) {
    socket.async_read_some(asio::buffer(bytes), then(&Session::write_bytes));
  }
  void write_bytes(size_t count) {
    asio::async_write(socket, asio::buffer(bytes, count), then(&Session::read_bytes));
  }

  void read_chunk(size_t = 0) {
    asio::async_read(socket, asio::buffer(header), then(&Session::read_payload));
  }
  void read_payload(size_t) {
    bytes.resize(chunk_length(header.data()));
    asio::async_read(socket, asio::buffer(bytes), then(&Session::write_chunk));
  }
  void write_chunk(size_t) {
    const std::array<asio::const_buffer, 2> chunk{asio::buffer(header), asio::buffer(bytes)};
    asio::async_write(socket, chunk, then(&Session::read_chunk));
  }

  Socket socket;
  std::array<char, 4> header{};
  std::vector<char> bytes;
};

template <typename Acceptor>
void accept(Acceptor& acceptor, const Address& address, Service service) {
  acceptor.async_accept([&acceptor, &address, service](error_code error, auto socket) {
    require(!error, "async_accept");
    send_at_once(socket.native_handle(), address);
    auto* const session = new Session(std::move(socket));
    service == Service::Bytes ? session->read_bytes() : session->read_chunk();
    accept(acceptor, address, service);
  });
}

template <typename Protocol>
void serve_with(const Protocol& protocol, const Address& address, Service service) {
  asio::io_context context(1);
  typename Protocol::acceptor acceptor(context, protocol, listen_at(address));
  accept(acceptor, address, service);
  context.run();
}

inline void serve(const Address& address, Service service) {
  if (address.path.empty()) {
    serve_with(tcp::v4(), address, service);
  } else {
    serve_with(stream_protocol(), address, service);
  }
}

}  // namespace asio_server
