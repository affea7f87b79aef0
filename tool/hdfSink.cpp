/* hdfSink.cpp: token streams in HDF5.
 *
 * A stream is a group QUENTA_DATA of data sets named 0, 1, 2 and so on, in the order of the stream: a text is a scalar,
 * numbers are a table of (rows, columns), single ones of (1, 1); a table without numbers is not there. A file .H has
 * one such group in its root. A container .C has, beside its own one, which we leave empty, a group FILES, and in it
 * for each member a group of the member's name that holds the member's stream. */

#include <hdf5.h>

#include <filesystem>
#include <stdexcept>
#include <utility>

#include "tool/tokenFile.h"
#include "tool/tokenSink.h"

namespace tool {

namespace {

/* An HDF5 id with the function that closes it. A negative id is a failure, told as the text. */
class Hid {
public:
    using Closer = herr_t (*)(hid_t);

    Hid() = default;
    Hid(hid_t made, Closer how, const std::string &failure) : id(made), closer(how)
    {
        if (id < 0) throw std::runtime_error(failure);
    }
    Hid(Hid &&other) noexcept : id(std::exchange(other.id, -1)), closer(other.closer) {}
    Hid &operator=(Hid &&other) noexcept
    {
        std::swap(id, other.id);
        std::swap(closer, other.closer);
        return *this;
    }
    ~Hid() { close(); }

    operator hid_t() const { return id; }
    bool isOpen() const    { return id >= 0; }
    bool close()           { return id < 0 || closer(std::exchange(id, -1)) >= 0; }

private:
    hid_t  id     = -1;
    Closer closer = nullptr;
};

Hid newFile(const std::string &name)
{
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);      /* no printing: what fails is told by an exception */
    return Hid(H5Fcreate(name.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT), H5Fclose,
               "file " + name + " cannot be made");
}

Hid newGroup(hid_t parent, const std::string &group, const std::string &name)
{
    return Hid(H5Gcreate2(parent, group.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), H5Gclose,
               "file " + name + " cannot be written");
}

const char *const dataGroup  = "QUENTA_DATA";
const char *const filesGroup = "FILES";

hid_t typeOf(Kind kind)
{
    switch (kind) {
        case Kind::integer: return H5T_NATIVE_INT;
        case Kind::real:    return H5T_NATIVE_DOUBLE;
        case Kind::single:  return H5T_NATIVE_FLOAT;
    }
    return -1;
}

class HdfSink : public TokenSink {
public:
    /* file: closed with the stream; none for a member, whose container owns the file */
    HdfSink(const std::string &fileName, Hid file, Hid data)
        : name(fileName), hdfFile(std::move(file)), hdfData(std::move(data)) {}

    void str(const std::string &text) override
    {
        if (text.find('\0') != std::string::npos) throw std::runtime_error("a text holds a zero byte");
        const Hid type = made(H5Tcopy(H5T_C_S1), H5Tclose), space = made(H5Screate(H5S_SCALAR), H5Sclose);
        need(H5Tset_size(type, text.size() + 1));
        Hid set = newSet(type, space);
        need(H5Dwrite(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, text.c_str()));
        need(set.close() ? 0 : -1);
    }

    void begin(Kind kind, int64_t nRows, int64_t nCols) override
    {
        if (nRows <= 0 || nCols <= 0) return;
        const hsize_t dims[2] = {(hsize_t) nRows, (hsize_t) nCols};
        memType    = typeOf(kind);
        width      = dims[1];
        rowsBefore = 0;
        tableSpace = made(H5Screate_simple(2, dims, nullptr), H5Sclose);
        table      = newSet(memType, tableSpace);
    }
    void rows(const void *values, int64_t nRows) override
    {
        if (!table.isOpen() || nRows <= 0) return;
        const hsize_t start[2] = {rowsBefore, 0}, count[2] = {(hsize_t) nRows, width};
        const Hid block = made(H5Screate_simple(2, count, nullptr), H5Sclose);
        need(H5Sselect_hyperslab(tableSpace, H5S_SELECT_SET, start, nullptr, count, nullptr));
        need(H5Dwrite(table, memType, block, tableSpace, H5P_DEFAULT, values));
        rowsBefore += count[0];
    }
    void end() override
    {
        const bool tableClosed = table.close(), spaceClosed = tableSpace.close();
        need(tableClosed && spaceClosed ? 0 : -1);
    }

    void close() override
    {
        const bool dataClosed = hdfData.close(), fileClosed = hdfFile.close();
        need(dataClosed && fileClosed ? 0 : -1);
    }

private:
    std::string name;
    Hid         hdfFile, hdfData;
    int         nDataSets = 0;

    /* the table that is being written */
    Hid     tableSpace, table;
    hid_t   memType = -1;
    hsize_t width = 0, rowsBefore = 0;

    std::string failure() const { return "file " + name + " cannot be written"; }
    void need(herr_t result) const
    {
        if (result < 0) throw std::runtime_error(failure());
    }
    Hid made(hid_t id, Hid::Closer closer) const { return Hid(id, closer, failure()); }
    Hid newSet(hid_t type, hid_t space)
    {
        return made(H5Dcreate2(hdfData, std::to_string(nDataSets++).c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT,
                               H5P_DEFAULT), H5Dclose);
    }
};

}

std::unique_ptr<TokenSink> newHdfSink(const std::string &fileName)
{
    Hid file = newFile(fileName);
    Hid data = newGroup(file, dataGroup, fileName);
    return std::make_unique<HdfSink>(fileName, std::move(file), std::move(data));
}

/* ---- containers ---- */

struct Container::Ids { Hid file, files; };

Container::Container(const std::string &path, bool keepMembers)
    : fileName(path + formRow(Form::container).suffix), ids(std::make_unique<Ids>())
{
    if (keepMembers && std::filesystem::exists(fileName)) {
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
        const std::string failure = "file " + fileName + " cannot be opened";
        ids->file  = Hid(H5Fopen(fileName.c_str(), H5F_ACC_RDWR, H5P_DEFAULT), H5Fclose, failure);
        ids->files = Hid(H5Gopen2(ids->file, filesGroup, H5P_DEFAULT), H5Gclose, failure);
        return;
    }
    ids->file  = newFile(fileName);
    ids->files = newGroup(ids->file, filesGroup, fileName);
    newGroup(ids->file, dataGroup, fileName);
}

Container::~Container() = default;

void Container::close()
{
    if (!ids) return;
    const std::unique_ptr<Ids> closing = std::move(ids);
    const bool filesClosed = closing->files.close(), fileClosed = closing->file.close();
    if (!filesClosed || !fileClosed) throw std::runtime_error("file " + fileName + " cannot be written");
}

std::unique_ptr<TokenSink> Container::newMember(const std::string &member)
{
    if (!ids) throw std::runtime_error("file " + fileName + " is closed");
    if (member.empty() || member == "." || member.find('/') != std::string::npos
        || member.find('\0') != std::string::npos)
        throw std::runtime_error("file " + fileName + " takes no member of the name <" + member + ">");
    const std::string name = fileName + ":" + member;
    const bool isThere = H5Lexists(ids->files, member.c_str(), H5P_DEFAULT) > 0;
    if (isThere && H5Ldelete(ids->files, member.c_str(), H5P_DEFAULT) < 0)
        throw std::runtime_error("file " + name + " cannot be replaced");
    const Hid group = newGroup(ids->files, member, name);
    return std::make_unique<HdfSink>(name, Hid(), newGroup(group, dataGroup, name));
}

}
