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

/* The file, held by the run, and a buffer that its lines fit in */
static iopHd *openCli(rdbHd *hd)
{
    char path[SYS_TEXT];
    snprintf(path, sizeof path, "%s/%s.%d.cli", hd->dir, hd->problem, hd->runId);
    rdbCli *cli = hd->run->cli;
    iopHd  *fh = rdbHoldFile(hd, iopOpenFile(path, IOP_READ | IOP_ASCII));

    const int64_t longest = longestLine(path);
    if (longest > INT_MAX - SYS_TEXT) sysError("Internal in reading cli file");
    cli->setsLeft = iopFileSize(path);
    cli->lineSize = (int) longest + SYS_TEXT;
    cli->line     = memNew(char, cli->lineSize);
    return fh;
}

static void readPass(rdbHd *hd, iopHd *fh, int pass)
{
    const rdbCli *cli = hd->run->cli;
    while (iopGetLine(fh, cli->line, cli->lineSize) && rdbReadCliLine(hd, cli->line, pass)) {}
}

int rdbOpenRun(rdbHd *hd, int runId)
{
    if (!hd) return rdbFail("rdb not initialized");
    if (runId == 0 && hd->nRuns > 0) runId = hd->runIds[hd->nRuns - 1];
    if (!isListed(hd, runId)) return rdbFail("runId %d not found", runId);
    if (hd->run) rdbCloseRun(hd);

    rdbEnter(hd);
    newRun(hd, runId);
    iopHd *fh = openCli(hd);
    readPass(hd, fh, 1);
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
