// Sends every zero-terminated message back. Listens on TCP and on a unix path at the same time.

#include <cstdio>
#include <cstring>

#include "core/buffer.h"
#include "runtime/runtime_core.h"
#include "socket/socket_async.h"

using namespace SocketASync;

static void echo(Buffer* message, void*, Connection* connection) {
  Message::Outbound* const answer = Message::create_outbound(connection);
  answer->send_chunk(message->get_unmanaged_array(), static_cast<unsigned>(message->length()));
  Message::finalize_outbound(answer);
}

// Called for every accepted connection. Its result is passed to all later callbacks.
static void* accept_connection(void*, Connection* connection) {
  Encoding::ZeroTerminated::create_encoding(connection, echo);
  return nullptr;
}

static void connection_closed(void*, Connection* connection) {
  Runtime.log("%s is gone\n", connection->name.c_str());
}

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
    std::puts(
        "usage: echo_server PORT PATH\n\n"
        "Listens on 127.0.0.1:PORT and on the unix socket PATH until it is killed and\n"
        "answers every zero-terminated message with the same message.");
    return 0;
  }
  if (argc != 3) {
    std::fputs("usage: echo_server PORT PATH\n", stderr);
    return 1;
  }
  genv_debug_info = true;  // log when connections open and close
  Runtime.startsocket();
  if (create_listener("127.0.0.1", argv[1], "tcp", nullptr, accept_connection, connection_closed) ==
          nullptr ||
      create_listener(argv[2], nullptr, accept_connection, connection_closed) == nullptr) {
    return 1;  // create_listener has printed the reason
  }
  for (;;) {
    Runtime.poll(1000);
  }
}
