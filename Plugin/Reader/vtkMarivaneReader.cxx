/* vtkMarivaneReader.cxx: life of the reader object, the whole read, the plain questions, and letting go of data. */

#include "Plugin/Reader/vtkMarivaneReader.h"

#include "Plugin/Reader/vtkMarivaneTimer.h"

#include "vtkDoubleArray.h"
#include "vtkObjectFactory.h"

#include <algorithm>
#include <cstdio>

#include "base/sys.h"

vtkStandardNewMacro(vtkMarivaneReader);

vtkMarivaneReader::vtkMarivaneReader()
{
    for (const char *key : { "crd", "usrIds", "sfsSet Cnn", "volSet Cnn", "nodalData" }) this->ReadTimers[key] = 0;
    for (const char *key : { "nodalData localization", "globalInvHashCreate", "srf unique global map",
                             "srf cnn global map", "srf unique", "srf local hash create", "srf local map",
                             "vol global map", "vol unique", "vol local hash create", "vol local map" })
        this->LocalisationTimers[key] = 0;
}

void vtkMarivaneReader::PrintSelf(ostream &os, vtkIndent indent)
{
    this->Superclass::PrintSelf(os, indent);
    os << indent << "NumberOfNodes: " << this->NumberOfNodes << "\n";
}

void vtkMarivaneReader::ReadData(const char *fileName)
{
    ElapsedTimer total("TotalReadData");
    this->Open(fileName);
    if (this->Database) {
        this->ReadMesh();
        this->ReadPoints(0);
        this->ReadVariables();
    }
    total.End();
}

void vtkMarivaneReader::ReadMesh()
{
    int n = 0, good = 0;
    {
        vtkMarivaneTimed timed(this->DatabaseSeconds);
        good = rdbGetInt0(this->Database, "nNodes", &n);
    }
    if (!good) {
        sysErrorMessage("Cannot read the the number of nodes/points..exiting..");
        return;
    }
    this->NumberOfNodes = std::max(n, 0);
    this->ReadCells();
}

/* Counts come from files. What cannot be read, and what is below 0, sizes nothing. */
int vtkMarivaneReader::GetCount(const char *key)
{
    vtkMarivaneTimed timed(this->DatabaseSeconds);
    int n = 0;
    return rdbGetInt0(this->Database, key, &n) ? std::max(n, 0) : 0;
}

int vtkMarivaneReader::GetCount(const char *key, int index)
{
    vtkMarivaneTimed timed(this->DatabaseSeconds);
    int n = 0;
    return rdbGetInt1(this->Database, key, &n, index) ? std::max(n, 0) : 0;
}

bool vtkMarivaneReader::GetText(const char *key, char *text, int index)
{
    vtkMarivaneTimed timed(this->DatabaseSeconds);
    return rdbGetStr1(this->Database, key, text, index) != 0;
}

/* The questions. A block, array or variable that there is not answers null or 0. */

template <class V> static bool has(const V &list, int i)
{
    return i >= 0 && size_t(i) < list.size();
}

vtkTypeInt64 vtkMarivaneReader::GetNumberOfNodes() { return this->NumberOfNodes; }
vtkTypeInt64 vtkMarivaneReader::GetNumberOfPoints() { return this->NumberOfNodes; }
vtkTypeInt64 vtkMarivaneReader::GetNumberOfBlocks() { return this->NumberOfBlocks; }
vtkTypeInt64 vtkMarivaneReader::GetNumberOfSets() { return this->NumberOfBlocks; }
vtkTypeInt64 vtkMarivaneReader::GetNumberOfVariables() { return this->NumberOfArrays; }
vtkTypeInt64 vtkMarivaneReader::GetNumberOfArrays() { return this->NumberOfArrays; }
vtkTypeInt64 vtkMarivaneReader::GetNumberOfTimeSteps() { return this->NumberOfTimeSteps; }
int          vtkMarivaneReader::GetMeshMoves() { return this->MeshMoves; }
void        *vtkMarivaneReader::ReservedQuery() { return nullptr; }
void         vtkMarivaneReader::ReservedAction() {}

vtkTypeInt64 vtkMarivaneReader::GetNumberOfSetCells(int block) { return this->GetNumberOfCells(block); }
vtkTypeInt64 vtkMarivaneReader::GetNumberOfCells(int block)
{
    return has(this->Blocks, block) ? this->Blocks[block].NumberOfCells : 0;
}

vtkTypeInt64 vtkMarivaneReader::GetSetCellType(int block) { return this->GetCellType(block); }
vtkTypeInt64 vtkMarivaneReader::GetCellType(int block)
{
    return has(this->Blocks, block) ? this->Blocks[block].CellType : 0;
}

const char *vtkMarivaneReader::GetSetName(int block) { return this->GetBlockName(block); }
const char *vtkMarivaneReader::GetBlockName(int block)
{
    return has(this->Blocks, block) ? this->Blocks[block].Name.c_str() : nullptr;
}

vtkCellArray *vtkMarivaneReader::GetSetCells(int block) { return this->GetCells(block); }
vtkCellArray *vtkMarivaneReader::GetCells(int block)
{
    return has(this->Blocks, block) ? this->Blocks[block].Cells.Get() : nullptr;
}

vtkPoints *vtkMarivaneReader::GetPoints(int block, int step)
{
    if (step != this->CurrentCoordinateStep && this->MeshMoves) this->ReadPoints(step);
    return has(this->Blocks, block) ? this->Blocks[block].Points.Get() : nullptr;
}

vtkPoints *vtkMarivaneReader::GetSharedPoints(int step)
{
    if (this->MeshMoves) this->ReadPoints(step);
    return this->SharedPoints;
}

const char *vtkMarivaneReader::GetVariableName(int array) { return this->GetArrayName(array); }
const char *vtkMarivaneReader::GetArrayName(int array)
{
    return has(this->Arrays, array) ? this->Arrays[array].Name.c_str() : nullptr;
}

int vtkMarivaneReader::GetVariableComponents(int array) { return this->GetArrayComponents(array); }
int vtkMarivaneReader::GetArrayComponents(int array)
{
    return has(this->Arrays, array) ? this->Arrays[array].Components : 0;
}

int *vtkMarivaneReader::GetBlockNodeIds(int block)
{
    return has(this->BlockNodeIds, block) ? this->BlockNodeIds[block].Data() : nullptr;
}

void vtkMarivaneReader::WriteCoordinates(const char *path)
{
    FILE *file = path ? fopen(path, "w") : nullptr;
    if (!file) return;
    const vtkTypeInt64 n = this->Coordinates.Size() / 3;
    for (vtkTypeInt64 i = 0; i < n; ++i) {
        const float *x = &this->Coordinates[3 * i];
        fprintf(file, "x=%le,y=%le,z=%le\n", double(x[0]), double(x[1]), double(x[2]));
    }
    fclose(file);
}

void vtkMarivaneReader::ResetVariableValues()
{
    for (vtkMarivaneBuffer<float> &values : this->VariableValues) values.Clear();
}

void vtkMarivaneReader::ReleaseData()
{
    this->VariableValues = std::vector<vtkMarivaneBuffer<float>>();
    this->Coordinates.Free();
    this->BlockNodeIds = std::vector<vtkMarivaneBuffer<int>>();
    this->Reals.Free();
}
