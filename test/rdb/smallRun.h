#ifndef TEST_RDB_SMALLRUN_H
#define TEST_RDB_SMALLRUN_H

/* smallRun.h: run 1 of the problem "p" in the current folder: five nodes, three tetrahedra, a few variables. Small
 * enough that a test can say what is wrong with it by changing one member, or by writing one file anew. */

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "rdb/rdbInt.h"
#include "test/testUtil.h"
#include "tool/tokenFile.h"

/* A handle of this folder with run 1 of the problem open. The caller frees it. */
inline rdbHd *openRunOf(const char *problem)
{
    rdbHd *hd = nullptr;
    int    ok = 0;
    checkReturns(hd = rdbNew(problem, ".", nullptr, 0); ok = hd && rdbOpenRun(hd, 1));
    EXPECT_TRUE(ok) << rdbGetError();
    return hd;
}

/* The same of what the run writer writes when it is given no name */
inline rdbHd *openPipe() { return openRunOf("pipe"); }

/* The storage forms that every test of contents goes through. That the others answer the same is the business of
   testContainers.cpp. */
static const struct { const char *name; tool::Form form; } smallForms[] = {
    { "ascii",         tool::Form::ascii   },
    { "binary",        tool::Form::binary  },
    { "swapped bytes", tool::Form::swapped },
};

/* The writer wants an address even for no values */
template <class T> const T *dataOf(const std::vector<T> &v)
{
    static const T none{};
    return v.empty() ? &none : v.data();
}

/* A data file of the run: of its own, or in the container p.1.C, which it must not outlive */
class SmallFile {
    std::unique_ptr<tool::Container> box;

public:
    tool::TokenFile f;

    SmallFile(const std::string &name, tool::Form form)
        : box(form == tool::Form::container ? std::make_unique<tool::Container>("p.1", true) : nullptr),
          f(box ? tool::TokenFile(*box, name) : tool::TokenFile(name, form))
    {
    }
};

struct SmallVar { const char *key; int dim; };

struct SmallRun {
    tool::Form form = tool::Form::binary;
    bool merged = false;
    std::string extraCli;                             /* lines before END                                  */

    std::vector<int> usrIds = { 10, 11, 12, 20, 21 };
    std::vector<std::vector<int>> parts = { { 0, 1, 2 }, { 4, 2, 3 } };
    /* element sets and volumes alike: rows of user node ids */
    std::vector<std::vector<int>> sets = { { 10, 11, 12, 20, 11, 12, 20, 21 }, {}, { 10, 12, 20, 21 } };

    std::vector<int> steps = { 5 };
    int  mask = 7;
    int  masks[2] = { 0, 0 };                         /* written if the mask is -1                         */
    bool masksUpright = false;                        /* as two rows of one                                */
    int  nSpecs = 2, nFilms = 3, nFields = 4, nAoutVecs = 2;
    bool omitFilms = false, omitFields = false;
    /* what each part holds behind its header, in order: the table up to the highest one wanted */
    std::vector<SmallVar> vars = { { "vel", 3 }, { "pres", 1 }, { "temp", 1 } };

    int nNodes() const { return (int) usrIds.size(); }
    int nSds() const { return (int) parts.size(); }

    static double time(int step) { return step * 0.25; }
    static double crd(int node, int comp) { return node + comp * 0.125; }
    static double value(int step, int var, int node, int comp)
    {
        return step * 1000 + var * 100 + node * 10 + comp + 0.5;
    }

    std::string suffix() const { return tool::formSuffix(form); }

    std::string cli() const
    {
        std::string text = "#@ FMT " + std::to_string(tool::formOpt(form)) + "\n#@ NSDS " + std::to_string(nSds()) +
                           "\n#@ CRD p.1.crd" + suffix() + " nNodes " + std::to_string(nNodes()) + "\n";
        for (size_t i = 0; i < sets.size(); ++i)
            text += "#@ VOL p.1.vol" + std::to_string(i) + suffix() + " \"v" + std::to_string(i) + "\" n " +
                    std::to_string(sets[i].size() / 4) + " type 3 nen 4\n";
        for (size_t i = 0; i < sets.size(); ++i)
            text += "#@ CNN p.1.cnn" + std::to_string(i) + suffix() + " \"e" + std::to_string(i) + "\" n " +
                    std::to_string(sets[i].size() / 4) + " type 3 nen 4 quad 2 medium 1 rff 7 thick 0.25 tol 0\n" +
                    "#@ CNN.VOL \"e" + std::to_string(i) + "\" 1 \"v" + std::to_string(i) + "\"\n";
        return text + extraCli + "#@ END\n";
    }

    /* nRows and the like as told, so that a test can lie about them */
    void writeCrd(int nParts = 2, int nRows = -1, int nCols = 4) const
    {
        std::vector<double> xyz;
        for (int i = 0; i < nNodes(); ++i)
            for (int k = 0; k < 3; ++k) xyz.push_back(crd(i, k));
        SmallFile        file("p.1.crd", form);
        tool::TokenFile &f = file.f;
        f.keyInt("nParts", nParts);
        f.keyInt("nRows", nRows < 0 ? nNodes() : nRows);
        f.keyInt("nCols", nCols);
        f.keyInt("type", 1);
        f.keyInt("nCols", 1);
        f.keyInts("intVec", 1, nNodes(), dataOf(usrIds));
        f.keyInt("type", 2);
        f.keyInt("nCols", 3);
        f.keyReals("realVec", 3, nNodes(), dataOf(xyz));
    }

    /* user id of an element: 100 for the first of set 0, 200 for the first of set 1, and on from there */
    void writeSet(const char *stem, int i) const
    {
        const int n = (int) sets[i].size() / 4;
        std::vector<int> ids;
        for (int k = 0; k < n; ++k) ids.push_back(100 * (i + 1) + k);
        SmallFile        file("p.1." + std::string(stem) + std::to_string(i), form);
        tool::TokenFile &f = file.f;
        f.keyInt("nParts", 2);
        f.keyInt("nRows", n);
        f.keyInt("nCols", 5);
        f.keyInt("type", 1);
        f.keyInt("nCols", 1);
        f.keyInts("intVec", 1, n, dataOf(ids));
        f.keyInt("type", 1);
        f.keyInt("nCols", 4);
        f.keyInts("intVec", 4, n, dataOf(sets[i]));
    }

    /* colours of the elements are 0, 1, 2, ... */
    void writeDdc(const std::string &name = "p.1.ddc") const
    {
        std::vector<int> colors;
        for (const auto &set : sets)
            for (size_t k = 0; k < set.size() / 4; ++k) colors.push_back((int) colors.size());
        SmallFile        file(name, form);
        tool::TokenFile &f = file.f;
        f.keyInt("nSds", nSds());
        f.keyInt("nElems", (int) colors.size());
        f.keyInts("color", 1, (int) colors.size(), dataOf(colors));
        f.keyInt("nNodes", nNodes());
        f.keyInts("usrIds", 1, nNodes(), dataOf(usrIds));
        for (int p = 0; p < nSds(); ++p) {
            f.keyInt("sdId", p);
            f.keyInt("nNodes", (int) parts[p].size());
            f.keyInts("nodes", 1, (int) parts[p].size(), dataOf(parts[p]));
        }
    }

    void putHead(tool::TokenFile &f, int step, int nPartNodes) const
    {
        f.keyReal("time", time(step));
        f.keyInt("mask", mask);
        f.keyInt("nSpecs", nSpecs);
        if (!omitFilms) f.keyInt("nFilms", nFilms);
        if (!omitFields) f.keyInt("nFields", nFields);
        f.keyInt("nAoutVecs", nAoutVecs);
        if (mask == -1) f.keyInts("masks", masksUpright ? 1 : 2, masksUpright ? 2 : 1, masks);
        f.keyInt("nNodes", nPartNodes);
    }

    void putPart(tool::TokenFile &f, int step, int p) const
    {
        putHead(f, step, (int) parts[p].size());
        for (size_t v = 0; v < vars.size(); ++v) {
            std::vector<double> rows;
            for (int node : parts[p])
                for (int k = 0; k < vars[v].dim; ++k) rows.push_back(value(step, (int) v, node, k));
            f.keyReals(vars[v].key, vars[v].dim, (int) parts[p].size(), dataOf(rows));
        }
    }

    static std::string partName(int step, int p)
    {
        return "p.1_" + std::to_string(step) + "_" + std::to_string(p) + ".out";
    }
    static std::string mergedName(int step) { return "p.1_" + std::to_string(step) + "_x.out"; }
    std::string firstName(int step) const { return (merged ? mergedName(step) : partName(step, 0)) + suffix(); }

    void writeStep(int step) const
    {
        if (merged) {
            SmallFile file(mergedName(step), form);
            for (int p = 0; p < nSds(); ++p) putPart(file.f, step, p);
        } else {
            for (int p = 0; p < nSds(); ++p) {
                SmallFile file(partName(step, p), form);
                putPart(file.f, step, p);
            }
        }
    }

    void write() const
    {
        testWrite("p.1.cli", cli());
        writeCrd();
        for (size_t i = 0; i < sets.size(); ++i) writeSet("cnn", (int) i), writeSet("vol", (int) i);
        if (nSds() > 0) writeDdc();
        for (int step : steps) writeStep(step);
    }

    static rdbHd *open() { return openRunOf("p"); }

    rdbHd *writeAndOpen() const
    {
        write();
        return open();
    }
};

/* The expression gives 0 and this error text */
#define checkRefused(text, ...)                                                            \
    do {                                                                                   \
        int given_ = -1;                                                                   \
        rdbSetError("no text of its own");                                                 \
        checkReturns(given_ = (__VA_ARGS__));                                              \
        EXPECT_EQ(given_, 0) << #__VA_ARGS__;                                              \
        EXPECT_STREQ(rdbGetError(), text);                                                 \
    } while (0)

/* The expression gives 1 */
#define checkAnswers(...)                                                                  \
    do {                                                                                   \
        int given_ = -1;                                                                   \
        checkReturns(given_ = (__VA_ARGS__));                                              \
        EXPECT_EQ(given_, 1) << #__VA_ARGS__ << ": " << rdbGetError();                     \
    } while (0)

#endif
