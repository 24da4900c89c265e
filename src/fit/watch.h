#pragma once

#include <exception>
#include <functional>

namespace vemknfit {

enum class Stage { search, decay, settle };

// How far a fit is.
struct Progress {
    Stage stage = Stage::search;
    int start = 0;         // of the search, from 1 on
    long evaluations = 0;  // of an objective and its gradient, so far
    double core = 1.0;     // of the curve at hand, in units of the TargetScale
    double objective = 0.0;
};

class Cancelled : public std::exception {
public:
    const char* what() const noexcept override { return "the fit was cancelled"; }
};

// Who looks on while a fit runs, and may end it: asked after every evaluation whether to go on.
class Watch {
public:
    explicit Watch(std::function<bool(const Progress&)> goes_on) : goes_on_(std::move(goes_on)) {}

    void enter(Stage stage, int start = 0)
    {
        now_.stage = stage;
        now_.start = start;
    }

    void take_core(double core) { now_.core = core; }

    // Throws Cancelled.
    void evaluated(double objective)
    {
        ++now_.evaluations;
        now_.objective = objective;
        if (!goes_on_(now_)) throw Cancelled();
    }

private:
    std::function<bool(const Progress&)> goes_on_;
    Progress now_;
};

}  // namespace vemknfit
