#include "core/bucket.h"

#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "core/allocation.h"
#include "core/overlap.h"

static_assert(sizeof(bucket_t) == 24, "C callers rely on three 64-bit words");

static constexpr unsigned long long kStep = 64;
static constexpr size_t kLongestNumber = 24;  // with sign and terminator, rounded up

static void resize(bucket_t* b, unsigned long long capacity) {
  b->data = static_cast<char*>(runenv::reallocate(b->data, capacity));
  b->capacity = capacity;
}

static void append_bytes(bucket_t* b, const char* bytes, unsigned long long n) {
  if (b->data == nullptr) {
    resize(b, kStep);
  }
  const unsigned long long new_length = b->length + n;
  if (new_length >= b->capacity) {
    const ptrdiff_t own_offset = runenv::offset_in(b->data, b->capacity, bytes);
    resize(b, new_length + kStep);
    bytes = own_offset < 0 ? bytes : b->data + own_offset;
  }
  std::memmove(b->data + b->length, bytes, n);
  b->data[new_length] = '\0';
  b->length = new_length;
}

bucket_t* bucket_nil(bucket_t* b) {
  if (b != nullptr) {
    *b = bucket_t{};
  }
  return b;
}

bucket_t* bucket_push(bucket_t* b, char c) {
  if (b != nullptr) {
    append_bytes(b, &c, 1);
  }
  return b;
}

bucket_t* bucket_append(bucket_t* b, const char* s) {
  if (b != nullptr && s != nullptr) {
    append_bytes(b, s, std::strlen(s));
  }
  return b;
}

bucket_t* bucket_appendv(bucket_t* b, ...) {
  va_list texts;
  va_start(texts, b);
  for (const char* s = va_arg(texts, const char*); b != nullptr && s != nullptr;
       s = va_arg(texts, const char*)) {
    bucket_append(b, s);
  }
  va_end(texts);
  return b;
}

bucket_t* bucket_append_int(bucket_t* b, long long v) {
  if (b == nullptr) {
    return nullptr;
  }
  char digits[kLongestNumber];
  const char* end = std::to_chars(digits, digits + sizeof digits, v).ptr;
  if (v == LLONG_MIN) {
    // Negating this value yields the value itself, hence the second '-' and the last "digit" below
    // '0'. Kept on purpose.
    end = stpcpy(digits, "--922337203685477580(");
  }
  const auto n = static_cast<unsigned long long>(end - digits);
  if (b->data != nullptr && b->length + n >= b->capacity) {
    resize(b, b->capacity + kStep);  // as if the digits had been pushed one by one
  }
  append_bytes(b, digits, n);
  return b;
}

bucket_t* bucket_drop(bucket_t* b, unsigned long long n) {
  if (b != nullptr) {
    b->length = b->length < n ? 0 : b->length - n;
    b->data[b->length] = '\0';
  }
  return b;
}

char* bucket_cstring(bucket_t* b) {
  if (b == nullptr) {
    return nullptr;
  }
  if (b->data == nullptr) {
    append_bytes(b, "", 0);
  }
  return b->data;
}

bucket_t* bucket_release(bucket_t* b) {
  if (b != nullptr && b->data != nullptr) {
    std::free(b->data);
    bucket_nil(b);
  }
  return b;
}
