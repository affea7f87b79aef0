/* mem.cpp: allocation that never returns failure, and pools of small objects of one size.
 *
 * Running out of memory is a failure like any other; its text shows the program's memory situation and the source line
 * that asked. Blocks are not tracked: a failure that jumps to a trap leaks what the functions in between held.
 *
 * A pool hands out the items of a block from its top downward and takes items back on a list. All of its blocks go at
 * once when the pool goes. */

#include "base/mem.h"

#include <stdlib.h>
#include <string.h>

#include "base/sys.h"

uint64_t memAllocated;

/* Tells that `size` bytes could not be had, in the name of the function that the program called. */
[[noreturn]] static void noMemory(const char *function, int64_t size, const char *file, int line)
{
    const double toMegabytes = 9.5367431640625e-07;
    const char *prog = sysGetProgName();
    char text[SYS_TEXT];
    const locale_t host = uselocale(sysPlainLocale());          /* a decimal point is one everywhere */
    snprintf(text, sizeof text,
             "%s: *** Allocated         \t<%.6f> Mbytes\n"
             "%s: *** Unable to allocate\t<%.6f> Mbytes\n"
             "%s: \tRAM  space = %d Mbytes\n"
             "%s: \tSwap space = %d Mbytes\n"
             "%s: *** Memory Allocation Error; from file <%s> line <%d>",
             prog, (double) sysPeakMemory() * toMegabytes, prog, (double) size * toMegabytes, prog, sysAvailRam(),
             prog, sysSwapSize(), prog, file, line);
    uselocale(host);
    sysFailIn(function, "Memory Allocation Error\n%s", text);
}

static void *allocate(const char *function, int64_t size, const char *file, int line, int zero)
{
    if (size < 0) sysFailIn(function, "Invalid size <%lld>; from file <%s> line <%d>", (long long) size, file, line);
    if (size == 0) size = 1;
    if (size > INT64_MAX - 7) noMemory(function, size, file, line);
    size = (size + 7) & ~(int64_t) 7;
    /* calloc: a large block comes cleared from the system, and is not touched before it is used */
    void *block = zero ? calloc(1, (size_t) size) : malloc((size_t) size);
    if (!block) noMemory(function, size, file, line);
    memAllocated += (uint64_t) size;
    return block;
}

void *memAlloc(int64_t size, const char *file, int line, int zero)
{
    return allocate("memAlloc", size, file, line, zero);
}

void *memRealloc(void *ptr, int64_t oldSize, int64_t newSize, const char *file, int line, int zero)
{
    if (oldSize < 0 || oldSize > newSize)
        sysFail("Invalid oldSize <%lld> newSize <%lld>; from file <%s> line <%d>", (long long) oldSize,
                (long long) newSize, file, line);
    void *block = allocate("memRealloc", newSize, file, line, zero);
    if (oldSize && ptr) memcpy(block, ptr, (size_t) oldSize);
    free(ptr);
    return block;
}

static void release(void *ptr, int strict, const char *file, int line)
{
    if (!ptr && strict) sysFailIn("memFreeF", "Freeing an empty pointer; from file <%s> line <%d>", file, line);
    free(ptr);
}

void memFreeF(void *ptr, int strict, int count, const char *file, int line)
{
    if (ptr)
        for (int i = 0; i < count; ++i) release(((void **) ptr)[i], strict, file, line);
    release(ptr, strict, file, line);
}

int64_t memSize(int64_t n, size_t itemSize)
{
    int64_t size;
    if (n < 0 || __builtin_mul_overflow(n, itemSize, &size))
        sysFail("Invalid number of items <%lld> of <%lld> bytes", (long long) n, (long long) itemSize);
    return size;
}

char *memStrDup(const char *text, const char *file, int line)
{
    size_t size = strlen(text) + 1;
    return (char *) memcpy(allocate("memAlloc", (int64_t) size, file, line, 0), text, size);
}

void memVerbose(int flag)
{
    /* an option of that name exists, and nothing follows from it */
}

/* -------------------------------------------------- pools ------------------------------------------------- */

memPool *memNewPool(int itemSize, int64_t blockSize)
{
    int itemWords = itemSize < 1 ? 1 : (int) (((int64_t) itemSize + 7) / 8);
    int64_t blockWords = blockSize / 8;
    /* a block holds one item at least, and the link */
    if (itemSize < 1 || blockWords - 1 < itemWords)
        sysFail("Invalid pool of items <%d> in blocks <%lld>", itemSize, (long long) blockSize);
    static_assert(sizeof(memPool) == 72, "a pool's record counts as 72 bytes");
    memPool *pool = (memPool *) memAlloc(sizeof *pool, __FILE__, __LINE__, 1);
    pool->itemSize = itemSize;
    pool->itemWords = itemWords;
    pool->blockSize = blockSize;
    pool->blockWords = blockWords;
    pool->firstSlot = (uint64_t) (((blockWords - 1) / itemWords - 1) * itemWords);
    return pool;
}

void *memPoolItem(memPool *pool)
{
    if (pool->freeList) {
        pool->lastFree = pool->freeList;
        pool->freeList = *(void **) pool->lastFree;
        return pool->lastFree;
    }
    if (pool->nextSlot) {
        pool->nextSlot -= (uint64_t) pool->itemWords;
    } else {
        void **block = (void **) memAlloc(pool->blockWords * 8, __FILE__, __LINE__, 0);
        block[pool->blockWords - 1] = pool->blocks;
        pool->blocks = pool->curBlock = block;
        pool->nextSlot = pool->firstSlot;
    }
    return (void **) pool->blocks + pool->nextSlot;
}

void memPoolGiveBack(memPool *pool, void *item)
{
    *(void **) item = pool->freeList;
    pool->freeList = item;
}

void memFreePool(memPool *pool)
{
    void **block = (void **) pool->blocks;
    while (block) {
        void **before = (void **) block[pool->blockWords - 1];
        free(block);
        block = before;
    }
    free(pool);
}
