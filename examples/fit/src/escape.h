#ifndef VEMKN_FIT_ESCAPE_H
#define VEMKN_FIT_ESCAPE_H

#include <string>
#include <string_view>

/* Column names, cells and paths may hold any byte. What is written of them goes through one of these,
 * one for each place, so that none of it can end a line, a cell or a string there. */
namespace fit {

/** For people, on one line: the terminal, comments, values of key=value. Printable UTF-8 stays; a
 * control character becomes \n, \x1b or \u2028, a byte that is no UTF-8 \xff, and a backslash two,
 * so that different texts stay different. */
std::string visible(std::string_view text);

/// A cell of a CSV file, on one line, quoted if it has to be.
std::string csv_cell(std::string_view text);

/// Part of a key of key=value: the first = of a line is the one behind the key.
std::string key_part(std::string_view text);

/// A string of gnuplot's language with its quotes; no byte of the text means anything in there.
std::string gnuplot_string(std::string_view text);

}  // namespace fit

#endif
