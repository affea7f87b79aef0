/* testOut.cpp: the values of nodal output, in one file per part and merged, and what is kept between two requests. */

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "test/rdb/smallRun.h"
#include "tool/runWriter.h"

namespace fs = std::filesystem;

static const double untouched = -77;

/* All variables up to "aoutVec", the ones without a fixed width among them */
static SmallRun manyVars()
{
    SmallRun run;
    run.vars = { { "vel", 3 }, { "pres", 1 }, { "temp", 1 }, { "spec", 2 }, { "eddy", 1 }, { "tdm", 1 }, { "tke", 1 },
                 { "tvel", 1 }, { "teps", 1 }, { "tomega", 1 }, { "aoutVec", 2 } };
    run.mask = (1 << 11) - 1;
    return run;
}

static std::vector<double> valuesOf(rdbHd *hd, int var, int step, int dim)
{
    std::vector<double> values((size_t) hd->run->nNodes * dim, untouched);
    checkAnswers(rdbGetReals2(hd, "outValues", values.data(), var, step, dim, hd->run->nNodes));
    return values;
}

/* What a variable must be, nodes without a part being zero */
static std::vector<double> expected(const SmallRun &run, int step, int var)
{
    const int dim = run.vars[var].dim;
    std::vector<double> values((size_t) run.nNodes() * dim, 0.0);
    for (const auto &part : run.parts)
        for (int node : part)
            for (int k = 0; k < dim; ++k) values[node * dim + k] = SmallRun::value(step, var, node, k);
    return values;
}

static void checkAll(rdbHd *hd, const SmallRun &run)
{
    for (size_t s = 0; s < run.steps.size(); ++s)
        for (size_t v = 0; v < run.vars.size(); ++v)
            EXPECT_EQ(valuesOf(hd, (int) v, (int) s, run.vars[v].dim), expected(run, run.steps[s], (int) v))
                << run.vars[v].key << " of step " << run.steps[s];
}

/* Makes files look as if they had been written long ago: what has just changed is not kept between requests */
static void letSettle(int seconds = 60)
{
    for (const auto &entry : fs::directory_iterator("."))
        fs::last_write_time(entry.path(), fs::file_time_type::clock::now() - std::chrono::seconds(seconds));
}

/* ------------------------------------------------------------------------------------------------------ contents */

TEST(outValues, sameInEveryForm)
{
    for (const auto &form : smallForms)
        for (bool merged : { false, true })
            for (bool settled : { false, true }) {
                SCOPED_TRACE(std::string(form.name) + (merged ? ", merged" : "") + (settled ? ", settled" : ""));
                SmallRun run = manyVars();
                run.form = form.form;
                run.merged = merged;
                run.steps = { 5, 7 };
                run.write();
                if (settled) letSettle();
                rdbHd *hd = SmallRun::open();
                checkAll(hd, run);
                rdbFree(hd);
                for (int step : run.steps)
                    for (int p = 0; p < 2; ++p) {
                        remove((SmallRun::partName(step, p) + run.suffix()).c_str());
                        remove((SmallRun::mergedName(step) + run.suffix()).c_str());
                    }
            }
}

/* Each order of requests finds the same values, wherever the walk of the one before has ended */
TEST(outValues, inAnyOrder)
{
    for (bool merged : { false, true }) {
        SmallRun run = manyVars();
        run.merged = merged;
        run.write();
        letSettle();
        for (int a = 0; a < 11; ++a)
            for (int b = 0; b < 11; ++b) {
                rdbHd *hd = SmallRun::open();
                for (int v : { a, b, a })
                    ASSERT_EQ(valuesOf(hd, v, 0, run.vars[v].dim), expected(run, 5, v)) << a << ", then " << b;
                rdbFree(hd);
            }
        remove(run.firstName(5).c_str());
        for (int p = 0; p < 2; ++p) remove((SmallRun::partName(5, p) + run.suffix()).c_str());
    }
}

TEST(outValues, partsOfEveryShape)
{
    static const struct { const char *name; std::vector<std::vector<int>> parts; } rows[] = {
        { "one part, all nodes in order", { { 0, 1, 2, 3, 4 } }              },
        { "one part, out of order",       { { 4, 3, 2, 1, 0 } }              },
        { "in order, one behind another", { { 0, 1 }, { 2, 3, 4 } }          },
        { "in order, from the end",       { { 2, 3, 4 }, { 0, 1 } }          },
        { "shared nodes",                 { { 0, 2, 4 }, { 4, 1, 2, 3 } }    },
        { "a node without a part",        { { 0, 1 }, { 3, 4 } }             },
        { "an empty part",                { { 4, 1, 0 }, {}, { 2, 3 } }      },
        { "no node at all",               { {} }                             },
    };
    for (const auto &form : smallForms)
        for (const auto &row : rows)
            for (bool merged : { false, true }) {
                SCOPED_TRACE(std::string(row.name) + ", " + form.name + (merged ? ", merged" : ""));
                SmallRun run = manyVars();
                run.form = form.form;
                run.merged = merged;
                run.parts = row.parts;
                run.write();
                letSettle();
                rdbHd *hd = SmallRun::open();
                checkAll(hd, run);
                checkAll(hd, run);
                rdbFree(hd);
                for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
            }
}

TEST(outValues, aRunWithoutSubdomainsGivesZeros)
{
    SmallRun run;
    run.parts.clear();
    run.write();
    SmallRun first;
    first.writeStep(5);
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(valuesOf(hd, 0, 0, 3), std::vector<double>(15, 0.0));
    rdbFree(hd);
}

/* Its first file is opened all the same */
TEST(outValues, aRunWithoutSubdomainsNeedsItsFile)
{
    for (bool merged : { false, true }) {
        SmallRun run;
        run.merged = merged;
        run.write();
        run.parts.clear();
        testWrite("p.1.cli", run.cli());
        rdbHd *hd = SmallRun::open();
        double values[15];
        checkAnswers(rdbGetReals2(hd, "outValues", values, 0, 0, 3, 5));
        const std::string whole = testRead(run.firstName(5));
        testWrite(run.firstName(5), "no tag\n");
        checkFails("Invalid binary tag <no tag>", rdbGetReals2(hd, "outValues", values, 0, 0, 3, 5));
        remove(run.firstName(5).c_str());
        checkFails("unable to open binary file", rdbGetReals2(hd, "outValues", values, 0, 0, 3, 5));
        testWrite(run.firstName(5), whole);
        EXPECT_EQ(valuesOf(hd, 0, 0, 3), std::vector<double>(15, 0.0));
        rdbFree(hd);
        for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
    }
}

/* The list of steps is the one of the first question; the files are those of the last scan */
TEST(outValues, aStepThatLeftTheListGivesZeros)
{
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 5, 0));
    for (int p = 0; p < 2; ++p) remove((SmallRun::partName(5, p) + ".B").c_str());
    checkReturns(rdbUpdateDir(hd));
    std::vector<double> values(15, untouched);
    checkRefused(".out file not found", rdbGetReals2(hd, "outValues", values.data(), 0, 0, 3, 5));
    EXPECT_EQ(values, std::vector<double>(15, 0.0));
    rdbFree(hd);
}

TEST(outValues, withoutDecomposition)
{
    SmallRun run;
    run.write();
    remove("p.1.ddc.B");
    rdbHd *hd = SmallRun::open();
    double values[15];
    checkRefused(".ddc file not found", rdbGetReals2(hd, "outValues", values, 0, 0, 3, 5));
    rdbFree(hd);
}

TEST(outValues, capacityIsTested)
{
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    double   values[15];
    checkRefused("outValues requires dimension of 3x5 not 3x4", rdbGetReals2(hd, "outValues", values, 0, 0, 3, 4));
    checkRefused("index1 (3) is out of range [0,2]", rdbGetReals2(hd, "outValues", values, 3, 0, 3, 5));
    checkRefused("index2 (1) is out of range [0,0]", rdbGetReals2(hd, "outValues", values, 0, 1, 3, 5));
    checkAnswers(rdbGetReals2(hd, "outValues", values, 0, 0, -1, -1));
    EXPECT_EQ(values[14], SmallRun::value(5, 0, 4, 2));
    rdbFree(hd);
}

/* The first variable stands right behind the header: what follows need not even be there */
TEST(outValues, theFirstVariableNeedsNoSkips)
{
    for (bool merged : { false, true }) {
        SmallRun run;
        run.merged = merged;
        run.vars.resize(1);
        rdbHd *hd = run.writeAndOpen();
        EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 5, 0));
        rdbFree(hd);
        for (int p = 0; p < 2; ++p) remove((SmallRun::partName(5, p) + run.suffix()).c_str());
    }
}

/* All 37 variables, against the values that the writer of the run tells */
TEST(outValues, allVariablesOfAGeneratedRun)
{
    for (const auto &form : smallForms)
        for (bool merged : { false, true }) {
            SCOPED_TRACE(std::string(form.name) + (merged ? ", merged" : ""));
            tool::RunSpec spec;
            spec.form = form.form;
            spec.merged = merged;
            spec.nSds = 3;
            spec.scattered = true;
            spec.setSteps(2, 4, 5);
            spec.setVars("all");
            tool::RunModel model(spec);
            tool::writeRun(model);
            rdbHd *hd = rdbNew("pipe", "QUENTA.DIR", nullptr, 0);
            ASSERT_NE(hd, nullptr);
            checkAnswers(rdbOpenRun(hd, 1));
            ASSERT_EQ(hd->run->nNodes, model.nNodes);
            for (int step = 0; step < 2; ++step)
                for (int v = 0; v < 37; ++v) {
                    const int dim = model.vars[v].dim;
                    const std::vector<double> values = valuesOf(hd, v, step, dim);
                    int nWrong = 0;
                    for (int node = 0; node < model.nNodes; ++node)
                        for (int k = 0; k < dim; ++k)
                            nWrong += values[(size_t) node * dim + k] != model.value(v, k, node, step);
                    EXPECT_EQ(nWrong, 0) << model.vars[v].name << " of step " << step;
                }
            rdbFree(hd);
            fs::remove_all("QUENTA.DIR");
        }
}

/* With a folder to work in, names are as seen from there, and the process is back where it was after each answer */
TEST(outValues, fromAnotherFolder)
{
    const std::string here = fs::current_path().string();
    fs::create_directories("far/away");
    fs::current_path("far/away");
    SmallRun run;
    run.write();
    letSettle();
    fs::current_path(here);
    rdbHd *hd = rdbNew("p", ".", "far/away", 0);
    ASSERT_NE(hd, nullptr);
    checkAnswers(rdbOpenRun(hd, 1));
    for (int v : { 2, 0, 1 }) {
        EXPECT_EQ(valuesOf(hd, v, 0, run.vars[v].dim), expected(run, 5, v));
        EXPECT_EQ(fs::current_path().string(), here);
    }
    rdbFree(hd);
}

/* ------------------------------------------------------------------------------------------------------- failures */

TEST(outValues, aMissingPartLeavesWhatCameBeforeIt)
{
    SmallRun run;
    run.parts = { { 0, 1 }, { 2, 3 }, { 4, 1 } };
    run.write();
    remove("p.1_5_1.out.B");
    rdbHd *hd = SmallRun::open();
    double values[5];
    for (int times = 0; times < 2; ++times) {
        std::fill(values, values + 5, untouched);
        checkRefused(".out file not found", rdbGetReals2(hd, "outValues", values, 1, 0, 1, 5));
        EXPECT_EQ(std::vector<double>(values, values + 5),
                  (std::vector<double>{ SmallRun::value(5, 1, 0, 0), SmallRun::value(5, 1, 1, 0), 0, 0, 0 }));
    }
    rdbFree(hd);
}

/* Every table key below must stand in the stream, whatever the mask says */
TEST(outValues, aKeyBelowIsMissing)
{
    for (const auto &form : smallForms)
        for (bool merged : { false, true }) {
            SmallRun run;
            run.form = form.form;
            run.merged = merged;
            run.mask = 5;
            run.vars = { { "vel", 3 }, { "temp", 1 } };
            rdbHd *hd = run.writeAndOpen();
            double values[15];
            checkFails("data out of order: expected <pres> found <temp>",
                       rdbGetReals2(hd, "outValues", values, 1, 0, 1, 5));
            EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 5, 0));
            rdbFree(hd);
            for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
        }
}

/* Behind the wanted array of a merged file, keys may be missing; the next part begins at the next "time" */
TEST(outValues, keysAboveMayBeMissing)
{
    for (const auto &form : smallForms) {
        SmallRun run;
        run.form = form.form;
        run.merged = true;
        run.mask = 3;
        run.vars = { { "vel", 3 }, { "pres", 1 }, { "eddy", 1 }, { "fieldVel", 3 } };
        run.write();
        letSettle();
        rdbHd *hd = SmallRun::open();
        for (int v : { 0, 1, 0 }) EXPECT_EQ(valuesOf(hd, v, 0, run.vars[v].dim), expected(run, 5, v));
        rdbFree(hd);
        for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
    }
}

TEST(outValues, sizesOfAnArrayMustFit)
{
    static const struct { int dim, rows; const char *text; } rows[] = {
        { 2, 3, "data out of order: expected <1> found <2>" },
        { 1, 4, "data out of order: expected <3> found <4>" },
        { 1, INT_MAX, "data out of order: expected <3> found <2147483647>" },
        { 1, -1, "data out of order: expected <3> found <-1>" },
    };
    for (const auto &form : smallForms)
        for (const auto &row : rows) {
            SmallRun run;
            run.form = form.form;
            run.mask = 2;
            run.write();
            {
                tool::TokenFile f(SmallRun::partName(5, 1), form.form);
                run.putHead(f, 5, 3);
                f.keyReals("vel", 3, 3, std::vector<double>(9).data());
                f.str("pres");
                f.ints(std::vector<int>{ row.dim, row.rows }.data(), 2);
                f.reals(std::vector<double>(8).data(), 8);
            }
            rdbHd *hd = SmallRun::open();
            double values[5];
            checkFails(row.text, rdbGetReals2(hd, "outValues", values, 0, 0, 1, 5));
            rdbFree(hd);
            for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
        }
}

/* Behind as many values as the product of the sizes has in 32 bits, the next array stands as it should */
TEST(outValues, aSkippedArrayOfAbsurdSize)
{
    static const struct { int size[2], nReals; const char *text; } rows[] = {
        { { INT_MAX, INT_MAX }, 1, "EOF in "                         },
        { { 1 << 20, 1 << 12 }, 0, "EOF in "                         },
        { { 1 << 16, 1 << 16 }, 0, "EOF in "                         },
        { { -1, 3 },            0, "invalid table of <-1> x <3>"     },
        { { 3, -1 },            0, "invalid table of <3> x <-1>"     },
    };
    for (const auto &form : smallForms)
        for (const auto &row : rows)
            for (bool merged : { false, true }) {
                SCOPED_TRACE(std::string(form.name) + ", " + std::to_string(row.size[0]));
                SmallRun run;
                run.form = form.form;
                run.merged = merged;
                run.mask = 2;
                run.write();
                {
                    tool::TokenFile f(merged ? SmallRun::mergedName(5) : SmallRun::partName(5, 0), form.form);
                    run.putHead(f, 5, 3);
                    f.str("vel");
                    f.ints(row.size, 2);
                    f.reals(std::vector<double>(1).data(), row.nReals);
                    f.keyReals("pres", 1, 3, std::vector<double>(3).data());
                }
                rdbHd *hd = SmallRun::open();
                double values[5];
                checkFails(row.text, rdbGetReals2(hd, "outValues", values, 0, 0, 1, 5));
                rdbFree(hd);
                for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
            }
}

TEST(outValues, aPartMustHaveTheNodesOfItsList)
{
    for (int nNodes : { 2, 4, -1, INT_MAX }) {
        SmallRun run;
        run.write();
        {
            tool::TokenFile f(SmallRun::partName(5, 1), run.form);
            run.putHead(f, 5, nNodes);
            f.keyReals("vel", 3, 3, std::vector<double>(9).data());
        }
        rdbHd *hd = SmallRun::open();
        double values[15];
        checkFails("Inconsistent nNodes in file <./p.1_5_1.out>: <" + std::to_string(nNodes) +
                       "> vs. <3> of subdomain <1>",
                   rdbGetReals2(hd, "outValues", values, 0, 0, 3, 5));
        checkFails("rdb_outValues", rdbGetReals2(hd, "outValues", values, 0, 0, 3, 5));
        run.writeStep(5);
        EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 5, 0));
        rdbFree(hd);
    }
}

/* -------------------------------------------------------------------------- what is kept between two requests */

static int nOpenFiles()
{
    int n = 0;
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) n += fs::is_symlink(entry.path());
    return n;
}

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
            for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
        }
}

/* The time of the change lies in the future, so that the test may take its time */
TEST(outKept, aFileThatHasJustChangedIsNot)
{
    SmallRun run;
    run.write();
    letSettle(-3600);
    rdbHd    *hd = SmallRun::open();
    const int before = nOpenFiles();
    EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 5, 0));
    EXPECT_EQ(nOpenFiles(), before);
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

/* Where only whole seconds are told, a tenth of one is not enough. A run of the test that took too long says nothing
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
            for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
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
        for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
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
            for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
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
                    for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
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
    memset(bytes, bytes[0], 1);
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

/* Beyond a number of files only the places are kept */
TEST(outKept, manyParts)
{
    SmallRun run;
    run.usrIds.clear();
    run.parts.clear();
    for (int i = 0; i < 200; ++i) run.usrIds.push_back(i + 1), run.parts.push_back({ (i * 7) % 200 });
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
    run.usrIds.clear();
    run.parts.clear();
    for (int i = 0; i < 100; ++i) run.usrIds.push_back(i + 1), run.parts.push_back({ i });
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
    run.usrIds.clear();
    run.parts.clear();
    for (int i = 0; i < 10; ++i) run.usrIds.push_back(i + 1), run.parts.push_back({ i });
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
    EXPECT_EQ(testSlept(), 1);
    EXPECT_EQ(valuesOf(hd, 3, 0, 2), values);
    rdbFree(hd);
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

/* ------------------------------------------------------------------------------------------------- damaged files */

/* Everything that a client would ask for. What fails may fail; nothing else may happen. */
static void readEverything(const SmallRun &run)
{
    rdbHd *hd = nullptr;
    trapped([&] {
        hd = rdbNew("p", ".", nullptr, 0);
        if (hd) rdbOpenRun(hd, 1);
    });
    if (!hd) return;
    int                 n = 0;
    std::vector<int>    ints(64);
    std::vector<double> reals(64);
    auto ask = [&](const char *key, int i1, int i2) {
        trapped([&] {
            if (strstr(key, "Values")) rdbGetReals2(hd, key, reals.data(), i1, i2, 1, 64);
            else if (strstr(key, "imes") || !strcmp(key, "crd")) rdbGetReals0(hd, key, reals.data(), 64, 1);
            else if (i1 < 0 && *key == 'n') rdbGetInt0(hd, key, &n);
            else if (i1 < 0) rdbGetInts0(hd, key, ints.data(), 64, 1);
            else rdbGetInts1(hd, key, ints.data(), i1, 64, 1);
        });
    };
    for (const char *key : { "nNodes", "usrIds", "nElms", "nOutSteps", "outSteps", "outTimes", "nOutVars" })
        ask(key, -1, -1);
    trapped([&] { rdbGetReals0(hd, "crd", reals.data(), 3, 21); });
    for (const char *key : { "elmUsrIds", "elmCnn", "elmSdIds", "volUsrIds", "volCnn", "volSdIds" })
        for (int i = 0; i < 3; ++i) ask(key, i, -1);
    for (int v = (int) run.vars.size() - 1; v >= 0; --v) ask("outValues", v, 0);
    int *list;
    trapped([&] { rdbGetUsrIdHash(hd, &list); });
    trapped([&] { rdbGetVolUsrIdHash(hd, 0, &list); });
    trapped([&] { rdbGetVolCnn(hd, 0, &list); });
    trapped([&] { rdbFree(hd); });
}

static std::vector<std::string> dataFiles()
{
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(".")) names.push_back(entry.path().filename().string());
    return names;
}

TEST(outDamaged, everyFileCutAtEveryByte)
{
    for (const auto &form : smallForms) {
        SmallRun run;
        run.form = form.form;
        run.merged = form.form == tool::Form::swapped;
        run.write();
        letSettle();
        for (const std::string &name : dataFiles()) {
            const std::string whole = testRead(name);
            for (size_t n = 0; n < whole.size(); ++n) {
                testWrite(name, whole.substr(0, n));
                readEverything(run);
            }
            testWrite(name, whole);
        }
        rdbHd *hd = SmallRun::open();
        checkAll(hd, run);
        rdbFree(hd);
        for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
    }
}

/* Each four bytes of each file in turn as a count that no file can hold */
TEST(outDamaged, absurdNumbersEverywhere)
{
    for (bool merged : { false, true })
        for (const char *absurd : { "\xff\xff\xff\x7f", "\xff\xff\xff\xff", "\x00\x00\x00\x40", "\x00\x00\x00\x80" }) {
            SmallRun run;
            run.merged = merged;
            run.write();
            letSettle();
            for (const std::string &name : dataFiles()) {
                if (name == "p.1.cli") continue;
                const std::string whole = testRead(name);
                for (size_t at = whole.find('\n') + 1; at + 4 <= whole.size(); at += 4) {
                    std::string bad = whole;
                    bad.replace(at, 4, std::string(absurd, 4));
                    testWrite(name, bad);
                    readEverything(run);
                }
                testWrite(name, whole);
            }
            rdbHd *hd = SmallRun::open();
            checkAll(hd, run);
            rdbFree(hd);
            for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
        }
}
