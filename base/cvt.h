#ifndef BASE_CVT_H
#define BASE_CVT_H

/* cvt.h: byte-order conversions of 4-byte integers, 4-byte floats and 8-byte reals. */

/* the odd codes are big-endian, the even ones little-endian; these go into file tags */
enum { CVT_INT_BE = 1, CVT_INT_LE, CVT_FLOAT_BE, CVT_FLOAT_LE, CVT_REAL_BE, CVT_REAL_LE };

#ifdef __cplusplus
extern "C" {
#endif

/* The codes of this machine's numbers. */
int  cvtNativeInt(void);
int  cvtNativeFloat(void);
int  cvtNativeReal(void);

/* n values from src to dst, from one byte order to the other. src and dst may be the same, and need no alignment; n
   below 1 does nothing. May not return: a type that is none of the two codes of its kind, "Invalid srcType <%d>",
   "Invalid dstType <%d>". */
void cvtConvInts(const void *src, void *dst, int srcType, int dstType, int n);
void cvtConvFloats(const void *src, void *dst, int srcType, int dstType, int n);
void cvtConvReals(const void *src, void *dst, int srcType, int dstType, int n);

#ifdef __cplusplus
}
#endif
#endif
