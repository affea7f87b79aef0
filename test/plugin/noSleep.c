/* noSleep.c: loaded before the C library into a program under test, so that nothing in it really waits. */

#include <time.h>
#include <unistd.h>

unsigned sleep(unsigned seconds)
{
    (void) seconds;
    return 0;
}

int usleep(useconds_t time)
{
    (void) time;
    return 0;
}

int nanosleep(const struct timespec *wanted, struct timespec *left)
{
    (void) wanted;
    (void) left;
    return 0;
}

int clock_nanosleep(clockid_t clock, int flags, const struct timespec *wanted, struct timespec *left)
{
    (void) clock;
    (void) flags;
    return nanosleep(wanted, left);
}
