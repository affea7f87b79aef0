#ifndef BASE_CNF_H
#define BASE_CNF_H

/* cnf.h: the program-wide table of named options: declared by specification texts, filled from the command line and
 * from configuration files, asked by key. */

enum { CNF_BOOL = 1, CNF_INT, CNF_REAL, CNF_STR, CNF_ENUM };

typedef struct cnfRec {
    int         hidden[128];      /* for each enum value, 1 if hidden                      */
    char       *name;
    int         type;             /* CNF_...                                               */
    char       *longName, *shortName;
    int         nEnums;
    char      **enums;
    char       *help;
    union { int b; int i; double r; char *s; } value;
    char       *source;           /* "default", "command-line", or the file that set it    */
} cnfRec;

#ifdef __cplusplus
extern "C" {
#endif

void        cnfInit(const char *const *specs, int argc, const char *const *argv);
int         cnfQuery(const char *key);
cnfRec     *cnfGetCnf(const char *key);
int         cnfGetBool(const char *key);
int         cnfGetInt(const char *key);
const char *cnfGetStr(const char *key);
int         cnfIsInit(void);
void        cnfPrintEnv(void);

#ifdef __cplusplus
}
#endif
#endif
