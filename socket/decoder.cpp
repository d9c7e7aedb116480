#include "socket/decoder.h"

#include "socket/zero_terminated.h"

namespace runenv {

using namespace SocketASync;

static bool callback_runs(const Connection* connection) {
  switch (connection->encoding_kind) {
    case EncodingKind::None:
      break;
    case EncodingKind::ZeroTerminated:
      return static_cast<const ZeroTerminatedState*>(connection->encoder_state)->delivering;
    case EncodingKind::Chunked:
      return static_cast<const ChunkedState*>(connection->encoder_state)->streaming;
  }
  return false;
}

void install_decoder(Connection* connection, EncodingKind kind, void* state,
                     DecoderReceiver collect) {
  if (!callback_runs(connection)) {
    free_encoder_state(connection->encoding_kind, connection->encoder_state);
  }
  connection->encoder_state = state;
  connection->encoding_kind = kind;
  connection->receiver = collect;
  connection->has_receiver = true;
}

void pass_on(std::string&& bytes, Connection* connection) {
  if (!bytes.empty()) {
    connection->receiver(bytes.data(), static_cast<unsigned int>(bytes.size()),
                         connection->context_object, connection);
  }
}

void free_encoder_state(EncodingKind kind, void* state) {
  switch (kind) {
    case EncodingKind::None:
      break;
    case EncodingKind::ZeroTerminated:
      delete static_cast<ZeroTerminatedState*>(state);
      break;
    case EncodingKind::Chunked:
      free_chunked_state(static_cast<ChunkedState*>(state));
      break;
  }
}

}  // namespace runenv
