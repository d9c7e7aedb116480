#include "app/update_runenv.h"

#include "fs/path.h"
#include "schema/layout.h"

namespace Layout = runenv::Layout;

using system_type_t = image___version_info___root___system_types_t;

static fs::path_t platform_directory(fs::path_t root, const char* version) {
  return root.join(Layout::kPlatform).join(version);
}

static fs::path_t system_type_directory(fs::path_t root, const system_type_t* type) {
  return root.join(Layout::kSystemTypes).join(type->key).join(type->version);
}

void update_runenv(const update_settings_t* settings, const char* base_url, const char* tree_root,
                   const image___version_info___root_t* versions, const char* platform) {
  const fs::path_t remote_root = fs::path_t(tree_root).join(Layout::kEnvironment);
  const fs::path_t local_root(Layout::kEnvironment);
  if (settings->with_platform) {
    const char* const version = versions->platform_version;
    update_package(settings, base_url, platform_directory(remote_root, version).cstring(),
                   platform_directory(local_root, version).cstring(), platform);
  }
  image___version_info___root___system_types_t___iterator_t iterator;
  for (const system_type_t* type = image___version_info___root___system_types_t___cit_init(
           versions->system_types, &iterator);
       type != nullptr; type = image___version_info___root___system_types_t___cit_next(&iterator)) {
    update_package(settings, base_url, system_type_directory(remote_root, type).cstring(),
                   system_type_directory(local_root, type).cstring(), platform);
  }
}
