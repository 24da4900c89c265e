#include <R_ext/Rdynload.h>
#include <R_ext/Visibility.h>

#include "glue.h"

/* clang-format off */
static const R_CallMethodDef entries[] = {
    {"create",           (DL_FUNC)&vemknr_create,           3},
    {"release",          (DL_FUNC)&vemknr_release,          1},
    {"numel",            (DL_FUNC)&vemknr_numel,            1},
    {"version",          (DL_FUNC)&vemknr_version,          0},
    {"words",            (DL_FUNC)&vemknr_words,            1},
    {"compute",          (DL_FUNC)&vemknr_compute,          3},
    {"residual",         (DL_FUNC)&vemknr_residual,         4},
    {"objective",        (DL_FUNC)&vemknr_objective,        4},
    {"gradient",         (DL_FUNC)&vemknr_gradient,         4},
    {"hessian_product",  (DL_FUNC)&vemknr_hessian_product,  5},
    {"jacobian_product", (DL_FUNC)&vemknr_jacobian_product, 5},
    {"product_jacobian", (DL_FUNC)&vemknr_product_jacobian, 5},
    {"fit",              (DL_FUNC)&vemknr_fit,              8},
    {"fit_load",         (DL_FUNC)&vemknr_fit_load,         1},
    {"fit_save",         (DL_FUNC)&vemknr_fit_save,         2},
    {"fit_predict",      (DL_FUNC)&vemknr_fit_predict,      2},
    {"fit_interval",     (DL_FUNC)&vemknr_fit_interval,     4},
    {"fit_summary",      (DL_FUNC)&vemknr_fit_summary,      1},
    {"fit_weights",      (DL_FUNC)&vemknr_fit_weights,      1},
    {"fit_covariance",   (DL_FUNC)&vemknr_fit_covariance,   1},
    {NULL, NULL, 0},
};

/* clang-format on */

void attribute_visible R_init_vemkn(DllInfo* dll)
{
    R_registerRoutines(dll, NULL, entries, NULL, NULL);
    R_useDynamicSymbols(dll, FALSE);
    R_forceSymbols(dll, TRUE);
}
