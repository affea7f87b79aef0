/* testCliBad.cpp: client information files that are damaged, or that mean harm: an open comes back or fails with a
 * text, in a time and a memory that the file's size bounds. */

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <vector>

#include "base/mem.h"

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
        { "#@ FBD \"a\" n -1\n", "Invalid nFbdModes <-1> for FBD \"a\"" },
        { "#@ NBC f \"a\" n -1 v 1\n", "Invalid nRows <-1> for NBC \"a\"" },
        { "#@ ZBC f \"a\" n -1 v 1\n", "Invalid nRows <-1> for ZBC \"a\"" },
        { "#@ PBC f \"a\" n -1 v 1\n", "Invalid nRows <-1> for PBC \"a\"" },
        { "#@ OTH f \"a\" n -1\n", "Invalid nOthNodes <-1> for OTH \"a\"" },
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
        { twoVolumes + "#@ OEL f \"a\" a 1 b 2 c 3 q 4 d 5 e 6 f 2 n -1\n", "Invalid nOelVols <-1> for OEL \"a\"" },
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

/* Few bytes that announce many names, again and again: what they take together is bounded by the file */
TEST(cliBad, theFileBoundsTheSetsThatItsLinesAnnounce)
{
    for (const char *line : { "#@ CNN.VOL \"elm\" 200 \"vol\"\n", "#@ CBC.SFS \"x\" 200 \"srf\"\n" }) {
        std::string lines = oneVolume + srfLine("CBC", "x");
        for (int i = 0; i < 100; ++i) lines += line;
        CliRun db(lines);
        const std::string failure = db.open();
        EXPECT_NE(failure.find("<200> for "), std::string::npos) << failure;
        EXPECT_NE(failure.find("Function <rdbOpenRun>"), std::string::npos) << failure;
    }
}

TEST(cliBad, aLineBeyondAllMemoryEndsTheOpen)
{
    CliRun db("#@ TITLE \"t\"\n");
    ASSERT_EQ(truncate("p.1.cli", (off_t) 3 << 30), 0);          /* a hole: one line of 3 GB */
    const std::string failure = db.open();
    EXPECT_NE(failure.find("Internal in reading cli file"), std::string::npos) << failure;
    EXPECT_EQ(rdbCloseRun(db.hd), 1);
    remove("p.1.cli");
}

TEST(cliBad, aLongFileOfShortLinesNeedsLittleMemory)
{
    std::string lines;
    for (int i = 0; i < 200000; ++i) lines += "a comment that nobody reads\n";
    CliRun db(lines + "#@ TITLE \"t\"\n");
    const uint64_t before = memAllocated;
    ASSERT_EQ(db.open(), "");
    EXPECT_LT(memAllocated - before, 1000000u);
    EXPECT_EQ(db.str("title"), "t");
}

/* Names of the same parts in another order: the sum of their parts, and their beginnings, are the same for many */
static std::vector<std::string> permutedNames(int n)
{
    std::vector<std::string> parts = { "aab", "aba", "baa", "abb", "bab", "bba", "aaa", "bbb" }, names;
    std::sort(parts.begin(), parts.end());
    do {
        std::string name;
        for (const std::string &part : parts) name += part;
        names.push_back(name);
    } while ((int) names.size() < n && std::next_permutation(parts.begin(), parts.end()));
    return names;
}

/* Processor seconds of an open, which is to say nothing */
static double secondsToOpen(CliRun *db)
{
    testing::internal::CaptureStdout();
    const clock_t start = clock();
    EXPECT_EQ(db->open(), "");
    const double seconds = (double) (clock() - start) / CLOCKS_PER_SEC;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    return seconds;
}

static double secondsToBind(int n, int verbose)
{
    std::string lines, list;
    const auto names = permutedNames(n);
    for (int i = 0; i < n; ++i) {
        lines += "#@ VOL f \"" + names[i] + "\" n 1 t 3 n 4\n#@ SFS f \"" + names[i] + "\" n 1 t 1 n 3 q 1 v " +
                 std::to_string(i) + " m 1 volName \"" + names[i] + "\"\n";
        list += " \"" + names[i] + "\"";
    }
    lines += "#@ CNN f \"e\" n 1 t 3 n 4 q 1 m 1 r 1\n#@ CNN.VOL \"e\" " + std::to_string(n) + list + "\n" +
             srfLine("CBC", "x") + "#@ CBC.SFS \"x\" " + std::to_string(n) + list + "\n";
    CliRun db(lines, verbose);
    const double seconds = secondsToOpen(&db);
    EXPECT_EQ(db.srf(RDB_CBC, 0).sfsIds[n - 1], n - 1);
    EXPECT_EQ(db.elm(0).volIds[n / 2], n / 2);
    EXPECT_EQ(db.srf(RDB_SFS, n - 1).volId, n - 1);
    return seconds;
}

/* A name is looked for between two records: what is known of the list must not be lost when it grows */
static double secondsToAdd(int n, int)
{
    std::string lines;
    const auto names = permutedNames(n);
    for (int i = 0; i < n; ++i)
        lines += "#@ OVS f \"" + names[i] + "\" n 3\n#@ VAS g \"" + names[i / 2] + "\" n " + std::to_string(i) +
                 " m 5\n";
    CliRun db(lines);
    const double seconds = secondsToOpen(&db);
    EXPECT_STREQ(db.rec<rdbOutMesh>(db.run()->ovs, (n - 1) / 2).file2, "g");
    EXPECT_EQ(db.rec<rdbOutMesh>(db.run()->ovs, n / 2 + 1).file2, nullptr);
    return seconds;
}

/* Four times the sets must not take sixteen times as long */
TEST(cliBad, manySetsAreBoundQuickly)
{
    static const struct { double (*seconds)(int n, int verbose); int verbose; } rows[] = {
        { secondsToBind, 0 }, { secondsToBind, 3 }, { secondsToAdd, 0 }
    };
    for (const auto &row : rows) {
        const double few = row.seconds(10000, row.verbose);
        EXPECT_LT(row.seconds(40000, row.verbose), 8 * few + 0.5) << few;
    }
}
