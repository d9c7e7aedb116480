#include "app/entry_point.h"

#include <csetjmp>
#include <cstdlib>

#include "app/update_runenv.h"
#include "fs/file_interface.h"
#include "runtime/runtime_core.h"
#include "schema/layout.h"
#include "schema/update.h"
#include "schema/version_info.h"
#include "schema/version_info_bin.h"
#include "stream/istream.h"

namespace Layout = runenv::Layout;

static constexpr char kDefaultTempCache[] = ".update";

// Loads the document at `path` or ends the process. No local variable may have a destructor,
// because a malformed document causes a longjmp to the recovery point.
static const image___version_info___root_t* load_versions(const char* path) {
  // The document is never freed: it is used until the process ends. The pointer is static so that a
  // leak checker finds it.
  static image___version_info___root_t* versions;
  dympage_t* const allocator = image___version_info___create_allocator_f();
  versions = image___version_info___root_t___allocate_f(allocator);
  if (setjmp(versions->recovery) != 0) {
    Runtime.error("Unable to parse versions: %s\n", versions->error);
    std::exit(1);
  }
  bucket_t file_name = fs_init(path);
  static istream* stream;  // also static for the leak checker: a malformed document leaves it open
  stream = fs_open_read(&file_name);
  if (stream == nullptr) {
    Runtime.error("Unable to open versions '%s'\n", path);
    std::exit(1);
  }
  if (image___version_info___parse_bin_f(allocator, versions, stream) != 0) {
    longjmp(versions->recovery, 1);
  }
  istream_destroy(stream);
  bucket_release(&file_name);
  image___version_info___finalize_f(versions);
  return versions;
}

void entry_point(const char*, const image___update___root_t* command_line) {
  const char* const platform =
      command_line->target.present ? command_line->target.value : Layout::kDefaultPlatform;
  const image___version_info___root_t* const versions =
      load_versions(command_line->version_info.value);
  const update_settings_t settings{
      .temp_cache =
          command_line->temp_cache.present ? command_line->temp_cache.value : kDefaultTempCache,
      .with_platform = command_line->skip_platform.present == 0,
      .lock_latest = command_line->lock_latest.present != 0,
  };
  update_runenv(&settings, RUNENV_BASE_URL, Layout::kTreeRoot, versions, platform);
}
