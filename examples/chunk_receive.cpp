// Receives a file and further messages from one chunk_send. All messages are chunked.

#include <cstdio>
#include <cstring>

#include "core/buffer.h"
#include "core/error.h"
#include "runtime/runtime_core.h"
#include "socket/socket_async.h"
#include "stream/outstream.h"
#include "stream/socket_stream.h"

using namespace SocketASync;

// The state of the sender. The socket layer passes it to the callbacks.
struct Sender {
  const char* file;  // null once the file has been received
  bool gone = false;
};

static void receive_file(Message::Inbound* message, const char* path) {
  InstreamSockImpl input(message);
  OutstreamPathImpl output(path, false);
  char bytes[4096];
  for (long long n; (n = input.stream()->read_block(bytes, sizeof bytes)) > 0;) {
    output.stream()->write(bytes, static_cast<unsigned long long>(n));
  }
  if (output.finalize() != 0) {
    Runtime.error("'%s' is not complete\n", path);
  }
}

static void print_message(Message::Inbound* message) {
  Buffer text(0);
  char bytes[4096];
  InstreamSockImpl input(message);
  for (long long n; (n = input.stream()->read_block(bytes, sizeof bytes)) > 0;) {
    text.append(bytes, static_cast<unsigned long long>(n));
  }
  Runtime.log("%.*s\n", static_cast<int>(text.length()), text.get_unmanaged_array());
}

// Called when the first chunk of a message is complete. Reading blocks until the rest arrives.
static void on_message(void* context, Message::Inbound* message) {
  auto* sender = static_cast<Sender*>(context);
  if (sender->file != nullptr) {
    receive_file(message, sender->file);
    sender->file = nullptr;
  } else {
    print_message(message);
  }
}

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
    std::puts(
        "usage: chunk_receive PATH FILE\n\n"
        "Listens on the unix socket PATH for one sender, writes its first message to FILE,\n"
        "prints its further messages, one a line, and ends with it.");
    return 0;
  }
  if (argc != 3) {
    std::fputs("usage: chunk_receive PATH FILE\n", stderr);
    return 1;
  }
  Runtime.startsocket();
  Sender sender{argv[2]};
  Listener* const listener = create_listener(
      argv[1], &sender,
      [](void* context, Connection* connection) {
        Encoding::Chunked::create_encoding(connection, on_message);
        set_timeout(connection, 10);  // in seconds, for a sender that stops within a message
        return context;
      },
      [](void* context, Connection*) { static_cast<Sender*>(context)->gone = true; });
  if (listener == nullptr) {
    return 1;  // create_listener has printed the reason
  }
  try {
    while (!sender.gone) {
      Runtime.poll(1000);
    }
  } catch (const Error& error) {  // thrown by a read in on_message
    Runtime.error("chunk_receive: %s\n", error.message);
    return 1;
  }
  destroy_listener(listener);
  std::remove(argv[1]);
  return sender.file != nullptr;
}
