/* NLopt: L-BFGS on the objective and its gradient. */
#include <math.h>
#include <nlopt.h>
#include <stdlib.h>

#include "problem.h"

static double objective(unsigned nw, const double* w, double* gradient, void* data)
{
    Problem* p = data;
    double value;
    int status;
    if (gradient != NULL) {
        ++p->gradients;
        status = vemk_g(p->net, w, nw, p->x, p->y, p->rows, INPUTS, OUTPUTS, &value, gradient);
    } else {
        ++p->values;
        status = vemk_obj(p->net, w, nw, p->x, p->y, p->rows, INPUTS, OUTPUTS, &value);
    }
    return status == 0 ? value : HUGE_VAL; /* a step that overflowed: NLopt tries a shorter one */
}

int main(int argc, char** argv)
{
    Problem* p = problem_open(argc, argv, "sum_log_dnorm_fat");
    nlopt_opt optimiser = nlopt_create(NLOPT_LD_LBFGS, p->nw);
    double* w = malloc(p->nw * sizeof *w);
    double value;
    if (optimiser == NULL || w == NULL) return 1;
    nlopt_set_min_objective(optimiser, objective, p);
    nlopt_set_ftol_rel(optimiser, 1e-14);
    nlopt_set_maxeval(optimiser, 20000);

    problem_start(p, w);
    const nlopt_result result = nlopt_optimize(optimiser, w, &value);
    problem_report(p, "NLopt", "L-BFGS", w);

    nlopt_destroy(optimiser);
    free(w);
    problem_close(p);
    return result < 0;
}
