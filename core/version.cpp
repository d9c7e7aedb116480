#include "core/version.h"

const char* runenv_version() {
  return RUNENV_VERSION;
}
