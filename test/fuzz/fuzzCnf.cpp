/* fuzzCnf.cpp: any bytes as a list of configuration files and as the first of them.
 *
 * The data: a byte n, n bytes of the list, and the file. Tables of options are never released, so a run of more than
 * some minutes needs -rss_limit_mb=0. */

#include <cmath>
#include <cstring>
#include <string>

#include "base/cnf.h"
#include "test/fuzz/fuzzUtil.h"

static const char *const options[] = {
    "flag:flag:f:0:bool:-:flag",
    "count:count:c:7:int:-:count",
    "size:size:s:1.5:real:-:size",
    "title:title:t:none:str:-:title",
    "color:color:e:red:enum:red,blue:color",
    nullptr
};

static void check(bool ok)
{
    if (!ok) abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzStart();
    FuzzBytes bytes{ data, data + size };
    const size_t wanted = bytes.next(), left = (size_t) (bytes.end - bytes.at), n = wanted < left ? wanted : left;
    std::string list = "one.cnf";
    for (size_t i = 0; i < n; ++i)
        if (bytes.at[i] && bytes.at[i] != '/' && bytes.at[i] != '\\') list += (char) bytes.at[i];
    setenv("QUENTA_CNF_FILES", list.c_str(), 1);
    fuzzWrite("one.cnf", bytes.at + n, left - n);

    if (!fuzzTrapped([] { cnfInit(options, 0, nullptr); })) return 0;
    const int flag = cnfGetBool("flag");
    check(flag == 0 || flag == 1);
    check(!std::isinf(cnfGetCnf("size")->value.r) || !strcmp(cnfGetCnf("size")->source, "one.cnf"));
    check(strlen(cnfGetStr("title")) < 8192);
    const char *color = cnfGetCnf("color")->value.s;
    check(!strcmp(color, "red") || !strcmp(color, "blue"));
    return 0;
}
