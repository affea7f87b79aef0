/* iopZip.cpp: the compressed form: text that the programs `zcat` and `compress` turn back and forth, through a pipe.
 *
 * The programs are looked for on the search path and started with an argument vector: no shell sees a file name.
 * Nobody waits for them at the open; a `zcat` that fails, for lack of the file say, shows as the end of the data. Its
 * complaint goes to our standard error.
 *
 * A pipe has no way back, yet locations work as on a file. A part of what was decoded stays in the handle's piece (see
 * nKeep in iopInt.h), which serves optional items; whoever goes back further starts the program anew and drops what
 * comes before the place. So does a second look at the data (reread), since only a new run sees what was added.
 *
 * Whoever will go back more than once has what comes through the pipe kept in a file without a name (iopKeepDecoded). It
 * always begins at the first byte, and the pipe stands behind its last one: what lies before is read from the file, what
 * lies behind comes through the pipe and is added. Where there is no room for more the file is dropped, and all is as if
 * nothing had been kept.
 *
 * When writing, our end is a socket and not a pipe: a program that dies early is to be an error of the next write and
 * not a signal that ends the host. */

#include "iop/iopInt.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

/* ---- the programs ---- */

/* Starts a program with these as standard input (-1: empty) and output; errno and 0 if that fails. A host that ignores
   or blocks SIGPIPE must not keep our program from ending with its reader. */
static pid_t start(const char *program, const char *argument, int in, int out)
{
    char *const argv[] = { (char *) program, (char *) argument, NULL };
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    sigset_t signals;
    pid_t pid = 0;
    posix_spawn_file_actions_init(&files);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigaddset(&signals, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    int error = in < 0 ? posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0)
                       : posix_spawn_file_actions_adddup2(&files, in, 0);
    if (!error) error = posix_spawn_file_actions_adddup2(&files, out, 1);
    if (!error) error = posix_spawnp(&pid, program, &files, &attributes, argv, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    errno = error;
    return error ? 0 : pid;
}

/* Waits for the handle's program: its exit status, -1 if a signal ended it, 0 also if the host has taken the status. */
static int await(iopHd *hd)
{
    int status = 0;
    pid_t ended = 0;
    if (hd->pid > 0) do ended = waitpid(hd->pid, &status, 0); while (ended < 0 && errno == EINTR);
    hd->pid = 0;
    if (ended <= 0) return 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/* Ends a program that has more to say than we want to hear. */
static void stop(iopHd *hd)
{
    int status;
    if (hd->pid < 1) return;
    if (waitpid(hd->pid, &status, WNOHANG) == 0) {
        kill(hd->pid, SIGKILL);
        await(hd);
    }
    hd->pid = 0;
}

/* ---- what is kept of the decoded text ---- */

int64_t iopKeptShare = 4;

static int64_t allKept;                     /* bytes, of all handles */

static void dropKept(iopHd *hd)
{
    if (hd->keptFd >= 0) close(hd->keptFd);
    hd->keptFd = -1;
    allKept -= hd->nKept;
    hd->nKept = hd->mostKept = 0;
}

/* The pipe begins anew. */
static void emptyKept(iopHd *hd)
{
    if (hd->nKept > 0 && ftruncate(hd->keptFd, 0) != 0) return dropKept(hd);
    allKept -= hd->nKept;
    hd->nKept = 0;
}

/* A program that has closed its standard streams gets their numbers for its next files, and what it prints then goes
   into them. */
static int aboveStandard(int fd)
{
    if (fd < 0 || fd > 2) return fd;
    const int above = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    close(fd);
    return above;
}

void iopKeepDecoded(iopHd *hd)
{
    const char *folder = getenv("TMPDIR");
    char        name[SYS_NAME];
    if (iopGoesBack(hd) || !(hd->opt & IOP_READ) || hd->keptFd >= 0 || hd->ahead.start + hd->ahead.size > 0) return;
    const int length = snprintf(name, sizeof name, "%s/rdb-XXXXXX", folder && *folder ? folder : "/var/tmp");
    if (length >= (int) sizeof name) return;
    const int fd = mkostemp(name, O_CLOEXEC);
    if (fd >= 0) unlink(name);
    hd->keptFd = aboveStandard(fd);
}

/* How much more may be kept in the handle's file: all handles together take a quarter of the room that there is without
   them. To write beyond the size that the host's files may have would end it by a signal. */
static int64_t roomFor(const iopHd *hd)
{
    struct statvfs disk;
    struct rlimit  limit;
    if (fstatvfs(hd->keptFd, &disk) != 0 || getrlimit(RLIMIT_FSIZE, &limit) != 0) return 0;
    const uint64_t whole = (uint64_t) disk.f_bavail * disk.f_frsize + (uint64_t) allKept;
    const int64_t  share = (int64_t) (whole / (uint64_t) iopKeptShare);
    const int64_t  longest = limit.rlim_cur < INT64_MAX ? (int64_t) limit.rlim_cur : INT64_MAX;
    const int64_t  more = share - allKept, below = longest - hd->nKept;
    return more < below ? more : below;
}

/* The room is looked at again now and then, since others take of it too. */
static int mayKeep(iopHd *hd, int64_t n)
{
    const int64_t atOnce = 16 << 20;
    if (n <= hd->mostKept - hd->nKept) return 1;
    const int64_t room = roomFor(hd);
    hd->mostKept = hd->nKept + (room < atOnce ? room : atOnce);
    return n <= hd->mostKept - hd->nKept;
}

/* Adds what came through the pipe. */
static void keep(iopHd *hd, const char *bytes, int64_t n)
{
    if (!mayKeep(hd, n)) return dropKept(hd);
    for (int64_t done = 0; done < n;) {
        const ssize_t some = pwrite(hd->keptFd, bytes + done, (size_t) (n - done), hd->nKept + done);
        if (some == 0 || (some < 0 && errno != EINTR)) return dropKept(hd);
        if (some > 0) done += some;
    }
    hd->nKept += n;
    allKept += n;
}

int64_t iopZipRead(iopHd *hd, void *dest, int64_t n)
{
    const int64_t at = hd->ahead.start + hd->ahead.size, here = hd->nKept - at;
    ssize_t       got;
    if (here > 0) {
        do got = pread(hd->keptFd, dest, (size_t) (n < here ? n : here), at); while (got < 0 && errno == EINTR);
        return got > 0 ? got : -1;          /* no end of the data */
    }
    got = iopStreamRead(hd, dest, n);
    if (got > 0 && hd->keptFd >= 0) keep(hd, (const char *) dest, got);
    return got;
}

/* ---- open ---- */

/* A named pipe or a device would keep the program, and then us, waiting for ever. That there is no file, or only a
   directory, the program says itself. */
static int refused(const char *name)
{
    struct stat st;
    if (stat(name, &st) != 0 || S_ISREG(st.st_mode) || S_ISDIR(st.st_mode)) return 0;
    errno = EINVAL;
    return 1;
}

/* Starts decoding at the first byte; 0 and errno: as if nothing had been asked for. */
static int startReading(iopHd *hd)
{
    char path[SYS_NAME + 8] = "./";
    iopDiskName(hd, path + 2, SYS_NAME + 6);
    const char *name = path[2] == '-' ? path : path + 2;    /* else it would be an option */
    int ends[2];
    if (refused(name) || pipe2(ends, O_CLOEXEC) != 0) return 0;
    FILE *fp = fdopen(ends[0], "r");
    const pid_t pid = fp ? start("zcat", name, -1, ends[1]) : 0;
    const int error = errno;
    close(ends[1]);
    if (pid < 1) {
        if (fp) fclose(fp);
        else close(ends[0]);
        errno = error;
        return 0;
    }
    if (hd->fp) fclose(hd->fp);
    stop(hd);
    hd->fp = fp;
    hd->pid = pid;
    hd->ahead.start = hd->ahead.pos = hd->ahead.size = 0;
    emptyKept(hd);
    return 1;
}

static ssize_t sendAll(void *cookie, const char *bytes, size_t n)
{
    size_t sent = 0;
    while (sent < n) {
        const ssize_t some = send((int) (intptr_t) cookie, bytes + sent, n - sent, MSG_NOSIGNAL);
        if (some > 0) sent += (size_t) some;
        else if (errno != EINTR) break;
    }
    return (ssize_t) sent;                  /* fewer than n: an error */
}

/* The program is to see the end even if the host has forked meanwhile, with a copy of our end. */
static int closeEnd(void *cookie)
{
    const int end = (int) (intptr_t) cookie;
    shutdown(end, SHUT_WR);
    return close(end);
}

static FILE *openEnd(int end)
{
    const cookie_io_functions_t functions = { NULL, sendAll, NULL, closeEnd };
    return fopencookie((void *) (intptr_t) end, "w", functions);
}

/* The descriptors are made in this order so that, where the host has closed its standard ones, none of them is
   overwritten before it is in its place. */
static int startWriting(iopHd *hd, const char *name)
{
    int ends[2];
    if (refused(name) || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return 0;
    const int file = open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    FILE *fp = file < 0 ? NULL : openEnd(ends[1]);
    if (fp) hd->pid = start("compress", NULL, ends[0], file);
    const int error = errno;
    close(ends[0]);
    if (file >= 0) close(file);
    if (hd->pid < 1) {
        if (fp) fclose(fp);
        else close(ends[1]);
        errno = error;
        return 0;
    }
    hd->fp = fp;
    return 1;
}

void iopZipOpen(iopHd *hd, int *)
{
    char name[SYS_NAME + 8];
    iopDiskName(hd, name, sizeof name);
    if (!(hd->opt & IOP_READ) && (hd->opt & IOP_APPEND))
        iopGiveUp(hd, "Unable to append to compressed file <%s>", name);
    if (!(hd->opt & IOP_READ ? startReading(hd) : startWriting(hd, name)))
        iopGiveUp(hd, "unable to open compressed file <%s>; %s", name, strerror(errno));
    iopStreamBuffer(hd);
}

/* ---- close ---- */

/* compress ends with 2 for a file that became no smaller; it is whole. */
static int compressed(iopHd *hd)
{
    const int status = await(hd);
    if (status == 0 || status == 2) return 1;
    errno = EIO;
    return 0;
}

int iopZipClose(iopHd *hd)
{
    dropKept(hd);
    if (hd->opt & IOP_READ) stop(hd);
    const int closed = iopStreamClose(hd), error = errno;
    const int done = compressed(hd) || (hd->opt & IOP_DELETE);
    if (!closed) errno = error;
    return closed && done;
}

/* ---- locations ---- */

/* Reads up to a location that is not before the piece; 0: the data end before it. */
static int forward(iopHd *hd, int64_t loc)
{
    iopAhead *a = &hd->ahead;
    do a->pos = a->size; while (loc > a->start + a->size && iopFill(hd));
    if (loc > a->start + a->size) return 0;
    a->pos = (int) (loc - a->start);
    return 1;
}

int iopZipSetLoc(iopHd *hd, int64_t loc, int reread)
{
    iopAhead *a = &hd->ahead;
    if (!hd->fp || !(hd->opt & IOP_READ) || loc < 0) return 0;
    if (!reread && hd->nKept > 0 && (loc < a->start || loc > a->start + a->size)) {
        a->start = loc < hd->nKept ? loc : hd->nKept;
        a->pos = a->size = 0;
    }
    if ((reread || loc < a->start) && !startReading(hd)) {
        char name[SYS_NAME + 8];
        iopDiskName(hd, name, sizeof name);
        iopFail(hd, "unable to open compressed file <%s>; %s", name, strerror(errno));
    }
    return forward(hd, loc);
}
