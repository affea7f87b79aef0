/* mtxHash.cpp: the inverse hash.
 *
 * Open addressing with a load of at most 2/3, so that each walk meets an empty pair. The header describes the array.
 * Numbers of pairs and positions in the array are kept wider than int: 2 h + 1 exceeds it from n = 715 million on.
 *
 * In this file: slots, building, look-ups. */

#include "mtx/mtxHash.h"

#include <string.h>

#include "base/mem.h"
#include "base/sys.h"

enum { AHEAD = 32 };            /* keys whose pairs are fetched together while building */

/* (int) (n * 1.5 + 1.0), which passes int for the largest n */
static inline uint32_t pairsFor(int n) { return (uint32_t) n + (uint32_t) n / 2 + 1; }

static inline uint32_t slotOf(int key, uint32_t h)
{
    uint32_t k = (uint32_t) key;
    uint32_t a = (k >> 16 ^ k) * 0x3335B369u;
    uint32_t b = (a >> 16 ^ a) * 0x3335B369u;
    return (b >> 16 ^ b) % h;
}

static inline const int *pairAt(const int *hash, uint32_t slot) { return hash + 2 * (size_t) slot; }

static bool consecutive(const int *keys, int n)
{
    for (int i = 1; i < n; ++i)
        if (keys[i] != keys[0] + (int64_t) i) return false;
    return true;
}

/* Puts (key, index) into the first empty pair from the slot on; false if the key is met on the way. A doubled key 0 is
   not looked for: it goes in twice, and look-ups find the first. Each pair passed takes one off the steps. */
static bool insert(int *hash, uint32_t h, uint32_t slot, int key, int index, int64_t *steps)
{
    int *pair = hash + 2 * (size_t) slot;
    while (pair[1] != -1) {
        if (pair[0] == key && key != 0) return false;
        if (++slot == h) slot = 0;
        pair = hash + 2 * (size_t) slot;
        --*steps;
    }
    pair[0] = key;
    pair[1] = index;
    return true;
}

/* Fills a hash whose pairs are empty. Returns n, or the position of the first doubled key, or of the one that used up
   the steps: keys chosen to share their slots would take n^2 of them. The slots are scattered, so
   that a large hash waits for memory at each key: the pairs of the next keys are asked for ahead. */
static int fill(int *hash, uint32_t h, const int *keys, int n, int64_t *steps)
{
    uint32_t slots[AHEAD];
    for (int from = 0, count; from < n; from += count) {
        count = n - from < AHEAD ? n - from : AHEAD;
        for (int i = 0; i < count; ++i) {
            slots[i] = slotOf(keys[from + i], h);
            __builtin_prefetch(pairAt(hash, slots[i]), 1);
        }
        for (int i = 0; i < count; ++i)
            if (!insert(hash, h, slots[i], keys[from + i], from + i, steps) || *steps < 0) return from + i;
    }
    return n;
}

extern "C" int *mtxNewInvHash(const int *keys, int n)
{
    if (n < 0) sysFail("Invalid number of keys <%d>", n);

    uint32_t h = pairsFor(n);
    int *hash = memNew(int, 2 * (int64_t) h + 1);
    int &mode = hash[2 * (size_t) h];
    if (consecutive(keys, n)) {
        hash[0] = n ? keys[0] : 0;
        mode = 0;
        return hash;
    }
    memset(hash, 0xff, 2 * (size_t) h * sizeof(int));           /* all -1 */
    mode = 1;
    int64_t steps = 64 * (int64_t) n + 1000000;                 /* ordinary keys take about n */
    int bad = fill(hash, h, keys, n, &steps);
    if (bad < n) {
        memFree(hash);
        if (steps < 0) sysFail("Keys cannot be told apart quickly: <%d> of <%d> share too few places", bad, n);
        sysFail("Duplicate key <%d>", keys[bad]);
    }
    return hash;
}

/* A dense hash gives the difference from its first key, wrapped for ids that are far apart. */
static inline bool isDense(const int *hash, uint32_t h)  { return hash[2 * (size_t) h] == 0; }
static inline int denseIndex(const int *hash, int key)   { return (int) ((uint32_t) key - (uint32_t) hash[0]); }

/* The pair that holds the key, or null. The first pair's key is compared before the pair is known to be filled, so that
   an absent key -1 may match an empty pair there. */
static inline const int *findPair(const int *hash, uint32_t h, int key)
{
    uint32_t slot = slotOf(key, h);
    const int *pair = pairAt(hash, slot);
    if (pair[0] == key) return pair;
    while (pair[1] != -1) {
        if (pair[0] == key) return pair;
        if (++slot == h) slot = 0;
        pair = pairAt(hash, slot);
    }
    return nullptr;
}

extern "C" int mtxInvHash(const int *hash, int n, int key)
{
    uint32_t h = pairsFor(n);
    if (isDense(hash, h)) return denseIndex(hash, key);
    const int *pair = findPair(hash, h, key);
    if (!pair) sysFail("Key <%d> not found", key);
    return pair[1];
}

extern "C" int mtxIfInvHash(const int *hash, int n, int key, int *notFound)
{
    uint32_t h = pairsFor(n);
    if (isDense(hash, h)) {
        const int index = denseIndex(hash, key);
        *notFound = key < hash[0] || index < 0;
        return index;
    }
    const int *pair = findPair(hash, h, key);
    *notFound = !pair;
    return pair ? pair[1] : -1;
}
