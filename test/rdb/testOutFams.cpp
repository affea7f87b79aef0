/* testOutFams.cpp: the other families of nodal output: what they have in common with .out, in all forms, and in what
 * each of them is odd. */

#include <climits>
#include <cstdio>
#include <filesystem>
#include <regex>

#include "test/rdb/smallRun.h"
#include "tool/runWriter.h"

namespace fs = std::filesystem;

static const double untouched = -77;

/* The keys of a family */
struct FamKeys {
    std::string ext, Ext;
    explicit FamKeys(const std::string &stem) : ext(stem), Ext(stem) { Ext[0] = (char) toupper(Ext[0]); }
    std::string nSteps() const { return "n" + Ext + "Steps"; }
    std::string nVars() const { return "n" + Ext + "Vars"; }
    std::string of(const char *what) const { return ext + what; }
    std::string init() const { return "rdbInit" + Ext; }
    bool newest() const { return ext == "ocn"; }
};

static const struct { const char *ext; int nRows; } families[] = {
    { "ora", 22 }, { "ota", 6 }, { "onr", 16 }, { "odq", 19 },
    { "oae", 30 }, { "oee", 30 }, { "rst", 46 }, { "ocn", 37 },
};

static uint64_t allRows(int n) { return (uint64_t(1) << n) - 1; }

/* Run 1 of "pipe" in this folder: 12 nodes, two parts, the steps 4 and 9 */
static tool::RunSpec smallSpec()
{
    tool::RunSpec spec;
    spec.dataDir = ".";
    spec.nx = 2;
    spec.ny = spec.nz = 1;
    spec.nSds = 2;
    spec.scattered = true;
    spec.setSteps(2, 4, 5);
    spec.nSpecs = 2;
    spec.nFields = 3;
    spec.nFilms = 4;
    spec.nAoutVecs = 5;
    return spec;
}

static tool::RunSpec specOf(const tool::FamSpec &fam)
{
    tool::RunSpec spec = smallSpec();
    spec.families = { fam };
    return spec;
}

static tool::RunSpec specOf(const char *ext, uint64_t rows)
{
    tool::FamSpec fam;
    fam.ext = ext;
    fam.rows = rows;
    return specOf(fam);
}

/* Width of the conductivity: no other test's runs count */
static void forgetOlderRuns() { odqOdq.older->met = 0; }

static void clearFolder()
{
    for (const auto &entry : fs::directory_iterator(".")) fs::remove_all(entry.path());
}

/* As if the files had been written long ago: what has just changed is not kept between requests */
static void letSettle()
{
    for (const auto &entry : fs::directory_iterator("."))
        fs::last_write_time(entry.path(), fs::file_time_type::clock::now() - std::chrono::seconds(60));
}

static int intOf(rdbHd *hd, const std::string &key)
{
    int n = -99;
    checkAnswers(rdbGetInt0(hd, key.c_str(), &n));
    return n;
}

static int valuesCall(rdbHd *hd, const FamKeys &keys, double *values, int var, int step)
{
    const std::string key = keys.of("Values");
    return keys.newest() ? rdbGetReals1(hd, key.c_str(), values, var, -1, -1)
                         : rdbGetReals2(hd, key.c_str(), values, var, step, -1, -1);
}

/* The variable at a position of the list against what the writer tells */
static void checkValues(rdbHd *hd, const tool::RunModel &model, const tool::FamSpec &fam, int i, int row, int step)
{
    const int dim = famDim(model, fam, row);
    std::vector<double> values((size_t) model.nNodes * dim, untouched);
    checkAnswers(valuesCall(hd, FamKeys(fam.ext), values.data(), i, step));
    int nWrong = 0;
    for (int node = 0; node < model.nNodes; ++node)
        for (int k = 0; k < dim; ++k)
            nWrong += values[(size_t) node * dim + k] != famValue(model, fam, row, k, node, step);
    EXPECT_EQ(nWrong, 0) << famName(fam, row) << " of step " << step;
}

static void checkList(rdbHd *hd, const tool::RunModel &model, const tool::FamSpec &fam)
{
    const FamKeys keys(fam.ext);
    const std::vector<int> rows = famVars(fam);
    ASSERT_EQ(intOf(hd, keys.nVars()), (int) rows.size());
    for (int i = 0; i < (int) rows.size(); ++i) {
        char name[SYS_TEXT];
        int  dim = -1;
        checkAnswers(rdbGetStr1(hd, keys.of("VarName").c_str(), name, i));
        EXPECT_STREQ(name, famName(fam, rows[i]));
        checkAnswers(rdbGetInt1(hd, keys.of("VarDim").c_str(), &dim, i));
        EXPECT_EQ(dim, famDim(model, fam, rows[i])) << name;
    }
}

static void checkSteps(rdbHd *hd, const tool::RunModel &model, const tool::FamSpec &fam)
{
    const FamKeys keys(fam.ext);
    const int     n = model.nSteps();
    double        time = untouched;
    if (keys.newest()) {
        EXPECT_EQ(intOf(hd, "ocnStep"), model.spec.steps[n - 1]);
        checkAnswers(rdbGetReal0(hd, "ocnTime", &time));
        EXPECT_EQ(time, model.time(n - 1));
        return;
    }
    ASSERT_EQ(intOf(hd, keys.nSteps()), n);
    std::vector<int>    steps(n);
    std::vector<double> times(n);
    checkAnswers(rdbGetInts0(hd, keys.of("Steps").c_str(), steps.data(), n, 1));
    checkAnswers(rdbGetReals0(hd, keys.of("Times").c_str(), times.data(), n, 1));
    EXPECT_EQ(steps, model.spec.steps);
    for (int i = 0; i < n; ++i) {
        int step = -1;
        checkAnswers(rdbGetInt1(hd, keys.of("Step").c_str(), &step, i));
        EXPECT_EQ(step, steps[i]);
        checkAnswers(rdbGetReal1(hd, keys.of("Time").c_str(), &time, i));
        EXPECT_EQ(time, model.time(i));
        EXPECT_EQ(times[i], time);
    }
}

static void checkAll(rdbHd *hd, const tool::RunModel &model, const tool::FamSpec &fam)
{
    SCOPED_TRACE(fam.ext);
    const std::vector<int> rows = famVars(fam);
    const int n = (int) rows.size(), firstStep = fam.ext == "ocn" ? model.nSteps() - 1 : 0;
    checkSteps(hd, model, fam);
    checkList(hd, model, fam);
    for (int step = firstStep; step < model.nSteps(); ++step) {
        for (int i = n - 1; i >= 0; --i) checkValues(hd, model, fam, i, rows[i], step);
        for (int i = 0; i < n; ++i) checkValues(hd, model, fam, i, rows[i], step);
    }
}

/* ------------------------------------------------------------------------------------------------- all families */

class outFamilies : public ::testing::Test {
protected:
    void SetUp() override { forgetOlderRuns(); }
    void TearDown() override { forgetOlderRuns(); }
};

TEST_F(outFamilies, sameInEveryForm)
{
    for (const tool::FormRow &form : tool::formRows)
        for (bool merged : { false, true }) {
            SCOPED_TRACE(std::string(form.word) + (merged ? ", merged" : ""));
            tool::RunSpec spec = smallSpec();
            spec.form = form.value;
            spec.merged = merged;
            for (const auto &family : families) {
                tool::FamSpec fam;
                fam.ext = family.ext;
                fam.rows = allRows(family.nRows);
                fam.outIndx = 1;
                fam.lists = merged;
                /* files of the newest step are looked for on the disk alone */
                if (fam.ext != "ocn" || form.value != tool::Form::container) spec.families.push_back(fam);
            }
            tool::RunModel model(spec);
            tool::writeRun(model);
            letSettle();
            rdbHd *hd = openPipe();
            for (const tool::FamSpec &fam : model.spec.families) checkAll(hd, model, fam);
            rdbFree(hd);
            clearFolder();
        }
}

/* Behind the wanted array of a merged file, arrays and lists are stepped over from wherever a request ends */
TEST_F(outFamilies, inAnyOrder)
{
    for (const char *ext : { "ota", "rst", "oee" })
        for (bool merged : { false, true })
            for (bool settled : { false, true }) {
                SCOPED_TRACE(std::string(ext) + (merged ? ", merged" : "") + (settled ? ", settled" : ""));
                tool::FamSpec fam;
                fam.ext = ext;
                fam.rows = 0x2b;                              /* rows 0, 1, 3, 5 */
                fam.lists = true;
                tool::RunSpec spec = specOf(fam);
                spec.merged = merged;
                tool::RunModel model(spec);
                tool::writeRun(model);
                if (settled) letSettle();
                rdbHd *hd = openPipe();
                const std::vector<int> rows = famVars(fam);
                for (int a = 0; a < (int) rows.size(); ++a)
                    for (int b = 0; b < (int) rows.size(); ++b)
                        for (int i : { a, b }) checkValues(hd, model, fam, i, rows[i], (a + b) % 2);
                rdbFree(hd);
                clearFolder();
            }
}

/* A name with a leading zero tells of a step whose file has another name */
TEST_F(outFamilies, aStepWithoutItsFile)
{
    for (const auto &family : families) {
        const FamKeys keys(family.ext);
        if (keys.newest()) continue;
        tool::writeRun(smallSpec());
        testWrite("pipe.1_05_0." + keys.ext, "");
        rdbHd *hd = openPipe();
        int    n;
        checkRefused(("." + keys.ext + " file not found").c_str(), rdbGetInt0(hd, keys.nVars().c_str(), &n));
        rdbFree(hd);
        clearFolder();
    }
}

TEST_F(outFamilies, aMissingPart)
{
    for (const auto &family : families) {
        const FamKeys keys(family.ext);
        if (keys.newest()) continue;
        tool::RunModel model(specOf(family.ext, 1));
        tool::writeRun(model);
        fs::remove("pipe.1_9_1." + keys.ext + ".B");
        rdbHd *hd = openPipe();
        std::vector<double> values((size_t) model.nNodes * 3, untouched);
        checkRefused(("." + keys.ext + " file not found").c_str(), valuesCall(hd, keys, values.data(), 0, 1));
        rdbFree(hd);
        clearFolder();
    }
}

TEST_F(outFamilies, noStepsAreNoError)
{
    tool::writeRun(smallSpec());
    rdbHd *hd = openPipe();
    for (const auto &family : families) {
        const FamKeys keys(family.ext);
        EXPECT_EQ(intOf(hd, keys.nVars()), 0) << keys.ext;
        if (!keys.newest()) { EXPECT_EQ(intOf(hd, keys.nSteps()), 0) << keys.ext; }
    }
    rdbFree(hd);
}

TEST_F(outFamilies, countersMustAgree)
{
    static const struct { const char *key, *told, *exts; int runHd::*counter; } counters[] = {
        { "nSpecs",    "nSpecs",    "ora ota onr odq oae oee rst ocn", &runHd::nSpecs    },
        { "nFields",   "nFields",   "ora ota onr odq oae oee rst ocn", &runHd::nFields   },
        { "nFilms",    "nFilms",    "rst ocn",                         &runHd::nFilms    },
        { "nAoutVecs", "nAoutVecs", "ocn",                             &runHd::nAoutVecs },
        { "nDODirs",   "nFields",   "rst",                             &runHd::nDODirs   },
    };
    for (const auto &family : families) {
        const FamKeys keys(family.ext);
        tool::writeRun(specOf(family.ext, 1));
        rdbHd *hd = openPipe();
        for (const auto &row : counters) {
            if (!strstr(row.exts, family.ext)) continue;
            const int held = hd->run->*row.counter;
            int       n;
            hd->run->*row.counter = 77;
            const std::string file = keys.newest() ? "pipe.1_9_0." : "pipe.1_4_0.";
            checkFails(std::string("Inconsistent ") + row.told + " in file <./" + file + keys.ext + ">",
                       rdbGetInt0(hd, keys.nVars().c_str(), &n));
            checkFails(keys.init(), rdbGetInt0(hd, keys.nVars().c_str(), &n));
            hd->run->*row.counter = held;
        }
        EXPECT_EQ(intOf(hd, keys.nVars()), 1);
        rdbFree(hd);
        clearFolder();
    }
}

/* The first family that is asked sets the counters, and the next one contradicts it */
TEST_F(outFamilies, countersOfAnotherFamily)
{
    tool::RunSpec spec = specOf("ora", 1);
    tool::writeRun(spec);
    tool::RunSpec other = specOf("rst", 1);
    other.run = 2;
    other.nFields = 1;
    tool::writeRun(other);
    for (const char *name : { "_4_0", "_4_1", "_9_0", "_9_1" })
        fs::rename(std::string("pipe.2") + name + ".rst.B", std::string("pipe.1") + name + ".rst.B");
    rdbHd *hd = openPipe();
    int    n;
    EXPECT_EQ(intOf(hd, "nOraVars"), 1);
    EXPECT_EQ(hd->run->nFields, 3);
    checkFails("Inconsistent nFields in file <./pipe.1_4_0.rst>", rdbGetInt0(hd, "nRstVars", &n));
    EXPECT_EQ(hd->run->nDODirs, -1);
    rdbFree(hd);
}

/* The text of a file, changed: `from` is an expression */
static void change(const std::string &name, const std::string &from, const std::string &to)
{
    const std::string text = testRead(name);
    const std::string other = std::regex_replace(text, std::regex(from), to, std::regex_constants::format_first_only);
    EXPECT_NE(text, other) << from << " in " << name;
    testWrite(name, other);
}

static std::string firstFile(const FamKeys &keys) { return (keys.newest() ? "pipe.1_9_0." : "pipe.1_4_0.") + keys.ext; }

TEST_F(outFamilies, aRequiredKeyThatIsMissing)
{
    for (const auto &family : families) {
        const FamKeys keys(family.ext);
        for (const char *key : { "time", "timeInc", "mask", "nSpecs", "nNodes" }) {
            if (!strcmp(key, "timeInc") && keys.ext != "rst") continue;
            SCOPED_TRACE(keys.ext + " " + key);
            tool::RunSpec spec = specOf(family.ext, 1);
            spec.form = tool::Form::ascii;
            tool::RunModel model(spec);
            tool::writeRun(model);
            change(firstFile(keys), std::string(key) + "(\\s)", "other$1");
            rdbHd *hd = openPipe();
            std::vector<double> values((size_t) model.nNodes * 3);
            checkFails(std::string("expected <") + key + "> found <other>",
                       valuesCall(hd, keys, values.data(), 0, 0));
            rdbFree(hd);
            clearFolder();
        }
    }
}

/* An optional count that is absent has the value of the one before it */
TEST_F(outFamilies, aCountThatIsAbsent)
{
    static const struct { const char *ext; std::vector<const char *> keys; int nFilms, nFields, nDODirs; } rows[] = {
        { "ora", { "nFields" },                      -1, 2, -1 },
        { "ota", { "nFields" },                      -1, 2, -1 },
        { "onr", { "nFields" },                      -1, 2, -1 },
        { "odq", { "nFields" },                      -1, 2, -1 },
        { "oae", { "nFields" },                      -1, 2, -1 },
        { "oee", { "nFields" },                      -1, 2, -1 },
        { "rst", { "nFilms" },                        2, 3, 2  },
        { "rst", { "nDODirs" },                       4, 3, 3  },
        { "rst", { "nFilms", "nFields", "nDODirs" },  2, 2, 2  },
        { "ocn", { "nFilms", "nFields" },             2, 2, -1 },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.ext) + " without " + row.keys[0]);
        tool::RunSpec spec = specOf(row.ext, 1);
        spec.form = tool::Form::ascii;
        if (!strcmp(row.ext, "rst")) spec.nFields = row.nFields;      /* so many names follow */
        tool::RunModel model(spec);
        tool::writeRun(model);
        change("pipe.1.cli", "(#@ MFD[^\\n]*\\n)+", "");
        for (const char *key : row.keys) change(firstFile(FamKeys(row.ext)), std::string(key) + "\\s+\\d+\\s", "");
        rdbHd *hd = openPipe();
        EXPECT_EQ(intOf(hd, FamKeys(row.ext).nVars()), 1);
        EXPECT_EQ(hd->run->nFilms, row.nFilms);
        EXPECT_EQ(hd->run->nFields, row.nFields);
        EXPECT_EQ(hd->run->nDODirs, row.nDODirs);
        std::vector<double> values((size_t) model.nNodes * 3);
        checkAnswers(valuesCall(hd, FamKeys(row.ext), values.data(), 0, 0));
        rdbFree(hd);
        clearFolder();
    }
}

TEST_F(outFamilies, widthsThatNoFileCouldHold)
{
    static const struct { const char *ext, *key; int row; } rows[] = {
        { "ora", "nSpecs", 3 }, { "onr", "nFields", 15 }, { "odq", "nSpecs", 6 }, { "oee", "nFields", 28 },
        { "rst", "nDODirs", 36 }, { "rst", "nFilms", 37 }, { "ocn", "nAoutVecs", 10 },
    };
    for (const auto &row : rows)
        for (const char *width : { "2147483647", "-1" }) {
            const FamKeys keys(row.ext);
            tool::RunSpec spec = specOf(row.ext, uint64_t(1) << row.row);
            spec.form = tool::Form::ascii;
            tool::writeRun(spec);
            change("pipe.1.cli", "(#@ MFD[^\\n]*\\n)+", "");
            change("pipe.1.cli", "(#@ SPC[^\\n]*\\n)+", "");
            change(firstFile(keys), std::string(row.key) + "\\s+\\d+", std::string(row.key) + " " + width);
            rdbHd *hd = openPipe();
            int    n;
            checkFails(std::string("Invalid ") + row.key + " <" + width + "> in files <pipe.1_",
                       rdbGetInt0(hd, keys.nVars().c_str(), &n));
            rdbFree(hd);
            clearFolder();
        }
}

/* --------------------------------------------------------------------------------------- rows that may be absent */

TEST_F(outFamilies, presenceByOutIndx)
{
    for (const char *ext : { "oae", "oee" })
        for (int outIndx : { 0, 1 })
            for (bool omitted : { false, true })
                for (bool merged : { false, true }) {
                    if (omitted && outIndx != 0) continue;
                    SCOPED_TRACE(std::string(ext) + " " + std::to_string(outIndx) + (merged ? ", merged" : ""));
                    tool::FamSpec fam;
                    fam.ext = ext;
                    fam.rows = allRows(30);
                    fam.outIndx = outIndx;
                    fam.omitIndx = omitted;
                    tool::RunSpec spec = specOf(fam);
                    spec.merged = merged;
                    tool::RunModel model(spec);
                    tool::writeRun(model);
                    letSettle();
                    rdbHd *hd = openPipe();
                    EXPECT_EQ(intOf(hd, FamKeys(ext).nVars()), outIndx ? 30 : ext[1] == 'a' ? 23 : 17);
                    checkAll(hd, model, fam);
                    rdbFree(hd);
                    clearFolder();
                }
}

/* The mask moves on at rows that are there alone */
TEST_F(outFamilies, bitsOfRowsThatAreThere)
{
    tool::FamSpec fam;
    fam.ext = "oee";
    fam.rows = 1 << 2 | 1 << 4 | 1 << 29;
    tool::RunModel model(specOf(fam));
    tool::writeRun(model);
    rdbHd *hd = openPipe();
    checkList(hd, model, fam);
    EXPECT_EQ(hd->run->out[RDB_OUT_OEE]->mask, 1 << 2 | 1 << 3 | 1 << 16);
    checkAll(hd, model, fam);
    rdbFree(hd);
}

TEST_F(outFamilies, anOutIndxThatIsNone)
{
    for (const char *ext : { "oae", "oee" })
        for (const char *index : { "2", "-1", "2147483647" }) {
            const FamKeys keys(ext);
            tool::RunSpec spec = specOf(ext, 1);
            spec.form = tool::Form::ascii;
            tool::RunModel model(spec);
            tool::writeRun(model);
            std::vector<double> values((size_t) model.nNodes * 3);
            const std::string text = std::string("Invalid outIndx <") + index + "> vs. <2>";
            int n;
            rdbHd *hd = openPipe();
            change("pipe.1_4_0." + keys.ext, "outIndx\\s+0", std::string("outIndx ") + index);
            change("pipe.1_9_1." + keys.ext, "outIndx\\s+0", std::string("outIndx ") + index);
            checkFails(text, rdbGetInt0(hd, keys.nVars().c_str(), &n));
            checkFails(keys.init(), rdbGetInt0(hd, keys.nVars().c_str(), &n));
            change("pipe.1_4_0." + keys.ext, "outIndx\\s+\\S+", "outIndx 0");
            checkFails(text, valuesCall(hd, keys, values.data(), 0, 1));
            checkFails("rdb_" + keys.of("Values"), valuesCall(hd, keys, values.data(), 0, 1));
            checkAnswers(valuesCall(hd, keys, values.data(), 0, 0));
            rdbFree(hd);
            clearFolder();
        }
}

/* A list cannot hold a row that is not there, unless memory was overwritten */
TEST_F(outFamilies, aWantedRowThatIsNotThere)
{
    tool::RunModel model(specOf("oae", 1));
    tool::writeRun(model);
    rdbHd *hd = openPipe();
    EXPECT_EQ(intOf(hd, "nOaeVars"), 1);
    hd->run->out[RDB_OUT_OAE]->varIds[0] = 3;
    std::vector<double> values((size_t) model.nNodes);
    checkFails("Internal error <3>", rdbGetReals2(hd, "oaeValues", values.data(), 0, 0, -1, -1));
    checkFails("rdb_oaeValues", rdbGetReals2(hd, "oaeValues", values.data(), 0, 0, -1, -1));
    rdbFree(hd);
}

/* Rows that are there are stepped over whatever the mask says */
TEST_F(outFamilies, aKeyBelowIsMissing)
{
    for (const auto &family : families) {
        const FamKeys keys(family.ext);
        tool::RunSpec spec = specOf(family.ext, 1 << 2);
        spec.form = tool::Form::ascii;
        tool::RunModel model(spec);
        tool::writeRun(model);
        const char *key = keys.ext == "odq" ? "viscVec" : keys.ext[2] == 'e' ? "covar"
                        : keys.ext == "rst" ? "velTd" : "pres";
        change(firstFile(keys), std::string(key) + "(\\s)", "other$1");
        rdbHd *hd = openPipe();
        std::vector<double> values((size_t) model.nNodes * 6);
        checkFails(std::string("expected <") + key + "> found <other>", valuesCall(hd, keys, values.data(), 0, 0));
        rdbFree(hd);
        clearFolder();
    }
}

/* ------------------------------------------------------------------------------------------------------ restart */

TEST_F(outFamilies, masksOfARestart)
{
    static const struct { const char *name; int64_t first, second; std::vector<int> rows; } cases[] = {
        { "one word",          5,           -99, { 0, 2 }       },
        { "bit 31 is nothing", INT_MIN + 1, -99, { 0 }          },
        { "bit 30",            0x40000000,  -99, { 30 }         },
        { "two words",         1,           3,   { 0, 31, 32 }  },
        { "bits above",        0,           -16384, { 45 }      },
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        tool::RunSpec spec = specOf("rst", 1);
        spec.form = tool::Form::ascii;
        tool::writeRun(spec);
        std::string masks = "mask " + std::to_string(row.first);
        if (row.second != -99) masks += " mask " + std::to_string(row.second);
        change("pipe.1_4_0.rst", "mask\\s+\\d+", masks);
        rdbHd *hd = openPipe();
        ASSERT_EQ(intOf(hd, "nRstVars"), (int) row.rows.size());
        const rdbOutInfo *info = hd->run->out[RDB_OUT_RST];
        EXPECT_EQ(std::vector<int>(info->varIds, info->varIds + info->nVars), row.rows);
        rdbFree(hd);
        clearFolder();
    }
}

TEST_F(outFamilies, theListOfARestartMustHaveItsLength)
{
    for (const char *length : { "2", "-1", "2147483647" }) {
        tool::FamSpec fam;
        fam.ext = "rst";
        fam.lists = true;
        tool::RunSpec spec = specOf(fam);
        spec.form = tool::Form::ascii;
        tool::writeRun(spec);
        change("pipe.1_4_0.rst", "nRafVars\\s+3", std::string("nRafVars ") + length);
        rdbHd *hd = openPipe();
        int    n;
        checkFails(std::string("expected <") + length + "> found <3>", rdbGetInt0(hd, "nRstVars", &n));
        rdbFree(hd);
        clearFolder();
    }
}

/* What may run on behind the arrays of a part: running averages, then what the tuning keeps */
static const char *const behindARestart[] = {
    "vel", "pres", "temp", "spec", "eddy", "tke", "tvel", "teps", "tomega", "aleDisp", "vest",
    "tintc", "treth", "ttau", "tgv", "field", "relHum", "dewPoint", "hWetWall", "topoVel", "topoPres", "topoTemp",
    "vel", "pres", "temp", "spec", "eddy", "tke", "tvel", "teps", "tomega", "tempJac",
    "tempRef", "specJac", "specRef", "velJac", "velRef", "ttau", "tgv", "field", "fieldJac", "fieldRef",
};
static constexpr int nBehind = sizeof behindARestart / sizeof *behindARestart;

/* A restart of all parts in one file, of the velocity alone; only: which one of these keys stands behind each part, -1:
   all of them */
static void writeRestart(const SmallRun &run, int step, int only)
{
    SmallFile           file("p.1_" + std::to_string(step) + "_x.rst", run.form);
    tool::TokenFile    &f = file.f;
    std::vector<double> rows(5 * 3, -1.0);
    for (const auto &part : run.parts) {
        const int n = (int) part.size();
        f.keyReal("time", 1);
        f.keyReal("timeInc", 0.5);
        f.keyInt("mask", 1);
        f.keyInt("nSpecs", 0);
        f.keyInt("nNodes", n);
        std::vector<double> vel;
        for (int node : part)
            for (int k = 0; k < 3; ++k) vel.push_back(SmallRun::value(step, 0, node, k));
        f.keyReals("vel", 3, n, vel.data());
        for (int i = 0; i < nBehind; ++i)
            if (only < 0 || i == only) f.keyReals(behindARestart[i], 1 + i % 3, n, rows.data());
    }
}

TEST_F(outFamilies, eachKeyBehindARestart)
{
    ASSERT_EQ(nBehind, 22 + 20);
    for (const auto &form : smallForms) {
        SmallRun run;
        run.form = form.form;
        run.write();
        for (int only = -1; only < nBehind; ++only) {
            SCOPED_TRACE(std::string(form.name) + " " + (only < 0 ? "all" : behindARestart[only]));
            writeRestart(run, 5, only);
            rdbHd *hd = SmallRun::open();
            std::vector<double> values(15, untouched), expected(15);
            for (int i = 0; i < 15; ++i) expected[i] = SmallRun::value(5, 0, i / 3, i % 3);
            checkAnswers(rdbGetReals2(hd, "rstValues", values.data(), 0, 0, 3, 5));
            EXPECT_EQ(values, expected);
            checkReturns(rdbFree(hd));
        }
        clearFolder();
    }
}

/* --------------------------------------------------------------------------------------------- element quantities */

TEST_F(outFamilies, conductivityStaysNarrowAfterAnOlderRun)
{
    tool::RunModel model(specOf("odq", 1 << 4));
    tool::writeRun(model);
    const auto widthOf = [](const char *version) {
        change("pipe.1.cli", "#@ (VERSION|NONE)[^\\n]*", version ? std::string("#@ VERSION ") + version : "#@ NONE x");
        rdbHd *hd = openPipe();
        int    dim = -1;
        checkAnswers(rdbGetInt1(hd, "odqVarDim", &dim, 0));
        rdbFree(hd);
        return dim;
    };
    EXPECT_EQ(widthOf("1.7f"), 6);
    EXPECT_EQ(widthOf("1.8"), 6);
    EXPECT_EQ(widthOf("1.7e"), 1);
    EXPECT_EQ(widthOf("1.8"), 1);
    forgetOlderRuns();
    EXPECT_EQ(widthOf("2"), 6);
    EXPECT_EQ(widthOf(nullptr), 1);
    EXPECT_EQ(widthOf("2"), 1);
}

TEST_F(outFamilies, conductivityOfAnOlderRunIsRead)
{
    SmallRun run;
    run.write();
    for (int p = 0; p < 2; ++p) {
        tool::TokenFile f("p.1_5_" + std::to_string(p) + ".odq", run.form);
        f.keyReal("time", 1);
        f.keyInt("mask", 1 << 4);
        f.keyInt("nSpecs", 2);
        f.keyInt("nNodes", 3);
        const double rows[9] = { 1, 2, 3, 4, 5, 6, 7, 8, 9 };
        for (const char *key : { "densVec", "viscVec", "gravity", "cpVec", "condVec" })
            f.keyReals(key, !strcmp(key, "gravity") ? 3 : 1, 3, rows);
    }
    rdbHd *hd = SmallRun::open();
    double values[5];
    checkAnswers(rdbGetReals2(hd, "odqValues", values, 0, 0, 1, 5));
    EXPECT_EQ(std::vector<double>(values, values + 5), (std::vector<double>{ 1, 2, 2, 3, 1 }));
    rdbFree(hd);
}

TEST_F(outFamilies, theAuxiliaryListHasNoValues)
{
    tool::RunModel model(specOf("odq", allRows(19)));
    tool::writeRun(model);
    rdbHd *hd = openPipe();
    char   name[SYS_TEXT] = "?";
    int    dim = -1;
    std::vector<double> values((size_t) model.nNodes);
    EXPECT_EQ(intOf(hd, "nOdqAuxVars"), 1);
    checkAnswers(rdbGetStr1(hd, "odqAuxVarName", name, 0));
    EXPECT_STREQ(name, "");
    checkAnswers(rdbGetInt1(hd, "odqAuxVarDim", &dim, 0));
    EXPECT_EQ(dim, 1);
    checkFails("Invalid index <0>", rdbGetReals2(hd, "odqAuxValues", values.data(), 0, 0, -1, -1));
    checkFails("rdb_odqAuxValues", rdbGetReals2(hd, "odqAuxValues", values.data(), 0, 0, -1, -1));
    rdbFree(hd);
}

/* ---------------------------------------------------------------------------------------------- the newest step */

TEST_F(outFamilies, newestStepAlone)
{
    for (const auto &form : smallForms) {
        tool::RunSpec spec = specOf("ocn", 7);
        spec.form = form.form;
        spec.steps = { 5, 12 };
        tool::RunModel model(spec);
        tool::writeRun(model);
        const std::string suffix = tool::formSuffix(form.form);
        testWrite("pipe.1_13_0.ocnX", "");
        testWrite("pipe.1_14_1.ocn" + suffix, "");
        testWrite("pipe.1_15_0.ocn.Q", "");
        testWrite("pipe.1__0.ocn" + suffix, "");
        testWrite("pipe.1_99999999999_0.ocn" + suffix, "");
        testWrite("pipe.2_16_0.ocn" + suffix, "");
        rdbHd *hd = openPipe();
        checkAll(hd, model, model.spec.families[0]);
        rdbFree(hd);
        clearFolder();
    }
}

/* It follows a solver that writes on, without an update */
TEST_F(outFamilies, newestStepIsLookedForEachTime)
{
    tool::RunSpec spec = specOf("ocn", 7);
    tool::RunModel model(spec);
    tool::writeRun(model);
    rdbHd *hd = openPipe();
    double time = 0;
    EXPECT_EQ(intOf(hd, "ocnStep"), 9);
    spec.setSteps(3, 4, 5);
    tool::RunModel longer(spec);
    tool::writeRun(longer);
    EXPECT_EQ(intOf(hd, "ocnStep"), 14);
    checkAnswers(rdbGetReal0(hd, "ocnTime", &time));
    EXPECT_EQ(time, longer.time(2));
    checkValues(hd, longer, spec.families[0], 1, 1, 2);
    for (int step : { 4, 9, 14 })
        for (int p = 0; p < 2; ++p)
            fs::remove("pipe.1_" + std::to_string(step) + "_" + std::to_string(p) + ".ocn.B");
    EXPECT_EQ(intOf(hd, "ocnStep"), -1);
    checkRefused(".ocn file not found", rdbGetReal0(hd, "ocnTime", &time));
    std::vector<double> values((size_t) model.nNodes * 3, untouched);
    checkRefused(".ocn file not found", rdbGetReals1(hd, "ocnValues", values.data(), 0, -1, -1));
    EXPECT_EQ(values, std::vector<double>(values.size(), 0.0));
    rdbFree(hd);
}

/* Each key looks by itself: no other one is asked before it */
TEST_F(outFamilies, newestTimeIsLookedForEachTime)
{
    tool::RunSpec spec = specOf("ocn", 7);
    tool::RunModel model(spec);
    tool::writeRun(model);
    rdbHd *hd = openPipe();
    double time = 0;
    checkAnswers(rdbGetReal0(hd, "ocnTime", &time));
    EXPECT_EQ(time, model.time(1));
    spec.setSteps(3, 4, 5);
    tool::writeRun(spec);
    checkAnswers(rdbGetReal0(hd, "ocnTime", &time));
    EXPECT_EQ(time, tool::RunModel(spec).time(2));
    checkReturns(rdbFree(hd));
}

TEST_F(outFamilies, newestValuesAreLookedForEachTime)
{
    tool::RunSpec spec = specOf("ocn", 7);
    tool::RunModel model(spec);
    tool::writeRun(model);
    rdbHd *hd = openPipe();
    checkValues(hd, model, spec.families[0], 2, 2, 1);
    spec.setSteps(3, 4, 5);
    tool::RunModel longer(spec);
    tool::writeRun(longer);
    checkValues(hd, longer, spec.families[0], 2, 2, 2);
    checkReturns(rdbFree(hd));
}

/* The solver has begun a step, but not with all of its parts: these are told by name, and so an open waits for one as
   long as its form does for any file */
TEST_F(outFamilies, aPartOfTheNewestStepThatDoesNotCome)
{
    static const struct { tool::Form form; int nWaits; const char *failure; } rows[] = {
        { tool::Form::ascii,      2, "unable to open ascii file <./pipe.1_9_1.ocn>; " },
        { tool::Form::binary,     2, "unable to open binary file <./pipe.1_9_1.ocn.B>; " },
        { tool::Form::swapped,    2, "unable to open binary file <./pipe.1_9_1.ocn.B>; " },
        { tool::Form::compressed, 2, "EOF in compressed file <./pipe.1_9_1.ocn> " },
        { tool::Form::hdf,        0, "Unable to open HDF5 file ./pipe.1_9_1.ocn.H" },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.failure);
        tool::RunSpec spec = specOf("ocn", 1);
        spec.form = row.form;
        tool::RunModel model(spec);
        tool::writeRun(model);
        const std::string part = "pipe.1_9_1.ocn" + tool::formSuffix(row.form);
        rdbHd *hd = openPipe();
        std::vector<double> values((size_t) model.nNodes * 3, untouched);
        fs::rename(part, "late");
        const int slept = testSlept();
        EXPECT_EQ(intOf(hd, "ocnStep"), 9);
        EXPECT_EQ(testSlept(), slept);
        checkFails(row.failure, rdbGetReals1(hd, "ocnValues", values.data(), 0, -1, -1));
        EXPECT_EQ(testSlept(), slept + row.nWaits);
        fs::rename("late", part);
        checkValues(hd, model, spec.families[0], 0, 0, 1);
        checkReturns(rdbFree(hd));
        clearFolder();
    }
}

TEST_F(outFamilies, aPartOfTheNewestStepThatComesLate)
{
    static std::string part;
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        part = "pipe.1_9_1.ocn" + tool::formSuffix(form.form);
        tool::RunSpec spec = specOf("ocn", 1);
        spec.form = form.form;
        tool::RunModel model(spec);
        tool::writeRun(model);
        rdbHd *hd = openPipe();
        EXPECT_EQ(intOf(hd, "nOcnVars"), 1);
        fs::rename(part, "late");
        testWhenSleeping([] {
            if (fs::exists("late")) fs::rename("late", part);
        });
        const int slept = testSlept();
        checkValues(hd, model, spec.families[0], 0, 0, 1);
        EXPECT_GE(testSlept(), slept + 1);
        testWhenSleeping(nullptr);
        checkReturns(rdbFree(hd));
        clearFolder();
    }
}

/* A width is believed where the size of a step does not tell, since a part is not there yet */
TEST_F(outFamilies, aPartOfTheNewestStepThatTellsNoSize)
{
    tool::RunSpec spec = specOf("ocn", uint64_t(1) << 10);
    spec.form = tool::Form::ascii;
    tool::writeRun(spec);
    change("pipe.1_9_0.ocn", "nAoutVecs\\s+\\d+", "nAoutVecs 2000000");
    fs::rename("pipe.1_9_1.ocn", "late");
    rdbHd *hd = openPipe();
    int    n;
    EXPECT_EQ(intOf(hd, "nOcnVars"), 1);
    checkReturns(rdbFree(hd));
    fs::rename("late", "pipe.1_9_1.ocn");
    hd = openPipe();
    checkFails("Invalid nAoutVecs <2000000> in files <pipe.1_9_>", rdbGetInt0(hd, "nOcnVars", &n));
    checkReturns(rdbFree(hd));
}

/* A run without subdomains has no number of parts */
TEST_F(outFamilies, aWidthOfTheNewestStepWithoutSubdomains)
{
    tool::RunSpec spec = specOf("ocn", uint64_t(1) << 10);
    spec.form = tool::Form::ascii;
    spec.nSds = 0;
    tool::writeRun(spec);
    change("pipe.1_9_0.ocn", "nAoutVecs\\s+\\d+", "nAoutVecs 2000000");
    rdbHd *hd = openPipe();
    int    n;
    checkFails("Invalid nAoutVecs <2000000> in files <pipe.1_9_>", rdbGetInt0(hd, "nOcnVars", &n));
    checkReturns(rdbFree(hd));
}

/* An option word that names no form stands for text: where the step is looked for, and where its parts are opened */
TEST_F(outFamilies, newestStepOfARunThatNamesNoForm)
{
    for (const char *word : { "0", "1", "131072" }) {
        SCOPED_TRACE(word);
        tool::RunSpec spec = specOf("ocn", 7);
        spec.form = tool::Form::ascii;
        tool::RunModel model(spec);
        tool::writeRun(model);
        change("pipe.1.cli", "#@ FMT 16", std::string("#@ FMT ") + word);
        rdbHd *hd = openPipe();
        checkAll(hd, model, spec.families[0]);
        fs::remove("pipe.1_9_1.ocn");
        std::vector<double> values((size_t) model.nNodes * 3);
        checkFails("unable to open ascii file <./pipe.1_9_1.ocn>; ",
                   rdbGetReals1(hd, "ocnValues", values.data(), 0, -1, -1));
        checkReturns(rdbFree(hd));
        clearFolder();
    }
}

TEST_F(outFamilies, newestStepThatIsNotThereYet)
{
    tool::writeRun(smallSpec());
    rdbHd *hd = openPipe();
    char   name[SYS_TEXT];
    EXPECT_EQ(intOf(hd, "ocnStep"), -1);
    EXPECT_EQ(intOf(hd, "nOcnVars"), 0);
    checkRefused("index1 (0) is out of range [0,-1]", rdbGetStr1(hd, "ocnVarName", name, 0));
    rdbFree(hd);
}

/* No list of steps, and no index of the step */
TEST_F(outFamilies, keysOfTheNewestStep)
{
    for (const char *key : { "nOcnSteps", "ocnSteps", "ocnTimes" }) EXPECT_EQ(rdbFindKey(key), nullptr) << key;
    for (const char *key : { "ocnStep", "ocnTime", "nOcnVars" }) {
        ASSERT_NE(rdbFindKey(key), nullptr) << key;
        EXPECT_EQ(rdbFindKey(key)->nIdx, 0) << key;
    }
    EXPECT_EQ(rdbFindKey("ocnValues")->nIdx, 1);
}
