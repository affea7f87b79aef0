/* fuzzRun.cpp: any bytes as one of the data files of a run, which is then asked for everything.
 *
 * The data: a byte for the form of the run, one for the file, one for what is asked (see fuzzOpenAndSweep), and the
 * file. All other files are as the run writer made them. Where an update follows, the file is whole again, and nothing
 * may be left of the damage: the answers are those of a run that never had it. */

#include "test/fuzz/fuzzSweep.h"
#include "test/fuzz/smallRuns.h"

static std::string formFolder(int form) { return fuzzFolder() + "/" + smallForms[form].folder; }

static std::string kept[N_SMALL_FORMS][N_SMALL_FILES];      /* the files as they were */
static int         form, file;                              /* of this input          */

static void repair() { fuzzWrite(smallName(form, file), kept[form][file]); }

static void makeRuns()
{
    for (form = 0; form < N_SMALL_FORMS; ++form) {
        writeSmallRun(formFolder(form), smallForms[form].form, smallForms[form].merged);
        fuzzEnter(formFolder(form));
        for (file = 0; file < N_SMALL_FILES; ++file) kept[form][file] = smallBytes(smallName(form, file));
    }
}

/* Of the answers in a part of the keys, while all files are whole. */
static uint64_t goodSum(int part)
{
    static uint64_t sums[N_SMALL_FORMS][FUZZ_PARTS];
    if (!sums[form][part]) sums[form][part] = fuzzOpenAndSweep((uint8_t) (FUZZ_UPDATE + 16 * part));
    return sums[form][part];
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (fuzzStart()) makeRuns();
    FuzzBytes bytes{ data, data + size };
    form = bytes.next() % N_SMALL_FORMS;
    file = bytes.next() % N_SMALL_FILES;
    const uint8_t how = bytes.next();
    fuzzEnter(formFolder(form));
    fuzzWrite(smallName(form, file), bytes.at, bytes.left());
    const uint64_t sum = fuzzOpenAndSweep(how, repair);
    repair();
    if (sum != 0) fuzzCheck(sum == goodSum(how / 16 % FUZZ_PARTS));
    return 0;
}
