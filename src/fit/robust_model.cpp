#include "fit/robust_model.h"

#include <algorithm>
#include <cmath>

#include "fit/failure.h"
#include "fit/notes.h"
#include "fit/robust_fit.h"
#include "fit/target_scale.h"
#include "vemkn_fit.h"

namespace vemknfit {
namespace {

TargetScale scale_of(const Vector& y, const RobustOptions& options)
{
    const TargetScale scale(y);
    if (!scale.is_degenerate()) return scale;
    if (!options.core)
        throw Failure(VEMKN_FIT_SCATTER,
                      "more than half of the targets are one value, so their scatter cannot be "
                      "estimated: give the core");
    const TargetScale wider = TargetScale::by_quantiles(y);
    if (wider.is_degenerate())
        throw Failure(VEMKN_FIT_DATA, "all targets are one value: there is nothing to fit");
    return wider;
}

std::optional<double> core_in_spreads(const RobustOptions& options, const TargetScale& scale)
{
    constexpr double LEAST = 1e-6, MOST = 1e6;
    if (!options.core) return {};
    const double core = *options.core / scale.spread();
    if (core >= LEAST && core <= MOST) return core;
    throw Failure(VEMKN_FIT_ARGUMENT,
                  "the core is " + std::to_string(core) +
                      " of the spread of the targets: are its units those of the targets?");
}

// Before there is a network: the library would say on standard error what it refuses.
void check_size(std::size_t size, Eigen::Index rows)
{
    constexpr std::size_t MOST_WEIGHTS = 5000;
    constexpr double MOST_RESULTS = 0x1p32;
    const std::string weights = std::to_string(size) + " weights";
    if (size > MOST_WEIGHTS)
        throw Failure(VEMKN_FIT_ARGUMENT,
                      "the network has " + weights + ", more than " + std::to_string(MOST_WEIGHTS) +
                          ": take fewer or narrower layers");
    if (static_cast<double>(size) * static_cast<double>(rows) >= MOST_RESULTS)
        throw Failure(VEMKN_FIT_ARGUMENT,
                      std::to_string(rows) + " rows are too many for " + weights);
}

std::vector<ColumnRule> with_data(std::vector<ColumnRule> rules, const Matrix& columns)
{
    Eigen::Index c = 0;
    for (ColumnRule& rule : rules) {
        const Vector column = columns.col(c++);
        if (!rule.bounded) continue;
        std::string name = std::move(rule.name);
        rule = bounded_rule(column);
        rule.name = std::move(name);
    }
    return rules;
}

Summary summary_of(const CurveFit& rows, const Fit& fit)
{
    const Network& network = rows.network();
    const Batch batch = rows.all_rows(fit.curve);
    const Vector penalty = penalty_of(network, fit.decay, fit.curve.core);
    const auto sides = sides_of(network, batch, fit.curve.w);
    Vector gradient;
    const double value = Objective(network, batch, penalty).value(fit.curve.w, gradient);
    if (!std::isfinite(value) || !gradient.allFinite())
        throw Failure(VEMKN_FIT_DATA, "the fit came to numbers that are not finite");
    return {
        .objective = value,
        .gradient = gradient.norm(),
        .beyond = static_cast<std::uint64_t>(std::count(sides.begin(), sides.end(), Side::tail)),
        .settled = fit.is_settled};
}

}  // namespace

void check_numbers(const Matrix& numbers, const char* what)
{
    for (Eigen::Index r = 0; r < numbers.rows(); ++r) {
        for (Eigen::Index c = 0; c < numbers.cols(); ++c) {
            const double number = numbers(r, c);
            if (std::abs(number) <= LARGEST) continue;
            const std::string place =
                std::string(what) + ": row " + std::to_string(r + 1) +
                (numbers.cols() > 1 ? ", column " + std::to_string(c + 1) : std::string());
            throw Failure(VEMKN_FIT_DATA,
                          place + (std::isfinite(number)
                                       ? " is beyond 4e307, the largest number that can be taken"
                                       : " is not a finite number: leave the row out"),
                          r);
        }
    }
}

Model robust_model(const Matrix& columns,
                   const Vector& y,
                   std::vector<ColumnRule> rules,
                   const RobustOptions& options)
{
    check_numbers(columns, "x");
    check_numbers(y, "y");
    const InputMap map(with_data(std::move(rules), columns));
    const Matrix inputs = scaled_inputs(map, columns);
    check_size(number_of_weights(inputs.cols(), options.hidden, 1), inputs.rows());
    const Network network(inputs.cols(),
                          {options.hidden.begin(), options.hidden.end()},
                          options.activation,
                          options.threads);
    const TargetScale scale = scale_of(y, options);

    std::optional<Watch> watch;
    if (options.goes_on)
        watch.emplace([&](Progress progress) {
            progress.core *= scale.spread();
            return options.goes_on(progress);
        });
    const FittedRows rows(inputs, scale.apply(y));
    const Fit fit = robust_fit(network,
                               rows.inputs,
                               rows.y,
                               {.decay = options.decay,
                                .core = core_in_spreads(options, scale),
                                .starts = options.starts,
                                .seed = options.seed,
                                .watch = watch ? &*watch : nullptr});

    const CurveFit terms(network, rows.inputs, rows.y, {fit.decay});
    Summary summary = summary_of(terms, fit);
    Uncertainty uncertainty = uncertainty_of(terms, fit.curve);
    note_data(map, columns, options, network, summary.notes);
    note_fit(fit, options, summary, y.size());
    note_scatter(terms, fit.curve, summary.notes);
    note_uncertainty(uncertainty, y.size(), summary.notes);
    return {.hidden = options.hidden,
            .activation = options.activation,
            .inputs = map.rules(),
            .targets = {{.name = options.target,
                         .core = fit.curve.core * scale.spread(),
                         .shift = scale.undo(Vector::Constant(1, fit.curve.shift))[0]}},
            .weights = fit.curve.w,
            .method = "robust",
            .norm = "sum_log_dnorm_fat",
            .decay = fit.decay,
            .seed = options.seed,
            .rows = static_cast<std::uint64_t>(y.size()),
            .summary = std::move(summary),
            .uncertainty = std::move(uncertainty)};
}

}  // namespace vemknfit
