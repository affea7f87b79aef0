#ifndef TOOL_RUNSETOUTS_H
#define TOOL_RUNSETOUTS_H

/* runSetOuts.h: the outputs on the nodes of surface sets that a generated run may have.
 *
 *     tool::RunSpec spec;
 *     spec.setFamilies.push_back({ "osf", 7 });        // the first three rows of its table
 *     tool::writeRun(spec);
 *     ... setOutValue(model, model.spec.setFamilies[0], set, row, comp, node, step) is what must be read */

#include <cstdint>
#include <string>
#include <vector>

#include "tool/tokenFile.h"

namespace tool {

class RunModel;

struct SetFamSpec {
    std::string ext;                      /* osf orf oqf                                                    */
    uint64_t    rows = UINT64_MAX;        /* bit i: row i of the family's table                             */
    int         onlySet = -1;             /* not below 0: the other sets have no files                      */
};

/* The rows that a reader lists, in order. These and the others throw std::invalid_argument for another ext. */
std::vector<int> setOutVars(const SetFamSpec &fam);
const char      *setOutName(const SetFamSpec &fam, int row);
int              setOutDim(const RunModel &model, const SetFamSpec &fam, int row);
int              nSetOutSets(const RunModel &model, const SetFamSpec &fam);
/* Node positions of a set, in the order of their user ids */
std::vector<int> setOutNodes(const RunModel &model, const SetFamSpec &fam, int set);
/* What all subdomains that have the node give to it; step: position in the run's steps. Of row 0 it is above 0. */
double           setOutValue(const RunModel &model, const SetFamSpec &fam, int set, int row, int comp, int node,
                             int step);

void writeSetFamily(DataFiles &files, const RunModel &model, const SetFamSpec &fam);
/* The list of the nodes of output surface set `set`, and where the run has results on them those of each subdomain */
void writeNodeList(DataFiles &files, const RunModel &model, int set);

/* a key of an array of one of these families */
bool isSetOutKey(const std::string &key);

}

#endif
