/* iopLow.cpp: the typed reads and writes, one token or one array of numbers at a time.
 *
 * What all storage forms have in common is done here, once: may the handle be read or written, is the count one, how
 * many tokens have gone by, which string was the last. The rest is the form's row of functions (iopFile.cpp). What is
 * different between integers, reals and floats is a row too, so that each form is written once and not three times.
 *
 * A count is 64 bits inside; what a caller's int cannot hold is refused where sizes are multiplied (iopUtil.cpp). */

#include "iop/iopInt.h"

#include <limits.h>
#include <string.h>

#include "base/cvt.h"

const iopNum iopInts   = { 'i', 4, "iopGetIntF",   "iopGetIntDsp",   "iopGetBinInts",
                           &iopHd::nativeInt,   &iopHd::fileInt,   cvtConvInts,   iopScanInt,   iopScanInts   };
const iopNum iopReals  = { 'r', 8, "iopGetRealF",  "iopGetRealDsp",  "iopGetBinReals",
                           &iopHd::nativeReal,  &iopHd::fileReal,  cvtConvReals,  iopScanReal,  iopScanReals  };
const iopNum iopFloats = { 'f', 4, "iopGetFloatF", "iopGetFloatDsp", NULL,
                           &iopHd::nativeFloat, &iopHd::fileFloat, cvtConvFloats, iopScanFloat, iopScanFloats };

/* ---- checks ---- */

void iopToRead(iopHd *hd, const char *function)
{
    hd->function = function;
    if (!(hd->opt & IOP_READ)) iopFail(hd, "file <%s> is not for reading", hd->fileName);
}

static void toWrite(iopHd *hd, const char *function)
{
    hd->function = function;
    if (!(hd->opt & IOP_WRITE)) iopFail(hd, "file <%s> is not for writing", hd->fileName);
}

static void checkCount(iopHd *hd, int64_t n)
{
    if (n < 0) iopFail(hd, "invalid count <%lld>; %s", (long long) n, iopFileInfo(hd));
}

/* The counter serves messages only: it stays at its end rather than wrap round. */
void iopCount(iopHd *hd, int64_t n)
{
    hd->nTokens = n < INT_MAX - hd->nTokens ? hd->nTokens + (int) n : INT_MAX;
}

void iopNeed(iopHd *hd, int64_t n, char kind)
{
    const int size = kind == 'r' || kind == 's' ? 8 : 4;
    int budget = iopBudget(hd);
    iopToRead(hd, __func__);
    checkCount(hd, n);
    while (!hd->form->holds(hd, n, size))
        if (!iopWait(&budget)) iopFail(hd, "EOF %s", iopFileInfo(hd));
}

/* ---- strings and lines ---- */

static int getStr(iopHd *hd, const char *function, char *text, int must)
{
    iopToRead(hd, function);
    if (!hd->form->getStr(hd, text, must)) return 0;
    snprintf(hd->lastToken, SYS_NAME, "%.*s", SYS_NAME - 1, text);
    iopCount(hd, 1);
    return 1;
}

void iopGetStrF(iopHd *hd, char *text)
{
    getStr(hd, __func__, text, 1);
}

int iopGetIfStr(iopHd *hd, char *text)
{
    return getStr(hd, __func__, text, 0);
}

int iopGetLine(iopHd *hd, char *text, int size)
{
    hd->function = __func__;
    if (!(hd->opt & IOP_READ)) iopFail(hd, "not a read file <%s>", hd->fileName);
    const int came = hd->form->getLine(hd, text, size);
    if (came) iopCount(hd, 1);
    return came;
}

void iopPrintLine(iopHd *hd, const char *format, ...)
{
    hd->function = __func__;
    if (!(hd->opt & IOP_WRITE)) iopFail(hd, "incompatible mode for file <%s>", hd->fileName);
    va_list args;
    va_start(args, format);
    const int written = hd->form->putLine(hd, format, args);
    va_end(args);
    if (!written) iopFail(hd, "unable to write to %s format <%s>", iopFileInfo(hd), format);
    iopCount(hd, 1);
}

/* ---- numbers ---- */

void iopGetNums(iopHd *hd, const iopNum *num, void *dest, int64_t n)
{
    iopToRead(hd, num->get);
    checkCount(hd, n);
    if (n > 0) hd->form->getNums(hd, num, dest, n);
    iopCount(hd, n);
}

void iopSkipNums(iopHd *hd, const iopNum *num, int64_t n)
{
    iopToRead(hd, num->skip);
    checkCount(hd, n);
    if (n > 0) hd->form->skip(hd, num, n);
    iopCount(hd, n);
}

static void getBin(iopHd *hd, const iopNum *num, void *dest, int n)
{
    iopToRead(hd, num->getBin);
    checkCount(hd, n);
    if (n > 0) hd->form->getBin(hd, num, dest, n);
    iopCount(hd, n);
}

void iopGetIntF(iopHd *hd, int *dest, int n)        { iopGetNums(hd, &iopInts, dest, n); }
void iopGetRealF(iopHd *hd, double *dest, int n)    { iopGetNums(hd, &iopReals, dest, n); }
void iopGetFloatF(iopHd *hd, float *dest, int n)    { iopGetNums(hd, &iopFloats, dest, n); }
void iopGetIntDsp(iopHd *hd, int n)                 { iopSkipNums(hd, &iopInts, n); }
void iopGetRealDsp(iopHd *hd, int n)                { iopSkipNums(hd, &iopReals, n); }
void iopGetFloatDsp(iopHd *hd, int n)               { iopSkipNums(hd, &iopFloats, n); }
void iopGetBinInts(iopHd *hd, int *dest, int n)     { getBin(hd, &iopInts, dest, n); }
void iopGetBinReals(iopHd *hd, double *dest, int n) { getBin(hd, &iopReals, dest, n); }

void iopPutIntF(iopHd *hd, int *src, int n1, int n2, int wrap)
{
    toWrite(hd, __func__);
    checkCount(hd, n1);
    checkCount(hd, n2);
    const int64_t n = (int64_t) n1 * n2;
    if (n > INT_MAX) iopFail(hd, "too many values <%d> x <%d>; %s", n1, n2, iopFileInfo(hd));
    if (n > 0) hd->form->putInts(hd, src, n1, n2, wrap);
    iopCount(hd, n);
}

/* A file of the other byte order gets the values turned round, and the caller gets them back as they were. */
void iopPutBinInts(iopHd *hd, int *src, int n)
{
    toWrite(hd, __func__);
    checkCount(hd, n);
    const int turn = n > 0 && hd->fileInt != hd->nativeInt;
    if (turn) cvtConvInts(src, src, hd->nativeInt, hd->fileInt, n);
    const int written = n < 1 || hd->form->putBin(hd, src, n);
    if (turn) cvtConvInts(src, src, hd->fileInt, hd->nativeInt, n);
    if (!written) iopFail(hd, "unable to write <%d> integers %s", n, iopFileInfo(hd));
    iopCount(hd, n);
}

/* ---- locations ---- */

int64_t iopGetLoc(iopHd *hd)
{
    return hd->form->getLoc(hd);
}

static void setLoc(iopHd *hd, int64_t loc, int reread)
{
    hd->function = "iopSetLoc";
    if (!hd->form->setLoc(hd, loc, reread))
        iopFail(hd, "Unable to set location <%lld> <%s>", (long long) loc, iopFileInfo(hd));
}

void iopSetLoc(iopHd *hd, int64_t loc)
{
    setLoc(hd, loc, 0);
}

int iopGetTokens(const iopHd *hd)
{
    return hd->nTokens;
}

void iopSetPlace(iopHd *hd, int64_t loc, int nTokens, const char *last)
{
    setLoc(hd, loc, 0);
    hd->nTokens = nTokens;
    snprintf(hd->lastToken, SYS_NAME, "%s", last);
}

/* What was read ahead is forgotten, as if the file had been opened anew */
void iopRewind(iopHd *hd)
{
    if (hd->fp) setLoc(hd, hd->dataStart, 1);
    hd->nTokens = hd->nDataSets = 0;
    strcpy(hd->lastToken, "__NONE__");
}

/* ---- what must stand there ---- */

/* A word that differs gets a second chance: the file system may not show yet what the writer wrote. The bytes are
   then asked for anew, and the token counts once. A word at the end of a text was looked at twice already. */
void iopCheckStr(iopHd *hd, const char *expected)
{
    char text[SYS_TEXT];
    const int64_t start = iopGetLoc(hd), end = hd->ahead.end;
    iopGetStrF(hd, text);
    if (strcmp(text, expected) == 0) return;
    if (hd->fp && hd->ahead.end == end) {
        sysSleep(1);
        hd->nTokens--;
        setLoc(hd, start, 1);
        iopGetStrF(hd, text);
        if (strcmp(text, expected) == 0) return;
    }
    sysFail("data out of order: expected <%s> found <%s> %s", expected, hd->lastToken, iopFileInfo(hd));
}

void iopCheckInt(iopHd *hd, int expected)
{
    int found;
    iopGetIntF(hd, &found, 1);
    if (found != expected)
        sysFail("data out of order: expected <%d> found <%d> %s", expected, found, iopFileInfo(hd));
}
