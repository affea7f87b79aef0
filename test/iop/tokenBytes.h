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
    const char *name, *kind;                /* shown; as messages name the form                                */
    const char *file, *onDisk;              /* the name to open; the name of the file that is then read        */
    int         opt;
    bool        binary, swapped;
    bool        grows;                      /* an open file shows what its writer adds                         */
    const char *tag;
};

static const TokenForm tokenForms[] = {
    { "ascii",               "ascii",      "a.out", "a.out",   IOP_ASCII,      false, false, true,  "" },
    { "binary",              "binary",     "b.out", "b.out.B", IOP_BINARY,     true,  false, true,
      "QUENTA 1.0 2 4 6 8\n" },
    { "binary, other order", "binary",     "c.out", "c.out.B", IOP_BINARY,     true,  true,  true,
      "QUENTA v9.x 1 4 5 8\n" },
    { "compressed",          "compressed", "d.out", "d.out.Z", IOP_COMPRESSED, false, false, false, "" },
};

/* What the compressed form holds: codes of 9 bits, here each for a byte by itself. Before the table of longer codes,
   which the reader makes at the same time, would ask for 10 bits, the code 256 clears it. */
static inline std::string compressedBytes(const std::string &bytes)
{
    std::string packed = "\x1f\x9d\x90";
    unsigned bits = 0;
    int nBits = 0, nCodes = 0;
    const auto put = [&](unsigned code) {
        bits |= code << nBits;
        for (nBits += 9; nBits >= 8; nBits -= 8, bits >>= 8) packed += (char) (bits & 0xff);
        ++nCodes;
    };
    for (unsigned char c : bytes) {
        put(c);
        if (nCodes % 248 == 247) put(256);
    }
    if (nBits > 0) packed += (char) bits;
    return packed;
}

/* The bytes of a compressed file, as the system's own program tells them. */
static inline std::string uncompressed(const std::string &name)
{
    std::string bytes;
    FILE *pipe = popen(("gzip -cd < " + name).c_str(), "r");
    for (int c; (c = fgetc(pipe)) != EOF; ) bytes += (char) c;
    EXPECT_EQ(pclose(pipe), 0) << name;
    return bytes;
}

/* What is large is left to the system's own program: it makes files that are read faster. */
static inline void writeCompressed(const std::string &name, const std::string &bytes)
{
    if (bytes.size() < 10000) {
        testWrite(name, compressedBytes(bytes));
        return;
    }
    FILE *pipe = popen(("compress > " + name).c_str(), "w");
    fwrite(bytes.data(), 1, bytes.size(), pipe);
    EXPECT_EQ(pclose(pipe), 0) << name;
}

/* Puts a file there that holds these bytes in the form's way. */
static inline void writeBytes(const TokenForm &form, const std::string &bytes)
{
    if (form.opt == IOP_COMPRESSED) writeCompressed(form.onDisk, bytes);
    else testWrite(form.onDisk, bytes);
}

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
    void write() const { writeBytes(form, bytes); }
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
