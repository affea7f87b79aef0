/* fMtx.cpp: the inner arithmetic of element loops.
 *
 * Each formula stands once, as a template of what the compiler should know: the number of nodes, so that a sum over
 * them has no loop, and for copies the number of components. The loop over the elements of the block is the innermost
 * one and runs over neighbours in memory. A block of one element, which is what reading a run works with, has no such
 * loop: its size is known to the compiler too.
 *
 * The compiler may neither change the order of a sum nor join a product and a sum into one operation; the build file
 * forbids it the second.
 *
 * In this file: sums over nodes, gradients, values, gather and scatter, search. */

#include "mtx/fMtx.h"

#include <stddef.h>

#include <type_traits>
#include <utility>

#include "base/sys.h"

enum { MAX_NEN = 10 };

/* the size of a block that the compiler knows */
typedef std::integral_constant<ptrdiff_t, 1> oneElement;

/* ---------------------------------------------- sums over nodes ------------------------------------------- */

struct operands {
    const double *val, *shp;
    double       *out;
    int           nDof, nDirs;      /* nDirs is 0 where shp is one row for all elements */
};

/* out(c, i) = sum over NEN nodes of shg(a, i) * val(a, c), or that sum added to what is there. */
template <int NEN, bool ADD, class Block> static void gradient(const operands &k, Block nBlock)
{
    const ptrdiff_t valStep = k.nDof * nBlock, shgStep = k.nDirs * nBlock;
    for (int c = 0; c < k.nDof; ++c)
        for (int i = 0; i < k.nDirs; ++i) {
            const double *__restrict val = k.val + c * nBlock;
            const double *__restrict shg = k.shp + i * nBlock;
            double *__restrict grad = k.out + (c * k.nDirs + i) * nBlock;
            for (ptrdiff_t e = 0; e < nBlock; ++e) {
                double sum = val[e] * shg[e];
                for (int a = 1; a < NEN; ++a) sum += val[a * valStep + e] * shg[a * shgStep + e];
                grad[e] = ADD ? grad[e] + sum : sum;
            }
        }
}

/* out(c) = sum over NEN nodes of shp(a) * val(a, c). */
template <int NEN, class Block> static void value(const operands &k, Block nBlock)
{
    const ptrdiff_t valStep = k.nDof * nBlock;
    const double *__restrict shp = k.shp;
    for (int c = 0; c < k.nDof; ++c) {
        const double *__restrict val = k.val + c * nBlock;
        double *__restrict res = k.out + c * nBlock;
        for (ptrdiff_t e = 0; e < nBlock; ++e) {
            double sum = shp[0] * val[e];
            for (int a = 1; a < NEN; ++a) sum += shp[a] * val[a * valStep + e];
            res[e] = sum;
        }
    }
}

enum sumKind { SET_GRADIENT, ADD_GRADIENT, VALUE };

template <sumKind KIND, int NEN> static void sumOver(const operands &k, int nBlock)
{
    if constexpr (KIND == VALUE) {
        if (nBlock == 1) value<NEN>(k, oneElement());
        else value<NEN>(k, (ptrdiff_t) nBlock);
    } else {
        if (nBlock == 1) gradient<NEN, KIND == ADD_GRADIENT>(k, oneElement());
        else gradient<NEN, KIND == ADD_GRADIENT>(k, (ptrdiff_t) nBlock);
    }
}

typedef void (*sumKernel)(const operands &k, int nBlock);

struct kernelTable {
    sumKernel of[MAX_NEN];          /* for 1, 2, ... nodes */
};

template <sumKind KIND, int... N> static constexpr kernelTable forEachNen(std::integer_sequence<int, N...>)
{
    return { { sumOver<KIND, N + 1>... } };
}

/* Tests the counts and runs the kernel for nen nodes. */
template <sumKind KIND> static void run(const char *name, const operands &k, int nBlock, int nen)
{
    static constexpr kernelTable kernels = forEachNen<KIND>(std::make_integer_sequence<int, MAX_NEN>());
    if (nen > MAX_NEN) sysAssertFixed2(name, "nen > 10");
    if (nen > 0 && nBlock > 0) kernels.of[nen - 1](k, nBlock);
}

/* The name under which a count of components fails: its member's, or that of the form for any count. */
template <int N> static const char *nameOf(const char *const (&names)[N], int nDof)
{
    return nDof > 0 && nDof < N && names[nDof] ? names[nDof] : names[0];
}

/* ------------------------------------------------ gradients ----------------------------------------------- */

#define GRADIENT(kind, name, nDof)                                                                           \
    void name(const double *val, const double *shg, double *grad, const int *nBlock, const int *nen)        \
    {                                                                                                        \
        run<kind>(#name, { val, shg, grad, nDof, 3 }, *nBlock, *nen);                                        \
    }
GRADIENT(SET_GRADIENT, fMtx3Grad1, 1)
GRADIENT(SET_GRADIENT, fMtx3Grad2, 2)
GRADIENT(SET_GRADIENT, fMtx3Grad3, 3)
GRADIENT(SET_GRADIENT, fMtx3Grad4, 4)
GRADIENT(SET_GRADIENT, fMtx3Grad5, 5)
GRADIENT(SET_GRADIENT, fMtx3Grad6, 6)
GRADIENT(ADD_GRADIENT, fMtxAdd3Grad1, 1)
GRADIENT(ADD_GRADIENT, fMtxAdd3Grad2, 2)
GRADIENT(ADD_GRADIENT, fMtxAdd3Grad3, 3)
GRADIENT(ADD_GRADIENT, fMtxAdd3Grad4, 4)
GRADIENT(ADD_GRADIENT, fMtxAdd3Grad5, 5)
GRADIENT(ADD_GRADIENT, fMtxAdd3Grad6, 6)
#undef GRADIENT

void fMtx3Grad(const double *val, const double *shg, double *grad, const int *nBlock, const int *nDof, const int *nen)
{
    static const char *const names[] = { "fMtx3Grad",  "fMtx3Grad1", "fMtx3Grad2", "fMtx3Grad3",
                                         "fMtx3Grad4", "fMtx3Grad5", "fMtx3Grad6" };
    run<SET_GRADIENT>(nameOf(names, *nDof), { val, shg, grad, *nDof, 3 }, *nBlock, *nen);
}

void fMtxAdd3Grad(const double *val, const double *shg, double *grad, const int *nBlock, const int *nDof,
                  const int *nen)
{
    static const char *const names[] = { "fMtxAdd3Grad",  "fMtxAdd3Grad1", "fMtxAdd3Grad2", "fMtxAdd3Grad3",
                                         "fMtxAdd3Grad4", "fMtxAdd3Grad5", "fMtxAdd3Grad6" };
    run<ADD_GRADIENT>(nameOf(names, *nDof), { val, shg, grad, *nDof, 3 }, *nBlock, *nen);
}

/* A second gradient is a gradient in six directions. */
void fMtx3Curv3(const double *val, const double *shgg, double *curv, const int *nBlock, const int *nen)
{
    run<SET_GRADIENT>("fMtx3Curv3", { val, shgg, curv, 3, 6 }, *nBlock, *nen);
}

/* ------------------------------------------------- values ------------------------------------------------- */

#define POINT(name, nDof)                                                                                    \
    void name(const double *val, const double *shp, double *res, const int *nBlock, const int *nen)         \
    {                                                                                                        \
        run<VALUE>(#name, { val, shp, res, nDof, 0 }, *nBlock, *nen);                                        \
    }
POINT(fMtxValue1, 1)
POINT(fMtxValue2, 2)
POINT(fMtxValue3, 3)
POINT(fMtxValue5, 5)
POINT(fMtxValue6, 6)
#undef POINT

void fMtxValue(const double *val, const double *shp, double *res, const int *nBlock, const int *nDof, const int *nen)
{
    static const char *const names[] = { "fMtxValue", "fMtxValue1", "fMtxValue2", "fMtxValue3",
                                         nullptr,     "fMtxValue5", "fMtxValue6" };
    run<VALUE>(nameOf(names, *nDof), { val, shp, res, *nDof, 0 }, *nBlock, *nen);
}

/* -------------------------------------------- gather and scatter ------------------------------------------ */

/* f(row, block): for each node of each element, where its row of nDof begins and its first place in the block. */
template <class F> static inline void forNodes(const int *nodes, ptrdiff_t nBlock, int nDof, int nen, F f)
{
    for (ptrdiff_t e = 0; e < nBlock; ++e)
        for (int a = 0; a < nen; ++a) f((ptrdiff_t) nodes[e * nen + a] * nDof, (ptrdiff_t) a * nDof * nBlock + e);
}

/* Calls f with the count of components, as a constant for those that fields of a flow have. */
template <class F> static inline void forDof(int nDof, F f)
{
    switch (nDof) {
    case 1:  return f(std::integral_constant<int, 1>());
    case 2:  return f(std::integral_constant<int, 2>());
    case 3:  return f(std::integral_constant<int, 3>());
    case 4:  return f(std::integral_constant<int, 4>());
    case 5:  return f(std::integral_constant<int, 5>());
    default: return f(nDof);
    }
}

void fMtxGather(const int *nodes, const double *source, double *dest, const int *nBlock, const int *nen)
{
    const int nDof = 3;
    fMtxGatherN(nodes, source, dest, nBlock, &nDof, nen);
}

void fMtxGatherN(const int *nodes, const double *source, double *dest, const int *nBlock, const int *nDof,
                 const int *nen)
{
    const ptrdiff_t n = *nBlock;
    forDof(*nDof, [=](auto dof) {
        forNodes(nodes, n, dof, *nen, [=](ptrdiff_t row, ptrdiff_t block) {
            for (int c = 0; c < dof; ++c) dest[block + c * n] = source[row + c];
        });
    });
}

void fMtxScatterAdd(const int *nodes, double *accumulator, const double *values, const int *nBlock, const int *nDof,
                    const int *nen)
{
    const ptrdiff_t n = *nBlock;
    forDof(*nDof, [=](auto dof) {
        forNodes(nodes, n, dof, *nen, [=](ptrdiff_t row, ptrdiff_t block) {
            for (int c = 0; c < dof; ++c) accumulator[row + c] += values[block + c * n];
        });
    });
}

/* ------------------------------------------------- search ------------------------------------------------- */

int fMtxBinFind(const int *table, const int *n, const int *pat)
{
    int miss;
    const int position = sysBinFind(table, *n, 1, *pat, &miss);
    if (miss) sysAssertFixed2("fMtxBinFind", "pat not found");
    return position;
}
