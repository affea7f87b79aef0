/* testIopFile.cpp: names, suffixes, opening and closing. */

#include <errno.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/cvt.h"
#include "iop/iopInt.h"
#include "test/iop/tokenBytes.h"

static int readOne(const char *name, int opt)
{
    int value = -1;
    iopHd *fh = iopOpenFile(name, opt | IOP_READ);
    iopGetIntF(fh, &value, 1);
    iopCloseFile(fh);
    return value;
}

/* For its life the process may have `n` files open. */
struct FileLimit {
    struct rlimit before;
    explicit FileLimit(rlim_t n)
    {
        getrlimit(RLIMIT_NOFILE, &before);
        struct rlimit few = before;
        few.rlim_cur = n;
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ~FileLimit() { setrlimit(RLIMIT_NOFILE, &before); }
};

/* All forms that have files. */
static const int allForms[] = { IOP_ASCII, IOP_BINARY, IOP_COMPRESSED, IOP_HDF, IOP_HDF_CONTAINER };

static void writeOne(const char *name, int opt, int value)
{
    iopHd *fh = iopOpenFile(name, opt | IOP_WRITE);
    iopPutIntF(fh, &value, 1, 1, 0);
    iopCloseFile(fh);
}

static bool exists(const char *name)
{
    return access(name, F_OK) == 0;
}

TEST(iopFile, formFromSuffix)
{
    static const struct { const char *name; int form; } rows[] = {
        { "p.1.out.B", IOP_BINARY }, { "p.1.out.Z", IOP_COMPRESSED }, { "p.H", IOP_HDF },
        { "p.C", IOP_HDF_CONTAINER }, { ".B", IOP_BINARY },
        { "p.1.out", IOP_ASCII }, { "p.b", IOP_ASCII }, { "p.B.x", IOP_ASCII }, { "pB", IOP_ASCII },
        { "p.A", IOP_ASCII },
    };
    for (const auto &row : rows) EXPECT_EQ(iopGetFileOpt(row.name), row.form) << row.name;
}

TEST(iopFile, nameShorterThanASuffixIsAscii)
{
    EXPECT_EQ(iopGetFileOpt(""), IOP_ASCII);
    EXPECT_EQ(iopGetFileOpt("B"), IOP_ASCII);
    EXPECT_EQ(iopGetFileOpt("."), IOP_ASCII);
}

TEST(iopFile, asciiNameEndingInBReadsTheFileWithoutIt)
{
    testWrite("a", "12\n");
    testWrite("a.B", "13\n");
    EXPECT_EQ(readOne("a.B", IOP_ASCII), 12);
}

TEST(iopFile, suffixIsCutWhateverTheFormIs)
{
    TokenBytes(tokenForms[1]).i(7).write();                     /* b.out.B */
    EXPECT_EQ(readOne("b.out.Z", IOP_BINARY), 7);
    EXPECT_EQ(readOne("b.out.B", IOP_BINARY), 7);
    EXPECT_EQ(readOne("b.out", IOP_BINARY), 7);
    iopHd *fh = iopOpenFile("b.out.H", IOP_BINARY | IOP_READ);
    EXPECT_STREQ(iopFileName(fh), "b.out");
    iopCloseFile(fh);
}

TEST(iopFile, nameOf1023CharactersIsTakenAndOf1024Not)
{
    testWrite("abc", "5\n");
    std::string name = "abc";
    while (name.size() < 1023) name = "./" + name;
    ASSERT_EQ(name.size(), 1023u);
    EXPECT_EQ(readOne(name.c_str(), IOP_ASCII), 5);
    EXPECT_EQ(iopCheckFile(name.c_str(), IOP_ASCII), 1);
    name += "x";
    const std::string text = "fileName is too long <" + name + ">";
    checkFails(text, iopOpenFile(name.c_str(), IOP_ASCII | IOP_READ));
    checkFails(text, iopNew(name.c_str(), IOP_ASCII | IOP_READ));
    checkFails(text, iopCheckFile(name.c_str(), IOP_ASCII));
}

/* A directory stands before the name, so that the system takes what is that long; zcat takes no more than 1022 */
TEST(iopFile, longestNameInEveryForm)
{
    for (int form : allForms) {
        std::string name = "abc";
        while (name.size() < (form == IOP_COMPRESSED ? 1019 : 1023)) name = "./" + name;
        writeOne(name.c_str(), form, 5);
        EXPECT_EQ(readOne(name.c_str(), form), 5) << form;
        EXPECT_EQ(iopCheckFile(name.c_str(), form), 1) << form;
        name.resize(1024, 'c');
        const std::string text = "fileName is too long <" + name + ">";
        checkFails(text, iopOpenFile(name.c_str(), form | IOP_READ));
        checkFails(text, iopOpenFile(name.c_str(), form | IOP_WRITE));
        checkFails(text, iopCheckFile(name.c_str(), form | IOP_BASENAME));
    }
}

/* What counts is the part of the name that is stored */
TEST(iopFile, baseNameOfALongName)
{
    for (int form : allForms) {
        writeOne("abc", form, 6);
        EXPECT_EQ(readOne((std::string(2000, 'd') + "/abc").c_str(), form | IOP_BASENAME), 6) << form;
    }
}

TEST(iopFile, rawKeepsTheSuffixOfFormsThatAreNotPlain)
{
    static const struct { int form; const char *onDisk; } rows[] = {
        { IOP_ASCII, "f" }, { IOP_BINARY, "f" }, { IOP_COMPRESSED, "f.Z" }, { IOP_HDF, "f.H" },
        { IOP_HDF_CONTAINER, "f.C" },
    };
    for (const auto &row : rows) {
        char name[SYS_TEXT];
        iopGetDiskName("d/f.B", row.form | IOP_RAW | IOP_BASENAME, name);
        EXPECT_STREQ(name, row.onDisk);
        remove("f");
        writeOne("f.B", row.form | IOP_RAW, 7);
        EXPECT_TRUE(exists(row.onDisk)) << row.form;
        EXPECT_EQ(readOne("f", row.form | IOP_RAW), 7) << row.form;
        EXPECT_EQ(iopCheckFile("f.Z", row.form | IOP_RAW), 1) << row.form;
    }
}

TEST(iopFile, diskNames)
{
    static const struct { const char *name; int opt; const char *onDisk; } rows[] = {
        { "p.1",     0,             "p.1"     },          /* as a line of a file may have it */
        { "d/f",   IOP_ASCII,            "d/f"   }, { "d/f.Z", IOP_ASCII,         "d/f" },
        { "d/f.B", IOP_BINARY,           "d/f.B" }, { "d/f.B", IOP_BINARY | IOP_RAW, "d/f" },
        { "d/f",   IOP_COMPRESSED,       "d/f.Z" }, { "d/f.C", IOP_HDF,           "d/f.H" },
        { "f.H",   IOP_HDF_CONTAINER,    "f.C"   }, { "H",     IOP_HDF,           "H.H" },
        { "d/f",   IOP_HDF | IOP_BASENAME, "f.H" }, { "",      IOP_ASCII,         "" },
    };
    char name[SYS_TEXT];
    for (const auto &row : rows) {
        iopGetDiskName(row.name, row.opt, name);
        EXPECT_STREQ(name, row.onDisk);
    }
    iopGetDiskName(std::string(20000, 'n').c_str(), IOP_BINARY, name);
    EXPECT_EQ(strlen(name), (size_t) SYS_TEXT - 1);
}

/* One suffix is cut of a name, not two: whoever has the handle need not guess */
TEST(iopFile, diskNameOfAHandle)
{
    for (int form : allForms) {
        char name[SYS_NAME + 8], wanted[SYS_TEXT];
        iopHd *fh = iopOpenFile("f.B.Z", form | IOP_WRITE);
        iopDiskName(fh, name, sizeof name);
        iopGetDiskName("f.B.Z", form, wanted);
        EXPECT_STREQ(name, wanted);
        EXPECT_TRUE(exists(name)) << name;
        EXPECT_EQ(std::string(name).substr(0, 3), "f.B");
        iopCloseFile(fh);
    }
}

TEST(iopFile, longestNameWithASuffixIsTaken)
{
    std::string name = "n.B";
    while (name.size() < 1023) name = "./" + name;
    testWrite("n.B", "QUENTA 1 2 4 6 8\n\x07" + std::string(3, '\0'));
    EXPECT_EQ(readOne(name.c_str(), IOP_BINARY), 7);
    name = name.substr(0, 1021) + "qq";
    EXPECT_EQ(iopCheckFile(name.c_str(), IOP_BINARY), 0);
    checkFails("unable to open binary file <", iopOpenFile(name.c_str(), IOP_BINARY | IOP_READ));
}

TEST(iopFile, exactlyOneFormBit)
{
    static const struct { int opt; const char *text; } rows[] = {
        { IOP_READ | IOP_ASCII | IOP_BINARY, "file <f> must be ascii, binary, compressed or hdf: opt <31>" },
        { IOP_READ, "file <f> must be ascii, binary, compressed or hdf: opt <1>" },
        { IOP_READ | IOP_FORMS, "file <f> must be ascii, binary, compressed or hdf: opt <1f1>" },
    };
    for (const auto &row : rows) {
        checkFails(row.text, iopNew("f", row.opt));
        checkFails(row.text, iopOpenFile("f", row.opt));
        checkFails(row.text, iopCheckFile("f", row.opt));
    }
}

TEST(iopFile, eitherReadOrWrite)
{
    checkFails("file <f> must be either for read or write: opt <10>", iopNew("f", IOP_ASCII));
    checkFails("file <f> must be either for read or write: opt <24>", iopOpenFile("f", IOP_BINARY | IOP_APPEND));
    checkReturns(EXPECT_EQ(iopCheckFile("f", IOP_ASCII), 0));
}

TEST(iopFile, recordFilesAreBinary)
{
    checkFails("REC file requires binary format; file <p.ptc>", iopOpenFile("p.ptc", IOP_ASCII | IOP_READ | IOP_REC));
    checkFails("REC file requires binary format; file <p.ptc>", iopOpenFile("p.ptc", IOP_READ | IOP_REC));
}

TEST(iopFile, baseNameIsBehindTheLastSlash)
{
    testWrite("a.out", "3\n");
    EXPECT_EQ(readOne("no/such/a.out", IOP_ASCII | IOP_BASENAME), 3);
    EXPECT_EQ(readOne("a.out", IOP_ASCII | IOP_BASENAME), 3);
    EXPECT_EQ(iopCheckFile("no/such/a.out", IOP_ASCII | IOP_BASENAME), 1);
    EXPECT_EQ(iopCheckFile("no/such/a.out", IOP_ASCII), 0);
    EXPECT_EQ(iopCheckFile("no\\such\\a.out", IOP_ASCII | IOP_BASENAME), 0);
}

TEST(iopFile, checkFileLooksForOneForm)
{
    testWrite("p.B", "");
    testWrite("p.Z", "");
    testWrite("q.H", "");
    testWrite("q.C", "");
    static const struct { const char *name; int opt, there; } rows[] = {
        { "p",   IOP_BINARY,             1 }, { "p.Z", IOP_BINARY,        1 }, { "p",   IOP_BINARY | IOP_RAW, 0 },
        { "p",   IOP_COMPRESSED,         1 }, { "p.B", IOP_COMPRESSED,    1 }, { "p",   IOP_HDF,              0 },
        { "q",   IOP_HDF,                1 }, { "q",   IOP_HDF_CONTAINER, 1 }, { "q",   IOP_ASCII,            0 },
        { "p.B", IOP_ASCII,              0 }, { "p",   IOP_BINARY | IOP_REC, 1 }, { "q", IOP_BINARY | IOP_REC, 0 },
    };
    for (const auto &row : rows) EXPECT_EQ(iopCheckFile(row.name, row.opt), row.there) << row.name << " " << row.opt;
    EXPECT_EQ(testSlept(), 0);
}

TEST(iopFile, checkFileSaysNoForADirectoryAndChangesNothing)
{
    mkdir("dir", 0755);
    testWrite("a", "old");
    struct stat before, after;
    stat("a", &before);
    EXPECT_EQ(iopCheckFile("dir", IOP_ASCII), 0);
    EXPECT_EQ(iopCheckFile("none", IOP_ASCII | IOP_WRITE), 0);
    EXPECT_EQ(iopCheckFile("a", IOP_ASCII | IOP_WRITE), 1);
    stat("a", &after);
    EXPECT_FALSE(exists("none"));
    EXPECT_EQ(testRead("a"), "old");
    EXPECT_EQ(before.st_mtime, after.st_mtime);
    EXPECT_TRUE(exists("dir"));
}

TEST(iopFile, formsOfLaterVersionsAreRefusedByName)
{
    static const struct { const char *name; int opt; const char *text; } rows[] = {
        { "p.ptc", IOP_BINARY | IOP_REC,  "record files are not read by this version: <p.ptc>"      },
        { "host",  IOP_ASCII | IOP_SOCKET, "socket files are not read by this version: <host>"      },
        { "host",  IOP_BINARY | IOP_RSH,  "remote shell files are not read by this version: <host>" },
    };
    for (const auto &row : rows) {
        checkFails(row.text, iopNew(row.name, row.opt | IOP_READ));
        checkFails(row.text, iopOpenFile(row.name, row.opt | IOP_READ));
    }
    EXPECT_EQ(testSlept(), 0);
}

TEST(iopFile, missingFileIsWaitedFor)
{
    static const struct { int opt; const char *text; } rows[] = {
        { IOP_ASCII,            "unable to open ascii file <p>; No such file or directory"    },
        { IOP_ASCII | IOP_RAW,  "unable to open ascii file <p>; No such file or directory"    },
        { IOP_BINARY,           "unable to open binary file <p.B>; No such file or directory" },
        { IOP_BINARY | IOP_RAW, "unable to open binary file <p>; No such file or directory"   },
    };
    int slept = 0;
    for (const auto &row : rows) {
        checkFails("in Function <iopOpenFile>", iopOpenFile("p.B", row.opt | IOP_READ));
        EXPECT_EQ(testSlept(), slept += 2);
        checkFails(row.text, iopOpenFile("p.B", row.opt | IOP_READ));
        EXPECT_EQ(testSlept(), slept += 2);
        checkFails(row.text, iopOpenFile("p.B", row.opt | IOP_READ | IOP_LONG_WAIT));
        EXPECT_EQ(testSlept(), slept += 60);
    }
}

TEST(iopFile, fileThatComesDuringTheWaitIsRead)
{
    testWhenSleeping([] { if (testSlept() == 2) testWrite("p", "77\n"); });
    EXPECT_EQ(readOne("p", IOP_ASCII), 77);
    EXPECT_EQ(testSlept(), 2);
}

TEST(iopFile, oneBudgetForOpenAndTag)
{
    testWhenSleeping([] { if (testSlept() == 1) testWrite("p.B", "QUEN"); });
    checkFails("Invalid binary tag <QUEN>; in binary file <p> token <0> near <__NONE__>",
               iopOpenFile("p", IOP_BINARY | IOP_READ));
    EXPECT_EQ(testSlept(), 2);
}

TEST(iopFile, writingDoesNotWait)
{
    static const struct { int opt; const char *text; } rows[] = {
        { IOP_ASCII,                          "unable to open ascii file <no/dir>; No such file or directory"    },
        { IOP_ASCII | IOP_APPEND | IOP_RAW,   "unable to open ascii file <no/dir>; No such file or directory"    },
        { IOP_BINARY | IOP_APPEND,            "unable to open binary file <no/dir.B>; No such file or directory" },
        { IOP_BINARY | IOP_RAW,               "unable to open binary file <no/dir>; No such file or directory"   },
    };
    for (const auto &row : rows) checkFails(row.text, iopOpenFile("no/dir", row.opt | IOP_WRITE));
    EXPECT_EQ(testSlept(), 0);
}

TEST(iopFile, onlyPlainFilesAreRead)
{
    mkdir("dir", 0755);
    mkfifo("pipe", 0644);
    checkFails("unable to open ascii file <dir>; Is a directory", iopOpenFile("dir", IOP_ASCII | IOP_READ));
    checkFails("unable to open ascii file <pipe>; ", iopOpenFile("pipe", IOP_ASCII | IOP_READ));
    EXPECT_EQ(iopCheckFile("pipe", IOP_ASCII), 0);
}

TEST(iopFile, writeModes)
{
    static const struct { int opt; const char *onDisk, *bytes; } rows[] = {
        { IOP_ASCII | IOP_WRITE,                          "f",   "1 "                                      },
        { IOP_ASCII | IOP_WRITE | IOP_APPEND,             "f",   "old 1 "                                  },
        { IOP_ASCII | IOP_WRITE | IOP_RAW,                "f",   "1 "                                      },
        { IOP_BINARY | IOP_WRITE,                         "f.B", "QUENTA 1.0 2 4 6 8\n\x01#"                },
        { IOP_BINARY | IOP_WRITE | IOP_APPEND,            "f.B", "old \x01#"                                },
        { IOP_BINARY | IOP_WRITE | IOP_RAW,               "f",   "\x01#"                                    },
        { IOP_BINARY | IOP_WRITE | IOP_RAW | IOP_APPEND,  "f",   "old \x01#"                                },
    };
    for (const auto &row : rows) {
        testWrite(row.onDisk, "old ");
        int one = 1;
        iopHd *fh = iopOpenFile("f", row.opt);
        iopPutIntF(fh, &one, 1, 1, 0);
        iopCloseFile(fh);
        std::string bytes = row.bytes;
        if (bytes.back() == '#') bytes.replace(bytes.size() - 1, 1, std::string(3, '\0'));
        EXPECT_EQ(testRead(row.onDisk), bytes) << std::hex << row.opt;
    }
}

TEST(iopFile, tagIsOnDiskAtOnceWithTheVersion)
{
    sysSetVersion("2021.1");
    iopHd *fh = iopOpenFile("f", IOP_BINARY | IOP_WRITE);
    EXPECT_EQ(testRead("f.B"), "QUENTA 2021.1 2 4 6 8\n");
    iopCloseFile(fh);
    sysSetVersion("1.0");
}

TEST(iopFile, readWinsOverWrite)
{
    testWrite("f", "41\n");
    iopHd *fh = iopOpenFile("f", IOP_ASCII | IOP_READ | IOP_WRITE);
    int value = 0;
    iopGetIntF(fh, &value, 1);
    EXPECT_EQ(value, 41);
    checkFails("unable to write <1> integers in ascii file <f> token <1> near <__NONE__>",
               iopPutIntF(fh, &value, 1, 1, 0));
    iopCloseFile(fh);
    EXPECT_EQ(testRead("f"), "41\n");
}

TEST(iopFile, readWinsOverWriteInEveryForm)
{
    for (int form : allForms) {
        int value = 0;
        writeOne("f", form, 41);
        iopHd *fh = iopOpenFile("f", form | IOP_READ | IOP_WRITE);
        iopGetIntF(fh, &value, 1);
        EXPECT_EQ(value, 41);
        checkFails(form == IOP_HDF || form == IOP_HDF_CONTAINER ? "Unable to create data set for <1>; in hdf"
                                                                : "unable to write <1> integers in ",
                   iopPutIntF(fh, &value, 1, 1, 0));
        checkReturns(iopCloseFile(fh));
        EXPECT_EQ(readOne("f", form), 41);
    }
}

TEST(iopFile, bufferOptionsInEveryForm)
{
    for (int form : allForms) {
        for (const int opt : { (int) IOP_LINE_BUFFER, (int) IOP_NO_BUFFER, IOP_LINE_BUFFER | IOP_NO_BUFFER }) {
            writeOne("f", form | opt, 42);
            EXPECT_EQ(readOne("f", form | opt), 42) << form << " " << opt;
        }
    }
    int five = 5;
    iopHd *fh = iopOpenFile("f", IOP_BINARY | IOP_WRITE | IOP_NO_BUFFER);
    iopPutIntF(fh, &five, 1, 1, 0);
    EXPECT_EQ(testRead("f.B"), "QUENTA 1.0 2 4 6 8\n" + std::string("\5\0\0\0", 4));
    iopCloseFile(fh);
}

TEST(iopFile, bufferOptionsShowWhatIsWritten)
{
    static const struct { int opt; const char *afterLine, *afterInt; } rows[] = {
        { 0,               "",          ""            },
        { IOP_LINE_BUFFER, "line 1\n",  "line 1\n"    },
        { IOP_NO_BUFFER,   "line 1\n",  "line 1\n5 "  },
    };
    for (const auto &row : rows) {
        int five = 5;
        iopHd *fh = iopOpenFile("f", IOP_ASCII | IOP_WRITE | row.opt);
        iopPrintLine(fh, "line %d", 1);
        EXPECT_EQ(testRead("f"), row.afterLine);
        iopPutIntF(fh, &five, 1, 1, 0);
        EXPECT_EQ(testRead("f"), row.afterInt);
        iopCloseFile(fh);
        EXPECT_EQ(testRead("f"), "line 1\n5 ");
        testWrite("g", "6\n");
        EXPECT_EQ(readOne("g", IOP_ASCII | row.opt), 6);
    }
}

TEST(iopFile, deletedAtClose)
{
    static const struct { int opt; const char *onDisk; } rows[] = {
        { IOP_ASCII, "f" }, { IOP_ASCII | IOP_RAW, "f" }, { IOP_BINARY, "f.B" }, { IOP_BINARY | IOP_RAW, "f" },
        { IOP_COMPRESSED, "f.Z" },          /* HDF5 files stay: see testIopHdfContainer.cpp */
    };
    for (const auto &row : rows) {
        testWrite("f", "f");
        testWrite("f.B", "QUENTA 1 2 4 6 8\n");
        testWrite("f.Z", compressedBytes("f"));
        iopHd *fh = iopOpenFile("f", row.opt | IOP_READ | IOP_DELETE);
        EXPECT_TRUE(exists(row.onDisk));
        iopCloseFile(fh);
        EXPECT_FALSE(exists(row.onDisk)) << std::hex << row.opt;
        EXPECT_TRUE(exists(row.onDisk == std::string("f") ? "f.B" : "f"));
    }
}

TEST(iopFile, closedHandleIsUsedAgain)
{
    testWrite("a", "key 12\n");
    iopHd *fh = iopOpenFile("a", IOP_ASCII | IOP_READ);
    iopHd *other = iopOpenFile("a", IOP_ASCII | IOP_READ);
    EXPECT_NE(fh, other);
    char text[SYS_TEXT];
    iopGetStrF(fh, text);
    fh->nDataSets = 3;
    fh->fileInt = CVT_INT_BE;
    const char *fileName = fh->fileName, *lastToken = fh->lastToken;
    iopCloseFile(fh);
    EXPECT_EQ(fh->opt, 0);
    iopHd *again = iopNew("b.B", IOP_BINARY | IOP_WRITE);
    EXPECT_EQ(again, fh);
    EXPECT_EQ(again->fileName, fileName);
    EXPECT_EQ(again->lastToken, lastToken);
    EXPECT_STREQ(again->fileName, "b");
    EXPECT_STREQ(again->lastToken, "__NONE__");
    EXPECT_EQ(again->fp, nullptr);
    EXPECT_EQ(again->sock, nullptr);
    EXPECT_EQ(again->opt, IOP_BINARY | IOP_WRITE);
    EXPECT_EQ(again->nTokens, 0);
    EXPECT_EQ(again->nDataSets, 0);
    EXPECT_EQ(again->nativeInt, 2);
    EXPECT_EQ(again->nativeReal, 6);
    EXPECT_EQ(again->nativeFloat, 4);
    EXPECT_EQ(again->fileInt, 2);
    EXPECT_EQ(again->fileReal, 6);
    EXPECT_EQ(again->fileFloat, 4);
    EXPECT_EQ(again->hdfFile, -1);
    EXPECT_EQ(again->hdfFiles, -1);
    EXPECT_EQ(again->hdfData, -1);
    iopCloseFile(again);
    iopCloseFile(other);
}

TEST(iopFile, failedOpenGivesItsHandleBack)
{
    testWrite("a", "1\n");
    testWrite("t.B", "no tag\n");
    iopHd *fh = iopOpenFile("a", IOP_ASCII | IOP_READ);
    iopCloseFile(fh);
    FileLimit limit(100);
    for (int i = 0; i < 200; ++i)
        checkFails("Invalid binary tag <no tag>; ", iopOpenFile("t", IOP_BINARY | IOP_READ));
    checkFails("in Function <iopOpenFile>", iopOpenFile("t", IOP_BINARY | IOP_READ));
    checkFails("unable to open ascii file", iopOpenFile("none", IOP_ASCII | IOP_READ));
    iopHd *again = iopOpenFile("a", IOP_ASCII | IOP_READ);
    EXPECT_EQ(again, fh);
    iopCloseFile(again);
}

TEST(iopFile, whatCouldNotBeOpenedIsNotRemoved)
{
    testWrite("t.B", "no tag\n");
    checkFails("Invalid binary tag <no tag>; ", iopOpenFile("t", IOP_BINARY | IOP_READ | IOP_DELETE));
    EXPECT_EQ(testRead("t.B"), "no tag\n");
}

TEST(iopFile, theReasonOfAFailedOpenOutlivesTheWait)
{
    testWhenSleeping([] { errno = EPERM; });
    checkFails("unable to open ascii file <none>; No such file or directory",
               iopOpenFile("none", IOP_ASCII | IOP_READ));
}

TEST(iopFile, aClosedHandleIsRefused)
{
    int value;
    char text[SYS_TEXT];
    for (int form : allForms) {
        writeOne("a", form, 1);
        iopHd *fh = iopOpenFile("a", form | IOP_READ);
        iopCloseFile(fh);
        checkFails("file <a> is not open", iopCloseFile(fh));
        checkFails("file <a> is not for reading", iopGetIntF(fh, &value, 1));
        checkFails("file <a> is not for reading", iopGetIfStr(fh, text));
        checkFails("not a read file <a>", iopGetLine(fh, text, SYS_TEXT));
        checkFails("file <a> is not for writing", iopPutIntF(fh, &value, 1, 1, 0));
        checkFails("incompatible mode for file <a>", iopPrintLine(fh, "x"));
        checkReturns(iopGetLoc(fh); iopRewind(fh));
        if (form != IOP_HDF_CONTAINER) continue;
        checkFails("Invalid container <", iopGetNHdfFiles(fh));
        checkFails("Invalid container <", iopOpenHdfFile(fh, "wall", IOP_READ));
    }
}

/* Nothing of what a handle was before shows in what it becomes */
TEST(iopFile, aHandleServesOneFormAfterTheOther)
{
    for (int form : allForms) writeOne("a", form, form);
    iopHd *first = nullptr;
    for (int round = 0; round < 2; ++round) {
        for (int before : allForms) {
            for (int form : allForms) {
                int value = 0;
                iopCloseFile(iopOpenFile("a", before | IOP_READ));
                iopHd *fh = iopOpenFile("a", form | IOP_READ);
                if (!first) first = fh;
                EXPECT_EQ(fh, first);
                EXPECT_EQ(iopGetTokens(fh), 0);
                iopGetIntF(fh, &value, 1);
                EXPECT_EQ(value, form) << "after " << before;
                iopCloseFile(fh);
            }
        }
    }
}

TEST(iopFile, handleWithoutAStream)
{
    for (int form : { IOP_ASCII, IOP_BINARY, IOP_COMPRESSED }) {
        iopHd *fh = iopNew("n", form | IOP_READ | IOP_WRITE);
        int value = 0;
        char text[SYS_TEXT];
        checkFails("EOF in ", iopGetIntF(fh, &value, 1));
        checkFails("EOF in ", iopGetBinInts(fh, &value, 1));
        checkFails("EOF in ", iopGetStrF(fh, text));
        EXPECT_EQ(iopGetIfStr(fh, text), 0);
        checkFails("EOF in ", iopNeed(fh, 1, 'i'));
        checkFails(form == IOP_BINARY ? "fseek error in binary file <n> token <0> near <__NONE__>" : "EOF in ",
                   iopGetRealDsp(fh, 1));
        checkFails("unable to write <1> integers in ", iopPutIntF(fh, &value, 1, 1, 0));
        checkFails("unable to write <1> integers in ", iopPutBinInts(fh, &value, 1));
        checkFails("Unable to set location <5> <in ", iopSetLoc(fh, 5));
        EXPECT_EQ(iopGetLoc(fh), 0);
        iopRewind(fh);
        iopCloseFile(fh);
    }
}

TEST(iopFile, infoTellsHowFarAFileWasRead)
{
    forEachForm(form) {
        TokenBytes(form).s("nNodes").i(2).s("crd").write();
        iopHd *fh = openTokens(form);
        const std::string head = std::string("in ") + form.kind + " file <" + form.file;
        EXPECT_EQ(iopFileInfo(fh), head + "> token <0> near <__NONE__>");
        int n;
        iopGetKeyInt(fh, "nNodes", &n);
        EXPECT_EQ(iopFileInfo(fh), head + "> token <2> near <nNodes>");
        iopCheckStr(fh, "crd");
        EXPECT_EQ(iopFileInfo(fh), head + "> token <3> near <crd>");
        const char *text = iopFileInfo(fh);
        iopCloseFile(fh);
        EXPECT_EQ(iopFileInfo(fh), text);
        EXPECT_EQ(text, head + "> token <3> near <crd>");
    }
}

TEST(iopFile, infoNamesEachForm)
{
    static const struct { int form; const char *text; } rows[] = {
        { IOP_COMPRESSED,    "in compressed file <f> token <0> near <__NONE__>"    },
        { IOP_HDF,           "in hdf file <f> token <0> near <__NONE__>"           },
        { IOP_HDF_CONTAINER, "in hdf-container file <f> token <0> near <__NONE__>" },
    };
    iopHd *fh = iopNew("f", IOP_ASCII | IOP_READ);
    for (const auto &row : rows) {
        fh->opt = row.form | IOP_READ;
        EXPECT_STREQ(iopFileInfo(fh), row.text);
    }
    iopCloseFile(fh);
}

TEST(iopFile, infoIsBounded)
{
    const std::string name = std::string(1000, 'n'), word(8000, 'w');
    testWrite("f", word + "\n");
    iopHd *fh = iopOpenFile("f", IOP_ASCII | IOP_READ);
    char text[SYS_TEXT];
    iopGetStrF(fh, text);
    EXPECT_EQ(text, word);
    EXPECT_EQ(iopFileInfo(fh), "in ascii file <f> token <1> near <" + word.substr(0, 1023) + ">");
    iopCloseFile(fh);
}

TEST(iopFile, rewindGoesBackBehindTheTag)
{
    forEachForm(form) {
        TokenBytes(form).s("a").i(5).s("b").write();
        iopHd *fh = openTokens(form);
        EXPECT_EQ(fh->dataStart, (int64_t) strlen(form.tag));
        int value = 0;
        char text[SYS_TEXT];
        iopGetKeyInt(fh, "a", &value);
        iopGetStrF(fh, text);
        EXPECT_EQ(iopGetIfStr(fh, text), 0);
        fh->nDataSets = 4;
        iopRewind(fh);
        EXPECT_EQ(fh->nTokens, 0);
        EXPECT_EQ(fh->nDataSets, 0);
        EXPECT_STREQ(fh->lastToken, "__NONE__");
        EXPECT_EQ(iopGetLoc(fh), fh->dataStart);
        value = 0;
        iopGetKeyInt(fh, "a", &value);
        EXPECT_EQ(value, 5);
        iopCloseFile(fh);
    }
}

/* A writer that goes back over its file is seen after a rewind, however little of it there is */
TEST(iopFile, rewindReadsTheFileAnew)
{
    forEachForm(form) {
        TokenBytes(form).i(1).i(2).write();
        iopHd *fh = openTokens(form);
        int value = 0;
        iopGetIntF(fh, &value, 1);
        TokenBytes(form).i(7).i(8).write();
        iopRewind(fh);
        iopGetIntF(fh, &value, 1);
        EXPECT_EQ(value, 7);
        iopCloseFile(fh);
    }
}

TEST(iopFile, programsThatTheHostStartsDoNotInheritIt)
{
    static const int modes[] = { IOP_WRITE, IOP_WRITE | IOP_APPEND, IOP_READ };
    for (int form : { IOP_ASCII, IOP_BINARY })              /* pipes: testIopZip.cpp */
        for (int mode : modes) {
            iopHd *fh = iopOpenFile("a", form | mode);
            EXPECT_TRUE(fcntl(fileno(fh->fp), F_GETFD) & FD_CLOEXEC) << form << " " << mode;
            iopCloseFile(fh);
        }
}

/* As long as a change could hide behind the one before, and never longer, whatever clock set the time */
TEST(iopFile, howLongAFileMustRest)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const struct { time_t ahead; long ns; double least, most; int isAhead; } rows[] = {
        { 3600,  1, 0.1, 0.1, 1 },
        { 3600,  0, 2.0, 2.0, 1 },
        { 0,     0, 0.5, 2.0, 0 },
        { -60,   1, 0.0, 0.0, 0 },
        { -60,   0, 0.0, 0.0, 0 },
    };
    for (const auto &row : rows) {
        iopFileId id = {};
        id.changed = { now.tv_sec + row.ahead, row.ns };
        EXPECT_GE(iopRest(&id), row.least);
        EXPECT_LE(iopRest(&id), row.most);
        EXPECT_EQ(iopIsSettled(&id), row.most == 0);
        EXPECT_EQ(iopIsAhead(&id), row.isAhead);
    }
}

TEST(iopFile, sizeAndTime)
{
    testWrite("a", "12345");
    struct stat st;
    stat("a", &st);
    EXPECT_EQ(iopFileSize("a"), 5);
    EXPECT_EQ(iopFileTime("a"), (int) st.st_mtime);
    EXPECT_EQ(iopFileSize("none"), 0);
    EXPECT_EQ(iopFileTime("none"), 0);
}
