/* The parts of the glue between R and libvemkn.
 *
 * handle.c     external pointers that own a network
 * arguments.c  checks, and the way from R's columns to the library's rows
 * calls.c      one function for each computing call
 * library.cpp  the calls themselves, with C++ exceptions turned into a status
 * fit.c        external pointers that own a fit of libvemknfit, whose calls let no exception out
 * fit_model.c  predictions of a fit, and what it holds
 * fit_watch.c  interrupts while a fit runs
 * init.c       registration
 *
 * Every R error is raised while no C++ frame is on the stack, and every buffer belongs to R. */
#ifndef VEMKN_GLUE_H
#define VEMKN_GLUE_H

#include <vemkn.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------- library.cpp */

/* What every computing call is given: the weights, the rows of x and y one after the other. y is
 * null for the outputs alone. */
struct batch {
    VEMKNInfo* net;
    const double* w;
    const double* x;
    const double* y;
    unsigned nw, rows, xcols, ycols;
};

/* Beside the library's own -1 (refused), 0 and 1 (not all results are finite). */
enum { no_memory = -2, exception_thrown = -3 };

/* A quiet network, or a negative status. */
int library_create(const char* text, int length, unsigned threads, int batch, VEMKNInfo** net);

int library_compute(const struct batch* b, double* out);
int library_residual(const struct batch* b, double* out);
int library_objective(const struct batch* b, double* value);
int library_gradient(const struct batch* b, double* value, double* gradient);

/* Tangents and products: matrices of nw (or of elements) x nv, row by row. */
int library_hessian(const struct batch* b,
                    const double* v,
                    unsigned nv,
                    double* value,
                    double* gradient,
                    double* product);
int library_jacobian(
    const struct batch* b, const double* v, unsigned nv, double* norms, double* product);

/* Cotangents: k blocks, each as y. Products: k blocks of nw. */
int library_weighted(
    const struct batch* b, const double* u, unsigned k, double* residual, double* product);

#ifdef __cplusplus
}
#else

#include <Rinternals.h>
#include <time.h>
#include <vemkn_fit.h>

/* ---------------------------------------------------------------------------------- handle.c */

/* The network of an external pointer. A pointer that comes from a saved workspace is nil: its
 * network is built anew. R error for anything else. */
VEMKNInfo* network_of(SEXP handle);

/* ------------------------------------------------------------------------------- arguments.c */

/* Checks all shapes against the network. R error for what does not fit. [y] is NULL in C where the
 * call takes none, and then rows may be 0. */
struct batch read_batch(SEXP handle, SEXP w, SEXP x, SEXP y);

/* Whether [matrix] is a matrix of doubles with that many rows. R error otherwise. */
enum { any_rows = -1 };

void check_matrix(SEXP matrix, int rows, const char* name);

/* A new matrix for results. R error for long vectors; to be protected by the caller. */
SEXP new_matrix(double rows, double columns);

/* A list with those names, of values that are protected by the caller. */
SEXP named_list(int n, const char* const* names, const SEXP* values);

/* The elements of a matrix of R row by row, in memory that R frees after the call. */
const double* by_rows(SEXP matrix);

/* As by_rows, for [blocks] matrices of rows x columns one after the other. */
const double* blocks_by_rows(const double* from, int rows, int columns, int blocks);

/* Where the library writes the rows of a result matrix, and their way into it afterwards. */
double* row_buffer(SEXP matrix);
void settle_rows(SEXP matrix, const double* rows);

/* R error for a negative status. */
void check_status(int status, const char* call);

/* ------------------------------------------------------------------------- fit.c, fit_watch.c */

/* The fit of a handle; null where the library cannot read its text. R error for anything else. */
const VEMKNFit* fit_of(SEXP handle);

/* A condition for R: what the library's last call on this thread says of its error. */
SEXP failure(void);

/* What the looks at R's events came to: a list of one, the condition or NULL. */
struct watch {
    SEXP seen;
    struct timespec last;
};

/* A VEMKNFitWatch whose host is a struct watch. */
int watch_events(const VEMKNFitProgress* progress, void* host);

/* --------------------------------------------------------- entries: handle.c, calls.c, fit*.c */

SEXP vemknr_create(SEXP text, SEXP threads, SEXP batch);
SEXP vemknr_release(SEXP handle);
SEXP vemknr_numel(SEXP handle);
SEXP vemknr_version(void);
SEXP vemknr_words(SEXP norms);

SEXP vemknr_compute(SEXP handle, SEXP w, SEXP x);
SEXP vemknr_residual(SEXP handle, SEXP w, SEXP x, SEXP y);
SEXP vemknr_objective(SEXP handle, SEXP w, SEXP x, SEXP y);
SEXP vemknr_gradient(SEXP handle, SEXP w, SEXP x, SEXP y);
SEXP vemknr_hessian_product(SEXP handle, SEXP w, SEXP x, SEXP y, SEXP v);
SEXP vemknr_jacobian_product(SEXP handle, SEXP w, SEXP x, SEXP y, SEXP v);
SEXP vemknr_product_jacobian(SEXP handle, SEXP w, SEXP x, SEXP y, SEXP u);

SEXP vemknr_fit(SEXP x,
                SEXP y,
                SEXP hidden,
                SEXP activation,
                SEXP numbers,
                SEXP names,
                SEXP period,
                SEXP target);
SEXP vemknr_fit_load(SEXP path);
SEXP vemknr_fit_save(SEXP handle, SEXP path);
SEXP vemknr_fit_predict(SEXP handle, SEXP x);
SEXP vemknr_fit_interval(SEXP handle, SEXP x, SEXP is_prediction, SEXP level);
SEXP vemknr_fit_summary(SEXP handle);
SEXP vemknr_fit_weights(SEXP handle);
SEXP vemknr_fit_covariance(SEXP handle);

#endif
#endif
