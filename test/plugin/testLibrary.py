"""The library by itself, called through its C interface, gives a real run's mesh and values to the last bit.

    testLibrary.py librdb.so FOLDER        folder of the run in several storage forms, with what must come out"""
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
NO = -1


def ask(operation, hd, key, answer, *more):
    pointer = answer.ctypes.data_as(ctypes.c_void_p) if isinstance(answer, numpy.ndarray) else ctypes.byref(answer)
    good = getattr(rdb, operation)(ctypes.c_void_p(hd), key.encode(), pointer, *more)
    assert good, (key, rdb.rdbGetError())
    return answer


def same(got, expected, what):
    assert numpy.array_equal(got, expected), what


for form in ("ascii", "binary", "swapped"):
    hd = rdb.rdbNew(b"disk", b"QUENTA.DIR", os.path.join(folder, form).encode(), 0)
    assert hd and rdb.rdbOpenRun(ctypes.c_void_p(hd), 1), rdb.rdbGetError()
    n = ask("rdbGetInt0", hd, "nNodes", ctypes.c_int()).value
    same(n, 8499, "nNodes")
    same(ask("rdbGetInts0", hd, "usrIds", numpy.empty(n, "i4"), n, NO), numpy.arange(1, n + 1), "usrIds")
    same(ask("rdbGetReals0", hd, "crd", numpy.empty((n, 3)), 3, n), right["points"], "crd")
    same(ask("rdbGetInts1", hd, "volCnn", numpy.empty((7472, 8), "i4"), 0, 8, 7472) - 1, right["volume"], "volCnn")
    for s, name in enumerate(("inflow", "outflow", "shell", "disk")):
        cnn = right["set_" + name]
        got = ask("rdbGetInts1", hd, "sfsCnn", numpy.empty(cnn.shape, "i4"), s, cnn.shape[1], cnn.shape[0])
        same(got - 1, cnn, name)
        nodes = numpy.unique(cnn) + 1
        same(ask("rdbGetInt1", hd, "nSfsNodes", ctypes.c_int(), s).value, len(nodes), "nSfsNodes")
        same(ask("rdbGetInts1", hd, "sfsNodes", numpy.empty(len(nodes), "i4"), s, len(nodes), NO), nodes, "sfsNodes")
    same(ask("rdbGetInts0", hd, "outSteps", numpy.empty(3, "i4"), 3, NO), [0, 25, 50], "outSteps")
    same(ask("rdbGetReals0", hd, "outTimes", numpy.empty(3), 3, NO), [0, 0.25, 0.5], "outTimes")
    species = numpy.stack([right[name] for name in ("AsH3", "CH4", "GaMe3", "H2")], axis=1)
    for step in (0, 2, 1, 0):
        for v, values in enumerate((right["velocity"], right["pressure"], right["temperature"], species)):
            values = values.reshape(n, -1)
            got = ask("rdbGetReals2", hd, "outValues", numpy.empty(values.shape), v, step, values.shape[1], n)
            same(got, values * (1.0, 0.5, 0.25)[step], "variable %d at step %d" % (v, step))
    rdb.rdbFree(ctypes.c_void_p(hd))
    print(form, "equals what is expected")
