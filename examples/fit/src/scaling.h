#ifndef VEMKN_FIT_SCALING_H
#define VEMKN_FIT_SCALING_H

#include <optional>
#include <string>
#include <vector>

#include "fit/input_map.h"
#include "matrix.h"

namespace fit {

struct Periodic {
    std::string name;
    double period = 0.0;
};

/// What one input column of the file is mapped by.
using InputRule = vemknfit::ColumnRule;

/// How a column that is not periodic is scaled: to mean 0 and standard deviation 1, or as robust fits do (fit/input_map.h).
enum class Scaling { standard, bounded };

/** From the input columns of the file to the network's inputs: a periodic column becomes its sine
 * and cosine, every other one is scaled. */
class InputMap {
public:
    /// @throw UserError if a periodic column is not among the names
    InputMap(const Matrix& inputs,
             const std::vector<std::string>& names,
             const std::vector<Periodic>& periodic,
             Scaling scaling = Scaling::standard);

    Matrix apply(const Matrix& inputs) const;

    Eigen::Index width() const { return static_cast<Eigen::Index>(names_.size()); }

    /// Of the network's inputs: "distance", "sin(hour)", "cos(hour)".
    const std::vector<std::string>& names() const { return names_; }

    const std::vector<InputRule>& rules() const { return rules_; }

    /// One line for each column of the file, as in "distance: (x - 731.2) / 573.9, bent beyond 3".
    std::vector<std::string> describe() const;

    /// Columns that hold one value only and are scaled to the standard; they map to 0. Of others a robust fit speaks itself.
    const std::vector<std::string>& constant() const { return constant_; }

private:
    void add(InputRule rule);

    std::vector<InputRule> rules_;
    std::vector<std::string> names_;
    std::vector<std::string> constant_;
};

/// One target column: y' = (y - shift) / unit, and back.
struct TargetScale {
    double core = 1.0;  ///< standard deviation that counts as normal scatter, in units of y
    double shift = 0.0;

    /// The likelihood's core has standard deviation 1/3.
    double unit() const { return 3.0 * core; }
};

struct TargetMap {
    std::vector<TargetScale> scales;

    Matrix apply(const Matrix& targets) const;
    Matrix undo(const Matrix& mapped) const;
};

/** A core scale for data about which the user says nothing: the median absolute deviation (scaled to
 * a Gaussian) of what a least-absolute-deviations line leaves of y, and at least a hundredth of that
 * of y itself. It errs to the large side, by as much as the network explains better than a line, and
 * that is the harmless side: too large a core brings the fit closer to least squares, too small a
 * core lets it ignore good data.
 * @param[in] x  the network's inputs
 * @throw UserError if y holds one value only */
double default_core(const Matrix& x, const Eigen::VectorXd& y);

/// What an activation can put out, as it acts on the output layer too.
enum class OutputRange { positive, half_pi, unbounded };

struct TargetOptions {
    std::vector<double> cores;  ///< none, one for all targets, or one for each
    std::optional<double> shift;
};

/** Scales for all targets.
 * - positive: the lowest y maps to 1, so that the outputs needed lie where softplus is not yet flat;
 * - half_pi: the middle of y maps to 0. A core that the user did not choose is enlarged until all of
 *   y fits into the range; one that he chose and that does not fit is refused;
 * - unbounded: the median maps to 0.
 * @param[out] notes  what the user should know
 * @throw UserError */
TargetMap make_target_map(const Matrix& x,
                          const Matrix& y,
                          const std::vector<std::string>& names,
                          const TargetOptions& options,
                          OutputRange range,
                          std::vector<std::string>& notes);

}  // namespace fit

#endif
