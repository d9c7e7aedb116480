// Sends one zero-terminated message to the server on a unix path and prints the answer.

#include <cstdio>
#include <cstring>

#include "core/buffer.h"
#include "runtime/runtime_core.h"
#include "socket/socket_async.h"

using namespace SocketASync;

struct Talk {
  bool answered = false;
  bool closed = false;
};

static void print_answer(Buffer* message, void* talk, Connection* connection) {
  Runtime.log("%.*s\n", static_cast<int>(message->length()), message->get_unmanaged_array());
  static_cast<Talk*>(talk)->answered = true;
  mark_close(connection);
}

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: ask PATH TEXT\n", stderr);
    return 1;
  }
  genv_debug_info = true;  // print why a connection fails
  Runtime.startsocket();
  Talk talk;
  Client* const client = create_client(argv[1], &talk, [](void* context, Connection*) {
    static_cast<Talk*>(context)->closed = true;
  });
  if (client == nullptr) {
    return 1;  // create_client has printed the reason
  }
  Encoding::ZeroTerminated::create_encoding(client, print_answer);
  Message::Outbound* const question = Message::create_outbound(client);
  question->send_chunk(argv[2], static_cast<unsigned>(std::strlen(argv[2])));
  Message::finalize_outbound(question);
  while (!talk.closed) {  // also ends if the server closes the connection
    Runtime.poll(1000);
  }
  return talk.answered ? 0 : 1;
}
