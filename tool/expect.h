#ifndef TOOL_EXPECT_H
#define TOOL_EXPECT_H

/* expect.h: what a reader must show of a generated run, as a JSON text for tests in other languages. */

#include <string>

#include "tool/runModel.h"

namespace tool {

std::string expectJson(const RunModel &model);
const char *expectHelp();                              /* the layout of the text, for people */

/* throws std::runtime_error if the file cannot be written */
void writeExpect(const RunModel &model, const std::string &fileName);

}

#endif
