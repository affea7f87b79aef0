/* runSets.cpp: the sets of a generated run that are no part of its mesh: nodes, node pairs, elements of which there is
 * output; and the surface sets of a run whose client information tells of none.
 *
 * In this file: node sets and pairs, output elements, surface sets made of groups. */

#include <algorithm>

#include "tool/runModelInt.h"

namespace tool {

/* ---- node sets and pairs ---- */

/* The nodes of all surface sets that lie in one of these places, each once */
std::vector<int> RunModel::nodesOn(const std::vector<int> &places) const
{
    std::vector<int> nodes;
    for (size_t s = 0; s < sfss.size(); ++s)
        if (std::count(places.begin(), places.end(), kinds[s]))
            nodes.insert(nodes.end(), sfss[s].cnn.begin(), sfss[s].cnn.end());
    std::sort(nodes.begin(), nodes.end());
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    if (spec.scattered) shuffle(&nodes, 6);
    return nodes;
}

void RunModel::makeNodeSets()
{
    nbcs = {{"nodes of the inlet", 1, nodesOn({INLET}), {}}, {"nodes of the outlet", 2, nodesOn({OUTLET}), {}}};
    wall = {"nodes of the walls", 0, nodesOn({SIDES, FLOOR}), {}};

    NodeSet pairs = {"inlet and outlet", 3, {}, {}};                     /* the two ends of each line of nodes */
    for (int k = 0; k < nzN; ++k)
        for (int j = 0; j < nyN; ++j)
            for (int i : {0, nxN - 1}) pairs.nodes.push_back(latticeNode(i, j, k));
    pairs.usrIds = makeIds((int64_t) pairs.nodes.size() / 2, 7);
    pbcs = {pairs};
    if (spec.emptySets) {
        nbcs.push_back({"no nodes", 4, {}, {}});
        pbcs.push_back({"no pairs", 5, {}, {}});
    }
}

/* ---- output elements ---- */

/* Without lines of volumes a set has the first volume, and no line could tell that it has all of it. */
void RunModel::makeOutElems()
{
    const bool oneVolume = spec.lines != Lines::all;
    OutElems whole = {"all elements", true, {}}, some = {"every third element", false, {}};
    for (int v = 0; v < (oneVolume ? 1 : (int) vols.size()); ++v) {
        const VolSet &vol = vols[v];
        whole.parts.push_back({v, vol.nen, {}});
        some.parts.push_back({v, vol.type == BUBBLE ? 4 : vol.nen, {}});
        for (int e = 0; e < vol.nElems(); ++e) {
            whole.parts.back().elems.push_back(e);
            if (e % 3 == 0) some.parts.back().elems.push_back(e);
        }
    }
    if (!oneVolume) oels.push_back(whole);
    oels.push_back(some);
    if (spec.emptySets) oels.push_back({"no elements", false, {{0, vols[0].nen, {}}}});
}

/* ---- surface sets made of groups ---- */

/* A reader that finds no surface sets makes one of each group, in the order in which it reads their lines. */
void RunModel::surfacesFromGroups()
{
    std::vector<SrfSet> made;
    for (std::vector<Group> *family : {&cbcs, &osfs, &rsfs, &srss})
        for (Group &group : *family) {
            SrfSet all = sfss[group.members[0]];
            for (size_t m = 1; m < group.members.size(); ++m) {
                const SrfSet &set = sfss[group.members[m]];
                all.elems.insert(all.elems.end(), set.elems.begin(), set.elems.end());
                all.faces.insert(all.faces.end(), set.faces.begin(), set.faces.end());
                all.usrIds.insert(all.usrIds.end(), set.usrIds.begin(), set.usrIds.end());
                all.cnn.insert(all.cnn.end(), set.cnn.begin(), set.cnn.end());
            }
            all.name      = group.name;
            all.neighbor  = -1;
            group.members = {(int) made.size()};
            made.push_back(all);
        }
    sfss = made;
}

}
