/* A cast for inline functions that C and C++ compile. */
#ifndef RUNENV_CORE_CAST_H
#define RUNENV_CORE_CAST_H

/* C++ programs that warn of C's casts include these headers, too. */
#ifdef __cplusplus
/* `pointer` as a pointer of another `type`. */
#define RUNENV_CAST(type, pointer) (reinterpret_cast<type>(pointer))
#else
#define RUNENV_CAST(type, pointer) ((type)(pointer))
#endif

#endif
