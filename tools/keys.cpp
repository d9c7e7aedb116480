#include "tools/keys.h"

#include <algorithm>
#include <cstdio>

#include "core/failure.h"
#include "core/owner.h"
#include "fs/iterator.h"
#include "fs/path.h"
#include "tools/failure.h"
#include "tools/replacement.h"

namespace runenv {

static constexpr size_t kAlgorithmSize = 2;
static constexpr size_t kIdSize = 8;
static constexpr size_t kHeadSize = kAlgorithmSize + kIdSize;
static constexpr std::string_view kEd25519 = "Ed";
static constexpr std::string_view kPrehashedEd25519 = "ED";
static constexpr size_t kPublicKeySize = kHeadSize + crypto_sign_PUBLICKEYBYTES;
static constexpr size_t kSignatureSize = kHeadSize + crypto_sign_BYTES;

// Decodes base64. Returns nothing unless the result has exactly `size` bytes and encodes to the
// same text again: libsodium accepts some invalid characters.
static std::optional<std::string> decode(std::string_view text, size_t size) {
  std::string bytes(size, '\0');
  auto* const begin = reinterpret_cast<unsigned char*>(bytes.data());
  size_t decoded;
  if (sodium_base642bin(begin, size, text.data(), text.size(), nullptr, &decoded, nullptr,
                        sodium_base64_VARIANT_ORIGINAL) != 0 ||
      decoded != size) {
    return std::nullopt;
  }
  std::vector<char> again(sodium_base64_encoded_len(size, sodium_base64_VARIANT_ORIGINAL));
  sodium_bin2base64(again.data(), again.size(), begin, size, sodium_base64_VARIANT_ORIGINAL);
  if (text != again.data()) {
    return std::nullopt;
  }
  return bytes;
}

static const unsigned char* raw(const std::string& bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

// Returns the id as minisign prints it: as a number, of which the files have the lowest byte first.
static std::string printed_id(std::string_view decoded) {
  std::string result;
  for (size_t i = kHeadSize; i-- > kAlgorithmSize;) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned char>(decoded[i]));
    result += digits;
  }
  return result;
}

Digest::Digest() {
  crypto_generichash_init(&state, nullptr, 0, crypto_generichash_BYTES_MAX);
}

void Digest::update(const char* bytes, size_t count) {
  crypto_generichash_update(&state, reinterpret_cast<const unsigned char*>(bytes), count);
}

std::string Digest::finish() {
  std::string result(crypto_generichash_BYTES_MAX, '\0');
  crypto_generichash_final(&state, reinterpret_cast<unsigned char*>(result.data()), result.size());
  return result;
}

std::optional<PublicKey> parse_key(std::string_view text, const std::string& file) {
  static constexpr std::string_view kRemark = "untrusted comment: ";
  const size_t end = text.find('\n');
  if (!text.starts_with(kRemark) || end == std::string_view::npos) {
    return std::nullopt;
  }
  std::string_view line = text.substr(end + 1);
  if (line.ends_with('\n')) {
    line.remove_suffix(1);
  }
  const std::optional<std::string> decoded = decode(line, kPublicKeySize);
  if (!decoded || !decoded->starts_with(kEd25519)) {
    return std::nullopt;
  }
  PublicKey key{file, printed_id(*decoded), {}};
  std::copy_n(raw(*decoded) + kHeadSize, key.key.size(), key.key.begin());
  return key;
}

static PublicKey load_key(const fs::path_t& path, const std::string& name) {
  if (!path.is_regular_file()) {
    throw_failure_of(path.cstring(), "is not a regular file");
  }
  static constexpr size_t kTooLong = 4096;
  char text[kTooLong];
  const owner<FILE, std::fclose> file(path.open_read());
  const size_t size = std::fread(text, 1, sizeof text, file.get());
  if (std::ferror(file.get()) != 0) {
    throw_errno_of(path.cstring());
  }
  const std::optional<PublicKey> key = parse_key({text, size}, name);
  if (!key || size == kTooLong) {
    throw_failure_of(path.cstring(), "is not a public key of minisign");
  }
  return *key;
}

std::vector<PublicKey> load_keys(const std::string& directory) {
  if (sodium_init() < 0) {
    throw_failure("libsodium could not be initialised");
  }
  const fs::path_t path(directory.c_str());
  open_directory(path);
  std::vector<PublicKey> result;
  for (fs::iterator_t entry(path, true); entry.has_item(); entry.move_next()) {
    const std::string name = entry.get_name();
    if (name.ends_with(".pub")) {
      result.push_back(load_key(entry.get_path(), name));
    }
  }
  if (result.empty()) {
    throw_failure_of(directory, "contains no key (*.pub), so nothing can be verified");
  }
  return result;
}

static std::string changed_after(const std::string& id) {
  return "was changed after key " + id + " signed it";
}

static bool signed_by(const PublicKey& key, const std::string& signature,
                      const std::string& message) {
  return crypto_sign_verify_detached(raw(signature), raw(message), message.size(),
                                     key.key.data()) == 0;
}

const PublicKey& check_comment(const char* path, const Signature& signature,
                               const std::vector<PublicKey>& keys) {
  const std::optional<std::string> decoded = decode(signature.of_content, kSignatureSize);
  const std::optional<std::string> of_comment = decode(signature.of_comment, crypto_sign_BYTES);
  if (!decoded || !of_comment) {
    throw_failure_of(path, "has a signature that is not in minisign's format");
  }
  if (!decoded->starts_with(kPrehashedEd25519)) {
    throw_failure_of(
        path, "is signed in a minisign format that is not supported, such as the legacy one");
  }
  const std::string id = printed_id(*decoded);
  const std::string comment = decoded->substr(kHeadSize) + signature.trusted_comment;
  bool is_known = false;
  for (const PublicKey& key : keys) {
    is_known = is_known || key.id == id;
    if (key.id == id && signed_by(key, *of_comment, comment)) {
      return key;
    }
  }
  throw_failure_of(path, is_known ? changed_after(id)
                                  : "is signed by key " + id + ", which is not trusted here");
}

void check_content(const char* path, const Signature& signature, const std::string& digest,
                   const PublicKey& key) {
  const std::optional<std::string> decoded = decode(signature.of_content, kSignatureSize);
  if (!decoded || !signed_by(key, decoded->substr(kHeadSize), digest)) {
    throw_failure_of(path, changed_after(key.id));
  }
}

}  // namespace runenv
