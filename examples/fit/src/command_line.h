#ifndef VEMKN_FIT_COMMAND_LINE_H
#define VEMKN_FIT_COMMAND_LINE_H

#include <CLI/CLI.hpp>
#include <optional>

namespace fit {

/// What the text of an option has to be: a number as in the cells of a file (text.h).
CLI::Validator finite_number();

/// From 0 to 2^64 - 1, in digits.
CLI::Validator whole_number();

/** Takes in the arguments of the program or of a verb, and says on a terminal what is wrong with them. Of an option with one value
 * that is given twice the last value holds.
 * @return the status to end with; none where there is something to do */
std::optional<int> parse(CLI::App& app, int argc, char** argv);

}  // namespace fit

#endif
