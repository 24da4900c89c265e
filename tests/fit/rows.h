#pragma once

#include <vemkn_fit.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "fit/random.h"

// Rows of sin(2x) with noise and outliers, and calls of the C interface on them.

namespace rows {

struct Release {
    void operator()(VEMKNFit* fit) const { vemkn_fit_free(fit); }
};

using Fit = std::unique_ptr<VEMKNFit, Release>;

inline constexpr double NOISE = 0.1;

// Two columns, of which the second has nothing to say.
struct Data {
    std::size_t rows;
    std::vector<double> x, truth, y;

    explicit Data(std::size_t number, std::uint64_t seed = 1, double outliers = 0.1) : rows(number)
    {
        vemknfit::Random random(seed, 9);
        for (std::size_t r = 0; r < number; ++r) {
            x.push_back(4.0 * random.uniform() - 2.0);
            x.push_back(random.normal());
            truth.push_back(std::sin(2.0 * x[2 * r]));
            y.push_back(truth[r] + NOISE * random.normal() +
                        (random.uniform() < outliers ? 8.0 : 0.0));
        }
    }
};

inline VEMKNFitOptions options()
{
    VEMKNFitOptions options{};
    options.size = sizeof options;
    options.decay = 0.3;
    return options;
}

inline int fit(const Data& data, const VEMKNFitOptions& options, Fit& result)
{
    VEMKNFit* made = nullptr;
    const int code = vemkn_fit_robust(data.x.data(), data.rows, 2, data.y.data(), &options, &made);
    result.reset(made);
    return code;
}

inline Fit fitted(const Data& data, const VEMKNFitOptions& options)
{
    Fit result;
    if (fit(data, options, result) != VEMKN_FIT_OK)
        std::fprintf(stderr, "%s\n", vemkn_fit_message());
    return result;
}

inline std::vector<double> predicted(const VEMKNFit* fit, const Data& data)
{
    std::vector<double> found(data.rows);
    if (vemkn_fit_predict(fit, data.x.data(), data.rows, 2, found.data()) != VEMKN_FIT_OK)
        found.clear();
    return found;
}

inline std::string text_of(const VEMKNFit* fit)
{
    std::size_t length = 0;
    vemkn_fit_write(fit, nullptr, 0, &length);
    std::string text(length + 1, '\0');
    vemkn_fit_write(fit, text.data(), text.size(), &length);
    text.resize(length);
    return text;
}

inline int read(const std::string& text, Fit& result)
{
    VEMKNFit* made = nullptr;
    const int code = vemkn_fit_read(text.data(), text.size(), &made);
    result.reset(made);
    return code;
}

}  // namespace rows
