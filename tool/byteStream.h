#ifndef TOOL_BYTESTREAM_H
#define TOOL_BYTESTREAM_H

/* byteStream.h: bytes on their way to disk, straight into a file or through the program compress.
 *
 * Bytes are collected in one large buffer: a run has files of hundreds of megabytes, and tables of a hundred million
 * numbers. */

#include <sys/types.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

namespace tool {

/* All functions throw std::runtime_error, with the file's name, if they cannot write. */
class ByteStream {
public:
    enum class Way { straight, compressed };

    ByteStream(const std::string &fileName, Way way);        /* makes or empties the file */
    ~ByteStream();                                           /* closes, silently          */
    ByteStream(const ByteStream &) = delete;
    ByteStream &operator=(const ByteStream &) = delete;
    void close();

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

private:
    static constexpr size_t size = 1 << 20;

    void startCompressor();
    void flush();
    void write(const void *bytes, size_t n);
    [[noreturn]] void fail(const char *what, const std::string &why) const;

    std::string       name;
    int               fd = -1;
    pid_t             compressor = -1;                /* its process, if there is one */
    std::vector<char> buffer;
    size_t            used = 0;
};

}

#endif
