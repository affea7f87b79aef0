/* testSysMachine.cpp: host, clock, current directory, memory figures, waiting. */

#include <errno.h>
#include <math.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>

#include "base/sysInt.h"
#include "test/testUtil.h"

/* Each test has the state, and the table of system calls, to itself. */
class sysMachineTest : public ::testing::Test {
    sysMachState before = sysMach;

protected:
    void TearDown() override { sysMach = before; }
};

static int calls;

static int countedUname(struct utsname *names)
{
    ++calls;
    return uname(names);
}

static int failingUname(struct utsname *) { return -1; }

TEST_F(sysMachineTest, theHostNameIsAskedForOnce)
{
    strcpy(sysMach.hostName, "_unknown_");
    sysMach.uname = countedUname;
    calls = 0;
    char name[256] = "";
    ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
    EXPECT_EQ(sysHostName(), std::string(name).substr(0, 18));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(sysHostName(), std::string(name).substr(0, 18));
    EXPECT_EQ(calls, 1);
}

TEST_F(sysMachineTest, aHostWithoutNamesFails)
{
    strcpy(sysMach.hostName, "_unknown_");
    sysMach.uname = failingUname;
    checkFails("Error in uname", sysHostName());
    strcpy(sysMach.hostName, "known");
    checkReturns(EXPECT_STREQ(sysHostName(), "known"));
}

TEST_F(sysMachineTest, longNamesAreCut)
{
    sysMach.uname = [](struct utsname *names) {
        const std::string text = "0123456789abcdefghijklmnopqrstuvwxyz";
        for (char *field : { names->sysname, names->nodename, names->release, names->version, names->machine })
            strcpy(field, text.c_str());
        return 0;
    };
    sysUnameRec rec;
    EXPECT_EQ(sysUname(&rec), 0);
    for (const char *field : { rec.sysName, rec.release, rec.version, rec.machine })
        EXPECT_STREQ(field, "0123456789abcdefghi");
    EXPECT_STREQ(rec.nodeName, "0123456789abcdefgh");
}

TEST_F(sysMachineTest, thePlatformHeadsConfigurationKeys)
{
    EXPECT_STREQ(sysPlatform(), "win64");
}

TEST_F(sysMachineTest, dateIsTheTimeInWords)
{
    sysMach.time = [](time_t *) -> time_t { return 1615844884; };       /* 2021-03-15 21:48:04 in Greenwich */
    setenv("TZ", "UTC0", 1);
    tzset();
    EXPECT_STREQ(sysDate(), "Mon Mar 15 21:48:04 2021");
    EXPECT_EQ(sysTime(), 1615844884);
    unsetenv("TZ");
    tzset();
}

TEST_F(sysMachineTest, dateEndsInTheYear)
{
    const time_t at = time(nullptr);
    const std::string date = sysDate();
    struct tm parts;
    localtime_r(&at, &parts);
    ASSERT_EQ(date.size(), 24u);
    EXPECT_NEAR(std::stoi(date.substr(20)), parts.tm_year + 1900, 1);
    EXPECT_NEAR((double) sysTime(), (double) at, 5.0);
}

TEST_F(sysMachineTest, aClockThatFails)
{
    sysMach.time = [](time_t *) -> time_t { return -1; };
    checkFails("time not available", sysTime());
    checkFails("time not available", sysDate());
    checkFails("in Function <sysDate>", sysDate());
}

TEST_F(sysMachineTest, elapsedRunsForwardFromTheFirstCall)
{
    const double first = sysElapsed();
    EXPECT_GE(first, 0.0);
    double last = first;
    while (last == first) {
        const double next = sysElapsed();
        ASSERT_GE(next, last);
        last = next;
    }
    EXPECT_LT(last - first, 5.0);
    EXPECT_NEAR(last * 1000.0, round(last * 1000.0), 1e-6);     /* whole milliseconds */
}

TEST_F(sysMachineTest, theCurrentDirectoryChanges)
{
    char text[SYS_TEXT];
    std::filesystem::create_directory("below");
    checkReturns(sysGetCwd(text, sizeof text));
    EXPECT_EQ(text, testFolder());
    checkReturns(sysSetCwd("below"));
    checkReturns(sysGetCwd(text, sizeof text));
    EXPECT_EQ(text, testFolder() + "/below");
}

TEST_F(sysMachineTest, directoriesThatFail)
{
    char text[4];
    checkFails("Error in getcwd; Numerical result out of range", sysGetCwd(text, sizeof text));
    checkFails("Error in chdir to <no/such>; No such file or directory", sysSetCwd("no/such"));
}

static char *failingGetcwd(char *, size_t) { errno = EACCES; return nullptr; }
static int   failingChdir(const char *)    { errno = ENOENT; return -1; }
static int   countedChdir(const char *dir) { ++calls; return chdir(dir); }

TEST_F(sysMachineTest, syncGoesToTheDirectoryWhereItIs)
{
    sysMach.chdir = countedChdir;
    calls = 0;
    checkReturns(sysSync());
    EXPECT_EQ(calls, 1);
    char text[SYS_TEXT];
    sysGetCwd(text, sizeof text);
    EXPECT_EQ(text, testFolder());
}

TEST_F(sysMachineTest, syncThatFails)
{
    sysMach.chdir = failingChdir;
    checkFails("Error in chdir; No such file or directory", sysSync());
    sysMach.getcwd = failingGetcwd;
    checkFails("Error in getcwd; Permission denied", sysSync());
}

TEST_F(sysMachineTest, syncOffDoesNothing)
{
    sysMach.chdir = failingChdir;
    sysMach.getcwd = failingGetcwd;
    sysSyncOff();
    checkReturns(sysSync());
}

TEST_F(sysMachineTest, memoryFigures)
{
    EXPECT_GT(sysAvailRam(), 0);
    EXPECT_GE(sysSwapSize(), 0);
    /* the peak follows what is really used */
    const int64_t before = sysPeakMemory(), size = 64 << 20;
    EXPECT_GT(before, 1 << 20);
    volatile char *block = (char *) malloc((size_t) size);
    for (int64_t i = 0; i < size; i += 1024) block[i] = 1;
    EXPECT_GE(sysPeakMemory(), size);
    EXPECT_GE(sysPeakMemory(), before);
    free((void *) block);
}

TEST_F(sysMachineTest, waitingGoesThroughTheSleeper)
{
    sysSleep(3);
    sysSleep(0);
    sysSleep(-1);
    EXPECT_EQ(testSlept(), 3);
    static int own;
    own = 0;
    sysSleeper former = sysSetSleeper([](int seconds) { own += seconds; });
    sysSleep(2);
    EXPECT_NE(sysSetSleeper(nullptr), former);       /* gives ours, and restores the real one */
    EXPECT_NE(sysSetSleeper(former), former);        /* gives the real one */
    EXPECT_EQ(own, 2);
    EXPECT_EQ(testSlept(), 3);
}
