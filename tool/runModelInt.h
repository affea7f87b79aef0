#ifndef TOOL_RUNMODELINT_H
#define TOOL_RUNMODELINT_H

/* runModelInt.h: shared by the sources of the run model and by nobody else. */

#include "tool/runModel.h"

namespace tool {

/* codes of elements and of surfaces */
enum { TET = 3, PYRAMID = 4, WEDGE = 5, HEX = 6, TET10 = 16, BUBBLE = 28 };
enum { TRI = 1, QUAD = 2, TRI6 = 15 };

/* where a surface set lies: the ends of the channel, its walls in both directions, between volumes, nowhere */
enum Kind { INLET, OUTLET, SIDES, FLOOR, INTERFACE, NOWHERE };

/* where a node is: a, b, c run from 0 to 1 along the lattice; cosine and sine are those of the turn of a bend, or of
   the angle in a ring; xyz is the place in space */
struct RunModel::Place { double a, b, c, cosine, sine, xyz[3]; };

/* runMesh.cpp: where a corner of one of the six tetrahedra of a cell is: 0 or 1 in each direction */
const int *cornerOf(int tetrahedron, int corner);

/* the first of nx slabs of cells that is in the n-th share, of so many */
inline int slab(int nx, int n, int of) { return (int) ((int64_t) nx * n / of); }

}

#endif
