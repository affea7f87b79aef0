/* testCvt.cpp: byte orders of integers, floats and reals. */

#include "base/cvt.h"

#include <string.h>

#include <algorithm>

#include "test/testUtil.h"

typedef void (*converter)(const void *, void *, int, int, int);

static const struct Kind {
    const char *name;
    converter   convert;
    int         big, size;
} kinds[] = {
    { "ints",   cvtConvInts,   CVT_INT_BE,   4 },
    { "floats", cvtConvFloats, CVT_FLOAT_BE, 4 },
    { "reals",  cvtConvReals,  CVT_REAL_BE,  8 },
};

static std::string someBytes(size_t n)
{
    std::string bytes(n, 0);
    for (size_t i = 0; i < n; ++i) bytes[i] = (char) (i * 37 + 11);
    return bytes;
}

static std::string reversed(std::string bytes, size_t size)
{
    for (size_t i = 0; i < bytes.size(); i += size) std::reverse(bytes.begin() + i, bytes.begin() + i + size);
    return bytes;
}

TEST(cvt, nativeTypes)
{
    EXPECT_EQ(cvtNativeInt(), 2);
    EXPECT_EQ(cvtNativeFloat(), 4);
    EXPECT_EQ(cvtNativeReal(), 6);
    const uint16_t one = 1;
    EXPECT_EQ(*(const char *) &one, 1) << "the machine is not little-endian";
}

TEST(cvt, anIntegerTurns)
{
    const uint32_t given = 0x01020304;
    uint32_t got = 0;
    cvtConvInts(&given, &got, 1, 2, 1);
    EXPECT_EQ(got, 0x04030201u);
    cvtConvInts(&given, &got, 2, 2, 1);         /* equal types: a copy only */
    EXPECT_EQ(got, 0x01020304u);
}

/* All four pairs of orders, in place and apart, aligned and not, for counts around those taken at once. */
TEST(cvt, everyKindAndOrder)
{
    for (const Kind &kind : kinds)
        for (int src = kind.big; src < kind.big + 2; ++src)
            for (int dst = kind.big; dst < kind.big + 2; ++dst)
                for (int n : { 1, 2, 3, 4, 5, 7, 8, 64, 1001 }) {
                    SCOPED_TRACE(testing::Message() << kind.name << " " << src << " to " << dst << ", " << n);
                    const std::string bytes = someBytes((size_t) n * kind.size);
                    const std::string expected = src == dst ? bytes : reversed(bytes, kind.size);
                    std::string inPlace = "#" + bytes + "#", apart(bytes.size() + 2, '#');
                    kind.convert(&inPlace[1], &inPlace[1], src, dst, n);
                    kind.convert(bytes.data(), &apart[1], src, dst, n);
                    EXPECT_EQ(inPlace, "#" + expected + "#");
                    EXPECT_EQ(apart, "#" + expected + "#");
                }
}

/* An array may move within its own memory, either way. */
TEST(cvt, arraysMayOverlap)
{
    const int n = 1001;
    for (const Kind &kind : kinds) {
        const size_t size = (size_t) kind.size, all = n * size;
        const std::string bytes = someBytes(all), expected = reversed(bytes, size);
        std::string up = bytes + std::string(size, '#'), down = std::string(size, '#') + bytes;
        kind.convert(&up[0], &up[size], kind.big, kind.big + 1, n);
        kind.convert(&down[size], &down[0], kind.big + 1, kind.big, n);
        EXPECT_EQ(up.substr(size), expected) << kind.name;
        EXPECT_EQ(down.substr(0, all), expected) << kind.name;
    }
}

TEST(cvt, countsBelowOneDoNothing)
{
    for (const Kind &kind : kinds)
        for (int n : { 0, -1, INT32_MIN }) {
            char bytes[] = "unharmed";
            kind.convert("ABCDEFGH", bytes, kind.big, kind.big + 1, n);
            EXPECT_STREQ(bytes, "unharmed");
        }
}

TEST(cvt, typesOfAnotherKindFail)
{
    char bytes[16] = "";
    for (const Kind &kind : kinds)
        for (int type : { -1, 0, 1, 2, 3, 4, 5, 6, 7 }) {
            if (type == kind.big || type == kind.big + 1) continue;
            const std::string number = "<" + std::to_string(type) + ">";
            checkFails("Invalid srcType " + number, kind.convert(bytes, bytes, type, kind.big, 1));
            checkFails("Invalid dstType " + number, kind.convert(bytes, bytes, kind.big, type, 1));
            checkFails("Invalid srcType " + number, kind.convert(bytes, bytes, type, type, 0));    /* of nothing */
        }
    checkFails("in Function <cvtConvReals>", cvtConvReals(bytes, bytes, 3, 5, 1));
    checkFails("Invalid srcType <3>", cvtConvReals(bytes, bytes, 3, 5, 1));
}
