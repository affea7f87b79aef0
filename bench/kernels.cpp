/* kernels.cpp: how fast the arithmetic on elements is.
 *
 *     benchKernels [--benchmark_filter=...]
 *
 * A mesh of elements whose nodes have ids in no order, as they come from a mesh generator. "face" looks for the face of
 * an element that has given nodes, for a million surfaces; "normals" gathers, works out and adds up nodal directions in
 * batches of 128; "gradient" is what one quadrature point takes, jacobian, weight and gradient of a vector field, with
 * one element in a block or 128; "volume" is that of an element in closed form. Items are surfaces, points or
 * elements. */

#include <benchmark/benchmark.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "mtx/fMtx.h"
#include "tpl/fTpl3.h"
#include "tpl/tpl.h"

namespace {

enum { N_SURFACES = 1000000, BATCH = 128, N_NODES = 200000 };

std::mt19937 dice(1);

/* Each row of nen different nodes near each other in a numbering that is shuffled. */
std::vector<int> connectivity(int n, int nen)
{
    std::vector<int> number(N_NODES), cnn;
    std::iota(number.begin(), number.end(), 0);
    std::shuffle(number.begin(), number.end(), dice);
    for (int e = 0; e < n; ++e)
        for (int a = 0; a < nen; ++a) cnn.push_back(number[(size_t(e) / 6 + size_t(a) * 37) % N_NODES]);
    return cnn;
}

std::vector<double> reals(size_t n)
{
    std::uniform_real_distribution<double> number(-0.05, 0.05);
    std::vector<double> v(n);
    for (double &x : v) x = number(dice);
    return v;
}

void face(benchmark::State &state)
{
    const tplRec *tpl = tplNew(int(state.range(0)), 1);
    const int nen = tpl->nen, nElms = N_SURFACES / tpl->nSrfs + 1;
    const std::vector<int> cnn = connectivity(nElms, nen);
    std::vector<int> surfaces;                                          /* six places for each */
    for (int i = 0; i < N_SURFACES; ++i) {
        const tplSrf &srf = tpl->srfTbl[i % tpl->nSrfs];
        for (int k = 0; k < 6; ++k) {
            const int node = srf.srfNodes[(k + i) % srf.nSrfNodes];
            surfaces.push_back(cnn[size_t(i / tpl->nSrfs) * size_t(nen) + size_t(node)]);
        }
    }
    for (auto _ : state) {
        int found = 0, srfId, nodes[10];
        for (int i = 0; i < N_SURFACES; ++i) {
            const int *elem = &cnn[size_t(i / tpl->nSrfs) * size_t(nen)];
            const int  srfType = tpl->srfTbl[i % tpl->nSrfs].srfType;
            found += tplSrf2Srf(tpl, srfType, elem, &surfaces[size_t(i) * 6], nodes, &srfId);
        }
        if (found != N_SURFACES) state.SkipWithError("a face was not found");
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * N_SURFACES);
}

void normals(benchmark::State &state, void (*kernel)(const double *, double *, int, int))
{
    const int code = int(state.range(0)), nen = code == 1 ? 3 : code == 2 ? 4 : 6, nDof = 3;
    const std::vector<int>    cnn = connectivity(N_SURFACES, nen);
    const std::vector<double> crd = reals(3 * N_NODES);
    std::vector<double> sums(3 * N_NODES), x(BATCH * 18), dir(x.size());
    for (auto _ : state)
        for (int first = 0; first < N_SURFACES; first += BATCH) {
            const int  n = std::min<int>(BATCH, N_SURFACES - first);
            const int *nodes = &cnn[size_t(first) * size_t(nen)];
            fMtxGatherN(nodes, crd.data(), x.data(), &n, &nDof, &nen);
            kernel(x.data(), dir.data(), code, n);
            fMtxScatterAdd(nodes, sums.data(), dir.data(), &n, &nDof, &nen);
        }
    benchmark::DoNotOptimize(sums.data());
    state.SetItemsProcessed(int64_t(state.iterations()) * N_SURFACES);
}

/* A block of slightly warped elements: the nodes of the reference element, moved. */
std::vector<double> warped(const tplRec *nodes, int nBlock)
{
    std::vector<double> crd = reals(size_t(nodes->nen) * 3 * size_t(nBlock));
    for (size_t i = 0; i < crd.size(); ++i) crd[i] += nodes->quadCrd[i / size_t(nBlock)];
    return crd;
}

void gradient(benchmark::State &state)
{
    const int     code = int(state.range(0)), nBlock = int(state.range(1)), nDof = 3;
    const tplRec *tpl = tplNew(code, 1);
    const int     nen = tpl->nen;
    const double  tol = 1e-8;
    const size_t  n = size_t(nBlock);
    const std::vector<double> crd = warped(tplNew(code, 3), nBlock), val = reals(crd.size());
    std::vector<double> shg(crd.size()), detW(n), jac(9 * n), jacInv(9 * n), grad(9 * n);
    for (auto _ : state)
        for (int q = 0; q < tpl->nQuad; ++q) {
            fTpl3Int(crd.data(), tpl->quadWgt + q, tpl->shp + q * nen, tpl->shgl + q * nen * 3, shg.data(),
                     detW.data(), jac.data(), jacInv.data(), &tol, &nBlock, &nen);
            fMtx3Grad(val.data(), shg.data(), grad.data(), &nBlock, &nDof, &nen);
            benchmark::DoNotOptimize(grad.data());
        }
    state.SetItemsProcessed(int64_t(state.iterations()) * tpl->nQuad * nBlock);
}

void volume(benchmark::State &state)
{
    const int code = int(state.range(0));
    const std::vector<double> crd = warped(tplNew(code, 3), 1);
    const int nodes[] = { 0, 1, 2, 3, 4, 5, 6, 7 };
    for (auto _ : state) {
        double vol;
        fTpl3ElmVol(crd.data(), nodes, &vol, &code);
        benchmark::DoNotOptimize(vol);
    }
    state.SetItemsProcessed(int64_t(state.iterations()));
}

}  // namespace

BENCHMARK(face)->ArgName("code")->Arg(3)->Arg(4)->Arg(5)->Arg(6)->Arg(16)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(normals, nodes, tplNodalDirType)->ArgName("code")->Arg(1)->Arg(2)->Arg(15)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(normals, edges, tplNodalEdgeDirType)->ArgName("code")->Arg(1)->Arg(2)->Arg(15)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(gradient)->ArgNames({ "code", "block" })->ArgsProduct({ { 3, 4, 5, 6, 16, 28 }, { 1, 128 } });
BENCHMARK(volume)->ArgName("code")->DenseRange(3, 6);

BENCHMARK_MAIN();
