/* testSplitLogFileName.cpp: what the name of a log file tells. */

#include "test/plugin/pluginTestUtil.h"

struct Split {
    int         good = -1, run = -1;
    std::string path, problem;
};

static Split split(const std::string &name, const char *optionProblem = "fallback", int optionRun = 5)
{
    static char path[SYS_TEXT], problem[SYS_TEXT];
    Split s;
    path[0] = problem[0] = 0;
    s.good = vtkMarivaneReader::SplitLogFileName(name.c_str(), optionProblem, optionRun, path, problem, &s.run);
    s.path = path;
    s.problem = problem;
    return s;
}

TEST(splitLogFileName, byTheRules)
{
    static const struct { const char *shows, *name, *path, *problem; int run; } rows[] = {
        { "directory, problem and run",           "d/case.12.Log",      "d/",        "case",      12 },
        { "no directory gives a dot",             "case.12.Log",        ".",         "case",      12 },
        { "no run: the option's",                 "case.Log",           ".",         "case.Log",  5  },
        { "a backslash splits too",               "d\\e\\case.3.Log",   "d\\e\\",    "case",      3  },
        { "the last separator of either kind",    "d/e\\case.3.Log",    "d/e\\",     "case",      3  },
        { "the other way round",                  "d\\e/case.3.Log",    "d\\e/",     "case",      3  },
        { "octal run",                            "case.010.Log",       ".",         "case",      8  },
        { "octal stops at a 9",                   "case.09.Log",        ".",         "case",      0  },
        { "a small l is no log",                  "case.12.log",        ".",         "case.12.log", 5 },
        { "dots belong to the problem",           "a.b.7.Log",          ".",         "a.b",       7  },
        { "a dot: the option's problem",          "d/.",                "d/",        "fallback",  5  },
        { "a dash: the option's problem",         "-",                  ".",         "fallback",  5  },
        { "a name that only begins with a dot",   ".case.2.Log",        ".",         ".case",     2  },
        { "no problem before the run",            ".12.Log",            ".",         ".12.Log",   5  },
        { "nothing behind the separator",         "d/",                 ".",         "d/",        5  },
        { "root",                                 "/case.1.Log",        "/",         "case",      1  },
        { "a run that fits no integer",           "c.99999999999.Log",  ".",         "c",         2147483647 },
        { "blanks",                               "my dir/my case.1.Log", "my dir/", "my case",   1  },
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.shows);
        const Split s = split(r.name);
        EXPECT_EQ(s.good, 1);
        EXPECT_EQ(s.path, r.path);
        EXPECT_EQ(s.problem, r.problem);
        EXPECT_EQ(s.run, r.run);
    }
}

TEST(splitLogFileName, theProblemOfTheOptionMayNameARunItself)
{
    const Split s = split("d/-", "other.4.Log");
    EXPECT_EQ(s.problem, "other");
    EXPECT_EQ(s.run, 4);
}

TEST(splitLogFileName, anEmptyNameFailsWithAMessage)
{
    sysSetProgName("prog");
    Split s;
    EXPECT_EQ(printed([&] { s = split(""); }), "prog: *** ERROR: Invalid problem name: \n");
    EXPECT_EQ(s.good, 0);
}

/* However long, a name either comes out whole, or is refused, or ends the work: nothing is cut, nothing overruns. */
TEST(splitLogFileName, longNamesAreTakenWholeOrRefused)
{
    for (size_t n : { 1000, 4000, 8180, 8191, 8192, 8193, 9000, 20000 })
        for (bool directory : { false, true }) {
            const std::string name = directory ? std::string(n - 1, 'd') + "/case.1.Log"
                                               : std::string(n - 6, 'c') + ".1.Log";
            SCOPED_TRACE(std::to_string(n) + (directory ? " directory" : " name"));
            static Split      s;
            static std::string failure;
            s = Split();
            const std::string said = printed([&] { failure = trapped([&] { s = split(name); }); });
            if (s.good == 1) {
                EXPECT_LT(n, 8192u);
                EXPECT_EQ(s.path + s.problem, (directory ? name.substr(0, n) + "case" : "." + name.substr(0, n - 6)));
                EXPECT_EQ(s.run, 1);
            } else if (s.good == 0) {
                EXPECT_NE(said.find("Invalid problem name: "), std::string::npos);
            } else {
                EXPECT_GE(n, 8192u);
                EXPECT_NE(failure.find("file name is too long <"), std::string::npos);
            }
        }
}
