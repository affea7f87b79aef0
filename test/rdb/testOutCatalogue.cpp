/* testOutCatalogue.cpp: which steps of nodal output exist, and which variables they hold. */

#include <climits>
#include <cstdio>

#include "test/rdb/smallRun.h"

static std::vector<int> stepsOf(rdbHd *hd)
{
    int n = -1;
    checkAnswers(rdbGetInt0(hd, "nOutSteps", &n));
    std::vector<int> steps(n < 0 ? 0 : n, -1);
    checkAnswers(rdbGetInts0(hd, "outSteps", steps.data(), n, 1));
    for (int i = 0; i < n; ++i) {
        int step = -1;
        checkAnswers(rdbGetInt1(hd, "outStep", &step, i));
        EXPECT_EQ(step, steps[i]);
    }
    return steps;
}

/* Run 1 of "p", and from then on all is looked for by another problem's name */
static rdbHd *openAs(const char *problem)
{
    rdbHd *hd = SmallRun::open();
    memFree(hd->problem);
    hd->problem = memDup(problem);
    return hd;
}

static std::vector<int> varsOf(rdbHd *hd)
{
    checkAnswers(rdbInitOut(hd));
    const rdbOutInfo *info = hd->run->out[RDB_OUT_OUT];
    int n = -1;
    checkAnswers(rdbGetInt0(hd, "nOutVars", &n));
    EXPECT_EQ(n, info->nVars);
    return std::vector<int>(info->varIds, info->varIds + info->nVars);
}

static std::vector<int> bits(int from, int to)
{
    std::vector<int> list;
    for (int i = from; i <= to; ++i) list.push_back(i);
    return list;
}

/* ------------------------------------------------------------------------------------------------------- steps */

TEST(outSteps, numericOrderEachOnce)
{
    for (bool merged : { false, true }) {
        SmallRun run;
        run.merged = merged;
        run.steps = { 10, 9, 100 };
        rdbHd *hd = run.writeAndOpen();
        EXPECT_EQ(stepsOf(hd), (std::vector<int>{ 9, 10, 100 }));
        rdbFree(hd);
        for (int step : run.steps) remove((SmallRun::mergedName(step) + ".B").c_str());
    }
}

TEST(outSteps, onlyMergedFiles)
{
    for (const auto &form : smallForms) {
        SmallRun run;
        run.form = form.form;
        run.merged = true;
        rdbHd *hd = run.writeAndOpen();
        EXPECT_EQ(stepsOf(hd), std::vector<int>{ 5 });
        EXPECT_EQ(varsOf(hd), bits(0, 2));
        double time = 0;
        checkAnswers(rdbGetReal1(hd, "outTime", &time, 0));
        EXPECT_EQ(time, 1.25);
        rdbFree(hd);
        remove(run.firstName(5).c_str());
    }
}

TEST(outSteps, namesThatAreNoSteps)
{
    SmallRun run;
    run.write();
    tool::Container("p.1_6_0.out").close();
    for (const char *name : { "p.1_7_1.out", "p.1_8_xx.out", "p.1_9_0.out.Bx", "p.2_3_0.out",
                              "q.1_3_0.out", "p.1__0.out", "p.1_-3_0.out", "p.1_99999999999_0.out",
                              "p.1_2147483648_0.out" })
        testWrite(name, "");
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(stepsOf(hd), std::vector<int>{ 5 });
    rdbFree(hd);
}

/* The dots of the expression stand for any character, and it takes three of the four form suffixes */
TEST(outSteps, namesThatAreSteps)
{
    SmallRun run;
    run.write();
    for (const char *name : { "p.1_6_0.out.Z", "p.1_7_0.out.H", "p-1_8_x.out", "p.1_9_0,out", "p.1_2147483647_0.out" })
        testWrite(name, "");
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(stepsOf(hd), (std::vector<int>{ 5, 6, 7, 8, 9, INT_MAX }));
    rdbFree(hd);
}

/* The problem's name is part of the expression that the steps are found by, and of the names that are opened as it is.
   What it brings for a first group is taken for the step. */
TEST(outSteps, aProblemNameWithExpressionCharacters)
{
    static const struct { const char *problem, *found, *opened; std::vector<int> list; } rows[] = {
        { "p.q",    "pxq.1_7_0.out.B",  "p.q.1_5_0.out.B",    { 5, 7 } },
        { "p.q",    "pq.1_7_0.out.B",   "p.q.1_5_0.out.B",    { 5 }    },
        { "[ab]",   "b.1_7_0.out.B",    "[ab].1_7_0.out.B",   { 7 }    },
        { "p+",     "ppp.1_7_0.out.B",  "p+.1_7_0.out.B",     { 7 }    },
        { "(1)?p",  "1p.1_7_0.out.B",   "(1)?p.1_1_0.out.B",  { 1 }    },
        { "(1)23p", "123p.1_7_0.out.B", "(1)23p.1_1_0.out.B", { 1 }    },
    };
    SmallRun run;
    run.write();
    const std::string step = testRead("p.1_5_0.out.B");
    for (int p = 0; p < 2; ++p) remove((SmallRun::partName(5, p) + ".B").c_str());
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.problem) + ", " + row.found);
        testWrite(row.found, "");
        testWrite(row.opened, step);
        rdbHd *hd = openAs(row.problem);
        EXPECT_EQ(stepsOf(hd), row.list);
        rdbFree(hd);
        remove(row.found);
        remove(row.opened);
    }
}

TEST(outSteps, aProblemNameWithAGroupThatTakesNoPart)
{
    SmallRun run;
    run.write();
    int n = -1;
    for (const char *problem : { "(1)?p", "()p" }) {
        rdbHd *hd = openAs(problem);
        checkFails("Inconsistent pattern matching for file <p.1_5_0.out.B>", rdbGetInt0(hd, "nOutSteps", &n));
        checkFails("rdbInitOut", rdbGetInt0(hd, "nOutSteps", &n));
        rdbFree(hd);
    }
}

/* The code of such an expression is longer than most */
TEST(outSteps, aLongProblemName)
{
    SmallRun    run;
    std::string problem;
    for (int i = 0; i < 240; ++i) problem += "[a]*";
    run.write();
    testWrite("aa.1_7_0.out.B", "");
    rdbHd *hd = openAs(problem.c_str());
    int    n = -1;
    checkRefused(".out file not found", rdbGetInt0(hd, "nOutSteps", &n));
    rdbFree(hd);
    problem.assign(SYS_TEXT, 'a');
    hd = openAs(problem.c_str());
    checkFails("problem name is too long <aaaa", rdbGetInt0(hd, "nOutSteps", &n));
    rdbFree(hd);
    hd = openAs("p*+(");
    checkFails("Badly placed parenthesis", rdbGetInt0(hd, "nOutSteps", &n));
    rdbFree(hd);
}

TEST(outSteps, noneIsNoError)
{
    SmallRun run;
    run.steps.clear();
    rdbHd *hd = run.writeAndOpen();
    EXPECT_EQ(stepsOf(hd), std::vector<int>());
    EXPECT_EQ(varsOf(hd), std::vector<int>());
    checkAnswers(rdbGetReals0(hd, "outTimes", nullptr, -1, -1));
    char   name[SYS_TEXT];
    double time;
    checkRefused("index1 (0) is out of range [0,-1]", rdbGetStr1(hd, "outVarName", name, 0));
    checkRefused("index1 (0) is out of range [0,-1]", rdbGetReal1(hd, "outTime", &time, 0));
    EXPECT_EQ(hd->run->nSpecs, -1);
    rdbFree(hd);
}

TEST(outSteps, whatTheLastScanSawIsWhatThereIs)
{
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    run.writeStep(6);
    EXPECT_EQ(stepsOf(hd), std::vector<int>{ 5 });
    rdbFree(hd);
}

/* p.1_05_0.out tells of a step 5, whose file would be p.1_5_0.out */
TEST(outSteps, aStepWithoutAFileOfItsName)
{
    SmallRun run;
    run.steps.clear();
    run.write();
    testWrite("p.1_05_0.out", "");
    rdbHd *hd = SmallRun::open();
    int n = -1;
    checkRefused(".out file not found", rdbGetInt0(hd, "nOutSteps", &n));
    EXPECT_EQ(hd->run->out[RDB_OUT_OUT], nullptr);
    checkRefused(".out file not found", rdbGetInt0(hd, "nOutVars", &n));
    rdbFree(hd);
}

/* ------------------------------------------------------------------------------------------------------- masks */

TEST(outVars, fromTheMask)
{
    static const struct { const char *name; int mask, masks[2]; std::vector<int> list; } rows[] = {
        { "one word",                          7,           { 0, 0 },             bits(0, 2)                    },
        { "bits with gaps",                    0x00400801,  { 0, 0 },             { 0, 11, 22 }                 },
        { "nothing",                           0,           { 0, 0 },             {}                            },
        { "a negative word has all from 31 on", INT_MIN,    { 0, 0 },             bits(31, 36)                  },
        { "negative, with low bits",           INT_MIN + 3, { 0, 0 },             { 0, 1, 31, 32, 33, 34, 35, 36 } },
        { "-2 is one word",                    -2,          { 0, 0 },             bits(1, 36)                   },
        { "two words",                         -1,          { 1, 1 },             { 0, 31 }                     },
        { "two words, all",                    -1,          { -1, -1 },           bits(0, 36)                   },
        { "bit 31 of the first means nothing", -1,          { INT_MIN, 0 },       {}                            },
        { "bits above the table",              -1,          { 0, 0x7fffffe0 },    { 36 }                        },
    };
    for (const auto &form : smallForms)
        for (const auto &row : rows) {
            SCOPED_TRACE(std::string(row.name) + ", " + form.name);
            SmallRun run;
            run.form = form.form;
            run.mask = row.mask;
            run.masks[0] = row.masks[0];
            run.masks[1] = row.masks[1];
            for (bool upright : { false, true }) {
                run.masksUpright = upright;
                rdbHd *hd = run.writeAndOpen();
                EXPECT_EQ(varsOf(hd), row.list);
                const rdbOutInfo *info = hd->run->out[RDB_OUT_OUT];
                EXPECT_EQ(info->maskForm, row.mask == -1 ? 2 : 1);
                EXPECT_EQ(info->mask, row.mask == -1 ? row.masks[0] : row.mask);
                rdbFree(hd);
            }
            remove(run.firstName(5).c_str());
        }
}

TEST(outVars, masksOfAnotherShape)
{
    SmallRun run;
    run.mask = -1;
    rdbHd *hd = run.writeAndOpen();
    int    n;
    for (int shape : { 0, 3 }) {
        {
            tool::TokenFile f(SmallRun::partName(5, 0), run.form);
            SmallRun head = run;
            head.mask = 7;                              /* without masks; then its own */
            f.keyReal("time", 1);
            f.keyInt("mask", -1);
            f.keyInt("nSpecs", 0);
            f.keyInt("nAoutVecs", 0);
            f.str("masks");
            f.ints(std::vector<int>{ shape, 1, 1, 1, 1 }.data(), 5);
        }
        checkFails("data out of order: expected <2> found <" + std::to_string(shape) + ">",
                   rdbGetInt0(hd, "nOutVars", &n));
    }
    run.writeStep(5);
    checkAnswers(rdbGetInt0(hd, "nOutVars", &n));
    rdbFree(hd);
}

TEST(outVars, namesAndWidthsOfAll37)
{
    static const struct { const char *name; int dim; } rows[37] = {
        { "velocity", 3 }, { "pressure", 1 }, { "temperature", 1 }, { "species", 21 }, { "eddy_viscosity", 1 },
        { "eddy_viscosity", 1 }, { "kinetic_energy", 1 }, { "velocity_scale", 1 }, { "dissipation_rate", 1 },
        { "eddy_frequency", 1 }, { "auxiliary_output", 24 }, { "mesh_displacement", 3 }, { "mesh_velocity", 3 },
        { "surface_y_plus", 1 }, { "surface_film_coefficient", 1 }, { "viscoelastic_stress", 6 },
        { "intermittency", 1 }, { "transition_re_theta", 1 },
        { "eddy_viscosity", 1 }, { "eddy_time", 1 }, { "sqrt_eddy_period", 1 },
        { "wall_shear_stress", 3 }, { "field", 23 }, { "mesh_displacement_midstep", 3 }, { "levelset", 1 },
        { "incident_radiation", 1 }, { "relative_humidity", 1 }, { "dewpoint_temperature", 1 },
        { "humidity_film_thickness", 1 }, { "film", 22 }, { "density", 1 }, { "mach_number", 1 },
        { "design_topology", 1 },
        { "topology_velocity", 3 }, { "topology_pressure", 1 }, { "topology_temperature", 1 }, { "phasic_velocity", 3 },
    };
    SmallRun run;
    run.mask = -1;
    run.masks[0] = run.masks[1] = -1;
    run.nSpecs = 21;
    run.nFilms = 22;
    run.nFields = 23;
    run.nAoutVecs = 24;
    rdbHd *hd = run.writeAndOpen();
    ASSERT_EQ(varsOf(hd).size(), 37u);
    for (int i = 0; i < 37; ++i) {
        char name[SYS_TEXT];
        int  dim = -1;
        checkAnswers(rdbGetStr1(hd, "outVarName", name, i));
        EXPECT_STREQ(name, rows[i].name);
        checkAnswers(rdbGetInt1(hd, "outVarDim", &dim, i));
        EXPECT_EQ(dim, rows[i].dim) << name;
        checkAnswers(rdbGetInt1(hd, "outGradVarDim", &dim, i));
        EXPECT_EQ(dim, 3 * rows[i].dim) << name;
    }
    rdbFree(hd);
}

/* ---------------------------------------------------------------------------------------------------- counters */

TEST(outCounters, takenFromTheFirstFile)
{
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    EXPECT_EQ(hd->run->nSpecs, -1);
    checkAnswers(rdbInitOut(hd));
    EXPECT_EQ(hd->run->nSpecs, 2);
    EXPECT_EQ(hd->run->nFilms, 3);
    EXPECT_EQ(hd->run->nFields, 4);
    EXPECT_EQ(hd->run->nAoutVecs, 2);
    rdbFree(hd);
}

TEST(outCounters, anAbsentOneHasTheValueOfTheOneBefore)
{
    static const struct { bool omitFilms, omitFields; int nFilms, nFields; } rows[] = {
        { true, false, 2, 4 }, { false, true, 3, 3 }, { true, true, 2, 2 },
    };
    for (const auto &form : smallForms)
        for (const auto &row : rows) {
            SmallRun run;
            run.form = form.form;
            run.omitFilms = row.omitFilms;
            run.omitFields = row.omitFields;
            rdbHd *hd = run.writeAndOpen();
            checkAnswers(rdbInitOut(hd));
            EXPECT_EQ(hd->run->nFilms, row.nFilms);
            EXPECT_EQ(hd->run->nFields, row.nFields);
            rdbFree(hd);
            remove(run.firstName(5).c_str());
        }
}

TEST(outCounters, mustAgreeWithWhatTheRunHas)
{
    static const struct { const char *key; int runHd::*counter; int right; } rows[] = {
        { "nSpecs", &runHd::nSpecs, 2 }, { "nFilms", &runHd::nFilms, 3 }, { "nFields", &runHd::nFields, 4 },
        { "nAoutVecs", &runHd::nAoutVecs, 2 },
    };
    for (const auto &row : rows) {
        SmallRun run;
        rdbHd   *hd = run.writeAndOpen();
        hd->run->*row.counter = 9;
        checkFails(std::string("Inconsistent ") + row.key + " in file <./p.1_5_0.out>", rdbInitOut(hd));
        checkFails("rdbInitOut", rdbInitOut(hd));
        EXPECT_EQ(hd->run->*row.counter, 9);
        hd->run->*row.counter = row.right;
        checkAnswers(rdbInitOut(hd));
        rdbFree(hd);
    }
}

TEST(outCounters, theCarriedValueIsCompared)
{
    SmallRun run;
    run.omitFilms = run.omitFields = true;
    rdbHd *hd = run.writeAndOpen();
    hd->run->nFilms = 3;
    checkFails("Inconsistent nFilms in file <./p.1_5_0.out>", rdbInitOut(hd));
    rdbFree(hd);
}

TEST(outCounters, speciesLinesMustAgreeToo)
{
    SmallRun run;
    run.extraCli = "#@ SPC  \"water\" x\n";
    rdbHd *hd = run.writeAndOpen();
    checkFails("Inconsistent nSpecs in file <./p.1_5_0.out>", rdbInitOut(hd));
    rdbFree(hd);
}

/* A client sizes an array by the width before the file is asked for the values */
TEST(outCounters, widthsThatNoFileCouldHold)
{
    static const struct { const char *key; int SmallRun::*count, bit; } rows[] = {
        { "nSpecs", &SmallRun::nSpecs, 3 }, { "nFilms", &SmallRun::nFilms, 29 }, { "nFields", &SmallRun::nFields, 22 },
        { "nAoutVecs", &SmallRun::nAoutVecs, 10 },
    };
    for (const auto &form : smallForms)
        for (const auto &row : rows)
            for (int width : { -1, INT_MIN, INT_MAX, 1000000 })
                for (bool merged : { false, true }) {
                    SCOPED_TRACE(std::string(form.name) + ", " + row.key + " " + std::to_string(width));
                    SmallRun run;
                    run.form = form.form;
                    run.merged = merged;
                    run.mask = 1 << row.bit;
                    run.*row.count = width;
                    rdbHd *hd = run.writeAndOpen();
                    int    dim = 0;
                    checkFails(std::string("Invalid ") + row.key + " <" + std::to_string(width) + "> in files <p.1_5_>",
                               rdbGetInt1(hd, "outVarDim", &dim, 0));
                    EXPECT_EQ(hd->run->nSpecs, -1);
                    EXPECT_EQ(dim, 0);
                    run.mask = 1;                                 /* what no variable uses does no harm */
                    run.writeStep(5);
                    checkAnswers(rdbGetInt1(hd, "outVarDim", &dim, 0));
                    EXPECT_EQ(dim, 3);
                    rdbFree(hd);
                    for (int p = 0; p < 2; ++p) remove((SmallRun::partName(5, p) + run.suffix()).c_str());
                    remove((SmallRun::mergedName(5) + run.suffix()).c_str());
                }
}

/* A step that is being written is shorter than what its header announces: a width that is small in all is believed */
TEST(outCounters, aLargeWidthOfAShortFile)
{
    for (const auto &form : smallForms) {
        SmallRun run;
        run.form = form.form;
        run.mask = 1 << 3;
        run.nSpecs = 1000;
        run.vars.clear();
        rdbHd *hd = run.writeAndOpen();
        int    dim = 0;
        checkAnswers(rdbGetInt1(hd, "outVarDim", &dim, 0));
        EXPECT_EQ(dim, 1000);
        rdbFree(hd);
        for (int p = 0; p < 2; ++p) remove((SmallRun::partName(5, p) + run.suffix()).c_str());
    }
}

/* 70 species on 40000 nodes, which the two parts hold together: a part that is missing is told when it is looked for,
   and a run without subdomains has zeros of them */
TEST(outCounters, aWidthThatOnlyAllPartsHold)
{
    enum { N = 40000, DIM = 70 };
    SmallRun run;
    run.usrIds.clear();
    run.parts.assign(2, {});
    for (int i = 0; i < N; ++i) run.usrIds.push_back(i + 1), run.parts[i % 2].push_back(i);
    run.nSpecs = DIM;
    run.mask = 1 << 3;
    run.vars = { { "vel", 3 }, { "pres", 1 }, { "temp", 1 }, { "spec", DIM } };
    run.write();
    std::vector<double> values((size_t) N * DIM, -1.0);
    for (int missing : { 0, 1 }) {
        if (missing) remove("p.1_5_1.out.B");
        rdbHd *hd = SmallRun::open();
        int    dim = 0;
        checkAnswers(rdbGetInt1(hd, "outVarDim", &dim, 0));
        EXPECT_EQ(dim, DIM);
        if (missing) checkRefused(".out file not found", rdbGetReals2(hd, "outValues", values.data(), 0, 0, DIM, N));
        else checkAnswers(rdbGetReals2(hd, "outValues", values.data(), 0, 0, DIM, N));
        rdbFree(hd);
    }
    run.writeStep(5);
    run.parts.clear();
    testWrite("p.1.cli", run.cli());
    rdbHd *hd = SmallRun::open();
    checkAnswers(rdbGetReals2(hd, "outValues", values.data(), 0, 0, DIM, N));
    EXPECT_EQ(values, std::vector<double>((size_t) N * DIM, 0.0));
    rdbFree(hd);
}

/* ------------------------------------------------------------------------------------------------ keys and times */

TEST(outHead, aRequiredKeyThatIsMissing)
{
    static const char *const keys[] = { "time", "mask", "nSpecs", "nAoutVecs" };
    for (const char *missing : keys) {
        SmallRun run;
        rdbHd   *hd = run.writeAndOpen();
        {
            tool::TokenFile f(SmallRun::partName(5, 0), run.form);
            for (const char *key : keys) {
                if (key == missing) f.keyInt("other", 0);
                else if (key == keys[0]) f.keyReal(key, 1);
                else f.keyInt(key, 1);
            }
        }
        checkFails(std::string("data out of order: expected <") + missing + "> found <other>", rdbInitOut(hd));
        EXPECT_GT(testSlept(), 0);                                /* looked twice, for a writer's sake */
        run.writeStep(5);
        checkAnswers(rdbInitOut(hd));
        rdbFree(hd);
    }
}

TEST(outTimes, eachReadOnceWhenAsked)
{
    for (bool merged : { false, true }) {
        SmallRun run;
        run.merged = merged;
        run.steps = { 2, 4, 8 };
        rdbHd *hd = run.writeAndOpen();
        double time = 0, times[3];
        checkAnswers(rdbInitOut(hd));
        EXPECT_EQ(hd->run->out[RDB_OUT_OUT]->times[0], -1.0);     /* discovery does not keep it */
        checkAnswers(rdbGetReal1(hd, "outTime", &time, 1));
        EXPECT_EQ(time, 1.0);
        remove(run.firstName(4).c_str());
        checkAnswers(rdbGetReal1(hd, "outTime", &time, 1));
        EXPECT_EQ(time, 1.0);
        checkAnswers(rdbGetReals0(hd, "outTimes", times, 3, 1));
        EXPECT_EQ(times[0], 0.5);
        EXPECT_EQ(times[1], 1.0);
        EXPECT_EQ(times[2], 2.0);
        for (int step : run.steps) remove(run.firstName(step).c_str());
        checkAnswers(rdbGetReals0(hd, "outTimes", times, 3, 1));
        EXPECT_EQ(testSlept(), 0);
        rdbFree(hd);
    }
}

TEST(outTimes, nothingBehindTheTimeIsRead)
{
    SmallRun run;
    run.steps = { 2, 4 };
    run.write();
    { tool::TokenFile(SmallRun::partName(4, 0), run.form).keyReal("time", 77); }
    rdbHd *hd = SmallRun::open();
    double time = 0;
    checkAnswers(rdbGetReal1(hd, "outTime", &time, 1));
    EXPECT_EQ(time, 77);
    rdbFree(hd);
}

TEST(outTimes, aFileThatHasGone)
{
    SmallRun run;
    run.steps = { 2, 4 };
    rdbHd *hd = run.writeAndOpen();
    double time = 0;
    checkAnswers(rdbInitOut(hd));
    remove(run.firstName(4).c_str());
    checkFails("unable to open binary file <./p.1_4_0.out.B>", rdbGetReal1(hd, "outTime", &time, 1));
    EXPECT_EQ(testSlept(), 2);
    rdbFree(hd);
}
