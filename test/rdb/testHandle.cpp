/* testHandle.cpp: making and ending a handle, the error text, and the directory guard. */

#include <unistd.h>

#include "base/cnf.h"
#include "test/rdb/clientInC.h"
#include "test/rdb/plainDb.h"
#include "test/rdb/smallRun.h"

/* -------------------------------------------------------------------------------------------------- making a handle */

TEST(rdbHandle, knowsWhatItWasMadeOf)
{
    makeDb();
    rdbHd *hd = newHd("p", "db", nullptr, 4);
    ASSERT_NE(hd, nullptr);
    EXPECT_EQ(hd->magic, 0x15FBE44);
    EXPECT_EQ(hd->verbose, 4);
    EXPECT_EQ(hd->remote, 0);
    char text[RDB_TEXT];
    int  id = 0;
    checkAnswers(rdbGetStr0(hd, "problem", text));
    EXPECT_STREQ(text, "p");
    checkAnswers(rdbGetStr0(hd, "dir", text));
    EXPECT_STREQ(text, "db");
    checkAnswers(rdbGetInt0(hd, "openRunId", &id));
    EXPECT_EQ(id, -1);
    rdbFree(hd);
}

TEST(rdbHandle, undefinedProblem)
{
    makeDb();
    EXPECT_EQ(newHd("_undefined", "db", nullptr), nullptr);
    EXPECT_STREQ(rdbGetError(), "Undefined problem");
}

TEST(rdbHandle, invalidDirectory)
{
    makeDb();
    for (const char *dir : { "none", "db/p.1.cli", "" }) {
        EXPECT_EQ(newHd("p", dir, nullptr), nullptr);
        EXPECT_EQ(rdbGetError(), "Invalid directory <" + std::string(dir) + ">");
    }
    const std::string longName(5000, 'd');
    EXPECT_EQ(newHd("p", longName.c_str(), nullptr), nullptr);
    EXPECT_EQ(rdbGetError(), "Invalid directory <" + longName + ">");
}

TEST(rdbHandle, problemNotFound)
{
    makeDb();
    EXPECT_EQ(newHd("q", "db", nullptr), nullptr);
    EXPECT_STREQ(rdbGetError(), "problem q not found");
}

/* A directory unpacked from an archive may be as old as time itself. */
TEST(rdbHandle, directoryFromTheEpochIsScanned)
{
    makeDb();
    for (int seconds : { 0, -3600 }) {
        fs::last_write_time("db", fs::file_time_type(fs::file_time_type::clock::now().time_since_epoch() -
                                                     (std::chrono::system_clock::now().time_since_epoch() -
                                                      std::chrono::seconds(seconds))));
        rdbHd *hd = newHd("p", "db", nullptr);
        ASSERT_NE(hd, nullptr) << rdbGetError();
        EXPECT_EQ(hd->nRuns, 1);
        rdbFree(hd);
    }
}

static const char *const args[] = { "test" };

static void configure(const char *verbose)
{
    const std::string row = std::string("verbose:verbose:v:") + verbose + ":int:-:verbosity";
    const char *const specs[] = { "problem:problem:pb:p:str:-:problem name", "dir:dir:dir:db:str:-:directory",
                                  row.c_str(), nullptr };
    checkReturns(cnfInit(specs, 1, args));
}

TEST(rdbHandle, nullArgumentsComeFromTheConfiguration)
{
    makeDb();
    configure("3");
    rdbHd *hd = newHd(nullptr, nullptr, nullptr, -1);
    ASSERT_NE(hd, nullptr) << rdbGetError();
    EXPECT_STREQ(hd->problem, "p");
    EXPECT_STREQ(hd->dir, "db");
    EXPECT_EQ(hd->verbose, 3);
    rdbFree(hd);
}

/* What opening a run whose file names no volume sets prints */
static std::string printed(int verbose)
{
    ::testing::internal::CaptureStdout();
    rdbHd *hd = newHd("p", "db", nullptr, verbose);
    if (hd) checkAnswers(rdbOpenRun(hd, 1));
    if (hd) rdbFree(hd);
    fflush(stdout);
    return ::testing::internal::GetCapturedStdout();
}

TEST(rdbHandle, verboseZeroIsSilentWhateverTheConfigurationSays)
{
    makeDb();
    testWrite("db/p.1.cli", "#@ CNN p.1.cnn \"e\" n 1 type 3 nen 4 quad 2 medium 1 rff 0 thick 0 tol 0\n#@ END\n");
    configure("4");
    EXPECT_NE(printed(-1).find("Volume set for element set \"e\" created"), std::string::npos);
    EXPECT_EQ(printed(0), "");
    EXPECT_EQ(printed(3), "");
    configure("3");
    EXPECT_EQ(printed(-1), "");
}

/* ------------------------------------------------------------------------------------------------------- error text */

TEST(rdbHandleDeathTest, errorTextIsEmptyAtFirst)
{
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";     /* a process that has asked for nothing */
    EXPECT_EXIT(_exit(rdbGetError() && !*rdbGetError() ? 0 : 1), ::testing::ExitedWithCode(0), "");
}

TEST(rdbHandle, secondFailureReplacesTheFirstWhole)
{
    rdbSetError("a long text about %d things", 3);
    rdbSetError("short");
    EXPECT_STREQ(rdbGetError(), "short");
    rdbSetError("%s", "");
    EXPECT_STREQ(rdbGetError(), "");
}

TEST(rdbHandle, errorTextIsCutAtItsEnd)
{
    const std::string large(20000, 'x');
    rdbSetError("%s", large.c_str());
    EXPECT_EQ(rdbGetError(), std::string(8703, 'x'));
}

TEST(rdbHandle, errorTextMayHoldTheFormerOne)
{
    rdbSetError("inner");
    rdbSetError("outer: %s", rdbGetError());
    EXPECT_STREQ(rdbGetError(), "outer: inner");
}

TEST(rdbHandle, namesAreNoFormats)
{
    fs::create_directories("db");
    EXPECT_EQ(newHd("p%s%n", "db", nullptr), nullptr);
    EXPECT_STREQ(rdbGetError(), "problem p%s%n not found");
    EXPECT_EQ(newHd("p", "%n%s", nullptr), nullptr);
    EXPECT_STREQ(rdbGetError(), "Invalid directory <%n%s>");
}

TEST(rdbHandle, trapTextAndErrorTextAreTwo)
{
    makeDb();
    rdbSetError("the last returned failure");
    checkFails("Badly placed parenthesis", rdbNew("p(", "db", nullptr, 0));
    EXPECT_STREQ(rdbGetError(), "the last returned failure");
}

TEST(rdbHandle, nullHandleIsRefused)
{
    int flag = 7;
    checkRefused("rdb not initialized", rdbOpenRun(nullptr, 1));
    checkRefused("rdb not initialized", rdbCloseRun(nullptr));
    checkRefused("rdb not initialized", rdbUpdate(nullptr, &flag));
    EXPECT_EQ(flag, 7);
}

/* -------------------------------------------------------------------------------------------------- directory guard */

TEST(rdbHandle, pdirOfOneDotIsNone)
{
    makeDb();
    const std::string home = here();
    for (const char *pdir : { (const char *) nullptr, "." }) {
        rdbHd *hd = newHd("p", "db", pdir);
        ASSERT_NE(hd, nullptr);
        EXPECT_EQ(hd->pdir, nullptr);
        EXPECT_EQ(hd->savedCwd, nullptr);
        rdbEnter(hd);
        EXPECT_EQ(hd->dirDepth, 0);
        EXPECT_EQ(here(), home);
        rdbLeave(hd);
        rdbFree(hd);
    }
}

TEST(rdbHandle, callsWorkInPdirAndComeBack)
{
    makeDb("case");
    const std::string home = here(), inside = home + "/case";
    rdbHd *hd = newHd("p", "db", "case");
    ASSERT_NE(hd, nullptr) << rdbGetError();
    EXPECT_EQ(here(), home);
    EXPECT_EQ(hd->dirDepth, 0);

    rdbEnter(hd);
    EXPECT_EQ(here(), inside);
    rdbEnter(hd);                                    /* nested: stays, and comes back with the outer one alone */
    EXPECT_EQ(here(), inside);
    rdbLeave(hd);
    EXPECT_EQ(here(), inside);
    rdbLeave(hd);
    EXPECT_EQ(here(), home);

    int flag, value;
    char text[RDB_TEXT];
    checkAnswers(rdbUpdate(hd, &flag));
    checkAnswers(rdbOpenRun(hd, 1));
    checkAnswers(rdbGetStr1(hd, "fileName", text, 0));
    checkRefused("noSuchKey not found", rdbGetInt0(hd, "noSuchKey", &value));
    checkRefused("run not opened", (rdbCloseRun(hd), rdbGetInt0(hd, "nNodes", &value)));
    checkRefused("runId 9 not found", rdbOpenRun(hd, 9));
    EXPECT_EQ(here(), home);
    EXPECT_EQ(hd->dirDepth, 0);
    rdbFree(hd);
    EXPECT_EQ(here(), home);
}

TEST(rdbHandle, failedOpenStaysInPdir)
{
    makeDb("case");
    const std::string home = here(), inside = home + "/case";
    EXPECT_EQ(newHd("p", "none", "case"), nullptr);
    EXPECT_STREQ(rdbGetError(), "Invalid directory <none>");
    EXPECT_EQ(here(), inside);
    fs::current_path(home);
    EXPECT_EQ(newHd("q", "db", "case"), nullptr);
    EXPECT_STREQ(rdbGetError(), "problem q not found");
    EXPECT_EQ(here(), inside);
    fs::current_path(home);
    EXPECT_EQ(newHd("_undefined", "db", "case"), nullptr);        /* found out before the folder is entered */
    EXPECT_EQ(here(), home);
}

TEST(rdbHandle, missingPdirFails)
{
    makeDb();
    checkFails("Error in chdir to <nowhere>; ", rdbNew("p", "db", "nowhere", 0));
}

TEST(rdbHandle, trappedFailureStaysInPdirForLaterCallsToo)
{
    makeDb("case");
    const std::string home = here(), inside = home + "/case";
    rdbHd *hd = newHd("p", "db", "case");
    ASSERT_NE(hd, nullptr);
    testWrite("case/db/p.01.cli", "");
    touch("case/db");
    int flag, value = 0;
    checkFails("Duplicate key <1>", rdbUpdate(hd, &flag));
    EXPECT_EQ(here(), inside);
    EXPECT_GT(hd->dirDepth, 0);
    checkAnswers(rdbGetInt0(hd, "nFiles", &value));
    EXPECT_EQ(value, 2);
    EXPECT_EQ(here(), inside);
    rdbFree(hd);
}

/* The folder may come and go: a handle that could not enter it enters it when it is there. */
TEST(rdbHandle, folderThatCannotBeEnteredIsTriedAgain)
{
    makeDb("case");
    const std::string home = here();
    rdbHd *hd = newHd("p", "db", "case");
    ASSERT_NE(hd, nullptr);
    fs::rename("case", "away");
    int flag, value = 0;
    checkFails("Error in chdir to <case>; ", rdbGetInt0(hd, "nRuns", &value));
    checkFails("Error in chdir to <case>; ", rdbUpdate(hd, &flag));
    EXPECT_EQ(hd->dirDepth, 0);
    EXPECT_EQ(here(), home);
    fs::rename("away", "case");
    rdbEnter(hd);
    EXPECT_EQ(here(), home + "/case");
    rdbLeave(hd);
    EXPECT_EQ(here(), home);
    checkAnswers(rdbUpdate(hd, &flag));
    checkAnswers(rdbOpenRun(hd, 1));
    rdbFree(hd);
}

/* ----------------------------------------------------------------------------------------------------------- ending */

static int64_t residentBytes()
{
    long long pages = 0, resident = 0;
    EXPECT_EQ(sscanf(testRead("/proc/self/statm").c_str(), "%lld %lld", &pages, &resident), 2);
    return resident * sysconf(_SC_PAGESIZE);
}

/* A name too long for an expression makes a scan fail when the handle has it already. The sanitizer keeps what was
   freed for a while, but tells of leaks itself. */
TEST(rdbHandle, halfMadeHandleIsFreedByTheNextCall)
{
    makeDb();
    const std::string large((size_t) 1 << 20, 'p');
    const int64_t before = residentBytes();
    for (int i = 0; i < 24; ++i) checkFails("problem name is too long", rdbNew(large.c_str(), "db", nullptr, 0));
#if !defined(__SANITIZE_ADDRESS__)
    EXPECT_LT(residentBytes() - before, (int64_t) 12 << 20);
#else
    (void) before;
#endif
    rdbHd *hd = newHd("p", "db", nullptr);
    ASSERT_NE(hd, nullptr);
    rdbFree(hd);
}

TEST(rdbHandle, freeingClosesTheRunFirst)
{
    const SmallRun small;
    small.write();
    for (int p = 0; p < small.nSds(); ++p)           /* no longer written to: what is old is kept open */
        setAge(SmallRun::partName(5, p) + small.suffix(), 60);
    const int before = nOpenFiles();
    rdbHd *hd = SmallRun::open();
    double values[15];
    checkAnswers(rdbGetReals2(hd, "outValues", values, 0, 0, 3, 5));
    EXPECT_EQ(hd->runId, 1);
    EXPECT_GT(nOpenFiles(), before);
    rdbFree(hd);                                     /* a leak of the run shows under the sanitizer */
    EXPECT_EQ(nOpenFiles(), before);
}

TEST(rdbHandle, closingWithoutARunSucceeds)
{
    makeDb();
    rdbHd *hd = newHd("p", "db", nullptr);
    ASSERT_NE(hd, nullptr);
    checkAnswers(rdbCloseRun(hd));
    checkAnswers(rdbOpenRun(hd, 1));
    checkAnswers(rdbCloseRun(hd));
    checkAnswers(rdbCloseRun(hd));
    EXPECT_EQ(hd->runId, -1);
    rdbFree(hd);
}

/* ------------------------------------------------------------------------------------------------------------- in C */

TEST(rdbFromC, aRunIsRead)
{
    SmallRun().write();
    int nNodes = 0;
    double crd[3] = { -1, -1, -1 };
    char lastKey[RDB_TEXT];
    checkReturns(EXPECT_EQ(clientReadRun("p", &nNodes, crd, lastKey), 0) << rdbGetError());
    EXPECT_EQ(nNodes, 5);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(crd[k], SmallRun::crd(0, k));
    EXPECT_STREQ(lastKey, "volUsrIds");
}

TEST(rdbFromC, aFailureIsTrapped)
{
    char text[1000] = "";
    testWrite("p.1.cli", "");
    EXPECT_EQ(clientIsTrapped("p", text, sizeof text), 0);
    EXPECT_EQ(clientIsTrapped("p(", text, sizeof text), 1);
    EXPECT_NE(strstr(text, "ASSERTION in Function <rdbUpdateDir>"), nullptr) << text;
}
