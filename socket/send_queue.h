// What a connection has yet to send.
#pragma once

#include <string_view>

#include "core/buffer.h"

namespace SocketASync {

// One queued outbound piece.
struct SendBlock {
  Buffer bytes;               // its unread part is still to be sent
  SendBlock* next = nullptr;  // the one to send after it
};

// The blocks in the order of sending, which the queue owns. Raw::send_raw_block and
// Message::Outbound put them in, poll takes them out.
struct SendQueue {
  SendQueue() = default;
  ~SendQueue();
  SendQueue(const SendQueue&) = delete;
  SendQueue& operator=(const SendQueue&) = delete;

  // True when nothing waits.
  bool empty() const { return head == nullptr; }

  // Appends one block with copies of `header` and, behind it, `bytes`.
  void push(std::string_view header, std::string_view bytes);

  // Appends a copy of `end`, the end of a message, to the last block: every block is made with room
  // for one. Where that room is used up, or nothing waits, it becomes a block of its own.
  void push_end(std::string_view end);

  // Frees the first block; there must be one.
  void pop();

  SendBlock* head = nullptr;  // null when nothing waits
  SendBlock* tail = nullptr;  // the last block, likewise
};

}  // namespace SocketASync
