"""Measures one reader in a process of its own: opening with the first step, going on, going back, peak memory.

    pvpython read.py <reader> <file> <expect.json> [<plugin>]

Prints one line of JSON behind the word RESULT. What is delivered is held against expect.json after every step, outside
the measured time: points and cells of all blocks, the sum of every array on every block, and at the end the place of
the cells.
"""
import json
import sys
import time

import numpy as np

import paraview.simple as pv
from vtkmodules.util.numpy_support import vtk_to_numpy


def marivane(file):
    return pv.zrpMarivaneReader(FileName=file)


def ensight(file):
    return pv.EnSightReader(CaseFileName=file)


def ioss(file):
    return pv.IOSSReader(FileName=[file], ReadIds=0)


def exodus(file):
    return pv.ExodusIIReader(FileName=[file], PointVariables=["velocity", "pressure", "temperature"],
                             GenerateGlobalElementIdArray=0, GenerateGlobalNodeIdArray=0, GenerateObjectIdCellArray=0)


def cgns(file, caches=0):
    return pv.CGNSSeriesReader(FileNames=[file], Bases=["volume", "surface"], DoublePrecisionMesh=0,
                               PointArrayStatus=["velocity", "pressure", "temperature"],
                               CacheMesh=caches, CacheConnectivity=caches)


def cgns_cached(file):
    return cgns(file, 1)


def vtkhdf(file):
    return pv.VTKHDFReader(FileName=[file.replace("_0.", "_%d." % step) for step in range(n_steps)])


def xml(file):
    return pv.PVDReader(FileName=file)


READERS = {f.__name__: f for f in (marivane, ensight, ioss, exodus, cgns, cgns_cached, vtkhdf, xml)}


def leaves(data):
    if not data.IsA("vtkCompositeDataSet"):
        return [data]
    grids = []
    at = data.NewIterator()
    at.InitTraversal()
    while not at.IsDoneWithTraversal():
        grids.append(at.GetCurrentDataObject())
        at.GoToNextItem()
    return [grid for grid in grids if grid.GetNumberOfPoints()]


def same(found, expected):
    return np.allclose(found, expected, rtol=1e-9, atol=1e-6)


def check(grids, step):
    """Grids and what is expected of them come in the same order once both are sorted by size and values."""
    def key(row):
        return [round(x, 3) for x in row]

    found = []
    for grid in grids:
        row = [grid.GetNumberOfPoints(), grid.GetNumberOfCells()]
        for name, n in (("velocity", 3), ("pressure", 1), ("temperature", 1)):
            array = grid.GetPointData().GetArray(name)
            if array is None or array.GetNumberOfComponents() != n:
                raise SystemExit("step %d: no %s" % (step, name))
            row += np.atleast_1d(np.sum(vtk_to_numpy(array), axis=0, dtype=np.float64)).tolist()
        found.append(row)
    wanted = [[block["points"], block["cells"]] + block["sums"][step] for block in blocks]
    if len(found) != len(wanted) or not all(map(same, sorted(found, key=key), sorted(wanted, key=key))):
        raise SystemExit("step %d: expected %s, found %s" % (step, wanted, found))


def check_places(grids):
    """The sum of the coordinates of all corners of all cells: points and connectivity together."""
    found = sorted(vtk_to_numpy(grid.GetPoints().GetData())[vtk_to_numpy(grid.GetCells().GetConnectivityArray())]
                   .sum(axis=0, dtype=np.float64).tolist() for grid in grids)
    wanted = sorted(block["places"] for block in blocks)
    if not all(map(same, found, wanted)):
        raise SystemExit("places: expected %s, found %s" % (wanted, found))


def peak():
    with open("/proc/self/status") as status:
        return next(float(line.split()[1]) / 1024 for line in status if line.startswith("VmHWM"))


name, file, expect = sys.argv[1:4]
with open(expect) as text:
    expect = json.load(text)
n_steps = expect["steps"]
blocks = [block for block in expect["blocks"] if name != "vtkhdf" or block["kind"] == "volume"]
if len(sys.argv) > 4:
    pv.LoadPlugin(sys.argv[4], remote=False, ns=pv.__dict__)

pv.Sphere().UpdatePipeline()                    # what the first source of a process costs is nobody's
pv.SetActiveSource(None)                        # nor is it anybody's input
peak_before = peak()

result = {what + kind: [] for what in ("open", "next", "back") for kind in ("", "_cpu")}
clocks = {"": time.perf_counter, "_cpu": time.process_time}


def timed(what, work):
    """Adds the time and the processor time (of all threads) of work() to the result."""
    begin = {kind: clock() for kind, clock in clocks.items()}
    work()
    for kind, clock in clocks.items():
        result[what + kind].append(clock() - begin[kind])


def open_first():
    global reader, times
    reader = READERS[name](file)
    times = list(reader.TimestepValues)
    reader.UpdatePipeline(times[0])


def delivered():
    return leaves(reader.GetClientSideObject().GetOutputDataObject(0))


def update(step, what):
    timed(what, lambda: reader.UpdatePipeline(times[step]))
    check(delivered(), step)


timed("open", open_first)
check(delivered(), 0)
for s in range(1, n_steps):
    update(s, "next")
for s in range(n_steps - 3, -1, -2):
    update(s, "back")
result["peak"] = peak()
result["before"] = peak_before
check_places(delivered())
print("RESULT " + json.dumps(result))
