/* iopText.cpp: the ascii form: tokens between white space.
 *
 * A word is what scanf takes for "%s", an integer "%d", a real "%le", a float "%e": the same values and the same places
 * where a token ends, so that "12abc" is the integer 12 and then the word abc, and a Fortran 1.5D+03 is 1.5 and then
 * rubbish. The tokens are found here, in the bytes that the handle read ahead, since a scanf for each number makes
 * reading a large text many times slower. The host's locale has no say in them.
 *
 * Numbers are read in two ways. Nearly all are plain decimal ones that stand whole in the piece that was read ahead:
 * these are converted where they stand, one behind the other (iopScan...s). A number that is anything else, or that
 * reaches to the end of the piece, is looked at byte by byte (iopScan...), and only this way decides what a token is.
 *
 * A token or line that reaches to the end of the data may be the head of one that is still being written: "1.2" of
 * "1.25". It is read anew after a second; if the data end at the same place then it counts as whole, as with scanf,
 * since a file may lack its last newline. This waits once for each such end, and never where white space follows.
 *
 * Reals out of range become what strtod makes of them; an integer out of range fails. */

#include "iop/iopInt.h"

#include <errno.h>
#include <float.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <charconv>

enum { MAX_NUMBER = 8191 };                 /* characters of a number */

void iopTextOpen(iopHd *hd, int *budget)
{
    if (iopStreamOpen(hd, budget)) return;
    const int error = errno;
    char name[SYS_NAME + 8];
    iopDiskName(hd, name, sizeof name);
    iopGiveUp(hd, "unable to open ascii file <%s>; %s", name, strerror(error));
}

/* ---- bytes ---- */

/* A read that failed is no end of the data: it would cut a token in two, or hide an optional one. */
static int byteBehind(iopHd *hd, int i)
{
    int budget = iopBudget(hd);
    if (i > MAX_NUMBER) return -1;          /* see checkNumber */
    while (!iopFill(hd)) {
        if (!hd->ahead.failed) return -1;
        if (!iopWait(&budget)) iopFail(hd, "EOF %s", iopFileInfo(hd));
    }
    return (unsigned char) hd->ahead.data[hd->ahead.pos + i];
}

/* Byte i behind the read position, -1 at the end of the data. To be asked for in rising order. */
static inline int byteAt(iopHd *hd, int i)
{
    const iopAhead *a = &hd->ahead;
    return i < a->size - a->pos ? (unsigned char) a->data[a->pos + i] : byteBehind(hd, i);
}

static inline int isWhite(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
static inline int isDigit(int c) { return c >= '0' && c <= '9'; }
static inline int lower(int c)   { return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c; }

static int isHexDigit(int c)
{
    return isDigit(c) || (lower(c) >= 'a' && lower(c) <= 'f');
}

/* 0 at the end of the data, else the byte at which the next token begins. */
static int nextToken(iopHd *hd)
{
    int c;
    while (isWhite(c = byteAt(hd, 0))) hd->ahead.pos++;
    return c < 0 ? 0 : 1;
}

/* ---- the end of the data ---- */

/* Does what was just read reach to the end of the data, so that it may go on when its writer does? */
static int mayGoOn(const iopHd *hd)
{
    const iopAhead *a = &hd->ahead;
    return a->pos == a->size && a->start + a->pos != a->end;
}

/* Back to where it began, after a second, unless the budget is used up: then 0. The bytes are asked for anew. A pipe
   has no more to give, but the file behind it has, to a program that is started anew. */
static int lookAgain(iopHd *hd, int64_t start, int *budget)
{
    const int64_t end = iopStreamGetLoc(hd);
    if (!iopWait(budget)) return 0;
    hd->ahead.end = end;
    return hd->form->setLoc(hd, start, 1);
}

/* ---- strings and lines ---- */

SYS_NORETURN static void failTooBig(iopHd *hd, char *text)
{
    text[SYS_TEXT - 1] = 0;
    iopFail(hd, "string too big <%d>", SYS_TEXT);
}

/* One word as "%s" takes it, and where it begins; 0 at the end of the data. */
static int getWord(iopHd *hd, char *text, int64_t *start)
{
    if (!nextToken(hd)) return 0;
    *start = iopStreamGetLoc(hd);
    int n = 0;
    for (int c; (c = byteAt(hd, 0)) >= 0 && !isWhite(c); hd->ahead.pos++) {
        if (n == SYS_TEXT - 1) failTooBig(hd, text);
        text[n++] = (char) c;
    }
    text[n] = 0;
    return 1;
}

/* What follows a word that began with a quote: all up to a zero byte, a newline or a quote. In a word that closes its
   own quotation the closing quote is not seen as the end: followed by a newline it is removed, followed by a blank the
   rest of the line is taken in, that quote included. Files are written with this in mind. */
static void getQuoted(iopHd *hd, char *text, int *budget)
{
    memmove(text, text + 1, strlen(text));
    int n = (int) strlen(text);
    for (;; ++n) {
        int c;
        while ((c = byteAt(hd, 0)) < 0)
            if (!iopWait(budget)) iopFail(hd, "EOF %s", iopFileInfo(hd));
        if (n == SYS_TEXT) failTooBig(hd, text);
        hd->ahead.pos++;
        if (c == 0 || c == '\n' || c == '"') break;
        text[n] = (char) c;
    }
    if (n > 0 && text[n - 1] == '"') --n;
    text[n] = 0;
}

int iopTextGetStr(iopHd *hd, char *text, int must)
{
    int budget = iopBudget(hd);
    for (;;) {
        int64_t start;
        if (getWord(hd, text, &start)) {
            if (must && text[0] == '"') {
                getQuoted(hd, text, &budget);
                return 1;
            }
            if (!mayGoOn(hd)) return 1;
            if (lookAgain(hd, start, &budget)) continue;
        } else {
            if (!must) return 0;
            if (iopWait(&budget)) continue;
        }
        iopFail(hd, "EOF %s", iopFileInfo(hd));
    }
}

/* The next bytes up to a newline, or as many as fit. *ended: the data end behind them. */
static int getBytes(iopHd *hd, char *text, int size, int *ended)
{
    int n = 0, c = 0;
    while (n < size - 1 && c != '\n' && (c = byteAt(hd, 0)) >= 0) {
        hd->ahead.pos++;
        text[n++] = (char) c;
    }
    text[n] = 0;
    *ended = c < 0;
    return n;
}

int iopTextGetLine(iopHd *hd, char *text, int size)
{
    if (size < 2) iopFail(hd, "Buffer overflow <%d>; %s", size, iopFileInfo(hd));
    const int64_t start = iopStreamGetLoc(hd);
    int budget = iopBudget(hd), ended, n;
    while ((n = getBytes(hd, text, size, &ended)) > 0 && ended && mayGoOn(hd))
        if (!lookAgain(hd, start, &budget)) iopFail(hd, "EOF %s", iopFileInfo(hd));
    if (n == 0) return 0;
    if (text[n - 1] == '\n') {
        text[--n] = 0;
        if (n > 0 && text[n - 1] == '\r') text[--n] = 0;
    }
    /* of the bytes read: a zero byte among them ends the text, not the line */
    if (n >= size - 1) iopFail(hd, "Buffer overflow <%d>; %s", size, iopFileInfo(hd));
    return 1;
}

int iopTextPutLine(iopHd *hd, const char *format, va_list args)
{
    const locale_t host = uselocale(sysPlainLocale());
    const int written = hd->fp && vfprintf(hd->fp, format, args) >= 0 && fputc('\n', hd->fp) != EOF;
    uselocale(host);
    return written;
}

/* ---- numbers ---- */

/* The length of a scanned number, or -1 if it is none: `ok` tells. One that the end of the data left without a digit
   may still be written: 0, as if nothing had come. */
static int checkNumber(iopHd *hd, int length, int ok)
{
    if (length > MAX_NUMBER) iopFail(hd, "number longer than <%d> characters; %s", MAX_NUMBER, iopFileInfo(hd));
    if (ok) return length;
    return byteAt(hd, length) < 0 ? 0 : -1;
}

int iopScanInt(iopHd *hd, void *dest)
{
    if (!nextToken(hd)) return 0;
    int n = 0, c = byteAt(hd, 0);
    const int minus = c == '-';
    if (minus || c == '+') c = byteAt(hd, ++n);
    const int sign = n;
    int64_t value = 0;                      /* stays where it is once it is too big */
    for (; isDigit(c); c = byteAt(hd, ++n))
        if (value <= INT_MAX) value = 10 * value + (c - '0');
    n = checkNumber(hd, n, n > sign);
    if (n < 1) return n;
    if (minus) value = -value;
    if (value != (int) value)
        iopFail(hd, "integer <%.*s> exceeds 32 bits; %s", n < 40 ? n : 40, hd->ahead.data + hd->ahead.pos,
                iopFileInfo(hd));
    hd->ahead.pos += n;
    if (dest) *(int *) dest = (int) value;
    return 1;
}

/* The rest of a word such as "nan", of which the first character stands at i: the index behind it, or -1. */
static int match(iopHd *hd, int i, const char *word, int *cut)
{
    for (; *word; ++word, ++i) {
        const int c = byteAt(hd, i);
        if (lower(c) == *word) continue;
        *cut = c < 0;
        return -1;
    }
    return i;
}

/* "nan", "inf" or "infinity" from index i. */
static int scanName(iopHd *hd, int i)
{
    int cut = 0, n = lower(byteAt(hd, i)) == 'n' ? match(hd, i, "nan", &cut) : match(hd, i, "inf", &cut);
    if (n > 0 && lower(byteAt(hd, i)) == 'i' && lower(byteAt(hd, n)) == 'i') n = match(hd, n, "inity", &cut);
    return n > 0 ? n : cut ? 0 : -1;
}

/* The length of the floating-point number at the read position, as scanf sees it: 0 at the end of the data, -1 for
   something else. An exponent without digits belongs to the number. */
static int scanDecimal(iopHd *hd)
{
    if (!nextToken(hd)) return 0;
    int n = 0, c = byteAt(hd, 0), last = 0, mark = 'e', digits = 0, point = 0, exponent = 0;
    if (c == '-' || c == '+') c = byteAt(hd, ++n);
    if (lower(c) == 'n' || lower(c) == 'i') return scanName(hd, n);
    int isHex = 0;
    if (c == '0') {
        digits = 1;
        c = byteAt(hd, ++n);
        if (lower(c) == 'x') {
            isHex = 1;
            mark = 'p';
            digits = 0;
            c = byteAt(hd, ++n);
        }
    }
    const int head = n;
    for (;; last = lower(c), c = byteAt(hd, ++n)) {
        if (isDigit(c) || (isHex && !exponent && isHexDigit(c))) digits = 1;
        else if (exponent && last == mark && (c == '-' || c == '+')) continue;
        else if (digits && !exponent && lower(c) == mark) exponent = point = 1;
        else if (!point && c == '.') point = 1;
        else break;
    }
    return checkNumber(hd, n, digits || (isHex && n > head));
}

static void toReal(const char *s, double *value) { *value = strtod_l(s, NULL, sysPlainLocale()); }
static void toReal(const char *s, float *value)  { *value = strtof_l(s, NULL, sysPlainLocale()); }

template <class Real> static int scanReal(iopHd *hd, Real *dest)
{
    const int n = scanDecimal(hd);
    if (n < 1) return n;
    if (dest) {
        char *s = hd->ahead.data + hd->ahead.pos;
        const char kept = s[n];                     /* room for it: see makeAhead */
        s[n] = 0;
        toReal(s, dest);
        s[n] = kept;
    }
    hd->ahead.pos += n;
    return 1;
}

int iopScanReal(iopHd *hd, void *dest)  { return scanReal(hd, (double *) dest); }
int iopScanFloat(iopHd *hd, void *dest) { return scanReal(hd, (float *) dest); }

/* ---- numbers that stand whole in the piece ---- */

/* Eight digits at once. That a byte below carries into the next does no harm: it is no digit itself. */
static inline int areDigits(const char *s)
{
    uint64_t eight;
    memcpy(&eight, s, 8);
    return !(((eight + UINT64_C(0x4646464646464646)) | (eight - UINT64_C(0x3030303030303030)))
             & UINT64_C(0x8080808080808080));
}

static inline const char *passDigits(const char *s, const char *end)
{
    while (end - s >= 8 && areDigits(s)) s += 8;
    while (isDigit(*s)) ++s;
    return s;
}

/* Each of the following gives the place behind the plain decimal number at s, or null if there is none. At `end`,
   behind the last byte of the piece, stands a zero. Without a value the number is only stepped over. */

static inline const char *passReal(const char *s, const char *end)
{
    if (*s == '-') ++s;
    const char *first = s;
    s = passDigits(s, end);
    int nDigits = (int) (s - first);
    if (*s == '.') {
        first = ++s;
        s = passDigits(s, end);
        nDigits += (int) (s - first);
    }
    if (nDigits == 0) return NULL;
    if (lower(*s) != 'e') return s;
    if (*++s == '-' || *s == '+') ++s;
    return passDigits(s, end);                      /* no digits will do: see scanDecimal */
}

template <class Number> static inline const char *fromChars(const char *s, const char *end, Number *value)
{
    const std::from_chars_result r = std::from_chars(s, end, *value);
    return r.ec == std::errc() ? r.ptr : NULL;
}

static inline const char *readNumber(const char *s, const char *end, int *value)
{
    int dropped;                                    /* but not unseen: one that is too big is to fail */
    return fromChars(s, end, value ? value : &dropped);
}

#ifdef __cpp_lib_to_chars                           /* the standard library has it for reals too */
template <class Real> static inline const char *readNumber(const char *s, const char *end, Real *value)
{
    if (!value) return passReal(s, end);
    const char first = *s == '-' ? s[1] : *s;       /* "nan" and "inf" have rules of their own */
    return isDigit(first) || first == '.' ? fromChars(s, end, value) : NULL;
}
#else
/* Digits and power of ten of most numbers fit into the 64 bits that a long double has here, so that one operation
   gives their product or quotient rounded to 64 bits. Rounding that to the 53 of a double gives what strtod does,
   unless it lies just between two of them: which side the exact one is on is then lost. 0: not so here. */
static int simpleReal(const char *s, const char *behind, double *value)
{
#if LDBL_MANT_DIG == 64
    static const long double tens[] = { 1e0L,  1e1L,  1e2L,  1e3L,  1e4L,  1e5L,  1e6L,  1e7L,  1e8L,  1e9L,
                                        1e10L, 1e11L, 1e12L, 1e13L, 1e14L, 1e15L, 1e16L, 1e17L, 1e18L, 1e19L,
                                        1e20L, 1e21L, 1e22L, 1e23L, 1e24L, 1e25L, 1e26L, 1e27L };
    const int minus = *s == '-';
    if (minus) ++s;
    if (behind - s > 24) return 0;
    uint64_t digits = 0;
    int scale = 0, point = 0, exponent = 0;
    for (; s < behind && lower(*s) != 'e'; ++s) {
        if (*s == '.') {
            point = 1;
            continue;
        }
        if (digits > UINT64_MAX / 10 - 1) return 0;
        digits = 10 * digits + (uint64_t) (*s - '0');
        scale -= point;
    }
    if (s < behind) {
        const int down = *++s == '-';
        if (down || *s == '+') ++s;
        if (behind - s > 3) return 0;
        for (; s < behind; ++s) exponent = 10 * exponent + (*s - '0');
        scale += down ? -exponent : exponent;
    }
    if (scale < -27 || scale > 27) return 0;
    const long double rounded = scale < 0 ? (long double) digits / tens[-scale] : (long double) digits * tens[scale];
    uint64_t bits;
    memcpy(&bits, &rounded, sizeof bits);           /* the lower part is the 64 bits */
    if ((bits & 0x7ff) == 0x400) return 0;
    *value = (double) (minus ? -rounded : rounded);
    return 1;
#else
    return 0;
#endif
}

static int simpleReal(const char *s, const char *behind, float *value) { return 0; }

template <class Real> static inline const char *readNumber(const char *s, const char *end, Real *value)
{
    const char *behind = passReal(s, end);
    if (value && behind && !simpleReal(s, behind, value)) toReal(s, value);
    return behind;
}
#endif

/* White space behind a number shows that it is whole, and that it ends there for scanf too. */
template <class Number> static int64_t scanWhole(iopHd *hd, Number *dest, int64_t n)
{
    iopAhead *a = &hd->ahead;
    if (a->pos == a->size) return 0;
    const char *at = a->data + a->pos, *end = a->data + a->size;
    a->data[a->size] = 0;                           /* room for it: see makeAhead */
    int64_t i = 0;
    for (; i < n; ++i) {
        const char *s = at;
        while (isWhite(*s)) ++s;
        const char *behind = readNumber(s, end, dest ? dest + i : NULL);
        if (!behind || !isWhite(*behind) || behind - s > MAX_NUMBER) break;
        at = behind;
    }
    a->pos = (int) (at - a->data);
    return i;
}

int64_t iopScanInts(iopHd *hd, void *dest, int64_t n)   { return scanWhole(hd, (int *) dest, n); }
int64_t iopScanReals(iopHd *hd, void *dest, int64_t n)  { return scanWhole(hd, (double *) dest, n); }
int64_t iopScanFloats(iopHd *hd, void *dest, int64_t n) { return scanWhole(hd, (float *) dest, n); }

/* ---- any count of numbers ---- */

/* One number, as iopNum::scan tells; -1 also if it went on and on at the end of the data. */
static int scanOne(iopHd *hd, const iopNum *num, void *dest, int *budget)
{
    const int64_t start = iopStreamGetLoc(hd);
    for (;;) {
        const int came = num->scan(hd, dest);
        if (came < 1 || !mayGoOn(hd)) return came;
        if (!lookAgain(hd, start, budget)) return -1;
    }
}

/* A null dest: the numbers are dropped. */
void iopTextGetNums(iopHd *hd, const iopNum *num, void *dest, int64_t n)
{
    int budget = iopBudget(hd);
    for (int64_t i = 0; i < n; ) {
        char *to = dest ? (char *) dest + i * num->size : NULL;
        int64_t came = num->scanWhole(hd, to, n - i);
        if (came == 0) came = scanOne(hd, num, to, &budget);
        if (came > 0) {
            i += came;
        } else if (came < 0 || !iopWait(&budget)) {
            iopCount(hd, i);
            iopFail(hd, "EOF %s", iopFileInfo(hd));
        }
    }
}

void iopTextSkip(iopHd *hd, const iopNum *num, int64_t n)
{
    iopTextGetNums(hd, num, NULL, n);
}

/* At least a digit and a blank each, but for the last. */
int iopTextHolds(iopHd *hd, int64_t n, int size)
{
    const int64_t left = iopStreamLeft(hd);
    return n < 1 || (left > 0 && n - 1 <= (left - 1) / 2);
}

/* Wrapped: lines of a hundred values; a row begins a new line. */
void iopTextPutInts(iopHd *hd, const int *src, int n1, int n2, int wrap)
{
    for (int row = 0; row < n2; ++row) {
        for (int i = 0; i < n1; ++i) {
            const int last = i == n1 - 1, full = (i + 1) % 100 == 0;
            const char *behind = !wrap ? " " : last ? "\n" : full ? " \n" : " ";
            if (!hd->fp || fprintf(hd->fp, "%d%s", *src++, behind) < 0)
                iopFail(hd, "unable to write <%d> integers %s", n1 * n2, iopFileInfo(hd));
        }
    }
}
