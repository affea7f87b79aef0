#ifndef TPL_FTPL3_H
#define TPL_FTPL3_H

/* fTpl3.h: what an integral over elements needs at one quadrature point: gradients in space, weights, normals, the
 * element's metric; and the volume of an element.
 *
 * The routines take a block of nBlock elements of one kind and one point of their topology object (tpl.h). In an array
 * the element index e runs fastest; of node a, component or direction i and local direction j, the number of
 *
 *     crd, shg        coordinates, global gradients     (a, i, e)   is at  (a * 3 + i) * nBlock + e
 *     jac             J(i, j) = d x(i) / d r(j)         (i, j, e)          (i * 3 + j) * nBlock + e
 *     jacInv          the inverse, d r(j) / d x(i)      (j, i, e)          (j * 3 + i) * nBlock + e
 *     norm            unit normal                       (i, e)             i * nBlock + e
 *     detW            weight of the point in space      (e)                e
 *     g               metric, 11 22 33 12 23 13         (k, e)             k * nBlock + e
 *     shgl            local gradients of the point      (a, j)             a * 3 + j, the same for all elements
 *
 * Counts, codes and single reals come by reference. A block of 0 elements or less is left alone; nen is at least 1.
 * Nothing allocates: jac and jacInv are results that also serve as scratch. shp, the shape row of the point, belongs to
 * the arguments of every point and is not read. What fails does not return, under the routine's name. */

#ifdef __cplusplus
extern "C" {
#endif

/* ---- volume elements ---- */

/* Gradients and weight |det J| * wgt at a point. With tol above 0.0 a tangled element is first untangled, as told at
   fTpl3JacReg; otherwise its determinant counts by its size. "det-jacobian = 0" if a weight is 0.0, which is so for
   each point whose own weight is. */
void fTpl3Int(const double *crd, const double *wgt, const double *shp, const double *shgl, double *shg, double *detW,
              double *jac, double *jacInv, const double *tol, const int *nBlock, const int *nen);

/* Replaces each jacobian whose determinant is not above 0.0 by the nearest one (least sum of squared differences) that
   has a small positive determinant: about tol times the cube of the jacobian's size. tol not above 0.0 does nothing. A
   jacobian of rank 1 or 0 stays: no direction leads it to a volume. */
void fTpl3JacReg(double *jac, const double *tol, const int *nBlock);

/* The volume of one element from the rows of 3 of crd at `nodes`, in closed form: exact for the element's map, negative
   for an inverted element. tplType 3, 4, 5 or 6, any other code is "invalid elmType". */
void fTpl3ElmVol(const double *crd, const int *nodes, double *vol, const int *tplType);

/* ---- shells, faces and surfaces ----
 *
 * They work with the cross product of J's first two columns, the tangents. In the frame of a face of a volume element
 * these lie in the face and the third direction points into the element, so that the outward normal is the opposite of
 * their cross product. None untangles: "det-jacobian < 0" for a block in which a length of a cross product or a
 * determinant is not above 0.0. */

/* A surface of some thickness: the third column of J is the outward normal times minus half of it. detW is for the
   volume of the shell. */
void fTpl3IntShl(const double *crd, const double *thick, const double *wgt, const double *shp, const double *shgl,
                 double *shg, double *detW, double *jac, double *jacInv, const int *nBlock, const int *nen);

/* A face of a volume element, with the gradients of the element and the outward normal. detW is for the area. Fails as
   "fTpl3Bnd 1" for the face, "fTpl3Bnd 2" for the element. */
void fTpl3Bnd(const double *crd, const double *wgt, const double *shp, const double *shgl, double *shg, double *detW,
              double *norm, double *jac, double *jacInv, const int *nBlock, const int *nen);

/* The same with the third column of a shell. */
void fTpl3BndShl(const double *crd, const double *thick, const double *wgt, const double *shp, const double *shgl,
                 double *shg, double *detW, double *norm, double *jac, double *jacInv, const int *nBlock,
                 const int *nen);

/* A surface with no element behind it; the normal is that from which its nodes run counter-clockwise. detW is for the
   area; jac is scratch. */
void fTpl3Srf(const double *crd, const double *wgt, const double *shp, const double *shgl, double *detW, double *norm,
              double *jac, const int *nBlock, const int *nen);

/* ---- metric ----
 *
 * g(i, j) = row i . M . row j of jacInv (Down) or of jac (Up), row i being their entries 3i, 3i + 1, 3i + 2 as stored.
 * M makes the directions of a triangle or tetrahedron equal, whichever corner the coordinates start from. The diagonal
 * is lifted by a rounding error of the trace. tplType 3, 4, 5, 6, 16 or 28, any other code is "wrong tplType". */
void fTpl3GijDown(const double *jacInv, double *g, const int *nBlock, const int *tplType);
void fTpl3GijUp(const double *jac, double *g, const int *nBlock, const int *tplType);

#ifdef __cplusplus
}
#endif
#endif
