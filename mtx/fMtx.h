#ifndef MTX_FMTX_H
#define MTX_FMTX_H

/* fMtx.h: the inner arithmetic of element loops: gather nodal data into a block of elements, take its gradient or its
 * value at a quadrature point, scatter.
 *
 * A block holds nBlock elements, and in each of its arrays the element index runs fastest. With node a of nen,
 * component c of nDof, direction i and element e, the number of
 *
 *     val     nodal values        (a, c, e)     is at  (a * nDof + c) * nBlock + e
 *     shg     global gradients    (a, i, e)            (a * 3 + i) * nBlock + e
 *     shp     shape functions     (a)                  a, the same for the whole block
 *     grad    gradient            (c, i, e)            (c * 3 + i) * nBlock + e
 *     res     value at a point    (c, e)               c * nBlock + e
 *
 * What belongs to the whole mesh, coordinates and nodal fields, lies the other way: a row for each node, the component
 * fastest. `nodes` are positions of such rows, an element's nen after each other; nobody tests their range here.
 *
 * A sum over nodes begins with the product of node 0 and adds the others one after another, each product and each sum
 * rounded by itself, so that a result does not depend on the machine or on the size of the block. Outputs must not
 * overlap inputs. Counts come by reference; one of 0 or less does nothing. Nothing here allocates.
 *
 * Kernels of a sum do not return for nen above 10, more than any element has: "nen > 10", under their own name. */

#ifdef __cplusplus
extern "C" {
#endif

/* grad(c, i) = sum over a of val(a, c) * shg(a, i); the Add forms add that sum to what is there. The number in a name
   is nDof. */
typedef void fMtxGradient(const double *val, const double *shg, double *grad, const int *nBlock, const int *nen);
fMtxGradient fMtx3Grad1, fMtx3Grad2, fMtx3Grad3, fMtx3Grad4, fMtx3Grad5, fMtx3Grad6;
fMtxGradient fMtxAdd3Grad1, fMtxAdd3Grad2, fMtxAdd3Grad3, fMtxAdd3Grad4, fMtxAdd3Grad5, fMtxAdd3Grad6;

/* The same for any nDof; from 1 to 6 under the name of the member of that number. */
void fMtx3Grad(const double *val, const double *shg, double *grad, const int *nBlock, const int *nDof, const int *nen);
void fMtxAdd3Grad(const double *val, const double *shg, double *grad, const int *nBlock, const int *nDof,
                  const int *nen);

/* Second gradient of a field of 3 components: curv(c, k) = sum over a of val(a, c) * shgg(a, k), with six second
   derivatives k in the order 11, 22, 33, 12, 23, 13 in the place of the three first ones, in shgg as in curv. */
void fMtx3Curv3(const double *val, const double *shgg, double *curv, const int *nBlock, const int *nen);

/* res(c) = sum over a of shp(a) * val(a, c); the number in a name is nDof. */
typedef void fMtxPoint(const double *val, const double *shp, double *res, const int *nBlock, const int *nen);
fMtxPoint fMtxValue1, fMtxValue2, fMtxValue3, fMtxValue5, fMtxValue6;

/* The same for any nDof, under the name of the member of that number where there is one. */
void fMtxValue(const double *val, const double *shp, double *res, const int *nBlock, const int *nDof, const int *nen);

/* Copies the rows of 3 at `nodes` into a block: dest(a, c, e) = source[nodes[e * nen + a] * 3 + c]. The second form for
   rows of nDof. */
void fMtxGather(const int *nodes, const double *source, double *dest, const int *nBlock, const int *nen);
void fMtxGatherN(const int *nodes, const double *source, double *dest, const int *nBlock, const int *nDof,
                 const int *nen);

/* The way back: adds values(a, c, e) to accumulator[nodes[e * nen + a] * nDof + c], element by element, in each by
   ascending node. */
void fMtxScatterAdd(const int *nodes, double *accumulator, const double *values, const int *nBlock, const int *nDof,
                    const int *nen);

/* Position of pat in an ascending table of n, by bisection. May not return: "pat not found". */
int  fMtxBinFind(const int *table, const int *n, const int *pat);

#ifdef __cplusplus
}
#endif
#endif
