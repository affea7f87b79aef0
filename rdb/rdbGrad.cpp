/* rdbGrad.cpp: nodal arrays that are computed from those in the output files: gradients, and the auxiliary list of
 * nodal volume, strain rate, velocity magnitude and vorticity.
 *
 * A gradient is taken in the elements, at their quadrature points, and brought to the nodes by a lumped projection:
 * each point adds its gradient to the element's nodes, weighted by the node's shape function and the point's weight,
 * and each node's sum is divided by its weights. The order of these additions is part of the result, to the last bit: element
 * group, volume, element, point, node, component. Elements go through the kernels in blocks, which changes no result
 * since the kernels round each element by itself; the additions are then made element by element.
 *
 * In this file: walking the elements, the projection, what is projected, the auxiliary list, the getters. */

#include "rdb/rdbInt.h"

#include <limits.h>
#include <math.h>
#include <string.h>

#include <type_traits>

#include "mtx/fMtx.h"
#include "tpl/fTpl3.h"

/* ------------------------------------------------------------------------------------------ walking the elements */

enum { BLOCK = 32, MAX_NEN = 10 };       /* elements of a block, nodes of an element */

/* Elements of one volume, all in one block: positions of their nodes in the mesh, nen per element */
typedef struct elemBlock {
    const rdbElmSet *elm;
    const rdbVolSet *vol;
    int              n, nen;
    int              nodes[BLOCK * MAX_NEN];
} elemBlock;

typedef void (*blockVisitor)(rdbHd *hd, const elemBlock *block);

/* The work arrays are the run's: a failure that jumps out of here loses nothing. */
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

/* Fills the block with elements first to first + n - 1 of a volume: 0 if one has a node that the mesh has not */
static int fillBlock(elemBlock *block, const int *hash, int nNodes, int volId, const int *cnn, int first, int n)
{
    const int64_t from = (int64_t) first * block->nen;
    block->n = n;
    for (int i = 0; i < n * block->nen; ++i) {
        int       missing;
        const int position = mtxIfInvHash(hash, nNodes, cnn[from + i], &missing);
        if (missing || position < 0 || position >= nNodes)
            return rdbFail("Invalid element definition <%d> <%d>", volId, (int) (from + i));
        block->nodes[i] = position;
    }
    return 1;
}

static int walkVolume(rdbHd *hd, const int *hash, int nNodes, const rdbElmSet *elm, int volId, int blockSize,
                      blockVisitor visit)
{
    elemBlock block;
    int      *cnn;
    if (!rdbGetVolCnn(hd, volId, &cnn)) return 0;
    block.elm = elm;
    block.vol = (const rdbVolSet *) hd->run->vol.rec[volId];
    block.nen = block.vol->nElemNodes;
    if (block.nen < 1 || block.nen > MAX_NEN)
        return rdbFail("Inconsistent nElemNodes <%d> vs <%d>", block.nen, MAX_NEN);
    for (int first = 0; first < block.vol->nElems; first += blockSize) {
        const int left = block.vol->nElems - first;
        if (!fillBlock(&block, hash, nNodes, volId, cnn, first, left < blockSize ? left : blockSize)) return 0;
        visit(hd, &block);
    }
    return 1;
}

/* All elements of the groups that `wanted`, or all groups if it is null, in the order of groups and volumes */
static int walkElements(rdbHd *hd, int blockSize, int (*wanted)(const rdbElmSet *), blockVisitor visit)
{
    runHd *run = hd->run;
    int   *hash, nNodes;
    if (!rdbGetInt0(hd, "nNodes", &nNodes) || !rdbGetUsrIdHash(hd, &hash)) return 0;
    for (int i = 0; i < run->elm.n; ++i) {
        const rdbElmSet *elm = (const rdbElmSet *) run->elm.rec[i];
        if (wanted && !wanted(elm)) continue;
        for (int k = 0; k < elm->nVols && elm->volIds; ++k)
            if (!walkVolume(hd, hash, nNodes, elm, elm->volIds[k], blockSize, visit)) return 0;
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

/* The object of the volume's elements; its nodes must be as many as the volume's */
static const tplRec *topologyOf(const elemBlock *block, const tplRec *tpl, int rule)
{
    if (!tpl) tpl = tplNew(block->vol->type, rule);
    if (tpl->nen != block->nen) sysFail("Inconsistent nElemNodes <%d> vs <%d>", block->nen, tpl->nen);
    return tpl;
}

/* Has a point the local gradients and the weight of the one before? So it is in tetrahedra: then it has its gradients
   in space, too. */
static int isLikeLast(const tplRec *tpl, int q)
{
    const int     size = 3 * tpl->nen;
    const double *shgl = tpl->shgl + (int64_t) q * size;
    return q > 0 && tpl->quadWgt[q] == tpl->quadWgt[q - 1] && memcmp(shgl, shgl - size, sizeof *shgl * (size_t) size) == 0;
}

/* Gradients of the shape functions in space and weights at point q, for all elements of a block. jacInv: the inverse
   jacobians, 9 per element. */
static void shapeAt(const elemBlock *block, const tplRec *tpl, int q, const double *crd, double *shg, double *detW,
                    double *jacInv)
{
    enum { SHELL = 4 };                  /* a medium */
    double        jac[9 * BLOCK];
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

/* to += row * w. All of a row is read before any of it is written, so that values go in pairs. */
template <int N> static inline void addRow(double *to, const double *row, double w)
{
    double sums[N];
    for (int k = 0; k < N; ++k) sums[k] = to[k] + row[k] * w;
    for (int k = 0; k < N; ++k) to[k] = sums[k];
}

static inline void addAnyRow(double *__restrict to, const double *__restrict row, double w, int width)
{
    for (int k = 0; k < width; ++k) to[k] += row[k] * w;
}

/* Adds what the points of a block have to its nodes: `points` holds width values and detW one for each point and, the
   element fastest, each element. WIDTH: the width if it is one that the compiler should know, else 0. */
template <int WIDTH>
static void projectRows(runHd *run, const elemBlock *block, const tplRec *tpl, int width, double *dest)
{
    const rdbGrad *work = &run->grad;
    const int      n = block->n, nen = block->nen;
    double         fixed[WIDTH + 1], *row = WIDTH ? fixed : work->row;
    if (WIDTH) width = WIDTH;
    for (int e = 0; e < n; ++e)
        for (int q = 0; q < tpl->nQuad; ++q) {
            const double *values = work->points + (int64_t) q * width * n + e, *shp = tpl->shp + (int64_t) q * nen;
            const double  detW = work->detW[(int64_t) q * n + e];
            for (int k = 0; k < width; ++k) row[k] = values[(int64_t) k * n];
            for (int a = 0; a < nen; ++a) {
                const int    node = block->nodes[e * nen + a];
                const double w = shp[a] * detW;
                work->weight[node] += w;
                if constexpr (WIDTH > 0) addRow<WIDTH>(dest + (int64_t) node * width, row, w);
                else addAnyRow(dest + (int64_t) node * width, row, w, width);
            }
        }
}

static void project(runHd *run, const elemBlock *block, const tplRec *tpl, int width, double *dest)
{
    switch (width) {
    case 1:  return projectRows<1>(run, block, tpl, width, dest);
    case 3:  return projectRows<3>(run, block, tpl, width, dest);
    case 9:  return projectRows<9>(run, block, tpl, width, dest);
    default: return projectRows<0>(run, block, tpl, width, dest);
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

/* Room for what the points of a block have, width values each, and for the elements' own values, dim per node. The
   points of an element are at most so many. */
enum { MAX_QUAD = 128 };

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

static void checkQuad(const tplRec *tpl)
{
    if (tpl->nQuad > MAX_QUAD) sysFail("too many points <%d> of topology <%d>", tpl->nQuad, tpl->tplType);
}

/* Projects what `visit` finds in the elements to dest, nNodes rows of width: 1, or 0 and the error text. dim: values
   per node that the visitor gathers from work->values. */
static int projectAll(rdbHd *hd, int width, int dim, int (*wanted)(const rdbElmSet *), blockVisitor visit, double *dest)
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
    if (!walkElements(hd, blockSize, wanted, visit)) return 0;
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
    rdbGrad      *work = &hd->run->grad;
    const tplRec *tpl = topologyOf(block, block->vol->tpl, 1);
    const int     n = block->n, nen = block->nen, width = 3 * work->dim, three = 3;
    double        crd[3 * MAX_NEN * BLOCK], shg[3 * MAX_NEN * BLOCK], jacInv[9 * BLOCK];
    checkQuad(tpl);
    fMtxGatherN(block->nodes, work->crd, crd, &n, &three, &nen);
    fMtxGatherN(block->nodes, work->values, work->elemValues, &n, &work->dim, &nen);
    for (int q = 0; q < tpl->nQuad; ++q) {
        double *detW = work->detW + (int64_t) q * n, *gradient = work->points + (int64_t) q * width * n;
        if (isLikeLast(tpl, q)) {
            memcpy(detW, detW - n, sizeof *detW * (size_t) n);
            memcpy(gradient, gradient - (int64_t) width * n, sizeof *gradient * (size_t) n * (size_t) width);
            continue;
        }
        shapeAt(block, tpl, q, crd, shg, detW, jacInv);
        fMtx3Grad(work->elemValues, shg, gradient, &n, &work->dim, &nen);
    }
    project(hd->run, block, tpl, width, work->dest);
}

/* dest: three directions for each component of the variable, the direction fastest */
static int getGradient(rdbHd *hd, int iVar, int iStep, double *dest)
{
    int dim;
    if (!readValues(hd, iVar, iStep, &dim)) return 0;
    if (dim < 1) return 1;
    return projectAll(hd, 3 * dim, dim, NULL, visitGradient, dest);
}

/* --------------------------------------------------------------------------------- what is projected: CFL number */

/* Media in which the flow is solved */
static int isFluid(const rdbElmSet *elm)
{
    return elm->medium == 1 || elm->medium == 8;
}

/* Half of the time increment times the size of the velocity in the elements' metric */
static void visitCfl(rdbHd *hd, const elemBlock *block)
{
    rdbGrad      *work = &hd->run->grad;
    const tplRec *tpl = topologyOf(block, block->vol->linTpl, 2);
    const int     n = block->n, nen = block->nen, three = 3;
    double        crd[3 * MAX_NEN * BLOCK], shg[3 * MAX_NEN * BLOCK], jac[9 * BLOCK], jacInv[9 * BLOCK];
    double        metric[6 * BLOCK], vel[3 * BLOCK];
    checkQuad(tpl);
    fMtxGatherN(block->nodes, work->crd, crd, &n, &three, &nen);
    fMtxGatherN(block->nodes, work->values, work->elemValues, &n, &three, &nen);
    for (int q = 0; q < tpl->nQuad; ++q) {
        const double *shp = tpl->shp + (int64_t) q * nen;
        double       *cfl = work->points + (int64_t) q * n;
        fTpl3Int(crd, tpl->quadWgt + q, shp, tpl->shgl + (int64_t) q * nen * 3, shg, work->detW + (int64_t) q * n, jac,
                 jacInv, &block->elm->tol, &n, &nen);
        fTpl3GijDown(jacInv, metric, &n, &tpl->tplType);
        fMtxValue3(work->elemValues, shp, vel, &n, &nen);
        for (int e = 0; e < n; ++e) {
            const double u = vel[e], v = vel[n + e], w = vel[2 * n + e], *g = metric + e;
            const double size = u * (g[0] * u + g[3 * n] * v + g[5 * n] * w) +
                                v * (g[3 * n] * u + g[n] * v + g[4 * n] * w) +
                                w * (g[5 * n] * u + g[4 * n] * v + g[2 * n] * w);
            cfl[e] = 0.5 * work->timeInc * sqrt(size);
        }
    }
    project(hd->run, block, tpl, 1, work->dest);
}

/* The increment of the time step at which an output step was written; step 0 is written before the first one */
static int findTimeInc(rdbHd *hd, int iStep, double *timeInc)
{
    int outStep, nSteps, step;
    if (!rdbGetInt1(hd, "outStep", &outStep, iStep) || !rdbGetInt0(hd, "nSteps", &nSteps)) return 0;
    const int wanted = outStep == 0 ? 1 : outStep;
    for (int i = 0; i < nSteps; ++i) {
        if (!rdbGetInt1(hd, "step", &step, i)) return 0;
        if (step == wanted) return rdbGetReal1(hd, "timeInc", timeInc, i);
    }
    return rdbFail("No matching time step found for output step <%d>", outStep);
}

static int getCfl(rdbHd *hd, int iStep, double *dest)
{
    int dim;
    if (!findTimeInc(hd, iStep, &hd->run->grad.timeInc) || !readValues(hd, 0, iStep, &dim)) return 0;
    if (dim != 3) return rdbFail("Inconsistent velocity of width <%d> vs <%d>", dim, 3);
    return projectAll(hd, 1, 3, isFluid, visitCfl, dest);
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

static int getVolume(rdbHd *hd, int iStep, double *dest)
{
    if (!readCrd(hd)) return 0;
    sysZeroReals(dest, hd->run->nNodes);
    hd->run->grad.dest = dest;
    return walkElements(hd, BLOCK, NULL, visitVolume);
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

/* One of the above at all nodes, of the first output variable, which is the velocity where the list has these */
static int fromVelocity(rdbHd *hd, int iStep, int isGradient, int width, void (*make)(const double *from, double *to),
                        double *dest)
{
    rdbGrad  *work = &hd->run->grad;
    const int nNodes = hd->run->nNodes;
    int       dim;
    if (!rdbGetInt1(hd, "outVarDim", &dim, 0)) return 0;
    if (dim != 3) return rdbFail("Inconsistent velocity of width <%d> vs <%d>", dim, 3);
    if (isGradient) {
        memFree(work->grad);
        work->grad = memNew(double, 9 * (int64_t) nNodes);
        if (!getGradient(hd, 0, iStep, work->grad)) return 0;
    } else if (!readValues(hd, 0, iStep, &dim)) {
        return 0;
    }
    for (int i = 0; i < nNodes; ++i)
        make(isGradient ? work->grad + 9 * (int64_t) i : work->values + 3 * (int64_t) i, dest + (int64_t) i * width);
    return 1;
}

static int getStrainRate(rdbHd *hd, int iStep, double *dest) { return fromVelocity(hd, iStep, 1, 1, strainRate, dest); }
static int getMagnitude (rdbHd *hd, int iStep, double *dest) { return fromVelocity(hd, iStep, 0, 1, magnitude, dest); }
static int getVorticity (rdbHd *hd, int iStep, double *dest) { return fromVelocity(hd, iStep, 1, 3, vorticity, dest); }

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

extern "C" {

/* The volume always; the others where the first output variable is the velocity, the first row of the table */
RDB_GETTER(rdb_nOutAuxVars)
{
    if (!rdbInitOut(hd)) return 0;
    const rdbOutInfo *info = hd->run->out[RDB_OUT_OUT];
    return rdbPutInt(data, info->nVars > 0 && info->varIds[0] == 0 ? N_LISTED : 1);
}

RDB_GETTER(rdb_outAuxVarName) { return rdbPutText(data, auxTable[i1].name); }
RDB_GETTER(rdb_outAuxVarDim)  { return rdbPutInt(data, auxTable[i1].dim); }
RDB_GETTER(rdb_outAuxValues)  { return rdbGetOutAux(hd, i1, i2, (double *) data); }

RDB_GETTER(rdb_outGradValues)
{
    rdbDropGrad(hd->run);
    const int done = getGradient(hd, i1, i2, (double *) data);
    rdbDropGrad(hd->run);
    return done;
}

}
