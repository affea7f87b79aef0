/* testRunModel.cpp: the generated mesh is a proper mesh, sets and parts cover it, and the fields tell every node,
 * component and step apart. */

#include "test/testUtil.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <set>
#include <stdexcept>

#include "tool/runModel.h"

using namespace tool;

/* ---- the meshes that most tests walk through ---- */

struct MeshCase { const char *name; Mesh mesh; Shape shape; int nx, ny, nz, nVols; bool scattered; };
static const MeshCase meshes[] = {
    {"one hexahedron",       Mesh::hex,   Shape::box,     1, 1, 1, 1, false},
    {"hex box",              Mesh::hex,   Shape::box,     5, 3, 4, 1, false},
    {"hex box, 3 volumes",   Mesh::hex,   Shape::box,     7, 2, 3, 3, true },
    {"hex bend",             Mesh::hex,   Shape::bend,   12, 4, 2, 2, false},
    {"hex ring",             Mesh::hex,   Shape::annulus, 4, 9, 2, 1, true },
    {"tet box",              Mesh::tet,   Shape::box,     4, 3, 2, 2, true },
    {"tet ring",             Mesh::tet,   Shape::annulus, 3, 8, 2, 1, false},
    {"tet10 box",            Mesh::tet10, Shape::box,     3, 2, 2, 2, true },
    {"tet10 ring",           Mesh::tet10, Shape::annulus, 2, 7, 1, 1, false},
    {"bubble box",           Mesh::bubble, Shape::box,    3, 2, 2, 2, true },
    {"bubble ring",          Mesh::bubble, Shape::annulus, 2, 7, 1, 1, false},
    {"mixed box",            Mesh::mixed, Shape::box,     4, 1, 1, 1, false},
    {"mixed bend",           Mesh::mixed, Shape::bend,   13, 3, 4, 1, true },
    {"mixed ring",           Mesh::mixed, Shape::annulus, 9, 8, 3, 1, true },
};

static RunSpec specOf(const MeshCase &c)
{
    RunSpec spec;
    spec.mesh  = c.mesh;
    spec.shape = c.shape;
    spec.nx = c.nx;
    spec.ny = c.ny;
    spec.nz = c.nz;
    spec.nVols     = c.nVols;
    spec.scattered = c.scattered;
    return spec;
}

/* face tables, corner nodes only, and the middle nodes of the ten-node faces behind them */
static const std::map<int, std::vector<std::vector<int>>> faceTables = {
    {3,  {{0,1,2}, {1,3,2}, {2,3,0}, {3,1,0}}},
    {4,  {{0,1,2,3}, {1,0,4}, {2,1,4}, {3,2,4}, {0,3,4}}},
    {5,  {{0,1,2}, {5,4,3}, {0,2,5,3}, {2,1,4,5}, {1,0,3,4}}},
    {6,  {{0,1,2,3}, {7,6,5,4}, {5,6,2,1}, {0,3,7,4}, {4,5,1,0}, {3,2,6,7}}},
    {16, {{0,1,2,4,5,6}, {1,3,2,8,9,5}, {2,3,0,9,7,6}, {3,1,0,8,4,7}}},
    {28, {{0,1,2}, {1,3,2}, {2,3,0}, {3,1,0}}},
};

static std::vector<int> faceNodes(const VolSet &vol, int elem, const std::vector<int> &row)
{
    std::vector<int> nodes;
    for (int n : row) nodes.push_back(vol.cnn[(size_t) elem * vol.nen + n]);
    return nodes;
}

static std::vector<int> surfaceNodes(const SrfSet &set, int srf)
{
    const auto first = set.cnn.begin() + (size_t) srf * set.nSrfNodes;
    return std::vector<int>(first, first + set.nSrfNodes);
}

static std::vector<int> sorted(std::vector<int> v)
{
    std::sort(v.begin(), v.end());
    return v;
}

/* ---- geometry ---- */

using Vec = std::array<double, 3>;

static Vec at(const RunModel &model, int node, int step = -1)
{
    Vec x;
    model.crd(node, x.data());
    if (step >= 0) {
        const int disp = model.varOf("mesh_displacement");
        for (int d = 0; d < 3; ++d) x[d] += model.value(disp, d, node, step);
    }
    return x;
}

static double volumeOf(const Vec &a, const Vec &b, const Vec &c, const Vec &d)
{
    double e[3][3];
    for (int k = 0; k < 3; ++k) {
        e[0][k] = b[k] - a[k];
        e[1][k] = c[k] - a[k];
        e[2][k] = d[k] - a[k];
    }
    return (e[0][0] * (e[1][1] * e[2][2] - e[1][2] * e[2][1]) - e[0][1] * (e[1][0] * e[2][2] - e[1][2] * e[2][0])
            + e[0][2] * (e[1][0] * e[2][1] - e[1][1] * e[2][0])) / 6;
}

/* each element as tetrahedra of its nodes, each of which must have a positive volume */
static const std::map<int, std::vector<std::array<int, 4>>> cuts = {
    {3,  {{0,1,2,3}}},
    {4,  {{0,1,2,4}, {0,2,3,4}}},
    {5,  {{0,1,2,3}, {1,4,5,3}, {1,5,2,3}}},
    {6,  {{0,1,2,6}, {0,2,3,6}, {0,3,7,6}, {0,7,4,6}, {0,4,5,6}, {0,5,1,6}}},
    {16, {{0,1,2,3}}},
    {28, {{4,1,2,3}, {0,4,2,3}, {0,1,4,3}, {0,1,2,4}}},
};

static double totalVolume(const RunModel &model, double *least, int step = -1)
{
    double total = 0;
    *least = 1e300;
    for (const VolSet &vol : model.vols)
        for (int e = 0; e < vol.nElems(); ++e)
            for (const auto &cut : cuts.at(vol.type)) {
                const int *n = &vol.cnn[(size_t) e * vol.nen];
                const double v = volumeOf(at(model, n[cut[0]], step), at(model, n[cut[1]], step),
                                          at(model, n[cut[2]], step), at(model, n[cut[3]], step));
                *least = std::min(*least, v);
                total += v;
            }
    return total;
}

TEST(runModel, elementsAreRightHandedAndFillTheShape)
{
    for (const MeshCase &c : meshes) {
        SCOPED_TRACE(c.name);
        const RunModel model(specOf(c));
        double least;
        const double total = totalVolume(model, &least);
        EXPECT_GT(least, 0);
        if (c.shape == Shape::box) { EXPECT_NEAR(total, c.nx * c.ny * c.nz / 512.0, 1e-12); }
    }
}

TEST(runModel, middleNodesLieBetweenTheirCorners)
{
    RunSpec spec;
    spec.mesh = Mesh::tet10;
    const RunModel model(spec);
    const int ends[6][2] = {{0,1}, {1,2}, {0,2}, {0,3}, {1,3}, {2,3}};
    const VolSet &vol = model.vols[0];
    for (int e = 0; e < vol.nElems(); ++e)
        for (int m = 0; m < 6; ++m) {
            const int *n = &vol.cnn[10 * e];
            const Vec a = at(model, n[ends[m][0]]), b = at(model, n[ends[m][1]]), mid = at(model, n[4 + m]);
            for (int d = 0; d < 3; ++d) ASSERT_EQ(mid[d], (a[d] + b[d]) / 2);
        }
}

TEST(runModel, bubblesLieInTheMiddleOfTheirElement)
{
    RunSpec spec;
    spec.mesh = Mesh::bubble;
    const RunModel model(spec);
    const VolSet &vol = model.vols[0];
    ASSERT_EQ(vol.type, 28);
    for (int e = 0; e < vol.nElems(); ++e)
        for (int d = 0; d < 3; ++d) {
            double sum = 0;
            for (int n = 0; n < 4; ++n) sum += at(model, vol.cnn[5 * e + n])[d];
            ASSERT_EQ(at(model, vol.cnn[5 * e + 4])[d], sum / 4);
        }
    for (int block = 0; block < model.nBlocks(); ++block) EXPECT_EQ(model.cellType(block), -1);
}

TEST(runModel, demoMeshesStayMeshesWhileTheyMove)
{
    for (const MeshCase &c : meshes) {
        if (c.nx < 3 || c.mesh == Mesh::tet10) continue;
        SCOPED_TRACE(c.name);
        RunSpec spec = specOf(c);
        spec.fields = Fields::demo;
        spec.setVars("velocity,mesh_displacement,species:3");
        spec.setSteps(4);
        const RunModel model(spec);
        for (int step = 0; step < 4; ++step) {
            double least;
            totalVolume(model, &least, step);
            EXPECT_GT(least, 0);
        }
    }
}

/* ---- conformity and surface sets ---- */

struct Owner { int vol, elem, face; };
using FaceMap = std::map<std::vector<int>, std::vector<Owner>>;

static FaceMap allFaces(const RunModel &model)
{
    FaceMap faces;
    for (int v = 0; v < (int) model.vols.size(); ++v) {
        const auto &table = faceTables.at(model.vols[v].type);
        for (int e = 0; e < model.vols[v].nElems(); ++e)
            for (int f = 0; f < (int) table.size(); ++f)
                faces[sorted(faceNodes(model.vols[v], e, table[f]))].push_back({v, e, f});
    }
    return faces;
}

TEST(runModel, everyFaceIsSharedByTwoElementsOrIsInOneSurfaceSet)
{
    for (const MeshCase &c : meshes) {
        SCOPED_TRACE(c.name);
        const RunModel model(specOf(c));
        const FaceMap faces = allFaces(model);
        size_t nOuter = 0, nInner = 0;
        for (const auto &face : faces) {
            ASSERT_LE(face.second.size(), 2u);
            if (face.second.size() == 1) ++nOuter;
            else if (face.second[0].vol != face.second[1].vol) ++nInner;
        }
        std::set<std::vector<int>> outer;
        std::set<std::pair<int, std::vector<int>>> inner;
        for (const SrfSet &set : model.sfss)
            for (int s = 0; s < set.nSrfs(); ++s) {
                const std::vector<int> nodes = surfaceNodes(set, s);
                const auto found = faces.find(sorted(nodes));
                ASSERT_NE(found, faces.end());
                if (set.neighbor < 0) {
                    ASSERT_EQ(found->second.size(), 1u);
                    EXPECT_TRUE(outer.insert(found->first).second) << "a face twice";
                }
                else {
                    ASSERT_EQ(found->second.size(), 2u);
                    EXPECT_NE(found->second[0].vol, found->second[1].vol);
                    EXPECT_TRUE(inner.insert({set.vol, found->first}).second) << "a face twice";
                }
            }
        EXPECT_EQ(outer.size(), nOuter);
        EXPECT_EQ(inner.size(), 2 * nInner);           /* each seen from both sides */
        if (c.nVols > 1 || c.mesh == Mesh::mixed) { EXPECT_GT(nInner, 0u); }
    }
}

TEST(runModel, surfacesAreRowsOfTheirElementsFaceTable)
{
    for (const MeshCase &c : meshes) {
        SCOPED_TRACE(c.name);
        const RunModel model(specOf(c));
        for (const SrfSet &set : model.sfss) {
            SCOPED_TRACE(set.name);
            ASSERT_GT(set.nSrfs(), 0);
            ASSERT_EQ(set.cnn.size(), (size_t) set.nSrfs() * set.nSrfNodes);
            EXPECT_EQ(set.nSrfNodes, set.type == 1 ? 3 : set.type == 2 ? 4 : 6);
            for (int s = 0; s < set.nSrfs(); ++s) {
                const VolSet &vol = model.vols[set.vol];
                const auto &row = faceTables.at(vol.type)[set.faces[s]];
                const std::vector<int> nodes = surfaceNodes(set, s);
                ASSERT_EQ(nodes, faceNodes(vol, set.elems[s], row));
            }
        }
    }
}

TEST(runModel, twoSidesOfAnInterfaceNameEachOther)
{
    for (const MeshCase &c : meshes) {
        SCOPED_TRACE(c.name);
        const RunModel model(specOf(c));
        for (int s = 0; s < (int) model.sfss.size(); ++s) {
            const int n = model.sfss[s].neighbor;
            if (n < 0) continue;
            ASSERT_LT(n, (int) model.sfss.size());
            EXPECT_NE(n, s);
            EXPECT_EQ(model.sfss[n].neighbor, s);
            EXPECT_EQ(model.sfss[n].nSrfs(), model.sfss[s].nSrfs());
        }
    }
}

TEST(runModel, aMixedMeshHasFourKindsOfElements)
{
    RunSpec spec;
    spec.mesh = Mesh::mixed;
    spec.nx = 8;
    const RunModel model(spec);
    ASSERT_EQ(model.vols.size(), 4u);
    const int types[4] = {6, 5, 4, 3}, nens[4] = {8, 6, 5, 4};
    for (int v = 0; v < 4; ++v) {
        EXPECT_EQ(model.vols[v].type, types[v]);
        EXPECT_EQ(model.vols[v].nen, nens[v]);
        EXPECT_GT(model.vols[v].nElems(), 0);
    }
}

/* ---- ids ---- */

TEST(runModel, consecutiveIdsCountFromOne)
{
    RunSpec spec;
    spec.nVols = 2;
    const RunModel model(spec);
    for (int n = 0; n < model.nNodes; ++n) ASSERT_EQ(model.usrIds[n], n + 1);
    int next = 1;
    for (const VolSet &vol : model.vols)
        for (int id : vol.usrIds) ASSERT_EQ(id, next++);
}

TEST(runModel, scatteredIdsAreUniqueUnorderedAndHaveGaps)
{
    RunSpec spec;
    spec.nx = spec.ny = spec.nz = 8;
    spec.nVols     = 2;
    spec.scattered = true;
    const RunModel model(spec);
    std::vector<int> elems, srfs;
    for (const VolSet &vol : model.vols) elems.insert(elems.end(), vol.usrIds.begin(), vol.usrIds.end());
    for (const SrfSet &set : model.sfss) srfs.insert(srfs.end(), set.usrIds.begin(), set.usrIds.end());
    for (const std::vector<int> &ids : {model.usrIds, elems, srfs}) {
        const std::set<int> once(ids.begin(), ids.end());
        EXPECT_EQ(once.size(), ids.size());
        EXPECT_GT(*once.begin(), 0);
        EXPECT_GT(*once.rbegin(), (int) ids.size());
        EXPECT_FALSE(std::is_sorted(ids.begin(), ids.end()));
    }
}

TEST(runModel, theSeedDecides)
{
    RunSpec spec;
    spec.scattered = true;
    const std::vector<int> ids = RunModel(spec).usrIds;
    EXPECT_EQ(RunModel(spec).usrIds, ids);
    spec.seed = 2;
    EXPECT_NE(RunModel(spec).usrIds, ids);
}

/* ---- subdomains ---- */

TEST(runModel, partsCoverTheMeshAndShareTheNodesOfCuts)
{
    for (const MeshCase &c : meshes)
        for (int nSds : {0, 1, 2, 3, 4}) {
            if (nSds > c.nx) continue;
            SCOPED_TRACE(c.name);
            SCOPED_TRACE(nSds);
            RunSpec spec = specOf(c);
            spec.nSds = nSds;
            const RunModel model(spec);
            ASSERT_EQ((int) model.parts.size(), std::max(nSds, 1));

            std::vector<int> times(model.nNodes);
            std::vector<std::set<int>> parts;
            for (const auto &part : model.parts) {
                for (int node : part) {
                    ASSERT_GE(node, 0);
                    ASSERT_LT(node, model.nNodes);
                    ++times[node];
                }
                parts.emplace_back(part.begin(), part.end());
                EXPECT_EQ(parts.back().size(), part.size()) << "a node twice in a part";
            }
            EXPECT_EQ(std::count(times.begin(), times.end(), 0), 0);
            EXPECT_EQ(std::count_if(times.begin(), times.end(), [](int n) { return n > 1; }) > 0, nSds > 1);

            for (const VolSet &vol : model.vols)        /* an element's nodes are in the part of its subdomain */
                for (int e = 0; e < vol.nElems(); ++e) {
                    ASSERT_LT(vol.sds[e], (int) parts.size());
                    for (int n = 0; n < vol.nen; ++n)
                        ASSERT_EQ(parts[vol.sds[e]].count(vol.cnn[(size_t) e * vol.nen + n]), 1u);
                }
        }
}

/* ---- fields ---- */

TEST(runModel, formulasAreExactInFloat)
{
    RunSpec spec;
    spec.nx = 8;
    spec.ny = spec.nz = 4;
    spec.shape = Shape::bend;
    spec.setVars("all");
    spec.nSpecs = 4;
    spec.setSteps(4, 0, 10);
    const RunModel model(spec);
    ASSERT_EQ(model.vars.size(), 37u);
    for (int node = 0; node < model.nNodes; ++node) {
        double x[3];
        model.crd(node, x);
        for (double coord : x) {
            ASSERT_EQ(coord * 1024, std::round(coord * 1024));
            ASSERT_EQ((double) (float) coord, coord);
        }
        for (int v = 0; v < 37; ++v)
            for (int c = 0; c < model.vars[v].dim; ++c)
                for (int step : {0, 3}) {
                    const Formula f = model.formula(v, c);
                    const double value = model.value(v, c, node, step);
                    const double told = f.c0 + f.cx * x[0] + f.cy * x[1] + f.cz * x[2] + (f.cs + f.cxs * x[0]) * step;
                    ASSERT_EQ(value, told);
                    ASSERT_EQ((double) (float) value, value) << model.vars[v].name;
                }
    }
}

TEST(runModel, everyComponentHasAFormulaOfItsOwn)
{
    RunSpec spec;
    spec.setVars("all");
    spec.nSpecs = 9;
    spec.nFields = spec.nFilms = spec.nAoutVecs = 5;
    const RunModel model(spec);
    std::set<double> starts;
    int n = 0;
    for (int v = 0; v < (int) model.vars.size(); ++v)
        for (int c = 0; c < model.vars[v].dim; ++c, ++n) {
            const Formula f = model.formula(v, c);
            starts.insert(f.c0);
            EXPECT_TRUE(f.cx != 0 || f.cy != 0 || f.cz != 0);
        }
    EXPECT_EQ((int) starts.size(), n);
}

TEST(runModel, demoFlowsStickToWallsAndAreFinite)
{
    for (Shape shape : {Shape::box, Shape::bend, Shape::annulus}) {
        RunSpec spec;
        spec.shape  = shape;
        spec.nx = 8;
        spec.ny = spec.nz = 6;
        spec.fields = Fields::demo;
        spec.setVars("all");
        spec.setSteps(3);
        const RunModel model(spec);
        double fastest = 0;
        for (int node = 0; node < model.nNodes; ++node)
            for (int v = 0; v < 37; ++v)
                for (int c = 0; c < model.vars[v].dim; ++c) {
                    const double value = model.value(v, c, node, 1);
                    ASSERT_TRUE(std::isfinite(value)) << model.vars[v].name;
                    if (v == 0) fastest = std::max(fastest, std::fabs(value));
                }
        EXPECT_GT(fastest, 0.5);
        for (const SrfSet &set : model.sfss) {
            if (set.name == "inlet" || set.name == "outlet") continue;
            for (int node : set.cnn)
                for (int c = 0; c < 3; ++c) ASSERT_NEAR(model.value(0, c, node, 1), 0, 1e-12) << set.name;
        }
    }
}

TEST(runModel, anAbsentHeaderKeyTakesTheCountBeforeIt)
{
    RunSpec spec;
    spec.setVars("species:3,film:2,field:5");
    spec.omitFilms = true;
    {
        const RunModel model(spec);
        EXPECT_EQ(model.vars[model.varOf("film")].dim, 3);
        EXPECT_EQ(model.vars[model.varOf("field")].dim, 5);
    }
    spec.omitFields = true;
    EXPECT_EQ(RunModel(spec).fieldNames.size(), 3u);
    spec.omitFilms = false;
    EXPECT_EQ(RunModel(spec).fieldNames.size(), 2u);
}

/* ---- what is shown ---- */

TEST(runModel, familiesBecomeArraysOfTheirMembers)
{
    RunSpec spec;
    spec.setVars("velocity,species:2,auxiliary_output:2,mesh_displacement,field:2,mesh_displacement_midstep,"
                 "film:1,tdm,vest");
    const RunModel model(spec);
    std::vector<std::string> names;
    for (const ShownArray &a : model.shownArrays()) {
        names.push_back(a.name + "/" + std::to_string(a.nComps));
        EXPECT_LE(a.first + a.nComps, model.vars[a.var].dim);
    }
    EXPECT_EQ(names, (std::vector<std::string>{
                         "velocity/3", "gas_A/1", "gas_B/1", "eddy_viscosity/1", "auxiliary_output_1/1",
                         "auxiliary_output_2/1", "mesh_displacement/3", "viscoelastic_stress/6", "-phase 1/1",
                         "-phase 2/1", "mesh_displacement/3", "film_1/1"}));
}

TEST(runModel, wallsAreOneGroupOfSeveralConditions)
{
    RunSpec spec;
    spec.mesh = Mesh::mixed;
    const RunModel model(spec);
    const auto isWalls = [](const auto &g) { return g.name == "walls"; };
    EXPECT_GT(std::count_if(model.cbcs.begin(), model.cbcs.end(), isWalls), 1);
    const std::vector<ShownGroup> shown = model.shownGroups(Family::cbc);
    ASSERT_EQ(std::count_if(shown.begin(), shown.end(), isWalls), 1);
    const std::vector<int> &blocks = std::find_if(shown.begin(), shown.end(), isWalls)->blocks;
    EXPECT_TRUE(std::is_sorted(blocks.begin(), blocks.end()));
    EXPECT_EQ(blocks.size(), 8u);                      /* two directions in each of four volumes */
    EXPECT_EQ(model.shownGroups(Family::elm)[0].blocks[0], (int) model.sfss.size());
}

TEST(runModel, everyFamilyHasAGroupAndAGroupIsOfOneKind)
{
    for (const MeshCase &c : meshes) {
        SCOPED_TRACE(c.name);
        const RunModel model(specOf(c));
        for (Family family : {Family::elm, Family::osf, Family::cbc, Family::rsf, Family::srs}) {
            EXPECT_FALSE(model.groups(family).empty());
            for (const Group &group : model.groups(family)) {
                ASSERT_FALSE(group.members.empty());
                for (int m : group.members) {
                    if (family == Family::elm) {
                        EXPECT_EQ(model.vols[m].type, model.vols[group.members[0]].type);
                        continue;
                    }
                    const std::vector<int> &parents = model.elms.at(group.elm).members;
                    EXPECT_EQ(model.sfss[m].type, model.sfss[group.members[0]].type);
                    EXPECT_EQ(std::count(parents.begin(), parents.end(), model.sfss[m].vol), 1);
                }
            }
        }
    }
}

TEST(runModel, anElementSetOfSeveralVolumesGivesGroupsOfSeveralSets)
{
    RunSpec spec;
    spec.nx    = 6;
    spec.nVols = 3;
    const RunModel model(spec);
    ASSERT_EQ(model.elms.size(), 2u);
    EXPECT_EQ(model.elms[1].members, (std::vector<int>{1, 2}));
    EXPECT_TRUE(std::any_of(model.cbcs.begin(), model.cbcs.end(), [](const Group &g) { return g.members.size() > 1; }));
}

TEST(runModel, emptySetsStandLast)
{
    RunSpec spec;
    spec.emptySets = true;
    const RunModel model(spec);
    EXPECT_EQ(model.vols.back().nElems(), 0);
    EXPECT_EQ(model.sfss.back().nSrfs(), 0);
    EXPECT_EQ(model.cbcs.back().members, std::vector<int>{(int) model.sfss.size() - 1});
    EXPECT_TRUE(model.blockNodes(model.nBlocks() - 1).empty());
}

TEST(runModel, blockNodesAreInTheOrderOfTheirKind)
{
    RunSpec spec;
    spec.scattered = true;
    spec.nVols = 2;
    const RunModel model(spec);
    for (int b = 0; b < model.nBlocks(); ++b) {
        std::vector<int> nodes = model.blockNodes(b);
        ASSERT_FALSE(nodes.empty());
        const bool surface = b < (int) model.sfss.size();
        if (surface)
            for (int &node : nodes) node = model.usrIds[node];
        EXPECT_TRUE(std::is_sorted(nodes.begin(), nodes.end()));
        EXPECT_EQ(std::adjacent_find(nodes.begin(), nodes.end()), nodes.end());
        EXPECT_EQ(model.blockName(b).find(surface ? "surfSet_" : "VolSet_"), 0u);
    }
}

/* ---- node sets, output elements, lines ---- */

TEST(runModel, nodeSetsLieOnTheirSurfaces)
{
    for (const MeshCase &c : meshes) {
        SCOPED_TRACE(c.name);
        RunSpec spec = specOf(c);
        spec.nodeSets  = true;
        spec.emptySets = true;
        const RunModel model(spec);
        ASSERT_EQ(model.nbcs.size(), 3u);
        ASSERT_EQ(model.pbcs.size(), 2u);
        EXPECT_TRUE(model.nbcs[2].nodes.empty());
        EXPECT_EQ(model.pbcs[1].nPairs(), 0);
        double ends[2] = {1e300, -1e300};
        for (int n = 0; n < model.nNodes; ++n) {
            ends[0] = std::min(ends[0], at(model, n)[0]);
            ends[1] = std::max(ends[1], at(model, n)[0]);
        }
        for (const NodeSet *set : {&model.nbcs[0], &model.nbcs[1], &model.wall}) {
            EXPECT_FALSE(set->nodes.empty());
            EXPECT_EQ(std::set<int>(set->nodes.begin(), set->nodes.end()).size(), set->nodes.size());
        }
        for (int end : {0, 1})
            for (int node : model.nbcs[end].nodes)
                if (c.shape != Shape::bend) { ASSERT_EQ(at(model, node)[0], ends[end]); }

        /* pairs lie opposite each other, and there is one for each node of the inlet */
        const NodeSet &pairs = model.pbcs[0];
        ASSERT_EQ(pairs.nodes.size(), 2 * pairs.usrIds.size());
        EXPECT_EQ(pairs.usrIds.size(), model.nbcs[0].nodes.size());
        if (c.shape == Shape::bend) continue;
        for (int i = 0; i < pairs.nPairs(); ++i) {
            const Vec a = at(model, pairs.nodes[2 * i]), b = at(model, pairs.nodes[2 * i + 1]);
            ASSERT_EQ(a, (Vec{ends[0], b[1], b[2]}));
            ASSERT_EQ(b[0], ends[1]);
        }
    }
}

TEST(runModel, outputElementsAreOfTheirVolumes)
{
    for (const MeshCase &c : meshes) {
        SCOPED_TRACE(c.name);
        RunSpec spec = specOf(c);
        spec.nodeSets  = true;
        spec.emptySets = true;
        const RunModel model(spec);
        ASSERT_EQ(model.oels.size(), 3u);
        EXPECT_TRUE(model.oels[0].whole);
        ASSERT_EQ(model.oels[0].parts.size(), model.vols.size());
        ASSERT_EQ(model.oels[1].parts.size(), model.vols.size());
        EXPECT_TRUE(model.oels[2].parts.at(0).elems.empty());
        for (size_t v = 0; v < model.vols.size(); ++v) {
            const int n = model.vols[v].nElems();
            EXPECT_EQ((int) model.oels[0].parts[v].elems.size(), n);
            EXPECT_EQ(model.oels[0].parts[v].nen, model.vols[v].nen);
            EXPECT_EQ((int) model.oels[1].parts[v].elems.size(), (n + 2) / 3);
            EXPECT_EQ(model.oels[1].parts[v].nen, model.vols[v].type == 28 ? 4 : model.vols[v].nen);
            for (int e : model.oels[1].parts[v].elems) ASSERT_LT(e, n);
        }
    }
}

/* A reader that is told of no surface sets has one for each group */
TEST(runModel, withoutLinesOfSetsGroupsAreTheSets)
{
    for (const MeshCase &c : meshes) {
        SCOPED_TRACE(c.name);
        RunSpec spec = specOf(c);
        const RunModel all(spec);
        spec.lines = Lines::noSets;
        spec.nodeSets = true;
        const RunModel model(spec);
        ASSERT_EQ(model.elms.size(), model.vols.size());
        for (size_t v = 0; v < model.vols.size(); ++v) EXPECT_EQ(model.elms[v].name, model.vols[v].name);
        EXPECT_EQ(model.oels.size(), 1u);

        size_t next = 0;
        for (Family family : {Family::cbc, Family::osf, Family::rsf, Family::srs})
            for (const Group &group : model.groups(family)) {
                ASSERT_EQ(group.members, (std::vector<int>{(int) next}));
                const SrfSet &set = model.sfss[next++];
                EXPECT_EQ(set.name, group.name);
                EXPECT_EQ(set.vol, group.elm);
                for (int s = 0; s < set.nSrfs(); ++s)
                    ASSERT_EQ(surfaceNodes(set, s), faceNodes(model.vols[set.vol], set.elems[s],
                                                              faceTables.at(model.vols[set.vol].type)[set.faces[s]]));
            }
        EXPECT_EQ(next, model.sfss.size());
        EXPECT_EQ(model.nNodes, all.nNodes);
    }
}

/* ---- sizes and refusals ---- */

TEST(runModel, aWantedNumberOfNodesIsMetRoughly)
{
    for (Mesh mesh : {Mesh::hex, Mesh::tet, Mesh::tet10, Mesh::bubble, Mesh::mixed})
        for (Shape shape : {Shape::box, Shape::bend, Shape::annulus})
            for (int nodes : {1, 1000, 50000}) {
                RunSpec spec;
                spec.mesh  = mesh;
                spec.shape = shape;
                spec.nodes = nodes;
                const RunModel model(spec);
                if (nodes == 1) continue;              /* the smallest mesh there is */
                EXPECT_GT(model.nNodes, nodes / 2);
                EXPECT_LT(model.nNodes, nodes * 2);
            }
}

TEST(runModel, nonsenseIsRefusedInWords)
{
    const struct { const char *text; void (*spoil)(RunSpec *spec); } cases[] = {
        {"problem name <> is empty",            [](RunSpec *s) { s->problem = ""; }},
        {"problem name <a/b>",                  [](RunSpec *s) { s->problem = "a/b"; }},
        {"problem name <a b>",                  [](RunSpec *s) { s->problem = "a b"; }},
        {"run number",                          [](RunSpec *s) { s->run = -1; }},
        {"the run's folder has no name",        [](RunSpec *s) { s->dir = ""; }},
        {"data folder <>",                      [](RunSpec *s) { s->dataDir = ""; }},
        {"data folder </abs>",                  [](RunSpec *s) { s->dataDir = "/abs"; }},
        {"hold no blanks",                      [](RunSpec *s) { s->dataDir = "a b"; }},
        {"the title holds a quote",             [](RunSpec *s) { s->title = "a \"b\""; }},
        {"the title holds a quote or a line",   [](RunSpec *s) { s->title = "a\nb"; }},
        {"subdomains must not be negative",     [](RunSpec *s) { s->nSds = -1; }},
        {"more subdomains than slabs",          [](RunSpec *s) { s->nSds = 5; }},
        {"more volumes than slabs",             [](RunSpec *s) { s->nVols = 5; }},
        {"needs a volume",                      [](RunSpec *s) { s->nVols = 0; }},
        {"known by name only if they have lines", [](RunSpec *s) { s->renumbered = true; s->lines = Lines::noSets; }},
        {"at least 1 x 1 x 1 cells",            [](RunSpec *s) { s->ny = 0; }},
        {"at least 4 x 1 x 1 cells",            [](RunSpec *s) { s->mesh = Mesh::mixed; s->nx = 3; }},
        {"at least 3 cells around",             [](RunSpec *s) { s->shape = Shape::annulus; }},
        {"step numbers must ascend",            [](RunSpec *s) { s->steps = {0, 2, 2}; }},
        {"step numbers must ascend",            [](RunSpec *s) { s->steps = {-1}; }},
        {"number of nodes",                     [](RunSpec *s) { s->nodes = -1; }},
        {"too large",                           [](RunSpec *s) { s->nx = s->ny = s->nz = 100000; }},
        {"beyond the 37 variables",             [](RunSpec *s) { s->mask = uint64_t(1) << 37; }},
        {"must not be negative",                [](RunSpec *s) { s->nFilms = -1; }},
        {"at most 9 species",                   [](RunSpec *s) { s->nSpecs = 10; }},
        {"no such variable: foo",               [](RunSpec *s) { s->setVars("velocity,foo"); }},
        {"no such variable: ",                  [](RunSpec *s) { s->setVars("velocity,,pressure"); }},
        {"has no number of members",            [](RunSpec *s) { s->setVars("velocity:3"); }},
        {"not a number of members: species:x",  [](RunSpec *s) { s->setVars("species:x"); }},
        {"not a number of members: species:",   [](RunSpec *s) { s->setVars("species:"); }},
        {"not a number of members: field:99999",[](RunSpec *s) { s->setVars("field:99999"); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        try {
            RunSpec spec;
            c.spoil(&spec);
            RunModel model(spec);
            ADD_FAILURE() << "not refused";
        }
        catch (const std::invalid_argument &e) {
            EXPECT_NE(std::string(e.what()).find(c.text), std::string::npos) << e.what();
        }
    }
}

TEST(runModel, variablesAreKnownByNameAndKey)
{
    RunSpec spec;
    spec.setVars("velocity,pres,species:3,eddy_viscosity,sstEddy,film");
    EXPECT_EQ(spec.mask, 1u << 0 | 1u << 1 | 1u << 3 | 1u << 4 | 1u << 18 | 1u << 29);
    EXPECT_EQ(spec.nSpecs, 3);
    EXPECT_EQ(spec.nFilms, 1);
    spec.setVars("all");
    EXPECT_EQ(spec.mask, (uint64_t(1) << 37) - 1);
    EXPECT_EQ(spec.nSpecs, 3);
    EXPECT_EQ(spec.nFields, 1);
    spec.setVars("");
    EXPECT_EQ(spec.mask, 0u);
}
