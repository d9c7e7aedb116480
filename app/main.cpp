#include "app/entry_point.h"
#include "core/error.h"
#include "process/interruption.h"
#include "process/standard_descriptors.h"
#include "runtime/runtime_core.h"
#include "schema/update.h"

int main(int argc, char** argv) {
  runenv::open_standard_descriptors();
  image___update___root_t command_line{};
  image___update___do_parse(argc, argv, &command_line);
  runenv::undo_on_signals();
  try {
    entry_point(nullptr, &command_line);
  } catch (const Error& error) {
    Runtime.error("Fatal error[uncaught exception]: %s\n", error.message);
    return 1;
  }
  return 0;
}
