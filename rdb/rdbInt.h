#ifndef RDB_RDBINT_H
#define RDB_RDBINT_H

/* rdbInt.h: the records of an open database and what the files of rdb/ share. No one else includes it.
 *
 * A handle (rdbHd) knows the directory: its files and the runs in it. The open run (runHd) knows what the run's
 * client information file says: lists of set records, a set's id being its position in its list, and the caches that
 * getters fill on first use. Everything in a record is owned by it unless its comment says otherwise; null, or a
 * count of -1, means not there yet, and closing knows that state. */

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

typedef struct rdbList { int n, cap; void **rec; } rdbList;

typedef struct rdbVolSet {        /* VOL */
    char   *name, *file;
    int     nElems, type, nElemNodes;
    int     elmId;                /* parent element set                      */
    int    *usrIdHash;            /* element user id to row; null until used */
    int    *cnn;                  /* connectivity; null until used           */
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

typedef struct rdbSrfSet {        /* all sixteen families */
    char   *name, *file;
    int     sharesTexts;          /* name and file belong to the family record that this SFS was made from */
    char  **sfsNames;             /* nSfsNames of them                       */
    int     nSfsNames;
    int    *sfsIds;               /* nSfss                                   */
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
    int     gapFct;               /* SSI                                     */
    double  gap, creaseAng;       /* SSI                                     */
    int     aggl, agglCnt;        /* RSF                                     */
    double  agglAng, agglRad;     /* RSF                                     */
    tplRec *tpl;                  /* not owned                               */
    int     fits;
} rdbSrfSet;

typedef struct rdbNodeSet {       /* NBC, ZBC, PBC */
    char *name, *file;
    int   nRows, number, width;
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
    int   *nElems, *nNodes, *parentIds, *types, *nElemNodes, *media, *volIds;
    int    flag, quad;
    int    nVols, nRead;          /* entries announced, entries read         */
} rdbOel;

/* ------------------------------------------------------------------------------------------------- output families */

typedef struct rdbOutInfo {       /* catalogue of one output family */
    int     nSteps;
    int    *steps;                /* ascending, distinct                     */
    double *times;                /* -1.0: not read yet                      */
    int     mask, masks[2];
    char    maskForm;             /* 1: one mask word, 2: two                */
    int     nVars;
    int    *varIds;               /* rows of the family's variable table     */
} rdbOutInfo;

enum { RDB_OUT_OUT, RDB_N_OUT_FAMS };                       /* caches of runHd, one per output family */

typedef struct rdbStepFiles rdbStepFiles;                   /* step files kept open: rdbOut.cpp */

/* ------------------------------------------------------------------------------------------------------- the run */

enum { RDB_N_FILE_TIMES = 15 };

typedef struct runHd {
    int    runId;
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
    int   *sdNNodes;                                                /* null until the .ddc is read */
    int  **sdNodes;
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
    rdbStepFiles *stepFiles;
} runHd;

struct rdbHd {
    int     magic;
    char   *problem, *dir, *pdir, *savedCwd;
    int     dirDepth, verbose, runId, remote;
    int     lastUpdate, dirTime;
    int     nFiles, nRunFiles, nAuxFiles, nUndefFiles;
    char  **files;                /* run files, auxiliary files, the rest; each part sorted by bytes */
    char  **auxFiles, **undefFiles;
    dic    *fileDic;              /* name to open container, or 0 */
    int     nContainers;
    char  **containerNames;
    iopHd **containers;
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

/* rdbKeys.cpp */
const rdbKeyRow *rdbFindKey(const char *name);

/* rdbUpdate.cpp */
int rdbUpdateDir(rdbHd *hd);

/* rdbCli.cpp, rdbSets.cpp: the client information file */
char *rdbNewCliFile(rdbHd *hd, const char *token);
void  rdbListAdd(rdbList *list, void *rec);

/* rdbUtil.cpp: files of the directory, decomposition, user ids */
int    rdbReadDdc(rdbHd *hd);
int    rdbFindFile(rdbHd *hd, const char *name);
int    rdbFindFormFile(rdbHd *hd, const char *base, const char *ext, char *path, int *merged);   /* path: SYS_TEXT */
iopHd *rdbOpenFormFile(rdbHd *hd, const char *base, const char *ext, int *merged);
iopHd *rdbOpenDirFile(rdbHd *hd, const char *path, int opt);
iopHd *rdbOpenReadFile(rdbHd *hd, const char *path, int opt);
iopHd *rdbOpenRunFile(rdbHd *hd, const char *name);
int    rdbGetUsrIdHash(rdbHd *hd, int **hash);
int    rdbGetVolUsrIdHash(rdbHd *hd, int volId, int **hash);
int    rdbGetVolCnn(rdbHd *hd, int volId, int **cnn);

/* rdbGeom.cpp: table files. Reads part `part` of the `nParts` of a table file whose rows and columns must be as given,
   into ints or reals (one of them null); `function` is the name that a failure carries. */
iopHd *rdbOpenDataFile(rdbHd *hd, const char *name, int form);
int    rdbReadTable(rdbHd *hd, const char *function, const char *file, int nParts, int nRows, int nCols, int part,
                    int *ints, double *reals);
/* A count of rows that its file cannot hold is refused before anybody sizes a buffer by it: 1, or 0 and the error
   text. rowBytes: bytes of a row in binary form. *fits remembers a good answer. */
int    rdbRowsFit(rdbHd *hd, const char *file, int nRows, int nInts, int nReals, int *fits);

/* rdbInitOut.cpp, rdbOut.cpp */
int  rdbInitOut(rdbHd *hd);
void rdbDropOutInfo(rdbOutInfo **info);
void rdbDropStepFiles(runHd *run);

#ifdef __cplusplus
}
#endif
#endif
