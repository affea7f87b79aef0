/* testIopTokens.cpp: one stream of tokens reads the same in every storage form and byte order. */

#include <cmath>

#include "iop/iopInt.h"
#include "test/iop/tokenBytes.h"

static const TokenForm *testedForm;         /* for what a waiting test does: lambdas there hold nothing */
static const char *testedFile;
static std::string moreBytes;

static void appendMore()
{
    testWrite(testedFile, testRead(testedFile) + moreBytes);
    moreBytes.clear();
}

/* A file whose last `cut` bytes come only while the reader waits; for the forms that show it. */
static void writeInTwo(const TokenForm &form, const std::string &bytes, size_t cut)
{
    testedFile = form.onDisk;
    moreBytes = bytes.substr(bytes.size() - cut);
    testWrite(form.onDisk, bytes.substr(0, bytes.size() - cut));
    testWhenSleeping(appendMore);
}

TEST(iopTokens, sameInEveryForm)
{
    forEachForm(form) {
        TokenBytes(form).s("first").i(1).i(-2).i(2147483647).i(INT32_MIN).r(0.1).r(-1e300).r(1e-310).f(0.1f).f(-2.5f)
            .s("seven77").s("eight888").s("a-longer-string-of-thirty-bytes").i(5).write();
        iopHd *fh = openTokens(form);
        char text[SYS_TEXT];
        int ints[4], last;
        double reals[3];
        float floats[2];
        iopGetStrF(fh, text);
        EXPECT_STREQ(text, "first");
        iopGetIntF(fh, ints, 4);
        EXPECT_EQ(std::vector<int>(ints, ints + 4), (std::vector<int>{ 1, -2, 2147483647, INT32_MIN }));
        iopGetRealF(fh, reals, 3);
        EXPECT_EQ(std::vector<double>(reals, reals + 3), (std::vector<double>{ 0.1, -1e300, 1e-310 }));
        iopGetFloatF(fh, floats, 2);
        EXPECT_EQ(std::vector<float>(floats, floats + 2), (std::vector<float>{ 0.1f, -2.5f }));
        EXPECT_EQ(fh->nTokens, 10);
        EXPECT_STREQ(fh->lastToken, "first");
        iopGetStrF(fh, text);
        EXPECT_STREQ(text, "seven77");
        EXPECT_EQ(iopGetIfStr(fh, text), 1);
        EXPECT_STREQ(text, "eight888");
        iopGetStrF(fh, text);
        EXPECT_STREQ(text, "a-longer-string-of-thirty-bytes");
        EXPECT_STREQ(fh->lastToken, text);
        iopGetIntF(fh, &last, 1);
        EXPECT_EQ(last, 5);
        EXPECT_EQ(iopGetIfStr(fh, text), 0);
        EXPECT_EQ(fh->nTokens, 14);
        EXPECT_EQ(testSlept(), 0);
        iopCloseFile(fh);
    }
}

TEST(iopTokens, countOfZeroReadsNothing)
{
    forEachForm(form) {
        TokenBytes(form).i(5).write();
        iopHd *fh = openTokens(form);
        const int64_t start = iopGetLoc(fh);
        iopGetIntF(fh, nullptr, 0);
        iopGetRealF(fh, nullptr, 0);
        iopGetFloatF(fh, nullptr, 0);
        iopGetBinInts(fh, nullptr, 0);
        iopGetBinReals(fh, nullptr, 0);
        iopGetIntDsp(fh, 0);
        iopGetRealDsp(fh, 0);
        iopGetFloatDsp(fh, 0);
        iopNeed(fh, 0, 'r');
        EXPECT_EQ(iopGetLoc(fh), start);
        EXPECT_EQ(fh->nTokens, 0);
        EXPECT_EQ(fh->nDataSets, 0);
        iopCloseFile(fh);
    }
}

TEST(iopTokens, otherByteOrderTurnsFloatsWithTheReals)
{
    testWrite("f.B", "QUENTA 1 1 4 5 8\n" + std::string("\0\0\1\2", 4) + std::string("\x40\x04\0\0\0\0\0\0", 8) +
              std::string("\x40\x20\0\0", 4));
    iopHd *fh = iopOpenFile("f", IOP_BINARY | IOP_READ);
    EXPECT_EQ(fh->fileInt, 1);
    EXPECT_EQ(fh->fileReal, 5);
    EXPECT_EQ(fh->fileFloat, 3);
    int i;
    double r;
    float f;
    iopGetIntF(fh, &i, 1);
    iopGetRealF(fh, &r, 1);
    iopGetFloatF(fh, &f, 1);
    EXPECT_EQ(i, 258);
    EXPECT_EQ(r, 2.5);
    EXPECT_EQ(f, 2.5f);
    iopCloseFile(fh);
}

TEST(iopTokens, mixedTag)
{
    testWrite("f.B", "QUENTA 1 2 4 5 8\n" + std::string("\2\1\0\0", 4) + std::string("\x40\x04\0\0\0\0\0\0", 8));
    iopHd *fh = iopOpenFile("f", IOP_BINARY | IOP_READ);
    int i;
    double r;
    iopGetIntF(fh, &i, 1);
    iopGetRealF(fh, &r, 1);
    EXPECT_EQ(i, 258);
    EXPECT_EQ(r, 2.5);
    iopCloseFile(fh);
}

TEST(iopTokens, typeOfNeitherByteOrderFailsAtTheFirstNumber)
{
    static const struct { const char *tag; int type, ints, reals, floats; } rows[] = {
        { "QUENTA 1 7 4 6 8\n",  7,  1, 0, 0 },
        { "QUENTA 1 2 4 4 8\n",  4,  0, 1, 0 },
        { "QUENTA 1 2 4 -1 8\n", -1, 0, 1, 0 },
        { "QUENTA 1 0 4 0 8\n",  0,  1, 1, 0 },
    };
    for (const auto &row : rows) {
        testWrite("f.B", row.tag + std::string("key\0\0\0\0\0", 8) + std::string(40, '\1'));
        iopHd *fh = iopOpenFile("f", IOP_BINARY | IOP_READ);
        EXPECT_EQ(fh->fileFloat, 4);
        iopCheckStr(fh, "key");
        int i;
        double r;
        float f;
        const std::string text = "Invalid srcType <" + std::to_string(row.type) + ">";
        iopGetIntF(fh, &i, 0);
        const std::string ints = trapped([&] { iopGetIntF(fh, &i, 1); });
        const std::string reals = trapped([&] { iopGetRealF(fh, &r, 1); });
        const std::string floats = trapped([&] { iopGetFloatF(fh, &f, 1); });
        EXPECT_EQ(ints.find(text) != std::string::npos, row.ints != 0) << ints;
        EXPECT_EQ(reals.find(text) != std::string::npos, row.reals != 0) << reals;
        EXPECT_EQ(floats, "");
        iopCloseFile(fh);
    }
}

TEST(iopTokens, rawBinaryHasNoTag)
{
    testWrite("f", std::string("\5\0\0\0", 4));
    iopHd *fh = iopOpenFile("f", IOP_BINARY | IOP_READ | IOP_RAW);
    int value = 0;
    iopGetBinInts(fh, &value, 1);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(fh->dataStart, 0);
    iopCloseFile(fh);
}

TEST(iopTokens, skipsStepOver)
{
    forEachForm(form) {
        TokenBytes all(form);
        for (int i = 0; i < 3000; ++i) all.i(i);
        for (int i = 0; i < 3000; ++i) all.r(i + 0.5);
        for (int i = 0; i < 3000; ++i) all.f((float) i + 0.25f);
        all.s("end").write();
        iopHd *fh = openTokens(form);
        int i;
        double r;
        float f;
        iopGetIntDsp(fh, 10);
        iopGetIntF(fh, &i, 1);
        EXPECT_EQ(i, 10);
        iopGetIntDsp(fh, 2988);
        iopGetIntF(fh, &i, 1);
        EXPECT_EQ(i, 2999);
        iopGetRealDsp(fh, 2999);
        iopGetRealF(fh, &r, 1);
        EXPECT_EQ(r, 2999.5);
        iopGetFloatF(fh, &f, 1);
        EXPECT_EQ(f, 0.25f);
        iopGetFloatDsp(fh, 2999);
        EXPECT_EQ(fh->nTokens, 9000);
        iopCheckStr(fh, "end");
        iopCloseFile(fh);
    }
}

TEST(iopTokens, blocksLargerThanWhatIsReadAhead)
{
    forEachForm(form) {
        const int n = 100000;
        TokenBytes all(form);
        all.s("x");
        for (int i = 0; i < n; ++i) all.i(i * 7);
        all.s("y").write();
        iopHd *fh = openTokens(form);
        std::vector<int> v(n);
        iopCheckStr(fh, "x");
        iopGetIntF(fh, v.data(), 1000);
        iopGetIntF(fh, v.data() + 1000, n - 1000);
        for (int i = 0; i < n; ++i) ASSERT_EQ(v[i], i * 7);
        iopCheckStr(fh, "y");
        EXPECT_EQ(iopGetLoc(fh), (int64_t) all.bytes.size() - (form.binary ? 0 : 1));
        iopCloseFile(fh);
    }
}

TEST(iopTokens, rawReadsOfBytesOnAnyHandle)
{
    const std::string bytes("\1\0\0\0\2\0\0\0\0\0\0\0\0\0\4\x40", 16);
    testWrite("t", "word\n" + bytes);
    iopHd *fh = iopOpenFile("t", IOP_ASCII | IOP_READ);
    char text[100];
    int ints[2];
    double real;
    EXPECT_EQ(iopGetLine(fh, text, 100), 1);
    iopGetBinInts(fh, ints, 2);
    iopGetBinReals(fh, &real, 1);
    EXPECT_EQ(ints[0] * 10 + ints[1], 12);
    EXPECT_EQ(real, 2.5);
    EXPECT_EQ(fh->nTokens, 4);
    checkFails("EOF in ascii file <t> token <4>", iopGetBinInts(fh, ints, 1));
    iopCloseFile(fh);
    forEachForm(form) {
        if (!form.binary) continue;
        TokenBytes(form).i(11).r(2.25).write();
        fh = openTokens(form);
        iopGetBinInts(fh, ints, 1);
        iopGetBinReals(fh, &real, 1);
        EXPECT_EQ(ints[0], 11);
        EXPECT_EQ(real, 2.25);
        iopCloseFile(fh);
    }
}

/* ---- the end of the data ---- */

TEST(iopTokens, endOfDataIsWaitedForAndThenFails)
{
    forEachForm(form) {
        TokenBytes(form).s("key").i(1).write();
        int ints[2], slept = testSlept();
        double r;
        float f;
        char text[SYS_TEXT];
        iopHd *fh = openTokens(form);
        const std::string file = std::string(form.kind) + " file <" + form.file + "> token <";
        iopCheckStr(fh, "key");
        checkFails("EOF in " + file + (form.binary ? "1" : "2") + "> near <key>", iopGetIntF(fh, ints, 2));
        EXPECT_EQ(testSlept(), slept += 2);
        checkFails("EOF in " + file, iopGetRealF(fh, &r, 1));
        checkFails("EOF in " + file, iopGetFloatF(fh, &f, 1));
        checkFails("EOF in " + file, iopGetStrF(fh, text));
        checkFails("EOF in " + file, iopGetBinInts(fh, ints, 1));
        EXPECT_EQ(testSlept(), slept += 8);
        EXPECT_EQ(iopGetIfStr(fh, text), 0);
        EXPECT_EQ(testSlept(), slept);
        iopCloseFile(fh);
        fh = openTokens(form, IOP_LONG_WAIT);
        iopCheckStr(fh, "key");
        checkFails("EOF in " + file, iopGetIntF(fh, ints, 2));
        EXPECT_EQ(testSlept(), slept += 60);
        iopCloseFile(fh);
    }
}

TEST(iopTokens, whatComesDuringTheWaitIsRead)
{
    forEachForm(form) {
        if (!form.grows) continue;
        TokenBytes all(form);
        all.s("key").i(1).i(22).r(0.5).s("end");
        const int before = testSlept();
        /* cut where the ascii form cannot take the head of a token for the whole */
        writeInTwo(form, all.bytes, TokenBytes(form).r(0.5).s("end").bytes.size() - strlen(form.tag));
        iopHd *fh = openTokens(form);
        int i[2];
        double r;
        char text[SYS_TEXT];
        iopGetKeyInt(fh, "key", &i[0]);
        iopGetIntF(fh, &i[1], 1);
        EXPECT_EQ(i[1], 22);
        EXPECT_EQ(testSlept(), before);
        iopGetRealF(fh, &r, 1);
        EXPECT_EQ(r, 0.5);
        EXPECT_EQ(testSlept(), before + 1);
        iopGetStrF(fh, text);
        EXPECT_STREQ(text, "end");
        iopCloseFile(fh);
    }
}

TEST(iopTokens, retryAsksOnlyForTheRest)
{
    forEachForm(form) {
        if (!form.grows) continue;
        TokenBytes all(form);
        std::vector<double> wanted, got(20000);
        for (int i = 0; i < 20000; ++i) wanted.push_back(i / 7.0);
        for (double value : wanted) all.r(value);
        /* in the binary form amidst a value, in the text behind one */
        const size_t rest = form.binary ? 1001 : all.bytes.size() - all.bytes.find('\n', all.bytes.size() / 2) - 1;
        writeInTwo(form, all.bytes, rest);
        const int before = testSlept();
        iopHd *fh = openTokens(form);
        iopGetRealF(fh, got.data(), (int) got.size());
        EXPECT_EQ(got, wanted);
        EXPECT_EQ(testSlept(), before + 1);
        iopCloseFile(fh);
    }
}

TEST(iopTokens, stringThatComesInTwo)
{
    forEachForm(form) {
        if (!form.binary) continue;
        TokenBytes all(form);
        all.s("a-rather-long-string");
        writeInTwo(form, all.bytes, 11);
        iopHd *fh = openTokens(form);
        char text[SYS_TEXT];
        const int64_t start = iopGetLoc(fh);
        EXPECT_EQ(iopGetIfStr(fh, text), 0);
        EXPECT_EQ(iopGetLoc(fh), start);
        iopGetStrF(fh, text);
        EXPECT_STREQ(text, "a-rather-long-string");
        iopCloseFile(fh);
    }
}

TEST(iopTokens, optionalReadsSeeAFileGrow)
{
    forEachForm(form) {
        if (!form.grows) continue;
        TokenBytes head(form);
        head.s("a").write();
        iopHd *fh = openTokens(form);
        char text[SYS_TEXT];
        iopCheckStr(fh, "a");
        EXPECT_EQ(iopGetIfStr(fh, text), 0);
        head.s("b").write();
        EXPECT_EQ(iopGetIfStr(fh, text), 1);
        EXPECT_STREQ(text, "b");
        EXPECT_EQ(testSlept(), 0);
        iopCloseFile(fh);
    }
}

/* ---- what must stand there ---- */

TEST(iopTokens, mistakenKeyFailsOnTheSecondTry)
{
    forEachForm(form) {
        TokenBytes(form).s("one").s("vel").i(1).write();
        const int before = testSlept();
        iopHd *fh = openTokens(form);
        iopCheckStr(fh, "one");
        checkFails(std::string("data out of order: expected <temp> found <vel> in ") +
                   form.kind + " file <" + form.file + "> token <2> near <vel>",
                   iopCheckStr(fh, "temp"));
        EXPECT_EQ(testSlept(), before + 1);
        iopCloseFile(fh);
    }
}

static std::string rightBytes;

TEST(iopTokens, secondTryReadsTheFileAnew)
{
    forEachForm(form) {
        rightBytes = TokenBytes(form).s("one").s("key").i(4).bytes;
        testedForm = &form;
        TokenBytes(form).s("one").s("kez").i(4).write();
        testWhenSleeping([] { writeBytes(*testedForm, rightBytes); });
        iopHd *fh = openTokens(form);
        int value = 0;
        iopCheckStr(fh, "one");
        iopCheckStr(fh, "key");
        iopGetIntF(fh, &value, 1);
        EXPECT_EQ(value, 4);
        EXPECT_EQ(fh->nTokens, 3);
        iopCloseFile(fh);
    }
}

TEST(iopTokens, longKeysAreCutInTheMessage)
{
    forEachForm(form) {
        TokenBytes(form).s(std::string(5000, 'k')).write();
        iopHd *fh = openTokens(form);
        checkFails("expected <a> found <" + std::string(1023, 'k') + "> in ", iopCheckStr(fh, "a"));
        iopCloseFile(fh);
    }
}

TEST(iopTokens, integerThatDiffers)
{
    forEachForm(form) {
        TokenBytes(form).i(3).i(-4).write();
        iopHd *fh = openTokens(form);
        iopCheckInt(fh, 3);
        checkFails(std::string("data out of order: expected <4> found <-4> in ") + form.kind +
                   " file <" + form.file + "> token <2> near <__NONE__>", iopCheckInt(fh, 4));
        EXPECT_EQ(testSlept(), 0);
        iopCloseFile(fh);
    }
}

/* ---- locations ---- */

TEST(iopTokens, locationsLeadBack)
{
    forEachForm(form) {
        TokenBytes all(form);
        for (int i = 0; i < 20000; ++i) all.i(1000 + i);
        all.write();
        iopHd *fh = openTokens(form);
        std::vector<int64_t> locs;
        int value;
        for (int i = 0; i < 20000; ++i) {
            locs.push_back(iopGetLoc(fh));
            iopGetIntF(fh, &value, 1);
        }
        for (int i : { 19999, 0, 1, 9000, 8999, 15000, 2 }) {
            iopSetLoc(fh, locs[i]);
            EXPECT_EQ(iopGetLoc(fh), locs[i]);
            iopGetIntF(fh, &value, 1);
            EXPECT_EQ(value, 1000 + i);
        }
        checkFails("Unable to set location <-1> <in ", iopSetLoc(fh, -1));
        iopSetLoc(fh, locs[5]);
        iopGetIntF(fh, &value, 1);
        EXPECT_EQ(value, 1005);
        iopCloseFile(fh);
    }
}

/* What fails behind a place says the same, whether all before it was read or the place was gone to */
TEST(iopTokens, placesLeadBackWithTheirCounters)
{
    forEachForm(form) {
        TokenBytes(form).s("a").i(5).s("b").i(6).s("c").write();
        int value;
        iopHd *fh = openTokens(form);
        iopGetKeyInt(fh, "a", &value);
        const int64_t loc = iopGetLoc(fh);
        const int nTokens = iopGetTokens(fh);
        EXPECT_EQ(nTokens, 2);
        iopGetKeyInt(fh, "b", &value);
        const std::string text = trapped([&] { iopGetIntF(fh, &value, 1), iopGetIntF(fh, &value, 1); });
        for (int i = 0; i < 2; ++i) {
            iopSetPlace(fh, loc, nTokens, "a");
            EXPECT_EQ(iopGetLoc(fh), loc);
            EXPECT_EQ(iopGetTokens(fh), 2);
            EXPECT_NE(std::string(iopFileInfo(fh)).find("token <2> near <a>"), std::string::npos);
            iopGetKeyInt(fh, "b", &value);
            EXPECT_EQ(value, 6);
            EXPECT_EQ(trapped([&] { iopGetIntF(fh, &value, 1), iopGetIntF(fh, &value, 1); }), text);
        }
        checkFails("Unable to set location <-1> <in ", iopSetPlace(fh, -1, 0, "a"));
        iopCloseFile(fh);
    }
}

/* ---- access ---- */

TEST(iopTokens, writtenFilesAreNotRead)
{
    for (int form : { IOP_ASCII, IOP_BINARY, IOP_COMPRESSED }) {
        iopHd *fh = iopOpenFile("w", form | IOP_WRITE);
        int i;
        double r;
        float f;
        char text[SYS_TEXT];
        checkFails("file <w> is not for reading", iopGetStrF(fh, text));
        checkFails("file <w> is not for reading", iopGetIfStr(fh, text));
        checkFails("file <w> is not for reading", iopGetIntF(fh, &i, 1));
        checkFails("file <w> is not for reading", iopGetRealF(fh, &r, 1));
        checkFails("file <w> is not for reading", iopGetFloatF(fh, &f, 1));
        checkFails("file <w> is not for reading", iopGetIntDsp(fh, 1));
        checkFails("file <w> is not for reading", iopGetBinInts(fh, &i, 1));
        checkFails("file <w> is not for reading", iopCheckStr(fh, "a"));
        checkFails("file <w> is not for reading", iopNeed(fh, 1, 'i'));
        checkFails("not a read file <w>", iopGetLine(fh, text, SYS_TEXT));
        iopCloseFile(fh);
    }
}

/* Whoever reads the message looks for what the program called, in any form */
TEST(iopTokens, failuresNameTheOperation)
{
    static char text[SYS_TEXT];
    static int ints[2];
    static double reals[2];
    static float floats[2];
    static iopHd *fh;
    static const struct { const char *function; void (*call)(); } rows[] = {
        { "iopGetStrF",         [] { iopGetStrF(fh, text); }                                },
        { "iopGetIntF",         [] { iopGetIntF(fh, ints, 2); }                             },
        { "iopGetRealF",        [] { iopGetRealF(fh, reals, 2); }                           },
        { "iopGetFloatF",       [] { iopGetFloatF(fh, floats, 2); }                         },
        { "iopGetIntF",         [] { iopGetIntF(fh, ints, -1); }                            },
        { "iopGetRealDsp",      [] { iopGetRealDsp(fh, -1); }                               },
        { "iopGetBinInts",      [] { iopGetBinInts(fh, ints, 2); }                          },
        { "iopGetBinReals",     [] { iopGetBinReals(fh, reals, 2); }                        },
        { "iopNeed",            [] { iopNeed(fh, 1000000000, 'r'); }                        },
        { "iopPutIntF",         [] { iopPutIntF(fh, ints, 1, 1, 0); }                       },
        { "iopPutBinInts",      [] { iopPutBinInts(fh, ints, 1); }                          },
        { "iopPrintLine",       [] { iopPrintLine(fh, "x"); }                               },
        { "iopSetLoc",          [] { iopSetLoc(fh, -1); }                                   },
        { "iopCheckInt",        [] { iopRewind(fh); iopCheckStr(fh, "v"); iopCheckInt(fh, 9); } },
        { "iopCheckStr",        [] { iopRewind(fh); iopGetKeyInt(fh, "w", ints); }          },
        { "iopReadSubInts",     [] { iopRewind(fh); iopReadSubInts(fh, "v", 1, 2, 1, 1, ints); } },
        { "iopReadSubReals",    [] { iopRewind(fh); iopReadSubReals(fh, "v", 1, 2, 1, 1, reals); } },
        { "iopGetRealsIndexed", [] { iopRewind(fh); iopGetRealsIndexed(fh, "v", 1, 2, ints, reals); } },
        { "iopAddRealsIndexed", [] { iopRewind(fh); iopAddRealsIndexed(fh, "v", 1, 2, ints, reals); } },
    };
    forEachForm(form) {
        TokenBytes(form).table("v", 1, 2).write();
        fh = openTokens(form);
        for (const auto &row : rows) {
            iopRewind(fh);
            iopCheckStr(fh, "v");
            iopGetIntDsp(fh, 2);                                        /* to the end */
            checkFails(std::string("in Function <") + row.function + ">", row.call());
        }
        iopCloseFile(fh);
    }
    checkFails("in Function <iopNew>", iopNew("f", IOP_READ));
    checkFails("in Function <iopNew>", iopOpenFile("f", IOP_READ));
    checkFails("in Function <iopCheckFile>", iopCheckFile("f", 0));
    checkFails("in Function <iopOpenFile>", iopOpenFile("f", IOP_REC | IOP_ASCII));
}

/* ---- what the rest of a file can hold ---- */

TEST(iopTokens, needIsExact)
{
    forEachForm(form) {
        if (form.opt == IOP_COMPRESSED) continue;           /* a bound only: see testIopZip.cpp */
        const int64_t start = (int64_t) strlen(form.tag);
        testWrite(form.onDisk, form.tag + std::string(48, '1'));
        iopHd *fh = openTokens(form);
        static const struct { char kind; int binary, ascii; } rows[] = {
            { 'i', 12, 24 }, { 'f', 12, 24 }, { 'r', 6, 24 }, { 's', 6, 24 },
        };
        for (const auto &row : rows) {
            const int64_t n = form.binary ? row.binary : row.ascii;
            checkReturns(iopNeed(fh, n, row.kind));
            checkReturns(iopNeed(fh, 0, row.kind));
            checkFails("EOF in ", iopNeed(fh, n + 1, row.kind));
            checkFails("EOF in ", iopNeed(fh, INT64_MAX / 2, row.kind));
            checkFails("EOF in ", iopNeed(fh, INT64_MAX, row.kind));
            checkFails("invalid count <-1>; in ", iopNeed(fh, -1, row.kind));
        }
        testWrite(form.onDisk, form.tag + std::string(47, '1'));
        checkReturns(iopNeed(fh, form.binary ? 11 : 24, 'i'));
        checkFails("EOF in ", iopNeed(fh, form.binary ? 12 : 25, 'i'));
        EXPECT_EQ(iopGetLoc(fh), start);
        iopSetLoc(fh, start + 40);
        checkReturns(iopNeed(fh, 1, 'i'));
        checkFails("EOF in ", iopNeed(fh, form.binary ? 2 : 5, 'i'));
        iopCloseFile(fh);
    }
}

TEST(iopTokens, needWaitsForTheWriter)
{
    forEachForm(form) {
        if (!form.grows) continue;
        writeInTwo(form, form.tag + std::string(400, '1'), 200);
        const int before = testSlept();
        iopHd *fh = openTokens(form);
        checkReturns(iopNeed(fh, form.binary ? 100 : 200, 'i'));
        EXPECT_EQ(testSlept(), before + 1);
        iopCloseFile(fh);
    }
}
