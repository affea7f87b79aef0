#include "test/testUtil.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

static int      slept, nPauses;
static void   (*whenSleeping)(), (*whenPausing)();
static fs::path home, folder;

/* A wait that is no whole second is a pause. */
static void countSleep(double seconds)
{
    const bool isPause = seconds != (int) seconds;
    if (isPause) ++nPauses;
    else slept += (int) seconds;
    void (*action)() = isPause ? whenPausing : whenSleeping;
    if (action) action();
}

int testSlept() { return slept; }
int testPaused() { return nPauses; }
void testWhenSleeping(void (*action)()) { whenSleeping = action; }
void testWhenPausing(void (*action)()) { whenPausing = action; }
std::string testFolder() { return folder.string(); }

void testWrite(const std::string &name, const std::string &bytes)
{
    std::ofstream(name, std::ios::binary | std::ios::trunc) << bytes;
}

std::string testRead(const std::string &name)
{
    std::ostringstream text;
    text << std::ifstream(name, std::ios::binary).rdbuf();
    return text.str();
}

TestVariable::TestVariable(const char *variable, const std::string &value)
    : name(variable), former(getenv(variable)), before(former ? former : "")
{
    setenv(name, value.c_str(), 1);
}

TestVariable::~TestVariable()
{
    if (former) setenv(name, before.c_str(), 1);
    else unsetenv(name);
}

/* A fresh folder for each test; a failed test's folder stays. */
class FolderPerTest : public ::testing::EmptyTestEventListener {
    void OnTestStart(const ::testing::TestInfo &info) override
    {
        std::string name = std::string(info.test_suite_name()) + "." + info.name();
        for (char &c : name)
            if (c == '/') c = '_';
        folder = home / name;
        fs::remove_all(folder);
        fs::create_directories(folder);
        fs::current_path(folder);
        slept = nPauses = 0;
        whenSleeping = whenPausing = nullptr;
    }
    void OnTestEnd(const ::testing::TestInfo &info) override
    {
        fs::current_path(home);
        std::error_code ignored;
        if (info.result()->Passed() || info.result()->Skipped()) fs::remove_all(folder, ignored);
        else printf("files kept in %s\n", folder.c_str());
    }
};

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    sysSetSleeper(countSleep);
    const char *base = getenv("RDB_TEST_FOLDER");
    home = fs::absolute(base ? base : "testFolders") / fs::path(argv[0]).filename();
    fs::create_directories(home);
    setenv("TMPDIR", home.c_str(), 1);                /* not the test's folder, whose time tells what is new in it */
    ::testing::UnitTest::GetInstance()->listeners().Append(new FolderPerTest);
    return RUN_ALL_TESTS();
}
