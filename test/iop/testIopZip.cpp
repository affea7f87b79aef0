/* testIopZip.cpp: the compressed form: the programs at the other end of the pipe, places in what they give, and nothing
 * left behind. That tokens read the same as in other forms is shown in testIopTokens.cpp and testIopKeyed.cpp. */

#include <dirent.h>
#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <numeric>

#include "iop/iopInt.h"
#include "test/iop/tokenBytes.h"

/* ---- the surroundings ---- */

/* For its life the programs are looked for in the folder "bin" of the test, before or instead of where they are. */
struct SearchPath {
    const std::string before = getenv("PATH");
    explicit SearchPath(bool alone)
    {
        const std::string bin = testFolder() + "/bin";
        mkdir(bin.c_str(), 0755);
        setenv("PATH", (alone ? bin : bin + ":" + before).c_str(), 1);
    }
    ~SearchPath() { setenv("PATH", before.c_str(), 1); }
};

static void writeProgram(const char *name, const std::string &commands)
{
    mkdir("bin", 0755);
    const std::string path = std::string("bin/") + name;
    testWrite(path, "#!/bin/sh\n" + commands + "\n");
    chmod(path.c_str(), 0755);
}

/* For its life what programs complain about is not shown. */
struct NoComplaints {
    const int before = dup(2);
    NoComplaints()
    {
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, 2);
        close(null);
    }
    ~NoComplaints()
    {
        dup2(before, 2);
        close(before);
    }
};

struct Limit {
    const int     what;
    struct rlimit before;
    Limit(int resource, rlim_t most) : what(resource)
    {
        getrlimit(what, &before);
        struct rlimit less = before;
        less.rlim_cur = most;
        setrlimit(what, &less);
    }
    ~Limit() { setrlimit(what, &before); }
};

static int nOpenFiles()
{
    int n = 0;
    DIR *dir = opendir("/proc/self/fd");
    while (readdir(dir)) ++n;
    closedir(dir);
    return n;
}

static bool hasChildren()
{
    return waitpid(-1, NULL, WNOHANG) != -1 || errno != ECHILD;
}

/* Shows at its end that neither a descriptor nor a program was left behind. */
struct NothingLeft {
    const int before = nOpenFiles();
    ~NothingLeft()
    {
        EXPECT_EQ(nOpenFiles(), before);
        EXPECT_FALSE(hasChildren());
    }
};

/* The integers from 0 to n - 1, one a line, of seven digits each. */
static void writeNumbers(const char *name, int n)
{
    std::string text;
    char line[16];
    for (int i = 0; i < n; ++i) {
        snprintf(line, sizeof line, "%07d\n", i);
        text += line;
    }
    writeCompressed(name, text);
}

static iopHd *openZip(const char *name, int more = IOP_READ)
{
    return iopOpenFile(name, IOP_COMPRESSED | more);
}

static int nextInt(iopHd *fh)
{
    int value = -1;
    iopGetIntF(fh, &value, 1);
    return value;
}

/* ---- open ---- */

TEST(iopZip, missingFileShowsAsTheEndOfTheData)
{
    const NothingLeft check;
    const NoComplaints quiet;
    mkdir("dir.Z", 0755);
    int slept = 0;
    for (const char *name : { "none", "dir", "no/such/folder" }) {
        char text[SYS_TEXT];
        iopHd *fh = openZip(name);
        EXPECT_EQ(iopGetIfStr(fh, text), 0);
        EXPECT_EQ(iopGetLine(fh, text, SYS_TEXT), 0);
        EXPECT_EQ(testSlept(), slept);
        const std::string failure = std::string("EOF in compressed file <") + name + "> token <0> near <__NONE__>";
        checkFails(failure, iopGetStrF(fh, text));
        EXPECT_EQ(testSlept(), slept += 2);
        iopCloseFile(fh);
        fh = openZip(name, IOP_READ | IOP_LONG_WAIT);
        checkFails(failure, nextInt(fh));
        EXPECT_EQ(testSlept(), slept += 60);
        iopCloseFile(fh);
        EXPECT_EQ(iopCheckFile(name, IOP_COMPRESSED), 0);
    }
}

TEST(iopZip, theNameIsTheStoredOneWithItsSuffix)
{
    writeCompressed("f.Z", "5\n");
    testWrite("f", "6\n");
    mkdir("sub", 0755);
    writeCompressed("sub/g.Z", "7\n");
    static const struct { const char *name; int opt, value; } rows[] = {
        { "f", 0, 5 }, { "f.Z", 0, 5 }, { "f.B", 0, 5 }, { "f.C", IOP_RAW, 5 }, { "none/f.Z", IOP_BASENAME, 5 },
        { "sub/g.H", 0, 7 }, { "./sub/../sub/g", 0, 7 },
    };
    for (const auto &row : rows) {
        iopHd *fh = openZip(row.name, IOP_READ | row.opt);
        EXPECT_EQ(nextInt(fh), row.value) << row.name;
        EXPECT_EQ(fh->dataStart, 0);
        iopCloseFile(fh);
    }
}

/* A name is a name, whatever a shell or an option parser would see in it */
TEST(iopZip, anyNameIsTakenLiterally)
{
    const NothingLeft check;
    const NoComplaints quiet;
    mkdir("d", 0755);
    ASSERT_EQ(chdir("d"), 0);
    for (const char *name : { "-", "--", "-f", "--help", "a b", "$(touch hacked)", "x;touch hacked", "`touch hacked`",
                              "*", "a'b\"c", "\\", "%s%n", "~", "line\nbreak" }) {
        const std::string onDisk = std::string(name) + ".Z";
        iopHd *fh = openZip(name, IOP_WRITE);
        iopPrintLine(fh, "%d", 17);
        iopCloseFile(fh);
        EXPECT_EQ(access(onDisk.c_str(), F_OK), 0) << name;
        fh = openZip(name);
        EXPECT_EQ(nextInt(fh), 17) << name;
        iopRewind(fh);
        EXPECT_EQ(nextInt(fh), 17) << name;
        iopCloseFile(fh);
        remove(onDisk.c_str());
        EXPECT_EQ(rmdir("../d"), 0) << "something else was made for " << name;
        mkdir("../d", 0755);
        ASSERT_EQ(chdir("../d"), 0);
    }
}

/* Some zcat take no name of more than 1022 bytes; a longer one is then a file that is not there */
TEST(iopZip, longNames)
{
    const NoComplaints quiet;
    writeCompressed("nn.Z", "5\n");
    std::string name = "nn";
    while (name.size() < 1020) name = "./" + name;
    iopHd *fh = openZip(name.c_str());
    EXPECT_EQ(nextInt(fh), 5);
    iopCloseFile(fh);
    name = "./" + name + ".Z";
    checkFails("fileName is too long <", openZip(name.c_str()));
    name.resize(1023);
    fh = openZip(name.c_str());
    checkFails("EOF in compressed file <", nextInt(fh));
    iopCloseFile(fh);
}

TEST(iopZip, whatIsNoFileIsRefused)
{
    const NothingLeft check;
    mkfifo("pipe.Z", 0644);
    mkdir("dir.Z", 0755);
    ASSERT_EQ(symlink("/dev/zero", "device.Z"), 0);
    static const struct { const char *name; int opt; const char *text; } rows[] = {
        { "pipe",   IOP_READ,  "unable to open compressed file <pipe.Z>; Invalid argument"             },
        { "pipe",   IOP_WRITE, "unable to open compressed file <pipe.Z>; Invalid argument"             },
        { "device", IOP_READ,  "unable to open compressed file <device.Z>; Invalid argument"           },
        { "device", IOP_WRITE, "unable to open compressed file <device.Z>; Invalid argument"           },
        { "dir",    IOP_WRITE, "unable to open compressed file <dir.Z>; Is a directory"                },
        { "no/dir", IOP_WRITE, "unable to open compressed file <no/dir.Z>; No such file or directory"  },
    };
    for (const auto &row : rows) {
        checkFails(row.text, openZip(row.name, row.opt));
        checkFails("in Function <iopOpenFile>", openZip(row.name, row.opt));
    }
    EXPECT_EQ(testSlept(), 0);
}

TEST(iopZip, appendingFails)
{
    const NothingLeft check;
    writeCompressed("f.Z", "5\n");
    for (int more : { 0, (int) IOP_DELETE, (int) IOP_RAW }) {
        checkFails("Unable to append to compressed file <f.Z>", openZip("f", IOP_WRITE | IOP_APPEND | more));
        checkFails("in Function <iopOpenFile>", openZip("f", IOP_WRITE | IOP_APPEND | more));
    }
    iopHd *fh = openZip("f", IOP_READ | IOP_WRITE | IOP_APPEND);        /* reading wins */
    EXPECT_EQ(nextInt(fh), 5);
    iopCloseFile(fh);
    EXPECT_EQ(testSlept(), 0);
}

TEST(iopZip, programsThatAreNotThere)
{
    const NothingLeft check;
    const SearchPath empty(true);
    writeCompressed("f.Z", "5\n");
    const char *text = "unable to open compressed file <f.Z>; No such file or directory";
    checkFails(text, openZip("f"));
    checkFails(text, openZip("f", IOP_WRITE));
    testWrite("bin/zcat", "not a program");
    checkFails("unable to open compressed file <f.Z>; Permission denied", openZip("f"));
    EXPECT_EQ(testSlept(), 0);
}

TEST(iopZip, tooFewDescriptors)
{
    const NothingLeft check;
    const NoComplaints quiet;                               /* of programs that are held to the limit too */
    writeCompressed("f.Z", "5\n");
    const int next = dup(0);
    close(next);
    int nFailed = 0, nOpened = 0;
    for (int more = 0; more < 8; ++more) {
        for (int mode : { IOP_READ, IOP_WRITE }) {
            iopHd *fh = NULL;
            std::string failure;
            {
                const Limit few(RLIMIT_NOFILE, (rlim_t) (next + more));
                failure = trapped([&] { fh = openZip(mode == IOP_READ ? "f" : "g", mode); });
            }
            if (failure == "") {
                iopCloseFile(fh);
                ++nOpened;
            } else {
                EXPECT_NE(failure.find("unable to open compressed file <"), std::string::npos) << failure;
                EXPECT_NE(failure.find(".Z>; Too many open files"), std::string::npos) << failure;
                ++nFailed;
            }
        }
    }
    EXPECT_GE(nFailed, 5);
    EXPECT_GE(nOpened, 5);
}

/* ---- what the programs inherit ---- */

/* The open descriptors of the program zcat, one text. */
static std::string inheritedByZcat()
{
    iopHd *fh = openZip("f");
    std::string all;
    char text[SYS_TEXT];
    while (iopGetIfStr(fh, text)) all += text, all += " ";
    iopCloseFile(fh);
    return all;
}

static std::string inheritedByCompress()
{
    iopCloseFile(openZip("w", IOP_WRITE));
    return testRead("w.Z");
}

TEST(iopZip, programsInheritNoneOfOurFiles)
{
    const NothingLeft check;
    const SearchPath ours(false);
    const char *list = "for f in /proc/self/fd/*; do echo ${f##*/}; done";
    writeProgram("zcat", list);
    writeProgram("compress", list);
    writeCompressed("f.Z", "5\n");
    testWrite("a", "6\n");
    const std::string zcat = inheritedByZcat(), compress = inheritedByCompress();
    EXPECT_EQ(zcat.substr(0, 4), "0 1 ");
    EXPECT_EQ(compress.substr(0, 4), "0\n1\n");
    iopHd *open[] = { openZip("f"), openZip("x", IOP_WRITE), iopOpenFile("a", IOP_ASCII | IOP_READ),
                      iopOpenFile("b", IOP_BINARY | IOP_WRITE) };
    EXPECT_EQ(inheritedByZcat(), zcat);
    EXPECT_EQ(inheritedByCompress(), compress);
    for (iopHd *fh : open) iopCloseFile(fh);
}

/* zcat is to end with its reader, and compress as the user wants, whatever the host thinks of signals */
TEST(iopZip, programsHeedTheirSignals)
{
    const SearchPath ours(false);
    writeProgram("zcat", "grep -E '^Sig(Blk|Ign)' /proc/self/status");
    const auto before = signal(SIGPIPE, SIG_IGN);
    sigset_t pipe, old;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    sigprocmask(SIG_BLOCK, &pipe, &old);
    iopHd *fh = openZip("f");
    sigprocmask(SIG_SETMASK, &old, NULL);
    signal(SIGPIPE, before);
    char text[SYS_TEXT];
    for (const char *key : { "SigBlk:", "SigIgn:" }) {
        iopGetKeyStr(fh, key, text);
        EXPECT_EQ(strtoull(text, NULL, 16) & (1ULL << (SIGPIPE - 1)), 0u) << key << text;
    }
    iopCloseFile(fh);
}

TEST(iopZip, aHostWithoutStandardStreams)
{
    const NothingLeft check;
    for (int closed = 1; closed < 8; ++closed) {
        int kept[3], value = -1;
        fflush(stdout);
        for (int fd = 0; fd < 3; ++fd) kept[fd] = fcntl(fd, F_DUPFD_CLOEXEC, 20);
        for (int fd = 0; fd < 3; ++fd) if (closed & (1 << fd)) close(fd);
        const std::string failure = trapped([&] {
            iopHd *fh = openZip("f", IOP_WRITE);
            iopPutIntF(fh, &closed, 1, 1, 0);
            iopCloseFile(fh);
            fh = openZip("f");
            iopGetIntF(fh, &value, 1);
            iopCloseFile(fh);
        });
        for (int fd = 0; fd < 3; ++fd) {
            dup2(kept[fd], fd);
            close(kept[fd]);
        }
        EXPECT_EQ(failure, "") << closed;
        EXPECT_EQ(value, closed);
    }
}

/* Such a host gets no exit status, and none is missed */
TEST(iopZip, aHostThatIgnoresItsChildren)
{
    writeNumbers("f.Z", 100000);
    const auto before = signal(SIGCHLD, SIG_IGN);
    iopHd *fh = openZip("w", IOP_WRITE);
    iopPrintLine(fh, "%d", 8);
    checkReturns(iopCloseFile(fh));
    fh = openZip("w");
    EXPECT_EQ(nextInt(fh), 8);
    iopRewind(fh);
    EXPECT_EQ(nextInt(fh), 8);
    checkReturns(iopCloseFile(fh));
    fh = openZip("f");
    EXPECT_EQ(nextInt(fh), 0);
    checkReturns(iopCloseFile(fh));
    signal(SIGCHLD, before);
}

/* ---- places ---- */

TEST(iopZip, placesNearbyAreKept)
{
    const NothingLeft check;
    const int n = 40000;
    writeNumbers("f.Z", n);
    iopHd *fh = openZip("f");
    const pid_t pid = fh->pid;
    for (int i = 0; i < n; ++i) {
        const int64_t loc = iopGetLoc(fh);
        ASSERT_EQ(nextInt(fh), i);
        if (i % 7 || i < 2048) continue;
        iopSetLoc(fh, loc - 16384 + 8);             /* the farthest that is kept for certain */
        ASSERT_EQ(nextInt(fh), i - 2047);
        iopSetLoc(fh, loc);
        ASSERT_EQ(nextInt(fh), i);
    }
    EXPECT_EQ(fh->pid, pid) << "zcat was started anew";
    iopCloseFile(fh);
}

TEST(iopZip, optionalItemsAreLookedAtWithoutANewStart)
{
    std::string text;
    for (int i = 0; i < 30000; ++i) text += "key" + std::to_string(i % 10) + "\n" + std::to_string(i) + "\n";
    writeCompressed("f.Z", text);
    iopHd *fh = openZip("f");
    const pid_t pid = fh->pid;
    int value = -1;
    for (int i = 0; i < 30000; ++i) {
        const std::string key = "key" + std::to_string(i % 10);
        iopGetOptKeyInt(fh, "other", &value);
        ASSERT_EQ(value, i - 1);
        iopGetOptKeyInt(fh, key.c_str(), &value);
        ASSERT_EQ(value, i);
    }
    EXPECT_EQ(fh->pid, pid);
    EXPECT_EQ(testSlept(), 0);
    iopCloseFile(fh);
}

/* Kept or not, it is the same but for the starts of the program */
class iopZipPlaces : public ::testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(kept, iopZipPlaces, ::testing::Bool());

TEST_P(iopZipPlaces, farAwayAreFoundAgain)
{
    const NothingLeft check;
    const int n = 100000;
    writeNumbers("f.Z", n);
    iopHd *fh = openZip("f");
    if (GetParam()) iopKeepDecoded(fh);
    const pid_t first = fh->pid;
    for (int i : { 99999, 0, 50000, 49999, 47000, 80000, 1, 99998, 60000 }) {
        iopSetLoc(fh, 8 * (int64_t) i);
        EXPECT_EQ(iopGetLoc(fh), 8 * (int64_t) i);
        EXPECT_EQ(nextInt(fh), i);
    }
    EXPECT_EQ(fh->pid == first, GetParam());
    iopSetLoc(fh, 8 * (int64_t) n);                 /* the end is a place */
    char text[SYS_TEXT];
    EXPECT_EQ(iopGetIfStr(fh, text), 0);
    checkFails("Unable to set location <800001> <in compressed file <f> token <9> near <__NONE__>>",
               iopSetLoc(fh, 8 * (int64_t) n + 1));
    checkFails("Unable to set location <-1> <in compressed file <f>", iopSetLoc(fh, -1));
    checkFails("Unable to set location <9223372036854775807> <", iopSetLoc(fh, INT64_MAX));
    iopSetLoc(fh, 80);
    EXPECT_EQ(nextInt(fh), 10);
    iopCloseFile(fh);
}

/* Bytes go past what is read ahead, yet the places are right */
TEST_P(iopZipPlaces, behindBytes)
{
    const int n = 100000;
    std::vector<int> ints((size_t) n), got((size_t) n);
    std::iota(ints.begin(), ints.end(), 3);
    iopHd *fh = openZip("f", IOP_WRITE);
    iopPrintLine(fh, "head");
    iopPutBinInts(fh, ints.data(), n);
    iopPrintLine(fh, "tail");
    iopCloseFile(fh);
    fh = openZip("f");
    if (GetParam()) iopKeepDecoded(fh);
    char text[SYS_TEXT];
    for (int i = 0; i < 2; ++i) {
        iopGetLine(fh, text, SYS_TEXT);
        EXPECT_EQ(iopGetLoc(fh), 5);
        iopGetBinInts(fh, got.data(), n);
        EXPECT_EQ(got, ints);
        EXPECT_EQ(iopGetLoc(fh), 5 + 4 * (int64_t) n);
        iopCheckStr(fh, "tail");
        iopSetLoc(fh, 0);
    }
    iopSetLoc(fh, 5 + 4 * 99999);
    iopGetBinInts(fh, got.data(), 1);
    EXPECT_EQ(got[0], ints[99999]);
    iopCloseFile(fh);
}

/* Waiting does not start the program anew; going back to the start does */
TEST_P(iopZipPlaces, aFileThatGrewIsSeenAfterARewind)
{
    const NothingLeft check;
    writeCompressed("f.Z", "1\n");
    testWhenSleeping([] { writeCompressed("f.Z", "1\n2\n"); });
    iopHd *fh = openZip("f");
    if (GetParam()) iopKeepDecoded(fh);
    EXPECT_EQ(nextInt(fh), 1);
    checkFails("EOF in compressed file <f> token <1> near <__NONE__>", nextInt(fh));
    iopRewind(fh);
    EXPECT_EQ(nextInt(fh), 1);
    EXPECT_EQ(nextInt(fh), 2);
    iopCloseFile(fh);
}

TEST(iopZip, aStartThatFailsOnTheWayBack)
{
    const NothingLeft check;
    writeNumbers("f.Z", 100000);
    iopHd *fh = openZip("f");
    iopGetIntDsp(fh, 50000);
    {
        const SearchPath empty(true);
        const char *text = "unable to open compressed file <f.Z>; No such file or directory";
        checkFails(text, iopSetLoc(fh, 0));
        checkFails(text, iopRewind(fh));
        checkFails(text, iopCheckStr(fh, "key"));           /* for its second try */
    }
    iopSetLoc(fh, 8 * 50001);
    EXPECT_EQ(nextInt(fh), 50001);                          /* as if nothing had been asked for */
    iopRewind(fh);
    EXPECT_EQ(nextInt(fh), 0);
    remove("f.Z");
    {
        const NoComplaints quiet;
        iopRewind(fh);
        checkFails("EOF in compressed file <f> token <0>", nextInt(fh));
        checkFails("Unable to set location <8> <", iopSetLoc(fh, 8));
    }
    iopCloseFile(fh);
}

/* ---- what is kept ---- */

static int backAndForth(iopHd *fh)
{
    const pid_t first = fh->pid;
    for (int i : { 60000, 30000, 60001, 10, 99999, 0, 65000 }) {
        iopSetLoc(fh, 8 * (int64_t) i);
        EXPECT_EQ(nextInt(fh), i);
    }
    return fh->pid == first;
}

TEST(iopZipKept, inAFileWithoutAName)
{
    const NothingLeft check;
    const TestVariable folder("TMPDIR", testFolder() + "/tmp");
    mkdir("tmp", 0755);
    writeNumbers("f.Z", 100000);
    iopHd *fh = openZip("f");
    const int before = nOpenFiles();
    iopKeepDecoded(fh);
    iopKeepDecoded(fh);
    EXPECT_EQ(nOpenFiles(), before + 1);
    EXPECT_TRUE(fcntl(fh->keptFd, F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(backAndForth(fh));
    EXPECT_EQ(rmdir("tmp"), 0) << strerror(errno);
    iopCloseFile(fh);
}

TEST(iopZipKept, whereItCannotBeNothingChanges)
{
    const NothingLeft check;
    writeNumbers("f.Z", 100000);
    for (const std::string &name : { testFolder() + "/none", testFolder() + "/f.Z", std::string(2000, 'x'),
                                     std::string("/proc") }) {
        const TestVariable folder("TMPDIR", name);
        iopHd *fh = openZip("f");
        iopKeepDecoded(fh);
        EXPECT_EQ(fh->keptFd, -1);
        EXPECT_FALSE(backAndForth(fh));
        iopCloseFile(fh);
    }
}

/* The most that a file may have is reached on the way: a write beyond it would end the program by a signal */
TEST(iopZipKept, upToTheRoomThatThereIs)
{
    const NothingLeft check;
    writeNumbers("f.Z", 100000);
    for (rlim_t most : { 0, 1, 5000, 300000, 600000 }) {
        const Limit limit(RLIMIT_FSIZE, most);
        iopHd *fh = openZip("f");
        iopKeepDecoded(fh);
        EXPECT_FALSE(backAndForth(fh));
        EXPECT_EQ(fh->keptFd, -1);
        iopCloseFile(fh);
    }
}

TEST(iopZipKept, onlyFromTheStart)
{
    const NothingLeft check;
    writeNumbers("f.Z", 100000);
    for (bool back : { false, true }) {                     /* the pipe does not stand where the handle does */
        iopHd *fh = openZip("f");
        EXPECT_EQ(nextInt(fh), 0);
        if (back) iopSetLoc(fh, 0);
        iopKeepDecoded(fh);
        EXPECT_EQ(fh->keptFd, -1);
        EXPECT_FALSE(backAndForth(fh));
        iopCloseFile(fh);
    }
    iopHd *fh = openZip("w", IOP_WRITE);
    iopKeepDecoded(fh);
    EXPECT_EQ(fh->keptFd, -1);
    iopCloseFile(fh);
    testWrite("f", "1 2 3\n");
    fh = iopOpenFile("f", IOP_ASCII | IOP_READ);
    iopKeepDecoded(fh);
    EXPECT_EQ(fh->keptFd, -1);
    EXPECT_EQ(nextInt(fh), 1);
    iopCloseFile(fh);
}

/* All handles together take a part of the room, and give it back */
TEST(iopZipKept, theRoomIsShared)
{
    const NothingLeft check;
    writeNumbers("f.Z", 100000);                            /* 800,000 bytes */
    struct statvfs disk;
    ASSERT_EQ(statvfs(getenv("TMPDIR"), &disk), 0);
    const int64_t usual = iopKeptShare;
    EXPECT_EQ(usual, 4);
    iopKeptShare = (int64_t) (disk.f_bavail * disk.f_frsize / 1200000);
    iopHd *fh[3];
    for (iopHd *&f : fh) {
        f = openZip("f");
        iopKeepDecoded(f);
    }
    EXPECT_TRUE(backAndForth(fh[0]));
    EXPECT_FALSE(backAndForth(fh[1]));                      /* half of it would have fitted */
    EXPECT_EQ(fh[1]->keptFd, -1);
    iopCloseFile(fh[0]);
    EXPECT_TRUE(backAndForth(fh[2]));
    iopRewind(fh[2]);                                       /* gives it back as well */
    EXPECT_TRUE(backAndForth(fh[2]));
    for (int i : { 1, 2 }) iopCloseFile(fh[i]);
    iopKeptShare = usual;
}

/* Where the host has closed its standard streams, what it prints would go into the file that takes their number. */
TEST(iopZipKept, aHostWithoutStandardStreams)
{
    writeNumbers("f.Z", 100000);
    int before[3];
    for (int i = 0; i < 3; ++i) before[i] = dup(i);
    for (int i = 0; i < 3; ++i) close(i);
    iopHd *fh = openZip("f");
    iopKeepDecoded(fh);
    const int keptFd = fh->keptFd;
    iopSetLoc(fh, 8 * 60000);
    const int far = nextInt(fh);
    for (int i = 1; i < 3; ++i)
        if (write(i, "9999999\n9999999\n", 16) < 0) continue;    /* there is no such stream, or one to read */
    iopSetLoc(fh, 8);
    const int near = nextInt(fh);
    iopCloseFile(fh);
    for (int i = 0; i < 3; ++i) {
        dup2(before[i], i);
        close(before[i]);
    }
    EXPECT_EQ(far, 60000);
    EXPECT_EQ(near, 1);
    EXPECT_GT(keptFd, 2);
}

/* What was kept of the program before is not taken for what the next one says */
TEST(iopZipKept, aSecondLookIsANewStart)
{
    const NothingLeft check;
    const int n = 50000;
    writeNumbers("f.Z", n);
    iopHd *fh = openZip("f");
    iopKeepDecoded(fh);
    iopGetIntDsp(fh, n);
    std::string text;
    for (int i = 0; i < n; ++i) text += "9" + std::to_string(100000 + i) + "\n";
    writeCompressed("f.Z", text);
    iopSetLoc(fh, 800);
    EXPECT_EQ(nextInt(fh), 100);
    iopRewind(fh);
    for (int i : { 0, 30000, 100, 49999, 7 }) {
        iopSetLoc(fh, 8 * (int64_t) i);
        EXPECT_EQ(nextInt(fh), 9100000 + i);
    }
    iopCloseFile(fh);
}

/* ---- places that are not found ---- */

/* What is found in second place is not taken for what was asked for */
TEST(iopZip, aFileThatShrankBeforeTheSecondTryFails)
{
    const NoComplaints quiet;
    writeCompressed("f.Z", "one two three\n");
    testWhenSleeping([] { remove("f.Z"); });
    iopHd *fh = openZip("f");
    iopCheckStr(fh, "one");
    checkFails("Unable to set location <3> <in compressed file <f> token <1> near <two>>", iopCheckStr(fh, "three"));
    iopCloseFile(fh);
}

/* ---- room ---- */

TEST(iopZip, needKnowsWhatAFileCanHoldAtMost)
{
    const NoComplaints quiet;
    const std::string packed = compressedBytes("1 2 3\n");
    const int64_t most = (int64_t) packed.size() * 32768 / 2;
    testWrite("f.Z", packed);
    iopHd *fh = openZip("f");
    for (char kind : { 'i', 'r', 'f', 's' }) {
        checkReturns(iopNeed(fh, 0, kind));
        checkReturns(iopNeed(fh, 3, kind));
        checkReturns(iopNeed(fh, most, kind));
        checkFails("EOF in compressed file <f>", iopNeed(fh, most + 1, kind));
        checkFails("EOF in compressed file <f>", iopNeed(fh, INT64_MAX, kind));
        checkFails("invalid count <-1>; in compressed file <f>", iopNeed(fh, -1, kind));
    }
    iopGetIntDsp(fh, 2);
    checkFails("EOF in compressed file <f>", iopNeed(fh, most, 'i'));
    iopCloseFile(fh);
    fh = openZip("none");
    checkReturns(iopNeed(fh, 0, 'i'));
    checkFails("EOF in compressed file <none>", iopNeed(fh, 1, 'i'));
    iopCloseFile(fh);
}

/* What shrinks as well as anything can does not fail for want of room */
TEST(iopZip, needAllowsTheDensestFile)
{
    std::vector<int> zeros(4000000);
    iopHd *fh = openZip("f", IOP_WRITE);
    iopPutIntF(fh, zeros.data(), (int) zeros.size(), 1, 0);
    iopCloseFile(fh);
    EXPECT_LT(iopFileSize("f.Z"), 20000);
    fh = openZip("f");
    checkReturns(iopNeed(fh, (int64_t) zeros.size(), 'i'));
    iopGetIntDsp(fh, (int) zeros.size() - 1);
    checkReturns(iopNeed(fh, 1, 'i'));
    EXPECT_EQ(nextInt(fh), 0);
    iopCloseFile(fh);
}

/* ---- close ---- */

/* Neither one who would go on for ever nor one who says nothing */
TEST(iopZip, closingDoesNotWaitForTheRest)
{
    const NothingLeft check;
    const SearchPath ours(false);
    testWrite("f.Z", "");
    writeProgram("zcat", "exec yes 12");
    iopHd *fh = openZip("f");
    EXPECT_EQ(nextInt(fh), 12);
    for (int i = 0; i < 10; ++i) iopRewind(fh);
    iopCloseFile(fh);
    writeProgram("zcat", "exec sleep 1000");
    const time_t start = time(NULL);
    fh = openZip("f");
    iopCloseFile(fh);
    EXPECT_LT(time(NULL) - start, 100);
}

TEST(iopZip, nothingIsLeftBehind)
{
    const NothingLeft check;
    const NoComplaints quiet;
    writeNumbers("f.Z", 50000);
    for (int i = 0; i < 25; ++i) {
        iopHd *fh = openZip("f");
        iopGetIntDsp(fh, 100 * i);
        iopRewind(fh);
        iopGetIntDsp(fh, 49999 - i);
        iopSetLoc(fh, 16);
        EXPECT_EQ(nextInt(fh), 2);
        iopCloseFile(fh);
        iopCloseFile(openZip("none"));
        iopCloseFile(openZip("w", IOP_WRITE));
    }
}

TEST(iopZip, deletedAtClose)
{
    const NothingLeft check;
    writeCompressed("f.Z", "5\n");
    iopHd *fh = openZip("f.Z", IOP_READ | IOP_DELETE);
    EXPECT_EQ(nextInt(fh), 5);
    EXPECT_EQ(access("f.Z", F_OK), 0);
    iopCloseFile(fh);
    EXPECT_NE(access("f.Z", F_OK), 0);
    fh = openZip("f", IOP_WRITE | IOP_DELETE);
    iopPrintLine(fh, "%d", 5);
    EXPECT_EQ(access("f.Z", F_OK), 0);
    iopCloseFile(fh);
    EXPECT_NE(access("f.Z", F_OK), 0);
}

/* ---- write ---- */

/* Also what grows by it, of which compress tells in its exit status; and nothing at all */
TEST(iopZip, whatIsWrittenIsWhole)
{
    const NothingLeft check;
    for (int n : { 0, 1, 3, 100, 100000 }) {
        testWrite("w.Z", std::string(1000000, 'x'));        /* replaced */
        std::vector<int> ints((size_t) n);
        for (int i = 0; i < n; ++i) ints[(size_t) i] = (int) ((unsigned) i * 1103515245U + 12345U);
        iopHd *fh = openZip("w", IOP_WRITE);
        iopPutBinInts(fh, ints.data(), n);
        EXPECT_EQ(fh->nTokens, n);
        checkReturns(iopCloseFile(fh));
        EXPECT_EQ(uncompressed("w.Z"), std::string(reinterpret_cast<const char *>(ints.data()), 4 * (size_t) n));
    }
}

TEST(iopZip, bufferOptions)
{
    static const struct { int opt; bool byLine; } rows[] = {
        { IOP_LINE_BUFFER, true }, { IOP_NO_BUFFER, false }, { IOP_LINE_BUFFER | IOP_NO_BUFFER, false },
    };
    for (const auto &row : rows) {
        iopHd *fh = openZip("w", IOP_WRITE | row.opt);
        iopPrintLine(fh, "%s", "a line");
        EXPECT_EQ(__flbf(fh->fp) != 0, row.byLine);
        EXPECT_TRUE(row.byLine || __fbufsize(fh->fp) == 1);
        EXPECT_EQ(__fpending(fh->fp), 0u) << "kept back";
        iopCloseFile(fh);
        EXPECT_EQ(uncompressed("w.Z"), "a line\n");
        fh = openZip("w", IOP_READ | row.opt);
        iopCheckStr(fh, "a");
        iopCloseFile(fh);
    }
    iopHd *fh = openZip("w", IOP_WRITE);
    iopPrintLine(fh, "%s", "a line");
    EXPECT_EQ(__fpending(fh->fp), 7u);
    iopCloseFile(fh);
}

TEST(iopZip, aFileBeingWrittenHasNoPlaces)
{
    iopHd *fh = openZip("w", IOP_WRITE);
    iopPrintLine(fh, "%d", 5);
    checkFails("Unable to set location <0> <in compressed file <w> token <1> near <__NONE__>>", iopSetLoc(fh, 0));
    checkFails("Unable to set location <", iopRewind(fh));
    checkReturns(iopCloseFile(fh));
    EXPECT_EQ(uncompressed("w.Z"), "5\n");
}

TEST(iopZip, aFileThatCannotBeWrittenWholeFailsAtClose)
{
    const NothingLeft check;
    const NoComplaints quiet;
    std::vector<int> ints(20000);
    for (size_t i = 0; i < ints.size(); ++i) ints[i] = (int) (i * 1103515245 + 12345);
    iopHd *fh = NULL;
    {
        const Limit small(RLIMIT_FSIZE, 4096);              /* to which the system holds compress */
        fh = openZip("w", IOP_WRITE);
    }
    iopPutBinInts(fh, ints.data(), 1000);
    checkFails("unable to write file <w.Z>; ", iopCloseFile(fh));
    EXPECT_EQ(iopFileSize("w.Z"), 4096);
}

/* The host is not ended by a program that ends too early, nor is the loss passed over */
TEST(iopZip, compressThatDies)
{
    const NothingLeft check;
    const SearchPath ours(false);
    std::vector<int> ints(1000000);
    for (const char *commands : { "exit 1", "exit 3", "kill -9 $$", "head -c 1 > head; exit 1", "exec 0<&-; exit 1" }) {
        writeProgram("compress", commands);
        iopHd *fh = openZip("w", IOP_WRITE);
        checkFails("unable to write <1000000> integers in compressed file <w> token <0> near <__NONE__>",
                   iopPutIntF(fh, ints.data(), 1000000, 1, 1));
        checkFails("unable to write file <w.Z>; ", iopCloseFile(fh));
        fh = openZip("w", IOP_WRITE | IOP_NO_BUFFER);
        checkFails("unable to write <1000000> integers in compressed file <w>",
                   iopPutBinInts(fh, ints.data(), 1000000));
        checkFails("unable to write file <w.Z>; ", iopCloseFile(fh));
        fh = openZip("w", IOP_WRITE);
        checkFails("unable to write file <w.Z>; ", iopCloseFile(fh));
    }
    const std::string line(10000000, 'x');
    writeProgram("compress", "exit 1");
    iopHd *fh = openZip("w", IOP_WRITE | IOP_NO_BUFFER);
    checkFails("unable to write to in compressed file <w> token <0> near <__NONE__> format <%s>",
               iopPrintLine(fh, "%s", line.c_str()));
    checkFails("unable to write file <w.Z>; ", iopCloseFile(fh));
    fh = openZip("w", IOP_WRITE | IOP_DELETE);              /* nothing that anybody would miss */
    checkReturns(iopCloseFile(fh));
    EXPECT_NE(access("w.Z", F_OK), 0);
}

/* A host may have forked meanwhile: its copy of our end does not keep compress waiting */
TEST(iopZip, aForkedHostDoesNotHoldTheCloseUp)
{
    iopHd *fh = openZip("w", IOP_WRITE);
    iopPrintLine(fh, "%d", 5);
    const pid_t other = fork();
    if (other == 0) {
        for (;;) pause();
    }
    checkReturns(iopCloseFile(fh));
    EXPECT_EQ(uncompressed("w.Z"), "5\n");
    fh = openZip("w");
    EXPECT_EQ(nextInt(fh), 5);
    iopCloseFile(fh);
    kill(other, SIGKILL);
    waitpid(other, NULL, 0);
}
