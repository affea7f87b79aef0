#ifndef TEST_FUZZ_FUZZCALLS_H
#define TEST_FUZZ_FUZZCALLS_H

/* fuzzCalls.h: any sequence of calls of the file layer on an open handle, chosen by a script of two bytes per call.
 *
 * What a call gives is checked where something can be said about it: bounded texts, numbers within the part of the
 * array that was asked for, locations that lead back. */

#include <vector>

#include "iop/iop.h"
#include "test/fuzz/fuzzUtil.h"

enum {
    FUZZ_ROWS = 16, FUZZ_COLS = 4,          /* the largest table that is asked for                     */
    FUZZ_ROOM = FUZZ_ROWS * FUZZ_COLS,
    FUZZ_BEHIND = 8,                        /* numbers behind it, which nobody may touch               */
    FUZZ_FAILURES = 20,                     /* then the script is over: each failure waits and retries */
    FUZZ_CALLS = 33, FUZZ_NEED = 30
};

/* An array to be filled, and what shows that something was written behind it. */
template <class T> struct FuzzRoom {
    T values[FUZZ_ROOM + FUZZ_BEHIND];
    void clear() { memset(values, 0xA5, sizeof values); }

    /* The first n were asked for. */
    void check(int n) const
    {
        const unsigned char *byte = (const unsigned char *) (values + n);
        const unsigned char *end = (const unsigned char *) (values + FUZZ_ROOM + FUZZ_BEHIND);
        while (byte < end) fuzzCheck(*byte++ == 0xA5);
    }
};

struct FuzzCaller {
    iopHd  *fh;
    int64_t loc = 0;
    char    text[SYS_TEXT];
    FuzzRoom<int>    ints;
    FuzzRoom<double> reals;
    FuzzRoom<float>  floats;

    /* One call; *n numbers of the arrays are what it may fill. */
    void call(uint8_t which, uint8_t how, int *n)
    {
        static const char *const keys[] = { "n", "key", "vel", "" };
        const char *key = keys[how % 4];
        const int n1 = how / 4 % FUZZ_COLS, n2 = how / 16 % FUZZ_ROWS;
        int idx[FUZZ_ROWS];
        for (int i = 0; i < FUZZ_ROWS; ++i) idx[i] = (i * (how | 1)) % FUZZ_ROWS;
        *n = 0;
        switch (which % FUZZ_CALLS) {
        case 0:  iopGetStrF(fh, text); break;
        case 1:  if (iopGetIfStr(fh, text)) fuzzCheck(strlen(text) < sizeof text); break;
        case 2:  if (iopGetLine(fh, text, how + 2)) fuzzCheck(strlen(text) <= how + 1u); break;
        case 3:  iopGetIntF(fh, ints.values, *n = n2); break;
        case 4:  iopGetRealF(fh, reals.values, *n = n2); break;
        case 5:  iopGetFloatF(fh, floats.values, *n = n2); break;
        case 6:  iopGetIntDsp(fh, how % 8 ? how : 0x7fffffff); break;
        case 7:  iopGetRealDsp(fh, how); break;
        case 8:  iopGetFloatDsp(fh, how); break;
        case 9:  iopGetBinInts(fh, ints.values, *n = n2); break;
        case 10: iopGetBinReals(fh, reals.values, *n = n2); break;
        case 11: iopCheckStr(fh, key); break;
        case 12: iopCheckInt(fh, how % 8); break;
        case 13: loc = iopGetLoc(fh); break;
        case 14: iopSetLoc(fh, loc); fuzzCheck(iopGetLoc(fh) == loc); break;
        case 15: iopGetKeyStr(fh, key, text); break;
        case 16: iopGetOptKeyStr(fh, key, text); break;
        case 17: iopGetKeyInt(fh, key, ints.values); *n = 1; break;
        case 18: iopGetOptKeyInt(fh, key, ints.values); *n = 1; break;
        case 19: iopGetKeyInts(fh, key, n1, n2, ints.values); *n = n1 * n2; break;
        case 20: iopGetOptKeyInts(fh, key, n1, n2, ints.values); *n = n1 * n2; break;
        case 21: iopGetKeyReal(fh, key, reals.values); *n = 1; break;
        case 22: iopGetOptKeyReal(fh, key, reals.values); *n = 1; break;
        case 23: iopGetKeyReals(fh, key, n1, n2, reals.values); *n = n1 * n2; break;
        case 24: iopSkipInts(fh, key); break;
        case 25: iopSkipReals(fh, key); break;
        case 26: iopSkipRealsIf(fh, key); break;
        case 27: iopReadSubInts(fh, key, n1, n2, n2 / 2, n2, ints.values); *n = n1 * (n2 - n2 / 2); break;
        case 28: iopReadSubReals(fh, key, n1, n2, 0, n2 / 2, reals.values); *n = n1 * (n2 / 2); break;
        case 29: iopGetRealsIndexed(fh, key, n1, n2, how & 1 ? idx : nullptr, reals.values);
                 *n = how & 1 ? FUZZ_ROOM : n1 * n2; break;
        case FUZZ_NEED: iopNeed(fh, how, "irfs"[how % 4]); break;
        case 31: iopRewind(fh); break;
        case 32: reals.clear(); iopAddRealsIndexed(fh, key, n1, n2, idx, reals.values); *n = FUZZ_ROOM; break;
        }
        fuzzCheck(strlen(iopFileInfo(fh)) < 2200);
    }

    /* What a call has left, as a sum that is not 0. Estimates of what a file may hold differ between forms. */
    uint64_t result(uint8_t which) const
    {
        if (which % FUZZ_CALLS == FUZZ_NEED) return 1;
        return fuzzSum(text, strlen(text), fuzzSum(&ints, sizeof ints, fuzzSum(&reals, sizeof reals,
                       fuzzSum(&floats, sizeof floats)))) | 1;
    }

    /* All calls of a script, on a handle that stays the caller's. The result of each; 0 of one that failed. */
    std::vector<uint64_t> run(FuzzBytes script)
    {
        std::vector<uint64_t> results;
        loc = iopGetLoc(fh);
        for (int failures = 0; script.at < script.end && failures < FUZZ_FAILURES; ) {
            const uint8_t which = script.next(), how = script.next();
            text[0] = 0;
            ints.clear();
            reals.clear();
            floats.clear();
            volatile int n = 0;             /* a failed call leaves behind what it likes, but within its part */
            const bool returned = fuzzTrapped([&] {
                int filled = 0;
                call(which, how, &filled);
                n = filled;
            });
            if (!returned) ++failures;
            ints.check(returned ? (int) n : FUZZ_ROOM);
            reals.check(returned ? (int) n : FUZZ_ROOM);
            floats.check(returned ? (int) n : FUZZ_ROOM);
            results.push_back(returned || which % FUZZ_CALLS == FUZZ_NEED ? result(which) : 0);
        }
        return results;
    }
};

/* The script at the head of the data: a byte n, and 2n bytes. */
inline FuzzBytes fuzzScript(FuzzBytes *bytes)
{
    return bytes->take(2 * (size_t) bytes->next());
}

#endif
