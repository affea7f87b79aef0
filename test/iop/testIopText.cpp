/* testIopText.cpp: the ascii form's own rules: numbers and words as scanf reads them, quotes, lines. */

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>

#include "iop/iopInt.h"
#include "test/commaLocale.h"
#include "test/iop/tokenBytes.h"

static iopHd *openText(const std::string &text)
{
    remove("t");                            /* to write over a file is slow on some file systems */
    testWrite("t", text);
    return iopOpenFile("t", IOP_ASCII | IOP_READ);
}

/* ---- numbers: the same as scanf ---- */

enum Kind { INT, REAL, FLOAT, WORD };

struct Token {
    bool        came;
    std::string value;                      /* its bytes                        */
    long        behind;                     /* location behind it, if it came   */
    bool operator==(const Token &o) const
    {
        return came == o.came && (!came || (value == o.value && behind == o.behind));
    }
};

template <class T> static std::string rawBytes(const T &value)
{
    return std::string(reinterpret_cast<const char *>(&value), sizeof value);
}

static Token byScanf(FILE *fp, Kind kind)
{
    long long i = 0;
    double r = 0;
    float f = 0;
    static char word[100000];
    Token token{ false, "", 0 };
    switch (kind) {
    case INT:   /* beyond 32 bits: refused */
        token.came = fscanf(fp, "%lld", &i) == 1 && i == (int) i;
        token.value = rawBytes((int) i);
        break;
    case REAL:  token.came = fscanf(fp, "%le", &r) == 1; token.value = rawBytes(r); break;
    case FLOAT: token.came = fscanf(fp, "%e", &f) == 1;  token.value = rawBytes(f); break;
    case WORD:  token.came = fscanf(fp, "%s", word) == 1; token.value = word; break;
    }
    token.behind = ftell(fp);
    return token;
}

static Token byIop(iopHd *fh, Kind kind)
{
    static int i;
    static double r;
    static float f;
    static char word[SYS_TEXT];
    Token token{ true, "", 0 };
    switch (kind) {
    case INT:   token.came = trapped([&] { iopGetIntF(fh, &i, 1); }) == "";   token.value = rawBytes(i); break;
    case REAL:  token.came = trapped([&] { iopGetRealF(fh, &r, 1); }) == "";  token.value = rawBytes(r); break;
    case FLOAT: token.came = trapped([&] { iopGetFloatF(fh, &f, 1); }) == ""; token.value = rawBytes(f); break;
    case WORD:  token.came = iopGetIfStr(fh, word) == 1;                      token.value = word; break;
    }
    token.behind = (long) iopGetLoc(fh);
    return token;
}

/* Reads a text to its end or its first token that does not come, both ways. */
static void sameAsScanf(const std::string &text, const std::vector<Kind> &kinds)
{
    iopHd *fh = openText(text);
    FILE *fp = fopen("t", "r");
    for (size_t k = 0;; ++k) {
        const Kind kind = kinds[k % kinds.size()];
        const Token a = byScanf(fp, kind), b = byIop(fh, kind);
        EXPECT_EQ(a, b) << "token " << k << " of kind " << kind << " of <" << text.substr(0, 300)
                        << ">: scanf " << a.came << " to " << a.behind << ", we " << b.came << " to " << b.behind;
        if (!a.came || !(a == b)) break;
    }
    fclose(fp);
    iopCloseFile(fh);
}

TEST(iopText, numbersAsScanfReadsThem)
{
    static const char *const texts[] = {
        "12abc", "12.5", "+7 -8", "- 5", "--5", "007", "0x10", "2147483648", "-2147483649", "4294967297",
        "9223372036854775807", "9223372036854775808", "-9223372036854775808", "99999999999999999999999999",
        "-99999999999999999999999999", "18446744073709551616", "1.5D+03", "1e", "1e+", "1e+5", "1E-3x", ".5", "5.", ".",
        "-.", "-.e5", ".e5", "1..2", "1.5.2", "1e5e6", "1e5.5", "nan", "NaN", "-nan", "nan(12)", "nano", "na", "inf",
        "-INF", "infinity", "InFiNiTyx", "infin", "infix", "in", "0x1p3", "0x1.8p-1", "0x", "0x.", "0x.8", "0xp3",
        "0x1p", "0x1p+", "0xg", "0X1F.8P2", "1e400", "-1e400", "1e-400", "4.9406564584124654e-324", "1e38", "3.5e38",
        "1e-45", "1.7976931348623157e308", "0.1", "123456789012345678901234567890", "9007199254740993", "1e22", "1e23",
        "8.5e22", "-0", "-0.0", "\v\f\r\t 5", "", "   \n ", "abc", "+", "-", "e5", "5e5e", "1,5", "1'000", "0", "00",
        "0.", "0e", "0e5", "0.e5", "1_", "5\0006", "0001e-0003", "1e00000000000000000005", "1e99999999999999999999",
        "0e999999",
    };
    for (const char *text : texts) {
        const std::string s = text;
        for (const std::string &whole : { s, s + "\n", s + " 3", "  " + s + "\t7 x" })
            for (Kind kind : { INT, REAL, FLOAT, WORD }) sameAsScanf(whole, { kind });
    }
}

TEST(iopText, randomTextsAsScanfReadsThem)
{
    static const char chars[] = "0123456789012345+-..eEdDxXpPnaifty \n\t,\"";
    srand(12345);
    for (int trial = 0; trial < 6000; ++trial) {
        std::string text;
        for (int n = rand() % 24; n > 0; --n) text += chars[(size_t) rand() % (sizeof chars - 1)];
        sameAsScanf(text, { (Kind) (rand() % 4), (Kind) (rand() % 4), (Kind) (rand() % 4) });
        if (HasFailure()) return;
    }
}

TEST(iopText, realsOfAllSizesAsScanfReadsThem)
{
    static const char *const formats[] = { "%.17g", "%.15e", "%g", "%.3f", "%.16e", "%a", "%.12g" };
    srand(99);
    std::string text;
    for (int i = 0; i < 40000; ++i) {
        char number[400];
        const int scale = i % 5 ? rand() % 30 - 15 : rand() % 600 - 300;
        const double value = (rand() / (double) RAND_MAX - 0.5) * pow(10, scale);
        snprintf(number, sizeof number, formats[(size_t) i % 7], value);
        text += number;
        text += i % 8 ? " " : "\n";
    }
    sameAsScanf(text, { REAL });
    sameAsScanf(text, { FLOAT });
    sameAsScanf(text, { REAL, WORD, FLOAT });
}

TEST(iopText, tokensAcrossTheEndOfWhatIsReadAhead)
{
    for (int shift = 0; shift < 40; ++shift) {
        std::string text(65536 - 20, ' ');
        text[5] = '7';
        text += std::string((size_t) shift, ' ') + "-123456789 1.234567890123456e+10 word-of-letters 99";
        sameAsScanf(text, { INT, INT, REAL, WORD });
    }
    std::string text;
    for (int i = 0; i < 60000; ++i) text += std::to_string(i * 31) + " ";
    sameAsScanf(text, { INT });
    sameAsScanf(std::string(300000, '\n') + "12\n" + std::string(300000, ' ') + "13", { INT });
}

TEST(iopText, numbersOfAnyHostLanguage)
{
    useCommaLocale();
    iopHd *fh = openText("1.25 3.5000000000000000000000001 2.5\n");
    double r[2];
    float f;
    iopGetRealF(fh, r, 2);
    iopGetFloatF(fh, &f, 1);
    EXPECT_EQ(r[0] + r[1], 4.75);
    EXPECT_EQ(f, 2.5f);
    iopCloseFile(fh);
}

TEST(iopText, integersBeyond32BitsFail)
{
    int i = 0;
    for (const char *text : { "2147483648", "-2147483649", "4294967297", "18446744073709551617",
                              "-99999999999999999999999999", "+1" "00000000000000000000000000000000000" }) {
        iopHd *fh = openText(std::string(text) + " 5\n");
        checkFails("integer <" + std::string(text) + "> exceeds 32 bits; in ascii file <t> token <0>",
                   iopGetIntF(fh, &i, 1));
        checkFails("> exceeds 32 bits; ", iopGetIntDsp(fh, 2));
        iopCloseFile(fh);
    }
    iopHd *fh = openText("2147483647 -2147483648\n");
    iopGetIntF(fh, &i, 1);
    EXPECT_EQ(i, INT_MAX);
    iopGetIntF(fh, &i, 1);
    EXPECT_EQ(i, INT_MIN);
    iopCloseFile(fh);
}

TEST(iopText, numberOf8191CharactersIsTaken)
{
    for (int isReal = 0; isReal < 2; ++isReal) {
        for (int lead : { 0, 60000, 70000 }) {
            const std::string blanks((size_t) lead, ' '), zeros(8190, '0');
            int i = 0;
            double r = 0;
            iopHd *fh = openText(blanks + zeros + "7 8");
            checkReturns(if (isReal) iopGetRealF(fh, &r, 1); else iopGetIntF(fh, &i, 1));
            EXPECT_EQ(isReal ? (int) r : i, 7);
            iopCloseFile(fh);
            fh = openText(blanks + zeros + "17 8");
            checkFails("number longer than <8191> characters; in ascii file <t> token <0>",
                       if (isReal) iopGetRealF(fh, &r, 1); else iopGetIntF(fh, &i, 1));
            iopCloseFile(fh);
            fh = openText(blanks + std::string(100000, '1'));
            checkFails("number longer than <8191> characters; ",
                       if (isReal) iopGetRealF(fh, &r, 1); else iopGetIntF(fh, &i, 1));
            iopCloseFile(fh);
        }
    }
}

TEST(iopText, whatIsNoNumberFailsAtOnce)
{
    int ints[4];
    iopHd *fh = openText("1 2 x 4\n");
    checkFails("EOF in ascii file <t> token <2> near <__NONE__>", iopGetIntF(fh, ints, 4));
    iopRewind(fh);
    checkFails("EOF in ascii file <t> token <2> near <__NONE__>", iopGetIntDsp(fh, 4));
    iopRewind(fh);
    checkFails("EOF in ascii file <t> token <2> near <__NONE__>", iopGetIntDsp(fh, 2147483647));
    EXPECT_EQ(testSlept(), 0);
    iopCloseFile(fh);
}

static void finishNumber()
{
    testWrite("t", "1 -2.5e3\n");
}

TEST(iopText, headOfANumberIsWaitedFor)
{
    double r[2];
    iopHd *fh = openText("1 -");
    testWhenSleeping(finishNumber);
    iopGetRealF(fh, r, 2);
    EXPECT_EQ(r[1], -2500);
    EXPECT_EQ(testSlept(), 1);
    iopCloseFile(fh);
}

/* ---- words and quotes ---- */

TEST(iopText, quotedStrings)
{
    static const struct { const char *text, *value; long behind; } rows[] = {
        { "word next\n",              "word",               4  },
        { "\"two words\" 12\n",       "two words",          11 },
        { "  \"a b c\"\n",            "a b c",              9  },
        { "\"word\"\n12",             "word",               7  },  /* its newline is taken, its quote cut       */
        { "\"word\" 12\nx",           "word\" 12",          10 },  /* reads on to the end of the line           */
        { "\"word\" 12 \"x\n",        "word\" 12 ",         11 },  /* ... or to the next quote                  */
        { "\"\"\n",                   "",                   3  },
        { "\"\" x\n",                 "\" x",               5  },
        { "\" a\"\n",                 " a",                 4  },
        { "\"\n12",                   "",                   2  },
        { "\"no end\n12",             "no end",             8  },
        { "\"a b\"\"\n",              "a b",                5  },
        { "\"a \"b\n",                "a ",                 4  },
        { "in\"side\n",               "in\"side",           7  },
        { "\"a\"b c\"\n",             "a\"b c",             7  },
        { "\"a\tb\"\n",               "a\tb",               5  },
        { "\"a\r\n",                  "a\r",                4  },
    };
    for (const auto &row : rows) {
        char text[SYS_TEXT];
        iopHd *fh = openText(row.text);
        iopGetStrF(fh, text);
        EXPECT_STREQ(text, row.value) << row.text;
        EXPECT_EQ(iopGetLoc(fh), row.behind) << row.text;
        EXPECT_STREQ(fh->lastToken, row.value);
        iopCloseFile(fh);
    }
}

TEST(iopText, zeroByteEndsAQuotedString)
{
    char text[SYS_TEXT];
    iopHd *fh = openText(std::string("\"a b\0c 12\n", 10));
    iopGetStrF(fh, text);
    EXPECT_STREQ(text, "a b");
    iopGetStrF(fh, text);
    EXPECT_STREQ(text, "c");
    iopCloseFile(fh);
}

TEST(iopText, optionalStringsKnowNoQuotes)
{
    char text[SYS_TEXT];
    iopHd *fh = openText("\"two words\"\n");
    EXPECT_EQ(iopGetIfStr(fh, text), 1);
    EXPECT_STREQ(text, "\"two");
    EXPECT_EQ(iopGetIfStr(fh, text), 1);
    EXPECT_STREQ(text, "words\"");
    iopCloseFile(fh);
}

TEST(iopText, quoteThatIsNotClosedWaitsForTheWriter)
{
    char text[SYS_TEXT];
    iopHd *fh = openText("\"two wo");
    testWhenSleeping([] { testWrite("t", "\"two words\"\n"); });
    iopGetStrF(fh, text);
    EXPECT_STREQ(text, "two words");
    EXPECT_EQ(testSlept(), 1);
    iopCloseFile(fh);
    testWhenSleeping(nullptr);
    fh = openText("\"two wo");
    checkFails("EOF in ascii file <t> token <0> near <__NONE__>", iopGetStrF(fh, text));
    EXPECT_EQ(testSlept(), 3);
    iopCloseFile(fh);
}

TEST(iopText, stringsAreBounded)
{
    char text[SYS_TEXT];
    static const struct { int words, quoted; bool fits; } rows[] = {
        { 8191, 0, true }, { 8192, 0, false }, { 0, 8191, true }, { 0, 8192, false }, { 0, 100000, false },
        { 8190, 0, true }, { 100000, 0, false }, { 0, 8193, false },
    };
    for (const auto &row : rows) {
        const std::string plain = row.words ? std::string((size_t) row.words, 'w')
                                            : "\"a " + std::string((size_t) row.quoted - 2, 'q') + "\"\n";
        iopHd *fh = openText(plain);
        const std::string failure = trapped([&] { iopGetStrF(fh, text); });
        EXPECT_EQ(failure == "", row.fits) << row.words << " " << row.quoted << failure;
        if (row.fits) EXPECT_EQ(strlen(text), (size_t) (row.words ? row.words : row.quoted));
        else EXPECT_NE(failure.find("string too big <8192>"), std::string::npos) << failure;
        if (row.words) {
            iopRewind(fh);
            const std::string optional = trapped([&] { iopGetIfStr(fh, text); });
            EXPECT_EQ(optional == "", row.fits);
        }
        iopCloseFile(fh);
    }
}

/* ---- lines ---- */

TEST(iopText, linesAreCutAtTheirEnd)
{
    char text[20];
    iopHd *fh = openText("one  two\n\nthree\r\n\r\n\"four\"\rx\nlast");
    for (const char *line : { "one  two", "", "three", "", "\"four\"\rx", "last" }) {
        EXPECT_EQ(iopGetLine(fh, text, 20), 1);
        EXPECT_STREQ(text, line);
    }
    EXPECT_EQ(fh->nTokens, 6);
    EXPECT_EQ(iopGetLine(fh, text, 20), 0);
    EXPECT_EQ(fh->nTokens, 6);
    EXPECT_EQ(testSlept(), 1);              /* whether the last one goes on */
    EXPECT_STREQ(fh->lastToken, "__NONE__");
    iopCloseFile(fh);
}

TEST(iopText, linesAndTokensMix)
{
    char text[SYS_TEXT];
    int i;
    iopHd *fh = openText("#@ 12 rest of line\nnext 5\nx");
    iopGetStrF(fh, text);
    iopGetIntF(fh, &i, 1);
    EXPECT_EQ(i, 12);
    EXPECT_EQ(iopGetLine(fh, text, SYS_TEXT), 1);
    EXPECT_STREQ(text, " rest of line");
    iopGetKeyInt(fh, "next", &i);
    EXPECT_EQ(i, 5);
    EXPECT_EQ(iopGetLine(fh, text, SYS_TEXT), 1);
    EXPECT_STREQ(text, "");
    iopCloseFile(fh);
}

TEST(iopText, lineThatFillsTheBufferFails)
{
    static const struct { const char *line; bool fits; } rows[] = {
        { "12345678\n", true }, { "1234567\r\n", true }, { "12345678", true },
        { "123456789\n", false }, { "123456789", false }, { "12345678\r\n", false }, { "1234567890123456789\n", false },
    };
    for (const auto &row : rows) {
        char text[10];
        iopHd *fh = openText(row.line);
        const std::string failure = trapped([&] { iopGetLine(fh, text, 10); });
        const std::string text10 = "Buffer overflow <10>; in ascii file <t> token <0> near <__NONE__>";
        EXPECT_EQ(failure == "", row.fits) << row.line << failure;
        EXPECT_EQ(failure.find(text10) == std::string::npos, row.fits) << row.line << failure;
        checkFails("Buffer overflow <1>; ", iopGetLine(fh, text, 1));
        iopCloseFile(fh);
    }
}

TEST(iopText, lineTooLongWithAZeroByteFails)
{
    char text[10];
    iopHd *fh = openText(std::string("12\000456789012345\n", 16));
    checkFails("Buffer overflow <10>; in ascii file <t>", iopGetLine(fh, text, 10));
    iopCloseFile(fh);
    fh = openText(std::string("12\00045\nx\n", 9));
    EXPECT_EQ(iopGetLine(fh, text, 10), 1);
    EXPECT_STREQ(text, "12");
    EXPECT_EQ(iopGetLine(fh, text, 10), 1);
    EXPECT_STREQ(text, "x");
    iopCloseFile(fh);
}

TEST(iopText, linesAreForTextOnly)
{
    char text[20];
    testWrite("b.B", "QUENTA 1 2 4 6 8\nline\n");
    iopHd *fh = iopOpenFile("b", IOP_BINARY | IOP_READ);
    checkFails("incompatible mode for file <b>", iopGetLine(fh, text, 20));
    checkFails("incompatible mode for file <b>", iopGetLine(fh, text, 1));
    iopCloseFile(fh);
}
