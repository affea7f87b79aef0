#ifndef BASE_REGEXPR_H
#define BASE_REGEXPR_H

/* regExpr.h: a small backtracking regular expression engine. A pattern is compiled into byte code in a buffer of the
 * caller's; a match is tried at one stated position of one text. */

enum { RE_NREGS = 100 };

typedef struct rePattern {
    unsigned char *buffer;        /* compiled code                                             */
    int            allocated;     /* its size; 0, or no buffer: the compiler allocates         */
    int            used;          /* bytes of code                                             */
    char          *fastmap;       /* 256 bytes, or null                                        */
    const char    *translate;     /* 256 bytes of case folding for both sides, or null         */
    char           fastmap_accurate;
    char           can_be_null;
    char           uses_registers;
    int            num_registers;
    char           anchor;
} rePattern;

typedef struct reRegisters { int start[RE_NREGS], end[RE_NREGS]; } reRegisters;

#ifdef __cplusplus
extern "C" {
#endif

const char *reCompilePattern(const char *pattern, int length, rePattern *buf);
int         reMatch(rePattern *buf, const char *text, int length, int pos, reRegisters *regs);
void        reCompileInitialize(void);
void        reCompileFastmap(rePattern *buf);

#ifdef __cplusplus
}
#endif
#endif
