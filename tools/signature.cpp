#include "tools/signature.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

#include "core/failure.h"
#include "core/retry.h"
#include "tools/failure.h"

namespace runenv {

using namespace std::string_literals;

// The header of the member: only the flag for an extra field, no time, an unknown system.
static const std::string kMemberStart = "\x1f\x8b\x08\x04\0\0\0\0\0\xff"s;
static const std::string kSubfield = "RS";
static const std::string kMemberEnd = "\x03\0\0\0\0\0\0\0\0\0"s;
static constexpr size_t kLengthSize = 2;
static constexpr size_t kLongestField = 65535;

static const size_t kTextOffset =
    kMemberStart.size() + kLengthSize + kSubfield.size() + kLengthSize;
static const size_t kTailSize = kLengthSize + kMemberEnd.size();

static std::string little_endian(size_t number) {
  return {static_cast<char>(number & 0xff), static_cast<char>(number >> 8)};
}

static size_t from_little_endian(std::string_view bytes) {
  return static_cast<unsigned char>(bytes[0]) + (size_t{static_cast<unsigned char>(bytes[1])} << 8);
}

// Removes the first line from `rest` and stores it without its label and line end. Returns false if
// one of these is missing.
static bool take_line(std::string_view label, std::string_view* rest, std::string* line) {
  const size_t end = rest->find('\n');
  if (!rest->starts_with(label) || end == std::string_view::npos) {
    return false;
  }
  *line = rest->substr(label.size(), end - label.size());
  rest->remove_prefix(end + 1);
  return true;
}

std::optional<Signature> split_signature(const std::string& text) {
  Signature result;
  std::string untrusted_comment;
  std::string_view rest = text;
  if (!take_line("untrusted comment: ", &rest, &untrusted_comment) ||
      !take_line("", &rest, &result.of_content) ||
      !take_line("trusted comment: ", &rest, &result.trusted_comment) ||
      !take_line("", &rest, &result.of_comment) || !rest.empty()) {
    return std::nullopt;
  }
  return result;
}

// The labels of the trusted comment, each followed by a value without blanks.
static constexpr std::array<std::string_view, 5> kLabels = {
    "runenv archive: item=", " release=", " platform=", " time=", " bytes="};

static bool is_time(std::string_view text) {
  static constexpr std::string_view kShape = "0000-00-00T00:00:00Z";
  return std::equal(text.begin(), text.end(), kShape.begin(), kShape.end(), [](char c, char shape) {
    return shape == '0' ? c >= '0' && c <= '9' : c == shape;
  });
}

std::string to_trusted_comment(const Purpose& purpose) {
  const std::string values[] = {purpose.item, purpose.release, purpose.platform, purpose.time,
                                std::to_string(purpose.bytes)};
  std::string result;
  for (size_t i = 0; i < kLabels.size(); ++i) {
    result.append(kLabels[i]).append(values[i]);
  }
  return result;
}

std::optional<Purpose> from_trusted_comment(const std::string& comment) {
  Purpose result;
  std::string bytes;
  std::string* const values[] = {&result.item, &result.release, &result.platform, &result.time,
                                 &bytes};
  std::string_view rest = comment;
  for (size_t i = 0; i < kLabels.size(); ++i) {
    if (!rest.starts_with(kLabels[i])) {
      return std::nullopt;
    }
    rest.remove_prefix(kLabels[i].size());
    *values[i] = rest.substr(0, rest.find(' '));
    rest.remove_prefix(values[i]->size());
  }
  std::from_chars(bytes.data(), bytes.data() + bytes.size(), result.bytes);
  if (!is_time(result.time) || to_trusted_comment(result) != comment) {
    return std::nullopt;
  }
  return result;
}

std::string signature_member(const std::string& text) {
  const size_t field_size = kSubfield.size() + kLengthSize + text.size() + kLengthSize;
  const size_t size = kTextOffset + text.size() + kTailSize;
  if (size > kLongestField) {
    throw_failure("a signature of " + std::to_string(text.size()) + " bytes is too long");
  }
  return kMemberStart + little_endian(field_size) + kSubfield +
         little_endian(text.size() + kLengthSize) + text + little_endian(size) + kMemberEnd;
}

// Returns `count` bytes of the file at `offset`, or fewer at its end.
static std::string read_bytes(int file, off_t offset, size_t count, const char* path) {
  std::string result(count, '\0');
  const ssize_t n = retry([&] { return pread(file, result.data(), count, offset); });
  if (n < 0) {
    throw_errno_of(path);
  }
  result.resize(static_cast<size_t>(n));
  return result;
}

static std::string read_end(int file, off_t size, size_t count, const char* path) {
  const size_t available = std::min(count, static_cast<size_t>(size));
  return read_bytes(file, size - static_cast<off_t>(available), available, path);
}

std::optional<CarriedSignature> find_signature(int file, off_t size, const char* path) {
  const std::string tail = read_end(file, size, kTailSize, path);
  if (tail.size() != kTailSize || !tail.ends_with(kMemberEnd)) {
    return std::nullopt;
  }
  const std::string member = read_end(file, size, from_little_endian(tail), path);
  if (member.size() < kTextOffset + kTailSize) {
    return std::nullopt;
  }
  const std::string text = member.substr(kTextOffset, member.size() - kTextOffset - kTailSize);
  if (member != signature_member(text)) {
    return std::nullopt;
  }
  return CarriedSignature{text, size - static_cast<off_t>(member.size())};
}

bool is_signed_for(const Purpose& purpose, const CarriedSignature& carried) {
  const std::optional<Signature> signature = split_signature(carried.text);
  const std::optional<Purpose> actual =
      signature ? from_trusted_comment(signature->trusted_comment) : std::nullopt;
  return actual && actual->item == purpose.item && actual->release == purpose.release &&
         actual->platform == purpose.platform && actual->bytes == carried.signed_bytes;
}

// Returns whether the start of a signature's member occurs near the end of the file.
static bool has_traces(int file, off_t size, const char* path) {
  static constexpr size_t kNear = 2 * kLongestField;
  const std::string bytes = read_end(file, size, kNear, path);
  std::string_view rest = bytes;
  for (size_t at; (at = rest.find(kMemberStart)) != std::string_view::npos;) {
    rest.remove_prefix(at + kMemberStart.size());
    if (rest.size() >= kLengthSize && rest.substr(kLengthSize).starts_with(kSubfield)) {
      return true;
    }
  }
  return false;
}

std::string flaw_of_signature(int file, off_t size, const char* path,
                              const std::optional<CarriedSignature>& found) {
  if (!found) {
    return has_traces(file, size, path) ? "has a signature that is damaged or not at the end" : "";
  }
  return find_signature(file, found->signed_bytes, path) ? "has more than one signature" : "";
}

}  // namespace runenv
