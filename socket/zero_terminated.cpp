#include "socket/zero_terminated.h"

#include <cstring>
#include <string>

#include "runtime/runtime_core.h"
#include "socket/decoder.h"
#include "socket/first_exception.h"

namespace SocketASync {

namespace {

// Exists while the callback runs. Removes its message afterwards, even if the callback throws.
struct Delivering {
  explicit Delivering(ZeroTerminatedState* decoder) : state(decoder) { state->delivering = true; }
  ~Delivering() {
    state->collected.release();
    state->collected.consumed = 0;  // the callback may have read from it
    state->delivering = false;
  }
  Delivering(const Delivering&) = delete;
  Delivering& operator=(const Delivering&) = delete;

  ZeroTerminatedState* state;
};

}  // namespace

static void deliver(ZeroTerminatedState* state, Connection* connection) {
  if (genv_debug_verbose) {
    Runtime.log(RuntimeCore::SGR::Green, "Collected message on '%s' [%llu].\n",
                connection->name.c_str(), state->collected.length());
  }
  const Delivering delivering(state);
  state->callback(&state->collected, connection->context_object, connection);
}

namespace Encoding {

void ZeroTerminated::create_encoding(Connection* connection,
                                     void (*callback)(Buffer*, void*, Connection*)) {
  auto* const state = new ZeroTerminatedState{callback};
  runenv::install_decoder(connection, EncodingKind::ZeroTerminated, state, collect);
}

void ZeroTerminated::collect(const char* data, unsigned int length, void*, Connection* connection) {
  auto* const state = static_cast<ZeroTerminatedState*>(connection->encoder_state);
  const char* const end = data + length;
  runenv::FirstException failure;
  while (data != end && connection->encoder_state == state) {
    const size_t left = static_cast<size_t>(end - data);
    const char* const zero = static_cast<const char*>(std::memchr(data, 0, left));
    if (zero == nullptr) {
      state->collected.append(data, left);
      break;
    }
    state->collected.append(data, static_cast<size_t>(zero - data));
    data = zero + 1;
    failure.run([&] { deliver(state, connection); });
  }
  if (connection->encoder_state != state) {
    failure.run([&] { runenv::pass_on(std::string(data, end), connection); });
    delete state;
  }
  failure.rethrow();
}

}  // namespace Encoding
}  // namespace SocketASync
