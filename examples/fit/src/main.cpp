#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "cross_validation.h"
#include "escape.h"
#include "model.h"
#include "note.h"
#include "options.h"
#include "output_directory.h"
#include "plot.h"
#include "predict.h"
#include "report.h"
#include "robust.h"
#include "show.h"
#include "text.h"
#include "user_error.h"

namespace fit {
namespace {

void say(const std::string& text)
{
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

Eigen::Index column_to_plot(const Problem& problem, const Options& options)
{
    std::string name = options.plot_over;
    if (name.empty() && !options.problem.periodic.empty())
        name = options.problem.periodic.front().name;
    if (name.empty()) return 0;
    const auto& names = problem.columns.input_names;
    for (std::size_t i = 0; i < names.size(); ++i)
        if (names[i] == name) return static_cast<Eigen::Index>(i);
    throw UserError("--plot-over: '" + name + "' is not an input column");
}

/// Both networks of one shape: under the norm that is fitted, and with plain residuals.
struct Networks {
    Network fitted;
    Network plain;
};

Judged judge(const Problem& problem, const Network& network, Fit fit)
{
    Predictions predictions = predict(problem, network, fit.weights);
    return {std::move(fit), std::move(predictions)};
}

Judged judge(const Problem& problem, const Network& network, const Options& options)
{
    Progress progress(options.quiet ? Progress::Style::silent : Progress::suitable_style());
    return judge(problem, network, run_fit(problem, network, options.fit, progress));
}

/// Of the fit's own objective; of a robust fit as the library says.
std::optional<Laplace> laplace_of(const Problem& problem,
                                  const Networks& networks,
                                  const Options& options,
                                  const Fit& fit)
{
    if (const VEMKNFit* const model = fit.model.get()) {
        if (const double* const covariance = vemkn_fit_covariance(model))
            return Laplace::of_covariance(
                Eigen::Map<const Matrix>(covariance, fit.weights.size(), fit.weights.size()));
        return {};  // a note of the library says why
    }
    const Guard guard = problem.guard(networks.plain.shape());
    const auto objective =
        make_objective(options.fit.method, networks.fitted, problem.train, guard);
    const bool squares = options.fit.method == Method::gauss_newton;
    return Laplace(information(*objective, fit.weights, squares));
}

void add_uncertainty(const Problem& problem,
                     const Networks& networks,
                     const Options& options,
                     Results& results)
{
    const Vector& w = results.main.fit.weights;
    results.laplace = laplace_of(problem, networks, options, results.main.fit);
    if (!results.laplace) return;
    results.errors = prediction_errors(*results.laplace, networks.plain, w, problem.all.x);
    for (Eigen::Index t = 0; t < results.errors.cols(); ++t)
        results.errors.col(t) *= problem.targets.scales[static_cast<std::size_t>(t)].unit();
    if (results.laplace->raised() > 0)
        put_note("the data do not determine " + std::to_string(results.laplace->raised()) + " of " +
                 std::to_string(w.size()) + " directions in weight space (in " +
                 std::to_string(results.laplace->negative()) +
                 " the Hessian curves downwards); the standard errors take the weights there as "
                 "uncertain by 1");
}

Results compute(const Problem& problem,
                const Networks& networks,
                const Options& options,
                std::optional<Fit> robust)
{
    Results results{.main = robust ? judge(problem, networks.fitted, *std::move(robust))
                                   : judge(problem, networks.fitted, options),
                    .least_squares = {},
                    .laplace = {},
                    .errors = {}};
    if (options.compare) {
        Options squares = options;
        squares.fit.method = Method::gauss_newton;
        squares.fit.norm = "sum";
        results.least_squares = judge(problem, networks.plain, squares);
    }
    if (options.uncertainty) add_uncertainty(problem, networks, options, results);
    return results;
}

/// A core scale that is much too small shows in how few rows it explains.
void warn_of_small_core(const Problem& problem, const Results& results)
{
    const double suspicious = 0.2;
    for (std::size_t t = 0; t < problem.columns.target_names.size(); ++t)
        if (results.main.predictions.training[t].outliers > suspicious)
            put_note("more than a fifth of '" + problem.columns.target_names[t] +
                     "' lies beyond six core scales" +
                     (results.main.fit.decay ? ": outliers, or scatter that varies"
                                             : ": is --core too small?"));
}

PlotContent plot_content(const Problem& problem,
                         const Network& plain,
                         const Options& options,
                         const Results& results)
{
    const Eigen::Index column = column_to_plot(problem, options);
    const Laplace* laplace = results.laplace ? &*results.laplace : nullptr;
    PlotContent content{
        .column = column,
        .fit = average_curve(problem, plain, results.main.fit.weights, column, laplace),
        .least_squares = {},
        .medians = sliced_medians(problem, column),
        .fit_name = options.fit.norm == "sum" ? "least squares fit" : "robust fit"};
    if (results.least_squares)
        content.least_squares =
            average_curve(problem, plain, results.least_squares->fit.weights, column, nullptr);
    return content;
}

void write_files(const Problem& problem,
                 const Networks& networks,
                 const Options& options,
                 const Results& results,
                 OutputDirectory& out)
{
    out.open();
    out.write("model.json", model_text(problem, options, results.main.fit));
    out.write("weights.txt", weights_text(problem, networks.fitted, results.main.fit.weights));
    out.write("predictions.csv", predictions_csv(problem, results));
    std::string trouble;
    if (options.plot) {
        const PlotContent content = plot_content(problem, networks.plain, options, results);
        out.write("curve.csv", curve_csv(problem, content));
        out.write("medians.csv", medians_csv(problem, content));
        out.write("plot.gp",
                  plot_script(problem,
                              content,
                              problem.columns.inputs.cols() + 3,
                              predictions_per_target(results)));
        trouble = run_gnuplot(out.waiting(), "plot.gp");
        if (!trouble.empty())
            put_note(trouble + ", so there is no plot.png; plot.gp draws it later");
    }
    const auto left = out.commit(summary(problem, options, networks.fitted, results));
    if (!left.empty())
        put_note("not known to be from an earlier run, or changed since, so it stays in " +
                 options.out + ": " + join(left, ", "));
    const bool drawn = options.plot && trouble.empty();
    say("\nwritten to " + visible(options.out) +
        ": model.json, weights.txt, predictions.csv, summary.txt" + (drawn ? ", plot.png" : "") +
        "\n");
}

void run(const Options& options)
{
    Columns columns = choose_columns(read_csv(options.data), options.columns);
    Shape shape = options.shape;
    std::vector<std::string> notes = columns.notes;
    Problem problem = make_problem(std::move(columns), options.problem, shape, notes);
    column_to_plot(problem, options);  // a wrong name should not wait for the end of the fit
    OutputDirectory out(options.out, options.data, options.plot);
    const Networks networks{{shape, options.fit.norm, options.fit.threads},
                            {shape, "sum", options.fit.threads}};
    std::optional<Fit> robust;
    if (options.fit.method == Method::robust)
        robust = run_robust_fit(problem, networks.fitted, options.fit);
    say(describe_problem(problem, options, shape));
    for (const std::string& note : notes) put_note(note);
    const Results results = compute(problem, networks, options, std::move(robust));
    say(describe_results(problem, options, results));
    warn_of_small_core(problem, results);
    const VEMKNFit* const model = results.main.fit.model.get();
    for (std::size_t i = 0; i < vemkn_fit_notes(model); ++i) put_note(vemkn_fit_note(model, i));
    write_files(problem, networks, options, results, out);
}

}  // namespace
}  // namespace fit

int main(int argc, char** argv)
{
    try {
        const std::string verb = argc > 1 ? argv[1] : "";
        if (verb == "predict") return fit::run_predict(argc - 1, argv + 1);
        if (verb == "show") return fit::run_show(argc - 1, argv + 1);
        const bool validates = verb == "cv";
        if (validates || verb == "fit") --argc, ++argv;  // fit may be left out
        int status = 0;
        const auto options =
            fit::parse_options(validates ? fit::Verb::cv : fit::Verb::fit, argc, argv, status);
        if (options) validates ? fit::cross_validate(*options) : fit::run(*options);
        return status;
    } catch (const fit::UserError& error) {
        std::fprintf(stderr, "vemkn-fit: %s\n", error.what());
        return 2;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vemkn-fit: %s\n", fit::visible(error.what()).c_str());
        return 1;
    }
}
