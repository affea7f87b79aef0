/* testSysUtil.cpp: the loops over arrays. */

#include <algorithm>
#include <random>
#include <vector>

#include "test/testUtil.h"

typedef std::vector<int> ints;

static ints randomInts(int n, int below)
{
    static std::mt19937 generator(4711);
    ints v(n);
    for (int &i : v) i = (int) (generator() % (unsigned) below) - below / 2;
    return v;
}

TEST(sysUtil, sortInts)
{
    for (int n : { 0, 1, 2, 3, 17, 5000 }) {
        ints v = randomInts(n, 100), sorted = v;
        std::stable_sort(sorted.begin(), sorted.end());
        sysSortInts(v.data(), n);
        EXPECT_EQ(v, sorted);
    }
    ints two = { 2, 1 };
    sysSortInts(two.data(), 2);
    EXPECT_EQ(two, (ints{ 1, 2 }));
    ints limits = { INT32_MAX, 0, INT32_MIN, -1 };
    sysSortInts(limits.data(), 4);
    EXPECT_EQ(limits, (ints{ INT32_MIN, -1, 0, INT32_MAX }));
}

TEST(sysUtil, sortUniqueInts)
{
    ints v = { 3, 1, 3 };
    EXPECT_EQ(sysSortUniqueInts(v.data(), 3), 2);
    EXPECT_EQ(ints(v.begin(), v.begin() + 2), (ints{ 1, 3 }));
    v = { 7, 7, 7, 7 };
    EXPECT_EQ(sysSortUniqueInts(v.data(), 4), 1);
    EXPECT_EQ(v[0], 7);
    EXPECT_EQ(sysSortUniqueInts(v.data(), 1), 1);
    EXPECT_EQ(sysSortUniqueInts(v.data(), 0), 0);
    EXPECT_EQ(sysSortUniqueInts(nullptr, -1), 0);
}

/* For every length of tuple: as the vectors sort. */
TEST(sysUtil, sortTuples)
{
    for (int k = 1; k <= 7; ++k) {
        SCOPED_TRACE(k);
        const int n = 400;
        ints v = randomInts(n * k, 4);               /* few values, so that later integers decide */
        std::vector<ints> tuples;
        for (int i = 0; i < n; ++i) tuples.emplace_back(v.begin() + i * k, v.begin() + (i + 1) * k);
        std::sort(tuples.begin(), tuples.end());
        sysSortTuples(v.data(), n, k);
        for (int i = 0; i < n; ++i) ASSERT_EQ(ints(v.begin() + i * k, v.begin() + (i + 1) * k), tuples[i]) << i;
    }
}

TEST(sysUtil, sortTuplesOfTheLargestIntegers)
{
    for (int k : { 1, 2, 3, 4, 5, 9 }) {
        SCOPED_TRACE(k);
        ints v(3 * k, 7), sorted = v;
        const int last = k - 1;
        v[last] = sorted[2 * k + last] = INT32_MAX;
        v[k + last] = sorted[last] = INT32_MIN;
        v[2 * k + last] = sorted[k + last] = -1;
        sysSortTuples(v.data(), 3, k);
        EXPECT_EQ(v, sorted);
    }
}

TEST(sysUtil, sortTuplesOfNothing)
{
    ints v = { 2, 1 };
    sysSortTuples(v.data(), 0, 2);
    sysSortTuples(v.data(), -1, 2);
    sysSortTuples(v.data(), 2, 0);
    sysSortTuples(v.data(), 2, -1);
    EXPECT_EQ(v, (ints{ 2, 1 }));
}

TEST(sysUtil, copiesMayOverlap)
{
    double up[5] = { 1, 2, 3, 4, 5 }, down[5] = { 1, 2, 3, 4, 5 };
    int ints[5] = { 1, 2, 3, 4, 5 };
    sysCopyReals(up, up + 1, 4);
    sysCopyReals(down + 1, down, 4);
    sysCopyInts(ints, ints + 1, 4);
    EXPECT_EQ(std::vector<double>(up, up + 5), (std::vector<double>{ 1, 1, 2, 3, 4 }));
    EXPECT_EQ(std::vector<double>(down, down + 5), (std::vector<double>{ 2, 3, 4, 5, 5 }));
    EXPECT_EQ(std::vector<int>(ints, ints + 5), (std::vector<int>{ 1, 1, 2, 3, 4 }));
}

TEST(sysUtil, fillingAndCopying)
{
    double reals[4] = { 1, 2, 3, 4 }, realCopy[4] = {};
    int    v[4] = { 1, 2, 3, 4 }, copy[4] = {};
    sysZeroReals(reals, 2);
    sysFillReals(reals + 2, 1, 2.5);
    EXPECT_EQ(std::vector<double>(reals, reals + 4), (std::vector<double>{ 0, 0, 2.5, 4 }));
    sysCopyReals(reals, realCopy, 3);
    EXPECT_EQ(std::vector<double>(realCopy, realCopy + 4), (std::vector<double>{ 0, 0, 2.5, 0 }));
    sysZeroInts(v, 2);
    sysFillInts(v + 2, 1, -9);
    EXPECT_EQ(ints(v, v + 4), (ints{ 0, 0, -9, 4 }));
    sysCopyInts(v, copy, 3);
    EXPECT_EQ(ints(copy, copy + 4), (ints{ 0, 0, -9, 0 }));
    sysIotaInts(v, 3);
    EXPECT_EQ(ints(v, v + 4), (ints{ 0, 1, 2, 4 }));
    sysAddInt(v, 3, -5);
    EXPECT_EQ(ints(v, v + 4), (ints{ -5, -4, -3, 4 }));
}

TEST(sysUtil, countsBelowOneDoNothing)
{
    for (int n : { 0, -1, INT32_MIN }) {
        double real = 7, otherReal = 8;
        int    v = 7, other = 8;
        sysSortInts(&v, n);
        sysZeroReals(&real, n);
        sysZeroInts(&v, n);
        sysFillReals(&real, n, 1.0);
        sysFillInts(&v, n, 1);
        sysIotaInts(&v, n);
        sysCopyReals(&otherReal, &real, n);
        sysCopyInts(&other, &v, n);
        sysAddInt(&v, n, 1);
        EXPECT_EQ(sysSumInts(&v, n), 0);
        EXPECT_EQ(v, 7);
        EXPECT_EQ(real, 7.0);
    }
}

TEST(sysUtil, aSumBeyondAnIntegerWrapsAround)
{
    int v[] = { INT32_MAX, INT32_MIN, 3 };
    sysAddInt(v, 3, 1);
    EXPECT_EQ(ints(v, v + 3), (ints{ INT32_MIN, INT32_MIN + 1, 4 }));
    sysAddInt(v, 1, -1);
    EXPECT_EQ(v[0], INT32_MAX);
}

TEST(sysUtil, sums)
{
    const int v[] = { 5, -2, 4 };
    EXPECT_EQ(sysSumInts(v, 3), 7);
    const int big[] = { INT32_MAX, 1, -1 };
    EXPECT_EQ(sysSumInts(big, 3), INT32_MAX);       /* only the result must fit */
    checkFails("sum <2147483648> exceeds an integer", sysSumInts(big, 2));
    const int low[] = { INT32_MIN, -1, 1 };
    EXPECT_EQ(sysSumInts(low, 3), INT32_MIN);
    checkFails("sum <-2147483649> exceeds an integer", sysSumInts(low, 2));
}

TEST(sysUtil, binFind)
{
    static const int keys[] = { 2, 4, 6 };
    static const struct { int n, value, pos, flag; } rows[] = {
        { 3, 2, 0, 0 }, { 3, 4, 1, 0 }, { 3, 6, 2, 0 },
        { 3, 5, 1, 1 },                         /* the last not above it */
        { 3, 1, 0, 1 },                         /* below the first       */
        { 3, 9, 2, 1 }, { 1, 9, 0, 1 }, { 1, 2, 0, 0 },
        { 0, 4, 0, 1 }, { -1, 4, 0, 1 },
    };
    for (const auto &row : rows) {
        int flag = -1;
        EXPECT_EQ(sysBinFind(keys, row.n, 1, row.value, &flag), row.pos) << row.n << " " << row.value;
        EXPECT_EQ(flag, row.flag) << row.n << " " << row.value;
    }
}

TEST(sysUtil, binFindWithAStride)
{
    static const int pairs[] = { 10, 99, 20, 15, 30, 0 };
    int flag = -1;
    EXPECT_EQ(sysBinFind(pairs, 3, 2, 30, &flag), 2);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(sysBinFind(pairs, 3, 2, 15, &flag), 0);
    EXPECT_EQ(flag, 1);
}
