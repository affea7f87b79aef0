/* clientInC.c: uses the interface as a C program does. That it compiles is half of the test. */

#include "rdb/rdb.h"

#include <stdio.h>
#include <stdlib.h>

#include "test/rdb/clientInC.h"

int clientReadRun(const char *problem, int *nNodes, double *firstCrd, char *lastKey)
{
    int nSdims, n, nQueries, type, step = 1;
    double *crd = NULL;
    rdbHd *hd = rdbNew(problem, ".", NULL, 0);
    if (!hd) return step;
    if (++step, !rdbOpenRun(hd, 1)) goto end;
    if (++step, !rdbGetInt0(hd, "nNodes", nNodes)) goto end;
    if (++step, !rdbGetType(hd, "crd", &type) || type != RDB_REALS) goto end;
    if (++step, !rdbGetDims(hd, "crd", 0, -1, -1, -1, &nSdims, &n) || nSdims != 3 || n != *nNodes) goto end;
    crd = malloc((size_t) nSdims * (size_t) n * sizeof *crd);
    if (++step, !rdbGetReals0(hd, "crd", crd, nSdims, n)) goto end;
    for (int k = 0; k < 3; ++k) firstCrd[k] = crd[k];
    if (++step, !rdbGetInt0(hd, "nQueries", &nQueries)) goto end;
    if (++step, !rdbGetStr1(hd, "queryName", lastKey, nQueries - 1)) goto end;
    step = 0;
end:
    free(crd);
    rdbFree(hd);
    return step;
}

int clientIsTrapped(const char *problem, char *text, int size)
{
    volatile int trapped = 1;
    if (setjmp(*rdbAssertEnv()) == 0) {
        rdbHd *hd = rdbNew(problem, ".", NULL, 0);
        if (hd) rdbFree(hd);
        trapped = 0;
    } else {
        snprintf(text, (size_t) size, "%s", rdbAssertErrorStr());
    }
    rdbAssertEndTrap();
    return trapped;
}
