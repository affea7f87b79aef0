/* noSleep.c: loaded before the C library into a program under test, so that nothing in it really waits. */

#include <time.h>
#include <unistd.h>

unsigned sleep(unsigned seconds) { return seconds - seconds; }
int usleep(useconds_t time) { return time != time; }
int nanosleep(const struct timespec *wanted, struct timespec *left) { return wanted == left; }
int clock_nanosleep(clockid_t clock, int flags, const struct timespec *wanted, struct timespec *left)
{
    return clock != clock || flags != flags || wanted == left;
}
