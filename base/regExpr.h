#ifndef BASE_REGEXPR_H
#define BASE_REGEXPR_H

/* regExpr.h: a small backtracking regular expression engine. A pattern is compiled into byte code in a buffer of the
 * caller's; a match is tried at one stated position of one text. Use:
 *
 *     rePattern pattern = {};
 *     reRegisters regs;
 *     const char *message = reCompilePattern(expr, (int) strlen(expr), &pattern);
 *     if (!message && reMatch(&pattern, text, (int) strlen(text), 0, &regs) >= 0) ...
 *     free(pattern.buffer);
 *
 * The language. Operators are special wherever they stand; a repetition takes as much as it can.
 *
 *     .              any character                        \w \W   a letter or digit, anything else
 *     ^ $            start, end of the text               \< \>   start, end of a word
 *     * + ?          repeat the last item                 \b \B   at a start or end of a word, elsewhere
 *     ( )            group with a register                \` \'   start, end of the text
 *     | or newline   alternatives                         \1-\9   the text of a register, once its group has ended
 *     [a-z] [^]x]    one of a set, one outside of it;     \       before anything else: that character
 *                    a ] that comes first and any \ stand for themselves
 *
 * Letters and digits are those of ASCII; a newline in the text is a character like others. */

enum { RE_NREGS = 100 };

typedef struct rePattern {
    unsigned char *buffer;        /* compiled code; from malloc, memNew too, since it may have to grow              */
    int            allocated;     /* its size; 0, or no buffer: the compiler allocates                              */
    int            used;          /* bytes of code                                                                  */
    char          *fastmap;       /* 256 bytes, or null: for reCompileFastmap                                       */
    const char    *translate;     /* 256 bytes of case folding for both sides, or null                              */
    char           fastmap_accurate;
    char           can_be_null;   /* set by reCompileFastmap: the empty text may match                              */
    char           uses_registers;
    int            num_registers; /* 1 more than there are groups                                                   */
    char           anchor;        /* 1 if the pattern begins with ^, 2 if with \`                                   */
} rePattern;

/* Positions in the text, -1 for a group that took no part. Register 0 is the whole match, 1 to 99 are the groups in
   the order of their opening parentheses. A repeated group has its last turn. */
typedef struct reRegisters { int start[RE_NREGS], end[RE_NREGS]; } reRegisters;

#ifdef __cplusplus
extern "C" {
#endif

/* Compiles `length` bytes of pattern. Before the first use the record is zeroed, or given a buffer with its size,
   `fastmap`, `translate`. The buffer is the caller's to free, after an error, too. Null, or a message:

       Regular expression too complex         more than 99 groups, or too long for a loop or alternative
       Badly placed special character         a repetition of nothing
       Badly placed parenthesis
       Bad match register number              \n before group n has begun
       Regular expression ends prematurely    inside an escape or a set
       Out of memory */
const char *reCompilePattern(const char *pattern, int length, rePattern *buf);

/* Matches text[pos ... length-1] from its start on; what stands before pos counts for \< \> \b \B, and ^ matches at 0
   only. Returns the length of the match, -1 for none, -2 if it needs more than 4100 choice points or more than a
   hundred million steps, or memory is out. With a match and `regs` not null, all registers are set; otherwise `regs`
   stays as it was. The first matches change the code in place, without changing any result: a pattern serves one
   thread at a time. May not return: a negative length, a position outside of the text, code that the compiler does not
   make. */
int reMatch(rePattern *buf, const char *text, int length, int pos, reRegisters *regs);

/* Builds the tables of the language, once; compiling does it, too. */
void reCompileInitialize(void);

/* Of a compiled pattern: sets fastmap[c], for each character as it comes in a text, to 1 if a match may begin with it,
   otherwise to 0; and can_be_null to 1 if a match may be empty. Without a fastmap only can_be_null is set. */
void reCompileFastmap(rePattern *buf);

#ifdef __cplusplus
}
#endif
#endif
