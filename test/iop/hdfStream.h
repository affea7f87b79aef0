#ifndef TEST_IOP_HDFSTREAM_H
#define TEST_IOP_HDFSTREAM_H

/* hdfStream.h: HDF5 files for the tests of the file layer, written with HDF5's own interface; calls of HDF5 that fail
 * when told to; and a test that sees ids that were left open. */

#include <hdf5.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "iop/iopInt.h"
#include "test/testUtil.h"

typedef std::vector<hsize_t> Dims;
typedef std::vector<int>     Ints;
typedef std::vector<double>  Reals;

/* ---- calls that fail (testIopHdf.cpp) ---- */

extern const char *hdfFailing;              /* the call that fails; null: none                 */
extern int         hdfGoesWell;             /* so many of these calls still go their usual way */

/* The expression must fail with this text when the call does, after it went well so many times. */
#define checkCall(call, times, text, ...)                                               \
    do {                                                                                \
        hdfFailing = call;                                                              \
        hdfGoesWell = times;                                                            \
        checkFails(text, __VA_ARGS__);                                                  \
        hdfFailing = nullptr;                                                           \
    } while (0)

/* ---- ids ---- */

/* Files, groups, data sets and types that HDF5 has open. It counts neither data spaces nor lists of properties. */
static inline int64_t openIds() { return H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_ALL); }

struct HdfTest : testing::Test {
    int64_t before;
    HdfTest()
    {
        H5open();
        H5Eset_auto2(0, nullptr, nullptr);
        before = openIds();
    }
    ~HdfTest() override
    {
        hdfFailing = nullptr;
        EXPECT_EQ(openIds(), before) << "ids were left open";
        EXPECT_EQ(testSlept(), waits);
    }
    int waits = 0;
};

/* ---- files ---- */

/* A stream being written: Stream("a.H").s("nNodes").i({ 7 }); member of a container: Stream("a.C", "wall"). */
struct Stream {
    hid_t file, root = -1, group;
    int   next = 0;

    explicit Stream(const char *name, hid_t how = 0)
        : file(H5Fcreate(name, H5F_ACC_TRUNC, how, 0)), group(make(file, "QUENTA_DATA")) {}
    Stream(const char *name, const char *member)
    {
        const bool there = access(name, F_OK) == 0;
        file = there ? H5Fopen(name, H5F_ACC_RDWR, 0) : H5Fcreate(name, H5F_ACC_TRUNC, 0, 0);
        if (!there) H5Gclose(make(file, "QUENTA_DATA"));
        const hid_t files = there ? H5Gopen2(file, "FILES", 0) : make(file, "FILES");
        root = make(files, member);
        group = make(root, "QUENTA_DATA");
        H5Gclose(files);
    }
    Stream(const Stream &) = delete;
    ~Stream()
    {
        H5Gclose(group);
        if (root >= 0) H5Gclose(root);
        H5Fclose(file);
    }
    static hid_t make(hid_t where, const char *name) { return H5Gcreate2(where, name, 0, 0, 0); }

    /* Values of a type, stored as another; null values: nothing is written. */
    Stream &put(const Dims &dims, hid_t stored, hid_t type, const void *values, hid_t how = 0)
    {
        const hid_t space = dims.empty() ? H5Screate(H5S_SCALAR) : H5Screate_simple((int) dims.size(), dims.data(), 0);
        const std::string number = std::to_string(next++);
        const hid_t set = H5Dcreate2(group, number.c_str(), stored, space, 0, how, 0);
        EXPECT_GE(set, 0);
        EXPECT_GE(values ? H5Dwrite(set, type, 0, 0, 0, values) : 0, 0);
        H5Dclose(set);
        H5Sclose(space);
        return *this;
    }
    Stream &i(const Ints &v, const Dims &dims = {}, hid_t stored = H5T_NATIVE_INT)
    {
        return put(dims, stored, H5T_NATIVE_INT, v.data());
    }
    Stream &r(const Reals &v, const Dims &dims = {}, hid_t stored = H5T_NATIVE_DOUBLE, hid_t how = 0)
    {
        return put(dims, stored, H5T_NATIVE_DOUBLE, v.data(), how);
    }
    /* A string of fixed size; 0: of a size that leaves room for a final zero. */
    Stream &s(const std::string &v, size_t size = 0, H5T_str_t pad = H5T_STR_NULLTERM, const Dims &dims = {})
    {
        const hid_t type = H5Tcopy(H5T_C_S1);
        std::string bytes = v;
        if (size == 0) size = v.size() + 1;
        bytes.resize(size, pad == H5T_STR_SPACEPAD ? ' ' : '\0');
        H5Tset_size(type, size);
        H5Tset_strpad(type, pad);
        put(dims, type, type, bytes.data());
        H5Tclose(type);
        return *this;
    }
    Stream &variable(const char *v, const Dims &dims = {}, hid_t how = 0)
    {
        const hid_t type = H5Tcopy(H5T_C_S1);
        H5Tset_size(type, H5T_VARIABLE);
        put(dims, type, type, &v, how);
        H5Tclose(type);
        return *this;
    }
    Stream &table(const char *key, int nCols, int nRows) { return s(key).i({ nCols }).i({ nRows }, { 1, 1 }); }
};

static inline iopHd *openHdf(const char *name, int opt = IOP_READ)
{
    return iopOpenFile(name, iopGetFileOpt(name) | opt);
}

#endif
