/* testBlocks.cpp: sets become blocks, groups become text. */

#include "test/plugin/pluginTestUtil.h"

#include "vtkCellArray.h"
#include "vtkDoubleArray.h"

#include <algorithm>
#include <fstream>

static tool::RunSpec quietRun()
{
    tool::RunSpec spec;
    spec.form = tool::Form::ascii;
    spec.setVars("pressure");
    setOptions("verbose = 0\n");
    return spec;
}

static void expectBlocks(const tool::RunModel &model)
{
    tool::writeRun(model);
    vtkNew<TestReader> reader;
    reader->ReadData(tool::logFile(model.spec).c_str());

    ASSERT_EQ(reader->GetNumberOfBlocks(), model.nBlocks());
    EXPECT_EQ(reader->GetNumberOfSets(), model.nBlocks());
    EXPECT_EQ(reader->GetNumberOfNodes(), model.nNodes);
    EXPECT_EQ(reader->GetNumberOfPoints(), model.nNodes);
    int64_t nCells = 0;
    for (int b = 0; b < model.nBlocks(); ++b) {
        SCOPED_TRACE(model.blockName(b));
        const int              nSfss = int(model.sfss.size());
        const std::vector<int> nodes = model.blockNodes(b);
        const int cells = b < nSfss ? model.sfss[b].nSrfs() : model.vols[b - nSfss].nElems();
        EXPECT_EQ(reader->GetBlockName(b), model.blockName(b));
        EXPECT_STREQ(reader->GetSetName(b), reader->GetBlockName(b));
        EXPECT_EQ(reader->GetCellType(b), model.cellType(b));
        EXPECT_EQ(reader->GetSetCellType(b), model.cellType(b));
        EXPECT_EQ(reader->GetNumberOfCells(b), cells);
        EXPECT_EQ(reader->GetNumberOfSetCells(b), cells);
        EXPECT_EQ(reader->GetCells(b)->GetNumberOfCells(), cells);
        EXPECT_EQ(reader->GetSetCells(b), reader->GetCells(b));
        EXPECT_TRUE(reader->GetCells(b)->IsValid());
        EXPECT_EQ(reader->GetPoints(b, 0)->GetNumberOfPoints(), vtkIdType(nodes.size()));
        const int *ids = reader->GetBlockNodeIds(b);
        EXPECT_EQ(std::vector<int>(ids, ids + nodes.size()), nodes);
        nCells += cells;
    }
    EXPECT_EQ(reader->NumberOfCells, nCells);

    vtkNew<vtkMarivaneReaderProxy> proxy;
    proxy->SetFileName(tool::logFile(model.spec).c_str());
    EXPECT_EQ(differs(model, update(proxy, 0), 0), "");
}

TEST(blocks, ofEveryKindOfMeshFormAndNumbering)
{
    static const struct { const char *name; tool::Mesh mesh; } meshes[] = {
        { "hex", tool::Mesh::hex }, { "tet", tool::Mesh::tet }, { "tet10", tool::Mesh::tet10 },
        { "mixed", tool::Mesh::mixed }
    };
    static const struct { const char *name; tool::Form form; } forms[] = {
        { "ascii", tool::Form::ascii }, { "binary", tool::Form::binary }, { "swapped", tool::Form::swapped }
    };
    for (const auto &m : meshes)
        for (const auto &f : forms)
            for (bool scattered : { false, true }) {
                tool::RunSpec spec = quietRun();
                spec.dir = std::string(m.name) + f.name + (scattered ? "Scattered" : "");
                SCOPED_TRACE(spec.dir);
                spec.mesh = m.mesh;
                spec.form = f.form;
                spec.scattered = scattered;
                spec.nVols = 2;
                spec.nSds = 3;
                expectBlocks(tool::RunModel(spec));
            }
}

TEST(blocks, largeEnoughForEveryParallelPart)
{
    for (bool scattered : { false, true }) {
        tool::RunSpec spec = quietRun();
        spec.form = tool::Form::binary;
        spec.scattered = scattered;
        spec.nx = 60;
        spec.ny = spec.nz = 30;
        spec.nVols = 2;
        expectBlocks(tool::RunModel(spec));
    }
}

/* nodes of one surface set around the size at which the sort goes parallel */
TEST(blocks, surfaceSetsOf499And500EntriesAreListedAlike)
{
    for (bool scattered : { false, true })
        for (int n : { 498, 499, 500, 501 }) {
            tool::RunSpec spec = quietRun();
            spec.form = tool::Form::binary;
            spec.scattered = scattered;
            spec.nx = (n - 1) / 2;
            spec.ny = spec.nz = 1;
            tool::RunModel model(spec);
            tool::SrfSet  &side = *std::max_element(model.sfss.begin(), model.sfss.end(),
                [](const tool::SrfSet &a, const tool::SrfSet &b) { return a.cnn.size() < b.cnn.size(); });
            EXPECT_GE(side.cnn.size(), 490u);
            expectBlocks(model);
        }
}

TEST(blocks, emptySetsHaveNoCellsAndNoNodes)
{
    tool::RunSpec spec = quietRun();
    spec.emptySets = true;
    tool::RunModel model(spec);
    int nEmpty = 0;
    for (int b = 0; b < model.nBlocks(); ++b) nEmpty += model.blockNodes(b).empty();
    EXPECT_GE(nEmpty, 2);
    expectBlocks(model);
}

/* first and last node of the run in one element: the volume's nodes span the whole mesh, but are few */
TEST(blocks, aVolumeMaySpanTheWholeMesh)
{
    tool::RunSpec spec = quietRun();
    spec.nVols = 4;
    spec.nx = 8;
    tool::RunModel model(spec);
    tool::VolSet &vol = model.vols[1];
    std::replace(vol.cnn.begin(), vol.cnn.end(), vol.cnn.front(), 0);
    std::replace(vol.cnn.begin(), vol.cnn.end(), vol.cnn.back(), model.nNodes - 1);
    expectBlocks(model);
    EXPECT_LT(model.blockNodes(int(model.sfss.size()) + 1).size(), size_t(model.nNodes) / 2);
}

TEST(blocks, vtkCellTypesByElementCode)
{
    static const int types[] = { -1, 5, 9, 10, 14, 13, 12, 5, 5, 9, 5, 9, 9, -1, -1, -1, -1, -1 };
    vtkNew<TestReader> reader;
    for (int code = 0; code < int(sizeof types / sizeof *types); ++code)
        EXPECT_EQ(reader->GetVtkCellType(code), types[code]) << code;
    EXPECT_EQ(reader->GetVtkCellType(-1), -1);
    EXPECT_EQ(reader->GetVtkCellType(28), -1);
    EXPECT_EQ(reader->GetVtkCellType(2147483647), -1);
}

/* -------- ids that are not there -------- */

/* Replaces the first `from` in a file of the run. */
static void edit(const std::string &file, const std::string &from, const std::string &to)
{
    std::string  text = testRead(file);
    const size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from << " is not in " << file;
    testWrite(file, text.replace(at, from.size(), to));
}

static std::string readFailure(const char *log)
{
    static vtkSmartPointer<TestReader> reader;            /* kept outside of what the failure leaves */
    reader = vtkSmartPointer<TestReader>::New();
    const std::string failure = trapped([&] { reader->ReadData(log); });
    return failure;
}

/* In every numbering: an id above the range, one below, one in a gap; a dense hash itself would not notice. */
TEST(blocks, anUnknownIdInAConnectivityEndsTheRead)
{
    for (bool scattered : { false, true })
        for (bool surface : { false, true }) {
            tool::RunSpec spec = quietRun();
            spec.scattered = scattered;
            tool::RunModel model(spec);
            for (int id : { 1000000, 0, -1, -5, -2147483647 - 1, 2147483647 }) {
                tool::writeRun(model);
                std::vector<int> &cnn = surface ? model.sfss[0].cnn : model.vols[0].cnn;
                std::string row;
                for (int i = 0; i < 3; ++i) row += std::to_string(model.usrIds[cnn[i]]) + " ";
                const std::string file = surface ? "QUENTA.DIR/pipe.1.sfs0" : "QUENTA.DIR/pipe.1.vol0";
                edit(file, row, std::to_string(model.usrIds[cnn[0]]) + " " + std::to_string(id) + " "
                                    + std::to_string(model.usrIds[cnn[2]]) + " ");
                const std::string failure = readFailure("pipe.1.Log");
                EXPECT_NE(failure.find("ASSERTION in Function <mtxInvHash>"), std::string::npos) << failure;
                EXPECT_NE(failure.find("Key <" + std::to_string(id) + "> not found"), std::string::npos) << failure;
            }
        }
}

/* a volume reports the first in the file, a surface set the smallest: its nodes are looked up in the order of ids */
TEST(blocks, ofSeveralUnknownIdsTheSameIsAlwaysReported)
{
    for (bool surface : { false, true }) {
        tool::RunSpec spec = quietRun();
        tool::RunModel model(spec);
        tool::writeRun(model);
        const std::vector<int> &cnn = surface ? model.sfss[0].cnn : model.vols[0].cnn;
        std::string row;
        for (int i = 0; i < 3; ++i) row += std::to_string(model.usrIds[cnn[i]]) + " ";
        edit(surface ? "QUENTA.DIR/pipe.1.sfs0" : "QUENTA.DIR/pipe.1.vol0", row, "9003 9001 9002 ");
        const std::string failure = readFailure("pipe.1.Log");
        EXPECT_NE(failure.find(surface ? "Key <9001> not found" : "Key <9003> not found"), std::string::npos) << failure;
    }
}

/* ids that are few and far apart take another way than those that lie close */
TEST(blocks, idsMayBeFarApart)
{
    tool::RunSpec spec = quietRun();
    spec.scattered = true;
    tool::RunModel model(spec);
    for (size_t i = 0; i < model.usrIds.size(); ++i) model.usrIds[i] = int(2147483647u - 40000000u * i);
    expectBlocks(model);
    std::swap(model.usrIds[3], model.usrIds[7]);
    expectBlocks(model);
    std::vector<int> &cnn = model.vols[0].cnn;
    for (int id : { 0, 5, -1, 2147483646, -2147483647 - 1 }) {
        tool::writeRun(model);
        const std::string first = std::to_string(model.usrIds[cnn[0]]) + " ";
        edit("QUENTA.DIR/pipe.1.vol0", first + std::to_string(model.usrIds[cnn[1]]) + " ", first + std::to_string(id) + " ");
        const std::string failure = readFailure("pipe.1.Log");
        EXPECT_NE(failure.find("Key <" + std::to_string(id) + "> not found"), std::string::npos) << failure;
    }
}

TEST(blocks, aRepeatedUserIdEndsTheRead)
{
    for (const char *ids : { "1 2 2 4 ", "1 2 2 2000000000 " }) {         /* close together, and far apart */
        tool::RunSpec spec = quietRun();
        tool::writeRun(tool::RunModel(spec));
        edit("QUENTA.DIR/pipe.1.crd", "1 2 3 4 ", ids);
        const std::string failure = readFailure("pipe.1.Log");
        EXPECT_NE(failure.find("ASSERTION in Function <mtxNewInvHash>"), std::string::npos) << failure;
        EXPECT_NE(failure.find("Duplicate key <2>"), std::string::npos) << failure;
    }
}

/* a doubled 0 is not noticed, and stands for its first position: the mesh has a node too few, and nothing else */
TEST(blocks, aRepeatedIdZeroIsNotNoticed)
{
    for (const char *four : { "4 ", "2000000000 " }) {
        tool::RunModel model(quietRun());
        tool::writeRun(model);
        edit("QUENTA.DIR/pipe.1.crd", "1 2 3 4 5 ", std::string("1 0 0 ") + four + "5 ");
        for (const char *file : { "vol0", "sfs0", "sfs1", "sfs2", "sfs3" })
            for (const auto &renamed : { std::make_pair(" 2 ", " 0 "), std::make_pair(" 3 ", " 0 "),
                                         std::make_pair(" 4 ", (const char *) nullptr) }) {
                const std::string path = std::string("QUENTA.DIR/pipe.1.") + file;
                const std::string to = renamed.second ? renamed.second : std::string(" ") + four;
                std::string text = testRead(path);
                const size_t connectivity = text.rfind("intVec");
                for (size_t at = connectivity; (at = text.find(renamed.first, at + 1)) != std::string::npos;)
                    text.replace(at, 3, to);
                testWrite(path, text);
            }
        vtkNew<TestReader> reader;
        checkReturns(reader->ReadData("pipe.1.Log"));
        const int volume = int(model.sfss.size());
        EXPECT_LT(reader->GetPoints(volume, 0)->GetNumberOfPoints(), model.nNodes);
        const int *nodes = reader->GetBlockNodeIds(volume);
        const int *end = nodes + reader->GetPoints(volume, 0)->GetNumberOfPoints();
        EXPECT_NE(std::find(nodes, end, 1), end);         /* the first of the two */
        EXPECT_EQ(std::find(nodes, end, 2), end);
    }
}

/* -------- groups -------- */

typedef std::map<int, std::vector<int>> Ids;

static std::string groupText(const char *key, const std::vector<tool::ShownGroup> &groups)
{
    std::string text = std::string("\"") + key + "\":{";
    for (size_t g = 0; g < groups.size(); ++g) {
        text += (g ? ",\"" : "\"") + groups[g].name + "\":";
        for (size_t i = 0; i < groups[g].blocks.size(); ++i)
            text += (i ? "," : "[") + std::to_string(groups[g].blocks[i] + 1);
        text += "]";
    }
    return text + "}";
}

static std::string groupingText(const tool::RunModel &model)
{
    std::string text = "{\"ModelName\":\"" + model.spec.problem + "\"";
    text += "," + groupText("ELMs", model.shownGroups(tool::Family::elm));
    text += "," + groupText("CBCs", model.shownGroups(tool::Family::cbc));
    text += "," + groupText("OSFs", model.shownGroups(tool::Family::osf));
    if (!model.rsfs.empty()) text += "," + groupText("RSFs", model.shownGroups(tool::Family::rsf));
    if (!model.srss.empty()) text += "," + groupText("SRSs", model.shownGroups(tool::Family::srs));
    return text + "}";
}

TEST(groups, areToldAsText)
{
    for (tool::Mesh mesh : { tool::Mesh::hex, tool::Mesh::mixed }) {
        tool::RunSpec spec = quietRun();
        spec.mesh = mesh;
        spec.nVols = mesh == tool::Mesh::mixed ? 4 : 3;
        spec.nx = 6;
        tool::RunModel model(spec);
        tool::writeRun(model);
        vtkNew<TestReader> reader;
        reader->ReadData("pipe.1.Log");
        const char *text = reader->GetDataGroupingString();
        EXPECT_EQ(text, groupingText(model));
        EXPECT_FALSE(model.rsfs.empty());                 /* all five keys were there */
        EXPECT_FALSE(model.srss.empty());
        EXPECT_EQ(reader->GetDataGroupingString(), text); /* the same pointer again */
    }
}

TEST(groups, withoutRadiationAndSunTheKeysAreAbsent)
{
    tool::RunModel model(quietRun());
    model.rsfs.clear();
    model.srss.clear();
    tool::writeRun(model);
    vtkNew<TestReader> reader;
    reader->ReadData("pipe.1.Log");
    const std::string text = reader->GetDataGroupingString();
    EXPECT_EQ(text, groupingText(model));
    EXPECT_EQ(text.find("RSFs"), std::string::npos);
    EXPECT_EQ(text.find("SRSs"), std::string::npos);
}

/* two of one name: one entry under the first index, sorted, without repeats; the second keeps its name only */
TEST(groups, boundaryConditionsOfOneNameAreMerged)
{
    tool::RunModel model(quietRun());
    model.cbcs.clear();
    ASSERT_GE(model.sfss.size(), 4u);
    model.cbcs.push_back({ "single", { 1, 0 }, 0 });      /* never merged: stays in the order of the file */
    model.cbcs.push_back({ "walls", { 3, 1 }, 0 });
    model.cbcs.push_back({ "other", { 2 }, 0 });
    model.cbcs.push_back({ "walls", { 2, 1 }, 0 });
    tool::writeRun(model);
    vtkNew<TestReader> reader;
    reader->ReadData("pipe.1.Log");
    EXPECT_EQ(reader->CbcGroups.Ids, (Ids{ { 0, { 1, 0 } }, { 1, { 1, 2, 3 } }, { 2, { 2 } } }));
    EXPECT_EQ(reader->CbcGroups.Names, (std::vector<std::string>{ "single", "walls", "other", "walls" }));
    const std::string text = reader->GetDataGroupingString();
    EXPECT_NE(text.find("\"CBCs\":{\"single\":[2,1],\"walls\":[2,3,4],\"other\":[3]}"), std::string::npos) << text;
}

TEST(groups, othersOfOneNameStandTwice)
{
    tool::RunModel model(quietRun());
    model.osfs.clear();
    model.osfs.push_back({ "out", { 1 }, 0 });
    model.osfs.push_back({ "out", { 0 }, 0 });
    tool::writeRun(model);
    vtkNew<TestReader> reader;
    reader->ReadData("pipe.1.Log");
    const std::string text = reader->GetDataGroupingString();
    EXPECT_NE(text.find("\"OSFs\":{\"out\":[2],\"out\":[1]}"), std::string::npos) << text;
}

TEST(groups, elementSetsStartBehindTheSurfaceSets)
{
    tool::RunSpec spec = quietRun();
    spec.nVols = 2;
    tool::RunModel model(spec);
    tool::writeRun(model);
    vtkNew<TestReader> reader;
    reader->ReadData("pipe.1.Log");
    const int nSfss = int(model.sfss.size());
    EXPECT_EQ(reader->ElmGroups.Ids.at(0), std::vector<int>{ nSfss });
    EXPECT_EQ(reader->ElmGroups.Ids.at(1), std::vector<int>{ nSfss + 1 });
}

TEST(groups, aGroupWithoutIdsLosesItsOpeningBracket)
{
    vtkNew<TestReader> reader;
    reader->OsfGroups.Names = { "none", "one" };
    reader->OsfGroups.Ids = { { 0, {} }, { 1, { 4 } } };
    EXPECT_STREQ(reader->GetDataGroupingString(),
                 "{\"ModelName\":\"\",\"ELMs\":{},\"CBCs\":{},\"OSFs\":{\"none\":],\"one\":[5]}}");
}

TEST(groups, namesAreNotEscaped)
{
    vtkNew<TestReader> reader;
    reader->ElmGroups.Names = { "a\\b" };
    reader->ElmGroups.Ids = { { 0, { 2147483647 } } };
    EXPECT_STREQ(reader->GetDataGroupingString(),
                 "{\"ModelName\":\"\",\"ELMs\":{\"a\\b\":[2147483648]},\"CBCs\":{},\"OSFs\":{}}");
}

TEST(centroids, areNullBeforeAnyGeometryAndZerosAfter)
{
    tool::RunModel model(quietRun());
    tool::writeRun(model);
    vtkNew<TestReader> reader;
    EXPECT_EQ(reader->GetBlockCentroids(), nullptr);
    reader->ReadData("pipe.1.Log");
    vtkDoubleArray *centroids = reader->GetBlockCentroids();
    ASSERT_NE(centroids, nullptr);
    EXPECT_EQ(centroids->GetNumberOfComponents(), 3);
    ASSERT_EQ(centroids->GetNumberOfTuples(), model.nBlocks());
    for (int i = 0; i < 3 * model.nBlocks(); ++i) EXPECT_EQ(centroids->GetValue(i), 0.0);
    EXPECT_EQ(reader->GetBlockCentroids(), centroids);
}
