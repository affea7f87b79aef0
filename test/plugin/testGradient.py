"""Gradients and vorticity from the plugin and the library, against a projection made with numpy and ParaView's filter.

    testGradient.py librdb.so zrpMarivaneReader.so real FOLDER           folder of a real run in several storage forms
    testGradient.py librdb.so zrpMarivaneReader.so generated PROGRAM     the program that makes runs

Run by pvpython, in a fresh folder of its own. A skipped test ends with code 77.

The projection is the library's own, told again. At each quadrature point of an element stands the element's gradient
there; a node gets the mean of the points of all its elements, each weighted by the node's shape function at the point
and the point's share of the volume. So the two agree but for rounding, and the plugin's arrays are the library's
rounded to 32 bits.

ParaView's filter does otherwise: for each node it takes the plain mean, over the cells at the node, of the cell's
gradient at that corner. So a small cell counts as much as a large one, and the gradient at a face of the mesh is taken
on the face and not within the cells. Both are exact for a linear field; where a field curves they part by a term of
first order in the size of a cell, on the hexahedra here by up to a fifth of the gradient's size, by root mean square
over all nodes. A tetrahedron has one gradient for all its corners, so that only the weights of the cells differ. Both
point along nearly the same direction."""
import ctypes
import os
import shutil
import subprocess
import sys
import tempfile

import numpy
from paraview import servermanager, simple
from vtkmodules.util.numpy_support import numpy_to_vtk, vtk_to_numpy
from vtkmodules.vtkCommonDataModel import vtkDataObject
from vtkmodules.vtkFiltersGeneral import vtkGradientFilter

OURS = 1e-12                    # library and numpy: rounding of 64 bits, in sums of some hundred terms
ROUNDED = 1e-7                  # plugin and numpy: rounding to 32 bits
FILTER = {8: 0.2, 4: 0.02}      # plugin and filter, by the nodes of a cell: see above
ALONG = 0.97                    # cosine of the angle between the two

library, plugin, kind, source = sys.argv[1:3] + sys.argv[3:4] + [os.path.abspath(sys.argv[4])]
if kind == "real" and not os.path.isdir(source):
    print("skipped: no real run")
    sys.stdout.flush()
    os._exit(77)
rdb = ctypes.CDLL(os.path.abspath(library))
rdb.rdbNew.restype = ctypes.c_void_p
rdb.rdbGetError.restype = ctypes.c_char_p
made = {"": None}
simple.LoadPlugin(os.path.abspath(plugin), remote=False, ns=made)


# ---- the run through the library

class Run:
    def __init__(self, log):
        problem, run_id = os.path.basename(log).split(".")[:2]
        self.hd = ctypes.c_void_p(rdb.rdbNew(problem.encode(), b"QUENTA.DIR", os.path.dirname(log).encode(), 0))
        assert self.hd and rdb.rdbOpenRun(self.hd, int(run_id)), rdb.rdbGetError()
        self.n = self.count("nNodes")
        self.points = numpy.empty((self.n, 3))
        self.ask("rdbGetReals0", "crd", self.points, self.n, 3)
        ids = numpy.empty(self.n, "i4")
        self.ask("rdbGetInts0", "usrIds", ids, self.n, -1)
        nElems, nen = self.count("nVolElems", 0), self.count("nVolElemNodes", 0)
        cells = numpy.empty((nElems, nen), "i4")
        self.ask("rdbGetInts1", "volCnn", cells, 0, nElems, nen)
        self.cells = numpy.searchsorted(ids, cells)             # ids ascend in these runs

    def ask(self, call, key, to, *numbers):
        assert getattr(rdb, call)(self.hd, key.encode(), to.ctypes.data_as(ctypes.c_void_p), *numbers), (
            key, rdb.rdbGetError())

    def count(self, key, *index):
        n = ctypes.c_int()
        assert getattr(rdb, "rdbGetInt%d" % len(index))(self.hd, key.encode(), ctypes.byref(n), *index), key
        return n.value

    def nodal(self, key, i, step, dim):
        values = numpy.empty((self.n, dim))
        self.ask("rdbGetReals2", key, values, i, step, dim, self.n)
        return values

    def variables(self):
        for i in range(self.count("nOutVars")):
            name = ctypes.create_string_buffer(8192)
            assert rdb.rdbGetStr1(self.hd, b"outVarName", name, i)
            yield i, name.value.decode(), self.count("outVarDim", i)


# ---- the projection: an element's points, each with its weight, shape functions and their local gradients

def hexahedron():
    corners = numpy.array([(-1, -1, -1), (1, -1, -1), (1, 1, -1), (-1, 1, -1),
                           (-1, -1, 1), (1, -1, 1), (1, 1, 1), (-1, 1, 1)], float)
    for at in corners / numpy.sqrt(3):
        factors = (1 + corners * at) / 2                                        # (node, direction)
        yield 1.0, factors.prod(axis=1), numpy.stack(
            [corners[:, k] / 2 * factors[:, (k + 1) % 3] * factors[:, (k + 2) % 3] for k in range(3)], 1)


def tetrahedron():
    slopes = numpy.array([(1., 0, 0), (0, 1, 0), (0, 0, 1), (-1, -1, -1)])
    for node in range(4):
        shape = numpy.full(4, (5 - numpy.sqrt(5)) / 20)
        shape[node] = (5 + 3 * numpy.sqrt(5)) / 20
        yield 1 / 24, shape, slopes


def rule_of(cells):
    return {8: hexahedron, 4: tetrahedron}[cells.shape[1]]()


def projected(run, values):
    """(node, component, direction)"""
    cells = run.cells
    sums, weight = numpy.zeros((run.n, values.shape[1], 3)), numpy.zeros(run.n)
    for share, shape, slopes in rule_of(cells):
        jacobians = numpy.einsum("eai,aj->eij", run.points[cells], slopes)
        size = abs(numpy.linalg.det(jacobians)) * share
        local = numpy.einsum("eac,aj->ecj", values[cells], slopes)
        gradients = numpy.einsum("ecj,eji->eci", local, numpy.linalg.inv(jacobians))
        for a in range(cells.shape[1]):
            numpy.add.at(weight, cells[:, a], shape[a] * size)
            numpy.add.at(sums, cells[:, a], gradients * (shape[a] * size)[:, None, None])
    return sums / weight[:, None, None]


def volume(run):
    return sum(share * abs(numpy.linalg.det(numpy.einsum("eai,aj->eij", run.points[run.cells], slopes))).sum()
               for share, shape, slopes in rule_of(run.cells))


def curl(g):
    return numpy.stack([g[:, 2, 1] - g[:, 1, 2], g[:, 0, 2] - g[:, 2, 0], g[:, 1, 0] - g[:, 0, 1]], 1)


# ---- the filter

def filtered(grid, name, what="gradient"):
    gradient = vtkGradientFilter()
    gradient.SetInputData(grid)
    gradient.SetInputScalars(vtkDataObject.FIELD_ASSOCIATION_POINTS, name)
    gradient.SetResultArrayName("gradient")
    gradient.SetVorticityArrayName("vorticity of the filter")
    gradient.SetComputeVorticity(what != "gradient")
    gradient.Update()
    return shown(gradient.GetOutput(), what)


def shown(grid, name):
    array = grid.GetPointData().GetArray(name)
    return vtk_to_numpy(array).reshape(grid.GetNumberOfPoints(), -1).astype(float)


# ---- what is compared

def size(values):
    return numpy.sqrt((values ** 2).mean())


def near(got, expected, tolerance, what):
    expected = expected.reshape(got.shape)
    apart = size(got - expected) / size(expected)
    print("%-52s apart %.1e" % (what, apart))
    assert apart <= tolerance, (what, apart)


def like_the_filter(got, theirs, nen, what):
    near(got, theirs, FILTER[nen], what + ", the filter")
    cosine = (got * theirs).sum() / numpy.sqrt((got ** 2).sum() * (theirs ** 2).sum())
    assert cosine > ALONG, (what, cosine)


def check_library(run, what, steps):
    for step in steps:
        at = "%s, step %d, " % (what, step)
        for v, name, dim in run.variables():
            near(run.nodal("outGradValues", v, step, 3 * dim), projected(run, run.nodal("outValues", v, step, dim)),
                 OURS, at + name)
        u = run.nodal("outValues", 0, step, 3)
        g = projected(run, u)
        near(run.nodal("outAuxValues", 2, step, 1)[:, 0], numpy.linalg.norm(u, axis=1), OURS, at + "magnitude")
        near(run.nodal("outAuxValues", 3, step, 3), curl(g), OURS, at + "vorticity")
        rate = g + g.transpose(0, 2, 1)
        near(run.nodal("outAuxValues", 1, step, 1)[:, 0], (rate ** 2).sum(axis=(1, 2)) / 2, OURS, at + "strain rate")
    total = volume(run)
    assert abs(run.nodal("outAuxValues", 0, 0, 1).sum() - total) < OURS * total, "volume"


def check_plugin(run, log, what, steps):
    with open("options.cnf", "w") as file:
        file.write("verbose = 0\nextended_nodal_output = true\n")
    os.environ["QUENTA_CNF_FILES"] = "options.cnf"
    simple.SetActiveSource(None)
    source = made["zrpMarivaneReader"](FileName=log)
    nen = run.cells.shape[1]
    for step in steps:
        at = "%s in the plugin, step %d, " % (what, step)
        source.UpdatePipeline(step)
        data = servermanager.Fetch(source)
        grid = data.GetBlock(data.GetNumberOfBlocks() - 1)               # the one volume: all nodes, in their order
        assert grid.GetNumberOfPoints() == run.n
        exact = {"vorticity": run.nodal("outAuxValues", 3, step, 3)}
        for v, name, dim in list(run.variables())[:3]:
            exact["grad_" + name] = run.nodal("outGradValues", v, step, 3 * dim)
        for name, values in exact.items():
            assert numpy.array_equal(shown(grid, name), values.astype(numpy.float32)), at + name
        g = projected(run, run.nodal("outValues", 0, step, 3))
        near(shown(grid, "grad_velocity"), g, ROUNDED, at + "grad_velocity")
        near(shown(grid, "vorticity"), curl(g), ROUNDED, at + "vorticity")
        for name in ("velocity", "pressure", "temperature"):
            like_the_filter(shown(grid, "grad_" + name), filtered(grid, name), nen, at + "grad_" + name)
        like_the_filter(shown(grid, "vorticity"), filtered(grid, "velocity", "vorticity of the filter"), nen,
                        at + "vorticity")

        # a linear field is no matter of how it is projected
        slopes = numpy.array([(1., -2, 3), (0.5, 4, -1), (2, 0, 0.25)])
        linear = run.points @ slopes.T
        near(projected(run, linear), numpy.broadcast_to(slopes, (run.n, 3, 3)), OURS, "linear, projected")
        array = numpy_to_vtk(linear, deep=True)
        array.SetName("linear")
        grid.GetPointData().AddArray(array)
        near(filtered(grid, "linear"), numpy.broadcast_to(slopes, (run.n, 3, 3)), 1e-5, "linear, the filter")


folder = tempfile.mkdtemp(prefix="gradient.", dir=os.getcwd())
home = os.getcwd()
os.chdir(folder)
if kind == "real":
    for form in ("ascii", "binary", "swapped"):
        check_library(Run(os.path.join(source, form, "disk.1.Log")), form, (0, 2))
    log = os.path.join(source, "binary", "disk.1.Log")
    check_plugin(Run(log), log, "real", (0, 2))
else:
    for mesh in ("hex", "tet"):
        subprocess.run([source, mesh, "--mesh", mesh, "--shape", "bend", "--fields", "demo", "--nodes", "8000",
                        "--steps", "3"], check=True, stdout=subprocess.DEVNULL)
        log = os.path.abspath(mesh + "/pipe.1.Log")
        check_library(Run(log), mesh, (1,))
        check_plugin(Run(log), log, mesh, (1, 2))
os.chdir(home)
shutil.rmtree(folder)
print("passed")
