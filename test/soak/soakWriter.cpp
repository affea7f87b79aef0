/* soakWriter.cpp: the solver of the soak test: writes runs step by step while somebody reads them.
 *
 *     soakWriter FORM DIR SCRATCH CLOCK SEED RUNS STEPS
 *
 * Nothing is written in a way that spares the reader. A file comes in pieces of any length, with pauses between them,
 * so that it ends anywhere: amidst a number, a block, the tables of HDF5. Files that are there are emptied and written
 * over: steps get new values (a generation), the log of time steps grows. HDF5 files are written both ways, as pieces
 * of bytes and by HDF5 itself, which stops between tokens with all or a part of them flushed; containers are opened and
 * added to while readers have them open.
 *
 * What became of it goes to standard output: a line "step RUN STEP GENERATION" for each, and a last line of counts.
 * That the writer fails, or cannot go on because somebody reads, is an error of the reader. */

#include <fcntl.h>
#include <unistd.h>

#include <hdf5.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

#include "test/soak/soakPlan.h"

namespace fs = std::filesystem;
using tool::Form;

static std::mt19937 dice;
static double       longest, paused;       /* the longest call, and what the present one has paused */
static long         nWritten, nRewritten;
static std::atomic<long> *ticks;

static int below(int n) { return (int) (dice() % (unsigned) n); }

static double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/* Often none, mostly short, at times long enough for a reader to take what is there for all. */
static void rest()
{
    const int kind = below(8);
    if (kind < 3) return;
    const double from = now();
    usleep((useconds_t) (kind < 7 ? below(400) : below(6000)));
    paused += now() - from;
}

/* Times what the reader could hold up */
template <class F> static auto timed(F f)
{
    const double from = now();
    paused = 0;
    const auto result = f();
    longest = std::max(longest, now() - from - paused);
    return result;
}

/* ---- files as bytes ---- */

static std::string readAll(const fs::path &name)
{
    std::ostringstream text;
    text << std::ifstream(name, std::ios::binary).rdbuf();
    return text.str();
}

/* The bytes of a finished file, over what is there, piece by piece */
static void pour(const fs::path &from, const fs::path &to)
{
    const std::string bytes = readAll(from);
    const int fd = timed([&] { return open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666); });
    if (fd < 0) throw std::runtime_error(to.string() + ": " + strerror(errno));
    for (size_t at = 0; at < bytes.size();) {
        rest();
        const size_t size = std::min(bytes.size() - at, (size_t) std::exp2(below(160) / 10.0));
        const ssize_t done = timed([&] { return write(fd, bytes.data() + at, size); });
        if (done < 1) throw std::runtime_error(to.string() + ": " + strerror(errno));
        at += (size_t) done;
        ++*ticks;
    }
    rest();
    if (timed([&] { return close(fd); }) != 0) throw std::runtime_error(to.string() + ": " + strerror(errno));
}

/* All that was made in scratch, the table of contents first: it tells of files that are not there yet. */
static void pourAll(const fs::path &scratch, const fs::path &dir)
{
    std::vector<fs::path> names;
    for (const fs::directory_entry &entry : fs::directory_iterator(scratch)) names.push_back(entry.path());
    std::shuffle(names.begin(), names.end(), dice);
    std::stable_partition(names.begin(), names.end(), [](const fs::path &name) { return name.extension() == ".cli"; });
    for (const fs::path &name : names) pour(name, dir / name.filename());
    for (const fs::path &name : names) fs::remove(name);
}

/* ---- files by the HDF5 library ---- */

/* Between two tokens, now and then */
static void stopForReaders()
{
    if (below(3)) return;
    if (below(2)) {
        hid_t     files[16];
        const int n = (int) H5Fget_obj_ids(H5F_OBJ_ALL, H5F_OBJ_FILE, 16, files);
        for (int i = 0; i < n && i < 16; ++i)
            if (H5Fflush(files[i], H5F_SCOPE_LOCAL) < 0) throw std::runtime_error("HDF5 cannot flush");
    }
    ++*ticks;
    rest();
}

template <class F> static void throughHdf(F write)
{
    tool::beforeToken = stopForReaders;
    timed([&] { return write(), 0; });
    tool::beforeToken = nullptr;
}

/* ---- the runs ---- */

struct Places { Form form; std::string dir, scratch; };

/* A file of the run that `write` makes in a folder: there through scratch, or at its place */
template <class F> static void writeFiles(const Places &at, F write)
{
    const bool direct = at.form == Form::container || (at.form == Form::hdf && below(2));
    if (direct) return throughHdf([&] { write(at.dir); });
    write(at.scratch);
    pourAll(at.scratch, at.dir);
}

static void writeStep(const Places &at, int run, int step, int generation)
{
    writeFiles(at, [&](const std::string &dir) {
        tool::RunSpec spec = soak::specOf(dir, at.form, run);
        spec.steps = {step};
        spec.offset = soak::offsetOf(run, step, generation);
        tool::writeSteps(tool::RunModel(spec));
    });
    ++(generation ? nRewritten : nWritten);
}

static void writeLog(const Places &at, int run, int nSteps)
{
    writeFiles(at, [&](const std::string &dir) {
        tool::RunSpec spec = soak::specOf(dir, at.form, run);
        spec.setSteps(nSteps);
        tool::DataFiles files(dir + "/flow." + std::to_string(run), at.form, true);
        tool::writeTop(files, tool::RunModel(spec));
        files.close();
    });
}

static void writeRun(const Places &at, int run, int nSteps)
{
    tool::RunSpec spec = soak::specOf(at.scratch, at.form, run);
    spec.steps.clear();
    tool::writeRun(spec);
    pourAll(at.scratch, at.dir);

    std::vector<int> generations;
    for (int step = 0; step < nSteps; ++step) {
        generations.push_back(0);
        writeStep(at, run, step, 0);
        writeLog(at, run, step + 1);
        const int again = below(step + 1);
        if (below(2) && generations[again] + 1 < soak::MOST) writeStep(at, run, again, ++generations[again]);
    }
    for (int step = 0; step < nSteps; ++step) printf("step %d %d %d\n", run, step, generations[step]);
}

int main(int argc, char **argv)
{
    try {
        if (argc != 8) throw std::invalid_argument("usage: soakWriter FORM DIR SCRATCH CLOCK SEED RUNS STEPS");
        Places at = {Form::ascii, argv[2], argv[3]};
        for (const tool::FormRow &row : tool::formRows)
            if (strcmp(row.word, argv[1]) == 0) at.form = row.value;
        ticks = soak::sharedClock(argv[4]);
        dice.seed((unsigned) atoi(argv[5]));
        const int nRuns = atoi(argv[6]), nSteps = std::min(atoi(argv[7]), (int) soak::MOST);
        for (int run = 1; run <= nRuns; ++run) writeRun(at, run, nSteps);
        printf("done %ld %ld %.6f\n", nWritten, nRewritten, longest);
        return 0;
    }
    catch (const std::exception &e) {
        fprintf(stderr, "soakWriter: %s\n", e.what());
        return 1;
    }
}
