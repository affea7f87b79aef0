#ifndef TEST_TESTUTIL_H
#define TEST_TESTUTIL_H

/* testUtil.h: what every unit test uses.
 *
 * No test waits: the program's main installs a sleeper that only counts. Each test runs in a fresh folder of its own,
 * which stays when it fails. A failure of the library is caught in one place, trapped(). */

#include <gtest/gtest.h>

#include <string>

#include "base/sys.h"

/* Runs f under a trap. The trap's text if f failed, "" if it returned. f is left without unwinding: what it holds
   must not need a destructor. */
template <class F> std::string trapped(F f)
{
    std::string text;
    if (setjmp(*rdbAssertEnv()) == 0) f();
    else text = rdbAssertErrorStr();
    rdbAssertEndTrap();
    return text;
}

/* The expression must fail, and the failure's text must hold `part`. */
#define checkFails(part, ...)                                                                              \
    do {                                                                                                   \
        const std::string failure_ = trapped([&] { __VA_ARGS__; });                                        \
        EXPECT_NE(failure_, "") << #__VA_ARGS__ << " did not fail";                                        \
        EXPECT_NE(failure_.find(part), std::string::npos) << "expected: " << (part) << "\nfailure:  " << failure_; \
    } while (0)

/* The expression must return. */
#define checkReturns(...) EXPECT_EQ(trapped([&] { __VA_ARGS__; }), "")

int  testSlept();                          /* seconds that the library asked to wait for since the test began  */
int  testPaused();                         /* how often it asked for a part of a second                        */
void testWhenSleeping(void (*action)());   /* called at each wait for seconds: plays the writer                */
void testWhenPausing(void (*action)());    /* the same for parts of a second                                   */
std::string testFolder();                  /* the test's own folder, which is the current directory            */
void testWrite(const std::string &name, const std::string &bytes);
std::string testRead(const std::string &name);

/* Sets a variable of the environment for its life */
class TestVariable {
    const char *name, *former;
    std::string before;

public:
    TestVariable(const char *variable, const std::string &value);
    ~TestVariable();
    TestVariable(const TestVariable &) = delete;
};

#endif
