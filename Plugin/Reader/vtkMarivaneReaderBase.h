#ifndef PLUGIN_READER_VTKMARIVANEREADERBASE_H
#define PLUGIN_READER_VTKMARIVANEREADERBASE_H

/* vtkMarivaneReaderBase.h: what the pipeline's algorithm asks of a reader. The class holds what it answers from, and
 * adds no behaviour: vtkMarivaneReader fills it.
 *
 * Blocks are numbered from 0, surface sets first, then volume sets; output arrays and time steps from 0. Pointers that
 * an operation returns belong to the reader. */

#include "Plugin/Reader/vtkMarivaneBuffer.h"

#include "vtkCellArray.h"
#include "vtkObject.h"
#include "vtkPoints.h"
#include "vtkSmartPointer.h"

#include <string>
#include <vector>

#include "rdb/rdb.h"

class vtkMarivaneReaderBase : public vtkObject
{
public:
    vtkTypeMacro(vtkMarivaneReaderBase, vtkObject);

    /* Where two operations mean the same, the second is the one that the proxy calls. */
    virtual vtkTypeInt64  GetNumberOfNodes() = 0;
    virtual vtkTypeInt64  GetNumberOfPoints() = 0;
    virtual vtkTypeInt64  GetNumberOfSetCells(int block) = 0;
    virtual vtkTypeInt64  GetNumberOfCells(int block) = 0;
    virtual vtkTypeInt64  GetNumberOfBlocks() = 0;
    virtual vtkTypeInt64  GetNumberOfSets() = 0;
    virtual vtkTypeInt64  GetSetCellType(int block) = 0;
    virtual vtkTypeInt64  GetCellType(int block) = 0;
    virtual const char   *GetSetName(int block) = 0;
    virtual const char   *GetBlockName(int block) = 0;

    /* The block's points, in the order of its node list, moved to the step if the mesh moves. */
    virtual vtkPoints    *GetPoints(int block, int step) = 0;
    virtual void         *ReservedQuery() = 0;
    virtual vtkPoints    *GetSharedPoints(int step) = 0;
    virtual vtkCellArray *GetSetCells(int block) = 0;
    virtual vtkCellArray *GetCells(int block) = 0;

    /* Writes the current coordinates of all nodes as lines of text. */
    virtual void          WriteCoordinates(const char *path) = 0;
    virtual void          ReservedAction() = 0;
    virtual vtkTypeInt64  GetNumberOfVariables() = 0;
    virtual vtkTypeInt64  GetNumberOfArrays() = 0;
    virtual const char   *GetVariableName(int array) = 0;
    virtual const char   *GetArrayName(int array) = 0;
    virtual int           GetVariableComponents(int array) = 0;
    virtual int           GetArrayComponents(int array) = 0;

    /* The values of a database variable at all nodes as last read, components of a node together. */
    virtual float        *GetVariableValues(int variable) = 0;

    /* The output array at the block's nodes, components of a node together, in memory that the next call for the same
       array and block overwrites: a vtkMarivaneBuffer<float>, which Lend keeps beyond the reader's life. The values of
       a variable are read at block 0 and its first array, and kept for its other arrays and for the other blocks.
       Null, after a message, for what the database does not have. */
    virtual float        *GetArrayData(int array, int step, int block) = 0;

    /* For each point of the block its position among the run's nodes. */
    virtual int          *GetBlockNodeIds(int block) = 0;
    virtual void          ResetVariableValues() = 0;

    /* Drops values, coordinates and node lists: a run of one step needs them no more after its first delivery. */
    virtual void          ReleaseData() = 0;

    virtual void          Open(const char *fileName) = 0;
    virtual int           GetVtkCellType(int topology) = 0;

    /* The whole read: opens the database, and fills blocks, coordinates of step 0 and the list of arrays. */
    virtual void          ReadData(const char *fileName) = 0;
    virtual void          ReadMesh() = 0;
    virtual void          ReadPoints(int step) = 0;
    virtual void          ReadCells() = 0;
    virtual void          ReadVariables() = 0;
    virtual int           GetMeshMoves() = 0;
    virtual vtkTypeInt64  GetNumberOfTimeSteps() = 0;

protected:
    vtkMarivaneReaderBase() = default;
    ~vtkMarivaneReaderBase() override = default;

    struct Block {
        vtkTypeInt64                  NumberOfCells = 0;
        vtkSmartPointer<vtkCellArray> Cells;
        vtkTypeInt64                  CellType = 0;
        std::string                   Name;
        vtkSmartPointer<vtkPoints>    Points;             /* replaced at every coordinate read     */
        vtkTypeInt64                  NumberOfNodes = 0;
        bool                          Whole = false;      /* its nodes are those of the run, in their order */
    };
    struct Array {
        int         Components = 0;
        std::string Name;
    };

    rdbHd                     *Database = nullptr;        /* never closed: its files live as long as the process */
    vtkTypeInt64               NumberOfNodes = 0;
    vtkSmartPointer<vtkPoints> SharedPoints;              /* stays null */
    vtkTypeInt64               NumberOfCells = 0;         /* of all blocks */
    vtkTypeInt64               NumberOfBlocks = 0;
    std::vector<Block>         Blocks;
    vtkTypeInt64               NumberOfArrays = 0;
    vtkTypeInt64               NumberOfTimeSteps = 0;
    std::vector<Array>         Arrays;
    std::vector<vtkMarivaneBuffer<float>> VariableValues; /* per variable: all nodes, made when first wanted */
    int                        MeshMoves = 0;
    int                        MeshDisplacementIndex = -1;

private:
    vtkMarivaneReaderBase(const vtkMarivaneReaderBase &) = delete;
    void operator=(const vtkMarivaneReaderBase &) = delete;
};

#endif
