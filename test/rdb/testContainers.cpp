/* testContainers.cpp: files in containers count as files of the directory, are found and read wherever they lie, and
 * a run answers the same in every storage form.
 *
 * A container that the library has open cannot be written by this process too: a test that changes one writes another
 * file and puts its bytes in place. */

#include "test/rdb/smallRun.h"

#include <hdf5.h>

#include <algorithm>
#include <filesystem>

#include "test/rdb/everyKey.h"
#include "tool/runConverter.h"
#include "tool/runWriter.h"

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

/* A container whose files hold one integer each */
static void makeBox(const std::string &path, const std::vector<std::pair<std::string, int>> &files)
{
    tool::Container box(path);
    for (const auto &[name, value] : files) tool::TokenFile(box, name).keyInt("answer", value);
    box.close();
}

static void makeBoxOf(const std::string &path, const Strings &names)
{
    std::vector<std::pair<std::string, int>> files;
    for (const auto &name : names) files.push_back({ name, 0 });
    makeBox(path, files);
}

static int answerOf(iopHd *fh)
{
    int answer = -1;
    checkReturns(if (fh) iopGetKeyInt(fh, "answer", &answer), iopCloseFile(fh));
    return answer;
}

static rdbHd *openDb()
{
    rdbHd *hd = nullptr;
    checkReturns(hd = rdbNew("p", ".", nullptr, 0));
    EXPECT_NE(hd, nullptr) << rdbGetError();
    return hd;
}

static Strings listed(const rdbHd *hd) { return Strings(hd->files, hd->files + hd->nFiles); }

/* The directory is newer than at the last scan, whatever the clock's grain. */
static void touch(int seconds = 2)
{
    fs::last_write_time(".", fs::last_write_time(".") + std::chrono::seconds(seconds));
}

/* Puts the bytes of another file in the place of a file's, as a writer that has it open would; the directory's time
   stands. */
static void overwrite(const std::string &name, const std::string &other)
{
    const auto time = fs::last_write_time(".");
    testWrite(name, testRead(other));
    fs::last_write_time(name, fs::last_write_time(name) - std::chrono::seconds(60));
    fs::last_write_time(".", time);
}

/* What HDF5 and the system have open */
static ssize_t nIds() { return H5Fget_obj_count((hid_t) H5F_OBJ_ALL, H5F_OBJ_ALL); }

static int nOpenFiles()
{
    int n = 0;
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) n += entry.exists();
    return n;
}

/* Ends the handle; nothing of the containers may be open then */
static void freeDb(rdbHd *hd)
{
    checkReturns(if (hd) rdbFree(hd));
    EXPECT_EQ(nIds(), 0);
}

/* ------------------------------------------------------------------------------------------------------ every form */

static std::string boxOf(const tool::RunSpec &spec)
{
    return tool::dataFolder(spec) + "/" + spec.problem + "." + std::to_string(spec.run) + ".C";
}

/* All that a folder's run answers */
static Answers answersIn(const fs::path &folder, const std::string &problem, const std::string &dataDir, int run)
{
    const fs::path here = fs::current_path();
    rdbHd *hd = nullptr;
    int    ok = 0;
    fs::current_path(folder);
    checkReturns(hd = rdbNew(problem.c_str(), dataDir.c_str(), nullptr, 0); ok = hd && rdbOpenRun(hd, run));
    EXPECT_EQ(ok, 1) << rdbGetError();
    Answers answers(hd);
    freeDb(hd);
    fs::current_path(here);
    return answers;
}

/* The run of a spec, written to a folder of its own, read back from there and closed */
static Answers answersOf(tool::RunSpec spec)
{
    spec.dir = std::string("run-") + tool::formRow(spec.form).word + (spec.merged ? "-merged" : "");
    tool::writeRun(spec);
    EXPECT_EQ(fs::exists(boxOf(spec)), spec.form == tool::Form::container);
    return answersIn(spec.dir, spec.problem, spec.dataDir, spec.run);
}

static void checkSame(const Answers &answers, const Answers &others)
{
    EXPECT_EQ(others.nAnswered, answers.nAnswered);
    EXPECT_EQ(others.found.size(), answers.found.size());
    for (const auto &[key, bytes] : answers.found) {
        const auto it = others.found.find(key);
        ASSERT_NE(it, others.found.end()) << key;
        EXPECT_TRUE(it->second == bytes) << key;
    }
}

static void checkSameInEveryForm(tool::RunSpec spec, int atLeast)
{
    spec.form = tool::Form::binary;
    spec.merged = false;
    const Answers binary = answersOf(spec);
    EXPECT_GE(binary.nAnswered, atLeast);
    for (const auto &form : tool::formRows)
        for (bool merged : { false, true }) {
            SCOPED_TRACE(std::string(form.word) + (merged ? ", merged" : ""));
            spec.form = form.value;
            spec.merged = merged;
            checkSame(binary, answersOf(spec));
        }
    EXPECT_EQ(testSlept(), 0);
}

TEST(everyForm, aRealRun)
{
    const std::string folder = std::string(RDB_REAL_RUN) + "/binary";
    if (!fs::exists(folder)) GTEST_SKIP() << "no real run to test with";
    const Answers binary = answersIn(folder, "disk", "QUENTA.DIR", 1);
    EXPECT_GE(binary.nAnswered, 200);
    for (const auto &form : tool::formRows) {
        SCOPED_TRACE(form.word);
        const std::string to = std::string("run-") + form.word;
        tool::convertRun(folder + "/disk.1.Log", to, form.value);
        checkSame(binary, answersIn(to, "disk", "QUENTA.DIR", 1));
    }
    EXPECT_EQ(testSlept(), 0);
}

TEST(everyForm, aRunOfManySets)
{
    tool::RunSpec spec;
    spec.mesh = tool::Mesh::mixed;
    spec.nSds = 3;
    spec.scattered = true;
    spec.emptySets = true;
    spec.nodeSets = true;
    spec.setVars("velocity,pressure,species:3,mesh_displacement");
    spec.setSteps(3, 5, 10);
    checkSameInEveryForm(spec, 1000);
}

TEST(everyForm, allVariables)
{
    tool::RunSpec spec;
    spec.nSds = 2;
    spec.twoWords = true;
    spec.setVars("all");
    checkSameInEveryForm(spec, 500);
}

TEST(everyForm, withoutSubdomains)
{
    tool::RunSpec spec;
    spec.mesh = tool::Mesh::tet10;
    spec.nSds = 0;
    checkSameInEveryForm(spec, 300);
}

/* --------------------------------------------------------------------------------------------------- what is listed */

TEST(containers, theirFilesAreFilesOfTheDirectory)
{
    testWrite("p.1.cli", "");
    testWrite("p.1.top.B", "");
    makeBoxOf("box", { "p.1.ddc", "p.1_2_3.psl", "p.slv", "notes", "pq.1.cli" });
    rdbHd *hd = openDb();
    EXPECT_EQ(listed(hd), (Strings { "p.1.cli", "p.1.ddc", "p.1.top.B", "p.1_2_3.psl", "p.slv", "box.C", "notes",
                                     "pq.1.cli" }));
    EXPECT_EQ(hd->nRunFiles, 4);
    EXPECT_EQ(hd->nAuxFiles, 1);
    EXPECT_EQ(hd->nUndefFiles, 3);
    EXPECT_EQ(hd->nRuns, 1);
    ASSERT_EQ(hd->nTruns, 1);                              /* a trace run whose only file is in a container */
    EXPECT_EQ(hd->trunIds[0], 2);
    EXPECT_EQ(hd->trunRunIds[0], 1);
    EXPECT_EQ(rdbFindFile(hd, "p.1.ddc"), IOP_ASCII);      /* no suffix */
    EXPECT_EQ(dicGet(hd->fileDic, "p.1.ddc"), (intptr_t) hd->containers[0]);
    EXPECT_EQ(dicGet(hd->fileDic, "p.1.top.B"), 0);
    freeDb(hd);
}

TEST(containers, manyFiles)
{
    Strings names;
    for (int i = 0; i < 1500; ++i) names.push_back("p.1_" + std::to_string(i) + "_0.out");
    testWrite("p.1.cli", "");
    makeBoxOf("box", names);
    names.insert(names.end(), { "p.1.cli" });
    std::sort(names.begin(), names.end());
    names.push_back("box.C");
    rdbHd *hd = openDb();
    EXPECT_EQ(listed(hd), names);
    freeDb(hd);
}

/* The last of the sorted names has it, whatever order the file system tells them in */
TEST(containers, twoOfThem)
{
    testWrite("p.1.cli", "");
    makeBox("b", { { "p.1.crd", 2 }, { "p.1.ddc", 3 } });
    makeBox("a", { { "p.1.crd", 1 }, { "p.1.top", 4 } });
    rdbHd *hd = openDb();
    ASSERT_EQ(hd->nContainers, 2);
    EXPECT_STREQ(hd->containerNames[0], "a.C");
    EXPECT_EQ(answerOf(rdbOpenReadFile(hd, "./p.1.crd", IOP_ASCII)), 2);
    EXPECT_EQ(answerOf(rdbOpenReadFile(hd, "./p.1.ddc", IOP_ASCII)), 3);
    EXPECT_EQ(answerOf(rdbOpenReadFile(hd, "./p.1.top", IOP_ASCII)), 4);
    EXPECT_EQ(std::count(hd->files, hd->files + hd->nFiles, std::string("p.1.crd")), 2);
    freeDb(hd);
}

/* Tables of contents are text, so that this one is of no use; it makes no second run */
TEST(containers, aRunThatIsOnTheDiskTooCountsOnce)
{
    testWrite("p.1.cli", "#@ TITLE \"on disk\"\n");
    makeBoxOf("box", { "p.1.cli", "p.1_2_3.psl" });
    testWrite("p.1_2_3.psl", "");
    rdbHd *hd = openDb();
    char   title[RDB_TEXT];
    EXPECT_EQ(hd->nRuns, 1);
    EXPECT_EQ(hd->nTruns, 1);
    checkAnswers(rdbOpenRun(hd, 1));
    checkAnswers(rdbGetStr0(hd, "title", title));
    EXPECT_STREQ(title, "on disk");
    freeDb(hd);
}

/* ------------------------------------------------------------------------------------------------ where a file lies */

/* Whatever the directory in front, and whatever form and other options come with it */
TEST(containers, aFileIsFoundByItsLastComponent)
{
    testWrite("p.1.cli", "#@ FMT 256\n#@ END\n");
    makeBox("box", { { "p.1.crd", 7 }, { "p.1_5_x.out", 8 } });
    rdbHd *hd = openDb();
    checkAnswers(rdbOpenRun(hd, 1));
    for (const char *path : { "p.1.crd", "./p.1.crd", "/gone/p.1.crd", "a/b/c/p.1.crd" }) {
        SCOPED_TRACE(path);
        EXPECT_EQ(answerOf(rdbOpenDirFile(hd, path, IOP_READ | IOP_BINARY)), 7);
        EXPECT_EQ(answerOf(rdbOpenReadFile(hd, path, IOP_COMPRESSED)), 7);
        EXPECT_EQ(answerOf(rdbOpenDataFile(hd, path, iopGetFileOpt(path))), 7);
        EXPECT_EQ(answerOf(rdbOpenDiskFile(hd, path, IOP_ASCII)), 7);
    }
    int merged = 0;
    EXPECT_EQ(answerOf(rdbOpenRunFile(hd, "p.1.crd")), 7);
    EXPECT_EQ(answerOf(rdbOpenListedFile(hd, "p.1.crd")), 7);
    EXPECT_EQ(answerOf(rdbOpenFormFile(hd, "p.1_5_", "out", &merged)), 8);
    EXPECT_EQ(merged, 1);
    EXPECT_EQ(rdbOpenListedFile(hd, "p.1.ddc"), nullptr);
    EXPECT_EQ(testSlept(), 0);
    freeDb(hd);
}

/* What only begins like a file of the container is not the container's */
TEST(containers, otherNamesAreTheDisks)
{
    testWrite("p.1.cli", "");
    makeBox("box", { { "p.1.crd", 7 } });
    for (const char *name : { "p.1.cr", "p.1.crd2" }) { tool::TokenFile(name, tool::Form::ascii).keyInt("answer", 1); }
    { tool::TokenFile("p.1.crd", tool::Form::binary).keyInt("answer", 1); }
    rdbHd *hd = openDb();
    for (const char *name : { "p.1.cr", "p.1.crd2", "p.1.crd.B" })
        EXPECT_EQ(answerOf(rdbOpenDataFile(hd, name, iopGetFileOpt(name))), 1) << name;
    freeDb(hd);
}

TEST(containers, whereBothExist)
{
    for (const auto &form : tool::formRows) {
        if (form.value == tool::Form::container) continue;
        SCOPED_TRACE(form.word);
        testWrite("p.1.cli", "");
        makeBox("box", { { "p.1.ddc", 2 }, { "p.1_5_0.out", 2 } });
        for (const char *name : { "p.1.ddc", "p.1_5_0.out" }) tool::TokenFile(name, form.value).keyInt("answer", 1);
        rdbHd *hd = openDb();
        int    merged;
        const int opt = iopGetFileOpt(("p" + tool::formSuffix(form.value)).c_str());
        EXPECT_EQ(answerOf(rdbOpenListedFile(hd, "p.1.ddc")), 1);
        EXPECT_EQ(answerOf(rdbOpenDiskFile(hd, "./p.1.ddc", opt)), 1);
        EXPECT_EQ(answerOf(rdbOpenReadFile(hd, "./p.1.ddc", opt)), 2);
        EXPECT_EQ(answerOf(rdbOpenFormFile(hd, "p.1_5_", "out", &merged)), 2);
        freeDb(hd);
        for (const auto &entry : fs::directory_iterator(".")) fs::remove(entry.path());
    }
}

/* The decomposition, the node lists of output surfaces and surfaces on the disk, the rest from the container */
TEST(containers, whatTheSolverWritesBesideThem)
{
    SmallRun run;
    run.form = tool::Form::container;
    run.extraCli = "#@ SFS gone/p.1.srf \"s\" nSrfs 1 type 1 nsn 3 quad 1 vol 0 medium 7 volName \"v0\"\n"
                   "#@ OSF gone/p.1.srf \"o\" nSrfs 1 type 1 nsn 3 quad 1 elmId 0 medium 6\n"
                   "#@ OSF.SFS \"o\" 1 \"s\"\n";
    auto writeSrf = [](tool::TokenFile &f, int id) {
        const int nodes[3] = { 12, 10, 11 };
        f.keyInt("nParts", 3);
        f.keyInt("nRows", 1);
        f.keyInt("nCols", 5);
        for (int p = 0; p < 3; ++p) {
            f.keyInt("type", 1);
            f.keyInt("nCols", p < 2 ? 1 : 3);
            f.keyInts("intVec", p < 2 ? 1 : 3, 1, p < 2 ? &id : nodes);
        }
    };
    auto writeOsn = [&](tool::TokenFile &f, int id) {
        f.keyInt("nSds", run.nSds());
        f.keyInt("nNodes", 1);
        f.keyInts("usrIds", 1, 1, &id);
    };
    run.write();
    { SmallFile file("p.1.srf", run.form); writeSrf(file.f, 77); }
    { SmallFile file("p.1_0.osn", run.form); writeOsn(file.f, 10); }
    for (bool onDisk : { false, true }) {
        SCOPED_TRACE(onDisk ? "on disk too" : "in the container");
        if (onDisk) {
            fs::create_directory("gone");
            { tool::TokenFile f("gone/p.1.srf", tool::Form::ascii); writeSrf(f, 78); }
            { tool::TokenFile f("p.1_0.osn", tool::Form::binary); writeOsn(f, 11); }
            SmallRun other = run;
            other.form = tool::Form::hdf;
            other.parts = { { 4, 3 }, { 2, 1, 0 } };
            other.writeDdc();
            other.writeCrd();                              /* in a form that the table of contents does not name */
        }
        rdbHd *hd = SmallRun::open();
        int    id = 0, node = 0, usrIds[5] = {};
        checkAnswers(rdbGetInts1(hd, "sfsUsrIds", &id, 0, 1, -1));
        checkAnswers(rdbGetInts1(hd, "osfNodes", &node, 0, 1, -1));
        checkAnswers(rdbGetInts0(hd, "usrIds", usrIds, 5, -1));
        checkAnswers(rdbReadDdc(hd));
        EXPECT_EQ(id, onDisk ? 78 : 77);
        EXPECT_EQ(node, onDisk ? 11 : 10);
        EXPECT_EQ(usrIds[0], 10);
        EXPECT_EQ(hd->run->sdNNodes[0], onDisk ? 2 : 3);
        freeDb(hd);
    }
}

TEST(containers, aCountThatTheContainerCannotHold)
{
    SmallRun run;
    run.form = tool::Form::container;
    run.write();
    std::string cli = run.cli();
    cli.replace(cli.find("nNodes 5"), 8, "nNodes 2000000000");
    testWrite("p.1.cli", cli);
    rdbHd *hd = SmallRun::open();
    int    n = -1;
    checkRefused("file <p.1.crd> cannot hold 2000000000 rows", rdbGetInt0(hd, "nNodes", &n));
    EXPECT_EQ(n, -1);
    freeDb(hd);
}

/* A file that is large enough on the disk or in the container may be the one that is read */
TEST(containers, theLargerOfTwoFilesTellsWhatFits)
{
    testWrite("p.1.cli", "");
    makeBoxOf("box", { "p.1.srf" });
    testWrite("p.1.srf", "");
    ASSERT_EQ(truncate("p.1.srf", 200 << 20), 0);
    rdbHd *hd = openDb();
    int    fits = 0;
    EXPECT_EQ(rdbRowsFit(hd, "p.1.srf", 100 << 20, 1, 0, &fits), 1);
    fits = 0;
    EXPECT_EQ(rdbRowsFit(hd, "p.1.srf", (100 << 20) + 1, 1, 0, &fits), 0);
    freeDb(hd);
}

/* ----------------------------------------------------------------------------------------------------------- damage */

/* A file with the groups of these names in its root */
static void makeHdf(const std::string &name, const Strings &groups)
{
    const hid_t file = H5Fcreate(name.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
    for (const auto &group : groups) H5Gclose(H5Gcreate2(file, group.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
    H5Fclose(file);
}

/* A container that fails ends the scan, and leaves nothing open but what the handle closes */
TEST(containers, oneThatCannotBeOpened)
{
    static const struct { const char *what, *text; void (*make)(); } rows[] = {
        { "empty",     "Unable to open HDF5 file ./c.C",                [] { testWrite("c.C", ""); }              },
        { "text",      "Unable to open HDF5 file ./c.C",                [] { testWrite("c.C", "int main() {}"); } },
        { "folder",    "Unable to open HDF5 file ./c.C",                [] { fs::create_directory("c.C"); }       },
        { "no data",   "Unable to access data node in file ./c.C",      [] { makeHdf("c.C", { "FILES" }); }       },
        { "no FILES",  "Unable to access FILES in file ./c.C",          [] { makeHdf("c.C", { "QUENTA_DATA" }); } },
        { "cut",       "Unable to open HDF5 file ./c.C",
          [] { testWrite("c.C", testRead("b.C")); fs::resize_file("c.C", fs::file_size("c.C") / 2); }             },
    };
    testWrite("p.1.cli", "");
    makeBox("b", { { "p.1.crd", 7 } });
    makeBox("d", { { "p.1.ddc", 8 } });
    const int before = nOpenFiles();
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        row.make();
        checkFails(row.text, rdbNew("p", ".", nullptr, 0));
        fs::remove("c.C");

        rdbHd *hd = openDb();                              /* which ends the one that was left */
        row.make();
        touch(2);
        int flag;
        for (int i = 0; i < 2; ++i) checkFails(row.text, rdbUpdate(hd, &flag));
        EXPECT_EQ(hd->nContainers, 3);
        EXPECT_EQ(rdbFindFile(hd, "p.1.crd"), 0);          /* knows less, points nowhere */
        checkFails("unable to open ascii file <p.1.crd>", rdbOpenReadFile(hd, "p.1.crd", IOP_ASCII));
        fs::remove("c.C");
        checkAnswers(rdbUpdate(hd, &flag));
        EXPECT_EQ(hd->nContainers, 2);
        EXPECT_EQ(answerOf(rdbOpenReadFile(hd, "p.1.crd", IOP_ASCII)), 7);

        row.make();                                        /* freed as the failure left it */
        touch(4);
        checkFails(row.text, rdbUpdate(hd, &flag));
        freeDb(hd);
        fs::remove("c.C");
        EXPECT_EQ(nOpenFiles(), before);
    }
}

/* Puts other bytes of the same length in the place of a text that stands once in a file */
static void patch(const std::string &file, const std::string &text, const std::string &other)
{
    std::string bytes = testRead(file);
    const size_t at = bytes.find(text);
    ASSERT_NE(at, std::string::npos);
    ASSERT_EQ(text.size(), other.size());
    bytes.replace(at, text.size(), other);
    testWrite(file, bytes);
}

TEST(containers, namesThatNoFileHas)
{
    testWrite("p.1.cli", "");
    const std::string longest(SYS_NAME - 1, 'l'), tooLong(SYS_NAME, 'm');
    makeBox("box", { { "p.1.crd", 7 }, { "xFOLDERx", 1 }, { longest, 8 }, { tooLong, 1 }, { "p.1.%s%n", 9 } });
    patch("box.C", "xFOLDERx", "x/../../");
    rdbHd *hd = openDb();
    EXPECT_EQ(listed(hd), (Strings { "p.1.cli", "box.C", longest, "p.1.%s%n", "p.1.crd" }));
    EXPECT_EQ(answerOf(rdbOpenReadFile(hd, ("./" + longest).c_str(), IOP_ASCII)), 8);
    EXPECT_EQ(answerOf(rdbOpenReadFile(hd, "./p.1.%s%n", IOP_ASCII)), 9);
    freeDb(hd);
}

/* What HDF5 cannot tell a name of ends in a message, and the handle can be ended */
TEST(containers, namesThatCannotBeHad)
{
    testWrite("p.1.cli", "");
    makeBoxOf("box", { "p.1.crd", "EMPTY" });
    patch("box.C", "EMPTY", std::string(5, '\0'));
    checkFails("Unable to get the file name; index <", rdbNew("p", ".", nullptr, 0));
    makeBoxOf("other", { "p.1.crd", std::string(SYS_TEXT, 'n') });
    fs::rename("other.C", "box.C");
    checkFails("Unable to get the file name; index <0>", rdbNew("p", ".", nullptr, 0));
    makeBoxOf("other", { "p.1.crd" });
    fs::rename("other.C", "box.C");
    freeDb(openDb());
}

/* A listed file that is no file of ours */
TEST(containers, aFileWithoutData)
{
    testWrite("p.1.cli", "");
    makeHdf("box.C", { "QUENTA_DATA", "FILES", "FILES/p.1.crd" });
    rdbHd *hd = openDb();
    checkFails("Unable to access data node in file p.1.crd", rdbOpenReadFile(hd, "./p.1.crd", IOP_ASCII));
    freeDb(hd);
}

/* A read that is left by a jump leaves its file to the run */
TEST(containers, aDamagedFileIsClosedBeforeItsContainer)
{
    SmallRun run;
    run.form = tool::Form::container;
    run.write();
    run.writeCrd(2, -1, 3);
    double crd[15];
    for (bool rescan : { false, true }) {
        rdbHd *hd = SmallRun::open();
        int    flag = 0;
        checkFails("nCols  <3> error", rdbGetReals0(hd, "crd", crd, 3, 5));
        checkFails("data out of order",
                   iopCheckStr(rdbHoldFile(hd, rdbOpenReadFile(hd, "p.1.ddc", IOP_ASCII)), "time"));
        EXPECT_NE(hd->run->reading, nullptr);
        touch();
        if (rescan) checkAnswers(rdbUpdate(hd, &flag));
        EXPECT_EQ(flag, rescan);
        freeDb(hd);
    }
}

/* --------------------------------------------------------------------------------------------------- a later scan */

static std::vector<double> valuesOf(rdbHd *hd, int var, int step, int dim)
{
    std::vector<double> values((size_t) hd->run->nNodes * dim, -77.0);
    checkAnswers(rdbGetReals2(hd, "outValues", values.data(), var, step, dim, hd->run->nNodes));
    return values;
}

static std::vector<double> expected(const SmallRun &run, int step, int var)
{
    std::vector<double> values;
    for (int node = 0; node < run.nNodes(); ++node)
        for (int k = 0; k < run.vars[var].dim; ++k) values.push_back(SmallRun::value(step, var, node, k));
    return values;
}

static int nSteps(rdbHd *hd)
{
    int n = -1;
    checkAnswers(rdbGetInt0(hd, "nOutSteps", &n));
    return n;
}

/* The container is written into while its files are kept open: the directory does not tell, the container does */
TEST(containers, onesThatChangeAreReadAnew)
{
    for (bool merged : { false, true }) {
        SmallRun run;
        run.form = tool::Form::container;
        run.merged = merged;
        run.steps = { 5, 7 };
        run.write();
        fs::rename("p.1.C", "later");
        run.steps = { 5 };
        run.write();
        touch(merged ? 20 : 10);
        fs::last_write_time("p.1.C", fs::last_write_time("p.1.C") - std::chrono::seconds(100));
        rdbHd *hd = SmallRun::open();
        int    flag = -1;
        EXPECT_EQ(nSteps(hd), 1);
        EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 5, 1));
        EXPECT_EQ(valuesOf(hd, 2, 0, 1), expected(run, 5, 2));
        checkAnswers(rdbUpdate(hd, &flag));
        EXPECT_EQ(flag, 0);

        overwrite("p.1.C", "later");
        checkAnswers(rdbUpdate(hd, &flag));
        EXPECT_EQ(flag, 1);
        ASSERT_EQ(nSteps(hd), 2);
        for (int step : { 0, 1 })
            for (int var : { 1, 0 })
                EXPECT_EQ(valuesOf(hd, var, step, run.vars[var].dim), expected(run, step ? 7 : 5, var));
        checkAnswers(rdbUpdate(hd, &flag));
        EXPECT_EQ(flag, 0);

        fs::remove("p.1.C");                               /* gone with all that was in it */
        touch(merged ? 22 : 12);
        checkAnswers(rdbUpdate(hd, &flag));
        EXPECT_EQ(flag, 1);
        EXPECT_EQ(hd->nContainers, 0);
        EXPECT_EQ(nSteps(hd), 0);
        freeDb(hd);
    }
}

/* The same, but damaged when it is looked at: nothing is answered from what was there before, until it is whole */
TEST(containers, onesThatAreBeingWritten)
{
    SmallRun run;
    run.form = tool::Form::container;
    run.write();
    testWrite("whole", testRead("p.1.C"));
    rdbHd *hd = SmallRun::open();
    int    flag = 0;
    EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 5, 1));
    testWrite("half", testRead("whole").substr(0, 1000));
    overwrite("p.1.C", "half");
    for (int i = 0; i < 2; ++i) checkFails("Unable to open HDF5 file ./p.1.C", rdbUpdate(hd, &flag));
    double values[5];
    checkRefused(".out file not found", rdbGetReals2(hd, "outValues", values, 1, 0, 1, 5));
    overwrite("p.1.C", "whole");
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 5, 1));
    freeDb(hd);
}

/* The same with all that a run can keep from a container, whatever is wrong with it at that moment and whatever the
   client does then: asks on, closes the run, opens it, or ends the handle. */
TEST(containers, onesThatAreBeingWrittenWhileTheRunHoldsAll)
{
    tool::RunSpec spec;
    spec.problem = "p";
    spec.dataDir = ".";
    spec.form = tool::Form::container;
    spec.nx = 2;
    spec.ny = spec.nz = 1;
    spec.nSds = 2;
    spec.top = true;
    spec.setSteps(2, 3, 2);
    spec.families = { { "ora", 7 } };
    spec.setFamilies = { { "osf", 3 } };
    tool::writeRun(spec);
    const std::string whole = testRead("p.1.C");
    testWrite("whole", whole);
    rdbHd *hd = SmallRun::open();
    Answers first(hd), right(hd);
    const int nFiles = nOpenFiles();
    int nFailed = 0;
    for (int i = 0; i < 24; ++i) {
        SCOPED_TRACE(i);
        const size_t at = whole.size() * (size_t) (i / 4) / 6;
        std::string  bytes = whole;
        if (i % 2) bytes.resize(at);
        else bytes.replace(at, 600, std::string(600, '\0'));
        testWrite("torn", bytes);
        overwrite("p.1.C", "torn");
        int flag = 0;
        nFailed += !trapped([&] { rdbUpdate(hd, &flag); }).empty();
        if (i % 4 != 1) Answers(hd, 1);
        if (i % 4 == 1) { checkAnswers(rdbCloseRun(hd)); }
        if (i % 4 == 2) trapped([&] { rdbOpenRun(hd, 1); });
        if (i % 4 == 3) freeDb(hd), hd = nullptr;
        overwrite("p.1.C", "whole");
        fs::last_write_time("p.1.C", fs::last_write_time("p.1.C") - std::chrono::seconds(i));
        if (!hd) hd = SmallRun::open();
        checkAnswers(rdbUpdate(hd, &flag));
        checkAnswers(rdbOpenRun(hd, 1));
        Answers again(hd), last(hd);
        EXPECT_TRUE(last.found == right.found);
        EXPECT_EQ(nOpenFiles(), nFiles);
    }
    EXPECT_GT(nFailed, 10);
    freeDb(hd);
}

/* Files of a step stay open between two requests, in a container as on the disk */
TEST(containers, filesAreKeptOpenBetweenRequests)
{
    SmallRun run;
    run.form = tool::Form::container;
    run.write();
    fs::last_write_time("p.1.C", fs::last_write_time("p.1.C") - std::chrono::seconds(100));
    rdbHd *hd = SmallRun::open();
    const ssize_t before = nIds();
    EXPECT_EQ(valuesOf(hd, 0, 0, 3), expected(run, 5, 0));
    EXPECT_EQ(nIds(), before + 2);                         /* a group for each part */
    EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 5, 1));
    EXPECT_EQ(nIds(), before + 2);
    checkAnswers(rdbCloseRun(hd));
    EXPECT_EQ(nIds(), before);
    freeDb(hd);
}

TEST(containers, manyScansLeaveNothingOpen)
{
    SmallRun run;
    run.form = tool::Form::container;
    run.write();
    rdbHd *hd = SmallRun::open();
    const int     files = nOpenFiles();
    const ssize_t ids = nIds();
    for (int i = 1; i <= 20; ++i) {
        int flag = 0;
        EXPECT_EQ(valuesOf(hd, 1, 0, 1), expected(run, 5, 1));
        touch(2 * i);
        checkAnswers(rdbUpdate(hd, &flag));
        EXPECT_EQ(flag, 1);
        EXPECT_EQ(nOpenFiles(), files);
        EXPECT_EQ(nIds(), ids);
    }
    freeDb(hd);
}

/* The event table of a run grows with its container */
TEST(containers, aWatchedFileIsAsNewAsItsContainer)
{
    testWrite("p.1.cli", "");
    makeBoxOf("box", { "p.1.top" });
    fs::last_write_time("box.C", fs::last_write_time("box.C") - std::chrono::seconds(1000));
    rdbHd *hd = openDb();
    int    flag = 0;
    checkAnswers(rdbOpenRun(hd, 1));
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(flag, 1);                                    /* the first update after the open */
    checkAnswers(rdbUpdate(hd, &flag));
    EXPECT_EQ(flag, 0);
    freeDb(hd);
}
