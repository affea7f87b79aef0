/* rdbKeys.cpp: the registry, the table of everything that a client can ask for.
 *
 * The list is rdbKeys.def, in the order that people like. The compiler makes two things of it: the table in order of
 * name, which is the order that clients see, and a hash over the names, so that finding a row costs one look and one
 * comparison: every request looks up the rows that count its indices and size its answer too. Both are constants; no
 * code runs before main.
 *
 * In this file: the getters declared, the table, the search, and the rows that answer about the table itself. */

#include "rdb/rdbInt.h"

#include <string.h>

#define rdb_logEventDim rdb_nSdims            /* three reals tell an event: two keys, one getter */

#define KEY(name, ...) RDB_GETTER(rdb_##name);
extern "C" {
#include "rdb/rdbKeys.def"
}
#undef KEY

/* ----------------------------------------------------------------------------------- the list, made at compile time */

struct keyNames { int n; const char *key[3]; };      /* the keys that count indices or size dims */

static constexpr keyNames names(const char *a = nullptr, const char *b = nullptr, const char *c = nullptr)
{
    return { !a ? 0 : !b ? 1 : !c ? 2 : 3, { a, b, c } };
}

static constexpr int length(const char *text)
{
    int n = 0;
    while (text[n]) ++n;
    return n;
}

enum { TOO_LONG = 64 };               /* no key has as many characters: the search looks no further */

static constexpr rdbKeyRow row(const char *name, int type, keyNames idx, keyNames dim, int needsRun, rdbGetter getter)
{
    return { name, length(name), type, idx.n, { idx.key[0], idx.key[1], idx.key[2] }, dim.n,
             { dim.key[0], dim.key[1] }, needsRun, getter };
}

#define KEY(name, type, idx, dim, needsRun) row(#name, RDB_##type, idx, dim, needsRun, rdb_##name),
#define IDX names
#define DIM names
static constexpr rdbKeyRow asWritten[] = {
#include "rdb/rdbKeys.def"
};
#undef KEY
#undef IDX
#undef DIM

enum { N_KEYS = sizeof asWritten / sizeof *asWritten, N_SLOTS = 4096 };      /* slots: a power of 2 */
static_assert(N_KEYS <= N_SLOTS / 2, "rdbKeys.cpp: the hash is too full, double its slots");

struct keyTable {
    rdbKeyRow rows[N_KEYS + 1];       /* ascending by the bytes of the name; a row without a name ends them */
    short     slots[N_SLOTS];         /* position of the row that hashes there, or behind there; -1: none   */
};

/* Below 0, 0, above 0: a stands before b, is b, stands behind b. By bytes, which plain ASCII names allow as chars. */
static constexpr int compare(const char *a, const char *b)
{
    while (*a && *a == *b) ++a, ++b;
    return *a - *b;
}

static constexpr unsigned hashOf(const char *name, int n)
{
    unsigned h = 2166136261u;
    for (int i = 0; i < n; ++i) h = (h ^ (unsigned char) name[i]) * 16777619u;
    return (h ^ h >> 15) % N_SLOTS;
}

/* Merges ever longer sorted stretches of positions: the compiler counts steps, and simpler sorts take too many. */
static constexpr keyTable byName(const rdbKeyRow *list)
{
    int order[2][N_KEYS] = {}, from = 0;
    for (int i = 0; i < N_KEYS; ++i) order[0][i] = i;
    for (int width = 1; width < N_KEYS; width *= 2, from = 1 - from) {
        const int *src = order[from];
        for (int start = 0, out = 0; start < N_KEYS; start += 2 * width) {
            int a = start, aEnd = a + width < N_KEYS ? a + width : N_KEYS;
            int b = aEnd, bEnd = b + width < N_KEYS ? b + width : N_KEYS;
            while (a < aEnd || b < bEnd) {
                bool takeA = b >= bEnd || (a < aEnd && compare(list[src[a]].name, list[src[b]].name) <= 0);
                order[1 - from][out++] = src[takeA ? a++ : b++];
            }
        }
    }

    keyTable table = {};
    for (int i = 0; i < N_SLOTS; ++i) table.slots[i] = -1;
    for (int i = 0; i < N_KEYS; ++i) {
        table.rows[i] = list[order[from][i]];
        unsigned s = hashOf(table.rows[i].name, table.rows[i].nameLen);
        while (table.slots[s] >= 0) s = (s + 1) % N_SLOTS;
        table.slots[s] = (short) i;
    }
    return table;
}

static constexpr bool ascending(const keyTable &table)
{
    for (int i = 1; i < N_KEYS; ++i)
        if (compare(table.rows[i - 1].name, table.rows[i].name) >= 0) return false;
    return true;
}

static constexpr bool allShort(const keyTable &table)
{
    for (int i = 0; i < N_KEYS; ++i)
        if (table.rows[i].nameLen >= TOO_LONG) return false;
    return true;
}

static constexpr keyTable rdbKeyTable = byName(asWritten);
static_assert(ascending(rdbKeyTable), "rdbKeys.def: a key stands twice");
static_assert(allShort(rdbKeyTable), "rdbKeys.def: a key is too long for the search");

/* ----------------------------------------------------------------------------------------------- search and getters */

const rdbKeyRow *rdbFindKey(const char *name)
{
    const int n = (int) strnlen(name, TOO_LONG);     /* so that long texts cost nothing */
    for (unsigned s = hashOf(name, n); rdbKeyTable.slots[s] >= 0; s = (s + 1) % N_SLOTS) {
        const rdbKeyRow *row = &rdbKeyTable.rows[rdbKeyTable.slots[s]];
        if (row->nameLen == n && !memcmp(row->name, name, n)) return row;
    }
    return nullptr;
}

extern "C" {

RDB_GETTER(rdb_nQueries)  { return rdbPutInt(data, N_KEYS); }
RDB_GETTER(rdb_queryName) { return rdbPutText(data, rdbKeyTable.rows[i1].name); }
RDB_GETTER(rdb_nSdims)    { return rdbPutInt(data, 3); }
RDB_GETTER(rdb_nPairs)    { return rdbPutInt(data, 2); }

}
