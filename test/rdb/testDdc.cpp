/* testDdc.cpp: the decomposition file, and the hashes and connectivities that the run keeps. */

#include <climits>
#include <cstdio>

#include "test/rdb/smallRun.h"

TEST(rdbReadDdc, listsOfEachSubdomain)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        SmallRun run;
        run.form = form.form;
        rdbHd *hd = run.writeAndOpen();
        checkAnswers(rdbReadDdc(hd));
        ASSERT_TRUE(hd->run->sdRead);
        EXPECT_EQ(hd->run->sdCover, 1);
        for (int p = 0; p < 2; ++p) {
            ASSERT_EQ(hd->run->sdNNodes[p], 3);
            EXPECT_EQ(std::vector<int>(hd->run->sdNodes[p], hd->run->sdNodes[p] + 3), run.parts[p]);
        }
        EXPECT_EQ(hd->run->sdFirst[0], 0);
        EXPECT_EQ(hd->run->sdFirst[1], -1);
        rdbFree(hd);
        remove(("p.1.ddc" + run.suffix()).c_str());
    }
}

TEST(rdbReadDdc, isReadOnce)
{
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    checkAnswers(rdbReadDdc(hd));
    remove("p.1.ddc.B");
    checkAnswers(rdbReadDdc(hd));
    rdbFree(hd);
}

TEST(rdbReadDdc, aSuffixedNameIsFoundByPrefix)
{
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    EXPECT_NE(testRead("p.1.ddc.B"), "");
    EXPECT_EQ(rdbFindFile(hd, "p.1.ddc"), IOP_BINARY);
    checkAnswers(rdbReadDdc(hd));
    rdbFree(hd);
}

TEST(rdbReadDdc, missing)
{
    SmallRun run;
    run.write();
    remove("p.1.ddc.B");
    rdbHd *hd = SmallRun::open();
    checkRefused(".ddc file not found", rdbReadDdc(hd));
    rdbFree(hd);
}

TEST(rdbReadDdc, countsMustBeTheRuns)
{
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    SmallRun other = run;
    other.parts.push_back({ 0 });
    other.writeDdc();
    checkRefused("Inconsistent .ddc file", rdbReadDdc(hd));
    other = run;
    other.usrIds.push_back(22);
    other.writeDdc();
    checkRefused("Inconsistent .ddc file", rdbReadDdc(hd));
    EXPECT_FALSE(hd->run->sdRead);

    run.writeDdc();
    checkAnswers(rdbReadDdc(hd));
    rdbFree(hd);
}

TEST(rdbReadDdc, aRunWithoutSubdomainsNeedsNoFile)
{
    SmallRun run;
    run.parts.clear();
    rdbHd *hd = run.writeAndOpen();
    checkAnswers(rdbReadDdc(hd));
    rdbFree(hd);
}

TEST(rdbReadDdc, positionsOutsideTheMeshAreRefused)
{
    for (int position : { -1, 5, INT_MAX, INT_MIN }) {
        SmallRun run;
        rdbHd   *hd = run.writeAndOpen();
        SmallRun bad = run;
        bad.parts[1][2] = position;
        bad.writeDdc();
        checkFails("Invalid node position <" + std::to_string(position) + "> of subdomain <1>; range should be [0,4]",
                   rdbReadDdc(hd));
        checkFails("rdbReadDdc", rdbReadDdc(hd));
        EXPECT_FALSE(hd->run->sdRead);

        run.writeDdc();                    /* a failure leaves nothing behind that would stand in the way */
        checkAnswers(rdbReadDdc(hd));
        EXPECT_EQ(hd->run->sdNodes[1][2], 3);
        rdbFree(hd);
    }
}

/* Writes a .ddc whose counts are as told; it ends behind the first subdomain's count. */
static void writeAbsurd(tool::Form form, int nSds, int nElems, int nColors, int nUsrIds, int nPartNodes)
{
    const int none[4] = { 0, 0, 0, 0 };
    tool::TokenFile f("p.1.ddc", form);
    f.keyInt("nSds", nSds);
    f.keyInt("nElems", nElems);
    f.str("color");
    f.ints(std::vector<int>{ 1, nColors, 0, 0, 0 }.data(), 5);
    f.keyInt("nNodes", 5);
    f.str("usrIds");
    f.ints(std::vector<int>{ 1, nUsrIds, 0, 0, 0 }.data(), 5);
    f.keyInt("sdId", 0);
    f.keyInt("nNodes", nPartNodes);
    f.str("nodes");
    f.ints(std::vector<int>{ 1, nPartNodes }.data(), 2);
    f.ints(none, 4);
}

TEST(rdbReadDdc, absurdCountsFailInOrder)
{
    for (const auto &form : smallForms)
        for (int absurd : { -1, INT_MIN, INT_MAX, 1 << 30 }) {
            SCOPED_TRACE(std::string(form.name) + ", " + std::to_string(absurd));
            SmallRun run;
            run.form = form.form;
            rdbHd *hd = run.writeAndOpen();
            writeAbsurd(form.form, 2, 3, absurd, 3, 3);
            EXPECT_NE(trapped([&] { rdbReadDdc(hd); }), "");
            writeAbsurd(form.form, 2, 3, 3, absurd, 3);
            EXPECT_NE(trapped([&] { rdbReadDdc(hd); }), "");
            writeAbsurd(form.form, 2, absurd, 3, 3, 1000);
            checkFails("EOF", rdbReadDdc(hd));
            writeAbsurd(form.form, 2, 3, 3, 3, absurd);
            checkFails(absurd < 0 ? "invalid count" : "EOF", rdbReadDdc(hd));
            rdbFree(hd);
            remove(("p.1.ddc" + run.suffix()).c_str());
        }
}

TEST(rdbReadDdc, anAbsurdNumberOfSubdomains)
{
    for (const auto &form : smallForms)
        for (int absurd : { INT_MAX, 1 << 30, 1000 }) {
            SmallRun run;
            run.form = form.form;
            run.extraCli = "#@ NSDS " + std::to_string(absurd) + "\n";
            rdbHd *hd = run.writeAndOpen();
            writeAbsurd(form.form, absurd, 3, 3, 3, 3);
            checkFails("EOF", rdbReadDdc(hd));
            rdbFree(hd);
            remove(("p.1.ddc" + run.suffix()).c_str());
        }
}

TEST(rdbReadDdc, knowsWhetherTheListsReachEveryNode)
{
    static const struct { const char *name; std::vector<std::vector<int>> parts; int cover; } rows[] = {
        { "all in one",            { { 0, 1, 2, 3, 4 } },               1 },
        { "shared nodes",          { { 0, 1, 2, 3 }, { 3, 4, 2 } },     1 },
        { "too few",               { { 0, 1 }, { 4 } },                 0 },
        { "enough, but one twice", { { 0, 1, 2 }, { 2, 3, 1, 0 } },     0 },
        { "an empty one",          { {}, { 4, 3, 2, 1, 0 } },           1 },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        SmallRun run;
        run.parts = row.parts;
        rdbHd *hd = run.writeAndOpen();
        checkAnswers(rdbReadDdc(hd));
        EXPECT_EQ(hd->run->sdCover, row.cover);
        rdbFree(hd);
    }
}

TEST(sdIds, coloursOfEachSetInListOrder)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        SmallRun run;
        run.form = form.form;
        rdbHd *hd = run.writeAndOpen();
        for (const char *key : { "elmSdIds", "volSdIds" }) {
            int ids[3] = { -1, -1, -1 };
            checkAnswers(rdbGetInts1(hd, key, ids, 0, 2, 1));
            EXPECT_EQ(ids[0], 0);
            EXPECT_EQ(ids[1], 1);
            checkAnswers(rdbGetInts1(hd, key, ids, 2, 1, 1));
            EXPECT_EQ(ids[0], 2);
            EXPECT_EQ(ids[2], -1);
        }
        rdbFree(hd);
        remove(("p.1.ddc" + run.suffix()).c_str());
    }
}

TEST(sdIds, aSetWithoutElementsReadsNothing)
{
    SmallRun run;
    run.write();
    remove("p.1.ddc.B");
    rdbHd *hd = SmallRun::open();
    int none = 7;
    checkAnswers(rdbGetInts1(hd, "elmSdIds", &none, 1, -1, -1));
    checkAnswers(rdbGetInts1(hd, "volSdIds", &none, 1, -1, -1));
    EXPECT_EQ(none, 7);
    int ids[2];
    checkRefused(".ddc file not found", rdbGetInts1(hd, "elmSdIds", ids, 0, 2, 1));
    checkRefused(".ddc file not found", rdbGetInts1(hd, "volSdIds", ids, 0, 2, 1));
    rdbFree(hd);
}

TEST(sdIds, aRunWithoutSubdomainsHasOneColourAndNeedsNoFile)
{
    SmallRun run;
    run.write();
    remove("p.1.ddc.B");
    std::string cli = run.cli();
    const size_t at = cli.find("NSDS ");
    cli.replace(at, cli.find('\n', at) - at, "NSDS 0");
    testWrite("p.1.cli", cli);
    rdbHd *hd = SmallRun::open();
    for (const char *key : { "elmSdIds", "volSdIds" }) {
        int ids[3] = { -1, -1, -1 };
        checkAnswers(rdbGetInts1(hd, key, ids, 0, 2, 1));
        EXPECT_EQ(ids[0], 0);
        EXPECT_EQ(ids[1], 0);
        EXPECT_EQ(ids[2], -1);
    }
    rdbFree(hd);
}

TEST(sdIds, aFileWithFewerElementsThanTheRun)
{
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    SmallRun shorter = run;
    shorter.sets[2].clear();
    shorter.writeDdc();
    int ids[2];
    checkAnswers(rdbGetInts1(hd, "volSdIds", ids, 0, 2, 1));
    checkFails("Inappropriate sub index range <2>-<3> for dim2 <2>", rdbGetInts1(hd, "volSdIds", ids, 2, 1, 1));
    SmallRun other = run;
    other.parts.pop_back();
    other.writeDdc();
    checkRefused("Inconsistent .ddc file", rdbGetInts1(hd, "volSdIds", ids, 0, 2, 1));
    rdbFree(hd);
}

TEST(rdbGetUsrIdHash, fromUserIdToPosition)
{
    for (const auto &ids : { std::vector<int>{ 10, 11, 12, 20, 21 }, std::vector<int>{ 1, 2, 3, 4, 5 } }) {
        SmallRun run;
        run.usrIds = ids;
        rdbHd *hd = run.writeAndOpen();
        int   *hash = nullptr, *again = nullptr;
        checkAnswers(rdbGetUsrIdHash(hd, &hash));
        for (int i = 0; i < 5; ++i) EXPECT_EQ(mtxInvHash(hash, 5, ids[i]), i);
        remove("p.1.crd.B");
        checkAnswers(rdbGetUsrIdHash(hd, &again));
        EXPECT_EQ(hash, again);
        rdbFree(hd);
    }
}

TEST(rdbGetUsrIdHash, failsAsUsrIdsDoes)
{
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    int     *hash = nullptr;
    char    *file = hd->run->crdFile;
    hd->run->crdFile = nullptr;
    checkRefused("coordinate file not found", rdbGetUsrIdHash(hd, &hash));
    hd->run->crdFile = file;
    run.usrIds = { 10, 11, 12, 20, 10 };
    run.writeCrd();
    checkFails("Duplicate key <10>", rdbGetUsrIdHash(hd, &hash));
    rdbFree(hd);
}

TEST(rdbGetVolUsrIdHash, fromElementIdToRow)
{
    SmallRun run;
    run.sets[0] = { 10, 11, 12, 20, 11, 12, 20, 21, 10, 11, 12, 21 };
    rdbHd *hd = run.writeAndOpen();
    int   *hash = nullptr;
    checkAnswers(rdbGetVolUsrIdHash(hd, 0, &hash));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(mtxInvHash(hash, 3, 100 + i), i);
    checkAnswers(rdbGetVolUsrIdHash(hd, 2, &hash));
    EXPECT_EQ(mtxInvHash(hash, 1, 300), 0);
    checkAnswers(rdbGetVolUsrIdHash(hd, 1, &hash));
    checkRefused("Invalid volId <3>; range should be [0,2]", rdbGetVolUsrIdHash(hd, 3, &hash));
    checkRefused("Invalid volId <-1>; range should be [0,2]", rdbGetVolUsrIdHash(hd, -1, &hash));

    rdbVolSet *vol = (rdbVolSet *) hd->run->vol.rec[2];
    memFree(vol->usrIdHash);
    memFree(vol->file);
    checkRefused("connectivity file not found", rdbGetVolUsrIdHash(hd, 2, &hash));
    rdbFree(hd);
}

TEST(rdbGetVolCnn, isReadOnce)
{
    SmallRun run;
    rdbHd   *hd = run.writeAndOpen();
    int     *cnn = nullptr, *again = nullptr;
    checkAnswers(rdbGetVolCnn(hd, 0, &cnn));
    EXPECT_EQ(std::vector<int>(cnn, cnn + 8), run.sets[0]);
    remove("p.1.vol0.B");
    checkAnswers(rdbGetVolCnn(hd, 0, &again));
    EXPECT_EQ(cnn, again);
    checkRefused("Invalid volId <3>; range should be [0,2]", rdbGetVolCnn(hd, 3, &cnn));
    checkRefused("Invalid volId <-1>; range should be [0,2]", rdbGetVolCnn(hd, -1, &cnn));
    rdbFree(hd);
}

TEST(rdbGetVolCnn, aFailedReadIsFatalAndLeavesNothingHalfRead)
{
    SmallRun   run;
    rdbHd     *hd = run.writeAndOpen();
    rdbVolSet *vol = (rdbVolSet *) hd->run->vol.rec[0];
    int       *cnn = nullptr;
    char      *file = vol->file;
    vol->file = nullptr;
    checkFails("connectivity file not found", rdbGetVolCnn(hd, 0, &cnn));
    checkFails("rdbGetVolCnn", rdbGetVolCnn(hd, 0, &cnn));
    vol->file = file;

    const std::string whole = testRead("p.1.vol0.B");
    testWrite("p.1.vol0.B", whole.substr(0, whole.size() - 4));
    checkFails("EOF", rdbGetVolCnn(hd, 0, &cnn));
    EXPECT_FALSE(vol->cnnRead);
    testWrite("p.1.vol0.B", whole);
    checkAnswers(rdbGetVolCnn(hd, 0, &cnn));
    EXPECT_EQ(std::vector<int>(cnn, cnn + 8), run.sets[0]);
    rdbFree(hd);
}
