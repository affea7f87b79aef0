/* rdbCli.cpp: the lines of the client information file.
 *
 * The file is the run's table of contents. Its lines are "#@ <keyword> <rest>"; all others are comments. How the rest
 * of a line looks is a row of the table `rows`: keyword, the list that gets a new record, and a form, which has a
 * format and the record's fields in the format's order. What a form cannot tell is its routine, called when the fields
 * are stored.
 *
 * Formats are those of scanf, read by scan(): a value that does not come ends the line there, and what stands behind
 * keeps its first value. No line is refused for being short. Refused, by a failure that does not return, are counts
 * that no set can have; ids are compared in rdbSets.cpp, when all sets are known.
 *
 * Records are linked into their list before anything is put into them, so that closing the run finds all.
 *
 * In this file: the scanner, fields, name lists, what single lines do, the table. */

#include "rdb/rdbInt.h"

#include <limits.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

/* -------------------------------------------------------------------------------------------------- the scanner */

enum { MAX_VALUES = 16 };

typedef struct cliValue {         /* a value of a line                        */
    const char *text;             /* in the line, without a zero at its end   */
    int         len;
    int         num;
    double      real;
} cliValue;

static int isBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

static const char *skipBlanks(const char *s)
{
    while (isBlank(*s)) ++s;
    return s;
}

static const char *skipWord(const char *s)
{
    while (*s && !isBlank(*s)) ++s;
    return s;
}

/* Reads "%d": the end of the number, or null. A number beyond 32 bits becomes the last that there is. */
static const char *scanInt(const char *s, int *num)
{
    char *end;
    const long n = strtol(s, &end, 10);
    *num = n > INT_MAX ? INT_MAX : n < INT_MIN ? INT_MIN : (int) n;
    return end > s ? end : NULL;
}

/* Reads "%le", whatever the process' locale takes for a decimal point. A number cut in its exponent is none. */
static const char *scanReal(const char *s, double *real)
{
    char *end;
    *real = strtod_l(s, &end, sysPlainLocale());
    const int cut = (*end == 'e' || *end == 'E') && !memchr(s, *end, end - s);
    return end > s && !cut ? end : NULL;
}

/* Reads s by a format of blanks, characters that must be there, %s, %d, %le and %[^"], each with an optional * that
   drops the value. The number of values that came. */
static int scan(const char *s, const char *format, cliValue *v)
{
    int n = 0;
    for (const char *f = format; *f; ++f) {
        if (isBlank(*f)) {
            s = skipBlanks(s);
            continue;
        }
        if (*f != '%') {
            if (*s++ != *f) return n;
            continue;
        }
        const int   drop = f[1] == '*';
        cliValue    value = {};
        const char *end = NULL;
        f += 1 + drop;
        if (*f != '[') s = skipBlanks(s);
        switch (*f) {
        case 's': end = skipWord(s); break;
        case 'd': end = scanInt(s, &value.num); break;
        case 'l': end = scanReal(s, &value.real); f += strlen("le") - 1; break;
        case '[': end = s + strcspn(s, "\""); f += strlen("[^\"]") - 1; break;
        }
        if (!end || end == s) return n;
        value.text = s;
        value.len  = (int) (end - s);
        if (!drop) v[n++] = value;
        s = end;
    }
    return n;
}

/* ------------------------------------------------------------------------------------------------------- fields */

enum {
    END_OF_FIELDS,
    FILE_FIELD,       /* a file token, made usable                                                       */
    NAME_FIELD,       /* a set's name                                                                    */
    TEXT_FIELD,       /* any other text                                                                  */
    INT_FIELD,
    COUNT_FIELD,      /* not negative                                                                    */
    WIDTH_FIELD,      /* a count of columns: some more can be added to it without running out of numbers */
    REAL_FIELD,
    NO_FIELD          /* not kept here                                                                   */
};

typedef struct cliField {
    int         kind;
    int         offset;           /* in the record; NOT_STORED               */
    const char *name;             /* in messages                             */
} cliField;

enum { NOT_STORED = -1 };

typedef struct cliForm  cliForm;
typedef struct cliRow   cliRow;

typedef struct cliLine {          /* a line at work                           */
    rdbHd        *hd;
    runHd        *run;
    rdbCli       *cli;
    const cliRow *row;
    const char   *rest;           /* of the line, behind the keyword          */
    void         *rec;            /* the new record; runHd; or null           */
    int           n;              /* values that came                         */
    cliValue      v[MAX_VALUES];
} cliLine;

struct cliForm {
    int             pass;         /* 1 or 2                                   */
    const char     *format;       /* null: the rest is one text               */
    const cliField *fields;       /* null: none                               */
    void          (*act)(cliLine *l);   /* null: nothing more                 */
};

enum { IN_RUN = -1, NO_RECORD = -2 };

struct cliRow {
    const char    *keyword;
    int            list;          /* offset in runHd of the list that gets a record, IN_RUN or NO_RECORD */
    size_t         size;          /* of the record                            */
    const cliForm *form;
    int            fam;           /* RDB_CBC ... of a surface set's line      */
};

static int keptLen(const cliValue *v)
{
    return v->len < SYS_TEXT ? v->len : SYS_TEXT - 1;
}

/* Texts are kept up to 8191 characters. A line without the text gives the empty one. */
static void copyText(const cliLine *l, int k, char *text)
{
    const int len = k < l->n ? keptLen(&l->v[k]) : 0;
    if (len) memcpy(text, l->v[k].text, len);
    text[len] = 0;
}

static char *newText(const cliLine *l, int k)
{
    char *text = memNew(char, k < l->n ? keptLen(&l->v[k]) + 1 : 1);
    copyText(l, k, text);
    return text;
}

static int textIs(const cliLine *l, int k, const char *text)
{
    const int len = k < l->n ? keptLen(&l->v[k]) : 0;
    return strlen(text) == (size_t) len && (len == 0 || memcmp(text, l->v[k].text, len) == 0);
}

/* Puts a new text in place of a former one */
static void setText(char **to, char *text)
{
    memFree(*to);
    *to = text;
}

/* Keeps the line's file token and name, if they came, for a DOP line to come */
static void keepWords(const cliLine *l)
{
    const cliField *fields = l->row->form->fields;
    for (int k = 0; fields && k < l->n && fields[k].kind != END_OF_FIELDS; ++k) {
        if (fields[k].kind == FILE_FIELD) copyText(l, k, l->cli->file);
        if (fields[k].kind == NAME_FIELD) copyText(l, k, l->cli->name);
    }
}

static char *newFile(const cliLine *l)
{
    return rdbNewCliFile(l->hd, l->cli->file);
}

/* A count that no set can have ends the open. name: of the record; null: of the run */
static int checkCount(const cliLine *l, const char *name, const char *what, int n, int64_t max)
{
    const char *keyword = l->row->keyword;
    if (n >= 0 && n <= max) return n;
    if (!name) sysFailIn("rdbOpenRun", "Invalid %s <%d> for %s", what, n, keyword);
    sysFailIn("rdbOpenRun", "Invalid %s <%d> for %s \"%s\"", what, n, keyword, name);
}

/* The same of sets that the file must name, each in some characters of its own */
static int takeSets(cliLine *l, const char *name, const char *what, int n)
{
    checkCount(l, name, what, n, l->cli->setsLeft);
    l->cli->setsLeft -= n;
    return n;
}

/* Records begin with their name */
static void storeCount(const cliLine *l, const cliField *field, int n, int max)
{
    const char *name = l->row->list == IN_RUN ? NULL : *(char **) l->rec;
    *(int *) ((char *) l->rec + field->offset) = checkCount(l, name, field->name, n, max);
}

static void storeField(const cliLine *l, const cliField *field, int k)
{
    if (field->offset == NOT_STORED) return;
    void *to = (char *) l->rec + field->offset;
    const int came = k < l->n;
    switch (field->kind) {
    case FILE_FIELD: if (came) setText((char **) to, newFile(l)); break;
    case NAME_FIELD:
    case TEXT_FIELD: setText((char **) to, newText(l, k)); break;
    case INT_FIELD: if (came) *(int *) to = l->v[k].num; break;
    case COUNT_FIELD: if (came) storeCount(l, field, l->v[k].num, INT_MAX); break;
    case WIDTH_FIELD: if (came) storeCount(l, field, l->v[k].num, INT_MAX - 2); break;
    case REAL_FIELD: if (came) *(double *) to = l->v[k].real; break;
    }
}

static void storeFields(const cliLine *l)
{
    const cliField *fields = l->row->form->fields;
    for (int k = 0; fields && fields[k].kind != END_OF_FIELDS; ++k) storeField(l, &fields[k], k);
}

char *rdbNewCliFile(rdbHd *hd, const char *token)
{
    if (!hd->run) sysFail("Uninitialize runHd");
    const char  *runDir = hd->run->dir;
    const size_t len = runDir ? strlen(runDir) : 0;
    if (!runDir || strncmp(token, runDir, len) != 0 || token[len] != '/') return memDup(token);

    /* the run was written elsewhere: what follows the directory then lies in the directory now */
    const size_t size = strlen(hd->dir) + strlen(token + len) + 1;
    char *file = memNew(char, size);
    snprintf(file, size, "%s/%s", hd->dir, token + len + 1);
    return file;
}

/* --------------------------------------------------------------------------------------------------- name lists */

/* Further names are found by counted characters, one blank between two names: where a name does not start at once,
   the rest are lost. The count is counted as it would be printed. */
static int firstNextName(const cliLine *l)
{
    char digits[16];
    const int nDigits = snprintf(digits, sizeof digits, "%d", l->v[1].num);
    return l->v[0].len + nDigits + l->v[2].len + 7;             /* four quotes and three blanks */
}

/* Takes the names of a list line and looks them up. A name that is lost, or that no record has, stands for the first
   record. Only the first name of a count below 2 is read. */
static void bindNames(cliLine *l, const char *set, rdbList *among, const char *what, char ***names, int *nNames,
                      int **ids, int *nIds)
{
    const int len   = (int) strlen(l->rest);
    const int count = takeSets(l, set, what, l->v[1].num);
    const int n     = count > 1 ? count : 1;
    memFreeF(*names, 0, *nNames, __FILE__, __LINE__);
    *names  = NULL;
    *nNames = *nIds = 0;
    memFree(*ids);
    *names  = memNewZ(char *, n);
    *nNames = n;
    *ids    = memNewZ(int, n);
    *nIds   = count;

    int pos = firstNextName(l);
    for (int k = 0; k < n; ++k) {
        if (k > 0) {
            if (pos >= len || scan(l->rest + pos, "\"%[^\"]\" ", &l->v[2]) < 1) break;
            pos += l->v[2].len + 3;
        }
        (*names)[k] = newText(l, 2);
        const int id = rdbFindName(among, (*names)[k]);
        if (id >= 0) (*ids)[k] = id;
    }
}

static void *lastOf(const rdbList *list)
{
    return list->n ? list->rec[list->n - 1] : NULL;
}

/* CNN.VOL: the volumes of the last CNN */
static void bindVols(cliLine *l)
{
    rdbElmSet *set = (rdbElmSet *) lastOf(&l->run->elm);
    if (!set) rdbSetError("element connectivity not found");
    else if (!textIs(l, 0, set->name)) rdbSetError("inconsistent element and volume set");
    else if (l->n > 2)
        bindNames(l, set->name, &l->run->vol, "nElmVols", &set->volNames, &set->nVolNames, &set->volIds, &set->nVols);
}

/* <keyword>.SFS: the surface sets of the family's last line */
static void bindSfss(cliLine *l)
{
    rdbList   *sfs = &l->run->srf[RDB_SFS];
    rdbSrfSet *set = (rdbSrfSet *) lastOf(&l->run->srf[l->row->fam]);
    if (!set || !sfs->n) rdbSetError("surface connectivity not found");
    else if (!textIs(l, 0, set->name))
        rdbSetError("inconsistent %s and surface set", rdbSrfFams[l->row->fam].keyword);
    else if (l->n > 2)
        bindNames(l, set->name, sfs, "number of surface sets", &set->sfsNames, &set->nSfsNames, &set->sfsIds,
                  &set->nSfss);
}

/* SFS.SFS: id and neighbor */
static void setNeighbor(cliLine *l)
{
    const rdbList *sfs = &l->run->srf[RDB_SFS];
    if (l->n < 2) return;
    const int id = l->v[0].num;
    if (id < 0 || id >= sfs->n) rdbSetError("surface set <%d> not found", id);
    else ((rdbSrfSet *) sfs->rec[id])->neighbor = l->v[1].num;
}

/* ------------------------------------------------------------------------------------------ what single lines do */

/* FMT: an option word that comes from a file may say what the data look like, not that they be written or deleted */
static void madeOpt(cliLine *l)
{
    l->run->opt &= ~(IOP_WRITE | IOP_APPEND | IOP_DELETE | IOP_RSH | IOP_SOCKET);
}

static void madeCrd(cliLine *l)
{
    runHd *run = l->run;
    run->nInitNodes = run->nNodes;
    if (run->crdFile) setText(&run->initCrdFile, memDup(run->crdFile));
}

/* The line has neither file nor name: it takes the last that came */
static void madeDop(cliLine *l)
{
    rdbRecSet *rec = (rdbRecSet *) l->rec;
    rec->name = memDup(l->cli->name);
    rec->file = rdbNewCliFile(l->hd, l->cli->file);
}

static void madeNodeSet(cliLine *l)  { ((rdbNodeSet *) l->rec)->width = 1; }
static void madeNodePair(cliLine *l) { ((rdbNodeSet *) l->rec)->width = 2; }

/* ZBC: there is one set of wall nodes, that of the last line */
static void zbc(cliLine *l)
{
    rdbNodeSet *&set = l->run->zbc;
    if (set) {
        memFree(set->name);
        memFree(set->file);
        memFree(set);
    }
    l->rec = set = memNewZ(rdbNodeSet, 1);
    storeFields(l);
    madeNodeSet(l);
}

static void madeElm(cliLine *l)
{
    rdbCreateVolSet(l->hd, (rdbElmSet *) l->rec, l->cli->volumesSeen);
}

static void madeVol(cliLine *l)
{
    l->cli->volumesSeen = l->cli->setsSeen = 1;
}

/* SFS: the line may name the volume that it gives by number */
static void madeSfs(cliLine *l)
{
    rdbSrfSet *set = (rdbSrfSet *) l->rec;
    l->cli->setsSeen  = 1;
    set->nNodes       = -1;
    set->elmId        = -1;
    set->volNameGiven = l->n > 9 && textIs(l, 8, "volName");
    if (set->volNameGiven) set->volName = newText(l, 9);
}

/* What all other surface lines have in common. The element set that a set names should have been read before it: only
   then is its volume known. */
static void madeSrf(cliLine *l)
{
    const rdbList *elm = &l->run->elm;
    rdbSrfSet     *set = (rdbSrfSet *) l->rec;
    const int     *volIds = NULL;
    if (set->elmId >= 0 && set->elmId < elm->n) volIds = ((rdbElmSet *) elm->rec[set->elmId])->volIds;
    set->nNodes = -1;
    set->nSfss  = 1;
    set->volId  = volIds ? volIds[0] : -1;
    rdbCreateSfs(l->hd, set, l->row->fam, l->cli->setsSeen);
}

/* CBC: a value at the end counts only under its own label */
static void madeCbc(cliLine *l)
{
    ((rdbSrfSet *) l->rec)->actType = l->n > 10 && textIs(l, 9, "actType") ? l->v[10].num : 1;
    madeSrf(l);
}

/* OAD: the direction file of the OAA of that name */
static void oad(cliLine *l)
{
    const int i = l->n > 1 ? rdbFindName(&l->run->oaa, l->cli->name) : -1;
    if (i >= 0) setText(&((rdbOaa *) l->run->oaa.rec[i])->dirFile, newFile(l));
}

static void madeOvs(cliLine *l) { l->cli->lastOvs = (rdbOutMesh *) l->rec; }
static void madeOve(cliLine *l) { l->cli->lastOve = (rdbOutMesh *) l->rec; }

/* VAS, VAE: the second file of the OVS or OVE of that name. The numbers go, before the name is looked for, to the
   record that was made or found last: they are right only behind the line of their own record. */
static void addMesh(cliLine *l, rdbList *list, rdbOutMesh **last, const char *nRows, const char *nRowNodes)
{
    const char *name = l->cli->name;
    if (*last && l->n > 2) (*last)->nRows = checkCount(l, name, nRows, l->v[2].num, INT_MAX);
    if (*last && l->n > 3) (*last)->nRowNodes = checkCount(l, name, nRowNodes, l->v[3].num, INT_MAX - 2);
    const int i = l->n > 1 ? rdbFindName(list, name) : -1;
    if (i < 0) return;
    *last = (rdbOutMesh *) list->rec[i];
    setText(&(*last)->file2, newFile(l));
}

static void vas(cliLine *l) { addMesh(l, &l->run->ovs, &l->cli->lastOvs, "nOvsSrfs", "nOvsSrfNodes"); }
static void vae(cliLine *l) { addMesh(l, &l->run->ove, &l->cli->lastOve, "nOveElems", "nOveElemNodes"); }

/* OEL: a set of output elements; its volumes follow, a line each. The file's size bounds what may be announced. */
static void madeOel(cliLine *l)
{
    rdbOel *oel = (rdbOel *) l->rec;
    runHd  *run = l->run;
    if (!l->cli->volumesSeen) oel->flag = oel->nVols = 1;
    const int n = oel->nVols;
    oel->nVols = 0;
    oel->nVols = takeSets(l, oel->name, "nOelVols", n);
    oel->files      = memNewZ(char *, n);
    oel->nElems     = memNewZ(int, n);
    oel->nNodes     = memNewZ(int, n);
    oel->parentIds  = memNewZ(int, n);
    oel->types      = memNewZ(int, n);
    oel->nElemNodes = memNewZ(int, n);
    oel->media      = memNewZ(int, n);
    oel->volIds     = memNewZ(int, n);
    oel->fits       = memNewZ(int, n);
    sysFillInts(oel->nNodes, n, -1);
    if (l->cli->volumesSeen || !run->elm.n) return;
    const rdbElmSet *elm = (const rdbElmSet *) run->elm.rec[oel->parentIds[0]];
    if (elm->volIds) oel->volIds[0] = elm->volIds[0];
}

/* The volume that an OEL.VOL line means: by number and number of elements, or by name if it gives one */
static int findOelVol(const cliLine *l, int volId)
{
    rdbList   *list = &l->run->vol;
    const int  known = volId >= 0 && volId < list->n;
    rdbVolSet *vol = known ? (rdbVolSet *) list->rec[volId] : NULL;
    if (l->n > 8 && textIs(l, 8, "volName")) {
        char name[SYS_TEXT];
        copyText(l, 9, name);
        if (known && strcmp(vol->name, name) == 0) return volId;
        const int found = rdbFindName(list, name);
        if (found < 0) sysFailIn("rdbOpenRun", "Cannot find volName %s for OEL.VOL", name);
        return found;
    }
    if (!known) sysFailIn("rdbOpenRun", "OEL.VOL volId <%d> not found", volId);
    if (l->n < 3 || l->v[2].num != vol->nElems)
        sysFailIn("rdbOpenRun", "Inconsistent volume of OEl.VOL %s", vol->name);
    return volId;
}

static int numberAt(const cliLine *l, int k)
{
    return k < l->n ? l->v[k].num : 0;
}

/* OEL.VOL: the next volume of the last OEL */
static void oelVol(cliLine *l)
{
    rdbOel *oel = (rdbOel *) lastOf(&l->run->oel);
    if (!oel) {
        rdbSetError("element output not found");
        return;
    }
    const int volId = findOelVol(l, numberAt(l, 6));
    if (!textIs(l, 1, oel->name) || oel->nRead >= oel->nVols) {
        rdbSetError("inconsistent element and volume set");
        return;
    }
    const int k = oel->nRead++;
    oel->files[k]      = newFile(l);
    oel->nElems[k]     = checkCount(l, oel->name, "nOelElems", numberAt(l, 2), INT_MAX);
    oel->types[k]      = numberAt(l, 3);
    oel->nElemNodes[k] = checkCount(l, oel->name, "nOelElemNodes", numberAt(l, 4), INT_MAX - 2);
    oel->parentIds[k]  = numberAt(l, 6);
    oel->media[k]      = numberAt(l, 7);
    oel->volIds[k]     = volId;
}

/* SPC: more species than there are places for are passed over */
static void spc(cliLine *l)
{
    runHd *run = l->run;
    if (run->nSpecs < 0) run->nSpecs = 0;
    if (run->nSpecs >= RDB_MAX_SPECIES) return;
    setText(&run->speciesNames[run->nSpecs++], newText(l, 0));
}

/* MFD: the arrays are as long as the power of two that is not below their count */
static void mfd(cliLine *l)
{
    runHd    *run = l->run;
    const int n = run->nFieldNames;
    if ((n & (n - 1)) == 0) {
        const int64_t cap = n ? 2 * (int64_t) n : 1;
        run->fieldNames = (char **) memRealloc(run->fieldNames, memSize(n, sizeof(char *)),
                                               memSize(cap, sizeof(char *)), __FILE__, __LINE__, 0);
        run->fieldKinds = (int *) memRealloc(run->fieldKinds, memSize(n, sizeof(int)), memSize(cap, sizeof(int)),
                                             __FILE__, __LINE__, 0);
    }
    run->fieldKinds[n] = numberAt(l, 2);
    run->fieldNames[n] = newText(l, 0);
    run->nFields = ++run->nFieldNames;
}

/* -------------------------------------------------------------------------------------------------------- forms */

#define NAMED(kind, record, member, name) { kind##_FIELD, (int) offsetof(record, member), name }
#define FIELD(kind, record, member)       NAMED(kind, record, member, #member)
#define SEEN(kind)                        { kind##_FIELD, NOT_STORED, NULL }
#define DROP                              SEEN(NO)
#define END                               { END_OF_FIELDS, NOT_STORED, NULL }

/* texts that the formats are made of */
#define QUOTED   "\"%[^\"]\""
#define FILE_SET "%s " QUOTED                                       /* file, name           */
#define SRF_SET  FILE_SET " %*s %d %*s %d %*s %d %*s %d %*s %d %*s %d"

/* of the run */
static const cliField dateFields[]     = { FIELD(TEXT, runHd, date), END };
static const cliField versionFields[]  = { FIELD(TEXT, runHd, version), END };
static const cliField dirFields[]      = { FIELD(TEXT, runHd, dir), END };
static const cliField optFields[]      = { FIELD(INT, runHd, opt), END };
static const cliField nSdsFields[]     = { FIELD(COUNT, runHd, nSds), END };
static const cliField titleFields[]    = { FIELD(TEXT, runHd, title), END };
static const cliField subTitleFields[] = { FIELD(TEXT, runHd, subTitle), END };
static const cliField baseUnitFields[] = { FIELD(TEXT, runHd, baseUnit), END };
static const cliField rstFields[]      = { FIELD(TEXT, runHd, rstFromDir), FIELD(TEXT, runHd, rstFromProblem),
                                           FIELD(INT, runHd, rstFromRunId), FIELD(INT, runHd, rstFromStep), END };
static const cliField pmcFields[]      = { FIELD(INT, runHd, pmcOrder), FIELD(REAL, runHd, pmcLump),
                                           FIELD(REAL, runHd, pmcDamp), FIELD(REAL, runHd, pmcAlpha),
                                           FIELD(REAL, runHd, pmcAlphaMass), FIELD(REAL, runHd, pmcGamma), END };
static const cliField radFields[]      = { FIELD(FILE, runHd, radFile), FIELD(COUNT, runHd, nRads),
                                           FIELD(INT, runHd, nRads2), END };
static const cliField crdFields[]      = { FIELD(FILE, runHd, crdFile), FIELD(COUNT, runHd, nNodes), END };
static const cliField nameField[]      = { SEEN(NAME), END };

static const cliForm dateLine     = { 2, NULL, dateFields, NULL };
static const cliForm versionLine  = { 2, NULL, versionFields, NULL };
static const cliForm dirLine      = { 2, NULL, dirFields, NULL };
static const cliForm fmtLine      = { 2, "%d", optFields, madeOpt };
static const cliForm nSdsLine     = { 2, "%d", nSdsFields, NULL };
static const cliForm rstLine      = { 2, "%*s %s %*s %s %*s %d %*s %d", rstFields, NULL };
static const cliForm titleLine    = { 2, QUOTED, titleFields, NULL };
static const cliForm subTitleLine = { 2, QUOTED, subTitleFields, NULL };
static const cliForm baseUnitLine = { 2, QUOTED, baseUnitFields, NULL };
static const cliForm pmcLine      = { 2, "%*s %d %*s %le %*s %le %*s %le %*s %le %*s %le", pmcFields, NULL };
static const cliForm radLine      = { 2, "%s %*s %d %*s %d", radFields, NULL };
static const cliForm crdLine      = { 2, "%s %*s %d", crdFields, madeCrd };
static const cliForm modCrdLine   = { 2, "%s %*s %d", crdFields, NULL };
static const cliForm spcLine      = { 2, " " QUOTED " %s ", nameField, spc };
static const cliForm mfdLine      = { 2, " " QUOTED " %s %d", nameField, mfd };

/* name and number; file, name and number; frames of reference */
static const cliField numberFields[] = { FIELD(NAME, rdbRecSet, name), FIELD(INT, rdbRecSet, number), END };
static const cliField countFields[]  = { FIELD(NAME, rdbRecSet, name),
                                         NAMED(COUNT, rdbRecSet, number, "nFbdModes"), END };
static const cliField onlyNumber[]   = { FIELD(INT, rdbRecSet, number), END };
static const cliField othFields[]    = { FIELD(FILE, rdbRecSet, file), FIELD(NAME, rdbRecSet, name),
                                         NAMED(COUNT, rdbRecSet, number, "nOthNodes"), END };
static const cliField rffFields[]    = { FIELD(NAME, rdbRff, name),
                                         FIELD(REAL, rdbRff, org[0]), FIELD(REAL, rdbRff, org[1]),
                                         FIELD(REAL, rdbRff, org[2]), FIELD(REAL, rdbRff, angVel[0]),
                                         FIELD(REAL, rdbRff, angVel[1]), FIELD(REAL, rdbRff, angVel[2]),
                                         FIELD(INT, rdbRff, numbers[0]), FIELD(INT, rdbRff, numbers[1]),
                                         FIELD(INT, rdbRff, numbers[2]), END };

static const cliForm numberLine = { 2, QUOTED " %*s %d", numberFields, NULL };
static const cliForm countLine  = { 2, QUOTED " %*s %d", countFields, NULL };
static const cliForm dopLine    = { 2, "%*s %d", onlyNumber, madeDop };
static const cliForm othLine    = { 2, FILE_SET " %*s %d", othFields, NULL };
static const cliForm rffLine    = { 2, QUOTED " %*s %le %le %le %*s %le %le %le %*s %d %*s %d %*s %d", rffFields,
                                    NULL };

/* node sets and pairs */
static const cliField nodeFields[] = { FIELD(FILE, rdbNodeSet, file), FIELD(NAME, rdbNodeSet, name),
                                       FIELD(COUNT, rdbNodeSet, nRows), FIELD(INT, rdbNodeSet, number), END };

static const cliForm nbcLine = { 2, FILE_SET " %*s %d %*s %d", nodeFields, madeNodeSet };
static const cliForm zbcLine = { 2, FILE_SET " %*s %d %*s %d", nodeFields, zbc };
static const cliForm pbcLine = { 2, FILE_SET " %*s %d %*s %d", nodeFields, madeNodePair };

/* element and volume sets */
static const cliField elmFields[] = { FIELD(FILE, rdbElmSet, file), FIELD(NAME, rdbElmSet, name),
                                      FIELD(COUNT, rdbElmSet, nElems), FIELD(INT, rdbElmSet, type),
                                      FIELD(WIDTH, rdbElmSet, nElemNodes), FIELD(INT, rdbElmSet, quad),
                                      FIELD(INT, rdbElmSet, medium), FIELD(INT, rdbElmSet, rffId),
                                      FIELD(REAL, rdbElmSet, shlThick), FIELD(REAL, rdbElmSet, tol), END };
static const cliField volFields[] = { FIELD(FILE, rdbVolSet, file), FIELD(NAME, rdbVolSet, name),
                                      FIELD(COUNT, rdbVolSet, nElems), FIELD(INT, rdbVolSet, type),
                                      FIELD(WIDTH, rdbVolSet, nElemNodes), END };

static const cliForm elmLine    = { 2, FILE_SET " %*s %d %*s %d %*s %d %*s %d %*s %d %*s %d %*s %le %*s %le",
                                    elmFields, madeElm };
static const cliForm elmVolLine = { 2, QUOTED " %d " QUOTED " ", NULL, bindVols };
static const cliForm volLine    = { 1, FILE_SET " %*s %d %*s %d %*s %d", volFields, madeVol };

/* surface sets: what all lines begin with, and what families add */
#define SRF_FIELDS(parent)                                                                                      \
    FIELD(FILE, rdbSrfSet, file), FIELD(NAME, rdbSrfSet, name), FIELD(COUNT, rdbSrfSet, nSrfs),                 \
    FIELD(INT, rdbSrfSet, type), FIELD(WIDTH, rdbSrfSet, nSrfNodes), FIELD(INT, rdbSrfSet, quad),               \
    FIELD(INT, rdbSrfSet, parent), FIELD(INT, rdbSrfSet, medium)

static const cliField srfFields[] = { SRF_FIELDS(elmId), END };
static const cliField sfsFields[] = { SRF_FIELDS(volId), END };
static const cliField bcFields[]  = { SRF_FIELDS(elmId), FIELD(INT, rdbSrfSet, bcType), END };
static const cliField ssiFields[] = { SRF_FIELDS(elmId), FIELD(INT, rdbSrfSet, bcType), FIELD(REAL, rdbSrfSet, gapFct),
                                      FIELD(REAL, rdbSrfSet, gap), FIELD(REAL, rdbSrfSet, creaseAng), END };
static const cliField rsfFields[] = { SRF_FIELDS(elmId), FIELD(INT, rdbSrfSet, aggl), FIELD(INT, rdbSrfSet, agglCnt),
                                      FIELD(REAL, rdbSrfSet, agglAng), FIELD(REAL, rdbSrfSet, agglRad),
                                      FIELD(INT, rdbSrfSet, bcType), END };

static const cliForm srfLine      = { 2, SRF_SET, srfFields, madeSrf };
static const cliForm cbcLine      = { 2, SRF_SET " %*s %d %s %d", bcFields, madeCbc };
static const cliForm dbcLine      = { 2, SRF_SET " %*s %d", bcFields, madeSrf };
static const cliForm ssiLine      = { 2, SRF_SET " %*s %d %*s %le %*s %le %*s %le", ssiFields, madeSrf };
static const cliForm rsfLine      = { 2, SRF_SET " %*s %d %*s %d %*s %le %*s %le %*s %d", rsfFields, madeSrf };
static const cliForm sfsLine      = { 1, SRF_SET " %s " QUOTED, sfsFields, madeSfs };
static const cliForm namesLine    = { 2, QUOTED " %d " QUOTED " ", NULL, bindSfss };
static const cliForm neighborLine = { 2, " %d %d", NULL, setNeighbor };

/* auxiliary outputs */
static const cliField oaaFields[]  = { FIELD(FILE, rdbOaa, file), FIELD(NAME, rdbOaa, name),
                                       FIELD(COUNT, rdbOaa, nNodes), END };
static const cliField rowFields[]  = { FIELD(FILE, rdbOutMesh, file), FIELD(NAME, rdbOutMesh, name),
                                       FIELD(COUNT, rdbOutMesh, nRows), FIELD(WIDTH, rdbOutMesh, nRowNodes),
                                       FIELD(INT, rdbOutMesh, oaaId), END };
static const cliField meshFields[] = { FIELD(FILE, rdbOutMesh, file), FIELD(NAME, rdbOutMesh, name),
                                       FIELD(COUNT, rdbOutMesh, nNodes), END };
static const cliField oelFields[]  = { SEEN(FILE), FIELD(NAME, rdbOel, name), DROP, DROP, DROP,
                                       FIELD(INT, rdbOel, quad), DROP, DROP, FIELD(INT, rdbOel, flag),
                                       NAMED(COUNT, rdbOel, nVols, "nOelVols"), END };
static const cliField moreFields[] = { SEEN(FILE), SEEN(NAME), END };       /* of a record that is there already */

static const cliForm oaaLine    = { 2, FILE_SET " %*s %d", oaaFields, NULL };
static const cliForm oadLine    = { 2, FILE_SET " %*s %d", moreFields, oad };
static const cliForm rowLine    = { 2, FILE_SET " %*s %d %*s %d %*s %d", rowFields, NULL };
static const cliForm ofsLine    = { 2, FILE_SET " %*s %d", meshFields, NULL };
static const cliForm ovsLine    = { 2, FILE_SET " %*s %d", meshFields, madeOvs };
static const cliForm oveLine    = { 2, FILE_SET " %*s %d", meshFields, madeOve };
static const cliForm vasLine    = { 2, FILE_SET " %*s %d %*s %d", moreFields, vas };
static const cliForm vaeLine    = { 2, FILE_SET " %*s %d %*s %d", moreFields, vae };
static const cliForm oelLine    = { 2, SRF_SET " %*s %d %*s %d", oelFields, madeOel };
static const cliForm oelVolLine = { 2, SRF_SET " %s " QUOTED, moreFields, oelVol };

/* ----------------------------------------------------------------------------------------------------- the table */

#define LIST(member, record)   (int) offsetof(runHd, member), sizeof(record)
#define SRF_LIST(index)        (int) (offsetof(runHd, srf) + (index) * sizeof(rdbList)), sizeof(rdbSrfSet)

static const cliRow rows[] = {
    /* keyword     what gets its values       form */
    { "DATE",      IN_RUN, 0,                 &dateLine,     -1 },
    { "VERSION",   IN_RUN, 0,                 &versionLine,  -1 },
    { "DIR",       IN_RUN, 0,                 &dirLine,      -1 },
    { "FMT",       IN_RUN, 0,                 &fmtLine,      -1 },
    { "NSDS",      IN_RUN, 0,                 &nSdsLine,     -1 },
    { "RST",       IN_RUN, 0,                 &rstLine,      -1 },
    { "TITLE",     IN_RUN, 0,                 &titleLine,    -1 },
    { "SUBTITLE",  IN_RUN, 0,                 &subTitleLine, -1 },
    { "BASE_UNIT", IN_RUN, 0,                 &baseUnitLine, -1 },
    { "PMC",       IN_RUN, 0,                 &pmcLine,      -1 },
    { "RAD",       IN_RUN, 0,                 &radLine,      -1 },
    { "CRD",       IN_RUN, 0,                 &crdLine,      -1 },
    { "MODCRD",    IN_RUN, 0,                 &modCrdLine,   -1 },
    { "TMF",       LIST(tmf, rdbRecSet),      &numberLine,   -1 },
    { "RFF",       LIST(rff, rdbRff),         &rffLine,      -1 },
    { "MMO",       LIST(mmo, rdbRecSet),      &numberLine,   -1 },
    { "FBD",       LIST(fbd, rdbRecSet),      &countLine,    -1 },
    { "DOP",       LIST(dop, rdbRecSet),      &dopLine,      -1 },
    { "NBC",       LIST(nbc, rdbNodeSet),     &nbcLine,      -1 },
    { "ZBC",       NO_RECORD, 0,              &zbcLine,      -1 },
    { "PBC",       LIST(pbc, rdbNodeSet),     &pbcLine,      -1 },
    { "OTH",       LIST(oth, rdbRecSet),      &othLine,      -1 },
    { "CNN",       LIST(elm, rdbElmSet),      &elmLine,      -1 },
    { "CNN.VOL",   NO_RECORD, 0,              &elmVolLine,   -1 },
    { "VOL",       LIST(vol, rdbVolSet),      &volLine,      -1 },
#define SRF_FAM(Fam, fam, KEY, madeAs, line, listLine, ...)        \
    { #KEY,        SRF_LIST(RDB_##KEY),       &line,         RDB_##KEY }, \
    { #KEY ".SFS", NO_RECORD, 0,              &listLine,     RDB_##KEY },
#include "rdb/rdbSrfFams.def"
#undef SRF_FAM
    { "OEL",       LIST(oel, rdbOel),         &oelLine,      -1 },
    { "OEL.VOL",   NO_RECORD, 0,              &oelVolLine,   -1 },
    { "OAA",       LIST(oaa, rdbOaa),         &oaaLine,      -1 },
    { "OAD",       NO_RECORD, 0,              &oadLine,      -1 },
    { "OSA",       LIST(osa, rdbOutMesh),     &rowLine,      -1 },
    { "OEA",       LIST(oea, rdbOutMesh),     &rowLine,      -1 },
    { "OFS",       LIST(ofs, rdbOutMesh),     &ofsLine,      -1 },
    { "OVS",       LIST(ovs, rdbOutMesh),     &ovsLine,      -1 },
    { "VAS",       NO_RECORD, 0,              &vasLine,      -1 },
    { "OVE",       LIST(ove, rdbOutMesh),     &oveLine,      -1 },
    { "VAE",       NO_RECORD, 0,              &vaeLine,      -1 },
    { "SPC",       NO_RECORD, 0,              &spcLine,      -1 },
    { "MFD",       NO_RECORD, 0,              &mfdLine,      -1 },
};

static const cliRow *findRow(const char *keyword, size_t len)
{
    for (const cliRow &row : rows)
        if (strncmp(row.keyword, keyword, len) == 0 && !row.keyword[len]) return &row;
    return NULL;
}

/* The record is in its list, with the defaults that are not zero, before anything is put into it */
static void *newRecord(runHd *run, const cliRow *row)
{
    if (row->list == NO_RECORD) return NULL;
    if (row->list == IN_RUN) return run;
    void *rec = rdbListNew((rdbList *) ((char *) run + row->list), row->size);
    if (row->form == &elmLine) ((rdbElmSet *) rec)->shlThick = 1.0;
    return rec;
}

static void readRow(rdbHd *hd, const cliRow *row, const char *rest)
{
    cliLine l = {};
    l.hd   = hd;
    l.run  = hd->run;
    l.cli  = hd->run->cli;
    l.row  = row;
    l.rest = rest;
    if (row->form->format) l.n = scan(rest, row->form->format, l.v);
    else {
        l.n         = 1;
        l.v[0].text = rest;
        l.v[0].len  = (int) strlen(rest);
    }
    keepWords(&l);
    l.rec = newRecord(hd->run, row);
    if (l.rec) storeFields(&l);
    if (row->form->act) row->form->act(&l);
}

int rdbReadCliLine(rdbHd *hd, const char *line, int pass)
{
    if (line[0] != '#' || line[1] != '@') return 1;
    const char  *keyword = skipBlanks(skipWord(line));          /* the first word goes with the mark */
    const char  *rest = skipWord(keyword);
    const size_t len = rest - keyword;
    if (len == 3 && memcmp(keyword, "END", 3) == 0) return 0;
    const cliRow *row = len ? findRow(keyword, len) : NULL;
    if (row && row->form->pass == pass) readRow(hd, row, *rest ? rest + 1 : rest);
    return 1;
}
