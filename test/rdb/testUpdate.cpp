/* testUpdate.cpp: what an update of a handle finds out, what it reads anew, and what it leaves alone. */

#include "base/sysInt.h"
#include "test/rdb/plainDb.h"
#include "test/rdb/smallRun.h"

static int updated(rdbHd *hd)
{
    int flag = 7;
    checkAnswers(rdbUpdate(hd, &flag));
    return flag;
}

/* ------------------------------------------------------------------------------------------------- the directory */

TEST(rdbUpdate, nothingChanged)
{
    makeDb();
    rdbHd *hd = newHd("p", "db", nullptr);
    ASSERT_NE(hd, nullptr);
    EXPECT_NE(hd->lastUpdate, 0);
    hd->lastUpdate = 1234;
    int flag = 7;
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(hd->lastUpdate, 1234);
    rdbFree(hd);
}

/* What counts is that the directory is newer than when it was last looked at, not than it ever was. */
TEST(rdbUpdate, directoryWhoseTimeWentBack)
{
    makeDb();
    rdbHd *hd = newHd("p", "db", nullptr);
    ASSERT_NE(hd, nullptr);
    int flag = 7;
    touch("db", -100);
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(flag, 0);
    touch("db", 50);
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(flag, 1);
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(flag, 0);
    rdbFree(hd);
}

TEST(rdbUpdate, newRunIsFoundAndTheOpenOneReadAnew)
{
    makeDb();
    rdbHd *hd = newHd("p", "db", nullptr);
    ASSERT_NE(hd, nullptr);
    checkAnswers(rdbOpenRun(hd, 1));
    hd->lastUpdate = 1234;
    testWrite("db/p.1.cli", "#@ TITLE \"longer now\"\n");
    testWrite("db/p.2.cli", "");
    touch("db");
    int flag = 0, value = 0;
    char text[RDB_TEXT];
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(flag, 1);
    EXPECT_GT(hd->lastUpdate, 1234);
    checkAnswers(rdbGetInt0(hd, "nRuns", &value));
    EXPECT_EQ(value, 2);
    checkAnswers(rdbGetInt0(hd, "openRunId", &value));
    EXPECT_EQ(value, 1);
    checkAnswers(rdbGetStr0(hd, "title", text));
    EXPECT_STREQ(text, "longer now");
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(flag, 0);
    rdbFree(hd);
}

TEST(rdbUpdate, withoutARunNoneIsOpened)
{
    makeDb();
    rdbHd *hd = newHd("p", "db", nullptr);
    ASSERT_NE(hd, nullptr);
    touch("db");
    int flag = 0;
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(hd->run, nullptr);
    rdbFree(hd);
}

TEST(rdbUpdate, directoryGoneLeavesAllAsItWas)
{
    makeDb();
    rdbHd *hd = newHd("p", "db", nullptr);
    ASSERT_NE(hd, nullptr);
    checkAnswers(rdbOpenRun(hd, 1));
    fs::rename("db", "away");
    int flag = 7, value = 0;
    checkRefused("directory db not found", rdbUpdate(hd, &flag));
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(hd->runId, 1);
    checkAnswers(rdbGetInt0(hd, "nRuns", &value));
    EXPECT_EQ(value, 1);
    fs::rename("away", "db");
    checkAnswers(rdbUpdate(hd, &flag));
    rdbFree(hd);
}

/* The lists are the new ones, the open run stands; the next update looks again. */
TEST(rdbUpdate, lastRunGone)
{
    makeDb();
    rdbHd *hd = newHd("p", "db", nullptr);
    ASSERT_NE(hd, nullptr);
    checkAnswers(rdbOpenRun(hd, 1));
    fs::remove("db/p.1.cli");
    testWrite("db/p.1.ddc", "");
    touch("db");
    int flag = 0;
    char text[RDB_TEXT];
    for (int again = 0; again < 2; ++again) {
        checkRefused("problem p not found", rdbUpdate(hd, &flag));
        EXPECT_EQ(flag, 1);
        EXPECT_EQ(hd->nRuns, 0);
        EXPECT_EQ(hd->maxRunId, -1);
        EXPECT_EQ(hd->runId, 1);
        EXPECT_NE(hd->run, nullptr);
        checkAnswers(rdbGetStr1(hd, "fileName", text, 0));
        EXPECT_STREQ(text, "p.1.ddc");
        checkRefused("runId 1 not found", rdbOpenRun(hd, 1));
        checkRefused("runId 0 not found", rdbOpenRun(hd, 0));
    }
    rdbFree(hd);
}

TEST(rdbUpdate, openRunGoneWhileOthersAreLeft)
{
    makeDb();
    testWrite("db/p.2.cli", "");
    rdbHd *hd = newHd("p", "db", nullptr);
    ASSERT_NE(hd, nullptr);
    checkAnswers(rdbOpenRun(hd, 1));
    fs::remove("db/p.1.cli");
    touch("db");
    int flag = 0;
    checkRefused("runId 1 not found", rdbUpdate(hd, &flag));
    EXPECT_EQ(hd->runId, 1);
    EXPECT_NE(hd->run, nullptr);
    rdbFree(hd);
}

TEST(rdbUpdate, currentDirectoryGoneFails)
{
    makeDb();
    rdbHd *hd = newHd("p", (here() + "/db").c_str(), nullptr);
    ASSERT_NE(hd, nullptr);
    fs::create_directories("sub");
    fs::current_path("sub");
    fs::remove("../sub");
    int flag = 0;
    checkFails("Error in getcwd; ", rdbUpdate(hd, &flag));
    fs::current_path(testFolder());
    rdbFree(hd);
}

/* The trick that makes a network file system look again comes first, and is the only one to look at the folder. */
TEST(rdbUpdate, currentDirectoryThatCannotBeEnteredAgainFails)
{
    makeDb();
    rdbHd *hd = newHd("p", "db", nullptr);
    ASSERT_NE(hd, nullptr);
    const sysMachState before = sysMach;
    sysMach.chdir = [](const char *) { return errno = EACCES, -1; };
    int flag = 0;
    checkFails("Error in chdir; ", rdbUpdate(hd, &flag));
    checkFails("Function <sysSync>", rdbUpdate(hd, &flag));
    sysSyncOff();
    checkAnswers(rdbUpdate(hd, &flag));
    sysMach = before;
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(flag, 0);
    rdbFree(hd);
}

/* ---------------------------------------------------------------------------- changes within the second of a scan */

/* The run in the current folder with one more step than when the handle was made, as its number of steps tells */
static int nStepsNow(rdbHd *hd)
{
    int n = -1;
    checkAnswers(rdbGetInt0(hd, "nOutSteps", &n));
    return n;
}

/* A mark in the open run: one that was read anew has none */
static const int mark = 4711;

/* The last file of a run may be made in the second in which the directory was scanned. The times are those of the
   directory at the scan and when the file was there. */
TEST(rdbUpdate, fileMadeInTheSecondOfTheScan)
{
    const time_t now = time(nullptr);
    static const struct {
        const char *what;
        time_t      seconds;
        long        before, behind;
    } rows[] = {
        { "the time tells by its finer part",          now - 1000, 100000000, 900000000 },
        { "the finer part of a time that was put back", now - 1000, 900000000, 100000000 },
        { "the scan came too soon behind the time",    now + 1000, 500000000, 500000000 },
        { "a file system of whole seconds",            now,        0,         0         },
        { "the record of the directory alone tells",   now - 1000, 0,         0         },
    };
    for (const auto &row : rows)
        for (bool opened : { true, false }) {
            SCOPED_TRACE(row.what);
            SmallRun run;
            run.write();
            fs::remove("p.1_9_0.out.B"), fs::remove("p.1_9_1.out.B");
            setTime(".", row.seconds, row.before);
            rdbHd *hd = newHd("p", ".", nullptr);
            ASSERT_NE(hd, nullptr);
            if (opened) checkAnswers(rdbOpenRun(hd, 1));
            if (opened) { EXPECT_EQ(nStepsNow(hd), 1); }
            EXPECT_EQ(updated(hd), 0);
            run.writeStep(9);
            setTime(".", row.seconds, row.behind);
            if (opened) { EXPECT_EQ(nStepsNow(hd), 1); }
            hd->lastUpdate = 1234;
            EXPECT_EQ(updated(hd), 1);
            EXPECT_NE(hd->lastUpdate, 1234);
            if (!opened) checkAnswers(rdbOpenRun(hd, 1));
            EXPECT_EQ(nStepsNow(hd), 2);
            hd->run->nRads = mark;
            for (int again = 0; again < 3; ++again) EXPECT_EQ(updated(hd), 0);
            EXPECT_EQ(hd->run->nRads, mark);
            rdbFree(hd);
        }
}

/* As long as the time of the directory is fresh its names are read at each update; that alone is no change. */
TEST(rdbUpdate, namesThatAreTheSameAreNoChange)
{
    const time_t now = time(nullptr);
    for (time_t seconds : { now - 1000, now, now + 1000 }) {
        SmallRun().write();
        testWrite("notes", "");
        setTime(".", seconds, 0);
        rdbHd *hd = SmallRun::open();
        hd->lastUpdate = 1234;
        hd->run->nRads = mark;
        for (long fine : { 0L, 0L, 300000000L, 600000000L, 200000000L }) {
            setTime(".", seconds, fine);
            EXPECT_EQ(updated(hd), 0);
        }
        EXPECT_EQ(hd->lastUpdate, 1234);
        EXPECT_EQ(hd->run->nRads, mark);
        setTime(".", seconds + 1, 0);
        EXPECT_EQ(updated(hd), 1);
        EXPECT_NE(hd->run->nRads, mark);
        rdbFree(hd);
    }
}

/* What was read from a file that is gone stays: only a directory of a later second says that it is not to count. */
TEST(rdbUpdate, fileGoneInTheSecondOfTheScanIsNoChange)
{
    const time_t seconds = time(nullptr) + 1000;
    SmallRun run;
    run.write();
    run.writeStep(9);
    setTime(".", seconds, 0);
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(nStepsNow(hd), 2);
    fs::remove("p.1_9_0.out.B"), fs::remove("p.1_9_1.out.B");
    setTime(".", seconds, 1000);
    EXPECT_EQ(updated(hd), 0);
    EXPECT_EQ(nStepsNow(hd), 2);
    setTime(".", seconds + 1, 0);
    EXPECT_EQ(updated(hd), 1);
    EXPECT_EQ(nStepsNow(hd), 1);
    rdbFree(hd);
}

/* Names that begin with a listed one, or that a listed one begins with */
TEST(rdbUpdate, namesAreComparedWhole)
{
    const time_t seconds = time(nullptr) + 1000;
    for (const char *name : { "p.1_5_0.out", "p.1.cl", "p.1.cli2", "p.1.clh", "a", "zz", ".x" }) {
        SCOPED_TRACE(name);
        SmallRun().write();
        fs::remove(name);
        setTime(".", seconds, 0);
        rdbHd *hd = SmallRun::open();
        EXPECT_EQ(updated(hd), 0);
        testWrite(name, "");
        setTime(".", seconds, 0);
        EXPECT_EQ(updated(hd), 1);
        EXPECT_EQ(updated(hd), 0);
        rdbFree(hd);
        fs::remove(name);
    }
}

/* Another directory of the name, which is older than the one before */
TEST(rdbUpdate, directoryThatWasReplaced)
{
    makeDb();
    makeDb("other");
    testWrite("other/db/p.2.cli", "");
    setAge("db", 1000);
    setAge("other/db", 2000);
    rdbHd *hd = newHd("p", "db", nullptr);
    ASSERT_NE(hd, nullptr);
    fs::rename("db", "away");
    fs::rename("other/db", "db");
    EXPECT_EQ(updated(hd), 1);
    EXPECT_EQ(hd->nRuns, 2);
    rdbFree(hd);
}

/* ------------------------------------------------------------------------------------ the client information file */

/* Nothing in the directory has another name, and the directory's time stands. */
TEST(rdbUpdate, clientInformationWrittenInPlaceIsReadAnew)
{
    makeDb();
    rdbHd *hd = newHd("p", "db", nullptr);
    ASSERT_NE(hd, nullptr);
    EXPECT_EQ(updated(hd), 0);
    checkAnswers(rdbOpenRun(hd, 1));
    char text[RDB_TEXT];
    for (const char *title : { "half", "whole" }) {
        SCOPED_TRACE(title);
        const auto time = fs::last_write_time("db");
        testWrite("db/p.1.cli", "#@ TITLE \"" + std::string(title) + "\"\n#@ END\n");
        ASSERT_EQ(fs::last_write_time("db"), time);
        EXPECT_EQ(updated(hd), 1);
        checkAnswers(rdbGetStr0(hd, "title", text));
        EXPECT_STREQ(text, title);
        EXPECT_EQ(updated(hd), 0);
    }
    rdbFree(hd);
}

/* One that ends before its end mark is a smaller run: the solver may be at it. */
class clientInformation : public ::testing::Test {
protected:
    static int  nWaits;
    sysSleeper  before = sysSetSleeper(grow);
    static void grow(double)
    {
        static const char *const states[] = { "#@ TITLE \"t\"\n", "#@ TITLE \"t\"\n#@ SUBTITLE \"s\"\n",
                                              "#@ TITLE \"t\"\n#@ SUBTITLE \"s\"\n#@ NSDS 3\n#@ END\n" };
        testWrite("db/p.1.cli", states[std::min(nWaits, 2)]);
        ++nWaits;
    }
    int nSdsOf(const char *title)
    {
        int   n = -1;
        char  text[RDB_TEXT];
        rdbHd *hd = newHd("p", "db", nullptr);
        checkAnswers(rdbOpenRun(hd, 1));
        checkAnswers(rdbGetInt0(hd, "nSds", &n));
        checkAnswers(rdbGetStr0(hd, "title", text));
        EXPECT_STREQ(text, title);
        rdbFree(hd);
        return n;
    }
    void SetUp() override { makeDb(); }
    void TearDown() override { sysSetSleeper(before); }
};
int clientInformation::nWaits;

TEST_F(clientInformation, thatGrowsIsWaitedFor)
{
    nWaits = 1;
    testWrite("db/p.1.cli", "#@ TITLE \"t\"\n");
    EXPECT_EQ(nSdsOf("t"), 3);
    EXPECT_EQ(nWaits, 3);
}

TEST_F(clientInformation, thatStandsIsTakenAsItIs)
{
    sysSetSleeper([](double) { ++nWaits; });
    nWaits = 0;
    testWrite("db/p.1.cli", "#@ TITLE \"new\"\n");
    EXPECT_EQ(nSdsOf("new"), 0);
    EXPECT_EQ(nWaits, 1);
    setAge("db/p.1.cli", 10);
    EXPECT_EQ(nSdsOf("new"), 0);
    EXPECT_EQ(nWaits, 1);
    testWrite("db/p.1.cli", "#@ TITLE \"whole\"\n#@ NSDS 2\n#@ END\n");
    EXPECT_EQ(nSdsOf("whole"), 2);
    EXPECT_EQ(nWaits, 1);
}

/* ---------------------------------------------------------------------------------------------- files that grow */

/* Run 1 open, with a file that grows, and a clock that the test moves. The directory stays as old as it is. */
class rdbUpdateFiles : public ::testing::Test {
protected:
    sysMachState before = sysMach;
    static time_t now;
    rdbHd *hd = nullptr;

    void SetUp() override
    {
        now = time(nullptr);
        sysMach.time = [](time_t *where) { if (where) *where = now; return now; };
    }
    void TearDown() override
    {
        if (hd) rdbFree(hd);
        sysMach = before;
    }
    void openWith(const std::string &name)
    {
        makeDb();
        testWrite("db/" + name, "");
        setAge("db/" + name, 1000);
        hd = newHd("p", "db", nullptr);
        ASSERT_NE(hd, nullptr);
        checkAnswers(rdbOpenRun(hd, 1));
    }
};
time_t rdbUpdateFiles::now;

TEST_F(rdbUpdateFiles, topIsToldAfterAnOpenAndWhenItIsNewer)
{
    for (const char *form : { "", ".B", ".Z", ".H" }) {
        SCOPED_TRACE(form);
        const std::string name = std::string("p.1.top") + form, path = "db/" + name;
        openWith(name);
        EXPECT_EQ(updated(hd), 1);
        EXPECT_EQ(updated(hd), 0);
        setAge(path, 900);
        now += 5;
        EXPECT_EQ(updated(hd), 1);
        EXPECT_EQ(hd->lastUpdate, (int) now);
        EXPECT_EQ(updated(hd), 0);
        setAge(path, 950);                           /* older is not newer */
        EXPECT_EQ(updated(hd), 0);
        checkAnswers(rdbOpenRun(hd, 1));
        EXPECT_EQ(updated(hd), 1);
        rdbFree(hd);
        hd = nullptr;
        fs::remove_all("db");
    }
}

TEST_F(rdbUpdateFiles, topIsToldOnceAMinuteThoughItsTimeStands)
{
    openWith("p.1.top");
    EXPECT_EQ(updated(hd), 1);
    for (int minute = 0; minute < 2; ++minute) {
        const int last = hd->lastUpdate;
        now += 60;
        EXPECT_EQ(updated(hd), 0);
        EXPECT_EQ(hd->lastUpdate, last);
        now += 1;
        EXPECT_EQ(updated(hd), 1);
        EXPECT_EQ(hd->lastUpdate, last + 61);
        EXPECT_EQ(updated(hd), 0);
    }
    hd->lastUpdate = 0;                              /* nothing was ever told: no minute has begun */
    EXPECT_EQ(updated(hd), 0);
}

/* What was read is not told again, unless what was written shortly before it was read may have been written again. */
TEST_F(rdbUpdateFiles, topThatWasReadIsToldWhenItIsNewer)
{
    int n = -1;
    openWith("p.1.top");
    checkAnswers(rdbGetInt0(hd, "nSteps", &n));
    EXPECT_EQ(updated(hd), 0);
    setAge("db/p.1.top", 500);
    EXPECT_EQ(updated(hd), 1);
    setAge("db/p.1.top", 0);
    EXPECT_EQ(updated(hd), 1);
    checkAnswers(rdbOpenRun(hd, 1));
    checkAnswers(rdbGetInt0(hd, "nSteps", &n));
    EXPECT_EQ(updated(hd), 1);
    EXPECT_EQ(updated(hd), 0);
}

TEST_F(rdbUpdateFiles, topIsOfTheOpenRunAlone)
{
    openWith("p.2.top");
    EXPECT_EQ(updated(hd), 0);
    now += 61;
    EXPECT_EQ(updated(hd), 0);
    rdbCloseRun(hd);
    EXPECT_EQ(updated(hd), 0);
}

/* What was read from it stays until the run closes */
TEST_F(rdbUpdateFiles, topThatIsGoneIsNoChange)
{
    openWith("p.1.top");
    EXPECT_EQ(updated(hd), 1);
    int n = -1;
    checkAnswers(rdbGetInt0(hd, "nSteps", &n));
    const auto time = fs::last_write_time("db");
    fs::remove("db/p.1.top");
    fs::last_write_time("db", time);
    now += 61;
    EXPECT_EQ(updated(hd), 0);
    checkAnswers(rdbGetInt0(hd, "nSteps", &n));
    checkAnswers(rdbOpenRun(hd, 1));
    checkFails("unable to open ascii file", rdbGetInt0(hd, "nSteps", &n));
}

TEST_F(rdbUpdateFiles, familiesWithoutACacheAreNotTold)
{
    for (const char *ext : { "ofc", "ohc", "osi", "oss", "ori", "oqi", "oei", "oes", "oth", "tmf", "rff", "mmo", "fbd",
                             "dop" }) {
        SCOPED_TRACE(ext);
        const std::string name = std::string("p.1.") + ext;
        openWith(name);
        EXPECT_EQ(updated(hd), 0);
        setAge("db/" + name, -10);
        now += 61;
        EXPECT_EQ(updated(hd), 0);
        rdbFree(hd);
        hd = nullptr;
        fs::remove_all("db");
    }
}
