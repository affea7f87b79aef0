#ifndef TEST_INJECT_INJECT_H
#define TEST_INJECT_INJECT_H

/* inject.h: makes a chosen call into the system, or into HDF5, fail.
 *
 * All that is linked into the program calls the functions of faults.def by way of ours. As long as nothing is armed
 * they pass everything on. Armed, they count the calls of each kind, and the n-th of the kind chosen fails as the real
 * one would. What shared libraries call among themselves is not seen: the C++ library and HDF5 go on working. */

#include <string>
#include <vector>

enum class Kind {
    ALLOC,            /* memory                                                               */
    OPEN,             /* files, directories, pipes, programs                                  */
    READ,             /* what is to be read cannot be                                         */
    SHORT,            /* one byte comes, or goes, where more were asked for                   */
    INTERRUPTED,      /* a signal came first                                                  */
    SEEK,
    WRITE,            /* the disk is full; closing tells what writing had put off             */
    LOOK,             /* facts about a file; the current directory                            */
    HDF
};
enum { N_KINDS = 9 };
extern const char *const kindNames[N_KINDS];

/* Every call of the kind from the n-th on fails, `times` of them; n counts from 1. */
void injectArm(Kind kind, int n, int times);

/* Nothing fails any more. Gives how many calls have failed. */
int injectDisarm();

/* Calls of the kind since it was armed. */
int injectCalls();

/* The function whose call failed last. */
const char *injectLast();

/* Names of the functions of faults.def, and of those that no armed call has reached yet. */
std::vector<std::string> injectKnown();
std::vector<std::string> injectUnreached();

#endif
