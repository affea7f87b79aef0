#ifndef TOOL_TOKENSINK_H
#define TOOL_TOKENSINK_H

/* tokenSink.h: what a storage form must do to take a stream of tokens. For the files of the forms alone; whoever writes
 * a data file uses tokenFile.h. */

#include <cstdint>
#include <memory>
#include <string>

namespace tool {

enum class Kind { integer, real, single };            /* 32-bit, 64-bit, 32-bit */

/* Numbers come as tables: begin(), then the rows in blocks of any size, then end(). Every function throws
   std::runtime_error, with the file's name, if it cannot write. */
class TokenSink {
public:
    virtual ~TokenSink() = default;
    virtual void str  (const std::string &text)                   = 0;
    virtual void begin(Kind kind, int64_t nRows, int64_t nCols)   = 0;
    virtual void rows (const void *values, int64_t nRows)         = 0;
    virtual void end  ()                                          = 0;
    virtual void close()                                          = 0;
};

/* an HDF5 file of that name with one stream, made or emptied */
std::unique_ptr<TokenSink> newHdfSink(const std::string &fileName);

}

#endif
