/* testFTpl3.cpp: what an integral needs at a point, on elements whose geometry is known. */

#include <math.h>

#include <algorithm>
#include <array>
#include <limits>
#include <random>
#include <set>
#include <vector>

#include "mtx/fMtx.h"
#include "test/testUtil.h"
#include "tpl/fTpl3.h"
#include "tpl/tpl.h"

typedef std::array<double, 3> vec;
typedef std::array<double, 9> mat;                  /* row by row */
typedef std::vector<double>   reals;

static const int    volumeCodes[] = { 3, 4, 5, 6, 16, 28 };
static const int    blocks[] = { 1, 2, 5 };
static const double noTol = 0.0, someTol = 1e-3;

static std::mt19937 generator(11);

static double random(double low, double high)
{
    return std::uniform_real_distribution<double>(low, high)(generator);
}

/* ------------------------------------------------ geometry ------------------------------------------------ */

static vec operator+(const vec &a, const vec &b) { return { a[0] + b[0], a[1] + b[1], a[2] + b[2] }; }
static vec operator-(const vec &a, const vec &b) { return { a[0] - b[0], a[1] - b[1], a[2] - b[2] }; }
static vec operator*(double f, const vec &a) { return { f * a[0], f * a[1], f * a[2] }; }
static double dot(const vec &a, const vec &b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
static double length(const vec &a) { return sqrt(dot(a, a)); }
static vec cross(const vec &a, const vec &b)
{
    return { a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0] };
}
static vec times(const mat &m, const vec &x)
{
    return { m[0] * x[0] + m[1] * x[1] + m[2] * x[2], m[3] * x[0] + m[4] * x[1] + m[5] * x[2],
             m[6] * x[0] + m[7] * x[1] + m[8] * x[2] };
}
static double det(const mat &m)
{
    return dot({ m[0], m[1], m[2] }, cross({ m[3], m[4], m[5] }, { m[6], m[7], m[8] }));
}
static mat cofactors(const mat &m)
{
    const vec a = { m[0], m[1], m[2] }, b = { m[3], m[4], m[5] }, c = { m[6], m[7], m[8] };
    const vec x = cross(b, c), y = cross(c, a), z = cross(a, b);
    return { x[0], x[1], x[2], y[0], y[1], y[2], z[0], z[1], z[2] };
}

static mat randomMatrix()
{
    mat m;
    for (double &x : m) x = random(-1, 1);
    return m;
}

/* An orientation-keeping map that neither flattens nor stretches much. */
static mat randomMap()
{
    for (;;) {
        const mat m = randomMatrix();
        if (det(m) > 0.2) return m;
    }
}

static mat randomRotation()
{
    const mat m = randomMap();
    vec a = { m[0], m[3], m[6] }, b = { m[1], m[4], m[7] };
    a = 1 / length(a) * a;
    b = b - dot(a, b) * a;
    b = 1 / length(b) * b;
    const vec c = cross(a, b);
    return { a[0], b[0], c[0], a[1], b[1], c[1], a[2], b[2], c[2] };
}

/* The nodes of the reference element. */
static std::vector<vec> referenceNodes(int code)
{
    const tplRec *tpl = tplNew(code, 3);
    std::vector<vec> nodes;
    for (int a = 0; a < tpl->nen; ++a)
        nodes.push_back({ tpl->quadCrd[3 * a], tpl->quadCrd[3 * a + 1], tpl->quadCrd[3 * a + 2] });
    return nodes;
}

/* Moved by an affine map, and each node by at most `by` more. */
static std::vector<vec> moved(std::vector<vec> nodes, const mat &map, double by = 0)
{
    const vec origin = { random(-5, 5), random(-5, 5), random(-5, 5) };
    for (vec &x : nodes) x = origin + times(map, x) + vec{ random(-by, by), random(-by, by), random(-by, by) };
    return nodes;
}

/* Elements side by side in a block. */
static reals asBlock(const std::vector<std::vector<vec>> &elements)
{
    const size_t n = elements.size();
    reals block(n * elements[0].size() * 3);
    for (size_t e = 0; e < n; ++e)
        for (size_t a = 0; a < elements[e].size(); ++a)
            for (size_t i = 0; i < 3; ++i) block[(a * 3 + i) * n + e] = elements[e][a][i];
    return block;
}

/* ------------------------------------------- one point of a block ----------------------------------------- */

/* A point of a topology object with the results of a routine. */
struct Point {
    int           nBlock, nen;
    reals         crd, shg, detW, jac, jacInv, norm;
    double        wgt;
    const double *shp, *shgl;

    Point(const std::vector<std::vector<vec>> &elements, const tplRec *tpl, int q)
        : nBlock((int) elements.size()), nen(tpl->nen), crd(asBlock(elements)), shg(crd.size()),
          detW(elements.size()), jac(9 * elements.size()), jacInv(jac.size()), norm(3 * elements.size()),
          wgt(tpl->quadWgt[q]), shp(tpl->shp + q * nen), shgl(tpl->shgl + 3 * q * nen)
    {
    }
    void integrate(double tol)
    {
        fTpl3Int(crd.data(), &wgt, shp, shgl, shg.data(), detW.data(), jac.data(), jacInv.data(), &tol, &nBlock, &nen);
    }
    void shell(double thick)
    {
        fTpl3IntShl(crd.data(), &thick, &wgt, shp, shgl, shg.data(), detW.data(), jac.data(), jacInv.data(), &nBlock,
                    &nen);
    }
    void boundary()
    {
        fTpl3Bnd(crd.data(), &wgt, shp, shgl, shg.data(), detW.data(), norm.data(), jac.data(), jacInv.data(),
                 &nBlock, &nen);
    }
    void shellBoundary(double thick)
    {
        fTpl3BndShl(crd.data(), &thick, &wgt, shp, shgl, shg.data(), detW.data(), norm.data(), jac.data(),
                    jacInv.data(), &nBlock, &nen);
    }
    mat matrix(const reals &block, int e) const
    {
        mat m;
        for (int k = 0; k < 9; ++k) m[k] = block[k * nBlock + e];
        return m;
    }
    vec normal(int e) const { return { norm[e], norm[nBlock + e], norm[2 * nBlock + e] }; }
    vec position(int e) const
    {
        vec x{};
        for (int a = 0; a < nen; ++a)
            for (int i = 0; i < 3; ++i) x[i] += shp[a] * crd[(3 * a + i) * nBlock + e];
        return x;
    }

    /* The gradient of the field with these rows of slopes, from its values at the nodes. */
    std::vector<mat> gradientOf(const mat &slopes) const
    {
        reals val(crd.size()), grad(9 * (size_t) nBlock);
        for (int a = 0; a < nen; ++a)
            for (int e = 0; e < nBlock; ++e) {
                const double *x = &crd[3 * a * nBlock + e];
                const vec f = times(slopes, { x[0], x[nBlock], x[2 * nBlock] });
                for (int c = 0; c < 3; ++c) val[(3 * a + c) * nBlock + e] = f[c] + c;
            }
        const int nDof = 3;
        fMtx3Grad(val.data(), shg.data(), grad.data(), &nBlock, &nDof, &nen);
        std::vector<mat> all;
        for (int e = 0; e < nBlock; ++e) all.push_back(matrix(grad, e));
        return all;
    }
};

static void expectNear(const mat &a, const mat &b, double error)
{
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(a[k], b[k], error) << "entry " << k;
}

/* Runs f(point) for every code, rule, point and size of block, on elements that are no parallelepipeds. */
template <class F> static void forPoints(F f)
{
    for (int code : volumeCodes)
        for (int rule = 1; rule <= 7; ++rule)
            for (int nBlock : blocks) {
                SCOPED_TRACE(testing::Message() << "code " << code << " rule " << rule << " block " << nBlock);
                std::vector<std::vector<vec>> elements;
                for (int e = 0; e < nBlock; ++e)
                    elements.push_back(moved(referenceNodes(code), randomMap(), 0.02));
                const tplRec *tpl = tplNew(code, rule);
                for (int q = 0; q < tpl->nQuad; ++q) {
                    Point point(elements, tpl, q);
                    f(point);
                }
            }
}

/* ------------------------------------------------- fTpl3Int ----------------------------------------------- */

TEST(fTpl3, gradientsOfLinearFieldsAreExact)
{
    forPoints([](Point &p) {
        p.integrate(noTol);
        const mat slopes = randomMatrix();
        for (const mat &grad : p.gradientOf(slopes)) expectNear(grad, slopes, 1e-11);
    });
}

TEST(fTpl3, jacobianInverseAndWeight)
{
    forPoints([](Point &p) {
        p.integrate(noTol);
        for (int e = 0; e < p.nBlock; ++e) {
            const mat j = p.matrix(p.jac, e), inv = p.matrix(p.jacInv, e);
            for (int i = 0; i < 3; ++i)
                for (int k = 0; k < 3; ++k) {
                    long double sum = 0, one = 0;
                    for (int a = 0; a < p.nen; ++a)
                        sum += (long double) p.crd[(3 * a + i) * p.nBlock + e] * p.shgl[3 * a + k];
                    for (int l = 0; l < 3; ++l) one += (long double) j[3 * i + l] * inv[3 * l + k];
                    EXPECT_NEAR(j[3 * i + k], (double) sum, 1e-13);
                    EXPECT_NEAR((double) one, i == k, 1e-13);
                }
            EXPECT_NEAR(p.detW[e], fabs(det(j)) * p.wgt, 1e-13);
        }
    });
}

/* An element's results do not depend on the block in which it is. */
TEST(fTpl3, aBlockGivesWhatItsElementsGive)
{
    forPoints([](Point &p) {
        p.integrate(someTol);
        for (int e = 0; e < p.nBlock; ++e) {
            Point one = p;
            one.nBlock = 1;
            for (size_t k = 0; k < p.crd.size() / p.nBlock; ++k) one.crd[k] = p.crd[k * p.nBlock + e];
            one.integrate(someTol);
            for (size_t k = 0; k < p.shg.size() / p.nBlock; ++k) EXPECT_EQ(one.shg[k], p.shg[k * p.nBlock + e]) << k;
            for (int k = 0; k < 9; ++k) EXPECT_EQ(one.jacInv[k], p.jacInv[k * p.nBlock + e]) << k;
            EXPECT_EQ(one.detW[0], p.detW[e]);
        }
    });
}

TEST(fTpl3, weightsSumToTheVolume)
{
    static const double sizes[] = { 4. / 3, 8. / 3, 4, 8, 4. / 3, 4. / 3 };
    for (size_t k = 0; k < std::size(volumeCodes); ++k)
        for (int rule : { 1, 3, 4, 5, 6, 7 }) {
            const mat     map = randomMap();
            const tplRec *tpl = tplNew(volumeCodes[k], rule);
            const auto    nodes = moved(referenceNodes(volumeCodes[k]), map);
            double sum = 0;
            for (int q = 0; q < tpl->nQuad; ++q) {
                Point p({ nodes }, tpl, q);
                p.integrate(noTol);
                sum += p.detW[0];
            }
            EXPECT_NEAR(sum, sizes[k] * det(map), 1e-12) << volumeCodes[k] << "/" << rule;
        }
}

static std::vector<vec> flatTetrahedron()
{
    return { { 0, 0, 0 }, { 2, 0, 0 }, { 0, 2, 0 }, { 1, 1, 0 } };
}

TEST(fTpl3, aFlatElementIsUntangledOrFails)
{
    Point p({ flatTetrahedron() }, tplNew(3, 1), 0);
    checkReturns(p.integrate(someTol));
    EXPECT_GT(p.detW[0], 0);
    EXPECT_LT(p.detW[0], 1e-2);
    for (double x : p.shg) EXPECT_TRUE(std::isfinite(x));
    checkFails("det-jacobian = 0", p.integrate(noTol));
    checkFails("in Function <fTpl3Int>", p.integrate(noTol));
    checkFails("det-jacobian = 0", p.integrate(-1.0));
    checkFails("det-jacobian = 0", p.integrate(NAN));
}

TEST(fTpl3, oneFlatElementFailsItsBlock)
{
    const auto good = referenceNodes(3);
    for (int at = 0; at < 4; ++at) {
        std::vector<std::vector<vec>> elements(4, good);
        elements[at] = flatTetrahedron();
        Point p(elements, tplNew(3, 1), 0);
        checkFails("det-jacobian = 0", p.integrate(noTol));
        checkReturns(p.integrate(someTol));
        for (int e = 0; e < 4; ++e) EXPECT_GT(p.detW[e], 0);
    }
}

/* Without untangling the size of the determinant counts. */
TEST(fTpl3, anInvertedElement)
{
    const auto nodes = referenceNodes(6);
    std::vector<vec> upsideDown = nodes;
    std::rotate(upsideDown.begin(), upsideDown.begin() + 4, upsideDown.end());
    Point p({ upsideDown }, tplNew(6, 1), 0);
    checkReturns(p.integrate(noTol));
    EXPECT_NEAR(det(p.matrix(p.jac, 0)), -1, 1e-15);
    EXPECT_DOUBLE_EQ(p.detW[0], 1);
    const mat slopes = randomMatrix();
    expectNear(p.gradientOf(slopes)[0], slopes, 1e-14);
    checkReturns(p.integrate(someTol));
    EXPECT_GT(det(p.matrix(p.jac, 0)), 0);
    EXPECT_LT(p.detW[0], 0.1);
}

TEST(fTpl3, aPointWithoutWeightFails)
{
    Point p({ referenceNodes(3) }, tplNew(3, 0x101), 4);
    checkFails("det-jacobian = 0", p.integrate(noTol));
}

TEST(fTpl3, damagedCoordinatesReturnOrFail)
{
    const double inf = std::numeric_limits<double>::infinity();
    for (double bad : { (double) NAN, inf, -inf, 1e200, 1e-200, -1e308 })
        for (int rule : { 1, 7 })
            for (double tol : { noTol, someTol }) {
                auto nodes = referenceNodes(6);
                nodes[3][1] = bad;
                Point p({ nodes }, tplNew(6, rule), 0);
                const std::string text = trapped([&] { p.integrate(tol); });
                const bool refused = text.find("det-jacobian = 0") != std::string::npos;
                EXPECT_TRUE(text.empty() ? p.detW[0] != 0.0 : refused) << bad << " " << text;
            }
    /* all nodes in one point, on one line */
    for (const vec &along : { vec{ 0, 0, 0 }, vec{ 1, 2, 3 }, vec{ 1, 0, 0 } }) {
        Point p({ { vec{}, along, 2 * along, 3 * along } }, tplNew(3, 1), 0);
        checkFails("det-jacobian = 0", p.integrate(noTol));
        checkFails("det-jacobian = 0", p.integrate(someTol));
    }
}

/* ------------------------------------------------ untangling ---------------------------------------------- */

static mat untangled(mat m, double tol)
{
    const int one = 1;
    fTpl3JacReg(m.data(), &tol, &one);
    return m;
}

static double sumOfSquares(const mat &m)
{
    double sum = 0;
    for (double x : m) sum += x * x;
    return sum;
}

static mat inverted()
{
    mat m = randomMap();
    for (int k = 0; k < 3; ++k) m[k] = -m[k];
    return m;
}

TEST(fTpl3, whatHasAVolumeIsLeftAlone)
{
    for (int i = 0; i < 100; ++i) {
        const mat m = randomMap(), neg = inverted();
        EXPECT_EQ(untangled(m, someTol), m);
        EXPECT_EQ(untangled(m, 1e6), m);
        EXPECT_EQ(untangled(neg, 0.0), neg);
        EXPECT_EQ(untangled(neg, -1.0), neg);
    }
    EXPECT_EQ(untangled(mat{}, someTol), mat{});
}

/* A matrix whose determinant is not above 0: below it, or 0 but for rounding. */
static mat tangled()
{
    for (;;) {
        mat m = inverted();
        if (generator() % 2) m = { m[0], m[1], m[2], m[3], m[4], m[5], m[0] - m[3], m[1] - m[4], m[2] - m[5] };
        if (!(det(m) > 0.0)) return m;
    }
}

static double targetOf(const mat &m, double tol)
{
    const double size = sqrt(sumOfSquares(m)) * sumOfSquares(m) * tol;
    return size * std::max(0.0001, size / (2 * size - det(m)));
}

/* The result has the wanted determinant and is the nearest such matrix: its way from the former one is along its own
   cofactors, in which the determinant grows. */
TEST(fTpl3, theNearestMatrixWithTheTarget)
{
    for (double tol : { 1e-10, 1e-8, 1e-6 })
        for (int i = 0; i < 200; ++i) {
            const mat from = tangled(), to = untangled(from, tol), c = cofactors(to);
            EXPECT_NEAR(det(to), targetOf(from, tol), 1e-7 * targetOf(from, tol) + 1e-15) << i << " " << det(from);
            double along = 0, left = 0;
            for (int k = 0; k < 9; ++k) along += (to[k] - from[k]) * c[k];
            EXPECT_GT(along, 0);
            for (int k = 0; k < 9; ++k) left += fabs(to[k] - from[k] - along / sumOfSquares(c) * c[k]);
            EXPECT_LT(left, 1e-6) << i;
        }
}

/* The steps as they are told, with all digits; for a great tolerance twenty of them do not reach the target. */
static mat byTheSteps(const mat &from, double tol, int most = 20)
{
    const long double target = targetOf(from, tol), band = sqrtl(2.220446049250313e-16L) * target;
    long double j[9], lambda = 0;
    for (int k = 0; k < 9; ++k) j[k] = from[k];
    for (int i = 0; i < most; ++i) {
        const long double c[9] = { j[4] * j[8] - j[5] * j[7], j[5] * j[6] - j[3] * j[8], j[3] * j[7] - j[4] * j[6],
                                   j[2] * j[7] - j[1] * j[8], j[0] * j[8] - j[2] * j[6], j[1] * j[6] - j[0] * j[7],
                                   j[1] * j[5] - j[2] * j[4], j[2] * j[3] - j[0] * j[5], j[0] * j[4] - j[1] * j[3] };
        const long double d = j[0] * c[0] + j[1] * c[1] + j[2] * c[2];
        long double r[9], product = 0, squares = 0;
        for (int k = 0; k < 9; ++k) {
            r[k] = from[k] - j[k] + lambda * c[k];
            product += c[k] * r[k];
            squares += c[k] * c[k];
        }
        const long double delta = -(d - target + product) / squares;
        for (int k = 0; k < 9; ++k) j[k] = j[k] + delta * c[k] + r[k];
        lambda += delta;
        if (band >= fabsl(d - target) && d > 0) break;
    }
    mat to;
    for (int k = 0; k < 9; ++k) to[k] = (double) j[k];
    return to;
}

TEST(fTpl3, untanglingStepByStep)
{
    for (double tol : { 1e-10, 1e-6, 1e-3, 0.1 })
        for (int i = 0; i < 100; ++i) {
            const mat from = tangled();
            expectNear(untangled(from, tol), byTheSteps(from, tol), 1e-9);
        }
}

static double apart(const mat &a, const mat &b)
{
    double most = 0;
    for (int k = 0; k < 9; ++k) most = std::max(most, fabs(a[k] - b[k]));
    return most;
}

/* One matrix that is there with the twentieth step, and one that is still under way then: both come near slowly and
   without swinging, so that each step shows and rounding does not. */
TEST(fTpl3, untanglingEndsWithTheTwentiethStep)
{
    const double tol = 1;
    const struct { mat from; bool isThere; } cases[] = {
        { { 1, 0, 0, 0, 3, 0, 0, 0, -4 }, true  },
        { { 1, 0, 0, 0, 2, 0, 0, 0, -2 }, false },
    };
    for (const auto &c : cases) {
        const mat right = byTheSteps(c.from, tol);
        EXPECT_LT(apart(untangled(c.from, tol), right), 1e-12);
        EXPECT_GT(apart(byTheSteps(c.from, tol, 19), right), 1e-4);
        EXPECT_EQ(byTheSteps(c.from, tol, 21) == right, c.isThere);
        EXPECT_TRUE(c.isThere || apart(byTheSteps(c.from, tol, 21), right) > 1e-4);
    }
}

/* A diagonal matrix by hand: diag(1, 1, z) with z from -1 or 0 to z > 0. */
TEST(fTpl3, untanglingAFlatMatrix)
{
    const double tol = 1e-6, size = sqrt(2.0) * 2 * tol, target = size / 2;
    const mat to = untangled({ 1, 0, 0, 0, 1, 0, 0, 0, 0 }, tol);
    EXPECT_NEAR(det(to), target, 1e-8 * target);
    for (int k : { 1, 2, 3, 5, 6, 7 }) EXPECT_EQ(to[k], 0);
    EXPECT_EQ(to[0], to[4]);
    EXPECT_NEAR(to[0], 1, 1e-6);
    EXPECT_NEAR(to[8], target, 1e-6 * target);
}

TEST(fTpl3, untanglingWorksOnEachOfABlock)
{
    const int nBlock = 5, none = 0;
    std::vector<mat> from;
    reals jac(9 * nBlock);
    for (int e = 0; e < nBlock; ++e) {
        from.push_back(e % 2 ? inverted() : randomMap());
        for (int k = 0; k < 9; ++k) jac[k * nBlock + e] = from[e][k];
    }
    const reals before = jac;
    fTpl3JacReg(jac.data(), &someTol, &none);
    EXPECT_EQ(jac, before);
    fTpl3JacReg(jac.data(), &someTol, &nBlock);
    for (int e = 0; e < nBlock; ++e) {
        const mat to = untangled(from[e], someTol);
        for (int k = 0; k < 9; ++k) EXPECT_EQ(jac[k * nBlock + e], to[k]);
        EXPECT_EQ(to == from[e], e % 2 == 0);
    }
}

/* fTpl3Int does the same to the jacobian of its point. */
TEST(fTpl3, bothUntangleAlike)
{
    auto nodes = referenceNodes(6);
    for (vec &x : nodes) x[2] = -x[2];
    Point p({ moved(nodes, randomMap(), 0.1) }, tplNew(6, 1), 3), plain = p;
    plain.integrate(noTol);
    p.integrate(someTol);
    EXPECT_EQ(p.matrix(p.jac, 0), untangled(plain.matrix(plain.jac, 0), someTol));
}

/* ----------------------------------------------- shells, faces -------------------------------------------- */

/* Half sizes of a plate; its layers lie `apart` from each other. */
static std::vector<vec> plate(int code, double a, double b, double apart)
{
    std::vector<vec> nodes = referenceNodes(code);
    for (vec &x : nodes) x = { a * x[0], b * x[1], 0.5 * apart * x[2] };
    return nodes;
}

/* Wedge and hexahedron as plates: the shell is the solid where its thickness is that of the nodes. */
TEST(fTpl3, aShellAsThickAsItsElementIsTheElement)
{
    const double thick = 0.3;
    for (int code : { 5, 6 }) {
        const tplRec *tpl = tplNew(code, 1);
        for (int nBlock : blocks) {
            std::vector<std::vector<vec>> elements;
            for (int e = 0; e < nBlock; ++e)
                elements.push_back(moved(plate(code, 1.5, 0.7 + e, thick), randomRotation()));
            for (int q = 0; q < tpl->nQuad; ++q) {
                Point shell(elements, tpl, q), solid = shell;
                shell.shell(thick);
                solid.integrate(noTol);
                for (size_t k = 0; k < shell.shg.size(); ++k) EXPECT_NEAR(shell.shg[k], solid.shg[k], 1e-12);
                for (size_t k = 0; k < shell.jac.size(); ++k) EXPECT_NEAR(shell.jac[k], solid.jac[k], 1e-14);
                for (int e = 0; e < nBlock; ++e) EXPECT_NEAR(shell.detW[e], solid.detW[e], 1e-14);
            }
        }
    }
}

/* Both layers in one place: area times thickness, and the slopes of a field in the plane. */
TEST(fTpl3, aShellWhoseLayersCoincide)
{
    const double thick = 0.05;
    const tplRec *tpl = tplNew(6, 1);
    const mat turn = randomRotation();
    const vec normal = { turn[2], turn[5], turn[8] };
    const auto nodes = moved(plate(6, 2, 3, 0), turn);
    double volume = 0;
    for (int q = 0; q < tpl->nQuad; ++q) {
        Point p({ nodes }, tpl, q);
        p.shell(thick);
        volume += p.detW[0];
        const mat slopes = randomMatrix(), grad = p.gradientOf(slopes)[0];
        for (int c = 0; c < 3; ++c) {
            const vec want = { slopes[3 * c], slopes[3 * c + 1], slopes[3 * c + 2] };
            const vec got = { grad[3 * c], grad[3 * c + 1], grad[3 * c + 2] };
            EXPECT_NEAR(length(got - (want - dot(want, normal) * normal)), 0, 1e-13);
        }
    }
    EXPECT_NEAR(volume, 4 * 6 * thick, 1e-14);
}

TEST(fTpl3, aShellNeedsAreaAndThickness)
{
    const auto nodes = plate(6, 1, 1, 0);
    Point p({ nodes, nodes }, tplNew(6, 1), 0);
    checkReturns(p.shell(0.1));
    for (double thick : { 0.0, -0.1, (double) NAN }) {
        checkFails("det-jacobian < 0", p.shell(thick));
        checkFails("in Function <fTpl3IntShl>", p.shell(thick));
        checkFails("det-jacobian < 0", p.shellBoundary(thick));
        checkFails("in Function <fTpl3BndShl>", p.shellBoundary(thick));
    }
    Point line({ nodes, plate(6, 1, 0, 0) }, tplNew(6, 1), 0);
    checkFails("in Function <fTpl3IntShl>", line.shell(0.1));
    checkFails("in Function <fTpl3BndShl>", line.shellBoundary(0.1));
}

/* The element seen from one of its faces: all its nodes, the face's first. */
static std::vector<vec> seenFrom(const tplSrf &face, const std::vector<vec> &nodes)
{
    std::vector<vec> seen;
    for (size_t k = 0; k < nodes.size(); ++k) seen.push_back(nodes[face.bndNodes[k]]);
    return seen;
}

/* The corners of a face, in the order of its row. */
static std::vector<vec> corners(const tplSrf &face, const std::vector<vec> &nodes)
{
    std::vector<vec> at;
    for (int k = 0; k < (face.srfType == 2 ? 4 : 3); ++k) at.push_back(nodes[face.srfNodes[k]]);
    return at;
}

static double areaOf(const std::vector<vec> &at)
{
    double area = length(cross(at[1] - at[0], at[2] - at[0])) / 2;
    if (at.size() == 4) area += length(cross(at[2] - at[0], at[3] - at[0])) / 2;
    return area;
}

/* Every face of every element: areas, outward normals, the theorem of Gauss. */
TEST(fTpl3, facesOfElements)
{
    static const double sizes[] = { 4. / 3, 8. / 3, 4, 8, 4. / 3, 4. / 3 };
    for (size_t k = 0; k < std::size(volumeCodes); ++k)
        for (int nBlock : blocks) {
            const mat map = randomMap(), slopes = randomMatrix();
            const std::vector<vec> nodes = moved(referenceNodes(volumeCodes[k]), map);
            vec middle{}, sum{};
            for (const vec &x : nodes) middle = middle + 1.0 / (double) nodes.size() * x;
            const tplRec *whole = tplNew(volumeCodes[k], 1);
            double flux = 0;
            for (int f = 0; f < whole->nSrfs; ++f) {
                SCOPED_TRACE(testing::Message() << "code " << volumeCodes[k] << " face " << f);
                const tplSrf &face = whole->srfTbl[f];
                const tplRec *tpl = tplNew(face.bndTpl, 1);
                const auto    at = corners(face, nodes);
                double area = 0;
                for (int q = 0; q < tpl->nQuad; ++q) {
                    std::vector<std::vector<vec>> elements((size_t) nBlock, moved(referenceNodes(volumeCodes[k]), map));
                    elements.back() = seenFrom(face, nodes);
                    Point p(elements, tpl, q);
                    checkReturns(p.boundary());
                    const int e = nBlock - 1;
                    const vec n = p.normal(e), x = p.position(e);
                    area += p.detW[e];
                    sum = sum + p.detW[e] * n;
                    flux += p.detW[e] * dot(n, x);
                    EXPECT_NEAR(length(n), 1, 1e-14);
                    EXPECT_GT(dot(n, x - middle), 0);
                    EXPECT_NEAR(dot(n, at[1] - at[0]), 0, 1e-13);
                    EXPECT_NEAR(dot(n, at[2] - at[0]), 0, 1e-13);
                    EXPECT_NEAR(dot(n, x - at[0]), 0, 1e-13);           /* the point is on the face */
                    expectNear(p.gradientOf(slopes)[e], slopes, 1e-12);
                }
                EXPECT_NEAR(area, areaOf(at), 1e-12);
            }
            EXPECT_NEAR(length(sum), 0, 1e-12);
            EXPECT_NEAR(flux, 3 * sizes[k] * det(map), 1e-10);
        }
}

TEST(fTpl3, theFacesOfACube)
{
    const auto nodes = referenceNodes(6);
    const tplRec *whole = tplNew(6, 1), *tpl = tplNew(12, 1);
    std::set<std::array<int, 3>> normals;
    for (int f = 0; f < 6; ++f)
        for (int q = 0; q < tpl->nQuad; ++q) {
            Point p({ seenFrom(whole->srfTbl[f], nodes) }, tpl, q);
            p.boundary();
            EXPECT_DOUBLE_EQ(p.detW[0], 1);
            normals.insert({ (int) p.norm[0], (int) p.norm[1], (int) p.norm[2] });
        }
    const std::set<std::array<int, 3>> all = { { 1, 0, 0 },  { -1, 0, 0 }, { 0, 1, 0 },
                                               { 0, -1, 0 }, { 0, 0, 1 },  { 0, 0, -1 } };
    EXPECT_EQ(normals, all);
}

TEST(fTpl3, aFaceNeedsAreaAndItsElementVolume)
{
    const auto good = referenceNodes(6);
    auto narrow = good, flat = good, inside = good;
    for (vec &x : narrow) x[0] = 0;                                     /* the face is a line */
    for (vec &x : flat) x[2] = 0;                                       /* the face has an area, the element nothing */
    for (vec &x : inside) x[2] = -x[2];
    const struct { std::vector<vec> nodes; const char *name; } cases[] = {
        { narrow, "in Function <fTpl3Bnd 1>" }, { flat, "in Function <fTpl3Bnd 2>" },
        { inside, "in Function <fTpl3Bnd 2>" },
    };
    for (const auto &c : cases) {
        Point p({ good, c.nodes, good }, tplNew(12, 1), 0);
        checkFails(c.name, p.boundary());
        checkFails("det-jacobian < 0", p.boundary());
    }
}

/* From above and below, a plate as thick as its nodes lie apart. */
TEST(fTpl3, aFaceOfAShell)
{
    const double thick = 0.2;
    const auto nodes = moved(plate(6, 2, 3, thick), randomRotation());
    const tplRec *tpl = tplNew(12, 1);
    for (int f : { 0, 1 }) {
        double area = 0;
        for (int q = 0; q < tpl->nQuad; ++q) {
            Point shell({ seenFrom(tplNew(6, 1)->srfTbl[f], nodes) }, tpl, q), solid = shell;
            shell.shellBoundary(thick);
            solid.boundary();
            area += shell.detW[0];
            for (size_t k = 0; k < shell.shg.size(); ++k) EXPECT_NEAR(shell.shg[k], solid.shg[k], 1e-12);
            for (int i = 0; i < 3; ++i) EXPECT_NEAR(shell.norm[i], solid.norm[i], 1e-14);
        }
        EXPECT_NEAR(area, 24, 1e-13);
    }
}

/* ------------------------------------------------- surfaces ----------------------------------------------- */

/* A triangle or quadrilateral by itself: the shape functions of the face of an element, its first nodes. */
struct Surface {
    reals  crd, shgl, detW, norm, jac;
    double wgt;
    int    nBlock, nen;
    Surface(const std::vector<std::vector<vec>> &elements, int bndTpl, int q)
        : crd(asBlock(elements)), detW(elements.size()), norm(3 * elements.size()), jac(9 * elements.size()),
          nBlock((int) elements.size()), nen((int) elements[0].size())
    {
        const tplRec *tpl = tplNew(bndTpl, 1);
        wgt = tpl->quadWgt[q];
        shgl.assign(tpl->shgl + 3 * q * tpl->nen, tpl->shgl + 3 * (q * tpl->nen + nen));
    }
    void run()
    {
        const double *noShp = nullptr;
        fTpl3Srf(crd.data(), &wgt, noShp, shgl.data(), detW.data(), norm.data(), jac.data(), &nBlock, &nen);
    }
};

TEST(fTpl3, surfacesByThemselves)
{
    const std::vector<vec> triangle = { { 1, 0, 0 }, { 3, 0, 0 }, { 0, 4, 0 } };
    const std::vector<vec> quad = { { 0, 0, 0 }, { 3, 0, 0 }, { 2, 2, 0 }, { -1, 1, 0 } };
    const struct { std::vector<vec> nodes; int bndTpl; double area; } cases[] = {
        { triangle, 7, 4 }, { quad, 12, areaOf(quad) },
    };
    for (const auto &c : cases)
        for (int nBlock : blocks) {
            const mat turn = randomRotation();
            std::vector<std::vector<vec>> elements((size_t) nBlock, c.nodes);
            elements.back() = moved(c.nodes, turn);
            double area = 0;
            for (int q = 0; q < tplNew(c.bndTpl, 1)->nQuad; ++q) {
                Surface s(elements, c.bndTpl, q);
                s.run();
                area += s.detW[nBlock - 1];
                for (int i = 0; i < 3; ++i) EXPECT_NEAR(s.norm[i * nBlock + nBlock - 1], turn[3 * i + 2], 1e-14);
            }
            EXPECT_NEAR(area, c.area, 1e-13);
        }
    Surface line({ triangle, { { 0, 0, 0 }, { 1, 1, 1 }, { 3, 3, 3 } } }, 7, 0);
    checkFails("det-jacobian < 0", line.run());
    checkFails("in Function <fTpl3Srf>", line.run());
}

TEST(fTpl3, blocksOfNothing)
{
    const tplRec *tpl = tplNew(6, 1);
    for (int nBlock : { 0, -1 }) {
        Point p({ referenceNodes(6) }, tpl, 0);
        Surface s({ referenceNodes(3) }, 7, 0);
        p.nBlock = s.nBlock = nBlock;
        checkReturns(p.integrate(someTol));
        checkReturns(p.shell(-1));
        checkReturns(p.boundary());
        checkReturns(p.shellBoundary(-1));
        checkReturns(s.run());
        for (double x : p.shg) EXPECT_EQ(x, 0);
        EXPECT_EQ(p.detW[0], 0);
        EXPECT_EQ(s.detW[0], 0);
    }
}

/* -------------------------------------------------- metric ------------------------------------------------ */

static const std::vector<int> metricCodes = { 3, 4, 5, 6, 16, 28 };

/* M by code: diagonal and off-diagonal of the first two directions, the same with the third. */
struct Metric { double diag, off, third, offThird; };

static Metric metricOf(int code, bool up)
{
    const double cube = cbrt(2.0), root = sqrt(3.0);
    if (code == 4 || code == 6) return { 1, 0, 1, 0 };
    if (code == 5) return { 2 / root, (up ? -1 : 1) / root, 1, 0 };
    if (up) return { 1.5 / cube, -0.5 / cube, 1.5 / cube, -0.5 / cube };
    return { cube, cube / 2, cube, cube / 2 };
}

TEST(fTpl3, metricsByTheFormula)
{
    static const int order[6][2] = { { 0, 0 }, { 1, 1 }, { 2, 2 }, { 0, 1 }, { 1, 2 }, { 0, 2 } };
    for (int code : metricCodes)
        for (bool up : { false, true })
            for (int nBlock : { 0, 1, 2, 5 }) {
                reals h((size_t) nBlock * 9), g((size_t) nBlock * 6);
                for (double &x : h) x = random(-1, 1);
                (up ? fTpl3GijUp : fTpl3GijDown)(h.data(), g.data(), &nBlock, &code);
                const Metric v = metricOf(code, up);
                const double m[3][3] = { { v.diag, v.off, v.offThird }, { v.off, v.diag, v.offThird },
                                         { v.offThird, v.offThird, v.third } };
                for (int e = 0; e < nBlock; ++e) {
                    long double trace = 0, want[6] = {};
                    for (int k = 0; k < 6; ++k) {
                        for (int a = 0; a < 3; ++a)
                            for (int b = 0; b < 3; ++b)
                                want[k] += (long double) h[(3 * order[k][0] + a) * nBlock + e] * m[a][b] *
                                           h[(3 * order[k][1] + b) * nBlock + e];
                        if (k < 3) trace += want[k];
                    }
                    for (int k = 0; k < 6; ++k)
                        EXPECT_NEAR(g[k * nBlock + e], (double) want[k], 2e-15 * (double) trace) << code << " " << k;
                }
            }
}

/* The lift keeps the diagonal of a flat element above zero. */
TEST(fTpl3, theDiagonalIsLifted)
{
    const int nBlock = 1, code = 6;
    const mat h = { 2, 0, 0, 0, 0, 0, 0, 0, 0 };
    reals g(6);
    for (auto metric : { fTpl3GijDown, fTpl3GijUp }) {
        metric(h.data(), g.data(), &nBlock, &code);
        const double lift = std::numeric_limits<double>::epsilon() * 4;
        EXPECT_EQ(g, (reals{ 4 + lift, lift, lift, 0, 0, 0 }));
    }
}

/* The matrices of the two forms are inverse to each other: by identity jacobians. */
TEST(fTpl3, downAndUpBelongTogether)
{
    const int nBlock = 1;
    const mat one = { 1, 0, 0, 0, 1, 0, 0, 0, 1 };
    for (int code : metricCodes) {
        reals d(6), u(6);
        fTpl3GijDown(one.data(), d.data(), &nBlock, &code);
        fTpl3GijUp(one.data(), u.data(), &nBlock, &code);
        const mat down = { d[0], d[3], d[5], d[3], d[1], d[4], d[5], d[4], d[2] };
        const mat up = { u[0], u[3], u[5], u[3], u[1], u[4], u[5], u[4], u[2] };
        for (int j = 0; j < 3; ++j) {
            const vec column = times(down, { up[j], up[3 + j], up[6 + j] });
            for (int i = 0; i < 3; ++i) EXPECT_NEAR(column[i], i == j, 1e-14) << code;
        }
        EXPECT_NEAR(det(down), 1, 1e-14);
    }
}

TEST(fTpl3, codesWithoutAMetric)
{
    const int nBlock = 1;
    const mat h{};
    reals g(6, 7);
    for (int code = -1; code <= 31; ++code) {
        if (std::count(metricCodes.begin(), metricCodes.end(), code)) continue;
        checkFails("wrong tplType", fTpl3GijDown(h.data(), g.data(), &nBlock, &code));
        checkFails("in Function <fTpl3GijDown>", fTpl3GijDown(h.data(), g.data(), &nBlock, &code));
        checkFails("wrong tplType", fTpl3GijUp(h.data(), g.data(), &nBlock, &code));
        checkFails("in Function <fTpl3GijUp>", fTpl3GijUp(h.data(), g.data(), &nBlock, &code));
    }
    EXPECT_EQ(g, reals(6, 7));
}

/* -------------------------------------------------- volume ------------------------------------------------ */

static double volumeOf(int code, const std::vector<vec> &nodes)
{
    /* the rows stand apart and in another order than the element has them */
    reals crd(3 * 40, NAN);
    std::vector<int> at;
    for (size_t a = 0; a < nodes.size(); ++a) {
        at.push_back((int) (a * 7 + 3) % 40);
        for (size_t i = 0; i < 3; ++i) crd[3 * (size_t) at[a] + i] = nodes[a][i];
    }
    double vol = NAN;
    fTpl3ElmVol(crd.data(), at.data(), &vol, &code);
    return vol;
}

typedef std::array<long double, 3> longVec;

/* The point of an element at (u, v, w) of the unit cube, which collapses where the element comes to a point. It is
   linear in each of the three. */
static longVec atCube(int code, const std::vector<vec> &x, long double u, long double v, long double w)
{
    auto mix = [](const longVec &a, const longVec &b, long double f) {
        return longVec{ a[0] + f * (b[0] - a[0]), a[1] + f * (b[1] - a[1]), a[2] + f * (b[2] - a[2]) };
    };
    auto node = [&](int a) { return longVec{ x[a][0], x[a][1], x[a][2] }; };
    auto tri  = [&](int a, int b, int c) { return mix(node(a), mix(node(b), node(c), v), u); };
    auto quad = [&](int a, int b, int c, int d) {
        return mix(mix(node(a), node(b), u), mix(node(d), node(c), u), v);
    };
    switch (code) {
    case 3:  return mix(tri(0, 1, 2), node(3), w);
    case 4:  return mix(quad(0, 1, 2, 3), node(4), w);
    case 5:  return mix(tri(0, 1, 2), tri(3, 4, 5), w);
    default: return mix(quad(0, 1, 2, 3), quad(4, 5, 6, 7), w);
    }
}

/* The integral of the determinant of that map, by the Gauss rule of five points in each direction. */
static long double byQuadrature(int code, const std::vector<vec> &nodes)
{
    const long double r = 2 * sqrtl(10.0L / 7), s = sqrtl(70);
    const long double x[5] = { -sqrtl(5 + r) / 3, -sqrtl(5 - r) / 3, 0, sqrtl(5 - r) / 3, sqrtl(5 + r) / 3 };
    const long double w[5] = { (322 - 13 * s) / 900, (322 + 13 * s) / 900, 128 / 225.0L, (322 + 13 * s) / 900,
                               (322 - 13 * s) / 900 };
    long double sum = 0;
    for (int i = 0; i < 125; ++i) {
        const int at[3] = { i % 5, i / 5 % 5, i / 25 };
        long double c[3], weight = 1;
        for (int k = 0; k < 3; ++k) {
            c[k] = (1 + x[at[k]]) / 2;
            weight *= w[at[k]] / 2;
        }
        longVec d[3];
        for (int k = 0; k < 3; ++k) {
            const long double h = 0.25L;            /* differences of a linear function are its slope */
            const longVec a = atCube(code, nodes, c[0] + (k == 0) * h, c[1] + (k == 1) * h, c[2] + (k == 2) * h);
            const longVec b = atCube(code, nodes, c[0] - (k == 0) * h, c[1] - (k == 1) * h, c[2] - (k == 2) * h);
            for (int j = 0; j < 3; ++j) d[k][j] = (a[j] - b[j]) / (2 * h);
        }
        sum += weight * (d[0][0] * (d[1][1] * d[2][2] - d[1][2] * d[2][1]) +
                         d[0][1] * (d[1][2] * d[2][0] - d[1][0] * d[2][2]) +
                         d[0][2] * (d[1][0] * d[2][1] - d[1][1] * d[2][0]));
    }
    return sum;
}

TEST(fTpl3, volumesOfReferenceElements)
{
    EXPECT_EQ(volumeOf(6, referenceNodes(6)), 8);                       /* a cube of side 2 */
    EXPECT_DOUBLE_EQ(volumeOf(3, referenceNodes(3)), 4. / 3);
    EXPECT_DOUBLE_EQ(volumeOf(4, referenceNodes(4)), 8. / 3);
    EXPECT_DOUBLE_EQ(volumeOf(5, referenceNodes(5)), 4);
}

/* Warped, tangled, inverted: always the integral of the determinant. */
TEST(fTpl3, volumesAreThoseOfTheMap)
{
    for (int code : { 3, 4, 5, 6 })
        for (int i = 0; i < 200; ++i) {
            std::vector<vec> nodes = referenceNodes(code);
            if (i < 100) nodes = moved(nodes, randomMap(), 0.4);
            else for (vec &x : nodes) x = { random(-1, 1), random(-1, 1), random(-1, 1) };
            EXPECT_NEAR(volumeOf(code, nodes), (double) byQuadrature(code, nodes), 1e-13) << code << " " << i;
        }
}

TEST(fTpl3, volumesAreThoseOfTheQuadrature)
{
    for (int code : { 3, 4, 5, 6 }) {
        const auto nodes = moved(referenceNodes(code), randomMap(), 0.1);
        const tplRec *tpl = tplNew(code, 5);
        double sum = 0;
        for (int q = 0; q < tpl->nQuad; ++q) {
            Point p({ nodes }, tpl, q);
            p.integrate(noTol);
            sum += p.detW[0];
        }
        EXPECT_NEAR(volumeOf(code, nodes), sum, 1e-12) << code;
    }
}

/* A small element at a great distance keeps its digits. */
TEST(fTpl3, volumesFarFromTheOrigin)
{
    for (int code : { 3, 4, 5, 6 }) {
        const double power = 1 << 20;                                   /* sums with it are exact here */
        auto nodes = referenceNodes(code), far = nodes;
        for (vec &x : far) x = x + vec{ power, -3 * power, 5 * power };
        EXPECT_EQ(volumeOf(code, far), volumeOf(code, nodes)) << code;
    }
}

TEST(fTpl3, codesWithoutAVolume)
{
    for (int code = -1; code <= 31; ++code) {
        if (code >= 3 && code <= 6) continue;
        const reals crd(30);
        const int nodes[10] = {};
        double vol = 7;
        checkFails("invalid elmType", fTpl3ElmVol(crd.data(), nodes, &vol, &code));
        checkFails("in Function <fTpl3ElmVol>", fTpl3ElmVol(crd.data(), nodes, &vol, &code));
        EXPECT_EQ(vol, 7);
    }
}
