/* rdbFacts.cpp: the getters of what the client information file says of the run as a whole. */

#include "rdb/rdbInt.h"

/* The count that stands when the output files have been seen: they have one even where no line names a species. A run
   without outputs keeps the count of its lines. */
static void seeOutputs(rdbHd *hd)
{
    if (!hd->run->out[RDB_OUT_OUT]) rdbInitOut(hd);
}

extern "C" {

#define TEXT_FACT(key, member) RDB_GETTER(rdb_##key) { return rdbPutText(data, hd->run->member); }
#define INT_FACT(key, member)  RDB_GETTER(rdb_##key) { return rdbPutInt(data, hd->run->member); }
#define REAL_FACT(key, member) RDB_GETTER(rdb_##key) { return rdbPutReal(data, hd->run->member); }

TEXT_FACT(title,          title)
TEXT_FACT(subTitle,       subTitle)
TEXT_FACT(baseUnit,       baseUnit)
TEXT_FACT(runDate,        date)
TEXT_FACT(runVersion,     version)
INT_FACT (pmcOrder,       pmcOrder)
REAL_FACT(pmcLump,        pmcLump)
REAL_FACT(pmcDamp,        pmcDamp)
REAL_FACT(pmcAlpha,       pmcAlpha)
REAL_FACT(pmcAlphaMass,   pmcAlphaMass)
REAL_FACT(pmcGamma,       pmcGamma)
TEXT_FACT(rstFromDir,     rstFromDir)
TEXT_FACT(rstFromProblem, rstFromProblem)
INT_FACT (rstFromRunId,   rstFromRunId)
INT_FACT (rstFromStep,    rstFromStep)
INT_FACT (nSds,           nSds)
INT_FACT (nFields,        nFields)
INT_FACT (nRads,          nRads)

RDB_GETTER(rdb_nSpecies)
{
    seeOutputs(hd);
    return rdbPutInt(data, hd->run->nSpecs);
}

/* Species beyond the named ones, and beyond the names that a run keeps, are numbered */
RDB_GETTER(rdb_speciesName)
{
    seeOutputs(hd);
    if (i1 < RDB_MAX_SPECIES) return rdbPutText(data, hd->run->speciesNames[i1]);
    snprintf((char *) data, SYS_TEXT, "species_%d", i1 + 1);
    return 1;
}

/* The output files may have fields that no line names */
RDB_GETTER(rdb_fieldName)
{
    return rdbPutText(data, i1 < hd->run->nFieldNames ? hd->run->fieldNames[i1] : "");
}

/* No file tells a prefix */
RDB_GETTER(rdb_fieldPrefix)
{
    return rdbPutText(data, "");
}

}
