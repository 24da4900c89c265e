#include "monitor.h"

namespace fit {

bool Monitor::improved(const Vector& w, double objective, std::size_t evaluations)
{
    const double judged = validation_ ? validation_(w) : objective;
    if (judged < best_validation_) {
        best_ = w;
        best_objective_ = objective;
        best_validation_ = judged;
        without_gain_ = 0;
    } else {
        ++without_gain_;
    }
    progress_.update(evaluations, objective, validation_ ? &best_validation_ : nullptr);
    stopped_ = validation_ && without_gain_ > patience_;
    return !stopped_;
}

}  // namespace fit
