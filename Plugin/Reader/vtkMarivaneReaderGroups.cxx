/* vtkMarivaneReaderGroups.cxx: the solver's named groups of blocks: read with the cells, told as a text for a client
 * that wants to show the flat list of blocks as a tree. And the table of block centroids, which is only a place. */

#include "Plugin/Reader/vtkMarivaneReader.h"

#include "Plugin/Reader/vtkMarivaneTimer.h"

#include "vtkDoubleArray.h"

#include <algorithm>
#include <set>

#include <tbb/parallel_sort.h>

#include "base/sys.h"

/* Adds the group's block ids behind those that are there. Returns how many. */
int vtkMarivaneReader::AppendGroup(const GroupFamily &family, int group, std::vector<int> &ids)
{
    const int    n = this->GetCount(family.LengthKey, group);
    const size_t old = ids.size();
    ids.resize(old + n);
    vtkMarivaneTimed timed(this->DatabaseSeconds);
    if (n > 0) rdbGetInts1(this->Database, family.IdsKey, ids.data() + old, group, n, 1);
    return n;
}

void vtkMarivaneReader::ReadPlainGroups(const GroupFamily &family, Groups &groups, int n)
{
    const unsigned offset = family.VolumeIds ? this->nSfss : 0;
    char           name[SYS_TEXT] = "";

    for (int g = 0; g < n; ++g) {
        this->GetText(family.NameKey, name, g);
        groups.Names[g] = name;
        std::vector<int> &ids = groups.Ids[g];
        this->AppendGroup(family, g, ids);
        for (int &id : ids) id = int(id + offset);
    }
}

/* The solver writes one boundary condition per surface set: those of one name are one group, under the first index. */
void vtkMarivaneReader::ReadMergedGroups(const GroupFamily &family, Groups &groups, int n)
{
    std::map<std::string, int> firsts;
    std::set<int>              merged;
    char                       name[SYS_TEXT] = "";

    for (int g = 0; g < n; ++g) {
        this->GetText(family.NameKey, name, g);
        groups.Names[g] = name;
        const auto known = firsts.emplace(name, g);
        if (!known.second) merged.insert(known.first->second);
        this->AppendGroup(family, g, groups.Ids[known.first->second]);
    }
    for (int g : merged) {
        std::vector<int> &ids = groups.Ids[g];
        if (ids.size() >= 500) tbb::parallel_sort(ids.begin(), ids.end());
        else                   std::sort(ids.begin(), ids.end());
        ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    }
}

void vtkMarivaneReader::ReadGroups(const GroupFamily &family)
{
    Groups   &groups = this->*family.Into;
    const int n = this->GetCount(family.CountKey);

    groups.Names.assign(n, "");
    if (family.Merging) this->ReadMergedGroups(family, groups, n);
    else                this->ReadPlainGroups(family, groups, n);
}

/* {"name":[ids from 1]} for each group. Names are not escaped, and a group without ids loses its opening bracket:
   a client that reads such a run's text has always had to cope with both. */
static std::string groupText(const char *key, const std::map<int, std::vector<int>> &groups,
                             const std::vector<std::string> &names)
{
    std::string text = std::string("\"") + key + "\":{";
    for (const auto &group : groups) {
        const std::string name = size_t(group.first) < names.size() ? names[group.first] : "";
        text += "\"" + name + "\":[";
        for (int id : group.second) text += std::to_string(int64_t(id) + 1) + ",";
        text.pop_back();
        text += "],";
    }
    if (!groups.empty()) text.pop_back();
    return text + "}";
}

const char *vtkMarivaneReader::GetDataGroupingString()
{
    const struct {
        const char   *key;
        const Groups *groups;
        bool          always;
    } families[] = {
        { "ELMs", &this->ElmGroups, true  },
        { "CBCs", &this->CbcGroups, true  },
        { "OSFs", &this->OsfGroups, true  },
        { "RSFs", &this->RsfGroups, false },
        { "SRSs", &this->SrsGroups, false },
    };

    if (!this->GroupingText.empty()) return this->GroupingText.c_str();

    char problem[SYS_TEXT] = "";
    rdbGetStr0(this->Database, "problem", problem);

    std::string text = std::string("{\"ModelName\":\"") + problem + "\"";
    for (const auto &family : families)
        if (family.always || !family.groups->Names.empty())
            text += "," + groupText(family.key, family.groups->Ids, family.groups->Names);
    this->GroupingText = text + "}";
    return this->GroupingText.c_str();
}

vtkDoubleArray *vtkMarivaneReader::GetBlockCentroids()
{
    if (this->Blocks.empty() || !this->Blocks[0].Points) return nullptr;
    if (!this->Centroids) {
        ElapsedTimer timer("GetBlockCentroids");
        timer.End();
        this->Centroids = vtkSmartPointer<vtkDoubleArray>::New();
        this->Centroids->SetNumberOfComponents(3);
        this->Centroids->SetNumberOfTuples(this->NumberOfBlocks);
        this->Centroids->FillValue(0.0);
    }
    return this->Centroids;
}
