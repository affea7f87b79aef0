/* testRegExprPeer.cpp: random patterns and texts, matched by this engine and by PCRE2. The length and every register
 * must agree.
 *
 * Each pattern is made twice: as it is written here, and in Perl's language, where what is written otherwise (tests of
 * words, a repetition of a repetition, special characters, the newline between alternatives) is spelt out. Perl's
 * rules for registers are the ones here: a group keeps its latest turn, what is taken back gets its former value, and
 * the text of a group that has not ended yet stands nowhere. One thing is left out, since the rules differ: a loop
 * around what may match nothing. Perl takes one empty turn and goes on behind the loop, while here an empty turn is
 * refused; testRegExpr.cpp compares that with a plain walk.
 *
 * PCRE2 runs with its own improvements turned off, so that it gives up where this engine would try for ever. */

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "base/regExpr.h"
#include "test/testUtil.h"

namespace {

/* A part of a pattern in both languages. */
struct Piece {
    std::string ours, peers;
    bool        mayBeEmpty = false;
    bool        repeatable = true;

    void append(const Piece &next)
    {
        ours += next.ours;
        peers += next.peers;
        mayBeEmpty &= next.mayBeEmpty;
    }
};

std::string hex(unsigned char c)
{
    char text[8];
    snprintf(text, sizeof text, "\\x{%02x}", c);
    return text;
}

/* Bytes as a failure shows them. */
std::string shown(const std::string &bytes)
{
    std::string text;
    for (char c : bytes) text += c > ' ' && c <= '~' ? std::string(1, c) : hex((unsigned char) c);
    return text;
}

class Maker {
public:
    explicit Maker(unsigned seed) : random(seed) {}

    Piece pattern()
    {
        groupMayBeEmpty.clear();
        return alternatives(3);
    }
    size_t nGroups() const { return groupMayBeEmpty.size(); }

    /* Up to maxLength characters, in runs of up to maxRun. */
    std::string text(int maxLength, int maxRun)
    {
        std::string t;
        for (int n = below(maxLength + 1); (int) t.size() < n; ) {
            const char c = character();
            t.append((size_t) (1 + below(maxRun)), c);
        }
        return t;
    }
    int below(int n) { return (int) (random() % (unsigned) n); }

private:
    std::mt19937      random;
    std::vector<bool> groupMayBeEmpty;          /* by number less 1; of one that is still open: true */

    char character()
    {
        static const char often[] = "aaaaabbbbc-A", seldom[] = ".*]^\\1B\n\0\xe4";
        return below(12) ? often[below(sizeof often - 1)] : seldom[below(sizeof seldom - 1)];
    }

    Piece literal()
    {
        const char c = character();
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '1';
        return { letter ? std::string(1, c) : std::string("\\") + c, hex((unsigned char) c) };
    }

    /* Characters and ranges. A ] must come first, a - last, and a ^ not first. */
    Piece set()
    {
        static const char *const ranges[] = { "ab", "bc", "Za", "AB", "+.", "\t ", "ba", "\x80\xff" };
        const std::string kind = below(3) ? "[" : "[^";
        std::string first, middle, last, peers;
        for (int n = 1 + below(3); n > 0; --n) {
            const char c = character();
            (c == ']' ? first : c == '-' || c == '^' ? last : middle) += c;
            peers += hex((unsigned char) c);
        }
        if (below(3) == 0) {
            const char *r = ranges[below(sizeof ranges / sizeof *ranges)];
            middle += std::string(1, r[0]) + "-" + r[1];
            if ((unsigned char) r[0] <= (unsigned char) r[1])           /* from b to a there is nothing */
                peers += hex((unsigned char) r[0]) + "-" + hex((unsigned char) r[1]);
        }
        if (first.empty() && middle.empty()) middle = "a", peers += "a";
        if (first.size() > 1) first.resize(1);
        if (last.find('-') != std::string::npos) last = (last.find('^') != std::string::npos ? "^-" : "-");
        return { kind + first + middle + last + "]", kind + peers + "]" };
    }

    Piece leaf()
    {
        switch (below(10)) {
        case 0:         return { ".", "." };
        case 1: case 2: return set();
        case 3:         return below(2) ? Piece{ "\\w", "[A-Za-z0-9]" } : Piece{ "\\W", "[^A-Za-z0-9]" };
        default:        return literal();
        }
    }

    /* A test of the position. Those written as one character bind less than a repetition. */
    Piece test()
    {
#define WORD "[A-Za-z0-9]"
        static const Piece tests[] = {
            { "^",   "\\A", true, false },
            { "$",   "\\z", true, false },
            { "\\`", "\\A", true },
            { "\\'", "\\z", true },
            { "\\<", "(?<!" WORD ")(?=" WORD ")", true },
            { "\\>", "(?<=" WORD ")(?!" WORD ")", true },
            { "\\b", "(?:(?<!" WORD ")(?=" WORD ")|(?<=" WORD ")(?!" WORD "))", true },
            { "\\B", "(?:(?<!" WORD ")(?!" WORD ")|(?<=" WORD ")(?=" WORD "))", true }
        };
#undef WORD
        return tests[below(sizeof tests / sizeof *tests)];
    }

    Piece group(int depth)
    {
        const size_t number = groupMayBeEmpty.size();
        groupMayBeEmpty.push_back(true);
        Piece p = alternatives(depth);
        groupMayBeEmpty[number] = p.mayBeEmpty;
        return { "(" + p.ours + ")", "(" + p.peers + ")", p.mayBeEmpty };
    }

    Piece reference()
    {
        const int number = 1 + below(nGroups() < 9 ? (int) nGroups() : 9);
        const std::string digit = std::to_string(number);
        return { "\\" + digit, "\\g{" + digit + "}", (bool) groupMayBeEmpty[(size_t) number - 1] };
    }

    Piece single(int depth)
    {
        const int what = below(16);
        if (what == 0) return test();
        if (what < 3 && nGroups() > 0) return reference();
        if (what < 8 && depth > 0) return group(depth - 1);
        return leaf();
    }

    Piece item(int depth)
    {
        Piece p = single(depth);
        for (int n = below(3) ? 0 : 1 + (below(5) == 0); n > 0 && p.repeatable; --n) {
            const char op = p.mayBeEmpty ? '?' : "*+?"[below(3)];
            p.ours += op;
            p.peers = "(?:" + p.peers + ")" + op;
            p.mayBeEmpty |= op != '+';
        }
        return p;
    }

    Piece alternatives(int depth)
    {
        Piece all{ "", "" };
        for (int i = 0, n = 1 + (below(3) == 0) + (below(5) == 0); i < n; ++i) {
            Piece branch{ "", "", true };
            for (int k = below(4); k > 0; --k) branch.append(item(depth));
            all.ours += (i == 0 ? "" : below(4) ? "|" : "\n") + branch.ours;
            all.peers += (i == 0 ? "" : "|") + branch.peers;
            all.mayBeEmpty |= branch.mayBeEmpty;
        }
        return all;
    }
};

/* "3: 0-3 - 1-2": the length, the whole match and the groups, "-" for one that took no part. */
template <class Start, class End> std::string outcome(size_t nGroups, Start start, End end)
{
    std::string text = std::to_string(end(0) - start(0)) + ":";
    for (size_t i = 0; i <= nGroups; ++i)
        text += start(i) < 0 ? " -" : " " + std::to_string(start(i)) + "-" + std::to_string(end(i));
    return text;
}

const char noMatch[] = "no match", gaveUp[] = "gave up";

class Peer {
public:
    Peer(const std::string &pattern, bool fold)
    {
        int error = 0;
        PCRE2_SIZE errorAt = 0;
        code = pcre2_compile((PCRE2_SPTR) pattern.data(), pattern.size(),
                             PCRE2_ANCHORED | PCRE2_DOTALL | PCRE2_NO_AUTO_POSSESS | PCRE2_NO_START_OPTIMIZE |
                             PCRE2_NO_DOTSTAR_ANCHOR | (fold ? PCRE2_CASELESS : 0), &error, &errorAt, nullptr);
        context = pcre2_match_context_create(nullptr);
        pcre2_set_match_limit(context, 20000);
        if (code) data = pcre2_match_data_create_from_pattern(code, nullptr);
    }
    ~Peer()
    {
        pcre2_match_data_free(data);
        pcre2_match_context_free(context);
        pcre2_code_free(code);
    }
    Peer(const Peer &) = delete;

    bool compiled() const { return code != nullptr; }
    std::string match(const std::string &text, int pos, size_t nGroups)
    {
        const int result = pcre2_match(code, (PCRE2_SPTR) text.data(), text.size(), (size_t) pos, 0, data, context);
        if (result == PCRE2_ERROR_NOMATCH) return noMatch;
        if (result == PCRE2_ERROR_MATCHLIMIT) return gaveUp;
        if (result < 0) return "error " + std::to_string(result);
        const PCRE2_SIZE *v = pcre2_get_ovector_pointer(data);
        auto at = [&](size_t i) { return v[i] == PCRE2_UNSET ? -1L : (long) v[i]; };
        return outcome(nGroups, [&](size_t i) { return at(2 * i); }, [&](size_t i) { return at(2 * i + 1); });
    }

private:
    pcre2_code          *code;
    pcre2_match_data    *data = nullptr;
    pcre2_match_context *context;
};

class Ours {
public:
    Ours(const std::string &text, const char *translate)
    {
        pattern.translate = translate;
        error = reCompilePattern(text.data(), (int) text.size(), &pattern);
    }
    ~Ours() { free(pattern.buffer); }
    Ours(const Ours &) = delete;

    std::string match(const std::string &text, int pos, size_t nGroups)
    {
        reRegisters regs;
        const int length = reMatch(&pattern, text.data(), (int) text.size(), pos, &regs);
        if (length < 0) return length == -1 ? noMatch : gaveUp;
        if (length != regs.end[0] - regs.start[0]) return "another length than register 0";
        return outcome(nGroups, [&](size_t i) { return regs.start[i]; }, [&](size_t i) { return regs.end[i]; });
    }
    const char *error;

private:
    rePattern pattern = {};
};

} // namespace

TEST(regExprPeer, lengthAndRegistersAreThoseOfAnotherEngine)
{
    char toLower[256];
    for (int c = 0; c < 256; ++c) toLower[c] = (char) (c >= 'A' && c <= 'Z' ? c + 32 : c);

    /* long texts need choice points and records of registers on the heap */
    static const struct {
        unsigned seed;
        bool     fold;
        int      nPatterns, maxLength, maxRun, leastMatches, mostGivenUp;
    } rounds[] = {
        { 4711, false, 16000,  10,   1, 15000,   20 },
        { 2357, true,   8000,  10,   1,  7500,   20 },
        { 1123, false,  4000, 400, 300,  4000,  400 }
    };
    for (const auto &r : rounds) {
        Maker make(r.seed);
        int nMatches = 0, nGivenUp = 0;
        for (int i = 0; i < r.nPatterns; ++i) {
            const Piece pattern = make.pattern();
            Peer peer(pattern.peers, r.fold);
            Ours ours(pattern.ours, r.fold ? toLower : nullptr);
            ASSERT_TRUE(peer.compiled()) << shown(pattern.ours) << " as " << pattern.peers;
            ASSERT_STREQ(ours.error, nullptr) << shown(pattern.ours);
            for (int k = 0; k < 5; ++k) {                   /* the first match changes the code, the others use it */
                const std::string text = make.text(r.maxLength, r.maxRun);
                const int pos = k < 3 ? 0 : make.below((int) text.size() + 1);
                const std::string expected = peer.match(text, pos, make.nGroups());
                const std::string found = expected == gaveUp ? gaveUp : ours.match(text, pos, make.nGroups());
                nGivenUp += found == gaveUp;
                if (found == gaveUp) continue;              /* more tries than the peer may make, or 4100 choices */
                nMatches += expected != noMatch && expected[0] != '0';
                ASSERT_EQ(found, expected)
                    << shown(pattern.ours) << " as " << pattern.peers << "\non \"" << shown(text) << "\" at " << pos
                    << ", match " << k << (r.fold ? ", folded" : "");
            }
        }
        EXPECT_GT(nMatches, r.leastMatches) << r.seed;
        EXPECT_LT(nGivenUp, r.mostGivenUp) << r.seed;
    }
}
