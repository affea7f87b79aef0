#ifndef TEST_SOAK_SOAKPLAN_H
#define TEST_SOAK_SOAKPLAN_H

/* soakPlan.h: what the writer and the reader of the soak test have agreed on: the runs, how a value tells which run,
 * which step and which writing of that step (its generation) it is of, and a clock that both see. */

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include "tool/runWriter.h"

namespace soak {

enum { MOST = 64, N_VARS = 3 };           /* steps of a run, generations of a step */

/* Odd runs have a file for each subdomain, even ones one file for all. */
inline tool::RunSpec specOf(const std::string &dir, tool::Form form, int run)
{
    tool::RunSpec spec;
    spec.dir = dir;
    spec.dataDir = ".";
    spec.problem = "flow";
    spec.run = run;
    spec.form = form;
    spec.nSds = 2;
    spec.merged = run % 2 == 0;
    spec.nx = 12;
    spec.ny = spec.nz = 8;
    spec.setVars("velocity,pressure,temperature");
    spec.families.push_back({"ora", 7});
    return spec;
}

/* What is added to all values of a writing; the values themselves are those of a step 0 without it */
inline double offsetOf(int run, int step, int generation)
{
    return ((double) run * MOST + step) * MOST + generation;
}

/* How often the writer has written, in memory that both processes share through a file. For the reader a second has
   passed when the writer has gone on: a machine that is busy may let it stand still for any time. */
inline std::atomic<long> *sharedClock(const std::string &fileName)
{
    const int fd = open(fileName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    void *at = MAP_FAILED;
    if (fd >= 0 && ftruncate(fd, sizeof(std::atomic<long>)) == 0)
        at = mmap(nullptr, sizeof(std::atomic<long>), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (fd >= 0) close(fd);
    if (at == MAP_FAILED) throw std::runtime_error("no clock " + fileName);
    return static_cast<std::atomic<long> *>(at);
}

}

#endif
