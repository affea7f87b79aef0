#ifndef TOOL_RUNFAMILIES_H
#define TOOL_RUNFAMILIES_H

/* runFamilies.h: the other families of nodal output that a generated run may have beside .out, and its log of time
 * steps.
 *
 *     tool::RunSpec spec;
 *     spec.families.push_back({ "ora", 7 });           // the first three rows of its table
 *     tool::writeRun(spec);
 *     ... famValue(model, model.spec.families[0], row, comp, node, step) is what must be read */

#include <cstdint>
#include <string>
#include <vector>

#include "tool/tokenFile.h"

namespace tool {

class RunModel;

struct FamSpec {
    std::string ext;                      /* ora ota onr odq oae oee rst ocn                                */
    uint64_t    rows = UINT64_MAX;        /* bit i: row i of the family's table                             */
    int         outIndx = 0;              /* oae, oee: with 0 some rows are not there                       */
    bool        omitIndx = false;         /* leaves out the key                                             */
    int         nDODirs = 2;              /* rst                                                            */
    bool        lists = false;            /* rst: what may run on behind the variables, all optional items  */
};

/* The rows that a reader lists, in order. These and the others throw std::invalid_argument for another ext. */
std::vector<int> famVars(const FamSpec &fam);
const char      *famName(const FamSpec &fam, int row);
int              famDim(const RunModel &model, const FamSpec &fam, int row);
/* step: position in the run's steps, as elsewhere */
double           famValue(const RunModel &model, const FamSpec &fam, int row, int comp, int node, int step);

void writeFamily(DataFiles &files, const RunModel &model, const FamSpec &fam);
void writeTop(DataFiles &files, const RunModel &model);

/* a key of an array of one of these families */
bool isFamKey(const std::string &key);

}

#endif
