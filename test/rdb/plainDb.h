#ifndef TEST_RDB_PLAINDB_H
#define TEST_RDB_PLAINDB_H

/* plainDb.h: a directory of files that need no content, and their times. */

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "rdb/rdbInt.h"
#include "test/testUtil.h"

namespace fs = std::filesystem;

inline std::string here() { return fs::current_path().string(); }

/* Run 1 of problem p, of no content, in the folder db of the folder that is given */
inline void makeDb(const std::string &folder = ".")
{
    fs::create_directories(folder + "/db");
    testWrite(folder + "/db/p.1.cli", "");
}

inline rdbHd *newHd(const char *problem, const char *dir, const char *pdir, int verbose = 0)
{
    rdbHd *hd = nullptr;
    checkReturns(hd = rdbNew(problem, dir, pdir, verbose));
    return hd;
}

/* The directory is newer than before, whatever the clock's grain. */
inline void touch(const char *dir, int seconds = 2)
{
    fs::last_write_time(dir, fs::last_write_time(dir) + std::chrono::seconds(seconds));
}

/* The file was last written so many seconds ago. */
inline void setAge(const std::string &name, int seconds)
{
    fs::last_write_time(name, fs::file_time_type::clock::now() - std::chrono::seconds(seconds));
}

/* The time of the last change of a file or a directory */
inline void setTime(const char *name, time_t seconds, long nanoseconds)
{
    const timespec times[2] = { { seconds, nanoseconds }, { seconds, nanoseconds } };
    EXPECT_EQ(utimensat(AT_FDCWD, name, times, 0), 0) << name;
}

inline int nOpenFiles()
{
    int n = 0;
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) n += entry.exists();
    return n;
}

#endif
