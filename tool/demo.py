"""Opens a run in ParaView, prints what is in it, and renders the flow of one step.

    pvpython demo.py zrpMarivaneReader.so run.Log picture.png
"""
import sys

from paraview import servermanager
from paraview.simple import *  # noqa: F403

plugin, log, picture = sys.argv[1:4]

LoadPlugin(plugin, remote=False, ns=globals())
SetActiveSource(None)
run = zrpMarivaneReader(FileName=log)  # noqa: F821
run.UpdatePipelineInformation()
steps = list(run.TimestepValues)
step = steps[2 * len(steps) // 3]
run.UpdatePipeline(step)

data = servermanager.Fetch(run)
print("blocks")
for b in range(data.GetNumberOfBlocks()):
    grid = data.GetBlock(b)
    kinds = {grid.GetCell(0).GetClassName()} if grid.GetNumberOfCells() else set()
    print("  %2d  %8d points  %8d cells  %s" % (b + 1, grid.GetNumberOfPoints(), grid.GetNumberOfCells(),
                                              ", ".join(sorted(kinds))))
print("arrays")
for a in range(run.PointData.GetNumberOfArrays()):
    array = run.PointData.GetArray(a)
    low, high = array.GetRange(-1 if array.GetNumberOfComponents() > 1 else 0)
    print("  %-16s %d component(s)  %g to %g" % (array.Name, array.GetNumberOfComponents(), low, high))
print("steps\n  %s" % " ".join("%g" % s for s in steps))
print("groups\n  %s" % run.GetPropertyValue("DataGroupingString"))

# ---- the picture: speed on the middle surface, stream tubes coloured by temperature, the walls as a veil

view = CreateRenderView()
view.ViewSize = [1600, 1000]
view.UseColorPaletteForBackground = 0
view.BackgroundColorMode = "Gradient"
view.Background = [0.05, 0.07, 0.12]
view.Background2 = [0.16, 0.20, 0.30]
view.OrientationAxesVisibility = 0
view.ViewTime = step

surfaces = [b + 1 for b in range(data.GetNumberOfBlocks()) if data.GetBlock(b).GetCell(0).GetCellDimension() == 2]
volumes = [b + 1 for b in range(data.GetNumberOfBlocks()) if b + 1 not in surfaces]
walls = ExtractBlock(Input=run, BlockIndices=surfaces)
flow = MergeBlocks(Input=ExtractBlock(Input=run, BlockIndices=volumes))
flow.UpdatePipeline(step)
xmin, xmax, ymin, ymax, zmin, zmax = flow.GetDataInformation().GetBounds()
middle = [(xmin + xmax) / 2, (ymin + ymax) / 2, (zmin + zmax) / 2]

veil = Show(walls, view)
ColorBy(veil, None)
veil.Opacity = 0.13
veil.DiffuseColor = [0.75, 0.85, 1.0]

cut = Slice(Input=flow)
cut.SliceType = "Plane"
cut.SliceType.Origin = middle
cut.SliceType.Normal = [0, 0, 1]
plane = Show(cut, view)
ColorBy(plane, ("POINTS", "velocity", "Magnitude"))
speed = GetColorTransferFunction("velocity")
speed.ApplyPreset("Inferno (matplotlib)", True)
speed.VectorMode = "Magnitude"
plane.RescaleTransferFunctionToDataRange(False, True)
plane.Opacity = 0.55

lines = StreamTracer(Input=flow, SeedType="Point Cloud")
lines.Vectors = ["POINTS", "velocity"]
lines.SeedType.Center = middle
lines.SeedType.Radius = 0.5 * max(xmax - xmin, ymax - ymin)
lines.SeedType.NumberOfPoints = 700
lines.IntegrationDirection = "BOTH"
lines.MaximumStreamlineLength = 4 * (xmax - xmin + ymax - ymin)
tubes = Tube(Input=lines, Radius=0.006 * (xmax - xmin + ymax - ymin) / 2, NumberofSides=10)
shown = Show(tubes, view)
ColorBy(shown, ("POINTS", "temperature"))
heat = GetColorTransferFunction("temperature")
heat.ApplyPreset("Cool to Warm (Extended)", True)
shown.RescaleTransferFunctionToDataRange(False, True)
shown.Specular = 0.4

for function, title, place in ((speed, "speed", "Lower Right Corner"), (heat, "temperature", "Upper Right Corner")):
    bar = GetScalarBar(function, view)
    bar.Title, bar.ComponentTitle = title, ""
    bar.WindowLocation = place
    bar.Visibility = 1

view.CameraViewUp = [0, 0, 1]
reach = max(xmax - xmin, ymax - ymin)
view.CameraFocalPoint = middle
view.CameraPosition = [middle[0] - 0.9 * reach, middle[1] - 1.1 * reach, middle[2] + 1.3 * reach]
ResetCamera(view)
GetActiveCamera().Dolly(1.25)
Render(view)
SaveScreenshot(picture, view, ImageResolution=[1600, 1000])
print("picture\n  %s, at step %g" % (picture, step))
