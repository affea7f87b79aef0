#ifndef TEST_FUZZ_FUZZSWEEP_H
#define TEST_FUZZ_FUZZSWEEP_H

/* fuzzSweep.h: asks an open run for everything, as a client would who has only the registry of keys.
 *
 * Each key is asked for at the first indices and the last, and beyond them; arrays in buffers that are just large
 * enough, and in too small ones. An answer must be whole and the same when it is asked for again. Beside the keys stand
 * the arrays at output steps, which getters compute from other keys. */

#include <vector>

#include "rdb/rdbInt.h"
#include "test/fuzz/fuzzUtil.h"

enum {
    FUZZ_MOST = 1 << 14,                    /* numbers in an array that is asked for */
    FUZZ_PARTS = 8,                         /* that the keys are asked for in        */
    FUZZ_UPDATE = 8                         /* see fuzzOpenAndSweep                  */
};

/* How many of the first indices are asked for. A target whose files take long to read may set it lower. */
static int fuzzFirst = 5;

struct FuzzKey {
    const char *name;
    int         type, needsRun, nIdx, nDims;
    const char *idx[3], *dim[2];

    explicit FuzzKey(rdbHd *hd, const char *key) : name(key)
    {
        fuzzCheck(rdbGetInfo(hd, key, &type, &needsRun, &nIdx, &nDims, &idx[0], &idx[1], &idx[2], &dim[0], &dim[1]));
    }
};

/* What counts the key's index s, at the indices before it. 0 also if nobody can tell. */
inline int fuzzCount(rdbHd *hd, const FuzzKey &key, int s, const int i[3])
{
    const FuzzKey counter(hd, key.idx[s]);
    int own[3] = { -1, -1, -1 }, n = 0;
    for (int c = 0; c < counter.nIdx; ++c)
        for (int k = 0; k < s; ++k)
            if (!strcmp(counter.idx[c], key.idx[k])) own[c] = i[k];
    volatile int count = 0;
    fuzzTrapped([&] {
        if (rdbGetData(hd, nullptr, counter.name, &n, RDB_INT, counter.nIdx, own[0], own[1], own[2], -1, -1)) count = n;
    });
    return count;
}

/* The sum over all that was answered, to compare two sweeps by. */
static uint64_t fuzzAnswers;

inline void fuzzAdd(const void *bytes, size_t n) { fuzzAnswers = fuzzSum(bytes, n, fuzzAnswers); }

/* Asks for n numbers in a buffer of just that size, filled before. Did it answer? */
template <class T>
bool fuzzAsk(rdbHd *hd, const FuzzKey &key, const int i[3], int d1, int d2, int64_t n, int fill, T **values)
{
    static int answered;
    *values = (T *) malloc((size_t) n * sizeof(T));
    memset((void *) *values, fill, (size_t) n * sizeof(T));
    answered = 0;
    const bool returned = fuzzTrapped([&] {
        answered = rdbGetData(hd, nullptr, key.name, *values, key.type, key.nIdx, i[0], i[1], i[2], d1, d2);
    });
    fuzzAdd(&answered, sizeof answered);
    if (answered) fuzzAdd(*values, (size_t) n * sizeof(T));
    if (returned && !answered && getenv("FUZZ_SHOW")) fprintf(stderr, "%s: %s\n", key.name, rdbGetError());
    return answered;
}

/* What keeps one filling and then another one was never written. Only of the connectivity of an output element set
   the end may stay as it was: an element that its volume does not have makes no row. */
template <class T> void fuzzArray(rdbHd *hd, const FuzzKey &key, const int i[3], int d1, int d2)
{
    const int64_t n = (int64_t) d1 * (key.nDims == 2 ? d2 : 1);
    if (d1 < 0 || (key.nDims == 2 && d2 < 0) || n == 0) return;
    T *values, *again;
    if (n > FUZZ_MOST) {
        fuzzCheck(!fuzzAsk(hd, key, i, 1, key.nDims == 2 ? 1 : -1, 1, 0x5A, &values));
        free(values);
        return;
    }
    if (fuzzAsk(hd, key, i, d1, d2, n, 0x5A, &values)) {
        T unwritten;
        memset((void *) &unwritten, 0x5A, sizeof unwritten);
        bool suspect = false;
        for (int64_t k = 0; k < n; ++k) suspect = suspect || !memcmp(values + k, &unwritten, sizeof unwritten);
        suspect = suspect && strcmp(key.name, "oelCnn") != 0;
        if (suspect) {
            fuzzCheck(fuzzAsk(hd, key, i, d1, d2, n, 0xC3, &again));
            fuzzCheck(!memcmp(values, again, (size_t) n * sizeof(T)));
            free(again);
        }
    }
    free(values);
}

inline void fuzzText(rdbHd *hd, const FuzzKey &key, const int i[3])
{
    static char text[RDB_TEXT];
    memset(text, 'x', sizeof text);
    fuzzTrapped([&] {
        const int ok = rdbGetData(hd, nullptr, key.name, text, RDB_STR, key.nIdx, i[0], i[1], i[2], -1, -1);
        fuzzCheck(!ok || memchr(text, 0, sizeof text));
        if (ok) fuzzAdd(text, strlen(text) + 1);
    });
}

inline void fuzzOne(rdbHd *hd, const FuzzKey &key, const int i[3])
{
    int    d1 = -1, d2 = -1, *number;
    double *real;
    switch (key.type) {
    case RDB_STR:  fuzzText(hd, key, i); break;
    case RDB_INT:  fuzzAsk(hd, key, i, -1, -1, 1, 0, &number); free(number); break;
    case RDB_REAL: fuzzAsk(hd, key, i, -1, -1, 1, 0, &real); free(real); break;
    default:
        if (!fuzzTrapped([&] { if (!rdbGetDims(hd, key.name, key.nIdx, i[0], i[1], i[2], &d1, &d2)) d1 = -1; })) break;
        if (key.type == RDB_INTS) fuzzArray<int>(hd, key, i, d1, d2);
        else fuzzArray<double>(hd, key, i, d1, d2);
    }
    fuzzCheck(strlen(rdbGetError()) < SYS_TRAP_TEXT);
}

/* The key at all combinations of the chosen indices, from index s on. */
inline void fuzzIndices(rdbHd *hd, const FuzzKey &key, int s, int i[3])
{
    if (s == key.nIdx) {
        fuzzOne(hd, key, i);
        return;
    }
    const int n = fuzzCount(hd, key, s, i), nFirst = n < fuzzFirst ? n : fuzzFirst;
    for (int k = 0; k <= nFirst; ++k) {
        i[s] = k < nFirst ? k : n;
        fuzzIndices(hd, key, s + 1, i);
    }
    if (n > nFirst) {
        i[s] = n - 1;
        fuzzIndices(hd, key, s + 1, i);
    }
    i[s] = -1;
}

/* ---- arrays at output steps: what the extended list is made of, and what no list has ---- */

/* -1 if nobody can tell, as for a run that is half open: then there is nothing to size an array by. */
inline int fuzzInt(rdbHd *hd, const char *key, int i)
{
    static int n;
    volatile int answered = 0;
    n = 0;
    fuzzTrapped([&] { answered = i < 0 ? rdbGetInt0(hd, key, &n) : rdbGetInt1(hd, key, &n, i); });
    return answered ? n : -1;
}

enum { FUZZ_STEP_VALUES, FUZZ_SET_VALUES, FUZZ_COMPUTED };

static const struct { const char *name, *count, *width; int kind; } fuzzSources[] = {
    { "out",    "nOutVars",    "outVarDim",    FUZZ_STEP_VALUES },
    { "outAux", "nOutAuxVars", "outAuxVarDim", FUZZ_STEP_VALUES },
    { "ora",    "nOraVars",    "oraVarDim",    FUZZ_STEP_VALUES },
    { "ota",    "nOtaVars",    "otaVarDim",    FUZZ_STEP_VALUES },
    { "onr",    "nOnrVars",    "onrVarDim",    FUZZ_STEP_VALUES },
    { "odq",    "nOdqVars",    "odqVarDim",    FUZZ_STEP_VALUES },
    { "odqAux", "nOdqAuxVars", "odqAuxVarDim", FUZZ_STEP_VALUES },
    { "oae",    "nOaeVars",    "oaeVarDim",    FUZZ_STEP_VALUES },
    { "oee",    "nOeeVars",    "oeeVarDim",    FUZZ_STEP_VALUES },
    { "rst",    "nRstVars",    "rstVarDim",    FUZZ_STEP_VALUES },
    { "osf",    "nOsfVars",    "osfVarDim",    FUZZ_SET_VALUES  },
    { "rsf",    "nRsfVars",    "rsfVarDim",    FUZZ_SET_VALUES  },
    { "srs",    "nSrsVars",    "srsVarDim",    FUZZ_SET_VALUES  },
    { nullptr,  nullptr,       nullptr,        FUZZ_COMPUTED    },
};
enum { FUZZ_SOURCES = sizeof fuzzSources / sizeof *fuzzSources };

/* Variable `var` of a source at a step, at all nodes, in a buffer of just that size. */
inline void fuzzAtStep(rdbHd *hd, int s, int var, int step, int nNodes, int width)
{
    static int answered;
    const size_t size = (size_t) nNodes * (size_t) width * sizeof(double);
    double *values = (double *) malloc(size);
    answered = 0;
    const bool returned = fuzzTrapped([&] {
        const char *name = fuzzSources[s].name;
        switch (fuzzSources[s].kind) {
        case FUZZ_STEP_VALUES: answered = rdbGetOutStepValues(hd, name, values, var, step, width, nNodes); break;
        case FUZZ_SET_VALUES:  answered = rdbGetSetValuesAtNodes(hd, name, values, var, step, width, nNodes); break;
        case FUZZ_COMPUTED:    answered = rdbGetOutAux(hd, var, step, values); break;
        }
    });
    fuzzAdd(&answered, sizeof answered);
    if (answered) fuzzAdd(values, size);
    if (returned && !answered && getenv("FUZZ_SHOW")) fprintf(stderr, "source %d: %s\n", s, rdbGetError());
    free(values);
}

/* All variables of a source at the first indices, and one behind. */
inline void fuzzSource(rdbHd *hd, int s)
{
    static const int computed[] = { 1, 1, 1, 3, 1, 1 };         /* widths; there is nothing behind the fifth */
    const bool listed = fuzzSources[s].kind != FUZZ_COMPUTED;
    const int  nNodes = fuzzInt(hd, "nNodes", -1), nSteps = fuzzInt(hd, "nOutSteps", -1);
    const int  nVars = listed ? fuzzInt(hd, fuzzSources[s].count, -1) : 5;
    for (int var = 0; var <= nVars && var < fuzzFirst + 1; ++var) {
        const int width = !listed ? computed[var] : var < nVars ? fuzzInt(hd, fuzzSources[s].width, var) : 1;
        if (nNodes < 0 || width < 0 || (int64_t) nNodes * width > FUZZ_MOST) continue;
        for (int step = 0; step <= nSteps && step < fuzzFirst; ++step) fuzzAtStep(hd, s, var, step, nNodes, width);
    }
}

/* One of the parts of all keys, those whose number leaves `part` when divided; the sum of its answers. */
inline uint64_t fuzzSweep(rdbHd *hd, int part)
{
    int nKeys = 0;
    fuzzCheck(rdbGetInt0(hd, "nQueries", &nKeys));
    fuzzAnswers = 0;
    static std::vector<std::string> names;
    if (names.empty()) {
        char name[RDB_TEXT];
        for (int q = 0; q < nKeys; ++q) {
            fuzzCheck(rdbGetStr1(hd, "queryName", name, q));
            names.push_back(name);
        }
    }
    for (int q = part % FUZZ_PARTS; q < nKeys; q += FUZZ_PARTS) {
        const FuzzKey key(hd, names[q].c_str());
        int i[3] = { -1, -1, -1 };
        fuzzIndices(hd, key, 0, i);
    }
    for (int s = part % FUZZ_PARTS; hd->run && s < FUZZ_SOURCES; s += FUZZ_PARTS) fuzzSource(hd, s);
    return fuzzAnswers;
}

/* A run of the problem "p" in the current folder, from rdbNew to rdbFree. The lowest bits of `how` choose the part of
   the keys. With FUZZ_UPDATE `repair` is called, if given, an update finds the folder changed, and the part of the
   highest bits is asked for. Gives the sum of those answers; 0 if there was no update, or no handle. */
inline uint64_t fuzzOpenAndSweep(uint8_t how, void (*repair)() = nullptr)
{
    static rdbHd *hd;
    uint64_t sum = 0;
    hd = nullptr;
    if (!fuzzTrapped([] { hd = rdbNew("p", ".", nullptr, 0); }) || !hd) return 0;
    fuzzTrapped([] { rdbOpenRun(hd, 0); });
    fuzzSweep(hd, how);                     /* also of a run that is half open */
    if (how & FUZZ_UPDATE) {
        if (repair) repair();
        std::filesystem::last_write_time(".", std::filesystem::last_write_time(".") + std::chrono::seconds(10));
        fuzzTrapped([] { int changed; rdbUpdate(hd, &changed); });
        sum = fuzzSweep(hd, how / 16);
    }
    fuzzCheck(fuzzTrapped([] { rdbCloseRun(hd); }));
    fuzzCheck(fuzzTrapped([] { rdbFree(hd); }));
    return sum;
}

#endif
