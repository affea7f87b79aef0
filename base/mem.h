#ifndef BASE_MEM_H
#define BASE_MEM_H

/* mem.h: allocation that never returns failure. Running out of memory asserts, with the caller's file and line and
 * the program's memory situation in the text. The rest of the library uses the macros. */

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

void    *memAlloc(int64_t size, const char *file, int line, int zero);
void    *memRealloc(void *ptr, int64_t oldSize, int64_t newSize, const char *file, int line, int zero);
void     memFreeF(void *ptr, int strict, int count, const char *file, int line);
memPool *memNewPool(int itemSize, int64_t blockSize);
void    *memPoolItem(memPool *pool);
void     memPoolGiveBack(memPool *pool, void *item);
void     memFreePool(memPool *pool);
char    *memStrDup(const char *text, const char *file, int line);
void     memVerbose(int flag);

#ifdef __cplusplus
}
#endif

/* n items of a type; n is 64-bit, and a negative or overflowing size asserts instead of being formed */
#define memNew(type, n)   ((type *) memAlloc(memSize(n, sizeof(type)), __FILE__, __LINE__, 0))
#define memNewZ(type, n)  ((type *) memAlloc(memSize(n, sizeof(type)), __FILE__, __LINE__, 1))
#define memDup(text)      memStrDup(text, __FILE__, __LINE__)
/* memFree clears the pointer; an absent one is passed over */
#define memFree(ptr)      (memFreeF(ptr, 0, 0, __FILE__, __LINE__), (ptr) = NULL)

#ifdef __cplusplus
extern "C"
#endif
int64_t memSize(int64_t n, size_t itemSize);

#endif
