/* rdbGrad.cpp: nodal arrays that are computed from those in the output files: gradients, and the auxiliary list of
 * nodal volume, strain rate, velocity magnitude and vorticity.
 *
 * A gradient is taken in the elements, at their quadrature points, and brought to the nodes by a lumped projection:
 * each point adds its gradient to the element's nodes, weighted by the node's shape function and the point's weight,
 * and each node's sum is divided by its weights. The order of these additions is part of the result, to the last bit:
 * element set, volume, element, point, node, component. Elements go through the kernels in blocks, which changes no
 * result since the kernels round each element by itself; the additions are then made element by element.
 *
 * In this file: walking the elements, the projection, what is projected, the auxiliary list, the getters. */

#include "rdb/rdbInt.h"

#include <math.h>
#include <string.h>

#include "mtx/fMtx.h"
#include "tpl/fTpl3.h"

/* ------------------------------------------------------------------------------------------ walking the elements */

enum { BLOCK = 32, MAX_NEN = 10, MAX_QUAD = 128 };   /* elements of a block; nodes and points of an element */

/* Elements of one volume, all in one block */
typedef struct elemBlock {
    const rdbElmSet *elm;
    const rdbVolSet *vol;
    const tplRec    *tpl;
    int              n, nen;
    const int       *nodes;              /* positions in the mesh, nen per element */
} elemBlock;

typedef struct elemWalk {
    tplRec *rdbVolSet::*tpl;             /* the volume's own points, or the reduced ones */
    int               (*wanted)(const rdbElmSet *elm);   /* null: all sets are           */
    void              (*visit)(rdbHd *hd, const elemBlock *block);
} elemWalk;

/* The work arrays are the run's: a failure that jumps out of here loses nothing. The gradient that is kept for the next
   request is not among them: it belongs to the step's files. */
void rdbDropGrad(runHd *run)
{
    rdbGrad *work = &run->grad;
    memFree(work->crd);
    memFree(work->values);
    memFree(work->grad);
    memFree(work->weight);
    memFree(work->detW);
    memFree(work->points);
    memFree(work->elemValues);
    memFree(work->row);
}

/* Positions in the mesh of n nodes, given by user ids: 0 if the mesh has not one of them */
static int findNodes(const int *hash, int nNodes, int volId, const int *cnn, int64_t n, int *nodes)
{
    for (int64_t i = 0; i < n; ++i) {
        int missing;
        nodes[i] = mtxIfInvHash(hash, nNodes, cnn[i], &missing);
        if (missing || nodes[i] < 0 || nodes[i] >= nNodes)
            return rdbFail("Invalid element definition <%d> <%d>", volId, (int) i);
    }
    return 1;
}

/* The nodes of a volume's elements, nen for each: looked up once, and kept beside the connectivity. From where they
   are allocated on nothing jumps: the volume has all of them or none. */
static int getVolNodes(rdbHd *hd, int volId, const int **nodes)
{
    int *cnn, *hash, nNodes;
    if (!rdbGetVolCnn(hd, volId, &cnn) || !rdbGetInt0(hd, "nNodes", &nNodes) || !rdbGetUsrIdHash(hd, &hash)) return 0;
    rdbVolSet    *vol = (rdbVolSet *) hd->run->vol.rec[volId];
    const int64_t n = (int64_t) vol->nElems * vol->nElemNodes;
    if (!vol->nodes) {
        vol->nodes = memNew(int, n);
        if (!findNodes(hash, nNodes, volId, cnn, n, vol->nodes)) {
            memFree(vol->nodes);
            return 0;
        }
    }
    *nodes = vol->nodes;
    return 1;
}

static int walkVolume(rdbHd *hd, const elemWalk *walk, int blockSize, const rdbElmSet *elm, int volId)
{
    const int *nodes;
    if (!getVolNodes(hd, volId, &nodes)) return 0;
    const rdbVolSet *vol = (const rdbVolSet *) hd->run->vol.rec[volId];
    const tplRec    *tpl = vol->*walk->tpl;
    const int        nen = vol->nElemNodes;
    if (nen != tpl->nen) return rdbFail("Inconsistent nElemNodes <%d> vs <%d>", nen, tpl->nen);
    if (nen > MAX_NEN || tpl->nQuad > MAX_QUAD)
        return rdbFail("topology <%d> has too many nodes <%d> or points <%d>", tpl->tplType, nen, tpl->nQuad);
    for (int first = 0; first < vol->nElems; first += blockSize) {
        const int       left = vol->nElems - first;
        const elemBlock block = { elm, vol, tpl, left < blockSize ? left : blockSize, nen,
                                  nodes + (int64_t) first * nen };
        walk->visit(hd, &block);
    }
    return 1;
}

/* All elements of the sets that are wanted, in the order of sets and their volumes */
static int walkElements(rdbHd *hd, const elemWalk *walk, int blockSize)
{
    const runHd *run = hd->run;
    for (int i = 0; i < run->elm.n; ++i) {
        const rdbElmSet *elm = (const rdbElmSet *) run->elm.rec[i];
        if (walk->wanted && !walk->wanted(elm)) continue;
        for (int k = 0; k < elm->nVols; ++k)
            if (!walkVolume(hd, walk, blockSize, elm, elm->volIds[k])) return 0;
    }
    return 1;
}

static int readCrd(rdbHd *hd)
{
    int nNodes;
    if (!rdbGetInt0(hd, "nNodes", &nNodes)) return 0;
    memFree(hd->run->grad.crd);
    hd->run->grad.crd = memNew(double, 3 * (int64_t) nNodes);
    return rdbGetReals0(hd, "crd", hd->run->grad.crd, 3, nNodes);
}

/* ------------------------------------------------------------------------------------------------ the projection */

/* Has a point the local gradients and the weight of the one before? So it is in tetrahedra: then it has its gradients
   in space, too. */
static int isLikeLast(const tplRec *tpl, int q)
{
    const int     size = 3 * tpl->nen;
    const double *shgl = tpl->shgl + (int64_t) q * size;
    return q > 0 && tpl->quadWgt[q] == tpl->quadWgt[q - 1] &&
           memcmp(shgl, shgl - size, sizeof *shgl * (size_t) size) == 0;
}

/* Gradients of the shape functions in space and weights at point q, for all elements of a block. jacInv: the inverse
   jacobians, 9 per element. */
static void shapeAt(const elemBlock *block, int q, const double *crd, double *shg, double *detW, double *jacInv)
{
    enum { SHELL = 4 };                  /* a medium */
    double        jac[9 * BLOCK];
    const tplRec *tpl = block->tpl;
    const int     n = block->n, nen = block->nen;
    const double *shp = tpl->shp + (int64_t) q * nen, *shgl = tpl->shgl + (int64_t) q * nen * 3;
    const double *wgt = tpl->quadWgt + q;
    if (block->elm->medium == SHELL) {
        const double thick = block->elm->shlThick > 0.0 ? block->elm->shlThick : 1.0;
        fTpl3IntShl(crd, &thick, wgt, shp, shgl, shg, detW, jac, jacInv, &n, &nen);
    } else {
        fTpl3Int(crd, wgt, shp, shgl, shg, detW, jac, jacInv, &block->elm->tol, &n, &nen);
    }
}

/* to += row * w. All of a row is read before any of it is written: so the compiler may take its values in pairs. */
template <int WIDTH> static inline void addRow(double *to, const double *row, double w)
{
    double sums[WIDTH];
    for (int k = 0; k < WIDTH; ++k) sums[k] = to[k] + row[k] * w;
    for (int k = 0; k < WIDTH; ++k) to[k] = sums[k];
}

/* Adds what the points of a block have to its nodes: `points` holds width values and detW one for each point and, the
   element fastest, each element. WIDTH is the width where the compiler is to know it, or 0. */
template <int WIDTH> static void projectRows(runHd *run, const elemBlock *block, int anyWidth)
{
    const rdbGrad *work = &run->grad;
    const tplRec  *tpl = block->tpl;
    const int      n = block->n, nen = block->nen, width = WIDTH ? WIDTH : anyWidth;
    double         fixed[WIDTH + 1], *row = WIDTH ? fixed : work->row;
    for (int e = 0; e < n; ++e)
        for (int q = 0; q < tpl->nQuad; ++q) {
            const double *values = work->points + (int64_t) q * width * n + e, *shp = tpl->shp + (int64_t) q * nen;
            const double  detW = work->detW[(int64_t) q * n + e];
            for (int k = 0; k < width; ++k) row[k] = values[(int64_t) k * n];
            for (int a = 0; a < nen; ++a) {
                const int    node = block->nodes[e * nen + a];
                const double w = shp[a] * detW;
                double      *to = work->dest + (int64_t) node * width;
                work->weight[node] += w;
                if constexpr (WIDTH > 0) addRow<WIDTH>(to, row, w);
                else for (int k = 0; k < width; ++k) to[k] += row[k] * w;
            }
        }
}

static void project(runHd *run, const elemBlock *block, int width)
{
    switch (width) {
    case 1:  return projectRows<1>(run, block, width);
    case 3:  return projectRows<3>(run, block, width);
    case 9:  return projectRows<9>(run, block, width);
    default: return projectRows<0>(run, block, width);
    }
}

/* A node that no element touches has no weight and gets zeros */
static void divideByWeight(const rdbGrad *work, int nNodes, int width, double *dest)
{
    for (int i = 0; i < nNodes; ++i) {
        const double factor = work->weight[i] != 0.0 ? 1.0 / work->weight[i] : 0.0;
        for (int k = 0; k < width; ++k) dest[(int64_t) i * width + k] *= factor;
    }
}

/* Room for what the points of a block have, width values each, and for the elements' own values, dim per node */
static void newPoints(rdbGrad *work, int width, int dim, int blockSize)
{
    memFree(work->detW);
    memFree(work->points);
    memFree(work->elemValues);
    memFree(work->row);
    work->row = memNew(double, width);
    work->detW = memNew(double, MAX_QUAD * blockSize);
    work->points = memNew(double, (int64_t) MAX_QUAD * blockSize * width);
    work->elemValues = memNew(double, (int64_t) MAX_NEN * blockSize * dim);
}

/* Projects what the walk finds in the elements to dest, nNodes rows of width: 1, or 0 and the error text. dim: values
   per node that it gathers from work->values. */
static int projectAll(rdbHd *hd, const elemWalk *walk, int width, int dim, double *dest)
{
    rdbGrad  *work = &hd->run->grad;
    const int blockSize = width <= 64 ? BLOCK : 1;      /* of wide rows an element alone fills the cache */
    int       nNodes;
    if (!rdbGetInt0(hd, "nNodes", &nNodes) || !readCrd(hd)) return 0;
    memFree(work->weight);
    work->weight = memNewZ(double, nNodes);
    newPoints(work, width, dim, blockSize);
    work->dim = dim;
    work->dest = dest;
    memset(dest, 0, sizeof *dest * (size_t) nNodes * (size_t) width);
    if (!walkElements(hd, walk, blockSize)) return 0;
    divideByWeight(work, nNodes, width, dest);
    return 1;
}

/* The values of an output variable, into an array of the run's */
static int readValues(rdbHd *hd, int iVar, int iStep, int *dim)
{
    rdbGrad *work = &hd->run->grad;
    int      nNodes;
    if (!rdbGetInt0(hd, "nNodes", &nNodes) || !rdbGetInt1(hd, "outVarDim", dim, iVar)) return 0;
    memFree(work->values);
    work->values = memNew(double, (int64_t) nNodes * *dim);
    return rdbGetReals2(hd, "outValues", work->values, iVar, iStep, *dim, nNodes);
}

/* ---------------------------------------------------------------------------------- what is projected: gradients */

static void visitGradient(rdbHd *hd, const elemBlock *block)
{
    rdbGrad   *work = &hd->run->grad;
    const int  n = block->n, nen = block->nen, width = 3 * work->dim;
    double     crd[3 * MAX_NEN * BLOCK], shg[3 * MAX_NEN * BLOCK], jacInv[9 * BLOCK];
    fMtxGather(block->nodes, work->crd, crd, &n, &nen);
    fMtxGatherN(block->nodes, work->values, work->elemValues, &n, &work->dim, &nen);
    for (int q = 0; q < block->tpl->nQuad; ++q) {
        double *detW = work->detW + (int64_t) q * n, *gradient = work->points + (int64_t) q * width * n;
        if (isLikeLast(block->tpl, q)) {
            memcpy(detW, detW - n, sizeof *detW * (size_t) n);
            memcpy(gradient, gradient - (int64_t) width * n, sizeof *gradient * (size_t) n * (size_t) width);
        } else {
            shapeAt(block, q, crd, shg, detW, jacInv);
            fMtx3Grad(work->elemValues, shg, gradient, &n, &work->dim, &nen);
        }
    }
    project(hd->run, block, width);
}

static const elemWalk gradients = { &rdbVolSet::tpl, NULL, visitGradient };

/* dest: three directions for each component of the variable, the direction fastest */
static int getGradient(rdbHd *hd, int iVar, int iStep, double *dest)
{
    int dim, width;
    if (!rdbGetInt1(hd, "outGradVarDim", &width, iVar) || !readValues(hd, iVar, iStep, &dim)) return 0;
    if (dim < 1) return 1;
    return projectAll(hd, &gradients, width, dim, dest);
}

/* The file of the coordinates; 0 if it cannot be said what it is */
static int lookAtCrd(rdbHd *hd, iopFileId *id)
{
    const char *name = hd->run->crdFile;
    return name && rdbLookAtFile(hd, name, iopGetFileOpt(name), id) && iopIsSettled(id);
}

/* That of the first output variable, of three components, at *grad: nNodes rows of 9. Clients ask for several arrays
   that are made of it. So the last one is kept while the files that it is made of stay as they are. */
static int getVelocityGradient(rdbHd *hd, int iStep, const double **grad)
{
    rdbGrad  *work = &hd->run->grad;
    iopFileId before, after;
    int       step;
    if (!rdbGetInt1(hd, "outStep", &step, iStep)) return 0;
    const int known = lookAtCrd(hd, &before);
    *grad = known && iopSameFile(&before, &work->crdFile) ? rdbKeptGrad(hd, &outOut, step) : NULL;
    if (*grad) return 1;

    memFree(work->grad);
    *grad = work->grad = memNew(double, 9 * (int64_t) hd->run->nNodes);
    if (!getGradient(hd, 0, iStep, work->grad)) return 0;
    if (!known || !lookAtCrd(hd, &after) || !iopSameFile(&before, &after)) return 1;
    work->crdFile = before;
    rdbKeepGrad(hd, &outOut, step, &work->grad);
    return 1;
}

/* --------------------------------------------------------------------------------- what is projected: CFL number */

/* Media in which the flow is solved */
static int isFluid(const rdbElmSet *elm)
{
    return elm->medium == 1 || elm->medium == 8;
}

/* The square of a velocity's size in a metric, whose entries are 11, 22, 33, 12, 23, 13, n apart */
static double squareOf(const double *vel, const double *g, int n)
{
    const double u = vel[0], v = vel[n], w = vel[2 * n];
    return u * (g[0] * u + g[3 * n] * v + g[5 * n] * w) + v * (g[3 * n] * u + g[n] * v + g[4 * n] * w) +
           w * (g[5 * n] * u + g[4 * n] * v + g[2 * n] * w);
}

/* Half of the time increment times the size of the velocity in the elements' metric */
static void visitCfl(rdbHd *hd, const elemBlock *block)
{
    rdbGrad      *work = &hd->run->grad;
    const tplRec *tpl = block->tpl;
    const int     n = block->n, nen = block->nen;
    double        crd[3 * MAX_NEN * BLOCK], shg[3 * MAX_NEN * BLOCK], jacInv[9 * BLOCK];
    double        metric[6 * BLOCK], vel[3 * BLOCK];
    fMtxGather(block->nodes, work->crd, crd, &n, &nen);
    fMtxGather(block->nodes, work->values, work->elemValues, &n, &nen);
    for (int q = 0; q < tpl->nQuad; ++q) {
        shapeAt(block, q, crd, shg, work->detW + (int64_t) q * n, jacInv);
        fTpl3GijDown(jacInv, metric, &n, &tpl->tplType);
        fMtxValue3(work->elemValues, tpl->shp + (int64_t) q * nen, vel, &n, &nen);
        for (int e = 0; e < n; ++e)
            work->points[(int64_t) q * n + e] = 0.5 * work->timeInc * sqrt(squareOf(vel + e, metric + e, n));
    }
    project(hd->run, block, 1);
}

static const elemWalk cflNumbers = { &rdbVolSet::linTpl, isFluid, visitCfl };

/* The increment of the time step at which an output step was written. Step 0 is written before the first one, which
   stands for it, in the failure too. */
static int findTimeInc(rdbHd *hd, int iStep, double *timeInc)
{
    int wanted, nSteps, step;
    if (!rdbGetInt1(hd, "outStep", &wanted, iStep) || !rdbGetInt0(hd, "nSteps", &nSteps)) return 0;
    if (wanted == 0) wanted = 1;
    for (int i = 0; i < nSteps; ++i) {
        if (!rdbGetInt1(hd, "step", &step, i)) return 0;
        if (step == wanted) return rdbGetReal1(hd, "timeInc", timeInc, i);
    }
    return rdbFail("No matching time step found for output step <%d>", wanted);
}

static int getCfl(rdbHd *hd, int iStep, double *dest)
{
    int dim;
    sysZeroReals(dest, hd->run->nNodes);
    if (!findTimeInc(hd, iStep, &hd->run->grad.timeInc) || !readValues(hd, 0, iStep, &dim)) return 0;
    if (dim != 3) return rdbFail("Inconsistent velocity of width <%d> vs <%d>", dim, 3);
    return projectAll(hd, &cflNumbers, 1, 3, dest);
}

/* -------------------------------------------------------------------------------------------- the auxiliary list */

/* No points here: the volume of an element in closed form, the same share of it for each of its nodes */
static void visitVolume(rdbHd *hd, const elemBlock *block)
{
    const rdbGrad *work = &hd->run->grad;
    for (int e = 0; e < block->n; ++e) {
        const int *nodes = block->nodes + e * block->nen;
        double     volume;
        fTpl3ElmVol(work->crd, nodes, &volume, &block->vol->type);
        for (int a = 0; a < block->nen; ++a) work->dest[nodes[a]] += volume / block->nen;
    }
}

static const elemWalk volumes = { &rdbVolSet::tpl, NULL, visitVolume };

static int getVolume(rdbHd *hd, int iStep, double *dest)
{
    if (!readCrd(hd)) return 0;
    sysZeroReals(dest, hd->run->nNodes);
    hd->run->grad.dest = dest;
    return walkElements(hd, &volumes, BLOCK);
}

/* What is made of a node's velocity (3) or its gradient g (9; 3c + k is d u_c / d x_k) */
static void strainRate(const double *g, double *to)
{
    to[0] = 2.0 * (g[0] * g[0] + g[4] * g[4] + g[8] * g[8]) + (g[1] + g[3]) * (g[1] + g[3]) +
            (g[2] + g[6]) * (g[2] + g[6]) + (g[5] + g[7]) * (g[5] + g[7]);
}

static void vorticity(const double *g, double *to)
{
    to[0] = g[7] - g[5];
    to[1] = g[2] - g[6];
    to[2] = g[3] - g[1];
}

static void magnitude(const double *u, double *to)
{
    to[0] = sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]);
}

static int getVelocity(rdbHd *hd, int iStep, const double **vel)
{
    int dim;
    const int done = readValues(hd, 0, iStep, &dim);
    *vel = hd->run->grad.values;
    return done;
}

/* One of the above at all nodes, of the first output variable, which is the velocity where the list has these: nTo
   values each, from the nFrom that `get` gets */
static int fromVelocity(rdbHd *hd, int iStep, int (*get)(rdbHd *hd, int iStep, const double **from), int nFrom,
                        void (*make)(const double *from, double *to), int nTo, double *dest)
{
    const double *from;
    int           dim;
    if (!rdbGetInt1(hd, "outVarDim", &dim, 0)) return 0;
    if (dim != 3) return rdbFail("Inconsistent velocity of width <%d> vs <%d>", dim, 3);
    if (!get(hd, iStep, &from)) return 0;
    for (int i = 0; i < hd->run->nNodes; ++i) make(from + (int64_t) i * nFrom, dest + (int64_t) i * nTo);
    return 1;
}

static int getStrainRate(rdbHd *hd, int iStep, double *dest)
{
    return fromVelocity(hd, iStep, getVelocityGradient, 9, strainRate, 1, dest);
}

static int getMagnitude(rdbHd *hd, int iStep, double *dest)
{
    return fromVelocity(hd, iStep, getVelocity, 3, magnitude, 1, dest);
}

static int getVorticity(rdbHd *hd, int iStep, double *dest)
{
    return fromVelocity(hd, iStep, getVelocityGradient, 9, vorticity, 3, dest);
}

/* The last one has no name: no list has it. */
static const struct {
    const char *name;
    int         dim;
    int       (*values)(rdbHd *hd, int iStep, double *dest);
} auxTable[] = {
    { "volume",                  1, getVolume     },
    { "strain_rate_invariant_2", 1, getStrainRate },
    { "velocity_magnitude",      1, getMagnitude  },
    { "vorticity",               3, getVorticity  },
    { NULL,                      1, getCfl        },
};

enum { N_AUX = sizeof auxTable / sizeof *auxTable, N_LISTED = N_AUX - 1 };

int rdbGetOutAux(rdbHd *hd, int aux, int iStep, double *dest)
{
    if (aux < 0 || aux >= N_AUX) sysFailIn("rdb_outAuxValues", "Invalid index <%d>", aux);
    rdbDropGrad(hd->run);
    const int done = auxTable[aux].values(hd, iStep, dest);
    rdbDropGrad(hd->run);
    return done;
}

/* --------------------------------------------------------------------------------------------------- the getters */

/* The velocity is the first row of the table */
static int isVelocity(rdbHd *hd, int iVar)
{
    const rdbOutInfo *info = hd->run->out[RDB_OUT_OUT];
    return info && iVar < info->nVars && info->varIds[iVar] == 0;
}

/* The velocity is the first of the list, if it is there */
static int getGradValues(rdbHd *hd, int iVar, int iStep, double *dest)
{
    const double *grad;
    if (!isVelocity(hd, iVar)) return getGradient(hd, iVar, iStep, dest);
    if (!getVelocityGradient(hd, iStep, &grad)) return 0;
    memcpy(dest, grad, 9 * sizeof *dest * (size_t) hd->run->nNodes);
    return 1;
}

extern "C" {

/* The volume always; the others where the first output variable is the velocity */
RDB_GETTER(rdb_nOutAuxVars)   { return rdbInitOut(hd) && rdbPutInt(data, isVelocity(hd, 0) ? N_LISTED : 1); }
RDB_GETTER(rdb_outAuxVarName) { return rdbPutText(data, auxTable[i1].name); }
RDB_GETTER(rdb_outAuxVarDim)  { return rdbPutInt(data, auxTable[i1].dim); }
RDB_GETTER(rdb_outAuxValues)  { return rdbGetOutAux(hd, i1, i2, (double *) data); }

RDB_GETTER(rdb_outGradValues)
{
    rdbDropGrad(hd->run);
    const int done = getGradValues(hd, i1, i2, (double *) data);
    rdbDropGrad(hd->run);
    return done;
}

}
