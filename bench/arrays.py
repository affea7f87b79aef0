"""What the arrays of one step cost in ParaView by their number, with the extended output.

    pvpython arrays.py zrpMarivaneReader.so <run.Log> <label> [rounds]

Selects the first k arrays of the reader, moves to a step other than the last one, and takes the time; k is 1, 2, 4, 8,
and all output variables, then all arrays, gradients among them. Prints rows of a table in Markdown: milliseconds on the
clock, of processor time of the process with all threads and programs that it started, and the latter per array. Best of
all rounds, of which each goes through all k; files are in the system's cache. A last row is the plain read of one
step's files: their bytes, or what zcat makes of them.
"""
import glob
import os
import resource
import subprocess
import sys
import tempfile
import time

from paraview import simple

plugin, log, label = sys.argv[1:4]
rounds = int(sys.argv[4]) if len(sys.argv) > 4 else 3


def timed(work):
    """Seconds on the clock and of processor time, of this process and its ended children."""
    def cpu():
        return sum(u.ru_utime + u.ru_stime for u in map(resource.getrusage, (resource.RUSAGE_SELF,
                                                                             resource.RUSAGE_CHILDREN)))
    begin, begin_cpu = time.perf_counter(), cpu()
    work()
    return time.perf_counter() - begin, cpu() - begin_cpu


def best(times, key, took):
    times[key] = tuple(map(min, took, times.get(key, took)))


def row(what, n, took):
    wall, cpu = (1000 * t for t in took)
    print("| %s | %s | %.1f | %.1f | %.1f |" % (label, what, wall, cpu, cpu / n), flush=True)


def read_plainly(names):
    for name in names:
        if name.endswith(".Z"):
            subprocess.run(["zcat", name], stdout=subprocess.DEVNULL, check=True)
        else:
            with open(name, "rb", buffering=0) as file:
                while file.read(1 << 20):
                    pass


with tempfile.NamedTemporaryFile("w", suffix=".cnf") as settings:
    settings.write("extended_nodal_output = true\nverbose = 0\n")
    settings.flush()
    os.environ["QUENTA_CNF_FILES"] = settings.name
    simple.LoadPlugin(plugin, remote=False, ns=globals())
    simple.SetActiveSource(None)
    run = zrpMarivaneReader(FileName=log)           # noqa: F821
    run.UpdatePipelineInformation()

names = list(run.PointArrayStatus)
n_plain = next(i for i, name in enumerate(names) if name.startswith("grad_"))
counts = [k for k in (1, 2, 4, 8) if k < n_plain] + [n_plain, len(names)]
steps = list(run.TimestepValues)
times, step = {}, 0
run.UpdatePipeline(steps[0])                        # all of them once: memory and the tables of the mesh are there
for _ in range(rounds):
    for k in counts:
        run.PointArrayStatus = names[:k]
        step = (step + 1) % len(steps)
        best(times, k, timed(lambda: run.UpdatePipeline(steps[step])))

base = os.path.join(os.path.dirname(log), "QUENTA.DIR", os.path.basename(log)[:-len(".Log")])
files = glob.glob("%s_%d_*.out*" % (base, 0))
for _ in range(rounds):
    best(times, "plain", timed(lambda: read_plainly(files)))

for k in counts:
    row("%d%s" % (k, ", with gradients" if k > n_plain else ""), k, times[k])
row("plain read of the step", n_plain, times["plain"])
