/* rdbUtil.cpp: what the getters stand on: the files of the directory, the decomposition, user ids.
 *
 * A file exists for the library only if the last scan listed it, and the listed name's suffix tells its form. Names
 * are asked for without a suffix and found by prefix. All getters open through rdbOpenDirFile, which alone decides
 * whether a file lies on the disk or in a container.
 *
 * The decomposition file .ddc tells for each subdomain which nodes it has, as positions in usrIds. It is read once
 * per run, and every position is tested here: whoever scatters by these lists need not look again.
 *
 * Caches belong to the run or to a set's record. One that is being filled is owned already but not marked as read,
 * so that a read that jumps out loses nothing and is not taken for done.
 *
 * In this file: finding, opening, the .ddc, hashes and connectivities of the run. */

#include "rdb/rdbInt.h"

#include <string.h>

/* ----------------------------------------------------------------------------------------------------- finding */

void rdbFormat(char *text, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vsnprintf(text, SYS_TEXT, format, args);
    va_end(args);
}

/* The first of n sorted names that begins with `name`, or null */
static const char *findIn(char *const *names, int n, const char *name, size_t len)
{
    int first = 0, last = n;
    while (first < last) {
        const int mid = first + (last - first) / 2;
        if (strncmp(names[mid], name, len) < 0) first = mid + 1;
        else last = mid;
    }
    return first < n && strncmp(names[first], name, len) == 0 ? names[first] : NULL;
}

/* `files` holds three sorted runs of names; what a walk from its start would meet first is the first hit of the
   earliest run that has one. */
int rdbFindFile(rdbHd *hd, const char *name)
{
    const size_t len = strlen(name);
    const int    runs[3] = { hd->nRunFiles, hd->nAuxFiles, hd->nUndefFiles };
    char *const *names = hd->files;
    for (int n : runs) {
        const char *found = findIn(names, n, name, len);
        if (found) return iopGetFileOpt(found);
        names += n;
    }
    return 0;
}

int rdbIsListed(const rdbHd *hd, const char *name)
{
    const size_t len = strlen(name);
    const int    runs[3] = { hd->nRunFiles, hd->nAuxFiles, hd->nUndefFiles };
    char *const *names = hd->files;
    for (int n : runs) {
        const char *found = findIn(names, n, name, len);         /* the whole name sorts before longer ones */
        if (found && !found[len]) return 1;
        names += n;
    }
    return 0;
}

/* Finds <base><part>.<ext> and writes its path, without the form's suffix */
static int findPart(rdbHd *hd, const char *base, char part, const char *ext, char *path)
{
    char name[SYS_TEXT];
    rdbFormat(name, "%s%c.%s", base, part, ext);
    const int opt = rdbFindFile(hd, name);
    if (opt) rdbFormat(path, "%s/%s%c.%s", hd->dir, base, part, ext);
    return opt;
}

int rdbFindFormFile(rdbHd *hd, const char *base, const char *ext, char *path, int *merged)
{
    *merged = 0;
    int opt = findPart(hd, base, '0', ext, path);
    if (opt) return opt;

    *merged = 1;
    opt = findPart(hd, base, 'x', ext, path);
    return opt ? opt : rdbFail(".%s file not found", ext);
}

static const char *baseName(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

/* The container that has a file of this name, or null */
static iopHd *containerOf(const rdbHd *hd, const char *path)
{
    return hd->fileDic ? (iopHd *) (intptr_t) dicGet(hd->fileDic, baseName(path)) : NULL;
}

int rdbDiskName(rdbHd *hd, const char *path, int opt, char *name)
{
    const iopHd *container = containerOf(hd, path);
    const int    form = container ? IOP_HDF_CONTAINER : opt & IOP_FORMS;
    if (container) iopDiskName(container, name, SYS_TEXT);
    else iopGetDiskName(path, form, name);
    return form;
}

int rdbLookAtFile(rdbHd *hd, const char *path, int opt, iopFileId *id)
{
    char name[SYS_TEXT];
    rdbDiskName(hd, path, opt, name);
    return iopLookAt(name, id);
}

int rdbLookAtRest(rdbHd *hd, const char *path, int opt, iopFileId *id)
{
    if (!rdbLookAtFile(hd, path, opt, id)) return 0;
    const double    rest = iopRest(id);
    const iopFileId before = *id;
    if (rest == 0) return 1;
    sysPause(rest);
    return rdbLookAtFile(hd, path, opt, id) && iopSameFile(id, &before);
}

int rdbFailChanged(rdbHd *hd, const char *path, int opt)
{
    char name[SYS_TEXT];
    rdbDiskName(hd, path, opt, name);
    return rdbFail("file <%s> changed while it was read", name);
}

/* ----------------------------------------------------------------------------------------------------- opening */

/* A container's file has the form that it has there, whatever its name or the run says of it. */
iopHd *rdbOpenDirFile(rdbHd *hd, const char *path, int opt)
{
    iopHd *container = containerOf(hd, path);
    return container ? iopOpenHdfFile(container, baseName(path), opt & ~IOP_FORMS) : iopOpenFile(path, opt);
}

iopHd *rdbOpenReadFile(rdbHd *hd, const char *path, int opt)
{
    return rdbOpenDirFile(hd, path, opt | IOP_READ);
}

iopHd *rdbOpenDiskFile(rdbHd *hd, const char *path, int opt)
{
    if (containerOf(hd, path) && iopCheckFile(path, opt)) return iopOpenFile(path, opt | IOP_READ);
    return rdbOpenReadFile(hd, path, opt);
}

/* The listed name that is found first may be a container's, while the file lies in the directory too, in some form. */
iopHd *rdbOpenListedFile(rdbHd *hd, const char *name)
{
    char path[SYS_TEXT];
    int  opt = rdbFindFile(hd, name);
    if (!opt) return NULL;
    rdbFormat(path, "%s/%s", hd->dir, name);
    for (int form = IOP_ASCII; containerOf(hd, path) && form < IOP_HDF_CONTAINER; form <<= 1)
        if (iopCheckFile(path, form)) return iopOpenFile(path, form | IOP_READ);
    return rdbOpenReadFile(hd, path, opt);
}

iopHd *rdbOpenFormFile(rdbHd *hd, const char *base, const char *ext, int *merged)
{
    char      path[SYS_TEXT];
    const int opt = rdbFindFormFile(hd, base, ext, path, merged);
    return opt ? rdbOpenReadFile(hd, path, opt) : NULL;
}

/* Of the run's option word only the form counts: it comes from a file, and other bits could delete what is read. */
iopHd *rdbOpenRunFile(rdbHd *hd, const char *name)
{
    char path[SYS_TEXT];
    rdbFormat(path, "%s/%s", hd->dir, name);
    return rdbOpenDirFile(hd, path, (hd->run->opt & IOP_FORMS) | IOP_READ | IOP_LONG_WAIT);
}

iopHd *rdbHoldFile(rdbHd *hd, iopHd *fh)
{
    rdbCloseHeld(hd);
    return hd->run->reading = fh;
}

void rdbCloseHeld(rdbHd *hd)
{
    iopHd *fh = hd->run->reading;
    hd->run->reading = NULL;
    if (fh) iopCloseFile(fh);
}

/* ----------------------------------------------------------------------------------------- the decomposition */

iopHd *rdbOpenDdc(rdbHd *hd, int *nElems)
{
    char name[SYS_TEXT];
    int  nSds;
    rdbFormat(name, "%s.%d.ddc", hd->problem, hd->run->runId);
    iopHd *fh = rdbOpenListedFile(hd, name);
    if (!fh) {
        rdbFail(".ddc file not found");
        return NULL;
    }
    rdbHoldFile(hd, fh);
    iopGetKeyInt(fh, "nSds", &nSds);
    if (nSds != hd->run->nSds) {
        rdbCloseHeld(hd);
        rdbFail("Inconsistent .ddc file");
        return NULL;
    }
    iopGetKeyInt(fh, "nElems", nElems);
    return fh;
}

/* One subdomain's list. Its owner is the run before the read can fail. */
static void readSd(iopHd *fh, runHd *run, int p)
{
    int sdId, n;
    iopGetKeyInt(fh, "sdId", &sdId);
    iopGetKeyInt(fh, "nNodes", &n);
    iopNeed(fh, n, 'i');
    run->sdNNodes[p] = n;
    run->sdNodes[p]  = memNew(int, n);
    iopGetKeyInts(fh, "nodes", 1, n, run->sdNodes[p]);
}

/* Drops the lists of a read that did not come to its end */
static void dropSds(runHd *run)
{
    for (int p = 0; run->sdNodes && p < run->nSds; ++p) memFree(run->sdNodes[p]);
    memFree(run->sdNodes);
    memFree(run->sdNNodes);
    memFree(run->sdFirst);
}

static void checkPositions(const runHd *run)
{
    for (int p = 0; p < run->nSds; ++p) {
        const int *nodes = run->sdNodes[p];
        for (int i = 0; i < run->sdNNodes[p]; ++i)
            if (nodes[i] < 0 || nodes[i] >= run->nNodes)
                sysFailIn("rdbReadDdc", "Invalid node position <%d> of subdomain <%d>; range should be [0,%d]",
                          nodes[i], p, run->nNodes - 1);
    }
}

/* The first of a list of consecutive nodes, or -1: the rows of such a part can be read as they lie, without a map */
static int firstOf(const int *nodes, int n)
{
    for (int i = 1; i < n; ++i)
        if (nodes[i] != nodes[0] + i) return -1;
    return n > 0 ? nodes[0] : 0;
}

/* 1 if every node of the mesh is in a list. Lists too short for that are told without a table of the nodes. */
static int listsCover(const runHd *run)
{
    int64_t listed = 0, reached = 0;
    for (int p = 0; p < run->nSds; ++p) listed += run->sdNNodes[p];
    if (listed < run->nNodes) return 0;

    unsigned char *seen = memNewZ(unsigned char, run->nNodes);
    for (int p = 0; p < run->nSds; ++p)
        for (int i = 0; i < run->sdNNodes[p]; ++i) {
            unsigned char *node = seen + run->sdNodes[p][i];
            reached += !*node;
            *node = 1;
        }
    memFree(seen);
    return reached == run->nNodes;
}

static int readDdc(rdbHd *hd)
{
    runHd *run = hd->run;
    int    nElems, nNodes;
    iopHd *fh = rdbOpenDdc(hd, &nElems);
    if (!fh) return 0;
    iopSkipInts(fh, "color");
    iopGetKeyInt(fh, "nNodes", &nNodes);
    if (nNodes != run->nNodes) {
        rdbCloseHeld(hd);
        return rdbFail("Inconsistent .ddc file");
    }
    iopSkipInts(fh, "usrIds");
    iopNeed(fh, 3 * (int64_t) run->nSds, 's');
    run->sdNNodes = memNewZ(int, run->nSds);
    run->sdNodes  = memNewZ(int *, run->nSds);
    for (int p = 0; p < run->nSds; ++p) readSd(fh, run, p);
    rdbCloseHeld(hd);
    checkPositions(run);
    run->sdFirst = memNew(int, run->nSds);
    for (int p = 0; p < run->nSds; ++p) run->sdFirst[p] = firstOf(run->sdNodes[p], run->sdNNodes[p]);
    run->sdCover = listsCover(run);
    run->sdRead  = 1;
    return 1;
}

/* A run without subdomains has no lists to read, and needs no file for that. */
int rdbReadDdc(rdbHd *hd)
{
    if (hd->run->sdRead || hd->run->nSds < 1) return 1;
    dropSds(hd->run);
    rdbEnter(hd);
    const int done = readDdc(hd);
    rdbLeave(hd);
    return done;
}

/* ---------------------------------------------------------------------------- user ids and connectivities */

/* n user ids on their way into a hash: an array that the run owns */
static int *newIds(runHd *run, int n)
{
    memFree(run->idBuf);
    return run->idBuf = memNew(int, n);
}

static int *hashOfIds(runHd *run, int n)
{
    int *hash = mtxNewInvHash(run->idBuf, n);
    memFree(run->idBuf);
    return hash;
}

int rdbGetUsrIdHash(rdbHd *hd, int **hash)
{
    runHd *run = hd->run;
    if (!run->usrIdHash) {
        int n;
        if (!rdbGetInt0(hd, "nNodes", &n)) return 0;
        if (!rdbGetInts0(hd, "usrIds", newIds(run, n), n, 1)) {
            memFree(run->idBuf);
            return 0;
        }
        run->usrIdHash = hashOfIds(run, n);
    }
    *hash = run->usrIdHash;
    return 1;
}

/* The volume's record, or null after rdbSetError */
static rdbVolSet *volume(rdbHd *hd, int volId)
{
    const rdbList *vols = &hd->run->vol;
    if (volId >= 0 && volId < vols->n) return (rdbVolSet *) vols->rec[volId];
    rdbFail("Invalid volId <%d>; range should be [0,%d]", volId, vols->n - 1);
    return NULL;
}

int rdbGetVolUsrIdHash(rdbHd *hd, int volId, int **hash)
{
    rdbVolSet *vol = volume(hd, volId);
    if (!vol) return 0;
    if (!vol->usrIdHash) {
        int n;
        if (!rdbGetInt1(hd, "nVolElems", &n, volId)) return 0;
        if (!rdbGetInts1(hd, "volUsrIds", newIds(hd->run, n), volId, n, 1)) {
            memFree(hd->run->idBuf);
            return 0;
        }
        vol->usrIdHash = hashOfIds(hd->run, n);
    }
    *hash = vol->usrIdHash;
    return 1;
}

int rdbGetVolCnn(rdbHd *hd, int volId, int **cnn)
{
    rdbVolSet *vol = volume(hd, volId);
    if (!vol) return 0;
    if (!vol->cnnRead) {
        int n;
        memFree(vol->cnn);
        if (!rdbGetInt1(hd, "nVolElems", &n, volId)) sysFail("%s", rdbGetError());
        vol->cnn = memNew(int, (int64_t) n * vol->nElemNodes);
        if (!rdbGetInts1(hd, "volCnn", vol->cnn, volId, vol->nElemNodes, n)) {
            memFree(vol->cnn);
            sysFail("%s", rdbGetError());
        }
        vol->cnnRead = 1;
    }
    *cnn = vol->cnn;
    return 1;
}
