#ifndef TPL_TPLSHP_H
#define TPL_TPLSHP_H

/* tplShp.h: shape functions of the element families at one point, and their derivatives with respect to (r, s, t). They
 * run in the compiler for the tables that stand in the library, and at run time for the others. Only tpl.cpp includes
 * it.
 *
 * A pyramid or wedge that is seen from a face or an edge turns its derivatives into a frame of that face, so that the
 * first two lie in the face and the third points into the element; frame 0 leaves them alone. */

enum tplFamily { TPL_NO_FAMILY, TPL_TET, TPL_QUAD_TET, TPL_BUBBLE_TET, TPL_WEDGE, TPL_HEX, TPL_PYRAMID };

constexpr void setRow(double *row, double r, double s, double t)
{
    row[0] = r;
    row[1] = s;
    row[2] = t;
}

/* ----------------------------------------------- tetrahedra ----------------------------------------------- */

/* derivatives of the four barycentric coordinates */
static constexpr double dTet[4][3] = { { -0.5, -0.5, -0.5 }, { 0.5, 0, 0 }, { 0, 0.5, 0 }, { 0, 0, 0.5 } };
/* the nodes between which the middle nodes 4 to 9 lie */
static constexpr int tetEdges[6][2] = { { 0, 1 }, { 1, 2 }, { 0, 2 }, { 0, 3 }, { 1, 3 }, { 2, 3 } };

constexpr void barycentric(const double *x, double *l)
{
    l[0] = 1 - (x[0] + x[1] + x[2]) / 2;
    for (int i = 0; i < 3; ++i) l[i + 1] = x[i] / 2;
}

constexpr void tetShp(const double *x, double *shp, double *shgl)
{
    barycentric(x, shp);
    for (int i = 0; i < 12; ++i) shgl[i] = dTet[i / 3][i % 3];
}

constexpr void quadTetShp(const double *x, double *shp, double *shgl)
{
    double l[4] = {};
    barycentric(x, l);
    for (int i = 0; i < 4; ++i) {
        shp[i] = l[i] * (2 * l[i] - 1);
        for (int j = 0; j < 3; ++j) shgl[3 * i + j] = (4 * l[i] - 1) * dTet[i][j];
    }
    for (int e = 0; e < 6; ++e) {
        const int a = tetEdges[e][0], b = tetEdges[e][1];
        shp[4 + e] = 4 * l[a] * l[b];
        for (int j = 0; j < 3; ++j) shgl[3 * (4 + e) + j] = 4 * (l[a] * dTet[b][j] + l[b] * dTet[a][j]);
    }
}

constexpr void bubbleTetShp(const double *x, double *shp, double *shgl)
{
    double l[4] = {};
    barycentric(x, l);
    const double bubble = 256 * l[0] * l[1] * l[2] * l[3];
    const double without[4] = { l[1] * l[2] * l[3], l[0] * l[2] * l[3], l[0] * l[1] * l[3], l[0] * l[1] * l[2] };
    shp[4] = bubble;
    for (int i = 0; i < 4; ++i) shp[i] = l[i] - bubble / 4;
    for (int j = 0; j < 3; ++j) {
        double slope = 0;
        for (int i = 0; i < 4; ++i) slope += 256 * without[i] * dTet[i][j];
        shgl[12 + j] = slope;
        for (int i = 0; i < 4; ++i) shgl[3 * i + j] = dTet[i][j] - slope / 4;
    }
}

/* ------------------------------------------ wedge and hexahedron ------------------------------------------ */

constexpr void wedgeShp(const double *x, int frame, double *shp, double *shgl)
{
    const double tri[3] = { 2 - x[0] - x[1], x[0], x[1] };
    const double dTri[3][2] = { { -1, -1 }, { 1, 0 }, { 0, 1 } };
    for (int i = 0; i < 6; ++i) {
        const double sign = i < 3 ? -1 : 1, axis = (1 + sign * x[2]) / 4;
        const double r = dTri[i % 3][0] * axis, s = dTri[i % 3][1] * axis, t = sign * tri[i % 3] / 4;
        shp[i] = tri[i % 3] * axis;
        if (frame == 0)      setRow(shgl + 3 * i, r,  s, t);
        else if (frame == 1) setRow(shgl + 3 * i, t,  r, s);
        else                 setRow(shgl + 3 * i, r, -t, s);
    }
}

static constexpr double hexSigns[8][3] = { { -1, -1, -1 }, { 1, -1, -1 }, { 1, 1, -1 }, { -1, 1, -1 },
                                           { -1, -1,  1 }, { 1, -1,  1 }, { 1, 1,  1 }, { -1, 1,  1 } };

constexpr void hexShp(const double *x, double *shp, double *shgl)
{
    for (int i = 0; i < 8; ++i) {
        double f[3] = {};
        for (int j = 0; j < 3; ++j) f[j] = (1 + hexSigns[i][j] * x[j]) / 2;
        shp[i] = f[0] * f[1] * f[2];
        setRow(shgl + 3 * i, hexSigns[i][0] / 2 * f[1] * f[2], f[0] * hexSigns[i][1] / 2 * f[2],
               f[0] * f[1] * hexSigns[i][2] / 2);
    }
}

/* ------------------------------------------------- pyramid ------------------------------------------------ */

/* Turns one node's derivatives into the frame of the triangular face 0, 1, 4: along the base edge, from the apex to the
   middle of that edge, into the element. For its edges up to the apex the first two are turned once more. */
constexpr void turnPyramid(int frame, double *row)
{
    const double c = 0.8944271909999159, d = 0.4472135954999579;        /* 2 and 1 over the root of 5 */
    const double r = row[0], s = -(d * row[1] + c * row[2]), t = c * row[1] - d * row[2];
    if (frame == 1)      setRow(row, r,      s, t);
    else if (frame == 2) setRow(row, s,     -r, t);
    else                 setRow(row, s - r, -r, t);
}

constexpr void pyramidShp(const double *x, int frame, double *shp, double *shgl)
{
    /* At the apex the slopes depend on the direction from which one comes: along the axis, or along the face. What is
       only a rounding error below the apex counts as the apex. */
    const double h = 1 - x[2] / 2;
    const bool   apex = !(h > 1e-12);
    const double a = apex ? 0 : x[0] / h, b = apex ? (frame ? -1 : 0) : x[1] / h;
    for (int i = 0; i < 4; ++i) {
        const double u = hexSigns[i][0], v = hexSigns[i][1];
        shp[i] = apex ? 0 : h * (1 + u * a) * (1 + v * b) / 4;
        setRow(shgl + 3 * i, u * (1 + v * b) / 4, v * (1 + u * a) / 4, -(1 - u * v * a * b) / 8);
    }
    shp[4] = x[2] / 2;
    setRow(shgl + 12, 0, 0, 0.5);
    if (frame)
        for (int i = 0; i < 5; ++i) turnPyramid(frame, shgl + 3 * i);
}

/* ------------------------------------------------ all of them --------------------------------------------- */

/* Shape functions and derivatives of one family at the point x. */
constexpr void tplShpAt(int family, int frame, const double *x, double *shp, double *shgl)
{
    switch (family) {
    case TPL_TET:        tetShp(x, shp, shgl);             break;
    case TPL_QUAD_TET:   quadTetShp(x, shp, shgl);         break;
    case TPL_BUBBLE_TET: bubbleTetShp(x, shp, shgl);       break;
    case TPL_WEDGE:      wedgeShp(x, frame, shp, shgl);    break;
    case TPL_HEX:        hexShp(x, shp, shgl);             break;
    default:             pyramidShp(x, frame, shp, shgl);
    }
}

#endif
