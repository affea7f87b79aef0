/* testWriteRun.cpp: the command makes the run that its options ask for, tells what must come out of it, and refuses
 * nonsense. */

#include "test/testUtil.h"
#include "test/tool/forms.h"

#include <sys/wait.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>

#include "tool/expect.h"
#include "tool/runWriter.h"

using namespace tool;
namespace fs = std::filesystem;

/* ---- running the command, which lies beside this program ---- */

struct Result { int code; std::string out, err; };

static Result writeRunCommand(const std::string &args)
{
    const fs::path program = fs::read_symlink("/proc/self/exe").parent_path() / "writeRun";
    const int status = std::system(("'" + program.string() + "' " + args + " >out.txt 2>err.txt").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, testRead("out.txt"), testRead("err.txt")};
}

TEST(writeRun, helpTellsOptionsVariablesAndTheLayoutOfExpect)
{
    const Result r = writeRunCommand("--help");
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.err, "");
    for (const char *text : {"usage: writeRun DIR", "--problem NAME", "--nodes N", "--merged", "--expect FILE",
                             "mesh_displacement", "species *", "c0 + cx*x", "[QUENTA.DIR]"})
        EXPECT_NE(r.out.find(text), std::string::npos) << text;
}

TEST(writeRun, nonsenseIsRefusedAndNothingIsWritten)
{
    const struct { const char *args, *text; } cases[] = {
        {"",                          "no folder given"},
        {"a b",                       "two folders: <a> and <b>"},
        {"a --what",                  "unknown option <--what>"},
        {"a --families ora,xyz",      "no such family of output: xyz"},
        {"a --families ''",           "no such family of output: "},
        {"a --set-families osf,xyz",  "no outputs on sets have the extension xyz"},
        {"a --run",                   "--run needs N"},
        {"a --run x",                 "--run: <x> is no number"},
        {"a --run 99999999999",       "--run: <99999999999> is no number from 0 to 2147483647"},
        {"a --run ''",                "--run: <> is no number"},
        {"a --nodes 0",               "--nodes: <0>"},
        {"a --cells 3,4",             "--cells: <3,4> is not NX,NY,NZ"},
        {"a --cells 3,4,5,6",         "--cells: <5,6> is no number"},
        {"a --cells 3,,4",            "--cells: <> is no number"},
        {"a --mesh wood",             "--mesh: <wood> is none of hex, tet, tet10, bubble, mixed"},
        {"a --form paper",            "--form: <paper> is none of ascii, binary, swapped"},
        {"a --shape round",           "--shape: <round> is none of box, bend, annulus"},
        {"a --lines none",            "--lines: <none> is none of all, no-volumes, no-sets"},
        {"a --lines no-sets --renumbered", "volumes are known by name only if they have lines"},
        {"a --ids odd",               "--ids: <odd> is none of consecutive, scattered"},
        {"a --time-inc soon",         "--time-inc: <soon> is no number"},
        {"a --time-inc nan",          "--time-inc: <nan> is no number"},
        {"a --vars velocity,speed",   "no such variable: speed"},
        {"a --subdomains 9",          "more subdomains than slabs"},
        {"a --steps 3 --stride 1000000000 --first-step 1000000000", "step numbers become too large"},
        {"a --title 'a \"b\"'",       "the title holds a quote"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args);
        const Result r = writeRunCommand(c.args);
        EXPECT_EQ(r.code, 2);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err.find("writeRun: "), 0u);
        EXPECT_NE(r.err.find(c.text), std::string::npos) << r.err;
        EXPECT_FALSE(fs::exists("a"));
    }
}

TEST(writeRun, aFolderThatCannotBeMadeIsTold)
{
    testWrite("file", "no folder");
    const Result r = writeRunCommand("file");
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err.find("writeRun: "), 0u);
}

TEST(writeRun, optionsReachTheFiles)
{
    const Result r = writeRunCommand(
        "out/dir --problem duct --run 3 --mesh mixed --shape bend --cells 8,3,3 --steps 2 --first-step 10 --stride 5 "
        "--form swapped --subdomains 4 --merged --ids scattered --seed 7 --moving --vars velocity,species:3 "
        "--data-dir data --title 'a duct' --time-inc 0.5 --two-words --empty-sets --omit-films "
        "--node-sets --renumbered");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out.find("out/dir/duct.3.Log: "), 0u) << r.out;
    RunSpec spec;
    spec.mesh  = Mesh::mixed;
    spec.shape = Shape::bend;
    spec.nx = 8;
    spec.ny = spec.nz = 3;
    spec.nSds      = 4;
    spec.scattered = true;
    spec.seed      = 7;
    spec.setVars("velocity,species:3,mesh_displacement");
    spec.steps   = {10, 15};
    spec.timeInc = 0.5;
    const RunModel model(spec);

    const std::vector<Item> out = readItems("out/dir/data/duct.3_15_x.out.B");
    const std::vector<std::string> head = {"time", "mask", "nSpecs", "nFields", "nAoutVecs", "masks", "nNodes", "vel"};
    for (size_t i = 0; i < head.size(); ++i) EXPECT_EQ(out.at(i).key, head[i]);
    EXPECT_EQ(out[0].reals[0], 7.5);
    EXPECT_EQ(out[2].ints[0], 3);
    EXPECT_EQ(out[5].ints[0], (int) spec.mask);
    for (size_t i = 0; i < model.parts[0].size(); ++i)
        for (int c = 0; c < 3; ++c) ASSERT_EQ(out[7].reals[3 * i + c], model.value(0, c, model.parts[0][i], 1));
    EXPECT_EQ(kindOf("out/dir/data/duct.3.crd.B"), "swapped");
    EXPECT_TRUE(readItems("out/dir/data/duct.3.crd.B")[5].ints == model.usrIds);
    const std::string cli = testRead("out/dir/data/duct.3.cli");
    for (const char *text : {"#@ DIR data\n", "#@ NSDS 4\n", "#@ TITLE \"a duct\"\n", "\"empty volume\"",
                             "#@ SPC  \"gas_C\"", "#@ ZBC ", "#@ NBC ", "#@ PBC ", "#@ OEL ",
                             " vol 1 medium 1 volName \"hexahedra\"\n"})
        EXPECT_NE(cli.find(text), std::string::npos) << text;
}

TEST(writeRun, outputsOnSurfaceSets)
{
    const Result r = writeRunCommand("out --merged --set-families osf,orf,oqf --steps 2");
    ASSERT_EQ(r.code, 0) << r.err;
    const std::string base = "out/QUENTA.DIR/pipe.1";
    const std::vector<Item> osf = readItems(base + "_1_0_x.osf.B"), oqf = readItems(base + "_1_0.oqf.B");
    const std::vector<std::string> head = {"time", "mask", "nSpecs", "nFields", "nNodes", "area", "massFlux"};
    for (size_t i = 0; i < head.size(); ++i) EXPECT_EQ(osf.at(i).key, head[i]);
    EXPECT_EQ(osf[1].ints[0], (1 << 12) - 1);
    EXPECT_EQ(oqf.at(2).key, "nNodes");
    EXPECT_EQ(readItems(base + "_0_0.orn.B").at(1).key, "usrIds");
    EXPECT_EQ(readItems(base + "_0.osn.B").at(5).key, "nodes");
}

TEST(writeRun, otherFamiliesAndTheLogOfSteps)
{
    const Result r = writeRunCommand("out --merged --families ora,rst,ocn --log-steps --steps 2");
    ASSERT_EQ(r.code, 0) << r.err;
    const std::string base = "out/QUENTA.DIR/pipe.1";
    const std::vector<Item> ora = readItems(base + "_1_x.ora.B"), top = readItems(base + ".top.B");
    const std::vector<std::string> head = {"time", "mask", "nSpecs", "nFields", "nNodes", "vel", "pres"};
    for (size_t i = 0; i < head.size(); ++i) EXPECT_EQ(ora.at(i).key, head[i]);
    EXPECT_EQ(ora[1].ints[0], (1 << 22) - 1);
    EXPECT_EQ(readItems(base + "_0_x.rst.B").at(1).key, "timeInc");
    EXPECT_EQ(readItems(base + "_1_0.ocn.B").at(0).reals[0], 0.125);
    EXPECT_EQ(top.at(0).key, "tsId");
    EXPECT_EQ(top.back().key, "endRun");
}

TEST(writeRun, linesOfOlderRuns)
{
    const struct { const char *kind; bool volumes, sets; } kinds[] = {
        {"all", true, true}, {"no-volumes", false, true}, {"no-sets", false, false}};
    for (const auto &k : kinds) {
        SCOPED_TRACE(k.kind);
        const Result r = writeRunCommand(std::string("out --mesh bubble --lines ") + k.kind);
        ASSERT_EQ(r.code, 0) << r.err;
        const std::string cli = testRead("out/QUENTA.DIR/pipe.1.cli");
        EXPECT_EQ(cli.find("#@ VOL ") != std::string::npos, k.volumes);
        EXPECT_EQ(cli.find("#@ SFS ") != std::string::npos, k.sets);
        EXPECT_NE(cli.find(" type 28 nen 5 "), std::string::npos);
    }
}

TEST(writeRun, everyFormInPartsAndMerged)
{
    for (const auto &f : forms)
        for (const char *tail : {"_0_1.out", "_0_x.out"}) {
            SCOPED_TRACE(std::string(f.name) + tail);
            const std::string options = tail[3] == 'x' ? " --subdomains 2 --merged" : " --subdomains 2";
            const Result r = writeRunCommand("out --form " + std::string(f.name) + options);
            ASSERT_EQ(r.code, 0) << r.err;
            const Place place = placeOf(f.form, "out/QUENTA.DIR/pipe.1", tail);
            EXPECT_EQ(kindOf(place.file), f.kind);
            EXPECT_EQ(readItems(place).at(0).key, "time");
            fs::remove_all("out");
        }
}

TEST(writeRun, aNumberOfNodesIsEnough)
{
    const Result r = writeRunCommand("big --nodes 20000 --shape annulus --fields demo --vars velocity --moving");
    ASSERT_EQ(r.code, 0) << r.err;
    const int nNodes = readItems("big/QUENTA.DIR/pipe.1.crd.B").at(1).ints[0];
    EXPECT_GT(nNodes, 10000);
    EXPECT_LT(nNodes, 40000);
}

/* ---- the expected values as JSON ---- */

/* just enough of a JSON reader to look at every value */
struct Json {
    char                               kind = 0;       /* { [ " or 0 for a word or number */
    std::string                        text;
    std::vector<Json>                  list;
    std::map<std::string, Json>        fields;

    const Json &operator[](const char *key) const { return fields.at(key); }
    const Json &operator[](int i) const           { return list.at(i); }
    double num() const                            { return std::stod(text); }
};

class JsonReader {
public:
    explicit JsonReader(const std::string &text) : all(text) {}
    Json document()
    {
        Json json = value();
        if (peek() != '\0') throw std::runtime_error("text behind the JSON");
        return json;
    }

private:
    std::string all;
    size_t      at = 0;

    char peek()
    {
        while (at < all.size() && std::isspace((unsigned char) all[at])) ++at;
        return at < all.size() ? all[at] : '\0';
    }
    void expect(char c)
    {
        if (peek() != c) throw std::runtime_error(std::string("no ") + c + " at " + std::to_string(at));
        ++at;
    }
    std::string quoted()
    {
        expect('"');
        std::string text;
        for (; at < all.size() && all[at] != '"'; ++at) {
            if (all[at] == '\\') ++at;
            text += all.at(at);
        }
        expect('"');
        return text;
    }
    Json value()
    {
        Json json;
        const char c = peek();
        if (c == '{' || c == '[') {
            const char end = c == '{' ? '}' : ']';
            json.kind = c;
            ++at;
            while (peek() != end) {
                if (!json.list.empty() || !json.fields.empty()) expect(',');
                if (c == '[') {
                    json.list.push_back(value());
                    continue;
                }
                const std::string key = quoted();
                expect(':');
                if (!json.fields.emplace(key, value()).second) throw std::runtime_error("key twice: " + key);
            }
            ++at;
        }
        else if (c == '"') {
            json.kind = c;
            json.text = quoted();
        }
        else {
            const char *inWords = "+-.abcdefghijklmnopqrstuvwxyz0123456789";
            const size_t end = std::min(all.find_first_not_of(inWords, at), all.size());
            json.text = all.substr(at, end - at);
            at = end;
            if (json.text.empty()) throw std::runtime_error("no value at " + std::to_string(at));
        }
        return json;
    }
};

TEST(writeRun, expectTellsBlocksGroupsArraysAndFormulas)
{
    const Result r = writeRunCommand("out --mesh mixed --ids scattered --subdomains 2 --steps 3 --stride 10 --vars all "
                                     "--empty-sets --title 'back\\slash' --expect e.json");
    ASSERT_EQ(r.code, 0) << r.err;
    RunSpec spec;
    spec.dir       = "out";
    spec.mesh      = Mesh::mixed;
    spec.scattered = spec.emptySets = true;
    spec.nSds      = 2;
    spec.title     = "back\\slash";
    spec.setVars("all");
    spec.setSteps(3, 0, 10);
    const RunModel model(spec);
    EXPECT_EQ(testRead("e.json"), expectJson(model));

    const Json json = JsonReader(testRead("e.json")).document();
    EXPECT_EQ(json["log"].text, "out/pipe.1.Log");
    EXPECT_EQ(json["title"].text, "back\\slash");
    EXPECT_EQ(json["nNodes"].num(), model.nNodes);
    EXPECT_EQ(json["moving"].text, "true");
    ASSERT_EQ(json["times"].list.size(), 3u);
    EXPECT_EQ(json["times"][2].num(), model.time(2));
    EXPECT_EQ(json["steps"][2].num(), 20);

    ASSERT_EQ((int) json["blocks"].list.size(), model.nBlocks());
    for (int b = 0; b < model.nBlocks(); ++b) {
        const Json &block = json["blocks"][b];
        EXPECT_EQ(block["name"].text, model.blockName(b));
        EXPECT_EQ(block["cellType"].num(), model.cellType(b));
        EXPECT_EQ(block["nPoints"].num(), model.blockNodes(b).size());
    }
    EXPECT_EQ(json["blocks"][0]["kind"].text, "surface");
    EXPECT_EQ(json["blocks"][0]["nCells"].num(), model.sfss[0].nSrfs());
    EXPECT_EQ(json["groups"].fields.size(), 5u);
    const Json &elms = json["groups"]["ELMs"];
    ASSERT_EQ(elms.list.size(), model.elms.size());
    EXPECT_EQ(elms[0]["name"].text, "hexahedra");
    EXPECT_EQ(elms[0]["blocks"][0].num(), model.sfss.size() + 1);

    const std::vector<ShownArray> shown = model.shownArrays();
    ASSERT_EQ(json["arrays"].list.size(), shown.size());
    for (size_t a = 0; a < shown.size(); ++a) {
        const Json &array = json["arrays"][(int) a];
        EXPECT_EQ(array["name"].text, shown[a].name);
        EXPECT_EQ(array["components"].num(), shown[a].nComps);
        ASSERT_EQ((int) array["formulas"].list.size(), shown[a].nComps);
        for (int c = 0; c < shown[a].nComps; ++c) {
            const Formula f = model.formula(shown[a].var, shown[a].first + c);
            const double coefs[6] = {f.c0, f.cx, f.cy, f.cz, f.cs, f.cxs};
            for (int t = 0; t < 6; ++t) EXPECT_EQ(array["formulas"][c][t].num(), coefs[t]);
        }
    }
    ASSERT_EQ(json["bounds"].list.size(), 6u);
    EXPECT_EQ(json["bounds"][0].num(), 0);
    EXPECT_EQ(json["bounds"][1].num(), 0.5);
}

TEST(writeRun, demoFieldsHaveNoFormulas)
{
    ASSERT_EQ(writeRunCommand("out --fields demo --expect e.json").code, 0);
    const Json json = JsonReader(testRead("e.json")).document();
    EXPECT_EQ(json["arrays"][0]["formulas"].text, "null");
    EXPECT_EQ(json["moving"].text, "false");
}
