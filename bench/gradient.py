"""Gradients of a run's variables: the library's against ParaView's Gradient filter on the same mesh and values.

    pvpython gradient.py librdb.so <run.Log> [rounds]

Prints tables in Markdown: million elements per second, best of all rounds, by time and by processor time, of the
library, of the filter, and of the filter's faster approximation; how many times the library is as fast as each of the
two, by processor time; and how far each lies from the library (root mean square, relative). Then what the extended
arrays of one step cost by their number, in processor time. All in one process, in turns, with files in the system's
cache. The library reads the coordinates and the values for each gradient, the filter has both in memory.
"""
import ctypes
import os
import sys
import time

import numpy as np
from vtkmodules.util.numpy_support import numpy_to_vtk, numpy_to_vtkIdTypeArray, vtk_to_numpy
from vtkmodules.vtkCommonCore import vtkPoints
from vtkmodules.vtkCommonDataModel import vtkCellArray, vtkDataObject, vtkUnstructuredGrid
from vtkmodules.vtkFiltersGeneral import vtkGradientFilter

from runData import Run

CELL_TYPES = {4: 10, 5: 14, 6: 13, 8: 12}           # by number of nodes: tetrahedron, pyramid, wedge, hexahedron


class Library:
    def __init__(self, path, log):
        self.rdb = ctypes.CDLL(path)
        self.rdb.rdbNew.restype = ctypes.c_void_p
        self.rdb.rdbGetError.restype = ctypes.c_char_p
        problem, run_id = os.path.basename(log).split(".")[:2]
        self.hd = ctypes.c_void_p(self.rdb.rdbNew(problem.encode(), b"QUENTA.DIR", os.path.dirname(log).encode(), 0))
        self.good(self.hd and self.rdb.rdbOpenRun(self.hd, int(run_id)))
        n = ctypes.c_int()
        self.good(self.rdb.rdbGetInt0(self.hd, b"nNodes", ctypes.byref(n)))
        self.n_nodes = n.value

    def good(self, done):
        if not done:
            raise SystemExit(self.rdb.rdbGetError().decode())

    def array(self, key, i, step, dim):
        values = np.empty((self.n_nodes, dim))
        self.good(self.rdb.rdbGetReals2(self.hd, key.encode(), values.ctypes.data_as(ctypes.c_void_p), i, step, dim,
                                        self.n_nodes))
        return values


def grid_of(run):
    """The volumes of the run as one grid with all its nodes."""
    points = vtkPoints()
    points.SetData(numpy_to_vtk(np.ascontiguousarray(run.points), deep=True))
    blocks = [block for block in run.blocks if block.kind == "volume"]
    cells = np.concatenate([block.nodes[block.cells] for block in blocks])
    n, nen = cells.shape
    array = vtkCellArray()
    array.SetData(numpy_to_vtkIdTypeArray(np.arange(n + 1, dtype=np.int64) * nen, deep=True),
                  numpy_to_vtkIdTypeArray(cells.astype(np.int64).ravel(), deep=True))
    grid = vtkUnstructuredGrid()
    grid.SetPoints(points)
    grid.SetCells(CELL_TYPES[nen], array)
    for name, values in run.values(0).items():
        vtk_array = numpy_to_vtk(np.squeeze(values), deep=True)
        vtk_array.SetName(name)
        grid.GetPointData().AddArray(vtk_array)
    return grid, n


def filtered(grid, name, faster):
    gradient = vtkGradientFilter()
    gradient.SetInputData(grid)
    gradient.SetInputScalars(vtkDataObject.FIELD_ASSOCIATION_POINTS, name)
    gradient.SetResultArrayName("gradient")
    gradient.SetFasterApproximation(faster)
    gradient.Update()
    return vtk_to_numpy(gradient.GetOutput().GetPointData().GetArray("gradient"))


def best_of(rounds, before, works):
    """Of each work the best time, the best processor time of all threads, and the last answer; in turns. `before` goes
    ahead of each and is not measured."""
    walls, cpus, answers = [[1e30] * len(works) for _ in range(2)] + [[None] * len(works)]
    for _ in range(rounds):
        for i, work in enumerate(works):
            before()
            begin, cpu = time.perf_counter(), time.process_time()
            answers[i] = work()
            walls[i] = min(walls[i], time.perf_counter() - begin)
            cpus[i] = min(cpus[i], time.process_time() - cpu)
    return walls, cpus, answers


def apart(ours, theirs):
    return np.sqrt(((ours - theirs.reshape(ours.shape)) ** 2).mean() / (ours ** 2).mean())


def gradients(library, run, label, rounds):
    grid, n = grid_of(run)
    for i, (name, _, dim) in list(enumerate(run.variables))[:2]:               # a vector and a scalar
        walls, cpus, answers = best_of(rounds, lambda: library.array("outValues", 0, 1, 3),   # forgets what step 0 left
                                       (lambda: library.array("outGradValues", i, 0, 3 * dim),
                                        lambda: filtered(grid, name, 0), lambda: filtered(grid, name, 1)))
        cells = ["%.2f / %.2f" % (n / wall / 1e6, n / cpu / 1e6) for wall, cpu in zip(walls, cpus)]
        cells += ["%.1f" % (cpus[k] / cpus[0]) for k in (1, 2)]
        cells += ["%.0e" % apart(answers[0], answers[k]) for k in (1, 2)]
        print("| %s, %s | %s |" % (label, name, " | ".join(cells)), flush=True)


# what the reader asks for at a step with its extended output, in its order: key, index, components
EXTENDED = [("outValues", 0, 3), ("outValues", 1, 1), ("outValues", 2, 1), ("outGradValues", 0, 9),
            ("outGradValues", 1, 3), ("outGradValues", 2, 3), ("outAuxValues", 0, 1), ("outAuxValues", 1, 1),
            ("outAuxValues", 2, 1), ("outAuxValues", 3, 3)]


def arrays(library, label, rounds):
    """The first k arrays of a step, for each k; every time another step than before, whose files are not open."""
    best, step = {}, 0
    for _ in range(rounds):
        for k in range(1, len(EXTENDED) + 1):
            step = 1 - step
            begin = time.process_time()             # one thread, files in the cache: only this is not disturbed
            for key, i, dim in EXTENDED[:k]:
                library.array(key, i, step, dim)
            best[k] = min(best.get(k, 1e30), time.process_time() - begin)
    for k, (key, i, _) in enumerate(EXTENDED, 1):
        print("| %s | %d | %s %d | %.0f | %.0f |" % (label, k, key, i, 1000 * best[k], 1000 * best[k] / k), flush=True)


def main():
    log, rounds = sys.argv[2], int(sys.argv[3]) if len(sys.argv) > 3 else 2
    library, run, label = Library(sys.argv[1], log), Run(log), os.path.basename(os.path.dirname(log))
    print("| mesh, variable | library | filter | faster | ratio | ratio | apart | apart |\n" + "|---|" + "--:|" * 7)
    gradients(library, run, label, rounds)
    print("\n| mesh | arrays | the last one | ms, all of them | ms, each |\n|---|--:|---|--:|--:|")
    arrays(library, label, rounds)


main()
