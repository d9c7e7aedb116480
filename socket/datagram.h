// Internal: the format of datagrams, and receiving them in poll.
#pragma once

#include "socket/endpoint.h"

namespace runenv {

inline constexpr char kPrefix[4] = {'Q', 'V', 'I', 'R'};
inline constexpr unsigned short kMaximumPayload = 65531;

// Receives one datagram from a readable endpoint and passes it to the callback.
void receive_datagram(SocketASync::EndPoint* endpoint);

// Returns whether the endpoint's callback is running. Do not drop a running callback.
bool callback_runs(const SocketASync::EndPoint* endpoint);

}  // namespace runenv
