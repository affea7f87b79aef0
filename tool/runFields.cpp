/* runFields.cpp: the variables of a generated run and their values.
 *
 * Formula fields are made to be checked: each component of each variable has coefficients of its own, so that a mixed
 * up component, variable, node or step gives another number, and all numbers are exact in binary. Demo fields are made
 * to be looked at.
 *
 * In this file: the table of variables, the list of a run, formulas, demo fields, array names. */

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "tool/runModelInt.h"

namespace tool {

/* ---- the table: a row's number is its bit in the mask ---- */

const OutVarRow outVarRows[37] = {
    /* name                        key           dim, 0: a count of the run */
    { "velocity",                 "vel",         3 },
    { "pressure",                 "pres",        1 },
    { "temperature",              "temp",        1 },
    { "species",                  "spec",        0 },
    { "eddy_viscosity",           "eddy",        1 },
    { "eddy_viscosity",           "tdm",         1 },
    { "kinetic_energy",           "tke",         1 },
    { "velocity_scale",           "tvel",        1 },
    { "dissipation_rate",         "teps",        1 },
    { "eddy_frequency",           "tomega",      1 },
    { "auxiliary_output",         "aoutVec",     0 },
    { "mesh_displacement",        "aleDisp",     3 },
    { "mesh_velocity",            "aleVel",      3 },
    { "surface_y_plus",           "turbYPSrf",   1 },
    { "surface_film_coefficient", "turbFilm",    1 },
    { "viscoelastic_stress",      "vest",        6 },
    { "intermittency",            "tintc",       1 },
    { "transition_re_theta",      "treth",       1 },
    { "eddy_viscosity",           "sstEddy",     1 },
    { "eddy_time",                "ttau",        1 },
    { "sqrt_eddy_period",         "tgv",         1 },
    { "wall_shear_stress",        "wallShear",   3 },
    { "field",                    "field",       0 },
    { "mesh_displacement_midstep","aleDispHalf", 3 },
    { "levelset",                 "levelset",    1 },
    { "incident_radiation",       "incidentRad", 1 },
    { "relative_humidity",        "relHum",      1 },
    { "dewpoint_temperature",     "dewPoint",    1 },
    { "humidity_film_thickness",  "hWetWall",    1 },
    { "film",                     "film",        0 },
    { "density",                  "dens",        1 },
    { "mach_number",              "mach",        1 },
    { "design_topology",          "designTopo",  1 },
    { "topology_velocity",        "topoVel",     3 },
    { "topology_pressure",        "topoPres",    1 },
    { "topology_temperature",     "topoTemp",    1 },
    { "phasic_velocity",          "fieldVel",    3 },
};

enum { VEL = 0, PRES = 1, TEMP = 2, SPEC = 3, AOUT = 10, DISP = 11, DISP_HALF = 23, FIELD = 22, FILM = 29 };

/* ---- the run's list ---- */

static int rowOf(const std::string &name)
{
    for (int row = 0; row < 37; ++row)
        if (name == outVarRows[row].name || name == outVarRows[row].key) return row;
    throw std::invalid_argument("no such variable: " + name);
}

static int *countOf(RunSpec *spec, int row)
{
    switch (row) {
    case SPEC:  return &spec->nSpecs;
    case FIELD: return &spec->nFields;
    case FILM:  return &spec->nFilms;
    case AOUT:  return &spec->nAoutVecs;
    default:    return nullptr;
    }
}

void RunSpec::setVars(const std::string &list)
{
    mask = 0;
    for (size_t at = 0; at < list.size();) {
        const size_t end = std::min(list.find(',', at), list.size());
        const std::string item = list.substr(at, end - at);
        const size_t colon = std::min(item.find(':'), item.size());
        const std::string name = item.substr(0, colon), number = item.substr(std::min(colon + 1, item.size()));
        at = end + 1;
        if (name == "all") {
            for (int row = 0; row < 37; ++row) {
                mask |= uint64_t(1) << row;
                int *count = countOf(this, row);
                if (count && *count == 0) *count = 1;
            }
            continue;
        }
        const int row = rowOf(name);
        mask |= uint64_t(1) << row;
        int *count = countOf(this, row);
        if (!count && colon < item.size())
            throw std::invalid_argument("variable " + name + " has no number of members");
        if (!count) continue;
        if (number.find_first_not_of("0123456789") != std::string::npos || number.size() > 4
            || (number.empty() && colon < item.size()))
            throw std::invalid_argument("not a number of members: " + item);
        *count = number.empty() ? 1 : std::stoi(number);
    }
}

void RunModel::makeVars()
{
    if (spec.mask >> 37) throw std::invalid_argument("the mask has bits beyond the 37 variables");
    for (int row : {SPEC, FIELD, FILM, AOUT})
        if (*countOf(&spec, row) < 0) throw std::invalid_argument("a number of members must not be negative");
    if (spec.nSpecs > 9) throw std::invalid_argument("a run has at most 9 species");
    if (spec.omitFilms)  spec.nFilms  = spec.nSpecs;         /* what a reader takes if the key is not there */
    if (spec.omitFields) spec.nFields = spec.nFilms;

    for (int i = 0; i < spec.nSpecs;  ++i) speciesNames.push_back("gas_" + std::string(1, (char) ('A' + i)));
    for (int i = 0; i < spec.nFields; ++i) fieldNames.push_back("phase " + std::to_string(i + 1));
    for (int row = 0; row < 37; ++row) {
        if (!(spec.mask >> row & 1)) continue;
        const int *count = countOf(&spec, row);
        vars.push_back({row, outVarRows[row].name, outVarRows[row].key, count ? *count : outVarRows[row].dim});
    }
}

int RunModel::varOf(const std::string &name) const
{
    for (size_t v = 0; v < vars.size(); ++v)
        if (vars[v].name == name || vars[v].key == name) return (int) v;
    return -1;
}

/* ---- formulas ---- */

Formula RunModel::formula(int var, int comp) const
{
    const int row = vars[var].index;
    const auto coef = [&](int term) { return ((row * 7 + comp * 5 + term * 11) % 31 - 15) / 8.0; };
    Formula f = {row * 8 + comp / 128.0 + 0.125, coef(0), coef(1), coef(2), coef(3), coef(4)};
    if (row == DISP || row == DISP_HALF)                     /* small: the mesh must stay a mesh */
        f = {(row == DISP ? 0.25 : 0.5) + comp / 16.0, f.cx / 16, f.cy / 16, f.cz / 16, (comp + 1) / 8.0, f.cxs / 16};
    f.c0 += spec.offset;
    return f;
}

void RunModel::values(int var, int node, int step, double *comps) const
{
    const Place at = place(node);
    if (spec.fields == Fields::demo) return demoValues(vars[var].index, vars[var].dim, at, step, comps);
    for (int c = 0; c < vars[var].dim; ++c) {
        const Formula f = formula(var, c);
        const double *x = at.xyz;
        comps[c] = f.c0 + f.cx * x[0] + f.cy * x[1] + f.cz * x[2] + f.cs * step + f.cxs * x[0] * step;
    }
}

double RunModel::value(int var, int comp, int node, int step) const
{
    std::vector<double> comps(vars[var].dim);
    values(var, node, step, comps.data());
    return comps.at(comp);
}

/* ---- demo fields ---- */

namespace {

constexpr double pi = 3.14159265358979323846;

/* hot gas from the middle of the inlet: it wanders, rolls up and widens downstream; 1 where it is hottest */
double plume(double a, double v, double w, double t)
{
    const double v0 = a * (0.3 * std::sin(2 * pi * (1.5 * a - t)) + 0.14 * std::sin(2 * pi * (5 * a - 2 * t)));
    const double w0 = a * (0.3 * std::cos(2 * pi * (1.2 * a - t)) + 0.10 * std::cos(2 * pi * (4 * a - 2 * t)));
    const double width = 0.08 + 0.22 * a;
    return std::exp(-((v - v0) * (v - v0) + (w - w0) * (w - w0)) / (2 * width * width)) * (1 - 0.4 * a);
}

/* hot gas from five burners around a ring, carried along the swirl */
double flames(double a, double v, double w, double t)
{
    const double phase = 5 * (pi * v - 5.3 * a) + 2 * pi * t, width = 0.25 + 0.35 * a;
    const double around = std::pow(0.5 + 0.5 * std::cos(phase), 6 / (1 + 4 * a));
    return std::exp(-std::pow((w - 0.2 * a * std::sin(phase)) / width, 2)) * around * (1 - 0.4 * a);
}

}

/* v and w run from -1 to 1 across the channel; in a ring v is the angle and w the radius */
void RunModel::demoValues(int row, int dim, const Place &at, int step, double *comps) const
{
    const bool ring = spec.shape == Shape::annulus;
    const double t = nSteps() > 1 ? (double) step / nSteps() : 0;
    const double a = at.a, v = 2 * at.b - 1, w = 2 * at.c - 1;
    const double wall = ring ? 1 - w * w : (1 - v * v) * (1 - w * w);        /* 0 on walls, 1 in the middle */
    const double pulse = 1 + 0.15 * std::sin(2 * pi * (t - a));

    /* along the channel, to its left, up; in a ring along the axis, around, outwards */
    double along = 1.5 * wall * pulse, left, up;
    if (ring) {
        left = wall * (1.8 - 0.8 * a) * (1 + 0.2 * std::sin(3 * pi * v + 2 * pi * (2 * a - t)));
        up   = 0.35 * wall * std::cos(3 * pi * v + 2 * pi * (2 * a - t));
    }
    else {                                                                   /* two vortices that the bend drives */
        const double strength = 0.9 * std::exp(-std::pow((a - 0.6) / 0.3, 2)) * (1 + 0.3 * std::sin(2 * pi * t));
        left = strength * (1 - v * v) * (1 - v * v) * (1 - w * w) * (1 - 5 * w * w);
        up   = strength * 4 * v * (1 - v * v) * w * (1 - w * w) * (1 - w * w);
    }
    const double hot = ring ? flames(a, v, w, t) : plume(a, v, w, t);
    const double wave = 0.03 * std::sin(pi * a) * std::sin(2 * pi * (2 * a - t));
    const auto vector = [&](double s, double l, double u) {
        if (ring) {                                                          /* around is towards lower angles */
            comps[0] = s;
            comps[1] = u * at.cosine + l * at.sine;
            comps[2] = u * at.sine - l * at.cosine;
        }
        else {
            comps[0] = s * at.cosine - l * at.sine;
            comps[1] = s * at.sine + l * at.cosine;
            comps[2] = u;
        }
    };

    switch (row) {
    case VEL:  return vector(along, left, up);
    case PRES: {                                                             /* turning gas leans on the outer wall */
        const double lean = ring ? 60 * w : -80 * v * std::exp(-std::pow((a - 0.5) / 0.2, 2));
        comps[0] = 101325 + 400 * (1 - a) * pulse + lean;
        return;
    }
    case TEMP: comps[0] = 293 + 80 * hot + 4 * a; return;
    case DISP: case DISP_HALF: return vector(0, ring ? 0 : wave, ring ? wave : wave * 0.5);
    case SPEC: {
        double rest = 1;
        for (int c = 0; c < dim; ++c) {
            comps[c] = c == dim - 1 ? rest : 0.8 * rest * (c % 2 ? a * wall : hot);
            rest -= comps[c];
        }
        return;
    }
    default:
        if (dim == 3) return vector(along * 0.1 * (1 + row % 5), left * 0.1, up * 0.1);
        for (int c = 0; c < dim; ++c)
            comps[c] = (1 + row % 7) * (0.5 + 0.5 * wall * std::sin(2 * pi * (a * (1 + c % 3) - t) + row));
    }
}

/* ---- names that a person sees ---- */

std::vector<ShownArray> RunModel::shownArrays() const
{
    std::vector<ShownArray> shown;
    for (int v = 0; v < (int) vars.size(); ++v) {
        const Var &var = vars[v];
        switch (var.index) {
        case SPEC:
            for (int c = 0; c < var.dim; ++c) shown.push_back({speciesNames[c], v, c, 1});
            break;
        case FIELD:
            for (int c = 0; c < var.dim; ++c) shown.push_back({"-" + fieldNames[c], v, c, 1});
            break;
        case AOUT: case FILM:
            for (int c = 0; c < var.dim; ++c) shown.push_back({var.name + "_" + std::to_string(c + 1), v, c, 1});
            break;
        case DISP_HALF:
            shown.push_back({"mesh_displacement", v, 0, 3});
            break;
        default:
            shown.push_back({var.name, v, 0, var.dim});
        }
    }
    return shown;
}

}
