#ifndef VEMKN_FIT_CSV_TABLE_H
#define VEMKN_FIT_CSV_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

namespace fit {

/// A CSV file as text: every row has as many cells as the header. Where the header has no comma, its semicolons or tabs separate.
struct CsvTable {
    std::string path;
    std::vector<std::string> header;
    std::vector<std::vector<std::string>> rows;
    std::vector<std::size_t> lines;  ///< line of the file on which each row begins, from 1
    std::string note;                ///< what separates cells, if no comma does
};

/** @throw UserError naming file and line: unreadable or empty file, no rows below the header, a row
 *         of another width, broken quotes, a column name that appears twice. */
CsvTable read_csv(const std::string& path);

}  // namespace fit

#endif
