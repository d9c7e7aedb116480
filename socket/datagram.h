// Internal: datagrams of endpoints: their format and poll's part of the work.
#pragma once

#include "socket/endpoint.h"

namespace runenv {

inline constexpr char kPrefix[4] = {'Q', 'V', 'I', 'R'};
inline constexpr unsigned short kMaximumPayload = 65531;

// Receives one datagram on a readable endpoint and hands it to the callback.
void receive_datagram(SocketASync::EndPoint* endpoint);

// Whether the endpoint's callback runs: it may not be destroyed before it returns.
bool callback_runs(const SocketASync::EndPoint* endpoint);

}  // namespace runenv
