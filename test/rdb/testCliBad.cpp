/* testCliBad.cpp: client information files that are damaged, or that mean harm: an open comes back or fails with a text,
 * in a time and a memory that the file's size bounds. */

#include <cstring>
#include <vector>

#include "test/rdb/cliRun.h"

static const std::string twoVolumes = "#@ VOL f \"va\" n 10 t 3 n 4\n#@ VOL f \"vb\" n 20 t 3 n 4\n";

/* A text that says what the data look like must not say what is done to them */
TEST(cliBad, theOptionWordOnlyTellsTheForm)
{
    const int opt = IOP_BINARY | IOP_DELETE | IOP_WRITE | IOP_APPEND | IOP_RSH | IOP_SOCKET;
    CliRun db("#@ FMT " + std::to_string(opt) + "\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.run()->opt, IOP_BINARY);
}

TEST(cliBad, negativeCountsEndTheOpen)
{
    struct Row { std::string lines, text; };
    std::vector<Row> rows = {
        { "#@ NSDS -1\n", "Invalid nSds <-1> for NSDS" },
        { "#@ RAD f n -2 m 1\n", "Invalid nRads <-2> for RAD" },
        { "#@ CRD f n -1\n", "Invalid nNodes <-1> for CRD" },
        { "#@ MODCRD f n -1\n", "Invalid nNodes <-1> for MODCRD" },
        { "#@ FBD \"a\" n -1\n", "Invalid number <-1> for FBD \"a\"" },
        { "#@ NBC f \"a\" n -1 v 1\n", "Invalid nRows <-1> for NBC \"a\"" },
        { "#@ ZBC f \"a\" n -1 v 1\n", "Invalid nRows <-1> for ZBC \"a\"" },
        { "#@ PBC f \"a\" n -1 v 1\n", "Invalid nRows <-1> for PBC \"a\"" },
        { "#@ OTH f \"a\" n -1\n", "Invalid number <-1> for OTH \"a\"" },
        { "#@ CNN f \"a\" n -1 t 3 n 4 q 1 m 1 r 1\n", "Invalid nElems <-1> for CNN \"a\"" },
        { "#@ CNN f \"a\" n 1 t 3 n 2147483647 q 1 m 1 r 1\n", "Invalid nElemNodes <2147483647> for CNN \"a\"" },
        { "#@ VOL f \"a\" n -1 t 3 n 4\n", "Invalid nElems <-1> for VOL \"a\"" },
        { "#@ SFS f \"a\" n -1 t 1 n 3 q 1 v 0 m 1\n", "Invalid nSrfs <-1> for SFS \"a\"" },
        { std::string(oneVolume) + "#@ CNN.VOL \"elm\" -1 \"vol\"\n", "Invalid nElmVols <-1> for CNN.VOL \"elm\"" },
        { std::string(oneVolume) + "#@ CNN.VOL \"elm\" 2147483647 \"vol\"\n",
          "Invalid nElmVols <2147483647> for CNN.VOL \"elm\"" },
        { "#@ OAA f \"a\" n -1\n", "Invalid nNodes <-1> for OAA \"a\"" },
        { "#@ OSA f \"a\" n -1 m 3 o 0\n", "Invalid nRows <-1> for OSA \"a\"" },
        { "#@ OEA f \"a\" n 1 m -3 o 0\n", "Invalid nRowNodes <-3> for OEA \"a\"" },
        { "#@ OFS f \"a\" n -1\n", "Invalid nNodes <-1> for OFS \"a\"" },
        { "#@ OVS f \"a\" n 1\n#@ VAS f \"a\" n -1 m 1\n", "Invalid nOvsSrfs <-1> for VAS \"a\"" },
        { "#@ OVE f \"a\" n 1\n#@ VAE f \"a\" n 1 m -1\n", "Invalid nOveElemNodes <-1> for VAE \"a\"" },
        { twoVolumes + "#@ OEL f \"a\" a 1 b 2 c 3 q 4 d 5 e 6 f 2 n -1\n", "Invalid nVols <-1> for OEL \"a\"" },
        { twoVolumes + "#@ OEL f \"a\" a 1 b 2 c 3 q 4 d 5 e 6 f 2 n 1000000\n",
          "Invalid nOelVols <1000000> for OEL \"a\"" },
    };
    for (const auto &fam : srfFamilies) {
        const std::string keyword = fam.keyword;
        rows.push_back({ oneVolume + std::string("#@ ") + keyword + " f \"a\" n -1 t 1 n 3 q 1 e 0 m 1\n",
                         "Invalid nSrfs <-1> for " + keyword + " \"a\"" });
        rows.push_back({ oneVolume + std::string("#@ ") + keyword + " f \"a\" n 1 t 1 n -3 q 1 e 0 m 1\n",
                         "Invalid nSrfNodes <-3> for " + keyword + " \"a\"" });
        rows.push_back({ oneVolume + srfLine(keyword, "a") + "#@ " + keyword + ".SFS \"a\" -4 \"srf\"\n",
                         "Invalid number of surface sets <-4> for " + keyword + ".SFS \"a\"" });
    }
    for (const Row &row : rows) {
        SCOPED_TRACE(row.lines);
        CliRun db(row.lines);
        const std::string failure = db.open();
        EXPECT_NE(failure.find(row.text), std::string::npos) << failure;
        EXPECT_NE(failure.find("rdbOpenRun"), std::string::npos) << failure;
    }
}

/* Counts that no machine holds are no matter until the set is asked for */
TEST(cliBad, hugeCountsDoNotHurtTheOpen)
{
    CliRun db("#@ NSDS 2147483647\n#@ CRD f n 2147483647\n#@ VOL f \"v\" n 2147483647 t 3 n 4\n"
              "#@ SFS f \"s\" n 2147483647 t 1 n 3 q 1 v 0 m 1\n#@ NBC f \"n\" n 2147483647 v 1\n");
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.num("nSds"), 2147483647);
}

/* A file with every keyword: what the next two tests damage */
static std::string allLines()
{
    std::string lines = oneVolume;
    lines += "#@ DIR /old\n#@ FMT 32\n#@ NSDS 2\n#@ RST d a p b r 1 s 2\n#@ TITLE \"t\"\n"
             "#@ PMC o 1 l 2 d 3 a 4 m 5 g 6\n#@ RAD f n 1 m 2\n#@ CRD /old/f n 3\n#@ MODCRD f n 3\n"
             "#@ TMF \"t\" n 1\n#@ RFF \"r\" o 1 2 3 v 4 5 6 a 1 b 2 c 3\n"
             "#@ MMO \"m\" n 1\n#@ FBD \"f\" n 2\n#@ NBC f \"n\" n 1 v 2\n#@ ZBC f \"z\" n 1 v 2\n"
             "#@ PBC f \"p\" n 1 v 2\n"
             "#@ OTH f \"o\" n 1\n#@ DOP n 3\n";
    for (const auto &fam : srfFamilies)
        lines += srfLine(fam.keyword, "x", fam.more) + "#@ " + fam.keyword + ".SFS \"x\" 2 \"srf\" \"srf\"\n";
    lines += "#@ SFS.SFS 0 1\n#@ OEL f \"o\" a 1 b 2 c 3 q 4 d 5 e 6 flag 2 n 2\n"
             "#@ OEL.VOL f \"o\" n 10 t 3 n 4 q 1 v 0 m 1\n"
             "#@ OEL.VOL f \"o\" n 10 t 3 n 4 q 1 v 0 m 1 volName \"vol\"\n#@ OAA f \"o\" n 1\n#@ OAD f \"o\" n 1\n"
             "#@ OSA f \"o\" n 1 m 3 o 0\n#@ OEA f \"o\" n 1 m 4 o 0\n#@ OFS f \"o\" n 1\n#@ OVS f \"o\" n 1\n"
             "#@ VAS f \"o\" n 1 m 3\n#@ OVE f \"o\" n 1\n#@ VAE f \"o\" n 1 m 4\n"
             "#@ SPC \"s\" w\n#@ MFD \"f\" w 1\n#@ END\n";
    return lines;
}

/* Opens, asks, closes: a failure must be one with a text */
static void openDamaged(rdbHd *hd, const std::string &lines)
{
    testWrite("p.1.cli", lines);
    int opened = -1;
    rdbSetError("nothing to say");
    const std::string failure = trapped([&] { opened = rdbOpenRun(hd, 1); });
    EXPECT_EQ(opened, failure.empty() ? 1 : -1);
    EXPECT_TRUE(failure.empty() || failure.find("ASSERTION") != std::string::npos) << failure;
    EXPECT_EQ(rdbCloseRun(hd), 1);
}

TEST(cliBad, cutAnywhereItOpensOrFailsClearly)
{
    const std::string lines = allLines();
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    EXPECT_STREQ(rdbGetError(), "nothing to say");
    for (size_t n = 0; n < lines.size(); ++n) {
        SCOPED_TRACE(lines.substr(0, n));
        openDamaged(db.hd, lines.substr(0, n));
    }
}

TEST(cliBad, absurdNumbersOpenOrFailClearly)
{
    const std::string lines = allLines();
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    for (size_t i = 1; i + 1 < lines.size(); ++i) {
        if (!isdigit((unsigned char) lines[i]) || lines[i - 1] != ' ') continue;
        const size_t end = lines.find_first_of(" \n", i);
        for (const char *absurd :
             { "-1", "2147483647", "-2147483648", "99999999999999999999", "1e400", "nan", "\"", "%s%n" }) {
            const std::string damaged = lines.substr(0, i) + absurd + lines.substr(end);
            SCOPED_TRACE(damaged.substr(damaged.rfind('\n', i) + 1, 100));
            openDamaged(db.hd, damaged);
        }
    }
}

TEST(cliBad, bytesThatAreNoTextOpenOrFailClearly)
{
    const std::string lines = allLines();
    CliRun db(lines);
    unsigned seed = 12345;
    for (int round = 0; round < 300; ++round) {
        std::string damaged = lines;
        for (int k = 0; k < 8; ++k) {
            seed = seed * 1103515245 + 12345;
            damaged[(seed >> 8) % damaged.size()] = (char) (seed >> 24);
        }
        openDamaged(db.hd, damaged);
    }
}

/* Many sets and many names: looking one up must not walk through all */
TEST(cliBad, manySetsAreBoundQuickly)
{
    const int n = 20000;
    std::string lines, names;
    for (int i = 0; i < n; ++i) {
        const std::string name = "set " + std::to_string(i);
        lines += "#@ VOL f \"" + name + "\" n 1 t 3 n 4\n#@ SFS f \"" + name + "\" n 1 t 1 n 3 q 1 v 0 m 1 volName \"" +
                 name + "\"\n";
        names += " \"" + name + "\"";
    }
    lines += "#@ CNN f \"e\" n 1 t 3 n 4 q 1 m 1 r 1\n#@ CNN.VOL \"e\" " + std::to_string(n) + names + "\n" +
             srfLine("CBC", "x") + "#@ CBC.SFS \"x\" " + std::to_string(n) + names + "\n";
    CliRun db(lines);
    ASSERT_EQ(db.open(), "");
    EXPECT_EQ(db.srf(RDB_CBC, 0).sfsIds[n - 1], n - 1);
    EXPECT_EQ(db.srf(RDB_SFS, n - 1).volId, n - 1);
}
