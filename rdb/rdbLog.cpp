/* rdbLog.cpp: the run's log of time steps, the file `<problem>.<run>.top`, which grows while the solver works.
 *
 * It is a stream of items, each a key and its value. What is kept of it are the time steps, with their times and
 * increments; all other items are stepped over by the form that the table tells. The log is read when it is first
 * asked for and anew when an update finds the file newer. */

#include "rdb/rdbInt.h"

#include <limits.h>
#include <string.h>

enum { INT, REAL, TEXT, NAMED_REAL, STEP };

/* The items and what follows the key. A named real is followed by the key "name" and a text; a step by the keyed reals
   "timeInc" and "time". */
static const struct {
    const char *key;
    int         form;
} items[] = {
    { "tsId",       STEP       },
    { "cycleId",    INT        },
    { "eqnName",    TEXT       },
    { "stgName",    TEXT       },
    { "lhsUpdFlag", INT        },
    { "resNorm",    NAMED_REAL },
    { "resRat",     NAMED_REAL },
    { "solNorm",    NAMED_REAL },
    { "solRat",     NAMED_REAL },
    { "nIters",     INT        },
    { "lesRed",     REAL       },
    { "cpuTime",    REAL       },
    { "elapseTime", REAL       },
    { "redoFlag",   INT        },
    { "endRun",     INT        },
};

static int formOf(const char *key)
{
    for (const auto &item : items)
        if (strcmp(key, item.key) == 0) return item.form;
    sysFailIn("rdbInitLog", "Unrecognized log item %s", key);
}

void rdbDropLog(rdbLogInfo **log)
{
    if (!*log) return;
    memFree((*log)->steps);
    memFree((*log)->times);
    memFree((*log)->timeIncs);
    memFree(*log);
}

/* Room for one step more: the arrays double, one after the other, and the capacity counts when all three have */
static void grow(rdbLogInfo *log)
{
    if (log->nSteps < log->cap) return;
    if (log->cap > INT_MAX / 2 - 64) sysFailIn("rdbInitLog", "too many time steps <%d>", log->nSteps);
    const int     cap = 2 * log->cap + 64;
    const int64_t n = log->nSteps;
    log->steps    = (int *) memRealloc(log->steps, n * 4, cap * (int64_t) 4, __FILE__, __LINE__, 0);
    log->times    = (double *) memRealloc(log->times, n * 8, cap * (int64_t) 8, __FILE__, __LINE__, 0);
    log->timeIncs = (double *) memRealloc(log->timeIncs, n * 8, cap * (int64_t) 8, __FILE__, __LINE__, 0);
    log->cap = cap;
}

static void readStep(iopHd *fh, rdbLogInfo *log)
{
    grow(log);
    iopGetIntF(fh, &log->steps[log->nSteps], 1);
    iopGetKeyReal(fh, "timeInc", &log->timeIncs[log->nSteps]);
    iopGetKeyReal(fh, "time", &log->times[log->nSteps]);
    ++log->nSteps;
}

static void readItem(iopHd *fh, const char *key, rdbLogInfo *log)
{
    char text[SYS_TEXT];
    switch (formOf(key)) {
    case STEP: readStep(fh, log); break;
    case INT:  iopGetIntDsp(fh, 1); break;
    case REAL: iopGetRealDsp(fh, 1); break;
    case TEXT: iopGetStrF(fh, text); break;
    case NAMED_REAL:
        iopGetRealDsp(fh, 1);
        iopGetKeyStr(fh, "name", text);
        break;
    }
}

/* What is being read belongs to the run, but counts only when all of it is there. */
static int initLog(rdbHd *hd)
{
    runHd *run = hd->run;
    char   name[SYS_TEXT], path[SYS_TEXT], key[SYS_TEXT];
    if (run->log) return 1;
    rdbFormat(name, "%s.%d.top", hd->problem, run->runId);
    rdbFormat(path, "%s/%s.%d.top", hd->dir, hd->problem, run->runId);
    const int opt = rdbFindFile(hd, name), time = rdbWatchedTime(hd, RDB_TOP_FILE);
    if (!opt) return rdbFail(".top file not found");
    rdbDropLog(&run->logNew);
    run->logNew = memNewZ(rdbLogInfo, 1);
    iopHd *fh = rdbHoldFile(hd, rdbOpenReadFile(hd, path, opt));
    while (iopGetIfStr(fh, key)) readItem(fh, key, run->logNew);
    rdbCloseHeld(hd);
    run->log = run->logNew;
    run->logNew = NULL;
    run->fileTimes[RDB_TOP_FILE] = time;
    return 1;
}

extern "C" {

RDB_GETTER(rdb_nSteps)   { return initLog(hd) && rdbPutInt(data, hd->run->log->nSteps); }
RDB_GETTER(rdb_step)     { return initLog(hd) && rdbPutInt(data, hd->run->log->steps[i1]); }
RDB_GETTER(rdb_time)     { return initLog(hd) && rdbPutReal(data, hd->run->log->times[i1]); }
RDB_GETTER(rdb_timeInc)  { return initLog(hd) && rdbPutReal(data, hd->run->log->timeIncs[i1]); }

RDB_GETTER(rdb_steps)
{
    if (!initLog(hd)) return 0;
    sysCopyInts(hd->run->log->steps, (int *) data, hd->run->log->nSteps);
    return 1;
}

RDB_GETTER(rdb_times)
{
    if (!initLog(hd)) return 0;
    sysCopyReals(hd->run->log->times, (double *) data, hd->run->log->nSteps);
    return 1;
}

RDB_GETTER(rdb_timeIncs)
{
    if (!initLog(hd)) return 0;
    sysCopyReals(hd->run->log->timeIncs, (double *) data, hd->run->log->nSteps);
    return 1;
}

}
