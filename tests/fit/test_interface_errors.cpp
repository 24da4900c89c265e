// Every error of the C interface: its code, and what it says.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <limits>

#include "rows.h"

namespace {

using rows::Data;
using rows::Fit;

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double INFINITE = std::numeric_limits<double>::infinity();

void expect_message(const std::string& part, std::int64_t row = -1)
{
    EXPECT_NE(std::string::npos, std::string(vemkn_fit_message()).find(part))
        << vemkn_fit_message() << "\nlacks " << part;
    EXPECT_EQ(row, vemkn_fit_row());
}

// A fit of changed options or data, that must fail.
template <class Change>
void expect_refused(int code, const std::string& message, std::int64_t row, const Change& change)
{
    Data data(50);
    VEMKNFitOptions options = rows::options();
    change(options, data);
    Fit fit;
    EXPECT_EQ(code, rows::fit(data, options, fit)) << message;
    EXPECT_FALSE(fit);
    expect_message(message, row);
}

}  // namespace

TEST(RobustFitErrors, NameTheArgument)
{
    const double x[] = {1, 2, 3, 4}, y[] = {1, 2};
    VEMKNFit* fit = nullptr;
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_robust(nullptr, 2, 2, y, nullptr, &fit));
    expect_message("x is a null pointer");
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_robust(x, 2, 2, nullptr, nullptr, &fit));
    expect_message("y is a null pointer");
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_robust(x, 2, 2, y, nullptr, nullptr));
    expect_message("fit is a null pointer");
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_robust(x, 1, 2, y, nullptr, &fit));
    expect_message("rows is 1");
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_robust(x, 2, 0, y, nullptr, &fit));
    expect_message("columns is not 1 to");
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_robust(x, SIZE_MAX, 2, y, nullptr, &fit));
    expect_message("rows is above");
    EXPECT_EQ(nullptr, fit);
}

TEST(RobustFitErrors, NameTheOption)
{
    const auto refused = [](const std::string& message, const auto& change) {
        expect_refused(VEMKN_FIT_ARGUMENT, message, -1, [&](VEMKNFitOptions& options, Data&) {
            change(options);
        });
    };
    using Options = VEMKNFitOptions;
    static const unsigned wide[] = {5000}, none[] = {0}, huge[] = {4096, 4096}, one[] = {3};
    refused("size is not", [](Options& o) { o.size = 0; });
    refused("size is not", [](Options& o) { o.size = SIZE_MAX; });
    refused("layers is not", [](Options& o) { o.hidden = one; });
    refused("a width", [](Options& o) { o.hidden = wide, o.layers = 1; });
    refused("a width", [](Options& o) { o.hidden = none, o.layers = 1; });
    refused("more than 5000", [](Options& o) { o.hidden = huge, o.layers = 2; });
    refused("takes softplus or id", [](Options& o) { o.activation = "tanh"; });
    refused("takes softplus or id", [](Options& o) { o.activation = ""; });
    for (const double core : {-1.0, NaN, INFINITE})
        refused("core is not a number", [&](Options& o) { o.core = core; });
    refused("are its units those", [](Options& o) { o.core = 1e-9; });
    refused("are its units those", [](Options& o) { o.core = 1e9; });
    for (const double decay : {-2.0, NaN, INFINITE})
        refused("decay is neither", [&](Options& o) { o.decay = decay; });
    refused("starts is above", [](Options& o) { o.starts = UINT32_MAX; });
    refused("threads is above", [](Options& o) { o.threads = UINT32_MAX; });
    for (const VEMKNFitColumn& wrong : {VEMKNFitColumn{nullptr, -1.0, 0.0, 0.0},
                                        VEMKNFitColumn{nullptr, NaN, 0.0, 0.0},
                                        VEMKNFitColumn{nullptr, 0.0, NaN, 1.0},
                                        VEMKNFitColumn{nullptr, 0.0, 0.0, -1.0}}) {
        const VEMKNFitColumn columns[] = {VEMKNFitColumn{}, wrong};
        refused("column 2 has a period", [&](Options& o) { o.columns = columns; });
    }
}

// A host that was built with a later header.
TEST(RobustFitErrors, KnowOptionsOfALaterVersionByWhatIsNotZero)
{
    struct Later {
        VEMKNFitOptions known;
        double more[4];
    } later{rows::options(), {}};

    later.known.size = sizeof later;
    const Data data(50);
    Fit fit;
    EXPECT_EQ(VEMKN_FIT_OK, rows::fit(data, later.known, fit));
    later.more[1] = 1.0;
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, rows::fit(data, later.known, fit));
    expect_message("members that this version does not know");
}

TEST(RobustFitErrors, NameTheRow)
{
    for (const double wrong : {NaN, INFINITE, -INFINITE}) {
        expect_refused(VEMKN_FIT_DATA,
                       "x: row 8, column 2 is not a finite number",
                       7,
                       [&](VEMKNFitOptions&, Data& data) { data.x[15] = wrong; });
        expect_refused(VEMKN_FIT_DATA,
                       "y: row 4 is not a finite number",
                       3,
                       [&](VEMKNFitOptions&, Data& data) { data.y[3] = wrong; });
    }
    expect_refused(VEMKN_FIT_DATA, "y: row 4 is beyond 4e307", 3, [](VEMKNFitOptions&, Data& data) {
        data.y[3] = 1e308;
    });
    static const VEMKNFitColumn columns[] = {{}, {nullptr, 0.0, 0.0, 1e-300}};
    expect_refused(VEMKN_FIT_DATA,
                   "x: row 1 overflows when it is scaled",
                   0,
                   [](VEMKNFitOptions& options, Data& data) {
                       options.columns = columns;
                       data.x[1] = 1e300;
                   });
}

TEST(RobustFitErrors, SayThatThereIsNoScatter)
{
    const auto zeros = [](VEMKNFitOptions&, Data& data) {
        std::fill(data.y.begin() + 20, data.y.end(), 0.0);
    };
    expect_refused(VEMKN_FIT_SCATTER, "give the core", -1, zeros);
    expect_refused(
        VEMKN_FIT_DATA, "all targets are one value", -1, [](VEMKNFitOptions& options, Data& data) {
            options.core = 1.0;
            std::fill(data.y.begin(), data.y.end(), 3.0);
        });
}

TEST(RobustFitErrors, RefuseNamesThatAreNotText)
{
    const Data data(50);
    VEMKNFitOptions options = rows::options();
    options.target = "\xff\xfe";
    const Fit fit = rows::fitted(data, options);
    std::size_t length = 0;
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_write(fit.get(), nullptr, 0, &length));
    expect_message("not UTF-8");
}

TEST(PredictErrors, NameTheArgumentAndTheRow)
{
    const Data data(50);
    const Fit fit = rows::fitted(data, rows::options());
    double x[] = {0.0, 0.0, 0.5, 1.0}, found[] = {7.0, 7.0};
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_predict(nullptr, x, 2, 2, found));
    expect_message("fit is a null pointer");
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_predict(fit.get(), x, 2, 1, found));
    expect_message("columns is 1, the model has 2");
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_predict(fit.get(), nullptr, 2, 2, found));
    expect_message("x is a null pointer");
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, vemkn_fit_predict(fit.get(), x, 2, 2, nullptr));
    expect_message("prediction is a null pointer");
    x[3] = NaN;
    EXPECT_EQ(VEMKN_FIT_DATA, vemkn_fit_predict(fit.get(), x, 2, 2, found));
    expect_message("x: row 2, column 2 is not a finite number", 1);
    EXPECT_EQ(7.0, found[0]);
    EXPECT_EQ(VEMKN_FIT_OK, vemkn_fit_predict(fit.get(), nullptr, 0, 2, nullptr));
    expect_message("");
}

TEST(PredictErrors, NameTheRowThatIsTooFarOut)
{
    Fit fit;
    ASSERT_EQ(VEMKN_FIT_OK,
              rows::read(R"({"vemkn_model": 1, "hidden": [1], "activation": "id",
        "inputs": [{"name": "a", "mean": 0, "deviation": 1}, {"name": "b", "mean": 0, "deviation": 0.001}],
        "targets": [{"name": "u", "core": 1, "shift": 0}],
        "method": "lbfgs", "norm": "sum_log_dnorm_fat", "seed": 1, "training_rows": 9,
        "weights": [0, 100, 1,  0, 1]})",
                         fit))
        << vemkn_fit_message();
    double x[] = {0.0, 0.0, 4e307, 1.0}, found[2];
    EXPECT_EQ(VEMKN_FIT_DATA, vemkn_fit_predict(fit.get(), x, 2, 2, found));
    expect_message("row 2: the inputs are too large for this model", 1);
    x[1] = -1e307;
    EXPECT_EQ(VEMKN_FIT_DATA, vemkn_fit_predict(fit.get(), x, 2, 2, found));
    expect_message("row 1 overflows when it is scaled", 0);
}

TEST(IntervalErrors, NameTheArgumentAndWhatIsMissing)
{
    const Data data(50);
    Fit fit = rows::fitted(data, rows::options());
    const double x[] = {0.0, 0.0};
    double error = 7.0;
    const auto call = [&](int kind, double level, std::size_t columns = 2) {
        return vemkn_fit_interval(
            fit.get(), x, 1, columns, kind, level, nullptr, &error, nullptr, nullptr);
    };
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, call(2, 0.95));
    expect_message("kind is neither");
    for (const double level : {0.0, 1.0, -1.0, 95.0, NaN}) {
        EXPECT_EQ(VEMKN_FIT_ARGUMENT, call(VEMKN_FIT_CONFIDENCE, level));
        expect_message("level is not between 0 and 1");
    }
    EXPECT_EQ(VEMKN_FIT_ARGUMENT, call(VEMKN_FIT_CONFIDENCE, 0.95, 3));
    expect_message("columns is 3");
    VEMKNFitOptions options = rows::options();
    const unsigned hidden[] = {130};
    options.hidden = hidden;
    options.starts = 1;
    options.layers = 1;
    fit = rows::fitted(data, options);
    EXPECT_EQ(VEMKN_FIT_UNCERTAIN, call(VEMKN_FIT_CONFIDENCE, 0.95));
    expect_message("more than 500 weights");
    EXPECT_EQ(nullptr, vemkn_fit_covariance(fit.get()));
    EXPECT_TRUE(std::isnan(vemkn_fit_parameters(fit.get())));
    EXPECT_EQ(7.0, error);
}

// Less memory than the data take twice.
TEST(RobustFitErrors, SayThatMemoryIsShort)
{
#ifndef VEMKN_SANITIZED
    const std::size_t number = 4000000;
    const std::vector<double> x(2 * number, 1.0), y(number, 1.0);
    rlimit before{};
    getrlimit(RLIMIT_AS, &before);
    rlimit tight = before;
    std::size_t pages = 0;
    if (std::FILE* const file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(file, "%zu", &pages) != 1) pages = 0;
        std::fclose(file);
    }
    tight.rlim_cur = pages * 4096 + (std::size_t{20} << 20U);
    setrlimit(RLIMIT_AS, &tight);
    const std::size_t beyond = std::size_t{64} << 20U;
    void* const more = mmap(nullptr, beyond, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (more != MAP_FAILED) {
        munmap(more, beyond);
        setrlimit(RLIMIT_AS, &before);
        GTEST_SKIP() << "an emulator keeps no limits of memory";
    }
    VEMKNFit* fit = nullptr;
    const int code = vemkn_fit_robust(x.data(), number, 2, y.data(), nullptr, &fit);
    setrlimit(RLIMIT_AS, &before);
    EXPECT_EQ(VEMKN_FIT_MEMORY, code);
    expect_message("not enough memory");
    EXPECT_EQ(nullptr, fit);
#endif
}

TEST(Accessors, TakeNull)
{
    EXPECT_EQ(0u, vemkn_fit_columns(nullptr));
    EXPECT_EQ(nullptr, vemkn_fit_column(nullptr, 0));
    EXPECT_EQ(0u, vemkn_fit_targets(nullptr));
    EXPECT_EQ(nullptr, vemkn_fit_target(nullptr, 0));
    EXPECT_TRUE(std::isnan(vemkn_fit_core(nullptr, 0)));
    EXPECT_TRUE(std::isnan(vemkn_fit_shift(nullptr, 0)));
    EXPECT_TRUE(std::isnan(vemkn_fit_decay(nullptr)));
    EXPECT_TRUE(std::isnan(vemkn_fit_objective(nullptr)));
    EXPECT_TRUE(std::isnan(vemkn_fit_gradient(nullptr)));
    EXPECT_EQ(0, vemkn_fit_settled(nullptr));
    EXPECT_EQ(0u, vemkn_fit_rows(nullptr));
    EXPECT_EQ(0u, vemkn_fit_beyond(nullptr));
    EXPECT_EQ(0u, vemkn_fit_layers(nullptr));
    EXPECT_EQ(0u, vemkn_fit_width(nullptr, 0));
    EXPECT_EQ(nullptr, vemkn_fit_activation(nullptr));
    EXPECT_EQ(nullptr, vemkn_fit_method(nullptr));
    std::size_t count = 1;
    EXPECT_EQ(nullptr, vemkn_fit_weights(nullptr, &count));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(nullptr, vemkn_fit_covariance(nullptr));
    EXPECT_TRUE(std::isnan(vemkn_fit_parameters(nullptr)));
    EXPECT_EQ(0u, vemkn_fit_notes(nullptr));
    EXPECT_EQ(nullptr, vemkn_fit_note(nullptr, 0));
    vemkn_fit_free(nullptr);
}
