#ifndef TEST_RDB_EVERYKEY_H
#define TEST_RDB_EVERYKEY_H

/* everyKey.h: asks a handle for every key of the registry, at every index. */

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "test/rdb/smallRun.h"

/* All that a handle answers: key and indices to the bytes of the answer. beyond: how many indices behind the last one
   are asked for, too, which are refused. What depends on where the files lie is left out. */
struct Answers {
    struct Key {
        const char *name;
        int         type, nIdx;
        const char *idx[3];
    };

    rdbHd *hd;
    int    beyond;
    std::map<std::string, std::string> found;
    int nAnswered = 0;

    static Key keyOf(rdbHd *hd, const char *name)
    {
        Key key = { name, 0, 0, {} };
        checkAnswers(rdbGetInfo(hd, name, &key.type, nullptr, &key.nIdx, nullptr, &key.idx[0], &key.idx[1], &key.idx[2],
                                nullptr, nullptr));
        return key;
    }

    /* 1, 0, or -1 for a failure that does not return */
    int get(const Key &key, const int *at, void *data, int d1, int d2)
    {
        int ok = 0;
        const std::string failure = trapped([&] {
            ok = rdbGetData(hd, nullptr, key.name, data, key.type, key.nIdx, at[0], at[1], at[2], d1, d2);
        });
        return failure.empty() ? ok : -1;
    }

    void ask(const Key &key, const int *at)
    {
        int d1 = -1, d2 = -1, ok = 0;
        std::string text = key.name;
        for (int k = 0; k < key.nIdx; ++k) text += " " + std::to_string(at[k]);
        const std::string failure = trapped([&] {
            ok = rdbGetDims(hd, key.name, key.nIdx, at[0], at[1], at[2], &d1, &d2);
        });
        if (!failure.empty()) ok = -1;
        const bool isArray = key.type == RDB_INTS || key.type == RDB_REALS;
        const size_t n = 8 * (size_t) std::max(d1, 1) * (size_t) std::max(d2, 1);
        std::string  bytes(isArray ? n : key.type == RDB_STR ? (size_t) RDB_TEXT : 8, '\0');
        if (ok == 1) ok = get(key, at, &bytes[0], d1, d2);
        if (key.type == RDB_STR) bytes.resize(strlen(bytes.c_str()));
        nAnswered += ok == 1;
        found[text] = ok == 1 ? bytes : ok == 0 ? "refused" : "failed";
    }

    /* How many values index k has; its counter takes some of the indices before it */
    int count(const Key &key, int k, const int *at)
    {
        const Key counter = keyOf(hd, key.idx[k]);
        int       from[3] = { -1, -1, -1 }, n = 0;
        for (int i = 0; i < counter.nIdx; ++i)
            for (int j = 0; j < k; ++j)
                if (!strcmp(counter.idx[i], key.idx[j])) from[i] = at[j];
        return get(counter, from, &n, -1, -1) == 1 ? n : 0;
    }

    void askAll(const Key &key, int k, int *at)
    {
        if (k == key.nIdx) return ask(key, at);
        const int n = count(key, k, at) + beyond;
        for (at[k] = 0; at[k] < n; ++at[k]) askAll(key, k + 1, at);
        at[k] = -1;
    }

    enum { nothing = -1 };        /* for indicesBeyond: asks for nothing by itself */

    explicit Answers(rdbHd *handle, int indicesBeyond = 0) : hd(handle), beyond(indicesBeyond)
    {
        if (beyond == nothing) return;
        static const std::vector<std::string> namesOfFiles = { "dir", "nFiles", "fileName", "nUndefFiles",
                                                               "undefFileName", "queryName" };
        int  n = 0;
        char name[RDB_TEXT];
        checkAnswers(rdbGetInt0(hd, "nQueries", &n));
        for (int i = 0; i < n; ++i) {
            int at[3] = { -1, -1, -1 };
            checkAnswers(rdbGetStr1(hd, "queryName", name, i));
            if (std::find(namesOfFiles.begin(), namesOfFiles.end(), name) == namesOfFiles.end())
                askAll(keyOf(hd, name), 0, at);
        }
    }
};

#endif
