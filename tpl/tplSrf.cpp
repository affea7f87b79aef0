/* tplSrf.cpp: which face of an element has given nodes.
 *
 * A surface set names its faces by node ids, in any order. A face matches when each of its nodes is among the given
 * ones and the sums of both are equal; the sum is only the quick test that rejects most faces at once. */

#include "tpl/tpl.h"

#include "base/sys.h"

/* A sum that may wrap around: it does so on both sides. */
static unsigned sumOf(const int *ids, int n)
{
    unsigned sum = 0;
    for (int i = 0; i < n; ++i) sum += (unsigned) ids[i];
    return sum;
}

static bool isAmong(int id, const int *ids, int n)
{
    for (int i = 0; i < n; ++i)
        if (ids[i] == id) return true;
    return false;
}

static bool matches(const tplSrf *srf, int n, const int *elemNodes, const int *srfNodes, unsigned sum)
{
    unsigned faceSum = 0;
    for (int i = 0; i < n; ++i) faceSum += (unsigned) elemNodes[srf->srfNodes[i]];
    if (faceSum != sum) return false;
    for (int i = 0; i < n; ++i)
        if (!isAmong(elemNodes[srf->srfNodes[i]], srfNodes, n)) return false;
    return true;
}

/* The first face of that type with these nodes, or -1. */
static int findFace(const char *function, const tplRec *tpl, int srfType, const int *elemNodes, const int *srfNodes)
{
    const int n = tplSrfRound(srfType, nullptr);
    if (!n) sysFailIn(function, "Invalid srfType <%d>", srfType);
    const unsigned sum = sumOf(srfNodes, n);
    for (int i = 0; i < tpl->nSrfs; ++i)
        if (tpl->srfTbl[i].srfType == srfType && matches(&tpl->srfTbl[i], n, elemNodes, srfNodes, sum)) return i;
    return -1;
}

int tplSrf2Srf(const tplRec *tpl, int srfType, const int *elemNodes, const int *srfNodes, int *outNodes, int *outSrfId)
{
    const int i = findFace(__func__, tpl, srfType, elemNodes, srfNodes);
    if (i < 0) return 0;
    const tplSrf *srf = &tpl->srfTbl[i];
    for (int k = 0; k < srf->nSrfNodes; ++k) outNodes[k] = elemNodes[srf->srfNodes[k]];
    *outSrfId = i;
    return 1;
}

int tplSrf2Bnd(const tplRec *tpl, int srfType, const int *elemNodes, const int *srfNodes, int *outElemNodes,
               int *outSrfId)
{
    const int i = findFace(__func__, tpl, srfType, elemNodes, srfNodes);
    if (i < 0) return 0;
    for (int k = 0; k < tpl->nen; ++k) outElemNodes[k] = elemNodes[tpl->srfTbl[i].bndNodes[k]];
    *outSrfId = i;
    return 1;
}
