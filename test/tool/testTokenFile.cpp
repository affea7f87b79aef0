/* testTokenFile.cpp: tokens become the right bytes, and come back as they were, in every storage form. */

#include "test/testUtil.h"
#include "test/tool/tokenReader.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <fstream>
#include <stdexcept>

#include "tool/tokenFile.h"

using namespace tool;
using namespace std::string_literals;

static const struct { const char *name; Form form; bool binary, swapped; } forms[] = {
    {"ascii",   Form::ascii,   false, false},
    {"binary",  Form::binary,  true,  false},
    {"swapped", Form::swapped, true,  true },
};

/* a short file: a text, integers, a real, a float, a table */
static void writeShort(Form form)
{
    const int32_t ints[2] = {1, -2}, table[4] = {1, 2, 3, 4};
    const double real = 0.5;
    const float single = -0.25f;
    TokenFile file("a.tok", form);
    file.str("key");
    file.ints(ints, 2);
    file.reals(&real, 1);
    file.floats(&single, 1);
    file.keyInts("vec", 2, 2, table);
    file.close();
}

TEST(tokenFile, asciiBytes)
{
    writeShort(Form::ascii);
    EXPECT_EQ(testRead("a.tok"), "key\n1 -2\n0.5\n-0.25\nvec\n2\n2\n1 2 3 4\n");
}

TEST(tokenFile, binaryBytes)
{
    writeShort(Form::binary);
    EXPECT_EQ(testRead("a.tok.B"), "QUENTA 2021.1 2 4 6 8\n"
                                   "key\0\0\0\0\0"
                                   "\1\0\0\0\xfe\xff\xff\xff"
                                   "\0\0\0\0\0\0\xe0\x3f"
                                   "\0\0\x80\xbe"
                                   "vec\0\0\0\0\0"
                                   "\2\0\0\0\2\0\0\0"
                                   "\1\0\0\0\2\0\0\0\3\0\0\0\4\0\0\0"s);
}

TEST(tokenFile, swappedBytes)
{
    writeShort(Form::swapped);
    EXPECT_EQ(testRead("a.tok.B"), "QUENTA 2021.1 1 4 5 8\n"
                                   "key\0\0\0\0\0"
                                   "\0\0\0\1\xff\xff\xff\xfe"
                                   "\x3f\xe0\0\0\0\0\0\0"
                                   "\xbe\x80\0\0"
                                   "vec\0\0\0\0\0"
                                   "\0\0\0\2\0\0\0\2"
                                   "\0\0\0\1\0\0\0\2\0\0\0\3\0\0\0\4"s);
}

TEST(tokenFile, textsArePaddedToEightsWithAZeroAtLeast)
{
    const struct { const char *text; size_t size; } cases[] = {
        {"", 8}, {"a", 8}, {"1234567", 8}, {"12345678", 16}, {"123456789", 16}, {"123456789012345", 16}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        TokenFile file("t", Form::binary);
        const size_t before = 22;                      /* the tag line */
        file.str(c.text);
        file.close();
        const std::string bytes = testRead("t.B");
        EXPECT_EQ(bytes.size(), before + c.size);
        EXPECT_EQ(TokenReader("t.B").str(), c.text);
    }
}

TEST(tokenFile, numbersComeBackAsTheyWere)
{
    const int32_t ints[]   = {0, 1, -1, INT_MAX, INT_MIN, 1234567};
    const double  reals[]  = {0, -0.0, 0.1, 1.0 / 3, DBL_MAX, -DBL_MIN, DBL_TRUE_MIN, 1e-300, 123456789.123456789};
    const float   floats[] = {0, 0.1f, 1.0f / 3, FLT_MAX, -FLT_MIN, 16777217.0f};
    for (const auto &f : forms) {
        SCOPED_TRACE(f.name);
        TokenFile file("n", f.form);
        file.ints(ints, 6);
        file.keyStr("name", "value");
        file.reals(reals, 9);
        file.floats(floats, 6);
        file.keyReal("last", 0.3);
        file.close();

        TokenReader back("n" + formSuffix(f.form));
        EXPECT_EQ(back.isBinary(), f.binary);
        EXPECT_EQ(back.isSwapped(), f.swapped);
        for (int32_t v : ints) EXPECT_EQ(back.integer(), v);
        EXPECT_EQ(back.str(), "name");
        EXPECT_EQ(back.str(), "value");
        for (double v : reals) {
            const double got = back.real();
            EXPECT_EQ(got, v);
            EXPECT_EQ(std::signbit(got), std::signbit(v));
        }
        for (float v : floats) EXPECT_EQ(back.single(), v);
        EXPECT_EQ(back.str(), "last");
        EXPECT_EQ(back.real(), 0.3);
        EXPECT_TRUE(back.atEnd());
    }
}

/* Blocks are an inside matter: a table of several buffers has the same bytes either way. */
TEST(tokenFile, tablesByRowsHaveTheBytesOfTablesAtOnce)
{
    const int nCols = 3, nRows = 100001;
    std::vector<int32_t> ints(nCols * nRows);
    std::vector<double>  reals(nCols * nRows);
    for (int i = 0; i < nCols * nRows; ++i) {
        ints[i]  = i * 7 - 1000;
        reals[i] = i / 8.0 - 5;
    }
    for (const auto &f : forms) {
        SCOPED_TRACE(f.name);
        TokenFile whole("whole", f.form), blocks("blocks", f.form);
        whole.keyInts("nodes", nCols, nRows, ints.data());
        whole.keyReals("reals", nCols, nRows, reals.data());
        whole.close();

        int64_t expected = 0;
        bool inOrder = true;
        blocks.keyInts("nodes", nCols, nRows, TokenFile::Rows<int32_t>([&](int64_t first, int64_t n, int32_t *values) {
            inOrder = inOrder && first == expected;
            expected = first + n;
            std::copy(ints.begin() + first * nCols, ints.begin() + (first + n) * nCols, values);
        }));
        blocks.keyReals("reals", nCols, nRows, TokenFile::Rows<double>([&](int64_t first, int64_t n, double *values) {
            std::copy(reals.begin() + first * nCols, reals.begin() + (first + n) * nCols, values);
        }));
        blocks.close();
        EXPECT_TRUE(inOrder);
        EXPECT_EQ(expected, nRows);
        EXPECT_TRUE(testRead("whole" + formSuffix(f.form)) == testRead("blocks" + formSuffix(f.form)));
        const std::vector<Item> items = readItems("blocks" + formSuffix(f.form));
        ASSERT_EQ(keysOf(items), (std::vector<std::string>{"nodes", "reals"}));
        EXPECT_TRUE(items[0].ints == ints);
        EXPECT_TRUE(items[1].reals == reals);
    }
}

TEST(tokenFile, tablesWithoutRowsOrColumnsAreTheirSizes)
{
    for (const auto &f : forms) {
        SCOPED_TRACE(f.name);
        const TokenFile::Rows<double> none = [](int64_t, int64_t, double *) { FAIL() << "rows of an empty table"; };
        TokenFile file("e", f.form);
        file.keyReals("a", 0, 5, none);
        file.keyReals("b", 3, 0, none);
        file.keyReals("c", 3, 0, nullptr);
        file.close();
        const std::vector<Item> items = readItems("e" + formSuffix(f.form));
        ASSERT_EQ(keysOf(items), (std::vector<std::string>{"a", "b", "c"}));
        EXPECT_EQ(items[0].nRows, 5);
        EXPECT_EQ(items[1].nCols, 3);
    }
}

TEST(tokenFile, closingTwiceIsOnce)
{
    TokenFile file("c", Form::ascii);
    file.keyInt("n", 1);
    file.close();
    file.close();
    EXPECT_EQ(testRead("c"), "n\n1\n");
}

TEST(tokenFile, aFileThatCannotBeMadeIsToldByName)
{
    try {
        TokenFile file("no/such/folder/f", Form::binary);
        FAIL() << "no failure";
    }
    catch (const std::runtime_error &e) {
        EXPECT_NE(std::string(e.what()).find("no/such/folder/f.B cannot be made"), std::string::npos) << e.what();
    }
}

TEST(tokenFile, aFullDiskIsTold)
{
    if (!std::ifstream("/dev/full")) GTEST_SKIP() << "the system has no full device";
    const std::vector<int32_t> many(1000000);
    {
        TokenFile file("/dev/full", Form::ascii);       /* a short file fails when it is closed */
        file.keyInt("n", 1);
        EXPECT_THROW(file.close(), std::runtime_error);
    }
    {
        TokenFile file("/dev/full", Form::ascii);       /* a long one while it is written */
        EXPECT_THROW(file.keyInts("n", 1, (int) many.size(), many.data()), std::runtime_error);
    }
}

TEST(tokenFile, aTextThatAsciiCannotHoldIsRefused)
{
    for (const char *text : {"", "two words", "a\nline", "a\"quote"}) {
        TokenFile file("w", Form::ascii);
        EXPECT_THROW(file.str(text), std::runtime_error) << text;
    }
    TokenFile file("w", Form::binary);
    EXPECT_THROW(file.str("zero\0byte"s), std::runtime_error);
    EXPECT_NO_THROW(file.str("two words"));
}
