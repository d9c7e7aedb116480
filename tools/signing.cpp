#include "tools/signing.h"

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "core/owner.h"
#include "tools/failure.h"
#include "tools/run_tool.h"
#include "tools/tree.h"

namespace runenv {

// Returns what minisign has written to the memory file.
static std::string signature_in(int file) {
  static constexpr size_t kLongest = 16384;  // minisign's own limits are lower
  std::string text(kLongest, '\0');
  const ssize_t size = pread(file, text.data(), text.size(), 0);
  if (size < 0) {
    throw_errno_of("signature");
  }
  text.resize(static_cast<size_t>(size));
  return text;
}

void sign_archive(const char* key, const Purpose& purpose, Replacement* archive) {
  const unique_fd signature(memfd_create("signature", MFD_CLOEXEC));
  if (signature.get() < 0) {
    throw_errno_of("signature");
  }
  const std::string comment = to_trusted_comment(purpose);
  // The standard output of minisign is only useful when signing by hand.
  run_tool({"minisign", "-S", "-H", "-s", key, "-m", descriptor_path(archive->descriptor()), "-x",
            descriptor_path(signature.get()), "-t", comment, "-c",
            "signature of a release for runenv-verify"},
           nullptr, nullptr, fs::path_t(key), "could not sign");
  const std::string text = signature_in(signature.get());
  const std::optional<Signature> parts = split_signature(text);
  static constexpr char kPrehashed[] = "RU";  // "ED" in base64
  if (!parts || parts->trusted_comment != comment || !parts->of_content.starts_with(kPrehashed)) {
    throw_failure_of("minisign", "did not write a signature of the expected form");
  }
  const std::string member = signature_member(text);
  archive->write(member.data(), member.size());
}

}  // namespace runenv
