/* sysTime.cpp: the clock, and waiting.
 *
 * Everything that waits goes through sysSleep or sysPause, so that a test can replace the waiting by counting. */

#include "base/sys.h"

#include <errno.h>
#include <string.h>
#include <time.h>

#include "base/sysInt.h"

/* The seconds since 1970, for the named function. */
static time_t now(const char *function)
{
    time_t seconds = sysMach.time(nullptr);
    if (seconds == (time_t) -1) sysFailIn(function, "time not available");
    return seconds;
}

int sysTime(void)
{
    return (int) now(__func__);
}

const char *sysDate(void)
{
    static char date[64];
    struct tm parts;
    time_t seconds = now(__func__);
    if (!localtime_r(&seconds, &parts) || !asctime_r(&parts, date)) sysFail("time not available");
    date[strcspn(date, "\n")] = 0;
    return date;
}

/* Milliseconds of a clock that no one sets back. */
static int64_t milliseconds(void)
{
    struct timespec at;
    sysMach.clock(CLOCK_MONOTONIC, &at);
    return (int64_t) at.tv_sec * 1000 + at.tv_nsec / 1000000;
}

double sysElapsed(void)
{
    if (sysMach.firstElapsed < 0) sysMach.firstElapsed = milliseconds();
    return (double) (milliseconds() - sysMach.firstElapsed) / 1000.0;
}

static void reallySleep(double seconds)
{
    const time_t    whole = (time_t) seconds;
    struct timespec left = { whole, (long) ((seconds - (double) whole) * 1e9) };
    while (sysMach.nanosleep(&left, &left) < 0 && errno == EINTR) {}
}

static sysSleeper sleeper = reallySleep;

void sysSleep(int seconds)
{
    sysPause(seconds);
}

void sysPause(double seconds)
{
    if (seconds > 0) sleeper(seconds);
}

sysSleeper sysSetSleeper(sysSleeper wanted)
{
    sysSleeper former = sleeper;
    sleeper = wanted ? wanted : reallySleep;
    return former;
}
