/* tokenFile.cpp: the storage forms of a token stream.
 *
 * A form is a TokenSink: it knows how one text and one run of numbers become bytes. What is above a token (keys,
 * tables, blocks of rows) is done once, in TokenFile. Bytes are collected in one large buffer: a run has files of
 * hundreds of megabytes, and tables of a hundred million numbers.
 *
 * In this file: the output stream, the text form, the binary form in either byte order, TokenFile. */

#include "tool/tokenFile.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace tool {

/* ---- bytes on their way to disk ---- */

namespace {

class ByteStream {
public:
    explicit ByteStream(const std::string &path) : name(path), buffer(size)
    {
        fp = std::fopen(name.c_str(), "wb");
        if (!fp) fail("cannot be made");
        std::setvbuf(fp, nullptr, _IONBF, 0);         /* we have our own buffer */
    }
    ~ByteStream() { if (fp) std::fclose(fp); }
    ByteStream(const ByteStream &) = delete;
    ByteStream &operator=(const ByteStream &) = delete;

    void put(const void *bytes, size_t n)
    {
        if (n > size - used) {
            flush();
            if (n > size) return write(bytes, n);
        }
        if (n > 0) std::memcpy(buffer.data() + used, bytes, n);
        used += n;
    }

    /* room for n bytes (n small) that the caller fills and then counts by grew() */
    char *room(size_t n)
    {
        if (n > size - used) flush();
        return buffer.data() + used;
    }
    void grew(size_t n) { used += n; }

    void close()
    {
        flush();
        std::FILE *closing = fp;
        fp = nullptr;
        if (std::fclose(closing) != 0) fail("cannot be written");
    }

private:
    static constexpr size_t size = 1 << 20;

    void flush()
    {
        const size_t n = used;
        used = 0;
        write(buffer.data(), n);
    }
    void write(const void *bytes, size_t n)
    {
        if (n > 0 && std::fwrite(bytes, 1, n, fp) != n) fail("cannot be written");
    }
    [[noreturn]] void fail(const char *what) const
    {
        throw std::runtime_error("file " + name + " " + what + ": " + std::strerror(errno));
    }

    std::string       name;
    std::FILE        *fp = nullptr;
    std::vector<char> buffer;
    size_t            used = 0;
};

}

/* ---- forms ---- */

/* A table comes as n1 and then n2 as integers and then any number of runs of numbers; endNums() ends a line of them. */
class TokenSink {
public:
    virtual ~TokenSink() = default;
    virtual void str   (const std::string &text)            = 0;
    virtual void ints  (const int32_t *values, int64_t n)   = 0;
    virtual void reals (const double  *values, int64_t n)   = 0;
    virtual void floats(const float   *values, int64_t n)   = 0;
    virtual void endNums() = 0;
    virtual void close()   = 0;
};

namespace {

/* Texts and counts on lines of their own, the numbers of one run on one line. */
class TextSink : public TokenSink {
public:
    explicit TextSink(const std::string &path) : out(path) {}

    void str(const std::string &text) override
    {
        if (text.empty() || text.find_first_of(" \t\r\n\v\f\"") != std::string::npos)
            throw std::runtime_error("text <" + text + "> does not fit into an ascii file");
        out.put(text.data(), text.size());
        out.put("\n", 1);
    }
    void ints(const int32_t *values, int64_t n) override
    {
        for (int64_t i = 0; i < n; ++i) {
            char *at = separated(longestNumber);
            out.grew(std::to_chars(at, at + longestNumber, values[i]).ptr - at);
        }
    }
    void reals(const double *values, int64_t n) override
    {
        for (int64_t i = 0; i < n; ++i) {
            char *at = separated(longestNumber);
            out.grew(std::snprintf(at, longestNumber, "%.17g", values[i]));
        }
    }
    void floats(const float *values, int64_t n) override
    {
        for (int64_t i = 0; i < n; ++i) {
            char *at = separated(longestNumber);
            out.grew(std::snprintf(at, longestNumber, "%.9g", (double) values[i]));
        }
    }
    void endNums() override
    {
        out.put("\n", 1);
        first = true;
    }
    void close() override { out.close(); }

private:
    static constexpr size_t longestNumber = 32;

    char *separated(size_t n)
    {
        char *at = out.room(n + 1);
        if (!first) {
            *at++ = ' ';
            out.grew(1);
        }
        first = false;
        return at;
    }

    ByteStream out;
    bool       first = true;
};

/* A line that tells sizes and byte order, then the bytes of each token; texts are padded to multiples of 8. */
class BinarySink : public TokenSink {
public:
    BinarySink(const std::string &path, bool bigEndian) : out(path), swap(bigEndian == machineIsLittle())
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
    void ints  (const int32_t *values, int64_t n) override { nums<uint32_t>(values, n); }
    void reals (const double  *values, int64_t n) override { nums<uint64_t>(values, n); }
    void floats(const float   *values, int64_t n) override { nums<uint32_t>(values, n); }
    void endNums() override {}
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
    bool       swap;
};

std::unique_ptr<TokenSink> newSink(const std::string &path, Form form)
{
    if (form == Form::ascii) return std::make_unique<TextSink>(path);
    return std::make_unique<BinarySink>(path, form == Form::swapped);
}

template <class T> void putNums(TokenSink &sink, const T *values, int64_t n);
template <> void putNums(TokenSink &sink, const int32_t *values, int64_t n) { sink.ints(values, n); }
template <> void putNums(TokenSink &sink, const double  *values, int64_t n) { sink.reals(values, n); }

template <class T>
void putTable(TokenFile &file, TokenSink &sink, const std::string &key, int32_t nCols, int32_t nRows,
              const TokenFile::Rows<T> &rows)
{
    file.keyInt(key, nCols);
    file.ints(&nRows, 1);
    if (nCols > 0) {
        const int64_t atOnce = nCols < 32768 ? 32768 / nCols : 1;
        std::vector<T> block(atOnce * nCols);
        for (int64_t first = 0; first < nRows; first += atOnce) {
            const int64_t n = nRows - first < atOnce ? nRows - first : atOnce;
            rows(first, n, block.data());
            putNums(sink, block.data(), n * nCols);
        }
    }
    sink.endNums();
}

}

/* ---- the file ---- */

std::string formSuffix(Form form) { return form == Form::ascii ? "" : ".B"; }
int         formOpt(Form form)    { return form == Form::ascii ? 0x10 : 0x20; }

TokenFile::TokenFile(const std::string &path, Form form)
    : fileName(path + formSuffix(form)), sink(newSink(fileName, form)) {}

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

void TokenFile::str(const std::string &text)              { sink->str(text); }
void TokenFile::ints  (const int32_t *values, int64_t n)  { sink->ints(values, n);   sink->endNums(); }
void TokenFile::reals (const double  *values, int64_t n)  { sink->reals(values, n);  sink->endNums(); }
void TokenFile::floats(const float   *values, int64_t n)  { sink->floats(values, n); sink->endNums(); }

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
    keyInt(key, nCols);
    ints(&nRows, 1);
    ints(data, (int64_t) nCols * nRows);
}

void TokenFile::keyReals(const std::string &key, int32_t nCols, int32_t nRows, const double *data)
{
    keyInt(key, nCols);
    ints(&nRows, 1);
    reals(data, (int64_t) nCols * nRows);
}

void TokenFile::keyInts(const std::string &key, int32_t nCols, int32_t nRows, const Rows<int32_t> &rows)
{
    putTable(*this, *sink, key, nCols, nRows, rows);
}

void TokenFile::keyReals(const std::string &key, int32_t nCols, int32_t nRows, const Rows<double> &rows)
{
    putTable(*this, *sink, key, nCols, nRows, rows);
}

}
