// A growable byte array with a read offset: the carrier of every byte that moves through streams,
// child-process pipes and sockets.
#pragma once

class Instream;

class Buffer final {
 public:
  // An empty buffer; an `initial_capacity` of 0 allocates nothing yet.
  explicit Buffer(unsigned long long initial_capacity);

  // A buffer filled with the rest of `stream`, followed by one NUL byte (counted in the size) when
  // `terminate` is true.
  Buffer(bool terminate, Instream stream);

  ~Buffer();
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  // Appends `n` bytes, which may lie in this buffer. The capacity grows by doubling, from 8. When
  // memory is exhausted, this reports it on standard error, drops the content and throws the C
  // string "Out of memory!".
  void append(const char* bytes, unsigned long long n);

  // Appends all of `other`, its consumed bytes included. `other` may be this buffer.
  void append(const Buffer& other);

  // Marks `n` more bytes as read. The caller keeps consumed <= size.
  void consume(unsigned long long n) { consumed += n; }

  // Frees the storage. `consumed` keeps its value: reset it before you use the buffer again.
  void release();

  // The first unread byte. It is an empty string when nothing is allocated or `consumed` lies
  // beyond the capacity. The buffer owns it; the next append moves it.
  char* get_unmanaged_array();

  // The number of unread bytes.
  unsigned long long length() const { return size - consumed; }

  char* array = nullptr;            // malloc'ed, null without storage
  unsigned long long size = 0;      // bytes written
  unsigned long long capacity = 0;  // bytes allocated; 0: the buffer owns no storage
  unsigned long long consumed = 0;  // bytes already read

 private:
  void grow(unsigned long long need);
  [[noreturn]] void throw_out_of_memory();
};
