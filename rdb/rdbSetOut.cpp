/* rdbSetOut.cpp: outputs on the nodes of surface sets: their catalogue, their values, the getters.
 *
 * They are stored as the outputs on the nodes of the mesh are (rdbInitOut.cpp, rdbOut.cpp), with files for each set: a
 * part of a subdomain is a header and the arrays of its nodes. Steps are found set by set, since a set may have steps
 * that another lacks; the variables are those that the lowest step of the first set with steps has.
 *
 * Each subdomain tells what its own surfaces give to a node. So the rows of the parts are added, and a node on the
 * border of two subdomains has the sum of both. Which nodes a part has is told by files of the set, which are read once
 * and tested: whoever scatters by these maps need not look again.
 *
 * What is being built hangs from the run until it is whole; a failure that jumps out leaves no half of it behind. The
 * files of a step are read, and kept open, by rdbStep.cpp.
 *
 * In this file: the tables, files, maps, the catalogue, values, times, the families, the getters. */

#include "rdb/rdbInt.h"

#include <string.h>

/* --------------------------------------------------------------------------------------------------- the tables */

static const rdbOutHdr osfHdr[] = {
    { "time",    RDB_HDR_TIME,      nullptr,         nullptr },
    { "mask",    RDB_HDR_MASK,      nullptr,         nullptr },
    { "nSpecs",  RDB_HDR_COUNT,     &runHd::nSpecs,  nullptr },
    { "nFields", RDB_HDR_OPT_COUNT, &runHd::nFields, nullptr },
};

static const rdbOutHdr rayHdr[] = {
    { "time", RDB_HDR_TIME, nullptr, nullptr },
    { "mask", RDB_HDR_MASK, nullptr, nullptr },
};

static const rdbOutVar osfVars[] = {
    { "area",                        "area",     1, nullptr         },
    { "mass_flux",                   "massFlux", 1, nullptr         },
    { "momentum_flux",               "momFlux",  3, nullptr         },
    { "traction",                    "trac",     3, nullptr         },
    { "moment",                      "moment",   3, nullptr         },
    { "convective_temperature_flux", "cnvhFlux", 1, nullptr         },
    { "heat_flux",                   "heatFlux", 1, nullptr         },
    { "convective_species_flux",     "cnvsFlux", 0, &runHd::nSpecs  },
    { "species_flux",                "specFlux", 0, &runHd::nSpecs  },
    { "convective_field_flux",       "cnvfFlux", 0, &runHd::nFields },
    { "field_flux",                  "fieldFlux", 0, &runHd::nFields },
    { "radiative_heat_flux",         "radFlux",  1, nullptr         },
};

static const rdbOutVar orfVars[] = {
    { "area",                     "area",     1, nullptr },
    { "heat_flux",                "heatFlux", 1, nullptr },
    { "mean_radiant_temperature", "temp",     1, nullptr },
};

static const rdbOutVar oqfVars[] = {
    { "area",      "area",     1, nullptr },
    { "heat_flux", "heatFlux", 1, nullptr },
};

/* --------------------------------------------------------------------------------------------------------- files */

static rdbSrfSet *srfSet(rdbHd *hd, const rdbSetFam *fam, int i)
{
    return (rdbSrfSet *) hd->run->srf[fam->srf].rec[i];
}

/* What the names of a step's files begin with; of a family without parts it is the whole name */
static void stepBase(rdbHd *hd, const rdbSetFam *fam, int i, int step, char *base)
{
    if (fam->hasParts) rdbFormat(base, "%s.%d_%d_%d_", hd->problem, hd->run->runId, step, i);
    else rdbFormat(base, "%s.%d_%d_%d.%s", hd->problem, hd->run->runId, step, i, fam->out.ext);
}

/* The listed file of this name: its form and path, or 0 and the error text */
static int findFile(rdbHd *hd, const char *name, const char *ext, char *path)
{
    const int form = rdbFindFile(hd, name);
    rdbFormat(path, "%s/%s", hd->dir, name);
    return form ? form : rdbFail(".%s file not found", ext);
}

static int findFirst(rdbHd *hd, const rdbSetFam *fam, const char *base, char *path, int *merged)
{
    if (fam->hasParts) return rdbFindFormFile(hd, base, fam->out.ext, path, merged);
    *merged = 0;
    return findFile(hd, base, fam->out.ext, path);
}

/* ---------------------------------------------------------------------------------------------------------- maps */

void rdbDropSetMap(rdbSetMap **map)
{
    if (!*map) return;
    for (int p = 0; (*map)->nodes && p < (*map)->nParts; ++p) memFree((*map)->nodes[p]);
    memFree((*map)->nodes);
    memFree((*map)->nNodes);
    memFree((*map)->setNodes);
    memFree(*map);
}

static void newParts(rdbSetMap *map, int n)
{
    map->nParts = n > 0 ? n : 0;
    map->nNodes = memNewZ(int, map->nParts);
    map->nodes = memNewZ(int *, map->nParts);
}

/* "nNodes" and a column of so many integers, for part p */
static void readPartNodes(iopHd *fh, const char *key, rdbSetMap *map, int p)
{
    int n;
    iopGetKeyInt(fh, "nNodes", &n);
    iopNeed(fh, n, 'i');
    map->nodes[p] = memNew(int, n);
    map->nNodes[p] = n;
    iopGetKeyInts(fh, key, 1, n, map->nodes[p]);
}

static void checkPositions(const char *function, const rdbSetMap *map, int nNodes)
{
    for (int p = 0; p < map->nParts; ++p)
        for (int k = 0; k < map->nNodes[p]; ++k)
            if (map->nodes[p][k] < 0 || map->nodes[p][k] >= nNodes)
                sysFailIn(function, "Invalid node position <%d> of subdomain <%d>; range should be [0,%d]",
                          map->nodes[p][k], p, nNodes - 1);
}

/* The set's node list file tells for each subdomain positions in the list */
static int readPositions(rdbHd *hd, const char *, const rdbSetFam *fam, int i, rdbSetMap *map)
{
    const char      *function = fam->out.valuesName;
    const rdbSrfSet *set = srfSet(hd, fam, i);
    int              nNodes, sdId;
    iopHd *fh = rdbOpenNodeList(hd, function, i, &nNodes);
    if (!fh) return 0;
    if (nNodes != set->nNodes) sysFailIn(function, "Inconsistent nNodes <%d> vs <%d>", nNodes, set->nNodes);
    iopSkipInts(fh, "usrIds");
    iopNeed(fh, 3 * (int64_t) hd->run->nSds, 's');
    newParts(map, hd->run->nSds);
    for (int p = 0; p < map->nParts; ++p) {
        iopGetKeyInt(fh, "sdId", &sdId);
        readPartNodes(fh, "nodes", map, p);
    }
    rdbCloseHeld(hd);
    checkPositions(function, map, nNodes);
    return 1;
}

/* The user ids of part p become positions in the set's list, which ascends */
static void idsToPositions(const char *function, rdbSetMap *map, int p, int nNodes)
{
    for (int k = 0; k < map->nNodes[p]; ++k) {
        int       missing;
        const int id = map->nodes[p][k];
        map->nodes[p][k] = sysBinFind(map->setNodes, nNodes, 1, id, &missing);
        if (missing) sysFailIn(function, "Invalid node definition <%d> <%d>", id, k);
    }
}

/* The held file of the node ids of part p, of those whose first was found; in one of all parts the next part begins
   where the part before has been left */
static iopHd *openIds(rdbHd *hd, const char *base, const char *firstPath, int form, int merged, int p)
{
    char name[SYS_TEXT], path[SYS_TEXT];
    if (merged && p > 0) return hd->run->reading;
    if (p == 0) return rdbHoldFile(hd, rdbOpenReadFile(hd, firstPath, form));
    rdbFormat(name, "%s%d.orn", base, p);
    form = findFile(hd, name, "orn", path);
    return form ? rdbHoldFile(hd, rdbOpenReadFile(hd, path, form)) : NULL;
}

/* A file for each part, or one of all of them, tells the user ids of its nodes. There are not more parts than files. */
static int readPartIds(rdbHd *hd, const char *key, const rdbSetFam *fam, int i, rdbSetMap *map)
{
    const int nNodes = srfSet(hd, fam, i)->nNodes, nSds = hd->run->nSds;
    char      base[SYS_TEXT], path[SYS_TEXT];
    int       merged;
    rdbFormat(base, "%s.%d_%d_", hd->problem, hd->run->runId, i);
    const int form = rdbFindFormFile(hd, base, "orn", path, &merged);
    if (!form) return 0;
    if (!merged && nSds > hd->nFiles) return rdbFail(".orn file not found");
    map->setNodes = memNew(int, nNodes);
    if (!rdbSrfFams[fam->srf].nodes(hd, key, fam->srf, i, map->setNodes)) return 0;
    for (int p = 0; p < nSds; ++p) {
        iopHd *fh = openIds(hd, base, path, form, merged, p);
        if (!fh) return rdbCloseHeld(hd), 0;
        if (p == 0 && merged) iopNeed(fh, 2 * (int64_t) nSds, 's');
        if (p == 0) newParts(map, nSds);
        readPartNodes(fh, "usrIds", map, p);
        idsToPositions(fam->out.valuesName, map, p, nNodes);
    }
    rdbCloseHeld(hd);
    memFree(map->setNodes);
    return 1;
}

/* One part, which has the set's nodes */
static int wholeSet(rdbHd *hd, const char *, const rdbSetFam *fam, int i, rdbSetMap *map)
{
    newParts(map, 1);
    map->nNodes[0] = srfSet(hd, fam, i)->nNodes;
    return 1;
}

/* The map of a set. The number of its nodes is known. */
static int loadMap(rdbHd *hd, const char *key, const rdbSetFam *fam, int i)
{
    runHd     *run = hd->run;
    rdbSrfSet *set = srfSet(hd, fam, i);
    if (set->map) return 1;
    rdbDropSetMap(&run->setMapNew);
    run->setMapNew = memNewZ(rdbSetMap, 1);
    if (!fam->readMap(hd, key, fam, i, run->setMapNew)) {
        rdbDropSetMap(&run->setMapNew);
        return 0;
    }
    set->map = run->setMapNew;
    run->setMapNew = NULL;
    return 1;
}

/* ------------------------------------------------------------------------------------------------- the catalogue */

static rdbOutInfo *newInfo(rdbHd *hd)
{
    rdbDropOutInfo(&hd->run->outNew);
    return hd->run->outNew = memNewZ(rdbOutInfo, 1);
}

/* The steps of a set, from the listed names */
static void initSteps(rdbHd *hd, const rdbSetFam *fam, int i)
{
    const int   runId = hd->run->runId;
    const char *ext = fam->out.ext;
    if (srfSet(hd, fam, i)->out) return;
    rdbOutInfo *info = newInfo(hd);
    if (fam->hasParts)
        rdbFindOutSteps(hd, &fam->out, info, "^%s.%d_([0-9]+)_%d_[0x].%s(\\.[BZH])?$", hd->problem, runId, i, ext);
    else rdbFindOutSteps(hd, &fam->out, info, "^%s.%d_([0-9]+)_%d.%s(\\.[BZH])?$", hd->problem, runId, i, ext);
    srfSet(hd, fam, i)->out = info;
    hd->run->outNew = NULL;
}

/* The first set with steps, or -1. Most runs have no such outputs, and many sets: one look tells. */
static int firstWithSteps(rdbHd *hd, const rdbSetFam *fam)
{
    const rdbOutFam *out = &fam->out;
    const int        runId = hd->run->runId;
    const int        any = fam->hasParts
        ? rdbAnyOutName(hd, out, "^%s.%d_[0-9]+_[0-9]+_[0x].%s(\\.[BZH])?$", hd->problem, runId, out->ext)
        : rdbAnyOutName(hd, out, "^%s.%d_[0-9]+_[0-9]+.%s(\\.[BZH])?$", hd->problem, runId, out->ext);
    for (int i = 0; any && i < hd->run->srf[fam->srf].n; ++i) {
        initSteps(hd, fam, i);
        if (srfSet(hd, fam, i)->out->nSteps > 0) return i;
    }
    return -1;
}

static int isWide(const rdbOutFam *fam, const rdbOutHead *head)
{
    for (int k = 0; k < fam->nHdr; ++k)
        if (fam->hdr[k].counter && head->counts[k] > RDB_USUAL_WIDTH) return 1;
    return 0;
}

/* Variables from set i. Its nodes are counted only where their number says whether a width can be true. */
static int readVars(rdbHd *hd, const rdbSetFam *fam, int i, rdbOutInfo *info)
{
    char       base[SYS_TEXT], path[SYS_TEXT];
    int        merged, nNodes = 0;
    rdbOutHead head;
    stepBase(hd, fam, i, srfSet(hd, fam, i)->out->steps[0], base);
    const int form = findFirst(hd, fam, base, path, &merged);
    if (!form) return 0;
    if (!rdbReadOutVars(hd, &fam->out, path, form, info, &head)) return 0;
    if (isWide(&fam->out, &head) && !rdbNSrfNodes(hd, fam->out.valuesName + strlen("rdb_"), fam->srf, i, &nNodes))
        return 0;
    rdbKeepOutCounts(hd, &fam->out, info, &head, base, nNodes);
    return 1;
}

static int initFam(rdbHd *hd, const rdbSetFam *fam)
{
    runHd *run = hd->run;
    if (run->setOut[fam->out.cache]) return 1;
    const int   first = firstWithSteps(hd, fam);
    rdbOutInfo *info = newInfo(hd);
    if (first < 0) {
        info->varIds = memNew(int, 0);
    } else if (!readVars(hd, fam, first, info)) {
        rdbDropOutInfo(&run->outNew);
        return 0;
    }
    run->setOut[fam->out.cache] = info;
    run->outNew = NULL;
    return 1;
}

/* The catalogue of the family and the steps of a set, or null and the error text */
static rdbOutInfo *stepsOf(rdbHd *hd, const rdbSetFam *fam, int i)
{
    if (!initFam(hd, fam)) return NULL;
    initSteps(hd, fam, i);
    return srfSet(hd, fam, i)->out;
}

/* -------------------------------------------------------------------------------------------------------- values */

/* i: set, iVar, iStep: positions in the list of variables and in the set's list of steps. A run without subdomains has
   no part to read, but a step whose file cannot be opened fails all the same. */
static int getValues(rdbHd *hd, const char *key, const rdbSetFam *fam, int i, int iVar, int iStep, double *data)
{
    char base[SYS_TEXT], path[SYS_TEXT];
    int  nNodes, merged;
    const rdbOutInfo *steps = stepsOf(hd, fam, i);
    if (!steps || !rdbNSrfNodes(hd, key, fam->srf, i, &nNodes)) return 0;
    const rdbOutInfo *vars = hd->run->setOut[fam->out.cache];
    const int         var = vars->varIds[iVar], width = rdbOutVarWidth(hd, &fam->out, var);
    const int         step = steps->steps[iStep];
    if (nNodes > 0 && width > 0) memset(data, 0, sizeof *data * (size_t) nNodes * (size_t) width);

    stepBase(hd, fam, i, step, base);
    const int form = findFirst(hd, fam, base, path, &merged);
    if (!form || !loadMap(hd, key, fam, i)) return 0;
    const rdbSetMap *map = srfSet(hd, fam, i)->map;
    if (map->nParts < 1) iopCloseFile(rdbOpenReadFile(hd, path, form));
    const rdbStepArray array = { &fam->out, vars->present, step, base, fam->hasParts, merged, var, width, map->nParts,
                                 map->nNodes, map->nodes, NULL, 1, 0, nNodes };
    return rdbReadStep(hd, &array, data);
}

/* --------------------------------------------------------------------------------------------------------- times */

/* Read from the step's first file when first asked for */
static int loadTime(rdbHd *hd, const rdbSetFam *fam, int i, int iStep)
{
    rdbOutInfo *info = srfSet(hd, fam, i)->out;
    char        base[SYS_TEXT], path[SYS_TEXT];
    int         merged;
    if (info->times[iStep] != -1.0) return 1;
    stepBase(hd, fam, i, info->steps[iStep], base);
    const int form = findFirst(hd, fam, base, path, &merged);
    if (!form) return 0;
    return rdbReadOutTime(hd, &fam->out, path, form, &info->times[iStep]);
}

static int getTime(rdbHd *hd, const rdbSetFam *fam, int i, int iStep, double *time)
{
    const rdbOutInfo *info = stepsOf(hd, fam, i);
    if (!info || !loadTime(hd, fam, i, iStep)) return 0;
    *time = info->times[iStep];
    return 1;
}

static int getTimes(rdbHd *hd, const rdbSetFam *fam, int i, double *times)
{
    const rdbOutInfo *info = stepsOf(hd, fam, i);
    if (!info) return 0;
    for (int k = 0; k < info->nSteps; ++k)
        if (!loadTime(hd, fam, i, k)) return 0;
    sysCopyReals(info->times, times, info->nSteps);
    return 1;
}

/* ------------------------------------------------------------------------------------------- steps and variables */

static int getNSteps(rdbHd *hd, const rdbSetFam *fam, int i, int *n)
{
    const rdbOutInfo *info = stepsOf(hd, fam, i);
    return info && rdbPutInt(n, info->nSteps);
}

static int getStep(rdbHd *hd, const rdbSetFam *fam, int i, int iStep, int *step)
{
    const rdbOutInfo *info = stepsOf(hd, fam, i);
    return info && rdbPutInt(step, info->steps[iStep]);
}

static int getSteps(rdbHd *hd, const rdbSetFam *fam, int i, int *steps)
{
    const rdbOutInfo *info = stepsOf(hd, fam, i);
    if (!info) return 0;
    sysCopyInts(info->steps, steps, info->nSteps);
    return 1;
}

static int getNVars(rdbHd *hd, const rdbSetFam *fam, int *n)
{
    return initFam(hd, fam) && rdbPutInt(n, hd->run->setOut[fam->out.cache]->nVars);
}

static int getVarName(rdbHd *hd, const rdbSetFam *fam, int iVar, char *name)
{
    return initFam(hd, fam) &&
           rdbPutText(name, fam->out.vars[hd->run->setOut[fam->out.cache]->varIds[iVar]].name);
}

static int getVarDim(rdbHd *hd, const rdbSetFam *fam, int iVar, int *dim)
{
    return initFam(hd, fam) &&
           rdbPutInt(dim, rdbOutVarWidth(hd, &fam->out, hd->run->setOut[fam->out.cache]->varIds[iVar]));
}

/* -------------------------------------------------------------------------------------------------- the families */

template <class T, int n> static constexpr int length(const T (&)[n]) { return n; }

#define SET_FAM(SETS, Fam, fam, ext, init, hdr, vars, parts, map)                                                     \
    static const rdbSetFam fam##SetFam = {                                                                            \
        { RDB_SET_OUT_##SETS, ext, hdr, length(hdr), vars, length(vars), nullptr, nullptr, nullptr, 0, init,          \
          "rdb_" #fam "Values" },                                                                                     \
        RDB_##SETS, parts, map };
#include "rdb/rdbSetFams.def"
#undef SET_FAM

/* --------------------------------------------------------------------------------------------------- the getters */

extern "C" {

#define SET_FAM(SETS, Fam, fam, ...)                                                                                  \
    RDB_GETTER(rdb_n##Fam##Steps)  { return getNSteps (hd, &fam##SetFam, i1, (int *) data);         }                 \
    RDB_GETTER(rdb_##fam##Step)    { return getStep   (hd, &fam##SetFam, i1, i2, (int *) data);     }                 \
    RDB_GETTER(rdb_##fam##Steps)   { return getSteps  (hd, &fam##SetFam, i1, (int *) data);         }                 \
    RDB_GETTER(rdb_##fam##Time)    { return getTime   (hd, &fam##SetFam, i1, i2, (double *) data);  }                 \
    RDB_GETTER(rdb_##fam##Times)   { return getTimes  (hd, &fam##SetFam, i1, (double *) data);      }                 \
    RDB_GETTER(rdb_n##Fam##Vars)   { return getNVars  (hd, &fam##SetFam, (int *) data);             }                 \
    RDB_GETTER(rdb_##fam##VarName) { return getVarName(hd, &fam##SetFam, i1, (char *) data);        }                 \
    RDB_GETTER(rdb_##fam##VarDim)  { return getVarDim (hd, &fam##SetFam, i1, (int *) data);         }                 \
    RDB_GETTER(rdb_##fam##Values)  { return getValues (hd, key, &fam##SetFam, i1, i2, i3, (double *) data); }
#include "rdb/rdbSetFams.def"
#undef SET_FAM

}
