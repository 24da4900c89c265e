// How far outliers carry a robust fit: rows of a known curve, of which a share is moved in y, fitted; the error of the curve and
// the core that was found, as the table of docs/robust.md.
//
//     vemkn_robust [DRAWS [DECAY]]      draws a cell, 10 unless given; a decay, or 0 to have it chosen, 0.1 unless given

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fit/input_map.h"
#include "fit/random.h"
#include "fit/robust_fit.h"
#include "fit/robust_scale.h"
#include "fit/target_scale.h"

namespace {

using namespace vemknfit;

constexpr Eigen::Index ROWS = 300;
constexpr double NOISE = 0.1;  // of the deviation of the truth

struct Truth {
    const char* name;
    Eigen::Index columns;
    double (*of)(const double* x);
};

constexpr Truth TRUTHS[] = {
    {"sin(2x)", 1, [](const double* x) { return std::sin(2.0 * x[0]); }},
    {"x^2", 1, [](const double* x) { return x[0] * x[0]; }},
    {"step", 1, [](const double* x) { return 1.0 / (1.0 + std::exp(-8.0 * x[0])); }},
    {"sin(2a) + bc", 3, [](const double* x) { return std::sin(2.0 * x[0]) + x[1] * x[2]; }},
};

enum class Where { above, below, both };

constexpr const char* NAMES[] = {"above", "below", "both sides"};

struct Contamination {
    double share, size;  // of the rows; in deviations of the truth, half more or less
    Where where;
};

struct Data {
    Matrix x;
    Vector truth, y;
    double deviation;
};

Data drawn(const Truth& truth, const Contamination& c, std::uint64_t seed)
{
    Random random(seed, 1);
    Data data{Matrix(ROWS, truth.columns), Vector(ROWS), Vector(ROWS), 0.0};
    for (double& x : data.x.reshaped<Eigen::RowMajor>()) x = 4.0 * random.uniform() - 2.0;
    for (Eigen::Index r = 0; r < ROWS; ++r) data.truth[r] = truth.of(data.x.row(r).data());
    data.deviation = std::sqrt((data.truth.array() - data.truth.mean()).square().mean());
    for (Eigen::Index r = 0; r < ROWS; ++r)
        data.y[r] = data.truth[r] + NOISE * data.deviation * random.normal();
    for (double& y : data.y) {
        const bool moved = random.uniform() < c.share;
        const double by = c.size * data.deviation * (0.5 + random.uniform());
        const bool up = random.uniform() < 0.5 ? c.where != Where::below : c.where == Where::above;
        if (moved) y += up ? by : -by;
    }
    return data;
}

struct Outcome {
    double error, core;  // in deviations of the truth; in units of the noise
};

Outcome outcome(const Truth& truth, const Contamination& c, std::uint64_t seed, double decay)
{
    const Data data = drawn(truth, c, seed);
    const Matrix inputs = InputMap(data.x).apply(data.x);
    const TargetScale scale(data.y);
    const Network network(truth.columns, {6});
    FitSettings settings;
    if (decay > 0.0) settings.decay = decay;
    const Curve curve = robust_fit(network, inputs, scale.apply(data.y), settings).curve;
    const Vector error = scale.undo(predictions(network, curve, inputs)) - data.truth;
    return {std::sqrt(error.array().square().mean()) / data.deviation,
            curve.core * scale.spread() / (NOISE * data.deviation)};
}

double quantile_of(const std::vector<double>& values, double q)
{
    return quantile(
        Eigen::Map<const Vector>(values.data(), static_cast<Eigen::Index>(values.size())), q);
}

void print_row(const Truth& truth, const Contamination& c, int draws, double decay)
{
    std::vector<double> errors, cores;
    for (int draw = 0; draw < draws; ++draw) {
        const Outcome o = outcome(truth, c, 1000 + static_cast<std::uint64_t>(draw), decay);
        errors.push_back(o.error);
        cores.push_back(o.core);
    }
    std::printf("| %s | %.0f %% | %s | %.0f | %.3f | %.3f | %.2f | %.2f to %.2f |\n",
                truth.name,
                100.0 * c.share,
                c.share == 0.0 ? "-" : NAMES[static_cast<int>(c.where)],
                c.size,
                quantile_of(errors, 0.5),
                quantile_of(errors, 0.9),
                quantile_of(cores, 0.5),
                quantile_of(cores, 0.05),
                quantile_of(cores, 0.95));
    std::fflush(stdout);
}

}  // namespace

int main(int count, char** arguments)
{
    const int draws = count > 1 ? std::atoi(arguments[1]) : 10;
    const double decay = count > 2 ? std::atof(arguments[2]) : 0.1;
    std::printf(
        "| truth | outliers | where | size | error, median | error, 9 of 10 | core / noise | 9 of "
        "10 |\n"
        "|---|---|---|---|---|---|---|---|\n");
    for (const Truth& truth : TRUTHS) {
        print_row(truth, {0.0, 0.0, Where::above}, draws, decay);
        for (const double share : {0.1, 0.2, 0.3, 0.4}) {
            for (const Where where : {Where::above, Where::below, Where::both}) {
                for (const double size : {1.0, 2.0, 8.0, 100.0})
                    print_row(truth, {share, size, where}, draws, decay);
            }
        }
    }
}
