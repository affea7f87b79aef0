/* testGrad.cpp: nodal arrays that are computed from those in the output files.
 *
 * Sums are compared to the last bit with a reference that goes element by element, in the plain order in which the sums
 * are told: element set, volume, element, point, node, component. Everything else is compared with what is known of the
 * field: the gradient of a linear field is exact on any mesh, with any rule. */

#include <cstring>

#include "test/rdb/gradRun.h"
#include "test/rdb/outRun.h"

#include "tpl/fTpl3.h"

/* -------------------------------------------------------------------------------------------------------- reference */

struct Point { double shg[10][3], detW; };

static double det3(const double j[3][3], double cofactor[3][3])
{
    for (int r = 0; r < 3; ++r)
        for (int s = 0; s < 3; ++s) {
            const int r1 = (r + 1) % 3, r2 = (r + 2) % 3, s1 = (s + 1) % 3, s2 = (s + 2) % 3;
            cofactor[r][s] = j[r1][s1] * j[r2][s2] - j[r1][s2] * j[r2][s1];
        }
    return j[0][0] * cofactor[0][0] + j[0][1] * cofactor[0][1] + j[0][2] * cofactor[0][2];
}

/* The third column of a shell's jacobian lies across it: half of its thickness, seen from inside */
static void makeShell(double j[3][3], double thick)
{
    double n[3];
    for (int i = 0; i < 3; ++i) {
        const int u = (i + 1) % 3, v = (i + 2) % 3;
        n[i] = j[u][0] * j[v][1] - j[v][0] * j[u][1];
    }
    const double length = sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    for (int i = 0; i < 3; ++i) j[i][2] = n[i] / length * (0.5 * thick);
}

static Point pointOf(const GradRun &run, const GradElm &elm, const Ints &nodes, const tplRec *tpl, int q)
{
    const int     nen = tpl->nen;
    const double *shgl = tpl->shgl + q * nen * 3;
    double        j[3][3] = {}, c[3][3], inverse[3][3];
    for (int a = 0; a < nen; ++a)
        for (int i = 0; i < 3; ++i)
            for (int k = 0; k < 3; ++k) j[i][k] += run.crd[nodes[a]][i] * shgl[3 * a + k];
    const int one = 1;
    if (elm.medium == 4) makeShell(j, elm.thick > 0 ? elm.thick : 1);
    else fTpl3JacReg(&j[0][0], &elm.tol, &one);
    const double det = det3(j, c);
    Point p;
    p.detW = fabs(det) * tpl->quadWgt[q];
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) inverse[k][i] = c[i][k] * (1 / det);
    for (int a = 0; a < nen; ++a)
        for (int i = 0; i < 3; ++i)
            p.shg[a][i] = shgl[3 * a] * inverse[0][i] + shgl[3 * a + 1] * inverse[1][i] +
                          shgl[3 * a + 2] * inverse[2][i];
    return p;
}

/* Adds one element; false: a point of it has no weight */
static bool addElement(const GradRun &run, const GradElm &elm, const Ints &nodes, const tplRec *tpl, const Reals &val,
                       int dim, Reals *sums, Reals *weight)
{
    for (int q = 0; q < tpl->nQuad; ++q) {
        const Point p = pointOf(run, elm, nodes, tpl, q);
        Reals       g;
        if (p.detW == 0) return false;
        for (int c = 0; c < dim; ++c)
            for (int i = 0; i < 3; ++i) {
                double sum = val[nodes[0] * dim + c] * p.shg[0][i];
                for (int a = 1; a < tpl->nen; ++a) sum += val[nodes[a] * dim + c] * p.shg[a][i];
                g.push_back(sum);
            }
        for (int a = 0; a < tpl->nen; ++a) {
            const double w = tpl->shp[q * tpl->nen + a] * p.detW;
            (*weight)[nodes[a]] += w;
            for (int k = 0; k < 3 * dim; ++k) (*sums)[nodes[a] * 3 * dim + k] += g[k] * w;
        }
    }
    return true;
}

/* The object of a volume is made with the rule of the last set that has it */
static const tplRec *topologyOf(const GradRun &run, int vol)
{
    int quad = 0;
    for (const GradElm &elm : run.elms)
        for (int v : elm.vols)
            if (v == vol) quad = elm.quad;
    return tplNew(run.vols[vol].type, quad);
}

/* Empty where a point has no weight */
static Reals reference(const GradRun &run, int var)
{
    const int   dim = run.dim(var), n = run.nNodes();
    const Reals val = run.values(var);
    Reals       sums((size_t) n * 3 * dim, 0), weight(n, 0);
    for (const GradElm &elm : run.elms)
        for (int v : elm.vols)
            for (const Ints &nodes : run.vols[v].elems)
                if (!addElement(run, elm, nodes, topologyOf(run, v), val, dim, &sums, &weight)) return {};
    for (int i = 0; i < n; ++i)
        for (int k = 0; k < 3 * dim; ++k) sums[i * 3 * dim + k] *= weight[i] != 0 ? 1 / weight[i] : 0;
    return sums;
}

static void checkBits(const Reals &got, const Reals &expected)
{
    ASSERT_EQ(got.size(), expected.size());
    for (size_t i = 0; i < got.size(); ++i)
        ASSERT_EQ(memcmp(&got[i], &expected[i], sizeof(double)), 0)
            << "value " << i << " is " << testing::PrintToString(got[i]) << ", expected " << expected[i];
}

static void checkNear(const Reals &got, const Reals &expected, double tolerance)
{
    ASSERT_EQ(got.size(), expected.size());
    for (size_t i = 0; i < got.size(); ++i) ASSERT_NEAR(got[i], expected[i], tolerance) << "value " << i;
}

/* Asks for the gradient of a variable, into memory of the right size: 1 or 0 */
static int request(OpenRun *open, const GradRun &run, int var = 0)
{
    static Reals to;                                  /* a failure may jump out */
    const int    width = 3 * run.dim(var);
    to.assign((size_t) run.nNodes() * width, -77);
    return rdbGetReals2(open->hd, "outGradValues", to.data(), var, 0, width, run.nNodes());
}

static int requestAux(OpenRun *open, const GradRun &run, int aux)
{
    static Reals to;
    to.assign((size_t) run.nNodes() * 3, -77);
    return rdbGetReals2(open->hd, "outAuxValues", to.data(), aux, 0, 3, run.nNodes());
}

/* All variables of the run, against the reference */
static void checkRun(const GradRun &run)
{
    OpenRun open(run);
    for (int var = 0; var < 4; ++var) {
        SCOPED_TRACE("variable " + std::to_string(var));
        checkBits(open.gradient(var, run.dim(var)), reference(run, var));
    }
}

/* Six kinds side by side, in three sets that take the volumes in an order of their own, with media, rules, a volume
   that is in two sets and elements of more than one block */
static GradRun mixedRun()
{
    GradRun run;
    Mesh    mesh;
    int     from = 0;
    for (int type : { HEX, TET, WEDGE, PYRAMID, TET10, BUBBLE }) {
        const size_t first = mesh.elems.size();
        addLattice(&mesh, type, 3, from);
        run.vols.push_back({ type, { mesh.elems.begin() + (long) first, mesh.elems.end() } });
        from += 3;
    }
    warp(&mesh);
    run.crd = mesh.crd;
    run.crd.push_back({ 9, 9, 9 });                   /* no element's */
    run.elms = { { { 3, 1 }, 1, 1, 1, 0 }, { { 2, 0, 1 }, 2, 2, 0.5, 1e-8 }, { { 5, 4 }, 1, 8, 1, 1e-8 } };
    return run;
}

/* -------------------------------------------------------------------------------------------------------- gradients */

TEST(grad, sumsAreMadeInTheOrderTold)
{
    for (const auto &f : smallForms)
        for (bool scattered : { true, false }) {
            SCOPED_TRACE(std::string(f.name) + (scattered ? ", scattered ids" : ""));
            GradRun run = mixedRun();
            run.form = f.form;
            run.scattered = scattered;
            checkRun(run);
            remove(("p.1_20_0.out" + run.suffix()).c_str());        /* the next form lists its own */
            remove(("p.1.ddc" + run.suffix()).c_str());
        }
}

/* Rule 3 has the nodes as points; at the apex of a pyramid the jacobian is singular */
TEST(grad, everyKindWithEveryRule)
{
    for (const auto &kind : elementKinds)
        for (int quad : { 1, 2, 3, 4, 5, 6, 7 }) {
            SCOPED_TRACE(std::string(kind.name) + ", rule " + std::to_string(quad));
            const GradRun run(kind.type, 2, quad);
            const Reals   expected = reference(run, 0);
            OpenRun       open(run);
            if (expected.empty()) {
                checkFails("det-jacobian = 0", request(&open, run));
            } else {
                checkBits(open.gradient(0, 3), expected);
                checkBits(open.gradient(2, 1), reference(run, 2));
                checkBits(open.gradient(3, 7), reference(run, 3));
            }
        }
}

/* d/dx_k of component c of a linear field */
static double slope(int var, int c, int k) { return 1 + var + 2 * c - 3 * k + 0.5 * c * k; }

static void makeLinear(GradRun *run)
{
    run->value = [run](int var, int node, int c) {
        double sum = 10 * var + c;
        for (int k = 0; k < 3; ++k) sum += slope(var, c, k) * run->crd[node][k];
        return sum;
    };
}

TEST(grad, linearFieldsAreExact)
{
    for (const auto &kind : elementKinds)
        for (int quad : { 1, 2, 4, 5, 6, 7 }) {
            SCOPED_TRACE(std::string(kind.name) + ", rule " + std::to_string(quad));
            GradRun run(kind.type, 2, quad);
            makeLinear(&run);
            OpenRun open(run);
            for (int var = 0; var < 4; ++var) {
                const int dim = run.dim(var);
                Reals     expected;
                for (int i = 0; i < run.nNodes(); ++i)
                    for (int k = 0; k < 3 * dim; ++k) expected.push_back(slope(var, k / 3, k % 3));
                /* a reduced rule has points where some shape functions are 0 or add up to it */
                const Reals got = open.gradient(var, dim);
                for (size_t i = 0; i < got.size(); ++i)
                    ASSERT_TRUE(got[i] == 0 || fabs(got[i] - expected[i]) < 1e-9)
                        << "variable " << var << ", value " << i << ": " << got[i] << ", expected " << expected[i];
            }
        }
}

TEST(grad, widthIsThreeTimesTheVariables)
{
    GradRun run(TET, 1);
    run.nSpecs = 5;
    OpenRun open(run);
    int     dim;
    checkAnswers(rdbGetInt1(open.hd, "outGradVarDim", &dim, 3));
    EXPECT_EQ(dim, 15);
    checkBits(open.gradient(3, 5), reference(run, 3));
}

/* More values at a point than a block of elements has room for in a cache */
TEST(grad, wideVariables)
{
    GradRun run(HEX, 3);
    run.nSpecs = 40;
    OpenRun open(run);
    checkBits(open.gradient(3, 40), reference(run, 3));
}

TEST(grad, noComponentsNoGradient)
{
    GradRun run(HEX, 1);
    run.nSpecs = 0;
    OpenRun open(run);
    double  untouched = -77;
    checkAnswers(rdbGetReals2(open.hd, "outGradValues", &untouched, 3, 0, 0, run.nNodes()));
    checkAnswers(rdbGetReals2(open.hd, "outGradValues", &untouched, 3, 0, -1, -1));
    EXPECT_EQ(untouched, -77);
}

TEST(grad, nodesWithoutElementsGetZero)
{
    GradRun run(HEX, 1);
    run.crd.insert(run.crd.begin(), { 5, 5, 5 });
    for (Ints &elem : run.vols[0].elems)
        for (int &node : elem) ++node;
    OpenRun     open(run);
    const Reals got = open.gradient(0, 3);
    for (int k = 0; k < 9; ++k) EXPECT_EQ(got[k], 0.0);
    EXPECT_NE(got[9], 0.0);
    checkBits(got, reference(run, 0));
    EXPECT_EQ(open.aux(0, 1)[0], 0.0);
}

TEST(grad, elementsThatHaveANodeTwice)
{
    GradRun run(HEX, 3);
    for (size_t e = 0; e < run.vols[0].elems.size(); e += 2) run.vols[0].elems[e][1] = run.vols[0].elems[e][0];
    run.elms[0].tol = 1e-6;
    checkRun(run);
}

/* A volume of no elements, and no volume at all */
TEST(grad, emptyVolumes)
{
    GradRun run(WEDGE, 2);
    run.vols.push_back({ HEX, {} });
    run.elms.push_back({ { 1 } });
    checkRun(run);
    run.vols[0].elems.clear();
    checkRun(run);
}

/* -------------------------------------------------------------------------------- shells, flat and tangled elements */

TEST(grad, shells)
{
    for (int type : { HEX, WEDGE, TET })
        for (double thick : { 0.25, 1.0, 0.0, -3.0 }) {
            SCOPED_TRACE(std::to_string(type) + ", thickness " + std::to_string(thick));
            GradRun run(type);
            run.elms[0].medium = 4;
            run.elms[0].thick = thick;
            OpenRun     open(run);
            const Reals got = open.gradient(0, 3);
            checkBits(got, reference(run, 0));
            run.elms[0].thick = thick > 0 ? 2 * thick : 1;
            EXPECT_EQ(got == reference(run, 0), !(thick > 0)) << "a thickness counts, one that is none is 1";
        }
}

/* Triangles and quadrilaterals have points, but no shape functions: no set can be made of them, also not a shell */
TEST(grad, surfacesAreNoElements)
{
    for (int type : { 1, 2 }) {
        GradRun run(HEX, 1);
        run.elms[0].medium = 4;
        run.vols[0].type = type;
        run.vols[0].nenTold = type + 2;
        run.vols[0].elems[0].resize(type + 2);
        run.write();
        rdbHd *hd = rdbNew("p", ".", nullptr, 0);
        checkFails("toloplogy not recognized <" + std::to_string(type) + ">", rdbOpenRun(hd, 1));
        Reals to((size_t) run.nNodes() * 9);
        checkRefused("run not opened", rdbGetReals2(hd, "outGradValues", to.data(), 0, 0, 9, run.nNodes()));
        rdbFree(hd);
    }
}

static void flatten(GradRun *run)
{
    for (int node : run->vols[0].elems[0]) run->crd[node][2] = 0;
}

TEST(grad, flatShells)
{
    GradRun run(HEX, 1);
    run.elms[0].medium = 4;
    flatten(&run);
    checkRun(run);                                    /* a surface has no height */
    for (int node : run.vols[0].elems[0]) run.crd[node][1] = 0;
    OpenRun open(run);
    checkFails("det-jacobian < 0", request(&open, run));
}

/* A flat element has no gradient, unless a tolerance untangles it */
TEST(grad, flatElements)
{
    for (const auto &kind : elementKinds) {
        SCOPED_TRACE(kind.name);
        GradRun run(kind.type);
        flatten(&run);
        {
            OpenRun open(run);
            Reals   to((size_t) run.nNodes() * 9);
            checkFails("det-jacobian = 0", request(&open, run));
            /* nothing is left of the failure: the next request is answered, and fails alike */
            checkAnswers(rdbGetReals2(open.hd, "outValues", to.data(), 0, 0, 3, run.nNodes()));
            checkFails("det-jacobian = 0", request(&open, run, 1));
            /* work arrays that a failure left behind go with the next request */
            EXPECT_NE(open.hd->run->grad.weight, nullptr);
            checkAnswers(requestAux(&open, run, 2));
            const rdbGrad &work = open.hd->run->grad;
            for (const double *array : { work.crd, work.values, work.grad, work.weight, work.detW, work.points,
                                         work.elemValues, work.row }) EXPECT_EQ(array, nullptr);
        }
        run.elms[0].tol = 1e-8;
        OpenRun     open(run);
        const Reals got = open.gradient(0, 3);
        checkBits(got, reference(run, 0));
        for (double g : got) ASSERT_TRUE(std::isfinite(g));
    }
}

TEST(grad, invertedElements)
{
    for (const auto &kind : elementKinds)
        for (double tol : { 0.0, 1e-8, 1e-2 }) {
            SCOPED_TRACE(std::string(kind.name) + ", tolerance " + std::to_string(tol));
            GradRun run(kind.type);
            for (Vec &x : run.crd) x[2] = -x[2];
            run.elms[0].tol = tol;
            makeLinear(&run);
            OpenRun     open(run);
            const Reals got = open.gradient(0, 3);
            checkBits(got, reference(run, 0));
            /* by its size alone an inverted determinant is as good as another one */
            for (int k = 0; tol == 0 && k < 9; ++k) EXPECT_NEAR(got[k], slope(0, k / 3, k % 3), 1e-9);
        }
}

/* Rules with the nodes behind the points have points of no weight */
TEST(grad, rulesWithPointsOfNoWeight)
{
    GradRun run(HEX, 1, 0x101);
    OpenRun open(run);
    checkFails("det-jacobian = 0", request(&open, run));
}

/* --------------------------------------------------------------------------------------------------- damaged meshes */

TEST(grad, unknownNodes)
{
    for (bool scattered : { true, false })
        for (int id : { 1, 999999, 0, -1, INT32_MIN + 1 }) {
            SCOPED_TRACE((scattered ? "scattered ids, id " : "id ") + std::to_string(id));
            if (!scattered && id == 1) continue;
            GradRun run = mixedRun();
            run.scattered = scattered;
            run.writeMesh();
            OpenRun open(run);
            /* what the library keeps of volume 1 is read and then damaged: in its third element of four nodes */
            int *cnn;
            checkAnswers(rdbGetVolCnn(open.hd, 1, &cnn));
            cnn[9] = id;
            checkRefused("Invalid element definition <1> <9>",
                         request(&open, run));
            checkRefused("Invalid element definition <1> <9>",
                         requestAux(&open, run, 0));
            cnn[9] = run.nodeId(run.vols[1].elems[2][1]);
            checkBits(open.gradient(0, 3), reference(run, 0));
        }
}

/* User ids that are no ids: whatever was begun is not taken for done the next time */
TEST(grad, nodesOfTheSameId)
{
    GradRun run(HEX, 2);
    run.twin = 5;
    OpenRun open(run);
    for (int i = 0; i < 3; ++i) checkFails("Duplicate key <1000>", request(&open, run));
}

TEST(grad, unknownVolumes)
{
    const GradRun run(HEX, 1);
    OpenRun       open(run);
    int          *volIds = ((rdbElmSet *) open.hd->run->elm.rec[0])->volIds;
    for (int id : { 1, -1, 77 }) {
        volIds[0] = id;
        const std::string text = "Invalid volId <" + std::to_string(id) + ">; range should be [0,0]";
        checkRefused(text.c_str(), request(&open, run));
        checkRefused(text.c_str(), requestAux(&open, run, 0));
    }
}

/* A client information file that gives an element another number of nodes than its kind has */
TEST(grad, elementsOfAnotherWidth)
{
    for (int nen : { 4, 10, 11 }) {
        SCOPED_TRACE(nen);
        GradRun run(HEX, 1);
        run.vols[0].nenTold = nen;
        run.vols[0].elems[0].resize(nen, 0);
        OpenRun           open(run);
        const std::string text = "Inconsistent nElemNodes <" + std::to_string(nen) + "> vs <8>";
        checkRefused(text.c_str(), request(&open, run));
        checkRefused(text.c_str(), requestAux(&open, run, 0));
    }
}

/* There is room for so many points only: more than any rule has */
TEST(grad, rulesOfTooManyPoints)
{
    const GradRun run(HEX, 1);
    OpenRun       open(run);
    rdbVolSet    *vol = (rdbVolSet *) open.hd->run->vol.rec[0];
    tplRec       *tpl = vol->tpl, large = *tpl;
    large.nQuad = 1000;
    vol->tpl = &large;
    checkRefused("topology <6> has too many nodes <8> or points <1000>",
                 request(&open, run));
    vol->tpl = tpl;
    checkBits(open.gradient(0, 3), reference(run, 0));
}

TEST(grad, meshWithoutFiles)
{
    const GradRun run(HEX, 1);
    OpenRun       open(run);
    remove("p.1.vol0.B");
    EXPECT_NE(trapped([&] { request(&open, run); }), "");
    run.writeMesh();
    checkBits(open.gradient(0, 3), reference(run, 0));
}

/* ----------------------------------------------------------------------------------------------- the auxiliary list */

TEST(grad, listWithVelocity)
{
    const GradRun run(HEX, 1);
    OpenRun       open(run);
    static const struct { const char *name; int dim; } rows[] = {
        { "volume", 1 }, { "strain_rate_invariant_2", 1 }, { "velocity_magnitude", 1 }, { "vorticity", 3 },
    };
    int n;
    checkAnswers(rdbGetInt0(open.hd, "nOutAuxVars", &n));
    ASSERT_EQ(n, 4);
    for (int i = 0; i < n; ++i) {
        char name[SYS_TEXT];
        int  dim;
        checkAnswers(rdbGetStr1(open.hd, "outAuxVarName", name, i));
        checkAnswers(rdbGetInt1(open.hd, "outAuxVarDim", &dim, i));
        EXPECT_STREQ(name, rows[i].name);
        EXPECT_EQ(dim, rows[i].dim);
    }
    checkRefused("index1 (4) is out of range [0,3]",
                 requestAux(&open, run, 4));
}

TEST(grad, listWithoutVelocity)
{
    GradRun run(HEX, 1);
    for (int mask : { 2, 14 }) {
        run.mask = mask;
        OpenRun open(run);
        char    name[SYS_TEXT];
        int     n;
        checkAnswers(rdbGetInt0(open.hd, "nOutAuxVars", &n));
        EXPECT_EQ(n, 1);
        checkAnswers(rdbGetStr1(open.hd, "outAuxVarName", name, 0));
        EXPECT_STREQ(name, "volume");
        checkRefused("index1 (1) is out of range [0,0]", rdbGetStr1(open.hd, "outAuxVarName", name, 1));
        /* nor is the first variable taken for a velocity by who knows the number */
        std::string text;
        for (int aux : { 1, 2, 3, 4 }) {
            open.aux(aux, 3, &text);
            EXPECT_NE(text, "") << aux;
        }
        checkBits(open.gradient(0, 1), reference(run, 1));
    }
}

TEST(grad, unknownAuxiliary)
{
    const GradRun run(HEX, 1);
    OpenRun       open(run);
    std::string   text;
    open.aux(5, 1, &text);
    EXPECT_NE(text.find("Invalid index <5>"), std::string::npos) << text;
    EXPECT_NE(text.find("rdb_outAuxValues"), std::string::npos) << text;
    open.aux(-1, 1, &text);
    EXPECT_NE(text.find("Invalid index <-1>"), std::string::npos) << text;
}

/* An element's volume goes to its nodes in equal shares, element after element */
TEST(grad, volumes)
{
    for (int type : { TET, PYRAMID, WEDGE, HEX })
        for (const auto &f : smallForms) {
            SCOPED_TRACE(std::to_string(type) + ", " + f.name);
            GradRun run(type, 3);
            run.form = f.form;
            OpenRun     open(run);
            const Reals got = open.aux(0, 1);
            Reals       expected(run.nNodes(), 0);
            for (const Ints &elem : run.vols[0].elems) {
                double vol;
                fTpl3ElmVol(&run.crd[0][0], elem.data(), &vol, &type);
                for (int node : elem) expected[node] += vol / (double) elem.size();
            }
            checkBits(got, expected);
            remove(("p.1_20_0.out" + run.suffix()).c_str());
            remove(("p.1.ddc" + run.suffix()).c_str());
        }
}

TEST(grad, volumesOfCubes)
{
    GradRun run;
    Mesh    mesh;
    addLattice(&mesh, HEX, 2);
    run.crd = mesh.crd;
    run.vols = { { HEX, mesh.elems } };
    run.elms = { { { 0 } } };
    OpenRun     open(run);
    const Reals got = open.ask("outAuxValues", 0, 1);
    double      sum = 0;
    for (int i = 0; i < run.nNodes(); ++i) {
        int shares = 1;                                /* a node at the middle of an edge has two cubes */
        for (double x : run.crd[i]) shares *= x == 1 ? 2 : 1;
        EXPECT_EQ(got[i], shares / 8.);
        sum += got[i];
    }
    EXPECT_EQ(sum, 8);
}

TEST(grad, volumesOfOtherElements)
{
    for (int type : { TET10, BUBBLE }) {
        const GradRun run(type, 1);
        OpenRun       open(run);
        checkFails("invalid elmType", requestAux(&open, run, 0));
        checkBits(open.gradient(0, 3), reference(run, 0));
    }
}

TEST(grad, whatIsMadeOfTheVelocity)
{
    GradRun     run = mixedRun();
    OpenRun     open(run);
    const Reals g = reference(run, 0), u = run.values(0);
    Reals       strain, vorticity, magnitude;
    for (int i = 0; i < run.nNodes(); ++i) {
        const double *G = &g[9 * i], *v = &u[3 * i];
        strain.push_back(2 * (G[0] * G[0] + G[4] * G[4] + G[8] * G[8]) + (G[1] + G[3]) * (G[1] + G[3]) +
                         (G[2] + G[6]) * (G[2] + G[6]) + (G[5] + G[7]) * (G[5] + G[7]));
        vorticity.insert(vorticity.end(), { G[7] - G[5], G[2] - G[6], G[3] - G[1] });
        magnitude.push_back(sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]));
    }
    checkBits(open.ask("outAuxValues", 1, 1), strain);
    checkBits(open.ask("outAuxValues", 2, 1), magnitude);
    checkBits(open.ask("outAuxValues", 3, 3), vorticity);
}

/* A body that turns is not strained, and its vorticity is twice its angular velocity */
TEST(grad, rotation)
{
    GradRun   run(HEX);
    const Vec w = { 0.5, -2, 3 };
    run.value = [&](int, int node, int c) {
        const Vec &x = run.crd[node];
        return w[(c + 1) % 3] * x[(c + 2) % 3] - w[(c + 2) % 3] * x[(c + 1) % 3];
    };
    OpenRun open(run);
    Reals   expected;
    for (int i = 0; i < run.nNodes(); ++i) expected.insert(expected.end(), { 2 * w[0], 2 * w[1], 2 * w[2] });
    checkNear(open.ask("outAuxValues", 3, 3), expected, 1e-12);
    checkNear(open.ask("outAuxValues", 1, 1), Reals(run.nNodes(), 0), 1e-12);
}

/* ------------------------------------------------------------------------------------------------------- CFL number */

/* Cubes of side 1, a uniform velocity: the time increment times its size. The metric of tetrahedra and wedges makes
   their directions equal; of one element all points are alike. */
TEST(grad, cfl)
{
    GradRun run;
    Mesh    mesh;
    addLattice(&mesh, HEX, 3);
    run.crd = mesh.crd;
    run.vols = { { HEX, mesh.elems } };
    run.elms = { { { 0 } } };
    run.value = [](int, int, int c) { return c == 0 ? 3. : c == 1 ? -4. : 12.; };
    run.steps = { 0, 20 };
    run.log = { { 1, 0.5 }, { 7, 9 }, { 20, 0.125 } };
    for (int medium : { 1, 8 }) {
        run.elms[0].medium = medium;
        OpenRun open(run);
        checkNear(open.aux(4, 1, nullptr, 0), Reals(run.nNodes(), 0.5 * 13), 1e-12);
        checkNear(open.aux(4, 1, nullptr, 1), Reals(run.nNodes(), 0.125 * 13), 1e-12);
    }
    for (int medium : { 0, 2, 4 }) {
        run.elms[0].medium = medium;
        OpenRun open(run);
        checkBits(open.aux(4, 1, nullptr, 1), Reals(run.nNodes(), 0));
    }
}

/* Any velocity in any elements, point by point with the reduced rule */
TEST(grad, cflOfEveryKind)
{
    for (const auto &kind : elementKinds) {
        SCOPED_TRACE(kind.name);
        GradRun run(kind.type, 3);
        run.log = { { 20, 0.25 } };
        run.elms[0].tol = 1e-8;
        const Reals   val = run.values(0);
        const tplRec *tpl = tplNew(kind.type, 2);
        Reals         sums(run.nNodes(), 0), weight(run.nNodes(), 0);
        const int     one = 1, nen = tpl->nen;
        for (const Ints &elem : run.vols[0].elems)
            for (int q = 0; q < tpl->nQuad; ++q) {
                double        crd[30], shg[30], detW, jac[9], inv[9], g[6], u[3] = {};
                const double *shp = tpl->shp + q * nen;
                for (int a = 0; a < nen; ++a)
                    for (int k = 0; k < 3; ++k) crd[3 * a + k] = run.crd[elem[a]][k];
                fTpl3Int(crd, tpl->quadWgt + q, shp, tpl->shgl + q * nen * 3, shg, &detW, jac, inv, &run.elms[0].tol,
                         &one, &nen);
                fTpl3GijDown(inv, g, &one, &tpl->tplType);
                for (int a = 0; a < nen; ++a)
                    for (int k = 0; k < 3; ++k) u[k] += shp[a] * val[3 * elem[a] + k];
                const double size = u[0] * u[0] * g[0] + u[1] * u[1] * g[1] + u[2] * u[2] * g[2] +
                                    2 * (u[0] * u[1] * g[3] + u[1] * u[2] * g[4] + u[0] * u[2] * g[5]);
                for (int a = 0; a < nen; ++a) {
                    weight[elem[a]] += shp[a] * detW;
                    sums[elem[a]] += 0.5 * 0.25 * sqrt(size) * (shp[a] * detW);
                }
            }
        OpenRun     open(run);
        const Reals got = open.aux(4, 1);
        for (int i = 0; i < run.nNodes(); ++i) {
            const double expected = weight[i] != 0 ? sums[i] / weight[i] : 0;
            ASSERT_NEAR(got[i], expected, 1e-9 * fabs(expected)) << "node " << i;
        }
    }
}

TEST(grad, cflWithoutItsStep)
{
    GradRun     run(HEX, 1);
    std::string text;
    {
        OpenRun open(run);
        open.aux(4, 1, &text);
        EXPECT_EQ(text, ".top file not found");
    }
    run.log = { { 1, 0.5 }, { 19, 0.5 } };
    OpenRun open(run);
    open.aux(4, 1, &text);
    EXPECT_EQ(text, "No matching time step found for output step <20>");
}

/* Step 0 has the increment of the first one, of which the failure tells, too */
TEST(grad, cflOfStep0WithoutTheFirstOne)
{
    GradRun     run(HEX, 1);
    std::string text;
    run.steps = { 0 };
    run.log = { { 0, 0.5 }, { 2, 0.5 } };
    OpenRun open(run);
    open.aux(4, 1, &text);
    EXPECT_EQ(text, "No matching time step found for output step <1>");
}

/* What cannot be computed is zero, whatever it is that is missing */
TEST(grad, cflThatFailsIsZero)
{
    GradRun     run(HEX, 1);
    std::string text;
    const Reals zero(run.nNodes(), 0);
    {
        OpenRun open(run);
        checkBits(open.aux(4, 1, &text), zero);
        EXPECT_EQ(text, ".top file not found");
    }
    run.log = { { 19, 0.5 } };
    {
        OpenRun open(run);
        checkBits(open.aux(4, 1, &text), zero);
        EXPECT_EQ(text, "No matching time step found for output step <20>");
    }
    run.log = { { 20, 0.5 } };
    run.mask = 14;
    OpenRun open(run);
    checkBits(open.aux(4, 1, &text), zero);
    EXPECT_EQ(text, "Inconsistent velocity of width <1> vs <3>");
}

/* ------------------------------------------------------------------------------------ what is kept of the velocity */

struct VelocityArrays {
    Reals grad, strain, vorticity;
    bool operator==(const VelocityArrays &other) const
    {
        return grad == other.grad && strain == other.strain && vorticity == other.vorticity;
    }
};

static VelocityArrays askAll(OpenRun *open, int step)
{
    VelocityArrays all;
    all.strain = open->ask("outAuxValues", 1, 1, step);
    all.grad = open->gradient(0, 3, step);
    all.vorticity = open->ask("outAuxValues", 3, 3, step);
    return all;
}

/* Each by itself, on handles that have kept nothing */
static VelocityArrays askEach(const GradRun &run, int step)
{
    VelocityArrays all;
    all.strain = OpenRun(run).ask("outAuxValues", 1, 1, step);
    all.grad = OpenRun(run).gradient(0, 3, step);
    all.vorticity = OpenRun(run).ask("outAuxValues", 3, 3, step);
    return all;
}

/* One gradient serves all three, and gives what each of them by itself gives, to the last bit */
TEST(gradKept, oneForAllThatIsMadeOfIt)
{
    for (const auto &form : tool::formRows) {
        if (form.value == tool::Form::container) continue;        /* see the test of all forms */
        SCOPED_TRACE(form.word);
        GradRun run(HEX);
        run.form = form.value;
        const VelocityArrays each = askEach(run, 0);
        OpenRun open(run);
        letSettle();
        EXPECT_EQ(open.ask("outAuxValues", 1, 1), each.strain);
        const double *const kept = rdbKeptGrad(open.hd, &outOut, 20);
        ASSERT_NE(kept, nullptr);
        EXPECT_TRUE(askAll(&open, 0) == each);
        EXPECT_TRUE(askAll(&open, 0) == each);
        open.gradient(1, 1);                                      /* another variable's does not take its place */
        EXPECT_EQ(rdbKeptGrad(open.hd, &outOut, 20), kept);
    }
}

TEST(gradKept, anotherStepHasItsOwn)
{
    GradRun run(TET);
    run.steps = { 20, 30 };
    run.value = [](int var, int node, int comp) { return anyValue(var, node, comp); };
    OpenRun open(run);
    run.value = [](int var, int node, int comp) { return anyValue(var, node, comp + 3); };
    run.writeStep(30);
    letSettle();
    const VelocityArrays first = askAll(&open, 0), second = askAll(&open, 1);
    EXPECT_FALSE(first == second);
    EXPECT_EQ(rdbKeptGrad(open.hd, &outOut, 20), nullptr);
    EXPECT_NE(rdbKeptGrad(open.hd, &outOut, 30), nullptr);
    EXPECT_TRUE(askAll(&open, 0) == first);
    rdbDropReading(open.hd->run);
    EXPECT_EQ(rdbKeptGrad(open.hd, &outOut, 20), nullptr);
    EXPECT_TRUE(askAll(&open, 1) == second);
}

/* Made of other files than those that are there now */
TEST(gradKept, filesThatChanged)
{
    GradRun run(WEDGE);
    OpenRun open(run);
    letSettle();
    const VelocityArrays first = askAll(&open, 0);
    run.value = [](int var, int node, int comp) { return anyValue(var, node, comp + 3); };
    run.writeStep(20);
    letSettle(40);
    EXPECT_EQ(rdbKeptGrad(open.hd, &outOut, 20), nullptr);
    EXPECT_EQ(open.ask("outValues", 1, 1), run.values(1));        /* now the file that is there is known */
    EXPECT_EQ(rdbKeptGrad(open.hd, &outOut, 20), nullptr);
    const VelocityArrays second = askAll(&open, 0);
    EXPECT_NE(second.grad, first.grad);
    EXPECT_TRUE(second == askEach(run, 0));

    letSettle(30);
    askAll(&open, 0);
    for (Vec &x : run.crd) x[1] *= 2;
    run.writeMesh();
    fs::last_write_time("p.1.crd.B", fs::file_time_type::clock::now() - std::chrono::seconds(20));
    EXPECT_NE(rdbKeptGrad(open.hd, &outOut, 20), nullptr);        /* which nobody may take any more */
    const VelocityArrays third = askAll(&open, 0);
    EXPECT_NE(third.grad, second.grad);
    EXPECT_TRUE(third == askEach(run, 0));
}

/* Of files that may change unseen nothing is kept */
TEST(gradKept, youngFiles)
{
    GradRun run(PYRAMID);
    OpenRun open(run);
    const VelocityArrays each = askEach(run, 0);
    letSettle(-3600);
    EXPECT_TRUE(askAll(&open, 0) == each);
    EXPECT_EQ(rdbKeptGrad(open.hd, &outOut, 20), nullptr);
    letSettle();
    fs::last_write_time("p.1.crd.B", fs::file_time_type::clock::now() + std::chrono::hours(1));
    EXPECT_TRUE(askAll(&open, 0) == each);
    EXPECT_EQ(rdbKeptGrad(open.hd, &outOut, 20), nullptr);
}

/* A failure in between leaves what was kept, or nothing, and no half of anything */
TEST(gradKept, afterAFailure)
{
    GradRun run(HEX);
    OpenRun open(run);
    letSettle();
    const VelocityArrays each = askAll(&open, 0);
    fs::rename("p.1_20_0.out.B", "aside");
    Reals to(9 * (size_t) run.nNodes());
    checkFails("unable to open binary file", rdbGetReals2(open.hd, "outGradValues", to.data(), 0, 0, 9, run.nNodes()));
    fs::rename("aside", "p.1_20_0.out.B");
    letSettle(50);
    EXPECT_TRUE(askAll(&open, 0) == each);
    fs::rename("p.1.crd.B", "aside");
    checkFails("unable to open binary file", rdbGetReals2(open.hd, "outGradValues", to.data(), 0, 0, 9, run.nNodes()));
    fs::rename("aside", "p.1.crd.B");
    letSettle(40);
    EXPECT_TRUE(askAll(&open, 0) == each);
}
