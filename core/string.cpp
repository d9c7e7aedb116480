#include "core/string.h"

#include <cstdlib>

#include "core/c_string.h"

String::~String() {
  release();
}

void String::update_from(const char* source) {
  char* const previous = text;  // freed last, because `source` may be this text
  copy_from(source);
  std::free(previous);
}

void String::copy_from(const char* source) {
  copy_string(&text, source);
}

void String::release() {
  std::free(text);
  text = nullptr;
}
