/* vtkMarivaneReaderProxy.cxx: the pipeline's passes, and the blocks that they deliver. */

#include "Plugin/Reader/vtkMarivaneReaderProxy.h"

#include "Plugin/Reader/vtkMarivaneReader.h"
#include "Plugin/Reader/vtkMarivaneTimer.h"

#include "vtkCallbackCommand.h"
#include "vtkCellType.h"
#include "vtkDataArraySelection.h"
#include "vtkDoubleArray.h"
#include "vtkFloatArray.h"
#include "vtkInformation.h"
#include "vtkInformationVector.h"
#include "vtkMultiBlockDataSet.h"
#include "vtkNew.h"
#include "vtkObjectFactory.h"
#include "vtkPointData.h"
#include "vtkStreamingDemandDrivenPipeline.h"
#include "vtkUnstructuredGrid.h"
#include "vtkVersionMacros.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>

typedef vtkStreamingDemandDrivenPipeline Pipeline;

vtkStandardNewMacro(vtkMarivaneReaderProxy);

static void selectionChanged(vtkObject *, unsigned long, void *proxy, void *)
{
    static_cast<vtkMarivaneReaderProxy *>(proxy)->Modified();
}

/* A pass that cannot go on says so on standard output, at once. */
static void say(const char *text)
{
    fputs(text, stdout);
    fflush(stdout);
}

vtkMarivaneReaderProxy::vtkMarivaneReaderProxy()
{
    this->SetNumberOfInputPorts(0);
    this->Reader = vtkMarivaneReader::New();
    this->PointDataArraySelection = vtkDataArraySelection::New();
    this->SelectionObserver = vtkCallbackCommand::New();
    this->SelectionObserver->SetCallback(selectionChanged);
    this->SelectionObserver->SetClientData(this);
    this->PointDataArraySelection->AddObserver(vtkCommand::ModifiedEvent, this->SelectionObserver);
}

vtkMarivaneReaderProxy::~vtkMarivaneReaderProxy()
{
    delete[] this->FileName;
    this->PointDataArraySelection->RemoveObserver(this->SelectionObserver);
    this->SelectionObserver->Delete();
    this->PointDataArraySelection->Delete();
    this->CachedGrids.clear();
    this->OutputGrids.clear();
    delete[] this->CurrentFileName;
    this->Reader->Delete();
}

void vtkMarivaneReaderProxy::PrintSelf(ostream &os, vtkIndent indent)
{
    this->Superclass::PrintSelf(os, indent);
    os << indent << "PointDataArraySelection: " << this->PointDataArraySelection << "\n";
    os << indent << "NumberOfTimeSteps: " << this->NumberOfTimeSteps << "\n";
    os << indent << "TimeStep: " << this->TimeStep << "\n";
    os << indent << "FileName: " << (this->FileName ? this->FileName : "(null)") << "\n";
    os << indent << "TimeStepRange: " << this->TimeStepRange[0] << " " << this->TimeStepRange[1] << "\n";
}

/* File names and the plain attributes. */

bool vtkMarivaneReaderProxy::ReplaceName(char *&mine, const char *name)
{
    if (mine == name || (mine && name && !strcmp(mine, name))) return false;
    char *copy = nullptr;
    if (name) {
        copy = new char[strlen(name) + 1];
        strcpy(copy, name);
    }
    delete[] mine;
    mine = copy;
    this->Modified();
    return true;
}

void vtkMarivaneReaderProxy::SetFileName(const char *name) { this->ReplaceName(this->FileName, name); }
void vtkMarivaneReaderProxy::SetCurrentFileName(const char *name) { this->ReplaceName(this->CurrentFileName, name); }
const char *vtkMarivaneReaderProxy::GetFileName() { return this->FileName; }

int vtkMarivaneReaderProxy::CanReadFile(const char *name)
{
    struct stat status;
    if (name && !stat(name, &status) && this->Reader) return 1;
    say("Failed in canreadfile.\n");
    return 0;
}

int vtkMarivaneReaderProxy::GetNumberOfTimeSteps() { return this->NumberOfTimeSteps; }
int vtkMarivaneReaderProxy::GetTimeStep() { return this->TimeStep; }

void vtkMarivaneReaderProxy::SetTimeStep(int step)
{
    if (this->TimeStep == step) return;
    this->TimeStep = step;
    this->Modified();
}

int *vtkMarivaneReaderProxy::GetTimeStepRange() { return this->TimeStepRange; }
void vtkMarivaneReaderProxy::GetTimeStepRange(int range[2]) { this->GetTimeStepRange(range[0], range[1]); }
void vtkMarivaneReaderProxy::GetTimeStepRange(int &low, int &high)
{
    low = this->TimeStepRange[0];
    high = this->TimeStepRange[1];
}

void vtkMarivaneReaderProxy::SetTimeStepRange(int low, int high)
{
    if (this->TimeStepRange[0] == low && this->TimeStepRange[1] == high) return;
    this->TimeStepRange[0] = low;
    this->TimeStepRange[1] = high;
    this->Modified();
}

/* The array selection. */

vtkDataArraySelection *vtkMarivaneReaderProxy::GetPointDataArraySelection() { return this->PointDataArraySelection; }
int vtkMarivaneReaderProxy::GetNumberOfPointArrays() { return this->PointDataArraySelection->GetNumberOfArrays(); }

const char *vtkMarivaneReaderProxy::GetPointArrayName(int index)
{
    return this->PointDataArraySelection->GetArrayName(index);
}

int vtkMarivaneReaderProxy::GetPointArrayStatus(const char *name)
{
    return name ? this->PointDataArraySelection->ArrayIsEnabled(name) : 0;
}

void vtkMarivaneReaderProxy::SetPointArrayStatus(const char *name, int status)
{
    if (!name) return;
    if (status) this->PointDataArraySelection->EnableArray(name);
    else        this->PointDataArraySelection->DisableArray(name);
}

/* All arrays of the reader, new ones enabled, the others as the user left them. */
void vtkMarivaneReaderProxy::UpdateSelection()
{
    vtkNew<vtkDataArraySelection> before;
    before->CopySelections(this->PointDataArraySelection);
    this->PointDataArraySelection->RemoveAllArrays();
    for (int a = 0; a < this->Reader->GetNumberOfArrays(); ++a) {
        const char *name = this->Reader->GetArrayName(a);
        this->PointDataArraySelection->AddArray(name);
        if (before->ArrayExists(name) && !before->ArrayIsEnabled(name))
            this->PointDataArraySelection->DisableArray(name);
    }
}

/* Answers of the reader itself. */

const char *vtkMarivaneReaderProxy::GetDataGroupingString()
{
    return static_cast<vtkMarivaneReader *>(this->Reader)->GetDataGroupingString();
}

vtkDoubleArray *vtkMarivaneReaderProxy::GetBlockCentroids()
{
    return static_cast<vtkMarivaneReader *>(this->Reader)->GetBlockCentroids();
}

/* Progress. */

void vtkMarivaneReaderProxy::GetProgressRange(float range[2])
{
    range[0] = this->ProgressRange[0];
    range[1] = this->ProgressRange[1];
}

void vtkMarivaneReaderProxy::SetProgressRange(const float range[2], int current, const float *fractions)
{
    const float width = range[1] - range[0];
    this->ProgressRange[0] = range[0] + fractions[current] * width;
    this->ProgressRange[1] = range[0] + fractions[current + 1] * width;
    this->UpdateProgressDiscrete(this->ProgressRange[0]);
}

void vtkMarivaneReaderProxy::SetProgressRange(const float range[2], int current, int count)
{
    const float part = (range[1] - range[0]) / count;
    this->ProgressRange[0] = range[0] + part * current;
    this->ProgressRange[1] = range[0] + part * (current + 1);
    this->UpdateProgressDiscrete(this->ProgressRange[0]);
}

void vtkMarivaneReaderProxy::UpdateProgressDiscrete(float progress)
{
    if (this->AbortExecute) return;
    const float rounded = float(int(progress * 100 + 0.5f)) / 100;
    if (this->GetProgress() != rounded) this->UpdateProgress(rounded);
}

/* The passes. */

void vtkMarivaneReaderProxy::ReadGeometry()
{
    if (!this->Reader) {
        vtkErrorMacro("QUENTA: Error Loading Marivane Libraries Aborting....");
        vtkErrorMacro("QUENTA: To Get libvtkMarivaneReader.so, contact");
        vtkErrorMacro("...............your Marivane support...............");
        return;
    }
    this->Reader->ReadData(this->FileName);
    this->NumberOfSets = int(this->Reader->GetNumberOfSets());
    if (this->NumberOfSets < 0) {
        vtkErrorMacro("QUENTA: Error reading Marivane database.NumberOfSets < 0 ");
        this->InformationError = 1;
        say("Failed in readgeometry \n");
        return;
    }
    this->OutputGrids.clear();
    this->CachedGrids.clear();
    this->CachedGrids.resize(this->NumberOfSets);
    this->GeometryRead = 1;
}

/* The first step whose time is not below t, or the last of n. */
static int stepAt(double t, const double *times, int n)
{
    int i = 0;
    while (i < n - 1 && t > times[i]) ++i;
    return i;
}

int vtkMarivaneReaderProxy::RequestInformation(vtkInformation *, vtkInformationVector **, vtkInformationVector *outputs)
{
    ElapsedTimer timer("RequestInformation");
    if (!this->Reader) {
        say("RDB reader is null \n");
        return 0;
    }
    if (!this->GeometryRead) this->ReadGeometry();
    this->MeshMoves = this->Reader->GetMeshMoves() != 0;
    this->NumberOfTimeSteps = int(this->Reader->GetNumberOfTimeSteps());

    vtkInformation *info = outputs->GetInformationObject(0);
    const int       nBefore = info->Length(Pipeline::TIME_STEPS());
    const int       n = this->NumberOfTimeSteps;
    std::vector<double> times(n);
    for (int i = 0; i < n; ++i) times[i] = i;
    if (n >= 1) {
        const double range[2] = { 0.0, double(n - 1) };
        info->Set(Pipeline::TIME_STEPS(), times.data(), n);
        info->Set(Pipeline::TIME_RANGE(), range, 2);
    }
    /* The number of steps that the pipeline knew before this pass bounds the walk: in the first pass it ends at 0. */
    if (info->Has(Pipeline::UPDATE_TIME_STEP()))
        this->TimeStep = stepAt(info->Get(Pipeline::UPDATE_TIME_STEP()), times.data(), std::min(nBefore, n));
    if (this->TimeStep >= n) this->TimeStep = n - 1;

    this->UpdateSelection();
    timer.End();
    return 1;
}

int vtkMarivaneReaderProxy::RequestData(vtkInformation *, vtkInformationVector **, vtkInformationVector *outputs)
{
    if (this->InformationError || !this->Reader) {
        say("Information error in reader. \n");
        return 0;
    }
    this->DataError = 0;
    if (this->TimeStep < 0) {
        this->DataError = 1;
        say(("time step: " + std::to_string(this->TimeStep) + "\n").c_str());
        say("Data error in reader. \n");
        return 0;
    }

    vtkInformation *info = outputs->GetInformationObject(0);
    if (info->Has(Pipeline::UPDATE_TIME_STEP())) {
        this->TimeValue = info->Get(Pipeline::UPDATE_TIME_STEP());
        this->TimeStep =
            stepAt(this->TimeValue, info->Get(Pipeline::TIME_STEPS()), info->Length(Pipeline::TIME_STEPS()));
        this->ActualTimeStep = this->TimeStep;
    }

    const float whole[2] = { 0, 1 };
    this->UpdateProgress(0.0);
    this->SetProgressRange(whole, 0, 1);

    vtkMultiBlockDataSet *output = vtkMultiBlockDataSet::GetData(info);
    if (this->LastBuiltTimeStep != this->TimeStep) {
        this->BuildBlocks();
        this->LastBuiltTimeStep = this->TimeStep;
    }
    const unsigned n = unsigned(this->OutputGrids.size());
    output->SetNumberOfBlocks(n);
    for (unsigned i = 0; i < n; ++i) output->SetBlock(i, this->OutputGrids[i]);

    this->UpdateProgressDiscrete(1.0f);
    if (this->NumberOfTimeSteps == 1) this->Reader->ReleaseData();
    return 1;
}

void vtkMarivaneReaderProxy::BuildBlocks()
{
    const int n = int(this->Reader->GetNumberOfSets());
    this->OutputGrids.clear();
    this->OutputGrids.resize(std::max(n, 0));
    for (int b = 0; b < n; ++b) {
        this->OutputGrids[b] = vtkSmartPointer<vtkUnstructuredGrid>::New();
        this->BuildStructure(b, this->OutputGrids[b]);
        this->AddArrays(b, this->OutputGrids[b]);
        this->OutputGrids[b]->Squeeze();
    }
}

/* A type that VTK lacks, -1, reaches the pipeline as it is, which filters report. Those of VTK 9.0 crash on it: there it
   goes as a cell without a shape, which they pass over. */
static int pipelineCellType(int cellType)
{
#if VTK_MAJOR_VERSION == 9 && VTK_MINOR_VERSION == 0
    if (cellType < 0) return VTK_EMPTY_CELL;
#endif
    return cellType;
}

/* Points and cells, those of the first build wherever the mesh has not moved. The reference step keeps the points of
   the first build, whichever step that was. */
void vtkMarivaneReaderProxy::BuildStructure(int block, vtkUnstructuredGrid *grid)
{
    const bool hasCache = size_t(block) < this->CachedGrids.size();
    const bool sameFile = this->CurrentFileName && this->FileName && !strcmp(this->CurrentFileName, this->FileName);

    if (hasCache && this->CachedGrids[block] && sameFile) {
        grid->CopyStructure(this->CachedGrids[block]);
    } else {
        vtkCellArray *cells = this->Reader->GetCells(block);
        vtkPoints    *points = this->Reader->GetPoints(block, this->TimeStep);
        /* without coordinates the block stays empty: filters crash on cells of no points */
        if (cells && points) grid->SetCells(pipelineCellType(int(this->Reader->GetCellType(block))), cells);
        grid->SetPoints(points);
        if (hasCache) {
            if (!this->CachedGrids[block]) this->CachedGrids[block] = vtkSmartPointer<vtkUnstructuredGrid>::New();
            this->CachedGrids[block]->CopyStructure(grid);
            this->SetCurrentFileName(this->FileName);
        }
    }
    if (this->MeshMoves && this->TimeStep != this->ReferenceStep)
        grid->SetPoints(this->Reader->GetPoints(block, this->TimeStep));
}

/* The arrays do not copy the reader's floats. They see what the reader writes there for the next step, and keep the
   memory alive if they outlive the reader. */
void vtkMarivaneReaderProxy::AddArrays(int block, vtkUnstructuredGrid *grid)
{
    const vtkIdType nPoints = grid->GetNumberOfPoints();
    for (int a = 0; a < this->Reader->GetNumberOfArrays(); ++a) {
        const char *name = this->Reader->GetArrayName(a);
        const int   nComponents = this->Reader->GetArrayComponents(a);
        if (!this->PointDataArraySelection->ArrayIsEnabled(name)) continue;

        vtkNew<vtkFloatArray> array;
        array->SetName(name);
        array->SetNumberOfComponents(nComponents);
        float *data = this->Reader->GetArrayData(a, this->TimeStep, block);
        if (data) {
            /* a variable of no components comes as a scalar: the array's own count is at least 1 */
            array->SetArray(vtkMarivaneBuffer<float>::Lend(data), array->GetNumberOfComponents() * nPoints, 0,
                            vtkFloatArray::VTK_DATA_ARRAY_USER_DEFINED);
            array->SetArrayFreeFunction(vtkMarivaneBuffer<float>::GiveBack);
        } else {
            /* what is not available has its length all the same: filters trust that every array has one */
            array->SetNumberOfTuples(nPoints);
            array->FillValue(0.0f);
        }
        grid->GetPointData()->AddArray(array);
        if (nComponents == 1 || strstr(name, "pressure")) grid->GetPointData()->SetActiveScalars(name);
    }
}
