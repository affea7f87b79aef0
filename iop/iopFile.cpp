/* iopFile.cpp: naming, opening and closing of files, and the table of storage forms.
 *
 * The name decides the form: .B .Z .H .C, anything else is text. No other suffix is tried, since the name comes from
 * whoever wrote the file. A handle points at the row of its form, and all that depends on the form goes through it.
 *
 * A closed handle goes to a free list and keeps its buffers: a run opens thousands of small files. Nothing here
 * returns an error: what fails does not return. A failing open gives its handle back first; a handle that is lost by a
 * later failure stays open unless its owner lands at the trap and closes it.
 *
 * Opening to read waits. The solver may still be writing, so a missing file is tried again after a second, twice, or
 * sixty times with IOP_LONG_WAIT.
 *
 * In this file: the forms, names and suffixes, handles, open and close, questions about a file. */

#include "iop/iopInt.h"

#include <errno.h>
#include <stdarg.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include "base/cvt.h"
#include "base/mem.h"

/* ---- the forms ---- */

/* The first row whose bits are all set is that of a handle, so what wraps or refines a form stands before it. A row
   without functions is known by name and not read yet. The numbers are nAhead, nKeep, perNumber and expand: a code of
   compress has 16 bits at most and stands for less than 64 K; deflate, the densest filter that results are packed with,
   makes one byte of 1032. Not for the formatter. */
#define NOT_YET 0, 0, 0, 0, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}
#define ON_HDF 0, 0, 0, 1032, \
      /* open, close         */ iopHdfOpen,      iopHdfClose, \
      /* string, line, print */ iopHdfGetStr,    iopBinNoGetLine, iopBinNoPutLine, \
      /* numbers, as bytes   */ iopHdfGetNums,   iopHdfGetNums, \
      /* step over, rows     */ iopHdfSkip,      iopHdfGetRows,   iopHdfGetSub, \
      /* write, as bytes     */ iopHdfPutInts,   iopHdfPutBin, \
      /* bytes, room, places */ nullptr,         iopHdfHolds,     iopHdfGetLoc,    iopHdfSetLoc
static const iopForm iopForms[] = {
    { "socket",        IOP_SOCKET,           "",   NOT_YET },
    { "remote shell",  IOP_RSH,              "",   NOT_YET },
    { "record",        IOP_REC | IOP_BINARY, ".B", NOT_YET },
    { "ascii",         IOP_ASCII,            "",   65536, 0, 2, 1,
      /* open, close         */ iopTextOpen,     iopStreamClose,
      /* string, line, print */ iopTextGetStr,   iopTextGetLine,  iopTextPutLine,
      /* numbers, as bytes   */ iopTextGetNums,  iopBinGetNums,
      /* step over, rows     */ iopTextSkip,     iopStreamGetRows, iopStreamGetSub,
      /* write, as bytes     */ iopTextPutInts,  iopBinPutBin,
      /* bytes, room, places */ iopStreamRead,   iopTextHolds,    iopStreamGetLoc, iopStreamSetLoc },
    { "binary",        IOP_BINARY,           ".B", 4096, 0, 0, 1,
      /* open, close         */ iopBinOpen,      iopStreamClose,
      /* string, line, print */ iopBinGetStr,    iopBinNoGetLine, iopBinNoPutLine,
      /* numbers, as bytes   */ iopBinGetNums,   iopBinGetNums,
      /* step over, rows     */ iopBinSkip,      iopStreamGetRows, iopStreamGetSub,
      /* write, as bytes     */ iopBinPutInts,   iopBinPutBin,
      /* bytes, room, places */ iopStreamRead,   iopBinHolds,     iopStreamGetLoc, iopStreamSetLoc },
    { "compressed",    IOP_COMPRESSED,       ".Z", 32768, 16384, 2, 32768,
      /* open, close         */ iopZipOpen,      iopZipClose,
      /* string, line, print */ iopTextGetStr,   iopTextGetLine,  iopTextPutLine,
      /* numbers, as bytes   */ iopTextGetNums,  iopBinGetNums,
      /* step over, rows     */ iopTextSkip,     iopStreamGetRows, iopStreamGetSub,
      /* write, as bytes     */ iopTextPutInts,  iopBinPutBin,
      /* bytes, room, places */ iopZipRead,      iopTextHolds,    iopStreamGetLoc, iopZipSetLoc },
    { "hdf",           IOP_HDF,              ".H", ON_HDF },
    { "hdf-container", IOP_HDF_CONTAINER,    ".C", ON_HDF },
};

static const iopForm *const endForms = iopForms + sizeof iopForms / sizeof iopForms[0];

/* An option word from a file may name no form: what is no other form is text. */
static const iopForm *formOf(int opt)
{
    for (const iopForm *form = iopForms; form < endForms; ++form)
        if ((opt & form->bits) == form->bits) return form;
    return formOf(IOP_ASCII);
}

/* ---- names and suffixes ---- */

/* The plain form whose suffix ends the name; null: none, so it is text. */
static const iopForm *formBySuffix(const char *name)
{
    const size_t length = strlen(name);
    if (length < 2) return NULL;
    for (const iopForm *form = iopForms; form < endForms; ++form)
        if (*form->suffix && !(form->bits & ~IOP_FORMS) && strcmp(name + length - 2, form->suffix) == 0) return form;
    return NULL;
}

int iopGetFileOpt(const char *name)
{
    const iopForm *form = formBySuffix(name);
    return form ? form->bits : IOP_ASCII;
}

/* The suffix is cut whatever form was asked for: a name that ends in .Z, opened as binary, is looked for with .B. */
static void storeName(char *stored, int size, const char *name)
{
    snprintf(stored, (size_t) size, "%s", name);
    if (formBySuffix(stored)) stored[strlen(stored) - 2] = 0;
}

static const char *baseName(const char *name, int opt)
{
    const char *slash = opt & IOP_BASENAME ? strrchr(name, '/') : NULL;
    return slash ? slash + 1 : name;
}

/* A name that fits, and exactly one form; else fails in the name of `function`. */
static void checkName(const char *function, const char *name, int opt)
{
    const int form = opt & IOP_FORMS;
    if (strlen(name) >= SYS_NAME) sysFailIn(function, "fileName is too long <%s>", name);
    if (form == 0 || (form & (form - 1)) != 0)
        sysFailIn(function, "file <%s> must be ascii, binary, compressed or hdf: opt <%x>", name, (unsigned) opt);
}

static void diskName(char *name, int size, const char *stored, const iopForm *form, int opt)
{
    const int bare = (opt & IOP_RAW) && (opt & IOP_BINARY);
    snprintf(name, (size_t) size, "%s%s", stored, bare ? "" : form->suffix);
}

void iopDiskName(const iopHd *hd, char *name, int size)
{
    diskName(name, size, hd->fileName, hd->form, hd->opt);
}

const char *iopFileName(const iopHd *hd)
{
    return hd->fileName;
}

void iopGetDiskName(const char *name, int opt, char *text)
{
    char stored[SYS_TEXT];
    storeName(stored, SYS_TEXT, baseName(name, opt));
    diskName(text, SYS_TEXT, stored, formOf(opt & IOP_FORMS), opt);
}

int64_t iopMostBytes(int opt, int64_t bytes)
{
    const int expand = formOf(opt & IOP_FORMS)->expand;
    return bytes < INT64_MAX / expand ? bytes * expand : INT64_MAX;
}

int iopLeastBytes(int opt, int size)
{
    const int least = formOf(opt & IOP_FORMS)->perNumber;
    return least ? least : size;
}

/* ---- handles ---- */

static iopHd *closedHds;

static iopHd *takeHd(void)
{
    iopHd *hd = closedHds;
    if (hd) {
        closedHds = hd->next;
        return hd;
    }
    hd = memNewZ(iopHd, 1);
    hd->fileName = memNew(char, SYS_NAME);
    hd->lastToken = memNew(char, SYS_NAME);
    return hd;
}

static void recycle(iopHd *hd)
{
    hd->sock = NULL;
    hd->opt = 0;
    hd->hdfFile = hd->hdfFiles = hd->hdfData = -1;
    hd->next = closedHds;
    closedHds = hd;
}

iopHd *iopNew(const char *name, int opt)
{
    checkName(__func__, name, opt);
    if (!(opt & (IOP_READ | IOP_WRITE)))
        sysFail("file <%s> must be either for read or write: opt <%x>", name, (unsigned) opt);
    const iopForm *form = formOf(opt);
    if (!form->open) sysFail("%s files are not read by this version: <%s>", form->name, name);

    iopHd *hd = takeHd();
    storeName(hd->fileName, SYS_NAME, name);
    strcpy(hd->lastToken, "__NONE__");
    hd->fp = NULL;
    hd->sock = NULL;
    hd->opt = opt;
    hd->function = __func__;
    hd->nativeInt = hd->fileInt = cvtNativeInt();
    hd->nativeReal = hd->fileReal = cvtNativeReal();
    hd->nativeFloat = hd->fileFloat = cvtNativeFloat();
    hd->nTokens = hd->nDataSets = 0;
    hd->hdfFile = hd->hdfFiles = hd->hdfData = -1;
    hd->dataStart = hd->recMetaLoc = 0;
    hd->form = form;
    hd->ahead.start = hd->ahead.pos = hd->ahead.size = 0;
    hd->ahead.end = -1;
    hd->pid = 0;
    hd->keptFd = -1;
    hd->nKept = hd->mostKept = 0;
    hd->sharesFile = hd->settled = 0;
    hd->next = NULL;
    return hd;
}

/* ---- open and close ---- */

iopHd *iopOpenFile(const char *name, int opt)
{
    if ((opt & IOP_REC) && !(opt & IOP_BINARY)) sysFail("REC file requires binary format; file <%s>", name);
    iopHd *hd = iopNew(baseName(name, opt), opt);
    hd->function = __func__;
    int budget = iopBudget(hd);
    hd->form->open(hd, &budget);
    if (hd->fp) hd->dataStart = hd->form->getLoc(hd);
    return hd;
}

void iopCloseFile(iopHd *hd)
{
    if (!hd->opt) sysFail("file <%s> is not open", hd->fileName);
    char name[SYS_NAME + 8];
    const int written = hd->form->close(hd);
    const int error = errno;
    iopDiskName(hd, name, sizeof name);
    recycle(hd);
    /* the file is not what the caller wrote */
    if (!written) sysFail("unable to write file <%s>; %s", name, strerror(error));
}

void iopGiveUp(iopHd *hd, const char *format, ...)
{
    char text[SYS_TEXT];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    hd->opt &= ~IOP_DELETE;                         /* what could not be opened is not ours to remove */
    hd->form->close(hd);
    recycle(hd);
    iopFail(hd, "%s", text);
}

/* ---- questions ---- */

int iopCheckFile(const char *name, int opt)
{
    char stored[SYS_NAME], onDisk[SYS_NAME + 8];
    checkName(__func__, name, opt);
    storeName(stored, SYS_NAME, baseName(name, opt));
    diskName(onDisk, sizeof onDisk, stored, formOf(opt & IOP_FORMS), opt);
    FILE *fp = iopOpenToRead(onDisk, "re");
    if (!fp) return 0;
    fclose(fp);
    return 1;
}

int iopGoesBack(const iopHd *hd)
{
    return hd->form->nKeep == 0;
}

int64_t iopFileSize(const char *name)
{
    struct stat st;
    return stat(name, &st) == 0 ? (int64_t) st.st_size : 0;
}

int iopFileTime(const char *name)
{
    struct stat st;
    return stat(name, &st) == 0 ? (int) st.st_mtime : 0;
}

int iopLookAt(const char *name, iopFileId *id)
{
    struct stat st;
    memset(id, 0, sizeof *id);
    if (stat(name, &st) != 0) return 0;
    id->dev = st.st_dev;
    id->ino = st.st_ino;
    id->size = st.st_size;
    id->changed = st.st_mtim;
    id->recordChanged = st.st_ctim;
    return 1;
}

static int sameTime(const struct timespec *a, const struct timespec *b)
{
    return a->tv_sec == b->tv_sec && a->tv_nsec == b->tv_nsec;
}

int iopSameFile(const iopFileId *a, const iopFileId *b)
{
    return a->dev == b->dev && a->ino == b->ino && a->size == b->size && sameTime(&a->changed, &b->changed) &&
           sameTime(&a->recordChanged, &b->recordChanged);
}

/* The time of the last change tells one change from the next only after a while: a tenth of a second, or two where
   the file system counts whole seconds. Until then a file could change again unseen. */
double iopRest(const iopFileId *id)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const double age = (double) (now.tv_sec - id->changed.tv_sec) + 1e-9 * (double) (now.tv_nsec - id->changed.tv_nsec);
    const double enough = id->changed.tv_nsec ? 0.1 : 2.0;
    return age > enough ? 0 : age > 0 ? enough - age + 0.001 : enough;      /* a clock may be behind the file's */
}

int iopIsAhead(const iopFileId *id)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return id->changed.tv_sec > now.tv_sec + 1;
}

int iopIsSettled(const iopFileId *id)
{
    return iopRest(id) == 0;
}

const char *iopFileInfo(iopHd *hd)
{
    static char text[SYS_TEXT];
    static const struct { int bit; const char *format; } infos[] = {
        { IOP_ASCII,         "in ascii file <%s> token <%d> near <%s>"         },
        { IOP_BINARY,        "in binary file <%s> token <%d> near <%s>"        },
        { IOP_COMPRESSED,    "in compressed file <%s> token <%d> near <%s>"    },
        { IOP_HDF,           "in hdf file <%s> token <%d> near <%s>"           },
        { IOP_HDF_CONTAINER, "in hdf-container file <%s> token <%d> near <%s>" },
    };
    for (const auto &info : infos) {
        if (!(hd->opt & info.bit)) continue;
        snprintf(text, sizeof text, info.format, hd->fileName, hd->nTokens, hd->lastToken);
        break;
    }
    return text;
}
