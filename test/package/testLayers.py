"""Includes point downward only: Plugin/Reader > rdb > tpl, mtx > iop > base; and no source but the library's own
includes an internal header (...Int.h) of another folder."""
import os
import re
import sys

MAY = {  # what a folder may include, by folder
    "base": {"base"},
    "iop": {"iop", "base"},
    "mtx": {"mtx", "iop", "base"},
    "tpl": {"tpl", "iop", "base"},
    "rdb": {"rdb", "tpl", "mtx", "iop", "base"},
    "Plugin": {"Plugin", "rdb", "mtx", "base"},
    "tool": {"tool"},
}
SOURCES = (".c", ".cpp", ".cxx", ".h", ".def")


def wrong(root):
    for layer, allowed in sorted(MAY.items()):
        for folder, _, files in os.walk(os.path.join(root, layer)):
            for name in files:
                if not name.endswith(SOURCES):
                    continue
                path = os.path.join(folder, name)
                for number, line in enumerate(open(path, encoding="utf-8"), 1):
                    match = re.match(r'\s*#\s*include\s*"([^"]+)"', line)
                    if not match:
                        continue
                    target = match.group(1)
                    owner = target.split("/")[0] if "/" in target else layer
                    if owner in MAY and owner not in allowed:
                        yield "%s:%d: %s may not include %s" % (path, number, layer, target)
                    if target.endswith("Int.h") and owner != layer:
                        yield "%s:%d: %s is internal to %s" % (path, number, target, owner)
                    if layer == "Plugin" and owner == "rdb" and target != "rdb/rdb.h":
                        yield "%s:%d: the reader knows rdb/rdb.h alone" % (path, number)


faults = list(wrong(sys.argv[1]))
print("\n".join(faults) or "all includes point downward")
sys.exit(1 if faults else 0)
