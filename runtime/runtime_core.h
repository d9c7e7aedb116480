// The process-wide runtime object: console output and the main loop of an embedding program.
//
// Not thread-safe, with one exception: other threads may call log and error while no thread changes
// the prefix.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One callback registered with RuntimeCore::register_event.
struct RuntimeCoreEvent {
  uint32_t id;                       // its index in the list
  void (*callback)(void* argument);  // called by every poll
  void* argument;                    // passed to the callback
};

// The type of `Runtime`, its only instance.
class RuntimeCore {
 public:
  // Console colours. The values are the terminal's codes (select graphic rendition).
  enum class SGR {
    // Normal.
    Black = 30,
    Red = 31,
    Green = 32,
    Yellow = 33,
    Blue = 34,
    Magenta = 35,
    Cyan = 36,
    White = 37,

    // Bright.
    BrightBlack = 90,
    BrightRed = 91,
    BrightGreen = 92,
    BrightYellow = 93,
    BrightBlue = 94,
    BrightMagenta = 95,
    BrightCyan = 96,
    BrightWhite = 97,
  };

  // Makes an object without a prefix and without events. The socket layer is not started.
  RuntimeCore();
  RuntimeCore(const RuntimeCore&) = delete;
  RuntimeCore& operator=(const RuntimeCore&) = delete;

  // Makes every message begin with "[" + prefix + "] ". The prefix becomes part of the format
  // string: a "%" in it is a conversion. The prefix must not be null.
  void setup_prefix(const char* prefix);

  // Ends the use of the prefix.
  void reset_prefix();

  // Print a message to standard output (log) or standard error (error) and flush it. Format and
  // arguments are as for printf. No newline is added. Output errors are ignored.
  // %n is not supported: it would count the prefix and the colour, too, and a hardened C library
  // ends the process, because the format string is in writable memory.
  [[gnu::format(printf, 2, 3)]] void log(const char* format, ...);
  [[gnu::format(printf, 2, 3)]] void error(const char* format, ...);

  // The same in a colour, which is reset after the text. The prefix is not coloured.
  [[gnu::format(printf, 3, 4)]] void log(SGR colour, const char* format, ...);
  [[gnu::format(printf, 3, 4)]] void error(SGR colour, const char* format, ...);

  // Makes every poll call `callback` with `argument`. Returns the event's id. Kept on purpose: once
  // a null callback is registered, every later registration returns its id and stores nothing.
  uint32_t register_event(void (*callback)(void* argument), void* argument);

  // Does nothing: events stay registered.
  void deregister_event(uint32_t id);

  // Calls the event callbacks in the order of registration. An event that a callback registers is
  // called from the next poll on. Then makes one pass of the socket layer, if that is started, and
  // waits up to `milliseconds` in it. Without the socket layer it does not wait.
  void poll(uint32_t milliseconds);

  // Start and stop the socket layer. The start makes the process ignore SIGPIPE. A second start or
  // stop does nothing.
  void startsocket();
  void shutdown();

  // Polls the socket layer, if started, until all queued output has been sent.
  void flush();

  // Suspends the thread. The number of microseconds is computed in 32 bits: it overflows from
  // 4,294,968 ms (71.6 minutes) on.
  void sleep(uint64_t milliseconds);

  // Returns the process id.
  int pid();

 private:
  struct State {
    std::string prefix;
    bool prefix_enabled = false;
    bool sockets_started = false;
    std::vector<RuntimeCoreEvent> events;
  };
  State* state;  // never freed: the only instance lives until the process ends
};

// The only instance. It is constructed before every other static object and never destroyed.
extern RuntimeCore Runtime;

// Diagnostic output of the socket layer: informational messages, and a trace of every message. Both
// are off by default.
extern bool genv_debug_info;
extern bool genv_debug_verbose;
