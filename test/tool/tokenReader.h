#ifndef TEST_TOOL_TOKENREADER_H
#define TEST_TOOL_TOKENREADER_H

/* tokenReader.h: reads a data file back, for the tests of the writer; small, slow, and independent of the library and
 * of the writer. Anything unexpected throws std::runtime_error. */

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

/* A data file: a file of its own, or a member of a container. */
struct Place { std::string file, member; };
bool exists(const Place &place);
std::vector<std::string> membersOf(const std::string &container);         /* sorted */

/* "text", "binary", "swapped", "compressed" or "hdf", by the first bytes of the file */
std::string kindOf(const std::string &fileName);

/* where tokens come from: bytes, or HDF5 data sets */
class TokenSource {
public:
    virtual ~TokenSource() = default;
    virtual bool        atEnd() = 0;
    virtual std::string str()   = 0;
    virtual void ints  (int32_t *values, int64_t nRows, int64_t nCols) = 0;
    virtual void reals (double  *values, int64_t nRows, int64_t nCols) = 0;
    virtual void floats(float   *values, int64_t nRows, int64_t nCols) = 0;
};

class TokenReader {
public:
    explicit TokenReader(const Place &place);
    explicit TokenReader(const std::string &fileName) : TokenReader(Place{fileName, ""}) {}

    bool        atEnd() { return source->atEnd(); }
    std::string str()   { return source->str(); }
    std::vector<int32_t> ints  (int64_t nRows, int64_t nCols);
    std::vector<double>  reals (int64_t nRows, int64_t nCols);
    std::vector<float>   floats(int64_t nRows, int64_t nCols);
    int32_t integer() { return ints(1, 1)[0]; }
    double  real()    { return reals(1, 1)[0]; }

private:
    std::unique_ptr<TokenSource> source;
};

/* One keyed item of a stream. A scalar has nCols -1 and one value. */
struct Item {
    std::string          key;
    int                  nCols = -1, nRows = -1;
    std::vector<int32_t> ints;
    std::vector<double>  reals;
    std::string          text;
};

/* All items of a file. Which keys are single numbers, texts and tables of integers is known here; all others are tables
   of reals. */
std::vector<Item> readItems(const Place &place);
std::vector<Item> readItems(const std::string &fileName);

bool operator==(const Item &a, const Item &b);
std::vector<std::string> keysOf(const std::vector<Item> &items);

#endif
