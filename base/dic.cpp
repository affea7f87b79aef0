/* dic.cpp: text keys to 64-bit values.
 *
 * A dic is an array of chains. Entries come from a memory pool, which hands them out from large blocks and is released
 * at once; only the copies of the keys are allocated one by one. Nothing is ever taken out, and the number of buckets
 * stays what it was when the dic was made.
 *
 * In this file: sizes, the text hash, the operations. */

#include "base/dic.h"

#include <string.h>

#include "base/sys.h"

enum { MIN_BUCKETS = 61, POOL_BLOCK = 0xffc };

static_assert(sizeof(dicEntry) == 40, "a pool block is laid out for entries of five words");

/* primes, so that a total modulo the size depends on all of its bits */
static const int bucketSizes[] = {
    3,         7,         13,        31,        61,        127,        251,     509,     1021,    2017,     4093,
    5987,      9551,      15683,     19609,     31397,     65521,      131071,  262139,  524287,  1048573,  2097143,
    4194301,   8388593,   16777213,  33554393,  67108859,  134217689,  268435399,        536870909,         1073741789,
    0
};

/* Sums the text's groups of three bytes, each read as a big-endian number; the last group may be shorter. */
static unsigned textHash(const char *key)
{
    unsigned total = 0;
    for (const unsigned char *p = (const unsigned char *) key; *p; ) {
        unsigned group = 0;
        for (int i = 0; i < 3 && *p; ++i) group = group * 256 + *p++;
        total += group;
    }
    return total;
}

static dicEntry **bucketOf(const dic *d, const char *key) { return d->table + textHash(key) % (unsigned) d->size; }

static dicEntry *findEntry(dicEntry *chain, const char *key)
{
    while (chain && !(chain->kind == 1 && strcmp(chain->key, key) == 0)) chain = chain->next;
    return chain;
}

extern "C" int dicBuckets(int wanted)
{
    const int *size = bucketSizes;
    while (*size && *size < wanted) ++size;
    return *size;
}

extern "C" dic *dicNew(int wanted)
{
    const int size = dicBuckets(wanted > MIN_BUCKETS ? wanted : MIN_BUCKETS);
    if (!size) sysFail("dic dimension of <%d> is too large", wanted);

    dic *d = memNewZ(dic, 1);
    d->size = size;
    d->table = memNewZ(dicEntry *, d->size);
    d->pool = memNewPool(sizeof(dicEntry), POOL_BLOCK);
    for (dicCursor &c : d->cursors) c.slot = -1;
    return d;
}

extern "C" void dicFree(dic *d)
{
    if (!d) return;
    for (int i = 0; i < d->size; ++i)
        for (dicEntry *e = d->table[i]; e; e = e->next)
            if (e->kind == 1) memFree(e->key);
    memFreePool(d->pool);
    memFree(d->table);
    memFree(d);
}

extern "C" int64_t dicPut(dic *d, const char *key, int64_t value)
{
    dicEntry **head = bucketOf(d, key), *e = findEntry(*head, key);
    if (!e) {
        e = (dicEntry *) memPoolItem(d->pool);
        *e = dicEntry{ 1, memDup(key), 0, 0, *head };
        *head = e;
    }
    return e->value = value;
}

extern "C" int64_t dicGet(const dic *d, const char *key)
{
    const dicEntry *e = findEntry(*bucketOf(d, key), key);
    return e ? e->value : 0;
}
