/* External pointers that own a network.
 *
 * The pointer's protected value is the list (description, threads, batch) from which the network
 * was built. R saves it with a workspace, but not the address; so a nil pointer with a description
 * is built anew when it is used. The tag distinguishes such a pointer from one that was released. */
#include <string.h>

#include "glue.h"

static SEXP alive(void)
{
    return Rf_install("vemkn_network");
}

static SEXP released(void)
{
    return Rf_install("vemkn_released");
}

static void finalise(SEXP handle)
{
    releaseVEMKNet(R_ExternalPtrAddr(handle));
    R_ClearExternalPtr(handle);
}

/* Whether the network can be called, with as many columns as numin says. */
static int is_sound(VEMKNInfo* net)
{
    const uint64_t size = vemk_numel(net);
    return size > 0 && size <= INT_MAX && vemk_maxcols(net) == vemk_numin(net);
}

static void build(SEXP handle)
{
    SEXP settings = R_ExternalPtrProtected(handle);
    if (TYPEOF(settings) != VECSXP || LENGTH(settings) != 3) Rf_error("this is not a network");
    SEXP text = VECTOR_ELT(settings, 0);
    const int threads = Rf_asInteger(VECTOR_ELT(settings, 1));
    const int batch = Rf_asInteger(VECTOR_ELT(settings, 2));
    if (TYPEOF(text) != STRSXP || LENGTH(text) != 1 || threads == NA_INTEGER || threads < 1 ||
        batch == NA_INTEGER || batch < 1)
        Rf_error("this is not the description of a network");

    const char* words = CHAR(STRING_ELT(text, 0));
    VEMKNInfo* net = NULL;
    const int status = library_create(words, (int)strlen(words), (unsigned)threads, batch, &net);
    if (status != 0 || !is_sound(net)) {
        releaseVEMKNet(net);
        check_status(status, "vemkn");
        char why[200];
        vemk_check(words, (int)strlen(words), why, sizeof why);
        /* The reason first: R cuts a message at 8 kB. */
        Rf_error("the library makes no network: %s (description \"%s\")", why, words);
    }
    R_SetExternalPtrAddr(handle, net);
    R_RegisterCFinalizerEx(handle, finalise, TRUE);
}

VEMKNInfo* network_of(SEXP handle)
{
    if (TYPEOF(handle) == EXTPTRSXP && R_ExternalPtrTag(handle) == released())
        Rf_error("the network was released");
    if (TYPEOF(handle) != EXTPTRSXP || R_ExternalPtrTag(handle) != alive())
        Rf_error("this is not a network");
    if (R_ExternalPtrAddr(handle) == NULL) build(handle);
    return R_ExternalPtrAddr(handle);
}

SEXP vemknr_create(SEXP text, SEXP threads, SEXP batch)
{
    SEXP settings = PROTECT(Rf_allocVector(VECSXP, 3));
    SET_VECTOR_ELT(settings, 0, text);
    SET_VECTOR_ELT(settings, 1, threads);
    SET_VECTOR_ELT(settings, 2, batch);
    SEXP handle = PROTECT(R_MakeExternalPtr(NULL, alive(), settings));
    build(handle);
    UNPROTECT(2);
    return handle;
}

SEXP vemknr_release(SEXP handle)
{
    network_of(handle);
    finalise(handle);
    R_SetExternalPtrTag(handle, released());
    return R_NilValue;
}

SEXP vemknr_numel(SEXP handle)
{
    return Rf_ScalarInteger((int)vemk_numel(network_of(handle)));
}

SEXP vemknr_words(SEXP norms)
{
    const char* (*const word)(unsigned) = Rf_asLogical(norms) ? vemk_norms : vemk_activations;
    unsigned n = 0;
    while (word(n) != NULL) ++n;
    SEXP words = PROTECT(Rf_allocVector(STRSXP, n));
    for (unsigned i = 0; i < n; ++i) SET_STRING_ELT(words, i, Rf_mkChar(word(i)));
    UNPROTECT(1);
    return words;
}

SEXP vemknr_version(void)
{
    return Rf_mkString(vemk_version());
}
