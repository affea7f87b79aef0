/* fuzzRegExpr.cpp: any bytes as a pattern and a text.
 *
 * The data: a byte that chooses case folding and the position, a byte for the length of the pattern, the pattern, and
 * the text. Backtracking may take time that grows exponentially with either, so that the text and the number of
 * operators stay small. The first match changes the code: the second one must give the same. */

#include <cstring>

#include "base/regExpr.h"
#include "test/fuzz/fuzzUtil.h"

enum { MAX_PATTERN = 48, MAX_OPERATORS = 4, MAX_MATCHED = 6 };

static void check(bool ok)
{
    if (!ok) abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzStart();
    FuzzBytes bytes{ data, data + size };
    const uint8_t how = bytes.next(), wanted = bytes.next();
    size_t left = (size_t) (bytes.end - bytes.at);
    const int nPattern = (int) (wanted % (MAX_PATTERN + 1) < left ? wanted % (MAX_PATTERN + 1) : left);
    const char *pattern = (const char *) bytes.at, *text = pattern + nPattern;
    left -= (size_t) nPattern;
    const int nText = (int) (left < MAX_MATCHED ? left : MAX_MATCHED), pos = nText ? how / 2 % (nText + 1) : 0;

    int nOperators = 0;
    for (int i = 0; i < nPattern; ++i) nOperators += pattern[i] && strchr("*+?|\n", pattern[i]);
    if (nOperators > MAX_OPERATORS) return 0;

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
        check(length >= -2 && length <= nText - pos);
        check(reMatch(&p, text, nText, pos, &second) == length);
        check(memcmp(&first, &second, sizeof first) == 0);
        for (int i = 0; length >= 0 && i < RE_NREGS; ++i) {
            const int start = first.start[i], end = first.end[i];
            check(start == -1 ? end == -1 : pos <= start && start <= end && end <= pos + length);
        }
        reCompileFastmap(&p);
        if (length > 0) check(map[(unsigned char) text[pos]] == 1);
        if (length == 0) check(p.can_be_null == 1);
    }
    free(p.buffer);
    return 0;
}
