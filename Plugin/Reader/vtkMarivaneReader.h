#ifndef PLUGIN_READER_VTKMARIVANEREADER_H
#define PLUGIN_READER_VTKMARIVANEREADER_H

/* vtkMarivaneReader.h: one open results database, turned into blocks, points and float arrays for the pipeline.
 *
 * The operations are those of vtkMarivaneReaderBase; the sources go by theme: vtkMarivaneReaderOpen.cxx (file name,
 * options, opening), ...Cells.cxx (blocks), ...Groups.cxx (named groups of blocks), ...Points.cxx (points and values),
 * ...Names.cxx (the list of arrays), vtkMarivaneReader.cxx (the rest).
 *
 * Everything is called on one thread, the pipeline's. Parallel loops start and end inside one operation, call nothing
 * that can fail, and each iteration writes its own entry. A failure inside the library does not return and does not
 * unwind: see base/sys.h. It ends the process unless the host armed a trap, so a local container that is lost in that
 * way is accepted here; a lock or a running loop would not be. */

#include "Plugin/Reader/vtkMarivaneReaderBase.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/sys.h"

class vtkDoubleArray;
class vtkMarivaneIdMap;

class vtkMarivaneReader : public vtkMarivaneReaderBase
{
public:
    static vtkMarivaneReader *New();
    vtkTypeMacro(vtkMarivaneReader, vtkMarivaneReaderBase);
    void PrintSelf(ostream &os, vtkIndent indent) override;

    vtkTypeInt64  GetNumberOfNodes() override;
    vtkTypeInt64  GetNumberOfPoints() override;
    vtkTypeInt64  GetNumberOfSetCells(int block) override;
    vtkTypeInt64  GetNumberOfCells(int block) override;
    vtkTypeInt64  GetNumberOfBlocks() override;
    vtkTypeInt64  GetNumberOfSets() override;
    vtkTypeInt64  GetSetCellType(int block) override;
    vtkTypeInt64  GetCellType(int block) override;
    const char   *GetSetName(int block) override;
    const char   *GetBlockName(int block) override;
    vtkPoints    *GetPoints(int block, int step) override;
    void         *ReservedQuery() override;
    vtkPoints    *GetSharedPoints(int step) override;
    vtkCellArray *GetSetCells(int block) override;
    vtkCellArray *GetCells(int block) override;
    void          WriteCoordinates(const char *path) override;
    void          ReservedAction() override;
    vtkTypeInt64  GetNumberOfVariables() override;
    vtkTypeInt64  GetNumberOfArrays() override;
    const char   *GetVariableName(int array) override;
    const char   *GetArrayName(int array) override;
    int           GetVariableComponents(int array) override;
    int           GetArrayComponents(int array) override;
    float        *GetVariableValues(int variable) override;
    float        *GetArrayData(int array, int step, int block) override;
    int          *GetBlockNodeIds(int block) override;
    void          ResetVariableValues() override;
    void          ReleaseData() override;
    void          Open(const char *fileName) override;
    int           GetVtkCellType(int topology) override;
    void          ReadData(const char *fileName) override;
    void          ReadMesh() override;
    void          ReadPoints(int step) override;
    void          ReadCells() override;
    void          ReadVariables() override;
    int           GetMeshMoves() override;
    vtkTypeInt64  GetNumberOfTimeSteps() override;

    /* The groups of blocks by name, as JSON text: made at the first request, then fixed. */
    const char *GetDataGroupingString();

    /* One tuple of three zeros per block; null before the first points. No centroid is computed: the table reserves
       the place. */
    vtkDoubleArray *GetBlockCentroids();

    /* Splits `<directory>/<problem>.<run>.Log` into buffers of SYS_TEXT bytes. Without a problem name in the file name
       the option's stands in, without a run number the option's. Returns 0 after a message if there is no name at all.
       A part that does not fit its buffer does not return. */
    static int SplitLogFileName(const char *fileName, const char *optionProblem, int optionRunId, char *path,
                                char *problem, int *runId);

    /* Derived names so far, each of which is checked against the limit of 80 characters. */
    int GetNameCounter() const { return this->NameCounter; }

protected:
    vtkMarivaneReader();
    ~vtkMarivaneReader() override = default;

    /* One family of named groups: ids of the blocks of each group. A group that was merged into an earlier one of the
       same name has no entry of its own; its name stays. */
    struct Groups {
        std::map<int, std::vector<int>> Ids;
        std::vector<std::string>        Names;
    };
    struct GroupFamily {
        const char *CountKey, *NameKey, *LengthKey, *IdsKey;
        Groups      vtkMarivaneReader::*Into;
        bool        VolumeIds;            /* ids are volume sets: their blocks stand behind the surface sets */
        bool        Merging;              /* groups of one name become one group                             */
    };
    struct Variable {
        std::string              Name;
        int                      Dimension = 0;
        std::vector<std::string> ArrayNames;
    };
    struct ArraySource {
        int Variable, SubIndex;
    };
    /* Sums of seconds by step of the work, for a debugger or a later report. */
    typedef std::map<std::string, double> Timers;

    int  GetCount(const char *key);                       /* 0 if it cannot be read */
    int  GetCount(const char *key, int index);
    bool GetText(const char *key, char *text, int index); /* text stays as it is if it cannot be read */

    void ReadSurfaceSet(int set, const vtkMarivaneIdMap &nodes, const int *userIds);
    void ReadVolumeSet(int set, const vtkMarivaneIdMap &nodes);
    void ReadGroups(const GroupFamily &family);
    void ReadPlainGroups(const GroupFamily &family, Groups &groups, int n);
    void ReadMergedGroups(const GroupFamily &family, Groups &groups, int n);
    int  AppendGroup(const GroupFamily &family, int group, std::vector<int> &ids);
    void PlaceBlockPoints();
    bool ReadReals(const char *key, int variable, int step, int dimension);
    void ReadVariable(int variable, int step);
    void NameArrays();
    void AddFieldViewName(const std::string &name);
    void AddFieldViewNames(const char *const *formats, const std::string &name);
    std::string ReadFieldText(int index);

    Groups      OsfGroups, CbcGroups, RsfGroups, SrsGroups, ElmGroups;
    int         ExtendedOutput = 0;
    int         nSfss = 0, nVols = 0;
    std::string GroupingText;
    vtkMarivaneBuffer<float> Coordinates;                 /* 3 per node, in database order */
    std::vector<std::vector<vtkMarivaneBuffer<float>>> ArrayBuffers;  /* [block][array], lent to the output */
    std::vector<vtkMarivaneBuffer<int>>                BlockNodeIds;  /* [block], lost with ReleaseData     */
    int         CurrentCoordinateStep = -1;
    vtkSmartPointer<vtkDoubleArray> Centroids;
    std::vector<Variable>    Variables;
    std::vector<ArraySource> ArraySources;                /* per output array */
    int         NameCounter = 0;
    double      DatabaseSeconds = 0;
    Timers      ReadTimers, LocalisationTimers;

    /* Scratch. Reals as the database gives them are read into one buffer that stays for the next step. */
    vtkMarivaneBuffer<double> Reals;
    vtkMarivaneBuffer<int>    LocalIds;                   /* ReadCells: per node -1 or its local id in a surface set,
                                                             then its rank in a volume set */
    vtkMarivaneBuffer<int>    NodeScratch;                /* ReadCells: node list in the order of first use */
    bool        UserIdsAscend = false;
    /* The last texts read: a text that cannot be read repeats the one before. */
    char        SetName[SYS_TEXT] = "", FieldPrefix[SYS_TEXT] = "", FieldName[SYS_TEXT] = "";

private:
    vtkMarivaneReader(const vtkMarivaneReader &) = delete;
    void operator=(const vtkMarivaneReader &) = delete;
};

#endif
