"""librdb exports the functions of rdb/rdb.h and nothing else; built for tests, every function of every header."""
import glob
import os
import re
import subprocess
import sys

root, nm, library, mode = sys.argv[1:5]


def functions(header):
    """Names of the functions that a header declares with C linkage."""
    text = open(header, encoding="utf-8").read()
    text = re.sub(r"/\*.*?\*/", " ", text, flags=re.S)
    text = re.sub(r"(?m)^\s*#.*(?:\\\n.*)*", "", text)
    text = re.sub(r"__attribute__\(\(.*?\)\)\)?", "", text)
    return set(re.findall(r"\b((?:sys|mem|cnf|re|dic|mtx|cvt|iop|tpl|rdb)[A-Z]\w*)\s*\([^;{]*\)\s*;", text))


lines = subprocess.run([nm, "-D", "--defined-only", library], check=True, text=True, stdout=subprocess.PIPE).stdout
exported = {line.split()[-1].split("@")[0] for line in lines.splitlines()}
interface = functions(os.path.join(root, "rdb/rdb.h"))
assert len(interface) >= 40, interface
missing = interface - exported
extra = set()
if mode == "interface":
    extra = exported - interface
else:
    for folder in ("base", "iop", "mtx", "tpl", "rdb"):
        for header in glob.glob(os.path.join(root, folder, "*.h")):
            if not header.endswith("Int.h"):
                missing |= functions(header) - exported
for name in sorted(missing):
    print("not exported:", name)
for name in sorted(extra):
    print("exported, but no part of the interface:", name)
sys.exit(1 if missing or extra else 0)
