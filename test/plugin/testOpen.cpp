/* testOpen.cpp: opening the database, the options, the banner, and what is said when it fails. */

#include "test/plugin/pluginTestUtil.h"

#include <filesystem>
#include <sstream>

namespace fs = std::filesystem;

static tool::RunSpec smallRun(const std::string &vars = "velocity,pressure")
{
    tool::RunSpec spec;
    spec.form = tool::Form::ascii;
    spec.setVars(vars);
    return spec;
}

static std::vector<std::string> linesOf(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream       in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

TEST(open, printsTheBanner)
{
    tool::writeRun(smallRun());
    setOptions();
    vtkNew<TestReader> reader;
    const std::vector<std::string> lines = linesOf(printed([&] { reader->Open("pipe.1.Log"); }));

    const std::string p = "Marivane-Reader: ";
    const std::vector<std::string> expected = {
        p + "----------------------------------------------------",
        p + "     date = ",
        p + "  version = 2021.1",
        p + "  machine = win64",
        p + "     host = " + sysHostName(),
        p,
        p + " options:",
        p + "     help = false",
        p + "  problem = pipe",
        p + "     path = .",
        p + "      dir = QUENTA.DIR",
        p + "    runId = 1",
        p + "      ale = false",
        p + "   extout = false",
        p + "       rt = false",
        p + "  verbose = 1",
        p + "----------------------------------------------------",
    };
    ASSERT_EQ(lines.size(), expected.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].size(), expected[i].size() + (i == 1 ? 24 : 0));   /* a date has 24 characters */
        EXPECT_EQ(lines[i].substr(0, expected[i].size()), expected[i]);
    }
    EXPECT_NE(reader->Database, nullptr);
}

TEST(open, bannerShowsTheOptionsAndTheFileName)
{
    tool::RunSpec spec = smallRun("velocity,mesh_displacement");
    spec.dir = "d";
    spec.problem = "case";
    spec.run = 12;
    spec.dataDir = "DATA";
    tool::writeRun(spec);
    setOptions("dir = DATA\nextout = T\nreset_time = yes\nv = 3\nrun = 7\n");
    vtkNew<TestReader> reader;
    const std::string banner = printed([&] { reader->Open("d/case.12.Log"); });
    for (const char *line : { "  problem = case\n", "     path = d/\n", "      dir = DATA\n", "    runId = 12\n",
                              "      ale = true\n", "   extout = true\n", "       rt = true\n", "  verbose = 3\n" })
        EXPECT_NE(banner.find(line), std::string::npos) << line << banner;
    EXPECT_EQ(reader->GetMeshMoves(), 1);
    EXPECT_EQ(reader->MeshDisplacementIndex, 1);
}

TEST(open, showsNoMovementWithoutADisplacement)
{
    tool::writeRun(smallRun("velocity,mesh_displacement_midstep"));
    setOptions("ale = T\n");
    vtkNew<TestReader> reader;
    const std::string banner = printed([&] { reader->Open("pipe.1.Log"); });
    EXPECT_NE(banner.find("      ale = false\n"), std::string::npos);
    EXPECT_EQ(reader->GetMeshMoves(), 0);
    EXPECT_EQ(reader->MeshDisplacementIndex, -1);
}

TEST(open, theOptionAleStopsAMovingMesh)
{
    tool::writeRun(smallRun("velocity,mesh_displacement"));
    setOptions("ale = F\nverbose = 0\n");
    vtkNew<TestReader> reader;
    reader->Open("pipe.1.Log");
    EXPECT_EQ(reader->GetMeshMoves(), 0);
    EXPECT_EQ(reader->MeshDisplacementIndex, 1);
}

TEST(open, printsNothingOnSuccessWithVerboseZero)
{
    tool::writeRun(smallRun());
    setOptions("verbose = 0\n");
    vtkNew<TestReader> reader;
    EXPECT_EQ(printed([&] { reader->ReadData("pipe.1.Log"); }), "");
    EXPECT_EQ(reader->GetNumberOfNodes(), tool::RunModel(smallRun()).nNodes);
    EXPECT_EQ(testSlept(), 0);
}

TEST(open, ofNoFileNameIsRefused)
{
    setOptions();
    vtkNew<TestReader> reader;
    sysSetProgName("prog");
    EXPECT_EQ(printed([&] { reader->ReadData(nullptr); }), "prog: *** ERROR: Logfile does not exist\n");
    EXPECT_EQ(reader->Database, nullptr);
    EXPECT_EQ(reader->GetNumberOfSets(), 0);
}

TEST(open, ofAnInvalidNameIsRefused)
{
    setOptions();
    vtkNew<TestReader> reader;
    EXPECT_EQ(printed([&] { reader->ReadData(""); }), "Marivane-Reader: *** ERROR: Invalid problem name: \n");
    EXPECT_EQ(reader->Database, nullptr);
}

TEST(open, theUndefinedProblemRaisesFourErrors)
{
    fs::create_directory("QUENTA.DIR");
    setOptions();
    vtkNew<TestReader> reader;
    std::string said;
    const std::vector<std::string> errors = errorsOf(reader, [&] { said = printed([&] { reader->ReadData("./-"); }); });
    ASSERT_EQ(errors.size(), 4u);
    const char *texts[] = { "Error opening the marivane data base..", "ProblemName _undefined", "WorkDir QUENTA.DIR",
                            "ProblemDir ./" };
    for (int i = 0; i < 4; ++i)
        EXPECT_NE(errors[i].find(std::string("): ") + texts[i] + "\n"), std::string::npos) << errors[i];
    EXPECT_EQ(said, "");
    EXPECT_STREQ(rdbGetError(), "Undefined problem");
    EXPECT_EQ(reader->GetNumberOfSets(), 0);
}

TEST(open, aMissingDataFolderRaisesFourErrors)
{
    setOptions();
    vtkNew<TestReader> reader;
    const std::vector<std::string> errors = errorsOf(reader, [&] { reader->ReadData("pipe.1.Log"); });
    ASSERT_EQ(errors.size(), 4u);
    EXPECT_NE(errors[1].find("ProblemName pipe\n"), std::string::npos);
    EXPECT_NE(errors[3].find("ProblemDir .\n"), std::string::npos);
    EXPECT_STREQ(rdbGetError(), "Invalid directory <QUENTA.DIR>");
}

/* The handle stays, so that the read goes on and finds that nothing can be read. */
TEST(open, aMissingRunIsReportedAndTheReadGoesOn)
{
    tool::writeRun(smallRun());
    setOptions();
    vtkNew<TestReader> reader;
    const std::string said = printed([&] { reader->ReadData("pipe.33.Log"); });
    EXPECT_EQ(said, "Marivane-Reader: *** ERROR: Error opening the Run Id (33)\n"
                    "Marivane-Reader: *** ERROR: Cannot read the the number of nodes/points..exiting..\n"
                    "Marivane-Reader: *** ERROR: Cannot read the coordinates of nodes/points..exiting.\n");
    EXPECT_NE(reader->Database, nullptr);
    EXPECT_EQ(reader->GetNumberOfSets(), 0);
    EXPECT_EQ(reader->GetNumberOfArrays(), 0);
    EXPECT_EQ(reader->GetNumberOfTimeSteps(), 0);
}

TEST(open, runZeroIsTheLastOne)
{
    for (int run : { 2, 11 }) {
        tool::RunSpec spec = smallRun();
        spec.run = run;
        spec.nx = run;
        tool::writeRun(spec);
    }
    setOptions("verbose = 0\nproblem = pipe\n");
    for (const char *name : { "pipe.0.Log", "pipe.09.Log", "-" }) {
        vtkNew<TestReader> reader;
        reader->ReadData(name);
        EXPECT_EQ(reader->GetNumberOfNodes(), 12 * 3 * 3) << name;
    }
    setOptions("verbose = 0\nproblem = pipe\nrun_id = 2\n");
    vtkNew<TestReader> reader;
    reader->ReadData("-");
    EXPECT_EQ(reader->GetNumberOfNodes(), 3 * 3 * 3);
}

TEST(open, dataMayStandBesideTheLog)
{
    tool::RunSpec spec = smallRun();
    spec.dataDir = ".";
    tool::RunModel model(spec);
    tool::writeRun(model);
    setOptions("dir = .\nverbose = 0\n");
    vtkNew<vtkMarivaneReaderProxy> proxy;
    proxy->SetFileName("pipe.1.Log");
    EXPECT_EQ(differs(model, update(proxy, 0), 0), "");
}

TEST(open, leavesTheWorkingFolderAsItWas)
{
    tool::RunSpec spec = smallRun();
    spec.dir = "deep/down";
    tool::RunModel model(spec);
    tool::writeRun(model);
    setOptions("verbose = 0\n");
    const fs::path before = fs::current_path();
    vtkNew<vtkMarivaneReaderProxy> proxy;
    proxy->SetFileName("deep/down/pipe.1.Log");
    EXPECT_EQ(differs(model, update(proxy, 0), 0), "");
    EXPECT_EQ(fs::current_path(), before);
}

TEST(open, printSelfTellsTheNodes)
{
    tool::writeRun(smallRun());
    setOptions("verbose = 0\n");
    vtkNew<TestReader> reader;
    reader->ReadData("pipe.1.Log");
    std::ostringstream text;
    reader->PrintSelf(text, vtkIndent(4));
    EXPECT_NE(text.str().find("    NumberOfNodes: 45\n"), std::string::npos) << text.str();
    EXPECT_NE(text.str().find("Debug: "), std::string::npos);          /* the part of vtkObject stands before it */
}
