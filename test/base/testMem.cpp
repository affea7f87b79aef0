/* testMem.cpp: allocation, releasing, and pools. */

#include "base/mem.h"

#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <set>

#include "test/commaLocale.h"
#include "test/testUtil.h"

/* under the address sanitizer a request that cannot be met must come back too */
extern "C" __attribute__((visibility("default"))) const char *__asan_default_options();
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }

static const int64_t tooMuch = (int64_t) 1 << 60;

TEST(mem, noBytesAreAValidBlockOf8)
{
    const uint64_t before = memAllocated;
    char *block = (char *) memAlloc(0, "a.cpp", 1, 1);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::string(block, 8), std::string(8, 0));
    EXPECT_EQ(memAllocated - before, 8u);
    memFree(block);
}

TEST(mem, sizesAreRoundedUpTo8)
{
    static const struct { int64_t size; uint64_t counted; } rows[] = { { 1, 8 }, { 8, 8 }, { 9, 16 }, { 16, 16 } };
    for (const auto &row : rows) {
        const uint64_t before = memAllocated;
        void *block = memAlloc(row.size, "a.cpp", 1, 0);
        EXPECT_EQ(memAllocated - before, row.counted) << row.size;
        memFree(block);
        EXPECT_EQ(memAllocated - before, row.counted) << "freeing lowers nothing";
    }
}

TEST(mem, theZeroFlagClearsTheRoundedSize)
{
    for (int i = 0; i < 100; ++i) {             /* reused blocks too */
        char *block = (char *) memAlloc(21, "a.cpp", 1, 1);
        ASSERT_EQ(std::string(block, 24), std::string(24, 0));
        memset(block, 'x', 24);
        memFree(block);
    }
}

TEST(mem, reallocFromNothingIsAlloc)
{
    const uint64_t before = memAllocated;
    char *block = (char *) memRealloc(nullptr, 0, 9, "a.cpp", 1, 1);
    EXPECT_EQ(std::string(block, 16), std::string(16, 0));
    EXPECT_EQ(memAllocated - before, 16u);
    memFree(block);
}

TEST(mem, reallocKeepsTheOldBytes)
{
    char *block = (char *) memAlloc(8, "a.cpp", 1, 0);
    memcpy(block, "ABCDEFGH", 8);
    const uint64_t before = memAllocated;
    block = (char *) memRealloc(block, 5, 20, "a.cpp", 1, 1);
    EXPECT_EQ(std::string(block, 24), "ABCDE" + std::string(19, 0));
    EXPECT_EQ(memAllocated - before, 24u);
    block = (char *) memRealloc(block, 24, 24, "a.cpp", 1, 0);
    EXPECT_EQ(std::string(block, 24), "ABCDE" + std::string(19, 0));
    block = (char *) memRealloc(block, 0, 4, "a.cpp", 1, 1);    /* an old size of 0: nothing is kept */
    EXPECT_EQ(std::string(block, 8), std::string(8, 0));
    memFree(block);
    block = (char *) memRealloc(nullptr, 5, 8, "a.cpp", 1, 1);  /* no old block: nothing to keep */
    EXPECT_EQ(std::string(block, 8), std::string(8, 0));
    memFree(block);
}

TEST(mem, reallocOfMoreThanTheNewSizeFails)
{
    char *block = (char *) memAlloc(16, "a.cpp", 1, 0);
    checkFails("Invalid oldSize <16> newSize <8>; from file <a.cpp> line <7>", memRealloc(block, 16, 8, "a.cpp", 7, 0));
    checkFails("Invalid oldSize <-1> newSize <8>", memRealloc(block, -1, 8, "a.cpp", 7, 0));
    memFree(block);
}

TEST(mem, outOfMemoryTellsTheSituation)
{
    sysSetProgName("pv");
    const std::string text = trapped([] { memAlloc(tooMuch - 3, "rdb/rdbGeom.cpp", 77, 0); });
    sysSetProgName("QUENTA");
    double allocated = -1, wanted = -1;
    int    ram = -1, swap = -1, line = -1, end = -1;
    ASSERT_EQ(text.find("pv: *** ASSERTION in Function <memAlloc> File <base/mem.cpp> Line <"), 0u) << text;
    const size_t body = text.find("\npv: *** Memory Allocation Error\n");
    ASSERT_NE(body, std::string::npos) << text;
    const char *format = "\npv: *** Memory Allocation Error\n"
                         "pv: *** Allocated         \t<%lf> Mbytes\n"
                         "pv: *** Unable to allocate\t<%lf> Mbytes\n"
                         "pv: \tRAM  space = %d Mbytes\n"
                         "pv: \tSwap space = %d Mbytes\n"
                         "pv: *** Memory Allocation Error; from file <rdb/rdbGeom.cpp> line <%d>%n";
    ASSERT_EQ(sscanf(text.c_str() + body, format, &allocated, &wanted, &ram, &swap, &line, &end), 5) << text;
    EXPECT_EQ(body + end, text.size());
    EXPECT_GT(allocated, 0.1);
    EXPECT_LE(allocated, (double) sysPeakMemory() / 1048576.0 + 0.1);
    EXPECT_EQ(wanted, 1099511627776.0);         /* the rounded request */
    EXPECT_GE(ram, 0);
    EXPECT_EQ(swap, sysSwapSize());
    EXPECT_EQ(line, 77);
    EXPECT_NE(text.find("\tRAM  space"), std::string::npos);
    EXPECT_NE(text.find("Allocated         \t<"), std::string::npos);
}

TEST(mem, outOfMemoryNamesTheCalledFunction)
{
    const uint64_t before = memAllocated;
    checkFails("Function <memRealloc>", memRealloc(nullptr, 0, tooMuch, "a.cpp", 1, 0));
    checkFails("Function <memAlloc>", memAlloc(tooMuch, "a.cpp", 1, 1));
    checkFails("Memory Allocation Error; from file <a.cpp> line <1>", memAlloc(INT64_MAX, "a.cpp", 1, 0));
    EXPECT_EQ(memAllocated, before);
    EXPECT_EQ(uselocale((locale_t) 0), LC_GLOBAL_LOCALE);       /* as it was */
}

TEST(mem, theLargestSizeIsRoundedToNothingSmaller)
{
    checkFails("Unable to allocate\t<8796093022208.000000> Mbytes\n", memAlloc(INT64_MAX, "a.cpp", 1, 0));
    checkFails("Unable to allocate\t<8796093022208.000000> Mbytes\n", memAlloc(INT64_MAX - 7, "a.cpp", 1, 0));
}

TEST(mem, outOfMemoryIsToldInThePlainLocaleWhateverTheUsers)
{
    useCommaLocale();
    checkFails("Unable to allocate\t<1099511627776.000000> Mbytes\n", memAlloc(tooMuch, "a.cpp", 1, 0));
    EXPECT_STREQ(localeconv()->decimal_point, ",");             /* the user's is in force again */
}

/* With really nothing left: the text is made without allocating. Pools and copies of texts fail in memAlloc's name. */
[[noreturn]] static void useUpMemory()
{
    sysPlainLocale();
    const struct rlimit none = { 0, 0 };
    if (setrlimit(RLIMIT_AS, &none) < 0) _exit(2);
    for (size_t size = 1 << 24; size >= 8; size /= 2)
        for (void *volatile block = &size; block; ) block = malloc(size);
    static const struct { const char *name; void (*call)(); } rows[] = {
        { "pool", [] { memNewPool(40, 4092); } },
        { "text", [] { memStrDup("text", "b.cpp", 9); } },
        { "more", [] { memRealloc(nullptr, 0, 8, "c.cpp", 1, 0); } },
    };
    for (const auto &row : rows) {
        if (setjmp(*rdbAssertEnv()) == 0) row.call();
        rdbAssertEndTrap();
        const char *text = rdbAssertErrorStr(), *end = strrchr(text, '*');
        char function[20] = "";
        if (!end || sscanf(text, "QUENTA: *** ASSERTION in Function <%19[a-zA-Z]>", function) != 1) _exit(3);
        dprintf(STDERR_FILENO, "%s: %s:%s\n", row.name, function, end + 1);
    }
    _exit(0);
}

TEST(memDeathTest, withNothingLeftAllocationsStillTell)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the address sanitizer does not live within limits";
#endif
    EXPECT_EXIT(useUpMemory(), testing::ExitedWithCode(0),
                "^pool: memAlloc: Memory Allocation Error; from file <base/mem.cpp> line <[0-9]+>\n"
                "text: memAlloc: Memory Allocation Error; from file <b.cpp> line <9>\n"
                "more: memRealloc: Memory Allocation Error; from file <c.cpp> line <1>\n$");
}

TEST(mem, impossibleSizesFail)
{
    checkFails("Invalid size <-8>; from file <a.cpp> line <3>", memAlloc(-8, "a.cpp", 3, 0));
    checkFails("Invalid number of items <-1> of <8> bytes", (void) memNew(double, -1));
    checkFails("Invalid number of items <4611686018427387904> of <8> bytes", (void) memNewZ(double, (int64_t) 1 << 62));
    checkReturns(EXPECT_EQ(memSize(3, 8), 24));
    checkReturns(EXPECT_EQ(memSize(0, 8), 0));
    checkReturns(EXPECT_EQ(memSize((int64_t) 3 << 31, 8), (int64_t) 3 << 34));
}

TEST(mem, freeingNothingFailsOnlyIfStrict)
{
    checkReturns(memFreeF(nullptr, 0, 0, "a.cpp", 12));
    checkReturns(memFreeF(nullptr, 0, 3, "a.cpp", 12));
    checkFails("Freeing an empty pointer; from file <a.cpp> line <12>", memFreeF(nullptr, 1, 0, "a.cpp", 12));
    checkFails("Freeing an empty pointer; from file <a.cpp> line <13>", memFreeF(nullptr, 1, -1, "a.cpp", 13));
    checkFails("Freeing an empty pointer; from file <a.cpp> line <14>", memFreeF(nullptr, 1, 3, "a.cpp", 14));
}

/* the address sanitizer's leak check sees a text or an array that stays */
TEST(mem, theArrayFormFreesTheElementsAndTheArray)
{
    char **texts = memNewZ(char *, 3);
    texts[0] = memDup("one");
    texts[2] = memDup("three");
    checkFails("Freeing an empty pointer; from file <a.cpp> line <5>", memFreeF(texts, 1, 3, "a.cpp", 5));
    /* what came before the absent one is gone */
    texts[0] = memDup("one");
    checkReturns(memFreeF(texts, 0, 3, "a.cpp", 5));
}

TEST(mem, memFreeClearsThePointer)
{
    int *ids = memNew(int, 4);
    memFree(ids);
    EXPECT_EQ(ids, nullptr);
    checkReturns(memFree(ids));
}

TEST(mem, textsAreCopied)
{
    const uint64_t before = memAllocated;
    char given[] = "12345678";
    char *copy = memDup(given), *empty = memDup("");
    given[0] = 'x';
    EXPECT_STREQ(copy, "12345678");
    EXPECT_STREQ(empty, "");
    EXPECT_EQ(memAllocated - before, 16u + 8u);
    memFree(copy);
    memFree(empty);
}

TEST(mem, verboseDoesNothing)
{
    const uint64_t before = memAllocated;
    memVerbose(1);
    EXPECT_EQ(memAllocated, before);
}

/* -------------------------------------------------- pools ------------------------------------------------- */

TEST(mem, aPoolsSizes)
{
    const uint64_t before = memAllocated;
    memPool *pool = memNewPool(40, 4092);
    EXPECT_EQ(memAllocated - before, 72u);
    EXPECT_EQ(pool->itemSize, 40);
    EXPECT_EQ(pool->itemWords, 5);
    EXPECT_EQ(pool->blockSize, 4092);
    EXPECT_EQ(pool->blockWords, 511);
    EXPECT_EQ(pool->firstSlot, 505u);
    EXPECT_EQ(pool->nextSlot, 0u);
    EXPECT_EQ(pool->blocks, nullptr);
    memFreePool(pool);
}

TEST(mem, aPoolHandsOutFromTheTopOfABlockDownward)
{
    memPool *pool = memNewPool(20, 100);            /* 3 words an item, 12 a block: three items and the link */
    char *items[7];
    for (char *&item : items) item = (char *) memPoolItem(pool);
    char *block = (char *) pool->blocks;
    EXPECT_EQ(items[0] - items[1], 24);
    EXPECT_EQ(items[1] - items[2], 24);
    EXPECT_EQ(items[3] - items[4], 24);
    EXPECT_EQ(items[4] - items[5], 24);
    EXPECT_EQ(items[6], block + 48);
    EXPECT_EQ(pool->curBlock, pool->blocks);
    EXPECT_EQ(((char **) block)[11], items[5]);     /* the link to the block before, which ends in its lowest item */
    memFreePool(pool);
}

TEST(mem, aPoolGivesBackItemsAgainLastFirst)
{
    memPool *pool = memNewPool(16, 800);
    void *a = memPoolItem(pool), *b = memPoolItem(pool);
    memPoolGiveBack(pool, a);
    memPoolGiveBack(pool, b);
    EXPECT_EQ(memPoolItem(pool), b);
    EXPECT_EQ(memPoolItem(pool), a);
    EXPECT_EQ(pool->freeList, nullptr);
    EXPECT_EQ(pool->lastFree, a);
    memFreePool(pool);
}

/* Every item may be written whole, and no two are the same. */
TEST(mem, aPoolsItemsDoNotOverlap)
{
    for (int itemSize : { 1, 8, 9, 40, 88 }) {
        SCOPED_TRACE(itemSize);
        memPool *pool = memNewPool(itemSize, 96);
        std::set<char *> items;
        for (int i = 0; i < 100; ++i) {
            char *item = (char *) memPoolItem(pool);
            memset(item, i, (size_t) itemSize);
            EXPECT_TRUE(items.insert(item).second);
        }
        char *last = nullptr;
        for (char *item : items) {
            EXPECT_TRUE(!last || item - last >= itemSize);
            last = item;
            for (int k = 1; k < itemSize; ++k) ASSERT_EQ(item[k], item[0]);
        }
        memFreePool(pool);
    }
}

TEST(mem, aPoolWhoseBlocksHoldNoItemFails)
{
    checkFails("Invalid pool of items <40> in blocks <40>", memNewPool(40, 40));
    checkFails("Invalid pool of items <0> in blocks <800>", memNewPool(0, 800));
    checkFails("Invalid pool of items <8> in blocks <-8>", memNewPool(8, -8));
    memPool *smallest = memNewPool(40, 48);
    void *a = memPoolItem(smallest), *b = memPoolItem(smallest);
    EXPECT_NE(a, b);
    memFreePool(smallest);
}
