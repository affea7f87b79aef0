/* testOut.cpp: the values of nodal output, in one file per part and merged. */

#include <climits>
#include <cstdio>
#include <cstring>

#include "test/rdb/outRun.h"
#include "tool/runWriter.h"

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
