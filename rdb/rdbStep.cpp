/* rdbStep.cpp: the arrays of a step, and what is kept of its files between two requests.
 *
 * A step's values lie in one file per subdomain, or in one merged file that holds the parts of all subdomains one
 * behind the other. A part is a header and then one array per variable, in the order of the family's table; its rows
 * go to the nodes that a list for that part tells. To get at an array, all keys before it must be stepped over, and
 * each must be there. A variable of which the family has no array, by a word of the header, is passed over on the way.
 *
 * Clients ask for several arrays of one step in a row. So the run keeps the files of the steps that were read last, one
 * record for each family and each set of surfaces: the handles, up to a number in all, and for each part the locations
 * of the keys that have been met. The next array is read from the nearest of them. A compressed file is kept as well,
 * as the program that decodes it, which waits behind the farthest that was read, and what it has decoded so far, as far
 * as there is room for that: it is decoded once, in whatever order it is asked for. This must not be seen but by speed:
 * a file that is no longer the one that was opened is opened anew and walked from its start, another step of the family
 * drops its records, and the end of the run drops all.
 *
 * A solver may write a file anew while it is read. So each file is looked at before and behind the reading of all, and
 * an array is good if every file stayed what it was. Times tell changes apart only if they are not too close: a file
 * that was written a moment ago is given that moment to come to rest first. Where a file changed all the same the array
 * is read once more, after a while, until none does or until two readings agree, which is how a file that only grows
 * behind the array comes through; or until that was tried often enough, and is told. How soon a rewritten file is seen
 * to be another one is up to the system: on a network file system its cache of attributes bounds it.
 *
 * The arrays go straight into the caller's buffer. A failure leaves in it what had been read.
 *
 * A read may be left by a jump at any place. It marks the record as busy, and one that is found busy is dropped.
 *
 * In this file: the files kept, files of a step, one part, all parts, reading until it is sure, the kept gradient. */

#include "rdb/rdbInt.h"

#include <string.h>
#include <sys/resource.h>

typedef struct stepFile {
    iopHd *fh;                    /* null: not open                                              */
    int    opt;                   /* form; 0: missing                                            */
    int    isPipe;                /* going back in it means to decode it again                   */
    int    known;                 /* `id` tells the file that the places of its parts are of     */
    int    rests;                 /* that file was at rest before it was read                    */
    iopFileId id;                 /* of what lies on the disk: the container's, if it is in one  */
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
    rdbStepFiles *next;           /* used less recently                                          */
    const rdbOutFam *fam;
    int       step, hasParts, merged;
    uint64_t  present;            /* the keys of the family that stand in its files              */
    int       busy;               /* being made or read, or left by a jump out of that           */
    int       nFiles, nParts;     /* nFiles: 1 if merged, and none without parts                 */
    stepFile *files;
    stepPart *parts;
    keyPlace *places;             /* of all parts                                                */
    double   *grad;               /* of the first variable, made from these files; or null       */
    char      base[SYS_TEXT];
};

/* ------------------------------------------------------------------------------------------------ the files kept */

static void closeFile(runHd *run, stepFile *file)
{
    iopHd *fh = file->fh;
    if (!fh) return;
    file->fh = NULL;
    --run->nStepOpen[file->isPipe];
    iopCloseFile(fh);
}

/* Nothing is known of a file and its parts any more, nor of what was made from them */
static void forgetParts(rdbStepFiles *st, int f)
{
    st->files[f].known = 0;
    for (int p = st->merged ? 0 : f; p < (st->merged ? st->nParts : f + 1); ++p)
        st->parts[p].nPlaces = st->parts[p].ended = 0;
    memFree(st->grad);
}

static void forgetFile(runHd *run, rdbStepFiles *st, int f)
{
    closeFile(run, &st->files[f]);
    forgetParts(st, f);
}

/* Unlinks the record at *link and drops it. It stays linked, and busy, until it holds nothing. */
static void dropStep(runHd *run, rdbStepFiles **link)
{
    rdbStepFiles *st = *link;
    st->busy = 1;
    for (int f = 0; st->files && f < st->nFiles; ++f) closeFile(run, &st->files[f]);
    memFree(st->files);
    memFree(st->parts);
    memFree(st->places);
    memFree(st->grad);
    *link = st->next;
    memFree(st);
}

/* The run whose steps are kept. A client may leave runs open that it will never ask again, as a reader does that opens
   a growing run anew: what they keep goes as soon as another run is read. */
static runHd *keeper;

void rdbDropReading(runHd *run)
{
    if (keeper == run) keeper = NULL;
    while (run->stepFiles) dropStep(run, &run->stepFiles);
    iopHd *fh = run->reading;
    run->reading = NULL;
    if (fh) iopCloseFile(fh);
    rdbDropOutInfo(&run->outNew);
    memFree(run->idBuf);
}

/* How many files to keep open: a small share of what the process may have open in all. Of pipes, behind each of which
   a program waits, yet fewer. */
static int nToKeep(int isPipe)
{
    const int     most = isPipe ? 16 : 64;
    struct rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 8;
    return limit.rlim_cur > (rlim_t) most * 8 ? most : (int) limit.rlim_cur / 8;
}

/* The open file of that kind that was used least recently, of another record than this one; or null */
static stepFile *oldestOther(runHd *run, const rdbStepFiles *st, int isPipe)
{
    stepFile *oldest = NULL;
    for (rdbStepFiles *other = run->stepFiles; other; other = other->next)
        for (int f = 0; other != st && f < other->nFiles; ++f)
            if (other->files[f].fh && other->files[f].isPipe == isPipe) oldest = &other->files[f];
    return oldest;
}

/* After a read: what may not be kept is closed. If there are too many others give way, but not the files of the same
   step: the first of these stay, and of the rest only the places. */
static void releaseFile(runHd *run, rdbStepFiles *st, int f)
{
    stepFile *file = &st->files[f];
    if (!file->known) return forgetFile(run, st, f);
    const int most = nToKeep(file->isPipe);
    while (file->fh && run->nStepOpen[file->isPipe] > most) {
        stepFile *other = oldestOther(run, st, file->isPipe);
        closeFile(run, other ? other : file);
    }
}

/* A record for the array's files, which is the run's from the start */
static rdbStepFiles *newStep(runHd *run, const rdbStepArray *array)
{
    rdbStepFiles *st = memNewZ(rdbStepFiles, 1);
    const int     nKeys = array->fam->nVars + 1;
    st->busy = 1;
    st->next = run->stepFiles;
    run->stepFiles = st;
    st->fam = array->fam;
    st->step = array->step;
    st->hasParts = array->hasParts;
    st->merged = array->merged;
    st->present = array->present;
    st->nParts = array->nParts;
    st->nFiles = array->merged && st->nParts > 0 ? 1 : st->nParts;
    rdbFormat(st->base, "%s", array->base);
    st->files = memNewZ(stepFile, st->nFiles);
    st->parts = memNewZ(stepPart, st->nParts);
    st->places = memNew(keyPlace, (int64_t) st->nParts * nKeys);
    for (int p = 0; p < st->nParts; ++p) st->parts[p].places = st->places + (int64_t) p * nKeys;
    st->busy = 0;
    return st;
}

static int isOfFiles(const rdbStepFiles *st, const rdbStepArray *array)
{
    return st->fam == array->fam && st->merged == array->merged && st->nParts == array->nParts &&
           strcmp(st->base, array->base) == 0;
}

/* Of no use any more once the array is asked for: left by a jump, or of another step of the family */
static int isStale(const rdbStepFiles *st, const rdbStepArray *array)
{
    return st->busy || (st->fam == array->fam && st->step != array->step);
}

static void makeKeeper(runHd *run)
{
    while (keeper && keeper != run && keeper->stepFiles) dropStep(keeper, &keeper->stepFiles);
    keeper = run;
}

/* The record of the array's files, the first in the list from here on: the one at hand, or a new one */
static rdbStepFiles *takeStep(runHd *run, const rdbStepArray *array)
{
    makeKeeper(run);
    for (rdbStepFiles **link = &run->stepFiles; *link;) {
        if (isStale(*link, array)) dropStep(run, link);
        else link = &(*link)->next;
    }
    for (rdbStepFiles **link = &run->stepFiles; *link; link = &(*link)->next) {
        rdbStepFiles *st = *link;
        if (!isOfFiles(st, array)) continue;
        *link = st->next;
        st->next = run->stepFiles;
        return run->stepFiles = st;
    }
    return newStep(run, array);
}

/* ----------------------------------------------------------------------------------------- the files of a step */

/* "p.1_20_3.out", without the form's suffix */
static void partName(const rdbStepFiles *st, int f, char *name)
{
    if (!st->hasParts) rdbFormat(name, "%s", st->base);
    else if (st->merged) rdbFormat(name, "%sx.%s", st->base, st->fam->ext);
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
    if (st->fam->newest) return rdbFindOutPart(hd, st->fam, st->base, f);
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
        if (opt != st->files[f].opt) forgetFile(hd->run, st, f);
        st->files[f].opt = opt;
        all = all && opt;
    }
    return all;
}

/* 1 if file f is what it was when it was last opened anew */
static int isAsBefore(rdbHd *hd, const rdbStepFiles *st, int f)
{
    char      path[SYS_TEXT];
    iopFileId id;
    partPath(hd, st, f, path);
    rdbLookAtFile(hd, path, st->files[f].opt, &id);         /* of none: all zero, as it was then if there was none */
    return iopSameFile(&id, &st->files[f].id);
}

static void openHandle(rdbHd *hd, stepFile *file, const char *path)
{
    file->fh = rdbOpenReadFile(hd, path, file->opt);
    file->isPipe = !iopGoesBack(file->fh);
    ++hd->run->nStepOpen[file->isPipe];
    iopKeepDecoded(file->fh);
}

/* Looks at file f. What is looked at before the open is at worst an older state than the one that is read, which shows
   at the next look. */
static void lookAtFile(rdbHd *hd, rdbStepFiles *st, int f)
{
    stepFile       *file = &st->files[f];
    const iopFileId before = file->id;
    char            path[SYS_TEXT];
    partPath(hd, st, f, path);
    const int there = rdbLookAtFile(hd, path, file->opt, &file->id);
    file->rests = there && iopSameFile(&file->id, &before);
    file->known = there && iopIsSettled(&file->id);
}

/* Before a reading: what is no longer the file that it was is forgotten, and all files that may be at work are left to
   rest, at once, for as long as a change could hide in their times. One that did rest is known even if its clock is
   ahead of ours: it, too, went on meanwhile. */
static void lookBefore(rdbHd *hd, rdbStepFiles *st)
{
    double rest = 0;
    for (int f = 0; f < st->nFiles; ++f) {
        stepFile *file = &st->files[f];
        file->rests = file->known && isAsBefore(hd, st, f);
        if (file->rests) continue;
        forgetFile(hd->run, st, f);
        lookAtFile(hd, st, f);
        file->rests = file->known;
        const double wanted = iopRest(&file->id);
        if (wanted > rest) rest = wanted;
    }
    sysPause(rest);
    for (int f = 0; rest > 0 && f < st->nFiles; ++f) {
        stepFile *file = &st->files[f];
        if (file->rests) continue;
        lookAtFile(hd, st, f);
        if (file->rests && iopIsAhead(&file->id)) file->known = 1;
    }
}

/* Opens file f of the step, unless it is open. An open one may have been written while it was read ahead: it is asked
   for its bytes anew. A pipe goes on where it stands. One of which only the places stayed may have become another one
   just before the open: then nothing is known of it. */
static stepFile *openFile(rdbHd *hd, rdbStepFiles *st, int f)
{
    stepFile *file = &st->files[f];
    char      path[SYS_TEXT];
    partPath(hd, st, f, path);
    if (file->fh) {
        if (!file->isPipe) iopRewind(file->fh);
        return file;
    }
    openHandle(hd, file, path);
    if (st->parts[f].nPlaces > 0 && !isAsBefore(hd, st, f)) forgetParts(st, f);
    return file;
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
   must have as many nodes as its list: its rows are put where that one says. */
static void readHead(rdbStepFiles *st, stepFile *file, const rdbStepArray *array, int p)
{
    rdbOutHead head;
    int        nNodes;
    rdbReadOutHead(file->fh, st->fam, NULL, &head);
    iopGetKeyInt(file->fh, "nNodes", &nNodes);
    if (nNodes != array->nNodes[p])
        sysFailIn(st->fam->valuesName, "Inconsistent nNodes in file <%s>: <%d> vs. <%d> of subdomain <%d>",
                  iopFileName(file->fh), nNodes, array->nNodes[p], p);
    notePlace(file, &st->parts[p], 0);
}

/* Rows that follow one another need no list. */
static void readRows(stepFile *file, const rdbStepArray *array, int p, double *data)
{
    const char *key = array->fam->vars[array->var].key;
    const int   nNodes = array->nNodes[p], first = array->first ? array->first[p] : -1;
    const int  *nodes = first < 0 ? array->nodes[p] : NULL;
    double     *dest = first < 0 ? data : data + (int64_t) first * array->width;
    if (array->add) iopAddRealsIndexed(file->fh, key, array->width, nNodes, nodes, dest);
    else iopGetRealsIndexed(file->fh, key, array->width, nNodes, nodes, dest);
}

/* The rows of the array in part p, to their nodes in data. Every key below must stand in the file. */
static void readArray(rdbStepFiles *st, stepFile *file, const rdbStepArray *array, int p, double *data)
{
    stepPart *part = &st->parts[p];
    const int var = array->var;
    if (part->nPlaces == 0) readHead(st, file, array, p);
    int k = var < part->nPlaces ? var : part->nPlaces - 1;
    goTo(st, file, part, k);
    for (; k < var; ++k) {
        if (isPresent(st, k)) iopSkipReals(file->fh, st->fam->vars[k].key);
        notePlace(file, part, k + 1);
    }
    readRows(file, array, p, data);
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

/* ----------------------------------------------------------------------------------------------------- all parts */

static int readParts(rdbHd *hd, rdbStepFiles *st, const rdbStepArray *array, double *data)
{
    st->busy = 1;
    for (int p = 0; p < st->nParts; ++p) {
        const int f = st->merged ? 0 : p;
        if (!st->files[f].opt) {
            st->busy = 0;
            return rdbFail(".%s file not found", st->fam->ext);
        }
        stepFile *file = st->merged && p > 0 ? &st->files[0] : openFile(hd, st, f);
        readArray(st, file, array, p, data);
        if (st->merged) skipToEnd(st, file, p, array->var);
        if (!st->merged || p == st->nParts - 1) releaseFile(hd->run, st, f);
    }
    st->busy = 0;
    return 1;
}

/* ------------------------------------------------------------------------------------- reading until it is sure */

/* The first file that may have been written while it was read, or -1. All that changed are forgotten. */
static int lookBehind(rdbHd *hd, rdbStepFiles *st)
{
    int first = -1;
    for (int f = st->nFiles - 1; f >= 0; --f) {
        const int same = isAsBefore(hd, st, f);
        if (!same) forgetFile(hd->run, st, f);
        if (!same || !st->files[f].rests) first = f;
    }
    return first;
}

/* Tells the bits of one reading from those of another */
static uint64_t sumOf(const double *data, int64_t n)
{
    uint64_t sum = 0, bits;
    for (int64_t i = 0; i < n; ++i) {
        memcpy(&bits, &data[i], sizeof bits);
        sum = (sum ^ bits) * 0x9E3779B97F4A7C15u;
        sum ^= sum >> 32;
    }
    return sum;
}

int rdbReadStep(rdbHd *hd, const rdbStepArray *array, double *data)
{
    rdbStepFiles *st = takeStep(hd->run, array);
    const int64_t n = (int64_t) array->nRows * array->width;
    const int     zero = (!listFiles(hd, st) || array->add || !array->covers) && n > 0;
    uint64_t      sum = 0;
    for (int nWaits = 0;; ++nWaits) {
        lookBefore(hd, st);
        if (zero) memset(data, 0, sizeof *data * (size_t) n);
        if (!readParts(hd, st, array, data)) return 0;
        const int changed = lookBehind(hd, st);
        if (changed < 0) return 1;
        const uint64_t sumBefore = sum;
        sum = sumOf(data, n);
        if (nWaits > 0 && sum == sumBefore) return 1;
        if (nWaits == RDB_WAITS) {
            char path[SYS_TEXT];
            partPath(hd, st, changed, path);
            memset(data, 0, sizeof *data * (size_t) n);     /* of two states at once: no client may take it for one */
            return rdbFailChanged(hd, path, st->files[changed].opt);
        }
        sysSleep(1);
    }
}

/* --------------------------------------------------------------------------------------------- the kept gradient */

/* The record of a step of a family on the run's nodes, if all its files are known and as they were */
static rdbStepFiles *unchangedStep(rdbHd *hd, const rdbOutFam *fam, int step)
{
    rdbStepFiles *st = hd->run->stepFiles;
    while (st && (st->busy || st->fam != fam || st->step != step)) st = st->next;
    for (int f = 0; st && f < st->nFiles; ++f)
        if (!st->files[f].known || !isAsBefore(hd, st, f)) return NULL;
    return st && st->nFiles > 0 ? st : NULL;
}

const double *rdbKeptGrad(rdbHd *hd, const rdbOutFam *fam, int step)
{
    const rdbStepFiles *st = unchangedStep(hd, fam, step);
    return st ? st->grad : NULL;
}

void rdbKeepGrad(rdbHd *hd, const rdbOutFam *fam, int step, double **grad)
{
    rdbStepFiles *st = unchangedStep(hd, fam, step);
    if (!st) return;
    memFree(st->grad);
    st->grad = *grad;
    *grad = NULL;
}
