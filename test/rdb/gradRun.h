#ifndef TEST_RDB_GRADRUN_H
#define TEST_RDB_GRADRUN_H

/* gradRun.h: a run to take gradients of: element sets of any kind, rule and medium on one mesh, and results that are
 * told by a function. A mesh of one kind is made from a lattice of cubes. */

#include <array>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "test/rdb/smallRun.h"

using Ints = std::vector<int>;
using Vec  = std::array<double, 3>;
using Vecs = std::vector<Vec>;
using Reals = std::vector<double>;

enum { TET = 3, PYRAMID = 4, WEDGE = 5, HEX = 6, TET10 = 16, BUBBLE = 28 };

static const struct { const char *name; int type; } elementKinds[] = {
    { "tetrahedra", TET }, { "pyramids", PYRAMID }, { "wedges", WEDGE }, { "hexahedra", HEX },
    { "ten-node tetrahedra", TET10 }, { "bubbles", BUBBLE },
};

inline int nodesOfKind(int type) { return tplNew(type, 1)->nen; }

/* ---------------------------------------------------------------------------------------------------------- meshes */

struct Mesh {
    Vecs crd;
    std::vector<Ints> elems;                          /* node positions */

    int nodeAt(const Vec &x)
    {
        for (size_t i = 0; i < crd.size(); ++i)
            if (fabs(crd[i][0] - x[0]) + fabs(crd[i][1] - x[1]) + fabs(crd[i][2] - x[2]) < 1e-9) return (int) i;
        crd.push_back(x);
        return (int) crd.size() - 1;
    }
    Vec middle(const Ints &nodes) const
    {
        Vec x = {};
        for (int node : nodes)
            for (int k = 0; k < 3; ++k) x[k] += crd[node][k] / (double) nodes.size();
        return x;
    }
    /* The corners as a tetrahedron of positive volume, with what else its kind has */
    void addTet(int type, Ints n)
    {
        Vec u[3];
        for (int i = 0; i < 3; ++i)
            for (int k = 0; k < 3; ++k) u[i][k] = crd[n[i + 1]][k] - crd[n[0]][k];
        if (u[0][0] * (u[1][1] * u[2][2] - u[1][2] * u[2][1]) + u[0][1] * (u[1][2] * u[2][0] - u[1][0] * u[2][2]) +
            u[0][2] * (u[1][0] * u[2][1] - u[1][1] * u[2][0]) < 0) std::swap(n[2], n[3]);
        static const int edges[6][2] = { { 0, 1 }, { 1, 2 }, { 0, 2 }, { 0, 3 }, { 1, 3 }, { 2, 3 } };
        for (int e = 0; type == TET10 && e < 6; ++e) n.push_back(nodeAt(middle({ n[edges[e][0]], n[edges[e][1]] })));
        if (type == BUBBLE) n.push_back(nodeAt(middle({ n[0], n[1], n[2], n[3] })));
        elems.push_back(n);
    }
    /* The eight corners of a cube, in the order of a hexahedron */
    void addCube(int type, const Ints &h)
    {
        static const int tets[6][4] = { { 0, 1, 2, 6 }, { 0, 1, 5, 6 }, { 0, 3, 2, 6 }, { 0, 3, 7, 6 },
                                        { 0, 4, 5, 6 }, { 0, 4, 7, 6 } };
        static const int sides[6][4] = { { 0, 1, 2, 3 }, { 7, 6, 5, 4 }, { 5, 6, 2, 1 }, { 0, 3, 7, 4 },
                                         { 4, 5, 1, 0 }, { 3, 2, 6, 7 } };
        if (type == HEX) {
            elems.push_back(h);
        } else if (type == WEDGE) {
            elems.push_back({ h[0], h[1], h[3], h[4], h[5], h[7] });
            elems.push_back({ h[1], h[2], h[3], h[5], h[6], h[7] });
        } else if (type == PYRAMID) {
            const int apex = nodeAt(middle(h));
            for (const auto &s : sides) elems.push_back({ h[s[0]], h[s[1]], h[s[2]], h[s[3]], apex });
        } else {
            for (const auto &t : tets) addTet(type, { h[t[0]], h[t[1]], h[t[2]], h[t[3]] });
        }
    }
};

/* n cubes of side 1 in each direction, from `from` on in x, cut into elements */
static inline void addLattice(Mesh *mesh, int type, int n, double from = 0)
{
    static const int corners[8][3] = { { 0, 0, 0 }, { 1, 0, 0 }, { 1, 1, 0 }, { 0, 1, 0 },
                                       { 0, 0, 1 }, { 1, 0, 1 }, { 1, 1, 1 }, { 0, 1, 1 } };
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            for (int k = 0; k < n; ++k) {
                Ints h;
                for (const auto &c : corners)
                    h.push_back(mesh->nodeAt({ from + i + c[0], 1. * j + c[1], 1. * k + c[2] }));
                mesh->addCube(type, h);
            }
}

/* Crooked elements, none of them tangled */
static inline void warp(Mesh *mesh)
{
    for (Vec &x : mesh->crd)
        x = { x[0] + 0.1 * sin(2 * x[1] + x[2]), x[1] + 0.1 * sin(3 * x[2] + x[0]), x[2] + 0.1 * sin(x[0] - 2 * x[1]) };
}

/* ------------------------------------------------------------------------------------------------------------- run */

struct GradVol { int type; std::vector<Ints> elems; int nenTold = 0; };
struct GradElm {
    std::vector<int> vols;
    int    quad = 1, medium = 1;
    double thick = 1, tol = 0;
};
struct LogStep { int step; double timeInc; };

/* Any numbers, the same ones each time, none of them short */
static inline double anyValue(int var, int node, int comp)
{
    return sin(1.0 + 12.9898 * node + 78.233 * comp + 37.719 * var) * (node % 7 ? 1 : 1000);
}

struct GradRun {
    tool::Form form = tool::Form::binary;
    bool scattered = true;
    Vecs crd;
    std::vector<GradVol> vols;
    std::vector<GradElm> elms;
    int  mask = 15, nSpecs = 7;                       /* velocity, pressure, temperature, species */
    Ints steps = { 20 };
    std::function<double(int var, int node, int comp)> value = anyValue;
    std::vector<LogStep> log;                         /* none: no such file */

    GradRun() = default;
    /* One kind of element, one set */
    explicit GradRun(int type, int n = 2, int quad = 1)
    {
        Mesh mesh;
        addLattice(&mesh, type, n);
        warp(&mesh);
        crd = mesh.crd;
        vols = { { type, mesh.elems } };
        elms = { { { 0 } } };
        elms[0].quad = quad;
    }

    int nNodes() const { return (int) crd.size(); }
    int nodeId(int node) const
    {
        if (node == twin) node = 0;
        return scattered ? 1000 + (node * 7) % 10007 * 3 : 1 + node;
    }
    int twin = -1;                                    /* a node that has the user id of node 0 */
    int dim(int var) const { return var == 0 ? 3 : var == 3 ? nSpecs : 1; }
    std::string suffix() const { return tool::formSuffix(form); }

    Reals values(int var) const
    {
        Reals all;
        for (int i = 0; i < nNodes(); ++i)
            for (int c = 0; c < dim(var); ++c) all.push_back(value(var, i, c));
        return all;
    }

    static void putPart(tool::TokenFile &f, int type, int nCols)
    {
        f.keyInt("type", type);
        f.keyInt("nCols", nCols);
    }
    static void putHead(tool::TokenFile &f, int nParts, int nRows, int nCols)
    {
        f.keyInt("nParts", nParts);
        f.keyInt("nRows", nRows);
        f.keyInt("nCols", nCols);
    }

    void writeMesh() const
    {
        Ints  ids;
        Reals xyz;
        for (int i = 0; i < nNodes(); ++i) {
            ids.push_back(nodeId(i));
            xyz.insert(xyz.end(), crd[i].begin(), crd[i].end());
        }
        {
            tool::TokenFile f("p.1.crd", form);
            putHead(f, 2, nNodes(), 4);
            putPart(f, 1, 1);
            f.keyInts("intVec", 1, nNodes(), dataOf(ids));
            putPart(f, 2, 3);
            f.keyReals("realVec", 3, nNodes(), dataOf(xyz));
        }
        for (size_t v = 0; v < vols.size(); ++v) {
            const int n = (int) vols[v].elems.size(), nen = nenOf(vols[v]);
            Ints rows, elemIds;
            for (const Ints &elem : vols[v].elems) {
                elemIds.push_back((int) elemIds.size() + 1);
                for (int node : elem) rows.push_back(node < 0 ? -node : nodeId(node));
            }
            tool::TokenFile f("p.1.vol" + std::to_string(v), form);
            putHead(f, 2, n, nen + 1);
            putPart(f, 1, 1);
            f.keyInts("intVec", 1, n, dataOf(elemIds));
            putPart(f, 1, nen);
            f.keyInts("intVec", nen, n, dataOf(rows));
        }
    }
    static int nenOf(const GradVol &vol) { return vol.nenTold ? vol.nenTold : nodesOfKind(vol.type); }

    std::string cli() const
    {
        char        number[64];
        std::string text = "#@ FMT " + std::to_string(tool::formOpt(form)) + "\n#@ NSDS 1\n#@ CRD p.1.crd" + suffix() +
                           " nNodes " + std::to_string(nNodes()) + "\n";
        const auto shape = [&](const GradVol &vol) {
            return " n " + std::to_string(vol.elems.size()) + " type " + std::to_string(vol.type) + " nen " +
                   std::to_string(nenOf(vol));
        };
        for (size_t v = 0; v < vols.size(); ++v)
            text += "#@ VOL p.1.vol" + std::to_string(v) + suffix() + " \"v" + std::to_string(v) + "\"" +
                    shape(vols[v]) + "\n";
        for (size_t e = 0; e < elms.size(); ++e) {
            const GradElm &elm = elms[e];
            snprintf(number, sizeof number, " thick %.17g tol %.17g\n", elm.thick, elm.tol);
            text += "#@ CNN p.1.cnn" + std::to_string(e) + " \"e" + std::to_string(e) + "\"" +
                    shape(vols[elm.vols[0]]) + " quad " + std::to_string(elm.quad) + " med " +
                    std::to_string(elm.medium) + " rff 0" + number +
                    "#@ CNN.VOL \"e" + std::to_string(e) + "\" " + std::to_string(elm.vols.size());
            for (int v : elm.vols) text += " \"v" + std::to_string(v) + "\"";
            text += "\n";
        }
        return text + "#@ END\n";
    }

    void writeDdc() const
    {
        Ints nodes, ids;
        for (int i = 0; i < nNodes(); ++i) nodes.push_back((i * 5 + 3) % nNodes()), ids.push_back(nodeId(i));
        if (nNodes() % 5 == 0)
            for (int i = 0; i < nNodes(); ++i) nodes[i] = i;
        tool::TokenFile f("p.1.ddc", form);
        f.keyInt("nSds", 1);
        f.keyInt("nElems", 0);
        f.keyInts("color", 1, 0, dataOf(Ints()));
        f.keyInt("nNodes", nNodes());
        f.keyInts("usrIds", 1, nNodes(), dataOf(ids));
        f.keyInt("sdId", 0);
        f.keyInt("nNodes", nNodes());
        f.keyInts("nodes", 1, nNodes(), dataOf(nodes));
        partNodes = nodes;
    }
    mutable Ints partNodes;                           /* the rows of the part, as writeDdc() told them */

    void writeStep(int step) const
    {
        static const char *const keys[] = { "vel", "pres", "temp", "spec" };
        tool::TokenFile f("p.1_" + std::to_string(step) + "_0.out", form);
        f.keyReal("time", step * 0.25);
        f.keyInt("mask", mask);
        f.keyInt("nSpecs", nSpecs);
        f.keyInt("nFilms", 0);
        f.keyInt("nFields", 0);
        f.keyInt("nAoutVecs", 0);
        f.keyInt("nNodes", nNodes());
        for (int var = 0; var < 4; ++var) {
            Reals rows;
            for (int node : partNodes)
                for (int c = 0; c < dim(var); ++c) rows.push_back(value(var, node, c));
            f.keyReals(keys[var], dim(var), nNodes(), dataOf(rows));
        }
    }

    void writeLog() const
    {
        if (log.empty()) return;
        tool::TokenFile f("p.1.top", form);
        for (const LogStep &row : log) {
            f.keyInt("tsId", row.step);
            f.keyReal("timeInc", row.timeInc);
            f.keyReal("time", row.step * 0.25);
        }
    }

    void write() const
    {
        testWrite("p.1.cli", cli());
        writeMesh();
        writeDdc();
        for (int step : steps) writeStep(step);
        writeLog();
    }
};

/* A run of the current folder, open, freed at the end of the test */
struct OpenRun {
    rdbHd *hd;

    explicit OpenRun(const GradRun &run)
    {
        run.write();
        hd = SmallRun::open();
    }
    ~OpenRun() { checkReturns(if (hd) rdbFree(hd)); }
    OpenRun(const OpenRun &) = delete;

    Reals ask(const char *key, int i, int dim, int step = 0)
    {
        Reals to((size_t) hd->run->nNodes * (size_t) dim, -77);
        checkAnswers(rdbGetReals2(hd, key, to.data(), i, step, dim, hd->run->nNodes));
        return to;
    }
    Reals gradient(int var, int dim, int step = 0) { return ask("outGradValues", var, 3 * dim, step); }

    /* An array of the auxiliary list, also one that no list has; text: of the failure, by jump or by return */
    Reals aux(int i, int dim, std::string *text = nullptr, int step = 0)
    {
        Reals             to((size_t) hd->run->nNodes * (size_t) dim, -77);
        int               good = 0;
        const std::string trap = trapped([&] { good = rdbGetOutAux(hd, i, step, to.data()); });
        if (text) *text = good ? "" : trap.empty() ? rdbGetError() : trap;
        else EXPECT_TRUE(good) << trap << rdbGetError();
        return to;
    }
};

#endif
