/* rdbOpenRun.cpp: opening a run.
 *
 * `<problem>.<run>.cli` tells what the run has. It is read twice: pass one takes the volume and surface sets, pass two
 * everything else, since other lines name those sets wherever they stand. Between and behind the passes the sets are
 * brought together (rdbSets.cpp). Nothing else is read here: getters open the data files when they are asked.
 *
 * What a failure jumps over is owned by the run record, which is in the handle from the start: closing the run, or
 * opening another, releases it. */

#include "rdb/rdbInt.h"

#include <limits.h>
#include <string.h>

enum { CLI_WAITS = 2 };              /* seconds */

static int isListed(const rdbHd *hd, int runId)
{
    int missing = 1;
    const int i = hd->nRuns > 0 ? mtxIfInvHash(hd->runIdHash, hd->nRuns, runId, &missing) : -1;
    return !missing && i >= 0 && i < hd->nRuns && hd->runIds[i] == runId;
}

/* `cli` marks a run that is not open yet: the handle never has one without it. */
static void newRun(rdbHd *hd, int runId)
{
    rdbCli *cli = memNewZ(rdbCli, 1);
    runHd  *run = memNewZ(runHd, 1);
    run->cli    = cli;
    run->runId  = hd->runId = runId;
    hd->run     = run;
    run->opt    = IOP_BINARY;
    run->nSpecs = run->nFields = run->nFilms = run->nAoutVecs = run->nDODirs = -1;
    run->rstFromRunId = run->rstFromStep = -1;
    for (int i = 0; i < RDB_MAX_SPECIES; ++i) {
        char name[32];
        snprintf(name, sizeof name, "species_%d", i + 1);
        run->speciesNames[i] = memDup(name);
    }
}

/* Characters of the longest line, its end included; no more are counted than a buffer could have */
static int64_t longestLine(const char *path)
{
    static char block[1 << 16];
    int64_t longest = 0, len = 0;
    FILE   *fp = fopen(path, "rb");
    for (size_t n; fp && longest <= INT_MAX && (n = fread(block, 1, sizeof block, fp)) > 0; )
        for (const char *s = block, *end = block + n; s < end; ) {
            const char *nl = (const char *) memchr(s, '\n', end - s), *next = nl ? nl + 1 : end;
            len += next - s;
            if (len > longest) longest = len;
            if (nl) len = 0;
            s = next;
        }
    if (fp) fclose(fp);
    return longest;
}

static void cliPath(const rdbHd *hd, char *path)
{
    rdbFormat(path, "%s/%s.%d.cli", hd->dir, hd->problem, hd->runId);
}

int rdbRunChanged(const rdbHd *hd)
{
    char      path[SYS_TEXT];
    iopFileId id;
    cliPath(hd, path);
    return iopLookAt(path, &id) && !iopSameFile(&id, &hd->run->cliId);
}

/* The file, held by the run, and a buffer that its lines fit in */
static iopHd *openCli(rdbHd *hd)
{
    char path[SYS_TEXT];
    cliPath(hd, path);
    rdbCli *cli = hd->run->cli;
    iopLookAt(path, &hd->run->cliId);
    iopHd  *fh = rdbHoldFile(hd, iopOpenFile(path, IOP_READ | IOP_ASCII));

    const int64_t longest = longestLine(path);
    if (longest > INT_MAX - SYS_TEXT) sysError("Internal in reading cli file");
    cli->setsLeft = iopFileSize(path);
    cli->lineSize = (int) longest + SYS_TEXT;
    cli->line     = memNew(char, cli->lineSize);
    return fh;
}

/* Returns whether there is a line that says that this is the end */
static int readPass(rdbHd *hd, iopHd *fh, int pass)
{
    const rdbCli *cli = hd->run->cli;
    while (iopGetLine(fh, cli->line, cli->lineSize))
        if (!rdbReadCliLine(hd, cli->line, pass)) return 1;
    return 0;
}

/* Written so short a while ago that the solver may be at it still */
static int isFresh(const iopFileId *id)
{
    return (int64_t) sysTime() - id->changed.tv_sec <= CLI_WAITS;
}

/* The run's record and its file, with pass one done. A file may lack the line that ends it; but one that lacks it and
   was written just now is read anew as long as it grows, since half a file is a smaller run without anything to show
   for it. */
static iopHd *beginRun(rdbHd *hd, int runId)
{
    iopFileId before = {};
    for (int nWaits = 0;; ++nWaits) {
        newRun(hd, runId);
        iopHd *fh = openCli(hd);
        if (readPass(hd, fh, 1)) return fh;
        const iopFileId now = hd->run->cliId;
        if (nWaits == CLI_WAITS || !isFresh(&now) || iopSameFile(&now, &before)) return fh;
        before = now;
        rdbCloseRun(hd);
        sysSleep(1);
    }
}

int rdbOpenRun(rdbHd *hd, int runId)
{
    if (!hd) return rdbFail("rdb not initialized");
    if (runId == 0 && hd->nRuns > 0) runId = hd->runIds[hd->nRuns - 1];
    if (!isListed(hd, runId)) return rdbFail("runId %d not found", runId);
    if (hd->run) rdbCloseRun(hd);

    rdbEnter(hd);
    iopHd *fh = beginRun(hd, runId);
    rdbReconcileSets(hd);
    iopRewind(fh);
    readPass(hd, fh, 2);
    rdbCloseHeld(hd);
    rdbSetTopologies(hd);
    memFree(hd->run->cli->line);
    memFree(hd->run->cli);
    rdbLeave(hd);
    return 1;
}
