#ifndef TEST_FUZZ_FUZZUTIL_H
#define TEST_FUZZ_FUZZUTIL_H

/* fuzzUtil.h: what the fuzz targets share: nothing waits, a failure of the library is caught, and the data become a
 * file of a folder of this process.
 *
 * A target drives the library by a script that it takes from the head of the data, and gives it the rest as a file.
 * It must return for any data; what is not caught by trapped() or a sanitizer is a fault. */

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <unistd.h>

#include "base/sys.h"

/* The bytes of the data, taken one by one; 0 when there are no more. */
struct FuzzBytes {
    const uint8_t *at, *end;
    uint8_t next() { return at < end ? *at++ : 0; }
};

/* Runs f under a trap; f is left without unwinding. Did it return? */
template <class F> bool fuzzTrapped(F f)
{
    volatile bool returned = false;         /* set between setjmp and longjmp */
    if (setjmp(*rdbAssertEnv()) == 0) {
        f();
        returned = true;
    }
    rdbAssertEndTrap();
    return returned;
}

/* Once per process: a fresh current folder, gone at the end, and a clock that does not wait. */
inline void fuzzStart()
{
    static std::string folder;
    if (!folder.empty()) return;
    sysSetSleeper([](int) {});
    folder = (std::filesystem::temp_directory_path() / "fuzzXXXXXX").string();
    if (!mkdtemp(&folder[0]) || chdir(folder.c_str()) != 0) abort();
    atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    });
}

inline void fuzzWrite(const char *name, const void *bytes, size_t n)
{
    remove(name);
    FILE *fp = fopen(name, "wb");
    if (!fp || fwrite(bytes, 1, n, fp) != n || fclose(fp) != 0) abort();
}

#endif
