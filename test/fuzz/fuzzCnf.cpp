/* fuzzCnf.cpp: any bytes as a list of configuration files, as the first of them, and as a command line.
 *
 * The data: a byte n, n bytes of the list, a byte m, m bytes of the command line, a word up to each zero, and the file.
 * Of a text option the value is also found by a second reading of the file, which knows no expressions. Tables of
 * options are never released, so that this target needs a fresh process now and then. */

#include <cmath>
#include <vector>

#include "base/cnf.h"
#include "test/fuzz/fuzzUtil.h"

static const char *const options[] = {
    "flag:flag:f:0:bool:-:flag",
    "count:count:c:7:int:-:count",
    "size:size:s:1.5:real:-:size",
    "title:title:t:none:str:-:title",
    "color:color:e:red:enum:red,*blue:color",
    "pDir:pdir:p:.:str:-:directory",
    "exec:exec:x:a:str:-:+",
    "*program",
    nullptr
};

static const std::string word = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_", blanks = " \t";

/* Where a line's prefixes end: up to three names, each with a dot. */
static size_t skipPrefixes(const std::string &line, size_t at)
{
    const std::string prefixes[] = { "WIN64.", "win64.", "fuzz-cnf.", "fuzz.", std::string(sysHostName()) + "." };
    for (int n = 0; n < 3; ++n)
        for (const std::string &prefix : prefixes)
            if (line.compare(at, prefix.size(), prefix) == 0) {
                at += prefix.size();
                break;
            }
    return at;
}

/* What a line gives to the option; false: nothing. */
static bool readLine(const std::string &line, std::string *value)
{
    const size_t first = line.find_first_not_of(blanks), end = line.find_last_not_of(blanks) + 1;
    if (first == std::string::npos) return false;
    const size_t key = skipPrefixes(line, first), keyEnd = std::min(line.find_first_not_of(word, key), line.size());
    if (line.substr(key, keyEnd - key) != "title" && line.substr(key, keyEnd - key) != "t") return false;
    const size_t next = line.find_first_not_of(blanks, keyEnd);
    if (next == std::string::npos) return false;
    const bool   sign = line[next] == '=' || line[next] == ':';
    const size_t behind = line.find_first_not_of(blanks, next + 1);
    if (sign && behind != std::string::npos) *value = line.substr(behind, end - behind);
    else if (next > keyEnd) *value = line.substr(next, end - next);         /* a sign with nothing behind is a value */
    else return false;
    return true;
}

/* What the file gives to the option, "none" by default; false: this reading cannot tell. */
static bool readTitle(const std::string &file, std::string *title)
{
    *title = "none";
    if (file.find_first_of(std::string("\r\0", 2)) != std::string::npos) return false;
    if (std::string(sysHostName()).find_first_of(".*+?[](){}|^$\\") != std::string::npos) return false;
    for (size_t at = 0; at < file.size(); ) {
        const size_t end = std::min(file.find('\n', at), file.size());
        if (end - at > 1000) return false;                  /* may need more choices than an expression has */
        readLine(file.substr(at, end - at), title);
        at = end + 1;
    }
    return true;
}

static std::string clean(FuzzBytes bytes)
{
    std::string text;
    for (; bytes.at < bytes.end; ++bytes.at)
        if (*bytes.at && *bytes.at != '/' && *bytes.at != '\\') text += (char) *bytes.at;
    return text;
}

static std::vector<char> words;             /* of the command line, each with its zero */
static std::vector<char *> arguments;

static void cutUp(FuzzBytes bytes)
{
    words.assign(bytes.at, bytes.end);
    words.push_back(0);
    arguments.assign(1, const_cast<char *>("fuzz"));
    for (size_t i = 0; i < words.size() && bytes.left() > 0; i += strlen(&words[i]) + 1) arguments.push_back(&words[i]);
    arguments.push_back(nullptr);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (fuzzStart()) sysSetProgName("fuzz-cnf");
    fuzzEnter(fuzzFolder());                /* the option pDir may have led away */
    FuzzBytes bytes{ data, data + size };
    const std::string more = clean(bytes.take(bytes.next()));
    cutUp(bytes.take(bytes.next()));
    const std::string file((const char *) bytes.at, bytes.left());
    setenv("QUENTA_CNF_FILES", ("one.cnf" + more).c_str(), 1);
    setenv("USERPROFILE", fuzzFolder().c_str(), 1);
    fuzzWrite("one.cnf", file);

    if (!fuzzTrapped([] { cnfInit(options, (int) arguments.size() - 1, arguments.data()); })) return 0;
    const int flag = cnfGetBool("flag");
    fuzzCheck(flag == 0 || flag == 1);
    fuzzCheck(strlen(cnfGetStr("title")) < SYS_TEXT);
    const char *color = cnfGetCnf("color")->value.s;
    fuzzCheck(!strcmp(color, "red") || !strcmp(color, "blue"));
    std::string title;
    if (more.empty() && arguments.size() == 2 && readTitle(file, &title)) fuzzCheck(title == cnfGetStr("title"));
    return 0;
}
