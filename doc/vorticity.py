"""Turns a run's extended nodal outputs on, and shows two of them beside each other at the first step: the size of the
vorticity, and one component of the gradient of the velocity.

    pvpython vorticity.py zrpMarivaneReader.so run.Log picture.png

The run needs a velocity. Without a display: xvfb-run -a -s -noreset pvpython ...
"""
import os
import sys
import tempfile

import numpy
from paraview import servermanager
from paraview.simple import *  # noqa: F403
from vtkmodules.util.numpy_support import vtk_to_numpy

plugin, log, picture = sys.argv[1:4]

# ---- the option: a user writes these lines into Quenta.cnf, in the working directory or at home

settings = tempfile.NamedTemporaryFile("w", suffix=".cnf")
settings.write("extended_nodal_output = true\nverbose = 0\n")
settings.flush()
os.environ["QUENTA_CNF_FILES"] = settings.name

# ---- the run: of all arrays, gradients among them, only what is shown is read and worked out

LoadPlugin(plugin, remote=False, ns=globals())
SetActiveSource(None)
run = zrpMarivaneReader(FileName=log)  # noqa: F821
run.UpdatePipelineInformation()
shown = ["vorticity", "grad_velocity"]
if not set(shown) <= set(run.PointArrayStatus):
    sys.exit("no velocity among the arrays: %s" % ", ".join(run.PointArrayStatus))
run.PointArrayStatus = shown
run.UpdatePipeline(0)

# ---- blocks: surface sets first, then volumes

data = servermanager.Fetch(run)
grids = [data.GetBlock(b) for b in range(data.GetNumberOfBlocks())]


def blocks(dimension):
    chosen = [b for b, grid in enumerate(grids)
              if grid.GetNumberOfCells() and grid.GetCell(0).GetCellDimension() == dimension]
    extract = ExtractBlock(Input=run)
    if "Selectors" in extract.ListProperties():
        extract.Selectors = ["/Root/Block%d" % b for b in chosen]
    else:                                               # ParaView 5.9 counts blocks, the root being 0
        extract.BlockIndices = [b + 1 for b in chosen]
    return extract


flow, walls = MergeBlocks(Input=blocks(3)), blocks(2)
flow.UpdatePipeline()
low, high = numpy.array(flow.GetDataInformation().GetBounds()).reshape(3, 2).T
middle, reach = (low + high) / 2, max(high - low)


def side(source, behind):
    """What lies behind a plane through the middle, or before it."""
    clip = Clip(Input=source, ClipType="Plane", Invert=0 if behind else 1)
    clip.ClipType.Origin, clip.ClipType.Normal = list(middle), [0, 1, 0]
    return clip


half, veil = side(flow, True), side(walls, False)    # so one looks into the flow, through the walls before it


def values(name):
    return numpy.concatenate([vtk_to_numpy(grid.GetPointData().GetArray(name)) for grid in grids])


def view_of(name, component, label, preset, limits, log_scale):
    """A view with the half coloured by one component, or by "Magnitude"."""
    view = CreateRenderView()
    if "UseColorPaletteForBackground" in view.ListProperties():     # newer than ParaView 5.9
        view.UseColorPaletteForBackground = 0
    view.Background = [0.06, 0.08, 0.13]
    view.OrientationAxesVisibility = 0

    color = Show(half, view)
    ColorBy(color, ("POINTS", name, component), separate=True)
    function = GetColorTransferFunction(name, color, separate=True)
    function.ApplyPreset(preset, True)
    function.RescaleTransferFunction(*limits)
    if log_scale:
        function.MapControlPointsToLogSpace()
        function.UseLogScale = 1
    color.Ambient = 0.3
    glass = Show(veil, view)
    glass.ColorArrayName = [None, ""]
    glass.Opacity, glass.DiffuseColor = 0.08, [0.7, 0.85, 1.0]

    axes = view.AxesGrid
    axes.Visibility = 1
    axes.GridColor = [0.45, 0.5, 0.6]
    for axis in "XYZ":
        setattr(axes, axis + "Title", axis.lower())
        setattr(axes, axis + "TitleColor", [0.9, 0.9, 0.9])
        setattr(axes, axis + "LabelColor", [0.75, 0.8, 0.85])
        setattr(axes, axis + "TitleFontSize", 18)
        setattr(axes, axis + "LabelFontSize", 14)

    bar = GetScalarBar(function, view)
    bar.Title, bar.ComponentTitle = label, ""
    anywhere = [name for name in bar.GetProperty("WindowLocation").Available if name.startswith("Any")]
    bar.Orientation, bar.WindowLocation, bar.Position = "Horizontal", anywhere[0], [0.2, 0.02]
    bar.ScalarBarLength, bar.ScalarBarThickness = 0.6, 18
    bar.TitleFontSize, bar.LabelFontSize = 20, 16
    bar.AutomaticLabelFormat, bar.LabelFormat, bar.RangeLabelFormat = 0, "%-.3g", "%-.3g"
    bar.Visibility = 1
    return view


def look(view):
    """From before and above; a little below the middle, which leaves room for the bar."""
    view.CameraViewUp = [0, 0, 1]
    view.CameraFocalPoint = list(middle - [0, 0, 0.085 * reach])
    view.CameraPosition = list(middle + 1.18 * reach * numpy.array([-0.7, -2.1, 0.65]))


vorticity = numpy.linalg.norm(values("vorticity"), axis=1)
slope = abs(values("grad_velocity")[:, 8])              # of the 9: component 3 c + k is d u_c / d x_k
bound = numpy.percentile(slope, 98.5)
weak, strong = numpy.percentile(vorticity, [5, 99.5])
layout = CreateLayout("extended outputs")
left = view_of("vorticity", "Magnitude", "size of the vorticity", "Inferno (matplotlib)",
               [max(weak, strong / 1000), strong], True)
right = view_of("grad_velocity", "8", "grad_velocity, d u_z / d z", "Cool to Warm (Extended)", [-bound, bound], False)
layout.SplitHorizontal(0, 0.5)
AssignViewToLayout(left, layout, 1)
AssignViewToLayout(right, layout, 2)
layout.SetSize(1400, 840)
RenderAllViews()                                        # the first rendering of a view resets its camera
look(left)
look(right)
SaveScreenshot(picture, layout, ImageResolution=[1400, 840])
print("picture\n  %s" % picture)
