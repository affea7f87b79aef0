"""The content of a generated run as numpy arrays, read from its binary files without the library.

What the other formats' files are made of, and what every reader's answer is held against: it must not come
from the reader that is measured.
"""
import os
import re

import numpy as np


class Tokens:
    """A file of keys and numbers in the binary form of this machine's byte order."""

    def __init__(self, path):
        self.data = np.memmap(path, dtype=np.uint8, mode="r")
        tag = bytes(self.data[:64]).split(b"\n")[0]
        if tag.split()[2:] != [b"2", b"4", b"6", b"8"]:
            raise ValueError("%s: not in this machine's byte order: %r" % (path, tag))
        self.at = len(tag) + 1

    def more(self):
        return self.at < len(self.data)

    def key(self, name):
        text = bytes(self.data[self.at:self.at + 64]).split(b"\0")[0]
        if text.decode() != name:
            raise ValueError("data out of order: expected %s, found %s" % (name, text))
        self.at += len(text) // 8 * 8 + 8

    def take(self, dtype, n):
        first = self.at
        self.at += np.dtype(dtype).itemsize * int(n)
        return self.data[first:self.at].view(dtype)

    def int(self, name):
        self.key(name)
        return int(self.take(np.int32, 1)[0])

    def table(self, name, dtype):
        n_cols = self.int(name)
        n_rows = int(self.take(np.int32, 1)[0])
        return self.take(dtype, n_cols * n_rows).reshape(n_rows, n_cols)


class Block:
    """A set: its cells as positions in the list of its nodes, which are positions among the run's nodes."""

    def __init__(self, name, kind, cells):
        self.name, self.kind = name, kind
        self.nodes = np.unique(cells)
        place = np.zeros(self.nodes[-1] + 1, np.int32)
        place[self.nodes] = np.arange(len(self.nodes), dtype=np.int32)
        self.cells = place[cells]


class Run:
    """points, blocks (surface sets first) and values(step) of the run with this log file."""

    variables = (("velocity", "vel", 3), ("pressure", "pres", 1), ("temperature", "temp", 1))

    def __init__(self, log):
        self.folder = os.path.dirname(log)
        base = os.path.basename(log)[:-len(".Log")]
        self.base = os.path.join(self.folder, "QUENTA.DIR", base)
        self.files = {os.path.relpath(self.base + ".cli", self.folder)}

        lines = [line[3:].split(" ", 1) for line in open(self.base + ".cli") if line.startswith("#@ ")]
        facts = [(words[0].strip(), words[1].strip() if len(words) > 1 else "") for words in lines]
        crd = next(rest.split()[0] for keyword, rest in facts if keyword == "CRD")
        self.user_ids, self.points = self.parts(crd, 2)
        self.user_ids = self.user_ids[:, 0]
        place = np.full(int(self.user_ids.max()) + 1, -1, np.int32)
        place[self.user_ids] = np.arange(len(self.user_ids), dtype=np.int32)

        self.blocks = []
        for keyword, n_parts in (("SFS", 3), ("VOL", 2)):
            for found, rest in facts:
                if found != keyword:
                    continue
                path, name = re.match(r'(\S+) "([^"]*)"', rest).groups()
                kind = "surface" if keyword == "SFS" else "volume"
                self.blocks.append(Block(name, kind, place[self.parts(path, n_parts)[-1]]))

        self.sd_nodes = []
        if os.path.exists(self.base + ".ddc.B"):
            ddc = Tokens(self.base + ".ddc.B")
            n_sds = ddc.int("nSds")
            ddc.int("nElems"), ddc.table("color", np.int32)
            ddc.int("nNodes"), ddc.table("usrIds", np.int32)
            for _ in range(n_sds):
                ddc.int("sdId"), ddc.int("nNodes")
                self.sd_nodes.append(ddc.table("nodes", np.int32)[:, 0])

    def parts(self, path, n):
        """The n columns or groups of columns of a table file."""
        file = Tokens(os.path.join(self.folder, path))
        if file.int("nParts") != n:
            raise ValueError("%s: not %d parts" % (path, n))
        file.int("nRows"), file.int("nCols")
        parts = []
        for _ in range(n):
            real = file.int("type") != 1
            file.int("nCols")
            parts.append(file.table("realVec" if real else "intVec", np.float64 if real else np.int32))
        return parts

    def values(self, step):
        """name: array (nNodes, components) of 64-bit values."""
        arrays = {}
        for part in range(len(self.sd_nodes)):
            file = Tokens("%s_%d_%d.out.B" % (self.base, step, part))
            file.key("time"), file.take(np.float64, 1)
            for name in ("mask", "nSpecs", "nFilms", "nFields", "nAoutVecs", "nNodes"):
                file.int(name)
            for name, key, n in self.variables:
                values = arrays.setdefault(name, np.zeros((len(self.points), n)))
                values[self.sd_nodes[part]] = file.table(key, np.float64)
        return arrays
