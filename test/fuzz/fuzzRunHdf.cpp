/* fuzzRunHdf.cpp: a run in a container of which any data sets and members were changed; it is asked for everything.
 *
 * The data: a byte for what is asked (see fuzzOpenAndSweep), and changes of a byte for the kind, one for the member,
 * one for the number of the data set, a byte n, and n bytes of a value, a name, or extents. HDF5 itself makes them.
 * Where an update follows, the container is whole again, and the answers are those of a run that never was another. */

#include <hdf5.h>

#include "test/fuzz/fuzzSweep.h"
#include "test/fuzz/smallRuns.h"

enum { MOST_CHANGES = 8, MOST_BYTES = 1 << 14 };

static std::string repeated(FuzzBytes bytes, size_t n)
{
    std::string all(n, 0);
    for (size_t i = 0; i < n && bytes.left() > 0; ++i) all[i] = (char) bytes.at[i % bytes.left()];
    return all;
}

/* Other values of the same kind and number. */
static void setValues(hid_t stream, const char *number, FuzzBytes bytes)
{
    const hid_t set = H5Dopen2(stream, number, 0);
    const hid_t type = H5Dget_type(set), space = H5Dget_space(set);
    const hssize_t n = H5Sget_simple_extent_npoints(space);
    if (set >= 0 && n * (hssize_t) H5Tget_size(type) <= MOST_BYTES && H5Tis_variable_str(type) <= 0)
        H5Dwrite(set, type, 0, 0, 0, repeated(bytes, MOST_BYTES).data());
    H5Sclose(space);
    H5Tclose(type);
    H5Dclose(set);
}

static void putSet(hid_t stream, const char *number, hid_t type, hid_t space, const void *values)
{
    H5Ldelete(stream, number, 0);
    const hid_t set = H5Dcreate2(stream, number, type, space, 0, 0, 0);
    H5Dwrite(set, type, 0, 0, 0, values);
    H5Dclose(set);
    H5Sclose(space);
    H5Tclose(type);
}

/* Integers or reals in the extents that the first two bytes tell. */
static void putNumbers(hid_t stream, const char *number, FuzzBytes bytes)
{
    const uint8_t how = bytes.next();
    const hsize_t dims[] = { 1u + how % 16, 1u + bytes.next() % 16 };
    putSet(stream, number, H5Tcopy(how & 64 ? H5T_NATIVE_DOUBLE : H5T_NATIVE_INT),
           how & 128 ? H5Screate(H5S_SCALAR) : H5Screate_simple(2, dims, nullptr), repeated(bytes, MOST_BYTES).data());
}

static void putText(hid_t stream, const char *number, FuzzBytes bytes)
{
    const hid_t type = H5Tcopy(H5T_C_S1);
    H5Tset_size(type, bytes.left() + 1);
    putSet(stream, number, type, H5Screate(H5S_SCALAR), repeated(bytes, bytes.left()).c_str());
}

/* One change; what HDF5 refuses is none. */
static void change(hid_t files, FuzzBytes *bytes)
{
    const uint8_t kind = bytes->next(), which = bytes->next();
    const std::string number = std::to_string(bytes->next());
    const FuzzBytes rest = bytes->take(bytes->next());
    const std::string other = repeated(rest, rest.left());
    H5G_info_t info;
    char member[256] = "";
    if (H5Gget_info(files, &info) < 0 || info.nlinks == 0) return;
    H5Lget_name_by_idx(files, ".", H5_INDEX_NAME, H5_ITER_INC, which % info.nlinks, member, sizeof member, 0);
    const hid_t stream = H5Gopen2(files, (std::string(member) + "/QUENTA_DATA").c_str(), 0);
    switch (kind % 6) {
    case 0: setValues(stream, number.c_str(), rest); break;
    case 1: H5Ldelete(stream, number.c_str(), 0); break;
    case 2: putNumbers(stream, number.c_str(), rest); break;
    case 3: putText(stream, number.c_str(), rest); break;
    case 4: H5Lmove(files, member, files, other.c_str(), 0, 0); break;
    case 5: H5Lcreate_hard(files, member, files, other.c_str(), 0, 0); break;
    }
    if (stream >= 0) H5Gclose(stream);
}

static std::string good;

static void repair() { fuzzWrite("p.1.C", good); }

/* Of the answers in a part of the keys; of the good container. */
static uint64_t goodSum(int part)
{
    static uint64_t sums[FUZZ_PARTS];
    if (!sums[part]) sums[part] = fuzzOpenAndSweep((uint8_t) (FUZZ_UPDATE + 16 * part));
    return sums[part];
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (fuzzStart()) {
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
        writeSmallRun(".", tool::Form::container, false, true);
        good = smallBytes("p.1.C");
        fuzzFirst = 1;
    }
    FuzzBytes bytes{ data, data + size };
    const uint8_t how = bytes.next();
    repair();
    const hid_t file = H5Fopen("p.1.C", H5F_ACC_RDWR, 0), files = H5Gopen2(file, "FILES", 0);
    for (int i = 0; i < MOST_CHANGES && bytes.left() > 0; ++i) change(files, &bytes);
    H5Gclose(files);
    if (H5Fclose(file) < 0) abort();
    const uint64_t sum = fuzzOpenAndSweep(how, repair);
    if (sum != 0) fuzzCheck(sum == goodSum(how / 16 % FUZZ_PARTS));
    return 0;
}
