#ifndef TEST_COMMALOCALE_H
#define TEST_COMMALOCALE_H

/* commaLocale.h: a process whose user is Turkish: numbers have a decimal comma, and in the language's own rules the
 * capital of i is not I. No machine need have that locale installed: it is made in the test's folder. */

#include <clocale>
#include <cstdlib>

#include <sys/wait.h>
#include <unistd.h>

#include "test/testUtil.h"

class CommaLocale {
public:
    CommaLocale()
    {
        const std::string path = testFolder() + "/tr_TR.UTF-8";
        const pid_t child = fork();
        if (child == 0) {
            if (!freopen("/dev/null", "w", stdout) || !freopen("/dev/null", "w", stderr)) _exit(1);
            execlp("localedef", "localedef", "--no-archive", "-i", "tr_TR", "-f", "UTF-8", path.c_str(), nullptr);
            _exit(1);
        }
        waitpid(child, nullptr, 0);
        setenv("LOCPATH", testFolder().c_str(), 1);
        made = setlocale(LC_ALL, "tr_TR.UTF-8") && *localeconv()->decimal_point == ',';
        unsetenv("LOCPATH");
    }
    ~CommaLocale() { setlocale(LC_ALL, "C"); }
    CommaLocale(const CommaLocale &) = delete;
    bool made;
};

/* What follows in the test runs in that locale. */
#define useCommaLocale()                                                                         \
    CommaLocale commaLocale_;                                                                    \
    if (!commaLocale_.made) GTEST_SKIP() << "localedef makes no locale with a decimal comma here"

#endif
