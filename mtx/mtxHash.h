#ifndef MTX_MTXHASH_H
#define MTX_MTXHASH_H

/* mtxHash.h: from user ids, which may be scattered, to the position of the row that holds them, in one flat array of
 * 2 h + 1 integers, h = (int) (n * 1.5 + 1.0). Consecutive keys need no hash: element 2 h tells (0 dense, 1 hashed). */

#ifdef __cplusplus
extern "C" {
#endif

int *mtxNewInvHash(const int *keys, int n);
int  mtxInvHash(const int *hash, int n, int key);
int  mtxIfInvHash(const int *hash, int n, int key, int *notFound);

#ifdef __cplusplus
}
#endif
#endif
