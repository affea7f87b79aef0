/* rdbDirs.cpp: directions at the nodes of a surface set: normals, and along the set's edge.
 *
 * They are computed when they are asked for, from the coordinates and the set's surfaces as their elements see them:
 * each surface gives a vector to each of its nodes, and the vectors of a node add up. Surfaces go through the kernels
 * in batches, so that the buffers stay small and no kernel is called for a single surface.
 *
 * Where the edge is shows without a list of edges. Round each surface, every node counts up by its successor and down
 * by its predecessor; inside the set each neighbour comes once as the one and once as the other, so that the sum is 0.
 * A node at which the sums of an edge happen to cancel counts as inside: that is part of the method. */

#include "rdb/rdbInt.h"

#include <math.h>

#include "mtx/fMtx.h"

enum { BATCH = 128, MAX_NODES = 6 };     /* surfaces of a batch, nodes of a surface */

typedef void (*dirKernel)(const double *crd, double *dir, int tplType, int nBlock);

/* The work arrays are the run's: a failure that jumps out of here loses nothing. */
void rdbDropDirs(runHd *run)
{
    rdbDirs *dirs = &run->dirs;
    memFree(dirs->crd);
    memFree(dirs->sums);
    memFree(dirs->nodes);
    memFree(dirs->cnn);
    memFree(dirs->turns);
}

/* User ids to positions in the mesh, in place */
static void toPositions(const int *hash, int nNodes, int *ids, int64_t n)
{
    for (int64_t i = 0; i < n; ++i) {
        const int position = mtxInvHash(hash, nNodes, ids[i]);
        if (position < 0 || position >= nNodes) sysFailIn("mtxInvHash", "Key <%d> not found", ids[i]);
        ids[i] = position;
    }
}

/* The set's nodes, their coordinates and its surfaces; 0 after rdbSetError */
static int getInput(rdbHd *hd, const char *key, const char *label, int fam, int i)
{
    runHd     *run = hd->run;
    rdbDirs   *dirs = &run->dirs;
    rdbSrfSet *set = (rdbSrfSet *) run->srf[fam].rec[i];
    int *hash;
    if (!rdbRowsFit(hd, set->file, set->nSrfs, set->nSrfNodes + 2, 0, &set->fits)) return 0;
    if (!rdbGetInt0(hd, "nNodes", &dirs->nMesh) || !rdbGetUsrIdHash(hd, &hash)) return 0;
    dirs->crd = memNew(double, 3 * (int64_t) dirs->nMesh);
    if (!rdbGetReals0(hd, "crd", dirs->crd, 3, dirs->nMesh) || !rdbNSrfNodes(hd, key, fam, i, &dirs->nNodes)) return 0;
    dirs->nodes = memNew(int, dirs->nNodes);
    if (!rdbSrfFams[fam].nodes(hd, key, fam, i, dirs->nodes)) return 0;
    toPositions(hash, dirs->nMesh, dirs->nodes, dirs->nNodes);

    const int64_t n = (int64_t) set->nSrfs * set->nSrfNodes;
    dirs->cnn = memNew(int, n);
    if (!rdbGetSrfCnn(hd, label, fam, i, dirs->cnn)) return 0;
    toPositions(hash, dirs->nMesh, dirs->cnn, n);
    return 1;
}

/* The sum of the surfaces' vectors at each node of the mesh */
static void addUp(rdbDirs *dirs, const rdbSrfSet *set, dirKernel kernel)
{
    double    crd[BATCH * MAX_NODES * 3], dir[BATCH * MAX_NODES * 3];
    const int nDof = 3, nen = set->nSrfNodes;
    dirs->sums = memNewZ(double, 3 * (int64_t) dirs->nMesh);
    for (int first = 0; first < set->nSrfs; first += BATCH) {
        const int  n = set->nSrfs - first < BATCH ? set->nSrfs - first : BATCH;
        const int *cnn = dirs->cnn + (int64_t) first * nen;
        fMtxGatherN(cnn, dirs->crd, crd, &n, &nDof, &nen);
        kernel(crd, dir, set->type, n);
        fMtxScatterAdd(cnn, dirs->sums, dir, &n, &nDof, &nen);
    }
}

/* Counts the turns at each node: not 0 where the set has an edge */
static void countTurns(rdbDirs *dirs, const rdbSrfSet *set)
{
    const int *round;
    const int  nen = tplSrfRound(set->type, &round);
    unsigned  *turns = (unsigned *) (dirs->turns = memNewZ(int, dirs->nMesh));     /* sums may wrap, both ways alike */
    for (int s = 0; s < set->nSrfs; ++s) {
        const int *cnn = dirs->cnn + (int64_t) s * nen;
        for (int k = 0; k < nen; ++k)
            turns[cnn[round[k]]] += (unsigned) cnn[round[(k + 1) % nen]] - (unsigned) cnn[round[(k + nen - 1) % nen]];
    }
}

/* A zero vector has no direction and stays zero */
static void putUnit(const double *v, double *unit)
{
    const double length = sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    for (int c = 0; c < 3; ++c) unit[c] = length == 0.0 ? 0.0 : v[c] / length;
}

enum { SUMS, UNITS, EDGES };

static void answer(const rdbDirs *dirs, int what, double *dest)
{
    for (int i = 0; i < dirs->nNodes; ++i, dest += 3) {
        const double *sum = dirs->sums + 3 * (int64_t) dirs->nodes[i];
        if (what == SUMS) sysCopyReals(sum, dest, 3);
        else if (what == UNITS || dirs->turns[dirs->nodes[i]]) putUnit(sum, dest);
        else sysZeroReals(dest, 3);
    }
}

static int getDirs(rdbHd *hd, const char *key, const char *label, int fam, int i, int what, void *data)
{
    runHd           *run = hd->run;
    const rdbSrfSet *set = (const rdbSrfSet *) run->srf[fam].rec[i];
    rdbDropDirs(run);
    const int done = getInput(hd, key, label, fam, i);
    if (done) {
        addUp(&run->dirs, set, what == EDGES ? tplNodalEdgeDirType : tplNodalDirType);
        if (what == EDGES) countTurns(&run->dirs, set);
        answer(&run->dirs, what, (double *) data);
    }
    rdbDropDirs(run);
    return done;
}

extern "C" {

#define DIRS(name, fam, KEY, what) \
    RDB_GETTER(rdb_##fam##name) { return getDirs(hd, key, #fam "BndCnn", RDB_##KEY, i1, what, data); }
DIRS(NodalNormDirsN, osf, OSF, SUMS)
DIRS(NodalNormDirs,  osf, OSF, UNITS)
DIRS(NodalEdgeDirs,  osf, OSF, EDGES)
DIRS(NodalNormDirs,  cbc, CBC, UNITS)
DIRS(NodalEdgeDirs,  cbc, CBC, EDGES)
DIRS(NodalNormDirs,  dbc, DBC, UNITS)
DIRS(NodalEdgeDirs,  dbc, DBC, EDGES)
DIRS(NodalNormDirs,  sfs, SFS, UNITS)
DIRS(NodalEdgeDirs,  sfs, SFS, EDGES)

}
