/* sysHost.cpp: what the library asks of the machine: its names and its memory.
 *
 * The answers go into texts for people and into the prefix of configuration keys, so the fields are short and a longer
 * answer of the system is cut. */

#include "base/sys.h"

#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "base/sysInt.h"

enum { HOST_NAME = 18 };                        /* characters of a computer name that are kept */

static const char unknownHost[] = "_unknown_";

sysMachState sysMach = { "_unknown_", 1, -1, uname, time, clock_gettime, nanosleep, getcwd, chdir };

static void copyField(char field[20], const char *text, int length)
{
    snprintf(field, 20, "%.*s", length, text);
}

int sysUname(sysUnameRec *rec)
{
    struct utsname names;
    memset(rec, 0, sizeof *rec);
    int result = sysMach.uname(&names);
    if (result < 0) return result;
    copyField(rec->sysName,  names.sysname,  19);
    copyField(rec->release,  names.release,  19);
    copyField(rec->nodeName, names.nodename, HOST_NAME);
    copyField(rec->machine,  names.machine,  19);
    copyField(rec->version,  names.version,  19);
    return result;
}

const char *sysHostName(void)
{
    if (strcmp(sysMach.hostName, unknownHost) == 0) {
        sysUnameRec rec;
        if (sysUname(&rec) < 0) sysFail("Error in uname");
        memcpy(sysMach.hostName, rec.nodeName, sizeof sysMach.hostName);
    }
    return sysMach.hostName;
}

const char *sysPlatform(void)
{
    /* heads the keys of configuration files, which are the same files on every system */
    return "win64";
}

static int megabytes(unsigned long units, unsigned int unit)
{
    return (int) ((uint64_t) units * unit >> 20);
}

int sysAvailRam(void)
{
    /* what the kernel would free for a program counts, too, where it tells */
    FILE *file = fopen("/proc/meminfo", "re");
    long long kilobytes = -1;
    char line[128];
    while (file && kilobytes < 0 && fgets(line, sizeof line, file))
        sscanf(line, "MemAvailable: %lld", &kilobytes);
    if (file) fclose(file);
    if (kilobytes >= 0) return (int) (kilobytes >> 10);
    struct sysinfo info;
    return sysinfo(&info) < 0 ? 0 : megabytes(info.freeram + info.bufferram, info.mem_unit);
}

int sysSwapSize(void)
{
    struct sysinfo info;
    return sysinfo(&info) < 0 ? 0 : megabytes(info.totalswap, info.mem_unit);
}

int64_t sysPeakMemory(void)
{
    struct rusage usage;
    return getrusage(RUSAGE_SELF, &usage) < 0 ? 0 : (int64_t) usage.ru_maxrss * 1024;
}
