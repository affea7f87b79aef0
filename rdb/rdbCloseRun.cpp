/* rdbCloseRun.cpp: the end of an open run.
 *
 * Everything that a run owns hangs from its record, and is released here; topology objects are not the run's. The
 * record may be half built, or hold an open file, because a failure jumped out of whoever was at work: null pointers
 * and empty lists are passed over. */

#include "rdb/rdbInt.h"

static void freeVolSet(void *rec)
{
    rdbVolSet *set = (rdbVolSet *) rec;
    memFree(set->name);
    memFree(set->file);
    memFree(set->usrIdHash);
    memFree(set->cnn);
    memFree(set->nodes);
}

static void freeTexts(char **texts, int n)
{
    memFreeF(texts, 0, n, __FILE__, __LINE__);
}

static void freeElmSet(void *rec)
{
    rdbElmSet *set = (rdbElmSet *) rec;
    memFree(set->name);
    memFree(set->file);
    memFree(set->volIds);
    freeTexts(set->volNames, set->nVolNames);
}

/* A surface set made from a family's set shows that set's texts */
static void freeSrfSet(void *rec)
{
    rdbSrfSet *set = (rdbSrfSet *) rec;
    if (!set->sharesTexts) {
        memFree(set->name);
        memFree(set->file);
    }
    memFree(set->volName);
    memFree(set->sfsIds);
    freeTexts(set->sfsNames, set->nSfsNames);
    rdbDropOutInfo(&set->out);
    rdbDropSetMap(&set->map);
}

static void freeNodeSet(void *rec)
{
    rdbNodeSet *set = (rdbNodeSet *) rec;
    memFree(set->name);
    memFree(set->file);
}

static void freeRecSet(void *rec)
{
    rdbRecSet *set = (rdbRecSet *) rec;
    memFree(set->name);
    memFree(set->file);
}

static void freeRff(void *rec)
{
    memFree(((rdbRff *) rec)->name);
}

static void freeOaa(void *rec)
{
    rdbOaa *set = (rdbOaa *) rec;
    memFree(set->name);
    memFree(set->file);
    memFree(set->dirFile);
}

static void freeOutMesh(void *rec)
{
    rdbOutMesh *set = (rdbOutMesh *) rec;
    memFree(set->name);
    memFree(set->file);
    memFree(set->file2);
}

static void freeOel(void *rec)
{
    rdbOel *set = (rdbOel *) rec;
    memFree(set->name);
    freeTexts(set->files, set->files ? set->nVols : 0);
    memFree(set->nElems);
    memFree(set->nNodes);
    memFree(set->parentIds);
    memFree(set->types);
    memFree(set->nElemNodes);
    memFree(set->media);
    memFree(set->volIds);
    memFree(set->fits);
}

static void freeList(rdbList *list, void (*freeRec)(void *rec))
{
    for (int i = 0; i < list->n; ++i) {
        freeRec(list->rec[i]);
        memFree(list->rec[i]);
    }
    memFree(list->rec);
    memFree(list->byName);
    *list = {};
}

static void freeLists(runHd *run)
{
    for (rdbList &list : run->srf) freeList(&list, freeSrfSet);
    freeList(&run->vol, freeVolSet);
    freeList(&run->elm, freeElmSet);
    freeList(&run->tmf, freeRecSet);
    freeList(&run->rff, freeRff);
    freeList(&run->mmo, freeRecSet);
    freeList(&run->fbd, freeRecSet);
    freeList(&run->dop, freeRecSet);
    freeList(&run->oth, freeRecSet);
    freeList(&run->nbc, freeNodeSet);
    freeList(&run->pbc, freeNodeSet);
    freeList(&run->oaa, freeOaa);
    freeList(&run->osa, freeOutMesh);
    freeList(&run->oea, freeOutMesh);
    freeList(&run->ofs, freeOutMesh);
    freeList(&run->ovs, freeOutMesh);
    freeList(&run->ove, freeOutMesh);
    freeList(&run->oel, freeOel);
    if (run->zbc) freeNodeSet(run->zbc);
    memFree(run->zbc);
}

static void freeFacts(runHd *run)
{
    memFree(run->date);
    memFree(run->dir);
    memFree(run->version);
    memFree(run->title);
    memFree(run->subTitle);
    memFree(run->baseUnit);
    memFree(run->radFile);
    memFree(run->rstFromDir);
    memFree(run->rstFromProblem);
    memFree(run->crdFile);
    memFree(run->initCrdFile);
    for (char *&name : run->speciesNames) memFree(name);
    freeTexts(run->fieldNames, run->nFieldNames);
    memFree(run->fieldKinds);
}

static void freeCaches(runHd *run)
{
    for (int p = 0; run->sdNodes && p < run->nSds; ++p) memFree(run->sdNodes[p]);
    memFree(run->sdNodes);
    memFree(run->sdNNodes);
    memFree(run->sdFirst);
    memFree(run->usrIdHash);
    memFree(run->idBuf);
    memFree(run->srfBuf);
    memFree(run->cnnBuf);
    rdbDropDirs(run);
    rdbDropGrad(run);
    rdbDropExt(run);
    rdbDropExtInfo(run);
    rdbDropLog(&run->log);
    rdbDropLog(&run->logNew);
    for (rdbOutInfo *&info : run->out) rdbDropOutInfo(&info);
    for (rdbOutInfo *&info : run->setOut) rdbDropOutInfo(&info);
    rdbDropSetMap(&run->setMapNew);
    rdbDropReading(run);
}

int rdbCloseRun(rdbHd *hd)
{
    if (!hd) return rdbFail("rdb not initialized");
    hd->runId = -1;
    runHd *run = hd->run;
    if (!run) return 1;

    rdbCloseHeld(hd);
    if (run->cli) memFree(run->cli->line);
    memFree(run->cli);
    freeCaches(run);
    freeLists(run);
    freeFacts(run);
    memFree(hd->run);
    return 1;
}
