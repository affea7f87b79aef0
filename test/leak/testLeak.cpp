/* testLeak.cpp: a run that is opened, read by every key, updated and closed over and over keeps the memory of the
 * process, its open files, its ids of HDF5 and its child processes as they are. So does one that is asked for what it
 * does not have, or that is damaged meanwhile.
 *
 * A round is a handle's whole life. After some rounds, in which everything that is kept for good has come to be, what
 * the process holds is counted; after some more it must be the same to the byte. The counts are printed.
 *
 *     RDB_LEAK_ROUNDS=10000 bin/testLeak       as many rounds */

#include <errno.h>
#include <fcntl.h>
#include <hdf5.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <filesystem>

#include "base/sysInt.h"
#include "test/rdb/everyKey.h"
#include "tool/runWriter.h"

namespace fs = std::filesystem;
using tool::Form;

/* ---- what the process holds ---- */

struct Holds {
    int64_t bytes = 0, resident = 0;      /* allocated; in memory                                   */
    int64_t ids = 0;                      /* of files, groups, sets, types of HDF5; others show as memory */
    int     files = 0, traps = 0;
    bool    children = false;
};

/* Bytes asked for and not given back. Under a sanitizer, which has a malloc of its own and tells of leaks itself, always
   0. The system's own account would count in what it keeps back for the next request, and the size of the blocks that
   it hands out depends on what lies beside them. So each block says in front how much was asked for. */
static int64_t allocated;

#if !defined(__SANITIZE_ADDRESS__)
struct BlockHead {
    size_t size;
    void  *start;                         /* of what the system handed out */
};

static BlockHead &headOf(void *block) { return *((BlockHead *) block - 1); }

/* A block at a multiple of the alignment, which is a power of 2; zeroed or not */
static void *handOut(void *(*get)(size_t n, size_t size), size_t n, size_t alignment = alignof(max_align_t))
{
    const size_t extra = sizeof(BlockHead) + alignment;
    if (n > PTRDIFF_MAX - extra) return errno = ENOMEM, nullptr;
    char *start = (char *) get(n + extra, 1);
    if (!start) return nullptr;
    void *block = (void *) (((uintptr_t) start + extra) & ~(uintptr_t) (alignment - 1));
    headOf(block) = { n, start };
    allocated += (int64_t) n;
    return block;
}

extern "C" {

void *__libc_malloc(size_t n);
void *__libc_calloc(size_t n, size_t size);
void  __libc_free(void *block);

static void *getBlock(size_t n, size_t) { return __libc_malloc(n); }

void *malloc(size_t n) { return handOut(getBlock, n); }

void *calloc(size_t n, size_t size)
{
    size_t bytes;
    if (__builtin_mul_overflow(n, size, &bytes)) return errno = ENOMEM, nullptr;
    return handOut(__libc_calloc, bytes);
}

void *memalign(size_t alignment, size_t n)
{
    return handOut(getBlock, n, alignment < alignof(max_align_t) ? alignof(max_align_t) : alignment);
}

void *aligned_alloc(size_t alignment, size_t n) { return memalign(alignment, n); }

int posix_memalign(void **block, size_t alignment, size_t n)
{
    *block = memalign(alignment, n);
    return *block ? 0 : ENOMEM;
}

void free(void *block)
{
    if (!block) return;
    allocated -= (int64_t) headOf(block).size;
    __libc_free(headOf(block).start);
}

void *realloc(void *block, size_t n)
{
    if (block && n == 0) return free(block), nullptr;
    void *moved = malloc(n);
    if (!moved || !block) return moved;
    memcpy(moved, block, std::min(n, headOf(block).size));
    free(block);
    return moved;
}

size_t malloc_usable_size(void *block) { return block ? headOf(block).size : 0; }

}
#endif

static int64_t resident()
{
    long long pages = 0, inMemory = 0;
    EXPECT_EQ(sscanf(testRead("/proc/self/statm").c_str(), "%lld %lld", &pages, &inMemory), 2);
    return inMemory * sysconf(_SC_PAGESIZE);
}

static Holds look()
{
    Holds holds;
    H5open();
    H5garbage_collect();                  /* what HDF5 keeps for the next object of a kind is no leak */
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) holds.files += !entry.path().empty();
    holds.children = waitpid(-1, nullptr, WNOHANG) >= 0;
    holds.ids = H5Fget_obj_count((hid_t) H5F_OBJ_ALL, H5F_OBJ_ALL);
    holds.traps = sysMess.trapDepth;
    holds.resident = resident();
    holds.bytes = allocated;
    return holds;
}

static void expectSame(const Holds &was, const Holds &is)
{
    EXPECT_EQ(is.bytes, was.bytes);
    EXPECT_EQ(is.files, was.files);
    EXPECT_EQ(is.ids, 0);
    EXPECT_EQ(is.traps, was.traps);
    EXPECT_FALSE(is.children);
#if !defined(__SANITIZE_ADDRESS__)
    EXPECT_LT(is.resident - was.resident, (int64_t) 4 << 20);
#endif
}

/* ---- the run ---- */

/* Everything that the run writer can write, of few nodes. Files of the newest step are looked for on the disk alone. */
static tool::RunSpec specOf(Form form, bool merged)
{
    tool::RunSpec spec;
    spec.problem = "p";
    spec.dataDir = ".";
    spec.form = form;
    spec.merged = merged;
    spec.nx = 2;
    spec.ny = spec.nz = 1;
    spec.nSds = 2;
    spec.scattered = spec.emptySets = spec.nodeSets = spec.top = true;
    spec.nFields = 1;
    spec.setVars("velocity,pressure,species:2");
    spec.setSteps(2, 3, 2);
    for (const char *ext : { "ora", "ota", "onr", "odq", "oae", "oee", "rst", "ocn" })
        if (form != Form::container || strcmp(ext, "ocn")) spec.families.push_back({ ext, 7 });
    for (const char *ext : { "osf", "orf", "oqf" }) spec.setFamilies.push_back({ ext, 3 });
    return spec;
}

/* Sets the directory's time, to one that is later than any before and long ago */
static void touch()
{
    static int seconds = 1000000000;
    const timespec times[2] = { { seconds, 0 }, { seconds, 0 } };
    ++seconds;
    ASSERT_EQ(utimensat(AT_FDCWD, ".", times, 0), 0);
}

/* ---- a round ---- */

static rdbHd *hd;

static int updated()
{
    int flag = 0;
    checkAnswers(rdbUpdate(hd, &flag));
    return flag;
}

/* Some of the run, so that an update finds caches and open files */
static void askSome()
{
    int    n = 0;
    double values[4 * 64];
    checkAnswers(rdbGetInt0(hd, "nNodes", &n));
    ASSERT_LE(n, 64);
    checkAnswers(rdbGetReals2(hd, "outValues", values, 0, 1, 3, n));
    checkAnswers(rdbGetReals2(hd, "outAuxValues", values, 0, 1, 1, n));
    checkAnswers(rdbGetInt0(hd, "nSteps", &n));
}

/* What a client may ask for in vain */
static void askInVain()
{
    int    n = 0;
    double value;
    checkRefused("noSuchKey not found", rdbGetInt0(hd, "noSuchKey", &n));
    checkRefused("nNodes has type 2 not 4", rdbGetReal0(hd, "nNodes", &value));
    checkRefused("runId 77 not found", rdbOpenRun(hd, 77));
    checkFails("Badly placed parenthesis", rdbNew("p(", ".", nullptr, 0));
    for (const char *problem : { "none", "_undefined" })              /* which ends the one that was left */
        checkReturns(EXPECT_EQ(rdbNew(problem, ".", nullptr, 0), nullptr));
    checkReturns(EXPECT_EQ(rdbNew("p", "noSuchFolder", nullptr, 0), nullptr));
}

/* Puts other bytes in the place of a file, or none for ever so many, while f is called */
template <class F> static void without(const std::string &name, int64_t keep, F f)
{
    fs::rename(name, name + ".kept");
    if (keep >= 0) testWrite(name, testRead(name + ".kept").substr(0, (size_t) keep));
    f();
    fs::rename(name + ".kept", name);
}

/* The container, which was looked at, becomes another file, and itself again */
static void tearContainer()
{
    without("p.1.C", 2000, [] {
        int flag;
        checkFails("Unable to open HDF5 file ./p.1.C", rdbUpdate(hd, &flag));
        checkFails("Unable to open HDF5 file ./p.1.C", rdbUpdate(hd, &flag));
    });
    touch();
    EXPECT_EQ(updated(), 1);
    askSome();
}

static const char *const torn[] = { "p.1.ddc", "p.1.crd", "p.1_3_0.out", "p.1_3_x.out", "p.1_3_0.ora", "p.1_3_0_0.osf",
                                    "p.1_0.osn", "p.1.top" };

/* Each of some files is missing, and then cut short */
static void tearFiles(const std::string &suffix)
{
    for (const char *stem : torn) {
        const std::string name = stem + suffix;
        if (!fs::exists(name)) continue;
        for (int64_t keep : { -1, 0, 100 })
            without(name, keep, [] {
                int    n = 0;
                double values[4 * 64];
                checkAnswers(rdbOpenRun(hd, 1));
                trapped([&] { rdbGetReals2(hd, "outValues", values, 1, 0, -1, -1); });
                trapped([&] { rdbGetReals2(hd, "oraValues", values, 0, 0, -1, -1); });
                trapped([&] { rdbGetReals3(hd, "osfValues", values, 0, 0, 0, -1, -1); });
                trapped([&] { rdbGetReals2(hd, "outAuxValues", values, 1, 0, -1, -1); });
                trapped([&] { rdbGetReals0(hd, "crd", values, -1, -1); });
                trapped([&] { rdbGetInt0(hd, "nSteps", &n); });
            });
    }
}

/* A table of contents that ends the opening */
static void tearContents()
{
    fs::rename("p.1.cli", "kept");
    testWrite("p.1.cli", testRead("kept").substr(0, 1500) + "\n#@ NBC f \"n\" n -1 v 1\n");
    touch();
    int flag;
    EXPECT_NE(trapped([&] { rdbUpdate(hd, &flag); }), "");
    EXPECT_NE(trapped([&] { rdbOpenRun(hd, 1); }), "");
    fs::rename("kept", "p.1.cli");
}

static void changeAndAsk(bool sweepFirst)
{
    size_t nAnswered = 0;
    askSome();
    if (sweepFirst) nAnswered += (size_t) Answers(hd, 1).nAnswered;
    touch();
    EXPECT_EQ(updated(), 1);
    EXPECT_EQ(updated(), 0);
    askSome();
    if (!sweepFirst) nAnswered += (size_t) Answers(hd, 1).nAnswered;
    EXPECT_GT(nAnswered, 500u);
}

static void goRound(const tool::RunSpec &spec, int round)
{
    touch();
    checkReturns(hd = rdbNew("p", ".", nullptr, 0));
    ASSERT_NE(hd, nullptr) << rdbGetError();
    checkAnswers(rdbOpenRun(hd, round % 2));
    changeAndAsk(round % 4 < 2);
    askInVain();
    if (spec.form == Form::container) tearContainer();
    else tearFiles(tool::formSuffix(spec.form));
    tearContents();
    touch();
    EXPECT_EQ(updated(), 1);
    askSome();
    if (round % 3) checkAnswers(rdbCloseRun(hd));
    checkReturns(rdbFree(hd));
    hd = nullptr;
}

/* ---- the tests ---- */

class leak : public ::testing::TestWithParam<std::tuple<Form, bool>> {};

/* As many rounds as are asked for, or a few; nothing may be held behind them that was not held after the first ones */
static void goRounds(const tool::RunSpec &spec, bool slow, void (*go)(const tool::RunSpec &spec, int round))
{
    const char *asked = getenv("RDB_LEAK_ROUNDS");
    const int   nRounds = asked ? atoi(asked) : slow ? 3 : 24, nFirst = slow ? 4 : 12;
    tool::writeRun(spec);
    for (const auto &entry : fs::directory_iterator("."))              /* no longer written to: it may be kept open */
        fs::last_write_time(entry.path(), fs::file_time_type::clock::now() - std::chrono::hours(1));

    for (int i = 0; i < nFirst && !testing::Test::HasFailure(); ++i) go(spec, i);
    const Holds was = look();
    const auto  start = std::chrono::steady_clock::now();
    for (int i = 0; i < nRounds && !testing::Test::HasFailure(); ++i) go(spec, i);
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    const Holds is = look();
    printf("%s%s: %d rounds of %.1f ms; allocated %+lld of %lld bytes, resident %+lld KB, open files %+d of %d, "
           "ids %lld\n", tool::formRow(spec.form).word, spec.merged ? ", merged" : "", nRounds, took.count() / nRounds,
           (long long) (is.bytes - was.bytes), (long long) was.bytes, (long long) (is.resident - was.resident) / 1024,
           is.files - was.files, was.files, (long long) is.ids);
    expectSame(was, is);
}

/* Programs that start, or HDF5 at work, make a round slow */
static bool isSlow(Form form) { return form > Form::swapped; }

/* With updates, damage and failures */
TEST_P(leak, aRunOpenedReadAndClosedLeavesNothing)
{
    const auto [form, merged] = GetParam();
    goRounds(specOf(form, merged), isSlow(form), goRound);
}

/* A round that is short enough for ten thousand of them */
TEST_P(leak, aSmallRunReadByEveryKey)
{
    tool::RunSpec spec;
    spec.problem = "p";
    spec.dataDir = ".";
    std::tie(spec.form, spec.merged) = GetParam();
    spec.nx = 2;
    spec.ny = spec.nz = 1;
    spec.nSds = 2;
    spec.setSteps(1);
    goRounds(spec, isSlow(spec.form), [](const tool::RunSpec &, int) {
        checkReturns(hd = rdbNew("p", ".", nullptr, 0));
        ASSERT_NE(hd, nullptr) << rdbGetError();
        checkAnswers(rdbOpenRun(hd, 1));
        EXPECT_GT(Answers(hd, 0).nAnswered, 100);
        checkReturns(rdbFree(hd));
        hd = nullptr;
    });
}

static const auto forms = ::testing::Values(Form::ascii, Form::binary, Form::swapped, Form::compressed, Form::hdf,
                                            Form::container);

INSTANTIATE_TEST_SUITE_P(forms, leak, ::testing::Combine(forms, ::testing::Bool()),
                         [](const auto &param) {
                             return std::string(tool::formRow(std::get<0>(param.param)).word) +
                                    (std::get<1>(param.param) ? "Merged" : "");
                         });
