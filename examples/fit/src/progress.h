#ifndef VEMKN_FIT_PROGRESS_H
#define VEMKN_FIT_PROGRESS_H

#include <chrono>
#include <cstddef>
#include <string>

namespace fit {

/** Tells on standard error how far a fit is: a bar that is redrawn on a terminal, else a plain line
 * every few seconds, so that a log file stays readable. */
class Progress {
public:
    enum class Style { bar, lines, silent };

    explicit Progress(Style style) : style_(style) {}

    /// A bar if standard error is a terminal.
    static Style suitable_style();

    void begin(std::string title, std::size_t evaluations_at_most);
    /// @param[in] validation  null if no rows are held out
    void update(std::size_t evaluations, double objective, const double* validation);
    void end();

private:
    using Clock = std::chrono::steady_clock;

    Style style_;
    std::string title_;
    std::size_t at_most_ = 1;
    Clock::time_point last_;
};

}  // namespace fit

#endif
