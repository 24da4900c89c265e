#pragma once

#include <vector>

#include "fit/loss.h"
#include "fit/network.h"
#include "fit/watch.h"

namespace vemknfit {

// Rows to fit: what the network takes, which somebody else holds, and what it is to give, in units of the likelihood.
struct Batch {
    const Matrix& inputs;
    Vector targets;
};

// What a fit minimises: the losses of all rows, and 1/2 sum penalty w^2. What it refers to must outlive it, the watch too, if there
// is one.
class Objective {
public:
    Objective(const Network& network,
              const Batch& batch,
              const Vector& penalty,
              Watch* watch = nullptr)
        : network_(network), batch_(batch), penalty_(penalty), watch_(watch)
    {
    }

    virtual ~Objective() = default;

    // Infinite where the arithmetic leaves the finite numbers. Throws Cancelled where the watch wants that.
    double value(const Vector& w, Vector& gradient) const;

    // With rows on the sides where they stand.
    Matrix hessian(const Vector& w) const;

protected:
    virtual double loss_of_rows(const Vector& w, Vector& gradient) const;

    const Network& network_;
    const Batch& batch_;
    const Vector& penalty_;

private:
    Watch* const watch_;
};

// The same with every row on the side where it stood for the weights that this was made with. Smooth: a minimum is a stationary
// point. Its Hessian is exact where every row stands on the side that it is kept on, which near a minimum nearly all do.
class ObjectiveOfSides : public Objective {
public:
    ObjectiveOfSides(const Network& network,
                     const Batch& batch,
                     const Vector& penalty,
                     std::vector<Side> sides,
                     Watch* watch = nullptr)
        : Objective(network, batch, penalty, watch), sides_(std::move(sides))
    {
    }

protected:
    double loss_of_rows(const Vector& w, Vector& gradient) const override;

private:
    std::vector<Side> sides_;
};

// Where the rows stand.
std::vector<Side> sides_of(const Network& network, const Batch& batch, const Vector& w);

}  // namespace vemknfit
