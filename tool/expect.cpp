/* expect.cpp: the expected blocks, groups, arrays and formulas of a generated run as JSON. */

#include "tool/expect.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <stdexcept>

#include "tool/runWriter.h"

namespace tool {

const char *expectHelp()
{
    return
        "The file of --expect is one JSON object:\n"
        "  log, problem, run, title, nNodes, nSds   of the run\n"
        "  steps, times      numbers and times of the output steps; a reader's own axis is 0, 1, 2, ...\n"
        "  moving            true if mesh_displacement moves the points at all steps but the first\n"
        "  blocks            in order: name, set, kind (\"surface\" or \"volume\"), cellType, nCells, nPoints\n"
        "  groups            ELMs, CBCs, OSFs, RSFs, SRSs: lists of {name, blocks}, blocks counted from 1\n"
        "  arrays            in order: name, variable, first (its first component there), components, formulas\n"
        "  bounds            xmin, xmax, ymin, ymax, zmin, zmax of all nodes at rest\n"
        "formulas has a row [c0, cx, cy, cz, cs, cxs] per component, and is null for demo fields:\n"
        "  value = c0 + cx*x + cy*y + cz*z + cs*s + cxs*x*s\n"
        "with x, y, z of the mesh at rest (as at the first step) and s the position of the step, from 0.\n";
}

namespace {

/* A JSON text grows item by item: commas and the nesting are kept here. */
class Json {
public:
    std::string text;

    Json &open (const char *key, char bracket) { next(key); text += bracket; first = true; return *this; }
    Json &close(char bracket)                  { text += bracket; first = false; return *this; }
    Json &raw  (const char *key, const std::string &value) { next(key); text += value; return *this; }
    Json &num  (const char *key, double value)
    {
        char digits[32];
        std::snprintf(digits, sizeof digits, "%.17g", value);
        return raw(key, digits);
    }
    Json &str  (const char *key, const std::string &value) { return raw(key, quoted(value)); }
    Json &line ()                              { text += first ? "\n" : ",\n"; first = true; return *this; }

private:
    bool first = true;

    static std::string quoted(const std::string &value)
    {
        std::string out = "\"";
        for (char c : value) {
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04x", (unsigned char) c);
            if (c == '"' || c == '\\') out += std::string("\\") + c;
            else if ((unsigned char) c < ' ') out += code;
            else out += c;
        }
        return out + "\"";
    }
    void next(const char *key)                         /* key: null inside a list */
    {
        if (!first) text += ", ";
        first = false;
        if (key) text += quoted(key) + ": ";
    }
};

void blocks(const RunModel &model, Json *json)
{
    const int nSfss = (int) model.sfss.size();
    json->line().open("blocks", '[');
    for (int b = 0; b < model.nBlocks(); ++b) {
        const bool surface = b < nSfss;
        json->line().open(nullptr, '{').str("name", model.blockName(b));
        json->str("set", surface ? model.sfss[b].name : model.vols[b - nSfss].name);
        json->str("kind", surface ? "surface" : "volume").num("cellType", model.cellType(b));
        json->num("nCells", surface ? model.sfss[b].nSrfs() : model.vols[b - nSfss].nElems());
        json->num("nPoints", (double) model.blockNodes(b).size()).close('}');
    }
    json->close(']');
}

void groups(const RunModel &model, Json *json)
{
    const struct { const char *key; Family family; } families[] = {
        {"ELMs", Family::elm}, {"CBCs", Family::cbc}, {"OSFs", Family::osf}, {"RSFs", Family::rsf},
        {"SRSs", Family::srs}};
    json->line().open("groups", '{');
    for (const auto &f : families) {
        json->line().open(f.key, '[');
        for (const ShownGroup &group : model.shownGroups(f.family)) {
            json->line().open(nullptr, '{').str("name", group.name).open("blocks", '[');
            for (int block : group.blocks) json->num(nullptr, block + 1);
            json->close(']').close('}');
        }
        json->close(']');
    }
    json->close('}');
}

void arrays(const RunModel &model, Json *json)
{
    json->line().open("arrays", '[');
    for (const ShownArray &array : model.shownArrays()) {
        json->line().open(nullptr, '{').str("name", array.name).str("variable", model.vars[array.var].name);
        json->num("first", array.first).num("components", array.nComps);
        if (model.spec.fields == Fields::demo) json->raw("formulas", "null");
        else {
            json->open("formulas", '[');
            for (int c = 0; c < array.nComps; ++c) {
                const Formula f = model.formula(array.var, array.first + c);
                json->open(nullptr, '[');
                for (double coef : {f.c0, f.cx, f.cy, f.cz, f.cs, f.cxs}) json->num(nullptr, coef);
                json->close(']');
            }
            json->close(']');
        }
        json->close('}');
    }
    json->close(']');
}

void bounds(const RunModel &model, Json *json)
{
    double low[3], high[3], xyz[3];
    model.crd(0, low);
    model.crd(0, high);
    for (int node = 1; node < model.nNodes; ++node) {
        model.crd(node, xyz);
        for (int d = 0; d < 3; ++d) {
            low[d]  = std::min(low[d],  xyz[d]);
            high[d] = std::max(high[d], xyz[d]);
        }
    }
    json->line().open("bounds", '[');
    for (int d = 0; d < 3; ++d) json->num(nullptr, low[d]).num(nullptr, high[d]);
    json->close(']');
}

}

std::string expectJson(const RunModel &model)
{
    const RunSpec &spec = model.spec;
    Json json;
    json.open(nullptr, '{');
    json.line().str("log", logFile(spec)).str("problem", spec.problem).num("run", spec.run).str("title", spec.title);
    json.line().num("nNodes", model.nNodes).num("nSds", spec.nSds);
    json.raw("moving", model.varOf("mesh_displacement") >= 0 ? "true" : "false");
    json.line().open("steps", '[');
    for (int step : spec.steps) json.num(nullptr, step);
    json.close(']').line().open("times", '[');
    for (int step = 0; step < model.nSteps(); ++step) json.num(nullptr, model.time(step));
    json.close(']');
    blocks(model, &json);
    groups(model, &json);
    arrays(model, &json);
    bounds(model, &json);
    json.close('}');
    return json.text + "\n";
}

void writeExpect(const RunModel &model, const std::string &fileName)
{
    std::ofstream file(fileName, std::ios::trunc);
    file << expectJson(model);
    file.close();
    if (!file) throw std::runtime_error("file " + fileName + " cannot be written");
}

}
