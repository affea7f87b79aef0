#ifndef BASE_DIC_H
#define BASE_DIC_H

/* dic.h: a table from text keys to 64-bit values, by chained hashing. It never grows: one made too small only has
 * longer chains. It serves file names, so some thousands of short keys. */

#include "base/mem.h"

typedef struct dicEntry {
    int              kind;        /* 1: live                                       */
    char            *key;         /* own copy                                      */
    int64_t          reserved;
    int64_t          value;
    struct dicEntry *next;
} dicEntry;

typedef struct dicCursor { int64_t slot, entry, count; } dicCursor;

typedef struct dic {
    int        size;              /* buckets, a prime                              */
    dicEntry **table;             /* their chains, newest entry first              */
    memPool   *pool;              /* of the entries                                */
    dicCursor  cursors[2];        /* for iteration: slot -1 before the first entry */
} dic;

#ifdef __cplusplus
extern "C" {
#endif

/* The number of buckets of a table that shall have at least `wanted`: the first size not below it in a list of 31
   primes from 3 to 1073741789. 0 above the list. */
int dicBuckets(int wanted);

/* A new, empty dic of dicBuckets(wanted) buckets; fewer than 61 wanted, negative numbers too, count as 61.
   The caller ends it with dicFree. May not return: "dic dimension of <%d> is too large" above 1073741789; no memory. */
dic *dicNew(int wanted);

/* Ends a dic with all of its keys; an absent one is passed over. What the values stand for is the caller's. */
void dicFree(dic *d);

/* Stores a value under a copy of the key, in place of a former value of that key. Gives the value. May not return: no
   memory. */
int64_t dicPut(dic *d, const char *key, int64_t value);

/* The value stored under exactly this key; 0 if there is none, so that a stored 0 and no entry look alike. */
int64_t dicGet(const dic *d, const char *key);

#ifdef __cplusplus
}
#endif
#endif
