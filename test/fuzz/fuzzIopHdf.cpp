/* fuzzIopHdf.cpp: any groups and data sets as an HDF5 file or a container of files, read by any sequence of calls.
 *
 * The data: a byte for the kind of file and the member that is opened, a script (see fuzzCalls.h), and a list of what
 * stands in the file: each entry a byte for what it is, one for how it is stored, and what that takes. The file is
 * made by HDF5 itself, so that it is whole in HDF5's terms, whatever stands in it. After each reading no id may be left
 * open but those of the handles. */

#include <hdf5.h>

#include <algorithm>
#include <vector>

#include "test/fuzz/fuzzCalls.h"

enum { MOST_ENTRIES = 48, MOST_VALUES = 64, LONG_STRING = SYS_TEXT + 8 };

static const char *const members[] = { "p.crd", "wall", "12" };

static int64_t openIds() { return H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_ALL); }

/* ---- the file ---- */

/* A file in the making: the stream that entries go to, and the number of its next data set. What HDF5 refuses is not
   there. All ids go with the file. */
struct Writer {
    hid_t file, group;
    int   next = 0;
    FuzzBytes bytes;

    explicit Writer(const char *name, FuzzBytes rest) : bytes(rest)
    {
        const hid_t access = H5Pcreate(H5P_FILE_ACCESS);
        H5Pset_fclose_degree(access, H5F_CLOSE_STRONG);
        file = H5Fcreate(name, H5F_ACC_TRUNC, H5P_DEFAULT, access);
        H5Pclose(access);
        if (file < 0) abort();
        group = H5Gcreate2(file, "QUENTA_DATA", 0, 0, 0);
    }
    ~Writer()
    {
        if (H5Fclose(file) < 0) abort();
    }
    Writer(const Writer &) = delete;

    /* What follows belongs to this member, from its start. */
    void goToMember(const char *name)
    {
        const bool there = H5Lexists(file, "FILES", 0) > 0;
        const hid_t files = there ? H5Gopen2(file, "FILES", 0) : H5Gcreate2(file, "FILES", 0, 0, 0);
        const hid_t member = H5Gcreate2(files, name, 0, 0, 0), data = H5Gcreate2(member, "QUENTA_DATA", 0, 0, 0);
        if (data >= 0) group = data, next = 0;
    }

    hid_t numberType()
    {
        const hid_t types[] = { H5T_STD_I8LE,   H5T_STD_I16BE,   H5T_STD_I32LE,   H5T_STD_I32BE,
                                H5T_STD_U32LE,  H5T_STD_I64LE,   H5T_STD_U64BE,   H5T_STD_U8LE,
                                H5T_IEEE_F32LE, H5T_IEEE_F32BE,  H5T_IEEE_F64LE,  H5T_IEEE_F64BE,
                                H5T_NATIVE_INT, H5T_NATIVE_INT,  H5T_NATIVE_DOUBLE, H5T_NATIVE_LDOUBLE };
        return H5Tcopy(types[bytes.next() % 16]);
    }

    hid_t stringType(bool variable)
    {
        const uint8_t how = bytes.next();
        const hid_t type = H5Tcopy(H5T_C_S1);
        H5Tset_size(type, variable ? H5T_VARIABLE : how % 8 == 7 ? LONG_STRING : 1 + how / 4 % 16);
        H5Tset_strpad(type, how % 4 == 0 ? H5T_STR_NULLPAD : how % 4 == 1 ? H5T_STR_SPACEPAD : H5T_STR_NULLTERM);
        return type;
    }

    hid_t otherType()
    {
        switch (bytes.next() % 6) {
        case 0:  return H5Tcreate(H5T_OPAQUE, 4);
        case 1:  return H5Tvlen_create(H5T_NATIVE_INT);
        case 2:  return H5Tenum_create(H5T_NATIVE_INT);
        case 3:  return H5Tcopy(H5T_STD_B32LE);
        case 4:  { const hsize_t two = 2; return H5Tarray_create2(H5T_NATIVE_INT, 1, &two); }
        default: {
            const hid_t type = H5Tcreate(H5T_COMPOUND, 4);
            H5Tinsert(type, "a", 0, H5T_NATIVE_INT);
            return type;
        }
        }
    }

    /* Extents of at most so many values; a scalar and none at all, too. */
    hid_t space(int rank, bool grows)
    {
        if (rank == 0) return H5Screate(bytes.next() % 8 ? H5S_SCALAR : H5S_NULL);
        hsize_t dims[4], most[4], n = 1;
        for (int d = 0; d < rank; ++d) {
            dims[d] = bytes.next() % 17;
            if (n * dims[d] > MOST_VALUES) dims[d] = 1;
            n *= dims[d];
            most[d] = grows ? H5S_UNLIMITED : dims[d];
        }
        return H5Screate_simple(rank, dims, most);
    }

    hid_t storage(uint8_t how, int rank)
    {
        const hid_t plist = H5Pcreate(H5P_DATASET_CREATE);
        const hsize_t chunk[] = { 1u + how / 8 % 4, 2, 3, 1 };
        if (how % 8 >= 3 && rank > 0) H5Pset_chunk(plist, rank, chunk);
        switch (how % 8) {
        case 1: H5Pset_layout(plist, H5D_COMPACT); break;
        case 2: H5Pset_external(plist, "elsewhere", 0, H5F_UNLIMITED); break;
        case 4: H5Pset_deflate(plist, 6); break;
        case 5: H5Pset_shuffle(plist); H5Pset_deflate(plist, 1); H5Pset_fletcher32(plist); break;
        case 6: H5Pset_alloc_time(plist, H5D_ALLOC_TIME_EARLY); break;
        }
        return plist;
    }

    /* The next data set, with values from the data as the bytes that are stored; rank at most 4. */
    void put(hid_t type, uint8_t how, int rank, const void *values)
    {
        const hid_t where = space(rank, how % 8 >= 3 && how & 64), plist = storage(how, rank);
        const std::string name = std::to_string(next);
        const hid_t set = H5Dcreate2(group, name.c_str(), type, where, 0, plist, 0);
        if (set >= 0) ++next;
        if (!(how & 128) && values) H5Dwrite(set, type, 0, 0, 0, values);
        H5Dclose(set);
        H5Sclose(where);
        H5Pclose(plist);
        H5Tclose(type);
    }

    /* As many bytes of the data as such values may take. */
    const void *values(hid_t type)
    {
        static uint8_t buffer[LONG_STRING * MOST_VALUES];
        const size_t n = std::min(H5Tget_size(type) * MOST_VALUES, sizeof buffer);
        const FuzzBytes some = bytes.take(bytes.next());
        memset(buffer, 0, n);
        for (size_t i = 0; i < n && some.left() > 0; ++i) buffer[i] = some.at[i % some.left()];
        return buffer;
    }

    void variable(uint8_t how)
    {
        const FuzzBytes some = bytes.take(bytes.next());
        std::string text(some.at, some.end);
        if (how & 16 && !text.empty()) while (text.size() < LONG_STRING) text += text;
        const std::vector<const char *> texts(MOST_VALUES, text.c_str());
        /* HDF5 would take what another data set has put into the external file for strings to be removed */
        if (how % 8 == 2) how |= 128;
        put(stringType(true), how, how & 32 ? 1 : 0, texts.data());
    }

    void one(hid_t type, const void *value)
    {
        const hsize_t dims[] = { 1, 1 };
        const hid_t where = H5Screate_simple(2, dims, nullptr);
        const hid_t set = H5Dcreate2(group, std::to_string(next++).c_str(), type, where, 0, 0, 0);
        H5Dwrite(set, type, 0, 0, 0, value);
        H5Dclose(set);
        H5Sclose(where);
    }

    /* A key and the head of a table, as readers want them. */
    void key(uint8_t how)
    {
        static const char keys[][4] = { "n", "key", "vel" };
        const int n1 = how / 4 % FUZZ_COLS, n2 = how / 16 % FUZZ_ROWS;
        const hid_t type = H5Tcopy(H5T_C_S1);
        H5Tset_size(type, 4);
        one(type, keys[how % 3]);
        H5Tclose(type);
        if (how & 3) one(H5T_NATIVE_INT, &n1), one(H5T_NATIVE_INT, &n2);
    }

    void link(uint8_t how)
    {
        const std::string name = std::to_string(next++);
        switch (how % 5) {
        case 0: H5Lcreate_soft(std::to_string(how / 5).c_str(), group, name.c_str(), 0, 0); break;
        case 1: H5Lcreate_external("other.H", "/QUENTA_DATA/0", group, name.c_str(), 0, 0); break;
        case 2: H5Lcreate_hard(group, std::to_string(how / 5).c_str(), group, name.c_str(), 0, 0); break;
        case 3: H5Gclose(H5Gcreate2(group, name.c_str(), 0, 0, 0)); break;
        case 4: {
            const hid_t type = H5Tcopy(H5T_NATIVE_INT);
            H5Tcommit2(group, name.c_str(), type, 0, 0, 0);
            H5Tclose(type);
            break;
        }
        }
    }

    /* Numbers that are views of another file's. */
    void virtualSet(uint8_t how)
    {
        const hsize_t n = 1u + how % 16;
        const hid_t where = H5Screate_simple(1, &n, nullptr), plist = H5Pcreate(H5P_DATASET_CREATE);
        H5Pset_virtual(plist, where, how & 16 ? "." : "other.H", how & 32 ? "/QUENTA_DATA/0" : "0", where);
        H5Dclose(H5Dcreate2(group, std::to_string(next++).c_str(), H5T_NATIVE_INT, where, 0, plist, 0));
        H5Pclose(plist);
        H5Sclose(where);
    }

    void entry()
    {
        const uint8_t what = bytes.next(), how = bytes.next();
        hid_t type;
        switch (what % 9) {
        case 0: case 1: type = numberType(); put(type, how, what / 9 % 5, values(type)); break;
        case 2: type = stringType(false); put(type, how, what / 9 % 3, values(type)); break;
        case 3: variable(how); break;
        case 4: key(how); break;
        case 5: type = otherType();
                put(type, how, what / 9 % 3, H5Tget_class(type) == H5T_VLEN ? nullptr : values(type));
                break;
        case 6: link(how); break;
        case 7: virtualSet(how); break;
        case 8: if (what / 9 % 2) next += how % 3; else goToMember(members[how % 3]); break;
        }
    }
};

static void write(const char *name, FuzzBytes rest)
{
    remove("elsewhere");                    /* of the file before */
    Writer writer(name, rest);
    for (int i = 0; i < MOST_ENTRIES && writer.bytes.left() > 0; ++i) writer.entry();
}

/* ---- the reading ---- */

/* Reads the container's list, and opens a member of it. */
static bool openMember(iopHd *container, int which, iopHd **member)
{
    static char name[SYS_TEXT];
    static int  n;
    n = 0;
    fuzzTrapped([&] { n = iopGetNHdfFiles(container); });
    for (int i = -1; i <= n; ++i)
        if (fuzzTrapped([&] { iopGetHdfFileName(container, name, i); }))
            fuzzCheck(strlen(name) < SYS_TEXT && i >= 0 && i < n);
    return fuzzTrapped([&] { *member = iopOpenHdfFile(container, members[which % 3], IOP_READ | IOP_HDF); });
}

static void readFile(int opt, int which, FuzzBytes script)
{
    static FuzzCaller caller;
    static iopHd *fh;
    if (!fuzzTrapped([&] { fh = iopOpenFile("t", opt | IOP_READ); })) return;
    caller.fh = fh;
    if (opt & IOP_HDF_CONTAINER && !openMember(fh, which, &caller.fh)) caller.fh = fh;
    caller.run(script);
    if (caller.fh != fh) fuzzCheck(fuzzTrapped([] { iopCloseFile(caller.fh); }));
    fuzzCheck(fuzzTrapped([] { iopCloseFile(fh); }));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (fuzzStart()) {
        static const uint8_t one[] = { 0, 0, 12, 4, 1, 0, 0, 0, 1 };
        H5open();
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
        write("other.H", { one, one + sizeof one });
    }
    FuzzBytes bytes{ data, data + size };
    const uint8_t how = bytes.next();
    const bool contains = how & 1;
    const FuzzBytes script = fuzzScript(&bytes);
    write(contains ? "t.C" : "t.H", bytes);
    const int64_t before = openIds();
    readFile(contains ? IOP_HDF_CONTAINER : IOP_HDF, how / 2, script);
    fuzzCheck(openIds() == before);
    return 0;
}
