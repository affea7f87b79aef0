/* tokenFile.cpp: the storage forms of a token stream.
 *
 * A form is a TokenSink: it knows how one text and one table of numbers are stored. What is above that (keys, sizes,
 * tables made block by block) is done once, in TokenFile.
 *
 * In this file: the table of forms, the text forms, the binary form in either byte order, TokenFile, DataFiles. HDF5 is
 * in hdfSink.cpp. */

#include "tool/tokenFile.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "tool/byteStream.h"
#include "tool/tokenSink.h"

namespace tool {

/* ---- forms ---- */

const FormRow formRows[6] = {             /* in the order of Form */
    {"ascii",      Form::ascii,      "",   0x10 },
    {"binary",     Form::binary,     ".B", 0x20 },
    {"swapped",    Form::swapped,    ".B", 0x20 },
    {"compressed", Form::compressed, ".Z", 0x40 },
    {"hdf",        Form::hdf,        ".H", 0x80 },
    {"container",  Form::container,  ".C", 0x100},
};

const FormRow &formRow(Form form) { return formRows[(int) form]; }
std::string formSuffix(Form form) { return form == Form::container ? "" : formRow(form).suffix; }
int         formOpt(Form form)    { return formRow(form).opt; }

namespace {

/* Texts and counts on lines of their own, the numbers of one table on one line. */
class TextSink : public TokenSink {
public:
    TextSink(const std::string &fileName, ByteStream::Way way) : out(fileName, way) {}

    void str(const std::string &text) override
    {
        if (text.empty() || text.find_first_of(" \t\r\n\v\f\"") != std::string::npos)
            throw std::runtime_error("text <" + text + "> does not fit into a text file");
        out.put(text.data(), text.size());
        out.put("\n", 1);
    }
    void begin(Kind kindOfTable, int64_t, int64_t nColsOfTable) override
    {
        kind  = kindOfTable;
        nCols = nColsOfTable;
        first = true;
    }
    void rows(const void *values, int64_t nRows) override
    {
        switch (kind) {
            case Kind::integer: return nums<int32_t>(values, nRows * nCols);
            case Kind::real:    return nums<double> (values, nRows * nCols);
            case Kind::single:  return nums<float>  (values, nRows * nCols);
        }
    }
    void end() override   { out.put("\n", 1); }
    void close() override { out.close(); }

private:
    static constexpr size_t longest = 32;             /* of a number's text */

    static size_t format(char *at, int32_t value) { return std::to_chars(at, at + longest, value).ptr - at; }
    static size_t format(char *at, double value)  { return std::snprintf(at, longest, "%.17g", value); }
    static size_t format(char *at, float value)   { return std::snprintf(at, longest, "%.9g", (double) value); }

    template <class T> void nums(const void *from, int64_t n)
    {
        const T *values = static_cast<const T *>(from);
        for (int64_t i = 0; i < n; ++i) {
            char *at = out.room(longest + 1);
            if (!first) *at = ' ';
            out.grew(!first + format(at + !first, values[i]));
            first = false;
        }
    }

    ByteStream out;
    Kind       kind  = Kind::integer;
    int64_t    nCols = 0;
    bool       first = true;
};

/* A line that tells sizes and byte order, then the bytes of each token; texts are padded to multiples of 8. */
class BinarySink : public TokenSink {
public:
    BinarySink(const std::string &fileName, bool bigEndian)
        : out(fileName, ByteStream::Way::straight), swap(bigEndian == machineIsLittle())
    {
        const char *tag = bigEndian ? "QUENTA 2021.1 1 4 5 8\n" : "QUENTA 2021.1 2 4 6 8\n";
        out.put(tag, std::strlen(tag));
    }
    void str(const std::string &text) override
    {
        static const char zeros[8] = {};
        if (text.find('\0') != std::string::npos) throw std::runtime_error("a text holds a zero byte");
        out.put(text.data(), text.size());
        out.put(zeros, 8 - text.size() % 8);          /* at least one: it ends the text */
    }
    void begin(Kind kind, int64_t, int64_t nColsOfTable) override
    {
        wide  = kind == Kind::real;
        nCols = nColsOfTable;
    }
    void rows(const void *values, int64_t nRows) override
    {
        if (wide) nums<uint64_t>(values, nRows * nCols);
        else nums<uint32_t>(values, nRows * nCols);
    }
    void end() override {}
    void close() override { out.close(); }

private:
    static bool machineIsLittle()
    {
        const uint16_t one = 1;
        unsigned char low;
        std::memcpy(&low, &one, 1);
        return low == 1;
    }

    static uint32_t swapped(uint32_t v) { return __builtin_bswap32(v); }
    static uint64_t swapped(uint64_t v) { return __builtin_bswap64(v); }

    template <class Word> void nums(const void *values, int64_t n)
    {
        const char *from = static_cast<const char *>(values);
        if (!swap) return out.put(from, sizeof(Word) * n);
        Word block[1024];
        while (n > 0) {
            const int64_t m = n < 1024 ? n : 1024;
            std::memcpy(block, from, sizeof(Word) * m);
            for (int64_t i = 0; i < m; ++i) block[i] = swapped(block[i]);
            out.put(block, sizeof(Word) * m);
            from += sizeof(Word) * m;
            n    -= m;
        }
    }

    ByteStream out;
    bool       swap, wide = false;
    int64_t    nCols = 0;
};

std::unique_ptr<TokenSink> newSink(const std::string &path, Form form)
{
    const std::string fileName = path + formRow(form).suffix;
    switch (form) {
        case Form::ascii:      return std::make_unique<TextSink>(fileName, ByteStream::Way::straight);
        case Form::binary:     return std::make_unique<BinarySink>(fileName, false);
        case Form::swapped:    return std::make_unique<BinarySink>(fileName, true);
        case Form::compressed: return std::make_unique<TextSink>(fileName, ByteStream::Way::compressed);
        case Form::hdf:        return newHdfSink(fileName);
        case Form::container:  break;
    }
    throw std::invalid_argument("file " + path + ": a member is made in its container");
}

void stop()
{
    if (beforeToken) beforeToken();
}

void putTable(TokenSink &sink, Kind kind, int64_t nRows, int64_t nCols, const void *values)
{
    stop();
    sink.begin(kind, nRows, nCols);
    sink.rows(values, nRows);
    sink.end();
}

template <class T>
void putTable(TokenSink &sink, Kind kind, int64_t nRows, int64_t nCols, const TokenFile::Rows<T> &rows)
{
    stop();
    sink.begin(kind, nRows, nCols);
    if (nCols > 0) {
        const int64_t atOnce = nCols < 32768 ? 32768 / nCols : 1;
        std::vector<T> block(atOnce * nCols);
        for (int64_t first = 0; first < nRows; first += atOnce) {
            const int64_t n = nRows - first < atOnce ? nRows - first : atOnce;
            rows(first, n, block.data());
            sink.rows(block.data(), n);
        }
    }
    sink.end();
}

/* what stands before the numbers of a keyed table */
void putHead(TokenFile &file, const std::string &key, int32_t nCols, int32_t nRows)
{
    file.keyInt(key, nCols);
    file.ints(&nRows, 1);
}

}

/* ---- a file ---- */

void (*beforeToken)();

TokenFile::TokenFile(const std::string &path, Form form) : sink(newSink(path, form)) {}
TokenFile::TokenFile(Container &container, const std::string &member) : sink(container.newMember(member)) {}

TokenFile::~TokenFile()
{
    try {
        close();
    }
    catch (...) {}                                    /* whoever wants to know has called close() */
}

void TokenFile::close()
{
    if (!sink) return;
    const std::unique_ptr<TokenSink> closing = std::move(sink);
    closing->close();
}

void TokenFile::str(const std::string &text)
{
    stop();
    sink->str(text);
}

void TokenFile::ints  (const int32_t *values, int64_t n) { putTable(*sink, Kind::integer, 1, n, values); }
void TokenFile::reals (const double  *values, int64_t n) { putTable(*sink, Kind::real,    1, n, values); }
void TokenFile::floats(const float   *values, int64_t n) { putTable(*sink, Kind::single,  1, n, values); }

void TokenFile::keyStr(const std::string &key, const std::string &text)
{
    str(key);
    str(text);
}

void TokenFile::keyInt(const std::string &key, int32_t value)
{
    str(key);
    ints(&value, 1);
}

void TokenFile::keyReal(const std::string &key, double value)
{
    str(key);
    reals(&value, 1);
}

void TokenFile::keyInts(const std::string &key, int32_t nCols, int32_t nRows, const int32_t *data)
{
    putHead(*this, key, nCols, nRows);
    putTable(*sink, Kind::integer, nRows, nCols, data);
}

void TokenFile::keyReals(const std::string &key, int32_t nCols, int32_t nRows, const double *data)
{
    putHead(*this, key, nCols, nRows);
    putTable(*sink, Kind::real, nRows, nCols, data);
}

void TokenFile::keyInts(const std::string &key, int32_t nCols, int32_t nRows, const Rows<int32_t> &rows)
{
    putHead(*this, key, nCols, nRows);
    putTable(*sink, Kind::integer, nRows, nCols, rows);
}

void TokenFile::keyReals(const std::string &key, int32_t nCols, int32_t nRows, const Rows<double> &rows)
{
    putHead(*this, key, nCols, nRows);
    putTable(*sink, Kind::real, nRows, nCols, rows);
}

/* ---- the files of a run ---- */

DataFiles::DataFiles(const std::string &commonBase, Form formOfAll, bool keepMembers)
    : base(commonBase), form(formOfAll)
{
    if (form == Form::container) container = std::make_unique<Container>(base, keepMembers);
}

TokenFile DataFiles::make(const std::string &tail)
{
    if (!container) return TokenFile(base + tail, form);
    return TokenFile(*container, std::filesystem::path(base).filename().string() + tail);
}

void DataFiles::close()
{
    if (container) container->close();
}

}
