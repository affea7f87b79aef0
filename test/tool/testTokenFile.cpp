/* testTokenFile.cpp: tokens become the right bytes or data sets, and come back as they were, in every storage form. */

#include "test/testUtil.h"
#include "test/tool/forms.h"
#include "test/tool/thrown.h"

#include <unistd.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

using namespace tool;
using namespace std::string_literals;

/* a short file: a text, integers, a real, a float, a table */
static void writeShort(TokenFile file)
{
    const int32_t ints[2] = {1, -2}, table[4] = {1, 2, 3, 4};
    const double real = 0.5;
    const float single = -0.25f;
    file.str("key");
    file.ints(ints, 2);
    file.reals(&real, 1);
    file.floats(&single, 1);
    file.keyInts("vec", 2, 2, table);
    file.close();
}

static const std::string shortText = "key\n1 -2\n0.5\n-0.25\nvec\n2\n2\n1 2 3 4\n";

TEST(tokenFile, formsAreKnownByWordSuffixAndOption)
{
    for (const auto &f : forms) {
        SCOPED_TRACE(f.name);
        EXPECT_STREQ(formRow(f.form).word, f.name);
        EXPECT_EQ(formRow(f.form).value, f.form);
        EXPECT_STREQ(formRow(f.form).suffix, f.suffix);
        EXPECT_EQ(formOpt(f.form), f.opt);
        EXPECT_EQ(formSuffix(f.form), f.form == Form::container ? "" : f.suffix) << "members have none";
    }
}

TEST(tokenFile, asciiBytes)
{
    writeShort(TokenFile("a.tok", Form::ascii));
    EXPECT_EQ(testRead("a.tok"), shortText);
}

TEST(tokenFile, binaryBytes)
{
    writeShort(TokenFile("a.tok", Form::binary));
    EXPECT_EQ(testRead("a.tok.B"), "QUENTA 2021.1 2 4 6 8\n"
                                   "key\0\0\0\0\0"
                                   "\1\0\0\0\xfe\xff\xff\xff"
                                   "\0\0\0\0\0\0\xe0\x3f"
                                   "\0\0\x80\xbe"
                                   "vec\0\0\0\0\0"
                                   "\2\0\0\0\2\0\0\0"
                                   "\1\0\0\0\2\0\0\0\3\0\0\0\4\0\0\0"s);
}

TEST(tokenFile, swappedBytes)
{
    writeShort(TokenFile("a.tok", Form::swapped));
    EXPECT_EQ(testRead("a.tok.B"), "QUENTA 2021.1 1 4 5 8\n"
                                   "key\0\0\0\0\0"
                                   "\0\0\0\1\xff\xff\xff\xfe"
                                   "\x3f\xe0\0\0\0\0\0\0"
                                   "\xbe\x80\0\0"
                                   "vec\0\0\0\0\0"
                                   "\0\0\0\2\0\0\0\2"
                                   "\0\0\0\1\0\0\0\2\0\0\0\3\0\0\0\4"s);
}

TEST(tokenFile, compressedIsTheTextPacked)
{
    writeShort(TokenFile("a.tok", Form::compressed));
    EXPECT_EQ(testRead("a.tok.Z").substr(0, 2), "\x1f\x9d");
    ASSERT_EQ(std::system("zcat a.tok.Z >unpacked"), 0);
    EXPECT_EQ(testRead("unpacked"), shortText);
}

/* what the reader looks at on its way: names, types, dimensions and number of the data sets */
static void checkShort(const Place &place)
{
    TokenReader back(place);
    EXPECT_EQ(back.str(), "key");
    EXPECT_EQ(back.ints(1, 2), (std::vector<int32_t>{1, -2}));
    EXPECT_EQ(back.real(), 0.5);
    EXPECT_EQ(back.floats(1, 1)[0], -0.25f);
    EXPECT_EQ(back.str(), "vec");
    EXPECT_EQ(back.integer(), 2);
    EXPECT_EQ(back.integer(), 2);
    EXPECT_EQ(back.ints(2, 2), (std::vector<int32_t>{1, 2, 3, 4}));
    EXPECT_TRUE(back.atEnd());
}

TEST(tokenFile, hdfDataSets)
{
    writeShort(TokenFile("a.tok", Form::hdf));
    checkShort({"a.tok.H", ""});
}

TEST(tokenFile, textsArePaddedToEightsWithAZeroAtLeast)
{
    const struct { const char *text; size_t size; } cases[] = {
        {"", 8}, {"a", 8}, {"1234567", 8}, {"12345678", 16}, {"123456789", 16}, {"123456789012345", 16}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        TokenFile file("t", Form::binary);
        const size_t before = 22;                      /* the tag line */
        file.str(c.text);
        file.close();
        const std::string bytes = testRead("t.B");
        EXPECT_EQ(bytes.size(), before + c.size);
        EXPECT_EQ(TokenReader("t.B").str(), c.text);
    }
}

TEST(tokenFile, numbersComeBackAsTheyWere)
{
    const std::vector<int32_t> ints   = {0, 1, -1, INT_MAX, INT_MIN, 1234567};
    const std::vector<double>  reals  = {0, -0.0, 0.1, 1.0 / 3, DBL_MAX, -DBL_MIN, DBL_TRUE_MIN, 1e-300, 12345.6789};
    const std::vector<float>   floats = {0, 0.1f, 1.0f / 3, FLT_MAX, -FLT_MIN, 16777217.0f};
    for (const auto &f : forms) {
        SCOPED_TRACE(f.name);
        DataFiles files("n", f.form);
        TokenFile file = files.make(".tok");
        file.ints(ints.data(), 6);
        file.keyStr("name", "value");
        file.reals(reals.data(), 9);
        file.floats(floats.data(), 6);
        file.keyReal("last", 0.3);
        file.close();
        files.close();

        const Place place = placeOf(f.form, "n", ".tok");
        EXPECT_EQ(kindOf(place.file), f.kind);
        TokenReader back(place);
        EXPECT_EQ(back.ints(1, 6), ints);
        EXPECT_EQ(back.str(), "name");
        EXPECT_EQ(back.str(), "value");
        const std::vector<double> got = back.reals(1, 9);
        EXPECT_EQ(got, reals);
        EXPECT_TRUE(std::signbit(got[1])) << "-0";
        EXPECT_EQ(back.floats(1, 6), floats);
        EXPECT_EQ(back.str(), "last");
        EXPECT_EQ(back.real(), 0.3);
        EXPECT_TRUE(back.atEnd());
    }
}

/* Blocks are an inside matter: a table of several buffers is stored in the same way either way. */
TEST(tokenFile, tablesByRowsAreStoredAsTablesAtOnce)
{
    const int nCols = 3, nRows = 100001;
    std::vector<int32_t> ints(nCols * nRows);
    std::vector<double>  reals(nCols * nRows);
    for (int i = 0; i < nCols * nRows; ++i) {
        ints[i]  = i * 7 - 1000;
        reals[i] = i / 8.0 - 5;
    }
    for (const auto &f : forms) {
        SCOPED_TRACE(f.name);
        DataFiles files("n", f.form);
        TokenFile whole = files.make(".whole"), blocks = files.make(".blocks");
        whole.keyInts("nodes", nCols, nRows, ints.data());
        whole.keyReals("reals", nCols, nRows, reals.data());
        whole.close();

        int64_t expected = 0;
        bool inOrder = true;
        blocks.keyInts("nodes", nCols, nRows, TokenFile::Rows<int32_t>([&](int64_t first, int64_t n, int32_t *values) {
            inOrder = inOrder && first == expected;
            expected = first + n;
            std::copy(ints.begin() + first * nCols, ints.begin() + (first + n) * nCols, values);
        }));
        blocks.keyReals("reals", nCols, nRows, TokenFile::Rows<double>([&](int64_t first, int64_t n, double *values) {
            std::copy(reals.begin() + first * nCols, reals.begin() + (first + n) * nCols, values);
        }));
        blocks.close();
        files.close();
        EXPECT_TRUE(inOrder);
        EXPECT_EQ(expected, nRows);
        const Place one = placeOf(f.form, "n", ".whole"), other = placeOf(f.form, "n", ".blocks");
        if (f.kind != "hdf"s) { EXPECT_TRUE(testRead(one.file) == testRead(other.file)); }
        for (const Place &place : {one, other}) {
            const std::vector<Item> items = readItems(place);
            ASSERT_EQ(keysOf(items), (std::vector<std::string>{"nodes", "reals"}));
            EXPECT_TRUE(items[0].ints == ints);
            EXPECT_TRUE(items[1].reals == reals);
        }
    }
}

TEST(tokenFile, tablesWithoutRowsOrColumnsAreTheirSizes)
{
    for (const auto &f : forms) {
        SCOPED_TRACE(f.name);
        const TokenFile::Rows<double> none = [](int64_t, int64_t, double *) { FAIL() << "rows of an empty table"; };
        DataFiles files("n", f.form);
        TokenFile file = files.make(".e");
        file.keyReals("a", 0, 5, none);
        file.keyReals("b", 3, 0, none);
        file.keyReals("c", 3, 0, nullptr);
        file.ints(nullptr, 0);
        file.close();
        files.close();
        const std::vector<Item> items = readItems(placeOf(f.form, "n", ".e"));
        ASSERT_EQ(keysOf(items), (std::vector<std::string>{"a", "b", "c"}));
        EXPECT_EQ(items[0].nRows, 5);
        EXPECT_EQ(items[1].nCols, 3);
    }
}

TEST(tokenFile, closingTwiceIsOnce)
{
    TokenFile file("c", Form::ascii);
    file.keyInt("n", 1);
    file.close();
    file.close();
    EXPECT_EQ(testRead("c"), "n\n1\n");
}

TEST(tokenFile, aFileThatCannotBeMadeIsToldByName)
{
    for (const auto &f : forms) {
        SCOPED_TRACE(f.name);
        const std::string text = thrownBy([&] { DataFiles("no/such/folder/f", f.form).make(""); });
        const std::string part = "no/such/folder/f"s + f.suffix + " cannot be made";
        EXPECT_NE(text.find(part), std::string::npos) << text;
    }
}

TEST(tokenFile, aFullDiskIsTold)
{
    if (!std::ifstream("/dev/full")) GTEST_SKIP() << "the system has no full device";
    const std::vector<int32_t> many(1000000);
    for (const auto &f : forms) {
        if (f.kind == "hdf"s) continue;                 /* HDF5 makes no files on devices */
        SCOPED_TRACE(f.name);
        std::filesystem::remove("full"s + f.suffix);
        std::filesystem::create_symlink("/dev/full", "full"s + f.suffix);
        {
            TokenFile file("full", f.form);             /* a short file fails when it is closed */
            file.keyInt("n", 1);
            EXPECT_THROW(file.close(), std::runtime_error);
        }
        TokenFile file("full", f.form);                 /* a long one while it is written, or by its end */
        EXPECT_THROW(file.keyInts("n", 1, (int) many.size(), many.data()); file.close(), std::runtime_error);
    }
}

/* ---- the compressor ---- */

/* another search path for programs, for as long as this lives */
class Path {
public:
    explicit Path(const std::string &path) : before(getenv("PATH")) { setenv("PATH", path.c_str(), 1); }
    ~Path() { setenv("PATH", before.c_str(), 1); }

private:
    std::string before;
};

static void fakeCompress(const std::string &script)
{
    std::filesystem::create_directories("fake");
    testWrite("fake/compress", "#!/bin/sh\n" + script + "\n");
    std::filesystem::permissions("fake/compress", std::filesystem::perms::owner_all);
}

TEST(tokenFile, withoutTheCompressorNothingIsWritten)
{
    const Path none("/no/such/folder");
    const std::string text = thrownBy([] { TokenFile("a", Form::compressed); });
    EXPECT_NE(text.find("a.Z cannot be made: compress: "), std::string::npos) << text;
}

TEST(tokenFile, aCompressorThatFailsIsTold)
{
    fakeCompress("cat >/dev/null; exit 3");
    const Path path(testFolder() + "/fake:" + getenv("PATH"));
    TokenFile file("a", Form::compressed);
    file.keyInt("n", 1);
    EXPECT_NE(thrownBy([&] { file.close(); }).find("a.Z cannot be written: compress failed"), std::string::npos);
}

/* Writing to a process that is gone is an error, and not the end of this one. */
TEST(tokenFile, aCompressorThatDiesIsTold)
{
    fakeCompress("exit 0");
    const Path path(testFolder() + "/fake:" + getenv("PATH"));
    const std::vector<int32_t> many(10000000);
    TokenFile file("a", Form::compressed);
    const std::string text = thrownBy([&] { file.keyInts("n", 1, (int) many.size(), many.data()); });
    EXPECT_NE(text.find("a.Z cannot be written: "), std::string::npos) << text;
}

TEST(tokenFile, noShellSeesANameOfACompressedFile)
{
    const std::string name = "a b; touch made; $(touch made) `touch made` 'q\" > c";
    writeShort(TokenFile(name, Form::compressed));
    EXPECT_TRUE(std::filesystem::exists(name + ".Z"));
    EXPECT_FALSE(std::filesystem::exists("made"));
    EXPECT_FALSE(std::filesystem::exists("c"));
    std::filesystem::rename(name + ".Z", "plain.Z");
    checkShort({"plain.Z", ""});
}

TEST(tokenFile, manyCompressedFilesAtATime)
{
    {
        std::vector<std::unique_ptr<TokenFile>> files;
        for (int i = 0; i < 20; ++i)
            files.push_back(std::make_unique<TokenFile>("f" + std::to_string(i), Form::compressed));
        for (auto &file : files) file->keyInt("nNodes", 7);
    }
    for (int i = 0; i < 20; ++i) EXPECT_EQ(readItems("f" + std::to_string(i) + ".Z").at(0).ints[0], 7);
}

/* ---- containers ---- */

TEST(container, membersStandBesideEachOther)
{
    Container box("box");
    writeShort(TokenFile(box, "one.1"));
    {
        TokenFile two(box, "two"), three(box, "three");      /* two at a time */
        two.keyInt("nNodes", 2);
        three.keyInt("nNodes", 3);
        two.keyInt("nElems", 4);
    }
    box.close();
    box.close();
    EXPECT_EQ(membersOf("box.C"), (std::vector<std::string>{"one.1", "three", "two"}));
    checkShort({"box.C", "one.1"});
    EXPECT_EQ(keysOf(readItems(Place{"box.C", "two"})), (std::vector<std::string>{"nNodes", "nElems"}));
    EXPECT_EQ(readItems(Place{"box.C", "three"}).at(0).ints[0], 3);
    EXPECT_TRUE(TokenReader("box.C").atEnd()) << "its own stream is there and empty";
}

TEST(container, aMemberWrittenAnewIsReplaced)
{
    Container box("box");
    writeShort(TokenFile(box, "one"));
    TokenFile(box, "one").keyInt("nNodes", 5);
    box.close();
    EXPECT_EQ(membersOf("box.C"), (std::vector<std::string>{"one"}));
    ASSERT_EQ(readItems(Place{"box.C", "one"}).size(), 1u);
    EXPECT_EQ(readItems(Place{"box.C", "one"})[0].ints[0], 5);
}

TEST(container, membersAreKeptIfWanted)
{
    const struct { bool keep; std::vector<std::string> members; } cases[] = {
        {true, {"one", "two"}}, {true, {"one", "two"}}, {false, {"two"}}};
    TokenFile(*std::make_unique<Container>("box", true), "one").keyInt("nNodes", 1);
    for (const auto &c : cases) {
        Container box("box", c.keep);
        TokenFile(box, "two").keyInt("nNodes", 2);
        box.close();
        EXPECT_EQ(membersOf("box.C"), c.members);
        EXPECT_EQ(readItems(Place{"box.C", "two"}).at(0).ints[0], 2);
    }
}

TEST(container, whatCannotBeIsRefused)
{
    testWrite("text.C", "no container");
    EXPECT_NE(thrownBy([] { Container("text", true); }).find("text.C cannot be opened"), std::string::npos);
    EXPECT_NE(thrownBy([] { TokenFile("f", Form::container); }).find("a member is made in its container"),
              std::string::npos);
    Container box("box");
    for (const std::string &name : {""s, "."s, "a/b"s, "/a"s, "a\0b"s})
        EXPECT_NE(thrownBy([&] { TokenFile(box, name); }).find("box.C takes no member of the name"), std::string::npos);
    box.close();
    EXPECT_NE(thrownBy([&] { TokenFile(box, "late"); }).find("box.C is closed"), std::string::npos);
}

TEST(tokenFile, aTextThatAFormCannotHoldIsRefused)
{
    for (Form form : {Form::ascii, Form::compressed})
        for (const char *text : {"", "two words", "a\nline", "a\"quote"}) {
            TokenFile file("w", form);
            EXPECT_THROW(file.str(text), std::runtime_error) << text;
        }
    for (Form form : {Form::binary, Form::hdf}) {
        TokenFile file("w", form);
        EXPECT_THROW(file.str("zero\0byte"s), std::runtime_error);
        EXPECT_NO_THROW(file.str("two words"));
        EXPECT_NO_THROW(file.str(""));
        file.close();
        TokenReader back("w" + formSuffix(form));
        EXPECT_EQ(back.str(), "two words");
        EXPECT_EQ(back.str(), "");
    }
}
