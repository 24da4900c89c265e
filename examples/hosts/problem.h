/* The fit that all programs of this folder do, from the same start, so that their results can be compared: the fuel
 * economy of 392 cars from the seven other columns of data/auto_mpg.csv, by two hidden units with 19 weights.
 *
 * Targets are miles per gallon, less 25 and divided by 21: three times the 7 miles per gallon that the likelihood's
 * core is to take for normal scatter. They lie between -0.8 and 1.1. Outputs lie within pi/2 of zero, since the
 * activation, atan, acts on the output too. Wherever these hosts evaluate the fit, all residuals are in the Gaussian
 * core, so that the fit is one of least squares: nothing here handles the jump at its edge. Data with outliers want a
 * core as wide as their scatter, and more than these programs do: see docs/hosts.md. */
#ifndef HOSTS_PROBLEM_H
#define HOSTS_PROBLEM_H

#include <time.h>
#include <vemkn.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { INPUTS = 7, OUTPUTS = 1, UNITS = 2, MAX_ROWS = 406 };

typedef struct {
    VEMKNInfo* net;
    unsigned nw;                 /* number of weights */
    unsigned rows;               /* number of cars */
    double x[MAX_ROWS * INPUTS]; /* row by row */
    double y[MAX_ROWS];
    unsigned long values, gradients, products; /* counted by the host's callbacks */
    struct timespec started;
} Problem;

/** Reads the data and makes the network, in quiet mode: a host wants to hear of a step that went too far, not to lose
 * its process.
 *
 * @param[in] argc, argv  of main; the first argument is the path of data/auto_mpg.csv
 * @param[in] norm        "sum_log_dnorm_fat", or "sum" for a host that wants the plain residuals
 * @return the problem, never null; release it with problem_close. The program ends when the file cannot be read. */
Problem* problem_open(int argc, char** argv, const char* norm);

/** Writes the start weights and starts the clock.
 * @param[out] w  array of length [p->nw] */
void problem_start(Problem* p, double* w);

/** Prints what the host found, a name and a value to the line. Objective and gradient are computed anew, with the
 * likelihood whatever norm the problem was opened with; the program ends if they are not finite.
 * @param[in] w  array of length [p->nw], the optimum */
void problem_report(const Problem* p, const char* host, const char* algorithm, const double* w);

void problem_close(Problem* p);

#ifdef __cplusplus
}
#endif

#endif
