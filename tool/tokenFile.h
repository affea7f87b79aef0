#ifndef TOOL_TOKENFILE_H
#define TOOL_TOKENFILE_H

/* tokenFile.h: writes the token stream that all data files of a run are made of, in each storage form.
 *
 * A stream holds texts, integers, reals (64-bit) and floats (32-bit), one behind the other; what stands where is the
 * business of whoever writes the file. Most of it is keyed: a key, then one value, or then the number of columns, the
 * number of rows and the values row by row.
 *
 * Nothing of the library under test is used here, so that a reader and this writer cannot share a mistake. */

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tool {

enum class Form {
    ascii,    /* text, no suffix: numbers with 9 or 17 digits, so that what is read equals what was written */
    binary,   /* ".B", little-endian */
    swapped   /* ".B", big-endian    */
};

std::string formSuffix(Form form);                    /* "" or ".B"                                       */
int         formOpt(Form form);                       /* the option word that a run's FMT line carries    */

class TokenSink;                                      /* how a form stores a token */

/* A file being written. Every function throws std::runtime_error, with the file's name, if it cannot write. */
class TokenFile {
public:
    /* Gives the rows first to first+n-1 of a table, row by row. Called for consecutive blocks, from row 0 on. */
    template <class T> using Rows = std::function<void(int64_t first, int64_t n, T *values)>;

    /* Makes (or empties) the file path + suffix and writes what stands before the first token. */
    TokenFile(const std::string &path, Form form);
    ~TokenFile();                                     /* closes, silently: call close() to hear of a full disk */
    TokenFile(const TokenFile &) = delete;
    TokenFile &operator=(const TokenFile &) = delete;
    void close();

    /* plain tokens; a text may hold no white space and no quote in the ascii form */
    void str   (const std::string &text);
    void ints  (const int32_t *values, int64_t n);
    void reals (const double  *values, int64_t n);
    void floats(const float   *values, int64_t n);

    /* keyed items; data holds nRows rows of nCols values */
    void keyStr (const std::string &key, const std::string &text);
    void keyInt (const std::string &key, int32_t value);
    void keyReal(const std::string &key, double value);
    void keyInts (const std::string &key, int32_t nCols, int32_t nRows, const int32_t *data);
    void keyReals(const std::string &key, int32_t nCols, int32_t nRows, const double  *data);
    void keyInts (const std::string &key, int32_t nCols, int32_t nRows, const Rows<int32_t> &rows);
    void keyReals(const std::string &key, int32_t nCols, int32_t nRows, const Rows<double>  &rows);

    const std::string &name() const { return fileName; }   /* with its suffix */

private:
    std::string                fileName;
    std::unique_ptr<TokenSink> sink;
};

}

#endif
