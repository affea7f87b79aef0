/* vtkMarivaneReaderPoints.cxx: the points of the blocks, moved with the mesh, and the values of their arrays.
 *
 * The database gives 64-bit reals for all nodes of the run; the pipeline wants floats for the nodes of one block. What
 * was read is kept as floats for all nodes, since every block gathers its share from it. A block of all nodes, which is
 * the largest one of most runs, shows what is kept and gathers nothing. */

#include "Plugin/Reader/vtkMarivaneReader.h"

#include "Plugin/Reader/vtkMarivaneTimer.h"

#include "vtkFloatArray.h"
#include "vtkNew.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "base/sys.h"

void vtkMarivaneReader::ReadPoints(int step)
{
    if (step == this->CurrentCoordinateStep) return;
    this->CurrentCoordinateStep = step;

    const int     nNodes = int(this->NumberOfNodes);
    const int64_t n = 3 * int64_t(nNodes);

    if (this->Coordinates.Size() == 0 || this->MeshMoves) {
        const bool fresh = this->Coordinates.Size() == 0;
        this->Coordinates.Resize(n);
        this->Reals.Resize(n);
        int good = 0;
        {
            vtkMarivaneTimed timed(this->ReadTimers["crd"]);
            good = rdbGetReals0(this->Database, "crd", this->Reals.Data(), nNodes, 3);
        }
        if (!good) {
            sysErrorMessage("Cannot read the coordinates of nodes/points..exiting.");
            if (fresh && n > 0) memset(this->Coordinates.Data(), 0, n * sizeof(float));
            return;
        }
        const double *from = this->Reals.Data();
        float        *to = this->Coordinates.Data();
        vtkMarivaneFor(0, n, [=](int64_t i) { to[i] = float(from[i]); });
    }

    /* Step 0 shows the mesh as stored. The displacement is a plain variable, extended output or not. */
    if (this->MeshMoves && step != 0 && this->ReadReals("outValues", this->MeshDisplacementIndex, step, 3)) {
        const double *from = this->Reals.Data();
        float        *to = this->Coordinates.Data();
        vtkMarivaneFor(0, n, [=](int64_t i) { to[i] = float(double(to[i]) + from[i]); });
    }
    this->PlaceBlockPoints();
}

/* Points that borrow the coordinates. Those of a mesh at rest never change. */
static void borrowPoints(vtkPoints *points, float *x, int64_t n)
{
    vtkNew<vtkFloatArray> data;
    data->SetNumberOfComponents(3);
    data->SetArray(vtkMarivaneBuffer<float>::Lend(x), 3 * n, 0, vtkFloatArray::VTK_DATA_ARRAY_USER_DEFINED);
    data->SetArrayFreeFunction(vtkMarivaneBuffer<float>::GiveBack);
    points->SetData(data);
}

/* New points for every block. Without node lists, after ReleaseData, the old ones stay. */
void vtkMarivaneReader::PlaceBlockPoints()
{
    float *x = this->Coordinates.Data();
    for (size_t b = 0; b < this->BlockNodeIds.size(); ++b) {
        const int    *nodes = this->BlockNodeIds[b].Data();
        const int64_t n = this->BlockNodeIds[b].Size();

        this->Blocks[b].Points = vtkSmartPointer<vtkPoints>::New();
        if (this->Blocks[b].Whole && n > 0 && !this->MeshMoves) {
            borrowPoints(this->Blocks[b].Points, x, n);
            continue;
        }
        this->Blocks[b].Points->SetNumberOfPoints(n);
        float *to = n > 0 ? static_cast<float *>(this->Blocks[b].Points->GetVoidPointer(0)) : nullptr;
        vtkMarivaneFor(0, n, [=](int64_t i) { memcpy(to + 3 * i, x + 3 * int64_t(nodes[i]), 3 * sizeof(float)); });
    }
}

/* Reads values of a variable at all nodes into Reals. A request that fails leaves zeros, or zeros behind what it had
   read; nothing is reported. Returns false where there is nothing to read.

   The library clears the whole array before it fills it, so that nothing need be cleared here: only a request that
   fails before that leaves the array alone, and is known by a mark in its last value. */
bool vtkMarivaneReader::ReadReals(const char *key, int variable, int step, int dimension)
{
    const int64_t n = int64_t(std::max(dimension, 0)) * this->NumberOfNodes;
    if (n < 1) return false;

    static const unsigned char untouched[8] = { 0xA7, 0x5C, 0x31, 0xE9, 0x4D, 0x82, 0xFB, 0x7F };   /* a NaN */
    this->Reals.Resize(n);
    double *values = this->Reals.Data();
    memcpy(&values[n - 1], untouched, sizeof untouched);
    rdbGetReals2(this->Database, key, values, variable, step, dimension, int(this->NumberOfNodes));
    if (!memcmp(&values[n - 1], untouched, sizeof untouched)) memset(values, 0, n * sizeof(double));
    return true;
}

/* The kept values of a variable; zeros until something was read. A variable of no components counts as a scalar. */
float *vtkMarivaneReader::GetVariableValues(int variable)
{
    if (variable < 0 || size_t(variable) >= this->VariableValues.size()) return nullptr;
    vtkMarivaneBuffer<float> &values = this->VariableValues[variable];
    const int64_t n = std::max(this->Variables[variable].Dimension, 1) * this->NumberOfNodes;
    if (!values.Data() || values.Size() != n) values.ResizeToZeros(n);
    return values.Data();
}

/* Reads a variable at a step and keeps it as floats. */
void vtkMarivaneReader::ReadVariable(int variable, int step)
{
    vtkMarivaneTimed timed(this->ReadTimers["nodalData"]);
    const int        dimension = this->Variables[variable].Dimension;
    const char      *key = this->ExtendedOutput ? "outExtValues" : "outValues";
    if (!this->ReadReals(key, variable, step, dimension)) return;

    const double             *from = this->Reals.Data();
    vtkMarivaneBuffer<float> &values = this->VariableValues[variable];
    values.Resize(dimension * this->NumberOfNodes);
    float *to = values.Data();
    vtkMarivaneFor(0, values.Size(), [=](int64_t i) { to[i] = float(from[i]); });
}

float *vtkMarivaneReader::GetArrayData(int array, int step, int block)
{
    if (array < 0 || size_t(array) >= this->ArraySources.size())
        throw std::out_of_range("invalid unordered_map<K, T> key");
    const int variable = this->ArraySources[array].Variable, s = this->ArraySources[array].SubIndex;

    /* The number of a variable is held against the number of arrays, as if each variable were one array: with variables
       of no arrays the last ones count as not available. Clients know it so. */
    const bool released = size_t(variable) >= this->VariableValues.size();
    if (block == 0 && s == 0) {
        if (variable >= this->NumberOfArrays || step >= this->NumberOfTimeSteps || released) {
            sysErrorMessage("Data Not Available for the variable or time step");
            return nullptr;
        }
        this->ReadVariable(variable, step);
    }
    if (released || block < 0 || size_t(block) >= this->BlockNodeIds.size()) return nullptr;

    vtkMarivaneTimed timed(this->LocalisationTimers["nodalData localization"]);
    float        *g = this->GetVariableValues(variable);
    const int    *nodes = this->BlockNodeIds[block].Data();
    const int64_t nNodes = this->BlockNodeIds[block].Size();
    const int     n = int(this->Variables[variable].ArrayNames.size());
    const int     d = std::max(this->Variables[variable].Dimension, 1);
    const int     q = std::max(d / n, 1);                 /* values of this array per node           */
    const int64_t stride = n == 1 ? d : q == 1 ? n : q;   /* from a node's values to the next node's */

    if (this->Blocks[block].Whole && n == 1) return g;

    vtkMarivaneBuffer<float> &out = this->ArrayBuffers[block][array];
    out.Resize(q * nNodes);
    float *to = out.Data();
    if (q == 1) {
        vtkMarivaneFor(0, nNodes, [=](int64_t i) { to[i] = g[nodes[i] * stride + s]; });
    } else if (q == 3) {                                  /* a copy of known size is no call */
        vtkMarivaneFor(0, nNodes, [=](int64_t i) { memcpy(to + 3 * i, g + nodes[i] * stride + s, 3 * sizeof(float)); });
    } else {
        vtkMarivaneFor(0, nNodes, [=](int64_t i) {
            memcpy(to + i * q, g + nodes[i] * stride + s, q * sizeof(float));
        });
    }
    return to;
}
