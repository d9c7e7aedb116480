// Two datagram endpoints that talk: one asks, the other answers.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "runtime/runtime_core.h"
#include "socket/socket_async.h"

using namespace SocketASync;

static void answer(void*, const void* payload, unsigned short length, const char* sender,
                   EndPoint* endpoint) {
  const std::string text(static_cast<const char*>(payload), length);
  Runtime.log("%s asks: %s\n", sender, text.c_str());
  const std::string reply = std::to_string(text.size()) + " bytes";
  // Ignore the result: it is false even on success.
  endpoint_sendto(endpoint, sender, reply.data(), static_cast<unsigned short>(reply.size()));
}

static void print_answer(void* answered, const void* payload, unsigned short length,
                         const char* sender, EndPoint*) {
  Runtime.log("%s answers: %.*s\n", sender, int{length}, static_cast<const char*>(payload));
  *static_cast<bool*>(answered) = true;
}

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
    std::puts(
        "usage: datagrams DIRECTORY TEXT\n\n"
        "Opens two endpoints in DIRECTORY, sends TEXT from one to the other and prints what\n"
        "comes back.");
    return 0;
  }
  if (argc != 3 || std::strlen(argv[2]) > 65531) {
    std::fputs("usage: datagrams DIRECTORY TEXT\n", stderr);
    return 1;
  }
  const std::string asking_path = std::string(argv[1]) + "/asking";
  const std::string answering_path = std::string(argv[1]) + "/answering";
  bool answered = false;
  Runtime.startsocket();
  EndPoint* const asking = endpoint_create(asking_path.c_str(), &answered, print_answer);
  EndPoint* const answering = endpoint_create(answering_path.c_str(), nullptr, answer);
  if (asking == nullptr || answering == nullptr) {
    return 1;  // endpoint_create has printed the reason
  }
  endpoint_sendto(asking, answering_path.c_str(), argv[2],
                  static_cast<unsigned short>(std::strlen(argv[2])));
  for (int tries = 0; !answered && tries < 10; ++tries) {
    Runtime.poll(100);
  }
  endpoint_destroy(asking);
  endpoint_destroy(answering);
  Runtime.poll(0);  // closes them
  std::remove(asking_path.c_str());
  std::remove(answering_path.c_str());
  return answered ? 0 : 1;
}
