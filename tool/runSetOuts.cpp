/* runSetOuts.cpp: the files of outputs on the nodes of surface sets, and the files that tell these nodes. */

#include "tool/runSetOuts.h"

#include <algorithm>
#include <stdexcept>

#include "tool/runModel.h"

namespace tool {

namespace {

/* ---- the tables: a row's number is its bit in SetFamSpec::rows ---- */

enum { N_SPECS = -1, N_FIELDS = -2 };

struct SetVar { const char *name, *key; int dim; };         /* dim below 0: a count */

const std::vector<SetVar> osfVars = {
    { "area",                        "area",      1 },
    { "mass_flux",                   "massFlux",  1 },
    { "momentum_flux",               "momFlux",   3 },
    { "traction",                    "trac",      3 },
    { "moment",                      "moment",    3 },
    { "convective_temperature_flux", "cnvhFlux",  1 },
    { "heat_flux",                   "heatFlux",  1 },
    { "convective_species_flux",     "cnvsFlux",  N_SPECS },
    { "species_flux",                "specFlux",  N_SPECS },
    { "convective_field_flux",       "cnvfFlux",  N_FIELDS },
    { "field_flux",                  "fieldFlux", N_FIELDS },
    { "radiative_heat_flux",         "radFlux",   1 },
};

const std::vector<SetVar> orfVars = {
    { "area", "area", 1 }, { "heat_flux", "heatFlux", 1 }, { "mean_radiant_temperature", "temp", 1 },
};

const std::vector<SetVar> oqfVars = { { "area", "area", 1 }, { "heat_flux", "heatFlux", 1 } };

const struct SetTable {
    const char                *ext;
    Family                     family;
    const std::vector<SetVar> *vars;
    bool                       hasCounts, hasParts;
} tables[] = {
    { "osf", Family::osf, &osfVars, true,  true  },
    { "orf", Family::rsf, &orfVars, false, true  },
    { "oqf", Family::srs, &oqfVars, false, false },
};

const SetTable &tableOf(const SetFamSpec &fam)
{
    for (const SetTable &table : tables)
        if (fam.ext == table.ext) return table;
    throw std::invalid_argument("no outputs on sets have the extension " + fam.ext);
}

/* ---- nodes ---- */

/* Sorted by user id, each once */
std::vector<int> nodesOfGroup(const RunModel &model, const Group &group)
{
    std::vector<int> nodes;
    for (int s : group.members) nodes.insert(nodes.end(), model.sfss[s].cnn.begin(), model.sfss[s].cnn.end());
    std::sort(nodes.begin(), nodes.end(), [&](int a, int b) { return model.usrIds[a] < model.usrIds[b]; });
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    return nodes;
}

/* Positions, in a list of nodes, of those that part p has: in an order that is not the list's */
std::vector<int> partPositions(const RunModel &model, const std::vector<int> &nodes, size_t p)
{
    std::vector<bool> has((size_t) model.nNodes);
    std::vector<int>  positions;
    for (int node : model.parts[p]) has[node] = true;
    for (int i = (int) nodes.size() - 1; i >= 0; --i)
        if (has[nodes[i]]) positions.push_back(i);
    return positions;
}

double partValue(int set, int row, int comp, int node, int step, size_t part)
{
    return 1 + row * 8 + comp / 8. + node / 64. + set * 32 + step * 16 + (double) part * 0.5;
}

/* ---- files ---- */

void writePart(TokenFile &file, const RunModel &model, const SetFamSpec &fam, int set, int step, size_t part,
               const std::vector<int> &nodes)
{
    const SetTable &table = tableOf(fam);
    uint64_t        mask = 0;
    for (int row : setOutVars(fam)) mask |= uint64_t(1) << row;
    file.keyReal("time", model.time(step));
    file.keyInt("mask", (int) mask);
    if (table.hasCounts) {
        file.keyInt("nSpecs", model.spec.nSpecs);
        file.keyInt("nFields", model.spec.nFields);
    }
    file.keyInt("nNodes", (int) nodes.size());
    /* readers step over all rows below the one that they want: one that is not wanted stands there without nodes */
    for (int row = 0; row < (int) table.vars->size() && mask >> row; ++row) {
        const int dim = setOutDim(model, fam, row), n = mask >> row & 1 ? (int) nodes.size() : 0;
        file.keyReals((*table.vars)[row].key, dim, n, TokenFile::Rows<double>([&](int64_t first, int64_t m, double *v) {
            for (int64_t i = 0; i < m; ++i)
                for (int k = 0; k < dim; ++k) *v++ = partValue(set, row, k, nodes[first + i], step, part);
        }));
    }
}

/* The rows of part p of a set's outputs */
std::vector<int> rowsOf(const RunModel &model, const std::vector<int> &nodes, size_t p)
{
    std::vector<int> rows;
    for (int i : partPositions(model, nodes, p)) rows.push_back(nodes[i]);
    return rows;
}

void writeStep(DataFiles &files, const RunModel &model, const SetFamSpec &fam, int set, int step)
{
    const std::vector<int> nodes = setOutNodes(model, fam, set);
    const std::string      stem = "_" + std::to_string(model.spec.steps[step]) + "_" + std::to_string(set);
    if (!tableOf(fam).hasParts) {
        TokenFile file = files.make(stem + "." + fam.ext);
        writePart(file, model, fam, set, step, 0, nodes);
        file.close();
    } else if (model.spec.merged) {
        TokenFile file = files.make(stem + "_x." + fam.ext);
        for (size_t p = 0; p < model.parts.size(); ++p)
            writePart(file, model, fam, set, step, p, rowsOf(model, nodes, p));
        file.close();
    } else {
        for (size_t p = 0; p < model.parts.size(); ++p) {
            TokenFile file = files.make(stem + "_" + std::to_string(p) + "." + fam.ext);
            writePart(file, model, fam, set, step, p, rowsOf(model, nodes, p));
            file.close();
        }
    }
}

/* The user ids of each part's rows, in a file of its own */
void writePartIds(DataFiles &files, const RunModel &model, const SetFamSpec &fam, int set)
{
    const std::vector<int> nodes = setOutNodes(model, fam, set);
    for (size_t p = 0; p < model.parts.size(); ++p) {
        std::vector<int> ids;
        for (int node : rowsOf(model, nodes, p)) ids.push_back(model.usrIds[node]);
        TokenFile file = files.make("_" + std::to_string(set) + "_" + std::to_string(p) + ".orn");
        file.keyInt("nNodes", (int) ids.size());
        file.keyInts("usrIds", 1, (int) ids.size(), ids.data());
        file.close();
    }
}

}

std::vector<int> setOutVars(const SetFamSpec &fam)
{
    std::vector<int> list;
    for (int row = 0; row < (int) tableOf(fam).vars->size(); ++row)
        if (fam.rows >> row & 1) list.push_back(row);
    return list;
}

const char *setOutName(const SetFamSpec &fam, int row) { return tableOf(fam).vars->at(row).name; }

int setOutDim(const RunModel &model, const SetFamSpec &fam, int row)
{
    const int dim = tableOf(fam).vars->at(row).dim;
    return dim == N_SPECS ? model.spec.nSpecs : dim == N_FIELDS ? model.spec.nFields : dim;
}

int nSetOutSets(const RunModel &model, const SetFamSpec &fam) { return (int) model.groups(tableOf(fam).family).size(); }

std::vector<int> setOutNodes(const RunModel &model, const SetFamSpec &fam, int set)
{
    return nodesOfGroup(model, model.groups(tableOf(fam).family).at(set));
}

double setOutValue(const RunModel &model, const SetFamSpec &fam, int set, int row, int comp, int node, int step)
{
    if (!tableOf(fam).hasParts) return partValue(set, row, comp, node, step, 0);
    double sum = 0;
    for (size_t p = 0; p < model.parts.size(); ++p)
        if (std::count(model.parts[p].begin(), model.parts[p].end(), node))
            sum += partValue(set, row, comp, node, step, p);
    return sum;
}

void writeSetFamily(DataFiles &files, const RunModel &model, const SetFamSpec &fam)
{
    for (int set = 0; set < nSetOutSets(model, fam); ++set) {
        if (fam.onlySet >= 0 && set != fam.onlySet) continue;
        if (fam.ext == "orf") writePartIds(files, model, fam, set);
        for (int step = 0; step < model.nSteps(); ++step) writeStep(files, model, fam, set, step);
    }
}

bool isSetOutKey(const std::string &key)
{
    for (const SetTable &table : tables)
        for (const SetVar &var : *table.vars)
            if (key == var.key) return true;
    return false;
}

void writeNodeList(DataFiles &files, const RunModel &model, int set)
{
    const std::vector<int> nodes = nodesOfGroup(model, model.osfs.at(set));
    std::vector<int>       ids;
    for (int node : nodes) ids.push_back(model.usrIds[node]);
    TokenFile file = files.make("_" + std::to_string(set) + ".osn");
    file.keyInt("nSds", model.spec.nSds);
    file.keyInt("nNodes", (int) ids.size());
    file.keyInts("usrIds", 1, (int) ids.size(), ids.data());
    bool hasParts = false;                                      /* they stand there only where results need them */
    for (const SetFamSpec &fam : model.spec.setFamilies) hasParts = hasParts || fam.ext == "osf";
    for (int sd = 0; hasParts && sd < model.spec.nSds; ++sd) {
        const std::vector<int> positions = partPositions(model, nodes, (size_t) sd);
        file.keyInt("sdId", sd);
        file.keyInt("nNodes", (int) positions.size());
        file.keyInts("nodes", 1, (int) positions.size(), positions.data());
    }
    file.close();
}

}
