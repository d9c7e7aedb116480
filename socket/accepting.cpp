#include "socket/accepting.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>

#include "runtime/runtime_core.h"
#include "socket/descriptor.h"

namespace runenv {

using namespace std::chrono_literals;
using SocketASync::Connection;
using SocketASync::Listener;
using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

namespace {

// The pause doubles with every failure until accepting succeeds.
struct AcceptPause {
  void lengthen() {
    length = std::clamp<microseconds>(2 * length, 10ms, 1s);
    end = Clock::now() + length;
  }
  void lift() { length = kNone; }
  microseconds left() const {
    return length == kNone ? kNone : std::max(kNone, ceil<microseconds>(end - Clock::now()));
  }

  static constexpr microseconds kNone{0};
  microseconds length = kNone;
  Clock::time_point end;
};

}  // namespace

static AcceptPause accept_pause;

// Returns the errno of an accept that returned `fd`, or 0 on success. A descriptor that does not
// fit in a descriptor set counts as one too many.
static int accept_error(int fd) {
  if (fd < 0) {
    return errno;
  }
  return fits_descriptor_set(fd) ? 0 : EMFILE;
}

void accept_connection(Listener* listener) {
  char peer[16];  // room for an IPv4 address, which is not used
  socklen_t length = sizeof peer;
  auto owned = std::make_unique<Connection>();
  listener->connections.push_back(owned.get());
  Connection* const connection = owned.release();
  connection->fd = accept4(listener->fd, reinterpret_cast<sockaddr*>(peer), &length,
                           SOCK_CLOEXEC | SOCK_NONBLOCK);
  const int error_number = accept_error(connection->fd);
  set_no_delay(connection->fd);
  connection->name = listener->name + ":" + std::to_string(connection->fd);
  if (genv_debug_info) {
    Runtime.log("New connection on '%s' named '%s'.\n", listener->name.c_str(),
                connection->name.c_str());
  }
  if (error_number == 0) {
    accept_pause.lift();
  } else if (report_socket_error("accept", connection, error_number)) {
    accept_pause.lengthen();
  }
  connection->context_object = listener->factory(listener->context, connection);
}

microseconds accept_pause_left() {
  return accept_pause.left();
}

}  // namespace runenv
