// Loads the public keys of producers and checks signatures with them.
#pragma once

#include <sodium.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/signature.h"

namespace runenv {

// Computes the BLAKE2b hash of some bytes. minisign signs this hash.
class Digest {
 public:
  Digest();
  void update(const char* bytes, size_t count);
  std::string finish();

 private:
  crypto_generichash_state state;
};

struct PublicKey {
  std::string file;  // the name of the file that it comes from
  std::string id;    // as minisign prints it, such as "8A342FC61B762D54"
  std::array<unsigned char, crypto_sign_PUBLICKEYBYTES> key;
};

// Parses the two lines of a key file: a comment, and the key in base64. Returns nothing for any
// other text. `file` is the name of the file.
std::optional<PublicKey> parse_key(std::string_view text, const std::string& file);

// Reads all files "*.pub" in the directory. Throws Error if there is none, or if one of them cannot
// be read or is not a public key of minisign, so that no key is silently ignored.
std::vector<PublicKey> load_keys(const std::string& directory);

// Returns the key that has signed the trusted comment and the signature of the content. Does not
// need the content. Throws Error "PATH: REASON" if no key has.
const PublicKey& check_comment(const char* path, const Signature& signature,
                               const std::vector<PublicKey>& keys);

// Throws Error "PATH: REASON" unless the key has signed the content with this digest.
void check_content(const char* path, const Signature& signature, const std::string& digest,
                   const PublicKey& key);

}  // namespace runenv
