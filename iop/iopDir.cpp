/* iopDir.cpp: the names in a directory.
 *
 * A scan reads all names at once into one block of texts, each with its ending zero, and hands them out one by one: a
 * file that comes or goes meanwhile cannot disturb it. "." and ".." are names like others. Scans are recycled through
 * a free list of their own. */

#include "iop/iopInt.h"

#include <dirent.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include "base/mem.h"

enum { MAX_PATH = 260 };                    /* longest name that is scanned */

struct iopDir {
    iopDir *next;                           /* in the list of closed scans                             */
    char    dirName[SYS_NAME];
    DIR    *dir;                            /* while the names are read; else null                     */
    char   *names;                          /* one behind the other, each with its zero                */
    int64_t size, used, pos;                /* bytes allocated, filled, handed out                     */
};

static iopDir *closedDirs;
static iopDir *scanning;                    /* still set at the next scan: memory ran out on the way */

static iopDir *takeDir(const char *name)
{
    if (scanning) {
        closedir(scanning->dir);
        iopCloseDir(scanning);
        scanning = NULL;
    }
    iopDir *dir = closedDirs;
    if (dir) closedDirs = dir->next;
    else dir = memNewZ(iopDir, 1);
    strcpy(dir->dirName, name);
    dir->next = NULL;
    dir->used = dir->pos = 0;
    return dir;
}

static int isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

/* The name that the system is asked for: a last backslash counts as a slash, and a drive letter alone is the current
   directory of that drive, which is the current directory where there are no drives. 0, errno: no such name can be. */
static int systemName(const char *name, char *path)
{
    const size_t length = strlen(name);
    if (length > MAX_PATH) {
        errno = ENAMETOOLONG;
        return 0;
    }
    strcpy(path, name);
    if (length > 0 && path[length - 1] == '\\') path[length - 1] = '/';
    if (length == 2 && path[1] == ':' && isLetter(path[0])) strcpy(path, ".");
    return 1;
}

static void addName(iopDir *dir, const char *name)
{
    const int64_t n = (int64_t) strlen(name) + 1;
    if (dir->used + n > dir->size) {
        const int64_t size = 2 * dir->size + n + 4096;
        dir->names = (char *) memRealloc(dir->names, dir->used, size, __FILE__, __LINE__, 0);
        dir->size = size;
    }
    memcpy(dir->names + dir->used, name, (size_t) n);
    dir->used += n;
}

/* Null and errno if there is no such directory. */
static DIR *openNamed(const char *name)
{
    char path[MAX_PATH + 1];
    struct stat st;
    if (!systemName(name, path) || stat(path, &st) != 0) return NULL;
    if (S_ISDIR(st.st_mode)) return opendir(path);
    errno = ENOTDIR;
    return NULL;
}

/* 1, or 0 and errno. A directory that holds nothing but itself and its parent has no names. */
static int scan(iopDir *dir)
{
    dir->dir = openNamed(dir->dirName);
    if (!dir->dir) return 0;
    scanning = dir;
    int empty = 1;
    errno = 0;
    for (const struct dirent *entry; (entry = readdir(dir->dir)); errno = 0) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) empty = 0;
        addName(dir, entry->d_name);
    }
    const int error = errno;
    closedir(dir->dir);
    dir->dir = NULL;
    scanning = NULL;
    if (empty) dir->used = 0;
    errno = error;
    return error == 0;
}

iopDir *iopOpenDir(const char *name)
{
    if (strlen(name) >= SYS_NAME) sysFail("dirName is too long <%s>", name);
    iopDir *dir = takeDir(name);
    if (!scan(dir)) {
        const int error = errno;
        iopCloseDir(dir);
        sysFail("unable to open directory <%s>; %s", name, strerror(error));
    }
    return dir;
}

int iopIsDir(const char *name)
{
    DIR *dir = openNamed(name);
    if (dir) closedir(dir);
    return dir != NULL;
}

const char *iopReadDir(iopDir *dir)
{
    if (dir->pos >= dir->used) return NULL;
    const char *name = dir->names + dir->pos;
    dir->pos += (int64_t) strlen(name) + 1;
    return name;
}

void iopCloseDir(iopDir *dir)
{
    memFree(dir->names);
    dir->size = dir->used = dir->pos = 0;
    dir->next = closedDirs;
    closedDirs = dir;
}
