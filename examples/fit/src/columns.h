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
    std::vector<std::string> inputs;  ///< empty: every column that is no target
    bool drop_missing = false;
};

/// The chosen columns as numbers, in the units of the file.
struct Columns {
    std::vector<std::string> input_names;
    std::vector<std::string> target_names;
    Matrix inputs;
    Matrix targets;
    std::vector<std::size_t> lines;
    std::size_t dropped = 0;  ///< rows left out because a chosen cell is missing
};

/** Only chosen columns have to hold numbers; a cell that is empty or NA is missing.
 * @throw UserError for unknown or doubly used names, cells that are no finite number, missing cells
 *        that are not to be dropped, and when no row is left. */
Columns choose_columns(const CsvTable& table, const ColumnChoice& choice);

}  // namespace fit

#endif
