/* testIopDamaged.cpp: files that are cut or corrupted are refused in order, and a tag is what it must be. */

#include <fcntl.h>
#include <unistd.h>

#include <climits>

#include "iop/iopInt.h"
#include "test/iop/tokenBytes.h"

/* ---- the tag ---- */

TEST(iopDamaged, tags)
{
    const std::string diagnostic = "; in binary file <t> token <0> near <__NONE__>";
    static const struct { const char *bytes, *text; int slept; } rows[] = {
        { "",                              "Invalid binary tag <>",                        2 },
        { "QUENT",                         "Invalid binary tag <QUENT>",                   2 },
        { "QUENTA",                        "Invalid binary tag <QUENTA>",                  2 },
        { "QUENTA 1.0 2 4 6 8",            "Invalid binary tag <QUENTA 1.0 2 4 6 8>",      2 },
        { "quenta 1.0 2 4 6 8\n",          "Invalid binary tag <quenta>",                  0 },
        { "QUENTB 1.0 2 4 6 8\n",          "Invalid binary tag <QUENTB>",                  0 },
        { "nNodes 5\n",                    "Invalid binary tag <nNodes>",                  0 },
        { "QUENTA1.0 2 4 6 8\n",           "Invalid binary tag <QUENTA1.0 2 4 6 8>",       0 },
        { "QUENTA\n",                      "Invalid binary tag <QUENTA>",                  0 },
        { "QUENTA \n",                     "Invalid binary tag <QUENTA >",                 0 },
        { "QUENTA 1.0\n",                  "Invalid binary tag <QUENTA 1.0>",              0 },
        { "QUENTA 1.0 2 4 6\n",            "Invalid binary tag <QUENTA 1.0 2 4 6>",        0 },
        { "QUENTA 1.0 2 4 6 x\n",          "Invalid binary tag <QUENTA 1.0 2 4 6 x>",      0 },
        { "QUENTA 1.0 2 4 6 8 9\n",        "Invalid binary tag <QUENTA 1.0 2 4 6 8 9>",    0 },
        { "QUENTA 1.0 2 4 6 8x\n",         "Invalid binary tag <QUENTA 1.0 2 4 6 8x>",     0 },
        { "QUENTA 2 4 6 8\n",              "Invalid binary tag <QUENTA 2 4 6 8>",          0 },
        { "QUENTA 1.0 2 4 6 99999999999\n", "Invalid binary tag <QUENTA 1.0 2 4 6 99999999999>", 0 },
        { "QUENTA 1.0 99999999999999999999 4 6 8\n", "Invalid binary tag <QUENTA 1.0 99999999999999999999 4 6 8>", 0 },
    };
    for (const auto &row : rows) {
        const int before = testSlept();
        testWrite("t.B", row.bytes);
        checkFails(row.text + diagnostic, iopOpenFile("t", IOP_BINARY | IOP_READ));
        EXPECT_EQ(testSlept() - before, row.slept) << row.bytes;
    }
}

TEST(iopDamaged, tagsWithOtherSizes)
{
    static const struct { const char *bytes, *text; } rows[] = {
        { "QUENTA 1.0 2 8 6 8\n",          "Incompatible integers <8> vs. <4>"          },
        { "QUENTA 1.0 2 0 6 8\n",          "Incompatible integers <0> vs. <4>"          },
        { "QUENTA 1.0 2 -4 6 16\n",        "Incompatible integers <-4> vs. <4>"         },
        { "QUENTA 1.0 2 4 6 4\n",          "Incompatible reals <4> vs. <8>"             },
        { "QUENTA 1.0 1 4 5 2147483647\n", "Incompatible reals <2147483647> vs. <8>"    },
    };
    for (const auto &row : rows) {
        testWrite("t.B", row.bytes);
        checkFails(row.text, iopOpenFile("t", IOP_BINARY | IOP_READ));
    }
    EXPECT_EQ(testSlept(), 0);
}

TEST(iopDamaged, longTags)
{
    static const struct { size_t length; bool fits; } rows[] = { { 8191, true }, { 8300, false }, { 1000000, false } };
    for (const auto &row : rows) {
        testWrite("t.B", "QUENTA " + std::string(row.length, 'v') + " 2 4 6 8\nkey" + std::string(5, '\0'));
        if (row.fits) {
            iopHd *fh = iopOpenFile("t", IOP_BINARY | IOP_READ);
            checkReturns(iopCheckStr(fh, "key"));
            iopCloseFile(fh);
        } else {
            checkFails("Invalid binary tag <QUENTA vvvv", iopOpenFile("t", IOP_BINARY | IOP_READ));
            checkFails("vvvv>; in binary file <t> token <0>", iopOpenFile("t", IOP_BINARY | IOP_READ));
        }
    }
    EXPECT_EQ(testSlept(), 0);
}

TEST(iopDamaged, zeroBytesInATag)
{
    testWrite("t.B", std::string("QUENTA 1.0 2 4 6 8\0 9\n", 22));
    checkFails("Invalid binary tag <QUENTA 1.0 2 4 6 8>; ", iopOpenFile("t", IOP_BINARY | IOP_READ));
    testWrite("t.B", std::string(100, '\0'));
    checkFails("Invalid binary tag <>; ", iopOpenFile("t", IOP_BINARY | IOP_READ));
}

/* ---- strings ---- */

TEST(iopDamaged, binaryStringsAreBounded)
{
    static const struct { size_t length; bool fits; } rows[] = {
        { 8191, true }, { 8184, true }, { 8192, false }, { 100000, false },
    };
    for (const auto &row : rows) {
        char text[SYS_TEXT];
        TokenBytes(tokenForms[1]).s(std::string(row.length, 's')).s("end").write();
        iopHd *fh = openTokens(tokenForms[1]);
        if (row.fits) {
            checkReturns(iopGetStrF(fh, text));
            EXPECT_EQ(strlen(text), row.length);
            EXPECT_EQ(fh->lastToken, std::string(1023, 's'));
            checkReturns(iopCheckStr(fh, "end"));
        } else {
            checkFails("string too big <8192>", iopGetStrF(fh, text));
            iopRewind(fh);
            checkFails("string too big <8192>", iopGetIfStr(fh, text));
        }
        iopCloseFile(fh);
    }
}

/* ---- cut and corrupted files ---- */

static TokenBytes goodFile(const TokenForm &form)
{
    TokenBytes all(form);
    all.s("name").s(form.binary ? "a duct" : "\"a duct\"").s("nNodes").i(2).s("nOld").i(3)
        .table("cnn", 2, 2).i(0).i(1).i(1).i(0).table("skipped", 3, 2).r(1).r(2).r(3).r(4).r(5).r(6)
        .table("crd", 3, 2).r(0).r(0.5).r(1).r(1.5).r(2).r(2.5)
        .table("sub", 2, 3).i(1).i(2).i(3).i(4).i(5).i(6).table("part", 1, 2).r(7.5).r(8.5).f(0.25f).s("end");
    return all;
}

static iopHd *reading;                      /* to be closed after a failure */

/* Reads what goodFile writes; as a reader would, it asks before it allocates what a file's count says. */
static void readAll(const TokenForm &form)
{
    static char text[SYS_TEXT];
    static int cnn[4], sub[4];
    static double crd[6], part[2];
    static float f;
    static const int idx[] = { 1, 0 };
    int nNodes = 0, nNew = 0, nOld = 0;
    reading = openTokens(form);
    iopGetKeyStr(reading, "name", text);
    iopGetKeyInt(reading, "nNodes", &nNodes);
    iopNeed(reading, nNodes, 'i');
    iopGetOptKeyInt(reading, "nNew", &nNew);
    iopGetOptKeyInt(reading, "nOld", &nOld);
    iopGetKeyInts(reading, "cnn", 2, 2, cnn);
    iopSkipReals(reading, "skipped");
    iopGetKeyReals(reading, "crd", 3, 2, crd);
    iopReadSubInts(reading, "sub", 2, 3, 1, 2, sub);
    iopGetRealsIndexed(reading, "part", 1, 2, idx, part);
    iopGetFloatF(reading, &f, 1);
    iopCheckStr(reading, "end");
}

static void closeReading()
{
    if (reading) iopCloseFile(reading);
    reading = nullptr;
}

static bool isOrderly(const std::string &failure)
{
    static const char *const texts[] = {
        "EOF in ", "data out of order: expected <", "Invalid binary tag <", "Incompatible integers <",
        "Incompatible reals <", "Invalid srcType <", "invalid table of <", "invalid count <", "string too big <",
    };
    for (const char *text : texts)
        if (failure.find(text) != std::string::npos) return true;
    return false;
}

TEST(iopDamaged, cutAtEveryByte)
{
    forEachForm(form) {
        const std::string good = goodFile(form).bytes;
        writeBytes(form, good);
        checkReturns(readAll(form));
        closeReading();
        for (size_t n = 0; n < good.size(); ++n) {
            remove(form.onDisk);
            writeBytes(form, good.substr(0, n));
            const std::string failure = trapped([&] { readAll(form); });
            closeReading();
            /* a text that lacks only its last newline is whole */
            const bool whole = !form.binary && n == good.size() - 1;
            EXPECT_EQ(failure == "", whole) << "cut at " << n << ": " << failure;
            EXPECT_EQ(isOrderly(failure), !whole) << "cut at " << n << ": " << failure;
        }
    }
}

TEST(iopDamaged, everyByteCorrupted)
{
    forEachForm(form) {
        if (form.opt == IOP_COMPRESSED) continue;           /* text as in the ascii form: damage below the text */
        const std::string good = goodFile(form).bytes;
        for (size_t n = 0; n < good.size(); ++n) {
            for (char c : { '\0', '\xff', '\x7f', '-', '9', '"', ' ', '\n' }) {
                std::string bad = good;
                bad[n] = c;
                remove(form.onDisk);
                testWrite(form.onDisk, bad);
                const std::string failure = trapped([&] { readAll(form); });
                closeReading();
                EXPECT_TRUE(failure == "" || isOrderly(failure)) << n << " is " << (int) c << ": " << failure;
            }
        }
    }
}

/* What the program makes of it is up to the program; it complains on standard error */
TEST(iopDamaged, compressedFilesCutOrCorruptedAtEveryByte)
{
    const TokenForm &form = tokenForms[3];
    ASSERT_EQ(form.opt, IOP_COMPRESSED);
    const std::string good = compressedBytes(goodFile(form).bytes);
    const int kept = dup(2), null = open("/dev/null", O_WRONLY);
    dup2(null, 2);
    for (size_t n = 0; n < good.size(); ++n) {
        std::string flipped = good, filled = good;
        flipped[n] = (char) (flipped[n] ^ 1);
        filled[n] = '\xff';
        for (const std::string &bad : { good.substr(0, n), flipped, filled }) {
            if (bad == good) continue;
            testWrite(form.onDisk, bad);
            const std::string failure = trapped([&] { readAll(form); });
            closeReading();
            EXPECT_TRUE(failure == "" || isOrderly(failure)) << n << ": " << failure;
            EXPECT_TRUE(failure != "" || bad.size() == good.size() || n == good.size() - 1) << "cut at " << n;
        }
    }
    dup2(kept, 2);
    close(kept);
    close(null);
}

TEST(iopDamaged, everyCountAbsurd)
{
    static const int absurd[] = { -1, INT_MIN, INT_MAX, 65536, 1431655766 };
    forEachForm(form) {
        if (!form.binary) continue;
        const std::string good = goodFile(form).bytes;
        for (size_t n = strlen(form.tag); n + 4 <= good.size(); n += 4) {
            for (int value : absurd) {
                std::string bad = good;
                TokenBytes number(form);
                bad.replace(n, 4, number.i(value).bytes.substr(strlen(form.tag)));
                remove(form.onDisk);
                testWrite(form.onDisk, bad);
                const std::string failure = trapped([&] { readAll(form); });
                closeReading();
                EXPECT_TRUE(failure == "" || isOrderly(failure)) << "at " << n << " " << value << ": " << failure;
            }
        }
    }
}
