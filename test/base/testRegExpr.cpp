/* testRegExpr.cpp: the pattern language, its errors and limits, the compiled code, and a comparison of some thousands
 * of random patterns with a plain backtracking walk over the pattern's tree. Another engine is the measure in
 * testRegExprPeer.cpp. */

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/regExpr.h"
#include "test/testUtil.h"

/* A compiled pattern that releases its buffer. */
struct Pattern {
    rePattern   pattern = {};
    const char *error;
    explicit Pattern(const std::string &text, const char *translate = nullptr)
    {
        pattern.translate = translate;
        error = reCompilePattern(text.data(), (int) text.size(), &pattern);
    }
    Pattern(const Pattern &) = delete;
    ~Pattern() { free(pattern.buffer); }
    int match(const std::string &text, int pos = 0, reRegisters *regs = nullptr)
    {
        return reMatch(&pattern, text.data(), (int) text.size(), pos, regs);
    }
};

static std::string compileError(const std::string &text)
{
    Pattern p(text);
    return p.error ? p.error : "";
}

static int matchLength(const std::string &pattern, const std::string &text, int pos = 0)
{
    Pattern p(pattern);
    EXPECT_EQ(p.error, nullptr) << pattern.substr(0, 80);
    return p.error ? -3 : p.match(text, pos);
}

/* "0-3 1-2": the whole match and the groups up to the last one of the pattern, "-" for one that took no part. */
static std::string registersText(const reRegisters &regs, int nRegisters)
{
    std::string text;
    for (int i = 0; i < nRegisters; ++i) {
        if (i) text += " ";
        if (regs.start[i] >= 0) text += std::to_string(regs.start[i]);
        text += "-";
        if (regs.end[i] >= 0) text += std::to_string(regs.end[i]);
    }
    return text;
}

static std::string matchRegisters(const std::string &pattern, const std::string &text, int pos = 0)
{
    Pattern p(pattern);
    if (p.error) return p.error;
    reRegisters regs;
    int length = p.match(text, pos, &regs);
    if (length < 0) return std::to_string(length);
    EXPECT_EQ(regs.start[0], pos);
    EXPECT_EQ(regs.end[0], pos + length);
    for (int i = p.pattern.num_registers; i < RE_NREGS; ++i) {
        EXPECT_EQ(regs.start[i], -1);
        EXPECT_EQ(regs.end[i], -1);
    }
    return registersText(regs, p.pattern.num_registers);
}

TEST(regExpr, theLanguage)
{
    static const struct { const char *pattern, *text; int length; } cases[] = {
        { "", "abc", 0 },                { "abc", "abcd", 3 },           { "abc", "abd", -1 },
        { "a.c", "a\nc", 3 },            { "a.", "a", -1 },
        { "^a", "a", 1 },                { "a$", "a", 1 },               { "a$", "ab", -1 },
        { "a$", "a\n", -1 },             { "a\\$", "a$", 2 },            { "a^b", "a^b", -1 },
        { "a*", "aaab", 3 },             { "a+", "aaab", 3 },            { "a+", "b", -1 },
        { "a?b", "ab", 2 },              { "a?b", "b", 1 },              { "a?a", "a", 1 },
        { "a**", "aa", 2 },              { "a+*", "aa", 2 },             { "a*+", "", 0 },
        { "a?*b", "aab", 3 },            { "(ab)*", "ababa", 4 },        { "(ab)+", "ba", -1 },
        { "a|bc", "bc", 2 },             { "a|b|c", "c", 1 },            { "a\nb", "b", 1 },
        { "ab|a", "ab", 2 },             { "a|ab", "ab", 1 },            { "(a|ab)c", "abc", 3 },
        { "a|", "b", 0 },                { "|a", "a", 0 },               { "(|a)b", "ab", 2 },
        { "()", "a", 0 },                { "()*a", "a", 1 },
        { "\\(a\\)", "(a)", 3 },         { "a\\|b", "a|b", 3 },          { "a\\+\\?\\*", "a+?*", 4 },
        { "\\.\\\\\\[", ".\\[", 3 },     { "\\n\\v\\0", "nv0", 3 },      { "a{2}", "a{2}", 4 },
        { "[abc]+", "cabd", 3 },         { "[^abc]+", "xyza", 3 },       { "[a-c]+", "abcd", 3 },
        { "[]a]+", "a]a", 3 },           { "[^]a]+", "b]", 1 },          { "[a-]+", "-a", 2 },
        { "[-a]+", "-a", 2 },            { "[c-a]", "b", -1 },           { "[a-c-e]+", "b-ed", 3 },
        { "[]-a]+", "]^_`a", 5 },        { "[.*^$\\(]+", ".*^$\\(", 6 }, { "[^a]", "\n", 1 },
        { "[[:x]+", ":[x", 3 },          { "[a|b]+", "a|b", 3 },
        { "\\w+", "aZ09_", 4 },          { "\\W+", "_-a", 2 },           { "\\w", "\xe4", -1 },
        { "\\<ab\\>", "ab c", 2 },       { "a\\<b", "ab", -1 },          { "a\\>b", "ab", -1 },
        { "a\\b-\\bb", "a-b", 3 },       { "a\\Bb", "ab", 2 },           { "a\\bb", "ab", -1 },
        { "\\b", "", -1 },               { "\\B", "", 0 },               { "\\b*a", "a", 1 },
        { "\\`a\\'", "a", 1 },           { "\\`a\\'", "ab", -1 },
        { "(a+)b\\1", "aabaa", 5 },      { "(a+)b\\1", "aaba", -1 },     { "(a|b)\\1", "aab", 2 },
        { "(a)(b)(c)(d)(e)(f)(g)(h)(i)\\9\\1", "abcdefghiia", 11 },      { "(a)|b\\1", "b", -1 },
        { "(a*)*b", "aab", 3 },          { "(a*)+", "b", 0 },            { "(a*|b)*c", "abac", 4 },
        { "(a*)*", "b", 0 },             { "(()|a)*b", "aab", 3 },       { "((a*)*)*c", "aac", 3 },
        { "((a?)*b?)+c", "abaabc", 6 },  { "(\\1a)*b", "b", 1 },         { "(a\\1)", "aa", -1 },
        { "(a|b\\1)+$", "aba", 3 }
    };
    for (const auto &c : cases) EXPECT_EQ(matchLength(c.pattern, c.text), c.length) << c.pattern << " on " << c.text;
}

TEST(regExpr, patternsAndTextsMayHoldAnyByte)
{
    std::string all;
    for (int c = 0; c < 256; ++c) all += (char) c;
    EXPECT_EQ(matchLength(".*", all), 256);
    EXPECT_EQ(matchLength("[^\xff]*", all), 255);
    EXPECT_EQ(matchLength(std::string("a\0b", 3), std::string("a\0bc", 4)), 3);
    EXPECT_EQ(matchLength(std::string("[\0-\x1f]+", 6), std::string("\x1f\0 ", 3)), 2);
}

TEST(regExpr, registersHoldTheGroupsInTheOrderOfTheirParentheses)
{
    static const struct { const char *pattern, *text, *registers; } cases[] = {
        { "a(b(c)d)(e)",              "abcde",         "0-5 1-4 2-3 4-5" },
        { "^(.+)\\.([0-9]+)\\.Log$",  "case.a.07.Log", "0-13 0-6 7-9" },
        { "(a)|(b)",                  "b",             "0-1 - 0-1" },
        { "(a)b|ac",                  "ac",            "0-2 -" },
        { "(a|ab)(c|bcd)(d*)",        "abcd",          "0-4 0-1 1-4 4-4" },
        { "((a)|b)*",                 "ab",            "0-2 1-2 0-1" },
        { "(a*)*",                    "b",             "0-0 -" },
        { "(a*)+",                    "b",             "0-0 0-0" },
        { "(a*)*",                    "aa",            "0-2 0-2" },
        { "((a)*b)*",                 "aabab",         "0-5 3-5 3-4" },
        { "(x)?(ab)*a",               "ababa",         "0-5 - 2-4" },
        { "(ab)*ac",                  "ababac",        "0-6 2-4" },
        { "(a(b)?)+",                 "aba",           "0-3 2-3 1-2" },
        { "((a)(b)?)*c|.*",           "abaab",         "0-5 - - -" }
    };
    for (const auto &c : cases)
        EXPECT_EQ(matchRegisters(c.pattern, c.text), c.registers) << c.pattern << " on " << c.text;
}

TEST(regExpr, anUnmatchedGroupReadsMinusOneInBothArrays)
{
    Pattern p("(a)|(b)");
    reRegisters regs;
    EXPECT_EQ(p.match("b", 0, &regs), 1);
    EXPECT_EQ(regs.start[1], -1);
    EXPECT_EQ(regs.end[1], -1);
    EXPECT_EQ(regs.start[2], 0);
    EXPECT_EQ(regs.end[99], -1);
}

TEST(regExpr, withoutAMatchTheRegistersStay)
{
    Pattern p("(a)b");
    reRegisters regs;
    memset(&regs, 7, sizeof regs);
    const reRegisters before = regs;
    EXPECT_EQ(p.match("ac", 0, &regs), -1);
    EXPECT_EQ(memcmp(&regs, &before, sizeof regs), 0);
}

TEST(regExpr, aMatchIsTriedAtItsPositionOnly)
{
    EXPECT_EQ(matchLength("b+", "abbc"), -1);
    EXPECT_EQ(matchLength("b+", "abbc", 1), 2);
    EXPECT_EQ(matchLength("b+", "abbc", 4), -1);
    EXPECT_EQ(matchLength("b*", "abbc", 4), 0);
    EXPECT_EQ(matchRegisters("b(b)", "abbc", 1), "1-3 2-3");
    EXPECT_EQ(matchLength("^b", "ab", 1), -1);
    EXPECT_EQ(matchLength("\\`b", "ab", 1), -1);
    EXPECT_EQ(matchLength("\\<b", "ab", 1), -1);            /* what stands before the position counts */
    EXPECT_EQ(matchLength("\\<b", "-b", 1), 1);
}

TEST(regExpr, aStarMatchesTheEmptyText)
{
    EXPECT_EQ(matchLength("a*", ""), 0);
    Pattern p("a*");
    EXPECT_EQ(reMatch(&p.pattern, nullptr, 0, 0, nullptr), 0);
    Pattern w("a*(\\b|x|\\B)$");
    EXPECT_EQ(reMatch(&w.pattern, nullptr, 0, 0, nullptr), 0);
}

TEST(regExpr, errorsOfAPattern)
{
    static const struct { const char *pattern, *error; } cases[] = {
        { "*",         "Badly placed special character" },   { "+a",     "Badly placed special character" },
        { "?",         "Badly placed special character" },   { "(*a)",   "Badly placed special character" },
        { "a|*b",      "Badly placed special character" },   { "a\n+",   "Badly placed special character" },
        { "^*",        "Badly placed special character" },   { "a$?",    "Badly placed special character" },
        { "(",         "Badly placed parenthesis" },         { ")",      "Badly placed parenthesis" },
        { "(a",        "Badly placed parenthesis" },         { "a)",     "Badly placed parenthesis" },
        { "((a)",      "Badly placed parenthesis" },         { "(a))b",  "Badly placed parenthesis" },
        { "(a|b",      "Badly placed parenthesis" },
        { "\\1",       "Bad match register number" },        { "(a)\\2", "Bad match register number" },
        { "\\1(a)",    "Bad match register number" },
        { "\\",        "Regular expression ends prematurely" }, { "a\\", "Regular expression ends prematurely" },
        { "[",         "Regular expression ends prematurely" }, { "[]",  "Regular expression ends prematurely" },
        { "[^",        "Regular expression ends prematurely" }, { "[^]", "Regular expression ends prematurely" },
        { "[a-",       "Regular expression ends prematurely" }, { "([a", "Regular expression ends prematurely" }
    };
    for (const auto &c : cases) EXPECT_EQ(compileError(c.pattern), c.error) << c.pattern;
}

TEST(regExpr, aFirstStarIsBadlyPlaced)
{
    EXPECT_EQ(compileError("*a"), "Badly placed special character");
}

TEST(regExpr, ninetyNineGroupsCompileAndOneMoreIsTooComplex)
{
    std::string flat, nested, text(99, 'a');
    for (int i = 0; i < 99; ++i) flat += "(a)";
    nested = std::string(99, '(') + "a" + std::string(99, ')');
    Pattern p(flat);
    reRegisters regs;
    ASSERT_EQ(p.error, nullptr);
    EXPECT_EQ(p.match(text, 0, &regs), 99);
    EXPECT_EQ(regs.start[99], 98);
    EXPECT_EQ(regs.end[99], 99);
    EXPECT_EQ(matchLength(nested, "a"), 1);

    EXPECT_EQ(compileError(flat + "(a)"), "Regular expression too complex");
    EXPECT_EQ(compileError("(" + nested + ")"), "Regular expression too complex");
    EXPECT_EQ(compileError(std::string(5000, '(')), "Regular expression too complex");
}

TEST(regExpr, whatAJumpCannotSpanIsTooComplex)
{
    std::string item(16379, 'a');                           /* two bytes each */
    EXPECT_EQ(matchLength("(" + item + ")*b", item + "b"), 16380);
    EXPECT_EQ(compileError("(" + item + "a)*b"), "Regular expression too complex");
    EXPECT_EQ(matchLength(item + "aaa|b", "b"), 1);
    EXPECT_EQ(compileError(item + "aaaa|b"), "Regular expression too complex");
    EXPECT_EQ(compileError("a" + std::string(20000, '*')), "Regular expression too complex");
    EXPECT_EQ(matchLength(item + item, item + item), 32758); /* without a jump there is no such limit */
}

TEST(regExpr, manyAlternatives)
{
    std::string pattern = "x";
    for (int i = 0; i < 1000; ++i) pattern += "|" + std::to_string(1000 + i);
    Pattern p("(" + pattern + ")$");
    ASSERT_EQ(p.error, nullptr);
    EXPECT_EQ(p.match("1999"), 4);
    EXPECT_EQ(p.match("1000"), 4);
    EXPECT_EQ(p.match("x"), 1);
    EXPECT_EQ(p.match("2000"), -1);
}

TEST(regExpr, theCompilerAllocatesAndGrowsABuffer)
{
    Pattern small("abc");
    EXPECT_EQ(small.pattern.allocated, 256);
    EXPECT_EQ(small.pattern.used, 7);
    EXPECT_EQ(small.pattern.uses_registers, 0);
    EXPECT_EQ(small.pattern.num_registers, 1);

    std::string sets;
    for (int i = 0; i < 100; ++i) sets += "[ab]";
    rePattern p = {};
    p.buffer = (unsigned char *) malloc(8);
    p.allocated = 8;
    ASSERT_EQ(reCompilePattern(sets.data(), (int) sets.size(), &p), nullptr);
    EXPECT_EQ(p.used, 3301);
    EXPECT_GE(p.allocated, p.used);
    EXPECT_EQ(reMatch(&p, std::string(100, 'a').c_str(), 100, 0, nullptr), 100);

    unsigned char *kept = p.buffer;                         /* a buffer that is large enough stays in place */
    ASSERT_EQ(reCompilePattern("(a)", 3, &p), nullptr);
    EXPECT_EQ(p.buffer, kept);
    EXPECT_EQ(p.uses_registers, 1);
    EXPECT_EQ(p.num_registers, 2);
    free(p.buffer);
}

TEST(regExpr, theCodeOfAPattern)
{
    static const struct { const char *pattern; std::vector<int> code; } cases[] = {
        { "",       { 0 } },
        { "a",      { 4, 'a', 0 } },
        { "^.$",    { 1, 5, 2, 0 } },
        { "a*",     { 11, 5, 0, 4, 'a', 10, 0xf8, 0xff, 0 } },
        { "a+",     { 13, 3, 0, 11, 5, 0, 4, 'a', 10, 0xf8, 0xff, 0 } },
        { "a?",     { 11, 2, 0, 4, 'a', 0 } },
        { "[^b]?",  { 11, 33, 0, 3, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 0xfb, 255, 255, 255,
                      255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 0 } },
        { "a*?",    { 11, 8, 0, 11, 5, 0, 4, 'a', 10, 0xf8, 0xff, 0 } },
        { "a**",    { 11, 11, 0, 11, 5, 0, 4, 'a', 10, 0xf8, 0xff, 10, 0xf2, 0xff, 0 } },
        { "(.)+b",  { 13, 3, 0, 11, 8, 0, 6, 1, 5, 7, 1, 10, 0xf5, 0xff, 4, 'b', 0 } },
        { "a|b",    { 11, 5, 0, 4, 'a', 9, 2, 0, 4, 'b', 0 } },
        { "a\nb",   { 11, 5, 0, 4, 'a', 9, 2, 0, 4, 'b', 0 } },
        { "^|a",    { 11, 4, 0, 1, 9, 2, 0, 4, 'a', 0 } },
        { "a|b|c",  { 11, 5, 0, 4, 'a', 9, 10, 0, 11, 5, 0, 4, 'b', 9, 2, 0, 4, 'c', 0 } },
        { "(a|b)*$", { 11, 17, 0, 6, 1, 11, 5, 0, 4, 'a', 9, 2, 0, 4, 'b', 7, 1, 10, 0xec, 0xff, 2, 0 } },
        { "(a)\\1", { 6, 1, 4, 'a', 7, 1, 8, 1, 0 } },
        { "\\`\\'\\<\\>\\b\\B", { 14, 15, 16, 17, 18, 19, 0 } },
        { "\\w\\W", { 20, 1, 21, 1, 0 } },
        /* a set: the lowest character is the lowest bit of the first byte */
        { "[ab0-9]", { 3, 0, 0, 0, 0, 0, 0, 0xff, 3, 0, 0, 0, 0, 6, 0, 0, 0,
                          0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 } },
        { "[^\x01-\xfe]", { 3, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                               0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0 } }
    };
    for (const auto &c : cases) {
        Pattern p(c.pattern);
        ASSERT_EQ(p.error, nullptr);
        EXPECT_EQ(std::vector<int>(p.pattern.buffer, p.pattern.buffer + p.pattern.used), c.code) << c.pattern;
    }
}

TEST(regExpr, aSecondMatchGivesTheSameAsTheFirst)
{
    static const struct { const char *pattern, *first, *second; } cases[] = {
        { "a*b", "aab", "aac" },      { "a*ab", "aab", "aaa" },   { "(a|b)*c", "abc", "ab" },
        { "(a*)*b", "aab", "b" },     { "(ab)+c", "ababc", "c" }, { ".*x", "axxa", "aaa" },
        { "[ab]+[bc]", "abb", "c" },  { "(a+b)*a+c", "aac", "abaabac" }
    };
    for (const auto &c : cases) {
        Pattern once(c.pattern), other(c.pattern);
        int first = once.match(c.first), second = other.match(c.second);
        EXPECT_EQ(once.match(c.first), first) << c.pattern;
        EXPECT_EQ(once.match(c.second), second) << c.pattern;
        EXPECT_EQ(other.match(c.first), first) << c.pattern;
    }
}

/* The opcode that the end of the first loop has after a match. */
static int loopAfterMatch(const char *pattern, const char *text)
{
    Pattern p(pattern);
    int at = 0;
    while (p.pattern.buffer[at] != 10) ++at;
    p.match(text);
    return p.pattern.buffer[at];
}

TEST(regExpr, aLoopKeepsOneChoicePointOnlyWhereThatChangesNothing)
{
    enum { JUMP = 9, UPDATE = 12, TURN = 22 };
    EXPECT_EQ(loopAfterMatch("a*b", "aab"), UPDATE);
    EXPECT_EQ(loopAfterMatch("a+b", "aab"), UPDATE);
    EXPECT_EQ(loopAfterMatch("a*$", "aab"), UPDATE);
    EXPECT_EQ(loopAfterMatch("(a*)(b|c)", "aab"), UPDATE);
    EXPECT_EQ(loopAfterMatch("(a*b)*c", "aab"), UPDATE);
    EXPECT_EQ(loopAfterMatch("(ab)*c", "abc"), UPDATE);
    EXPECT_EQ(loopAfterMatch("\\w*\\W", "aa-"), UPDATE);
    EXPECT_EQ(loopAfterMatch("[0-9]*[a-z]", "12a"), UPDATE);
    EXPECT_EQ(loopAfterMatch("a*ab", "aab"), JUMP);
    EXPECT_EQ(loopAfterMatch("a*b?", "aab"), JUMP);
    EXPECT_EQ(loopAfterMatch("(b|c)a*(d|a)", "baad"), JUMP);
    EXPECT_EQ(loopAfterMatch("a*\\bb", "aab"), UPDATE);
    EXPECT_EQ(loopAfterMatch("a*\\b", "aab"), JUMP);
    EXPECT_EQ(loopAfterMatch("(ba*)*a", "bab"), JUMP);
    EXPECT_EQ(loopAfterMatch("(x)a*\\1", "xaax"), JUMP);
    EXPECT_EQ(loopAfterMatch("(a|b)*c", "abc"), JUMP);
    EXPECT_EQ(loopAfterMatch("(a?)*b", "aab"), TURN);
}

TEST(regExpr, theFirstMatchThatMeetsALoopsEndWritesOverItsOpcodeAlone)
{
    static const struct { const char *pattern, *text; std::vector<int> ends; } cases[] = {
        { "a*b",     "aab",  { 12 } },      { "a*ab",    "aab",  { 9 } },       { "(a?)*b",  "aab",  { 22 } },
        { "a+b",     "aab",  { 12 } },      { "a*b",     "b",    { 10 } },      { "a*b+",    "aab",  { 12, 12 } },
        { "a*b+c",   "aabc", { 12, 12 } },  { "a*b*c",   "aac",  { 12, 10 } },  { "(a*b)*c", "abc",  { 12, 9 } }
    };
    for (const auto &c : cases) {
        Pattern p(c.pattern);
        auto code = [&] { return std::vector<int>(p.pattern.buffer, p.pattern.buffer + p.pattern.used); };
        std::vector<int> expected = code();
        size_t n = 0;
        for (int &byte : expected)
            if (byte == 10 && n < c.ends.size()) byte = c.ends[n++];
        ASSERT_EQ(n, c.ends.size()) << c.pattern;
        for (int i = 0; i < 3; ++i) {
            EXPECT_GT(p.match(c.text), 0) << c.pattern;
            EXPECT_EQ(code(), expected) << c.pattern << " match " << i;
        }
    }
}

TEST(regExpr, aLongTextNeedsNoChoicePointsWhereALoopKeepsOne)
{
    std::string text(1000000, 'a');
    EXPECT_EQ(matchLength("a*b", text + "b"), 1000001);
    EXPECT_EQ(matchLength("(a)+$", text), 1000000);
    EXPECT_EQ(matchRegisters("(aa)*(b)", text + "b"), "0-1000001 999998-1000000 1000000-1000001");
    EXPECT_EQ(matchLength("a*b", text), -1);
}

TEST(regExpr, moreThan4100ChoicePointsAreAFailureAndNoFalseNoMatch)
{
    /* one for each character and one at the end */
    EXPECT_EQ(matchLength(".*x", std::string(4099, 'a')), -1);
    EXPECT_EQ(matchLength(".*x", std::string(4100, 'a')), -2);
    EXPECT_EQ(matchLength(".*x", std::string(100000, 'a')), -2);
    EXPECT_EQ(matchLength("(a|b)*c", std::string(3000, 'a') + "c"), -2);
    EXPECT_EQ(matchLength("(a|b)*c", std::string(2000, 'a') + "c"), 2001);
    EXPECT_EQ(matchRegisters("((a)|(b))*c", std::string(1000, 'a') + "c"), "0-1001 999-1000 999-1000 -");

    Pattern p("(a|b)*c");                                   /* and the next match starts anew */
    reRegisters regs;
    EXPECT_EQ(p.match(std::string(5000, 'b'), 0, &regs), -2);
    EXPECT_EQ(p.match("abc", 0, &regs), 3);
    EXPECT_EQ(regs.start[1], 1);
}

/* More than the 128 that are at hand: these and the registers' former values move, and are still needed. */
TEST(regExpr, theFirstChoicePointsOutliveTheMoveToTheHeap)
{
    for (int n : { 100, 127, 128, 129, 2000 }) {
        const std::string tail((size_t) n, 'a');
        EXPECT_EQ(matchRegisters("(.)*y", "aby" + tail), "0-3 1-2") << n;
        EXPECT_EQ(matchRegisters("((.)(b)?)+y", "aby" + tail), "0-3 0-2 0-1 1-2") << n;
        EXPECT_EQ(matchRegisters(".*c|(a|b)*", "ab" + tail), "0-" + std::to_string(n + 2) + " "
                  + std::to_string(n + 1) + "-" + std::to_string(n + 2)) << n;
    }
}

/* Each would take longer than the age of the universe, or of whoever waits for it. */
TEST(regExpr, aMatchThatTriesForEverGivesUp)
{
    const std::string text(60, 'a');
    EXPECT_EQ(matchLength("(a|a)*b", text), -2);
    EXPECT_EQ(matchLength("^case++\\.[0-9]+$", "cas" + std::string(37, 'e') + ".1.cli"), -2);
    EXPECT_EQ(matchLength("(a|a)*", text), 60);

    /* here a single step may look through much */
    EXPECT_EQ(matchLength("((a*)*|a)*b", std::string(2000, 'a')), -2);
    EXPECT_EQ(matchLength("(a*)(\\1|a)*b", std::string(1000, 'a')), -2);
}

TEST(regExpr, anHonestMatchOfALongTextIsNotGivenUp)
{
    const char line[] = "^[ \t]*([a-z]+)([ \t]*[=:][ \t]*|[ \t]+)(.*[^ \t])[ \t]*$";
    EXPECT_EQ(matchLength(line, "k" + std::string(4000, ' ')), -1);
    EXPECT_EQ(matchLength(line, "k" + std::string(2000, ' ') + "=" + std::string(2000, ' ')), 4002);
}

TEST(regExpr, aLoopAtTheEndTakesALongText)
{
    const std::string text(5000, 'a');
    EXPECT_EQ(matchLength("a*", text), 5000);
    EXPECT_EQ(matchLength(".*", text), 5000);
    EXPECT_EQ(matchLength("(a)+", text), 5000);
}

#if defined __SANITIZE_ADDRESS__ || defined __SANITIZE_THREAD__
enum { SANITIZED = 1 };
#elif defined __has_feature
enum { SANITIZED = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) };
#else
enum { SANITIZED = 0 };
#endif

/* What f gives in a process of its own that may have no more than 64 megabytes. */
static int resultInLittleMemory(const std::function<int()> &f)
{
    const pid_t child = fork();
    if (child == 0) {
        const struct rlimit most = { 64 << 20, 64 << 20 };
        _exit(setrlimit(RLIMIT_AS, &most) == 0 ? f() : 99);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(regExpr, withoutMemoryForTheCodeCompilingFails)
{
    if (SANITIZED) GTEST_SKIP() << "a sanitizer's own memory is beyond any limit";
    const std::string text(24 << 20, 'a');
    EXPECT_EQ(resultInLittleMemory([&] {
        rePattern p = {};
        const char *error = reCompilePattern(text.data(), (int) text.size(), &p);
        return !error ? 1 : strcmp(error, "Out of memory") != 0 ? 2 : p.buffer ? 0 : 4;
    }), 0);
}

/* 2000 blocks of 98400 bytes are more than there is. */
TEST(regExpr, whatIsOnTheHeapIsReleasedOnEveryReturn)
{
    if (SANITIZED) GTEST_SKIP() << "a sanitizer's own memory is beyond any limit";
    static const struct { const char *pattern; std::string text; int result; } cases[] = {
        { ".*x",     "x" + std::string(200, 'a'), 1 },
        { ".*x",     std::string(200, 'a'), -1 },
        { "(a|b)*c", std::string(1000, 'a') + "c", 1001 },  /* with a long trail of registers, too */
        { "(a|b)*c", std::string(5000, 'a'), -2 }
    };
    for (const auto &c : cases)
        EXPECT_EQ(resultInLittleMemory([&] {
            Pattern p(c.pattern);
            int n = 0;
            while (n < 2000 && p.match(c.text) == c.result) ++n;
            return n == 2000 ? 0 : 1;
        }), 0) << c.pattern << " " << c.result;
}

/* 128 choice points and 64 records of registers are at hand without asking for memory. */
TEST(regExpr, withoutMemoryAMatchDoesWithWhatIsAtHand)
{
    if (SANITIZED) GTEST_SKIP() << "a sanitizer's own memory is beyond any limit";
    static const struct { const char *pattern; std::string text; int result; } cases[] = {
        { ".*x",     std::string(127, 'a'), -1 },             { ".*x",     std::string(128, 'a'), -2 },
        { "(a|b)*c", std::string(31, 'a'), -1 },              { "(a|b)*c", std::string(32, 'a'), -2 },
        { "a*b",     std::string(10000, 'a') + "b", 10001 },  { "(a)+$",   std::string(10000, 'a'), 10000 }
    };
    for (const auto &c : cases)
        EXPECT_EQ(resultInLittleMemory([&] {
            static void *volatile taken;                    /* so that no compiler leaves the allocation out */
            Pattern p(c.pattern);
            for (size_t n = 1 << 20; n >= 64; n /= 2)
                while ((taken = malloc(n)) != nullptr) { }
            return p.match(c.text) == c.result ? 0 : 1;
        }), 0) << c.pattern << " on " << c.text.size();
}

TEST(regExpr, aLongTrailOfRegistersIsPutBack)
{
    /* every turn writes all of eight registers; all of it is taken back before the last alternative matches */
    std::string body = "((((((((a|b))))))))";
    EXPECT_EQ(matchRegisters("(" + body + ")*c|.*", std::string(1500, 'a')), "0-1500 - - - - - - - - -");
}

TEST(regExpr, caseFoldingAppliesToBothSides)
{
    char fold[256];
    for (int c = 0; c < 256; ++c) fold[c] = (char) (c >= 'A' && c <= 'Z' ? c + 32 : c);
    static const struct { const char *pattern, *text; int length; } cases[] = {
        { "AbC", "aBc", 3 },  { "[A-C]+", "aBcD", 3 },   { "[^A]", "a", -1 },  { "(a)\\1", "aA", 2 },
        { "A*b", "aAB", 3 },  { "\\w+\\b", "aZ-", 2 },   { "\\Q", "q", 1 }
    };
    for (const auto &c : cases) {
        Pattern p(c.pattern, fold);
        EXPECT_EQ(p.match(c.text), c.length) << c.pattern;
    }
}

/* With `a` folded to a hyphen and `+` to a letter, what is a word is told by the folded characters. */
TEST(regExpr, wordsAreThoseOfTheFoldedText)
{
    char fold[256];
    for (int c = 0; c < 256; ++c) fold[c] = (char) (c == 'a' ? '-' : c == '+' ? 'b' : c);
    static const struct { const char *pattern, *text; int pos, length; } cases[] = {
        { "\\<b",  "ab", 1, 1 },    { "\\<b", "+b", 1, -1 },   { "b\\>", "ba", 0, 1 },   { "b\\>", "b+", 0, -1 },
        { "\\b",   "ab", 1, 0 },    { "\\b",  "+b", 1, -1 },   { "\\B",  "a-", 1, 0 },   { "\\B",  "+-", 1, -1 },
        { "\\w",   "a",  0, -1 },   { "\\w",  "+",  0, 1 },    { "\\W",  "a",  0, 1 },   { "\\W",  "+",  0, -1 },
        { "\\<\\+", "b", 0, 1 },    { "\\<a", "-",  0, -1 }
    };
    for (const auto &c : cases) {
        Pattern p(c.pattern, fold);
        EXPECT_EQ(p.match(c.text, c.pos), c.length) << c.pattern << " on " << c.text;
    }

    char map[256];
    static const struct { const char *pattern, *in, *out; } maps[] = {
        { "\\w", "b+", "a-" },  { "\\W", "a-", "b+" },  { "a", "a-", "b+" },  { "b", "b+", "a-" },
        { "[+]", "b+", "a-" }
    };
    for (const auto &m : maps) {
        Pattern p(m.pattern, fold);
        p.pattern.fastmap = map;
        reCompileFastmap(&p.pattern);
        for (const char *c = m.in; *c; ++c) EXPECT_EQ(map[(int) *c], 1) << m.pattern << " " << *c;
        for (const char *c = m.out; *c; ++c) EXPECT_EQ(map[(int) *c], 0) << m.pattern << " " << *c;
    }
}

TEST(regExpr, theFastmapHoldsTheFirstCharacters)
{
    static const struct { const char *pattern, *first; int canBeNull; } cases[] = {
        { "abc", "a", 0 },   { "a|b", "ab", 0 },  { "a*b", "ab", 0 },  { "a*", "a", 1 },     { "a+b", "a", 0 },
        { "(a|)b", "ab", 0 },{ "^$", "", 1 },     { "[ab]c", "ab", 0 },{ "(a?b?)*c", "abc", 0 }, { "\\<a", "a", 0 }
    };
    for (const auto &c : cases) {
        Pattern p(c.pattern);
        char map[256];
        memset(map, 9, sizeof map);
        p.pattern.fastmap = map;
        reCompileFastmap(&p.pattern);
        for (int i = 0; i < 256; ++i) EXPECT_EQ(map[i], i && strchr(c.first, i) ? 1 : 0) << c.pattern << " " << i;
        EXPECT_EQ(p.pattern.can_be_null, c.canBeNull) << c.pattern;
        EXPECT_EQ(p.pattern.fastmap_accurate, 1);
    }
    Pattern any("."), word("\\w");
    char map[256];
    any.pattern.fastmap = word.pattern.fastmap = map;
    reCompileFastmap(&any.pattern);
    EXPECT_EQ(memchr(map, 0, sizeof map), nullptr);
    reCompileFastmap(&word.pattern);
    EXPECT_EQ(map[(int) 'Z'], 1);
    EXPECT_EQ(map[(int) '_'], 0);
    Pattern none("a*");
    reCompileFastmap(&none.pattern);                        /* no map: only can_be_null */
    EXPECT_EQ(none.pattern.can_be_null, 1);
}

TEST(regExpr, anchorsAreNoted)
{
    EXPECT_EQ(Pattern("^a").pattern.anchor, 1);
    EXPECT_EQ(Pattern("\\`a").pattern.anchor, 2);
    EXPECT_EQ(Pattern("a").pattern.anchor, 0);
    EXPECT_EQ(Pattern("^a|b").pattern.anchor, 0);
}

TEST(regExpr, positionsOutsideOfTheTextFail)
{
    Pattern p("a");
    checkFails("pos >= 0 && size1 >= 0 && size2 >= 0 && mstop >= 0", reMatch(&p.pattern, "a", 1, -1, nullptr));
    checkFails("pos >= 0 && size1 >= 0 && size2 >= 0 && mstop >= 0", reMatch(&p.pattern, "a", -1, 0, nullptr));
    checkFails("pos <= mstop", reMatch(&p.pattern, "a", 1, 2, nullptr));
}

/* A pattern whose code is not the compiler's. */
static rePattern rawPattern(std::vector<unsigned char> &code)
{
    rePattern p = {};
    p.buffer = code.data();
    p.allocated = p.used = (int) code.size();
    p.num_registers = 1;
    return p;
}

TEST(regExpr, codeThatContradictsItselfFails)
{
    Pattern tables("a");
    std::vector<unsigned char> star = { 4, 'a', 4, 'a', 10, 0xf9, 0xff, 0 };
    std::vector<unsigned char> dummy = { 13, 0, 0, 4, 'a', 0 };
    rePattern p = rawPattern(star), q = rawPattern(dummy);
    checkFails("p1[-3] == Cfailure_jump", reMatch(&p, "aaa", 3, 0, nullptr));
    checkFails("*code == Cfailure_jump", reMatch(&q, "aaa", 3, 0, nullptr));
}

TEST(regExpr, anUnknownInstructionBehindALoopIsReportedAndFails)
{
    Pattern tables("a");
    std::vector<unsigned char> code = { 11, 5, 0, 4, 'a', 10, 0xf8, 0xff, 99, 0 };
    rePattern p = rawPattern(code);
    testing::internal::CaptureStderr();
    EXPECT_EQ(reMatch(&p, "aab", 3, 0, nullptr), -2);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "regexpr.c: processing star_jump: unknown op 99\n");
}

/* Random patterns. A tree is made at random, written as a pattern, and matched by a plain walk with continuations. */

struct Node {
    enum Kind { LITERAL, ANY, SET, GROUP, REPEAT, REFERENCE, TEST } kind;
    std::string                                     text;          /* as written, for leaves            */
    std::function<bool(char)>                       takes;         /* LITERAL, ANY, SET                 */
    int                                             number = 0;    /* of the group or the reference     */
    char                                            op = 0;        /* REPEAT: * + ?; TEST: its letter   */
    std::vector<std::vector<std::unique_ptr<Node>>> branches;      /* GROUP; REPEAT: one item           */
};
using NodePtr = std::unique_ptr<Node>;
using Branches = std::vector<std::vector<NodePtr>>;

static std::string written(const Branches &branches);

static std::string written(const Node &n)
{
    switch (n.kind) {
    case Node::GROUP:  return "(" + written(n.branches) + ")";
    case Node::REPEAT: return written(n.branches) + n.op;
    default:           return n.text;
    }
}

static std::string written(const Branches &branches)
{
    std::string text;
    for (size_t i = 0; i < branches.size(); ++i) {
        if (i) text += "|";
        for (const NodePtr &n : branches[i]) text += written(*n);
    }
    return text;
}

/* Plain backtracking; positions and registers by value, so that nothing has to be put back. */
struct Walk {
    struct State { int pos; std::vector<int> start, end; };
    using Next = std::function<bool(State)>;
    const std::string &text;
    long               steps = 0;
    bool               tooLong = false;

    bool wordAt(int i) const { return i >= 0 && i < (int) text.size() && isalnum((unsigned char) text[i]); }

    bool sequence(const std::vector<NodePtr> &items, size_t i, State s, const Next &next)
    {
        if (i == items.size()) return next(std::move(s));
        return node(*items[i], std::move(s), [&, i](State t) { return sequence(items, i + 1, std::move(t), next); });
    }
    bool choose(const Branches &branches, const State &s, const Next &next)
    {
        for (const auto &b : branches)
            if (sequence(b, 0, s, next)) return true;
        return false;
    }
    bool repeat(const Node &n, const State &s, bool optional, const Next &next)
    {
        int from = s.pos;
        auto turn = [&](State t) { return !(optional && t.pos == from) && repeat(n, t, true, next); };
        if (sequence(n.branches[0], 0, s, turn)) return true;
        return optional && next(s);
    }
    bool node(const Node &n, State s, const Next &next)
    {
        if (++steps > 200000) tooLong = true;
        if (tooLong) return false;
        switch (n.kind) {
        case Node::GROUP: {
            int from = s.pos;
            return choose(n.branches, s, [&, from](State t) {
                t.start[n.number] = from;
                t.end[n.number] = t.pos;
                return next(std::move(t));
            });
        }
        case Node::REPEAT:
            if (n.op == '?') return sequence(n.branches[0], 0, s, next) || next(s);
            return repeat(n, s, n.op == '*', next);
        case Node::REFERENCE: {
            if (s.end[n.number] < 0) return false;
            std::string part = text.substr(s.start[n.number], s.end[n.number] - s.start[n.number]);
            if (text.compare(s.pos, part.size(), part) != 0) return false;
            s.pos += (int) part.size();
            return next(std::move(s));
        }
        case Node::TEST: {
            bool before = wordAt(s.pos - 1), after = wordAt(s.pos), ok = false;
            switch (n.op) {
            case '^': case '`':  ok = s.pos == 0; break;
            case '$': case '\'': ok = s.pos == (int) text.size(); break;
            case '<': ok = !before && after; break;
            case '>': ok = before && !after; break;
            case 'b': ok = before != after; break;
            case 'B': ok = before == after; break;
            }
            return ok && next(std::move(s));
        }
        default:
            if (s.pos >= (int) text.size() || !n.takes(text[s.pos])) return false;
            ++s.pos;
            return next(std::move(s));
        }
    }
};

struct Maker {
    std::mt19937 random;
    int          nGroups = 0;

    int below(int n) { return (int) (random() % (unsigned) n); }

    NodePtr leaf()
    {
        auto n = std::make_unique<Node>();
        static const char *const sets[] = { "[ab]", "[^a]", "[b-c]", "\\w", "\\W" };
        switch (below(8)) {
        case 0:
            n->kind = Node::ANY;
            n->text = ".";
            n->takes = [](char) { return true; };
            break;
        case 1: {
            int which = below(5);
            n->kind = Node::SET;
            n->text = sets[which];
            n->takes = [which](char c) {
                bool in[] = { c == 'a' || c == 'b', c != 'a', c == 'b' || c == 'c', isalnum(c) != 0, !isalnum(c) };
                return in[which];
            };
            break;
        }
        default: {
            char c = "abc-"[below(7) % 4];
            n->kind = Node::LITERAL;
            n->text = std::string(1, c);
            n->takes = [c](char x) { return x == c; };
        }
        }
        return n;
    }
    NodePtr test()
    {
        auto n = std::make_unique<Node>();
        n->kind = Node::TEST;
        n->op = "^$bB<>`'"[below(8)];
        n->text = strchr("^$", n->op) ? std::string(1, n->op) : std::string("\\") + n->op;
        return n;
    }
    NodePtr group(int depth)
    {
        auto n = std::make_unique<Node>();
        n->kind = Node::GROUP;
        n->number = ++nGroups;
        n->branches = branches(depth);
        return n;
    }
    NodePtr reference()
    {
        auto n = std::make_unique<Node>();
        n->kind = Node::REFERENCE;
        n->number = 1 + below(nGroups < 9 ? nGroups : 9);
        n->text = "\\" + std::to_string(n->number);
        return n;
    }
    NodePtr item(int depth)
    {
        int what = below(12);
        if (what == 0) return test();
        if (what == 1 && nGroups > 0) return reference();
        NodePtr base = depth > 0 && what < 6 ? group(depth - 1) : leaf();
        int op = below(9);
        if (op >= 3) return base;
        auto n = std::make_unique<Node>();
        n->kind = Node::REPEAT;
        n->op = "*+?"[op];
        n->branches.emplace_back();
        n->branches[0].push_back(std::move(base));
        return n;
    }
    Branches branches(int depth)
    {
        Branches all;
        for (int n = 1 + (below(3) == 0) + (below(5) == 0); n > 0; --n) {
            all.emplace_back();
            for (int items = below(4); items > 0; --items) all.back().push_back(item(depth));
        }
        return all;
    }
    std::string text()
    {
        std::string t;
        for (int n = below(9); n > 0; --n) t += "abc-"[below(7) % 4];
        return t;
    }
};

TEST(regExpr, matchesLikePlainBacktracking)
{
    int nMatches = 0, nCompared = 0;
    Maker make{ std::mt19937(2021) };
    for (int i = 0; i < 8000; ++i) {
        make.nGroups = 0;
        Branches tree = make.branches(3);
        std::string pattern = written(tree);
        Pattern p(pattern);
        ASSERT_EQ(p.error, nullptr) << pattern;
        for (int k = 0; k < 4; ++k) {                       /* the first match changes the code, the others use it */
            std::string text = make.text();
            int pos = k == 3 && !text.empty() ? make.below((int) text.size()) : 0;
            Walk walk{ text };
            Walk::State first{ pos, std::vector<int>(make.nGroups + 1, -1), std::vector<int>(make.nGroups + 1, -1) };
            std::string expected = "-1";
            walk.choose(tree, first, [&](Walk::State s) {
                reRegisters regs;
                for (int r = 0; r <= make.nGroups; ++r) regs.start[r] = s.start[r], regs.end[r] = s.end[r];
                regs.start[0] = pos;
                regs.end[0] = s.pos;
                expected = registersText(regs, make.nGroups + 1);
                return true;
            });
            if (walk.tooLong) continue;
            reRegisters regs;
            int length = p.match(text, pos, &regs);
            std::string found = length < 0 ? std::to_string(length) : registersText(regs, make.nGroups + 1);
            ASSERT_EQ(found, expected) << pattern << " on \"" << text << "\" at " << pos << ", match " << k;
            nMatches += length > 0;
            ++nCompared;
        }
    }
    EXPECT_GT(nCompared, 30000);
    EXPECT_GT(nMatches, 5000);
}

TEST(regExpr, hostilePatternsNeverFaultTheEngine)
{
    std::mt19937 random(77);
    for (int i = 0; i < 20000; ++i) {
        std::string pattern, text;
        for (int n = (int) (random() % 30); n > 0; --n) pattern += "()[]*+?|\\^$.-ab1w\n"[random() % 19];
        for (int n = (int) (random() % 12); n > 0; --n) text += "ab1-"[random() % 4];
        Pattern p(pattern);
        if (p.error) continue;
        reRegisters regs;
        int first = p.match(text, 0, &regs), second = p.match(text, 0, &regs);
        ASSERT_EQ(first, second) << pattern;
        ASSERT_LE(first, (int) text.size()) << pattern;
        if (first < 0) continue;
        char map[256];
        p.pattern.fastmap = map;
        reCompileFastmap(&p.pattern);
        ASSERT_TRUE(first > 0 ? map[(int) text[0]] : p.pattern.can_be_null) << pattern << " on " << text;
        for (int r = 0; r < RE_NREGS; ++r) {
            ASSERT_LE(regs.start[r], regs.end[r]) << pattern;
            ASSERT_LE(regs.end[r], (int) text.size()) << pattern;
        }
    }
}
