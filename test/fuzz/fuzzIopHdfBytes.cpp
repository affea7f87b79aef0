/* fuzzIopHdfBytes.cpp: a good HDF5 file in which any bytes were changed, read by any sequence of calls.
 *
 * The data: a byte for the kind of file and whether it is cut, a script (see fuzzCalls.h), and changes of three bytes
 * each: where, in two, and what stands there now. What is found here may be HDF5's own, which takes much of a file in
 * good faith; so this target is for long runs only. */

#include "test/fuzz/fuzzCalls.h"
#include "tool/tokenFile.h"

static void writeStream(tool::TokenFile *f)
{
    static const int32_t ints[]  = { 1, 2, 3, 4, 5, 6 };
    static const double  reals[] = { 0.5, 1.5, 2.5, 3.5, 4.5, 5.5 };
    f->keyInt("n", 3);
    f->keyInts("key", 2, 3, ints);
    f->keyReals("vel", 3, 2, reals);
    f->keyStr("key", "text");
    f->keyReal("n", 0.25);
    f->close();
}

static std::string goodFile(tool::Form form)
{
    const std::string name = "good" + std::string(form == tool::Form::container ? ".C" : ".H");
    if (form == tool::Form::container) {
        tool::Container box("good");
        for (const char *member : { "p.crd", "wall" }) {
            tool::TokenFile f(box, member);
            writeStream(&f);
        }
        box.close();
    } else {
        tool::TokenFile f("good", form);
        writeStream(&f);
    }
    std::string bytes(std::filesystem::file_size(name), 0);
    FILE *fp = fopen(name.c_str(), "rb");
    if (!fp || fread(&bytes[0], 1, bytes.size(), fp) != bytes.size()) abort();
    fclose(fp);
    return bytes;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static std::string good[2];
    static FuzzCaller caller;
    static iopHd *fh, *member;
    if (fuzzStart()) {
        good[0] = goodFile(tool::Form::hdf);
        good[1] = goodFile(tool::Form::container);
    }
    FuzzBytes bytes{ data, data + size };
    const uint8_t how = bytes.next();
    const FuzzBytes script = fuzzScript(&bytes);
    std::string file = good[how & 1];
    if (how & 2) file.resize(file.size() * (how / 4) / 64);
    while (bytes.left() >= 3) {
        const size_t where = bytes.next() | bytes.next() << 8;
        const uint8_t what = bytes.next();
        if (!file.empty()) file[where % file.size()] = (char) what;
    }
    fuzzWrite(how & 1 ? "t.C" : "t.H", file);
    const int opt = how & 1 ? IOP_HDF_CONTAINER : IOP_HDF;
    if (!fuzzTrapped([&] { fh = iopOpenFile("t", opt | IOP_READ); })) return 0;
    member = nullptr;
    if (how & 1) fuzzTrapped([] { member = iopOpenHdfFile(fh, "wall", IOP_READ | IOP_HDF); });
    caller.fh = member ? member : fh;
    caller.run(script);
    if (member) fuzzCheck(fuzzTrapped([] { iopCloseFile(member); }));
    fuzzCheck(fuzzTrapped([] { iopCloseFile(fh); }));
    return 0;
}
