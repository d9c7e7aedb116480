/* A NUL-terminated string builder that grows in steps of 64 bytes. It is also the path type of the
 * C file interface.
 *
 * Functions that take a builder return it, so that calls can be chained. For a null pointer they do
 * nothing and return null. A failed allocation ends the process. */
#ifndef RUNENV_CORE_BUCKET_H
#define RUNENV_CORE_BUCKET_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct bucket_t {
  char* data;                  /* malloc'ed, or null at first; if not null, data[length] is NUL */
  unsigned long long capacity; /* bytes allocated */
  unsigned long long length;   /* without the terminator */
} bucket_t;

/* Initialises an empty builder that owns nothing. Does not free what the record held before. */
bucket_t* bucket_nil(bucket_t* b);

/* Appends one byte. */
bucket_t* bucket_push(bucket_t* b, char c);

/* Appends a C string, which may lie in the builder. A null pointer appends nothing. */
bucket_t* bucket_append(bucket_t* b, const char* s);

/* Appends all `const char*` arguments. A null pointer must end the list. None of the strings may
 * lie in the builder. */
bucket_t* bucket_appendv(bucket_t* b, ...);

/* Appends the decimal text of `v`. The most negative value gives "--922337203685477580(". */
bucket_t* bucket_append_int(bucket_t* b, long long v);

/* Removes the last `n` bytes, or all bytes if there are fewer. `data` must not be null. */
bucket_t* bucket_drop(bucket_t* b, unsigned long long n);

/* Returns the string, which is owned by the builder and valid until the builder is modified. The
 * result is null only for a null `b`. */
char* bucket_cstring(bucket_t* b);

/* Frees the storage and makes the builder empty. */
bucket_t* bucket_release(bucket_t* b);

#ifdef __cplusplus
}
#endif

#endif
