/* tpl.cpp: the catalogue of element topologies.
 *
 * A topology is an element crossed with a named set of quadrature points. The elements stand in one table: nodes,
 * faces, shape family, and the point set of each rule by name; rows that share their points name the same set. The
 * compiler makes the catalogue of it, and also the shape tables of the rows that nearly every run asks for. The other
 * shape tables are built at the first request and stay for the life of the process.
 *
 * An element seen from one of its faces or edges is an element of its own: its points lie on one fixed face or edge,
 * and the face's row in the element tells how to reorder the nodes so that any face comes to lie there.
 *
 * In this file: faces, elements, the catalogue, ready-made shape tables, look-up, composite objects. */

#include "tpl/tpl.h"

#include "base/mem.h"
#include "base/sys.h"
#include "tpl/tplInt.h"
#include "tpl/tplQuad.h"
#include "tpl/tplShp.h"

enum { N_RULES = 7, NODES_RULE = 3, WITH_NODES = 0x100, N_ROWS = 187 };

/* -------------------------------------------------- faces ------------------------------------------------- */

/* A face row. The nodes that are not on the face follow from the others; unused places hold -1. */
template <int N, int NEN>
constexpr tplSrf face(int srfType, int bndTpl, const int (&srfNodes)[N], const int (&bndNodes)[NEN])
{
    tplSrf srf{ srfType, bndTpl, N, {}, {}, {} };
    for (int i = 0; i < 10; ++i) {
        srf.srfNodes[i] = i < N ? srfNodes[i] : -1;
        srf.bndNodes[i] = i < NEN ? bndNodes[i] : -1;
        srf.oppNodes[i] = -1;
    }
    for (int node = 0, n = 0; node < NEN; ++node) {
        bool onFace = false;
        for (int s : srfNodes) onFace = onFace || s == node;
        if (!onFace) srf.oppNodes[n++] = node;
    }
    return srf;
}

/* With the shape functions as they are the face nodes of these rows turn inward; clients count on it. */
static constexpr tplSrf tetSrfs[] = {
    face(1, 7, { 0, 1, 2 }, { 0, 1, 2, 3 }),
    face(1, 7, { 1, 3, 2 }, { 1, 3, 2, 0 }),
    face(1, 7, { 2, 3, 0 }, { 2, 3, 0, 1 }),
    face(1, 7, { 3, 1, 0 }, { 3, 1, 0, 2 }),
};
static constexpr tplSrf bubbleSrfs[] = {
    face(1, 29, { 0, 1, 2 }, { 0, 1, 2, 3, 4 }),
    face(1, 29, { 1, 3, 2 }, { 1, 3, 2, 0, 4 }),
    face(1, 29, { 2, 3, 0 }, { 2, 3, 0, 1, 4 }),
    face(1, 29, { 3, 1, 0 }, { 3, 1, 0, 2, 4 }),
};
static constexpr tplSrf pyrSrfs[] = {
    face(2, 9, { 0, 1, 2, 3 }, { 0, 1, 2, 3, 4 }),
    face(1, 8, { 1, 0, 4 },    { 0, 1, 2, 3, 4 }),
    face(1, 8, { 2, 1, 4 },    { 1, 2, 3, 0, 4 }),
    face(1, 8, { 3, 2, 4 },    { 2, 3, 0, 1, 4 }),
    face(1, 8, { 0, 3, 4 },    { 3, 0, 1, 2, 4 }),
};
static constexpr tplSrf wedgeSrfs[] = {
    face(1, 10, { 0, 1, 2 },    { 0, 1, 2, 3, 4, 5 }),
    face(1, 10, { 5, 4, 3 },    { 5, 4, 3, 2, 1, 0 }),
    face(2, 11, { 0, 2, 5, 3 }, { 2, 0, 1, 5, 3, 4 }),
    face(2, 11, { 2, 1, 4, 5 }, { 1, 2, 0, 4, 5, 3 }),
    face(2, 11, { 1, 0, 3, 4 }, { 0, 1, 2, 3, 4, 5 }),
};
static constexpr tplSrf hexSrfs[] = {
    face(2, 12, { 0, 1, 2, 3 }, { 0, 1, 2, 3, 4, 5, 6, 7 }),
    face(2, 12, { 7, 6, 5, 4 }, { 7, 6, 5, 4, 3, 2, 1, 0 }),
    face(2, 12, { 5, 6, 2, 1 }, { 5, 6, 2, 1, 4, 7, 3, 0 }),
    face(2, 12, { 0, 3, 7, 4 }, { 0, 3, 7, 4, 1, 2, 6, 5 }),
    face(2, 12, { 4, 5, 1, 0 }, { 4, 5, 1, 0, 7, 6, 2, 3 }),
    face(2, 12, { 3, 2, 6, 7 }, { 3, 2, 6, 7, 0, 1, 5, 4 }),
};
static constexpr tplSrf tet10Srfs[] = {
    face(15, 17, { 0, 1, 2, 4, 5, 6 }, { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9 }),
    face(15, 17, { 1, 3, 2, 8, 9, 5 }, { 1, 3, 2, 0, 8, 9, 5, 4, 7, 6 }),
    face(15, 17, { 2, 3, 0, 9, 7, 6 }, { 2, 3, 0, 1, 9, 7, 6, 5, 8, 4 }),
    face(15, 17, { 3, 1, 0, 8, 4, 7 }, { 3, 1, 0, 2, 8, 4, 7, 9, 5, 6 }),
};
/* the same faces, begun at the edge from which the element is seen */
static constexpr tplSrf pyrSrf04   = face(1, 8,  { 0, 4, 1 },    { 0, 1, 2, 3, 4 });
static constexpr tplSrf pyrSrf41   = face(1, 8,  { 4, 1, 0 },    { 0, 1, 2, 3, 4 });
static constexpr tplSrf wedgeSrf03 = face(2, 11, { 0, 3, 4, 1 }, { 0, 1, 2, 3, 4, 5 });

/* ------------------------------------------------- elements ----------------------------------------------- */

struct element {
    int           code, family, frame, nen, nShp, nSrfs;
    const tplSrf *srfs;
    pointSet      rules[N_RULES];           /* of rule 1, 2, ...; without points: the row does not exist */
};

static constexpr pointSet none = { 0, nullptr, nullptr };
/* one point from a set of more, or more points than the set's rule has */
static constexpr pointSet tet4of1 = firstOf(tet4, 1), tri3of1 = firstOf(tri3, 1), tet01_2of1 = firstOf(tet01_2, 1);
static constexpr pointSet tri3s = firstOf(tri3Again, 3), tri3of6 = firstOf(tri3Again, 6), tri3of7 = all(tri3Again);
static constexpr pointSet quad4s = firstOf(quad4Again, 4), quad4of9 = firstOf(quad4Again, 9);
static constexpr pointSet quad4of16 = all(quad4Again);
static constexpr pointSet pyr01_2s = firstOf(pyr01_2Again, 2);
static constexpr pointSet pyr01_2of3 = firstOf(pyr01_2Again, 3), pyr01_2of4 = all(pyr01_2Again);

static constexpr int NOFAM = TPL_NO_FAMILY, TET = TPL_TET, QTET = TPL_QUAD_TET, BTET = TPL_BUBBLE_TET,
                     WEDGE = TPL_WEDGE, HEX = TPL_HEX, PYR = TPL_PYRAMID;

#define S(set) all(set)

/* To add an element: a row here with its faces and a point set for each rule, and for a new family its generator in
   tplShp.h. */
static constexpr element elements[] = {
    /* surfaces; they have no shape tables */
    /* code family frame nen nShp nSrfs faces
       1 standard, 2 reduced, 3 at the nodes, 4 special, 5 higher, 6 highest, 7 one point */
    { 1,  NOFAM, 0,  3,  3, 0, nullptr,
      { tri3s, S(tri1), S(triNodes), none, tri3of6, tri3of7, S(tri1) } },
    { 2,  NOFAM, 0,  4,  4, 0, nullptr,
      { quad4s, quad4s, S(quadNodes), none, quad4of9, quad4of16, S(quad1) } },

    /* volumes */
    { 3,  TET,   0,  4,  4, 4, tetSrfs,
      { S(tet4), S(tet1), S(tetNodes), S(tet4), S(tet14), S(tet20), S(tet1) } },
    { 4,  PYR,   0,  5,  5, 5, pyrSrfs,
      { S(pyr5), S(pyr1), S(pyrNodes), S(pyr5), S(pyr13), S(pyr13), S(pyr1) } },
    { 5,  WEDGE, 0,  6,  6, 5, wedgeSrfs,
      { S(wedge6), S(wedge2), S(wedgeNodes), S(wedge1), S(wedge18), S(wedge28), S(wedge1) } },
    { 6,  HEX,   0,  8,  8, 6, hexSrfs,
      { S(hex8), S(hex8), S(hexNodes), S(hex4), S(hex27), S(hex64), S(hex1) } },

    /* volumes seen from a face */
    { 7,  TET,   0,  4,  4, 1, tetSrfs,
      { S(tri3), S(tri1), S(triNodes), S(tri3), S(tri6), S(tri7), S(tri1) } },
    { 8,  PYR,   1,  5,  5, 1, pyrSrfs + 1,
      { S(pyrTri3), S(pyrTri1), S(pyrTriNodes), S(pyrTri3), S(pyrTri6), S(pyrTri6), S(pyrTri1) } },
    { 9,  PYR,   0,  5,  5, 1, pyrSrfs,
      { quad4s, S(quad1), S(quadNodes), quad4s, quad4of9, quad4of16, S(quad1) } },
    { 10, WEDGE, 0,  6,  6, 1, wedgeSrfs,
      { S(wedgeTri3), S(wedgeTri1), S(wedgeTriNodes), S(wedgeTri1), S(wedgeTri7), S(wedgeTri7), S(wedgeTri1) } },
    { 11, WEDGE, 1,  6,  6, 1, wedgeSrfs + 4,
      { S(wedgeQuad4), S(wedgeQuad2), S(wedgeQuadNodes), S(wedgeQuad1), S(wedgeQuad9), S(wedgeQuad16),
        S(wedgeQuad1) } },
    { 12, HEX,   0,  8,  8, 1, hexSrfs,
      { S(hexQuad4), S(hexQuad4), S(hexQuadNodes), S(hexQuad2), S(hexQuad9), S(hexQuad16), S(hexQuad1) } },

    /* the quadratic tetrahedron, and from a face */
    { 16, QTET,  0, 10, 10, 4, tet10Srfs,
      { S(tet14), S(tet4), S(tet10Nodes), S(tet14), S(tet20), S(tet35), S(tet1) } },
    { 17, QTET,  0, 10, 10, 1, tet10Srfs,
      { S(tri6), S(tri3), S(tri6Nodes), S(tri6), S(tri7), S(tri9), S(tri1) } },

    /* volumes seen from an edge of a face */
    { 18, TET,   0,  4,  4, 1, tetSrfs,
      { S(tet01_2), S(tet01_1), S(tet01Nodes), S(tet01_2), S(tet01_3), S(tet01_4), S(tet01_1) } },
    { 19, PYR,   1,  5,  5, 1, pyrSrfs + 1,
      { S(pyr01_2), S(pyr01_1), S(pyr01Nodes), S(pyr01_2), S(pyr01_2), S(pyr01_2), S(pyr01_1) } },
    { 20, PYR,   2,  5,  5, 1, &pyrSrf04,
      { S(pyr04_2), S(pyr04_1), S(pyr04Nodes), S(pyr04_2), S(pyr04_2), S(pyr04_2), S(pyr04_1) } },
    { 21, PYR,   3,  5,  5, 1, &pyrSrf41,
      { S(pyr41_2), S(pyr41_1), S(pyr41Nodes), S(pyr41_2), S(pyr41_2), S(pyr41_2), S(pyr41_1) } },
    { 22, PYR,   0,  5,  5, 1, pyrSrfs,
      { pyr01_2s, S(pyr01_1), S(pyr01Nodes), pyr01_2s, pyr01_2of3, pyr01_2of4, S(pyr01_1) } },
    { 23, WEDGE, 0,  6,  6, 1, wedgeSrfs,
      { S(wedge01_2), S(wedge01_1), S(wedge01Nodes), S(wedge01_1), S(wedge01_3), S(wedge01_4), S(wedge01_1) } },
    { 24, WEDGE, 2,  6,  6, 1, wedgeSrfs + 4,
      { S(wedge01_2), S(wedge01_1), S(wedge01Nodes), S(wedge01_1), S(wedge01_3), S(wedge01_4), S(wedge01_1) } },
    { 25, WEDGE, 1,  6,  6, 1, &wedgeSrf03,
      { S(wedge03_2), S(wedge03_1), S(wedge03Nodes), S(wedge03_1), S(wedge03_3), S(wedge03_4), S(wedge03_1) } },
    { 26, HEX,   0,  8,  8, 1, hexSrfs,
      { S(hex01_2), S(hex01_2), S(hex01Nodes), S(hex01_2), S(hex01_3), S(hex01_4), S(hex01_1) } },
    { 27, QTET,  0, 10,  4, 1, tet10Srfs,
      { S(tet01_3), S(tet01_2), S(tet01Nodes3), S(tet01_3), S(tet01_4), S(tet01_5), S(tet01_1) } },

    /* the tetrahedron with a bubble, from a face, from an edge */
    { 28, BTET,  0,  5,  4, 4, bubbleSrfs,
      { S(tet4), tet4of1, S(bubbleNodes), S(tet4), S(tet14), S(tet20), S(tet1) } },
    { 29, BTET,  0,  5,  4, 1, bubbleSrfs,
      { S(tri3), tri3of1, S(triNodes), S(tri3), S(tri6), S(tri7), S(tri1) } },
    { 30, BTET,  0,  5,  4, 1, bubbleSrfs,
      { S(tet01_2), tet01_2of1, S(tet01Nodes), S(tet01_2), S(tet01_3), S(tet01_4), S(tet01_1) } },
};

#undef S

constexpr const element *findElement(int code)
{
    for (const element &e : elements)
        if (e.code == code) return &e;
    return nullptr;
}

/* --------------------------------------- ready-made shape tables ------------------------------------------ */

/* What the compiler tabulates for an element and a rule: as tplGetShpShgl does at run time. */
template <int CODE, int RULE> struct readyTable {
    static constexpr const element *e = findElement(CODE);
    static constexpr int            nQuad = e->rules[RULE - 1].n;

    struct table {
        double shp[nQuad * e->nen], shgl[nQuad * e->nen * 3];
    };
    static constexpr table make()
    {
        table t{};
        for (int q = 0; q < nQuad; ++q)
            tplShpAt(e->family, e->frame, e->rules[RULE - 1].crd + 3 * q, t.shp + q * e->nen, t.shgl + q * e->nen * 3);
        return t;
    }
    static constexpr table value = make();
};

struct readyRow {
    int           code, rule;
    const double *shp, *shgl;
};

template <int CODE, int RULE> constexpr readyRow ready()
{
    return { CODE, RULE, readyTable<CODE, RULE>::value.shp, readyTable<CODE, RULE>::value.shgl };
}

/* Opening a run asks for each element's own rule, mostly 1, and for rule 2; a surface set for that of its face. */
static constexpr readyRow readyRows[] = {
    ready<3, 1>(),  ready<4, 1>(),  ready<5, 1>(),  ready<6, 1>(),  ready<16, 1>(), ready<28, 1>(),
    ready<3, 2>(),  ready<4, 2>(),  ready<5, 2>(),  ready<6, 2>(),  ready<16, 2>(), ready<28, 2>(),
    ready<7, 1>(),  ready<8, 1>(),  ready<9, 1>(),  ready<10, 1>(), ready<11, 1>(), ready<12, 1>(),
    ready<17, 1>(), ready<29, 1>(),
};

/* ------------------------------------------------ catalogue ----------------------------------------------- */

struct catalogueTable {
    tplRec rows[N_ROWS + 1];                /* the last has code 0 */
    int    nRows;
};

constexpr catalogueTable makeCatalogue()
{
    catalogueTable c{};
    for (const element &e : elements)
        for (int rule = 1; rule <= N_RULES; ++rule) {
            const pointSet &p = e.rules[rule - 1];
            if (!p.n) continue;
            tplRec rec = { e.code, rule, e.nen, e.nShp, p.n, e.nSrfs, e.srfs, p.crd, p.wgt, nullptr, nullptr };
            for (const readyRow &r : readyRows)
                if (r.code == e.code && r.rule == rule) {
                    rec.shp = r.shp;
                    rec.shgl = r.shgl;
                }
            c.rows[c.nRows++] = rec;
        }
    return c;
}

static constexpr catalogueTable asWritten = makeCatalogue();
static_assert(asWritten.nRows == N_ROWS, "elements: a rule is missing or one too many");

static tplRec  *objects[N_ROWS + 1];        /* composite objects, at their base row's position */
static catalogueTable catalogue = asWritten;

const tplRec *tplCatalogue(void)
{
    return catalogue.rows;
}

/* Position of the row of a code and a rule; none does not return. */
static int findRow(int tplType, int quadRule)
{
    for (int i = 0; catalogue.rows[i].tplType; ++i)
        if (catalogue.rows[i].tplType == tplType && catalogue.rows[i].quadRule == quadRule) return i;
    sysFailIn("tplNew", "Topology not found <%d/%d>", tplType, quadRule);
}

void tplGetShpShgl(tplRec *rec)
{
    if (rec->shp) return;
    const element *e = findElement(rec->tplType);
    if (!e || e->family == TPL_NO_FAMILY) sysFail("toloplogy not recognized <%d>", rec->tplType);
    const int nen = rec->nen;
    double *shp = memNew(double, (int64_t) rec->nQuad * nen * 4), *shgl = shp + rec->nQuad * nen;
    for (int q = 0; q < rec->nQuad; ++q)
        tplShpAt(e->family, e->frame, rec->quadCrd + 3 * q, shp + q * nen, shgl + q * nen * 3);
    rec->shp = shp;
    rec->shgl = shgl;
}

/* A row with its shape tables. */
static tplRec *tabulated(int row)
{
    tplGetShpShgl(&catalogue.rows[row]);
    return &catalogue.rows[row];
}

/* Two arrays one after the other. */
static double *append(double *dest, const double *first, int nFirst, const double *second, int nSecond)
{
    sysCopyReals(first, dest, nFirst);
    sysCopyReals(second, dest + nFirst, nSecond);
    return dest + nFirst + nSecond;
}

/* The points of a rule and behind them the nodes with weight 0: sums over it are the rule's, and the shape functions
   are there at the nodes too. Record and arrays are one block. */
static tplRec *newComposite(const tplRec *base, const tplRec *nodes, int quadRule)
{
    const int b = base->nQuad, n = nodes->nQuad, nen = base->nen;
    const int64_t size = (int64_t) sizeof(tplRec) + memSize((b + n) * (4 + 4 * nen), sizeof(double));
    tplRec *rec = (tplRec *) memAlloc(size, __FILE__, __LINE__, 0);
    *rec = *base;
    rec->quadRule = quadRule;
    rec->nQuad = b + n;
    double *to = (double *) (rec + 1), *wgt = to;
    rec->quadWgt = to;
    to = append(to, base->quadWgt, b, nodes->quadWgt, n);
    for (int i = 0; i < n; ++i) wgt[b + i] *= 0.0;
    rec->quadCrd = to;
    to = append(to, base->quadCrd, 3 * b, nodes->quadCrd, 3 * n);
    rec->shp = to;
    to = append(to, base->shp, nen * b, nodes->shp, nen * n);
    rec->shgl = to;
    append(to, base->shgl, 3 * nen * b, nodes->shgl, 3 * nen * n);
    return rec;
}

tplRec *tplNew(int tplType, int quadRule)
{
    const int row = findRow(tplType, quadRule & ~WITH_NODES);
    tplRec *base = tabulated(row);
    /* the nodes are not put behind the nodes */
    if (!(quadRule & WITH_NODES) || quadRule == (WITH_NODES | NODES_RULE)) return base;
    const tplRec *nodes = tabulated(findRow(tplType, NODES_RULE));
    if (!objects[row]) objects[row] = newComposite(base, nodes, quadRule);
    return objects[row];
}

int tplGetBndTpl(int parentTpl, int srfType)
{
    static const struct { int parentTpl, srfType, bndTpl; } rows[] = {
        { 3, 1, 7 }, { 28, 1, 29 }, { 4, 1, 8 }, { 4, 2, 9 }, { 5, 1, 10 }, { 5, 2, 11 }, { 6, 2, 12 }, { 16, 15, 17 },
    };
    for (const auto &row : rows)
        if (row.parentTpl == parentTpl && row.srfType == srfType) return row.bndTpl;
    sysFail("Invalid parentTpl <%d> and srfType <%d> combination", parentTpl, srfType);
}
