#ifndef TPL_TPLQUAD_H
#define TPL_TPLQUAD_H

/* tplQuad.h: the named sets of quadrature points, all made by the compiler. Only tpl.cpp includes it.
 *
 * A set is made from a rule of a line, a triangle or a tetrahedron, by products and by laying it onto a face or an edge
 * of an element. Reference domains and what the weights of a set sum to:
 *
 *   line            x from -1 to 1                               2
 *   triangle        r, s from 0 to 2, r + s at most 2            2
 *   quadrilateral   r, s from -1 to 1                            4
 *   tetrahedron     r, s, t from 0 to 2, r + s + t at most 2     4/3
 *   pyramid         base r, s from -1 to 1 at t = 0, apex t = 2  8/3
 *   wedge           the triangle times t from -1 to 1            4
 *   hexahedron      r, s, t from -1 to 1                         8
 *   face or edge    its area or length inside the element
 *
 * Points of corner type stand in the order of the corners; other products run with r fastest. Every set integrates
 * all polynomials up to the degree in its comment; the tests hold them to it. */

/* N points: rows of r, s, t, and a weight for each */
template <int N> struct points {
    double crd[3 * N], wgt[N];
};

/* points as a topology row refers to them */
struct pointSet {
    int           n;
    const double *crd, *wgt;
};

template <int N> constexpr pointSet all(const points<N> &p) { return { N, p.crd, p.wgt }; }
template <int N> constexpr pointSet firstOf(const points<N> &p, int n) { return { n, p.crd, p.wgt }; }

/* The square root, for the compiler. */
constexpr double root(long double x)
{
    long double y = x > 1 ? x : 1;
    for (int i = 0; i < 100; ++i) y = (y + x / y) / 2;
    return (double) y;
}

template <int N> constexpr void setPoint(points<N> &p, int i, double r, double s, double t, double wgt)
{
    p.crd[3 * i] = r;
    p.crd[3 * i + 1] = s;
    p.crd[3 * i + 2] = t;
    p.wgt[i] = wgt;
}

/* The N points over and over, M in all. */
template <int M, int N> constexpr points<M> repeated(const points<N> &p)
{
    points<M> q{};
    for (int i = 0; i < M; ++i)
        setPoint(q, i, p.crd[3 * (i % N)], p.crd[3 * (i % N) + 1], p.crd[3 * (i % N) + 2], p.wgt[i % N]);
    return q;
}

/* -------------------------------------------------- lines ------------------------------------------------- */

template <int N> struct line {
    double x[N], w[N];
};

static constexpr double g2 = root(1.0L / 3), g3 = root(0.6L);
static constexpr double g4a = root(3.0L / 7 - 2.0L / 7 * root(1.2L)), g4b = root(3.0L / 7 + 2.0L / 7 * root(1.2L));
static constexpr double g5a = root(5 - 2 * root(10.0L / 7)) / 3, g5b = root(5 + 2 * root(10.0L / 7)) / 3;
static constexpr double w4 = (18 + root(30)) / 36, w5 = (322 + 13 * root(70)) / 900;

static constexpr line<1> gauss1 = { { 0 }, { 2 } };                                                   /* degree 1 */
static constexpr line<2> gauss2 = { { -g2, g2 }, { 1, 1 } };                                          /* degree 3 */
static constexpr line<3> gauss3 = { { -g3, 0, g3 }, { 5.0 / 9, 8.0 / 9, 5.0 / 9 } };                  /* degree 5 */
static constexpr line<4> gauss4 = { { -g4b, -g4a, g4a, g4b }, { 1 - w4, w4, w4, 1 - w4 } };           /* degree 7 */
static constexpr line<5> gauss5 = { { -g5b, -g5a, 0, g5a, g5b },                                      /* degree 9 */
                                    { (322 - 13 * root(70)) / 900, w5, 128.0 / 225, w5,
                                      (322 - 13 * root(70)) / 900 } };
static constexpr line<2> ends2 = { { -1, 1 }, { 1, 1 } };                                             /* degree 1 */
static constexpr line<3> ends3 = { { -1, 1, 0 }, { 1.0 / 3, 1.0 / 3, 4.0 / 3 } };        /* degree 3, middle last */

/* ----------------------------------------------- products ------------------------------------------------- */

/* the corners of a square in the order of its nodes, as positions in a line of two */
static constexpr int cornerX[4] = { 0, 1, 1, 0 }, cornerY[4] = { 0, 0, 1, 1 };

template <int N> constexpr points<N * N> square(const line<N> &l)
{
    points<N * N> p{};
    for (int i = 0; i < N * N; ++i) {
        const int x = N == 2 ? cornerX[i % 4] : i % N, y = N == 2 ? cornerY[i % 4] : i / N;
        setPoint(p, i, l.x[x], l.x[y], 0, l.w[x] * l.w[y]);
    }
    return p;
}

/* A plane set at each point of a line along t, the plane set fastest. */
template <int N, int M> constexpr points<N * M> product(const points<N> &plane, const line<M> &l)
{
    points<N * M> p{};
    for (int k = 0; k < M; ++k)
        for (int i = 0; i < N; ++i)
            setPoint(p, k * N + i, plane.crd[3 * i], plane.crd[3 * i + 1], l.x[k], plane.wgt[i] * l.w[k]);
    return p;
}

/* A set in the r, s plane laid into the element: origin, the directions of r and s, and the area for area 1. */
struct frame {
    double o[3], r[3], s[3], scale;
};

template <int N> constexpr points<N> onFace(const points<N> &p, const frame &f)
{
    points<N> q{};
    for (int i = 0; i < N; ++i) {
        for (int j = 0; j < 3; ++j) q.crd[3 * i + j] = f.o[j] + p.crd[3 * i] * f.r[j] + p.crd[3 * i + 1] * f.s[j];
        q.wgt[i] = p.wgt[i] * f.scale;
    }
    return q;
}

/* A line rule on the edge whose middle and half are given, with half the edge's length. */
struct edge {
    double middle[3], half[3], halfLength;
};

template <int N> constexpr points<N> onEdge(const line<N> &l, const edge &e)
{
    points<N> q{};
    for (int i = 0; i < N; ++i) {
        for (int j = 0; j < 3; ++j) q.crd[3 * i + j] = e.middle[j] + l.x[i] * e.half[j];
        q.wgt[i] = l.w[i] * e.halfLength;
    }
    return q;
}

/* ------------------------------------- triangles and tetrahedra ------------------------------------------- */

/* Symmetric rules are given by barycentric coordinates and by weights of a domain of size 1. */
template <int N> struct triangle {
    points<N> p{};
    int       n = 0;

    constexpr void add(double l1, double l2, double w) { setPoint(p, n++, 2 * l1, 2 * l2, 0, 2 * w); }
    constexpr triangle &centre(double w) { return add(1.0 / 3, 1.0 / 3, w), *this; }
    constexpr triangle &corners(double a, double w)         /* a, a, 1 - 2a; the different one at corner 0, 1, 2 */
    {
        return add(a, a, w), add(1 - 2 * a, a, w), add(a, 1 - 2 * a, w), *this;
    }
    constexpr triangle &middles(double w)                                   /* the middles of 01, 12, 20 */
    {
        return add(0.5, 0, w), add(0.5, 0.5, w), add(0, 0.5, w), *this;
    }
    constexpr triangle &six(double a, double b, double w)                   /* a, b, 1 - a - b in all orders */
    {
        const double c = 1 - a - b;
        return add(a, b, w), add(b, a, w), add(b, c, w), add(c, b, w), add(c, a, w), add(a, c, w), *this;
    }
};

template <int N> struct tetrahedron {
    points<N> p{};
    int       n = 0;

    constexpr void add(double l1, double l2, double l3, double w)
    {
        setPoint(p, n++, 2 * l1, 2 * l2, 2 * l3, w * 4 / 3);
    }
    constexpr tetrahedron &centre(double w) { return add(0.25, 0.25, 0.25, w), *this; }
    constexpr tetrahedron &corners(double a, double w)      /* a, a, a, 1 - 3a; the different one at 0, 1, 2, 3 */
    {
        const double b = 1 - 3 * a;
        return add(a, a, a, w), add(b, a, a, w), add(a, b, a, w), add(a, a, b, w), *this;
    }
    constexpr tetrahedron &edges(double a, double w)        /* a twice, 1/2 - a twice; a at 01, 12, 02, 03, 13, 23 */
    {
        const double b = 0.5 - a;
        add(a, b, b, w), add(a, a, b, w), add(b, a, b, w), add(b, b, a, w), add(a, b, a, w), add(b, a, a, w);
        return *this;
    }
    constexpr tetrahedron &twelve(double a, double b, double w)             /* a, a, b, 1 - 2a - b in all orders */
    {
        const double c = 1 - 2 * a - b;
        add(a, a, b, w), add(a, b, a, w), add(b, a, a, w);                  /* c at corner 0 */
        add(a, a, c, w), add(a, c, a, w), add(c, a, a, w);                  /* b at corner 0 */
        add(a, b, c, w), add(a, c, b, w), add(b, a, c, w), add(b, c, a, w), add(c, a, b, w), add(c, b, a, w);
        return *this;
    }
};

/* Most rules are published ones. tri9 and tet35 were solved for anew from the number and symmetry of their points, all
   inside and with positive weights, and came out as known ones. */
static constexpr points<1> tri1 = triangle<1>{}.centre(1).p;                                          /* degree 1 */
static constexpr points<3> tri3 = triangle<3>{}.corners(1.0 / 6, 1.0 / 3).p;                          /* degree 2 */
static constexpr points<6> tri6 = triangle<6>{}                                                       /* degree 4 */
    .corners((8 - root(10) + root(38 - 44 * root(0.4L))) / 18, (620 + root(213125 - 53320 * root(10))) / 3720)
    .corners((8 - root(10) - root(38 - 44 * root(0.4L))) / 18, (620 - root(213125 - 53320 * root(10))) / 3720).p;
static constexpr points<7> tri7 = triangle<7>{}                                                       /* degree 5 */
    .centre(9.0 / 40)
    .corners((6 + root(15)) / 21, (155 + root(15)) / 1200)
    .corners((6 - root(15)) / 21, (155 - root(15)) / 1200).p;
static constexpr points<9> tri9 = triangle<9>{}                                                       /* degree 5 */
    .corners(0.4375252483833838673252, 0.2059505047608866030118)
    .six(0.7971126518600708014174, 0.165409927389841422924, 0.06369141428622336516074).p;
static constexpr points<3> triNodes  = triangle<3>{}.corners(0, 1.0 / 3).p;                           /* degree 1 */
static constexpr points<6> tri6Nodes = triangle<6>{}.corners(0, 0).middles(1.0 / 3).p;                /* degree 2 */

static constexpr points<1> tet1 = tetrahedron<1>{}.centre(1).p;                                       /* degree 1 */
static constexpr points<4> tet4 = tetrahedron<4>{}.corners((5 - root(5)) / 20, 0.25).p;               /* degree 2 */
static constexpr points<14> tet14 = tetrahedron<14>{}                                                 /* degree 5 */
    .corners(0.3108859192633006097973, 0.1126879257180158507992)
    .corners(0.09273525031089122640232, 0.07349304311636194954371)
    .edges(0.04550370412564964949188, 0.04254602077708146643807).p;
static constexpr points<20> tet20 = tetrahedron<20>{}                                                 /* degree 5 */
    .corners(0.0323525947272439, 0.007067074794469467305896)
    .corners(0.3097693042728623958422, 0.1019369182898676764031)
    .twelve(0.06036044152514203574388, 0.2626825838877793877909, 0.04699866897188761876365).p;
static constexpr points<35> tet35 = tetrahedron<35>{}                                                 /* degree 7 */
    .centre(0.09548528946413084886058)
    .edges(0.05048982259839636876305, 0.03189692783285757993427)
    .corners(0.3157011497782027994234, 0.04232958120996702907629)
    .twelve(0.1888338310260010477364, 0.0471607003609978810439, 0.03720713072833462136962)
    .twelve(0.02126547254148324598884, 0.1466388138184849469042, 0.008110770829903341566103).p;
static constexpr points<4>  tetNodes    = tetrahedron<4>{}.corners(0, 0.25).p;                        /* degree 1 */
static constexpr points<5>  bubbleNodes = tetrahedron<5>{}.corners(0, 0.2).centre(0.2).p;             /* degree 1 */
/* the weights are the integrals of the quadratic shape functions */
static constexpr points<10> tet10Nodes  = tetrahedron<10>{}.corners(0, -0.05).edges(0.5, 0.2).p;      /* degree 2 */

/* ------------------------------------------------ pyramids ------------------------------------------------ */

struct pyramid13 {
    points<13> p{};
    int        n = 0;

    constexpr pyramid13 &axis(double t, double w) { return setPoint(p, n++, 0, 0, t, w), *this; }
    constexpr pyramid13 &corners(double a, double t, double w)
    {
        for (int i = 0; i < 4; ++i) setPoint(p, n++, cornerX[i] ? a : -a, cornerY[i] ? a : -a, t, w);
        return *this;
    }
    constexpr pyramid13 &middles(double a, double t, double w)
    {
        setPoint(p, n++, 0, -a, t, w), setPoint(p, n++, a, 0, t, w);
        return setPoint(p, n++, 0, a, t, w), setPoint(p, n++, -a, 0, t, w), *this;
    }
};

static constexpr double p5 = root(32.0L / 135);
static constexpr points<1>  pyr1 = { { 0, 0, 0.5 }, { 8.0 / 3 } };                                    /* degree 1 */
static constexpr points<5>  pyr5 = {                                                                  /* degree 2 */
    { -p5, -p5, 1.0 / 3,  p5, -p5, 1.0 / 3,  p5, p5, 1.0 / 3,  -p5, p5, 1.0 / 3,  0, 0, 1.4 },
    { 0.5625, 0.5625, 0.5625, 0.5625, 5.0 / 12 }
};
/* Solved numerically: of the rules of degree 4 with this symmetry, the one that comes nearest to degree 5. All points
   are inside and all weights positive. */
static constexpr points<13> pyr13 = pyramid13{}                                                       /* degree 4 */
    .corners(0.8323322395023782415814, 0.1926916277567091005385, 0.0606706947485550229058)
    .middles(0.6240780850710911462695, 0.1954499953451079353214, 0.334852618697682057734)
    .corners(0.317337523923473889226, 0.9044407026465147756313, 0.2591178386742113006129)
    .axis(1.816049989101093060881, 0.04810205818487314165576).p;
static constexpr points<5>  pyrNodes = {                                                              /* degree 1 */
    { -1, -1, 0,  1, -1, 0,  1, 1, 0,  -1, 1, 0,  0, 0, 2 }, { 0.5, 0.5, 0.5, 0.5, 2.0 / 3 }
};

/* ----------------------------------- quadrilaterals, wedges, hexahedra ------------------------------------ */

static constexpr points<1>  quad1     = square(gauss1);                                               /* degree 1 */
static constexpr points<4>  quad4     = square(gauss2);                                               /* degree 3 */
static constexpr points<9>  quad9     = square(gauss3);                                               /* degree 5 */
static constexpr points<16> quad16    = square(gauss4);                                               /* degree 7 */
static constexpr points<4>  quadNodes = square(ends2);                                                /* degree 1 */
static constexpr points<2>  quad2r    = { { -g2, 0, 0,  g2, 0, 0 }, { 2, 2 } };          /* degree 1, in r alone 3 */
static constexpr points<2>  quad2s    = { { 0, -g2, 0,  0, g2, 0 }, { 2, 2 } };          /* degree 1, in s alone 3 */

static constexpr points<1>  wedge1     = product(tri1, gauss1);                                       /* degree 1 */
static constexpr points<2>  wedge2     = product(tri1, gauss2);                          /* degree 1, in t alone 3 */
static constexpr points<6>  wedge6     = product(tri3, gauss2);                                       /* degree 2 */
static constexpr points<18> wedge18    = product(tri6, gauss3);                                       /* degree 4 */
static constexpr points<28> wedge28    = product(tri7, gauss4);                                       /* degree 5 */
static constexpr points<6>  wedgeNodes = product(triNodes, ends2);                                    /* degree 1 */

static constexpr points<1>  hex1     = product(quad1, gauss1);                                        /* degree 1 */
static constexpr points<4>  hex4     = product(quad4, gauss1);                         /* degree 1, in r and s 3 */
static constexpr points<8>  hex8     = product(quad4, gauss2);                                        /* degree 3 */
static constexpr points<27> hex27    = product(quad9, gauss3);                                        /* degree 5 */
static constexpr points<64> hex64    = product(quad16, gauss4);                                       /* degree 7 */
static constexpr points<8>  hexNodes = product(quadNodes, ends2);                                     /* degree 1 */

/* ------------------------------------------ on faces and edges -------------------------------------------- */

/* Some rows take more points from a set than its rule has, or fewer. Their weights do not sum to the measure, which
   nobody asks of them; the points are there again so that the rows stay within the set. */
static constexpr points<7>  tri3Again  = repeated<7>(tri3);
static constexpr points<16> quad4Again = repeated<16>(quad4);

/* the pyramid's face of nodes 0, 1, 4; the wedge's of 0, 1, 2 and of 0, 1, 4, 3; the hexahedron's of 0, 1, 2, 3 */
static constexpr frame pyrTri    = { { -1, -1, 0 }, { 1, 0, 0 }, { 0.5, 0.5, 1 }, root(5) / 2 };
static constexpr frame wedgeTri  = { { 0, 0, -1 },  { 1, 0, 0 }, { 0, 1, 0 },     1 };
static constexpr frame wedgeQuad = { { 1, 0, 0 },   { 1, 0, 0 }, { 0, 0, 1 },     1 };
static constexpr frame hexQuad   = { { 0, 0, -1 },  { 1, 0, 0 }, { 0, 1, 0 },     1 };

template <int N> constexpr auto onPyrTri(const points<N> &p)    { return onFace(p, pyrTri); }
template <int N> constexpr auto onWedgeTri(const points<N> &p)  { return onFace(p, wedgeTri); }
template <int N> constexpr auto onWedgeQuad(const points<N> &p) { return onFace(p, wedgeQuad); }
template <int N> constexpr auto onHexQuad(const points<N> &p)   { return onFace(p, hexQuad); }

static constexpr auto pyrTri1 = onPyrTri(tri1), wedgeTri1 = onWedgeTri(tri1);
static constexpr auto pyrTri3 = onPyrTri(tri3), wedgeTri3 = onWedgeTri(tri3);
static constexpr auto pyrTri6 = onPyrTri(tri6);
static constexpr auto wedgeTri7 = onWedgeTri(tri7);
static constexpr auto pyrTriNodes = onPyrTri(triNodes), wedgeTriNodes = onWedgeTri(triNodes);

static constexpr auto wedgeQuad1 = onWedgeQuad(quad1), hexQuad1 = onHexQuad(quad1);
static constexpr auto wedgeQuad2 = onWedgeQuad(quad2s), hexQuad2 = onHexQuad(quad2r);
static constexpr auto wedgeQuad4 = onWedgeQuad(quad4), hexQuad4 = onHexQuad(quad4);
static constexpr auto wedgeQuad9 = onWedgeQuad(quad9), hexQuad9 = onHexQuad(quad9);
static constexpr auto wedgeQuad16 = onWedgeQuad(quad16), hexQuad16 = onHexQuad(quad16);
static constexpr auto wedgeQuadNodes = onWedgeQuad(quadNodes), hexQuadNodes = onHexQuad(quadNodes);

/* Edges, named by the first element that has one there, with the nodes that they run between. */
template <int N> constexpr auto onTet01(const line<N> &l)
{
    return onEdge(l, { { 1, 0, 0 }, { 1, 0, 0 }, 1 });
}
template <int N> constexpr auto onPyr01(const line<N> &l)
{
    return onEdge(l, { { 0, -1, 0 }, { 1, 0, 0 }, 1 });
}
template <int N> constexpr auto onPyr04(const line<N> &l)
{
    return onEdge(l, { { -0.5, -0.5, 1 }, { 0.5, 0.5, 1 }, root(1.5L) });
}
template <int N> constexpr auto onPyr41(const line<N> &l)
{
    return onEdge(l, { { 0.5, -0.5, 1 }, { 0.5, -0.5, -1 }, root(1.5L) });
}
template <int N> constexpr auto onWedge01(const line<N> &l)
{
    return onEdge(l, { { 1, 0, -1 }, { 1, 0, 0 }, 1 });
}
template <int N> constexpr auto onWedge03(const line<N> &l)
{
    return onEdge(l, { { 0, 0, 0 }, { 0, 0, 1 }, 1 });
}
template <int N> constexpr auto onHex01(const line<N> &l)
{
    return onEdge(l, { { 0, -1, -1 }, { 1, 0, 0 }, 1 });
}

static constexpr auto tet01_1 = onTet01(gauss1);
static constexpr auto tet01_2 = onTet01(gauss2);
static constexpr auto tet01_3 = onTet01(gauss3);
static constexpr auto tet01_4 = onTet01(gauss4);
static constexpr auto tet01_5 = onTet01(gauss5);
static constexpr auto tet01Nodes = onTet01(ends2);
static constexpr auto tet01Nodes3 = onTet01(ends3);

static constexpr auto pyr01_1 = onPyr01(gauss1), pyr04_1 = onPyr04(gauss1), pyr41_1 = onPyr41(gauss1);
static constexpr auto pyr01_2 = onPyr01(gauss2), pyr04_2 = onPyr04(gauss2), pyr41_2 = onPyr41(gauss2);
static constexpr auto pyr01Nodes = onPyr01(ends2), pyr04Nodes = onPyr04(ends2), pyr41Nodes = onPyr41(ends2);
static constexpr auto pyr01_2Again = repeated<4>(pyr01_2);

static constexpr auto wedge01_1 = onWedge01(gauss1), wedge03_1 = onWedge03(gauss1), hex01_1 = onHex01(gauss1);
static constexpr auto wedge01_2 = onWedge01(gauss2), wedge03_2 = onWedge03(gauss2), hex01_2 = onHex01(gauss2);
static constexpr auto wedge01_3 = onWedge01(gauss3), wedge03_3 = onWedge03(gauss3), hex01_3 = onHex01(gauss3);
static constexpr auto wedge01_4 = onWedge01(gauss4), wedge03_4 = onWedge03(gauss4), hex01_4 = onHex01(gauss4);
static constexpr auto wedge01Nodes = onWedge01(ends2), wedge03Nodes = onWedge03(ends2), hex01Nodes = onHex01(ends2);

#endif
