/* testSurfaces.cpp: the getters of surface sets, in every family.
 *
 * The run has one volume of two tetrahedra, 100 with the nodes 10 11 12 20 and 200 with the nodes 11 21 12 20. The
 * surface set "base" has a face of each, and so has the set of each family. */

#include <algorithm>
#include <cctype>
#include <vector>

#include "test/rdb/cliRun.h"
#include "test/rdb/smallRun.h"

using Ints = std::vector<int>;

struct Surfaces {
    tool::Form form = tool::Form::ascii;
    Ints usrIds  = { 10, 11, 12, 20, 21 };
    Ints volIds  = { 100, 200 };
    Ints volCnn  = { 10, 11, 12, 20, 11, 21, 12, 20 };
    Ints elemIds = { 100, 200 };
    Ints srfIds  = { 7, 9 };
    Ints srfCnn  = { 12, 10, 11, 20, 11, 21 };
    int  nParts = 3, nRows = 2, nCols = 5;             /* what the surface file says of itself */
    int  nSds = 0;
    std::string extraCli;

    std::string suffix() const { return tool::formSuffix(form); }

    static void putPart(tool::TokenFile &f, int nCols, const Ints &values)
    {
        f.keyInt("type", 1);
        f.keyInt("nCols", nCols);
        f.keyInts("intVec", nCols, (int) values.size() / nCols, values.data());
    }

    void writeVol(const std::string &name) const
    {
        tool::TokenFile f(name, form);
        f.keyInt("nParts", 2);
        f.keyInt("nRows", (int) volIds.size());
        f.keyInt("nCols", 5);
        putPart(f, 1, volIds);
        putPart(f, 4, volCnn);
    }

    void writeSrf(const std::string &name) const
    {
        tool::TokenFile f(name, form);
        f.keyInt("nParts", nParts);
        f.keyInt("nRows", nRows);
        f.keyInt("nCols", nCols);
        putPart(f, 1, elemIds);
        putPart(f, 1, srfIds);
        putPart(f, 3, srfCnn);
    }

    void writeOsn(const std::string &name, const Ints &nodes, int saidSds) const
    {
        tool::TokenFile f(name, form);
        f.keyInt("nSds", saidSds);
        f.keyInt("nNodes", (int) nodes.size());
        f.keyInts("usrIds", 1, (int) nodes.size(), nodes.data());
    }

    std::string line(const std::string &keyword, const std::string &name, const std::string &more) const
    {
        return "#@ " + keyword + " p.srf" + suffix() + " \"" + name + "\" n 2 type 1 nsn 3 quad 1 parent 0 med 6" +
               more + "\n";
    }

    std::string cli() const
    {
        std::string text = "#@ NSDS " + std::to_string(nSds) + "\n#@ VOL p.vol" + suffix() +
                           " \"v\" n 2 type 3 nen 4\n" + line("SFS", "base", "") + "#@ CNN p.vol" + suffix() +
                           " \"e\" n 2 type 3 nen 4 quad 1 med 1 rff 0\n#@ CNN.VOL \"e\" 1 \"v\"\n";
        for (const auto &fam : srfFamilies)
            text += line(fam.keyword, std::string("of ") + fam.keyword, fam.more) + "#@ " + fam.keyword + ".SFS \"of " +
                    fam.keyword + "\" 1 \"base\"\n";
        return text + extraCli + "#@ END\n";
    }

    void write() const
    {
        writeVol("p.vol");
        writeSrf("p.srf");
        writeOsn("p.1_0.osn", { 21, 20, 12, 11, 10 }, nSds);
    }
};

/* The stem of a family's keys, as in cbcCnn and as in nCbcSrfs */
static std::string lower(std::string stem)
{
    std::transform(stem.begin(), stem.end(), stem.begin(), [](unsigned char c) { return tolower(c); });
    return stem;
}

static std::string capital(const std::string &keyword)
{
    return keyword[0] + lower(keyword.substr(1));
}

static std::vector<std::string> allFamilies()
{
    std::vector<std::string> all = { "SFS" };
    for (const auto &fam : srfFamilies) all.push_back(fam.keyword);
    return all;
}

/* An array of the size that its keys tell */
static Ints ints(rdbHd *hd, const std::string &key, int i)
{
    int d1 = 0, d2 = 0;
    EXPECT_TRUE(rdbGetDims(hd, key.c_str(), 1, i, -1, -1, &d1, &d2)) << key << ": " << rdbGetError();
    Ints values(d1 * (d2 < 0 ? 1 : d2) + 1, -7);
    EXPECT_EQ(rdbGetInts1(hd, key.c_str(), values.data(), i, d1, d2), 1) << key << ": " << rdbGetError();
    EXPECT_EQ(values.back(), -7) << key << " wrote beyond its size";
    values.pop_back();
    return values;
}

static bool isKey(rdbHd *hd, const std::string &key)
{
    int type;
    return rdbGetType(hd, key.c_str(), &type) != 0;
}

/* --------------------------------------------------------------------------------------------------- what is there */

TEST(surfaces, everyFamilyAnswersInEveryForm)
{
    for (const auto &form : smallForms) {
        Surfaces s;
        s.form = form.form;
        s.write();
        CliRun db(s.cli());
        ASSERT_EQ(db.open(), "");
        EXPECT_STREQ(rdbGetError(), "nothing to say");
        for (const std::string &keyword : allFamilies()) {
            SCOPED_TRACE(std::string(form.name) + ", " + keyword);
            const std::string fam = lower(keyword), Fam = capital(keyword);
            const bool isSfs = keyword == "SFS", isOsf = keyword == "OSF";
            EXPECT_EQ(db.num(("n" + Fam + "s").c_str()), 1);
            EXPECT_EQ(db.str(fam + "Name", 0), isSfs ? "base" : "of " + keyword);
            EXPECT_EQ(db.num(fam + "Type", 0), 1);
            EXPECT_EQ(db.num(fam + "ParentId", 0), 0);
            EXPECT_EQ(db.num("n" + Fam + "Srfs", 0), 2);
            EXPECT_EQ(db.num("n" + Fam + "SrfNodes", 0), 3);
            EXPECT_EQ(db.num("n" + Fam + "ElemNodes", 0), 4);
            EXPECT_EQ(ints(db.hd, fam + "ElemIds", 0), s.elemIds);
            EXPECT_EQ(ints(db.hd, fam + "UsrIds", 0), s.srfIds);
            EXPECT_EQ(ints(db.hd, fam + "Cnn", 0), s.srfCnn);
            EXPECT_EQ(ints(db.hd, fam + "SrfCnn", 0), (Ints { 10, 11, 12, 20, 21, 11 }));
            EXPECT_EQ(ints(db.hd, fam + "ElemCnn", 0), (Ints { 10, 11, 12, 20, 20, 21, 11, 12 }));
            EXPECT_EQ(ints(db.hd, fam + "BndNodes", 0), (Ints { 0, 1, 2 }));
            EXPECT_EQ(db.num("n" + Fam + "Nodes", 0), 5);
            EXPECT_EQ(ints(db.hd, fam + "Nodes", 0), isOsf ? (Ints { 21, 20, 12, 11, 10 }) : s.usrIds);
            if (isKey(db.hd, fam + "ElemType")) {
                EXPECT_EQ(db.num(fam + "ElemType", 0), 7);
            }
            if (isKey(db.hd, fam + "Medium")) {
                EXPECT_EQ(db.num(fam + "Medium", 0), 6);
            }
            if (isKey(db.hd, fam + "SfsIds")) {
                EXPECT_EQ(db.num("n" + Fam + "Sfss", 0), 1);
                EXPECT_EQ(ints(db.hd, fam + "SfsIds", 0), (Ints { 0 }));
            }
        }
        EXPECT_EQ(testSlept(), 0);
    }
}

TEST(surfaces, keysThatAFamilyLacks)
{
    Surfaces s;
    CliRun db(s.cli());
    for (const std::string &keyword : allFamilies()) {
        SCOPED_TRACE(keyword);
        const std::string fam = lower(keyword);
        EXPECT_EQ(isKey(db.hd, fam + "ElemType"), keyword != "PSF" && keyword != "SRS" && keyword != "RSF");
        EXPECT_EQ(isKey(db.hd, fam + "Medium"), keyword != "DBC" && keyword != "SFS");
        EXPECT_EQ(isKey(db.hd, fam + "SfsIds"), keyword != "GSF" && keyword != "SFS");
        EXPECT_EQ(isKey(db.hd, "n" + capital(keyword) + "Sfss"), keyword != "GSF" && keyword != "SFS");
    }
}

TEST(surfaces, whatSingleFamiliesHave)
{
    Surfaces s;
    s.extraCli = "#@ SFS.SFS 0 3\n";
    CliRun db(s.cli());
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.num("cbcBcType", 0), 9);
    EXPECT_EQ(db.num("cbcActType", 0), 5);
    EXPECT_EQ(db.num("dbcBcType", 0), 9);
    EXPECT_EQ(db.num("psfBcType", 0), 9);
    EXPECT_EQ(db.num("rsfBcType", 0), 9);
    EXPECT_EQ(db.num("srsBcType", 0), 0);
    EXPECT_EQ(db.num("rsfAggl", 0), 2);
    EXPECT_EQ(db.num("rsfAgglCnt", 0), 3);
    EXPECT_EQ(db.real("rsfAgglAng", 0), 0.5);
    EXPECT_EQ(db.real("rsfAgglRad", 0), 0.25);
    EXPECT_EQ(db.num("ssiMeshType", 0), 9);
    EXPECT_EQ(db.real("ssiGapFct", 0), 0.5);
    EXPECT_EQ(db.real("ssiGap", 0), 0.25);
    EXPECT_EQ(db.real("ssiCreaseAng", 0), 0.125);
    EXPECT_EQ(db.num("sfsNeighbor", 0), 3);
}

/* --------------------------------------------------------------------------------------------------- distinct nodes */

TEST(surfaces, sharedNodesAreCountedOnce)
{
    Surfaces s;
    s.srfCnn = { 20, 12, 11, 11, 12, 10 };             /* two faces with an edge in common */
    s.elemIds = { 100, 100 };
    s.write();
    CliRun db(s.cli());
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.num("nCbcNodes", 0), 4);
    EXPECT_EQ(ints(db.hd, "cbcNodes", 0), (Ints { 10, 11, 12, 20 }));
    EXPECT_EQ(db.num("nCbcNodes", 0), 4);
}

TEST(surfaces, theNodeCountIsKept)
{
    Surfaces s;
    s.write();
    CliRun db(s.cli());
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.num("nCbcNodes", 0), 5);
    EXPECT_EQ(db.num("nOsfNodes", 0), 5);
    remove("p.srf");
    remove("p.1_0.osn");
    EXPECT_EQ(db.num("nCbcNodes", 0), 5);
    EXPECT_EQ(db.num("nOsfNodes", 0), 5);
}

/* The caller's array has the size of the first answer */
TEST(surfaces, aFileWithOtherNodesThanCountedIsRefused)
{
    Surfaces s;
    s.write();
    CliRun db(s.cli());
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.num("nCbcNodes", 0), 5);
    EXPECT_EQ(db.num("nOsfNodes", 0), 5);
    s.srfCnn = { 10, 11, 12, 13, 14, 15 };
    s.write();
    s.writeOsn("p.1_0.osn", { 21, 20, 12, 11, 10, 9 }, 0);
    int nodes[8];
    checkFails("Inconsistent nNodes <6> vs <5>", rdbGetInts1(db.hd, "cbcNodes", nodes, 0, -1, -1));
    checkFails("Inconsistent nNodes <6> vs <5>", rdbGetInts1(db.hd, "osfNodes", nodes, 0, -1, -1));
}

TEST(surfaces, aSetOfNoSurfaces)
{
    Surfaces s;
    s.elemIds = s.srfIds = s.srfCnn = {};
    s.nRows = 0;
    s.write();
    std::string lines = s.cli();
    for (size_t at = lines.find(" n 2 type 1"); at != std::string::npos; at = lines.find(" n 2 type 1"))
        lines.replace(at, 4, " n 0");
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.num("nCbcNodes", 0), 0);
    int none = -7;
    for (const char *key : { "cbcNodes", "cbcCnn", "cbcElemIds", "cbcSrfCnn", "cbcElemCnn" })
        EXPECT_EQ(rdbGetInts1(db.hd, key, &none, 0, -1, -1), 1) << key << ": " << rdbGetError();
    EXPECT_EQ(none, -7);
}

/* ------------------------------------------------------------------------------------------------ the node file */

TEST(surfaces, nodesOfOutputSurfacesNeedTheirFile)
{
    Surfaces s;
    s.write();
    remove("p.1_0.osn");
    CliRun db(s.cli());
    ASSERT_EQ(db.open(), "");
    int nodes[8];
    checkRefused(".osn file not found", rdbGetInt1(db.hd, "nOsfNodes", nodes, 0));
    checkRefused(".osn file not found", rdbGetInts1(db.hd, "osfNodes", nodes, 0, -1, -1));
}

TEST(surfaces, nodesOfAnotherDecompositionEndTheCall)
{
    for (const auto &form : smallForms) {
        Surfaces s;
        s.form = form.form;
        s.nSds = 4;
        s.write();
        s.writeOsn("p.1_0.osn", { 10, 11 }, 2);
        CliRun db(s.cli());
        ASSERT_EQ(db.open(), "");
        int nodes[8];
        checkFails("Incosistent nSds; <2> vs. <4>", rdbGetInt1(db.hd, "nOsfNodes", nodes, 0));
        checkFails("Function <rdb_nOsfNodes>", rdbGetInt1(db.hd, "nOsfNodes", nodes, 0));
        checkFails("Function <rdb_osfNodes>", rdbGetInts1(db.hd, "osfNodes", nodes, 0, -1, -1));
    }
}

TEST(surfaces, aNodeFileThatCannotHoldItsNodesIsRefused)
{
    Surfaces s;
    s.write();
    CliRun db(s.cli());
    ASSERT_EQ(db.open(), "");
    int nodes[8];
    for (const char *n : { "-1", "2147483647", "1000" }) {
        testWrite("p.1_0.osn", std::string("nSds 0 nNodes ") + n + " usrIds 1 " + n + " 10 11\n");
        EXPECT_NE(trapped([&] { rdbGetInt1(db.hd, "nOsfNodes", nodes, 0); }), "") << n;
    }
}

/* -------------------------------------------------------------------------------------------------- failing files */

/* Its type is no surface either: such a run does not open */
TEST(surfaces, aLineWithoutValues)
{
    CliRun db("#@ VOL p.vol \"v\" n 1 type 3 nen 4\n#@ SFS\n");
    EXPECT_NE(db.open().find("Invalid parentTpl <3> and srfType <0> combination"), std::string::npos);
    int value;
    checkRefused("run not opened", rdbGetInts1(db.hd, "sfsCnn", &value, 0, -1, -1));
}

static const std::vector<std::string> partKeys = { "ElemIds", "UsrIds", "Cnn" };

TEST(surfaces, aSetWithoutAFileInEveryFamily)
{
    for (const std::string &keyword : allFamilies()) {
        SCOPED_TRACE(keyword);
        CliRun db(Surfaces().cli());
        ASSERT_EQ(db.open(), "");
        for (int fam = 0; fam < RDB_N_SRF_FAMS; ++fam)
            if (keyword == rdbSrfFams[fam].keyword) memFree(((rdbSrfSet *) db.hd->run->srf[fam].rec[0])->file);
        const char *text = keyword == "SFS" ? "surface set file not found" : "surface file not found";
        Ints values(64);
        for (std::string key : { "ElemIds", "UsrIds", "Cnn", "Nodes" }) {
            if (key == "Nodes" && keyword == "OSF") continue;
            key = lower(keyword) + key;
            SCOPED_TRACE(key);
            checkRefused(text, rdbGetInts1(db.hd, key.c_str(), values.data(), 0, -1, -1));
        }
    }
}

TEST(surfaces, aFileThatContradictsTheRecordEndsTheCall)
{
    static const struct { int nParts, nRows, nCols; const char *text; } rows[] = {
        { 2, 2, 5, "nParts <2> error"  },
        { 3, 3, 5, "nRows  <3> error"  },
        { 3, 2, 6, "nCols  <6> error"  },
        { 3, 2, -5, "nCols  <-5> error" },
    };
    for (const auto &form : smallForms)
        for (const auto &row : rows) {
            Surfaces s;
            s.form = form.form;
            s.nParts = row.nParts, s.nRows = row.nRows, s.nCols = row.nCols;
            s.write();
            CliRun db(s.cli());
            ASSERT_EQ(db.open(), "");
            Ints values(64);
            for (const std::string &keyword : allFamilies())
                for (const std::string &part : partKeys) {
                    const std::string key = lower(keyword) + part;
                    SCOPED_TRACE(key);
                    checkFails(row.text, rdbGetInts1(db.hd, key.c_str(), values.data(), 0, -1, -1));
                    checkFails("Function <rdb_" + key + ">", rdbGetInts1(db.hd, key.c_str(), values.data(), 0, -1, -1));
                }
            checkFails(row.text, rdbGetInt1(db.hd, "nCbcNodes", values.data(), 0));
            checkFails("Function <rdb_nCbcNodes>", rdbGetInt1(db.hd, "nCbcNodes", values.data(), 0));
        }
}

static std::string afterTheWait;                       /* the surface file, once somebody waited for it */

/* A set that is made of a surface set reads that one's file in the name of its getters */
TEST(surfaces, whoseNameAFailureOfTheSurfaceSetCarries)
{
    Surfaces s;
    s.write();
    const std::string whole = testRead("p.srf");
    std::string other = whole;
    const size_t rows = other.find("nRows"), digit = other.find('2', rows);
    other[digit] = '3';
    Ints values(64);
    for (const char *key : { "cbcSrfCnn", "cbcElemCnn" }) {
        CliRun db(s.cli());
        ASSERT_EQ(db.open(), "");
        testWrite("p.srf", other);
        checkFails("Function <rdb_sfsElemIds>", rdbGetInts1(db.hd, key, values.data(), 0, -1, -1));

        /* the file changes while the first part is read: only the second meets the other head */
        testWrite("p.srf", whole.substr(0, whole.find("100") + 3));
        afterTheWait = other;
        testWhenSleeping([] { testWrite("p.srf", afterTheWait); });
        checkFails("Function <rdb_sfsCnn>", rdbGetInts1(db.hd, key, values.data(), 0, -1, -1));
        testWhenSleeping(nullptr);
    }
}

/* A failure in the middle leaves the handle as good as before */
TEST(surfaces, cutAnywhereTheFileFailsClearly)
{
    for (const auto &form : smallForms) {
        Surfaces s;
        s.form = form.form;
        s.write();
        CliRun db(s.cli());
        ASSERT_EQ(db.open(), "");
        const std::string whole = testRead("p.srf" + s.suffix());
        for (size_t n = 0; n < whole.size(); ++n) {
            testWrite("p.srf" + s.suffix(), whole.substr(0, n));
            Ints values(64);
            for (const char *key : { "cbcElemIds", "cbcUsrIds", "cbcCnn", "cbcNodes", "cbcSrfCnn", "cbcElemCnn" }) {
                int given = -1;
                const std::string failure = trapped([&] { given = rdbGetInts1(db.hd, key, values.data(), 0, -1, -1); });
                EXPECT_TRUE(!failure.empty() || given >= 0) << key;
            }
        }
        testWrite("p.srf" + s.suffix(), whole);
        EXPECT_EQ(ints(db.hd, "cbcElemCnn", 0), (Ints { 10, 11, 12, 20, 20, 21, 11, 12 }));
    }
}

TEST(surfaces, aCountThatTheFileCannotHoldIsRefused)
{
    Surfaces s;
    s.write();
    std::string lines = s.cli();
    for (size_t at = lines.find(" n 2 type 1"); at != std::string::npos; at = lines.find(" n 2 type 1"))
        lines.replace(at, 4, " n 2147483647");
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    for (const std::string &keyword : allFamilies()) {
        SCOPED_TRACE(keyword);
        int value = -7;
        const std::string key = "n" + capital(keyword) + "Srfs";
        checkRefused("file <p.srf> cannot hold 2147483647 rows", rdbGetInt1(db.hd, key.c_str(), &value, 0));
        EXPECT_EQ(value, -7);
        if (keyword == "OSF") continue;
        EXPECT_EQ(rdbGetInt1(db.hd, ("n" + capital(keyword) + "Nodes").c_str(), &value, 0), 0);
    }
}

/* ------------------------------------------------------------------------------------- elements behind surfaces */

TEST(surfaces, theSurfaceSetMustHaveTheShapeOfTheSet)
{
    static const struct { const char *base, *text; } rows[] = {
        { "n 3 type 1 nsn 3", "Inconsistent nElems <3> vs <2>"     },
        { "n 2 type 1 nsn 4", "Inconsistent nElemNodes <4> vs <3>" },
        { "n 2 type 2 nsn 3", "Inconsistent type <2> vs <1>"       },
    };
    for (const auto &row : rows) {
        Surfaces s;
        s.write();
        const std::string vol = "#@ VOL p.vol \"v\" n 2 type 5 nen 6\n";       /* a wedge has faces of both types */
        std::string lines = s.cli();
        const size_t at = lines.find("n 2 type 1 nsn 3");                       /* of the surface set */
        lines.replace(at, 16, row.base);
        lines.replace(lines.find("#@ VOL"), lines.find("#@ SFS") - lines.find("#@ VOL"), vol);
        lines.replace(lines.find("type 3 nen 4 quad"), 12, "type 5 nen 6");
        lines.erase(lines.find("#@ GSF"));                                      /* and what follows */
        CliRun db(lines);
        ASSERT_EQ(db.open(), "");
        Ints values(64);
        checkFails(row.text, rdbGetInts1(db.hd, "cbcSrfCnn", values.data(), 0, -1, -1));
        checkFails("Function <rdb_cbcElemCnn>", rdbGetInts1(db.hd, "cbcElemCnn", values.data(), 0, -1, -1));
        checkFails(row.text, rdbGetInts1(db.hd, "cbcElemCnn", values.data(), 0, -1, -1));
    }
}

TEST(surfaces, nodesThatAreNoFaceOfTheElement)
{
    Surfaces s;
    s.srfCnn = { 12, 10, 11, 20, 10, 21 };
    s.write();
    CliRun db(s.cli());
    ASSERT_EQ(db.open(), "");
    Ints values(64);
    for (const char *key : { "cbcSrfCnn", "cbcElemCnn", "sfsSrfCnn", "sfsElemCnn", "gsfElemCnn" })
        checkRefused("Invalid surface <2>", rdbGetInts1(db.hd, key, values.data(), 0, -1, -1));
    EXPECT_EQ(db.run()->srfBuf, nullptr);
}

TEST(surfaces, anElementThatTheVolumeDoesNotHave)
{
    for (const Ints &volIds : { Ints { 100, 200 }, Ints { 100, 101 } })        /* hashed, and one behind the other */
        for (int id : { 99, 102, 300, -1, -2147483647 - 1, 2147483647 }) {
            SCOPED_TRACE(id);
            Surfaces s;
            s.volIds = volIds;
            s.elemIds = { 100, id };
            s.write();
            CliRun db(s.cli());
            ASSERT_EQ(db.open(), "");
            Ints values(64);
            checkFails("Key <" + std::to_string(id) + "> not found",
                       rdbGetInts1(db.hd, "cbcSrfCnn", values.data(), 0, -1, -1));
            checkFails("Function <mtxInvHash>", rdbGetInts1(db.hd, "cbcSrfCnn", values.data(), 0, -1, -1));
        }
}

/* The records may lie about the widths that the face search walks over */
TEST(surfaces, widthsThatDoNotFitTheElementAreRefused)
{
    Surfaces s;
    s.write();
    std::string lines = s.cli();
    lines.replace(lines.find("type 3 nen 4"), 12, "type 3 nen 2");
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    Ints values(64);
    EXPECT_NE(trapped([&] { rdbGetInts1(db.hd, "sfsElemCnn", values.data(), 0, -1, -1); }), "");

    Surfaces t;
    std::string wide = t.cli();
    for (size_t at = wide.find("nsn 3"); at != std::string::npos; at = wide.find("nsn 3")) wide.replace(at, 5, "nsn 9");
    CliRun other(wide);
    ASSERT_EQ(other.open(), "");
    checkFails("Inconsistent nSrfNodes <9> vs <3>", rdbGetInts1(other.hd, "sfsSrfCnn", values.data(), 0, -1, -1));
    checkFails("Inconsistent nSrfNodes <9> vs <3>", rdbGetInts1(other.hd, "cbcBndNodes", values.data(), 0, -1, -1));
}

/* GSF has no surface sets, and a set whose line did not bind has none: they go by their own data and volume */
TEST(surfaces, setsOnTheirOwn)
{
    Surfaces s;
    s.write();
    std::string lines = s.cli();
    lines.replace(lines.find("\"base\""), 6, "\"bass\"");     /* the surface set of another name: still the first */
    const size_t at = lines.find("#@ CBC.SFS \"of CBC\"");
    lines.replace(at, 19, "#@ CBC.SFS \"of FAN\"");
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    EXPECT_STREQ(rdbGetError(), "inconsistent CBC and surface set");
    memFree(((rdbSrfSet *) db.hd->run->srf[RDB_SFS].rec[0])->file);
    EXPECT_EQ(ints(db.hd, "gsfElemCnn", 0), (Ints { 10, 11, 12, 20, 20, 21, 11, 12 }));
    EXPECT_EQ(ints(db.hd, "cbcSrfCnn", 0), (Ints { 10, 11, 12, 20, 21, 11 }));
    EXPECT_EQ(db.num("nCbcSfss", 0), 0);
    Ints values(64);
    checkRefused("surface set file not found", rdbGetInts1(db.hd, "fanSrfCnn", values.data(), 0, -1, -1));
}

TEST(surfaces, aSetWithoutAVolumeSaysSo)
{
    CliRun db("#@ VOL p.vol \"v\" n 2 type 3 nen 4\n#@ CNN p.vol \"e\" n 2 type 3 nen 4 quad 1 med 1 rff 0\n" +
              srfLine("GSF", "x"));
    ASSERT_EQ(db.open(), "");
    Ints values(64);
    checkRefused("Invalid volId <-1>; range should be [0,0]",
                 rdbGetInts1(db.hd, "gsfSrfCnn", values.data(), 0, -1, -1));
}

/* -------------------------------------------------------------------------------------------- absurd numbers */

/* Asks as a client does: the sizes first, then the data into an array of that size, whose end must stay as it was. */
static void askSafely(rdbHd *hd, const std::string &key)
{
    int type = 0, d1 = -1, d2 = -1, value, given = 0;
    double real;
    rdbGetType(hd, key.c_str(), &type);
    if (type == RDB_INT) trapped([&] { rdbGetInt1(hd, key.c_str(), &value, 0); });
    if (type == RDB_REAL) trapped([&] { rdbGetReal1(hd, key.c_str(), &real, 0); });
    if (type != RDB_INTS) return;
    trapped([&] { given = rdbGetDims(hd, key.c_str(), 1, 0, -1, -1, &d1, &d2); });
    const long long n = (long long) d1 * (d2 == -1 ? 1 : d2);
    if (!given || n < 0 || n > 1000000) return;
    Ints values(n + 1, -7);
    trapped([&] { rdbGetInts1(hd, key.c_str(), values.data(), 0, d1, d2); });
    EXPECT_EQ(values.back(), -7) << key << " wrote beyond its size";
}

TEST(surfaces, absurdNumbersOfTheLinesAreAskedSafely)
{
    Surfaces s;
    s.write();
    std::string lines = s.cli();
    for (const char *keyword : { "DBC", "EBC", "AFS", "TWS", "PSF", "RSF", "SRS", "SBC", "SSI", "ECI", "HEC" }) {
        const size_t at = lines.find(std::string("#@ ") + keyword);
        lines.erase(at, lines.find('\n', lines.find('\n', at) + 1) + 1 - at);
    }
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    for (size_t i = 1; i + 1 < lines.size(); ++i) {
        if (!isdigit((unsigned char) lines[i]) || lines[i - 1] != ' ') continue;
        const size_t end = lines.find_first_of(" \n", i);
        for (const char *absurd : { "-1", "0", "1", "3", "5", "15", "2147483647", "-2147483648" }) {
            const std::string damaged = lines.substr(0, i) + absurd + lines.substr(end);
            SCOPED_TRACE(damaged.substr(damaged.rfind('\n', i) + 1, 60));
            testWrite("p.1.cli", damaged);
            db.open();
            for (const char *keyword : { "Cbc", "Gsf", "Osf", "Fan", "Sfs" }) {
                for (const char *end : { "Srfs", "SrfNodes", "ElemNodes", "Nodes", "Sfss" })
                    askSafely(db.hd, std::string("n") + keyword + end);
                for (const char *end : { "Type", "ElemType", "Medium", "ParentId", "SfsIds", "ElemIds", "UsrIds", "Cnn",
                                         "SrfCnn", "ElemCnn", "BndNodes", "Nodes" })
                    askSafely(db.hd, lower(keyword) + end);
            }
        }
    }
}
