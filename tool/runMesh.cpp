/* runMesh.cpp: elements and surface sets of a generated run.
 *
 * A cell of the lattice has eight corners, numbered as the nodes of a hexahedron, and sometimes a node in its middle,
 * number 8. A pattern says into which elements a cell is cut. A volume is made of pieces: slabs of cells with the
 * elements that each of their cells gives to it. The cut is the same in all cells of a piece, and patterns are chosen
 * so that neighbouring cells cut their common face alike: the mesh is conforming.
 *
 * Surfaces are found from the patterns: a face of an element whose nodes all lie on one side of the cell is on the
 * surface of the volume where that side is. No face is ever searched for, so a large mesh costs no more than its size.
 *
 * In this file: cells and their patterns, volumes, surface sets. */

#include <algorithm>
#include <array>
#include <map>
#include <stdexcept>
#include <tuple>

#include "tool/runModelInt.h"

namespace tool {

/* ---- cells and their patterns ---- */

namespace {

enum { X0, X1, Y0, Y1, Z0, Z1, N_SIDES, INNER = N_SIDES, NO_SIDE = -1 };

constexpr int cornerAt[8][3] = {{0,0,0}, {1,0,0}, {1,1,0}, {0,1,0}, {0,0,1}, {1,0,1}, {1,1,1}, {0,1,1}};

/* faces of an element, corners only; the order is that of the codes' face tables */
struct ElemFaces { int type, n; struct { int n, nodes[4]; } faces[6]; };
constexpr ElemFaces elemFaces[] = {
    { TET,     4, {{3, {0,1,2}},   {3, {1,3,2}},   {3, {2,3,0}},   {3, {3,1,0}}} },
    { PYRAMID, 5, {{4, {0,1,2,3}}, {3, {1,0,4}},   {3, {2,1,4}},   {3, {3,2,4}},   {3, {0,3,4}}} },
    { WEDGE,   5, {{3, {0,1,2}},   {3, {5,4,3}},   {4, {0,2,5,3}}, {4, {2,1,4,5}}, {4, {1,0,3,4}}} },
    { HEX,     6, {{4, {0,1,2,3}}, {4, {7,6,5,4}}, {4, {5,6,2,1}}, {4, {0,3,7,4}}, {4, {4,5,1,0}}, {4, {3,2,6,7}}} },
    { TET10,   4, {{3, {0,1,2}},   {3, {1,3,2}},   {3, {2,3,0}},   {3, {3,1,0}}} },
    { BUBBLE,  4, {{3, {0,1,2}},   {3, {1,3,2}},   {3, {2,3,0}},   {3, {3,1,0}}} },
};
constexpr int tet10Edges[6][2]    = {{0,1}, {1,2}, {0,2}, {0,3}, {1,3}, {2,3}};               /* nodes 4 to 9 */
constexpr int tet10FaceMids[4][3] = {{4,5,6}, {8,9,5}, {9,7,6}, {8,4,7}};                     /* per face     */

const ElemFaces &facesOf(int type)
{
    for (const ElemFaces &f : elemFaces)
        if (f.type == type) return f;
    throw std::logic_error("no such element");
}

int nenOf(int type)
{
    switch (type) {
    case TET:     return 4;
    case PYRAMID:
    case BUBBLE:  return 5;
    case WEDGE:   return 6;
    case HEX:     return 8;
    default:      return 10;
    }
}

/* an element of a cell, by its corner nodes; bad for none */
struct CellElem { int type; std::array<int, 8> nodes; };
using Pattern = std::vector<CellElem>;

const Pattern hexPattern   = {{HEX, {0,1,2,3,4,5,6,7}}};
const Pattern wedgePattern = {{WEDGE, {0,1,2,4,5,6}}, {WEDGE, {0,2,3,4,6,7}}};

/* one pyramid on each side, apex in the middle */
const Pattern pyramidPattern = {
    {PYRAMID, {0,3,7,4,8}}, {PYRAMID, {5,6,2,1,8}}, {PYRAMID, {4,5,1,0,8}},
    {PYRAMID, {3,2,6,7,8}}, {PYRAMID, {0,1,2,3,8}}, {PYRAMID, {7,6,5,4,8}},
};
/* the same beside a cell of tetrahedra: two of them, with that cell's diagonal, in place of the pyramid there */
const Pattern lastPyramidPattern = {
    {PYRAMID, {0,3,7,4,8}}, {PYRAMID, {4,5,1,0,8}}, {PYRAMID, {3,2,6,7,8}}, {PYRAMID, {0,1,2,3,8}},
    {PYRAMID, {7,6,5,4,8}},
};
const Pattern firstTetPattern = {{TET, {5,6,1,8}}, {TET, {6,2,1,8}}};

/* along the diagonal 0-6; faces are cut from their lowest to their highest corner, the same in every cell */
const Pattern tetPattern = {
    {TET, {0,1,2,6}}, {TET, {0,2,3,6}}, {TET, {0,3,7,6}}, {TET, {0,7,4,6}}, {TET, {0,4,5,6}}, {TET, {0,5,1,6}},
};

unsigned cornersOf(const CellElem &elem, int face)
{
    const auto &f = facesOf(elem.type).faces[face];
    unsigned bits = 0;
    for (int n = 0; n < f.n; ++n) bits |= 1u << elem.nodes[f.nodes[n]];
    return bits;
}

/* the side of the cell on which a face lies; INNER: between a pyramid and a tetrahedron of one cell */
int sideOf(const CellElem &elem, int face)
{
    const unsigned bits = cornersOf(elem, face);
    for (int side = 0; side < N_SIDES; ++side) {
        unsigned on = 0;
        for (int c = 0; c < 8; ++c)
            if (cornerAt[c][side / 2] == side % 2) on |= 1u << c;
        if ((bits & ~on) == 0) return side;
    }
    return NO_SIDE;
}

/* faces of the last cells of pyramids that touch a tetrahedron: an edge of the side X1 and the middle node */
bool touchesTets(const CellElem &elem, int face)
{
    for (const auto edge : {0x022u, 0x060u, 0x044u, 0x006u})                 /* 1-5, 5-6, 6-2, 2-1 */
        if (cornersOf(elem, face) == (edge | 0x100u)) return true;
    return false;
}

}

const int *cornerOf(int tetrahedron, int corner) { return cornerAt[tetPattern[tetrahedron].nodes[corner]]; }

/* ---- volumes ---- */

/* what each of the cells from slab i0 to i1 gives to one volume; its first element has position `first` there */
struct Piece { int vol, i0, i1; const Pattern *pattern; int first; };

static std::vector<Piece> piecesOf(const RunSpec &spec)
{
    const int nx = spec.nx;
    if (spec.mesh == Mesh::mixed) {
        const int wedges = slab(nx, 1, 4), pyramids = slab(nx, 2, 4), tets = slab(nx, 3, 4);
        return {{0, 0, wedges, &hexPattern, 0},
                {1, wedges, pyramids, &wedgePattern, 0},
                {2, pyramids, tets - 1, &pyramidPattern, 0},
                {2, tets - 1, tets, &lastPyramidPattern, 0},
                {3, tets - 1, tets, &firstTetPattern, 0},
                {3, tets, nx, &tetPattern, 0}};
    }
    std::vector<Piece> pieces;
    for (int v = 0; v < spec.nVols; ++v)
        pieces.push_back({v, slab(nx, v, spec.nVols), slab(nx, v + 1, spec.nVols),
                          spec.mesh == Mesh::hex ? &hexPattern : &tetPattern, 0});
    return pieces;
}

/* The nodes of element `elem` of the cell (i, j, k), all of them. */
void RunModel::elemNodes(const int *cellNodes, int type, int elem, int i, int j, int k, int *nodes) const
{
    const int nCorners = type == TET10 || type == BUBBLE ? 4 : nenOf(type);
    for (int n = 0; n < nCorners; ++n) {
        const int c = cellNodes[n];
        nodes[n] = c == 8 ? centreNode(i, j, k)
                          : latticeNode(grain * (i + cornerAt[c][0]), grain * (j + cornerAt[c][1]),
                                        grain * (k + cornerAt[c][2]));
    }
    if (type == BUBBLE) nodes[4] = bubbleNode(i, j, k, elem);
    if (type != TET10) return;
    for (int e = 0; e < 6; ++e) {
        const int *from = cornerAt[cellNodes[tet10Edges[e][0]]], *to = cornerAt[cellNodes[tet10Edges[e][1]]];
        nodes[4 + e] = latticeNode(2 * i + from[0] + to[0], 2 * j + from[1] + to[1], 2 * k + from[2] + to[2]);
    }
}

void RunModel::makeVolumes()
{
    const char *mixedNames[4] = {"hexahedra", "wedges", "pyramids", "tetrahedra"};
    std::vector<int> sdOfSlab(spec.nx);
    for (int sd = 0; sd < spec.nSds; ++sd)
        std::fill(sdOfSlab.begin() + slab(spec.nx, sd, spec.nSds),
                  sdOfSlab.begin() + slab(spec.nx, sd + 1, spec.nSds), sd);

    vols.resize(spec.nVols);
    int64_t nElems = 0;
    for (const Piece &piece : piecesOf(spec)) {
        VolSet &vol = vols[piece.vol];
        const int nCells = (piece.i1 - piece.i0) * spec.ny * spec.nz;
        vol.type = spec.mesh == Mesh::tet10 ? (int) TET10 : spec.mesh == Mesh::bubble ? (int) BUBBLE
                 : piece.pattern->front().type;
        vol.nen  = nenOf(vol.type);
        vol.name = spec.mesh == Mesh::mixed ? mixedNames[piece.vol]
                 : spec.nVols == 1 ? "fluid" : "fluid_" + std::to_string(piece.vol + 1);

        const size_t before = vol.sds.size(), more = (size_t) nCells * piece.pattern->size();
        vol.sds.resize(before + more);
        vol.cnn.resize((before + more) * vol.nen);
        int *nodes = vol.cnn.data() + before * vol.nen, *sd = vol.sds.data() + before;
        for (int k = 0; k < spec.nz; ++k)
            for (int j = 0; j < spec.ny; ++j)
                for (int i = piece.i0; i < piece.i1; ++i)
                    for (int e = 0; e < (int) piece.pattern->size(); ++e) {
                        elemNodes((*piece.pattern)[e].nodes.data(), vol.type, e, i, j, k, nodes);
                        nodes += vol.nen;
                        *sd++ = sdOfSlab[i];
                    }
        nElems += (int64_t) more;
    }
    if (spec.emptySets) {
        vols.push_back(VolSet());
        vols.back().name = "empty volume";
        vols.back().type = HEX;
        vols.back().nen  = 8;
    }

    const std::vector<int> ids = makeIds(nElems, 2);
    auto next = ids.begin();
    for (VolSet &vol : vols) {
        vol.usrIds.assign(next, next + (int64_t) vol.sds.size());
        next += (int64_t) vol.sds.size();
    }
}

/* ---- surface sets ---- */

namespace {

/* A surface set has one place, one parent volume and one surface code; other: the volume behind an interface. */
struct SetKey {
    Kind kind;
    int  vol, other, type;
    bool operator<(const SetKey &b) const
    {
        return std::tie(kind, vol, other, type) < std::tie(b.kind, b.vol, b.other, b.type);
    }
};
using SetMap = std::map<SetKey, SrfSet>;

/* a face of a pattern's element that lies on a side of its cell, or that touches another volume inside it */
struct SideFace { int elem, face, side; };

std::vector<SideFace> sideFaces(const Piece &piece)
{
    std::vector<SideFace> found;
    const bool mixedCells = piece.pattern == &lastPyramidPattern || piece.pattern == &firstTetPattern;
    for (int e = 0; e < (int) piece.pattern->size(); ++e) {
        const CellElem &elem = (*piece.pattern)[e];
        for (int f = 0; f < facesOf(elem.type).n; ++f) {
            int side = sideOf(elem, f);
            if (side == NO_SIDE && mixedCells && touchesTets(elem, f)) side = INNER;
            if (side != NO_SIDE) found.push_back({e, f, side});
        }
    }
    return found;
}

struct Cell { int i, j, k; };

/* Where a side of a cell lies, in *kind and *other; false if it is inside its volume, which has the slabs [v0, v1). */
bool whereIs(const RunSpec &spec, int vol, int v0, int v1, int side, const Cell &cell, Kind *kind, int *other)
{
    const bool ring = spec.shape == Shape::annulus;
    *kind  = INTERFACE;
    *other = -1;
    switch (side) {
    case X0:
        if (cell.i == 0) *kind = INLET;
        else *other = vol - 1;
        return cell.i == v0;
    case X1:
        if (cell.i == spec.nx - 1) *kind = OUTLET;
        else *other = vol + 1;
        return cell.i == v1 - 1;
    case Y0: *kind = SIDES;                return !ring && cell.j == 0;
    case Y1: *kind = SIDES;                return !ring && cell.j == spec.ny - 1;
    case Z0: *kind = ring ? SIDES : FLOOR; return cell.k == 0;           /* the hub of a ring */
    case Z1: *kind = FLOOR;                return cell.k == spec.nz - 1;
    default: *other = vol == 2 ? 3 : 2;    return true;                  /* INNER: pyramids and tetrahedra */
    }
}

void addSurface(const VolSet &vol, int elem, int face, SrfSet *set)
{
    const int *nodes = vol.cnn.data() + (size_t) elem * vol.nen;
    const auto &row = facesOf(vol.type).faces[face];
    set->elems.push_back(elem);
    set->faces.push_back(face);
    for (int n = 0; n < row.n; ++n) set->cnn.push_back(nodes[row.nodes[n]]);
    if (vol.type == TET10)
        for (int mid : tet10FaceMids[face]) set->cnn.push_back(nodes[mid]);
}

/* adds the surfaces of a piece of a volume that has the slabs [v0, v1) */
void addPiece(const RunModel &model, const Piece &piece, int v0, int v1, SetMap *sets)
{
    const RunSpec &spec = model.spec;
    const VolSet &vol = model.vols[piece.vol];
    const std::vector<SideFace> faces = sideFaces(piece);
    const bool everywhere = std::any_of(faces.begin(), faces.end(), [](const SideFace &f) { return f.side == INNER; });
    int first = piece.first;                                             /* element of the cell */
    for (int k = 0; k < spec.nz; ++k)
        for (int j = 0; j < spec.ny; ++j)
            for (int i = piece.i0; i < piece.i1; ++i, first += (int) piece.pattern->size()) {
                const bool inside = i > v0 && i < v1 - 1 && j > 0 && j < spec.ny - 1 && k > 0 && k < spec.nz - 1;
                if (inside && !everywhere) continue;
                for (const SideFace &f : faces) {
                    SetKey key = {NOWHERE, piece.vol, -1, 0};
                    if (!whereIs(spec, piece.vol, v0, v1, f.side, {i, j, k}, &key.kind, &key.other)) continue;
                    const int nCorners = facesOf(vol.type).faces[f.face].n;
                    key.type = nCorners == 4 ? (int) QUAD : vol.type == TET10 ? (int) TRI6 : (int) TRI;
                    addSurface(vol, first + f.elem, f.face, &(*sets)[key]);
                }
            }
}

std::string setName(const RunModel &model, const SetKey &key)
{
    static const char *const names[2][4] = {{"inlet", "outlet", "sides", "floor and lid"},
                                            {"inlet", "outlet", "hub", "casing"}};
    const std::string volume = model.vols[key.vol].name;
    if (key.kind == INTERFACE) return volume + " to " + model.vols[key.other].name;
    const std::string name = names[model.spec.shape == Shape::annulus][key.kind];
    const bool several = key.kind > OUTLET && model.spec.nVols > 1;
    return several ? name + " of " + volume : name;
}

}

void RunModel::makeSurfaces()
{
    std::vector<Piece> pieces = piecesOf(spec);
    struct Slabs { int v0, v1, nElems; };
    std::vector<Slabs> slabs(spec.nVols, {spec.nx, 0, 0});
    for (Piece &piece : pieces) {
        Slabs &s = slabs[piece.vol];
        piece.first = s.nElems;
        s.nElems += (piece.i1 - piece.i0) * spec.ny * spec.nz * (int) piece.pattern->size();
        s.v0 = std::min(s.v0, piece.i0);
        s.v1 = std::max(s.v1, piece.i1);
    }
    SetMap sets;
    for (const Piece &piece : pieces) addPiece(*this, piece, slabs[piece.vol].v0, slabs[piece.vol].v1, &sets);

    int64_t nSrfs = 0;
    for (const auto &entry : sets) nSrfs += (int64_t) entry.second.elems.size();
    const std::vector<int> ids = makeIds(nSrfs, 3);
    auto next = ids.begin();
    for (auto &entry : sets) {
        const SetKey &key = entry.first;
        SrfSet &set = entry.second;
        set.name      = setName(*this, key);
        set.vol       = key.vol;
        set.type      = key.type;
        set.nSrfNodes = key.type == TRI ? 3 : key.type == QUAD ? 4 : 6;
        set.neighbor  = -1;
        if (key.kind == INTERFACE) {
            const SetKey twin = {INTERFACE, key.other, key.vol, key.type};
            set.neighbor = (int) std::distance(sets.begin(), sets.find(twin));
        }
        set.usrIds.assign(next, next + (int64_t) set.elems.size());
        next += (int64_t) set.elems.size();
        kinds.push_back(key.kind);
        sfss.push_back(std::move(set));
    }
    if (spec.emptySets) {
        SrfSet none;
        none.name      = "empty surface";
        none.vol       = sfss[0].vol;
        none.type      = sfss[0].type;
        none.nSrfNodes = sfss[0].nSrfNodes;
        none.neighbor  = -1;
        kinds.push_back(NOWHERE);
        sfss.push_back(none);
    }
}

}
