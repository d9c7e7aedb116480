// Brings the run-time environment, the directory "runenv" here, up to date.
#pragma once

#include "app/update_package.h"
#include "schema/version_info.h"

// Visits the platform, unless it is skipped, and then every system type in ascending byte order of
// name. `tree_root` is the first component of every path on the server. The first failing item
// ends the walk with its Error. Names and versions are used verbatim as path components.
void update_runenv(const update_settings_t* settings, const char* base_url, const char* tree_root,
                   const image___version_info___root_t* versions, const char* platform);
