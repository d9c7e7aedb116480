// The one process-wide runtime object: console output, and the hub of an embedding program's main
// loop.
//
// Use it from one thread. Other threads may log; set the prefix before they do.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One callback registered with RuntimeCore::register_event.
struct RuntimeCoreEvent {
  uint32_t id;                       // its position in the list
  void (*callback)(void* argument);  // called by every poll
  void* argument;                    // what it is called with
};

// The type of `Runtime`, the only object of it.
class RuntimeCore {
 public:
  // Console colours; the values are the terminal's own codes (select graphic rendition).
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

  // Makes an object without a prefix and events, whose sockets are not started.
  RuntimeCore();
  RuntimeCore(const RuntimeCore&) = delete;
  RuntimeCore& operator=(const RuntimeCore&) = delete;

  // From now on every message begins with "[" + prefix + "] ". The prefix becomes part of the
  // format text: a "%" in it is read as a conversion. It must not be null.
  void setup_prefix(const char* prefix);

  // Messages are plain again.
  void reset_prefix();

  // Print a message to standard output (log) or standard error (error) and flush it at once. Format
  // and arguments are printf's. No newline is added. Output errors are ignored.
  // %n is not supported. It would count the prefix and the colour as well. A hardened C library
  // even ends the process, because the format text is in writable memory.
  [[gnu::format(printf, 2, 3)]] void log(const char* format, ...);
  [[gnu::format(printf, 2, 3)]] void error(const char* format, ...);

  // The same in a colour, reset after the text. The prefix stays uncoloured.
  [[gnu::format(printf, 3, 4)]] void log(SGR colour, const char* format, ...);
  [[gnu::format(printf, 3, 4)]] void error(SGR colour, const char* format, ...);

  // Has every poll call `callback` with `argument`. Returns the event's id. Kept as it is: once a
  // null callback is registered, every later registration returns its id and stores nothing.
  uint32_t register_event(void (*callback)(void* argument), void* argument);

  // Does nothing: an event stays registered for good.
  void deregister_event(uint32_t id);

  // Runs the event callbacks in the order of their registration. Events that a callback registers
  // run from the next poll on. Then, if the sockets are started, makes one pass of the socket
  // layer, which waits up to `milliseconds`. Without sockets it never waits.
  void poll(uint32_t milliseconds);

  // Start and stop the socket layer. A second start or stop does nothing.
  void startsocket();
  void shutdown();

  // Polls the socket layer, if started, until all queued output has gone out.
  void flush();

  // Suspends the thread. The microseconds are counted in 32 bits: from 4,294,968 ms on, about 71.6
  // minutes, they wrap.
  void sleep(uint64_t milliseconds);

  // The process id.
  int pid();

 private:
  struct State {
    std::string prefix;
    bool prefix_enabled = false;
    bool sockets_started = false;
    std::vector<RuntimeCoreEvent> events;
  };
  State* state;  // never freed: the one instance lives until the process ends
};

// The single instance, made before every other static object and never destroyed.
extern RuntimeCore Runtime;

// Diagnostic output of the socket layer, off until an embedding program switches it on:
// informational messages, and a trace of every message.
extern bool genv_debug_info;
extern bool genv_debug_verbose;
