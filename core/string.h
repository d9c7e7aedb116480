// An owned heap C string.
#pragma once

class String final {
 public:
  String() = default;  // empty
  ~String();
  String(const String&) = delete;
  String& operator=(const String&) = delete;

  // Returns the string, or null if empty. It is owned by this object and valid until the object is
  // modified.
  char* get_unmanaged_string() { return text; }
  const char* get_unmanaged_string() const { return text; }

  // Replaces the content with a copy of `source`, which must not be null and may be this object's
  // own text.
  void update_from(const char* source);

  // Stores a copy of `source`, which must not be null. The object must be empty, otherwise its
  // content leaks.
  void copy_from(const char* source);

  // Frees the content.
  void release();

 private:
  char* text = nullptr;
};
