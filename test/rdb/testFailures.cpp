/* testFailures.cpp: what stands after a call that failed: the directory guard, the current directory, the traps, the
 * two error texts, the handle, and handles made later.
 *
 * Each row of the tables is one call, made on files of which one is damaged or missing. After a failure that returned,
 * all is as before but the error text. After one that did not, the process stays in the handle's folder and the guard
 * stays raised; the error text is the one of before. Either way the handle goes on, and answers rightly as soon as the
 * files are whole. */

#include <algorithm>

#include "base/sysInt.h"
#include "test/rdb/everyKey.h"
#include "test/rdb/plainDb.h"
#include "test/rdb/smallRun.h"
#include "tool/runWriter.h"

/* ---- the run: case/db/p.1... seen from the test's folder ---- */

static std::string home, inside;

static void makeCase()
{
    tool::RunSpec spec;
    spec.dir = "case";
    spec.dataDir = "db";
    spec.problem = "p";
    spec.nx = 2;
    spec.ny = spec.nz = 1;
    spec.nSds = 2;
    spec.nodeSets = spec.top = true;
    spec.setVars("velocity,pressure");
    spec.setSteps(2, 3, 2);
    spec.families = { { "ora", 7 } };
    spec.setFamilies = { { "osf", 3 } };
    fs::remove_all("case");
    tool::writeRun(spec);
    home = here();
    inside = home + "/case";
}

static std::string file(const char *name) { return home + "/case/db/" + name; }

/* The directory is newer than at any scan before, and long settled */
static void touchCase()
{
    static time_t seconds = 1000000000;
    setTime(file("").c_str(), ++seconds, 0);
}

static rdbHd *openCase()
{
    touchCase();
    rdbHd *hd = newHd("p", "db", "case");
    EXPECT_NE(hd, nullptr) << rdbGetError();
    if (hd) checkAnswers(rdbOpenRun(hd, 1));
    return hd;
}

/* ---- damage ---- */

struct Damage {
    const char *name;             /* of the file; null: what `make` does                    */
    int64_t     keep;             /* how many of its bytes stay; GONE: it is not there      */
    const char *more;             /* text behind these; or null                             */
};
enum { GONE = -1 };

static void damage(const Damage &what)
{
    const std::string name = file(what.name), aside = home + "/aside";
    fs::remove(aside);
    if (fs::exists(name)) fs::rename(name, aside);
    if (what.keep == GONE) return;
    const std::string bytes = fs::exists(aside) ? testRead(aside) : "";
    testWrite(name, bytes.substr(0, (size_t) what.keep) + (what.more ? what.more : ""));
}

/* The directory is then the newest so far. */
static void repair(const Damage &what)
{
    fs::remove(file(what.name));
    if (fs::exists(home + "/aside")) fs::rename(home + "/aside", file(what.name));
    touchCase();
}

/* ---- one call that fails ---- */

static const char sentinel[] = "the last failure that returned";

/* jumps: whether the failure is to return. text: all of the error text of one that returns, part of the other. */
template <class F> static void expectFailure(rdbHd *hd, bool jumps, const std::string &text, F call)
{
    const int   depth = sysMess.trapDepth;
    int         ok = -1;
    rdbSetError("%s", sentinel);
    const std::string failure = trapped([&] { ok = call(); });
    EXPECT_EQ(sysMess.trapDepth, depth);
    EXPECT_EQ(ok, jumps ? -1 : 0);
    EXPECT_EQ(rdbGetError(), jumps ? sentinel : text);
    EXPECT_EQ(failure.empty(), !jumps) << failure;
    if (jumps) { EXPECT_NE(failure.find(text), std::string::npos) << failure; }
    EXPECT_EQ(here(), jumps ? inside : home);
    if (hd) { EXPECT_EQ(hd->dirDepth > 0, jumps) << hd->dirDepth; }
}

/* Calls that touch nothing which is damaged, on the handle as the failure left it */
static void expectUsable(rdbHd *hd, bool jumped)
{
    int       n = 0;
    char      text[RDB_TEXT];
    const int depth = hd->dirDepth;
    checkAnswers(rdbGetStr0(hd, "problem", text));
    EXPECT_STREQ(text, "p");
    checkAnswers(rdbGetInt0(hd, "nRuns", &n));
    checkRefused("runId 77 not found", rdbOpenRun(hd, 77));
    checkRefused("noSuchKey not found", rdbGetInt0(hd, "noSuchKey", &n));
    EXPECT_EQ(hd->dirDepth, depth);
    EXPECT_EQ(here(), jumped ? inside : home);
}

/* The client goes back to where he was, which the library does not do once a failure has jumped */
static void freeAndGoHome(rdbHd *hd)
{
    checkReturns(if (hd) rdbFree(hd));
    fs::current_path(home);
}

/* Whatever was asked for before: some counters are those of the files only once these have been read, so that what
   counts is the second time. */
static void expectAnswers(rdbHd *hd, const Answers &right)
{
    const Answers first(hd), second(hd);
    EXPECT_EQ(second.found.size(), right.found.size());
    for (const auto &[key, bytes] : second.found) {
        const auto it = right.found.find(key);
        EXPECT_TRUE(it != right.found.end() && it->second == bytes) << key;
    }
}

/* A handle of now knows nothing of what went wrong. */
static void expectFreshHandleWorks(const Answers &right)
{
    rdbHd *hd = openCase();
    ASSERT_NE(hd, nullptr);
    expectAnswers(hd, right);
    EXPECT_EQ(hd->dirDepth, 0);
    EXPECT_EQ(here(), home);
    checkReturns(rdbFree(hd));
}

static Answers rightAnswers()
{
    rdbHd  *hd = openCase();
    Answers first(hd), right(hd);
    EXPECT_GT(right.nAnswered, 300);
    checkReturns(rdbFree(hd));
    return right;
}

/* ---- getters of each kind ---- */

static const struct {
    Damage      damage;
    const char *key;
    int         i1, i2, i3;
    bool        jumps;
    const char *text;
} getters[] = {
    { { "p.1.crd.B",       GONE, nullptr }, "crd",           -1, -1, -1, true, "binary file <db/p.1.crd.B>" },
    { { "p.1.crd.B",        100, nullptr }, "usrIds",        -1, -1, -1, true, "EOF in binary file <db/p.1.crd>" },
    { { "p.1.crd.B",          0, "text" },  "crd",           -1, -1, -1, true, "Invalid binary tag" },
    { { "p.1.ddc.B",        150, nullptr }, "outValues",      0,  1, -1, true, "in binary file <db/p.1.ddc>" },
    { { "p.1.ddc.B",       GONE, nullptr }, "elmSdIds",       0, -1, -1, true, "binary file <db/p.1.ddc.B>" },
    { { "p.1_3_0.out.B",     80, nullptr }, "nOutVars",      -1, -1, -1, true, "in binary file <db/p.1_3_0.out>" },
    { { "p.1_3_0.out.B",   GONE, nullptr }, "outVarName",     0, -1, -1, true, "binary file <db/p.1_3_0.out.B>" },
    { { "p.1_5_0.out.B",     30, nullptr }, "outTimes",      -1, -1, -1, true, "in binary file <db/p.1_5_0.out>" },
    { { "p.1_5_1.out.B",    250, nullptr }, "outValues",      0,  1, -1, true, "in binary file <db/p.1_5_1.out>" },
    { { "p.1_5_1.out.B",   GONE, nullptr }, "outValues",      1,  1, -1, true, "binary file <db/p.1_5_1.out.B>" },
    { { "p.1_5_1.out.B",    250, nullptr }, "outGradValues",  0,  1, -1, true, "in binary file <db/p.1_5_1.out>" },
    { { "p.1.crd.B",        150, nullptr }, "outAuxValues",   0,  1, -1, true, "in binary file <db/p.1.crd>" },
    { { "p.1_5_1.ora.B",    250, nullptr }, "oraValues",      0,  1, -1, true, "in binary file <db/p.1_5_1.ora>" },
    { { "p.1_5_0_1.osf.B",  150, nullptr }, "osfValues",      0,  1,  1, true, "in binary file <db/p.1_5_0_1.osf>" },
    { { "p.1_0.osn.B",       60, nullptr }, "osfNodes",       0, -1, -1, true, "in binary file <db/p.1_0.osn>" },
    { { "p.1.top.B",        150, nullptr }, "times",         -1, -1, -1, true, "in binary file <db/p.1.top>" },
    { { "notes",              0, nullptr }, "outValues",      0, 99, -1, false, "index2 (99) is out of range [0,1]" },
};

/* What the key answers at these indices, "" if it does not */
static std::string answerOf(rdbHd *hd, const char *key, int i1, int i2, int i3)
{
    Answers one(hd, Answers::nothing);
    const int at[3] = { i1, i2, i3 };
    one.ask(Answers::keyOf(hd, key), at);
    return one.found.begin()->second;
}

TEST(failures, getters)
{
    makeCase();
    const Answers right = rightAnswers();
    for (const auto &row : getters) {
        SCOPED_TRACE(std::string(row.key) + " of " + row.damage.name + " " + std::to_string(row.damage.keep));
        rdbHd *hd = openCase();
        ASSERT_NE(hd, nullptr);
        const std::string healthy = answerOf(hd, row.key, row.i1, row.i2, row.i3);
        checkAnswers(rdbOpenRun(hd, 1));
        damage(row.damage);
        static double values[4096];
        const int     type = Answers::keyOf(hd, row.key).type;
        const auto    ask = [&] {
            return rdbGetData(hd, nullptr, row.key, values, type, -1, row.i1, row.i2, row.i3, -1, -1);
        };
        expectFailure(hd, row.jumps, row.text, ask);
        expectUsable(hd, row.jumps);
        EXPECT_EQ(trapped([&] { ask(); }).empty(), !row.jumps) << "asked again";
        EXPECT_EQ(here(), row.jumps ? inside : home);
        repair(row.damage);
        EXPECT_TRUE(answerOf(hd, row.key, row.i1, row.i2, row.i3) == healthy);
        expectAnswers(hd, right);
        freeAndGoHome(hd);
        expectFreshHandleWorks(right);
    }
}

/* ---- opening a run ---- */

static const struct {
    Damage      damage;
    int         runId;
    bool        jumps;
    const char *text;
} openings[] = {
    { { "p.1.cli", GONE, nullptr },                          1, true,  "unable to open ascii file <db/p.1.cli>" },
    { { "p.1.cli", 0,    "#@ VOL f \"v\" n -1 t 3 n 4\n" },  1, true,  "Invalid nElems <-1>" },
    { { "p.1.cli", 1000, "\n#@ NBC f \"n\" n -1 v 1\n" },    0, true,  "Invalid nRows <-1>" },
    { { "p.1.cli", 0,    "#@ CNN f \"e\" n 1 t 99 n 4 q 1 m 1 r 1\n" }, 1, true, "99" },
    { { "p.1.crd.B", GONE, nullptr },                        7, false, "runId 7 not found" },
};

TEST(failures, openings)
{
    makeCase();
    const Answers right = rightAnswers();
    for (const auto &row : openings)
        for (bool wasOpen : { false, true }) {
            SCOPED_TRACE(row.text);
            rdbHd *hd = wasOpen ? openCase() : newHd("p", "db", "case");
            ASSERT_NE(hd, nullptr);
            damage(row.damage);
            expectFailure(hd, row.jumps, row.text, [&] { return rdbOpenRun(hd, row.runId); });
            expectUsable(hd, row.jumps);
            int n = 0;
            if (row.jumps) {                             /* the half of a run is there, and nobody gets to see it */
                EXPECT_EQ(hd->runId, 1);
                EXPECT_NE(hd->run, nullptr);
                checkRefused("run not opened", rdbGetInt0(hd, "nNodes", &n));
            } else {
                EXPECT_EQ(hd->runId, wasOpen ? 1 : -1);
                EXPECT_EQ(hd->run != nullptr, wasOpen);
            }
            repair(row.damage);
            checkAnswers(rdbOpenRun(hd, 1));
            expectAnswers(hd, right);
            freeAndGoHome(hd);
            expectFreshHandleWorks(right);
        }
}

/* A half that nobody opens again goes with the run or the handle. */
TEST(failures, halfOpenedRunsAreClosed)
{
    makeCase();
    const Answers right = rightAnswers();
    const int     nFiles = nOpenFiles();
    for (const auto &row : openings)
        for (bool close : { false, true }) {
            rdbHd *hd = newHd("p", "db", "case");
            ASSERT_NE(hd, nullptr);
            damage(row.damage);
            trapped([&] { rdbOpenRun(hd, row.runId); });
            repair(row.damage);
            int flag = 0;
            checkAnswers(rdbUpdate(hd, &flag));
            if (close) { checkAnswers(rdbCloseRun(hd)); }
            if (close) { EXPECT_EQ(hd->runId, -1); }
            freeAndGoHome(hd);
            EXPECT_EQ(nOpenFiles(), nFiles);
        }
    expectFreshHandleWorks(right);
}

/* ---- the update ---- */

static const struct {
    Damage      damage;
    bool        jumps;
    const char *text;
} updates[] = {
    { { "c.C",     0,    "no container" },                   true,  "Unable to open HDF5 file db/c.C" },
    { { "p.01.cli", 0,   nullptr },                          true,  "Duplicate key <1>" },
    { { "p.1.cli", 0,    "#@ VOL f \"v\" n -1 t 3 n 4\n" },  true,  "Invalid nElems <-1>" },
    { { "p.1.cli", GONE, nullptr },                          false, "problem p not found" },
    { { "",        GONE, nullptr },                          false, "directory db not found" },
};

TEST(failures, updatesOfAnOpenRun)
{
    makeCase();
    const Answers right = rightAnswers();
    for (const auto &row : updates) {
        SCOPED_TRACE(row.text);
        rdbHd *hd = openCase();
        ASSERT_NE(hd, nullptr);
        Answers all(hd);                                 /* all caches are there, and files are kept open */
        int     flag = 0;
        damage(row.damage);
        if (*row.damage.name) touchCase();
        expectFailure(hd, row.jumps, row.text, [&] { return rdbUpdate(hd, &flag); });
        expectUsable(hd, row.jumps);
        EXPECT_NE(hd->run, nullptr);
        EXPECT_EQ(hd->runId, 1);
        Answers(hd, 1);                                  /* as far as it goes: nothing points nowhere */
        trapped([&] { rdbUpdate(hd, &flag); });
        Answers(hd, 1);
        repair(row.damage);
        checkAnswers(rdbUpdate(hd, &flag));
        expectAnswers(hd, right);
        freeAndGoHome(hd);
        expectFreshHandleWorks(right);
    }
}

/* As a client may do who has had enough */
TEST(failures, updatesThatFailBeforeTheEnd)
{
    makeCase();
    const Answers right = rightAnswers();
    const int     nFiles = nOpenFiles();
    for (const auto &row : updates)
        for (int how = 0; how < 3; ++how) {
            SCOPED_TRACE(row.text);
            rdbHd *hd = how < 2 ? openCase() : newHd("p", "db", "case");
            ASSERT_NE(hd, nullptr);
            if (how < 2) Answers all(hd);
            int flag = 0;
            damage(row.damage);
            if (*row.damage.name) touchCase();
            trapped([&] { rdbUpdate(hd, &flag); });
            if (how == 0) checkAnswers(rdbCloseRun(hd));
            freeAndGoHome(hd);
            EXPECT_EQ(nOpenFiles(), nFiles);
            repair(row.damage);
        }
    expectFreshHandleWorks(right);
}

/* ---- making a handle ---- */

static const struct {
    Damage      damage;
    const char *problem, *dir, *pdir;
    bool        jumps, staysHome;
    const char *text;
} makings[] = {
    { { "c.C", 0, "no container" }, "p",  "db", "case", true,  false, "Unable to open HDF5 file db/c.C" },
    { { "p.01.cli", 0, nullptr },   "p",  "db", "case", true,  false, "Duplicate key <1>" },
    { { "notes", 0, nullptr },      "p(", "db", "case", true,  false, "Badly placed parenthesis" },
    { { "notes", 0, nullptr },      "p",  "db", "none", true,  true,  "Error in chdir to <none>; " },
    { { "p.1.cli", GONE, nullptr }, "p",  "db", "case", false, false, "problem p not found" },
    { { "notes", 0, nullptr },      "q",  "db", "case", false, false, "problem q not found" },
    { { "notes", 0, nullptr },      "p",  "no", "case", false, false, "Invalid directory <no>" },
    { { "notes", 0, nullptr },      "_undefined", "db", "case", false, true, "Undefined problem" },
};

/* Of a handle that was not made the folder stays the current one, whatever kind of failure it was. */
TEST(failures, makings)
{
    makeCase();
    const Answers right = rightAnswers();
    const int     nFiles = nOpenFiles();
    for (const auto &row : makings) {
        SCOPED_TRACE(row.text);
        const int depth = sysMess.trapDepth;
        rdbHd    *hd = (rdbHd *) &hd;
        damage(row.damage);
        rdbSetError("%s", sentinel);
        const std::string failure = trapped([&] { hd = rdbNew(row.problem, row.dir, row.pdir, 0); });
        EXPECT_EQ(sysMess.trapDepth, depth);
        EXPECT_EQ(failure.empty(), !row.jumps) << failure;
        if (row.jumps) { EXPECT_NE(failure.find(row.text), std::string::npos) << failure; }
        else { EXPECT_EQ(hd, nullptr); }
        EXPECT_STREQ(rdbGetError(), row.jumps ? sentinel : row.text);
        EXPECT_EQ(here(), row.staysHome ? home : inside);
        repair(row.damage);
        fs::current_path(home);
        expectFreshHandleWorks(right);
        EXPECT_EQ(nOpenFiles(), nFiles);
    }
}

/* ---- traps within traps ---- */

/* A failure lands at the innermost one, and leaves those around it armed. */
TEST(failures, trapsNest)
{
    makeCase();
    rdbHd *hd = openCase();
    ASSERT_NE(hd, nullptr);
    damage(getters[0].damage);
    const int depth = sysMess.trapDepth;
    double    values[4096];
    for (int outer = 0; outer < 3; ++outer) rdbAssertEnv();
    for (int again = 0; again < 200; ++again) {
        EXPECT_NE(trapped([&] { rdbGetReals0(hd, "crd", values, -1, -1); }), "");
        ASSERT_EQ(sysMess.trapDepth, depth + 3);
    }
    for (int outer = 3; outer > 0; --outer) EXPECT_EQ(rdbAssertEndTrap(), depth + outer - 1);
    repair(getters[0].damage);
    checkAnswers(rdbGetReals0(hd, "crd", values, -1, -1));
    freeAndGoHome(hd);
}
