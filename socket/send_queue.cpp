#include "socket/send_queue.h"

#include <algorithm>
#include <memory>

namespace SocketASync {

static constexpr size_t kEndRoom = 4;  // for the longest end of a message

SendQueue::~SendQueue() {
  while (!empty()) {
    pop();
  }
}

void SendQueue::push(std::string_view header, std::string_view bytes) {
  const size_t size = header.size() + bytes.size();
  auto* const block = new SendBlock{Buffer(size + kEndRoom)};
  std::copy_n(bytes.data(), bytes.size(),
              std::copy_n(header.data(), header.size(), block->bytes.array));
  block->bytes.size = size;
  (empty() ? head : tail->next) = block;
  tail = block;
}

void SendQueue::push_end(std::string_view end) {
  if (empty() || tail->bytes.capacity - tail->bytes.size < end.size()) {
    push(end, {});
    return;
  }
  std::copy_n(end.data(), end.size(), tail->bytes.array + tail->bytes.size);
  tail->bytes.size += end.size();
}

void SendQueue::pop() {
  const std::unique_ptr<SendBlock> first(head);
  head = first->next;
  if (empty()) {
    tail = nullptr;
  }
}

}  // namespace SocketASync
