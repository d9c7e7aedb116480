// A program of a user: it sends itself a message over a unix socket. It uses the library already
// before main.
#include <core/buffer.h>
#include <runtime/runtime_core.h>
#include <socket/socket_async.h>

#include <cstdio>

// The program has its own types of these names.
struct unique_fd {};
struct Extent {};

using namespace SocketASync;

static bool answered = false;

static void answer(Buffer* message, void*, Connection*) {
  Runtime.log("received %.*s\n", static_cast<int>(message->length()),
              message->get_unmanaged_array());
  answered = true;
}

static void* accept_connection(void*, Connection* connection) {
  Encoding::ZeroTerminated::create_encoding(connection, answer);
  return nullptr;
}

static void ended(void*, Connection*) {}

static Listener* const listener =
    (Runtime.log("before main\n"), create_listener("app.sock", nullptr, accept_connection, ended));

int main() {
  Runtime.startsocket();
  Client* const client = create_client("app.sock", nullptr, ended);
  if (listener == nullptr || client == nullptr) return 1;
  Raw::send_raw_block(client, "hello", sizeof "hello");
  for (int i = 0; i < 100 && !answered; ++i) Runtime.poll(100);
  mark_close(client);
  Runtime.poll(0);
  std::remove("app.sock");
  return answered ? 0 : 1;
}
