/* testGrowing.cpp: a run that the solver is still writing. What was read stays; who opens the log again, which is what
 * ParaView's "Reload Files" does, sees what has come. A step that is not yet there in full is waited for, and is never
 * shown in part. */

#include "test/plugin/pluginTestUtil.h"

#include <filesystem>

#include "rdb/rdb.h"

namespace fs = std::filesystem;

static const tool::Form forms[] = { tool::Form::ascii, tool::Form::binary, tool::Form::swapped, tool::Form::compressed,
                                    tool::Form::hdf };

static tool::RunSpec growingRun(int nSteps, tool::Form form = tool::Form::binary)
{
    tool::RunSpec spec;
    spec.form = form;
    spec.setVars("velocity,pressure");
    spec.setSteps(nSteps);
    setOptions("verbose = 0\n");
    return spec;
}

TEST(growing, stepsThatCameSinceAreSeenByTheNextOpen)
{
    for (tool::Form form : forms) {
        SCOPED_TRACE(int(form));
        const tool::RunModel before(growingRun(2, form)), after(growingRun(4, form));
        tool::writeRun(before);
        vtkNew<vtkMarivaneReaderProxy> proxy;
        proxy->SetFileName("pipe.1.Log");
        EXPECT_EQ(differs(before, update(proxy, 1), 1), "");

        tool::writeRun(after);
        proxy->Modified();
        proxy->UpdateInformation();
        EXPECT_EQ(proxy->GetNumberOfTimeSteps(), 2);
        EXPECT_EQ(differs(before, update(proxy, 3), 1), "");      /* the last one that is known */

        vtkNew<vtkMarivaneReaderProxy> next;
        next->SetFileName("pipe.1.Log");
        next->UpdateInformation();
        EXPECT_EQ(next->GetNumberOfTimeSteps(), 4);
        for (int step : { 3, 2, 0 }) EXPECT_EQ(differs(after, update(next, step), step), "");
        fs::remove_all("QUENTA.DIR");
    }
}

/* The sun is taken within the time step: for a new step the log must have grown, too. */
TEST(growing, theLogOfTimeStepsGrowsWithTheSteps)
{
    double sums[2] = { 0, 0 };
    for (bool grown : { false, true }) {
        tool::RunSpec spec = growingRun(4);
        spec.setFamilies.push_back({ "oqf" });
        spec.top = true;
        tool::RunModel model(spec);
        tool::writeRun(model);
        if (!grown) {                                             /* the log ends before the step */
            tool::RunSpec shorter = spec;
            shorter.setSteps(2);
            shorter.dir = "shorter";
            tool::writeRun(tool::RunModel(shorter));
            fs::copy_file("shorter/QUENTA.DIR/pipe.1.top.B", "QUENTA.DIR/pipe.1.top.B",
                          fs::copy_options::overwrite_existing);
        }
        setOptions("verbose = 0\nextended_nodal_output = true\n");
        vtkNew<vtkMarivaneReaderProxy> proxy;
        proxy->SetFileName("pipe.1.Log");
        vtkMultiBlockDataSet *output = update(proxy, 3);
        for (int b = 0; b < model.nBlocks(); ++b) {
            vtkFloatArray *array = arrayOf(output, b, "solar_area");
            ASSERT_NE(array, nullptr);
            for (vtkIdType i = 0; i < array->GetNumberOfTuples(); ++i) sums[grown] += array->GetTypedComponent(i, 0);
        }
    }
    EXPECT_EQ(sums[0], 0);
    EXPECT_GT(sums[1], 0);
}

static std::string newestFile()
{
    for (const fs::directory_entry &entry : fs::directory_iterator("QUENTA.DIR"))
        if (entry.path().filename().string().compare(0, 13, "pipe.1_2_0.ou") == 0) return entry.path().string();
    return "";
}

static std::string newest, whole;                                 /* the writer's hand */

static void writeOn()
{
    testWrite(newest, whole);
}

/* Text and binary are looked at again until all is there; of the other forms a piece is no file at all. */
TEST(growing, aStepThatIsBeingWrittenIsWaitedFor)
{
    for (tool::Form form : { tool::Form::ascii, tool::Form::binary, tool::Form::swapped }) {
        SCOPED_TRACE(int(form));
        const tool::RunModel model(growingRun(3, form));
        tool::writeRun(model);
        newest = newestFile();
        whole = testRead(newest);
        for (double share : { 0.6, 0.3 }) {
            testWrite(newest, whole.substr(0, size_t(double(whole.size()) * share)));
            testWhenSleeping(writeOn);
            vtkNew<vtkMarivaneReaderProxy> proxy;
            proxy->SetFileName("pipe.1.Log");
            EXPECT_EQ(trapped([&] { EXPECT_EQ(differs(model, update(proxy, 2), 2), ""); }), "") << share;
            testWhenSleeping(nullptr);
        }
        EXPECT_GT(testSlept(), 0);
        fs::remove_all("QUENTA.DIR");
    }
}

TEST(growing, aStepThatStaysHalfWrittenIsRefused)
{
    static const struct { tool::Form form; const char *text; } rows[] = {
        { tool::Form::ascii,      "EOF in ascii file <QUENTA.DIR/pipe.1_2_0.out>"      },
        { tool::Form::binary,     "EOF in binary file <QUENTA.DIR/pipe.1_2_0.out>"     },
        { tool::Form::swapped,    "EOF in binary file <QUENTA.DIR/pipe.1_2_0.out>"     },
        { tool::Form::compressed, "EOF in compressed file <QUENTA.DIR/pipe.1_2_0.out>" },
        { tool::Form::hdf,        "Unable to open HDF5 file QUENTA.DIR/pipe.1_2_0.out" },
    };
    for (const char *extended : { "false", "true" })
        for (const auto &row : rows) {
            SCOPED_TRACE(row.text);
            tool::writeRun(tool::RunModel(growingRun(3, row.form)));
            setOptions(std::string("verbose = 0\nextended_nodal_output = ") + extended + "\n");
            newest = newestFile();
            whole = testRead(newest);
            testWrite(newest, whole.substr(0, whole.size() / 2));
            vtkNew<vtkMarivaneReaderProxy> proxy;
            proxy->SetFileName("pipe.1.Log");
            EXPECT_EQ(trapped([&] { update(proxy, 1); }), "");    /* the steps before it are good */
            checkFails(row.text, update(proxy, 2));
            fs::remove_all("QUENTA.DIR");
        }
}

static int nWrites;

/* At the first wait all of it, at the next one half, and so on, every time with another last digit: each reading meets
   a half, waits for the rest, and then finds that the file has changed */
static void writeAnew()
{
    std::string text = whole;
    text[text.find_last_of("0123456789")] = char('0' + nWrites % 10);
    testWrite(newest, ++nWrites % 2 ? text : text.substr(0, text.size() / 2));
}

/* What was read may be of two states at once: the array is zero as if its step had no data. */
TEST(growing, aStepThatIsWrittenAnewAllTheTimeIsZero)
{
    const tool::RunModel model(growingRun(3, tool::Form::ascii));
    tool::writeRun(model);
    newest = newestFile();
    whole = testRead(newest);
    testWrite(newest, whole.substr(0, whole.size() / 2));
    vtkNew<vtkMarivaneReaderProxy> proxy;
    proxy->SetFileName("pipe.1.Log");
    proxy->UpdateInformation();
    proxy->SetPointArrayStatus("velocity", 0);
    testWhenSleeping(writeAnew);
    EXPECT_EQ(trapped([&] {
        vtkMultiBlockDataSet *output = update(proxy, 2);
        for (int b = 0; b < model.nBlocks(); ++b) {
            vtkFloatArray *array = arrayOf(output, b, "pressure");
            ASSERT_NE(array, nullptr);
            for (vtkIdType i = 0; i < array->GetNumberOfTuples(); ++i) EXPECT_EQ(array->GetTypedComponent(i, 0), 0.0f);
        }
    }), "");
    testWhenSleeping(nullptr);
    EXPECT_EQ(nWrites, 5);
    EXPECT_NE(std::string(rdbGetError()).find("changed while it was read"), std::string::npos) << rdbGetError();

    /* the writer is done */
    writeOn();
    proxy->SetPointArrayStatus("velocity", 1);
    for (int step : { 1, 2 }) EXPECT_EQ(differs(model, update(proxy, step), step), "");
}

static int nOpenFiles()
{
    int n = 0;
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc/self/fd")) n += entry.is_symlink();
    return n;
}

/* A reader never closes its run, and step files stay open for the next array: only those of the run in use do, else
   they would add up. */
TEST(growing, reloadingAgainAndAgainHoldsNoMoreFiles)
{
    for (tool::Form form : { tool::Form::binary, tool::Form::compressed }) {
        SCOPED_TRACE(int(form));
        tool::RunSpec spec = growingRun(2, form);
        spec.nx = 24;
        spec.nSds = 12;
        const tool::RunModel model(spec);
        tool::writeRun(model);
        const int nBefore = nOpenFiles();
        const int perPart = form == tool::Form::compressed ? 2 : 1;     /* a pipe, and what has come through it */
        for (int reload = 0; reload < 8; ++reload) {
            vtkNew<vtkMarivaneReaderProxy> proxy;
            proxy->SetFileName("pipe.1.Log");
            EXPECT_EQ(differs(model, update(proxy, 1), 1), "");
            EXPECT_LE(nOpenFiles(), nBefore + perPart * spec.nSds);
        }
        fs::remove_all("QUENTA.DIR");
    }
}
