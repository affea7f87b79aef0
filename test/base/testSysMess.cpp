/* testSysMess.cpp: messages, failures, the trap, and the end of the process. */

#include <stdio_ext.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "base/sysInt.h"
#include "test/testUtil.h"

/* Each test has the state to itself. */
class sysMessTest : public ::testing::Test {
    std::unique_ptr<sysMessState> before{new sysMessState(sysMess)};

protected:
    void TearDown() override { sysMess = *before; }
};

/* What f prints on standard output and standard error. */
struct Printed {
    std::string out, err;
};

template <class F> static Printed printed(F f)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    f();
    fflush(stdout);
    fflush(stderr);
    Printed p;
    p.err = testing::internal::GetCapturedStderr();
    p.out = testing::internal::GetCapturedStdout();
    return p;
}

static std::vector<std::pair<sysEventKind, std::string>> events;
static void takeEvent(sysEventKind kind, const char *text) { events.emplace_back(kind, text); }

static std::string event(const std::string &text) { return "Process " + std::to_string(getpid()) + "; " + text; }

static void useEventLog()
{
    events.clear();
    sysMess.eventLog = 1;
    sysMess.eventSource = takeEvent;
}

/* ---------------------------------------- program name and version ---------------------------------------- */

TEST_F(sysMessTest, theStateBeforeAnyoneSetsIt)
{
    EXPECT_STREQ(sysGetProgName(), "QUENTA");
    EXPECT_STREQ(sysMess.progPath, "QUENTA");
    EXPECT_STREQ(sysGetVersion(), "1.0");
    EXPECT_EQ(sysMess.logFile, nullptr);
    EXPECT_EQ(sysMess.eventLog, 0);
    EXPECT_EQ(sysMess.stderrEcho, 0);
    EXPECT_EQ(sysMess.eventMask, 0xffu);
    EXPECT_EQ(sysMess.eventSource, nullptr);
    EXPECT_EQ(sysMess.trapDepth, -1);
    EXPECT_EQ(sysMess.nExitHandlers, 0);
}

TEST_F(sysMessTest, progNameLosesDirectoryAndLastExtension)
{
    static const struct { const char *path, *name; } rows[] = {
        { "paraview",                     "paraview"  },     /* neither directory nor dot: as it stands */
        { "/opt/a.b/pv.exe",              "pv"        },
        { "C:\\Program Files\\pv.exe",    "pv"        },
        { "/opt/x\\bin\\pv.5.9",          "pv.5"      },     /* both separators and two dots */
        { "C:\\x/pv.5.9",                 "pv.5"      },
        { "a\\b/c\\d.e",                  "d"         },
        { "a\\b/c",                       "c"         },
        { "dir/",                         ""          },
        { ".profile",                     ""          },
        { "",                             ""          },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.path);
        sysSetProgName(row.path);
        EXPECT_STREQ(sysGetProgName(), row.name);
        EXPECT_STREQ(sysMess.progPath, row.path);
    }
}

TEST_F(sysMessTest, progNameMayBeSetToItself)
{
    sysSetProgName("/opt/pv.exe");
    sysSetProgName(sysGetProgName());
    EXPECT_STREQ(sysGetProgName(), "pv");
    strcpy(sysMess.progName, "longdirectory/name.x");           /* source and target overlap */
    sysSetProgName(sysMess.progName);
    EXPECT_STREQ(sysGetProgName(), "name");
}

TEST_F(sysMessTest, progNameOf8192CharactersFailsAndOf8191IsTaken)
{
    const std::string dir = "/some/where/";
    const std::string fits = dir + std::string(8191, 'p'), tooLong = dir + std::string(8192, 'p');
    checkReturns(sysSetProgName(fits.c_str()));
    EXPECT_EQ(sysGetProgName(), std::string(8191, 'p'));
    sysSetProgName("pv");
    checkFails("program name is too long <ppp", sysSetProgName(tooLong.c_str()));
    EXPECT_STREQ(sysGetProgName(), "pv");
    EXPECT_EQ(sysMess.progPath, tooLong.substr(0, 8191));           /* the path was taken before the test */
    /* the extension counts: it goes after the test */
    const std::string fitsWith = std::string(8189, 'p') + ".x", tooLongWith = std::string(8190, 'p') + ".x";
    checkFails("program name is too long <ppp", sysSetProgName(tooLongWith.c_str()));
    checkReturns(sysSetProgName(fitsWith.c_str()));
    EXPECT_EQ(sysGetProgName(), std::string(8189, 'p'));
}

TEST_F(sysMessTest, aLongPathIsCutInTheProgramPathOnly)
{
    sysSetProgName((std::string(9000, 'd') + "/pv.exe").c_str());
    EXPECT_STREQ(sysGetProgName(), "pv");
    EXPECT_EQ(sysMess.progPath, std::string(8191, 'd'));
}

TEST_F(sysMessTest, versionOf8192CharactersFailsAndOf8191IsTaken)
{
    sysSetVersion("2021.1");
    EXPECT_STREQ(sysGetVersion(), "2021.1");
    const std::string fits(8191, 'v'), tooLong(8192, 'v');
    checkFails("version is too long <vvv", sysSetVersion(tooLong.c_str()));
    EXPECT_STREQ(sysGetVersion(), "2021.1");
    checkReturns(sysSetVersion(fits.c_str()));
    EXPECT_EQ(sysGetVersion(), std::string(8191, 'v'));
}

/* ------------------------------------------------ printers ------------------------------------------------ */

/* Where a line goes, for each state of log file, event log and standard-error echo. */
TEST_F(sysMessTest, whereMessagesAndErrorsGo)
{
    static const struct {
        int logFile, eventLog, echo;
        int messOut, messErr, messEvent;
        int errOut, errEvent;
    } rows[] = {
        { 0, 0, 0,   1, 0, 0,   1, 0 },
        { 1, 0, 0,   0, 0, 0,   1, 0 },      /* a log file silences a message but not an error */
        { 0, 1, 0,   0, 0, 1,   0, 1 },
        { 1, 1, 0,   0, 0, 1,   0, 0 },      /* an error in the log file is no event */
        { 0, 0, 1,   0, 1, 0,   1, 0 },
        { 1, 0, 1,   0, 1, 0,   1, 0 },
        { 0, 1, 1,   0, 1, 1,   0, 1 },
        { 1, 1, 1,   0, 1, 1,   0, 0 },
    };
    sysSetProgName("pv");
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << "log " << row.logFile << " events " << row.eventLog << " echo " << row.echo);
        useEventLog();
        sysMess.eventLog = row.eventLog;
        sysMess.stderrEcho = row.echo;
        sysMess.logFile = row.logFile ? fopen("log", "w") : nullptr;

        Printed mess = printed([] { sysMessage("step <%d> of %s", 7, "run"); });
        EXPECT_EQ(mess.out, row.messOut ? "pv: step <7> of run\n" : "");
        EXPECT_EQ(mess.err, row.messErr ? "pv: step <7> of run\n" : "");
        ASSERT_EQ(events.size(), (size_t) row.messEvent);
        if (row.messEvent) {
            EXPECT_EQ(events[0].first, SYS_EVENT_INFO);
            EXPECT_EQ(events[0].second, event("step <7> of run"));
        }

        events.clear();
        Printed err = printed([] { sysErrorMessage("no file <%s>", "a.1.cli"); });
        EXPECT_EQ(err.out, row.errOut ? "pv: *** ERROR: no file <a.1.cli>\n" : "");
        EXPECT_EQ(err.err, "");
        ASSERT_EQ(events.size(), (size_t) row.errEvent);
        if (row.errEvent) {
            EXPECT_EQ(events[0].first, SYS_EVENT_ERROR);
            EXPECT_EQ(events[0].second, event("no file <a.1.cli>"));
        }

        if (row.logFile) {
            fclose(sysMess.logFile);
            EXPECT_EQ(testRead("log"), "pv: step <7> of run\npv: *** ERROR: no file <a.1.cli>\n");
        }
    }
}

TEST_F(sysMessTest, aForeignTextIsNoFormat)
{
    sysSetProgName("100%s%n");
    Printed p = printed([] { sysMessage("%s", "%s%n%d"); });
    EXPECT_EQ(p.out, "100%s%n: %s%n%d\n");
    EXPECT_EQ(trapped([] { sysError("%s%n%d"); }), "100%s%n: *** ERROR: %s%n%d\n");
    EXPECT_EQ(trapped([] { sysAssert("%s%n", "%s", "%n", 1); }),
              "100%s%n: *** ASSERTION in Function <%s> File <%n> Line <1>\n100%s%n: *** %s%n");
    useEventLog();
    sysMessage("%s", "%s%n%d");
    sysErrorMessage("%s", "%n");
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].second, event("%s%n%d"));
    EXPECT_EQ(events[1].second, event("%n"));
}

TEST_F(sysMessTest, anErrorLineDoesNotChangeTheTrapDepth)
{
    rdbAssertEnv();
    const int depth = sysMess.trapDepth;
    Printed p = printed([] { sysErrorMessage("bad"); });
    EXPECT_EQ(p.out, "QUENTA: *** ERROR: bad\n");
    EXPECT_EQ(sysMess.trapDepth, depth);
    rdbAssertEndTrap();
}

TEST_F(sysMessTest, eventLevels)
{
    static const struct { int level, reported; sysEventKind kind; } rows[] = {
        { 0, 0, SYS_EVENT_ERROR   },     /* no bit in common with any mask */
        { 1, 1, SYS_EVENT_ERROR   },
        { 2, 1, SYS_EVENT_ERROR   },
        { 3, 1, SYS_EVENT_ERROR   },
        { 4, 1, SYS_EVENT_WARNING },
        { 5, 1, SYS_EVENT_ERROR   },
        { 6, 1, SYS_EVENT_INFO    },
        { 7, 1, SYS_EVENT_ERROR   },
        { 8, 0, SYS_EVENT_ERROR   },     /* only the low three bits count */
        { 12, 1, SYS_EVENT_WARNING },
    };
    useEventLog();
    for (const auto &row : rows) {
        SCOPED_TRACE(row.level);
        events.clear();
        sysEventLog(row.level, "%s %d", "level", row.level);
        ASSERT_EQ(events.size(), (size_t) row.reported);
        if (!row.reported) continue;
        EXPECT_EQ(events[0].first, row.kind);
        EXPECT_EQ(events[0].second, event("level " + std::to_string(row.level)));
    }
}

TEST_F(sysMessTest, eventsOutsideTheMaskAreNotReported)
{
    useEventLog();
    sysMess.eventMask = 4;
    sysEventLog(3, "dropped");
    sysEventLog(6, "kept");
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].second, event("kept"));
}

TEST_F(sysMessTest, longEventsAreCutAt1023Characters)
{
    useEventLog();
    sysEventLog(3, "%s", std::string(5000, 'e').c_str());
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].second, event(std::string(5000, 'e')).substr(0, 1023));
}

TEST_F(sysMessTest, withoutASourceEventsAreDropped)
{
    sysMess.eventLog = 1;
    Printed p = printed([] { sysMessage("nobody listens"); });
    EXPECT_EQ(p.out + p.err, "");
}

/* 1023 characters of the text itself are kept before the head comes in front of it and it is cut again. */
TEST_F(sysMessTest, longMessagesAreCutAsEvents)
{
    useEventLog();
    sysMessage("%s", std::string(5000, 'm').c_str());
    sysErrorMessage("%s", std::string(1000, 'e').c_str());
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].second, event(std::string(5000, 'm')).substr(0, 1023));
    EXPECT_EQ(events[1].second, event(std::string(1000, 'e')).substr(0, 1023));
}

TEST_F(sysMessTest, useEventLogTellsTheMode)
{
    EXPECT_EQ(sysUseEventLog(), 0);
    sysMess.eventLog = 1;
    EXPECT_EQ(sysUseEventLog(), 1);
}

/* ------------------------------------------------ the trap ------------------------------------------------ */

TEST_F(sysMessTest, theUntrappedDepthStays)
{
    ASSERT_EQ(sysMess.trapDepth, -1);
    EXPECT_EQ(rdbAssertEndTrap(), -1);
    EXPECT_EQ(sysMess.trapDepth, -1);
}

TEST_F(sysMessTest, beyond100LevelsTheLastIsUsedAgain)
{
    jmp_buf *last = nullptr;
    for (int i = 0; i < 101; ++i) {
        jmp_buf *env = rdbAssertEnv();
        EXPECT_EQ(env, &sysMess.traps[i < 100 ? i : 99]);
        last = env;
    }
    EXPECT_EQ(last, &sysMess.traps[99]);
    EXPECT_EQ(sysMess.trapDepth, 99);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(rdbAssertEndTrap(), 98 - i);
    EXPECT_EQ(sysMess.trapDepth, -1);
}

TEST_F(sysMessTest, aTrappedFailurePrintsNothingAndLeavesTwoLines)
{
    sysSetProgName("pv");
    std::string text;
    auto fail = [] { sysAssert("nNodes <3> error", "rdb_crd", "rdb/rdbGeom.cpp", 12); };
    Printed p = printed([&] { text = trapped(fail); });
    EXPECT_EQ(text, "pv: *** ASSERTION in Function <rdb_crd> File <rdb/rdbGeom.cpp> Line <12>\n"
                    "pv: *** nNodes <3> error");
    EXPECT_EQ(p.out + p.err, "");
}

TEST_F(sysMessTest, theJumpGivesOneAndLeavesTheTrapArmed)
{
    volatile int landed = 0;
    int value = setjmp(*rdbAssertEnv());
    if (value == 0) sysFail("bad");
    landed = value;
    EXPECT_EQ(landed, 1);
    EXPECT_EQ(sysMess.trapDepth, 0);
    EXPECT_EQ(rdbAssertEndTrap(), -1);
}

TEST_F(sysMessTest, theInnermostTrapCatches)
{
    std::string inner;
    const std::string outer = trapped([&] {
        inner = trapped([] { sysFail("inner"); });
        sysFail("outer");
    });
    EXPECT_NE(inner.find("*** inner"), std::string::npos);
    EXPECT_NE(outer.find("*** outer"), std::string::npos);
}

static void failingFunction(int n) { sysFail("nRows  <%d> error", n); }

TEST_F(sysMessTest, sysFailAddsWhereItStands)
{
    const std::string text = trapped([] { failingFunction(5); });
    const char *head = "QUENTA: *** ASSERTION in Function <failingFunction> File <test/base/testSysMess.cpp> Line <";
    EXPECT_EQ(text.find(head), 0u) << text;
    EXPECT_NE(text.find(">\nQUENTA: *** nRows  <5> error"), std::string::npos) << text;
    checkFails("in Function <rdb_crd> File <test/base", sysFailIn("rdb_crd", "bad"));
}

TEST_F(sysMessTest, longTextsAreCut)
{
    const std::string longText(20000, 'x');
    std::string text = trapped([&] { sysFail("%s", longText.c_str()); });
    EXPECT_NE(text.find("*** " + std::string(8191, 'x')), std::string::npos);
    EXPECT_EQ(text.find(std::string(8192, 'x')), std::string::npos);
    text = trapped([&] { sysAssert(longText.c_str(), "f", "f.cpp", 1); });
    EXPECT_EQ(text.size(), 8703u);
    text = trapped([&] { sysError(longText.c_str()); });
    EXPECT_EQ(text.size(), 8703u);
}

TEST_F(sysMessTest, theTrapTextStaysUntilTheNextFailure)
{
    (void) trapped([] { sysError("first"); });
    EXPECT_STREQ(rdbAssertErrorStr(), "QUENTA: *** ERROR: first\n");
    checkReturns(sysSetVersion("2"));
    EXPECT_STREQ(rdbAssertErrorStr(), "QUENTA: *** ERROR: first\n");
    (void) trapped([] { sysError("2nd"); });
    EXPECT_STREQ(rdbAssertErrorStr(), "QUENTA: *** ERROR: 2nd\n");
}

TEST_F(sysMessTest, theTrapTextCanBeTheMessageOfTheNextFailure)
{
    (void) trapped([] { sysAssert("deep", "f", "f.cpp", 1); });
    const std::string text = trapped([] { sysAssert(rdbAssertErrorStr(), "g", "g.cpp", 2); });
    EXPECT_EQ(text, "QUENTA: *** ASSERTION in Function <g> File <g.cpp> Line <2>\n"
                    "QUENTA: *** QUENTA: *** ASSERTION in Function <f> File <f.cpp> Line <1>\n"
                    "QUENTA: *** deep");
}

TEST_F(sysMessTest, fixedFieldsLoseTrailingBlanks)
{
    static const struct { const char *fields, *function, *message; } rows[] = {
        { "tplGetJac       Negative jac    ", "tplGetJac",        "Negative jac"     },
        { "0123456789abcdefABCDEFGHIJKLMNOP", "0123456789abcdef", "ABCDEFGHIJKLMNOP" },
        { " lead blank      a b            ", " lead blank",      " a b"             },
        { "                                ", " ",                " "                },
        { "fifteen letters one blank here  ", "fifteen letters",  "one blank here"   },
    };
    for (const auto &row : rows) {
        const std::string expected = std::string("QUENTA: *** ASSERTION in Function <") + row.function +
                                     ">\nQUENTA: *** " + row.message + "\n";
        EXPECT_EQ(trapped([&] { sysAssertFixed(row.fields); }), expected);
        EXPECT_EQ(trapped([&] { sysAssertFixed2(row.fields, row.fields + 16); }), expected);
    }
    EXPECT_EQ(trapped([] { sysAssertFixed2("tplGetJac", "bad"); }),
              "QUENTA: *** ASSERTION in Function <tplGetJac>\nQUENTA: *** bad\n");
}

TEST_F(sysMessTest, whatStandsBehindAFixedFieldIsNotTaken)
{
    const std::string expected = "QUENTA: *** ASSERTION in Function <tplGetJac>\nQUENTA: *** Negative jac\n";
    EXPECT_EQ(trapped([] { sysAssertFixed("tplGetJac       Negative jac    more"); }), expected);
    EXPECT_EQ(trapped([] { sysAssertFixed2("tplGetJac       more", "Negative jac    more"); }), expected);
}

TEST_F(sysMessTest, trappedFixedAssertionsAndErrorsPrintNothing)
{
    useEventLog();
    for (int eventLog : { 0, 1 }) {
        sysMess.eventLog = eventLog;
        Printed p = printed([] {
            (void) trapped([] { sysAssertFixed2("tplGetJac", "bad"); });
            (void) trapped([] { sysError("bad"); });
            (void) trapped([] { sysFail("bad"); });
        });
        EXPECT_EQ(p.out + p.err, "");
    }
    EXPECT_TRUE(events.empty());
}

TEST_F(sysMessTest, errorsHaveNoLocation)
{
    EXPECT_EQ(trapped([] { sysError("no license"); }), "QUENTA: *** ERROR: no license\n");
    EXPECT_EQ(trapped([] { sysErrorF("no %s <%d>", "file", 3); }), "QUENTA: *** ERROR: no file <3>\n");
    const std::string longText(20000, 'x');
    EXPECT_EQ(trapped([&] { sysErrorF("%s", longText.c_str()); }),
              "QUENTA: *** ERROR: " + std::string(8191, 'x') + "\n");
}

/* ------------------------------------------------- the end ------------------------------------------------ */

/* In the processes below, waiting shows on standard error, whatever else still waits in a buffer. */
static void showSleep(double seconds) { dprintf(STDERR_FILENO, "[%g s]", seconds); }
static void showHandler(void *argument, int code) { fprintf(stderr, "{%s %d}", (const char *) argument, code); }
static void showEvent(sysEventKind kind, const char *text) { fprintf(stderr, "%d %s", (int) kind, strchr(text, ';')); }

/* Both streams into one, as in a log, with large buffers; something waits in that of standard output. */
static void waitingOutput(const char *text)
{
    dup2(STDERR_FILENO, STDOUT_FILENO);
    setvbuf(stdout, nullptr, _IOFBF, 1 << 16);
    setvbuf(stderr, nullptr, _IOFBF, 1 << 16);
    fputs(text, stdout);
}

class sysMessDeathTest : public sysMessTest {
    sysSleeper former = sysSetSleeper(showSleep);

protected:
    void TearDown() override
    {
        sysSetSleeper(former);
        sysMessTest::TearDown();
    }
};

TEST_F(sysMessDeathTest, anUntrappedAssertionEndsWithOne)
{
    EXPECT_EXIT(sysAssert("bad", "f", "f.cpp", 9), testing::ExitedWithCode(1),
                "^\nQUENTA: \\*\\*\\* ASSERTION in Function <f> File <f.cpp> Line <9>\n"
                "QUENTA: \\*\\*\\* bad\n\\[1 s\\]\\[1 s\\]$");
}

TEST_F(sysMessDeathTest, anUntrappedFixedAssertionEndsWithOne)
{
    EXPECT_EXIT(sysAssertFixed2("tplGetJac", "bad"), testing::ExitedWithCode(1),
                "^\nQUENTA: \\*\\*\\* ASSERTION in Function <tplGetJac>\nQUENTA: \\*\\*\\* bad\n\\[1 s\\]\\[1 s\\]$");
}

TEST_F(sysMessDeathTest, anUntrappedErrorEndsWithOne)
{
    EXPECT_EXIT(sysError("bad"), testing::ExitedWithCode(1), "^\nQUENTA: \\*\\*\\* ERROR: bad\n\\[1 s\\]\\[1 s\\]$");
}

/* what was printed before is not overtaken, and the failure is out before the first second */
TEST_F(sysMessDeathTest, whatWasPrintedStandsBeforeTheFailure)
{
    static const struct { void (*fail)(); const char *head, *end; } rows[] = {
        { [] { sysAssert("bad", "f", "f.cpp", 9); }, "ASSERTION in Function <f> File <f.cpp> Line <9>", "bad" },
        { [] { sysAssertFixed2("f", "bad"); },       "ASSERTION in Function <f>",                       "bad" },
        { [] { sysError("bad"); },                   "ERROR: bad",                                      ""    },
    };
    for (const auto &row : rows) {
        const std::string second = *row.end ? std::string("QUENTA: \\*\\*\\* ") + row.end + "\n" : "";
        EXPECT_EXIT((waitingOutput("before"), row.fail()), testing::ExitedWithCode(1),
                    std::string("^before\nQUENTA: \\*\\*\\* ") + row.head + "\n" + second + "\\[1 s\\]\\[1 s\\]$");
    }
}

/* Standard output as the action leaves it: what waits, whether it goes line by line, the size of its buffer. */
static void showStdout(void (*action)())
{
    if (!freopen("/dev/null", "w", stdout)) abort();
    setvbuf(stdout, nullptr, _IOFBF, 1 << 16);
    fputs("some", stdout);
    action();
    fprintf(stderr, "%zu %d %zu", __fpending(stdout), __flbf(stdout) != 0, __fbufsize(stdout));
    _exit(0);
}

TEST_F(sysMessDeathTest, flushingAndLineBufferingLeaveAnEventLogsOutputAlone)
{
    static const struct { void (*action)(); int eventLog; const char *state; } rows[] = {
        { sysFlushStdout,                         0, "^0 0 [0-9]+$" },
        { sysFlushStdout,                         1, "^4 0 [0-9]+$" },
        { sysLineBuffer,                          0, "^0 1 1024$"   },
        { [] { sysLineBuffer(); sysLineBuffer(); }, 0, "^0 1 1024$" },
        { sysLineBuffer,                          1, "^4 0 [0-9]+$" },
    };
    for (const auto &row : rows) {
        sysMess.eventLog = row.eventLog;
        EXPECT_EXIT(showStdout(row.action), testing::ExitedWithCode(0), row.state) << "event log " << row.eventLog;
    }
}

TEST_F(sysMessDeathTest, onlyAnAssertionWithALocationCanBeAnEvent)
{
    sysMess.eventLog = 1;
    sysMess.eventSource = showEvent;
    EXPECT_EXIT(sysAssertFixed2("f", "bad"), testing::ExitedWithCode(1),
                "^\nQUENTA: \\*\\*\\* ASSERTION in Function <f>\nQUENTA: \\*\\*\\* bad\n\\[1 s\\]\\[1 s\\]$");
    EXPECT_EXIT(sysError("bad"), testing::ExitedWithCode(1),
                "^\nQUENTA: \\*\\*\\* ERROR: bad\n\\[1 s\\]\\[1 s\\]$");
}

TEST_F(sysMessDeathTest, withTheEventLogAnAssertionIsAnEvent)
{
    sysMess.eventLog = 1;
    sysMess.eventSource = showEvent;
    EXPECT_EXIT(sysAssert("bad %d", "f", "f.cpp", 9), testing::ExitedWithCode(1),
                "^1 ; QUENTA: \\*\\*\\* ASSERTION in Function <f> File <f.cpp> Line <9>\n"
                "QUENTA: \\*\\*\\* bad %d\\[1 s\\]\\[1 s\\]$");
}

TEST_F(sysMessDeathTest, anEndWithZeroDoesNotSleep)
{
    EXPECT_EXIT(sysExit(0), testing::ExitedWithCode(0), "^$");
}

TEST_F(sysMessDeathTest, anEndWithAnotherCodeSleepsTwice)
{
    EXPECT_EXIT(sysExit(3), testing::ExitedWithCode(3), "^\\[1 s\\]\\[1 s\\]$");
}

TEST_F(sysMessDeathTest, exitHandlersRunBackwardsBetweenTheSleeps)
{
    static char first[] = "first", second[] = "second";
    static sysExitHandler handlers[] = { { showHandler, first }, { showHandler, second } };
    sysMess.exitHandlers = handlers;
    sysMess.nExitHandlers = 2;
    EXPECT_EXIT(sysExit(3), testing::ExitedWithCode(3), "^\\[1 s\\]\\{second 3\\}\\{first 3\\}\\[1 s\\]$");
}

/* what was printed comes before the first second, what the handlers print before the second one */
TEST_F(sysMessDeathTest, outputIsThereBeforeTheSleeps)
{
    static sysExitHandler handlers[] = { { [](void *, int) { fputs("from a handler", stdout); }, nullptr } };
    sysMess.exitHandlers = handlers;
    sysMess.nExitHandlers = 1;
    EXPECT_EXIT((waitingOutput("before"), sysExit(1)), testing::ExitedWithCode(1),
                "^before\\[1 s\\]from a handler\\[1 s\\]$");
}

TEST_F(sysMessDeathTest, handlersPrintLineByLine)
{
    static sysExitHandler handlers[] = { { [](void *, int) {
        fputs("one\ntwo", stdout);
        dprintf(STDERR_FILENO, "(error)");
    }, nullptr } };
    sysMess.exitHandlers = handlers;
    sysMess.nExitHandlers = 1;
    EXPECT_EXIT((waitingOutput(""), sysExit(0)), testing::ExitedWithCode(0), "^one\n\\(error\\)two$");
}

TEST_F(sysMessDeathTest, aHandlerMayRemoveHandlers)
{
    static char first[] = "first", second[] = "second";
    static sysExitHandler handlers[] = {
        { showHandler, first },
        { showHandler, second },
        { [](void *, int) { sysMess.nExitHandlers = 1; }, nullptr },
    };
    sysMess.exitHandlers = handlers;
    sysMess.nExitHandlers = 3;
    EXPECT_EXIT(sysExit(0), testing::ExitedWithCode(0), "^\\{first 0\\}$");
    handlers[2].function = [](void *, int) { sysMess.nExitHandlers = 0; };
    EXPECT_EXIT(sysExit(0), testing::ExitedWithCode(0), "^$");
}

TEST_F(sysMessDeathTest, aHandlerMayMoveTheHandlers)
{
    static char first[] = "first", elsewhere[] = "elsewhere";
    static sysExitHandler moved[] = { { showHandler, elsewhere } };
    static sysExitHandler handlers[2] = {};
    handlers[0] = { showHandler, first };
    handlers[1] = { [](void *, int) {
        sysMess.exitHandlers = moved;
        handlers[0] = handlers[1] = {};
    }, nullptr };
    sysMess.exitHandlers = handlers;
    sysMess.nExitHandlers = 2;
    EXPECT_EXIT(sysExit(0), testing::ExitedWithCode(0), "^\\{elsewhere 0\\}$");
}

/* its own turn is over: the others run, and the process ends with the failure's code */
TEST_F(sysMessDeathTest, aHandlerThatFailsRunsOnce)
{
    static char first[] = "first";
    static sysExitHandler handlers[] = {
        { showHandler, first },
        { [](void *, int) { sysError("bad"); }, nullptr },
    };
    sysMess.exitHandlers = handlers;
    sysMess.nExitHandlers = 2;
    EXPECT_EXIT(sysExit(0), testing::ExitedWithCode(1),
                "^\nQUENTA: \\*\\*\\* ERROR: bad\n\\[1 s\\]\\{first 1\\}\\[1 s\\]$");
}

TEST_F(sysMessDeathTest, aHandlerMayAddAHandler)
{
    static char first[] = "first", added[] = "added";
    static sysExitHandler handlers[2] = {};
    handlers[0] = { showHandler, first };
    handlers[1] = { [](void *, int) { handlers[1] = { showHandler, added }; sysMess.nExitHandlers = 2; }, nullptr };
    sysMess.exitHandlers = handlers;
    sysMess.nExitHandlers = 2;
    EXPECT_EXIT(sysExit(0), testing::ExitedWithCode(0), "^\\{added 0\\}\\{first 0\\}$");
}
