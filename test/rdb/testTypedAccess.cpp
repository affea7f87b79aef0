/* testTypedAccess.cpp: the checks that stand between a request and its answer, in their order and with their texts. */

#include "test/rdb/smallRun.h"

#include <limits.h>

#include <cmath>

class rdbTyped : public ::testing::Test {
protected:
    enum { N = 5 };                                  /* nodes of the small run */
    SmallRun small;
    rdbHd *hd = nullptr;
    int    ints[64];
    double reals[64];
    char   text[RDB_TEXT];

    void SetUp() override
    {
        small.steps = { 5, 8 };
        hd = small.writeAndOpen();
        ASSERT_NE(hd, nullptr);
        for (int &i : ints) i = -77;
        for (double &r : reals) r = -77;
    }
    void TearDown() override { if (hd) rdbFree(hd); }
};

/* -------------------------------------------------------------------------------------------- every typed operation */

/* The 28 operations, each on a key of its type and number of indices where there is one. A wrong digit is refused with
   both numbers, whatever the indices are. */
TEST_F(rdbTyped, theDigitIsTheNumberOfIndices)
{
    checkAnswers(rdbGetStr0(hd, "problem", text));
    EXPECT_STREQ(text, "p");
    checkRefused("problem requires 0 indices not 1", rdbGetStr1(hd, "problem", text, 0));
    checkRefused("problem requires 0 indices not 2", rdbGetStr2(hd, "problem", text, 0, 0));
    checkRefused("problem requires 0 indices not 3", rdbGetStr3(hd, "problem", text, 0, 0, 0));
    checkAnswers(rdbGetStr1(hd, "elmName", text, 2));
    EXPECT_STREQ(text, "e2");
    checkRefused("elmName requires 1 indices not 0", rdbGetStr0(hd, "elmName", text));

    checkAnswers(rdbGetInt0(hd, "nNodes", ints));
    EXPECT_EQ(ints[0], N);
    checkRefused("nNodes requires 0 indices not 1", rdbGetInt1(hd, "nNodes", ints, 0));
    checkRefused("nNodes requires 0 indices not 2", rdbGetInt2(hd, "nNodes", ints, 0, 0));
    checkRefused("nNodes requires 0 indices not 3", rdbGetInt3(hd, "nNodes", ints, 0, 0, 0));
    checkAnswers(rdbGetInt1(hd, "elmRffId", ints, 0));
    EXPECT_EQ(ints[0], 7);
    checkRefused("elmRffId requires 1 indices not 0", rdbGetInt0(hd, "elmRffId", ints));

    checkAnswers(rdbGetReal1(hd, "outTime", reals, 1));
    EXPECT_EQ(reals[0], SmallRun::time(8));
    checkRefused("outTime requires 1 indices not 0", rdbGetReal0(hd, "outTime", reals));
    checkRefused("outTime requires 1 indices not 2", rdbGetReal2(hd, "outTime", reals, 0, 0));
    checkRefused("outTime requires 1 indices not 3", rdbGetReal3(hd, "outTime", reals, 0, 0, 0));
    checkAnswers(rdbGetReal0(hd, "pmcGamma", reals));
    EXPECT_EQ(reals[0], 0);

    checkAnswers(rdbGetInts0(hd, "outSteps", ints, 2, -1));
    EXPECT_EQ(ints[0], 5);
    EXPECT_EQ(ints[1], 8);
    checkRefused("outSteps requires 0 indices not 1", rdbGetInts1(hd, "outSteps", ints, 0, 2, -1));
    checkRefused("outSteps requires 0 indices not 2", rdbGetInts2(hd, "outSteps", ints, 0, 0, 2, -1));
    checkRefused("outSteps requires 0 indices not 3", rdbGetInts3(hd, "outSteps", ints, 0, 0, 0, 2, -1));
    checkAnswers(rdbGetInts1(hd, "elmVolIds", ints, 2, 1, -1));
    EXPECT_EQ(ints[0], 2);

    checkAnswers(rdbGetReals0(hd, "outTimes", reals, 2, -1));
    EXPECT_EQ(reals[1], SmallRun::time(8));
    checkRefused("outTimes requires 0 indices not 1", rdbGetReals1(hd, "outTimes", reals, 0, 2, -1));
    checkAnswers(rdbGetReals2(hd, "outValues", reals, 0, 1, 3, N));
    for (int node = 0; node < N; ++node)
        for (int k = 0; k < 3; ++k) EXPECT_EQ(reals[3 * node + k], SmallRun::value(8, 0, node, k));
    checkRefused("outValues requires 2 indices not 3", rdbGetReals3(hd, "outValues", reals, 0, 1, 0, 3, N));
    checkRefused("outValues requires 2 indices not 0", rdbGetReals0(hd, "outValues", reals, 3, N));
}

/* No key has a float type: not even a real one is given as floats. */
TEST_F(rdbTyped, floatsAlwaysFail)
{
    float f[64];
    checkRefused("pmcGamma has type 4 not 6", rdbGetFloat0(hd, "pmcGamma", f));
    checkRefused("outTime has type 4 not 6", rdbGetFloat1(hd, "outTime", f, 0));
    checkRefused("nNodes has type 2 not 6", rdbGetFloat2(hd, "nNodes", f, 0, 0));
    checkRefused("problem has type 1 not 6", rdbGetFloat3(hd, "problem", f, 0, 0, 0));
    checkRefused("crd has type 5 not 7", rdbGetFloats0(hd, "crd", f, 3, N));
    checkRefused("elmCnn has type 3 not 7", rdbGetFloats1(hd, "elmCnn", f, 0, 4, 2));
    checkRefused("outValues has type 5 not 7", rdbGetFloats2(hd, "outValues", f, 0, 0, 3, N));
    checkRefused("crd has type 5 not 7", rdbGetFloats3(hd, "crd", f, 0, 0, 0, 3, N));
}

TEST_F(rdbTyped, wrongTypesAreTold)
{
    checkRefused("nNodes has type 2 not 1", rdbGetStr0(hd, "nNodes", text));
    checkRefused("problem has type 1 not 2", rdbGetInt0(hd, "problem", ints));
    checkRefused("usrIds has type 3 not 5", rdbGetReals0(hd, "usrIds", reals, N, -1));
    checkRefused("crd has type 5 not 3", rdbGetInts0(hd, "crd", ints, 3, N));
    checkRefused("outTime has type 4 not 2", rdbGetInt1(hd, "outTime", ints, 0));
    checkRefused("nNodes has type 2 not -2147483648",
                 rdbGetData(hd, nullptr, "nNodes", ints, INT_MIN, 0, -1, -1, -1, -1, -1));
}

/* ---------------------------------------------------------------------------------------------- order of the checks */

TEST_F(rdbTyped, handleThatIsNoneIsRefused)
{
    int foreign[100] = { 1, 2, 3 };
    rdbHd *none = (rdbHd *) foreign;
    for (rdbHd *h : { (rdbHd *) nullptr, none }) {
        checkRefused("rdb not initialized", rdbGetData(h, nullptr, "nNodes", ints, RDB_INT, 0, -1, -1, -1, -1, -1));
        checkRefused("rdb not initialized", rdbGetInt0(h, "nNodes", ints));
        checkRefused("rdb not initialized", rdbGetStr1(h, "noSuchKey", text, 0));
        checkRefused("rdb not initialized", rdbGetReals0(h, "crd", reals, 3, N));
    }
    checkRefused("rdb not initialized", rdbGetDims(nullptr, "crd", 0, -1, -1, -1, &ints[0], &ints[1]));
}

/* Each request is wrong in what its text says and in all that would be tested later. */
TEST_F(rdbTyped, checksComeInOrder)
{
    checkRefused("noSuchKey not found", rdbGetInts1(hd, "noSuchKey", ints, 99, 0, -1));
    rdbCloseRun(hd);
    checkRefused("run not opened", rdbGetInts1(hd, "outValues", ints, 99, 1, -1));
    checkAnswers(rdbOpenRun(hd, 1));
    checkRefused("outValues has type 5 not 3", rdbGetInts1(hd, "outValues", ints, 99, 1, -1));
    checkRefused("outValues requires 2 indices not 1", rdbGetReals1(hd, "outValues", reals, 99, 1, -1));
    checkRefused("index1 (99) is out of range [0,2]", rdbGetReals2(hd, "outValues", reals, 99, 99, 1, -1));
    checkRefused("index2 (99) is out of range [0,1]", rdbGetReals2(hd, "outValues", reals, 0, 99, 1, -1));
    checkRefused("invalid dimension specification", rdbGetReals2(hd, "outValues", reals, 0, 0, 1, -1));
    checkRefused("outValues requires dimension of 3x5 not 1x1", rdbGetReals2(hd, "outValues", reals, 0, 0, 1, 1));
    for (double r : reals) EXPECT_EQ(r, -77);
}

TEST_F(rdbTyped, keysOfForeignTextAreShownAsTheyCame)
{
    checkRefused("%n%s%d not found", rdbGetInt0(hd, "%n%s%d", ints));
    const std::string large(20000, 'k');
    checkReturns(EXPECT_EQ(rdbGetInt0(hd, large.c_str(), ints), 0));
    EXPECT_EQ(rdbGetError(), std::string(8703, 'k'));
}

/* ---------------------------------------------------------------------------------------------------------- indices */

TEST_F(rdbTyped, indicesOutOfRange)
{
    checkRefused("index1 (3) is out of range [0,2]", rdbGetStr1(hd, "elmName", text, 3));
    checkRefused("index1 (-1) is out of range [0,2]", rdbGetStr1(hd, "elmName", text, -1));
    checkRefused("index1 (2147483647) is out of range [0,2]", rdbGetStr1(hd, "elmName", text, INT_MAX));
    checkRefused("index2 (-1) is out of range [0,1]", rdbGetReals2(hd, "outValues", reals, 0, -1, -1, -1));
    checkRefused("index2 (2) is out of range [0,1]", rdbGetReals2(hd, "outValues", reals, 0, 2, -1, -1));
}

TEST_F(rdbTyped, ofNothingThereIsNoIndex)
{
    checkRefused("index1 (0) is out of range [0,-1]", rdbGetStr1(hd, "cbcName", text, 0));
    checkRefused("index1 (0) is out of range [0,-1]", rdbGetStr1(hd, "auxFileName", text, 0));
}

/* -1 is how the library asks itself: the number of indices is not tested, their range is. */
TEST_F(rdbTyped, unstatedNumberOfIndices)
{
    checkAnswers(rdbGetData(hd, nullptr, "elmRffId", ints, RDB_INT, -1, 1, -1, -1, -1, -1));
    EXPECT_EQ(ints[0], 7);
    checkRefused("index1 (-1) is out of range [0,2]",
                 rdbGetData(hd, nullptr, "elmRffId", ints, RDB_INT, -1, -1, -1, -1, -1, -1));
}

/* A row asks for what counts it: its own indices are handed on by the name of the key that counts them. */
TEST_F(rdbTyped, indicesAreHandedOnByName)
{
    const rdbKeyRow *values = rdbFindKey("outValues");
    checkAnswers(rdbGetData(hd, values, "outVarDim", ints, RDB_INT, -1, 0, 1, -1, -1, -1));
    EXPECT_EQ(ints[0], 3);
    checkAnswers(rdbGetData(hd, values, "outStep", ints, RDB_INT, -1, 0, 1, -1, -1, -1));       /* the second of two */
    EXPECT_EQ(ints[0], 8);
    checkAnswers(rdbGetData(hd, values, "nNodes", ints, RDB_INT, -1, 0, 1, -1, -1, -1));        /* none of them */
    EXPECT_EQ(ints[0], N);
    checkRefused("index mismatch between elmName and outValues",
                 rdbGetData(hd, values, "elmName", text, RDB_STR, -1, 0, 0, -1, -1, -1));
    checkRefused("index mismatch between elmName and crd",
                 rdbGetData(hd, rdbFindKey("crd"), "elmName", text, RDB_STR, -1, 0, 0, -1, -1, -1));
}

/* --------------------------------------------------------------------------------------------------------- capacity */

TEST_F(rdbTyped, unstatedCapacityIsNotTested)
{
    checkAnswers(rdbGetInts0(hd, "usrIds", ints, -1, -1));
    for (int i = 0; i < N; ++i) EXPECT_EQ(ints[i], small.usrIds[i]);
    EXPECT_EQ(ints[N], -77);
    checkAnswers(rdbGetReals0(hd, "crd", reals, -1, -1));
    EXPECT_EQ(reals[4], SmallRun::crd(1, 1));
}

TEST_F(rdbTyped, twoSizesInEitherOrderAndLargerOnesFit)
{
    static const int sizes[][2] = { { 3, N }, { N, 3 }, { 1, 15 }, { 4, N }, { 3, 21 }, { INT_MAX, INT_MAX } };
    for (const auto &d : sizes) {
        SCOPED_TRACE(d[0]);
        reals[0] = reals[14] = reals[15] = -77;
        checkAnswers(rdbGetReals0(hd, "crd", reals, d[0], d[1]));
        EXPECT_EQ(reals[0], SmallRun::crd(0, 0));
        EXPECT_EQ(reals[14], SmallRun::crd(4, 2));
        EXPECT_EQ(reals[15], -77);
    }
}

TEST_F(rdbTyped, tooSmallBuffers)
{
    checkRefused("crd requires dimension of 3x5 not 3x4", rdbGetReals0(hd, "crd", reals, 3, N - 1));
    checkRefused("crd requires dimension of 3x5 not 4x3", rdbGetReals0(hd, "crd", reals, N - 1, 3));
    checkRefused("crd requires dimension of 3x5 not -3x5", rdbGetReals0(hd, "crd", reals, -3, 5));
    checkRefused("crd requires dimension of 3x5 not -3x-5", rdbGetReals0(hd, "crd", reals, -3, -5));
    checkRefused("usrIds requires dimension of 5 not 4", rdbGetInts0(hd, "usrIds", ints, N - 1, -1));
    checkRefused("usrIds requires dimension of 5 not -2", rdbGetInts0(hd, "usrIds", ints, -2, -1));
    checkRefused("elmCnn requires dimension of 4x2 not 7x1", rdbGetInts1(hd, "elmCnn", ints, 0, 7, 1));
    EXPECT_EQ(ints[0], -77);
    EXPECT_EQ(reals[0], -77);
}

/* A count may come from a file, and be anything. */
TEST_F(rdbTyped, countsBelowZeroLeaveNoIndex)
{
    static const struct { int count; const char *text; } rows[] = {
        { 0,           "index1 (0) is out of range [0,-1]" },
        { -7,          "index1 (0) is out of range [0,-8]" },
        { INT_MIN + 1, "index1 (0) is out of range [0,-2147483648]" },
        { INT_MIN,     "index1 (0) is out of range [0,-2147483648]" },
    };
    checkAnswers(rdbGetInt0(hd, "nSpecies", ints));          /* asks the output files, once */
    for (const auto &row : rows) {
        SCOPED_TRACE(row.count);
        hd->run->nSpecs = row.count;
        checkRefused(row.text, rdbGetStr1(hd, "speciesName", text, 0));
    }
}

TEST_F(rdbTyped, oneOfTwoSizes)
{
    checkRefused("invalid dimension specification", rdbGetReals0(hd, "crd", reals, 3, -1));
    checkRefused("invalid dimension specification", rdbGetReals0(hd, "crd", reals, -1, N));
    checkRefused("invalid dimension specification", rdbGetInts1(hd, "elmCnn", ints, 0, 4, -1));
}

TEST_F(rdbTyped, secondSizeOfOneDimensionIsNotLookedAt)
{
    checkAnswers(rdbGetInts0(hd, "usrIds", ints, N, 0));
    EXPECT_EQ(ints[N - 1], 21);
    checkAnswers(rdbGetInts0(hd, "usrIds", ints, -1, 1));
}

TEST_F(rdbTyped, noCapacityReadsNothing)
{
    checkAnswers(rdbGetInts0(hd, "usrIds", ints, 0, -1));
    checkAnswers(rdbGetReals0(hd, "crd", reals, 0, N));
    checkAnswers(rdbGetReals0(hd, "crd", reals, 3, 0));
    checkAnswers(rdbGetReals2(hd, "outValues", nullptr, 0, 0, 0, 0));
    checkRefused("index1 (9) is out of range [0,2]", rdbGetReals2(hd, "outValues", reals, 9, 0, 0, 0));
    EXPECT_EQ(ints[0], -77);
    EXPECT_EQ(reals[0], -77);
}

/* -------------------------------------------------------------------------------------------------- types and sizes */

TEST_F(rdbTyped, typesByCode)
{
    static const struct { const char *key; int type; } rows[] = {
        { "problem", 1 }, { "nNodes", 2 }, { "usrIds", 3 }, { "outTime", 4 }, { "crd", 5 },
    };
    for (const auto &row : rows) {
        int type = 0;
        checkAnswers(rdbGetType(hd, row.key, &type));
        EXPECT_EQ(type, row.type) << row.key;
    }
}

TEST_F(rdbTyped, sizesOfArrays)
{
    int d1 = 77, d2 = 77;
    checkAnswers(rdbGetDims(hd, "crd", 0, -1, -1, -1, &d1, &d2));
    EXPECT_EQ(d1, 3);
    EXPECT_EQ(d2, N);
    checkAnswers(rdbGetDims(hd, "usrIds", 0, -1, -1, -1, &d1, &d2));
    EXPECT_EQ(d1, N);
    EXPECT_EQ(d2, -1);
    checkAnswers(rdbGetDims(hd, "nNodes", 0, -1, -1, -1, &d1, &d2));
    EXPECT_EQ(d1, -1);
    EXPECT_EQ(d2, -1);
    checkAnswers(rdbGetDims(hd, "elmCnn", 1, 2, -1, -1, &d1, &d2));
    EXPECT_EQ(d1, 4);
    EXPECT_EQ(d2, 1);
    checkAnswers(rdbGetDims(hd, "outValues", 99, 0, 1, -1, &d1, &d2));      /* the number of indices does not count */
    EXPECT_EQ(d1, 3);
    EXPECT_EQ(d2, N);
    checkRefused("noSuchKey not found", rdbGetDims(hd, "noSuchKey", 0, -1, -1, -1, &d1, &d2));
    d1 = d2 = 77;
    checkRefused("index1 (3) is out of range [0,2]", rdbGetDims(hd, "elmCnn", 1, 3, -1, -1, &d1, &d2));
    EXPECT_EQ(d1, -1);
    EXPECT_EQ(d2, 77);                               /* the second size waits for the first */
    rdbCloseRun(hd);
    d1 = d2 = 77;
    checkRefused("run not opened", rdbGetDims(hd, "usrIds", 0, -1, -1, -1, &d1, &d2));
    EXPECT_EQ(d1, -1);
    EXPECT_EQ(d2, 77);
    checkRefused("run not opened", rdbGetDims(hd, "crd", 0, -1, -1, -1, &d1, &d2));      /* its first needs no run */
    EXPECT_EQ(d1, 3);
    EXPECT_EQ(d2, -1);
}

/* A failed request changes nothing but the text, and a good one leaves the text. */
TEST_F(rdbTyped, failuresLeaveAllUsable)
{
    checkRefused("index1 (3) is out of range [0,2]", rdbGetStr1(hd, "elmName", text, 3));
    checkAnswers(rdbGetStr1(hd, "elmName", text, 1));
    EXPECT_STREQ(text, "e1");
    EXPECT_STREQ(rdbGetError(), "index1 (3) is out of range [0,2]");
}

/* A text of the run may be longer than any buffer. */
TEST(rdbTypedText, longTextsAreCutToTheBuffer)
{
    SmallRun small;
    small.extraCli = "#@ TITLE \"" + std::string(20000, 't') + "\"\n";
    rdbHd *hd = small.writeAndOpen();
    ASSERT_NE(hd, nullptr);
    std::vector<char> text(RDB_TEXT + 1, '#');
    checkAnswers(rdbGetStr0(hd, "title", text.data()));
    EXPECT_EQ(text.data(), std::string(8191, 't'));
    EXPECT_EQ(text[RDB_TEXT], '#');
    rdbFree(hd);
}
