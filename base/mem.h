#ifndef BASE_MEM_H
#define BASE_MEM_H

/* mem.h: allocation that never returns failure. Running out of memory asserts, with the caller's file and line and
 * the program's memory situation in the text. The rest of the library uses the macros.
 *
 * Blocks are not tracked: who allocates frees, and what a failure jumps over is lost. */

#include <stddef.h>
#include <stdint.h>

typedef struct memPool {
    void    *freeList;            /* items given back, linked through their first word                    */
    void    *lastFree;            /* the item being taken from that list                                  */
    void    *curBlock;            /* newest block                                                         */
    uint64_t nextSlot;            /* word index of the last slot handed out in the newest block; 0: full  */
    uint64_t firstSlot;           /* word index a new block starts with                                   */
    int      itemWords, itemSize; /* in 8-byte words, in bytes                                            */
    int64_t  blockSize;           /* bytes                                                                */
    int64_t  blockWords;          /* blockSize / 8                                                        */
    void    *blocks;              /* newest block; a block's last word links to the one before            */
} memPool;

#ifdef __cplusplus
extern "C" {
#endif

extern uint64_t memAllocated;     /* bytes ever allocated; only grows */

/* A block of `size` bytes rounded up to a multiple of 8, at least 8; cleared if `zero`. It is the caller's. May not
   return: no memory, "Memory Allocation Error"; a negative size, "Invalid size <%lld>; from file <%s> line <%d>". */
void    *memAlloc(int64_t size, const char *file, int line, int zero);

/* A new block as from memAlloc, with the first oldSize bytes of ptr, which may be null, copied into it; ptr is
   released. May not return, and then ptr is still there: as memAlloc; oldSize above newSize or negative, "Invalid
   oldSize <%lld> newSize <%lld>; from file <%s> line <%d>". */
void    *memRealloc(void *ptr, int64_t oldSize, int64_t newSize, const char *file, int line, int zero);

/* Releases ptr; with a count of 1 or more ptr is an array of so many pointers, which go first. May not return: with
   `strict` an absent pointer, "Freeing an empty pointer; from file <%s> line <%d>"; without it one is passed over. */
void     memFreeF(void *ptr, int strict, int count, const char *file, int line);

/* A copy of a text; it is the caller's. May not return: no memory. */
char    *memStrDup(const char *text, const char *file, int line);

/* A pool of items of itemSize bytes that come from blocks of blockSize bytes; no block is there yet. The caller ends it
   with memFreePool. May not return: no memory, or a block that does not hold one item and a link of 8 bytes, "Invalid
   pool of items <%d> in blocks <%lld>". */
memPool *memNewPool(int itemSize, int64_t blockSize);

/* An item, not cleared, with the alignment of a 64-bit word: the one given back last, else a new one. It stays the
   pool's. May not return: no memory, and then the pool is as it was. */
void    *memPoolItem(memPool *pool);

/* Takes an item of this pool back. Its first word is used. */
void     memPoolGiveBack(memPool *pool, void *item);

/* Releases the pool and all of its items. */
void     memFreePool(memPool *pool);

/* Accepted for an option of that name; does nothing. */
void     memVerbose(int flag);

/* n * itemSize. May not return: "Invalid number of items <%lld> of <%lld> bytes" if n is negative or the product is
   beyond 63 bits. */
int64_t  memSize(int64_t n, size_t itemSize);

#ifdef __cplusplus
}
#endif

/* n items of a type; n is 64-bit, and a negative or overflowing size asserts instead of being formed */
#define memNew(type, n)   ((type *) memAlloc(memSize(n, sizeof(type)), __FILE__, __LINE__, 0))
#define memNewZ(type, n)  ((type *) memAlloc(memSize(n, sizeof(type)), __FILE__, __LINE__, 1))
#define memDup(text)      memStrDup(text, __FILE__, __LINE__)
/* memFree clears the pointer; an absent one is passed over */
#define memFree(ptr)      (memFreeF(ptr, 0, 0, __FILE__, __LINE__), (ptr) = NULL)

#endif
