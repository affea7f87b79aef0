#ifndef TEST_FUZZ_SMALLRUNS_H
#define TEST_FUZZ_SMALLRUNS_H

/* smallRuns.h: the run that the targets damage and that their seeds are taken from: two volumes of tetrahedra, two
 * subdomains, two steps, in the forms that are streams of bytes on the disk. The run writer makes it at run time. */

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "tool/runWriter.h"

static const struct { const char *folder; tool::Form form; } smallForms[] = {
    { "ascii",   tool::Form::ascii   },
    { "binary",  tool::Form::binary  },
    { "swapped", tool::Form::swapped },
};
enum { N_SMALL_FORMS = sizeof smallForms / sizeof *smallForms };

/* A file of each parser, without the form's suffix. */
static const char *const smallFiles[] = {
    "p.1.crd", "p.1.ddc", "p.1.vol0", "p.1.cnn1", "p.1.sfs0", "p.1.osf0", "p.1.nbc0", "p.1.pbc0", "p.1.oel1_0",
    "p.1_0.osn", "p.1_0_0.out", "p.1_0_1.out", "p.1.top"
};
enum { N_SMALL_FILES = sizeof smallFiles / sizeof *smallFiles };

/* The log of time steps, with an item of each form. */
inline void writeSmallLog(const std::string &path, tool::Form form)
{
    tool::TokenFile f(path, form);
    for (int step = 0; step < 2; ++step) {
        f.keyInt("tsId", step);
        f.keyReal("timeInc", 0.125);
        f.keyReal("time", 0.125 * step);
        f.keyStr("eqnName", "flow");
        f.keyReal("resNorm", 0.5);
        f.keyStr("name", "pressure");
        f.keyReal("cpuTime", 2.5);
        f.keyInt("nIters", 3);
    }
    f.keyInt("endRun", 1);
}

/* The run in a folder, its data files beside the log. The one with the other byte order has elements with a node in
   their middle, and two mask words; the container, which takes HDF5 long to read, has one volume only. */
inline void writeSmallRun(const std::string &dir, tool::Form form)
{
    tool::RunSpec spec;
    spec.dir     = dir;
    spec.dataDir = ".";
    spec.problem = "p";
    spec.form    = form;
    spec.mesh    = form == tool::Form::swapped ? tool::Mesh::bubble : tool::Mesh::tet;
    spec.nx = 2, spec.ny = 1, spec.nz = 1;
    spec.nVols    = form == tool::Form::container ? 1 : 2;
    spec.nSds     = 2;
    spec.nodeSets = true;
    spec.twoWords = form == tool::Form::swapped;
    spec.setSteps(2);
    spec.setVars("velocity,pressure,species:2,field:2,mesh_displacement");
    tool::writeRun(spec);
    if (form != tool::Form::container) writeSmallLog(dir + "/p.1.top", form);
}

inline std::string smallBytes(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("no file " + path);
    return { std::istreambuf_iterator<char>(file), {} };
}

#endif
