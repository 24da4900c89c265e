// Ipopt: Newton's method with the exact Hessian. vemk_Hv along all unit tangents gives the whole matrix in one call.
#include <IpIpoptApplication.hpp>
#include <IpTNLP.hpp>
#include <algorithm>
#include <cstdlib>
#include <limits>
#include <vector>

#include "problem.h"

using Ipopt::Index;
using Ipopt::Number;

class Fit final : public Ipopt::TNLP {
public:
    // All weights are kept within -bound ... bound; an infinite bound is none.
    Fit(Problem* problem, double bound)
        : p(problem), limit(bound), tangents(std::size_t{p->nw} * p->nw), hessian(tangents.size())
    {
        for (std::size_t k = 0; k < p->nw; ++k) tangents[k * p->nw + k] = 1.0;
    }

    bool get_nlp_info(Index& n, Index& m, Index& jacobian, Index& lower, IndexStyleEnum& style) override
    {
        n = static_cast<Index>(p->nw);
        m = 0;
        jacobian = 0;
        lower = n * (n + 1) / 2;
        style = C_STYLE;
        return true;
    }

    bool get_bounds_info(Index n, Number* low, Number* high, Index, Number*, Number*) override
    {
        std::fill(low, low + n, -limit);
        std::fill(high, high + n, limit);
        return true;
    }

    bool get_starting_point(Index, bool, Number* w, bool, Number*, Number*, Index, bool, Number*) override
    {
        problem_start(p, w);
        return true;
    }

    // False, here and below, for a step that overflowed: Ipopt tries a shorter one.
    bool eval_f(Index, const Number* w, bool, Number& value) override
    {
        ++p->values;
        return vemk_obj(p->net, w, p->nw, p->x, p->y, p->rows, INPUTS, OUTPUTS, &value) == 0;
    }

    bool eval_grad_f(Index, const Number* w, bool, Number* gradient) override
    {
        Number value = 0.0;
        ++p->gradients;
        return vemk_g(p->net, w, p->nw, p->x, p->y, p->rows, INPUTS, OUTPUTS, &value, gradient) == 0;
    }

    bool eval_g(Index, const Number*, bool, Index, Number*) override { return true; }

    bool eval_jac_g(Index, const Number*, bool, Index, Index, Index*, Index*, Number*) override { return true; }

    // The lower triangle, row by row: first its places, with null values, later its numbers.
    bool eval_h(Index n, const Number* w, bool, Number factor, Index, const Number*, bool, Index, Index* row,
                Index* column, Number* values) override
    {
        if (values != nullptr && !evaluate_hessian(w)) return false;
        for (Index i = 0, place = 0; i < n; ++i) {
            for (Index j = 0; j <= i; ++j, ++place) {
                if (values == nullptr) {
                    row[place] = i;
                    column[place] = j;
                } else {
                    values[place] = factor * hessian[static_cast<std::size_t>(i * n + j)];
                }
            }
        }
        return true;
    }

    void finalize_solution(Ipopt::SolverReturn, Index, const Number* w, const Number*, const Number*, Index,
                           const Number*, const Number*, Number, const Ipopt::IpoptData*,
                           Ipopt::IpoptCalculatedQuantities*) override
    {
        problem_report(p, "Ipopt", "Newton", w);
    }

private:
    bool evaluate_hessian(const Number* w)
    {
        Number value = 0.0;
        std::vector<Number> gradient(p->nw);
        p->products += p->nw;
        return vemk_Hv(p->net, w, p->nw, tangents.data(), p->nw, p->x, p->y, p->rows, INPUTS, OUTPUTS, &value,
                       gradient.data(), hessian.data()) == 0;
    }

    Problem* p;
    double limit;
    std::vector<Number> tangents;  // the unit matrix
    std::vector<Number> hessian;
};

// The second argument, if there is one, is the bound.
int main(int argc, char** argv)
{
    Problem* p = problem_open(argc, argv, "sum_log_dnorm_fat");
    const double bound = argc > 2 ? std::atof(argv[2]) : std::numeric_limits<double>::infinity();
    Ipopt::SmartPtr<Ipopt::IpoptApplication> ipopt = IpoptApplicationFactory();
    ipopt->Options()->SetIntegerValue("print_level", 0);
    ipopt->Options()->SetStringValue("sb", "yes");
    ipopt->Options()->SetNumericValue("tol", 1e-9);
    const bool done = ipopt->Initialize() == Ipopt::Solve_Succeeded &&
                      ipopt->OptimizeTNLP(new Fit(p, bound)) == Ipopt::Solve_Succeeded;
    problem_close(p);
    return done ? 0 : 1;
}
