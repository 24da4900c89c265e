#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "text.h"

namespace fit {
namespace {

constexpr std::size_t bar_width = 30;
constexpr std::chrono::milliseconds between_bars{100};
constexpr std::chrono::milliseconds between_lines{5000};

}  // namespace

Progress::Style Progress::suitable_style()
{
    return isatty(STDERR_FILENO) != 0 ? Style::bar : Style::lines;
}

void Progress::begin(std::string title, std::size_t evaluations_at_most)
{
    title_ = std::move(title);
    at_most_ = std::max<std::size_t>(evaluations_at_most, 1);
    last_ = Clock::now();
}

void Progress::update(std::size_t evaluations, double objective, const double* validation)
{
    if (style_ == Style::silent) return;
    const auto now = Clock::now();
    const bool bar = style_ == Style::bar;
    if (now - last_ < (bar ? between_bars : between_lines)) return;
    last_ = now;
    const std::string figures = std::to_string(evaluations) + " evaluations, objective " +
                                number(objective) +
                                (validation ? ", held out " + number(*validation) : std::string());
    if (bar) {
        const std::size_t done = std::min(bar_width, bar_width * evaluations / at_most_);
        const std::string drawn = std::string(done, '#') + std::string(bar_width - done, '.');
        std::fprintf(stderr, "\r%s [%s] %s\033[K", title_.c_str(), drawn.c_str(), figures.c_str());
    } else {
        std::fprintf(stderr, "%s: %s\n", title_.c_str(), figures.c_str());
    }
    std::fflush(stderr);
}

void Progress::end()
{
    if (style_ == Style::bar) std::fputs("\r\033[K", stderr);
}

}  // namespace fit
