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
    int64_t end;                            /* an end of the data at which a token was waited for; -1: none */
} iopAhead;

struct iopHd {
    FILE           *fp;                     /* stream or pipe; null for the forms that have none            */
    struct iopSock *sock;
    int             opt;                    /* IOP_...; 0 after close                                       */
    const char     *function;               /* the operation under way, in whose name it fails              */
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
    int             keptFd;                 /* of what has come through the pipe; -1: it is not kept        */
    int64_t         nKept;                  /* bytes, from the start on; the pipe stands behind the last    */
    int64_t         mostKept;               /* when to look again if there is room for more                 */
    int             sharesFile;             /* hdfFile and hdfFiles belong to the container's handle        */
    iopFileId       id;                     /* of an HDF5 file that is read, just before it was opened      */
    int             settled;                /* what is written to it after that shows in its times          */
    iopHd          *next;                   /* in the list of closed handles, or of HDF5 files being read   */
};

/* A kind of number. The text form reads it by `scan`: one number from the read position to dest (null: dropped) with
   the rules of scanf; 1 if it came, 0 if the data end first, -1 if something else stands there. `scanWhole` is for the
   many: it reads up to n numbers as long as they are plain and whole in what was read ahead, and tells how many. */
typedef struct iopNum {
    char         kind;                      /* as in iopNeed                                                */
    int          size;                      /* bytes in memory and in binary files                          */
    const char  *get, *skip, *getBin;       /* the operations on it, as messages name them                  */
    int iopHd::*native, iopHd::*file;       /* the handle's type codes of this kind                         */
    void       (*convert)(const void *src, void *dst, int srcType, int dstType, int n);
    int        (*scan)(iopHd *hd, void *dest);
    int64_t    (*scanWhole)(iopHd *hd, void *dest, int64_t n);
} iopNum;

/* What a storage form must do. Checks of access and counts were made before, tokens are counted behind, unless told
   otherwise. A read that must succeed waits for a writer (iopWait) and fails with "EOF ...". */
typedef struct iopForm {
    const char *name;                       /* in messages                                                  */
    int         bits;                       /* the option bits that choose it                               */
    const char *suffix;                     /* of its files, behind the stored name; "" for none            */
    int         nAhead;                     /* bytes to read ahead at a time                                */
    int         nKeep;                      /* bytes to keep behind the location, for a way back            */
    int         perNumber;                  /* fewest bytes of a number in the stream; 0: its size          */
    int         expand;                     /* most bytes of the stream that one on the disk stands for     */

    /* Opens the stored name; budget: the seconds that are left to wait. What fails gives the handle back. */
    void    (*open)   (iopHd *hd, int *budget);
    /* Also removes a file that was to be removed. 0, errno: what was written is not on the disk. Never fails, whatever
       is open, since iopGiveUp calls it. */
    int     (*close)  (iopHd *hd);

    /* text: SYS_TEXT bytes. 1, or 0 at the end of the data unless the string must come. */
    int     (*getStr) (iopHd *hd, char *text, int must);
    int     (*getLine)(iopHd *hd, char *text, int size);          /* 1, or 0 at the end of the data         */
    int     (*putLine)(iopHd *hd, const char *format, va_list args);      /* 0: not written                 */

    /* The next n numbers, n above 0: in the form's own way, as bytes, and stepped over. */
    void    (*getNums)(iopHd *hd, const iopNum *num, void *dest, int64_t n);
    void    (*getBin) (iopHd *hd, const iopNum *num, void *dest, int64_t n);
    void    (*skip)   (iopHd *hd, const iopNum *num, int64_t n);
    /* Rows first to first + some - 1 of a table of m rows of n reals, to rows. The first call has first 0, the next
       ones go on where the last one ended, up to row m - 1. add: they are for an addition, which messages may tell. */
    void    (*getRows)(iopHd *hd, int n, int m, int first, int some, int add, double *rows);
    /* n numbers of an array to dest, those before and behind them stepped over. Counts all of them. */
    void    (*getSub) (iopHd *hd, const iopNum *num, int64_t before, int64_t n, int64_t behind, void *dest);

    /* n2 rows of n1 integers, none of them 0; and n integers as bytes, as they stand: 0 if they were not written. */
    void    (*putInts)(iopHd *hd, const int *src, int n1, int n2, int wrap);
    int     (*putBin) (iopHd *hd, const int *src, int64_t n);

    /* Bytes of a stream from behind what was read ahead: at most n, 0 at the end, -1 and errno. Never fails. */
    int64_t (*read)   (iopHd *hd, void *dest, int64_t n);
    /* 1 if the rest of the file could hold n items that take `size` bytes in the binary form. Never fails. */
    int     (*holds)  (iopHd *hd, int64_t n, int size);
    int64_t (*getLoc) (iopHd *hd);                                /* never fails                            */
    /* reread: what was read ahead is forgotten. 0: there is no such place, or none to go to. */
    int     (*setLoc) (iopHd *hd, int64_t loc, int reread);
} iopForm;

extern const iopNum iopInts, iopReals, iopFloats;         /* iopLow.cpp */

/* Fails in the name of the operation that was asked for, not of the routine in which it got stuck. */
#define iopFail(hd, ...) sysFailIn((hd)->function, __VA_ARGS__)

#ifdef __cplusplus
extern "C" {
#endif

/* iopFile.cpp */
/* Fails, after the handle was closed and recycled: for a failure in which its owner cannot do that. */
SYS_NORETURN void iopGiveUp(iopHd *hd, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* iopStream.cpp: what the forms on a stdio stream share. Reading goes past stdio: see there. What stands in a column of
   iopForm is told there; of the others, reading ahead fails for want of memory, and the rest never. */
FILE   *iopOpenToRead(const char *name, const char *mode);    /* null, errno: not there, or no plain file   */
int     iopStreamOpen(iopHd *hd, int *budget);            /* 0, errno: could not be had; waits when reading */
void    iopStreamBuffer(iopHd *hd);                       /* as the option word wants it                    */
int     iopStreamClose(iopHd *hd);
int64_t iopStreamRead(iopHd *hd, void *dest, int64_t n);
int64_t iopStreamGetLoc(iopHd *hd);
int     iopStreamSetLoc(iopHd *hd, int64_t loc, int reread);
int64_t iopStreamLeft(iopHd *hd);                         /* bytes from here to the end now, at the most    */
void    iopStreamGetRows(iopHd *hd, int n, int m, int first, int some, int add, double *rows);
void    iopStreamGetSub(iopHd *hd, const iopNum *num, int64_t before, int64_t n, int64_t behind, void *dest);
int     iopFill(iopHd *hd);                               /* reads ahead; bytes that came, 0 at the end     */
int64_t iopReadBytes(iopHd *hd, void *dest, int64_t n, int *budget);      /* bytes that came; waits for more */
int     iopBudget(const iopHd *hd);                       /* seconds that one operation may wait            */
int     iopWait(int *budget);                             /* waits a second; 0 if the budget is used up     */

/* The forms' functions are told by the columns of iopForm that they stand in, and the iopScan...s by those of iopNum.
   An open that fails gives the handle back (iopGiveUp); what else fails leaves it open. */

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

extern int64_t iopKeptShare;                              /* of the room, one part may be kept; in tests less */
void    iopZipOpen(iopHd *hd, int *budget);
int     iopZipClose(iopHd *hd);
int64_t iopZipRead(iopHd *hd, void *dest, int64_t n);
int     iopZipSetLoc(iopHd *hd, int64_t loc, int reread);

/* iopHdf.cpp: HDF5 files, containers and their members */
void    iopHdfOpen(iopHd *hd, int *budget);
int     iopHdfClose(iopHd *hd);
int     iopHdfGetStr(iopHd *hd, char *text, int must);
void    iopHdfGetNums(iopHd *hd, const iopNum *num, void *dest, int64_t n);
void    iopHdfSkip(iopHd *hd, const iopNum *num, int64_t n);
void    iopHdfGetRows(iopHd *hd, int n, int m, int first, int some, int add, double *rows);
void    iopHdfGetSub(iopHd *hd, const iopNum *num, int64_t before, int64_t n, int64_t behind, void *dest);
void    iopHdfPutInts(iopHd *hd, const int *src, int n1, int n2, int wrap);
int     iopHdfPutBin(iopHd *hd, const int *src, int64_t n);
int     iopHdfHolds(iopHd *hd, int64_t n, int size);
int64_t iopHdfGetLoc(iopHd *hd);
int     iopHdfSetLoc(iopHd *hd, int64_t loc, int reread);

/* iopRows.cpp: the next m rows of n reals, n * m above 0, row i to (or, with add, on top of) dest + idx[i] * n. A null
   idx: to row i. Counts the tokens. May not return, as the form's getRows. */
void    iopScatterRows(iopHd *hd, int n, int m, const int *idx, double *dest, int add);

/* iopLow.cpp: the typed operations with the kind of number as an argument and 64-bit counts, which fail as iopGetIntF
   and iopGetIntDsp do. */
void    iopGetNums(iopHd *hd, const iopNum *num, void *dest, int64_t n);
void    iopSkipNums(iopHd *hd, const iopNum *num, int64_t n);
void    iopCount(iopHd *hd, int64_t n);                   /* so many tokens more; never fails               */
void    iopToRead(iopHd *hd, const char *function);       /* begins an operation; fails if hd is not to be read */

#ifdef __cplusplus
}
#endif
#endif
