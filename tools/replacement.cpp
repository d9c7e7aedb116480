#include "tools/replacement.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

#include "fs/path.h"
#include "process/interruption.h"
#include "tools/command_line.h"
#include "tools/failure.h"

namespace runenv {

static constexpr char kDescriptors[] = "/proc/self/fd";

static mode_t mode_of_new_files() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// With errno EEXIST if it does.
static bool exists(int place, const char* name) {
  struct stat status;
  const bool result = fstatat(place, name, &status, AT_SYMLINK_NOFOLLOW) == 0;
  errno = result ? EEXIST : errno;
  return result;
}

// A file that is replaced hands its permissions on; a link has none of its own.
static mode_t mode_for(int place, const char* name) {
  struct stat old;
  return fstatat(place, name, &old, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(old.st_mode)
             ? old.st_mode & 0777
             : mode_of_new_files();
}

// File systems that cannot do it say EINVAL: they have nothing to wait for.
static bool sync(int descriptor) {
  return fsync(descriptor) == 0 || errno == EINVAL;
}

static std::string new_name() {
  static constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz234567";
  std::random_device random;
  std::string name = std::string(".") + program_name() + "#";
  for (int i = 0; i < 6; ++i) {
    name += kLetters[random() % (sizeof kLetters - 1)];
  }
  return name;
}

Replacement::Replacement(const std::string& path, const std::string& made_in)
    : target(path), directory(fs::path_t(path.c_str()).dir_name().cstring()) {
  undo_on_signals();
  const std::string& place = made_in.empty() ? directory : made_in;
  if (access(kDescriptors, X_OK) == 0) {  // it is by its descriptor that the file gets a name
    file.reset(open(place.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  }
  if (file.get() < 0) {
    take_name(place, [this](const char* name) {
      file.reset(open(name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
      return file.get() >= 0;
    });
  }
  fchmod(file.get(), 0600);  // the umask may have left less than it takes to open it again
}

Replacement::~Replacement() {
  if (!temporary.empty()) {
    unlink(temporary.c_str());
    interrupted_file = nullptr;
  }
}

// Gives the file a new name by `make`, which returns false and sets errno if that fails.
template <typename Make>
void Replacement::take_name(const std::string& made_in, Make make) {
  const SignalsHeld held;
  bool made;
  do {
    temporary = fs::path_t(made_in.c_str()).join(new_name().c_str()).cstring();
    made = make(temporary.c_str());
  } while (!made && errno == EEXIST);
  if (!made) {
    temporary.clear();
    throw_errno_of(target);
  }
  interrupted_file = temporary.c_str();
}

std::string Replacement::descriptor_path() const {
  return std::string(kDescriptors) + "/" + std::to_string(file.get());
}

void Replacement::write(const char* bytes, size_t count) {
  while (count != 0) {
    const ssize_t n = ::write(file.get(), bytes, count);
    if (n >= 0) {
      bytes += n;
      count -= static_cast<size_t>(n);
    } else if (errno != EINTR) {
      throw_errno_of(target);
    }
  }
}

void Replacement::settle() {
  if (!sync(file.get())) {
    throw_errno_of(target);
  }
  posix_fadvise(file.get(), 0, 0, POSIX_FADV_DONTNEED);
}

bool Replacement::put_in_place(int place, const char* name, bool over_existing) {
  const auto link_to = [this](int at, const char* to) {
    return linkat(AT_FDCWD, descriptor_path().c_str(), at, to, AT_SYMLINK_FOLLOW) == 0;
  };
  if (link_to(place, name)) {
    return true;
  }
  if (errno == EEXIST && !over_existing) {
    return false;
  }
  if (temporary.empty()) {
    if (errno != EEXIST) {
      return false;
    }
    take_name(directory, [&](const char* free_name) { return link_to(AT_FDCWD, free_name); });
  }
  // A file system without unnamed files may be one without links, too.
  const char* const from = temporary.c_str();
  bool moved = renameat2(AT_FDCWD, from, place, name, over_existing ? 0 : RENAME_NOREPLACE) == 0;
  if (!moved && !over_existing && errno == EINVAL) {
    // Some cannot refuse to overwrite either: a look has to do.
    moved = !exists(place, name) && renameat(AT_FDCWD, from, place, name) == 0;
  }
  if (moved) {
    interrupted_file = nullptr;
    temporary.clear();
  }
  return moved;
}

bool Replacement::commit(bool over_existing) {
  const SignalsHeld held;
  const unique_fd place = open_directory(directory);  // once the file is there, it is too late
  const char* const name = target.c_str() + target.rfind('/') + 1;
  if (fchmod(file.get(), mode_for(place.get(), name)) != 0 || !sync(file.get())) {
    throw_errno_of(target);
  }
  if (!put_in_place(place.get(), name, over_existing)) {
    if (errno == EEXIST && !over_existing) {
      return false;
    }
    throw_errno_of(target);
  }
  if (!sync(place.get())) {
    throw_failure_of(target, std::string("is in place, but its directory could not be stored: ") +
                                 std::strerror(errno));
  }
  return true;
}

unique_fd open_directory(const std::string& path) {
  unique_fd descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.get() < 0) {
    throw_errno_of(path);
  }
  return descriptor;
}

void sync_directory(int descriptor, const std::string& path) {
  if (!sync(descriptor)) {
    throw_errno_of(path);
  }
}

}  // namespace runenv
