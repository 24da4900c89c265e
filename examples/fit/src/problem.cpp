#include "problem.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "../../common/random.h"
#include "text.h"
#include "user_error.h"

namespace fit {
namespace {

void check_reach(const Problem& problem)
{
    const double reach = problem.all.y.cwiseAbs().maxCoeff();
    if (!(reach <= 0.1 * Guard::limit))
        throw UserError("the target reaches " + number(reach) +
                        " after scaling, which no network can be trusted with: choose a larger "
                        "--core, or a --shift nearer to most of the data");
}

}  // namespace

Matrix rows_of(const Matrix& m, const std::vector<std::size_t>& rows)
{
    Matrix chosen(static_cast<Eigen::Index>(rows.size()), m.cols());
    for (std::size_t i = 0; i < rows.size(); ++i)
        chosen.row(static_cast<Eigen::Index>(i)) = m.row(static_cast<Eigen::Index>(rows[i]));
    return chosen;
}

Guard Problem::guard(const Shape& shape) const
{
    return {shape, all.x.cwiseAbs().colwise().maxCoeff().transpose()};
}

void set_targets(Problem& problem, TargetMap targets)
{
    problem.targets = std::move(targets);
    problem.all.y = problem.targets.apply(problem.columns.targets);
    problem.train.y = rows_of(problem.all.y, problem.training);
    problem.validation.y = rows_of(problem.all.y, problem.held_out);
}

Problem make_problem(Columns columns,
                     const ProblemOptions& options,
                     Shape& shape,
                     std::vector<std::string>& notes)
{
    const std::size_t rows = columns.lines.size();
    const auto wanted =
        static_cast<std::size_t>(std::lround(options.held_out_share * static_cast<double>(rows)));
    std::vector<std::size_t> order = examples::Random(options.seed).permutation(rows);
    std::vector<std::size_t> held_out(order.begin(),
                                      order.begin() + static_cast<std::ptrdiff_t>(wanted));
    std::vector<std::size_t> training(order.begin() + static_cast<std::ptrdiff_t>(wanted),
                                      order.end());
    if (training.size() < 2)
        throw UserError("only " + std::to_string(training.size()) + " rows to train on");
    std::sort(held_out.begin(), held_out.end());
    std::sort(training.begin(), training.end());

    const Matrix raw = rows_of(columns.inputs, training);
    const Scaling scaling = options.robust ? Scaling::bounded : Scaling::standard;
    InputMap inputs(raw, columns.input_names, options.periodic, scaling);
    for (const std::string& name : inputs.constant())
        notes.push_back("column '" + name + "' holds one value only");
    shape.inputs = static_cast<unsigned>(inputs.width());
    shape.outputs = static_cast<unsigned>(columns.targets.cols());
    TargetMap targets = make_target_map(inputs.apply(raw),
                                        rows_of(columns.targets, training),
                                        columns.target_names,
                                        options.targets,
                                        shape.output_range(),
                                        notes);
    Batch all{inputs.apply(columns.inputs), targets.apply(columns.targets)};
    Batch train{rows_of(all.x, training), rows_of(all.y, training)};
    Batch validation{rows_of(all.x, held_out), rows_of(all.y, held_out)};
    Problem problem{std::move(columns),
                    std::move(training),
                    std::move(held_out),
                    std::move(inputs),
                    std::move(targets),
                    std::move(train),
                    std::move(validation),
                    std::move(all)};
    if (!options.robust) check_reach(problem);
    return problem;
}

}  // namespace fit
