/* rdbOut.cpp: the output families on the run's nodes: values, times, steps and variables, and the nine getters.
 *
 * The rows of a part go to the nodes that the decomposition lists for it. Files are read by rdbStep.cpp, which also
 * keeps those of the last step open.
 *
 * In this file: values, times, steps and variables, the getters. */

#include "rdb/rdbInt.h"

#include <limits.h>
#include <string.h>

/* -------------------------------------------------------------------------------------------------------- values */

static int getNSteps(rdbHd *hd, const rdbOutFam *fam, int *n)
{
    if (!rdbInitOutFam(hd, fam)) return 0;
    *n = hd->run->out[fam->cache]->nSteps;
    return 1;
}

/* The number of a step. Of a family of the newest step it is looked for anew each time. */
static int stepAt(rdbHd *hd, const rdbOutFam *fam, int i)
{
    rdbOutInfo *info = hd->run->out[fam->cache];
    if (!fam->newest) return info->steps[i];
    info->times[0] = -1.0;
    return info->steps[0] = rdbNewestOutStep(hd, fam);
}

/* i1: position in the list of variables, i2: in the list of steps. Nodes that no part has are zero; where the parts
   have them all, and none is missing, nothing need be zeroed before. A run without subdomains has no part to read, but
   a step whose file cannot be opened fails all the same. */
static int getValues(rdbHd *hd, const rdbOutFam *fam, int i1, int i2, double *data)
{
    runHd *run = hd->run;
    char   base[SYS_TEXT], path[SYS_TEXT];
    int    merged;
    if (!rdbInitOutFam(hd, fam) || !rdbReadDdc(hd)) return 0;
    const rdbOutInfo *info = run->out[fam->cache];
    const int         var = info->varIds[i1], step = stepAt(hd, fam, i2);
    if (!(info->present >> var & 1)) sysFailIn(fam->valuesName, "Internal error <%d>", var);
    const int         width = rdbOutVarWidth(hd, fam, var);

    rdbOutBase(hd, step, base);
    const int form = rdbFindOutFirst(hd, fam, base, path, &merged);
    if (!form) {
        memset(data, 0, sizeof *data * (size_t) run->nNodes * (size_t) width);
        return 0;
    }
    if (run->nSds < 1) iopCloseFile(rdbOpenReadFile(hd, path, form));
    const rdbStepArray array = { fam, info->present, step, base, 1, merged, var, width, run->nSds, run->sdNNodes,
                                 run->sdNodes, run->sdFirst, 0, run->sdCover, run->nNodes };
    return rdbReadStep(hd, &array, data);
}

/* --------------------------------------------------------------------------------------------------------- times */

/* A step's time, read from its first part when it is first asked for. -1.0 says that it was not. */
static int loadTime(rdbHd *hd, const rdbOutFam *fam, int i)
{
    rdbOutInfo *info = hd->run->out[fam->cache];
    char        base[SYS_TEXT], path[SYS_TEXT];
    int         merged;
    if (info->times[i] != -1.0) return 1;
    rdbOutBase(hd, info->steps[i], base);
    const int form = rdbFindOutFirst(hd, fam, base, path, &merged);
    if (!form) return 0;
    return rdbReadOutTime(hd, fam, path, form, &info->times[i]);
}

static int getTime(rdbHd *hd, const rdbOutFam *fam, int i, double *time)
{
    if (!rdbInitOutFam(hd, fam)) return 0;
    stepAt(hd, fam, i);
    if (!loadTime(hd, fam, i)) return 0;
    *time = hd->run->out[fam->cache]->times[i];
    return 1;
}

static int getTimes(rdbHd *hd, const rdbOutFam *fam, double *times)
{
    if (!rdbInitOutFam(hd, fam)) return 0;
    const rdbOutInfo *info = hd->run->out[fam->cache];
    for (int i = 0; i < info->nSteps; ++i)
        if (!loadTime(hd, fam, i)) return 0;
    sysCopyReals(info->times, times, info->nSteps);
    return 1;
}

/* ----------------------------------------------------------------------------------------- steps and variables */

static int getStep(rdbHd *hd, const rdbOutFam *fam, int i, int *step)
{
    if (!rdbInitOutFam(hd, fam)) return 0;
    *step = stepAt(hd, fam, i);
    return 1;
}

static int getSteps(rdbHd *hd, const rdbOutFam *fam, int *steps)
{
    if (!rdbInitOutFam(hd, fam)) return 0;
    sysCopyInts(hd->run->out[fam->cache]->steps, steps, hd->run->out[fam->cache]->nSteps);
    return 1;
}

static int getNVars(rdbHd *hd, const rdbOutFam *fam, int *n)
{
    if (!rdbInitOutFam(hd, fam)) return 0;
    *n = hd->run->out[fam->cache]->nVars;
    return 1;
}

static int getVarName(rdbHd *hd, const rdbOutFam *fam, int i, char *name)
{
    if (!rdbInitOutFam(hd, fam)) return 0;
    return rdbPutText(name, fam->vars[hd->run->out[fam->cache]->varIds[i]].name);
}

static int getVarDim(rdbHd *hd, const rdbOutFam *fam, int i, int *dim)
{
    if (!rdbInitOutFam(hd, fam)) return 0;
    *dim = rdbOutVarWidth(hd, fam, hd->run->out[fam->cache]->varIds[i]);
    return 1;
}

/* ----------------------------------------------------------------------------------------------------- the getters */

extern "C" {

/* Of the newest step there is no index: position 0 it is */
#define FAM(Fam, fam, step)                                                                                 \
    RDB_GETTER(rdb_##fam##Step)   { return getStep   (hd, &fam##Fam, step, (int *) data);          }        \
    RDB_GETTER(rdb_##fam##Time)   { return getTime   (hd, &fam##Fam, step, (double *) data);       }        \
    RDB_GETTER(rdb_n##Fam##Vars)  { return getNVars  (hd, &fam##Fam, (int *) data);                }        \
    RDB_GETTER(rdb_##fam##VarName){ return getVarName(hd, &fam##Fam, i1, (char *) data);           }        \
    RDB_GETTER(rdb_##fam##VarDim) { return getVarDim (hd, &fam##Fam, i1, (int *) data);            }        \
    RDB_GETTER(rdb_##fam##Values) { return getValues (hd, &fam##Fam, i1, i2, (double *) data);     }
#define OUT_FAM(CACHE, Fam, fam, ...)                                                                       \
    RDB_GETTER(rdb_n##Fam##Steps) { return getNSteps (hd, &fam##Fam, (int *) data);                }        \
    RDB_GETTER(rdb_##fam##Steps)  { return getSteps  (hd, &fam##Fam, (int *) data);                }        \
    RDB_GETTER(rdb_##fam##Times)  { return getTimes  (hd, &fam##Fam, (double *) data);             }        \
    FAM(Fam, fam, i1)
#define NEWEST_FAM(CACHE, Fam, fam, ...) FAM(Fam, fam, 0)
#include "rdb/rdbOutFams.def"
#undef OUT_FAM
#undef FAM

/* The auxiliary list of the element quantities has one entry of one real, and no values to it. It has a name only where
   the family has a variable of the name that it was made for. */
RDB_GETTER(rdb_nOdqAuxVars)  { return rdbInitOutFam(hd, &odqOdq) && rdbPutInt(data, 1); }
RDB_GETTER(rdb_odqAuxVarDim) { return rdbInitOutFam(hd, &odqOdq) && rdbPutInt(data, 1); }
RDB_GETTER(rdb_odqAuxValues) { sysFail("Invalid index <%d>", i1); }

RDB_GETTER(rdb_odqAuxVarName)
{
    if (!rdbInitOutFam(hd, &odqOdq)) return 0;
    const rdbOutInfo *info = hd->run->out[odqOdq.cache];
    for (int i = 0; i < info->nVars; ++i)
        if (strcmp(odqOdq.vars[info->varIds[i]].name, "compressible_cfl_number") == 0) return rdbPutText(data, "dummy");
    return rdbPutText(data, "");
}

/* A gradient has three components for each of the variable's */
RDB_GETTER(rdb_outGradVarDim)
{
    int dim;
    if (!getVarDim(hd, &outOut, i1, &dim)) return 0;
    if (dim > INT_MAX / 3) return rdbFail("%s of width <%d> exceeds an integer", key, dim);
    return rdbPutInt(data, 3 * dim);
}

}
