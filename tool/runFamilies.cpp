/* runFamilies.cpp: the files of the other families of nodal output, and the log of time steps. */

#include "tool/runFamilies.h"

#include <algorithm>
#include <stdexcept>

#include "tool/runModel.h"

namespace tool {

namespace {

/* ---- the tables: a row's number is its bit in FamSpec::rows ---- */

enum { N_SPECS = -1, N_FIELDS = -2, N_FILMS = -3, N_AOUT_VECS = -4, N_DO_DIRS = -5 };

struct FamVar { const char *name, *key; int dim; };         /* dim below 0: a count */

const FamVar oraVars[] = {
    { "velocity",                "vel",      3 },
    { "pressure",                "pres",     1 },
    { "temperature",             "temp",     1 },
    { "species",                 "spec",     N_SPECS },
    { "eddy_viscosity",          "eddy",     1 },
    { "kinetic_energy",          "tke",      1 },
    { "velocity_scale",          "tvel",     1 },
    { "dissipation_rate",        "teps",     1 },
    { "eddy_frequency",          "tomega",   1 },
    { "mesh_displacement",       "aleDisp",  3 },
    { "viscoelastic_stress",     "vest",     6 },
    { "intermittency",           "tintc",    1 },
    { "transition_re_theta",     "treth",    1 },
    { "eddy_time",               "ttau",     1 },
    { "sqrt_eddy_period",        "tgv",      1 },
    { "field",                   "field",    N_FIELDS },
    { "relative_humidity",       "relHum",   1 },
    { "dewpoint_temperature",    "dewPoint", 1 },
    { "humidity_film_thickness", "hWetWall", 1 },
    { "topology_velocity",       "topoVel",  3 },
    { "topology_pressure",       "topoPres", 1 },
    { "topology_temperature",    "topoTemp", 1 },
};

const FamVar otaVars[] = {
    { "velocity",         "vel",     3 },
    { "pressure",         "pres",    1 },
    { "velocity_square",  "velSqr",  6 },
    { "pressure_square",  "presSqr", 1 },
    { "stress",           "stress",  6 },
    { "velocity_regular", "vel",     3 },
};

const FamVar onrVars[] = {
    { "velocity",            "vel",     3 },
    { "pressure",            "pres",    1 },
    { "temperature",         "temp",    1 },
    { "species",             "spec",    N_SPECS },
    { "eddy_viscosity",      "eddy",    1 },
    { "kinetic_energy",      "tke",     1 },
    { "velocity_scale",      "tvel",    1 },
    { "dissipation_rate",    "teps",    1 },
    { "eddy_frequency",      "tomega",  1 },
    { "mesh_displacement",   "aleDisp", 3 },
    { "viscoelastic_stress", "vest",    6 },
    { "eddy_time",           "ttau",    1 },
    { "sqrt_eddy_period",    "tgv",     1 },
    { "intermittency",       "tintc",   1 },
    { "transition_re_theta", "treth",   1 },
    { "field",               "field",   N_FIELDS },
};

const FamVar odqVars[] = {
    { "density",               "densVec",    1 },
    { "viscosity",             "viscVec",    1 },
    { "gravity",               "gravity",    3 },
    { "specific_heat",         "cpVec",      1 },
    { "conductivity",          "condVec",    6 },
    { "heat_source",           "heatSrc",    1 },
    { "diffusivity",           "diffVec",    N_SPECS },
    { "species_source",        "specSrc",    N_SPECS },
    { "turbulence_y",          "turbY",      1 },
    { "turbulence_y_plus",     "turbYP",     1 },
    { "des_length",            "desLen",     1 },
    { "material_viscosity",    "matViscVec", 1 },
    { "field_diffusivity",     "diffFldVec", N_FIELDS },
    { "field_source",          "fieldSrc",   N_FIELDS },
    { "material_conductivity", "matCondVec", 6 },
    { "turbulence_intensity",  "turbInt",    1 },
    { "total_pressure",        "totalPres",  1 },
    { "total_temperature",     "totalTemp",  1 },
    { "cfl_number",            "cfl",        1 },
};

const FamVar errorVars[] = {
    { "volume",                  "vol",       1 },
    { "covariant_metric",        "covar",     6 },
    { "velocity",                "vel",       3 },
    { "tau_velocity",            "tauVel",    1 },
    { "pressure",                "pres",      1 },
    { "tau_pressure",            "tauPres",   1 },
    { "temperature",             "temp",      1 },
    { "tau_temperature",         "tauTemp",   1 },
    { "species",                 "spec",      N_SPECS },
    { "tau_species",             "tauSpec",   N_SPECS },
    { "eddy_viscosity",          "eddy",      1 },
    { "tau_eddy_viscosity",      "tauEddy",   1 },
    { "viscoelastic_stress",     "vest",      6 },
    { "tau_viscoelastic_stress", "tauVest",   6 },
    { "intermittency",           "tintc",     1 },
    { "tau_intermittency",       "tauTintc",  1 },
    { "transition_re_theta",     "treth",     1 },
    { "tau_transition_re_theta", "tauTreth",  1 },
    { "kinetic_energy",          "tke",       1 },
    { "tau_kinetic_energy",      "tauTke",    1 },
    { "eddy_frequency",          "tomega",    1 },
    { "tau_eddy_frequency",      "tauTomega", 1 },
    { "eddy_time",               "ttau",      1 },
    { "tau_eddy_time",           "tauTtau",   1 },
    { "sqrt_eddy_period",        "tgv",       1 },
    { "tau_sqrt_eddy_period",    "tauTgv",    1 },
    { "dissipation_rate",        "teps",      1 },
    { "tau_dissipation_rate",    "tauTeps",   1 },
    { "field",                   "field",     N_FIELDS },
    { "tau_field",               "tauField",  N_FIELDS },
};

const FamVar rstVars[] = {
    { "velocity",                             "vel",        3 },
    { "acceleration",                         "velTd",      3 },
    { "pressure",                             "pres",       1 },
    { "pressure_time_derivative",             "presTd",     1 },
    { "temperature",                          "temp",       1 },
    { "temperature_time_derivative",          "tempTd",     1 },
    { "species",                              "spec",       N_SPECS },
    { "species_time_derivative",              "specTd",     N_SPECS },
    { "eddy_viscosity",                       "eddy",       1 },
    { "eddy_viscosity_time_derivative",       "eddyTd",     1 },
    { "kinetic_energy",                       "tke",        1 },
    { "kinetic_energy_time_derivative",       "tkeTd",      1 },
    { "velocity_scale",                       "tvel",       1 },
    { "velocity_scale_time_derivative",       "tvelTd",     1 },
    { "dissipation_rate",                     "teps",       1 },
    { "dissipation_rate_time_derivative",     "tepsTd",     1 },
    { "eddy_frequency",                       "tomega",     1 },
    { "eddy_frequency_time_derivative",       "tomegaTd",   1 },
    { "mesh_displacement",                    "aleDisp",    3 },
    { "viscoelastic_stress",                  "vest",       6 },
    { "viscoelastic_stress_time_derivative",  "vestTd",     6 },
    { "intermittency",                        "tintc",      1 },
    { "intermittency_time_derivative",        "tintcTd",    1 },
    { "transition_re_theta",                  "treth",      1 },
    { "transition_re_theta_time_derivative",  "trethTd",    1 },
    { "eddy_time",                            "ttau",       1 },
    { "eddy_time_time_derivative",            "ttauTd",     1 },
    { "sqrt_eddy_period",                     "tgv",        1 },
    { "sqrt_eddy_period_time_derivative",     "tgvTd",      1 },
    { "field",                                "field",      N_FIELDS },
    { "field_time_derivative",                "fieldTd",    N_FIELDS },
    { "levelset",                             "levelset",   1 },
    { "levelset_time_derivative",             "levelsetTd", 1 },
    { "incident_radiation",                   "rad",        1 },
    { "relative_humidity",                    "relHum",     1 },
    { "dewpoint_temperature",                 "dewPoint",   1 },
    { "radiation_intensity",                  "radDO",      N_DO_DIRS },
    { "film",                                 "film",       N_FILMS },
    { "film_time_derivative",                 "filmTd",     N_FILMS },
    { "humidity_film_thickness",              "hWetWall",   1 },
    { "topology_velocity",                    "topoVel",    3 },
    { "topology_acceleration",                "topoVelTd",  3 },
    { "topology_pressure",                    "topoPres",   1 },
    { "topology_pressure_time_derivative",    "topoPresTd", 1 },
    { "topology_temperature",                 "topoTemp",   1 },
    { "topology_temperature_time_derivative", "topoTempTd", 1 },
};

enum Head { FLOW, ERROR, RESTART, OUT };

/* rows that the variables of index 0 lack */
constexpr uint64_t oaeLacks = 1 << 3 | 1 << 5 | 1 << 7 | 1 << 9 | 1 << 11 | 1 << 12 | 1 << 13;
constexpr uint64_t oeeLacks = 0xaaaaaa8;                       /* all odd ones from 3 to 27 */

struct FamTable { const char *ext; Head head; const FamVar *vars; int nVars; uint64_t lacks; };
const FamTable tables[] = {
    { "ora", FLOW,    oraVars,   22, 0        },
    { "ota", FLOW,    otaVars,   6,  0        },
    { "onr", FLOW,    onrVars,   16, 0        },
    { "odq", FLOW,    odqVars,   19, 0        },
    { "oae", ERROR,   errorVars, 30, oaeLacks },
    { "oee", ERROR,   errorVars, 30, oeeLacks },
    { "rst", RESTART, rstVars,   46, 0        },
    { "ocn", OUT,     nullptr,   37, 0        },            /* the rows of .out */
};

const FamTable &tableOf(const FamSpec &fam)
{
    for (const FamTable &table : tables)
        if (fam.ext == table.ext) return table;
    throw std::invalid_argument("no such family of output: " + fam.ext);
}

FamVar varOf(const FamTable &table, int row)
{
    if (table.vars) return table.vars[row];
    const OutVarRow &out = outVarRows[row];
    const int counts[] = { N_SPECS, N_FIELDS, N_FILMS, N_AOUT_VECS }, rows[] = { 3, 22, 29, 10 };
    for (int i = 0; i < 4; ++i)
        if (row == rows[i]) return { out.name, out.key, counts[i] };
    return { out.name, out.key, out.dim };
}

bool isThere(const FamTable &table, const FamSpec &fam, int row)
{
    return fam.outIndx > 0 || !(table.lacks >> row & 1);
}

/* the mask has a bit for each row that is there */
uint64_t maskOf(const FamTable &table, const FamSpec &fam)
{
    uint64_t mask = 0;
    for (int row = 0, bit = 0; row < table.nVars; ++row)
        if (isThere(table, fam, row)) mask |= (fam.rows >> row & 1) << bit++;
    return mask;
}

/* ---- files ---- */

void writeHead(TokenFile &file, const RunModel &model, const FamTable &table, const FamSpec &fam, int step)
{
    const RunSpec &spec = model.spec;
    const uint64_t mask = maskOf(table, fam);
    const int32_t  low = (int32_t) (mask & 0x7fffffff), high = (int32_t) (mask >> 31);
    const bool     twoWords = table.head == OUT && high != 0;
    file.keyReal("time", model.time(step));
    if (table.head == RESTART) {
        file.keyReal("timeInc", spec.timeInc);
        if (fam.lists) file.keyReal("flowTimeInc", spec.timeInc / 2);
    }
    if (table.head == ERROR && !fam.omitIndx) file.keyInt("outIndx", fam.outIndx);
    file.keyInt("mask", twoWords ? -1 : low);
    if (table.head == RESTART && (high != 0 || fam.lists)) file.keyInt("mask", high);
    if (table.head == RESTART && fam.lists) {
        const int32_t steps[3] = { 1, 2, 3 };
        for (int word = 2; word < 4; ++word) file.keyInt("mask", 3);
        file.keyInt("nRafVars", 3);
        file.keyInt("nAtcVars", 2);
        file.keyInts("rafSteps", 1, 3, steps);
    }
    file.keyInt("nSpecs", spec.nSpecs);
    if (table.head == RESTART || table.head == OUT) file.keyInt("nFilms", spec.nFilms);
    file.keyInt("nFields", spec.nFields);
    if (table.head == RESTART) {
        for (int i = 0; i < spec.nFields; ++i) file.keyStr("name", "field_" + std::to_string(i + 1));
        if (fam.lists) file.keyReal("lvsetThk", 0.5);
        file.keyInt("nDODirs", fam.nDODirs);
    }
    if (table.head == OUT) file.keyInt("nAoutVecs", spec.nAoutVecs);
    if (twoWords) {
        const int32_t masks[2] = { low, high };
        file.keyInts("masks", 2, 1, masks);
    }
}

/* what runs on behind the variables: nobody asks for the values */
void writeLists(TokenFile &file, int nNodes)
{
    static const FamVar vars[] = { { "vel", "vel", 3 }, { "eddy", "eddy", 1 }, { "topoTemp", "topoTemp", 1 },
                                   { "pres", "pres", 1 }, { "tempJac", "tempJac", 1 } };
    for (const FamVar &var : vars)
        file.keyReals(var.key, var.dim, nNodes, TokenFile::Rows<double>([&](int64_t, int64_t n, double *values) {
            std::fill(values, values + n * var.dim, -1.0);
        }));
}

void writePart(TokenFile &file, const RunModel &model, const FamSpec &fam, int step, const std::vector<int> &nodes)
{
    const FamTable &table = tableOf(fam);
    const int       nNodes = (int) nodes.size();
    writeHead(file, model, table, fam, step);
    file.keyInt("nNodes", nNodes);
    /* readers step over all rows below the one that they want: one that is not wanted stands there without nodes */
    for (int row = 0; row < table.nVars && fam.rows >> row; ++row) {
        if (!isThere(table, fam, row)) continue;
        const int dim = famDim(model, fam, row), n = fam.rows >> row & 1 ? nNodes : 0;
        file.keyReals(varOf(table, row).key, dim, n, TokenFile::Rows<double>([&](int64_t first, int64_t m, double *v) {
            for (int64_t i = 0; i < m; ++i)
                for (int k = 0; k < dim; ++k) *v++ = famValue(model, fam, row, k, nodes[first + i], step);
        }));
    }
    if (table.head == RESTART && fam.lists) writeLists(file, nNodes);
}

}

std::vector<int> famVars(const FamSpec &fam)
{
    const FamTable  &table = tableOf(fam);
    std::vector<int> list;
    for (int row = 0; row < table.nVars; ++row)
        if (fam.rows >> row & 1 && isThere(table, fam, row)) list.push_back(row);
    return list;
}

const char *famName(const FamSpec &fam, int row) { return varOf(tableOf(fam), row).name; }

int famDim(const RunModel &model, const FamSpec &fam, int row)
{
    const int dim = varOf(tableOf(fam), row).dim;
    switch (dim) {
    case N_SPECS:     return model.spec.nSpecs;
    case N_FIELDS:    return model.spec.nFields;
    case N_FILMS:     return model.spec.nFilms;
    case N_AOUT_VECS: return model.spec.nAoutVecs;
    case N_DO_DIRS:   return fam.nDODirs;
    default:          return dim;
    }
}

double famValue(const RunModel &model, const FamSpec &fam, int row, int comp, int node, int step)
{
    double xyz[3];
    model.crd(node, xyz);
    const int  salt = fam.ext[1] * 3 + fam.ext[2];
    const auto coef = [&](int term) { return ((row * 7 + comp * 5 + term * 11 + salt) % 31 - 15) / 8.0; };
    return salt + row * 8 + comp / 128.0 + coef(0) * xyz[0] + coef(1) * xyz[1] + coef(2) * xyz[2] + coef(3) * step
           + model.spec.offset;
}

void writeFamily(DataFiles &files, const RunModel &model, const FamSpec &fam)
{
    const bool merged = model.spec.merged && tableOf(fam).head != OUT;
    for (int step = 0; step < model.nSteps(); ++step) {
        const std::string stem = "_" + std::to_string(model.spec.steps[step]) + "_";
        if (merged) {
            TokenFile file = files.make(stem + "x." + fam.ext);
            for (const auto &part : model.parts) writePart(file, model, fam, step, part);
            file.close();
            continue;
        }
        for (size_t p = 0; p < model.parts.size(); ++p) {
            TokenFile file = files.make(stem + std::to_string(p) + "." + fam.ext);
            writePart(file, model, fam, step, model.parts[p]);
            file.close();
        }
    }
}

void writeTop(DataFiles &files, const RunModel &model)
{
    TokenFile file = files.make(".top");
    for (int step = 0; step < model.nSteps(); ++step) {
        file.keyInt("tsId", model.spec.steps[step]);
        file.keyReal("timeInc", model.spec.timeInc);
        file.keyReal("time", model.time(step));
        file.keyInt("cycleId", 0);
        file.keyStr("stgName", "flow");
        file.keyStr("eqnName", "velocity");
        file.keyInt("lhsUpdFlag", 1);
        for (const char *norm : { "resNorm", "resRat", "solNorm", "solRat" }) {
            file.keyReal(norm, 0.5 / (step + 1));
            file.keyStr("name", "velocity");
        }
        file.keyInt("nIters", 20);
        file.keyReal("lesRed", 0.125);
        file.keyReal("cpuTime", 1.5);
        file.keyReal("elapseTime", 2.5);
        file.keyInt("redoFlag", 0);
    }
    file.keyInt("endRun", 1);
    file.close();
}

bool isFamKey(const std::string &key)
{
    static const char *const behind[] = { "tempJac", "tempRef", "specJac", "specRef", "velJac", "velRef", "fieldJac",
                                          "fieldRef" };
    for (const char *known : behind)
        if (key == known) return true;
    for (const FamTable &table : tables)
        for (int row = 0; table.vars && row < table.nVars; ++row)
            if (key == table.vars[row].key) return true;
    return false;
}

}
