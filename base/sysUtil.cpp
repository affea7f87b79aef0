/* sysUtil.cpp: the small loops over integers and reals that every other module uses, and the plain locale.
 *
 * All of the loops do nothing for a count below 1. The arrays may be as large as a mesh, so positions are formed in 64
 * bits, and sorting takes about n log n steps. */

#include "base/sys.h"

#include <algorithm>
#include <array>
#include <stdlib.h>
#include <string.h>

/* -------------------------------------------------- sorting ----------------------------------------------- */

void sysSortInts(int *v, int n)
{
    if (n > 1) std::sort(v, v + n);
}

int sysSortUniqueInts(int *v, int n)
{
    if (n < 1) return 0;
    std::sort(v, v + n);
    return (int) (std::unique(v, v + n) - v);
}

/* Tuples of up to four are sorted as values; a longer one is not worth the code. */
template <int K> static void sortShortTuples(int *v, int n)
{
    typedef std::array<int, K> tuple;
    static_assert(sizeof(tuple) == K * sizeof(int), "a tuple is just its integers");
    tuple *first = reinterpret_cast<tuple *>(v);
    std::sort(first, first + n);
}

static int compareTuples(const void *a, const void *b, void *size)
{
    const int *x = (const int *) a, *y = (const int *) b;
    for (int i = 0; i < *(const int *) size; ++i)
        if (x[i] != y[i]) return x[i] < y[i] ? -1 : 1;
    return 0;
}

void sysSortTuples(int *v, int n, int k)
{
    if (n < 2 || k < 1) return;
    switch (k) {
    case 1:  sortShortTuples<1>(v, n); break;
    case 2:  sortShortTuples<2>(v, n); break;
    case 3:  sortShortTuples<3>(v, n); break;
    case 4:  sortShortTuples<4>(v, n); break;
    default: qsort_r(v, (size_t) n, (size_t) k * sizeof(int), compareTuples, &k);
    }
}

/* ------------------------------------------- filling and copying ------------------------------------------ */

void sysZeroReals(double *v, int n)
{
    if (n > 0) memset(v, 0, (size_t) n * sizeof *v);
}

void sysZeroInts(int *v, int n)
{
    if (n > 0) memset(v, 0, (size_t) n * sizeof *v);
}

void sysFillReals(double *v, int n, double value)
{
    for (int i = 0; i < n; ++i) v[i] = value;
}

void sysFillInts(int *v, int n, int value)
{
    for (int i = 0; i < n; ++i) v[i] = value;
}

void sysIotaInts(int *v, int n)
{
    for (int i = 0; i < n; ++i) v[i] = i;
}

void sysCopyReals(const double *src, double *dst, int n)
{
    if (n > 0) memmove(dst, src, (size_t) n * sizeof *dst);
}

void sysCopyInts(const int *src, int *dst, int n)
{
    if (n > 0) memmove(dst, src, (size_t) n * sizeof *dst);
}

/* ------------------------------------------- sums and searching ------------------------------------------- */

void sysAddInt(int *v, int n, int value)
{
    /* unsigned: an id from a damaged file may wrap around, and whoever uses it tests its range */
    for (int i = 0; i < n; ++i) v[i] = (int) ((unsigned) v[i] + (unsigned) value);
}

int sysSumInts(const int *v, int n)
{
    int64_t sum = 0;
    for (int i = 0; i < n; ++i) sum += v[i];
    if (sum < INT32_MIN || sum > INT32_MAX) sysFail("sum <%lld> exceeds an integer", (long long) sum);
    return (int) sum;
}

int sysBinFind(const int *keys, int n, int stride, int value, int *flag)
{
    int low = 0, high = n;              /* keys before low are not above the value, those from high on are */
    *flag = 1;
    while (low < high) {
        int mid = low + (high - low) / 2;
        int key = keys[(int64_t) mid * stride];
        if (key == value) {
            *flag = 0;
            return mid;
        }
        if (key < value) low = mid + 1;
        else high = mid;
    }
    return low > 0 ? low - 1 : 0;
}

/* ------------------------------------------------- numbers ------------------------------------------------ */

locale_t sysPlainLocale(void)
{
    static locale_t plain;
    if (!plain) plain = newlocale(LC_ALL_MASK, "C", (locale_t) 0);
    if (!plain) sysFail("unable to get the plain locale");
    return plain;
}
