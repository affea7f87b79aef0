/* testFMtx.cpp: gradients, values, gather and scatter over blocks of elements. */

#include <math.h>
#include <string.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "mtx/fMtx.h"
#include "test/testUtil.h"

typedef std::vector<double> reals;
typedef std::vector<int>    ints;

static std::mt19937 generator(7);

/* Numbers of many sizes, so that another order of summation shows. */
static reals randomReals(size_t n)
{
    std::uniform_real_distribution<double> mantissa(-1, 1), exponent(-12, 12);
    reals v(n);
    for (double &x : v) x = mantissa(generator) * pow(2, exponent(generator));
    return v;
}

/* ------------------------------------------- the members of the set --------------------------------------- */

/* What a kernel computes: out(c, i) = [what was there +] sum over a of val(a, c) * shp(a, i). nDirs 0: shp(a), the same
   for all elements. */
struct Kernel {
    std::string name;                   /* under which it fails */
    int         nDof, nDirs;
    bool        add;
    std::function<void(const double *val, const double *shp, double *out, const int *nBlock, const int *nen)> call;
};

/* A form for any count of components, with one of them. */
template <class F> static Kernel withDof(const std::string &name, int nDof, int nDirs, bool add, F f)
{
    return { name, nDof, nDirs, add, [=](const double *val, const double *shp, double *out, const int *nBlock,
                                         const int *nen) { f(val, shp, out, nBlock, &nDof, nen); } };
}

static std::vector<Kernel> allKernels()
{
    std::vector<Kernel> kernels = {
        { "fMtx3Grad1", 1, 3, false, fMtx3Grad1 },       { "fMtx3Grad2", 2, 3, false, fMtx3Grad2 },
        { "fMtx3Grad3", 3, 3, false, fMtx3Grad3 },       { "fMtx3Grad4", 4, 3, false, fMtx3Grad4 },
        { "fMtx3Grad5", 5, 3, false, fMtx3Grad5 },       { "fMtx3Grad6", 6, 3, false, fMtx3Grad6 },
        { "fMtxAdd3Grad1", 1, 3, true, fMtxAdd3Grad1 },  { "fMtxAdd3Grad2", 2, 3, true, fMtxAdd3Grad2 },
        { "fMtxAdd3Grad3", 3, 3, true, fMtxAdd3Grad3 },  { "fMtxAdd3Grad4", 4, 3, true, fMtxAdd3Grad4 },
        { "fMtxAdd3Grad5", 5, 3, true, fMtxAdd3Grad5 },  { "fMtxAdd3Grad6", 6, 3, true, fMtxAdd3Grad6 },
        { "fMtx3Curv3", 3, 6, false, fMtx3Curv3 },
        { "fMtxValue1", 1, 0, false, fMtxValue1 },       { "fMtxValue2", 2, 0, false, fMtxValue2 },
        { "fMtxValue3", 3, 0, false, fMtxValue3 },       { "fMtxValue5", 5, 0, false, fMtxValue5 },
        { "fMtxValue6", 6, 0, false, fMtxValue6 },
    };
    for (int nDof = 1; nDof <= 9; ++nDof) {
        const std::string number = nDof <= 6 ? std::to_string(nDof) : "";
        kernels.push_back(withDof("fMtx3Grad" + number, nDof, 3, false, fMtx3Grad));
        kernels.push_back(withDof("fMtxAdd3Grad" + number, nDof, 3, true, fMtxAdd3Grad));
        kernels.push_back(withDof("fMtxValue" + (nDof == 4 ? "" : number), nDof, 0, false, fMtxValue));
    }
    return kernels;
}

/* Runs f(kernel) for each, which a failure names. */
template <class F> static void forKernels(F f)
{
    for (const Kernel &kernel : allKernels()) {
        SCOPED_TRACE(testing::Message() << kernel.name << " with " << kernel.nDof);
        f(kernel);
    }
}

/* Arguments of a kernel, with what it should give. */
struct Case {
    int   nBlock, nen;
    reals val, shp, out, before;
    const Kernel &kernel;

    Case(const Kernel &k, int nBlockIn, int nenIn) : nBlock(nBlockIn), nen(nenIn), kernel(k)
    {
        const size_t n = (size_t) std::max(nBlock, 1) * (size_t) std::max(nen, 1);
        val = randomReals(n * (size_t) k.nDof);
        shp = randomReals(k.nDirs ? n * (size_t) k.nDirs : n);
        out = before = randomReals((size_t) std::max(nBlock, 1) * (size_t) (k.nDof * nDirs()));
    }
    int nDirs() const { return std::max(kernel.nDirs, 1); }
    void run() { kernel.call(val.data(), shp.data(), out.data(), &nBlock, &nen); }

    /* f(place, products in the order of the nodes) for each number of the result */
    template <class F> void forResults(F f) const
    {
        for (int c = 0; c < kernel.nDof; ++c)
            for (int i = 0; i < nDirs(); ++i)
                for (int e = 0; e < nBlock; ++e) {
                    std::vector<std::pair<double, double>> factors;
                    for (int a = 0; a < nen; ++a)
                        factors.push_back({ val[(a * kernel.nDof + c) * nBlock + e],
                                            kernel.nDirs ? shp[(a * kernel.nDirs + i) * nBlock + e] : shp[a] });
                    f((c * nDirs() + i) * nBlock + e, factors);
                }
    }
};

static const int blocks[] = { 1, 2, 3, 4, 5, 7, 8, 128, 129 };

TEST(fMtx, sumsByTheFormula)
{
    forKernels([](const Kernel &kernel) {
        for (int nBlock : blocks)
            for (int nen = 1; nen <= 10; ++nen) {
                Case c(kernel, nBlock, nen);
                c.run();
                c.forResults([&](int at, const auto &factors) {
                    long double sum = kernel.add ? c.before[at] : 0, size = fabsl(sum);
                    for (const auto &[x, y] : factors) {
                        sum += (long double) x * y;
                        size += fabsl((long double) x * y);
                    }
                    EXPECT_NEAR(c.out[at], (double) sum, (double) size * 2e-15) << nBlock << " " << nen << " " << at;
                });
            }
    });
}

/* To the last bit: products are rounded, and added one after another by ascending node. */
TEST(fMtx, sumsInTheOrderOfTheNodes)
{
    int otherOrder = 0;
    forKernels([&](const Kernel &kernel) {
        for (int nBlock : blocks)
            for (int nen = 1; nen <= 10; ++nen) {
                Case c(kernel, nBlock, nen);
                c.run();
                c.forResults([&](int at, const auto &factors) {
                    /* what is stored is rounded, whatever the compiler thinks of sums and products */
                    volatile double product = factors[0].first * factors[0].second, sum = product;
                    for (int a = 1; a < nen; ++a) {
                        product = factors[a].first * factors[a].second;
                        sum = sum + product;
                    }
                    if (kernel.add) sum = c.before[at] + sum;
                    EXPECT_EQ(c.out[at], sum) << nBlock << " " << nen << " " << at;

                    volatile double back = factors[nen - 1].first * factors[nen - 1].second;
                    for (int a = nen - 2; a >= 0; --a) {
                        product = factors[a].first * factors[a].second;
                        back = back + product;
                    }
                    otherOrder += back != sum;
                });
            }
    });
    EXPECT_GT(otherOrder, 1000);                /* the numbers do tell one order from another */
}

TEST(fMtx, anElementHasAtMostTenNodes)
{
    forKernels([](const Kernel &kernel) {
        Case ten(kernel, 2, 10), eleven(kernel, 2, 11);
        checkReturns(ten.run());
        EXPECT_NE(ten.out, ten.before);
        checkFails("nen > 10", eleven.run());
        checkFails("in Function <" + kernel.name + ">", eleven.run());
        EXPECT_EQ(eleven.out, eleven.before);
        eleven.nBlock = 0;                      /* the number of nodes is tested first */
        checkFails("nen > 10", eleven.run());
    });
}

TEST(fMtx, countsOfNothingDoNothing)
{
    forKernels([](const Kernel &kernel) {
        for (int nBlock : { 0, -1, 3 })
            for (int nen : { 0, -1, 4 }) {
                if (nBlock > 0 && nen > 0) continue;
                Case c(kernel, nBlock, nen);
                checkReturns(c.run());
                EXPECT_EQ(c.out, c.before) << nBlock << " " << nen;
            }
    });
    for (int nDof : { 0, -1 }) {
        const int nBlock = 2, nen = 4, tooMany = 11;
        const reals val(100, 1), shp(100, 1);
        reals out(100, 5);
        checkReturns(fMtx3Grad(val.data(), shp.data(), out.data(), &nBlock, &nDof, &nen));
        checkReturns(fMtxAdd3Grad(val.data(), shp.data(), out.data(), &nBlock, &nDof, &nen));
        checkReturns(fMtxValue(val.data(), shp.data(), out.data(), &nBlock, &nDof, &nen));
        EXPECT_EQ(out, reals(100, 5));
        checkFails("in Function <fMtx3Grad>", fMtx3Grad(val.data(), shp.data(), out.data(), &nBlock, &nDof, &tooMany));
        checkFails("in Function <fMtxValue>", fMtxValue(val.data(), shp.data(), out.data(), &nBlock, &nDof, &tooMany));
    }
}

/* Seven components go through the form for any count, and give what one component at a time gives. */
TEST(fMtx, sevenComponents)
{
    const int nBlock = 3, nen = 8, nDof = 7, one = 1;
    const reals val = randomReals(nBlock * nen * nDof), shg = randomReals(nBlock * nen * 3);
    reals grad(nBlock * nDof * 3);
    fMtx3Grad(val.data(), shg.data(), grad.data(), &nBlock, &nDof, &nen);
    for (int c = 0; c < nDof; ++c) {
        reals alone(nBlock * nen), expected(nBlock * 3);
        for (int a = 0; a < nen; ++a)
            for (int e = 0; e < nBlock; ++e) alone[a * nBlock + e] = val[(a * nDof + c) * nBlock + e];
        fMtx3Grad(alone.data(), shg.data(), expected.data(), &nBlock, &one, &nen);
        EXPECT_EQ(0, memcmp(&grad[c * 3 * nBlock], expected.data(), expected.size() * sizeof(double))) << c;
    }
}

/* ------------------------------------------- gather and scatter ------------------------------------------- */

static ints randomNodes(int n, int nNodes)
{
    ints nodes((size_t) n);
    for (int &node : nodes) node = (int) (generator() % (unsigned) nNodes);
    return nodes;
}

TEST(fMtx, gatherPutsRowsIntoABlock)
{
    const int nNodes = 50;
    for (int nDof = 1; nDof <= 8; ++nDof)
        for (int nBlock : blocks)
            for (int nen : { 1, 3, 4, 8, 10 }) {
                const ints  nodes = randomNodes(nBlock * nen, nNodes);
                const reals source = randomReals((size_t) (nNodes * nDof));
                reals dest((size_t) (nBlock * nen * nDof)), three(dest.size());
                fMtxGatherN(nodes.data(), source.data(), dest.data(), &nBlock, &nDof, &nen);
                for (int e = 0; e < nBlock; ++e)
                    for (int a = 0; a < nen; ++a)
                        for (int c = 0; c < nDof; ++c)
                            EXPECT_EQ(dest[(a * nDof + c) * nBlock + e], source[nodes[e * nen + a] * nDof + c]);
                if (nDof != 3) continue;
                fMtxGather(nodes.data(), source.data(), three.data(), &nBlock, &nen);
                EXPECT_EQ(three, dest);
            }
}

/* Nodes repeat, so the order of the additions shows in the last bit. */
TEST(fMtx, scatterAddsElementByElement)
{
    const int nNodes = 6;
    for (int nDof = 1; nDof <= 8; ++nDof)
        for (int nBlock : blocks)
            for (int nen : { 1, 3, 4, 8, 10 }) {
                const ints  nodes = randomNodes(nBlock * nen, nNodes);
                const reals values = randomReals((size_t) (nBlock * nen * nDof));
                reals sums = randomReals((size_t) (nNodes * nDof)), expected = sums;
                for (int e = 0; e < nBlock; ++e)
                    for (int a = 0; a < nen; ++a)
                        for (int c = 0; c < nDof; ++c)
                            expected[nodes[e * nen + a] * nDof + c] += values[(a * nDof + c) * nBlock + e];
                fMtxScatterAdd(nodes.data(), sums.data(), values.data(), &nBlock, &nDof, &nen);
                EXPECT_EQ(sums, expected) << nDof << " " << nBlock << " " << nen;
            }
}

TEST(fMtx, gatherAndScatterOfNothing)
{
    const int  three = 3, two = 2;
    const ints nodes(9, 0);
    const reals source(20, 1);
    for (int none : { 0, -1 }) {
        reals dest(50, 5);
        fMtxGather(nodes.data(), source.data(), dest.data(), &none, &three);
        fMtxGather(nodes.data(), source.data(), dest.data(), &two, &none);
        fMtxGatherN(nodes.data(), source.data(), dest.data(), &none, &two, &three);
        fMtxGatherN(nodes.data(), source.data(), dest.data(), &two, &none, &three);
        fMtxGatherN(nodes.data(), source.data(), dest.data(), &two, &two, &none);
        fMtxScatterAdd(nodes.data(), dest.data(), source.data(), &none, &two, &three);
        fMtxScatterAdd(nodes.data(), dest.data(), source.data(), &two, &none, &three);
        fMtxScatterAdd(nodes.data(), dest.data(), source.data(), &two, &two, &none);
        EXPECT_EQ(dest, reals(50, 5));
    }
}

/* ------------------------------------------------- search ------------------------------------------------- */

TEST(fMtx, findsByBisection)
{
    ints table;
    for (int i = 0; i < 100; ++i) table.push_back((int) (INT32_MIN + 42000000LL * i));
    for (int n = 1; n <= 100; ++n)
        for (int i = 0; i < n; ++i) EXPECT_EQ(fMtxBinFind(table.data(), &n, &table[i]), i);
}

TEST(fMtx, whatIsNotInTheTableFails)
{
    const ints table = { 2, 4, 6, 8 };
    for (int n : { 4, 3, 1, 0, -1 })
        for (int pat : { 1, 3, 5, 7, 8, 9 }) {
            if (n == 4 && pat == 8) continue;
            checkFails("pat not found", fMtxBinFind(table.data(), &n, &pat));
            checkFails("in Function <fMtxBinFind>", fMtxBinFind(table.data(), &n, &pat));
        }
}
