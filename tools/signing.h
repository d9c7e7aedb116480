// Signing an archive with minisign.
#pragma once

#include "tools/replacement.h"
#include "tools/signature.h"

namespace runenv {

// Has minisign sign the content of `archive`, of which purpose.bytes tells the length, with the
// secret key in the file `key`, and appends the member that carries the signature. minisign asks
// for the password of the key itself. Throws Error.
void sign_archive(const char* key, const Purpose& purpose, Replacement* archive);

// The time now, as a purpose has it.
std::string time_of_signing();

}  // namespace runenv
