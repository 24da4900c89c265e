#include "fit/robust_fit.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "fit/decay.h"
#include "fit/random.h"
#include "fit/robust_scale.h"
#include "fit/search.h"

namespace vemknfit {
namespace {

// Of a search that a decay is then chosen for.
constexpr double FIRST_DECAY = 0.3;

// Some of the rows by the seed, in their order: the next one if as many are still wanted as a draw among those that are left says.
Rows drawn(Eigen::Index rows, Eigen::Index wanted, std::uint64_t seed)
{
    constexpr std::uint32_t STREAM = 0x726f7773;
    Random random(seed, STREAM);
    Rows some;
    for (Eigen::Index r = 0; r < rows; ++r) {
        if (random.uniform() * static_cast<double>(rows - r) >= static_cast<double>(wanted))
            continue;
        some.push_back(r);
        --wanted;
    }
    return some;
}

// All, or as many: at least ten for a weight.
FittedRows sample(const FittedRows& all,
                  Eigen::Index wanted,
                  const Network& network,
                  std::uint64_t seed)
{
    constexpr Eigen::Index OF_A_WEIGHT = 10;
    wanted = std::min(all.y.size(), std::max(wanted, OF_A_WEIGHT * network.size()));
    const Rows rows = drawn(all.y.size(), wanted, seed);
    return {all.inputs(rows, Eigen::all), all.y(rows)};
}

// Multiples of 2^-30: coarser by far than the last bits of scaled data, finer by far than any scatter.
template <class Array>
Array rounded(const Array& numbers)
{
    constexpr double GRAIN = 0x1p-30;
    return numbers.unaryExpr([](double a) { return std::nearbyint(a / GRAIN) * GRAIN; });
}

Curve better(const CurveFit& rows, Curve one, Curve other)
{
    return rows.fair_scale(one) <= rows.fair_scale(other) ? std::move(one) : std::move(other);
}

void check(const Matrix& inputs, const Vector& y, const FitSettings& settings)
{
    constexpr Eigen::Index FEWEST_ROWS = 2;
    if (y.size() < FEWEST_ROWS || inputs.rows() != y.size())
        throw std::invalid_argument("a fit takes two rows or more, with a target each");
    if (!inputs.allFinite() || !y.allFinite())
        throw std::invalid_argument("a fit takes finite inputs and targets");
    if (settings.starts < 1) throw std::invalid_argument("a fit takes one start or more");
    if (settings.decay && !(*settings.decay >= 0.0 && std::isfinite(*settings.decay)))
        throw std::invalid_argument("a decay is a number from 0 on");
    if (settings.core && !(*settings.core > 0.0 && std::isfinite(*settings.core)))
        throw std::invalid_argument("a core is a number above 0");
}

// Beyond, a target is an outlier however far out it lies, and its square would cost digits of all others.
constexpr double FAR_OUT = 1e6;

}  // namespace

FittedRows::FittedRows(const Matrix& all_inputs, const Vector& all_y)
    : inputs(rounded<Matrix>(all_inputs)),
      y(rounded<Vector>(all_y.cwiseMax(-FAR_OUT).cwiseMin(FAR_OUT)))
{
}

Fit robust_fit(const Network& network,
               const Matrix& inputs,
               const Vector& y,
               const FitSettings& settings)
{
    check(inputs, y, settings);
    // The curve of so many rows is near that of more; of their decay one knows more with more of them.
    constexpr Eigen::Index SEARCHED = 500, CHOSEN_BY = 1500;
    const FittedRows all(inputs, y);
    const FittedRows searched = sample(all, SEARCHED, network, settings.seed);
    const auto terms = [&](double decay) {
        return Terms{.decay = decay, .core = settings.core, .watch = settings.watch};
    };
    const auto enter = [&](Stage stage) {
        if (settings.watch != nullptr) settings.watch->enter(stage);
    };
    const auto found = [&](double decay) {
        const CurveFit fit(network, searched.inputs, searched.y, terms(decay));
        return found_curve(fit, settings.starts, settings.seed);
    };
    double decay = settings.decay.value_or(FIRST_DECAY);
    Curve curve = found(decay);
    if (!settings.decay) {
        const FittedRows some = sample(all, CHOSEN_BY, network, settings.seed);
        const CurveFit fit(network, some.inputs, some.y, terms(FIRST_DECAY));
        enter(Stage::decay);
        Decay chosen = chosen_decay(fit, curve, FIRST_DECAY, settings.seed);
        if (chosen.decay != decay) {
            decay = chosen.decay;
            // Starts of a large decay may all end flat.
            curve = better(fit, std::move(chosen.curve), found(decay));
        }
    }
    enter(Stage::settle);
    Settled settled = CurveFit(network, all.inputs, all.y, terms(decay)).settled(curve);
    return {std::move(settled.curve), decay, settled.stands};
}

}  // namespace vemknfit
