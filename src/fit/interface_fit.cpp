#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "fit/interface.h"
#include "fit/robust_model.h"

namespace {

using namespace vemknfit;

// What a caller gives that may have been built with an earlier header, or a later one whose additions it leaves at zero.
VEMKNFitOptions known_options(const VEMKNFitOptions* given)
{
    VEMKNFitOptions options{};
    if (given == nullptr) return options;
    if (given->size < sizeof options) wrong("options: size is not sizeof(VEMKNFitOptions)");
    constexpr std::size_t MOST = 4096;
    if (given->size > MOST) wrong("options: size is not sizeof(VEMKNFitOptions)");
    std::memcpy(&options, given, sizeof options);
    const char* const bytes = reinterpret_cast<const char*>(given);
    if (std::any_of(bytes + sizeof options, bytes + given->size, [](char c) { return c != 0; }))
        wrong("options: has members that this version does not know, " VEMKN_VERSION);
    return options;
}

std::vector<unsigned> hidden_of(const VEMKNFitOptions& options)
{
    constexpr std::size_t MOST_LAYERS = 16;
    constexpr unsigned MOST_UNITS = 4096, USUAL = 6;
    if (options.hidden == nullptr) return {USUAL};
    if (options.layers < 1 || options.layers > MOST_LAYERS)
        wrong("options: layers is not 1 to " + std::to_string(MOST_LAYERS));
    std::vector<unsigned> hidden(options.hidden, options.hidden + options.layers);
    for (const unsigned width : hidden) {
        if (width < 1 || width > MOST_UNITS)
            wrong("options: hidden has a width that is not 1 to " + std::to_string(MOST_UNITS));
    }
    return hidden;
}

std::string activation_of(const VEMKNFitOptions& options)
{
    if (options.activation == nullptr) return "softplus";
    std::string word = options.activation;
    if (word != "softplus" && word != "id")
        wrong("options: activation is \"" + word + "\"; a robust fit takes softplus or id");
    return word;
}

std::optional<double> core_of(const VEMKNFitOptions& options)
{
    if (options.core == 0.0) return {};
    if (!(options.core > 0.0 && options.core <= LARGEST))
        wrong("options: core is not a number from 0 on");
    return options.core;
}

std::optional<double> decay_of(const VEMKNFitOptions& options)
{
    if (options.decay == VEMKN_FIT_NO_DECAY) return 0.0;
    if (options.decay == 0.0) return {};
    constexpr double MOST = 1e100;
    if (!(options.decay > 0.0 && options.decay <= MOST))
        wrong("options: decay is neither a number from 0 on nor VEMKN_FIT_NO_DECAY");
    return options.decay;
}

int starts_of(const VEMKNFitOptions& options)
{
    constexpr unsigned USUAL = 3, MOST = 100000;
    if (options.starts > MOST) wrong("options: starts is above " + std::to_string(MOST));
    return static_cast<int>(options.starts == 0 ? USUAL : options.starts);
}

unsigned threads_of(const VEMKNFitOptions& options)
{
    constexpr unsigned MOST = 99999;
    if (options.threads > MOST) wrong("options: threads is above " + std::to_string(MOST));
    return std::max(1U, options.threads);
}

ColumnRule rule_of(const VEMKNFitOptions& options, std::size_t i)
{
    const std::string number = std::to_string(i + 1);
    ColumnRule rule{.name = "x" + number, .bounded = true};
    if (options.columns == nullptr) return rule;
    const VEMKNFitColumn& column = options.columns[i];
    const auto usable = [](double value) { return value >= 0.0 && value <= LARGEST; };
    if (!usable(column.period) || !usable(column.spread) || !(std::abs(column.centre) <= LARGEST))
        wrong("options: column " + number +
              " has a period, centre or spread that is not a number, or negative");
    if (column.name != nullptr) rule.name = column.name;
    rule.period = column.period;
    rule.bounded = column.period == 0.0 && column.spread == 0.0;
    if (column.spread > 0.0) {
        rule.centre = column.centre;
        rule.spread = column.spread;
    }
    return rule;
}

std::function<bool(const Progress&)> watch_of(const VEMKNFitOptions& options)
{
    if (options.progress == nullptr) return {};
    return [ask = options.progress, host = options.host](const Progress& now) {
        const VEMKNFitProgress progress{.stage = static_cast<int>(now.stage),
                                        .start = now.start,
                                        .evaluations = static_cast<uint64_t>(now.evaluations),
                                        .core = now.core,
                                        .objective = now.objective};
        return ask(&progress, host) == 0;
    };
}

RobustOptions settings_of(const VEMKNFitOptions& options)
{
    return {.hidden = hidden_of(options),
            .activation = activation_of(options),
            .target = options.target == nullptr ? "y" : options.target,
            .core = core_of(options),
            .decay = decay_of(options),
            .seed = options.seed,
            .starts = starts_of(options),
            .threads = threads_of(options),
            .goes_on = watch_of(options)};
}

}  // namespace

int vemkn_fit_robust(const double* x,
                     size_t rows,
                     size_t columns,
                     const double* y,
                     const VEMKNFitOptions* options,
                     VEMKNFit** fit)
{
    if (fit != nullptr) *fit = nullptr;
    return guarded([&] {
        check_given(fit, "fit");
        check_given(x, "x");
        check_given(y, "y");
        if (rows < 2) wrong("rows is " + std::to_string(rows) + "; a fit takes 2 or more");
        const VEMKNFitOptions known = known_options(options);
        const RobustOptions settings = settings_of(known);
        const Matrix data = matrix_of(x, rows, columns);
        std::vector<ColumnRule> rules;
        for (std::size_t i = 0; i < columns; ++i) rules.push_back(rule_of(known, i));
        const Vector targets = Eigen::Map<const Vector>(y, data.rows());
        *fit = std::make_unique<VEMKNFit>(robust_model(data, targets, std::move(rules), settings))
                   .release();
    });
}

void vemkn_fit_free(VEMKNFit* fit)
{
    delete fit;
}
