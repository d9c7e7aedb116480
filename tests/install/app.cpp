// Somebody else's program: says hello to itself over a unix socket. What it uses of the library
// before main must be ready by then.
#include <core/buffer.h>
#include <runtime/runtime_core.h>
#include <socket/socket_async.h>

#include <cstdio>
#include <cstdlib>

// Names that the program has for itself. The library calls none of these.
void* allocate(unsigned long) {
  std::abort();
}
void throw_system_failure(int) {
  std::abort();
}
struct Extent {
  Extent() { std::abort(); }
  void cover(unsigned long) { std::abort(); }
};
class unique_fd {
 public:
  explicit unique_fd(int) { std::abort(); }
  ~unique_fd() { std::abort(); }
};

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

static Listener* listen_early() {
  Runtime.log("before main\n");
  return create_listener("consumer.sock", nullptr, accept_connection, ended);
}

static Listener* const listener = listen_early();

int main() {
  Runtime.startsocket();
  Client* const client = create_client("consumer.sock", nullptr, ended);
  if (listener == nullptr || client == nullptr) {
    return 1;
  }
  Raw::send_raw_block(client, "hello", sizeof "hello");
  for (int i = 0; i < 100 && !answered; ++i) {
    Runtime.poll(100);
  }
  mark_close(client);
  Runtime.poll(0);
  std::remove("consumer.sock");
  return answered ? 0 : 1;
}
