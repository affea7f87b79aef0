#ifndef TEST_TOOL_FORMS_H
#define TEST_TOOL_FORMS_H

/* forms.h: what the tests of the writer expect of each storage form, told independently of the writer's own table. */

#include <string>

#include "test/tool/tokenReader.h"
#include "tool/tokenFile.h"

struct FormCase {
    const char *name;
    tool::Form  form;
    const char *suffix;                    /* of the file on disk                        */
    const char *kind;                      /* of the file on disk, as kindOf tells it    */
    int         opt;                       /* what FMT says                              */
};

static const FormCase forms[] = {
    {"ascii",      tool::Form::ascii,      "",   "text",       0x10 },
    {"binary",     tool::Form::binary,     ".B", "binary",     0x20 },
    {"swapped",    tool::Form::swapped,    ".B", "swapped",    0x20 },
    {"compressed", tool::Form::compressed, ".Z", "compressed", 0x40 },
    {"hdf",        tool::Form::hdf,        ".H", "hdf",        0x80 },
    {"container",  tool::Form::container,  ".C", "hdf",        0x100},
};

inline const FormCase &caseOf(tool::Form form)
{
    for (const FormCase &f : forms)
        if (f.form == form) return f;
    throw std::runtime_error("a form without a test");
}

/* Where the data file base + tail of a run is: a file of its own, or a member of base.C */
inline Place placeOf(tool::Form form, const std::string &base, const std::string &tail)
{
    if (form != tool::Form::container) return {base + tail + caseOf(form).suffix, ""};
    return {base + ".C", base.substr(base.rfind('/') + 1) + tail};
}

#endif
