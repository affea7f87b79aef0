#ifndef BASE_SYS_H
#define BASE_SYS_H

/* sys.h: what the library says, how it fails, and what it asks of the machine.
 *
 * Messages and failures (sysMess.cpp). A check that fails formats one text and calls sysFail, which never
 * returns: it jumps to the innermost armed trap, or ends the process with code 1 when none is armed. No frame
 * that can be left by such a jump may hold an object whose destructor matters.
 *
 * Queries of host, clock, directory and memory (sysHost.cpp, sysTime.cpp, sysCwd.cpp), and the small loops over
 * arrays that everybody needs (sysUtil.cpp).
 *
 * All state is process-wide and belongs to one thread of control at a time. */

#include <setjmp.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

enum {
    SYS_TEXT = 8192,        /* size of a text buffer, its final zero included */
    SYS_NAME = 1024,        /* size of a file name buffer                     */
    SYS_TRAP_TEXT = 8704,   /* size of the trap text                          */
    SYS_MAX_TRAPS = 100
};

#ifdef __cplusplus
extern "C" {
#define SYS_NORETURN [[noreturn]]
#else
#define SYS_NORETURN _Noreturn
#endif
#define SYS_EXPORT __attribute__((visibility("default")))      /* seen outside the library */

/* Names and versions */
void        sysSetProgName(const char *name);
const char *sysGetProgName(void);
void        sysSetVersion(const char *version);
const char *sysGetVersion(void);

/* Messages */
int  sysUseEventLog(void);
void sysMessage(const char *format, ...) __attribute__((format(printf, 1, 2)));
void sysErrorMessage(const char *format, ...) __attribute__((format(printf, 1, 2)));
void sysFlushStdout(void);
void sysLineBuffer(void);
void sysEventLog(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* Failures: none of these returns */
SYS_NORETURN void sysAssert(const char *message, const char *function, const char *file, int line);
SYS_NORETURN void sysAssertFixed(const char *fields);                         /* 2 x 16 characters */
SYS_NORETURN void sysAssertFixed2(const char *function, const char *message); /* 16 characters each */
SYS_NORETURN void sysError(const char *message);
SYS_NORETURN void sysExit(int code);

/* sysFail("nRows  <%d> error", n): formats (bounded) and asserts with this function, file and line.
   sysFailIn(function, ...) carries another function's name: a family's getter, say. */
SYS_NORETURN void sysFailAt(const char *function, const char *file, int line, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
#define sysFail(...)             sysFailAt(__func__, __FILE__, __LINE__, __VA_ARGS__)
#define sysFailIn(function, ...) sysFailAt(function, __FILE__, __LINE__, __VA_ARGS__)
/* The same for sysError: "<prog>: *** ERROR: <text>", without a location. */
SYS_NORETURN void sysErrorF(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* The trap; exported names, see rdb/rdb.h. Use: if (setjmp(*rdbAssertEnv()) == 0) { ... } rdbAssertEndTrap(); */
SYS_EXPORT jmp_buf    *rdbAssertEnv(void);
SYS_EXPORT const char *rdbAssertErrorStr(void);
SYS_EXPORT int         rdbAssertEndTrap(void);

/* Machine queries */
typedef struct sysUnameRec {
    char sysName[20], nodeName[20], release[20], version[20], machine[20];
} sysUnameRec;
int         sysUname(sysUnameRec *rec);
const char *sysHostName(void);
const char *sysPlatform(void);
int         sysTime(void);
const char *sysDate(void);
double      sysElapsed(void);
void        sysGetCwd(char *text, int size);
void        sysSetCwd(const char *dir);
void        sysSync(void);
void        sysSyncOff(void);
int         sysAvailRam(void);
int         sysSwapSize(void);
int64_t     sysPeakMemory(void);

/* Waiting: everything that waits calls sysSleep, and sysSleep calls the sleeper. A null sleeper restores the real
   one; the former is returned. Tests set one that only counts. */
typedef void (*sysSleeper)(int seconds);
void       sysSleep(int seconds);
sysSleeper sysSetSleeper(sysSleeper sleeper);

/* Loops over arrays; n below 1 does nothing */
void sysSortInts(int *v, int n);
int  sysSortUniqueInts(int *v, int n);
void sysSortTuples(int *v, int n, int k);
void sysZeroReals(double *v, int n);
void sysZeroInts(int *v, int n);
void sysFillReals(double *v, int n, double value);
void sysFillInts(int *v, int n, int value);
void sysIotaInts(int *v, int n);
void sysCopyReals(const double *src, double *dst, int n);
void sysCopyInts(const int *src, int *dst, int n);
void sysAddInt(int *v, int n, int value);
int  sysSumInts(const int *v, int n);
int  sysBinFind(const int *keys, int n, int stride, int value, int *flag);

#ifdef __cplusplus
}
#endif
#endif
