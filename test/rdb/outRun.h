#ifndef TEST_RDB_OUTRUN_H
#define TEST_RDB_OUTRUN_H

/* outRun.h: the outputs of a small run, what their values must be, and what the tests of step files look at. */

#include <filesystem>

#include "test/rdb/smallRun.h"

namespace fs = std::filesystem;

constexpr double untouched = -77;

/* All variables up to "aoutVec", the ones without a fixed width among them */
inline SmallRun manyVars()
{
    SmallRun run;
    run.vars = { { "vel", 3 }, { "pres", 1 }, { "temp", 1 }, { "spec", 2 }, { "eddy", 1 }, { "tdm", 1 }, { "tke", 1 },
                 { "tvel", 1 }, { "teps", 1 }, { "tomega", 1 }, { "aoutVec", 2 } };
    run.mask = (1 << 11) - 1;
    return run;
}

inline std::vector<double> valuesOf(rdbHd *hd, int var, int step, int dim)
{
    std::vector<double> values((size_t) hd->run->nNodes * dim, untouched);
    checkAnswers(rdbGetReals2(hd, "outValues", values.data(), var, step, dim, hd->run->nNodes));
    return values;
}

/* What a variable must be, nodes without a part being zero */
inline std::vector<double> expected(const SmallRun &run, int step, int var)
{
    const int dim = run.vars[var].dim;
    std::vector<double> values((size_t) run.nNodes() * dim, 0.0);
    for (const auto &part : run.parts)
        for (int node : part)
            for (int k = 0; k < dim; ++k) values[node * dim + k] = SmallRun::value(step, var, node, k);
    return values;
}

inline void checkAll(rdbHd *hd, const SmallRun &run)
{
    for (size_t s = 0; s < run.steps.size(); ++s)
        for (size_t v = 0; v < run.vars.size(); ++v)
            EXPECT_EQ(valuesOf(hd, (int) v, (int) s, run.vars[v].dim), expected(run, run.steps[s], (int) v))
                << run.vars[v].key << " of step " << run.steps[s];
}

/* Makes files look as if they had been written long ago: what has just changed is not kept between requests */
inline void letSettle(int seconds = 60)
{
    for (const auto &entry : fs::directory_iterator("."))
        fs::last_write_time(entry.path(), fs::file_time_type::clock::now() - std::chrono::seconds(seconds));
}

inline int nOpenFiles()
{
    int n = 0;
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) n += fs::is_symlink(entry.path());
    return n;
}

inline void clearFolder()
{
    for (const auto &entry : fs::directory_iterator(".")) fs::remove_all(entry.path());
}

#endif
