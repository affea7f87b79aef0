#ifndef BASE_CNF_H
#define BASE_CNF_H

/* cnf.h: the program-wide table of named options: declared by specification texts, filled from the command line and
 * from configuration files, asked by key. A value on the command line beats any file, a file that stands first in the
 * list beats the later ones, and a file beats the default.
 *
 * A specification is a text of seven fields, none of them empty:
 *
 *     name:longName:shortName:default:type:enumList:help
 *
 *     name       the key for the operations below
 *     longName,  the names on the command line and in files
 *     shortName
 *     default    the value, as text
 *     type       bool, int, real, str or enum
 *     enumList   for enum the values, with commas between; one with a leading * is shown in the full usage only.
 *                Otherwise any text, by custom "-"
 *     help       the line of the usage; with a leading * the option is shown in the full usage only
 *
 * A last field "+" stands for the next text of the list.
 *
 * A configuration file holds lines "name = value", "name: value" or "name value"; up to three prefixes "platform.",
 * "program." or "host." aim a line. What does not look so, and names that are not declared, are passed over.
 *
 * Keys that this module itself obeys, where declared: pDir (the directory to work in), exec, help, env, lbuff, memv,
 * sync. Environment: QUENTA_CNF_FILES, else USERPROFILE or HOME, name the files; QUENTA_FULL_USAGE. */

enum { CNF_BOOL = 1, CNF_INT, CNF_REAL, CNF_STR, CNF_ENUM };

typedef struct cnfRec {
    int         hidden[128];      /* for each enum value, 1 if hidden                      */
    char       *name;
    int         type;             /* CNF_...                                               */
    char       *longName, *shortName;
    int         nEnums;
    char      **enums;
    char       *help;
    union { int b; int i; double r; char *s; } value;       /* s: of an enum, too          */
    const char *source;           /* "default", "command-line", or the file that set it    */
} cnfRec;

#ifdef __cplusplus
extern "C" {
#endif

/* Makes the table from the specifications, a list that ends with a null, and fills it; argv[0] is the program. May
   change the current directory (pDir); with a true `help` it prints the usage and ends the process with code 0. Missing
   files are no failure. May not return: a bad specification, default, command line or value in a file, a folder that
   cannot be gone to, a key from above that is declared with another type. A second call makes a new table and leaves
   texts of the first one where they are. */
void        cnfInit(const char *const *specs, int argc, const char *const *argv);

/* 1 if the key is declared. This one and the next four may not return: "CNF not initialized". */
int         cnfQuery(const char *key);

/* The record of a key, never null. May not return: "key <%s> not found". */
cnfRec     *cnfGetCnf(const char *key);

/* Values; the text belongs to the table. May not return: as cnfGetCnf, and "key <%s> is not a Bool", "... an Int",
   "... a String" if the option is of another type. An enum is not a String. */
int         cnfGetBool(const char *key);
int         cnfGetInt(const char *key);
const char *cnfGetStr(const char *key);

/* 1 once cnfInit has made the table. */
int         cnfIsInit(void);

/* Prints the environment of the process, at most 1000 entries, by sysMessage. */
void        cnfPrintEnv(void);

#ifdef __cplusplus
}
#endif
#endif
