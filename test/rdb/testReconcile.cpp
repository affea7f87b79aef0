/* testReconcile.cpp: how the sets of a run are brought together: parents by name, sets that no line gives,
 * topologies. */

#include <algorithm>
#include <cstring>

#include "test/rdb/cliRun.h"

/* What an open says on standard output, as often as each text comes */
static int said(const std::string &lines, int verbose, const std::string &text)
{
    CliRun db(lines, verbose);
    testing::internal::CaptureStdout();
    const std::string failure = db.open();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(failure, "");
    int n = 0;
    for (size_t at = out.find(text); at != std::string::npos; at = out.find(text, at + 1)) ++n;
    return n;
}

static std::string volLine(const std::string &name, int type = 3, int nen = 4)
{
    return "#@ VOL f \"" + name + "\" n 1 type " + std::to_string(type) + " nen " + std::to_string(nen) + "\n";
}

static std::string sfsLine(const std::string &name, int volId, const std::string &volName = "")
{
    return "#@ SFS f \"" + name + "\" n 4 type 1 nsn 3 quad 1 vol " + std::to_string(volId) + " medium 1" +
           (volName.empty() ? "" : " volName \"" + volName + "\"") + "\n";
}

/* ---------------------------------------------------------------------------------------------------- by name */

TEST(reconcile, theNameOfAVolumeGoesBeforeItsNumber)
{
    CliRun db(volLine("a") + volLine("b") + sfsLine("s", 0, "b") + sfsLine("t", 1, "not there") + sfsLine("u", 1));
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.srf(RDB_SFS, 0).volId, 1);
    EXPECT_EQ(db.srf(RDB_SFS, 1).volId, 1);          /* no such name: as the line gave it */
    EXPECT_EQ(db.srf(RDB_SFS, 2).volId, 1);
    EXPECT_STREQ(rdbGetError(), "nothing to say");
    EXPECT_EQ(db.num("sfsParentId", 0), 1);
}

TEST(reconcile, ofTwoVolumesOfANameTheLaterCounts)
{
    CliRun db(volLine("a") + volLine("twice") + volLine("twice") + volLine("b") + sfsLine("s", 1, "twice"));
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.srf(RDB_SFS, 0).volId, 2);
}

TEST(reconcile, volumesBehindTheSurfaceSetsCount)
{
    CliRun db(sfsLine("s", 0, "b") + volLine("a") + volLine("b"));
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.srf(RDB_SFS, 0).volId, 1);
}

TEST(reconcile, itIsSaidFromVerbosityThreeOn)
{
    const std::string lines = volLine("a") + volLine("b") + sfsLine("s", 0, "b") + sfsLine("t", 1, "b") +
                              sfsLine("u", 1, "a");
    EXPECT_EQ(said(lines, 2, "Parent volume reconciled"), 0);
    EXPECT_EQ(said(lines, 3, "Parent volume reconciled"), 2);
}

/* Every volume of the name is walked over, and each that changes the number is told */
TEST(reconcile, everyStepOverVolumesOfOneNameIsSaid)
{
    const std::string lines = volLine("twice") + volLine("twice");
    EXPECT_EQ(said(lines + sfsLine("s", 0, "twice"), 3, "Parent volume reconciled"), 1);
    EXPECT_EQ(said(lines + sfsLine("s", 1, "twice"), 3, "Parent volume reconciled"), 2);
    EXPECT_EQ(said(lines + sfsLine("s", 5, "twice"), 3, "Parent volume reconciled"), 2);
}

/* -------------------------------------------------------------------------------------------- sets not listed */

/* A file with neither VOL nor SFS lines */
static std::string olderFile()
{
    std::string lines = "#@ CNN e.B \"ea\" n 10 t 3 n 4 q 2 m 1 r 5\n#@ CNN e.B \"eb\" n 20 t 6 n 8 q 1 m 1 r 5\n";
    for (const auto &fam : srfFamilies) lines += srfLine(fam.keyword, fam.keyword, fam.more);
    return lines;
}

TEST(reconcile, anOlderFileGetsItsSets)
{
    const int nFams = (int) (sizeof srfFamilies / sizeof *srfFamilies);
    CliRun db(olderFile());
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.num("nVols"), 2);
    EXPECT_EQ(db.num("nSfss"), nFams);
    EXPECT_EQ(db.str("volName", 1), "eb");
    EXPECT_STREQ(db.vol(1).file, "e.B");
    EXPECT_NE(db.vol(1).file, db.elm(1).file);       /* a copy */
    EXPECT_EQ(db.vol(1).nElems, 20);
    EXPECT_EQ(db.vol(1).type, 6);
    EXPECT_EQ(db.vol(1).nElemNodes, 8);
    EXPECT_EQ(db.vol(1).elmId, 1);
    EXPECT_EQ(db.elm(1).nVols, 1);
    EXPECT_EQ(db.elm(1).volIds[0], 1);
    for (int i = 0; i < nFams; ++i) {
        SCOPED_TRACE(srfFamilies[i].keyword);
        const rdbSrfSet &set = db.srf(srfFamilies[i].fam, 0), &sfs = db.srf(RDB_SFS, i);
        EXPECT_EQ(db.str("sfsName", i), srfFamilies[i].keyword);
        EXPECT_EQ(sfs.name, set.name);               /* the same text */
        EXPECT_EQ(sfs.file, set.file);
        EXPECT_EQ(sfs.nSrfs, 4);
        EXPECT_EQ(sfs.type, 1);
        EXPECT_EQ(sfs.nSrfNodes, 3);
        EXPECT_EQ(sfs.quad, 1);
        EXPECT_EQ(sfs.medium, 6);
        EXPECT_EQ(sfs.elmId, 0);
        EXPECT_EQ(sfs.volId, 0);
        EXPECT_EQ(sfs.nNodes, -1);
        EXPECT_EQ(sfs.bcType, 0);
        EXPECT_EQ(set.nSfss, 1);
        EXPECT_EQ(set.sfsIds[0], i);
        EXPECT_NE(set.tpl, nullptr);
        EXPECT_NE(sfs.tpl, nullptr);
    }
    EXPECT_EQ(rdbCloseRun(db.hd), 1);
}

TEST(reconcile, madeSetsAreSaidFromVerbosityFourOn)
{
    EXPECT_EQ(said(olderFile(), 3, "created"), 0);
    EXPECT_EQ(said(olderFile(), 4, "Volume set for element set \"ea\" created"), 1);
    EXPECT_EQ(said(olderFile(), 4, "Volume set for element set \"eb\" created"), 1);
    for (const auto &fam : srfFamilies) {
        const std::string keyword = fam.keyword, shown = keyword == "SRS" ? "RSF" : keyword;
        EXPECT_EQ(said(olderFile(), 4, "Surface set for " + shown + " \"" + keyword + "\" created"), 1);
    }
}

TEST(reconcile, aListLineOfAnOlderFileStillOverwrites)
{
    CliRun db("#@ CNN f \"a\" n 1 t 3 n 4 q 2 m 1 r 5\n#@ CNN f \"b\" n 1 t 3 n 4 q 2 m 1 r 5\n"
              "#@ CNN.VOL \"b\" 1 \"a\"\n" +
              srfLine("CBC", "x") + srfLine("FAN", "y") + "#@ FAN.SFS \"y\" 1 \"x\"\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.elm(1).volIds[0], 0);
    EXPECT_EQ(db.vol(0).elmId, 1);                   /* the later element set */
    EXPECT_EQ(db.vol(1).tpl, nullptr);               /* nobody's volume now */
    EXPECT_EQ(db.srf(RDB_FAN, 0).sfsIds[0], 0);
}

/* VOL lines say that surface sets would be listed, too */
TEST(reconcile, volumesWithoutSurfaceSetsMakeNone)
{
    for (const auto &fam : srfFamilies) {
        SCOPED_TRACE(fam.keyword);
        CliRun db(volLine("v") + "#@ CNN f \"e\" n 1 t 3 n 4 q 2 m 1 r 5\n#@ CNN.VOL \"e\" 1 \"v\"\n" +
                  srfLine(fam.keyword, "x", fam.more) + "#@ " + fam.keyword + ".SFS \"x\" 1 \"s\"\n");
        ASSERT_EQ(db.open(), "");
        EXPECT_EQ(db.opened, 1);
        EXPECT_STREQ(rdbGetError(), "surface connectivity not found");
        EXPECT_EQ(db.num("nSfss"), 0);
        EXPECT_EQ(db.srf(fam.fam, 0).sfsIds, nullptr);
        ASSERT_NE(db.srf(fam.fam, 0).tpl, nullptr);  /* by its element set's first volume */
        EXPECT_EQ(db.srf(fam.fam, 0).tpl->tplType, 7);
    }
}

/* SFS lines alone: volumes are made, surface sets are not */
TEST(reconcile, surfaceSetsWithoutVolumesMakeVolumesOnly)
{
    CliRun db(sfsLine("s", 0) + "#@ CNN f \"e\" n 1 t 3 n 4 q 2 m 1 r 5\n" + srfLine("CBC", "x") +
              "#@ CBC.SFS \"x\" 1 \"s\"\n" + srfLine("FAN", "y"));
    ASSERT_EQ(db.open(), "");
    EXPECT_STREQ(rdbGetError(), "nothing to say");
    EXPECT_EQ(db.num("nVols"), 1);
    EXPECT_EQ(db.str("volName", 0), "e");
    EXPECT_EQ(db.num("nSfss"), 1);
    EXPECT_EQ(db.num("nCbcSfss", 0), 1);
    EXPECT_EQ(db.srf(RDB_FAN, 0).sfsIds, nullptr);
}

TEST(reconcile, anUnboundSetWithoutAVolumeHasNoTopology)
{
    CliRun db(volLine("v") + "#@ CNN f \"e\" n 1 t 3 n 4 q 2 m 1 r 5\n" + srfLine("CBC", "x"));
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.srf(RDB_CBC, 0).tpl, nullptr);
    int value;
    EXPECT_EQ(rdbGetInt1(db.hd, "cbcElemType", &value, 0), 0);
    EXPECT_STREQ(rdbGetError(), "topology of surface set \"x\" not found");
    EXPECT_EQ(rdbGetInt1(db.hd, "nCbcElemNodes", &value, 0), 0);
    EXPECT_EQ(rdbGetInts1(db.hd, "cbcBndNodes", &value, 0, -1, -1), 0);
}

/* ----------------------------------------------------------------------------------------------- the parents */

TEST(reconcile, aParentVolumeThatIsNotThereEndsTheOpen)
{
    for (int volId : { 1, -1, 2147483647 }) {
        CliRun db(volLine("v") + sfsLine("s", volId));
        const std::string failure = db.open();
        const std::string text = "SFS parent volId <" + std::to_string(volId) + "> not found";
        EXPECT_NE(failure.find(text), std::string::npos) << failure;
        EXPECT_NE(failure.find("Function <rdbOpenRun>"), std::string::npos) << failure;
        EXPECT_NE(db.run(), nullptr);
        EXPECT_EQ(db.hd->runId, 1);
    }
}

TEST(reconcile, aParentElementSetThatIsNotThereEndsTheOpen)
{
    const char *older = "#@ CNN f \"e\" n 1 t 3 n 4 q 2 m 1 r 5\n";
    for (const auto &fam : srfFamilies)
        for (int elmId : { 1, -1, 2147483647 })
            for (const char *sets : { oneVolume, older }) {
                std::string line = srfLine(fam.keyword, "x", fam.more);
                line.replace(line.find("elmId 0"), 7, "elmId " + std::to_string(elmId));
                CliRun db(sets + line);
                const std::string failure = db.open();
                const std::string text =
                    std::string(fam.keyword) + " parent elmId <" + std::to_string(elmId) + "> not found";
                EXPECT_NE(failure.find(text), std::string::npos) << failure;
                EXPECT_NE(failure.find("Function <rdbOpenRun>"), std::string::npos) << failure;
            }
}

/* Of an older file: the surface set made for the line has the parent that the line could not give it */
TEST(reconcile, aSetMadeBeforeItsElementSetHasNoVolume)
{
    CliRun db(srfLine("CBC", "x") + "#@ CNN f \"e\" n 1 t 3 n 4 q 2 m 1 r 5\n");
    const std::string failure = db.open();
    EXPECT_NE(failure.find("SFS parent volId <-1> not found"), std::string::npos) << failure;
}

/* The surface set that a set is made of may have been made for another set, whose element set does not exist */
TEST(reconcile, aSetOfASurfaceSetWithoutAVolumeEndsTheOpen)
{
    const char *older = "#@ CNN f \"e\" n 1 t 3 n 4 q 2 m 1 r 5\n";
    for (const auto &fam : srfFamilies) {
        const std::string keyword = fam.keyword;
        if (keyword == "HEC" || keyword == "GSF" || keyword == "SFS") continue;    /* the other set; made of none */
        std::string other = srfLine("HEC", "f");
        other.replace(other.find("elmId 0"), 7, "elmId 9");
        CliRun db(older + other + srfLine(fam.keyword, "c", fam.more) + "#@ " + keyword + ".SFS \"c\" 1 \"f\"\n");
        const std::string failure = db.open();
        EXPECT_NE(failure.find(keyword + " parent volId <-1> not found"), std::string::npos) << failure;
    }
}

/* A line that does not bind is told, a parent that does not exist is not endured */
TEST(reconcile, familiesAreTestedInTheirOrder)
{
    std::string fan = srfLine("FAN", "f"), dbc = srfLine("DBC", "d");
    fan.replace(fan.find("elmId 0"), 7, "elmId 4");
    dbc.replace(dbc.find("elmId 0"), 7, "elmId 5");
    CliRun db(oneVolume + fan + dbc);
    const std::string failure = db.open();
    EXPECT_NE(failure.find("DBC parent elmId <5> not found"), std::string::npos) << failure;
}

/* -------------------------------------------------------------------------------------------- the topologies */

/* Family by family: by its own type and quadrature, by those of its surface set, or seen from the element set. The
   volume is a wedge, the element set says hexahedron, the set has quadrilaterals and its surface set triangles. */
TEST(reconcile, whereEachFamilysTopologyComesFrom)
{
    const std::string sets = volLine("v", 5, 6) + "#@ SFS f \"s\" n 4 type 1 nsn 3 quad 2 vol 0 medium 1\n"
                             "#@ CNN f \"e\" n 1 t 6 n 8 q 1 m 1 r 5\n#@ CNN.VOL \"e\" 1 \"v\"\n";
    for (const auto &fam : srfFamilies) {
        SCOPED_TRACE(fam.keyword);
        const std::string keyword = fam.keyword;
        CliRun db(sets + "#@ " + keyword + " f \"x\" n 4 type 2 nsn 4 quad 1 elm 0 med 1" + fam.more + "\n#@ " +
                  keyword + ".SFS \"x\" 1 \"s\"\n");
        ASSERT_EQ(db.open(), "");
        const bool bySfs = strstr("RSF SRS OSF FAN HEC", fam.keyword) != nullptr;
        const rdbSrfSet &set = db.srf(fam.fam, 0);
        ASSERT_NE(set.tpl, nullptr);
        EXPECT_EQ(set.tpl->tplType, keyword == "GSF" ? 12 : bySfs ? 10 : 11);
        EXPECT_EQ(set.tpl->quadRule, bySfs ? 2 : 1);
        EXPECT_EQ(db.srf(RDB_SFS, 0).tpl->tplType, 10);
        EXPECT_EQ(db.srf(RDB_SFS, 0).tpl->quadRule, 2);
    }
}

TEST(reconcile, elementSetsAndVolumes)
{
    CliRun db(volLine("a", 3, 4) + volLine("b", 5, 6) + volLine("c", 4, 5) +
              "#@ CNN f \"e\" n 1 t 6 n 8 q 1 m 1 r 5\n#@ CNN.VOL \"e\" 2 \"a\" \"b\"\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.elm(0).tpl, tplNew(6, 1));
    EXPECT_EQ(db.elm(0).linTpl, tplNew(6, 2));
    EXPECT_EQ(db.vol(0).tpl, tplNew(3, 1));          /* the element set's quadrature */
    EXPECT_EQ(db.vol(0).linTpl, tplNew(3, 2));
    EXPECT_EQ(db.vol(1).tpl, tplNew(5, 1));
    EXPECT_EQ(db.vol(1).elmId, 0);
    EXPECT_EQ(db.vol(2).tpl, nullptr);
}

TEST(reconcile, aFaceThatTheVolumeDoesNotHaveEndsTheOpen)
{
    CliRun db(volLine("v", 6, 8) + sfsLine("s", 0));
    const std::string failure = db.open();
    EXPECT_NE(failure.find("Invalid parentTpl <6> and srfType <1> combination"), std::string::npos) << failure;
}
