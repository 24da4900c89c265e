#include "report.h"

#include <algorithm>

#include "data_text.h"
#include "escape.h"
#include "report_lines.h"
#include "text.h"

namespace fit {
namespace {

/// One figure of each judged fit, in training and on the held-out rows.
template <class Get>
std::vector<std::string> cells(const Results& results, Get get)
{
    std::vector<std::string> out;
    const auto add = [&](const Judged& judged) {
        out.push_back(get(judged, judged.predictions.training));
        if (!judged.predictions.held_out.empty())
            out.push_back(get(judged, judged.predictions.held_out));
    };
    add(results.main);
    if (results.least_squares) add(*results.least_squares);
    return out;
}

std::string target_table(const Results& results, const std::string& name, std::size_t t)
{
    using List = std::vector<Figures>;
    std::string text = "\n" + row(name, cells(results, [&](const Judged& judged, const List& list) {
                                      const bool training = &list == &judged.predictions.training;
                                      return std::string(training ? "training" : "held out");
                                  }));
    text += row("median |error|", cells(results, [&](const Judged&, const List& list) {
                    return number(list[t].median_error, 4);
                }));
    text += row("median error (bias)", cells(results, [&](const Judged&, const List& list) {
                    return number(list[t].bias, 4);
                }));
    text += row("root mean square error", cells(results, [&](const Judged&, const List& list) {
                    return number(list[t].rms_error, 4);
                }));
    return text +
           row("beyond six core scales", cells(results, [&](const Judged&, const List& list) {
                   return percent(list[t].outliers);
               }));
}

std::string starts_table(const Fit& fit, bool held_out)
{
    std::string text;
    for (std::size_t i = 0; i < fit.starts.size(); ++i) {
        const StartResult& start = fit.starts[i];
        text +=
            line(i == 0 ? "starts" : "",
                 number(start.objective, 8) +
                     (held_out ? " (held out " + number(start.validation, 8) + ")" : "") +
                     (start.counts.total() == 0
                          ? ": "
                          : " after " + std::to_string(start.counts.total()) + " evaluations: ") +
                     start.ending + (i == fit.best ? "  <- kept" : ""));
    }
    return text;
}

/// As in "12 values, 30 gradients", what there is none of left out.
std::string calls_of(const Counts& counts)
{
    std::vector<std::string> words;
    const auto add = [&](std::size_t count, const char* what) {
        if (count > 0) words.push_back(std::to_string(count) + " " + what);
    };
    add(counts.values, "values");
    add(counts.gradients, "gradients");
    add(counts.products, "Hessian products");
    add(counts.hessians, "Hessians");
    add(counts.jacobians, "Jacobians");
    return join(words, ", ");
}

std::string fit_lines(const Fit& fit, bool held_out)
{
    std::string text = starts_table(fit, held_out);
    text += line("objective",
                 number(fit.objective, 8) + " in training" +
                     (held_out ? ", " + number(fit.validation, 8) + " held out" : ""));
    text += line("gradient norm", number(fit.gradient_norm, 3));
    if (fit.decay) text += line("decay", number(*fit.decay));
    if (fit.counts.total() == 0) return text + line("seconds", number(fit.seconds, 3));
    const auto total = static_cast<double>(fit.counts.total());
    text += line("evaluations",
                 std::to_string(fit.counts.total()) + " in " + number(fit.seconds, 3) + " s, " +
                     number(total / std::max(fit.seconds, 1e-9), 4) + " per second (" +
                     calls_of(fit.counts) + ")");
    if (fit.counts.refused > 0)
        text += line("refused steps",
                     std::to_string(fit.counts.refused) + ", to weights that might overflow");
    return text;
}

}  // namespace

std::string describe_problem(const Problem& problem, const Options& options, const Shape& shape)
{
    const Columns& columns = problem.columns;
    std::string text =
        line("data",
             visible(data_name(options.data)) + ": " + std::to_string(problem.training.size()) +
                 " rows for training, " + std::to_string(problem.held_out.size()) + " held out" +
                 left_out_rows(columns.dropped));
    text += line("inputs", visible(join(problem.inputs.names(), ", ")));
    for (std::size_t t = 0; t < columns.target_names.size(); ++t) {
        const TargetScale& scale = problem.targets.scales[t];
        text += line(t == 0 ? "target" : "",
                     visible(columns.target_names[t]) + ", mapped by (y - " + number(scale.shift) +
                         ") / (3 * " + number(scale.core) + ")");
    }
    return text + line("network",
                       shape.text() + ", norm " + options.fit.norm + ", method " +
                           method_name(options.fit.method));
}

std::string describe_results(const Problem& problem, const Options& options, const Results& results)
{
    const bool held_out = !problem.held_out.empty();
    std::string text = fit_lines(results.main.fit, held_out);
    if (results.least_squares) {
        text += "\nThe same network by least squares:\n";
        text += fit_lines(results.least_squares->fit, held_out);
        const std::string name = options.fit.norm == "sum" ? "this fit" : "robust";
        text += "\n" + row("",
                           held_out ? std::vector<std::string>{name, "", "least sq.", ""}
                                    : std::vector<std::string>{name, "least sq."});
        text.pop_back();
    }
    for (std::size_t t = 0; t < problem.columns.target_names.size(); ++t)
        text += target_table(results, visible(problem.columns.target_names[t]), t);
    return text;
}

}  // namespace fit
