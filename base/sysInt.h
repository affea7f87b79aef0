#ifndef BASE_SYSINT_H
#define BASE_SYSINT_H

/* sysInt.h: the state behind sys.h, shared by base/sys*.cpp and by the tests, and by nobody else.
 *
 * Log file, event log, standard-error echo and exit handlers are for a host program that owns the process: nothing in
 * the library sets them, so no operation for it exists. The calls into the operating system stand in a table because
 * a test must be able to make them fail. */

#include <sys/utsname.h>
#include <time.h>

#include "base/sys.h"

/* a source takes events of these kinds */
typedef enum sysEventKind { SYS_EVENT_ERROR = 1, SYS_EVENT_WARNING, SYS_EVENT_INFO } sysEventKind;
typedef void (*sysEventSource)(sysEventKind kind, const char *text);

typedef struct sysExitHandler {
    void (*function)(void *argument, int code);
    void  *argument;
} sysExitHandler;

typedef struct sysMessState {
    char            progPath[SYS_TEXT];        /* what sysSetProgName was given, cut if it is longer      */
    char            progName[SYS_TEXT];        /* its last part without extension: heads each message     */
    char            version[SYS_TEXT];
    FILE           *logFile;                   /* null: none                                              */
    int             eventLog;                  /* messages go to the event source, not to standard output */
    int             stderrEcho;                /* plain messages go to standard error                     */
    unsigned        eventMask;                 /* levels that are reported                                */
    sysEventSource  eventSource;               /* null: none registered, events are dropped               */
    int             trapDepth;                 /* innermost armed trap; -1: none                          */
    jmp_buf         traps[SYS_MAX_TRAPS];
    char            trapText[SYS_TRAP_TEXT];
    int             nExitHandlers;
    sysExitHandler *exitHandlers;              /* run from the last to the first                          */
} sysMessState;

typedef struct sysMachState {
    char     hostName[20];                     /* "_unknown_" until asked for                             */
    int      sync;                             /* sysSync does something                                  */
    int64_t  firstElapsed;                     /* milliseconds at the first sysElapsed; -1: none yet      */
    int      (*uname)(struct utsname *);
    time_t   (*time)(time_t *);
    int      (*clock)(clockid_t, struct timespec *);
    int      (*nanosleep)(const struct timespec *, struct timespec *);
    char    *(*getcwd)(char *, size_t);
    int      (*chdir)(const char *);
} sysMachState;

#ifdef __cplusplus
extern "C" {
#endif

extern sysMessState sysMess;
extern sysMachState sysMach;

#ifdef __cplusplus
}
#endif
#endif
