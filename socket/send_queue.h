// The queued output of a connection.
#pragma once

#include <string_view>

#include "core/buffer.h"

namespace SocketASync {

// One block of output.
struct SendBlock {
  Buffer bytes;               // the unread part is still to be sent
  SendBlock* next = nullptr;  // the next block
};

// The blocks in the order of sending. The queue owns them. Raw::send_raw_block and
// Message::Outbound add blocks, poll removes them.
struct SendQueue {
  SendQueue() = default;
  ~SendQueue();
  SendQueue(const SendQueue&) = delete;
  SendQueue& operator=(const SendQueue&) = delete;

  // Returns true if there is no block.
  bool empty() const { return head == nullptr; }

  // Appends one block with copies of `header` and `bytes`.
  void push(std::string_view header, std::string_view bytes);

  // Appends a copy of `end`, the end of a message, to the last block, which was made with spare
  // room for it. If there is no block or no room, appends a new block.
  void push_end(std::string_view end);

  // Frees the first block, which must exist.
  void pop();

  SendBlock* head = nullptr;  // the first block, null if empty
  SendBlock* tail = nullptr;  // the last block, null if empty
};

}  // namespace SocketASync
