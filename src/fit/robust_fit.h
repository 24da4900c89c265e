#pragma once

#include <cstdint>

#include "fit/minimise.h"
#include "fit/random.h"

namespace vemknfit {

struct FitSettings {
    double decay = 0.1;  // of weights, in units of the summed negative log-likelihood
    int starts = 3;
    std::uint64_t seed = 1;
};

// A fit of one target, in units of its TargetScale: shift + 3 core output.
struct Curve {
    Vector w;
    double core = 1.0;  // standard deviation that counts as normal scatter
    double shift = 0.0;

    double unit() const { return 3.0 * core; }
};

// What a curve says of rows: rows x inputs as the network takes them.
Vector predictions(const Network& network, const Curve& curve, const Matrix& inputs);

// Robust regression: an MM-estimate over a ladder of cores. Of one start:
//   1. a fit with a core so wide that it is close to least squares;
//   2. concentration steps as in fast LTS: the 55 % of rows with the smallest residuals, refitted, six times [Rousseeuw & Van
//      Driessen, Computing LTS regression for large data sets, Data Min. Knowl. Discov. 12 (2006) 29];
//   3. from both, cores halved step by step, each fit from the one before. Every rung is a candidate.
// The candidates of all starts are compared by the M-scale of their residuals, never by the likelihood, which prefers a wide core
// to many outliers. The best few are fitted again with the core that their own residuals give, until it stands, each row kept
// on its side of the likelihood's jump until none changes.
class RobustFit {
public:
    // Refers to network and inputs. y has one number for each row of the inputs, in units of its TargetScale.
    RobustFit(const Network& network, const Matrix& inputs, Vector y, const FitSettings& settings);

    Curve run();

    // What the weights are penalised by at a core, and the targets in units of a curve.
    Vector penalty(double core) const;
    Vector targets(const Curve& curve) const;

private:
    struct Candidate {
        double scale;
        Curve curve;
    };

    Vector residuals(const Curve& curve) const;
    Batch all_rows(const Curve& curve) const;
    Curve minimised(Curve curve, const Batch& batch, int evaluations) const;
    Curve minimised(const Curve& curve, int evaluations) const;
    Curve minimised_on(const Rows& rows, const Curve& curve, int evaluations) const;
    Curve with_sides_kept(Curve curve) const;
    Curve with_core(Curve curve, double core) const;
    Curve start(std::uint32_t stream) const;
    Curve concentrated(Curve curve) const;
    void descend(Curve curve);
    Candidate refined(Curve curve) const;
    double own_core(const Curve& curve) const;

    const Network& network_;
    const Matrix& inputs_;
    const Vector y_;
    const FitSettings settings_;
    std::vector<Candidate> candidates_{};
};

}  // namespace vemknfit
