/* fuzzIopTokens.cpp: any bytes as a file of tokens, text and binary, read by any sequence of calls.
 *
 * The data: a byte for the form, a script (see fuzzCalls.h), and the file. */

#include "test/fuzz/fuzzCalls.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const struct { int opt; const char *name, *head; } forms[] = {
        { IOP_ASCII,            "t",   ""                     },
        { IOP_BINARY,           "t.B", ""                     },        /* the tag is to be found, too */
        { IOP_BINARY,           "t.B", "QUENTA 1.0 2 4 6 8\n" },
        { IOP_BINARY,           "t.B", "QUENTA 1.0 1 4 5 8\n" },
        { IOP_BINARY | IOP_RAW, "t",   ""                     },
    };
    static FuzzCaller caller;
    fuzzStart();
    FuzzBytes bytes{ data, data + size };
    const auto &form = forms[bytes.next() % 5];
    const FuzzBytes script = fuzzScript(&bytes);
    fuzzWrite(form.name, form.head + std::string(bytes.at, bytes.end));
    if (!fuzzTrapped([&] { caller.fh = iopOpenFile("t", form.opt | IOP_READ); })) return 0;
    caller.run(script);
    fuzzCheck(fuzzTrapped([&] { iopCloseFile(caller.fh); }));
    return 0;
}
