/* testNodeSets.cpp: the getters of node sets, wall nodes and node pairs. */

#include <climits>

#include "test/rdb/smallRun.h"

using Ints = std::vector<int>;

/* A table file of parts of integers, one behind the other, each with all rows of its columns */
struct Table {
    int  nRows;
    Ints partCols;
    std::vector<Ints> parts;
    int  nParts = -1, saidRows = -1, nCols = -1;          /* what the head says, if it is to lie */

    void write(const std::string &name, tool::Form form) const
    {
        int sum = 0;
        for (int cols : partCols) sum += cols;
        SmallFile        file(name, form);
        tool::TokenFile &f = file.f;
        f.keyInt("nParts", nParts < 0 ? (int) parts.size() : nParts);
        f.keyInt("nRows", saidRows < 0 ? nRows : saidRows);
        f.keyInt("nCols", nCols < 0 ? sum : nCols);
        for (size_t p = 0; p < parts.size(); ++p) {
            f.keyInt("type", 1);
            f.keyInt("nCols", partCols[p]);
            f.keyInts("intVec", partCols[p], nRows, dataOf(parts[p]));
        }
    }
};

static const Table inlet = { 3, { 1 }, { { 10, 20, 12 } } };
static const Table walls = { 2, { 1 }, { { 21, 11 } } };
static const Table pairs = { 2, { 1, 2 }, { { 7, 9 }, { 10, 20, 11, 21 } } };

/* Node sets "in" and "none", the wall nodes, pairs "left" and "none" */
static SmallRun runWithSets(tool::Form form)
{
    SmallRun          run;
    const std::string s = tool::formSuffix(form);
    run.form     = form;
    run.extraCli = "#@ NBC p.1.nbc0" + s + " \"in\" nNodes 3 var 4\n" +
                   "#@ NBC p.1.nbc1" + s + " \"none\" nNodes 0 var -5\n" +
                   "#@ ZBC p.1.zbc" + s + " \"walls\" nNodes 2 var 0\n" +
                   "#@ PBC p.1.pbc0" + s + " \"left\" nPairs 2 var 6\n" +
                   "#@ PBC p.1.pbc1" + s + " \"none\" nPairs 0 var 0\n";
    run.write();
    inlet.write("p.1.nbc0", form);
    walls.write("p.1.zbc", form);
    pairs.write("p.1.pbc0", form);
    Table { 0, { 1 }, { {} } }.write("p.1.nbc1", form);
    Table { 0, { 1, 2 }, { {}, {} } }.write("p.1.pbc1", form);
    return run;
}

static int getInt(rdbHd *hd, const char *key, int i = -1)
{
    int n = -999;
    checkAnswers(i < 0 ? rdbGetInt0(hd, key, &n) : rdbGetInt1(hd, key, &n, i));
    return n;
}

static std::string getStr(rdbHd *hd, const char *key, int i)
{
    char text[SYS_TEXT] = "untouched";
    checkAnswers(rdbGetStr1(hd, key, text, i));
    return text;
}

/* An array of the size that its keys tell; nothing is written behind it */
static Ints getInts(rdbHd *hd, const char *key, int i)
{
    int d1 = 0, d2 = 0;
    EXPECT_TRUE(rdbGetDims(hd, key, 1, i, -1, -1, &d1, &d2)) << rdbGetError();
    Ints values(d1 * (d2 < 0 ? 1 : d2) + 1, -7);
    checkAnswers(rdbGetInts1(hd, key, values.data(), i, d1, d2));
    EXPECT_EQ(values.back(), -7) << key << " wrote beyond its size";
    values.pop_back();
    return values;
}

static const struct { const char *key, *file, *noFile; int nParts, nRows, nCols; } readers[] = {
    { "nbcNodes",     "p.1.nbc0", "node file not found",      1, 3, 1 },
    { "nbcWallNodes", "p.1.zbc",  "wall node file not found", 1, 2, 1 },
    { "pbcUsrIds",    "p.1.pbc0", "node file not found",      2, 2, 3 },
    { "pbcPairs",     "p.1.pbc0", "node file not found",      2, 2, 3 },
};

/* ------------------------------------------------------------------------------------------------ what is there */

TEST(nodeSets, sameInEveryForm)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        runWithSets(form.form);
        rdbHd *hd = SmallRun::open();
        EXPECT_EQ(getInt(hd, "nNbcs"), 2);
        EXPECT_EQ(getStr(hd, "nbcName", 0), "in");
        EXPECT_EQ(getStr(hd, "nbcVar", 0), "4");
        EXPECT_EQ(getStr(hd, "nbcVar", 1), "-5");
        EXPECT_EQ(getInt(hd, "nNbcNodes", 0), 3);
        EXPECT_EQ(getInts(hd, "nbcNodes", 0), (Ints { 10, 20, 12 }));
        for (int i : { 0, 1 }) EXPECT_EQ(getInts(hd, "nbcWallNodes", i), (Ints { 21, 11, 0, 0, 0 }));
        EXPECT_EQ(getInt(hd, "nPbcs"), 2);
        EXPECT_EQ(getStr(hd, "pbcName", 0), "left");
        EXPECT_EQ(getStr(hd, "pbcVar", 0), "6");
        EXPECT_EQ(getInt(hd, "nPbcPairs", 0), 2);
        EXPECT_EQ(getInts(hd, "pbcUsrIds", 0), (Ints { 7, 9 }));
        EXPECT_EQ(getInts(hd, "pbcPairs", 0), (Ints { 10, 20, 11, 21 }));
        EXPECT_EQ((int) getInts(hd, "pbcPairs", 0).size(), 2 * getInt(hd, "nPbcPairs", 0));
        rdbFree(hd);
    }
}

TEST(nodeSets, ofNoRows)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        runWithSets(form.form);
        rdbHd *hd = SmallRun::open();
        EXPECT_EQ(getInt(hd, "nNbcNodes", 1), 0);
        EXPECT_EQ(getInt(hd, "nPbcPairs", 1), 0);
        int none = -7;
        for (const char *key : { "nbcNodes", "pbcUsrIds", "pbcPairs" })
            checkAnswers(rdbGetInts1(hd, key, &none, 1, -1, -1));
        EXPECT_EQ(none, -7);
        rdbFree(hd);
    }
}

TEST(nodeSets, aSetThatIsNotThere)
{
    runWithSets(tool::Form::binary);
    rdbHd *hd = SmallRun::open();
    int    nodes[8];
    for (const auto &r : readers)
        checkRefused("index1 (2) is out of range [0,1]", rdbGetInts1(hd, r.key, nodes, 2, -1, -1));
    rdbFree(hd);
}

TEST(nodeSets, inAContainer)
{
    SmallRun run;
    run.form = tool::Form::container;
    run.extraCli = "#@ NBC elsewhere/p.1.nbc0 \"in\" nNodes 3 var 4\n#@ ZBC p.1.zbc \"walls\" nNodes 2 var 0\n"
                   "#@ PBC p.1.pbc0 \"left\" nPairs 2 var 6\n";
    run.write();
    inlet.write("p.1.nbc0", run.form);
    walls.write("p.1.zbc", run.form);
    pairs.write("p.1.pbc0", run.form);
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(getInts(hd, "nbcNodes", 0), (Ints { 10, 20, 12 }));
    EXPECT_EQ(getInts(hd, "nbcWallNodes", 0), (Ints { 21, 11, 0, 0, 0 }));
    EXPECT_EQ(getInts(hd, "pbcUsrIds", 0), (Ints { 7, 9 }));
    EXPECT_EQ(getInts(hd, "pbcPairs", 0), (Ints { 10, 20, 11, 21 }));
    rdbFree(hd);
}

/* -------------------------------------------------------------------------------------------------- failing files */

TEST(nodeSets, withoutAFile)
{
    SmallRun run;
    run.extraCli = "#@ NBC\n#@ PBC\n";
    rdbHd *hd = run.writeAndOpen();
    for (const auto &r : readers) {
        Ints nodes(5, -7);
        SCOPED_TRACE(r.key);
        checkRefused(r.noFile, rdbGetInts1(hd, r.key, nodes.data(), 0, -1, -1));
        /* the wall nodes are cleared even so */
        EXPECT_EQ(nodes, Ints(5, std::string(r.key) == "nbcWallNodes" ? 0 : -7));
    }
    EXPECT_EQ(getStr(hd, "nbcName", 0), "");
    EXPECT_EQ(getStr(hd, "nbcVar", 0), "0");
    rdbFree(hd);
}

/* A ZBC line that ends too early tells of wall nodes without a file */
TEST(nodeSets, wallNodesOfALineWithoutAFile)
{
    SmallRun run = runWithSets(tool::Form::ascii);
    run.extraCli += "#@ ZBC\n";
    rdbHd *hd = run.writeAndOpen();
    Ints   nodes(5, -7);
    checkRefused("wall node file not found", rdbGetInts1(hd, "nbcWallNodes", nodes.data(), 0, -1, -1));
    EXPECT_EQ(nodes, Ints(5, 0));
    rdbFree(hd);
}

TEST(nodeSets, theHeadMustBeTheSets)
{
    for (const auto &form : smallForms) {
        runWithSets(form.form);
        rdbHd *hd = SmallRun::open();
        for (const auto &r : readers) {
            SCOPED_TRACE(std::string(form.name) + ", " + r.key);
            const Table right = r.nCols == 3 ? pairs : r.nRows == 3 ? inlet : walls;
            const auto  fails = [&](int nParts, int nRows, int nCols, const char *text) {
                Table table    = right;
                table.nParts   = nParts;
                table.saidRows = nRows;
                table.nCols    = nCols;
                table.write(r.file, form.form);
                int nodes[8];
                checkFails(text, rdbGetInts1(hd, r.key, nodes, 0, -1, -1));
                checkFails("Function <rdb_" + std::string(r.key) + ">", rdbGetInts1(hd, r.key, nodes, 0, -1, -1));
            };
            fails(3, -1, -1, "nParts <3> error");
            fails(-1, 4, -1, "nRows  <4> error");
            fails(-1, 0, -1, "nRows  <0> error");
            fails(-1, -1, 2, "nCols  <2> error");
            right.write(r.file, form.form);
        }
        rdbFree(hd);
    }
}

TEST(nodeSets, theTablesOwnSizesAreChecked)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        runWithSets(form.form);
        rdbHd *hd = SmallRun::open();
        Table { 2, { 1 }, { { 10, 20 } }, -1, 3, -1 }.write("p.1.nbc0", form.form);
        Table { 2, { 1, 1 }, { { 7, 9 }, { 10, 20 } }, -1, -1, 3 }.write("p.1.pbc0", form.form);
        int nodes[8];
        checkFails("data out of order", rdbGetInts1(hd, "nbcNodes", nodes, 0, 3, -1));
        checkFails("data out of order", rdbGetInts1(hd, "pbcPairs", nodes, 0, 2, 2));
        rdbFree(hd);
    }
}

TEST(nodeSets, countsThatTheFileCannotHold)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        SmallRun          run = runWithSets(form.form);
        const std::string s = run.suffix();
        run.extraCli = "#@ NBC p.1.nbc0" + s + " \"in\" nNodes 2000000000 var 4\n" +
                       "#@ PBC p.1.pbc0" + s + " \"left\" nPairs 2147483647 var 6\n" +
                       "#@ ZBC p.1.zbc" + s + " \"walls\" nNodes 6 var 0\n";
        rdbHd *hd = run.writeAndOpen();
        const std::string nodeText = "file <p.1.nbc0" + s + "> cannot hold 2000000000 rows";
        const std::string pairText = "file <p.1.pbc0" + s + "> cannot hold 2147483647 rows";
        int n = -1;
        checkRefused(nodeText.c_str(), rdbGetInt1(hd, "nNbcNodes", &n, 0));
        checkRefused(pairText.c_str(), rdbGetInt1(hd, "nPbcPairs", &n, 0));
        EXPECT_EQ(n, -1);

        /* more wall nodes than nodes, even if the file has them */
        Table { 6, { 1 }, { { 10, 11, 12, 20, 21, 22 } } }.write("p.1.zbc", form.form);
        Ints nodes(6, -7);
        checkFails("nRows  <6> error", rdbGetInts1(hd, "nbcWallNodes", nodes.data(), 0, 5, -1));
        EXPECT_EQ(nodes[5], -7);
        rdbFree(hd);
    }
}

/* Cut anywhere, a file fails or answers, and the handle is as good as before */
TEST(nodeSets, cutAnywhereTheFileFailsClearly)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        const SmallRun run = runWithSets(form.form);
        rdbHd         *hd = SmallRun::open();
        for (const auto &r : readers) {
            const std::string name = r.file + run.suffix(), whole = testRead(name);
            for (size_t n = 0; n < whole.size(); ++n) {
                testWrite(name, whole.substr(0, n));
                Ints nodes(8, -7);
                int  given = -1;
                const std::string failure = trapped([&] { given = rdbGetInts1(hd, r.key, nodes.data(), 0, -1, -1); });
                EXPECT_TRUE(!failure.empty() || given == 1) << r.key << " cut at " << n;
                EXPECT_EQ(nodes.back(), -7);
            }
            testWrite(name, whole);
        }
        EXPECT_EQ(getInts(hd, "nbcNodes", 0), (Ints { 10, 20, 12 }));
        EXPECT_EQ(getInts(hd, "pbcPairs", 0), (Ints { 10, 20, 11, 21 }));
        rdbFree(hd);
    }
}
