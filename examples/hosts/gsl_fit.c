/* GSL: nonlinear least squares in a trust region, by conjugate gradients (Steihaug and Toint). The Jacobian is never
 * formed: the method asks for products with it and with its transpose only, and for no J^T J.
 *
 * GSL knows no likelihood. But as long as all residuals stay within 2 of zero, the likelihood is 4.5 r^2, and this is
 * the same fit as that of the other hosts: the data and the start are chosen so. The norm "sum" leaves the residuals as
 * they are, and vemk_Jv and vemk_vJ give products with their Jacobian. The vectors that GSL hands on are contiguous. */
#include <gsl/gsl_multilarge_nlinear.h>

#include "problem.h"

static int residuals(const gsl_vector* w, void* data, gsl_vector* f)
{
    Problem* p = data;
    ++p->values;
    /* A step that overflowed gets residuals so large that GSL tries a shorter one. NaN would not do: GSL compares
     * norms so that a step to NaN counts as a good one. */
    if (vemk_residual(p->net, w->data, p->nw, p->x, p->y, p->rows, INPUTS, OUTPUTS, f->data) != 0)
        gsl_vector_set_all(f, 1e100);
    return GSL_SUCCESS;
}

static int product(CBLAS_TRANSPOSE_t which, const gsl_vector* w, const gsl_vector* u, void* data, gsl_vector* v,
                   gsl_matrix* jtj)
{
    Problem* p = data;
    int status;
    (void)jtj; /* null, as the method does without */
    ++p->products;
    if (which == CblasNoTrans)
        status = vemk_Jv(p->net, w->data, p->nw, u->data, 1, p->x, p->y, p->rows, INPUTS, OUTPUTS, NULL, v->data);
    else
        status = vemk_vJ(p->net, w->data, p->nw, u->data, 0, p->x, p->y, p->rows, INPUTS, OUTPUTS, NULL, v->data);
    return status == 0 ? GSL_SUCCESS : GSL_EBADFUNC;
}

int main(int argc, char** argv)
{
    Problem* p = problem_open(argc, argv, "sum");
    gsl_multilarge_nlinear_fdf fdf = {.f = residuals, .df = product, .n = p->rows, .p = p->nw, .params = p};
    gsl_multilarge_nlinear_parameters parameters = gsl_multilarge_nlinear_default_parameters();
    parameters.trs = gsl_multilarge_nlinear_trs_cgst;
    gsl_multilarge_nlinear_workspace* work =
        gsl_multilarge_nlinear_alloc(gsl_multilarge_nlinear_trust, &parameters, p->rows, p->nw);
    gsl_vector* w = gsl_vector_alloc(p->nw);
    int info;

    problem_start(p, w->data);
    gsl_multilarge_nlinear_init(w, &fdf, work);
    const int status = gsl_multilarge_nlinear_driver(1000, 0.0, 1e-7, 0.0, NULL, NULL, &info, work);
    problem_report(p, "GSL", "trust region, CG", gsl_multilarge_nlinear_position(work)->data);

    gsl_vector_free(w);
    gsl_multilarge_nlinear_free(work);
    problem_close(p);
    return status != GSL_SUCCESS;
}
