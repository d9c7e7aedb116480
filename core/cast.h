/* A cast for inline functions that C and C++ compile. */
#ifndef RUNENV_CORE_CAST_H
#define RUNENV_CORE_CAST_H

/* In C++ this is not a C-style cast, so that programs can include the headers with
 * -Wold-style-cast. */
#ifdef __cplusplus
/* Casts `pointer` to another pointer `type`. */
#define RUNENV_CAST(type, pointer) (reinterpret_cast<type>(pointer))
#else
#define RUNENV_CAST(type, pointer) ((type)(pointer))
#endif

#endif
