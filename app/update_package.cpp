#include "app/update_package.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/c_string.h"
#include "core/failure.h"
#include "core/owner.h"
#include "core/retry.h"
#include "fs/path.h"
#include "process/tool.h"
#include "runtime/runtime_core.h"
#include "schema/layout.h"
#include "schema/pointer.h"
#include "stream/outstream.h"

namespace Layout = runenv::Layout;

static fs::path_t joined(fs::path_t directory, const char* name) {
  return directory.join(name);
}

namespace {

// The exclusive lock on an item: a lock on its local pointer file.
class ItemLock {
 public:
  // Takes the lock and waits for other holders. Creates the item's directory and an empty pointer
  // if they are missing.
  void take(const fs::path_t& directory, const fs::path_t& pointer) {
    if (!directory.exists()) {
      directory.create_directory(true);
    }
    file.reset(open(pointer.cstring(), O_RDWR | O_CREAT | O_CLOEXEC, 0660));
    if (file.get() < 0) {
      runenv::throw_failure("latest file could not be opened");
    }
    change(LOCK_EX);
  }

  // Keeps the lock, if it was taken, until the process ends: the rest of this run relies on the
  // item, so no other process may change it.
  void keep() { file.release(); }

  // Releases the lock, if it was taken.
  void release() {
    if (file.get() >= 0) {
      change(LOCK_UN);
      file.reset();
    }
  }

 private:
  void change(int operation) {
    if (runenv::retry([&] { return flock(file.get(), operation); }) != 0) {
      runenv::throw_system_failure(errno);
    }
  }

  runenv::unique_fd file;
};

}  // namespace

// Returns the release that the server's pointer names. Downloads the pointer into the cache, reads
// it and removes it.
static runenv::malloc_ptr<char> fetch_wanted_release(const char* base_url, const char* remote,
                                                     const fs::path_t& cache) {
  download_file(base_url, remote, cache.cstring(), Layout::kLatest);
  fs::path_t pointer = joined(cache, Layout::kLatest);
  if (!pointer.exists()) {
    runenv::throw_failure("latest pointer could not be downloaded");
  }
  runenv::malloc_ptr<char> release(read_pointer_line(pointer.cstring()));
  (void)pointer.remove();
  return release;
}

// Returns the release that the local pointer names, or null if there is no pointer.
static runenv::malloc_ptr<char> read_current_release(const fs::path_t& pointer) {
  return runenv::malloc_ptr<char>(pointer.exists() ? read_pointer_line(pointer.cstring())
                                                   : nullptr);
}

// Rejects a name that is too long for an argument, as exec would. Doing it early avoids making
// several huge paths and URLs from the name.
static void check_argument(const char* name) {
  static constexpr size_t kLongestArgument = 131071;  // the kernel's limit, without the terminator
  if (std::strlen(name) > kLongestArgument) {
    runenv::throw_system_failure(E2BIG);
  }
}

// Downloads the archive of a release into the cache and returns its path.
static fs::path_t fetch_archive(const char* base_url, const char* remote, const char* release,
                                const char* platform, const fs::path_t& cache) {
  check_argument(release);
  const std::string name = std::string(platform) + Layout::kArchiveExtension;
  download_file(base_url, joined(remote, release).cstring(), cache.cstring(), name.c_str());
  // Kept on purpose: with an empty platform this is CACHE.tar.gz, but curl wrote CACHE/.tar.gz.
  fs::path_t archive = fs::path_t(cache).join_ext(platform, Layout::kArchiveExtension);
  if (!archive.exists()) {
    runenv::throw_failure("archive could not be downloaded");
  }
  return archive;
}

// Waits for a tool and destroys it. Returns 0, its exit status, or the negated signal number.
static int finish(ChildProcess::process_t* tool) {
  const int result = ChildProcess::wait(tool);
  runenv::end_tool(tool);
  return result;
}

// Returns the path in a form that tar takes for a local file. With a colon in the first component,
// tar would take it for a file on a remote host.
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
    runenv::throw_failure("tar command failed");
  }
}

static void write_pointer(const fs::path_t& pointer, const char* release) {
  OutstreamPathImpl file(pointer, false);
  Outstream(file.stream()).write(release);
  if (file.finalize() != 0) {
    // Empty the file: an incomplete name could be the name of another release.
    std::fclose(pointer.open_write(false));
    runenv::throw_failure("latest file could not be written");
  }
}

// Removes the cache if it is an empty directory. Does not remove a link to one.
static void remove_cache(const fs::path_t& cache) {
  rmdir(cache.cstring());
}

void update_package(const update_settings_t* settings, const char* base_url, const char* remote,
                    const char* local, const char* platform) {
  const fs::path_t cache(settings->temp_cache);
  const fs::path_t directory(local);
  const fs::path_t pointer = joined(directory, Layout::kLatest);
  ItemLock lock;
  if (settings->lock_latest) {
    lock.take(directory, pointer);
  }

  const runenv::malloc_ptr<char> wanted = fetch_wanted_release(base_url, remote, cache);
  const runenv::malloc_ptr<char> current = read_current_release(pointer);
  if (current != nullptr && equal(current.get(), wanted.get())) {
    remove_cache(cache);
    lock.keep();
    return;
  }
  Runtime.log(current == nullptr ? "- %s\n" : "- %s [updating]\n", remote);

  fs::path_t archive = fetch_archive(base_url, remote, wanted.get(), platform, cache);
  const fs::path_t release_directory = joined(directory, wanted.get());
  release_directory.create_directory(true);
  unpack(archive, release_directory);
  (void)archive.remove();
  // The pointer is written last, so that it never names a release that is not fully unpacked.
  write_pointer(pointer, wanted.get());
  lock.release();
  remove_cache(cache);
}

void download_file(const char* base_url, const char* remote, const char* target, const char* name) {
  using namespace ChildProcess;
  const std::string url = std::string(base_url) + "/" + remote + "/" + name;
  // With these options curl does not fail on an HTTP error status. Users can enable that in curl's
  // configuration file.
  const char* const argv[] = {"curl", "-s", "-L", "-o", name, url.c_str(), nullptr};
  fs::path_t(target).create_directory(false);
  process_t* const curl =
      runenv::start_tool(argv, {REDIRECT_PIPE, nullptr}, {REDIRECT_PIPE, nullptr},
                         {REDIRECT_INHERIT, nullptr}, target);
  const int result = finish(curl);
  if (result != 0) {
    Runtime.error("curl exit code: %d\n", result);
    runenv::throw_failure("curl command failed");
  }
}
