/* testTplSrf.cpp: which face of an element has given nodes. */

#include <algorithm>
#include <vector>

#include "test/testUtil.h"
#include "tpl/tpl.h"

typedef std::vector<int> ints;

struct Answer {
    int  found, srfId = -7;
    ints nodes = ints(12, -7);
};

static Answer toSrf(int code, int srfType, const ints &elem, const ints &srf)
{
    Answer a;
    a.found = tplSrf2Srf(tplNew(code, 1), srfType, elem.data(), srf.data(), a.nodes.data(), &a.srfId);
    return a;
}

static Answer toBnd(int code, int srfType, const ints &elem, const ints &srf)
{
    Answer a;
    a.found = tplSrf2Bnd(tplNew(code, 1), srfType, elem.data(), srf.data(), a.nodes.data(), &a.srfId);
    return a;
}

/* The first n, the rest untouched. */
static ints filled(ints v)
{
    v.resize(12, -7);
    return v;
}

static ints elementIds(int nen)
{
    ints ids;
    for (int i = 0; i < nen; ++i) ids.push_back(1 << i);           /* no two faces have one sum */
    return ids;
}

TEST(tplSrf, aRotatedTriangleIsFound)
{
    const ints elem = { 10, 11, 12, 13 };
    const Answer srf = toSrf(3, 1, elem, { 12, 10, 11 });
    EXPECT_EQ(srf.found, 1);
    EXPECT_EQ(srf.srfId, 0);
    EXPECT_EQ(srf.nodes, filled({ 10, 11, 12 }));                  /* in the order of the table */
}

/* Every face of every element, in every rotation and turned over. */
TEST(tplSrf, everyFaceIsFound)
{
    for (int code : { 3, 4, 5, 6, 16, 28, 7, 8, 9, 10, 11, 12, 17, 29, 20, 21, 25 }) {
        const tplRec *tpl = tplNew(code, 1);
        const ints elem = elementIds(tpl->nen);
        for (int i = 0; i < tpl->nSrfs; ++i) {
            const tplSrf &face = tpl->srfTbl[i];
            ints given, bnd;
            for (int k = 0; k < face.nSrfNodes; ++k) given.push_back(elem[face.srfNodes[k]]);
            for (int k = 0; k < tpl->nen; ++k) bnd.push_back(elem[face.bndNodes[k]]);
            const ints inOrder = given;
            for (int turn = 0; turn < 2 * face.nSrfNodes; ++turn) {
                SCOPED_TRACE(testing::Message() << "code " << code << " face " << i << " turn " << turn);
                const Answer s = toSrf(code, face.srfType, elem, given), b = toBnd(code, face.srfType, elem, given);
                EXPECT_EQ(s.found, 1);
                EXPECT_EQ(s.srfId, i);
                EXPECT_EQ(s.nodes, filled(inOrder));
                EXPECT_EQ(b.found, 1);
                EXPECT_EQ(b.srfId, i);
                EXPECT_EQ(b.nodes, filled(bnd));
                std::rotate(given.begin(), given.begin() + 1, given.end());
                if (turn == face.nSrfNodes - 1) std::reverse(given.begin(), given.end());
            }
        }
    }
}

/* Faces 0 2 5 3 and 2 1 4 5 of this wedge have one sum; only the second has the nodes. */
TEST(tplSrf, ofTwoFacesWithOneSumTheNodesDecide)
{
    const ints elem = { 10, 20, 7, 40, 30, 9 };
    const Answer s = toSrf(5, 2, elem, { 7, 20, 30, 9 });
    EXPECT_EQ(s.found, 1);
    EXPECT_EQ(s.srfId, 3);
    EXPECT_EQ(s.nodes, filled({ 7, 20, 30, 9 }));
    EXPECT_EQ(toSrf(5, 2, elem, { 10, 7, 9, 40 }).srfId, 2);
    /* the sum of a face, but other nodes */
    EXPECT_EQ(toSrf(5, 2, elem, { 6, 21, 30, 9 }).found, 0);
}

/* Degenerate elements: a face whose ids repeat is found by membership, and the first one wins. */
TEST(tplSrf, theFirstMatchWins)
{
    const ints elem = { 5, 6, 7, 7 };
    EXPECT_EQ(toSrf(3, 1, elem, { 5, 7, 6 }).srfId, 0);
    EXPECT_EQ(toSrf(3, 1, elem, { 7, 7, 6 }).srfId, 1);
}

TEST(tplSrf, aFaceThatIsNotThereLeavesTheOutputs)
{
    const ints elem = elementIds(10), none = { 1, 2, 512, 3, 5, 7 };
    for (const auto &a : { toSrf(3, 1, elem, none), toBnd(3, 1, elem, none), toSrf(16, 15, elem, none),
                           toBnd(6, 2, elem, none) }) {
        EXPECT_EQ(a.found, 0);
        EXPECT_EQ(a.srfId, -7);
        EXPECT_EQ(a.nodes, filled({}));
    }
}

TEST(tplSrf, aTetrahedronHasNoQuadrilateral)
{
    const ints elem = { 1, 2, 3, 4 };
    EXPECT_EQ(toSrf(3, 2, elem, elem).found, 0);
    EXPECT_EQ(toBnd(3, 2, elem, elem).found, 0);
    EXPECT_EQ(toSrf(3, 15, elem, { 1, 2, 3, 4, 5, 6 }).found, 0);
}

TEST(tplSrf, otherSurfaceTypesFail)
{
    const ints elem = elementIds(10), srf = elementIds(6);
    tplRec *tpl = tplNew(3, 1);
    int nodes[10], id;
    for (int type : { -1, 0, 3, 4, 14, 16 }) {
        const std::string text = "Invalid srfType <" + std::to_string(type) + ">";
        checkFails(text, tplSrf2Srf(tpl, type, elem.data(), srf.data(), nodes, &id));
        checkFails(text, tplSrf2Bnd(tpl, type, elem.data(), srf.data(), nodes, &id));
    }
    checkFails("in Function <tplSrf2Srf>", tplSrf2Srf(tpl, 3, elem.data(), srf.data(), nodes, &id));
    checkFails("in Function <tplSrf2Bnd>", tplSrf2Bnd(tpl, 3, elem.data(), srf.data(), nodes, &id));
}

TEST(tplSrf, sumsThatWrapAroundAgree)
{
    const ints elem = { INT32_MAX, INT32_MAX - 1, INT32_MAX - 2, 0 };
    EXPECT_EQ(toSrf(3, 1, elem, { elem[2], elem[0], elem[1] }).found, 1);
}
