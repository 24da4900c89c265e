#ifndef VEMKN_FIT_COMMAND_LINE_H
#define VEMKN_FIT_COMMAND_LINE_H

#include <CLI/CLI.hpp>
#include <optional>

namespace fit {

/** Takes in the arguments of the program or of a verb, and says on a terminal what is wrong with them.
 * @return the status to end with; none where there is something to do */
std::optional<int> parse(CLI::App& app, int argc, char** argv);

}  // namespace fit

#endif
