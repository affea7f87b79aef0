/* byteStream.cpp: see byteStream.h.
 *
 * The compressor is a process of its own that writes the file; what it is to compress goes to it through a socket
 * rather than a pipe: if it dies, a pipe would end this process too, by a signal. No shell is asked, so a file's name
 * may hold any character. */

#include "tool/byteStream.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

extern char **environ;

namespace tool {

ByteStream::ByteStream(const std::string &fileName, Way way) : name(fileName), buffer(size)
{
    fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) fail("cannot be made", std::strerror(errno));
    if (way == Way::compressed) startCompressor();
}

ByteStream::~ByteStream()
{
    if (fd >= 0) ::close(fd);
    if (compressor > 0) ::waitpid(compressor, nullptr, 0);
}

/* Puts the compressor between us and the file that is open in fd. */
void ByteStream::startCompressor()
{
    static char program[] = "compress", force[] = "-f";      /* -f: also what does not become smaller */
    char *const args[] = {program, force, nullptr};
    int ends[2];
    int failed = ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) < 0 ? errno : 0;
    if (!failed) {
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions, fd, STDOUT_FILENO);
        failed = ::posix_spawnp(&compressor, program, &actions, nullptr, args, environ);
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
        if (failed) {
            ::close(ends[0]);
            compressor = -1;
        }
    }
    ::close(fd);
    fd = failed ? -1 : ends[0];
    if (failed) fail("cannot be made", std::string(program) + ": " + std::strerror(failed));
}

void ByteStream::close()
{
    flush();
    const int closing = fd;
    fd = -1;
    if (::close(closing) != 0) fail("cannot be written", std::strerror(errno));
    if (compressor <= 0) return;

    int status = 0;
    while (::waitpid(compressor, &status, 0) < 0 && errno == EINTR) {}
    compressor = -1;
    if (status != 0) fail("cannot be written", "compress failed");
}

void ByteStream::flush()
{
    const size_t n = used;
    used = 0;
    write(buffer.data(), n);
}

void ByteStream::write(const void *bytes, size_t n)
{
    const char *from = static_cast<const char *>(bytes);
    while (n > 0) {
        const ssize_t done = compressor > 0 ? ::send(fd, from, n, MSG_NOSIGNAL) : ::write(fd, from, n);
        if (done < 0 && errno == EINTR) continue;
        if (done < 0) fail("cannot be written", std::strerror(errno));
        from += done;
        n    -= done;
    }
}

void ByteStream::fail(const char *what, const std::string &why) const
{
    throw std::runtime_error("file " + name + " " + what + ": " + why);
}

}
