/* rdbOut.cpp: the values of the output families on the run's nodes, and their nine getters.
 *
 * A step's values lie in one file per subdomain, or in one merged file that holds the parts of all subdomains one
 * behind the other. A part is a header and then one array per variable, in the order of the family's table; its rows
 * go to the nodes that the decomposition lists for it. To get at an array, all keys before it must be stepped over,
 * and each must be there.
 *
 * Clients ask for several arrays of one step in a row. So the run keeps the files of the step that was read last: the
 * handles, up to a number, and for each part the locations of the keys that have been met. The next array is read
 * from the nearest of them. This must not be seen but by speed: a file that is no longer the one that was opened is
 * opened anew and walked from its start, another step drops all, and so does the end of the run. How soon a rewritten
 * file is seen to be another one is up to the system: on a network file system its cache of attributes bounds it.
 *
 * The arrays go straight into the caller's buffer. A failure that does not return leaves in it what had been read.
 *
 * A read may be left by a jump at any place. It marks the record as busy, and one that is found busy is dropped.
 *
 * A variable of which the family has no array, by a word of the header, is passed over on the way.
 *
 * In this file: the files kept, files and parts of a step, values, times, the getters. */

#include "rdb/rdbInt.h"

#include <limits.h>
#include <string.h>
#include <sys/resource.h>
#include <time.h>

typedef struct stepFile {
    iopHd *fh;                    /* null: not open                                              */
    int    opt;                   /* form; 0: missing                                            */
    int    known;                 /* `id` tells the file that the places of its parts are of     */
    rdbFileId id;                 /* of what lies on the disk: the container's, if it is in one  */
} stepFile;

typedef struct keyPlace {
    int64_t loc;
    int     nTokens;              /* before it, in the file                                      */
} keyPlace;

typedef struct stepPart {
    int       nPlaces;            /* keys met so far, and one behind; 0: not even the header     */
    keyPlace *places;             /* where the family's key k stands, or would                   */
    int       ended;              /* merged: the way to its end has been gone                    */
} stepPart;

struct rdbStepFiles {
    const rdbOutFam *fam;
    int       step, merged;
    uint64_t  present;            /* the keys of the family that stand in its files */
    int       busy;               /* being made or read, or left by a jump out of that           */
    int       nFiles, nParts;     /* nFiles: 1 if merged                                         */
    int       nKept;              /* files kept open; of others only the places stay             */
    stepFile *files;
    stepPart *parts;
    keyPlace *places;             /* of all parts                                                */
    char      base[SYS_TEXT];
};

/* ------------------------------------------------------------------------------------------------ the files kept */

static void closeFile(stepFile *file)
{
    iopHd *fh = file->fh;
    file->fh = NULL;
    if (fh) iopCloseFile(fh);
}

/* Nothing is known of a file and its parts any more */
static void forgetParts(rdbStepFiles *st, int f)
{
    st->files[f].known = 0;
    for (int p = st->merged ? 0 : f; p < (st->merged ? st->nParts : f + 1); ++p)
        st->parts[p].nPlaces = st->parts[p].ended = 0;
}

static void forgetFile(rdbStepFiles *st, int f)
{
    closeFile(&st->files[f]);
    forgetParts(st, f);
}

static void dropStep(runHd *run)
{
    rdbStepFiles *st = run->stepFiles;
    if (!st) return;
    for (int f = 0; st->files && f < st->nFiles; ++f) closeFile(&st->files[f]);
    memFree(st->files);
    memFree(st->parts);
    memFree(st->places);
    memFree(run->stepFiles);
}

void rdbDropReading(runHd *run)
{
    dropStep(run);
    iopHd *fh = run->reading;
    run->reading = NULL;
    if (fh) iopCloseFile(fh);
    rdbDropOutInfo(&run->outNew);
    memFree(run->idBuf);
}

/* How many files to keep open: a small share of what the process may have open in all */
static int nToKeep(void)
{
    struct rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 8;
    return limit.rlim_cur > 64 * 8 ? 64 : (int) limit.rlim_cur / 8;
}

static rdbStepFiles *newStep(rdbHd *hd, const rdbOutFam *fam, int step, int merged)
{
    runHd        *run = hd->run;
    rdbStepFiles *st = run->stepFiles = memNewZ(rdbStepFiles, 1);
    const int     nKeys = fam->nVars + 1;
    st->busy = 1;
    st->fam = fam;
    st->step = step;
    st->merged = merged;
    st->present = run->out[fam->cache]->present;
    st->nParts = run->nSds > 0 ? run->nSds : 0;
    st->nFiles = merged ? 1 : st->nParts;
    st->nKept = nToKeep();
    st->files = memNewZ(stepFile, st->nFiles);
    st->parts = memNewZ(stepPart, st->nParts);
    st->places = memNew(keyPlace, (int64_t) st->nParts * nKeys);
    rdbOutBase(hd, step, st->base);
    for (int p = 0; p < st->nParts; ++p) st->parts[p].places = st->places + (int64_t) p * nKeys;
    st->busy = 0;
    return st;
}

/* The step's record: the one at hand if it is this step's, else a new one */
static rdbStepFiles *takeStep(rdbHd *hd, const rdbOutFam *fam, int step, int merged)
{
    rdbStepFiles *st = hd->run->stepFiles;
    if (st && !st->busy && st->fam == fam && st->step == step && st->merged == merged) return st;
    dropStep(hd->run);
    return newStep(hd, fam, step, merged);
}

/* ----------------------------------------------------------------------------------------- the files of a step */

/* "p.1_20_3.out", without the form's suffix */
static void partName(const rdbStepFiles *st, int f, char *name)
{
    if (st->merged) rdbFormat(name, "%sx.%s", st->base, st->fam->ext);
    else rdbFormat(name, "%s%d.%s", st->base, f, st->fam->ext);
}

static void partPath(rdbHd *hd, const rdbStepFiles *st, int f, char *path)
{
    char name[SYS_TEXT];
    partName(st, f, name);
    rdbFormat(path, "%s/%s", hd->dir, name);
}

static int formOfFile(rdbHd *hd, const rdbStepFiles *st, int f)
{
    if (!st->merged) return rdbFindOutPart(hd, st->fam, st->base, f);
    char name[SYS_TEXT];
    partName(st, f, name);
    return rdbFindFile(hd, name);
}

/* Looks all files up; 1 if none is missing */
static int listFiles(rdbHd *hd, rdbStepFiles *st)
{
    int all = 1;
    for (int f = 0; f < st->nFiles; ++f) {
        const int opt = formOfFile(hd, st, f);
        if (opt != st->files[f].opt) forgetFile(st, f);
        st->files[f].opt = opt;
        all = all && opt;
    }
    return all;
}

static int lookAt(rdbHd *hd, const char *path, int opt, rdbFileId *id)
{
    char name[SYS_TEXT];
    rdbDiskName(hd, path, opt, name);
    return rdbLookAt(name, id);
}

/* The time of the last change tells one change from the next only after a while: a tenth of a second, or two where
   the file system counts whole seconds. Until then a file could change again unseen. */
static int isSettled(const rdbFileId *id)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const double age = (double) (now.tv_sec - id->changed.tv_sec) + 1e-9 * (double) (now.tv_nsec - id->changed.tv_nsec);
    return age > (id->changed.tv_nsec ? 0.1 : 2.0);
}

/* Opens file f, of which nothing is known. What is looked at before the open is at worst an older state than the one
   that is read, which shows at the next look. A file in which going back means to decode it again is not kept. */
static void openNew(rdbHd *hd, stepFile *file, const char *path)
{
    const int there = lookAt(hd, path, file->opt, &file->id);
    file->fh = rdbOpenReadFile(hd, path, file->opt);
    file->known = there && isSettled(&file->id) && iopGoesBack(file->fh);
}

/* Opens again a file of which only the places stayed. It may have become another one just before that: only if it
   has not are the places its own. Otherwise it is read like a new one, and not kept. */
static void openAgain(rdbHd *hd, rdbStepFiles *st, int f, const char *path)
{
    stepFile *file = &st->files[f];
    rdbFileId id;
    file->fh = rdbOpenReadFile(hd, path, file->opt);
    if (!lookAt(hd, path, file->opt, &id) || !rdbSameFile(&id, &file->id)) forgetParts(st, f);
}

/* Opens file f of the step, unless it is open and still the same. An open one may have been written while it was read
   ahead: it is asked for its bytes anew. */
static stepFile *openFile(rdbHd *hd, rdbStepFiles *st, int f)
{
    stepFile *file = &st->files[f];
    char      path[SYS_TEXT];
    rdbFileId id;
    partPath(hd, st, f, path);
    if (!file->known || !lookAt(hd, path, file->opt, &id) || !rdbSameFile(&id, &file->id)) forgetFile(st, f);
    if (file->fh) iopRewind(file->fh);
    else if (file->known) openAgain(hd, st, f, path);
    else openNew(hd, file, path);
    return file;
}

/* After a read: what may not be kept is closed */
static void releaseFile(rdbStepFiles *st, int f)
{
    if (!st->files[f].known) forgetFile(st, f);
    else if (f >= st->nKept) closeFile(&st->files[f]);
}

/* ------------------------------------------------------------------------------------------------------ one part */

/* Does key k of the table stand in the files? */
static int isPresent(const rdbStepFiles *st, int k) { return (int) (st->present >> k & 1); }

/* To key k, which was met: failures then say the same as after a walk to it */
static void goTo(const rdbStepFiles *st, stepFile *file, const stepPart *part, int k)
{
    const keyPlace *place = &part->places[k];
    int last = k - 1;
    while (last >= 0 && !isPresent(st, last)) --last;
    iopSetPlace(file->fh, place->loc, place->nTokens, last >= 0 ? st->fam->vars[last].key : "nNodes");
}

/* Key k stands here, and those before it were met */
static void notePlace(stepFile *file, stepPart *part, int k)
{
    part->places[k].loc = iopGetLoc(file->fh);
    part->places[k].nTokens = iopGetTokens(file->fh);
    if (part->nPlaces < k + 1) part->nPlaces = k + 1;
}

/* The header of a part that has not been met: the file stands there, at its start or behind the part before. The part
   must have as many nodes as the decomposition gives it: its rows are put where that one says. */
static void readHead(rdbHd *hd, rdbStepFiles *st, stepFile *file, int p)
{
    rdbOutHead head;
    int        nNodes;
    rdbReadOutHead(file->fh, st->fam, NULL, &head);
    iopGetKeyInt(file->fh, "nNodes", &nNodes);
    if (nNodes != hd->run->sdNNodes[p])
        sysFailIn(st->fam->valuesName, "Inconsistent nNodes in file <%s>: <%d> vs. <%d> of subdomain <%d>",
                  iopFileName(file->fh), nNodes, hd->run->sdNNodes[p], p);
    notePlace(file, &st->parts[p], 0);
}

/* The rows of variable `var` in part p, to their nodes in data. Every key below must stand in the file. */
static void readArray(rdbHd *hd, rdbStepFiles *st, stepFile *file, int p, int var, double *data)
{
    const rdbOutVar *vars = st->fam->vars;
    stepPart        *part = &st->parts[p];
    const int        width = rdbOutVarWidth(hd, st->fam, var), nNodes = hd->run->sdNNodes[p];
    const int        first = hd->run->sdFirst[p];
    if (part->nPlaces == 0) readHead(hd, st, file, p);
    int k = var < part->nPlaces ? var : part->nPlaces - 1;
    goTo(st, file, part, k);
    for (; k < var; ++k) {
        if (isPresent(st, k)) iopSkipReals(file->fh, vars[k].key);
        notePlace(file, part, k + 1);
    }
    if (first < 0) iopGetRealsIndexed(file->fh, vars[var].key, width, nNodes, hd->run->sdNodes[p], data);
    else iopGetRealsIndexed(file->fh, vars[var].key, width, nNodes, NULL, data + (int64_t) first * width);
    notePlace(file, part, var + 1);
}

/* In the merged form the next part begins behind the last array that is there. Arrays above `var` are optional, and so
   are those that run on behind the variables; wherever such a walk starts it ends at the same place. Once the next part
   has been met it is gone to directly. */
static void skipToEnd(rdbStepFiles *st, stepFile *file, int p, int var)
{
    if (st->parts[p].ended) return;
    for (int k = var + 1; k < st->fam->nVars; ++k)
        if (isPresent(st, k)) iopSkipRealsIf(file->fh, st->fam->vars[k].key);
    for (const char *const *key = st->fam->behind; key && *key; ++key) iopSkipRealsIf(file->fh, *key);
    st->parts[p].ended = 1;
}

/* -------------------------------------------------------------------------------------------------------- values */

static int readParts(rdbHd *hd, rdbStepFiles *st, int var, double *data)
{
    st->busy = 1;
    for (int p = 0; p < st->nParts; ++p) {
        const int f = st->merged ? 0 : p;
        if (!st->files[f].opt) {
            st->busy = 0;
            return rdbFail(".%s file not found", st->fam->ext);
        }
        stepFile *file = st->merged && p > 0 ? &st->files[0] : openFile(hd, st, f);
        readArray(hd, st, file, p, var, data);
        if (st->merged) skipToEnd(st, file, p, var);
        if (!st->merged || p == st->nParts - 1) releaseFile(st, f);
    }
    st->busy = 0;
    return 1;
}

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
    const size_t      size = sizeof(double) * (size_t) run->nNodes * (size_t) rdbOutVarWidth(hd, fam, var);

    rdbOutBase(hd, step, base);
    const int form = rdbFindOutFirst(hd, fam, base, path, &merged);
    if (!form) {
        memset(data, 0, size);
        return 0;
    }
    if (run->nSds < 1) iopCloseFile(rdbOpenReadFile(hd, path, form));
    rdbStepFiles *st = takeStep(hd, fam, step, merged);
    if (!listFiles(hd, st) || !run->sdCover) memset(data, 0, size);
    return readParts(hd, st, var, data);
}

/* --------------------------------------------------------------------------------------------------------- times */

double rdbReadOutTime(rdbHd *hd, const rdbOutFam *fam, const char *path, int form)
{
    double time;
    iopHd *fh = rdbHoldFile(hd, rdbOpenReadFile(hd, path, form));
    iopGetKeyReal(fh, fam->hdr[0].key, &time);
    rdbCloseHeld(hd);
    return time;
}

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
    info->times[i] = rdbReadOutTime(hd, fam, path, form);
    return 1;
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
