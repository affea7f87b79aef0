#ifndef TEST_FUZZ_FUZZUTIL_H
#define TEST_FUZZ_FUZZUTIL_H

/* fuzzUtil.h: what the fuzz targets share: nothing waits, a failure of the library is caught, and the data become a
 * file of a folder of this process.
 *
 * A target drives the library by a script that it takes from the head of the data, and gives it the rest as a file.
 * It must return for any data; what is not caught by fuzzTrapped() or a sanitizer is a fault. */

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include <unistd.h>

#include "base/sys.h"

/* The bytes of the data, taken one by one; 0 when there are no more. */
struct FuzzBytes {
    const uint8_t *at, *end;
    uint8_t next() { return at < end ? *at++ : 0; }
    size_t left() const { return (size_t) (end - at); }

    /* The next n bytes, or all that are left. */
    FuzzBytes take(size_t n)
    {
        const uint8_t *from = at;
        at += n < left() ? n : left();
        return { from, at };
    }
};

/* What always holds; what does not is a finding. */
inline void fuzzCheck(bool ok)
{
    if (!ok) abort();
}

/* A sum of bytes and of what came before them, to compare two readings by. */
inline uint64_t fuzzSum(const void *bytes, size_t n, uint64_t before = 0)
{
    for (size_t i = 0; i < n; ++i) before = (before ^ ((const unsigned char *) bytes)[i]) * 0x100000001b3;
    return before;
}

/* Runs f under a trap; f is left without unwinding. Did it return? With FUZZ_SHOW in the environment failures are told,
   for whoever wants to see what an input does. */
template <class F> bool fuzzTrapped(F f)
{
    volatile bool returned = false;         /* set between setjmp and longjmp */
    if (setjmp(*rdbAssertEnv()) == 0) {
        f();
        returned = true;
    } else if (getenv("FUZZ_SHOW")) {
        fprintf(stderr, "%s\n", rdbAssertErrorStr());
    }
    rdbAssertEndTrap();
    return returned;
}

/* The folder of this process, absolute: made at the first call, gone at the end. */
inline const std::string &fuzzFolder()
{
    static std::string folder;
    if (!folder.empty()) return folder;
    folder = (std::filesystem::temp_directory_path() / "fuzzXXXXXX").string();
    if (!mkdtemp(&folder[0])) abort();
    atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    });
    return folder;
}

inline void fuzzEnter(const std::string &folder)
{
    if (chdir(folder.c_str()) != 0) abort();
}

/* Once per process: the current folder is its own, and the clock does not wait. Did this call do it? */
inline bool fuzzStart()
{
    static bool started;
    if (started) return false;
    sysSetSleeper([](double) {});
    fuzzEnter(fuzzFolder());
    return started = true;
}

inline void fuzzWrite(const std::string &name, const void *bytes, size_t n)
{
    remove(name.c_str());
    FILE *fp = fopen(name.c_str(), "wb");
    if (!fp || (n > 0 && fwrite(bytes, 1, n, fp) != n) || fclose(fp) != 0) abort();
}

inline void fuzzWrite(const std::string &name, const std::string &bytes)
{
    fuzzWrite(name, bytes.data(), bytes.size());
}

/* Makes the compressed form start this shell script as its `zcat`. */
inline void fuzzZcat(const char *kind, const std::string &script)
{
    const std::string folder = fuzzFolder() + "/bin." + kind, path = folder + "/zcat";
    static const std::string usual = getenv("PATH") ? getenv("PATH") : "/usr/bin:/bin";
    if (access(path.c_str(), X_OK) != 0) {
        std::filesystem::create_directories(folder);
        fuzzWrite(path, "#!/bin/sh\nPATH='" + usual + "'\n" + script + "\n");
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    }
    setenv("PATH", (folder + ":" + usual).c_str(), 1);
}

/* The bytes of a .Z file are what was decoded: streams get through that the program would refuse. */
inline void fuzzZcatAsIs() { fuzzZcat("asIs", "exec cat \"$@\" 2>/dev/null"); }

/* The real program, without what it has to say. */
inline void fuzzZcatReal() { fuzzZcat("real", "exec zcat \"$@\" 2>/dev/null"); }

#endif
