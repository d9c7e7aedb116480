// The one process-wide runtime object: console output, and the hub of an embedding program's main
// loop.
//
// Single-threaded by design: use it from one thread, and set the prefix before others log.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One callback registered with RuntimeCore::register_event.
struct RuntimeCoreEvent {
  uint32_t id;  // its position in the list
  void (*callback)(void* argument);
  void* argument;
};

class RuntimeCore {
 public:
  // Console colours; the values are the terminal's own codes (select graphic rendition).
  enum class SGR {
    Black = 30,
    Red = 31,
    Green = 32,
    Yellow = 33,
    Blue = 34,
    Magenta = 35,
    Cyan = 36,
    White = 37,
    BrightBlack = 90,
    BrightRed = 91,
    BrightGreen = 92,
    BrightYellow = 93,
    BrightBlue = 94,
    BrightMagenta = 95,
    BrightCyan = 96,
    BrightWhite = 97,
  };

  RuntimeCore();
  RuntimeCore(const RuntimeCore&) = delete;
  RuntimeCore& operator=(const RuntimeCore&) = delete;

  // From now on every message begins with "[" + prefix + "] ". The prefix becomes part of the
  // format text: a "%" in it is read as a conversion. It must not be null.
  void setup_prefix(const char* prefix);

  // Messages are plain again.
  void reset_prefix();

  // Prints a message to standard output (log) or standard error (error) and flushes it at once.
  // Format and arguments are printf's; no newline is added. Output errors are ignored.
  // %n is not supported: it would count the prefix and the colour as well, and a hardened C library
  // ends the process over it, because the format text is composed in writable memory.
  [[gnu::format(printf, 2, 3)]] void log(const char* format, ...);
  [[gnu::format(printf, 2, 3)]] void error(const char* format, ...);

  // The same in a colour, reset after the text. The prefix stays uncoloured.
  [[gnu::format(printf, 3, 4)]] void log(SGR colour, const char* format, ...);
  [[gnu::format(printf, 3, 4)]] void error(SGR colour, const char* format, ...);

  // Has every poll call `callback` with `argument`; returns the event's id. Kept as it is: once a
  // null callback is registered, every later registration returns its id and stores nothing.
  uint32_t register_event(void (*callback)(void* argument), void* argument);

  // Does nothing: an event stays registered for good.
  void deregister_event(uint32_t id);

  // Runs the event callbacks in the order of their registration, then, if the sockets are started,
  // one pass of the socket layer, which waits up to `milliseconds`. Without sockets it never waits.
  // Events that a callback registers run from the next poll on.
  void poll(uint32_t milliseconds);

  // Starts and stops the socket layer; a second start or stop is harmless.
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

// Diagnostic output of the socket layer, off unless an embedding program switches it on:
// informational messages, and a trace of every message.
extern bool genv_debug_info;
extern bool genv_debug_verbose;
