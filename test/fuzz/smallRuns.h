#ifndef TEST_FUZZ_SMALLRUNS_H
#define TEST_FUZZ_SMALLRUNS_H

/* smallRuns.h: the run that the targets damage and that their seeds are taken from: two volumes of tetrahedra, two
 * subdomains, two steps of all families of output, in the forms that are streams of bytes on the disk. The run writer
 * makes it at run time. */

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "tool/runWriter.h"

/* merged: a file of a step holds the parts of all subdomains */
static const struct { const char *folder; tool::Form form; bool merged; } smallForms[] = {
    { "ascii",   tool::Form::ascii,   false },
    { "binary",  tool::Form::binary,  false },
    { "swapped", tool::Form::swapped, false },
    { "merged",  tool::Form::ascii,   true  },
};
enum { N_SMALL_FORMS = sizeof smallForms / sizeof *smallForms };

/* A file of each parser, without the form's suffix; # and + stand for the first part and the second. */
static const char *const smallFiles[] = {
    "p.1.crd", "p.1.ddc", "p.1.vol0", "p.1.cnn1", "p.1.sfs0", "p.1.osf0", "p.1.nbc0", "p.1.pbc0", "p.1.oel1_0",
    "p.1_0.osn", "p.1_0_#.out", "p.1_0_+.out", "p.1.top", "p.1_0_#.ora", "p.1_0_#.ota", "p.1_0_#.onr", "p.1_0_#.odq",
    "p.1_0_#.oae", "p.1_0_#.oee", "p.1_0_#.rst", "p.1_0_+.rst", "p.1_1_0.ocn", "p.1_0_0_#.osf", "p.1_0_0_+.osf",
    "p.1_0_0_#.orf", "p.1_0_0.orn", "p.1_0_1.orn", "p.1_0_0.oqf"
};
enum { N_SMALL_FILES = sizeof smallFiles / sizeof *smallFiles };

inline std::string smallName(int form, int file)
{
    std::string name;
    for (const char *c = smallFiles[file]; *c; ++c)
        if (*c == '#' || *c == '+') name += smallForms[form].merged ? 'x' : *c == '#' ? '0' : '1';
        else name += *c;
    return name + tool::formSuffix(smallForms[form].form);
}

/* The other families: of each a few variables with all kinds of widths, and what not all files of theirs have. */
inline void addSmallFamilies(tool::RunSpec *spec, bool light)
{
    const auto add = [&](const char *ext, uint64_t rows) -> tool::FamSpec & {
        tool::FamSpec fam;
        fam.ext = ext;
        fam.rows = rows;
        spec->families.push_back(fam);
        return spec->families.back();
    };
    add("ora", 1 << 0 | 1 << 1 | 1 << 3);
    add("ota", 1 << 0 | 1 << 5);                    /* two averages of the velocity under one key */
    add("onr", 1 << 1 | 1 << 3);
    add("odq", 1 << 2 | 1 << 4 | 1 << 6);           /* a tensor that was a number once */
    add("oae", 1 << 1 | 1 << 4 | 1 << 6);
    add("oee", 1 << 0 | 1 << 3 | 1 << 8).outIndx = 1;
    add("rst", uint64_t(!light) << 36 | 1 << 6 | 1 << 0).lists = true;
    add("ocn", 1 << 1 | 1 << 3);
    for (const char *ext : { "osf", "orf", "oqf" }) {
        tool::SetFamSpec fam;
        fam.ext = ext;
        fam.rows = 1 << 0 | 1 << 1 | !light << 8;
        fam.onlySet = 0;                            /* a set without outputs is another case */
        spec->setFamilies.push_back(fam);
    }
}

/* The run in a folder, its data files beside the log. The one with the other byte order has elements with a node in
   their middle, and two mask words. `light`: with less of everything, for the form that takes its time. */
inline void writeSmallRun(const std::string &dir, tool::Form form, bool merged = false, bool light = false)
{
    tool::RunSpec spec;
    spec.dir     = dir;
    spec.dataDir = ".";
    spec.problem = "p";
    spec.form    = form;
    spec.merged  = merged;
    spec.mesh    = form == tool::Form::swapped ? tool::Mesh::bubble : tool::Mesh::tet;
    spec.nx = 2, spec.ny = 1, spec.nz = 1;
    spec.nVols    = light ? 1 : 2;
    spec.nSds     = 2;
    spec.nodeSets = true;
    spec.twoWords = form == tool::Form::swapped;
    spec.top      = true;
    spec.setSteps(2);
    spec.setVars(light ? "velocity,species:2" : "velocity,pressure,species:2,field:2,mesh_displacement");
    addSmallFamilies(&spec, light);
    tool::writeRun(spec);
}

inline std::string smallBytes(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("no file " + path);
    return { std::istreambuf_iterator<char>(file), {} };
}

#endif
