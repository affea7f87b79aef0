/* testMtxHash.cpp: user ids to positions, dense and hashed. */

#include <algorithm>
#include <climits>
#include <random>
#include <unordered_map>
#include <vector>

#include "base/mem.h"
#include "mtx/mtxHash.h"
#include "test/testUtil.h"

/* A hash with the keys it was made of, released at the end of a test. */
struct Hash {
    std::vector<int> keys;
    int             *data;
    explicit Hash(std::vector<int> k) : keys(std::move(k)), data(mtxNewInvHash(keys.data(), n())) {}
    Hash(const Hash &) = delete;
    ~Hash() { memFree(data); }
    int n() const { return (int) keys.size(); }
    int h() const { return (int) (n() * 1.5 + 1.0); }
    int mode() const { return data[2 * h()]; }
    int find(int key) const { return mtxInvHash(data, n(), key); }
    int findIf(int key, int *notFound) const { return mtxIfInvHash(data, n(), key, notFound); }
};

static int slotOf(int key, int h)
{
    unsigned k = (unsigned) key, a = (k >> 16 ^ k) * 0x3335B369u, b = (a >> 16 ^ a) * 0x3335B369u;
    return (int) ((b >> 16 ^ b) % (unsigned) h);
}

TEST(mtxHash, consecutiveKeysAreDenseAndTheirRangeIsNotTested)
{
    Hash hash({ 5, 6, 7 });
    EXPECT_EQ(hash.mode(), 0);
    EXPECT_EQ(hash.data[0], 5);
    EXPECT_EQ(hash.find(5), 0);
    EXPECT_EQ(hash.find(6), 1);
    EXPECT_EQ(hash.find(9), 4);
    EXPECT_EQ(hash.find(3), -2);
}

TEST(mtxHash, scatteredKeysAreHashed)
{
    Hash hash({ 5, 9, 7 });
    EXPECT_EQ(hash.mode(), 1);
    EXPECT_EQ(hash.find(5), 0);
    EXPECT_EQ(hash.find(9), 1);
    EXPECT_EQ(hash.find(7), 2);
}

TEST(mtxHash, descendingKeysAreHashed)
{
    Hash hash({ 7, 6, 5 });
    EXPECT_EQ(hash.mode(), 1);
    EXPECT_EQ(hash.find(6), 1);
    EXPECT_EQ(hash.find(5), 2);
}

TEST(mtxHash, oneKeyIsAlwaysDense)
{
    for (int key : { 0, 1, -1, 123456789, INT_MIN, INT_MAX }) {
        Hash hash({ key });
        EXPECT_EQ(hash.h(), 2);
        EXPECT_EQ(hash.mode(), 0);
        EXPECT_EQ(hash.find(key), 0);
    }
}

TEST(mtxHash, noKeysReadNoFirstKey)
{
    int *hash = mtxNewInvHash(nullptr, 0), notFound = -1;
    EXPECT_EQ(hash[0], 0);
    EXPECT_EQ(hash[2], 0);
    EXPECT_EQ(mtxInvHash(hash, 0, 3), 3);
    EXPECT_EQ(mtxIfInvHash(hash, 0, -3, &notFound), -3);
    EXPECT_EQ(notFound, 1);
    memFree(hash);
}

TEST(mtxHash, aNegativeNumberOfKeysFails)
{
    int key = 1;
    checkFails("Invalid number of keys <-1>", mtxNewInvHash(&key, -1));
    checkFails("Invalid number of keys <-2147483648>", mtxNewInvHash(&key, INT_MIN));
}

TEST(mtxHash, aKeyThatComesTwiceFails)
{
    const int twice[] = { 5, 9, 5 }, last[] = { 7, 7 };
    checkFails("Duplicate key <5>", mtxNewInvHash(twice, 3));
    checkFails("Function <mtxNewInvHash>", mtxNewInvHash(twice, 3));
    checkFails("Duplicate key <7>", mtxNewInvHash(last, 2));
}

TEST(mtxHash, theFirstRepetitionIsReported)
{
    std::vector<int> keys;
    for (int i = 0; i < 100; ++i) keys.push_back(10 * i);
    keys.push_back(500);
    keys.push_back(30);
    checkFails("Duplicate key <500>", mtxNewInvHash(keys.data(), (int) keys.size()));
}

TEST(mtxHash, aDoubledZeroIsNotReportedAndStandsForItsFirstPosition)
{
    Hash hash({ 4, 0, 8, 0 });
    EXPECT_EQ(hash.find(0), 1);
    EXPECT_EQ(hash.find(8), 2);
}

/* ids that were never given: in no time, and without crowding out the others */
TEST(mtxHash, mostKeysMayBeZero)
{
    const int n = 300000;
    std::vector<int> keys(n, 0);
    for (int i = n - 1000; i < n; ++i) keys[i] = i + 5;
    Hash hash(keys);
    int notFound = -1;
    EXPECT_EQ(hash.find(0), 0);
    for (int i = n - 1000; i < n; ++i) ASSERT_EQ(hash.find(i + 5), i);
    EXPECT_EQ(hash.findIf(7, &notFound), -1);
    EXPECT_EQ(notFound, 1);

    Hash nothingElse(std::vector<int>(n, 0));
    EXPECT_EQ(nothingElse.mode(), 1);
    EXPECT_EQ(nothingElse.find(0), 0);
}

TEST(mtxHash, anAbsentKeyOfAHashedListFails)
{
    Hash hash({ 5, 9, 7 });
    checkFails("Key <6> not found", hash.find(6));
    checkFails("Function <mtxInvHash>", hash.find(6));
    checkFails("Key <-2147483648> not found", hash.find(INT_MIN));
}

TEST(mtxHash, theAskingFormTellsAbsentKeys)
{
    int notFound = -1;
    Hash dense({ 5, 6, 7 }), hashed({ 5, 9, 7 });

    EXPECT_EQ(dense.findIf(6, &notFound), 1);
    EXPECT_EQ(notFound, 0);
    EXPECT_EQ(dense.findIf(3, &notFound), -2);
    EXPECT_EQ(notFound, 1);
    EXPECT_EQ(dense.findIf(9, &notFound), 4);           /* above the range: not noticed */
    EXPECT_EQ(notFound, 0);

    EXPECT_EQ(hashed.findIf(9, &notFound), 1);
    EXPECT_EQ(notFound, 0);
    EXPECT_EQ(hashed.findIf(6, &notFound), -1);
    EXPECT_EQ(notFound, 1);
}

TEST(mtxHash, aDenseDifferenceBeyondAnIntegerNeverFallsIntoTheRange)
{
    int notFound = -1;
    Hash low({ INT_MIN, INT_MIN + 1 }), high({ INT_MAX - 1, INT_MAX });

    EXPECT_EQ(low.mode(), 0);
    EXPECT_EQ(low.findIf(INT_MAX, &notFound), -1);
    EXPECT_EQ(notFound, 1);
    EXPECT_EQ(high.find(INT_MAX), 1);
    EXPECT_EQ(high.findIf(INT_MIN, &notFound), 2);
    EXPECT_EQ(notFound, 1);
}

TEST(mtxHash, theLastIntegerIsNotFollowedByTheFirst)
{
    Hash hash({ INT_MAX, INT_MIN });
    EXPECT_EQ(hash.mode(), 1);
    EXPECT_EQ(hash.find(INT_MIN), 1);
}

TEST(mtxHash, keyMinusOneMatchesAnEmptyFirstPair)
{
    /* the only kind of absent key that is not noticed; two keys that leave its slot empty */
    std::vector<int> keys;
    for (int k = 10; keys.size() < 2; k += 7)
        if (slotOf(k, 4) != slotOf(-1, 4) && slotOf(k, 4) != (slotOf(-1, 4) + 3) % 4) keys.push_back(k);
    Hash hash(keys);
    int notFound = -1;
    EXPECT_EQ(hash.mode(), 1);
    EXPECT_EQ(hash.find(-1), -1);
    EXPECT_EQ(hash.findIf(-1, &notFound), -1);
    EXPECT_EQ(notFound, 0);
}

TEST(mtxHash, anAbsentKeyMinusOneIsNoticedBehindAFilledPair)
{
    /* its own slot is taken, the empty pair comes later in the walk */
    std::vector<int> keys;
    for (int k = 10; keys.size() < 2; k += 7)
        if (slotOf(k, 4) == slotOf(-1, 4)) keys.push_back(k);
    Hash hash(keys);
    int notFound = -1;
    EXPECT_EQ(hash.findIf(-1, &notFound), -1);
    EXPECT_EQ(notFound, 1);
    checkFails("Key <-1> not found", hash.find(-1));
}

TEST(mtxHash, minusOneIsAKeyLikeOthers)
{
    Hash hash({ 3, -1, 12 });
    EXPECT_EQ(hash.find(-1), 1);
    const int twice[] = { -1, 4, -1 };
    checkFails("Duplicate key <-1>", mtxNewInvHash(twice, 3));
}

TEST(mtxHash, pairsLieInTheirSlotOrTheNextFree)
{
    Hash hash({ 100, 200, 50, 3, 77, 1000000, -5 });
    int h = hash.h();
    EXPECT_EQ(h, 11);
    std::vector<int> expected(2 * h, -1);
    for (int i = 0; i < hash.n(); ++i) {
        int slot = slotOf(hash.keys[i], h);
        while (expected[2 * slot + 1] != -1) slot = (slot + 1) % h;
        expected[2 * slot] = hash.keys[i];
        expected[2 * slot + 1] = i;
    }
    EXPECT_EQ(std::vector<int>(hash.data, hash.data + 2 * h), expected);
}

/* The first n keys whose slot is 0. */
static std::vector<int> keysOfSlotZero(int n)
{
    std::vector<int> keys;
    const int h = (int) (n * 1.5 + 1.0);
    for (int key = 1; (int) keys.size() < n; ++key)
        if (slotOf(key, h) == 0) keys.push_back(key);
    return keys;
}

TEST(mtxHash, keysThatShareOneSlotAreTakenOnlyWhileTheyAreFew)
{
    Hash few(keysOfSlotZero(1024));
    for (int i = 0; i < 1024; ++i) ASSERT_EQ(few.find(few.keys[i]), i);
    const std::vector<int> many = keysOfSlotZero(1025);
    checkFails("Keys cannot be told apart quickly: <1024> of <1025> share too few places",
               mtxNewInvHash(many.data(), 1025));
}

TEST(mtxHash, anAbsentKeyOfACrowdedSlotIsNotLookedForFartherThanKeysLie)
{
    Hash crowd(keysOfSlotZero(1024));
    int absent = crowd.keys.back() + 1, notFound = -1;
    while (slotOf(absent, crowd.h()) != 0) ++absent;
    EXPECT_EQ(crowd.findIf(absent, &notFound), -1);
    EXPECT_EQ(notFound, 1);
    checkFails("not found", crowd.find(absent));
}

TEST(mtxHash, walksGoOnAtTheFirstPairBehindTheLast)
{
    std::vector<int> keys;
    for (int k = 1000; keys.size() < 3; --k)            /* downward, so that they are not consecutive */
        if (slotOf(k, 5) == 4) keys.push_back(k);
    Hash hash(keys);
    ASSERT_EQ(hash.h(), 5);
    ASSERT_EQ(hash.mode(), 1);
    EXPECT_EQ(std::vector<int>(hash.data, hash.data + 10),
              (std::vector<int>{ keys[1], 1, keys[2], 2, -1, -1, -1, -1, keys[0], 0 }));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(hash.find(keys[i]), i);
}

TEST(mtxHash, manyScatteredKeysAreAllFound)
{
    std::mt19937 random(11);
    for (int n : { 2, 3, 31, 32, 33, 64, 1000, 100000 }) {
        std::unordered_map<int, int> model;
        std::vector<int> keys;
        while ((int) keys.size() < n) {
            int key = (int) random();
            if (key != -1 && model.emplace(key, (int) keys.size()).second) keys.push_back(key);
        }
        Hash hash(keys);
        ASSERT_EQ(hash.mode(), 1);
        for (int i = 0; i < n; ++i) ASSERT_EQ(hash.find(keys[i]), i) << "n " << n;
        for (int i = 0; i < 1000; ++i) {
            int key = (int) random(), notFound = -1, index = hash.findIf(key, &notFound);
            auto it = model.find(key);
            ASSERT_EQ(notFound, it == model.end() && key != -1);
            ASSERT_EQ(index, it == model.end() ? -1 : it->second);
        }
    }
}

TEST(mtxHash, aListWithOneGapIsHashed)
{
    std::vector<int> keys(5000);
    for (int i = 0; i < 5000; ++i) keys[i] = 10 + i + (i == 4999);
    Hash hash(keys);
    EXPECT_EQ(hash.mode(), 1);
    EXPECT_EQ(hash.find(5010), 4999);
    checkFails("Key <5009> not found", hash.find(5009));
}
