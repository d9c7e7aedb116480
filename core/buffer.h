// A growable byte array with a read offset. Streams, child-process pipes and sockets all use it.
#pragma once

class Instream;

class Buffer final {
 public:
  // Makes an empty buffer. An `initial_capacity` of 0 allocates nothing yet. If the allocation of
  // another one fails, the process ends.
  explicit Buffer(unsigned long long initial_capacity);

  // Makes a buffer with the rest of `stream`. If `terminate` is true, one NUL byte follows, which
  // is counted in the size.
  Buffer(bool terminate, Instream stream);

  ~Buffer();
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  // Appends `n` bytes, which may lie in this buffer. The capacity starts at 8 and doubles. When
  // memory is exhausted, prints an error, drops the content and throws the C string
  // "Out of memory!".
  void append(const char* bytes, unsigned long long n);

  // Appends all of `other`, including its consumed bytes. `other` may be this buffer.
  void append(const Buffer& other);

  // Marks `n` more bytes as read. The caller must keep consumed <= size.
  void consume(unsigned long long n) { consumed += n; }

  // Frees the storage. `consumed` keeps its value. Reset it before you use the buffer again.
  void release();

  // Returns a pointer to the first unread byte, or to an empty string when nothing is allocated or
  // `consumed` exceeds the capacity. The bytes are owned by the buffer and valid until the next
  // append.
  char* get_unmanaged_array();

  // Returns the number of unread bytes.
  unsigned long long length() const { return size - consumed; }

  char* array = nullptr;            // malloc'ed; meaningless while the capacity is 0
  unsigned long long size = 0;      // bytes written
  unsigned long long capacity = 0;  // bytes allocated; 0: the buffer owns no storage
  unsigned long long consumed = 0;  // bytes already read

 private:
  void grow(unsigned long long need);
  [[noreturn]] void throw_out_of_memory();
};
