/* runConverter.cpp: see runConverter.h.
 *
 * A binary file does not tell which of its bytes are text, integers or reals. Its keys do: every value stands behind
 * one, and the table here knows what each key announces. Tables are copied block by block, so a file of any size passes
 * through a small buffer.
 *
 * In this file: what keys announce, reading the binary form, data files, client information, the run. */

#include "tool/runConverter.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "tool/runModel.h"

namespace fs = std::filesystem;

namespace tool {

namespace {

/* ---- keys ---- */

enum class Announces { text, integer, real, integers, reals };      /* one token, or a table of numbers */

const struct { const char *key; Announces what; } keys[] = {
    /* table files */
    {"nParts",    Announces::integer },
    {"nRows",     Announces::integer },
    {"nCols",     Announces::integer },
    {"type",      Announces::integer },
    {"intVec",    Announces::integers},
    {"realVec",   Announces::reals   },
    /* decomposition, node lists */
    {"nSds",      Announces::integer },
    {"nElems",    Announces::integer },
    {"color",     Announces::integers},
    {"nNodes",    Announces::integer },
    {"usrIds",    Announces::integers},
    {"sdId",      Announces::integer },
    {"nodes",     Announces::integers},
    /* nodal output; its variables are those of the run model */
    {"time",      Announces::real    },
    {"mask",      Announces::integer },
    {"nSpecs",    Announces::integer },
    {"nFilms",    Announces::integer },
    {"nFields",   Announces::integer },
    {"nAoutVecs", Announces::integer },
    {"masks",     Announces::integers},
    /* other families of nodal output */
    {"outIndx",   Announces::integer },
    {"timeInc",   Announces::real    },
    {"flowTimeInc", Announces::real  },
    {"nRafVars",  Announces::integer },
    {"nAtcVars",  Announces::integer },
    {"rafSteps",  Announces::integers},
    {"name",      Announces::text    },
    {"lvsetThk",  Announces::real    },
    {"nDODirs",   Announces::integer },
    /* log of time steps */
    {"tsId",      Announces::integer },
    {"cycleId",   Announces::integer },
    {"eqnName",   Announces::text    },
    {"stgName",   Announces::text    },
    {"lhsUpdFlag", Announces::integer},
    {"resNorm",   Announces::real    },
    {"resRat",    Announces::real    },
    {"solNorm",   Announces::real    },
    {"solRat",    Announces::real    },
    {"nIters",    Announces::integer },
    {"lesRed",    Announces::real    },
    {"cpuTime",   Announces::real    },
    {"elapseTime", Announces::real   },
    {"redoFlag",  Announces::integer },
    {"endRun",    Announces::integer },
};

/* ---- the binary form ---- */

class BinaryFile {
public:
    explicit BinaryFile(const fs::path &path) : name(path.string()), file(path, std::ios::binary)
    {
        std::string magic, version, line;
        int intCode = 0, intSize = 0, realCode = 0, realSize = 0;
        std::getline(file, line);
        std::istringstream tag(line);
        tag >> magic >> version >> intCode >> intSize >> realCode >> realSize;
        const bool little = intCode == 2 && realCode == 6, big = intCode == 1 && realCode == 5;
        if (!file.good() || !tag || magic != "QUENTA" || intSize != 4 || realSize != 8 || !(little || big))
            fail("is not in the binary form");
        bigEndian = big;
        left      = (int64_t) fs::file_size(path) - (int64_t) file.tellg();
    }

    bool atEnd() const { return left == 0; }

    std::string str()
    {
        std::string text;
        for (;;) {
            char block[8];
            bytes(block, 8);
            const size_t n = strnlen(block, 8);
            text.append(block, n);
            if (n < 8) return text;
        }
    }

    template <class T> void nums(T *values, int64_t n)
    {
        bytes(values, n * (int64_t) sizeof(T));
        unsigned char *at = reinterpret_cast<unsigned char *>(values);
        for (int64_t i = 0; i < n; ++i, at += sizeof(T)) values[i] = assembled<T>(at);
    }
    template <class T> T num()
    {
        T value;
        nums(&value, 1);
        return value;
    }

    /* a table's sizes, which the rest of the file must be able to hold */
    void sizes(int32_t *nCols, int32_t *nRows, int64_t valueSize)
    {
        *nCols = num<int32_t>();
        *nRows = num<int32_t>();
        if (*nCols < 0 || *nRows < 0 || (int64_t) *nCols * *nRows > left / valueSize)
            fail("tells a size that cannot be");
    }

    [[noreturn]] void fail(const std::string &what) const { throw std::runtime_error("file " + name + " " + what); }

private:
    void bytes(void *to, int64_t n)
    {
        if (n > left || !file.read(static_cast<char *>(to), n)) fail("ends too early");
        left -= n;
    }

    /* the machine's own order does not matter here */
    template <class T> T assembled(const unsigned char *at) const
    {
        uint64_t bits = 0;
        for (size_t i = 0; i < sizeof(T); ++i) bits |= (uint64_t) at[bigEndian ? sizeof(T) - 1 - i : i] << (8 * i);
        T value;
        if (sizeof(T) == 4) {
            const uint32_t low = (uint32_t) bits;
            std::memcpy(&value, &low, sizeof(T));
        }
        else std::memcpy(&value, &bits, sizeof(T));
        return value;
    }

    std::string   name;
    std::ifstream file;
    int64_t       left = 0;
    bool          bigEndian = false;
};

/* ---- data files ---- */

Announces announcedBy(const std::string &key, const BinaryFile &in)
{
    for (const auto &known : keys)
        if (key == known.key) return known.what;
    for (const OutVarRow &row : outVarRows)
        if (key == row.key) return Announces::reals;
    if (isFamKey(key) || isSetOutKey(key)) return Announces::reals;
    in.fail("holds the key <" + key + ">, of which it is not known what stands behind it");
}

template <class T> TokenFile::Rows<T> rowsOf(BinaryFile &in, int32_t nCols)
{
    return [&in, nCols](int64_t, int64_t n, T *values) { in.nums(values, n * nCols); };
}

void convertFile(const fs::path &from, TokenFile to)
{
    BinaryFile in(from);
    while (!in.atEnd()) {
        const std::string key = in.str();
        int32_t nCols, nRows;
        switch (announcedBy(key, in)) {
            case Announces::text:    to.keyStr(key, in.str()); break;
            case Announces::integer: to.keyInt(key, in.num<int32_t>()); break;
            case Announces::real:    to.keyReal(key, in.num<double>()); break;
            case Announces::integers:
                in.sizes(&nCols, &nRows, sizeof(int32_t));
                to.keyInts(key, nCols, nRows, rowsOf<int32_t>(in, nCols));
                break;
            case Announces::reals:
                in.sizes(&nCols, &nRows, sizeof(double));
                to.keyReals(key, nCols, nRows, rowsOf<double>(in, nCols));
                break;
        }
    }
    to.close();
}

/* ---- client information ---- */

bool beginsWith(const std::string &text, const std::string &head) { return text.compare(0, head.size(), head) == 0; }

/* a file of the run, by its name without folder */
bool isOfRun(const std::string &name, const std::string &run)
{
    return beginsWith(name, run) && name.size() > run.size() && (name[run.size()] == '.' || name[run.size()] == '_');
}

bool isBinary(const std::string &name) { return name.size() > 2 && name.compare(name.size() - 2, 2, ".B") == 0; }

class ClientInfoConverter {
public:
    ClientInfoConverter(const std::string &runName, Form newForm) : run(runName), form(newForm) {}

    std::string convert(std::istream &from)
    {
        std::string text;
        bool ended = false, hasForm = false;
        for (std::string line; std::getline(from, line);) {
            const std::string keyword = keywordOf(line);
            ended   = ended || keyword == "END";
            hasForm = hasForm || (keyword == "FMT" && !ended);
            text += (keyword == "FMT" ? formLine() : keyword.empty() ? line : renamed(line)) + "\n";
        }
        return hasForm ? text : formLine() + "\n" + text;     /* a reader takes a run without the line for binary */
    }

private:
    std::string run;
    Form        form;

    std::string formLine() const { return "#@ FMT " + std::to_string(formOpt(form)); }

    /* "" for a line that does not count */
    static std::string keywordOf(const std::string &line)
    {
        std::string mark, keyword;
        std::istringstream(line) >> mark >> keyword;
        return beginsWith(line, "#@") ? keyword : "";
    }

    /* The line with its data files under their new names. What stands in quotes names sets and the like. */
    std::string renamed(const std::string &line) const
    {
        std::string out;
        for (size_t at = 0, end; at < line.size(); at = end) {
            const char c = line[at];
            if (c == '"') end = std::min(line.find('"', at + 1), line.size() - 1) + 1;
            else if (c == ' ' || c == '\t' || c == '\r') end = at + 1;
            else end = std::min(line.find_first_of("\" \t\r", at), line.size());
            std::string word = line.substr(at, end - at);
            if (isBinary(word) && isOfRun(word.substr(word.rfind('/') + 1), run))
                word.replace(word.size() - 2, 2, formSuffix(form));
            out += word;
        }
        return out;
    }
};

void convertClientInfo(const fs::path &from, const fs::path &to, const std::string &run, Form form)
{
    std::ifstream in(from, std::ios::binary);
    if (!in) throw std::runtime_error("file " + from.string() + " cannot be read");
    std::ofstream out(to, std::ios::binary | std::ios::trunc);
    out << ClientInfoConverter(run, form).convert(in);
    out.close();
    if (!out) throw std::runtime_error("file " + to.string() + " cannot be written");
}

/* ---- the run ---- */

/* the names of the run's data files, sorted */
std::vector<std::string> dataFilesOf(const fs::path &folder, const std::string &run)
{
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (!isOfRun(name, run) || name == run + ".cli" || name == run + ".Log") continue;
        if (!isBinary(name)) throw std::runtime_error("file " + entry.path().string() + " is not in the binary form");
        names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

}

int convertRun(const std::string &log, const std::string &dir, Form form, const std::string &dataDir)
{
    const fs::path from = fs::path(log).parent_path() / dataDir, to = fs::path(dir) / dataDir;
    const std::string run = fs::path(log).stem().string();
    if (fs::path(log).extension() != ".Log" || run.empty())
        throw std::invalid_argument("<" + log + "> is not the name of a log, <problem>.<run>.Log");
    if (fs::exists(to) && fs::equivalent(from, to)) throw std::invalid_argument("<" + dir + "> holds the run itself");

    const std::vector<std::string> names = dataFilesOf(from, run);
    fs::create_directories(to);
    DataFiles files((to / run).string(), form);
    for (const std::string &name : names)
        convertFile(from / name, files.make(name.substr(run.size(), name.size() - run.size() - 2)));
    files.close();
    convertClientInfo(from / (run + ".cli"), to / (run + ".cli"), run, form);
    fs::copy_file(log, fs::path(dir) / (run + ".Log"), fs::copy_options::overwrite_existing);
    return (int) names.size();
}

}
