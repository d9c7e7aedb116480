#include "tools/replacement.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fs/path.h"
#include "process/interruption.h"
#include "tools/command_line.h"

[[noreturn]] static void fail_on_system(const std::string& path) {
  fail_on(path, std::strerror(errno));
}

static mode_t mode_of_new_files() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// File systems that cannot do it say EINVAL: they have nothing to wait for.
static void sync(int descriptor, const std::string& path) {
  if (fsync(descriptor) != 0 && errno != EINVAL) {
    fail_on_system(path);
  }
}

Replacement::Replacement(const std::string& path, const std::string& made_in)
    : target(path), directory(fs::path_t(path.c_str()).dir_name().cstring()) {
  temporary = fs::path_t((made_in.empty() ? directory : made_in).c_str()).join(".").cstring();
  temporary += std::string(kProgram) + "#XXXXXX";
  std::signal(SIGXFSZ, SIG_IGN);  // a write beyond the limit on the size of files fails instead
  runenv::undo_on_signals();
  const runenv::SignalsHeld held;
  file.reset(mkostemp(temporary.data(), O_CLOEXEC));
  if (file.get() < 0) {
    fail_on_system(target);
  }
  runenv::interrupted_file = temporary.c_str();
}

Replacement::~Replacement() {
  if (runenv::interrupted_file != nullptr) {
    unlink(temporary.c_str());
    runenv::interrupted_file = nullptr;
  }
}

void Replacement::write(const char* bytes, size_t count) {
  while (count != 0) {
    const ssize_t n = ::write(file.get(), bytes, count);
    if (n >= 0) {
      bytes += n;
      count -= static_cast<size_t>(n);
    } else if (errno != EINTR) {
      fail_on_system(target);
    }
  }
}

void Replacement::settle() {
  sync(file.get(), target);
  posix_fadvise(file.get(), 0, 0, POSIX_FADV_DONTNEED);
}

// Some file systems cannot refuse to overwrite and say EINVAL; the caller has looked before.
static bool put_in_place(const char* from, const char* to, bool over_existing) {
  if (!over_existing && renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) {
    return true;
  }
  return (over_existing || errno == EINVAL) && std::rename(from, to) == 0;
}

bool Replacement::commit(bool over_existing) {
  struct stat old;
  const mode_t mode = stat(target.c_str(), &old) == 0 ? old.st_mode & 0777 : mode_of_new_files();
  if (fchmod(file.get(), mode) != 0) {
    fail_on_system(target);
  }
  sync(file.get(), target);
  if (!put_in_place(temporary.c_str(), target.c_str(), over_existing)) {
    if (errno == EEXIST && !over_existing) {
      return false;
    }
    fail_on_system(target);
  }
  runenv::interrupted_file = nullptr;
  sync_directory(directory);
  return true;
}

runenv::unique_fd open_directory(const std::string& path) {
  runenv::unique_fd descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.get() < 0) {
    fail_on_system(path);
  }
  return descriptor;
}

void sync_directory(const std::string& path) {
  sync(open_directory(path).get(), path);
}
