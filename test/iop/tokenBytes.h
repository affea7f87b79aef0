#ifndef TEST_IOP_TOKENBYTES_H
#define TEST_IOP_TOKENBYTES_H

/* tokenBytes.h: files of tokens for the tests of the file layer, written byte by byte, without the file layer. */

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "iop/iop.h"
#include "test/testUtil.h"

struct TokenForm {
    const char *name, *file, *onDisk;       /* shown; the name to open; the name of the file that is then read */
    int         opt;
    bool        binary, swapped;
    const char *tag;
};

static const TokenForm tokenForms[] = {
    { "ascii",               "a.out", "a.out",   IOP_ASCII,  false, false, ""                       },
    { "binary",              "b.out", "b.out.B", IOP_BINARY, true,  false, "QUENTA 1.0 2 4 6 8\n"   },
    { "binary, other order", "c.out", "c.out.B", IOP_BINARY, true,  true,  "QUENTA v9.x 1 4 5 8\n"  },
};

/* Tokens of a file, in one of the forms: TokenBytes(form).s("nNodes").i(2).r(0.5).bytes */
struct TokenBytes {
    const TokenForm &form;
    std::string      bytes;

    explicit TokenBytes(const TokenForm &f) : form(f), bytes(f.tag) {}

    TokenBytes &put(const void *value, size_t size)
    {
        std::string raw(static_cast<const char *>(value), size);
        if (form.swapped) raw.assign(raw.rbegin(), raw.rend());
        bytes += raw;
        return *this;
    }
    TokenBytes &text(const char *format, double value)
    {
        char number[64];
        snprintf(number, sizeof number, format, value);
        bytes += number;
        return *this;
    }
    TokenBytes &i(int32_t value) { return form.binary ? put(&value, 4) : text("%.0f\n", value); }
    TokenBytes &r(double value)  { return form.binary ? put(&value, 8) : text("%.17g\n", value); }
    TokenBytes &f(float value)   { return form.binary ? put(&value, 4) : text("%.9g\n", value); }
    TokenBytes &s(const std::string &value)
    {
        bytes += value;
        if (form.binary) bytes.append(8 - value.size() % 8, '\0');
        else bytes += '\n';
        return *this;
    }
    TokenBytes &table(const char *key, int nCols, int nRows) { return s(key).i(nCols).i(nRows); }
    void write() const { testWrite(form.onDisk, bytes); }
};

/* Runs the test's body once for each form. */
#define forEachForm(form)                                                    \
    for (const TokenForm &form : tokenForms)                                 \
        if (const testing::ScopedTrace trace_{ __FILE__, __LINE__, form.name }; true)

static inline iopHd *openTokens(const TokenForm &form, int more = 0)
{
    return iopOpenFile(form.file, form.opt | IOP_READ | more);
}

#endif
