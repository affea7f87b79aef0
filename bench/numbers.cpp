/* numbers.cpp: how fast numbers of a text are read: by the library from a file, and by what others would take.
 *
 *     benchNumbers [--benchmark_filter=...]
 *
 * "library" opens the file and reads all its numbers, "stepped over" moves past them; what they cost beyond a converter
 * alone is finding the tokens and bringing the file into memory. "scanf" reads the same file by stdio. The others are
 * given the file's text in memory and the place of each number. Labels are the format by which the numbers were
 * printed. The file is made in the current folder, and removed. */

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

#include "iop/iop.h"

namespace {

enum { COUNT = 300000 };

/* what solvers write: all 17 digits of a double, the 7 of a float, something shorter; ids of nodes */
const struct { const char *format; bool isInt; } kinds[] = {
    { "%.17g", false }, { "%.16e", false }, { "%.6e", false }, { "%.3f", false }, { "%.0f", true },
};

struct File {
    std::string      name, text;
    std::vector<int> starts;

    explicit File(const benchmark::State &state) : name("benchNumbers." + std::to_string(getpid()))
    {
        const auto &kind = kinds[state.range(0)];
        std::mt19937_64 dice(1);
        std::uniform_real_distribution<double> value(kind.isInt ? 1 : -10, kind.isInt ? 4e6 : 10);
        char number[64];
        for (int i = 0; i < COUNT; ++i) {
            starts.push_back(int(text.size()));
            snprintf(number, sizeof number, kind.format, value(dice));
            text += number;
            text += i % 3 == 2 ? '\n' : ' ';
        }
        FILE *fp = fopen(name.c_str(), "w");
        if (!fp || fwrite(text.data(), 1, text.size(), fp) != text.size() || fclose(fp) != 0) abort();
    }
    ~File() { remove(name.c_str()); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    void count(benchmark::State &state) const
    {
        const auto n = int64_t(state.iterations());
        state.SetItemsProcessed(n * COUNT);
        state.SetBytesProcessed(n * int64_t(text.size()));
        state.SetLabel(kinds[state.range(0)].format);
        state.counters["per_number"] = benchmark::Counter(double(n * COUNT),
                                                          benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    }
};

void library(benchmark::State &state, bool skip)
{
    const File file(state);
    std::vector<double> reals(COUNT);
    std::vector<int> ints(COUNT);
    const bool isInt = kinds[state.range(0)].isInt;
    for (auto _ : state) {
        iopHd *fh = iopOpenFile(file.name.c_str(), IOP_ASCII | IOP_READ);
        if (isInt) skip ? iopGetIntDsp(fh, COUNT) : iopGetIntF(fh, ints.data(), COUNT);
        else skip ? iopGetRealDsp(fh, COUNT) : iopGetRealF(fh, reals.data(), COUNT);
        iopCloseFile(fh);
        benchmark::ClobberMemory();
    }
    file.count(state);
}

void byScanf(benchmark::State &state)
{
    const File file(state);
    double real;
    int number;
    for (auto _ : state) {
        FILE *fp = fopen(file.name.c_str(), "r");
        int came = 0;
        while ((kinds[state.range(0)].isInt ? fscanf(fp, "%d", &number) : fscanf(fp, "%le", &real)) == 1) ++came;
        if (came != COUNT) abort();
        fclose(fp);
    }
    file.count(state);
}

/* convert(start, end of the text): anything that depends on the value */
template <class F> void converter(benchmark::State &state, F convert)
{
    const File file(state);
    const char *text = file.text.data(), *end = text + file.text.size();
    for (auto _ : state)
        for (const int start : file.starts) benchmark::DoNotOptimize(convert(text + start, end));
    file.count(state);
}

double byStrtod(const char *s, const char *) { return strtod(s, nullptr); }
long   byStrtol(const char *s, const char *) { return strtol(s, nullptr, 10); }

template <class Number> Number byFromChars(const char *s, const char *end)
{
    Number value{};
    std::from_chars(s, end, value);
    return value;
}

void allKinds(benchmark::internal::Benchmark *b)  { b->DenseRange(0, 4)->Unit(benchmark::kMillisecond); }
void realKinds(benchmark::internal::Benchmark *b) { b->DenseRange(0, 3)->Unit(benchmark::kMillisecond); }
void intKinds(benchmark::internal::Benchmark *b)  { b->Arg(4)->Unit(benchmark::kMillisecond); }

BENCHMARK_CAPTURE(library, read, false)->Apply(allKinds);
BENCHMARK_CAPTURE(library, stepped_over, true)->Apply(allKinds);
BENCHMARK(byScanf)->Apply(allKinds);
BENCHMARK_CAPTURE(converter, strtod, byStrtod)->Apply(realKinds);
#ifdef __cpp_lib_to_chars
BENCHMARK_CAPTURE(converter, from_chars, byFromChars<double>)->Apply(realKinds);
#endif
BENCHMARK_CAPTURE(converter, strtol, byStrtol)->Apply(intKinds);
BENCHMARK_CAPTURE(converter, from_chars_int, byFromChars<int>)->Apply(intKinds);

}

BENCHMARK_MAIN();
