/* inject.cpp: the functions that stand between the program and those of faults.def.
 *
 * The linker leads a call of `name` to __wrap_name and calls the real one __real_name. Each of ours asks fault() if it
 * is its turn. Parameters come from the function's own declaration. */

#include "test/inject/inject.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <hdf5.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <tuple>

const char *const kindNames[N_KINDS] = {
    "alloc", "open", "read", "short", "interrupted", "seek", "write", "look", "hdf"
};

/* ---- the rows ---- */

enum Row {
#define FAILS(name, ...)  ROW_##name,
#define CLOSES(name, ...) ROW_##name,
#define OWN(name)         ROW_##name,
#define NEVER(name)
#include "test/inject/faults.def"
#undef FAILS
#undef CLOSES
#undef OWN
    N_ROWS
};

static bool reached[N_ROWS];

static const char *const rowNames[] = {
#define FAILS(name, ...)  #name,
#define CLOSES(name, ...) #name,
#define OWN(name)         #name,
#include "test/inject/faults.def"
#undef FAILS
#undef CLOSES
#undef OWN
#undef NEVER
};

std::vector<std::string> injectKnown()
{
    std::vector<std::string> names(rowNames, rowNames + N_ROWS);
#define FAILS(name, ...)
#define CLOSES(name, ...)
#define OWN(name)
#define NEVER(name) names.push_back(#name);
#include "test/inject/faults.def"
#undef FAILS
#undef CLOSES
#undef NEVER
    return names;
}

std::vector<std::string> injectUnreached()
{
    std::vector<std::string> names;
    for (int i = 0; i < N_ROWS; ++i)
        if (!reached[i]) names.push_back(rowNames[i]);
    return names;
}

/* ---- whose turn it is ---- */

static bool armed;
static Kind wanted;
static int  callsLeft, faultsLeft, nFaults;         /* calls before the first that fails, faults still to come, made */
static int  nCalls;
static int  lastRow;

void injectArm(Kind kind, int n, int times)
{
    wanted = kind;
    callsLeft = n - 1;
    faultsLeft = times;
    nFaults = nCalls = 0;
    armed = true;
}

int injectDisarm()
{
    armed = false;
    return nFaults;
}

int injectCalls() { return nCalls; }

const char *injectLast() { return rowNames[lastRow]; }

static bool fault(Kind kind, Row row)
{
    if (!armed) return false;
    reached[row] = true;
    if (kind != wanted) return false;
    ++nCalls;
    if (faultsLeft < 1 || callsLeft-- > 0) return false;
    callsLeft = 0;
    --faultsLeft;
    ++nFaults;
    lastRow = row;
    return true;
}

/* ---- rows that fail in the plain way ---- */

template <class F> struct Signature;
template <class R, class... A> struct Signature<R(A...)> {
    using Answer = R;
    template <size_t i> using Argument = std::tuple_element_t<i, std::tuple<A...>>;
};
template <class R, class... A> struct Signature<R(A...) noexcept> : Signature<R(A...)> {};

#define ARG(f, i) Signature<decltype(f)>::Argument<i>
#define PARAMS_0(f)
#define PARAMS_1(f) ARG(f, 0) a
#define PARAMS_2(f) PARAMS_1(f), ARG(f, 1) b
#define PARAMS_3(f) PARAMS_2(f), ARG(f, 2) c
#define PARAMS_4(f) PARAMS_3(f), ARG(f, 3) d
#define PARAMS_5(f) PARAMS_4(f), ARG(f, 4) e
#define PARAMS_6(f) PARAMS_5(f), ARG(f, 5) g
#define PARAMS_7(f) PARAMS_6(f), ARG(f, 6) h
#define PARAMS_8(f) PARAMS_7(f), ARG(f, 7) i
#define GIVEN_0
#define GIVEN_1 a
#define GIVEN_2 a, b
#define GIVEN_3 a, b, c
#define GIVEN_4 a, b, c, d
#define GIVEN_5 a, b, c, d, e
#define GIVEN_6 a, b, c, d, e, g
#define GIVEN_7 a, b, c, d, e, g, h
#define GIVEN_8 a, b, c, d, e, g, h, i

extern "C" {

#define FAILS(name, n, kind, answer, error)                                      \
    decltype(name) __real_##name;                                                \
    Signature<decltype(name)>::Answer __wrap_##name(PARAMS_##n(name));           \
    Signature<decltype(name)>::Answer __wrap_##name(PARAMS_##n(name))            \
    {                                                                            \
        if (!fault(Kind::kind, ROW_##name)) return __real_##name(GIVEN_##n); \
        if (error) errno = error;                                                \
        return (Signature<decltype(name)>::Answer) answer;                       \
    }
#define CLOSES(name, n, kind, answer, error)                                     \
    decltype(name) __real_##name;                                                \
    Signature<decltype(name)>::Answer __wrap_##name(PARAMS_##n(name));           \
    Signature<decltype(name)>::Answer __wrap_##name(PARAMS_##n(name))            \
    {                                                                            \
        const auto closed = __real_##name(GIVEN_##n);                            \
        if (!fault(Kind::kind, ROW_##name)) return closed;             \
        if (error) errno = error;                                                \
        return answer;                                                           \
    }
#define NEVER(name)
#include "test/inject/faults.def"

/* ---- rows of their own ---- */

decltype(open)    __real_open;
decltype(read)    __real_read;
decltype(pread)   __real_pread;
decltype(send)    __real_send;
decltype(pwrite)  __real_pwrite;
decltype(waitpid) __real_waitpid;
int     __wrap_open(const char *name, int flags, ...);
ssize_t __wrap_read(int fd, void *dest, size_t n);
ssize_t __wrap_pread(int fd, void *dest, size_t n, off_t where);
ssize_t __wrap_send(int fd, const void *src, size_t n, int flags);
ssize_t __wrap_pwrite(int fd, const void *src, size_t n, off_t where);
pid_t   __wrap_waitpid(pid_t pid, int *status, int options);
int     __wrap_fprintf(FILE *fp, const char *format, ...) __attribute__((format(printf, 2, 3)));

int __wrap_open(const char *name, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = flags & O_CREAT ? va_arg(args, mode_t) : 0;
    va_end(args);
    if (!fault(Kind::OPEN, ROW_open)) return __real_open(name, flags, mode);
    errno = EMFILE;
    return -1;
}

/* For a transfer of *n bytes: 0 if it fails. One that is cut short moves a single byte. */
static bool mayMove(Kind failing, int error, Row row, size_t *n)
{
    if (fault(failing, row)) errno = error;
    else if (fault(Kind::INTERRUPTED, row)) errno = EINTR;
    else {
        if (fault(Kind::SHORT, row) && *n > 1) *n = 1;
        return true;
    }
    return false;
}

ssize_t __wrap_read(int fd, void *dest, size_t n)
{
    return mayMove(Kind::READ, EIO, ROW_read, &n) ? __real_read(fd, dest, n) : -1;
}

ssize_t __wrap_pread(int fd, void *dest, size_t n, off_t where)
{
    return mayMove(Kind::READ, EIO, ROW_pread, &n) ? __real_pread(fd, dest, n, where) : -1;
}

ssize_t __wrap_send(int fd, const void *src, size_t n, int flags)
{
    return mayMove(Kind::WRITE, EPIPE, ROW_send, &n) ? __real_send(fd, src, n, flags) : -1;
}

ssize_t __wrap_pwrite(int fd, const void *src, size_t n, off_t where)
{
    return mayMove(Kind::WRITE, ENOSPC, ROW_pwrite, &n) ? __real_pwrite(fd, src, n, where) : -1;
}

/* A call that does not wait is not interrupted. */
pid_t __wrap_waitpid(pid_t pid, int *status, int options)
{
    if ((options & WNOHANG) || !fault(Kind::INTERRUPTED, ROW_waitpid)) return __real_waitpid(pid, status, options);
    errno = EINTR;
    return -1;
}

int __wrap_fprintf(FILE *fp, const char *format, ...)
{
    if (fault(Kind::WRITE, ROW_fprintf)) {
        errno = ENOSPC;
        return -1;
    }
    va_list args;
    va_start(args, format);
    const int n = __real_vfprintf(fp, format, args);
    va_end(args);
    return n;
}

/* Memory that a failure jumps over is lost, and that is meant: a check for leaks would tell nothing else. */
__attribute__((visibility("default"), used)) const char *__asan_default_options(void);
const char *__asan_default_options(void) { return "detect_leaks=0"; }

}
