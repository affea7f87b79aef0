/* tokenReader.cpp: see tokenReader.h. Bytes are put together by shifts, so the machine's own order does not matter. */

#include "test/tool/tokenReader.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

TokenReader::TokenReader(const std::string &fileName) : name(fileName)
{
    std::ifstream file(fileName, std::ios::binary);
    if (!file) throw std::runtime_error("no file " + fileName);
    std::ostringstream all;
    all << file.rdbuf();
    bytes = all.str();
    if (bytes.compare(0, 6, "QUENTA") != 0) return;

    binary = true;
    at = bytes.find('\n');
    if (at == std::string::npos) throw std::runtime_error("no end of the tag in " + name);
    std::istringstream tag(bytes.substr(0, at++));
    std::string magic, version;
    int intType, intSize, realType, realSize;
    if (!(tag >> magic >> version >> intType >> intSize >> realType >> realSize) || intSize != 4 || realSize != 8)
        throw std::runtime_error("bad tag in " + name);
    if (!(intType == 2 && realType == 6) && !(intType == 1 && realType == 5))
        throw std::runtime_error("bad type codes in " + name);
    big = intType == 1;
}

std::string TokenReader::word()
{
    const char *blanks = " \t\r\n";
    at = bytes.find_first_not_of(blanks, at);
    if (at == std::string::npos) throw std::runtime_error("end of " + name);
    const size_t end = std::min(bytes.find_first_of(blanks, at), bytes.size());
    const std::string found = bytes.substr(at, end - at);
    at = end;
    return found;
}

bool TokenReader::atEnd()
{
    return binary ? at >= bytes.size() : bytes.find_first_not_of(" \t\r\n", at) == std::string::npos;
}

std::string TokenReader::str()
{
    if (!binary) return word();
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

void TokenReader::number(void *value, size_t size)
{
    if (at + size > bytes.size()) throw std::runtime_error("end of " + name);
    uint64_t bits = 0;
    for (size_t i = 0; i < size; ++i) {
        const uint64_t byte = (unsigned char) bytes[at + (big ? size - 1 - i : i)];
        bits |= byte << (8 * i);
    }
    at += size;
    const uint32_t low = (uint32_t) bits;
    if (size == 4) std::memcpy(value, &low, 4);
    else std::memcpy(value, &bits, 8);
}

int32_t TokenReader::integer()
{
    int32_t value;
    if (binary) number(&value, 4);
    else {
        const std::string text = word();
        char *end;
        const long long wide = std::strtoll(text.c_str(), &end, 10);
        value = (int32_t) wide;
        if (*end || value != wide) throw std::runtime_error("<" + text + "> is no integer, in " + name);
    }
    return value;
}

double TokenReader::real()
{
    double value;
    if (binary) number(&value, 8);
    else {
        const std::string text = word();
        char *end;
        value = std::strtod(text.c_str(), &end);
        if (*end) throw std::runtime_error("<" + text + "> is no real, in " + name);
    }
    return value;
}

float TokenReader::single()
{
    float value;
    if (binary) number(&value, 4);
    else value = std::strtof(word().c_str(), nullptr);
    return value;
}

std::vector<Item> readItems(const std::string &fileName)
{
    static const std::set<std::string> integers = {
        "nParts", "nRows", "nCols", "type", "nSds", "nElems", "nNodes", "sdId", "mask", "nSpecs", "nFilms", "nFields",
        "nAoutVecs"};
    static const std::set<std::string> intTables = {"intVec", "color", "usrIds", "nodes", "masks"};

    TokenReader file(fileName);
    std::vector<Item> items;
    while (!file.atEnd()) {
        Item item;
        item.key = file.str();
        if (item.key.empty() || std::strchr("0123456789+-.", item.key[0]))
            throw std::runtime_error("<" + item.key + "> where a key should be, in " + fileName);
        if (integers.count(item.key)) item.ints.push_back(file.integer());
        else if (item.key == "time") item.reals.push_back(file.real());
        else {
            item.nCols = file.integer();
            item.nRows = file.integer();
            const int64_t n = (int64_t) item.nCols * item.nRows;
            if (item.nCols < 0 || item.nRows < 0 || n > 10000000) throw std::runtime_error("bad size in " + fileName);
            for (int64_t i = 0; i < n; ++i) {
                if (intTables.count(item.key)) item.ints.push_back(file.integer());
                else item.reals.push_back(file.real());
            }
        }
        items.push_back(item);
    }
    return items;
}

std::vector<std::string> keysOf(const std::vector<Item> &items)
{
    std::vector<std::string> keys;
    for (const Item &item : items) keys.push_back(item.key);
    return keys;
}
