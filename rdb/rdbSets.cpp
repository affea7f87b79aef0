/* rdbSets.cpp: the sets of a run brought together.
 *
 * The client information file relates its sets by position and by name, and files of older solvers leave out volume or
 * surface sets altogether. Three moments of opening a run: between the passes surface sets are bound to their volumes
 * by name; in the second pass missing sets are made from the lines that would refer to them; at the end every parent is
 * tested and every set gets its topology object.
 *
 * A parent that does not exist ends the open. After it, ids in the records are positions in the run's lists. The lists
 * themselves are here, too. */

#include "rdb/rdbInt.h"

#include <limits.h>
#include <string.h>

#include <algorithm>

/* -------------------------------------------------------------------------------------------------------- lists */

static void growList(rdbList *list)
{
    if (list->n < list->cap) return;
    const int cap = list->cap ? 2 * list->cap : 16;
    list->rec = (void **) memRealloc(list->rec, memSize(list->n, sizeof(void *)), memSize(cap, sizeof(void *)),
                                     __FILE__, __LINE__, 0);
    list->byName = (int *) memRealloc(list->byName, memSize(list->n, sizeof(int)), memSize(cap, sizeof(int)),
                                      __FILE__, __LINE__, 0);
    list->cap = cap;
}

void *rdbListNew(rdbList *list, size_t size)
{
    growList(list);
    list->rec[list->n] = memAlloc(memSize(1, size), __FILE__, __LINE__, 1);
    return list->rec[list->n++];
}

/* Names are found in sorted runs of positions. There is one for each bit of the list's length, the longest first, and
   each holds the positions of its own places. So a list that grows between two searches keeps most of its runs, and
   texts from a file can make neither searching nor growing slow. */

static const char *nameOf(const rdbList *list, int i) { return *(const char *const *) list->rec[i]; }

static int isBefore(const rdbList *list, int i, const char *name, int pos)
{
    const int order = strcmp(nameOf(list, i), name);
    return order ? order < 0 : i < pos;
}

static void sortRun(rdbList *list, int start, int end)
{
    int *run = list->byName;
    for (int i = start; i < end; ++i) run[i] = i;
    std::sort(run + start, run + end, [list](int a, int b) { return isBefore(list, a, nameOf(list, b), b); });
}

static int longestRun(const rdbList *list)
{
    int size = 1;
    while (size <= list->n / 2) size *= 2;
    return size;
}

/* A run that ends within what was sorted before is still the same */
static void sortRuns(rdbList *list)
{
    int start = 0;
    for (int size = longestRun(list); list->nSorted < list->n && size; size /= 2) {
        if (!(list->n & size)) continue;
        if (start + size > list->nSorted) sortRun(list, start, start + size);
        start += size;
    }
    list->nSorted = list->n;
}

/* The first place of a run that is not before (name, pos) */
static int placeInRun(const rdbList *list, int start, int end, const char *name, int pos)
{
    const int *run = list->byName;
    return (int) (std::partition_point(run + start, run + end,
                                       [=](int i) { return isBefore(list, i, name, pos); }) - run);
}

int rdbFindName(rdbList *list, const char *name)
{
    sortRuns(list);
    for (int end = list->n; end > 0; end &= end - 1) {
        const int start = end & (end - 1), k = placeInRun(list, start, end, name, INT_MAX) - 1;
        if (k >= start && strcmp(nameOf(list, list->byName[k]), name) == 0) return list->byName[k];
    }
    return -1;
}

int rdbFindNextName(rdbList *list, const char *name, int behind)
{
    sortRuns(list);
    int start = 0;
    for (int size = longestRun(list); size; size /= 2) {
        if (!(list->n & size)) continue;
        const int k = placeInRun(list, start, start + size, name, behind + 1);
        start += size;
        if (k < start && strcmp(nameOf(list, list->byName[k]), name) == 0) return list->byName[k];
    }
    return -1;
}

static rdbVolSet *volSet(const runHd *run, int i) { return (rdbVolSet *) run->vol.rec[i]; }
static rdbElmSet *elmSet(const runHd *run, int i) { return (rdbElmSet *) run->elm.rec[i]; }
static rdbSrfSet *srfSet(const runHd *run, int fam, int i) { return (rdbSrfSet *) run->srf[fam].rec[i]; }

static int inList(const rdbList *list, int i)
{
    return i >= 0 && i < list->n;
}

/* ------------------------------------------------------------------------------------------------------- by name */

/* The last volume of the name wins; the earlier ones of it count only for what is said on the way. */
static void bindVolume(rdbHd *hd, rdbSrfSet *set)
{
    rdbList *list = &hd->run->vol;
    const int last = rdbFindName(list, set->volName);
    if (last < 0) return;
    for (int v = -1; hd->verbose >= 3 && (v = rdbFindNextName(list, set->volName, v)) >= 0; set->volId = v)
        if (v != set->volId) sysMessage("Parent volume reconciled");
    set->volId = last;
}

void rdbReconcileSets(rdbHd *hd)
{
    for (int i = 0; i < hd->run->srf[RDB_SFS].n; ++i) {
        rdbSrfSet *set = srfSet(hd->run, RDB_SFS, i);
        if (set->volNameGiven) bindVolume(hd, set);
    }
}

/* ------------------------------------------------------------------------------------------------- sets not listed */

/* The one set that a record now stands for */
static void standFor(int **ids, int *nIds, int id)
{
    memFree(*ids);
    *ids      = memNew(int, 1);
    (*ids)[0] = id;
    *nIds     = 1;
}

/* A volume for an element set of a file without VOL lines */
void rdbCreateVolSet(rdbHd *hd, rdbElmSet *set, int volumesSeen)
{
    if (volumesSeen) return;
    rdbList   *list = &hd->run->vol;
    rdbVolSet *vol  = (rdbVolSet *) rdbListNew(list, sizeof(rdbVolSet));
    vol->name       = memDup(set->name);
    vol->file       = set->file ? memDup(set->file) : NULL;
    vol->nElems     = set->nElems;
    vol->type       = set->type;
    vol->nElemNodes = set->nElemNodes;
    standFor(&set->volIds, &set->nVols, list->n - 1);
    if (hd->verbose > 3) sysMessage("Volume set for element set \"%s\" created", set->name);
}

/* A surface set for a family's set, of a file without VOL and SFS lines. Name and file stay the family's. */
void rdbCreateSfs(rdbHd *hd, rdbSrfSet *set, int fam, int setsSeen)
{
    if (setsSeen) return;
    rdbList   *list = &hd->run->srf[RDB_SFS];
    rdbSrfSet *sfs  = (rdbSrfSet *) rdbListNew(list, sizeof(rdbSrfSet));
    sfs->sharesTexts = 1;
    sfs->name      = set->name;
    sfs->file      = set->file;
    sfs->nSrfs     = set->nSrfs;
    sfs->nNodes    = -1;
    sfs->type      = set->type;
    sfs->nSrfNodes = set->nSrfNodes;
    sfs->quad      = set->quad;
    sfs->medium    = set->medium;
    sfs->elmId     = set->elmId;
    sfs->volId     = set->volId;
    standFor(&set->sfsIds, &set->nSfss, list->n - 1);
    if (hd->verbose > 3) sysMessage("Surface set for %s \"%s\" created", rdbSrfFams[fam].madeAs, set->name);
}

/* --------------------------------------------------------------------------------------------------- topologies */

/* An element set without volumes gets none: nothing asks it for one */
static void setElmTopology(runHd *run, int i)
{
    rdbElmSet *set = elmSet(run, i);
    if (set->nVols < 1) return;
    set->tpl    = tplNew(set->type, set->quad);
    set->linTpl = tplNew(set->type, 2);
    for (int k = 0; k < set->nVols; ++k) {
        rdbVolSet *vol = volSet(run, set->volIds[k]);
        vol->elmId  = i;
        vol->tpl    = tplNew(vol->type, set->quad);
        vol->linTpl = tplNew(vol->type, 2);
    }
}

static tplRec *boundary(int parentType, const rdbSrfSet *set)
{
    return tplNew(tplGetBndTpl(parentType, set->type), set->quad);
}

/* A set that was made for a family's set has the parents of that, which is the one to complain about */
static void setSfsTopology(runHd *run, rdbSrfSet *set)
{
    if (set->sharesTexts && !inList(&run->elm, set->elmId)) return;
    if (!inList(&run->vol, set->volId)) sysFailIn("rdbOpenRun", "SFS parent volId <%d> not found", set->volId);
    set->tpl = boundary(volSet(run, set->volId)->type, set);
}

/* A set whose .SFS line did not bind has no surface set: its element set's first volume stands in, and if there is none
   it has no topology. */
static void setUnboundTopology(runHd *run, const rdbElmSet *elm, rdbSrfSet *set)
{
    if (elm->volIds) set->tpl = boundary(volSet(run, elm->volIds[0])->type, set);
}

static void setFamTopology(runHd *run, const rdbSrfFam *fam, rdbSrfSet *set)
{
    if (!inList(&run->elm, set->elmId))
        sysFailIn("rdbOpenRun", "%s parent elmId <%d> not found", fam->keyword, set->elmId);
    const rdbElmSet *elm = elmSet(run, set->elmId);
    if (fam->topology == RDB_BY_ELM) set->tpl = boundary(elm->type, set);
    else if (!set->sfsIds) setUnboundTopology(run, elm, set);
    else {
        const rdbSrfSet *sfs = srfSet(run, RDB_SFS, set->sfsIds[0]);
        if (!inList(&run->vol, sfs->volId))
            sysFailIn("rdbOpenRun", "%s parent volId <%d> not found", fam->keyword, sfs->volId);
        set->tpl = boundary(volSet(run, sfs->volId)->type, fam->topology == RDB_BY_SFS ? sfs : set);
    }
}

/* Tests all parents and gives each set its topology; the families' order decides which failure comes first. */
void rdbSetTopologies(rdbHd *hd)
{
    runHd *run = hd->run;
    for (int i = 0; i < run->elm.n; ++i) setElmTopology(run, i);
    for (int i = 0; i < run->srf[RDB_SFS].n; ++i) setSfsTopology(run, srfSet(run, RDB_SFS, i));
    for (int fam = 0; fam < RDB_SFS; ++fam)
        for (int i = 0; i < run->srf[fam].n; ++i) setFamTopology(run, &rdbSrfFams[fam], srfSet(run, fam, i));
}
