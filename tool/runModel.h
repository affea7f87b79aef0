#ifndef TOOL_RUNMODEL_H
#define TOOL_RUNMODEL_H

/* runModel.h: what a generated run is to hold, and every value that a reader must find in it.
 *
 * RunSpec says what is wanted; RunModel is the run in memory: mesh, sets, groups, subdomains, variables, and the value
 * of each variable by formula. runWriter.h puts a model on disk. A test asks the model what must come out.
 *
 * The mesh is a lattice of nx by ny by nz cells, bent into a shape and cut into slabs along its first direction:
 * volumes are slabs, subdomains are slabs. Nodes, elements and sets are counted from 0 everywhere here; "position" is
 * such a count, "user id" is what the files call a node or an element.
 *
 *     tool::RunSpec spec;
 *     spec.mesh = tool::Mesh::mixed;
 *     spec.setVars("velocity,pressure,species:3");
 *     tool::RunModel model(spec);
 *     tool::writeRun(model);                          // ./pipe.1.Log, ./QUENTA.DIR/...
 *     ... model.value(0, 2, node, step) is the third component of velocity
 */

#include <cstdint>
#include <string>
#include <vector>

#include "tool/runFamilies.h"
#include "tool/runSetOuts.h"
#include "tool/tokenFile.h"

namespace tool {

enum class Mesh {
    hex,      /* hexahedra                                                                                  */
    tet,      /* tetrahedra, six to a cell                                                                  */
    tet10,    /* the same with ten nodes                                                                    */
    bubble,   /* the same with a fifth node in the middle                                                   */
    mixed     /* four volumes: hexahedra, wedges, pyramids, tetrahedra; conforming; needs nx of at least 4  */
};

enum class Shape {
    box,      /* x, y, z along the lattice                                                                  */
    bend,     /* a channel that turns by 90 degrees to the left                                             */
    annulus   /* a closed ring around the x axis: no walls in the second direction, which is the angle      */
};

enum class Fields {
    formula,  /* linear in the coordinates and the step, exact in 32 bits: see Formula                      */
    demo      /* a flow that a person enjoys looking at                                                     */
};

enum class Lines {
    all,        /* of all sets                                                                              */
    noVolumes,  /* no VOL lines, as in older runs: an element set is the volume                             */
    noSets      /* no VOL and no SFS lines: element sets are the volumes, surface groups the surface sets   */
};

struct RunSpec {
    /* the run and its files */
    std::string dir     = ".";            /* folder of <problem>.<run>.Log; made if missing                 */
    std::string problem = "pipe";
    int         run     = 1;
    std::string dataDir = "QUENTA.DIR";   /* folder of the data files, below dir; "." for beside the log    */
    std::string title   = "generated run";
    Form        form    = Form::binary;
    int         nSds    = 1;              /* subdomains; 0: no .ddc, one output part                        */
    bool        merged  = false;          /* one output file per step for all subdomains                    */

    /* mesh and sets */
    Mesh     mesh  = Mesh::hex;
    Shape    shape = Shape::box;
    int      nx = 4, ny = 2, nz = 2;      /* cells                                                          */
    int64_t  nodes = 0;                   /* above 0: nx, ny, nz are chosen for about so many nodes         */
    int      nVols = 1;                   /* slabs along the first direction; a mixed mesh has always four  */
    bool     scattered = false;           /* user ids unordered and with gaps, else 1, 2, 3, ...            */
    unsigned seed      = 1;               /* of what is scattered                                           */
    bool     emptySets = false;           /* adds a volume, a surface set and groups without elements       */
    bool     nodeSets  = false;           /* adds node sets, node pairs, output element sets                */
    bool     renumbered = false;          /* lines tell of other volumes by number than by name             */
    Lines    lines     = Lines::all;
    bool     nameNeighbors = true;        /* SFS.SFS lines for the two sides of an inner interface          */
    bool     osn = true;                  /* writes node lists of output surfaces                           */

    /* output */
    std::vector<int> steps = {0};         /* step numbers, ascending                                        */
    double   timeInc = 0.125;             /* time of a step is its number times this                        */
    uint64_t mask    = 7;                 /* bit i: row i of outVarRows                                     */
    bool     twoWords = false;            /* two mask words even where one would do                         */
    int      nSpecs = 0, nFields = 0, nFilms = 0, nAoutVecs = 0;
    bool     omitFilms  = false;          /* leaves out the key nFilms: a reader takes nSpecs in its place  */
    bool     omitFields = false;          /* leaves out nFields: a reader takes the count before it         */
    Fields   fields = Fields::formula;
    double   offset = 0;                  /* added to all formula values on nodes: tells writings apart     */
    std::vector<FamSpec> families;        /* other families of nodal output, with the same steps            */
    std::vector<SetFamSpec> setFamilies;  /* outputs on the nodes of surface sets, with the same steps      */
    bool     top = false;                 /* writes the log of time steps                                   */

    /* Sets mask and counts from "velocity,pressure,species:3": names or file keys, a number of members for species,
       field, film and auxiliary_output (1 if not given). A name that stands for three rows means the first. "all"
       is every row. Throws std::invalid_argument for what it does not know. */
    void setVars(const std::string &list);

    /* n steps first, first + stride, ... */
    void setSteps(int n, int first = 0, int stride = 1);
};

struct OutVarRow { const char *name, *key; int dim; };     /* dim 0: one of the four counts */
extern const OutVarRow outVarRows[37];

struct Var {
    int         index;                    /* row of outVarRows                     */
    std::string name, key;
    int         dim;
};

struct VolSet {
    std::string name;
    int type, nen;                        /* element code, nodes of an element     */
    std::vector<int> usrIds;
    std::vector<int> cnn;                 /* nen node positions per element        */
    std::vector<int> sds;                 /* subdomain of each element             */
    int nElems() const { return (int) usrIds.size(); }
};

struct SrfSet {
    std::string name;
    int vol;                              /* parent volume                         */
    int type, nSrfNodes;                  /* surface code, nodes of a surface      */
    int neighbor;                         /* the set of the other side, or -1      */
    std::vector<int> elems;               /* position in the parent volume         */
    std::vector<int> faces;               /* which face of that element            */
    std::vector<int> usrIds;
    std::vector<int> cnn;                 /* nSrfNodes node positions per surface  */
    int nSrfs() const { return (int) usrIds.size(); }
};

struct Group {
    std::string      name;
    std::vector<int> members;             /* volumes (elms), or surface sets; all of one type               */
    int              elm;                 /* the parent element set of a surface group; its own place of an elm */
};

enum class Family { elm, osf, cbc, rsf, srs };

struct NodeSet {
    std::string      name;
    int              var;
    std::vector<int> nodes;               /* positions; of a set of pairs two for each pair                 */
    std::vector<int> usrIds;              /* of pairs                                                       */
    int nPairs() const { return (int) usrIds.size(); }
};

struct OutElems {                         /* some elements, or all, of some volumes                         */
    struct Part {
        int vol, nen;                     /* nodes of an element that it tells of: perhaps not the middle   */
        std::vector<int> elems;           /* positions in the volume                                        */
    };
    std::string       name;
    bool              whole;
    std::vector<Part> parts;
};

/* value = c0 + cx x + cy y + cz z + cs s + cxs x s, with s the position of the step, from 0. Coordinates are those of
   the mesh at rest and multiples of 1/1024, coefficients are multiples of 1/128: all sums are exact in 64 bits. The
   spec's offset is in c0. */
struct Formula { double c0, cx, cy, cz, cs, cxs; };

/* an array that the reader plugin shows: components first to first+nComps-1 of a variable */
struct ShownArray { std::string name; int var, first, nComps; };

/* a named group as the reader plugin tells it: block numbers from 0, surface sets first, then volumes */
struct ShownGroup { std::string name; std::vector<int> blocks; };

class RunModel {
public:
    /* Throws std::invalid_argument with a clear text if the spec makes no sense. */
    explicit RunModel(const RunSpec &spec);

    RunSpec spec;                         /* completed: nx, ny, nz, nVols, the four counts                  */
    int     nNodes;
    std::vector<int>    usrIds;           /* of each node                                                   */
    std::vector<VolSet> vols;
    std::vector<SrfSet> sfss;
    std::vector<Group>  elms, osfs, cbcs, rsfs, srss;
    const std::vector<Group> &groups(Family family) const;
    std::vector<NodeSet>  nbcs, pbcs;     /* node sets, node pairs                                          */
    NodeSet               wall;           /* nodes of all walls                                             */
    std::vector<OutElems> oels;
    std::vector<std::vector<int>> parts;  /* node positions of each output part                             */
    std::vector<Var>    vars;
    std::vector<std::string> speciesNames, fieldNames;

    int    nSteps() const { return (int) spec.steps.size(); }
    double time(int step) const { return spec.timeInc * spec.steps[step]; }       /* of a step position      */
    void   crd(int node, double xyz[3]) const;                                     /* at rest, as in the file */

    /* all components at a node; var is a position in vars, step a position in the steps */
    void    values(int var, int node, int step, double *comps) const;
    double  value(int var, int comp, int node, int step) const;
    Formula formula(int var, int comp) const;                                      /* of Fields::formula      */
    int     varOf(const std::string &name) const;                                  /* position, -1 if none    */

    int nBlocks() const { return (int) (sfss.size() + vols.size()); }
    std::string      blockName(int block) const;     /* surface sets first, then volumes                    */
    std::vector<int> blockNodes(int block) const;    /* node positions in the order of the block's points   */
    int              cellType(int block) const;      /* the plugin's cell type; -1 where there is none      */
    std::vector<ShownArray> shownArrays() const;
    std::vector<ShownGroup> shownGroups(Family family) const;  /* boundary conditions of one name are merged   */

private:
    struct Place;                         /* a node's place on the lattice and in space */
    Place place(int node) const;
    Place middleOf(int tetrahedron) const;
    void  snap(double xyz[3]) const;
    int   latticeNode(int i, int j, int k) const;
    int   centreNode(int i, int j, int k) const;
    int   bubbleNode(int i, int j, int k, int elem) const;
    void  elemNodes(const int *cellNodes, int type, int elem, int i, int j, int k, int *nodes) const;
    std::vector<int> nodesOn(const std::vector<int> &places) const;
    std::vector<int> makeIds(int64_t n, unsigned kind) const;
    void  shuffle(std::vector<int> *list, unsigned kind) const;
    void  demoValues(int row, int dim, const Place &at, int step, double *comps) const;
    void  makeLattice();
    void  makeVars();
    void  makeVolumes();
    void  makeSurfaces();
    void  makeGroups();
    void  makeNodeSets();
    void  makeOutElems();
    void  surfacesFromGroups();
    void  makeParts();

    std::vector<int> kinds;               /* of each surface set: where it lies                             */
    int nxN, nyN, nzN;                    /* lattice nodes in each direction                                */
    int grain;                            /* lattice steps per cell: 2 for ten-node elements, else 1        */
    int centres0, centres1;               /* slabs of cells that have a node in their middle: [from, to)    */
    int bubbles;                          /* elements of a cell that have a node in their middle            */
};

}

#endif
