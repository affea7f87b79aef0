/* testGeneratedSets.cpp: the sets of generated runs come back as their model has them: all kinds of elements, all
 * storage forms, lines of older runs, renumbered volumes. */

#include <algorithm>
#include <array>
#include <filesystem>

#include "test/rdb/smallRun.h"
#include "tool/runWriter.h"

using namespace tool;
using Ints = std::vector<int>;

/* The run of a spec, written to a folder of its own and open; closed at the end of the test */
struct Generated {
    RunModel model;
    rdbHd   *hd = nullptr;
    std::filesystem::path here = std::filesystem::current_path();

    static RunSpec placed(RunSpec spec)
    {
        spec.dir      = "run";
        spec.nodeSets = true;
        return spec;
    }

    explicit Generated(const RunSpec &spec) : model(placed(spec))
    {
        std::filesystem::remove_all("run");
        writeRun(model);
        std::filesystem::current_path("run");
        int ok = 0;
        checkReturns(hd = rdbNew("pipe", "QUENTA.DIR", nullptr, 0); ok = hd && rdbOpenRun(hd, 1));
        EXPECT_EQ(ok, 1) << rdbGetError();
    }
    ~Generated()
    {
        if (hd) rdbFree(hd);
        std::filesystem::current_path(here);
    }
    Generated(const Generated &) = delete;

    /* A number or an array, of as many indices as are not -1 */
    int num(const std::string &key, int i = -1, int k = -1)
    {
        int n = -999;
        checkAnswers(rdbGetData(hd, nullptr, key.c_str(), &n, RDB_INT, (i >= 0) + (k >= 0), i, k, -1, -1, -1));
        return n;
    }
    Ints ints(const std::string &key, int i = -1, int k = -1)
    {
        int d1 = 0, d2 = 0;
        const int nIdx = (i >= 0) + (k >= 0);
        EXPECT_TRUE(rdbGetDims(hd, key.c_str(), nIdx, i, k, -1, &d1, &d2)) << key << ": " << rdbGetError();
        Ints values((size_t) d1 * (d2 < 0 ? 1 : d2) + 1, -7);
        checkAnswers(rdbGetData(hd, nullptr, key.c_str(), values.data(), RDB_INTS, nIdx, i, k, -1, d1, d2));
        EXPECT_EQ(values.back(), -7) << key << " wrote beyond its size";
        values.pop_back();
        return values;
    }
    std::string str(const std::string &key, int i)
    {
        char text[RDB_TEXT] = "untouched";
        checkAnswers(rdbGetStr1(hd, key.c_str(), text, i));
        return text;
    }

    Ints asIds(Ints nodes) const
    {
        for (int &node : nodes) node = model.usrIds[node];
        return nodes;
    }
    Ints sortedIds(const Ints &nodes) const
    {
        Ints ids = asIds(nodes);
        std::sort(ids.begin(), ids.end());
        ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
        return ids;
    }

    void checkVolumes()
    {
        ASSERT_EQ(num("nVols"), (int) model.vols.size());
        for (int v = 0; v < (int) model.vols.size(); ++v) {
            const VolSet &vol = model.vols[v];
            EXPECT_EQ(str("volName", v), vol.name);
            EXPECT_EQ(num("volType", v), vol.type);
            EXPECT_EQ(num("nVolElemNodes", v), vol.nen);
            EXPECT_EQ(ints("volUsrIds", v), vol.usrIds);
            EXPECT_EQ(ints("volCnn", v), asIds(vol.cnn));
        }
    }

    /* A set whose rows are those of its model: connectivity as its elements see it is what the model has */
    void checkSurfaces(const std::string &fam, const std::string &Fam, int i, const SrfSet &set, bool oneVolume)
    {
        SCOPED_TRACE(fam + " " + set.name);
        Ints elems;
        for (int e : set.elems) elems.push_back(model.vols[set.vol].usrIds[e]);
        EXPECT_EQ(num("n" + Fam + "Srfs", i), set.nSrfs());
        EXPECT_EQ(num(fam + "Type", i), set.type);
        EXPECT_EQ(ints(fam + "UsrIds", i), set.usrIds);
        EXPECT_EQ(ints(fam + "Cnn", i), asIds(set.cnn));
        if (oneVolume) {
            EXPECT_EQ(ints(fam + "ElemIds", i), elems);
            EXPECT_EQ(ints(fam + "SrfCnn", i), asIds(set.cnn));
            EXPECT_EQ(num("n" + Fam + "ElemNodes", i), model.vols[set.vol].nen);
        }
        EXPECT_EQ(ints(fam + "Nodes", i), sortedIds(set.cnn));
    }

    void checkSurfaceSets()
    {
        ASSERT_EQ(num("nSfss"), (int) model.sfss.size());
        for (int s = 0; s < (int) model.sfss.size(); ++s) {
            EXPECT_EQ(str("sfsName", s), model.sfss[s].name);
            EXPECT_EQ(num("sfsParentId", s), model.sfss[s].vol);
            checkSurfaces("sfs", "Sfs", s, model.sfss[s], true);
        }
        for (int g = 0; g < (int) model.cbcs.size(); ++g) {
            const Group &group = model.cbcs[g];
            EXPECT_EQ(str("cbcName", g), group.name);
            EXPECT_EQ(num("cbcParentId", g), group.elm);
            EXPECT_EQ(ints("cbcSfsIds", g), group.members);
            if (group.members.size() == 1) checkSurfaces("cbc", "Cbc", g, model.sfss[group.members[0]], true);
        }
    }

    void checkNodeSets()
    {
        ASSERT_EQ(num("nNbcs"), (int) model.nbcs.size());
        for (int i = 0; i < (int) model.nbcs.size(); ++i) {
            EXPECT_EQ(str("nbcName", i), model.nbcs[i].name);
            EXPECT_EQ(str("nbcVar", i), std::to_string(model.nbcs[i].var));
            EXPECT_EQ(ints("nbcNodes", i), asIds(model.nbcs[i].nodes));
        }
        Ints wall = asIds(model.wall.nodes);
        wall.resize(model.nNodes);
        EXPECT_EQ(ints("nbcWallNodes", 0), wall);
        ASSERT_EQ(num("nPbcs"), (int) model.pbcs.size());
        for (int i = 0; i < (int) model.pbcs.size(); ++i) {
            EXPECT_EQ(str("pbcName", i), model.pbcs[i].name);
            EXPECT_EQ(str("pbcVar", i), std::to_string(model.pbcs[i].var));
            EXPECT_EQ(ints("pbcUsrIds", i), model.pbcs[i].usrIds);
            EXPECT_EQ(ints("pbcPairs", i), asIds(model.pbcs[i].nodes));
        }
    }

    void checkOutElems()
    {
        ASSERT_EQ(num("nOels"), (int) model.oels.size());
        for (int i = 0; i < (int) model.oels.size(); ++i) {
            const OutElems &set = model.oels[i];
            SCOPED_TRACE(set.name);
            EXPECT_EQ(str("oelName", i), set.name);
            EXPECT_EQ(num("oelType", i), set.whole ? 2 : 1);
            const Ints vols = ints("oelVolIds", i);
            ASSERT_EQ(vols.size(), set.parts.size());
            for (int p = 0; p < (int) set.parts.size(); ++p) {
                const OutElems::Part &part = set.parts[p];
                const VolSet &vol = model.vols[part.vol];
                Ints ids, cnn;
                for (int e : part.elems) {
                    ids.push_back(vol.usrIds[e]);
                    cnn.insert(cnn.end(), vol.cnn.begin() + e * vol.nen, vol.cnn.begin() + e * vol.nen + part.nen);
                }
                EXPECT_EQ(vols[p], part.vol);
                EXPECT_EQ(num("nOelElemNodes", i, p), part.nen);
                EXPECT_EQ(ints("oelElemIds", i, p), ids);
                EXPECT_EQ(ints("oelCnn", i, p), asIds(cnn));
                EXPECT_EQ(ints("oelNodes", i, p), sortedIds(cnn));
            }
        }
    }

    void checkAll()
    {
        checkVolumes();
        checkSurfaceSets();
        checkNodeSets();
        checkOutElems();
        EXPECT_EQ(testSlept(), 0);
    }
};

static const struct { const char *name; Mesh mesh; } meshes[] = {
    { "hex", Mesh::hex }, { "tet", Mesh::tet }, { "tet10", Mesh::tet10 }, { "bubble", Mesh::bubble },
    { "mixed", Mesh::mixed },
};

TEST(generatedSets, ofAllKindsOfElementsAndLines)
{
    for (const auto &mesh : meshes)
        for (Lines lines : { Lines::all, Lines::noVolumes, Lines::noSets })
            for (bool scattered : { false, true }) {
                SCOPED_TRACE(std::string(mesh.name) + ", lines " + std::to_string((int) lines));
                RunSpec spec;
                spec.mesh      = mesh.mesh;
                spec.nVols     = 3;
                spec.lines     = lines;
                spec.scattered = scattered;
                spec.emptySets = scattered;
                Generated(spec).checkAll();
            }
}

TEST(generatedSets, inEveryForm)
{
    for (const auto &form : formRows) {
        SCOPED_TRACE(form.word);
        RunSpec spec;
        spec.form      = form.value;
        spec.mesh      = Mesh::bubble;
        spec.nVols     = 2;
        spec.nx = spec.ny = spec.nz = 2;
        spec.emptySets = spec.scattered = true;
        Generated(spec).checkAll();
    }
}

/* The lines tell of other volumes by number; elements and surfaces are found all the same, by the names */
TEST(generatedSets, ofRenumberedVolumes)
{
    for (const auto &mesh : meshes) {
        SCOPED_TRACE(mesh.name);
        RunSpec spec;
        spec.mesh       = mesh.mesh;
        spec.nVols      = 3;
        spec.renumbered = spec.scattered = true;
        Generated run(spec);
        run.checkAll();
        EXPECT_EQ(run.num("oelParentId", 0), 1);             /* as the line has it */
    }
}

/* The outlet is the end of a box of 2 by 2 cells of 1/8, seen from inside; it is the only output surface */
TEST(generatedSets, normalsHaveTheSizeOfTheirSurface)
{
    for (const auto &mesh : meshes) {
        if (mesh.mesh == Mesh::mixed) continue;              /* its inner interfaces are output surfaces, too */
        SCOPED_TRACE(mesh.name);
        RunSpec spec;
        spec.mesh = mesh.mesh;
        Generated run(spec);
        std::array<double, 3> sum = {}, size = {};
        for (int s = 0; s < (int) run.model.sfss.size(); ++s) {
            const Ints nodes = run.ints("sfsNodes", s);
            std::vector<double> dirs(3 * nodes.size());
            checkAnswers(rdbGetReals1(run.hd, "sfsNodalNormDirs", dirs.data(), s, 3, (int) nodes.size()));
            for (size_t i = 0; i < dirs.size(); ++i) size[i % 3] = std::max(size[i % 3], std::abs(dirs[i]));
            checkAnswers(rdbGetReals1(run.hd, "sfsNodalEdgeDirs", dirs.data(), s, 3, (int) nodes.size()));
        }
        ASSERT_EQ(run.model.osfs.size(), 1u);
        std::vector<double> dirs(3 * run.num("nOsfNodes", 0));
        checkAnswers(rdbGetReals1(run.hd, "osfNodalNormDirsN", dirs.data(), 0, 3, (int) dirs.size() / 3));
        for (size_t i = 0; i < dirs.size(); ++i) sum[i % 3] += dirs[i];
        EXPECT_NEAR(sum[0], -1.0 / 16, 1e-12);
        EXPECT_NEAR(sum[1], 0, 1e-12);
        EXPECT_NEAR(sum[2], 0, 1e-12);
        for (double s : size) EXPECT_NEAR(s, 1, 1e-12);
    }
}
