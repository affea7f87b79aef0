#ifndef PLUGIN_READER_VTKMARIVANEREADERPROXY_H
#define PLUGIN_READER_VTKMARIVANEREADERPROXY_H

/* vtkMarivaneReaderProxy.h: the algorithm that the pipeline sees, a source of multi-block data without inputs.
 *
 * It owns one reader, and holds the file name, the array selection and the time step. The pipeline's time axis is the
 * number of the output step, 0 to n-1, never physical time. One object reads one file: once the geometry was read, a
 * later file name is stored and nothing more. Blocks are built at a change of the time step only, so a change of the
 * selection shows with the next step. */

#include "vtkMultiBlockDataSetAlgorithm.h"
#include "vtkSmartPointer.h"

#include <vector>

class vtkCallbackCommand;
class vtkDataArraySelection;
class vtkDoubleArray;
class vtkMarivaneReaderBase;
class vtkUnstructuredGrid;

class vtkMarivaneReaderProxy : public vtkMultiBlockDataSetAlgorithm
{
public:
    static vtkMarivaneReaderProxy *New();
    vtkTypeMacro(vtkMarivaneReaderProxy, vtkMultiBlockDataSetAlgorithm);
    void PrintSelf(ostream &os, vtkIndent indent) override;

protected:
    int RequestInformation(vtkInformation *, vtkInformationVector **, vtkInformationVector *outputs) override;
    int RequestData(vtkInformation *, vtkInformationVector **, vtkInformationVector *outputs) override;

public:
    virtual void        SetFileName(const char *name);
    virtual const char *GetFileName();

    /* 1 if there is a file of this name; what is in it is not looked at. */
    virtual int         CanReadFile(const char *name);

    virtual vtkDataArraySelection *GetPointDataArraySelection();
    virtual int         GetNumberOfTimeSteps();

    /* The step to deliver where the pipeline asks for no time of its own. */
    virtual void        SetTimeStep(int step);
    virtual int         GetTimeStep();

    /* Stored for clients, used by nothing here. */
    virtual void        GetTimeStepRange(int range[2]);
    virtual void        GetTimeStepRange(int &low, int &high);
    virtual int        *GetTimeStepRange();
    virtual void        SetTimeStepRange(int low, int high);

    /* The part of the whole progress that the work at hand stands for: of `range` the part `current` of `count` equal
       parts, or from fractions[current] to fractions[current + 1]. Progress is set to its low end. */
    virtual void        GetProgressRange(float range[2]);
    virtual void        SetProgressRange(const float range[2], int current, const float *fractions);
    virtual void        SetProgressRange(const float range[2], int current, int count);

    /* Reports progress in steps of a hundredth, unless the work was aborted. */
    virtual void        UpdateProgressDiscrete(float progress);
    virtual void        SetCurrentFileName(const char *name);

    int         GetNumberOfPointArrays();
    const char *GetPointArrayName(int index);
    int         GetPointArrayStatus(const char *name);
    void        SetPointArrayStatus(const char *name, int status);

    /* See vtkMarivaneReader. */
    const char     *GetDataGroupingString();
    vtkDoubleArray *GetBlockCentroids();

protected:
    vtkMarivaneReaderProxy();
    ~vtkMarivaneReaderProxy() override;

    typedef std::vector<vtkSmartPointer<vtkUnstructuredGrid>> Grids;

    void ReadGeometry();
    void UpdateSelection();
    void BuildBlocks();
    void BuildStructure(int block, vtkUnstructuredGrid *grid);
    void AddArrays(int block, vtkUnstructuredGrid *grid);
    bool ReplaceName(char *&mine, const char *name);

    int                    NumberOfSets = 0;
    char                  *FileName = nullptr;
    vtkMarivaneReaderBase *Reader;
    int                    GeometryRead = 0;          /* never cleared */
    int                    NumberOfTimeSteps = 0;
    int                    TimeStep = 0;
    int                    ActualTimeStep = 0;        /* the same, written by RequestData only */
    double                 TimeValue = 0;             /* last time that the pipeline asked for */
    int                    LastBuiltTimeStep = -1;
    bool                   MeshMoves = false;
    int                    ReferenceStep = 0;         /* moved points are set at other steps than this */
    vtkDataArraySelection *PointDataArraySelection;
    vtkCallbackCommand    *SelectionObserver;
    int                    InformationError = 0;
    int                    DataError = 0;
    float                  ProgressRange[2] = { 0, 1 };
    int                    TimeStepRange[2] = { 0, 0 };
    Grids                  CachedGrids;               /* geometry without arrays, of the first build  */
    char                  *CurrentFileName = nullptr; /* the file that CachedGrids belongs to         */
    Grids                  OutputGrids;               /* what RequestData delivers                    */

private:
    vtkMarivaneReaderProxy(const vtkMarivaneReaderProxy &) = delete;
    void operator=(const vtkMarivaneReaderProxy &) = delete;
};

#endif
