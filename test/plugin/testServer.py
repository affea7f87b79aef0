"""The plugin as a ParaView server meets it: loaded, described, asked for data in a pipeline. Run by pvpython:

    pvpython testServer.py TEST            with in the environment:
    RDB_PLUGIN      the plugin
    RDB_WRITE_RUN   the program that makes runs
    RDB_REAL_RUN    folder of a real run in several storage forms; without it the tests of it are skipped
    RDB_NO_SLEEP    library that keeps a program from really waiting

It runs in a fresh folder of its own. A skipped test ends with code 77."""
import ctypes
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

import numpy
from paraview import servermanager, simple
from vtkmodules.util.numpy_support import vtk_to_numpy

PLUGIN = os.path.abspath(os.environ["RDB_PLUGIN"])
WRITE_RUN = os.environ["RDB_WRITE_RUN"]
REAL_RUN = os.environ.get("RDB_REAL_RUN", "")
TESTS = {}


def test(f):
    TESTS[f.__name__] = f
    return f


def same(got, expected, what=""):
    if got != expected:
        sys.exit("%s\n  got      %r\n  expected %r" % (what, got, expected))


def skip(why):
    print("skipped:", why)
    sys.stdout.flush()
    os._exit(77)


# ---- helpers ----

MADE = {"": None}                            # what loading the plugin brings; an empty one would be passed over


def load():
    if len(MADE) == 1:
        simple.LoadPlugin(PLUGIN, remote=False, ns=MADE)
    return MADE


def run_script(script, *args):
    """Exit code, standard output and standard error of a pvpython that runs a script with the plugin as argument."""
    open("script.py", "w").write(script)
    environment = dict(os.environ, LD_PRELOAD=os.environ["RDB_NO_SLEEP"])
    done = subprocess.run([shutil.which("pvpython"), "script.py", PLUGIN] + [str(a) for a in args], env=environment,
                          universal_newlines=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=100)
    return done.returncode, done.stdout, done.stderr


def options(text="verbose = 0\n"):
    with open("options.cnf", "w") as file:
        file.write(text)
    os.environ["QUENTA_CNF_FILES"] = "options.cnf"


def write_run(*args, **kwargs):
    """Makes a run in the folder `run`. What must come out of it, and its log's path."""
    folder = kwargs.get("folder", "run")
    subprocess.run([WRITE_RUN, folder, "--expect", "expect.json"] + list(args), check=True, stdout=subprocess.DEVNULL)
    expect = json.load(open("expect.json"))
    return expect, os.path.abspath(os.path.join(folder, "pipe.1.Log"))


def reader(log):
    make = load()["zrpMarivaneReader"]
    simple.SetActiveSource(None)             # else the description's input would be connected to it
    return make(FileName=log)


def info(source, name):
    """Values of an information property."""
    prop = source.SMProxy.GetProperty(name)
    source.SMProxy.UpdatePropertyInformation(prop)
    return [prop.GetElement(i) for i in range(prop.GetNumberOfElements())]


def blocks(source, time=None):
    source.UpdatePipeline() if time is None else source.UpdatePipeline(time)
    data = servermanager.Fetch(source)
    return [data.GetBlock(i) for i in range(data.GetNumberOfBlocks())]


def points(grid):
    return vtk_to_numpy(grid.GetPoints().GetData()).reshape(-1, 3)


def arrays(grid):
    data = grid.GetPointData()
    return {data.GetArrayName(i): vtk_to_numpy(data.GetArray(i)) for i in range(data.GetNumberOfArrays())}


def connectivity(grid):
    cells = grid.GetCells()
    return vtk_to_numpy(cells.GetConnectivityArray()).reshape(cells.GetNumberOfCells(), -1)


def check_values(grids, expect, step):
    """All arrays of all blocks against the formulas of a generated run; exact, since 32 bits hold every number."""
    for grid, block in zip(grids, expect["blocks"]):
        xyz, shown = points(grid).astype(float), arrays(grid)
        same(set(shown), {a["name"] for a in expect["arrays"]}, block["name"])
        for a in expect["arrays"]:
            values = shown[a["name"]].reshape(len(xyz), a["components"])
            for c, (c0, cx, cy, cz, cs, cxs) in enumerate(a["formulas"]):
                x, y, z = xyz.T
                right = (c0 + cx * x + cy * y + cz * z + cs * step + cxs * x * step).astype(numpy.float32)
                same(numpy.array_equal(values[:, c], right), True,
                     "%s of %s at step %d" % (a["name"], block["name"], step))


# ---- the shell ----

@test
def tellsItsNameAndVersion():
    load()
    manager = servermanager.vtkSMProxyManager.GetProxyManager().GetPluginManager()
    plugins = manager.GetLocalInformation()
    for i in range(plugins.GetNumberOfPlugins()):
        if plugins.GetPluginName(i) == "zrpMarivaneReader":
            same(plugins.GetPluginVersion(i), "2.0")
            same(bool(plugins.GetPluginLoaded(i)), True)
            same(bool(plugins.GetRequiredOnServer(i)), False)
            same(bool(plugins.GetRequiredOnClient(i)), False)
            same(plugins.GetRequiredPlugins(i) or "", "")
            if hasattr(plugins, "GetDescription"):
                same(plugins.GetDescription(i), "Reader for Marivane data")
            return
    sys.exit("the plugin is not in the list")


@test
def opensByTheExtensionLog():
    options()
    expect, log = write_run()
    load()
    simple.SetActiveSource(None)
    source = simple.OpenDataFile(log)
    same(source.GetXMLName(), "zrpMarivaneReader")
    check_values(blocks(source), expect, 0)


# ---- generated runs ----

@test
def answersItsInformationProperties():
    options()
    expect, log = write_run("--steps", "4", "--volumes", "2", "--vars", "velocity,pressure,species:2")
    source = reader(log)
    source.UpdatePipelineInformation()
    same(info(source, "TimestepValues"), [0.0, 1.0, 2.0, 3.0])
    names = [a["name"] for a in expect["arrays"]]
    same(info(source, "PointArrayInfo"), [text for name in names for text in (name, "1")])
    grouping = json.loads(info(source, "DataGroupingString")[0])
    same(grouping.pop("ModelName"), "pipe")
    same(grouping,
         {key: {g["name"]: g["blocks"] for g in groups} for key, groups in expect["groups"].items() if groups})
    same(info(source, "BlockCentroids"), [0.0] * 3 * len(expect["blocks"]))
    same(info(source, "LoadExtVariables"), [""])


@test
def deliversBlocksOfEveryKind():
    for mesh in ("hex", "tet", "mixed"):
        for form in ("ascii", "binary", "swapped"):
            options()
            expect, log = write_run("--mesh", mesh, "--form", form, "--ids", "scattered", "--subdomains", "2",
                                    "--empty-sets", folder=mesh + form)
            source = reader(log)
            grids = blocks(source)
            same([(g.GetNumberOfCells(), g.GetNumberOfPoints()) for g in grids],
                 [(b["nCells"], b["nPoints"]) for b in expect["blocks"]], mesh + form)
            same([g.GetCellType(0) for g in grids if g.GetNumberOfCells()],
                 [b["cellType"] for b in expect["blocks"] if b["nCells"]], mesh + form)
            check_values(grids, expect, 0)


@test
def followsTimeAndSelection():
    options()
    expect, log = write_run("--steps", "4", "--first-step", "5", "--stride", "10",
                            "--vars", "velocity,pressure,temperature")
    source = reader(log)
    for time, step in ((0, 0), (2, 2), (1, 1), (2.5, 3), (99, 3), (0, 0)):
        check_values(blocks(source, time), expect, step)
    source.PointArrayStatus = ["pressure"]
    same(len(arrays(blocks(source, 0)[0])), 3, "a selection shows with the next step only")
    same(list(arrays(blocks(source, 1)[0])), ["pressure"])
    source.PointArrayStatus = [a["name"] for a in expect["arrays"]]
    check_values(blocks(source, 2), expect, 2)


@test
def movesTheMesh():
    options()
    expect, log = write_run("--steps", "3", "--vars", "pressure", "--moving")
    source = reader(log)
    rest = [points(g).copy() for g in blocks(source, 0)]
    for step in (2, 1, 0):
        for grid, still in zip(blocks(source, step), rest):
            moved = points(grid)
            by = arrays(grid)["mesh_displacement"].astype(float)
            expected = (still + by).astype(numpy.float32) if step else still
            same(numpy.array_equal(moved, expected), True, "step %d" % step)


@test
def deliversTheExtendedList():
    """With the option extended_nodal_output: gradients, what is computed from the velocity, the other families, sets at
    the nodes."""
    expect, log = write_run("--nodes", "500", "--steps", "3", "--vars", "velocity,pressure",
                            "--families", "ora,odq,onr,oee,oae,ota", "--set-families", "osf,orf,oqf", "--log-steps")
    options("verbose = 0\nextended_nodal_output = true\n")
    source = reader(log)
    shown = blocks(source, 1)
    names = set(arrays(shown[0]))
    wanted = {"velocity": 3, "pressure": 1, "grad_velocity": 9, "grad_pressure": 3, "volume": 1,
              "strain_rate_invariant_2": 1, "velocity_magnitude": 1, "vorticity": 3}
    same(set(wanted) - names, set())
    same([p for p in ("running_ave_", "residual_", "error_estimator_", "time_ave_error_", "time_ave_", "surface_",
                      "radiation_", "solar_") if not any(n.startswith(p) for n in names)], [])
    step = 1
    formulas = {a["name"]: a["formulas"] for a in expect["arrays"]}
    for grid in shown:
        values = {n: v.reshape(len(points(grid)), -1) for n, v in arrays(grid).items()}
        same({n: values[n].shape[1] for n in wanted}, wanted)
        u = values["velocity"].astype(float)
        same(numpy.allclose(values["velocity_magnitude"][:, 0], numpy.sqrt((u * u).sum(axis=1)), rtol=1e-6), True)
        # the fields are linear in space, and what is linear has its gradient exactly but for rounding
        for name in ("velocity", "pressure"):
            right = [d for c0, cx, cy, cz, cs, cxs in formulas[name] for d in (cx + cxs * step, cy, cz)]
            same(numpy.allclose(values["grad_" + name], right, rtol=1e-5, atol=1e-5), True, "grad_" + name)
        g = values["grad_velocity"]
        curl = numpy.stack([g[:, 7] - g[:, 5], g[:, 2] - g[:, 6], g[:, 3] - g[:, 1]], axis=1)
        same(numpy.allclose(values["vorticity"], curl, atol=1e-5), True)


@test
def reloadingShowsWhatTheSolverWroteSince():
    """The list of steps is that of the opening, until the user reloads the file; what was chosen stays chosen."""
    options("verbose = 0\nextended_nodal_output = true\n")
    families = ("--vars", "velocity,pressure", "--set-families", "oqf", "--log-steps")
    _, log = write_run("--steps", "2", *families)
    source = reader(log)
    source.UpdatePipeline(1)
    source.PointArrayStatus = ["pressure", "solar_area"]
    expect, _ = write_run("--steps", "4", *families)
    source.UpdatePipelineInformation()
    same(info(source, "TimestepValues"), [0.0, 1.0])
    simple.ReloadFiles(source)
    source.UpdatePipelineInformation()
    same(info(source, "TimestepValues"), [0.0, 1.0, 2.0, 3.0])
    same(list(source.PointArrayStatus), ["pressure", "solar_area"])
    expect["arrays"] = [a for a in expect["arrays"] if a["name"] == "pressure"]
    grids = blocks(source, 3)
    same(set(arrays(grids[0])), {"pressure", "solar_area"})
    same(max(arrays(grid)["solar_area"].max() for grid in grids) > 0, True, "the log has grown, too")
    for grid in grids:
        grid.GetPointData().RemoveArray("solar_area")
    check_values(grids, expect, 3)


@test
def dataOutliveTheSource():
    options()
    expect, log = write_run("--steps", "2")
    source = reader(log)
    grids = blocks(source, 1)
    simple.Delete(source)
    del source
    check_values(grids, expect, 1)


@test
def filtersSurviveEverything():
    """Cells of a type that VTK lacks, arrays that the run does not have, blocks without cells."""
    options()
    _, unknown_cells = write_run("--mesh", "tet10", "--cells", "4,2,2", folder="tet10")
    _, empty_sets = write_run("--empty-sets", folder="empty")
    _, no_values = write_run("--form", "ascii", "--vars", "auxiliary_output:1,mesh_velocity", folder="none")
    data = "none/QUENTA.DIR/pipe.1_0_0.out"
    text = open(data).read()
    text = re.sub(r"nAoutVecs\s+1", "nAoutVecs\n0", text)                # a variable of no arrays ...
    text = re.sub(r"aoutVec\s+1\s+(\d+)\s+[^a-z]*", r"aoutVec\n0\n\1\n", text)
    open(data, "w").write(text)                                          # ... which makes the next one unavailable
    for log in (unknown_cells, empty_sets, no_values):
        source = reader(log)
        source.UpdatePipeline()
        for name in ("ExtractSurface", "MergeBlocks", "Clip", "Slice", "CellCenters", "PointDatatoCellData", "Contour",
                     "ExtractEdges", "Threshold"):
            result = getattr(simple, name)(Input=source)
            result.UpdatePipeline()
            simple.Delete(result)


@test
def theScriptOfTheDocumentationMakesItsPicture():
    if not shutil.which("xvfb-run"):
        skip("no display")
    _, log = write_run("--shape", "bend", "--fields", "demo", "--nodes", "3000", "--vars", "velocity,pressure")
    script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "doc", "vorticity.py")
    subprocess.run(["xvfb-run", "-a", "-s", "-noreset -screen 0 1600x1000x24", shutil.which("pvpython"), script, PLUGIN,
                    log, "picture.png"], check=True, timeout=100)
    picture = open("picture.png", "rb").read()
    same(picture[:4], b"\x89PNG")
    same(len(picture) > 20000, True, "a picture of something")


# ---- a real run ----

def real_cells():
    """The mesh and the values of the real run, and the cells of its blocks."""
    expected = os.path.join(REAL_RUN, "expected.npz")
    if not REAL_RUN or not os.path.exists(expected):
        skip("no real run")
    right = numpy.load(expected)
    return right, [right["set_" + name] for name in ("inflow", "outflow", "shell", "disk")] + [right["volume"]]


def real_log(form):
    return os.path.join(REAL_RUN, form, "disk.1.Log")


def real(form):
    right, cells = real_cells()
    options()
    source = reader(real_log(form))
    source.UpdatePipelineInformation()
    same(info(source, "TimestepValues"), [0.0, 1.0, 2.0])
    same(info(source, "PointArrayInfo")[::2], ["velocity", "pressure", "temperature", "AsH3", "CH4", "GaMe3", "H2"])
    same(info(source, "DataGroupingString"),
         ['{"ModelName":"disk","ELMs":{"gas":[5]},"CBCs":{"inflow":[1],"walls":[3,4]},'
          '"OSFs":{"disk":[4],"outflow":[2]}}'])

    # the nodes of a block in the order of its points: user ids ascend, so both orders of the reader are this one
    nodes = [numpy.unique(c) for c in cells]
    names = ("velocity", "pressure", "temperature", "AsH3", "CH4", "GaMe3", "H2")
    for step in (0, 1, 2, 1, 0):
        factor = (1.0, 0.5, 0.25)[step]
        grids = blocks(source, step)
        same(len(grids), 5)
        for b, grid in enumerate(grids):
            at = "block %d, step %d" % (b, step)
            types = [grid.GetCellType(i) for i in range(grid.GetNumberOfCells())]
            same(types, [9 if b < 4 else 12] * len(cells[b]), at)
            same(numpy.array_equal(points(grid), right["points"][nodes[b]].astype(numpy.float32)), True,
                 "points, " + at)
            same(numpy.array_equal(nodes[b][connectivity(grid)], cells[b]), True, "cells, " + at)
            shown = arrays(grid)
            same(set(shown), set(names), at)
            for name in names:
                values = (right[name][nodes[b]] * factor).astype(numpy.float32)
                same(shown[name].dtype, numpy.float32)
                same(numpy.array_equal(shown[name].reshape(values.shape), values), True, name + ", " + at)


@test
def realRunInText():
    real("ascii")


@test
def realRunInBinary():
    real("binary")


@test
def realRunInTheOtherByteOrder():
    real("swapped")


@test
def realRunWithItsExtendedList():
    """Every array of every block at every step is what the library answers, rounded to 32 bits."""
    right, cells = real_cells()
    nodes = [numpy.unique(c) for c in cells]
    n = len(right["points"])
    entries = [("velocity", 3), ("pressure", 1), ("temperature", 1), ("species", 4), ("grad_velocity", 9),
               ("grad_pressure", 3), ("grad_temperature", 3), ("grad_species", 12), ("volume", 1),
               ("strain_rate_invariant_2", 1), ("velocity_magnitude", 1), ("vorticity", 3)]
    split = {"species": ["AsH3", "CH4", "GaMe3", "H2"]}
    options("verbose = 0\nextended_nodal_output = true\n")
    load()
    rdb = ctypes.CDLL(PLUGIN)                    # the plugin is the library, too
    rdb.rdbNew.restype = ctypes.c_void_p
    for form in ("ascii", "binary", "swapped"):
        hd = ctypes.c_void_p(rdb.rdbNew(b"disk", b"QUENTA.DIR", os.path.join(REAL_RUN, form).encode(), 0))
        same(bool(hd) and rdb.rdbOpenRun(hd, 1), 1, form)
        source = reader(real_log(form))
        source.UpdatePipelineInformation()
        names = [name for entry, _ in entries for name in split.get(entry, [entry])]
        same(info(source, "PointArrayInfo")[::2], names, form)
        for step in (0, 1, 2, 0):
            grids = blocks(source, step)
            same([set(arrays(grid)) for grid in grids], [set(names)] * len(cells), form)
            for i, (entry, dim) in enumerate(entries):
                values = numpy.empty((n, dim))
                good = rdb.rdbGetReals2(hd, b"outExtValues", values.ctypes.data_as(ctypes.c_void_p), i, step, dim, n)
                same(good, 1, entry)
                parts = split.get(entry, [entry])
                for s, name in enumerate(parts):
                    expected = values[:, s:s + 1] if len(parts) > 1 else values
                    for b, grid in enumerate(grids):
                        at = "%s, %s, block %d, step %d" % (form, name, b, step)
                        array = grid.GetPointData().GetArray(name)
                        same(array.GetNumberOfComponents(), expected.shape[1], at)
                        same([array.GetComponentName(c) for c in range(expected.shape[1])], [None] * expected.shape[1])
                        got = vtk_to_numpy(array).reshape(len(nodes[b]), -1)
                        same(numpy.array_equal(got, expected[nodes[b]].astype(numpy.float32)), True, at)


# ---- what is said, by a process of its own ----

OPEN = """
import sys
from paraview import simple
made = {"": None}
simple.LoadPlugin(sys.argv[1], remote=False, ns=made)
source = made["zrpMarivaneReader"](FileName=sys.argv[2])
for time in sys.argv[3:]:
    source.UpdatePipeline(float(time))
print("still here")
"""


def said(log, *times):
    """What a process says that opens a log and updates at the times."""
    return run_script(OPEN, log, *times)


def has(text, *parts):
    for part in parts:
        if part not in text:
            sys.exit("missing: %s\nin: %s" % (part, text))


@test
def printsTheBannerOnce():
    options("")
    _, log = write_run("--steps", "2")
    code, out, err = said(log, 0, 1, 0)
    same(code, 0)
    same(out.count("Marivane-Reader: ----------------------------------------------------\n"), 2)
    has(out, "Marivane-Reader:   problem = pipe\n", "Marivane-Reader:     runId = 1\n", "still here\n")


@test
def printsNothingWithVerboseZero():
    options("verbose = 0\n")
    _, log = write_run()
    same(said(log, 0)[:2], (0, "still here\n"))


@test
def aMissingDatabaseRaisesFourErrors():
    options()
    code, out, err = said(os.path.abspath("pipe.1.Log"), 0)
    same(code, 0)
    has(err, "Error opening the marivane data base..", "ProblemName pipe", "WorkDir QUENTA.DIR",
        "ProblemDir " + os.getcwd() + "/")
    has(out, "time step: -1\nData error in reader. \n", "still here\n")


@test
def aMissingRunIsReported():
    options()
    write_run()
    code, out, err = said(os.path.abspath("run/pipe.7.Log"), 0)
    same(code, 0)
    has(out, "Marivane-Reader: *** ERROR: Error opening the Run Id (7)\n"
             "Marivane-Reader: *** ERROR: Cannot read the the number of nodes/points..exiting..\n"
             "Marivane-Reader: *** ERROR: Cannot read the coordinates of nodes/points..exiting.\n", "still here\n")


@test
def aDamagedRunEndsTheProcessInOrder():
    options()
    _, log = write_run("--form", "ascii")
    crd = "run/QUENTA.DIR/pipe.1.crd"
    text = open(crd).read()
    open(crd, "w").write(text.replace("1 2 3 4 ", "1 2 2 4 ", 1))
    code, out, err = said(log, 0)
    same(code, 1)
    has(err, "Marivane-Reader: *** ASSERTION in Function <mtxNewInvHash>", "Marivane-Reader: *** Duplicate key <2>\n")
    same("still here" in out, False)


@test
def aLostFileEndsTheProcessInOrder():
    options()
    _, log = write_run("--form", "ascii")
    os.remove("run/QUENTA.DIR/pipe.1.vol0")
    code, out, err = said(log, 0)
    same(code, 1)
    has(err, "Marivane-Reader: *** ASSERTION in Function <", "pipe.1.vol0")


@test
def aHalfWrittenStepEndsTheProcessInOrder():
    options()
    _, log = write_run("--form", "ascii", "--steps", "3")
    newest = "run/QUENTA.DIR/pipe.1_2_0.out"
    text = open(newest).read()
    open(newest, "w").write(text[:len(text) // 2])
    code, out, err = said(log, 0, 1)
    same((code, out), (0, "still here\n"), "the steps before it")
    code, out, err = said(log, 0, 2)
    same(code, 1)
    has(err, "Marivane-Reader: *** EOF in ascii file <QUENTA.DIR/pipe.1_2_0.out>")
    same("still here" in out, False)


if len(sys.argv) < 2:
    print("\n".join(TESTS))
    sys.exit(0)
name = sys.argv[1]
folder = tempfile.mkdtemp(prefix=name + ".", dir=os.getcwd())
home = os.getcwd()
os.chdir(folder)
TESTS[name]()
os.chdir(home)
shutil.rmtree(folder)
print("passed")
