/* testIopDir.cpp: the directory scan. */

#include <algorithm>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "iop/iop.h"
#include "test/testUtil.h"

typedef std::vector<std::string> Names;

static Names scan(const char *name)
{
    Names names;
    iopDir *dir = iopOpenDir(name);
    while (const char *entry = iopReadDir(dir)) names.push_back(entry);
    EXPECT_EQ(iopReadDir(dir), nullptr);
    iopCloseDir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

TEST(iopDir, allNamesWithThoseOfItselfAndItsParent)
{
    mkdir("d", 0755);
    mkdir("d/sub", 0755);
    testWrite("d/p.1.cli", "");
    testWrite("d/.hidden", "");
    EXPECT_EQ(scan("d"), (Names{ ".", "..", ".hidden", "p.1.cli", "sub" }));
    EXPECT_EQ(scan("d/"), scan("d"));
}

TEST(iopDir, emptyDirectoryGivesNoName)
{
    mkdir("d", 0755);
    EXPECT_EQ(scan("d"), Names{});
    EXPECT_EQ(iopIsDir("d"), 1);
}

TEST(iopDir, manyNames)
{
    mkdir("d", 0755);
    Names wanted = { ".", ".." };
    for (int i = 0; i < 2000; ++i) {
        const std::string name = "p.1_" + std::to_string(i) + "_0.out";
        testWrite("d/" + name, "");
        wanted.push_back(name);
    }
    std::sort(wanted.begin(), wanted.end());
    EXPECT_EQ(scan("d"), wanted);
}

TEST(iopDir, pathThatDoesNotExistFails)
{
    checkFails("unable to open directory <nope>; No such file or directory", iopOpenDir("nope"));
    checkFails("unable to open directory <>; No such file or directory", iopOpenDir(""));
    EXPECT_EQ(iopIsDir("nope"), 0);
}

TEST(iopDir, fileIsNoDirectory)
{
    testWrite("f", "");
    checkFails("unable to open directory <f>; Not a directory", iopOpenDir("f"));
    EXPECT_EQ(iopIsDir("f"), 0);
}

TEST(iopDir, lengthOfTheName)
{
    std::string name260;
    while (name260.size() < 260) name260 += "./";
    testWrite("f", "");
    EXPECT_EQ(scan(name260.c_str()), scan("."));
    EXPECT_EQ(iopIsDir(name260.c_str()), 1);
    const std::string name261 = name260 + "/", name1023(1023, 'n'), name1024(1024, 'n');
    checkFails("unable to open directory <" + name261 + ">; File name too long", iopOpenDir(name261.c_str()));
    EXPECT_EQ(iopIsDir(name261.c_str()), 0);
    checkFails("unable to open directory <" + name1023 + ">; ", iopOpenDir(name1023.c_str()));
    checkFails("dirName is too long <" + name1024 + ">", iopOpenDir(name1024.c_str()));
    EXPECT_EQ(iopIsDir(name1024.c_str()), 0);
}

TEST(iopDir, lastBackslashIsASlash)
{
    mkdir("d", 0755);
    testWrite("d/f", "");
    EXPECT_EQ(scan("d\\"), (Names{ ".", "..", "f" }));
}

TEST(iopDir, driveLetterIsItsCurrentDirectory)
{
    testWrite("f", "");
    EXPECT_EQ(scan("c:"), scan("."));
    EXPECT_EQ(scan("Z:"), scan("."));
    EXPECT_EQ(iopIsDir("1:"), 0);
    EXPECT_EQ(iopIsDir("cc:"), 0);
}

TEST(iopDir, scansAreIndependentAndUsedAgain)
{
    mkdir("d", 0755);
    mkdir("e", 0755);
    testWrite("d/x", "");
    testWrite("e/y", "");
    iopDir *d = iopOpenDir("d"), *e = iopOpenDir("e");
    testWrite("d/later", "");
    Names both;
    for (const char *name; (name = iopReadDir(d)); ) both.push_back(name);
    for (const char *name; (name = iopReadDir(e)); ) both.push_back(name);
    std::sort(both.begin(), both.end());
    EXPECT_EQ(both, (Names{ ".", ".", "..", "..", "x", "y" }));
    iopCloseDir(e);
    iopCloseDir(d);
    EXPECT_EQ(iopOpenDir("e"), d);
    iopCloseDir(d);
    struct rlimit before, few;
    getrlimit(RLIMIT_NOFILE, &before);
    few = before;
    few.rlim_cur = 100;
    setrlimit(RLIMIT_NOFILE, &few);
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(iopIsDir("nope") + iopIsDir("d"), 1);
        d = nullptr;
        checkReturns(d = iopOpenDir("d"));
        if (!d) break;
        iopCloseDir(d);
    }
    setrlimit(RLIMIT_NOFILE, &before);
}
