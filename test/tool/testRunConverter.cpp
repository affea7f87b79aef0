/* testRunConverter.cpp: a run converted is the run as it would have been written in that form; nothing of it is
 * lost. */

#include "test/testUtil.h"
#include "test/tool/forms.h"
#include "test/tool/thrown.h"

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "tool/runConverter.h"
#include "tool/runWriter.h"

using namespace tool;
using namespace std::string_literals;
namespace fs = std::filesystem;

static const Form binaryForms[] = {Form::binary, Form::swapped};

/* the names in a folder, sorted */
static std::vector<std::string> namesIn(const std::string &folder)
{
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(runConverter, aConvertedRunIsTheRunWrittenInThatForm)
{
    RunSpec spec;
    spec.run       = 12;
    spec.mesh      = Mesh::mixed;
    spec.nSds      = 2;
    spec.emptySets = true;
    spec.setVars("all");
    spec.setSteps(2, 5, 10);
    for (const char *ext : {"ora", "ota", "onr", "odq", "oae", "oee", "rst", "ocn"}) {
        FamSpec fam;
        fam.ext   = ext;
        fam.lists = true;
        spec.families.push_back(fam);
    }
    spec.top = true;
    for (Form from : binaryForms) {
        spec.merged = from == Form::swapped;
        spec.dir    = "from";
        spec.form   = from;
        writeRun(spec);
        for (const auto &f : forms) {
            SCOPED_TRACE(caseOf(from).name + " to "s + f.name);
            convertRun("from/pipe.12.Log", "to", f.form);
            spec.dir  = "direct";
            spec.form = f.form;
            writeRun(spec);
            EXPECT_EQ(testRead("to/pipe.12.Log"), testRead("direct/pipe.12.Log"));

            const std::string to = "to/QUENTA.DIR/", direct = "direct/QUENTA.DIR/";
            ASSERT_EQ(namesIn(to), namesIn(direct));
            for (const std::string &name : namesIn(to)) {
                SCOPED_TRACE(name);
                if (f.kind != "hdf"s || name == "pipe.12.cli") {
                    EXPECT_TRUE(testRead(to + name) == testRead(direct + name));
                    continue;
                }
                std::vector<std::string> members = {""};
                if (f.form == Form::container) members = membersOf(direct + name);
                for (const std::string &member : members)
                    EXPECT_TRUE(readItems(Place{to + name, member}) == readItems(Place{direct + name, member}));
            }
            if (f.form == Form::container) {
                EXPECT_EQ(membersOf(to + "pipe.12.C"), membersOf(direct + "pipe.12.C"));
            }
            fs::remove_all("to");
            fs::remove_all("direct");
        }
        fs::remove_all("from");
    }
}

/* ---- a real run ---- */

static const std::string realRun = RDB_REAL_RUN;

TEST(runConverter, aRealRunToTheLastBit)
{
    if (!fs::exists(realRun)) GTEST_SKIP() << "no real run to test with";
    for (Form from : binaryForms) {
        const std::string folder = realRun + "/" + caseOf(from).name;
        std::vector<std::string> tails;
        for (const std::string &name : namesIn(folder + "/QUENTA.DIR"))
            if (name.substr(name.size() - 2) == ".B") tails.push_back(name.substr(6, name.size() - 8));
        for (const auto &f : forms) {
            SCOPED_TRACE(caseOf(from).name + " to "s + f.name);
            EXPECT_EQ(convertRun(folder + "/disk.1.Log", "to", f.form), (int) tails.size());
            EXPECT_EQ(testRead("to/disk.1.Log"), testRead(folder + "/disk.1.Log"));
            EXPECT_EQ(namesIn("to/QUENTA.DIR").size(), f.form == Form::container ? 2 : tails.size() + 1);
            for (const std::string &tail : tails) {
                SCOPED_TRACE(tail);
                const Place place = placeOf(f.form, "to/QUENTA.DIR/disk.1", tail);
                EXPECT_EQ(kindOf(place.file), f.kind);
                EXPECT_TRUE(readItems(place) == readItems(folder + "/QUENTA.DIR/disk.1" + tail + ".B"));
            }
            if (fs::exists(realRun + "/" + f.name)) {
                EXPECT_EQ(testRead("to/QUENTA.DIR/disk.1.cli"),
                          testRead(realRun + "/" + f.name + "/QUENTA.DIR/disk.1.cli"));
            }
            fs::remove_all("to");
        }
    }
}

/* ---- client information ---- */

/* a run p.1 of one small data file, with its client information as told */
static void writeSmall(const std::string &cli)
{
    fs::create_directories("from/QUENTA.DIR");
    testWrite("from/p.1.Log", "log\n");
    testWrite("from/QUENTA.DIR/p.1.cli", cli);
    TokenFile("from/QUENTA.DIR/p.1.crd", Form::binary).keyInt("nParts", 2);
}

TEST(runConverter, onlyNamesOfDataFilesAndTheFormChangeInTheClientInformation)
{
    const struct { const char *before, *after; } cases[] = {
        {"#@ FMT 32\n#@ CRD QUENTA.DIR/p.1.crd.B nNodes 5\n", "#@ FMT 128\n#@ CRD QUENTA.DIR/p.1.crd.H nNodes 5\n"},
        {"#@   FMT  32 of a kind\n",            "#@ FMT 128\n"},
        {"#@ FMT 32\n#@ VOL p.1.vol0.B  \"p.1.vol0.B\" n 5\n", "#@ FMT 128\n#@ VOL p.1.vol0.H  \"p.1.vol0.B\" n 5\n"},
        {"#@ FMT 32\n#@ TITLE \"open p.1.vol0.B",  "#@ FMT 128\n#@ TITLE \"open p.1.vol0.B\n"},
        {"#@ FMT 32\n#@ CRD q.1.crd.B n 5\n",      "#@ FMT 128\n#@ CRD q.1.crd.B n 5\n"},
        {"#@ FMT 32\n#@ CRD p.11.crd.B n 5\n",     "#@ FMT 128\n#@ CRD p.11.crd.B n 5\n"},
        {"#@ FMT 32\n#@ CRD p.1.crd n .B\n",       "#@ FMT 128\n#@ CRD p.1.crd n .B\n"},
        {"#@ FMT 32\np.1.crd.B\n# FMT 32\n\n#@\n", "#@ FMT 128\np.1.crd.B\n# FMT 32\n\n#@\n"},
        {"#@ CRD p.1.crd.B n 5\n",                 "#@ FMT 128\n#@ CRD p.1.crd.H n 5\n"},
        {"#@ END\n#@ FMT 32\n",                    "#@ FMT 128\n#@ END\n#@ FMT 128\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.before);
        writeSmall(c.before);
        convertRun("from/p.1.Log", "to", Form::hdf);
        EXPECT_EQ(testRead("to/QUENTA.DIR/p.1.cli"), c.after);
    }
}

TEST(runConverter, membersAreNamedWithoutSuffix)
{
    writeSmall("#@ FMT 32\n#@ CRD QUENTA.DIR/p.1.crd.B nNodes 5\n");
    convertRun("from/p.1.Log", "to", Form::container);
    EXPECT_EQ(testRead("to/QUENTA.DIR/p.1.cli"), "#@ FMT 256\n#@ CRD QUENTA.DIR/p.1.crd nNodes 5\n");
    EXPECT_EQ(membersOf("to/QUENTA.DIR/p.1.C"), (std::vector<std::string>{"p.1.crd"}));
}

/* ---- which files ---- */

TEST(runConverter, otherFilesOfTheFolderAreLeftAlone)
{
    writeSmall("");
    for (const char *name : {"p.11.crd.B", "p.2.cli", "q.1.crd", "p.1", "notes"})
        testWrite("from/QUENTA.DIR/"s + name, "other");
    EXPECT_EQ(convertRun("from/p.1.Log", "to", Form::ascii), 1);
    EXPECT_EQ(namesIn("to/QUENTA.DIR"), (std::vector<std::string>{"p.1.cli", "p.1.crd"}));
}

TEST(runConverter, dataBesideTheLog)
{
    RunSpec spec;
    spec.dir     = "from";
    spec.dataDir = ".";
    writeRun(spec);
    EXPECT_GT(convertRun("from/pipe.1.Log", "to", Form::hdf, "."), 10);
    EXPECT_TRUE(fs::exists("to/pipe.1.Log"));
    EXPECT_TRUE(fs::exists("to/pipe.1.cli"));
    EXPECT_EQ(kindOf("to/pipe.1.crd.H"), "hdf");
}

TEST(runConverter, aFileThatCannotBeConvertedIsTold)
{
    const std::string tag = "QUENTA 2021.1 2 4 6 8\n", nParts = "nParts\0\0"s, intVec = "intVec\0\0"s;
    const struct { const char *name; std::string bytes, text; } cases[] = {
        {"p.1.crd.B", "",                                    "p.1.crd.B is not in the binary form"},
        {"p.1.crd.B", "nParts\n2\n",                         "p.1.crd.B is not in the binary form"},
        {"p.1.crd.B", "QUENTA 2021.1 2 4 6 8",               "p.1.crd.B is not in the binary form"},
        {"p.1.crd.B", "QUENTA 2021.1 2 4 5 8\n",             "p.1.crd.B is not in the binary form"},
        {"p.1.crd.B", "QUENTA 2021.1 2 8 6 8\n",             "p.1.crd.B is not in the binary form"},
        {"p.1.crd.H", tag,                                   "p.1.crd.H is not in the binary form"},
        {"p.1.crd",   tag,                                   "p.1.crd is not in the binary form"},
        {"p.1.crd.B", tag + "nWhat\0\0\0"s,                  "holds the key <nWhat>, of which it is not known"},
        {"p.1.crd.B", tag + "nPar",                          "p.1.crd.B ends too early"},
        {"p.1.crd.B", tag + nParts + "\1\0\0"s,              "p.1.crd.B ends too early"},
        {"p.1.crd.B", tag + "time\0\0\0\0\0\0\0\0"s,         "p.1.crd.B ends too early"},
        {"p.1.crd.B", tag + intVec + "\1\0\0\0\2\0\0\0\7\0\0\0"s,           "p.1.crd.B tells a size that cannot be"},
        {"p.1.crd.B", tag + intVec + "\xff\xff\xff\xff\2\0\0\0"s,           "p.1.crd.B tells a size that cannot be"},
        {"p.1.crd.B", tag + intVec + "\1\0\0\0\xff\xff\xff\xff"s,           "p.1.crd.B tells a size that cannot be"},
        {"p.1.crd.B", tag + "vel\0\0\0\0\0\xff\xff\xff\x7f\xff\xff\xff\x7f"s, "p.1.crd.B tells a size that cannot be"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.bytes);
        writeSmall("");
        fs::remove("from/QUENTA.DIR/p.1.crd.B");
        testWrite("from/QUENTA.DIR/"s + c.name, c.bytes);
        const std::string text = thrownBy([] { convertRun("from/p.1.Log", "to", Form::ascii); });
        EXPECT_NE(text.find(c.text), std::string::npos) << text;
        fs::remove_all("from");
    }
}

TEST(runConverter, whatIsNoRunIsTold)
{
    writeSmall("");
    EXPECT_NE(thrownBy([] { convertRun("from/p.1", "to", Form::ascii); }).find("<from/p.1> is not the name of a log"),
              std::string::npos);
    EXPECT_NE(thrownBy([] { convertRun("from/p.1.Log", "./from", Form::ascii); }).find("<./from> holds the run itself"),
              std::string::npos);
    EXPECT_EQ(keysOf(readItems("from/QUENTA.DIR/p.1.crd.B")), (std::vector<std::string>{"nParts"}));
    EXPECT_NE(thrownBy([] { convertRun("none/p.1.Log", "to", Form::ascii); }), "");
    fs::remove("from/QUENTA.DIR/p.1.cli");
    EXPECT_NE(thrownBy([] { convertRun("from/p.1.Log", "to", Form::ascii); }).find("p.1.cli cannot be read"),
              std::string::npos);
}

/* ---- the command, which lies beside this program ---- */

struct Result { int code; std::string out, err; };

static Result convertRunCommand(const std::string &args)
{
    const fs::path program = fs::read_symlink("/proc/self/exe").parent_path() / "convertRun";
    const int status = std::system(("'" + program.string() + "' " + args + " >out.txt 2>err.txt").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, testRead("out.txt"), testRead("err.txt")};
}

TEST(convertRun, theCommandConverts)
{
    for (const auto &f : forms) {
        SCOPED_TRACE(f.name);
        writeSmall("");
        const Result r = convertRunCommand("from/p.1.Log 'the/new one' --form "s + f.name);
        ASSERT_EQ(r.code, 0) << r.err;
        EXPECT_EQ(r.out, "the/new one: 1 data files\n");
        EXPECT_EQ(keysOf(readItems(placeOf(f.form, "the/new one/QUENTA.DIR/p.1", ".crd"))),
                  (std::vector<std::string>{"nParts"}));
    }
}

TEST(convertRun, helpAndNonsense)
{
    const Result help = convertRunCommand("--help");
    EXPECT_EQ(help.code, 0);
    for (const auto &f : forms) EXPECT_NE(help.out.find(f.name), std::string::npos);

    const struct { const char *args; int code; const char *text; } cases[] = {
        {"",                                   2, "a log and a folder are needed"},
        {"a.1.Log b c --form hdf",             2, "a log and a folder are needed"},
        {"a.1.Log b",                          2, "no form given"},
        {"a.1.Log b --form",                   2, "--form needs a value"},
        {"a.1.Log b --form paper",             2, "--form: <paper> is none of ascii, binary, swapped, compressed, hdf"},
        {"a.1.Log b --what",                   2, "unknown option <--what>"},
        {"a.1 b --form hdf",                   2, "<a.1> is not the name of a log"},
        {"a.1.Log b --form hdf",               1, "QUENTA.DIR"},
        {"a.1.Log b --form hdf --data-dir me", 1, "me"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args);
        const Result r = convertRunCommand(c.args);
        EXPECT_EQ(r.code, c.code);
        EXPECT_EQ(r.err.find("convertRun: "), 0u);
        EXPECT_NE(r.err.find(c.text), std::string::npos) << r.err;
        EXPECT_FALSE(fs::exists("b"));
    }
}
