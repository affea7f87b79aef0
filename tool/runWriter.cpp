/* runWriter.cpp: the files of a generated run.
 *
 * The client information is always text; all other files are token streams in the storage form of the run. A table file
 * holds its columns in parts: ids first, then coordinates or connectivity, all in user ids. Rows are made block by
 * block while they are written, so a mesh is in memory once and a field never.
 *
 * In this file: table files, client information, decomposition, node lists, nodal output, the run as a whole. */

#include "tool/runWriter.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace tool {

namespace {

using IntRows  = TokenFile::Rows<int32_t>;
using RealRows = TokenFile::Rows<double>;

enum { INT_PART = 1, REAL_PART = 2 };

/* the families of surface groups: their lines, their files, and what a line has beyond that of all families */
struct SrfFamily { Family family; const char *keyword, *suffix, *own; };
const SrfFamily srfFamilies[] = {
    { Family::cbc, "CBC", ".cbc", " bcType 3 actType 1"                                   },
    { Family::osf, "OSF", ".osf", ""                                                      },
    { Family::rsf, "RSF", ".rsf", " aggl 1 agglCnt 4 agglAng 30 agglRad 0.5 bcType 2"     },
    { Family::srs, "SRS", ".srs", ""                                                      },
};

/* <data folder>/<problem>.<run>, the beginning of all names in it; a data file is told by the rest of its name */
std::string baseName(const RunSpec &spec) { return spec.problem + "." + std::to_string(spec.run); }
std::string dataBase(const RunSpec &spec) { return dataFolder(spec) + "/" + baseName(spec); }

/* ---- table files ---- */

void tableHead(TokenFile &file, int nParts, int nRows, int nCols)
{
    file.keyInt("nParts", nParts);
    file.keyInt("nRows", nRows);
    file.keyInt("nCols", nCols);
}

template <class Data> void intPart(TokenFile &file, int nCols, int nRows, const Data &data)
{
    file.keyInt("type", INT_PART);
    file.keyInt("nCols", nCols);
    file.keyInts("intVec", nCols, nRows, data);
}

/* node positions as user ids */
IntRows asUsrIds(const RunModel &model, const std::vector<int> &nodes, int nCols)
{
    return [&model, &nodes, nCols](int64_t first, int64_t n, int32_t *ids) {
        const int *node = nodes.data() + first * nCols;
        for (int64_t i = 0; i < n * nCols; ++i) ids[i] = model.usrIds[node[i]];
    };
}

void writeCoordinates(DataFiles &files, const RunModel &model)
{
    TokenFile file = files.make(".crd");
    tableHead(file, 2, model.nNodes, 4);
    intPart(file, 1, model.nNodes, model.usrIds.data());
    file.keyInt("type", REAL_PART);
    file.keyInt("nCols", 3);
    file.keyReals("realVec", 3, model.nNodes, RealRows([&](int64_t first, int64_t n, double *xyz) {
        for (int64_t i = 0; i < n; ++i) model.crd((int) (first + i), xyz + 3 * i);
    }));
    file.close();
}

/* a volume, or an element group of several volumes */
void writeElements(DataFiles &files, const RunModel &model, const std::string &suffix, const std::vector<int> &vols)
{
    VolSet all;
    const VolSet *set = &model.vols[vols[0]];
    if (vols.size() > 1) {
        all = *set;
        for (size_t v = 1; v < vols.size(); ++v) {
            const VolSet &more = model.vols[vols[v]];
            all.usrIds.insert(all.usrIds.end(), more.usrIds.begin(), more.usrIds.end());
            all.cnn.insert(all.cnn.end(), more.cnn.begin(), more.cnn.end());
        }
        set = &all;
    }
    TokenFile file = files.make(suffix);
    tableHead(file, 2, set->nElems(), set->nen + 1);
    intPart(file, 1, set->nElems(), set->usrIds.data());
    intPart(file, set->nen, set->nElems(), asUsrIds(model, set->cnn, set->nen));
    file.close();
}

/* the members of a group one behind the other: element ids, surface ids, connectivity */
SrfSet joined(const RunModel &model, const std::vector<int> &members)
{
    SrfSet all = model.sfss[members[0]];
    all.elems.clear();
    all.usrIds.clear();
    all.cnn.clear();
    for (int m : members) {
        const SrfSet &set = model.sfss[m];
        for (int e : set.elems) all.elems.push_back(model.vols[set.vol].usrIds[e]);
        all.usrIds.insert(all.usrIds.end(), set.usrIds.begin(), set.usrIds.end());
        all.cnn.insert(all.cnn.end(), set.cnn.begin(), set.cnn.end());
    }
    return all;
}

void writeNodes(DataFiles &files, const RunModel &model, const std::string &suffix, const NodeSet &set)
{
    const int nNodes = (int) set.nodes.size();
    TokenFile file = files.make(suffix);
    tableHead(file, 1, nNodes, 1);
    intPart(file, 1, nNodes, asUsrIds(model, set.nodes, 1));
    file.close();
}

void writePairs(DataFiles &files, const RunModel &model, const std::string &suffix, const NodeSet &set)
{
    TokenFile file = files.make(suffix);
    tableHead(file, 2, set.nPairs(), 3);
    intPart(file, 1, set.nPairs(), set.usrIds.data());
    intPart(file, 2, set.nPairs(), asUsrIds(model, set.nodes, 2));
    file.close();
}

/* the elements of a volume that an output element set has; one that has all of them uses the volume's own file */
std::string outElemsName(const OutElems &set, int id, size_t part)
{
    return set.whole ? ".vol" + std::to_string(set.parts[part].vol)
                     : ".oel" + std::to_string(id) + "_" + std::to_string(part);
}

void writeNodeSets(DataFiles &files, const RunModel &model)
{
    const auto numbered = [](const char *suffix, size_t n) { return suffix + std::to_string(n); };
    for (size_t i = 0; i < model.nbcs.size(); ++i) writeNodes(files, model, numbered(".nbc", i), model.nbcs[i]);
    for (size_t i = 0; i < model.pbcs.size(); ++i) writePairs(files, model, numbered(".pbc", i), model.pbcs[i]);
    if (model.spec.nodeSets) writeNodes(files, model, ".zbc", model.wall);
    for (size_t i = 0; i < model.oels.size(); ++i)
        for (size_t p = 0; !model.oels[i].whole && p < model.oels[i].parts.size(); ++p) {
            const OutElems::Part &part = model.oels[i].parts[p];
            std::vector<int> ids;
            for (int e : part.elems) ids.push_back(model.vols[part.vol].usrIds[e]);
            TokenFile file = files.make(outElemsName(model.oels[i], (int) i, p));
            tableHead(file, 1, (int) ids.size(), 1);
            intPart(file, 1, (int) ids.size(), ids.data());
            file.close();
        }
}

void writeSurfaces(DataFiles &files, const RunModel &model, const std::string &suffix, const std::vector<int> &members)
{
    const SrfSet set = joined(model, members);
    TokenFile file = files.make(suffix);
    tableHead(file, 3, set.nSrfs(), set.nSrfNodes + 2);
    intPart(file, 1, set.nSrfs(), set.elems.data());
    intPart(file, 1, set.nSrfs(), set.usrIds.data());
    intPart(file, set.nSrfNodes, set.nSrfs(), asUsrIds(model, set.cnn, set.nSrfNodes));
    file.close();
}

/* ---- client information ---- */

class ClientInfo {
public:
    explicit ClientInfo(const RunModel &run) : model(run), spec(run.spec) {}

    void write()
    {
        const std::string name = dataBase(spec) + ".cli";
        std::ofstream file(name, std::ios::trunc);
        head();
        sets();
        groups();
        nodeSets();
        names();
        line("END", "");
        file << text;
        file.close();
        if (!file) throw std::runtime_error("file " + name + " cannot be written");
    }

private:
    const RunModel &model;
    const RunSpec  &spec;
    std::string     text = "# client information of a generated run\n";

    void line(const std::string &keyword, const std::string &rest)
    {
        text += "#@ " + keyword + (rest.empty() ? "" : " ") + rest + "\n";
    }
    static std::string quoted(const std::string &name) { return "\"" + name + "\""; }
    static std::string num(const char *label, int64_t n) { return std::string(" ") + label + " " + std::to_string(n); }

    std::string file(const std::string &suffix) const
    {
        return spec.dataDir + "/" + baseName(spec) + suffix + formSuffix(spec.form);
    }
    std::string named(const std::string &suffix, int id, const std::string &name) const
    {
        return file(suffix + std::to_string(id)) + " " + quoted(name);
    }

    void head()
    {
        line("DATE", "Mon Mar 15 12:00:00 2021");
        line("VERSION", "2021.1");
        line("DIR", spec.dataDir);
        line("FMT", std::to_string(formOpt(spec.form)));
        line("NSDS", std::to_string(spec.nSds));
        line("TITLE", quoted(spec.title));
        line("SUBTITLE", quoted(""));
        line("BASE_UNIT", quoted("SI units"));
        line("PMC", "order 1 lump 0 damp 0 alpha 0.5 alphaMass 0.5 gamma 0.5");
        line("CRD", file(".crd") + num("nNodes", model.nNodes));
    }

    /* what the lines of all surface sets and groups have in common */
    static std::string srfNums(int64_t nSrfs, const SrfSet &set, const char *parent, int parentId)
    {
        return num("nSrfs", nSrfs) + num("type", set.type) + num("nSrfNodes", set.nSrfNodes) + num("quad", 1)
             + num(parent, parentId) + num("medium", 1);
    }

    /* as the lines tell it: after a renumbering another volume has the number, and the name counts */
    int numberOf(int vol) const { return spec.renumbered ? (vol + 1) % (int) model.vols.size() : vol; }

    void sets()
    {
        for (size_t v = 0; spec.lines == Lines::all && v < model.vols.size(); ++v) {
            const VolSet &vol = model.vols[v];
            line("VOL", named(".vol", (int) v, vol.name) + num("nElems", vol.nElems()) + num("type", vol.type)
                        + num("nen", vol.nen));
        }
        for (size_t s = 0; spec.lines != Lines::noSets && s < model.sfss.size(); ++s) {
            const SrfSet &set = model.sfss[s];
            line("SFS", named(".sfs", (int) s, set.name) + srfNums(set.nSrfs(), set, "vol", numberOf(set.vol))
                        + " volName " + quoted(model.vols[set.vol].name));
        }
        for (size_t e = 0; e < model.elms.size(); ++e) {
            const Group &elm = model.elms[e];
            int64_t nElems = 0;
            for (int v : elm.members) nElems += model.vols[v].nElems();
            const VolSet &vol = model.vols[elm.members[0]];
            line("CNN", named(".cnn", (int) e, elm.name) + num("nElems", nElems) + num("type", vol.type)
                        + num("nen", vol.nen) + " quad 1 medium 1 rff 0 thick 1 tol 0");
            if (spec.lines != Lines::all) continue;
            std::vector<std::string> names;
            for (int v : elm.members) names.push_back(model.vols[v].name);
            nameList("CNN.VOL", elm.name, names);
        }
    }

    /* names are read by counted characters: one blank between them, no more */
    void nameList(const std::string &keyword, const std::string &name, const std::vector<std::string> &members)
    {
        std::string rest = quoted(name) + " " + std::to_string(members.size());
        for (const std::string &member : members) rest += " " + quoted(member);
        line(keyword, rest);
    }

    void family(const SrfFamily &family)
    {
        const std::vector<Group> &list = model.groups(family.family);
        const std::string keyword = family.keyword;
        for (size_t g = 0; g < list.size(); ++g) {
            int64_t nSrfs = 0;
            std::vector<std::string> names;
            for (int s : list[g].members) {
                nSrfs += model.sfss[s].nSrfs();
                names.push_back(model.sfss[s].name);
            }
            const SrfSet &set = model.sfss[list[g].members[0]];
            line(keyword, named(family.suffix, (int) g, list[g].name) + srfNums(nSrfs, set, "elm", list[g].elm)
                          + family.own);
            if (spec.lines != Lines::noSets) nameList(keyword + ".SFS", list[g].name, names);
        }
    }

    void groups()
    {
        for (const SrfFamily &f : srfFamilies) family(f);
        for (size_t s = 0; spec.nameNeighbors && spec.lines != Lines::noSets && s < model.sfss.size(); ++s)
            if (model.sfss[s].neighbor >= 0)
                line("SFS.SFS", std::to_string(s) + " " + std::to_string(model.sfss[s].neighbor));
    }

    std::string nodeNums(const char *count, int n, int var) const { return num(count, n) + num("var", var); }

    void outElems(int id)
    {
        const OutElems &set = model.oels[id];
        const auto nums = [&](const OutElems::Part &part) {
            return num("nElems", (int64_t) part.elems.size()) + num("type", model.vols[part.vol].type)
                 + num("nen", part.nen) + num("quad", 1);
        };
        const auto fileOf = [&](size_t part) { return file(outElemsName(set, id, part)) + " " + quoted(set.name); };
        line("OEL", fileOf(0) + nums(set.parts[0]) + " elm 0 medium 1" + num("type", set.whole ? 2 : 1)
                    + num("nVols", (int64_t) set.parts.size()));
        for (size_t p = 0; p < set.parts.size(); ++p)
            line("OEL.VOL", fileOf(p) + nums(set.parts[p]) + num("vol", numberOf(set.parts[p].vol)) + " medium 1"
                            + " volName " + quoted(model.vols[set.parts[p].vol].name));
    }

    void nodeSets()
    {
        for (size_t i = 0; i < model.nbcs.size(); ++i)
            line("NBC", named(".nbc", (int) i, model.nbcs[i].name)
                        + nodeNums("nNodes", (int) model.nbcs[i].nodes.size(), model.nbcs[i].var));
        for (size_t i = 0; i < model.pbcs.size(); ++i)
            line("PBC", named(".pbc", (int) i, model.pbcs[i].name)
                        + nodeNums("nPairs", model.pbcs[i].nPairs(), model.pbcs[i].var));
        if (spec.nodeSets)
            line("ZBC", file(".zbc") + " " + quoted(model.wall.name)
                        + nodeNums("nNodes", (int) model.wall.nodes.size(), model.wall.var));
        for (size_t i = 0; i < model.oels.size(); ++i) outElems((int) i);
    }

    void names()
    {
        for (const std::string &name : model.speciesNames) line("SPC", " " + quoted(name) + " mass_fraction");
        for (const std::string &name : model.fieldNames)   line("MFD", " " + quoted(name) + " field 1");
    }
};

/* ---- decomposition ---- */

void writeDecomposition(DataFiles &files, const RunModel &model)
{
    std::vector<int> colors;
    for (const VolSet &vol : model.vols) colors.insert(colors.end(), vol.sds.begin(), vol.sds.end());

    TokenFile file = files.make(".ddc");
    file.keyInt("nSds", model.spec.nSds);
    file.keyInt("nElems", (int) colors.size());
    file.keyInts("color", 1, (int) colors.size(), colors.data());
    file.keyInt("nNodes", model.nNodes);
    file.keyInts("usrIds", 1, model.nNodes, model.usrIds.data());
    for (size_t sd = 0; sd < model.parts.size(); ++sd) {
        const std::vector<int> &nodes = model.parts[sd];
        file.keyInt("sdId", (int) sd);
        file.keyInt("nNodes", (int) nodes.size());
        file.keyInts("nodes", 1, (int) nodes.size(), nodes.data());
    }
    file.close();
}

/* ---- nodal output ---- */

void writePart(TokenFile &file, const RunModel &model, int step, const std::vector<int> &nodes)
{
    const RunSpec &spec = model.spec;
    const uint32_t low = (uint32_t) spec.mask & 0x7fffffffu, high = (uint32_t) (spec.mask >> 31);
    const bool twoWords = spec.twoWords || high != 0;
    const int  nNodes = (int) nodes.size();

    file.keyReal("time", model.time(step));
    file.keyInt("mask", twoWords ? -1 : (int) low);
    file.keyInt("nSpecs", spec.nSpecs);
    if (!spec.omitFilms)  file.keyInt("nFilms", spec.nFilms);
    if (!spec.omitFields) file.keyInt("nFields", spec.nFields);
    file.keyInt("nAoutVecs", spec.nAoutVecs);
    if (twoWords) {
        const int32_t masks[2] = {(int32_t) low, (int32_t) high};
        file.keyInts("masks", 2, 1, masks);
    }
    file.keyInt("nNodes", nNodes);

    /* readers step over every variable of the table: one that the run lacks stands there without rows */
    int row = 0;
    for (int v = 0; v < (int) model.vars.size(); ++v, ++row) {
        const Var &var = model.vars[v];
        for (; row < var.index; ++row) file.keyReals(outVarRows[row].key, outVarRows[row].dim, 0, nullptr);
        file.keyReals(var.key, var.dim, nNodes, RealRows([&](int64_t first, int64_t n, double *rows) {
            for (int64_t i = 0; i < n; ++i) model.values(v, nodes[first + i], step, rows + i * var.dim);
        }));
    }
}

void writeStep(DataFiles &files, const RunModel &model, int step)
{
    const std::string stem = "_" + std::to_string(model.spec.steps[step]) + "_";
    if (model.spec.merged) {
        TokenFile file = files.make(stem + "x.out");
        for (const auto &part : model.parts) writePart(file, model, step, part);
        file.close();
        return;
    }
    for (size_t p = 0; p < model.parts.size(); ++p) {
        TokenFile file = files.make(stem + std::to_string(p) + ".out");
        writePart(file, model, step, model.parts[p]);
        file.close();
    }
}

/* Nodal output, all families, and the log of time steps */
void writeOutputs(DataFiles &files, const RunModel &model)
{
    const RunSpec &spec = model.spec;
    for (int s = 0; s < model.nSteps(); ++s) writeStep(files, model, s);
    for (const FamSpec &fam : spec.families) writeFamily(files, model, fam);
    for (const SetFamSpec &fam : spec.setFamilies) writeSetFamily(files, model, fam);
    if (spec.top) writeTop(files, model);
}

/* ---- the run ---- */

void writeLog(const RunSpec &spec)
{
    std::ofstream file(logFile(spec), std::ios::trunc);
    file << "log of " << spec.title << "\n";
    file.close();
    if (!file) throw std::runtime_error("file " + logFile(spec) + " cannot be written");
}

}

std::string dataFolder(const RunSpec &spec) { return spec.dir + "/" + spec.dataDir; }
std::string logFile(const RunSpec &spec)    { return spec.dir + "/" + baseName(spec) + ".Log"; }

void writeRun(const RunModel &model)
{
    const RunSpec &spec = model.spec;
    fs::create_directories(dataFolder(spec));
    DataFiles files(dataBase(spec), spec.form);
    writeCoordinates(files, model);
    const auto numbered = [](const char *suffix, size_t n) { return suffix + std::to_string(n); };
    for (size_t v = 0; spec.lines == Lines::all && v < model.vols.size(); ++v)
        writeElements(files, model, numbered(".vol", v), {(int) v});
    for (size_t e = 0; e < model.elms.size(); ++e)
        writeElements(files, model, numbered(".cnn", e), model.elms[e].members);
    for (size_t s = 0; spec.lines != Lines::noSets && s < model.sfss.size(); ++s)
        writeSurfaces(files, model, numbered(".sfs", s), {(int) s});

    for (const SrfFamily &family : srfFamilies) {
        const std::vector<Group> &groups = model.groups(family.family);
        for (size_t g = 0; g < groups.size(); ++g)
            writeSurfaces(files, model, numbered(family.suffix, g), groups[g].members);
    }

    writeNodeSets(files, model);
    if (spec.nSds > 0) writeDecomposition(files, model);
    for (size_t g = 0; spec.osn && g < model.osfs.size(); ++g) writeNodeList(files, model, (int) g);
    writeOutputs(files, model);
    files.close();
    ClientInfo(model).write();
    writeLog(spec);
}

void writeRun(const RunSpec &spec) { writeRun(RunModel(spec)); }

void writeSteps(const RunModel &model)
{
    DataFiles files(dataBase(model.spec), model.spec.form, true);
    writeOutputs(files, model);
    files.close();
}

}
