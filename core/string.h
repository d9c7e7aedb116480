// An owned heap C string.
#pragma once

class String final {
 public:
  String() = default;  // empty: a null pointer
  ~String();
  String(const String&) = delete;
  String& operator=(const String&) = delete;

  // The string, null when empty; it stays owned by this object.
  char* get_unmanaged_string() { return text; }
  const char* get_unmanaged_string() const { return text; }

  // Replaces the content by a copy of `source`.
  void update_from(const char* source);

  // Stores a copy of `source` in a String known to be empty. A filled one leaks what it held: this
  // is the cheap first assignment, update_from the safe reassignment.
  void copy_from(const char* source);

  // Frees the content. Releasing an empty String is harmless.
  void release();

 private:
  char* text = nullptr;
};
