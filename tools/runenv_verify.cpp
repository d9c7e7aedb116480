// runenv-verify: checks the signatures of archives, or unpacks verified archives instead of tar.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/error.h"
#include "core/failure.h"
#include "core/owner.h"
#include "core/retry.h"
#include "fs/path.h"
#include "schema/layout.h"
#include "schema/pointer.h"
#include "stream/outstream.h"
#include "tools/command_line.h"
#include "tools/failure.h"
#include "tools/keys.h"
#include "tools/published_name.h"
#include "tools/replacement.h"
#include "tools/run_tool.h"
#include "tools/signature.h"
#include "tools/unpacking.h"

namespace runenv {

static constexpr char kUsage[] =
    "usage: runenv-verify [--keys DIRECTORY] ARCHIVE ...\n"
    "       runenv-verify [--keys DIRECTORY] --tar -x -f ARCHIVE -C RELEASE\n"
    "       tar -x -f ARCHIVE -C RELEASE\n"
    "\n"
    "Checks that archives are signed by a trusted key. Prints the key and the\n"
    "purpose of each archive.\n"
    "\n"
    "With --tar, or under the name tar, it takes the place of the tar that\n"
    "runenv-bootstrap runs: it unpacks the archive only if it is signed for exactly\n"
    "this release and target.\n"
    "\n"
    "  --keys DIRECTORY  the directory of the trusted keys, files *.pub made by\n"
    "                    minisign; default " RUNENV_KEYS
    "\n"
    "  --tar             run instead of tar; the options end here\n"
    "  --help            print this text\n"
    "  --version         print the version of this program\n"
    "  --                end of options: words that follow may begin with \"-\"\n";

namespace {

struct Trust {
  std::vector<PublicKey> keys;
  bool no_rollback = false;
};

// The purpose of an archive, signed by a trusted key. The content is not verified yet.
struct Claim {
  Purpose purpose;
  PublicKey key;
  Signature signature;
  std::string text;  // of the signature
};

}  // namespace

// Returns whether the file "policy" beside the keys demands "no-rollback". The file may be missing.
// Each line is a policy, a comment or empty.
static bool demands_no_rollback(const std::string& directory) {
  const fs::path_t path = fs::path_t(directory.c_str()).join("policy");
  if (!path.exists(true)) {
    return false;
  }
  std::ifstream policy(path.cstring());
  bool result = false;
  for (std::string line; std::getline(policy, line);) {
    if (line == "no-rollback") {
      result = true;
    } else if (!line.empty() && !line.starts_with('#')) {
      throw_failure_of(path.cstring(), "unknown policy '" + printable(line) + "'");
    }
  }
  if (!policy.eof()) {
    throw_failure_of(path.cstring(), "cannot be read");
  }
  return result;
}

static Trust load_trust(const std::string& directory) {
  return {load_keys(directory), demands_no_rollback(directory)};
}

static unique_fd open_archive(const char* path) {
  unique_fd file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.get() < 0) {
    throw_errno_of(path);
  }
  struct stat status;
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    throw_failure_of(path, "is not a regular file");
  }
  return file;
}

static CarriedSignature carried_signature(int file, const char* path) {
  const off_t size = lseek(file, 0, SEEK_END);
  const std::optional<CarriedSignature> found = find_signature(file, size, path);
  const std::string flaw = flaw_of_signature(file, size, path, found);
  if (!found || !flaw.empty()) {
    throw_failure_of(path, flaw.empty() ? "is not signed" : flaw);
  }
  return *found;
}

// Returns the digest of the first `size` bytes of the file. Appends them to `copy` if it is not
// null.
static std::string read_content(int file, off_t size, const char* path, Replacement* copy) {
  static constexpr size_t kBlockSize = 262144;
  std::vector<char> block(kBlockSize);
  Digest digest;
  for (off_t offset = 0; offset < size;) {
    const auto wanted = static_cast<size_t>(std::min<off_t>(size - offset, kBlockSize));
    const ssize_t n = retry([&] { return pread(file, block.data(), wanted, offset); });
    if (n <= 0) {
      throw_failure_of(path, "could not be read completely");
    }
    digest.update(block.data(), static_cast<size_t>(n));
    if (copy != nullptr) {
      copy->write(block.data(), static_cast<size_t>(n));
    }
    offset += n;
  }
  return digest.finish();
}

static Claim read_claim(int file, const char* path, const Trust& trust) {
  const CarriedSignature carried = carried_signature(file, path);
  const std::optional<Signature> signature = split_signature(carried.text);
  if (!signature) {
    throw_failure_of(path, "has a signature that is not in minisign's format");
  }
  const PublicKey& key = check_comment(path, *signature, trust.keys);
  const std::optional<Purpose> purpose = from_trusted_comment(signature->trusted_comment);
  if (!purpose || purpose->bytes != carried.signed_bytes) {
    throw_failure_of(
        path, "is not signed as a release, but as '" + printable(signature->trusted_comment) + "'");
  }
  return {*purpose, key, *signature, carried.text};
}

// If `copy` is not null, appends the verified bytes to it.
static void verify_content(int file, const char* path, const Claim& claim, Replacement* copy) {
  const std::string digest = read_content(file, claim.purpose.bytes, path, copy);
  check_content(path, claim.signature, digest, claim.key);
}

// Checks that the archive is for the item, release and target in the bootstrapper's arguments.
static void check_purpose(const Purpose& purpose, const std::string& archive,
                          const std::string& directory) {
  const std::string_view wanted = last_component(archive);
  const std::string name = purpose.platform + Layout::kArchiveExtension;
  const std::string place =
      std::string(Layout::kEnvironment) + "/" + purpose.item + "/" + purpose.release;
  if (wanted != name || directory != place) {
    throw_failure_of(archive, "is signed as '" + printable(name) + "' for '" + printable(place) +
                                  "', not as '" + printable(wanted) + "' for '" +
                                  printable(directory) + "'");
  }
}

// Checks that the installed release was not signed later.
static void check_not_older(const Purpose& purpose, const fs::path_t& item, const char* archive) {
  const fs::path_t pointer = fs::path_t(item).join(Layout::kLatest);
  if (!pointer.exists()) {
    return;
  }
  const malloc_ptr<char> current(read_pointer_line(pointer.cstring()));
  const fs::path_t remembered = fs::path_t(item).join(current.get()).join(kRememberedSignature);
  // Ignore anything but a file: the server's pointer can make the bootstrapper create a directory
  // of this name.
  if (!remembered.is_regular_file()) {
    return;
  }
  std::ifstream file(remembered.cstring());
  const std::optional<Signature> signature =
      split_signature({std::istreambuf_iterator<char>(file), {}});
  const std::optional<Purpose> had =
      signature ? from_trusted_comment(signature->trusted_comment) : std::nullopt;
  if (!had) {
    throw_failure_of(remembered.cstring(), "is not the signature of a release");
  }
  if (purpose.time < had->time) {
    throw_failure_of(archive, "was signed at " + purpose.time + ", before release '" +
                                  printable(had->release) + "', which is installed (" + had->time +
                                  ")");
  }
}

static void remember(const std::string& signature, const fs::path_t& directory) {
  const fs::path_t path = fs::path_t(directory).join(kRememberedSignature);
  if (path.exists(true)) {
    throw_failure_of(path.cstring(), "is in the archive, but only runenv-verify may create it");
  }
  OutstreamPathImpl file(path, false);
  Outstream(file.stream()).write(signature.c_str());
  if (file.finalize() != 0) {
    throw_failure_of(path.cstring(), "could not be written");
  }
}

static void unpack_verified(const char* archive, const char* directory, const Trust& trust) {
  const unique_fd file = open_archive(archive);
  const Claim claim = read_claim(file.get(), archive, trust);
  check_purpose(claim.purpose, archive, directory);
  // Unlike the archive, this file cannot be changed between check and use: it has no name, and is
  // in a directory where nobody else may write.
  Replacement copy{fs::path_t(archive), fs::path_t(Layout::kEnvironment)};
  verify_content(file.get(), archive, claim, &copy);
  if (trust.no_rollback) {
    check_not_older(claim.purpose, fs::path_t(directory).dir_name(), archive);
  }
  Staging staging{fs::path_t(directory)};
  run_tool({RUNENV_TAR, "-x", "-z", "-f", "-", "--no-same-owner", "--no-same-permissions", "-C",
            staging.directory().cstring()},
           copy.descriptor_path().c_str(), kNoFile, fs::path_t(archive), "could not be unpacked");
  staging.check();
  if (trust.no_rollback) {
    remember(claim.text, staging.directory());
  }
  staging.commit();
}

// Removes the directory that the bootstrapper has made for the release, but only inside the
// environment: the server's pointer may name a directory elsewhere.
static void remove_if_empty(const std::string& directory) {
  const std::string inside = std::string(Layout::kEnvironment) + "/";
  if (directory.starts_with(inside) && (directory + "/").find("/../") == std::string::npos) {
    rmdir(directory.c_str());
  }
}

// Accepts only the arguments that the bootstrapper gives to tar.
static void stand_in_for_tar(const std::vector<std::string>& words, const std::string& keys) {
  if (words.size() != 5 || words[0] != "-x" || words[1] != "-f" || words[3] != "-C") {
    throw_usage("instead of tar, it accepts only -x -f ARCHIVE -C RELEASE");
  }
  const char* const directory = words[4].c_str();
  try {
    unpack_verified(words[2].c_str(), directory, load_trust(keys));
  } catch (const Error&) {
    remove_if_empty(directory);
    throw;
  }
}

static bool report(const char* archive, const Trust& trust) {
  try {
    const unique_fd file = open_archive(archive);
    const Claim claim = read_claim(file.get(), archive, trust);
    verify_content(file.get(), archive, claim, nullptr);
    const Purpose& purpose = claim.purpose;
    std::printf("%s: %s, release %s for %s, signed at %s by key %s (%s)\n", archive,
                printable(purpose.item).c_str(), printable(purpose.release).c_str(),
                printable(purpose.platform).c_str(), purpose.time.c_str(), claim.key.id.c_str(),
                claim.key.file.c_str());
    return true;
  } catch (const Error& error) {
    std::fprintf(stderr, "%s: %s\n", program_name(), error.message);
    return false;
  }
}

static void verify_archives(int argc, char** argv) {
  const std::string keys = RUNENV_KEYS;
  if (last_component(argv[0]) == "tar") {
    stand_in_for_tar({argv + 1, argv + argc}, keys);
    return;
  }
  char** const end = argv + argc;
  char** const words_end = std::find(argv, end, std::string_view("--"));
  char** tar = std::find(argv, words_end, std::string_view("--tar"));
  tar = tar == words_end ? end : tar;
  const char* other_keys = nullptr;
  const std::vector<const char*> archives =
      parse_words(static_cast<int>(tar - argv), argv, 1,
                  {{.name = "--keys", .value = &other_keys, .needs = "a directory"}});
  const std::string directory = other_keys != nullptr ? other_keys : keys;
  if (archives.empty() == (tar == end)) {
    throw_usage(archives.empty() ? "an archive is needed"
                                 : "--tar cannot be combined with archives");
  }
  if (tar != end) {
    stand_in_for_tar({tar + 1, end}, directory);
    return;
  }
  const Trust trust = load_trust(directory);
  const auto refused = std::count_if(archives.begin(), archives.end(),
                                     [&](const char* archive) { return !report(archive, trust); });
  finish_standard_output();
  if (refused != 0) {
    std::exit(1);
  }
}

}  // namespace runenv

int main(int argc, char** argv) {
  return runenv::run_program(
      {.name = "runenv-verify", .usage = runenv::kUsage, .body = runenv::verify_archives}, argc,
      argv);
}
