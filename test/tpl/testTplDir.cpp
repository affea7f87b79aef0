/* testTplDir.cpp: the shares of nodes in area vectors, and directions across sides. */

#include <math.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include "test/testUtil.h"
#include "tpl/tpl.h"

typedef std::array<double, 3> vec;
typedef std::vector<vec>      nodes;

static vec operator+(const vec &a, const vec &b) { return { a[0] + b[0], a[1] + b[1], a[2] + b[2] }; }
static vec operator-(const vec &a, const vec &b) { return { a[0] - b[0], a[1] - b[1], a[2] - b[2] }; }
static vec operator*(double f, const vec &a) { return { f * a[0], f * a[1], f * a[2] }; }
static double dot(const vec &a, const vec &b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
static double length(const vec &a) { return sqrt(dot(a, a)); }
static vec cross(const vec &a, const vec &b)
{
    return { a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0] };
}

static vec randomVec()
{
    static std::mt19937 generator(3);
    std::uniform_real_distribution<double> number(-1, 1);
    return { number(generator), number(generator), number(generator) };
}

static nodes randomNodes(int n)
{
    nodes x;
    for (int i = 0; i < n; ++i) x.push_back(randomVec());
    return x;
}

typedef void (*kernel)(const double *crd, double *dir, int tplType, int nBlock);

/* Runs a kernel over a block; the element index is the fastest one. */
static std::vector<nodes> run(kernel f, int code, const std::vector<nodes> &elements)
{
    const size_t n = elements.size(), nen = elements[0].size();
    std::vector<double> crd(n * nen * 3), dir(crd.size(), NAN);
    for (size_t e = 0; e < n; ++e)
        for (size_t a = 0; a < nen; ++a)
            for (size_t c = 0; c < 3; ++c) crd[(a * 3 + c) * n + e] = elements[e][a][c];
    f(crd.data(), dir.data(), code, (int) n);
    std::vector<nodes> result(n, nodes(nen));
    for (size_t e = 0; e < n; ++e)
        for (size_t a = 0; a < nen; ++a)
            for (size_t c = 0; c < 3; ++c) result[e][a][c] = dir[(a * 3 + c) * n + e];
    return result;
}

static nodes normals(int code, const nodes &x) { return run(tplNodalDirType, code, { x })[0]; }
static nodes edges(int code, const nodes &x) { return run(tplNodalEdgeDirType, code, { x })[0]; }

static void expectNear(const vec &a, const vec &b, double error = 1e-15)
{
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], error) << i;
}

static vec sumOf(const nodes &v)
{
    vec sum{};
    for (const vec &x : v) sum = sum + x;
    return sum;
}

/* The nodes of a surface on the way round, and its area vector: half the sum over neighbours. */
static std::vector<int> wayRound(int code)
{
    if (code == 1) return { 0, 1, 2 };
    if (code == 2) return { 0, 1, 2, 3 };
    return { 0, 3, 1, 4, 2, 5 };
}

static vec areaVector(int code, const nodes &x)
{
    const std::vector<int> round = wayRound(code);
    vec sum{};
    for (size_t k = 0; k < round.size(); ++k)
        sum = sum + 0.5 * cross(x[round[k]], x[round[(k + 1) % round.size()]]);
    return sum;
}

static const int surfaceCodes[] = { 1, 2, 15 };
static const int elementCodes[] = { 3, 4, 5, 6, 16, 28 };
static int nNodesOf(int code) { return code == 1 ? 3 : code == 2 ? 4 : code == 15 ? 6 : tplNew(code, 1)->nen; }

/* ------------------------------------------------- surfaces ----------------------------------------------- */

TEST(tplDir, aTriangleGivesAThirdToEachNode)
{
    for (int i = 0; i < 20; ++i) {
        const nodes x = randomNodes(3);
        const vec area = cross(x[1] - x[0], x[2] - x[0]);
        for (const vec &d : normals(1, x))
            for (int c = 0; c < 3; ++c) EXPECT_EQ(d[c], area[c] / 6);
    }
    const nodes flat = normals(1, { { 0, 0, 0 }, { 3, 0, 0 }, { 0, 4, 0 } });
    for (const vec &d : flat) EXPECT_EQ(d, (vec{ 0, 0, 2 }));
}

/* Also a warped one; and whichever node is the first. */
TEST(tplDir, aQuadrilateralGivesAQuarterToEachNode)
{
    for (int i = 0; i < 20; ++i) {
        nodes x = randomNodes(4);
        const vec quarter = 0.25 * areaVector(2, x);
        for (int turn = 0; turn < 4; ++turn) {
            for (const vec &d : normals(2, x)) expectNear(d, quarter);
            std::rotate(x.begin(), x.begin() + 1, x.end());
        }
    }
    const nodes square = normals(2, { { 0, 0, 0 }, { 2, 0, 0 }, { 2, 2, 0 }, { 0, 2, 0 } });
    for (const vec &d : square) EXPECT_EQ(d, (vec{ 0, 0, 1 }));
}

/* With its middle nodes in the middle: a twelfth for each corner, a quarter for each middle node. */
TEST(tplDir, aSixNodeTriangleIsFourTriangles)
{
    nodes x = randomNodes(3);
    for (int k = 0; k < 3; ++k) x.push_back(0.5 * (x[k] + x[(k + 1) % 3]));
    const vec area = areaVector(1, x);
    const nodes d = normals(15, x);
    for (int k = 0; k < 6; ++k) expectNear(d[k], 1.0 / (k < 3 ? 12 : 4) * area);

    static const int parts[4][3] = { { 0, 3, 5 }, { 3, 1, 4 }, { 5, 4, 2 }, { 3, 4, 5 } };
    x = randomNodes(6);
    nodes sum(6);
    for (const auto &p : parts) {
        const nodes part = normals(1, { x[p[0]], x[p[1]], x[p[2]] });
        for (int k = 0; k < 3; ++k) sum[p[k]] = sum[p[k]] + part[k];
    }
    const nodes whole = normals(15, x);
    for (int k = 0; k < 6; ++k) expectNear(whole[k], sum[k]);
}

TEST(tplDir, theNodesTogetherHaveTheAreaVector)
{
    for (int code : surfaceCodes)
        for (int i = 0; i < 20; ++i) {
            const nodes x = randomNodes(nNodesOf(code));
            expectNear(sumOf(normals(code, x)), areaVector(code, x), 1e-14);
        }
}

/* ------------------------------------------------- elements ----------------------------------------------- */

/* An element is its faces, as its rows have them; the node of a bubble is on none. */
TEST(tplDir, anElementIsItsFaces)
{
    for (int code : elementCodes) {
        const tplRec *tpl = tplNew(code, 1);
        const nodes x = randomNodes(tpl->nen);
        nodes sum(x.size());
        for (int f = 0; f < tpl->nSrfs; ++f) {
            const tplSrf &face = tpl->srfTbl[f];
            nodes at;
            for (int k = 0; k < face.nSrfNodes; ++k) at.push_back(x[face.srfNodes[k]]);
            const nodes d = normals(face.srfType, at);
            for (int k = 0; k < face.nSrfNodes; ++k) sum[face.srfNodes[k]] = sum[face.srfNodes[k]] + d[k];
        }
        const nodes whole = normals(code, x);
        for (int a = 0; a < tpl->nen; ++a) expectNear(whole[a], sum[a], 1e-14);
        expectNear(sumOf(whole), vec{}, 1e-14);                                     /* it is closed */
        if (code == 28) { EXPECT_EQ(whole[4], vec{}); }
    }
}

/* The rows turn inward, and the theorem of Gauss tells the volume: three times it, by one third or one quarter of each
   face at its corners. */
TEST(tplDir, theFacesOfAnElementPointInward)
{
    static const double sizes[] = { 4. / 3, 8. / 3, 4, 8 };
    for (int code : { 3, 4, 5, 6 }) {
        const tplRec *tpl = tplNew(code, 3);
        nodes x;
        for (int a = 0; a < tpl->nen; ++a)
            x.push_back({ tpl->quadCrd[3 * a], tpl->quadCrd[3 * a + 1], tpl->quadCrd[3 * a + 2] });
        const nodes d = normals(code, x);
        double flux = 0;
        for (size_t a = 0; a < x.size(); ++a) flux += dot(x[a], d[a]);
        EXPECT_NEAR(flux, -3 * sizes[code - 3], 1e-14) << code;
    }
}

TEST(tplDir, codesWithoutNormals)
{
    const double crd[30] = {};
    double dir[30] = { 7 };
    const std::vector<int> known = { 1, 2, 3, 4, 5, 6, 15, 16, 28 };
    for (int code = -1; code <= 40; ++code) {
        if (std::count(known.begin(), known.end(), code)) continue;
        checkFails("not implemented for tplType <" + std::to_string(code) + ">", tplNodalDirType(crd, dir, code, 1));
        checkFails("in Function <tplNodalDirType>", tplNodalDirType(crd, dir, code, 1));
    }
    checkFails("not implemented for tplType <-2147483648>", tplNodalDirType(crd, dir, INT32_MIN, 1));
    EXPECT_EQ(dir[0], 7);
}

/* --------------------------------------------- edge directions -------------------------------------------- */

TEST(tplDir, theSidesOfATriangle)
{
    const nodes d = edges(1, { { 0, 0, 0 }, { 3, 0, 0 }, { 0, 4, 0 } });
    expectNear(d[0], { 0, -1.5, 0 });
    expectNear(d[1], { 2, 1.5, 0 });
    expectNear(d[2], { -2, 0, 0 });
}

TEST(tplDir, theSidesOfAQuadrilateral)
{
    const nodes d = edges(2, { { 0, 0, 5 }, { 0, 2, 5 }, { 0, 2, 8 }, { 0, 0, 8 } });
    expectNear(d[0], { 0, 0, -1 });
    expectNear(d[1], { 0, 1.5, 0 });
    expectNear(d[2], { 0, 0, 1 });
    expectNear(d[3], { 0, -1.5, 0 });
}

/* On any flat convex surface: in its plane, normal to the side, outward, half as long; together nothing. */
TEST(tplDir, sidesPointOutward)
{
    for (int code : surfaceCodes)
        for (int i = 0; i < 20; ++i) {
            const std::vector<int> round = wayRound(code);
            const size_t n = round.size();
            const vec o = randomVec(), r = randomVec(), s = randomVec();
            nodes x(n);
            for (size_t k = 0; k < n; ++k) {
                const double angle = 2 * M_PI * ((double) k + 0.2 * randomVec()[0]) / (double) n;
                x[round[k]] = o + cos(angle) * r + sin(angle) * s;
            }
            const nodes d = edges(code, x);
            for (size_t k = 0; k < n; ++k) {
                const vec &from = x[round[k]], &to = x[round[(k + 1) % n]], &across = d[round[k]];
                EXPECT_NEAR(length(across), length(to - from) / 2, 1e-13);
                EXPECT_NEAR(dot(across, to - from), 0, 1e-13);
                EXPECT_NEAR(dot(across, cross(r, s)), 0, 1e-13);
                EXPECT_GT(dot(across, from - o), 0);
            }
            expectNear(sumOf(d), vec{}, 1e-13);
        }
}

TEST(tplDir, aSurfaceWithoutAnAreaHasNoSides)
{
    for (int code : surfaceCodes) {
        nodes line;
        for (int a = 0; a < nNodesOf(code); ++a) line.push_back((double) a * vec{ 1, 2, 3 });
        for (const vec &d : edges(code, line)) EXPECT_EQ(d, vec{}) << code;
    }
}

TEST(tplDir, codesWithoutSides)
{
    const double crd[30] = {};
    double dir[30] = { 7 };
    for (int code = -1; code <= 40; ++code) {
        if (code == 1 || code == 2 || code == 15) continue;
        checkFails("not implemented for tplType <" + std::to_string(code) + ">",
                   tplNodalEdgeDirType(crd, dir, code, 1));
        checkFails("in Function <tplNodalEdgeDirType>", tplNodalEdgeDirType(crd, dir, code, 1));
    }
    EXPECT_EQ(dir[0], 7);
}

/* -------------------------------------------------- blocks ------------------------------------------------ */

TEST(tplDir, aBlockGivesWhatItsElementsGive)
{
    for (int code : { 1, 2, 15, 3, 4, 5, 6, 16, 28 })
        for (int nBlock : { 1, 2, 3, 128, 129 })
            for (kernel f : { tplNodalDirType, tplNodalEdgeDirType }) {
                if (f == tplNodalEdgeDirType && code != 1 && code != 2 && code != 15) continue;
                std::vector<nodes> elements;
                for (int e = 0; e < nBlock; ++e) elements.push_back(randomNodes(nNodesOf(code)));
                const std::vector<nodes> all = run(f, code, elements);
                for (int e = 0; e < nBlock; ++e) EXPECT_EQ(all[e], run(f, code, { elements[e] })[0]) << code;
            }
}

TEST(tplDir, blocksOfNothing)
{
    for (int nBlock : { 0, -1 })
        for (int code : { 1, 2, 15, 3, 16 }) {
            const double crd[30] = {};
            double dir[30];
            std::fill(dir, dir + 30, 7.0);
            checkReturns(tplNodalDirType(crd, dir, code, nBlock));
            if (code != 3 && code != 16) {
                checkReturns(tplNodalEdgeDirType(crd, dir, code, nBlock));
            }
            EXPECT_EQ(std::count(dir, dir + 30, 7.0), 30);
        }
}

/* ----------------------------------------------------- round ------------------------------------------------- */

TEST(tplSrfRound, middlesStandBetweenTheirCorners)
{
    static const struct { int type; std::vector<int> round; } rows[] = {
        { 1, { 0, 1, 2 } }, { 2, { 0, 1, 2, 3 } }, { 15, { 0, 3, 1, 4, 2, 5 } },
    };
    for (const auto &row : rows) {
        const int *round = nullptr;
        const int  n = tplSrfRound(row.type, &round);
        EXPECT_EQ(tplSrfRound(row.type, nullptr), n);
        ASSERT_EQ(n, (int) row.round.size());
        EXPECT_EQ(std::vector<int>(round, round + n), row.round);
    }
    for (int other : { -1, 0, 3, 6, 14, 16, 28 }) EXPECT_EQ(tplSrfRound(other, nullptr), 0) << other;
}
