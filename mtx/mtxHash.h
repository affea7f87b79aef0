#ifndef MTX_MTXHASH_H
#define MTX_MTXHASH_H

/* mtxHash.h: the inverse hash, from user ids, which may be scattered, to the position of the row that holds them.
 *
 * It is one flat array of 2 h + 1 integers, h = (int) (n * 1.5 + 1.0) for n keys, released with memFree:
 *
 *     0 to 2 h - 1   h pairs (key, index), an empty one (-1, -1)
 *     2 h            0 dense, 1 hashed
 *
 * Dense means that the keys are consecutive, which ids written by a solver usually are: element 0 is the first key and
 * the other pairs mean nothing. The size is not stored: each look-up is given the n that the hash was made with.
 *
 * The look-ups only read, so that any number of threads may look up in one hash. */

#ifdef __cplusplus
extern "C" {
#endif

/* Makes the hash of keys[0 ... n-1]; it is the caller's. No keys (n is 0) give a dense hash from key 0 on. May not
   return: "Duplicate key <%d>", but not for key 0, which then stands for its first position; keys chosen so that many
   share their places, "Keys cannot be told apart quickly: <%d> of <%d> share too few places"; a negative n, "Invalid
   number of keys <%d>"; no memory. */
int *mtxNewInvHash(const int *keys, int n);

/* The index of the key. A dense hash does not test its range: the difference from the first key comes back, wrapped to
   32 bits, and whoever takes keys from a file must compare it with n. In a hashed one an absent key does not return,
   "Key <%d> not found"; key -1 alone, if absent, may find an empty pair and give -1. */
int mtxInvHash(const int *hash, int n, int key);

/* The same, always returning. *notFound is 1 if the key is below the first of a dense hash or its difference wraps
   below 0 (the index is the difference), or absent from a hashed one (the index is -1); otherwise 0. As above a key
   beyond a dense hash is not noticed, and an absent key -1 may give -1 with *notFound 0: test the index, too. */
int mtxIfInvHash(const int *hash, int n, int key, int *notFound);

#ifdef __cplusplus
}
#endif
#endif
