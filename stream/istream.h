/* The C input stream: a record of function pointers, followed by the fields of the variant.
 *
 * Counts, positions and offsets are in bytes. */
#ifndef RUNENV_STREAM_ISTREAM_H
#define RUNENV_STREAM_ISTREAM_H

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct istream istream;

/* The beginning of every variant. A record is malloc'ed and freed by istream_destroy. */
struct istream {
  /* Reads up to `count` bytes. Returns the number of bytes, or 0 at the end of data. */
  unsigned long long (*read_len)(istream* stream, char* destination, unsigned long long count);
  /* Seeks to `offset` from the start (origin 0), the current position (1) or the end (2). Returns 0
   * on success, -1 on failure. For another origin, memory returns -1 and a C file returns `offset`.
   * Null if the stream cannot seek. */
  int (*seek_pos)(istream* stream, int origin, long long offset);
  /* Releases what the variant owns, but not the record. Null if it owns nothing. */
  int (*destroy)(istream* stream);
};

/* A stream that reads a C file. */
typedef struct istream_file {
  istream functions;
  FILE* file;
} istream_file;

/* A stream that reads bytes in memory, which it borrows. */
typedef struct istream_memory {
  istream functions;
  const char* data;
  unsigned long long length;
  unsigned long long position;
} istream_memory;

/* Calls the read function. Returns the number of bytes read, or 0 at the end of data. */
unsigned long long istream_read_len(istream* stream, char* destination, unsigned long long count);

/* Calls the seek function and returns its result, or returns -1 if there is none. */
int istream_seek_pos(istream* stream, int origin, long long offset);

/* Calls the destroy function, if any, and frees the record. */
void istream_destroy(istream* stream);

/* Creates a stream that reads the `length` bytes at `data`, which must outlive it. */
istream* istream_create_memory(const char* data, unsigned long long length);

/* Creates a stream that reads standard input. It cannot seek. */
istream* istream_create_stdin(void);

/* The read function of an istream_file. A read error counts as the end of data. */
unsigned long long istream_stdio_read_len(istream* stream, char* destination,
                                          unsigned long long count);

#ifdef __cplusplus
}
#endif

#endif
