#include "predict.h"

#include <algorithm>
#include <string>

#include "columns.h"
#include "command_line.h"
#include "data_text.h"
#include "escape.h"
#include "fit/file.h"
#include "library.h"
#include "network.h"
#include "note.h"
#include "standard_output.h"
#include "text.h"
#include "user_error.h"

namespace fit {
namespace {

struct Request {
    std::string model, data, out;
    bool drop_missing = false;
    bool decimal_comma = false;
    std::string interval;  ///< its kind; empty: none is wanted
    double level = 0.95;
};

/// A cell as it was: quoted where it has to be, no byte changed.
std::string same_cell(const std::string& text)
{
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

/// The names of the model's columns as the table has them: a model keeps those that visible() shows.
std::vector<std::string> names_in(const CsvTable& table, const VEMKNFit* model)
{
    std::vector<std::string> names;
    for (const std::string& wanted : columns_of(model)) {
        const auto found =
            std::find_if(table.header.begin(), table.header.end(), [&](const std::string& name) {
                return visible(name) == wanted;
            });
        names.push_back(found == table.header.end() ? wanted : *found);
    }
    return names;
}

/// The columns that are added.
std::vector<std::string> new_names(const VEMKNFit* model, const Request& request)
{
    std::vector<std::string> names;
    for (const std::string& target : targets_of(model)) {
        const std::vector<const char*> kinds = request.interval.empty()
                                                   ? std::vector{"fit"}
                                                   : std::vector{"fit", "error", "lower", "upper"};
        for (const char* kind : kinds)
            names.push_back(std::string(kind).append("(").append(target).append(")"));
    }
    return names;
}

std::string heading_of(const CsvTable& table, const std::vector<std::string>& added)
{
    std::string text;
    for (const std::string& name : table.header)
        text += (text.empty() ? "" : ",") + same_cell(name);
    for (const std::string& name : added) {
        if (std::count(table.header.begin(), table.header.end(), name) > 0)
            throw UserError(table.path + ": has a column '" + name + "' already");
        text += "," + same_cell(name);
    }
    return text + "\n";
}

/// A column for each that is added.
Matrix predictions_of(const VEMKNFit* model, const Columns& columns, const Request& request)
{
    const auto rows = static_cast<std::size_t>(columns.inputs.rows());
    const auto inputs = static_cast<std::size_t>(columns.inputs.cols());
    const double* const x = columns.inputs.data();
    Matrix found(columns.inputs.rows(),
                 static_cast<Eigen::Index>(new_names(model, request).size()));
    int code = VEMKN_FIT_OK;
    if (request.interval.empty()) {
        code = vemkn_fit_predict(model, x, rows, inputs, found.data());
    } else {
        const int kind =
            request.interval == "confidence" ? VEMKN_FIT_CONFIDENCE : VEMKN_FIT_PREDICTION;
        Eigen::MatrixXd by_column(found.rows(), 4);
        code = vemkn_fit_interval(model,
                                  x,
                                  rows,
                                  inputs,
                                  kind,
                                  request.level,
                                  by_column.col(0).data(),
                                  by_column.col(1).data(),
                                  by_column.col(2).data(),
                                  by_column.col(3).data());
        if (code == VEMKN_FIT_OK) found = by_column;
    }
    if (code == VEMKN_FIT_DATA)
        throw UserError(data_name(request.data) + ":" +
                        std::to_string(columns.lines[static_cast<std::size_t>(vemkn_fit_row())]) +
                        ": the inputs are too large for this model");
    accept(code);
    return found;
}

/// How many of the fitted rows an interval does not speak of.
void note_outliers(const VEMKNFit* model)
{
    put_note("the intervals are of new rows that are no outliers; " +
             std::to_string(vemkn_fit_beyond(model)) + " of the " +
             std::to_string(vemkn_fit_rows(model)) + " fitted rows lie beyond six cores");
}

std::string rows_with_predictions(const CsvTable& table,
                                  const VEMKNFit* model,
                                  const Request& request)
{
    const Columns columns = choose_columns(table,
                                           {.targets = {},
                                            .inputs = names_in(table, model),
                                            .drop_missing = request.drop_missing,
                                            .decimal_comma = request.decimal_comma});
    const Matrix predictions = predictions_of(model, columns, request);
    std::string text = heading_of(table, new_names(model, request));
    Eigen::Index at = 0;
    for (std::size_t row = 0; row < table.rows.size() && at < predictions.rows(); ++row) {
        if (table.lines[row] != columns.lines[static_cast<std::size_t>(at)]) continue;  // dropped
        for (std::size_t c = 0; c < table.header.size(); ++c)
            text += (c == 0 ? "" : ",") + same_cell(table.rows[row][c]);
        for (const double value : predictions.row(at)) text += "," + exact_number(value);
        text += "\n";
        ++at;
    }
    return text;
}

}  // namespace

int run_predict(int argc, char** argv)
{
    Request request;
    CLI::App app("Predicts the rows of a CSV file by a model that vemkn-fit has written.\n",
                 "vemkn-fit predict");
    app.add_option("model", request.model, "model.json of a fit, or the folder that it is in")
        ->required();
    app.add_option(
           "data",
           request.data,
           "CSV file with the input columns, in any order, plain or gzipped; - is standard input")
        ->required();
    app.add_option("-o,--out", request.out, "File for the rows [standard output]");
    app.add_flag(
        "--drop-missing",
        request.drop_missing,
        "Leave out rows with a missing input (empty, NA, NaN, NULL, ., -, ? and the like); "
        "otherwise it is an error");
    app.add_flag("--decimal-comma", request.decimal_comma, "Read 1,5 as one and a half");
    app.add_option("--interval",
                   request.interval,
                   "Standard errors and an interval: of a new row, prediction, or of the curve, "
                   "confidence [none]")
        ->expected(0, 1)
        ->default_str("prediction")
        ->check(CLI::IsMember({"prediction", "confidence"}));
    app.add_option("--level", request.level, "Of the interval [0.95]")
        ->check(finite_number())
        ->check(CLI::Range(1e-6, 1.0 - 1e-6));
    if (const auto status = parse(app, argc, argv)) return *status;
    std::string text;
    {
        const LinesToStandardError quiet;
        // The banner comes with a network of ours; the library keeps it away.
        const Network banner(
            {.inputs = 1, .outputs = 1, .hidden = {1}, .activation = "id"}, "sum", {});
        const Model model = load_model(request.model);
        text = rows_with_predictions(read_csv(request.data), model.get(), request);
        if (request.interval == "prediction") note_outliers(model.get());
    }
    if (request.out.empty()) {
        put_on_standard_output(text);
    } else {
        vemknfit::write_file(request.out, text);
    }
    return 0;
}

}  // namespace fit
