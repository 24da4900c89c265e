#include "options.h"

#include <vemkn.h>

#include <CLI/CLI.hpp>
#include <map>
#include <string>
#include <vector>

#include "command_line.h"
#include "escape.h"
#include "text.h"
#include "user_error.h"

namespace fit {
namespace {

const char* const purpose =
    "Fits a small feed-forward network to columns of a CSV file so that gross outliers do not "
    "pull\n"
    "the fit along: residuals within six core scales count as Gaussian, those beyond as the tail "
    "of\n"
    "a Cauchy density. Writes weights, predictions and a plot.\n";

const char* const afterword =
    "Example: vemkn-fit data/flight_delays.csv --target delay_min --method robust \\\n"
    "    --inputs hour,day_of_year,distance_miles --periodic hour=24,day_of_year=365 --compare\n"
    "Other verbs: vemkn-fit cv DATA --target COLUMN, vemkn-fit predict MODEL DATA, vemkn-fit show "
    "MODEL;\n"
    "each has its --help.\n"
    "Files written: model.json, weights.txt, predictions.csv, summary.txt (key=value), curve.csv, "
    "medians.csv,\n"
    "plot.gp, plot.png. Exit status: 0 done, 2 wrong command line or data, 1 anything else.";

const char* const purpose_of_cv =
    "Cross-validates the robust fit: fits it as often as there are folds, each time to the rows of "
    "all\n"
    "others, and says how far the predictions of the rows left out are off. What is not given is\n"
    "estimated anew each time, the decay too.\n";

const char* const afterword_of_cv =
    "Example: vemkn-fit cv data/auto_mpg.csv --target mpg --drop-missing --hidden 4\n"
    "Exit status: 0 done, 2 wrong command line or data, 1 anything else.";

const std::map<std::string, Method> methods{{"lbfgs", Method::lbfgs},
                                            {"newton", Method::newton},
                                            {"gauss-newton", Method::gauss_newton},
                                            {"robust", Method::robust}};

const char* const robust_norm = "sum_log_dnorm_fat";

struct Raw {
    std::vector<std::string> periodic;
    std::string method = "lbfgs";
    std::string norm;
    double shift = 0.0;
    double decay = 0.0;
    bool no_plot = false;
};

void add_data_options(CLI::App& app, Verb verb, Options& options, Raw& raw)
{
    const char* group = "Data";
    const bool fits = verb == Verb::fit;
    app.add_option("data",
                   options.data,
                   "CSV file with a header row, plain or gzipped; - is standard input")
        ->required();
    app.add_option("--target",
                   options.columns.targets,
                   fits ? "Column to predict, or several: a,b" : "Column to predict")
        ->delimiter(',')
        ->required()
        ->group(group);
    app.add_option(
           "--inputs", options.columns.inputs, "Columns to predict from: a,b,c [all others]")
        ->delimiter(',')
        ->group(group);
    app.add_option("--periodic",
                   raw.periodic,
                   "Inputs to be replaced by sine and cosine: name=period, as in hour=24")
        ->delimiter(',')
        ->group(group);
    app.add_flag("--drop-missing",
                 options.columns.drop_missing,
                 "Leave out rows with a missing cell (empty, NA, NaN, NULL, ., -, ? and the like); "
                 "otherwise it is an error")
        ->group(group);
    app.add_flag("--decimal-comma",
                 options.columns.decimal_comma,
                 "Read 1,5 as one and a half; semicolons or tabs then separate cells")
        ->group(group);
    app.add_option(
           "--core",
           options.problem.targets.cores,
           fits ? "Standard deviation of the normal scatter, in units of the target; one for "
                  "all targets or one for each [from the spread around a robust straight "
                  "line; by --method robust with the weights]"
                : "Standard deviation of the normal scatter, in units of the target "
                  "[estimated with the weights]")
        ->delimiter(',')
        ->check(finite_number())
        ->check(CLI::PositiveNumber)
        ->group(group);
    if (!fits) {
        app.add_option(
               "--folds", options.folds, "Parts of the rows, each of which is left out once")
            ->check(CLI::Range(2, 1000))
            ->capture_default_str()
            ->group(group);
        return;
    }
    app.add_option("--shift", raw.shift, "Target value that maps to 0 [depends on --activation]")
        ->check(finite_number())
        ->group(group);
    app.add_option("--validation",
                   options.problem.held_out_share,
                   "Share of the rows that are held out; 0 turns early stopping off. Not held out "
                   "by --method robust unless given")
        ->check(finite_number())
        ->check(CLI::Range(0.0, 0.9))
        ->capture_default_str()
        ->group(group);
}

// Those that the library lists.
std::vector<std::string> known_activations()
{
    std::vector<std::string> words;
    for (unsigned i = 0; const char* const word = vemk_activations(i); ++i)
        words.emplace_back(word);
    return words;
}

void add_network_options(CLI::App& app, Verb verb, Options& options, Raw& raw)
{
    const char* group = "Network";
    options.shape.hidden = {6};
    options.shape.activation = "softplus";
    app.add_option("--hidden", options.shape.hidden, "Widths of the hidden layers: 6 or 16,16")
        ->delimiter(',')
        ->check(CLI::Range(1, 4096))
        ->capture_default_str()
        ->group(group);
    app.add_option("--activation",
                   options.shape.activation,
                   verb == Verb::fit
                       ? "softplus, atan, relu or id. It acts on the outputs, too: those of "
                         "softplus and relu are positive, those of atan lie within pi/2 of 0"
                       : "softplus, or id, a linear model")
        ->check(CLI::IsMember(verb == Verb::fit ? known_activations()
                                                : std::vector<std::string>{"softplus", "id"}))
        ->capture_default_str()
        ->group(group);
    if (verb == Verb::cv) return;
    app.add_option("--norm",
                   raw.norm,
                   "What is minimised: sum_log_dnorm_fat, the robust likelihood; or sum, with "
                   "gauss-newton only [as the method wants it]")
        ->group(group);
}

/// What other methods than the robust one take.
void add_other_method_options(CLI::App& app, FitOptions& fit, Raw& raw)
{
    const char* group = "Minimisation";
    app.add_option("--method",
                   raw.method,
                   "lbfgs; newton, with exact Hessians in a trust region; gauss-newton, least "
                   "squares instead of the robust likelihood; or robust, which estimates core and "
                   "shift with the weights and withstands up to 30 % of outliers: one target, "
                   "softplus or id")
        ->check(CLI::IsMember({"lbfgs", "newton", "gauss-newton", "robust"}))
        ->capture_default_str()
        ->group(group);
    app.add_option("--patience",
                   fit.patience,
                   "Steps that lower the training objective but not that of the held-out rows, "
                   "until a start is given up")
        ->check(CLI::Range(0, 1000000))
        ->capture_default_str()
        ->group(group);
    app.add_option("--max-evaluations", fit.stop.max_evaluations, "Calls of the library per start")
        ->check(CLI::Range(1, 100000000))
        ->capture_default_str()
        ->group(group);
    app.add_option("--tolerance",
                   fit.stop.tolerance,
                   "Smallest relative change of the objective that is worth going on for")
        ->check(finite_number())
        ->check(CLI::Range(0.0, 1.0))
        ->capture_default_str()
        ->group(group);
    app.add_option("--batch", fit.threads.batch, "Rows that a thread works on at a time")
        ->check(CLI::Range(1, 1 << 20))
        ->capture_default_str()
        ->group(group);
}

void add_method_options(CLI::App& app, Verb verb, FitOptions& fit, Raw& raw)
{
    const char* group = "Minimisation";
    app.add_option("--decay",
                   raw.decay,
                   verb == Verb::fit
                       ? "Penalty of the weights, robust only, in units of the summed negative "
                         "log-likelihood [by cross-validation]"
                       : "Penalty of the weights, in units of the summed negative log-likelihood "
                         "[chosen anew by every fit]")
        ->check(finite_number())
        ->check(CLI::Range(0.0, 1e6))
        ->group(group);
    app.add_option("--seed",
                   fit.seed,
                   verb == Verb::fit ? "Of the starting weights and of the held-out rows"
                                     : "Of the starting weights and of the folds")
        ->check(whole_number())
        ->capture_default_str()
        ->group(group);
    app.add_option("--starts", fit.starts, "Number of starting points; the best end is kept")
        ->check(CLI::Range(1, 10000))
        ->capture_default_str()
        ->group(group);
    app.add_option(
           "--threads", fit.threads.count, "Threads; no bit of the results depends on their number")
        ->check(CLI::Range(1, 1024))
        ->capture_default_str()
        ->group(group);
}

void add_output_options(CLI::App& app, Options& options, Raw& raw)
{
    const char* group = "Output";
    app.add_flag(
           "--compare", options.compare, "Fit the network by least squares as well, to compare")
        ->group(group);
    app.add_flag("--uncertainty",
                 options.uncertainty,
                 "Standard errors of the predictions and a confidence band, from the Hessian")
        ->group(group);
    app.add_option("--plot-over",
                   options.plot_over,
                   "Input along the x axis of the plot [the first periodic one, else the first]")
        ->group(group);
    app.add_flag("--no-plot", raw.no_plot, "Draw nothing")->group(group);
    app.add_option("-o,--out", options.out, "Folder for the files")
        ->capture_default_str()
        ->group(group);
    app.add_flag("--quiet", options.quiet, "Show no progress")->group(group);
}

Periodic periodic_from(const std::string& text)
{
    const auto sign = text.rfind('=');
    Periodic periodic{.name = text.substr(0, sign)};
    if (sign != std::string::npos &&
        read_number(text.substr(sign + 1), periodic.period) == std::errc() && periodic.period > 0.0)
        return periodic;
    throw UserError("--periodic: \"" + text + "\" is not of the form name=period");
}

void settle_norm(Options& options, const Raw& raw)
{
    options.fit.method = methods.at(raw.method);
    const bool squares = options.fit.method == Method::gauss_newton;
    options.fit.norm = !raw.norm.empty() ? raw.norm : squares ? "sum" : robust_norm;
    const std::string& norm = options.fit.norm;
    if (norm != "sum" && norm != robust_norm)
        throw UserError("--norm: \"" + norm + "\" is neither sum_log_dnorm_fat nor sum");
    if (squares && norm != "sum")
        throw UserError(
            "--method gauss-newton minimises plain squares and takes --norm sum only; "
            "for the robust likelihood use --method lbfgs or newton");
    if (!squares && norm == "sum")
        throw UserError(
            "--norm sum is the mean of the signed residuals and has no minimum; use "
            "sum_log_dnorm_fat, or --method gauss-newton for least squares");
}

/// What the robust method takes, and that the rest is left to it.
void settle_robust(Verb verb, Options& options)
{
    const std::string who = verb == Verb::fit ? "--method robust" : "vemkn-fit cv";
    if (options.fit.method != Method::robust) {
        if (options.fit.decay) throw UserError("--decay is for --method robust");
        return;
    }
    if (options.columns.targets.size() != 1)
        throw UserError(who + " takes one target; each has to have a run of its own");
    if (options.shape.activation != "softplus" && options.shape.activation != "id")
        throw UserError(who + " takes --activation softplus or id");
    if (options.problem.targets.shift)
        throw UserError("--method robust finds the shift with the weights: leave out --shift");
    if (!options.problem.targets.cores.empty())
        options.fit.core = options.problem.targets.cores.front();
}

}  // namespace

const char* method_name(Method method)
{
    for (const auto& [name, value] : methods)
        if (value == method) return name.c_str();
    return "";
}

std::optional<Options> parse_options(Verb verb, int argc, char** argv, int& status)
{
    Options options;
    Raw raw;
    const bool fits = verb == Verb::fit;
    CLI::App app(fits ? purpose : purpose_of_cv, fits ? "" : "vemkn-fit cv");
    app.footer(fits ? afterword : afterword_of_cv);
    app.get_formatter()->column_width(26);
    add_data_options(app, verb, options, raw);
    add_network_options(app, verb, options, raw);
    add_method_options(app, verb, options.fit, raw);
    if (fits) {
        app.set_version_flag("--version", "vemkn-fit " VEMKN_VERSION);
        add_other_method_options(app, options.fit, raw);
        add_output_options(app, options, raw);
    } else {
        raw.method = "robust";
        options.out.clear();
        app.add_option(
               "-o,--out",
               options.out,
               "File for the rows, each with its fold and the prediction of the fit that it "
               "was left out of [none]")
            ->group("Output");
    }
    if (const auto ended = parse(app, argc, argv)) {
        status = *ended;
        return std::nullopt;
    }
    for (const std::string& text : raw.periodic) {
        const Periodic periodic = periodic_from(text);
        for (const Periodic& before : options.problem.periodic)
            if (before.name == periodic.name)
                throw UserError("--periodic: '" + periodic.name + "' has two periods");
        options.problem.periodic.push_back(periodic);
    }
    if (fits && app.count("--shift") > 0) options.problem.targets.shift = raw.shift;
    if (app.count("--decay") > 0) options.fit.decay = raw.decay;
    settle_norm(options, raw);
    settle_robust(verb, options);
    options.problem.robust = options.fit.method == Method::robust;
    // Nothing is stopped early that needs them.
    if (options.problem.robust && (!fits || app.count("--validation") == 0))
        options.problem.held_out_share = 0.0;
    options.plot = !raw.no_plot;
    options.problem.seed = options.fit.seed;
    return options;
}

}  // namespace fit
