#ifndef BASE_SYS_H
#define BASE_SYS_H

/* sys.h: what the library says, how it fails, and what it asks of the machine.
 *
 * Messages and failures (sysMess.cpp). A check that fails formats one text and calls sysFail, which never
 * returns: it jumps to the innermost armed trap, or ends the process with code 1 when none is armed. No frame
 * that can be left by such a jump may hold an object whose destructor matters. What such frames allocated is lost.
 *
 * Queries of host, clock, directory and memory (sysHost.cpp, sysTime.cpp, sysCwd.cpp), and the small loops over
 * arrays that everybody needs (sysUtil.cpp).
 *
 * All state is process-wide and belongs to one thread of control at a time. Texts that are returned belong to the
 * library and hold until the next call that changes them. */

#include <locale.h>
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

/* ------------------------------------------- names and versions ------------------------------------------- */

/* The name that heads every message: `name` without its directory (either separator) and without its last extension.
   May not return: "program name is too long <%s>" from 8192 characters on. Until it is called the name is "QUENTA". */
void        sysSetProgName(const char *name);
const char *sysGetProgName(void);       /* the name that heads messages */

/* The version that goes into binary files and is shown by the usage; "1.0" until it is set. May not return: "version
   is too long <%s>" from 8192 characters on. */
void        sysSetVersion(const char *version);
const char *sysGetVersion(void);        /* the version that was set */

/* ------------------------------------------------ messages ------------------------------------------------ */

/* The line "<prog>: <text>", on standard output. A host program may send it to its log file, to the event log or to
   standard error instead. */
void sysMessage(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* The line "<prog>: *** ERROR: <text>", on standard output, and in a host's log file, too; with an event log, in the
   log file or else in the event log. Ends nothing. */
void sysErrorMessage(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* Standard output: what is waiting is written; and from here on all of it is written line by line. With an event log
   both do nothing. */
void sysFlushStdout(void);
void sysLineBuffer(void);

/* 1 if messages go to the system's event log, 0 as a rule. */
int  sysUseEventLog(void);

/* Reports "Process <number>; <text>" to the event log, cut at 1023 characters. Of the level the low three bits count:
   3 error, 4 warning, 6 information, 0 nothing at all, others error. */
void sysEventLog(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* ---------------------------------- failures: none of these returns --------------------------------------- */

/* sysFail("nRows  <%d> error", n): formats, cut at 8191 characters, and asserts with this function, file and line.
   sysFailIn(function, ...) carries another function's name: a family's getter, say. Both go through sysFailAt. */
SYS_NORETURN void sysFailAt(const char *function, const char *file, int line, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
#define sysFail(...)             sysFailAt(__func__, __FILE__, __LINE__, __VA_ARGS__)
#define sysFailIn(function, ...) sysFailAt(function, __FILE__, __LINE__, __VA_ARGS__)

/* The text is "<prog>: *** ASSERTION in Function <..> File <..> Line <..>\n<prog>: *** <message>". */
SYS_NORETURN void sysAssert(const char *message, const char *function, const char *file, int line);

/* The same for kernels that carry fixed texts of 16 characters, filled up with blanks; without file and line. The first
   takes both in one array of 32, the second apart, where a shorter text may end with a zero. */
SYS_NORETURN void sysAssertFixed(const char *fields);
SYS_NORETURN void sysAssertFixed2(const char *function, const char *message);

/* "<prog>: *** ERROR: <text>\n", without a location: the text as it stands, or formatted and cut at 8191 characters. */
SYS_NORETURN void sysError(const char *message);
SYS_NORETURN void sysErrorF(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* The orderly end of the process with this code: output is flushed, and the host's exit handlers run from the last to
   the first. For a code other than 0 a second passes before and after them, in which whoever collects the output may
   read it. */
SYS_NORETURN void sysExit(int code);

/* ------------------------------------------------ the trap ------------------------------------------------ */

/* The trap; exported names, see rdb/rdb.h. Use: if (setjmp(*rdbAssertEnv()) == 0) { ... } rdbAssertEndTrap();
   A failure lands there with the value 1 and leaves the trap armed: it is disarmed on both ways out. Beyond 100 levels
   the last one is used again. rdbAssertEndTrap gives the number of traps still armed, less 1. All three return. */
SYS_EXPORT jmp_buf    *rdbAssertEnv(void);
SYS_EXPORT const char *rdbAssertErrorStr(void);     /* the text of the last failure under a trap */
SYS_EXPORT int         rdbAssertEndTrap(void);

/* --------------------------------------------- machine queries -------------------------------------------- */

/* The system's names into a record of the caller's, each cut to 19 characters, the node name to 18. Gives a negative
   number, and empty names, if the system does not tell. */
typedef struct sysUnameRec {
    char sysName[20], nodeName[20], release[20], version[20], machine[20];
} sysUnameRec;
int         sysUname(sysUnameRec *rec);

/* The computer's name, of at most 18 characters, asked for once. May not return: "Error in uname". */
const char *sysHostName(void);

/* The platform's name in prefixes of configuration keys: "win64" everywhere. */
const char *sysPlatform(void);

/* Seconds since 1970, and the local time as "Mon Mar 15 21:48:04 2021". May not return: "time not available". */
int         sysTime(void);
const char *sysDate(void);

/* Seconds since the first call, in steps of a millisecond. */
double      sysElapsed(void);

/* The current directory into a text of `size` bytes, its final zero included; and changing it. May not return: "Error
   in getcwd; %s", also if the text is too small; "Error in chdir to <%s>; %s"; both with the system's reason. */
void        sysGetCwd(char *text, int size);
void        sysSetCwd(const char *dir);

/* Makes a network file system show what others have just written. Once sysSyncOff was called it does nothing. May not
   return: "Error in getcwd; %s", "Error in chdir; %s". */
void        sysSync(void);
void        sysSyncOff(void);

/* Memory; 0 if the system does not tell. */
int         sysAvailRam(void);          /* available physical memory in megabytes     */
int         sysSwapSize(void);          /* total swap space in megabytes              */
int64_t     sysPeakMemory(void);        /* the process' greatest working set in bytes */

/* Waiting: everything that waits calls sysSleep, or sysPause for a part of a second, and these call the sleeper. A null
   sleeper restores the real one; the former is returned. Tests set one that only counts. Not above 0: no wait. */
typedef void (*sysSleeper)(double seconds);
void       sysSleep(int seconds);
void       sysPause(double seconds);
sysSleeper sysSetSleeper(sysSleeper sleeper);

/* ------------------------------- loops over arrays; n below 1 does nothing -------------------------------- */

void sysSortInts(int *v, int n);                            /* ascending                                            */
int  sysSortUniqueInts(int *v, int n);                      /* ascending, each once; gives the new count            */
void sysSortTuples(int *v, int n, int k);                   /* n tuples of k, each together, by their integers in
                                                               order; k below 1 does nothing                        */
void sysZeroReals(double *v, int n);                        /* all become 0                                         */
void sysZeroInts(int *v, int n);
void sysFillReals(double *v, int n, double value);          /* all become the value                                 */
void sysFillInts(int *v, int n, int value);
void sysIotaInts(int *v, int n);                            /* 0, 1, 2, ...                                         */
void sysCopyReals(const double *src, double *dst, int n);   /* the arrays may overlap                               */
void sysCopyInts(const int *src, int *dst, int n);
void sysAddInt(int *v, int n, int value);                   /* to each; a sum beyond 32 bits wraps around           */
int  sysSumInts(const int *v, int n);                       /* may not return: "sum <%lld> exceeds an integer"      */

/* Looks for a value among n ascending keys that lie `stride` integers apart. Found: its position, flag 0. Else the last
   position whose key is not above the value, 0 if there is none, and flag 1. */
int  sysBinFind(const int *keys, int n, int stride, int value, int *flag);

/* ------------------------------------------------- numbers ------------------------------------------------ */

/* The locale "C", for strtod_l and its kin: what others write into files does not depend on the language of whoever
   runs the program. May not return: "unable to get the plain locale". */
locale_t sysPlainLocale(void);

#ifdef __cplusplus
}
#endif
#endif
