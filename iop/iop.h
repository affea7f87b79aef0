#ifndef IOP_IOP_H
#define IOP_IOP_H

/* iop.h: one handle for every way of holding data, and the typed, keyed reads and writes on it.
 *
 * A data file is a stream of tokens: strings, integers, reals and floats, read in the order they were written. The
 * suffix of a name decides the storage form: .B .Z .H .C, anything else is text. No function here returns an error:
 * what fails does not return (base/sys.h), and its text ends in the token diagnostic of iopFileInfo. */

#include <stdint.h>
#include <stdio.h>

enum {
    IOP_READ = 0x1, IOP_WRITE = 0x2, IOP_APPEND = 0x4,
    IOP_ASCII = 0x10, IOP_BINARY = 0x20, IOP_COMPRESSED = 0x40, IOP_HDF = 0x80, IOP_HDF_CONTAINER = 0x100,
    IOP_FORMS = IOP_ASCII | IOP_BINARY | IOP_COMPRESSED | IOP_HDF | IOP_HDF_CONTAINER,
    IOP_RSH = 0x1000, IOP_SOCKET = 0x2000,
    IOP_DELETE = 0x10000, IOP_LONG_WAIT = 0x20000, IOP_BASENAME = 0x40000,
    IOP_LINE_BUFFER = 0x100000, IOP_NO_BUFFER = 0x200000, IOP_RAW = 0x400000,
    IOP_VERBOSE = 0x2000000, IOP_REC = 0x4000000
};

typedef struct iopHd  iopHd;      /* fields: iop/iopInt.h */
typedef struct iopDir iopDir;

#ifdef __cplusplus
extern "C" {
#endif

/* Files */
iopHd      *iopNew(const char *name, int opt);
iopHd      *iopOpenFile(const char *name, int opt);
void        iopCloseFile(iopHd *hd);
int         iopCheckFile(const char *name, int opt);
int         iopGetFileOpt(const char *name);
int64_t     iopFileSize(const char *name);
int         iopFileTime(const char *name);
void        iopRewind(iopHd *hd);
const char *iopFileInfo(iopHd *hd);
const char *iopFileName(const iopHd *hd);       /* the stored name, its suffix cut */

/* Directories */
iopDir     *iopOpenDir(const char *name);
int         iopIsDir(const char *name);
const char *iopReadDir(iopDir *dir);
void        iopCloseDir(iopDir *dir);

/* Tokens */
void    iopGetStrF(iopHd *hd, char *text);       /* text: 8192 bytes */
int     iopGetIfStr(iopHd *hd, char *text);
int     iopGetLine(iopHd *hd, char *text, int size);
void    iopPrintLine(iopHd *hd, const char *format, ...) __attribute__((format(printf, 2, 3)));
void    iopGetIntF(iopHd *hd, int *dest, int n);
void    iopGetRealF(iopHd *hd, double *dest, int n);
void    iopGetFloatF(iopHd *hd, float *dest, int n);
void    iopGetIntDsp(iopHd *hd, int n);
void    iopGetRealDsp(iopHd *hd, int n);
void    iopGetFloatDsp(iopHd *hd, int n);
void    iopGetBinInts(iopHd *hd, int *dest, int n);
void    iopGetBinReals(iopHd *hd, double *dest, int n);
void    iopCheckStr(iopHd *hd, const char *expected);
void    iopCheckInt(iopHd *hd, int expected);
void    iopPutIntF(iopHd *hd, int *src, int n1, int n2, int wrap);
void    iopPutBinInts(iopHd *hd, int *src, int n);
int64_t iopGetLoc(iopHd *hd);
void    iopSetLoc(iopHd *hd, int64_t loc);

/* Keyed items */
void iopGetKeyStr(iopHd *hd, const char *key, char *text);
void iopGetOptKeyStr(iopHd *hd, const char *key, char *text);
void iopGetKeyInt(iopHd *hd, const char *key, int *dest);
void iopGetOptKeyInt(iopHd *hd, const char *key, int *dest);
void iopGetKeyInts(iopHd *hd, const char *key, int n1, int n2, int *dest);
void iopGetOptKeyInts(iopHd *hd, const char *key, int n1, int n2, int *dest);
void iopGetKeyReal(iopHd *hd, const char *key, double *dest);
void iopGetOptKeyReal(iopHd *hd, const char *key, double *dest);
void iopGetKeyReals(iopHd *hd, const char *key, int n1, int n2, double *dest);
void iopSkipInts(iopHd *hd, const char *key);
void iopSkipReals(iopHd *hd, const char *key);
void iopSkipRealsIf(iopHd *hd, const char *key);
void iopReadSubInts(iopHd *hd, const char *key, int n1, int n2, int first, int last, int *dest);
void iopReadSubReals(iopHd *hd, const char *key, int n1, int n2, int first, int last, double *dest);
/* Table of m rows of n reals; row i goes to dest + idx[i] * n. A null idx: row i to row i. */
void iopGetRealsIndexed(iopHd *hd, const char *key, int n, int m, const int *idx, double *dest);

/* Fails ("EOF ...") unless the rest of the file could hold n items of a kind: 'i' integers, 'r' reals, 'f' floats,
   's' strings. A negative n fails too. To be called with a count from the file before anything is sized by it. */
void iopNeed(iopHd *hd, int64_t n, char kind);

#ifdef __cplusplus
}
#endif
#endif
