/* testIopNumbers.cpp: numbers in a text are those that scanf reads, to the last bit and the last character.
 *
 * The library converts most of them by other means than scanf. Here both read the same tokens, made at random from a
 * fixed seed and by hand: one by one with whatever may follow a number, in long runs, cut by the end of what was read
 * ahead, and in another language. */

#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>

#include "iop/iopInt.h"
#include "test/commaLocale.h"
#include "test/testUtil.h"

/* tokens per test and kind of number; the sanitizers make scanf slow too */
#ifdef __SANITIZE_ADDRESS__
enum { MANY = 60000 };
#else
enum { MANY = 500000 };
#endif
enum { PIECE = 65536 };                     /* bytes that are read ahead at a time */

/* ---- tokens ---- */

static std::mt19937_64 dice;

static int upTo(int n) { return (int) (dice() % (uint64_t) (n + 1)); }

static std::string printed(const char *format, int digits, double value)
{
    char text[2000];
    snprintf(text, sizeof text, format, digits, value);
    return text;
}

template <class Real, class Bits> static Real realOfBits(Bits bits)
{
    Real value;
    memcpy(&value, &bits, sizeof value);
    return std::isfinite(value) ? value : (Real) bits;
}

/* any bits; subnormal; of a size that results have */
static double anyDouble()
{
    switch (upTo(3)) {
    case 0:  return realOfBits<double>((uint64_t) dice());
    case 1:  return realOfBits<double>((uint64_t) (dice() & 0x800fffffffffffff) >> upTo(40));
    case 2:  return realOfBits<float>((uint32_t) dice());
    default: return ((double) (int64_t) dice()) * pow(10, -upTo(30));
    }
}

/* as C prints it, from no digits to more than a double has */
static std::string printedReal()
{
    static const char *const formats[] = { "%.*e", "%.*g", "%.*E", "%.*f", "%.*a" };
    static const int digits[] = { 17, 16, 15, 9, 6 };
    const int some = upTo(6), n = some < 5 ? digits[some] : upTo(40);
    const double value = anyDouble();
    const int form = upTo(20);
    return printed(formats[form < 4 ? form : form == 20 ? 4 : form % 2], n, value);
}

static std::string someDigits(int n)
{
    std::string text;
    while (n-- > 0) text += (char) ('0' + upTo(9));
    return text;
}

/* all lengths, points and exponents */
static std::string anyDigits()
{
    const int longest = upTo(50) ? 24 : 900;
    std::string text = (upTo(2) ? "" : "-") + someDigits(upTo(longest));
    if (upTo(3)) text += "." + someDigits(upTo(longest));
    static const char *const exponents[] = { "", "", "", "e", "e+", "e-", "E-" };
    const std::string exponent = exponents[upTo(6)];
    if (!exponent.empty()) text += exponent + someDigits(1 + upTo(3) / 3);
    else if (upTo(8) == 0) text += "e-" + std::to_string(290 + upTo(45));
    return text;
}

/* just between two doubles, or next to that place, as far down as digits go */
static std::string halfway()
{
    char text[2000];
    double value = anyDouble();
    if (upTo(1)) value = (float) value;
    const long double middle = ((long double) value + nextafter(value, INFINITY)) / 2;
    snprintf(text, sizeof text, "%.*Le", upTo(3) ? 15 + upTo(50) : 780, std::isfinite(value) ? middle : 1.5L);
    if (upTo(2)) return text;
    const uint64_t odd = (UINT64_C(1) << 53) + (dice() >> 11 | 1);      /* between integers it is short */
    static const char *const tails[] = { "", ".", ".0", ".00000000000000000000000001", "e0", "000e-3", "0000000e-07" };
    return std::to_string(odd - (upTo(3) == 0)) + (upTo(3) ? tails[upTo(6)] : ".99999999999999999999999999");
}

static std::string anyInteger()
{
    const int64_t near = (int64_t) (INT64_C(1) << 31) * (upTo(2) - 1) + upTo(4) - 2;
    switch (upTo(4)) {
    case 0:  return std::to_string(near);
    case 1:  return std::to_string((int) dice());
    case 2:  return someDigits(1 + upTo(22));
    default: return std::to_string(upTo(2000000) - 1000000);
    }
}

static const char *const byHand[] = {
    "0", "-0", "+5", "-", "+", ".", "-.", "+.5", "5.", ".5", "-.5", "1e", "1e+", "1e-", "1E", "1e5", "1e+5",
    "1e05", "1.5D+03", "1.5d3", "12abc", "1,5", "1.2.3", "1..2", "1e5e6", "1e5.5", "--5", "+-5", "- 5", "1-2",
    "1+2", "5-", ".e5", "0x", "0x.", "0x1", "0x1p3", "0x1.8p-1", "0X1F.8P2", "0xg", "0x1p", "00x1", "-0x10",
    "inf", "-inf", "+INF", "infinity", "Infinityx", "infin", "in", "nan", "-nan", "NaN", "nan(12)", "nan()",
    "nan(", "nano", "na", "n", "i", "1e400", "-1e400", "1e-400", "-1e-400", "1e99999999999999999999",
    "1e-99999999999999999999", "0e99999999999999999999", "1e00000000000000000000000000000000005",
    "1.7976931348623157e308", "1.7976931348623158e308", "1.797693134862316e308", "1.7976931348623159077e308",
    "17976931348623157e292", "2.2250738585072011e-308", "2.2250738585072012e-308", "2.2250738585072014e-308",
    "4.9406564584124654e-324", "2.4703282292062327e-324", "2.4703282292062328e-324", "3.4028235e38",
    "3.40282356e38", "3.40282357e38", "3.4028236e38", "1.17549435e-38", "1.4e-45", "7e-46", "7.1e-46",
    "16777217", "16777219", "16777217.0000000000000000001", "9007199254740993",
    "9007199254740992.99999999999999999999", "9007199254740993.00000000000000000001", "1e22", "1e23", "8.5e22",
    "1e27", "1e28", "18446744073709551615e0", "18446744073709551616", "1844674407370955161",
    "123456789012345678901234567890", "0.1", "0.30000000000000004", "1.00000000000000011102230246251565404",
    "1.00000000000000011102230246251565405", "6.0221407599999999e+23", "2147483647", "2147483648",
    "-2147483648", "-2147483649", "4294967296", "9223372036854775807", "9223372036854775808",
    "00000000000000000000000000000012", "-00000000000000000000000000000012.5",
    "0.000000000000000000000000000000012", "12345678", "1234567.8", "12345678.12345678",
    "1234567812345678.1234567812345678e-5", "5/2", "5:", "7\xb2", "\xb2", "1_0", "1e5f", "5e5L", "1#", "abc",
    "e5", "_", "\"5\"", "1(2)", "1'000",
};

static std::string anyToken()
{
    static const std::string strange = std::string("\0\x80\xff", 3) + "0123456789+-..eEdDxXpPnNaAiIfFtTyY(),_:/\"";
    const int kind = upTo(9);
    std::string text = kind < 3 ? printedReal() : kind < 6 ? anyDigits() : kind < 7 ? halfway()
                     : kind < 9 ? anyInteger() : byHand[upTo((int) (sizeof byHand / sizeof *byHand) - 1)];
    for (int n = upTo(4) ? 0 : 1 + upTo(2); n > 0 && !text.empty(); --n)
        text.replace((size_t) upTo((int) text.size() - 1), (size_t) upTo(1), 1,
                     strange[(size_t) upTo((int) strange.size() - 1)]);
    return text.empty() ? "0" : text;
}

/* ---- both ways ---- */

enum Kind { INT, REAL, FLOAT };

/* What became of one token. Of one that is no number, scanf takes as much as it likes. */
struct Read {
    bool     came;
    uint64_t bits;
    int64_t  behind;
    bool operator==(const Read &o) const
    {
        return came == o.came && (!came || (bits == o.bits && behind == o.behind));
    }
};

static std::ostream &operator<<(std::ostream &out, const Read &r)
{
    return r.came ? out << std::hex << r.bits << std::dec << " up to " << r.behind : out << "nothing";
}

template <class T> static uint64_t bitsOf(const T &value)
{
    uint64_t bits = 0;
    memcpy(&bits, &value, sizeof value);
    return bits;
}

/* An integer beyond 32 bits is refused where scanf takes some of its bits. */
static Read byScanf(FILE *fp, Kind kind)
{
    long long i = 0;
    double r = 0;
    float f = 0;
    int n = 0;
    switch (kind) {
    case INT:  return { fscanf(fp, "%lld%n", &i, &n) == 1 && i == (int) i, bitsOf((int) i), n };
    case REAL: return { fscanf(fp, "%le%n", &r, &n) == 1, bitsOf(r), n };
    default:   return { fscanf(fp, "%e%n", &f, &n) == 1, bitsOf(f), n };
    }
}

static Read byIop(iopHd *fh, Kind kind)
{
    static int i;
    static double r;
    static float f;
    const int64_t from = iopGetLoc(fh);
    bool came = false;
    switch (kind) {
    case INT:   came = trapped([&] { iopGetIntF(fh, &i, 1); }).empty();   break;
    case REAL:  came = trapped([&] { iopGetRealF(fh, &r, 1); }).empty();  break;
    case FLOAT: came = trapped([&] { iopGetFloatF(fh, &f, 1); }).empty(); break;
    }
    return { came, kind == INT ? bitsOf(i) : kind == REAL ? bitsOf(r) : bitsOf(f), iopGetLoc(fh) - from };
}

static bool stepOver(iopHd *fh, Kind kind)
{
    return trapped([&] {
        if (kind == INT) iopGetIntDsp(fh, 1);
        else if (kind == REAL) iopGetRealDsp(fh, 1);
        else iopGetFloatDsp(fh, 1);
    }).empty();
}

/* A text of lines that begin with a token each, and what is read from a line. */
struct Lines {
    std::string          text;
    std::vector<int64_t> starts;
    void add(const std::string &token)
    {
        static const char *const behind[] = { "", " ", "\t", "\v5", "\r", "\f", " 7 x" };
        starts.push_back((int64_t) text.size());
        text += token + behind[upTo(6)] + "\n";
    }
    std::string line(size_t k) const
    {
        const size_t start = (size_t) starts[k];
        return text.substr(start, text.find('\n', start) - start);
    }
};

static Lines manyLines(int n)
{
    dice.seed(20211);
    Lines lines;
    for (const char *token : byHand)
        for (int times = 0; times < 10; ++times) lines.add(token);
    for (int i = 0; i < n; ++i) lines.add(anyToken());
    return lines;
}

static std::vector<Read> linesByScanf(const Lines &lines, Kind kind)
{
    std::vector<Read> reads;
    FILE *fp = fopen("t", "r");
    for (int64_t start : lines.starts) {
        fseek(fp, start, SEEK_SET);
        reads.push_back(byScanf(fp, kind));
    }
    fclose(fp);
    return reads;
}

static void linesAreRead(const Lines &lines, Kind kind, const std::vector<Read> &expected)
{
    iopHd *fh = iopOpenFile("t", IOP_ASCII | IOP_READ);
    for (size_t k = 0; k < expected.size() && !testing::Test::HasFailure(); ++k) {
        const Read &wanted = expected[k];
        SCOPED_TRACE("kind " + std::to_string(kind) + " of <" + lines.line(k) + ">");
        iopSetLoc(fh, lines.starts[k]);
        EXPECT_EQ(byIop(fh, kind), wanted);
        iopSetLoc(fh, lines.starts[k]);
        EXPECT_EQ(stepOver(fh, kind), wanted.came);
        EXPECT_TRUE(!wanted.came || iopGetLoc(fh) == lines.starts[k] + wanted.behind) << iopGetLoc(fh);
    }
    iopCloseFile(fh);
}

/* ---- the tests ---- */

TEST(iopNumbers, valueAndEndOfAnyTokenAreThoseOfScanf)
{
    const Lines lines = manyLines(MANY);
    testWrite("t", lines.text);
    for (Kind kind : { INT, REAL, FLOAT }) linesAreRead(lines, kind, linesByScanf(lines, kind));
}

TEST(iopNumbers, languageOfTheHostHasNoSay)
{
    const Lines lines = manyLines(MANY / 20);
    testWrite("t", lines.text);
    std::vector<Read> expected[3];
    for (Kind kind : { INT, REAL, FLOAT }) expected[kind] = linesByScanf(lines, kind);
    useCommaLocale();
    for (Kind kind : { INT, REAL, FLOAT }) linesAreRead(lines, kind, expected[kind]);
}

/* Reads ahead so that what is held ends at a location; behind it stands what was there before. */
static void holdUpTo(iopHd *fh, int64_t loc, char old)
{
    fh->form->setLoc(fh, loc - PIECE, 1);
    ASSERT_EQ(iopFill(fh), PIECE);
    fh->ahead.data[PIECE] = old;
}

/* Each token is met with what was read ahead ending before it, within it, at its end and behind it. */
TEST(iopNumbers, endOfWhatIsReadAheadCutsNothing)
{
    Lines lines;
    lines.text.assign(PIECE, '\n');
    dice.seed(7);
    for (const char *token : byHand) lines.add(token);
    for (int i = 0; i < MANY / 3000; ++i) lines.add(anyToken().substr(0, 60));
    lines.text += "\n";
    testWrite("t", lines.text);
    for (Kind kind : { INT, REAL, FLOAT }) {
        const std::vector<Read> expected = linesByScanf(lines, kind);
        iopHd *fh = iopOpenFile("t", IOP_ASCII | IOP_READ);
        for (size_t k = 0; k < expected.size() && !HasFailure(); ++k) {
            const Read &wanted = expected[k];
            const int64_t start = lines.starts[k], length = (int64_t) lines.line(k).size();
            for (int64_t held = 0; held < 2 * (length + 2); ++held) {
                const char old = held % 2 ? ' ' : '5';
                SCOPED_TRACE(std::to_string(held / 2) + " bytes of <" + lines.line(k) + ">");
                holdUpTo(fh, start + held / 2, old);
                iopSetLoc(fh, start);
                EXPECT_EQ(byIop(fh, kind), wanted);
                holdUpTo(fh, start + held / 2, old);
                iopSetLoc(fh, start);
                EXPECT_EQ(stepOver(fh, kind), wanted.came);
                EXPECT_TRUE(!wanted.came || iopGetLoc(fh) == start + wanted.behind) << iopGetLoc(fh);
            }
        }
        iopCloseFile(fh);
    }
}

/* A text in which every token is a number from its first to its last character, and the numbers in it. */
template <class T> struct Run {
    std::string          text;
    std::vector<T>       values;
    std::vector<int64_t> behind;            /* location behind each */
};

template <class T> static Run<T> makeRun(Kind kind, int n)
{
    static const char *const between[] = { " ", "\n", "  ", "\t", " \r\n", "\v", "\f", " " };
    Run<T> run;
    dice.seed(99);
    while ((int) run.values.size() < n) {
        const std::string token = kind == INT ? anyInteger() : anyToken();
        FILE *fp = fmemopen(const_cast<char *>(token.data()), token.size(), "r");
        const Read read = byScanf(fp, kind);
        fclose(fp);
        if (!read.came || read.behind != (int64_t) token.size()) continue;
        T value;
        memcpy(&value, &read.bits, sizeof value);
        run.text += token;
        run.values.push_back(value);
        run.behind.push_back((int64_t) run.text.size());
        run.text += between[upTo(7)];
    }
    return run;
}

/* Pieces of any length are read or stepped over; what follows the last is no number. */
template <class T> static void runIsRead(Kind kind, void (*get)(iopHd *, T *, int), void (*skip)(iopHd *, int))
{
    Run<T> run = makeRun<T>(kind, MANY / 2);
    testWrite("t", run.text + "x");
    const int n = (int) run.values.size();
    std::vector<T> found((size_t) n);
    iopHd *fh = iopOpenFile("t", IOP_ASCII | IOP_READ);
    for (int i = 0; i < n && !testing::Test::HasFailure();) {
        int some = upTo(2) ? upTo(20) : upTo(20000);
        if (some > n - i) some = n - i;
        const bool skips = upTo(3) == 0;
        checkReturns(if (skips) skip(fh, some); else get(fh, &found[(size_t) i], some));
        for (int k = i; k < i + some && !skips; ++k)
            ASSERT_EQ(bitsOf(found[(size_t) k]), bitsOf(run.values[(size_t) k])) << "number " << k;
        i += some;
        EXPECT_EQ(iopGetLoc(fh), i > 0 ? run.behind[(size_t) i - 1] : 0);
        EXPECT_EQ(iopGetTokens(fh), i);
    }
    static T one;
    checkFails("EOF in ascii file <t> token <" + std::to_string(n) + "> near <__NONE__>", get(fh, &one, 1));
    iopCloseFile(fh);
    EXPECT_EQ(testSlept(), 0);
}

TEST(iopNumbers, runsOfIntegers) { runIsRead<int>(INT, iopGetIntF, iopGetIntDsp); }
TEST(iopNumbers, runsOfReals)    { runIsRead<double>(REAL, iopGetRealF, iopGetRealDsp); }
TEST(iopNumbers, runsOfFloats)   { runIsRead<float>(FLOAT, iopGetFloatF, iopGetFloatDsp); }

/* What 17 digits tell of a double, and 9 of a float, is all of it. */
TEST(iopNumbers, printedRealsComeBack)
{
    dice.seed(3);
    std::vector<double> doubles;
    std::vector<float> floats;
    std::string text;
    for (int i = 0; i < MANY / 4; ++i) {
        doubles.push_back(anyDouble());
        floats.push_back(realOfBits<float>((uint32_t) dice()));
        text += printed(i % 2 ? "%.*e " : "%.*g\n", 17 - i % 2, doubles.back());
        text += printed(i % 2 ? "%.*e " : "%.*g\n", 9 - i % 2, (double) floats.back());
    }
    testWrite("t", text);
    iopHd *fh = iopOpenFile("t", IOP_ASCII | IOP_READ);
    for (size_t i = 0; i < doubles.size() && !HasFailure(); ++i) {
        double r;
        float f;
        iopGetRealF(fh, &r, 1);
        iopGetFloatF(fh, &f, 1);
        EXPECT_EQ(bitsOf(r), bitsOf(doubles[i])) << doubles[i];
        EXPECT_EQ(bitsOf(f), bitsOf(floats[i])) << floats[i];
    }
    iopCloseFile(fh);
}

/* What is no number stops a run at once, with all before it read, also far behind the first piece. */
TEST(iopNumbers, runEndsAtWhatIsNoNumber)
{
    for (int before : { 0, 1, 5, 20000, 40000 }) {
        std::string text;
        for (int i = 0; i < before; ++i) text += "1.5 ";
        for (const char *stop : { "x 2 3", "- 2 3", ". 2 3", "e5 2", "\"1\" 2" }) {
            testWrite("t", text + stop + "\n");
            std::vector<double> found(50000, 7.0);
            iopHd *fh = iopOpenFile("t", IOP_ASCII | IOP_READ);
            const std::string failure = "EOF in ascii file <t> token <" + std::to_string(before) + "> near <__NONE__>";
            checkFails(failure, iopGetRealF(fh, found.data(), 50000));
            for (int i = 0; i < 50000; ++i) ASSERT_EQ(found[(size_t) i], i < before ? 1.5 : 7.0) << i << " " << stop;
            iopRewind(fh);
            checkFails(failure, iopGetRealDsp(fh, 50000));
            iopCloseFile(fh);
            remove("t");
        }
    }
    EXPECT_EQ(testSlept(), 0);
}
