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

namespace tool {

enum class Form {
    ascii,        /* text: numbers with 9 or 17 digits, so that what is read equals what was written */
    binary,       /* little-endian                                                                   */
    swapped,      /* big-endian                                                                      */
    compressed,   /* the text, packed by the program compress                                        */
    hdf,          /* an HDF5 file with one stream                                                    */
    container     /* members of one HDF5 file: see Container                                         */
};

/* What is known of a form: its word on a command line, what stands behind the name of its file on disk, and the option
   word that a run's FMT line carries. */
struct FormRow { const char *word; Form value; const char *suffix; int opt; };
extern const FormRow formRows[6];

const FormRow &formRow(Form form);
std::string formSuffix(Form form);        /* what ends a data file's name: nothing for a member of a container */
int         formOpt(Form form);

class TokenSink;                          /* how a form stores a token */

/* One HDF5 file that holds many streams as members: path + ".C". */
class Container {
public:
    /* Makes or empties the file. keepMembers: an existing one is added to, and a member written anew is replaced. */
    explicit Container(const std::string &path, bool keepMembers = false);
    ~Container();                                     /* closes, silently: call close() to hear of a full disk */
    void close();                                     /* after all members                                     */

private:
    friend class TokenFile;
    std::unique_ptr<TokenSink> newMember(const std::string &member);

    struct Ids;
    std::string          fileName;
    std::unique_ptr<Ids> ids;
};

/* Called before each token of every file, null for nothing: a test's writer stops there for a while. */
extern void (*beforeToken)();

/* A file being written. Every function throws std::runtime_error, with the file's name, if it cannot write. */
class TokenFile {
public:
    /* Gives the rows first to first+n-1 of a table, row by row. Called for consecutive blocks, from row 0 on. */
    template <class T> using Rows = std::function<void(int64_t first, int64_t n, T *values)>;

    /* Makes (or empties) the file path + suffix and writes what stands before the first token. */
    TokenFile(const std::string &path, Form form);
    /* Makes (or replaces) a member, which must be closed before its container. A member's name has neither a folder nor
       a suffix. */
    TokenFile(Container &container, const std::string &member);
    ~TokenFile();                                     /* closes, silently: call close() to hear of a full disk */
    TokenFile(const TokenFile &) = delete;
    TokenFile &operator=(const TokenFile &) = delete;
    void close();

    /* plain tokens, the numbers of one call as one row; a text may hold no white space and no quote in text forms */
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

private:
    std::unique_ptr<TokenSink> sink;
};

/* The data files of a run in one form: files of their own, or members of one container. */
class DataFiles {
public:
    /* base: what all their paths begin with, <folder>/<problem>.<run>; the container's path is just this. keepMembers:
       as of Container */
    DataFiles(const std::string &base, Form form, bool keepMembers = false);

    TokenFile make(const std::string &tail);          /* of the name, such as ".crd" or "_10_0.out"            */
    void close();                                     /* after all files; throws if the container fails        */

private:
    std::string                base;
    Form                       form;
    std::unique_ptr<Container> container;
};

}

#endif
