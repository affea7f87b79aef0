/* testIopHdfContainer.cpp: HDF5 files that hold files, what is written to HDF5, rows of tables, and what is said when a
 * call of HDF5 fails. */

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <climits>
#include <cstring>

#include "test/iop/hdfStream.h"

struct iopHdfContainer : HdfTest {};
struct iopHdfWrite : HdfTest {};
struct iopHdfRows : HdfTest {};
struct iopHdfCalls : HdfTest {};

static void putInt(iopHd *hd, int value)
{
    iopPutIntF(hd, &value, 1, 1, 0);
}

static int getInt(iopHd *hd)
{
    int value;
    iopGetIntF(hd, &value, 1);
    return value;
}

/* Writes a file of one integer into the container. */
static void putMember(iopHd *container, const char *name, int value, int opt = IOP_WRITE)
{
    iopHd *hd = iopOpenHdfFile(container, name, opt);
    putInt(hd, value);
    iopCloseFile(hd);
}

/* ---- containers ---- */

TEST_F(iopHdfContainer, namesInOrder)
{
    Stream("all.C", "wall").s("a");
    Stream("all.C", "10").s("b");
    Stream("all.C", "inlet").s("c");
    Stream("all.C", "9").s("d");
    iopHd *all = openHdf("all.C");
    char text[SYS_TEXT];
    ASSERT_EQ(iopGetNHdfFiles(all), 4);
    int i = 0;
    for (const char *name : { "10", "9", "inlet", "wall" }) {
        iopGetHdfFileName(all, text, i++);
        EXPECT_STREQ(text, name);
    }
    for (int index : { -1, 4, INT_MAX })
        checkFails("Unable to get the file name; index <" + std::to_string(index) +
                   ">; in hdf-container file <all> token <0> near <__NONE__>", iopGetHdfFileName(all, text, index));
    iopCloseFile(all);
}

TEST_F(iopHdfContainer, filesAreReadThroughIt)
{
    Stream("all.C", "wall").s("name").s("wall");
    Stream("all.C", "inlet").s("name").s("inlet");
    iopHd *all = openHdf("all.C");
    char text[SYS_TEXT];
    iopHd *wall = iopOpenHdfFile(all, "some/where/wall", IOP_READ);
    iopHd *inlet = iopOpenHdfFile(all, "inlet.H", IOP_READ | IOP_HDF);      /* the suffix is no part of the name */
    iopGetKeyStr(inlet, "name", text);
    EXPECT_STREQ(text, "inlet");
    iopCloseFile(inlet);
    iopGetKeyStr(wall, "name", text);
    EXPECT_STREQ(text, "wall");
    EXPECT_EQ(iopGetIfStr(wall, text), 0);
    EXPECT_STREQ(iopFileInfo(wall), "in hdf file <wall> token <2> near <wall>");
    EXPECT_EQ(iopGetIfStr(all, text), 0);                                   /* the container's own stream */
    iopCloseFile(wall);
    iopCloseFile(all);
}

TEST_F(iopHdfContainer, isRefused)
{
    Stream("a.H").s("a");
    Stream("all.C", "wall").s("a");
    char text[SYS_TEXT];
    const std::string tooLong(SYS_NAME, 'x');
    iopHd *plain = openHdf("a.H"), *all = openHdf("all.C");
    const char *info = "in hdf file <a> token <0> near <__NONE__>";
    checkFails(std::string("Invalid container <") + info + ">", iopGetNHdfFiles(plain));
    checkFails(std::string("Invalid container <") + info + ">", iopGetHdfFileName(plain, text, 0));
    checkFails(std::string("Invalid container <") + info + "> for file <x/wall>",
               iopOpenHdfFile(plain, "x/wall", IOP_READ));
    checkFails("Container and file read/write options are incompatible: all.C and wall",
               iopOpenHdfFile(all, "wall", IOP_WRITE));
    checkFails("file <wall> must be ascii, binary, compressed or hdf: opt <", iopOpenHdfFile(all, "wall",
               IOP_READ | IOP_ASCII));
    checkFails("fileName is too long <", iopOpenHdfFile(all, tooLong.c_str(), IOP_READ));
    for (const char *name : { "none", "", ".", ".." })
        checkFails(std::string("Unable to access file ") + name + " in container all.C",
                   iopOpenHdfFile(all, name, IOP_READ));
    iopCloseFile(all);
    iopCloseFile(plain);
}

/* A container is opened to read although writing was asked for too: then nothing can be written into it */
TEST_F(iopHdfContainer, readWinsOverWrite)
{
    Stream("all.C", "wall").i({ 5 });
    iopHd *all = openHdf("all.C", IOP_READ | IOP_WRITE);
    iopHd *wall = iopOpenHdfFile(all, "wall", IOP_READ | IOP_WRITE | IOP_APPEND);
    EXPECT_EQ(getInt(wall), 5);
    checkFails("Unable to create data set for <1>; in hdf file <wall>", putInt(wall, 6));
    iopCloseFile(wall);
    checkFails("Unable to create file wall in container all.C", iopOpenHdfFile(all, "wall", IOP_WRITE));
    checkFails("Unable to access file new in container all.C", iopOpenHdfFile(all, "new", IOP_WRITE | IOP_APPEND));
    iopCloseFile(all);
    all = openHdf("all.C");
    wall = iopOpenHdfFile(all, "wall", IOP_READ);
    EXPECT_EQ(getInt(wall), 5);
    iopCloseFile(wall);
    iopCloseFile(all);
}

TEST_F(iopHdfContainer, namesOfAllLengths)
{
    const std::string longest(SYS_NAME - 1, 'n'), cut = longest.substr(0, SYS_NAME - 3) + ".Z";
    const std::string path = std::string(3000, 'd') + "/" + longest, tooLong = longest + "n";
    char text[SYS_TEXT];
    iopHd *all = openHdf("all.C", IOP_WRITE);
    putMember(all, "a", 1);
    putMember(all, path.c_str(), 2);
    putMember(all, cut.c_str(), 3);                                         /* stored without its suffix */
    iopCloseFile(all);
    all = openHdf("all.C");
    iopGetHdfFileName(all, text, 2);
    EXPECT_EQ(text, longest);
    iopGetHdfFileName(all, text, 1);
    EXPECT_EQ(text, longest.substr(0, SYS_NAME - 3));
    int value = 1;
    for (const std::string &name : { std::string("x/a"), path, cut }) {
        iopHd *hd = iopOpenHdfFile(all, name.c_str(), IOP_READ | IOP_DELETE);
        EXPECT_EQ(getInt(hd), value++);
        iopCloseFile(hd);                                                   /* and it is not removed */
        checkFails("file <", iopCloseFile(hd));
    }
    EXPECT_EQ(iopGetNHdfFiles(all), 3);
    checkFails("fileName is too long <" + tooLong + ">", iopOpenHdfFile(all, tooLong.c_str(), IOP_READ));
    iopCloseFile(all);
}

/* The options of an open count for a file of a container too */
TEST_F(iopHdfContainer, longWait)
{
    waits = 60;
    Stream("all.C", "wall").i({ 5 });
    iopHd *all = openHdf("all.C"), *wall = iopOpenHdfFile(all, "wall", IOP_READ | IOP_LONG_WAIT);
    checkFails("EOF in hdf file <wall>", iopNeed(wall, INT_MAX, 'r'));
    iopCloseFile(wall);
    iopCloseFile(all);
}

TEST_F(iopHdfContainer, needsItsGroups)
{
    {
        Stream a("a.C");                                                    /* no FILES, and none can be made */
    }
    checkFails("Unable to access FILES in file a.C", openHdf("a.C"));
    H5Fclose(H5Fcreate("b.C", H5F_ACC_TRUNC, 0, 0));
    H5Fclose(H5Fcreate("b.H", H5F_ACC_TRUNC, 0, 0));
    checkFails("Unable to access data node in file b.C", openHdf("b.C"));
    checkFails("Unable to access data node in file b.H", openHdf("b.H"));
    {
        Stream c("c.C", "wall");
        H5Ldelete(c.root, "QUENTA_DATA", 0);
    }
    iopHd *all = openHdf("c.C");
    checkFails("Unable to access data node in file wall", iopOpenHdfFile(all, "wall", IOP_READ));
    iopCloseFile(all);
}

TEST_F(iopHdfContainer, followsNoLinkToAnotherFile)
{
    Stream("other.C", "secret").i({ 1 });
    {
        Stream all("all.C", "wall");
        H5Lcreate_external("other.C", "/FILES/secret", all.file, "/FILES/secret", 0, 0);
        H5Lcreate_soft("/FILES/secret", all.file, "/FILES/soft", 0, 0);
    }
    iopHd *all = openHdf("all.C", IOP_READ);
    checkFails("Unable to access file secret in container all.C", iopOpenHdfFile(all, "secret", IOP_READ));
    checkFails("Unable to access file soft in container all.C", iopOpenHdfFile(all, "soft", IOP_READ));
    iopCloseFile(all);
}

TEST_F(iopHdfContainer, isWrittenAndReadBack)
{
    iopHd *all = openHdf("all.C", IOP_WRITE);
    putInt(all, 1);
    putMember(all, "a/b/wall", 2);
    putMember(all, "inlet.H", 3);
    iopHd *wall = iopOpenHdfFile(all, "wall", IOP_READ);            /* while it is open for writing */
    EXPECT_EQ(getInt(wall), 2);
    iopCloseFile(wall);
    checkFails("file <all> is not for reading", getInt(all));
    iopCloseFile(all);

    const hid_t file = H5Fopen("all.C", H5F_ACC_RDONLY, 0);
    for (const char *path : { "/QUENTA_DATA/0", "/FILES/wall/QUENTA_DATA/0", "/FILES/inlet/QUENTA_DATA/0" }) {
        const hid_t set = H5Dopen2(file, path, 0);
        EXPECT_GE(set, 0) << path;
        H5Dclose(set);
    }
    H5Fclose(file);
    all = openHdf("all.C");
    EXPECT_EQ(iopGetNHdfFiles(all), 2);
    EXPECT_EQ(getInt(all), 1);
    iopCloseFile(all);
}

TEST_F(iopHdfContainer, aFileWrittenAgainIsReplaced)
{
    iopHd *all = openHdf("all.C", IOP_WRITE);
    iopHd *wall = iopOpenHdfFile(all, "wall", IOP_WRITE);
    for (int i = 0; i < 3; ++i) putInt(wall, i);
    iopCloseFile(wall);
    putMember(all, "wall", 7);
    EXPECT_EQ(iopGetNHdfFiles(all), 1);
    wall = iopOpenHdfFile(all, "wall", IOP_READ);
    EXPECT_EQ(getInt(wall), 7);
    checkFails("Unable to open data set for <1>; in hdf file <wall> token <1> near <__NONE__>", getInt(wall));
    iopCloseFile(wall);
    iopCloseFile(all);
}

TEST_F(iopHdfContainer, whatIsAppendedGoesBehindTheHighestNumber)
{
    static const struct { Ints numbers; std::vector<const char *> others; int next; } rows[] = {
        { {},           {},                          0 },
        { { 0 },        {},                          1 },
        { { 0, 7 },     { "notes", "12x", "-9", "" }, 8 },
        { { 9, 10 },    { "99999999999" },           11 },
    };
    for (const auto &row : rows) {
        iopHd *all = openHdf("all.C", IOP_WRITE);
        iopHd *wall = iopOpenHdfFile(all, "wall", IOP_WRITE | IOP_APPEND);
        for (int number : row.numbers) {
            iopSetLoc(wall, (int64_t) number << 12 | 0x58d);
            putInt(wall, number);
        }
        const hid_t space = H5Screate(H5S_SCALAR);
        for (const char *name : row.others) H5Dclose(H5Dcreate2(wall->hdfData, name, H5T_NATIVE_INT, space, 0, 0, 0));
        H5Sclose(space);
        H5Gclose(H5Gcreate2(wall->hdfData, "20", 0, 0, 0));         /* no data set */
        iopCloseFile(wall);
        wall = iopOpenHdfFile(all, "wall", IOP_WRITE | IOP_APPEND);
        EXPECT_EQ(iopGetLoc(wall), (int64_t) row.next << 12 | 0x58d);
        putInt(wall, 4711);
        EXPECT_EQ(iopGetLoc(wall), (int64_t) (row.next + 1) << 12 | 0x58d);
        iopCloseFile(wall);
        wall = iopOpenHdfFile(all, "wall", IOP_READ);
        iopSetLoc(wall, (int64_t) row.next << 12 | 0x58d);
        EXPECT_EQ(getInt(wall), 4711);
        iopCloseFile(wall);
        iopCloseFile(all);
    }
}

TEST_F(iopHdfContainer, theHighestNumberOfAllLeavesNoRoom)
{
    iopHd *all = openHdf("all.C", IOP_WRITE);
    iopHd *wall = iopOpenHdfFile(all, "wall", IOP_WRITE);
    iopSetLoc(wall, (int64_t) INT_MAX << 12 | 0x58d);
    putInt(wall, 1);
    iopCloseFile(wall);
    wall = iopOpenHdfFile(all, "wall", IOP_WRITE | IOP_APPEND);
    checkFails("Unable to create data set for <2147483647>; in hdf file <wall> token <0> near ", putInt(wall, 2));
    iopCloseFile(wall);
    iopCloseFile(all);
}

TEST_F(iopHdfContainer, mayBeClosedBeforeItsFiles)
{
    iopHd *all = openHdf("all.C", IOP_WRITE);
    iopHd *wall = iopOpenHdfFile(all, "wall", IOP_WRITE);
    putInt(wall, 5);
    iopCloseFile(all);
    checkFails("Unable to create data set for <1>; ", putInt(wall, 6));
    iopCloseFile(wall);

    char text[SYS_TEXT];
    all = openHdf("all.C");
    wall = iopOpenHdfFile(all, "wall", IOP_READ);
    iopCloseFile(all);
    checkFails("Unable to open data set for <0>; ", getInt(wall));
    iopRewind(wall);
    checkFails("Unable to open data set for <0>; ", iopGetIfStr(wall, text));
    iopCloseFile(wall);

    all = openHdf("all.C");
    wall = iopOpenHdfFile(all, "wall", IOP_READ);
    EXPECT_EQ(getInt(wall), 5);
    iopCloseFile(wall);
    iopCloseFile(all);
}

/* ---- containers that are written while they are read ---- */

/* A container whose files hold these values, over what is there: the same file on the disk, with other bytes. old: so
   long ago that its times tell the next change. */
static void writeBox(const std::vector<std::pair<const char *, int>> &members, bool old)
{
    remove("new.C");
    for (const auto &member : members) Stream("new.C", member.first).i({ member.second });
    testWrite("box.C", testRead("new.C"));
    const struct timespec times[2] = { { 1000000000 + (time_t) members.size(), 1 }, { 1000000000, 1 } };
    if (old) utimensat(AT_FDCWD, "box.C", times, 0);
}

static int readMember(iopHd *box, const char *name)
{
    iopHd *hd = iopOpenHdfFile(box, name, IOP_READ);
    const int value = getInt(hd);
    iopCloseFile(hd);
    return value;
}

TEST_F(iopHdfContainer, thatChangedIsOpenedAnew)
{
    for (bool old : { true, false }) {
        writeBox({ { "a", 1 }, { "b", 2 } }, old);
        iopHd *box = openHdf("box.C");
        iopHd *a = iopOpenHdfFile(box, "a", IOP_READ);
        EXPECT_EQ(readMember(box, "b"), 2);
        writeBox({ { "a", 3 }, { "b", 4 }, { "c", 5 } }, old);
        EXPECT_EQ(readMember(box, "c"), 5);
        EXPECT_EQ(readMember(box, "b"), 4);
        EXPECT_EQ(iopGetNHdfFiles(box), 3);
        checkFails("Unable to open data set for <0>; in hdf file <a> token <0>", getInt(a));
        iopCloseFile(a);
        a = iopOpenHdfFile(box, "a", IOP_READ);
        EXPECT_EQ(getInt(a), 3);
        iopCloseFile(a);
        iopCloseFile(box);
    }
}

TEST_F(iopHdfContainer, thatWasReplacedIsOpenedAnew)
{
    writeBox({ { "a", 1 } }, true);
    iopHd *box = openHdf("box.C");
    EXPECT_EQ(readMember(box, "a"), 1);
    rename("box.C", "old.C");
    EXPECT_EQ(readMember(box, "a"), 1);                     /* removed, it is still what we have open */
    writeBox({ { "a", 2 } }, true);
    EXPECT_EQ(readMember(box, "a"), 2);
    iopCloseFile(box);
}

TEST_F(iopHdfContainer, thatIsDamagedForAWhileIsOpenedAgain)
{
    char text[SYS_TEXT];
    writeBox({ { "a", 1 } }, true);
    iopHd *box = openHdf("box.C");
    iopHd *a = iopOpenHdfFile(box, "a", IOP_READ);
    const std::string head = testRead("box.C").substr(0, 700);
    for (const std::string &damaged : { head, std::string("no HDF5 at all"), std::string() }) {
        testWrite("box.C", damaged);
        checkFails("Unable to open HDF5 file box.C", iopOpenHdfFile(box, "a", IOP_READ));
        checkFails("in hdf-container file <box>", iopGetNHdfFiles(box));
        checkFails("Unable to get the file name; index <0>; ", iopGetHdfFileName(box, text, 0));
    }
    Stream("none.H").i({ 1 });
    testWrite("box.C", testRead("none.H"));
    checkFails("Unable to access FILES in file box.C", iopOpenHdfFile(box, "a", IOP_READ));
    iopCloseFile(a);
    testWhenSleeping([] { writeBox({ { "a", 2 } }, true); });
    EXPECT_EQ(readMember(box, "a"), 2);
    EXPECT_EQ(iopGetNHdfFiles(box), 1);
    iopCloseFile(box);
    waits = 4 * 2 + 1;
}

/* One that is younger than its times can tell is opened anew with each file, but not from under a reader. */
TEST_F(iopHdfContainer, thatIsYoungIsOpenedAnewWhenNobodyReads)
{
    for (bool old : { true, false }) {
        writeBox({ { "a", 1 }, { "b", 2 } }, old);
        iopHd *box = openHdf("box.C");
        const int64_t before = box->hdfFile;
        iopHd *a = iopOpenHdfFile(box, "a", IOP_READ);
        const int64_t opened = box->hdfFile;
        EXPECT_EQ(opened == before, old);
        EXPECT_EQ(readMember(box, "b"), 2);
        EXPECT_EQ(box->hdfFile, opened);
        EXPECT_EQ(getInt(a), 1);
        iopCloseFile(a);
        iopCloseFile(box);
    }
}

/* HDF5 would give zeros for what is no longer there. */
TEST_F(iopHdfContainer, filesThatAreCutWhileTheyAreReadAreNotFilledUp)
{
    static double values[4000];
    char text[SYS_TEXT];
    const struct { const char *file, *member; } rows[] = { { "cut.H", nullptr }, { "cut.C", "a" } };
    for (const auto &row : rows) {
        remove(row.file);
        const Reals reals(4000, 0.5);
        const std::string word(3000, 'x');
        if (row.member) Stream(row.file, row.member).r(reals, { 4000, 1 }).s(word).i({ 5 });
        else Stream(row.file).r(reals, { 4000, 1 }).s(word).i({ 5 });
        iopHd *box = openHdf(row.file), *hd = row.member ? iopOpenHdfFile(box, row.member, IOP_READ) : box;
        iopGetRealF(hd, values, 4000);
        EXPECT_EQ(values[3999], 0.5);
        iopGetStrF(hd, text);
        EXPECT_EQ(text, word);
        EXPECT_EQ(getInt(hd), 5);
        iopRewind(hd);
        EXPECT_EQ(truncate(row.file, (off_t) iopFileSize(row.file) / 3), 0);
        checkFails("Unable to read data set for <0>; ", iopGetRealF(hd, values, 4000));
        checkFails("Unable to read data set for <1>; ", iopGetStrF(hd, text));
        checkFails("Unable to read data set for <2>; ", getInt(hd));
        iopCloseFile(hd);
        if (row.member) iopCloseFile(box);
    }
}

/* HDF5 opens a file once for all: whoever has it open as it was must not be what others see. */
TEST_F(iopHdfContainer, handlesDoNotKeepAnOldStateForOthers)
{
    writeBox({ { "a", 1 } }, true);
    iopHd *first = openHdf("box.C"), *same = openHdf("box.C");
    iopHd *a = iopOpenHdfFile(first, "a", IOP_READ);
    writeBox({ { "a", 2 }, { "b", 3 } }, true);
    iopHd *second = openHdf("box.C");
    EXPECT_EQ(readMember(second, "b"), 3);
    EXPECT_EQ(readMember(second, "a"), 2);
    checkFails("Unable to open data set for <0>; ", getInt(a));
    iopCloseFile(a);
    for (iopHd *box : { first, same }) {
        EXPECT_EQ(readMember(box, "b"), 3);
        EXPECT_EQ(readMember(box, "a"), 2);
    }
    for (iopHd *box : { first, second, same }) iopCloseFile(box);

    Stream("x.H").i({ 7 });
    testWrite("y.H", testRead("x.H"));
    iopHd *old = openHdf("y.H");
    Stream("x.H").i({ 8 }).i({ 9 });
    testWrite("y.H", testRead("x.H"));
    iopHd *now = openHdf("y.H");
    EXPECT_EQ(getInt(now), 8);
    EXPECT_EQ(getInt(now), 9);
    checkFails("Unable to open data set for <0>; ", getInt(old));
    iopCloseFile(old);
    iopCloseFile(now);
}

/* ---- files ---- */

TEST_F(iopHdfWrite, handlesOfOneFileDoNotDisturbEachOther)
{
    Stream("a.H").i({ 1 }).i({ 2 });
    iopHd *first = openHdf("a.H"), *second = openHdf("a.H");
    EXPECT_EQ(getInt(first), 1);
    iopCloseFile(first);
    EXPECT_EQ(getInt(second), 1);
    EXPECT_EQ(getInt(second), 2);
    iopCloseFile(second);
    EXPECT_EQ(H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_ALL), 0);
}

TEST_F(iopHdfWrite, appendingToAPlainFileWritesItAnew)
{
    for (int value : { 1, 2 }) {
        iopHd *hd = openHdf("a.H", IOP_WRITE | IOP_APPEND | IOP_DELETE);
        putInt(hd, value);
        iopCloseFile(hd);                       /* and it is not removed */
    }
    iopHd *hd = openHdf("a.H", IOP_READ | IOP_DELETE);
    EXPECT_EQ(getInt(hd), 2);
    checkFails("Unable to open data set for <1>; ", getInt(hd));
    iopCloseFile(hd);
    EXPECT_EQ(iopCheckFile("a", IOP_HDF), 1);
    iopCloseFile(openHdf("a.C", IOP_WRITE | IOP_DELETE));
    EXPECT_EQ(iopCheckFile("a", IOP_HDF_CONTAINER), 1);
}

/* The extents of the data sets are those that were given, in their order. */
TEST_F(iopHdfWrite, integers)
{
    int table[] = { 1, 2, 3, 4, 5, 6 };
    iopHd *hd = openHdf("a.H", IOP_WRITE);
    iopPutIntF(hd, table, 3, 2, 1);
    iopPutIntF(hd, table, 0, 2, 1);             /* nothing */
    iopPutIntF(hd, table, 2, 0, 1);
    iopPutBinInts(hd, table, 0);
    iopPutBinInts(hd, table, 5);
    EXPECT_EQ(iopGetTokens(hd), 11);
    EXPECT_EQ(iopGetLoc(hd), 2 << 12 | 0x58d);
    iopCloseFile(hd);

    static const struct { const char *path; hsize_t n1, n2; } rows[] = {
        { "/QUENTA_DATA/0", 3, 2 },
        { "/QUENTA_DATA/1", 5, 1 },
    };
    const hid_t file = H5Fopen("a.H", H5F_ACC_RDONLY, 0);
    for (const auto &row : rows) {
        int found[6];
        hsize_t dims[2] = { 0, 0 };
        const hid_t set = H5Dopen2(file, row.path, 0), space = H5Dget_space(set), type = H5Dget_type(set);
        EXPECT_EQ(H5Sget_simple_extent_ndims(space), 2);
        H5Sget_simple_extent_dims(space, dims, nullptr);
        EXPECT_EQ(dims[0], row.n1);
        EXPECT_EQ(dims[1], row.n2);
        EXPECT_GT(H5Tequal(type, H5T_NATIVE_INT), 0);
        EXPECT_GE(H5Dread(set, H5T_NATIVE_INT, 0, 0, 0, found), 0);
        EXPECT_EQ(memcmp(found, table, row.n1 * row.n2 * sizeof(int)), 0);
        H5Tclose(type);
        H5Sclose(space);
        H5Dclose(set);
    }
    H5Fclose(file);
    hd = openHdf("a.H");
    int back[6];
    iopGetIntF(hd, back, 6);
    EXPECT_EQ(memcmp(back, table, sizeof table), 0);
    iopCloseFile(hd);
}

TEST_F(iopHdfWrite, aDataSetIsNotWrittenTwice)
{
    iopHd *hd = openHdf("a.H", IOP_WRITE);
    putInt(hd, 1);
    iopRewind(hd);
    checkFails("Unable to create data set for <0>; in hdf file <a> token <0> near <__NONE__>", putInt(hd, 2));
    iopCloseFile(hd);
    checkFails("Unable to open HDF5 file no/a.H", openHdf("no/a.H", IOP_WRITE));
}

TEST_F(iopHdfWrite, locksDoNotMatterAndNoneAreSet)
{
    Stream("a.H").i({ 3 });
    const int writer = open("a.H", O_RDWR), other = open("a.H", O_RDWR);
    ASSERT_EQ(flock(writer, LOCK_EX | LOCK_NB), 0);
    iopHd *hd = openHdf("a.H");
    EXPECT_EQ(getInt(hd), 3);
    flock(writer, LOCK_UN);
    EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
    iopCloseFile(hd);
    close(writer);
    close(other);
}

/* ---- rows of tables ---- */

/* The kinds of data sets that a table of m rows of n may be. */
struct Table { const char *name; Dims dims; Dims chunk; bool packed; hid_t type; };

static std::vector<Table> tables(hsize_t n, hsize_t m)
{
    return { { "rows",            { m, n },    {},           false, H5T_NATIVE_DOUBLE },
             { "one extent",      { m * n },   {},           false, H5T_IEEE_F64BE    },
             { "one column",      { m * n, 1 }, {},          false, H5T_NATIVE_FLOAT  },
             { "three extents",   { m, 1, n }, {},           false, H5T_NATIVE_DOUBLE },
             { "the other order", { n, m },    {},           false, H5T_NATIVE_DOUBLE },
             { "one row",         { 1, m * n }, {},          false, H5T_NATIVE_DOUBLE },
             { "chunks",          { m, n },    { m / 2 + 1, n }, false, H5T_NATIVE_DOUBLE },
             { "packed",          { m, n },    { m, n / 2 + 1 }, true,  H5T_NATIVE_DOUBLE } };
}

static void writeTable(const Table &t, int n, int m, const Reals &values)
{
    hid_t how = 0;
    if (!t.chunk.empty()) {
        how = H5Pcreate(H5P_DATASET_CREATE);
        H5Pset_chunk(how, (int) t.chunk.size(), t.chunk.data());
        if (t.packed) H5Pset_deflate(how, 1);
    }
    Stream("a.H").table("v", n, m).r(values, t.dims, t.type, how).s("end");
    if (how) H5Pclose(how);
}

TEST_F(iopHdfRows, goWhereTheIndexTells)
{
    static const struct { int n, m; } sizes[] = { { 1, 4 }, { 3, 5 }, { 6, 2 }, { 3, 100000 }, { 140000, 3 } };
    for (const auto &size : sizes) {
        const int n = size.n, m = size.m;
        Reals values((size_t) n * m), dest(values.size()), wanted(values.size()), sum(values.size(), 0.5);
        Ints back((size_t) m), twice((size_t) m);
        for (size_t k = 0; k < values.size(); ++k) values[k] = (double) (k % 65536);
        for (int i = 0; i < m; ++i) {
            back[(size_t) i] = m - 1 - i;
            twice[(size_t) i] = i % 2;
            std::copy_n(&values[(size_t) i * n], n, &wanted[(size_t) (m - 1 - i) * n]);
        }
        Reals wantedSum(sum);
        for (int i = 0; i < m; ++i)
            for (int k = 0; k < n; ++k) wantedSum[(size_t) (i % 2) * n + k] += values[(size_t) i * n + k];
        for (const Table &t : tables((hsize_t) n, (hsize_t) m)) {
            const testing::ScopedTrace trace(__FILE__, __LINE__, std::string(t.name) + ", " + std::to_string(m));
            writeTable(t, n, m, values);
            iopHd *hd = openHdf("a.H");
            iopGetRealsIndexed(hd, "v", n, m, nullptr, dest.data());
            EXPECT_TRUE(dest == values);
            iopCheckStr(hd, "end");
            iopRewind(hd);
            iopGetRealsIndexed(hd, "v", n, m, back.data(), dest.data());
            EXPECT_TRUE(dest == wanted);
            iopCheckStr(hd, "end");
            iopRewind(hd);
            Reals added(sum);
            iopAddRealsIndexed(hd, "v", n, m, twice.data(), added.data());
            EXPECT_TRUE(added == wantedSum);
            iopCheckStr(hd, "end");
            EXPECT_EQ(iopGetTokens(hd), 3 + n * m + 1);
            iopCloseFile(hd);
        }
    }
}

TEST_F(iopHdfRows, emptyTableTakesNoDataSet)
{
    Stream("a.H").table("v", 3, 0).table("w", 0, 3).s("end");
    iopHd *hd = openHdf("a.H");
    const int idx[] = { 0, 1, 2 };
    iopGetRealsIndexed(hd, "v", 3, 0, idx, nullptr);
    iopAddRealsIndexed(hd, "w", 0, 3, idx, nullptr);
    iopCheckStr(hd, "end");
    iopCloseFile(hd);
}

TEST_F(iopHdfRows, ofAnotherSizeAreRefused)
{
    Stream("a.H").table("v", 2, 3).r({ 1, 2, 3, 4 }, { 2, 2 });
    iopHd *hd = openHdf("a.H");
    const int idx[] = { 2, 1, 0 };
    double dest[6];
    checkFails("Inconsistent size <4> vs. <6> for <3>; in hdf file <a> token <3> near <v>",
               iopGetRealsIndexed(hd, "v", 2, 3, idx, dest));
    iopCloseFile(hd);
    hd = openHdf("b.H", IOP_WRITE);
    checkFails("file <b> is not for reading", iopAddRealsIndexed(hd, "v", 2, 3, idx, dest));
    iopCloseFile(hd);
}

/* ---- calls that fail ---- */

TEST_F(iopHdfCalls, whenOpening)
{
    Stream("a.H").s("a");
    Stream("a.C", "wall").s("a");
    static const struct { const char *call; int times; const char *text; } rows[] = {
        { "H5open",               0, "Unable to set property; file "        },
        { "H5Pcreate",            0, "Unable to set property; file "        },
        { "H5Pset_fclose_degree", 0, "Error setting properties; file "      },
        { "H5Gopen2",             0, "Unable to access root; file "         },
        { "H5Gopen2",             1, "Unable to access data node in file "  },
    };
    for (const char *name : { "a.H", "a.C" })
        for (const auto &row : rows) checkCall(row.call, row.times, row.text + std::string(name), openHdf(name));
    checkCall("H5Gopen2", 2, "Unable to access FILES in file a.C", openHdf("a.C"));
    checkCall("H5Gcreate2", 0, "Unable to access data node in file b.H", openHdf("b.H", IOP_WRITE));
    checkCall("H5Gcreate2", 1, "Unable to access FILES in file b.C", openHdf("b.C", IOP_WRITE));
}

TEST_F(iopHdfCalls, inAContainer)
{
    iopHd *all = openHdf("all.C", IOP_WRITE);
    putMember(all, "wall", 1);
    checkCall("H5Gcreate2", 0, "Unable to create file wall in container all.C", iopOpenHdfFile(all, "wall", IOP_WRITE));
    checkCall("H5Gcreate2", 1, "Unable to access data node in file wall", iopOpenHdfFile(all, "wall", IOP_WRITE));
    putMember(all, "wall", 1);
    const int append = IOP_WRITE | IOP_APPEND;
    checkCall("H5Gcreate2", 0, "Unable to access file new in container all.C", iopOpenHdfFile(all, "new", append));
    checkCall("H5Gcreate2", 1, "Unable to access data node in file new", iopOpenHdfFile(all, "new", append));
    checkCall("H5Gget_info", 0, "Unable to get the number of objects; file wall", iopOpenHdfFile(all, "wall", append));
    checkCall("H5Lget_name_by_idx", 0, "Unable to get the object name; index <0>; file wall",
              iopOpenHdfFile(all, "wall", append));
    checkCall("H5Gget_info", 0, "Unable to get the number of objects: in hdf-container file <all> token <0> near ",
              iopGetNHdfFiles(all));
    iopCloseFile(all);
}

TEST_F(iopHdfCalls, whenReading)
{
    Stream("a.H").s("key").i({ 2 }).i({ 3 }).r({ 1, 2, 3, 4, 5, 6 }, { 3, 2 });
    const int idx[] = { 2, 1, 0 };
    double r[6];
    int i;
    char text[SYS_TEXT];
    iopHd *hd = openHdf("a.H");
    static const struct { const char *call; int number; const char *text; } rows[] = {
        { "H5Dget_type",  0, "Unable to get a typeId; "                },
        { "H5Dget_space", 0, "Unable for get data space for <0>; "     },
        { "H5Dread",      0, "Unable to read data set for <0>; "       },
        { "H5Dget_type",  1, "Unable to get data type for <1>; "       },
        { "H5Dget_space", 1, "Unable for get data space for <1>; "     },
        { "H5Dread",      1, "Unable to read data set for <1>; "       },
        { "H5Dget_type",  3, "Unable to get data type for <3>; "       },
        { "H5Dget_space", 3, "Unable for get data space for <3>; "     },
        { "H5Dread",      3, "Unable to read data set for <3>; "       },
    };
    for (const auto &row : rows) {
        const std::string wanted = std::string(row.text) + "in hdf file <a> token <0> near <__NONE__>";
        iopSetLoc(hd, row.number << 12 | 0x58d);
        if (row.number == 0) checkCall(row.call, 0, wanted, iopGetStrF(hd, text));
        else if (row.number == 1) checkCall(row.call, 0, wanted, iopGetIntF(hd, &i, 1));
        else checkCall(row.call, 0, wanted, iopGetRealF(hd, r, 6));
    }
    iopRewind(hd);
    checkCall("H5Dget_space", 3, "Unable to get data space for <3>; in hdf file <a> token <3> near <key>",
              iopAddRealsIndexed(hd, "key", 2, 3, idx, r));
    iopRewind(hd);
    checkCall("H5Dget_space", 3, "Unable for get data space for <3>; in hdf file <a> token <3> near <key>",
              iopGetRealsIndexed(hd, "key", 2, 3, idx, r));
    for (const char *text : { "Unable to clear a memory space for <3>; ", "Unable to set hyperslab <3>; " }) {
        iopRewind(hd);
        checkCall(strstr(text, "memory") ? "H5Screate_simple" : "H5Sselect_hyperslab", 0,
                  text + std::string("in hdf file <a> token <3> near <key>"),
                  iopReadSubReals(hd, "key", 2, 3, 1, 2, r));
    }
    iopCloseFile(hd);
}

TEST_F(iopHdfCalls, whenReadingRows)
{
    const int n = 3, m = 100000;
    writeTable({ "", { m, n }, {}, false, H5T_NATIVE_DOUBLE }, n, m, Reals((size_t) n * m, 1.5));
    Ints idx((size_t) m, 0);
    Reals dest((size_t) n * m);
    iopHd *hd = openHdf("a.H");
    static const struct { const char *call; int times; const char *text; } rows[] = {
        { "H5Screate_simple",    0, "Unable to clear a memory space for <3>; in hdf file <a> token <" },
        { "H5Sselect_hyperslab", 0, "Unable to set hyperslab <3>; in hdf file <a> token <"            },
        { "H5Sselect_hyperslab", 2, "Unable to set hyperslab <3>; in hdf file <a> token <"            },
        { "H5Dread",             4, "Unable to read data set for <3>; in hdf file <a> token <"        },
    };
    for (const auto &row : rows) {
        iopRewind(hd);
        checkCall(row.call, row.times, row.text, iopGetRealsIndexed(hd, "v", n, m, idx.data(), dest.data()));
    }
    iopRewind(hd);
    iopGetRealsIndexed(hd, "v", n, m, idx.data(), dest.data());         /* no failure has left anything behind */
    iopCheckStr(hd, "end");
    iopCloseFile(hd);
}

TEST_F(iopHdfCalls, whenWriting)
{
    iopHd *hd = openHdf("a.H", IOP_WRITE);
    static const struct { const char *call, *text; } rows[] = {
        { "H5Screate_simple", "Unable to create a spaceId; "           },
        { "H5Tcopy",          "Unable to create a typeId; "            },
        { "H5Dwrite",         "Unable to write data set for <0>; "     },
    };
    for (const auto &row : rows) {
        const std::string wanted = std::string(row.text) + "in hdf file <a> token <0> near <__NONE__>";
        checkCall(row.call, 0, wanted, putInt(hd, 1));
    }
    iopCloseFile(hd);
    hd = openHdf("a.H", IOP_WRITE);
    putInt(hd, 1);
    checkCall("H5Fflush", 0, "unable to write file <a.H>; ", iopCloseFile(hd));
}
