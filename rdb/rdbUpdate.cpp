/* rdbUpdate.cpp: what is in the directory, and whether that has changed.
 *
 * Which files belong to the problem, and what they are, is told by their names alone: a long run has a file for each
 * step, and none of them is opened or asked for its time. Four regular expressions sort the names. The problem's name
 * stands in them as it is, so that what is special in an expression is special there too. Containers alone are opened,
 * and stay open to the next scan: the files in them count as files of the directory.
 *
 * rdbUpdate looks at the time of the directory, which moves whenever the solver makes a file. If it moved, the names
 * are read anew and the open run is opened anew, which drops all that was cached. So they are if a container, or the
 * run's client information file, is another one than was read. A file that grows does not move the directory's time:
 * the files of a run that grow with each step are a table, and the time of each is looked at by itself.
 *
 * What counts are whole seconds, in which a solver makes many files. Where finer parts of the time say that there may
 * be a new file all the same, or the time was too fresh at the scan to tell, the names are read once more; only one
 * that was not seen before makes a change. A file that is gone makes none: what was read from it stays until the run
 * closes.
 *
 * A scan gives its arrays to the handle as it fills them, and counts them only when they stand: a failure in the middle
 * leaves a handle that knows less, never one that points nowhere.
 *
 * In this file: names, expressions, the scan in its steps, the update, and the keys that answer from the lists. */

#include "rdb/rdbInt.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "base/regExpr.h"

static const char runTail[] =
    "\\.[0-9]+(\\.(cli|ddc|fwh|ohd|top|log|osi|oss|oth|ori|oqi|oei|oes|ofc|ohc|rad|tmf|rff|mmo|fbd|dop|sig|vfm)"
    "|_[0-9]+(\\.(dat|ohd|rst|osn|oaa|ofs|ovs|ove|pli)"
    "|_[0-9x]+(\\.(out|rst|ocn|opv|ota|ora|odq|onr|oee|oae|orn|oqf|psl|ptc|pps|pin)"
    "|_[0-9x]+\\.(osf|orf|oaa|ofs|ovs|ove))))(\\.[BZHC])?$";
static const char auxTail[]   = "(\\.slv|\\.rad|\\.[0-9]+\\.slv|\\.rad|\\.sig|\\.vis)(\\.(B|Z))?$";
static const char cliTail[]   = "\\.([0-9]+)\\.cli$";
/* begins by repeating the problem's last character, and has no end: pp.1_2_3.psl.B is a trace file of problem p */
static const char traceTail[] = "+(\\.[0-9]+(_[0-9x]+(_[0-9x]+(\\.(psl|ptc|pps|pin|pli)))))";

/* ------------------------------------------------------------------------------------------------------ expressions */

/* The expression in force. One serves all, one after the other; the engine grows its code where a problem's name takes
   more than usual, and the code stays for the next scan. */
static rePattern pattern;

static void compile(const char *problem, const char *tail)
{
    char text[SYS_TEXT];
    if (snprintf(text, sizeof text, "%s%s%s", "^", problem, tail) >= (int) sizeof text)
        sysFailIn("rdbUpdateDir", "problem name is too long <%s>", problem);
    const char *error = reCompilePattern(text, (int) strlen(text), &pattern);
    if (error) sysFailIn("rdbUpdateDir", "%s; problem <%s>", error, problem);
}

static int matches(const char *name, reRegisters *regs)
{
    const int n = reMatch(&pattern, name, (int) strlen(name), 0, regs);
    if (n == -2) sysFailIn("rdbUpdateDir", "expression is too complex for file <%s>", name);
    return n >= 0;
}

/* The number behind the first `skip` characters of a group, octal if it begins with 0. Returns 0 if it is too large to
   be an id: no run can be asked for by it. */
static int groupNumber(const char *name, const reRegisters *regs, int group, int skip, int *number)
{
    if (regs->end[group] <= regs->start[group])
        sysFailIn("rdbUpdateDir", "Inconsistent pattern matching for file <%s>", name);
    const long value = strtol(name + regs->start[group] + skip, nullptr, 0);
    *number = (int) value;
    return value >= 0 && value <= INT_MAX;
}

static int runOf(const char *name, int *runId)
{
    reRegisters regs;
    return matches(name, &regs) && groupNumber(name, &regs, 1, 0, runId);
}

/* pair: run id, trace id. The groups begin with "." and "_". */
static int traceOf(const char *name, int pair[2])
{
    reRegisters regs;
    return matches(name, &regs) && groupNumber(name, &regs, 1, 1, &pair[0]) && groupNumber(name, &regs, 2, 1, &pair[1]);
}

/* ---------------------------------------------------------------------------------------------- the steps of a scan */

/* A file in a container must not outlive it: what the run keeps open goes first. */
static void closeContainers(rdbHd *hd)
{
    if (hd->run) rdbDropReading(hd->run);
    if (hd->fileDic) dicFree(hd->fileDic);
    hd->fileDic = nullptr;
    while (hd->nContainers > 0) {
        iopHd *container = hd->containers[--hd->nContainers];
        if (container) iopCloseFile(container);
    }
    memFree(hd->containers);
    memFree(hd->containerNames);
    memFree(hd->containerIds);
}

void rdbDropFiles(rdbHd *hd)
{
    closeContainers(hd);
    for (int i = 0; i < hd->nFiles; ++i) memFree(hd->files[i]);
    hd->nFiles = hd->nRunFiles = hd->nAuxFiles = hd->nUndefFiles = 0;
    memFree(hd->files);
    hd->auxFiles = hd->undefFiles = nullptr;
}

/* room: of hd->files */
static void addName(rdbHd *hd, const char *name, int *room)
{
    if (hd->nFiles == *room) {
        const int more = 2 * *room + 100;
        hd->files = (char **) memRealloc(hd->files, memSize(*room, sizeof(char *)), memSize(more, sizeof(char *)),
                                         __FILE__, __LINE__, 0);
        *room = more;
    }
    hd->files[hd->nFiles] = memDup(name);
    ++hd->nFiles;
}

/* The next name in a directory, but those of itself and of its parent; null at the end */
static const char *nextName(iopDir *dir)
{
    const char *name;
    do name = iopReadDir(dir);
    while (name && (!strcmp(name, ".") || !strcmp(name, "..")));
    return name;
}

static void readNames(rdbHd *hd, int *room)
{
    hd->files = memNew(char *, *room);
    iopDir *dir = iopOpenDir(hd->dir);
    while (const char *name = nextName(dir)) addName(hd, name, room);
    iopCloseDir(dir);
}

static void sortNames(char **names, int n)
{
    std::sort(names, names + n, [](const char *a, const char *b) { return strcmp(a, b) < 0; });
}

/* Containers are known by their names. They are sorted, so that it does not depend on the file system which of two that
   have a file of one name it is read from. */
static void noteContainers(rdbHd *hd)
{
    int n = 0, k = 0;
    for (int i = 0; i < hd->nFiles; ++i) n += iopGetFileOpt(hd->files[i]) == IOP_HDF_CONTAINER;
    hd->containerNames = memNew(char *, n);
    hd->containers     = memNewZ(iopHd *, n);
    hd->containerIds   = memNewZ(iopFileId, n);
    for (int i = 0; i < hd->nFiles; ++i)
        if (iopGetFileOpt(hd->files[i]) == IOP_HDF_CONTAINER) hd->containerNames[k++] = hd->files[i];
    sortNames(hd->containerNames, n);
    hd->nContainers = n;
}

static void containerPath(const rdbHd *hd, int i, char *path)
{
    rdbFormat(path, "%s/%s", hd->dir, hd->containerNames[i]);
}

/* Opens the containers; one that fails leaves those before it to closeContainers. Gives how many files are in them. */
static int64_t openContainers(rdbHd *hd)
{
    char    path[SYS_TEXT];
    int64_t n = 0;
    for (int i = 0; i < hd->nContainers; ++i) {
        containerPath(hd, i, path);
        iopLookAt(path, &hd->containerIds[i]);
        hd->containers[i] = iopOpenFile(path, IOP_READ | IOP_HDF_CONTAINER);
        n += iopGetNHdfFiles(hd->containers[i]);
    }
    return n;
}

/* No file of the directory has such a name, and none can be opened by it. */
static int isName(const char *name)
{
    const size_t length = strlen(name);
    return length > 0 && length < SYS_NAME && !strchr(name, '/');
}

/* Adds the files in containers to `files`, and tells the dictionary where each lives. What it does not hold lies in
   the directory. */
static void readMembers(rdbHd *hd, int *room)
{
    const int64_t most = 1 << 20, n = openContainers(hd);
    hd->fileDic = dicNew((int) std::min(n, most));
    for (int i = 0; i < hd->nContainers; ++i) {
        iopHd    *container = hd->containers[i];
        const int nMembers = iopGetNHdfFiles(container);
        for (int k = 0; k < nMembers; ++k) {
            char name[SYS_TEXT];
            iopGetHdfFileName(container, name, k);
            if (!isName(name)) continue;
            addName(hd, name, room);
            dicPut(hd->fileDic, name, (intptr_t) container);
        }
    }
}

/* Brings the names that match to the front. Returns how many. */
static int bringForward(char **names, int n)
{
    int i = 0;
    while (i < n)
        if (matches(names[i], nullptr)) ++i;
        else std::swap(names[i], names[--n]);
    return i;
}

/* Run files, auxiliary files, the rest. */
static void classify(rdbHd *hd)
{
    compile(hd->problem, runTail);
    const int nRunFiles = bringForward(hd->files, hd->nFiles);
    compile(hd->problem, auxTail);
    const int nAuxFiles = bringForward(hd->files + nRunFiles, hd->nFiles - nRunFiles);

    hd->nRunFiles   = nRunFiles;
    hd->nAuxFiles   = nAuxFiles;
    hd->nUndefFiles = hd->nFiles - nRunFiles - nAuxFiles;
    hd->auxFiles    = hd->files + nRunFiles;
    hd->undefFiles  = hd->auxFiles + nAuxFiles;
    sortNames(hd->files, hd->nRunFiles);
    sortNames(hd->auxFiles, hd->nAuxFiles);
    sortNames(hd->undefFiles, hd->nUndefFiles);
}

/* Two names for one run id. The hash would tell too, but it lets a key of 0 in twice. */
static void refuseTwice(const int *ids, int n)
{
    for (int i = 1; i < n; ++i)
        if (ids[i] == ids[i - 1]) sysFailIn("mtxNewInvHash", "Duplicate key <%d>", ids[i]);
}

/* A name that a container has too stands in the list again, behind itself. */
static int isRepeated(const rdbHd *hd, int i)
{
    return i > 0 && !strcmp(hd->files[i], hd->files[i - 1]);
}

/* A run is a client information file in text form. */
static void findRuns(rdbHd *hd)
{
    int n = 0, id;
    compile(hd->problem, cliTail);
    for (int i = 0; i < hd->nRunFiles; ++i) n += !isRepeated(hd, i) && runOf(hd->files[i], &id);

    hd->nRuns = 0;
    hd->maxRunId = -1;
    memFree(hd->runIds);
    memFree(hd->runIdHash);
    hd->runIds = memNew(int, n);
    for (int i = 0, k = 0; i < hd->nRunFiles && k < n; ++i)
        if (!isRepeated(hd, i) && runOf(hd->files[i], &id)) hd->runIds[k++] = id;
    sysSortInts(hd->runIds, n);
    refuseTwice(hd->runIds, n);
    if (n > 0) hd->runIdHash = mtxNewInvHash(hd->runIds, n);
    if (n > 0) hd->maxRunId = hd->runIds[n - 1];
    hd->nRuns = n;
}

/* Many files make one trace run: one for each kind and piece. Where there are none, nTruns and maxTrunId keep what they
   held: a client that has a trace run open goes on counting with them. */
static void findTruns(rdbHd *hd)
{
    int n = 0, k = 0, found[2];
    memFree(hd->trunIds);
    memFree(hd->trunRunIds);
    compile(hd->problem, traceTail);
    for (int i = 0; i < hd->nRunFiles; ++i) n += traceOf(hd->files[i], found);
    if (n == 0) return;

    int *pairs = memNew(int, 2 * (int64_t) n);
    for (int i = 0; i < hd->nRunFiles; ++i) {
        if (!traceOf(hd->files[i], found)) continue;
        if (k < n) memcpy(pairs + 2 * k, found, sizeof found);
        ++k;
    }
    if (k != n) sysFailIn("rdbUpdateDir", "iTrFile = <%d> does not equal nTrFiles = <%d>", k, n);
    sysSortTuples(pairs, n, 2);

    k = 0;
    for (int i = 0; i < n; ++i)
        if (k == 0 || memcmp(pairs + 2 * (k - 1), pairs + 2 * i, sizeof found))
            memmove(pairs + 2 * k++, pairs + 2 * i, sizeof found);

    hd->nTruns = 0;
    hd->maxTrunId = -1;
    hd->trunIds = memNew(int, k);
    hd->trunRunIds = memNew(int, k);
    for (int i = 0; i < k; ++i) {
        hd->trunRunIds[i] = pairs[2 * i];
        hd->trunIds[i] = pairs[2 * i + 1];
        hd->maxTrunId = std::max(hd->maxTrunId, hd->trunIds[i]);
    }
    hd->nTruns = k;
    memFree(pairs);
}

int rdbUpdateDir(rdbHd *hd)
{
    int room = 100;
    rdbDropFiles(hd);
    rdbEnter(hd);
    readNames(hd, &room);
    noteContainers(hd);
    readMembers(hd, &room);
    classify(hd);
    findRuns(hd);
    findTruns(hd);
    rdbLeave(hd);
    return 1;
}

/* ------------------------------------------------------------------------------------------------------- the update */

enum { MINUTE = 60 };

/* That the log grew is told even where nobody has asked for it yet. */
static int dropTop(runHd *run)
{
    rdbDropLog(&run->log);
    return 1;
}

/* The files of a run that grow while it is open, `<problem>.<run>.<ext>`. To watch one more, add a row. */
static const struct {
    const char *ext;
    int         time;                /* its place in runHd::fileTimes: the time when it was last found newer */
    int       (*drop)(runHd *run);   /* drops what was read from it; 0: nothing was, and no answer can differ */
} watched[] = {
    { "top", RDB_TOP_FILE, dropTop },
};

/* The time of a run's file in the form that the last scan saw, or of its container; 0 if it saw none. */
static int runFileTime(rdbHd *hd, const char *ext)
{
    char name[SYS_TEXT], path[SYS_TEXT], diskName[SYS_TEXT];
    rdbFormat(name, "%s.%d.%s", hd->problem, hd->runId, ext);
    const int opt = rdbFindFile(hd, name);
    if (!opt) return 0;
    rdbFormat(path, "%s/%s", hd->dir, name);
    rdbDiskName(hd, path, opt, diskName);
    return iopFileTime(diskName);
}

/* A file that was written in this second or the one before may be written again without a later time. */
int rdbWatchedTime(rdbHd *hd, int file)
{
    for (const auto &row : watched) {
        if (row.time != file) continue;
        const int time = runFileTime(hd, row.ext);
        return (int64_t) sysTime() - time > 1 ? time : time - 1;
    }
    return 0;
}

/* A time of a file has the grain of a second, and what is written may reach the disk late: once a minute the .top file
   counts as newer even if its time stands. */
static void updateFiles(rdbHd *hd, int *flag)
{
    if (hd->lastUpdate && (int64_t) sysTime() - hd->lastUpdate > MINUTE) hd->run->fileTimes[RDB_TOP_FILE] = 0;
    for (const auto &file : watched) {
        const int time = runFileTime(hd, file.ext);
        if (time <= hd->run->fileTimes[file.time] || !file.drop(hd->run)) continue;
        hd->run->fileTimes[file.time] = time;
        *flag = 1;
    }
}

/* A container that is written into does not move the directory's time. */
static int containersChanged(rdbHd *hd)
{
    for (int i = 0; i < hd->nContainers; ++i) {
        char      path[SYS_TEXT];
        iopFileId id;
        containerPath(hd, i, path);
        iopLookAt(path, &id);
        if (!iopSameFile(&id, &hd->containerIds[i])) return 1;
    }
    return 0;
}

/* A name in the directory that the last scan did not see */
static int hasNewName(const rdbHd *hd)
{
    int     isNew = 0;
    iopDir *dir = iopOpenDir(hd->dir);
    while (const char *name = nextName(dir)) isNew = isNew || !rdbIsListed(hd, name);
    iopCloseDir(dir);
    return isNew;
}

/* May the directory have changed since its names were read last, although the second of its time is no later? */
static int mayHaveChanged(const rdbHd *hd, const iopFileId *id)
{
    return !hd->dirSettled || !iopSameFile(id, &hd->dirId);
}

/* With the guard held. What the directory looked like is kept only when all went well, so that the next update tries
   again. It is looked at before its names are read: what comes in between shows at the next look. */
static int update(rdbHd *hd, int *flag)
{
    iopFileId id;
    sysSync();                       /* on a network file system: so that we see what the solver has made */
    if (!iopLookAt(hd->dir, &id)) return rdbFail("directory %s not found", hd->dir);
    const int time = (int) id.changed.tv_sec, settled = iopIsSettled(&id);
    if (time > hd->dirTime || containersChanged(hd) || (hd->run && rdbRunChanged(hd)) ||
        (mayHaveChanged(hd, &id) && hasNewName(hd))) {
        *flag = 1;
        hd->dirTime = INT_MIN;
        rdbUpdateDir(hd);
        if (hd->nRuns == 0) return rdbFail("problem %s not found", hd->problem);
        if (hd->run && !rdbOpenRun(hd, hd->runId)) return 0;
    }
    hd->dirTime = time;
    hd->dirId = id;
    hd->dirSettled = settled;
    if (hd->run) updateFiles(hd, flag);
    if (*flag) hd->lastUpdate = sysTime();
    return 1;
}

int rdbUpdate(rdbHd *hd, int *flag)
{
    if (!hd) return rdbFail("rdb not initialized");
    *flag = 0;
    rdbEnter(hd);
    const int ok = update(hd, flag);
    rdbLeave(hd);
    return ok;
}

/* ------------------------------------------------------------------------------------------------ keys of the lists */

/* After a scan that found no trace file, nTruns still counts the former ones. */
static int oneTrun(const int *ids, int i, int *answer)
{
    if (!ids) return rdbFail("no trace runs found");
    *answer = ids[i];
    return 1;
}

static int allTruns(const rdbHd *hd, const int *ids, int *answer)
{
    if (!ids && hd->nTruns > 0) return rdbFail("no trace runs found");
    sysCopyInts(ids, answer, hd->nTruns);
    return 1;
}

extern "C" {

RDB_GETTER(rdb_nFiles)        { return rdbPutInt(data, hd->nFiles); }
RDB_GETTER(rdb_nAuxFiles)     { return rdbPutInt(data, hd->nAuxFiles); }
RDB_GETTER(rdb_nUndefFiles)   { return rdbPutInt(data, hd->nUndefFiles); }
RDB_GETTER(rdb_fileName)      { return rdbPutText(data, hd->files[i1]); }
RDB_GETTER(rdb_auxFileName)   { return rdbPutText(data, hd->auxFiles[i1]); }
RDB_GETTER(rdb_undefFileName) { return rdbPutText(data, hd->undefFiles[i1]); }

RDB_GETTER(rdb_nRuns)         { return rdbPutInt(data, hd->nRuns); }
RDB_GETTER(rdb_runId)         { return rdbPutInt(data, hd->runIds[i1]); }
RDB_GETTER(rdb_runIds)        { sysCopyInts(hd->runIds, (int *) data, hd->nRuns); return 1; }

RDB_GETTER(rdb_nTruns)        { return rdbPutInt(data, hd->nTruns); }
RDB_GETTER(rdb_maxTrunId)     { return rdbPutInt(data, hd->maxTrunId); }
RDB_GETTER(rdb_trunId)        { return oneTrun(hd->trunIds, i1, (int *) data); }
RDB_GETTER(rdb_trunRunId)     { return oneTrun(hd->trunRunIds, i1, (int *) data); }
RDB_GETTER(rdb_trunIds)       { return allTruns(hd, hd->trunIds, (int *) data); }
RDB_GETTER(rdb_trunRunIds)    { return allTruns(hd, hd->trunRunIds, (int *) data); }

}
