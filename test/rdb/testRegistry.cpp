/* testRegistry.cpp: the table of keys: its inner rules, and the rows that families share. */

#include "test/rdb/smallRun.h"

#include <algorithm>
#include <map>
#include <set>

struct Row {
    int type, needsRun, nIdx, nDims;
    const char *idx[3], *dim[2];
};

class rdbRegistry : public ::testing::Test {
protected:
    rdbHd *hd = nullptr;
    std::vector<std::string> names;                  /* in the table's order */
    std::map<std::string, Row> rows;

    void SetUp() override
    {
        testWrite("p.1.cli", "");
        checkReturns(hd = rdbNew("p", ".", nullptr, 0));
        ASSERT_NE(hd, nullptr) << rdbGetError();
        int n = 0;
        char name[RDB_TEXT];
        checkAnswers(rdbGetInt0(hd, "nQueries", &n));
        for (int i = 0; i < n; ++i) {
            checkAnswers(rdbGetStr1(hd, "queryName", name, i));
            names.push_back(name);
            Row r = {};
            checkAnswers(rdbGetInfo(hd, name, &r.type, &r.needsRun, &r.nIdx, &r.nDims, &r.idx[0], &r.idx[1], &r.idx[2],
                                    &r.dim[0], &r.dim[1]));
            rows[name] = r;
        }
    }
    void TearDown() override { rdbFree(hd); }

    void checkRow(const std::string &name, int type, const std::vector<std::string> &idx,
                  const std::vector<std::string> &dim)
    {
        SCOPED_TRACE(name);
        ASSERT_EQ(rows.count(name), 1u);
        const Row &row = rows[name];
        EXPECT_EQ(row.type, type);
        EXPECT_EQ(std::vector<std::string>(row.idx, row.idx + row.nIdx), idx);
        EXPECT_EQ(std::vector<std::string>(row.dim, row.dim + row.nDims), dim);
    }
};

/* "nOsf" and what follows */
static std::string countOf(const std::string &stem, const char *what)
{
    return std::string("n") + (char) toupper(stem[0]) + stem.substr(1) + what;
}

/* The families of outputs on the run's nodes that have steps */
static const char *const nodalFamilies[] = { "out", "ora", "ota", "onr", "odq", "oae", "oee", "rst" };

/* A row that all members of a family have: of outputs on the run's nodes, or anything of a family of surface sets */
static bool isOfAFamily(const std::string &name)
{
    static const char *const ofOutputs[] = { "Step", "Steps", "Time", "Times", "Values", "VarDim", "VarName" };
    static const char *const ofSets[] = { "afs", "cbc", "dbc", "ebc", "eci", "fan", "gsf", "hec", "osf", "psf", "rsf",
                                          "sbc", "sfs", "srs", "ssi", "tws" };
    for (const std::string stem : ofSets)
        if (!name.compare(0, 3, stem) || !name.compare(0, 4, countOf(stem, ""))) return true;
    for (const std::string stem : nodalFamilies) {
        if (name == countOf(stem, "Steps") || name == countOf(stem, "Vars")) return true;
        for (const char *key : ofOutputs)
            if (name == stem + key) return true;
    }
    return false;
}

/* A client that asks for the counts of a row finds them, each one counted by no more than the row's own indices. */
TEST_F(rdbRegistry, whatCountsIsAnIntegerWithIndicesOfTheRowThatNamesIt)
{
    for (const auto &[name, row] : rows) {
        std::set<std::string> own;
        for (int k = 0; k < row.nIdx; ++k) own.insert(row.idx[k]);
        std::vector<std::string> counts(row.idx, row.idx + row.nIdx);
        counts.insert(counts.end(), row.dim, row.dim + row.nDims);
        for (const std::string &count : counts) {
            ASSERT_EQ(rows.count(count), 1u) << name << " names " << count;
            const Row &c = rows[count];
            EXPECT_EQ(c.type, RDB_INT) << name << " names " << count;
            EXPECT_LE(c.needsRun, row.needsRun) << name << " names " << count;
            for (int k = 0; k < c.nIdx; ++k)
                EXPECT_EQ(own.count(c.idx[k]), 1u) << name << ": " << count << " takes " << c.idx[k];
        }
    }
}

TEST_F(rdbRegistry, arraysAloneHaveDimensions)
{
    for (const auto &[name, row] : rows) {
        SCOPED_TRACE(name);
        const bool isArray = row.type == RDB_INTS || row.type == RDB_REALS;
        EXPECT_TRUE(isArray || row.type == RDB_STR || row.type == RDB_INT || row.type == RDB_REAL);
        EXPECT_TRUE(isArray ? row.nDims == 1 || row.nDims == 2 : row.nDims == 0);
        for (int k = 0; k < 3; ++k) EXPECT_EQ(row.idx[k] != nullptr, k < row.nIdx);
        for (int k = 0; k < 2; ++k) EXPECT_EQ(row.dim[k] != nullptr, k < row.nDims);
    }
}

TEST_F(rdbRegistry, namesAscendByBytesAndEachIsFound)
{
    ASSERT_GT(names.size(), 300u);
    for (size_t i = 0; i < names.size(); ++i) {
        if (i > 0) { EXPECT_LT(strcmp(names[i - 1].c_str(), names[i].c_str()), 0) << names[i]; }
        const rdbKeyRow *row = rdbFindKey(names[i].c_str());
        ASSERT_NE(row, nullptr) << names[i];
        EXPECT_STREQ(row->name, names[i].c_str());
        EXPECT_EQ(row->nameLen, (int) names[i].size());
        EXPECT_NE(row->getter, nullptr);
    }
    EXPECT_EQ(names.back(), "volUsrIds");
}

TEST_F(rdbRegistry, otherNamesAreNotFound)
{
    const std::string veryLong(100000, 'n');
    const char *others[] = { "", "n", "NNODES", "nnodes", "nNode", "nNodesX", "nNodes ", " nNodes", "crD", "%s%n",
                             veryLong.c_str() };
    for (const char *name : others) EXPECT_EQ(rdbFindKey(name), nullptr) << name;
    for (const std::string &name : names) {
        EXPECT_EQ(rdbFindKey((name + "x").c_str()), nullptr);
        std::string other = name;
        other[0] = (char) toupper(other[0]);
        EXPECT_EQ(rdbFindKey(other.c_str()), nullptr) << other;
    }
    int value = 0;
    checkRefused("NQueries not found", rdbGetInt0(hd, "NQueries", &value));
}

/* No query beyond the last one. */
TEST_F(rdbRegistry, queriesAreCountedAndNamed)
{
    const int n = (int) names.size();
    const std::string last = std::to_string(n - 1), range = " is out of range [0," + last + "]";
    char name[RDB_TEXT];
    checkAnswers(rdbGetStr1(hd, "queryName", name, n - 1));
    EXPECT_STREQ(name, "volUsrIds");
    checkRefused(("index1 (" + std::to_string(n) + ")" + range).c_str(), rdbGetStr1(hd, "queryName", name, n));
    checkRefused(("index1 (-1)" + range).c_str(), rdbGetStr1(hd, "queryName", name, -1));
}

TEST_F(rdbRegistry, constantsNeedNoRun)
{
    int value = 0;
    checkAnswers(rdbGetInt0(hd, "nSdims", &value));
    EXPECT_EQ(value, 3);
    checkAnswers(rdbGetInt0(hd, "nPairs", &value));
    EXPECT_EQ(value, 2);
}

/* One getter, two rows, and the row tells what is needed. */
TEST_F(rdbRegistry, widthOfLogEventsNeedsARun)
{
    int value = 0;
    checkRefused("run not opened", rdbGetInt0(hd, "logEventDim", &value));
    checkAnswers(rdbOpenRun(hd, 1));
    checkAnswers(rdbGetInt0(hd, "logEventDim", &value));
    EXPECT_EQ(value, 3);
    EXPECT_EQ(rdbFindKey("logEventDim")->getter, rdbFindKey("nSdims")->getter);
}

/* All keys that answer without a run do so; all others refuse, whatever else is right or wrong about the request. */
TEST_F(rdbRegistry, withoutARunOnlyFactsOfTheDirectoryAnswer)
{
    static const std::set<std::string> always = {
        "auxFileName", "dir", "fileName", "maxTrunId", "nAuxFiles", "nFiles", "nPairs", "nQueries", "nRuns", "nSdims",
        "nTruns", "nUndefFiles", "openRunId", "problem", "queryName", "runId", "runIds", "trunId", "trunIds",
        "trunRunId", "trunRunIds", "undefFileName"
    };
    std::set<std::string> answering;
    for (const auto &entry : rows) {
        SCOPED_TRACE(entry.first);
        const char *name = entry.first.c_str();
        const int   type = entry.second.type;
        if (!entry.second.needsRun) answering.insert(name);
        else checkRefused("run not opened", rdbGetData(hd, nullptr, name, nullptr, type, -1, 0, 0, 0, -1, -1));
    }
    EXPECT_EQ(answering, always);
}

/* Every getter of a count answers on an empty run, or says which file it lacks. */
TEST_F(rdbRegistry, countsWithoutIndexAnswerOnAnEmptyRun)
{
    checkAnswers(rdbOpenRun(hd, 1));
    for (const auto &entry : rows) {
        if (entry.second.type != RDB_INT || entry.second.nIdx != 0) continue;
        SCOPED_TRACE(entry.first);
        int value = -99, given = -1;
        rdbSetError("no text of its own");
        checkReturns(given = rdbGetInt0(hd, entry.first.c_str(), &value));
        if (given == 1) {
            EXPECT_NE(value, -99);
        } else {
            EXPECT_EQ(given, 0);
            EXPECT_NE(std::string(rdbGetError()).find(" file not found"), std::string::npos) << rdbGetError();
        }
    }
}

/* What tells the sixteen families of surface sets apart. */
TEST_F(rdbRegistry, surfaceSetFamilies)
{
    static const struct {
        const char *stem;
        int elemType, medium, sfsIds;
        std::vector<const char *> more;
    } families[] = {
        { "afs", 1, 1, 1, {} },
        { "cbc", 1, 1, 1, { "ActType", "BcType", "NodalEdgeDirs", "NodalNormDirs" } },
        { "dbc", 1, 0, 1, { "BcType", "NodalEdgeDirs", "NodalNormDirs" } },
        { "ebc", 1, 1, 1, {} },
        { "eci", 1, 1, 1, {} },
        { "fan", 1, 1, 1, {} },
        { "gsf", 1, 1, 0, {} },
        { "hec", 1, 1, 1, {} },
        { "osf", 1, 1, 1, { "NodalEdgeDirs", "NodalNormDirs", "NodalNormDirsN" } },
        { "psf", 0, 1, 1, { "BcType" } },
        { "rsf", 0, 1, 1, { "Aggl", "AgglAng", "AgglCnt", "AgglRad", "BcType" } },
        { "sbc", 1, 1, 1, {} },
        { "sfs", 1, 0, 0, { "Neighbor", "NodalEdgeDirs", "NodalNormDirs" } },
        { "srs", 0, 1, 1, { "BcType" } },
        { "ssi", 1, 1, 1, { "CreaseAng", "Gap", "GapFct", "MeshType" } },
        { "tws", 1, 1, 1, {} },
    };
    static const char *const always[] = { "BndNodes", "Cnn", "ElemCnn", "ElemIds", "Name", "Nodes", "ParentId",
                                          "SrfCnn", "Type", "UsrIds" };
    static const char *const counts[] = { "s", "ElemNodes", "Nodes", "SrfNodes", "Srfs" };
    static const char *const outputs[] = { "Step", "Steps", "Time", "Times", "Values", "VarDim", "VarName" };
    for (const auto &f : families) {
        SCOPED_TRACE(f.stem);
        const std::string stem = f.stem, n = countOf(stem, "");
        std::set<std::string> expected, found;
        for (const char *key : always) expected.insert(stem + key);
        for (const char *key : counts) expected.insert(n + key);
        for (const char *key : f.more) expected.insert(stem + key);
        if (f.elemType) expected.insert(stem + "ElemType");
        if (f.medium) expected.insert(stem + "Medium");
        if (f.sfsIds) expected.insert({ stem + "SfsIds", n + "Sfss" });
        if (rows.count(stem + "RadIds")) expected.insert(stem + "RadIds");
        if (rows.count(stem + "Values")) {                            /* a family with outputs has all of their rows */
            expected.insert({ n + "Steps", n + "Vars" });
            for (const char *key : outputs) expected.insert(stem + key);
        }
        for (const std::string &name : names)
            if (!name.compare(0, stem.size(), stem) || !name.compare(0, n.size(), n)) found.insert(name);
        EXPECT_EQ(found, expected);

        const Row &cnn = rows[stem + "Cnn"];
        EXPECT_EQ(cnn.type, RDB_INTS);
        ASSERT_EQ(cnn.nIdx, 1);
        ASSERT_EQ(cnn.nDims, 2);
        EXPECT_EQ(cnn.idx[0], n + "s");
        EXPECT_EQ(cnn.dim[0], n + "SrfNodes");
        EXPECT_EQ(cnn.dim[1], n + "Srfs");
    }
}

/* Every row that stands by itself, and some of families, as a client relies on them: type, indices, dimensions. A new
   key has its line here. */
TEST_F(rdbRegistry, tellingRows)
{
    static const struct { const char *name; int type; std::vector<std::string> idx, dim; } telling[] = {
        { "nQueries",       RDB_INT,   {},                {} },
        { "queryName",      RDB_STR,   { "nQueries" },    {} },
        { "nSdims",         RDB_INT,   {},                {} },
        { "nPairs",         RDB_INT,   {},                {} },
        { "problem",        RDB_STR,   {},                {} },
        { "dir",            RDB_STR,   {},                {} },
        { "nFiles",         RDB_INT,   {},                {} },
        { "fileName",       RDB_STR,   { "nFiles" },      {} },
        { "nAuxFiles",      RDB_INT,   {},                {} },
        { "auxFileName",    RDB_STR,   { "nAuxFiles" },   {} },
        { "nUndefFiles",    RDB_INT,   {},                {} },
        { "undefFileName",  RDB_STR,   { "nUndefFiles" }, {} },
        { "nRuns",          RDB_INT,   {},                {} },
        { "runId",          RDB_INT,   { "nRuns" },       {} },
        { "runIds",         RDB_INTS,  {},                { "nRuns" } },
        { "openRunId",      RDB_INT,   {},                {} },
        { "nTruns",         RDB_INT,   {},                {} },
        { "maxTrunId",      RDB_INT,   {},                {} },
        { "trunId",         RDB_INT,   { "nTruns" },      {} },
        { "trunIds",        RDB_INTS,  {},                { "nTruns" } },
        { "trunRunId",      RDB_INT,   { "nTruns" },      {} },
        { "trunRunIds",     RDB_INTS,  {},                { "nTruns" } },
        { "title",          RDB_STR,   {},                {} },
        { "subTitle",       RDB_STR,   {},                {} },
        { "baseUnit",       RDB_STR,   {},                {} },
        { "runDate",        RDB_STR,   {},                {} },
        { "runVersion",     RDB_STR,   {},                {} },
        { "pmcOrder",       RDB_INT,   {},                {} },
        { "pmcLump",        RDB_REAL,  {},                {} },
        { "pmcDamp",        RDB_REAL,  {},                {} },
        { "pmcAlpha",       RDB_REAL,  {},                {} },
        { "pmcAlphaMass",   RDB_REAL,  {},                {} },
        { "pmcGamma",       RDB_REAL,  {},                {} },
        { "rstFromDir",     RDB_STR,   {},                {} },
        { "rstFromProblem", RDB_STR,   {},                {} },
        { "rstFromRunId",   RDB_INT,   {},                {} },
        { "rstFromStep",    RDB_INT,   {},                {} },
        { "nSds",           RDB_INT,   {},                {} },
        { "nSpecies",       RDB_INT,   {},                {} },
        { "speciesName",    RDB_STR,   { "nSpecies" },    {} },
        { "nFields",        RDB_INT,   {},                {} },
        { "fieldName",      RDB_STR,   { "nFields" },     {} },
        { "fieldPrefix",    RDB_STR,   { "nFields" },     {} },
        { "nRads",          RDB_INT,   {},                {} },
        { "nSteps",         RDB_INT,   {},                {} },
        { "steps",          RDB_INTS,  {},                { "nSteps" } },
        { "step",           RDB_INT,   { "nSteps" },      {} },
        { "times",          RDB_REALS, {},                { "nSteps" } },
        { "time",           RDB_REAL,  { "nSteps" },      {} },
        { "timeIncs",       RDB_REALS, {},                { "nSteps" } },
        { "timeInc",        RDB_REAL,  { "nSteps" },      {} },
        { "logEventDim",    RDB_INT,   {},                {} },
        { "nNodes",         RDB_INT,   {},                {} },
        { "usrIds",         RDB_INTS,  {},                { "nNodes" } },
        { "crd",            RDB_REALS, {},                { "nSdims", "nNodes" } },
        { "nElms",          RDB_INT,   {},                {} },
        { "elmName",        RDB_STR,   { "nElms" },       {} },
        { "elmType",        RDB_INT,   { "nElms" },       {} },
        { "elmMedium",      RDB_INT,   { "nElms" },       {} },
        { "elmQuad",        RDB_INT,   { "nElms" },       {} },
        { "elmShlThick",    RDB_REAL,  { "nElms" },       {} },
        { "elmRffId",       RDB_INT,   { "nElms" },       {} },
        { "nElmElems",      RDB_INT,   { "nElms" },       {} },
        { "nElmElemNodes",  RDB_INT,   { "nElms" },       {} },
        { "elmUsrIds",      RDB_INTS,  { "nElms" },       { "nElmElems" } },
        { "elmCnn",         RDB_INTS,  { "nElms" },       { "nElmElemNodes", "nElmElems" } },
        { "elmSdIds",       RDB_INTS,  { "nElms" },       { "nElmElems" } },
        { "nElmVols",       RDB_INT,   { "nElms" },       {} },
        { "elmVolIds",      RDB_INTS,  { "nElms" },       { "nElmVols" } },
        { "nVols",          RDB_INT,   {},                {} },
        { "volName",        RDB_STR,   { "nVols" },       {} },
        { "volType",        RDB_INT,   { "nVols" },       {} },
        { "nVolElems",      RDB_INT,   { "nVols" },       {} },
        { "nVolElemNodes",  RDB_INT,   { "nVols" },       {} },
        { "volUsrIds",      RDB_INTS,  { "nVols" },       { "nVolElems" } },
        { "volCnn",         RDB_INTS,  { "nVols" },       { "nVolElemNodes", "nVolElems" } },
        { "volSdIds",       RDB_INTS,  { "nVols" },       { "nVolElems" } },
        { "cbcBcType",      RDB_INT,   { "nCbcs" },       {} },
        { "cbcActType",     RDB_INT,   { "nCbcs" },       {} },
        { "dbcBcType",      RDB_INT,   { "nDbcs" },       {} },
        { "psfBcType",      RDB_INT,   { "nPsfs" },       {} },
        { "rsfBcType",      RDB_INT,   { "nRsfs" },       {} },
        { "rsfAggl",        RDB_INT,   { "nRsfs" },       {} },
        { "rsfAgglCnt",     RDB_INT,   { "nRsfs" },       {} },
        { "rsfAgglAng",     RDB_REAL,  { "nRsfs" },       {} },
        { "rsfAgglRad",     RDB_REAL,  { "nRsfs" },       {} },
        { "srsBcType",      RDB_INT,   { "nSrss" },       {} },
        { "sfsNeighbor",    RDB_INT,   { "nSfss" },       {} },
        { "ssiMeshType",    RDB_INT,   { "nSsis" },       {} },
        { "ssiGapFct",      RDB_REAL,  { "nSsis" },       {} },
        { "ssiGap",         RDB_REAL,  { "nSsis" },       {} },
        { "ssiCreaseAng",   RDB_REAL,  { "nSsis" },       {} },

        { "cbcType",        RDB_INT,   { "nCbcs" },       {} },
        { "cbcBndNodes",    RDB_INTS,  { "nCbcs" },       { "nCbcSrfNodes" } },
        { "cbcElemCnn",     RDB_INTS,  { "nCbcs" },       { "nCbcElemNodes", "nCbcSrfs" } },
        { "cbcSfsIds",      RDB_INTS,  { "nCbcs" },       { "nCbcSfss" } },
        { "sfsNodes",       RDB_INTS,  { "nSfss" },       { "nSfsNodes" } },

        { "osfNodalNormDirsN", RDB_REALS, { "nOsfs" },    { "nSdims", "nOsfNodes" } },
        { "osfNodalNormDirs",  RDB_REALS, { "nOsfs" },    { "nSdims", "nOsfNodes" } },
        { "osfNodalEdgeDirs",  RDB_REALS, { "nOsfs" },    { "nSdims", "nOsfNodes" } },
        { "cbcNodalNormDirs",  RDB_REALS, { "nCbcs" },    { "nSdims", "nCbcNodes" } },
        { "cbcNodalEdgeDirs",  RDB_REALS, { "nCbcs" },    { "nSdims", "nCbcNodes" } },
        { "dbcNodalNormDirs",  RDB_REALS, { "nDbcs" },    { "nSdims", "nDbcNodes" } },
        { "dbcNodalEdgeDirs",  RDB_REALS, { "nDbcs" },    { "nSdims", "nDbcNodes" } },
        { "sfsNodalNormDirs",  RDB_REALS, { "nSfss" },    { "nSdims", "nSfsNodes" } },
        { "sfsNodalEdgeDirs",  RDB_REALS, { "nSfss" },    { "nSdims", "nSfsNodes" } },

        { "nNbcs",          RDB_INT,   {},                {} },
        { "nbcName",        RDB_STR,   { "nNbcs" },       {} },
        { "nbcVar",         RDB_STR,   { "nNbcs" },       {} },
        { "nNbcNodes",      RDB_INT,   { "nNbcs" },       {} },
        { "nbcNodes",       RDB_INTS,  { "nNbcs" },       { "nNbcNodes" } },
        { "nbcWallNodes",   RDB_INTS,  { "nNbcs" },       { "nNodes" } },
        { "nPbcs",          RDB_INT,   {},                {} },
        { "pbcName",        RDB_STR,   { "nPbcs" },       {} },
        { "pbcVar",         RDB_STR,   { "nPbcs" },       {} },
        { "nPbcPairs",      RDB_INT,   { "nPbcs" },       {} },
        { "pbcUsrIds",      RDB_INTS,  { "nPbcs" },       { "nPbcPairs" } },
        { "pbcPairs",       RDB_INTS,  { "nPbcs" },       { "nPairs", "nPbcPairs" } },
        { "nOels",          RDB_INT,   {},                {} },
        { "oelName",        RDB_STR,   { "nOels" },       {} },
        { "oelType",        RDB_INT,   { "nOels" },       {} },
        { "oelParentId",    RDB_INT,   { "nOels" },       {} },
        { "oelMedium",      RDB_INT,   { "nOels" },       {} },
        { "nOelVols",       RDB_INT,   { "nOels" },       {} },
        { "oelVolIds",      RDB_INTS,  { "nOels" },       { "nOelVols" } },
        { "nOelElems",      RDB_INT,   { "nOels", "nOelVols" }, {} },
        { "nOelElemNodes",  RDB_INT,   { "nOels", "nOelVols" }, {} },
        { "oelElemIds",     RDB_INTS,  { "nOels", "nOelVols" }, { "nOelElems" } },
        { "oelCnn",         RDB_INTS,  { "nOels", "nOelVols" }, { "nOelElemNodes", "nOelElems" } },
        { "nOelNodes",      RDB_INT,   { "nOels", "nOelVols" }, {} },
        { "oelNodes",       RDB_INTS,  { "nOels", "nOelVols" }, { "nOelNodes" } },

        { "outGradVarDim",  RDB_INT,   { "nOutVars" },    {} },
        { "outGradValues",  RDB_REALS, { "nOutVars", "nOutSteps" },    { "outGradVarDim", "nNodes" } },
        { "nOutAuxVars",    RDB_INT,   {},                {} },
        { "outAuxVarName",  RDB_STR,   { "nOutAuxVars" }, {} },
        { "outAuxVarDim",   RDB_INT,   { "nOutAuxVars" }, {} },
        { "outAuxValues",   RDB_REALS, { "nOutAuxVars", "nOutSteps" }, { "outAuxVarDim", "nNodes" } },
        { "nOutExtVars",    RDB_INT,   {},                {} },
        { "outExtVarName",  RDB_STR,   { "nOutExtVars" }, {} },
        { "outExtVarDim",   RDB_INT,   { "nOutExtVars" }, {} },
        { "outExtValues",   RDB_REALS, { "nOutExtVars", "nOutSteps" }, { "outExtVarDim", "nNodes" } },
        { "nOdqAuxVars",    RDB_INT,   {},                {} },
        { "odqAuxVarName",  RDB_STR,   { "nOdqAuxVars" }, {} },
        { "odqAuxVarDim",   RDB_INT,   { "nOdqAuxVars" }, {} },
        { "odqAuxValues",   RDB_REALS, { "nOdqAuxVars", "nOdqSteps" }, { "odqAuxVarDim", "nNodes" } },

        { "nOcnVars",       RDB_INT,   {},                {} },
        { "ocnStep",        RDB_INT,   {},                {} },
        { "ocnTime",        RDB_REAL,  {},                {} },
        { "ocnVarName",     RDB_STR,   { "nOcnVars" },    {} },
        { "ocnVarDim",      RDB_INT,   { "nOcnVars" },    {} },
        { "ocnValues",      RDB_REALS, { "nOcnVars" },    { "ocnVarDim", "nNodes" } },
    };
    std::set<std::string> told;
    for (const auto &t : telling) {
        checkRow(t.name, t.type, t.idx, t.dim);
        told.insert(t.name);
    }
    for (const std::string &name : names) EXPECT_TRUE(told.count(name) || isOfAFamily(name)) << name;
}

/* The nine rows of each family of outputs; those of surface sets have the set as their first index, but for what tells
   of the variables. */
TEST_F(rdbRegistry, outputFamilies)
{
    for (const char *stem : nodalFamilies) {
        const std::string fam = stem, n = countOf(stem, "");
        checkRow(n + "Steps",     RDB_INT,   {}, {});
        checkRow(fam + "Step",    RDB_INT,   { n + "Steps" }, {});
        checkRow(fam + "Steps",   RDB_INTS,  {}, { n + "Steps" });
        checkRow(fam + "Time",    RDB_REAL,  { n + "Steps" }, {});
        checkRow(fam + "Times",   RDB_REALS, {}, { n + "Steps" });
        checkRow(n + "Vars",      RDB_INT,   {}, {});
        checkRow(fam + "VarName", RDB_STR,   { n + "Vars" }, {});
        checkRow(fam + "VarDim",  RDB_INT,   { n + "Vars" }, {});
        checkRow(fam + "Values",  RDB_REALS, { n + "Vars", n + "Steps" }, { fam + "VarDim", "nNodes" });
    }
    for (const char *stem : { "osf", "rsf", "srs" }) {
        const std::string fam = stem, n = countOf(stem, "");
        checkRow(n + "Steps",     RDB_INT,   { n + "s" }, {});
        checkRow(fam + "Step",    RDB_INT,   { n + "s", n + "Steps" }, {});
        checkRow(fam + "Steps",   RDB_INTS,  { n + "s" }, { n + "Steps" });
        checkRow(fam + "Time",    RDB_REAL,  { n + "s", n + "Steps" }, {});
        checkRow(fam + "Times",   RDB_REALS, { n + "s" }, { n + "Steps" });
        checkRow(n + "Vars",      RDB_INT,   {}, {});
        checkRow(fam + "VarName", RDB_STR,   { n + "Vars" }, {});
        checkRow(fam + "VarDim",  RDB_INT,   { n + "Vars" }, {});
        checkRow(fam + "Values",  RDB_REALS, { n + "s", n + "Vars", n + "Steps" }, { fam + "VarDim", n + "Nodes" });
    }
}

TEST_F(rdbRegistry, typeAndInfoOfAnUnknownKey)
{
    int type = 77, needsRun = 77, nIdx = 77;
    checkRefused("noSuchKey not found", rdbGetType(hd, "noSuchKey", &type));
    EXPECT_EQ(type, 0);
    type = 77;
    checkRefused("noSuchKey not found", rdbGetInfo(hd, "noSuchKey", &type, &needsRun, &nIdx, nullptr, nullptr, nullptr,
                                                   nullptr, nullptr, nullptr));
    EXPECT_EQ(type, 0);
    EXPECT_EQ(nIdx, 77);
    checkRefused("noSuchKey not found", rdbGetInfo(hd, "noSuchKey", nullptr, nullptr, nullptr, nullptr, nullptr,
                                                   nullptr, nullptr, nullptr, nullptr));
}

/* The registry is the same for all handles: neither call looks at the one it is given. */
TEST_F(rdbRegistry, typeAndInfoNeedNoHandle)
{
    int type = 0;
    const char *dim0 = "left alone";
    checkAnswers(rdbGetType(nullptr, "crd", &type));
    EXPECT_EQ(type, RDB_REALS);
    checkAnswers(rdbGetInfo(nullptr, "crd", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &dim0,
                            nullptr));
    EXPECT_STREQ(dim0, "nSdims");
}
