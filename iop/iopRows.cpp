/* iopRows.cpp: rows of a table that go to places told by an index: a part's values to the rows of the whole mesh.
 *
 * Rows come in pieces of many, small enough to be in the cache still when they go out; a form's getRows gives the rows
 * first to first + some - 1 of the table that is next, and is called for consecutive pieces up to the last row. Rows
 * that lie together in the destination go there without a detour. */

#include "iop/iopInt.h"

#include <string.h>

#include "base/mem.h"

enum { PIECE = 131072 };                    /* reals: 1 MB */

static double  piece[PIECE];
static double *longRow;                     /* for rows longer than a piece, which are rare; kept for the next one */
static int     longSize;

static int consecutive(const int *idx, int m)
{
    for (int i = 1; i < m; ++i)
        if (idx[i] != idx[0] + i) return 0;
    return 1;
}

static void copyRows(const double *rows, int n, int m, const int *idx, double *dest)
{
    if (n == 1) {
        for (int i = 0; i < m; ++i) dest[idx[i]] = rows[i];
    } else if (n == 3) {
        for (int i = 0; i < m; ++i, rows += 3) {
            double *to = dest + 3 * (int64_t) idx[i];
            to[0] = rows[0];
            to[1] = rows[1];
            to[2] = rows[2];
        }
    } else {
        for (int i = 0; i < m; ++i, rows += n) memcpy(dest + (int64_t) idx[i] * n, rows, (size_t) n * sizeof *rows);
    }
}

static void addRows(const double *rows, int n, int m, const int *idx, double *dest)
{
    for (int i = 0; i < m; ++i) {
        double *to = dest + (int64_t) idx[i] * n;
        for (int k = 0; k < n; ++k) to[k] += *rows++;
    }
}

/* Room for a piece of rows of n reals, and how many they are. */
static double *roomFor(int n, int *nRows)
{
    *nRows = n <= PIECE ? PIECE / n : 1;
    if (n <= PIECE) return piece;
    if (n > longSize) {
        memFree(longRow);
        longSize = 0;
        longRow = memNew(double, n);
        longSize = n;
    }
    return longRow;
}

void iopScatterRows(iopHd *hd, int n, int m, const int *idx, double *dest, int add)
{
    if (!add && (!idx || consecutive(idx, m))) {
        hd->form->getRows(hd, n, m, 0, m, 0, dest + (idx ? (int64_t) idx[0] * n : 0));
        iopCount(hd, (int64_t) n * m);
        return;
    }
    int atOnce;
    double *rows = roomFor(n, &atOnce);
    for (int first = 0; first < m; first += atOnce) {
        const int some = m - first < atOnce ? m - first : atOnce;
        hd->form->getRows(hd, n, m, first, some, add, rows);
        iopCount(hd, (int64_t) n * some);
        /* without an index, which only an addition has here, row i is row i */
        if (!idx) for (int64_t k = 0; k < (int64_t) some * n; ++k) dest[(int64_t) first * n + k] += rows[k];
        else if (add) addRows(rows, n, some, idx + first, dest);
        else copyRows(rows, n, some, idx + first, dest);
    }
}
