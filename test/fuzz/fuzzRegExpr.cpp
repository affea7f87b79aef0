/* fuzzRegExpr.cpp: any bytes as a pattern and a text.
 *
 * The data: a byte that chooses case folding, the position and whether the text is repeated, a byte for the length of
 * the pattern, the pattern, and the text. Backtracking may take time that grows exponentially with either, so that the
 * more operators there are, the shorter is the text; with one alone it is long enough to use up all choice points. The
 * first match changes the code: the second one must give the same. */

#include <vector>

#include "base/regExpr.h"
#include "test/fuzz/fuzzUtil.h"

enum { MAX_PATTERN = 48, MAX_OPERATORS = 4, LONGEST = 9000 };

static const int mostMatched[MAX_OPERATORS + 1] = { LONGEST, LONGEST, 14, 9, 6 };

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzStart();
    FuzzBytes bytes{ data, data + size };
    const uint8_t how = bytes.next(), wanted = bytes.next();
    size_t left = (size_t) (bytes.end - bytes.at);
    const int nPattern = (int) (wanted % (MAX_PATTERN + 1) < left ? wanted % (MAX_PATTERN + 1) : left);
    const char *pattern = (const char *) bytes.at;
    left -= (size_t) nPattern;

    int nOperators = 0;
    for (int i = 0; i < nPattern; ++i) nOperators += pattern[i] && strchr("*+?|\n", pattern[i]);
    if (nOperators > MAX_OPERATORS) return 0;

    const int most = mostMatched[nOperators];
    const int nText = left == 0 ? 0 : how & 2 ? most : (int) (left < (size_t) most ? left : (size_t) most);
    const int pos = nText ? how / 4 % (nText + 1) : 0;
    std::vector<char> copy((size_t) nText + 1);             /* that its end is seen */
    char *text = copy.data() + 1;
    for (int i = 0; i < nText; ++i) text[i] = pattern[nPattern + i % (int) left];

    char fold[256], map[256];
    for (int c = 0; c < 256; ++c) fold[c] = (char) (c >= 'A' && c <= 'Z' ? c + 32 : c);
    rePattern p = {};
    p.translate = how & 1 ? fold : nullptr;
    p.fastmap = map;
    if (!reCompilePattern(pattern, nPattern, &p)) {
        reRegisters first, second;
        memset(&first, 9, sizeof first);
        second = first;
        const int length = reMatch(&p, text, nText, pos, &first);
        fuzzCheck(length >= -2 && length <= nText - pos);
        fuzzCheck(reMatch(&p, text, nText, pos, &second) == length);
        fuzzCheck(memcmp(&first, &second, sizeof first) == 0);
        for (int i = 0; length >= 0 && i < RE_NREGS; ++i) {
            const int start = first.start[i], end = first.end[i];
            fuzzCheck(start == -1 ? end == -1 : pos <= start && start <= end && end <= pos + length);
        }
        reCompileFastmap(&p);
        if (length > 0) fuzzCheck(map[(unsigned char) text[pos]] == 1);
        if (length == 0) fuzzCheck(p.can_be_null == 1);
    }
    free(p.buffer);
    return 0;
}
