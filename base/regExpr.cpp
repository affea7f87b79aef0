/* regExpr.cpp: regular expressions by backtracking over byte code.
 *
 * A pattern becomes code in one pass. An instruction is a byte and its operands; jumps are 16 bits, relative to their
 * end. X stands for an item, A and B for alternatives:
 *
 *     X*     Cfailure_jump out,  X,  Cstar_jump to the Cfailure_jump,  out:
 *     X+     Cdummy_failure_jump to X,  Cfailure_jump out,  X,  Cstar_jump to the Cfailure_jump,  out:
 *     X?     Cfailure_jump out,  X,  out:
 *     A|B    Cfailure_jump to B,  A,  Cjump out,  B,  out:
 *
 * The operators stand behind their items, so that their first instruction is put in when the item's code is there
 * already. What is moved holds only jumps within itself, and the jumps of alternatives wait for the end of their group.
 *
 * A match walks the code and keeps a stack of choice points. What goes wrong takes the top one up again, until none is
 * left. Registers written since a choice point are put back from a trail of their former values: each is noted once
 * per choice point.
 *
 * The end of a loop is written over when it is first met (loopEnd): mostly it is a plain jump. Where what comes behind
 * cannot begin like the loop's body, giving back a turn cannot help, and the loop renews its one choice point instead
 * of piling them up. A body that may take nothing gets an instruction of its own, which refuses an empty turn: so every
 * loop ends. How many ways there are to try may still grow exponentially with the text, and expressions hold names that
 * others chose: a match gives up when it has taken too many steps.
 *
 * In this file: instructions, tables, compiling, first characters, loops, choice points and registers, matching. */

#include "base/regExpr.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "base/sys.h"

enum opcode {
    Cend,                /*          success                                                                  */
    Cbol, Ceol,          /*          at the start, the end of the text                                        */
    Cset,                /* 32 bytes one character of the bit set                                             */
    Cexact,              /* char     this character                                                           */
    Canychar,            /*          any character                                                            */
    Cstart_memory,       /* register its group begins                                                         */
    Cend_memory,         /* register its group ends                                                           */
    Cmatch_memory,       /* register its text again                                                           */
    Cjump,               /* offset   jump                                                                     */
    Cstar_jump,          /* offset   end of a loop, to be written over when first met                         */
    Cfailure_jump,       /* offset   push a choice point that goes on there                                   */
    Cupdate_failure_jump,/* offset   end of a loop: move its choice point, on top, to here; jump              */
    Cdummy_failure_jump, /* offset   push an empty choice point for the Cfailure_jump that is jumped over     */
    Cbegbuf, Cendbuf,    /*          at the start, the end of the buffer                                      */
    Cwordbeg, Cwordend, Cwordbound, Cnotwordbound,
    Csyntaxspec,         /* class    one character of the class                                               */
    Cnotsyntaxspec,      /* class    one character outside of it                                              */
    Cturn_jump,          /* offset   end of a loop whose body may take nothing: jump, if this turn took some  */
    NOPCODES
};

static const unsigned char opLength[NOPCODES] = {
    1,  1, 1,  33,  2,  1,  2, 2, 2,  3, 3, 3, 3, 3,  1, 1,  1, 1, 1, 1,  2, 2,  3
};

enum { WORD_CLASS = 1 };

static const char
    tooComplex[]     = "Regular expression too complex",
    badOperator[]    = "Badly placed special character",
    badParenthesis[] = "Badly placed parenthesis",
    badRegister[]    = "Bad match register number",
    endsEarly[]      = "Regular expression ends prematurely",
    outOfMemory[]    = "Out of memory";

/* Tables: what a character of the pattern means, plain and behind a backslash, and the opcode where that is all. */

enum meaning { M_CHAR, M_CODE, M_ANCHOR, M_STAR, M_PLUS, M_OPTION, M_OPEN, M_CLOSE, M_OR, M_SET, M_ESCAPE, M_WORD,
               M_REGISTER };

typedef struct symbol { char c; unsigned char meaning, code; } symbol;

static const symbol plainSymbols[] = {
    { '.', M_CODE,   Canychar },   { '^',  M_ANCHOR, Cbol },   { '$', M_ANCHOR, Ceol },   { '*', M_STAR,  0 },
    { '+', M_PLUS,   0 },          { '?',  M_OPTION, 0 },      { '(', M_OPEN,   0 },      { ')', M_CLOSE, 0 },
    { '|', M_OR,     0 },          { '\n', M_OR,     0 },      { '[', M_SET,    0 },      { '\\', M_ESCAPE, 0 }
};
static const symbol escapedSymbols[] = {
    { 'w', M_WORD, Csyntaxspec },  { 'W', M_WORD, Cnotsyntaxspec },
    { '<', M_CODE, Cwordbeg },     { '>', M_CODE, Cwordend },
    { 'b', M_CODE, Cwordbound },   { 'B', M_CODE, Cnotwordbound },
    { '`', M_CODE, Cbegbuf },      { '\'', M_CODE, Cendbuf },
    { '1', M_REGISTER, 0 }, { '2', M_REGISTER, 0 }, { '3', M_REGISTER, 0 }, { '4', M_REGISTER, 0 },
    { '5', M_REGISTER, 0 }, { '6', M_REGISTER, 0 }, { '7', M_REGISTER, 0 }, { '8', M_REGISTER, 0 },
    { '9', M_REGISTER, 0 }
};

static symbol        plainTable[256], escapedTable[256];
static unsigned char identity[256];
static bool          wordChar[256], tablesBuilt;

template <size_t n> static void place(symbol *table, const symbol (&symbols)[n])
{
    for (const symbol &s : symbols) table[(unsigned char) s.c] = s;
}

extern "C" void reCompileInitialize(void)
{
    if (tablesBuilt) return;
    tablesBuilt = true;
    for (int c = 0; c < 256; ++c) {
        identity[c] = (unsigned char) c;
        wordChar[c] = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    }
    place(plainTable, plainSymbols);        /* all others stay M_CHAR */
    place(escapedTable, escapedSymbols);
}

static const unsigned char *foldTable(const rePattern *buf)
{
    return buf->translate ? (const unsigned char *) buf->translate : identity;
}

static bool inSet(const unsigned char *bits, int c) { return bits[c / 8] >> c % 8 & 1; }

static int  getOffset(const unsigned char *p)            { return (int16_t) (uint16_t) (p[0] | p[1] << 8); }
static void putOffset(unsigned char *p, int offset)      { p[0] = offset & 0xff; p[1] = offset >> 8 & 0xff; }

/* where the jump at p goes */
static int jumpTarget(const unsigned char *code, int p)  { return p + 3 + getOffset(code + p + 1); }

/* Compiling. The first error stays, and what is called after it does nothing. */

typedef struct group {
    int reg;
    int branch;                 /* code of the alternative that is being read      */
    int item;                   /* code of its last item, -1: none to be repeated  */
    int jumps;                  /* newest jump to the group's end, 0: none         */
} group;

typedef struct compiler {
    const unsigned char *pattern, *end, *fold;
    rePattern           *buf;
    const char          *error;
    group                groups[RE_NREGS], *top;
    int                  nRegs;
    int                  num_jumps;
} compiler;

/* Makes room for n bytes at a place of the code, and gives it; null after an error. */
static unsigned char *makeRoom(compiler *c, int at, int n)
{
    rePattern *buf = c->buf;
    if (c->error) return nullptr;
    if (buf->used > buf->allocated - n) {
        int size = buf->allocated < 128 ? 256 : buf->allocated > INT32_MAX / 2 ? INT32_MAX : 2 * buf->allocated;
        unsigned char *grown = buf->used > size - n ? nullptr : (unsigned char *) realloc(buf->buffer, (size_t) size);
        if (!grown) {
            c->error = outOfMemory;
            return nullptr;
        }
        buf->buffer = grown;
        buf->allocated = size;
    }
    memmove(buf->buffer + at + n, buf->buffer + at, (size_t) (buf->used - at));
    buf->used += n;
    return buf->buffer + at;
}

static unsigned char *emit(compiler *c, int op)
{
    unsigned char *p = makeRoom(c, c->buf->used, opLength[op]);
    if (p) p[0] = (unsigned char) op;
    return p;
}

static void emitItem(compiler *c, int op, int operand)
{
    c->top->item = c->buf->used;
    unsigned char *p = emit(c, op);
    if (p && opLength[op] == 2) p[1] = (unsigned char) operand;
}

/* Lets the jump at p go to the target. */
static void setJump(compiler *c, int p, int target)
{
    int offset = target - (p + 3);
    if (offset < INT16_MIN || offset > INT16_MAX) c->error = tooComplex;
    if (!c->error) putOffset(c->buf->buffer + p + 1, offset);
}

static void insertJump(compiler *c, int at, int op)
{
    unsigned char *p = makeRoom(c, at, 3);
    if (p) p[0] = (unsigned char) op;
}

static void emitSet(compiler *c)
{
    unsigned char bits[32] = {};
    bool negated = c->pattern < c->end && *c->pattern == '^';
    if (negated) ++c->pattern;
    for (const unsigned char *first = c->pattern; ; ) {
        if (c->pattern >= c->end) {
            c->error = endsEarly;
            return;
        }
        int from = *c->pattern++, to = from;
        if (from == ']' && c->pattern - 1 != first) break;
        if (c->end - c->pattern >= 2 && c->pattern[0] == '-' && c->pattern[1] != ']') {
            to = c->pattern[1];
            c->pattern += 2;
        }
        for (int x = from; x <= to; ++x) bits[c->fold[x] / 8] |= (unsigned char) (1 << c->fold[x] % 8);
    }
    if (negated)
        for (unsigned char &b : bits) b = (unsigned char) ~b;
    c->top->item = c->buf->used;
    unsigned char *p = emit(c, Cset);
    if (p) memcpy(p + 1, bits, sizeof bits);
}

static void repeat(compiler *c, int meaning)
{
    int item = c->top->item;
    if (item < 0) {
        c->error = badOperator;
        return;
    }
    insertJump(c, item, Cfailure_jump);
    int loop = item;
    if (meaning == M_PLUS) {
        insertJump(c, item, Cdummy_failure_jump);
        loop = item + 3;
        setJump(c, item, loop + 3);
    }
    if (meaning != M_OPTION) {
        emit(c, Cstar_jump);
        setJump(c, c->buf->used - 3, loop);
    }
    setJump(c, loop, c->buf->used);
}

/* Ends an alternative by a jump over those that follow. Its target comes with the group's end; until then the jumps of
   a group are linked by their distances. */
static void endBranch(compiler *c)
{
    group *g = c->top;
    insertJump(c, g->branch, Cfailure_jump);
    int jump = c->buf->used;
    emit(c, Cjump);
    setJump(c, jump, g->jumps ? jump + 3 + (jump - g->jumps) : jump + 3);
    setJump(c, g->branch, c->buf->used);
    g->jumps = jump;
    g->branch = c->buf->used;
    g->item = -1;
    ++c->num_jumps;
}

static void endGroup(compiler *c)
{
    for (int jump = c->top->jumps, back; jump && !c->error; jump = back ? jump - back : 0) {
        back = getOffset(c->buf->buffer + jump + 1);
        setJump(c, jump, c->buf->used);
        --c->num_jumps;
    }
}

static void openGroup(compiler *c)
{
    if (c->nRegs == RE_NREGS - 1) {
        c->error = tooComplex;
        return;
    }
    emitItem(c, Cstart_memory, ++c->nRegs);
    *++c->top = group{ c->nRegs, c->buf->used, -1, 0 };
}

static void closeGroup(compiler *c)
{
    if (c->top == c->groups) {
        c->error = badParenthesis;
        return;
    }
    endGroup(c);
    unsigned char *p = emit(c, Cend_memory);
    if (p) p[1] = (unsigned char) c->top->reg;
    --c->top;                                   /* whose last item is this group, since it was opened */
}

static void compileOne(compiler *c)
{
    int ch = *c->pattern++;
    symbol s = plainTable[ch];
    if (s.meaning == M_ESCAPE) {
        if (c->pattern >= c->end) {
            c->error = endsEarly;
            return;
        }
        ch = *c->pattern++;
        s = escapedTable[ch];
    }
    switch (s.meaning) {
    case M_CHAR:     emitItem(c, Cexact, c->fold[ch]); break;
    case M_CODE:     emitItem(c, s.code, 0); break;
    case M_WORD:     emitItem(c, s.code, WORD_CLASS); break;
    case M_ANCHOR:   emit(c, s.code); c->top->item = -1; break;     /* binds less than a repetition */
    case M_SET:      emitSet(c); break;
    case M_OR:       endBranch(c); break;
    case M_OPEN:     openGroup(c); break;
    case M_CLOSE:    closeGroup(c); break;
    case M_REGISTER:
        if (ch - '0' > c->nRegs) c->error = badRegister;
        emitItem(c, Cmatch_memory, ch - '0');
        break;
    default:         repeat(c, s.meaning); break;
    }
}

extern "C" const char *reCompilePattern(const char *pattern, int length, rePattern *buf)
{
    reCompileInitialize();
    if (!buf->buffer) buf->allocated = 0;
    if (buf->allocated <= 0) {
        buf->buffer = nullptr;
        buf->allocated = 0;
    }
    buf->used = 0;
    buf->fastmap_accurate = buf->can_be_null = buf->uses_registers = buf->anchor = 0;
    buf->num_registers = 1;

    compiler c = {};
    c.pattern = (const unsigned char *) pattern;
    c.end = c.pattern + (length > 0 ? length : 0);
    c.fold = foldTable(buf);
    c.buf = buf;
    c.top = c.groups;
    *c.top = group{ 0, 0, -1, 0 };
    while (!c.error && c.pattern < c.end) compileOne(&c);
    if (!c.error && c.top != c.groups) c.error = badParenthesis;
    endGroup(&c);
    emit(&c, Cend);
    if (c.error) return c.error;

    if (c.num_jumps != 0) sysFail("num_jumps == 0");
    buf->uses_registers = c.nRegs > 0;
    buf->num_registers = c.nRegs + 1;
    buf->anchor = buf->buffer[0] == Cbol ? 1 : buf->buffer[0] == Cbegbuf ? 2 : 0;
    return nullptr;
}

/* First characters. A set of 256, as they are after folding, and how else a piece of code may end. */

enum { MAX_ANALYSED = 8192 };   /* bytes of code: longer patterns keep their plain loops */

typedef struct firsts {
    bool chars[256];
    bool passed;                /* the end of the piece may be reached without a character */
} firsts;

static void addAll(firsts *f)
{
    memset(f->chars, true, sizeof f->chars);
    f->passed = true;
}

/* Adds what the instruction at p takes. False if it takes nothing. */
static bool addTaken(firsts *f, const unsigned char *p)
{
    switch (p[0]) {
    case Cexact:         f->chars[p[1]] = true; return true;
    case Canychar:       memset(f->chars, true, sizeof f->chars); return true;
    case Cset:           for (int c = 0; c < 256; ++c) f->chars[c] |= inSet(p + 1, c);  return true;
    case Csyntaxspec:    for (int c = 0; c < 256; ++c) f->chars[c] |= wordChar[c];      return true;
    case Cnotsyntaxspec: for (int c = 0; c < 256; ++c) f->chars[c] |= !wordChar[c];     return true;
    default:             return false;
    }
}

/* What the code at `from` may begin with, as far as `to` or Cend. Tests of the position count as passed, but with
   moreText, when a character is known to follow, those for the end fail. Code that is not understood may begin with
   anything. The instructions reached are marked and the code is walked over until nothing is added: jumps backward
   belong to the few loops around. */
static void findFirsts(const rePattern *buf, int from, int to, bool moreText, firsts *f)
{
    const unsigned char *code = buf->buffer;
    unsigned char reached[MAX_ANALYSED + 1] = {};
    memset(f, 0, sizeof *f);
    if (buf->used > MAX_ANALYSED) {
        addAll(f);
        return;
    }
    reached[from] = 1;
    for (bool again = true; again; ) {
        again = false;
        for (int p = 0, next; p < buf->used; p = next) {
            if (code[p] >= NOPCODES || p + opLength[code[p]] > buf->used) {
                fprintf(stderr, "regexpr.c: processing star_jump: unknown op %d\n", code[p]);
                addAll(f);
                return;
            }
            next = p + opLength[code[p]];
            if (reached[p] != 1) continue;
            reached[p] = 2;
            if (p == to || code[p] == Cend) {
                f->passed = true;
                continue;
            }
            if (addTaken(f, code + p)) continue;

            int jump = -1;
            bool on = true;
            switch (code[p]) {
            case Ceol: case Cendbuf:
                on = !moreText;
                break;
            case Cmatch_memory:
                addAll(f);
                break;
            case Cfailure_jump:
                jump = jumpTarget(code, p);
                break;
            case Cjump: case Cstar_jump: case Cupdate_failure_jump: case Cdummy_failure_jump: case Cturn_jump:
                jump = jumpTarget(code, p);
                on = false;
                break;
            }
            if (on && !reached[next]) reached[next] = 1;
            if (jump >= 0 && jump < buf->used && !reached[jump]) {
                reached[jump] = 1;
                again |= jump < p;
            }
        }
    }
}

extern "C" void reCompileFastmap(rePattern *buf)
{
    firsts f;
    findFirsts(buf, 0, -1, false, &f);
    buf->can_be_null = f.passed;
    buf->fastmap_accurate = 1;
    if (!buf->fastmap) return;
    const unsigned char *fold = foldTable(buf);
    for (int c = 0; c < 256; ++c) buf->fastmap[c] = f.chars[fold[c]];
}

/* Loops */

static bool hasChoice(const unsigned char *code, int from, int to)
{
    for (int p = from; p < to; p += opLength[code[p]])
        if (code[p] >= NOPCODES || code[p] == Cfailure_jump || code[p] == Cdummy_failure_jump) return true;
    return false;
}

/* Whether nothing but success can follow. */
static bool succeeds(const rePattern *buf, int p)
{
    const unsigned char *code = buf->buffer;
    for (;;) switch (code[p]) {
        case Cstart_memory: case Cend_memory: p += 2; break;
        case Cjump: {
            int target = jumpTarget(code, p);
            if (target < p) return false;           /* the end of a loop */
            p = target;
            break;
        }
        default: return code[p] == Cend;
    }
}

/* The instruction for the end, at p, of the loop whose body begins at `body`.
 *
 * Only the last turn's choice point is needed if each former one would fail at once: at each of those places stands a
 * character that the body begins with. That is known only of a body that has no choice points of its own and takes at
 * least one character. */
static int loopEnd(const rePattern *buf, int body, int p)
{
    firsts inside, behind;
    findFirsts(buf, body, p, false, &inside);
    if (inside.passed) return Cturn_jump;
    if (hasChoice(buf->buffer, body, p)) return Cjump;
    if (succeeds(buf, p + 3)) return Cupdate_failure_jump;
    findFirsts(buf, p + 3, -1, true, &behind);
    if (behind.passed) return Cjump;
    for (int c = 0; c < 256; ++c)
        if (inside.chars[c] && behind.chars[c]) return Cjump;
    return Cupdate_failure_jump;
}

/* Choice points and registers */

enum { LOCAL_CHOICES = 128, MAX_CHOICES = 4100, LOCAL_TRAIL = 64 };
enum { MAX_STEPS = 100000000 };     /* part of a second; two loops that share a long text take a third of it */

typedef struct choice {
    const unsigned char *text;      /* where to go on in the text; null: a dummy, nothing to go on with */
    intptr_t             trail;     /* length of the trail at that time                                 */
    const unsigned char *code;      /* where to go on in the code                                       */
} choice;
static_assert(sizeof(void *) != 8 || MAX_CHOICES * sizeof(choice) == 98400, "three words each");

typedef struct slot {               /* a register                                                       */
    const unsigned char *opened;    /* where its group began that has not ended                         */
    const unsigned char *start, *end;
    intptr_t             saved;     /* its latest record on the trail, -1: none                         */
} slot;

typedef struct saving {
    int  reg;
    slot former;
} saving;

typedef struct machine {
    rePattern           *buf;
    const unsigned char *text, *end, *fold;
    int64_t              nSteps;    /* instructions, and what these look through                        */
    int                  nChoices, maxChoices;
    intptr_t             nTrail, maxTrail;
    choice              *choices, localChoices[LOCAL_CHOICES];
    saving              *trail, localTrail[LOCAL_TRAIL];
    slot                 slots[RE_NREGS];
    const char          *broken;    /* the check on the code that failed, or null */
} machine;

/* A block of more items than the array has, with these moved there; null if there is no memory. */
static void *moveToHeap(void *items, size_t n, size_t size, size_t nWanted, const void *local)
{
    void *block = realloc(items == local ? nullptr : items, nWanted * size);
    if (block && items == local) memcpy(block, local, n * size);
    return block;
}

static bool pushChoice(machine *m, const unsigned char *text, const unsigned char *code)
{
    if (m->nChoices == m->maxChoices) {
        if (m->maxChoices == MAX_CHOICES) return false;
        void *block = moveToHeap(m->choices, LOCAL_CHOICES, sizeof(choice), MAX_CHOICES, m->localChoices);
        if (!block) return false;
        m->choices = (choice *) block;
        m->maxChoices = MAX_CHOICES;
    }
    m->choices[m->nChoices++] = choice{ text, m->nTrail, code };
    return true;
}

/* Puts registers back as they were when the trail had this length. */
static void undo(machine *m, intptr_t trail)
{
    while (m->nTrail > trail) {
        const saving *s = &m->trail[--m->nTrail];
        m->slots[s->reg] = s->former;
    }
}

/* Takes up the newest choice point; null if none is left. */
static const choice *popChoice(machine *m)
{
    while (m->nChoices > 0) {
        const choice *c = &m->choices[--m->nChoices];
        undo(m, c->trail);
        if (c->text) return c;
    }
    return nullptr;
}

/* A register that is about to change, with its former value noted if the newest choice point wants it back; null if
   there is no memory. */
static slot *changeSlot(machine *m, int reg)
{
    slot *s = &m->slots[reg];
    if (m->nChoices == 0 || s->saved >= m->choices[m->nChoices - 1].trail) return s;
    if (m->nTrail == m->maxTrail) {
        void *block = moveToHeap(m->trail, LOCAL_TRAIL, sizeof(saving), 4 * (size_t) m->maxTrail, m->localTrail);
        if (!block) return nullptr;
        m->trail = (saving *) block;
        m->maxTrail *= 4;
    }
    m->trail[m->nTrail] = saving{ reg, *s };
    s->saved = m->nTrail++;
    return s;
}

/* Moves the newest choice point to the present: the registers will come back as they are now. The records behind it
   then serve the choice point below, which has use for a register's first one only. */
static void renewChoice(machine *m, const unsigned char *text, const unsigned char *code)
{
    choice *top = &m->choices[m->nChoices - 1];
    intptr_t below = m->nChoices > 1 ? top[-1].trail : INTPTR_MAX, kept = top->trail;
    for (intptr_t i = top->trail; i < m->nTrail; ++i) {
        saving s = m->trail[i];
        bool needed = below != INTPTR_MAX && s.former.saved < below;
        m->slots[s.reg].saved = needed ? kept : s.former.saved;
        if (needed) m->trail[kept++] = s;
    }
    m->nTrail = kept;
    *top = choice{ text, kept, code };
}

/* Where the present turn of the loop that goes out at `out` began; null in the first turn of a plus. */
static const unsigned char *turnStart(machine *m, const unsigned char *out)
{
    for (int i = m->nChoices - 1; i >= 0; --i, ++m->nSteps)
        if (m->choices[i].code == out) return m->choices[i].text;
    return nullptr;
}

/* Matching */

/* The tests of a position. */
static bool holdsAt(const machine *m, int op, const unsigned char *p)
{
    bool before = p > m->text && wordChar[m->fold[p[-1]]];
    bool after = p < m->end && wordChar[m->fold[*p]];
    switch (op) {
    case Cbol: case Cbegbuf: return p == m->text;
    case Ceol: case Cendbuf: return p == m->end;
    case Cwordbeg:           return !before && after;
    case Cwordend:           return before && !after;
    case Cwordbound:         return before != after;
    default:                 return before == after;
    }
}

/* Whether the text of a register stands at p. A group that has not ended has none. */
static bool repeats(const machine *m, const slot *s, const unsigned char *p)
{
    if (!s->end || s->end - s->start > m->end - p) return false;
    for (const unsigned char *q = s->start; q < s->end; )
        if (m->fold[*q++] != m->fold[*p++]) return false;
    return true;
}

/* Runs the code from a place of the text. Where the match ends; null if there is none, with *result -1 or -2. */
static const unsigned char *run(machine *m, const unsigned char *p, int *result)
{
    unsigned char *code = m->buf->buffer;
    const unsigned char *fold = m->fold, *pc = code;
    for (;;) {
        const unsigned char *at = pc, *target = nullptr;
        int op = *at;
        bool ok = true;
        if (op >= NOPCODES || ++m->nSteps > MAX_STEPS) return *result = -2, nullptr;
        pc += opLength[op];
        if (opLength[op] == 3) target = pc + getOffset(at + 1);
        switch (op) {
        case Cend:           return p;
        case Cexact:         ok = p < m->end && fold[*p++] == at[1]; break;
        case Canychar:       ok = p < m->end; p += ok; break;
        case Cset:           ok = p < m->end && inSet(at + 1, fold[*p++]); break;
        case Csyntaxspec:    ok = p < m->end && wordChar[fold[*p++]]; break;
        case Cnotsyntaxspec: ok = p < m->end && !wordChar[fold[*p++]]; break;

        case Cstart_memory: case Cend_memory: {
            slot *s = changeSlot(m, at[1]);
            if (!s) return *result = -2, nullptr;
            if (op == Cstart_memory) s->opened = p;
            else s->start = s->opened, s->end = p;
            break;
        }
        case Cmatch_memory: {
            const slot *s = &m->slots[at[1]];
            ok = repeats(m, s, p);
            m->nSteps += s->end - s->start;
            if (ok) p += s->end - s->start;
            break;
        }
        case Cfailure_jump:
            if (!pushChoice(m, p, target)) return *result = -2, nullptr;
            break;
        case Cdummy_failure_jump:
            if (*pc != Cfailure_jump) return m->broken = "*code == Cfailure_jump", nullptr;
            if (!pushChoice(m, nullptr, pc + 3 + getOffset(pc + 1))) return *result = -2, nullptr;
            pc = target;
            break;
        case Cjump:
            pc = target;
            break;
        case Cstar_jump:
            if (target < code || *target != Cfailure_jump) return m->broken = "p1[-3] == Cfailure_jump", nullptr;
            code[at - code] = (unsigned char) loopEnd(m->buf, (int) (target + 3 - code), (int) (at - code));
            pc = at;
            break;
        case Cupdate_failure_jump:
            renewChoice(m, p, pc);
            pc = target + 3;
            break;
        case Cturn_jump:
            ok = turnStart(m, pc) != p;
            pc = target;
            break;
        default:
            ok = holdsAt(m, op, p);
            break;
        }
        if (!ok) {
            const choice *c = popChoice(m);
            if (!c) return *result = -1, nullptr;
            p = c->text;
            pc = c->code;
        }
    }
}

static void fillRegisters(const machine *m, const unsigned char *from, const unsigned char *to, reRegisters *regs)
{
    for (int i = 0; i < RE_NREGS; ++i) {
        const slot *s = &m->slots[i];
        bool set = i < m->buf->num_registers && s->end;
        regs->start[i] = set ? (int) (s->start - m->text) : -1;
        regs->end[i]   = set ? (int) (s->end   - m->text) : -1;
    }
    regs->start[0] = (int) (from - m->text);
    regs->end[0]   = (int) (to   - m->text);
}

#define require(condition) do { if (!(condition)) sysFail("%s", #condition); } while (0)

extern "C" int reMatch(rePattern *buf, const char *text, int length, int pos, reRegisters *regs)
{
    const int size1 = 0, size2 = length, mstop = length;        /* a text in one part, looked at to its end */
    require(pos >= 0 && size1 >= 0 && size2 >= 0 && mstop >= 0);
    require(mstop <= size1 + size2);
    require(pos <= mstop);

    machine m;
    m.buf = buf;
    m.text = (const unsigned char *) (text ? text : "");        /* a null place would be a dummy choice */
    m.end = m.text + length;
    m.fold = foldTable(buf);
    m.nSteps = 0;
    m.nChoices = 0;
    m.maxChoices = LOCAL_CHOICES;
    m.choices = m.localChoices;
    m.nTrail = 0;
    m.maxTrail = LOCAL_TRAIL;
    m.trail = m.localTrail;
    m.broken = nullptr;
    for (int i = 0; i < buf->num_registers; ++i) m.slots[i] = slot{ nullptr, nullptr, nullptr, -1 };

    int result = -1;
    const unsigned char *from = m.text + pos, *to = run(&m, from, &result);
    if (m.choices != m.localChoices) free(m.choices);
    if (m.trail != m.localTrail) free(m.trail);
    if (m.broken) sysFail("%s", m.broken);
    if (!to) return result;
    if (regs) fillRegisters(&m, from, to, regs);
    return (int) (to - from);
}
