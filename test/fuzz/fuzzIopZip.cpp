/* fuzzIopZip.cpp: any bytes as a compressed file of tokens, read by any sequence of calls.
 *
 * The data: a byte, a script (see fuzzCalls.h), and the file. An odd byte: the file as the program decodes it. An even
 * one: as if the program had decoded the bytes to themselves; then each call up to the first failure gives what it
 * gives for the same bytes as a text file. Its second bit: what is decoded is kept. A process for each open, and for
 * each way back where nothing is kept, is started, so that this target is slow. */

#include <algorithm>

#include "test/fuzz/fuzzCalls.h"

static std::vector<uint64_t> read(int form, bool keep, FuzzBytes script)
{
    static FuzzCaller caller;
    std::vector<uint64_t> results;
    if (!fuzzTrapped([&] { caller.fh = iopOpenFile("t", form | IOP_READ); })) return results;
    if (keep) iopKeepDecoded(caller.fh);
    results = caller.run(script);
    fuzzCheck(fuzzTrapped([] { iopCloseFile(caller.fh); }));
    return results;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzStart();
    FuzzBytes bytes{ data, data + size };
    const int  how = bytes.next();
    const bool isReal = how & 1, keep = how & 2;
    if (isReal) fuzzZcatReal();
    else fuzzZcatAsIs();
    const FuzzBytes script = fuzzScript(&bytes);
    fuzzWrite("t.Z", bytes.at, bytes.left());
    const std::vector<uint64_t> results = read(IOP_COMPRESSED, keep, script);
    if (isReal) return 0;
    fuzzWrite("t", bytes.at, bytes.left());
    const std::vector<uint64_t> same = read(IOP_ASCII, false, script);
    for (size_t i = 0; i < std::min(results.size(), same.size()); ++i) {
        fuzzCheck(results[i] == same[i]);
        if (results[i] == 0) break;
    }
    return 0;
}
