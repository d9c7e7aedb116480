#include "tools/replacement.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

#include "core/retry.h"
#include "process/interruption.h"
#include "tools/command_line.h"
#include "tools/failure.h"

namespace runenv {

static constexpr char kDescriptors[] = "/proc/self/fd";
static constexpr mode_t kPrivate = 0600;  // while the file is incomplete

static std::string new_name() {
  static constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz234567";
  static constexpr int kRandomLetters = 6;
  std::random_device random;
  std::string name = std::string(".") + program_name() + "#";
  for (int i = 0; i < kRandomLetters; ++i) {
    name += kLetters[random() % (sizeof kLetters - 1)];
  }
  return name;
}

static mode_t mode_of_new_files() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Returns the mode for a new file at `path`: that of the regular file there, or the default mode.
static mode_t mode_for(const fs::path_t& path) {
  struct stat old;
  return lstat(path.cstring(), &old) == 0 && S_ISREG(old.st_mode) ? old.st_mode & 0777
                                                                  : mode_of_new_files();
}

// Returns true for EINVAL, too: this file system does not support fsync.
static bool sync(int descriptor) {
  return fsync(descriptor) == 0 || errno == EINVAL;
}

Replacement::Replacement(const fs::path_t& path) : Replacement(path, path.dir_name()) {}

Replacement::Replacement(const fs::path_t& path, const fs::path_t& made_in) : target(path) {
  undo_on_signals();
  // Without /proc, a file without a name could never get one.
  if (access(kDescriptors, X_OK) == 0) {
    file.reset(open(made_in.cstring(), O_TMPFILE | O_RDWR | O_APPEND | O_CLOEXEC, kPrivate));
  }
  if (file.get() < 0) {
    take_temporary_name(made_in);
  }
  // The umask may have cleared mode bits that opening descriptor_path needs.
  fchmod(file.get(), kPrivate);
}

Replacement::~Replacement() {
  if (!temporary.empty()) {
    unlink(temporary.c_str());  // fails if the file was moved to its place
    interrupted_file = nullptr;
  }
}

// Gives the file a temporary name in the directory. Creates the file if it is not open yet.
void Replacement::take_temporary_name(const fs::path_t& directory) {
  const SignalsHeld held;
  std::string name;
  bool taken;
  do {
    name = fs::path_t(directory).join(new_name().c_str()).cstring();
    if (file.get() < 0) {
      file.reset(open(name.c_str(), O_RDWR | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, kPrivate));
      taken = file.get() >= 0;
    } else {
      taken = link_to(name);
    }
  } while (!taken && errno == EEXIST);
  if (!taken) {
    throw_errno_of(target.cstring());
  }
  temporary = name;
  interrupted_file = temporary.c_str();
}

void Replacement::write(const char* bytes, size_t count) {
  if (!write_all(file.get(), {bytes, count})) {
    throw_errno_of(target.cstring());
  }
}

void Replacement::truncate(off_t size) {
  if (ftruncate(file.get(), size) != 0) {
    throw_errno_of(target.cstring());
  }
}

off_t Replacement::size() const {
  struct stat status;
  if (fstat(file.get(), &status) != 0) {
    throw_errno_of(target.cstring());
  }
  return status.st_size;
}

std::string Replacement::read(off_t offset, size_t count) const {
  std::string result(count, '\0');
  const ssize_t n = retry([&] { return pread(file.get(), result.data(), count, offset); });
  if (n < 0) {
    throw_errno_of(target.cstring());
  }
  result.resize(static_cast<size_t>(n));
  return result;
}

std::string Replacement::descriptor_path() const {
  return std::string(kDescriptors) + "/" + std::to_string(file.get());
}

void Replacement::settle() {
  if (!sync(file.get())) {
    throw_errno_of(target.cstring());
  }
  posix_fadvise(file.get(), 0, 0, POSIX_FADV_DONTNEED);
}

// Gives the file another name. Returns false with errno EEXIST if there is a file of that name.
bool Replacement::link_to(const fs::path_t& name) const {
  return linkat(AT_FDCWD, descriptor_path().c_str(), AT_FDCWD, name.cstring(), AT_SYMLINK_FOLLOW) ==
         0;
}

// Replaces the existing file by renaming, for which the new file needs a name.
void Replacement::replace() {
  if (temporary.empty()) {
    take_temporary_name(target.dir_name());
  }
  if (std::rename(temporary.c_str(), target.cstring()) != 0) {
    throw_errno_of(target.cstring());
  }
}

// Puts the file in its place if no file exists there. Returns false if one exists.
bool Replacement::take_free_place() {
  if (link_to(target)) {
    return true;
  }
  if (errno == EEXIST) {
    return false;
  }
  if (temporary.empty()) {
    throw_errno_of(target.cstring());
  }
  // A file system without nameless files may have no hard links either. There, check for a file and
  // rename.
  if (target.exists(true)) {
    return false;
  }
  replace();
  return true;
}

bool Replacement::commit(bool over_existing, mode_t at_least) {
  const SignalsHeld held;
  // Open the directory first, so that nothing has changed yet if it cannot be read.
  const unique_fd directory = open_directory(target.dir_name());
  if (fchmod(file.get(), mode_for(target) | at_least) != 0 || !sync(file.get())) {
    throw_errno_of(target.cstring());
  }
  if (!take_free_place()) {
    if (!over_existing) {
      return false;
    }
    replace();
  }
  if (!sync(directory.get())) {
    throw_failure_of(
        target.cstring(),
        std::string("is in place, but its directory could not be stored: ") + std::strerror(errno));
  }
  return true;
}

unique_fd open_directory(const fs::path_t& path) {
  unique_fd descriptor(open(path.cstring(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.get() < 0) {
    throw_errno_of(path.cstring());
  }
  return descriptor;
}

void lock_directory(int descriptor) {
  retry([&] { return flock(descriptor, LOCK_EX); });
}

void sync_directory(int descriptor, const fs::path_t& path) {
  if (!sync(descriptor)) {
    throw_errno_of(path.cstring());
  }
}

}  // namespace runenv
