/* rdbSrf.cpp: the getters of surface sets.
 *
 * A run names many kinds of surface sets. All have one shape and one record, rdbSrfSet; what tells the families apart
 * is their row in rdbSrfFams.def. Each getter is written once, as a routine that takes the family, and the list at the
 * end makes the named ones. A failure carries the name of the getter that was asked, rdb_cbcCnn for cbcCnn.
 *
 * A set's file is a table of three parts: element ids, surface user ids, connectivity. Node and element ids in it are
 * user ids and are handed out as they are. Only the count of distinct nodes is kept.
 *
 * The surfaces of a set as its elements see them come from the set's first surface set, if it is made of any, and from
 * the volume behind that: each row's element is looked up, and its face with the row's nodes is found.
 *
 * In this file: parts of the file, distinct nodes, elements behind surfaces, facts, the families, the getters. */

#include "rdb/rdbInt.h"

#include <limits.h>
#include <string.h>

static rdbSrfSet *srfSet(rdbHd *hd, int fam, int i) { return (rdbSrfSet *) hd->run->srf[fam].rec[i]; }

/* ------------------------------------------------------------------------------------------- parts of the file */

enum { ELEM_IDS, USR_IDS, CNN, N_PARTS };

/* The function name that a failure in the getter of `key` carries. It holds until the next one is asked for. */
static const char *getterName(const char *key)
{
    static char name[64];
    snprintf(name, sizeof name, "rdb_%s", key);
    return name;
}

static iopHd *openSet(rdbHd *hd, const rdbSrfSet *set)
{
    return rdbOpenDiskFile(hd, set->file, iopGetFileOpt(set->file));
}

/* Reads a part of the set's file for the getter of `key`: 0 if the set has no file. */
static int readPart(rdbHd *hd, const char *key, int fam, const rdbSrfSet *set, int part, int *dest)
{
    if (!set->file) return rdbFail("%s", rdbSrfFams[fam].noFile);
    return rdbReadOpenTable(hd, getterName(key), openSet(hd, set), N_PARTS, set->nSrfs, set->nSrfNodes + 2, part, dest,
                            NULL);
}

static int getPart(rdbHd *hd, const char *key, void *data, int fam, int i, int part)
{
    return readPart(hd, key, fam, srfSet(hd, fam, i), part, (int *) data);
}

/* A work array for `width` ints of each surface, which the run owns until it is released. Null, with the error text, if
   there is no file; a file that is not there, or too small for such a set, ends here before anything is sized by it. */
static int *newSrfBuf(rdbHd *hd, int fam, const rdbSrfSet *set, int width)
{
    runHd *run = hd->run;
    int    fits = 0;
    if (!set->file) {
        rdbSetError("%s", rdbSrfFams[fam].noFile);
        return NULL;
    }
    rdbHoldFile(hd, openSet(hd, set));
    rdbCloseHeld(hd);
    if (!rdbRowsFit(hd, set->file, set->nSrfs, set->nSrfNodes + 2, 0, &fits)) return NULL;
    memFree(run->srfBuf);
    return run->srfBuf = memNew(int, (int64_t) set->nSrfs * width);
}

static int dropSrfBuf(rdbHd *hd, int result)
{
    memFree(hd->run->srfBuf);
    return result;
}

/* ----------------------------------------------------------------------------------------------- distinct nodes */

void rdbKeepNodeCount(const char *function, int *kept, int nNodes, const int *dest)
{
    if (dest && *kept >= 0 && nNodes != *kept) sysFailIn(function, "Inconsistent nNodes <%d> vs <%d>", nNodes, *kept);
    *kept = nNodes;
}

/* The sorted distinct nodes of the connectivity, or with a null dest their count alone */
static int cnnNodes(rdbHd *hd, const char *key, int fam, int i, int *dest)
{
    rdbSrfSet    *set = srfSet(hd, fam, i);
    const int64_t n = (int64_t) set->nSrfs * set->nSrfNodes;
    if (n > INT_MAX) return rdbFail("%s has too many surfaces <%d>", key, set->nSrfs);
    int *cnn = newSrfBuf(hd, fam, set, set->nSrfNodes);
    if (!cnn || !readPart(hd, key, fam, set, CNN, cnn)) return dropSrfBuf(hd, 0);
    rdbKeepNodeCount(getterName(key), &set->nNodes, sysSortUniqueInts(cnn, (int) n), dest);
    if (dest) sysCopyInts(cnn, dest, set->nNodes);
    return dropSrfBuf(hd, 1);
}

iopHd *rdbOpenNodeList(rdbHd *hd, const char *function, int i, int *nNodes)
{
    const runHd *run = hd->run;
    char name[SYS_TEXT];
    int  nSds;
    rdbFormat(name, "%s.%d_%d.osn", hd->problem, run->runId, i);
    iopHd *fh = rdbOpenListedFile(hd, name);
    if (!fh) {
        rdbSetError(".osn file not found");
        return NULL;
    }
    rdbHoldFile(hd, fh);
    iopGetKeyInt(fh, "nSds", &nSds);
    if (nSds != run->nSds) sysFailIn(function, "Incosistent nSds; <%d> vs. <%d>", nSds, run->nSds);
    iopGetKeyInt(fh, "nNodes", nNodes);
    iopNeed(fh, *nNodes, 'i');
    return fh;
}

/* The same from the set's node list file, which has the nodes in an order of its own: that of the results on the set */
static int osnNodes(rdbHd *hd, const char *key, int fam, int i, int *dest)
{
    int    nNodes;
    iopHd *fh = rdbOpenNodeList(hd, getterName(key), i, &nNodes);
    if (!fh) return 0;
    rdbKeepNodeCount(getterName(key), &srfSet(hd, fam, i)->nNodes, nNodes, dest);
    if (dest) iopGetKeyInts(fh, "usrIds", 1, nNodes, dest);
    rdbCloseHeld(hd);
    return 1;
}

int rdbNSrfNodes(rdbHd *hd, const char *key, int fam, int i, int *n)
{
    const rdbSrfSet *set = srfSet(hd, fam, i);
    if (set->nNodes < 0 && !rdbSrfFams[fam].nodes(hd, key, fam, i, NULL)) return 0;
    *n = set->nNodes;
    return 1;
}

/* ------------------------------------------------------------------------------------- elements behind surfaces */

typedef int (*faceFinder)(const tplRec *tpl, int srfType, const int *elemNodes, const int *srfNodes, int *outNodes,
                          int *outSrfId);

typedef struct elemMap {          /* from a set's rows to the elements behind them */
    const char   *key;            /* that was asked for                        */
    const tplRec *tpl;            /* of the elements                           */
    const int    *hash, *cnn;     /* of the volume: element user id to row, nodes of a row */
    int           nElems;
    int           srfType, nSrfNodes;
    faceFinder    find;
    int           width;          /* nodes that a row of the answer has        */
} elemMap;

static void checkSame(const char *key, const char *what, int a, int b)
{
    if (a != b) sysFailIn(getterName(key), "Inconsistent %s <%d> vs <%d>", what, a, b);
}

/* The face finders walk all nodes of the element and of the surface: what the records say of both must be true. */
static void checkWidths(const elemMap *map, const rdbVolSet *vol, int bnd)
{
    const int nFace = tplSrfRound(map->srfType, NULL);
    checkSame(map->key, "nElemNodes", vol->nElemNodes, map->tpl->nen);
    if (!nFace) sysFailIn(getterName(map->key), "Invalid srfType <%d>", map->srfType);
    checkSame(map->key, "nSrfNodes", map->nSrfNodes, nFace);
    checkSame(map->key, "nElemNodes", map->width, bnd ? map->tpl->nen : map->nSrfNodes);
}

static const int *elemNodes(const elemMap *map, int elemId)
{
    int missing;
    const int row = mtxIfInvHash(map->hash, map->nElems, elemId, &missing);
    if (missing || row < 0 || row >= map->nElems) sysFailIn("mtxInvHash", "Key <%d> not found", elemId);
    return map->cnn + (int64_t) row * map->tpl->nen;
}

/* Row by row from `srfNodes` to dest. The two may share memory as getElemCnn arranges it: a row is read before its
   place is written, and that of no later row is touched before. 0, or the row, from 1, that its element has no face
   for. */
static int mapRows(const elemMap *map, const int *elemIds, const int *srfNodes, int nSrfs, int *dest)
{
    int row[16], srfId;
    for (int r = 0; r < nSrfs; ++r) {
        sysCopyInts(srfNodes + (int64_t) r * map->nSrfNodes, row, map->nSrfNodes);
        int *to = dest + (int64_t) r * map->width;
        if (!map->find(map->tpl, map->srfType, elemNodes(map, elemIds[r]), row, to, &srfId)) return r + 1;
    }
    return 0;
}

/* For each surface of a set the nodes of its element's face, or (bnd) all nodes of its element with the face's first.
   The connectivity is read into the end of dest, so that widening it needs no second array. */
static int getElemCnn(rdbHd *hd, const char *key, int fam, const rdbSrfSet *set, int bnd, int width, int *dest)
{
    int    *hash, *cnn;
    elemMap map = {};
    if (!rdbGetVolUsrIdHash(hd, set->volId, &hash) || !rdbGetVolCnn(hd, set->volId, &cnn)) return 0;
    const rdbVolSet *vol = (const rdbVolSet *) hd->run->vol.rec[set->volId];
    map.key       = key;
    map.tpl       = vol->tpl ? vol->tpl : tplNew(vol->type, 1);
    map.hash      = hash;
    map.cnn       = cnn;
    map.nElems    = vol->nElems;
    map.srfType   = set->type;
    map.nSrfNodes = set->nSrfNodes;
    map.find      = bnd ? tplSrf2Bnd : tplSrf2Srf;
    map.width     = width;
    checkWidths(&map, vol, bnd);

    int *elemIds = newSrfBuf(hd, fam, set, 1);
    int *srfNodes = dest + (int64_t) set->nSrfs * (width - set->nSrfNodes);
    const int isSfs = fam == RDB_SFS;
    if (!elemIds || !readPart(hd, isSfs ? "sfsElemIds" : key, fam, set, ELEM_IDS, elemIds) ||
        !readPart(hd, isSfs ? "sfsCnn" : key, fam, set, CNN, srfNodes)) return dropSrfBuf(hd, 0);
    const int bad = mapRows(&map, elemIds, srfNodes, set->nSrfs, dest);
    dropSrfBuf(hd, 1);
    return bad ? rdbFail("Invalid surface <%d>", bad) : 1;
}

/* A set made of surface sets goes by way of the first one, which must have the same shape */
static int getSetElemCnn(rdbHd *hd, const char *key, void *data, int fam, int i, int bnd)
{
    const rdbSrfSet *set = srfSet(hd, fam, i);
    const int width = !bnd ? set->nSrfNodes : set->tpl ? set->tpl->nen : 0;
    if (!rdbSrfFams[fam].hasSfss || !set->sfsIds)
        return getElemCnn(hd, key, fam, set, bnd, width, (int *) data);

    const rdbSrfSet *sfs = srfSet(hd, RDB_SFS, set->sfsIds[0]);
    checkSame(key, "nElems", sfs->nSrfs, set->nSrfs);
    checkSame(key, "nElemNodes", sfs->nSrfNodes, set->nSrfNodes);
    checkSame(key, "type", sfs->type, set->type);
    return getElemCnn(hd, key, RDB_SFS, sfs, bnd, width, (int *) data);
}

int rdbGetSrfCnn(rdbHd *hd, const char *key, int fam, int i, int *cnn)
{
    return getSetElemCnn(hd, key, cnn, fam, i, 0);
}

/* --------------------------------------------------------------------------------------------------------- facts */

static int getNSrfs(rdbHd *hd, void *data, int fam, int i)
{
    rdbSrfSet *set = srfSet(hd, fam, i);
    return rdbRowsFit(hd, set->file, set->nSrfs, set->nSrfNodes + 2, 0, &set->fits) && rdbPutInt(data, set->nSrfs);
}

/* A set that no line bound to a volume, or whose run did not open to the end, has no topology */
static int noTopology(const rdbSrfSet *set)
{
    return rdbFail("topology of surface set \"%s\" not found", set->name ? set->name : "");
}

static int getElemType(rdbHd *hd, void *data, int fam, int i)
{
    const rdbSrfSet *set = srfSet(hd, fam, i);
    return set->tpl ? rdbPutInt(data, set->tpl->tplType) : noTopology(set);
}

static int getNElemNodes(rdbHd *hd, void *data, int fam, int i)
{
    const rdbSrfSet *set = srfSet(hd, fam, i);
    return set->tpl ? rdbPutInt(data, set->tpl->nen) : noTopology(set);
}

/* The face that the topology object is seen from */
static int getBndNodes(rdbHd *hd, const char *key, void *data, int fam, int i)
{
    const rdbSrfSet *set = srfSet(hd, fam, i);
    if (!set->tpl || !set->tpl->srfTbl) return noTopology(set);
    checkSame(key, "nSrfNodes", set->nSrfNodes, set->tpl->srfTbl->nSrfNodes);
    sysCopyInts(set->tpl->srfTbl->srfNodes, (int *) data, set->nSrfNodes);
    return 1;
}

/* A set whose line did not bind is made of none */
static int nSfss(const rdbSrfSet *set)
{
    return set->sfsIds ? set->nSfss : 0;
}

static int getSfsIds(rdbHd *hd, void *data, int fam, int i)
{
    const rdbSrfSet *set = srfSet(hd, fam, i);
    sysCopyInts(set->sfsIds, (int *) data, nSfss(set));
    return 1;
}

/* ------------------------------------------------------------------------------------------------- the families */

static const char noSrfFile[] = "surface file not found";
static const char noSfsFile[] = "surface set file not found";

#define YES(...) __VA_ARGS__
#define NO(...)

#define SRF_FAM(Fam, fam, KEY, made, line, names, TPL, parent, hasElemType, hasMedium, hasSfsIds, nodes, noFile)      \
    { #KEY, made, RDB_BY_##TPL, 0 hasSfsIds(+ 1), noFile, nodes },
const rdbSrfFam rdbSrfFams[RDB_N_SRF_FAMS] = {
#include "rdb/rdbSrfFams.def"
};
#undef SRF_FAM

/* -------------------------------------------------------------------------------------------------- the getters */

extern "C" {

/* The last three are of the families that have them only */
#define SRF_FAM(Fam, fam, KEY, made, line, names, TPL, parent, hasElemType, hasMedium, hasSfsIds, nodes, noFile)      \
    RDB_GETTER(rdb_n##Fam##s)         { return rdbPutInt(data, hd->run->srf[RDB_##KEY].n); }                          \
    RDB_GETTER(rdb_##fam##Name)       { return rdbPutText(data, srfSet(hd, RDB_##KEY, i1)->name); }                   \
    RDB_GETTER(rdb_##fam##Type)       { return rdbPutInt(data, srfSet(hd, RDB_##KEY, i1)->type); }                    \
    RDB_GETTER(rdb_##fam##ParentId)   { return rdbPutInt(data, srfSet(hd, RDB_##KEY, i1)->parent); }                  \
    RDB_GETTER(rdb_n##Fam##Srfs)      { return getNSrfs(hd, data, RDB_##KEY, i1); }                                   \
    RDB_GETTER(rdb_n##Fam##SrfNodes)  { return rdbPutInt(data, srfSet(hd, RDB_##KEY, i1)->nSrfNodes); }               \
    RDB_GETTER(rdb_n##Fam##ElemNodes) { return getNElemNodes(hd, data, RDB_##KEY, i1); }                              \
    RDB_GETTER(rdb_n##Fam##Nodes)     { return rdbNSrfNodes(hd, key, RDB_##KEY, i1, (int *) data); }                  \
    RDB_GETTER(rdb_##fam##Nodes)      { return nodes(hd, key, RDB_##KEY, i1, (int *) data); }                         \
    RDB_GETTER(rdb_##fam##ElemIds)    { return getPart(hd, key, data, RDB_##KEY, i1, ELEM_IDS); }                     \
    RDB_GETTER(rdb_##fam##UsrIds)     { return getPart(hd, key, data, RDB_##KEY, i1, USR_IDS); }                      \
    RDB_GETTER(rdb_##fam##Cnn)        { return getPart(hd, key, data, RDB_##KEY, i1, CNN); }                          \
    RDB_GETTER(rdb_##fam##SrfCnn)     { return getSetElemCnn(hd, key, data, RDB_##KEY, i1, 0); }                      \
    RDB_GETTER(rdb_##fam##ElemCnn)    { return getSetElemCnn(hd, key, data, RDB_##KEY, i1, 1); }                      \
    RDB_GETTER(rdb_##fam##BndNodes)   { return getBndNodes(hd, key, data, RDB_##KEY, i1); }                           \
    hasElemType(RDB_GETTER(rdb_##fam##ElemType) { return getElemType(hd, data, RDB_##KEY, i1); })                     \
    hasMedium(RDB_GETTER(rdb_##fam##Medium)     { return rdbPutInt(data, srfSet(hd, RDB_##KEY, i1)->medium); })       \
    hasSfsIds(RDB_GETTER(rdb_n##Fam##Sfss)      { return rdbPutInt(data, nSfss(srfSet(hd, RDB_##KEY, i1))); }         \
              RDB_GETTER(rdb_##fam##SfsIds)     { return getSfsIds(hd, data, RDB_##KEY, i1); })
#include "rdb/rdbSrfFams.def"
#undef SRF_FAM

/* what single families have */
#define SRF_FACT(name, put, KEY, member) RDB_GETTER(rdb_##name) { return put(data, srfSet(hd, RDB_##KEY, i1)->member); }
#define SRF_INT(name, KEY, member)       SRF_FACT(name, rdbPutInt, KEY, member)
#define SRF_REAL(name, KEY, member)      SRF_FACT(name, rdbPutReal, KEY, member)
SRF_INT (cbcBcType,    CBC, bcType)
SRF_INT (cbcActType,   CBC, actType)
SRF_INT (dbcBcType,    DBC, bcType)
SRF_INT (psfBcType,    PSF, bcType)
SRF_INT (rsfBcType,    RSF, bcType)
SRF_INT (rsfAggl,      RSF, aggl)
SRF_INT (rsfAgglCnt,   RSF, agglCnt)
SRF_REAL(rsfAgglAng,   RSF, agglAng)
SRF_REAL(rsfAgglRad,   RSF, agglRad)
SRF_INT (srsBcType,    SRS, bcType)             /* its line does not give one: 0 */
SRF_INT (sfsNeighbor,  SFS, neighbor)
SRF_INT (ssiMeshType,  SSI, bcType)
SRF_REAL(ssiGapFct,    SSI, gapFct)
SRF_REAL(ssiGap,       SSI, gap)
SRF_REAL(ssiCreaseAng, SSI, creaseAng)

}
