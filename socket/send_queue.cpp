#include "socket/send_queue.h"

#include <algorithm>
#include <memory>

namespace SocketASync {

SendQueue::~SendQueue() {
  while (!empty()) {
    pop();
  }
}

void SendQueue::push(std::string_view header, std::string_view bytes) {
  const size_t size = header.size() + bytes.size();
  auto* const block = new SendBlock{Buffer(size)};
  std::copy_n(bytes.data(), bytes.size(),
              std::copy_n(header.data(), header.size(), block->bytes.array));
  block->bytes.size = size;
  (empty() ? head : tail->next) = block;
  tail = block;
}

void SendQueue::pop() {
  const std::unique_ptr<SendBlock> first(head);
  head = first->next;
  if (empty()) {
    tail = nullptr;
  }
}

}  // namespace SocketASync
