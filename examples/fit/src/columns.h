#ifndef VEMKN_FIT_COLUMNS_H
#define VEMKN_FIT_COLUMNS_H

#include <cstddef>
#include <string>
#include <vector>

#include "csv_table.h"
#include "matrix.h"

namespace fit {

struct ColumnChoice {
    std::vector<std::string> targets;
    std::vector<std::string> inputs;  ///< empty: every column that is no target and has a name
    bool drop_missing = false;
    bool decimal_comma = false;  ///< 1,5 is one and a half
};

/// The chosen columns as numbers, in the units of the file.
struct Columns {
    std::vector<std::string> input_names;
    std::vector<std::string> target_names;
    Matrix inputs;
    Matrix targets;
    std::vector<std::size_t> lines;
    std::size_t dropped = 0;  ///< rows left out because a chosen cell is missing
    std::vector<std::string> notes;
};

/** Only chosen columns have to hold numbers. A cell is missing that is empty, or what R, pandas, databases and SAS write for it:
 * NA, NaN, n/a, NULL, None, a dot, a hyphen, a question mark, in capitals or not.
 * @throw UserError for unknown or doubly used names, cells that are no finite number, missing cells
 *        that are not to be dropped, and when no row is left. */
Columns choose_columns(const CsvTable& table, const ColumnChoice& choice);

}  // namespace fit

#endif
