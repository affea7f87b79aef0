/* testOutElems.cpp: the getters of output element sets.
 *
 * The run has three volumes of tetrahedra: v0 with the elements 100 and 101, v1 with none, v2 with the element 300. */

#include <climits>

#include "test/rdb/cliRun.h"
#include "test/rdb/smallRun.h"

using Ints = std::vector<int>;

enum { SOME = 1, WHOLE = 2 };

/* What an OEL.VOL line says; ids: what its file holds, of a set of some elements */
struct Part {
    int  vol = 0, nElems = 1, nen = 4;
    Ints ids;
    std::string more;
};

struct OutElems {
    SmallRun run;
    int type = SOME;
    std::vector<Part> parts;
    int nAnnounced = -1;                                  /* volumes that the OEL line tells of, if it is to lie */
    int nParts = -1, nRows = -1, nCols = -1;              /* what the heads say, likewise                        */

    std::string file(size_t k) const
    {
        return type == WHOLE ? "p.1.vol" + std::to_string(parts[k].vol) : "p.1.oel" + std::to_string(k);
    }

    std::string lines() const
    {
        std::string text = "#@ OEL set \"out\" a 1 b 2 c 3 quad 4 d 5 e 6 type " + std::to_string(type) + " n " +
                           std::to_string(nAnnounced < 0 ? (int) parts.size() : nAnnounced) + "\n";
        for (size_t k = 0; k < parts.size(); ++k)
            text += "#@ OEL.VOL " + file(k) + run.suffix() + " \"out\" nElems " + std::to_string(parts[k].nElems) +
                    " type 3 nen " + std::to_string(parts[k].nen) + " quad 1 vol " + std::to_string(parts[k].vol) +
                    " medium " + std::to_string(7 + k) + " volName \"v" + std::to_string(parts[k].vol) + "\"" +
                    parts[k].more + "\n";
        return text;
    }

    void writePart(size_t k) const
    {
        const Ints       &ids = parts[k].ids;
        SmallFile         f(file(k), run.form);
        f.f.keyInt("nParts", nParts < 0 ? 1 : nParts);
        f.f.keyInt("nRows", nRows < 0 ? (int) ids.size() : nRows);
        f.f.keyInt("nCols", nCols < 0 ? 1 : nCols);
        f.f.keyInt("type", 1);
        f.f.keyInt("nCols", 1);
        f.f.keyInts("intVec", 1, (int) ids.size(), dataOf(ids));
    }

    void write()
    {
        run.extraCli = lines();
        run.write();
        for (size_t k = 0; type == SOME && k < parts.size(); ++k) writePart(k);
    }

    rdbHd *writeAndOpen()
    {
        write();
        return SmallRun::open();
    }
};

static OutElems someElements(tool::Form form = tool::Form::binary)
{
    OutElems set;
    set.run.form = form;
    set.parts    = { { 0, 1, 4, { 101 }, "" }, { 2, 1, 4, { 300 }, "" } };
    return set;
}

static OutElems wholeVolumes(tool::Form form = tool::Form::binary)
{
    OutElems set;
    set.run.form = form;
    set.type     = WHOLE;
    set.parts    = { { 0, 2, 4, {}, "" }, { 1, 0, 4, {}, "" } };
    return set;
}

static int getInt(rdbHd *hd, const char *key, int i = -1, int k = -1)
{
    int n = -999;
    checkAnswers(i < 0 ? rdbGetInt0(hd, key, &n) : k < 0 ? rdbGetInt1(hd, key, &n, i) : rdbGetInt2(hd, key, &n, i, k));
    return n;
}

/* An array of the size that its keys tell; nothing is written behind it */
static Ints getInts(rdbHd *hd, const char *key, int k)
{
    int d1 = 0, d2 = 0;
    EXPECT_TRUE(rdbGetDims(hd, key, 2, 0, k, -1, &d1, &d2)) << rdbGetError();
    Ints values(d1 * (d2 < 0 ? 1 : d2) + 1, -7);
    checkAnswers(rdbGetInts2(hd, key, values.data(), 0, k, d1, d2));
    EXPECT_EQ(values.back(), -7) << key << " wrote beyond its size";
    values.pop_back();
    return values;
}

static Ints volCnn(rdbHd *hd, int vol)
{
    Ints cnn(4 * getInt(hd, "nVolElems", vol));
    checkAnswers(rdbGetInts1(hd, "volCnn", cnn.data(), vol, -1, -1));
    return cnn;
}

/* ------------------------------------------------------------------------------------------------ what is there */

TEST(outElems, someElementsInEveryForm)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        rdbHd *hd = someElements(form.form).writeAndOpen();
        char   name[SYS_TEXT];
        EXPECT_EQ(getInt(hd, "nOels"), 1);
        checkAnswers(rdbGetStr1(hd, "oelName", name, 0));
        EXPECT_STREQ(name, "out");
        EXPECT_EQ(getInt(hd, "oelType", 0), SOME);
        EXPECT_EQ(getInt(hd, "oelParentId", 0), 0);
        EXPECT_EQ(getInt(hd, "oelMedium", 0), 7);
        EXPECT_EQ(getInt(hd, "nOelVols", 0), 2);
        int vols[2] = { -1, -1 };
        checkAnswers(rdbGetInts1(hd, "oelVolIds", vols, 0, 2, -1));
        EXPECT_EQ(vols[0], 0);
        EXPECT_EQ(vols[1], 2);
        for (int k : { 0, 1 }) {
            EXPECT_EQ(getInt(hd, "nOelElems", 0, k), 1);
            EXPECT_EQ(getInt(hd, "nOelElemNodes", 0, k), 4);
            EXPECT_EQ(getInt(hd, "nOelNodes", 0, k), 4);
        }
        EXPECT_EQ(getInts(hd, "oelElemIds", 0), (Ints { 101 }));
        EXPECT_EQ(getInts(hd, "oelElemIds", 1), (Ints { 300 }));
        EXPECT_EQ(getInts(hd, "oelCnn", 0), (Ints { 11, 12, 20, 21 }));
        EXPECT_EQ(getInts(hd, "oelCnn", 1), (Ints { 10, 12, 20, 21 }));
        EXPECT_EQ(getInts(hd, "oelNodes", 0), (Ints { 11, 12, 20, 21 }));
        EXPECT_EQ(getInts(hd, "oelNodes", 1), (Ints { 10, 12, 20, 21 }));
        EXPECT_EQ(testSlept(), 0);
        rdbFree(hd);
    }
}

TEST(outElems, aWholeVolumeIsTheVolume)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        rdbHd *hd = wholeVolumes(form.form).writeAndOpen();
        EXPECT_EQ(getInt(hd, "oelType", 0), WHOLE);
        EXPECT_EQ(getInts(hd, "oelElemIds", 0), (Ints { 100, 101 }));
        EXPECT_EQ(getInts(hd, "oelCnn", 0), volCnn(hd, 0));
        EXPECT_EQ(getInts(hd, "oelCnn", 0), (Ints { 10, 11, 12, 20, 11, 12, 20, 21 }));
        EXPECT_EQ(getInt(hd, "nOelNodes", 0, 0), 5);
        EXPECT_EQ(getInts(hd, "oelNodes", 0), (Ints { 10, 11, 12, 20, 21 }));
        for (const char *key : { "oelElemIds", "oelCnn", "oelNodes" }) EXPECT_EQ(getInts(hd, key, 1), Ints()) << key;
        rdbFree(hd);
    }
}

TEST(outElems, inAContainer)
{
    for (OutElems set : { someElements(tool::Form::container), wholeVolumes(tool::Form::container) }) {
        rdbHd *hd = set.writeAndOpen();
        EXPECT_EQ(getInts(hd, "oelElemIds", 0), set.type == SOME ? (Ints { 101 }) : (Ints { 100, 101 }));
        EXPECT_EQ(getInts(hd, "oelNodes", 0).size(), set.type == SOME ? 4u : 5u);
        rdbFree(hd);
    }
}

TEST(outElems, aSetOfNoElements)
{
    OutElems set = someElements();
    set.parts = { { 0, 0, 4, {}, "" }, { 1, 0, 4, {}, "" } };
    rdbHd *hd = set.writeAndOpen();
    int    none = -7;
    for (int k : { 0, 1 }) {
        EXPECT_EQ(getInt(hd, "nOelElems", 0, k), 0);
        EXPECT_EQ(getInt(hd, "nOelNodes", 0, k), 0);
        for (const char *key : { "oelElemIds", "oelCnn", "oelNodes" })
            checkAnswers(rdbGetInts2(hd, key, &none, 0, k, -1, -1));
    }
    EXPECT_EQ(none, -7);
    rdbFree(hd);
}

TEST(outElems, aSetOfNoVolumes)
{
    OutElems set;
    rdbHd   *hd = set.writeAndOpen();
    int      none = -7;
    EXPECT_EQ(getInt(hd, "nOelVols", 0), 0);
    EXPECT_EQ(getInt(hd, "oelParentId", 0), 0);
    EXPECT_EQ(getInt(hd, "oelMedium", 0), 0);
    checkAnswers(rdbGetInts1(hd, "oelVolIds", &none, 0, -1, -1));
    EXPECT_EQ(none, -7);
    checkRefused("index2 (0) is out of range [0,-1]", rdbGetInts2(hd, "oelCnn", &none, 0, 0, -1, -1));
    checkRefused("index1 (1) is out of range [0,0]", rdbGetInts2(hd, "oelCnn", &none, 1, 0, -1, -1));
    rdbFree(hd);
}

/* A volume has another number than when the line was written: its name counts, and the parent stays as written */
TEST(outElems, renumberedVolumesGoByTheirName)
{
    OutElems set = someElements();
    set.parts = { { 2, 1, 4, { 300 }, "" } };
    set.write();
    std::string cli = testRead("p.1.cli");
    const size_t at = cli.find("#@ VOL p.1.vol1");
    const std::string empty = cli.substr(at, cli.find('\n', at) + 1 - at);
    cli.erase(at, empty.size());                                          /* v2 moves to the place of v1 */
    cli.insert(cli.find("#@ CNN"), empty);
    testWrite("p.1.cli", cli);
    rdbHd *hd = SmallRun::open();
    int    vol = -1;
    checkAnswers(rdbGetInts1(hd, "oelVolIds", &vol, 0, 1, -1));
    EXPECT_EQ(vol, 1);
    EXPECT_EQ(getInt(hd, "oelParentId", 0), 2);
    EXPECT_EQ(getInts(hd, "oelCnn", 0), (Ints { 10, 12, 20, 21 }));
    rdbFree(hd);
}

/* A file of an older solver has no VOL lines: each element set has its volume, and a set the first of these */
TEST(outElems, withoutVolumeLines)
{
    OutElems set = wholeVolumes();
    set.write();
    std::string cli = testRead("p.1.cli");
    for (size_t at = cli.find("#@ VOL"); at != std::string::npos; at = cli.find("#@ VOL"))
        cli.erase(at, cli.find('\n', at) + 1 - at);
    for (size_t at = cli.find("#@ CNN.VOL"); at != std::string::npos; at = cli.find("#@ CNN.VOL"))
        cli.erase(at, cli.find('\n', at) + 1 - at);
    for (size_t at = cli.find(" volName"); at != std::string::npos; at = cli.find(" volName"))
        cli.erase(at, cli.find('\n', at) - at);
    cli.replace(cli.find("type 2 n 2"), 10, "type 9 n 9");
    testWrite("p.1.cli", cli);
    rdbHd *hd = SmallRun::open();
    EXPECT_STREQ(rdbGetError(), "inconsistent element and volume set");    /* its second volume */
    int vol = -1;
    EXPECT_EQ(getInt(hd, "oelType", 0), SOME);
    EXPECT_EQ(getInt(hd, "nOelVols", 0), 1);
    checkAnswers(rdbGetInts1(hd, "oelVolIds", &vol, 0, 1, -1));
    EXPECT_EQ(vol, 0);
    int ids[8];
    checkFails("nParts <2> error", rdbGetInts2(hd, "oelElemIds", ids, 0, 0, -1, -1));
    rdbFree(hd);
}

TEST(outElems, volumesWithoutElementSetsHaveNone)
{
    testWrite("p.1.cli", "#@ OEL f \"out\" a 1 b 2 c 3 q 4 d 5 e 6 type 2 n 1\n");
    rdbHd *hd = SmallRun::open();
    int    values[4];
    EXPECT_EQ(getInt(hd, "nOelVols", 0), 1);
    checkFails("index1 (0) is out of range [0,-1]", rdbGetInts2(hd, "oelCnn", values, 0, 0, -1, -1));
    checkFails("Function <rdb_oelCnn>", rdbGetInts2(hd, "oelCnn", values, 0, 0, -1, -1));
    checkFails("index1 (0) is out of range [0,-1]", rdbGetInt2(hd, "nOelNodes", values, 0, 0));
    rdbFree(hd);
}

/* ------------------------------------------------------------------------------------------------ ids and widths */

/* Ids that the volume does not have are passed over, whether its ids follow each other or not */
TEST(outElems, anIdThatTheVolumeDoesNotHaveIsPassedOver)
{
    for (const Ints &volIds : { Ints { 100, 101 }, Ints { 100, 900 } })
        for (const auto &form : smallForms) {
            SCOPED_TRACE(form.name);
            OutElems set = someElements(form.form);
            set.parts = { { 0, 7, 4, { 99, volIds[1], -1, INT_MIN, INT_MAX, 100, 102 }, "" } };
            set.write();
            {
                SmallFile f("p.1.vol0", form.form);
                f.f.keyInt("nParts", 2);
                f.f.keyInt("nRows", 2);
                f.f.keyInt("nCols", 5);
                f.f.keyInt("type", 1);
                f.f.keyInt("nCols", 1);
                f.f.keyInts("intVec", 1, 2, volIds.data());
                f.f.keyInt("type", 1);
                f.f.keyInt("nCols", 4);
                f.f.keyInts("intVec", 4, 2, set.run.sets[0].data());
            }
            rdbHd *hd = SmallRun::open();
            rdbSetError("nothing to say");
            Ints expected = { 11, 12, 20, 21, 10, 11, 12, 20 };
            expected.resize(28, -7);                                       /* the rest stays as it was */
            EXPECT_EQ(getInts(hd, "oelCnn", 0), expected);
            EXPECT_EQ(getInt(hd, "nOelNodes", 0, 0), 5);
            EXPECT_EQ(getInts(hd, "oelNodes", 0), (Ints { 10, 11, 12, 20, 21 }));
            EXPECT_STREQ(rdbGetError(), "nothing to say");
            rdbFree(hd);
        }
}

TEST(outElems, aSetWithFewerColumnsThanTheVolumeGetsTheFirstOfEachElement)
{
    OutElems set = someElements();
    set.parts = { { 0, 2, 3, { 101, 100 }, "" } };
    rdbHd *hd = set.writeAndOpen();
    EXPECT_EQ(getInts(hd, "oelCnn", 0), (Ints { 11, 12, 20, 10, 11, 12 }));
    EXPECT_EQ(getInts(hd, "oelNodes", 0), (Ints { 10, 11, 12, 20 }));
    rdbFree(hd);

    set.parts[0].nen = 0;
    hd = set.writeAndOpen();
    for (const char *key : { "oelCnn", "oelNodes" }) EXPECT_EQ(getInts(hd, key, 0), Ints()) << key;
    rdbFree(hd);
}

/* Rows wider than the volume's would have gaps of what was in memory before; so would a whole larger than the whole */
TEST(outElems, aSetLargerThanItsVolumeEndsTheCall)
{
    static const struct { int type, nElems, nen; const char *text; } rows[] = {
        { SOME,  1, 5, "Inconsistent nElemNodes <5> vs <4>"             },
        { SOME,  1, INT_MAX - 2, "Inconsistent nElemNodes <2147483645> vs <4>" },
        { WHOLE, 2, 5, "Inconsistent nElemNodes <5> vs <4>"             },
        { WHOLE, 3, 4, "Inconsistent nElems <3> vs <2>"                 },
        { WHOLE, 1, 4, "volCnn requires dimension of 4x2 not 4x1"       },
        { WHOLE, 2, 3, "volCnn requires dimension of 4x2 not 3x2"       },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        OutElems set;
        set.type  = row.type;
        set.parts = { { 0, row.nElems, row.nen, { 100 }, "" } };
        rdbHd *hd = set.writeAndOpen();
        Ints   values(64);
        checkFails(row.text, rdbGetInts2(hd, "oelCnn", values.data(), 0, 0, -1, -1));
        checkFails("Function <rdb_oelCnn>", rdbGetInts2(hd, "oelCnn", values.data(), 0, 0, -1, -1));
        checkFails(row.text, rdbGetInts2(hd, "oelNodes", values.data(), 0, 0, -1, -1));
        checkFails(row.text, rdbGetInt2(hd, "nOelNodes", values.data(), 0, 0));
        rdbFree(hd);
    }
}

/* -------------------------------------------------------------------------------------------------- failing files */

TEST(outElems, aTypeThatIsNone)
{
    for (int type : { 0, 3, -1 }) {
        OutElems set = someElements();
        set.type = type;
        set.write();
        rdbHd *hd = SmallRun::open();
        Ints   values(64);
        const std::string text = "Undefined OEL type  <" + std::to_string(type) + ">";
        for (const char *key : { "oelElemIds", "oelCnn", "oelNodes" }) {
            checkFails(text, rdbGetInts2(hd, key, values.data(), 0, 0, -1, -1));
            checkFails("Function <rdb_oelElemIds>", rdbGetInts2(hd, key, values.data(), 0, 0, -1, -1));
        }
        rdbFree(hd);
    }
}

/* The OEL line tells of more volumes than OEL.VOL lines follow */
TEST(outElems, aVolumeWithoutAFile)
{
    OutElems set = someElements();
    set.nAnnounced = 3;
    rdbHd *hd = set.writeAndOpen();
    int    values[4];
    EXPECT_EQ(getInt(hd, "nOelVols", 0), 3);
    EXPECT_EQ(getInt(hd, "nOelElems", 0, 2), 0);
    for (const char *key : { "oelElemIds", "oelCnn", "oelNodes" })
        checkRefused("surface file not found", rdbGetInts2(hd, key, values, 0, 2, -1, -1));
    rdbFree(hd);
}

TEST(outElems, theHeadMustBeTheSets)
{
    static const struct { int type, nParts, nRows, nCols; const char *text; } rows[] = {
        { SOME,  2, -1, -1, "nParts <2> error" },
        { SOME, -1,  2, -1, "nRows  <2> error" },
        { SOME, -1, -1,  2, "nCols  <2> error" },
        { WHOLE, 1,  2,  5, "nParts <1> error" },
        { WHOLE, 2,  1,  5, "nRows  <1> error" },
        { WHOLE, 2,  2,  1, "nCols  <1> error" },
    };
    for (const auto &form : smallForms)
        for (const auto &row : rows) {
            OutElems set = row.type == SOME ? someElements(form.form) : wholeVolumes(form.form);
            rdbHd   *hd = set.writeAndOpen();
            set.nParts = row.nParts, set.nRows = row.nRows, set.nCols = row.nCols;
            set.writePart(0);
            int values[8];
            checkFails(row.text, rdbGetInts2(hd, "oelElemIds", values, 0, 0, -1, -1));
            checkFails("Function <rdb_oelElemIds>", rdbGetInts2(hd, "oelElemIds", values, 0, 0, -1, -1));
            if (row.type == SOME) checkFails(row.text, rdbGetInts2(hd, "oelCnn", values, 0, 0, -1, -1));
            else checkFails("Function <rdb_volCnn>", rdbGetInts2(hd, "oelCnn", values, 0, 0, -1, -1));
            rdbFree(hd);
        }
}

TEST(outElems, countsThatTheFileCannotHold)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        OutElems set = someElements(form.form);
        set.parts[0].nElems = 500000000;
        rdbHd            *hd = set.writeAndOpen();
        const std::string text = "file <p.1.oel0" + set.run.suffix() + "> cannot hold 500000000 rows";
        int n = -1;
        checkRefused(text.c_str(), rdbGetInt2(hd, "nOelElems", &n, 0, 0));
        checkRefused(text.c_str(), rdbGetInts2(hd, "oelCnn", &n, 0, 0, -1, -1));
        checkRefused(text.c_str(), rdbGetInt2(hd, "nOelNodes", &n, 0, 0));
        EXPECT_EQ(n, -1);
        rdbFree(hd);

        set.parts[0].nElems = INT_MAX;
        hd = set.writeAndOpen();
        checkRefused("oelNodes has too many elements <2147483647>", rdbGetInt2(hd, "nOelNodes", &n, 0, 0));
        rdbFree(hd);
    }
}

/* The caller's array has the size of the first answer */
TEST(outElems, aFileWithOtherNodesThanCountedIsRefused)
{
    OutElems set = someElements();
    set.parts = { { 0, 2, 4, { 100, 100 }, "" } };
    rdbHd *hd = set.writeAndOpen();
    EXPECT_EQ(getInt(hd, "nOelNodes", 0, 0), 4);
    set.parts[0].ids = { 100, 101 };
    set.writePart(0);
    Ints nodes(8, -7);
    EXPECT_EQ(getInt(hd, "nOelNodes", 0, 0), 4);                           /* kept */
    checkFails("Inconsistent nNodes <5> vs <4>", rdbGetInts2(hd, "oelNodes", nodes.data(), 0, 0, -1, -1));
    EXPECT_EQ(nodes, Ints(8, -7));
    rdbFree(hd);
}

TEST(outElems, nodesThatNobodyHasCounted)
{
    rdbHd *hd = someElements().writeAndOpen();
    Ints   nodes(8, -7);
    checkAnswers(rdbGetInts2(hd, "oelNodes", nodes.data(), 0, 0, -1, -1));
    EXPECT_EQ(nodes, (Ints { 11, 12, 20, 21, -7, -7, -7, -7 }));
    rdbFree(hd);
}

TEST(outElems, cutAnywhereTheFileFailsClearly)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        const OutElems   set = someElements(form.form);
        rdbHd           *hd = OutElems(set).writeAndOpen();
        for (const char *file : { "p.1.oel0", "p.1.vol0" }) {
            const std::string name = file + set.run.suffix(), whole = testRead(name);
            for (size_t n = 0; n < whole.size(); ++n) {
                testWrite(name, whole.substr(0, n));
                for (const char *key : { "oelElemIds", "oelCnn", "oelNodes" }) {
                    Ints values(8, -7);
                    int  given = -1;
                    const auto ask = [&] { given = rdbGetInts2(hd, key, values.data(), 0, 0, -1, -1); };
                    EXPECT_TRUE(!trapped(ask).empty() || given == 1) << key << " cut at " << n;
                    EXPECT_EQ(values.back(), -7);
                }
            }
            testWrite(name, whole);
            checkAnswers(rdbOpenRun(hd, 1));                               /* forgets what it has read */
        }
        EXPECT_EQ(getInts(hd, "oelNodes", 0), (Ints { 11, 12, 20, 21 }));
        rdbFree(hd);
    }
}

/* -------------------------------------------------------------------------------------------- absurd numbers */

/* Asks as a client does: the sizes first, then the data into an array of that size, whose end must stay as it was. */
static void askSafely(rdbHd *hd, const char *key, int k)
{
    int d1 = -1, d2 = -1, given = 0;
    trapped([&] { given = rdbGetDims(hd, key, 2, 0, k, -1, &d1, &d2); });
    const long long n = (long long) d1 * (d2 == -1 ? 1 : d2);
    if (!given || n < 0 || n > 1000000) return;
    Ints values(n + 1, -7);
    trapped([&] { rdbGetInts2(hd, key, values.data(), 0, k, d1, d2); });
    EXPECT_EQ(values.back(), -7) << key << " wrote beyond its size";
}

TEST(outElems, absurdNumbersOfTheLinesAreAskedSafely)
{
    for (OutElems set : { someElements(), wholeVolumes() }) {
        set.write();
        const std::string lines = testRead("p.1.cli"), end = " \n";
        CliRun db(lines);
        ASSERT_EQ(db.open(), "");
        for (size_t i = lines.find("#@ OEL"); i + 1 < lines.size(); ++i) {
            if (!isdigit((unsigned char) lines[i]) || lines[i - 1] != ' ') continue;
            for (const char *absurd : { "-1", "0", "1", "3", "5", "15", "2147483647", "-2147483648" }) {
                const std::string damaged = lines.substr(0, i) + absurd + lines.substr(lines.find_first_of(end, i));
                SCOPED_TRACE(damaged.substr(damaged.rfind('\n', i) + 1, 80));
                testWrite("p.1.cli", damaged);
                db.open();
                for (int k = 0; k < 2; ++k)
                    for (const char *key : { "oelElemIds", "oelCnn", "oelNodes" }) askSafely(db.hd, key, k);
            }
        }
    }
}
