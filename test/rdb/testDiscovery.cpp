/* testDiscovery.cpp: which files of a directory belong to the problem, and which runs they make. */

#include "test/rdb/smallRun.h"

#include <algorithm>
#include <filesystem>
#include <set>

/* An empty file for each name, in the folder "db"; a container is one without files in it */
static void makeFiles(const std::vector<std::string> &names)
{
    std::filesystem::create_directories("db");
    for (const std::filesystem::path name : names)
        if (name.extension() == ".C") tool::Container("db/" + name.stem().string()).close();
        else testWrite("db/" + name.string(), "");
}

static rdbHd *openDb(const char *problem = "p")
{
    rdbHd *hd = nullptr;
    checkReturns(hd = rdbNew(problem, "db", nullptr, 0));
    EXPECT_NE(hd, nullptr) << rdbGetError();
    return hd;
}

static std::vector<std::string> listed(rdbHd *hd, const char *countKey, const char *nameKey)
{
    std::vector<std::string> names;
    char name[RDB_TEXT];
    int  n = -1;
    checkAnswers(rdbGetInt0(hd, countKey, &n));
    for (int i = 0; i < n; ++i) {
        checkAnswers(rdbGetStr1(hd, nameKey, name, i));
        names.push_back(name);
    }
    return names;
}

static std::vector<int> ints(rdbHd *hd, const char *countKey, const char *key)
{
    int n = -1;
    checkAnswers(rdbGetInt0(hd, countKey, &n));
    std::vector<int> values(n);
    checkAnswers(rdbGetInts0(hd, key, values.data(), n, -1));
    return values;
}

static int oneInt(rdbHd *hd, const char *key)
{
    int value = -99;
    checkAnswers(rdbGetInt0(hd, key, &value));
    return value;
}

/* The directory is newer than at the last scan, whatever the clock's grain. */
static void touch(const char *dir, int seconds)
{
    namespace fs = std::filesystem;
    fs::last_write_time(dir, fs::last_write_time(dir) + std::chrono::seconds(seconds));
}

TEST(rdbDiscovery, namesFallIntoThreeClasses)
{
    enum { RUN, AUX, UNDEF };
    static const struct { const char *name; int where; } rows[] = {
        /* one file for each run */
        { "p.1.cli", RUN },         { "p.12.ddc.B", RUN },
        { "p.1.out", UNDEF },       { "p.1.osf", UNDEF },      { "p.1.Log", UNDEF },       { "p.x.cli", UNDEF },
        { "p.1.cli.X", UNDEF },     { "p.1.cli.B.B", UNDEF },  { "p.1.cli~", UNDEF },      { "p..cli", UNDEF },
        /* for each step, set, or the like: one number, then two, then three */
        { "p.1_2.dat", RUN },       { "p.1_2.rst", RUN },      { "p.1_2.osn.B", RUN },     { "p.1_2.pli", RUN },
        { "p.1_x.dat", UNDEF },     { "p.1_2.out", UNDEF },    { "p.1_2.cli", UNDEF },
        { "p.1_2_3.out", RUN },     { "p.1_2_x.out.B", RUN },  { "p.1_2_3.rst", RUN },     { "p.1_2_0.psl.B", RUN },
        { "p.1_x_x.ocn", UNDEF },   { "p.1_2_3.dat", UNDEF },  { "p.1_2_y.out", UNDEF },
        { "p.1_2_3_4.osf", RUN },   { "p.1_2_3_x.ove", RUN },  { "p.1_2_3_4.out", UNDEF }, { "p.1_2_3_4_5.osf", UNDEF },
        /* auxiliary files */
        { "p.slv", AUX },           { "p.rad.B", AUX },        { "p.3.slv", AUX },         { "p.sig.Z", AUX },
        { "p.vis", AUX },           { "p.vis.H", UNDEF },      { "p.3.vis", UNDEF },       { "p.x.slv", UNDEF },
        { "p.1.rad", RUN },         { "p.1.sig", RUN },
        /* other problems, and whatever else lies about */
        { "pq.1.cli", UNDEF },      { "q.1.cli", UNDEF },      { "P.1.cli", UNDEF },       { "README", UNDEF },
        { "p", UNDEF },             { ".p.1.cli", UNDEF },     { "box.C", UNDEF },
    };
    std::vector<std::string> all, expected[3];
    for (const auto &row : rows) {
        all.push_back(row.name);
        expected[row.where].push_back(row.name);
    }
    for (auto &names : expected) std::sort(names.begin(), names.end());
    makeFiles(all);

    rdbHd *hd = openDb();
    EXPECT_EQ(hd->nRunFiles, (int) expected[RUN].size());
    EXPECT_EQ(listed(hd, "nAuxFiles", "auxFileName"), expected[AUX]);
    EXPECT_EQ(listed(hd, "nUndefFiles", "undefFileName"), expected[UNDEF]);

    std::vector<std::string> inOrder;                /* the three parts, each sorted */
    for (const auto &names : expected) inOrder.insert(inOrder.end(), names.begin(), names.end());
    EXPECT_EQ(listed(hd, "nFiles", "fileName"), inOrder);
    rdbFree(hd);
}

/* Every kind of run file, in every form, and none of them with fewer or more numbers than its kind has. */
TEST(rdbDiscovery, kindsOfRunFiles)
{
    static const struct { const char *numbers, *other; std::vector<const char *> suffixes; } rows[] = {
        { ".1", ".1_2_3_4",
          { "cli", "ddc", "fwh", "top", "log", "osi", "oss", "oth", "ori", "oqi", "oei", "oes", "ofc", "ohc", "rad",
            "tmf", "rff", "mmo", "fbd", "dop", "sig", "vfm", "ohd" } },
        { ".1_2", ".1_2_3", { "dat", "ohd", "osn", "oaa", "ofs", "ovs", "ove", "pli" } },
        { ".1_2", ".1", { "dat", "rst", "osn", "oaa", "ofs", "ovs", "ove", "pli" } },
        { ".1_2_x", ".1_2",
          { "out", "ocn", "opv", "ota", "ora", "odq", "onr", "oee", "oae", "orn", "oqf", "psl", "ptc", "pps", "pin" } },
        { ".1_2_3", ".1_2_3_4",
          { "out", "rst", "ocn", "opv", "ota", "ora", "odq", "onr", "oee", "oae", "orn", "oqf", "psl", "ptc", "pps",
            "pin" } },
        { ".1_2_x_4", ".1_2_x", { "osf", "orf", "oaa", "ofs", "ovs", "ove" } },
        { ".1_2_3_x", ".1", { "osf", "orf", "oaa", "ofs", "ovs", "ove" } },
    };
    std::set<std::string> runFiles = { "p.1.cli" }, others;
    for (const auto &row : rows)
        for (const std::string suffix : row.suffixes) {
            for (const char *form : { "", ".B", ".Z", ".H", ".C" })
                runFiles.insert(std::string("p") + row.numbers + "." + suffix + form);
            others.insert(std::string("p") + row.other + "." + suffix);
            others.insert(std::string("p") + row.numbers + "." + suffix + ".A");
        }
    makeFiles({ runFiles.begin(), runFiles.end() });
    makeFiles({ others.begin(), others.end() });

    rdbHd *hd = openDb();
    EXPECT_EQ(std::vector<std::string>(hd->files, hd->files + hd->nRunFiles),
              std::vector<std::string>(runFiles.begin(), runFiles.end()));
    EXPECT_EQ(listed(hd, "nUndefFiles", "undefFileName"), std::vector<std::string>(others.begin(), others.end()));
    rdbFree(hd);
}

TEST(rdbDiscovery, manyNamesInAnyOrder)
{
    std::vector<std::string> names = { "p.1.cli" };
    for (int i = 0; i < 1500; ++i) names.push_back("p.1_" + std::to_string(i) + "_0.out");
    makeFiles(names);
    std::sort(names.begin(), names.end());
    rdbHd *hd = openDb();
    EXPECT_EQ(listed(hd, "nFiles", "fileName"), names);
    rdbFree(hd);
}

TEST(rdbDiscovery, emptyDirectoryHasNoProblem)
{
    makeFiles({});
    rdbHd *hd = (rdbHd *) &hd;
    checkReturns(hd = rdbNew("p", "db", nullptr, 0));
    EXPECT_EQ(hd, nullptr);
    EXPECT_STREQ(rdbGetError(), "problem p not found");
}

TEST(rdbDiscovery, runsAscendAndTheLargestIsKnown)
{
    makeFiles({ "p.7.cli", "p.1.cli", "p.12.cli", "p.12.ddc", "p.30.ddc", "q.40.cli" });
    rdbHd *hd = openDb();
    EXPECT_EQ(ints(hd, "nRuns", "runIds"), (std::vector<int> { 1, 7, 12 }));
    EXPECT_EQ(hd->maxRunId, 12);
    int id = 0;
    checkAnswers(rdbGetInt1(hd, "runId", &id, 1));
    EXPECT_EQ(id, 7);
    rdbFree(hd);
}

TEST(rdbDiscovery, binaryClientInformationIsARunFileButNoRun)
{
    makeFiles({ "p.1.cli", "p.2.cli.B" });
    rdbHd *hd = openDb();
    EXPECT_EQ(hd->nRunFiles, 2);
    EXPECT_EQ(ints(hd, "nRuns", "runIds"), std::vector<int> { 1 });
    rdbFree(hd);
}

TEST(rdbDiscovery, leadingZeroMeansOctal)
{
    makeFiles({ "p.010.cli" });
    rdbHd *hd = openDb();
    EXPECT_EQ(ints(hd, "nRuns", "runIds"), std::vector<int> { 8 });
    rdbFree(hd);
}

TEST(rdbDiscovery, numbersThatNoRunCanHaveMakeNone)
{
    makeFiles({ "p.3.cli", "p.2147483648.cli", "p.99999999999999999999.cli", "p.4294967296_1_0.psl" });
    rdbHd *hd = openDb();
    EXPECT_EQ(hd->nRunFiles, 4);
    EXPECT_EQ(ints(hd, "nRuns", "runIds"), std::vector<int> { 3 });
    EXPECT_EQ(oneInt(hd, "nTruns"), 0);
    rdbFree(hd);
}

TEST(rdbDiscovery, twoNamesForOneRunFail)
{
    makeFiles({ "p.1.cli", "p.01.cli", "p.2.cli" });
    checkFails("Duplicate key <1>", rdbNew("p", "db", nullptr, 0));
}

TEST(rdbDiscovery, twoNamesForRunZeroFail)
{
    for (const std::vector<std::string> &others : { std::vector<std::string> {}, { "p.1.cli", "p.7.cli" } }) {
        makeFiles({ "p.0.cli", "p.00.cli" });
        makeFiles(others);
        checkFails("Duplicate key <0>", rdbNew("p", "db", nullptr, 0));
    }
}

/* The failure comes in the middle of a scan: the handle knows less, but points nowhere. */
TEST(rdbDiscovery, aFailedScanLeavesAHandleThatCanBeUsed)
{
    makeFiles({ "p.1.cli", "p.3.cli" });
    rdbHd *hd = openDb();
    makeFiles({ "p.01.cli" });
    touch("db", 2);
    int flag, value = 0;
    checkFails("Duplicate key <1>", rdbUpdate(hd, &flag));
    EXPECT_EQ(oneInt(hd, "nRuns"), 0);
    EXPECT_EQ(oneInt(hd, "nFiles"), 3);
    checkRefused("index1 (0) is out of range [0,-1]", rdbGetInt1(hd, "runId", &value, 0));
    checkRefused("runId 3 not found", rdbOpenRun(hd, 3));
    std::filesystem::remove("db/p.01.cli");
    touch("db", 2);
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(ints(hd, "nRuns", "runIds"), (std::vector<int> { 1, 3 }));
    rdbFree(hd);
}

TEST(rdbDiscovery, traceRunsArePairsOfIds)
{
    makeFiles({ "p.1.cli", "p.2_5_x.psl", "p.1_3_0.ptc", "p.1_2_3.psl", "p.1_2_3.ptc", "p.1_2_4.psl.B", "p.2_1_0.pps",
                "p.1_7_0.out", "p.1_8.pli" });
    rdbHd *hd = openDb();
    EXPECT_EQ(ints(hd, "nTruns", "trunRunIds"), (std::vector<int> { 1, 1, 2, 2 }));
    EXPECT_EQ(ints(hd, "nTruns", "trunIds"),    (std::vector<int> { 2, 3, 1, 5 }));
    EXPECT_EQ(oneInt(hd, "maxTrunId"), 5);
    int value = 0;
    checkAnswers(rdbGetInt1(hd, "trunId", &value, 3));
    EXPECT_EQ(value, 5);
    checkAnswers(rdbGetInt1(hd, "trunRunId", &value, 3));
    EXPECT_EQ(value, 2);
    checkRefused("index1 (4) is out of range [0,3]", rdbGetInt1(hd, "trunId", &value, 4));
    rdbFree(hd);
}

TEST(rdbDiscovery, onePieceMakesATraceRun)
{
    makeFiles({ "p.1.cli", "p.1_2_x.psl" });
    rdbHd *hd = openDb();
    EXPECT_EQ(ints(hd, "nTruns", "trunRunIds"), std::vector<int> { 1 });
    EXPECT_EQ(ints(hd, "nTruns", "trunIds"),    std::vector<int> { 2 });
    rdbFree(hd);
}

/* The trace expression repeats the last character of the problem and has no end. It is tried on run files alone, and
   pp.1_2_3.psl is one of problem "pp": "p+" in the problem's name shows it from the other side. */
TEST(rdbDiscovery, traceExpressionRepeatsTheLastCharacterAndHasNoEnd)
{
    makeFiles({ "p.1.cli", "p.1_2_3.psl.B", "pp.1_4_3.psl" });
    rdbHd *hd = openDb("p");
    EXPECT_EQ(ints(hd, "nTruns", "trunIds"), std::vector<int> { 2 });
    EXPECT_EQ(listed(hd, "nUndefFiles", "undefFileName"), std::vector<std::string> { "pp.1_4_3.psl" });
    rdbFree(hd);

    hd = openDb("pp?");
    EXPECT_EQ(ints(hd, "nTruns", "trunIds"), (std::vector<int> { 2, 4 }));
    rdbFree(hd);
}

TEST(rdbDiscovery, traceIdsAscendAsNumbersAndMayBeOctal)
{
    makeFiles({ "p.1.cli", "p.1_10_0.psl", "p.1_9_0.psl", "p.1_010_0.psl", "p.1_6_0.pin" });
    rdbHd *hd = openDb();
    EXPECT_EQ(ints(hd, "nTruns", "trunIds"), (std::vector<int> { 6, 8, 9, 10 }));
    EXPECT_EQ(ints(hd, "nTruns", "trunRunIds"), (std::vector<int> { 1, 1, 1, 1 }));
    EXPECT_EQ(oneInt(hd, "maxTrunId"), 10);
    rdbFree(hd);
}

/* An empty alternative ends the problem's name: the trace expression alone has a "+" then that repeats nothing. */
TEST(rdbDiscovery, traceExpressionRepeatsNothingBehindAnAlternative)
{
    makeFiles({ ".1.cli" });
    checkFails("Badly placed special character", rdbNew("p|", "db", nullptr, 0));
}

TEST(rdbDiscovery, rescanWithoutTraceFilesKeepsTheFormerCount)
{
    makeFiles({ "p.1.cli", "p.1_2_3.psl", "p.1_4_3.psl" });
    rdbHd *hd = openDb();
    std::filesystem::remove("db/p.1_2_3.psl");
    std::filesystem::remove("db/p.1_4_3.psl");
    touch("db", 2);
    int flag = 0, value = -1, values[2] = { -1, -1 };
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(oneInt(hd, "nTruns"), 2);
    EXPECT_EQ(oneInt(hd, "maxTrunId"), 4);
    EXPECT_EQ(hd->trunIds, nullptr);
    checkRefused("no trace runs found", rdbGetInt1(hd, "trunId", &value, 0));
    checkRefused("no trace runs found", rdbGetInts0(hd, "trunRunIds", values, 2, -1));
    rdbFree(hd);
}

TEST(rdbDiscovery, withoutTraceFilesThereAreNone)
{
    makeFiles({ "p.1.cli" });
    rdbHd *hd = openDb();
    EXPECT_EQ(ints(hd, "nTruns", "trunIds"), std::vector<int>());
    EXPECT_EQ(oneInt(hd, "maxTrunId"), 0);
    rdbFree(hd);
}

TEST(rdbDiscovery, containersAreKnownByTheirNames)
{
    makeFiles({ "p.1.cli", "p.1_0_x.out.C", "box.C", "box.c" });
    rdbHd *hd = openDb();
    ASSERT_EQ(hd->nContainers, 2);
    std::vector<std::string> names(hd->containerNames, hd->containerNames + 2);
    EXPECT_EQ(names, (std::vector<std::string> { "box.C", "p.1_0_x.out.C" }));
    for (int i = 0; i < 2; ++i) EXPECT_EQ(iopGetNHdfFiles(hd->containers[i]), 0);
    EXPECT_EQ(oneInt(hd, "nFiles"), 4);                   /* a container's own name stays in the list */
    rdbFree(hd);
}

/* A problem's name stands in the expressions as it is. */
TEST(rdbDiscovery, problemNameIsPartOfTheExpression)
{
    makeFiles({ "pipe.1.cli", "pope.2.cli", "ppe.3.cli" });
    rdbHd *hd = openDb("p.pe");
    EXPECT_EQ(ints(hd, "nRuns", "runIds"), (std::vector<int> { 1, 2 }));
    rdbFree(hd);
}

TEST(rdbDiscovery, problemNameThatMakesABadExpressionFails)
{
    makeFiles({ "p.1.cli" });
    static const struct { const char *problem, *text; } rows[] = {
        { "p(", "Badly placed parenthesis" },
        { "p)", "Badly placed parenthesis" },
        { "p\\9", "Bad match register number" },
        { "*",  "Badly placed special character" },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.problem);
        checkFails(row.text, rdbNew(row.problem, "db", nullptr, 0));
    }
    const std::string longName(9000, 'p');
    checkFails("problem name is too long", rdbNew(longName.c_str(), "db", nullptr, 0));
    checkFails("rdbUpdateDir", rdbNew("p(", "db", nullptr, 0));
}

/* A group in the problem's name takes the place of the group that holds the number. */
TEST(rdbDiscovery, emptyGroupIsInconsistent)
{
    makeFiles({ "p.1.cli" });
    checkFails("Inconsistent pattern matching for file <p.1.cli>", rdbNew("p(x)?", "db", nullptr, 0));
    checkFails("Function <rdbUpdateDir>", rdbNew("p(x*)", "db", nullptr, 0));
}

TEST(rdbDiscovery, longProblemNamesAreFound)
{
    const std::string problem(200, 'p');
    makeFiles({ problem + ".1.cli" });
    rdbHd *hd = openDb(problem.c_str());
    EXPECT_EQ(oneInt(hd, "nRuns"), 1);
    rdbFree(hd);
}
