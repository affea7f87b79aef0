/* fTpl3.cpp: gradients, weights, normals and metric of a block of elements at one quadrature point.
 *
 * Every routine is a row of loops over the block, with the entries of a matrix in nine arrays. Reading a run works with
 * one element at a time; for that the size of the block is known to the compiler, and the loops are gone.
 *
 * In this file: blocks, small matrices, untangling, the parts of a point, its forms, metric, volume. */

#include "tpl/fTpl3.h"

#include <float.h>
#include <math.h>
#include <stddef.h>

#include <type_traits>

#include "base/sys.h"

/* -------------------------------------------------- blocks ------------------------------------------------ */

/* Calls f with the number of elements, as a constant for one. */
template <class F> static inline void forBlock(int nBlock, F f)
{
    if (nBlock == 1) f(std::integral_constant<ptrdiff_t, 1>());
    else f((ptrdiff_t) nBlock);
}

/* ---------------------------------------------- small matrices -------------------------------------------- */

/* the nine entries of one element, row by row, out of their arrays and back */
static inline void getMatrix(const double *block, ptrdiff_t n, ptrdiff_t e, double *m)
{
    for (int k = 0; k < 9; ++k) m[k] = block[k * n + e];
}

static inline void putMatrix(const double *m, double *block, ptrdiff_t n, ptrdiff_t e)
{
    for (int k = 0; k < 9; ++k) block[k * n + e] = m[k];
}

static inline void cofactors(const double *m, double *c)
{
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const int i1 = 3 * ((i + 1) % 3), i2 = 3 * ((i + 2) % 3), j1 = (j + 1) % 3, j2 = (j + 2) % 3;
            c[3 * i + j] = m[i1 + j1] * m[i2 + j2] - m[i1 + j2] * m[i2 + j1];
        }
}

/* By the first row. */
static inline double determinant(const double *m, const double *c)
{
    return m[0] * c[0] + m[1] * c[1] + m[2] * c[2];
}

static inline double sumOfSquares(const double *m)
{
    double sum = 0;
    for (int k = 0; k < 9; ++k) sum += m[k] * m[k];
    return sum;
}

/* ------------------------------------------------ untangling ---------------------------------------------- */

/* One step towards the determinant `target`, along the cofactors, in which it grows fastest: j stays of the form j0 +
   lambda times cofactors. Gives the determinant before the step. */
static double step(const double *j0, double target, double *j, double *lambda)
{
    double c[9], r[9];
    cofactors(j, c);
    const double det = determinant(j, c);
    double offset = det - target;
    for (int k = 0; k < 9; ++k) {
        r[k] = j0[k] - j[k] + *lambda * c[k];
        offset += c[k] * r[k];
    }
    const double delta = -offset / sumOfSquares(c);
    for (int k = 0; k < 9; ++k) j[k] += delta * c[k] + r[k];
    *lambda += delta;
    return det;
}

/* Puts the nearest jacobian with a small positive determinant in the place of one that has none. */
static void untangle(double *j, double tol)
{
    double j0[9], c[9], lambda = 0;
    cofactors(j, c);
    const double det = determinant(j, c), squares = sumOfSquares(j), size = sqrt(squares) * squares * tol;
    if (det > 0.0 || !(size > det)) return;
    const double share = size / (2 * size - det), target = size * (share > 0.0001 ? share : 0.0001);
    const double band = sqrt(DBL_EPSILON) * target;
    for (int k = 0; k < 9; ++k) j0[k] = j[k];
    for (int i = 0; i < 20; ++i) {
        const double before = step(j0, target, j, &lambda);
        if (band >= fabs(before - target) && before > 0.0) break;
    }
    /* what is as flat as a line has no cofactors, and so no direction to go */
    if (!isfinite(sumOfSquares(j)))
        for (int k = 0; k < 9; ++k) j[k] = j0[k];
}

static void untangleBlock(double *jac, double tol, ptrdiff_t n)
{
    if (!(tol > 0.0)) return;
    for (ptrdiff_t e = 0; e < n; ++e) {
        double j[9];
        getMatrix(jac, n, e, j);
        untangle(j, tol);
        putMatrix(j, jac, n, e);
    }
}

void fTpl3JacReg(double *jac, const double *tol, const int *nBlock)
{
    untangleBlock(jac, *tol, *nBlock);
}

/* -------------------------------------------- the parts of a point ---------------------------------------- */

/* J(i, j) = sum over a of crd(a, i) * shgl(a, j). */
template <class Block> static void jacobian(const double *crd, const double *shgl, double *jac, Block n, int nen)
{
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            double *__restrict entry = jac + (3 * i + j) * n;
            for (ptrdiff_t e = 0; e < n; ++e) entry[e] = 0.0;
            for (int a = 0; a < nen; ++a) {
                const double *__restrict x = crd + (3 * a + i) * n;
                const double slope = shgl[3 * a + j];
                for (ptrdiff_t e = 0; e < n; ++e) entry[e] += x[e] * slope;
            }
        }
}

/* Determinant and inverse, which means nothing where the determinant is 0. */
template <class Block>
static void invert(const double *__restrict jac, double *__restrict jacInv, double *__restrict det, Block n)
{
    for (ptrdiff_t e = 0; e < n; ++e) {
        double j[9], c[9];
        getMatrix(jac, n, e, j);
        cofactors(j, c);
        det[e] = determinant(j, c);
        const double f = 1.0 / det[e];
        for (int i = 0; i < 3; ++i)
            for (int k = 0; k < 3; ++k) jacInv[(3 * k + i) * n + e] = c[3 * i + k] * f;
    }
}

/* shg(a, i) = sum over j of shgl(a, j) * jacInv(j, i). */
template <class Block>
static void gradients(const double *shgl, const double *__restrict jacInv, double *shg, Block n, int nen)
{
    for (int a = 0; a < nen; ++a) {
        const double r = shgl[3 * a], s = shgl[3 * a + 1], t = shgl[3 * a + 2];
        for (int i = 0; i < 3; ++i) {
            double *__restrict out = shg + (3 * a + i) * n;
            for (ptrdiff_t e = 0; e < n; ++e)
                out[e] = r * jacInv[i * n + e] + s * jacInv[(3 + i) * n + e] + t * jacInv[(6 + i) * n + e];
        }
    }
}

template <class Block> static void scale(double *v, double by, Block n)
{
    for (ptrdiff_t e = 0; e < n; ++e) v[e] *= by;
}

template <class Block> static void mustBePositive(const char *name, const double *v, Block n)
{
    bool positive = true;
    for (ptrdiff_t e = 0; e < n; ++e) positive = positive && v[e] > 0.0;
    if (!positive) sysAssertFixed2(name, "det-jacobian < 0");
}

/* what to do with the cross product of the tangents */
enum { AS_IT_IS = 1, OUTWARD = -1 };

/* Unit normals from the first two columns of the jacobian, and the lengths of the cross products. */
template <class Block>
static void normals(const char *name, const double *jac, int side, double *norm, double *length, Block n)
{
    for (ptrdiff_t e = 0; e < n; ++e) {
        double j[9], cross[3];
        getMatrix(jac, n, e, j);
        for (int i = 0; i < 3; ++i) {
            const int u = 3 * ((i + 1) % 3), v = 3 * ((i + 2) % 3);
            cross[i] = j[u] * j[v + 1] - j[v] * j[u + 1];
        }
        length[e] = sqrt(cross[0] * cross[0] + cross[1] * cross[1] + cross[2] * cross[2]);
        for (int i = 0; i < 3; ++i) norm[i * n + e] = side * cross[i] / length[e];
    }
    mustBePositive(name, length, n);
}

/* The jacobian of a shell, with its outward normals and the lengths of the cross products. */
template <class Block>
static void shell(const char *name, const double *crd, double thick, const double *shgl, double *jac, double *norm,
                  double *length, Block n, int nen)
{
    jacobian(crd, shgl, jac, n, nen);
    normals(name, jac, OUTWARD, norm, length, n);
    for (int i = 0; i < 3; ++i)
        for (ptrdiff_t e = 0; e < n; ++e) jac[(3 * i + 2) * n + e] = norm[i * n + e] * (-0.5 * thick);
}

/* Inverse and gradients of what must have a volume. */
template <class Block>
static void positiveGradients(const char *name, const double *shgl, const double *jac, double *jacInv, double *det,
                              double *shg, Block n, int nen)
{
    invert(jac, jacInv, det, n);
    mustBePositive(name, det, n);
    gradients(shgl, jacInv, shg, n, nen);
}

/* ------------------------------------------------- its forms ---------------------------------------------- */

void fTpl3Int(const double *crd, const double *wgt, const double *shp, const double *shgl, double *shg, double *detW,
              double *jac, double *jacInv, const double *tol, const int *nBlock, const int *nen)
{
    forBlock(*nBlock, [=](auto n) {
        jacobian(crd, shgl, jac, n, *nen);
        untangleBlock(jac, *tol, n);
        invert(jac, jacInv, detW, n);
        bool zero = false;
        for (ptrdiff_t e = 0; e < n; ++e) {
            detW[e] = fabs(detW[e]) * *wgt;
            zero = zero || detW[e] == 0.0;
        }
        if (zero) sysAssertFixed2("fTpl3Int", "det-jacobian = 0");
        gradients(shgl, jacInv, shg, n, *nen);
    });
}

void fTpl3IntShl(const double *crd, const double *thick, const double *wgt, const double *shp, const double *shgl,
                 double *shg, double *detW, double *jac, double *jacInv, const int *nBlock, const int *nen)
{
    const char *const name = "fTpl3IntShl";
    forBlock(*nBlock, [=](auto n) {
        shell(name, crd, *thick, shgl, jac, shg, detW, n, *nen);        /* shg for the normals, which nobody wants */
        positiveGradients(name, shgl, jac, jacInv, detW, shg, n, *nen);
        scale(detW, *wgt, n);
    });
}

/* On a face the weight is that of the area, so the determinant goes where the gradients will be. */
void fTpl3Bnd(const double *crd, const double *wgt, const double *shp, const double *shgl, double *shg, double *detW,
              double *norm, double *jac, double *jacInv, const int *nBlock, const int *nen)
{
    forBlock(*nBlock, [=](auto n) {
        jacobian(crd, shgl, jac, n, *nen);
        normals("fTpl3Bnd 1", jac, OUTWARD, norm, detW, n);
        positiveGradients("fTpl3Bnd 2", shgl, jac, jacInv, shg, shg, n, *nen);
        scale(detW, *wgt, n);
    });
}

void fTpl3BndShl(const double *crd, const double *thick, const double *wgt, const double *shp, const double *shgl,
                 double *shg, double *detW, double *norm, double *jac, double *jacInv, const int *nBlock,
                 const int *nen)
{
    const char *const name = "fTpl3BndShl";
    forBlock(*nBlock, [=](auto n) {
        shell(name, crd, *thick, shgl, jac, norm, detW, n, *nen);
        positiveGradients(name, shgl, jac, jacInv, shg, shg, n, *nen);
        scale(detW, *wgt, n);
    });
}

void fTpl3Srf(const double *crd, const double *wgt, const double *shp, const double *shgl, double *detW, double *norm,
              double *jac, const int *nBlock, const int *nen)
{
    forBlock(*nBlock, [=](auto n) {
        jacobian(crd, shgl, jac, n, *nen);
        normals("fTpl3Srf", jac, AS_IT_IS, norm, detW, n);
        scale(detW, *wgt, n);
    });
}

/* -------------------------------------------------- metric ------------------------------------------------ */

/* symmetric matrices in the order 11, 22, 33, 12, 23, 13 */
static const int symmetric[6][2] = { { 0, 0 }, { 1, 1 }, { 2, 2 }, { 0, 1 }, { 1, 2 }, { 0, 2 } };
static const int place[3][3] = { { 0, 3, 5 }, { 3, 1, 4 }, { 5, 4, 2 } };

/* 2 / sqrt 3 and 1 / sqrt 3; for tetrahedra the cube root of 2, its half, and the inverse matrix */
static const double even[6]      = { 1, 1, 1, 0, 0, 0 };
static const double wedgeDown[6] = { 1.154700538379252, 1.154700538379252, 1, 0.577350269189626, 0, 0 };
static const double wedgeUp[6]   = { 1.154700538379252, 1.154700538379252, 1, -0.577350269189626, 0, 0 };
static const double tetDown[6]   = { 1.259921049894873,  1.259921049894873,  1.259921049894873,
                                     0.6299605249474365, 0.6299605249474365, 0.6299605249474365 };
static const double tetUp[6]     = { 1.190550788976149,   1.190550788976149,   1.190550788976149,
                                     -0.3968502629920498, -0.3968502629920498, -0.3968502629920498 };

static const struct metricRow { int tplType; const double *down, *up; } metricRows[] = {
    { 3,  tetDown,   tetUp   },
    { 4,  even,      even    },
    { 5,  wedgeDown, wedgeUp },
    { 6,  even,      even    },
    { 16, tetDown,   tetUp   },
    { 28, tetDown,   tetUp   },
};

static const metricRow *findMetric(const char *name, int tplType)
{
    for (const metricRow &row : metricRows)
        if (row.tplType == tplType) return &row;
    sysAssertFixed2(name, "wrong tplType");
}

/* g(i, j) = row i . M . row j of the matrices. */
static void metric(const double *matrices, const double *m, double *g, ptrdiff_t n)
{
    for (ptrdiff_t e = 0; e < n; ++e) {
        double h[9], mh[9];                                 /* mh: row j is M . row j */
        getMatrix(matrices, n, e, h);
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k)
                mh[3 * j + k] = m[place[k][0]] * h[3 * j] + m[place[k][1]] * h[3 * j + 1] +
                                m[place[k][2]] * h[3 * j + 2];
        for (int k = 0; k < 6; ++k) {
            const double *row = h + 3 * symmetric[k][0], *mRow = mh + 3 * symmetric[k][1];
            g[k * n + e] = row[0] * mRow[0] + row[1] * mRow[1] + row[2] * mRow[2];
        }
        const double lift = DBL_EPSILON * (g[e] + g[n + e] + g[2 * n + e]);
        for (int k = 0; k < 3; ++k) g[k * n + e] += lift;
    }
}

void fTpl3GijDown(const double *jacInv, double *g, const int *nBlock, const int *tplType)
{
    metric(jacInv, findMetric("fTpl3GijDown", *tplType)->down, g, *nBlock);
}

void fTpl3GijUp(const double *jac, double *g, const int *nBlock, const int *tplType)
{
    metric(jac, findMetric("fTpl3GijUp", *tplType)->up, g, *nBlock);
}

/* -------------------------------------------------- volume ------------------------------------------------ */

static inline double triple(const double *u, const double *v, const double *w)
{
    return (u[0] * v[1] - u[1] * v[0]) * w[2] + (u[1] * v[2] - u[2] * v[1]) * w[0] +
           (u[2] * v[0] - u[0] * v[2]) * w[1];
}

/* Each element is a hexahedron of which some corners coincide: its faces are the same then, and so is its volume. */
static const struct { int tplType, corners[8]; } hexahedra[] = {
    { 3, { 0, 1, 2, 2, 3, 3, 3, 3 } },
    { 4, { 0, 1, 2, 3, 4, 4, 4, 4 } },
    { 5, { 0, 1, 2, 2, 3, 4, 5, 5 } },
    { 6, { 0, 1, 2, 3, 4, 5, 6, 7 } },
};

/* The volume within bilinear faces, 12 times which is a sum of three triple products (Grandy 1997). Only differences
   of coordinates are multiplied: far from the origin no digits are lost. */
static double hexVolume(const double *const *x)
{
    double u[3][3], v[3][3], w[3][3];
    for (int i = 0; i < 3; ++i) {
        u[0][i] = x[3][i] - x[1][i] + (x[7][i] - x[2][i]);
        v[0][i] = x[6][i] - x[3][i];
        w[0][i] = x[2][i] - x[0][i];
        u[1][i] = x[4][i] - x[3][i] + (x[5][i] - x[7][i]);
        v[1][i] = x[6][i] - x[4][i];
        w[1][i] = x[7][i] - x[0][i];
        u[2][i] = x[1][i] - x[4][i] + (x[2][i] - x[5][i]);
        v[2][i] = x[6][i] - x[1][i];
        w[2][i] = x[5][i] - x[0][i];
    }
    return (triple(u[0], v[0], w[0]) + triple(u[1], v[1], w[1]) + triple(u[2], v[2], w[2])) / 12;
}

void fTpl3ElmVol(const double *crd, const int *nodes, double *vol, const int *tplType)
{
    for (const auto &hex : hexahedra) {
        if (hex.tplType != *tplType) continue;
        const double *x[8];
        for (int k = 0; k < 8; ++k) x[k] = crd + 3 * (ptrdiff_t) nodes[hex.corners[k]];
        *vol = hexVolume(x);
        return;
    }
    sysAssertFixed2("fTpl3ElmVol", "invalid elmType");
}
