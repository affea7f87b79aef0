#ifndef RDB_RDBINT_H
#define RDB_RDBINT_H

/* rdbInt.h: the records of an open database and what the files of rdb/ share. No one else includes it.
 *
 * A handle (rdbHd) knows the directory: its files and the runs in it. The open run (runHd) knows what the run's
 * client information file says: lists of set records, a set's id being its position in its list, and the caches that
 * getters fill on first use. Everything in a record is owned by it unless its comment says otherwise; null, or a
 * count of -1, means not there yet, and closing knows that state. */

#include <sys/types.h>
#include <time.h>

#include "base/dic.h"
#include "base/mem.h"
#include "base/sys.h"
#include "iop/iop.h"
#include "mtx/mtxHash.h"
#include "rdb/rdb.h"
#include "tpl/tpl.h"

enum { RDB_MAGIC = 0x15FBE44, RDB_MAX_SPECIES = 9 };

/* ------------------------------------------------------------------------------------------------ the registry */

/* A getter answers one row. It is called with type, indices, ranges and capacity checked and the directory guard
   held; unused indices are -1, d1 and d2 are the caller's capacity or -1. 1 on success; 0 after rdbSetError. */
typedef int (*rdbGetter)(rdbHd *hd, const char *key, void *data, int i1, int i2, int i3, int d1, int d2);
#define RDB_GETTER(name) int name(rdbHd *hd, const char *key, void *data, int i1, int i2, int i3, int d1, int d2)

struct rdbKeyRow {
    const char *name;
    int         nameLen;
    int         type;             /* RDB_STR ...                                                         */
    int         nIdx;
    const char *idxKey[3];        /* rows that count the indices                                         */
    int         nDims;
    const char *dimKey[2];        /* rows that size the answer; of two the faster-running stands first   */
    int         needsRun;
    rdbGetter   getter;
};

/* --------------------------------------------------------------------------------------------------- set records */

typedef struct rdbList {          /* records that begin with their name      */
    int    n, cap;
    void **rec;
    int   *byName;                /* cap places for positions: those of the first nSorted, sorted as rdbSets.cpp says */
    int    nSorted;
} rdbList;

typedef struct rdbVolSet {        /* VOL */
    char   *name, *file;
    int     nElems, type, nElemNodes;
    int     elmId;                /* parent element set                      */
    int    *usrIdHash;            /* element user id to row; null until used */
    int    *cnn;                  /* connectivity; null until used           */
    int     cnnRead;              /* cnn has been read whole                 */
    int    *nodes;                /* cnn as positions in the mesh; null until used */
    tplRec *tpl, *linTpl;         /* not owned                               */
    int     fits;                 /* 0 not yet tested against the file, 1 it can hold the rows */
} rdbVolSet;

typedef struct rdbElmSet {        /* CNN, CNN.VOL */
    char   *name;
    char  **volNames;             /* nVolNames of them                       */
    int     nVolNames;
    char   *file;
    int     nElems, type, nElemNodes;
    int     nVols;
    int     quad, medium, rffId;
    double  shlThick, tol;
    int    *volIds;               /* nVols                                   */
    tplRec *tpl, *linTpl;         /* not owned                               */
    int     fits;
} rdbElmSet;

/* The families of surface sets, in the order in which their parents are checked. */
enum {
    RDB_CBC, RDB_DBC, RDB_EBC, RDB_AFS, RDB_TWS, RDB_PSF, RDB_RSF, RDB_SRS, RDB_SBC, RDB_SSI, RDB_GSF, RDB_ECI,
    RDB_OSF, RDB_FAN, RDB_HEC, RDB_SFS, RDB_N_SRF_FAMS
};

/* What a set's topology object is made from: its own type and quadrature, those of its first surface set, or its own
   as seen from the element set. rdbSrfFams.def has a row for each family. */
enum { RDB_BY_OWN, RDB_BY_SFS, RDB_BY_ELM };

typedef struct rdbSrfFam {
    const char *keyword;          /* of its lines: "CBC"                     */
    const char *madeAs;           /* the keyword that a message shows        */
    int         topology;         /* RDB_BY_...                              */
    int         hasSfss;          /* its sets are made of surface sets       */
    const char *noFile;           /* error text of a set without a file      */
    int       (*nodes)(rdbHd *hd, const char *key, int fam, int i, int *nodes);   /* the distinct nodes */
} rdbSrfFam;

typedef struct rdbSrfSet {        /* all sixteen families */
    char   *name, *file;
    int     sharesTexts;          /* name and file belong to the family record that this SFS was made from */
    char  **sfsNames;             /* nSfsNames of them                       */
    int     nSfsNames;
    int    *sfsIds;               /* nSfss, at least one; null: no line bound the set */
    int     nSfss;
    int     nSrfs;
    int     nNodes;               /* distinct nodes; -1 until asked          */
    int     type, nSrfNodes, quad, medium;
    int     elmId;                /* parent element set; SFS: -1             */
    int     volId;                /* parent volume set                       */
    int     neighbor;             /* SFS                                     */
    int     volNameGiven;         /* SFS: the line named its volume          */
    char   *volName;
    int     bcType;               /* CBC DBC PSF RSF; SSI: mesh type         */
    int     actType;              /* CBC; 1 by default                       */
    double  gapFct, gap, creaseAng;   /* SSI                                 */
    int     aggl, agglCnt;        /* RSF                                     */
    double  agglAng, agglRad;     /* RSF                                     */
    tplRec *tpl;                  /* not owned                               */
    int     fits;
    struct rdbOutInfo *out;       /* the steps of its outputs; null until asked for */
    struct rdbSetMap  *map;       /* the nodes of their parts; null until asked for */
} rdbSrfSet;

typedef struct rdbNodeSet {       /* NBC, ZBC, PBC */
    char *name, *file;
    int   nRows, number, width;
    int   fits;                   /* as in rdbVolSet                         */
} rdbNodeSet;

typedef struct rdbRecSet {        /* TMF, MMO, FBD (nModes in number), DOP, OTH (nNodes in number) */
    char *name, *file;
    int   number;
} rdbRecSet;

typedef struct rdbRff {           /* RFF: a rotating frame */
    char  *name;
    double org[3], angVel[3];
    int    numbers[3];
} rdbRff;

typedef struct rdbOaa {           /* OAA, OAD */
    char *name, *file, *dirFile;
    int   nNodes;
} rdbOaa;

typedef struct rdbOutMesh {       /* OSA, OEA, OFS, OVS + VAS, OVE + VAE */
    char *name, *file, *file2;
    int   nNodes;                 /* OFS, OVS, OVE                           */
    int   nRows, nRowNodes;       /* OSA, OEA; VAS, VAE                      */
    int   oaaId;                  /* OSA, OEA                                */
} rdbOutMesh;

typedef struct rdbOel {           /* OEL, OEL.VOL: arrays of nVols entries   */
    char  *name;
    char **files;
    int   *nElems, *nNodes, *parentIds, *types, *nElemNodes, *media, *volIds, *fits;
    int    flag, quad;
    int    nVols, nRead;          /* entries announced, entries read         */
} rdbOel;

typedef struct rdbCli {           /* the client information file while it is read */
    char       *line;             /* lineSize bytes                          */
    int         lineSize;
    char        file[SYS_TEXT], name[SYS_TEXT];   /* the last file token and the last name that a line gave */
    int         volumesSeen;      /* there was a VOL line                    */
    int         setsSeen;         /* there was a VOL or an SFS line          */
    rdbOutMesh *lastOvs, *lastOve;    /* made or matched last; not owned     */
    int64_t     setsLeft;         /* that lists may still announce: the file could not name more */
} rdbCli;

/* ------------------------------------------------------------------------------------------------- output families */

typedef struct rdbOutInfo {       /* catalogue of one output family */
    int     nSteps;
    int    *steps;                /* ascending, distinct                     */
    double *times;                /* -1.0: not read yet                      */
    int     mask, masks[2];
    char    maskForm;             /* 1: one mask word, 2: two                */
    uint64_t present;             /* rows of the variable table that the family has */
    int     nVars;
    int    *varIds;               /* rows of the family's variable table     */
} rdbOutInfo;

enum {                                                      /* caches of runHd, one per output family */
#define OUT_FAM(CACHE, ...) RDB_OUT_##CACHE,
#include "rdb/rdbOutFams.def"
#undef OUT_FAM
    RDB_N_OUT_FAMS
};

enum {                                                      /* places in runHd, one per family of outputs on sets */
#define SET_FAM(SETS, ...) RDB_SET_OUT_##SETS,
#include "rdb/rdbSetFams.def"
#undef SET_FAM
    RDB_N_SET_OUTS
};

typedef struct rdbSetMap {        /* which nodes of a surface set the parts of its outputs have */
    int   nParts;
    int  *nNodes;                 /* of each part                            */
    int **nodes;                  /* positions in the set's list of nodes; null: all of them, in order */
    int  *setNodes;               /* user ids of the set's nodes, ascending, while the map is made */
} rdbSetMap;

typedef struct rdbStepFiles rdbStepFiles;                   /* step files kept open: rdbStep.cpp */

typedef struct rdbDirs {          /* work arrays while rdbDirs.cpp works */
    int     nMesh, nNodes;        /* nodes of the mesh, of the set           */
    double *crd, *sums;           /* nMesh rows of 3                         */
    int    *nodes;                /* nNodes positions in the mesh            */
    int    *cnn;                  /* the same for each node of each surface  */
    int    *turns;                /* nMesh                                   */
} rdbDirs;

typedef struct rdbGrad {          /* work arrays while rdbGrad.cpp works */
    double *crd;                  /* a row of 3 for each node                */
    double *values, *grad;        /* of the variable, of the velocity: a row for each node */
    iopFileId crdFile;            /* the coordinates' file, of which the gradient that is kept is made */
    double *weight;               /* one for each node                       */
    double *detW, *points;        /* of the points of a block of elements    */
    double *elemValues;           /* the variable at the nodes of a block    */
    double *row;                  /* of a point                              */
    double *dest;                 /* the answer; not owned                   */
    int     dim;                  /* of the variable                         */
    double  timeInc;
} rdbGrad;

typedef struct rdbLogInfo {       /* the time steps of the run's log         */
    int     nSteps, cap;
    int    *steps;
    double *times, *timeIncs;
} rdbLogInfo;

enum { RDB_N_EXT_SOURCES = 12 };

typedef struct rdbExtInfo {       /* the extended list                       */
    int    counts[RDB_N_EXT_SOURCES];
    int    nNames, built;         /* entries there; all are                  */
    char **names;
    int   *dims;
} rdbExtInfo;

typedef struct rdbExtWork {       /* work arrays while rdbExt.cpp brings sets to the nodes */
    double *weights;              /* of each node of the mesh                */
    int    *nodes;                /* of a set                                */
    double *values, *weighting;   /* of a variable, of variable 0, at these  */
    double *times;                /* of a set                                */
} rdbExtWork;

/* ------------------------------------------------------------------------------------------------------- the run */

enum { RDB_TOP_FILE, RDB_N_FILE_TIMES = 15 };               /* files that are watched: rdbUpdate.cpp */

typedef struct runHd {
    int    runId;
    iopFileId cliId;                                                /* the client information file as it was read */
    char  *date, *dir, *version, *title, *subTitle, *baseUnit;      /* null if the line is absent */
    int    opt;                                                     /* form of the data files     */
    int    pmcOrder;
    double pmcLump, pmcDamp, pmcAlpha, pmcAlphaMass, pmcGamma;
    int    nRads, nRads2;
    char  *radFile;
    int    nSpecs;                                                  /* -1: unset                  */
    char  *speciesNames[RDB_MAX_SPECIES];
    int   *fieldKinds;
    int    nFields;                                                 /* -1: unset                  */
    char **fieldNames;
    int    nFieldNames;                                             /* MFD lines                  */
    int    nFilms, nAoutVecs, nDODirs;                              /* -1: unset                  */
    int    rstFromRunId, rstFromStep;                               /* -1: no RST line            */
    char  *rstFromDir, *rstFromProblem;
    int    fileTimes[RDB_N_FILE_TIMES];
    int    nSds;
    int    sdRead;                                                  /* the .ddc has been read      */
    int   *sdNNodes;                                                /* nSds; null before that      */
    int  **sdNodes;                                                 /* positions in usrIds, from 0 */
    int   *sdFirst;                                                 /* of a list n, n + 1, ...: n; -1 */
    int    sdCover;                                                 /* the lists reach every node  */
    int    nNodes;
    char  *crdFile;
    int    nInitNodes;
    char  *initCrdFile;
    int    crdFits;
    int   *usrIdHash;                                               /* null until used             */
    rdbList srf[RDB_N_SRF_FAMS];                                    /* rdbSrfSet                   */
    rdbList vol, elm;                                               /* rdbVolSet, rdbElmSet        */
    rdbList tmf, rff, mmo, fbd, dop, oth;                           /* rdbRecSet; rff: rdbRff      */
    rdbList nbc, pbc;                                               /* rdbNodeSet                  */
    rdbNodeSet *zbc;
    rdbList oaa, osa, oea, ofs, ovs, ove;                           /* rdbOaa; rdbOutMesh          */
    rdbList oel;                                                    /* rdbOel                      */
    rdbOutInfo   *out[RDB_N_OUT_FAMS];
    rdbOutInfo   *outNew;         /* catalogue that is being built                                 */
    rdbStepFiles *stepFiles;      /* those that were used last stand first                         */
    int           nStepOpen[2];   /* how many of them are open: files, and pipes                   */
    rdbOutInfo   *setOut[RDB_N_SET_OUTS];                           /* the variables; steps are each set's */
    rdbSetMap    *setMapNew;      /* map that is being made                                        */
    iopHd *reading;               /* the file that a getter reads now, or that one left by a jump  */
    int   *idBuf;                 /* user ids on their way into a hash                             */
    int   *srfBuf;                /* a surface set's connectivity or ids while a getter works      */
    int   *cnnBuf;                /* an output element set's connectivity meanwhile                */
    rdbDirs dirs;
    rdbGrad grad;
    rdbExtInfo *ext;              /* null until asked for                                          */
    rdbExtWork extWork;
    rdbLogInfo *log, *logNew;     /* null until asked for; the one that is being read              */
    rdbCli *cli;                  /* null when rdbOpenRun is through                               */
} runHd;

/* An output family: files of one step each, `<problem>.<run>_<step>_<part>.<ext>`, whose header tells by a mask which
   of the family's variables follow. The families stand in rdbOutFams.def, their tables in rdbInitOut.cpp. */

enum {
    RDB_HDR_TIME,                 /* of the step                              */
    RDB_HDR_REAL,                 /* a real that nobody asks for              */
    RDB_HDR_OPT_REAL,
    RDB_HDR_MASK,
    RDB_HDR_MASKS,                /* both words, if the mask is -1            */
    RDB_HDR_OPT_MASK,             /* the second word: 0 if it is absent       */
    RDB_HDR_OPT_INDEX,            /* of the table of presence: 0 if absent    */
    RDB_HDR_COUNT,                /* a counter of the run                     */
    RDB_HDR_OPT_COUNT,            /* absent: the value of the count before it */
    RDB_HDR_OPT_INT,              /* an integer that nobody asks for          */
    RDB_HDR_OPT_LENGTH,           /* of the list of integers: 0 if absent     */
    RDB_HDR_OPT_INTS,             /* a column of integers                     */
    RDB_HDR_TEXTS                 /* as many as the count before it, or fewer */
};

typedef struct rdbOutHdr {        /* an item that stands before the arrays    */
    const char *key;
    int         kind;             /* RDB_HDR_...                              */
    int runHd::*counter;          /* of a count                               */
    const char *told;             /* what a failure calls the count; null: its key */
} rdbOutHdr;

typedef struct rdbOutVar {        /* a variable; its row is its bit in the mask */
    const char *name;             /* as shown to the user; need not be unique */
    const char *key;              /* of its array in the file                 */
    int         dim;              /* reals per node, unless a counter tells it */
    int runHd::*counter;
} rdbOutVar;

typedef struct rdbOutOlder {      /* a variable that was narrower in older runs */
    int         var, dim;
    const char *version;          /* the first with the width of the table    */
    int         met;              /* an older run was met in this process     */
} rdbOutOlder;

enum { RDB_N_OUT_PRESENCE = 2 };

typedef struct rdbOutFam {
    int                cache;     /* RDB_OUT_...: its place in runHd::out     */
    const char        *ext;
    const rdbOutHdr   *hdr;
    int                nHdr;
    const rdbOutVar   *vars;
    int                nVars;
    const uint64_t    *presence;  /* RDB_N_OUT_PRESENCE sets of rows; null: all are there */
    const char *const *behind;    /* keys of arrays that may follow in a file of all parts, null at the end; or null */
    rdbOutOlder       *older;     /* or null                                  */
    int                newest;    /* only the newest step counts, and its files are told by name */
    const char        *initName, *valuesName;   /* the function names that failures carry */
} rdbOutFam;

/* An array of a step, in the files of its parts. The rows of a part go to rows of the answer. */
typedef struct rdbStepArray {
    const rdbOutFam *fam;
    uint64_t    present;          /* as in rdbOutInfo                         */
    int         step;             /* its number                               */
    const char *base;             /* what the names of the step's files begin with; without parts: all of the name */
    int         hasParts, merged; /* merged: one file has all parts           */
    int         var, width;       /* row of the family's table; reals per row */
    int         nParts;
    const int  *nNodes;           /* rows of each part                        */
    int *const *nodes;            /* where they go; null: all of them in order */
    const int  *first;            /* where the rows of a part go in order from, or -1; null: -1 for all */
    int         add;              /* rows that meet are added, else the last one counts */
    int         covers;           /* the parts have every row of the answer   */
    int         nRows;            /* of the answer                            */
} rdbStepArray;

/* A family of outputs on surface sets: the same files, but of one set each,
   `<problem>.<run>_<step>_<set>_<part>.<ext>`, and where they have no parts `<problem>.<run>_<step>_<set>.<ext>`. The
   families stand in rdbSetFams.def, their tables in rdbSetOut.cpp. */
typedef struct rdbSetFam {
    rdbOutFam   out;              /* extension, tables, names; its place is one in runHd::setOut */
    int         srf;              /* RDB_OSF ...: the sets                    */
    int         hasParts;
    int       (*readMap)(rdbHd *hd, const char *key, const rdbSetFam *fam, int i, rdbSetMap *map);
} rdbSetFam;

enum { RDB_MAX_OUT_HDR = 32 };

typedef struct rdbOutHead {       /* a header as read                         */
    double time;
    int    mask, masks[2];
    char   maskForm;
    int    outIndx;
    int    length;                /* of the list of integers                  */
    int    counts[RDB_MAX_OUT_HDR];   /* by row of the header table           */
} rdbOutHead;

struct rdbHd {
    int     magic;
    char   *problem, *dir, *pdir, *savedCwd;
    int     dirDepth, verbose, runId, remote;
    int     lastUpdate, dirTime;
    iopFileId dirId;              /* of dir, just before its names were read  */
    int     dirSettled;           /* what is made in dir after that shows in its time */
    int     nFiles, nRunFiles, nAuxFiles, nUndefFiles;
    char  **files;                /* run files, auxiliary files, the rest; each part sorted by bytes */
    char  **auxFiles, **undefFiles;
    dic    *fileDic;              /* name of a container's file to the container's handle */
    int     nContainers;
    char  **containerNames;       /* the names are those in `files`           */
    iopHd **containers;           /* null: not open                           */
    iopFileId *containerIds;      /* just before they were opened             */
    int     nRuns, maxRunId;
    int    *runIds, *runIdHash;
    int     nTruns, maxTrunId, trunId;
    int    *trunIds, *trunRunIds;
    runHd  *run;
};

#ifdef __cplusplus
extern "C" {
#endif

/* rdbNew.cpp: the directory guard around every operation that touches files; nests */
void rdbEnter(rdbHd *hd);
void rdbLeave(rdbHd *hd);
/* rdbSetError, then 0: "return rdbFail(...)" */
int  rdbFail(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* What a getter answers: the value at `data`, and 1. An absent text is the empty one; a long one is cut. */
static inline int rdbPutInt(void *data, int value) { return *(int *) data = value, 1; }
static inline int rdbPutReal(void *data, double value) { return *(double *) data = value, 1; }
static inline int rdbPutText(void *data, const char *text)
{
    return snprintf((char *) data, SYS_TEXT, "%s", text ? text : ""), 1;
}

/* rdbKeys.cpp: the row of a key, one of a constant table, or null */
const rdbKeyRow *rdbFindKey(const char *name);

/* rdbUpdate.cpp: reads the directory: its files, the runs and trace runs in it. 1; what fails does not return */
int  rdbUpdateDir(rdbHd *hd);
/* What a getter that reads a watched file stores in runHd::fileTimes[file] when it has read it; asked for before it is
   opened, so that rdbUpdate tells all that comes after. 0 if the last scan did not see it. */
int  rdbWatchedTime(rdbHd *hd, int file);
/* Closes the containers, what the open run has open first, and forgets all names of files; runs and trace runs stay */
void rdbDropFiles(rdbHd *hd);

/* rdbOpenRun.cpp: 1 if the client information file of the open run is there and is not the one that was read */
int  rdbRunChanged(const rdbHd *hd);

/* rdbCli.cpp, rdbSets.cpp: the client information file */
char *rdbNewCliFile(rdbHd *hd, const char *token);
/* One line of the file in pass 1 (VOL and SFS) or 2 (all others): 0 at the end mark */
int   rdbReadCliLine(rdbHd *hd, const char *line, int pass);
/* Appends a cleared record, which the list owns, and returns it */
void *rdbListNew(rdbList *list, size_t size);
/* Position of the last record of this name, and of the first one behind a position; or -1 */
int   rdbFindName(rdbList *list, const char *name);
int   rdbFindNextName(rdbList *list, const char *name, int behind);
void  rdbReconcileSets(rdbHd *hd);
void  rdbCreateVolSet(rdbHd *hd, rdbElmSet *set, int volumesSeen);
void  rdbCreateSfs(rdbHd *hd, rdbSrfSet *set, int fam, int setsSeen);
void  rdbSetTopologies(rdbHd *hd);

/* rdbSrf.cpp */
extern const rdbSrfFam rdbSrfFams[RDB_N_SRF_FAMS];
/* How many distinct nodes a set has, and the nodes of each of its surfaces as its element has them: nSrfNodes per
   surface, user ids. Failures carry the name of the getter of `key`. 1, or 0 and the error text. */
int    rdbNSrfNodes(rdbHd *hd, const char *key, int fam, int i, int *n);
int    rdbGetSrfCnn(rdbHd *hd, const char *key, int fam, int i, int *cnn);
/* Keeps a count of distinct nodes, -1 until now, that was made again. With a dest, which the caller sized by the kept
   count, a file that has changed since does not return: "Inconsistent nNodes <%d> vs <%d>". */
void   rdbKeepNodeCount(const char *function, int *kept, int nNodes, const int *dest);
/* Opens the node list file of output surface set i and reads up to "nNodes": a held file, or null and ".osn file not
   found". Failures carry `function` as their function name. */
iopHd *rdbOpenNodeList(rdbHd *hd, const char *function, int i, int *nNodes);

/* rdbGrad.cpp: nodal arrays computed from an output step; aux: 0 volume, 1 strain rate, 2 velocity magnitude, 3
   vorticity, 4 CFL number. 1, or 0 and the error text. */
int    rdbGetOutAux(rdbHd *hd, int aux, int iStep, double *dest);
void   rdbDropGrad(runHd *run);

/* rdbExt.cpp. `name` begins a family's keys ("ora"); dest: nNodes rows of the variable's width; outIdx: position in
   outSteps; rows and cols: the room in dest, whose product counts. 1, also if there is nothing at that step; or 0 and
   the error text. The first for a family with steps, the second for one of surface sets. */
int    rdbGetOutStepValues(rdbHd *hd, const char *name, double *dest, int var, int outIdx, int rows, int cols);
int    rdbGetSetValuesAtNodes(rdbHd *hd, const char *name, double *dest, int var, int outIdx, int rows, int cols);
void   rdbDropExtInfo(runHd *run);
void   rdbDropExt(runHd *run);

/* rdbLog.cpp */
void   rdbDropLog(rdbLogInfo **log);

/* rdbDirs.cpp */
void   rdbDropDirs(runHd *run);

/* rdbUtil.cpp: files of the directory, decomposition, user ids */

/* The form bit of the first listed name that begins with `name`, run files before auxiliary ones before the rest; 0 if
   there is none. */
int    rdbFindFile(rdbHd *hd, const char *name);
/* Is there a listed name that is just this one? */
int    rdbIsListed(const rdbHd *hd, const char *name);
/* Finds <base>0.<ext>, or else <base>x.<ext>, which *merged tells (1 also if there is neither). path: SYS_TEXT bytes,
   takes the file's path without the form's suffix. The form bit, or 0 and ".<ext> file not found". */
int    rdbFindFormFile(rdbHd *hd, const char *base, const char *ext, char *path, int *merged);
/* The same, opened: the caller's, or null and the error text. May not return, as the other openings. */
iopHd *rdbOpenFormFile(rdbHd *hd, const char *base, const char *ext, int *merged);
/* Opens a path: from the container that has a file of its last component, whatever the directory in front; else from
   the disk, in the form of opt. opt: form bit and the rest of the option word. rdbOpenReadFile adds IOP_READ. */
iopHd *rdbOpenDirFile(rdbHd *hd, const char *path, int opt);
iopHd *rdbOpenReadFile(rdbHd *hd, const char *path, int opt);
/* The same, but what lies on the disk goes before what a container has: for surface sets' files. rdbOpenListedFile does
   so for a name of the directory without suffix, in whatever form it is listed; null if it is not. */
iopHd *rdbOpenDiskFile(rdbHd *hd, const char *path, int opt);
iopHd *rdbOpenListedFile(rdbHd *hd, const char *name);
/* The file on the disk that rdbOpenDirFile reads from: the container's, or that of the path. name: SYS_TEXT bytes.
   Gives its form bit. */
int    rdbDiskName(rdbHd *hd, const char *path, int opt, char *name);
/* Looks at the file that rdbOpenDirFile opens by that path, as iopLookAt does */
int    rdbLookAtFile(rdbHd *hd, const char *path, int opt, iopFileId *id);
/* The same, before it is read. One that changed a moment ago is given that moment to come to rest. 1 if it did: then it
   was not written while it was read if it looks the same behind that. */
int    rdbLookAtRest(rdbHd *hd, const char *path, int opt, iopFileId *id);
/* How often what changed while it was read is waited for, a second each, before it is read again */
enum { RDB_WAITS = 2 };
/* "file <%s> changed while it was read", with its name on the disk: 0 */
int    rdbFailChanged(rdbHd *hd, const char *path, int opt);
/* Opens a name of the directory to read, in the form of the run's data files, and waits long for it */
iopHd *rdbOpenRunFile(rdbHd *hd, const char *name);
/* A name or path of at most SYS_TEXT bytes. One that is cut is no file's: names on disk are far shorter. */
void   rdbFormat(char *text, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* A getter's own file, which the run holds while it is read: a read that jumps out then loses nothing, since the next
   one, or closing the run, closes the file. One file at a time. rdbHoldFile returns fh. */
iopHd *rdbHoldFile(rdbHd *hd, iopHd *fh);
void   rdbCloseHeld(rdbHd *hd);

/* Reads the run's .ddc into sdNNodes and sdNodes, once; a run without subdomains needs none. 1, or 0 and ".ddc file not
   found" or "Inconsistent .ddc file". A damaged file does not return. */
int    rdbReadDdc(rdbHd *hd);
/* Opens the .ddc and reads up to "nElems": a held file, or null after rdbSetError */
iopHd *rdbOpenDdc(rdbHd *hd, int *nElems);

/* Hashes (mtx/mtxHash.h) from node user id to position and from element user id to row of the volume, and the volume's
   connectivity in user ids, nElemNodes per element. All are read at first use and stay the run's. 1, or 0 and the error
   text; a connectivity that cannot be read does not return. */
int    rdbGetUsrIdHash(rdbHd *hd, int **hash);
int    rdbGetVolUsrIdHash(rdbHd *hd, int volId, int **hash);
int    rdbGetVolCnn(rdbHd *hd, int volId, int **cnn);

/* rdbGeom.cpp: table files */

/* Opens a data file by the name in the client information file; form: iopGetFileOpt of it */
iopHd *rdbOpenDataFile(rdbHd *hd, const char *name, int form);
/* Reads part `part` of the nParts of a table file, whose rows and columns must be as given, row by row into ints or
   reals (the other null). The last part has the columns that the others, of one each, leave. Returns 1; what does not
   fit does not return, with `function` as the failure's function name. */
int    rdbReadTable(rdbHd *hd, const char *function, const char *file, int nParts, int nRows, int nCols, int part,
                    int *ints, double *reals);
/* The same of a file that was opened before, which is closed */
int    rdbReadOpenTable(rdbHd *hd, const char *function, iopHd *fh, int nParts, int nRows, int nCols, int part,
                        int *ints, double *reals);
/* A count of rows that its file cannot hold is refused before anybody sizes a buffer by it: 1, or 0 and the error text.
   A row has nInts integers and nReals reals. Small tables are taken as they come, and null, which is no file, refuses
   nothing. *fits remembers that the file was looked at and holds them. */
int    rdbRowsFit(rdbHd *hd, const char *file, int nRows, int nInts, int nReals, int *fits);

/* rdbInitOut.cpp, rdbOut.cpp: outputs on the run's nodes */

/* Builds the catalogue of a family, runHd::out[fam->cache], if it is not there. 1, or 0 and the error text; a damaged
   file does not return. Either way a failure leaves no catalogue and the counters as they were. */
int  rdbInitOut(rdbHd *hd);
int  rdbInitOutFam(rdbHd *hd, const rdbOutFam *fam);
/* The listed names that match an expression, made by the printf form: do any; or their steps, each in group 1, as
   info->steps and ->nSteps, ascending and distinct. Failures carry the catalogue's name. */
int  rdbAnyOutName(rdbHd *hd, const rdbOutFam *fam, const char *format, ...) __attribute__((format(printf, 3, 4)));
int  rdbFindOutSteps(rdbHd *hd, const rdbOutFam *fam, rdbOutInfo *info, const char *format, ...)
     __attribute__((format(printf, 4, 5)));
/* Reads the header of a file, whose counters must agree with the run's, and lists the variables of its mask. This and
   the next: 1, or 0 and the error text if the file is being written on and on. */
int  rdbReadOutVars(rdbHd *hd, const rdbOutFam *fam, const char *path, int form, rdbOutInfo *info, rdbOutHead *head);
/* The counters that were unset take the header's values, each one that is a width of a listed variable after a test
   against the size of the step's files, which begin with `base` and tell of nNodes nodes. Up to RDB_USUAL_WIDTH there
   is no such test. */
enum { RDB_USUAL_WIDTH = 64 };
void rdbKeepOutCounts(rdbHd *hd, const rdbOutFam *fam, const rdbOutInfo *info, const rdbOutHead *head,
                      const char *base, int nNodes);
/* The time that a file of the family tells */
int  rdbReadOutTime(rdbHd *hd, const rdbOutFam *fam, const char *path, int form, double *time);
/* Reads the header of a step file; the next key is "nNodes". check: the run whose counters the file must agree with (it
   must hold fh), or null. Failures carry the name of the catalogue then, or else that of the values. */
void rdbReadOutHead(iopHd *fh, const rdbOutFam *fam, rdbHd *check, rdbOutHead *head);
/* What the names of a step's files begin with, "<problem>.<run>_<step>_"; base: SYS_TEXT bytes */
void rdbOutBase(rdbHd *hd, int step, char *base);
/* rdbFindFile and rdbFindFormFile for a family's files, whose names begin with `base`. Those of the newest step have
   the form of the run's data files, and no merged form. Its first part is looked for on the disk; the others are taken
   to come, so that whoever opens one waits for its writer. */
int  rdbFindOutPart(rdbHd *hd, const rdbOutFam *fam, const char *base, int part);
int  rdbFindOutFirst(rdbHd *hd, const rdbOutFam *fam, const char *base, char *path, int *merged);
/* The newest step that lies in the directory now, of a family of the newest step; -1 if there is none */
int  rdbNewestOutStep(rdbHd *hd, const rdbOutFam *fam);
/* Reals per node of a variable; var: row of the family's table */
int  rdbOutVarWidth(rdbHd *hd, const rdbOutFam *fam, int var);
void rdbDropOutInfo(rdbOutInfo **info);

#define OUT_FAM(CACHE, Fam, fam, ...) extern const rdbOutFam fam##Fam;
#include "rdb/rdbOutFams.def"
#undef OUT_FAM

/* rdbStep.cpp */

/* Reads an array to data, nRows rows of width; rows that no part has are zero. The values are those of one state of the
   files, as far as these tell: an array whose files change is read anew, twice after a second's wait. 1, or 0 and
   ".<ext> file not found" or "file <%s> changed while it was read"; may not return. The first leaves in data what had
   been read, the second zeros. Files stay open for the next array of the step. */
int  rdbReadStep(rdbHd *hd, const rdbStepArray *array, double *data);
/* What was computed from a step of a family on the run's nodes, kept as long as the files of the step are and stay what
   they were: null if there is nothing. To keep it (the last reading must have been one of that step) takes it from the
   caller, or leaves it there if it is not sure what the files are. */
const double *rdbKeptGrad(rdbHd *hd, const rdbOutFam *fam, int step);
void          rdbKeepGrad(rdbHd *hd, const rdbOutFam *fam, int step, double **grad);
/* Drops what the run keeps between two requests, or was left with by a jump: open files, half a catalogue, ids */
void rdbDropReading(runHd *run);

/* rdbSetOut.cpp */
void rdbDropSetMap(rdbSetMap **map);

#ifdef __cplusplus
}
#endif
#endif
