#ifndef TPL_TPL_H
#define TPL_TPL_H

/* tpl.h: element topology objects: nodes, faces, quadrature points, and the shape functions tabulated there. One
 * process-wide catalogue, keyed by topology code and quadrature rule; objects are built once and never freed. */

typedef struct tplSrf {           /* a face of an element: 33 integers */
    int srfType;                  /* 1, 2 or 15                                              */
    int bndTpl;                   /* code of the element seen from this face                 */
    int nSrfNodes;                /* 3, 4 or 6                                               */
    int srfNodes[10];             /* local element nodes of the face                         */
    int bndNodes[10];             /* all element nodes, reordered: the face comes first      */
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
    const double *shgl;           /* nQuad blocks of nen rows of 3                           */
} tplRec;

#ifdef __cplusplus
extern "C" {
#endif

tplRec *tplNew(int tplType, int quadRule);
int     tplGetBndTpl(int parentTpl, int srfType);
void    tplGetShpShgl(tplRec *rec);

/* Which face of an element has these nodes: 1 and the outputs, or 0 */
int tplSrf2Srf(const tplRec *tpl, int srfType, const int *elemNodes, const int *srfNodes, int *outNodes, int *outSrfId);
int tplSrf2Bnd(const tplRec *tpl, int srfType, const int *elemNodes, const int *srfNodes, int *outElemNodes,
               int *outSrfId);

#ifdef __cplusplus
}
#endif
#endif
