// Ceres: its solver for unconstrained problems, L-BFGS with a Wolfe line search, on the objective and its gradient.
#include <ceres/ceres.h>

#include <vector>

#include "problem.h"

class Objective final : public ceres::FirstOrderFunction {
public:
    explicit Objective(Problem* problem) : p(problem) {}

    int NumParameters() const override { return static_cast<int>(p->nw); }

    bool Evaluate(const double* w, double* value, double* gradient) const override
    {
        int status = 0;
        if (gradient != nullptr) {
            ++p->gradients;
            status = vemk_g(p->net, w, p->nw, p->x, p->y, p->rows, INPUTS, OUTPUTS, value, gradient);
        } else {
            ++p->values;
            status = vemk_obj(p->net, w, p->nw, p->x, p->y, p->rows, INPUTS, OUTPUTS, value);
        }
        return status == 0;  // false for a step that overflowed: Ceres tries a shorter one
    }

private:
    Problem* p;
};

int main(int argc, char** argv)
{
    Problem* p = problem_open(argc, argv, "sum_log_dnorm_fat");
    std::vector<double> w(p->nw);
    const ceres::GradientProblem problem(new Objective(p));  // which owns the function
    ceres::GradientProblemSolver::Options options;
    options.logging_type = ceres::SILENT;
    options.max_num_iterations = 10000;
    options.function_tolerance = 1e-14;
    options.gradient_tolerance = 1e-9;
    options.parameter_tolerance = 0.0;

    problem_start(p, w.data());
    ceres::GradientProblemSolver::Summary summary;
    ceres::Solve(options, problem, w.data(), &summary);
    problem_report(p, "Ceres", "L-BFGS", w.data());

    problem_close(p);
    return summary.IsSolutionUsable() ? 0 : 1;
}
