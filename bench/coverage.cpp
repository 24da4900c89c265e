// How often bands of robust fits hold the curve, and prediction intervals new rows: fits of known curves, as the table of
// docs/robust.md.
//
//     vemkn_coverage [DRAWS [DECAY]]      draws a line, 200 unless given; a decay, or 0 to have it chosen, 0.1 unless given

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "fit/random.h"
#include "fit/robust_model.h"
#include "fit/robust_scale.h"
#include "fit/student.h"
#include "vemkn.h"

namespace {

using namespace vemknfit;

constexpr double NOISE = 0.1;  // of the deviation of the truth
constexpr double LEVEL = 0.95;
constexpr Eigen::Index POINTS = 20;

struct Truth {
    const char* name;
    Eigen::Index columns;
    double (*of)(const double* x);
    double unknown;  // points with |x| below it do not count
};

constexpr Truth TRUTHS[] = {
    {"sin(2x)", 1, [](const double* x) { return std::sin(2.0 * x[0]); }, 0.0},
    {"plane", 2, [](const double* x) { return x[0] - 0.5 * x[1]; }, 0.0},
    {"step", 1, [](const double* x) { return 1.0 / (1.0 + std::exp(-8.0 * x[0])); }, 0.2},
    {"ab", 2, [](const double* x) { return x[0] * x[1]; }, 0.0},
};

struct Sample {
    Matrix x;
    Vector truth, y;

    Sample(const Truth& of, Eigen::Index rows, double deviation, Random& random)
        : x(rows, of.columns), truth(rows), y(rows)
    {
        for (double& cell : x.reshaped<Eigen::RowMajor>()) cell = 4.0 * random.uniform() - 2.0;
        for (Eigen::Index r = 0; r < rows; ++r) {
            truth[r] = of.of(x.row(r).data());
            y[r] = truth[r] + NOISE * deviation * random.normal();
        }
    }
};

double deviation_of(const Truth& truth)
{
    constexpr Eigen::Index MANY = 20000;
    Random random(1, 1);
    const Vector values = Sample(truth, MANY, 0.0, random).truth;
    return std::sqrt((values.array() - values.mean()).square().mean());
}

// Points of the curve that are the same in all draws, within the range of the inputs.
Matrix points_of(const Truth& truth)
{
    Random random(7, 7);
    Matrix points(POINTS, truth.columns);
    for (Eigen::Index p = 0; p < POINTS; ++p) {
        do {
            for (Eigen::Index c = 0; c < truth.columns; ++c)
                points(p, c) = 3.6 * random.uniform() - 1.8;
        } while (std::abs(points(p, 0)) < truth.unknown);
    }
    return points;
}

struct Line {
    int fits = 0, without = 0;
    Vector held = Vector::Zero(POINTS);  // how often the band held the curve
    double new_rows = 0.0, new_held = 0.0;
    std::vector<std::vector<double>> misses{static_cast<std::size_t>(POINTS)},
        widths{static_cast<std::size_t>(POINTS)};
};

void add_draw(Line& line,
              const Truth& truth,
              const Sample& data,
              const Sample& fresh,
              const RobustOptions& options)
{
    const Model model = robust_model(
        data.x,
        data.y,
        std::vector<ColumnRule>(static_cast<std::size_t>(truth.columns), {.bounded = true}),
        options);
    ++line.fits;
    if (model.uncertainty->covariance.size() == 0) {
        ++line.without;
        return;
    }
    const vemkn::Network network = model.network();
    const double t = student_quantile(LEVEL, model.uncertainty->freedom),
                 core = model.targets.front().core;
    const Matrix points = points_of(truth);
    const Vector curve = model.predict(network, points), errors = model.errors(network, points);
    for (Eigen::Index p = 0; p < POINTS; ++p) {
        const double miss = curve[p] - truth.of(points.row(p).data());
        line.held[p] += std::abs(miss) <= t * errors[p] ? 1.0 : 0.0;
        line.misses[static_cast<std::size_t>(p)].push_back(miss);
        line.widths[static_cast<std::size_t>(p)].push_back(2.0 * t * errors[p]);
    }
    const Vector said = model.predict(network, fresh.x), around = model.errors(network, fresh.x);
    for (Eigen::Index r = 0; r < said.size(); ++r) {
        line.new_rows += 1.0;
        line.new_held +=
            std::abs(fresh.y[r] - said[r]) <= t * std::hypot(around[r], core) ? 1.0 : 0.0;
    }
}

void print(const Truth& truth, Eigen::Index rows, double share, const Line& line)
{
    const auto drawn = static_cast<double>(line.fits - line.without);
    std::vector<double> ratios;
    for (Eigen::Index p = 0; p < POINTS; ++p) {
        const auto i = static_cast<std::size_t>(p);
        const Vector misses = Eigen::Map<const Vector>(
            line.misses[i].data(), static_cast<Eigen::Index>(line.misses[i].size()));
        const Vector widths = Eigen::Map<const Vector>(
            line.widths[i].data(), static_cast<Eigen::Index>(line.widths[i].size()));
        const double deviation = std::sqrt((misses.array() - misses.mean()).square().mean());
        ratios.push_back(median(widths) / (3.92 * deviation));
    }
    const Vector all = Eigen::Map<const Vector>(ratios.data(), POINTS);
    std::printf("| %s | %d | %.0f %% | %.3f | %.3f | %.2f | %.3f | %.1f %% |\n",
                truth.name,
                static_cast<int>(rows),
                100.0 * share,
                line.held.mean() / drawn,
                line.held.minCoeff() / drawn,
                median(all),
                line.new_held / line.new_rows,
                100.0 * line.without / line.fits);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv)
{
    constexpr double SIZE = 8.0;  // of outliers, in deviations
    const int draws = argc > 1 ? std::atoi(argv[1]) : 200;
    const double decay = argc > 2 ? std::atof(argv[2]) : 0.1;
    vemk_nobanner();
    std::printf(
        "| truth | rows | outliers | band holds the curve | at the worst point | width / 3.92 "
        "errors | interval holds new rows | without |\n");
    std::printf("|---|---|---|---|---|---|---|---|\n");
    for (const Truth& truth : TRUTHS) {
        const double deviation = deviation_of(truth);
        for (const Eigen::Index rows : {200, 1000}) {
            for (const double share : {0.0, 0.1}) {
                Line line;
                for (int draw = 0; draw < draws; ++draw) {
                    Random random(static_cast<std::uint64_t>(draw), 1);
                    Sample data(truth, rows, deviation, random);
                    for (double& y : data.y) {
                        if (random.uniform() < share)
                            y += SIZE * deviation * (0.5 + random.uniform());
                    }
                    const Sample fresh(truth, POINTS, deviation, random);
                    RobustOptions options;
                    if (decay > 0.0) options.decay = decay;
                    add_draw(line, truth, data, fresh, options);
                }
                print(truth, rows, share, line);
            }
        }
    }
}
