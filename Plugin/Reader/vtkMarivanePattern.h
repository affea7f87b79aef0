#ifndef PLUGIN_READER_VTKMARIVANEPATTERN_H
#define PLUGIN_READER_VTKMARIVANEPATTERN_H

/* vtkMarivanePattern.h: one of the reader's regular expressions, compiled where it stands. */

#include <cstring>

#include "base/regExpr.h"
#include "base/sys.h"

class vtkMarivanePattern
{
public:
    explicit vtkMarivanePattern(const char *expression)
    {
        memset(&this->Compiled, 0, sizeof this->Compiled);
        this->Compiled.buffer = this->Code;
        this->Compiled.allocated = sizeof this->Code;
        const char *error = reCompilePattern(expression, int(strlen(expression)), &this->Compiled);
        if (error) sysFail("%s <%s>", error, expression);
    }
    vtkMarivanePattern(const vtkMarivanePattern &) = delete;
    void operator=(const vtkMarivanePattern &) = delete;

    /* The length of the match at the start of the text, negative for none; the groups, if wanted, in regs. */
    int Match(const char *text, reRegisters *regs = nullptr)
    {
        return reMatch(&this->Compiled, text, int(strlen(text)), 0, regs);
    }

private:
    /* Enough for the reader's fixed expressions; others must not come here: a buffer too small would be realloc'ed. */
    unsigned char Code[SYS_TEXT];
    rePattern     Compiled;
};

#endif
