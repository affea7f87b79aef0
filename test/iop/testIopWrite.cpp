/* testIopWrite.cpp: what is written, byte for byte. */

#include <unistd.h>

#include <climits>
#include <numeric>

#include "base/cvt.h"
#include "iop/iopInt.h"
#include "test/commaLocale.h"
#include "test/iop/tokenBytes.h"

static std::string writtenInts(int opt, int n1, int n2, int wrap)
{
    std::vector<int> v((size_t) (n1 * n2) + 1);
    std::iota(v.begin(), v.end(), 1);
    iopHd *fh = iopOpenFile("w", opt | IOP_WRITE);
    iopPutIntF(fh, v.data(), n1, n2, wrap);
    EXPECT_EQ(fh->nTokens, n1 * n2);
    iopCloseFile(fh);
    if (opt & IOP_COMPRESSED) return uncompressed("w.Z");
    return testRead(opt & IOP_BINARY && !(opt & IOP_RAW) ? "w.B" : "w");
}

/* Values from `first`, each followed by a blank. */
static std::string blanked(int first, int last)
{
    std::string text;
    for (int i = first; i <= last; ++i) text += std::to_string(i) + " ";
    return text;
}

TEST(iopWrite, integersAsText)
{
    static const struct { int n1, n2, wrap; const char *text; } rows[] = {
        { 3, 2, 0, "1 2 3 4 5 6 " }, { 3, 2, 1, "1 2 3\n4 5 6\n" }, { 1, 3, 1, "1\n2\n3\n" },
        { 0, 3, 0, "" }, { 0, 3, 1, "" }, { 3, 0, 1, "" },
    };
    for (const auto &row : rows)
        for (int form : { IOP_ASCII, IOP_COMPRESSED })
            EXPECT_EQ(writtenInts(form, row.n1, row.n2, row.wrap), row.text);
}

TEST(iopWrite, wrappedRowsHaveLinesOfAHundred)
{
    for (int form : { IOP_ASCII, IOP_COMPRESSED }) {
        EXPECT_EQ(writtenInts(form, 250, 1, 0), blanked(1, 250));
        EXPECT_EQ(writtenInts(form, 250, 1, 1),
                  blanked(1, 100) + "\n" + blanked(101, 200) + "\n" + blanked(201, 249) + "250\n");
        EXPECT_EQ(writtenInts(form, 100, 2, 1), blanked(1, 99) + "100\n" + blanked(101, 199) + "200\n");
        EXPECT_EQ(writtenInts(form, 101, 1, 1), blanked(1, 100) + "\n101\n");
        EXPECT_EQ(writtenInts(form, 200, 1, 1), blanked(1, 100) + "\n" + blanked(101, 199) + "200\n");
    }
}

TEST(iopWrite, integersAsBytes)
{
    const std::string bytes("\1\0\0\0\2\0\0\0\3\0\0\0\4\0\0\0", 16);
    EXPECT_EQ(writtenInts(IOP_BINARY, 2, 2, 1), "QUENTA 1.0 2 4 6 8\n" + bytes);
    EXPECT_EQ(writtenInts(IOP_BINARY | IOP_RAW, 4, 1, 0), bytes);
}

TEST(iopWrite, whatIsWrittenReadsBack)
{
    std::vector<int> v(5000), got(5000);
    for (int i = 0; i < 5000; ++i) v[i] = i * 429496 - INT_MAX / 2;
    for (int form : { IOP_ASCII, IOP_BINARY, IOP_COMPRESSED }) {
        iopHd *fh = iopOpenFile("w", form | IOP_WRITE);
        iopPutIntF(fh, v.data(), 250, 20, 1);
        iopCloseFile(fh);
        fh = iopOpenFile("w", form | IOP_READ);
        iopGetIntF(fh, got.data(), 5000);
        EXPECT_EQ(got, v);
        char text[SYS_TEXT];
        EXPECT_EQ(iopGetIfStr(fh, text), 0);
        iopCloseFile(fh);
    }
}

TEST(iopWrite, bytesInTheFilesOrderAndTheSourceAsItWas)
{
    int v[] = { 0x01020304, -2 };
    iopHd *fh = iopOpenFile("w", IOP_BINARY | IOP_WRITE | IOP_RAW);
    iopPutBinInts(fh, v, 2);
    fh->fileInt = CVT_INT_BE;
    iopPutBinInts(fh, v, 2);
    EXPECT_EQ(v[0], 0x01020304);
    EXPECT_EQ(v[1], -2);
    EXPECT_EQ(fh->nTokens, 4);
    iopCloseFile(fh);
    EXPECT_EQ(testRead("w"), "\4\3\2\1\xfe\xff\xff\xff\1\2\3\4\xff\xff\xff\xfe");
}

TEST(iopWrite, bytesOnATextHandle)
{
    for (int form : { IOP_ASCII, IOP_COMPRESSED }) {
        int v[] = { 0x41424344 };
        iopHd *fh = iopOpenFile("w", form | IOP_WRITE);
        iopPrintLine(fh, "format %s", "binary");
        iopPutBinInts(fh, v, 1);
        iopCloseFile(fh);
        EXPECT_EQ(form == IOP_ASCII ? testRead("w") : uncompressed("w.Z"), "format binary\nDCBA");
    }
}

TEST(iopWrite, lines)
{
    iopHd *fh = iopOpenFile("w", IOP_ASCII | IOP_WRITE);
    iopPrintLine(fh, "%s %d %.2f%%", "a", 5, 1.5);
    iopPrintLine(fh, "%s", "");
    iopPrintLine(fh, "%s", std::string(20000, 'x').c_str());
    EXPECT_EQ(fh->nTokens, 3);
    EXPECT_EQ(iopGetLoc(fh), 10 + 1 + 20001 + 1 - 1);
    iopCloseFile(fh);
    EXPECT_EQ(testRead("w"), "a 5 1.50%\n\n" + std::string(20000, 'x') + "\n");
}

TEST(iopWrite, linesAreForTextThatIsWritten)
{
    testWrite("r", "");
    iopHd *fh = iopOpenFile("r", IOP_ASCII | IOP_READ);
    checkFails("incompatible mode for file <r>", iopPrintLine(fh, "%d", 1));
    iopCloseFile(fh);
    fh = iopOpenFile("b", IOP_BINARY | IOP_WRITE);
    checkFails("incompatible mode for file <b>", iopPrintLine(fh, "%d", 1));
    iopCloseFile(fh);
    fh = iopOpenFile("r", IOP_ASCII | IOP_READ | IOP_WRITE);
    checkFails("unable to write to in ascii file <r> token <0> near <__NONE__> format <line %d>",
               iopPrintLine(fh, "line %d", 1));
    iopCloseFile(fh);
}

TEST(iopWrite, onlyWritableHandles)
{
    int v[4] = { 1, 2, 3, 4 };
    for (int form : { IOP_ASCII, IOP_BINARY, IOP_COMPRESSED }) {
        testWrite("r", "");
        testWrite("r.B", "QUENTA 1 2 4 6 8\n");
        testWrite("r.Z", compressedBytes(""));
        iopHd *fh = iopOpenFile("r", form | IOP_READ);
        checkFails("file <r> is not for writing", iopPutIntF(fh, v, 2, 2, 0));
        checkFails("file <r> is not for writing", iopPutBinInts(fh, v, 2));
        iopCloseFile(fh);
        fh = iopOpenFile("r", form | IOP_READ | IOP_WRITE);
        checkFails("unable to write <4> integers " + std::string(iopFileInfo(fh)), iopPutIntF(fh, v, 2, 2, 0));
        checkFails("unable to write <2> integers in ", iopPutBinInts(fh, v, 2));
        iopCloseFile(fh);
    }
}

TEST(iopWrite, absurdCounts)
{
    static int v[4];
    for (int form : { IOP_ASCII, IOP_BINARY, IOP_COMPRESSED }) {
        iopHd *fh = iopOpenFile("w", form | IOP_WRITE);
        checkFails("invalid count <-1>; in ", iopPutIntF(fh, v, -1, 2, 0));
        checkFails("invalid count <-1>; in ", iopPutIntF(fh, v, 2, -1, 0));
        checkFails("invalid count <-1>; in ", iopPutBinInts(fh, v, -1));
        checkFails("too many values <65536> x <65536>; in ", iopPutIntF(fh, v, 65536, 65536, 0));
        checkFails("too many values <2147483647> x <2147483647>; in ", iopPutIntF(fh, v, INT_MAX, INT_MAX, 0));
        EXPECT_EQ(fh->nTokens, 0);
        iopCloseFile(fh);
    }
}

TEST(iopWrite, locationsOfAFileBeingWritten)
{
    int v[] = { 1, 2 };
    iopHd *fh = iopOpenFile("w", IOP_BINARY | IOP_WRITE);
    const int64_t start = iopGetLoc(fh);
    EXPECT_EQ(start, 19);
    EXPECT_EQ(fh->dataStart, 19);
    iopPutBinInts(fh, v, 2);
    EXPECT_EQ(iopGetLoc(fh), start + 8);
    iopSetLoc(fh, start);
    iopPutBinInts(fh, v + 1, 1);
    iopRewind(fh);
    EXPECT_EQ(iopGetLoc(fh), start);
    checkFails("Unable to set location <-3> <in binary file <w> token <0> near <__NONE__>>", iopSetLoc(fh, -3));
    iopCloseFile(fh);
    EXPECT_EQ(testRead("w.B"), "QUENTA 1.0 2 4 6 8\n" + std::string("\2\0\0\0\2\0\0\0", 8));
    testWrite("a", "12345");
    fh = iopOpenFile("a", IOP_ASCII | IOP_WRITE | IOP_APPEND);
    EXPECT_EQ(fh->dataStart, 5);
    iopCloseFile(fh);
}

/* A full disk: what stdio held back does not get through at close. */
TEST(iopWrite, bytesThatDoNotReachTheDiskFailAtClose)
{
    int v[] = { 1 };
    iopHd *fh = iopOpenFile("/dev/full", IOP_ASCII | IOP_WRITE);
    iopPutIntF(fh, v, 1, 1, 0);
    checkFails("unable to write file </dev/full>; No space left on device", iopCloseFile(fh));
    fh = iopOpenFile("/dev/full", IOP_BINARY | IOP_WRITE | IOP_RAW | IOP_NO_BUFFER);
    checkFails("unable to write <1> integers in binary file </dev/full> token <0>", iopPutBinInts(fh, v, 1));
    iopCloseFile(fh);
    fh = iopOpenFile("/dev/full", IOP_ASCII | IOP_WRITE | IOP_NO_BUFFER);
    checkFails("unable to write to in ascii file </dev/full> token <0> near <__NONE__> format <x>",
               iopPrintLine(fh, "x"));
    iopCloseFile(fh);
}

TEST(iopWrite, theTagsVersionIsOneWord)
{
    static const struct { const char *version, *word; } rows[] = {
        { "", "_" }, { "2 beta\n1", "2_beta_1" }, { " ", "_" }, { "7.1", "7.1" },
    };
    const std::string before = sysGetVersion();
    for (const auto &row : rows) {
        int v = 5;
        sysSetVersion(row.version);
        iopHd *fh = iopOpenFile("w", IOP_BINARY | IOP_WRITE);
        iopPutIntF(fh, &v, 1, 1, 0);
        iopCloseFile(fh);
        EXPECT_EQ(testRead("w.B"), "QUENTA " + std::string(row.word) + std::string(" 2 4 6 8\n\5\0\0\0", 13));
        fh = iopOpenFile("w", IOP_BINARY | IOP_READ);
        v = 0;
        iopGetIntF(fh, &v, 1);
        EXPECT_EQ(v, 5);
        iopCloseFile(fh);
    }
    sysSetVersion(before.c_str());
}

TEST(iopWrite, aTagThatDoesNotReachTheDiskFails)
{
    ASSERT_EQ(symlink("/dev/full", "full.B"), 0);
    checkFails("unable to write the tag in binary file <full>", iopOpenFile("full", IOP_BINARY | IOP_WRITE));
}

TEST(iopWrite, linesHaveADecimalPointInAnyHostLanguage)
{
    useCommaLocale();
    iopHd *fh = iopOpenFile("w", IOP_ASCII | IOP_WRITE);
    iopPrintLine(fh, "%.2f", 1.5);
    iopCloseFile(fh);
    EXPECT_EQ(testRead("w"), "1.50\n");
}

TEST(iopWrite, valuesInManyPieces)
{
    std::vector<int> v(1000), got(1000);
    std::iota(v.begin(), v.end(), 7);
    const int64_t before = iopBinSlice;
    for (int64_t slice : { 1, 7, 999, 1000, 1001 }) {
        iopBinSlice = slice;
        iopHd *fh = iopOpenFile("w", IOP_BINARY | IOP_WRITE | IOP_RAW);
        iopPutBinInts(fh, v.data(), 1000);
        iopCloseFile(fh);
        fh = iopOpenFile("w", IOP_BINARY | IOP_READ | IOP_RAW);
        iopGetIntF(fh, got.data(), 1000);
        EXPECT_EQ(got, v);
        iopRewind(fh);
        fh->fileInt = CVT_INT_BE;
        iopGetIntF(fh, got.data(), 1000);
        cvtConvInts(got.data(), got.data(), CVT_INT_BE, fh->nativeInt, 1000);
        EXPECT_EQ(got, v);
        iopCloseFile(fh);
    }
    iopBinSlice = before;
}

TEST(iopWrite, stepsBeyondAnyLocationFail)
{
    testWrite("b.B", "QUENTA 1 2 4 6 8\n1234567812345678");
    iopHd *fh = iopOpenFile("b", IOP_BINARY | IOP_READ);
    checkFails("fseek error in binary file <b>", iopSkipNums(fh, &iopReals, (INT64_C(1) << 61) + 1));
    iopCloseFile(fh);
}
