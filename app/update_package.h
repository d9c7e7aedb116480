// Brings one item of the run-time environment up to date with the distribution server.
#pragma once

// Settings from the command line for the whole run.
struct update_settings_t {
  const char* temp_cache;  // directory for downloads, not owned
  bool with_platform;      // also bring the platform up to date
  bool lock_latest;        // take turns with other processes that update the same item
};

// Compares the server's "latest" pointer with the local one. If they differ, downloads the archive
// of the release that the server's pointer names, unpacks it into its own directory beside the
// local pointer, and then writes the local pointer.
//
// `remote` is the item's directory on the server, relative to `base_url`. `local` is its local
// directory. Throws Error on failure. The local pointer then still names the old release, or is
// empty if writing it failed. With `lock_latest`, an item that was already up to date stays locked
// until the process ends.
void update_package(const update_settings_t* settings, const char* base_url, const char* remote,
                    const char* local, const char* platform);

// Downloads base_url/remote/name into the file `name` of the directory `target`. Creates `target`,
// but not its parents. Saves a server's error page like any other file. Throws Error if the
// transfer fails.
void download_file(const char* base_url, const char* remote, const char* target, const char* name);
