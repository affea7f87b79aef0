/* rdbNode.cpp: the getters of node sets (NBC), node pairs (PBC) and output element sets (OEL).
 *
 * Node sets and pairs are table files of one or two parts. A second kind of node set, that of the wall nodes, is one
 * file for the whole run.
 *
 * An output element set selects elements of volumes: all of a volume (type 2), or those of a file of element ids (type
 * 1), whose connectivity is then looked up in the volume. An id that the volume does not have is passed over. The
 * volume's ids and connectivity stay in its record up to the end of the run, as after a request for surfaces: output
 * sets of one volume are asked for one after the other.
 *
 * In this file: node sets, node pairs, output element sets. */

#include "rdb/rdbInt.h"

#include <limits.h>

static int getNRows(rdbHd *hd, void *data, rdbNodeSet *set, int nCols)
{
    return rdbRowsFit(hd, set->file, set->nRows, nCols, 0, &set->fits) && rdbPutInt(data, set->nRows);
}

static int putNumber(void *data, int number)
{
    return snprintf((char *) data, SYS_TEXT, "%d", number), 1;
}

/* ----------------------------------------------------------------------------------------------------- node sets */

static rdbNodeSet *nbc(rdbHd *hd, int i) { return (rdbNodeSet *) hd->run->nbc.rec[i]; }

extern "C" {

RDB_GETTER(rdb_nNbcs)     { return rdbPutInt(data, hd->run->nbc.n); }
RDB_GETTER(rdb_nbcName)   { return rdbPutText(data, nbc(hd, i1)->name); }
RDB_GETTER(rdb_nbcVar)    { return putNumber(data, nbc(hd, i1)->number); }
RDB_GETTER(rdb_nNbcNodes) { return getNRows(hd, data, nbc(hd, i1), 1); }

RDB_GETTER(rdb_nbcNodes)
{
    const rdbNodeSet *set = nbc(hd, i1);
    if (!set->file) return rdbFail("node file not found");
    return rdbReadTable(hd, "rdb_nbcNodes", set->file, 1, set->nRows, 1, 0, (int *) data, NULL);
}

/* The answer has room for all nodes, and a run has one file of wall nodes for all of its node sets. */
RDB_GETTER(rdb_nbcWallNodes)
{
    const runHd      *run = hd->run;
    const rdbNodeSet *set = run->zbc;
    sysZeroInts((int *) data, run->nNodes);
    if (!set || !set->file) return rdbFail("wall node file not found");
    if (set->nRows > run->nNodes) sysFail("nRows  <%d> error", set->nRows);
    return rdbReadTable(hd, "rdb_nbcWallNodes", set->file, 1, set->nRows, 1, 0, (int *) data, NULL);
}

}

/* ---------------------------------------------------------------------------------------------------- node pairs */

static rdbNodeSet *pbc(rdbHd *hd, int i) { return (rdbNodeSet *) hd->run->pbc.rec[i]; }

static int getPairPart(rdbHd *hd, const char *function, const rdbNodeSet *set, int part, void *data)
{
    if (!set->file) return rdbFail("node file not found");
    return rdbReadTable(hd, function, set->file, 2, set->nRows, 3, part, (int *) data, NULL);
}

extern "C" {

RDB_GETTER(rdb_nPbcs)     { return rdbPutInt(data, hd->run->pbc.n); }
RDB_GETTER(rdb_pbcName)   { return rdbPutText(data, pbc(hd, i1)->name); }
RDB_GETTER(rdb_pbcVar)    { return putNumber(data, pbc(hd, i1)->number); }
RDB_GETTER(rdb_nPbcPairs) { return getNRows(hd, data, pbc(hd, i1), 3); }
RDB_GETTER(rdb_pbcUsrIds) { return getPairPart(hd, "rdb_pbcUsrIds", pbc(hd, i1), 0, data); }
RDB_GETTER(rdb_pbcPairs)  { return getPairPart(hd, "rdb_pbcPairs", pbc(hd, i1), 1, data); }

}

/* ------------------------------------------------------------------------------------------- output element sets */

enum { SOME = 1, WHOLE = 2 };            /* the types: elements of a file, and all of a volume */

static rdbOel *oel(rdbHd *hd, int i) { return (rdbOel *) hd->run->oel.rec[i]; }

static int getElemIds(rdbHd *hd, const rdbOel *set, int k, int *ids)
{
    const char *function = "rdb_oelElemIds";
    if (!set->files[k]) return rdbFail("surface file not found");
    if (set->flag == SOME) return rdbReadTable(hd, function, set->files[k], 1, set->nElems[k], 1, 0, ids, NULL);
    if (set->flag != WHOLE) sysFailIn(function, "Undefined OEL type  <%d>", set->flag);
    return rdbReadTable(hd, function, set->files[k], 2, set->nElems[k], set->nElemNodes[k] + 1, 0, ids, NULL);
}

/* What the set says of a volume must be possible there: a file may tell anything. A row wider than the volume's would
   have a gap, and the whole of a volume is no larger than the volume. */
static void checkVolume(rdbHd *hd, const rdbOel *set, int k)
{
    const char *function = "rdb_oelCnn";
    const int   volId = set->volIds[k];
    int nElems, nElemNodes;
    if (!rdbGetInt1(hd, "nVolElems", &nElems, volId) || !rdbGetInt1(hd, "nVolElemNodes", &nElemNodes, volId))
        sysFailIn(function, "%s", rdbGetError());
    if (set->nElemNodes[k] > nElemNodes)
        sysFailIn(function, "Inconsistent nElemNodes <%d> vs <%d>", set->nElemNodes[k], nElemNodes);
    if (set->flag == WHOLE && set->nElems[k] > nElems)
        sysFailIn(function, "Inconsistent nElems <%d> vs <%d>", set->nElems[k], nElems);
}

/* A set's file, which tells how many elements it can have at most */
static int elemsFit(rdbHd *hd, const rdbOel *set, int k)
{
    const int nCols = set->flag == WHOLE ? set->nElemNodes[k] + 1 : 1;
    return rdbRowsFit(hd, set->files[k], set->nElems[k], nCols, 0, &set->fits[k]);
}

/* Copies the first nodes of the elements `ids`, as many as a row of the answer has, and returns how many rows that
   makes: an element that the volume does not have makes none. */
static int mapElems(const rdbOel *set, int k, const int *ids, const int *hash, const rdbVolSet *vol, int *dest)
{
    const int width = set->nElemNodes[k];
    int       nRows = 0;
    for (int i = 0; i < set->nElems[k]; ++i) {
        int missing;
        const int row = mtxIfInvHash(hash, vol->nElems, ids[i], &missing);
        if (missing || row < 0 || row >= vol->nElems) continue;
        sysCopyInts(vol->cnn + (int64_t) row * vol->nElemNodes, dest + (int64_t) nRows++ * width, width);
    }
    return nRows;
}

/* The set's elements by their nodes; *nRows is how many rows the answer has */
static int getCnn(rdbHd *hd, const rdbOel *set, int k, int *dest, int *nRows)
{
    runHd    *run = hd->run;
    const int volId = set->volIds[k], nElems = set->nElems[k];
    checkVolume(hd, set, k);
    *nRows = nElems;
    if (set->flag == WHOLE) {
        if (!rdbGetInts1(hd, "volCnn", dest, volId, set->nElemNodes[k], nElems))
            sysFailIn("rdb_oelCnn", "%s", rdbGetError());
        return 1;
    }
    if (!elemsFit(hd, set, k)) return 0;
    memFree(run->srfBuf);
    run->srfBuf = memNew(int, nElems);
    int *hash, *cnn;
    const int done = getElemIds(hd, set, k, run->srfBuf) && rdbGetVolUsrIdHash(hd, volId, &hash) &&
                     rdbGetVolCnn(hd, volId, &cnn);
    if (done) *nRows = mapElems(set, k, run->srfBuf, hash, (const rdbVolSet *) run->vol.rec[volId], dest);
    memFree(run->srfBuf);
    return done;
}

/* The sorted distinct nodes, or with a null dest their count alone */
static int getNodes(rdbHd *hd, rdbOel *set, int k, int *dest)
{
    runHd        *run = hd->run;
    const int64_t size = (int64_t) set->nElems[k] * set->nElemNodes[k];
    checkVolume(hd, set, k);
    if (size > INT_MAX) return rdbFail("oelNodes has too many elements <%d>", set->nElems[k]);
    if (!elemsFit(hd, set, k)) return 0;
    memFree(run->cnnBuf);
    run->cnnBuf = memNew(int, size);
    int       nRows;
    const int done = getCnn(hd, set, k, run->cnnBuf, &nRows);
    if (done) {
        const int n = sysSortUniqueInts(run->cnnBuf, nRows * set->nElemNodes[k]);
        rdbKeepNodeCount("rdb_oelNodes", &set->nNodes[k], n, dest);
        if (dest) sysCopyInts(run->cnnBuf, dest, n);
    }
    memFree(run->cnnBuf);
    return done;
}

extern "C" {

RDB_GETTER(rdb_nOels)         { return rdbPutInt(data, hd->run->oel.n); }
RDB_GETTER(rdb_oelName)       { return rdbPutText(data, oel(hd, i1)->name); }
RDB_GETTER(rdb_oelType)       { return rdbPutInt(data, oel(hd, i1)->flag); }
RDB_GETTER(rdb_nOelVols)      { return rdbPutInt(data, oel(hd, i1)->nVols); }
RDB_GETTER(rdb_nOelElemNodes) { return rdbPutInt(data, oel(hd, i1)->nElemNodes[i2]); }

/* Those of the first volume; a set of none has none */
RDB_GETTER(rdb_oelParentId)   { return rdbPutInt(data, oel(hd, i1)->nVols > 0 ? oel(hd, i1)->parentIds[0] : 0); }
RDB_GETTER(rdb_oelMedium)     { return rdbPutInt(data, oel(hd, i1)->nVols > 0 ? oel(hd, i1)->media[0] : 0); }

RDB_GETTER(rdb_oelVolIds)
{
    sysCopyInts(oel(hd, i1)->volIds, (int *) data, oel(hd, i1)->nVols);
    return 1;
}

RDB_GETTER(rdb_nOelElems)
{
    const rdbOel *set = oel(hd, i1);
    return elemsFit(hd, set, i2) && rdbPutInt(data, set->nElems[i2]);
}

RDB_GETTER(rdb_oelElemIds)    { return getElemIds(hd, oel(hd, i1), i2, (int *) data); }

RDB_GETTER(rdb_oelCnn)
{
    int nRows;
    return getCnn(hd, oel(hd, i1), i2, (int *) data, &nRows);
}

RDB_GETTER(rdb_nOelNodes)
{
    rdbOel *set = oel(hd, i1);
    return (set->nNodes[i2] >= 0 || getNodes(hd, set, i2, NULL)) && rdbPutInt(data, set->nNodes[i2]);
}

RDB_GETTER(rdb_oelNodes)      { return getNodes(hd, oel(hd, i1), i2, (int *) data); }

}
