#pragma once

#include <string>
#include <vector>

#include "support/numbers.h"
#include "support/plain_network.h"
#include "vemkn.hpp"

// A network of the C++ header beside the plain loops, and a batch.

struct Problem {
    plain::Network truth{.numin = 3,
                         .numout = 2,
                         .nmult = 2,
                         .sizes = {3, 4, 3},
                         .activation = "softplus",
                         .norm = "sum_log_dnorm_fat"};
    unsigned rows = 7;
    Numbers w, x, y;

    explicit Problem(std::uint64_t seed = 1)
    {
        Random random(seed);
        w = random.list(truth.numel(), -0.5, 0.5);
        x = random.list(std::size_t{rows} * truth.numin);
        // Residuals in the core and in the tail, none near the jump at 2.
        const plain::Reals outputs = truth.outputs(w, x, rows, truth.numin);
        for (std::size_t i = 0; i < outputs.size(); ++i) {
            const double r = i % 3 == 0 ? random.uniform(2.5, 4) : random.uniform(-0.5, 0.5);
            y.push_back(static_cast<double>(outputs[i]) - (i % 2 == 0 ? r : -r));
        }
    }

    std::size_t nw() const { return truth.numel(); }

    std::size_t results() const { return y.size(); }

    vemkn::Network network() const { return vemkn::Network(truth.text()); }
};

// Tangent d of nv in a vector of either order, each of n entries.
inline Numbers tangent(const Numbers& v, std::size_t d, std::size_t nv, vemkn::Order order)
{
    const std::size_t n = v.size() / nv;
    Numbers one;
    for (std::size_t k = 0; k < n; ++k) {
        one.push_back(v[order == vemkn::Order::interleaved ? k * nv + d : d * n + k]);
    }
    return one;
}

inline constexpr vemkn::Order ORDERS[] = {vemkn::Order::interleaved, vemkn::Order::consecutive};
