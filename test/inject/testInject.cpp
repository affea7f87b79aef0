/* testInject.cpp: whatever fails, the outcome is a message and never a crash, a wrong value or something left behind.
 *
 * A scene is a small piece of work with files: one is read, one is written, a run is opened and asked. It is played
 * over and over; each time one call more succeeds before one fails (inject.h), until it passes untouched. Each time:
 *
 *   - what the scene had answered before it failed is right, and so is all of it if it got over the failure
 *   - the failure carries one of the library's own messages
 *   - a handle that was not given back still works
 *   - the scene then plays as if nothing had been: no descriptor, no id of HDF5, no program, no trap is left, and the
 *     process stands where it stood
 *
 * A call fails once, or it fails from then on. Of the many calls of a long scene every so many-th fails. Right answers
 * are those of a scene in which nothing fails; that these are right is shown by the tests of each module. */

#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "base/sysInt.h"
#include "rdb/rdbInt.h"
#include "test/inject/inject.h"
#include "test/iop/hdfStream.h"
#include "test/testUtil.h"
#include "tool/runWriter.h"

namespace fs = std::filesystem;
using tool::Form;

/* What a scene has answered so far, what it is to answer, and what it has open. Outside of all frames, since a failure
   jumps. */
static std::string notes, right;
static iopHd      *box, *file;
static rdbHd      *hd;

/* Values as they are; of many the first and a sum that tells them from others. */
static void note(const char *what, const double *values, int n)
{
    const int nShown = n > 40 ? 1 : n;
    char      text[64];
    uint64_t  sum = 0;
    notes += what;
    for (int i = 0; i < n; ++i) {
        uint64_t bits;
        memcpy(&bits, &values[i], sizeof bits);
        sum = (sum ^ bits) * 1099511628211u;
        if (i >= nShown) continue;
        snprintf(text, sizeof text, " %.17g", values[i]);
        notes += text;
    }
    if (n > nShown) notes += " and " + std::to_string(n - 1) + " more: " + std::to_string(sum);
    notes += '\n';
}

static void note(const char *what, const int *values, int n)
{
    static double reals[4096];
    for (int i = 0; i < n; ++i) reals[i] = values[i];
    note(what, reals, n);
}

static void note(const char *what, int value) { note(what, &value, 1); }

static void note(const char *what, const char *text) { notes += what, notes += ' ', notes += text, notes += '\n'; }

/* Are the notes what is to be answered from that line on, as far as they go? */
static bool isRightFrom(const char *line)
{
    const size_t from = right.find(line);
    return from != std::string::npos && right.compare(from, notes.size(), notes) == 0;
}

/* ---- scenes ---- */

struct Scene {
    const char *name;
    int    most, mostIfSlow;      /* calls of a kind that fail, about; if there are more, every so many-th    */
    void (*make)(Form form);      /* puts the files there; nothing fails here                                 */
    int  (*play)(Form form);      /* 0: failed, the text is in rdbGetError. May not return                    */
    void (*after)();              /* null, or: goes on with what a play that failed has left                  */
    void (*end)();                /* closes what is left open                                                 */
};

static void closeOne(iopHd **fh)
{
    iopHd *it = *fh;
    *fh = nullptr;
    if (it) iopCloseFile(it);
}

/* What was written may not reach the disk even now: only that it is closed counts. */
static void endFiles()
{
    trapped([] { closeOne(&file); });
    trapped([] { closeOne(&box); });
}

/* The stream `base`: a file of its own, or the member of that name in the container of that name. */
static void openStream(const char *base, Form form, int opt)
{
    const int formBits = tool::formOpt(form);
    if (form != Form::container) {
        file = iopOpenFile(base, formBits | opt);
        return;
    }
    if (!box) box = iopOpenFile(base, formBits | (opt & ~IOP_APPEND));
    file = iopOpenHdfFile(box, base, opt);
}

/* -- a file is read -- */

enum { LONG = 3000, ROWS = 4 };

static double real(int i) { return i * 0.25 - 100; }

static void fillIn(tool::TokenFile &out)
{
    const int ids[] = { 1, 2, 3, 4, 5, 6 };
    std::vector<double> reals(3 * LONG);
    for (int i = 0; i < 3 * LONG; ++i) reals[i] = real(i);
    out.str("first");
    out.keyStr("name", "duct");
    out.keyInt("nNodes", LONG);
    out.keyReal("time", 0.125);
    out.keyInts("ids", 2, 3, ids);
    out.keyReals("dropped", 3, 100, reals.data());
    out.keyInt("maybe", 8);
    out.keyReals("crd", 3, LONG, reals.data());
    out.keyReals("rows", 2, ROWS, reals.data());
    out.keyReals("sub", 2, 10, reals.data());
    out.keyInts("more", 2, 3, ids);
    out.keyInt("last", 9);
    out.close();
}

static void makeIn(Form form)
{
    if (form != Form::container) {
        tool::TokenFile out("in", form);
        return fillIn(out);
    }
    tool::Container in("in");
    tool::TokenFile member(in, "in");
    fillIn(member);
    in.close();
}

static void readHead()
{
    static char text[SYS_TEXT];
    int n = 0, ids[6];
    double t = 0;
    iopCheckStr(file, "first");
    iopGetKeyStr(file, "name", text);
    note("name", text);
    iopGetKeyInt(file, "nNodes", &n);
    note("nNodes", n);
    iopGetKeyReal(file, "time", &t);
    note("time", &t, 1);
    iopGetOptKeyInts(file, "absent", 2, 3, ids);
    iopGetKeyInts(file, "ids", 2, 3, ids);
    note("ids", ids, 6);
}

static void readMiddle()
{
    static double crd[3 * LONG];
    int n = 0;
    iopSkipReals(file, "dropped");
    iopGetOptKeyInt(file, "maybe", &n);
    note("maybe", n);
    n = 0;
    iopNeed(file, 3 * LONG, 'r');
    iopGetKeyReals(file, "crd", 3, LONG, crd);
    note("crd", crd, 3 * LONG);
}

static void readTail()
{
    static char text[SYS_TEXT];
    static const int idx[ROWS] = { 3, 0, 2, 1 };
    double rows[2 * ROWS], sub[4];
    int n = 0, ids[6];
    iopGetRealsIndexed(file, "rows", 2, ROWS, idx, rows);
    note("rows", rows, 2 * ROWS);
    iopReadSubReals(file, "sub", 2, 10, 5, 7, sub);
    note("sub", sub, 4);
    iopGetOptKeyInts(file, "more", 2, 3, ids);
    note("more", ids, 6);
    iopGetOptKeyInt(file, "last", &n);
    note("last", n);
    note("end", iopGetIfStr(file, text));
}

/* keep: what is decoded is kept. A failure of that is none of the reading. */
static void readBothWays(Form form, int keep)
{
    static char name[SYS_TEXT];
    openStream("in", form, IOP_READ);
    if (keep) iopKeepDecoded(file);
    if (box) {
        note("members", iopGetNHdfFiles(box));
        iopGetHdfFileName(box, name, 0);
        note("member", name);
    }
    readHead();
    const int64_t loc = iopGetLoc(file);
    readMiddle();
    iopSetLoc(file, loc);
    readMiddle();
    readTail();
    iopRewind(file);
    readHead();
    closeOne(&file);
    closeOne(&box);
}

static int playIn(Form form)
{
    readBothWays(form, 0);
    if (form == Form::compressed) readBothWays(form, 1);
    return 1;
}

/* -- an HDF5 file is read that holds what our writers do not make -- */

enum { BIG = 66000 };             /* rows of two: more than are held at a time */

static void makeForeign(Form)
{
    Reals reals(2 * BIG);
    for (int i = 0; i < 2 * BIG; ++i) reals[i] = real(i);
    const long long wide[] = { 7, 8, -9 };
    const unsigned  bare[] = { 5, 6 };
    const hsize_t   chunk[] = { 100, 2 };
    const hid_t     chunked = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_chunk(chunked, 2, chunk);
    {
        Stream out("in.H");
        out.variable("duct").s("wide", 8, H5T_STR_SPACEPAD);
        out.put({ 3 }, H5T_STD_I64LE, H5T_NATIVE_LLONG, wide).put({ 2 }, H5T_STD_U32LE, H5T_NATIVE_UINT, bare);
        out.table("rows", 2, BIG).r(reals, { BIG, 2 });
        out.table("rows", 2, BIG).r(reals, { BIG, 2 }, H5T_NATIVE_DOUBLE, chunked);
    }
    H5Pclose(chunked);
}

static int playForeign(Form)
{
    static char   text[SYS_TEXT];
    static double rows[2 * BIG];
    static int    idx[BIG];
    int ints[3];
    for (int i = 0; i < BIG; ++i) idx[i] = BIG - 1 - i;
    file = iopOpenFile("in.H", IOP_HDF | IOP_READ);
    iopGetStrF(file, text);
    note("name", text);
    iopGetStrF(file, text);
    note("padded", text);
    iopGetIntF(file, ints, 3);
    note("wide", ints, 3);
    iopGetIntF(file, ints, 2);
    note("unsigned", ints, 2);
    for (int i = 0; i < 2; ++i) {
        memset(rows, 0, sizeof rows);
        iopGetRealsIndexed(file, "rows", 2, BIG, idx, rows);
        note("rows", rows, 2 * BIG);
    }
    closeOne(&file);
    return 1;
}

/* -- a file is written -- */

enum { N1 = 5, N2 = 6, N3 = 20 };

static void makeNone(Form) {}

static void writeSome(int isText)
{
    static int v[N1 * N2];
    for (int i = 0; i < N1 * N2; ++i) v[i] = 3 * i - 77;
    if (isText) iopPrintLine(file, "%s %d %.3f", "line", 7, 1.5);
    iopPutIntF(file, v, N1, N2, 1);
    if (!isText) iopPutBinInts(file, v, N3);
}

static void readBack(int isText)
{
    static int v[N1 * N2];
    double r = 0;
    if (isText) {
        iopGetKeyInt(file, "line", v);
        iopGetRealF(file, &r, 1);
        note("line", v, 1);
        note("real", &r, 1);
    }
    iopGetIntF(file, v, N1 * N2);
    note("table", v, N1 * N2);
    if (!isText) {
        iopGetBinInts(file, v, N3);
        note("bytes", v, N3);
    }
}

/* Written, appended to if that can be, and read. */
static int playOut(Form form)
{
    static char text[SYS_TEXT];
    const int isText = form == Form::ascii || form == Form::compressed;
    const int appends = form != Form::compressed && form != Form::hdf;
    for (const char *name : { "out", "out.B", "out.Z", "out.H", "out.C" }) unlink(name);
    openStream("out", form, IOP_WRITE);
    writeSome(isText);
    if (form == Form::ascii || form == Form::binary) {
        const int64_t loc = iopGetLoc(file);            /* once more over the same place */
        iopSetLoc(file, loc);
    }
    closeOne(&file);
    if (appends) {
        openStream("out", form, IOP_WRITE | IOP_APPEND);
        writeSome(isText);
        closeOne(&file);
    }
    closeOne(&box);
    openStream("out", form, IOP_READ);
    for (int i = 0; i < 1 + appends; ++i) readBack(isText);
    note("end", iopGetIfStr(file, text));
    closeOne(&file);
    closeOne(&box);
    return 1;
}

/* -- a run is opened and asked -- */

static enum { NEW, OPENING, ASKING, UPDATING, CLOSING } stage;

static void makeRunIn(const char *dir, Form form)
{
    tool::RunSpec spec;
    spec.dir = dir;
    spec.problem = "p";
    spec.form = form;
    spec.nx = 3;
    spec.ny = spec.nz = 1;
    spec.nSds = 2;
    spec.nVols = 1;
    spec.scattered = true;
    spec.setVars("velocity,pressure,species:2");
    spec.steps = { 3, 5 };
    tool::SetFamSpec onSets;
    onSets.ext = "osf";
    onSets.rows = 3;
    spec.setFamilies = { onSets };
    tool::writeRun(spec);
}

static void makeRun(Form form) { makeRunIn(".", form); }
static void makeRunBelow(Form form) { makeRunIn("case", form); }

/* The directory is newer than at any scan before, whatever the clock's grain: the next one reads it anew. */
static void touch(const char *pdir)
{
    static int seconds = 1000000000;
    timespec times[2] = { { seconds, 0 }, { seconds, 0 } };
    ++seconds;
    utimensat(AT_FDCWD, pdir ? "case/QUENTA.DIR" : "QUENTA.DIR", times, 0);
}

static int askKey(const char *key, int i1, int i2, int i3 = -1)
{
    static char   text[SYS_TEXT];
    static int    ints[4096];
    static double reals[4096];
    int type, d1, d2;
    if (!rdbGetType(hd, key, &type)) return 0;
    void *data = type == RDB_STR ? (void *) text : type <= RDB_INTS ? (void *) ints : (void *) reals;
    if (!rdbGetDims(hd, key, -1, i1, i2, i3, &d1, &d2)) return 0;
    const int n = (d1 < 0 ? 1 : d1) * (d2 < 0 ? 1 : d2);
    if (n > 4096 || !rdbGetData(hd, nullptr, key, data, type, -1, i1, i2, i3, d1, d1 < 0 ? -1 : d2 < 0 ? 1 : d2))
        return 0;
    if (type == RDB_STR) note(key, text);
    else if (type <= RDB_INTS) note(key, ints, n);
    else note(key, reals, n);
    return 1;
}

static int askAll()
{
    static const struct { const char *key; int i1, i2, i3; } asked[] = {
        { "nNodes", -1, -1, -1 },        { "usrIds", -1, -1, -1 },       { "crd", -1, -1, -1 },
        { "nVols", -1, -1, -1 },         { "volCnn", 0, -1, -1 },        { "volUsrIds", 0, -1, -1 },
        { "volSdIds", 0, -1, -1 },       { "elmName", 0, -1, -1 },       { "elmCnn", 0, -1, -1 },
        { "elmSdIds", 0, -1, -1 },       { "sfsCnn", 0, -1, -1 },        { "osfSrfCnn", 0, -1, -1 },
        { "osfNodes", 0, -1, -1 },       { "cbcNodes", 0, -1, -1 },      { "osfNodalNormDirs", 0, -1, -1 },
        { "nOutVars", -1, -1, -1 },      { "outSteps", -1, -1, -1 },     { "outTimes", -1, -1, -1 },
        { "outVarName", 1, -1, -1 },     { "outValues", 0, 0, -1 },      { "outValues", 2, 0, -1 },
        { "outValues", 1, 1, -1 },       { "outValues", 0, 1, -1 },      { "osfValues", 0, 0, 0 },
        { "osfValues", 0, 1, 0 },        { "outGradValues", 0, 1, -1 },  { "outAuxValues", 3, 1, -1 },
    };
    note("asked", 1);
    for (const auto &ask : asked)
        if (!askKey(ask.key, ask.i1, ask.i2, ask.i3)) return 0;
    return 1;
}

static int playRunIn(const char *pdir)
{
    int flag;
    stage = NEW;
    hd = rdbNew("p", "QUENTA.DIR", pdir, 0);
    if (!hd) return 0;
    stage = OPENING;
    if (!rdbOpenRun(hd, 0)) return 0;
    stage = ASKING;
    if (!askAll()) return 0;
    stage = UPDATING;
    touch(pdir);
    if (!rdbUpdate(hd, &flag) || !askKey("outValues", 0, 1) || !askKey("nRuns", -1, -1)) return 0;
    stage = CLOSING;
    if (!rdbCloseRun(hd)) return 0;
    rdbFree(hd);
    hd = nullptr;
    return 1;
}

static int playRun(Form) { return playRunIn(nullptr); }

/* The handle is still there. As it is it may refuse, but not answer wrongly; then what did not come to its end is done
   again, and all is answered. */
static void askAgain()
{
    int ok = 1, flag;
    if (!hd) return;
    notes.clear();
    trapped([] { askAll(); });
    EXPECT_TRUE(isRightFrom("asked")) << "asked after the failure";
    notes.clear();
    const std::string text = trapped([&] {
        if (stage == OPENING) ok = rdbOpenRun(hd, 0);
        if (stage == UPDATING) ok = rdbUpdate(hd, &flag) && (hd->runId >= 0 || rdbOpenRun(hd, 0));
        if (stage == CLOSING) ok = rdbOpenRun(hd, 0);
        ok = ok && askAll();
    });
    EXPECT_EQ(text, "");
    EXPECT_TRUE(ok || !text.empty()) << rdbGetError();
    EXPECT_TRUE(isRightFrom("asked")) << "asked again";
}

/* The client who works in a folder goes back himself after a failure that did not return. */
static int playRunBelow(Form) { return playRunIn("case"); }

static void endRun()
{
    EXPECT_EQ(trapped([] { if (hd) rdbFree(hd); }), "");
    hd = nullptr;
}

static void endRunBelow()
{
    endRun();
    const fs::path here = fs::current_path();
    EXPECT_TRUE(here == testFolder() || here == fs::path(testFolder()) / "case") << here;
    fs::current_path(testFolder());
}

/* ---- what must be as it was ---- */

struct Machine {
    std::string folder;
    int     nTraps, nDescriptors;
    int64_t nIds;
};

static Machine look()
{
    H5open();
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    Machine m = { fs::current_path(), sysMess.trapDepth, 0, openIds() };
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) m.nDescriptors += !entry.path().empty();
    return m;
}

static void expectSame(const Machine &was)
{
    const Machine is = look();
    EXPECT_EQ(is.folder, was.folder);
    EXPECT_EQ(is.nTraps, was.nTraps);
    EXPECT_EQ(is.nDescriptors, was.nDescriptors);
    EXPECT_EQ(is.nIds, was.nIds);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a program is still there";
    EXPECT_EQ(errno, ECHILD);
}

/* ---- one play ---- */

static std::string playWhole(const Scene &scene, Form form)
{
    int ok = 0;
    notes.clear();
    const std::string text = trapped([&] { ok = scene.play(form); });
    EXPECT_EQ(text, "");
    EXPECT_TRUE(ok || !text.empty()) << rdbGetError();
    return notes;
}

/* What a failing call may make the library say: the heads of the texts, up to what varies. */
static const char *const noMemory[] = { "Memory Allocation Error\n", "Out of memory" };
static const char *const messages[] = {
    "EOF in ", "Invalid binary tag <", "data out of order: expected <", "fseek error in ", "Unable to set location <",
    "unable to open ascii file <", "unable to open binary file <", "unable to open compressed file <",
    "unable to open directory <", "unable to write ", "Error in getcwd; ", "Error in chdir", "Buffer overflow <",
    "Unable to set property; file ", "Error setting properties; file ", "Unable to open HDF5 file ",
    "Unable to access root; file ", "Unable to access data node in file ", "Unable to access FILES in file ",
    "Unable to access file ", "Unable to create file ", "Unable to get the number of objects",
    "Unable to get the object name; index <", "Unable to get the file name; index <",
    "Unable to open data set for <", "Unable to get data type for <", "Unable to get a typeId; ",
    "Unable for get data space for <", "Unable to get data space for <", "Unable to read data set for <",
    "Unable to clear a memory space for <", "Unable to set hyperslab <", "Inconsistent size <", "Inconsistent data <",
    "Unable to create a spaceId; ", "Unable to create a typeId; ", "Unable to create data set for <",
    "Unable to write data set for <", "Invalid nElmVols <",
};

/* The same where a call returned 0. */
static const char *const errors[] = { "Invalid directory <", "directory QUENTA.DIR not found", ".out file not found",
                                      "problem p not found", "runId 1 not found" };

template <int N> static bool isAmong(const char *const (&heads)[N], const std::string &text)
{
    return std::any_of(heads, heads + N, [&](const char *head) { return text.compare(0, strlen(head), head) == 0; });
}

static void checkMessage(const std::string &text, Kind kind)
{
    const std::string head = std::string(sysGetProgName()) + ": *** ";
    EXPECT_EQ(text.compare(0, head.size(), head), 0) << text;
    EXPECT_LT(text.size(), (size_t) SYS_TRAP_TEXT - 1);
    const size_t at = text.find("\n" + head);
    const std::string message = text.substr(at == std::string::npos ? head.size() : at + 1 + head.size());
    EXPECT_TRUE(isAmong(messages, message) || isAmong(noMemory, message)) << message;
    EXPECT_EQ(kind == Kind::ALLOC, isAmong(noMemory, message)) << message;
}

static struct { int faults, failed; } counts[N_KINDS];

static std::string told(Kind kind, int n, int times)
{
    return std::string(kindNames[(int) kind]) + " " + std::to_string(n) + (times > 1 ? " and all after" : "");
}

/* Plays with a failure at the n-th call of a kind. Gives whether that came to be. */
static bool playOnce(const Scene &scene, Form form, Kind kind, int n, int times)
{
    SCOPED_TRACE(told(kind, n, times));
    int ok = 0;
    notes.clear();
    rdbSetError("%s", "");
    const std::string text = trapped([&] {
        injectArm(kind, n, times);
        ok = scene.play(form);
    });
    const int faults = injectDisarm();
    SCOPED_TRACE(injectLast());
    const bool failed = !text.empty() || !ok;

    EXPECT_TRUE(failed ? right.compare(0, notes.size(), notes) == 0 : notes == right)
        << (failed ? text.empty() ? rdbGetError() : text.c_str() : "did not fail");
    if (!text.empty()) checkMessage(text, kind);
    EXPECT_TRUE(ok || !text.empty() || isAmong(errors, rdbGetError())) << rdbGetError();
    EXPECT_TRUE(faults > 0 || !failed) << text;
    counts[(int) kind].faults += faults > 0;
    counts[(int) kind].failed += failed;
    if (failed && scene.after) scene.after();
    scene.end();
    return faults > 0;
}

static void tell(const Scene &scene, Form form)
{
    int faults = 0, failed = 0;
    std::string kinds;
    for (int k = 0; k < N_KINDS; ++k) {
        faults += counts[k].faults;
        failed += counts[k].failed;
        kinds += std::string(k ? ", " : "") + kindNames[k] + " " + std::to_string(counts[k].faults);
        counts[k] = {};
    }
    printf("%s, %s: %d failures made (%s), %d told\n", scene.name, tool::formRow(form).word, faults, kinds.c_str(),
           failed);
}

static bool isSlow(Form form) { return form > Form::swapped; }

/* Every so many-th call is enough, so that not too many fail: HDF5's own are the most, and differ the most. */
static int stepOf(const Scene &scene, Form form, Kind kind)
{
    injectArm(kind, 1, 0);
    playWhole(scene, form);
    injectDisarm();
    const int most = !isSlow(form) ? scene.most : kind == Kind::HDF ? 4 * scene.mostIfSlow : scene.mostIfSlow;
    return injectCalls() / most + 1;
}

static void playKind(const Scene &scene, Form form, Kind kind, int times, const Machine &was)
{
    const int step = stepOf(scene, form, kind);
    for (int n = 1; playOnce(scene, form, kind, n, times); n += step) {
        SCOPED_TRACE("after " + told(kind, n, times));
        EXPECT_EQ(playWhole(scene, form), right);
        expectSame(was);
        if (::testing::Test::HasFailure()) return;
    }
}

static void playAll(const Scene &scene, Form form)
{
    scene.make(form);
    right = playWhole(scene, form);
    ASSERT_EQ(playWhole(scene, form), right);
    const Machine was = look();
    for (int k = 0; k < N_KINDS && !::testing::Test::HasFailure(); ++k) {
        const Kind kind = (Kind) k;
        playKind(scene, form, kind, 1, was);
        /* what is interrupted without end may wait without end; no call of HDF5 is tried twice */
        if (kind != Kind::INTERRUPTED && kind != Kind::HDF) playKind(scene, form, kind, INT_MAX, was);
    }
    tell(scene, form);
}

/* In a process of its own, in which nothing has been kept from an earlier play. Gives whether `play` did something. */
template <class F> static bool inChild(F play)
{
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        const bool did = play();
        fflush(stdout);
        _exit(::testing::Test::HasFailure() ? 1 : did ? 0 : 2);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 1) << "a play failed";
    return status == 0;
}

/* The first play of a process allocates what is kept for the later ones. */
static void playFirst(const Scene &scene, Form form)
{
    if (::testing::Test::HasFailure()) return;
    scene.make(form);
    inChild([&] { return testWrite("right", playWhole(scene, form)), true; });
    right = testRead("right");
    const Machine was = look();
    const auto play = [&](int n) {
        const bool failed = playOnce(scene, form, Kind::ALLOC, n, 1);
        EXPECT_EQ(playWhole(scene, form), right);
        expectSame(was);
        return failed;
    };
    int n = 1;
    while (inChild([&] { return play(n); }) && !::testing::Test::HasFailure()) ++n;
    counts[(int) Kind::ALLOC] = { n - 1, n - 1 };
    tell(scene, form);
}

static const Scene readScene    = { "read",         5000, 5000, makeIn,       playIn,       nullptr,  endFiles    };
static const Scene foreignScene = { "read other's", 5000, 5000, makeForeign,  playForeign,  nullptr,  endFiles    };
static const Scene writeScene   = { "write",        5000, 5000, makeNone,     playOut,      nullptr,  endFiles    };
static const Scene runScene     = { "run",          5000, 12,   makeRun,      playRun,      askAgain, endRun      };
static const Scene belowScene   = { "run below",    5000, 12,   makeRunBelow, playRunBelow, askAgain, endRunBelow };

/* Stands first, so that nothing has been played yet. */
TEST(injectFirst, memoryForTheFirstPlays)
{
    for (const tool::FormRow &row : tool::formRows) {
        playFirst(readScene, row.value);
        if (row.value != Form::swapped) playFirst(writeScene, row.value);
    }
    playFirst(runScene, Form::binary);
}

class inject : public ::testing::TestWithParam<Form> {};

TEST_P(inject, aFileIsRead) { playAll(readScene, GetParam()); }

TEST_P(inject, aFileIsWrittenAndReadBack)
{
    if (GetParam() == Form::swapped) GTEST_SKIP() << "the library writes its own byte order";
    playAll(writeScene, GetParam());
}

TEST_P(inject, aRunIsOpenedAndAsked) { playAll(runScene, GetParam()); }

INSTANTIATE_TEST_SUITE_P(forms, inject, ::testing::Values(Form::ascii, Form::binary, Form::swapped, Form::compressed,
                                                          Form::hdf, Form::container),
                         [](const auto &param) { return tool::formRow(param.param).word; });

TEST(injectMore, anHdf5FileOfAnotherWriterIsRead) { playAll(foreignScene, Form::hdf); }

TEST(injectMore, aRunIsAskedInItsFolder) { playAll(belowScene, Form::binary); }

/* ---- the table itself ---- */

TEST(injectTable, everyCallOfHdf5IsInIt)
{
    const std::vector<std::string> known = injectKnown();
    FILE *pipe = popen(NM " -u " IOP_OBJECTS, "r");
    ASSERT_NE(pipe, nullptr);
    char line[512], name[512];
    int n = 0;
    while (fgets(line, sizeof line, pipe)) {
        if (sscanf(line, " U %511s", name) != 1 || strncmp(name, "H5", 2)) continue;
        const size_t length = strlen(name);
        if (length > 2 && !strcmp(name + length - 2, "_g")) continue;             /* a variable */
        EXPECT_NE(std::find(known.begin(), known.end(), name), known.end()) << name;
        ++n;
    }
    EXPECT_EQ(pclose(pipe), 0);
    EXPECT_GT(n, 10);
}

TEST(injectTable, everyRowIsReached)
{
    const auto play = [](const Scene &scene, Form form) {
        for (const auto &entry : fs::directory_iterator(".")) fs::remove_all(entry.path());
        scene.make(form);
        injectArm(Kind::ALLOC, 1, 0);
        playWhole(scene, form);
        injectDisarm();
    };
    for (const tool::FormRow &row : tool::formRows) {
        play(readScene, row.value);
        if (row.value != Form::swapped) play(writeScene, row.value);
        play(runScene, row.value);
    }
    play(foreignScene, Form::hdf);
    for (const std::string &name : injectUnreached()) ADD_FAILURE() << name;
}
