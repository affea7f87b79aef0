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
 * When writing, our end is a socket and not a pipe: a program that dies early is to be an error of the next write and
 * not a signal that ends the host. */

#include "iop/iopInt.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
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
    if (!hd->fp || !(hd->opt & IOP_READ) || loc < 0) return 0;
    if ((reread || loc < hd->ahead.start) && !startReading(hd)) {
        char name[SYS_NAME + 8];
        iopDiskName(hd, name, sizeof name);
        iopFail(hd, "unable to open compressed file <%s>; %s", name, strerror(errno));
    }
    return forward(hd, loc);
}
