/* Checks of what R hands in, and the way between R's columns and the library's rows.
 *
 * R code checks first, with messages for its callers. The checks here are for whoever comes past
 * it: a shape that does not fit would read beyond the arrays or end the process. */
#include <R.h>
#include <limits.h>

#include "glue.h"

static void check_doubles(SEXP vector, const char* name)
{
    if (TYPEOF(vector) != REALSXP) Rf_error("'%s' has to be of type double", name);
    if (IS_LONG_VEC(vector)) Rf_error("'%s' is a long vector, which is not supported", name);
}

void check_matrix(SEXP matrix, int rows, const char* name)
{
    check_doubles(matrix, name);
    if (!Rf_isMatrix(matrix)) Rf_error("'%s' has to be a matrix", name);
    if (rows != any_rows && Rf_nrows(matrix) != rows)
        Rf_error("'%s' has %d rows, but needs %d", name, Rf_nrows(matrix), rows);
}

static void check_columns(SEXP matrix, unsigned columns, const char* name)
{
    if ((unsigned)Rf_ncols(matrix) != columns)
        Rf_error("'%s' has %d columns, but the network has %u", name, Rf_ncols(matrix), columns);
}

struct batch read_batch(SEXP handle, SEXP w, SEXP x, SEXP y)
{
    struct batch b = {.net = network_of(handle)};
    b.nw = (unsigned)vemk_numel(b.net);
    b.xcols = vemk_maxcols(b.net);
    b.ycols = vemk_numout(b.net);

    check_doubles(w, "weights");
    if ((unsigned)LENGTH(w) != b.nw)
        Rf_error("%d weights, but the network has %u", LENGTH(w), b.nw);
    check_matrix(x, any_rows, "x");
    check_columns(x, b.xcols, "x");
    b.rows = (unsigned)Rf_nrows(x);
    if (y != NULL) {
        if (b.rows == 0) Rf_error("'x' has no rows");
        check_matrix(y, Rf_nrows(x), "y");
        check_columns(y, b.ycols, "y");
        b.y = by_rows(y);
    }
    b.w = REAL(w);
    b.x = by_rows(x);
    return b;
}

SEXP new_matrix(double rows, double columns)
{
    if (rows * columns > INT_MAX)
        Rf_error("the result has %.0f elements: long vectors are not supported", rows * columns);
    return Rf_allocMatrix(REALSXP, (int)rows, (int)columns);
}

SEXP named_list(int n, const char* const* names, const SEXP* values)
{
    SEXP list = PROTECT(Rf_allocVector(VECSXP, n));
    SEXP list_names = PROTECT(Rf_allocVector(STRSXP, n));
    for (int i = 0; i < n; ++i) {
        SET_VECTOR_ELT(list, i, values[i]);
        SET_STRING_ELT(list_names, i, Rf_mkChar(names[i]));
    }
    Rf_setAttrib(list, R_NamesSymbol, list_names);
    UNPROTECT(2);
    return list;
}

static int is_both_orders(SEXP matrix)
{
    return Rf_nrows(matrix) == 1 || Rf_ncols(matrix) == 1;
}

const double* blocks_by_rows(const double* from, int rows, int columns, int blocks)
{
    const size_t size = (size_t)rows * columns;
    double* to = (double*)R_alloc(size * blocks, sizeof(double));
    for (int k = 0; k < blocks; ++k)
        for (int i = 0; i < rows; ++i)
            for (int j = 0; j < columns; ++j)
                to[k * size + (size_t)i * columns + j] = from[k * size + (size_t)j * rows + i];
    return to;
}

const double* by_rows(SEXP matrix)
{
    if (is_both_orders(matrix)) return REAL(matrix);
    return blocks_by_rows(REAL(matrix), Rf_nrows(matrix), Rf_ncols(matrix), 1);
}

double* row_buffer(SEXP matrix)
{
    if (is_both_orders(matrix)) return REAL(matrix);
    return (double*)R_alloc(XLENGTH(matrix), sizeof(double));
}

void settle_rows(SEXP matrix, const double* rows)
{
    double* to = REAL(matrix);
    if (rows == to) return;
    const int n = Rf_nrows(matrix), columns = Rf_ncols(matrix);
    for (int j = 0; j < columns; ++j)
        for (int i = 0; i < n; ++i) *to++ = rows[(size_t)i * columns + j];
}

void check_status(int status, const char* call)
{
    if (status == no_memory) Rf_error("%s: not enough memory", call);
    if (status == exception_thrown) Rf_error("%s: the library failed", call);
    if (status < 0) Rf_error("%s: the library refused the call", call);
}
