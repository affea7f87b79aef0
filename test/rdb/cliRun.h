#ifndef TEST_RDB_CLIRUN_H
#define TEST_RDB_CLIRUN_H

/* cliRun.h: runs of the problem "p" that are told line by line: what the tests of the client information file, of the
 * sets in it and of their getters have in common. */

#include <string>

#include "rdb/rdbInt.h"
#include "test/testUtil.h"

/* A volume of tetrahedra, a surface set on it, an element set: what surface lines need before them */
static const char oneVolume[] =
    "#@ VOL v.B \"vol\" nElems 10 type 3 nen 4\n"
    "#@ SFS s.B \"srf\" nSrfs 4 type 1 nsn 3 quad 1 vol 0 medium 7 volName \"vol\"\n"
    "#@ CNN e.B \"elm\" nElems 10 type 3 nen 4 quad 2 medium 1 rff 5 thick 0.5 tol 0.25\n"
    "#@ CNN.VOL \"elm\" 1 \"vol\"\n";

/* A database of the current folder, freed at the end of the test */
struct CliRun {
    rdbHd *hd = nullptr;

    explicit CliRun(const std::string &lines, int verbose = 0)
    {
        testWrite("p.1.cli", lines);
        hd = rdbNew("p", ".", nullptr, verbose);
        EXPECT_NE(hd, nullptr) << rdbGetError();
        rdbSetError("nothing to say");
    }
    ~CliRun()
    {
        if (hd) rdbFree(hd);
    }
    CliRun(const CliRun &) = delete;

    /* The open's failure, "" if it came back */
    std::string open()
    {
        return trapped([&] { opened = rdbOpenRun(hd, 1); });
    }
    const runHd *run() const { return hd->run; }
    int opened = -1;

    template <class Rec> const Rec &rec(const rdbList &list, int i) const
    {
        static const Rec none = {};
        EXPECT_LT(i, list.n);
        return i < list.n ? *(const Rec *) list.rec[i] : none;
    }
    const rdbVolSet &vol(int i) const { return rec<rdbVolSet>(run()->vol, i); }
    const rdbElmSet &elm(int i) const { return rec<rdbElmSet>(run()->elm, i); }
    const rdbSrfSet &srf(int fam, int i) const { return rec<rdbSrfSet>(run()->srf[fam], i); }

    int num(const char *key)
    {
        int value = -99;
        EXPECT_EQ(rdbGetInt0(hd, key, &value), 1) << key << ": " << rdbGetError();
        return value;
    }
    int num(const std::string &key, int i)
    {
        int value = -99;
        EXPECT_EQ(rdbGetInt1(hd, key.c_str(), &value, i), 1) << key << ": " << rdbGetError();
        return value;
    }
    double real(const char *key)
    {
        double value = -99.0;
        EXPECT_EQ(rdbGetReal0(hd, key, &value), 1) << key << ": " << rdbGetError();
        return value;
    }
    double real(const std::string &key, int i)
    {
        double value = -99.0;
        EXPECT_EQ(rdbGetReal1(hd, key.c_str(), &value, i), 1) << key << ": " << rdbGetError();
        return value;
    }
    std::string str(const char *key)
    {
        static char text[SYS_TEXT];
        EXPECT_EQ(rdbGetStr0(hd, key, text), 1) << key << ": " << rdbGetError();
        return text;
    }
    std::string str(const std::string &key, int i)
    {
        static char text[SYS_TEXT];
        EXPECT_EQ(rdbGetStr1(hd, key.c_str(), text, i), 1) << key << ": " << rdbGetError();
        return text;
    }
};

/* The families that have a line <keyword>.SFS, with a line of each */
static const struct { int fam; const char *keyword, *more; } srfFamilies[] = {
    { RDB_CBC, "CBC", " bc 9 actType 5" },
    { RDB_DBC, "DBC", " bc 9" },
    { RDB_EBC, "EBC", "" },
    { RDB_AFS, "AFS", "" },
    { RDB_TWS, "TWS", "" },
    { RDB_PSF, "PSF", " bc 9" },
    { RDB_RSF, "RSF", " aggl 2 cnt 3 ang 0.5 rad 0.25 bc 9" },
    { RDB_SRS, "SRS", "" },
    { RDB_SBC, "SBC", "" },
    { RDB_SSI, "SSI", " mesh 9 fct 0.5 gap 0.25 ang 0.125" },
    { RDB_GSF, "GSF", "" },
    { RDB_ECI, "ECI", "" },
    { RDB_OSF, "OSF", "" },
    { RDB_FAN, "FAN", "" },
    { RDB_HEC, "HEC", "" },
};

/* A family's line for surfaces of tetrahedra of element set 0 */
static inline std::string srfLine(const std::string &keyword, const std::string &name, const std::string &more = "")
{
    return "#@ " + keyword + " " + name + ".srf \"" + name + "\" nSrfs 4 type 1 nsn 3 quad 1 elmId 0 medium 6" + more +
           "\n";
}

#endif
