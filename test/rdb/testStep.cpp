/* testStep.cpp: what is kept of step files between two requests, and files that change while they are read. */

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "test/rdb/outRun.h"
#include "tool/runWriter.h"

/* -------------------------------------------------------------------------- what is kept between two requests */

TEST(outKept, oneOpenServesAllArraysOfAStep)
{
    for (const auto &form : smallForms)
        for (bool merged : { false, true }) {
            SmallRun run = manyVars();
            run.form = form.form;
            run.merged = merged;
            run.steps = { 5, 7 };
            run.write();
            letSettle();
            rdbHd    *hd = SmallRun::open();
            const int before = nOpenFiles(), nFiles = merged ? 1 : 2;
            for (int v : { 4, 0, 10, 3 }) {
                EXPECT_EQ(valuesOf(hd, v, 0, run.vars[v].dim), expected(run, 5, v));
                EXPECT_EQ(nOpenFiles() - before, nFiles);
            }
            EXPECT_EQ(valuesOf(hd, 1, 1, 1), expected(run, 7, 1));          /* the other step's instead */
            EXPECT_EQ(nOpenFiles() - before, nFiles);
            rdbDropReading(hd->run);
            EXPECT_EQ(nOpenFiles(), before);
            EXPECT_EQ(valuesOf(hd, 1, 1, 1), expected(run, 7, 1));
            checkAnswers(rdbCloseRun(hd));
            EXPECT_EQ(nOpenFiles(), before);
            rdbFree(hd);
            clearFolder();
        }
}

/* The clock of a file server may be ahead: its files are left to rest once, and not for each array */
TEST(outKept, aFileWhoseTimeIsStillToCome)
{
    SmallRun run;
    run.write();
    letSettle(-3600);
    rdbHd *hd = SmallRun::open();
    int    n = 0;
    checkAnswers(rdbGetInt0(hd, "nOutVars", &n));
    const int before = nOpenFiles(), nPauses = testPaused();
    for (int v : { 0, 1, 2 }) {
        EXPECT_EQ(valuesOf(hd, v, 0, run.vars[v].dim), expected(run, 5, v));
        EXPECT_EQ(nOpenFiles(), before + 2);
        EXPECT_EQ(testPaused(), nPauses + 1);
    }
    EXPECT_EQ(testSlept(), 0);
    rdbFree(hd);
}

static struct stat statOf(const std::string &name)
{
    struct stat st = {};
    EXPECT_EQ(stat(name.c_str(), &st), 0) << name;
    return st;
}

static bool sameTime(const struct timespec &a, const struct timespec &b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

/* To a whole second: what a file system without fractions of one tells */
static void setChanged(const std::string &name, time_t second)
{
    const struct timespec times[2] = { { second, 0 }, { second, 0 } };
    EXPECT_EQ(utimensat(AT_FDCWD, name.c_str(), times, 0), 0) << name;
}

/* A file that has just changed is not kept. Where only whole seconds are told, a tenth of one is not enough. A run of the test that took too long says nothing
   and is tried again. */
TEST(outKept, wholeSecondsSettleLater)
{
    SmallRun run;
    run.write();
    rdbHd    *hd = SmallRun::open();
    const int before = nOpenFiles();
    double    age = 2;
    for (int times = 0; times < 20 && age >= 2; ++times) {
        struct timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        const time_t second = now.tv_nsec < 300000000 ? now.tv_sec - 1 : now.tv_sec;
        for (int p = 0; p < 2; ++p) setChanged(SmallRun::partName(5, p) + ".B", second);
        EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 5, 0));
        const int after = nOpenFiles();
        clock_gettime(CLOCK_REALTIME, &now);
        age = (double) (now.tv_sec - second) + 1e-9 * (double) now.tv_nsec;
        if (age >= 2) continue;
        EXPECT_EQ(after, before);
    }
    EXPECT_LT(age, 2);
    for (int p = 0; p < 2; ++p) setChanged(SmallRun::partName(5, p) + ".B", time(nullptr) - 3);
    EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 5, 0));
    EXPECT_EQ(nOpenFiles(), before + 2);
    rdbFree(hd);
}

/* Rewritten in its place with a shorter header, as long as it was, and with the old time put back */
TEST(outKept, aFileWithItsOldTimePutBackIsReadAnew)
{
    SmallRun run = manyVars(), shorter = run;
    run.merged = shorter.merged = true;
    shorter.omitFilms = shorter.omitFields = true;
    run.write();
    shorter.writeStep(6);
    const std::string name = SmallRun::mergedName(5) + ".B";
    const time_t      second = time(nullptr) - 60;
    std::string       other = testRead(SmallRun::mergedName(6) + ".B");
    other.resize(testRead(name).size());
    setChanged(name, second);
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 5, 2));
    const struct stat was = statOf(name);
    do {
        testWrite(name, other);
        setChanged(name, second);
    } while (sameTime(statOf(name).st_ctim, was.st_ctim));
    ASSERT_TRUE(sameTime(statOf(name).st_mtim, was.st_mtim));
    ASSERT_EQ(statOf(name).st_size, was.st_size);
    EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 6, 2));
    EXPECT_EQ(valuesOf(hd, 7, 0, 1), expected(run, 6, 7));
    rdbFree(hd);
}

/* Two changes that one tick of the clock holds: the times are the same, and the size tells the one from the other. The
   tries go on until the clock was that slow; each of them must find the right values. */
TEST(outKept, aFileOfAnotherSizeIsWalkedAnew)
{
    SmallRun run = manyVars(), shorter = run;
    run.merged = shorter.merged = true;
    shorter.omitFilms = shorter.omitFields = true;
    run.write();
    rdbHd            *hd = SmallRun::open();
    const std::string name = SmallRun::mergedName(5) + ".B", whole = testRead(name);
    shorter.writeStep(5);
    const std::string cut = testRead(name);
    const time_t      second = time(nullptr) - 60;
    int               same = 0;
    for (int times = 0; times < 100 && !same; ++times) {
        testWrite(name, whole);
        setChanged(name, second);
        setChanged(name, second);
        EXPECT_EQ(valuesOf(hd, 5, 0, 1), expected(run, 5, 5));
        const struct stat was = statOf(name);
        testWrite(name, cut);
        setChanged(name, second);
        EXPECT_EQ(valuesOf(hd, 5, 0, 1), expected(run, 5, 5));
        same = sameTime(statOf(name).st_ctim, was.st_ctim);
    }
    rdbFree(hd);
}

/* The same size and times, told apart by the place on disk alone */
TEST(outKept, aFileInAnotherPlaceIsReadAnew)
{
    SmallRun run = manyVars();
    run.merged = true;
    run.write();
    run.writeStep(6);
    const std::string name = SmallRun::mergedName(5) + ".B";
    const time_t      second = time(nullptr) - 60;
    fs::rename(name, "old");
    fs::rename(SmallRun::mergedName(6) + ".B", "new");
    int same = 0;
    for (int times = 0; times < 1000 && !same; ++times) {
        for (const char *file : { "old", "new", "old", "new" }) setChanged(file, second);
        same = sameTime(statOf("old").st_ctim, statOf("new").st_ctim);
    }
    ASSERT_TRUE(same);
    fs::create_symlink("old", name);
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 5, 2));
    fs::remove(name);
    fs::create_symlink("new", name);
    EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 6, 2));
    EXPECT_EQ(valuesOf(hd, 7, 0, 1), expected(run, 6, 7));
    rdbFree(hd);
}

/* The same size, and the values of another step in the same places */
TEST(outKept, aFileThatWasReplacedIsReadAnew)
{
    for (bool merged : { false, true })
        for (bool byRename : { false, true }) {
            SCOPED_TRACE(std::string(merged ? "merged " : "") + (byRename ? "renamed" : "rewritten"));
            SmallRun run = manyVars();
            run.merged = merged;
            run.write();
            letSettle();
            rdbHd *hd = SmallRun::open();
            EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 5, 2));

            run.writeStep(6);
            for (int p = 0; p < (merged ? 1 : 2); ++p) {
                const std::string from = (merged ? SmallRun::mergedName(6) : SmallRun::partName(6, p)) + ".B";
                const std::string to   = (merged ? SmallRun::mergedName(5) : SmallRun::partName(5, p)) + ".B";
                if (byRename) fs::rename(from, to);
                else testWrite(to, testRead(from));
            }
            letSettle(30);
            EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 6, 2));
            EXPECT_EQ(valuesOf(hd, 7, 0, 1), expected(run, 6, 7));
            rdbFree(hd);
            clearFolder();
        }
}

/* A longer header moves everything: old locations would give nonsense */
TEST(outKept, aFileOfAnotherLayoutIsWalkedAnew)
{
    SmallRun run = manyVars();
    run.merged = true;
    run.write();
    letSettle();
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(valuesOf(hd, 5, 0, 1), expected(run, 5, 5));
    run.omitFilms = run.omitFields = true;
    run.writeStep(5);
    letSettle(30);
    EXPECT_EQ(valuesOf(hd, 5, 0, 1), expected(run, 5, 5));
    EXPECT_EQ(valuesOf(hd, 6, 0, 1), expected(run, 5, 6));
    rdbFree(hd);
}

TEST(outKept, aFileThatHasGoneFails)
{
    SmallRun run;
    run.write();
    letSettle();
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 5, 0));
    remove("p.1_5_1.out.B");
    double values[15];
    checkFails("unable to open binary file <./p.1_5_1.out.B>", rdbGetReals2(hd, "outValues", values, 0, 0, 3, 5));
    run.writeStep(5);
    EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 5, 0));
    rdbFree(hd);
}

TEST(outKept, aReadThatJumpedOutLeavesNothingBehind)
{
    for (bool merged : { false, true }) {
        SmallRun run = manyVars();
        run.merged = merged;
        run.write();
        letSettle();
        rdbHd    *hd = SmallRun::open();
        const int before = nOpenFiles();
        EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 5, 1));

        const std::string last = merged ? run.firstName(5) : SmallRun::partName(5, 1) + ".B", whole = testRead(last);
        testWrite(last, whole.substr(0, whole.size() - 300));
        letSettle(30);
        double values[10];
        EXPECT_NE(trapped([&] { rdbGetReals2(hd, "outValues", values, 10, 0, 2, 5); }), "");
        testWrite(last, whole);
        letSettle(20);
        EXPECT_EQ(valuesOf(hd, 10, 0, 2), expected(run, 5, 10));
        rdbDropReading(hd->run);
        EXPECT_EQ(nOpenFiles(), before);
        rdbFree(hd);
        clearFolder();
    }
}

/* Where the read before has stopped does not matter to the next: it fails in the same way, or not at all */
TEST(outKept, aDamagedArrayFailsTheSameEachTime)
{
    for (const auto &form : smallForms)
        for (bool merged : { false, true }) {
            SmallRun run;
            run.form = form.form;
            run.merged = merged;
            run.write();
            {
                tool::TokenFile f(merged ? SmallRun::mergedName(5) : SmallRun::partName(5, 0), form.form);
                SmallRun bad = run;
                bad.vars = { { "vel", 3 }, { "pres", 2 }, { "temp", 1 } };
                bad.putPart(f, 5, 0);
                if (merged) bad.putPart(f, 5, 1);
            }
            letSettle();
            rdbHd *hd = SmallRun::open();
            EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 5, 0));
            double values[5];
            for (int times = 0; times < 2; ++times)
                checkFails("data out of order: expected <1> found <2>",
                           rdbGetReals2(hd, "outValues", values, 1, 0, 1, 5));
            EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 5, 2));
            EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 5, 0));
            rdbFree(hd);
            clearFolder();
        }
}

/* A failure says the same whether the keys before it were walked over in this request or in one before */
TEST(outKept, aFailureSaysTheSameAsOnAFreshHandle)
{
    enum { SIZES, KEY, CUT, N_DAMAGES };
    for (const auto &form : smallForms)
        for (bool merged : { false, true })
            for (int damage = 0; damage < N_DAMAGES; ++damage)
                for (int first = 0; first < 4; ++first) {
                    SCOPED_TRACE(std::string(form.name) + (merged ? ", merged, " : ", ") + std::to_string(damage));
                    SmallRun run = manyVars(), bad = run;
                    run.form = form.form;
                    run.merged = merged;
                    run.write();
                    if (damage == SIZES) bad.vars[4].dim = 2;
                    if (damage == KEY) bad.vars[4].key = "edd";
                    if (damage == CUT) bad.vars.resize(4);
                    {
                        tool::TokenFile f(merged ? SmallRun::mergedName(5) : SmallRun::partName(5, 1), form.form);
                        if (merged) run.putPart(f, 5, 0);
                        bad.putPart(f, 5, 1);
                    }
                    letSettle();
                    double values[5];
                    std::string texts[2];
                    for (int kept : { 0, 1 }) {
                        rdbHd *hd = SmallRun::open();
                        if (kept) {
                            EXPECT_EQ(valuesOf(hd, first, 0, run.vars[first].dim), expected(run, 5, first));
                        }
                        texts[kept] = trapped([&] { rdbGetReals2(hd, "outValues", values, 4, 0, 1, 5); });
                        rdbFree(hd);
                    }
                    EXPECT_NE(texts[0].find(" token <"), std::string::npos) << texts[0];
                    EXPECT_EQ(texts[0], texts[1]);
                    clearFolder();
                }
}

/* A file that is open, and whose bytes change with nothing that tells it from what it was: writing to a page that is
   mapped and dirty already moves no time. Each request asks for the bytes anew. */
TEST(outKept, whatWasReadAheadIsForgotten)
{
    SmallRun run;
    run.parts = { { 0, 1, 2, 3, 4 } };
    run.write();
    run.writeStep(6);
    const std::string name = SmallRun::partName(5, 0) + ".B", other = testRead(SmallRun::partName(6, 0) + ".B");
    const int         fd = open(name.c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    char *bytes = (char *) mmap(nullptr, other.size(), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ASSERT_NE(bytes, MAP_FAILED);
    *(volatile char *) bytes = bytes[0];
    letSettle();
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 5, 1));
    memcpy(bytes, other.data(), other.size());
    EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 6, 1));
    EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 6, 2));
    rdbFree(hd);
    munmap(bytes, other.size());
    close(fd);
}

/* n nodes, no multiple of 7, in so many parts, none of which has rows that follow one another */
static void spread(SmallRun &run, int n, int nParts)
{
    run.usrIds.clear();
    run.parts.assign((size_t) nParts, {});
    run.sets = { {}, {}, {} };
    for (int i = 0; i < n; ++i) run.usrIds.push_back(i + 1), run.parts[i % nParts].push_back(i * 7 % n);
}

/* Beyond a number of files only the places are kept */
TEST(outKept, manyParts)
{
    SmallRun run;
    spread(run, 200, 200);
    run.write();
    letSettle();
    rdbHd    *hd = SmallRun::open();
    const int before = nOpenFiles();
    for (int v : { 2, 0, 1, 2 }) {
        EXPECT_EQ(valuesOf(hd, v, 0, run.vars[v].dim), expected(run, 5, v));
        EXPECT_LE(nOpenFiles() - before, 64);
        EXPECT_GE(nOpenFiles() - before, 1);
    }
    rdbFree(hd);
}

TEST(outKept, aProcessThatMayOpenFewFiles)
{
    SmallRun run;
    spread(run, 100, 100);
    run.write();
    letSettle();
    rdbHd        *hd = SmallRun::open();
    const int     before = nOpenFiles();
    struct rlimit usual, few;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    few = usual;
    few.rlim_cur = 40;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    for (int v : { 2, 0, 1 }) EXPECT_EQ(valuesOf(hd, v, 0, run.vars[v].dim), expected(run, 5, v));
    EXPECT_LE(nOpenFiles() - before, 5);
    setrlimit(RLIMIT_NOFILE, &usual);
    rdbFree(hd);
}

static struct rlimit openFiles;                                   /* as it was                                    */

/* The process may open files again. Meanwhile part 5 has become another one, whose header is shorter. */
static void replaceAndAllow()
{
    setrlimit(RLIMIT_NOFILE, &openFiles);
    rename("new", "p.1_5_5.out.B");
}

/* Between the look at a file and the opening of it, that is: when its places are thought to be known */
TEST(outKept, aFileThatIsReplacedWhileItIsOpenedAgain)
{
    SmallRun run = manyVars();
    spread(run, 10, 10);
    run.write();
    SmallRun other = run;
    other.omitFilms = other.omitFields = true;
    other.writeStep(6);
    rename("p.1_6_5.out.B", "new");
    letSettle();
    rdbHd *hd = SmallRun::open();
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &openFiles), 0);
    struct rlimit few = openFiles;
    few.rlim_cur = 40;                                            /* five of them are kept open */
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 5, 2));

    few.rlim_cur = 0;                                             /* the next open waits */
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    testWhenSleeping(replaceAndAllow);
    std::vector<double> values = expected(run, 5, 3);
    for (int k = 0; k < 2; ++k) values[5 * 2 + k] = SmallRun::value(6, 3, 5, k);
    EXPECT_EQ(valuesOf(hd, 3, 0, 2), values);
    EXPECT_EQ(testSlept(), 2);                                    /* for the open, and before the second reading */
    EXPECT_EQ(valuesOf(hd, 3, 0, 2), values);
    rdbFree(hd);
}

/* Of two runs that are read in turns the files of the last one are kept, and the other is as right without */
TEST(outKept, onlyOfOneRunAtATime)
{
    SmallRun run;
    run.write();
    letSettle();
    const int before = nOpenFiles();
    rdbHd    *hds[2] = { SmallRun::open(), SmallRun::open() };
    for (int times = 0; times < 2; ++times)
        for (rdbHd *hd : hds) {
            EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 5, 1));
            EXPECT_EQ(hds[0]->run->stepFiles != nullptr, hd == hds[0]);
            EXPECT_EQ(hds[1]->run->stepFiles != nullptr, hd == hds[1]);
            EXPECT_EQ(nOpenFiles() - before, 2);
        }
    checkReturns(rdbFree(hds[1]));
    EXPECT_EQ(nOpenFiles(), before);
    EXPECT_EQ(valuesOf(hds[0], 2, 0, 1), expected(run, 5, 2));
    checkReturns(rdbFree(hds[0]));
    EXPECT_EQ(nOpenFiles(), before);
}

TEST(outKept, aListThatLostAFileIsSeen)
{
    SmallRun run;
    run.write();
    letSettle();
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 5, 1));
    remove("p.1_5_1.out.B");
    checkReturns(rdbUpdateDir(hd));
    double values[5];
    checkRefused(".out file not found", rdbGetReals2(hd, "outValues", values, 1, 0, 1, 5));
    run.merged = true;                                            /* and now the merged form instead */
    run.writeStep(5);
    remove("p.1_5_0.out.B");
    letSettle();
    checkReturns(rdbUpdateDir(hd));
    EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 5, 1));
    rdbFree(hd);
}


/* ---------------------------------------------------------------------------------- what is kept: compressed files */

/* For its life zcat notes each of its starts */
struct CountedZcat {
    const std::string before = getenv("PATH"), folder = testFolder();
    CountedZcat()
    {
        fs::create_directory("bin");
        testWrite("bin/zcat", "#!/bin/sh\necho >> " + folder + "/bin/starts\nPATH=" + before + " exec zcat \"$@\"\n");
        chmod("bin/zcat", 0755);
        setenv("PATH", (folder + "/bin:" + before).c_str(), 1);
    }
    ~CountedZcat() { setenv("PATH", before.c_str(), 1); }
    CountedZcat(const CountedZcat &) = delete;

    /* since the last question */
    static int starts()
    {
        const int n = (int) testRead("bin/starts").size();
        testWrite("bin/starts", "");
        return n;
    }
};

static bool hasChildren()
{
    siginfo_t info = {};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD;
}

static SmallRun compressedVars()
{
    SmallRun run = manyVars();
    run.form = tool::Form::compressed;
    return run;
}

TEST(outKept, inTheOrderOfTheFileItIsDecodedOnce)
{
    SmallRun run = compressedVars();
    run.steps = { 5, 7 };
    run.write();
    CountedZcat zcat;
    letSettle();
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 5, 0));
    CountedZcat::starts();
    for (int v = 1; v < 11; ++v) EXPECT_EQ(valuesOf(hd, v, 0, run.vars[v].dim), expected(run, 5, v));
    EXPECT_EQ(CountedZcat::starts(), 0);
    for (int v = 0; v < 11; v += 3) EXPECT_EQ(valuesOf(hd, v, 1, run.vars[v].dim), expected(run, 7, v));
    EXPECT_EQ(CountedZcat::starts(), 2);                          /* a part each */
    EXPECT_TRUE(hasChildren());
    checkAnswers(rdbCloseRun(hd));
    EXPECT_FALSE(hasChildren());
    rdbFree(hd);
}

/* In the order of the file or not, its parts behind one another or each for itself. Pieces of the text are smaller than
   a part, so that going back is not served by them. */
TEST(outKept, eachFileIsDecodedOnce)
{
    for (int nParts : { 1, 2, 5 })
        for (bool merged : { false, true }) {
            SCOPED_TRACE(std::to_string(nParts) + (merged ? " parts, merged" : " parts"));
            SmallRun run = compressedVars();
            run.merged = merged;
            spread(run, 4000, nParts);
            run.write();
            CountedZcat zcat;
            letSettle();
            rdbHd *hd = SmallRun::open();
            int    n = 0;
            checkAnswers(rdbGetInt0(hd, "nOutVars", &n));
            checkReturns(EXPECT_EQ(rdbReadDdc(hd), 1));
            CountedZcat::starts();
            for (int v = 0; v < 11; ++v) EXPECT_EQ(valuesOf(hd, v, 0, run.vars[v].dim), expected(run, 5, v)) << v;
            for (int v : { 10, 0, 5, 5, 4, 10, 9, 1, 2 })
                EXPECT_EQ(valuesOf(hd, v, 0, run.vars[v].dim), expected(run, 5, v)) << v;
            EXPECT_EQ(CountedZcat::starts(), merged ? 1 : nParts);
            EXPECT_EQ(testSlept(), 0);
            checkAnswers(rdbCloseRun(hd));
            EXPECT_FALSE(hasChildren());
            rdbFree(hd);
            clearFolder();
        }
}

/* Where nothing can be kept of the text it is decoded anew */
TEST(outKept, backInACompressedFileWithoutRoom)
{
    const TestVariable folder("TMPDIR", "none");
    for (bool merged : { false, true }) {
        SmallRun run = compressedVars();
        run.merged = merged;
        spread(run, 4000, 2);
        run.write();
        letSettle();
        rdbHd *hd = SmallRun::open();
        for (int v : { 10, 0, 5, 5, 4, 10, 9, 1, 2 })
            EXPECT_EQ(valuesOf(hd, v, 0, run.vars[v].dim), expected(run, 5, v)) << v;
        EXPECT_EQ(testSlept(), 0);
        checkAnswers(rdbCloseRun(hd));
        EXPECT_FALSE(hasChildren());
        rdbFree(hd);
        clearFolder();
    }
}

/* Each is a program that waits */
TEST(outKept, fewProgramsAtATime)
{
    SmallRun run = compressedVars();
    spread(run, 40, 40);
    run.write();
    letSettle();
    rdbHd    *hd = SmallRun::open();
    const int before = nOpenFiles();
    for (int v : { 0, 1, 4, 2 }) {
        EXPECT_EQ(valuesOf(hd, v, 0, run.vars[v].dim), expected(run, 5, v));
        EXPECT_EQ(nOpenFiles() - before, 2 * 16);                 /* a pipe, and what has come through it */
    }
    rdbFree(hd);
}

TEST(outKept, aCompressedFileThatWasReplaced)
{
    SmallRun run = compressedVars();
    run.write();
    letSettle();
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 5, 2));
    run.writeStep(6);
    for (int p = 0; p < 2; ++p)
        fs::rename(SmallRun::partName(6, p) + ".Z", SmallRun::partName(5, p) + ".Z");
    letSettle(30);
    EXPECT_EQ(valuesOf(hd, 3, 0, 2), expected(run, 6, 3));
    EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 6, 2));
    rdbFree(hd);
}

/* --------------------------------------------------------------------------- what is kept: outputs on surface sets */

static const struct { const char *ext, *key; bool hasParts; } setFams[] = {
    { "osf", "osfValues", true  },
    { "orf", "rsfValues", true  },
    { "oqf", "srsValues", false },
};

/* Run 1 of "pipe" with all families on sets, in two parts that share nodes */
static tool::RunSpec setSpec(tool::Form form, bool merged)
{
    tool::RunSpec spec;
    spec.dataDir = ".";
    spec.nx = 4;
    spec.ny = spec.nz = 2;
    spec.nSds = 2;
    spec.form = form;
    spec.merged = merged;
    spec.setSteps(2, 9, 1);
    for (const auto &fam : setFams) {
        tool::SetFamSpec out;
        out.ext = fam.ext;
        spec.setFamilies.push_back(out);
    }
    return spec;
}

/* The array i of family f on a set */
static void checkSetArray(rdbHd *hd, const tool::RunModel &model, int f, int set, int i, int step)
{
    const tool::SetFamSpec &fam = model.spec.setFamilies[f];
    const int               row = setOutVars(fam)[i], dim = setOutDim(model, fam, row);
    std::vector<double>     right, values;
    for (int node : setOutNodes(model, fam, set))
        for (int k = 0; k < dim; ++k) right.push_back(setOutValue(model, fam, set, row, k, node, step));
    values.assign(right.size(), untouched);
    checkAnswers(rdbGetReals3(hd, setFams[f].key, values.data(), set, i, step, -1, -1));
    EXPECT_EQ(values, right) << fam.ext << " " << i << " of set " << set << " at " << step;
}

/* All arrays of a step of each family, forth and back, its files being opened once */
TEST(setKept, oneOpenServesAllArraysOfASet)
{
    for (const tool::FormRow &form : tool::formRows)
        for (bool merged : { false, true }) {
            SCOPED_TRACE(std::string(form.word) + (merged ? ", merged" : ""));
            const tool::RunModel model(setSpec(form.value, merged));
            tool::writeRun(model);
            letSettle();
            rdbHd    *hd = openPipe();
            const int before = nOpenFiles();                      /* of a pipe what has come through it is kept, too */
            const int perFile = form.value == tool::Form::container ? 0 : form.value == tool::Form::compressed ? 2 : 1;
            int       nFiles = 0;
            for (int step : { 0, 1 }) {
                for (int f = 0; f < 3; ++f) {
                    const tool::SetFamSpec &fam = model.spec.setFamilies[f];
                    const int               n = (int) setOutVars(fam).size();
                    for (int i = 0; i < n; ++i) {
                        checkSetArray(hd, model, f, 0, i, step);
                        if (i == 0 && step == 0) nFiles += perFile * (merged || !setFams[f].hasParts ? 1 : 2);
                        EXPECT_EQ(nOpenFiles() - before, nFiles) << fam.ext;
                    }
                    for (int i = n - 1; i >= 0; --i) checkSetArray(hd, model, f, 0, i, step);
                    for (int i = n - 1; i >= 0; --i) checkSetArray(hd, model, f, 0, 0, step);
                }
            }
            EXPECT_EQ(testSlept(), 0);
            checkAnswers(rdbCloseRun(hd));
            EXPECT_FALSE(hasChildren());
            EXPECT_LE(nOpenFiles(), before);
            rdbFree(hd);
            clearFolder();
        }
}

static bool isOpen(const std::string &name)
{
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (fs::read_symlink(entry.path(), gone).filename() == name) return true;
    }
    return false;
}

/* Of sets and families together no more is open than of one step. What was used last stays. */
TEST(setKept, thoseThatWereUsedLongAgoGiveWay)
{
    const tool::RunModel model(setSpec(tool::Form::binary, false));
    tool::writeRun(model);
    letSettle();
    rdbHd        *hd = openPipe();
    const int     before = nOpenFiles();
    struct rlimit usual, few;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    few = usual;
    few.rlim_cur = 40;                                            /* five of them */
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    for (int i = 0; i < 2; ++i) {
        for (int f = 0; f < 3; ++f) {
            checkSetArray(hd, model, f, 0, i, 0);
            EXPECT_LE(nOpenFiles() - before, 5);
            for (int p = 0; p < 2 && setFams[f].hasParts; ++p)
                EXPECT_TRUE(isOpen("pipe.1_9_0_" + std::to_string(p) + "." + setFams[f].ext + ".B")) << f;
        }
        valuesOf(hd, 0, 0, 3);
        EXPECT_EQ(nOpenFiles() - before, 5);
        for (const char *name : { "pipe.1_9_0.out.B", "pipe.1_9_1.out.B", "pipe.1_9_0.oqf.B" })
            EXPECT_TRUE(isOpen(name)) << name;
        EXPECT_FALSE(isOpen("pipe.1_9_0_0.osf.B") && isOpen("pipe.1_9_0_1.osf.B"));
    }
    setrlimit(RLIMIT_NOFILE, &usual);
    rdbFree(hd);
}

/* -------------------------------------------------------------------------- files that change while they are read

   Part 0 is read, and then the read waits for part 1, which is not there. Meanwhile the solver is at work. */

static std::function<void()> solver;

static void whileWaiting(std::function<void()> work)
{
    solver = work;
    testWhenSleeping([] { solver(); });
}

static std::string partOnDisk(tool::Form form, int p)
{
    return form == tool::Form::container ? "p.1.C" : SmallRun::partName(5, p) + tool::formSuffix(form);
}

/* One file of a step, in a form of its own and in the place of the one before. A generation tells what was written
   when: it is the step that values tell. */
static void writePart(const SmallRun &run, tool::Form form, int p, int generation)
{
    const bool inBox = form == tool::Form::container;
    {
        SmallFile file(inBox ? SmallRun::partName(5, p) : "fresh", form);
        run.putPart(file.f, generation, p);
    }
    if (!inBox) testWrite(partOnDisk(form, p), testRead("fresh" + tool::formSuffix(form)));
}

/* The same bytes again: the file has another time */
static void writeAgain(const std::string &name) { testWrite(name, testRead(name)); }

static void addTo(const std::string &name) { testWrite(name, testRead(name) + "more"); }

/* A run of two parts, part 0 in any form, whose part 1 is listed and then taken away: "aside" */
static rdbHd *openWithoutPart1(const SmallRun &run, tool::Form form)
{
    run.write();
    remove((SmallRun::partName(5, 0) + run.suffix()).c_str());
    writePart(run, form, 0, 5);
    letSettle();
    rdbHd *hd = SmallRun::open();
    fs::rename(partOnDisk(run.form, 1), "aside");
    return hd;
}

/* The same, and part 1 is put back */
static rdbHd *openWithPart1(const SmallRun &run, tool::Form form)
{
    rdbHd *hd = openWithoutPart1(run, form);
    fs::rename("aside", partOnDisk(run.form, 1));
    return hd;
}

/* Never a mix, whatever the form: both parts are another generation's behind the wait for part 1 */
TEST(outChanged, readAnewUntilItIsOfOnePiece)
{
    for (const tool::FormRow &form : tool::formRows) {
        SCOPED_TRACE(form.word);
        if (form.value == tool::Form::container) continue;
        const SmallRun run = manyVars();
        rdbHd    *hd = openWithoutPart1(run, form.value);
        const int before = testSlept();
        int       nWaits = 0;
        whileWaiting([&] {
            if (nWaits++) return;
            writePart(run, form.value, 0, 6);
            writePart(run, run.form, 1, 6);
        });
        EXPECT_EQ(valuesOf(hd, 3, 0, 2), expected(run, 6, 3));
        EXPECT_EQ(testSlept() - before, 2);                       /* for part 1, and before the second reading */
        EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 6, 0));
        EXPECT_EQ(testSlept() - before, 2);
        testWhenSleeping(nullptr);
        rdbFree(hd);
        clearFolder();
    }
}

/* A file that became younger, or longer, but gives the same array again */
TEST(outChanged, twoReadingsThatAgree)
{
    for (const tool::FormRow &form : tool::formRows)
        for (bool always : { false, true }) {
            SCOPED_TRACE(std::string(form.word) + (always ? ", always" : ""));
            const SmallRun    run = manyVars();
            rdbHd            *hd = openWithoutPart1(run, form.value);
            const int         before = testSlept();
            const std::string part0 = partOnDisk(form.value, 0), part1 = partOnDisk(run.form, 1);
            const bool        grows = form.value != tool::Form::compressed;
            whileWaiting([&] {
                if (fs::exists("aside")) {
                    (grows ? addTo : writeAgain)(part0);
                    fs::rename("aside", part1);
                } else if (always) {
                    fs::rename(part1, "aside");                   /* so that the next reading waits for it too */
                }
            });
            EXPECT_EQ(valuesOf(hd, 3, 0, 2), expected(run, 5, 3));
            EXPECT_EQ(testSlept() - before, always ? 3 : 2);
            testWhenSleeping(nullptr);
            rdbFree(hd);
            clearFolder();
        }
}

TEST(outChanged, neverTheSameTwice)
{
    for (const tool::FormRow &form : tool::formRows) {
        SCOPED_TRACE(form.word);
        if (form.value == tool::Form::container) continue;
        const SmallRun run = manyVars();
        rdbHd    *hd = openWithoutPart1(run, form.value);
        const int before = testSlept();
        const std::string part1 = partOnDisk(run.form, 1);
        int       generation = 5;
        whileWaiting([&] {
            if (remove(part1.c_str()) == 0) return;
            writePart(run, form.value, 0, ++generation);
            writePart(run, run.form, 1, generation);
        });
        double values[10];
        checkRefused(("file <./" + partOnDisk(form.value, 0) + "> changed while it was read").c_str(),
                     rdbGetReals2(hd, "outValues", values, 3, 0, 2, 5));
        for (double value : values) EXPECT_EQ(value, 0);
        EXPECT_EQ(testSlept() - before, 5);                       /* three times for part 1, twice in between */
        testWhenSleeping(nullptr);
        EXPECT_EQ(valuesOf(hd, 3, 0, 2), expected(run, generation, 3));     /* the solver is through */
        EXPECT_EQ(testSlept() - before, 5);
        rdbFree(hd);
        clearFolder();
    }
}

/* Of a file that was written a moment ago, or as it seems even later, equal times say little. All files of the step are
   left to rest for that moment, once, and then one reading does. */
TEST(outChanged, youngFilesAreLeftToRest)
{
    for (const tool::FormRow &form : tool::formRows) {
        SCOPED_TRACE(form.word);
        const SmallRun run = manyVars();
        rdbHd    *hd = openWithPart1(run, form.value);
        int n = 0;
        checkAnswers(rdbGetInt0(hd, "nOutVars", &n));
        letSettle(-3600);
        const int before = testPaused();
        EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 5, 2));
        EXPECT_EQ(testPaused() - before, 1);
        EXPECT_EQ(testSlept(), 0);
        rdbFree(hd);
        clearFolder();
    }
}

/* One that is written even then is at work, and nothing is believed that was read once */
TEST(outChanged, youngFilesThatDoNotRest)
{
    for (const tool::FormRow &form : tool::formRows) {
        SCOPED_TRACE(form.word);
        if (form.value == tool::Form::container) continue;
        const SmallRun run = manyVars();
        rdbHd *hd = openWithPart1(run, form.value);
        EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 5, 1));
        letSettle(-3600);
        const int before = testSlept();
        bool done = false;
        solver = [&] {
            if (done) return;
            done = true;
            for (int p = 0; p < 2; ++p) writePart(run, p ? run.form : form.value, p, 6);
        };
        testWhenPausing([] { solver(); });
        EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 6, 2));
        EXPECT_EQ(testSlept() - before, 1);
        testWhenPausing(nullptr);
        rdbFree(hd);
        clearFolder();
    }
}

enum Work { ONCE, THE_SAME, ON_AND_ON };

/* The solver writes the header of the step's first part when somebody waits: first one without variables, as the mask of
   a file that is being made may be there before its value; then the true one, or others on and on. */
static rdbHd *openWhileHeadIsWritten(const SmallRun &run, tool::Form form, Work work)
{
    SmallRun torn = run;
    torn.mask = 0;
    rdbHd *hd = openWithoutPart1(run, form);
    writePart(torn, form, 0, 5);
    letSettle(-3600);
    solver = [run, form, work, n = 0]() mutable {
        if (work != ONCE || n == 0) writePart(run, form, 0, work == ON_AND_ON ? n : 5);
        if (work != ONCE) letSettle(-3600);                       /* young, however long the reading takes */
        ++n;
    };
    testWhenPausing([] { solver(); });
    return hd;
}

TEST(outChanged, aHeaderThatIsNotYetWhole)
{
    for (const tool::FormRow &form : tool::formRows)
        for (Work work : { ONCE, THE_SAME, ON_AND_ON }) {
            SCOPED_TRACE(std::string(form.word) + " " + std::to_string(work));
            if (form.value == tool::Form::container) continue;
            const SmallRun run = manyVars();
            rdbHd *hd = openWhileHeadIsWritten(run, form.value, work);
            const std::string text = "file <./" + partOnDisk(form.value, 0) + "> changed while it was read";
            const int         before = testSlept();
            int    n = -1;
            double time = -1;
            if (work == ON_AND_ON) {
                checkRefused(text.c_str(), rdbGetInt0(hd, "nOutVars", &n));
                EXPECT_EQ(testSlept() - before, 2);
                testWhenPausing(nullptr);
            }
            checkAnswers(rdbGetInt0(hd, "nOutVars", &n));
            EXPECT_EQ(n, 11);
            checkAnswers(rdbGetReal1(hd, "outTime", &time, 0));
            if (work != ON_AND_ON) {
                EXPECT_EQ(time, SmallRun::time(5));
            }
            testWhenPausing(nullptr);
            rdbFree(hd);
            clearFolder();
        }
}

/* The time of a step, which is read by itself, is as true */
TEST(outChanged, aTimeThatIsNotYetWhole)
{
    for (const tool::FormRow &form : tool::formRows) {
        SCOPED_TRACE(form.word);
        if (form.value == tool::Form::container) continue;
        const SmallRun run = manyVars();
        rdbHd *hd = openWithoutPart1(run, form.value);
        int    n = 0;
        double time = -1;
        checkAnswers(rdbGetInt0(hd, "nOutVars", &n));
        writePart(run, form.value, 0, 0);
        letSettle(-3600);
        solver = [&] { writePart(run, form.value, 0, 5); };
        testWhenPausing([] { solver(); });
        checkAnswers(rdbGetReal1(hd, "outTime", &time, 0));
        EXPECT_EQ(time, SmallRun::time(5));
        testWhenPausing(nullptr);
        int generation = 5;
        checkAnswers(rdbOpenRun(hd, 1));
        checkAnswers(rdbGetInt0(hd, "nOutVars", &n));
        solver = [&] {
            writePart(run, form.value, 0, ++generation);
            letSettle(-3600);                                     /* young, however long the reading takes */
        };
        testWhenPausing([] { solver(); });
        checkRefused(("file <./" + partOnDisk(form.value, 0) + "> changed while it was read").c_str(),
                     rdbGetReal1(hd, "outTime", &time, 0));
        testWhenPausing(nullptr);
        checkAnswers(rdbGetReal1(hd, "outTime", &time, 0));       /* what was refused was not kept */
        EXPECT_EQ(time, SmallRun::time(generation));
        rdbFree(hd);
        clearFolder();
    }
}

/* One young file among old ones is enough for a rest, wherever it stands */
TEST(outChanged, oneYoungFileIsLeftToRest)
{
    for (int young : { 0, 1 }) {
        const SmallRun run = manyVars();
        run.write();
        letSettle();
        rdbHd *hd = SmallRun::open();
        int n = 0;
        checkAnswers(rdbGetInt0(hd, "nOutVars", &n));
        fs::last_write_time(partOnDisk(run.form, young), fs::file_time_type::clock::now() + std::chrono::hours(1));
        const int before = testPaused();
        EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 5, 2)) << young;
        EXPECT_EQ(testPaused() - before, 1) << young;
        EXPECT_EQ(testSlept(), 0) << young;
        rdbFree(hd);
        clearFolder();
    }
}

/* While a young file is left to rest another one, which is known and open, gives way to one that looks old */
TEST(outChanged, aKnownFileThatIsReplacedDuringTheRest)
{
    for (const tool::FormRow &form : tool::formRows) {
        SCOPED_TRACE(form.word);
        if (form.value == tool::Form::container) continue;
        const SmallRun run = manyVars();
        rdbHd *hd = openWithPart1(run, form.value);
        EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 5, 1));
        fs::last_write_time(partOnDisk(run.form, 1), fs::file_time_type::clock::now() + std::chrono::hours(1));
        solver = [&] {
            if (fs::exists("old")) return;
            fs::rename(partOnDisk(form.value, 0), "old");
            for (int p = 0; p < 2; ++p) writePart(run, p ? run.form : form.value, p, 6);
            letSettle(30);
        };
        testWhenPausing([] { solver(); });
        EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 6, 2));
        testWhenPausing(nullptr);
        rdbFree(hd);
        clearFolder();
    }
}

/* A file of zeros is there before its values: one reading of zeros is not two that agree */
TEST(outChanged, zerosAreReadTwice)
{
    const SmallRun run = manyVars();
    rdbHd *hd = openWithoutPart1(run, run.form);
    const auto zeroed = [&](const std::string &bytes) {
        std::string text = bytes;
        for (double value : expected(run, 5, 1)) {
            const std::string item((const char *) &value, sizeof value);
            for (size_t at; (at = text.find(item)) != std::string::npos;)
                text.replace(at, sizeof value, sizeof value, '\0');
        }
        return text;
    };
    const std::string part0 = partOnDisk(run.form, 0), part1 = partOnDisk(run.form, 1);
    const std::string right0 = testRead(part0), right1 = testRead("aside");
    testWrite(part0, zeroed(right0));
    ASSERT_NE(testRead(part0), right0);
    letSettle();
    whileWaiting([&] {
        if (!fs::exists(part1)) return testWrite(part1, zeroed(right1));
        testWrite(part0, right0);
        testWrite(part1, right1);
    });
    EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 5, 1));
    rdbFree(hd);
}

/* The solver writes the header anew behind its mask, which was read */
TEST(outChanged, aHeaderThatIsReplacedWhileItIsRead)
{
    const tool::Form form = tool::Form::ascii;
    const SmallRun   run = manyVars();
    SmallRun         old = run;
    old.mask = 1024;                                              /* as long as the other in a text */
    rdbHd *hd = openWithoutPart1(run, form);
    writePart(old, form, 0, 5);
    const std::string part0 = partOnDisk(form, 0), bytes = testRead(part0);
    testWrite(part0, bytes.substr(0, bytes.find("nSpecs")));
    letSettle();
    whileWaiting([&] { writePart(run, form, 0, 5); });
    int n = 0;
    checkAnswers(rdbGetInt0(hd, "nOutVars", &n));
    EXPECT_EQ(n, 11);
    rdbFree(hd);
}

/* Rows are added to others once, however often they are read */
TEST(setChanged, readAnew)
{
    const tool::RunModel model(setSpec(tool::Form::binary, false));
    tool::writeRun(model);
    letSettle();
    rdbHd *hd = openPipe();
    checkSetArray(hd, model, 0, 0, 1, 0);
    fs::rename("pipe.1_9_0_1.osf.B", "aside");
    whileWaiting([] {
        if (!fs::exists("aside")) return;
        writeAgain("pipe.1_9_0_0.osf.B");
        fs::rename("aside", "pipe.1_9_0_1.osf.B");
    });
    checkSetArray(hd, model, 0, 0, 2, 0);
    EXPECT_EQ(testSlept(), 2);
    checkSetArray(hd, model, 0, 0, 3, 0);
    EXPECT_EQ(testSlept(), 2);
    rdbFree(hd);
}

/* What could not be told of the outputs on sets is neither told nor kept */
TEST(setKept, headersThatAreWrittenOnAndOn)
{
    const tool::RunModel model(setSpec(tool::Form::binary, false));
    tool::writeRun(model);
    const std::string name = "pipe.1_" + std::to_string(model.spec.steps[0]) + "_0_0.osf.B", bytes = testRead(name);
    double       time = model.time(0);
    const size_t at = bytes.find(std::string((const char *) &time, sizeof time));
    ASSERT_NE(at, std::string::npos);
    letSettle(-3600);
    rdbHd *hd = openPipe();
    int    n = -1;
    double told = -1;
    solver = [&] {
        ++time;
        testWrite(name, std::string(bytes).replace(at, sizeof time, (const char *) &time, sizeof time));
        letSettle(-3600);
    };
    const std::string text = "file <./" + name + "> changed while it was read";
    testWhenPausing([] { solver(); });
    checkRefused(text.c_str(), rdbGetInt0(hd, "nOsfVars", &n));
    testWhenPausing(nullptr);
    checkAnswers(rdbGetInt0(hd, "nOsfVars", &n));
    EXPECT_GT(n, 0);
    testWhenPausing([] { solver(); });
    checkRefused(text.c_str(), rdbGetReal2(hd, "osfTime", &told, 0, 0));
    testWhenPausing(nullptr);
    checkAnswers(rdbGetReal2(hd, "osfTime", &told, 0, 0));
    EXPECT_EQ(told, time);
    rdbFree(hd);
}
