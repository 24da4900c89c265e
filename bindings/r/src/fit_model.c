/* Predictions of a fit, and what it holds. */
#include "glue.h"

/* --------------------------------------------------------------------------------- predictions */

SEXP vemknr_fit_predict(SEXP handle, SEXP x)
{
    const VEMKNFit* fit = fit_of(handle);
    if (fit == NULL) return failure();
    check_matrix(x, any_rows, "x");
    SEXP out = PROTECT(new_matrix(Rf_nrows(x), (double)vemkn_fit_targets(fit)));
    double* rows = row_buffer(out);
    const int code =
        vemkn_fit_predict(fit, by_rows(x), (size_t)Rf_nrows(x), (size_t)Rf_ncols(x), rows);
    if (code == VEMKN_FIT_OK) settle_rows(out, rows);
    SEXP answer = code == VEMKN_FIT_OK ? out : failure();
    UNPROTECT(1);
    return answer;
}

/* A matrix of predictions, standard errors, lower and upper ends. */
SEXP vemknr_fit_interval(SEXP handle, SEXP x, SEXP is_prediction, SEXP level)
{
    const VEMKNFit* fit = fit_of(handle);
    if (fit == NULL) return failure();
    check_matrix(x, any_rows, "x");
    const size_t n = (size_t)Rf_nrows(x);
    SEXP out = PROTECT(new_matrix((double)n, 4));
    double* found = REAL(out);
    const int code = vemkn_fit_interval(
        fit,
        by_rows(x),
        n,
        (size_t)Rf_ncols(x),
        Rf_asLogical(is_prediction) ? VEMKN_FIT_PREDICTION : VEMKN_FIT_CONFIDENCE,
        Rf_asReal(level),
        found,
        found + n,
        found + 2 * n,
        found + 3 * n);
    SEXP answer = code == VEMKN_FIT_OK ? out : failure();
    UNPROTECT(1);
    return answer;
}

/* ---------------------------------------------------------------------------- what a fit holds */

static SEXP texts(const VEMKNFit* fit, size_t n, const char* (*each)(const VEMKNFit*, size_t))
{
    SEXP all = PROTECT(Rf_allocVector(STRSXP, (R_xlen_t)n));
    for (size_t i = 0; i < n; ++i)
        SET_STRING_ELT(all, (R_xlen_t)i, Rf_mkCharCE(each(fit, i), CE_UTF8));
    UNPROTECT(1);
    return all;
}

static SEXP one_text(const char* text)
{
    return Rf_ScalarString(Rf_mkCharCE(text, CE_UTF8));
}

static SEXP of_targets(const VEMKNFit* fit, double (*each)(const VEMKNFit*, size_t))
{
    const R_xlen_t n = (R_xlen_t)vemkn_fit_targets(fit);
    SEXP all = PROTECT(Rf_allocVector(REALSXP, n));
    for (R_xlen_t i = 0; i < n; ++i) REAL(all)[i] = each(fit, (size_t)i);
    UNPROTECT(1);
    return all;
}

static SEXP widths(const VEMKNFit* fit)
{
    const R_xlen_t n = (R_xlen_t)vemkn_fit_layers(fit);
    SEXP all = PROTECT(Rf_allocVector(INTSXP, n));
    for (R_xlen_t i = 0; i < n; ++i) INTEGER(all)[i] = (int)vemkn_fit_width(fit, (size_t)i);
    UNPROTECT(1);
    return all;
}

SEXP vemknr_fit_summary(SEXP handle)
{
    const VEMKNFit* fit = fit_of(handle);
    if (fit == NULL) return failure();

    enum { MEMBERS = 15 };

    const char* const names[MEMBERS] = {"columns",
                                        "targets",
                                        "core",
                                        "shift",
                                        "hidden",
                                        "activation",
                                        "method",
                                        "decay",
                                        "objective",
                                        "gradient",
                                        "settled",
                                        "rows",
                                        "beyond",
                                        "parameters",
                                        "notes"};
    SEXP values[MEMBERS];
    int n = 0;
    values[n++] = PROTECT(texts(fit, vemkn_fit_columns(fit), vemkn_fit_column));
    values[n++] = PROTECT(texts(fit, vemkn_fit_targets(fit), vemkn_fit_target));
    values[n++] = PROTECT(of_targets(fit, vemkn_fit_core));
    values[n++] = PROTECT(of_targets(fit, vemkn_fit_shift));
    values[n++] = PROTECT(widths(fit));
    values[n++] = PROTECT(one_text(vemkn_fit_activation(fit)));
    values[n++] = PROTECT(one_text(vemkn_fit_method(fit)));
    values[n++] = PROTECT(Rf_ScalarReal(vemkn_fit_decay(fit)));
    values[n++] = PROTECT(Rf_ScalarReal(vemkn_fit_objective(fit)));
    values[n++] = PROTECT(Rf_ScalarReal(vemkn_fit_gradient(fit)));
    values[n++] = PROTECT(Rf_ScalarLogical(vemkn_fit_settled(fit)));
    values[n++] = PROTECT(Rf_ScalarReal((double)vemkn_fit_rows(fit)));
    values[n++] = PROTECT(Rf_ScalarReal((double)vemkn_fit_beyond(fit)));
    values[n++] = PROTECT(Rf_ScalarReal(vemkn_fit_parameters(fit)));
    values[n++] = PROTECT(texts(fit, vemkn_fit_notes(fit), vemkn_fit_note));
    SEXP list = named_list(n, names, values);
    UNPROTECT(n);
    return list;
}

SEXP vemknr_fit_weights(SEXP handle)
{
    const VEMKNFit* fit = fit_of(handle);
    if (fit == NULL) return failure();
    size_t n = 0;
    const double* from = vemkn_fit_weights(fit, &n);
    SEXP weights = PROTECT(Rf_allocVector(REALSXP, (R_xlen_t)n));
    for (size_t i = 0; i < n; ++i) REAL(weights)[i] = from[i];
    UNPROTECT(1);
    return weights;
}

SEXP vemknr_fit_covariance(SEXP handle)
{
    const VEMKNFit* fit = fit_of(handle);
    if (fit == NULL) return failure();
    const double* from = vemkn_fit_covariance(fit);
    if (from == NULL) { /* an interval is refused with the reason */
        const size_t columns = vemkn_fit_columns(fit);
        double* row = (double*)R_alloc(columns, sizeof(double));
        for (size_t i = 0; i < columns; ++i) row[i] = 0.0;
        const int kind = VEMKN_FIT_CONFIDENCE;
        vemkn_fit_interval(fit, row, 1, columns, kind, 0.5, NULL, NULL, NULL, NULL);
        return failure();
    }
    size_t n = 0;
    vemkn_fit_weights(fit, &n);
    SEXP covariance = PROTECT(new_matrix((double)n, (double)n));
    for (size_t i = 0; i < n * n; ++i) REAL(covariance)[i] = from[i]; /* symmetric */
    UNPROTECT(1);
    return covariance;
}
