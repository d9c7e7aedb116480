// An owned array of heap C strings.
#pragma once

class StringArray final {
 public:
  StringArray() = default;  // empty: a null pointer and a count of 0
  ~StringArray();
  StringArray(const StringArray&) = delete;
  StringArray& operator=(const StringArray&) = delete;

  // Element `index`, null when out of range. The array owns it.
  const char* get_unmanaged_string(unsigned index) const;

  // The raw array of get_size() elements; may be null when empty.
  char** get_unmanaged_strings() const { return strings; }

  // The number of elements.
  unsigned get_size() const { return count; }

  // Replaces the content by copies of the `n` texts at `source`, which may be this array's own
  // texts.
  void update_from(const char* const* source, unsigned n);

  // The same for an array known to be empty; a filled one leaks what it held.
  void copy_from(const char* const* source, unsigned n);

  // Frees the content.
  void release();

 private:
  char** strings = nullptr;
  unsigned count = 0;
};
