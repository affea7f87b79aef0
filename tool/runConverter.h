#ifndef TOOL_RUNCONVERTER_H
#define TOOL_RUNCONVERTER_H

/* runConverter.h: writes a run that lies on disk anew in another storage form, so that one run can be read in all of
 * them. */

#include <string>

#include "tool/tokenFile.h"

namespace tool {

/* Copies the run of a log file, whose data files lie in the folder dataDir beside it, into dir, the data files in the
 * given form and all values to the last bit. In the client information file the names of data files and the FMT line
 * change, and nothing else. The run must be in the binary form, of either byte order.
 *
 * Returns the number of data files. Throws std::runtime_error for a file that cannot be read or written, among them a
 * file with a key whose kind of value is not known here, and std::invalid_argument for a log that has no name of a run
 * and for a dir that is the run's own. */
int convertRun(const std::string &log, const std::string &dir, Form form, const std::string &dataDir = "QUENTA.DIR");

}

#endif
