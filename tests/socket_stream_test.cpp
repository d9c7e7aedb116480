// Socket messages as streams, over both ends of one socket pair.
#include "stream/socket_stream.h"

#include "core/error.h"
#include "tests/socket_peer.h"

using namespace SocketASync;

class SocketStreamTest : public SocketTest {
 protected:
  ~SocketStreamTest() override { peer.reset(); }

  // Notes what each operation of a fresh stream answers.
  static void on_stream(void* context, Message::Inbound* message) {
    auto& seen = of(context)->messages;
    InstreamSockImpl input(message);
    Instream stream(input.stream());
    seen.push_back(std::to_string(stream.available_bytes()));
    stream.read(true, nullptr);  // nothing is held yet: just the terminator
    seen.push_back(std::to_string(input.cache.collected.size));
    char bytes[8] = {};
    EXPECT_EQ(input.stream()->read_block(bytes, 1), 1);
    seen.push_back(bytes + std::to_string(stream.available_bytes()));
    seen.push_back(stream.read(true, nullptr) + 1);        // the rest of the chunk that is held
    EXPECT_EQ(input.stream()->read_block(nullptr, 0), 0);  // fetches the next chunk
    seen.push_back(std::to_string(stream.available_bytes()));
    EXPECT_FALSE(stream.read_len(bytes, 8));
    seen.push_back(bytes);
  }

  std::unique_ptr<Peer> peer =
      connect_peer([](Connection* c) { Encoding::Chunked::create_encoding(c, on_stream); });
};

TEST_F(SocketStreamTest, InputHoldsOneChunkAtATime) {
  peer->send("\0\0\0\3abc\0\0\0\2de\0\0\0\0"s);
  ASSERT_TRUE(poll_until([&] { return messages.size() == 6; }));
  EXPECT_EQ(messages, (std::vector<std::string>{"0", "1", "a2", "bc", "2", "de"}));
}

TEST_F(SocketStreamTest, OutputSendsAChunkPerMiBAndAMessagePerFinalize) {
  OutstreamSockImpl output(connections[0]);
  output.finalize();  // nothing written: no message
  EXPECT_EQ(connections[0]->send_queue.head, nullptr);
  Outstream stream(output.stream());
  stream.write("abc");
  output.finalize();
  const std::string big((1 << 20) + 1, 'x');
  stream.write_len(big.data(), big.size());
  output.finalize();
  const std::string wire = "\0\0\0\3abc\0\0\0\0\0\x10\0\0"s + big.substr(1) + "\0\0\0\1x\0\0\0\0"s;
  EXPECT_TRUE(
      poll_until([&] { return peer->read_available(), peer->received.size() >= wire.size(); }));
  EXPECT_EQ(peer->received, wire);
}
