"""Writes the mesh and the results of a run once more, in the formats of ParaView's own readers.

    pvpython make.py <run.Log> <folder> <number of steps> <format>...        formats: see the table at the end

Each format goes into a folder of its own name. Values and coordinates are stored in 32 bits where the format allows,
half of what the run's own files hold: to the advantage of the others. Nothing is compressed. Surface sets are blocks of
their own, except in VTKHDF, which knows no blocks here and gets the volume alone.
"""
import json
import os
import sys

import numpy as np

from runData import Run

CELLS = {("surface", 4): ("quad4", 9), ("volume", 8): ("hexa8", 12)}       # their names in EnSight and numbers in VTK


def cell_kind(block):
    return CELLS[block.kind, block.cells.shape[1]]


# ---- EnSight Gold, C binary

def ensight_text(text):
    return text.encode().ljust(80)[:80]


def make_ensight(run, folder, n_steps):
    def part(number):
        return ensight_text("part") + np.int32(number).tobytes()

    with open(folder + "/run.case", "w") as case:
        case.write("FORMAT\ntype: ensight gold\n\nGEOMETRY\nmodel: run.geo\n\nVARIABLE\n")
        for name, _, n in run.variables:
            case.write("%s per node: 1 %s run.%s.****\n" % ("vector" if n == 3 else "scalar", name, name))
        case.write("\nTIME\ntime set: 1\nnumber of steps: %d\nfilename start number: 0\nfilename increment: 1\n"
                   "time values: %s\n" % (n_steps, " ".join(str(s) for s in range(n_steps))))

    with open(folder + "/run.geo", "wb") as file:
        for text in ("C Binary", "bench", "bench", "node id off", "element id off"):
            file.write(ensight_text(text))
        for number, block in enumerate(run.blocks, 1):
            file.write(part(number) + ensight_text(block.name) + ensight_text("coordinates"))
            file.write(np.int32(len(block.nodes)).tobytes())
            file.write(run.points[block.nodes].T.astype(np.float32).tobytes())
            file.write(ensight_text(cell_kind(block)[0]) + np.int32(len(block.cells)).tobytes())
            file.write((block.cells + 1).astype(np.int32).tobytes())

    for step in range(n_steps):
        for name, values in run.values(step).items():
            with open("%s/run.%s.%04d" % (folder, name, step), "wb") as file:
                file.write(ensight_text(name))
                for number, block in enumerate(run.blocks, 1):
                    file.write(part(number) + ensight_text("coordinates"))
                    file.write(values[block.nodes].T.astype(np.float32).tobytes())


# ---- VTK XML, raw appended; the Exodus writer is fed with it

def make_grid(run, block):
    from vtkmodules.util.numpy_support import numpy_to_vtk, numpy_to_vtkIdTypeArray
    from vtkmodules.vtkCommonCore import vtkPoints
    from vtkmodules.vtkCommonDataModel import vtkCellArray, vtkUnstructuredGrid

    points = vtkPoints()
    points.SetData(numpy_to_vtk(run.points[block.nodes].astype(np.float32), deep=True))
    n_cells, n = block.cells.shape
    cells = vtkCellArray()
    cells.SetData(numpy_to_vtkIdTypeArray(np.arange(n_cells + 1, dtype=np.int64) * n, deep=True),
                  numpy_to_vtkIdTypeArray(block.cells.astype(np.int64).ravel(), deep=True))
    grid = vtkUnstructuredGrid()
    grid.SetPoints(points)
    grid.SetCells(cell_kind(block)[1], cells)
    return grid


def set_arrays(grid, block, values):
    from vtkmodules.util.numpy_support import numpy_to_vtk

    for name, all_values in values.items():
        array = numpy_to_vtk(np.squeeze(all_values[block.nodes].astype(np.float32)), deep=True)
        array.SetName(name)
        grid.GetPointData().AddArray(array)


def make_xml(run, folder, n_steps):
    from vtkmodules.vtkCommonDataModel import vtkCompositeDataSet, vtkMultiBlockDataSet
    from vtkmodules.vtkIOXML import vtkXMLMultiBlockDataWriter

    blocks = vtkMultiBlockDataSet()
    for b, block in enumerate(run.blocks):
        blocks.SetBlock(b, make_grid(run, block))
        blocks.GetMetaData(b).Set(vtkCompositeDataSet.NAME(), block.name)
    with open(folder + "/run.pvd", "w") as pvd:
        pvd.write('<?xml version="1.0"?>\n<VTKFile type="Collection" version="0.1">\n<Collection>\n')
        for step in range(n_steps):
            values = run.values(step)
            for b, block in enumerate(run.blocks):
                set_arrays(blocks.GetBlock(b), block, values)
            writer = vtkXMLMultiBlockDataWriter()
            writer.SetFileName("%s/run_%d.vtm" % (folder, step))
            writer.SetInputData(blocks)
            writer.SetDataModeToAppended()
            writer.EncodeAppendedDataOff()
            writer.SetCompressorTypeToNone()
            writer.SetHeaderTypeToUInt64()
            if not writer.Write():
                raise RuntimeError("run_%d.vtm cannot be written" % step)
            pvd.write('<DataSet timestep="%d" file="run_%d.vtm"/>\n' % (step, step))
        pvd.write("</Collection>\n</VTKFile>\n")


def make_exodus(run, folder, n_steps):
    import paraview.simple as pv

    xml = pv.PVDReader(FileName=os.path.join(os.path.dirname(folder), "xml", "run.pvd"))
    writer = pv.ExodusIIWriter(Input=xml, FileName=folder + "/run.exo", WriteAllTimeSteps=1)
    writer.UpdatePipeline()


# ---- CGNS: a base for the surfaces and one for the volumes, all steps in one file

def cgns_node(parent, name, label, data=None):
    """A node of the tree, which stands in HDF5 as a group with four attributes and a data set."""
    kinds = {"int8": b"C1", "int32": b"I4", "float32": b"R4", "float64": b"R8"}
    node = parent.create_group(name, track_order=True)
    cgns_attributes(node, name, label, kinds[data.dtype.name] if data is not None else b"MT")
    node.attrs["flags"] = np.ones(1, np.int32)
    if data is not None:
        node.create_dataset(" data", data=data)
    return node


def cgns_attributes(node, name, label, kind):
    for key, text, size in (("name", name.encode(), 33), ("label", label.encode(), 33), ("type", kind, 3)):
        node.attrs.create(key, text, dtype="S%d" % size)


def cgns_text(text, n=0):
    return np.frombuffer(text.encode().ljust(n), np.int8)


def make_cgns(run, folder, n_steps):
    import h5py

    names = ["Solution%d" % step for step in range(n_steps)]
    with h5py.File(folder + "/run.cgns", "w", track_order=True) as file:
        cgns_attributes(file, "HDF5 MotherNode", "Root Node of HDF5 File", b"MT")
        file.create_dataset(" format", data=cgns_text("IEEE_LITTLE_32\0"))
        file.create_dataset(" hdf5version", data=cgns_text("HDF5 Version 1.8".ljust(32) + "\0"))
        cgns_node(file, "CGNSLibraryVersion", "CGNSLibraryVersion_t", np.array([3.3], np.float32))

        zones = {}
        for kind, dim in (("volume", 3), ("surface", 2)):
            base = cgns_node(file, kind, "CGNSBase_t", np.array([dim, 3], np.int32))
            times = cgns_node(base, "Times", "BaseIterativeData_t", np.array([n_steps], np.int32))
            cgns_node(times, "TimeValues", "DataArray_t", np.arange(n_steps, dtype=np.float64))
            for block in (b for b in run.blocks if b.kind == kind):
                zones[block] = cgns_zone(run, base, block, names)
        for step, name in enumerate(names):
            arrays = run.values(step)
            for block, zone in zones.items():
                solution = cgns_node(zone, name, "FlowSolution_t")
                cgns_node(solution, "GridLocation", "GridLocation_t", cgns_text("Vertex"))
                for array, values in arrays.items():
                    for c, letter in enumerate("XYZ" if values.shape[1] == 3 else [""]):
                        cgns_node(solution, array + letter, "DataArray_t", values[block.nodes, c].astype(np.float32))


def cgns_zone(run, base, block, solutions):
    sizes = np.array([[len(block.nodes)], [len(block.cells)], [0]], np.int32)
    zone = cgns_node(base, block.name, "Zone_t", sizes)
    cgns_node(zone, "ZoneType", "ZoneType_t", cgns_text("Unstructured"))
    grid = cgns_node(zone, "GridCoordinates", "GridCoordinates_t")
    for c, letter in enumerate("XYZ"):
        cgns_node(grid, "Coordinate" + letter, "DataArray_t", run.points[block.nodes, c].astype(np.float32))
    kind = {4: 7, 8: 17}[block.cells.shape[1]]                   # QUAD_4, HEXA_8
    cells = cgns_node(zone, "Elements", "Elements_t", np.array([kind, 0], np.int32))
    cgns_node(cells, "ElementRange", "IndexRange_t", np.array([1, len(block.cells)], np.int32))
    cgns_node(cells, "ElementConnectivity", "DataArray_t", (block.cells.ravel() + 1).astype(np.int32))
    pointers = cgns_node(zone, "Pointers", "ZoneIterativeData_t")
    cgns_node(pointers, "FlowSolutionPointers", "DataArray_t",
              np.stack([cgns_text(name, 32) for name in solutions]))
    return zone


# ---- VTKHDF: one grid and no time, so that each step is a file

def make_vtkhdf(run, folder, n_steps):
    import h5py

    block = next(b for b in run.blocks if b.kind == "volume")
    n_cells, n = block.cells.shape
    for step in range(n_steps):
        with h5py.File("%s/run_%d.hdf" % (folder, step), "w") as file:
            root = file.create_group("VTKHDF")
            root.attrs["Version"] = np.array([1, 0], np.int64)
            root.attrs.create("Type", b"UnstructuredGrid", dtype=h5py.string_dtype("ascii", 16))
            for name, count in (("Points", len(block.nodes)), ("Cells", n_cells), ("ConnectivityIds", n_cells * n)):
                root["NumberOf" + name] = np.array([count], np.int64)
            root["Points"] = run.points[block.nodes].astype(np.float32)
            root["Connectivity"] = block.cells.astype(np.int64).ravel()
            root["Offsets"] = np.arange(n_cells + 1, dtype=np.int64) * n
            root["Types"] = np.full(n_cells, cell_kind(block)[1], np.uint8)
            for name, values in run.values(step).items():
                root["PointData/" + name] = np.squeeze(values[block.nodes].astype(np.float32))


# ---- what a reader must deliver

def make_expect(run, folder, n_steps):
    """Per block: counts, sums of all components at each step, sum of the coordinates of all corners of all cells."""
    blocks = [{"name": b.name, "kind": b.kind, "points": len(b.nodes), "cells": len(b.cells), "sums": [],
               "places": run.points[b.nodes][b.cells].sum(axis=(0, 1)).tolist()} for b in run.blocks]
    for step in range(n_steps):
        values = run.values(step)
        for block, told in zip(run.blocks, blocks):
            told["sums"].append([x for v in values.values() for x in v[block.nodes].sum(axis=0).tolist()])
    with open(folder + "/expect.json", "w") as file:
        json.dump({"steps": n_steps, "blocks": blocks}, file, indent=1)


FORMATS = {"expect": make_expect, "ensight": make_ensight, "xml": make_xml, "exodus": make_exodus, "cgns": make_cgns,
           "vtkhdf": make_vtkhdf}

if __name__ == "__main__":
    log, top, n_steps = sys.argv[1:4]
    the_run = Run(log)
    for form in sys.argv[4:]:
        os.makedirs(os.path.join(top, form), exist_ok=True)
        FORMATS[form](the_run, os.path.join(top, form), int(n_steps))
