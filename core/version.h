/* The version of the library and of the programs that come with it. This is the one place that
 * holds it: the build reads it from here. */
#ifndef RUNENV_CORE_VERSION_H
#define RUNENV_CORE_VERSION_H

/* A new major version may break programs, while it is 0 a new minor one, too. */
#define RUNENV_VERSION_MAJOR 0
#define RUNENV_VERSION_MINOR 1 /* counts the versions that add something */
#define RUNENV_VERSION_PATCH 0 /* counts those that only mend */

#define RUNENV_PLAIN_TEXT(words) #words             /* the argument as it stands, as a text */
#define RUNENV_TEXT(words) RUNENV_PLAIN_TEXT(words) /* what the argument expands to, as a text */

/* The version of these headers as a text, such as "1.2.3". */
#define RUNENV_VERSION              \
  RUNENV_TEXT(RUNENV_VERSION_MAJOR) \
  "." RUNENV_TEXT(RUNENV_VERSION_MINOR) "." RUNENV_TEXT(RUNENV_VERSION_PATCH)

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the version of the library that the program runs with, such as "1.2.3". With a shared
 * library it can be later than RUNENV_VERSION, which the program was compiled with. */
const char* runenv_version(void);

#ifdef __cplusplus
}
#endif

#endif
