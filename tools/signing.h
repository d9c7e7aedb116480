// Signs an archive with minisign.
#pragma once

#include "tools/replacement.h"
#include "tools/signature.h"

namespace runenv {

// Runs minisign to sign the content of `archive`, purpose.bytes long, with the secret key in the
// file `key`. Appends the member that carries the signature. minisign itself asks for the password
// of the key. Throws Error.
void sign_archive(const char* key, const Purpose& purpose, Replacement* archive);

}  // namespace runenv
