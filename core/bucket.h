/* A NUL-terminated string builder that grows in steps of 64 bytes; the path type of the C file
 * interface.
 *
 * Functions that take a builder return it, so that calls chain. They return null for a null one.
 * A failed allocation ends the process. */
#ifndef RUNENV_CORE_BUCKET_H
#define RUNENV_CORE_BUCKET_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct bucket_t {
  char* data;                  /* malloc'ed, null at first; otherwise data[length] is a NUL */
  unsigned long long capacity; /* bytes allocated */
  unsigned long long length;   /* without the terminator */
} bucket_t;

/* Makes an empty builder that owns nothing. What the record held before is not freed. */
bucket_t* bucket_nil(bucket_t* b);

/* Appends one byte. */
bucket_t* bucket_push(bucket_t* b, char c);

/* Appends a C string, which may lie in the builder. A null one appends nothing. */
bucket_t* bucket_append(bucket_t* b, const char* s);

/* Appends each `const char*` argument up to the null pointer that must end the list. None of them
 * may lie in the builder. */
bucket_t* bucket_appendv(bucket_t* b, ...);

/* Appends the decimal text of `v`. The most negative value gives "--922337203685477580(". */
bucket_t* bucket_append_int(bucket_t* b, long long v);

/* Shortens by `n` bytes, at most to the empty string. The builder must own storage. */
bucket_t* bucket_drop(bucket_t* b, unsigned long long n);

/* The string, owned by the builder and valid until its next change. Not null unless `b` is. */
char* bucket_cstring(bucket_t* b);

/* Frees the storage and makes the builder empty. */
bucket_t* bucket_release(bucket_t* b);

#ifdef __cplusplus
}
#endif

#endif
