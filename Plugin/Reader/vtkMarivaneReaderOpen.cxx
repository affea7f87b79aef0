/* vtkMarivaneReaderOpen.cxx: from the name of a solver's log file to an open run.
 *
 * The name gives directory, problem and run number; what it does not give comes from the options, and these from
 * configuration files, since a plugin has no command line. */

#include "Plugin/Reader/vtkMarivaneReader.h"

#include "Plugin/Reader/vtkMarivanePattern.h"
#include "Plugin/Reader/vtkMarivaneTimer.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "base/cnf.h"
#include "base/sys.h"

static const char *const optionSpecs[] = {
    /* key, long name, short name, default, type, -, description */
    "help:help:h:0:bool:-:print usage and exit",
    "problem:problem:pb:_undefined:str:-:problem name",
    "dir:working_directory:dir:QUENTA.DIR:str:-:working directory",
    "runId:run_id:run:0:int:-:run number (0, use last)",
    "extOut:extended_nodal_output:extout:F:bool:-:extended nodal output flag",
    "ale:mesh_movement:ale:T:bool:-:display mesh movement flag",
    "resetTime:reset_time:rt:F:bool:-:reset time from zero",
    "verbose:verbose:v:1:int:-:verbose level",
    nullptr
};

static const char *trueFalse(int flag)
{
    return flag ? "true" : "false";
}

/* Copies text[start, end) into a buffer of SYS_TEXT bytes. */
static void copyPart(const char *text, int start, int end, char *part)
{
    if (end - start >= SYS_TEXT) sysFail("file name is too long <%s>", text);
    memcpy(part, text + start, end - start);
    part[end - start] = 0;
}

/* Base detection as for any number of a configuration, so 010 is 8; what exceeds an int names no run. */
static int runNumber(const char *digits)
{
    const long n = strtol(digits, nullptr, 0);
    return n > INT_MAX ? INT_MAX : int(n);
}

int vtkMarivaneReader::SplitLogFileName(const char *fileName, const char *optionProblem, int optionRunId, char *path,
                                        char *problem, int *runId)
{
    vtkMarivanePattern wholeName("^(.*[\\/])?(.+)$");
    vtkMarivanePattern logName("^(.+)\\.([0-9]+)\\.Log$");
    reRegisters        regs;
    char               base[SYS_TEXT];

    if (wholeName.Match(fileName, &regs) < 0) {
        sysErrorMessage("Invalid problem name: %s", fileName);
        return 0;
    }
    copyPart(fileName, regs.start[2], regs.end[2], base);
    copyPart(fileName, 0, regs.start[2], path);
    if (!path[0]) strcpy(path, ".");

    const bool      isName = base[0] && strcmp(base, ".") && strcmp(base, "-");
    const char     *name = isName ? base : optionProblem;
    const int       length = int(strlen(name));

    *runId = optionRunId;
    if (logName.Match(name, &regs) > 0) {
        char digits[SYS_TEXT];
        copyPart(name, regs.start[2], regs.end[2], digits);
        *runId = runNumber(digits);
        copyPart(name, regs.start[1], regs.end[1], problem);
    } else {
        copyPart(name, 0, length, problem);
    }
    return 1;
}

/* What was asked for, by option or by file name. */
struct Request {
    const char *dir;
    int         runId, resetTime, verbose;
    char        path[SYS_TEXT], problem[SYS_TEXT];
};

static void printBanner(const Request &request, int meshMoves, int extendedOutput)
{
    const char *line = "----------------------------------------------------";

    sysMessage("%s", line);
    sysMessage("     date = %s", sysDate());
    sysMessage("  version = %s", sysGetVersion());
    sysMessage("  machine = %s", sysPlatform());
    sysMessage("     host = %s", sysHostName());
    sysMessage("%s", "");
    sysMessage(" options:");
    sysMessage("     help = %s", trueFalse(cnfGetBool("help")));
    sysMessage("  problem = %s", request.problem);
    sysMessage("     path = %s", request.path);
    sysMessage("      dir = %s", request.dir);
    sysMessage("    runId = %d", request.runId);
    sysMessage("      ale = %s", trueFalse(meshMoves));
    sysMessage("   extout = %s", trueFalse(extendedOutput));
    sysMessage("       rt = %s", trueFalse(request.resetTime));
    sysMessage("  verbose = %d", request.verbose);
    sysMessage("%s", line);
}

void vtkMarivaneReader::Open(const char *fileName)
{
    if (!fileName) {
        sysErrorMessage("Logfile does not exist");
        return;
    }

    sysSetProgName("Marivane-Reader");
    sysSetVersion("2021.1");
    sysLineBuffer();
    cnfInit(optionSpecs, 0, nullptr);

    Request request;
    request.dir = cnfGetStr("dir");
    const int optionRunId = cnfGetInt("runId");
    this->ExtendedOutput = cnfGetBool("extOut");
    this->MeshMoves = cnfGetBool("ale") ? 1 : 0;
    request.resetTime = cnfGetBool("resetTime");
    request.verbose = cnfGetInt("verbose");

    if (!SplitLogFileName(fileName, cnfGetStr("problem"), optionRunId, request.path, request.problem, &request.runId))
        return;

    this->Database = rdbNew(request.problem, request.dir, request.path, request.verbose);
    if (!this->Database) {
        vtkErrorMacro("Error opening the marivane data base..");
        vtkErrorMacro("ProblemName " << request.problem);
        vtkErrorMacro("WorkDir " << request.dir);
        vtkErrorMacro("ProblemDir " << request.path);
        return;
    }
    if (!rdbOpenRun(this->Database, request.runId)) {
        sysErrorMessage("Error opening the Run Id (%d)", request.runId);
        return;
    }

    /* the plain variables even with extended output: only they hold the displacement that moves the mesh */
    const int nVars = this->GetCount("nOutVars");
    char      name[SYS_TEXT] = "";
    for (int i = 0; i < nVars; ++i) {
        this->GetText("outVarName", name, i);
        if (!strcmp(name, "mesh_displacement")) this->MeshDisplacementIndex = i;
    }
    if (this->MeshDisplacementIndex == -1) this->MeshMoves = 0;

    if (request.verbose) printBanner(request, this->MeshMoves, this->ExtendedOutput);
}
