#ifndef TPL_TPL_H
#define TPL_TPL_H

/* tpl.h: element topology objects: nodes, faces, quadrature points, and the shape functions tabulated there. One
 * process-wide catalogue, keyed by topology code and quadrature rule; objects are built once and never freed.
 *
 * Codes: 1 triangle, 2 quadrilateral; 3 tetrahedron, 4 pyramid, 5 wedge, 6 hexahedron, 16 ten-node tetrahedron, 28
 * five-node tetrahedron with a bubble; 7 to 12, 17, 29 these seen from a face, 18 to 27 and 30 from an edge of a face.
 * Rules: 1 standard, 2 reduced, 3 at the nodes, 4 special, 5 higher, 6 highest, 7 one point; 1 and 2 have no rule 4.
 * Surface types: 1 three nodes, 2 four nodes, 15 six nodes.
 *
 * Natural coordinates (r, s, t): triangles and tetrahedra from 0 to 2 with a sum of at most 2, quadrilaterals and
 * hexahedra from -1 to 1, the wedge a triangle in r, s times t from -1 to 1, the pyramid's base from -1 to 1 at t = 0
 * with the apex at t = 2. Weights sum to the size of the domain: 2, 4/3, 4, 8, 4 and 8/3; on a face or an edge to its
 * size inside the element. */

typedef struct tplSrf {           /* a face of an element: 33 integers; unused places hold -1 */
    int srfType;                  /* 1, 2 or 15                                              */
    int bndTpl;                   /* code of the element seen from this face                 */
    int nSrfNodes;                /* 3, 4 or 6                                               */
    int srfNodes[10];             /* local element nodes of the face                         */
    int bndNodes[10];             /* all element nodes, in the order in which bndTpl has them */
    int oppNodes[10];             /* the element nodes not on the face                       */
} tplSrf;

typedef struct tplRec {
    int           tplType, quadRule;
    int           nen;            /* nodes of the element                                    */
    int           nShp;           /* shape nodes: nen, but 4 for codes 27 to 30              */
    int           nQuad;
    int           nSrfs;
    const tplSrf *srfTbl;         /* nSrfs faces, or null                                    */
    const double *quadCrd;        /* nQuad rows of r, s, t                                   */
    const double *quadWgt;        /* nQuad                                                   */
    const double *shp;            /* nQuad rows of nen; null until first use                 */
    const double *shgl;           /* nQuad blocks of nen rows of 3: by r, s, t, or for some  */
                                  /* faces of pyramid and wedge in a frame of the face       */
} tplRec;

#ifdef __cplusplus
extern "C" {
#endif

/* The object of a code and a rule, with its shape tables; the same one each time, not the caller's to free. With the
   bit 0x100 in the rule: the points of the rule, and behind them the nodes (the points of rule 3) with weight 0; 0x103
   is rule 3.
   May not return: "Topology not found <%d/%d>" for an unknown pair, "toloplogy not recognized <%d>" for codes 1 and 2,
   which have points but no shape functions. */
tplRec *tplNew(int tplType, int quadRule);

/* The code of a volume element seen from a face of a type. May not return: "Invalid parentTpl <%d> and srfType <%d>
   combination". */
int     tplGetBndTpl(int parentTpl, int srfType);

/* Fills shp and shgl for the points of a record where they are null; the arrays come from one block, which begins at
   shp. May not return: "toloplogy not recognized <%d>". */
void    tplGetShpShgl(tplRec *rec);

/* Which face of an element has these nodes: 1 and the outputs, or 0 with the outputs untouched.
   elemNodes: tpl->nen node ids of the element, in its order. srfNodes: the 3, 4 or 6 ids of a face, in any order.
   outSrfId: the face's position in the element's table. outNodes: the face's ids in the order of that table;
   outElemNodes: the element's ids in the order of the face's boundary topology.
   May not return: "Invalid srfType <%d>" for a type other than 1, 2, 15. */
int tplSrf2Srf(const tplRec *tpl, int srfType, const int *elemNodes, const int *srfNodes, int *outNodes, int *outSrfId);
int tplSrf2Bnd(const tplRec *tpl, int srfType, const int *elemNodes, const int *srfNodes, int *outElemNodes,
               int *outSrfId);

/* How many nodes a surface of a type has; 0 for a code that is none. round, unless null: the places of its nodes in the
   order in which one meets them going round it. */
int tplSrfRound(int srfType, const int **round);

/* Directions at the nodes of a block of nBlock elements or surfaces of one kind. Component c of node a of element e
   stands at (a * 3 + c) * nBlock + e, in crd as in dir, which is overwritten.

   tplNodalDirType: the area vectors of the faces, each shared out among the nodes of its face, so that the sums at the
   nodes of a surface give its normal, weighted by area. A triangle gives a third to each of its nodes, a quadrilateral
   a quarter; the six-node triangle is four triangles. A surface is seen from where its nodes run counter-clockwise, the
   faces of an element as its face rows have them.
   tplType 1, 2, 3, 4, 5, 6, 15, 16 or 28. May not return: "not implemented for tplType <%d>".

   tplNodalEdgeDirType: for each side of a surface the vector in its plane, outward and normal to the side, half as long
   as it; at the node where the side begins, going round from node 0 by way of node 1. The six-node triangle has six
   sides, from corner to middle and from middle to corner. Zero for a surface without an area.
   tplType 1, 2 or 15. May not return: the same. */
void tplNodalDirType(const double *crd, double *dir, int tplType, int nBlock);
void tplNodalEdgeDirType(const double *crd, double *dir, int tplType, int nBlock);

#ifdef __cplusplus
}
#endif
#endif
