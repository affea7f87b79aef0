/* testIopHdf.cpp: streams of tokens in HDF5 files. */

#include <dlfcn.h>
#include <sys/stat.h>

#include <climits>
#include <cstring>
#include <initializer_list>

#include "test/iop/hdfStream.h"

struct iopHdf : HdfTest {};

/* HDF5 itself loses a few bytes over damaged files; asked by the leak sanitizer, if there is one. */
extern "C" SYS_EXPORT const char *__lsan_default_suppressions() { return "leak:libhdf5\n"; }

/* ---- calls of HDF5 that fail when told to ---- */

const char *hdfFailing;
int         hdfGoesWell;

static bool failsNow(const char *call)
{
    return hdfFailing && strcmp(call, hdfFailing) == 0 && hdfGoesWell-- <= 0;
}

/* Stands before the library's own. */
#define CALL(type, name, params, args)                                                  \
    extern "C" type name params                                                         \
    {                                                                                   \
        static const auto real = reinterpret_cast<type (*) params>(dlsym(RTLD_NEXT, #name)); \
        return failsNow(#name) ? -1 : real args;                                        \
    }
CALL(herr_t, H5open, (void), ())
CALL(hid_t, H5Pcreate, (hid_t cls), (cls))
CALL(herr_t, H5Pset_fclose_degree, (hid_t id, H5F_close_degree_t degree), (id, degree))
CALL(hid_t, H5Gopen2, (hid_t id, const char *name, hid_t access), (id, name, access))
CALL(hid_t, H5Gcreate2, (hid_t id, const char *name, hid_t link, hid_t create, hid_t access),
     (id, name, link, create, access))
CALL(herr_t, H5Gget_info, (hid_t id, H5G_info_t *info), (id, info))
CALL(hid_t, H5Dget_type, (hid_t id), (id))
CALL(hid_t, H5Dget_space, (hid_t id), (id))
CALL(hid_t, H5Tcopy, (hid_t id), (id))
CALL(hid_t, H5Screate_simple, (int rank, const hsize_t *dims, const hsize_t *max), (rank, dims, max))
CALL(herr_t, H5Sselect_hyperslab, (hid_t id, H5S_seloper_t op, const hsize_t *start, const hsize_t *stride,
     const hsize_t *count, const hsize_t *block), (id, op, start, stride, count, block))
CALL(herr_t, H5Dread, (hid_t id, hid_t type, hid_t memory, hid_t file, hid_t transfer, void *values),
     (id, type, memory, file, transfer, values))
CALL(herr_t, H5Dwrite, (hid_t id, hid_t type, hid_t memory, hid_t file, hid_t transfer, const void *values),
     (id, type, memory, file, transfer, values))
CALL(herr_t, H5Fflush, (hid_t id, H5F_scope_t scope), (id, scope))
CALL(ssize_t, H5Lget_name_by_idx, (hid_t id, const char *group, H5_index_t index, H5_iter_order_t order, hsize_t n,
     char *name, size_t size, hid_t access), (id, group, index, order, n, name, size, access))

/* ---- tokens ---- */

TEST_F(iopHdf, stream)
{
    Stream("a.H").s("name").s("duct").s("nNodes").i({ 7 }).s("time").r({ 0.125 }, { 1, 1 })
        .table("cnn", 2, 3).i({ 1, 2, 3, 4, 5, 6 }, { 3, 2 }).table("crd", 3, 1).r({ 0.1, 0.2, 0.3 }, { 1, 3 })
        .table("none", 4, 0).table("skipped", 2, 2).r({ 1, 2, 3, 4 }, { 2, 2 }).s("end");
    iopHd *hd = openHdf("a.H");
    char text[SYS_TEXT];
    int n = 0, m = -1, cnn[6];
    double time = 0, crd[3];
    iopGetKeyStr(hd, "name", text);
    iopGetOptKeyInt(hd, "nFilms", &m);
    iopGetKeyInt(hd, "nNodes", &n);
    iopGetKeyReal(hd, "time", &time);
    iopGetKeyInts(hd, "cnn", 2, 3, cnn);
    iopGetKeyReals(hd, "crd", 3, 1, crd);
    iopGetKeyReals(hd, "none", 4, 0, nullptr);              /* nothing to read: no data set is taken */
    iopSkipRealsIf(hd, "absent");
    iopSkipReals(hd, "skipped");
    iopCheckStr(hd, "end");
    EXPECT_STREQ(text, "duct");
    EXPECT_EQ(n, 7);
    EXPECT_EQ(m, -1);
    EXPECT_EQ(time, 0.125);
    EXPECT_EQ(Ints(cnn, cnn + 6), (Ints{ 1, 2, 3, 4, 5, 6 }));
    EXPECT_EQ(Reals(crd, crd + 3), (Reals{ 0.1, 0.2, 0.3 }));
    EXPECT_EQ(iopGetIfStr(hd, text), 0);
    checkFails("Unable to open data set for <22>; in hdf file <a> token <32> near <end>", iopGetStrF(hd, text));
    checkFails("Unable to open data set for <", iopGetIntF(hd, &n, 1));
    checkFails("Unable to open data set for <", iopGetRealF(hd, &time, 1));
    iopRewind(hd);
    iopGetKeyStr(hd, "name", text);
    EXPECT_STREQ(text, "duct");
    checkFails("data out of order: expected <time> found <nNodes> in hdf file <a> token <3> near <nNodes>",
               iopCheckStr(hd, "time"));
    iopCloseFile(hd);
}

TEST_F(iopHdf, failuresNameTheOperation)
{
    Stream("all.C", "wall").table("v", 1, 2);
    iopHd *all = openHdf("all.C"), *hd = iopOpenHdfFile(all, "wall", IOP_READ);
    char text[SYS_TEXT];
    int i[2] = { 0, 1 };
    double r[2];
    iopGetIntDsp(hd, 9);
    iopGetIntDsp(hd, 9);
    iopGetIntDsp(hd, 9);
    checkFails("in Function <iopGetStrF>", iopGetStrF(hd, text));
    checkFails("in Function <iopGetIntF>", iopGetIntF(hd, i, 2));
    checkFails("in Function <iopGetRealF>", iopGetRealF(hd, r, 1));
    checkFails("in Function <iopGetBinInts>", iopGetBinInts(hd, i, 1));
    checkFails("in Function <iopSetLoc>", iopSetLoc(hd, 7));
    for (const auto scatter : { iopGetRealsIndexed, iopAddRealsIndexed }) {
        iopRewind(hd);
        const char *function = scatter == iopGetRealsIndexed ? "iopGetRealsIndexed" : "iopAddRealsIndexed";
        checkFails("in Function <" + std::string(function) + ">", scatter(hd, "v", 1, 2, i, r));
    }
    iopRewind(hd);
    checkFails("in Function <iopReadSubReals>", iopReadSubReals(hd, "v", 1, 2, 0, 1, r));
    checkFails("in Function <iopGetNHdfFiles>", iopGetNHdfFiles(hd));
    checkFails("in Function <iopGetHdfFileName>", iopGetHdfFileName(all, text, 1));
    checkFails("in Function <iopOpenHdfFile>", iopOpenHdfFile(all, "none", IOP_READ));
    checkFails("in Function <iopOpenHdfFile>", iopOpenHdfFile(hd, "none", IOP_READ));
    checkFails("in Function <iopOpenFile>", openHdf("none.H"));
    iopCloseFile(hd);
    iopCloseFile(all);
    hd = openHdf("a.H", IOP_WRITE);
    iopPutIntF(hd, i, 1, 1, 0);
    iopRewind(hd);
    checkFails("in Function <iopPutIntF>", iopPutIntF(hd, i, 1, 1, 0));
    checkFails("in Function <iopPutBinInts>", iopPutBinInts(hd, i, 1));
    iopCloseFile(hd);
}

TEST_F(iopHdf, locations)
{
    Stream("a.H").s("a").s("b").i({ 1 }).s("c");
    iopHd *hd = openHdf("a.H");
    char text[SYS_TEXT];
    int n;
    iopGetStrF(hd, text);
    iopGetStrF(hd, text);
    iopGetIntF(hd, &n, 1);
    EXPECT_EQ(iopGetLoc(hd), 3 << 12 | 0x58d);
    iopSetLoc(hd, 1 << 12 | 0x58d);
    iopGetStrF(hd, text);
    EXPECT_STREQ(text, "b");
    for (int64_t loc : { (int64_t) 0, (int64_t) 3 << 12, (int64_t) -1, INT64_MIN | 0x58d, (int64_t) 1 << 43 | 0x58d })
        checkFails("Invalid location <" + std::to_string(loc) + ">; in hdf file <a> token <4> near <b>",
                   iopSetLoc(hd, loc));
    iopSetLoc(hd, (int64_t) INT_MAX << 12 | 0x58d);
    checkFails("Unable to open data set for <2147483647>; ", iopGetIntF(hd, &n, 1));
    checkFails("Unable to open data set for <2147483647>; ", iopGetIntF(hd, &n, 1));
    iopCloseFile(hd);
}

TEST_F(iopHdf, nothingIsReadForACountOfZero)
{
    Stream("a.H").s("a").i({ 1, 2 }, { 2 }).r({ 3 });
    iopHd *hd = openHdf("a.H");
    iopGetIntF(hd, nullptr, 0);
    iopGetRealF(hd, nullptr, 0);
    iopGetIntDsp(hd, 0);
    iopCheckStr(hd, "a");
    iopGetIntDsp(hd, 2);
    double r = 0;
    iopGetBinReals(hd, &r, 1);
    EXPECT_EQ(r, 3);
    iopCloseFile(hd);
}

/* ---- strings ---- */

TEST_F(iopHdf, kindsOfStrings)
{
    const std::string longest(SYS_TEXT - 1, 'x');
    Stream("a.H").s("zero").s("room", 64).s("none", 4).s("blanks", 9, H5T_STR_SPACEPAD).s("nulls", 9, H5T_STR_NULLPAD)
        .variable("variable").variable("").variable("one", { 1 }).s("row", 0, H5T_STR_NULLTERM, { 1, 1 })
        .s(longest).s(longest, longest.size(), H5T_STR_NULLPAD).variable(longest.c_str()).s("end");
    const char *all[] = { "zero", "room", "none", "blanks", "nulls", "variable", "", "one", "row", longest.c_str(),
                          longest.c_str(), longest.c_str(), "end" };
    char text[SYS_TEXT];
    iopHd *hd = openHdf("a.H");
    for (const char *wanted : all) {
        iopGetStrF(hd, text);
        EXPECT_STREQ(text, wanted);
    }
    iopRewind(hd);
    for (const char *wanted : all) {
        EXPECT_EQ(iopGetIfStr(hd, text), 1);
        EXPECT_STREQ(text, wanted);
    }
    iopCloseFile(hd);
}

TEST_F(iopHdf, stringsOfVariableLengthInFilesOfAllKinds)
{
    static const struct { hsize_t userBlock; size_t address, size; } rows[] = { { 0, 8, 8 }, { 512, 8, 8 }, { 0, 4, 4 },
                                                                                { 1024, 4, 8 }, { 0, 8, 2 } };
    char text[SYS_TEXT];
    for (const auto &row : rows) {
        const hid_t how = H5Pcreate(H5P_FILE_CREATE);
        H5Pset_userblock(how, row.userBlock);
        H5Pset_sizes(how, row.address, row.size);
        Stream *all = new Stream("a.H", how);
        H5Pclose(how);
        for (int i = 0; i < 300; ++i) all->variable(std::string((size_t) (i * 7 % 211), (char) ('a' + i % 26)).c_str());
        delete all;
        iopHd *hd = openHdf("a.H");
        for (int i = 0; i < 300; ++i) {
            iopGetStrF(hd, text);
            EXPECT_EQ(text, std::string((size_t) (i * 7 % 211), (char) ('a' + i % 26)));
        }
        iopCloseFile(hd);
    }
}

/* Each damage is put where the mark stands in the file. */
TEST_F(iopHdf, damagedStringsOfVariableLength)
{
    Stream("good.H").variable("the string");
    const std::string good = testRead("good.H");
    const size_t heap = good.find("GCOL"), object = heap + 16;
    ASSERT_EQ(good.substr(object + 16, 10), "the string");
    const std::string place("\x0a\0\0\0", 4);
    const size_t element = good.find(place + std::string((const char *) &heap, 8));
    ASSERT_NE(element, std::string::npos);
    static const char ones[9] = "\xff\xff\xff\xff\xff\xff\xff\xff";
    const struct { size_t where, size; const char *bytes, *text; } rows[] = {
        { heap,        1, "X",     "Unable to read data set for <0>; "  },
        { object,      2, "\0\0",  "Unable to read data set for <0>; "  },      /* the end of the heap      */
        { object,      2, "\7\0",  "Unable to read data set for <0>; "  },      /* another's index          */
        { object + 8,  1, "\1",    "Unable to read data set for <0>; "  },      /* smaller than told        */
        { element + 0, 1, "\x7f",  "Unable to read data set for <0>; "  },      /* longer than it is        */
        { element + 0, 4, ones,    "string too big <8192>"              },
        { element + 4, 8, ones,    "Unable to read data set for <0>; "  },      /* heaps that are not there */
        { element + 4, 1, "\0",    "Unable to read data set for <0>; "  },
        { element + 12, 4, ones,   "Unable to read data set for <0>; "  },
    };
    char text[SYS_TEXT];
    for (const auto &row : rows) {
        std::string bad = good;
        bad.replace(row.where, row.size, std::string(row.bytes, row.size));
        testWrite("bad.H", bad);
        iopHd *hd = openHdf("bad.H");
        checkFails(row.text, iopGetStrF(hd, text));
        iopCloseFile(hd);
    }
    std::string bad = good;
    bad.replace(object, 2, std::string("\7\0", 2));                             /* sizes that lead nowhere  */
    bad.replace(object + 8, 8, ones, 8);
    testWrite("bad.H", bad);
    iopHd *hd = openHdf("bad.H");
    checkFails("Unable to read data set for <0>; ", iopGetStrF(hd, text));
    iopCloseFile(hd);

    const hid_t how = H5Pcreate(H5P_DATASET_CREATE);                            /* not in a place of its own */
    H5Pset_layout(how, H5D_COMPACT);
    Stream("a.H").variable("inside", {}, how);
    H5Pclose(how);
    hd = openHdf("a.H");
    checkFails("Unable to read data set for <0>; ", iopGetStrF(hd, text));
    iopCloseFile(hd);
}

TEST_F(iopHdf, badStrings)
{
    const std::string tooLong(SYS_TEXT, 'x');
    Stream("a.H").s(tooLong, tooLong.size(), H5T_STR_NULLPAD).s(tooLong).variable(tooLong.c_str()).i({ 1 }).r({ 1 })
        .s("ab", 1, H5T_STR_NULLPAD, { 2 }).s("", 1, H5T_STR_NULLPAD, { 0 });
    static const struct { int number; const char *text; } rows[] = {
        { 0, "string too big <8192>"                                                },
        { 1, "string too big <8192>"                                                },
        { 2, "string too big <8192>"                                                },
        { 3, "Inconsistent data <0> vs. <3> for <3>; in hdf file <a> token <0> near <__NONE__>" },
        { 4, "Inconsistent data <1> vs. <3> for <4>; in hdf file <a> token <0> near <__NONE__>" },
        { 5, "Inconsistent size <2> vs. <1> for <5>; in hdf file <a> token <0> near <__NONE__>" },
        { 6, "Inconsistent size <0> vs. <1> for <6>; in hdf file <a> token <0> near <__NONE__>" },
    };
    char text[SYS_TEXT];
    iopHd *hd = openHdf("a.H");
    for (const auto &row : rows) {
        const int64_t loc = row.number << 12 | 0x58d;
        iopSetLoc(hd, loc);
        checkFails(row.text, iopGetStrF(hd, text));
        iopSetLoc(hd, loc);
        checkFails(row.text, iopGetIfStr(hd, text));        /* what is there is not the end of the data */
    }
    iopCloseFile(hd);
}

TEST_F(iopHdf, hasNoLines)
{
    Stream("a.H").s("a");
    char text[8];
    iopHd *hd = openHdf("a.H");
    checkFails("incompatible mode for file <a>", iopGetLine(hd, text, 8));
    iopCloseFile(hd);
    hd = openHdf("b.H", IOP_WRITE);
    checkFails("incompatible mode for file <b>", iopPrintLine(hd, "%d", 1));
    iopCloseFile(hd);
}

/* ---- numbers ---- */

TEST_F(iopHdf, integersOfAllWidths)
{
    const hid_t types[] = { H5T_STD_I8BE, H5T_STD_U8LE, H5T_STD_I16LE, H5T_STD_U16BE, H5T_STD_I32LE, H5T_STD_I32BE,
                            H5T_STD_U32LE, H5T_STD_I64LE, H5T_STD_I64BE, H5T_STD_U64BE };
    Stream *all = new Stream("a.H");
    for (hid_t type : types) all->i({ 0, 7, 127 }, { 3 }, type);
    delete all;
    iopHd *hd = openHdf("a.H");
    for (size_t k = 0; k < sizeof types / sizeof types[0]; ++k) {
        Ints v(3);
        iopGetIntF(hd, v.data(), 3);
        EXPECT_EQ(v, (Ints{ 0, 7, 127 })) << k;
    }
    iopCloseFile(hd);
}

TEST_F(iopHdf, integersAtTheirLimits)
{
    const int64_t good[] = { INT_MAX, INT_MIN };
    const int64_t high[] = { 0, INT_MAX + INT64_C(1) }, low[] = { INT_MIN - INT64_C(1), 0 };
    const uint64_t huge[] = { 1, UINT64_MAX };
    const unsigned positive[] = { INT_MAX, 0 }, top[] = { 0, INT_MAX + 1u };
    Stream("a.H").put({ 2 }, H5T_STD_I64LE, H5T_NATIVE_INT64, good).put({ 2 }, H5T_STD_U32LE, H5T_NATIVE_UINT, positive)
        .put({ 2 }, H5T_STD_I64LE, H5T_NATIVE_INT64, high).put({ 2 }, H5T_STD_I64BE, H5T_NATIVE_INT64, low)
        .put({ 2 }, H5T_STD_U64LE, H5T_NATIVE_UINT64, huge).put({ 2 }, H5T_STD_U32BE, H5T_NATIVE_UINT, top);
    iopHd *hd = openHdf("a.H");
    int v[2];
    iopGetIntF(hd, v, 2);
    EXPECT_EQ(v[0], INT_MAX);
    EXPECT_EQ(v[1], INT_MIN);
    iopGetIntF(hd, v, 2);
    EXPECT_EQ(v[0], INT_MAX);
    for (int k = 2; k < 6; ++k)
        checkFails("value out of range in data set <" + std::to_string(k) + ">; in hdf file <a> token <4> near ",
                   iopGetIntF(hd, v, 2));
    iopCloseFile(hd);
}

TEST_F(iopHdf, realsOfOtherTypes)
{
    const long double tooBig = 1e300L * 1e300L;
    Stream("a.H").r({ 0.5, -2 }, { 2 }, H5T_IEEE_F32BE).r({ 0.1, 3 }, { 1, 2, 1 }, H5T_IEEE_F64BE)
        .i({ 1, -2 }, { 2 }).i({ 1, -2 }, { 2 }, H5T_STD_I64BE).r({ 0.5, 3 }, { 2 }, H5T_NATIVE_LDOUBLE)
        .put({}, H5T_NATIVE_LDOUBLE, H5T_NATIVE_LDOUBLE, &tooBig).s("text");
    static const Reals all[] = { { 0.5, -2 }, { 0.1, 3 }, { 1, -2 }, { 1, -2 }, { 0.5, 3 } };
    iopHd *hd = openHdf("a.H");
    Reals v(2);
    for (const Reals &wanted : all) {
        iopGetRealF(hd, v.data(), 2);
        EXPECT_EQ(v, wanted);
    }
    checkFails("value out of range in data set <5>; ", iopGetRealF(hd, v.data(), 1));
    checkFails("Unable to read data set for <6>; ", iopGetRealF(hd, v.data(), 1));
    iopCloseFile(hd);
}

TEST_F(iopHdf, numbersOfManyBytesAreNone)
{
    const hid_t type = H5Tcopy(H5T_NATIVE_INT);
    H5Tset_size(type, 64);
    Stream("a.H").i({ 1 }, { 1 }, type).i({ 1 }, { 1 }, type);
    H5Tclose(type);
    int i;
    double r;
    iopHd *hd = openHdf("a.H");
    checkFails("Unable to read data set for <0>; ", iopGetIntF(hd, &i, 1));
    checkFails("Unable to read data set for <1>; ", iopGetRealF(hd, &r, 1));
    iopCloseFile(hd);
}

TEST_F(iopHdf, integersMustBeIntegers)
{
    Stream("a.H").r({ 1 }).s("1");
    iopHd *hd = openHdf("a.H");
    int v;
    checkFails("Inconsistent data <1> vs. <0> for <0>; in hdf file <a> token <0> near <__NONE__>",
               iopGetIntF(hd, &v, 1));
    checkFails("Inconsistent data <3> vs. <0> for <1>; in hdf file <a> token <0> near <__NONE__>",
               iopGetBinInts(hd, &v, 1));
    iopCloseFile(hd);
}

TEST_F(iopHdf, floatsAreNotRead)
{
    Stream("a.H").r({ 1 }, { 1 }, H5T_NATIVE_FLOAT).s("next");
    iopHd *hd = openHdf("a.H");
    float v;
    checkFails("Unable to read data set for <0>; in hdf file <a> token <0> near <__NONE__>", iopGetFloatF(hd, &v, 1));
    iopRewind(hd);
    iopGetFloatDsp(hd, 1);
    iopCheckStr(hd, "next");
    iopCloseFile(hd);
}

/* ---- hostile files ---- */

TEST_F(iopHdf, sizesAreComparedBeforeTheRead)
{
    const hsize_t half = (hsize_t) 1 << 32;
    Stream("a.H").i({ 1, 2, 3 }, { 3 }).r({ 1, 2, 3, 4 }, { 2, 2 }).r({ 1 })
        .put({ half, half, 1 }, H5T_NATIVE_DOUBLE, 0, nullptr).put({ half, half, 3 }, H5T_NATIVE_INT, 0, nullptr);
    int i[4];
    double r[4];
    iopHd *hd = openHdf("a.H");
    checkFails("Inconsistent size <3> vs. <2> for <0>; in hdf file <a> token <0> near <__NONE__>",
               iopGetIntF(hd, i, 2));
    checkFails("Inconsistent size <4> vs. <3> for <1>; ", iopGetRealF(hd, r, 3));
    checkFails("Inconsistent size <1> vs. <4> for <2>; ", iopGetRealF(hd, r, 4));
    iopSetLoc(hd, 3 << 12 | 0x58d);
    checkFails("Inconsistent size <9223372036854775807> vs. <1> for <3>; ", iopGetRealF(hd, r, 1));
    checkFails("Inconsistent size <9223372036854775807> vs. <1> for <4>; ", iopGetIntF(hd, i, 1));
    iopCloseFile(hd);
}

/* A property list for data sets in chunks of so many rows, packed or not. */
static hid_t chunks(std::initializer_list<hsize_t> size, bool packed)
{
    const hid_t how = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_chunk(how, (int) size.size(), size.begin());
    if (packed) H5Pset_deflate(how, 6);
    return how;
}

TEST_F(iopHdf, valuesThatNobodyWroteAreNotRead)
{
    const hid_t plain = chunks({ 1000 }, false), packed = chunks({ 1000 }, true);
    Stream("a.H").put({ 3 }, H5T_NATIVE_INT, 0, nullptr).put({ 4000000 }, H5T_NATIVE_DOUBLE, 0, nullptr)
        .put({ 4000000 }, H5T_NATIVE_DOUBLE, 0, nullptr, plain).put({ 4000000 }, H5T_NATIVE_DOUBLE, 0, nullptr, packed);
    H5Pclose(plain);
    H5Pclose(packed);
    int i[3];
    Reals r(4000000);
    iopHd *hd = openHdf("a.H");
    checkFails("Unable to read data set for <0>; in hdf file <a> token <0> near <__NONE__>", iopGetIntF(hd, i, 3));
    for (const char *text : { "data set for <1>; ", "data set for <2>; ", "data set for <3>; " })
        checkFails(text, iopGetRealF(hd, r.data(), 4000000));
    iopCloseFile(hd);
}

TEST_F(iopHdf, aFileCannotHoldMoreThanItsSizeAllows)
{
    waits = 4;
    Stream("a.H").table("huge", 2000000, 1000).s("end");
    const int64_t room = iopFileSize("a.H") * 1032;
    iopHd *hd = openHdf("a.H");
    iopNeed(hd, room / 8, 'r');
    checkFails("EOF in hdf file <a> token <0> near <__NONE__>", iopNeed(hd, room / 8 + 1, 'r'));
    checkFails("EOF in hdf file <a> token <3> near <huge>", iopSkipReals(hd, "huge"));
    iopCloseFile(hd);
}

TEST_F(iopHdf, noOtherFileIsOpened)
{
    {
        Stream other("other.H");
        other.s("secret").i({ 4711 }, { 1 });
    }
    testWrite("other.raw", "\1\2\3\4");
    {
        Stream all("a.H");
        H5Lcreate_external("other.H", "/QUENTA_DATA/0", all.group, "0", 0, 0);
        H5Lcreate_external("other.H", "/QUENTA_DATA/1", all.group, "1", 0, 0);
        H5Lcreate_external("other.H", "/", all.group, "ext", 0, 0);
        H5Lcreate_soft("ext/QUENTA_DATA/1", all.group, "2", 0, 0);
        const hid_t outside = H5Pcreate(H5P_DATASET_CREATE), made = H5Pcreate(H5P_DATASET_CREATE);
        const hsize_t one = 1;
        const hid_t space = H5Screate_simple(1, &one, nullptr);
        H5Pset_external(outside, "other.raw", 0, 4);
        H5Pset_virtual(made, space, "other.H", "/QUENTA_DATA/1", space);
        all.next = 3;
        all.put({ 1 }, H5T_NATIVE_INT, 0, nullptr, outside).put({ 1 }, H5T_NATIVE_INT, 0, nullptr, made);
        H5Sclose(space);
        H5Pclose(outside);
        H5Pclose(made);
        H5Gclose(Stream::make(all.group, "5"));
    }
    char text[SYS_TEXT];
    int v;
    iopHd *hd = openHdf("a.H");
    checkFails("Unable to open data set for <0>; in hdf file <a> token <0> near <__NONE__>", iopGetIfStr(hd, text));
    iopSetLoc(hd, 0x58d);
    checkFails("Unable to open data set for <0>; ", iopGetStrF(hd, text));
    for (const char *number : { "<1>; ", "<2>; ", "<3>; ", "<4>; ", "<5>; " })
        checkFails(std::string("Unable to open data set for ") + number, iopGetIntF(hd, &v, 1));
    iopCloseFile(hd);

    const hid_t file = H5Fcreate("b.H", H5F_ACC_TRUNC, 0, 0);
    H5Lcreate_external("other.H", "/QUENTA_DATA", file, "QUENTA_DATA", 0, 0);
    H5Fclose(file);
    checkFails("Unable to access data node in file b.H", openHdf("b.H"));
}

/* Opens and reads whatever comes; the texts and values do not matter, ending in order does. */
static void readAll(const char *name)
{
    static char text[SYS_TEXT];
    static int ints[6];
    static double reals[6];
    const std::string failure = trapped([&] { iopCloseFile(openHdf(name)); });
    if (failure != "") return;
    iopHd *hd = openHdf(name);
    trapped([&] { iopGetIfStr(hd, text); });
    trapped([&] { iopGetIntF(hd, ints, 6); });
    trapped([&] { iopGetRealF(hd, reals, 6); });
    trapped([&] { iopGetStrF(hd, text); });
    trapped([&] { iopGetRealF(hd, reals, 6); });
    iopCloseFile(hd);
}

TEST_F(iopHdf, damagedFiles)
{
    const hid_t packed = chunks({ 2, 3 }, true);
    Stream("good.H").s("key").i({ 1, 2, 3, 4, 5, 6 }, { 2, 3 }).r({ 1, 2, 3, 4, 5, 6 }, { 6 }).variable("more")
        .r({ 1, 2, 3, 4, 5, 6 }, { 2, 3 }, H5T_NATIVE_DOUBLE, packed);
    H5Pclose(packed);
    const std::string good = testRead("good.H");
    for (size_t size = 0; size < good.size(); size += 97) {
        testWrite("cut.H", good.substr(0, size));                           /* cut off */
        checkFails("Unable to open HDF5 file cut.H", openHdf("cut.H"));
        std::string lost = good.substr(0, size);
        lost.resize(good.size(), '\0');
        testWrite("lost.H", lost);                                          /* the end came as zeros */
        readAll("lost.H");
    }
}

TEST_F(iopHdf, chunksBeyondTheExtentsAreRefused)
{
    const hid_t packed = chunks({ 2, 3 }, true);
    Stream("good.H").r({ 1, 2, 3, 4, 5, 6 }, { 2, 3 }, H5T_NATIVE_DOUBLE, packed);
    H5Pclose(packed);
    std::string bad = testRead("good.H");
    const size_t chunk = bad.find(std::string("\2\0\0\0\3\0\0\0\10\0\0\0", 12));      /* and the size of a value */
    ASSERT_NE(chunk, std::string::npos);
    bad[chunk + 5] = '\xff';
    testWrite("bad.H", bad);
    double r[6];
    iopHd *hd = openHdf("bad.H");
    checkFails("Unable to read data set for <0>; ", iopGetRealF(hd, r, 6));
    iopCloseFile(hd);
    hd = openHdf("good.H");
    iopGetRealF(hd, r, 6);
    EXPECT_EQ(r[5], 6);
    iopCloseFile(hd);
}

TEST_F(iopHdf, noHdfFiles)
{
    mkdir("dir.H", 0777);
    mkfifo("pipe.H", 0666);
    testWrite("text.H", "QUENTA 1.0 2 4 6 8\n");
    testWrite("empty.H", "");
    for (const char *name : { "dir.H", "pipe.H", "text.H", "empty.H", "none.H" })
        checkFails(std::string("Unable to open HDF5 file ") + name, openHdf(name));
    EXPECT_EQ(iopCheckFile("text", IOP_HDF), 1);
    EXPECT_EQ(iopCheckFile("none", IOP_HDF), 0);
    EXPECT_EQ(iopCheckFile("pipe", IOP_HDF), 0);
}
