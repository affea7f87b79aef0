/* rdbExt.cpp: the extended list, one flat list of all that a run knows at its nodes: the output variables, what is
 * computed from them, the other families of nodal outputs, and what surface sets have on their nodes.
 *
 * Twelve sources stand behind each other; the names of some get a prefix. A source is asked through its own keys. Those
 * that have steps of their own are asked at the step of the output files, and give zeros where they lack it; those of
 * surface sets are spread over the nodes of the mesh.
 *
 * In this file: the sources, keys, values at an output step, values of sets at the nodes, the list, the getters. */

#include "rdb/rdbInt.h"

#include <ctype.h>
#include <limits.h>
#include <string.h>

/* --------------------------------------------------------------------------------------------------- the sources */

enum { DIRECT, BY_STEP, BY_SET };

static const struct {
    const char *count, *dim, *name;      /* keys                                */
    const char *prefix;                  /* of the names shown                  */
    const char *values;                  /* key                                 */
    int         kind;
    const char *family;                  /* begins the keys of the other kinds  */
} sources[] = {
    { "nOutVars",    "outVarDim",     "outVarName",    "",                 "outValues",     DIRECT,  "out" },
    { "nOutVars",    "outGradVarDim", "outVarName",    "grad_",            "outGradValues", DIRECT,  "out" },
    { "nOutAuxVars", "outAuxVarDim",  "outAuxVarName", "",                 "outAuxValues",  DIRECT,  "out" },
    { "nOraVars",    "oraVarDim",     "oraVarName",    "running_ave_",     "oraValues",     BY_STEP, "ora" },
    { "nOdqVars",    "odqVarDim",     "odqVarName",    "",                 "odqValues",     BY_STEP, "odq" },
    { "nOnrVars",    "onrVarDim",     "onrVarName",    "residual_",        "onrValues",     BY_STEP, "onr" },
    { "nOeeVars",    "oeeVarDim",     "oeeVarName",    "error_estimator_", "oeeValues",     BY_STEP, "oee" },
    { "nOaeVars",    "oaeVarDim",     "oaeVarName",    "time_ave_error_",  "oaeValues",     BY_STEP, "oae" },
    { "nOtaVars",    "otaVarDim",     "otaVarName",    "time_ave_",        "otaValues",     BY_STEP, "ota" },
    { "nOsfVars",    "osfVarDim",     "osfVarName",    "surface_",         "osfValues",     BY_SET,  "osf" },
    { "nRsfVars",    "rsfVarDim",     "rsfVarName",    "radiation_",       "rsfValues",     BY_SET,  "rsf" },
    { "nSrsVars",    "srsVarDim",     "srsVarName",    "solar_",           "srsValues",     BY_SET,  "srs" },
};

enum { N_SOURCES = sizeof sources / sizeof *sources };
static_assert((int) N_SOURCES == (int) RDB_N_EXT_SOURCES, "rdbInt.h counts the sources of rdbExt.cpp");

/* ---------------------------------------------------------------------------------------------------------- keys */

enum { KEY_SIZE = 128 };

/* "oraValues" of "ora" and "%sValues"; "nOraSteps" of "ora" and "n%sSteps" with the first letter raised */
static void makeKey(char *key, const char *format, const char *family, int raised)
{
    char stem[KEY_SIZE / 2];
    snprintf(stem, sizeof stem, "%s", family);
    if (raised) stem[0] = (char) toupper((unsigned char) stem[0]);
    const char *mark = strstr(format, "%s");
    snprintf(key, KEY_SIZE, "%.*s%s%s", (int) (mark - format), format, stem, mark + 2);
}

/* The work arrays are the run's: a failure that jumps out of here loses nothing. */
void rdbDropExt(runHd *run)
{
    rdbExtWork *work = &run->extWork;
    memFree(work->weights);
    memFree(work->nodes);
    memFree(work->values);
    memFree(work->weighting);
    memFree(work->times);
}

/* -------------------------------------------------------------------------------------- values at an output step */

/* The position, in the steps that `stepKey` tells, of a step: n if there is none. Sets have steps each: set, or -1. */
static int findStep(rdbHd *hd, const char *stepKey, int set, int n, int wanted, int *position)
{
    int step;
    for (*position = 0; *position < n; ++*position) {
        const int done = set < 0 ? rdbGetInt1(hd, stepKey, &step, *position)
                                 : rdbGetInt2(hd, stepKey, &step, set, *position);
        if (!done) return 0;
        if (step == wanted) break;
    }
    return 1;
}

int rdbGetOutStepValues(rdbHd *hd, const char *name, double *dest, int var, int outIdx, int rows, int cols)
{
    char values[KEY_SIZE], step[KEY_SIZE], count[KEY_SIZE], family[KEY_SIZE / 2];
    int  outStep, nSteps, i;
    memset(dest, 0, sizeof *dest * (size_t) rows * (size_t) cols);
    /* the auxiliary variables of a family have the steps of the family */
    snprintf(family, sizeof family, "%s", name);
    if (strlen(family) > 3 && strncmp(family + 3, "Aux", 3) == 0) family[3] = 0;
    makeKey(values, "%sValues", name, 0);
    makeKey(step, "%sStep", family, 0);
    makeKey(count, "n%sSteps", family, 1);
    if (!rdbGetInt1(hd, "outStep", &outStep, outIdx) || !rdbGetInt0(hd, count, &nSteps)) return 0;
    if (nSteps < 1) return 1;
    if (!findStep(hd, step, -1, nSteps, outStep, &i)) return 0;
    return i == nSteps || rdbGetReals2(hd, values, dest, var, i, rows, cols);
}

/* ----------------------------------------------------------------------------------- values of sets at the nodes */

typedef struct setKeys {
    char nodes[KEY_SIZE], varDim[KEY_SIZE], step[KEY_SIZE], times[KEY_SIZE], values[KEY_SIZE];
    char nSets[KEY_SIZE], nNodes[KEY_SIZE], nSteps[KEY_SIZE];
} setKeys;

static void makeSetKeys(setKeys *keys, const char *name)
{
    makeKey(keys->nodes,  "%sNodes",  name, 0);
    makeKey(keys->varDim, "%sVarDim", name, 0);
    makeKey(keys->step,   "%sStep",   name, 0);
    makeKey(keys->times,  "%sTimes",  name, 0);
    makeKey(keys->values, "%sValues", name, 0);
    makeKey(keys->nSets,  "n%ss",     name, 1);
    makeKey(keys->nNodes, "n%sNodes", name, 1);
    makeKey(keys->nSteps, "n%sSteps", name, 1);
}

/* What is asked for, and the place of a set's answer between its steps */
typedef struct setRequest {
    setKeys keys;
    int     var, width, nNodes;           /* nNodes: of the mesh                           */
    int     inTime;                       /* the family is sampled in time, not at steps   */
    int     outStep;
    double  time;
    int     position;                     /* with weight[0]; weight[1] is of the next one  */
    double  weight[2];
} setRequest;

/* The sun is taken at the time within the step at which the solver took it */
static int findTime(rdbHd *hd, int outIdx, setRequest *r)
{
    double alpha, timeInc;
    int    firstStep;
    if (!rdbGetReal1(hd, "outTime", &r->time, outIdx) || !rdbGetReal0(hd, "pmcAlpha", &alpha) ||
        !rdbGetInt1(hd, "step", &firstStep, 0)) return 0;
    const int64_t i = (int64_t) r->outStep - firstStep;
    if (i < 0) return 1;
    if (!rdbGetReal1(hd, "timeInc", &timeInc, i < INT_MAX ? (int) i : INT_MAX)) return 0;
    r->time -= (1.0 - alpha) * timeInc;
    return 1;
}

/* Between the two samples round the time, or the first or last one */
static int placeInTime(rdbHd *hd, int set, int n, setRequest *r)
{
    rdbExtWork *work = &hd->run->extWork;
    memFree(work->times);
    work->times = memNew(double, n);
    if (!rdbGetReals1(hd, r->keys.times, work->times, set, n, 1)) return 0;
    const double *t = work->times;
    r->position = 0;
    r->weight[0] = 1.0;
    r->weight[1] = 0.0;
    if (r->time <= t[0]) return 1;
    r->position = n - 1;
    if (r->time >= t[n - 1]) return 1;
    for (int k = 0; k < n - 1; ++k) {
        if (!(t[k] <= r->time && r->time < t[k + 1])) continue;
        r->position = k;
        r->weight[0] = (t[k + 1] - r->time) / (t[k + 1] - t[k]);
        r->weight[1] = 1.0 - r->weight[0];
        break;
    }
    return 1;
}

/* 0: failed; *found tells whether the set has anything at the output step */
static int placeSet(rdbHd *hd, int set, setRequest *r, int *found)
{
    int n;
    *found = 0;
    if (!rdbGetInt1(hd, r->keys.nSteps, &n, set)) return 0;
    if (n < 1) return 1;
    if (r->inTime) {
        *found = 1;
        return placeInTime(hd, set, n, r);
    }
    if (!findStep(hd, r->keys.step, set, n, r->outStep, &r->position)) return 0;
    r->weight[0] = 1.0;
    r->weight[1] = 0.0;
    *found = r->position < n;
    return 1;
}

/* Adds one sample of a set's values with weight w. All but variable 0 are weighted by that one, an area. */
static int addSample(rdbHd *hd, int set, const setRequest *r, int position, double w, const int *hash, int n,
                     double *dest)
{
    rdbExtWork *work = &hd->run->extWork;
    if (!rdbGetReals3(hd, r->keys.values, work->values, set, r->var, position, r->width, n)) return 0;
    if (r->var != 0 && !rdbGetReals3(hd, r->keys.values, work->weighting, set, 0, position, 1, n)) return 0;
    for (int i = 0; i < n; ++i) {
        int       missing;
        const int node = mtxIfInvHash(hash, r->nNodes, work->nodes[i], &missing);
        if (missing || node < 0 || node >= r->nNodes)
            return rdbFail("Invalid node definition <%d> <%d>", work->nodes[i], i);
        const double weight = r->var != 0 ? w * work->weighting[i] : w;
        if (r->var != 0) work->weights[node] += weight;
        for (int k = 0; k < r->width; ++k)
            dest[(int64_t) node * r->width + k] += work->values[(int64_t) i * r->width + k] * weight;
    }
    return 1;
}

static int addSet(rdbHd *hd, int set, setRequest *r, const int *hash, double *dest)
{
    rdbExtWork *work = &hd->run->extWork;
    int         n, found;
    if (!placeSet(hd, set, r, &found)) return 0;
    if (!found) return 1;
    if (!rdbGetInt1(hd, r->keys.nNodes, &n, set)) return 0;
    memFree(work->nodes);
    memFree(work->values);
    memFree(work->weighting);
    work->nodes = memNew(int, n);
    work->values = memNew(double, (int64_t) n * r->width);
    work->weighting = memNew(double, n);
    if (!rdbGetInts1(hd, r->keys.nodes, work->nodes, set, n, 1)) return 0;
    for (int k = 0; k < 2; ++k)
        if (r->weight[k] != 0.0 && !addSample(hd, set, r, r->position + k, r->weight[k], hash, n, dest)) return 0;
    return 1;
}

static int addSets(rdbHd *hd, const char *name, double *dest, int var, int outIdx, int rows, int cols)
{
    rdbExtWork *work = &hd->run->extWork;
    setRequest  r = {};
    int         nSets, *hash;
    makeSetKeys(&r.keys, name);
    r.var = var;
    r.inTime = strcmp(name, "srs") == 0;
    if (!rdbGetInt1(hd, "outStep", &r.outStep, outIdx) || (r.inTime && !findTime(hd, outIdx, &r)) ||
        !rdbGetInt0(hd, "nNodes", &r.nNodes) || !rdbGetInt1(hd, r.keys.varDim, &r.width, var) ||
        !rdbGetUsrIdHash(hd, &hash) || !rdbGetInt0(hd, r.keys.nSets, &nSets)) return 0;
    if ((int64_t) r.width * r.nNodes > (int64_t) rows * cols)
        return rdbFail("%s has <%d> values at <%d> nodes", r.keys.values, r.width, r.nNodes);
    work->weights = memNewZ(double, r.nNodes);
    for (int set = 0; set < nSets; ++set)
        if (!addSet(hd, set, &r, hash, dest)) return 0;
    for (int i = 0; var != 0 && i < r.nNodes; ++i) {
        if (work->weights[i] == 0.0) continue;
        for (int k = 0; k < r.width; ++k) dest[(int64_t) i * r.width + k] /= work->weights[i];
    }
    return 1;
}

int rdbGetSetValuesAtNodes(rdbHd *hd, const char *name, double *dest, int var, int outIdx, int rows, int cols)
{
    memset(dest, 0, sizeof *dest * (size_t) rows * (size_t) cols);
    rdbDropExt(hd->run);
    const int done = addSets(hd, name, dest, var, outIdx, rows, cols);
    rdbDropExt(hd->run);
    return done;
}

/* ------------------------------------------------------------------------------------------------------ the list */

void rdbDropExtInfo(runHd *run)
{
    rdbExtInfo *&info = run->ext;
    if (!info) return;
    for (int i = 0; info->names && i < info->nNames; ++i) memFree(info->names[i]);
    memFree(info->names);
    memFree(info->dims);
    memFree(info);
}

/* Names and dims of a source's entries; on failure those that were read stay counted */
static int readSource(rdbHd *hd, int s, rdbExtInfo *info)
{
    for (int i = 0; i < info->counts[s]; ++i) {
        char name[SYS_TEXT], shown[SYS_TEXT];
        if (!rdbGetStr1(hd, sources[s].name, name, i) ||
            !rdbGetInt1(hd, sources[s].dim, &info->dims[info->nNames], i)) return 0;
        snprintf(shown, sizeof shown, "%s%.*s", sources[s].prefix, SYS_TEXT - 64, name);
        info->names[info->nNames] = memDup(shown);
        ++info->nNames;
    }
    return 1;
}

static int readInfo(rdbHd *hd, rdbExtInfo *info)
{
    int64_t n = 0;
    for (int s = 0; s < N_SOURCES; ++s) {
        if (!rdbGetInt0(hd, sources[s].count, &info->counts[s])) return 0;
        n += info->counts[s];
    }
    info->names = memNewZ(char *, n);
    info->dims = memNewZ(int, n);
    for (int s = 0; s < N_SOURCES; ++s)
        if (!readSource(hd, s, info)) return 0;
    info->built = 1;
    return 1;
}

static int initExt(rdbHd *hd)
{
    runHd *run = hd->run;
    if (run->ext && run->ext->built) return 1;
    rdbDropExtInfo(run);
    run->ext = memNewZ(rdbExtInfo, 1);
    if (readInfo(hd, run->ext)) return 1;
    rdbDropExtInfo(run);
    return 0;
}

static int getValues(rdbHd *hd, int entry, int iStep, double *dest)
{
    const rdbExtInfo *info = hd->run->ext;
    const int         cols = info->dims[entry], rows = hd->run->nNodes;
    int               s = 0, i = entry;
    for (; i >= info->counts[s]; ++s) i -= info->counts[s];
    switch (sources[s].kind) {
    case DIRECT:  return rdbGetReals2(hd, sources[s].values, dest, i, iStep, cols, rows);
    case BY_STEP: return rdbGetOutStepValues(hd, sources[s].family, dest, i, iStep, cols, rows);
    case BY_SET:  return rdbGetSetValuesAtNodes(hd, sources[s].family, dest, i, iStep, cols, rows);
    }
    sysFailIn("rdb_outExtValues", "Internal error");
}

/* --------------------------------------------------------------------------------------------------- the getters */

extern "C" {

RDB_GETTER(rdb_nOutExtVars)   { return initExt(hd) && rdbPutInt(data, hd->run->ext->nNames); }
RDB_GETTER(rdb_outExtVarName) { return initExt(hd) && rdbPutText(data, hd->run->ext->names[i1]); }
RDB_GETTER(rdb_outExtVarDim)  { return initExt(hd) && rdbPutInt(data, hd->run->ext->dims[i1]); }
RDB_GETTER(rdb_outExtValues)  { return initExt(hd) && getValues(hd, i1, i2, (double *) data); }

}
