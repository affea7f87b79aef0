/* fuzzCli.cpp: any bytes as the client information file of a run, which is then asked for everything.
 *
 * The data: a byte for what is asked, and the file. Beside it stand the data files of a good run, text and binary, so
 * that lines which are whole lead somewhere. */

#include "test/fuzz/fuzzSweep.h"
#include "test/fuzz/smallRuns.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (fuzzStart()) {
        fuzzZcatAsIs();
        writeSmallRun(".", tool::Form::ascii);
        writeSmallRun(".", tool::Form::binary);
    }
    FuzzBytes bytes{ data, data + size };
    const uint8_t how = bytes.next();
    fuzzWrite("p.1.cli", bytes.at, bytes.left());
    fuzzOpenAndSweep(how);
    return 0;
}
