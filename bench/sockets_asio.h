// The server of the socket benchmark on Boost.Asio.
#pragma once

#include <array>
#include <boost/asio.hpp>

#include "bench/sockets_contender.h"

namespace asio_server {

namespace asio = boost::asio;
using boost::system::error_code;

// One connection. It sends back what it has read before it reads more, and deletes itself when its
// peer has closed the connection.
template <typename Socket>
struct Session {
  explicit Session(Socket accepted) : socket(std::move(accepted)) {}

  // Returns a handler that calls `next` if its step has succeeded.
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
    bytes.resize(65536);
    socket.async_read_some(asio::buffer(bytes), then(&Session::write_bytes));
  }
  void write_bytes(size_t count) {
    asio::async_write(socket, asio::buffer(bytes, count), then(&Session::read_bytes));
  }

  void read_message(size_t = 0) {
    asio::async_read_until(socket, asio::dynamic_buffer(bytes), '\0',
                           then(&Session::write_message));
  }
  void write_message(size_t count) {
    message.assign(bytes, 0, count);
    bytes.erase(0, count);
    asio::async_write(socket, asio::buffer(message), then(&Session::read_message));
  }

  void read_chunk(size_t = 0) {
    asio::async_read(socket, asio::buffer(header), then(&Session::read_payload));
  }
  void read_payload(size_t) {
    bytes.resize(runenv::read_big_endian(header.data()));
    asio::async_read(socket, asio::buffer(bytes), then(&Session::write_chunk));
  }
  void write_chunk(size_t) {
    const std::array<asio::const_buffer, 2> chunk{asio::buffer(header), asio::buffer(bytes)};
    asio::async_write(socket, chunk, then(&Session::read_chunk));
  }

  Socket socket;
  std::array<char, 4> header{};
  std::string bytes, message;
};

template <typename Acceptor>
void accept(Acceptor& acceptor, const Address& address, Service service) {
  acceptor.async_accept([&acceptor, &address, service](error_code error, auto socket) {
    using Served = Session<decltype(socket)>;
    static constexpr void (Served::*kServices[])(size_t) = {
        &Served::read_bytes, &Served::read_message, &Served::read_chunk};
    require(!error, "async_accept");
    send_at_once(socket.native_handle(), address);
    (new Served(std::move(socket))->*kServices[static_cast<int>(service)])(0);
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
  address.path.empty() ? serve_with(asio::ip::tcp::v4(), address, service)
                       : serve_with(asio::local::stream_protocol(), address, service);
}

}  // namespace asio_server
