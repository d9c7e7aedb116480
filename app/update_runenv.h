// Brings the run-time environment up to date: the directory "runenv" in the working directory.
#pragma once

#include "app/update_package.h"
#include "schema/version_info.h"

// Updates the platform, unless it is skipped, and then every system type in ascending byte order of
// their names. `tree_root` is the first component of every path on the server. Names and versions
// become path components unchanged. Throws the Error of the first item that fails and skips the
// rest.
void update_runenv(const update_settings_t* settings, const char* base_url, const char* tree_root,
                   const image___version_info___root_t* versions, const char* platform);
