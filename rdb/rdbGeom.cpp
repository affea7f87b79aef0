/* rdbGeom.cpp: table files, and the getters of nodes, element groups and volumes.
 *
 * A table file holds one table by groups of columns, its parts: a reader steps over the parts that it does not want.
 * The first parts have one column of integers each, the last has what is left. All geometry and set files are of this
 * kind and are read by rdbReadTable, straight into the caller's array. Nothing is cached here.
 *
 * How many rows a file has is told by the client information file, and clients size their buffers by that before the
 * file itself is opened. rdbRowsFit keeps a count that the file cannot hold from getting that far.
 *
 * In this file: table files, nodes, element groups and volumes. */

#include "rdb/rdbInt.h"

#include <limits.h>

/* -------------------------------------------------------------------------------------------------- table files */

iopHd *rdbOpenDataFile(rdbHd *hd, const char *name, int form)
{
    return rdbOpenReadFile(hd, name, form);
}

static void checkCount(rdbHd *hd, const char *function, const char *text, int n, int expected)
{
    if (n == expected) return;
    rdbCloseHeld(hd);
    sysFailIn(function, "%s <%d> error", text, n);
}

/* The table's head: all of it is read before any of it is compared */
static void readHead(rdbHd *hd, iopHd *fh, const char *function, int nParts, int nRows, int nCols)
{
    int parts, rows, cols;
    iopGetKeyInt(fh, "nParts", &parts);
    iopGetKeyInt(fh, "nRows", &rows);
    iopGetKeyInt(fh, "nCols", &cols);
    checkCount(hd, function, "nParts", parts, nParts);
    checkCount(hd, function, "nRows ", rows, nRows);
    checkCount(hd, function, "nCols ", cols, nCols);
}

/* The part's own head; neither number is needed */
static void readPartHead(iopHd *fh)
{
    int type, nCols;
    iopGetKeyInt(fh, "type", &type);
    iopGetKeyInt(fh, "nCols", &nCols);
}

int rdbReadTable(rdbHd *hd, const char *function, const char *file, int nParts, int nRows, int nCols, int part,
                 int *ints, double *reals)
{
    iopHd *fh = rdbOpenDataFile(hd, file, iopGetFileOpt(file));
    return rdbReadOpenTable(hd, function, fh, nParts, nRows, nCols, part, ints, reals);
}

int rdbReadOpenTable(rdbHd *hd, const char *function, iopHd *fh, int nParts, int nRows, int nCols, int part,
                     int *ints, double *reals)
{
    const int width = part == nParts - 1 ? nCols - part : 1;
    rdbHoldFile(hd, fh);
    readHead(hd, fh, function, nParts, nRows, nCols);
    for (int p = 0; p < part; ++p) {
        readPartHead(fh);
        iopSkipInts(fh, "intVec");
    }
    readPartHead(fh);
    if (ints) iopGetKeyInts(fh, "intVec", width, nRows, ints);
    else iopGetKeyReals(fh, "realVec", width, nRows, reals);
    rdbCloseHeld(hd);
    return 1;
}

/* Tables below this size are not compared: what they ask for does no harm, and a file that was cut, or is not there, is
   reported by whoever reads it. */
static const int64_t smallTable = 16 << 20;

/* How many rows a file on the disk could hold */
static int64_t mostRows(const char *name, int form, int nInts, int nReals)
{
    const int64_t row = (int64_t) nInts * iopLeastBytes(form, 4) + (int64_t) nReals * iopLeastBytes(form, 8);
    return iopMostBytes(form, iopFileSize(name)) / row;
}

/* Of two files of that name, one in a container, a getter may read either. */
int rdbRowsFit(rdbHd *hd, const char *file, int nRows, int nInts, int nReals, int *fits)
{
    if (*fits || !file) return 1;
    if (nRows < 0 || nInts < 0 || nReals < 0) return rdbFail("file <%s> cannot hold %d rows", file, nRows);
    const int64_t inMemory = (int64_t) nInts * 4 + (int64_t) nReals * 8;
    if (inMemory == 0 || nRows <= smallTable / inMemory) return 1;
    char      name[SYS_TEXT];
    const int form = iopGetFileOpt(file), diskForm = rdbDiskName(hd, file, form, name);
    if (nRows > mostRows(name, diskForm, nInts, nReals) && nRows > mostRows(file, form, nInts, nReals)) {
        iopFileId id;
        if (!iopLookAt(name, &id)) return rdbFail("file <%s> not found", name);
        return rdbFail("file <%s> cannot hold %d rows", file, nRows);
    }
    *fits = 1;
    return 1;
}

/* A part of a set's file with n columns in all; `missing` is what the set without a file answers. */
static int getPart(rdbHd *hd, const char *function, const char *file, const char *missing, int nRows, int nCols,
                   int part, int *ints, double *reals)
{
    if (!file) return rdbFail("%s", missing);
    return rdbReadTable(hd, function, file, 2, nRows, nCols, part, ints, reals);
}

/* -------------------------------------------------------------------------------------------------------- nodes */

static int getNodePart(rdbHd *hd, const char *function, int part, int *ints, double *reals)
{
    const runHd *run = hd->run;
    return getPart(hd, function, run->crdFile, "coordinate file not found", run->nNodes, 4, part, ints, reals);
}

extern "C" {

RDB_GETTER(rdb_nNodes)
{
    runHd *run = hd->run;
    return rdbRowsFit(hd, run->crdFile, run->nNodes, 1, 3, &run->crdFits) && rdbPutInt(data, run->nNodes);
}

RDB_GETTER(rdb_usrIds) { return getNodePart(hd, "rdb_usrIds", 0, (int *) data, NULL); }
RDB_GETTER(rdb_crd)    { return getNodePart(hd, "rdb_crd", 1, NULL, (double *) data); }

}

/* --------------------------------------------------------------------------------- element groups and volumes */

static int getNElems(rdbHd *hd, const char *file, int nElems, int nElemNodes, int *fits, void *data)
{
    return rdbRowsFit(hd, file, nElems, nElemNodes + 1, 0, fits) && rdbPutInt(data, nElems);
}

static int getElemPart(rdbHd *hd, const char *function, const char *file, int nElems, int nElemNodes, int part,
                       void *data)
{
    return getPart(hd, function, file, "connectivity file not found", nElems, nElemNodes + 1, part, (int *) data, NULL);
}

static int clipped(int64_t n)
{
    return n < INT_MAX ? (int) n : INT_MAX;
}

/* Colours of n elements behind `first` others, from the decomposition file. The file has one colour per element, in
   the order of the list that they are counted in. A run without subdomains has one colour and needs no file. */
static int getSdIds(rdbHd *hd, int64_t first, int n, void *data)
{
    if (n < 1) return 1;
    if (hd->run->nSds < 1) {
        sysZeroInts((int *) data, n);
        return 1;
    }
    int    nElems;
    iopHd *fh = rdbOpenDdc(hd, &nElems);
    if (!fh) return 0;
    iopReadSubInts(fh, "color", 1, nElems, clipped(first), clipped(first + n), (int *) data);
    rdbCloseHeld(hd);
    return 1;
}

/* The two have records of their own, in which what they share has the same name */
#define ELEM_SETS(Fam, fam, record)                                                                                   \
    static record *fam(rdbHd *hd, int i) { return (record *) hd->run->fam.rec[i]; }                                   \
    static int64_t fam##ElemsBefore(rdbHd *hd, int n)                                                                 \
    {                                                                                                                 \
        int64_t sum = 0;                                                                                              \
        for (int i = 0; i < n; ++i) sum += fam(hd, i)->nElems;                                                        \
        return sum;                                                                                                   \
    }                                                                                                                 \
    static int fam##Part(rdbHd *hd, const char *function, int i, int part, void *data)                                \
    {                                                                                                                 \
        const record *set = fam(hd, i);                                                                               \
        return getElemPart(hd, function, set->file, set->nElems, set->nElemNodes, part, data);                        \
    }                                                                                                                 \
    extern "C" {                                                                                                      \
    RDB_GETTER(rdb_n##Fam##s)         { return rdbPutInt(data, hd->run->fam.n); }                                     \
    RDB_GETTER(rdb_##fam##Name)       { return rdbPutText(data, fam(hd, i1)->name); }                                 \
    RDB_GETTER(rdb_##fam##Type)       { return rdbPutInt(data, fam(hd, i1)->type); }                                  \
    RDB_GETTER(rdb_n##Fam##ElemNodes) { return rdbPutInt(data, fam(hd, i1)->nElemNodes); }                            \
    RDB_GETTER(rdb_##fam##UsrIds)     { return fam##Part(hd, "rdb_" #fam "UsrIds", i1, 0, data); }                    \
    RDB_GETTER(rdb_##fam##Cnn)        { return fam##Part(hd, "rdb_" #fam "Cnn", i1, 1, data); }                       \
    RDB_GETTER(rdb_##fam##SdIds)      { return getSdIds(hd, fam##ElemsBefore(hd, i1), fam(hd, i1)->nElems, data); }   \
    RDB_GETTER(rdb_n##Fam##Elems)                                                                                     \
    {                                                                                                                 \
        record *set = fam(hd, i1);                                                                                    \
        return getNElems(hd, set->file, set->nElems, set->nElemNodes, &set->fits, data);                              \
    }                                                                                                                 \
    }
ELEM_SETS(Elm, elm, rdbElmSet)
ELEM_SETS(Vol, vol, rdbVolSet)

/* what groups alone have */
extern "C" {

RDB_GETTER(rdb_elmMedium)   { return rdbPutInt(data, elm(hd, i1)->medium); }
RDB_GETTER(rdb_elmQuad)     { return rdbPutInt(data, elm(hd, i1)->quad); }
RDB_GETTER(rdb_elmShlThick) { return rdbPutReal(data, elm(hd, i1)->shlThick); }
RDB_GETTER(rdb_elmRffId)    { return rdbPutInt(data, elm(hd, i1)->rffId); }
RDB_GETTER(rdb_nElmVols)    { return rdbPutInt(data, elm(hd, i1)->nVols); }

RDB_GETTER(rdb_elmVolIds)
{
    sysCopyInts(elm(hd, i1)->volIds, (int *) data, elm(hd, i1)->nVols);
    return 1;
}

}
