/* sysMess.cpp: the library's one way of saying anything and its one way of failing.
 *
 * A failed check formats a text and calls sysFail or sysAssert. When a trap is armed the text is left in the trap text
 * and control jumps to the owner of the innermost trap; nobody in between gets to clean up. With no trap armed the
 * text goes to standard error and the process ends with code 1.
 *
 * The jump does not disarm: the owner calls rdbAssertEndTrap on both ways out.
 *
 * In this file: program name and version, printers, event log, failures, the trap, the end of the process. */

#include "base/sys.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/sysInt.h"

sysMessState sysMess = {
    "QUENTA",           /* progPath      */
    "QUENTA",           /* progName      */
    "1.0",              /* version       */
    nullptr,            /* logFile       */
    0,                  /* eventLog      */
    0,                  /* stderrEcho    */
    0xff,               /* eventMask     */
    nullptr,            /* eventSource   */
    -1,                 /* trapDepth     */
    {},                 /* traps         */
    "",                 /* trapText      */
    0,                  /* nExitHandlers */
    nullptr,            /* exitHandlers  */
};

enum { EVENT_TEXT = 1024, LINE_BUFFER = 1024 };

static const char assertFormat[] = "%s: *** ASSERTION in Function <%s> File <%s> Line <%d>\n%s: *** %s";

/* Formats into a buffer and cuts what is too long. */
static void formatCut(char *text, size_t size, const char *format, ...) __attribute__((format(printf, 3, 4)));

static void formatCut(char *text, size_t size, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vsnprintf(text, size, format, args);
    va_end(args);
}

/* ---------------------------------------- program name and version ---------------------------------------- */

/* The text behind the last separator, or all of it. */
static const char *behindLast(const char *text, char separator)
{
    const char *last = strrchr(text, separator);
    return last ? last + 1 : text;
}

void sysSetProgName(const char *name)
{
    formatCut(sysMess.progPath, sizeof sysMess.progPath, "%s", name);
    const char *base = behindLast(behindLast(name, '/'), '\\');
    if (strlen(base) >= SYS_TEXT) sysFail("program name is too long <%s>", base);
    memmove(sysMess.progName, base, strlen(base) + 1);             /* it may be our own text */
    char *dot = strrchr(sysMess.progName, '.');
    if (dot) *dot = 0;
}

const char *sysGetProgName(void)
{
    return sysMess.progName;
}

void sysSetVersion(const char *version)
{
    if (strlen(version) >= SYS_TEXT) sysFail("version is too long <%s>", version);
    /* it may be our own text */
    memmove(sysMess.version, version, strlen(version) + 1);
}

const char *sysGetVersion(void)
{
    return sysMess.version;
}

/* ------------------------------------------------ printers ------------------------------------------------ */

/* One line: the head with the program name in it, the text, a newline. */
static void printLine(FILE *out, const char *mark, const char *format, va_list args)
{
    va_list again;
    va_copy(again, args);
    fprintf(out, "%s: %s", sysMess.progName, mark);
    vfprintf(out, format, again);
    fputc('\n', out);
    va_end(again);
}

static void eventLine(int level, const char *format, va_list args)
{
    char text[EVENT_TEXT];
    va_list again;
    va_copy(again, args);
    vsnprintf(text, sizeof text, format, again);
    va_end(again);
    sysEventLog(level, "%s", text);
}

int sysUseEventLog(void)
{
    return sysMess.eventLog;
}

void sysMessage(const char *format, ...)
{
    bool printed = false;
    va_list args;
    va_start(args, format);
    if (sysMess.logFile) {
        printLine(sysMess.logFile, "", format, args);
        printed = true;
    }
    if (sysMess.eventLog) {
        eventLine(6, format, args);
        printed = true;
    }
    if (sysMess.stderrEcho) printLine(stderr, "", format, args);
    else if (!printed) printLine(stdout, "", format, args);
    va_end(args);
}

void sysErrorMessage(const char *format, ...)
{
    static const char mark[] = "*** ERROR: ";
    va_list args;
    va_start(args, format);
    if (sysMess.logFile) printLine(sysMess.logFile, mark, format, args);
    /* unlike a plain message, an error shows on standard output even when a log file took it */
    if (!sysMess.eventLog) printLine(stdout, mark, format, args);
    else if (!sysMess.logFile) eventLine(3, format, args);
    va_end(args);
}

void sysFlushStdout(void)
{
    if (!sysMess.eventLog) fflush(stdout);
}

void sysLineBuffer(void)
{
    /* allocated once and never released: the stream goes on when the library is unloaded. Not by memAlloc, since this
       stands on the way of every failure; without memory the stream takes a buffer of its own size. */
    static char *buffer;
    if (sysMess.eventLog) return;
    fflush(stdout);
    if (!buffer) buffer = (char *) malloc(LINE_BUFFER);
    setvbuf(stdout, buffer, _IOLBF, LINE_BUFFER);
}

void sysEventLog(int level, const char *format, ...)
{
    level &= 7;
    if (!(sysMess.eventMask & (unsigned) level)) return;
    char text[EVENT_TEXT], event[EVENT_TEXT];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    formatCut(event, sizeof event, "Process %d; %s", (int) getpid(), text);
    if (!sysMess.eventSource) return;
    sysMess.eventSource(level == 4 ? SYS_EVENT_WARNING : level == 6 ? SYS_EVENT_INFO : SYS_EVENT_ERROR, event);
}

/* ------------------------------------------------ failures ------------------------------------------------ */

/* Leaves the formatted text to the owner of the innermost trap. The text is made aside first: an owner that fails
   again with the text it just got hands us our own buffer. */
[[noreturn]] static void jumpWith(const char *format, ...) __attribute__((format(printf, 1, 2)));

static void jumpWith(const char *format, ...)
{
    char text[SYS_TRAP_TEXT];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    memcpy(sysMess.trapText, text, sizeof text);
    longjmp(sysMess.traps[sysMess.trapDepth], 1);
}

/* Prints the text on standard error and ends the process. */
[[noreturn]] static void endWith(const char *format, ...) __attribute__((format(printf, 1, 2)));

static void endWith(const char *format, ...)
{
    fflush(stdout);
    va_list args;
    va_start(args, format);
    vfprintf(stderr, format, args);
    va_end(args);
    fflush(stderr);
    sysExit(1);
}

void sysAssert(const char *message, const char *function, const char *file, int line)
{
    const char *prog = sysMess.progName;
    if (sysMess.trapDepth >= 0) jumpWith(assertFormat, prog, function, file, line, prog, message);
    if (!sysMess.eventLog)
        endWith("\n%s: *** ASSERTION in Function <%s> File <%s> Line <%d>\n%s: *** %s\n", prog, function, file, line,
                prog, message);
    char text[SYS_TRAP_TEXT];
    formatCut(text, sizeof text, assertFormat, prog, function, file, line, prog, message);
    sysEventLog(3, "%s", text);
    sysExit(1);
}

void sysFailAt(const char *function, const char *file, int line, const char *format, ...)
{
    char text[SYS_TEXT];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    sysAssert(text, function, file, line);
}

/* A field of 16 characters as a text: trailing blanks go, the first character always stays. */
static void fieldText(const char *field, char text[17])
{
    memcpy(text, field, 16);
    text[16] = 0;
    for (int i = 15; i > 0 && text[i] == ' '; --i) text[i] = 0;
}

void sysAssertFixed(const char *fields)
{
    char function[17], message[17];
    fieldText(fields, function);
    fieldText(fields + 16, message);
    const char *prog = sysMess.progName;
    if (sysMess.trapDepth >= 0)
        jumpWith("%s: *** ASSERTION in Function <%s>\n%s: *** %s\n", prog, function, prog, message);
    endWith("\n%s: *** ASSERTION in Function <%s>\n%s: *** %s\n", prog, function, prog, message);
}

void sysAssertFixed2(const char *function, const char *message)
{
    char fields[33];
    /* a shorter text is filled up with blanks, so that nothing behind it is read */
    snprintf(fields, sizeof fields, "%-16.16s%-16.16s", function, message);
    sysAssertFixed(fields);
}

void sysError(const char *message)
{
    const char *prog = sysMess.progName;
    if (sysMess.trapDepth >= 0) jumpWith("%s: *** ERROR: %s\n", prog, message);
    endWith("\n%s: *** ERROR: %s\n", prog, message);
}

void sysErrorF(const char *format, ...)
{
    char text[SYS_TEXT];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    sysError(text);
}

/* ------------------------------------------------ the trap ------------------------------------------------ */

jmp_buf *rdbAssertEnv(void)
{
    /* beyond the last level the last buffer is used again, and nobody is told */
    if (sysMess.trapDepth < SYS_MAX_TRAPS - 1) ++sysMess.trapDepth;
    return &sysMess.traps[sysMess.trapDepth];
}

const char *rdbAssertErrorStr(void)
{
    return sysMess.trapText;
}

int rdbAssertEndTrap(void)
{
    if (sysMess.trapDepth >= 0) --sysMess.trapDepth;
    return sysMess.trapDepth;
}

/* ------------------------------------------------- the end ------------------------------------------------ */

void sysExit(int code)
{
    /* the pauses give a terminal or a parent process time to collect the output */
    sysFlushStdout();
    sysLineBuffer();
    if (code) sysSleep(1);
    while (sysMess.nExitHandlers > 0) {
        sysExitHandler handler = sysMess.exitHandlers[--sysMess.nExitHandlers];
        handler.function(handler.argument, code);
    }
    sysFlushStdout();
    if (code) sysSleep(1);
    exit(code);
}
