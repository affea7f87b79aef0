/* runModel.cpp: nodes, ids, groups and parts of a generated run; runMesh.cpp has its elements and surfaces,
 * runFields.cpp its variables.
 *
 * Nodes are those of a lattice, bent into the shape, and the middles of some cells behind them. A node's place comes
 * from its number when it is asked for: no coordinates are kept.
 *
 * In this file: checks and sizes, nodes and their places, groups, parts, what a reader shows. */

#include "tool/runModel.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <stdexcept>
#include <tuple>

#include "tool/runModelInt.h"

namespace tool {

/* ---- checks and sizes ---- */

static void refuse(const std::string &text) { throw std::invalid_argument(text); }

/* cells in each direction for about so many nodes, in proportion to the shape */
static void sizeForNodes(RunSpec *spec)
{
    const double shapes[3][3] = {{4, 1, 1}, {6, 1, 1}, {3, 5, 1}};
    const double *ratio = shapes[(int) spec->shape];
    double nodes = (double) spec->nodes;
    if (spec->mesh == Mesh::mixed) nodes /= 1.25;            /* a quarter of the cells has a node in its middle */
    double unit = std::cbrt(nodes / (ratio[0] * ratio[1] * ratio[2]));
    if (spec->mesh == Mesh::tet10) unit /= 2;
    if (spec->mesh == Mesh::bubble) unit /= std::cbrt(7);    /* six elements of a cell have one */
    const auto cells = [&](int d, int least) { return std::max(least, (int) std::lround(unit * ratio[d])); };
    spec->nx = cells(0, std::max(spec->mesh == Mesh::mixed ? 4 : 1, std::max(spec->nSds, spec->nVols)));
    spec->ny = cells(1, spec->shape == Shape::annulus ? 3 : 1);
    spec->nz = cells(2, 1);
}

static void completeSpec(RunSpec *spec)
{
    if (spec->problem.empty() || spec->problem.find_first_of("/ \t\n\r") != std::string::npos)
        refuse("problem name <" + spec->problem + "> is empty or holds a slash or blank");
    if (spec->run < 0) refuse("the run number must not be negative");
    if (spec->dataDir.empty() || spec->dataDir[0] == '/')
        refuse("data folder <" + spec->dataDir + ">: a name below the run's folder, or \".\" for beside the log");
    if (spec->dataDir.find_first_of(" \t\n\r") != std::string::npos)
        refuse("data folder <" + spec->dataDir + ">: file names in the client information hold no blanks");
    if (spec->dir.empty()) refuse("the run's folder has no name: \".\" means the current one");
    if (spec->title.find_first_of("\"\n\r") != std::string::npos) refuse("the title holds a quote or a line end");
    if (spec->nSds < 0) refuse("the number of subdomains must not be negative");
    if (spec->nodes < 0 || spec->nodes > 2000000000) refuse("the number of nodes must be from 0 to 2000000000");

    if (spec->mesh == Mesh::mixed) spec->nVols = 4;
    if (spec->nVols < 1) refuse("a run needs a volume");
    if (spec->nodes > 0) sizeForNodes(spec);
    const int least = spec->mesh == Mesh::mixed ? 4 : 1;
    if (spec->nx < least || spec->ny < 1 || spec->nz < 1)
        refuse("a mesh needs at least " + std::to_string(least) + " x 1 x 1 cells");
    if (spec->shape == Shape::annulus && spec->ny < 3) refuse("a ring needs at least 3 cells around");
    if (spec->renumbered && spec->lines != Lines::all) refuse("volumes are known by name only if they have lines");
    if (spec->nVols > spec->nx) refuse("more volumes than slabs of cells");
    if (spec->nSds  > spec->nx) refuse("more subdomains than slabs of cells");

    for (size_t i = 0; i < spec->steps.size(); ++i)
        if (spec->steps[i] < 0 || (i > 0 && spec->steps[i] <= spec->steps[i - 1]))
            refuse("step numbers must ascend from 0 on");

    const double nodes = (2.0 * spec->nx + 1) * (2.0 * spec->ny + 1) * (2.0 * spec->nz + 1);
    const double cells = 1.0 * spec->nx * spec->ny * spec->nz;
    if (cells * 6 > 1e9 || (spec->mesh == Mesh::tet10 && nodes > 1e9)) refuse("the mesh is too large for 32-bit ids");
}

RunModel::RunModel(const RunSpec &wanted) : spec(wanted)
{
    completeSpec(&spec);
    makeLattice();
    makeVars();
    makeVolumes();
    makeSurfaces();
    makeGroups();
    if (spec.nodeSets) {
        makeNodeSets();
        makeOutElems();
    }
    if (spec.lines == Lines::noSets) surfacesFromGroups();
    makeParts();
}

void RunSpec::setSteps(int n, int first, int stride)
{
    steps.clear();
    for (int i = 0; i < n; ++i) steps.push_back(first + i * stride);
}

/* ---- nodes ---- */

void RunModel::makeLattice()
{
    grain = spec.mesh == Mesh::tet10 ? 2 : 1;
    nxN = grain * spec.nx + 1;
    nyN = grain * spec.ny + (spec.shape == Shape::annulus ? 0 : 1);
    nzN = grain * spec.nz + 1;
    centres0 = centres1 = 0;
    if (spec.mesh == Mesh::mixed) {
        centres0 = (int) (spec.nx * (int64_t) 2 / 4);
        centres1 = (int) (spec.nx * (int64_t) 3 / 4);
    }
    bubbles = spec.mesh == Mesh::bubble ? 6 : 0;
    nNodes  = nxN * nyN * nzN + (centres1 - centres0) * spec.ny * spec.nz + bubbles * spec.nx * spec.ny * spec.nz;
    usrIds = makeIds(nNodes, 1);
}

/* n user ids: 1, 2, 3, ... or, scattered, unordered with gaps of up to four */
std::vector<int> RunModel::makeIds(int64_t n, unsigned kind) const
{
    std::vector<int> ids(n);
    for (int64_t i = 0; i < n; ++i) ids[i] = (int) i + 1;
    if (spec.scattered) {
        std::mt19937 random(spec.seed * 8 + kind);
        const int stride = n < 500000000 ? 3 : 1;
        for (int &id : ids) id = id * stride + (stride > 1 ? (int) (random() % stride) : 0);
        shuffle(&ids, kind);
    }
    return ids;
}

void RunModel::shuffle(std::vector<int> *list, unsigned kind) const
{
    std::mt19937 random(spec.seed * 8 + kind + 4);
    for (size_t i = list->size(); i > 1; --i) std::swap((*list)[i - 1], (*list)[random() % i]);
}

/* i, j, k count half cells for ten-node elements, else cells */
int RunModel::latticeNode(int i, int j, int k) const { return i + nxN * (j % nyN + nyN * k); }

int RunModel::centreNode(int i, int j, int k) const
{
    return nxN * nyN * nzN + i - centres0 + (centres1 - centres0) * (j + spec.ny * k);
}

int RunModel::bubbleNode(int i, int j, int k, int elem) const
{
    return nxN * nyN * nzN + elem + bubbles * (i + spec.nx * (j + spec.ny * k));
}

/* Coordinates are multiples of 1/1024: formulas are exact */
void RunModel::snap(double xyz[3]) const
{
    const double quantum = spec.fields == Fields::demo ? 1 << 20 : 1 << 10;
    for (int d = 0; d < 3; ++d) xyz[d] = std::round(xyz[d] * quantum) / quantum;
}

/* The middle of a tetrahedron, counted through all cells, whose sides are straight in whatever shape */
RunModel::Place RunModel::middleOf(int tetrahedron) const
{
    const int cell = tetrahedron / bubbles;
    const int i = cell % spec.nx, j = cell / spec.nx % spec.ny, k = cell / spec.nx / spec.ny;
    Place middle = {};
    for (int c = 0; c < 4; ++c) {
        const int  *corner = cornerOf(tetrahedron % bubbles, c);
        const Place there = place(latticeNode(i + corner[0], j + corner[1], k + corner[2]));
        middle.a += (i + corner[0]) / (4.0 * spec.nx);
        middle.b += (j + corner[1]) / (4.0 * spec.ny);                   /* in a ring the last corner is the first */
        middle.c += (k + corner[2]) / (4.0 * spec.nz);
        middle.cosine += there.cosine / 4;
        middle.sine   += there.sine / 4;
        for (int d = 0; d < 3; ++d) middle.xyz[d] += there.xyz[d] / 4;
    }
    snap(middle.xyz);
    return middle;
}

RunModel::Place RunModel::place(int node) const
{
    Place at;
    const int nLattice = nxN * nyN * nzN;
    if (node < nLattice) {
        at.a = (double) (node % nxN) / grain;
        at.b = (double) (node / nxN % nyN) / grain;
        at.c = (double) (node / nxN / nyN) / grain;
    }
    else if (bubbles) return middleOf(node - nLattice);
    else {
        const int n = node - nLattice, across = centres1 - centres0;
        at.a = n % across + centres0 + 0.5;
        at.b = n / across % spec.ny + 0.5;
        at.c = n / across / spec.ny + 0.5;
    }
    at.a /= spec.nx;
    at.b /= spec.ny;
    at.c /= spec.nz;

    /* a cell is 1/8 long for exact formulas; a demo has a size for the eye */
    const bool demo = spec.fields == Fields::demo;
    const double pi = 3.14159265358979323846;
    double length = spec.nx / 8.0, width = spec.ny / 8.0, height = spec.nz / 8.0;
    if (demo) {
        length = spec.shape == Shape::bend ? 6 : 4;
        width  = spec.shape == Shape::annulus ? 2 * pi * 0.7 : 1;
        height = spec.shape == Shape::annulus ? 0.6 : 1;
    }
    at.cosine = 1;
    at.sine   = 0;
    if (spec.shape == Shape::box) {
        at.xyz[0] = at.a * length;
        at.xyz[1] = at.b * width;
        at.xyz[2] = at.c * height;
    }
    else if (spec.shape == Shape::bend) {
        const double leg = length / 4, left = (at.b - 0.5) * width, r = std::max(length / pi, width * 0.75);
        if (at.a > 0.25) {
            const double angle = std::min(at.a - 0.25, 0.5) * pi;
            at.cosine = at.a < 0.75 ? std::cos(angle) : 0;
            at.sine   = at.a < 0.75 ? std::sin(angle) : 1;
        }
        at.xyz[0] = std::min(at.a * 4, 1.0) * leg + (r - left) * at.sine;
        at.xyz[1] = r - (r - left) * at.cosine + std::max(at.a - 0.75, 0.0) * 4 * leg;
        at.xyz[2] = at.c * height;
    }
    else {
        const double angle = -2 * pi * at.b;
        const double middle = width / (2 * pi), r = std::max(middle - height / 2, height / 4) + at.c * height;
        at.cosine = std::cos(angle);
        at.sine   = std::sin(angle);
        at.xyz[0] = at.a * length;
        at.xyz[1] = r * at.cosine;
        at.xyz[2] = r * at.sine;
    }
    snap(at.xyz);
    return at;
}

void RunModel::crd(int node, double xyz[3]) const
{
    const Place at = place(node);
    std::copy(at.xyz, at.xyz + 3, xyz);
}

/* ---- groups ---- */

/* A group of surface sets has one parent element set and one surface code. */
static void addGroup(std::vector<Group> *groups, const std::string &name, int elm, int set)
{
    groups->push_back({name, {set}, elm});
}

void RunModel::makeGroups()
{
    /* the first volume, and all others together if they are of one type */
    std::vector<int> elmOf(vols.size());
    for (int v = 0; v < (int) vols.size(); ++v) {
        const bool empty = v >= spec.nVols;
        const bool alone = empty || spec.mesh == Mesh::mixed || spec.nVols == 1 || spec.lines != Lines::all;
        if (!alone && v > 1) elms.back().members.push_back(v);
        else addGroup(&elms, alone ? vols[v].name
                           : v == 0 ? "first of fluid" : "rest of fluid", (int) elms.size(), v);
        elmOf[v] = (int) elms.size() - 1;
    }

    /* boundary conditions: a name has a group per element set and surface code, and one per direction of walls */
    const auto isWall = [](int kind) { return kind == SIDES || kind == FLOOR; };
    std::map<std::tuple<int, int, int>, size_t> known;
    for (int s = 0; s < (int) sfss.size(); ++s) {
        const int kind = kinds[s], elm = elmOf[sfss[s].vol];
        if (kind >= INTERFACE) continue;
        const auto key = std::make_tuple(kind, elm, sfss[s].type);
        if (known.count(key)) {
            cbcs[known[key]].members.push_back(s);
            continue;
        }
        known[key] = cbcs.size();
        addGroup(&cbcs, isWall(kind) ? "walls" : sfss[s].name, elm, s);
    }
    for (int s = 0; s < (int) sfss.size(); ++s) {
        const int kind = kinds[s], elm = elmOf[sfss[s].vol];
        if (kind == OUTLET || kind == INTERFACE) addGroup(&osfs, sfss[s].name, elm, s);
        if (kind == FLOOR && rsfs.size() < 2) addGroup(&rsfs, "radiating " + sfss[s].name, elm, s);
        if (kind == SIDES && srss.empty()) addGroup(&srss, "sun on " + sfss[s].name, elm, s);
        if (kind == NOWHERE) {
            addGroup(&cbcs, "empty condition", elm, s);
            addGroup(&osfs, "empty output", elm, s);
        }
    }
}

/* ---- output parts ---- */

/* a part has all nodes of its slabs of cells: those on a cut are in both */
void RunModel::makeParts()
{
    const int n = std::max(spec.nSds, 1);
    parts.resize(n);
    for (int p = 0; p < n; ++p) {
        const int i0 = slab(spec.nx, p, n), i1 = slab(spec.nx, p + 1, n);
        std::vector<int> &part = parts[p];
        for (int kj = 0; kj < nyN * nzN; ++kj)
            for (int i = grain * i0; i <= grain * i1; ++i) part.push_back(i + nxN * kj);
        for (int k = 0; k < spec.nz; ++k)
            for (int j = 0; j < spec.ny; ++j)
                for (int i = std::max(i0, centres0); i < std::min(i1, centres1); ++i)
                    part.push_back(centreNode(i, j, k));
        for (int k = 0; bubbles && k < spec.nz; ++k)
            for (int j = 0; j < spec.ny; ++j)
                for (int i = i0; i < i1; ++i)
                    for (int e = 0; e < bubbles; ++e) part.push_back(bubbleNode(i, j, k, e));
        if (spec.scattered) shuffle(&part, 4 + (unsigned) p);
    }
}

/* ---- what a reader shows ---- */

std::string RunModel::blockName(int block) const
{
    const int nSfss = (int) sfss.size();
    return block < nSfss ? "surfSet_" + sfss[block].name : "VolSet_" + vols[block - nSfss].name;
}

std::vector<int> RunModel::blockNodes(int block) const
{
    const int nSfss = (int) sfss.size();
    std::vector<int> nodes;
    if (block < nSfss) {                                     /* in the order of user ids */
        nodes = sfss[block].cnn;
        std::sort(nodes.begin(), nodes.end(), [&](int m, int n) { return usrIds[m] < usrIds[n]; });
        nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
        return nodes;
    }
    std::vector<bool> used(nNodes);                          /* in the order of positions */
    for (int node : vols[block - nSfss].cnn) used[node] = true;
    for (int node = 0; node < nNodes; ++node)
        if (used[node]) nodes.push_back(node);
    return nodes;
}

int RunModel::cellType(int block) const
{
    const int nSfss = (int) sfss.size();
    if (block < nSfss && vols[sfss[block].vol].type == BUBBLE) return -1;
    switch (block < nSfss ? sfss[block].type : vols[block - nSfss].type) {
    case TRI:     return 5;
    case QUAD:    return 9;
    case TET:     return 10;
    case HEX:     return 12;
    case WEDGE:   return 13;
    case PYRAMID: return 14;
    default:      return -1;
    }
}

const std::vector<Group> &RunModel::groups(Family family) const
{
    switch (family) {
    case Family::elm: return elms;
    case Family::osf: return osfs;
    case Family::cbc: return cbcs;
    case Family::rsf: return rsfs;
    default:          return srss;
    }
}

std::vector<ShownGroup> RunModel::shownGroups(Family family) const
{
    std::vector<ShownGroup> shown;
    for (const Group &group : groups(family)) {
        std::vector<int> blocks = group.members;
        if (family == Family::elm)
            for (int &block : blocks) block += (int) sfss.size();
        const auto same = std::find_if(shown.begin(), shown.end(),
                                       [&](const ShownGroup &g) { return g.name == group.name; });
        if (family != Family::cbc || same == shown.end()) {
            shown.push_back({group.name, blocks});
            continue;
        }
        std::vector<int> &all = same->blocks;
        all.insert(all.end(), blocks.begin(), blocks.end());
        std::sort(all.begin(), all.end());
        all.erase(std::unique(all.begin(), all.end()), all.end());
    }
    return shown;
}

}
