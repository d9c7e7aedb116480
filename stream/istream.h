/* The C input stream: a record of functions with the variant's own fields behind them.
 *
 * Counts, positions and offsets are bytes. */
#ifndef RUNENV_STREAM_ISTREAM_H
#define RUNENV_STREAM_ISTREAM_H

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct istream istream;

/* What every variant begins with. A record is malloc'ed and released by istream_destroy. */
struct istream {
  /* Delivers up to `count` bytes and returns how many; 0 at the end of data. */
  unsigned long long (*read_len)(istream* stream, char* destination, unsigned long long count);
  /* Moves to `offset` from the start (origin 0), the position (1) or the end (2). Returns 0 on
   * success. A C file returns the offset for any other origin. Null where the stream cannot seek.
   */
  int (*seek_pos)(istream* stream, int origin, long long offset);
  /* Releases what the variant owns, not the record itself. Null where it owns nothing. */
  int (*destroy)(istream* stream);
};

/* A record over a C file: the open FILE follows the functions. */
typedef struct istream_file {
  istream functions;
  FILE* file;
} istream_file;

/* A record over bytes in memory, which it borrows. */
typedef struct istream_memory {
  istream functions;
  const char* data;
  unsigned long long length;
  unsigned long long position;
} istream_memory;

/* Calls the read function. Returns the number of bytes delivered, 0 at the end of data. */
unsigned long long istream_read_len(istream* stream, char* destination, unsigned long long count);

/* Calls the seek function. Returns 0 on success, -1 when that refuses or there is none. */
int istream_seek_pos(istream* stream, int origin, long long offset);

/* Calls the destroy function, if any, and frees the record. */
void istream_destroy(istream* stream);

/* A stream over `length` borrowed bytes, at position 0. */
istream* istream_create_memory(const char* data, unsigned long long length);

/* A stream over the process's standard input. It cannot seek. */
istream* istream_create_stdin(void);

/* The read function of records that hold a FILE (istream_file). A read error counts as the end of
 * data. */
unsigned long long istream_stdio_read_len(istream* stream, char* destination,
                                          unsigned long long count);

#ifdef __cplusplus
}
#endif

#endif
