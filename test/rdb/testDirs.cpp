/* testDirs.cpp: directions at the nodes of surface sets: normals, and across the edge of a set.
 *
 * A sheet is a volume of elements of one kind and some sets of their faces. Surfaces are seen as the elements' face
 * tables have them, from inside the element, whatever the order of nodes in a set's file. */

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <map>

#include "test/rdb/cliRun.h"
#include "test/rdb/smallRun.h"

using Ints = std::vector<int>;
using Vec  = std::array<double, 3>;
using Vecs = std::vector<Vec>;

static Vec operator+(const Vec &a, const Vec &b) { return { a[0] + b[0], a[1] + b[1], a[2] + b[2] }; }
static Vec operator-(const Vec &a, const Vec &b) { return { a[0] - b[0], a[1] - b[1], a[2] - b[2] }; }
static Vec operator*(double f, const Vec &a) { return { f * a[0], f * a[1], f * a[2] }; }
static Vec cross(const Vec &a, const Vec &b)
{
    return { a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0] };
}
static double length(const Vec &a) { return sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]); }
static Vec    unit(const Vec &a) { return length(a) > 0 ? (1 / length(a)) * a : Vec {}; }

static void checkVec(const Vec &a, const Vec &b)
{
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(a[c], b[c], 1e-12) << "component " << c;
}

struct Srf { int elem; Ints nodes; };       /* positions of the element and of its nodes, in the order of its face */

struct Sheet {
    tool::Form form = tool::Form::binary;
    bool scattered = true;
    int  volType, nen, srfType, nSrfNodes;
    Vecs crd;
    Ints volCnn;                                          /* node positions */
    std::vector<std::vector<Srf>> sets;
    std::map<int, Ints> osn;                              /* node positions of a set, if not all of its nodes sorted */

    std::string suffix() const { return tool::formSuffix(form); }
    int nElems() const { return (int) volCnn.size() / nen; }
    int nodeId(int node) const { return scattered ? 1000 + (node * 7) % 10007 * 3 : 1 + node; }
    int elemId(int elem) const { return scattered ? 5 + (elem * 11) % 499 * 2 : 1 + elem; }

    Ints ids(const Ints &nodes) const
    {
        Ints all;
        for (int node : nodes) all.push_back(nodeId(node));
        return all;
    }

    /* The distinct nodes in the order of their user ids */
    Ints nodesOf(int set) const
    {
        Ints nodes;
        for (const Srf &srf : sets[set]) nodes.insert(nodes.end(), srf.nodes.begin(), srf.nodes.end());
        std::sort(nodes.begin(), nodes.end(), [&](int a, int b) { return nodeId(a) < nodeId(b); });
        nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
        return nodes;
    }
    Ints osnOf(int set) const { return osn.count(set) ? osn.at(set) : nodesOf(set); }

    static void putPart(tool::TokenFile &f, int nCols, const Ints &values)
    {
        f.keyInt("type", 1);
        f.keyInt("nCols", nCols);
        f.keyInts("intVec", nCols, (int) values.size() / nCols, dataOf(values));
    }
    static void putHead(tool::TokenFile &f, int nParts, int nRows, int nCols)
    {
        f.keyInt("nParts", nParts);
        f.keyInt("nRows", nRows);
        f.keyInt("nCols", nCols);
    }

    void writeMesh() const
    {
        Ints nodes, elems;
        std::vector<double> xyz;
        for (size_t i = 0; i < crd.size(); ++i) {
            nodes.push_back(nodeId((int) i));
            xyz.insert(xyz.end(), crd[i].begin(), crd[i].end());
        }
        for (int e = 0; e < nElems(); ++e) elems.push_back(elemId(e));
        {
            tool::TokenFile f("p.crd", form);
            putHead(f, 2, (int) crd.size(), 4);
            putPart(f, 1, nodes);
            f.keyInt("type", 2);
            f.keyInt("nCols", 3);
            f.keyReals("realVec", 3, (int) crd.size(), dataOf(xyz));
        }
        tool::TokenFile f("p.vol", form);
        putHead(f, 2, nElems(), nen + 1);
        putPart(f, 1, elems);
        putPart(f, nen, ids(volCnn));
    }

    /* In the file a surface's nodes stand the other way round */
    void writeSet(int set) const
    {
        Ints elems, srfs, cnn;
        for (const Srf &srf : sets[set]) {
            elems.push_back(elemId(srf.elem));
            srfs.push_back((int) srfs.size());
            Ints nodes = ids(srf.nodes);
            cnn.insert(cnn.end(), nodes.rbegin(), nodes.rend());
        }
        tool::TokenFile f("p.srf" + std::to_string(set), form);
        putHead(f, 3, (int) sets[set].size(), nSrfNodes + 2);
        putPart(f, 1, elems);
        putPart(f, 1, srfs);
        putPart(f, nSrfNodes, cnn);
    }

    /* The only one: whichever form the folder lists first is read */
    void writeOsn(int set) const
    {
        const std::string name = "p.1_" + std::to_string(set) + ".osn";
        for (const auto &other : smallForms) remove((name + tool::formSuffix(other.form)).c_str());
        const Ints      nodes = ids(osnOf(set));
        tool::TokenFile f(name, form);
        f.keyInt("nSds", 0);
        f.keyInt("nNodes", (int) nodes.size());
        f.keyInts("usrIds", 1, (int) nodes.size(), dataOf(nodes));
    }

    std::string line(const std::string &keyword, int set) const
    {
        return "#@ " + keyword + " p.srf" + std::to_string(set) + suffix() + " \"s" + std::to_string(set) + "\" n " +
               std::to_string(sets[set].size()) + " type " + std::to_string(srfType) + " nsn " +
               std::to_string(nSrfNodes) + " quad 1 parent 0 med 6\n";
    }

    std::string cli() const
    {
        const std::string shape = " n " + std::to_string(nElems()) + " type " + std::to_string(volType) + " nen " +
                                  std::to_string(nen);
        std::string text = "#@ CRD p.crd" + suffix() + " nNodes " + std::to_string(crd.size()) + "\n#@ VOL p.vol" +
                           suffix() + " \"v\"" + shape + "\n#@ CNN p.vol" + suffix() + " \"e\"" + shape +
                           " quad 1 med 1 rff 0\n#@ CNN.VOL \"e\" 1 \"v\"\n";
        for (size_t s = 0; s < sets.size(); ++s) text += line("SFS", (int) s);
        for (const char *keyword : { "CBC", "DBC", "OSF" })
            for (size_t s = 0; s < sets.size(); ++s) {
                const std::string name = "\"s" + std::to_string(s) + "\"";
                text += line(keyword, (int) s) + "#@ " + keyword + ".SFS " + name + " 1 " + name + "\n";
            }
        return text + "#@ END\n";
    }

    void write() const
    {
        writeMesh();
        for (size_t s = 0; s < sets.size(); ++s) writeSet((int) s), writeOsn((int) s);
        testWrite("p.1.cli", cli());
    }
};

/* ---------------------------------------------------------------------------------------------- meshes and sets */

/* Strip or square of nx by ny hexahedra with faces of size 1: the set is all that is on top */
static Sheet hexahedra(int nx, int ny)
{
    Sheet sheet = {};
    sheet.form = tool::Form::binary, sheet.scattered = true;
    sheet.volType = 6, sheet.nen = 8, sheet.srfType = 2, sheet.nSrfNodes = 4;
    for (int k = 0; k < 2; ++k)
        for (int j = 0; j <= ny; ++j)
            for (int i = 0; i <= nx; ++i) sheet.crd.push_back({ (double) i, (double) j, (double) k });
    const auto node = [=](int i, int j, int k) { return i + (nx + 1) * (j + (ny + 1) * k); };
    sheet.sets.resize(1);
    for (int j = 0; j < ny; ++j)
        for (int i = 0; i < nx; ++i) {
            const Ints cnn = { node(i, j, 0), node(i + 1, j, 0), node(i + 1, j + 1, 0), node(i, j + 1, 0),
                               node(i, j, 1), node(i + 1, j, 1), node(i + 1, j + 1, 1), node(i, j + 1, 1) };
            sheet.sets[0].push_back({ i + nx * j, { cnn[7], cnn[6], cnn[5], cnn[4] } });
            sheet.volCnn.insert(sheet.volCnn.end(), cnn.begin(), cnn.end());
        }
    return sheet;
}

/* Tetrahedra below the four triangles of a square with a node in its middle, 4; the apex is 5 */
static Sheet tetrahedra()
{
    Sheet sheet = {};
    sheet.form = tool::Form::binary, sheet.scattered = true;
    sheet.volType = 3, sheet.nen = 4, sheet.srfType = 1, sheet.nSrfNodes = 3;
    sheet.crd    = { { 0, 0, 1 }, { 2, 0, 1 }, { 2, 2, 1 }, { 0, 2, 1 }, { 0.5, 1, 1 }, { 1, 1, 0 } };
    sheet.volCnn = { 0, 1, 4, 5, 1, 2, 4, 5, 2, 3, 4, 5, 3, 0, 4, 5 };
    sheet.sets   = { { { 0, { 0, 1, 4 } }, { 1, { 1, 2, 4 } }, { 2, { 2, 3, 4 } }, { 3, { 3, 0, 4 } } } };
    return sheet;
}

/* Ten-node tetrahedra below the two halves of a square: the set is these halves. Apices are 9 and 10. */
static Sheet quadraticTetrahedra()
{
    Sheet sheet = {};
    sheet.form = tool::Form::binary, sheet.scattered = true;
    sheet.volType = 16, sheet.nen = 10, sheet.srfType = 15, sheet.nSrfNodes = 6;
    sheet.crd = { { 0, 0, 1 }, { 2, 0, 1 }, { 2, 2, 1 }, { 0, 2, 1 },
                  { 1, 0, 1 }, { 2, 1, 1 }, { 1, 2, 1 }, { 0, 1, 1 }, { 1, 1, 1 }, { 1, 1, 0 }, { 1, 1, -1 } };
    const int halves[2][6] = { { 0, 1, 2, 4, 5, 8 }, { 0, 2, 3, 8, 6, 7 } };       /* corners, middles in between */
    sheet.sets.resize(1);
    for (int e = 0; e < 2; ++e) {
        const int *h = halves[e], apex = 9 + e;
        Ints cnn = { h[0], h[1], h[2], apex, h[3], h[4], h[5] };
        for (int k = 0; k < 3; ++k) {
            sheet.crd.push_back(0.5 * (sheet.crd[h[k]] + sheet.crd[apex]));
            cnn.push_back((int) sheet.crd.size() - 1);
        }
        sheet.sets[0].push_back({ e, { h[0], h[1], h[2], h[3], h[4], h[5] } });
        sheet.volCnn.insert(sheet.volCnn.end(), cnn.begin(), cnn.end());
    }
    return sheet;
}

/* All faces of the first element: a closed surface */
static Sheet closed(Sheet sheet)
{
    static const std::map<int, std::vector<Ints>> faces = {
        { 3,  { { 0, 1, 2 }, { 1, 3, 2 }, { 2, 3, 0 }, { 3, 1, 0 } } },
        { 6,  { { 0, 1, 2, 3 }, { 7, 6, 5, 4 }, { 5, 6, 2, 1 }, { 0, 3, 7, 4 }, { 4, 5, 1, 0 }, { 3, 2, 6, 7 } } },
        { 16, { { 0, 1, 2, 4, 5, 6 }, { 1, 3, 2, 8, 9, 5 }, { 2, 3, 0, 9, 7, 6 }, { 3, 1, 0, 8, 4, 7 } } },
    };
    sheet.sets = { {} };
    for (const Ints &face : faces.at(sheet.volType)) {
        Srf srf = { 0, {} };
        for (int n : face) srf.nodes.push_back(sheet.volCnn[n]);
        sheet.sets[0].push_back(srf);
    }
    return sheet;
}

/* ------------------------------------------------------------------------------------------------- what is told */

/* The way round a surface: middles between their corners */
static Ints roundOf(const Srf &srf)
{
    const Ints &n = srf.nodes;
    return n.size() == 6 ? Ints { n[0], n[3], n[1], n[4], n[2], n[5] } : n;
}

/* Twice the area vector of a plane surface */
static Vec areas(const Sheet &sheet, const Srf &srf)
{
    const Ints n = roundOf(srf);
    Vec sum = {};
    for (size_t k = 1; k + 1 < n.size(); ++k)
        sum = sum + cross(sheet.crd[n[k]] - sheet.crd[n[0]], sheet.crd[n[k + 1]] - sheet.crd[n[0]]);
    return sum;
}

/* What the edge vectors of the surfaces add up to at each node of the mesh */
static Vecs edgeSums(const Sheet &sheet, int set)
{
    Vecs sums(sheet.crd.size());
    for (const Srf &srf : sheet.sets[set]) {
        const Ints n = roundOf(srf);
        const Vec  m = 0.5 * unit(areas(sheet, srf));
        for (size_t k = 0; k < n.size(); ++k)
            sums[n[k]] = sums[n[k]] + cross(sheet.crd[n[(k + 1) % n.size()]] - sheet.crd[n[k]], m);
    }
    return sums;
}

static const char *const families[] = { "Osf", "Cbc", "Dbc", "Sfs" };

/* The answer to <fam><key>, asked for as a client does, by node position */
static std::map<int, Vec> ask(rdbHd *hd, const Sheet &sheet, const std::string &fam, const std::string &key, int set)
{
    std::string stem = fam;
    stem[0] = (char) tolower(stem[0]);
    const Ints nodes = fam == "Osf" ? sheet.osnOf(set) : sheet.nodesOf(set);
    int d1 = 0, d2 = 0;
    EXPECT_TRUE(rdbGetDims(hd, (stem + key).c_str(), 1, set, -1, -1, &d1, &d2)) << rdbGetError();
    EXPECT_EQ(d1, 3);
    EXPECT_EQ(d2, (int) nodes.size());
    std::vector<double> values(3 * d2 + 1, -7);
    checkAnswers(rdbGetReals1(hd, (stem + key).c_str(), values.data(), set, d1, d2));
    EXPECT_EQ(values.back(), -7) << key << " wrote beyond its size";
    std::map<int, Vec> told;
    for (int i = 0; i < d2; ++i) told[nodes[i]] = { values[3 * i], values[3 * i + 1], values[3 * i + 2] };
    return told;
}

static rdbHd *writeAndOpen(const Sheet &sheet)
{
    sheet.write();
    return SmallRun::open();
}

/* ------------------------------------------------------------------------------------------------ flat surfaces */

TEST(nodalDirs, onASquareOfFourQuadrilaterals)
{
    for (const auto &form : smallForms)
        for (bool scattered : { false, true }) {
            SCOPED_TRACE(form.name);
            Sheet sheet = hexahedra(2, 2);
            sheet.form = form.form, sheet.scattered = scattered;
            rdbHd    *hd = writeAndOpen(sheet);
            const int centre = 13, first = 9;                              /* nodes on top are 9 to 17 */
            const Vecs sums = edgeSums(sheet, 0);
            for (const char *fam : families) {
                SCOPED_TRACE(fam);
                for (const auto &told : ask(hd, sheet, fam, "NodalNormDirs", 0)) checkVec(told.second, { 0, 0, -1 });
                for (const auto &told : ask(hd, sheet, fam, "NodalEdgeDirs", 0)) {
                    SCOPED_TRACE(told.first);
                    checkVec(told.second, told.first == centre ? Vec {} : unit(sums[told.first]));
                    if (told.first != centre) {
                        EXPECT_NEAR(length(told.second), 1, 1e-12);
                    }
                }
            }
            EXPECT_GT(length(sums[centre]) + length(sums[first]), 0);
            /* a quarter of each quadrilateral for each of its corners */
            const auto areas = ask(hd, sheet, "Osf", "NodalNormDirsN", 0);
            for (int i = 0; i < 9; ++i) {
                const int nQuads = i == 4 ? 4 : i % 2 ? 2 : 1;
                checkVec(areas.at(first + i), { 0, 0, -0.25 * nQuads });
            }
            EXPECT_EQ(testSlept(), 0);
            rdbFree(hd);
        }
}

TEST(nodalDirs, onFourTriangles)
{
    const Sheet sheet = tetrahedra();
    rdbHd      *hd = writeAndOpen(sheet);
    const Vecs  sums = edgeSums(sheet, 0);
    Vecs        thirds(6);
    for (const Srf &srf : sheet.sets[0])
        for (int n : srf.nodes) thirds[n] = thirds[n] + (1 / 6.0) * areas(sheet, srf);
    for (const auto &told : ask(hd, sheet, "Osf", "NodalNormDirsN", 0)) checkVec(told.second, thirds[told.first]);
    EXPECT_GT(length(sums[4]), 0.1);                      /* it is the turns that tell that node 4 is inside */
    for (const char *fam : families) {
        SCOPED_TRACE(fam);
        for (const auto &told : ask(hd, sheet, fam, "NodalNormDirs", 0)) checkVec(told.second, { 0, 0, 1 });
        for (const auto &told : ask(hd, sheet, fam, "NodalEdgeDirs", 0))
            checkVec(told.second, told.first == 4 ? Vec {} : unit(sums[told.first]));
    }
    rdbFree(hd);
}

/* The middle of the side between two surfaces is inside, those of the other sides are on the edge */
TEST(nodalDirs, onTwoSixNodeTriangles)
{
    const Sheet sheet = quadraticTetrahedra();
    rdbHd      *hd = writeAndOpen(sheet);
    const Vecs  sums = edgeSums(sheet, 0);
    for (const char *fam : families) {
        SCOPED_TRACE(fam);
        for (const auto &told : ask(hd, sheet, fam, "NodalNormDirs", 0)) checkVec(told.second, { 0, 0, 1 });
        for (const auto &told : ask(hd, sheet, fam, "NodalEdgeDirs", 0))
            checkVec(told.second, told.first == 8 ? Vec {} : unit(sums[told.first]));
    }
    Vec all = {};
    for (const auto &told : ask(hd, sheet, "Osf", "NodalNormDirsN", 0)) all = all + told.second;
    checkVec(all, { 0, 0, 4 });
    rdbFree(hd);
}

/* ---------------------------------------------------------------------------------------------- closed surfaces */

TEST(nodalDirs, aClosedSurfaceHasNoEdge)
{
    for (const Sheet &sheet : { closed(hexahedra(1, 1)), closed(tetrahedra()), closed(quadraticTetrahedra()) }) {
        SCOPED_TRACE(sheet.volType);
        rdbHd *hd = writeAndOpen(sheet);
        Vec    sum = {};
        for (const char *fam : families)
            for (const auto &told : ask(hd, sheet, fam, "NodalEdgeDirs", 0)) EXPECT_EQ(told.second, Vec {});
        for (const auto &told : ask(hd, sheet, "Osf", "NodalNormDirsN", 0)) sum = sum + told.second;
        checkVec(sum, {});
        for (const auto &told : ask(hd, sheet, "Cbc", "NodalNormDirs", 0)) EXPECT_NEAR(length(told.second), 1, 1e-12);
        rdbFree(hd);
    }
}

/* ------------------------------------------------------------------------------------------------------ batches */

TEST(nodalDirs, longSetsAreTheSumOfTheirHalves)
{
    for (int n : { 1, 127, 128, 129, 256, 257 }) {
        SCOPED_TRACE(n);
        Sheet sheet = hexahedra(n, 1);
        for (size_t i = 0; i < sheet.crd.size(); ++i) sheet.crd[i][2] += 0.01 * (double) (i * i % 13);
        const auto &all = sheet.sets[0];
        const std::vector<Srf> head(all.begin(), all.begin() + n / 2), tail(all.begin() + n / 2, all.end());
        sheet.sets.push_back(head);
        sheet.sets.push_back(tail);
        rdbHd *hd = writeAndOpen(sheet);
        const auto whole = ask(hd, sheet, "Osf", "NodalNormDirsN", 0);
        auto       sum = ask(hd, sheet, "Osf", "NodalNormDirsN", 1);
        for (const auto &told : ask(hd, sheet, "Osf", "NodalNormDirsN", 2))
            sum[told.first] = sum[told.first] + told.second;
        ASSERT_EQ(sum.size(), whole.size());
        for (const auto &told : whole) checkVec(told.second, sum[told.first]);
        for (const auto &told : ask(hd, sheet, "Sfs", "NodalNormDirs", 0)) checkVec(told.second, unit(sum[told.first]));
        const Vecs edges = edgeSums(sheet, 0);
        for (const auto &told : ask(hd, sheet, "Sfs", "NodalEdgeDirs", 0))
            checkVec(told.second, unit(edges[told.first]));
        rdbFree(hd);
    }
}

/* ------------------------------------------------------------------------------------------------- special sets */

/* An output surface's nodes stand as its node file has them, even those that no surface has */
TEST(nodalDirs, nodesOfOutputSurfacesStandAsInTheirFile)
{
    Sheet sheet = hexahedra(2, 2);
    sheet.osn[0] = { 13, 0, 9, 13 };                       /* 0 is below */
    rdbHd *hd = writeAndOpen(sheet);
    double dirs[12];
    checkAnswers(rdbGetReals1(hd, "osfNodalNormDirsN", dirs, 0, 3, 4));
    const double expected[12] = { 0, 0, -1, 0, 0, 0, 0, 0, -0.25, 0, 0, -1 };
    for (int i = 0; i < 12; ++i) EXPECT_NEAR(dirs[i], expected[i], 1e-15) << i;
    checkAnswers(rdbGetReals1(hd, "osfNodalNormDirs", dirs, 0, 3, 4));
    for (int c = 0; c < 3; ++c) EXPECT_EQ(dirs[3 + c], 0);
    rdbFree(hd);
}

TEST(nodalDirs, surfacesWithoutAnArea)
{
    for (Sheet sheet : { hexahedra(2, 2), tetrahedra(), quadraticTetrahedra() }) {
        for (Vec &x : sheet.crd) x = { 1, 2, 3 };
        rdbHd *hd = writeAndOpen(sheet);
        for (const char *fam : families)
            for (const char *key : { "NodalNormDirs", "NodalEdgeDirs" })
                for (const auto &told : ask(hd, sheet, fam, key, 0)) EXPECT_EQ(told.second, Vec {}) << fam << key;
        rdbFree(hd);
    }
}

TEST(nodalDirs, aSetOfNoSurfaces)
{
    Sheet sheet = hexahedra(1, 1);
    sheet.sets.push_back({});
    rdbHd *hd = writeAndOpen(sheet);
    double none = -7;
    for (const char *fam : families)
        for (const char *key : { "NodalNormDirs", "NodalEdgeDirs" }) EXPECT_TRUE(ask(hd, sheet, fam, key, 1).empty());
    checkAnswers(rdbGetReals1(hd, "osfNodalNormDirsN", &none, 1, -1, -1));
    EXPECT_EQ(none, -7);
    rdbFree(hd);
}

/* ----------------------------------------------------------------------------------------------------- failures */

static const char *const dirKeys[] = { "osfNodalNormDirsN", "osfNodalNormDirs", "osfNodalEdgeDirs",
                                       "cbcNodalNormDirs",  "cbcNodalEdgeDirs", "dbcNodalNormDirs",
                                       "dbcNodalEdgeDirs",  "sfsNodalNormDirs", "sfsNodalEdgeDirs" };

static void expectNothingKept(const rdbHd *hd)
{
    const rdbDirs &dirs = hd->run->dirs;
    EXPECT_EQ(dirs.crd, nullptr);
    EXPECT_EQ(dirs.sums, nullptr);
    EXPECT_EQ(dirs.nodes, nullptr);
    EXPECT_EQ(dirs.cnn, nullptr);
    EXPECT_EQ(dirs.turns, nullptr);
}

TEST(nodalDirs, aNodeThatTheCoordinateFileDoesNotHave)
{
    for (bool scattered : { false, true })
        for (int id : { -1, 0, 7777, INT_MAX, INT_MIN }) {
            SCOPED_TRACE(id);
            Sheet sheet = hexahedra(1, 1);
            sheet.scattered = scattered;
            sheet.write();
            {
                tool::TokenFile f("p.srf0", sheet.form);           /* one of the surface's nodes is another */
                Ints cnn = sheet.ids(sheet.sets[0][0].nodes);
                cnn[2] = id;
                Sheet::putHead(f, 3, 1, 6);
                Sheet::putPart(f, 1, { sheet.elemId(0) });
                Sheet::putPart(f, 1, { 1 });
                Sheet::putPart(f, 4, cnn);
            }
            {
                tool::TokenFile f("p.1_0.osn", sheet.form);
                f.keyInt("nSds", 0);
                f.keyInt("nNodes", 1);
                f.keyInts("usrIds", 1, 1, &id);
            }
            rdbHd            *hd = SmallRun::open();
            const std::string text = "Key <" + std::to_string(id) + "> not found";
            double dirs[64];
            for (const char *key : dirKeys) {
                checkFails(text, rdbGetReals1(hd, key, dirs, 0, -1, -1));
                checkFails("Function <mtxInvHash>", rdbGetReals1(hd, key, dirs, 0, -1, -1));
            }
            sheet.write();                                          /* and the handle is as good as before */
            rdbOpenRun(hd, 1);
            for (const char *key : dirKeys) checkAnswers(rdbGetReals1(hd, key, dirs, 0, -1, -1));
            expectNothingKept(hd);
            rdbFree(hd);
        }
}

/* The node is in the set's own list of nodes, but its element has others */
TEST(nodalDirs, aNodeOfTheElementThatTheCoordinateFileDoesNotHave)
{
    Sheet sheet = hexahedra(1, 1);
    sheet.write();
    Sheet more = sheet;
    more.volCnn[4] = more.sets[0][0].nodes[3] = 40;
    more.writeMesh();
    more.writeSet(0);
    {
        tool::TokenFile f("p.crd", sheet.form);
        Ints nodes;
        for (int i = 0; i < 8; ++i) nodes.push_back(sheet.nodeId(i));
        std::vector<double> xyz(24);
        Sheet::putHead(f, 2, 8, 4);
        Sheet::putPart(f, 1, nodes);
        f.keyInt("type", 2);
        f.keyInt("nCols", 3);
        f.keyReals("realVec", 3, 8, xyz.data());
    }
    rdbHd *hd = SmallRun::open();
    double dirs[64];
    checkFails("Key <" + std::to_string(sheet.nodeId(40)) + "> not found",
               rdbGetReals1(hd, "osfNodalNormDirs", dirs, 0, -1, -1));
    rdbFree(hd);
}

TEST(nodalDirs, whatIsMissing)
{
    Sheet sheet = hexahedra(1, 1);
    sheet.write();
    const std::string cli = testRead("p.1.cli");
    double dirs[64];

    rdbHd *hd = SmallRun::open();
    for (const char *key : dirKeys)
        checkRefused("index1 (1) is out of range [0,0]", rdbGetReals1(hd, key, dirs, 1, -1, -1));
    rdbFree(hd);

    remove(("p.1_0.osn" + sheet.suffix()).c_str());
    hd = SmallRun::open();
    for (const char *key : dirKeys)
        if (key[0] == 'o') checkRefused(".osn file not found", rdbGetReals1(hd, key, dirs, 0, -1, -1));
        else checkAnswers(rdbGetReals1(hd, key, dirs, 0, -1, -1));
    expectNothingKept(hd);

    /* a set without a file; those made of it need that one's */
    memFree(((rdbSrfSet *) hd->run->srf[RDB_SFS].rec[0])->file);
    for (const char *key : { "cbcNodalNormDirs", "cbcNodalEdgeDirs", "sfsNodalNormDirs" })
        checkRefused("surface set file not found", rdbGetReals1(hd, key, dirs, 0, -1, -1));
    memFree(((rdbSrfSet *) hd->run->srf[RDB_CBC].rec[0])->file);
    ((rdbSrfSet *) hd->run->srf[RDB_CBC].rec[0])->nNodes = -1;
    checkRefused("surface file not found", rdbGetReals1(hd, "cbcNodalNormDirs", dirs, 0, -1, -1));
    expectNothingKept(hd);
    rdbFree(hd);

    testWrite("p.1.cli", cli.substr(cli.find("#@ VOL")));              /* a run without nodes */
    hd = SmallRun::open();
    checkFails("Key <" + std::to_string(sheet.nodeId(sheet.nodesOf(0)[0])) + "> not found",
               rdbGetReals1(hd, "sfsNodalNormDirs", dirs, 0, -1, -1));
    rdbFree(hd);
}

/* What contradicts itself is told under the name of the connectivity that was wanted */
TEST(nodalDirs, inconsistentSetsAreToldOfTheirConnectivity)
{
    static const struct { const char *key, *label; int fam; } rows[] = {
        { "osfNodalNormDirsN", "Function <rdb_osfBndCnn>", RDB_OSF },
        { "cbcNodalNormDirs",  "Function <rdb_cbcBndCnn>", RDB_CBC },
        { "dbcNodalEdgeDirs",  "Function <rdb_dbcBndCnn>", RDB_DBC },
    };
    const Sheet sheet = hexahedra(1, 1);
    for (const auto &row : rows) {
        rdbHd *hd = writeAndOpen(sheet);
        double dirs[64];
        ((rdbSrfSet *) hd->run->srf[RDB_SFS].rec[0])->type = 1;
        checkFails("Inconsistent type <1> vs <2>", rdbGetReals1(hd, row.key, dirs, 0, -1, -1));
        checkFails(row.label, rdbGetReals1(hd, row.key, dirs, 0, -1, -1));
        ((rdbSrfSet *) hd->run->srf[RDB_SFS].rec[0])->type = 2;
        checkAnswers(rdbGetReals1(hd, row.key, dirs, 0, -1, -1));
        expectNothingKept(hd);
        rdbFree(hd);
    }
    rdbHd *hd = writeAndOpen(sheet);
    double dirs[64];
    ((rdbSrfSet *) hd->run->srf[RDB_SFS].rec[0])->type = 3;
    checkFails("Invalid srfType <3>", rdbGetReals1(hd, "sfsNodalNormDirs", dirs, 0, -1, -1));
    checkFails("Function <rdb_sfsBndCnn>", rdbGetReals1(hd, "sfsNodalNormDirs", dirs, 0, -1, -1));
    rdbFree(hd);
}

/* -------------------------------------------------------------------------------------------- absurd numbers */

TEST(nodalDirs, absurdNumbersOfTheLinesAreAskedSafely)
{
    const Sheet sheet = hexahedra(1, 1);
    sheet.write();
    const std::string lines = sheet.cli();
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    for (size_t i = 1; i + 1 < lines.size(); ++i) {
        if (!isdigit((unsigned char) lines[i]) || lines[i - 1] != ' ') continue;
        const size_t end = lines.find_first_of(" \n", i);
        for (const char *absurd : { "-1", "0", "1", "3", "5", "15", "2147483647", "-2147483648" }) {
            const std::string damaged = lines.substr(0, i) + absurd + lines.substr(end);
            SCOPED_TRACE(damaged.substr(damaged.rfind('\n', i) + 1, 80));
            testWrite("p.1.cli", damaged);
            db.open();
            for (const char *key : dirKeys) {
                int d1 = 0, d2 = 0, given = 0;
                trapped([&] { given = rdbGetDims(db.hd, key, 1, 0, -1, -1, &d1, &d2); });
                if (!given || d2 < 0 || d2 > 1000) continue;
                std::vector<double> dirs(3 * d2 + 1, -7);
                trapped([&] { rdbGetReals1(db.hd, key, dirs.data(), 0, d1, d2); });
                EXPECT_EQ(dirs.back(), -7) << key << " wrote beyond its size";
            }
        }
    }
}
