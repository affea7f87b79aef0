/* writeRun.cpp: the command that makes a run to try things with. See writeRun --help. */

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

#include "tool/expect.h"
#include "tool/options.h"
#include "tool/runWriter.h"

using namespace tool;

namespace {

struct Wanted {
    RunSpec     spec;
    std::string expect;                   /* file of expected values, "" for none */
    int nSteps = 1, firstStep = 0, stride = 1;
    bool moving = false;
};

/* ---- values of options ---- */

int64_t number(const char *option, const std::string &text, int64_t least, int64_t most)
{
    char *end = nullptr;
    const long long value = text.empty() || text.size() > 18 ? 0 : std::strtoll(text.c_str(), &end, 10);
    if (!end || *end || value < least || value > most)
        refuse(std::string(option) + ": <" + text + "> is no number from " + std::to_string(least) + " to "
               + std::to_string(most));
    return value;
}

double real(const char *option, const std::string &text)
{
    char *end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end || !(value > -1e300 && value < 1e300))
        refuse(std::string(option) + ": <" + text + "> is no number");
    return value;
}

template <class T> struct Word { const char *word; T value; };

const Word<Mesh>   meshes[] = {{"hex", Mesh::hex}, {"tet", Mesh::tet}, {"tet10", Mesh::tet10},
                              {"bubble", Mesh::bubble}, {"mixed", Mesh::mixed}};
const Word<Shape>  shapes[] = {{"box", Shape::box}, {"bend", Shape::bend}, {"annulus", Shape::annulus}};
const Word<Fields> fields[] = {{"formula", Fields::formula}, {"demo", Fields::demo}};
const Word<Lines>  lineKinds[] = {{"all", Lines::all}, {"no-volumes", Lines::noVolumes}, {"no-sets", Lines::noSets}};
const Word<bool>   idKinds[] = {{"consecutive", false}, {"scattered", true}};

void setCells(RunSpec *spec, const std::string &text)
{
    int *cells[3] = {&spec->nx, &spec->ny, &spec->nz};
    size_t at = 0;
    for (int d = 0; d < 3; ++d) {
        const size_t end = d < 2 ? text.find(',', at) : text.size();
        if (end == std::string::npos || at > text.size()) refuse("--cells: <" + text + "> is not NX,NY,NZ");
        *cells[d] = (int) number("--cells", text.substr(at, end - at), 1, 1000000);
        at = end + 1;
    }
}

/* vars: of the family; it refuses one that it does not know */
template <class Fam> void setFamilies(std::vector<Fam> *families, const std::string &text,
                                      std::vector<int> (*vars)(const Fam &fam))
{
    families->clear();
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find(',', at), text.size());
        Fam fam;
        fam.ext = text.substr(at, end - at);
        vars(fam);
        families->push_back(fam);
        at = end + 1;
    }
}

/* ---- options ---- */

using Arg = const std::string &;
struct Option {
    const char *name, *arg, *help;        /* arg: null if the option takes none */
    void (*set)(Wanted *wanted, Arg arg);
};

const Option options[] = {
    {"--problem", "NAME", "problem name [pipe]", [](Wanted *w, Arg a) { w->spec.problem = a; }},
    {"--run", "N", "run number [1]", [](Wanted *w, Arg a) { w->spec.run = (int) number("--run", a, 0, INT_MAX); }},
    {"--data-dir", "NAME", "folder of the data files, below DIR [QUENTA.DIR]; . for beside the log",
     [](Wanted *w, Arg a) { w->spec.dataDir = a; }},
    {"--title", "TEXT", "title of the run [generated run]", [](Wanted *w, Arg a) { w->spec.title = a; }},
    {"--form", "FORM", "ascii, binary, swapped (the other byte order), compressed, hdf, container [binary]",
     [](Wanted *w, Arg a) { w->spec.form = choice("--form", a, formRows); }},
    {"--mesh", "MESH", "hex, tet, tet10 (ten nodes each), bubble (five), mixed (four volumes of four kinds) [hex]",
     [](Wanted *w, Arg a) { w->spec.mesh = choice("--mesh", a, meshes); }},
    {"--shape", "SHAPE", "box, bend (a channel that turns), annulus (a ring) [box]",
     [](Wanted *w, Arg a) { w->spec.shape = choice("--shape", a, shapes); }},
    {"--cells", "NX,NY,NZ", "cells of the lattice [4,2,2]", [](Wanted *w, Arg a) { setCells(&w->spec, a); }},
    {"--nodes", "N", "about so many nodes, in place of --cells",
     [](Wanted *w, Arg a) { w->spec.nodes = number("--nodes", a, 1, 2000000000); }},
    {"--volumes", "N", "volumes, slabs of the lattice [1; mixed: 4]",
     [](Wanted *w, Arg a) { w->spec.nVols = (int) number("--volumes", a, 1, 1000000); }},
    {"--ids", "KIND", "user ids: consecutive, or scattered (unordered, with gaps) [consecutive]",
     [](Wanted *w, Arg a) { w->spec.scattered = choice("--ids", a, idKinds); }},
    {"--seed", "N", "of scattered ids [1]",
     [](Wanted *w, Arg a) { w->spec.seed = (unsigned) number("--seed", a, 0, 1000000000); }},
    {"--empty-sets", nullptr, "adds a volume, a surface set and groups without elements",
     [](Wanted *w, Arg) { w->spec.emptySets = true; }},
    {"--node-sets", nullptr, "adds node sets, node pairs and output element sets",
     [](Wanted *w, Arg) { w->spec.nodeSets = true; }},
    {"--renumbered", nullptr, "lines tell of other volumes by number than by name, which counts",
     [](Wanted *w, Arg) { w->spec.renumbered = true; }},
    {"--lines", "KIND", "all; no-volumes (no VOL lines), no-sets (nor SFS lines), as older runs have them [all]",
     [](Wanted *w, Arg a) { w->spec.lines = choice("--lines", a, lineKinds); }},
    {"--no-osn", nullptr, "leaves out the node lists of output surfaces", [](Wanted *w, Arg) { w->spec.osn = false; }},
    {"--subdomains", "N", "subdomains, slabs that share their cut's nodes [1]; 0 for no decomposition",
     [](Wanted *w, Arg a) { w->spec.nSds = (int) number("--subdomains", a, 0, 1000000); }},
    {"--merged", nullptr, "one output file per step, not one per subdomain",
     [](Wanted *w, Arg) { w->spec.merged = true; }},
    {"--steps", "N", "output steps [1]", [](Wanted *w, Arg a) { w->nSteps = (int) number("--steps", a, 0, 1000000); }},
    {"--first-step", "N", "number of the first step [0]",
     [](Wanted *w, Arg a) { w->firstStep = (int) number("--first-step", a, 0, 1000000000); }},
    {"--stride", "N", "from one step number to the next [1]",
     [](Wanted *w, Arg a) { w->stride = (int) number("--stride", a, 1, 1000000000); }},
    {"--time-inc", "T", "time of a step is its number times T [0.125]",
     [](Wanted *w, Arg a) { w->spec.timeInc = real("--time-inc", a); }},
    {"--vars", "LIST", "variables [velocity,pressure,temperature]; see below",
     [](Wanted *w, Arg a) { w->spec.setVars(a); }},
    {"--moving", nullptr, "adds mesh_displacement: the mesh moves", [](Wanted *w, Arg) { w->moving = true; }},
    {"--two-words", nullptr, "two mask words even where one would do", [](Wanted *w, Arg) { w->spec.twoWords = true; }},
    {"--omit-films", nullptr, "leaves out the header key nFilms", [](Wanted *w, Arg) { w->spec.omitFilms = true; }},
    {"--omit-fields", nullptr, "leaves out the header key nFields", [](Wanted *w, Arg) { w->spec.omitFields = true; }},
    {"--families", "LIST", "other families of output with all their variables: ora,ota,onr,odq,oae,oee,rst,ocn",
     [](Wanted *w, Arg a) { setFamilies(&w->spec.families, a, famVars); }},
    {"--set-families", "LIST", "outputs on the nodes of surface sets with all their variables: osf,orf,oqf",
     [](Wanted *w, Arg a) { setFamilies(&w->spec.setFamilies, a, setOutVars); }},
    {"--log-steps", nullptr, "writes the log of time steps, .top", [](Wanted *w, Arg) { w->spec.top = true; }},
    {"--fields", "KIND", "formula (exact, to be checked), demo (a flow to look at) [formula]",
     [](Wanted *w, Arg a) { w->spec.fields = choice("--fields", a, fields); }},
    {"--expect", "FILE", "writes what a reader must show, as JSON; see below", [](Wanted *w, Arg a) { w->expect = a; }},
};

void help()
{
    std::printf("usage: writeRun DIR [options]\n\n"
                "Makes the run DIR/<problem>.<run>.Log with its data files.\n\n");
    for (const Option &o : options)
        std::printf("  %-22s%s\n", (std::string(o.name) + (o.arg ? std::string(" ") + o.arg : "")).c_str(), o.help);
    std::printf("  %-22s%s\n\n", "--help", "this text");
    std::printf("Variables: names or file keys, separated by commas; those marked * take a number of members, as in\n"
                "species:3; a name that stands twice means its first row; \"all\" means every one.\n\n");
    for (const OutVarRow &row : outVarRows) std::printf("  %-12s%s%s\n", row.key, row.name, row.dim == 0 ? " *" : "");
    std::printf("\nOptions count in their order: a later one wins.\n\n%s", expectHelp());
}

/* false: only help was wanted */
bool parse(int argc, char **argv, Wanted *wanted)
{
    std::string dir;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--help" || word == "-h") return false;
        if (word.empty() || word[0] != '-') {
            if (!dir.empty()) refuse("two folders: <" + dir + "> and <" + word + ">");
            dir = word;
            continue;
        }
        const Option *option = nullptr;
        for (const Option &o : options)
            if (word == o.name) option = &o;
        if (!option) refuse("unknown option <" + word + ">");
        if (option->arg && i + 1 >= argc) refuse(word + " needs " + option->arg);
        option->set(wanted, option->arg ? argv[++i] : "");
    }
    if (dir.empty()) refuse("no folder given");
    wanted->spec.dir = dir;
    if (wanted->nSteps > 0 && wanted->firstStep + (int64_t) wanted->stride * (wanted->nSteps - 1) > INT_MAX)
        refuse("the step numbers become too large");
    wanted->spec.setSteps(wanted->nSteps, wanted->firstStep, wanted->stride);
    if (wanted->moving) wanted->spec.mask |= uint64_t(1) << 11;
    return true;
}

}

int main(int argc, char **argv)
{
    try {
        Wanted wanted;
        if (!parse(argc, argv, &wanted)) {
            help();
            return 0;
        }
        const RunModel model(wanted.spec);
        writeRun(model);
        if (!wanted.expect.empty()) writeExpect(model, wanted.expect);

        int64_t nElems = 0;
        for (const VolSet &vol : model.vols) nElems += vol.nElems();
        std::printf("%s: %d nodes, %lld elements, %d blocks, %d steps of %d variables\n", logFile(model.spec).c_str(),
                    model.nNodes, (long long) nElems, model.nBlocks(), model.nSteps(), (int) model.vars.size());
        return 0;
    }
    catch (const std::invalid_argument &e) {
        std::fprintf(stderr, "writeRun: %s\nwriteRun --help tells more\n", e.what());
        return 2;
    }
    catch (const std::exception &e) {
        std::fprintf(stderr, "writeRun: %s\n", e.what());
        return 1;
    }
}
