/* testPoints.cpp: points, moving meshes, and the values of arrays. */

#include "test/plugin/pluginTestUtil.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace fs = std::filesystem;

static tool::RunSpec quietRun(const std::string &vars, int nSteps = 4)
{
    tool::RunSpec spec;
    spec.form = tool::Form::ascii;
    spec.setVars(vars);
    spec.setSteps(nSteps);
    setOptions("verbose = 0\n");
    return spec;
}

/* A model on disk and a reader that has read it. */
struct Opened {
    tool::RunModel     model;
    vtkNew<TestReader> reader;

    explicit Opened(const tool::RunSpec &spec) : model(spec)
    {
        tool::writeRun(model);
        reader->ReadData("pipe.1.Log");
    }
    int array(const std::string &name)
    {
        for (int a = 0; a < reader->GetNumberOfArrays(); ++a)
            if (name == reader->GetArrayName(a)) return a;
        return -1;
    }
    /* the x of a block's first point, at rest, and how far it is from there */
    double x(int block)
    {
        double xyz[3];
        model.crd(model.blockNodes(block)[0], xyz);
        return float(xyz[0]);
    }
    double shift(vtkPoints *points, int block) { return points->GetPoint(0)[0] - x(block); }
    double displacement(int block, int step)
    {
        return model.value(model.varOf("mesh_displacement"), 0, model.blockNodes(block)[0], step);
    }
};

TEST(points, areFloatsInTheOrderOfTheNodeList)
{
    Opened o(quietRun("pressure"));
    for (int b = 0; b < o.model.nBlocks(); ++b) {
        vtkPoints *points = o.reader->GetPoints(b, 0);
        EXPECT_EQ(points->GetDataType(), VTK_FLOAT);
        EXPECT_EQ(points->GetPoint(0)[0], o.x(b));
    }
    EXPECT_EQ(o.reader->GetSharedPoints(0), nullptr);
    EXPECT_EQ(o.reader->ReservedQuery(), nullptr);
    o.reader->ReservedAction();
    EXPECT_EQ(o.reader->GetPoints(-1, 0), nullptr);
    EXPECT_EQ(o.reader->GetPoints(o.model.nBlocks(), 0), nullptr);
}

TEST(points, ofAMeshAtRestAreReadOnce)
{
    Opened o(quietRun("pressure"));
    vtkPoints *points = o.reader->GetPoints(0, 0);
    fs::remove("QUENTA.DIR/pipe.1.crd");                  /* a second read would wait for it and then fail */
    EXPECT_EQ(o.reader->GetPoints(0, 2), points);
    EXPECT_EQ(testSlept(), 0);
    EXPECT_EQ(o.reader->CurrentCoordinateStep, 0);
}

TEST(points, stepZeroOfAMovingMeshShowsTheMeshAsStored)
{
    Opened o(quietRun("pressure,mesh_displacement"));
    ASSERT_EQ(o.reader->GetMeshMoves(), 1);
    ASSERT_NE(o.displacement(0, 0), 0.0);                 /* there is one, and it is not read */
    EXPECT_EQ(o.shift(o.reader->GetPoints(0, 0), 0), 0.0);
}

/* No value of it is looked at, neither when the run is read nor when the first step is shown again. */
TEST(points, ofStepZeroNeedNoDisplacement)
{
    const tool::RunModel model(quietRun("pressure,mesh_displacement"));
    tool::writeRun(model);
    const std::string name = "QUENTA.DIR/pipe.1_0_0.out", key = "aleDisp";
    std::string       text = testRead(name);
    const size_t      at = text.find(key);
    ASSERT_NE(at, std::string::npos);
    testWrite(name, text.replace(at, key.size(), "damaged"));

    vtkNew<TestReader> reader;
    checkReturns(reader->ReadData("pipe.1.Log"));
    ASSERT_EQ(reader->GetMeshMoves(), 1);
    double xyz[3];
    model.crd(model.blockNodes(0)[0], xyz);
    for (int step : { 0, 1, 0 }) {
        vtkPoints *points = nullptr;
        checkReturns(points = reader->GetPoints(0, step));
        ASSERT_NE(points, nullptr);
        EXPECT_EQ(points->GetPoint(0)[0] == float(xyz[0]), step == 0) << step;
    }
}

TEST(points, moveWithTheStep)
{
    Opened o(quietRun("pressure,mesh_displacement"));
    for (int step : { 2, 1, 3, 0, 2 })
        for (int b = 0; b < o.model.nBlocks(); ++b) {
            vtkPoints *points = o.reader->GetPoints(b, step);
            const double moved = double(float(o.x(b) + (step ? o.displacement(b, step) : 0.0)));
            EXPECT_EQ(points->GetPoint(0)[0], moved) << "step " << step << " block " << b;
            EXPECT_EQ(o.reader->CurrentCoordinateStep, step);
        }
}

TEST(points, ofTheCurrentStepAreNotReadAgain)
{
    Opened o(quietRun("pressure,mesh_displacement"));
    vtkPoints *points = o.reader->GetPoints(0, 3);
    EXPECT_EQ(o.reader->GetPoints(0, 3), points);
    EXPECT_NE(o.reader->GetPoints(0, 1), points);         /* new points at every read */
}

TEST(points, moveByThePlainVariableEvenWithExtendedOutput)
{
    tool::RunSpec spec = quietRun("pressure,mesh_displacement");
    setOptions("verbose = 0\nextout = T\n");
    Opened o(spec);
    EXPECT_EQ(o.shift(o.reader->GetPoints(0, 2), 0), double(float(o.x(0) + o.displacement(0, 2))) - o.x(0));
}

TEST(points, onlyAnExactMeshDisplacementMovesTheMesh)
{
    Opened o(quietRun("pressure,mesh_displacement_midstep"));
    EXPECT_EQ(o.reader->GetMeshMoves(), 0);
    EXPECT_GE(o.array("mesh_displacement"), 0);           /* which is how the midstep one is shown */
    EXPECT_EQ(o.shift(o.reader->GetPoints(0, 2), 0), 0.0);
}

TEST(points, ofAStepWithoutDisplacementStayAtRest)
{
    Opened o(quietRun("pressure,mesh_displacement"));
    o.reader->GetPoints(0, 1);
    o.reader->GetPoints(0, 99);                           /* a step that the run does not have */
    EXPECT_EQ(o.shift(o.reader->GetPoints(0, 99), 0), 0.0);
}

/* no coordinate file is told at all: there are no nodes, and no connectivity finds one */
TEST(points, ofARunWithoutCoordinatesAreMissedByTheCells)
{
    tool::RunModel model(quietRun("pressure"));
    tool::writeRun(model);
    std::string cli = testRead("QUENTA.DIR/pipe.1.cli");
    const size_t at = cli.find("#@ CRD ");
    cli.erase(at, cli.find('\n', at) + 1 - at);
    testWrite("QUENTA.DIR/pipe.1.cli", cli);
    vtkNew<TestReader> reader;
    checkFails("Key <1> not found", reader->ReadData("pipe.1.Log"));
}

TEST(points, ofARunWithoutNodesAndSetsAreNone)
{
    tool::RunModel model(quietRun("pressure"));
    tool::writeRun(model);
    testWrite("QUENTA.DIR/pipe.1.cli", "#@ FMT 16\n#@ NSDS 1\n#@ END\n");
    vtkNew<TestReader> reader;
    checkReturns(reader->ReadData("pipe.1.Log"));
    EXPECT_EQ(reader->GetNumberOfNodes(), 0);
    EXPECT_EQ(reader->GetNumberOfSets(), 0);
    EXPECT_EQ(reader->GetNumberOfTimeSteps(), 4);
}

TEST(points, areWrittenAsText)
{
    Opened o(quietRun("pressure"));
    o.reader->WriteCoordinates("crd.txt");
    std::string expected;
    for (int i = 0; i < o.model.nNodes; ++i) {
        double xyz[3];
        char   line[200];
        o.model.crd(i, xyz);
        for (double &x : xyz) x = float(x);
        snprintf(line, sizeof line, "x=%le,y=%le,z=%le\n", xyz[0], xyz[1], xyz[2]);
        expected += line;
    }
    EXPECT_EQ(testRead("crd.txt"), expected);
    o.reader->WriteCoordinates("no/such/folder/crd.txt");
    o.reader->WriteCoordinates(nullptr);
}

/* -------- values -------- */

TEST(values, ofEveryShapeAtEveryStepAndBack)
{
    for (int nSds : { 1, 3 })
        for (bool merged : { false, true }) {
            tool::RunSpec spec = quietRun("velocity,pressure,species:3,vest,auxiliary_output:2,field:2,film:1");
            spec.dir = std::to_string(nSds) + (merged ? "merged" : "parts");
            spec.nSds = nSds;
            spec.merged = merged;
            spec.scattered = true;
            tool::RunModel model(spec);
            tool::writeRun(model);
            vtkNew<vtkMarivaneReaderProxy> proxy;
            proxy->SetFileName(tool::logFile(spec).c_str());
            for (int step : { 0, 2, 1, 3, 0 })
                EXPECT_EQ(differs(model, update(proxy, step), step), "") << spec.dir << step;
        }
}

TEST(values, areReadAtBlockZeroAndKeptForTheOthers)
{
    Opened o(quietRun("pressure"));
    const int block = 2, node = o.model.blockNodes(block)[0];
    EXPECT_EQ(*o.reader->GetArrayData(0, 2, block), 0.0f);            /* nothing was read yet */
    o.reader->GetArrayData(0, 2, 0);
    EXPECT_EQ(*o.reader->GetArrayData(0, 1, block), float(o.model.value(0, 0, node, 2)));   /* still those of step 2 */
    EXPECT_EQ(o.reader->GetVariableValues(0)[node], float(o.model.value(0, 0, node, 2)));
}

TEST(values, ofOneArrayAreOverwrittenInPlace)
{
    Opened o(quietRun("pressure"));
    const int node = o.model.blockNodes(0)[0];
    float *data = o.reader->GetArrayData(0, 0, 0);
    EXPECT_EQ(data[0], float(o.model.value(0, 0, node, 0)));
    EXPECT_EQ(o.reader->GetArrayData(0, 3, 0), data);
    EXPECT_EQ(data[0], float(o.model.value(0, 0, node, 3)));
}

/* the first name of a split variable reads it; without it the others show what was there before, zeros at first */
TEST(values, ofASplitVariableComeWithItsFirstArray)
{
    Opened o(quietRun("species:3"));
    const int node = o.model.blockNodes(0)[0];
    EXPECT_EQ(*o.reader->GetArrayData(1, 2, 0), 0.0f);
    EXPECT_EQ(*o.reader->GetArrayData(0, 2, 0), float(o.model.value(0, 0, node, 2)));
    EXPECT_EQ(*o.reader->GetArrayData(1, 2, 0), float(o.model.value(0, 1, node, 2)));
    EXPECT_EQ(*o.reader->GetArrayData(2, 1, 0), float(o.model.value(0, 2, node, 2)));
}

TEST(values, beyondTheLimitsAreNotAvailable)
{
    Opened o(quietRun("velocity,pressure", 2));
    sysSetProgName("prog");
    const std::string text = "prog: *** ERROR: Data Not Available for the variable or time step\n";
    float *data = nullptr;
    EXPECT_EQ(printed([&] { data = o.reader->GetArrayData(1, 2, 0); }), text);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(printed([&] { data = o.reader->GetArrayData(1, 2, 1); }), "");      /* the limits are tested at block 0 */
    EXPECT_NE(data, nullptr);
    EXPECT_EQ(printed([&] { data = o.reader->GetArrayData(1, 1, 0); }), "");
    EXPECT_NE(data, nullptr);
}

/* The number of the variable is held against the number of arrays: a variable of no arrays before it pushes it out. */
TEST(values, behindAVariableWithoutArraysAreNotAvailable)
{
    tool::RunSpec spec = quietRun("auxiliary_output:1,mesh_velocity", 2);
    spec.nAoutVecs = 0;
    Opened o(spec);
    sysSetProgName("prog");
    ASSERT_EQ(o.reader->Variables.size(), 2u);
    ASSERT_EQ(o.reader->GetNumberOfArrays(), 1);
    EXPECT_STREQ(o.reader->GetArrayName(0), "mesh_velocity");
    float *data = nullptr;
    EXPECT_EQ(printed([&] { data = o.reader->GetArrayData(0, 0, 0); }),
              "prog: *** ERROR: Data Not Available for the variable or time step\n");
    EXPECT_EQ(data, nullptr);

    /* in the pipeline: an array of its name, width and length; filters crash on an array without values */
    vtkNew<vtkMarivaneReaderProxy> proxy;
    proxy->SetFileName("pipe.1.Log");
    vtkMultiBlockDataSet *output = nullptr;
    const std::string said = printed([&] { output = update(proxy, 0); });
    EXPECT_NE(said.find("Data Not Available for the variable or time step\n"), std::string::npos);
    for (int b = 0; b < o.model.nBlocks(); ++b) {
        vtkFloatArray *array = arrayOf(output, b, "mesh_velocity");
        ASSERT_EQ(array->GetNumberOfComponents(), 3);
        ASSERT_EQ(array->GetNumberOfTuples(), gridOf(output, b)->GetNumberOfPoints());
        for (vtkIdType i = 0; i < array->GetNumberOfValues(); ++i) EXPECT_EQ(array->GetValue(i), 0.0f);
    }
}

TEST(values, ofAnUnknownArrayThrow)
{
    Opened o(quietRun("pressure"));
    for (int array : { -1, 1, 1000 }) {
        std::string what;
        try {
            o.reader->GetArrayData(array, 0, 0);
        } catch (const std::out_of_range &e) {
            what = e.what();
        }
        EXPECT_EQ(what, "invalid unordered_map<K, T> key");
    }
    EXPECT_EQ(o.reader->GetArrayData(0, 0, -1), nullptr);
    EXPECT_EQ(o.reader->GetArrayData(0, 0, o.model.nBlocks()), nullptr);
    EXPECT_EQ(o.reader->GetVariableValues(-1), nullptr);
    EXPECT_EQ(o.reader->GetVariableValues(1), nullptr);
}

/* a step whose files are gone is delivered with zeros, and nothing is said */
TEST(values, thatTheDatabaseLacksAreZerosInSilence)
{
    Opened o(quietRun("pressure,velocity"));
    o.reader->GetArrayData(0, 1, 0);                      /* leaves something in every buffer */
    rename("QUENTA.DIR/pipe.1.ddc", "gone");
    vtkNew<TestReader> other;                             /* the request fails before it begins */
    std::string said = printed([&] { other->ReadData("pipe.1.Log"); });
    other->GetArrayData(0, 1, 0);
    said += printed([&] { other->GetArrayData(1, 1, 0); });
    EXPECT_EQ(said, "");
    EXPECT_STREQ(rdbGetError(), ".ddc file not found");
    const float *values = other->GetVariableValues(0);
    EXPECT_TRUE(std::all_of(values, values + 3 * o.model.nNodes, [](float v) { return v == 0.0f; }));
}

/* one part of three cannot be had: what was read before it is delivered */
TEST(values, ofTheFirstPartsStayWhenAPartIsMissing)
{
    tool::RunSpec spec = quietRun("pressure");
    spec.nSds = 3;
    spec.nx = 6;
    tool::RunModel model(spec);
    tool::writeRun(model);
    fs::remove("QUENTA.DIR/pipe.1_1_2.out");
    vtkNew<TestReader> reader;
    reader->ReadData("pipe.1.Log");
    reader->GetArrayData(0, 0, 0);
    reader->GetArrayData(0, 1, 0);
    EXPECT_STREQ(rdbGetError(), ".out file not found");
    const float *values = reader->GetVariableValues(0);
    std::vector<int> had(model.nNodes);
    for (int p = 0; p < 2; ++p)
        for (int node : model.parts[p]) had[node] = 1;
    EXPECT_LT(std::count(had.begin(), had.end(), 1), model.nNodes);
    for (int i = 0; i < model.nNodes; ++i) EXPECT_EQ(values[i], had[i] ? float(model.value(0, 0, i, 1)) : 0.0f) << i;
}

/* what a variable of dimension 0 gives is a scalar of zeros */
TEST(values, ofNoComponentsAreLikeScalars)
{
    Opened o(quietRun("pressure"));
    o.reader->Variables[0].Dimension = 0;
    const float *data = o.reader->GetArrayData(0, 1, 0);
    const int64_t n = int64_t(o.model.blockNodes(0).size());
    EXPECT_TRUE(std::all_of(data, data + n, [](float v) { return v == 0.0f; }));
}

/* names that share more components each than one: no naming rule makes such, the index rule is kept all the same */
TEST(values, ofSeveralComponentsPerNameStrideByThoseOfOneName)
{
    Opened o(quietRun("vest"));
    o.reader->Variables[0].ArrayNames = { "a", "b", "c" };            /* two of six components each */
    o.reader->Arrays[0].Components = 2;
    const float *data = o.reader->GetArrayData(0, 1, 0);
    const float *values = o.reader->GetVariableValues(0);
    const std::vector<int> nodes = o.model.blockNodes(0);
    for (size_t i = 0; i < nodes.size(); ++i)
        for (int c = 0; c < 2; ++c) EXPECT_EQ(data[2 * i + c], values[2 * nodes[i] + c]);
}

TEST(values, canBeResetAndReleased)
{
    Opened o(quietRun("pressure"));
    const int node = o.model.blockNodes(1)[0];
    o.reader->GetArrayData(0, 1, 0);
    o.reader->ResetVariableValues();
    EXPECT_EQ(*o.reader->GetArrayData(0, 1, 1), 0.0f);
    o.reader->GetArrayData(0, 1, 0);
    EXPECT_EQ(*o.reader->GetArrayData(0, 1, 1), float(o.model.value(0, 0, node, 1)));

    vtkPoints *points = o.reader->GetPoints(0, 0);
    const vtkIdType nPoints = points->GetNumberOfPoints();
    o.reader->ReleaseData();
    sysSetProgName("prog");
    EXPECT_EQ(o.reader->GetVariableValues(0), nullptr);
    EXPECT_EQ(o.reader->GetBlockNodeIds(0), nullptr);
    EXPECT_EQ(o.reader->GetArrayData(0, 1, 1), nullptr);
    EXPECT_EQ(printed([&] { EXPECT_EQ(o.reader->GetArrayData(0, 1, 0), nullptr); }),
              "prog: *** ERROR: Data Not Available for the variable or time step\n");
    o.reader->ReadPoints(1);                              /* without node lists the points stay */
    EXPECT_EQ(o.reader->GetPoints(0, 0)->GetNumberOfPoints(), nPoints);
}
