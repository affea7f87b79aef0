/* mtxHash.cpp: the inverse hash.
 *
 * Open addressing with a load of at most 2/3, so that each walk meets an empty pair. The header describes the array.
 * Walks are short: of a hundred million ordinary keys none lies 200 pairs from its slot. Keys can be chosen to share
 * their slots, though, and then each walk would be as long as the list. So a key that would come to lie too far from
 * its slot is refused, and no look-up goes farther.
 *
 * Numbers of pairs and positions in the array are kept wider than int: 2 h + 1 exceeds it from n = 715 million on.
 *
 * In this file: slots, building, look-ups. */

#include "mtx/mtxHash.h"

#include <string.h>

#include "base/mem.h"
#include "base/sys.h"

enum {
    AHEAD = 32,                 /* keys whose pairs are fetched together while building     */
    FARTHEST = 1024             /* a key lies in one of so many pairs, from its own slot on */
};

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

typedef enum insertion { INSERTED, DOUBLED, TOO_FAR } insertion;

/* Puts (key, index) into the first empty pair from the slot on. A doubled key 0 passes: ids that were never given are
   0. Only its first pair can be found, so that the others are left out. */
static insertion insert(int *hash, uint32_t h, uint32_t slot, int key, int index)
{
    for (int walked = 0; walked < FARTHEST; ++walked) {
        int *pair = hash + 2 * (size_t) slot;
        if (pair[1] == -1) {
            pair[0] = key;
            pair[1] = index;
            return INSERTED;
        }
        if (pair[0] == key) return key ? DOUBLED : INSERTED;
        if (++slot == h) slot = 0;
    }
    return TOO_FAR;
}

/* Fills a hash whose pairs are empty. Returns n, or the position of the first key that did not go in, and why. The
   slots are scattered, so that a large hash waits for memory at each key: the pairs of the next keys are asked for
   ahead. */
static int fill(int *hash, uint32_t h, const int *keys, int n, insertion *result)
{
    *result = INSERTED;
    uint32_t slots[AHEAD];
    for (int from = 0, count; from < n; from += count) {
        count = n - from < AHEAD ? n - from : AHEAD;
        for (int i = 0; i < count; ++i) {
            slots[i] = slotOf(keys[from + i], h);
            __builtin_prefetch(pairAt(hash, slots[i]), 1);
        }
        for (int i = 0; i < count; ++i) {
            *result = insert(hash, h, slots[i], keys[from + i], from + i);
            if (*result != INSERTED) return from + i;
        }
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
    insertion result;
    const int bad = fill(hash, h, keys, n, &result);
    if (result == INSERTED) return hash;
    memFree(hash);
    if (result == DOUBLED) sysFail("Duplicate key <%d>", keys[bad]);
    sysFail("Keys cannot be told apart quickly: <%d> of <%d> share too few places", bad, n);
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
    for (int walked = 1; walked < FARTHEST && pair[1] != -1; ++walked) {
        if (++slot == h) slot = 0;
        pair = pairAt(hash, slot);
        if (pair[0] == key && pair[1] != -1) return pair;
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
