"""A real run's gradients from the library, against a projection made with numpy and ParaView's Gradient filter.

    testGradient.py librdb.so FOLDER        folder of the run in several storage forms, with its mesh and values

The projection is the library's own, told again: at each point of the 2 x 2 x 2 rule of a hexahedron its gradient,
weighted for each node by the node's shape function and the point's weight. So they agree but for rounding.

ParaView's filter does otherwise: for each node it takes the plain mean, over the cells at the node, of the cell's
gradient at that corner. Both are exact for a linear field. Where a field curves they part, most of all at the faces of
the mesh, where the corners are on the face and the points within the cells. So fields of the run are only near: by root
mean square within 20 % of the size of the gradient, and along the same direction."""
import ctypes
import os
import sys

import numpy

library, folder = sys.argv[1:3]
if not os.path.exists(os.path.join(folder, "expected.npz")):
    print("skipped: no real run")
    sys.stdout.flush()
    os._exit(77)
rdb = ctypes.CDLL(library)
rdb.rdbNew.restype = ctypes.c_void_p
rdb.rdbGetError.restype = ctypes.c_char_p
right = numpy.load(os.path.join(folder, "expected.npz"))
points, cells = right["points"], right["volume"]
n = len(points)


def nodal(hd, key, i, step, dim):
    values = numpy.empty((n, dim))
    good = rdb.rdbGetReals2(hd, key.encode(), values.ctypes.data_as(ctypes.c_void_p), i, step, dim, n)
    assert good, (key, rdb.rdbGetError())
    return values


# ---- a hexahedron's shape functions and their local gradients at the points of the rule

corners = numpy.array([(-1, -1, -1), (1, -1, -1), (1, 1, -1), (-1, 1, -1),
                       (-1, -1, 1), (1, -1, 1), (1, 1, 1), (-1, 1, 1)], float)
rule = corners / numpy.sqrt(3)                                                  # all weights are 1


def shapes(at):
    factors = (1 + corners * at) / 2                                            # (node, direction)
    shape = factors.prod(axis=1)
    slopes = numpy.stack([corners[:, k] / 2 * factors[:, (k + 1) % 3] * factors[:, (k + 2) % 3] for k in range(3)], 1)
    return shape, slopes


def projected(values):
    """(node, component, direction)"""
    sums, weight = numpy.zeros((n, values.shape[1], 3)), numpy.zeros(n)
    for at in rule:
        shape, slopes = shapes(at)
        jacobians = numpy.einsum("eai,aj->eij", points[cells], slopes)
        size = abs(numpy.linalg.det(jacobians))
        local = numpy.einsum("eac,aj->ecj", values[cells], slopes)
        gradients = numpy.einsum("ecj,eji->eci", local, numpy.linalg.inv(jacobians))
        for a in range(8):
            numpy.add.at(weight, cells[:, a], shape[a] * size)
            numpy.add.at(sums, cells[:, a], gradients * (shape[a] * size)[:, None, None])
    return sums / weight[:, None, None]


def filtered(values):
    from vtkmodules.util.numpy_support import numpy_to_vtk, numpy_to_vtkIdTypeArray, vtk_to_numpy
    from vtkmodules.vtkCommonCore import vtkPoints
    from vtkmodules.vtkCommonDataModel import vtkCellArray, vtkDataObject, vtkUnstructuredGrid
    from vtkmodules.vtkFiltersGeneral import vtkGradientFilter

    grid, places, connectivity = vtkUnstructuredGrid(), vtkPoints(), vtkCellArray()
    places.SetData(numpy_to_vtk(points, deep=True))
    grid.SetPoints(places)
    connectivity.SetData(numpy_to_vtkIdTypeArray(numpy.arange(len(cells) + 1, dtype="i8") * 8, deep=True),
                         numpy_to_vtkIdTypeArray(cells.astype("i8").ravel(), deep=True))
    grid.SetCells(12, connectivity)
    array = numpy_to_vtk(numpy.squeeze(values), deep=True)
    array.SetName("values")
    grid.GetPointData().AddArray(array)
    gradient = vtkGradientFilter()
    gradient.SetInputData(grid)
    gradient.SetInputScalars(vtkDataObject.FIELD_ASSOCIATION_POINTS, "values")
    gradient.SetResultArrayName("gradient")
    gradient.Update()
    found = vtk_to_numpy(gradient.GetOutput().GetPointData().GetArray("gradient"))
    return found.reshape(n, values.shape[1], 3).astype(float)


def size(values):
    return numpy.sqrt((values ** 2).mean())


def near(got, expected, tolerance, what):
    apart = size(got - expected) / size(expected)
    print("%-32s apart %.1e" % (what, apart))
    assert apart <= tolerance, (what, apart)


for form in ("ascii", "binary", "swapped"):
    hd = ctypes.c_void_p(rdb.rdbNew(b"disk", b"QUENTA.DIR", os.path.join(folder, form).encode(), 0))
    assert hd and rdb.rdbOpenRun(hd, 1), rdb.rdbGetError()
    for step, factor in ((0, 1.0), (2, 0.25)):
        for v, name in enumerate(("velocity", "pressure", "temperature")):
            values = right[name].reshape(n, -1) * factor
            got = nodal(hd, "outGradValues", v, step, 3 * values.shape[1]).reshape(n, -1, 3)
            what = "%s, %s, step %d" % (form, name, step)
            near(got, projected(values), 1e-11, what)
            if form != "binary" or step:
                continue
            theirs = filtered(values)
            near(got, theirs, 0.2, "  the filter")
            along = (got * theirs).sum() / numpy.sqrt((got ** 2).sum() * (theirs ** 2).sum())
            assert along > 0.95, (what, along)
    g = projected(right["velocity"])
    near(nodal(hd, "outAuxValues", 2, 0, 1)[:, 0], numpy.linalg.norm(right["velocity"], axis=1), 1e-15, "  magnitude")
    near(nodal(hd, "outAuxValues", 3, 0, 3), numpy.stack([g[:, 2, 1] - g[:, 1, 2], g[:, 0, 2] - g[:, 2, 0],
                                                         g[:, 1, 0] - g[:, 0, 1]], 1), 1e-11, "  vorticity")
    rate = g + g.transpose(0, 2, 1)
    near(nodal(hd, "outAuxValues", 1, 0, 1)[:, 0], (rate ** 2).sum(axis=(1, 2)) / 2, 1e-11, "  strain rate")
    total = sum(abs(numpy.linalg.det(numpy.einsum("eai,aj->eij", points[cells], shapes(at)[1]))).sum() for at in rule)
    assert abs(nodal(hd, "outAuxValues", 0, 0, 1).sum() - total) < 1e-12 * total, "volume"
    rdb.rdbFree(hd)

# a linear field is no matter of how it is projected
slopes = numpy.array([[1., -2, 3], [0.5, 4, -1]])
linear = points @ slopes.T
near(filtered(linear[:, :1]), numpy.broadcast_to(slopes[:1], (n, 1, 3)), 1e-12, "linear, the filter")
near(projected(linear), numpy.broadcast_to(slopes, (n, 2, 3)), 1e-11, "linear, projected")
