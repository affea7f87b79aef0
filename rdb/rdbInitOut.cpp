/* rdbInitOut.cpp: the catalogue of an output family: which steps exist, and which variables they hold.
 *
 * Nobody lists the step files. The catalogue finds them among the listed names by the family's expression, reads the
 * header of the first part of the lowest step, and turns its variable mask into a list of rows of the family's table.
 * It is built when a getter of the family is first asked anything, and stays until the run closes.
 *
 * The widths of some variables are counters that the files carry: species, fields and the like. The counters belong to
 * the run and are shared by all families; a file that contradicts the one read before it is refused.
 *
 * One family keeps no list: of it the newest step counts, and its files are told by name, since the solver may have
 * made them after the directory was scanned.
 *
 * In this file: the families' tables, headers, steps, the newest step, files, masks, the catalogue. */

#include "rdb/rdbInt.h"

#include "base/regExpr.h"

#include <limits.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

/* --------------------------------------------------------------------------------------------------- the tables */

static const rdbOutHdr outHdr[] = {
    { "time",      RDB_HDR_TIME,      nullptr,           nullptr },
    { "mask",      RDB_HDR_MASK,      nullptr,           nullptr },
    { "nSpecs",    RDB_HDR_COUNT,     &runHd::nSpecs,    nullptr },
    { "nFilms",    RDB_HDR_OPT_COUNT, &runHd::nFilms,    nullptr },
    { "nFields",   RDB_HDR_OPT_COUNT, &runHd::nFields,   nullptr },
    { "nAoutVecs", RDB_HDR_COUNT,     &runHd::nAoutVecs, nullptr },
    { "masks",     RDB_HDR_MASKS,     nullptr,           nullptr },
};

static const rdbOutHdr flowHdr[] = {
    { "time",      RDB_HDR_TIME,      nullptr,           nullptr },
    { "mask",      RDB_HDR_MASK,      nullptr,           nullptr },
    { "nSpecs",    RDB_HDR_COUNT,     &runHd::nSpecs,    nullptr },
    { "nFields",   RDB_HDR_OPT_COUNT, &runHd::nFields,   nullptr },
};

static const rdbOutHdr errorHdr[] = {
    { "time",      RDB_HDR_TIME,      nullptr,           nullptr },
    { "outIndx",   RDB_HDR_OPT_INDEX, nullptr,           nullptr },
    { "mask",      RDB_HDR_MASK,      nullptr,           nullptr },
    { "nSpecs",    RDB_HDR_COUNT,     &runHd::nSpecs,    nullptr },
    { "nFields",   RDB_HDR_OPT_COUNT, &runHd::nFields,   nullptr },
};

/* Of four mask words the first two tell the variables of the step, the others what runs on behind them. A failure of
   the last count speaks of fields: users know the text. */
static const rdbOutHdr rstHdr[] = {
    { "time",        RDB_HDR_TIME,       nullptr,           nullptr   },
    { "timeInc",     RDB_HDR_REAL,       nullptr,           nullptr   },
    { "flowTimeInc", RDB_HDR_OPT_REAL,   nullptr,           nullptr   },
    { "mask",        RDB_HDR_MASK,       nullptr,           nullptr   },
    { "mask",        RDB_HDR_OPT_MASK,   nullptr,           nullptr   },
    { "mask",        RDB_HDR_OPT_INT,    nullptr,           nullptr   },
    { "mask",        RDB_HDR_OPT_INT,    nullptr,           nullptr   },
    { "nRafVars",    RDB_HDR_OPT_LENGTH, nullptr,           nullptr   },
    { "nAtcVars",    RDB_HDR_OPT_INT,    nullptr,           nullptr   },
    { "rafSteps",    RDB_HDR_OPT_INTS,   nullptr,           nullptr   },
    { "nSpecs",      RDB_HDR_COUNT,      &runHd::nSpecs,    nullptr   },
    { "nFilms",      RDB_HDR_OPT_COUNT,  &runHd::nFilms,    nullptr   },
    { "nFields",     RDB_HDR_OPT_COUNT,  &runHd::nFields,   nullptr   },
    { "name",        RDB_HDR_TEXTS,      nullptr,           nullptr   },
    { "lvsetThk",    RDB_HDR_OPT_REAL,   nullptr,           nullptr   },
    { "nDODirs",     RDB_HDR_OPT_COUNT,  &runHd::nDODirs,   "nFields" },
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

static const rdbOutVar oraVars[] = {
    { "velocity",                "vel",      3, nullptr         },
    { "pressure",                "pres",     1, nullptr         },
    { "temperature",             "temp",     1, nullptr         },
    { "species",                 "spec",     0, &runHd::nSpecs  },
    { "eddy_viscosity",          "eddy",     1, nullptr         },
    { "kinetic_energy",          "tke",      1, nullptr         },
    { "velocity_scale",          "tvel",     1, nullptr         },
    { "dissipation_rate",        "teps",     1, nullptr         },
    { "eddy_frequency",          "tomega",   1, nullptr         },
    { "mesh_displacement",       "aleDisp",  3, nullptr         },
    { "viscoelastic_stress",     "vest",     6, nullptr         },
    { "intermittency",           "tintc",    1, nullptr         },
    { "transition_re_theta",     "treth",    1, nullptr         },
    { "eddy_time",               "ttau",     1, nullptr         },
    { "sqrt_eddy_period",        "tgv",      1, nullptr         },
    { "field",                   "field",    0, &runHd::nFields },
    { "relative_humidity",       "relHum",   1, nullptr         },
    { "dewpoint_temperature",    "dewPoint", 1, nullptr         },
    { "humidity_film_thickness", "hWetWall", 1, nullptr         },
    { "topology_velocity",       "topoVel",  3, nullptr         },
    { "topology_pressure",       "topoPres", 1, nullptr         },
    { "topology_temperature",    "topoTemp", 1, nullptr         },
};

/* The last row reads the key of the first again: the writer has two averages of the velocity under one key. */
static const rdbOutVar otaVars[] = {
    { "velocity",         "vel",     3, nullptr         },
    { "pressure",         "pres",    1, nullptr         },
    { "velocity_square",  "velSqr",  6, nullptr         },
    { "pressure_square",  "presSqr", 1, nullptr         },
    { "stress",           "stress",  6, nullptr         },
    { "velocity_regular", "vel",     3, nullptr         },
};

static const rdbOutVar onrVars[] = {
    { "velocity",            "vel",     3, nullptr         },
    { "pressure",            "pres",    1, nullptr         },
    { "temperature",         "temp",    1, nullptr         },
    { "species",             "spec",    0, &runHd::nSpecs  },
    { "eddy_viscosity",      "eddy",    1, nullptr         },
    { "kinetic_energy",      "tke",     1, nullptr         },
    { "velocity_scale",      "tvel",    1, nullptr         },
    { "dissipation_rate",    "teps",    1, nullptr         },
    { "eddy_frequency",      "tomega",  1, nullptr         },
    { "mesh_displacement",   "aleDisp", 3, nullptr         },
    { "viscoelastic_stress", "vest",    6, nullptr         },
    { "eddy_time",           "ttau",    1, nullptr         },
    { "sqrt_eddy_period",    "tgv",     1, nullptr         },
    { "intermittency",       "tintc",   1, nullptr         },
    { "transition_re_theta", "treth",   1, nullptr         },
    { "field",               "field",   0, &runHd::nFields },
};

static const rdbOutVar odqVars[] = {
    { "density",               "densVec",    1, nullptr         },
    { "viscosity",             "viscVec",    1, nullptr         },
    { "gravity",               "gravity",    3, nullptr         },
    { "specific_heat",         "cpVec",      1, nullptr         },
    { "conductivity",          "condVec",    6, nullptr         },
    { "heat_source",           "heatSrc",    1, nullptr         },
    { "diffusivity",           "diffVec",    0, &runHd::nSpecs  },
    { "species_source",        "specSrc",    0, &runHd::nSpecs  },
    { "turbulence_y",          "turbY",      1, nullptr         },
    { "turbulence_y_plus",     "turbYP",     1, nullptr         },
    { "des_length",            "desLen",     1, nullptr         },
    { "material_viscosity",    "matViscVec", 1, nullptr         },
    { "field_diffusivity",     "diffFldVec", 0, &runHd::nFields },
    { "field_source",          "fieldSrc",   0, &runHd::nFields },
    { "material_conductivity", "matCondVec", 6, nullptr         },
    { "turbulence_intensity",  "turbInt",    1, nullptr         },
    { "total_pressure",        "totalPres",  1, nullptr         },
    { "total_temperature",     "totalTemp",  1, nullptr         },
    { "cfl_number",            "cfl",        1, nullptr         },
};

/* The conductivity was a scalar once, and is a symmetric tensor since this version; a run that tells no version is an
   older one. Versions are compared as texts. Once an older run was met, the narrow width holds for all later runs of
   the process: clients that compare runs of both kinds count on one width. */
static rdbOutOlder odqOlder = { 4, 1, "1.7f", 0 };

/* Pairs of a variable and its stabilisation time scale */
static const rdbOutVar errorVars[] = {
    { "volume",                  "vol",       1, nullptr         },
    { "covariant_metric",        "covar",     6, nullptr         },
    { "velocity",                "vel",       3, nullptr         },
    { "tau_velocity",            "tauVel",    1, nullptr         },
    { "pressure",                "pres",      1, nullptr         },
    { "tau_pressure",            "tauPres",   1, nullptr         },
    { "temperature",             "temp",      1, nullptr         },
    { "tau_temperature",         "tauTemp",   1, nullptr         },
    { "species",                 "spec",      0, &runHd::nSpecs  },
    { "tau_species",             "tauSpec",   0, &runHd::nSpecs  },
    { "eddy_viscosity",          "eddy",      1, nullptr         },
    { "tau_eddy_viscosity",      "tauEddy",   1, nullptr         },
    { "viscoelastic_stress",     "vest",      6, nullptr         },
    { "tau_viscoelastic_stress", "tauVest",   6, nullptr         },
    { "intermittency",           "tintc",     1, nullptr         },
    { "tau_intermittency",       "tauTintc",  1, nullptr         },
    { "transition_re_theta",     "treth",     1, nullptr         },
    { "tau_transition_re_theta", "tauTreth",  1, nullptr         },
    { "kinetic_energy",          "tke",       1, nullptr         },
    { "tau_kinetic_energy",      "tauTke",    1, nullptr         },
    { "eddy_frequency",          "tomega",    1, nullptr         },
    { "tau_eddy_frequency",      "tauTomega", 1, nullptr         },
    { "eddy_time",               "ttau",      1, nullptr         },
    { "tau_eddy_time",           "tauTtau",   1, nullptr         },
    { "sqrt_eddy_period",        "tgv",       1, nullptr         },
    { "tau_sqrt_eddy_period",    "tauTgv",    1, nullptr         },
    { "dissipation_rate",        "teps",      1, nullptr         },
    { "tau_dissipation_rate",    "tauTeps",   1, nullptr         },
    { "field",                   "field",     0, &runHd::nFields },
    { "tau_field",               "tauField",  0, &runHd::nFields },
};

/* Which of them there are: the set 1 has all. The set 0 has not the rows 3, 5, 7, 9, 11, 12 and 13 of averaged errors,
   and of the others no odd row from 3 to 27. The mask has a bit for each row that is there. */
static const uint64_t oaePresence[RDB_N_OUT_PRESENCE] = { 0x3fffffff & ~0x3aa8u, 0x3fffffff };
static const uint64_t oeePresence[RDB_N_OUT_PRESENCE] = { 0x3fffffff & ~0xaaaaaa8u, 0x3fffffff };

static const rdbOutVar rstVars[] = {
    { "velocity",                             "vel",        3, nullptr         },
    { "acceleration",                         "velTd",      3, nullptr         },
    { "pressure",                             "pres",       1, nullptr         },
    { "pressure_time_derivative",             "presTd",     1, nullptr         },
    { "temperature",                          "temp",       1, nullptr         },
    { "temperature_time_derivative",          "tempTd",     1, nullptr         },
    { "species",                              "spec",       0, &runHd::nSpecs  },
    { "species_time_derivative",              "specTd",     0, &runHd::nSpecs  },
    { "eddy_viscosity",                       "eddy",       1, nullptr         },
    { "eddy_viscosity_time_derivative",       "eddyTd",     1, nullptr         },
    { "kinetic_energy",                       "tke",        1, nullptr         },
    { "kinetic_energy_time_derivative",       "tkeTd",      1, nullptr         },
    { "velocity_scale",                       "tvel",       1, nullptr         },
    { "velocity_scale_time_derivative",       "tvelTd",     1, nullptr         },
    { "dissipation_rate",                     "teps",       1, nullptr         },
    { "dissipation_rate_time_derivative",     "tepsTd",     1, nullptr         },
    { "eddy_frequency",                       "tomega",     1, nullptr         },
    { "eddy_frequency_time_derivative",       "tomegaTd",   1, nullptr         },
    { "mesh_displacement",                    "aleDisp",    3, nullptr         },
    { "viscoelastic_stress",                  "vest",       6, nullptr         },
    { "viscoelastic_stress_time_derivative",  "vestTd",     6, nullptr         },
    { "intermittency",                        "tintc",      1, nullptr         },
    { "intermittency_time_derivative",        "tintcTd",    1, nullptr         },
    { "transition_re_theta",                  "treth",      1, nullptr         },
    { "transition_re_theta_time_derivative",  "trethTd",    1, nullptr         },
    { "eddy_time",                            "ttau",       1, nullptr         },
    { "eddy_time_time_derivative",            "ttauTd",     1, nullptr         },
    { "sqrt_eddy_period",                     "tgv",        1, nullptr         },
    { "sqrt_eddy_period_time_derivative",     "tgvTd",      1, nullptr         },
    { "field",                                "field",      0, &runHd::nFields },
    { "field_time_derivative",                "fieldTd",    0, &runHd::nFields },
    { "levelset",                             "levelset",   1, nullptr         },
    { "levelset_time_derivative",             "levelsetTd", 1, nullptr         },
    { "incident_radiation",                   "rad",        1, nullptr         },
    { "relative_humidity",                    "relHum",     1, nullptr         },
    { "dewpoint_temperature",                 "dewPoint",   1, nullptr         },
    { "radiation_intensity",                  "radDO",      0, &runHd::nDODirs },
    { "film",                                 "film",       0, &runHd::nFilms  },
    { "film_time_derivative",                 "filmTd",     0, &runHd::nFilms  },
    { "humidity_film_thickness",              "hWetWall",   1, nullptr         },
    { "topology_velocity",                    "topoVel",    3, nullptr         },
    { "topology_acceleration",                "topoVelTd",  3, nullptr         },
    { "topology_pressure",                    "topoPres",   1, nullptr         },
    { "topology_pressure_time_derivative",    "topoPresTd", 1, nullptr         },
    { "topology_temperature",                 "topoTemp",   1, nullptr         },
    { "topology_temperature_time_derivative", "topoTempTd", 1, nullptr         },
};

/* Running averages, then what the tuning keeps */
static const char *const rstBehind[] = {
    "vel", "pres", "temp", "spec", "eddy", "tke", "tvel", "teps", "tomega", "aleDisp", "vest", "tintc", "treth",
    "ttau", "tgv", "field", "relHum", "dewPoint", "hWetWall", "topoVel", "topoPres", "topoTemp",

    "vel", "pres", "temp", "spec", "eddy", "tke", "tvel", "teps", "tomega", "tempJac", "tempRef", "specJac",
    "specRef", "velJac", "velRef", "ttau", "tgv", "field", "fieldJac", "fieldRef",
    nullptr
};

template <class T, int n> static constexpr int length(const T (&)[n]) { return n; }

#define FAM(CACHE, Fam, fam, ext, hdr, vars, presence, behind, older, newest)                                          \
    static_assert(length(hdr) <= RDB_MAX_OUT_HDR, "a header longer than rdbOutHead");                                 \
    static_assert(length(vars) < 64, "more variables than rdbOutInfo has bits for");                                  \
    const rdbOutFam fam##Fam = { RDB_OUT_##CACHE, ext, hdr, length(hdr), vars, length(vars), presence, behind, older, \
                                 newest, "rdbInit" #Fam, "rdb_" #fam "Values" };
#define OUT_FAM(...) FAM(__VA_ARGS__, 0)
#define NEWEST_FAM(...) FAM(__VA_ARGS__, 1)
#include "rdb/rdbOutFams.def"
#undef OUT_FAM
#undef FAM

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
    sysFailIn(fam->initName, "Inconsistent %s in file <%s>", item->told ? item->told : item->key, name);
}

static void readIndex(iopHd *fh, const char *key, const char *function, int *index)
{
    iopGetOptKeyInt(fh, key, index);
    if (*index < 0 || *index >= RDB_N_OUT_PRESENCE)
        sysFailIn(function, "Invalid outIndx <%d> vs. <%d>", *index, RDB_N_OUT_PRESENCE);
}

/* Steps over an optional column of n integers: n is the file's, and nobody need make room for so many */
static void skipOptInts(iopHd *fh, const char *key, int n)
{
    char          text[SYS_TEXT];
    const int64_t loc = iopGetLoc(fh);
    const int     nTokens = iopGetTokens(fh);
    if (!iopGetIfStr(fh, text)) return;
    if (strcmp(text, key) != 0) return iopSetPlace(fh, loc, nTokens, text);
    iopCheckInt(fh, 1);
    iopCheckInt(fh, n);
    if (n > 0) iopGetIntDsp(fh, n);
}

/* Steps over keyed texts, as long as there are any: n is but what the file said, or carried over from another count */
static void skipOptTexts(iopHd *fh, const char *key, int n)
{
    char text[SYS_TEXT];
    for (int i = 0; i < n; ++i) {
        const int nTokens = iopGetTokens(fh);
        iopGetOptKeyStr(fh, key, text);
        if (iopGetTokens(fh) == nTokens) return;
    }
}

/* Reads a header up to the key before the arrays. All counts go through one variable: an optional one that is absent
   has the value of the count before it, and the comparison sees that. */
void rdbReadOutHead(iopHd *fh, const rdbOutFam *fam, rdbHd *check, rdbOutHead *head)
{
    int    count = -1, number;
    double real;
    memset(head, 0, sizeof *head);
    head->maskForm = 1;
    for (int i = 0; i < fam->nHdr; ++i) {
        const rdbOutHdr *item = &fam->hdr[i];
        switch (item->kind) {
        case RDB_HDR_TIME:       iopGetKeyReal(fh, item->key, &head->time); break;
        case RDB_HDR_REAL:       iopGetKeyReal(fh, item->key, &real); break;
        case RDB_HDR_OPT_REAL:   iopGetOptKeyReal(fh, item->key, &real); break;
        case RDB_HDR_MASK:       iopGetKeyInt(fh, item->key, &head->mask); break;
        case RDB_HDR_OPT_INT:    iopGetOptKeyInt(fh, item->key, &number); break;
        case RDB_HDR_OPT_LENGTH: iopGetOptKeyInt(fh, item->key, &head->length); break;
        case RDB_HDR_OPT_INTS:   skipOptInts(fh, item->key, head->length); break;
        case RDB_HDR_TEXTS:      skipOptTexts(fh, item->key, count); break;
        case RDB_HDR_OPT_INDEX:
            readIndex(fh, item->key, check ? fam->initName : fam->valuesName, &head->outIndx);
            break;
        case RDB_HDR_OPT_MASK:
            iopGetOptKeyInt(fh, item->key, &head->masks[1]);
            head->masks[0] = head->mask;
            head->maskForm = 2;
            break;
        case RDB_HDR_MASKS:
            if (head->mask != -1) break;
            readMasks(fh, item->key, head->masks);
            head->mask = head->masks[0];
            head->maskForm = 2;
            break;
        case RDB_HDR_COUNT:
        case RDB_HDR_OPT_COUNT:
            if (item->kind == RDB_HDR_COUNT) iopGetKeyInt(fh, item->key, &count);
            else iopGetOptKeyInt(fh, item->key, &count);
            head->counts[i] = count;
            if (check) checkCounter(check, fh, fam, item, count);
            break;
        }
    }
}

/* -------------------------------------------------------------------------------------------------------- steps */

/* The family's expression in force; the engine grows its code as it needs, and the code stays for the next scan. */
static rePattern pattern;

/* Compiles it. A problem name stands in it as it is, special characters included. */
static void compileNames(rdbHd *hd, const rdbOutFam *fam, const char *format, va_list args)
{
    char      text[SYS_TEXT];
    const int length = vsnprintf(text, sizeof text, format, args);
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

int rdbAnyOutName(rdbHd *hd, const rdbOutFam *fam, const char *format, ...)
{
    reRegisters regs;
    va_list     args;
    va_start(args, format);
    compileNames(hd, fam, format, args);
    va_end(args);
    for (int i = 0; i < hd->nFiles; ++i)
        if (isStepName(fam, hd->files[i], &regs)) return 1;
    return 0;
}

/* The list was made for as many steps as there are names */
static void shrinkSteps(rdbOutInfo *info)
{
    int *steps = memNew(int, info->nSteps);
    sysCopyInts(info->steps, steps, info->nSteps);
    memFree(info->steps);
    info->steps = steps;
}

/* A number that is no step number has no file that "%d" names. */
int rdbFindOutSteps(rdbHd *hd, const rdbOutFam *fam, rdbOutInfo *info, const char *format, ...)
{
    reRegisters regs;
    va_list     args;
    va_start(args, format);
    compileNames(hd, fam, format, args);
    va_end(args);
    info->steps = memNew(int, hd->nFiles);
    int n = 0;
    for (int i = 0; i < hd->nFiles; ++i) {
        const char *name = hd->files[i];
        if (!isStepName(fam, name, &regs)) continue;
        const long step = groupNumber(fam, name, &regs);
        if (step >= INT_MIN && step <= INT_MAX) info->steps[n++] = (int) step;
    }
    info->nSteps = sysSortUniqueInts(info->steps, n);
    shrinkSteps(info);
    info->times = memNew(double, info->nSteps);
    sysFillReals(info->times, info->nSteps, -1.0);
    return info->nSteps;
}

static int findSteps(rdbHd *hd, const rdbOutFam *fam, rdbOutInfo *info)
{
    return rdbFindOutSteps(hd, fam, info, "^%s.%d_([0-9]+)_[0x].%s(\\.[BZH])?$", hd->problem, hd->run->runId, fam->ext);
}

void rdbOutBase(rdbHd *hd, int step, char *base)
{
    rdbFormat(base, "%s.%d_%d_", hd->problem, hd->run->runId, step);
}

/* -------------------------------------------------------------------------------------------- the newest step alone */

/* The number of a file of the first part, "<head><step><tail>"; -1 if the name is none */
static int stepOfName(const char *name, const char *head, const char *tail)
{
    const size_t length = strlen(head);
    if (strncmp(name, head, length) != 0) return -1;
    char      *end;
    const long step = strtol(name + length, &end, 10);
    return end > name + length && step >= 0 && step <= INT_MAX && strcmp(end, tail) == 0 ? (int) step : -1;
}

/* The form of the run's data files; an option word that names none stands for text */
static int runForm(rdbHd *hd)
{
    const int form = hd->run->opt & IOP_FORMS;
    return form ? form : IOP_ASCII;
}

/* The names of the last scan do not count: this follows a solver at work */
int rdbNewestOutStep(rdbHd *hd, const rdbOutFam *fam)
{
    char head[SYS_TEXT], first[SYS_TEXT], tail[SYS_TEXT];
    int  newest = -1;
    rdbFormat(head, "%s.%d_", hd->problem, hd->run->runId);
    rdbFormat(first, "_0.%s", fam->ext);
    iopGetDiskName(first, runForm(hd), tail);
    iopDir *dir = iopOpenDir(hd->dir);
    while (const char *name = iopReadDir(dir)) newest = std::max(newest, stepOfName(name, head, tail));
    iopCloseDir(dir);
    return newest;
}

/* ------------------------------------------------------------------------------------------------------------ files */

int rdbFindOutPart(rdbHd *hd, const rdbOutFam *fam, const char *base, int part)
{
    char name[SYS_TEXT];
    if (fam->newest) return runForm(hd);
    rdbFormat(name, "%s%d.%s", base, part, fam->ext);
    return rdbFindFile(hd, name);
}

int rdbFindOutFirst(rdbHd *hd, const rdbOutFam *fam, const char *base, char *path, int *merged)
{
    iopFileId id;
    if (!fam->newest) return rdbFindFormFile(hd, base, fam->ext, path, merged);
    *merged = 0;
    rdbFormat(path, "%s/%s0.%s", hd->dir, base, fam->ext);
    return rdbLookAtFile(hd, path, runForm(hd), &id) ? runForm(hd) : rdbFail(".%s file not found", fam->ext);
}

/* -------------------------------------------------------------------------------------------------------- masks */

/* The two-word form has 31 bits in the first word, whose bit 31 then means nothing. A single word is widened with its
   sign: one that is negative has all bits from 31 on. */
static int inMask(const rdbOutHead *head, int bit)
{
    if (head->maskForm == 1) return (int) ((int64_t) head->mask >> bit & 1);
    return bit < 31 ? head->masks[0] >> bit & 1 : head->masks[1] >> (bit - 31) & 1;
}

static void listVars(const rdbOutFam *fam, const rdbOutHead *head, rdbOutInfo *info)
{
    info->mask = head->mask;
    info->masks[0] = head->masks[0];
    info->masks[1] = head->masks[1];
    info->maskForm = head->maskForm;
    info->present = fam->presence ? fam->presence[head->outIndx] : UINT64_MAX;
    info->varIds = memNew(int, fam->nVars);
    for (int var = 0, bit = 0; var < fam->nVars; ++var)
        if (info->present >> var & 1 && inMask(head, bit++)) info->varIds[info->nVars++] = var;
}

int rdbOutVarWidth(rdbHd *hd, const rdbOutFam *fam, int var)
{
    const rdbOutVar *row = &fam->vars[var];
    rdbOutOlder     *older = fam->older;
    if (older && (!hd->run->version || strcmp(hd->run->version, older->version) < 0)) older->met = 1;
    if (older && older->met && older->var == var) return older->dim;
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
    char      path[SYS_TEXT];
    int       merged;
    iopFileId id;
    int       opt = rdbFindOutFirst(hd, fam, base, path, &merged);
    if (!opt || merged) return opt ? mostReals(hd, path, opt) : -1;
    const int nSds = hd->run->nSds;
    int64_t   n = 0;
    for (int p = 0; nSds < 1 || p < nSds; ++p) {
        opt = rdbFindOutPart(hd, fam, base, p);
        rdbFormat(path, "%s/%s%d.%s", hd->dir, base, p, fam->ext);
        if (!opt || !rdbLookAtFile(hd, path, opt, &id)) return nSds > 0 ? -1 : n;
        const int64_t more = mostReals(hd, path, opt);
        n = more < INT64_MAX - n ? n + more : INT64_MAX;
    }
    return n;
}

/* A client sizes its arrays by width times nodes. Widths up to this are taken as they come: a step that is still being
   written is shorter than what its header announces. */
static const int64_t smallArray = 2 << 20;

static int widthFits(rdbHd *hd, const rdbOutFam *fam, int width, const char *base, int nNodes)
{
    const int64_t n = (int64_t) width * nNodes;
    if (width <= RDB_USUAL_WIDTH || n <= smallArray) return width >= 0;
    const int64_t most = stepReals(hd, fam, base);
    return most < 0 || n <= most;
}

/* The count that the file would give to a variable of the list must be one that its files can hold */
static void checkWidths(rdbHd *hd, const rdbOutFam *fam, const rdbOutInfo *info, const rdbOutHead *head,
                        const char *base, int nNodes)
{
    for (int i = 0; i < info->nVars; ++i)
        for (int k = 0; k < fam->nHdr; ++k) {
            const rdbOutHdr *item = &fam->hdr[k];
            if (!item->counter || item->counter != fam->vars[info->varIds[i]].counter) continue;
            if (!widthFits(hd, fam, head->counts[k], base, nNodes))
                sysFailIn(fam->initName, "Invalid %s <%d> in files <%s>", item->key, head->counts[k], base);
        }
}

void rdbKeepOutCounts(rdbHd *hd, const rdbOutFam *fam, const rdbOutInfo *info, const rdbOutHead *head,
                      const char *base, int nNodes)
{
    checkWidths(hd, fam, info, head, base, nNodes);
    for (int i = 0; i < fam->nHdr; ++i)
        if (fam->hdr[i].counter) hd->run->*fam->hdr[i].counter = head->counts[i];
}

/* A header, whole or its first entry, by `read`. A solver may write the file meanwhile: what tells the variables may be
   there before it has its value. So it is read until the file did not change, or tells the same again a while later. */
static int readSteady(rdbHd *hd, const rdbOutFam *fam, const char *path, int form,
                      void (*read)(iopHd *fh, const rdbOutFam *fam, rdbHd *check, rdbOutHead *head), rdbOutHead *head)
{
    rdbOutHead last;
    iopFileId  before, after;
    for (int nWaits = 0;; ++nWaits) {
        const int rests = rdbLookAtRest(hd, path, form, &before);
        iopHd *fh = rdbHoldFile(hd, rdbOpenReadFile(hd, path, form));
        read(fh, fam, hd, head);
        rdbCloseHeld(hd);
        rdbLookAtFile(hd, path, form, &after);
        if (rests && iopSameFile(&before, &after)) return 1;
        if (nWaits > 0 && memcmp(&last, head, sizeof last) == 0) return 1;
        if (nWaits == RDB_WAITS) return rdbFailChanged(hd, path, form);
        memcpy(&last, head, sizeof last);                       /* what lies between its entries, too */
        sysSleep(1);
    }
}

int rdbReadOutVars(rdbHd *hd, const rdbOutFam *fam, const char *path, int form, rdbOutInfo *info, rdbOutHead *head)
{
    if (!readSteady(hd, fam, path, form, rdbReadOutHead, head)) return 0;
    listVars(fam, head, info);
    return 1;
}

static void readTime(iopHd *fh, const rdbOutFam *fam, rdbHd *, rdbOutHead *head)
{
    memset(head, 0, sizeof *head);
    iopGetKeyReal(fh, fam->hdr[0].key, &head->time);
}

int rdbReadOutTime(rdbHd *hd, const rdbOutFam *fam, const char *path, int form, double *time)
{
    rdbOutHead head;
    if (!readSteady(hd, fam, path, form, readTime, &head)) return 0;
    *time = head.time;
    return 1;
}

/* Reads the first part of the lowest step */
static int readVars(rdbHd *hd, const rdbOutFam *fam, rdbOutInfo *info)
{
    char       base[SYS_TEXT], path[SYS_TEXT];
    int        merged;
    rdbOutHead head;
    rdbOutBase(hd, info->steps[0], base);
    const int form = rdbFindOutFirst(hd, fam, base, path, &merged);
    if (!form) return 0;
    if (!rdbReadOutVars(hd, fam, path, form, info, &head)) return 0;
    rdbKeepOutCounts(hd, fam, info, &head, base, hd->run->nNodes);
    return 1;
}

/* The list of a family of the newest step has one entry, -1 where there is none yet. 1 if there is a step to read */
static int findNewest(rdbHd *hd, const rdbOutFam *fam, rdbOutInfo *info)
{
    info->steps = memNew(int, 1);
    info->times = memNew(double, 1);
    info->steps[0] = rdbNewestOutStep(hd, fam);
    info->times[0] = -1.0;
    info->nSteps = 1;
    return info->steps[0] >= 0;
}

/* What is being built belongs to the run too, but in another place: a catalogue that a failure left half done is
   none. */
int rdbInitOutFam(rdbHd *hd, const rdbOutFam *fam)
{
    runHd *run = hd->run;
    if (run->out[fam->cache]) return 1;
    rdbDropOutInfo(&run->outNew);
    rdbOutInfo *info = run->outNew = memNewZ(rdbOutInfo, 1);
    if (!(fam->newest ? findNewest(hd, fam, info) : findSteps(hd, fam, info))) {
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
