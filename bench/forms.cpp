/* forms.cpp: what the library adds to the plain read of each storage form, and what it takes for several arrays of one
 * step.
 *
 *     benchForms <rounds> <run.Log>...
 *     benchForms --arrays <rounds> <run.Log>...
 *
 * "library" opens the run and reads coordinates, connectivity and all arrays of all steps; "plain" reads the bytes of
 * all the run's data files and does nothing with them, as their form is read at best: into memory, through zcat, or
 * data set by data set. The same run in several forms makes a row each, in turns, so that a busy moment hits all alike.
 * The best of all rounds is printed, as a table in Markdown: time, and processor time with that of other programs such
 * as zcat, which holds still when other work goes on.
 *
 * With --arrays a table tells what an array costs if the first one, two, four or all of a step are asked for, in the
 * order of the list, and so for what is made of the gradient of the velocity. Each round opens the run, reads a step to
 * have all that is read once, and then asks at each further step. */

#include <dirent.h>
#include <fcntl.h>
#include <hdf5.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "rdb/rdb.h"

namespace {

[[noreturn]] void fail(const std::string &text)
{
    std::fprintf(stderr, "benchForms: %s\n", text.c_str());
    std::exit(1);
}

struct Best {
    double wall = 1e30, cpu = 1e30;           /* seconds */
};

struct Row {
    std::string folder, problem;              /* of the run's log */
    int         run = 0;
    int64_t     bytes = 0;                    /* of all data files */
    Best        library, plain;
};

Row rowOf(const std::string &log)
{
    Row row;
    const size_t slash = log.rfind('/'), start = slash == std::string::npos ? 0 : slash + 1, dot = log.find('.', start);
    if (dot == std::string::npos) fail(log + " is no name of a run's log");
    row.folder  = start ? log.substr(0, slash) : ".";
    row.problem = log.substr(start, dot - start);
    row.run     = std::atoi(log.c_str() + dot + 1);
    return row;
}

/* ---- by the library ---- */

int number(rdbHd *hd, const char *key)
{
    int value;
    if (!rdbGetInt0(hd, key, &value)) fail(std::string(key) + ": " + rdbGetError());
    return value;
}

int number(rdbHd *hd, const char *key, int i)
{
    int value;
    if (!rdbGetInt1(hd, key, &value, i)) fail(std::string(key) + ": " + rdbGetError());
    return value;
}

void readSets(rdbHd *hd, const char *sets, const char *cnn, const char *nNodes, const char *nCells)
{
    std::vector<int> values;
    for (int i = 0, n = number(hd, sets); i < n; ++i) {
        const int d1 = number(hd, nNodes, i), d2 = number(hd, nCells, i);
        values.resize(size_t(d1) * size_t(d2));
        if (!rdbGetInts1(hd, cnn, values.data(), i, d1, d2)) fail(std::string(cnn) + ": " + rdbGetError());
    }
}

void readByLibrary(const Row &row)
{
    rdbHd *hd = rdbNew(row.problem.c_str(), "QUENTA.DIR", row.folder.c_str(), 0);
    if (!hd || !rdbOpenRun(hd, row.run)) fail(row.folder + ": " + rdbGetError());
    const int nNodes = number(hd, "nNodes"), nVars = number(hd, "nOutVars"), nSteps = number(hd, "nOutSteps");
    std::vector<double> values(size_t(nNodes) * 3);
    if (!rdbGetReals0(hd, "crd", values.data(), 3, nNodes)) fail(std::string("crd: ") + rdbGetError());
    readSets(hd, "nSfss", "sfsCnn", "nSfsSrfNodes", "nSfsSrfs");
    readSets(hd, "nVols", "volCnn", "nVolElemNodes", "nVolElems");
    for (int step = 0; step < nSteps; ++step) {
        for (int v = 0; v < nVars; ++v) {
            const int dim = number(hd, "outVarDim", v);
            values.resize(size_t(nNodes) * size_t(dim));
            if (!rdbGetReals2(hd, "outValues", values.data(), v, step, dim, nNodes))
                fail(std::string("outValues: ") + rdbGetError());
        }
    }
    rdbCloseRun(hd);
    rdbFree(hd);
}

/* ---- several arrays of a step ---- */

struct Ask { const char *key, *dim; int var; };

const std::vector<Ask> gradients = {
    { "outAuxValues", "outAuxVarDim", 1 }, { "outAuxValues", "outAuxVarDim", 3 },
    { "outGradValues", "outGradVarDim", 0 },
};

void readArrays(rdbHd *hd, const std::vector<Ask> &asked, size_t n, int step)
{
    static std::vector<double> values;
    const int nNodes = number(hd, "nNodes");
    for (size_t i = 0; i < n; ++i) {
        const int dim = number(hd, asked[i].dim, asked[i].var);
        values.resize(size_t(nNodes) * size_t(dim));
        if (!rdbGetReals2(hd, asked[i].key, values.data(), asked[i].var, step, dim, nNodes))
            fail(std::string(asked[i].key) + ": " + rdbGetError());
    }
}

template <class F> void timed(Best *best, F f);

/* The first n of them at all steps but the first: time of a step */
Best timeArrays(const Row &row, const std::vector<Ask> &asked, size_t n, int rounds)
{
    Best best;
    for (int round = 0; round < rounds; ++round) {
        rdbHd *hd = rdbNew(row.problem.c_str(), "QUENTA.DIR", row.folder.c_str(), 0);
        if (!hd || !rdbOpenRun(hd, row.run)) fail(row.folder + ": " + rdbGetError());
        const int nSteps = number(hd, "nOutSteps");
        readArrays(hd, asked, asked.size(), 0);
        for (int step = 1; step < nSteps; ++step) timed(&best, [&] { readArrays(hd, asked, n, step); });
        rdbFree(hd);
    }
    return best;
}

void printArrays(const Row &row, const char *what, const std::vector<Ask> &asked, int rounds)
{
    std::vector<size_t> counts;
    for (const size_t n : { size_t(1), size_t(2), size_t(4), asked.size() })
        if (n <= asked.size() && (counts.empty() || n > counts.back())) counts.push_back(n);
    for (const size_t n : counts) {
        const Best best = timeArrays(row, asked, n, rounds);
        std::printf("| %s | %s | %zu | %.1f | %.1f | %.1f |\n", row.folder.substr(row.folder.rfind('/') + 1).c_str(),
                    what, n, 1000 * best.wall, 1000 * best.cpu, 1000 * best.cpu / double(n));
        std::fflush(stdout);
    }
}

void measureArrays(const Row &row, int rounds)
{
    rdbHd *hd = rdbNew(row.problem.c_str(), "QUENTA.DIR", row.folder.c_str(), 0);
    if (!hd || !rdbOpenRun(hd, row.run)) fail(row.folder + ": " + rdbGetError());
    if (number(hd, "nOutSteps") < 2) fail(row.folder + " has less than two steps");
    std::vector<Ask> stored;
    for (int v = 0, n = number(hd, "nOutVars"); v < n; ++v) stored.push_back({ "outValues", "outVarDim", v });
    const bool hasVelocity = number(hd, "nOutAuxVars") > 1;
    rdbFree(hd);
    printArrays(row, "stored", stored, rounds);
    if (hasVelocity) printArrays(row, "from the gradient", gradients, rounds);
}

/* ---- plainly ---- */

bool endsWith(const std::string &text, const char *end)
{
    const std::string tail(end);
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

int64_t readBytes(const std::string &path)
{
    static std::vector<char> piece(1 << 20);
    const int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) fail("cannot open " + path);
    int64_t n = 0;
    for (ssize_t got; (got = read(fd, piece.data(), piece.size())) > 0;) n += got;
    close(fd);
    return n;
}

void unpack(const std::string &path)
{
    const pid_t pid = fork();
    if (pid == 0) {
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        execlp("zcat", "zcat", path.c_str(), nullptr);
        _exit(127);
    }
    int status = 1;
    if (waitpid(pid, &status, 0) != pid || status != 0) fail("zcat cannot read " + path);
}

herr_t readDataSet(hid_t file, const char *name, const H5O_info_t *info, void *)
{
    static std::vector<char> values;
    if (info->type != H5O_TYPE_DATASET) return 0;
    const hid_t data = H5Dopen2(file, name, H5P_DEFAULT), space = H5Dget_space(data), stored = H5Dget_type(data);
    const hid_t type = H5Tget_native_type(stored, H5T_DIR_ASCEND);
    values.resize(size_t(H5Sget_simple_extent_npoints(space)) * H5Tget_size(type));
    const herr_t result = H5Dread(data, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data());
    H5Tclose(type);
    H5Tclose(stored);
    H5Sclose(space);
    H5Dclose(data);
    return result < 0 ? -1 : 0;
}

void readDataSets(const std::string &path)
{
    const hid_t file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    if (file < 0 || H5Ovisit(file, H5_INDEX_NAME, H5_ITER_NATIVE, readDataSet, nullptr) < 0)
        fail("cannot read " + path);
    H5Fclose(file);
}

int64_t readPlainly(const Row &row, bool decode)
{
    const std::string folder = row.folder + "/QUENTA.DIR/", base = row.problem + "." + std::to_string(row.run);
    DIR *dir = opendir(folder.c_str());
    if (!dir) fail("cannot open " + folder);
    int64_t bytes = 0;
    while (const dirent *entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name.compare(0, base.size(), base) != 0 || endsWith(name, ".cli")) continue;
        if (decode && endsWith(name, ".Z")) unpack(folder + name);
        else if (decode && (endsWith(name, ".H") || endsWith(name, ".C"))) readDataSets(folder + name);
        else bytes += readBytes(folder + name);
    }
    closedir(dir);
    return bytes;
}

double processorTime()
{
    double total = 0;
    for (const int who : { RUSAGE_SELF, RUSAGE_CHILDREN }) {
        struct rusage use;
        getrusage(who, &use);
        for (const timeval &t : { use.ru_utime, use.ru_stime }) total += double(t.tv_sec) + 1e-6 * double(t.tv_usec);
    }
    return total;
}

template <class F> void timed(Best *best, F f)
{
    const auto begin = std::chrono::steady_clock::now();
    const double cpu = processorTime();
    f();
    best->cpu = std::min(best->cpu, processorTime() - cpu);
    best->wall = std::min(best->wall, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
}

}

int main(int argc, char **argv)
{
    const bool arrays = argc > 1 && std::string(argv[1]) == "--arrays";
    argc -= arrays;
    argv += arrays;
    const int rounds = argc > 2 ? std::atoi(argv[1]) : 0;
    if (rounds < 1) fail("usage: benchForms [--arrays] <rounds> <run.Log>...");
    std::vector<Row> rows;
    for (int i = 2; i < argc; ++i) rows.push_back(rowOf(argv[i]));
    for (Row &row : rows) row.bytes = readPlainly(row, false);           /* which also warms the files */
    if (arrays) {
        std::printf("| form | arrays | asked | ms | CPU | CPU per array |\n|---|---|--:|--:|--:|--:|\n");
        for (const Row &row : rows) measureArrays(row, rounds);
        return 0;
    }
    for (int round = 0; round < rounds; ++round) {
        for (Row &row : rows) {
            timed(&row.library, [&] { readByLibrary(row); });
            timed(&row.plain, [&] { readPlainly(row, true); });
        }
    }
    std::printf("| form | MB | library, ms | plain, ms | ratio | library, CPU | plain, CPU | ratio |\n"
                "|---|--:|--:|--:|--:|--:|--:|--:|\n");
    for (const Row &row : rows)
        std::printf("| %s | %.0f | %.1f | %.1f | %.2f | %.1f | %.1f | %.2f |\n",
                    row.folder.substr(row.folder.rfind('/') + 1).c_str(), double(row.bytes) / 1e6,
                    1000 * row.library.wall, 1000 * row.plain.wall, row.library.wall / row.plain.wall,
                    1000 * row.library.cpu, 1000 * row.plain.cpu, row.library.cpu / row.plain.cpu);
    return 0;
}
