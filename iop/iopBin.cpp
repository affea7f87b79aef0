/* iopBin.cpp: the tagged binary form: one ascii line that tells the writer's byte orders, then the tokens' bytes.
 *
 *   QUENTA <version> <integer type> <integer size> <real type> <real size>\n
 *
 * Behind the newline there is no structure but the tokens: integers of 4 bytes, reals of 8, floats of 4 in the byte
 * order of the reals, strings in blocks of 8 bytes up to the block that holds a zero byte. Values are read straight
 * into the caller's array and turned round in place when the writer's byte order is the other one. */

#include "iop/iopInt.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include "base/cvt.h"

static const char magic[] = "QUENTA";

enum {
    MAGIC = sizeof magic - 1,
    MAX_TAG = SYS_TEXT + 64,                /* a version word may be as long as a text      */
    BLOCK = 8                               /* bytes of a string are a multiple of this     */
};

int64_t iopBinSlice = 0x4000000;            /* values that one call of stdio is trusted with */

/* ---- the tag ---- */

/* The tag line up to its newline, which is dropped. 0: the file ended before, or it is no tag; tag holds what came. */
static int readTag(iopHd *hd, char *tag, int *budget)
{
    const int n = (int) iopReadBytes(hd, tag, MAGIC, budget);
    tag[n] = 0;
    if (strcmp(tag, magic) != 0) return 0;
    char *to = tag + MAGIC;
    int came = 0;
    for (; to < tag + MAX_TAG; ++to) {
        came = (int) iopReadBytes(hd, to, 1, budget);
        if (!came || *to == '\n' || *to == 0) break;
    }
    const int done = to < tag + MAX_TAG && came && *to == '\n';
    *to = 0;
    return done;
}

/* What stands behind the next number of a tag; null: no number came, or an earlier one was missing. */
static const char *tagNumber(const char *at, int *value)
{
    char *end;
    if (!at || *at != ' ') return NULL;
    const long number = strtol(at, &end, 10);
    if (end == at || number < INT_MIN || number > INT_MAX) return NULL;
    *value = (int) number;
    return end;
}

/* A magic word, a blank, the version word, and four numbers. */
static int parseTag(const char *tag, int *intType, int *intSize, int *realType, int *realSize)
{
    const char *at = tag + MAGIC + strspn(tag + MAGIC, " ");
    if (at == tag + MAGIC) return 0;
    at = tagNumber(at + strcspn(at, " "), intType);
    at = tagNumber(at, intSize);
    at = tagNumber(at, realType);
    at = tagNumber(at, realSize);
    return at && at[strspn(at, " \r")] == 0;
}

static void checkTag(iopHd *hd, int *budget)
{
    char tag[MAX_TAG + 1];
    int intSize, realSize;
    if (!readTag(hd, tag, budget) || !parseTag(tag, &hd->fileInt, &intSize, &hd->fileReal, &realSize)) {
        tag[SYS_NAME] = 0;
        iopGiveUp(hd, "Invalid binary tag <%s>; %s", tag, iopFileInfo(hd));
    }
    if (intSize != 4) iopGiveUp(hd, "Incompatible integers <%d> vs. <%d>", intSize, 4);
    if (realSize != 8) iopGiveUp(hd, "Incompatible reals <%d> vs. <%d>", realSize, 8);
    if (hd->fileReal == CVT_REAL_BE) hd->fileFloat = CVT_FLOAT_BE;
    if (hd->fileReal == CVT_REAL_LE) hd->fileFloat = CVT_FLOAT_LE;
}

/* The program's version as one word, or we could not read the tag. */
static void versionWord(char word[SYS_TEXT])
{
    const char *version = sysGetVersion();
    snprintf(word, SYS_TEXT, "%s", *version ? version : "_");
    for (char *c = word; (c = strpbrk(c, " \t\n\v\f\r")); ) *c = '_';
}

static void writeTag(iopHd *hd)
{
    char version[SYS_TEXT];
    versionWord(version);
    const int n = fprintf(hd->fp, "%s %s %d %d %d %d\n", magic, version, hd->fileInt, 4, hd->fileReal, 8);
    if (n < 0 || fflush(hd->fp) != 0) iopGiveUp(hd, "unable to write the tag %s", iopFileInfo(hd));
}

void iopBinOpen(iopHd *hd, int *budget)
{
    if (!iopStreamOpen(hd, budget)) {
        const int error = errno;
        char name[SYS_NAME + 8];
        iopDiskName(hd, name, sizeof name);
        iopGiveUp(hd, "unable to open binary file <%s>; %s", name, strerror(error));
    }
    if (hd->opt & IOP_RAW) return;
    if (hd->opt & IOP_READ) checkTag(hd, budget);
    else if (!(hd->opt & IOP_APPEND)) writeTag(hd);
}

/* ---- strings and lines ---- */

/* An optional string that did not come whole leaves the location where it was: its writer may go on. */
int iopBinGetStr(iopHd *hd, char *text, int must)
{
    const int64_t start = iopStreamGetLoc(hd);
    int budget = must ? iopBudget(hd) : 0;
    for (int n = 0; n < SYS_TEXT; n += BLOCK) {
        const int64_t came = iopReadBytes(hd, text + n, BLOCK, &budget);
        if (came < BLOCK) {
            text[n + came] = 0;
            if (must || hd->ahead.failed) iopFail(hd, "EOF %s", iopFileInfo(hd));
            iopStreamSetLoc(hd, start, 0);
            return 0;
        }
        if (memchr(text + n, 0, BLOCK)) return 1;
    }
    text[SYS_TEXT - 1] = 0;
    iopFail(hd, "string too big <%d>", SYS_TEXT);
}

int iopBinNoGetLine(iopHd *hd, char *text, int size)
{
    iopFail(hd, "incompatible mode for file <%s>", hd->fileName);
}

int iopBinNoPutLine(iopHd *hd, const char *format, va_list args)
{
    iopFail(hd, "incompatible mode for file <%s>", hd->fileName);
}

/* ---- numbers ---- */

/* In place, if the writer's byte order was not ours. The conversion refuses a type that is not of the kind. */
static void toNative(const iopHd *hd, const iopNum *num, void *values, int64_t n)
{
    const int from = hd->*num->file, to = hd->*num->native;
    if (from == to) return;
    for (int64_t i = 0; i < n; i += iopBinSlice) {
        char *some = (char *) values + i * num->size;
        num->convert(some, some, from, to, (int) (n - i < iopBinSlice ? n - i : iopBinSlice));
    }
}

void iopBinGetNums(iopHd *hd, const iopNum *num, void *dest, int64_t n)
{
    int budget = iopBudget(hd);
    if (iopReadBytes(hd, dest, n * num->size, &budget) < n * num->size) iopFail(hd, "EOF %s", iopFileInfo(hd));
    toNative(hd, num, dest, n);
}

void iopBinSkip(iopHd *hd, const iopNum *num, int64_t n)
{
    const int64_t here = iopStreamGetLoc(hd);
    const int fits = n <= (INT64_MAX - here) / num->size;
    int budget = iopBudget(hd);
    while (!fits || !iopStreamSetLoc(hd, here + n * num->size, 0))
        if (!iopWait(&budget)) iopFail(hd, "fseek error %s", iopFileInfo(hd));
}

int iopBinHolds(iopHd *hd, int64_t n, int size)
{
    return n <= iopStreamLeft(hd) / size;
}

/* ---- writing ---- */

int iopBinPutBin(iopHd *hd, const int *src, int64_t n)
{
    for (int64_t i = 0; i < n; i += iopBinSlice) {
        const size_t some = (size_t) (n - i < iopBinSlice ? n - i : iopBinSlice);
        if (!hd->fp || fwrite(src + i, sizeof *src, some, hd->fp) != some) return 0;
    }
    return 1;
}

void iopBinPutInts(iopHd *hd, const int *src, int n1, int n2, int wrap)
{
    if (!iopBinPutBin(hd, src, (int64_t) n1 * n2))
        iopFail(hd, "unable to write <%d> integers %s", n1 * n2, iopFileInfo(hd));
}
