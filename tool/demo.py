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

# ---- the picture: stream tubes coloured by speed, the warm plume inside them, the walls as a veil

view = CreateRenderView()
view.ViewSize = [1600, 1000]
view.UseColorPaletteForBackground = 0
view.BackgroundColorMode = "Gradient"
view.Background = [0.02, 0.03, 0.06]
view.Background2 = [0.13, 0.17, 0.26]
view.OrientationAxesVisibility = 0
view.ViewTime = step


def blocks(dimension):
    return ["/Root/Block%d" % b for b in range(data.GetNumberOfBlocks())
            if data.GetBlock(b).GetCell(0).GetCellDimension() == dimension]


walls = ExtractBlock(Input=run, Selectors=blocks(2))
flow = MergeBlocks(Input=ExtractBlock(Input=run, Selectors=blocks(3)))
flow.UpdatePipeline(step)
xmin, xmax, ymin, ymax, zmin, zmax = flow.GetDataInformation().GetBounds()
middle = [(xmin + xmax) / 2, (ymin + ymax) / 2, (zmin + zmax) / 2]
reach = max(xmax - xmin, ymax - ymin)

veil = Show(walls, view)
ColorBy(veil, None)
veil.Opacity = 0.10
veil.DiffuseColor = [0.7, 0.85, 1.0]

lines = StreamTracer(Input=flow, SeedType="Point Cloud")
lines.Vectors = ["POINTS", "velocity"]
lines.SeedType.Center = middle
lines.SeedType.Radius = 0.6 * reach
lines.SeedType.NumberOfPoints = 420
lines.IntegrationDirection = "BOTH"
lines.MaximumStreamlineLength = 8 * reach
tubes = Tube(Input=lines, Radius=0.0035 * reach, NumberofSides=10)
shown = Show(tubes, view)
ColorBy(shown, ("POINTS", "velocity", "Magnitude"))
speed = GetColorTransferFunction("velocity")
speed.VectorMode = "Magnitude"
speed.ApplyPreset("Viridis (matplotlib)", True)
shown.RescaleTransferFunctionToDataRange(False, True)
shown.Specular, shown.SpecularPower = 0.5, 40

low, high = flow.PointData.GetArray("temperature").GetRange()
plume = Contour(Input=flow, ContourBy=["POINTS", "temperature"],
                Isosurfaces=[low + f * (high - low) for f in (0.25, 0.45, 0.65, 0.85)])
warm = Show(plume, view)
ColorBy(warm, ("POINTS", "temperature"))
heat = GetColorTransferFunction("temperature")
heat.ApplyPreset("Black-Body Radiation", True)
heat.RescaleTransferFunction(low - 0.25 * (high - low), high)
warm.Opacity = 0.75
warm.Specular = 0.3

for function, title, place in ((speed, "speed", [0.90, 0.08]), (heat, "temperature", [0.90, 0.56])):
    bar = GetScalarBar(function, view)
    bar.Title, bar.ComponentTitle = title, ""
    bar.WindowLocation = "Any Location"
    bar.Position = place
    bar.ScalarBarLength = 0.34
    bar.AutomaticLabelFormat = 0
    bar.LabelFormat = "%.3g"
    bar.RangeLabelFormat = "%.3g"
    bar.Visibility = 1

view.CameraViewUp = [0, 0, 1]
view.CameraFocalPoint = middle
view.CameraPosition = [middle[0] - 0.25 * reach, middle[1] - 1.2 * reach, middle[2] + 1.2 * reach]
ResetCamera(view)
GetActiveCamera().Dolly(1.2)
Render(view)
SaveScreenshot(picture, view, ImageResolution=[1600, 1000])
print("picture\n  %s, at step %g" % (picture, step))
