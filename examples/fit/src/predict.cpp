#include "predict.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "columns.h"
#include "escape.h"
#include "model.h"
#include "text.h"
#include "user_error.h"

namespace fit {
namespace {

namespace fs = std::filesystem;

struct Request {
    std::string model, data, out;
    bool drop_missing = false;
};

/// What the library prints meanwhile, its banner and what INFO and NN_TRACE ask for, goes to standard error: rows alone are to stand
/// on standard output.
class LinesToStandardError {
public:
    LinesToStandardError()
    {
        std::fflush(stdout);
        output_ = dup(STDOUT_FILENO);
        dup2(STDERR_FILENO, STDOUT_FILENO);
    }

    ~LinesToStandardError()
    {
        std::fflush(stdout);
        dup2(output_, STDOUT_FILENO);
        close(output_);
    }

    LinesToStandardError(const LinesToStandardError&) = delete;
    LinesToStandardError& operator=(const LinesToStandardError&) = delete;

private:
    int output_;
};

std::string content_of(const std::string& path)
{
    std::error_code ignored;
    const bool is_folder = fs::is_directory(path, ignored);
    const std::string file = is_folder ? path + "/model.json" : path;
    std::ifstream stream(file, std::ios::binary);
    if (!stream) throw UserError(file + ": cannot be read");
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

/// A cell as it was: quoted where it has to be, no byte changed.
std::string same_cell(const std::string& text)
{
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

/// The names of the model's columns as the table has them: a model keeps those that visible() shows.
std::vector<std::string> names_in(const CsvTable& table, const Model& model)
{
    std::vector<std::string> names;
    for (const InputRule& rule : model.inputs.rules()) {
        const auto found =
            std::find_if(table.header.begin(), table.header.end(), [&](const std::string& name) {
                return visible(name) == rule.name;
            });
        names.push_back(found == table.header.end() ? rule.name : *found);
    }
    return names;
}

std::string heading_of(const CsvTable& table, const Model& model)
{
    std::string text;
    for (const std::string& name : table.header)
        text += (text.empty() ? "" : ",") + same_cell(name);
    for (const std::string& target : model.target_names) {
        const std::string name = "fit(" + target + ")";
        if (std::count(table.header.begin(), table.header.end(), name) > 0)
            throw UserError(table.path + ": has a column '" + name + "' already");
        text += "," + same_cell(name);
    }
    return text + "\n";
}

std::string rows_with_predictions(const CsvTable& table, const Model& model, bool drop_missing)
{
    const Columns columns = choose_columns(
        table, {.targets = {}, .inputs = names_in(table, model), .drop_missing = drop_missing});
    const Matrix predictions = model.predict(columns.inputs);
    std::string text = heading_of(table, model);
    Eigen::Index at = 0;
    for (std::size_t row = 0; row < table.rows.size() && at < predictions.rows(); ++row) {
        if (table.lines[row] != columns.lines[static_cast<std::size_t>(at)]) continue;  // dropped
        for (std::size_t c = 0; c < table.header.size(); ++c)
            text += (c == 0 ? "" : ",") + same_cell(table.rows[row][c]);
        for (const double value : predictions.row(at)) {
            if (!std::isfinite(value))
                throw UserError(table.path + ":" + std::to_string(table.lines[row]) +
                                ": the inputs are too large for this model");
            text += "," + exact_number(value);
        }
        text += "\n";
        ++at;
    }
    return text;
}

void put_on_standard_output(const std::string& text)
{
    const bool whole = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (!whole || std::fflush(stdout) != 0)
        throw std::runtime_error("standard output cannot be written in full");
}

/// Beside it first, so that an older file survives what goes wrong; but a device or a pipe is written to.
void put_in_file(const std::string& path, const std::string& text)
{
    std::error_code failure;
    const bool is_device = fs::exists(path, failure) && !fs::is_regular_file(path, failure);
    if (is_device) {
        std::ofstream device(path, std::ios::binary);
        if (device << text << std::flush) return;
        throw std::runtime_error(path + ": cannot be written in full");
    }
    const std::string beside = path + ".part-" + std::to_string(getpid());
    std::ofstream file(beside, std::ios::binary);
    file << text;
    file.close();
    if (file) fs::rename(beside, path, failure);
    if (file && !failure) return;
    std::error_code ignored;
    fs::remove(beside, ignored);
    throw std::runtime_error(path + ": cannot be written in full");
}

}  // namespace

int run_predict(int argc, char** argv)
{
    Request request;
    CLI::App app("Predicts the rows of a CSV file by a model that vemkn-fit has written.\n",
                 "vemkn-fit predict");
    app.add_option("model", request.model, "model.json of a fit, or the folder that it is in")
        ->required();
    app.add_option("data", request.data, "CSV file with the input columns, in any order")
        ->required();
    app.add_option("-o,--out", request.out, "File for the rows [standard output]");
    app.add_flag("--drop-missing",
                 request.drop_missing,
                 "Leave out rows with an empty or NA input; otherwise such a cell is an error");
    app.failure_message([](const CLI::App* /*app*/, const CLI::Error& error) {
        return visible(error.what()) + "\nRun with --help for more information.\n";
    });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    std::string text;
    {
        const LinesToStandardError quiet;
        const Model model = model_from(content_of(request.model), request.model);
        text = rows_with_predictions(read_csv(request.data), model, request.drop_missing);
    }
    if (request.out.empty()) {
        put_on_standard_output(text);
    } else {
        put_in_file(request.out, text);
    }
    return 0;
}

}  // namespace fit
