/* testLog.cpp: the time steps of the run's log. */

#include <cstdio>
#include <filesystem>

#include "test/rdb/smallRun.h"
#include "tool/runWriter.h"

namespace fs = std::filesystem;

/* Step number n with its items */
static void putStep(tool::TokenFile &f, int step)
{
    f.keyInt("tsId", step);
    f.keyReal("timeInc", 0.5);
    f.keyReal("time", 0.5 * step);
    f.keyStr("eqnName", "flow");
    f.keyReal("resNorm", 0.25);
    f.keyStr("name", "velocity");
}

static void putLog(tool::Form form, int nSteps)
{
    SmallFile file("p.1.top", form);
    for (int step = 1; step <= nSteps; ++step) putStep(file.f, step);
}

static int nStepsOf(rdbHd *hd)
{
    int n = -1;
    checkAnswers(rdbGetInt0(hd, "nSteps", &n));
    return n;
}

TEST(runLog, sameInEveryForm)
{
    for (const tool::FormRow &form : tool::formRows) {
        SCOPED_TRACE(form.word);
        tool::RunSpec spec;
        spec.form = form.value;
        spec.dataDir = ".";
        spec.nx = spec.ny = spec.nz = 1;
        spec.setSteps(3, 4, 5);
        spec.top = true;
        tool::RunModel model(spec);
        tool::writeRun(model);
        rdbHd *hd = rdbNew("pipe", ".", nullptr, 0);
        ASSERT_NE(hd, nullptr);
        checkAnswers(rdbOpenRun(hd, 1));
        ASSERT_EQ(nStepsOf(hd), 3);
        std::vector<int>    steps(3);
        std::vector<double> times(3), incs(3);
        checkAnswers(rdbGetInts0(hd, "steps", steps.data(), 3, 1));
        checkAnswers(rdbGetReals0(hd, "times", times.data(), 3, 1));
        checkAnswers(rdbGetReals0(hd, "timeIncs", incs.data(), 3, 1));
        EXPECT_EQ(steps, spec.steps);
        for (int i = 0; i < 3; ++i) {
            int    step = -1;
            double time = -1, inc = -1;
            checkAnswers(rdbGetInt1(hd, "step", &step, i));
            checkAnswers(rdbGetReal1(hd, "time", &time, i));
            checkAnswers(rdbGetReal1(hd, "timeInc", &inc, i));
            EXPECT_EQ(step, spec.steps[i]);
            EXPECT_EQ(time, model.time(i));
            EXPECT_EQ(inc, spec.timeInc);
            EXPECT_EQ(times[i], time);
            EXPECT_EQ(incs[i], inc);
        }
        rdbFree(hd);
        for (const auto &entry : fs::directory_iterator(".")) fs::remove_all(entry.path());
    }
}

TEST(runLog, manySteps)
{
    SmallRun run;
    run.write();
    putLog(run.form, 1000);
    rdbHd *hd = SmallRun::open();
    ASSERT_EQ(nStepsOf(hd), 1000);
    std::vector<double> times(1000);
    checkAnswers(rdbGetReals0(hd, "times", times.data(), 1000, 1));
    for (int i = 0; i < 1000; ++i) EXPECT_EQ(times[i], 0.5 * (i + 1));
    rdbFree(hd);
}

TEST(runLog, aRunWithoutOne)
{
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    int      n;
    double   values[1];
    checkRefused(".top file not found", rdbGetInt0(hd, "nSteps", &n));
    checkRefused(".top file not found", rdbGetReals0(hd, "times", values, 1, 1));
    rdbFree(hd);
}

TEST(runLog, anEmptyOne)
{
    for (const auto &form : smallForms) {
        SmallRun run;
        run.form = form.form;
        run.write();
        putLog(form.form, 0);
        rdbHd *hd = SmallRun::open();
        EXPECT_EQ(nStepsOf(hd), 0);
        double time;
        checkAnswers(rdbGetReals0(hd, "times", nullptr, -1, -1));
        checkRefused("index1 (0) is out of range [0,-1]", rdbGetReal1(hd, "time", &time, 0));
        rdbFree(hd);
        remove(("p.1.top" + run.suffix()).c_str());
    }
}

TEST(runLog, anUnknownItem)
{
    for (const auto &form : smallForms) {
        SmallRun run;
        run.form = form.form;
        run.write();
        {
            SmallFile file("p.1.top", form.form);
            putStep(file.f, 1);
            file.f.keyInt("weather", 1);
        }
        rdbHd *hd = SmallRun::open();
        int    n;
        for (int times = 0; times < 2; ++times) {
            checkFails("Unrecognized log item weather", rdbGetInt0(hd, "nSteps", &n));
            checkFails("rdbInitLog", rdbGetInt0(hd, "nSteps", &n));
        }
        rdbFree(hd);
        remove(("p.1.top" + run.suffix()).c_str());
    }
}

/* A solver that writes it, or a full disk, may have left off anywhere. Behind a whole item it is a shorter log. */
TEST(runLog, cutAnywhere)
{
    for (const auto &form : smallForms) {
        SmallRun run;
        run.form = form.form;
        run.write();
        putLog(form.form, 2);
        const std::string name = "p.1.top" + run.suffix(), whole = testRead(name);
        { SmallFile empty("p.1.top", form.form); }
        const size_t head = testRead(name).size();
        { SmallFile file("p.1.top", form.form); file.f.str("tsId"); }
        const size_t key = testRead(name).size();
        int nFailed = 0, nGiven = 0;
        for (size_t size = head; size < whole.size(); ++size) {
            testWrite(name, whole.substr(0, size));
            rdbHd *hd = SmallRun::open();
            int    n = -1, ok = 0;
            const std::string failure = trapped([&] { ok = rdbGetInt0(hd, "nSteps", &n); });
            if (size == key) { EXPECT_NE(failure.find("EOF"), std::string::npos) << failure; }
            nFailed += !failure.empty();
            nGiven += ok;
            if (ok) { EXPECT_LE(n, 2); }
            rdbFree(hd);
        }
        EXPECT_GT(nFailed, 0) << form.name;
        EXPECT_GT(nGiven, 0) << form.name;
        testWrite(name, whole);
        rdbHd *hd = SmallRun::open();
        EXPECT_EQ(nStepsOf(hd), 2);
        rdbFree(hd);
        remove(name.c_str());
    }
}

/* What was read stays until an update finds the file newer */
TEST(runLog, growsBetweenUpdates)
{
    SmallRun run;
    run.write();
    putLog(run.form, 1);
    fs::last_write_time("p.1.top.B", fs::file_time_type::clock::now() - std::chrono::seconds(30));
    rdbHd *hd = SmallRun::open();
    int    flag = 0;
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(nStepsOf(hd), 1);
    putLog(run.form, 3);
    fs::last_write_time("p.1.top.B", fs::file_time_type::clock::now() - std::chrono::seconds(10));
    EXPECT_EQ(nStepsOf(hd), 1);
    flag = 0;
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(nStepsOf(hd), 3);
    rdbFree(hd);
}
