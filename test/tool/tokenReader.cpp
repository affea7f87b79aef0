/* tokenReader.cpp: see tokenReader.h. Bytes are put together by shifts, so the machine's own order does not matter. */

#include "test/tool/tokenReader.h"

#include <hdf5.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

static std::string fileBytes(const std::string &name)
{
    std::ifstream file(name, std::ios::binary);
    if (!file) throw std::runtime_error("no file " + name);
    std::ostringstream all;
    all << file.rdbuf();
    return all.str();
}

std::string kindOf(const std::string &fileName)
{
    const std::string bytes = fileBytes(fileName);
    if (bytes.compare(0, 4, "\x89HDF") == 0) return "hdf";
    if (bytes.compare(0, 2, "\x1f\x9d") == 0) return "compressed";
    if (bytes.compare(0, 6, "QUENTA") != 0) return "text";

    std::istringstream tag(bytes.substr(0, bytes.find('\n')));
    std::string magic, version;
    int intType, intSize, realType, realSize;
    if (!(tag >> magic >> version >> intType >> intSize >> realType >> realSize) || intSize != 4 || realSize != 8)
        throw std::runtime_error("bad tag in " + fileName);
    if (intType == 2 && realType == 6) return "binary";
    if (intType == 1 && realType == 5) return "swapped";
    throw std::runtime_error("bad type codes in " + fileName);
}

/* ---- text ---- */

class TextSource : public TokenSource {
public:
    TextSource(const std::string &fileName, std::string text) : name(fileName), bytes(std::move(text)) {}

    bool atEnd() override      { return bytes.find_first_not_of(blanks, at) == std::string::npos; }
    std::string str() override { return word(); }
    void ints(int32_t *values, int64_t nRows, int64_t nCols) override
    {
        for (int64_t i = 0; i < nRows * nCols; ++i) {
            const std::string text = word();
            char *end;
            const long long wide = std::strtoll(text.c_str(), &end, 10);
            values[i] = (int32_t) wide;
            if (*end || values[i] != wide) throw std::runtime_error("<" + text + "> is no integer, in " + name);
        }
    }
    void reals (double *values, int64_t nRows, int64_t nCols) override { nums(values, nRows * nCols, std::strtod); }
    void floats(float  *values, int64_t nRows, int64_t nCols) override { nums(values, nRows * nCols, std::strtof); }

private:
    static constexpr const char *blanks = " \t\r\n";
    std::string name, bytes;
    size_t      at = 0;

    std::string word()
    {
        at = bytes.find_first_not_of(blanks, at);
        if (at == std::string::npos) throw std::runtime_error("end of " + name);
        const size_t end = std::min(bytes.find_first_of(blanks, at), bytes.size());
        const std::string found = bytes.substr(at, end - at);
        at = end;
        return found;
    }
    template <class T, class Convert> void nums(T *values, int64_t n, Convert convert)
    {
        for (int64_t i = 0; i < n; ++i) {
            const std::string text = word();
            char *end;
            values[i] = convert(text.c_str(), &end);
            if (*end) throw std::runtime_error("<" + text + "> is no real, in " + name);
        }
    }
};

static std::string unpacked(const std::string &fileName)
{
    if (fileName.find('\'') != std::string::npos) throw std::runtime_error("the shell would not see " + fileName);
    FILE *pipe = popen(("zcat '" + fileName + "'").c_str(), "r");
    if (!pipe) throw std::runtime_error("no zcat");
    std::string text;
    char block[4096];
    for (size_t n; (n = fread(block, 1, sizeof block, pipe)) > 0;) text.append(block, n);
    if (pclose(pipe) != 0) throw std::runtime_error("zcat cannot read " + fileName);
    return text;
}

/* ---- binary ---- */

class BinarySource : public TokenSource {
public:
    BinarySource(const std::string &fileName, bool bigEndian)
        : name(fileName), bytes(fileBytes(fileName)), at(bytes.find('\n') + 1), big(bigEndian) {}

    bool atEnd() override { return at >= bytes.size(); }
    std::string str() override
    {
        std::string found;
        for (;;) {
            if (at + 8 > bytes.size()) throw std::runtime_error("end of " + name);
            const std::string block = bytes.substr(at, 8);
            at += 8;
            const size_t zero = block.find('\0');
            found += block.substr(0, zero);
            if (zero != std::string::npos) return found;
        }
    }
    void ints  (int32_t *values, int64_t nRows, int64_t nCols) override { nums<uint32_t>(values, nRows * nCols); }
    void reals (double  *values, int64_t nRows, int64_t nCols) override { nums<uint64_t>(values, nRows * nCols); }
    void floats(float   *values, int64_t nRows, int64_t nCols) override { nums<uint32_t>(values, nRows * nCols); }

private:
    std::string name, bytes;
    size_t      at;
    bool        big;

    template <class Word> void nums(void *values, int64_t n)
    {
        const size_t size = sizeof(Word);
        if (at + size * n > bytes.size()) throw std::runtime_error("end of " + name);
        for (int64_t k = 0; k < n; ++k, at += size) {
            Word bits = 0;
            for (size_t i = 0; i < size; ++i)
                bits |= (Word) (unsigned char) bytes[at + (big ? size - 1 - i : i)] << (8 * i);
            std::memcpy((char *) values + k * size, &bits, size);
        }
    }
};

/* ---- HDF5 ---- */

struct Hid {
    hid_t id;
    herr_t (*closer)(hid_t);
    Hid(hid_t made, herr_t (*how)(hid_t), const std::string &what) : id(made), closer(how)
    {
        if (id < 0) throw std::runtime_error("no " + what);
    }
    ~Hid() { closer(id); }
    Hid(const Hid &) = delete;
    operator hid_t() const { return id; }
};

class HdfSource : public TokenSource {
public:
    explicit HdfSource(const Place &place)
        : name(place.file + " " + place.member),
          file(H5Fopen(place.file.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose, name),
          data(H5Gopen2(file, place.member.empty() ? "/QUENTA_DATA"
                                                   : ("/FILES/" + place.member + "/QUENTA_DATA").c_str(), H5P_DEFAULT),
               H5Gclose, "data in " + name)
    {
        H5G_info_t info;
        if (H5Gget_info(data, &info) < 0) throw std::runtime_error("no count in " + name);
        count = (int) info.nlinks;
    }

    bool atEnd() override { return next == count; }
    std::string str() override
    {
        const Hid set = nextSet();
        const Hid type(H5Dget_type(set), H5Tclose, "type"), space(H5Dget_space(set), H5Sclose, "space");
        if (H5Tget_class(type) != H5T_STRING || H5Tis_variable_str(type) > 0
            || H5Sget_simple_extent_type(space) != H5S_SCALAR)
            throw std::runtime_error("no text in " + name);
        std::string text(H5Tget_size(type), 'x');
        read(set, type, &text[0]);
        if (text.find('\0') != text.size() - 1) throw std::runtime_error("no zero at the end of a text in " + name);
        text.pop_back();
        return text;
    }
    void ints  (int32_t *v, int64_t nRows, int64_t nCols) override { nums(v, nRows, nCols, H5T_NATIVE_INT); }
    void reals (double  *v, int64_t nRows, int64_t nCols) override { nums(v, nRows, nCols, H5T_NATIVE_DOUBLE); }
    void floats(float   *v, int64_t nRows, int64_t nCols) override { nums(v, nRows, nCols, H5T_NATIVE_FLOAT); }

private:
    std::string name;
    Hid         file, data;
    int         next = 0, count;

    Hid nextSet()
    {
        const std::string number = std::to_string(next++);
        return Hid(H5Dopen2(data, number.c_str(), H5P_DEFAULT), H5Dclose, "data set " + number + " in " + name);
    }
    void read(hid_t set, hid_t type, void *to) const
    {
        if (H5Dread(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, to) < 0) throw std::runtime_error("no data in " + name);
    }
    /* a table of just this type and shape; one without numbers is not there */
    void nums(void *values, int64_t nRows, int64_t nCols, hid_t wanted)
    {
        if (nRows * nCols == 0) return;
        const Hid set = nextSet();
        const Hid type(H5Dget_type(set), H5Tclose, "type"), space(H5Dget_space(set), H5Sclose, "space");
        hsize_t dims[2] = {0, 0};
        if (H5Sget_simple_extent_ndims(space) != 2 || H5Sget_simple_extent_dims(space, dims, nullptr) != 2
            || (int64_t) dims[0] != nRows || (int64_t) dims[1] != nCols || H5Tequal(type, wanted) <= 0)
            throw std::runtime_error("another table than expected in " + name);
        read(set, wanted, values);
    }
};

std::vector<std::string> membersOf(const std::string &container)
{
    const Hid file(H5Fopen(container.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose, container);
    const Hid files(H5Gopen2(file, "/FILES", H5P_DEFAULT), H5Gclose, "files in " + container);
    std::vector<std::string> names;
    const auto note = [](hid_t, const char *name, const H5L_info_t *, void *list) {
        static_cast<std::vector<std::string> *>(list)->push_back(name);
        return (herr_t) 0;
    };
    if (H5Literate(files, H5_INDEX_NAME, H5_ITER_INC, nullptr, note, &names) < 0)
        throw std::runtime_error("no names in " + container);
    return names;
}

bool exists(const Place &place)
{
    if (!std::ifstream(place.file)) return false;
    if (place.member.empty()) return true;
    const std::vector<std::string> members = membersOf(place.file);
    return std::find(members.begin(), members.end(), place.member) != members.end();
}

/* ---- any of them ---- */

TokenReader::TokenReader(const Place &place)
{
    const std::string kind = kindOf(place.file);
    if (kind == "text")            source = std::make_unique<TextSource>(place.file, fileBytes(place.file));
    else if (kind == "compressed") source = std::make_unique<TextSource>(place.file, unpacked(place.file));
    else if (kind == "hdf")        source = std::make_unique<HdfSource>(place);
    else                           source = std::make_unique<BinarySource>(place.file, kind == "swapped");
}

std::vector<int32_t> TokenReader::ints(int64_t nRows, int64_t nCols)
{
    std::vector<int32_t> values(nRows * nCols);
    source->ints(values.data(), nRows, nCols);
    return values;
}

std::vector<double> TokenReader::reals(int64_t nRows, int64_t nCols)
{
    std::vector<double> values(nRows * nCols);
    source->reals(values.data(), nRows, nCols);
    return values;
}

std::vector<float> TokenReader::floats(int64_t nRows, int64_t nCols)
{
    std::vector<float> values(nRows * nCols);
    source->floats(values.data(), nRows, nCols);
    return values;
}

std::vector<Item> readItems(const std::string &fileName) { return readItems(Place{fileName, ""}); }

std::vector<Item> readItems(const Place &place)
{
    static const std::set<std::string> integers = {
        "nParts", "nRows", "nCols", "type", "nSds", "nElems", "nNodes", "sdId", "mask", "nSpecs", "nFilms", "nFields",
        "nAoutVecs", "outIndx", "nRafVars", "nAtcVars", "nDODirs", "tsId", "cycleId", "lhsUpdFlag", "nIters",
        "redoFlag", "endRun"};
    static const std::set<std::string> intTables = {"intVec", "color", "usrIds", "nodes", "masks", "rafSteps"};
    static const std::set<std::string> reals = {
        "time", "timeInc", "flowTimeInc", "lvsetThk", "resNorm", "resRat", "solNorm", "solRat", "lesRed", "cpuTime",
        "elapseTime"};
    static const std::set<std::string> texts = {"name", "eqnName", "stgName"};

    TokenReader file(place);
    std::vector<Item> items;
    while (!file.atEnd()) {
        Item item;
        item.key = file.str();
        if (item.key.empty() || std::strchr("0123456789+-.", item.key[0]))
            throw std::runtime_error("<" + item.key + "> where a key should be, in " + place.file);
        if (integers.count(item.key)) item.ints.push_back(file.integer());
        else if (reals.count(item.key)) item.reals.push_back(file.real());
        else if (texts.count(item.key)) item.text = file.str();
        else {
            item.nCols = file.integer();
            item.nRows = file.integer();
            if (item.nCols < 0 || item.nRows < 0 || (int64_t) item.nCols * item.nRows > 10000000)
                throw std::runtime_error("bad size in " + place.file);
            if (intTables.count(item.key)) item.ints = file.ints(item.nRows, item.nCols);
            else item.reals = file.reals(item.nRows, item.nCols);
        }
        items.push_back(item);
    }
    return items;
}

bool operator==(const Item &a, const Item &b)
{
    return a.key == b.key && a.nCols == b.nCols && a.nRows == b.nRows && a.ints == b.ints && a.reals == b.reals
        && a.text == b.text;
}

std::vector<std::string> keysOf(const std::vector<Item> &items)
{
    std::vector<std::string> keys;
    for (const Item &item : items) keys.push_back(item.key);
    return keys;
}
