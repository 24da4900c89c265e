/* Interrupts and time limits, which R raises by a jump, while a fit runs.
 *
 * No jump may pass the library. Handlers outside are unknown to R_ToplevelExec; what they would have
 * seen is given to R code when the fit has ended, which raises it. No signal is raised again: where a
 * host embeds R, it may end the process. */
#include <R_ext/Utils.h>

#include "glue.h"

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

int watch_events(const VEMKNFitProgress* progress, void* host)
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
