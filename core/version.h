/* The version of the library and of its programs. The build reads it from this file. */
#ifndef RUNENV_CORE_VERSION_H
#define RUNENV_CORE_VERSION_H

/* A new major version may be incompatible. While it is 0, a new minor version may be, too. */
#define RUNENV_VERSION_MAJOR 0
#define RUNENV_VERSION_MINOR 1 /* incremented when something is added */
#define RUNENV_VERSION_PATCH 0 /* incremented when faults are fixed and nothing is added */

#define RUNENV_PLAIN_TEXT(words) #words             /* the argument as a string literal */
#define RUNENV_TEXT(words) RUNENV_PLAIN_TEXT(words) /* the expanded argument, likewise */

/* The version of these headers as a string literal, for example "1.2.3". */
#define RUNENV_VERSION              \
  RUNENV_TEXT(RUNENV_VERSION_MAJOR) \
  "." RUNENV_TEXT(RUNENV_VERSION_MINOR) "." RUNENV_TEXT(RUNENV_VERSION_PATCH)

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the version of the library at run time, for example "1.2.3". With a shared library it can
 * be later than RUNENV_VERSION, the version that the program was compiled with. */
const char* runenv_version(void);

#ifdef __cplusplus
}
#endif

#endif
