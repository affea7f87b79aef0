/* rdbGeom.cpp: table files, and the getters of nodes, element groups and volumes.
 *
 * A table file holds one table by groups of columns, its parts: a reader steps over the parts that it does not want.
 * The first parts have one column of integers each, the last has what is left. All geometry and set files are of this
 * kind and are read by rdbReadTable, straight into the caller's array. Nothing is cached here.
 *
 * How many rows a file has is told by the client information file, and clients size their buffers by that before the
 * file itself is opened. rdbRowsFit keeps a count that the file cannot hold from getting that far.
 *
 * In this file: table files, nodes, element groups, volumes. */

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
    const int width = part == nParts - 1 ? nCols - part : 1;
    iopHd    *fh = rdbHoldFile(hd, rdbOpenDataFile(hd, file, iopGetFileOpt(file)));
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

int rdbRowsFit(rdbHd *hd, const char *file, int nRows, int nInts, int nReals, int *fits)
{
    if (*fits || !file) return 1;
    const int form = iopGetFileOpt(file);
    if (nRows < 0 || nInts < 0 || nReals < 0) return rdbFail("file <%s> cannot hold %d rows", file, nRows);
    const int64_t inMemory = (int64_t) nInts * 4 + (int64_t) nReals * 8;
    const int64_t onDisk = form & IOP_BINARY ? inMemory : ((int64_t) nInts + nReals) * 2;
    if (!(form & (IOP_ASCII | IOP_BINARY)) || inMemory == 0 || nRows <= smallTable / inMemory) return 1;
    if (nRows > iopFileSize(file) / onDisk) return rdbFail("file <%s> cannot hold %d rows", file, nRows);
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

/* ------------------------------------------------------------------------------- what groups and volumes share */

/* The columns of a file with n nodes per element. No file has as many as there could be: no overflow. */
static int elemCols(int nElemNodes)
{
    return nElemNodes < INT_MAX ? nElemNodes + 1 : INT_MAX;
}

static int getNElems(rdbHd *hd, const char *file, int nElems, int nElemNodes, int *fits, void *data)
{
    return rdbRowsFit(hd, file, nElems, elemCols(nElemNodes), 0, fits) && rdbPutInt(data, nElems);
}

static int getElemPart(rdbHd *hd, const char *function, const char *file, int nElems, int nElemNodes, int part,
                       void *data)
{
    return getPart(hd, function, file, "connectivity file not found", nElems, elemCols(nElemNodes), part, (int *) data,
                   NULL);
}

static int clipped(int64_t n)
{
    return n < INT_MAX ? (int) n : INT_MAX;
}

/* Colours of n elements behind `first` others, from the decomposition file. The file has one colour per element, in
   the order of the list that they are counted in. */
static int getSdIds(rdbHd *hd, int64_t first, int n, void *data)
{
    if (n < 1) return 1;
    int    nElems;
    iopHd *fh = rdbOpenDdc(hd, &nElems);
    if (!fh) return 0;
    iopReadSubInts(fh, "color", 1, nElems, clipped(first), clipped(first + n), (int *) data);
    rdbCloseHeld(hd);
    return 1;
}

/* ----------------------------------------------------------------------------------------------- element groups */

static rdbElmSet *elm(rdbHd *hd, int i) { return (rdbElmSet *) hd->run->elm.rec[i]; }

extern "C" {

RDB_GETTER(rdb_nElms)         { return rdbPutInt(data, hd->run->elm.n); }
RDB_GETTER(rdb_elmName)       { return rdbPutText(data, elm(hd, i1)->name); }
RDB_GETTER(rdb_elmType)       { return rdbPutInt(data, elm(hd, i1)->type); }
RDB_GETTER(rdb_elmMedium)     { return rdbPutInt(data, elm(hd, i1)->medium); }
RDB_GETTER(rdb_elmQuad)       { return rdbPutInt(data, elm(hd, i1)->quad); }
RDB_GETTER(rdb_elmShlThick)   { return rdbPutReal(data, elm(hd, i1)->shlThick); }
RDB_GETTER(rdb_elmRffId)      { return rdbPutInt(data, elm(hd, i1)->rffId); }
RDB_GETTER(rdb_nElmElemNodes) { return rdbPutInt(data, elm(hd, i1)->nElemNodes); }
RDB_GETTER(rdb_nElmVols)      { return rdbPutInt(data, elm(hd, i1)->nVols); }

RDB_GETTER(rdb_elmVolIds)
{
    sysCopyInts(elm(hd, i1)->volIds, (int *) data, elm(hd, i1)->nVols);
    return 1;
}

RDB_GETTER(rdb_nElmElems)
{
    rdbElmSet *set = elm(hd, i1);
    return getNElems(hd, set->file, set->nElems, set->nElemNodes, &set->fits, data);
}

RDB_GETTER(rdb_elmUsrIds)
{
    const rdbElmSet *set = elm(hd, i1);
    return getElemPart(hd, "rdb_elmUsrIds", set->file, set->nElems, set->nElemNodes, 0, data);
}

RDB_GETTER(rdb_elmCnn)
{
    const rdbElmSet *set = elm(hd, i1);
    return getElemPart(hd, "rdb_elmCnn", set->file, set->nElems, set->nElemNodes, 1, data);
}

RDB_GETTER(rdb_elmSdIds)
{
    int64_t first = 0;
    for (int i = 0; i < i1; ++i) first += elm(hd, i)->nElems;
    return getSdIds(hd, first, elm(hd, i1)->nElems, data);
}

}

/* ------------------------------------------------------------------------------------------------------ volumes */

static rdbVolSet *vol(rdbHd *hd, int i) { return (rdbVolSet *) hd->run->vol.rec[i]; }

extern "C" {

RDB_GETTER(rdb_nVols)         { return rdbPutInt(data, hd->run->vol.n); }
RDB_GETTER(rdb_volName)       { return rdbPutText(data, vol(hd, i1)->name); }
RDB_GETTER(rdb_volType)       { return rdbPutInt(data, vol(hd, i1)->type); }
RDB_GETTER(rdb_nVolElemNodes) { return rdbPutInt(data, vol(hd, i1)->nElemNodes); }

RDB_GETTER(rdb_nVolElems)
{
    rdbVolSet *set = vol(hd, i1);
    return getNElems(hd, set->file, set->nElems, set->nElemNodes, &set->fits, data);
}

RDB_GETTER(rdb_volUsrIds)
{
    const rdbVolSet *set = vol(hd, i1);
    return getElemPart(hd, "rdb_volUsrIds", set->file, set->nElems, set->nElemNodes, 0, data);
}

RDB_GETTER(rdb_volCnn)
{
    const rdbVolSet *set = vol(hd, i1);
    return getElemPart(hd, "rdb_volCnn", set->file, set->nElems, set->nElemNodes, 1, data);
}

RDB_GETTER(rdb_volSdIds)
{
    int64_t first = 0;
    for (int i = 0; i < i1; ++i) first += vol(hd, i)->nElems;
    return getSdIds(hd, first, vol(hd, i1)->nElems, data);
}

}
