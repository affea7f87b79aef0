/* rdbGet.cpp: typed access, the front door. Every datum is asked for by key through the operations here.
 *
 * There is one routine, answer(): it finds the key's row, checks the request against it, and calls the row's getter.
 * The typed operations and rdbGetData are one line each on top of it. The checks are what a client sees of the library
 * when it asks wrongly, so their order and their texts are part of the interface.
 *
 * What bounds an index or sizes an answer is itself a key, which may take indices: nOelElems counts the rows of oelCnn
 * and needs both indices of oelCnn. So the checks ask for counts through the same routine, with the row that asks as
 * the parent, and the parent's indices are handed on by the names of the keys that count them.
 *
 * Nothing is allocated or copied here: the getter fills the caller's buffer. */

#include "rdb/rdbInt.h"

#include <limits.h>
#include <string.h>

#include <algorithm>

enum { ANY = -1 };                  /* number of indices of a request that the library makes itself: not tested */

static int answer(rdbHd *hd, const rdbKeyRow *parent, const char *key, void *data, int type, int nIdx, int i1, int i2,
                  int i3, int d1, int d2);

/* The indices of `row` out of those given for `parent`. 1, or 0 and the error text. */
static int fromParent(const rdbKeyRow *row, const rdbKeyRow *parent, int i[3])
{
    int own[3] = { -1, -1, -1 };
    for (int s = 0; s < row->nIdx; ++s) {
        int found = 0;
        for (int p = 0; p < parent->nIdx; ++p)
            if (!strcmp(row->idxKey[s], parent->idxKey[p])) own[s] = i[p], found = 1;
        if (!found) return rdbFail("index mismatch between %s and %s", row->name, parent->name);
    }
    memcpy(i, own, sizeof own);
    return 1;
}

/* What the integer row `key` counts, asked for by `row` with its indices. */
static int count(rdbHd *hd, const rdbKeyRow *row, const char *key, int *n, const int i[3])
{
    return answer(hd, row, key, n, RDB_INT, ANY, i[0], i[1], i[2], -1, -1);
}

static int checkIndices(rdbHd *hd, const rdbKeyRow *row, const int i[3])
{
    static const char *const outOfRange[3] = { "index1 (%d) is out of range [0,%d]",
                                               "index2 (%d) is out of range [0,%d]",
                                               "index3 (%d) is out of range [0,%d]" };
    for (int s = 0; s < row->nIdx; ++s) {
        int n = 0;
        if (!count(hd, row, row->idxKey[s], &n, i)) return 0;
        const int last = (int) std::max((int64_t) n - 1, (int64_t) INT_MIN);         /* a file may count anything */
        if (i[s] < 0 || i[s] >= n) return rdbFail(outOfRange[s], i[s], last);
    }
    return 1;
}

/* Is the caller's buffer large enough? Capacities of -1 are not stated. *isEmpty: it holds nothing, which is a request
   that succeeds without being read. 1, or 0 and the error text. */
static int checkCapacity(rdbHd *hd, const rdbKeyRow *row, const int i[3], int d1, int d2, int *isEmpty)
{
    int n1 = 0, n2 = 0;
    *isEmpty = 0;
    if (row->nDims == 1 && d1 != -1) {
        if (!count(hd, row, row->dimKey[0], &n1, i)) return 0;
        *isEmpty = d1 == 0;
        if (d1 < n1 && !*isEmpty) return rdbFail("%s requires dimension of %d not %d", row->name, n1, d1);
    }
    if (row->nDims == 2 && (d1 != -1 || d2 != -1)) {
        if (d1 == -1 || d2 == -1) return rdbFail("invalid dimension specification");
        if (!count(hd, row, row->dimKey[0], &n1, i) || !count(hd, row, row->dimKey[1], &n2, i)) return 0;
        const int64_t room = d1 < 0 || d2 < 0 ? -1 : (int64_t) d1 * d2;      /* two negative sizes are no room */
        *isEmpty = room == 0;
        if (room < (int64_t) n1 * n2 && !*isEmpty)
            return rdbFail("%s requires dimension of %dx%d not %dx%d", row->name, n1, n2, d1, d2);
    }
    return 1;
}

/* One request, on a tested handle and with the directory guard held. */
static int answer(rdbHd *hd, const rdbKeyRow *parent, const char *key, void *data, int type, int nIdx, int i1, int i2,
                  int i3, int d1, int d2)
{
    const rdbKeyRow *row = rdbFindKey(key);
    if (!row) return rdbFail("%s not found", key);
    /* a failure that jumped out of rdbOpenRun has left a run in which much is still missing */
    if (row->needsRun && (!hd->run || hd->run->cli)) return rdbFail("run not opened");
    if (row->type != type) return rdbFail("%s has type %d not %d", key, row->type, type);
    if (nIdx != ANY && nIdx != row->nIdx) return rdbFail("%s requires %d indices not %d", key, row->nIdx, nIdx);

    int i[3] = { i1, i2, i3 }, isEmpty;
    if (parent && !fromParent(row, parent, i)) return 0;
    if (!checkIndices(hd, row, i)) return 0;
    if (!checkCapacity(hd, row, i, d1, d2, &isEmpty)) return 0;
    return isEmpty ? 1 : row->getter(hd, key, data, i[0], i[1], i[2], d1, d2);
}

int rdbGetData(rdbHd *hd, const rdbKeyRow *parent, const char *key, void *data, int type, int nIdx, int i1, int i2,
               int i3, int d1, int d2)
{
    if (!hd || hd->magic != RDB_MAGIC) return rdbFail("rdb not initialized");
    rdbEnter(hd);
    const int ok = answer(hd, parent, key, data, type, nIdx, i1, i2, i3, d1, d2);
    rdbLeave(hd);
    return ok;
}

/* ---------------------------------------------------------------------------------------------------- what a key is */

int rdbGetType(rdbHd *hd, const char *key, int *type)
{
    const rdbKeyRow *row = rdbFindKey(key);
    *type = row ? row->type : 0;
    return row ? 1 : rdbFail("%s not found", key);
}

/* nIdx is not looked at: the keys that size the answer take what they need of the indices. A size is -1 until it is
   told; where the first one fails, the second is left alone. */
int rdbGetDims(rdbHd *hd, const char *key, int nIdx, int i1, int i2, int i3, int *d1, int *d2)
{
    const rdbKeyRow *row = rdbFindKey(key);
    if (!row) return rdbFail("%s not found", key);
    int *const dims[2] = { d1, d2 };
    for (int k = 0; k < 2; ++k) {
        *dims[k] = -1;
        if (k >= row->nDims) continue;
        if (!rdbGetData(hd, row, row->dimKey[k], dims[k], RDB_INT, ANY, i1, i2, i3, -1, -1)) return 0;
    }
    return 1;
}

static void tell(int *where, int what) { if (where) *where = what; }
static void tell(const char **where, const char *what) { if (where) *where = what; }

int rdbGetInfo(rdbHd *hd, const char *key, int *type, int *needsRun, int *nIdx, int *nDims, const char **idx0,
               const char **idx1, const char **idx2, const char **dim0, const char **dim1)
{
    const rdbKeyRow *row = rdbFindKey(key);
    tell(type, row ? row->type : 0);
    if (!row) return rdbFail("%s not found", key);
    tell(needsRun, row->needsRun);
    tell(nIdx, row->nIdx);
    tell(nDims, row->nDims);
    tell(idx0, row->idxKey[0]);
    tell(idx1, row->idxKey[1]);
    tell(idx2, row->idxKey[2]);
    tell(dim0, row->dimKey[0]);
    tell(dim1, row->dimKey[1]);
    return 1;
}

/* --------------------------------------------------------------------------------------------- the typed operations */

/* Four operations for a type: with no index up to three. */
#define ONE_VALUE(Name, code, ctype)                                                                     \
    int rdbGet##Name##0(rdbHd *hd, const char *key, ctype *data)                                         \
    { return rdbGetData(hd, nullptr, key, data, code, 0, -1, -1, -1, -1, -1); }                          \
    int rdbGet##Name##1(rdbHd *hd, const char *key, ctype *data, int i1)                                 \
    { return rdbGetData(hd, nullptr, key, data, code, 1, i1, -1, -1, -1, -1); }                          \
    int rdbGet##Name##2(rdbHd *hd, const char *key, ctype *data, int i1, int i2)                         \
    { return rdbGetData(hd, nullptr, key, data, code, 2, i1, i2, -1, -1, -1); }                          \
    int rdbGet##Name##3(rdbHd *hd, const char *key, ctype *data, int i1, int i2, int i3)                 \
    { return rdbGetData(hd, nullptr, key, data, code, 3, i1, i2, i3, -1, -1); }

#define ARRAY(Name, code, ctype)                                                                         \
    int rdbGet##Name##0(rdbHd *hd, const char *key, ctype *data, int d1, int d2)                         \
    { return rdbGetData(hd, nullptr, key, data, code, 0, -1, -1, -1, d1, d2); }                          \
    int rdbGet##Name##1(rdbHd *hd, const char *key, ctype *data, int i1, int d1, int d2)                 \
    { return rdbGetData(hd, nullptr, key, data, code, 1, i1, -1, -1, d1, d2); }                          \
    int rdbGet##Name##2(rdbHd *hd, const char *key, ctype *data, int i1, int i2, int d1, int d2)         \
    { return rdbGetData(hd, nullptr, key, data, code, 2, i1, i2, -1, d1, d2); }                          \
    int rdbGet##Name##3(rdbHd *hd, const char *key, ctype *data, int i1, int i2, int i3, int d1, int d2) \
    { return rdbGetData(hd, nullptr, key, data, code, 3, i1, i2, i3, d1, d2); }

ONE_VALUE(Str,   RDB_STR,   char)
ONE_VALUE(Int,   RDB_INT,   int)
ONE_VALUE(Real,  RDB_REAL,  double)
ONE_VALUE(Float, RDB_FLOAT, float)          /* no key has this type: for clients that link them */
ARRAY(Ints,   RDB_INTS,   int)
ARRAY(Reals,  RDB_REALS,  double)
ARRAY(Floats, RDB_FLOATS, float)            /* likewise */
