/* testSetOut.cpp: outputs on the nodes of surface sets: their steps, variables and values in all forms, and what is
 * refused. */

#include <algorithm>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <regex>

#include "test/rdb/smallRun.h"
#include "tool/runWriter.h"

namespace fs = std::filesystem;

static const double untouched = -77;

/* The families: extension of the files, begin of the keys, rows of the table, function name of the catalogue */
static const struct SetFam { const char *ext, *stem; int nRows; const char *init; } families[] = {
    { "osf", "osf", 12, "rdbInitOsd" },
    { "orf", "rsf", 3,  "rdbInitOrf" },
    { "oqf", "srs", 2,  "rdbInitOqf" },
};

static std::string keyOf(const SetFam &fam, const char *what) { return fam.stem + std::string(what); }
static std::string countOf(const SetFam &fam, const char *what)
{
    std::string stem = fam.stem;
    stem[0] = (char) toupper(stem[0]);
    return "n" + stem + what;
}

/* Run 1 of "pipe" in this folder: two parts that share nodes of every set, the steps 9 and 10 */
static tool::RunSpec specOf(const char *ext, uint64_t rows = UINT64_MAX)
{
    tool::RunSpec spec;
    spec.dataDir = ".";
    spec.nx = 4;
    spec.ny = spec.nz = 2;
    spec.nVols = 2;
    spec.nSds = 2;
    spec.scattered = true;
    spec.setSteps(2, 9, 1);
    spec.nSpecs = 2;
    spec.nFields = 3;
    tool::SetFamSpec fam;
    fam.ext = ext;
    fam.rows = rows;
    spec.setFamilies = { fam };
    return spec;
}

static void clearFolder()
{
    for (const auto &entry : fs::directory_iterator(".")) fs::remove_all(entry.path());
}

/* A run on disk, open; both go at the end of the test's scope */
struct Pipe {
    tool::RunModel model;
    rdbHd         *hd;

    explicit Pipe(const tool::RunSpec &spec, const std::function<void()> &spoil = nullptr) : model(spec)
    {
        tool::writeRun(model);
        if (spoil) spoil();
        hd = openPipe();
    }
    ~Pipe()
    {
        checkReturns(if (hd) rdbFree(hd));
        clearFolder();
    }
    Pipe(const Pipe &) = delete;

    int num(const std::string &key, int i = -1)
    {
        int n = -99;
        checkAnswers(i < 0 ? rdbGetInt0(hd, key.c_str(), &n) : rdbGetInt1(hd, key.c_str(), &n, i));
        return n;
    }
    /* Path of the file that tells of a step of set 0 */
    static std::string firstName(const SetFam &fam, int step)
    {
        return "pipe.1_" + std::to_string(step) + (fam.nRows > 2 ? "_0_0." : "_0.") + fam.ext + ".B";
    }
    int values(const SetFam &fam, int set, int var, int step, std::vector<double> *to)
    {
        to->assign(20000, untouched);
        return rdbGetReals3(hd, keyOf(fam, "Values").c_str(), to->data(), set, var, step, -1, -1);
    }
};

static void checkSteps(Pipe *pipe, const SetFam &fam, int set)
{
    const tool::RunModel &model = pipe->model;
    const int             n = model.nSteps();
    std::vector<int>      steps(n);
    std::vector<double>   times(n);
    ASSERT_EQ(pipe->num(countOf(fam, "Steps"), set), n);
    checkAnswers(rdbGetInts1(pipe->hd, keyOf(fam, "Steps").c_str(), steps.data(), set, n, 1));
    checkAnswers(rdbGetReals1(pipe->hd, keyOf(fam, "Times").c_str(), times.data(), set, n, 1));
    EXPECT_EQ(steps, model.spec.steps);
    for (int i = 0; i < n; ++i) {
        int    step = -1;
        double time = untouched;
        checkAnswers(rdbGetInt2(pipe->hd, keyOf(fam, "Step").c_str(), &step, set, i));
        checkAnswers(rdbGetReal2(pipe->hd, keyOf(fam, "Time").c_str(), &time, set, i));
        EXPECT_EQ(step, steps[i]);
        EXPECT_EQ(time, model.time(i));
        EXPECT_EQ(times[i], time);
    }
}

static void checkVars(Pipe *pipe, const SetFam &fam, const tool::SetFamSpec &spec)
{
    const std::vector<int> rows = setOutVars(spec);
    ASSERT_EQ(pipe->num(countOf(fam, "Vars")), (int) rows.size());
    for (int i = 0; i < (int) rows.size(); ++i) {
        char name[SYS_TEXT];
        checkAnswers(rdbGetStr1(pipe->hd, keyOf(fam, "VarName").c_str(), name, i));
        EXPECT_STREQ(name, setOutName(spec, rows[i]));
        EXPECT_EQ(pipe->num(keyOf(fam, "VarDim"), i), setOutDim(pipe->model, spec, rows[i])) << name;
    }
}

/* Against what the writer tells: the sum of all parts that have the node */
static void checkValues(Pipe *pipe, const SetFam &fam, const tool::SetFamSpec &spec, int set, int i, int step)
{
    const tool::RunModel  &model = pipe->model;
    const std::vector<int> nodes = setOutNodes(model, spec, set);
    const int              row = setOutVars(spec)[i], dim = setOutDim(model, spec, row);
    std::vector<double>    got, expected;
    ASSERT_EQ(pipe->num(countOf(fam, "Nodes"), set), (int) nodes.size());
    checkAnswers(pipe->values(fam, set, i, step, &got));
    for (int node : nodes)
        for (int k = 0; k < dim; ++k) expected.push_back(setOutValue(model, spec, set, row, k, node, step));
    EXPECT_EQ(got[expected.size()], untouched);
    got.resize(expected.size());
    EXPECT_EQ(got, expected) << setOutName(spec, row) << " of set " << set << " at " << step;
}

/* --------------------------------------------------------------------------------------------------- what is there */

TEST(setOut, sameInEveryForm)
{
    for (const SetFam &fam : families)
        for (const tool::FormRow &form : tool::formRows)
            for (bool merged : { false, true }) {
                SCOPED_TRACE(std::string(fam.ext) + " " + form.word + (merged ? ", merged" : ""));
                tool::RunSpec spec = specOf(fam.ext);
                spec.form = form.value;
                spec.merged = merged;
                Pipe pipe(spec);
                const tool::SetFamSpec &out = spec.setFamilies[0];
                const int nSets = nSetOutSets(pipe.model, out);
                ASSERT_GE(nSets, 1);
                checkVars(&pipe, fam, out);
                for (int set = 0; set < nSets; ++set) {
                    checkSteps(&pipe, fam, set);
                    for (int step = 0; step < 2; ++step)
                        for (int i = 0; i < (int) setOutVars(out).size(); ++i)
                            checkValues(&pipe, fam, out, set, i, step);
                }
            }
}

/* An answer has a row of components for each node: a client that says so has it, one whose buffer is short is told */
TEST(setOut, capacities)
{
    for (const SetFam &fam : families) {
        SCOPED_TRACE(fam.ext);
        Pipe                    pipe(specOf(fam.ext));
        const tool::SetFamSpec &out = pipe.model.spec.setFamilies[0];
        const std::string       key = keyOf(fam, "Values");
        const int               n = pipe.num(countOf(fam, "Nodes"), 0);
        for (int i = 0; i < (int) setOutVars(out).size(); ++i) {
            const int           dim = setOutDim(pipe.model, out, setOutVars(out)[i]);
            std::vector<double> values((size_t) n * dim + 1, untouched), all;
            checkAnswers(rdbGetReals3(pipe.hd, key.c_str(), values.data(), 0, i, 0, dim, n));
            EXPECT_EQ(values.back(), untouched);
            checkAnswers(pipe.values(fam, 0, i, 0, &all));
            EXPECT_TRUE(std::equal(values.begin(), values.end() - 1, all.begin()));
            char text[128];
            snprintf(text, sizeof text, "%s requires dimension of %dx%d not %dx%d", key.c_str(), dim, n, dim, n - 1);
            checkRefused(text, rdbGetReals3(pipe.hd, key.c_str(), values.data(), 0, i, 0, dim, n - 1));
        }
    }
}

/* The rows of a node that two subdomains have are added: one that only one of them has shows what a row is */
TEST(setOut, aNodeOnABorderHasTheSum)
{
    Pipe pipe(specOf("osf", 1));
    const tool::SetFamSpec &out = pipe.model.spec.setFamilies[0];
    int nShared = 0;
    for (int set = 0; set < nSetOutSets(pipe.model, out); ++set) {
        for (int node : setOutNodes(pipe.model, out, set)) {
            int n = 0;
            for (const auto &part : pipe.model.parts) n += (int) std::count(part.begin(), part.end(), node);
            nShared += n == 2;
        }
        checkValues(&pipe, families[0], out, set, 0, 0);
    }
    EXPECT_GT(nShared, 0);
}

TEST(setOut, someOfTheVariables)
{
    for (const SetFam &fam : families) {
        SCOPED_TRACE(fam.ext);
        const uint64_t rows = fam.nRows > 3 ? 0x8a5 : 2;
        Pipe pipe(specOf(fam.ext, rows));
        const tool::SetFamSpec &out = pipe.model.spec.setFamilies[0];
        checkVars(&pipe, fam, out);
        for (int i = 0; i < (int) setOutVars(out).size(); ++i) checkValues(&pipe, fam, out, 0, i, 1);
    }
}

/* In a file of all parts the next part is found behind the last array that is there: those above the wanted one may be
   missing, those below may not */
TEST(setOut, mergedWithoutWhatIsAbove)
{
    static const struct { int fam; uint64_t rows; const char *gone; int wanted; const char *missed; } cases[] = {
        { 0, 0x1,  nullptr, 0, nullptr },
        { 0, 0x25, "(massFlux|trac|moment)\\s+\\d+\\s+0\\s", 1, "expected <massFlux> found <momFlux>" },
        { 1, 0x1,  nullptr, 0, nullptr },
        { 1, 0x5,  "heatFlux\\s+1\\s+0\\s", 1, "expected <heatFlux> found <temp>" },
    };
    for (const auto &row : cases)
        for (bool binary : { false, true }) {
            if (binary && row.gone) continue;
            const SetFam &fam = families[row.fam];
            SCOPED_TRACE(std::string(fam.ext) + " " + std::to_string(row.rows));
            tool::RunSpec spec = specOf(fam.ext, row.rows);
            spec.form = binary ? tool::Form::binary : tool::Form::ascii;
            spec.merged = true;
            Pipe pipe(spec, [&] {
                if (!row.gone) return;
                const std::string name = std::string("pipe.1_9_0_x.") + fam.ext, text = testRead(name);
                testWrite(name, std::regex_replace(text, std::regex(row.gone), ""));
                EXPECT_NE(testRead(name), text);
            });
            checkValues(&pipe, fam, spec.setFamilies[0], 0, 0, 0);
            std::vector<double> values;
            if (row.missed) checkFails(row.missed, pipe.values(fam, 0, row.wanted, 0, &values));
        }
}

/* A header may lack the number of fields: then the count before it holds for them too */
TEST(setOut, withoutANumberOfFields)
{
    for (bool merged : { false, true })
        for (int nFields : { 2, 3 }) {
            tool::RunSpec spec = specOf("osf");
            spec.form = tool::Form::ascii;
            spec.merged = merged;
            spec.nFields = nFields;
            Pipe pipe(spec, [&] {
                for (const auto &entry : fs::directory_iterator(".")) {
                    if (entry.path().extension() != ".osf") continue;
                    const std::string text = testRead(entry.path());
                    testWrite(entry.path(), std::regex_replace(text, std::regex("nFields\\s+\\d+\\s"), ""));
                    EXPECT_NE(testRead(entry.path()), text);
                }
            });
            const tool::SetFamSpec &out = pipe.model.spec.setFamilies[0];
            int n;
            if (nFields == spec.nSpecs) {
                checkVars(&pipe, families[0], out);
                for (int i = 0; i < (int) setOutVars(out).size(); ++i) checkValues(&pipe, families[0], out, 0, i, 1);
            } else {
                pipe.hd->run->nFields = nFields;
                checkFails("Inconsistent nFields in file", rdbGetInt0(pipe.hd, "nOsfVars", &n));
            }
        }
}

/* A step is one that the name of its first file tells, of a form that a file on disk may have */
TEST(setOut, namesOfNoSteps)
{
    static const char *const names[] = { "_1.osf", "_1.osf.B", "_9.osf", "_00.osf", "_0x.osf", "_.osf", "_0.osf.C",
                                         "_x.osf.C", "_0.osf.B.B", "_0.osf.", "_0.osfx",
                                         "_1.orf", "_1.orf.B", "_9.orf", "_00.orf", "_0x.orf", "_.orf", "_0.orf.C",
                                         "_x.orf.C", "_0.orf.B.B", "_0.orf.", "_0.orfx",
                                         ".oqf.C", ".oqf.B.B", ".oqf.", ".oqfx", "_0.oqf", "_0.oqf.B" };
    for (const SetFam &fam : families) {
        SCOPED_TRACE(fam.ext);
        Pipe pipe(specOf(fam.ext, 1), [&] {
            int step = 20;
            for (const std::string name : names) {
                const std::string path = "pipe.1_" + std::to_string(step++) + "_0" + name;
                if (name.back() == 'C') tool::Container(path.substr(0, path.size() - 2)).close();
                else testWrite(path, "");
            }
            testWrite(std::string("pipe.1_90_") + (fam.nRows > 2 ? "0_0." : "0.") + fam.ext + ".Z", "");
        });
        std::vector<int> steps(3);
        ASSERT_EQ(pipe.num(countOf(fam, "Steps"), 0), 3);
        checkAnswers(rdbGetInts1(pipe.hd, keyOf(fam, "Steps").c_str(), steps.data(), 0, 3, 1));
        EXPECT_EQ(steps, (std::vector<int>{ 9, 10, 90 }));
    }
}

/* Each step's file is opened once for its time, whoever asks: then it is known */
TEST(setOut, timesAreReadOnce)
{
    for (const SetFam &fam : families)
        for (bool allAtOnce : { false, true }) {
            SCOPED_TRACE(std::string(fam.ext) + (allAtOnce ? ", all at once" : ""));
            Pipe              pipe(specOf(fam.ext, 1));
            const std::string first = pipe.firstName(fam, 9), second = pipe.firstName(fam, 10);
            double            time = untouched, times[2] = { untouched, untouched };
            const std::string key = keyOf(fam, "Times");
            const auto        timesOf = [&] { return rdbGetReals1(pipe.hd, key.c_str(), times, 0, 2, 1); };
            if (allAtOnce) {
                checkAnswers(timesOf());
                fs::remove(first);
            } else {
                checkAnswers(rdbGetReal2(pipe.hd, keyOf(fam, "Time").c_str(), &time, 0, 0));
                fs::remove(first);
                checkAnswers(timesOf());                              /* of which it has one already */
            }
            fs::remove(second);
            for (int i = 0; i < 2; ++i) {
                checkAnswers(rdbGetReal2(pipe.hd, keyOf(fam, "Time").c_str(), &time, 0, i));
                EXPECT_EQ(time, pipe.model.time(i));
            }
            times[0] = times[1] = untouched;
            checkAnswers(timesOf());
            EXPECT_EQ(times[0], pipe.model.time(0));
            EXPECT_EQ(times[1], pipe.model.time(1));
        }
}

/* The variables are the family's, whichever set has them; a set without files has no steps */
TEST(setOut, aSetWithoutOutputs)
{
    tool::RunSpec spec = specOf("osf", 3);
    spec.setFamilies[0].onlySet = 1;
    Pipe pipe(spec);
    ASSERT_GE(pipe.num("nOsfs"), 2);
    EXPECT_EQ(pipe.num("nOsfVars"), 2);
    EXPECT_EQ(pipe.num("nOsfSteps", 0), 0);
    EXPECT_EQ(pipe.num("nOsfSteps", 1), 2);
    checkValues(&pipe, families[0], pipe.model.spec.setFamilies[0], 1, 1, 1);
}

TEST(setOut, noStepsAreNoError)
{
    tool::RunSpec spec = specOf("osf");
    spec.setFamilies.clear();
    Pipe pipe(spec);
    for (const SetFam &fam : families) {
        EXPECT_EQ(pipe.num(countOf(fam, "Vars")), 0);
        EXPECT_EQ(pipe.num(countOf(fam, "Steps"), 0), 0);
    }
}

/* No part to read: zeros, but a step has its file */
TEST(setOut, withoutSubdomains)
{
    tool::RunSpec spec = specOf("osf", 1);
    spec.nSds = 0;
    Pipe pipe(spec);
    const int           n = pipe.num("nOsfNodes", 0);
    std::vector<double> values;
    checkAnswers(pipe.values(families[0], 0, 0, 0, &values));
    for (int i = 0; i < n; ++i) EXPECT_EQ(values[i], 0);
    EXPECT_EQ(values[n], untouched);
    const std::string name = pipe.firstName(families[0], 10);
    checkAnswers(pipe.values(families[0], 0, 0, 1, &values));
    testWrite(name, "no tag\n");
    checkFails("Invalid binary tag <no tag>", pipe.values(families[0], 0, 0, 1, &values));
    fs::remove(name);
    checkFails("unable to open binary file", pipe.values(families[0], 0, 0, 1, &values));
}

/* ---------------------------------------------------------------------------------------------- what is refused */

static std::string firstFile(const SetFam &fam, int step, int part)
{
    return "pipe.1_" + std::to_string(step) + "_0" + (std::string(fam.ext) == "oqf" ? "" : "_" + std::to_string(part)) +
           "." + fam.ext;
}

TEST(setOut, aMissingFile)
{
    for (const SetFam &fam : families) {
        SCOPED_TRACE(fam.ext);
        const std::string   text = std::string(".") + fam.ext + " file not found";
        std::vector<double> values;
        {                                             /* a step of a name that its file has not */
            Pipe pipe(specOf(fam.ext, 1), [&] {
                const std::string name = firstFile(fam, 5, 0);
                testWrite("pipe.1_05" + name.substr(8), "");
            });
            int n;
            checkRefused(text.c_str(), rdbGetInt0(pipe.hd, countOf(fam, "Vars").c_str(), &n));
            checkRefused(text.c_str(), rdbGetInt1(pipe.hd, countOf(fam, "Steps").c_str(), &n, 0));
        }
        if (std::string(fam.ext) == "oqf") continue;
        Pipe pipe(specOf(fam.ext, 1), [&] { fs::remove(firstFile(fam, 10, 1) + ".B"); });
        checkRefused(text.c_str(), pipe.values(fam, 0, 0, 1, &values));
        checkValues(&pipe, fam, pipe.model.spec.setFamilies[0], 0, 0, 0);
    }
}

TEST(setOut, missingNodes)
{
    std::vector<double> values;
    {
        Pipe pipe(specOf("osf", 1), [] { fs::remove("pipe.1_0.osn.B"); });
        EXPECT_EQ(pipe.num("nOsfVars"), 1);
        EXPECT_EQ(pipe.num("nOsfSteps", 0), 2);
        checkRefused(".osn file not found", pipe.values(families[0], 0, 0, 0, &values));
    }
    for (const char *name : { "pipe.1_0_0.orn.B", "pipe.1_0_1.orn.B" }) {
        Pipe pipe(specOf("orf", 1), [&] { fs::remove(name); });
        checkRefused(".orn file not found", pipe.values(families[1], 0, 0, 0, &values));
    }
}

static void putIds(tool::TokenFile &f, const std::vector<int> &ids)
{
    f.keyInt("nNodes", (int) ids.size());
    f.keyInts("usrIds", 1, (int) ids.size(), dataOf(ids));
}

/* One file may have the ids of all parts, behind each other */
TEST(setOut, idsOfAllPartsInOneFile)
{
    const tool::RunSpec    spec = specOf("orf");
    const tool::RunModel   model(spec);
    const std::vector<int> nodes = setOutNodes(model, spec.setFamilies[0], 0);
    Pipe pipe(spec, [&] {
        tool::TokenFile f("pipe.1_0_x.orn", tool::Form::binary);
        for (const auto &part : model.parts) {        /* the writer has the last node first */
            std::vector<int> ids;
            for (size_t i = nodes.size(); i-- > 0;)
                if (std::count(part.begin(), part.end(), nodes[i])) ids.push_back(model.usrIds[nodes[i]]);
            putIds(f, ids);
        }
        for (const char *name : { "pipe.1_0_0.orn.B", "pipe.1_0_1.orn.B" }) fs::remove(name);
    });
    for (int i = 0; i < 3; ++i) checkValues(&pipe, families[1], spec.setFamilies[0], 0, i, 1);
}

TEST(setOut, idsThatAreNotTheSets)
{
    const tool::RunSpec    spec = specOf("orf", 1);
    const tool::RunModel   model(spec);
    const int              good = model.usrIds[setOutNodes(model, spec.setFamilies[0], 0)[0]];
    std::vector<double>    values;
    for (int bad : { -1, 0, INT_MIN, INT_MAX }) {
        Pipe pipe(spec, [&] {
            tool::TokenFile f("pipe.1_0_1.orn", tool::Form::binary);
            putIds(f, { good, bad });
        });
        checkFails("Invalid node definition <" + std::to_string(bad) + "> <1>",
                   pipe.values(families[1], 0, 0, 0, &values));
        checkFails("Function <rdb_rsfValues>", pipe.values(families[1], 0, 0, 0, &values));
    }
    Pipe pipe(spec, [&] {
        tool::TokenFile f("pipe.1_0_1.orn", tool::Form::binary);
        putIds(f, { good });
    });
    checkFails("Inconsistent nNodes in file <./pipe.1_9_0_1.orf>", pipe.values(families[1], 0, 0, 0, &values));
}

/* A whole set in one file: it must have as many nodes as the set */
TEST(setOut, aFileOfOtherNodes)
{
    std::vector<double> values;
    Pipe pipe(specOf("oqf", 1), [] {
        tool::TokenFile f("pipe.1_9_0.oqf", tool::Form::binary);
        const double    area = 1;
        f.keyReal("time", 1);
        f.keyInt("mask", 1);
        f.keyInt("nNodes", 1);
        f.keyReals("area", 1, 1, &area);
    });
    checkFails("Inconsistent nNodes in file <./pipe.1_9_0.oqf>: <1> vs. ", pipe.values(families[2], 0, 0, 0, &values));
    checkValues(&pipe, families[2], pipe.model.spec.setFamilies[0], 0, 0, 1);
}

TEST(setOut, countersMustAgree)
{
    static const struct { const char *key; int runHd::*counter; } counters[] = {
        { "nSpecs", &runHd::nSpecs }, { "nFields", &runHd::nFields },
    };
    Pipe pipe(specOf("osf", 1));
    for (const auto &row : counters) {
        int       n;
        const int held = pipe.hd->run->*row.counter;
        pipe.hd->run->*row.counter = 77;
        checkFails(std::string("Inconsistent ") + row.key + " in file <./pipe.1_9_0_0.osf>",
                   rdbGetInt0(pipe.hd, "nOsfVars", &n));
        checkFails("Function <rdbInitOsd>", rdbGetInt0(pipe.hd, "nOsfVars", &n));
        pipe.hd->run->*row.counter = held;
    }
    EXPECT_EQ(pipe.num("nOsfVars"), 1);
}

/* A node list with these positions of its two parts, of a set of n nodes */
static void writeOsn(int n, const std::vector<int> &first, const std::vector<int> &second, int nTold = -1)
{
    std::vector<int> ids;
    for (int i = 0; i < n; ++i) ids.push_back(i + 1);
    tool::TokenFile f("pipe.1_0.osn", tool::Form::binary);
    f.keyInt("nSds", 2);
    f.keyInt("nNodes", n);
    f.keyInts("usrIds", 1, n, dataOf(ids));
    f.keyInt("sdId", 0);
    f.keyInt("nNodes", nTold < 0 ? (int) first.size() : nTold);
    f.keyInts("nodes", 1, (int) first.size(), dataOf(first));
    f.keyInt("sdId", 1);
    f.keyInt("nNodes", (int) second.size());
    f.keyInts("nodes", 1, (int) second.size(), dataOf(second));
}

TEST(setOut, positionsOutsideTheSet)
{
    for (int bad : { -1, 4, INT_MIN, INT_MAX }) {
        std::vector<double> values;
        Pipe pipe(specOf("osf", 1), [&] { writeOsn(4, { 0, 1, 2 }, { 3, bad }); });
        char text[128];
        snprintf(text, sizeof text, "Invalid node position <%d> of subdomain <1>; range should be [0,3]", bad);
        checkFails(text, pipe.values(families[0], 0, 0, 0, &values));
        checkFails("Function <rdb_osfValues>", pipe.values(families[0], 0, 0, 0, &values));
    }
}

TEST(setOut, countsThatLie)
{
    std::vector<double> values;
    for (int told : { -5, 1000000000 }) {
        Pipe pipe(specOf("osf", 1), [&] { writeOsn(4, { 0, 1, 2 }, { 3 }, told); });
        EXPECT_NE(trapped([&] { pipe.values(families[0], 0, 0, 0, &values); }), "");
    }
    {
        Pipe pipe(specOf("osf", 1), [] { writeOsn(4, { 0, 1, 2 }, { 3 }); });
        checkFails("Inconsistent nNodes in file", pipe.values(families[0], 0, 0, 0, &values));
    }
    /* the list changed after its length was told */
    Pipe pipe(specOf("osf", 1));
    const int n = pipe.num("nOsfNodes", 0);
    writeOsn(n - 1, { 0 }, { 1 });
    checkFails("Inconsistent nNodes <" + std::to_string(n - 1) + "> vs <" + std::to_string(n) + ">",
               pipe.values(families[0], 0, 0, 0, &values));
}

/* A number of subdomains that no file can tell of: nothing is made in its size before something tells so */
TEST(setOut, subdomainsThatLie)
{
    const int           nSds = 1000000000;
    std::vector<double> values;
    {
        Pipe pipe(specOf("osf", 1), [&] {
            const int       ids[2] = { 1, 2 };
            tool::TokenFile f("pipe.1_0.osn", tool::Form::binary);
            f.keyInt("nSds", nSds);
            f.keyInt("nNodes", 2);
            f.keyInts("usrIds", 1, 2, ids);
        });
        pipe.hd->run->nSds = nSds;
        checkFails("Function <iopNeed>", pipe.values(families[0], 0, 0, 0, &values));
        EXPECT_EQ(pipe.hd->run->setMapNew->nodes, nullptr);
    }
    for (bool merged : { false, true }) {
        Pipe pipe(specOf("orf", 1), [&] {
            if (!merged) return;
            fs::rename("pipe.1_0_0.orn.B", "pipe.1_0_x.orn.B");
            fs::remove("pipe.1_0_1.orn.B");
        });
        pipe.hd->run->nSds = nSds;
        if (merged) {
            checkFails("Function <iopNeed>", pipe.values(families[1], 0, 0, 0, &values));
            EXPECT_EQ(pipe.hd->run->setMapNew->nodes, nullptr);
        } else {
            testWrite("pipe.1_0_0.orn.B", "no tag\n");              /* not even the first one is looked into */
            checkRefused(".orn file not found", pipe.values(families[1], 0, 0, 0, &values));
        }
    }
}

/* A width that the files of the step cannot hold */
TEST(setOut, widthsThatLie)
{
    Pipe pipe(specOf("osf", 0x80), [] {
        for (int part : { 0, 1 }) {
            tool::TokenFile f("pipe.1_9_0_" + std::to_string(part) + ".osf", tool::Form::binary);
            f.keyReal("time", 1);
            f.keyInt("mask", 0x80);
            f.keyInt("nSpecs", 2000000000);
            f.keyInt("nFields", 3);
            f.keyInt("nNodes", 0);
        }
    });
    int n;
    pipe.hd->run->nSpecs = -1;
    checkFails("Invalid nSpecs <2000000000> in files <pipe.1_9_0_>", rdbGetInt0(pipe.hd, "nOsfVars", &n));
    EXPECT_EQ(pipe.hd->run->nSpecs, -1);
}

TEST(setOut, failuresTellTheCatalogue)
{
    for (const SetFam &fam : families) {
        Pipe pipe(specOf(fam.ext, 1), [] { });
        int  n;
        pipe.hd->problem = (memFree(pipe.hd->problem), memDup("pi(pe"));
        checkFails(std::string("Function <") + fam.init + ">", rdbGetInt0(pipe.hd, countOf(fam, "Vars").c_str(), &n));
    }
}

TEST(setOut, cutFiles)
{
    for (const SetFam &fam : families) {
        SCOPED_TRACE(fam.ext);
        const std::string   name = firstFile(fam, 9, 0) + ".B";
        std::vector<double> values;
        Pipe                pipe(specOf(fam.ext));
        const std::string   text = testRead(name);
        const int           last = fam.nRows - 1;
        for (size_t n = 0; n < text.size(); n += 23) {
            testWrite(name, text.substr(0, n));
            EXPECT_NE(trapped([&] { pipe.values(fam, 0, last, 0, &values); }), "") << n;
        }
        testWrite(name, text);
        checkValues(&pipe, fam, pipe.model.spec.setFamilies[0], 0, last, 0);
    }
}
