#ifndef TOOL_RUNWRITER_H
#define TOOL_RUNWRITER_H

/* runWriter.h: puts a generated run on disk.
 *
 * <dir>/<problem>.<run>.Log stands beside the data folder, which holds the client information file, the coordinates, a
 * table per volume, element group, surface set and surface group, the decomposition, the node lists of the output
 * surfaces, and the nodal output of each step. In the container form all but the client information are members of one
 * file <problem>.<run>.C in that folder. */

#include <string>

#include "tool/runModel.h"

namespace tool {

/* Both throw: std::invalid_argument for a spec that makes no sense, std::runtime_error if a file cannot be written.
   Files of an earlier run of that name are replaced, other files stay. */
void writeRun(const RunSpec &spec);
void writeRun(const RunModel &model);

/* The steps alone, into the folder of a run that is there: what else it has stays, in a container too. A step that is
   there is written over. Throws std::runtime_error. */
void writeSteps(const RunModel &model);

/* the paths of the log and of the folder of data files, both with the spec's dir in front */
std::string logFile(const RunSpec &spec);
std::string dataFolder(const RunSpec &spec);

}

#endif
