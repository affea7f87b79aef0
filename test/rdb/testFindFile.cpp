/* testFindFile.cpp: a file is found by the beginning of its listed name, and opened in the form that the name tells. */

#include <algorithm>
#include <random>

#include "test/rdb/smallRun.h"

/* A handle that knows names and nothing else; the names stand as a scan leaves them */
struct ListedNames {
    std::vector<std::string> names;
    std::vector<char *>      files;
    rdbHd                    hd = {};
    runHd                    run = {};
    char                     dir[8] = ".", problem[8] = "p";

    ListedNames(std::vector<std::string> runFiles, std::vector<std::string> aux = {},
                std::vector<std::string> rest = {})
    {
        for (auto *part : { &runFiles, &aux, &rest }) {
            std::sort(part->begin(), part->end());
            names.insert(names.end(), part->begin(), part->end());
        }
        for (auto &name : names) files.push_back(&name[0]);
        hd.files = files.data();
        hd.nFiles = (int) files.size();
        hd.nRunFiles = (int) runFiles.size();
        hd.nAuxFiles = (int) aux.size();
        hd.nUndefFiles = (int) rest.size();
        hd.dir = dir;
        hd.problem = problem;
        hd.run = &run;
        run.runId = 1;
    }

    int linearScan(const std::string &name) const
    {
        for (const auto &listed : names)
            if (listed.compare(0, name.size(), name) == 0) return iopGetFileOpt(listed.c_str());
        return 0;
    }
};

TEST(rdbFindFile, firstNameWithThePrefixTellsTheForm)
{
    ListedNames list({ "p.1.cli", "p.1.top.B", "p.1_0_0.out", "p.1_0_0.out.Z" }, { "p.slv.Z" },
                     { "notes.H", "p.1.cli~" });
    EXPECT_EQ(rdbFindFile(&list.hd, "p.1.top"), IOP_BINARY);
    EXPECT_EQ(rdbFindFile(&list.hd, "p.1_0_0.out"), IOP_ASCII);
    EXPECT_EQ(rdbFindFile(&list.hd, "p.slv"), IOP_COMPRESSED);
    EXPECT_EQ(rdbFindFile(&list.hd, "notes"), IOP_HDF);
    EXPECT_EQ(rdbFindFile(&list.hd, "p.1.cli~"), IOP_ASCII);
    EXPECT_EQ(rdbFindFile(&list.hd, "p.1.top.B.more"), 0);
    EXPECT_EQ(rdbFindFile(&list.hd, "p.2"), 0);
    EXPECT_EQ(rdbFindFile(&list.hd, "zz"), 0);
}

TEST(rdbFindFile, aLongerNameOfAnotherFamilyIsFoundToo)
{
    ListedNames list({ "p.1.topx.B" });
    EXPECT_EQ(rdbFindFile(&list.hd, "p.1.top"), IOP_BINARY);
}

TEST(rdbFindFile, noNamesAtAll)
{
    ListedNames list({});
    EXPECT_EQ(rdbFindFile(&list.hd, "p"), 0);
    EXPECT_EQ(rdbFindFile(&list.hd, ""), 0);
}

TEST(rdbFindFile, sameAsAWalkFromTheStart)
{
    std::mt19937 random(7);
    auto text = [&](int most) {
        static const char letters[] = { 'a', 'b', '.', 'B', 'Z', (char) 0xc3 };
        std::string s;
        for (int n = (int) (random() % (most + 1)); n > 0; --n) s += letters[random() % sizeof letters];
        return s;
    };
    auto texts = [&](int n) {
        std::vector<std::string> all;
        while (n-- > 0) all.push_back(text(5) + (random() % 2 ? ".B" : ""));
        return all;
    };
    for (int round = 0; round < 200; ++round) {
        ListedNames list(texts((int) (random() % 12)), texts((int) (random() % 4)), texts((int) (random() % 12)));
        for (int k = 0; k < 100; ++k) {
            const std::string name = text(4);
            ASSERT_EQ(rdbFindFile(&list.hd, name.c_str()), list.linearScan(name)) << name << " in round " << round;
        }
    }
}

TEST(rdbFindFormFile, firstSubdomainBeforeMerged)
{
    char path[SYS_TEXT];
    int  merged = -1;
    ListedNames both({ "p.1_5_0.out.B", "p.1_5_x.out" });
    EXPECT_EQ(rdbFindFormFile(&both.hd, "p.1_5_", "out", path, &merged), IOP_BINARY);
    EXPECT_STREQ(path, "./p.1_5_0.out");
    EXPECT_EQ(merged, 0);

    ListedNames one({ "p.1_5_1.out.B", "p.1_5_x.out" });
    EXPECT_EQ(rdbFindFormFile(&one.hd, "p.1_5_", "out", path, &merged), IOP_ASCII);
    EXPECT_STREQ(path, "./p.1_5_x.out");
    EXPECT_EQ(merged, 1);

    merged = 0;
    ListedNames none({ "p.1_5_1.out.B" });
    checkRefused(".out file not found", rdbFindFormFile(&none.hd, "p.1_5_", "out", path, &merged));
    EXPECT_EQ(merged, 1);
    checkRefused(".osn file not found", rdbOpenFormFile(&none.hd, "p.1_5_", "osn", &merged) != nullptr);
}

TEST(rdbOpenFormFile, opensWhatItFinds)
{
    for (const auto &form : smallForms) {
        SCOPED_TRACE(form.name);
        { tool::TokenFile("p.1_5_x.out", form.form).keyInt("answer", 42); }
        ListedNames list({ "p.1_5_x.out" + tool::formSuffix(form.form) });
        int merged = 0, answer = 0;
        checkReturns(iopHd *fh = rdbOpenFormFile(&list.hd, "p.1_5_", "out", &merged);
                     iopGetKeyInt(fh, "answer", &answer); iopCloseFile(fh));
        EXPECT_EQ(merged, 1);
        EXPECT_EQ(answer, 42);
    }
}

TEST(rdbOpenDirFile, takesTheFormFromTheOptions)
{
    { tool::TokenFile("here", tool::Form::binary).keyInt("answer", 42); }
    ListedNames list({});
    int answer = 0;
    checkReturns(iopHd *fh = rdbOpenDirFile(&list.hd, "./here", IOP_BINARY | IOP_READ);
                 iopGetKeyInt(fh, "answer", &answer); iopCloseFile(fh));
    EXPECT_EQ(answer, 42);
    checkReturns(iopHd *fh = rdbOpenReadFile(&list.hd, "here", IOP_BINARY);
                 iopGetKeyInt(fh, "answer", &answer); iopCloseFile(fh));
    checkFails("unable to open ascii file <./here>", rdbOpenReadFile(&list.hd, "./here", IOP_ASCII));
}

TEST(rdbOpenRunFile, hasTheRunsFormAndWaitsLong)
{
    { tool::TokenFile("p.1.top", tool::Form::binary).keyInt("answer", 42); }
    ListedNames list({});
    list.run.opt = IOP_BINARY;
    int answer = 0;
    checkReturns(iopHd *fh = rdbOpenRunFile(&list.hd, "p.1.top"); iopGetKeyInt(fh, "answer", &answer);
                 iopCloseFile(fh));
    EXPECT_EQ(answer, 42);
    EXPECT_EQ(testSlept(), 0);
    checkFails("unable to open binary file <./p.1.sts.B>", rdbOpenRunFile(&list.hd, "p.1.sts"));
    EXPECT_EQ(testSlept(), 60);
}

TEST(rdbOpenRunFile, doesNothingElseThatTheRunsOptionsAskFor)
{
    { tool::TokenFile("p.1.top", tool::Form::binary).keyInt("answer", 42); }
    ListedNames list({});
    list.run.opt = IOP_BINARY | IOP_DELETE | IOP_WRITE | IOP_SOCKET;
    int answer = 0;
    checkReturns(iopHd *fh = rdbOpenRunFile(&list.hd, "p.1.top"); iopGetKeyInt(fh, "answer", &answer);
                 iopCloseFile(fh));
    EXPECT_EQ(answer, 42);
    EXPECT_NE(testRead("p.1.top.B"), "");
}

TEST(rdbHoldFile, theNextFileClosesWhatAJumpLeftOpen)
{
    { tool::TokenFile("a", tool::Form::ascii).keyInt("answer", 42); }
    ListedNames list({});
    int answer = 0;
    checkFails("data out of order", iopHd *fh = rdbHoldFile(&list.hd, rdbOpenReadFile(&list.hd, "a", IOP_ASCII));
               iopCheckStr(fh, "question"));
    EXPECT_NE(list.run.reading, nullptr);
    checkReturns(iopHd *fh = rdbHoldFile(&list.hd, rdbOpenReadFile(&list.hd, "a", IOP_ASCII));
                 iopGetKeyInt(fh, "answer", &answer); rdbCloseHeld(&list.hd));
    EXPECT_EQ(answer, 42);
    EXPECT_EQ(list.run.reading, nullptr);
}
