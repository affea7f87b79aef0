/* testCnf.cpp: the option table: where values come from, which of them counts, and what is said about bad ones. */

#include <malloc.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <vector>

#include "base/cnf.h"
#include "base/sysInt.h"
#include "test/commaLocale.h"
#include "test/testUtil.h"

static const char *const options[] = {
    "pDir:problem_directory:pdir:.:str:-:problem directory",
    "flag:the_flag:f:no:bool:-:a flag",
    "count:the_count:c:7:int:-:a number",
    "size:the_size:s:1.5:real:-:a size",
    "title:the_title:t:untitled:str:-:a title",
    "color:the_color:col:red:enum:red,green,*blue:a colour",
    "nose:nose:n:F:bool:-:*a flag whose name begins with no",
    "hole:no_hole:nh:F:bool:-:a flag that cannot be named",
    nullptr
};

/* Starts with no configuration file and a known environment, and leaves the process as it was. */
class cnf : public ::testing::Test {
protected:
    struct Variable { const char *name; bool set; std::string value; };
    std::vector<Variable> saved;

    void SetUp() override
    {
        for (const char *name : { "QUENTA_CNF_FILES", "QUENTA_FULL_USAGE", "USERPROFILE", "HOME" }) {
            const char *value = getenv(name);
            saved.push_back({ name, value != nullptr, value ? value : "" });
            unsetenv(name);
        }
        setenv("QUENTA_CNF_FILES", "", 1);
        sysSetProgName("acme-tool.exe");
    }
    void TearDown() override
    {
        for (const Variable &v : saved)
            if (v.set) setenv(v.name, v.value.c_str(), 1);
            else unsetenv(v.name);
        sysSetProgName("QUENTA");
        sysMach.sync = 1;
    }
    /* cnfInit with the options above and a command line behind the program's name */
    static void init(std::vector<const char *> line = {}, const char *const *specs = options)
    {
        line.insert(line.begin(), "acme-tool");
        cnfInit(specs, (int) line.size(), line.data());
    }
    /* The failure of cnfInit, or "". */
    static std::string failure(std::vector<const char *> line = {}, const char *const *specs = options)
    {
        line.insert(line.begin(), "acme-tool");
        return trapped([&] { cnfInit(specs, (int) line.size(), line.data()); });
    }
    static std::string specFailure(std::vector<const char *> specs)
    {
        specs.push_back(nullptr);
        return failure({}, specs.data());
    }
    /* Writes a file and makes it the only one of the list. */
    static void useFile(const std::string &bytes)
    {
        testWrite("one.cnf", bytes);
        setenv("QUENTA_CNF_FILES", "one.cnf", 1);
    }
    static double real(const char *key) { return cnfGetCnf(key)->value.r; }
    static std::string text(const char *key) { return cnfGetCnf(key)->value.s; }
    static std::string source(const char *key) { return cnfGetCnf(key)->source; }

    /* What a child process that runs f writes on standard output; it must end with code 0. */
    static std::string output(const std::function<void()> &f)
    {
        fflush(stdout);
        pid_t child = fork();
        if (child == 0) {
            if (!freopen("stdout.txt", "w", stdout)) _exit(3);
            f();
            fflush(stdout);
            _exit(4);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 4)) << status;
        ended = WIFEXITED(status) && WEXITSTATUS(status) == 0;
        return testRead("stdout.txt");
    }
    static bool ended;          /* the child was ended by cnfInit */
};
bool cnf::ended;

static std::string errorText(const std::string &text) { return "acme-tool: *** ERROR: " + text + "\n"; }

#define EXPECT_HOLDS(whole, part) EXPECT_NE((whole).find(part), std::string::npos) << (whole)
#define EXPECT_LACKS(whole, part) EXPECT_EQ((whole).find(part), std::string::npos) << (whole)

/* Has to be the first test to call the module: a table is never taken away again. */
TEST(cnf0, beforeInitialisationEveryQueryFails)
{
    if (cnfIsInit()) GTEST_SKIP() << "another test has made a table";
    checkFails("CNF not initialized", cnfQuery("count"));
    checkFails("CNF not initialized", cnfGetCnf("count"));
    checkFails("CNF not initialized", cnfGetBool("count"));
    checkFails("CNF not initialized", cnfGetInt("count"));
    checkFails("CNF not initialized", cnfGetStr("count"));
    checkFails("Function <cnfQuery>", cnfQuery("count"));
}

TEST_F(cnf, defaults)
{
    init();
    EXPECT_EQ(cnfIsInit(), 1);
    EXPECT_EQ(cnfGetBool("flag"), 0);
    EXPECT_EQ(cnfGetInt("count"), 7);
    EXPECT_EQ(real("size"), 1.5);
    EXPECT_STREQ(cnfGetStr("title"), "untitled");
    EXPECT_EQ(text("color"), "red");
    EXPECT_EQ(source("count"), "default");

    const cnfRec *rec = cnfGetCnf("color");
    EXPECT_EQ(rec->type, CNF_ENUM);
    EXPECT_STREQ(rec->longName, "the_color");
    EXPECT_STREQ(rec->shortName, "col");
    EXPECT_STREQ(rec->help, "a colour");
    EXPECT_EQ(rec->nEnums, 3);
    EXPECT_STREQ(rec->enums[2], "blue");
    EXPECT_EQ(rec->hidden[1], 0);
    EXPECT_EQ(rec->hidden[2], 1);
}

TEST_F(cnf, gettersTestTheKeyAndItsType)
{
    init();
    EXPECT_EQ(cnfQuery("count"), 1);
    EXPECT_EQ(cnfQuery("the_count"), 0);
    checkFails("key <the_count> not found", cnfGetCnf("the_count"));
    checkFails("key <none> not found", cnfGetInt("none"));
    checkFails("key <count> is not a Bool", cnfGetBool("count"));
    checkFails("key <flag> is not an Int", cnfGetInt("flag"));
    checkFails("key <size> is not an Int", cnfGetInt("size"));
    checkFails("key <count> is not a String", cnfGetStr("count"));
    checkFails("key <color> is not a String", cnfGetStr("color"));
}

TEST_F(cnf, aTableWithoutArgumentsOrOptions)
{
    const char *const none[] = { nullptr };
    checkReturns(cnfInit(none, 0, nullptr));
    EXPECT_EQ(cnfIsInit(), 1);
    EXPECT_EQ(cnfQuery("count"), 0);
    checkReturns(cnfInit(options, 0, nullptr));
    EXPECT_EQ(cnfGetInt("count"), 7);
}

TEST_F(cnf, textsOfAFormerTableStay)
{
    init({ "-t", "kept" });
    const char *title = cnfGetStr("title");
    init();
    EXPECT_STREQ(title, "kept");
    EXPECT_STREQ(cnfGetStr("title"), "untitled");
}

/* Specifications */

TEST_F(cnf, aSpecificationHasSevenFields)
{
    EXPECT_HOLDS(specFailure({ "a:b:c:1:int:-" }), "Error in configuration <a:b:c:1:int:-> <6>");
    EXPECT_HOLDS(specFailure({ "a:b:c:1:int:-:help:more" }), "Error in configuration <a:b:c:1:int:-:help:more> <8>");
    EXPECT_HOLDS(specFailure({ "" }), "Error in configuration <> <0>");
    EXPECT_HOLDS(specFailure({ "a:b:c:1:int:-" }), "Function <cnfInit>");
    EXPECT_HOLDS(specFailure({ (std::string(9000, 'a') + ":b:c:1:int:-:h").c_str() }), "Error in configuration <aaa");
}

TEST_F(cnf, anEmptyFieldDoesNotExist)
{
    EXPECT_HOLDS(specFailure({ "a:b:c::str:-:help" }), "Error in configuration <a:b:c::str:-:help> <6>");
    EXPECT_EQ(specFailure({ "a::b:c:1:int:-:help" }), "");
    EXPECT_EQ(cnfGetInt("a"), 1);
}

TEST_F(cnf, aPlusContinuesWithTheNextText)
{
    const char *const specs[] = { "a:b:c:+", "5:int:+", "-:help", "d:e:f:6:int:-:+", "more help", nullptr };
    init({}, specs);
    EXPECT_EQ(cnfGetInt("a"), 5);
    EXPECT_EQ(cnfGetInt("d"), 6);
    EXPECT_STREQ(cnfGetCnf("d")->help, "more help");
    EXPECT_HOLDS(specFailure({ "a:b:c:1:int:-:+" }), "Error in configuration <a:b:c:1:int:-:+> <6>");
    EXPECT_HOLDS(specFailure({ "a:b:c:1:int:-:h+", "x" }), "Error in configuration <x> <1>");
}

TEST_F(cnf, badDefaults)
{
    static const struct { const char *spec, *failure; } cases[] = {
        { "a:b:c:maybe:bool:-:h",        "Invalid default bool <maybe>"    },
        { "a:b:c:12abc:int:-:h",         "Invalid default int <12abc>"     },
        { "a:b:c:2147483648:int:-:h",    "Invalid default int <2147483648>" },
        { "a:b:c:x:real:-:h",            "Invalid default real <x>"        },
        { "a:b:c:pink:enum:red,blue:h",  "Invalid default opt <pink>"      },
        { "a:b:c:*blue:enum:red,*blue:h", "Invalid default opt <*blue>"    },
        { "a:b:c:1:integer:-:h",         "Invalid type <integer>"          }
    };
    for (const auto &c : cases) {
        EXPECT_HOLDS(specFailure({ c.spec }), c.failure);
        EXPECT_HOLDS(specFailure({ c.spec }), "ASSERTION in Function <cnfInit>");
    }
}

TEST_F(cnf, anEnumValueWithAStarAnywhereIsHiddenAndLosesItsFirstCharacter)
{
    EXPECT_EQ(specFailure({ "a:b:c:*b:enum:red,a*b:h" }), "");
    EXPECT_EQ(text("a"), "*b");
    EXPECT_STREQ(cnfGetCnf("a")->enums[1], "*b");
    EXPECT_EQ(cnfGetCnf("a")->hidden[0], 0);
    EXPECT_EQ(cnfGetCnf("a")->hidden[1], 1);
    EXPECT_HOLDS(specFailure({ "a:b:c:a*b:enum:red,a*b:h" }), "Invalid default opt <a*b>");
}

TEST_F(cnf, tooManyEnumValuesAreRefused)
{
    std::string list = "v";
    for (int i = 1; i < 128; ++i) list += ",v" + std::to_string(i);
    EXPECT_EQ(specFailure({ ("a:b:c:v127:enum:" + list + ":h").c_str() }), "");
    EXPECT_EQ(cnfGetCnf("a")->nEnums, 128);
    EXPECT_HOLDS(specFailure({ ("a:b:c:v:enum:" + list + ",w:h").c_str() }), "Error in configuration <a> <129>");
}

/* Conversions, as the command line shows them best */

TEST_F(cnf, boolTexts)
{
    for (const char *yes : { "1", "t", "true", "yes", "on", "TRUE", "Yes", "oN" }) {
        useFile(std::string("f = ") + yes + "\n");
        init();
        EXPECT_EQ(cnfGetBool("flag"), 1) << yes;
    }
    for (const char *no : { "0", "f", "false", "no", "off", "F", "No" }) {
        useFile(std::string("f = yes\nf = ") + no + "\n");
        init();
        EXPECT_EQ(cnfGetBool("flag"), 0) << no;
    }
    for (const char *bad : { "2", "tr", "yes no", "-1", "truee" }) {
        useFile(std::string("f = ") + bad + "\n");
        EXPECT_EQ(failure(), errorText(std::string("Invalid bool <") + bad + "> for par <f> in file <one.cnf>"));
    }
}

TEST_F(cnf, intTexts)
{
    static const struct { const char *text; int value; } good[] = {
        { "0x10", 16 }, { "010", 8 }, { "-12", -12 }, { "+3", 3 }, { " 5", 5 }, { "2147483647", 2147483647 },
        { "-2147483648", -2147483647 - 1 }, { "", 0 }        /* nothing is left behind the number */
    };
    for (const auto &g : good) {
        init({ "-c", g.text });
        EXPECT_EQ(cnfGetInt("count"), g.value) << g.text;
    }
    for (const char *bad : { "12abc", " ", "08", "1.5", "0x", "2147483648", "-2147483649", "99999999999999999999" })
        EXPECT_EQ(failure({ "-c", bad }),
                  errorText(std::string("Invalid int <") + bad + "> for command line option <-c>"));
}

TEST_F(cnf, realTexts)
{
    static const struct { const char *text; double value; } good[] = {
        { "1.5d3", 1500 }, { "1.5D-1", 0.15 }, { "1.5e3", 1500 }, { "-2", -2 }, { "1e-400", 0 }, { "3d0", 3 }, { "", 0 }
    };
    for (const auto &g : good) {
        init({ "-s", g.text });
        EXPECT_DOUBLE_EQ(real("size"), g.value) << g.text;
    }
    for (const char *bad : { " ", "d", "d3", "1.5d", "1.5d3d2", "1.5x", "1e999", "1d999", "1,5" })
        EXPECT_EQ(failure({ "-s", bad }),
                  errorText(std::string("Invalid real <") + bad + "> for command line option <-s>"));
}

TEST_F(cnf, numbersAndNamesDoNotDependOnTheLocale)
{
    useCommaLocale();
    useFile("WIN64.s = 2.5\nIN.c = 4\n");
    init();
    EXPECT_EQ(real("size"), 2.5);
    init({ "-s", "2.5d-1" });
    EXPECT_EQ(real("size"), 0.25);
    EXPECT_EQ(failure({ "-s", "1,5" }), errorText("Invalid real <1,5> for command line option <-s>"));
    const char *const specs[] = { "help:h:h:0:bool:-:h", "size:the_size:s:1.5:real:-:a size", nullptr };
    EXPECT_HOLDS(output([&] { init({ "-h" }, specs); }), "the_size= 2.500000e+00 [one.cnf]\n");
}

/* Command line */

TEST_F(cnf, theCommandLineSetsOptionsByEitherName)
{
    init({ "-f", "-the_count", "8", "-s", "2.5", "-t", "-c", "-the_color", "blue" });
    EXPECT_EQ(cnfGetBool("flag"), 1);
    EXPECT_EQ(cnfGetInt("count"), 8);
    EXPECT_EQ(real("size"), 2.5);
    EXPECT_STREQ(cnfGetStr("title"), "-c");                 /* a parameter may look like an option */
    EXPECT_EQ(text("color"), "blue");
    EXPECT_EQ(source("color"), "command-line");
    EXPECT_EQ(source("flag"), "command-line");
    EXPECT_EQ(source("nose"), "default");
}

TEST_F(cnf, theFirstOptionOfANameIsMeant)
{
    const char *const specs[] = { "a:one:x:1:int:-:h", "b:x:one:2:int:-:h", "c:two:x:3:int:-:h", nullptr };
    init({ "-x", "7" }, specs);
    EXPECT_EQ(cnfGetInt("a"), 7);
    useFile("x = 8\none = 9\ntwo = 10\n");
    init({}, specs);
    EXPECT_EQ(cnfGetInt("a"), 9);
    EXPECT_EQ(cnfGetInt("b"), 2);
    EXPECT_EQ(cnfGetInt("c"), 10);
}

TEST_F(cnf, noBeforeANameSetsAFlagToZero)
{
    init({ "-f", "-no_f", "-nose" });
    EXPECT_EQ(cnfGetBool("flag"), 0);
    EXPECT_EQ(cnfGetBool("nose"), 1);
    init({ "-nose", "-no_nose" });
    EXPECT_EQ(cnfGetBool("nose"), 0);
    EXPECT_EQ(failure({ "-nof" }), errorText("Unrecognized command line option <-nof>"));
    EXPECT_EQ(failure({ "-no_hole" }), errorText("Unrecognized command line option <-no_hole>"));
}

TEST_F(cnf, noBeforeAnIntIsAcceptedAndItsParameterTaken)
{
    init({ "-no_c", "3" });
    EXPECT_EQ(cnfGetInt("count"), 3);
}

TEST_F(cnf, badCommandLines)
{
    static const struct { std::vector<const char *> line; const char *failure; } cases[] = {
        { { "c", "3" },         "Invalid command line option <c>"                         },
        { { "" },               "Invalid command line option <>"                          },
        { { "-c", "3", "4" },   "Invalid command line option <4>"                         },
        { { "-f", "yes" },      "Invalid command line option <yes>"                       },
        { { "-count", "3" },    "Unrecognized command line option <-count>"               },
        { { "-" },              "Unrecognized command line option <->"                    },
        { { "-no_" },           "Unrecognized command line option <-no_>"                 },
        { { "-f", "-c" },       "Option <-c> is missing a parameter"                      },
        { { "-c", "three" },    "Invalid int <three> for command line option <-c>"        },
        { { "-s", "big" },      "Invalid real <big> for command line option <-s>"         },
        { { "-col", "pink" },   "Invalid opt <pink> for command line option <-col>"       },
        { { "-col", "*blue" },  "Invalid opt <*blue> for command line option <-col>"      }
    };
    for (const auto &c : cases) EXPECT_EQ(failure(c.line), errorText(c.failure));
}

/* Files */

TEST_F(cnf, theShapesOfALine)
{
    static const struct { const char *line, *title; } cases[] = {
        { "t = x",                 "x" },        { "t=x",               "x" },      { "t:x",              "x" },
        { "t x",                   "x" },        { "t\t\tx",            "x" },      { "  \tt  :\t x \t ", "x" },
        { "the_title = a b  c ",   "a b  c" },   { "t = a = b : c",     "a = b : c" },
        { "t = x\r",               "x" },        { "t == x",            "= x" },    { "t = =",            "=" },
        { "t =",                   "=" },        { "# t = x",           "untitled" }, { "t",              "untitled" },
        { "t x.y = z",             "x.y = z" },  { "T = x",             "untitled" }, { "t-t = x",        "untitled" },
        { "",                      "untitled" }, { "=x",                "untitled" }, { "title = x",      "untitled" }
    };
    for (const auto &c : cases) {
        useFile(std::string(c.line) + "\n");
        init();
        EXPECT_STREQ(cnfGetStr("title"), c.title) << c.line;
    }
}

TEST_F(cnf, innerBlanksOfAValueStayAndTrailingOnesGo)
{
    useFile("t = a b  c  \t \n");
    init();
    EXPECT_STREQ(cnfGetStr("title"), "a b  c");
}

TEST_F(cnf, prefixesAimALine)
{
    memcpy(sysMach.hostName, "host.A", 7);
    static const struct { const char *line; bool aimed; } cases[] = {
        { "win64.t = x", true },           { "WIN64.t = x", true },      { "acme-tool.t = x", true },
        { "acme.t = x", true },            { "host.A.t = x", true },     { "win64.host.A.t = x", true },
        { "host.A.win64.acme.t = x", true },
        { "win64.win64.win64.win64.t = x", false },                      { "Win64.t = x", false },
        { "linux.t = x", false },          { "hostXA.t = x", false },    { "host.t = x", false },
        { "tool.t = x", false },           { "acmet = x", false },       { ".t = x", false }
    };
    for (const auto &c : cases) {
        useFile(std::string(c.line) + "\n");
        init();
        EXPECT_STREQ(cnfGetStr("title"), c.aimed ? "x" : "untitled") << c.line;
    }
    memcpy(sysMach.hostName, "_unknown_", 10);
}

TEST_F(cnf, namesWithSpecialCharactersStandForThemselves)
{
    sysSetProgName("a(b+c)|[d\\x");
    memcpy(sysMach.hostName, "*h^$?", 6);
    useFile("*h^$?.t = x\nx.c = 9\n");
    init();
    EXPECT_STREQ(cnfGetStr("title"), "x");
    EXPECT_EQ(cnfGetInt("count"), 9);
    sysSetProgName("-tool(");                               /* nothing before the hyphen */
    useFile("-tool(.t = x\n.c = 8\n");
    init();
    EXPECT_STREQ(cnfGetStr("title"), "x");
    EXPECT_EQ(cnfGetInt("count"), 8);
    memcpy(sysMach.hostName, "_unknown_", 10);
}

TEST_F(cnf, aNameTooLongForThePatternFailsInOrder)
{
    sysSetProgName(std::string(8190, 'p').c_str());
    EXPECT_HOLDS(failure(), "ASSERTION in Function <cnfInit>");      /* the name leaves no room for more */
    sysSetProgName(std::string(1500, 'p').c_str());         /* more code than the buffer starts with */
    useFile(std::string(1500, 'p') + ".t = x\n");
    EXPECT_EQ(failure(), "");
    EXPECT_STREQ(cnfGetStr("title"), "x");
}

TEST_F(cnf, aFileSetsOptionsOfEveryType)
{
    useFile("the_flag: on\nc 0x10\nthe_size = 1.5d3\nt = a title\ncol = blue\n");
    init();
    EXPECT_EQ(cnfGetBool("flag"), 1);
    EXPECT_EQ(cnfGetInt("count"), 16);
    EXPECT_EQ(real("size"), 1500);
    EXPECT_STREQ(cnfGetStr("title"), "a title");
    EXPECT_EQ(text("color"), "blue");
    for (const char *key : { "flag", "count", "size", "title", "color" }) EXPECT_EQ(source(key), "one.cnf") << key;
}

TEST_F(cnf, unknownKeysInAFileAreIgnored)
{
    useFile("nothing = 1\nlonger words of a comment\nc = 3\n");
    init();
    EXPECT_EQ(cnfGetInt("count"), 3);
    EXPECT_EQ(source("count"), "one.cnf");
}

TEST_F(cnf, badValuesInAFile)
{
    static const struct { const char *line, *failure; } cases[] = {
        { "the_flag = maybe",       "Invalid bool <maybe> for par <the_flag> in file <one.cnf>" },
        { "c = 12abc",              "Invalid int <12abc> for par <c> in file <one.cnf>"         },
        { "c = 4294967296",         "Invalid int <4294967296> for par <c> in file <one.cnf>"    },
        { "s 1.5 m",                "Invalid real <1.5 m> for par <s> in file <one.cnf>"        },
        { "win64.col: pink",        "Invalid opt <pink> for par <col> in file <one.cnf>"        },
        { "c = %s%n",               "Invalid int <%s%n> for par <c> in file <one.cnf>"          }
    };
    for (const auto &c : cases) {
        useFile(std::string(c.line) + "\n");
        EXPECT_EQ(failure(), errorText(c.failure));
    }
    useFile("c = 5\n");                                     /* and the next try is not disturbed */
    init();
    EXPECT_EQ(cnfGetInt("count"), 5);
}

/* The lowest descriptor that is free. */
static int freeDescriptor()
{
    int fd = dup(0);
    close(fd);
    return fd;
}

TEST_F(cnf, aFileIsClosedBeforeItsFailureIsRaised)
{
    useFile("c = bad\n");
    int before = freeDescriptor();
    for (int i = 0; i < 5; ++i) {
        EXPECT_NE(failure(), "");
        EXPECT_EQ(freeDescriptor(), before);
    }
}

TEST_F(cnf, filesAreClosedWhenTheyHaveBeenRead)
{
    testWrite("1st.cnf", "c = 1\n");
    testWrite("2nd.cnf", "c = 2\n");
    std::filesystem::create_directories("folder");
    setenv("QUENTA_CNF_FILES", "1st.cnf:folder:2nd.cnf", 1);
    int before = freeDescriptor();
    init();
    EXPECT_EQ(cnfGetInt("count"), 1);
    EXPECT_EQ(freeDescriptor(), before);
}

/* Bytes that are allocated. */
static long long heapInUse()
{
#if __GLIBC_PREREQ(2, 33)
    const struct mallinfo2 info = mallinfo2();
#else
    const struct mallinfo info = mallinfo();
#endif
    return (long long) info.uordblks + (long long) info.hblkhd;
}

/* A list of many entries, all of them empty, is what an abandoned call has on its hands. */
TEST_F(cnf, whatAnAbandonedCallLeavesIsPutAwayByTheNext)
{
    setenv("QUENTA_CNF_FILES", std::string(100000, ':').c_str(), 1);
    const char *const specs[] = { "help:h:h:x:str:-:h", nullptr };
    EXPECT_HOLDS(failure({}, specs), "key <help> is not a Bool");
    long long before = heapInUse();
    for (int i = 0; i < 20; ++i) EXPECT_HOLDS(failure({}, specs), "key <help> is not a Bool");
    EXPECT_LT(heapInUse() - before, 100000);
}

TEST_F(cnf, theCommandLineBeatsAFile)
{
    useFile("c = 12abc\nt = from file\n");
    init({ "-c", "3" });                                    /* the bad line is not even looked at */
    EXPECT_EQ(cnfGetInt("count"), 3);
    EXPECT_EQ(source("count"), "command-line");
    EXPECT_STREQ(cnfGetStr("title"), "from file");
}

TEST_F(cnf, aFileNamedLikeTheCommandLineHasNoMoreRights)
{
    testWrite("command-line", "c = 3\n");
    testWrite("b.cnf", "c = 4\n");
    setenv("QUENTA_CNF_FILES", "b.cnf:command-line", 1);
    init();
    EXPECT_EQ(cnfGetInt("count"), 4);
}

TEST_F(cnf, theFirstFileInTheListWins)
{
    testWrite("1st.cnf", "c = 1\n");
    testWrite("2nd.cnf", "c = 2\nt = two\n");
    setenv("QUENTA_CNF_FILES", "1st.cnf:missing.cnf::2nd.cnf:", 1);
    init();
    EXPECT_EQ(cnfGetInt("count"), 1);
    EXPECT_EQ(source("count"), "1st.cnf");
    EXPECT_STREQ(cnfGetStr("title"), "two");
    EXPECT_EQ(source("title"), "2nd.cnf");
}

TEST_F(cnf, aDriveLetterIsRejoined)
{
    std::filesystem::create_directories("C:/x");
    testWrite("C:/x/Quenta.cnf", "c = 11\n");
    testWrite("C", "c = 12\n");                             /* the letter is no entry of its own */
    testWrite("a.cnf", "t = a\n");
    setenv("QUENTA_CNF_FILES", "a.cnf:C:\\x\\Quenta.cnf", 1);
    init();
    EXPECT_EQ(cnfGetInt("count"), 11);
    EXPECT_EQ(source("count"), "C:\\x\\Quenta.cnf");
    EXPECT_STREQ(cnfGetStr("title"), "a");
    setenv("QUENTA_CNF_FILES", "C:\\x\\Quenta.cnf", 1);
    init();
    EXPECT_EQ(cnfGetInt("count"), 11);
}

TEST_F(cnf, aTildeIsTheUsersFolder)
{
    std::filesystem::create_directories("user/sub");
    testWrite("user/sub/my.cnf", "c = 21\n");
    setenv("USERPROFILE", "user", 1);
    setenv("QUENTA_CNF_FILES", "~\\sub\\my.cnf", 1);
    init();
    EXPECT_EQ(cnfGetInt("count"), 21);
    EXPECT_EQ(source("count"), "user\\sub\\my.cnf");
    testWrite("a", "t = letter\n");                         /* before a tilde a letter is no drive */
    setenv("QUENTA_CNF_FILES", "a:~\\sub\\my.cnf", 1);
    init();
    EXPECT_EQ(cnfGetInt("count"), 21);
    EXPECT_STREQ(cnfGetStr("title"), "letter");
    for (const char *shortOnes : { "~", "~x", "~:a.cnf", "a:~", ":" }) {
        setenv("QUENTA_CNF_FILES", shortOnes, 1);
        EXPECT_EQ(failure(), "") << shortOnes;
    }
}

TEST_F(cnf, theDefaultListIsTheCurrentFolderThenTheUsers)
{
    std::filesystem::create_directories("user");
    std::filesystem::create_directories("home");
    testWrite("Quenta.cnf", "c = 1\n");
    testWrite("user/Quenta.cnf", "c = 2\nt = user\n");
    testWrite("home/Quenta.cnf", "c = 3\nt = home\n");
    unsetenv("QUENTA_CNF_FILES");
    setenv("HOME", "home", 1);
    init();
    EXPECT_EQ(cnfGetInt("count"), 1);
    EXPECT_EQ(source("count"), ".\\Quenta.cnf");
    EXPECT_EQ(source("title"), "home\\Quenta.cnf");
    setenv("USERPROFILE", "user", 1);
    init();
    EXPECT_STREQ(cnfGetStr("title"), "user");
    unsetenv("USERPROFILE");
    unsetenv("HOME");
    init();
    EXPECT_STREQ(cnfGetStr("title"), "untitled");
    EXPECT_EQ(cnfGetInt("count"), 1);
    setenv("QUENTA_CNF_FILES", "", 1);                      /* an empty list is a list */
    init();
    EXPECT_EQ(cnfGetInt("count"), 7);
}

TEST_F(cnf, whatIsNoPlainFileIsPassedOver)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    std::filesystem::create_directories("folder");
    setenv("QUENTA_CNF_FILES", "pipe:folder:/dev/zero:missing", 1);
    EXPECT_EQ(failure(), "");
}

TEST_F(cnf, linesAreReadBounded)
{
    std::string word(9000, 'x');
    useFile("# " + word + " c = 1\nt = ok\n" + word + "\n" + std::string(8191, ' ') + "c = 2\ns = 2.5");
    init();
    EXPECT_EQ(cnfGetInt("count"), 7);
    EXPECT_STREQ(cnfGetStr("title"), "ok");
    EXPECT_EQ(real("size"), 2.5);                           /* the last line needs no end */

    useFile(std::string(8191 - 5, ' ') + "c = 567\n");      /* 8191 characters count, and a final zero is the 8192nd */
    init();
    EXPECT_EQ(cnfGetInt("count"), 5);

    useFile("t = " + std::string(4000, 'y') + "\nc = 3\n");
    init();
    EXPECT_EQ(cnfGetStr("title"), std::string(4000, 'y'));
    useFile("t = " + std::string(4200, 'y') + "\nc = 3\n");   /* needs too many choice points: does not match */
    init();
    EXPECT_STREQ(cnfGetStr("title"), "untitled");
    EXPECT_EQ(cnfGetInt("count"), 3);
    useFile(std::string("t = a\0b\nc = 3\n\0\n", 16));
    init();
    EXPECT_STREQ(cnfGetStr("title"), "a");
    EXPECT_EQ(cnfGetInt("count"), 3);

    std::string zeros = "# zeros: ";                        /* a zero does not make the rest another line */
    zeros += '\0';
    useFile(zeros + std::string(8191 - zeros.size(), ' ') + "c = 4\nt = next\n");
    init();
    EXPECT_EQ(cnfGetInt("count"), 7);
    EXPECT_STREQ(cnfGetStr("title"), "next");
}

TEST_F(cnf, aLineThatIsTooComplexIsReportedAndPassedOver)
{
    useFile("c = 1\n\nt = " + std::string(4200, 'y') + "\nc = 3\n");
    std::string out = output([] {
        init();
        _exit(fflush(stdout) == 0 && cnfGetInt("count") == 3 && text("title") == "untitled" ? 4 : 5);
    });
    EXPECT_EQ(out, "acme-tool: *** ERROR: Line <3> of file <one.cnf> is too complex, it is passed over\n");
    useFile("t = " + std::string(4000, 'y') + "\n");
    EXPECT_EQ(output([] { init(); }), "");
}

/* Standard keys */

TEST_F(cnf, pDirIsGoneToBeforeTheFilesAreRead)
{
    std::filesystem::create_directories("case");
    testWrite("case/one.cnf", "c = 31\n");
    setenv("QUENTA_CNF_FILES", "one.cnf", 1);
    init({ "-pdir", "case" });
    EXPECT_EQ(cnfGetInt("count"), 31);
    EXPECT_EQ(cnfGetStr("pDir"), testFolder() + "/case");
    EXPECT_EQ(std::filesystem::current_path(), testFolder() + "/case");
    EXPECT_EQ(source("pDir"), "command-line");
}

TEST_F(cnf, aFileMaySetPDir)
{
    std::filesystem::create_directories("case");
    useFile("pdir = case\n");
    init();
    EXPECT_EQ(cnfGetStr("pDir"), testFolder() + "/case");
    EXPECT_EQ(std::filesystem::current_path(), testFolder() + "/case");
    EXPECT_HOLDS(failure({ "-pdir", "missing" }), "Error in chdir to <missing>");
}

TEST_F(cnf, pDirBecomesTheCurrentFolderInEveryCase)
{
    for (const char *dir : { ".", "" }) {
        init({ "-pdir", dir });
        EXPECT_EQ(cnfGetStr("pDir"), testFolder());
    }
}

TEST_F(cnf, aFolderIsOnlyGoneToIfItIsAnother)
{
    static int nCalls;
    int (*const former)(const char *) = sysMach.chdir;
    static const struct { const char *dir; int nCalls; } cases[] = { { ".", 0 }, { "", 0 }, { "case", 1 } };
    std::filesystem::create_directories("case");
    for (const auto &c : cases) {
        nCalls = 0;
        sysMach.chdir = [](const char *dir) { return nCalls += dir[0] != '/', chdir(dir); };
        EXPECT_EQ(failure({ "-pdir", c.dir }), "");         /* later it goes to where it is, by its full name */
        EXPECT_EQ(nCalls, c.nCalls) << c.dir;
    }
    sysMach.chdir = former;
}

TEST_F(cnf, anEmptyExecBecomesTheProgram)
{
    const char *const specs[] = { "exec:executable:exec:_none:str:-:program", nullptr };
    init({}, specs);
    EXPECT_STREQ(cnfGetStr("exec"), "_none");
    init({ "-exec", "" }, specs);
    EXPECT_STREQ(cnfGetStr("exec"), "acme-tool");
    checkReturns(cnfInit(specs, 0, nullptr));
    EXPECT_STREQ(cnfGetStr("exec"), "_none");
}

TEST_F(cnf, aFalseSyncTurnsItOff)
{
    const char *const specs[] = { "sync:sync:sync:on:bool:-:sync", nullptr };
    init({}, specs);
    EXPECT_EQ(sysMach.sync, 1);
    init({ "-no_sync" }, specs);
    EXPECT_EQ(sysMach.sync, 0);
}

TEST_F(cnf, aStandardKeyOfAnotherTypeFails)
{
    for (const std::string key : { "pDir", "exec" })
        EXPECT_HOLDS(specFailure({ (key + ":p:p:1:int:-:h").c_str() }), "key <" + key + "> is not a String");
    for (const std::string key : { "help", "env", "lbuff", "memv", "sync" })
        EXPECT_HOLDS(specFailure({ (key + ":h:h:x:str:-:h").c_str() }), "key <" + key + "> is not a Bool");
}

TEST_F(cnf, memvIsAccepted)
{
    const char *const specs[] = { "memv:memory_verbose:memv:off:bool:-:h", nullptr };
    EXPECT_EQ(failure({ "-memv" }, specs), "");
    EXPECT_EQ(cnfGetBool("memv"), 1);
}

TEST_F(cnf, lbuffMakesOutputComeLineByLine)
{
    const char *const specs[] = { "lbuff:lb:lb:off:bool:-:h", nullptr };
    std::string out = output([&] {
        init({ "-lb" }, specs);
        sysMessage("line");
        _exit(0);                                           /* unflushed: only line buffering shows it */
    });
    EXPECT_HOLDS(out, "acme-tool: line\n");
}

/* Usage */

static const char *const usageOptions[] = {
    "help:help:h:0:bool:-:print usage",
    "env:environment:env:0:bool:-:print environment",
    "count:the_count:c:7:int:-:a number",
    "size:the_size:s:1.5:real:-:a size",
    "title:the_title:t:untitled:str:-:a title",
    "color:the_color:col:red:enum:red,*blue,green:a colour",
    "kind:kind:k:b:enum:*a,b,*c:a kind",
    "deep:deep:dp:1:int:-:*a deep secret",
    nullptr
};

/* The text with the program's name before each line. */
static std::string headed(const std::string &text)
{
    std::string all = "acme-tool: ";
    for (size_t i = 0; i < text.size(); ++i) {
        all += text[i];
        if (text[i] == '\n' && i + 1 < text.size()) all += "acme-tool: ";
    }
    return all;
}

TEST_F(cnf, helpPrintsTheUsageAndEndsTheProcess)
{
    useFile("t = from file\nc = 5\n");                     /* c is on the command line, too */
    std::string out = output([] { init({ "-h", "-c", "3" }, usageOptions); });
    EXPECT_TRUE(ended);
    EXPECT_EQ(out, headed("\nUsage:\n\n"
                          "    acme-tool [options]\n"
                          "\nOptions:\n\n"
                          "  -h            print usage\n"
                          "                  help= TRUE [command-line]\n"
                          "  -env          print environment\n"
                          "                  environment= FALSE [default]\n"
                          "  -c <int>      a number\n"
                          "                  the_count= 3 [command-line]\n"
                          "  -s <real>     a size\n"
                          "                  the_size= 1.500000e+00 [default]\n"
                          "  -t <str>      a title\n"
                          "                  the_title= from file [one.cnf]\n"
                          "  -col <enum>   a colour: red green\n"
                          "                  the_color= red [default]\n"
                          "  -k <enum>     a kind: b\n"
                          "                  kind= b [default]\n"
                          "\nConfiguration Files:\n\n"
                          "   one.cnf\n"
                          "\nRelease: " + std::string(sysGetVersion()) + "\n\n"));
}

TEST_F(cnf, theFullUsageShowsWhatIsHidden)
{
    setenv("QUENTA_FULL_USAGE", "1", 1);
    unsetenv("QUENTA_CNF_FILES");
    setenv("USERPROFILE", "user", 1);
    std::string out = output([] { init({ "-h" }, usageOptions); });
    EXPECT_HOLDS(out, "a colour: red *blue green\n");
    EXPECT_HOLDS(out, "a kind: *a b *c\n");
    EXPECT_HOLDS(out, "  -dp <int>     *a deep secret\n");
    EXPECT_HOLDS(out, "   .\\Quenta.cnf:user\\Quenta.cnf\n");
    setenv("QUENTA_FULL_USAGE", "", 1);                     /* anything but 0 */
    EXPECT_HOLDS(output([] { init({ "-h" }, usageOptions); }), "deep");
    setenv("QUENTA_FULL_USAGE", "0", 1);
    out = output([] { init({ "-h" }, usageOptions); });
    EXPECT_LACKS(out, "deep");
    EXPECT_LACKS(out, "blue");
}

TEST_F(cnf, helpWithEnvPrintsTheEnvironmentToo)
{
    setenv("CNF_TEST_VARIABLE", "%s%n", 1);
    std::string out = output([] { init({ "-h", "-env" }, usageOptions); });
    EXPECT_TRUE(ended);
    EXPECT_HOLDS(out, headed("\nCurrent Environment Variables:\n\n"));
    EXPECT_HOLDS(out, "acme-tool:   CNF_TEST_VARIABLE=%s%n\n");
    EXPECT_LT(out.find("Release"), out.find("Current Environment"));

    out = output([] { init({ "-env" }, usageOptions); });   /* alone it ends nothing */
    EXPECT_FALSE(ended);
    EXPECT_HOLDS(out, "CNF_TEST_VARIABLE");
    EXPECT_LACKS(out, "Usage");
    unsetenv("CNF_TEST_VARIABLE");
}

TEST_F(cnf, atMostAThousandEntriesOfTheEnvironmentArePrinted)
{
    std::string out = output([] {
        clearenv();
        for (int i = 0; i < 1100; ++i) setenv(("V" + std::to_string(i)).c_str(), "1", 1);
        cnfPrintEnv();
    });
    int lines = 0;
    for (char c : out) lines += c == '\n';
    EXPECT_EQ(lines, 1004);
}

TEST_F(cnf, aProcessMayHaveNoEnvironmentAtAll)
{
    EXPECT_EQ(output([] {
        clearenv();
        cnfPrintEnv();
    }), headed("\nCurrent Environment Variables:\n\n\n"));
}

TEST_F(cnf, anEnumOfManyLongValuesIsCutInTheUsage)
{
    std::string list = std::string(60, 'a');
    for (int i = 1; i < 128; ++i) list += "," + std::string(59, 'a') + std::to_string(i);
    std::string spec = "e:e:e:" + std::string(60, 'a') + ":enum:" + list + ":h";
    const char *const specs[] = { usageOptions[0], spec.c_str(), nullptr };
    std::string out = output([&] { init({ "-h" }, specs); });
    EXPECT_TRUE(ended);
    EXPECT_HOLDS(out, "Release");
}
