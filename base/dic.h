#ifndef BASE_DIC_H
#define BASE_DIC_H

/* dic.h: a table from text keys to 64-bit values, by chained hashing. It never grows. */

#include "base/mem.h"

typedef struct dicEntry {
    int              kind;        /* 1: live                */
    char            *key;         /* own copy               */
    int64_t          reserved;
    int64_t          value;
    struct dicEntry *next;
} dicEntry;

typedef struct dicCursor { int64_t slot, entry, count; } dicCursor;

typedef struct dic {
    int        size;              /* buckets, a prime       */
    dicEntry **table;
    memPool   *pool;
    dicCursor  cursors[2];
} dic;

#ifdef __cplusplus
extern "C" {
#endif

dic    *dicNew(int wanted);
void    dicFree(dic *d);
int64_t dicPut(dic *d, const char *key, int64_t value);
int64_t dicGet(const dic *d, const char *key);

#ifdef __cplusplus
}
#endif
#endif
