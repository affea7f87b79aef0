#ifndef TOOL_OPTIONS_H
#define TOOL_OPTIONS_H

/* options.h: what the commands share in reading their options. What is refused comes out as std::invalid_argument. */

#include <cstddef>
#include <stdexcept>
#include <string>

namespace tool {

[[noreturn]] inline void refuse(const std::string &text) { throw std::invalid_argument(text); }

/* The value of the row whose word the text is. Rows have at least word and value. */
template <class Row, size_t n> auto choice(const char *option, const std::string &text, const Row (&rows)[n])
{
    std::string known;
    for (const Row &row : rows) {
        if (text == row.word) return row.value;
        known += std::string(known.empty() ? "" : ", ") + row.word;
    }
    refuse(std::string(option) + ": <" + text + "> is none of " + known);
}

}

#endif
