/* iopStream.cpp: what the forms on a stdio stream share: opening, waiting for a writer, reading ahead, locations.
 *
 * Streams are written by stdio but read past it, from the stream's descriptor. Stdio would keep bytes that the
 * library must be able to look at anew when a network file system catches up with a writer, it would remember an end
 * of file that is no longer one, and each number of a text would cost a locked call. Instead the handle holds a small
 * piece of the file; what is larger than the piece goes straight into the caller's array. The location of a handle
 * is thus that of the next byte it will take, not that of the descriptor.
 *
 * Waiting: an operation that meets the end of the data has a budget of seconds. Each wait is one second of it. */

#include "iop/iopInt.h"

#include <errno.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/mem.h"

enum { AHEAD_SIZE = 65536 };                /* room in the handle's piece; the forms use all or a part of it */

int iopBudget(const iopHd *hd)
{
    return hd->opt & IOP_LONG_WAIT ? 60 : 2;
}

int iopWait(int *budget)
{
    if (*budget < 1) return 0;
    --*budget;
    sysSleep(1);
    return 1;
}

/* ---- open and close ---- */

/* A directory opens as a stream on some systems, and a pipe of that name would keep us waiting for ever: only plain
   files are files. */
FILE *iopOpenToRead(const char *name, const char *mode)
{
    struct stat st;
    if (stat(name, &st) != 0) return NULL;
    if (!S_ISREG(st.st_mode)) {
        errno = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
        return NULL;
    }
    return fopen(name, mode);
}

/* Kept when the handle is recycled. */
static void makeAhead(iopHd *hd)
{
    if (!hd->ahead.data) hd->ahead.data = memNew(char, AHEAD_SIZE + 1);     /* a zero stands behind a text's number */
}

/* Both set: reading wins. A file to be read may still have to be made by its writer. What the host starts is not to
   inherit our files: "e" closes them there. */
int iopStreamOpen(iopHd *hd, int *budget)
{
    const int bytes = hd->opt & (IOP_BINARY | IOP_RAW);
    char name[SYS_NAME + 8];
    iopDiskName(hd, name, sizeof name);
    if (hd->opt & IOP_READ) {
        int error;
        makeAhead(hd);                              /* without memory, before there is a stream to lose */
        do {
            hd->fp = iopOpenToRead(name, bytes ? "rbe" : "re");
            error = errno;
        } while (!hd->fp && iopWait(budget));
        errno = error;                              /* the wait may have changed it */
    } else if (hd->opt & IOP_APPEND) {
        hd->fp = fopen(name, bytes ? "abe" : "ae");
    } else {
        hd->fp = fopen(name, bytes ? "wbe" : "we");
    }
    if (!hd->fp) return 0;
    iopStreamBuffer(hd);
    return 1;
}

void iopStreamBuffer(iopHd *hd)
{
    if (hd->opt & IOP_LINE_BUFFER) setvbuf(hd->fp, NULL, _IOLBF, 1024);
    if (hd->opt & IOP_NO_BUFFER) setvbuf(hd->fp, NULL, _IONBF, 1024);
}

/* What stdio still held may not reach the disk. */
int iopStreamClose(iopHd *hd)
{
    const int failed = hd->fp && fclose(hd->fp) != 0 && !(hd->opt & IOP_READ);
    hd->fp = NULL;
    if (!(hd->opt & IOP_DELETE)) return !failed;
    char name[SYS_NAME + 8];
    iopDiskName(hd, name, sizeof name);
    remove(name);
    return 1;
}

/* ---- reading ahead ---- */

int64_t iopStreamRead(iopHd *hd, void *dest, int64_t n)
{
    ssize_t got;
    do got = read(fileno(hd->fp), dest, (size_t) (n < INT_MAX ? n : INT_MAX)); while (got < 0 && errno == EINTR);
    return got;
}

/* One read that got something, or 0 at the end of the file. An error reads as the end, as it does with stdio; whoever
   must not take it for the end asks for `failed`. */
static int64_t readSome(iopHd *hd, void *dest, int64_t n)
{
    hd->ahead.failed = 0;
    if (!hd->fp) return 0;
    const int64_t got = hd->form->read(hd, dest, n);
    hd->ahead.failed = got < 0;
    return got > 0 ? got : 0;
}

/* Appends to the piece what the file has to give, after moving what is still wanted of it to its front. */
int iopFill(iopHd *hd)
{
    iopAhead *a = &hd->ahead;
    makeAhead(hd);
    const int drop = a->pos - hd->form->nKeep;
    if (drop > 0) {
        memmove(a->data, a->data + drop, (size_t) (a->size - drop));
        a->start += drop;
        a->size -= drop;
        a->pos -= drop;
    }
    const int room = AHEAD_SIZE - a->size, want = hd->form->nAhead < room ? hd->form->nAhead : room;
    const int got = (int) readSome(hd, a->data + a->size, want);
    a->size += got;
    return got;
}

static int64_t takeAhead(iopHd *hd, char *dest, int64_t n)
{
    iopAhead *a = &hd->ahead;
    const int64_t have = a->size - a->pos, some = n < have ? n : have;
    if (some > 0) memcpy(dest, a->data + a->pos, (size_t) some);
    a->pos += (int) some;
    return some;
}

/* Reads past the piece, which is empty. */
static int64_t readDirect(iopHd *hd, char *dest, int64_t n)
{
    iopAhead *a = &hd->ahead;
    const int64_t got = readSome(hd, dest, n);
    a->start += a->size + got;
    a->pos = a->size = 0;
    return got;
}

/* The retry keeps what came and asks only for the rest. */
int64_t iopReadBytes(iopHd *hd, void *dest, int64_t n, int *budget)
{
    char *to = (char *) dest;
    int64_t got = takeAhead(hd, to, n);
    while (got < n) {
        const int64_t more = n - got >= hd->form->nAhead ? readDirect(hd, to + got, n - got)
                           : iopFill(hd)                 ? takeAhead(hd, to + got, n - got) : 0;
        got += more;
        if (more == 0 && !iopWait(budget)) break;
    }
    return got;
}

/* On a stream rows follow one another: those asked for are the next ones. */
void iopStreamGetRows(iopHd *hd, int n, int, int, int some, int, double *rows)
{
    hd->form->getNums(hd, &iopReals, rows, (int64_t) n * some);
}

void iopStreamGetSub(iopHd *hd, const iopNum *num, int64_t before, int64_t n, int64_t behind, void *dest)
{
    iopSkipNums(hd, num, before);
    iopGetNums(hd, num, dest, n);
    iopSkipNums(hd, num, behind);
}

/* ---- locations ---- */

int64_t iopStreamGetLoc(iopHd *hd)
{
    if (!hd->fp) return 0;
    return hd->opt & IOP_READ ? hd->ahead.start + hd->ahead.pos : (int64_t) ftello(hd->fp);
}

int iopStreamSetLoc(iopHd *hd, int64_t loc, int reread)
{
    iopAhead *a = &hd->ahead;
    if (!hd->fp) return 0;
    if (!(hd->opt & IOP_READ)) return fseeko(hd->fp, loc, SEEK_SET) == 0;
    if (!reread && loc >= a->start && loc <= a->start + a->size) {
        a->pos = (int) (loc - a->start);
        return 1;
    }
    if (lseek(fileno(hd->fp), loc, SEEK_SET) < 0) return 0;
    a->start = loc;
    a->pos = a->size = 0;
    return 1;
}

/* A pipe does not tell, but the file behind it does, as far as can be. */
int64_t iopStreamLeft(iopHd *hd)
{
    struct stat st;
    char name[SYS_NAME + 8];
    iopDiskName(hd, name, sizeof name);
    if (!hd->fp || (hd->pid ? stat(name, &st) : fstat(fileno(hd->fp), &st)) != 0) return 0;
    const int64_t left = iopMostBytes(hd->opt, (int64_t) st.st_size) - iopStreamGetLoc(hd);
    return left > 0 ? left : 0;
}
