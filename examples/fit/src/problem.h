#ifndef VEMKN_FIT_PROBLEM_H
#define VEMKN_FIT_PROBLEM_H

#include <cstdint>
#include <string>
#include <vector>

#include "columns.h"
#include "guard.h"
#include "scaling.h"

namespace fit {

struct ProblemOptions {
    std::vector<Periodic> periodic;
    TargetOptions targets;
    bool robust = false;  ///< inputs are bounded, targets may lie as far out as they like
    double held_out_share = 0.2;
    std::uint64_t seed = 1;
};

/// Some rows of a matrix, in that order.
Matrix rows_of(const Matrix& m, const std::vector<std::size_t>& rows);

/// The data as the network sees them, and the way back.
struct Problem {
    Columns columns;
    std::vector<std::size_t> training;  ///< rows of the columns, in the order of the file
    std::vector<std::size_t> held_out;
    InputMap inputs;
    TargetMap targets;
    Batch train;
    Batch validation;
    Batch all;

    Guard guard(const Shape& shape) const;
};

/// The same rows with other scales of the targets.
void set_targets(Problem& problem, TargetMap targets);

/** Splits off the held-out rows and makes both maps, from the training rows alone.
 * @param[in,out] shape  its inputs and outputs are filled in
 * @param[out]    notes  what the user should know
 * @throw UserError */
Problem make_problem(Columns columns,
                     const ProblemOptions& options,
                     Shape& shape,
                     std::vector<std::string>& notes);

}  // namespace fit

#endif
