"""The installed package serves a client written in C, found by CMake and by pkg-config."""
import os
import shutil
import subprocess
import sys

cmake, build, client, work, write_run, sanitize = sys.argv[1:7]
work = os.path.join(work, "installed")
shutil.rmtree(work, ignore_errors=True)
prefix = os.path.join(work, "prefix")


def run(*command, **more):
    print("+", *command, flush=True)
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE, **more).stdout


run(cmake, "--install", build, "--prefix", prefix)
libdir = next(d for d, _, files in os.walk(prefix) if "librdb.so" in files)
headers = [os.path.relpath(os.path.join(d, f), prefix) for d, _, files in os.walk(prefix) for f in files
           if f.endswith(".h")]
assert headers == ["include/rdb/rdb.h"], headers

run(write_run, os.path.join(work, "run"), "--problem", "pipe", "--run", "3")
want = "pipe run 3"

flags = ["-DCMAKE_C_FLAGS=-fsanitize=" + sanitize] if sanitize else []
run(cmake, "-S", client, "-B", os.path.join(work, "byCMake"), "-DCMAKE_PREFIX_PATH=" + prefix, *flags)
run(cmake, "--build", os.path.join(work, "byCMake"))
out = run(os.path.join(work, "byCMake", "client"), os.path.join(work, "run"))
assert want in out, out

pkg = dict(os.environ, PKG_CONFIG_PATH=os.path.join(libdir, "pkgconfig"))
options = run("pkg-config", "--cflags", "--libs", "rdb", env=pkg).split()
if sanitize:
    options.append("-fsanitize=" + sanitize)
run("cc", os.path.join(client, "client.c"), "-o", os.path.join(work, "byPkgConfig"), *options, "-Wl,-rpath," + libdir)
out = run(os.path.join(work, "byPkgConfig"), os.path.join(work, "run"))
assert want in out, out
print(out)
