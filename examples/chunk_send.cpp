// Sends a file and further messages to a chunk_receive. All messages are chunked.

#include <cstdio>
#include <cstring>

#include "core/error.h"
#include "runtime/runtime_core.h"
#include "socket/socket_async.h"
#include "stream/instream.h"
#include "stream/socket_stream.h"

using namespace SocketASync;

static bool closed = false;

// Sends the file as one message, one chunk for every MiB.
static void send_file(Connection* connection, const char* path) {
  InstreamPathImpl input(path);
  OutstreamSockImpl output(connection);
  char bytes[4096];
  for (long long n; (n = input.stream()->read_block(bytes, sizeof bytes)) > 0;) {
    output.stream()->write(bytes, static_cast<unsigned long long>(n));
  }
  output.finalize();
}

static void send_text(Connection* connection, const char* text) {
  Message::Outbound* const message = Message::create_outbound(connection);
  message->send_chunk(text, static_cast<unsigned>(std::strlen(text)));
  Message::finalize_outbound(message);
}

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
    std::puts(
        "usage: chunk_send PATH FILE [MESSAGE...]\n\n"
        "Sends FILE, which must not be empty, as one chunked message and then every MESSAGE\n"
        "as one more to the chunk_receive that listens on the unix socket PATH.");
    return 0;
  }
  if (argc < 3) {
    std::fputs("usage: chunk_send PATH FILE [MESSAGE...]\n", stderr);
    return 1;
  }
  genv_debug_info = true;  // print why a connection fails
  Runtime.startsocket();
  Client* const client = create_client(argv[1], nullptr, [](void*, Connection*) { closed = true; });
  if (client == nullptr) {
    return 1;
  }
  Encoding::Chunked::create_encoding(client, [](void*, Message::Inbound*) {});
  try {
    send_file(client, argv[2]);
  } catch (const Error& error) {
    Runtime.error("chunk_send: %s\n", error.message);
    return 1;
  }
  for (int i = 3; i < argc; ++i) {
    send_text(client, argv[i]);
  }
  mark_close(client);  // closes the connection once all has been sent
  while (!closed) {
    Runtime.poll(1000);
  }
  return 0;
}
