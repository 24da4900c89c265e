/* Robust fits: external pointers that own a fit of libvemknfit, and its calls.
 *
 * The pointer's protected value is the text of the model. R saves it with a workspace, but not the
 * address; so a nil pointer is read from the text when it is used. A call that fails gives R a
 * condition, which R code raises. */
#include <R_ext/Utils.h>
#include <signal.h>
#include <time.h>
#include <vemkn_fit.h>

#include "glue.h"

/* -------------------------------------------------------------------------------- conditions */

/* What the library's last call on this thread says of its error. */
static SEXP failure(void)
{
    const int64_t row = vemkn_fit_row();
    SEXP message = PROTECT(Rf_allocVector(STRSXP, 1));
    SET_STRING_ELT(message, 0, Rf_mkCharCE(vemkn_fit_message(), CE_UTF8));
    SEXP at = PROTECT(row < 0 ? R_NilValue : Rf_ScalarReal((double)row + 1.0));
    const char* const names[] = {"message", "call", "row"};
    const SEXP values[] = {message, R_NilValue, at};
    SEXP condition = PROTECT(named_list(3, names, values));
    const char* const classes[] = {"vemkn_error", "error", "condition"};
    SEXP class = PROTECT(Rf_allocVector(STRSXP, 3));
    for (int i = 0; i < 3; ++i) SET_STRING_ELT(class, i, Rf_mkChar(classes[i]));
    Rf_setAttrib(condition, R_ClassSymbol, class);
    UNPROTECT(4);
    return condition;
}

/* ------------------------------------------------------------------------------------ handles */

static SEXP fit_tag(void)
{
    return Rf_install("vemkn_fit");
}

static void finalise_fit(SEXP handle)
{
    vemkn_fit_free(R_ExternalPtrAddr(handle));
    R_ClearExternalPtr(handle);
}

/* Made before the fit, so that nothing that R does afterwards can lose one. */
static SEXP new_handle(void)
{
    SEXP handle = PROTECT(R_MakeExternalPtr(NULL, fit_tag(), R_NilValue));
    R_RegisterCFinalizerEx(handle, finalise_fit, TRUE);
    UNPROTECT(1);
    return handle;
}

/* The handle of a new fit, with its text, or a condition. */
static SEXP owned(SEXP handle, VEMKNFit* fit, int code)
{
    if (code != VEMKN_FIT_OK) return failure();
    R_SetExternalPtrAddr(handle, fit);
    size_t length = 0;
    if (vemkn_fit_write(fit, NULL, 0, &length) != VEMKN_FIT_OK) return failure();
    SEXP text = PROTECT(Rf_allocVector(RAWSXP, (R_xlen_t)length + 1));
    code = vemkn_fit_write(fit, (char*)RAW(text), length + 1, &length);
    R_SetExternalPtrProtected(handle, text);
    UNPROTECT(1);
    return code == VEMKN_FIT_OK ? handle : failure();
}

/* The fit of a handle; null where the library cannot read its text. R error for anything else. */
static VEMKNFit* fit_of(SEXP handle)
{
    if (TYPEOF(handle) != EXTPTRSXP || R_ExternalPtrTag(handle) != fit_tag() ||
        TYPEOF(R_ExternalPtrProtected(handle)) != RAWSXP)
        Rf_error("this is not a fit");
    VEMKNFit* fit = R_ExternalPtrAddr(handle);
    if (fit != NULL) return fit;
    SEXP text = R_ExternalPtrProtected(handle);
    R_RegisterCFinalizerEx(handle, finalise_fit, TRUE);
    if (vemkn_fit_read((const char*)RAW(text), (size_t)XLENGTH(text) - 1, &fit) == VEMKN_FIT_OK)
        R_SetExternalPtrAddr(handle, fit);
    return fit;
}

/* --------------------------------------------------------------------------------- interrupts */

/* What a look at R's events came to: a list of one, the condition or NULL. */
struct watch {
    SEXP seen;
    struct timespec last;
};

static SEXP check_events(void* nothing)
{
    (void)nothing;
    R_CheckUserInterrupt();
    return R_NilValue;
}

static SEXP keep_condition(SEXP condition, void* seen)
{
    SET_VECTOR_ELT((SEXP)seen, 0, condition);
    return R_NilValue;
}

static void look_at_events(void* seen)
{
    SEXP classes = PROTECT(Rf_allocVector(STRSXP, 2));
    SET_STRING_ELT(classes, 0, Rf_mkChar("interrupt"));
    SET_STRING_ELT(classes, 1, Rf_mkChar("error")); /* a time limit */
    R_tryCatch(check_events, NULL, classes, keep_condition, seen, NULL, NULL);
    UNPROTECT(1);
}

/* No jump may pass the library: handlers outside are unknown to R_ToplevelExec, and what they would
 * have seen is raised when the fit has ended. */
static int watch_events(const VEMKNFitProgress* progress, void* host)
{
    (void)progress;
    const double interval = 0.05; /* seconds; a look takes some microseconds */
    struct watch* watch = host;
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const double passed = (double)(now.tv_sec - watch->last.tv_sec) +
                          1e-9 * (double)(now.tv_nsec - watch->last.tv_nsec);
    if (passed < interval) return 0;
    watch->last = now;
    return !R_ToplevelExec(look_at_events, watch->seen) || VECTOR_ELT(watch->seen, 0) != R_NilValue;
}

/* ---------------------------------------------------------------------------------------- fit */

static const char* utf8(SEXP text)
{
    if (TYPEOF(text) != STRSXP || LENGTH(text) != 1) Rf_error("an option has to be one string");
    return Rf_translateCharUTF8(STRING_ELT(text, 0));
}

static const VEMKNFitColumn* columns_of(SEXP names, SEXP period, int columns)
{
    if (TYPEOF(names) != STRSXP || LENGTH(names) != columns || TYPEOF(period) != REALSXP ||
        LENGTH(period) != columns)
        Rf_error("names and periods do not fit %d columns", columns);
    VEMKNFitColumn* all = (VEMKNFitColumn*)R_alloc((size_t)columns, sizeof *all);
    for (int i = 0; i < columns; ++i)
        all[i] = (VEMKNFitColumn){.name = Rf_translateCharUTF8(STRING_ELT(names, i)),
                                  .period = REAL(period)[i]};
    return all;
}

/* numbers: core, decay, seed, starts, threads, as the library takes them. */
SEXP vemknr_fit(SEXP x,
                SEXP y,
                SEXP hidden,
                SEXP activation,
                SEXP numbers,
                SEXP names,
                SEXP period,
                SEXP target)
{
    check_matrix(x, any_rows, "x");
    check_matrix(y, Rf_nrows(x), "y");
    if (Rf_ncols(y) != 1) Rf_error("'y' has %d columns, but needs 1", Rf_ncols(y));
    if (TYPEOF(hidden) != INTSXP || TYPEOF(numbers) != REALSXP || LENGTH(numbers) != 5)
        Rf_error("these are not the options of a fit");
    SEXP seen = PROTECT(Rf_allocVector(VECSXP, 1));
    struct watch watch = {.seen = seen};
    const double* number = REAL(numbers);
    const VEMKNFitOptions options = {.size = sizeof options,
                                     .hidden = (const unsigned*)INTEGER(hidden),
                                     .layers = (size_t)LENGTH(hidden),
                                     .activation = utf8(activation),
                                     .core = number[0],
                                     .decay = number[1],
                                     .seed = (uint64_t)number[2],
                                     .starts = (unsigned)number[3],
                                     .threads = (unsigned)number[4],
                                     .columns = columns_of(names, period, Rf_ncols(x)),
                                     .target = utf8(target),
                                     .progress = watch_events,
                                     .host = &watch};
    SEXP handle = PROTECT(new_handle());
    const double* rows = by_rows(x);
    VEMKNFit* fit = NULL;
    const int code =
        vemkn_fit_robust(rows, (size_t)Rf_nrows(x), (size_t)Rf_ncols(x), REAL(y), &options, &fit);
    SEXP condition = VECTOR_ELT(seen, 0);
    if (code == VEMKN_FIT_CANCELLED && Rf_inherits(condition, "interrupt")) {
        /* R deals with it as it would have: the library's frames have gone. */
        raise(SIGINT);
        R_CheckUserInterrupt();
    }
    const int is_error = code == VEMKN_FIT_CANCELLED && Rf_inherits(condition, "error");
    SEXP answer = is_error ? condition : owned(handle, fit, code);
    UNPROTECT(2);
    return answer;
}

SEXP vemknr_fit_load(SEXP path)
{
    if (TYPEOF(path) != STRSXP || LENGTH(path) != 1) Rf_error("'path' has to be one string");
    SEXP handle = PROTECT(new_handle());
    VEMKNFit* fit = NULL;
    const int code = vemkn_fit_load(Rf_translateChar(STRING_ELT(path, 0)), &fit);
    SEXP answer = owned(handle, fit, code);
    UNPROTECT(1);
    return answer;
}

SEXP vemknr_fit_save(SEXP handle, SEXP path)
{
    const VEMKNFit* fit = fit_of(handle);
    if (fit == NULL) return failure();
    if (TYPEOF(path) != STRSXP || LENGTH(path) != 1) Rf_error("'path' has to be one string");
    const int code = vemkn_fit_save(fit, Rf_translateChar(STRING_ELT(path, 0)));
    return code == VEMKN_FIT_OK ? R_NilValue : failure();
}

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
    values[n++] = PROTECT(Rf_mkString(vemkn_fit_activation(fit)));
    values[n++] = PROTECT(Rf_mkString(vemkn_fit_method(fit)));
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
