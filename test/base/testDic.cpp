/* testDic.cpp: text keys to 64-bit values. */

#include <climits>
#include <cstring>
#include <map>
#include <random>

#include "base/dic.h"
#include "test/testUtil.h"

static int entriesIn(const dic *d, int bucket)
{
    int n = 0;
    for (const dicEntry *e = d->table[bucket]; e; e = e->next) ++n;
    return n;
}

static int entriesOf(const dic *d)
{
    int n = 0;
    for (int i = 0; i < d->size; ++i) n += entriesIn(d, i);
    return n;
}

TEST(dic, takesTheFirstSizeNotBelowTheWantedOne)
{
    static const struct { int wanted, size; } cases[] = {
        { INT_MIN, 61 },  { -1, 61 },    { 0, 61 },     { 1, 61 },         { 61, 61 },           { 62, 127 },
        { 127, 127 },     { 128, 251 },  { 252, 509 },  { 5987, 5987 },    { 5988, 9551 },       { 19610, 31397 },
        { 31398, 65521 }, { 65522, 131071 },            { 1048574, 2097143 }
    };
    for (const auto &c : cases) {
        dic *d = dicNew(c.wanted);
        EXPECT_EQ(d->size, c.size) << "wanted " << c.wanted;
        dicFree(d);
    }
}

TEST(dic, allSizes)
{
    static const int sizes[] = {
        3,      7,      13,      31,      61,      127,      251,      509,       1021,      2017,      4093,
        5987,   9551,   15683,   19609,   31397,   65521,    131071,   262139,    524287,    1048573,   2097143,
        4194301, 8388593, 16777213, 33554393, 67108859, 134217689, 268435399, 536870909, 1073741789
    };
    int before = INT_MIN;
    for (int size : sizes) {
        EXPECT_EQ(dicBuckets(before), size);
        EXPECT_EQ(dicBuckets(size), size);
        before = size + 1;
    }
    EXPECT_EQ(dicBuckets(before), 0);
    EXPECT_EQ(dicBuckets(INT_MAX), 0);
}

TEST(dic, aSizeBeyondTheTableFails)
{
    checkFails("dic dimension of <1073741790> is too large", dicNew(1073741790));
    checkFails("dic dimension of <2147483647> is too large", dicNew(INT_MAX));
    checkFails("Function <dicNew>", dicNew(INT_MAX));
}

TEST(dic, startsEmptyWithItsCursorsBeforeTheFirstEntry)
{
    dic *d = dicNew(0);
    EXPECT_EQ(entriesOf(d), 0);
    EXPECT_EQ(d->pool->itemSize, 40);
    EXPECT_EQ(d->pool->blockSize, 0xffc);
    for (const dicCursor &c : d->cursors) {
        EXPECT_EQ(c.slot, -1);
        EXPECT_EQ(c.entry, 0);
        EXPECT_EQ(c.count, 0);
    }
    dicFree(d);
    dicFree(nullptr);
}

TEST(dic, aSecondPutReplacesTheValueAndAddsNoEntry)
{
    dic *d = dicNew(0);
    EXPECT_EQ(dicPut(d, "case.1.out", 7), 7);
    EXPECT_EQ(dicGet(d, "case.1.out"), 7);
    EXPECT_EQ(dicPut(d, "case.1.out", INT64_MIN), INT64_MIN);
    EXPECT_EQ(dicGet(d, "case.1.out"), INT64_MIN);
    EXPECT_EQ(entriesOf(d), 1);
    dicFree(d);
}

TEST(dic, anAbsentKeyAndAStoredZeroLookAlike)
{
    dic *d = dicNew(0);
    EXPECT_EQ(dicGet(d, "a"), 0);
    EXPECT_EQ(dicPut(d, "a", 0), 0);
    EXPECT_EQ(dicGet(d, "a"), 0);
    EXPECT_EQ(entriesOf(d), 1);
    dicFree(d);
}

/* The keys share a bucket: only comparing them tells them apart. */
TEST(dic, keysAreComparedExactly)
{
    static const char lower[] = "-a--a--a--a--a---a", upper[] = "-A--A--A--A--A---A";
    dic *d = dicNew(0);
    dicPut(d, lower, 1);
    EXPECT_EQ(dicGet(d, upper), 0);
    dicPut(d, upper, 2);
    int both = 0;
    for (int i = 0; i < d->size; ++i) both += entriesIn(d, i) == 2;
    EXPECT_EQ(both, 1);
    EXPECT_EQ(dicGet(d, lower), 1);
    EXPECT_EQ(dicGet(d, upper), 2);
    EXPECT_EQ(dicGet(d, "-a--a--a--a--a---"), 0);
    EXPECT_EQ(dicGet(d, "-a--a--a--a--a---a "), 0);
    dicFree(d);
}

TEST(dic, onlyLiveEntriesHoldTheirKey)
{
    dic *d = dicNew(0);
    dicPut(d, "a", 1);
    dicEntry *dead = d->table[0x61 % 61];
    dead->kind = 0;
    dicPut(d, "a", 2);
    EXPECT_EQ(entriesOf(d), 2);
    EXPECT_EQ(dead->value, 1);
    EXPECT_EQ(dicGet(d, "a"), 2);
    char *key = dead->key;
    dicFree(d);
    memFree(key);               /* it was left to us: the address sanitizer sees a second release */
}

TEST(dic, keepsItsOwnCopyOfAKey)
{
    dic *d = dicNew(0);
    char key[] = "first";
    dicPut(d, key, 1);
    strcpy(key, "other");
    EXPECT_EQ(dicGet(d, "first"), 1);
    EXPECT_EQ(dicGet(d, "other"), 0);
    dicFree(d);
}

TEST(dic, theEmptyTextHashesToBucketZero)
{
    dic *d = dicNew(0);
    dicPut(d, "", 5);
    EXPECT_EQ(entriesIn(d, 0), 1);
    EXPECT_EQ(dicGet(d, ""), 5);
    dicFree(d);
}

TEST(dic, theHashSumsGroupsOfThreeBytes)
{
    static const struct { const char *key; unsigned total; } cases[] = {
        { "a", 0x61 }, { "ab", 0x6162 }, { "abc", 0x616263 }, { "abcd", 0x616263 + 0x64 },
        { "abcdefgh", 0x616263 + 0x646566 + 0x6768 },         { "\xff\xfe\xfd\xfc", 0xfffefd + 0xfc }
    };
    for (const auto &c : cases) {
        dic *d = dicNew(0);
        dicPut(d, c.key, 1);
        EXPECT_EQ(entriesIn(d, (int) (c.total % 61)), 1) << c.key;
        dicFree(d);
    }
}

TEST(dic, keysOfOneBucketChainNewestFirst)
{
    dic *d = dicNew(0);
    dicPut(d, "abcdef", 1);
    dicPut(d, "defabc", 2);
    int bucket = (0x616263 + 0x646566) % 61;
    ASSERT_EQ(entriesIn(d, bucket), 2);
    EXPECT_STREQ(d->table[bucket]->key, "defabc");
    EXPECT_EQ(d->table[bucket]->kind, 1);
    EXPECT_EQ(dicGet(d, "abcdef"), 1);
    EXPECT_EQ(dicGet(d, "defabc"), 2);
    dicFree(d);
}

TEST(dic, aTableChosenTooSmallOnlyHasLongerChains)
{
    dic *d = dicNew(0);
    std::map<std::string, int64_t> model;
    std::mt19937 random(5);
    for (int i = 0; i < 5000; ++i) {
        std::string key = "case.1_" + std::to_string(random() % 4000) + "_x.out";
        model[key] = i;
        dicPut(d, key.c_str(), i);
    }
    EXPECT_EQ(d->size, 61);
    EXPECT_EQ(entriesOf(d), (int) model.size());
    for (const auto &m : model) ASSERT_EQ(dicGet(d, m.first.c_str()), m.second) << m.first;
    EXPECT_EQ(dicGet(d, "case.1_4000_x.out"), 0);
    dicFree(d);
}
