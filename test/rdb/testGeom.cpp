/* testGeom.cpp: table files, and the keys of nodes, element groups and volumes. */

#include <unistd.h>

#include <climits>

#include "test/rdb/smallRun.h"

static int getInt(rdbHd *hd, const char *key)
{
    int n = -999;
    checkAnswers(rdbGetInt0(hd, key, &n));
    return n;
}

static int getInt1(rdbHd *hd, const char *key, int i)
{
    int n = -999;
    checkAnswers(rdbGetInt1(hd, key, &n, i));
    return n;
}

static std::string getStr1(rdbHd *hd, const char *key, int i)
{
    char text[SYS_TEXT] = "untouched";
    checkAnswers(rdbGetStr1(hd, key, text, i));
    return text;
}

TEST(nodes, sameInEveryForm)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        SmallRun run;
        run.form = form.form;
        rdbHd *hd = run.writeAndOpen();
        ASSERT_EQ(getInt(hd, "nNodes"), 5);
        int    ids[5];
        double crd[15];
        checkAnswers(rdbGetInts0(hd, "usrIds", ids, 5, 1));
        EXPECT_EQ(std::vector<int>(ids, ids + 5), run.usrIds);
        checkAnswers(rdbGetReals0(hd, "crd", crd, 3, 5));
        for (int i = 0; i < 15; ++i) EXPECT_EQ(crd[i], SmallRun::crd(i / 3, i % 3));
        rdbFree(hd);
    }
}

TEST(nodes, aRunWithoutCoordinateFile)
{
    SmallRun run;
    run.write();
    testWrite("p.1.cli", "#@ TITLE \"nothing else\"\n");
    rdbHd *hd = SmallRun::open();
    EXPECT_EQ(getInt(hd, "nNodes"), 0);
    int    ids[1];
    double crd[1];
    checkRefused("coordinate file not found", rdbGetInts0(hd, "usrIds", ids, -1, -1));
    checkRefused("coordinate file not found", rdbGetReals0(hd, "crd", crd, -1, -1));
    rdbFree(hd);
}

TEST(nodes, theHeadMustBeTheRuns)
{
    static const struct { int nParts, nRows, nCols; const char *text; } rows[] = {
        { 3, -1, 4, "nParts <3> error"  },
        { 2, 6,  4, "nRows  <6> error"  },
        { 2, 0,  4, "nRows  <0> error"  },
        { 2, -1, 3, "nCols  <3> error"  },
    };
    for (const auto &form : smallForms)
        for (const auto &row : rows) {
            SmallRun run;
            run.form = form.form;
            rdbHd *hd = run.writeAndOpen();
            run.writeCrd(row.nParts, row.nRows, row.nCols);
            int    ids[5];
            double crd[15];
            checkFails(row.text, rdbGetInts0(hd, "usrIds", ids, 5, 1));
            checkFails("rdb_usrIds", rdbGetInts0(hd, "usrIds", ids, 5, 1));
            checkFails(row.text, rdbGetReals0(hd, "crd", crd, 3, 5));
            checkFails("rdb_crd", rdbGetReals0(hd, "crd", crd, 3, 5));
            rdbFree(hd);
        }
}

TEST(nodes, thePartsOwnSizesAreChecked)
{
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    SmallRun shorter = run;
    shorter.usrIds.pop_back();
    shorter.writeCrd(2, 5, 4);
    int    ids[5];
    double crd[15];
    checkFails("data out of order: expected <5> found <4>", rdbGetInts0(hd, "usrIds", ids, 5, 1));
    checkFails("data out of order: expected <5> found <4>", rdbGetReals0(hd, "crd", crd, 3, 5));
    rdbFree(hd);
}

TEST(elements, groupsAndVolumesInEveryForm)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        SmallRun run;
        run.form = form.form;
        rdbHd *hd = run.writeAndOpen();
        ASSERT_EQ(getInt(hd, "nElms"), 3);
        ASSERT_EQ(getInt(hd, "nVols"), 3);
        for (int i = 0; i < 3; ++i) {
            const int n = (int) run.sets[i].size() / 4;
            int       ids[2], cnn[8], vols[1] = { -1 };
            double    thick = 0;
            EXPECT_EQ(getStr1(hd, "elmName", i), "e" + std::to_string(i));
            EXPECT_EQ(getStr1(hd, "volName", i), "v" + std::to_string(i));
            EXPECT_EQ(getInt1(hd, "elmType", i), 3);
            EXPECT_EQ(getInt1(hd, "volType", i), 3);
            EXPECT_EQ(getInt1(hd, "elmQuad", i), 2);
            EXPECT_EQ(getInt1(hd, "elmMedium", i), 1);
            EXPECT_EQ(getInt1(hd, "elmRffId", i), 7);
            checkAnswers(rdbGetReal1(hd, "elmShlThick", &thick, i));
            EXPECT_EQ(thick, 0.25);
            EXPECT_EQ(getInt1(hd, "nElmElems", i), n);
            EXPECT_EQ(getInt1(hd, "nVolElems", i), n);
            EXPECT_EQ(getInt1(hd, "nElmElemNodes", i), 4);
            EXPECT_EQ(getInt1(hd, "nVolElemNodes", i), 4);
            EXPECT_EQ(getInt1(hd, "nElmVols", i), 1);
            checkAnswers(rdbGetInts1(hd, "elmVolIds", vols, i, 1, 1));
            EXPECT_EQ(vols[0], i);
            for (const char *stem : { "elm", "vol" }) {
                checkAnswers(rdbGetInts1(hd, (std::string(stem) + "UsrIds").c_str(), ids, i, 2, 1));
                for (int k = 0; k < n; ++k) EXPECT_EQ(ids[k], 100 * (i + 1) + k);
                checkAnswers(rdbGetInts1(hd, (std::string(stem) + "Cnn").c_str(), cnn, i, 4, 2));
                for (int k = 0; k < 4 * n; ++k) EXPECT_EQ(cnn[k], run.sets[i][k]);
            }
        }
        rdbFree(hd);
    }
}

static const struct { const char *key, *file; } elementKeys[] = {
    { "elmUsrIds", "cnn" }, { "elmCnn", "cnn" }, { "volUsrIds", "vol" }, { "volCnn", "vol" },
};

TEST(elements, aGroupWithoutRowsStillPassesTheHeader)
{
    for (const auto &form : smallForms) {
        SmallRun run;
        run.form = form.form;
        rdbHd *hd = run.writeAndOpen();
        int    none = 7;
        for (const auto &k : elementKeys) {
            checkAnswers(rdbGetInts1(hd, k.key, &none, 1, -1, -1));
            EXPECT_EQ(none, 7);
        }
        SmallRun other = run;
        other.sets[1] = { 10, 11, 12, 20 };
        other.writeSet("cnn", 1);
        other.writeSet("vol", 1);
        for (const auto &k : elementKeys) checkFails("nRows  <1> error", rdbGetInts1(hd, k.key, &none, 1, -1, -1));
        rdbFree(hd);
    }
}

TEST(elements, theHeadMustBeTheSets)
{
    static const struct { int nParts, nRows, nCols; const char *text; } rows[] = {
        { 1, -2, 4, "nParts <1> error"  },                        /* told in this order */
        { 2, -2, 4, "nRows  <-2> error" },
        { 2,  2, 4, "nCols  <4> error"  },
    };
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    for (const auto &k : elementKeys) {
        int data[8];
        const std::string file = "p.1." + std::string(k.file) + "0";
        for (const auto &row : rows) {
            {
                tool::TokenFile f(file, run.form);
                f.keyInt("nParts", row.nParts);
                f.keyInt("nRows", row.nRows);
                f.keyInt("nCols", row.nCols);
            }
            checkFails(row.text, rdbGetInts1(hd, k.key, data, 0, -1, -1));
            checkFails(std::string("rdb_") + k.key, rdbGetInts1(hd, k.key, data, 0, -1, -1));
        }
    }
    rdbFree(hd);
}

/* A file that was cut in its head is one that was cut, whatever the numbers before the cut are */
TEST(elements, theWholeHeadIsReadBeforeItIsCompared)
{
    for (const auto &form : smallForms) {
        SmallRun run;
        run.form = form.form;
        rdbHd *hd = run.writeAndOpen();
        int    data[8];
        { tool::TokenFile f("p.1.cnn0", form.form); f.keyInt("nParts", 1); }
        checkFails("EOF in ", rdbGetInts1(hd, "elmCnn", data, 0, -1, -1));
        { tool::TokenFile f("p.1.cnn0", form.form); f.keyInt("nParts", 1); f.keyInt("nRows", 7); }
        checkFails("EOF in ", rdbGetInts1(hd, "elmCnn", data, 0, -1, -1));
        { tool::TokenFile f("p.1.cnn0", form.form); f.keyInt("nParts", 1); f.keyInt("nRows", 7); f.keyInt("nCol", 5); }
        checkFails("data out of order: expected <nCols> found <nCol>", rdbGetInts1(hd, "elmCnn", data, 0, -1, -1));
        rdbFree(hd);
    }
}

TEST(elements, aSetWithoutFile)
{
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    memFree(((rdbElmSet *) hd->run->elm.rec[0])->file);
    memFree(((rdbVolSet *) hd->run->vol.rec[0])->file);
    for (const auto &k : elementKeys) {
        int data[8];
        checkRefused("connectivity file not found", rdbGetInts1(hd, k.key, data, 0, -1, -1));
    }
    rdbFree(hd);
}

TEST(elements, absurdSizesInTheFileFailInOrder)
{
    for (const auto &form : smallForms)
        for (int absurd : { -1, INT_MIN, INT_MAX, 1 << 30 }) {
            SCOPED_TRACE(std::string(form.name) + ", " + std::to_string(absurd));
            SmallRun run;
            run.form = form.form;
            rdbHd *hd = run.writeAndOpen();
            {
                tool::TokenFile f("p.1.vol0", form.form);
                f.keyInt("nParts", 2);
                f.keyInt("nRows", 2);
                f.keyInt("nCols", 5);
                f.keyInt("type", absurd);
                f.keyInt("nCols", absurd);
                f.str("intVec");
                f.ints(std::vector<int>{ absurd, absurd, 1, 2 }.data(), 4);
            }
            int cnn[8];
            EXPECT_NE(trapped([&] { rdbGetInts1(hd, "volCnn", cnn, 0, 4, 2); }), "");
            checkFails("data out of order", rdbGetInts1(hd, "volUsrIds", cnn, 0, 2, 1));
            rdbFree(hd);
        }
}

/* A count in the client information file that its data file cannot hold must not reach a client */
TEST(rdbRowsFit, countsThatTheFileCannotHold)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        SmallRun run;
        run.form = form.form;
        run.write();
        std::string cli = run.cli();
        for (const char *count : { "nNodes 5", "n 2 type 3 nen 4\n", "n 2 type 3 nen 4 quad" }) {
            const size_t at = cli.find(count);
            ASSERT_NE(at, std::string::npos);
            cli.replace(cli.find(count[1] == 'N' ? " 5" : " 2", at), 2, " 2000000000");
        }
        testWrite("p.1.cli", cli);
        rdbHd *hd = SmallRun::open();
        int    n = -1;
        const std::string s = run.suffix(), cannot = " cannot hold 2000000000 rows";
        checkRefused(("file <p.1.crd" + s + ">" + cannot).c_str(), rdbGetInt0(hd, "nNodes", &n));
        checkRefused(("file <p.1.cnn0" + s + ">" + cannot).c_str(), rdbGetInt1(hd, "nElmElems", &n, 0));
        checkRefused(("file <p.1.vol0" + s + ">" + cannot).c_str(), rdbGetInt1(hd, "nVolElems", &n, 0));
        EXPECT_EQ(n, -1);
        int *hash;
        checkRefused(("file <p.1.crd" + s + ">" + cannot).c_str(), rdbGetUsrIdHash(hd, &hash));
        checkRefused(("file <p.1.vol0" + s + ">" + cannot).c_str(), rdbGetVolUsrIdHash(hd, 0, &hash));
        checkFails("file <p.1.vol0" + s + ">" + cannot, rdbGetVolCnn(hd, 0, &hash));
        rdbFree(hd);
    }
}

TEST(rdbRowsFit, whatIsNotTested)
{
    rdbHd hd = {};
    int   fits = 0;
    testWrite("t", std::string(100, ' '));
    EXPECT_EQ(rdbRowsFit(&hd, nullptr, INT_MAX, 1, 3, &fits), 1);                     /* no file     */
    EXPECT_EQ(rdbRowsFit(&hd, "t", 1000, 1, 3, &fits), 1);                            /* small       */
    EXPECT_EQ(rdbRowsFit(&hd, "gone", 1000, 1, 3, &fits), 1);                         /* not on disk */
    EXPECT_EQ(fits, 0);
    EXPECT_EQ(rdbRowsFit(&hd, "gone", INT_MAX, 1, 3, &fits), 0);
    EXPECT_STREQ(rdbGetError(), "file <gone> not found");
    EXPECT_EQ(rdbRowsFit(&hd, "t", INT_MAX, 1, 3, &fits), 0);
    EXPECT_EQ(rdbRowsFit(&hd, "t", INT_MAX, INT_MAX, INT_MAX, &fits), 0);
    EXPECT_EQ(rdbRowsFit(&hd, "t", -1, 1, 0, &fits), 0);
    EXPECT_EQ(fits, 0);
}

TEST(rdbRowsFit, aCountWithoutItsFile)
{
    testWrite("p.1.cli", "#@ CRD gone nNodes 2000000000\n#@ END\n");
    rdbHd *hd = SmallRun::open();
    int    n = -1;
    checkRefused("file <gone> not found", rdbGetInt0(hd, "nNodes", &n));
    EXPECT_EQ(n, -1);
    rdbFree(hd);
}

/* The rows of one integer and three reals that a file of some size could hold in each form */
TEST(rdbRowsFit, aLargeFileThatHoldsThem)
{
    static const struct { const char *name; int64_t size; } rows[] = {
        { "big",   8 << 20                       },          /* a digit and a blank for each number              */
        { "big.B", 28 << 20                      },
        { "big.Z", ((8 << 20) + 32767) / 32768   },          /* a byte stands for 32768 of the text              */
        { "big.H", ((28 << 20) + 1031) / 1032    },          /* filters pack up to 1032 bytes into one           */
        { "big.C", ((28 << 20) + 1031) / 1032    },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        rdbHd hd = {};
        int   fits = 0;
        testWrite(row.name, "");
        ASSERT_EQ(truncate(row.name, row.size), 0);
        EXPECT_EQ(rdbRowsFit(&hd, row.name, 1 << 20, 1, 3, &fits), 1);
        EXPECT_EQ(fits, 1);
        EXPECT_EQ(rdbRowsFit(&hd, row.name, INT_MAX, 1, 3, &fits), 1);                /* remembered */
        fits = 0;
        ASSERT_EQ(truncate(row.name, row.size - 1), 0);
        EXPECT_EQ(rdbRowsFit(&hd, row.name, 1 << 20, 1, 3, &fits), 0);
        EXPECT_EQ(rdbRowsFit(&hd, row.name, INT_MAX, 1, 3, &fits), 0);
        EXPECT_EQ(rdbGetError(), "file <" + std::string(row.name) + "> cannot hold 2147483647 rows");
        EXPECT_EQ(fits, 0);
    }
}
