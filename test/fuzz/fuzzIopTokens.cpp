/* fuzzIopTokens.cpp: any bytes as a file of tokens, in each storage form, read by any sequence of calls.
 *
 * The data: a byte for the form, a byte n, n bytes that choose the calls, and the file. Each call's result is checked
 * where something can be said about it: bounded texts, counters that only grow, locations that lead back. */

#include <cstring>

#include "iop/iop.h"
#include "test/fuzz/fuzzUtil.h"

enum { MAX_ROWS = 32 };                     /* the callers' arrays have this many rows of up to four */

static iopHd  *fh;
static char    text[8192];
static int     ints[4 * MAX_ROWS];
static double  reals[4 * MAX_ROWS];
static float   floats[4 * MAX_ROWS];
static int64_t loc;

static void check(bool ok)
{
    if (!ok) abort();
}

/* One call, chosen by two bytes. */
static void call(uint8_t which, uint8_t how)
{
    static const char *const keys[] = { "n", "key", "vel", "" };
    const char *key = keys[how % 4];
    const int n1 = how / 4 % 4, n2 = how / 16 % MAX_ROWS;
    int idx[MAX_ROWS];
    for (int i = 0; i < MAX_ROWS; ++i) idx[i] = (i * (how | 1)) % MAX_ROWS;
    switch (which % 32) {
    case 0:  iopGetStrF(fh, text); break;
    case 1:  if (iopGetIfStr(fh, text)) check(strlen(text) < sizeof text); break;
    case 2:  if (iopGetLine(fh, text, how + 2)) check(strlen(text) <= how); break;
    case 3:  iopGetIntF(fh, ints, n2); break;
    case 4:  iopGetRealF(fh, reals, n2); break;
    case 5:  iopGetFloatF(fh, floats, n2); break;
    case 6:  iopGetIntDsp(fh, how % 8 ? how : 0x7fffffff); break;
    case 7:  iopGetRealDsp(fh, how); break;
    case 8:  iopGetFloatDsp(fh, how); break;
    case 9:  iopGetBinInts(fh, ints, n2); break;
    case 10: iopGetBinReals(fh, reals, n2); break;
    case 11: iopCheckStr(fh, key); break;
    case 12: iopCheckInt(fh, how % 8); break;
    case 13: loc = iopGetLoc(fh); break;
    case 14: iopSetLoc(fh, loc); check(iopGetLoc(fh) == loc); break;
    case 15: iopGetKeyStr(fh, key, text); break;
    case 16: iopGetOptKeyStr(fh, key, text); break;
    case 17: iopGetKeyInt(fh, key, ints); break;
    case 18: iopGetOptKeyInt(fh, key, ints); break;
    case 19: iopGetKeyInts(fh, key, n1, n2, ints); break;
    case 20: iopGetOptKeyInts(fh, key, n1, n2, ints); break;
    case 21: iopGetKeyReal(fh, key, reals); break;
    case 22: iopGetOptKeyReal(fh, key, reals); break;
    case 23: iopGetKeyReals(fh, key, n1, n2, reals); break;
    case 24: iopSkipInts(fh, key); break;
    case 25: iopSkipReals(fh, key); break;
    case 26: iopSkipRealsIf(fh, key); break;
    case 27: iopReadSubInts(fh, key, n1, n2, n2 / 2, n2, ints); break;
    case 28: iopReadSubReals(fh, key, n1, n2, 0, n2 / 2, reals); break;
    case 29: iopGetRealsIndexed(fh, key, n1, n2, how & 1 ? idx : nullptr, reals); break;
    case 30: iopNeed(fh, how, "irfs"[how % 4]); break;
    case 31: iopRewind(fh); break;
    }
    check(strlen(iopFileInfo(fh)) < 2200);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const struct { int opt; const char *name, *head; } forms[] = {
        { IOP_ASCII,            "t",   ""                     },
        { IOP_BINARY,           "t.B", ""                     },        /* the tag is to be found, too */
        { IOP_BINARY,           "t.B", "QUENTA 1.0 2 4 6 8\n" },
        { IOP_BINARY,           "t.B", "QUENTA 1.0 1 4 5 8\n" },
        { IOP_BINARY | IOP_RAW, "t",   ""                     },
    };
    fuzzStart();
    FuzzBytes bytes{ data, data + size };
    const auto &form = forms[bytes.next() % 5];
    const size_t left = (size_t) (bytes.end - bytes.at), wanted = 2 * (size_t) bytes.next();
    const size_t nScript = left < 1 ? 0 : wanted < left - 1 ? wanted : left - 1;
    FuzzBytes script{ bytes.at, bytes.at + nScript };
    const std::string file = form.head + std::string(script.end, bytes.end);
    fuzzWrite(form.name, file.data(), file.size());
    if (!fuzzTrapped([&] { fh = iopOpenFile("t", form.opt | IOP_READ); })) return 0;
    loc = iopGetLoc(fh);
    int failures = 0;
    while (script.at < script.end && failures < 20) {
        const uint8_t which = script.next(), how = script.next();
        if (!fuzzTrapped([&] { call(which, how); })) ++failures;
    }
    iopCloseFile(fh);
    return 0;
}
