#include "columns.h"

#include <algorithm>
#include <optional>
#include <set>

#include "text.h"
#include "user_error.h"

namespace fit {
namespace {

std::size_t find_column(const CsvTable& table, const std::string& name)
{
    const auto found = std::find(table.header.begin(), table.header.end(), name);
    if (found == table.header.end()) {
        const std::string meant = nearest(name, table.header);
        throw UserError(table.path + ": no column '" + name + "'" +
                        (meant.empty() ? "" : ", perhaps '" + meant + "'") + "; there are " +
                        join(table.header, ", "));
    }
    return static_cast<std::size_t>(found - table.header.begin());
}

std::vector<std::string> names_of_inputs(const CsvTable& table, const ColumnChoice& choice)
{
    std::vector<std::string> names = choice.inputs;
    if (names.empty())
        for (const std::string& name : table.header)
            if (!name.empty() &&
                std::count(choice.targets.begin(), choice.targets.end(), name) == 0)
                names.push_back(name);
    if (names.empty()) throw UserError(table.path + ": no column is left as an input");
    std::set<std::string> seen;
    const auto once = [&](const std::string& name) {
        if (!seen.insert(name).second) throw UserError("column '" + name + "' is chosen twice");
    };
    std::for_each(choice.targets.begin(), choice.targets.end(), once);
    std::for_each(names.begin(), names.end(), once);
    return names;
}

bool is_missing(std::string cell)
{
    static const std::set<std::string> words{
        "", "na", "nan", "n/a", "#n/a", "null", "none", ".", "-", "?"};
    std::transform(cell.begin(), cell.end(), cell.begin(), [](unsigned char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : static_cast<char>(c);
    });
    return words.count(cell) > 0;
}

bool has_decimal_comma(const std::string& cell)
{
    return std::count(cell.begin(), cell.end(), ',') == 1 && cell.find('.') == std::string::npos;
}

/// Turns cells of one table into numbers and knows where it stands, for messages.
class CellReader {
public:
    CellReader(const CsvTable& table, const ColumnChoice& choice) : table_(table), choice_(choice)
    {
    }

    /// @return nothing for a missing cell
    std::optional<double> operator()(std::size_t row, std::size_t column) const
    {
        std::string cell = table_.rows[row][column];
        if (is_missing(cell)) {
            if (!choice_.drop_missing)
                fail(row, column, "is missing; --drop-missing leaves such rows out");
            return std::nullopt;
        }
        const bool comma = has_decimal_comma(cell);
        if (comma && choice_.decimal_comma) std::replace(cell.begin(), cell.end(), ',', '.');
        double value = 0.0;
        const std::errc error = read_number(cell, value);
        if (error == std::errc::result_out_of_range) fail(row, column, "is out of range");
        if (error != std::errc())
            fail(row,
                 column,
                 comma && !choice_.decimal_comma
                     ? "is not a number; --decimal-comma reads a comma as a point"
                     : "is not a number");
        return value;
    }

private:
    [[noreturn]] void fail(std::size_t row, std::size_t column, const std::string& what) const
    {
        throw UserError(table_.path + ":" + std::to_string(table_.lines[row]) + ":" +
                        std::to_string(column + 1) + ": \"" + table_.rows[row][column] +
                        "\" in column '" + table_.header[column] + "' " + what);
    }

    const CsvTable& table_;
    const ColumnChoice& choice_;
};

}  // namespace

Columns choose_columns(const CsvTable& table, const ColumnChoice& choice)
{
    Columns columns;
    columns.target_names = choice.targets;
    columns.input_names = names_of_inputs(table, choice);
    if (!table.note.empty()) columns.notes.push_back(table.note);
    if (choice.inputs.empty() &&
        std::count(table.header.begin(), table.header.end(), std::string()) > 0)
        columns.notes.push_back("the column without a name is no input");
    std::vector<std::size_t> places;
    for (const std::string& name : columns.input_names) places.push_back(find_column(table, name));
    for (const std::string& name : columns.target_names) places.push_back(find_column(table, name));

    const CellReader number(table, choice);
    std::vector<double> kept;
    for (std::size_t row = 0; row < table.rows.size(); ++row) {
        std::vector<double> values;
        for (const std::size_t place : places)
            if (const auto value = number(row, place)) values.push_back(*value);
        if (values.size() < places.size()) continue;
        kept.insert(kept.end(), values.begin(), values.end());
        columns.lines.push_back(table.lines[row]);
    }
    columns.dropped = table.rows.size() - columns.lines.size();
    if (columns.lines.empty()) throw UserError(table.path + ": every row has a missing value");

    const auto rows = static_cast<Eigen::Index>(columns.lines.size());
    const auto width = static_cast<Eigen::Index>(places.size());
    const auto targets = static_cast<Eigen::Index>(columns.target_names.size());
    const Eigen::Map<const Matrix> all(kept.data(), rows, width);
    columns.inputs = all.leftCols(width - targets);
    columns.targets = all.rightCols(targets);
    return columns;
}

}  // namespace fit
