/* External pointers that own a fit of libvemknfit, their making and their files.
 *
 * The pointer's protected value is the text of the model. R saves it with a workspace, but not the
 * address; so a nil pointer is read from the text when it is used. A call that fails gives R a
 * condition, which R code raises. */
#include "glue.h"

/* -------------------------------------------------------------------------------- conditions */

SEXP failure(void)
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

const VEMKNFit* fit_of(SEXP handle)
{
    if (TYPEOF(handle) != EXTPTRSXP || R_ExternalPtrTag(handle) != fit_tag() ||
        TYPEOF(R_ExternalPtrProtected(handle)) != RAWSXP ||
        XLENGTH(R_ExternalPtrProtected(handle)) < 1)
        Rf_error("this is not a fit");
    VEMKNFit* fit = R_ExternalPtrAddr(handle);
    if (fit != NULL) return fit;
    SEXP text = R_ExternalPtrProtected(handle);
    R_RegisterCFinalizerEx(handle, finalise_fit, TRUE);
    if (vemkn_fit_read((const char*)RAW(text), (size_t)XLENGTH(text) - 1, &fit) == VEMKN_FIT_OK)
        R_SetExternalPtrAddr(handle, fit);
    return fit;
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
    struct watch watch = {.seen = PROTECT(Rf_allocVector(VECSXP, 1))};
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
    SEXP event = code == VEMKN_FIT_CANCELLED ? VECTOR_ELT(watch.seen, 0) : R_NilValue;
    SEXP answer = event != R_NilValue ? event : owned(handle, fit, code);
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
