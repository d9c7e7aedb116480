#include "app/update_package.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/allocation.h"
#include "core/c_string.h"
#include "core/error.h"
#include "fs/path.h"
#include "process/tool.h"
#include "runtime/runtime_core.h"
#include "schema/layout.h"
#include "schema/pointer.h"
#include "stream/outstream.h"

static fs::path_t joined(fs::path_t directory, const char* name) {
  return directory.join(name);
}

static void change_lock(int descriptor, int operation) {
  while (flock(descriptor, operation) != 0) {
    if (errno != EINTR) {
      throw_system_failure(errno);
    }
  }
}

// The local pointer file itself is the lock. The descriptor is deliberately left to the end of the
// process unless the item is updated: nobody else may touch an item that this run relies on.
static int lock_pointer(const fs::path_t& local, const fs::path_t& pointer) {
  if (!local.exists()) {
    local.create_directory(true);
  }
  const int descriptor = open(pointer.cstring(), O_RDWR | O_CREAT | O_CLOEXEC, 0660);
  if (descriptor < 0) {
    throw_failure("latest file could not be opened");
  }
  change_lock(descriptor, LOCK_EX);
  return descriptor;
}

static void unlock_pointer(int descriptor) {
  change_lock(descriptor, LOCK_UN);
  close(descriptor);
}

// Waits for a tool and releases it; returns 0, its exit status, or the negated signal number.
static int finish(ChildProcess::process_t* tool) {
  const int result = ChildProcess::wait(tool);
  runenv::end_tool(tool);
  return result;
}

// The path in a form that tar takes for a file: one with a colon in its first component would be a
// remote host to it.
static fs::path_t local_file(const fs::path_t& path) {
  const char* const name = path.cstring();
  return name[std::strcspn(name, ":/")] == ':' ? joined(".", name) : path;
}

static void unpack(const fs::path_t& archive, const fs::path_t& directory) {
  using namespace ChildProcess;
  const fs::path_t file = local_file(archive);
  const char* const argv[] = {"tar",  "-x", "-f", file.cstring(), "-C", directory.cstring(),
                              nullptr};
  process_t* const tar =
      runenv::start_tool(argv, {REDIRECT_PIPE, nullptr}, {REDIRECT_INHERIT, nullptr},
                         {REDIRECT_INHERIT, nullptr}, nullptr);
  shutdown(tar, CHANNEL_STDIN);
  const int result = finish(tar);
  if (result != 0) {
    Runtime.error("tar exit code: %d\n", result);
    throw_failure("tar command failed");
  }
}

static void write_pointer(const fs::path_t& pointer, const char* version) {
  OutstreamPathImpl file(pointer, false);
  Outstream(file.stream()).write(version);
  if (file.finalize() != 0) {
    // What is there may be the beginning of the name, and so another release's.
    std::fclose(pointer.open_write(false));
    throw_failure("latest file could not be written");
  }
}

// Succeeds only for a directory with nothing in it. What a link leads to is not the run's to judge.
static void remove_cache(const fs::path_t& cache) {
  rmdir(cache.cstring());
}

// What exec would say of it, before anything that holds so long a name is made.
static void check_argument(const char* name) {
  static constexpr size_t kLongest = 131071;  // the kernel's limit, 32 pages with the terminator
  if (std::strlen(name) > kLongest) {
    throw_system_failure(E2BIG);
  }
}

void update_package(const update_settings_t* settings, const char* base_url, const char* remote,
                    const char* local, const char* platform) {
  const fs::path_t cache(settings->temp_cache);
  const fs::path_t local_directory(local);
  const fs::path_t local_pointer = joined(local_directory, Layout::kLatest);

  const int lock = settings->lock_latest ? lock_pointer(local_directory, local_pointer) : -1;

  download_file(base_url, remote, cache.cstring(), Layout::kLatest);
  fs::path_t downloaded_pointer = joined(cache, Layout::kLatest);
  if (!downloaded_pointer.exists()) {
    throw_failure("latest pointer could not be downloaded");
  }
  const malloc_ptr<char> wanted(read_pointer_line(downloaded_pointer.cstring()));
  downloaded_pointer.remove();

  const malloc_ptr<char> current(local_pointer.exists() ? read_pointer_line(local_pointer.cstring())
                                                        : nullptr);
  if (current != nullptr && equal(current.get(), wanted.get())) {
    remove_cache(cache);
    return;
  }
  Runtime.log(current == nullptr ? "- %s\n" : "- %s [updating]\n", remote);

  check_argument(wanted.get());
  const std::string archive_name = std::string(platform) + Layout::kArchiveExtension;
  download_file(base_url, joined(remote, wanted.get()).cstring(), cache.cstring(),
                archive_name.c_str());
  fs::path_t archive = fs::path_t(cache).join_ext(platform, Layout::kArchiveExtension);
  if (!archive.exists()) {
    throw_failure("archive could not be downloaded");
  }

  // The pointer is switched last: who reads it never sees a version that is half unpacked.
  const fs::path_t version_directory = joined(local_directory, wanted.get());
  version_directory.create_directory(true);
  unpack(archive, version_directory);
  archive.remove();
  write_pointer(local_pointer, wanted.get());

  if (settings->lock_latest) {
    unlock_pointer(lock);
  }
  remove_cache(cache);
}

void download_file(const char* base_url, const char* remote, const char* target, const char* name) {
  using namespace ChildProcess;
  const std::string url = std::string(base_url) + "/" + remote + "/" + name;
  // No switch makes curl fail on an HTTP error status: whoever wants that sets it in curl's own
  // configuration file.
  const char* const argv[] = {"curl", "-s", "-L", "-o", name, url.c_str(), nullptr};
  fs::path_t(target).create_directory(false);
  process_t* const curl =
      runenv::start_tool(argv, {REDIRECT_PIPE, nullptr}, {REDIRECT_PIPE, nullptr},
                         {REDIRECT_INHERIT, nullptr}, target);
  const int result = finish(curl);
  if (result != 0) {
    Runtime.error("curl exit code: %d\n", result);
    throw_failure("curl command failed");
  }
}
