/* testExt.cpp: the extended list, one flat list of all that a run knows at its nodes, and values at an output step. */

#include <algorithm>
#include <climits>
#include <filesystem>

#include "test/rdb/gradRun.h"
#include "tool/runWriter.h"

/* ------------------------------------------------------------------------------------------------ families of steps */

struct ExtVar { const char *name, *key; int dim; };
struct ExtFam {
    const char *stem, *prefix;
    bool hasIndex;                                    /* the header tells "outIndx"                  */
    std::vector<ExtVar> vars;                         /* the first rows of its table                 */
};

/* In the order of the list */
static const std::vector<ExtFam> &families()
{
    static const std::vector<ExtFam> all = {
        { "ora", "running_ave_",     false, { { "velocity", "vel", 3 }, { "pressure", "pres", 1 } } },
        { "odq", "",                 false, { { "density", "densVec", 1 }, { "viscosity", "viscVec", 1 } } },
        { "onr", "residual_",        false, { { "velocity", "vel", 3 } } },
        { "oee", "error_estimator_", true,  { { "volume", "vol", 1 }, { "covariant_metric", "covar", 6 } } },
        { "oae", "time_ave_error_",  true,  { { "volume", "vol", 1 } } },
        { "ota", "time_ave_",        false, { { "velocity", "vel", 3 }, { "pressure", "pres", 1 } } },
    };
    return all;
}

static Reals valuesOf(const ExtFam &fam, size_t var, int step, int nNodes)
{
    Reals values;
    for (int i = 0; i < nNodes * fam.vars[var].dim; ++i)
        values.push_back(fam.stem[1] * 1000 + fam.stem[2] * 10 + step + 0.25 * (double) var + i / 64.);
    return values;
}

static void writeFam(const GradRun &run, const ExtFam &fam, int step)
{
    tool::TokenFile f("p.1_" + std::to_string(step) + "_0." + fam.stem, run.form);
    f.keyReal("time", step * 0.25);
    if (fam.hasIndex) f.keyInt("outIndx", 0);
    f.keyInt("mask", (1 << fam.vars.size()) - 1);
    f.keyInt("nSpecs", run.nSpecs);
    f.keyInt("nFields", 0);
    f.keyInt("nNodes", run.nNodes());
    for (size_t v = 0; v < fam.vars.size(); ++v) {
        const int   dim = fam.vars[v].dim;
        const Reals all = valuesOf(fam, v, step, run.nNodes());
        Reals       rows;
        for (int node : run.partNodes)
            rows.insert(rows.end(), all.begin() + node * dim, all.begin() + (node + 1) * dim);
        f.keyReals(fam.vars[v].key, dim, run.nNodes(), dataOf(rows));
    }
}

/* Output at steps 10, 20, 30; the families at 20 and 40 */
static GradRun extRun()
{
    GradRun run(HEX, 2);
    run.steps = { 10, 20, 30 };
    run.writeDdc();                                   /* tells the rows of a part */
    return run;
}

static Reals atStep(OpenRun *open, const char *fam, int var, int outIdx, int dim)
{
    Reals to((size_t) open->hd->run->nNodes * (size_t) dim, -77);
    checkAnswers(rdbGetOutStepValues(open->hd, fam, to.data(), var, outIdx, open->hd->run->nNodes, dim));
    return to;
}

/* ----------------------------------------------------------------------------------------- values at an output step */

TEST(ext, valuesAtAnOutputStep)
{
    for (const auto &f : smallForms) {
        SCOPED_TRACE(f.name);
        GradRun run = extRun();
        run.form = f.form;
        for (const ExtFam &fam : families()) writeFam(run, fam, 20), writeFam(run, fam, 40);
        {
            OpenRun open(run);
            for (const ExtFam &fam : families())
                for (size_t v = 0; v < fam.vars.size(); ++v) {
                    SCOPED_TRACE(fam.stem);
                    const int dim = fam.vars[v].dim;
                    EXPECT_EQ(atStep(&open, fam.stem, (int) v, 1, dim), valuesOf(fam, v, 20, run.nNodes()));
                    /* a step that the family lacks, before its first and between two: zeros */
                    EXPECT_EQ(atStep(&open, fam.stem, (int) v, 0, dim), Reals((size_t) run.nNodes() * dim, 0));
                    EXPECT_EQ(atStep(&open, fam.stem, (int) v, 2, dim), Reals((size_t) run.nNodes() * dim, 0));
                }
        }
        for (int step : run.steps) remove(("p.1_" + std::to_string(step) + "_0.out" + run.suffix()).c_str());
        for (const ExtFam &fam : families())
            for (int step : { 20, 40 })
                remove(("p.1_" + std::to_string(step) + "_0." + fam.stem + run.suffix()).c_str());
        remove(("p.1.ddc" + run.suffix()).c_str());
    }
}

TEST(ext, familiesWithoutStepsAreZero)
{
    const GradRun run = extRun();
    OpenRun       open(run);
    for (const ExtFam &fam : families()) EXPECT_EQ(atStep(&open, fam.stem, 0, 1, 3), Reals(run.nNodes() * 3, 0));
}

/* The auxiliary variables of a family have its steps, and values of their own, of which this one has none */
TEST(ext, auxiliaryVariablesAtAnOutputStep)
{
    const GradRun run = extRun();
    writeFam(run, families()[1], 20);
    OpenRun open(run);
    EXPECT_EQ(atStep(&open, "odqAux", 0, 0, 1), Reals(run.nNodes(), 0));
    Reals to(run.nNodes());
    checkFails("Function <rdb_odqAuxValues>", rdbGetOutStepValues(open.hd, "odqAux", to.data(), 0, 1, run.nNodes(), 1));
}

TEST(ext, unknownSteps)
{
    const GradRun run = extRun();
    OpenRun       open(run);
    Reals         to(run.nNodes(), -77);
    checkRefused("index1 (3) is out of range [0,2]",
                 rdbGetOutStepValues(open.hd, "ora", to.data(), 0, 3, run.nNodes(), 1));
    EXPECT_EQ(to, Reals(run.nNodes(), 0));
    checkRefused("nNoneSteps not found", rdbGetOutStepValues(open.hd, "none", to.data(), 0, 0, run.nNodes(), 1));
}

/* --------------------------------------------------------------------------------------------------------- the list */

struct Entry { std::string name; int dim; };

static std::vector<Entry> listOf(OpenRun *open)
{
    std::vector<Entry> list;
    int                n = -1;
    checkAnswers(rdbGetInt0(open->hd, "nOutExtVars", &n));
    for (int i = 0; i < n; ++i) {
        char name[SYS_TEXT];
        int  dim = -1;
        checkAnswers(rdbGetStr1(open->hd, "outExtVarName", name, i));
        checkAnswers(rdbGetInt1(open->hd, "outExtVarDim", &dim, i));
        list.push_back({ name, dim });
    }
    return list;
}

/* The list of a run with velocity, pressure, temperature and species, and some of the families */
static std::vector<Entry> expectedList(const GradRun &run, const std::vector<ExtFam> &fams)
{
    std::vector<Entry> list = {
        { "velocity", 3 }, { "pressure", 1 }, { "temperature", 1 }, { "species", run.nSpecs },
        { "grad_velocity", 9 }, { "grad_pressure", 3 }, { "grad_temperature", 3 }, { "grad_species", 3 * run.nSpecs },
        { "volume", 1 }, { "strain_rate_invariant_2", 1 }, { "velocity_magnitude", 1 }, { "vorticity", 3 },
    };
    for (const ExtFam &fam : fams)
        for (const ExtVar &var : fam.vars) list.push_back({ std::string(fam.prefix) + var.name, var.dim });
    return list;
}

static void checkList(const std::vector<Entry> &got, const std::vector<Entry> &expected)
{
    ASSERT_EQ(got.size(), expected.size());
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].name, expected[i].name) << i;
        EXPECT_EQ(got[i].dim, expected[i].dim) << expected[i].name;
    }
}

TEST(ext, list)
{
    const GradRun run = extRun();
    for (const ExtFam &fam : families()) writeFam(run, fam, 20);
    OpenRun open(run);
    checkList(listOf(&open), expectedList(run, families()));
    checkList(listOf(&open), expectedList(run, families()));          /* built once, asked often */
    char name[SYS_TEXT];
    int  dim;
    checkRefused("index1 (22) is out of range [0,21]", rdbGetStr1(open.hd, "outExtVarName", name, 22));
    checkRefused("index1 (-1) is out of range [0,21]", rdbGetInt1(open.hd, "outExtVarDim", &dim, -1));
}

/* What a run lacks takes no place: what stands behind it moves up */
TEST(ext, listWithoutAFamily)
{
    for (size_t without = 0; without < families().size(); ++without) {
        SCOPED_TRACE(families()[without].stem);
        const GradRun       run = extRun();
        std::vector<ExtFam> fams = families();
        fams.erase(fams.begin() + (long) without);
        for (const ExtFam &fam : fams) writeFam(run, fam, 20);
        OpenRun open(run);
        checkList(listOf(&open), expectedList(run, fams));
        for (const ExtFam &fam : fams) remove((std::string("p.1_20_0.") + fam.stem + run.suffix()).c_str());
    }
}

TEST(ext, listWithoutVelocity)
{
    GradRun run = extRun();
    run.mask = 2;
    OpenRun open(run);
    checkList(listOf(&open), { { "pressure", 1 }, { "grad_pressure", 3 }, { "volume", 1 } });
}

TEST(ext, listWithoutSteps)
{
    GradRun run = extRun();
    run.steps.clear();
    OpenRun open(run);
    checkList(listOf(&open), { { "volume", 1 } });
}

/* A source that fails leaves no list behind: it is made anew when next asked for */
TEST(ext, listAfterAFailure)
{
    const GradRun run = extRun();
    testWrite("p.1_20_0.ora.B", "what is no file of results");
    OpenRun open(run);
    int     n;
    EXPECT_NE(trapped([&] { rdbGetInt0(open.hd, "nOutExtVars", &n); }), "");
    writeFam(run, families()[0], 20);
    checkList(listOf(&open), expectedList(run, { families()[0] }));
}

/* Each entry has the values of its source */
TEST(ext, values)
{
    const GradRun run = extRun();
    for (const ExtFam &fam : families()) writeFam(run, fam, 20);
    OpenRun open(run);
    for (int s = 0; s < 3; ++s) {
        int at = 0;
        for (int i = 0; i < 4; ++i, ++at)
            EXPECT_EQ(open.ask("outExtValues", at, run.dim(i), s), open.ask("outValues", i, run.dim(i), s));
        for (int i = 0; i < 4; ++i, ++at)
            EXPECT_EQ(open.ask("outExtValues", at, 3 * run.dim(i), s), open.gradient(i, run.dim(i), s));
        for (int i = 0; i < 4; ++i, ++at) {
            const int dim = i == 3 ? 3 : 1;
            EXPECT_EQ(open.ask("outExtValues", at, dim, s), open.ask("outAuxValues", i, dim, s));
        }
        for (const ExtFam &fam : families())
            for (size_t v = 0; v < fam.vars.size(); ++v, ++at) {
                const int dim = fam.vars[v].dim;
                EXPECT_EQ(open.ask("outExtValues", at, dim, s),
                          s == 1 ? valuesOf(fam, v, 20, run.nNodes()) : Reals((size_t) run.nNodes() * dim, 0))
                    << fam.stem;
            }
        double one;
        checkRefused("index1 (22) is out of range [0,21]", rdbGetReals2(open.hd, "outExtValues", &one, at, s, 1, 1));
    }
    double one;
    checkRefused("index2 (3) is out of range [0,2]", rdbGetReals2(open.hd, "outExtValues", &one, 0, 3, 1, 1));
    checkRefused("outExtValues requires dimension of 9x27 not 9x26",
                 rdbGetReals2(open.hd, "outExtValues", &one, 4, 0, 9, 26));
}

/* ------------------------------------------------------------------------------------------- sets at the nodes */

/* In the order of the list */
static const struct SetSource { const char *ext, *stem, *prefix; } setSources[] = {
    { "osf", "osf", "surface_" }, { "orf", "rsf", "radiation_" }, { "oqf", "srs", "solar_" },
};

/* Run 1 of "pipe": steps 9 and 10, at times 1.125 and 1.25, both in the log; the solver takes the middle of a step */
struct SetRun {
    tool::RunModel model;
    rdbHd         *hd = nullptr;

    static tool::RunSpec spec()
    {
        tool::RunSpec spec;
        spec.dataDir = ".";
        spec.nx = 4;
        spec.ny = spec.nz = 2;
        spec.nVols = spec.nSds = 2;
        spec.scattered = true;
        spec.setSteps(2, 9, 1);
        spec.nSpecs = 2;
        spec.nFields = 3;
        spec.top = true;
        for (const SetSource &source : setSources) spec.setFamilies.push_back({ source.ext });
        return spec;
    }

    explicit SetRun(const std::function<void()> &change = nullptr,
                    const std::function<void(tool::RunModel *)> &shape = nullptr)
        : model(spec())
    {
        if (shape) shape(&model);
        tool::writeRun(model);
        if (change) change();
        int ok = 0;
        checkReturns(hd = rdbNew("pipe", ".", nullptr, 0); ok = hd && rdbOpenRun(hd, 1));
        EXPECT_TRUE(ok) << rdbGetError();
    }
    ~SetRun()
    {
        checkReturns(if (hd) rdbFree(hd));
        for (const auto &entry : std::filesystem::directory_iterator(".")) std::filesystem::remove_all(entry.path());
    }
    SetRun(const SetRun &) = delete;

    const tool::SetFamSpec &fam(int f) const { return model.spec.setFamilies[f]; }

    Reals ask(int f, int var, int outIdx)
    {
        const int dim = setOutDim(model, fam(f), var);
        Reals     to((size_t) model.nNodes * (size_t) dim, -77);
        checkAnswers(rdbGetSetValuesAtNodes(hd, setSources[f].stem, to.data(), var, outIdx, model.nNodes, dim));
        return to;
    }

    /* The samples of steps 0 and 1 with these weights: of variable 0 the sum over sets, else its mean by area */
    Reals expected(int f, int var, double w0, double w1) const
    {
        const int dim = setOutDim(model, fam(f), var);
        Reals     sums((size_t) model.nNodes * (size_t) dim), areas(model.nNodes);
        for (int set = 0; set < nSetOutSets(model, fam(f)); ++set)
            for (int step = 0; step < 2; ++step)
                for (int node : setOutNodes(model, fam(f), set)) {
                    double w = step == 0 ? w0 : w1;
                    if (var != 0) areas[node] += w *= setOutValue(model, fam(f), set, 0, 0, node, step);
                    for (int k = 0; k < dim; ++k)
                        sums[node * dim + k] += w * setOutValue(model, fam(f), set, var, k, node, step);
                }
        for (int i = 0; i < model.nNodes * dim; ++i)
            if (areas[i / dim] != 0) sums[i] /= areas[i / dim];
        return sums;
    }
    void check(int f, int var, int outIdx, double w0, double w1)
    {
        const Reals got = ask(f, var, outIdx), right = expected(f, var, w0, w1);
        int         nWrong = 0, nSet = 0;
        for (size_t i = 0; i < got.size(); ++i) {
            nWrong += !(fabs(got[i] - right[i]) <= 1e-12 * fabs(right[i]));
            nSet += right[i] != 0;
        }
        EXPECT_EQ(nWrong, 0) << setSources[f].stem << " " << setOutName(fam(f), var) << " at " << outIdx;
        EXPECT_EQ(nSet > 0, w0 + w1 > 0);
    }
};

TEST(extSets, sumsOfAreasAndMeansByArea)
{
    SetRun run;
    for (int f = 0; f < 2; ++f)
        for (int var : setOutVars(run.fam(f))) {
            run.check(f, var, 0, 1, 0);
            run.check(f, var, 1, 0, 1);
        }
}

TEST(extSets, anOutputStepThatNoSetHas)
{
    SetRun run([] {
        for (const auto &entry : std::filesystem::directory_iterator("."))
            if (entry.path().string().find("_10_") != std::string::npos &&
                entry.path().string().find(".out") == std::string::npos) std::filesystem::remove(entry.path());
    });
    for (int f = 0; f < 2; ++f) {
        run.check(f, 0, 1, 0, 0);
        run.check(f, 1, 1, 0, 0);
        run.check(f, 1, 0, 1, 0);
    }
}

/* The sun at 1.0625, before its first sample, and at 1.1875, in the middle between two */
TEST(extSets, solarSamplesAreTakenInTime)
{
    SetRun run;
    for (int var : { 0, 1 }) {
        run.check(2, var, 0, 1, 0);
        run.check(2, var, 1, 0.5, 0.5);
    }
}

TEST(extSets, solarTimeBehindTheLastSample)
{
    SetRun run([] {
        for (const auto &entry : std::filesystem::directory_iterator("."))
            if (entry.path().string().find(".1_10_") != std::string::npos &&
                entry.path().string().find(".oqf") != std::string::npos) std::filesystem::remove(entry.path());
    });
    for (int var : { 0, 1 }) run.check(2, var, 1, 1, 0);
}

static void writeLog(const std::vector<LogStep> &log)
{
    tool::TokenFile f("pipe.1.top", tool::Form::binary);
    for (const LogStep &entry : log) {
        f.keyInt("tsId", entry.step);
        f.keyReal("timeInc", entry.timeInc);
        f.keyReal("time", entry.step * 0.125);
    }
}

/* The solver took the sun at the part alpha of its step */
static void writeAlpha(const std::string &alpha)
{
    std::string       text = testRead("pipe.1.cli");
    const std::string line = "alpha 0.5 alphaMass";
    const size_t      at = text.find(line);
    ASSERT_NE(at, std::string::npos);
    testWrite("pipe.1.cli", text.replace(at, line.size(), "alpha " + alpha + " alphaMass"));
}

/* Between its two samples, the sun at the second step weighs by how near it is to each. How long the step is stands in
   the log at the number of the step less that of the log's first step, whatever number stands there. */
TEST(extSets, solarSamplesWeighByTheirDistance)
{
    const double far = 1000;                          /* so long before the step that the first sample would count */
    static const struct { const char *alpha; double w0, w1; } alphas[] = {
        { "0", 1, 0 }, { "0.25", 0.75, 0.25 }, { "0.75", 0.25, 0.75 }, { "1", 0, 1 },
    };
    const std::vector<std::vector<LogStep>> logs = {
        { { 9, far }, { 10, 0.125 } },
        { { 1, far }, { 2, far }, { 3, far }, { 4, far }, { 5, far }, { 6, far }, { 7, far }, { 8, far }, { 9, far },
          { 10, 0.125 }, { 11, far } },
        { { 5, far }, { 8, far }, { 9, far }, { 10, far }, { 11, far }, { 12, 0.125 }, { 13, far } },
    };
    for (const auto &log : logs)
        for (const auto &row : alphas) {
            SCOPED_TRACE(std::string("alpha ") + row.alpha + ", log from " + std::to_string(log[0].step));
            SetRun run([&] { writeLog(log), writeAlpha(row.alpha); });
            for (int var : { 0, 1 }) {
                run.check(2, var, 0, 1, 0);
                run.check(2, var, 1, row.w0, row.w1);
            }
        }
}

/* A log that ends before it tells how long the output step is, or that lies too far behind it */
TEST(extSets, solarTimeOfAStepBehindTheLog)
{
    static const struct { int first; const char *text; } rows[] = {
        { 5,       "index1 (4) is out of range [0,1]" },
        { 0,       "index1 (9) is out of range [0,1]" },
        { INT_MIN, "index1 (2147483647) is out of range [0,1]" },
    };
    for (const auto &row : rows) {
        SetRun run([&] { writeLog({ { row.first, 1 }, { row.first + 1, 1 } }); });
        double to[1000];
        ASSERT_LE(run.model.nNodes, 1000);
        checkRefused(row.text, rdbGetSetValuesAtNodes(run.hd, "srs", to, 0, 0, run.model.nNodes, 1));
    }
}

/* The sun on two sets that share nodes, and each sampled at both times: the areas add up, the rest is their mean */
TEST(extSets, solarSetsThatShareNodes)
{
    int nShared = 0;
    SetRun run([] { writeAlpha("0.25"); }, [](tool::RunModel *model) {
        const tool::Group first = model->srss.at(0);
        for (size_t s = 0; s < model->sfss.size() && model->srss.size() < 2; ++s)
            if ((int) s != first.members[0] && model->sfss[s].type == model->sfss[first.members[0]].type &&
                model->sfss[s].vol == model->sfss[first.members[0]].vol)
                model->srss.push_back({ "sun on another side", { (int) s }, first.elm });
    });
    ASSERT_EQ(nSetOutSets(run.model, run.fam(2)), 2);
    for (int node : setOutNodes(run.model, run.fam(2), 0))
        for (int other : setOutNodes(run.model, run.fam(2), 1)) nShared += node == other;
    ASSERT_GT(nShared, 0);
    for (int var : { 0, 1 }) {
        run.check(2, var, 0, 1, 0);
        run.check(2, var, 1, 0.75, 0.25);
    }
}

/* A log that begins behind the output step does not tell how long the step is: the time is that of the output */
TEST(extSets, solarTimeOfAStepBeforeTheLog)
{
    SetRun run([] {
        tool::TokenFile f("pipe.1.top", tool::Form::binary);
        f.keyInt("tsId", 11);
        f.keyReal("timeInc", 0.125);
        f.keyReal("time", 1.375);
    });
    for (int var : { 0, 1 }) run.check(2, var, 1, 0, 1);
}

TEST(extSets, solarSetsWithoutSamples)
{
    SetRun run([] {
        for (const auto &entry : std::filesystem::directory_iterator("."))
            if (entry.path().string().find(".oqf") != std::string::npos) std::filesystem::remove(entry.path());
    });
    double to;
    int    n = -1;
    checkAnswers(rdbGetInt0(run.hd, "nSrsVars", &n));
    EXPECT_EQ(n, 0);
    checkRefused("index1 (0) is out of range [0,-1]",
                 rdbGetSetValuesAtNodes(run.hd, "srs", &to, 0, 1, 1, 1));
}

TEST(extSets, nodesThatTheMeshLacks)
{
    SetRun run([] {
        const int       ids[2] = { 1999999999, 1999999998 }, both[2] = { 0, 1 };
        tool::TokenFile f("pipe.1_0.osn", tool::Form::binary);
        f.keyInt("nSds", 2);
        f.keyInt("nNodes", 2);
        f.keyInts("usrIds", 1, 2, ids);
        for (int sd = 0; sd < 2; ++sd) {
            f.keyInt("sdId", sd);
            f.keyInt("nNodes", 2);
            f.keyInts("nodes", 1, 2, both);
            const double    area[2] = { 1, 2 };
            tool::TokenFile g("pipe.1_9_0_" + std::to_string(sd) + ".osf", tool::Form::binary);
            g.keyReal("time", 1);
            g.keyInt("mask", 1);
            g.keyInt("nSpecs", 2);
            g.keyInt("nFields", 3);
            g.keyInt("nNodes", 2);
            g.keyReals("area", 1, 2, area);
        }
    });
    Reals to(run.model.nNodes);
    checkRefused("Invalid node definition <1999999999> <0>",
                 rdbGetSetValuesAtNodes(run.hd, "osf", to.data(), 0, 0, run.model.nNodes, 1));
    EXPECT_EQ(run.hd->run->extWork.values, nullptr);
}

/* The caller says how large the answer may be: one that is larger is refused, and nothing is written behind the end */
TEST(extSets, valuesWithoutRoom)
{
    SetRun       run;
    const int    n = run.model.nNodes, momentum = 2;
    Reals        to((size_t) n * 3 + 1, -77);
    const struct { int var, rows, cols; const char *text; } cases[] = {
        { 0,        n - 1, 1, "osfValues has <1> values at <%d> nodes" },
        { momentum, n,     1, "osfValues has <3> values at <%d> nodes" },
        { momentum, n - 1, 3, "osfValues has <3> values at <%d> nodes" },
    };
    for (const auto &c : cases) {
        char text[128];
        snprintf(text, sizeof text, c.text, n);
        std::fill(to.begin(), to.end(), -77);
        checkRefused(text, rdbGetSetValuesAtNodes(run.hd, "osf", to.data(), c.var, 0, c.rows, c.cols));
        EXPECT_EQ(std::count(to.begin(), to.end(), -77), (long) to.size() - c.rows * c.cols);
    }
    checkAnswers(rdbGetSetValuesAtNodes(run.hd, "osf", to.data(), momentum, 0, n, 3));
    EXPECT_EQ(to.back(), -77);
}

/* They stand behind all others in the list, with the prefixes of their families */
TEST(extSets, list)
{
    SetRun run;
    int    n = -1, nSets = 0;
    checkAnswers(rdbGetInt0(run.hd, "nOutExtVars", &n));
    for (int f = 0; f < 3; ++f) nSets += (int) setOutVars(run.fam(f)).size();
    int at = n - nSets;
    for (int f = 0; f < 3; ++f)
        for (int var : setOutVars(run.fam(f))) {
            char      name[SYS_TEXT];
            int       dim = -1;
            const int width = setOutDim(run.model, run.fam(f), var);
            checkAnswers(rdbGetStr1(run.hd, "outExtVarName", name, at));
            checkAnswers(rdbGetInt1(run.hd, "outExtVarDim", &dim, at));
            EXPECT_EQ(name, setSources[f].prefix + std::string(setOutName(run.fam(f), var)));
            ASSERT_EQ(dim, width);
            Reals to((size_t) run.model.nNodes * (size_t) dim, -77);
            checkAnswers(rdbGetReals2(run.hd, "outExtValues", to.data(), at, 1, dim, run.model.nNodes));
            EXPECT_EQ(to, run.ask(f, var, 1)) << name;
            ++at;
        }
    EXPECT_EQ(at, n);
}
