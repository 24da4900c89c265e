#include "data_text.h"
#include "escape.h"
#include "report.h"
#include "text.h"

namespace fit {
namespace {

void put(std::string& text, const std::string& key, const std::string& value)
{
    text += key + "=" + value + "\n";
}

void put(std::string& text, const std::string& key, double value)
{
    put(text, key, exact_number(value));
}

void put_count(std::string& text, const std::string& key, std::size_t value)
{
    put(text, key, std::to_string(value));
}

void put_figures(std::string& text,
                 const std::string& prefix,
                 const std::string& target,
                 const Figures& figures)
{
    const std::string key = key_part(target);
    put(text, prefix + "median_error." + key, figures.median_error);
    put(text, prefix + "rms_error." + key, figures.rms_error);
    put(text, prefix + "bias." + key, figures.bias);
    put(text, prefix + "outliers." + key, figures.outliers);
}

void put_judged(std::string& text,
                const std::string& prefix,
                const std::vector<std::string>& targets,
                const Judged& judged)
{
    const Fit& fit = judged.fit;
    put(text, prefix + "objective", fit.objective);
    put(text, prefix + "gradient_norm", fit.gradient_norm);
    put(text, prefix + "ending", fit.starts[fit.best].ending);
    if (fit.decay) put(text, prefix + "decay", *fit.decay);
    put_count(text, prefix + "best_start", fit.best + 1);
    put_count(text, prefix + "evaluations", fit.counts.total());
    put_count(text, prefix + "value_calls", fit.counts.values);
    put_count(text, prefix + "gradient_calls", fit.counts.gradients);
    put_count(text, prefix + "product_calls", fit.counts.products);
    put_count(text, prefix + "hessian_calls", fit.counts.hessians);
    put_count(text, prefix + "jacobian_calls", fit.counts.jacobians);
    put_count(text, prefix + "refused_steps", fit.counts.refused);
    put(text, prefix + "seconds", fit.seconds);
    for (std::size_t t = 0; t < targets.size(); ++t)
        put_figures(text, prefix + "training.", targets[t], judged.predictions.training[t]);
    if (judged.predictions.held_out.empty()) return;
    put(text, prefix + "held_out_objective", fit.validation);
    for (std::size_t t = 0; t < targets.size(); ++t)
        put_figures(text, prefix + "held_out.", targets[t], judged.predictions.held_out[t]);
}

std::string heading_of(const Problem& problem, const Results& results)
{
    std::string text = "line,set";
    for (const std::string& name : problem.columns.input_names) text += "," + csv_cell(name);
    for (const std::string& name : problem.columns.target_names) {
        text += "," + csv_cell(name);
        for (const char* const what : {"fit", "residual", "outlier"})
            text += "," + csv_cell(std::string(what) + "(" + name + ")");
        if (results.errors.size() > 0) text += "," + csv_cell("standard_error(" + name + ")");
        if (results.least_squares) text += "," + csv_cell("least_squares(" + name + ")");
    }
    return text + "\n";
}

}  // namespace

std::string summary(const Problem& problem,
                    const Options& options,
                    const Network& network,
                    const Results& results)
{
    const auto& targets = problem.columns.target_names;
    std::string text;
    put(text, "version", VEMKN_VERSION);
    put(text, "data", visible(data_name(options.data)));
    put_count(text, "training_rows", problem.training.size());
    put_count(text, "held_out_rows", problem.held_out.size());
    put_count(text, "dropped_rows", problem.columns.dropped);
    put(text, "network", network.shape().text());
    put_count(text, "weights", static_cast<std::size_t>(network.size()));
    put(text, "norm", options.fit.norm);
    put(text, "method", method_name(options.fit.method));
    put_count(text, "seed", options.fit.seed);
    put_count(text, "starts", static_cast<std::size_t>(options.fit.starts));
    for (std::size_t t = 0; t < targets.size(); ++t) {
        put(text, "core." + key_part(targets[t]), problem.targets.scales[t].core);
        put(text, "shift." + key_part(targets[t]), problem.targets.scales[t].shift);
    }
    put_judged(text, "", targets, results.main);
    if (results.least_squares) put_judged(text, "least_squares.", targets, *results.least_squares);
    if (results.laplace)
        put_count(text, "directions_raised", static_cast<std::size_t>(results.laplace->raised()));
    return text;
}

Eigen::Index predictions_per_target(const Results& results)
{
    return 4 + (results.errors.size() > 0 ? 1 : 0) + (results.least_squares ? 1 : 0);
}

std::string predictions_csv(const Problem& problem, const Results& results)
{
    const Columns& columns = problem.columns;
    std::vector<bool> held_out(columns.lines.size(), false);
    for (const std::size_t row : problem.held_out) held_out[row] = true;
    std::string text = heading_of(problem, results);
    for (Eigen::Index i = 0; i < columns.inputs.rows(); ++i) {
        const auto at = static_cast<std::size_t>(i);
        text += std::to_string(columns.lines[at]) + (held_out[at] ? ",held_out" : ",training");
        for (const double value : columns.inputs.row(i)) text += "," + exact_number(value);
        for (Eigen::Index t = 0; t < columns.targets.cols(); ++t) {
            const Predictions& fitted = results.main.predictions;
            text += "," + exact_number(columns.targets(i, t)) + "," +
                    exact_number(fitted.values(i, t)) + "," + exact_number(fitted.residuals(i, t)) +
                    (fitted.outliers(i, t) ? ",1" : ",0");
            if (results.errors.size() > 0) text += "," + number(results.errors(i, t), 6);
            if (results.least_squares)
                text += "," + exact_number(results.least_squares->predictions.values(i, t));
        }
        text += "\n";
    }
    return text;
}

std::string weights_text(const Problem& problem, const Network& network, const Vector& w)
{
    std::string text = "# network: " + network.description() + "\n";
    for (const std::string& rule : problem.inputs.describe())
        text += "# input " + visible(rule) + "\n";
    for (std::size_t t = 0; t < problem.targets.scales.size(); ++t)
        text += "# output " + visible(problem.columns.target_names[t]) + ": y * " +
                exact_number(problem.targets.scales[t].unit()) + " + " +
                exact_number(problem.targets.scales[t].shift) + "\n";
    text += "# weights: layer by layer the biases, then the matrix by rows, a row for each input\n";
    for (const double value : w) text += exact_number(value) + "\n";
    return text;
}

}  // namespace fit
