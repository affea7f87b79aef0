/* fuzzNames.cpp: any texts as the names of the files in a folder, which is then opened as a database.
 *
 * The data: a byte for what is asked (see fuzzOpenAndSweep), and the names, up to a line's end each. A slash in a name
 * stands for the problem and the run, "p.1". Each file is both a client information file and a step of output. */

#include "test/fuzz/fuzzSweep.h"

enum { MOST_NAMES = 32, LONGEST_NAME = 255 };

static const char content[] =
    "time 0.5 mask 1 nSpecs 1 nFilms 1 nFields 1 nAoutVecs 1 nNodes 0 vel 3 0\n"
    "#@ FMT 16\n#@ TITLE \"one\"\n#@ END\n";

static std::string nextName(FuzzBytes *bytes)
{
    std::string name;
    while (bytes->left() > 0) {
        const char c = (char) bytes->next();
        if (c == '\n') break;
        if (c == '/') name += "p.1";
        else if (c) name += c;
    }
    return name.substr(0, LONGEST_NAME);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzStart();
    FuzzBytes bytes{ data, data + size };
    const uint8_t how = bytes.next();
    const std::string folder = fuzzFolder() + "/names";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory(folder);
    fuzzEnter(folder);
    for (int i = 0; i < MOST_NAMES && bytes.left() > 0; ++i) {
        const std::string name = nextName(&bytes);
        if (!name.empty() && name != "." && name != "..") fuzzWrite(name, content, sizeof content - 1);
    }
    fuzzOpenAndSweep(how);
    return 0;
}
