/* iopUtil.cpp: keyed items, which is what data files are made of: a key, then one value or a table of them.
 *
 *   scalar:  key, value
 *   table:   key, nCols, nRows, nCols * nRows values row by row
 *
 * An optional item is looked at and left alone if it is another one: that is how files stay readable when newer
 * writers add items and older ones lack them. Integers and reals go the same ways, told apart by an iopNum. */

#include "iop/iopInt.h"

#include <limits.h>
#include <string.h>

/* Does the stream go on with this key? If not, the location and the count of tokens are as before. */
static int atKey(iopHd *hd, const char *key)
{
    char text[SYS_TEXT];
    const int64_t start = iopGetLoc(hd);
    if (!iopGetIfStr(hd, text)) return 0;
    if (strcmp(text, key) == 0) return 1;
    hd->nTokens--;
    iopSetLoc(hd, start);
    return 0;
}

/* n1 * n2, for tables that fit into a caller's array. */
static int64_t tableSize(iopHd *hd, int n1, int n2)
{
    const int64_t n = (int64_t) n1 * n2;
    if (n1 < 0 || n2 < 0 || n > INT_MAX)
        iopFail(hd, "invalid table of <%d> x <%d> values; %s", n1, n2, iopFileInfo(hd));
    return n;
}

/* A table behind its key, whose sizes must be these. */
static void getTable(iopHd *hd, const iopNum *num, int n1, int n2, void *dest)
{
    iopCheckInt(hd, n1);
    iopCheckInt(hd, n2);
    iopGetNums(hd, num, dest, tableSize(hd, n1, n2));
}

/* A table behind its key, of any size that the file can hold. */
static void skipTable(iopHd *hd, const iopNum *num)
{
    int size[2];
    iopGetIntF(hd, &size[0], 1);        /* two tokens: forms that name their tokens know them one by one */
    iopGetIntF(hd, &size[1], 1);
    if (size[0] < 0 || size[1] < 0)
        iopFail(hd, "invalid table of <%d> x <%d> values; %s", size[0], size[1], iopFileInfo(hd));
    const int64_t n = (int64_t) size[0] * size[1];
    iopNeed(hd, n, num->kind);
    iopSkipNums(hd, num, n);
}

/* Rows first to last - 1 of a table of n2 rows of n1 values. */
static void getSubTable(iopHd *hd, const char *function, const iopNum *num, const char *key, int n1, int n2, int first,
                        int last, void *dest)
{
    iopCheckStr(hd, key);
    iopCheckInt(hd, n1);
    iopCheckInt(hd, n2);
    hd->function = function;
    if (first < 0 || last <= first || last > n2)
        iopFail(hd, "Inappropriate sub index range <%d>-<%d> for dim2 <%d>", first, last, n2);
    const int64_t n = tableSize(hd, n1, last - first);
    iopNeed(hd, (int64_t) n1 * n2, num->kind);
    hd->function = function;
    hd->form->getSub(hd, num, (int64_t) n1 * first, n, (int64_t) n1 * (n2 - last), dest);
}

/* ---- scalars ---- */

void iopGetKeyStr(iopHd *hd, const char *key, char *text)
{
    iopCheckStr(hd, key);
    iopGetStrF(hd, text);
}

void iopGetKeyInt(iopHd *hd, const char *key, int *dest)
{
    iopCheckStr(hd, key);
    iopGetIntF(hd, dest, 1);
}

void iopGetKeyReal(iopHd *hd, const char *key, double *dest)
{
    iopCheckStr(hd, key);
    iopGetRealF(hd, dest, 1);
}

void iopGetOptKeyStr(iopHd *hd, const char *key, char *text)
{
    if (atKey(hd, key)) iopGetStrF(hd, text);
}

void iopGetOptKeyInt(iopHd *hd, const char *key, int *dest)
{
    if (atKey(hd, key)) iopGetIntF(hd, dest, 1);
}

void iopGetOptKeyReal(iopHd *hd, const char *key, double *dest)
{
    if (atKey(hd, key)) iopGetRealF(hd, dest, 1);
}

/* ---- tables ---- */

void iopGetKeyInts(iopHd *hd, const char *key, int n1, int n2, int *dest)
{
    iopCheckStr(hd, key);
    getTable(hd, &iopInts, n1, n2, dest);
}

void iopGetKeyReals(iopHd *hd, const char *key, int n1, int n2, double *dest)
{
    iopCheckStr(hd, key);
    getTable(hd, &iopReals, n1, n2, dest);
}

void iopGetOptKeyInts(iopHd *hd, const char *key, int n1, int n2, int *dest)
{
    if (atKey(hd, key)) getTable(hd, &iopInts, n1, n2, dest);
}

void iopSkipInts(iopHd *hd, const char *key)
{
    iopCheckStr(hd, key);
    skipTable(hd, &iopInts);
}

void iopSkipReals(iopHd *hd, const char *key)
{
    iopCheckStr(hd, key);
    skipTable(hd, &iopReals);
}

void iopSkipRealsIf(iopHd *hd, const char *key)
{
    if (atKey(hd, key)) skipTable(hd, &iopReals);
}

void iopReadSubInts(iopHd *hd, const char *key, int n1, int n2, int first, int last, int *dest)
{
    getSubTable(hd, __func__, &iopInts, key, n1, n2, first, last, dest);
}

void iopReadSubReals(iopHd *hd, const char *key, int n1, int n2, int first, int last, double *dest)
{
    getSubTable(hd, __func__, &iopReals, key, n1, n2, first, last, dest);
}

/* Values of a part of the mesh land in the rows of the whole mesh, without an array in between. */
static void getIndexed(iopHd *hd, const char *function, const char *key, int n, int m, const int *idx, double *dest,
                       int add)
{
    iopToRead(hd, function);
    iopCheckStr(hd, key);
    iopCheckInt(hd, n);
    iopCheckInt(hd, m);
    hd->function = function;
    if (tableSize(hd, n, m) > 0) iopScatterRows(hd, n, m, idx, dest, add);
}

void iopGetRealsIndexed(iopHd *hd, const char *key, int n, int m, const int *idx, double *dest)
{
    getIndexed(hd, __func__, key, n, m, idx, dest, 0);
}

void iopAddRealsIndexed(iopHd *hd, const char *key, int n, int m, const int *idx, double *dest)
{
    getIndexed(hd, __func__, key, n, m, idx, dest, 1);
}
