/* testIopKeyed.cpp: keyed items: scalars, tables, parts of tables, scattered rows, optional items. */

#include <climits>

#include "iop/iopInt.h"
#include "test/iop/hdfStream.h"
#include "test/iop/tokenBytes.h"

struct iopKeyedHdf : HdfTest {};

/* The end of a message that a form's file carries. */
static std::string info(const TokenForm &form, int token, const char *near)
{
    return std::string("in ") + form.kind + " file <" + form.file + "> token <" +
           std::to_string(token) + "> near <" + near + ">";
}

TEST(iopKeyed, scalarsAndTables)
{
    forEachForm(form) {
        TokenBytes(form).s("name").s("duct").s("nNodes").i(7).s("time").r(0.125)
            .table("cnn", 2, 3).i(1).i(2).i(3).i(4).i(5).i(6).table("crd", 3, 1).r(0.1).r(0.2).r(0.3)
            .table("none", 4, 0).table("none", 0, 4).s("end").write();
        iopHd *fh = openTokens(form);
        char text[SYS_TEXT];
        int n;
        double time;
        Ints cnn(6);
        Reals crd(3);
        iopGetKeyStr(fh, "name", text);
        iopGetKeyInt(fh, "nNodes", &n);
        iopGetKeyReal(fh, "time", &time);
        iopGetKeyInts(fh, "cnn", 2, 3, cnn.data());
        iopGetKeyReals(fh, "crd", 3, 1, crd.data());
        iopGetKeyInts(fh, "none", 4, 0, nullptr);
        iopGetKeyReals(fh, "none", 0, 4, nullptr);
        iopCheckStr(fh, "end");
        EXPECT_STREQ(text, "duct");
        EXPECT_EQ(n, 7);
        EXPECT_EQ(time, 0.125);
        EXPECT_EQ(cnn, (Ints{ 1, 2, 3, 4, 5, 6 }));
        EXPECT_EQ(crd, (Reals{ 0.1, 0.2, 0.3 }));
        EXPECT_EQ(fh->nTokens, 6 + 9 + 6 + 3 + 3 + 1);
        EXPECT_EQ(testSlept(), 0);
        iopCloseFile(fh);
    }
}

TEST(iopKeyed, tableOfOtherSizesFails)
{
    forEachForm(form) {
        TokenBytes(form).table("crd", 3, 2).r(1).write();
        double v[6];
        iopHd *fh = openTokens(form);
        checkFails("data out of order: expected <2> found <3> " + info(form, 2, "crd"),
                   iopGetKeyReals(fh, "crd", 2, 3, v));
        iopRewind(fh);
        checkFails("data out of order: expected <4> found <2> " + info(form, 3, "crd"),
                   iopGetKeyReals(fh, "crd", 3, 4, v));
        iopRewind(fh);
        checkFails("data out of order: expected <cnn> found <crd> " + info(form, 1, "crd"),
                   iopGetKeyReals(fh, "cnn", 3, 2, v));
        iopCloseFile(fh);
    }
}

/* ---- optional items ---- */

TEST(iopKeyed, optionalItemsThatAreThere)
{
    forEachForm(form) {
        TokenBytes(form).s("name").s("duct").s("n").i(7).s("t").r(0.5).table("ids", 1, 2).i(8).i(9)
            .table("old", 2, 1).r(1).r(2).s("end").write();
        iopHd *fh = openTokens(form);
        char text[SYS_TEXT];
        int n = 0;
        double t = 0;
        Ints ids(2);
        iopGetOptKeyStr(fh, "name", text);
        iopGetOptKeyInt(fh, "n", &n);
        iopGetOptKeyReal(fh, "t", &t);
        iopGetOptKeyInts(fh, "ids", 1, 2, ids.data());
        iopSkipRealsIf(fh, "old");
        iopCheckStr(fh, "end");
        EXPECT_STREQ(text, "duct");
        EXPECT_EQ(n, 7);
        EXPECT_EQ(t, 0.5);
        EXPECT_EQ(ids, (Ints{ 8, 9 }));
        iopCloseFile(fh);
    }
}

TEST(iopKeyed, optionalItemThatIsNotThereLeavesAllAsItWas)
{
    forEachForm(form) {
        TokenBytes(form).s("first").i(1).s("here").i(5).write();
        iopHd *fh = openTokens(form);
        char text[SYS_TEXT] = "kept";
        int n = -1, ids[2] = { -1, -1 };
        double t = -1;
        iopGetKeyInt(fh, "first", &n);
        const int64_t loc = iopGetLoc(fh);
        n = -1;
        iopGetOptKeyStr(fh, "name", text);
        iopGetOptKeyInt(fh, "n", &n);
        iopGetOptKeyReal(fh, "t", &t);
        iopGetOptKeyInts(fh, "ids", 1, 2, ids);
        iopSkipRealsIf(fh, "old");
        EXPECT_STREQ(text, "kept");
        EXPECT_EQ(n, -1);
        EXPECT_EQ(t, -1);
        EXPECT_EQ(ids[0] + ids[1], -2);
        EXPECT_EQ(iopGetLoc(fh), loc);
        EXPECT_EQ(iopFileInfo(fh), info(form, 2, "here"));
        iopGetKeyInt(fh, "here", &n);
        EXPECT_EQ(n, 5);
        iopGetOptKeyInt(fh, "n", &n);                       /* the end of the data is no failure */
        iopGetOptKeyInts(fh, "ids", 1, 2, ids);
        iopSkipRealsIf(fh, "old");
        EXPECT_EQ(n, 5);
        EXPECT_EQ(testSlept(), 0);
        iopCloseFile(fh);
    }
}

/* ---- skips and parts ---- */

TEST(iopKeyed, skippedTables)
{
    forEachForm(form) {
        TokenBytes all(form);
        all.table("a", 2, 5000);
        for (int i = 0; i < 10000; ++i) all.i(i);
        all.table("b", 3, 4000);
        for (int i = 0; i < 12000; ++i) all.r(i);
        all.table("c", 0, 7).table("d", 7, 0).s("end").write();
        iopHd *fh = openTokens(form);
        iopSkipInts(fh, "a");
        iopSkipReals(fh, "b");
        iopSkipReals(fh, "c");
        iopSkipInts(fh, "d");
        iopCheckStr(fh, "end");
        EXPECT_EQ(fh->nTokens, 10000 + 12000 + 4 * 3 + 1);
        EXPECT_EQ(testSlept(), 0);
        iopCloseFile(fh);
    }
}

/* Of tables "a" of integers and "b" of reals, 2 columns and 5 rows each, k and k + 0.5 being the values. */
static void checkParts(iopHd *fh)
{
    static const struct { int first, last; } rows[] = { { 0, 1 }, { 0, 5 }, { 1, 3 }, { 4, 5 }, { 2, 5 } };
    for (const auto &row : rows) {
        const int n = 2 * (row.last - row.first);
        Ints ints(11, -1), wantedInts(11, -1);
        Reals reals(11, -1), wantedReals(11, -1);
        for (int i = 0; i < n; ++i) wantedReals[i] = 0.5 + (wantedInts[i] = 2 * row.first + i);
        iopRewind(fh);
        iopReadSubInts(fh, "a", 2, 5, row.first, row.last, ints.data());
        iopReadSubReals(fh, "b", 2, 5, row.first, row.last, reals.data());
        iopCheckStr(fh, "end");
        EXPECT_EQ(ints, wantedInts);
        EXPECT_EQ(reals, wantedReals);
        EXPECT_EQ(iopGetTokens(fh), 2 * (3 + 10) + 1);
    }
    iopCloseFile(fh);
}

TEST(iopKeyed, partsOfTables)
{
    forEachForm(form) {
        TokenBytes all(form);
        all.table("a", 2, 5);
        for (int i = 0; i < 10; ++i) all.i(i);
        all.table("b", 2, 5);
        for (int i = 0; i < 10; ++i) all.r(i + 0.5);
        all.s("end").write();
        checkParts(openTokens(form));
    }
}

/* Whatever the extents and types are, and packed or not */
TEST_F(iopKeyedHdf, partsOfTables)
{
    static const Dims all[] = { { 5, 2 }, { 10 }, { 10, 1 }, { 5, 1, 2 }, { 2, 5 }, { 1, 10 } };
    Ints  ints;
    Reals reals;
    for (int i = 0; i < 10; ++i) ints.push_back(i), reals.push_back(i + 0.5);
    for (const Dims &dims : all) {
        for (hid_t type : { H5T_NATIVE_INT, H5T_STD_I64BE, H5T_STD_U32LE, H5T_STD_I8LE }) {
            for (int packed : { 0, 1 }) {
                const hid_t how = packed ? H5Pcreate(H5P_DATASET_CREATE) : 0;
                const Dims  chunk(dims.size(), 1);
                if (packed) H5Pset_chunk(how, (int) chunk.size(), chunk.data());
                if (packed) H5Pset_deflate(how, 1);
                Stream("a.H").table("a", 2, 5).put(dims, type, H5T_NATIVE_INT, ints.data(), how)
                    .table("b", 2, 5).r(reals, dims, H5T_IEEE_F64BE, how).s("end");
                if (packed) H5Pclose(how);
                checkParts(openHdf("a.H"));
            }
        }
    }
}

/* A part is as little to be trusted as the whole */
TEST_F(iopKeyedHdf, partsThatCannotBeRead)
{
    const unsigned big[] = { 1, 2, 3, 4, INT_MAX + 1u, 6 };
    int v[4];
    Stream("a.H").table("a", 2, 3).put({ 3, 2 }, H5T_STD_U32LE, H5T_NATIVE_UINT, big)
        .table("b", 2, 3).i({ 1, 2, 3, 4 }, { 2, 2 }).table("c", 2, 3).r({ 1, 2, 3, 4, 5, 6 }, { 3, 2 });
    iopHd *fh = openHdf("a.H");
    checkReturns(iopReadSubInts(fh, "a", 2, 3, 0, 2, v));
    EXPECT_EQ(v[3], 4);
    iopRewind(fh);
    checkFails("value out of range in data set <3>; in hdf file <a> token <3> near <a>",
               iopReadSubInts(fh, "a", 2, 3, 1, 3, v));
    checkFails("Inconsistent size <4> vs. <6> for <7>; in hdf file <a> token <6> near <b>",
               iopReadSubInts(fh, "b", 2, 3, 0, 1, v));
    checkFails("Inconsistent data <1> vs. <0> for <11>; in hdf file <a> token <9> near <c>",
               iopReadSubInts(fh, "c", 2, 3, 0, 1, v));
    iopCloseFile(fh);
}

/* Of a table "a" of 2 columns and 5 rows. */
static void refuseParts(iopHd *fh)
{
    static const struct { int first, last; const char *text; } rows[] = {
        { 2, 2,       "Inappropriate sub index range <2>-<2> for dim2 <5>"          },
        { -1, 2,      "Inappropriate sub index range <-1>-<2> for dim2 <5>"         },
        { 3, 2,       "Inappropriate sub index range <3>-<2> for dim2 <5>"          },
        { 4, 6,       "Inappropriate sub index range <4>-<6> for dim2 <5>"          },
        { 0, INT_MAX, "Inappropriate sub index range <0>-<2147483647> for dim2 <5>" },
    };
    for (const auto &row : rows) {
        iopRewind(fh);
        checkFails(row.text, iopReadSubInts(fh, "a", 2, 5, row.first, row.last, nullptr));
        iopRewind(fh);
        checkFails(row.text, iopReadSubReals(fh, "a", 2, 5, row.first, row.last, nullptr));
    }
    iopRewind(fh);
    checkFails("data out of order: expected <3> found <2> ", iopReadSubReals(fh, "a", 3, 5, 0, 1, nullptr));
    iopRewind(fh);
    checkFails("data out of order: expected <6> found <5> ", iopReadSubInts(fh, "a", 2, 6, 0, 1, nullptr));
    iopCloseFile(fh);
}

TEST(iopKeyed, inappropriateParts)
{
    forEachForm(form) {
        TokenBytes(form).table("a", 2, 5).write();
        refuseParts(openTokens(form));
    }
}

TEST_F(iopKeyedHdf, inappropriateParts)
{
    Stream("a.H").table("a", 2, 5);
    refuseParts(openHdf("a.H"));
}

/* ---- scattered rows ---- */

/* Both ways of scattering: of an index that comes twice, the last row stays, or both are added. */
static void checkScatter(const TokenForm &form, int n, int m, const int *idx, int nDest)
{
    TokenBytes all(form);
    all.table("v", n, m);
    Reals got((size_t) nDest * n, -1), added(got), wantedGot(got), wantedAdded(got);
    for (int i = 0; i < m; ++i) {
        for (int k = 0; k < n; ++k) {
            const size_t to = (size_t) (idx ? idx[i] : i) * n + k;
            all.r(i + k / 8.0);
            wantedGot[to] = i + k / 8.0;
            wantedAdded[to] += i + k / 8.0;
        }
    }
    all.s("end").write();
    iopHd *fh = openTokens(form);
    iopGetRealsIndexed(fh, "v", n, m, idx, got.data());
    iopCheckStr(fh, "end");
    EXPECT_EQ(fh->nTokens, n * m + 4);
    EXPECT_TRUE(got == wantedGot) << "n " << n << " m " << m;
    iopRewind(fh);
    iopAddRealsIndexed(fh, "v", n, m, idx, added.data());
    iopCheckStr(fh, "end");
    EXPECT_EQ(fh->nTokens, n * m + 4);
    EXPECT_TRUE(added == wantedAdded) << "n " << n << " m " << m;
    EXPECT_EQ(testSlept(), 0);
    iopCloseFile(fh);
}

TEST(iopKeyed, scatteredRows)
{
    const int few[] = { 6, 0, 3, 3, 2 }, run[] = { 2, 3, 4, 5, 6 }, back[] = { 4, 3, 2, 1, 0 };
    const int same[] = { 1, 1, 1, 1, 1 };
    forEachForm(form) {
        for (int n : { 1, 2, 3, 9 })
            for (const int *idx : { few, run, back, same, (const int *) nullptr }) checkScatter(form, n, 5, idx, 7);
        checkScatter(form, 3, 1, few, 7);
        checkScatter(form, 3, 0, few, 1);
        checkScatter(form, 0, 3, few, 1);
    }
}

TEST(iopKeyed, scatteredRowsInManyPieces)
{
    forEachForm(form) {
        static const struct { int n, m; } rows[] = { { 1, 300000 }, { 3, 60000 }, { 70000, 4 }, { 140000, 3 } };
        for (const auto &row : rows) {
            Ints idx;
            for (int i = 0; i < row.m; ++i) idx.push_back((int) ((i * 7919LL + 3) % row.m));
            checkScatter(form, row.n, row.m, idx.data(), row.m);
        }
        checkScatter(form, 140000, 3, nullptr, 3);
    }
}

/* A piece that lacks values is told by the number of its token, not by that of the table */
TEST(iopKeyed, scatteredRowsThatEnd)
{
    const int m = 300000, n = 150000;
    Ints idx((size_t) m);
    for (int i = 0; i < m; ++i) idx[(size_t) i] = m - 1 - i;
    Reals dest((size_t) m, -1);
    forEachForm(form) {
        TokenBytes all(form);
        all.table("v", 1, m);
        for (int i = 0; i < n; ++i) all.r(i);
        all.write();
        iopHd *fh = openTokens(form);
        for (const auto scatter : { iopGetRealsIndexed, iopAddRealsIndexed }) {
            iopRewind(fh);
            const std::string failure = trapped([&] { scatter(fh, "v", 1, m, idx.data(), dest.data()); });
            EXPECT_NE(failure.find(std::string("EOF in ") + form.kind), std::string::npos) << failure;
            const int nTokens = iopGetTokens(fh);               /* the binary form counts whole pieces */
            EXPECT_TRUE(form.binary ? nTokens > 100000 && nTokens < n + 3 : nTokens == n + 3) << nTokens;
        }
        EXPECT_EQ(dest[m - 1], 0);
        EXPECT_EQ(dest[m - 1000], 2 * 999);
        iopCloseFile(fh);
    }
}

TEST(iopKeyed, scatteredRowsAreRead)
{
    const int idx[] = { 0 };
    double dest[1] = { 5 };
    for (int form : { IOP_ASCII, IOP_BINARY, IOP_COMPRESSED }) {
        iopHd *fh = iopOpenFile("w", form | IOP_WRITE);
        checkFails("file <w> is not for reading", iopGetRealsIndexed(fh, "v", 1, 1, idx, dest));
        checkFails("file <w> is not for reading", iopAddRealsIndexed(fh, "v", 1, 1, idx, dest));
        EXPECT_EQ(dest[0], 5);
        iopCloseFile(fh);
    }
}

TEST(iopKeyed, scatteredRowsOfOtherSizes)
{
    forEachForm(form) {
        TokenBytes(form).table("v", 3, 2).r(1).r(2).r(3).r(4).write();
        const int idx[] = { 5, 1 };
        Reals dest(18, -1);
        iopHd *fh = openTokens(form);
        checkFails("data out of order: expected <1> found <3> ", iopGetRealsIndexed(fh, "v", 1, 2, idx, dest.data()));
        iopRewind(fh);
        checkFails("data out of order: expected <6> found <2> ", iopGetRealsIndexed(fh, "v", 3, 6, idx, dest.data()));
        iopRewind(fh);
        checkFails("data out of order: expected <1> found <3> ", iopAddRealsIndexed(fh, "v", 1, 2, idx, dest.data()));
        iopRewind(fh);
        checkFails("data out of order: expected <6> found <2> ", iopAddRealsIndexed(fh, "v", 3, 6, idx, dest.data()));
        iopRewind(fh);
        checkFails("data out of order: expected <w> found <v> ", iopAddRealsIndexed(fh, "w", 3, 2, idx, dest.data()));
        EXPECT_EQ(dest, Reals(18, -1));
        iopRewind(fh);
        checkFails("EOF in ", iopAddRealsIndexed(fh, "v", 3, 2, idx, dest.data()));
        EXPECT_EQ(dest, Reals(18, -1));
        iopRewind(fh);
        checkFails("EOF in ", iopGetRealsIndexed(fh, "v", 3, 2, idx, dest.data()));
        iopCloseFile(fh);
    }
}

/* ---- absurd sizes ---- */

TEST(iopKeyed, absurdCounts)
{
    forEachForm(form) {
        TokenBytes(form).i(1).i(2).write();
        iopHd *fh = openTokens(form);
        static int ints[4];
        static double reals[4];
        static float floats[4];
        const int most = INT_MAX;
        checkFails("invalid count <-1>; " + info(form, 0, "__NONE__"), iopGetIntF(fh, ints, -1));
        checkFails("invalid count <-1>; in ", iopGetRealF(fh, reals, -1));
        checkFails("invalid count <-2147483648>; in ", iopGetFloatF(fh, floats, INT_MIN));
        checkFails("invalid count <-1>; in ", iopGetBinInts(fh, ints, -1));
        checkFails("invalid count <-1>; in ", iopGetBinReals(fh, reals, -1));
        checkFails("invalid count <-1>; in ", iopGetIntDsp(fh, -1));
        checkFails("invalid count <-1>; in ", iopGetRealDsp(fh, -1));
        checkFails("invalid count <-1>; in ", iopGetFloatDsp(fh, -1));
        if (!form.binary) {
            checkFails("EOF in ", iopGetIntDsp(fh, most));
            iopRewind(fh);
            checkFails("EOF in ", iopGetRealDsp(fh, most));
        } else {
            checkReturns(iopGetRealDsp(fh, most); iopGetFloatDsp(fh, most));        /* a seek knows no end */
            EXPECT_EQ(fh->nTokens, most);
            EXPECT_EQ(iopGetLoc(fh), (int64_t) strlen(form.tag) + 12 * (int64_t) most);
            checkFails("EOF in ", iopGetIntF(fh, ints, 1));
            checkFails("EOF in ", iopNeed(fh, 1, 'i'));
        }
        iopCloseFile(fh);
    }
}

struct AbsurdTable { int nCols, nRows; const char *text; };

static const AbsurdTable absurdTables[] = {
    { -1, 5,               "invalid table of <-1> x <5> values; in "          },
    { 5, -1,               "invalid table of <5> x <-1> values; in "          },
    { -1, -1,              "invalid table of <-1> x <-1> values; in "         },
    { INT_MIN, INT_MIN,    "invalid table of <-2147483648> x <-2147483648> values; in " },
    { INT_MAX, INT_MAX,    "EOF in " },
    { 65536, 65536,        "EOF in " },             /* 0 in 32 bits */
    { 3, 1431655766,       "EOF in " },             /* 2 in 32 bits */
    { INT_MAX, 1,          "EOF in " },
};

static void refuseSkips(iopHd *fh, const char *text)
{
    checkFails(text, iopSkipInts(fh, "v"));
    iopRewind(fh);
    checkFails(text, iopSkipReals(fh, "v"));
    iopRewind(fh);
    checkFails(text, iopSkipRealsIf(fh, "v"));
    iopCloseFile(fh);
}

TEST(iopKeyed, absurdTablesInAFile)
{
    forEachForm(form) {
        for (const AbsurdTable &row : absurdTables) {
            TokenBytes(form).table("v", row.nCols, row.nRows).i(1).i(2).write();
            refuseSkips(openTokens(form), row.text);
        }
        TokenBytes(form).table("v", 4, 1).i(1).i(2).write();
        refuseSkips(openTokens(form), "EOF in ");
    }
}

TEST_F(iopKeyedHdf, absurdTablesInAFile)
{
    waits = 4 * 3 * 2;
    for (const AbsurdTable &row : absurdTables) {
        Stream("a.H").table("v", row.nCols, row.nRows).i({ 1, 2 }, { 2 });
        refuseSkips(openHdf("a.H"), row.text);
    }
}

/* The reads of a table "v" that caller and file agree on. */
static void refuseTable(iopHd *fh, int n1, int n2, const std::string &text)
{
    static int ints[4];
    static double reals[4];
    const int idx[] = { 1, 0 };
    checkFails(text, iopGetKeyInts(fh, "v", n1, n2, ints));
    iopRewind(fh);
    checkFails(text, iopGetKeyReals(fh, "v", n1, n2, reals));
    iopRewind(fh);
    checkFails(text, iopGetOptKeyInts(fh, "v", n1, n2, ints));
    iopRewind(fh);
    checkFails(text, iopGetRealsIndexed(fh, "v", n1, n2, idx, reals));
    iopRewind(fh);
    checkFails(text, iopAddRealsIndexed(fh, "v", n1, n2, idx, reals));
    iopCloseFile(fh);
}

static const struct { int n1, n2; } tooBig[] = {
    { -1, 5 }, { 5, -1 }, { -1, -1 }, { INT_MAX, INT_MAX }, { 65536, 65536 }, { 3, 1431655766 }, { INT_MIN, 2 },
};

static std::string invalidTable(int n1, int n2)
{
    return "invalid table of <" + std::to_string(n1) + "> x <" + std::to_string(n2) + "> values; ";
}

TEST(iopKeyed, absurdTablesThatCallerAndFileAgreeOn)
{
    forEachForm(form) {
        for (const auto &row : tooBig) {
            TokenBytes(form).table("v", row.n1, row.n2).i(1).i(2).write();
            refuseTable(openTokens(form), row.n1, row.n2, invalidTable(row.n1, row.n2) + info(form, 3, "v"));
        }
    }
}

TEST_F(iopKeyedHdf, absurdTablesThatCallerAndFileAgreeOn)
{
    for (const auto &row : tooBig) {
        Stream("a.H").table("v", row.n1, row.n2).i({ 1, 2 }, { 2 });
        refuseTable(openHdf("a.H"), row.n1, row.n2,
                    invalidTable(row.n1, row.n2) + "in hdf file <a> token <3> near <v>");
    }
}

static const struct { int n1, n2, first, last; const char *text; } absurdParts[] = {
    { -1, 5, 0, 2,                         "invalid table of <-1> x <2> values; in "          },
    { 5, -1, 0, 2,                         "Inappropriate sub index range <0>-<2> for dim2 <-1>" },
    { INT_MAX, INT_MAX, 0, INT_MAX,        "invalid table of <2147483647> x <2147483647> values; in " },
    { INT_MAX, INT_MAX, INT_MAX - 1, INT_MAX, "EOF in "                                       },
    { 1, INT_MAX, 0, 1,                    "EOF in "                                          },
    { 65536, 65536, 65535, 65536,          "EOF in "                                          },
};

static void refusePart(iopHd *fh, int n1, int n2, int first, int last, const char *text)
{
    static int ints[4];
    static double reals[4];
    checkFails(text, iopReadSubInts(fh, "v", n1, n2, first, last, ints));
    iopRewind(fh);
    checkFails(text, iopReadSubReals(fh, "v", n1, n2, first, last, reals));
    iopCloseFile(fh);
}

TEST(iopKeyed, absurdPartsOfTables)
{
    forEachForm(form) {
        for (const auto &row : absurdParts) {
            TokenBytes(form).table("v", row.n1, row.n2).i(1).i(2).write();
            refusePart(openTokens(form), row.n1, row.n2, row.first, row.last, row.text);
        }
    }
}

TEST_F(iopKeyedHdf, absurdPartsOfTables)
{
    waits = 3 * 2 * 2;
    for (const auto &row : absurdParts) {
        Stream("a.H").table("v", row.n1, row.n2).i({ 1, 2 }, { 2 });
        refusePart(openHdf("a.H"), row.n1, row.n2, row.first, row.last, row.text);
    }
}
