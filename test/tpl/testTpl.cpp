/* testTpl.cpp: the catalogue of topologies: every row's points, shape functions and faces. */

#include <math.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <vector>

#include "base/mem.h"
#include "test/testUtil.h"
#include "tpl/tplInt.h"

typedef std::array<double, 3> vec;

/* ------------------------------------------- what there should be ----------------------------------------- */

enum Shape { TRI, QUAD, TET, PYR, WEDGE, HEX, TET10, BUBBLE };

static const std::vector<vec> nodesOf[] = {
    { { 0, 0, 0 }, { 2, 0, 0 }, { 0, 2, 0 } },
    { { -1, -1, 0 }, { 1, -1, 0 }, { 1, 1, 0 }, { -1, 1, 0 } },
    { { 0, 0, 0 }, { 2, 0, 0 }, { 0, 2, 0 }, { 0, 0, 2 } },
    { { -1, -1, 0 }, { 1, -1, 0 }, { 1, 1, 0 }, { -1, 1, 0 }, { 0, 0, 2 } },
    { { 0, 0, -1 }, { 2, 0, -1 }, { 0, 2, -1 }, { 0, 0, 1 }, { 2, 0, 1 }, { 0, 2, 1 } },
    { { -1, -1, -1 }, { 1, -1, -1 }, { 1, 1, -1 }, { -1, 1, -1 },
      { -1, -1, 1 }, { 1, -1, 1 }, { 1, 1, 1 }, { -1, 1, 1 } },
    { { 0, 0, 0 }, { 2, 0, 0 }, { 0, 2, 0 }, { 0, 0, 2 },
      { 1, 0, 0 }, { 1, 1, 0 }, { 0, 1, 0 }, { 0, 0, 1 }, { 1, 0, 1 }, { 0, 1, 1 } },
    { { 0, 0, 0 }, { 2, 0, 0 }, { 0, 2, 0 }, { 0, 0, 2 }, { 0.5, 0.5, 0.5 } },
};

/* A code's element, and the corners of what its points lie on: all of it, a face (three or four corners) or an edge
   (two). For each rule the number of points and the degree up to which they are exact; X: not even a constant. */
enum { X = -1 };
static const struct Row {
    int              code;
    Shape            shape;
    int              nShp, nSrfs;
    std::vector<int> corners;                       /* empty: the whole element */
    int              nQuad[7], degree[7];
} rows[] = {
    { 1,  TRI,    3,  0, {},             { 3, 1, 3, 0, 6, 7, 1 },      { 2, 1, 1, 0, X, X, 1 } },
    { 2,  QUAD,   4,  0, {},             { 4, 4, 4, 0, 9, 16, 1 },     { 3, 3, 1, 0, X, X, 1 } },
    { 3,  TET,    4,  4, {},             { 4, 1, 4, 4, 14, 20, 1 },    { 2, 1, 1, 2, 5, 5, 1 } },
    { 4,  PYR,    5,  5, {},             { 5, 1, 5, 5, 13, 13, 1 },    { 2, 1, 1, 2, 4, 4, 1 } },
    { 5,  WEDGE,  6,  5, {},             { 6, 2, 6, 1, 18, 28, 1 },    { 2, 1, 1, 1, 4, 5, 1 } },
    { 6,  HEX,    8,  6, {},             { 8, 8, 8, 4, 27, 64, 1 },    { 3, 3, 1, 1, 5, 7, 1 } },
    { 7,  TET,    4,  1, { 0, 1, 2 },    { 3, 1, 3, 3, 6, 7, 1 },      { 2, 1, 1, 2, 4, 5, 1 } },
    { 8,  PYR,    5,  1, { 0, 1, 4 },    { 3, 1, 3, 3, 6, 6, 1 },      { 2, 1, 1, 2, 4, 4, 1 } },
    { 9,  PYR,    5,  1, { 0, 1, 2, 3 }, { 4, 1, 4, 4, 9, 16, 1 },     { 3, 1, 1, 3, X, X, 1 } },
    { 10, WEDGE,  6,  1, { 0, 1, 2 },    { 3, 1, 3, 1, 7, 7, 1 },      { 2, 1, 1, 1, 5, 5, 1 } },
    { 11, WEDGE,  6,  1, { 0, 1, 4, 3 }, { 4, 2, 4, 1, 9, 16, 1 },     { 3, 1, 1, 1, 5, 7, 1 } },
    { 12, HEX,    8,  1, { 0, 1, 2, 3 }, { 4, 4, 4, 2, 9, 16, 1 },     { 3, 3, 1, 1, 5, 7, 1 } },
    { 16, TET10,  10, 4, {},             { 14, 4, 10, 14, 20, 35, 1 }, { 5, 2, 2, 5, 5, 7, 1 } },
    { 17, TET10,  10, 1, { 0, 1, 2 },    { 6, 3, 6, 6, 7, 9, 1 },      { 4, 2, 2, 4, 5, 5, 1 } },
    { 18, TET,    4,  1, { 0, 1 },       { 2, 1, 2, 2, 3, 4, 1 },      { 3, 1, 1, 3, 5, 7, 1 } },
    { 19, PYR,    5,  1, { 0, 1 },       { 2, 1, 2, 2, 2, 2, 1 },      { 3, 1, 1, 3, 3, 3, 1 } },
    { 20, PYR,    5,  1, { 0, 4 },       { 2, 1, 2, 2, 2, 2, 1 },      { 3, 1, 1, 3, 3, 3, 1 } },
    { 21, PYR,    5,  1, { 4, 1 },       { 2, 1, 2, 2, 2, 2, 1 },      { 3, 1, 1, 3, 3, 3, 1 } },
    { 22, PYR,    5,  1, { 0, 1 },       { 2, 1, 2, 2, 3, 4, 1 },      { 3, 1, 1, 3, X, X, 1 } },
    { 23, WEDGE,  6,  1, { 0, 1 },       { 2, 1, 2, 1, 3, 4, 1 },      { 3, 1, 1, 1, 5, 7, 1 } },
    { 24, WEDGE,  6,  1, { 0, 1 },       { 2, 1, 2, 1, 3, 4, 1 },      { 3, 1, 1, 1, 5, 7, 1 } },
    { 25, WEDGE,  6,  1, { 0, 3 },       { 2, 1, 2, 1, 3, 4, 1 },      { 3, 1, 1, 1, 5, 7, 1 } },
    { 26, HEX,    8,  1, { 0, 1 },       { 2, 2, 2, 2, 3, 4, 1 },      { 3, 3, 1, 3, 5, 7, 1 } },
    { 27, TET10,  4,  1, { 0, 1 },       { 3, 2, 3, 3, 4, 5, 1 },      { 5, 3, 3, 5, 7, 9, 1 } },
    { 28, BUBBLE, 4,  4, {},             { 4, 1, 5, 4, 14, 20, 1 },    { 2, X, 1, 2, 5, 5, 1 } },
    { 29, BUBBLE, 4,  1, { 0, 1, 2 },    { 3, 1, 3, 3, 6, 7, 1 },      { 2, X, 1, 2, 4, 5, 1 } },
    { 30, BUBBLE, 4,  1, { 0, 1 },       { 2, 1, 2, 2, 3, 4, 1 },      { 3, X, 1, 3, 5, 7, 1 } },
};

static const tplRec *findRow(int code, int rule)
{
    for (const tplRec *rec = tplCatalogue(); rec->tplType; ++rec)
        if (rec->tplType == code && rec->quadRule == rule) return rec;
    return nullptr;
}

/* Runs f(row, rule, record) for every row of the catalogue that should be there. */
template <class F> static void forAll(F f)
{
    for (const Row &row : rows)
        for (int rule = 1; rule <= 7; ++rule) {
            if (!row.nQuad[rule - 1]) continue;
            SCOPED_TRACE(testing::Message() << "code " << row.code << " rule " << rule);
            const tplRec *rec = findRow(row.code, rule);
            ASSERT_NE(rec, nullptr);
            f(row, rule, rec);
        }
}

/* The same for the rows that an object can be made of, with the object. */
template <class F> static void forObjects(F f)
{
    forAll([&](const Row &row, int rule, const tplRec *) {
        if (row.code > 2) f(row, rule, tplNew(row.code, rule));
    });
}

static vec at(const tplRec *rec, int q)
{
    return { rec->quadCrd[3 * q], rec->quadCrd[3 * q + 1], rec->quadCrd[3 * q + 2] };
}

/* ------------------------------------------------- the rows ----------------------------------------------- */

TEST(tpl, thereAre187Rows)
{
    std::set<std::pair<int, int>> found;
    for (const tplRec *rec = tplCatalogue(); rec->tplType; ++rec) found.insert({ rec->tplType, rec->quadRule });
    EXPECT_EQ(found.size(), 187u);
    int n = 0;
    const tplRec *next = tplCatalogue();                /* in the order of codes and rules */
    forAll([&](const Row &row, int rule, const tplRec *rec) {
        ++n;
        EXPECT_EQ(rec, next++);
        EXPECT_EQ(rec->nQuad, row.nQuad[rule - 1]);
        EXPECT_EQ(rec->nen, (int) nodesOf[row.shape].size());
        EXPECT_EQ(rec->nShp, row.nShp);
        EXPECT_EQ(rec->nSrfs, row.nSrfs);
        EXPECT_EQ(rec->srfTbl == nullptr, row.nSrfs == 0);
    });
    EXPECT_EQ(n, 187);
}

TEST(tpl, pairsThatAreNotThere)
{
    for (int code = -2; code <= 40; ++code)
        for (int rule = -2; rule <= 9; ++rule) {
            if (findRow(code, rule)) continue;
            const std::string pair = "<" + std::to_string(code) + "/" + std::to_string(rule & ~0x100) + ">";
            checkFails("Topology not found " + pair, tplNew(code, rule));
            checkFails("Topology not found " + pair, tplNew(code, rule | 0x100));
        }
    checkFails("in Function <tplNew>", tplNew(3, 8));
    checkFails("Topology not found <3/8>", tplNew(3, 8));
    checkFails("Topology not found <0/0>", tplNew(0, 0));               /* the end of the catalogue is no row */
    checkFails("Topology not found <3/513>", tplNew(3, 0x201));
    checkFails("Topology not found <1/4>", tplNew(1, 4));
    checkFails("Topology not found <13/1>", tplNew(13, 1));
}

TEST(tpl, surfacesHavePointsButNoTables)
{
    EXPECT_NE(findRow(1, 5), nullptr);
    checkFails("toloplogy not recognized <1>", tplNew(1, 5));
    checkFails("in Function <tplGetShpShgl>", tplNew(1, 5));
    checkFails("toloplogy not recognized <2>", tplNew(2, 1));
    checkFails("toloplogy not recognized <1>", tplNew(1, 0x101));
    EXPECT_EQ(findRow(1, 5)->shp, nullptr);
    for (int code : { 0, 13, 14, 15, 31, -1 }) {
        tplRec rec = *findRow(3, 1);
        rec.tplType = code;
        rec.shp = nullptr;
        checkFails("toloplogy not recognized <" + std::to_string(code) + ">", tplGetShpShgl(&rec));
    }
}

TEST(tpl, anObjectIsMadeOnce)
{
    forObjects([](const Row &row, int rule, const tplRec *rec) {
        const uint64_t before = memAllocated;
        EXPECT_EQ(tplNew(row.code, rule), rec);
        EXPECT_EQ(memAllocated, before);
    });
}

TEST(tpl, commonObjectsNeedNoBuilding)
{
    const uint64_t before = memAllocated;
    tplRec *hex = tplNew(6, 1);
    EXPECT_EQ(tplNew(6, 1), hex);
    for (int code : { 3, 4, 5, 6, 16, 28 })
        for (int rule : { 1, 2 }) EXPECT_NE(tplNew(code, rule)->shp, nullptr);
    for (int code : { 7, 8, 9, 10, 11, 12, 17, 29 }) EXPECT_NE(tplNew(code, 1)->shp, nullptr);
    EXPECT_EQ(memAllocated, before);
}

/* ------------------------------------------------- points ------------------------------------------------- */

struct Telling {
    int code, rule;
    std::vector<std::array<double, 4>> points;          /* r, s, t, weight, as printed */
};

TEST(tpl, pointsAsPrinted)
{
    const double a = 0.2763932, b = 1.1708204, g = 0.57735027, p = 0.4868645, w = 0.74535599;
    const double o = 1.0 / 3, oo = 2 * o, iv = 4 * o;
    const std::vector<Telling> tellings = {
        { 3, 1, { { a, a, a, o }, { b, a, a, o }, { a, b, a, o }, { a, a, b, o } } },
        { 3, 2, { { 0.5, 0.5, 0.5, iv } } },
        { 3, 7, { { 0.5, 0.5, 0.5, iv } } },
        { 3, 3, { { 0, 0, 0, o }, { 2, 0, 0, o }, { 0, 2, 0, o }, { 0, 0, 2, o } } },
        { 28, 3, { { 0, 0, 0, 4. / 15 }, { 2, 0, 0, 4. / 15 }, { 0, 2, 0, 4. / 15 }, { 0, 0, 2, 4. / 15 },
                   { 0.5, 0.5, 0.5, 4. / 15 } } },
        { 4, 1, { { -p, -p, o, 0.5625 }, { p, -p, o, 0.5625 }, { p, p, o, 0.5625 }, { -p, p, o, 0.5625 },
                  { 0, 0, 1.4, 0.4166667 } } },
        { 4, 3, { { -1, -1, 0, 0.5 }, { 1, -1, 0, 0.5 }, { 1, 1, 0, 0.5 }, { -1, 1, 0, 0.5 }, { 0, 0, 2, oo } } },
        { 5, 1, { { o, o, -g, oo }, { iv, o, -g, oo }, { o, iv, -g, oo },
                  { o, o, g, oo }, { iv, o, g, oo }, { o, iv, g, oo } } },
        { 5, 2, { { oo, oo, -g, 2 }, { oo, oo, g, 2 } } },
        { 6, 1, { { -g, -g, -g, 1 }, { g, -g, -g, 1 }, { g, g, -g, 1 }, { -g, g, -g, 1 },
                  { -g, -g, g, 1 }, { g, -g, g, 1 }, { g, g, g, 1 }, { -g, g, g, 1 } } },
        { 6, 2, { { -g, -g, -g, 1 }, { g, -g, -g, 1 }, { g, g, -g, 1 }, { -g, g, -g, 1 },
                  { -g, -g, g, 1 }, { g, -g, g, 1 }, { g, g, g, 1 }, { -g, g, g, 1 } } },
        { 6, 4, { { -g, -g, 0, 2 }, { g, -g, 0, 2 }, { g, g, 0, 2 }, { -g, g, 0, 2 } } },
        { 7, 1, { { o, o, 0, oo }, { iv, o, 0, oo }, { o, iv, 0, oo } } },
        { 8, 1, { { -0.5, -5. / 6, o, w }, { 0.5, -5. / 6, o, w }, { 0, -o, iv, w } } },
    };
    for (const Telling &t : tellings) {
        SCOPED_TRACE(testing::Message() << t.code << "/" << t.rule);
        const tplRec *rec = findRow(t.code, t.rule);
        ASSERT_EQ(rec->nQuad, (int) t.points.size());
        for (int q = 0; q < rec->nQuad; ++q) {
            for (int j = 0; j < 3; ++j) EXPECT_NEAR(rec->quadCrd[3 * q + j], t.points[q][j], 5e-8) << q << " " << j;
            EXPECT_NEAR(rec->quadWgt[q], t.points[q][3], 5e-8) << q;
        }
    }
}

/* seven digits are only how the constants are shown */
TEST(tpl, pointsInFullPrecision)
{
    EXPECT_DOUBLE_EQ(findRow(3, 1)->quadCrd[0], (5 - sqrt(5)) / 10);
    EXPECT_DOUBLE_EQ(findRow(3, 1)->quadCrd[3], (5 + 3 * sqrt(5)) / 10);
    EXPECT_DOUBLE_EQ(findRow(4, 1)->quadCrd[3], sqrt(32. / 135));
    EXPECT_DOUBLE_EQ(findRow(4, 1)->quadWgt[4], 5. / 12);
    EXPECT_DOUBLE_EQ(findRow(6, 1)->quadCrd[3], sqrt(1. / 3));
    EXPECT_DOUBLE_EQ(findRow(8, 1)->quadWgt[0], sqrt(5) / 3);
}

/* Points and weights of the Gauss rule of 12 points, degree 23, by Newton's method. */
static const std::vector<std::pair<double, double>> &gauss()
{
    static std::vector<std::pair<double, double>> rule;
    const int n = 12;
    for (int i = 0; (int) rule.size() < n; ++i) {
        double x = cos(M_PI * (i + 0.75) / (n + 0.5)), slope = 0;
        for (int step = 0; step < 50; ++step) {
            double p0 = 1, p1 = x;
            for (int k = 2; k <= n; ++k) {
                const double p2 = ((2 * k - 1) * x * p1 - (k - 1) * p0) / k;
                p0 = p1;
                p1 = p2;
            }
            slope = n * (x * p1 - p0) / (x * x - 1);
            x -= p1 / slope;
        }
        rule.push_back({ x, 2 / ((1 - x * x) * slope * slope) });
    }
    return rule;
}

typedef std::function<double(const vec &)> function;

/* The point of a domain that belongs to (u, v, w) in the unit cube; the cube collapses where the domain comes to a
   point. */
static vec collapse(const Row &row, const std::vector<vec> &corner, double u, double v, double w)
{
    auto mix = [](const vec &a, const vec &b, double f) {
        return vec{ a[0] + f * (b[0] - a[0]), a[1] + f * (b[1] - a[1]), a[2] + f * (b[2] - a[2]) };
    };
    auto tri  = [&](int a, int b, int c) { return mix(corner[a], mix(corner[b], corner[c], v), u); };
    auto quad = [&](int a, int b, int c, int d) {
        return mix(mix(corner[a], corner[b], u), mix(corner[d], corner[c], u), v);
    };
    if (corner.size() == 2) return mix(corner[0], corner[1], u);
    if (corner.size() == 3) return tri(0, 1, 2);
    if (!row.corners.empty() || row.shape == QUAD) return quad(0, 1, 2, 3);
    switch (row.shape) {
    case WEDGE: return mix(tri(0, 1, 2), tri(3, 4, 5), w);
    case HEX:   return mix(quad(0, 1, 2, 3), quad(4, 5, 6, 7), w);
    case PYR:   return mix(corner[4], quad(0, 1, 2, 3), w);
    default:    return mix(corner[3], tri(0, 1, 2), w);
    }
}

/* The integral of f over the domain of a row, by the Gauss rule on the collapsed cube. */
static double integral(const Row &row, const function &f)
{
    std::vector<vec> corner;
    if (row.corners.empty()) corner = nodesOf[row.shape];
    else for (int c : row.corners) corner.push_back(nodesOf[row.shape][c]);
    const int dim = corner.size() == 2 ? 1 : row.corners.empty() && row.shape > QUAD ? 3 : 2;
    double sum = 0;
    for (const auto &[x, wx] : gauss())
        for (const auto &[y, wy] : gauss())
            for (const auto &[z, wz] : gauss()) {
                if (dim < 2 && &y != &gauss()[0].first) continue;
                if (dim < 3 && &z != &gauss()[0].first) continue;
                const double u = (1 + x) / 2, v = (1 + y) / 2, w = (1 + z) / 2, h = 0.25;
                /* the map is linear in each of u, v, w, so differences give its derivatives exactly */
                vec d[3];
                for (int k = 0; k < 3; ++k) {
                    const vec a = collapse(row, corner, u + (k == 0) * h, v + (k == 1) * h, w + (k == 2) * h);
                    const vec b = collapse(row, corner, u - (k == 0) * h, v - (k == 1) * h, w - (k == 2) * h);
                    for (int j = 0; j < 3; ++j) d[k][j] = (a[j] - b[j]) / (2 * h);
                }
                const vec n = { d[0][1] * d[1][2] - d[0][2] * d[1][1], d[0][2] * d[1][0] - d[0][0] * d[1][2],
                                d[0][0] * d[1][1] - d[0][1] * d[1][0] };
                const double size = dim == 1 ? sqrt(d[0][0] * d[0][0] + d[0][1] * d[0][1] + d[0][2] * d[0][2])
                                  : dim == 2 ? sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2])
                                  : fabs(n[0] * d[2][0] + n[1] * d[2][1] + n[2] * d[2][2]);
                const double weight = wx / 2 * (dim > 1 ? wy / 2 : 1) * (dim > 2 ? wz / 2 : 1);
                sum += weight * size * f(collapse(row, corner, u, v, w));
            }
    return sum;
}

static double powers(const vec &x, int i, int j, int k)
{
    return pow(x[0], i) * pow(x[1], j) * pow(x[2], k);
}

static double bySum(const tplRec *rec, int i, int j, int k)
{
    double sum = 0;
    for (int q = 0; q < rec->nQuad; ++q) sum += rec->quadWgt[q] * powers(at(rec, q), i, j, k);
    return sum;
}

/* The greatest error over all r^i s^j t^k of a degree. */
static double worst(const Row &row, const tplRec *rec, int degree)
{
    static std::map<std::array<int, 4>, double> exact;
    double error = 0;
    for (int i = 0; i <= degree; ++i)
        for (int j = 0; i + j <= degree; ++j) {
            const int k = degree - i - j;
            auto [it, isNew] = exact.insert({ { row.code, i, j, k }, 0 });
            if (isNew) it->second = integral(row, [=](const vec &x) { return powers(x, i, j, k); });
            error = std::max(error, fabs(bySum(rec, i, j, k) - it->second));
        }
    return error;
}

/* the sizes of what the points lie on, by the rows above */
static const double sizes[] = {
    2, 4, 4. / 3, 8. / 3, 4, 8,                         /* elements 1 to 6              */
    2, sqrt(5), 4, 2, 4, 4,                             /* faces 7 to 12                */
    4. / 3, 2,                                          /* 16, 17                       */
    2, 2, sqrt(6), sqrt(6), 2, 2, 2, 2, 2, 2,           /* edges 18 to 27               */
    4. / 3, 2, 2,                                       /* 28 to 30                     */
};

TEST(tpl, theTestsOwnIntegrals)
{
    static_assert(std::size(sizes) == std::size(rows), "one size for each code");
    for (size_t i = 0; i < std::size(rows); ++i)
        EXPECT_NEAR(integral(rows[i], [](const vec &) { return 1.0; }), sizes[i], 1e-13) << rows[i].code;
    /* r^2 t of the tetrahedron: 2^6 2! 1! / 6! */
    EXPECT_NEAR(integral(rows[2], [](const vec &x) { return x[0] * x[0] * x[2]; }), 64. * 2 / 720, 1e-14);
}

TEST(tpl, weightsSumToTheSize)
{
    forAll([](const Row &row, int rule, const tplRec *rec) {
        if (row.degree[rule - 1] == X) return;
        EXPECT_NEAR(bySum(rec, 0, 0, 0), sizes[&row - rows], 1e-14);
    });
}

/* Each rule integrates every polynomial of its degree, and not all of the next. Degree 0 is the size of the domain. */
TEST(tpl, rulesReachTheirDegree)
{
    forAll([](const Row &row, int rule, const tplRec *rec) {
        const int degree = row.degree[rule - 1];
        if (degree == X) return;
        for (int d = 0; d <= degree; ++d) EXPECT_LT(worst(row, rec, d), 1e-13 * (1 << d)) << "degree " << d;
        EXPECT_GT(worst(row, rec, degree + 1), 1e-5);
    });
}

/* These rows take points from rule 1 of their element, more or fewer than that has. */
TEST(tpl, rowsThatShareTheStandardPoints)
{
    int n = 0;
    forAll([&](const Row &row, int rule, const tplRec *rec) {
        if (row.degree[rule - 1] != X) return;
        ++n;
        const tplRec *standard = findRow(row.code, 1);
        EXPECT_EQ(rec->quadCrd, standard->quadCrd);
        EXPECT_EQ(rec->quadWgt, standard->quadWgt);
        EXPECT_NE(rec->nQuad, standard->nQuad);
        EXPECT_GT(worst(row, rec, 0), 0.1);
        for (int q = 0; q < rec->nQuad; ++q) EXPECT_EQ(at(rec, q), at(rec, q % standard->nQuad));
    });
    EXPECT_EQ(n, 11);
}

TEST(tpl, rowsOfOneSetShareTheirPoints)
{
    static const int pairs[][4] = {
        { 3, 1, 3, 4 }, { 3, 2, 3, 7 }, { 4, 5, 4, 6 }, { 6, 1, 6, 2 }, { 16, 2, 3, 1 }, { 16, 1, 3, 5 },
        { 28, 1, 3, 1 },
        { 29, 1, 7, 1 }, { 17, 1, 7, 5 }, { 19, 5, 19, 1 }, { 26, 2, 26, 1 }, { 5, 4, 5, 7 }, { 10, 5, 10, 6 },
    };
    for (const auto &p : pairs)
        EXPECT_EQ(findRow(p[0], p[1])->quadCrd, findRow(p[2], p[3])->quadCrd) << p[0] << "/" << p[1];
}

TEST(tpl, rule3IsAtTheNodesInTheirOrder)
{
    static const std::map<int, std::vector<int>> faces = {
        { 7, { 0, 1, 2 } }, { 8, { 0, 1, 4 } }, { 9, { 0, 1, 2, 3 } }, { 10, { 0, 1, 2 } }, { 11, { 0, 1, 4, 3 } },
        { 12, { 0, 1, 2, 3 } }, { 17, { 0, 1, 2, 4, 5, 6 } }, { 18, { 0, 1 } }, { 19, { 0, 1 } }, { 20, { 0, 4 } },
        { 21, { 4, 1 } }, { 22, { 0, 1 } }, { 23, { 0, 1 } }, { 24, { 0, 1 } }, { 25, { 0, 3 } }, { 26, { 0, 1 } },
        { 27, { 0, 1, 4 } }, { 29, { 0, 1, 2 } }, { 30, { 0, 1 } },
    };
    forAll([&](const Row &row, int rule, const tplRec *rec) {
        if (rule != 3) return;
        for (int q = 0; q < rec->nQuad; ++q)
            EXPECT_EQ(at(rec, q), nodesOf[row.shape][faces.count(row.code) ? faces.at(row.code)[q] : q]) << q;
    });
}

/* No rule has a point outside its element, nor a weight that is not positive, except at the nodes. */
TEST(tpl, pointsAreInside)
{
    forAll([](const Row &row, int rule, const tplRec *rec) {
        for (int q = 0; q < rec->nQuad; ++q) {
            const vec x = at(rec, q);
            const double e = 1e-14, h = 1 - x[2] / 2;
            EXPECT_TRUE(rule == 3 || rec->quadWgt[q] > 0);
            switch (row.shape) {
            case TRI:   EXPECT_TRUE(x[0] > -e && x[1] > -e && x[0] + x[1] < 2 + e && x[2] == 0); break;
            case QUAD:  EXPECT_TRUE(fabs(x[0]) < 1 + e && fabs(x[1]) < 1 + e && x[2] == 0); break;
            case WEDGE: EXPECT_TRUE(x[0] > -e && x[1] > -e && x[0] + x[1] < 2 + e && fabs(x[2]) < 1 + e); break;
            case HEX:   EXPECT_TRUE(fabs(x[0]) < 1 + e && fabs(x[1]) < 1 + e && fabs(x[2]) < 1 + e); break;
            case PYR:   EXPECT_TRUE(fabs(x[0]) < h + e && fabs(x[1]) < h + e && x[2] > -e && h > -e); break;
            default:    EXPECT_TRUE(x[0] > -e && x[1] > -e && x[2] > -e && x[0] + x[1] + x[2] < 2 + e);
            }
        }
    });
}

/* --------------------------------------------- shape functions -------------------------------------------- */

/* The shape tables of a code at one point, freshly built. */
struct Shapes {
    std::vector<double> shp, shgl;
    Shapes(int code, const vec &x)
    {
        tplRec rec = *findRow(code, 1);
        rec.nQuad = 1;
        rec.quadCrd = x.data();
        rec.shp = rec.shgl = nullptr;
        tplGetShpShgl(&rec);
        shp.assign(rec.shp, rec.shp + rec.nen);
        shgl.assign(rec.shgl, rec.shgl + 3 * rec.nen);
        double *block = (double *) rec.shp;
        memFree(block);
    }
};

/* The three directions along which a code's derivatives are taken. */
static std::array<vec, 3> directions(int code)
{
    const double c = 2 / sqrt(5), d = 1 / sqrt(5);
    switch (code) {
    case 8: case 19:  return { { { 1, 0, 0 },   { 0, -d, -c }, { 0, c, -d } } };
    case 20:          return { { { 0, -d, -c }, { -1, 0, 0 },  { 0, c, -d } } };
    case 21:          return { { { -1, -d, -c }, { -1, 0, 0 }, { 0, c, -d } } };
    case 11: case 25: return { { { 0, 0, 1 },   { 1, 0, 0 },   { 0, 1, 0 } } };
    case 24:          return { { { 1, 0, 0 },   { 0, 0, -1 },  { 0, 1, 0 } } };
    default:          return { { { 1, 0, 0 },   { 0, 1, 0 },   { 0, 0, 1 } } };
    }
}

static bool isApex(const Row &row, const vec &x) { return row.shape == PYR && x[2] == 2; }

TEST(tpl, shapeFunctionsSumToOneAndTheirSlopesToZero)
{
    forObjects([](const Row &, int, const tplRec *rec) {
        for (int q = 0; q < rec->nQuad; ++q) {
            double sum = 0, slope[3] = {};
            for (int a = 0; a < rec->nen; ++a) {
                sum += rec->shp[q * rec->nen + a];
                for (int j = 0; j < 3; ++j) slope[j] += rec->shgl[(q * rec->nen + a) * 3 + j];
            }
            EXPECT_NEAR(sum, 1, 1e-14) << q;
            for (double s : slope) EXPECT_NEAR(s, 0, 1e-13) << q;
        }
    });
}

/* The element's map from natural coordinates to itself: the shape functions reproduce the coordinates, and their
   derivatives the directions. */
TEST(tpl, shapeFunctionsReproduceCoordinates)
{
    forObjects([](const Row &row, int, const tplRec *rec) {
        const auto dirs = directions(row.code);
        for (int q = 0; q < rec->nQuad; ++q) {
            vec x{}, d[3] = {};
            for (int a = 0; a < rec->nen; ++a)
                for (int j = 0; j < 3; ++j) {
                    x[j] += rec->shp[q * rec->nen + a] * nodesOf[row.shape][a][j];
                    for (int k = 0; k < 3; ++k)
                        d[k][j] += rec->shgl[(q * rec->nen + a) * 3 + k] * nodesOf[row.shape][a][j];
                }
            for (int j = 0; j < 3; ++j) {
                EXPECT_NEAR(x[j], at(rec, q)[j], 1e-14) << q;
                for (int k = 0; k < 3; ++k) EXPECT_NEAR(d[k][j], dirs[k][j], 1e-13) << q << " " << k;
            }
        }
    });
}

TEST(tpl, shapeFunctionsAreOneAtTheirNodeAndZeroAtTheOthers)
{
    for (const Row &row : rows) {
        if (row.code < 3) continue;
        for (size_t n = 0; n < nodesOf[row.shape].size(); ++n) {
            const Shapes s(row.code, nodesOf[row.shape][n]);
            for (size_t a = 0; a < s.shp.size(); ++a)
                EXPECT_NEAR(s.shp[a], a == n, 1e-15) << row.code << " " << n << " " << a;
        }
    }
}

TEST(tpl, derivativesAreThoseOfTheShapeFunctions)
{
    const double h = 1e-4;
    forObjects([&](const Row &row, int, const tplRec *rec) {
        const auto dirs = directions(row.code);
        for (int q = 0; q < rec->nQuad; ++q) {
            if (isApex(row, at(rec, q))) continue;
            for (int k = 0; k < 3; ++k) {
                auto moved = [&](double by) {
                    vec x = at(rec, q);
                    for (int j = 0; j < 3; ++j) x[j] += by * dirs[k][j];
                    return Shapes(row.code, x).shp;
                };
                /* fourth order */
                const auto a = moved(-2 * h), b = moved(-h), c = moved(h), d = moved(2 * h);
                for (int i = 0; i < rec->nen; ++i) {
                    const double slope = (a[i] - 8 * b[i] + 8 * c[i] - d[i]) / (12 * h);
                    EXPECT_NEAR(rec->shgl[(q * rec->nen + i) * 3 + k], slope, 1e-9)
                        << q << " node " << i << " direction " << k;
                }
            }
        }
    });
}

/* The special functions: the quadratic element holds quadratic fields, the hexahedron r s t, the bubble is 1 inside. */
TEST(tpl, shapeFunctionsHoldMoreThanLinearFields)
{
    const vec x = { 0.3, 0.7, 0.4 };
    auto field = [](const vec &p) { return 1 + p[0] * p[1] - 2 * p[2] * p[2] + 3 * p[0] * p[2] - p[1] + p[1] * p[1]; };
    auto sum = [](const Shapes &s, Shape shape, auto f) {
        double v = 0;
        for (size_t a = 0; a < s.shp.size(); ++a) v += s.shp[a] * f(nodesOf[shape][a]);
        return v;
    };
    EXPECT_NEAR(sum(Shapes(16, x), TET10, field), field(x), 1e-14);
    auto rst = [](const vec &p) { return p[0] * p[1] * p[2]; };
    EXPECT_NEAR(sum(Shapes(6, x), HEX, rst), rst(x), 1e-15);
    auto rt = [](const vec &p) { return p[0] * p[2] - p[1] * p[2]; };
    EXPECT_NEAR(sum(Shapes(5, x), WEDGE, rt), rt(x), 1e-15);
    auto rs = [](const vec &p) { return p[2] == 2 ? 0 : p[0] * p[1]; };     /* on the pyramid it is r s / h */
    EXPECT_NEAR(sum(Shapes(4, x), PYR, rs), x[0] * x[1] / (1 - x[2] / 2), 1e-15);
    EXPECT_NEAR(Shapes(28, { 0.5, 0.5, 0.5 }).shp[4], 1, 1e-15);
    EXPECT_NEAR(Shapes(28, x).shp[4], 256 * (1 - 0.7) * 0.15 * 0.35 * 0.2, 1e-15);
}

/* At the apex the slopes are those on the axis, in a frame those on the face; also when t is the apex but for
   rounding. */
TEST(tpl, slopesAtThePyramidsApex)
{
    const double c = 2 / sqrt(5), d = 1 / sqrt(5);
    for (double t : { 2.0, 2 * (1 - 1e-16), 2.0000000000000004, nextafter(2.0, 0) }) {
        const vec apex = { 0, 0, t };
        const Shapes s(4, apex);
        const double axis[5][3] = { { -.25, -.25, -.125 }, { .25, -.25, -.125 }, { .25, .25, -.125 },
                                    { -.25, .25, -.125 }, { 0, 0, .5 } };
        for (int a = 0; a < 5; ++a)
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(s.shgl[3 * a + k], axis[a][k], 1e-15) << a << " " << k;
        /* with b = -1 and a = 0 */
        const double face[5][3] = { { -.5, -.25, -.125 }, { .5, -.25, -.125 }, { 0, .25, -.125 }, { 0, .25, -.125 },
                                    { 0, 0, .5 } };
        for (int code : { 8, 19, 20, 21 }) {
            const Shapes f(code, apex);
            for (int a = 0; a < 5; ++a) {
                const double r = face[a][0], s = face[a][1], t = face[a][2], down = -(d * s + c * t);
                const double expected[3] = { code == 20 ? down : code == 21 ? down - r : r, code >= 20 ? -r : down,
                                             c * s - d * t };
                for (int k = 0; k < 3; ++k)
                    EXPECT_NEAR(f.shgl[3 * a + k], expected[k], 1e-15) << code << " " << a << " " << k;
            }
        }
    }
}

/* What the compiler tabulated is what the routine builds. */
TEST(tpl, readyTablesAreTheBuiltOnes)
{
    forObjects([](const Row &row, int, const tplRec *rec) {
        for (int q = 0; q < rec->nQuad; ++q) {
            const Shapes s(row.code, at(rec, q));
            for (int i = 0; i < rec->nen; ++i) EXPECT_NEAR(rec->shp[q * rec->nen + i], s.shp[i], 1e-15);
            for (int i = 0; i < 3 * rec->nen; ++i) EXPECT_NEAR(rec->shgl[q * rec->nen * 3 + i], s.shgl[i], 1e-15);
        }
    });
}

/* -------------------------------------------------- faces ------------------------------------------------- */

static const std::map<int, int> seenFrom = { { 7, 3 }, { 8, 4 }, { 9, 4 }, { 10, 5 }, { 11, 5 }, { 12, 6 }, { 17, 16 },
                                             { 29, 28 } };

static std::vector<int> used(const int *nodes)
{
    std::vector<int> v;
    for (int i = 0; i < 10 && nodes[i] >= 0; ++i) v.push_back(nodes[i]);
    for (int i = (int) v.size(); i < 10; ++i) EXPECT_EQ(nodes[i], -1);
    return v;
}

TEST(tpl, facesAsPrinted)
{
    typedef std::vector<int> ints;
    static const struct { int code; std::vector<ints> srfs, bnds; } elements[] = {
        { 3, { { 0, 1, 2 }, { 1, 3, 2 }, { 2, 3, 0 }, { 3, 1, 0 } },
             { { 0, 1, 2, 3 }, { 1, 3, 2, 0 }, { 2, 3, 0, 1 }, { 3, 1, 0, 2 } } },
        { 28, { { 0, 1, 2 }, { 1, 3, 2 }, { 2, 3, 0 }, { 3, 1, 0 } },
              { { 0, 1, 2, 3, 4 }, { 1, 3, 2, 0, 4 }, { 2, 3, 0, 1, 4 }, { 3, 1, 0, 2, 4 } } },
        { 4, { { 0, 1, 2, 3 }, { 1, 0, 4 }, { 2, 1, 4 }, { 3, 2, 4 }, { 0, 3, 4 } },
             { { 0, 1, 2, 3, 4 }, { 0, 1, 2, 3, 4 }, { 1, 2, 3, 0, 4 }, { 2, 3, 0, 1, 4 }, { 3, 0, 1, 2, 4 } } },
        { 5, { { 0, 1, 2 }, { 5, 4, 3 }, { 0, 2, 5, 3 }, { 2, 1, 4, 5 }, { 1, 0, 3, 4 } },
             { { 0, 1, 2, 3, 4, 5 }, { 5, 4, 3, 2, 1, 0 }, { 2, 0, 1, 5, 3, 4 }, { 1, 2, 0, 4, 5, 3 },
               { 0, 1, 2, 3, 4, 5 } } },
        { 6, { { 0, 1, 2, 3 }, { 7, 6, 5, 4 }, { 5, 6, 2, 1 }, { 0, 3, 7, 4 }, { 4, 5, 1, 0 }, { 3, 2, 6, 7 } },
             { { 0, 1, 2, 3, 4, 5, 6, 7 }, { 7, 6, 5, 4, 3, 2, 1, 0 }, { 5, 6, 2, 1, 4, 7, 3, 0 },
               { 0, 3, 7, 4, 1, 2, 6, 5 }, { 4, 5, 1, 0, 7, 6, 2, 3 }, { 3, 2, 6, 7, 0, 1, 5, 4 } } },
        { 16, { { 0, 1, 2, 4, 5, 6 }, { 1, 3, 2, 8, 9, 5 }, { 2, 3, 0, 9, 7, 6 }, { 3, 1, 0, 8, 4, 7 } },
              { { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9 }, { 1, 3, 2, 0, 8, 9, 5, 4, 7, 6 }, { 2, 3, 0, 1, 9, 7, 6, 5, 8, 4 },
                { 3, 1, 0, 2, 8, 4, 7, 9, 5, 6 } } },
        { 20, { { 0, 4, 1 } }, { { 0, 1, 2, 3, 4 } } },
        { 21, { { 4, 1, 0 } }, { { 0, 1, 2, 3, 4 } } },
        { 25, { { 0, 3, 4, 1 } }, { { 0, 1, 2, 3, 4, 5 } } },
    };
    for (const auto &e : elements) {
        const tplRec *rec = findRow(e.code, 1);
        ASSERT_EQ(rec->nSrfs, (int) e.srfs.size());
        for (int i = 0; i < rec->nSrfs; ++i) {
            EXPECT_EQ(used(rec->srfTbl[i].srfNodes), e.srfs[i]) << e.code << " face " << i;
            EXPECT_EQ(used(rec->srfTbl[i].bndNodes), e.bnds[i]) << e.code << " face " << i;
        }
    }
    EXPECT_EQ(sizeof(tplSrf), 33 * sizeof(int));
}

TEST(tpl, aFaceRowHoldsTogether)
{
    forAll([](const Row &row, int, const tplRec *rec) {
        for (int i = 0; i < rec->nSrfs; ++i) {
            const tplSrf &srf = rec->srfTbl[i];
            std::vector<int> on = used(srf.srfNodes), opp = used(srf.oppNodes), bnd = used(srf.bndNodes);
            EXPECT_EQ(srf.nSrfNodes, (int) on.size());
            EXPECT_EQ(srf.srfType, on.size() == 3 ? 1 : on.size() == 4 ? 2 : 15);
            EXPECT_EQ((int) bnd.size(), rec->nen);
            /* the nodes on the face and the others are all the nodes, and so are the reordered ones */
            std::vector<int> both = on;
            both.insert(both.end(), opp.begin(), opp.end());
            std::sort(both.begin(), both.end());
            std::sort(bnd.begin(), bnd.end());
            EXPECT_EQ(both, bnd);
            for (int n = 0; n < rec->nen; ++n) EXPECT_EQ(bnd[n], n);
            /* the boundary element's own face, with the nodes reordered, is this face */
            const tplRec *bndRec = findRow(srf.bndTpl, 1);
            ASSERT_NE(bndRec, nullptr);
            EXPECT_EQ(bndRec->nen, rec->nen);
            for (int k = 0; row.corners.empty() && k < srf.nSrfNodes; ++k)
                EXPECT_EQ(srf.bndNodes[bndRec->srfTbl[0].srfNodes[k]], srf.srfNodes[k]) << i;
        }
    });
}

TEST(tpl, anElementSeenFromAFaceHoldsThatFace)
{
    for (const auto &[code, parent] : seenFrom) {
        const tplRec *rec = findRow(code, 1), *whole = findRow(parent, 1);
        ASSERT_EQ(rec->nSrfs, 1);
        EXPECT_EQ(rec->srfTbl[0].bndTpl, code);
        bool found = false;
        for (int i = 0; i < whole->nSrfs; ++i) found = found || !memcmp(&whole->srfTbl[i], rec->srfTbl, sizeof(tplSrf));
        EXPECT_TRUE(found) << code;
    }
    static const int edges[][2] = { { 18, 7 }, { 19, 8 }, { 20, 8 }, { 21, 8 }, { 22, 9 }, { 23, 10 }, { 24, 11 },
                                    { 25, 11 }, { 26, 12 }, { 27, 17 }, { 30, 29 } };
    for (const auto &e : edges) EXPECT_EQ(findRow(e[0], 1)->srfTbl[0].bndTpl, e[1]) << e[0];
}

/* The points lie on the face of the row: the shape functions of the nodes off it are 0 there. */
TEST(tpl, facePointsLieOnTheFace)
{
    forObjects([](const Row &row, int, const tplRec *rec) {
        if (row.corners.empty()) return;
        const std::vector<int> opp = used(rec->srfTbl[0].oppNodes);
        for (int q = 0; q < rec->nQuad; ++q)
            for (int node : opp) EXPECT_NEAR(rec->shp[q * rec->nen + node], 0, 1e-15) << q << " " << node;
    });
}

TEST(tpl, boundaryTopologyOfAFace)
{
    static const int pairs[][3] = { { 3, 1, 7 }, { 28, 1, 29 }, { 4, 1, 8 }, { 4, 2, 9 }, { 5, 1, 10 }, { 5, 2, 11 },
                                    { 6, 2, 12 }, { 16, 15, 17 } };
    for (int parent = -1; parent <= 31; ++parent)
        for (int srfType = -1; srfType <= 16; ++srfType) {
            int expected = 0;
            for (const auto &p : pairs)
                if (p[0] == parent && p[1] == srfType) expected = p[2];
            if (expected) {
                checkReturns(EXPECT_EQ(tplGetBndTpl(parent, srfType), expected));
            } else {
                const std::string text = "Invalid parentTpl <" + std::to_string(parent) + "> and srfType <" +
                                         std::to_string(srfType) + "> combination";
                checkFails(text, tplGetBndTpl(parent, srfType));
            }
        }
    checkFails("in Function <tplGetBndTpl>", tplGetBndTpl(3, 2));
}

/* ------------------------------------------- composite objects -------------------------------------------- */

TEST(tpl, nodesBehindTheNodesAreOnlyTheNodes)
{
    EXPECT_EQ(tplNew(3, 0x103), tplNew(3, 3));
    EXPECT_EQ(tplNew(3, 0x103)->quadRule, 3);
}

TEST(tpl, theTetrahedronWithItsNodes)
{
    const tplRec *rec = tplNew(3, 0x101);
    ASSERT_EQ(rec->nQuad, 8);
    for (int q = 0; q < 4; ++q) EXPECT_DOUBLE_EQ(rec->quadWgt[q], 1. / 3);
    for (int q = 4; q < 8; ++q) EXPECT_EQ(rec->quadWgt[q], 0.0);
    EXPECT_EQ(at(rec, 5), (vec{ 2, 0, 0 }));
    EXPECT_EQ(rec->shp[5 * 4 + 1], 1.0);
}

TEST(tpl, compositesAreTheRuleAndTheNodes)
{
    forObjects([](const Row &row, int rule, const tplRec *base) {
        if (rule == 3) return;
        const tplRec *rec = tplNew(row.code, rule | 0x100), *nodes = tplNew(row.code, 3);
        EXPECT_EQ(tplNew(row.code, rule | 0x100), rec);
        EXPECT_EQ(rec->tplType, row.code);
        EXPECT_EQ(rec->quadRule, rule | 0x100);
        EXPECT_EQ(rec->nen, base->nen);
        EXPECT_EQ(rec->nShp, base->nShp);
        EXPECT_EQ(rec->nSrfs, base->nSrfs);
        EXPECT_EQ(rec->srfTbl, base->srfTbl);
        const int b = base->nQuad, n = nodes->nQuad, nen = base->nen;
        ASSERT_EQ(rec->nQuad, b + n);
        auto same = [](const double *x, const double *y, int count) { return std::equal(x, x + count, y); };
        EXPECT_TRUE(same(rec->quadWgt, base->quadWgt, b));
        for (int q = b; q < b + n; ++q) EXPECT_EQ(rec->quadWgt[q], 0.0);
        EXPECT_TRUE(same(rec->quadCrd, base->quadCrd, 3 * b));
        EXPECT_TRUE(same(rec->quadCrd + 3 * b, nodes->quadCrd, 3 * n));
        EXPECT_TRUE(same(rec->shp, base->shp, nen * b));
        EXPECT_TRUE(same(rec->shp + nen * b, nodes->shp, nen * n));
        EXPECT_TRUE(same(rec->shgl, base->shgl, 3 * nen * b));
        EXPECT_TRUE(same(rec->shgl + 3 * nen * b, nodes->shgl, 3 * nen * n));
    });
}
