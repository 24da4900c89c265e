#ifndef VEMKN_FIT_MONITOR_H
#define VEMKN_FIT_MONITOR_H

#include <functional>
#include <limits>

#include "matrix.h"
#include "progress.h"

namespace fit {

/** Follows one minimisation: keeps the best weights seen and says when to stop early. With held-out
 * rows "best" is what does best on them, else what has the lowest training objective. */
class Monitor {
public:
    /// @param[in] validation  the objective on the held-out rows; empty if there are none
    /// @param[in] patience    improvements in training that may bring none on the held-out rows
    Monitor(std::function<double(const Vector&)> validation, int patience, Progress& progress)
        : validation_(std::move(validation)), patience_(patience), progress_(progress)
    {
    }

    /** To be called with every new lowest training objective.
     * @return false: the minimiser should stop */
    bool improved(const Vector& w, double objective, std::size_t evaluations);

    const Vector& best() const { return best_; }

    double best_validation() const { return best_validation_; }

    double best_objective() const { return best_objective_; }

    bool stopped() const { return stopped_; }

private:
    std::function<double(const Vector&)> validation_;
    int patience_;
    Progress& progress_;
    Vector best_;
    double best_objective_ = std::numeric_limits<double>::infinity();
    double best_validation_ = std::numeric_limits<double>::infinity();
    int without_gain_ = 0;
    bool stopped_ = false;
};

}  // namespace fit

#endif
