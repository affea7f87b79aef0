/* floor.cpp: how fast a run could be shown at best.
 *
 *     benchFloor read|floor <run.Log> <steps> [threads]
 *
 * "read" brings the numbers that a reader needs into memory and does nothing with them. "floor" brings them to where
 * the pipeline would take them, in one pass over each file, with no more knowledge than a reader can have: 64-bit
 * coordinates and values become floats, subdomains are put together, user ids become positions and connectivity 64-bit,
 * surface sets gather their nodes. It is made for one kind of run only: native binary form, consecutive user ids, one
 * volume that uses all nodes, one output file per subdomain. Anything else it refuses.
 *
 * Times are printed as one line of JSON: the open with the first step, each later step, the way back to earlier ones.
 *
 * In this file: tokens, parallel blocks, mesh, steps, the command. */

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

[[noreturn]] void fail(const std::string &text)
{
    std::fprintf(stderr, "benchFloor: %s\n", text.c_str());
    std::exit(1);
}

bool     convert   = false;                   /* "floor", not "read" */
unsigned nThreads  = 1;

/* memory that nobody clears before it is written */
template <class T> struct Memory {
    std::unique_ptr<T[]> values;
    int64_t              n = 0;
    void     size(int64_t count) { if (count > n) { values.reset(new T[count]); n = count; } }
    T       *data() { return values.get(); }
    T       &operator[](int64_t i) { return values[i]; }
};

/* ---- tokens ---- */

/* where a table's numbers stand in a file */
struct Table { int64_t offset = 0; int nCols = 0, nRows = 0; int64_t n() const { return int64_t(nCols) * nRows; } };

class File {
public:
    explicit File(const std::string &name) : path(name), fd(open(name.c_str(), O_RDONLY))
    {
        char tag[22];
        if (fd < 0) fail("cannot open " + path);
        get(tag, 0, sizeof tag);
        if (std::memcmp(tag + 14, "2 4 6 8\n", 8) != 0) fail(path + " is not in native binary form");
        at = sizeof tag;
    }
    ~File() { close(fd); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    void get(void *to, int64_t offset, int64_t n) const
    {
        for (char *c = static_cast<char *>(to); n > 0;) {
            const ssize_t got = pread(fd, c, size_t(n), offset);
            if (got <= 0) fail(path + " ends too early");
            c += got;
            offset += got;
            n -= got;
        }
    }
    void key(const char *name)
    {
        char text[16] = "";
        const size_t length = std::strlen(name) / 8 * 8 + 8;
        get(text, at, int64_t(length));
        if (std::strcmp(text, name) != 0) fail(path + ": no <" + name + "> where expected");
        at += int64_t(length);
    }
    int number(const char *name)
    {
        int value;
        key(name);
        get(&value, at, 4);
        at += 4;
        return value;
    }
    Table table(const char *name, int size)
    {
        Table t;
        t.nCols = number(name);
        get(&t.nRows, at, 4);
        t.offset = at + 4;
        at = t.offset + t.n() * size;
        return t;
    }
    void skip(int64_t n) { at += n; }

private:
    std::string path;
    int         fd;
    int64_t     at = 0;
};

/* the last part of a table file of n parts of integers, or of integers before reals; the parts before it in others */
Table lastPart(File &file, int nParts, Table *first = nullptr)
{
    Table t;
    if (file.number("nParts") != nParts) fail("unexpected number of parts");
    file.number("nRows");
    file.number("nCols");
    for (int p = 0; p < nParts; ++p) {
        const bool reals = file.number("type") == 2;
        file.number("nCols");
        t = file.table(reals ? "realVec" : "intVec", reals ? 8 : 4);
        if (p == 0 && first) *first = t;
    }
    return t;
}

/* ---- parallel blocks ---- */

/* Reads a table block by block with all threads; f(first row, rows, numbers) is called for each. */
template <class T, class F> void eachBlock(const File &file, const Table &table, F f)
{
    const int64_t rows = std::max(1, 65536 / std::max(table.nCols, 1) / int(sizeof(T)) * 4);
    std::atomic<int64_t> next(0);
    auto work = [&] {
        std::unique_ptr<T[]> block(new T[rows * table.nCols]);
        for (;;) {
            const int64_t first = next.fetch_add(rows);
            if (first >= table.nRows) return;
            const int64_t n = std::min<int64_t>(rows, table.nRows - first);
            file.get(block.get(), table.offset + first * table.nCols * int64_t(sizeof(T)),
                     n * table.nCols * int64_t(sizeof(T)));
            f(first, n, block.get());
        }
    };
    std::vector<std::thread> threads;
    for (unsigned t = 1; t < nThreads && table.n() > 65536; ++t) threads.emplace_back(work);
    work();
    for (std::thread &t : threads) t.join();
}

/* Reads a table as it is, with all threads. */
template <class T> void readPlain(const File &file, const Table &table, Memory<T> &to)
{
    to.size(table.n());
    const int64_t bytes = table.n() * int64_t(sizeof(T)), chunk = 1 << 20;
    std::atomic<int64_t> next(0);
    auto work = [&] {
        for (int64_t at; (at = next.fetch_add(chunk)) < bytes;)
            file.get(reinterpret_cast<char *>(to.data()) + at, table.offset + at, std::min(chunk, bytes - at));
    };
    std::vector<std::thread> threads;
    for (unsigned t = 1; t < nThreads && bytes > chunk; ++t) threads.emplace_back(work);
    work();
    for (std::thread &t : threads) t.join();
}

/* ---- mesh ---- */

struct Surface {
    std::string          path;
    Memory<int>          ids;
    std::vector<int>     nodes;
    std::vector<int64_t> cells, offsets;
    std::vector<float>   points, arrays[3];
};

struct Mesh {
    int                      nNodes = 0;
    std::string              base;                    /* of all data files */
    std::vector<Memory<int>> parts;                   /* node positions of each subdomain */
    Memory<int>              userIds, volIds;         /* "read" only */
    Memory<double>           crd;
    Memory<float>            points;
    Memory<int64_t>          cells, offsets;
    std::vector<Surface>     surfaces;
    std::string              volume;
};

void readClientInfo(const std::string &log, Mesh *mesh)
{
    const size_t slash = log.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : log.substr(0, slash + 1);
    mesh->base = folder + "QUENTA.DIR/" + log.substr(folder.size(), log.size() - folder.size() - 4);
    std::ifstream cli(mesh->base + ".cli");
    for (std::string line; std::getline(cli, line);) {
        std::istringstream words(line);
        std::string mark, keyword, path;
        words >> mark >> keyword >> path;
        if (keyword == "SFS") {
            mesh->surfaces.emplace_back();
            mesh->surfaces.back().path = folder + path;
        }
        if (keyword == "VOL") {
            if (!mesh->volume.empty()) fail("more than one volume");
            mesh->volume = folder + path;
        }
    }
    if (mesh->volume.empty()) fail("no volume in " + mesh->base + ".cli");
}

void readCoordinates(Mesh *mesh)
{
    File file(mesh->base + ".crd.B");
    Table ids;
    const Table crd = lastPart(file, 2, &ids);
    mesh->nNodes = ids.nRows;
    if (!convert) {
        readPlain(file, ids, mesh->userIds);
        readPlain(file, crd, mesh->crd);
        return;
    }
    eachBlock<int>(file, ids, [](int64_t first, int64_t n, const int *id) {
        int wrong = 0;
        for (int64_t i = 0; i < n; ++i) wrong |= id[i] ^ int(first + i + 1);
        if (wrong) fail("user ids are not consecutive");
    });
    mesh->points.size(crd.n());
    float *points = mesh->points.data();
    eachBlock<double>(file, crd, [points](int64_t first, int64_t n, const double *x) {
        for (int64_t i = 0; i < 3 * n; ++i) points[3 * first + i] = float(x[i]);
    });
}

/* The marks find out whether the volume uses all nodes, so that a node's position is its local id. */
void readVolume(Mesh *mesh)
{
    File file(mesh->volume);
    const Table cnn = lastPart(file, 2);
    if (!convert) return readPlain(file, cnn, mesh->volIds);

    std::unique_ptr<char[]> used(new char[mesh->nNodes]());
    char *mark = used.get();
    mesh->cells.size(cnn.n());
    mesh->offsets.size(cnn.nRows + 1);
    int64_t *cells = mesh->cells.data(), *offsets = mesh->offsets.data();
    const int nCols = cnn.nCols, nNodes = mesh->nNodes;
    eachBlock<int>(file, cnn, [=](int64_t first, int64_t n, const int *id) {
        for (int64_t i = 0; i < n; ++i) offsets[first + i] = (first + i) * nCols;
        for (int64_t i = 0; i < n * nCols; ++i) {
            const unsigned node = unsigned(id[i] - 1);
            if (node >= unsigned(nNodes)) fail("unknown user id");
            __atomic_store_n(&mark[node], 1, __ATOMIC_RELAXED);
            cells[first * nCols + i] = node;
        }
    });
    offsets[cnn.nRows] = cnn.n();
    if (std::memchr(mark, 0, size_t(nNodes))) fail("the volume does not use all nodes");
}

void readSurface(Mesh *mesh, Surface *set, std::vector<int> *local)
{
    File file(set->path);
    const Table cnn = lastPart(file, 3);
    readPlain(file, cnn, set->ids);
    if (!convert) return;

    std::vector<char> used(size_t(mesh->nNodes), 0);
    for (int64_t i = 0; i < cnn.n(); ++i) {
        const unsigned node = unsigned(set->ids[i] - 1);
        if (node >= unsigned(mesh->nNodes)) fail("unknown user id");
        used[node] = 1;
    }
    for (const char *at = used.data(), *end = at + mesh->nNodes;
         (at = static_cast<const char *>(std::memchr(at, 1, size_t(end - at)))); ++at) {
        const int node = int(at - used.data());
        (*local)[size_t(node)] = int(set->nodes.size());
        set->nodes.push_back(node);
        set->points.insert(set->points.end(), &mesh->points[3 * int64_t(node)], &mesh->points[3 * int64_t(node)] + 3);
    }
    set->cells.resize(size_t(cnn.n()));
    for (int64_t i = 0; i < cnn.n(); ++i) set->cells[size_t(i)] = (*local)[size_t(set->ids[i] - 1)];
    set->offsets.resize(size_t(cnn.nRows) + 1);
    for (int i = 0; i <= cnn.nRows; ++i) set->offsets[size_t(i)] = int64_t(i) * cnn.nCols;
}

void readDecomposition(Mesh *mesh)
{
    File file(mesh->base + ".ddc.B");
    const int nSds = file.number("nSds");
    file.number("nElems");
    file.table("color", 4);
    file.number("nNodes");
    file.table("usrIds", 4);
    for (int sd = 0; sd < nSds; ++sd) {
        file.number("sdId");
        file.number("nNodes");
        mesh->parts.emplace_back();
        readPlain(file, file.table("nodes", 4), mesh->parts.back());
    }
}

void readMesh(const std::string &log, Mesh *mesh)
{
    readClientInfo(log, mesh);
    readCoordinates(mesh);
    readVolume(mesh);
    std::vector<int> local;
    if (convert) local.resize(size_t(mesh->nNodes));
    for (Surface &set : mesh->surfaces) readSurface(mesh, &set, &local);
    readDecomposition(mesh);
}

/* ---- steps ---- */

struct Step {
    Memory<double> plain[3];
    Memory<float>  arrays[3];
};

void readPart(const Mesh &mesh, const std::string &path, const Memory<int> &nodes, Step *step)
{
    static const char *keys[3] = { "vel", "pres", "temp" };
    File file(path);
    file.key("time");
    file.skip(8);
    for (const char *key : { "mask", "nSpecs", "nFilms", "nFields", "nAoutVecs", "nNodes" }) file.number(key);
    for (int v = 0; v < 3; ++v) {
        const Table table = file.table(keys[v], 8);
        if (!convert) {
            readPlain(file, table, step->plain[v]);
            continue;
        }
        const int d = table.nCols;
        step->arrays[v].size(int64_t(mesh.nNodes) * d);
        float     *to = step->arrays[v].data();
        const int *place = nodes.values.get();
        if (d == 1)
            eachBlock<double>(file, table, [=](int64_t first, int64_t n, const double *values) {
                for (int64_t i = 0; i < n; ++i) to[place[first + i]] = float(values[i]);
            });
        else
            eachBlock<double>(file, table, [=](int64_t first, int64_t n, const double *values) {
                for (int64_t i = 0; i < n; ++i)
                    for (int c = 0; c < 3; ++c) to[3 * int64_t(place[first + i]) + c] = float(values[3 * i + c]);
            });
    }
}

void readStep(Mesh *mesh, int number, Step *step)
{
    for (size_t p = 0; p < mesh->parts.size(); ++p)
        readPart(*mesh, mesh->base + "_" + std::to_string(number) + "_" + std::to_string(p) + ".out.B", mesh->parts[p],
                 step);
    for (Surface &set : mesh->surfaces)
        for (int v = 0; convert && v < 3; ++v) {
            const size_t d = v == 0 ? 3 : 1;
            set.arrays[v].resize(set.nodes.size() * d);
            for (size_t i = 0; i < set.nodes.size(); ++i)
                for (size_t c = 0; c < d; ++c)
                    set.arrays[v][i * d + c] = step->arrays[v][int64_t(set.nodes[i]) * int64_t(d) + int64_t(c)];
        }
}

/* ---- the command ---- */

struct Times { std::vector<double> wall, cpu; };

double now(clockid_t clock)
{
    struct timespec t;
    clock_gettime(clock, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

/* adds the time and the processor time (of all threads) of f() */
template <class F> void timed(Times *times, F f)
{
    const double wall = now(CLOCK_MONOTONIC), cpu = now(CLOCK_PROCESS_CPUTIME_ID);
    f();
    times->wall.push_back(now(CLOCK_MONOTONIC) - wall);
    times->cpu.push_back(now(CLOCK_PROCESS_CPUTIME_ID) - cpu);
}

double peakMegabytes()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmHWM:") {
            double kB = 0;
            status >> kB;
            return kB / 1024;
        }
    return 0;
}

/* so that the numbers can be held against those of the readers, and no work is left out by the compiler */
double sum(Step *step, int v)
{
    double total = 0;
    for (int64_t i = 0; i < step->arrays[v].n; ++i) total += double(step->arrays[v][i]);
    for (int64_t i = 0; i < step->plain[v].n; ++i) total += step->plain[v][i];
    return total;
}

void printList(const std::string &name, const std::vector<double> &list)
{
    std::printf("\"%s\": [", name.c_str());
    for (size_t i = 0; i < list.size(); ++i) std::printf("%s%.6f", i ? ", " : "", list[i]);
    std::printf("], ");
}

void printTimes(const std::string &name, const Times &times)
{
    printList(name, times.wall);
    printList(name + "_cpu", times.cpu);
}

}

int main(int argc, char **argv)
{
    if (argc < 4) fail("usage: benchFloor read|floor <run.Log> <steps> [threads]");
    convert  = !std::strcmp(argv[1], "floor");
    nThreads = argc > 4 ? unsigned(std::atoi(argv[4])) : std::thread::hardware_concurrency();
    const std::string log = argv[2];
    const int nSteps = std::atoi(argv[3]);

    Mesh mesh;
    Step step;
    Times open, next, back;
    timed(&open, [&] {
        readMesh(log, &mesh);
        readStep(&mesh, 0, &step);
    });
    for (int s = 1; s < nSteps; ++s) timed(&next, [&] { readStep(&mesh, s, &step); });
    for (int s = nSteps - 3; s >= 0; s -= 2) timed(&back, [&] { readStep(&mesh, s, &step); });

    std::printf("{");
    printTimes("open", open);
    printTimes("next", next);
    printTimes("back", back);
    std::printf("\"peak\": %.1f, \"sums\": [%.17g, %.17g, %.17g]}\n", peakMegabytes(), sum(&step, 0), sum(&step, 1),
                sum(&step, 2));
    return 0;
}
