/* testProxy.cpp: the pipeline's passes through the proxy. */

#include "test/plugin/pluginTestUtil.h"

#include "vtkDoubleArray.h"
#include "vtkExecutive.h"
#include "vtkInformation.h"
#include "vtkInformationVector.h"
#include "vtkObjectFactory.h"
#include "vtkStreamingDemandDrivenPipeline.h"

#include <filesystem>
#include <sstream>

namespace fs = std::filesystem;
typedef vtkStreamingDemandDrivenPipeline Pipeline;

/* A model on disk and a proxy with its name. */
struct Source {
    tool::RunModel                 model;
    vtkNew<vtkMarivaneReaderProxy> proxy;

    explicit Source(const std::string &vars, int nSteps = 4) : model(spec(vars, nSteps))
    {
        tool::writeRun(model);
        setOptions("verbose = 0\n");
        proxy->SetFileName("pipe.1.Log");
    }
    static tool::RunSpec spec(const std::string &vars, int nSteps)
    {
        tool::RunSpec spec;
        spec.form = tool::Form::ascii;
        spec.setVars(vars);
        spec.setSteps(nSteps, 10, 5);                     /* step numbers and times are not the pipeline's axis */
        return spec;
    }
    vtkInformation *info() { return proxy->GetOutputInformation(0); }
    std::vector<double> times()
    {
        const double *t = info()->Get(Pipeline::TIME_STEPS());
        return std::vector<double>(t, t + info()->Length(Pipeline::TIME_STEPS()));
    }
    float first(vtkMultiBlockDataSet *output, int var) { return arrayOf(output, 0, model.vars[var].name)->GetValue(0); }
    float expected(int var, int step) { return float(model.value(var, 0, model.blockNodes(0)[0], step)); }
};

TEST(proxy, timeIsTheIndexOfTheStep)
{
    Source s("pressure", 4);
    s.proxy->UpdateInformation();
    EXPECT_EQ(s.times(), (std::vector<double>{ 0, 1, 2, 3 }));
    const double *range = s.info()->Get(Pipeline::TIME_RANGE());
    EXPECT_EQ(range[0], 0);
    EXPECT_EQ(range[1], 3);
    EXPECT_EQ(s.proxy->GetNumberOfTimeSteps(), 4);
}

TEST(proxy, deliversTheFirstStepNotBelowTheRequest)
{
    Source s("pressure,velocity", 4);
    static const struct { double time; int step; } requests[] = {
        { -7, 0 }, { 0, 0 }, { 0.5, 1 }, { 1, 1 }, { 2.001, 3 }, { 3, 3 }, { 99, 3 }, { 0, 0 }
    };
    for (const auto &r : requests) {
        EXPECT_EQ(differs(s.model, update(s.proxy, r.time), r.step), "") << r.time;
        EXPECT_EQ(s.proxy->GetTimeStep(), r.step);
    }
}

TEST(proxy, withoutARequestDeliversItsOwnTimeStep)
{
    Source s("pressure", 4);
    s.proxy->SetTimeStep(2);
    EXPECT_EQ(differs(s.model, update(s.proxy), 2), "");
    s.proxy->SetTimeStep(9);                              /* beyond the last one: the last */
    EXPECT_EQ(differs(s.model, update(s.proxy), 3), "");
    EXPECT_EQ(s.proxy->GetTimeStep(), 3);
}

TEST(proxy, theRequestOverrulesTheProxysTimeStep)
{
    Source s("pressure", 4);
    s.proxy->SetTimeStep(3);
    EXPECT_EQ(differs(s.model, update(s.proxy, 1), 1), "");
    EXPECT_EQ(s.proxy->GetTimeStep(), 1);
}

TEST(proxy, theSameStepTwiceDeliversTheSameGrids)
{
    Source s("pressure", 3);
    vtkUnstructuredGrid *grid = gridOf(update(s.proxy, 1), 0);
    s.proxy->Modified();
    EXPECT_EQ(gridOf(update(s.proxy, 1), 0), grid);
    EXPECT_NE(gridOf(update(s.proxy, 2), 0), grid);
}

TEST(proxy, aSelectionShowsWithTheNextStep)
{
    Source s("pressure,temperature", 3);
    EXPECT_EQ(differs(s.model, update(s.proxy, 0), 0), "");
    s.proxy->SetPointArrayStatus("temperature", 0);
    EXPECT_NE(arrayOf(update(s.proxy, 0), 0, "temperature"), nullptr);        /* not yet */
    EXPECT_EQ(arrayOf(update(s.proxy, 1), 0, "temperature"), nullptr);
    EXPECT_NE(arrayOf(update(s.proxy, 1), 0, "pressure"), nullptr);
    s.proxy->SetPointArrayStatus("temperature", 1);
    EXPECT_EQ(arrayOf(update(s.proxy, 1), 0, "temperature"), nullptr);
    EXPECT_EQ(differs(s.model, update(s.proxy, 2), 2), "");
}

TEST(proxy, choicesMadeBeforeTheFirstReadSurvive)
{
    Source s("velocity,pressure,temperature", 2);
    s.proxy->SetPointArrayStatus("pressure", 0);
    s.proxy->SetPointArrayStatus("no such array", 0);
    s.proxy->UpdateInformation();
    ASSERT_EQ(s.proxy->GetNumberOfPointArrays(), 3);
    EXPECT_STREQ(s.proxy->GetPointArrayName(0), "velocity");
    EXPECT_STREQ(s.proxy->GetPointArrayName(1), "pressure");
    EXPECT_EQ(s.proxy->GetPointArrayStatus("velocity"), 1);
    EXPECT_EQ(s.proxy->GetPointArrayStatus("pressure"), 0);
    EXPECT_EQ(s.proxy->GetPointArrayStatus("temperature"), 1);
    s.proxy->Modified();
    s.proxy->UpdateInformation();
    EXPECT_EQ(s.proxy->GetPointArrayStatus("pressure"), 0);
    EXPECT_EQ(arrayOf(update(s.proxy, 1), 0, "pressure"), nullptr);
}

TEST(proxy, aSplitVariableWithoutItsFirstArrayShowsWhatWasThere)
{
    Source s("species:2", 3);
    const std::string first = s.model.shownArrays()[0].name, second = s.model.shownArrays()[1].name;
    s.proxy->SetPointArrayStatus(first.c_str(), 0);
    EXPECT_EQ(arrayOf(update(s.proxy, 1), 0, second)->GetValue(0), 0.0f);     /* zeros at first */
    s.proxy->SetPointArrayStatus(first.c_str(), 1);
    EXPECT_EQ(differs(s.model, update(s.proxy, 2), 2), "");
    s.proxy->SetPointArrayStatus(first.c_str(), 0);
    const int node = s.model.blockNodes(0)[0];
    EXPECT_EQ(arrayOf(update(s.proxy, 0), 0, second)->GetValue(0), float(s.model.value(0, 1, node, 2)));
}

TEST(proxy, theLastScalarOrPressureIsActive)
{
    Source s("temperature,topology_pressure,velocity", 1);
    EXPECT_STREQ(gridOf(update(s.proxy, 0), 0)->GetPointData()->GetScalars()->GetName(), "topology_pressure");
    Source t("temperature,species:2,velocity", 1);
    EXPECT_EQ(gridOf(update(t.proxy, 0), 0)->GetPointData()->GetScalars()->GetName(), t.model.speciesNames[1]);
    Source v("velocity", 1);
    EXPECT_EQ(gridOf(update(v.proxy, 0), 0)->GetPointData()->GetScalars(), nullptr);
}

TEST(proxy, arraysOfAnEarlierStepSeeTheNewValues)
{
    Source s("pressure", 3);
    vtkSmartPointer<vtkUnstructuredGrid> old = gridOf(update(s.proxy, 0), 0);
    vtkDataArray *array = old->GetPointData()->GetArray("pressure");
    EXPECT_EQ(float(array->GetTuple1(0)), s.expected(0, 0));
    update(s.proxy, 2);
    EXPECT_EQ(float(array->GetTuple1(0)), s.expected(0, 2));
}

TEST(proxy, arraysOutliveTheReader)
{
    vtkSmartPointer<vtkUnstructuredGrid> grid;
    vtkNew<vtkUnstructuredGrid>          copy;
    float expected = 0;
    {
        Source s("pressure", 2);
        grid = gridOf(update(s.proxy, 1), 0);
        copy->ShallowCopy(grid);
        expected = s.expected(0, 1);
    }
    EXPECT_EQ(float(grid->GetPointData()->GetArray("pressure")->GetTuple1(0)), expected);
    grid = nullptr;
    EXPECT_EQ(float(copy->GetPointData()->GetArray("pressure")->GetTuple1(0)), expected);
}

TEST(proxy, cellsAndPointsOfAMeshAtRestAreShared)
{
    Source s("pressure", 3);
    vtkSmartPointer<vtkUnstructuredGrid> first = gridOf(update(s.proxy, 0), 0);
    vtkUnstructuredGrid *second = gridOf(update(s.proxy, 1), 0);
    EXPECT_NE(first.Get(), second);
    EXPECT_EQ(first->GetPoints(), second->GetPoints());
    EXPECT_EQ(first->GetCells()->GetConnectivityArray(), second->GetCells()->GetConnectivityArray());
}

/* -------- moving meshes -------- */

TEST(proxy, aMovingMeshFollowsTheSteps)
{
    Source s("pressure,mesh_displacement", 4);
    for (int step : { 0, 2, 3, 1 }) EXPECT_EQ(differs(s.model, update(s.proxy, step), step, step != 0), "") << step;
}

/* back at step 0 the cached points return; the reader's coordinates stay those of step 3, and step 3 reads nothing */
TEST(proxy, aMovingMeshReturnsToItsStoredPlace)
{
    Source s("pressure,mesh_displacement", 4);
    update(s.proxy, 0);
    EXPECT_EQ(differs(s.model, update(s.proxy, 3), 3, true), "");
    vtkSmartPointer<vtkPoints> moved = gridOf(s.proxy->GetOutput(), 0)->GetPoints();
    EXPECT_EQ(differs(s.model, update(s.proxy, 0), 0, false), "");
    fs::remove("QUENTA.DIR/pipe.1.crd");
    EXPECT_EQ(differs(s.model, update(s.proxy, 3), 3, true), "");
    EXPECT_EQ(gridOf(s.proxy->GetOutput(), 0)->GetPoints(), moved.Get());
}

/* Points are replaced at steps other than 0 only, so that step 0 shows the points of the first build. */
TEST(proxy, aFirstBuildAtALaterStepCachesItsPoints)
{
    Source s("pressure,mesh_displacement", 4);
    EXPECT_EQ(differs(s.model, update(s.proxy, 2), 2, true), "");
    double atTwo[3], atZero[3];
    gridOf(s.proxy->GetOutput(), 0)->GetPoint(0, atTwo);
    vtkMultiBlockDataSet *output = update(s.proxy, 0);
    gridOf(output, 0)->GetPoint(0, atZero);
    EXPECT_EQ(atZero[0], atTwo[0]);
    EXPECT_EQ(s.first(output, 0), s.expected(0, 0));      /* the values are those of step 0 */
    EXPECT_EQ(differs(s.model, update(s.proxy, 1), 1, true), "");
}

/* -------- runs of one step, of none, and failing ones -------- */

TEST(proxy, aRunOfOneStepDropsItsDataAndDeliversOn)
{
    Source s("pressure,mesh_displacement", 1);
    vtkMultiBlockDataSet *output = update(s.proxy, 0);
    vtkUnstructuredGrid  *grid = gridOf(output, 0);
    EXPECT_EQ(differs(s.model, output, 0), "");
    s.proxy->Modified();
    output = update(s.proxy, 0);
    EXPECT_EQ(gridOf(output, 0), grid);
    EXPECT_EQ(differs(s.model, output, 0), "");
}

/* What is only there to read with goes after the first delivery of a run of one step, and stays as long as there are
   others to come. */
TEST(proxy, aRunOfOneStepKeepsNoListsBehindItsDelivery)
{
    for (int nSteps : { 1, 2 }) {
        const bool        stays = nSteps > 1;
        const Source      s("pressure,mesh_displacement", nSteps);
        vtkNew<TestProxy> proxy;
        proxy->SetFileName("pipe.1.Log");
        proxy->UpdateInformation();
        EXPECT_NE(proxy->GetReader()->GetBlockNodeIds(0), nullptr);
        EXPECT_EQ(differs(s.model, update(proxy, 0), 0), "");
        for (int b = 0; b < s.model.nBlocks(); ++b)
            EXPECT_EQ(proxy->GetReader()->GetBlockNodeIds(b) != nullptr, stays) << b;
        EXPECT_EQ(proxy->GetReader()->Coordinates.Size() > 0, stays);
        EXPECT_EQ(differs(s.model, vtkMultiBlockDataSet::SafeDownCast(proxy->GetOutputDataObject(0)), 0), "");
    }
}

/* -------- a reader that has nothing to deliver from -------- */

/* A reader of a database that cannot be. */
class ReaderWithoutSets : public TestReader
{
public:
    static ReaderWithoutSets *New();
    vtkTypeMacro(ReaderWithoutSets, TestReader);
    vtkTypeInt64 GetNumberOfSets() override { return -1; }
};
vtkStandardNewMacro(ReaderWithoutSets);

TEST(proxy, afterAFailedInformationThereIsNoData)
{
    const Source      s("pressure", 2);
    vtkNew<TestProxy> proxy;
    proxy->SetReader(vtkNew<ReaderWithoutSets>());
    proxy->SetFileName("pipe.1.Log");
    std::string said;
    const std::vector<std::string> errors =
        errorsOf(proxy, [&] { said = printed([&] { proxy->UpdateInformation(); }); });
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].find("QUENTA: Error reading Marivane database.NumberOfSets < 0 "), std::string::npos);
    EXPECT_EQ(said, "Failed in readgeometry \n");
    EXPECT_EQ(errorsOf(proxy->GetExecutive(), [&] { said = printed([&] { proxy->Update(); }); }).size(), 1u);
    EXPECT_NE(said.find("Information error in reader. \n"), std::string::npos) << said;
}

TEST(proxy, withoutAReaderThereIsNoData)
{
    vtkNew<TestProxy>            proxy;
    vtkNew<vtkInformationVector> outputs;
    proxy->SetReader(nullptr);
    EXPECT_EQ(printed([&] { EXPECT_EQ(proxy->RequestData(nullptr, nullptr, outputs), 0); }),
              "Information error in reader. \n");
}

TEST(proxy, withoutStepsThereIsADataError)
{
    Source s("pressure", 0);
    s.proxy->UpdateInformation();
    EXPECT_FALSE(s.info()->Has(Pipeline::TIME_STEPS()));
    EXPECT_FALSE(s.info()->Has(Pipeline::TIME_RANGE()));
    EXPECT_EQ(s.proxy->GetTimeStep(), -1);
    std::string said;
    EXPECT_EQ(errorsOf(s.proxy->GetExecutive(), [&] { said = printed([&] { s.proxy->Update(); }); }).size(), 1u);
    EXPECT_EQ(said, "time step: -1\nData error in reader. \n");
}

TEST(proxy, aPathThatOpensNoDatabaseHasNoStepsAndNoArrays)
{
    setOptions("verbose = 0\n");
    fs::create_directory("d");
    vtkNew<vtkMarivaneReaderProxy> proxy;
    proxy->SetFileName("d/pipe.1.Log");
    /* the pass itself does not fail, or the executive would say so */
    EXPECT_EQ(errorsOf(proxy->GetExecutive(), [&] { proxy->UpdateInformation(); }).size(), 0u);
    EXPECT_EQ(proxy->GetNumberOfTimeSteps(), 0);
    EXPECT_EQ(proxy->GetNumberOfPointArrays(), 0);
    EXPECT_FALSE(proxy->GetOutputInformation(0)->Has(Pipeline::TIME_STEPS()));
}

TEST(proxy, withoutAFileNameSaysSo)
{
    setOptions("verbose = 0\n");
    vtkNew<vtkMarivaneReaderProxy> proxy;
    sysSetProgName("prog");
    EXPECT_EQ(printed([&] { proxy->UpdateInformation(); }), "prog: *** ERROR: Logfile does not exist\n");
}

TEST(proxy, aLaterFileNameIsStoredAndReadNoMore)
{
    Source s("pressure", 2);
    update(s.proxy, 0);
    s.proxy->SetFileName("other.1.Log");
    EXPECT_STREQ(s.proxy->GetFileName(), "other.1.Log");
    EXPECT_EQ(differs(s.model, update(s.proxy, 1), 1), "");
    EXPECT_EQ(differs(s.model, update(s.proxy, 0), 0), "");
    EXPECT_EQ(printed([&] { EXPECT_EQ(s.proxy->CanReadFile("other.1.Log"), 0); }), "Failed in canreadfile.\n");
    EXPECT_EQ(s.proxy->CanReadFile("pipe.1.Log"), 1);
}

/* -------- plain attributes -------- */

TEST(proxy, marksItselfModifiedByChangesOnly)
{
    vtkNew<vtkMarivaneReaderProxy> proxy;
    vtkMTimeType time = proxy->GetMTime();
    const auto changed = [&] { const bool did = proxy->GetMTime() > time; time = proxy->GetMTime(); return did; };

    proxy->SetTimeStep(0);            EXPECT_FALSE(changed());
    proxy->SetTimeStep(2);            EXPECT_TRUE(changed());
    proxy->SetTimeStep(2);            EXPECT_FALSE(changed());
    proxy->SetTimeStepRange(0, 0);    EXPECT_FALSE(changed());
    proxy->SetTimeStepRange(0, 4);    EXPECT_TRUE(changed());
    proxy->SetTimeStepRange(0, 4);    EXPECT_FALSE(changed());
    proxy->SetFileName(nullptr);      EXPECT_FALSE(changed());
    proxy->SetFileName("a");          EXPECT_TRUE(changed());
    proxy->SetFileName("a");          EXPECT_FALSE(changed());
    proxy->SetFileName(nullptr);      EXPECT_TRUE(changed());
    EXPECT_EQ(proxy->GetFileName(), nullptr);
    proxy->SetCurrentFileName("c");   EXPECT_TRUE(changed());
    proxy->SetPointArrayStatus("p", 1); EXPECT_TRUE(changed());
    proxy->SetPointArrayStatus("p", 0); EXPECT_TRUE(changed());
}

TEST(proxy, hasNoInputs)
{
    vtkNew<vtkMarivaneReaderProxy> proxy;
    EXPECT_EQ(proxy->GetNumberOfInputPorts(), 0);
    EXPECT_EQ(proxy->GetNumberOfOutputPorts(), 1);
}

TEST(proxy, timeStepRangeInItsThreeForms)
{
    vtkNew<vtkMarivaneReaderProxy> proxy;
    int low = 0, high = 0, both[2] = { 0, 0 };
    proxy->SetTimeStepRange(3, 8);
    proxy->GetTimeStepRange(low, high);
    proxy->GetTimeStepRange(both);
    EXPECT_EQ(low, 3);
    EXPECT_EQ(high, 8);
    EXPECT_EQ(both[0], 3);
    EXPECT_EQ(both[1], 8);
    EXPECT_EQ(proxy->GetTimeStepRange()[1], 8);
}

TEST(proxy, progressGoesInHundredths)
{
    vtkNew<vtkMarivaneReaderProxy> proxy;
    float range[2];
    proxy->GetProgressRange(range);
    EXPECT_EQ(range[0], 0);
    EXPECT_EQ(range[1], 1);

    const float half[2] = { 0.5f, 1.0f };
    proxy->SetProgressRange(half, 1, 4);
    proxy->GetProgressRange(range);
    EXPECT_FLOAT_EQ(range[0], 0.625f);
    EXPECT_FLOAT_EQ(range[1], 0.75f);
    EXPECT_FLOAT_EQ(float(proxy->GetProgress()), 0.63f);

    const float fractions[3] = { 0, 0.1f, 1 };
    proxy->SetProgressRange(half, 1, fractions);
    proxy->GetProgressRange(range);
    EXPECT_FLOAT_EQ(range[0], 0.55f);
    EXPECT_FLOAT_EQ(range[1], 1.0f);

    proxy->UpdateProgressDiscrete(0.444f);
    EXPECT_FLOAT_EQ(float(proxy->GetProgress()), 0.44f);
    proxy->AbortExecuteOn();
    proxy->UpdateProgressDiscrete(0.9f);
    EXPECT_FLOAT_EQ(float(proxy->GetProgress()), 0.44f);
}

TEST(proxy, printSelfTellsItsState)
{
    vtkNew<vtkMarivaneReaderProxy> proxy;
    proxy->SetTimeStepRange(2, 7);
    proxy->SetTimeStep(4);
    std::ostringstream text, pointer;
    proxy->PrintSelf(text, vtkIndent(2));
    pointer << proxy->GetPointDataArraySelection();
    const std::string head = "  PointDataArraySelection: " + pointer.str()
        + "\n  NumberOfTimeSteps: 0\n  TimeStep: 4\n";
    EXPECT_NE(text.str().find(head + "  FileName: (null)\n  TimeStepRange: 2 7\n"), std::string::npos) << text.str();

    proxy->SetFileName("x.1.Log");
    text.str("");
    proxy->PrintSelf(text, vtkIndent(2));
    EXPECT_NE(text.str().find(head + "  FileName: x.1.Log\n  TimeStepRange: 2 7\n"), std::string::npos);
}

TEST(proxy, groupsAndCentroidsComeFromTheReader)
{
    Source s("pressure", 2);
    EXPECT_EQ(s.proxy->GetBlockCentroids(), nullptr);
    s.proxy->UpdateInformation();
    EXPECT_EQ(s.proxy->GetBlockCentroids()->GetNumberOfTuples(), s.model.nBlocks());
    EXPECT_EQ(std::string(s.proxy->GetDataGroupingString()).find("{\"ModelName\":\"pipe\","), 0u);
    EXPECT_EQ(s.proxy->GetDataGroupingString(), s.proxy->GetDataGroupingString());
}
