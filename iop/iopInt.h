#ifndef IOP_IOPINT_H
#define IOP_IOPINT_H

/* iopInt.h: shared by the sources of this folder and by nobody else: the file handle, what a storage form must do,
 * what a kind of number is, and reading ahead on a stream.
 *
 * To add a storage form: write its functions in a file of its own, declare them below, and fill its row of the table
 * in iopFile.cpp. Everything above the row (checks, counting of tokens, the last string, keyed items) stays. */

#include <sys/types.h>

#include "base/sys.h"
#include "iop/iop.h"

struct iopForm;
struct iopSock;

/* Bytes of a stream that were read ahead of their use. The descriptor stands behind the last one. */
typedef struct iopAhead {
    char   *data;                           /* made at the first read, kept when the handle is recycled     */
    int64_t start;                          /* location of data[0] in the stream                            */
    int     pos, size;                      /* bytes taken, bytes held                                      */
    int     failed;                         /* the last read did not meet the end: it could not be done     */
} iopAhead;

struct iopHd {
    FILE           *fp;                     /* stream or pipe; null for the forms that have none            */
    struct iopSock *sock;
    int             opt;                    /* IOP_...; 0 after close                                       */
    int             nativeInt, nativeReal, nativeFloat;     /* CVT_...                                      */
    int             fileInt, fileReal, fileFloat;           /* as native, until a tag says otherwise        */
    int             nTokens;                /* read or written so far                                       */
    int             nDataSets;              /* number of the next HDF5 data set                             */
    int64_t         hdfFile, hdfFiles, hdfData;             /* ids, 64 bits in newer HDF5; -1: none         */
    int64_t         dataStart;              /* stream location behind tag and record header                 */
    int64_t         recMetaLoc;             /* where a record file being written tells its valid index      */
    char           *fileName;               /* SYS_NAME bytes; the suffix is cut                            */
    char           *lastToken;              /* SYS_NAME bytes; the head of the last string read             */

    const iopForm  *form;                   /* its row of the table of forms                                */
    iopAhead        ahead;
    pid_t           pid;                    /* the program at the other end of a pipe; 0: none              */
    int             sharesFile;             /* hdfFile and hdfFiles belong to the container's handle        */
    iopHd          *next;                   /* in the list of closed handles                                */
};

/* A kind of number. The text form reads it by `scan`: one number from the read position to dest (null: dropped) with
   the rules of scanf; 1 if it came, 0 if the data end first, -1 if something else stands there. `scanWhole` is for the
   many: it reads up to n numbers as long as they are plain and whole in what was read ahead, and tells how many. */
typedef struct iopNum {
    char         kind;                      /* as in iopNeed                                                */
    int          size;                      /* bytes in memory and in binary files                          */
    int iopHd::*native, iopHd::*file;       /* the handle's type codes of this kind                         */
    void       (*convert)(const void *src, void *dst, int srcType, int dstType, int n);
    int        (*scan)(iopHd *hd, void *dest);
    int64_t    (*scanWhole)(iopHd *hd, void *dest, int64_t n);
} iopNum;

/* What a storage form must do. A read that must succeed waits for a writer (iopWait) and fails with "EOF ...". */
typedef struct iopForm {
    const char *name;                       /* in messages                                                  */
    int         bits;                       /* the option bits that choose it                               */
    const char *suffix;                     /* of its files, behind the stored name; "" for none            */
    int         nAhead;                     /* bytes to read ahead at a time                                */
    int         nKeep;                      /* bytes to keep behind the location, for a way back            */
    int         perNumber;                  /* fewest bytes of a number in the stream; 0: its size          */
    int         expand;                     /* most bytes of the stream that one on the disk stands for     */
    void    (*open)   (iopHd *hd, int *budget);
    int     (*close)  (iopHd *hd);          /* also removes a file that was to be removed; 0, errno: what was
                                               written is not on the disk. Does not fail: iopGiveUp calls it */
    int     (*getStr) (iopHd *hd, char *text, int must);          /* not must: 0 at the end of the data      */
    int     (*getLine)(iopHd *hd, char *text, int size);          /* 0 at the end of the data               */
    int     (*putLine)(iopHd *hd, const char *format, va_list args);                  /* 0: not written     */
    void    (*getNums)(iopHd *hd, const iopNum *num, void *dest, int64_t n);          /* n above 0          */
    void    (*getBin) (iopHd *hd, const iopNum *num, void *dest, int64_t n);          /* never as text      */
    void    (*skip)   (iopHd *hd, const iopNum *num, int64_t n);
    void    (*getRows)(iopHd *hd, int n, int m, int first, int some, double *rows);   /* see iopRows.cpp    */
    /* n numbers of an array, those before and behind them stepped over; counts all of them                    */
    void    (*getSub) (iopHd *hd, const iopNum *num, int64_t before, int64_t n, int64_t behind, void *dest);
    void    (*putInts)(iopHd *hd, const int *src, int n1, int n2, int wrap);
    int     (*putBin) (iopHd *hd, const int *src, int64_t n);                          /* 0: not written     */
    int     (*holds)  (iopHd *hd, int64_t n, int size);   /* could the rest hold n items of a binary size?   */
    int64_t (*getLoc) (iopHd *hd);
    int     (*setLoc) (iopHd *hd, int64_t loc, int reread);       /* reread: forget what was read ahead      */
} iopForm;

extern const iopNum iopInts, iopReals, iopFloats;         /* iopLow.cpp */

#ifdef __cplusplus
extern "C" {
#endif

/* iopFile.cpp */
void iopDiskName(const iopHd *hd, char *name, int size);  /* the stored name with the form's suffix         */
/* Fails in the name of `function`, after the handle was closed and recycled: for a failure in which its owner cannot
   do that. */
SYS_NORETURN void iopGiveUp(iopHd *hd, const char *function, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

/* iopStream.cpp: what the forms on a stdio stream share. Reading goes past stdio: see there. */
FILE   *iopOpenToRead(const char *name, const char *mode);    /* null, errno: not there, or no plain file      */
int     iopStreamOpen(iopHd *hd, int *budget);            /* 0, errno: could not be had; waits when reading */
void    iopStreamBuffer(iopHd *hd);                        /* as the option word wants it                     */
int     iopStreamClose(iopHd *hd);
int64_t iopStreamGetLoc(iopHd *hd);
int     iopStreamSetLoc(iopHd *hd, int64_t loc, int reread);
int64_t iopStreamLeft(iopHd *hd);                         /* bytes from here to the end of the file now     */
void    iopStreamGetRows(iopHd *hd, int n, int m, int first, int some, double *rows);
void    iopStreamGetSub(iopHd *hd, const iopNum *num, int64_t before, int64_t n, int64_t behind, void *dest);
int     iopFill(iopHd *hd);                               /* reads ahead; bytes that came, 0 at the end     */
int64_t iopReadBytes(iopHd *hd, void *dest, int64_t n, int *budget);      /* bytes that came; waits for more */
int     iopBudget(const iopHd *hd);                       /* seconds that one operation may wait            */
int     iopWait(int *budget);                             /* waits a second; 0 if the budget is used up     */

/* iopText.cpp, iopBin.cpp, iopZip.cpp: the forms on a stream */
void    iopTextOpen(iopHd *hd, int *budget);
int     iopTextGetStr(iopHd *hd, char *text, int must);
int     iopTextGetLine(iopHd *hd, char *text, int size);
int     iopTextPutLine(iopHd *hd, const char *format, va_list args);
void    iopTextGetNums(iopHd *hd, const iopNum *num, void *dest, int64_t n);
void    iopTextSkip(iopHd *hd, const iopNum *num, int64_t n);
void    iopTextPutInts(iopHd *hd, const int *src, int n1, int n2, int wrap);
int     iopTextHolds(iopHd *hd, int64_t n, int size);
int     iopScanInt(iopHd *hd, void *dest);
int     iopScanReal(iopHd *hd, void *dest);
int     iopScanFloat(iopHd *hd, void *dest);
int64_t iopScanInts(iopHd *hd, void *dest, int64_t n);
int64_t iopScanReals(iopHd *hd, void *dest, int64_t n);
int64_t iopScanFloats(iopHd *hd, void *dest, int64_t n);

extern int64_t iopBinSlice;                               /* values per call of stdio; smaller in tests     */
void    iopBinOpen(iopHd *hd, int *budget);
int     iopBinGetStr(iopHd *hd, char *text, int must);
int     iopBinNoGetLine(iopHd *hd, char *text, int size);
int     iopBinNoPutLine(iopHd *hd, const char *format, va_list args);
void    iopBinGetNums(iopHd *hd, const iopNum *num, void *dest, int64_t n);
void    iopBinSkip(iopHd *hd, const iopNum *num, int64_t n);
void    iopBinPutInts(iopHd *hd, const int *src, int n1, int n2, int wrap);
int     iopBinPutBin(iopHd *hd, const int *src, int64_t n);
int     iopBinHolds(iopHd *hd, int64_t n, int size);

void    iopZipOpen(iopHd *hd, int *budget);
int     iopZipClose(iopHd *hd);
int     iopZipHolds(iopHd *hd, int64_t n, int size);
int     iopZipSetLoc(iopHd *hd, int64_t loc, int reread);

/* iopHdf.cpp: HDF5 files, containers and their members */
void    iopHdfOpen(iopHd *hd, int *budget);
int     iopHdfClose(iopHd *hd);
int     iopHdfGetStr(iopHd *hd, char *text, int must);
void    iopHdfGetNums(iopHd *hd, const iopNum *num, void *dest, int64_t n);
void    iopHdfSkip(iopHd *hd, const iopNum *num, int64_t n);
void    iopHdfGetRows(iopHd *hd, int n, int m, int first, int some, double *rows);
void    iopHdfGetSub(iopHd *hd, const iopNum *num, int64_t before, int64_t n, int64_t behind, void *dest);
void    iopHdfPutInts(iopHd *hd, const int *src, int n1, int n2, int wrap);
int     iopHdfPutBin(iopHd *hd, const int *src, int64_t n);
int     iopHdfHolds(iopHd *hd, int64_t n, int size);
int64_t iopHdfGetLoc(iopHd *hd);
int     iopHdfSetLoc(iopHd *hd, int64_t loc, int reread);

/* iopRows.cpp: the next m rows of n reals, row i to (or, with add, on top of) dest + idx[i] * n */
void    iopScatterRows(iopHd *hd, int n, int m, const int *idx, double *dest, int add);

/* iopLow.cpp: the typed operations with the kind of number as an argument and 64-bit counts */
void    iopCount(iopHd *hd, int64_t n);
void    iopCheckReadable(const iopHd *hd);
void    iopGetNums(iopHd *hd, const iopNum *num, void *dest, int64_t n);
void    iopSkipNums(iopHd *hd, const iopNum *num, int64_t n);

#ifdef __cplusplus
}
#endif
#endif
