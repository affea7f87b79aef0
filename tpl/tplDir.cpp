/* tplDir.cpp: the share of each node in the area vectors of surfaces and faces, and directions across their sides.
 *
 * A surface type is one row: the triangles that it is made of, with the nodes among which each one's area vector is
 * shared out evenly, and its nodes on the way round. An element is its faces, as its topology has them. */

#include "tpl/tpl.h"

#include <math.h>
#include <stddef.h>

#include "base/sys.h"

/* ------------------------------------------------- surfaces ----------------------------------------------- */

struct triangle {
    int corners[3];
    int nTo, to[4];
};

static const triangle triangles3[] = { { { 0, 1, 2 }, 3, { 0, 1, 2 } } };
/* both halves to all corners: the result is the same for either diagonal */
static const triangle triangles4[] = { { { 0, 1, 2 }, 4, { 0, 1, 2, 3 } },
                                       { { 0, 2, 3 }, 4, { 0, 1, 2, 3 } } };
/* the exact integrals of quadratic shape functions would leave nothing for the corners */
static const triangle triangles6[] = { { { 0, 3, 5 }, 3, { 0, 3, 5 } },
                                       { { 3, 1, 4 }, 3, { 3, 1, 4 } },
                                       { { 5, 4, 2 }, 3, { 5, 4, 2 } },
                                       { { 3, 4, 5 }, 3, { 3, 4, 5 } } };

static const struct surface {
    int             srfType, nNodes, nTriangles;
    const triangle *triangles;
    int             round[6];
} surfaces[] = {
    { 1,  3, 1, triangles3, { 0, 1, 2 } },
    { 2,  4, 2, triangles4, { 0, 1, 2, 3 } },
    { 15, 6, 4, triangles6, { 0, 3, 1, 4, 2, 5 } },
};

static const surface *findSurface(int srfType)
{
    for (const surface &srf : surfaces)
        if (srf.srfType == srfType) return &srf;
    return nullptr;
}

int tplSrfRound(int srfType, const int **round)
{
    const surface *srf = findSurface(srfType);
    if (srf && round) *round = srf->round;
    return srf ? srf->nNodes : 0;
}

/* ------------------------------------------------ directions ---------------------------------------------- */

static const double *component(const double *block, int node, int c, ptrdiff_t n)
{
    return block + (3 * node + c) * n;
}

/* Adds a triangle's area vector to its nodes; nodes are those of the surface in the block. */
static void addTriangle(const double *crd, double *dir, const triangle &tri, const int *nodes, ptrdiff_t n)
{
    const int a = nodes[tri.corners[0]], b = nodes[tri.corners[1]], c = nodes[tri.corners[2]];
    const double shares = 2 * tri.nTo;                          /* the cross product is twice the area vector */
    for (int i = 0; i < 3; ++i) {
        const int u = (i + 1) % 3, v = (i + 2) % 3;
        const double *au = component(crd, a, u, n), *bu = component(crd, b, u, n), *cu = component(crd, c, u, n);
        const double *av = component(crd, a, v, n), *bv = component(crd, b, v, n), *cv = component(crd, c, v, n);
        for (int k = 0; k < tri.nTo; ++k) {
            double *__restrict to = dir + (3 * nodes[tri.to[k]] + i) * n;
            for (ptrdiff_t e = 0; e < n; ++e)
                to[e] += ((bu[e] - au[e]) * (cv[e] - av[e]) - (bv[e] - av[e]) * (cu[e] - au[e])) / shares;
        }
    }
}

static void addSurface(const double *crd, double *dir, const surface *srf, const int *nodes, ptrdiff_t n)
{
    for (int i = 0; i < srf->nTriangles; ++i) addTriangle(crd, dir, srf->triangles[i], nodes, n);
}

static void setZero(double *dir, int nNodes, ptrdiff_t n)
{
    for (ptrdiff_t i = 0; i < 3 * nNodes * n; ++i) dir[i] = 0.0;
}

static bool isElement(int tplType)
{
    return (tplType >= 3 && tplType <= 6) || tplType == 16 || tplType == 28;
}

void tplNodalDirType(const double *crd, double *dir, int tplType, int nBlock)
{
    static const int all[] = { 0, 1, 2, 3, 4, 5 };
    const surface *srf = findSurface(tplType);
    if (srf) {
        setZero(dir, srf->nNodes, nBlock);
        addSurface(crd, dir, srf, all, nBlock);
    } else if (isElement(tplType)) {
        const tplRec *tpl = tplNew(tplType, 1);
        setZero(dir, tpl->nen, nBlock);
        for (int i = 0; i < tpl->nSrfs; ++i)
            addSurface(crd, dir, findSurface(tpl->srfTbl[i].srfType), tpl->srfTbl[i].srfNodes, nBlock);
    } else {
        sysFail("not implemented for tplType <%d>", tplType);
    }
}

/* --------------------------------------------- edge directions -------------------------------------------- */

static void cross(const double *u, const double *v, double *w)
{
    for (int i = 0; i < 3; ++i) w[i] = u[(i + 1) % 3] * v[(i + 2) % 3] - u[(i + 2) % 3] * v[(i + 1) % 3];
}

/* The vector from one node of element e to another. */
static void between(const double *crd, int from, int to, ptrdiff_t n, ptrdiff_t e, double *v)
{
    for (int i = 0; i < 3; ++i) v[i] = component(crd, to, i, n)[e] - component(crd, from, i, n)[e];
}

/* The normal of element e with half of length 1: zero without an area. */
static void halfNormal(const double *crd, const surface *srf, ptrdiff_t n, ptrdiff_t e, double *m)
{
    double sum[3] = {};
    for (int k = 1; k + 1 < srf->nNodes; ++k) {                 /* the fan of triangles from node 0 */
        double u[3], v[3], w[3];
        between(crd, 0, srf->round[k], n, e, u);
        between(crd, 0, srf->round[k + 1], n, e, v);
        cross(u, v, w);
        for (int i = 0; i < 3; ++i) sum[i] += w[i];
    }
    const double length = sqrt(sum[0] * sum[0] + sum[1] * sum[1] + sum[2] * sum[2]);
    for (int i = 0; i < 3; ++i) m[i] = length == 0.0 ? 0.0 : 0.5 / length * sum[i];
}

void tplNodalEdgeDirType(const double *crd, double *dir, int tplType, int nBlock)
{
    const surface *srf = findSurface(tplType);
    if (!srf) sysFail("not implemented for tplType <%d>", tplType);
    const ptrdiff_t n = nBlock;
    for (ptrdiff_t e = 0; e < n; ++e) {
        double m[3];
        halfNormal(crd, srf, n, e, m);
        for (int k = 0; k < srf->nNodes; ++k) {
            const int from = srf->round[k], to = srf->round[(k + 1) % srf->nNodes];
            double side[3], across[3];
            between(crd, from, to, n, e, side);
            cross(side, m, across);
            for (int i = 0; i < 3; ++i) dir[(3 * from + i) * n + e] = across[i];
        }
    }
}
