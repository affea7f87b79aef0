/* iopHdf.cpp: streams of tokens in HDF5: one stream in a file (.H), or many named ones in a container (.C).
 *
 *   .H   /QUENTA_DATA/0, 1, 2 ...                  each token, or array of tokens, is the next data set
 *   .C   /QUENTA_DATA/0, 1, 2 ...                  the container's own stream
 *        /FILES/<name>/QUENTA_DATA/0, 1, 2 ...     the stream of each file in it
 *
 * A read does not ask for a name: it takes the data set whose number is due. A string is one value of a string type;
 * numbers come in any rank, and what counts is how many they are.
 *
 * A file is not trusted. Extents, types and storage are compared with what the caller has room for before anything is
 * read; values that nobody wrote are not handed out as zeros; and no other file is ever opened, be it through a link,
 * as external storage or as the source of a virtual data set.
 *
 * Ids. Those that a handle keeps are in the handle. All others are given to `hold` as soon as they are made and go by
 * `release`, on the way out and before a failure: a jump leaves none behind.
 *
 * In this file: ids, closing and opening, files of a container, finding a data set, strings, numbers, parts and rows,
 * writing, locations. */

#include "iop/iopInt.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef RDB_HDF5_HEADER                      /* that of the host program, which has names of its own */
#include RDB_HDF5_HEADER
#else
#include <hdf5.h>
#endif

#include "base/mem.h"

enum {
    NUMBER = 12,                            /* room for a data set's name, a number that counts from 0    */
    LOC_BITS = 12, LOC_MARK = 0x58d,        /* a location: the number, and a mark that tells it from others */
    LONGEST = 16                            /* bytes of a number; what claims more is none                */
};

static const char dataGroup[] = "QUENTA_DATA", filesGroup[] = "FILES";

/* ---- ids ---- */

static hid_t held[16];
static int   nHeld;

/* A new id, or a negative one for what could not be had, which is not kept. */
static hid_t hold(hid_t id)
{
    if (id >= 0) held[nHeld++] = id;
    return id;
}

/* Closes what is held, the last first. 0: something that was still to be written was not. */
static int release(void)
{
    int closed = 1;
    while (nHeld > 0)
        if (H5Idec_ref(held[--nHeld]) < 0) closed = 0;
    return closed;
}

#define hdfFail(hd, ...)     (release(), iopFail(hd, __VA_ARGS__))
#define hdfGiveUp(hd, ...)   (release(), iopGiveUp(hd, __VA_ARGS__))

/* Does the name stand here itself? Other kinds of links may lead to other files, and no writer makes them. */
static int standsHere(hid_t group, const char *name)
{
    H5L_info_t info;
    return H5Lget_info(group, name, &info, H5P_DEFAULT) >= 0 && info.type == H5L_TYPE_HARD;
}

static hid_t openGroup(hid_t group, const char *name)
{
    return standsHere(group, name) ? H5Gopen2(group, name, H5P_DEFAULT) : -1;
}

static hid_t makeGroup(hid_t group, const char *name)
{
    return H5Gcreate2(group, name, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
}

static hid_t openOrMakeGroup(hid_t group, const char *name)
{
    const hid_t id = openGroup(group, name);
    return id >= 0 ? id : makeGroup(group, name);
}

/* ---- closing ---- */

/* The handles that have a file open to read. HDF5 has a file open once, however often it was opened: it goes on with
   what the first one saw of it. */
static iopHd *readers;

static void removeReader(iopHd *hd)
{
    iopHd **at = &readers;
    while (*at && *at != hd) at = &(*at)->next;
    if (*at) *at = hd->next;
    hd->next = NULL;
}

/* Names come one by one, but for each of them HDF5 counts from the first: so they are read at once when the first is
   asked for, and those that follow in turn are taken from here. */
static struct {
    const iopHd *container;                 /* null: no names are held                  */
    char        *text;                      /* names with their zeros                   */
    size_t       room, used, pos;
    int          next;                      /* index of the name at pos                 */
} names;

static void forgetNames(const iopHd *hd)
{
    if (names.container == hd) names.container = NULL;
}

/* The strong close takes along what was opened through the file: the files of a container that is closed before them
   have nothing left to close, and all that was written to them is in the file. */
int iopHdfClose(iopHd *hd)
{
    int written = 1;
    errno = 0;
    release();
    forgetNames(hd);
    removeReader(hd);
    if (H5Iis_valid(hd->hdfData) != 0) H5Gclose(hd->hdfData);
    if (H5Iis_valid(hd->hdfFile) != 0) {
        if (hd->opt & IOP_WRITE) written = H5Fflush(hd->hdfFile, H5F_SCOPE_LOCAL) >= 0;
        if (!hd->sharesFile) {
            if (H5Iis_valid(hd->hdfFiles) != 0) H5Gclose(hd->hdfFiles);
            if (H5Fclose(hd->hdfFile) < 0) written = 0;
        }
    }
    hd->hdfFile = hd->hdfFiles = hd->hdfData = -1;
    if (!written && !errno) errno = EIO;
    return written;
}

/* ---- opening ---- */

/* The solver may hold the file that we read, or want it while we do: a lock would make one of the two fail. Before
   1.10.7, and in 1.12.0, only the environment can tell the library; it looks there when it starts. */
#define LOCK_PROPERTY \
    (H5_VERSION_GE(1, 10, 7) && !(H5_VERS_MAJOR == 1 && H5_VERS_MINOR == 12 && H5_VERS_RELEASE == 0))

static herr_t start(void)
{
#if !LOCK_PROPERTY
    setenv("HDF5_USE_FILE_LOCKING", "FALSE", 0);
#endif
    H5Eset_auto2(H5E_DEFAULT, NULL, NULL);      /* what fails is told by our messages alone */
    return H5open();
}

static herr_t setProperties(hid_t access)
{
#if LOCK_PROPERTY
    if (H5Pset_file_locking(access, 0, 1) < 0) return -1;
#endif
    if (H5Pset_fapl_sec2(access) < 0) return -1;            /* plain files, whatever the environment says */
    return H5Pset_fclose_degree(access, H5F_CLOSE_STRONG);
}

/* A pipe would block whoever opens it. */
static hid_t openToRead(const char *name, hid_t access)
{
    struct stat st;
    if (stat(name, &st) != 0 || !S_ISREG(st.st_mode)) return -1;
    return H5Fopen(name, H5F_ACC_RDONLY, access);
}

/* Null, or the text of the failure, with a place for the name */
static const char *openFile(iopHd *hd, const char *name)
{
    const hid_t access = start() < 0 ? -1 : hold(H5Pcreate(H5P_FILE_ACCESS));
    if (access < 0) return "Unable to set property; file %s";
    if (setProperties(access) < 0) return "Error setting properties; file %s";
    H5check_version(H5_VERS_MAJOR, H5_VERS_MINOR, H5_VERS_RELEASE);
    hd->hdfFile = hd->opt & IOP_READ ? openToRead(name, access)
                                     : H5Fcreate(name, H5F_ACC_TRUNC, H5P_DEFAULT, access);
    return hd->hdfFile < 0 ? "Unable to open HDF5 file %s" : NULL;
}

/* Who has the file open as it was before it changed lets it go, or we would not see the change. */
static void takeFromReaders(const iopHd *hd)
{
    for (iopHd *r = readers, *next; r; r = next) {
        next = r->next;
        if (r->id.dev == hd->id.dev && r->id.ino == hd->id.ino && !iopSameFile(&r->id, &hd->id)) iopHdfClose(r);
    }
}

/* The file and its groups, in the same way. What is looked at before is at worst an older state than the one that is
   read, which shows at the next look. */
static const char *openTree(iopHd *hd, const char *name)
{
    hd->settled = iopLookAt(name, &hd->id) && iopIsSettled(&hd->id);
    if (hd->opt & IOP_READ) takeFromReaders(hd);
    const char *failure = openFile(hd, name);
    if (failure) return failure;
    const hid_t root = hold(H5Gopen2(hd->hdfFile, "/", H5P_DEFAULT));
    if (root < 0) return "Unable to access root; file %s";
    hd->hdfData = hd->opt & IOP_READ ? openGroup(root, dataGroup) : makeGroup(root, dataGroup);
    if (hd->hdfData < 0) return "Unable to access data node in file %s";
    if (hd->opt & IOP_HDF_CONTAINER) {
        hd->hdfFiles = openOrMakeGroup(root, filesGroup);
        if (hd->hdfFiles < 0) return "Unable to access FILES in file %s";
    }
    if (hd->opt & IOP_READ) {
        hd->next = readers;
        readers = hd;
    }
    return NULL;
}

/* Appending has no meaning for a whole file: it is written anew. It has for the files of a container. */
void iopHdfOpen(iopHd *hd, int *budget)
{
    char name[SYS_NAME + 8];
    iopDiskName(hd, name, sizeof name);
    const char *failure = openTree(hd, name);
    if (failure) hdfGiveUp(hd, failure, name);
    release();
}

/* ---- files of a container ---- */

static void checkContainer(iopHd *hd, const char *function)
{
    hd->function = function;
    if (!(hd->opt & IOP_HDF_CONTAINER)) iopFail(hd, "Invalid container <%s>", iopFileInfo(hd));
}

/* The number that a name stands for; -1 for other names. */
static int numberOf(const char *name)
{
    const size_t length = strlen(name);
    if (length == 0 || length > 10 || strspn(name, "0123456789") != length) return -1;
    const int64_t number = strtoll(name, NULL, 10);
    return number <= INT_MAX ? (int) number : -1;
}

static int isDataSet(hid_t group, const char *name)
{
    if (!standsHere(group, name)) return 0;
    const hid_t id = H5Oopen(group, name, H5P_DEFAULT);
    const int is = H5Iget_type(id) == H5I_DATASET;
    if (id >= 0) H5Oclose(id);
    return is;
}

/* The name of a group's entry, in the order of names; 0 if there is none, or one that text cannot hold. */
static int nameByIndex(hid_t group, int64_t index, char text[SYS_TEXT])
{
    const ssize_t length = H5Lget_name_by_idx(group, ".", H5_INDEX_NAME, H5_ITER_INC, (hsize_t) index, text, SYS_TEXT,
                                              H5P_DEFAULT);
    return length > 0 && length < SYS_TEXT;
}

/* What is written next goes behind the data set with the highest number. */
static void goBehindLast(iopHd *hd)
{
    char name[SYS_TEXT];
    H5G_info_t info;
    if (H5Gget_info(hd->hdfData, &info) < 0)
        hdfGiveUp(hd, "Unable to get the number of objects; file %s", hd->fileName);
    for (int64_t i = 0; i < (int64_t) info.nlinks; ++i) {
        if (!nameByIndex(hd->hdfData, i, name))
            hdfGiveUp(hd, "Unable to get the object name; index <%d>; file %s", (int) i, hd->fileName);
        const int number = numberOf(name);
        /* behind the last number there is none: there the next write fails, since its name is taken */
        if (number >= hd->nDataSets && isDataSet(hd->hdfData, name)) hd->nDataSets = number + (number < INT_MAX);
    }
}

/* Has nobody a file of the container open? Of its own it has two groups. */
static int isUnused(const iopHd *container)
{
    const ssize_t n = H5Fget_obj_count(container->hdfFile, H5F_OBJ_GROUP | H5F_OBJ_LOCAL);
    return n >= 0 && n <= 2;
}

/* HDF5 goes on with what it has seen of a file, although somebody writes it: where a data set was there may be another
   one by now. So a container that changed is opened anew; so is one that may have changed unseen since it was opened,
   being too young for its times to tell, unless that would take a file from somebody who reads it. The groups of files
   that are open then go with it. One that was good once is waited for: it is being written. */
static void renew(iopHd *container, const char *name)
{
    iopFileId now;
    int budget = iopBudget(container);
    if (!(container->opt & IOP_READ)) return;
    const int isOpen = container->hdfFiles >= 0, there = iopLookAt(name, &now);
    if (isOpen && !there) return;                       /* removed, it stays what it was as long as we have it open */
    if (isOpen && iopSameFile(&now, &container->id) && (container->settled || !isUnused(container))) return;
    iopHdfClose(container);
    while (const char *failure = openTree(container, name)) {
        iopHdfClose(container);
        if (!iopWait(&budget)) iopFail(container, failure, name);
    }
    release();
}

/* The group of a file within its container, held. */
static hid_t openMember(iopHd *hd, const char *container)
{
    const hid_t files = hd->hdfFiles;
    const int append = hd->opt & IOP_APPEND;
    if (!(hd->opt & IOP_READ)) names.container = NULL;
    if (!(hd->opt & IOP_READ) && !append) {
        H5Ldelete(files, hd->fileName, H5P_DEFAULT);                            /* there may be none */
        const hid_t made = hold(makeGroup(files, hd->fileName));
        if (made < 0) hdfGiveUp(hd, "Unable to create file %s in container %s", hd->fileName, container);
        return made;
    }
    const hid_t member = hold(hd->opt & IOP_READ ? openGroup(files, hd->fileName)
                                                 : openOrMakeGroup(files, hd->fileName));
    if (member < 0) hdfGiveUp(hd, "Unable to access file %s in container %s", hd->fileName, container);
    return member;
}

iopHd *iopOpenHdfFile(iopHd *container, const char *name, int opt)
{
    if (!(container->opt & IOP_HDF_CONTAINER))
        sysFail("Invalid container <%s> for file <%s>", iopFileInfo(container), name);
    char onDisk[SYS_NAME + 8];
    iopDiskName(container, onDisk, sizeof onDisk);
    if (!(opt & IOP_READ) && !(container->opt & IOP_WRITE))
        sysFail("Container and file read/write options are incompatible: %s and %s", onDisk, name);
    container->function = __func__;
    renew(container, onDisk);

    const char *slash = strrchr(name, '/');
    iopHd *hd = iopNew(slash ? slash + 1 : name, opt | IOP_HDF);
    hd->function = __func__;
    hd->hdfFile = container->hdfFile;
    hd->hdfFiles = container->hdfFiles;
    hd->sharesFile = 1;
    const hid_t member = openMember(hd, onDisk);
    hd->hdfData = opt & IOP_READ   ? openGroup(member, dataGroup)
                : opt & IOP_APPEND ? openOrMakeGroup(member, dataGroup)
                                   : makeGroup(member, dataGroup);
    if (hd->hdfData < 0) hdfGiveUp(hd, "Unable to access data node in file %s", hd->fileName);
    if (!(opt & IOP_READ) && (opt & IOP_APPEND)) goBehindLast(hd);
    release();
    return hd;
}

int iopGetNHdfFiles(iopHd *hd)
{
    H5G_info_t info;
    checkContainer(hd, __func__);
    if (H5Gget_info(hd->hdfFiles, &info) < 0 || info.nlinks > INT_MAX)
        iopFail(hd, "Unable to get the number of objects: %s", iopFileInfo(hd));
    return (int) info.nlinks;
}

/* Called by HDF5, through which nobody may jump. */
static herr_t addName(hid_t, const char *name, const H5L_info_t *, void *)
{
    const size_t size = strlen(name) + 1;
    if (names.used + size > names.room) {
        char *more = (char *) realloc(names.text, 2 * names.room + size);
        if (!more) return -1;
        names.text = more;
        names.room = 2 * names.room + size;
    }
    memcpy(names.text + names.used, name, size);
    names.used += size;
    return 0;
}

static void readNames(const iopHd *hd)
{
    names.used = names.pos = 0;
    names.next = 0;
    const herr_t status = H5Literate(hd->hdfFiles, H5_INDEX_NAME, H5_ITER_INC, NULL, addName, NULL);
    names.container = status >= 0 ? hd : NULL;
}

/* 0: it is not the one whose turn it is */
static int takeName(const iopHd *hd, int index, char text[SYS_TEXT])
{
    if (index == 0) readNames(hd);
    if (names.container != hd || names.next != index || names.pos >= names.used) return 0;
    const char  *name = names.text + names.pos;
    const size_t length = strlen(name);
    names.pos += length + 1;
    names.next++;
    if (length == 0 || length >= SYS_TEXT) return 0;
    memcpy(text, name, length + 1);
    return 1;
}

void iopGetHdfFileName(iopHd *hd, char *text, int index)
{
    checkContainer(hd, __func__);
    if (index < 0 || (!takeName(hd, index, text) && !nameByIndex(hd->hdfFiles, index, text)))
        iopFail(hd, "Unable to get the file name; index <%d>; %s", index, iopFileInfo(hd));
}

/* ---- finding a data set ---- */

/* The data set that is due. Its ids are held. */
typedef struct hdfSet {
    hid_t   id, type, space;
    char    name[NUMBER];
    int     rank;
    hsize_t dims[H5S_MAX_RANK], most[H5S_MAX_RANK];     /* extents now, and what they may grow to */
    hsize_t chunk[H5S_MAX_RANK];
    int     chunked, filtered;
} hdfSet;

static void nameNext(const iopHd *hd, hdfSet *set)
{
    snprintf(set->name, sizeof set->name, "%d", hd->nDataSets);
}

static void countUp(iopHd *hd)
{
    if (hd->nDataSets < INT_MAX) hd->nDataSets++;
}

/* How the values are stored; 0 if not in this file. To be asked before the extents, which a virtual data set gets from
   its sources. */
static int storedHere(hdfSet *set)
{
    const hid_t how = hold(H5Dget_create_plist(set->id));
    const H5D_layout_t layout = H5Pget_layout(how);
    set->chunked = layout == H5D_CHUNKED && H5Pget_chunk(how, H5S_MAX_RANK, set->chunk) > 0;
    set->filtered = H5Pget_nfilters(how) > 0;
    return layout >= 0 && layout != H5D_VIRTUAL && H5Pget_external_count(how) == 0;
}

/* The set that was named. */
static void openSet(iopHd *hd, hdfSet *set)
{
    release();
    set->id = standsHere(hd->hdfData, set->name) ? hold(H5Dopen2(hd->hdfData, set->name, H5P_DEFAULT)) : -1;
    if (set->id < 0 || !storedHere(set))
        hdfFail(hd, "Unable to open data set for <%s>; %s", set->name, iopFileInfo(hd));
}

static void getType(iopHd *hd, hdfSet *set)
{
    set->type = hold(H5Dget_type(set->id));
    if (set->type < 0) hdfFail(hd, "Unable to get data type for <%s>; %s", set->name, iopFileInfo(hd));
}

static void checkClass(iopHd *hd, const hdfSet *set, H5T_class_t wanted)
{
    const H5T_class_t found = H5Tget_class(set->type);
    if (found != wanted)
        hdfFail(hd, "Inconsistent data <%d> vs. <%d> for <%s>; %s", found, wanted, set->name, iopFileInfo(hd));
}

/* How many values the extents make, at most 63 bits of them; the library's own product may wrap round. */
static int64_t countValues(hdfSet *set)
{
    const H5S_class_t kind = H5Sget_simple_extent_type(set->space);
    if (kind != H5S_SCALAR && kind != H5S_SIMPLE) return 0;
    set->rank = H5Sget_simple_extent_dims(set->space, set->dims, set->most);
    int64_t n = set->rank < 0 ? 0 : 1;
    for (int i = 0; i < set->rank; ++i)
        if (set->dims[i] > INT64_MAX || __builtin_mul_overflow(n, (int64_t) set->dims[i], &n)) n = INT64_MAX;
    return n;
}

/* Where nothing was stored HDF5 would give zeros, also to a file that claims to be huge. */
static int wasWritten(const hdfSet *set, int64_t n)
{
    const hsize_t stored = H5Dget_storage_size(set->id), size = H5Tget_size(set->type);
    return stored > 0 && size > 0 && (set->filtered || stored / size >= (hsize_t) n);
}

/* Nobody can make a chunk that is longer than its extent may become. HDF5 would take what was packed into a smaller one
   for it, and read on behind. */
static int chunksFit(const hdfSet *set)
{
    for (int i = 0; set->chunked && i < set->rank; ++i)
        if (set->most[i] != H5S_UNLIMITED && set->chunk[i] > set->most[i]) return 0;
    return 1;
}

/* The extents must make n values, and these must be there. */
static void checkSize(iopHd *hd, hdfSet *set, int64_t n)
{
    const int64_t found = countValues(set);
    if (found != n)
        hdfFail(hd, "Inconsistent size <%lld> vs. <%lld> for <%s>; %s", (long long) found, (long long) n, set->name,
                iopFileInfo(hd));
    if (!chunksFit(set) || !wasWritten(set, n))
        hdfFail(hd, "Unable to read data set for <%s>; %s", set->name, iopFileInfo(hd));
}

/* Of a file that was cut since it was opened HDF5 reads zeros where there is nothing any more. To be asked behind the
   read. */
static int wasCut(const iopHd *hd)
{
    hsize_t bytes;
    void *fd;
    struct stat st;
    if (H5Fget_filesize(hd->hdfFile, &bytes) < 0 || H5Fget_vfd_handle(hd->hdfFile, H5P_DEFAULT, &fd) < 0) return 1;
    return fstat(*(int *) fd, &st) != 0 || (hsize_t) st.st_size < bytes;
}

/* ---- strings ---- */

SYS_NORETURN static void tooBig(iopHd *hd)
{
    hdfFail(hd, "string too big <%d>", SYS_TEXT);
}

/* A fixed string need not end in a zero, and may be filled up with blanks. */
static void readFixed(iopHd *hd, const hdfSet *set, char *text)
{
    const size_t size = H5Tget_size(set->type);
    const H5T_str_t pad = H5Tget_strpad(set->type);
    if (size > SYS_TEXT) tooBig(hd);
    if (size == 0 || pad == H5T_STR_ERROR ||
        H5Dread(set->id, set->type, H5S_ALL, H5S_ALL, H5P_DEFAULT, text) < 0 || wasCut(hd))
        hdfFail(hd, "Unable to read data set for <%s>; %s", set->name, iopFileInfo(hd));
    size_t length = strnlen(text, size);
    if (length == SYS_TEXT) tooBig(hd);
    if (pad == H5T_STR_SPACEPAD)
        while (length > 0 && text[length - 1] == ' ') --length;
    text[length] = 0;
}

/* Strings of variable length. Their characters lie in a heap of the file, which HDF5 reads in good faith: one of zeros
   keeps it searching for ever, one with wrong lengths makes it write where it should not. So the few bytes are followed
   here: the data set holds length, address of the heap and index in it; a heap is a head and its objects, each with
   index and size before its bytes. Numbers stand with the lowest byte first. */

enum {
    HEAP_HEAD = 16,                         /* bytes before the first object, and before each object's own */
    ADDRESS = 8                             /* bytes of the longest address                                */
};

static uint64_t numberAt(const unsigned char *at, size_t size)
{
    uint64_t number = 0;
    while (size-- > 0) number = number << 8 | at[size];
    return number;
}

static int readAt(iopHd *hd, uint64_t where, void *dest, size_t n)
{
    void *fd;
    if (where > INT64_MAX || H5Fget_vfd_handle(hd->hdfFile, H5P_DEFAULT, &fd) < 0) return 0;
    return pread(*(int *) fd, dest, n, (off_t) where) == (ssize_t) n;
}

/* Where the object of that index begins, which must have that size at least; 0 if there is none. */
static uint64_t findInHeap(iopHd *hd, uint64_t heap, size_t sizeBytes, uint64_t index, uint64_t least)
{
    unsigned char head[HEAP_HEAD];
    if (!readAt(hd, heap, head, HEAP_HEAD) || memcmp(head, "GCOL", 4) != 0) return 0;
    uint64_t at = heap + HEAP_HEAD;
    while (readAt(hd, at, head, HEAP_HEAD)) {
        const uint64_t found = numberAt(head, 2), size = numberAt(head + 8, sizeBytes);
        at += HEAP_HEAD;
        if (found == index) return size >= least ? at : 0;
        if (found == 0 || size > INT64_MAX - at - 8) return 0;              /* free space is what stands last */
        at += (size + 7) / 8 * 8;
    }
    return 0;
}

/* 0 if it cannot be read; its length, which may be beyond what text holds, to length. */
static int readFromHeap(iopHd *hd, const hdfSet *set, char *text, uint64_t *length)
{
    size_t addressBytes, sizeBytes;
    hsize_t base;
    unsigned char place[4 + ADDRESS + 4];
    const hid_t made = hold(H5Fget_create_plist(hd->hdfFile));
    if (H5Pget_sizes(made, &addressBytes, &sizeBytes) < 0 || H5Pget_userblock(made, &base) < 0) return 0;
    if (addressBytes > ADDRESS || sizeBytes > ADDRESS) return 0;
    if (!readAt(hd, H5Dget_offset(set->id), place, 4 + addressBytes + 4)) return 0;
    *length = numberAt(place, 4);
    if (*length == 0 || *length >= SYS_TEXT) return 1;
    const uint64_t heap = numberAt(place + 4, addressBytes), index = numberAt(place + 4 + addressBytes, 4);
    if (index == 0 || heap > INT64_MAX - base - HEAP_HEAD) return 0;
    const uint64_t at = findInHeap(hd, base + heap, sizeBytes, index, *length);
    return at && readAt(hd, at, text, (size_t) *length);
}

static void readVariable(iopHd *hd, const hdfSet *set, char *text)
{
    uint64_t length = 0;
    if (!readFromHeap(hd, set, text, &length))
        hdfFail(hd, "Unable to read data set for <%s>; %s", set->name, iopFileInfo(hd));
    if (length >= SYS_TEXT) tooBig(hd);
    text[length] = 0;
}

/* Only a number that is not there is the end of the data. Another kind of data where a string is due fails, optional
   or not: there the stream is out of order. */
int iopHdfGetStr(iopHd *hd, char *text, int must)
{
    hdfSet set;
    nameNext(hd, &set);
    if (!must && H5Lexists(hd->hdfData, set.name, H5P_DEFAULT) == 0) return 0;
    countUp(hd);
    openSet(hd, &set);
    set.type = hold(H5Dget_type(set.id));
    if (set.type < 0) hdfFail(hd, "Unable to get a typeId; %s", iopFileInfo(hd));
    checkClass(hd, &set, H5T_STRING);
    set.space = hold(H5Dget_space(set.id));
    if (set.space < 0) hdfFail(hd, "Unable for get data space for <%s>; %s", set.name, iopFileInfo(hd));
    checkSize(hd, &set, 1);
    const htri_t isVariable = H5Tis_variable_str(set.type);
    if (isVariable < 0) hdfFail(hd, "Unable to read data set for <%s>; %s", set.name, iopFileInfo(hd));
    if (isVariable) readVariable(hd, &set, text);
    else readFixed(hd, &set, text);
    release();
    return 1;
}

/* ---- numbers ---- */

/* Integers and reals alike. Floats are read with a memory type that is none, 1, so that their reads fail: no writer
   makes floats, and whoever asks for them in HDF5 is out of order. */
static hid_t memoryType(const iopNum *num)
{
    return num->kind == 'i' ? H5T_NATIVE_INT : num->kind == 'r' ? H5T_NATIVE_DOUBLE : 1;
}

/* HDF5 would give the nearest value that fits; of a wider type this tells when. */
static H5T_conv_ret_t whenConverting(H5T_conv_except_t what, hid_t src, hid_t dst, void *from, void *to, void *tooBig)
{
    if (what != H5T_CONV_EXCEPT_RANGE_HI && what != H5T_CONV_EXCEPT_RANGE_LOW) return H5T_CONV_UNHANDLED;
    *(int *) tooBig = 1;
    return H5T_CONV_ABORT;
}

/* An unsigned integer of our width is read as it is, since HDF5 takes its highest bit for a sign without a word. Values
   that do not fit are negative then. */
static int readUnsigned(const hdfSet *set, hid_t memory, hid_t file, void *dest)
{
    const int64_t n = H5Sget_simple_extent_npoints(memory == H5S_ALL ? set->space : memory);
    const int *values = (const int *) dest;
    if (n < 0 || H5Dread(set->id, H5T_NATIVE_UINT, memory, file, H5P_DEFAULT, dest) < 0) return -1;
    for (int64_t i = 0; i < n; ++i)
        if (values[i] < 0) return 0;
    return 1;
}

/* The values of the selections, as our kind of number: 1; 0 if one does not fit, -1 if they could not be read. */
static int readNumbers(const hdfSet *set, const iopNum *num, hid_t memory, hid_t file, void *dest)
{
    int tooBig = 0;
    hid_t transfer = H5P_DEFAULT;
    const size_t size = H5Tget_size(set->type);
    if (size == 0 || size > LONGEST) return -1;
    if (num->kind == 'i' && size == sizeof(int)) {
        const H5T_sign_t sign = H5Tget_sign(set->type);
        if (sign == H5T_SGN_ERROR) return -1;
        if (sign == H5T_SGN_NONE) return readUnsigned(set, memory, file, dest);
    }
    if (size > (size_t) num->size) {
        transfer = hold(H5Pcreate(H5P_DATASET_XFER));
        if (H5Pset_type_conv_cb(transfer, whenConverting, &tooBig) < 0) return -1;
    }
    const herr_t status = H5Dread(set->id, memoryType(num), memory, file, transfer, dest);
    return tooBig ? 0 : status < 0 ? -1 : 1;
}

static void readValues(iopHd *hd, const hdfSet *set, const iopNum *num, hid_t memory, hid_t file, void *dest)
{
    const int came = readNumbers(set, num, memory, file, dest);
    if (came == 0) hdfFail(hd, "value out of range in data set <%s>; %s", set->name, iopFileInfo(hd));
    if (came < 0 || wasCut(hd)) hdfFail(hd, "Unable to read data set for <%s>; %s", set->name, iopFileInfo(hd));
}

/* The set that was named, which must hold n numbers. With add, as in iopForm::getRows, one text is another. */
static void openNumbers(iopHd *hd, hdfSet *set, const iopNum *num, int64_t n, int add)
{
    openSet(hd, set);
    getType(hd, set);
    if (num->kind == 'i') checkClass(hd, set, H5T_INTEGER);
    set->space = hold(H5Dget_space(set->id));
    if (set->space < 0 && add) hdfFail(hd, "Unable to get data space for <%s>; %s", set->name, iopFileInfo(hd));
    if (set->space < 0) hdfFail(hd, "Unable for get data space for <%s>; %s", set->name, iopFileInfo(hd));
    checkSize(hd, set, n);
}

void iopHdfGetNums(iopHd *hd, const iopNum *num, void *dest, int64_t n)
{
    hdfSet set;
    nameNext(hd, &set);
    countUp(hd);
    openNumbers(hd, &set, num, n, 0);
    readValues(hd, &set, num, H5S_ALL, H5S_ALL, dest);
    release();
}

/* An array is one data set, however long it is. */
void iopHdfSkip(iopHd *hd, const iopNum *num, int64_t n)
{
    countUp(hd);
}

/* ---- parts of an array, rows of a table ---- */

/* Reads n of all the numbers, from `start` on, if they fill places of the first extent; 0 if they do not. */
static int readPart(iopHd *hd, hdfSet *set, const iopNum *num, int64_t start, int64_t n, int64_t all, void *dest)
{
    const int64_t each = set->rank > 0 ? all / (int64_t) set->dims[0] : all + 1;
    if (start % each != 0 || n % each != 0) return 0;
    const hsize_t size = (hsize_t) n;
    hsize_t from[H5S_MAX_RANK] = { (hsize_t) (start / each) };
    set->dims[0] = (hsize_t) (n / each);
    const hid_t memory = hold(H5Screate_simple(1, &size, NULL));
    if (memory < 0) hdfFail(hd, "Unable to clear a memory space for <%s>; %s", set->name, iopFileInfo(hd));
    if (H5Sselect_hyperslab(set->space, H5S_SELECT_SET, from, NULL, set->dims, NULL) < 0)
        hdfFail(hd, "Unable to set hyperslab <%s>; %s", set->name, iopFileInfo(hd));
    readValues(hd, set, num, memory, set->space, dest);
    return 1;
}

/* The array is one data set. */
void iopHdfGetSub(iopHd *hd, const iopNum *num, int64_t before, int64_t n, int64_t behind, void *dest)
{
    static char *whole;
    const int64_t all = before + n + behind;
    if (n > 0) {
        hdfSet set;
        nameNext(hd, &set);
        countUp(hd);
        openNumbers(hd, &set, num, all, 0);
        if (!readPart(hd, &set, num, before, n, all, dest)) {
            memFree(whole);                             /* of a read that failed */
            whole = memNew(char, memSize(all, (size_t) num->size));
            readValues(hd, &set, num, H5S_ALL, H5S_ALL, whole);
            memcpy(dest, whole + before * num->size, (size_t) (n * num->size));
            memFree(whole);
        }
        release();
    }
    iopCount(hd, all);
}

/* A table in chunks is read at the first piece, as a whole: a chunk would be unpacked for every piece that it has a
   part in. So is one whose extents do not make rows. The pieces of a plain one go straight where they belong. */
void iopHdfGetRows(iopHd *hd, int n, int m, int first, int some, int add, double *rows)
{
    static double *table;
    const int64_t size = (int64_t) n * m, start = (int64_t) n * first, wanted = (int64_t) n * some;
    if (first == 0) memFree(table);                     /* of a read that failed */
    if (!table) {
        hdfSet set;
        nameNext(hd, &set);
        openNumbers(hd, &set, &iopReals, size, add);
        if (some == m) {
            readValues(hd, &set, &iopReals, H5S_ALL, H5S_ALL, rows);
        } else if (set.chunked || !readPart(hd, &set, &iopReals, start, wanted, size, rows)) {
            table = memNew(double, size);
            readValues(hd, &set, &iopReals, H5S_ALL, H5S_ALL, table);
        }
        release();
    }
    if (table) memcpy(rows, table + start, (size_t) wanted * sizeof *rows);
    if (first + some < m) return;
    memFree(table);
    countUp(hd);
}

/* Could n values stand in the file, packed as densely as can be? The numbers of values are compared by each read. */
int iopHdfHolds(iopHd *hd, int64_t n, int size)
{
    hsize_t bytes;
    return H5Fget_filesize(hd->hdfFile, &bytes) >= 0 && n <= iopMostBytes(hd->opt, (int64_t) bytes) / size;
}

/* ---- writing ---- */

/* The extents stand in the order of the arguments, although n1 runs fastest: as readers of these files know it. */
void iopHdfPutInts(iopHd *hd, const int *src, int n1, int n2, int wrap)
{
    hdfSet set;
    const hsize_t dims[2] = { (hsize_t) n1, (hsize_t) n2 };
    release();
    nameNext(hd, &set);
    set.space = hold(H5Screate_simple(2, dims, NULL));
    if (set.space < 0) hdfFail(hd, "Unable to create a spaceId; %s", iopFileInfo(hd));
    set.type = hold(H5Tcopy(H5T_NATIVE_INT));
    if (set.type < 0) hdfFail(hd, "Unable to create a typeId; %s", iopFileInfo(hd));
    set.id = hold(H5Dcreate2(hd->hdfData, set.name, set.type, set.space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
    if (set.id < 0) hdfFail(hd, "Unable to create data set for <%s>; %s", set.name, iopFileInfo(hd));
    const herr_t status = H5Dwrite(set.id, set.type, H5S_ALL, H5S_ALL, H5P_DEFAULT, src);
    if (!release() || status < 0) hdfFail(hd, "Unable to write data set for <%s>; %s", set.name, iopFileInfo(hd));
    countUp(hd);
}

int iopHdfPutBin(iopHd *hd, const int *src, int64_t n)
{
    iopHdfPutInts(hd, src, (int) n, 1, 0);
    return 1;
}

/* ---- locations ---- */

int64_t iopHdfGetLoc(iopHd *hd)
{
    return ((int64_t) hd->nDataSets << LOC_BITS) | LOC_MARK;
}

int iopHdfSetLoc(iopHd *hd, int64_t loc, int reread)
{
    const int64_t number = loc >> LOC_BITS, mark = loc & ((1 << LOC_BITS) - 1);
    if (mark != LOC_MARK || number < 0 || number > INT_MAX)
        iopFail(hd, "Invalid location <%lld>; %s", (long long) loc, iopFileInfo(hd));
    hd->nDataSets = (int) number;
    return 1;
}
