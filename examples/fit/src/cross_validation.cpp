#include "cross_validation.h"

#include <filesystem>
#include <utility>

#include "../../common/random.h"
#include "data_text.h"
#include "escape.h"
#include "figures.h"
#include "fit/file.h"
#include "network.h"
#include "note.h"
#include "report_lines.h"
#include "robust.h"
#include "standard_output.h"
#include "text.h"
#include "user_error.h"

namespace fit {
namespace {

/// What comes of every row that was left out.
struct LeftOut {
    std::vector<std::size_t> fold;
    Vector predictions;
    Vector cores;  ///< of the fits that predicted them
};

/// Numbers of the folds, as even as can be, in random order.
std::vector<std::size_t> deal_out(std::size_t rows, std::size_t folds, std::uint64_t seed)
{
    std::vector<std::size_t> fold(rows);
    const std::vector<std::size_t> order = examples::Random(seed).permutation(rows);
    for (std::size_t i = 0; i < rows; ++i) fold[order[i]] = i % folds;
    return fold;
}

std::string row_of(const std::string& label,
                   const Figures& figures,
                   const std::vector<std::string>& more = {})
{
    std::vector<std::string> cells{number(figures.median_error, 4),
                                   number(figures.bias, 4),
                                   number(figures.rms_error, 4),
                                   percent(figures.outliers)};
    cells.insert(cells.end(), more.begin(), more.end());
    return row(label, cells);
}

std::string without(std::size_t fold)
{
    return "without fold " + std::to_string(fold + 1) + ": ";
}

Model fit_without(const Problem& problem,
                  const Shape& shape,
                  const FitOptions& options,
                  std::size_t fold)
{
    try {
        Model model = robust_model(problem, shape, options);
        for (std::size_t i = 0; i < vemkn_fit_notes(model.get()); ++i)
            put_note(without(fold) + vemkn_fit_note(model.get(), i));
        return model;
    } catch (const UserError& error) {
        throw UserError(without(fold) + error.what());
    }
}

/// Predicts the rows of one fold from all others, and gives their line of the table.
std::string run_fold(Problem& problem,
                     const Shape& shape,
                     const FitOptions& options,
                     std::size_t fold,
                     LeftOut& left_out)
{
    std::vector<std::size_t> rows;
    problem.training.clear();
    for (std::size_t i = 0; i < left_out.fold.size(); ++i)
        (left_out.fold[i] == fold ? rows : problem.training).push_back(i);
    const Model model = fit_without(problem, shape, options, fold);
    const Matrix x = rows_of(problem.columns.inputs, rows);
    Vector predictions(x.rows());
    accept(vemkn_fit_predict(model.get(),
                             x.data(),
                             rows.size(),
                             static_cast<std::size_t>(x.cols()),
                             predictions.data()));
    const Vector cores = Vector::Constant(x.rows(), vemkn_fit_core(model.get(), 0));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const auto from = static_cast<Eigen::Index>(i), to = static_cast<Eigen::Index>(rows[i]);
        left_out.predictions[to] = predictions[from];
        left_out.cores[to] = cores[from];
    }
    return row_of("fold " + std::to_string(fold + 1) + ", " + std::to_string(rows.size()) + " rows",
                  figures_of(predictions - rows_of(problem.columns.targets, rows).col(0), cores),
                  {number(vemkn_fit_decay(model.get()))});
}

/// A name for the rows that cannot be written should not wait for the end of the fits.
void check_out(const Options& options)
{
    namespace fs = std::filesystem;
    if (options.out.empty()) return;
    const std::string option = "--out " + options.out + ": ";
    const fs::path path = options.out;
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) throw UserError(option + "is a folder");
    if (fs::equivalent(path, options.data, ignored))
        throw UserError(option + "is the data file; choose another name");
    if (path.has_parent_path() && !fs::is_directory(path.parent_path(), ignored))
        throw UserError(option + "there is no such folder");
    const std::string& target = options.columns.targets.front();
    if (target == "line" || target == "fold")
        throw UserError(option + "has a column '" + target + "' of its own");
}

std::string rows_text(const Columns& columns, const LeftOut& left_out)
{
    const std::string& target = columns.target_names.front();
    std::string text =
        "line,fold," + csv_cell(target) + "," + csv_cell("cv(" + target + ")") + "\n";
    for (std::size_t i = 0; i < left_out.fold.size(); ++i) {
        const auto at = static_cast<Eigen::Index>(i);
        text += std::to_string(columns.lines[i]) + "," + std::to_string(left_out.fold[i] + 1) +
                "," + exact_number(columns.targets(at, 0)) + "," +
                exact_number(left_out.predictions[at]) + "\n";
    }
    return text;
}

std::string heading(const Problem& problem, const Options& options, const Shape& shape)
{
    const Columns& columns = problem.columns;
    return line("data",
                visible(data_name(options.data)) + ": " + std::to_string(columns.lines.size()) +
                    " rows in " + std::to_string(options.folds) + " folds" +
                    left_out_rows(columns.dropped)) +
           line("inputs", visible(join(problem.inputs.names(), ", "))) +
           line("target", visible(columns.target_names.front())) +
           line("network", shape.text() + ", method robust") + "\n" +
           row("rows left out", {"median |e|", "bias", "rms error", "beyond six", "decay"});
}

}  // namespace

void cross_validate(const Options& options)
{
    check_out(options);
    std::string text, rows_of_file;
    {
        // The banner comes with a network of ours; the library keeps it away.
        const LinesToStandardError quiet;
        Columns columns = choose_columns(read_csv(options.data), options.columns);
        const std::size_t rows = columns.lines.size();
        if (rows < 2 * options.folds)
            throw UserError("--folds: " + std::to_string(rows) + " rows are too few for " +
                            std::to_string(options.folds) + " folds of two rows and more");
        Shape shape = options.shape;
        std::vector<std::string> notes = columns.notes;
        Problem problem = make_problem(std::move(columns), options.problem, shape, notes);
        const Network banner(shape, options.fit.norm, options.fit.threads);
        text = heading(problem, options, shape);
        LeftOut left_out{.fold = deal_out(rows, options.folds, options.fit.seed),
                         .predictions = Vector::Zero(static_cast<Eigen::Index>(rows)),
                         .cores = Vector::Zero(static_cast<Eigen::Index>(rows))};
        for (const std::string& note : notes) put_note(note);
        for (std::size_t fold = 0; fold < options.folds; ++fold)
            text += run_fold(problem, shape, options.fit, fold, left_out);
        const Vector residuals = left_out.predictions - problem.columns.targets.col(0);
        text += row_of("all", figures_of(residuals, left_out.cores));
        rows_of_file = rows_text(problem.columns, left_out);
    }
    put_on_standard_output(text);
    if (!options.out.empty()) vemknfit::write_file(options.out, rows_of_file);
}

}  // namespace fit
