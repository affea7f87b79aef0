/* seeds.cpp: the program fuzzSeeds, which makes what the fuzz targets start from: fuzzSeeds DIR writes into
 * DIR/<target>/ for each target. Good files come from the run writer; what stands before them in the data is what the
 * head of each target tells. */

#include <algorithm>
#include <filesystem>
#include <vector>

#include "test/fuzz/smallRuns.h"

namespace fs = std::filesystem;
using Bytes = std::string;

static fs::path seeds, scratch;

static void put(const std::string &target, const Bytes &data)
{
    static int n;
    fs::create_directories(seeds / target);
    std::ofstream file(seeds / target / ("seed" + std::to_string(n++)), std::ios::binary);
    if (!(file << data).flush()) throw std::runtime_error("cannot write into " + seeds.string());
}

static Bytes byte(size_t value) { return Bytes(1, (char) value); }

/* With its length before it. */
static Bytes counted(const Bytes &bytes) { return byte(bytes.size()) + bytes; }

/* ---- streams of tokens ---- */

/* Two bytes a call, as in fuzzCalls.h: what is called, and key, columns and rows in one. */
enum { N, KEY, VEL };
static Bytes call(int which, int key, int nCols = 0, int nRows = 0)
{
    return byte((size_t) which) + byte((size_t) (key + 4 * nCols + 16 * nRows));
}

static Bytes script(const Bytes &calls) { return byte(calls.size() / 2) + calls; }

/* What reads the stream below in order: with keys; optionally; in parts; and not at all. */
static std::vector<Bytes> scripts()
{
    const Bytes end = call(1, N) + call(0, N), start = call(31, N);
    return {
        script(call(17, N) + call(19, KEY, 2, 3) + call(23, VEL, 3, 2) + call(15, KEY) + call(21, N) + end),
        script(call(18, N) + call(20, KEY, 2, 3) + call(26, VEL) + call(16, KEY) + call(22, N) + start + call(18, N)),
        script(call(17, N) + call(27, KEY, 2, 3) + call(28, VEL, 3, 2) + start + call(17, N) + call(24, KEY) +
               call(25, VEL)),
        script(call(17, N) + call(24, KEY) + call(29, VEL, 3, 2) + call(13, N) + call(15, KEY) + call(14, N) +
               call(15, KEY)),
        script(call(11, N) + call(12, 3) + call(11, KEY) + call(3, 0, 0, 2) + call(9, 0, 0, 6) + call(32, VEL, 3, 2)),
        script(call(2, 3, 3, 3) + call(30, N, 3, 1) + call(6, 1) + call(7, 1) + call(8, 1) + call(4, 0, 0, 1)),
    };
}

static Bytes stream(tool::Form form)
{
    static const int32_t ints[]   = { 1, -2, 3, 4, 5, 600000 };
    static const double  reals[]  = { 0.5, -1.5, 2.5e-300, 3.5, 4.5, 5.5 };
    static const float   floats[] = { 0.25f, 7.5f };
    const std::string path = (scratch / "stream").string();
    {
        tool::TokenFile f(path, form);
        f.keyInt("n", 3);
        f.keyInts("key", 2, 3, ints);
        f.keyReals("vel", 3, 2, reals);
        f.keyStr("key", "text");
        f.keyReal("n", 0.25);
        f.floats(floats, 2);
        f.close();
    }
    return smallBytes(path + tool::formSuffix(form));
}

static void makeTokens()
{
    const Bytes text = stream(tool::Form::ascii), packed = stream(tool::Form::compressed);
    const Bytes binary = stream(tool::Form::binary), swapped = stream(tool::Form::swapped);
    const auto untagged = [](const Bytes &bytes) { return bytes.substr(bytes.find('\n') + 1); };
    for (const Bytes &s : scripts()) {
        put("fuzzIopTokens", byte(0) + s + text);
        put("fuzzIopTokens", byte(1) + s + binary);
        put("fuzzIopTokens", byte(1) + s + swapped);
        put("fuzzIopTokens", byte(2) + s + untagged(binary));
        put("fuzzIopTokens", byte(3) + s + untagged(swapped));
        put("fuzzIopTokens", byte(4) + s + untagged(binary));
        put("fuzzIopZip", byte(0) + s + text);
        put("fuzzIopZip", byte(1) + s + packed);
    }
}

/* ---- HDF5 ---- */

/* Entries of fuzzIopHdf.cpp. The last number of a key's entry chooses columns and rows. */
static Bytes keyOf(int how) { return byte(4) + byte((size_t) how); }

static Bytes numbers(int rank, int how, int type, const Bytes &values, const Bytes &extents)
{
    return byte((size_t) (9 * rank)) + byte((size_t) how) + byte((size_t) type) + counted(values) + extents;
}

/* The longest there can be, or one of sixteen bytes. */
static Bytes text(const Bytes &value, int how, bool isLong)
{
    return byte(2) + byte((size_t) how) + byte(isLong ? 63 : 62) + counted(value) + byte(1);
}

template <class T, size_t n> static Bytes raw(const T (&values)[n])
{
    return Bytes((const char *) values, sizeof values);
}

static void makeHdf()
{
    static const int32_t three[] = { 3 }, ints[] = { 1, 2, 3, 4, 5, 6 };
    static const double  reals[] = { 0.5, 1.5, 2.5, 3.5, 4.5, 5.5 }, quarter[] = { 0.25 };
    for (const Bytes &s : scripts())
        for (int how : { 0, 1, 3, 4, 5, 6, 128 }) {
            const int type = how == 4 ? 5 : how == 5 ? 4 : how == 6 ? 3 : 12;           /* see numberType there */
            const Bytes variable = byte(3) + byte((size_t) (how == 5 ? how | 16 : how)) + counted("text") + byte(2) +
                                   byte(1);
            const Bytes entries = keyOf(0) + numbers(0, 0, 12, raw(three), byte(1)) +
                                  keyOf(58) + numbers(2, how, type, raw(ints), byte(2) + byte(3)) +
                                  keyOf(47) + numbers(2, how, 14, raw(reals), byte(3) + byte(2)) +
                                  keyOf(4) + (how & 1 ? variable : text("text", how, how == 6)) +
                                  keyOf(0) + numbers(0, how, 14, raw(quarter), byte(1));
            put("fuzzIopHdf", byte(0) + s + entries);
            put("fuzzIopHdf", byte(3) + s + byte(8) + byte(0) + entries + byte(8) + byte(1) + entries);
        }
    for (const Bytes &s : scripts())
        for (size_t how : { 0, 1 }) put("fuzzIopHdfBytes", byte(how) + s + Bytes("\x40\x00\x01", 3));
}

/* ---- runs ---- */

/* Lines that the run writer has no use for. */
static const char moreLines[] =
    "#@ RST dir a/b problem q run 3 step 40\n#@ RAD p.rad n 7 m 8\n#@ MODCRD ./p.1.crd.B n 12\n#@ TMF \"t\" n -3\n"
    "#@ RFF \"r\" org 1 2 3 vel 4 5 6.5 a 7 b 8 c 9\n#@ MMO \"m\" n 3\n#@ FBD \"f\" n 3\n#@ DOP n 6\n"
    "#@ OTH p.oth \"h\" n 3\n"
    "#@ DBC ./p.1.sfs0.B \"d\" nSrfs 2 type 1 nSrfNodes 3 quad 1 elm 0 medium 1 bc 9\n#@ DBC.SFS \"d\" 1 \"inlet\"\n"
    "#@ SSI ./p.1.sfs0.B \"s\" nSrfs 2 type 1 nSrfNodes 3 quad 1 elm 0 medium 1 mesh 9 fct 0.5 gap 0.25 ang 0.125\n"
    "#@ SSI.SFS \"s\" 1 \"inlet\"\n#@ GSF ./p.1.sfs0.B \"g\" nSrfs 2 type 1 nSrfNodes 3 quad 1 elm 0 medium 1\n"
    "#@ FAN ./p.1.sfs0.B \"fan\" nSrfs 2 type 1 nSrfNodes 3 quad 1 elm 0 medium 1\n#@ FAN.SFS \"fan\" 1 \"inlet\"\n"
    "#@ OAA ./p.1.nbc0.B \"a\" n 3\n#@ OAD ./p.1.nbc0.B \"a\" n 3\n#@ OSA f \"x\" n 1\n#@ OEA f \"x\" n 1\n"
    "#@ OFS f \"x\" n 1\n#@ OVS f \"x\" n 1\n"
    "#@ VAS f \"x\" n 1 m 2\n#@ OVE f \"x\" n 1\n#@ VAE f \"x\" n 1 m 2\n#@ MFD \"field\" 1\n#@ END\n";

static void makeRuns()
{
    for (int form = 0; form < N_SMALL_FORMS; ++form) {
        const std::string dir = (scratch / smallForms[form].folder).string();
        writeSmallRun(dir, smallForms[form].form, smallForms[form].merged);
        for (int file = 0; file < N_SMALL_FILES; ++file) {
            const Bytes bytes = smallBytes(dir + "/" + smallName(form, file));
            for (int part = form % 2; part < 8; part += 2)      /* of the keys: all of them in two forms */
                put("fuzzRun", byte(form) + byte(file) + byte(part) + bytes);
            put("fuzzRun", byte(form) + byte(file) + byte(8 + 17 * (file % 8)) + bytes);
        }
        Bytes cli = smallBytes(dir + "/p.1.cli");
        for (size_t how : { 0, 1, 2, 3, 4, 5, 6, 7, 8 }) put("fuzzCli", byte(how) + cli);
        cli.replace(cli.find("#@ END"), Bytes::npos, moreLines);
        for (size_t how : { 0, 1, 2, 3, 4, 5, 6, 7, 8 }) put("fuzzCli", byte(how) + cli);
    }
}

/* Names of all classes, the problem and the run as a slash; and some that only look like it. */
static const char names[] =
    "/.cli\np.2.cli\np.01.cli.B\n/.crd\n/.top.B\n/_0_0.out\n/_0_1.out\n/_12_x.out.B\n/_3_0.osn\n/.vol0\np.Log\n"
    "p.7.psl\np.7_1.pps\n/.ptc\nq.1.cli\n/_0_0_0.out\n/_.out\n/_-1_0.out\n/_2147483648_0.out\np.4294967297.cli\n";

static void makeNames()
{
    for (size_t how : { 0, 1, 2, 8 }) {
        put("fuzzNames", byte(how) + names);
        put("fuzzNames", byte(how) + "/.cli\n/_0_x.out\n/_7_x.out\n/_2_0.out\n");
    }
}

/* The names in the container, in its order: those of the files of the same run in text. */
static std::vector<std::string> membersOf(const std::string &dir)
{
    std::vector<std::string> members;
    for (const auto &entry : fs::directory_iterator(dir)) {
        const std::string name = entry.path().filename().string(), ext = entry.path().extension().string();
        if (ext != ".cli" && ext != ".Log") members.push_back(name);
    }
    std::sort(members.begin(), members.end());
    return members;
}

static Bytes change(size_t kind, size_t member, size_t number)
{
    return byte(kind) + byte(member) + byte(number) + counted(Bytes("\2\0\0\0", 4));
}

/* Changes of fuzzRunHdf.cpp: none, and one of each kind in some places. */
static void makeContainers()
{
    const std::string dir = (scratch / "members").string();
    writeSmallRun(dir, tool::Form::ascii, false, true);
    const std::vector<std::string> members = membersOf(dir);
    for (size_t how : { 0, 1, 2, 3, 4, 5, 6, 7, 8 }) put("fuzzRunHdf", byte(how));
    for (size_t m = 0; m < members.size(); ++m) {
        /* user ids of nodes that cannot be read: asked for by many, who must not keep what they were about to fill */
        for (size_t part = 0; members[m] == "p.1.crd" && part < 8; ++part)
            put("fuzzRunHdf", byte(part) + change(0, m, 12));
        for (size_t kind : { m % 6, (m + 3) % 6 })
            put("fuzzRunHdf", byte((m + kind) % 8) + change(kind, m, 3 * kind + m % 7));
    }
}

/* ---- options and expressions ---- */

static void makeOptions()
{
    static const char *const files[] = {
        "# a comment\ntitle = a b  c \ncount: 0x10\nsize 1.5d3\nflag=off\ncolor blue\n",
        "win64.title = one\nfuzz-cnf.WIN64.fuzz.t : two\nunknown = 3\nt =\n  title\t=\t=\r\n",
        "pdir = .\ncount 12abc\nsize = 1e400\n",
    };
    const Bytes zero(1, '\0');
    for (const char *file : files) {
        put("fuzzCnf", counted("") + counted("") + file);
        put("fuzzCnf", counted(":~two.cnf:C:three.cnf") + counted("-no_f" + zero + "-count" + zero + "3" + zero + "-e" +
                                                                  zero + "red") + file);
    }
    static const char *const patterns[][2] = {
        { "^[ \t]*([a-z_]+)([ \t]*[=:][ \t]*|[ \t]+)(.*[^ \t])$", "key = value " },
        { "(a|ab)(c|bcd)*\\1",                                     "abcdab"       },
        { "a*",                                                    "aaaa"         },
        { "[^]a-c-]+\\b\\w\\W?",                                   "xyz 1."       },
        { "^p\\.([0-9]+)_([0-9]+)_(x|[0-9]+)\\.out$",              "p.1_2_x.out"  },
        { "\\<a.?\\>\\B\\`\\'",                                    "ab"           },
    };
    for (const auto &p : patterns)
        for (size_t how : { 0, 1, 2 }) put("fuzzRegExpr", byte(how) + counted(p[0]) + p[1]);
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: fuzzSeeds DIR\n");
        return 2;
    }
    try {
        seeds   = argv[1];
        scratch = seeds / "scratch";
        fs::create_directories(scratch);
        makeTokens();
        makeHdf();
        makeRuns();
        makeContainers();
        makeNames();
        makeOptions();
        fs::remove_all(scratch);
        return 0;
    }
    catch (const std::exception &e) {
        fprintf(stderr, "fuzzSeeds: %s\n", e.what());
        return 1;
    }
}
