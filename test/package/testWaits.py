"""Whatever waits does so through sysSleep, whose sleeper the tests replace: no other source calls a function that
sleeps. The soak test's two processes do: they are to meet at any moment. noSleep.c takes the place of the system's."""
import os
import re
import sys

FOLDERS = ("base", "iop", "mtx", "tpl", "rdb", "Plugin", "tool", "test", "bench")
ALLOWED = (os.path.join("base", "sysTime.cpp"), os.path.join("test", "soak", ""),
           os.path.join("test", "plugin", "noSleep.c"))
SOURCES = (".c", ".cpp", ".cxx", ".h", ".def", ".py")
CALL = re.compile(r"\b(u?sleep|(clock_)?nanosleep|thrd_sleep|sleep_(for|until))\s*\(")


def code(line):
    """Without comments and texts, as far as one line tells."""
    line = re.sub(r'"(\\.|[^"\\])*"', '""', line)
    return re.split(r"//|/\*|^\s*\*|^\s*#(?!\s*define)", line)[0]


def wrong(root):
    for layer in FOLDERS:
        for folder, _, files in os.walk(os.path.join(root, layer)):
            for name in files:
                path = os.path.join(folder, name)
                if not name.endswith(SOURCES) or os.path.relpath(path, root).startswith(ALLOWED):
                    continue
                for number, line in enumerate(open(path, encoding="utf-8"), 1):
                    if CALL.search(code(line)):
                        yield "%s:%d: %s" % (path, number, line.strip())


if not CALL.search(code("while (sysMach.nanosleep(&a, &b) < 0) {}")) or CALL.search(code('f("sleep(1)"); // sleep(1)')):
    sys.exit("the expression does not tell a call")
faults = list(wrong(sys.argv[1]))
print("\n".join(faults) or "nothing waits but sysSleep")
sys.exit(1 if faults else 0)
