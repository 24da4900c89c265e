#ifndef VEMKN_FIT_OPTIONS_H
#define VEMKN_FIT_OPTIONS_H

#include <optional>
#include <string>

#include "columns.h"
#include "fit.h"

namespace fit {

/// What the program is to do with the rows: fit them, or cross-validate the robust fit.
enum class Verb { fit, cv };

struct Options {
    std::string data;
    ColumnChoice columns;
    ProblemOptions problem;
    Shape shape;
    FitOptions fit;
    bool compare = false;
    bool uncertainty = false;
    bool plot = true;
    bool quiet = false;
    std::string plot_over;        ///< empty: the first periodic column, else the first input
    std::string out = "fit-out";  ///< of Verb::cv a file; empty: none
    std::size_t folds = 10;       ///< of Verb::cv
};

/** Reads the command line.
 * @param[out] status  the exit status if there is nothing to run
 * @return nothing if help was asked for or the command line is wrong, which has then been reported
 * @throw UserError for what can only be found once all options are known */
std::optional<Options> parse_options(Verb verb, int argc, char** argv, int& status);

const char* method_name(Method method);

}  // namespace fit

#endif
