// The archive member that holds a signature, minisign's texts and the trusted comment: reading
// gives back what was written, and accepts nothing that would be written differently.
#include <sys/mman.h>
#include <unistd.h>

#include "core/error.h"
#include "core/owner.h"
#include "fuzz/input.h"
#include "tools/keys.h"
#include "tools/signature.h"

using namespace runenv;

static unique_fd file_of(const std::string& bytes) {
  unique_fd file(memfd_create("archive", MFD_CLOEXEC));
  REQUIRE(write(file.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  return file;
}

static void check_member(const std::string& bytes, const std::string& content) {
  const auto size = static_cast<off_t>(bytes.size());
  const unique_fd raw = file_of(bytes);
  const auto found = find_signature(raw.get(), size, "");
  REQUIRE(!found || bytes.ends_with(signature_member(found->text)));
  REQUIRE(!found || flaw_of_signature(raw.get(), size, "", std::nullopt) != "");
  const std::string signed_bytes = content + signature_member(bytes);
  const auto carried =
      find_signature(file_of(signed_bytes).get(), static_cast<off_t>(signed_bytes.size()), "");
  REQUIRE(carried && carried->text == bytes);
  REQUIRE(carried->signed_bytes == static_cast<off_t>(content.size()));
}

static void check_texts(const std::string& text) {
  const auto parts = split_signature(text);
  if (parts) {
    const size_t start = text.find('\n') + 1;
    REQUIRE(text.substr(start) == parts->of_content + "\ntrusted comment: " +
                                      parts->trusted_comment + "\n" + parts->of_comment + "\n");
    try {
      check_comment("", *parts, {PublicKey{"", "0000000000000000", {}}});
      REQUIRE(false);  // nobody can sign with a key of zeros
    } catch (const Error&) {
    }
  }
  const auto key = parse_key(text, "k.pub");
  REQUIRE(!key || key->id.size() == 16);
  const auto purpose = from_trusted_comment(text);
  REQUIRE(!purpose || to_trusted_comment(*purpose) == text);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const std::string content = input.text(input.byte() % 64);
  const std::string rest = input.text(size);
  check_member(rest, content);
  check_texts(rest);
  const Purpose purpose{content, rest.substr(0, 9), rest, "2026-11-21T09:30:00Z", off_t(size)};
  const auto read = from_trusted_comment(to_trusted_comment(purpose));
  const bool is_plain = (content + rest).find(' ') == std::string::npos;
  REQUIRE(read.has_value() == is_plain);
  REQUIRE(!read || (read->item == content && read->release == rest.substr(0, 9) &&
                    read->platform == rest && read->bytes == off_t(size)));
  return 0;
}
