/* testCli.cpp: what lines of the client information file become. */

#include <cstring>
#include <vector>

#include "test/commaLocale.h"
#include "test/rdb/cliRun.h"

/* ------------------------------------------------------------------------------------------------------ opening */

TEST(cli, onlyCommentLinesGiveAnEmptyRun)
{
    CliRun db("a comment\n\n# another\n #@ TITLE \"behind a blank\"\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.opened, 1);
    const runHd *run = db.run();
    EXPECT_EQ(run->opt, 32);
    EXPECT_EQ(run->runId, 1);
    for (const rdbList &list : run->srf) EXPECT_EQ(list.n, 0);
    for (const rdbList *list : { &run->vol, &run->elm, &run->tmf, &run->rff, &run->mmo, &run->fbd, &run->dop, &run->oth,
                                 &run->nbc, &run->pbc, &run->oaa, &run->osa, &run->oea, &run->ofs, &run->ovs, &run->ove,
                                 &run->oel })
        EXPECT_EQ(list->n, 0);
    EXPECT_EQ(run->zbc, nullptr);
    EXPECT_EQ(run->nSpecs, -1);
    EXPECT_EQ(run->nFields, -1);
    EXPECT_EQ(run->rstFromRunId, -1);
    EXPECT_EQ(run->rstFromStep, -1);
    EXPECT_EQ(db.str("title"), "");
    EXPECT_EQ(db.str("runDate"), "");
    EXPECT_EQ(db.num("nNodes"), 0);
    EXPECT_EQ(run->cli, nullptr);
    EXPECT_EQ(run->reading, nullptr);
}

TEST(cli, anEmptyFileIsAnEmptyRun)
{
    CliRun db("");
    EXPECT_EQ(db.open(), "");
    EXPECT_EQ(db.num("nVols"), 0);
}

TEST(cli, runIdZeroOpensTheLargest)
{
    testWrite("p.9.cli", "#@ TITLE \"nine\"\n");
    testWrite("p.10.cli", "#@ TITLE \"ten\"\n");
    CliRun db("#@ TITLE \"one\"\n");                /* written last */
    checkReturns(db.opened = rdbOpenRun(db.hd, 0));
    EXPECT_EQ(db.opened, 1);
    EXPECT_EQ(db.hd->runId, 10);
    EXPECT_EQ(db.str("title"), "ten");
}

TEST(cli, anUnknownRunLeavesTheOpenOne)
{
    testWrite("p.5.cli", "");
    CliRun db("#@ TITLE \"one\"\n");
    ASSERT_EQ(db.open(), "");
    for (int id : { 2, 4, 6, -1, 2147483647 }) {    /* 1 and 5 are hashed */
        EXPECT_EQ(rdbOpenRun(db.hd, id), 0);
        EXPECT_EQ(rdbGetError(), "runId " + std::to_string(id) + " not found");
    }
    EXPECT_EQ(db.str("title"), "one");
    EXPECT_EQ(rdbOpenRun(nullptr, 1), 0);
    EXPECT_STREQ(rdbGetError(), "rdb not initialized");
}

TEST(cli, anUnknownRunAmongConsecutiveOnes)
{
    testWrite("p.2.cli", "");
    CliRun db("");
    for (int id : { 3, -7 }) {
        EXPECT_EQ(rdbOpenRun(db.hd, id), 0);
        EXPECT_EQ(rdbGetError(), "runId " + std::to_string(id) + " not found");
    }
    EXPECT_EQ(db.run(), nullptr);
    EXPECT_EQ(db.hd->runId, -1);
}

TEST(cli, openingAgainReadsTheFileAnew)
{
    CliRun db("#@ TITLE \"one\"\n");
    ASSERT_EQ(db.open(), "");
    testWrite("p.1.cli", "#@ TITLE \"two\"\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.str("title"), "two");
}

TEST(cli, aFileThatWentAwayLeavesAHalfBuiltRun)
{
    CliRun db("");
    remove("p.1.cli");
    EXPECT_NE(db.open(), "");
    EXPECT_EQ(db.opened, -1);
    EXPECT_NE(db.run(), nullptr);
    EXPECT_EQ(db.hd->runId, 1);
    EXPECT_EQ(rdbCloseRun(db.hd), 1);
}

/* -------------------------------------------------------------------------------------------------------- lines */

TEST(cli, theMarkAndWhatIsJoinedToItIsOneWord)
{
    CliRun db("#@ TITLE \"a\"\n#@--more SUBTITLE \"b\"\n#@\t  BASE_UNIT \"c\"\r\n#@TITLE \"joined\"\n#@\n#@ \n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.str("title"), "a");
    EXPECT_EQ(db.str("subTitle"), "b");
    EXPECT_EQ(db.str("baseUnit"), "c");
}

TEST(cli, theEndMarkEndsBothPasses)
{
    CliRun db("#@ TITLE \"a\"\n#@ VOL f \"v\" n 1 t 3 n 4\n#@ END\n#@ SUBTITLE \"b\"\n#@ VOL f \"w\" n 1 t 3 n 4\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.str("title"), "a");
    EXPECT_EQ(db.str("subTitle"), "");
    EXPECT_EQ(db.num("nVols"), 1);
}

TEST(cli, unknownKeywordsArePassedOver)
{
    CliRun db("#@ TITL \"a\"\n#@ TITLES \"b\"\n#@ title \"c\"\n#@ ENDING\n"
              "#@ CBC.VOL \"a\" 1 \"b\"\n#@ SUBTITLE \"d\"\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.str("title"), "");
    EXPECT_EQ(db.str("subTitle"), "d");
}

TEST(cli, theRestStartsOneCharacterBehindTheKeyword)
{
    CliRun db("#@ DATE  Mon Mar 15 \n#@ VERSION 2.0\n#@ TITLE  \"a blank too many\"\n#@ SUBTITLE\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.str("runDate"), " Mon Mar 15 ");
    EXPECT_EQ(db.str("runVersion"), "2.0");
    EXPECT_EQ(db.str("title"), "");
    EXPECT_EQ(db.str("subTitle"), "");
}

TEST(cli, emptyQuotesGiveTheEmptyText)
{
    CliRun db("#@ TITLE \"first\"\n#@ TITLE \"\"\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.str("title"), "");
}

TEST(cli, longLinesAreReadWhole)
{
    const std::string longTitle(20000, 't');
    std::string names, lines;
    for (int i = 0; i < 3000; ++i) {
        const std::string name = "volume " + std::to_string(i);
        lines += "#@ VOL f \"" + name + "\" n 1 t 3 n 4\n";
        names += " \"" + name + "\"";
    }
    lines += "#@ CNN f \"e\" n 1 t 3 n 4 q 1 m 1 r 1 t 1 t 1\n#@ TITLE \"" + longTitle + "\"\n";
    lines += "#@ CNN.VOL \"e\" 3000" + names;        /* no newline at the end of the file */
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.str("title"), longTitle.substr(0, SYS_TEXT - 1));
    EXPECT_EQ(db.elm(0).nVols, 3000);
    EXPECT_EQ(db.elm(0).volIds[2999], 2999);
    EXPECT_EQ(db.vol(2999).elmId, 0);
}

/* A text that fills its buffer is cut there, the same for all that compares names */
TEST(cli, namesAndTokensAreBounded)
{
    const std::string name(10000, 'n'), file(9000, 'f');
    CliRun db("#@ VOL " + file + " \"" + name + "\" n 1 t 3 n 4\n"
              "#@ SFS s \"s\" n 1 t 1 n 3 q 1 v 5 m 1 volName \"" + name + "\"\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.vol(0).name, name.substr(0, SYS_TEXT - 1));
    EXPECT_EQ(db.vol(0).file, file.substr(0, SYS_TEXT - 1));
    EXPECT_EQ(db.srf(RDB_SFS, 0).volId, 0);
}

TEST(cli, numbersDoNotDependOnTheLocale)
{
    useCommaLocale();
    CliRun db("#@ PMC a 1 b 0.5 c 1.5e-3 d 2 e -.25 f 1e2\n");
    EXPECT_EQ(db.open(), "");
    EXPECT_EQ(db.run()->pmcLump, 0.5);
    EXPECT_EQ(db.run()->pmcDamp, 1.5e-3);
    EXPECT_EQ(db.run()->pmcAlpha, 2.0);
    EXPECT_EQ(db.run()->pmcAlphaMass, -0.25);
    EXPECT_EQ(db.run()->pmcGamma, 100.0);
}

/* What does not come keeps its first value, and so does what stands behind it */
TEST(cli, aLineEndsWhereAValueIsMissing)
{
    static const struct { const char *rest; int order; double lump, damp; } rows[] = {
        { "",                              0, 0.0,  0.0  },
        { "a",                             0, 0.0,  0.0  },
        { "a 3",                           3, 0.0,  0.0  },
        { "a 3 b",                         3, 0.0,  0.0  },
        { "a 3 b 0.5",                     3, 0.5,  0.0  },
        { "a x b 0.5 c 0.25",              0, 0.0,  0.0  },
        { "a 3 b x c 0.25",                3, 0.0,  0.0  },
        { "a 3 b 1e c 0.25",               3, 0.0,  0.0  },
        { "3 b 0.5",                       0, 0.0,  0.0  },       /* 3 is taken for the label */
        { "a +3  b\t 5e-1 c 0x1p-2 x y z", 3, 0.5,  0.25 },
        { "a -3.5 b 0.25",                 -3, 0.0, 0.0  },       /* .5 is taken for the label, b is no number */
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.rest);
        CliRun db("#@ PMC " + std::string(row.rest) + "\n");
        ASSERT_EQ(db.open(), "");
        EXPECT_EQ(db.run()->pmcOrder, row.order);
        EXPECT_EQ(db.run()->pmcLump, row.lump);
        EXPECT_EQ(db.run()->pmcDamp, row.damp);
    }
}

TEST(cli, anEmptyNameStopsTheScanOfItsLine)
{
    CliRun db("#@ NBC f.B \"\" n 5 v 6\n#@ OTH f.B \"x\n#@ TMF no quotes\n#@ NBC f.B \"a name\" n 5 v 6\n");
    ASSERT_EQ(db.open(), "");
    const rdbNodeSet &first = db.rec<rdbNodeSet>(db.run()->nbc, 0), &second = db.rec<rdbNodeSet>(db.run()->nbc, 1);
    EXPECT_STREQ(first.name, "");
    EXPECT_STREQ(first.file, "f.B");
    EXPECT_EQ(first.nRows, 0);
    EXPECT_EQ(first.number, 0);
    EXPECT_EQ(first.width, 1);
    EXPECT_STREQ(second.name, "a name");
    EXPECT_EQ(second.nRows, 5);
    EXPECT_STREQ(db.rec<rdbRecSet>(db.run()->oth, 0).name, "x");
    EXPECT_STREQ(db.rec<rdbRecSet>(db.run()->tmf, 0).name, "");
}

/* ----------------------------------------------------------------------------------------------- every keyword */

#define IS(text, expected) (text && strcmp(text, expected) == 0)
#define REC(Type, list, i) (run->list.n > i && run->list.rec[i] ? (const Type *) run->list.rec[i] : nullptr)

static const struct { const char *lines; bool (*holds)(const runHd *run); } keywords[] = {
    { "#@ DATE Mon Mar 15", [](const runHd *run) { return IS(run->date, "Mon Mar 15"); } },
    { "#@ VERSION v 1", [](const runHd *run) { return IS(run->version, "v 1"); } },
    { "#@ DIR /old/place", [](const runHd *run) { return IS(run->dir, "/old/place"); } },
    { "#@ FMT 16", [](const runHd *run) { return run->opt == 16; } },
    { "#@ NSDS 4", [](const runHd *run) { return run->nSds == 4; } },
    { "#@ RST dir a/b problem q run 3 step 40", [](const runHd *run) {
        return IS(run->rstFromDir, "a/b") && IS(run->rstFromProblem, "q") && run->rstFromRunId == 3 &&
               run->rstFromStep == 40; } },
    { "#@ TITLE \"a title\"", [](const runHd *run) { return IS(run->title, "a title"); } },
    { "#@ SUBTITLE \"below it\"", [](const runHd *run) { return IS(run->subTitle, "below it"); } },
    { "#@ BASE_UNIT \"m kg\"", [](const runHd *run) { return IS(run->baseUnit, "m kg"); } },
    { "#@ PMC o 2 l 0.5 d 0.25 a 0.125 m 1.5 g 2.5", [](const runHd *run) {
        return run->pmcOrder == 2 && run->pmcLump == 0.5 && run->pmcDamp == 0.25 && run->pmcAlpha == 0.125 &&
               run->pmcAlphaMass == 1.5 && run->pmcGamma == 2.5; } },
    { "#@ RAD p.rad n 7 m 8", [](const runHd *run) {
        return IS(run->radFile, "p.rad") && run->nRads == 7 && run->nRads2 == 8; } },
    { "#@ CRD p.crd.B n 12", [](const runHd *run) {
        return IS(run->crdFile, "p.crd.B") && run->nNodes == 12 && IS(run->initCrdFile, "p.crd.B") &&
               run->nInitNodes == 12; } },
    { "#@ CRD p.crd.B n 12\n#@ MODCRD q.crd.B n 13", [](const runHd *run) {
        return IS(run->crdFile, "q.crd.B") && run->nNodes == 13 && IS(run->initCrdFile, "p.crd.B") &&
               run->nInitNodes == 12; } },
    { "#@ TMF \"t\" n -3", [](const runHd *run) {
        const auto *rec = REC(rdbRecSet, tmf, 0);
        return rec && IS(rec->name, "t") && rec->number == -3; } },
    { "#@ RFF \"r\" org 1 2 3 vel 4 5 6.5 a 7 b 8 c 9", [](const runHd *run) {
        const auto *rec = REC(rdbRff, rff, 0);
        return rec && IS(rec->name, "r") && rec->org[0] == 1 && rec->org[1] == 2 && rec->org[2] == 3 &&
               rec->angVel[0] == 4 && rec->angVel[1] == 5 && rec->angVel[2] == 6.5 && rec->numbers[0] == 7 &&
               rec->numbers[1] == 8 && rec->numbers[2] == 9; } },
    { "#@ MMO \"m\" n 3", [](const runHd *run) {
        const auto *rec = REC(rdbRecSet, mmo, 0);
        return rec && IS(rec->name, "m") && rec->number == 3; } },
    { "#@ FBD \"f\" n 3", [](const runHd *run) {
        const auto *rec = REC(rdbRecSet, fbd, 0);
        return rec && IS(rec->name, "f") && rec->number == 3; } },
    { "#@ OTH a.oth \"history\" n 3\n#@ DOP n 6", [](const runHd *run) {
        const auto *rec = REC(rdbRecSet, dop, 0);           /* takes the words of the line before */
        return rec && IS(rec->file, "a.oth") && IS(rec->name, "history") && rec->number == 6; } },
    { "#@ DOP n 6", [](const runHd *run) {
        const auto *rec = REC(rdbRecSet, dop, 0);
        return rec && IS(rec->file, "") && IS(rec->name, "") && rec->number == 6; } },
    { "#@ NBC p.nbc.B \"n\" n 3 v 4", [](const runHd *run) {
        const auto *rec = REC(rdbNodeSet, nbc, 0);
        return rec && IS(rec->file, "p.nbc.B") && IS(rec->name, "n") && rec->nRows == 3 && rec->number == 4 &&
               rec->width == 1; } },
    { "#@ ZBC p.zbc.B \"z\" n 3 v 4", [](const runHd *run) {
        const auto *rec = run->zbc;
        return rec && IS(rec->file, "p.zbc.B") && IS(rec->name, "z") && rec->nRows == 3 && rec->number == 4 &&
               rec->width == 1; } },
    { "#@ PBC p.pbc.B \"p\" n 3 v 4", [](const runHd *run) {
        const auto *rec = REC(rdbNodeSet, pbc, 0);
        return rec && IS(rec->file, "p.pbc.B") && IS(rec->name, "p") && rec->nRows == 3 && rec->number == 4 &&
               rec->width == 2; } },
    { "#@ OTH p.oth \"h\" n 3", [](const runHd *run) {
        const auto *rec = REC(rdbRecSet, oth, 0);
        return rec && IS(rec->file, "p.oth") && IS(rec->name, "h") && rec->number == 3; } },
    { "#@ CNN f \"e\" n 3 t 6 n 8 q 1 m 4 r 5", [](const runHd *run) {
        const auto *rec = REC(rdbElmSet, elm, 0);
        return rec && IS(rec->file, "f") && IS(rec->name, "e") && rec->nElems == 3 && rec->type == 6 &&
               rec->nElemNodes == 8 && rec->quad == 1 && rec->medium == 4 && rec->rffId == 5 && rec->shlThick == 1.0 &&
               rec->tol == 0.0; } },
    { "#@ CNN f \"e\" n 3 t 6 n 8 q 1 m 4 r 5 t 0.5 t 0.25", [](const runHd *run) {
        const auto *rec = REC(rdbElmSet, elm, 0);
        return rec && rec->shlThick == 0.5 && rec->tol == 0.25; } },
    { "#@ VOL f \"v\" n 3 t 6 n 8", [](const runHd *run) {
        const auto *rec = REC(rdbVolSet, vol, 0);
        return rec && IS(rec->file, "f") && IS(rec->name, "v") && rec->nElems == 3 && rec->type == 6 &&
               rec->nElemNodes == 8; } },
    { "#@ OEL f \"o\" a 1 b 2 c 3 quad 4 d 5 e 6 flag 2 n 0", [](const runHd *run) {
        const auto *rec = REC(rdbOel, oel, 0);
        return rec && IS(rec->name, "o") && rec->quad == 4 && rec->flag == 1 && rec->nVols == 1 &&
               rec->nNodes[0] == -1 && rec->nRead == 0; } },
    { "#@ OAA f \"o\" n 3\n#@ OAD d \"o\" n 4", [](const runHd *run) {
        const auto *rec = REC(rdbOaa, oaa, 0);
        return rec && IS(rec->file, "f") && IS(rec->name, "o") && rec->nNodes == 3 && IS(rec->dirFile, "d"); } },
    { "#@ OAA f \"o\" n 3\n#@ OAD d \"other\" n 4", [](const runHd *run) {
        const auto *rec = REC(rdbOaa, oaa, 0);
        return rec && !rec->dirFile; } },
    { "#@ OSA f \"o\" n 3 m 4 oaa 5", [](const runHd *run) {
        const auto *rec = REC(rdbOutMesh, osa, 0);
        return rec && IS(rec->file, "f") && IS(rec->name, "o") && rec->nRows == 3 && rec->nRowNodes == 4 &&
               rec->oaaId == 5; } },
    { "#@ OEA f \"o\" n 3 m 4 oaa 5", [](const runHd *run) {
        const auto *rec = REC(rdbOutMesh, oea, 0);
        return rec && IS(rec->file, "f") && IS(rec->name, "o") && rec->nRows == 3 && rec->nRowNodes == 4 &&
               rec->oaaId == 5; } },
    { "#@ OFS f \"o\" n 3", [](const runHd *run) {
        const auto *rec = REC(rdbOutMesh, ofs, 0);
        return rec && IS(rec->file, "f") && IS(rec->name, "o") && rec->nNodes == 3; } },
    { "#@ OVS f \"o\" n 3\n#@ VAS g \"o\" n 4 m 5", [](const runHd *run) {
        const auto *rec = REC(rdbOutMesh, ovs, 0);
        return rec && IS(rec->file, "f") && IS(rec->name, "o") && rec->nNodes == 3 && IS(rec->file2, "g") &&
               rec->nRows == 4 && rec->nRowNodes == 5; } },
    { "#@ OVE f \"o\" n 3\n#@ VAE g \"o\" n 4 m 5", [](const runHd *run) {
        const auto *rec = REC(rdbOutMesh, ove, 0);
        return rec && IS(rec->file, "f") && IS(rec->name, "o") && rec->nNodes == 3 && IS(rec->file2, "g") &&
               rec->nRows == 4 && rec->nRowNodes == 5; } },
    { "#@ SPC \"H2O\" w\n#@ SPC  \"O2\"", [](const runHd *run) {
        return run->nSpecs == 2 && IS(run->speciesNames[0], "H2O") && IS(run->speciesNames[1], "O2") &&
               IS(run->speciesNames[2], "species_3"); } },
    { "#@ MFD \"alpha\" w 3\n#@ MFD \"beta\"", [](const runHd *run) {
        return run->nFields == 2 && IS(run->fieldNames[0], "alpha") && run->fieldKinds[0] == 3 &&
               IS(run->fieldNames[1], "beta") && run->fieldKinds[1] == 0; } },
};

TEST(cli, everyKeywordOfTheRun)
{
    for (const auto &row : keywords) {
        SCOPED_TRACE(row.lines);
        CliRun db(std::string(row.lines) + "\n");
        ASSERT_EQ(db.open(), "");
        EXPECT_TRUE(row.holds(db.run()));
    }
}

/* A DOP line takes the last file token and the last name that came, each for itself, wherever they came */
TEST(cli, theWordsOfALineWithoutAny)
{
    static const struct { const char *lines, *file, *name; } rows[] = {
        { "#@ TMF \"t\" n 1\n",                                  "a",   "t" },
        { "#@ RFF \"r\" o 1 2 3\n",                              "a",   "r" },
        { "#@ SPC \"s\" w\n",                                    "a",   "s" },
        { "#@ MFD \"m\" w 1\n",                                  "a",   "m" },
        { "#@ CRD c n 3\n",                                      "c",   "h" },
        { "#@ MODCRD c n 3\n",                                   "c",   "h" },
        { "#@ RAD c n 3 m 1\n",                                  "c",   "h" },
        { "#@ ZBC c \"z\" n 3 v 1\n",                            "c",   "z" },
        { "#@ OAD c \"of no OAA\" n 3\n",                        "c",   "of no OAA" },
        { "#@ VAS c \"of no OVS\" n 3 m 4\n",                    "c",   "of no OVS" },
        { "#@ VAE c \"of no OVE\" n 3 m 4\n",                    "c",   "of no OVE" },
        { "#@ OEL c \"o\" a 1 b 2 c 3 q 4 d 5 e 6 f 2 n 0\n",    "c",   "o" },
        { "#@ OEL c \"o\" a 1 b 2 c 3 q 4 d 5 e 6 f 2 n 0\n"
          "#@ OEL.VOL d \"p\" n 10 t 3 n 4 q 1 v 0 m 1\n",       "d",   "p" },
        { "#@ OTH c \"\" n 3\n",                                 "c",   "h" },
        { "#@ OTH\n#@ OTH \n",                                   "a",   "h" },
        { "#@ CBC c \"x\" n 4 t 1 n 3 q 1 e 0 m 6\n"
          "#@ CBC.SFS \"x\" 1 \"srf\"\n#@ CBC.SFS \"y\" 1 \"srf\"\n"
          "#@ CNN.VOL \"elm\" 1 \"vol\"\n",                      "c",   "x" },
        { "#@ TITLE \"t\"\n#@ RST d c p q r 1 s 2\n",            "a",   "h" },
        { "#@ DIR /old\n#@ OTH /old/c \"o\" n 3\n",              "./c", "o" },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.lines);
        CliRun db(std::string(oneVolume) + "#@ OTH a \"h\" n 3\n" + row.lines + "#@ DOP n 6\n");
        ASSERT_EQ(db.open(), "");
        EXPECT_STREQ(db.rec<rdbRecSet>(db.run()->dop, 0).file, row.file);
        EXPECT_STREQ(db.rec<rdbRecSet>(db.run()->dop, 0).name, row.name);
    }
}

TEST(cli, everyFamilyOfSurfaceSets)
{
    for (const auto &fam : srfFamilies) {
        SCOPED_TRACE(fam.keyword);
        CliRun db(oneVolume + srfLine(fam.keyword, "x", fam.more) + "#@ " + fam.keyword + ".SFS \"x\" 1 \"srf\"\n");
        ASSERT_EQ(db.open(), "");
        EXPECT_STREQ(rdbGetError(), "nothing to say");
        const rdbSrfSet &set = db.srf(fam.fam, 0);
        EXPECT_STREQ(set.file, "x.srf");
        EXPECT_STREQ(set.name, "x");
        EXPECT_EQ(set.nSrfs, 4);
        EXPECT_EQ(set.type, 1);
        EXPECT_EQ(set.nSrfNodes, 3);
        EXPECT_EQ(set.quad, 1);
        EXPECT_EQ(set.elmId, 0);
        EXPECT_EQ(set.medium, 6);
        EXPECT_EQ(set.nNodes, -1);
        EXPECT_EQ(set.volId, 0);
        EXPECT_EQ(set.nSfss, 1);
        ASSERT_NE(set.sfsIds, nullptr);
        EXPECT_EQ(set.sfsIds[0], 0);
        const bool hasBc = strstr(fam.more, " 9") != nullptr;
        EXPECT_EQ(set.bcType, hasBc ? 9 : 0);
    }
}

TEST(cli, whatSingleFamiliesAdd)
{
    std::string lines = oneVolume;
    for (const auto &fam : srfFamilies) lines += srfLine(fam.keyword, fam.keyword, fam.more);
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.srf(RDB_CBC, 0).actType, 5);
    const rdbSrfSet &rsf = db.srf(RDB_RSF, 0), &ssi = db.srf(RDB_SSI, 0);
    EXPECT_EQ(rsf.aggl, 2);
    EXPECT_EQ(rsf.agglCnt, 3);
    EXPECT_EQ(rsf.agglAng, 0.5);
    EXPECT_EQ(rsf.agglRad, 0.25);
    EXPECT_EQ(ssi.gapFct, 0.5);
    EXPECT_EQ(ssi.gap, 0.25);
    EXPECT_EQ(ssi.creaseAng, 0.125);
}

TEST(cli, surfaceSetLine)
{
    CliRun db("#@ VOL f \"v\" n 1 t 3 n 4\n"
              "#@ SFS f.B \"a\" n 4 t 1 n 3 q 1 v 0 m 7\n"
              "#@ SFS f.B \"b\" n 4 t 1 n 3 q 1 v 0 m 7 other \"v\"\n"
              "#@ SFS f.B \"c\" n 4 t 1 n 3 q 1 v 0 m 7 volName \"v\"\n"
              "#@ SFS.SFS 1 5\n#@ SFS.SFS  2  -6\n#@ SFS.SFS 0\n");
    ASSERT_EQ(db.open(), "");
    const rdbSrfSet &a = db.srf(RDB_SFS, 0), &b = db.srf(RDB_SFS, 1), &c = db.srf(RDB_SFS, 2);
    EXPECT_EQ(a.nSrfs, 4);
    EXPECT_EQ(a.type, 1);
    EXPECT_EQ(a.nSrfNodes, 3);
    EXPECT_EQ(a.quad, 1);
    EXPECT_EQ(a.volId, 0);
    EXPECT_EQ(a.medium, 7);
    EXPECT_EQ(a.volNameGiven, 0);
    EXPECT_EQ(b.volNameGiven, 0);
    EXPECT_EQ(c.volNameGiven, 1);
    EXPECT_STREQ(c.volName, "v");
    EXPECT_EQ(a.neighbor, 0);
    EXPECT_EQ(b.neighbor, 5);
    EXPECT_EQ(c.neighbor, -6);
}

TEST(cli, neighborOfASetThatIsNotThereIsPassedOver)
{
    for (const char *id : { "1", "-1", "2147483647", "99999999999999999999" }) {
        CliRun db(std::string(oneVolume) + "#@ SFS.SFS " + id + " 7\n");
        ASSERT_EQ(db.open(), "");
        EXPECT_EQ(db.opened, 1);
        EXPECT_NE(std::string(rdbGetError()).find("not found"), std::string::npos);
        EXPECT_EQ(db.srf(RDB_SFS, 0).neighbor, 0);
    }
}

TEST(cli, actTypeOfCbc)
{
    static const struct { const char *more; int actType; } rows[] = {
        { " bc 9",           1 }, { " bc 9 actType",   1 }, { " bc 9 actType 4", 4 },
        { " bc 9 other 4",   1 }, { " bc 9 actType x", 1 }, { "",                1 },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.more);
        CliRun db(oneVolume + srfLine("CBC", "x", row.more));
        ASSERT_EQ(db.open(), "");
        EXPECT_EQ(db.srf(RDB_CBC, 0).actType, row.actType);
    }
}

TEST(cli, aSecondZbcReplacesTheFirst)
{
    CliRun db("#@ ZBC a \"first\" n 3 v 4\n#@ ZBC b \"second\"\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_STREQ(db.run()->zbc->name, "second");
    EXPECT_STREQ(db.run()->zbc->file, "b");
    EXPECT_EQ(db.run()->zbc->nRows, 0);
}

TEST(cli, listsGrow)
{
    std::string lines;
    for (int i = 0; i < 100; ++i) lines += "#@ TMF \"" + std::to_string(i) + "\" n " + std::to_string(i) + "\n";
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    ASSERT_EQ(db.run()->tmf.n, 100);
    EXPECT_EQ(db.run()->tmf.cap, 128);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(db.rec<rdbRecSet>(db.run()->tmf, i).name, std::to_string(i));
        EXPECT_EQ(db.rec<rdbRecSet>(db.run()->tmf, i).number, i);
    }
}

/* The numbers of VAS and VAE go to the record that was made or found last, whatever they name */
TEST(cli, secondMeshFileNumbersGoToTheRecordBefore)
{
    for (const auto *k : { "VS", "VE" }) {
        const std::string set = std::string("O") + k, more = std::string("VA") + k[1];
        CliRun db("#@ " + more + " z \"a\" n 90 m 91\n"
                  "#@ " + set + " f \"a\" n 3\n#@ " + set + " f \"b\" n 3\n"
                  "#@ " + more + " ga \"a\" n 4 m 5\n"
                  "#@ " + more + " gb \"b\" n 6 m 7\n"
                  "#@ " + more + " gc \"c\" n 8 m 9\n");
        ASSERT_EQ(db.open(), "");
        const rdbList &list = k[1] == 'S' ? db.run()->ovs : db.run()->ove;
        const rdbOutMesh &a = db.rec<rdbOutMesh>(list, 0), &b = db.rec<rdbOutMesh>(list, 1);
        EXPECT_STREQ(a.file2, "ga");
        EXPECT_STREQ(b.file2, "gb");
        EXPECT_EQ(a.nRows, 6);                       /* of gb: a was found last then */
        EXPECT_EQ(a.nRowNodes, 7);
        EXPECT_EQ(b.nRows, 8);                       /* first 4 of ga, then 8 of gc, which found nothing */
        EXPECT_EQ(b.nRowNodes, 9);
    }
}

/* ---------------------------------------------------------------------------------------------------- name lists */

TEST(cli, namesAreLookedUp)
{
    CliRun db("#@ VOL f \"a\" n 1 t 3 n 4\n#@ VOL f \"b\" n 1 t 3 n 4\n#@ VOL f \"c d\" n 1 t 3 n 4\n"
              "#@ VOL f \"b\" n 1 t 3 n 4\n"
              "#@ CNN f \"e\" n 1 t 3 n 4 q 1 m 1 r 1\n"
              "#@ CNN.VOL \"e\" 4 \"c d\" \"b\" \"not there\" \"a\"\n");
    ASSERT_EQ(db.open(), "");
    const rdbElmSet &set = db.elm(0);
    ASSERT_EQ(set.nVols, 4);
    EXPECT_EQ(set.volIds[0], 2);
    EXPECT_EQ(set.volIds[1], 3);                     /* of two, the later */
    EXPECT_EQ(set.volIds[2], 0);                     /* unknown: the first */
    EXPECT_EQ(set.volIds[3], 0);
    EXPECT_STREQ(set.volNames[0], "c d");
    EXPECT_STREQ(set.volNames[3], "a");
    int ids[4];
    EXPECT_EQ(rdbGetInts1(db.hd, "elmVolIds", ids, 0, 4, -1), 1) << rdbGetError();
    EXPECT_EQ(ids[0], 2);
}

/* Names behind a gap other than one blank are lost: they stand for the first set */
TEST(cli, anExtraBlankLosesTheNamesThatFollow)
{
    static const struct { const char *rest; int ids[3]; } rows[] = {
        { "\"x\" 3 \"b\" \"c\" \"b\"",   { 1, 2, 1 } },
        { "\"x\" 3 \"b\"  \"c\" \"b\"",  { 1, 0, 0 } },
        { "\"x\" 3 \"b\" \"c\"  \"b\"",  { 1, 2, 0 } },
        { "\"x\"  3 \"b\" \"c\" \"b\"",  { 1, 0, 0 } },
        { "\"x\" 3  \"b\" \"c\" \"b\"",  { 1, 0, 0 } },
        { "\"x\" 03 \"b\" \"c\" \"b\"",  { 1, 0, 0 } },
        { "\"x\" 3 \"b\"\t\"c\" \"b\"",  { 1, 2, 1 } },
        { "\"x\" 3 \"b\" \"\" \"c\"",    { 1, 0, 0 } },
        { "\"x\" 3 \"b\" \"c\"",         { 1, 2, 0 } },
        { "\"x\" 3 \"b\"",               { 1, 0, 0 } },
    };
    std::string sets = oneVolume;
    for (const char *name : { "b", "c" })
        sets += "#@ SFS s.B \"" + std::string(name) + "\" nSrfs 4 type 1 nsn 3 quad 1 vol 0 medium 7\n";
    for (const auto &row : rows) {
        SCOPED_TRACE(row.rest);
        CliRun db(sets + srfLine("CBC", "x") + "#@ CBC.SFS " + row.rest + "\n");
        ASSERT_EQ(db.open(), "");
        const rdbSrfSet &set = db.srf(RDB_CBC, 0);
        ASSERT_EQ(set.nSfss, 3);
        for (int k = 0; k < 3; ++k) EXPECT_EQ(set.sfsIds[k], row.ids[k]) << k;
    }
}

/* The count may be larger than its line is long */
TEST(cli, namesThatDoNotComeStandForTheFirstSet)
{
    CliRun db(std::string(oneVolume) + "#@ SFS s.B \"b\" nSrfs 4 type 1 nsn 3 quad 1 vol 0 medium 7\n" +
              srfLine("CBC", "x") + "#@ CBC.SFS \"x\" 50 \"b\"\n#@ TITLE \"goes on\"\n");
    ASSERT_EQ(db.open(), "");
    const rdbSrfSet &set = db.srf(RDB_CBC, 0);
    ASSERT_EQ(set.nSfss, 50);
    EXPECT_EQ(set.sfsIds[0], 1);
    for (int k = 1; k < 50; ++k) EXPECT_EQ(set.sfsIds[k], 0);
    EXPECT_EQ(db.str("title"), "goes on");
}

TEST(cli, aCountBelowTwoReadsTheFirstName)
{
    for (int count : { 0, 1 }) {
        CliRun db(oneVolume + srfLine("CBC", "x") + "#@ CBC.SFS \"x\" " + std::to_string(count) + " \"srf\" \"srf\"\n");
        ASSERT_EQ(db.open(), "");
        EXPECT_EQ(db.srf(RDB_CBC, 0).nSfss, count);
        EXPECT_EQ(db.srf(RDB_CBC, 0).sfsIds[0], 0);
        EXPECT_EQ(db.num("nCbcSfss", 0), count);
    }
}

TEST(cli, aListLineWithoutANameBindsNothing)
{
    for (const char *rest : { "\"x\"", "\"x\" 1", "\"x\" one \"srf\"", "\"x\" 1 \"\"" }) {
        SCOPED_TRACE(rest);
        CliRun db(oneVolume + srfLine("CBC", "x") + "#@ CBC.SFS " + rest + "\n");
        ASSERT_EQ(db.open(), "");
        EXPECT_EQ(db.srf(RDB_CBC, 0).sfsIds, nullptr);
        EXPECT_EQ(db.num("nCbcSfss", 0), 0);
    }
}

TEST(cli, aLaterListLineReplacesTheFormer)
{
    CliRun db(std::string(oneVolume) + "#@ CNN.VOL \"elm\" 2 \"vol\" \"vol\"\n" + srfLine("CBC", "x") +
              "#@ CBC.SFS \"x\" 2 \"srf\" \"srf\"\n#@ CBC.SFS \"x\" 1 \"srf\"\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.elm(0).nVols, 2);
    EXPECT_EQ(db.elm(0).nVolNames, 2);
    EXPECT_EQ(db.srf(RDB_CBC, 0).nSfss, 1);
}

/* What does not fit is told in the error text; the open goes on */
TEST(cli, listLinesThatDoNotFitAreTold)
{
    struct Row { std::string lines, text; };
    std::vector<Row> rows = {
        { "#@ CNN.VOL \"e\" 1 \"v\"\n", "element connectivity not found" },
        { std::string(oneVolume) + "#@ CNN.VOL \"other\" 1 \"vol\"\n", "inconsistent element and volume set" },
        { "#@ OEL.VOL f \"o\" n 1 t 3 n 4 q 1 v 0 m 1\n", "element output not found" },
        { std::string(oneVolume) + "#@ OEL f \"o\" a 1 b 2 c 3 q 4 d 5 e 6 f 2 n 1\n"
          "#@ OEL.VOL f \"other\" n 10 t 3 n 4 q 1 v 0 m 1\n", "inconsistent element and volume set" },
        { std::string(oneVolume) + "#@ OEL f \"o\" a 1 b 2 c 3 q 4 d 5 e 6 f 2 n 1\n"
          "#@ OEL.VOL f \"o\" n 10 t 3 n 4 q 1 v 0 m 1\n#@ OEL.VOL f \"o\" n 10 t 3 n 4 q 1 v 0 m 1\n",
          "inconsistent element and volume set" },
    };
    for (const auto &fam : srfFamilies) {
        const std::string keyword = fam.keyword;
        rows.push_back({ oneVolume + srfLine(keyword, "x") + "#@ " + keyword + ".SFS \"y\" 1 \"srf\"\n",
                         "inconsistent " + keyword + " and surface set" });
        rows.push_back({ std::string(oneVolume) + "#@ " + keyword + ".SFS \"y\" 1 \"srf\"\n",
                         "surface connectivity not found" });
    }
    for (const Row &row : rows) {
        SCOPED_TRACE(row.lines);
        CliRun db(row.lines + "#@ TITLE \"goes on\"\n");
        ASSERT_EQ(db.open(), "");
        EXPECT_EQ(db.opened, 1);
        EXPECT_EQ(rdbGetError(), row.text);
        EXPECT_EQ(db.str("title"), "goes on");
    }
}

TEST(cli, listLinesActOnTheLastLine)
{
    CliRun db(oneVolume + srfLine("CBC", "x") + srfLine("CBC", "y") + "#@ CBC.SFS \"x\" 1 \"srf\"\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_STREQ(rdbGetError(), "inconsistent CBC and surface set");
}

/* ------------------------------------------------------------------------------------------------ output elements */

static const std::string twoVolumes =
    "#@ VOL f \"va\" n 10 t 3 n 4\n#@ VOL f \"vb\" n 20 t 3 n 4\n#@ OEL f \"o\" a 1 b 2 c 3 q 4 d 5 e 6 flag 2 n 2\n";

TEST(cli, volumesOfOutputElements)
{
    CliRun db(twoVolumes + "#@ OEL.VOL fa \"o\" n 20 t 3 nen 4 q 1 vol 1 m 7\n"
                           "#@ OEL.VOL fb \"o\" n 5 t 6 nen 8 q 1 vol 1 m 8 volName \"va\"\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_STREQ(rdbGetError(), "nothing to say");
    const rdbOel &oel = db.rec<rdbOel>(db.run()->oel, 0);
    EXPECT_EQ(oel.flag, 2);
    ASSERT_EQ(oel.nVols, 2);
    EXPECT_EQ(oel.nRead, 2);
    EXPECT_STREQ(oel.files[0], "fa");
    EXPECT_STREQ(oel.files[1], "fb");
    EXPECT_EQ(oel.nElems[0], 20);
    EXPECT_EQ(oel.nElems[1], 5);
    EXPECT_EQ(oel.types[1], 6);
    EXPECT_EQ(oel.nElemNodes[1], 8);
    EXPECT_EQ(oel.volIds[0], 1);
    EXPECT_EQ(oel.volIds[1], 0);                     /* by its name */
    EXPECT_EQ(oel.parentIds[0], 1);
    EXPECT_EQ(oel.parentIds[1], 1);                  /* as given */
    EXPECT_EQ(oel.media[0], 7);
    EXPECT_EQ(oel.media[1], 8);
    EXPECT_EQ(oel.nNodes[0], -1);
    EXPECT_EQ(oel.nNodes[1], -1);
}

/* Of two volumes of one name the given one stays; only a name that does not fit is looked for, and the last found */
TEST(cli, outputElementsOfAVolumeWhoseNameIsThereTwice)
{
    CliRun db("#@ VOL f \"other\" n 10 t 3 n 4\n#@ VOL f \"v\" n 10 t 3 n 4\n#@ VOL f \"v\" n 10 t 3 n 4\n"
              "#@ OEL f \"o\" a 1 b 2 c 3 q 4 d 5 e 6 flag 2 n 2\n"
              "#@ OEL.VOL f \"o\" n 10 t 3 n 4 q 1 vol 1 m 7 volName \"v\"\n"
              "#@ OEL.VOL f \"o\" n 10 t 3 n 4 q 1 vol 0 m 7 volName \"v\"\n");
    ASSERT_EQ(db.open(), "");
    const rdbOel &oel = db.rec<rdbOel>(db.run()->oel, 0);
    EXPECT_EQ(oel.volIds[0], 1);
    EXPECT_EQ(oel.volIds[1], 2);
}

TEST(cli, wrongVolumesOfOutputElementsEndTheOpen)
{
    static const struct { const char *line, *text; } rows[] = {
        { "#@ OEL.VOL f \"o\" n 11 t 3 n 4 q 1 vol 0 m 7\n", "Inconsistent volume of OEl.VOL va" },
        { "#@ OEL.VOL f \"o\" n 11 t 3 n 4 q 1 vol 0 m 7 other \"va\"\n", "Inconsistent volume of OEl.VOL va" },
        { "#@ OEL.VOL f \"o\"\n", "Inconsistent volume of OEl.VOL va" },
        { "#@ OEL.VOL f \"o\" n 11 t 3 n 4 q 1 vol 0 m 7 volName \"vc\"\n", "Cannot find volName vc for OEL.VOL" },
        { "#@ OEL.VOL f \"o\" n 11 t 3 n 4 q 1 vol 9 m 7 volName \"vc\"\n", "Cannot find volName vc for OEL.VOL" },
        { "#@ OEL.VOL f \"o\" n 10 t 3 n 4 q 1 vol 2 m 7\n", "OEL.VOL volId <2> not found" },
        { "#@ OEL.VOL f \"o\" n 10 t 3 n 4 q 1 vol -1 m 7\n", "OEL.VOL volId <-1> not found" },
        { "#@ OEL.VOL f \"o\" n -1 t 3 n 4 q 1 vol 0 m 7 volName \"va\"\n",
          "Invalid nOelElems <-1> for OEL.VOL \"o\"" },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.line);
        CliRun db(twoVolumes + row.line);
        const std::string failure = db.open();
        EXPECT_NE(failure.find(row.text), std::string::npos) << failure;
        EXPECT_NE(failure.find("rdbOpenRun"), std::string::npos) << failure;
    }
}

/* Without VOL lines there is one volume, that of the first element set */
TEST(cli, outputElementsOfAnOlderFile)
{
    CliRun db("#@ CNN f \"a\" n 3 t 3 n 4 q 1 m 4 r 5\n#@ CNN f \"b\" n 3 t 3 n 4 q 1 m 4 r 5\n"
              "#@ OEL f \"o\" a 1 b 2 c 3 q 4 d 5 e 6 flag 2 n 9\n");
    ASSERT_EQ(db.open(), "");
    const rdbOel &oel = db.rec<rdbOel>(db.run()->oel, 0);
    EXPECT_EQ(oel.flag, 1);
    EXPECT_EQ(oel.nVols, 1);
    EXPECT_EQ(oel.volIds[0], 0);
}

/* ------------------------------------------------------------------------------------------------- the run's place */

TEST(cli, aRunThatWasMovedIsReadWhereItIs)
{
    CliRun db("#@ DIR /old/place\n"
              "#@ VOL /old/place/v \"v\" n 1 t 3 n 4\n"
              "#@ SFS /old/place/s \"s\" n 1 t 1 n 3 q 1 v 0 m 1\n"
              "#@ NBC /old/place/n \"a\" n 1 v 1\n#@ NBC /old/places/n \"b\" n 1 v 1\n"
              "#@ NBC x/old/place/n \"c\" n 1 v 1\n#@ NBC /old/place \"d\" n 1 v 1\n"
              "#@ NBC /old/place/sub/n \"e\" n 1 v 1\n#@ NBC /old/place/ \"f\" n 1 v 1\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_STREQ(db.vol(0).file, "/old/place/v");
    EXPECT_STREQ(db.srf(RDB_SFS, 0).file, "/old/place/s");
    const char *files[] = { "./n", "/old/places/n", "x/old/place/n", "/old/place", "./sub/n", "./" };
    for (int i = 0; i < 6; ++i) EXPECT_STREQ(db.rec<rdbNodeSet>(db.run()->nbc, i).file, files[i]);
}

TEST(cli, theDirectoryCountsFromItsLineOn)
{
    CliRun db("#@ NBC /old/n \"a\" n 1 v 1\n#@ DIR /old\n#@ NBC /old/n \"b\" n 1 v 1\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_STREQ(db.rec<rdbNodeSet>(db.run()->nbc, 0).file, "/old/n");
    EXPECT_STREQ(db.rec<rdbNodeSet>(db.run()->nbc, 1).file, "./n");
}

TEST(cli, aFileNameNeedsAnOpenRun)
{
    CliRun db("");
    checkFails("Uninitialize runHd", rdbNewCliFile(db.hd, "x"));
    checkFails("rdbNewCliFile", rdbNewCliFile(db.hd, "x"));
}

/* ----------------------------------------------------------------------------------------------- facts of the run */

TEST(cli, factsAreAnswered)
{
    CliRun db("#@ DATE a date\n#@ VERSION a version\n#@ TITLE \"t\"\n#@ SUBTITLE \"s\"\n#@ BASE_UNIT \"b\"\n#@ NSDS 4\n"
              "#@ PMC o 2 l 0.5 d 0.25 a 0.125 m 1.5 g 2.5\n#@ RST dir a/b problem q run 3 step 40\n"
              "#@ RAD f n 7 m 8\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.str("runDate"), "a date");
    EXPECT_EQ(db.str("runVersion"), "a version");
    EXPECT_EQ(db.str("title"), "t");
    EXPECT_EQ(db.str("subTitle"), "s");
    EXPECT_EQ(db.str("baseUnit"), "b");
    EXPECT_EQ(db.num("nSds"), 4);
    EXPECT_EQ(db.num("pmcOrder"), 2);
    EXPECT_EQ(db.real("pmcLump"), 0.5);
    EXPECT_EQ(db.real("pmcDamp"), 0.25);
    EXPECT_EQ(db.real("pmcAlpha"), 0.125);
    EXPECT_EQ(db.real("pmcAlphaMass"), 1.5);
    EXPECT_EQ(db.real("pmcGamma"), 2.5);
    EXPECT_EQ(db.str("rstFromDir"), "a/b");
    EXPECT_EQ(db.str("rstFromProblem"), "q");
    EXPECT_EQ(db.num("rstFromRunId"), 3);
    EXPECT_EQ(db.num("rstFromStep"), 40);
    EXPECT_EQ(db.num("nRads"), 7);
}

TEST(cli, speciesOfTheLines)
{
    CliRun none("");
    ASSERT_EQ(none.open(), "");
    EXPECT_EQ(none.num("nSpecies"), -1);

    std::string lines;
    for (int i = 0; i < 12; ++i) lines += "#@ SPC \"s" + std::to_string(i) + "\" w\n";
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.num("nSpecies"), 9);                /* there are nine places */
    EXPECT_EQ(db.str("speciesName", 0), "s0");
    EXPECT_EQ(db.str("speciesName", 8), "s8");
}

TEST(cli, speciesOfTheOutputsOnlyAreNumbered)
{
    CliRun db("#@ FMT 16\n");
    testWrite("p.1_1_0.out", "time 0.5 mask 0 nSpecs 12 nFilms 0 nFields 3 nAoutVecs 0 nNodes 0\n");
    ASSERT_EQ(trapped([&] { rdbUpdateDir(db.hd); }), "");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.num("nSpecies"), 12);
    EXPECT_EQ(db.str("speciesName", 0), "species_1");
    EXPECT_EQ(db.str("speciesName", 8), "species_9");
    EXPECT_EQ(db.str("speciesName", 11), "species_12");
    EXPECT_EQ(db.num("nFields"), 3);
    EXPECT_EQ(db.str("fieldName", 2), "");
}

TEST(cli, fieldsOfTheLines)
{
    std::string lines;
    for (int i = 0; i < 40; ++i) lines += "#@ MFD \"f" + std::to_string(i) + "\" w " + std::to_string(i) + "\n";
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.num("nFields"), 40);
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(db.str("fieldName", i), "f" + std::to_string(i));
        EXPECT_EQ(db.str("fieldPrefix", i), "");
        EXPECT_EQ(db.run()->fieldKinds[i], i);
    }
}
