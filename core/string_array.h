// An owned array of heap C strings.
#pragma once

class StringArray final {
 public:
  StringArray() = default;  // empty
  ~StringArray();
  StringArray(const StringArray&) = delete;
  StringArray& operator=(const StringArray&) = delete;

  // Returns element `index`, or null if it is out of range. The string is owned by the array and
  // valid until the array is modified.
  const char* get_unmanaged_string(unsigned index) const;

  // Returns the array of get_size() elements, which may be null if empty. Ownership as above.
  char** get_unmanaged_strings() const { return strings; }

  // Returns the number of elements.
  unsigned get_size() const { return count; }

  // Replaces the content with copies of the `n` strings at `source`, none of which may be null.
  // They may be this array's own strings.
  void update_from(const char* const* source, unsigned n);

  // Stores copies in the same way. The array must be empty, otherwise its content leaks.
  void copy_from(const char* const* source, unsigned n);

  // Frees the content.
  void release();

 private:
  char** strings = nullptr;
  unsigned count = 0;
};
