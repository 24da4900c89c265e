#ifndef VEMKN_FIT_CSV_TABLE_H
#define VEMKN_FIT_CSV_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

namespace fit {

/// A CSV file as text: every row has as many cells as the header. What separates cells is what a first line "sep=;" says; without
/// one, where the header has no comma, its semicolons or tabs.
struct CsvTable {
    std::string path;  ///< as data_name() gives it
    std::vector<std::string> header;
    std::size_t header_line = 0;
    std::vector<std::vector<std::string>> rows;
    std::vector<std::size_t> lines;  ///< on which each row begins; the first of the file is 1
    std::string note;                ///< what separates cells, if no comma does
};

/** @param path "-" is standard input
 *  @throw UserError naming file and line: unreadable or empty file, no rows below the header, a row
 *         of another width, broken quotes, a column name that appears twice. */
CsvTable read_csv(const std::string& path);

}  // namespace fit

#endif
