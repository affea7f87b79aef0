/* cvt.cpp: byte-order conversions of the numbers in binary files.
 *
 * A type code names both the kind of number and its byte order: the odd code of a kind is big-endian, the even one
 * little-endian. Converting is copying, and then reversing the bytes of each value if the orders differ. */

#include "base/cvt.h"

#include <string.h>

#include "base/sys.h"

/* Whole arrays go through these two, in place; the bytes need no alignment. Four values at a time by shifts and masks
   is twice as fast as one by one; eight-byte values are faster one by one. */
static void reverse4(unsigned char *bytes, int n)
{
    typedef uint32_t four __attribute__((vector_size(16)));
    int64_t i = 0;
    for (; i + 4 <= n; i += 4) {
        four v;
        memcpy(&v, bytes + 4 * i, sizeof v);
        v = ((v >> 8) & 0x00ff00ffu) | ((v & 0x00ff00ffu) << 8);
        v = (v >> 16) | (v << 16);
        memcpy(bytes + 4 * i, &v, sizeof v);
    }
    for (; i < n; ++i) {
        uint32_t v;
        memcpy(&v, bytes + 4 * i, sizeof v);
        v = __builtin_bswap32(v);
        memcpy(bytes + 4 * i, &v, sizeof v);
    }
}

static void reverse8(unsigned char *bytes, int n)
{
    for (int64_t i = 0; i < n; ++i) {
        uint64_t v;
        memcpy(&v, bytes + 8 * i, sizeof v);
        v = __builtin_bswap64(v);
        memcpy(bytes + 8 * i, &v, sizeof v);
    }
}

static void convert(const char *function, const void *src, void *dst, int srcType, int dstType, int bigEndian,
                    int size, int n)
{
    if (srcType != bigEndian && srcType != bigEndian + 1) sysFailIn(function, "Invalid srcType <%d>", srcType);
    if (dstType != bigEndian && dstType != bigEndian + 1) sysFailIn(function, "Invalid dstType <%d>", dstType);
    if (n < 1) return;
    if (src != dst) memmove(dst, src, (size_t) n * (size_t) size);
    if (srcType == dstType) return;
    if (size == 4) reverse4((unsigned char *) dst, n);
    else reverse8((unsigned char *) dst, n);
}

int cvtNativeInt(void)
{
    return CVT_INT_LE;
}

int cvtNativeFloat(void)
{
    return CVT_FLOAT_LE;
}

int cvtNativeReal(void)
{
    return CVT_REAL_LE;
}

void cvtConvInts(const void *src, void *dst, int srcType, int dstType, int n)
{
    convert(__func__, src, dst, srcType, dstType, CVT_INT_BE, 4, n);
}

void cvtConvFloats(const void *src, void *dst, int srcType, int dstType, int n)
{
    convert(__func__, src, dst, srcType, dstType, CVT_FLOAT_BE, 4, n);
}

void cvtConvReals(const void *src, void *dst, int srcType, int dstType, int n)
{
    convert(__func__, src, dst, srcType, dstType, CVT_REAL_BE, 8, n);
}
