/* vtkMarivaneReaderCells.cxx: every surface set and every volume set becomes a block of its own.
 *
 * The database writes connectivity in user ids. A block wants its nodes numbered from 0: its node list holds, for each
 * local id, the node's position among the run's nodes. So each entry takes two steps, user id to position and position
 * to local id. The first goes through vtkMarivaneIdMap. For the second an array that is indexed by position holds the
 * local ids.
 *
 * The node list of a surface set is in the order of user ids, that of a volume set in the order of positions. The two
 * agree where user ids ascend.
 *
 * A large model has hundreds of millions of entries, and a cell array holds 8 bytes of each. The ids, of 4 bytes, are
 * read into the upper half of the cell array's own memory and widened there, so that no second array stands beside it.
 *
 * An id that is not in "usrIds" ends the work. A parallel loop cannot be left by a failure, so the loops only note what
 * they miss, and the failure is raised behind them. */

#include "Plugin/Reader/vtkMarivaneReader.h"

#include "Plugin/Reader/vtkMarivaneTimer.h"

#include "vtkIdTypeArray.h"
#include "vtkNew.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include <tbb/parallel_reduce.h>
#include <tbb/parallel_sort.h>

#include "base/mem.h"
#include "base/sys.h"
#include "mtx/mtxHash.h"

static_assert(sizeof(vtkIdType) == 2 * sizeof(int), "connectivity is widened in place from 4 to 8 bytes");

/* From user id to position in "usrIds". Consecutive ids need a subtraction, ids that do not lie far apart a table that
   is no larger than the library's hash would be, and all others that hash. */
class vtkMarivaneIdMap
{
public:
    /* Does not return if an id other than 0 is there twice. Of a doubled 0 the first position holds. */
    vtkMarivaneIdMap(const int *ids, int n) : Count(n)
    {
        if (n < 1) return;
        bool consecutive = true;
        int  low = ids[0], high = ids[0];
        for (int i = 0; i < n; ++i) {
            consecutive &= ids[i] == int64_t(ids[0]) + i;
            low = std::min(low, ids[i]);
            high = std::max(high, ids[i]);
        }
        this->First = low;
        this->Range = int64_t(high) - low + 1;
        if (consecutive)                 return;
        if (this->Range <= 3 * int64_t(n)) this->MakeTable(ids);
        else                             this->Hash = mtxNewInvHash(ids, n);
    }
    void Free() { memFree(this->Hash); }

    /* -1 if the id is unknown. */
    int Position(int id) const
    {
        if (this->Hash) {
            int       notFound = 0;
            const int at = mtxIfInvHash(this->Hash, this->Count, id, &notFound);
            return !notFound && at >= 0 && at < this->Count ? at : -1;
        }
        const int64_t at = int64_t(id) - this->First;
        if (at < 0 || at >= this->Range) return -1;
        return this->Table.Data() ? this->Table[at] : int(at);
    }

private:
    void MakeTable(const int *ids)
    {
        this->Table.Resize(this->Range);
        int *table = this->Table.Data();
        vtkMarivaneFor(0, this->Range, [=](int64_t i) { table[i] = -1; });
        for (int i = 0; i < this->Count; ++i) {
            int *at = &table[int64_t(ids[i]) - this->First];
            if (*at < 0)     *at = i;
            else if (ids[i]) sysFailIn("mtxNewInvHash", "Duplicate key <%d>", ids[i]);
        }
    }

    int                    *Hash = nullptr;
    vtkMarivaneBuffer<int>  Table;
    int                     Count;
    int64_t                 First = 0, Range = 0;
};

/* The ids that a loop did not find: the first one, and the smallest one. */
struct Unknown {
    int64_t first = INT64_MAX;
    int     firstId = 0, smallestId = INT_MAX;

    bool any() const { return first != INT64_MAX; }
    static Unknown join(const Unknown &a, const Unknown &b)
    {
        Unknown both = a.first < b.first ? a : b;
        both.smallestId = std::min(a.smallestId, b.smallestId);
        return both;
    }
};

/* Replaces n user ids by positions. An unknown id stays. */
static Unknown toPositions(int *ids, int64_t n, const vtkMarivaneIdMap &nodes)
{
    if (n < 1) return Unknown();
    return tbb::parallel_reduce(
        tbb::blocked_range<int64_t>(0, n, 1024), Unknown(),
        [&](const tbb::blocked_range<int64_t> &range, Unknown missed) {
            for (int64_t i = range.begin(); i < range.end(); ++i) {
                const int at = nodes.Position(ids[i]);
                if (at < 0) {
                    Unknown here;
                    here.first = i;
                    here.firstId = here.smallestId = ids[i];
                    missed = Unknown::join(missed, here);
                } else {
                    ids[i] = at;
                }
            }
            return missed;
        },
        Unknown::join);
}

[[noreturn]] static void failUnknown(int id)
{
    sysFailIn("mtxInvHash", "Key <%d> not found", id);
}

/* The cells of one block while they are made: n entries of connectivity, of which the upper half holds 4-byte ids
   until they are widened. */
class CellMaker
{
public:
    CellMaker(int64_t nCells, int64_t nCellNodes) : Cells(nCells), CellNodes(nCellNodes), Count(nCells * nCellNodes)
    {
        this->Entries->SetNumberOfValues(this->Count);
    }

    int64_t size() const { return this->Count; }
    int    *ids() { return this->Count ? reinterpret_cast<int *>(this->Entries->GetPointer(0)) + this->Count : &None; }

    /* Replaces all ids by local(id) and makes the cell array. */
    template <class F> vtkSmartPointer<vtkCellArray> finish(F local)
    {
        vtkIdType *entries = this->Entries->GetPointer(0);
        const int *ids = this->ids();

        /* What is written below (done + n) / 2 covers only ids below `done`, which have been used: each round works in
           parallel on half of what is left. */
        const int64_t small = 4096;
        int64_t       done = 0;
        while (this->Count - done > small) {
            const int64_t until = (done + this->Count) / 2;
            vtkMarivaneFor(done, until, [=](int64_t i) { entries[i] = local(ids[i]); });
            done = until;
        }
        for (; done < this->Count; ++done) {
            const int id = ids[done];
            entries[done] = local(id);
        }

        vtkNew<vtkIdTypeArray> offsets;
        offsets->SetNumberOfValues(this->Cells + 1);
        vtkIdType    *offset = offsets->GetPointer(0);
        const int64_t nCellNodes = this->CellNodes;
        vtkMarivaneFor(0, this->Cells + 1, [=](int64_t i) { offset[i] = i * nCellNodes; });

        vtkSmartPointer<vtkCellArray> cells = vtkSmartPointer<vtkCellArray>::New();
        cells->SetData(offsets, this->Entries);
        return cells;
    }

private:
    int64_t                Cells, CellNodes, Count;
    vtkNew<vtkIdTypeArray> Entries;
    int                    None = 0;
};

int vtkMarivaneReader::GetVtkCellType(int topology)
{
    enum { TRIANGLE = 5, QUAD = 9, TETRA = 10, HEXAHEDRON = 12, WEDGE = 13, PYRAMID = 14 };
    switch (topology) {
        case 1: case 7: case 8: case 10:  return TRIANGLE;
        case 2: case 9: case 11: case 12: return QUAD;
        case 3:                           return TETRA;
        case 4:                           return PYRAMID;
        case 5:                           return WEDGE;
        case 6:                           return HEXAHEDRON;
        default:                          return -1;
    }
}

/* The unknown id that is reported is that of a lookup in user id order, the order of the node list. */
void vtkMarivaneReader::ReadSurfaceSet(int set, const vtkMarivaneIdMap &nodes, const int *userIds)
{
    Block &block = this->Blocks[set];
    int    topology = 0;

    const int nSrfs = this->GetCount("nSfsSrfs", set);
    const int nSrfNodes = this->GetCount("nSfsSrfNodes", set);
    block.NumberOfCells = nSrfs;
    block.Whole = false;                                  /* in the order of user ids */
    this->NumberOfCells += nSrfs;

    CellMaker maker(nSrfs, nSrfNodes);
    int      *ids = maker.ids();
    {
        vtkMarivaneTimed timed(this->ReadTimers["sfsSet Cnn"]);
        if (!rdbGetInts1(this->Database, "sfsCnn", ids, set, nSrfs, nSrfNodes)) memset(ids, 0, 4 * maker.size());
    }
    {
        vtkMarivaneTimed timed(this->LocalisationTimers["srf cnn global map"]);
        const Unknown unknown = toPositions(ids, maker.size(), nodes);
        if (unknown.any()) failUnknown(unknown.smallestId);
    }

    /* each node once, at its first use; LocalIds marks those that are in the list */
    vtkMarivaneBuffer<int> &list = this->BlockNodeIds[set];
    int64_t                 n = 0;
    {
        vtkMarivaneTimed timed(this->LocalisationTimers["srf unique"]);
        this->NodeScratch.Resize(std::min<int64_t>(maker.size(), this->NumberOfNodes));
        for (int64_t i = 0; i < maker.size(); ++i) {
            if (this->LocalIds[ids[i]] >= 0) continue;
            this->LocalIds[ids[i]] = 0;
            this->NodeScratch[n++] = ids[i];
        }
        list.Resize(n);
        if (n > 0) memcpy(list.Data(), this->NodeScratch.Data(), 4 * n);

        int *first = list.Data(), *last = first + n;
        auto byUserId = [userIds](int a, int b) { return userIds[a] < userIds[b]; };
        const bool parallel = n >= 500;
        if (this->UserIdsAscend && parallel) tbb::parallel_sort(first, last);
        else if (this->UserIdsAscend)        std::sort(first, last);
        else if (parallel)                   tbb::parallel_sort(first, last, byUserId);
        else                                 std::sort(first, last, byUserId);
    }
    int *localIds = this->LocalIds.Data(), *listed = list.Data();
    {
        vtkMarivaneTimed timed(this->LocalisationTimers["srf local hash create"]);
        vtkMarivaneFor(0, n, [=](int64_t i) { localIds[listed[i]] = int(i); });
    }

    if (!rdbGetInt1(this->Database, "sfsElemType", &topology, set)) topology = 0;
    block.CellType = this->GetVtkCellType(topology);
    this->GetText("sfsName", this->SetName, set);
    block.Name = std::string("surfSet_") + this->SetName;
    {
        vtkMarivaneTimed timed(this->LocalisationTimers["srf local map"]);
        block.Cells = maker.finish([=](int node) { return localIds[node]; });
    }
    block.NumberOfNodes = n;
    vtkMarivaneFor(0, n, [=](int64_t i) { localIds[listed[i]] = -1; });
}

/* Nodes in use, ascending, into `list`; in the result for each node from `lowest` its place in the list. */
static void rankNodes(const int *ids, int64_t n, vtkMarivaneBuffer<int> &list, vtkMarivaneBuffer<int> &ranks,
                      int &lowest)
{
    struct Range { int low, high; };
    const Range range = tbb::parallel_reduce(
        tbb::blocked_range<int64_t>(0, n, 1024), Range{ INT_MAX, INT_MIN },
        [ids](const tbb::blocked_range<int64_t> &r, Range part) {
            for (int64_t i = r.begin(); i < r.end(); ++i) {
                part.low = std::min(part.low, ids[i]);
                part.high = std::max(part.high, ids[i]);
            }
            return part;
        },
        [](const Range &a, const Range &b) { return Range{ std::min(a.low, b.low), std::max(a.high, b.high) }; });
    lowest = range.low;
    const int     low = range.low;
    const int64_t span = int64_t(range.high) - low + 1;

    /* Many threads may mark one node: all write the same, atomically, and only if nobody has yet. */
    ranks.Resize(span);
    int *rank = ranks.Data();
    vtkMarivaneFor(0, span, [=](int64_t j) { rank[j] = 0; });
    vtkMarivaneFor(0, n, [=](int64_t i) {
        int *mark = &rank[ids[i] - low];
        if (!__atomic_load_n(mark, __ATOMIC_RELAXED)) __atomic_store_n(mark, 1, __ATOMIC_RELAXED);
    });

    /* Counts per chunk, their running sum, then each chunk numbers its own marks. */
    const int64_t chunk = 1 << 16, nChunks = (span + chunk - 1) / chunk;
    vtkMarivaneBuffer<int> starts;
    starts.Resize(nChunks + 1);
    int *start = starts.Data();
    tbb::parallel_for(int64_t(0), nChunks, [=](int64_t c) {
        int marks = 0;
        for (int64_t j = c * chunk; j < std::min(span, (c + 1) * chunk); ++j) marks += rank[j];
        start[c + 1] = marks;
    });
    start[0] = 0;
    for (int64_t c = 0; c < nChunks; ++c) start[c + 1] += start[c];

    list.Resize(start[nChunks]);
    int *listed = list.Data();
    tbb::parallel_for(int64_t(0), nChunks, [=](int64_t c) {
        int at = start[c];
        for (int64_t j = c * chunk; j < std::min(span, (c + 1) * chunk); ++j) {
            if (!rank[j]) continue;
            listed[at] = low + int(j);
            rank[j] = at++;
        }
    });
}

void vtkMarivaneReader::ReadVolumeSet(int set, const vtkMarivaneIdMap &nodes)
{
    Block                  &block = this->Blocks[this->nSfss + set];
    vtkMarivaneBuffer<int> &list = this->BlockNodeIds[this->nSfss + set];
    vtkMarivaneBuffer<int> &ranks = this->LocalIds;
    int                     lowest = 0, topology = 0;

    const int nElems = this->GetCount("nVolElems", set);
    block.NumberOfCells = nElems;
    this->NumberOfCells += nElems;
    if (!rdbGetInt1(this->Database, "volType", &topology, set)) topology = 0;
    block.CellType = this->GetVtkCellType(topology);
    const int nElemNodes = this->GetCount("nVolElemNodes", set);
    this->GetText("volName", this->SetName, set);
    block.Name = std::string("VolSet_") + this->SetName;

    CellMaker maker(nElems, nElemNodes);
    int      *ids = maker.ids();
    {
        vtkMarivaneTimed timed(this->ReadTimers["volSet Cnn"]);
        if (!rdbGetInts1(this->Database, "volCnn", ids, set, nElems, nElemNodes)) memset(ids, 0, 4 * maker.size());
    }
    {
        vtkMarivaneTimed timed(this->LocalisationTimers["vol global map"]);
        const Unknown unknown = toPositions(ids, maker.size(), nodes);
        if (unknown.any()) failUnknown(unknown.firstId);
    }
    if (maker.size() > 0) {
        vtkMarivaneTimed timed(this->LocalisationTimers["vol unique"]);
        rankNodes(ids, maker.size(), list, ranks, lowest);
    }
    {
        vtkMarivaneTimed timed(this->LocalisationTimers["vol local map"]);
        const int *rank = ranks.Data();
        block.Whole = list.Size() == this->NumberOfNodes;          /* ascending and distinct: 0, 1, 2, ... */
        if (block.Whole) block.Cells = maker.finish([](int node) { return node; });
        else             block.Cells = maker.finish([=](int node) { return rank[node - lowest]; });
    }
    block.NumberOfNodes = list.Size();
}

void vtkMarivaneReader::ReadCells()
{
    static const GroupFamily families[] = {
        /* count    name       length      ids          into                           ids of volumes, merging */
        { "nElms", "elmName", "nElmVols", "elmVolIds", &vtkMarivaneReader::ElmGroups, true,  false },
        { "nOsfs", "osfName", "nOsfSfss", "osfSfsIds", &vtkMarivaneReader::OsfGroups, false, false },
        { "nCbcs", "cbcName", "nCbcSfss", "cbcSfsIds", &vtkMarivaneReader::CbcGroups, false, true  },
        { "nRsfs", "rsfName", "nRsfSfss", "rsfSfsIds", &vtkMarivaneReader::RsfGroups, false, false },
        { "nSrss", "srsName", "nSrsSfss", "srsSfsIds", &vtkMarivaneReader::SrsGroups, false, false },
    };

    ElapsedTimer total("ReadCellsFunction");

    this->nSfss = this->GetCount("nSfss");
    this->nVols = this->GetCount("nVols");
    this->NumberOfBlocks = vtkTypeInt64(this->nSfss) + this->nVols;
    this->Blocks.resize(this->NumberOfBlocks);
    this->BlockNodeIds.resize(this->NumberOfBlocks);

    const int              nNodes = int(this->NumberOfNodes);
    vtkMarivaneBuffer<int> userIds;
    userIds.Resize(nNodes);
    {
        vtkMarivaneTimed timed(this->ReadTimers["usrIds"]);
        if (!rdbGetInts0(this->Database, "usrIds", userIds.Data(), nNodes, -1)) userIds.ResizeToZeros(nNodes);
    }
    ElapsedTimer     hashing("globalInvHashCreate");
    vtkMarivaneIdMap nodes(userIds.Data(), nNodes);
    this->UserIdsAscend = std::is_sorted(userIds.Data(), userIds.Data() + nNodes);
    this->LocalisationTimers["globalInvHashCreate"] += hashing.End();
    if (this->UserIdsAscend) userIds.Free();

    ElapsedTimer surfaces("   ReadCells: SurfaceSets");
    if (this->nSfss > 0) {
        this->LocalIds.Resize(nNodes);
        int *localIds = this->LocalIds.Data();
        vtkMarivaneFor(0, nNodes, [=](int64_t i) { localIds[i] = -1; });
    }
    for (int set = 0; set < this->nSfss; ++set) this->ReadSurfaceSet(set, nodes, userIds.Data());
    userIds.Free();
    this->NodeScratch.Free();
    surfaces.End();

    ElapsedTimer volumes("   ReadCells: VolumeSets");
    for (int set = 0; set < this->nVols; ++set) this->ReadVolumeSet(set, nodes);
    this->LocalIds.Free();
    volumes.End();

    for (const GroupFamily &family : families) this->ReadGroups(family);
    nodes.Free();
    total.End();
}
