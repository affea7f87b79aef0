#ifndef IOP_IOP_H
#define IOP_IOP_H

/* iop.h: one handle for every way of holding data, and the typed, keyed reads and writes on it.
 *
 * A data file is a stream of tokens: strings, integers, reals and floats, read in the order they were written. The
 * suffix of a name decides the storage form: .B .Z .H .C, anything else is text. One call means the same for every
 * form: byte orders, white space and blocks are this layer's business.
 *
 *     iopHd *fh = iopOpenFile(name, iopGetFileOpt(name) | IOP_READ);
 *     iopGetKeyInt(fh, "nNodes", &nNodes);
 *     iopNeed(fh, 3 * (int64_t) nNodes, 'r');            before anything is sized by a count that a file gave
 *     iopGetKeyReals(fh, "crd", 3, nNodes, crd);
 *     iopCloseFile(fh);
 *
 * Failures. No function here returns an error: what fails does not return (base/sys.h). Functions of which this header
 * says "never fails" are the exception. Most texts end in the token diagnostic of iopFileInfo. A failing open gives
 * its handle back; after any other failure the handle is still open and whoever lands at the trap may close it.
 *
 * Waiting. The solver may still be writing. Whoever meets the end of the data, or a file to be read that is not there,
 * waits a second and looks again, twice at most (sixty times with IOP_LONG_WAIT) in one call, and fails then ("EOF
 * ..."). The exceptions, which tell the end of the data by their result at once: iopGetIfStr, iopGetLine, and the
 * functions of optional items. In a text a word, number or line that reaches to the end of the file may be cut: all
 * functions read it anew after a second, and take it as it stands if the file ends at the same place then.
 *
 * Counts and sizes below 0 fail. Tables are given as n1 columns and n2 rows, stored row by row: n1 runs fastest. */

#include <stdint.h>
#include <sys/types.h>
#include <time.h>

/* The option word: exactly one form, and at least one of read and write (both: read wins). */
enum {
    IOP_READ          = 0x1,
    IOP_WRITE         = 0x2,
    IOP_APPEND        = 0x4,        /* with IOP_WRITE: append rather than replace; an HDF5 file is replaced all the
                                       same, a file in a container is not, and a compressed one fails */

    IOP_ASCII         = 0x10,       /* text                                                           */
    IOP_BINARY        = 0x20,       /* tagged binary, suffix .B                                       */
    IOP_COMPRESSED    = 0x40,       /* text through a compression pipe, suffix .Z                     */
    IOP_HDF           = 0x80,       /* HDF5 file, suffix .H                                           */
    IOP_HDF_CONTAINER = 0x100,      /* HDF5 container of files, suffix .C                             */
    IOP_FORMS         = IOP_ASCII | IOP_BINARY | IOP_COMPRESSED | IOP_HDF | IOP_HDF_CONTAINER,

    IOP_RSH           = 0x1000,     /* the handle wraps a remote shell's pipe                         */
    IOP_SOCKET        = 0x2000,     /* the handle wraps a socket                                      */
    IOP_DELETE        = 0x10000,    /* remove the file when it is closed; HDF5 files stay             */
    IOP_LONG_WAIT     = 0x20000,    /* wait up to 60 seconds instead of 2                             */
    IOP_BASENAME      = 0x40000,    /* drop all up to the last / of the name                          */
    IOP_LINE_BUFFER   = 0x100000,   /* what is written goes out line by line                          */
    IOP_NO_BUFFER     = 0x200000,   /* what is written goes out at once                               */
    IOP_RAW           = 0x400000,   /* binary: no suffix and no tag; text: as bytes                   */
    IOP_VERBOSE       = 0x2000000,  /* say what a remote shell launch does                            */
    IOP_REC           = 0x4000000   /* record file; needs IOP_BINARY                                  */
};

typedef struct iopHd  iopHd;      /* fields: iop/iopInt.h */
typedef struct iopDir iopDir;

/* Which file it is: its place, its size and its last change. The time of the contents can be put back; the time of the
   record of the file cannot. */
typedef struct iopFileId {
    dev_t           dev;
    ino_t           ino;
    off_t           size;
    struct timespec changed, recordChanged;
} iopFileId;

#ifdef __cplusplus
extern "C" {
#endif

/* ---- files ---- */

/* A handle with nothing opened behind it: for what wraps something else than a file. Fails for a name of 1024
   characters or more, for not exactly one form, for neither read nor write, for a form that is not read yet. */
iopHd *iopNew(const char *name, int opt);

/* Opens a file. A suffix of the name is cut and the form's own is put there (none for text, none for a raw binary one).
   A binary file's tag is read and checked, or written; an HDF5 file must have its groups, or gets them. A compressed
   file that is not there shows as the end of the data. An HDF5 file that is there but not whole fails at once, without
   waiting; other handles that have it open as it was before it changed lose it: they can be closed but no longer read.
   Fails as iopNew does, and if the file cannot be had. The caller owns the handle up to iopCloseFile. */
iopHd *iopOpenFile(const char *name, int opt);

/* Closes and recycles; also removes the file with IOP_DELETE. Fails for a closed handle, and if what was written did
   not reach the disk. */
void iopCloseFile(iopHd *hd);

/* 1 if the file of the form in opt exists and can be read, else 0. Read or write need not be set. Changes nothing and
   does not wait. Fails for a name of 1024 characters or more and for not exactly one form. */
int iopCheckFile(const char *name, int opt);

/* The form bit that the name's suffix stands for. Never fails. */
int iopGetFileOpt(const char *name);

/* The name on disk of the file that iopOpenFile(name, opt) opens: the suffix cut, the form's put there. text: 8192
   bytes; what is longer is cut. opt: one form, none standing for text, with IOP_BASENAME and IOP_RAW if they matter.
   Never fails. */
void iopGetDiskName(const char *name, int opt, char *text);

/* The name on disk of the file behind a handle; a file in a container has none of its own. name: `size` bytes, of which
   any name takes less than 1032. Never fails. */
void iopDiskName(const iopHd *hd, char *name, int size);

/* What a file of so many bytes on disk could hold in the form of opt, to test a count before anything is sized by it:
   the most bytes that its data may have, and the fewest that a number of `size` bytes in memory takes of them. opt:
   exactly one form. Never fail. */
int64_t iopMostBytes(int opt, int64_t bytes);
int     iopLeastBytes(int opt, int size);

/* Bytes, and seconds since the epoch of the last change, of exactly this name; 0 if there is none. Never fail. */
int64_t iopFileSize(const char *name);
int     iopFileTime(const char *name);

/* What tells a file on the disk from another one, or from itself after a change; 0, and an id of zeros, if there is
   none of exactly this name. Never fails. */
int iopLookAt(const char *name, iopFileId *id);
int iopSameFile(const iopFileId *a, const iopFileId *b);                /* 1 or 0; never fails */

/* 1 if the file was last changed so long ago that its times would tell the next change; 0 where they might not. And the
   seconds that it takes to be so if it does not change: 0 if it is. 1 if it was changed by a clock that is ahead of ours,
   as a file server's may be: it is never settled before ours is there. Never fail. */
int    iopIsSettled(const iopFileId *id);
double iopRest(const iopFileId *id);
int    iopIsAhead(const iopFileId *id);

/* Back to the first token; the counters and the last string start anew, and the bytes are asked for anew. Fails as
   iopSetLoc does. */
void iopRewind(iopHd *hd);

/* How far the file was read: "in ascii file <name> token <12> near <last string>". One text for all handles,
   overwritten by the next call. Never fails. */
const char *iopFileInfo(iopHd *hd);

/* The name as stored: without suffix, and without directory if IOP_BASENAME. Lives with the handle. Never fails. */
const char *iopFileName(const iopHd *hd);

/* ---- containers: files within an HDF5 file ---- */

/* Opens a file of a container that was opened with IOP_HDF_CONTAINER. Of the name counts what follows the last /, less
   its suffix. opt: IOP_READ, or with a container opened to write IOP_WRITE, which replaces a file of that name, or
   IOP_WRITE | IOP_APPEND, which goes on behind its last data set; of the forms only IOP_HDF may be set, and need not.
   What else stands in opt counts as for iopOpenFile. The caller owns the handle up to iopCloseFile; the container must
   stay open as long. A container that is read and has changed on the disk is opened anew first: files of it that were
   opened before can be closed but no longer read. Fails if it is no container, if only the file is to be written, if
   the file is not there or cannot be made, and if the container cannot be opened anew, for which it waits and which is
   tried again with the next file. */
iopHd *iopOpenHdfFile(iopHd *container, const char *name, int opt);

/* How many files are in a container, and the name of one, index from 0, in HDF5's own order by name; text: 8192 bytes.
   Fail for a handle that is no container, and for an index that is not there. */
int  iopGetNHdfFiles(iopHd *hd);
void iopGetHdfFileName(iopHd *hd, char *text, int index);

/* ---- directories ---- */

/* Scans a directory; the names are those of this moment. Fails for a name of 1024 characters or more ("dirName is too
   long ..."), and if there is no such directory or its name has more than 260 ("unable to open directory ..."). */
iopDir *iopOpenDir(const char *name);

/* 1 if iopOpenDir would return, else 0. Never fails. */
int iopIsDir(const char *name);

/* The next name, or null. "." and ".." are among them unless there is nothing else. It lives with the scan. Never
   fails. */
const char *iopReadDir(iopDir *dir);

/* Never fails. */
void iopCloseDir(iopDir *dir);

/* ---- tokens ---- */

/* The next string. text: 8192 bytes; a longer string fails. In a text file a string that begins with a double quote
   may hold blanks. */
void iopGetStrF(iopHd *hd, char *text);

/* The same without waiting for one to come, and without quotes: 1 if a string came, 0 at the end of the data. */
int iopGetIfStr(iopHd *hd, char *text);

/* The rest of the line without its end ("\n" or "\r\n"), for text only: 1, or 0 at the end of the data. Fails if the
   line has size - 1 characters or more ("Buffer overflow ..."). */
int iopGetLine(iopHd *hd, char *text, int size);

/* Writes one line, for text only: the newline is added. */
void iopPrintLine(iopHd *hd, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* The next n numbers to dest. In a text file numbers are read as scanf reads them, and what is no number fails. In an
   HDF5 file they are one data set, which must hold n numbers; integers may have any width but must fit, reals may be
   integers or floats there. Floats are not read from HDF5: no writer makes them. */
void iopGetIntF(iopHd *hd, int *dest, int n);
void iopGetRealF(iopHd *hd, double *dest, int n);
void iopGetFloatF(iopHd *hd, float *dest, int n);

/* Step over n numbers. On a binary file a seek, which does not mind the end of the file; the next read does. In an HDF5
   file one data set is passed over unseen. */
void iopGetIntDsp(iopHd *hd, int n);
void iopGetRealDsp(iopHd *hd, int n);
void iopGetFloatDsp(iopHd *hd, int n);

/* The next n numbers as bytes, in any form, text too. */
void iopGetBinInts(iopHd *hd, int *dest, int n);
void iopGetBinReals(iopHd *hd, double *dest, int n);

/* The next token must be this one: "data out of order: ...". A string that differs is read once more after a second. */
void iopCheckStr(iopHd *hd, const char *expected);
void iopCheckInt(iopHd *hd, int expected);

/* Writes a table of n2 rows of n1 integers. Text: with wrap, each row begins a line, of a hundred numbers at most;
   without, all stand in one line that is not ended. HDF5: one data set of extents n1, n2. */
void iopPutIntF(iopHd *hd, int *src, int n1, int n2, int wrap);

/* Writes n integers as bytes, in any form. src is the same afterwards, but may be turned round meanwhile. */
void iopPutBinInts(iopHd *hd, int *src, int n);

/* The place of the next token, to return to. It does not hold the counters. Asking never fails; going fails for what is
   no place of this file ("Unable to set location ...", "Invalid location ..."). The way back in a compressed file may
   be slow: beyond the last 16 KB it is decoded anew. A compressed file being written has no places. */
int64_t iopGetLoc(iopHd *hd);
void    iopSetLoc(iopHd *hd, int64_t loc);

/* How many tokens were read so far, the <12> of iopFileInfo. Never fails. */
int  iopGetTokens(const iopHd *hd);

/* 1 if going back in the file is done at once; 0 if it may mean to decode again all that stands before. Never fails. */
int  iopGoesBack(const iopHd *hd);

/* From here on what is decoded is kept, so that going back in it needs no second decoding: in a file without a name, in
   the folder that the variable TMPDIR tells or else /var/tmp, where all handles together take up to a quarter of the
   room. Where that cannot be done, once something was read, and for a form that goes back anyway, nothing changes. Never
   fails. */
void iopKeepDecoded(iopHd *hd);

/* To a place at which iopGetLoc and iopGetTokens gave these; last: the last string before it. Whoever fails from there
   on says the same as if all before it had been read. Fails as iopSetLoc does. */
void iopSetPlace(iopHd *hd, int64_t loc, int nTokens, const char *last);

/* ---- keyed items: the key, then a value, or nCols, nRows and the values ----

   Fail if the key, or a table's sizes, are not those given. Of optional items (Opt, If) one that is another, or the
   end of the data, leaves the place in the file and the destination as they were. */

void iopGetKeyStr(iopHd *hd, const char *key, char *text);                      /* text: 8192 bytes     */
void iopGetOptKeyStr(iopHd *hd, const char *key, char *text);
void iopGetKeyInt(iopHd *hd, const char *key, int *dest);
void iopGetOptKeyInt(iopHd *hd, const char *key, int *dest);
void iopGetKeyReal(iopHd *hd, const char *key, double *dest);
void iopGetOptKeyReal(iopHd *hd, const char *key, double *dest);

void iopGetKeyInts(iopHd *hd, const char *key, int n1, int n2, int *dest);      /* dest[n2][n1]         */
void iopGetOptKeyInts(iopHd *hd, const char *key, int n1, int n2, int *dest);
void iopGetKeyReals(iopHd *hd, const char *key, int n1, int n2, double *dest);

/* Step over a table of whatever size; one that the file cannot hold fails. */
void iopSkipInts(iopHd *hd, const char *key);
void iopSkipReals(iopHd *hd, const char *key);
void iopSkipRealsIf(iopHd *hd, const char *key);

/* Rows first to last - 1 of a table of n2 rows: dest[last - first][n1]. An empty range fails. */
void iopReadSubInts(iopHd *hd, const char *key, int n1, int n2, int first, int last, int *dest);
void iopReadSubReals(iopHd *hd, const char *key, int n1, int n2, int first, int last, double *dest);

/* Table of m rows of n reals; row i goes to dest + idx[i] * n, in the order of i. A null idx: row i to row i. The
   caller answers for idx[0] to idx[m - 1] lying within dest. */
void iopGetRealsIndexed(iopHd *hd, const char *key, int n, int m, const int *idx, double *dest);

/* The same, but the rows are added to those in dest: an index that comes twice gets both. */
void iopAddRealsIndexed(iopHd *hd, const char *key, int n, int m, const int *idx, double *dest);

/* Fails ("EOF ...") unless the rest of the file could hold n items of a kind: 'i' integers, 'r' reals, 'f' floats,
   's' strings. A negative n fails too. To be called with a count from the file before anything is sized by it. */
void iopNeed(iopHd *hd, int64_t n, char kind);

#ifdef __cplusplus
}
#endif
#endif
