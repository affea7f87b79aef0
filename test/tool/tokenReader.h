#ifndef TEST_TOOL_TOKENREADER_H
#define TEST_TOOL_TOKENREADER_H

/* tokenReader.h: reads the bytes of a data file back, for the tests of the writer; small, slow, and independent of the
 * library and of the writer. Anything unexpected throws std::runtime_error. */

#include <cstdint>
#include <string>
#include <vector>

/* The form is told by the bytes: a file that begins with the tag is binary, in the byte order that the tag names. */
class TokenReader {
public:
    explicit TokenReader(const std::string &fileName);

    bool        atEnd();
    std::string str();
    int32_t     integer();
    double      real();
    float       single();

    bool isBinary() const  { return binary; }
    bool isSwapped() const { return big; }

private:
    std::string bytes, name;
    size_t      at = 0;
    bool        binary = false, big = false;

    std::string word();
    void        number(void *value, size_t size);
};

/* One keyed item of a stream. A scalar has nCols -1 and one value. */
struct Item {
    std::string          key;
    int                  nCols = -1, nRows = -1;
    std::vector<int32_t> ints;
    std::vector<double>  reals;
};

/* All items of a file. Which keys are single numbers and which are tables of integers is known here; all others are
   tables of reals. */
std::vector<Item> readItems(const std::string &fileName);

std::vector<std::string> keysOf(const std::vector<Item> &items);

#endif
