#ifndef TEST_TOOL_THROWN_H
#define TEST_TOOL_THROWN_H

/* thrown.h: the text of what a call throws, "" if it returns. */

#include <exception>
#include <string>

template <class F> std::string thrownBy(F f)
{
    try {
        f();
    }
    catch (const std::exception &e) {
        return e.what();
    }
    return "";
}

#endif
