/* sysCwd.cpp: the current directory, and the trick that makes a network file system look again.
 *
 * Changing to the directory where one already is makes a network client ask its server anew, so that files which a
 * running solver has just written become visible. */

#include "base/sys.h"

#include <errno.h>
#include <string.h>

#include "base/sysInt.h"

void sysGetCwd(char *text, int size)
{
    if (!sysMach.getcwd(text, size > 0 ? (size_t) size : 0)) sysFail("Error in getcwd; %s", strerror(errno));
}

void sysSetCwd(const char *dir)
{
    if (sysMach.chdir(dir) < 0) sysFail("Error in chdir to <%s>; %s", dir, strerror(errno));
}

void sysSync(void)
{
    if (!sysMach.sync) return;
    char here[SYS_TEXT];
    if (!sysMach.getcwd(here, sizeof here)) sysFail("Error in getcwd; %s", strerror(errno));
    if (sysMach.chdir(here) < 0) sysFail("Error in chdir; %s", strerror(errno));
}

void sysSyncOff(void)
{
    sysMach.sync = 0;
}
