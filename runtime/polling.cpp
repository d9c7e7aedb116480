#include <unistd.h>

#include "runtime/runtime_core.h"
#include "socket/poll.h"

uint32_t RuntimeCore::register_event(void (*callback)(void*), void* argument) {
  for (const RuntimeCoreEvent& event : state->events) {
    if (event.callback == nullptr) {
      return event.id;  // does not fill the slot, on purpose
    }
  }
  const auto id = static_cast<uint32_t>(state->events.size());
  state->events.push_back({id, callback, argument});
  return id;
}

void RuntimeCore::deregister_event(uint32_t) {}

void RuntimeCore::poll(uint32_t milliseconds) {
  // By index, because a callback may register events. Those are called from the next poll on.
  const size_t count = state->events.size();
  for (size_t i = 0; i < count; ++i) {
    const RuntimeCoreEvent event = state->events[i];
    if (event.callback != nullptr) {
      event.callback(event.argument);
    }
  }
  if (state->sockets_started) {
    SocketASync::poll(milliseconds);
  }
}

void RuntimeCore::startsocket() {
  if (!state->sockets_started) {
    state->sockets_started = true;
    SocketASync::msg_init();
  }
}

void RuntimeCore::shutdown() {
  if (state->sockets_started) {
    SocketASync::msg_shutdown();
    state->sockets_started = false;
  }
}

void RuntimeCore::flush() {
  if (state->sockets_started) {
    SocketASync::flush();
  }
}

void RuntimeCore::sleep(uint64_t milliseconds) {
  // The product has 32 bits on purpose.
  usleep(static_cast<uint32_t>(milliseconds) * 1000U);
}

int RuntimeCore::pid() {
  return getpid();
}
