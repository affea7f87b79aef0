/* The smallest client: opens the newest run of a directory and prints what it holds. */
#include <rdb/rdb.h>
#include <stdio.h>

int main(int argc, char **argv)
{
    int    runId = 0, nNodes = 0, nSteps = 0;
    char   problem[8192] = "";
    rdbHd *hd = rdbNew("pipe", "QUENTA.DIR", argc > 1 ? argv[1] : ".", 0);
    if (!hd || !rdbOpenRun(hd, 0) || !rdbGetStr0(hd, "problem", problem) || !rdbGetInt0(hd, "openRunId", &runId) ||
        !rdbGetInt0(hd, "nNodes", &nNodes) || !rdbGetInt0(hd, "nOutSteps", &nSteps)) {
        fprintf(stderr, "%s\n", rdbGetError());
        return 1;
    }
    printf("%s run %d: %d nodes, %d output steps\n", problem, runId, nNodes, nSteps);
    rdbFree(hd);
    return 0;
}
