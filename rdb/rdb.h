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
 * trap armed with rdbAssertEnv, or the process ends with code 1 when there is none.
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

/* What a key answers, as rdbGetType tells it. No key has the two float types: a call that asks for them fails. */
enum { RDB_STR = 1, RDB_INT, RDB_INTS, RDB_REAL, RDB_REALS, RDB_FLOAT, RDB_FLOATS };

/* Life cycle */
RDB_API rdbHd *rdbNew(const char *problem, const char *dir, const char *pdir, int verbose);
RDB_API void   rdbFree(rdbHd *hd);
RDB_API int    rdbOpenRun(rdbHd *hd, int runId);
RDB_API int    rdbCloseRun(rdbHd *hd);
RDB_API int    rdbUpdate(rdbHd *hd, int *flag);

/* Errors and the trap */
RDB_API void        rdbSetError(const char *format, ...) __attribute__((format(printf, 1, 2)));
RDB_API const char *rdbGetError(void);
RDB_API jmp_buf    *rdbAssertEnv(void);
RDB_API const char *rdbAssertErrorStr(void);
RDB_API int         rdbAssertEndTrap(void);

/* What a key is */
RDB_API int rdbGetType(rdbHd *hd, const char *key, int *type);
RDB_API int rdbGetDims(rdbHd *hd, const char *key, int nIdx, int i1, int i2, int i3, int *d1, int *d2);
RDB_API int rdbGetInfo(rdbHd *hd, const char *key, int *type, int *needsRun, int *nIdx, int *nDims,
                       const char **idx0, const char **idx1, const char **idx2, const char **dim0, const char **dim1);

/* What it holds: the general form, then one form for each type and number of indices */
RDB_API int rdbGetData(rdbHd *hd, const rdbKeyRow *parent, const char *key, void *data, int type, int nIdx, int i1,
                       int i2, int i3, int d1, int d2);

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

RDB_API int rdbGetFloat0(rdbHd *hd, const char *key, float *value);
RDB_API int rdbGetFloat1(rdbHd *hd, const char *key, float *value, int i1);
RDB_API int rdbGetFloat2(rdbHd *hd, const char *key, float *value, int i1, int i2);
RDB_API int rdbGetFloat3(rdbHd *hd, const char *key, float *value, int i1, int i2, int i3);

RDB_API int rdbGetInts0(rdbHd *hd, const char *key, int *values, int d1, int d2);
RDB_API int rdbGetInts1(rdbHd *hd, const char *key, int *values, int i1, int d1, int d2);
RDB_API int rdbGetInts2(rdbHd *hd, const char *key, int *values, int i1, int i2, int d1, int d2);
RDB_API int rdbGetInts3(rdbHd *hd, const char *key, int *values, int i1, int i2, int i3, int d1, int d2);

RDB_API int rdbGetReals0(rdbHd *hd, const char *key, double *values, int d1, int d2);
RDB_API int rdbGetReals1(rdbHd *hd, const char *key, double *values, int i1, int d1, int d2);
RDB_API int rdbGetReals2(rdbHd *hd, const char *key, double *values, int i1, int i2, int d1, int d2);
RDB_API int rdbGetReals3(rdbHd *hd, const char *key, double *values, int i1, int i2, int i3, int d1, int d2);

RDB_API int rdbGetFloats0(rdbHd *hd, const char *key, float *values, int d1, int d2);
RDB_API int rdbGetFloats1(rdbHd *hd, const char *key, float *values, int i1, int d1, int d2);
RDB_API int rdbGetFloats2(rdbHd *hd, const char *key, float *values, int i1, int i2, int d1, int d2);
RDB_API int rdbGetFloats3(rdbHd *hd, const char *key, float *values, int i1, int i2, int i3, int d1, int d2);

#ifdef __cplusplus
}
#endif
#endif
