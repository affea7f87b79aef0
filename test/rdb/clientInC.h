#ifndef TEST_RDB_CLIENTINC_H
#define TEST_RDB_CLIENTINC_H

/* clientInC.h: a client of the library that is written in C. */

#ifdef __cplusplus
extern "C" {
#endif

/* Opens run 1 of `problem` in the current folder and copies what it finds. Returns 0, or the number of the step that
   failed. */
int clientReadRun(const char *problem, int *nNodes, double *firstCrd, char *lastKey);

/* Opens `problem` under a trap. Returns 1 with the failure's text, if it did not return; else 0. */
int clientIsTrapped(const char *problem, char *text, int size);

#ifdef __cplusplus
}
#endif
#endif
