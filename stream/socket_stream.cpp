#include "stream/socket_stream.h"

#include <cstdlib>
#include <string>

#include "core/allocation.h"
#include "core/failure.h"
#include "socket/message.h"
#include "stream/block.h"

InstreamCache::InstreamCache(InstreamSockImpl* variant) : InstreamCache(kSocketMessage, variant) {}

InstreamSockImpl::InstreamSockImpl(SocketASync::Message::Inbound* inbound)
    : message(inbound), cache(this) {}

InstreamSockImpl::~InstreamSockImpl() {
  std::free(block);
}

// Fetches the next chunk. Returns false at the end of the message.
bool InstreamSockImpl::fetch_chunk() {
  const unsigned size = message->recv_chunk(nullptr, 0);
  if (size == 0) {
    return false;
  }
  std::free(block);
  block = static_cast<char*>(runenv::allocate(size));
  position = block;
  const unsigned received = message->recv_chunk(block, size);
  if (received != size) {
    runenv::throw_failure("loaded '" + std::to_string(received) + "' but should have consumed '" +
                          std::to_string(size) + "' bytes");
  }
  block_remaining = size;
  return true;
}

long long InstreamSockImpl::read_block(char* destination, unsigned count) {
  if (block_remaining == 0 && !fetch_chunk()) {
    return -1;
  }
  return runenv::take(&position, &block_remaining, destination, count);
}

void InstreamSockImpl::collect(Buffer* target) {
  if (block_remaining != 0) {
    target->append(position, block_remaining);
    block_remaining = 0;
  }
}

OutstreamCache::OutstreamCache(OutstreamSockImpl* variant)
    : OutstreamCache(kSocketMessage, variant) {}

OutstreamSockImpl::OutstreamSockImpl(SocketASync::Connection* borrowed)
    : connection(borrowed), cache(this) {}

OutstreamSockImpl::~OutstreamSockImpl() {
  cache.flush();
  delete message;  // without sending its end, on purpose
}

void OutstreamSockImpl::finalize() {
  cache.flush();
  if (message != nullptr) {
    SocketASync::Message::finalize_outbound(message);
    message = nullptr;
  }
}

void OutstreamSockImpl::send_staged(const char* bytes, uint64_t n) {
  if (message == nullptr) {
    message = SocketASync::Message::create_outbound(connection);
  }
  message->send_chunk(bytes, static_cast<unsigned>(n));
}
