/* soak.cpp: reads runs that a solver is writing, and judges every value.
 *
 *     soak                                  every form, a few seconds in all: what the tests run
 *     soak --form hdf --seconds 600         one form, again and again with other seeds for ten minutes
 *
 * The writer (soakWriter.cpp) is a process of its own, which writes files in pieces and over those that are there. The
 * reader asks on and on: update, the newest run, steps, times, arrays. Each call may fail, by its result or in a trap,
 * since what it is given may be half a file; if it succeeds, all that it gives must be true: of the run and the step
 * that were asked for, and each part's rows of one writing of that step, never of an older one than was seen before.
 * (Parts that are files of their own are written one after the other: no reader can know that they belong together.)
 *
 * After each failure a database that nobody writes must read as ever. When the writer has ended, the same handle after
 * one more update, and a new one, must give all of it. The writer must not fail either, whatever the reader has open.
 *
 * The library's waiting for a writer is real here, but a second lasts only until the writer has written something more,
 * mostly a millisecond or so. A call that does not come back ends the test by an alarm. How often what fails depends on
 * chance; what is demanded does not. */

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>

#include "base/sys.h"
#include "rdb/rdb.h"
#include "test/soak/soakPlan.h"

namespace fs = std::filesystem;
using tool::Form;

/* What a call that fails in a trap had allocated is lost. That nothing else is, is tested elsewhere. */
extern "C" const char *__asan_default_options(void);
const char *__asan_default_options(void) { return "detect_leaks=0"; }

/* ---- what is counted ---- */

static struct {
    long updates, changes, opens, arrays, values, times, logs, retries, judged;
    std::map<std::string, long> failures;
    double longest;                        /* call of the library, in seconds */
    long   wrong;
} count;

static std::mt19937 dice;
static int below(int n) { return (int) (dice() % (unsigned) n); }

static double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Writer {
    pid_t              pid;                /* -1: there is none */
    FILE              *out;
    std::atomic<long> *ticks;
};
static Writer writer = {-1, nullptr, nullptr};

static bool writerHasEnded()
{
    siginfo_t info = {};
    return writer.pid < 0 || waitid(P_PID, (id_t) writer.pid, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid;
}

/* A write that was done before the second began may be counted in it: so there must be two. A part of a second is taken
   for a whole one. */
static void shortSleep(double seconds)
{
    for (int i = 0; i < seconds; ++i) {
        ++count.retries;
        const long from = writer.ticks ? writer.ticks->load() : 0;
        usleep((useconds_t) below(1500));
        while (!writerHasEnded() && writer.ticks->load() < from + 2) usleep(200);
    }
}

static void complain(const char *format, ...) __attribute__((format(printf, 1, 2)));
static void complain(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    printf("WRONG: ");
    vprintf(format, args);
    printf("\n");
    va_end(args);
    if (++count.wrong > 40) exit(1);
}

/* ---- calls that may fail ---- */

/* A message without what is different each time: the kind of failure */
static std::string kindOf(const char *text)
{
    const char *last = strrchr(text, '\n');
    const std::string line = last ? last + 1 : text;
    std::string kind;
    for (size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '<') i = std::min(line.find('>', i), line.size() - 1), kind += "<>";
        else if (line[i] == '/') i = std::min(line.find(' ', i), line.size()) - 1, kind += "<>";
        else if (line.compare(i, 5, "flow.") == 0) i = std::min(line.find(' ', i), line.size()) - 1, kind += "<>";
        else if (isdigit((unsigned char) line[i])) kind += kind.empty() || kind.back() != '#' ? "#" : "";
        else kind += line[i];
    }
    return kind;
}

/* Runs a call of the library under the trap: 1 if it succeeded. f is left without unwinding. */
template <class F> static int tryTo(F f)
{
    static char text[8192];
    const double from = now();
    volatile int ok = 0;
    text[0] = 0;
    alarm(120);
    if (setjmp(*rdbAssertEnv()) == 0) {
        ok = f();
        if (!ok) snprintf(text, sizeof text, "%s", rdbGetError());
    } else {
        ok = 0;
        snprintf(text, sizeof text, "%s", rdbAssertErrorStr());
    }
    if (rdbAssertEndTrap() != -1) complain("a trap is left armed");
    alarm(0);
    count.longest = std::max(count.longest, now() - from);
    if (!ok) ++count.failures[kindOf(text)];
    return ok;
}

/* ---- what is true ---- */

struct Truth {
    std::vector<std::vector<double>> values;          /* of each variable of each family, without an offset */
    std::vector<int>                 dims;
    std::vector<double>              crd;
    std::vector<int>                 partOf;          /* the part that a node has its value from            */
    int    nNodes = 0;
    double timeInc = 0;
};

static const char *const families[] = {"Out", "Ora"}; /* with soak::N_VARS variables each */

static Truth truthOf(Form form)
{
    tool::RunSpec spec = soak::specOf(".", form, 1);
    const tool::RunModel model(spec);
    Truth truth;
    truth.nNodes = model.nNodes;
    truth.timeInc = spec.timeInc;
    truth.partOf.resize((size_t) model.nNodes);
    for (size_t p = 0; p < model.parts.size(); ++p)
        for (int node : model.parts[p]) truth.partOf[(size_t) node] = (int) p;
    truth.crd.resize(3 * (size_t) model.nNodes);
    for (int node = 0; node < model.nNodes; ++node) model.crd(node, &truth.crd[3 * (size_t) node]);

    const auto add = [&](int dim, auto value) {
        truth.dims.push_back(dim);
        truth.values.emplace_back();
        for (int node = 0; node < model.nNodes; ++node)
            for (int c = 0; c < dim; ++c) truth.values.back().push_back(value(c, node));
    };
    for (int v = 0; v < soak::N_VARS; ++v)
        add(model.vars[(size_t) v].dim, [&](int c, int node) { return model.value(v, c, node, 0); });
    const tool::FamSpec &fam = spec.families[0];
    for (int row : tool::famVars(fam))
        add(tool::famDim(model, fam, row),
            [&](int c, int node) { return tool::famValue(model, fam, row, c, node, 0); });
    return truth;
}

using StepOfRun = std::pair<int, int>;

/* One form's reading */
struct Soak {
    Form        form;
    Truth       truth;
    std::string dir;
    rdbHd      *hd = nullptr;
    bool        ended = false;                        /* the writer has: nothing may fail */
    std::map<StepOfRun, int>        finals = {};      /* the last generation of each step, when it has       */
    std::map<std::vector<int>, int> seen = {};        /* the newest that was read, of family, run, step, part */
    std::vector<double>             buffer = {};
};
static Soak *soaking;

static bool must(const char *what, int ok)
{
    if (!ok && soaking->ended) complain("%s fails although nobody writes: %s", what, rdbGetError());
    return ok;
}

/* Are the rows of each part of one writing of the step, and of none older than was seen before? */
static void judge(int family, int var, int run, int step, const double *data)
{
    Soak                      *s = soaking;
    const size_t               v = (size_t) (family * soak::N_VARS + var), dim = (size_t) s->truth.dims[v];
    const std::vector<double> &bare = s->truth.values[v];
    const double               base = soak::offsetOf(run, step, 0);
    double                     found[2] = {-1, -1};
    ++count.arrays;
    for (size_t i = 0; i < bare.size(); ++i) {
        const int    part = run % 2 ? s->truth.partOf[i / dim] : 0;
        const double generation = data[i] - bare[i] - base;
        if (found[part] < 0) found[part] = generation;
        if (generation == found[part] && generation >= 0 && generation < soak::MOST && generation == (int) generation)
            continue;
        complain("family %s variable %d run %d step %d part %d: value %zu is %.17g, generation %g behind %g",
                 families[family], var, run, step, part, i, data[i], generation, found[part]);
        return;
    }
    count.values += (long) bare.size();
    for (int part = 0; part < (run % 2 ? 2 : 1); ++part) {
        int &newest = s->seen[{family, run, step, part}];
        if ((int) found[part] < newest)
            complain("family %s run %d step %d part %d: generation %g after %d", families[family], run, step, part,
                     found[part], newest);
        newest = std::max(newest, (int) found[part]);
        if (s->ended && (int) found[part] != (s->finals[{run, step}]))
            complain("family %s run %d step %d part %d: generation %g is not the last, %d", families[family], run, step,
                     part, found[part], s->finals[{run, step}]);
    }
}

/* ---- reading ---- */

static void key(char *text, const char *format, const char *family) { snprintf(text, 64, format, family); }

/* "Out" as keys begin with it */
static const char *stem(int family) { return family ? "ora" : "out"; }

static int nSteps(int family)
{
    char name[64];
    int  n = 0;
    key(name, "n%sSteps", families[family]);
    return must(name, tryTo([&] { return rdbGetInt0(soaking->hd, name, &n); })) ? n : 0;
}

/* Step i of a family: its number, its time, and one variable */
static void readStep(int run, int family, int i, int var)
{
    Soak  *s = soaking;
    char   name[64];
    int    step = -1, n = 0;
    double time = -1;
    key(name, "%sStep", stem(family));
    if (!must(name, tryTo([&] { return rdbGetInt1(s->hd, name, &step, i); }))) return;
    if (step < 0 || step >= soak::MOST) return complain("%s %d is %d", name, i, step);
    key(name, "%sTime", stem(family));
    if (must(name, tryTo([&] { return rdbGetReal1(s->hd, name, &time, i); }))) {
        ++count.times;
        if (time != s->truth.timeInc * step) complain("%s of step %d is %.17g", name, step, time);
    }
    key(name, "n%sVars", families[family]);
    if (!must(name, tryTo([&] { return rdbGetInt0(s->hd, name, &n); }))) return;
    if (n != soak::N_VARS) return complain("%s is %d", name, n);
    const int dim = s->truth.dims[(size_t) (family * soak::N_VARS + var)];
    s->buffer.assign((size_t) (dim * s->truth.nNodes), -77);
    double *data = s->buffer.data();
    key(name, "%sValues", stem(family));
    if (must(name, tryTo([&] { return rdbGetReals2(s->hd, name, data, var, i, dim, s->truth.nNodes); })))
        judge(family, var, run, step, data);
}

static void readMesh()
{
    Soak *s = soaking;
    s->buffer.assign(s->truth.crd.size(), -77);
    double *data = s->buffer.data();
    if (!must("crd", tryTo([&] { return rdbGetReals0(s->hd, "crd", data, 3, s->truth.nNodes); }))) return;
    count.values += (long) s->truth.crd.size();
    if (s->buffer != s->truth.crd) complain("crd is wrong");
}

/* The log of time steps: as far as it goes, from the first step on */
static void readLog()
{
    Soak  *s = soaking;
    int    n = 0, steps[soak::MOST];
    double times[soak::MOST];
    if (!must("nSteps", tryTo([&] { return rdbGetInt0(s->hd, "nSteps", &n); }))) return;
    if (n < 0 || n > soak::MOST) return complain("nSteps is %d", n);
    if (!must("steps", tryTo([&] { return rdbGetInts0(s->hd, "steps", steps, n, -1); }))) return;
    if (!must("times", tryTo([&] { return rdbGetReals0(s->hd, "times", times, n, -1); }))) return;
    ++count.logs;
    for (int i = 0; i < n; ++i)
        if (steps[i] != i || times[i] != s->truth.timeInc * i)
            return complain("log entry %d of %d is step %d time %.17g", i, n, steps[i], times[i]);
}

/* 1 if the run is what it should be as a whole. A table of contents that is still being written tells of a part of it,
   which is no failure: what is not told yet is not there yet. */
static int openRun(int run)
{
    Soak *s = soaking;
    int   n = -1, nSds = -1;
    ++count.opens;
    if (!must("rdbOpenRun", tryTo([&] { return rdbOpenRun(s->hd, run); }))) return 0;
    if (!must("nNodes", tryTo([&] { return rdbGetInt0(s->hd, "nNodes", &n); }))) return 0;
    if (!must("nSds", tryTo([&] { return rdbGetInt0(s->hd, "nSds", &nSds); }))) return 0;
    if (n == s->truth.nNodes && nSds == 2) return 1;
    if (s->ended || n * nSds != 0) complain("run %d has %d nodes and %d subdomains", run, n, nSds);
    ++count.failures["(the run is not told of in full yet)"];
    return 0;
}

static int newestRun()
{
    int n = 0, run = -1;
    if (!must("nRuns", tryTo([&] { return rdbGetInt0(soaking->hd, "nRuns", &n); })) || n < 1) return 0;
    return must("runId", tryTo([&] { return rdbGetInt1(soaking->hd, "runId", &run, n - 1); })) ? run : 0;
}

static int update()
{
    int flag = 0;
    ++count.updates;
    const int ok = must("rdbUpdate", tryTo([&] { return rdbUpdate(soaking->hd, &flag); }));
    count.changes += ok && flag;
    return ok;
}

/* One look at what is there; 0 if anything failed */
static void lookOnce()
{
    static int run;
    Soak *s = soaking;
    if (!s->hd) {
        run = 0;
        rdbHd *volatile made = nullptr;
        const char *dir = s->dir.c_str();
        tryTo([&] { return (made = rdbNew("flow", dir, nullptr, 0)) != nullptr; });
        s->hd = made;
        if (!made) return;
    }
    update();
    const int newest = newestRun();
    if (newest < 1) return;
    if (run != newest || below(6) == 0) {
        run = 0;
        if (!openRun(newest)) return;
        run = newest;
    }
    if (below(8) == 0) readMesh();
    if (below(3) == 0) readLog();
    const int family = below(2), n = nSteps(family);
    if (n < 1) return;
    for (int k = 1 + below(3); k > 0; --k) {
        const int back = below(2) ? 0 : below(n);          /* mostly the newest */
        readStep(run, family, n - 1 - back, below(soak::N_VARS));
    }
}

/* ---- when nobody writes ---- */

/* All of a run that is open */
static void readAll(int run, int nWritten)
{
    readMesh();
    for (int family = 0; family < 2; ++family) {
        const int n = nSteps(family);
        if (n != nWritten) complain("run %d has %d steps of %s and not %d", run, n, families[family], nWritten);
        for (int i = 0; i < n; ++i)
            for (int var = 0; var < soak::N_VARS; ++var) readStep(run, family, i, var);
    }
}

static void checkLog(int run, int nWritten)
{
    int n = -1;
    readLog();
    if (must("nSteps", tryTo([&] { return rdbGetInt0(soaking->hd, "nSteps", &n); })) && n != nWritten)
        complain("the log of run %d has %d steps and not %d", run, n, nWritten);
}

/* A run that nobody writes, in the same process */
static rdbHd *calm;

static void checkCalm()
{
    static double data[3 * 10000];
    Soak *s = soaking;
    s->ended = true;
    rdbHd *const busy = s->hd;
    s->hd = calm;
    const int dim = s->truth.dims[0], nNodes = s->truth.nNodes;
    s->finals[{9, 3}] = 0;
    if (must("calm outValues", tryTo([&] { return rdbGetReals2(calm, "outValues", data, 0, 0, dim, nNodes); })))
        judge(0, 0, 9, 3, data);
    s->hd = busy;
    s->ended = false;
}

static void openCalm(const std::string &dir, Form form)
{
    tool::RunSpec spec = soak::specOf(dir, form, 9);
    spec.steps = {3};
    spec.offset = soak::offsetOf(9, 3, 0);
    tool::writeRun(spec);
    const char *name = dir.c_str();
    if (!tryTo([&] { return (calm = rdbNew("flow", name, nullptr, 0)) && rdbOpenRun(calm, 9); })) {
        printf("no calm database\n");
        exit(1);
    }
}

/* ---- the writer ---- */

static void startWriter(const std::vector<std::string> &words)
{
    std::vector<char *> argv;
    for (const std::string &word : words) argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);
    int ends[2];
    posix_spawn_file_actions_t actions;
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    if (posix_spawn(&writer.pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) writer.pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    writer.out = fdopen(ends[0], "r");
}

/* What the writer has told of itself */
static void readReport(int status, long total[2], double *longest)
{
    char line[256];
    int  run, step, generation, done = 0;
    long nWritten, nRewritten;
    double stall;
    while (fgets(line, sizeof line, writer.out)) {
        if (sscanf(line, "step %d %d %d", &run, &step, &generation) == 3) soaking->finals[{run, step}] = generation;
        if (sscanf(line, "done %ld %ld %lf", &nWritten, &nRewritten, &stall) != 3) continue;
        done = 1;
        total[0] += nWritten;
        total[1] += nRewritten;
        *longest = std::max(*longest, stall);
    }
    fclose(writer.out);
    if (!done || status != 0) complain("the writer failed: status %x", (unsigned) status);
}

/* ---- a form ---- */

struct Wanted {
    std::string form = "all";
    int         seed = 1, nRuns = 2, nSteps = 6;
    double      seconds = 0;
};

/* One writer from its beginning to its end */
static void soakOnce(const Wanted &wanted, const tool::FormRow &form, int seed, long total[2], double *longest)
{
    const fs::path home = fs::absolute("soakFolder." + std::string(form.word));
    fs::remove_all(home);
    for (const char *name : {"run", "scratch", "calm"}) fs::create_directories(home / name);

    Soak s = {form.value, truthOf(form.value), (home / "run").string()};
    soaking = &s;
    dice.seed((unsigned) seed);
    openCalm((home / "calm").string(), form.value);

    const std::string clock = (home / "clock").string();
    writer.ticks = soak::sharedClock(clock);
    startWriter({SOAK_WRITER, form.word, s.dir, (home / "scratch").string(), clock, std::to_string(seed),
                 std::to_string(wanted.nRuns), std::to_string(wanted.nSteps)});
    if (writer.pid < 0) return complain("no writer");
    while (!writerHasEnded()) {
        const std::map<std::string, long> before = count.failures;
        lookOnce();
        if (count.failures != before) checkCalm();
    }
    int status = 0;
    waitpid(writer.pid, &status, 0);
    writer.pid = -1;
    munmap(writer.ticks, sizeof *writer.ticks);
    writer.ticks = nullptr;
    readReport(status, total, longest);

    /* the handle that saw it all come, first as it is and then run by run; then a new one */
    s.ended = true;
    for (int fresh = 0; fresh < 2; ++fresh) {
        const char *dir = s.dir.c_str();
        if (!s.hd && !must("rdbNew", tryTo([&] { return (s.hd = rdbNew("flow", dir, nullptr, 0)) != nullptr; }))) break;
        update();
        int open = 0;
        if (!fresh && newestRun() == wanted.nRuns && tryTo([&] { return rdbGetInt0(s.hd, "nNodes", &open); }))
            readAll(wanted.nRuns, wanted.nSteps);
        for (int run = 1; run <= wanted.nRuns; ++run) {
            if (!openRun(run)) continue;
            readAll(run, wanted.nSteps);
            if (fresh) checkLog(run, wanted.nSteps);
        }
        rdbFree(s.hd);
        s.hd = nullptr;
    }
    rdbFree(calm);
    if (!count.wrong) fs::remove_all(home);
}

static void soakForm(const Wanted &wanted, const tool::FormRow &form)
{
    const double from = now();
    long   total[2] = {0, 0};
    double stall = 0;
    int    seed = wanted.seed, rounds = 0;
    count = {};
    do {
        soakOnce(wanted, form, seed++, total, &stall);
        ++rounds;
    } while (!count.wrong && now() - from < wanted.seconds);

    printf("%s: %d rounds in %.1f s\n", form.word, rounds, now() - from);
    printf("  steps written %ld, rewritten %ld; longest write %.3f s\n", total[0], total[1], stall);
    printf("  updates %ld (%ld saw a change), runs opened %ld, arrays %ld, times %ld, logs %ld, values judged %ld\n",
           count.updates, count.changes, count.opens, count.arrays, count.times, count.logs, count.values);
    printf("  seconds waited for the writer %ld; longest call %.3f s\n", count.retries, count.longest);
    for (const auto &failure : count.failures) printf("  %6ld  %s\n", failure.second, failure.first.c_str());
    printf("  wrong: %ld\n", count.wrong);
    fflush(stdout);
}

int main(int argc, char **argv)
{
    Wanted wanted;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string word = argv[i];
        if (word == "--form") wanted.form = argv[i + 1];
        else if (word == "--seconds") wanted.seconds = atof(argv[i + 1]);
        else if (word == "--seed") wanted.seed = atoi(argv[i + 1]);
        else if (word == "--runs") wanted.nRuns = atoi(argv[i + 1]);
        else if (word == "--steps") wanted.nSteps = atoi(argv[i + 1]);
        else {
            fprintf(stderr, "usage: soak [--form WORD|all] [--seconds N] [--seed N] [--runs N] [--steps N]\n");
            return 2;
        }
    }
    sysSetSleeper(shortSleep);
    long wrong = 0, forms = 0;
    for (const tool::FormRow &form : tool::formRows) {
        if (wanted.form != "all" && wanted.form != form.word) continue;
        soakForm(wanted, form);
        wrong += count.wrong;
        ++forms;
    }
    return wrong || !forms;
}
