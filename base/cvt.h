#ifndef BASE_CVT_H
#define BASE_CVT_H

/* cvt.h: byte-order conversions of 4-byte integers, 4-byte floats and 8-byte reals. */

enum { CVT_INT_BE = 1, CVT_INT_LE, CVT_FLOAT_BE, CVT_FLOAT_LE, CVT_REAL_BE, CVT_REAL_LE };

#ifdef __cplusplus
extern "C" {
#endif

int  cvtNativeInt(void);
int  cvtNativeFloat(void);
int  cvtNativeReal(void);
void cvtConvInts(const void *src, void *dst, int srcType, int dstType, int n);
void cvtConvFloats(const void *src, void *dst, int srcType, int dstType, int n);
void cvtConvReals(const void *src, void *dst, int srcType, int dstType, int n);

#ifdef __cplusplus
}
#endif
#endif
