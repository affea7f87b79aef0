/* testSysMachine.cpp: host, clock, current directory, memory figures, waiting. */

#include <errno.h>
#include <math.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <vector>

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

static int failingUname(struct utsname *names)
{
    memset(names, 'y', sizeof *names);          /* half a name is no name */
    return -1;
}

static std::string thisHost()
{
    char name[256] = "";
    EXPECT_EQ(gethostname(name, sizeof name - 1), 0);
    return std::string(name).substr(0, 18);
}

TEST_F(sysMachineTest, theHostNameIsThatOfTheComputer)
{
    EXPECT_EQ(sysHostName(), thisHost());
}

TEST_F(sysMachineTest, theHostNameIsAskedForOnce)
{
    strcpy(sysMach.hostName, "_unknown_");
    sysMach.uname = countedUname;
    calls = 0;
    EXPECT_EQ(sysHostName(), thisHost());
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(sysHostName(), thisHost());
    EXPECT_EQ(calls, 1);
}

TEST_F(sysMachineTest, aHostWithoutNamesFails)
{
    strcpy(sysMach.hostName, "_unknown_");
    sysMach.uname = failingUname;
    checkFails("Error in uname", sysHostName());
    EXPECT_STREQ(sysMach.hostName, "_unknown_");                /* it is asked for again */
    sysUnameRec rec;
    memset(&rec, 'x', sizeof rec);
    EXPECT_EQ(sysUname(&rec), -1);
    for (const char *field : { rec.sysName, rec.nodeName, rec.release, rec.version, rec.machine })
        EXPECT_STREQ(field, "");
    strcpy(sysMach.hostName, "known");
    checkReturns(EXPECT_STREQ(sysHostName(), "known"));
}

TEST_F(sysMachineTest, longNamesAreCut)
{
    sysMach.uname = [](struct utsname *names) {
        strcpy(names->sysname,  "S-123456789abcdefghijklmnopqrstuvwxyz");
        strcpy(names->nodename, "N-123456789abcdefghijklmnopqrstuvwxyz");
        strcpy(names->release,  "R-123456789abcdefghijklmnopqrstuvwxyz");
        strcpy(names->version,  "V-123456789abcdefghijklmnopqrstuvwxyz");
        strcpy(names->machine,  "M-123456789abcdefghijklmnopqrstuvwxyz");
        return 0;
    };
    sysUnameRec rec;
    EXPECT_EQ(sysUname(&rec), 0);
    EXPECT_STREQ(rec.sysName,  "S-123456789abcdefgh");
    EXPECT_STREQ(rec.nodeName, "N-123456789abcdefg");
    EXPECT_STREQ(rec.release,  "R-123456789abcdefgh");
    EXPECT_STREQ(rec.version,  "V-123456789abcdefgh");
    EXPECT_STREQ(rec.machine,  "M-123456789abcdefgh");
}

TEST_F(sysMachineTest, thePlatformHeadsConfigurationKeys)
{
    EXPECT_STREQ(sysPlatform(), "win64");
}

TEST_F(sysMachineTest, dateIsTheLocalTimeInWords)
{
    sysMach.time = [](time_t *) -> time_t { return 1615844884; };       /* 2021-03-15 21:48:04 in Greenwich */
    static const struct { const char *zone, *date; } rows[] = {
        { "UTC0", "Mon Mar 15 21:48:04 2021" },
        { "ABC-3", "Tue Mar 16 00:48:04 2021" },        /* three hours east */
    };
    for (const auto &row : rows) {
        setenv("TZ", row.zone, 1);
        tzset();
        EXPECT_STREQ(sysDate(), row.date);
        EXPECT_EQ(sysTime(), 1615844884);
    }
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
    checkFails("in Function <sysTime>", sysTime());
    sysMach.time = [](time_t *) -> time_t { return INT64_MAX; };        /* a year beyond all calendars */
    checkFails("time not available", sysDate());
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

static struct timespec clockAt;

TEST_F(sysMachineTest, elapsedCountsWholeMilliseconds)
{
    sysMach.firstElapsed = -1;
    sysMach.clock = [](clockid_t, struct timespec *at) { return *at = clockAt, 0; };
    clockAt = { 1000, 999900000 };
    EXPECT_EQ(sysElapsed(), 0.0);
    clockAt = { 1001, 1100000 };
    EXPECT_EQ(sysElapsed(), 0.002);
    clockAt = { 4000001000, 499999999 };
    EXPECT_EQ(sysElapsed(), 3999999999.5);
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
    checkFails("Error in getcwd; Invalid argument", sysGetCwd(text, 0));
    checkFails("Error in getcwd; Invalid argument", sysGetCwd(text, -1));
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

/* a line of the system's own list, in megabytes; -1: it has none */
static int listed(const std::string &name)
{
    std::ifstream list("/proc/meminfo");
    std::string word;
    long kilobytes = 0;
    while (list >> word)
        if (word == name + ":" && list >> kilobytes) return (int) (kilobytes / 1024);
    return -1;
}

TEST_F(sysMachineTest, memoryFigures)
{
    const int ram = sysAvailRam();
    EXPECT_GT(ram, 0);
    EXPECT_GE(sysSwapSize(), 0);
    if (listed("SwapTotal") >= 0) {
        EXPECT_NEAR(sysSwapSize(), listed("SwapTotal"), 1);
    }
    if (listed("MemAvailable") >= 0) {
        EXPECT_LT(ram, 2 * listed("MemAvailable"));
        EXPECT_GT(ram, listed("MemAvailable") / 2);
    }
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
    static double own;
    own = 0;
    const sysSleeper ours = [](double seconds) { own += seconds; };
    const sysSleeper former = sysSetSleeper(ours);
    sysSleep(2);
    sysPause(0.25);
    sysPause(0);
    sysPause(-0.5);
    EXPECT_EQ(sysSetSleeper(nullptr), ours);         /* restores the real one */
    const sysSleeper real = sysSetSleeper(former);
    EXPECT_NE(real, ours);
    EXPECT_NE(real, former);
    EXPECT_EQ(own, 2.25);
    EXPECT_EQ(testSlept(), 3);
}

/* What is in force before anybody asks for another one */
static sysSleeper sleeperNow()
{
    const sysSleeper now = sysSetSleeper(nullptr);
    sysSetSleeper(now);
    return now;
}

static const sysSleeper sleeperOfTheProduct = sleeperNow();

TEST_F(sysMachineTest, theProductReallySleeps)
{
    const sysSleeper former = sysSetSleeper(nullptr);
    EXPECT_EQ(sleeperOfTheProduct, sysSetSleeper(former));
    EXPECT_EQ(sysMach.nanosleep, ::nanosleep);
}

/* The system's sleep, which a signal ends early once. */
static std::vector<struct timespec> naps;

static int interruptedNap(const struct timespec *wanted, struct timespec *left)
{
    naps.push_back(*wanted);
    if (naps.size() > 1) return 0;
    *left = { 1, 500000000 };
    errno = EINTR;
    return -1;
}

TEST_F(sysMachineTest, theRealSleepGoesOnAfterASignal)
{
    naps.clear();
    sysMach.nanosleep = interruptedNap;
    const sysSleeper former = sysSetSleeper(nullptr);
    sysSleep(2);
    sysPause(2.75);
    sysSetSleeper(former);
    ASSERT_EQ(naps.size(), 3u);
    EXPECT_EQ(naps[0].tv_sec, 2);
    EXPECT_EQ(naps[0].tv_nsec, 0);
    EXPECT_EQ(naps[1].tv_sec, 1);
    EXPECT_EQ(naps[1].tv_nsec, 500000000);
    EXPECT_EQ(naps[2].tv_sec, 2);
    EXPECT_EQ(naps[2].tv_nsec, 750000000);
}
