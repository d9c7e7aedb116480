// An owned heap C string.
#pragma once

class String final {
 public:
  String() = default;  // empty: a null pointer
  ~String();
  String(const String&) = delete;
  String& operator=(const String&) = delete;

  // The string, null when empty. This object owns it.
  char* get_unmanaged_string() { return text; }
  const char* get_unmanaged_string() const { return text; }

  // Replaces the content by a copy of `source`, which may be this object's own text.
  void update_from(const char* source);

  // Stores a copy of `source` in a String known to be empty; a filled one leaks what it held.
  void copy_from(const char* source);

  // Frees the content.
  void release();

 private:
  char* text = nullptr;
};
