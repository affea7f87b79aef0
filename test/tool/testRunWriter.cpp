/* testRunWriter.cpp: the files of a run hold what the model says, in the layout of a real run. */

#include "test/testUtil.h"
#include "test/tool/forms.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

#include "tool/runWriter.h"

using namespace tool;
namespace fs = std::filesystem;

static Place dataFile(const RunSpec &spec, const std::string &tail)
{
    return placeOf(spec.form, dataFolder(spec) + "/" + spec.problem + "." + std::to_string(spec.run), tail);
}

static std::vector<Item> items(const RunModel &model, const std::string &tail)
{
    return readItems(dataFile(model.spec, tail));
}

static std::vector<std::string> words(const std::string &text)
{
    std::istringstream in(text);
    std::vector<std::string> found;
    for (std::string word; in >> word;) found.push_back(word);
    return found;
}

static std::vector<std::string> cliLines(const std::string &fileName)
{
    std::istringstream in(testRead(fileName));
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line) && line != "#@ END";)
        if (line.compare(0, 3, "#@ ") == 0) lines.push_back(line.substr(3));
    return lines;
}

static std::string cliName(const RunSpec &spec)
{
    return dataFolder(spec) + "/" + spec.problem + "." + std::to_string(spec.run) + ".cli";
}

static std::vector<int> asIds(const RunModel &model, std::vector<int> nodes)
{
    for (int &node : nodes) node = model.usrIds[node];
    return nodes;
}

/* ---- table files ---- */

/* the parts' columns after the head of a table file */
static void checkTable(const std::vector<Item> &table, int nRows, const std::vector<int> &partCols)
{
    std::vector<std::string> keys = {"nParts", "nRows", "nCols"};
    int nCols = 0;
    for (int cols : partCols) {
        keys.insert(keys.end(), {"type", "nCols", "intVec"});
        nCols += cols;
    }
    if (table.size() > 8 && table[8].key == "realVec") keys[8] = "realVec";
    ASSERT_EQ(keysOf(table), keys);
    EXPECT_EQ(table[0].ints[0], (int) partCols.size());
    EXPECT_EQ(table[1].ints[0], nRows);
    EXPECT_EQ(table[2].ints[0], nCols);
    for (size_t p = 0; p < partCols.size(); ++p) {
        EXPECT_EQ(table[4 + 3 * p].ints[0], partCols[p]);
        EXPECT_EQ(table[5 + 3 * p].nCols, partCols[p]);
        EXPECT_EQ(table[5 + 3 * p].nRows, nRows);
    }
}

static void checkElements(const RunModel &model, const std::string &suffix, const std::vector<int> &vols)
{
    SCOPED_TRACE(suffix);
    std::vector<int> ids, cnn;
    for (int v : vols) {
        ids.insert(ids.end(), model.vols[v].usrIds.begin(), model.vols[v].usrIds.end());
        const std::vector<int> more = asIds(model, model.vols[v].cnn);
        cnn.insert(cnn.end(), more.begin(), more.end());
    }
    const std::vector<Item> table = items(model, suffix);
    checkTable(table, (int) ids.size(), {1, model.vols[vols[0]].nen});
    EXPECT_TRUE(table.at(5).ints == ids);
    EXPECT_TRUE(table.at(8).ints == cnn);
}

static void checkSurfaces(const RunModel &model, const std::string &suffix, const std::vector<int> &sets)
{
    SCOPED_TRACE(suffix);
    std::vector<int> elems, ids, cnn;
    for (int s : sets) {
        const SrfSet &set = model.sfss[s];
        for (int e : set.elems) elems.push_back(model.vols[set.vol].usrIds[e]);
        ids.insert(ids.end(), set.usrIds.begin(), set.usrIds.end());
        const std::vector<int> more = asIds(model, set.cnn);
        cnn.insert(cnn.end(), more.begin(), more.end());
    }
    const std::vector<Item> table = items(model, suffix);
    checkTable(table, (int) ids.size(), {1, 1, model.sfss[sets[0]].nSrfNodes});
    EXPECT_TRUE(table.at(5).ints == elems);
    EXPECT_TRUE(table.at(8).ints == ids);
    EXPECT_TRUE(table.at(11).ints == cnn);
}

static void checkMeshFiles(const RunModel &model)
{
    const std::vector<Item> table = items(model, ".crd");
    checkTable(table, model.nNodes, {1, 3});
    EXPECT_TRUE(table.at(5).ints == model.usrIds);
    for (int node = 0; node < model.nNodes; ++node) {
        double xyz[3];
        model.crd(node, xyz);
        for (int d = 0; d < 3; ++d) ASSERT_EQ(table.at(8).reals[3 * node + d], xyz[d]);
    }
    const auto numbered = [](const char *suffix, size_t i) { return suffix + std::to_string(i); };
    for (size_t v = 0; v < model.vols.size(); ++v) checkElements(model, numbered(".vol", v), {(int) v});
    for (size_t e = 0; e < model.elms.size(); ++e) checkElements(model, numbered(".cnn", e), model.elms[e].members);
    for (size_t s = 0; s < model.sfss.size(); ++s) checkSurfaces(model, numbered(".sfs", s), {(int) s});
    for (size_t g = 0; g < model.cbcs.size(); ++g) checkSurfaces(model, numbered(".cbc", g), model.cbcs[g].members);
    for (size_t g = 0; g < model.osfs.size(); ++g) checkSurfaces(model, numbered(".osf", g), model.osfs[g].members);
    for (size_t g = 0; g < model.rsfs.size(); ++g) checkSurfaces(model, numbered(".rsf", g), model.rsfs[g].members);
    for (size_t g = 0; g < model.srss.size(); ++g) checkSurfaces(model, numbered(".srs", g), model.srss[g].members);
}

static void checkNodeSets(const RunModel &model)
{
    for (size_t i = 0; i < model.nbcs.size(); ++i) {
        const std::vector<Item> table = items(model, ".nbc" + std::to_string(i));
        checkTable(table, (int) model.nbcs[i].nodes.size(), {1});
        EXPECT_TRUE(table.at(5).ints == asIds(model, model.nbcs[i].nodes));
    }
    for (size_t i = 0; i < model.pbcs.size(); ++i) {
        const std::vector<Item> table = items(model, ".pbc" + std::to_string(i));
        checkTable(table, model.pbcs[i].nPairs(), {1, 2});
        EXPECT_TRUE(table.at(5).ints == model.pbcs[i].usrIds);
        EXPECT_TRUE(table.at(8).ints == asIds(model, model.pbcs[i].nodes));
    }
    const std::vector<Item> wall = items(model, ".zbc");
    checkTable(wall, (int) model.wall.nodes.size(), {1});
    EXPECT_TRUE(wall.at(5).ints == asIds(model, model.wall.nodes));
    for (size_t i = 0; i < model.oels.size(); ++i)
        for (size_t p = 0; !model.oels[i].whole && p < model.oels[i].parts.size(); ++p) {
            const OutElems::Part &part = model.oels[i].parts[p];
            const std::vector<Item> table = items(model, ".oel" + std::to_string(i) + "_" + std::to_string(p));
            std::vector<int> ids;
            for (int e : part.elems) ids.push_back(model.vols[part.vol].usrIds[e]);
            checkTable(table, (int) ids.size(), {1});
            EXPECT_TRUE(table.at(5).ints == ids);
        }
}

static void checkDecomposition(const RunModel &model)
{
    const std::vector<Item> ddc = items(model, ".ddc");
    std::vector<std::string> keys = {"nSds", "nElems", "color", "nNodes", "usrIds"};
    for (int sd = 0; sd < model.spec.nSds; ++sd) keys.insert(keys.end(), {"sdId", "nNodes", "nodes"});
    ASSERT_EQ(keysOf(ddc), keys);
    EXPECT_EQ(ddc[0].ints[0], model.spec.nSds);

    std::vector<int> sds;
    for (const VolSet &vol : model.vols) sds.insert(sds.end(), vol.sds.begin(), vol.sds.end());
    EXPECT_EQ(ddc[1].ints[0], (int) sds.size());
    EXPECT_TRUE(ddc[2].ints == sds);
    EXPECT_EQ(ddc[3].ints[0], model.nNodes);
    EXPECT_TRUE(ddc[4].ints == model.usrIds);
    for (const Item &item : ddc)
        if (item.nCols >= 0) { EXPECT_EQ(item.nCols, 1); }

    std::set<int> covered;
    for (int sd = 0; sd < model.spec.nSds; ++sd) {
        EXPECT_EQ(ddc[5 + 3 * sd].ints[0], sd);
        EXPECT_EQ(ddc[6 + 3 * sd].ints[0], (int) model.parts[sd].size());
        EXPECT_TRUE(ddc[7 + 3 * sd].ints == model.parts[sd]);
        covered.insert(ddc[7 + 3 * sd].ints.begin(), ddc[7 + 3 * sd].ints.end());
    }
    EXPECT_EQ((int) covered.size(), model.nNodes);
}

static void checkNodeLists(const RunModel &model)
{
    for (size_t g = 0; g < model.osfs.size(); ++g) {
        const std::vector<Item> osn = items(model, "_" + std::to_string(g) + ".osn");
        std::set<int> nodes;
        for (int s : model.osfs[g].members)
            for (int id : asIds(model, model.sfss[s].cnn)) nodes.insert(id);
        ASSERT_EQ(keysOf(osn), (std::vector<std::string>{"nSds", "nNodes", "usrIds"}));
        EXPECT_EQ(osn[0].ints[0], model.spec.nSds);
        EXPECT_EQ(osn[1].ints[0], (int) nodes.size());
        EXPECT_EQ(osn[2].nCols, 1);
        EXPECT_TRUE(osn[2].ints == std::vector<int>(nodes.begin(), nodes.end()));
    }
}

/* ---- nodal output ---- */

static std::vector<std::string> headKeys(const RunSpec &spec)
{
    std::vector<std::string> keys = {"time", "mask", "nSpecs"};
    if (!spec.omitFilms)  keys.push_back("nFilms");
    if (!spec.omitFields) keys.push_back("nFields");
    keys.push_back("nAoutVecs");
    if (spec.twoWords || spec.mask >> 31) keys.push_back("masks");
    keys.push_back("nNodes");
    return keys;
}

/* Checks one part of a step that begins at *at, and moves *at behind it. */
static void checkPart(const RunModel &model, int step, const std::vector<int> &part, const std::vector<Item> &out,
                      size_t *at)
{
    const RunSpec &spec = model.spec;
    const std::vector<std::string> head = headKeys(spec);
    std::map<std::string, const Item *> found;
    for (const std::string &key : head) {
        ASSERT_LT(*at, out.size());
        ASSERT_EQ(out[*at].key, key);
        found[key] = &out[(*at)++];
    }
    EXPECT_EQ(found["time"]->reals[0], model.time(step));
    EXPECT_EQ(found["nSpecs"]->ints[0], spec.nSpecs);
    EXPECT_EQ(found["nAoutVecs"]->ints[0], spec.nAoutVecs);
    EXPECT_EQ(found["nNodes"]->ints[0], (int) part.size());
    if (found.count("nFilms"))  { EXPECT_EQ(found["nFilms"]->ints[0], spec.nFilms); }
    if (found.count("nFields")) { EXPECT_EQ(found["nFields"]->ints[0], spec.nFields); }

    /* every row of the table stands there, up to the last variable; those of the run with their values */
    const int last = model.vars.empty() ? -1 : model.vars.back().index;
    for (int row = 0; row <= last; ++row) {
        ASSERT_LT(*at, out.size());
        const Item &item = out[(*at)++];
        ASSERT_EQ(item.key, outVarRows[row].key);
        if (!(spec.mask >> row & 1)) {
            EXPECT_TRUE(item.reals.empty());
            continue;
        }
        int var = 0;
        while (model.vars[var].index != row) ++var;
        const int dim = model.vars[var].dim;
        ASSERT_EQ(item.nCols, dim);
        ASSERT_EQ(item.nRows, (int) part.size());
        for (size_t i = 0; i < part.size(); ++i)
            for (int c = 0; c < dim; ++c)
                ASSERT_EQ(item.reals[i * dim + c], model.value(var, c, part[i], step)) << item.key;
    }
}

static void checkOutput(const RunModel &model)
{
    for (int step = 0; step < model.nSteps(); ++step) {
        const std::string base = "_" + std::to_string(model.spec.steps[step]) + "_";
        size_t at = 0;
        std::vector<Item> out;
        if (model.spec.merged) {
            out = items(model, base + "x.out");
            for (const auto &part : model.parts) checkPart(model, step, part, out, &at);
            EXPECT_EQ(at, out.size());
            EXPECT_FALSE(exists(dataFile(model.spec, base + "0.out")));
            continue;
        }
        for (size_t p = 0; p < model.parts.size(); ++p) {
            at  = 0;
            out = items(model, base + std::to_string(p) + ".out");
            checkPart(model, step, model.parts[p], out, &at);
            EXPECT_EQ(at, out.size());
        }
        EXPECT_FALSE(exists(dataFile(model.spec, base + "x.out")));
    }
}

/* ---- whole runs ---- */

TEST(runWriter, allFilesHoldWhatTheModelSays)
{
    for (const auto &f : forms)
        for (bool merged : {false, true})
            for (Mesh mesh : {Mesh::hex, Mesh::tet10, Mesh::bubble, Mesh::mixed}) {
                SCOPED_TRACE(f.name);
                SCOPED_TRACE(merged ? "merged" : "a file per part");
                SCOPED_TRACE((int) mesh);
                RunSpec spec;
                spec.dir       = "runs/of a test";
                spec.run       = 12;
                spec.form      = f.form;
                spec.merged    = merged;
                spec.mesh      = mesh;
                spec.nx        = 6;
                spec.nVols     = 3;
                spec.nSds      = 3;
                spec.scattered = mesh != Mesh::hex;
                spec.emptySets = mesh != Mesh::tet10;
                spec.nodeSets  = true;
                spec.setVars("velocity,species:3,mesh_displacement,film:2,topology_velocity");
                spec.setSteps(2, 5, 10);
                const RunModel model(spec);
                writeRun(model);
                EXPECT_TRUE(fs::exists("runs/of a test/pipe.12.Log"));
                checkMeshFiles(model);
                checkNodeSets(model);
                checkDecomposition(model);
                checkNodeLists(model);
                checkOutput(model);
                fs::remove_all("runs");
            }
}

TEST(runWriter, stepsAreAddedToARunThatIsThere)
{
    for (const auto &f : forms) {
        SCOPED_TRACE(f.name);
        RunSpec spec;
        spec.form = f.form;
        spec.nSds = 2;
        const RunModel first(spec);
        writeRun(first);

        spec.steps  = {7};
        spec.offset = 4096;
        const RunModel second(spec);
        EXPECT_EQ(second.value(0, 2, 5, 0), first.value(0, 2, 5, 0) + 4096);
        writeSteps(second);
        checkOutput(second);
        checkOutput(first);
        checkMeshFiles(first);
        checkDecomposition(first);

        spec.steps = {0};                              /* over the one that is there */
        const RunModel again(spec);
        writeSteps(again);
        checkOutput(again);
        checkOutput(second);
        fs::remove_all(dataFolder(spec));
    }
}

TEST(runWriter, masksAndHeadersFollowTheVariables)
{
    const struct { uint64_t mask; bool two; bool omitFilms, omitFields; int word, masks[2]; } cases[] = {
        {7,                     false, false, false, 7,          {0, 0}},
        {7,                     true,  false, false, -1,         {7, 0}},
        {0,                     false, false, false, 0,          {0, 0}},
        {0x7fffffff,            false, true,  true,  0x7fffffff, {0, 0}},
        {uint64_t(1) << 31,     false, true,  false, -1,         {0, 1}},
        {uint64_t(0x21) << 31 | 5, false, false, true, -1,       {5, 0x21}},
        {(uint64_t(1) << 37) - 1,  false, false, false, -1,      {0x7fffffff, 0x3f}},
    };
    for (const auto &f : forms)
        for (const auto &c : cases) {
            SCOPED_TRACE(f.name);
            SCOPED_TRACE(c.mask);
            RunSpec spec;
            spec.form = f.form;
            spec.mask = c.mask;
            spec.twoWords   = c.two;
            spec.omitFilms  = c.omitFilms;
            spec.omitFields = c.omitFields;
            spec.nSpecs = spec.nFields = spec.nFilms = spec.nAoutVecs = 2;
            const RunModel model(spec);
            writeRun(model);
            const std::vector<Item> out = items(model, "_0_0.out");
            EXPECT_EQ(out.at(1).key, "mask");
            EXPECT_EQ(out.at(1).ints[0], c.word);
            const auto masks = std::find_if(out.begin(), out.end(), [](const Item &i) { return i.key == "masks"; });
            EXPECT_EQ(masks != out.end(), c.word == -1);
            if (masks != out.end()) {
                EXPECT_EQ(masks->nCols, 2);
                EXPECT_EQ(masks->nRows, 1);
                EXPECT_EQ(masks->ints, (std::vector<int>{c.masks[0], c.masks[1]}));
            }
            checkOutput(model);
        }
}

TEST(runWriter, aRunWithoutSubdomainsHasNoDecomposition)
{
    RunSpec spec;
    spec.nSds = 0;
    const RunModel model(spec);
    writeRun(model);
    EXPECT_FALSE(exists(dataFile(spec, ".ddc")));
    EXPECT_TRUE(exists(dataFile(spec, "_0_0.out")));
    checkOutput(model);
}

TEST(runWriter, filesThatAreNotWantedAreNotThere)
{
    RunSpec spec;
    spec.osn = false;
    spec.steps.clear();
    writeRun(spec);
    for (const auto &entry : fs::directory_iterator(dataFolder(spec))) {
        const std::string name = entry.path().filename().string();
        EXPECT_EQ(name.find(".osn"), std::string::npos);
        EXPECT_EQ(name.find(".out"), std::string::npos);
    }
}

/* A form writes its own files and no others: those of the container lie in it, without folder and suffix. */
TEST(runWriter, filesHaveTheSuffixOfTheForm)
{
    for (const auto &f : forms) {
        SCOPED_TRACE(f.name);
        RunSpec spec;
        spec.dir  = f.name;
        spec.form = f.form;
        writeRun(spec);
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(dataFolder(spec))) {
            const std::string name = entry.path().filename().string(), suffix = f.suffix;
            if (name == "pipe.1.cli") continue;
            EXPECT_EQ(kindOf(entry.path().string()), f.kind);
            ASSERT_EQ(name.substr(name.size() - suffix.size()), suffix);
            names.push_back(name.substr(0, name.size() - suffix.size()));
        }
        EXPECT_EQ(kindOf(cliName(spec)), "text");
        EXPECT_EQ(kindOf(logFile(spec)), "text");
        if (f.form == Form::container) {
            EXPECT_EQ(names, (std::vector<std::string>{"pipe.1"}));
            names = membersOf(dataFolder(spec) + "/pipe.1.C");
        }
        const std::set<std::string> sorted(names.begin(), names.end());
        const std::set<std::string> expected = {
            "pipe.1.cbc0", "pipe.1.cbc1", "pipe.1.cbc2", "pipe.1.cbc3", "pipe.1.cnn0", "pipe.1.crd", "pipe.1.ddc",
            "pipe.1.osf0", "pipe.1.rsf0", "pipe.1.sfs0", "pipe.1.sfs1", "pipe.1.sfs2", "pipe.1.sfs3", "pipe.1.srs0",
            "pipe.1.vol0", "pipe.1_0.osn", "pipe.1_0_0.out"};
        EXPECT_EQ(sorted, expected);
    }
}

/* Older runs: what has no lines has no files */
TEST(runWriter, withoutLinesOfSets)
{
    for (Lines lines : {Lines::noVolumes, Lines::noSets}) {
        RunSpec spec;
        spec.dir      = lines == Lines::noSets ? "no sets" : "no volumes";
        spec.nVols    = 2;
        spec.lines    = lines;
        spec.nodeSets = true;
        const RunModel model(spec);
        writeRun(model);
        std::map<std::string, int> counts;
        for (const std::string &line : cliLines(cliName(spec))) ++counts[words(line)[0]];
        EXPECT_EQ(counts.count("VOL"), 0u);
        EXPECT_EQ(counts.count("CNN.VOL"), 0u);
        EXPECT_EQ(counts["CNN"], 2);
        EXPECT_EQ(counts["OEL.VOL"], 1);
        EXPECT_EQ(counts.count("SFS"), lines == Lines::noSets ? 0u : 1u);
        EXPECT_EQ(counts.count("CBC.SFS"), lines == Lines::noSets ? 0u : 1u);
        EXPECT_EQ(counts.count("SFS.SFS"), lines == Lines::noSets ? 0u : 1u);
        EXPECT_EQ(counts["CBC"], (int) model.cbcs.size());
        EXPECT_FALSE(exists(dataFile(spec, ".vol0")));
        EXPECT_EQ(exists(dataFile(spec, ".sfs0")), lines != Lines::noSets);
        checkNodeSets(model);
        for (int e : {0, 1}) checkElements(model, ".cnn" + std::to_string(e), {e});
        for (size_t g = 0; g < model.cbcs.size(); ++g)
            checkSurfaces(model, ".cbc" + std::to_string(g), model.cbcs[g].members);
    }
}

TEST(runWriter, renumberedVolumesAreToldByName)
{
    RunSpec spec;
    spec.nVols = 3;
    spec.nodeSets = spec.renumbered = true;
    const RunModel model(spec);
    writeRun(model);
    size_t set = 0, part = 0;
    for (const std::string &line : cliLines(cliName(spec))) {
        const std::vector<std::string> w = words(line);
        if (w[0] != "SFS" && w[0] != "OEL.VOL") continue;
        SCOPED_TRACE(line);
        const int vol = w[0] == "SFS" ? model.sfss[set++].vol : (int) (part++ % 3);
        EXPECT_NE(line.find(" vol " + std::to_string((vol + 1) % 3) + " medium"), std::string::npos);
        EXPECT_NE(line.find(" volName \"" + model.vols[vol].name + "\""), std::string::npos);
    }
    EXPECT_EQ(set, model.sfss.size());
    EXPECT_EQ(part, 6u);
}

TEST(runWriter, dataBesideTheLog)
{
    RunSpec spec;
    spec.dir     = "here";
    spec.dataDir = ".";
    writeRun(spec);
    EXPECT_TRUE(fs::exists("here/pipe.1.Log"));
    EXPECT_TRUE(fs::exists("here/pipe.1.crd.B"));
    EXPECT_NE(testRead("here/pipe.1.cli").find("#@ CRD ./pipe.1.crd.B nNodes 45\n"), std::string::npos);
}

TEST(runWriter, aFolderThatCannotBeMadeIsAFailure)
{
    testWrite("file", "no folder");
    RunSpec spec;
    spec.dir = "file";
    EXPECT_THROW(writeRun(spec), std::exception);
}

/* ---- client information ---- */

/* the texts between quotes */
static std::vector<std::string> quotedIn(const std::string &line)
{
    std::vector<std::string> found;
    for (size_t from = line.find('"'); from != std::string::npos; from = line.find('"', from)) {
        const size_t to = line.find('"', from + 1);
        found.push_back(line.substr(from + 1, to - from - 1));
        from = to + 1;
    }
    return found;
}

TEST(runWriter, clientInformationNamesAllFilesAndSizes)
{
    for (const auto &f : forms) {
        SCOPED_TRACE(f.name);
        RunSpec spec;
        spec.form  = f.form;
        spec.nx    = 6;
        spec.nVols = 3;
        spec.nSds  = 2;
        spec.title = "a title";
        spec.nodeSets = true;
        spec.setVars("velocity,species:2,field:1");
        const RunModel model(spec);
        writeRun(model);

        std::map<std::string, int> counts;
        for (const std::string &line : cliLines(cliName(spec))) {
            SCOPED_TRACE(line);
            const std::vector<std::string> w = words(line);
            const std::string &key = w[0];
            ++counts[key];
            if (key == "FMT")   { EXPECT_EQ(w[1], std::to_string(f.opt)); }
            if (key == "NSDS")  { EXPECT_EQ(w[1], "2"); }
            if (key == "TITLE") { EXPECT_EQ(quotedIn(line)[0], "a title"); }
            if (w.size() > 1 && w[1].find('/') != std::string::npos) {     /* a file, with its real number of rows */
                const std::vector<Item> table = readItems(f.form == Form::container
                    ? Place{dataFolder(spec) + "/pipe.1.C", w[1].substr(w[1].rfind('/') + 1)} : Place{w[1], ""});
                ASSERT_EQ(table.at(1).key, "nRows");
                const auto rows = std::find_if(w.begin(), w.end(), [](const std::string &s) {
                    return s == "nNodes" || s == "nElems" || s == "nSrfs" || s == "nPairs"; });
                ASSERT_NE(rows, w.end());
                EXPECT_EQ(rows[1], std::to_string(table[1].ints[0]));
            }
            const std::string kind = key.size() == 7 && key != "OEL.VOL" && key != "SFS.SFS" ? key.substr(3) : "";
            if (kind == ".SFS" || kind == ".VOL") {
                EXPECT_EQ(line.find("  "), std::string::npos) << "separators are one blank";
                const std::vector<std::string> names = quotedIn(line);
                const size_t count = std::stoul(line.substr(line.find('"', line.find('"') + 1) + 2));
                EXPECT_EQ(names.size(), count + 1);
            }
        }
        EXPECT_EQ(counts["CRD"], 1);
        EXPECT_EQ(counts["VOL"], 3);
        EXPECT_EQ(counts["CNN"], 2);
        EXPECT_EQ(counts["CNN.VOL"], 2);
        EXPECT_EQ(counts["SFS"], (int) model.sfss.size());
        EXPECT_EQ(counts["SFS.SFS"], 4);
        EXPECT_EQ(counts["NBC"], 2);
        EXPECT_EQ(counts["ZBC"], 1);
        EXPECT_EQ(counts["PBC"], 1);
        EXPECT_EQ(counts["OEL"], 2);
        EXPECT_EQ(counts["OEL.VOL"], 6);
        const std::pair<std::string, size_t> families[] = {{"CBC", model.cbcs.size()}, {"OSF", model.osfs.size()},
                                                           {"RSF", model.rsfs.size()}, {"SRS", model.srss.size()}};
        for (const auto &family : families) {
            EXPECT_EQ(counts[family.first], (int) family.second);
            EXPECT_EQ(counts[family.first + ".SFS"], (int) family.second);
        }
        EXPECT_EQ(counts["SPC"], 2);
        EXPECT_EQ(counts["MFD"], 1);
    }
}

/* ---- beside a real run ---- */

static const std::string realRun = RDB_REAL_RUN;

/* a run of ours with the same kinds of files, variables and parts as the real one */
static RunSpec likeTheRealRun(Form form, bool merged)
{
    RunSpec spec;
    spec.form   = form;
    spec.merged = merged;
    spec.nSds   = 2;
    spec.setVars("velocity,pressure,temperature,species:4");
    return spec;
}

TEST(runWriter, keysStandInTheOrderOfARealRun)
{
    if (!fs::exists(realRun)) GTEST_SKIP() << "no real run to test with";
    for (const auto &f : forms) {
        if (!fs::exists(realRun + "/" + f.name)) continue;
        SCOPED_TRACE(f.name);
        const bool merged = f.form == Form::swapped;
        const RunSpec spec = likeTheRealRun(f.form, merged);
        writeRun(spec);
        const std::string base = realRun + "/" + f.name + "/QUENTA.DIR/disk.1";
        for (const std::string suffix : {".crd", ".vol0", ".cnn0", ".sfs0", ".cbc0", ".osf0", ".ddc", "_0.osn",
                                         merged ? "_0_x.out" : "_0_1.out"}) {
            SCOPED_TRACE(suffix);
            const Place theirs = placeOf(f.form, base, suffix), ours = dataFile(spec, suffix);
            const std::vector<Item> a = readItems(theirs), b = readItems(ours);
            ASSERT_EQ(keysOf(a), keysOf(b));
            for (size_t i = 0; i < a.size(); ++i) {
                EXPECT_EQ(a[i].nCols, b[i].nCols) << a[i].key;
                if (a[i].key == "type" || a[i].key == "nParts" || a[i].key == "mask" || a[i].key == "nCols") {
                    EXPECT_EQ(a[i].ints, b[i].ints) << a[i].key;
                }
            }
            EXPECT_EQ(kindOf(theirs.file), kindOf(ours.file));
        }
    }
}

/* A line without what differs from run to run: numbers, quoted names, files. */
static std::string shapeOf(const std::string &line)
{
    std::string bare;
    bool quoted = false;
    for (char c : line) {
        if (c == '"') {
            quoted = !quoted;
            if (quoted) bare += "NAME";
        }
        else if (!quoted) bare += c;
    }
    std::string shape;
    for (const std::string &word : words(bare)) {
        const bool number = word.find_first_not_of("0123456789.") == std::string::npos;
        shape += (shape.empty() ? "" : " ") + (number ? "N" : word.find('/') != std::string::npos ? "FILE" : word);
    }
    return shape;
}

TEST(runWriter, clientInformationHasTheLinesOfARealRun)
{
    if (!fs::exists(realRun)) GTEST_SKIP() << "no real run to test with";
    const RunSpec spec = likeTheRealRun(Form::ascii, false);
    writeRun(spec);
    std::map<std::string, std::set<std::string>> ours, theirs;
    for (const std::string &line : cliLines(cliName(spec))) ours[words(line)[0]].insert(shapeOf(line));
    for (const std::string &line : cliLines(realRun + "/ascii/QUENTA.DIR/disk.1.cli"))
        theirs[words(line)[0]].insert(shapeOf(line));
    for (const char *key : {"FMT", "NSDS", "TITLE", "SUBTITLE", "BASE_UNIT", "PMC", "CRD", "VOL", "SFS", "CNN",
                            "CNN.VOL", "CBC", "CBC.SFS", "OSF", "OSF.SFS"}) {
        ASSERT_EQ(ours.count(key), 1u) << key;
        EXPECT_EQ(ours[key], theirs[key]) << key;
    }
}
