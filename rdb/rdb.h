#ifndef RDB_RDB_H
#define RDB_RDB_H

/* rdb.h: all that a client of the results library may call, from C or C++.
 *
 * A run of the flow solver is a directory's worth of files `<problem>.<run>...`. rdbNew opens the directory as one
 * database, rdbOpenRun one of its runs, and every quantity is then asked for by name, its key, with up to three
 * indices, and comes back in the caller's buffer:
 *
 *     rdbHd *hd = rdbNew("pipe", "QUENTA.DIR", "/data/case7", 0);
 *     int    nNodes = 0;
 *     if (!hd || !rdbOpenRun(hd, 0) || !rdbGetInt0(hd, "nNodes", &nNodes)) puts(rdbGetError());
 *
 * Two kinds of failure. What a user can meet (no such run, an index out of range) makes a call return 0, or null
 * from a constructor, with the text in rdbGetError. Damaged data do not return: control comes back at the innermost
 * trap armed with rdbAssertEnv, or the process ends with code 1 when there is none. Where nothing else is said below,
 * a call returns nonzero on success, 0 after a failure of the first kind, and may fail in the second way if it touches
 * files.
 *
 * Memory. The caller owns every buffer that it passes; the library copies into it and keeps no pointer to it. Texts
 * that are returned, or given through `const char **`, belong to the library and are not to be freed.
 *
 * One thread of control at a time: the error text, the traps and the current directory are process-wide. */

#include <setjmp.h>

#ifndef RDB_API
#if defined(__GNUC__)
#define RDB_API __attribute__((visibility("default")))
#else
#define RDB_API
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct rdbHd     rdbHd;       /* one open database                       */
typedef struct rdbKeyRow rdbKeyRow;   /* one row of the registry; clients pass 0 */

/* What a key answers, as rdbGetType tells it: a text, one 32-bit integer or many, one 64-bit real or many. No key has
   the two float types: a call that asks for them fails. */
enum { RDB_STR = 1, RDB_INT, RDB_INTS, RDB_REAL, RDB_REALS, RDB_FLOAT, RDB_FLOATS };

/* The size of the buffer that holds any text answer, its final zero included. */
enum { RDB_TEXT = 8192 };

/* ------------------------------------------------------------------------------------------------------- life cycle */

/* Opens the database of `problem` in the directory `dir`: finds its files and runs. No run is open at first. All texts
   are copied.
     problem   null: the option "problem" of the configuration; it must be initialised then
     dir       null: the option "dir". Relative to pdir, if that is given
     pdir      the folder to work in: each call that touches files goes there and back again. Null or ".": none, the
               calls work where the process stands. A relative pdir is looked for anew from where each call is made
     verbose   0 silent; 3 notes about runs, 4 and more about sets and updates; -1: the option "verbose"
   Returns the handle, which is to be ended with rdbFree; or null: "Undefined problem", "Invalid directory <%s>",
   "problem %s not found" if the directory holds no run of it. After the last two the process stays in pdir.
   May not return: pdir does not exist; an option is not configured; the name of the problem, which is part of the
   expressions that files are found by, makes a bad one; two files claim one run id. */
RDB_API rdbHd *rdbNew(const char *problem, const char *dir, const char *pdir, int verbose);

/* Ends a handle and all that belongs to it; closes its run first. hd must not be null. */
RDB_API void rdbFree(rdbHd *hd);

/* Opens a run by its id, one of "runIds"; 0 opens the newest, which is the one with the largest id. A run that is open
   is closed first. Fails with "runId %d not found", the handle unchanged, or "rdb not initialized" for a null handle.
   May not return: the run's table of contents is damaged. A run may be opened although the error text tells of sets
   whose lines contradict each other. */
RDB_API int rdbOpenRun(rdbHd *hd, int runId);

/* Closes the open run and drops all that was cached from it. A handle without a run succeeds; a null one fails with
   "rdb not initialized". */
RDB_API int rdbCloseRun(rdbHd *hd);

/* Looks whether the solver has written more. *flag is 1 if answers may now differ, else 0. If the directory has
   changed, its files and runs are found anew and the open run is read anew; ids of sets, counts and steps are then to
   be asked for again. If there is a .top file of the open run, the flag is 1 also at the first update after the run was
   opened, whenever that file has become newer, and once more when over a minute has passed since the last 1. Fails with
   "directory %s not found", the run as it was; with "problem %s not found" if no run is left; with what rdbOpenRun says
   if the open run is gone; with "rdb not initialized" for a null handle. */
RDB_API int rdbUpdate(rdbHd *hd, int *flag);

/* ---------------------------------------------------------------------------------------------- errors and the trap */

/* Replaces the error text, one for the whole process; at most 8703 characters of it are kept. */
RDB_API void rdbSetError(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* The text of the last failure that made a call return 0 or null; "" before the first. Never null. It stays when a call
   succeeds, and a failure caught by a trap does not touch it. */
RDB_API const char *rdbGetError(void);

/* Arms a trap for failures that do not return, in one step with saving the context:

       if (setjmp(*rdbAssertEnv()) == 0) { ... calls ... }
       else puts(rdbAssertErrorStr());
       rdbAssertEndTrap();

   Traps nest, up to 100 deep. A failure jumps to the innermost one and leaves it armed: both ways out must come by
   rdbAssertEndTrap. What the abandoned calls had allocated or opened is lost, and what stands in the buffers that they
   were to fill is undefined. A handle stays usable, but if it has a pdir the process stays in there, for later calls
   too. Objects with destructors must not live between the trap and the calls. */
RDB_API jmp_buf *rdbAssertEnv(void);

/* The text of the last failure caught, two lines: where it was, and what. */
RDB_API const char *rdbAssertErrorStr(void);

/* Disarms the innermost trap. Returns how many are left, minus one. */
RDB_API int rdbAssertEndTrap(void);

/* ---------------------------------------------------------------------------------------------------- what a key is */

/* A key has a type (above), up to three indices, and for an array one dimension or two. What counts an index and what
   sizes a dimension is a key itself, of type RDB_INT: "outValues" has the indices "nOutVars" and "nOutSteps" and the
   dimensions "outVarDim" and "nNodes". Such a key takes no other indices than those of the key that it belongs to:
   "outVarDim" has "nOutVars". Case counts. All keys: "queryName" with indices from 0 to "nQueries" - 1. */

/* The type of a key, by the registry alone: hd is not looked at. Unknown: "%s not found", and *type is 0. */
RDB_API int rdbGetType(rdbHd *hd, const char *key, int *type);

/* The sizes of an array at the given indices. *d1 is the faster-running one of two; -1 where there is no such
   dimension. i1, i2, i3: the key's indices, -1 for those that it does not have; nIdx is not looked at. Fails like the
   reading of the keys that size the array. */
RDB_API int rdbGetDims(rdbHd *hd, const char *key, int nIdx, int i1, int i2, int i3, int *d1, int *d2);

/* The whole row of a key, by the registry alone: hd is not looked at. needsRun: not 0 if a run must be open. idx0 to
   idx2: the keys that count the indices, null behind the last of nIdx. dim0, dim1: the keys that size the array, null
   behind the last of nDims; of two the faster-running stands first. The texts last as long as the library. Any of the
   nine pointers may be null. Unknown: "%s not found", *type is 0, the others are left alone. */
RDB_API int rdbGetInfo(rdbHd *hd, const char *key, int *type, int *needsRun, int *nIdx, int *nDims,
                       const char **idx0, const char **idx1, const char **idx2, const char **dim0, const char **dim1);

/* ---------------------------------------------------------------------------------------------------- what it holds */

/* All operations below read one key.
     text, value, values   receive the answer. A text takes RDB_TEXT bytes at most. An array of two dimensions runs
                           fastest in the first one: "crd", of "nSdims" by "nNodes", has the three coordinates of a node
                           side by side, value k of node j at values[k + 3 * j]
     i1, i2, i3            indices, from 0
     d1, d2                capacity of the caller's array, d1 for one dimension and d1 times d2 for two, in any order;
                           larger than needed is fine. -1 for both: not stated and not tested. No capacity at all (0)
                           succeeds and reads nothing
   An answer is always whole: what is written is what rdbGetDims tells. Only of "oelCnn" the end may stay as it was: an
   element that is none of its volume's makes no row.
   They fail with, in the order of the tests:
     "rdb not initialized"                            no handle, or not one of ours
     "%s not found"                                   no such key
     "run not opened"                                 the key needs an open run
     "%s has type %s not %s"                          the type that the key has, the one asked for
     "%s requires %d indices not %d"
     "index1 (%d) is out of range [0,%d]"             likewise index2, index3; [0,-1] if there are none
     "%s requires dimension of %d not %d"             what is needed, what was stated
     "invalid dimension specification"                one of two capacities stated
     "%s requires dimension of %dx%d not %dx%d"
   and then with what the key's own files make them say. A failed test changes nothing but the error text. */

/* The general form. parent: 0. type: what the caller takes the key to be. nIdx: how many indices are given, the others
   being -1; -1: not tested. d1, d2: -1 for what is no array. */
RDB_API int rdbGetData(rdbHd *hd, const rdbKeyRow *parent, const char *key, void *data, int type, int nIdx, int i1,
                       int i2, int i3, int d1, int d2);

/* One form for each type and number of indices, the digit. */
RDB_API int rdbGetStr0(rdbHd *hd, const char *key, char *text);
RDB_API int rdbGetStr1(rdbHd *hd, const char *key, char *text, int i1);
RDB_API int rdbGetStr2(rdbHd *hd, const char *key, char *text, int i1, int i2);
RDB_API int rdbGetStr3(rdbHd *hd, const char *key, char *text, int i1, int i2, int i3);

RDB_API int rdbGetInt0(rdbHd *hd, const char *key, int *value);
RDB_API int rdbGetInt1(rdbHd *hd, const char *key, int *value, int i1);
RDB_API int rdbGetInt2(rdbHd *hd, const char *key, int *value, int i1, int i2);
RDB_API int rdbGetInt3(rdbHd *hd, const char *key, int *value, int i1, int i2, int i3);

RDB_API int rdbGetReal0(rdbHd *hd, const char *key, double *value);
RDB_API int rdbGetReal1(rdbHd *hd, const char *key, double *value, int i1);
RDB_API int rdbGetReal2(rdbHd *hd, const char *key, double *value, int i1, int i2);
RDB_API int rdbGetReal3(rdbHd *hd, const char *key, double *value, int i1, int i2, int i3);

RDB_API int rdbGetInts0(rdbHd *hd, const char *key, int *values, int d1, int d2);
RDB_API int rdbGetInts1(rdbHd *hd, const char *key, int *values, int i1, int d1, int d2);
RDB_API int rdbGetInts2(rdbHd *hd, const char *key, int *values, int i1, int i2, int d1, int d2);
RDB_API int rdbGetInts3(rdbHd *hd, const char *key, int *values, int i1, int i2, int i3, int d1, int d2);

RDB_API int rdbGetReals0(rdbHd *hd, const char *key, double *values, int d1, int d2);
RDB_API int rdbGetReals1(rdbHd *hd, const char *key, double *values, int i1, int d1, int d2);
RDB_API int rdbGetReals2(rdbHd *hd, const char *key, double *values, int i1, int i2, int d1, int d2);
RDB_API int rdbGetReals3(rdbHd *hd, const char *key, double *values, int i1, int i2, int i3, int d1, int d2);

/* No key has a float type: these two families always fail, with "%s has type %s not %s". */
RDB_API int rdbGetFloat0(rdbHd *hd, const char *key, float *value);
RDB_API int rdbGetFloat1(rdbHd *hd, const char *key, float *value, int i1);
RDB_API int rdbGetFloat2(rdbHd *hd, const char *key, float *value, int i1, int i2);
RDB_API int rdbGetFloat3(rdbHd *hd, const char *key, float *value, int i1, int i2, int i3);

RDB_API int rdbGetFloats0(rdbHd *hd, const char *key, float *values, int d1, int d2);
RDB_API int rdbGetFloats1(rdbHd *hd, const char *key, float *values, int i1, int d1, int d2);
RDB_API int rdbGetFloats2(rdbHd *hd, const char *key, float *values, int i1, int i2, int d1, int d2);
RDB_API int rdbGetFloats3(rdbHd *hd, const char *key, float *values, int i1, int i2, int i3, int d1, int d2);

#ifdef __cplusplus
}
#endif
#endif
