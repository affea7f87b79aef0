/* cnf.cpp: the options of the program.
 *
 * cnfInit goes through the sources of values in a fixed order, which decides every conflict: defaults, the command
 * line, then the files from the last of the list to the first, where a value from the command line is never replaced.
 * A value is converted in one place (setValue), whatever its source; what the three sources say about a bad one stands
 * in the table of types.
 *
 * Records are never released, and a second cnfInit keeps the first one's: a client may still hold its texts. What reads
 * the files belongs to `reading`, which is put away before a failure is raised, or by the next cnfInit.
 *
 * The list of files follows another system's habits: `\` separates directories and an entry may begin with a drive
 * letter. The names are shown as they came; only opening a file takes a `\` for a `/`.
 *
 * In this file: conversions, specifications, command line, the line pattern, files, usage, cnfInit, getters. */

#include "base/cnf.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/mem.h"
#include "base/regExpr.h"
#include "base/sys.h"

enum {
    N_FIELDS = 7,                           /* of a specification                     */
    MAX_ENUMS = sizeof(((cnfRec *) 0)->hidden) / sizeof(int),
    MAX_ENV = 1000,                         /* entries of the environment             */
    KEY_REG = 7, VALUE_REG = 9              /* registers of the line pattern          */
};

static const char fromDefault[] = "default", fromCommandLine[] = "command-line";

typedef struct cnfTable {
    cnfRec          *recs;
    int              nRecs;                 /* those that are complete                */
    char           **paths;                 /* of the files, sources of values        */
    struct cnfTable *former;
} cnfTable;

static cnfTable *table;                     /* the present one; null: not initialized */

static struct {
    FILE      *file;
    char      *list;                        /* as it is shown                         */
    char      *text, **entries;             /* the same, cut up                       */
    rePattern  line;
} reading;

static void stopReading(void)
{
    if (reading.file) fclose(reading.file);
    reading.file = nullptr;
    memFree(reading.list);
    memFree(reading.entries);
    memFree(reading.text);
    memFree(reading.line.buffer);
    reading.line = rePattern{};
}

/* Types, by their code less 1. */
static const struct cnfType {
    const char *name, *label, *badDefault, *badOption, *badLine;
} types[] = {
    { "bool", "",       "Invalid default bool <%s>", nullptr,
                        "Invalid bool <%s> for par <%s> in file <%s>" },
    { "int",  "<int>",  "Invalid default int <%s>",  "Invalid int <%s> for command line option <%s>",
                        "Invalid int <%s> for par <%s> in file <%s>"  },
    { "real", "<real>", "Invalid default real <%s>", "Invalid real <%s> for command line option <%s>",
                        "Invalid real <%s> for par <%s> in file <%s>" },
    { "str",  "<str>",  nullptr, nullptr, nullptr },                /* any text will do */
    { "enum", "<enum>", "Invalid default opt <%s>",  "Invalid opt <%s> for command line option <%s>",
                        "Invalid opt <%s> for par <%s> in file <%s>"  }
};
enum { N_TYPES = sizeof types / sizeof *types };

/* Conversions: false for a bad text, which leaves the value alone. */

static bool toBool(const char *text, int *value)
{
    static const char *const words[][2] = {
        { "0", "1" }, { "f", "t" }, { "false", "true" }, { "no", "yes" }, { "off", "on" }
    };
    for (const auto &pair : words)
        for (int v = 0; v < 2; ++v)
            if (strcasecmp(text, pair[v]) == 0) return *value = v, true;
    return false;
}

/* By the rule that nothing may be left behind the number, an empty text is the number 0. */
static bool toInt(const char *text, int *value)
{
    char *end;
    errno = 0;
    long v = strtol(text, &end, 0);
    if (*end || errno == ERANGE || v < INT_MIN || v > INT_MAX) return false;
    *value = (int) v;
    return true;
}

/* Also with a `d` before the exponent; an empty text as above. */
static bool toReal(const char *text, double *value)
{
    char *end;
    errno = 0;
    double v = strtod_l(text, &end, sysPlainLocale());
    bool ok = !*end;
    if (*end == 'd' || *end == 'D') {
        char *copy = memDup(text);
        copy[end - text] = 'e';
        errno = 0;
        v = strtod_l(copy, &end, sysPlainLocale());
        ok = !*end;
        memFree(copy);
    }
    if (!ok || (errno == ERANGE && fabs(v) > 1)) return false;     /* too small a number is a good zero */
    *value = v;
    return true;
}

static void setText(cnfRec *rec, const char *text)
{
    char *copy = memDup(text);
    memFree(rec->value.s);
    rec->value.s = copy;
}

static bool toEnum(const char *text, cnfRec *rec)
{
    for (int i = 0; i < rec->nEnums; ++i)
        if (strcmp(rec->enums[i], text) == 0) return rec->value.s = rec->enums[i], true;
    return false;
}

static bool setValue(cnfRec *rec, const char *text, const char *source)
{
    bool ok = true;
    switch (rec->type) {
    case CNF_BOOL: ok = toBool(text, &rec->value.b); break;
    case CNF_INT:  ok = toInt(text, &rec->value.i);  break;
    case CNF_REAL: ok = toReal(text, &rec->value.r); break;
    case CNF_STR:  setText(rec, text);               break;
    default:       ok = toEnum(text, rec);           break;
    }
    if (ok) rec->source = source;
    return ok;
}

/* Specifications */

/* Cuts a text in place. An empty field does not exist. Gives the number of fields, of which `max` are kept. */
static int split(char *text, const char *separator, char **fields, int max)
{
    int n = 0;
    char *rest;
    for (char *f = strtok_r(text, separator, &rest); f; f = strtok_r(nullptr, separator, &rest), ++n)
        if (n < max) fields[n] = f;
    return n;
}

/* Cuts the specification at `spec`, with its continuations, into fields that lie in `text`. Gives the next one. */
static const char *const *readSpec(const char *const *spec, char text[SYS_TEXT], char *fields[N_FIELDS + 1])
{
    const char *first = *spec;
    size_t used = 0;
    int n = 0;
    for (;;) {
        size_t length = strlen(*spec) + 1;
        if (length > SYS_TEXT - used) sysFailIn("cnfInit", "Error in configuration <%s> <%d>", first, n);
        memcpy(text + used, *spec, length);
        n += split(text + used, ":", fields + n, N_FIELDS + 1 - n);
        used += length;
        ++spec;
        if (n == 0 || n > N_FIELDS + 1 || strcmp(fields[n - 1], "+") != 0) break;
        --n;
        if (!*spec) break;
    }
    if (n != N_FIELDS) sysFailIn("cnfInit", "Error in configuration <%s> <%d>", first, n);
    return spec;
}

static int typeCode(const char *name)
{
    for (int i = 0; i < N_TYPES; ++i)
        if (strcmp(types[i].name, name) == 0) return i + 1;
    sysFailIn("cnfInit", "Invalid type <%s>", name);
}

static void readEnums(cnfRec *rec, char *list)
{
    char *values[MAX_ENUMS];
    int n = split(list, ",", values, MAX_ENUMS);
    if (n > MAX_ENUMS) sysFailIn("cnfInit", "Error in configuration <%s> <%d>", rec->name, n);
    rec->enums = memNewZ(char *, n);
    rec->nEnums = n;
    for (int i = 0; i < n; ++i) {
        rec->hidden[i] = strchr(values[i], '*') != nullptr;
        rec->enums[i] = memDup(values[i] + rec->hidden[i]);
    }
}

/* Makes the table, with the defaults. A record counts from when it is complete. */
static void makeTable(const char *const *specs)
{
    int n = 0;
    while (specs[n]) ++n;
    cnfTable *t = memNewZ(cnfTable, 1);
    t->former = table;
    table = t;
    t->recs = memNewZ(cnfRec, n);

    while (*specs) {
        char text[SYS_TEXT], *f[N_FIELDS + 1];
        specs = readSpec(specs, text, f);
        cnfRec *rec = &t->recs[t->nRecs];
        rec->name      = memDup(f[0]);
        rec->longName  = memDup(f[1]);
        rec->shortName = memDup(f[2]);
        rec->help      = memDup(f[6]);
        rec->type      = typeCode(f[4]);
        if (rec->type == CNF_ENUM) readEnums(rec, f[5]);
        if (!setValue(rec, f[3], fromDefault)) sysFailIn("cnfInit", types[rec->type - 1].badDefault, f[3]);
        ++t->nRecs;
    }
}

/* The option of a name as users write it, or null. */
static cnfRec *findOption(const char *name)
{
    for (cnfRec *rec = table->recs; rec < table->recs + table->nRecs; ++rec)
        if (strcmp(rec->longName, name) == 0 || strcmp(rec->shortName, name) == 0) return rec;
    return nullptr;
}

/* Command line. Only a bool heeds the "no_" before a name, though others may have it. */
static void readCommandLine(int argc, const char *const *argv)
{
    for (int i = 1; i < argc; ++i) {
        const char *option = argv[i];
        if (option[0] != '-') sysErrorF("Invalid command line option <%s>", option);
        const char *name = option + 1;
        bool negated = strncmp(name, "no_", 3) == 0;
        if (negated) name += 3;

        cnfRec *rec = findOption(name);
        if (!rec) sysErrorF("Unrecognized command line option <%s>", option);
        if (rec->type == CNF_BOOL) {
            rec->value.b = !negated;
            rec->source = fromCommandLine;
            continue;
        }
        if (++i == argc) sysErrorF("Option <%s> is missing a parameter", option);
        if (!setValue(rec, argv[i], fromCommandLine)) sysErrorF(types[rec->type - 1].badOption, argv[i], option);
    }
}

/* pDir: goes there and keeps where that is. */
static void goToDir(void)
{
    if (!cnfQuery("pDir")) return;
    const char *dir = cnfGetStr("pDir");
    if (*dir && strcmp(dir, ".") != 0) sysSetCwd(dir);
    char here[SYS_TEXT];
    sysGetCwd(here, sizeof here);
    setText(cnfGetCnf("pDir"), here);
}

/* The line pattern. Names stand for themselves in it: the dot in a host's name is a dot, and a parenthesis in one does
   not move the registers. */

static char *addName(char *to, const char *name)
{
    for (; *name; ++name) {
        if (strchr(".^$*+?()|[\\\n", *name)) *to++ = '\\';
        *to++ = *name;
    }
    return to;
}

/* "((A|B|...)\.)?" of the names that may stand before a key; the caller's. */
static char *prefixPattern(const char *program, const char *platform, const char *host)
{
    size_t size = 2 * (2 * strlen(platform) + 2 * strlen(program) + strlen(host)) + 16;
    char *upper = memDup(platform), *cut = memDup(program), *pattern = memNew(char, (int64_t) size);
    for (char *p = upper; *p; ++p) *p = (char) toupper_l((unsigned char) *p, sysPlainLocale());
    cut[strcspn(cut, "-")] = 0;

    const char *const names[] = { upper, platform, program, cut, host };
    char *to = pattern;
    for (const char *name : names) {
        to = stpcpy(to, to == pattern ? "((" : "|");
        to = addName(to, name);
    }
    stpcpy(to, ")\\.)?");
    memFree(upper);
    memFree(cut);
    return pattern;
}

static void compileLine(const char *program, const char *platform, const char *host)
{
    static const char form[] = "^[ \t]*%s%s%s([a-zA-Z0-9_]+)([ \t]*[=:][ \t]*|[ \t]+)(.*[^ \t])[ \t]*$";
    char *prefix = prefixPattern(program, platform, host);
    size_t size = sizeof form + 3 * strlen(prefix);
    char *pattern = memNew(char, (int64_t) size);
    int length = snprintf(pattern, size, form, prefix, prefix, prefix);
    reading.line.buffer = memNew(unsigned char, SYS_TEXT);
    reading.line.allocated = SYS_TEXT;
    const char *message = reCompilePattern(pattern, length, &reading.line);
    memFree(pattern);
    memFree(prefix);
    if (message) {
        stopReading();
        sysFailIn("cnfInit", "%s", message);
    }
}

/* Files */

static const char *homeFolder(void)
{
    const char *home = getenv("USERPROFILE");
    if (!home) home = getenv("HOME");
    return home ? home : ".";
}

/* The list of files as it is shown; the caller's. */
static char *fileList(void)
{
    static const char form[] = ".\\Quenta.cnf:%s\\Quenta.cnf";
    const char *given = getenv("QUENTA_CNF_FILES");
    if (given) return memDup(given);
    size_t size = sizeof form + strlen(homeFolder());
    char *list = memNew(char, (int64_t) size);
    snprintf(list, size, form, homeFolder());
    return list;
}

/* A file to be read, or null. What is no plain file could make us wait for ever, and is passed over. */
static FILE *openPlain(const char *path)
{
    char *name = memDup(path);
    for (char *p = name; *p; ++p)
        if (*p == '\\') *p = '/';
    int fd = open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    memFree(name);
    struct stat info;
    FILE *file = fd >= 0 && fstat(fd, &info) == 0 && S_ISREG(info.st_mode) ? fdopen(fd, "r") : nullptr;
    if (!file && fd >= 0) close(fd);
    return file;
}

/* The next line without its end; of a longer one the rest is dropped. */
static bool readLine(FILE *file, char line[SYS_TEXT])
{
    int n = 0, c = getc(file);
    if (c == EOF) return false;
    for (; c != '\n' && c != EOF; c = getc(file))
        if (n < SYS_TEXT - 1) line[n++] = (char) c;
    if (n > 0 && line[n - 1] == '\r') --n;
    line[n] = 0;
    return true;
}

/* Sets the option that a line names. The line is cut up. */
static void obeyLine(char *line, const char *path, int number)
{
    reRegisters regs;
    int length = reMatch(&reading.line, line, (int) strlen(line), 0, &regs);
    if (length == -2) sysErrorMessage("Line <%d> of file <%s> is too complex, it is passed over", number, path);
    if (length < 0) return;
    char *key = line + regs.start[KEY_REG], *value = line + regs.start[VALUE_REG];
    line[regs.end[KEY_REG]] = 0;
    line[regs.end[VALUE_REG]] = 0;
    cnfRec *rec = findOption(key);
    if (!rec || rec->source == fromCommandLine || setValue(rec, value, path)) return;
    stopReading();
    sysErrorF(types[rec->type - 1].badLine, value, key, path);
}

static void readFile(const char *path)
{
    reading.file = openPlain(path);
    if (!reading.file) return;
    char line[SYS_TEXT];
    for (int number = 1; readLine(reading.file, line); ++number) obeyLine(line, path, number);
    fclose(reading.file);
    reading.file = nullptr;
}

static char *joined(const char *a, const char *b, const char *c)
{
    size_t size = strlen(a) + strlen(b) + strlen(c) + 1;
    char *text = memNew(char, (int64_t) size);
    snprintf(text, size, "%s%s%s", a, b, c);
    return text;
}

/* Reads the files, the last one first. An entry of one letter is the drive of the one behind it. */
static void readFiles(void)
{
    reading.text = memDup(reading.list);
    reading.entries = memNew(char *, strlen(reading.list) / 2 + 1);
    int n = split(reading.text, ":", reading.entries, INT_MAX);
    table->paths = memNewZ(char *, n);
    for (char **path = table->paths; n > 0; ++path) {
        const char *entry = reading.entries[--n], *before = n > 0 ? reading.entries[n - 1] : "";
        if (*entry == '~') *path = joined(homeFolder(), "\\", entry[1] ? entry + 2 : "");
        else if (strlen(before) != 1) *path = memDup(entry);
        else {
            *path = joined(before, ":", entry);
            --n;
        }
        readFile(*path);
    }
}

/* Usage */

static bool fullUsage(void)
{
    const char *full = getenv("QUENTA_FULL_USAGE");
    return full && strcmp(full, "0") != 0;
}

/* As in the files, whatever the process' locale takes for a decimal point. */
static const char *realText(double value, char text[SYS_TEXT])
{
    locale_t former = uselocale(sysPlainLocale());
    snprintf(text, SYS_TEXT, "%e", value);
    uselocale(former);
    return text;
}

/* The value as text; of a number in `text`. */
static const char *valueText(const cnfRec *rec, char text[SYS_TEXT])
{
    switch (rec->type) {
    case CNF_BOOL: return rec->value.b ? "TRUE" : "FALSE";
    case CNF_INT:  snprintf(text, SYS_TEXT, "%d", rec->value.i); return text;
    case CNF_REAL: return realText(rec->value.r, text);
    default:       return rec->value.s;
    }
}

/* ": a b c", the hidden ones in the full usage only, with a star. Where the first one is not shown, ":" stays. */
static void enumText(const cnfRec *rec, bool full, char text[SYS_TEXT])
{
    text[0] = 0;
    for (int i = 0, used = 0; i < rec->nEnums && used < SYS_TEXT - 1; ++i) {
        const char *value = rec->enums[i];
        char *to = text + used;
        size_t room = (size_t) (SYS_TEXT - used);
        if (rec->hidden[i] && !full) used += i ? 0 : snprintf(to, room, ":");
        else if (rec->hidden[i])     used += i ? snprintf(to, room, " *%s", value) : snprintf(to, room, ": *%s", value);
        else                         used += i ? snprintf(to, room, " %s", value)  : snprintf(to, room, ": %s", value);
    }
}

static void printOption(const cnfRec *rec, bool full)
{
    char first[SYS_TEXT], text[SYS_TEXT];
    snprintf(first, sizeof first, "%s %s", rec->shortName, types[rec->type - 1].label);
    enumText(rec, full, text);
    sysMessage("  -%-12s %s%s", first, rec->help, text);
    sysMessage("   %-14s %s= %s [%s]", "", rec->longName, valueText(rec, text), rec->source);
}

static void printHead(const char *head)
{
    sysMessage("%s", "");
    sysMessage("%s", head);
    sysMessage("%s", "");
}

static void printUsage(void)
{
    bool full = fullUsage();
    printHead("Usage:");
    sysMessage("    %s [options]", sysGetProgName());
    printHead("Options:");
    for (int i = 0; i < table->nRecs; ++i)
        if (full || table->recs[i].help[0] != '*') printOption(&table->recs[i], full);
    printHead("Configuration Files:");
    sysMessage("   %s", reading.list);
    sysMessage("%s", "");
    sysMessage("Release: %s", sysGetVersion());
    sysMessage("%s", "");
}

extern "C" void cnfPrintEnv(void)
{
    printHead("Current Environment Variables:");
    for (int i = 0; environ && i < MAX_ENV && environ[i]; ++i)      /* none at all after clearenv */
        sysMessage("  %s", environ[i]);
    sysMessage("%s", "");
}

/* Initialisation */

static bool isOn(const char *key) { return cnfQuery(key) && cnfGetBool(key); }

/* What the options make this module do, once they are all known. Only a command line can have made exec empty. */
static void obeyOptions(const char *const *argv)
{
    if (cnfQuery("exec") && !*cnfGetStr("exec")) setText(cnfGetCnf("exec"), argv[0]);
    if (isOn("help")) {
        printUsage();
        if (isOn("env")) cnfPrintEnv();
        sysExit(0);
    }
    if (isOn("env"))   cnfPrintEnv();
    if (isOn("lbuff")) sysLineBuffer();
    if (isOn("memv"))  memVerbose(1);
    if (cnfQuery("sync") && !cnfGetBool("sync")) sysSyncOff();
}

extern "C" void cnfInit(const char *const *specs, int argc, const char *const *argv)
{
    stopReading();                              /* if a former call was left by a failure */
    const char *program = sysGetProgName(), *platform = sysPlatform(), *host = sysHostName();
    makeTable(specs);
    readCommandLine(argc, argv);
    goToDir();                                  /* relative files are looked for there, */
    compileLine(program, platform, host);
    reading.list = fileList();
    readFiles();
    goToDir();                                  /* and one of them may have set it */
    obeyOptions(argv);
    stopReading();
}

/* Getters */

static cnfRec *findKey(const char *function, const char *key)
{
    if (!table) sysFailIn(function, "CNF not initialized");
    for (cnfRec *rec = table->recs; rec < table->recs + table->nRecs; ++rec)
        if (strcmp(rec->name, key) == 0) return rec;
    return nullptr;
}

extern "C" int cnfQuery(const char *key) { return findKey(__func__, key) != nullptr; }

extern "C" cnfRec *cnfGetCnf(const char *key)
{
    cnfRec *rec = findKey(__func__, key);
    if (!rec) sysFail("key <%s> not found", key);
    return rec;
}

extern "C" int cnfGetBool(const char *key)
{
    const cnfRec *rec = cnfGetCnf(key);
    if (rec->type != CNF_BOOL) sysFail("key <%s> is not a Bool", key);
    return rec->value.b;
}

extern "C" int cnfGetInt(const char *key)
{
    const cnfRec *rec = cnfGetCnf(key);
    if (rec->type != CNF_INT) sysFail("key <%s> is not an Int", key);
    return rec->value.i;
}

extern "C" const char *cnfGetStr(const char *key)
{
    const cnfRec *rec = cnfGetCnf(key);
    if (rec->type != CNF_STR) sysFail("key <%s> is not a String", key);
    return rec->value.s;
}

extern "C" int cnfIsInit(void) { return table != nullptr; }
