// The signature of an archive: its content and its format in the archive.
//
// The signature is the text of four lines that minisign writes. Its trusted comment, which is also
// signed, says what the archive is for. An archive consists of gzip members. The last member
// carries the signature and has an empty content, so that programs that unpack the archive ignore
// it. The signature covers all bytes before this member, which consists of:
//
//   12 bytes  header of a gzip member that has an extra field, and the length of that field
//    4 bytes  "RS" and the length of the rest of the field
//    N bytes  the signature
//    2 bytes  the length of the whole member, to find its start from the end of the file
//   10 bytes  the empty content, its checksum and its length
//
// Lengths are little-endian.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace runenv {

// The file in an installed release with the signature of its archive, if the policy is no-rollback.
inline constexpr char kRememberedSignature[] = ".runenv-signature";

// The parts of minisign's text. The first and the last are still in base64.
struct Signature {
  std::string of_content;  // algorithm, key id and signature of the content
  std::string trusted_comment;
  std::string of_comment;  // signature of the signature above and of the trusted comment
};

// Returns nothing unless the text consists of the four lines, each with its line end.
std::optional<Signature> split_signature(const std::string& text);

// What an archive is for. The names are as in the server's tree and contain no blanks.
struct Purpose {
  std::string item;  // such as "platform/5" or "system-types/linker/0.9"
  std::string release;
  std::string platform;  // the target, such as "linux-x64"
  std::string time;      // of signing, such as "2026-11-21T09:30:00Z"; strings sort by time
  off_t bytes = 0;       // the number of signed bytes
};

std::string to_trusted_comment(const Purpose& purpose);

// Returns nothing unless to_trusted_comment makes exactly this comment from some purpose.
std::optional<Purpose> from_trusted_comment(const std::string& comment);

// Returns the gzip member that carries the text. Throws Error if the text is too long for one.
std::string signature_member(const std::string& text);

struct CarriedSignature {
  std::string text;
  off_t signed_bytes = 0;  // the number of bytes before the member that carries the signature
};

// Reads the signature at the end of the first `size` bytes of a file. Returns nothing if there is
// none, or if its member differs from the result of signature_member. Throws Error "PATH: REASON"
// if the file cannot be read.
std::optional<CarriedSignature> find_signature(int file, off_t size, const char* path);

// Returns whether the signature claims to be for the item, release and target of `purpose` and for
// all bytes before it. Does not check the claim, which needs the key.
bool is_signed_for(const Purpose& purpose, const CarriedSignature& carried);

// Returns why no machine would accept the signature of the file: it is damaged, not at the end, or
// one of several. Returns "" if there is no such flaw or no signature at all. `found` is the result
// of find_signature for this file. Throws Error "PATH: REASON" if the file cannot be read.
std::string flaw_of_signature(int file, off_t size, const char* path,
                              const std::optional<CarriedSignature>& found);

}  // namespace runenv
