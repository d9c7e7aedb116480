// Brings one item of the run-time environment up to date with the distribution server.
#pragma once

// What the command line settles for the whole run.
struct update_settings_t {
  const char* temp_cache;  // directory for downloads, not owned
  bool with_platform;      // bring the platform up to date too
  bool lock_latest;        // serialise with other processes that update the same item
};

// Compares the server's "latest" pointer with the local one and, where they differ, downloads the
// archive of the named version, unpacks it into a directory of its own beside the local pointer,
// and then switches the pointer.
//
// `remote` is the item's directory on the server, relative to `base_url`; `local` is its directory
// here. Throws Error when anything fails; the local pointer then still names the old version,
// unless writing it was what failed. With `lock_latest` an item that was up to date stays locked
// until the process ends.
void update_package(const update_settings_t* settings, const char* base_url, const char* remote,
                    const char* local, const char* platform);

// Fetches base_url/remote/name into the file `name` of the directory `target`, which is created if
// its parent exists. A server's error page is saved like any file. Throws Error when the transfer
// fails.
void download_file(const char* base_url, const char* remote, const char* target, const char* name);
