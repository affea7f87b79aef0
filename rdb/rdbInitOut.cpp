/* rdbInitOut.cpp: the catalogue of an output family: which steps exist, and which variables they hold.
 *
 * Nobody lists the step files. The catalogue finds them among the listed names by the family's expression, reads the
 * header of the first part of the lowest step, and turns its variable mask into a list of rows of the family's table.
 * It is built when a getter of the family is first asked anything, and stays until the run closes.
 *
 * The widths of some variables are counters that the files carry: species, fields and the like. The counters belong to
 * the run and are shared by all families; a file that contradicts the one read before it is refused.
 *
 * In this file: the families' tables, headers, steps, masks, the catalogue. */

#include "rdb/rdbInt.h"

#include "base/regExpr.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

/* --------------------------------------------------------------------------------------------------- the tables */

static const rdbOutHdr outHdr[] = {
    { "time",      RDB_HDR_TIME,      nullptr            },
    { "mask",      RDB_HDR_MASK,      nullptr            },
    { "nSpecs",    RDB_HDR_COUNT,     &runHd::nSpecs     },
    { "nFilms",    RDB_HDR_OPT_COUNT, &runHd::nFilms     },
    { "nFields",   RDB_HDR_OPT_COUNT, &runHd::nFields    },
    { "nAoutVecs", RDB_HDR_COUNT,     &runHd::nAoutVecs  },
    { "masks",     RDB_HDR_MASKS,     nullptr            },
};

/* The eddy viscosity of three turbulence models stands under three keys; the user sees one word. */
static const rdbOutVar outVars[] = {
    /* name                        key in file    dim  counter that tells it */
    { "velocity",                  "vel",         3,   nullptr           },
    { "pressure",                  "pres",        1,   nullptr           },
    { "temperature",               "temp",        1,   nullptr           },
    { "species",                   "spec",        0,   &runHd::nSpecs    },
    { "eddy_viscosity",            "eddy",        1,   nullptr           },
    { "eddy_viscosity",            "tdm",         1,   nullptr           },
    { "kinetic_energy",            "tke",         1,   nullptr           },
    { "velocity_scale",            "tvel",        1,   nullptr           },
    { "dissipation_rate",          "teps",        1,   nullptr           },
    { "eddy_frequency",            "tomega",      1,   nullptr           },
    { "auxiliary_output",          "aoutVec",     0,   &runHd::nAoutVecs },
    { "mesh_displacement",         "aleDisp",     3,   nullptr           },
    { "mesh_velocity",             "aleVel",      3,   nullptr           },
    { "surface_y_plus",            "turbYPSrf",   1,   nullptr           },
    { "surface_film_coefficient",  "turbFilm",    1,   nullptr           },
    { "viscoelastic_stress",       "vest",        6,   nullptr           },
    { "intermittency",             "tintc",       1,   nullptr           },
    { "transition_re_theta",       "treth",       1,   nullptr           },
    { "eddy_viscosity",            "sstEddy",     1,   nullptr           },
    { "eddy_time",                 "ttau",        1,   nullptr           },
    { "sqrt_eddy_period",          "tgv",         1,   nullptr           },
    { "wall_shear_stress",         "wallShear",   3,   nullptr           },
    { "field",                     "field",       0,   &runHd::nFields   },
    { "mesh_displacement_midstep", "aleDispHalf", 3,   nullptr           },
    { "levelset",                  "levelset",    1,   nullptr           },
    { "incident_radiation",        "incidentRad", 1,   nullptr           },
    { "relative_humidity",         "relHum",      1,   nullptr           },
    { "dewpoint_temperature",      "dewPoint",    1,   nullptr           },
    { "humidity_film_thickness",   "hWetWall",    1,   nullptr           },
    { "film",                      "film",        0,   &runHd::nFilms    },
    { "density",                   "dens",        1,   nullptr           },
    { "mach_number",               "mach",        1,   nullptr           },
    { "design_topology",           "designTopo",  1,   nullptr           },
    { "topology_velocity",         "topoVel",     3,   nullptr           },
    { "topology_pressure",         "topoPres",    1,   nullptr           },
    { "topology_temperature",      "topoTemp",    1,   nullptr           },
    { "phasic_velocity",           "fieldVel",    3,   nullptr           },
};

template <class T, int n> static constexpr int length(const T (&)[n]) { return n; }

#define OUT_FAM(CACHE, Fam, fam, ext, hdr, vars, nBits, init)                                                         \
    static_assert(length(hdr) <= RDB_MAX_OUT_HDR, "a header longer than rdbOutHead");                                 \
    const rdbOutFam fam##Fam = { RDB_OUT_##CACHE, ext, hdr, length(hdr), vars, length(vars), nBits, init,             \
                                 "rdb_" #fam "Values" };
#include "rdb/rdbOutFams.def"
#undef OUT_FAM

/* ------------------------------------------------------------------------------------------------------ headers */

/* A table of one row of two integers, written by some as one column of two */
static void readMasks(iopHd *fh, const char *key, int *masks)
{
    int nCols;
    iopCheckStr(fh, key);
    iopGetIntF(fh, &nCols, 1);
    if (nCols != 1 && nCols != 2) sysFail("data out of order: expected <%d> found <%d> %s", 2, nCols, iopFileInfo(fh));
    iopCheckInt(fh, 3 - nCols);
    iopGetIntF(fh, masks, 2);
}

/* A counter of the run that is set already must be the file's */
static void checkCounter(rdbHd *hd, iopHd *fh, const rdbOutFam *fam, const rdbOutHdr *item, int count)
{
    const int held = hd->run->*item->counter;
    if (held == -1 || held == count) return;
    char name[SYS_NAME];
    snprintf(name, sizeof name, "%s", iopFileName(fh));
    rdbCloseHeld(hd);
    sysFailIn(fam->initName, "Inconsistent %s in file <%s>", item->key, name);
}

/* Reads a header up to the key before the arrays. All counts go through one variable: an optional one that is absent
   has the value of the count before it, and the comparison sees that. check: the run whose counters the file must
   agree with, or null. */
void rdbReadOutHead(iopHd *fh, const rdbOutFam *fam, rdbHd *check, rdbOutHead *head)
{
    int count = -1;
    memset(head, 0, sizeof *head);
    head->maskForm = 1;
    for (int i = 0; i < fam->nHdr; ++i) {
        const rdbOutHdr *item = &fam->hdr[i];
        switch (item->kind) {
        case RDB_HDR_TIME: iopGetKeyReal(fh, item->key, &head->time); break;
        case RDB_HDR_MASK: iopGetKeyInt(fh, item->key, &head->mask); break;
        case RDB_HDR_COUNT:
        case RDB_HDR_OPT_COUNT:
            if (item->kind == RDB_HDR_COUNT) iopGetKeyInt(fh, item->key, &count);
            else iopGetOptKeyInt(fh, item->key, &count);
            head->counts[i] = count;
            if (check) checkCounter(check, fh, fam, item, count);
            break;
        case RDB_HDR_MASKS:
            if (head->mask != -1) break;
            readMasks(fh, item->key, head->masks);
            head->mask = head->masks[0];
            head->maskForm = 2;
            break;
        }
    }
}

/* -------------------------------------------------------------------------------------------------------- steps */

/* The family's expression in force; the engine grows its code as it needs, and the code stays for the next scan. */
static rePattern pattern;

/* Compiles it. A problem name stands in it as it is, special characters included. */
static void compileNames(rdbHd *hd, const rdbOutFam *fam)
{
    char text[SYS_TEXT];
    const int length = snprintf(text, sizeof text, "^%s.%d_([0-9]+)_[0x].%s(\\.[BZH])?$", hd->problem, hd->run->runId,
                                fam->ext);
    if (length >= (int) sizeof text) sysFailIn(fam->initName, "problem name is too long <%.64s>", hd->problem);
    const char *failure = reCompilePattern(text, length, &pattern);
    if (failure) sysFailIn(fam->initName, "%s", failure);
}

/* The number in a name's first group. That is a group of the problem name's if it has one, of any text or none. */
static long groupNumber(const rdbOutFam *fam, const char *name, const reRegisters *regs)
{
    char      digits[SYS_TEXT];
    const int length = regs->end[1] - regs->start[1];
    if (length < 1) sysFailIn(fam->initName, "Inconsistent pattern matching for file <%s>", name);
    snprintf(digits, sizeof digits, "%.*s", length, name + regs->start[1]);
    return strtol(digits, NULL, 10);
}

static int isStepName(const rdbOutFam *fam, const char *name, reRegisters *regs)
{
    const int n = reMatch(&pattern, name, (int) strlen(name), 0, regs);
    if (n == -2) sysFailIn(fam->initName, "expression is too complex for file <%s>", name);
    return n >= 1;
}

/* The steps of the listed names, ascending, each once. A number that is no step number has no file that "%d" names. */
static void findSteps(rdbHd *hd, const rdbOutFam *fam, rdbOutInfo *info)
{
    reRegisters regs;
    compileNames(hd, fam);
    info->steps = memNew(int, hd->nFiles);
    int n = 0;
    for (int i = 0; i < hd->nFiles; ++i) {
        const char *name = hd->files[i];
        if (!isStepName(fam, name, &regs)) continue;
        const long step = groupNumber(fam, name, &regs);
        if (step >= INT_MIN && step <= INT_MAX) info->steps[n++] = (int) step;
    }
    info->nSteps = sysSortUniqueInts(info->steps, n);
    info->times = memNew(double, info->nSteps);
    sysFillReals(info->times, info->nSteps, -1.0);
}

void rdbOutBase(rdbHd *hd, int step, char *base)
{
    rdbFormat(base, "%s.%d_%d_", hd->problem, hd->run->runId, step);
}

/* -------------------------------------------------------------------------------------------------------- masks */

/* The two-word form gives the first nBits variables to the first word, whose bit 31 then means nothing. A single word
   is widened with its sign: one that is negative has all bits from 31 on. */
static int inMask(const rdbOutFam *fam, const rdbOutHead *head, int var)
{
    if (head->maskForm == 1) return (int) ((int64_t) head->mask >> var & 1);
    return var < fam->nBits ? head->masks[0] >> var & 1 : head->masks[1] >> (var - fam->nBits) & 1;
}

static void listVars(const rdbOutFam *fam, const rdbOutHead *head, rdbOutInfo *info)
{
    info->mask = head->mask;
    info->masks[0] = head->masks[0];
    info->masks[1] = head->masks[1];
    info->maskForm = head->maskForm;
    info->varIds = memNew(int, fam->nVars);
    for (int var = 0; var < fam->nVars; ++var)
        if (inMask(fam, head, var)) info->varIds[info->nVars++] = var;
}

int rdbOutVarWidth(rdbHd *hd, const rdbOutFam *fam, int var)
{
    const rdbOutVar *row = &fam->vars[var];
    return row->counter ? hd->run->*row->counter : row->dim;
}

/* ------------------------------------------------------------------------------------------------ the catalogue */

/* The most reals that a file could hold */
static int64_t mostReals(rdbHd *hd, const char *path, int opt)
{
    char      name[SYS_TEXT];
    const int form = rdbDiskName(hd, path, opt, name);
    return iopMostBytes(form, iopFileSize(name)) / iopLeastBytes(form, sizeof(double));
}

/* The same of a step's files together; -1 where their size tells nothing, since a part is missing. A run without
   subdomains has the parts that are there. */
static int64_t stepReals(rdbHd *hd, const rdbOutFam *fam, const char *base)
{
    char path[SYS_TEXT];
    int  merged;
    int  opt = rdbFindFormFile(hd, base, fam->ext, path, &merged);
    if (!opt || merged) return opt ? mostReals(hd, path, opt) : -1;
    const int nSds = hd->run->nSds;
    int64_t   n = 0;
    for (int p = 0; nSds < 1 || p < nSds; ++p) {
        char name[SYS_TEXT];
        rdbFormat(name, "%s%d.%s", base, p, fam->ext);
        opt = rdbFindFile(hd, name);
        if (!opt) return nSds > 0 ? -1 : n;
        rdbFormat(path, "%s/%s", hd->dir, name);
        const int64_t more = mostReals(hd, path, opt);
        n = more < INT64_MAX - n ? n + more : INT64_MAX;
    }
    return n;
}

/* A client sizes its arrays by width times nodes. Widths up to this are taken as they come: a step that is still being
   written is shorter than what its header announces. */
static const int     usualWidth = 64;
static const int64_t smallArray = 2 << 20;

static int widthFits(rdbHd *hd, const rdbOutFam *fam, int width, const char *base)
{
    const int64_t n = (int64_t) width * hd->run->nNodes;
    if (width <= usualWidth || n <= smallArray) return width >= 0;
    const int64_t most = stepReals(hd, fam, base);
    return most < 0 || n <= most;
}

/* The count that the file would give to a variable of the list must be one that its files can hold */
static void checkWidths(rdbHd *hd, const rdbOutFam *fam, const rdbOutInfo *info, const rdbOutHead *head,
                        const char *base)
{
    for (int i = 0; i < info->nVars; ++i)
        for (int k = 0; k < fam->nHdr; ++k) {
            const rdbOutHdr *item = &fam->hdr[k];
            if (!item->counter || item->counter != fam->vars[info->varIds[i]].counter) continue;
            if (!widthFits(hd, fam, head->counts[k], base))
                sysFailIn(fam->initName, "Invalid %s <%d> in files <%s>", item->key, head->counts[k], base);
        }
}

/* The counters that were unset take the file's values */
static void keepCounters(runHd *run, const rdbOutFam *fam, const rdbOutHead *head)
{
    for (int i = 0; i < fam->nHdr; ++i)
        if (fam->hdr[i].counter) run->*fam->hdr[i].counter = head->counts[i];
}

/* Reads the first part of the lowest step */
static int readVars(rdbHd *hd, const rdbOutFam *fam, rdbOutInfo *info)
{
    char       base[SYS_TEXT];
    int        merged;
    rdbOutHead head;
    rdbOutBase(hd, info->steps[0], base);
    iopHd *fh = rdbOpenFormFile(hd, base, fam->ext, &merged);
    if (!fh) return 0;
    rdbHoldFile(hd, fh);
    rdbReadOutHead(fh, fam, hd, &head);
    rdbCloseHeld(hd);
    listVars(fam, &head, info);
    checkWidths(hd, fam, info, &head, base);
    keepCounters(hd->run, fam, &head);
    return 1;
}

/* What is being built belongs to the run too, but in another place: a catalogue that a failure left half done is
   none. */
int rdbInitOutFam(rdbHd *hd, const rdbOutFam *fam)
{
    runHd *run = hd->run;
    if (run->out[fam->cache]) return 1;
    rdbDropOutInfo(&run->outNew);
    rdbOutInfo *info = run->outNew = memNewZ(rdbOutInfo, 1);
    findSteps(hd, fam, info);
    if (info->nSteps == 0) {
        info->varIds = memNew(int, 0);
    } else if (!readVars(hd, fam, info)) {
        rdbDropOutInfo(&run->outNew);
        return 0;
    }
    run->out[fam->cache] = info;
    run->outNew = NULL;
    return 1;
}

int rdbInitOut(rdbHd *hd)
{
    return rdbInitOutFam(hd, &outOut);
}

void rdbDropOutInfo(rdbOutInfo **info)
{
    if (!*info) return;
    memFree((*info)->steps);
    memFree((*info)->times);
    memFree((*info)->varIds);
    memFree(*info);
}
