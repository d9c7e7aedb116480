// The signature of an archive: what it says, and how the archive carries it.
//
// The signature is the text that minisign writes, four lines. Its trusted comment, which is signed
// too, says what the archive is for. An archive consists of gzip members. The one that carries the
// signature is empty and comes last, so that whatever unpacks the archive passes over it. The
// signature covers all bytes before it:
//
//   12 bytes  header of a gzip member that has an extra field, and the length of that field
//    4 bytes  "RS" and the length of what follows in the field
//    N bytes  the signature
//    2 bytes  the length of the whole member, by which it is found from the end of the file
//   10 bytes  the empty content, its checksum and its length
//
// Lengths are little-endian.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace runenv {

// In an installed release, if the policy asks for it: the signature that its archive had.
inline constexpr char kRememberedSignature[] = ".runenv-signature";

// The parts of minisign's text. The first and the last are base64 still.
struct Signature {
  std::string of_content;  // algorithm, key id and signature of the content
  std::string trusted_comment;
  std::string of_comment;  // signature of the signature above and of the trusted comment
};

// None if the text is anything but the four lines, each with its line end.
std::optional<Signature> split_signature(const std::string& text);

// What an archive is for. The names are as in the tree of the server, without blanks.
struct Purpose {
  std::string item;  // such as "platform/5" or "system-types/linker/0.9"
  std::string release;
  std::string platform;
  std::string time;  // of signing, such as "2026-11-21T09:30:00Z": a later time sorts behind
  off_t bytes = 0;   // how many are signed
};

std::string to_trusted_comment(const Purpose& purpose);

// None if the comment is not exactly what to_trusted_comment makes of some purpose.
std::optional<Purpose> from_trusted_comment(const std::string& comment);

// Returns the gzip member that carries the text. Throws Error if the text is too long for one.
std::string signature_member(const std::string& text);

struct CarriedSignature {
  std::string text;
  off_t signed_bytes = 0;  // the signature's member follows them and ends the file
};

// Reads the signature at the end of the first `size` bytes of a file. None if there is none, or if
// its member differs from what signature_member makes. Throws Error "PATH: REASON" if the file
// cannot be read.
std::optional<CarriedSignature> find_signature(int file, off_t size, const char* path);

// Whether the signature says that it is for the item, release and platform of `purpose` and for the
// bytes that are before it. Whether it is a good one needs the key.
bool is_signed_for(const Purpose& purpose, const CarriedSignature& carried);

// Returns why no machine would accept a signature of the file, of which find_signature has returned
// `found`: it is damaged, not at the end, or one of several. Empty if it is none of these, or if
// there is no signature at all. Throws Error "PATH: REASON" if the file cannot be read.
std::string flaw_of_signature(int file, off_t size, const char* path,
                              const std::optional<CarriedSignature>& found);

}  // namespace runenv
