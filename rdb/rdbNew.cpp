/* rdbNew.cpp: the life of a handle, the text of the last failure, and the directory guard.
 *
 * A handle may be told a folder to work in (pdir). Then every operation that touches files goes there and back again:
 * rdbEnter and rdbLeave, which nest, and of which only the outermost pair moves. Names of files are relative to it. An
 * operation that fails an assertion on its way never reaches rdbLeave: the process stays in the folder and the depth
 * stays raised, so that later operations go nowhere and work where the process stands, which is there unless the client
 * moves it. That is part of the interface; a client that traps failures and uses pdir goes back itself, once it is done
 * with the handle. A folder that cannot be entered raises nothing: the next operation tries again.
 *
 * In this file: error text, guard, rdbNew and rdbFree, and the keys that answer from the handle itself. */

#include "rdb/rdbInt.h"

#include <limits.h>
#include <string.h>

#include "base/cnf.h"

static_assert((int) RDB_TEXT == (int) SYS_TEXT, "rdb.h: clients size their texts by it, getters cut at SYS_TEXT");

/* ------------------------------------------------------------------------------------- the text of the last failure */

static char errorText[SYS_TRAP_TEXT];

/* By way of a second text, since a caller may well put the former error into the new one. */
static void setError(const char *format, va_list args)
{
    char text[SYS_TRAP_TEXT];
    vsnprintf(text, sizeof text, format, args);
    memcpy(errorText, text, strlen(text) + 1);
}

void rdbSetError(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    setError(format, args);
    va_end(args);
}

int rdbFail(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    setError(format, args);
    va_end(args);
    return 0;
}

const char *rdbGetError(void) { return errorText; }

/* ---------------------------------------------------------------------------------------------- the directory guard */

void rdbEnter(rdbHd *hd)
{
    if (!hd->pdir) return;
    if (hd->dirDepth == 0) {
        sysGetCwd(hd->savedCwd, SYS_TEXT);
        sysSetCwd(hd->pdir);
    }
    ++hd->dirDepth;
}

void rdbLeave(rdbHd *hd)
{
    if (!hd->pdir) return;
    if (hd->dirDepth == 1) sysSetCwd(hd->savedCwd);         /* if that fails we are still inside */
    --hd->dirDepth;
}

/* ------------------------------------------------------------------------------------------------- life of a handle */

/* The handle in the making. A failure that jumps out of rdbNew leaves it here, with all the names that it may have read
   by then; the next call frees it. */
static rdbHd *unborn;

/* Ends the handle in the making. The process stays in pdir, where the names in the error text hold. */
static rdbHd *undo(void)
{
    rdbHd *hd = unborn;
    unborn = nullptr;
    memFree(hd->pdir);
    rdbFree(hd);
    return nullptr;
}

rdbHd *rdbNew(const char *problem, const char *dir, const char *pdir, int verbose)
{
    if (unborn) undo();
    rdbHd *hd = unborn = memNewZ(rdbHd, 1);
    hd->magic = RDB_MAGIC;
    hd->runId = -1;
    hd->dirTime = INT_MIN;              /* before any time that a directory can have: the first update scans */

    hd->problem = memDup(problem ? problem : cnfGetStr("problem"));
    if (!strcmp(hd->problem, "_undefined")) {
        rdbSetError("Undefined problem");
        return undo();
    }

    if (pdir && strcmp(pdir, ".")) {
        hd->pdir = memDup(pdir);
        hd->savedCwd = memNewZ(char, SYS_TEXT);
        rdbEnter(hd);
    }

    hd->dir = memDup(dir ? dir : cnfGetStr("dir"));          /* as seen from pdir */
    if (!iopIsDir(hd->dir)) {
        rdbSetError("Invalid directory <%s>", hd->dir);
        return undo();
    }

    hd->verbose = verbose == -1 ? cnfGetInt("verbose") : verbose;
    int changed;
    if (!rdbUpdate(hd, &changed)) return undo();

    rdbLeave(hd);
    unborn = nullptr;
    return hd;
}

void rdbFree(rdbHd *hd)
{
    if (hd->run || hd->runId != -1) rdbCloseRun(hd);
    rdbDropFiles(hd);
    memFree(hd->problem);
    memFree(hd->dir);
    memFree(hd->pdir);
    memFree(hd->savedCwd);
    memFree(hd->runIds);
    memFree(hd->runIdHash);
    memFree(hd->trunIds);
    memFree(hd->trunRunIds);
    memFree(hd);
}

/* ---------------------------------------------------------------------------------------- keys of the handle itself */

extern "C" {

RDB_GETTER(rdb_problem)   { return rdbPutText(data, hd->problem); }
RDB_GETTER(rdb_dir)       { return rdbPutText(data, hd->dir); }
RDB_GETTER(rdb_openRunId) { return rdbPutInt(data, hd->runId); }

}
