/* testCloseRun.cpp: a run ends, however far it had come. That nothing stays behind is told by the build with a leak
 * checker. */

#include <dirent.h>

#include "test/rdb/cliRun.h"
#include "test/rdb/smallRun.h"

TEST(closeRun, withoutAHandleItIsRefused)
{
    EXPECT_EQ(rdbCloseRun(nullptr), 0);
    EXPECT_STREQ(rdbGetError(), "rdb not initialized");
}

TEST(closeRun, withoutARunThereIsNothingToDo)
{
    CliRun db("");
    EXPECT_EQ(rdbCloseRun(db.hd), 1);
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(rdbCloseRun(db.hd), 1);
    EXPECT_EQ(rdbCloseRun(db.hd), 1);
    EXPECT_EQ(db.hd->runId, -1);
    EXPECT_EQ(db.run(), nullptr);
}

TEST(closeRun, afterItTheRunsKeysAreClosed)
{
    SmallRun small;
    rdbHd *hd = small.writeAndOpen();
    int n;
    EXPECT_EQ(rdbGetInt0(hd, "nNodes", &n), 1);
    EXPECT_EQ(rdbCloseRun(hd), 1);
    EXPECT_EQ(rdbGetInt0(hd, "nNodes", &n), 0);
    EXPECT_STREQ(rdbGetError(), "run not opened");
    EXPECT_EQ(rdbGetInt0(hd, "nRuns", &n), 1);
    EXPECT_EQ(rdbOpenRun(hd, 1), 1);
    EXPECT_EQ(rdbGetInt0(hd, "nNodes", &n), 1);
    rdbFree(hd);
}

/* Everything that getters keep hangs from the run */
TEST(closeRun, cachesGoWithTheRun)
{
    SmallRun small;
    rdbHd *hd = small.writeAndOpen();
    int *hash, *cnn;
    double values[5];
    EXPECT_EQ(rdbReadDdc(hd), 1);
    EXPECT_EQ(rdbGetUsrIdHash(hd, &hash), 1);
    EXPECT_EQ(rdbGetVolUsrIdHash(hd, 0, &hash), 1);
    EXPECT_EQ(rdbGetVolCnn(hd, 0, &cnn), 1);
    EXPECT_EQ(rdbGetReals2(hd, "outValues", values, 1, 0, 1, 5), 1) << rdbGetError();
    EXPECT_EQ(rdbCloseRun(hd), 1);
    rdbFree(hd);
}

/* An older file's surface sets show the texts of the sets that they were made from: each is released once */
TEST(closeRun, sharedTextsAreReleasedOnce)
{
    std::string lines = "#@ CNN e.B \"e\" n 10 t 3 n 4 q 2 m 1 r 5\n";
    for (const auto &fam : srfFamilies) lines += srfLine(fam.keyword, fam.keyword, fam.more);
    CliRun db(lines);
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(db.open(), "");
        EXPECT_EQ(rdbCloseRun(db.hd), 1);
    }
}

static int nOpenFiles()
{
    int n = 0;
    DIR *dir = opendir("/proc/self/fd");
    if (!dir) return 0;
    while (readdir(dir)) ++n;
    closedir(dir);
    return n;
}

/* An open that ends in a failure leaves its record, with the file that it was reading: closing takes both */
TEST(closeRun, aHalfOpenedRunIsReleased)
{
    static const char *const damages[] = {
        "#@ VOL f \"v\" n -1 t 3 n 4\n",                                       /* in the first pass  */
        "#@ NBC f \"n\" n 3 v 1\n#@ NBC f \"n\" n -1 v 1\n",                   /* in the second      */
        "#@ VOL f \"v\" n 1 t 3 n 4\n#@ SFS f \"s\" n 1 t 1 n 3 q 1 v 9 m 1\n",/* behind both        */
        "#@ CNN f \"e\" n 1 t 99 n 4 q 1 m 1 r 1\n",
        "#@ OEL f \"o\" a 1 b 2 c 3 q 4 d 5 e 6 f 1 n -1\n",
    };
    for (const char *damage : damages) {
        SCOPED_TRACE(damage);
        CliRun db(std::string("#@ DATE d\n#@ DIR x\n#@ TITLE \"t\"\n#@ MFD \"f\" w 1\n#@ SPC \"s\" w\n") + damage);
        const int before = nOpenFiles();
        EXPECT_NE(db.open(), "");
        EXPECT_NE(db.run(), nullptr);
        EXPECT_EQ(db.hd->runId, 1);
        int n;
        for (const char *key : { "nVols", "nElms", "nSfss", "nCbcs" }) rdbGetInt0(db.hd, key, &n);
        EXPECT_EQ(rdbCloseRun(db.hd), 1);
        EXPECT_EQ(db.run(), nullptr);
        EXPECT_EQ(nOpenFiles(), before);
        EXPECT_NE(db.open(), "");                     /* and opening again takes them, too */
        EXPECT_NE(db.open(), "");
    }
    /* the last one is left to rdbFree */
}
