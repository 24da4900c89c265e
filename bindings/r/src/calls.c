/* One function for each computing call: check, bring into rows, call, bring into columns. */
#include "glue.h"

SEXP vemknr_compute(SEXP handle, SEXP w, SEXP x)
{
    const struct batch b = read_batch(handle, w, x, NULL);
    SEXP out = PROTECT(new_matrix(b.rows, b.ycols));
    double* rows = row_buffer(out);
    check_status(library_compute(&b, rows), "vemkn_compute");
    settle_rows(out, rows);
    UNPROTECT(1);
    return out;
}

SEXP vemknr_residual(SEXP handle, SEXP w, SEXP x, SEXP y)
{
    const struct batch b = read_batch(handle, w, x, y);
    SEXP out = PROTECT(new_matrix(b.rows, b.ycols));
    double* rows = row_buffer(out);
    check_status(library_residual(&b, rows), "vemkn_residual");
    settle_rows(out, rows);
    UNPROTECT(1);
    return out;
}

SEXP vemknr_objective(SEXP handle, SEXP w, SEXP x, SEXP y)
{
    const struct batch b = read_batch(handle, w, x, y);
    double value = 0.0;
    check_status(library_objective(&b, &value), "vemkn_objective");
    return Rf_ScalarReal(value);
}

SEXP vemknr_gradient(SEXP handle, SEXP w, SEXP x, SEXP y)
{
    const struct batch b = read_batch(handle, w, x, y);
    SEXP value = PROTECT(Rf_allocVector(REALSXP, 1));
    SEXP gradient = PROTECT(Rf_allocVector(REALSXP, b.nw));
    check_status(library_gradient(&b, REAL(value), REAL(gradient)), "vemkn_gradient");
    Rf_setAttrib(value, Rf_install("gradient"), gradient);
    UNPROTECT(2);
    return value;
}

SEXP vemknr_hessian_product(SEXP handle, SEXP w, SEXP x, SEXP y, SEXP v)
{
    const struct batch b = read_batch(handle, w, x, y);
    check_matrix(v, (int)b.nw, "v");
    const int nv = Rf_ncols(v);
    SEXP value = PROTECT(Rf_allocVector(REALSXP, 1));
    SEXP gradient = PROTECT(Rf_allocVector(REALSXP, b.nw));
    SEXP product = PROTECT(new_matrix(b.nw, nv));
    double* rows = row_buffer(product);
    const int status =
        library_hessian(&b, by_rows(v), (unsigned)nv, REAL(value), REAL(gradient), rows);
    check_status(status, "vemkn_hessian_product");
    settle_rows(product, rows);

    const char* const names[] = {"value", "gradient", "product"};
    const SEXP values[] = {value, gradient, product};
    SEXP list = named_list(3, names, values);
    UNPROTECT(3);
    return list;
}

/* The library has the derivative of element (row, column) along tangent d at
 * [(row * columns + column) * nv + d], R has it at [row + rows * (column + columns * d)]. */
static void settle_jacobian(SEXP product, const double* from, int rows, int columns, int nv)
{
    double* to = REAL(product);
    for (int d = 0; d < nv; ++d)
        for (int column = 0; column < columns; ++column)
            for (int row = 0; row < rows; ++row)
                *to++ = from[((size_t)row * columns + column) * nv + d];
}

SEXP vemknr_jacobian_product(SEXP handle, SEXP w, SEXP x, SEXP y, SEXP v)
{
    const struct batch b = read_batch(handle, w, x, y);
    check_matrix(v, (int)b.nw, "v");
    const int nv = Rf_ncols(v);
    SEXP norms = PROTECT(new_matrix(b.rows, b.ycols));
    SEXP product = PROTECT(new_matrix((double)b.rows * b.ycols, nv));
    double* norm_rows = row_buffer(norms);
    double* derivatives = (double*)R_alloc(XLENGTH(product), sizeof(double));
    const int status = library_jacobian(&b, by_rows(v), (unsigned)nv, norm_rows, derivatives);
    check_status(status, "vemkn_jacobian_product");
    settle_rows(norms, norm_rows);
    settle_jacobian(product, derivatives, (int)b.rows, (int)b.ycols, nv);

    const char* const names[] = {"norms", "product"};
    const SEXP values[] = {norms, product};
    SEXP list = named_list(2, names, values);
    UNPROTECT(2);
    return list;
}

/* u: a matrix whose columns are the cotangents, each in the order of as.vector(y). */
SEXP vemknr_product_jacobian(SEXP handle, SEXP w, SEXP x, SEXP y, SEXP u)
{
    const struct batch b = read_batch(handle, w, x, y);
    check_matrix(u, (int)(b.rows * b.ycols), "u");
    const int k = Rf_ncols(u);
    const double* cotangents = blocks_by_rows(REAL(u), (int)b.rows, (int)b.ycols, k);
    SEXP residual = PROTECT(new_matrix(b.rows, b.ycols));
    SEXP product = PROTECT(new_matrix(b.nw, k));
    double* residual_rows = row_buffer(residual);
    const int status = library_weighted(&b, cotangents, (unsigned)k, residual_rows, REAL(product));
    check_status(status, "vemkn_product_jacobian");
    settle_rows(residual, residual_rows);

    const char* const names[] = {"residual", "product"};
    const SEXP values[] = {residual, product};
    SEXP list = named_list(2, names, values);
    UNPROTECT(2);
    return list;
}
