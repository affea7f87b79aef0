/* testIopTorn.cpp: a text that its writer has not finished. What reaches to the end of the data may be the head of a
 * longer token: it is never taken for the whole without a second look, wherever the file happens to end. */

#include <cmath>

#include "iop/iopInt.h"
#include "test/iop/tokenBytes.h"

/* The writer: at each wait it goes on by a number of bytes, in a text or in a compressed one. */
static struct { const char *name; bool zip; std::string all; size_t done, step; } writer;

static void writeSome()
{
    writer.done = std::min(writer.all.size(), writer.done + writer.step);
    const std::string some = writer.all.substr(0, writer.done);
    if (writer.zip) writeCompressed(writer.name, some);
    else testWrite(writer.name, some);
}

/* The file holds the first `done` bytes; each second of waiting adds `step`, 0 for a writer that has ended. */
static iopHd *openTorn(const std::string &all, size_t done, size_t step, int opt = IOP_ASCII)
{
    writer = { opt & IOP_COMPRESSED ? "t.Z" : "t", (opt & IOP_COMPRESSED) != 0, all, 0, done };
    remove(writer.name);
    writeSome();
    writer.step = step;
    testWhenSleeping(writeSome);
    return iopOpenFile("t", opt | IOP_READ);
}

static const std::string tokens = "12 -3.5e+07 velocity 0x1Fp3 nan\n\"two words\"\n 1.25 infinity -2147483648 77.5 x\n";

/* Every kind of token, read or stepped over; true if each is what was written. */
static void readTokens(iopHd *fh)
{
    char   text[SYS_TEXT];
    int    i = 0;
    double r = 0;
    float  f = 0;
    iopGetIntF(fh, &i, 1);
    EXPECT_EQ(i, 12);
    iopGetRealF(fh, &r, 1);
    EXPECT_EQ(r, -3.5e7);
    EXPECT_EQ(iopGetIfStr(fh, text), 1);
    EXPECT_STREQ(text, "velocity");
    iopGetFloatF(fh, &f, 1);
    EXPECT_EQ(f, 248);
    iopGetRealF(fh, &r, 1);
    EXPECT_TRUE(std::isnan(r));
    iopGetStrF(fh, text);
    EXPECT_STREQ(text, "two words");
    iopGetFloatDsp(fh, 1);
    iopGetRealDsp(fh, 1);
    iopGetIntDsp(fh, 1);
    iopGetRealF(fh, &r, 1);
    EXPECT_EQ(r, 77.5);
    iopCheckStr(fh, "x");
}

/* Ends that fall before an optional token leave nothing to wait for: that it is not there is told at once. */
static bool endsBeforeOptional(size_t done)
{
    const size_t at = tokens.find("velocity");
    return done >= at - 1 && done <= at;
}

static const struct { const char *name; int opt; } texts[] = {
    { "ascii", IOP_ASCII }, { "compressed", IOP_COMPRESSED },
};

TEST(iopTorn, aTokenCutAnywhereIsReadWhole)
{
    for (size_t done = 1; done <= tokens.size(); ++done) {
        if (endsBeforeOptional(done)) continue;
        SCOPED_TRACE(tokens.substr(0, done));
        const int before = testSlept();
        iopHd *fh = openTorn(tokens, done, tokens.size());
        checkReturns(readTokens(fh));
        EXPECT_EQ(fh->nTokens, 11);
        EXPECT_EQ(testSlept() - before, done < tokens.size());
        iopCloseFile(fh);
    }
}

TEST(iopTorn, aTokenThatComesByteByByteIsReadWhole)
{
    iopHd *fh = openTorn(tokens, 1, 1, IOP_ASCII | IOP_LONG_WAIT);
    checkReturns({
        while (writer.done < tokens.find("velocity") + 1) writeSome();      /* an optional one is not waited for */
        readTokens(fh);
    });
    iopCloseFile(fh);
}

/* The budget is that of one read: a token that still goes on when it is used up is not taken for what it is by then. */
TEST(iopTorn, aTokenThatDoesNotEndFails)
{
    static const struct { const char *all; void (*get)(iopHd *fh); } rows[] = {
        { "1234567890",  [](iopHd *fh) { int i;    iopGetIntF(fh, &i, 1);   } },
        { "1.234567890", [](iopHd *fh) { double r; iopGetRealF(fh, &r, 1);  } },
        { "1.234567890", [](iopHd *fh) { float f;  iopGetFloatF(fh, &f, 1); } },
        { "1.234567890", [](iopHd *fh) { iopGetRealDsp(fh, 1);              } },
        { "abcdefghijk", [](iopHd *fh) { char s[SYS_TEXT]; iopGetStrF(fh, s);           } },
        { "abcdefghijk", [](iopHd *fh) { char s[SYS_TEXT]; iopGetIfStr(fh, s);          } },
        { "abcdefghijk", [](iopHd *fh) { char s[SYS_TEXT]; iopGetLine(fh, s, SYS_TEXT); } },
    };
    for (const auto &row : rows) {
        const int before = testSlept();
        iopHd *fh = openTorn(row.all, 3, 1);
        checkFails("EOF in ascii file <t> token <0> near <__NONE__>", row.get(fh));
        EXPECT_EQ(testSlept() - before, 2) << row.all;
        iopCloseFile(fh);
    }
}

TEST(iopTorn, aFileWithoutItsLastNewlineWaitsOnce)
{
    for (const auto &form : texts) {
        SCOPED_TRACE(form.name);
        const int before = testSlept();
        iopHd *fh = openTorn("5 word 1.25", 11, 0, form.opt);
        for (int round = 0; round < 3; ++round) {
            char   text[SYS_TEXT];
            int    i = 0;
            double r = 0;
            iopGetIntF(fh, &i, 1);
            iopGetStrF(fh, text);
            iopGetRealF(fh, &r, 1);
            EXPECT_EQ(r, 1.25);
            EXPECT_EQ(fh->nTokens, 3);
            EXPECT_EQ(iopGetIfStr(fh, text), 0);
            iopRewind(fh);
        }
        EXPECT_EQ(testSlept() - before, 1);
        iopCloseFile(fh);
    }
}

/* The file behind the pipe grew: the program is started anew. Where not even a number's first digit had come, or no
   token at all, the data have ended, and the pipe stays as it is. */
TEST(iopTorn, aCompressedTokenIsReadAnewToo)
{
    int nRead = 0;
    for (size_t done = 1; done < tokens.size(); ++done) {
        if (endsBeforeOptional(done)) continue;
        SCOPED_TRACE(tokens.substr(0, done));
        iopHd *fh = openTorn(tokens, done, tokens.size(), IOP_COMPRESSED);
        const std::string failure = trapped([&] { readTokens(fh); });
        EXPECT_TRUE(failure == "" || failure.find("EOF in compressed file <t> ") != std::string::npos) << failure;
        EXPECT_TRUE(failure != "" || fh->nTokens == 11);
        nRead += failure == "";
        iopCloseFile(fh);
    }
    EXPECT_GT(nRead, (int) tokens.size() / 2);
}

TEST(iopTorn, aFileThatIsCutShorterMeanwhileFails)
{
    for (const auto &form : texts) {
        int i;
        iopHd *fh = openTorn("1 2 34", 6, 0, form.opt);
        writer.all = "1 ";
        checkFails("EOF in ", iopGetIntF(fh, &i, 1); iopGetIntF(fh, &i, 1); iopGetIntF(fh, &i, 1));
        iopCloseFile(fh);
    }
}

/* Arrays are read in pieces; the end of the file may fall into any of them, and on their borders. */
TEST(iopTorn, arraysCutAnywhereAreReadWhole)
{
    enum { N = 20000 };
    static double values[N], wanted[N];
    static int    idx[N];
    std::string   all = "vel 1 20000\n";
    for (int i = 0; i < N; ++i) {
        wanted[i] = 1000 + i / 8.0;
        idx[i] = N - 1 - i;
        char number[32];
        all += std::string(number, (size_t) snprintf(number, sizeof number, "%.3f ", wanted[i]));
    }
    all.back() = '\n';
    static const size_t borders[] = { 40, 65536, 2 * 65536, 100000 };
    for (size_t border : borders)
        for (size_t done = border - 12; done < border + 12; ++done)
            for (int add = 0; add < 2; ++add) {
                SCOPED_TRACE(done);
                iopHd *fh = openTorn(all, done, all.size());
                memset(values, 0, sizeof values);
                if (add) checkReturns(iopAddRealsIndexed(fh, "vel", 1, N, idx, values));
                else checkReturns(iopGetRealsIndexed(fh, "vel", 1, N, idx, values));
                int wrong = 0;
                for (int i = 0; i < N; ++i) wrong += values[idx[i]] != wanted[i];
                EXPECT_EQ(wrong, 0);
                iopCloseFile(fh);
            }
}

TEST(iopTorn, linesCutAnywhereAreReadWhole)
{
    const std::string all = "#@ NSDS 12\r\n#@ CRD file nNodes 345\n";
    for (size_t done = 1; done <= all.size(); ++done) {
        if (done == all.find('\n') + 1) continue;       /* no line is the end of the data, and told at once */
        SCOPED_TRACE(all.substr(0, done));
        char text[100];
        const int before = testSlept();
        iopHd *fh = openTorn(all, done, all.size());
        EXPECT_EQ(iopGetLine(fh, text, 100), 1);
        EXPECT_STREQ(text, "#@ NSDS 12");
        EXPECT_EQ(iopGetLine(fh, text, 100), 1);
        EXPECT_STREQ(text, "#@ CRD file nNodes 345");
        EXPECT_EQ(iopGetLine(fh, text, 100), 0);
        EXPECT_EQ(fh->nTokens, 2);
        EXPECT_EQ(testSlept() - before, done < all.size());
        iopCloseFile(fh);
    }
}

TEST(iopTorn, aLineThatFillsItsBufferIsNotCut)
{
    char text[6];
    iopHd *fh = openTorn("12345678", 5, 3);
    checkFails("Buffer overflow <6>; ", iopGetLine(fh, text, 6));
    EXPECT_EQ(testSlept(), 0);
    iopCloseFile(fh);
}

/* The head of the right key is no key, and a longer word that begins like it is another one. */
TEST(iopTorn, keysAreCheckedWhole)
{
    iopHd *fh = openTorn("vel\n", 2, 2);
    checkReturns(iopCheckStr(fh, "vel"));
    EXPECT_EQ(fh->nTokens, 1);
    EXPECT_EQ(testSlept(), 1);
    iopCloseFile(fh);
    fh = openTorn("velocity\n", 3, 6);
    checkFails("expected <vel> found <velocity> in ascii file <t> token <1>", iopCheckStr(fh, "vel"));
    iopCloseFile(fh);
    fh = openTorn("nFilms 3\nend\n", 6, 7);
    int n = 0;
    iopGetOptKeyInt(fh, "nFilm", &n);
    EXPECT_EQ(iopGetLoc(fh), 0);
    iopGetOptKeyInt(fh, "nFilms", &n);
    EXPECT_EQ(n, 3);
    iopCloseFile(fh);
}

/* The second look at a word that is not the right one is that at the end of the data. */
TEST(iopTorn, aMistakenKeyAtTheEndTakesOneSecond)
{
    iopHd *fh = openTorn("temp", 4, 0);
    checkFails("data out of order: expected <vel> found <temp> in ascii file <t> token <1>", iopCheckStr(fh, "vel"));
    EXPECT_EQ(testSlept(), 1);
    iopRewind(fh);
    checkFails("data out of order: expected <vel> found <temp> in ascii file <t> token <1>", iopCheckStr(fh, "vel"));
    EXPECT_EQ(testSlept(), 2);
    iopCloseFile(fh);
}
