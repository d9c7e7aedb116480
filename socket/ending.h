// Internal: closing and freeing a connection.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "socket/connection.h"
#include "socket/flush.h"

namespace runenv {

// Ends the connection at `index` of its owner's vector: closes the descriptor, calls the closed
// callback, removes the record from the vector and from a running flush, and frees it. If the
// callback throws, the record is removed and freed, too, so that the callback never runs twice.
template <typename Record, typename Closed>
void end_connection(std::vector<Record*>& owned, size_t index, const Closed& closed) {
  struct Removal {
    std::vector<Record*>& owned;
    size_t index;
    ~Removal() {
      const std::unique_ptr<Record> record(owned[index]);
      owned.erase(owned.begin() + static_cast<ptrdiff_t>(index));
      leave_flush(record.get());
    }
  };
  const Removal removal{owned, index};
  Record* const record = owned[index];
  SocketASync::sock_close(record->fd);
  closed(record->context_object, record);
}

}  // namespace runenv
