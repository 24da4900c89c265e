// The C interface: fits, predictions, threads, the process around it.
#include <fenv.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <thread>

#include "fit/robust_scale.h"
#include "rows.h"
#include "support/fp_state.h"

namespace {

using rows::Data;
using rows::Fit;

double error(const std::vector<double>& found, const Data& data)
{
    double sum = 0.0;
    for (std::size_t r = 0; r < data.rows; ++r) sum += std::pow(found[r] - data.truth[r], 2);
    return std::sqrt(sum / static_cast<double>(data.rows));
}

}  // namespace

TEST(RobustFitCall, FindsTheCurveAndTheCoreBehindOutliers)
{
    const Data data(300);
    const Fit fit = rows::fitted(data, rows::options());
    ASSERT_TRUE(fit);
    EXPECT_LT(error(rows::predicted(fit.get(), data), data), 0.5 * rows::NOISE);
    EXPECT_NEAR(1.0, vemkn_fit_core(fit.get(), 0) / rows::NOISE, 0.15);
    const auto outliers =
        std::count_if(data.y.begin(), data.y.end(), [](double y) { return y > 4.0; });
    EXPECT_EQ(static_cast<std::size_t>(outliers), vemkn_fit_beyond(fit.get()));
    EXPECT_EQ(300u, vemkn_fit_rows(fit.get()));
    EXPECT_EQ(0.3, vemkn_fit_decay(fit.get()));
    EXPECT_GT(vemkn_fit_objective(fit.get()), 0.0);
    EXPECT_LT(vemkn_fit_gradient(fit.get()), 1e-2 * vemkn_fit_objective(fit.get()));
    EXPECT_STREQ("robust", vemkn_fit_method(fit.get()));
    EXPECT_STREQ("x2", vemkn_fit_column(fit.get(), 1));
    EXPECT_STREQ("y", vemkn_fit_target(fit.get(), 0));
    std::size_t count = 0;
    ASSERT_NE(nullptr, vemkn_fit_weights(fit.get(), &count));
    EXPECT_EQ(6u * 3u + 7u, count);
}

// Longer than a batch, so that threads share rows. There are no teams for little work, but under a sanitizer, which takes long.
TEST(RobustFitCall, GivesTheSameBitsForAnyNumberOfThreads)
{
#ifdef VEMKN_SANITIZED
    const Data data(520);
    const unsigned hidden = 2;
#else
    const Data data(1000);
    const unsigned hidden = 6;
#endif
    VEMKNFitOptions options = rows::options();
    options.hidden = &hidden;
    options.layers = 1;
    const Fit one = rows::fitted(data, options);
    for (const unsigned threads : {2u, 5u}) {
        options.threads = threads;
        EXPECT_EQ(rows::text_of(one.get()), rows::text_of(rows::fitted(data, options).get()));
    }
}

TEST(RobustFitCall, ServesSeparateFitsFromSeparateThreads)
{
    const Data data[] = {Data(300, 1), Data(120, 2)};
    VEMKNFitOptions options[] = {rows::options(), rows::options()};
    options[1].decay = 0.0;  // chosen
    const unsigned hidden[] = {4, 3};
    options[1].hidden = hidden;
    options[1].layers = 2;
    std::string alone[2], together[2];
    for (int i = 0; i < 2; ++i) alone[i] = rows::text_of(rows::fitted(data[i], options[i]).get());
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i)
        threads.emplace_back(
            [&, i] { together[i] = rows::text_of(rows::fitted(data[i], options[i]).get()); });
    for (std::thread& thread : threads) thread.join();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(alone[i], together[i]);
}

TEST(RobustFitCall, ReportsItsStagesAndEndsWhenItIsToldTo)
{
    struct Seen {
        std::uint64_t evaluations = 0, most;
        int last_start = 0;
        bool stages[3] = {};
        double core = 0.0;
    };

    const Data data(120);
    VEMKNFitOptions options = rows::options();
    options.decay = 0.0;
    options.progress = [](const VEMKNFitProgress* progress, void* host) {
        Seen& seen = *static_cast<Seen*>(host);
        EXPECT_EQ(seen.evaluations + 1, progress->evaluations);
        seen.evaluations = progress->evaluations;
        seen.stages[progress->stage] = true;
        seen.last_start = std::max(seen.last_start, progress->start);
        seen.core = progress->core;
        return seen.evaluations == seen.most ? 1 : 0;
    };
    Seen whole{.most = 0};
    options.host = &whole;
    const Fit fit = rows::fitted(data, options);
    ASSERT_TRUE(fit);
    EXPECT_TRUE(whole.stages[0] && whole.stages[1] && whole.stages[2]);
    EXPECT_EQ(3, whole.last_start);
    EXPECT_NEAR(vemkn_fit_core(fit.get(), 0), whole.core, 1e-3 * whole.core);
    options.progress = nullptr;
    EXPECT_EQ(rows::text_of(fit.get()), rows::text_of(rows::fitted(data, options).get()));

    options.progress = [](const VEMKNFitProgress* progress, void* host) {
        return progress->evaluations == *static_cast<std::uint64_t*>(host) ? 1 : 0;
    };
    for (std::uint64_t most :
         {std::uint64_t{1}, std::uint64_t{50}, whole.evaluations / 2, whole.evaluations}) {
        options.host = &most;
        VEMKNFit* made = fit.get();
        EXPECT_EQ(VEMKN_FIT_CANCELLED,
                  vemkn_fit_robust(data.x.data(), data.rows, 2, data.y.data(), &options, &made));
        EXPECT_EQ(nullptr, made);
        EXPECT_STREQ("the fit was cancelled", vemkn_fit_message());
    }
}

TEST(RobustFitCall, TakesNoHarmFromAnExceptionOfTheHost)
{
    const Data data(60);
    VEMKNFitOptions options = rows::options();
    options.progress = [](const VEMKNFitProgress*, void*) -> int { throw 7; };
    Fit fit;
    EXPECT_EQ(VEMKN_FIT_INTERNAL, rows::fit(data, options, fit));
}

TEST(RobustFitCall, TakesACoreThatIsGiven)
{
    const Data data(300);
    VEMKNFitOptions options = rows::options();
    options.core = 0.25;
    EXPECT_NEAR(0.25, vemkn_fit_core(rows::fitted(data, options).get(), 0), 1e-12);
    // Seventy percent are zero: no scatter can be had of them.
    Data zeros(300, 3, 0.0);
    for (std::size_t r = 0; r < zeros.rows; ++r) {
        if (r % 10 < 7) zeros.y[r] = 0.0;
    }
    Fit fit;
    options.core = 0.0;
    EXPECT_EQ(VEMKN_FIT_SCATTER, rows::fit(zeros, options, fit));
    options.core = 0.25;
    EXPECT_EQ(VEMKN_FIT_OK, rows::fit(zeros, options, fit)) << vemkn_fit_message();
}

TEST(RobustFitCall, FitsALinearModelByTheActivationId)
{
    Data data(200, 5, 0.2);
    for (std::size_t r = 0; r < data.rows; ++r) {
        const double line = 3.0 - 2.0 * data.x[2 * r] + 0.5 * data.x[2 * r + 1];
        data.y[r] += line - data.truth[r];
        data.truth[r] = line;
    }
    VEMKNFitOptions options = rows::options();
    const VEMKNFitColumn columns[] = {{"a", 0.0, 0.0, 1.0}, {"b", 0.0, 0.0, 1.0}};
    options.columns = columns;
    options.activation = "id";
    options.decay = VEMKN_FIT_NO_DECAY;
    const Fit fit = rows::fitted(data, options);
    ASSERT_TRUE(fit);
    EXPECT_LT(error(rows::predicted(fit.get(), data), data), 0.3 * rows::NOISE);
    EXPECT_EQ(0.0, vemkn_fit_decay(fit.get()));
}

// Two lots of rows one after the other, of which a period makes one.
TEST(RobustFitCall, MakesAColumnPeriodic)
{
    const Data data(300);
    Data later = data;
    for (std::size_t r = 0; r < data.rows; ++r) later.x[2 * r] += 3.0 * 3.14159265358979323846;
    VEMKNFitOptions options = rows::options();
    const VEMKNFitColumn columns[] = {{"hour", 3.14159265358979323846, 0.0, 0.0},
                                      {nullptr, 0.0, 0.0, 0.0}};
    options.columns = columns;
    options.target = "load";
    const Fit fit = rows::fitted(data, options);
    const auto now = rows::predicted(fit.get(), data), then = rows::predicted(fit.get(), later);
    for (std::size_t r = 0; r < data.rows; ++r) EXPECT_NEAR(now[r], then[r], 1e-9);
    EXPECT_STREQ("hour", vemkn_fit_column(fit.get(), 0));
    EXPECT_STREQ("load", vemkn_fit_target(fit.get(), 0));
}

TEST(RobustFitCall, NotesWhatAPersonShouldKnow)
{
    Data data(200, 7, 0.0);
    for (std::size_t r = 0; r < data.rows; ++r) data.x[2 * r + 1] = 4.0;
    data.x[2 * 17] = 999.0;
    const Fit fit = rows::fitted(data, rows::options());
    std::string notes;
    for (std::size_t i = 0; i < vemkn_fit_notes(fit.get()); ++i)
        notes += std::string(vemkn_fit_note(fit.get(), i)) + "\n";
    EXPECT_NE(std::string::npos, notes.find("column 'x2' holds one value only")) << notes;
    EXPECT_NE(std::string::npos, notes.find("1 rows have an input far")) << notes;
    EXPECT_NE(std::string::npos, notes.find("row 18")) << notes;
    EXPECT_LT(vemknfit::median(
                  Eigen::Map<const vemknfit::Vector>(rows::predicted(fit.get(), data).data(), 200)),
              1.0);
}

// With every trap armed, another rounding and a flag raised before: as the host had it, and the same bits.
TEST(Interface, LeavesTheArithmeticOfTheHostAlone)
{
    const Data data(100);
    const std::string expected = rows::text_of(rows::fitted(data, rows::options()).get());
    fenv_t before;
    fegetenv(&before);
    const int armed = armed_by_the_host(FE_ALL_EXCEPT & ~FE_INEXACT);
    fesetround(FE_UPWARD);
    const Fit fit = rows::fitted(data, rows::options());
    const std::string text = rows::text_of(fit.get());
    const int traps = fegetexcept(), rounding = fegetround();
    const int flags = fetestexcept(FE_INVALID | FE_OVERFLOW | FE_DIVBYZERO | FE_UNDERFLOW);
    fesetenv(&before);
    EXPECT_EQ(armed, traps);
    EXPECT_EQ(FE_UPWARD, rounding);
    EXPECT_EQ(0, flags);
    EXPECT_EQ(expected, text);
}

TEST(Interface, PrintsNothing)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const Data data(60);
    const Fit fit = rows::fitted(data, rows::options());
    rows::predicted(fit.get(), data);
    Fit other;
    rows::read("no model", other);
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST(Interface, KeepsMessagesOfThreadsApart)
{
    Fit fit;
    EXPECT_EQ(VEMKN_FIT_MODEL, rows::read("", fit));
    const std::string mine = vemkn_fit_message();
    EXPECT_NE("", mine);
    std::string fresh = "?", theirs;
    std::thread([&] {
        fresh = vemkn_fit_message();
        vemkn_fit_predict(nullptr, nullptr, 0, 0, nullptr);
        theirs = vemkn_fit_message();
    }).join();
    EXPECT_EQ("", fresh);
    EXPECT_EQ("fit is a null pointer", theirs);
    EXPECT_EQ(mine, vemkn_fit_message());
}

TEST(Interval, IsWiderForANewRowThanForTheCurveAndKeepsItsLevel)
{
    const Data data(300);
    const Fit fit = rows::fitted(data, rows::options());
    std::vector<double> said(data.rows), error(data.rows), lower(data.rows), upper(data.rows),
        new_lower(data.rows), new_upper(data.rows);
    const auto interval = [&](int kind, std::vector<double>& low, std::vector<double>& high) {
        return vemkn_fit_interval(fit.get(),
                                  data.x.data(),
                                  data.rows,
                                  2,
                                  kind,
                                  0.95,
                                  said.data(),
                                  error.data(),
                                  low.data(),
                                  high.data());
    };
    ASSERT_EQ(VEMKN_FIT_OK, interval(VEMKN_FIT_CONFIDENCE, lower, upper)) << vemkn_fit_message();
    ASSERT_EQ(VEMKN_FIT_OK, interval(VEMKN_FIT_PREDICTION, new_lower, new_upper));
    EXPECT_EQ(rows::predicted(fit.get(), data), said);
    const double core = vemkn_fit_core(fit.get(), 0);
    const double t = (upper[0] - said[0]) / error[0];
    EXPECT_NEAR(1.97, t, 0.02);
    for (std::size_t r = 0; r < data.rows; ++r) {
        EXPECT_NEAR(t * error[r], said[r] - lower[r], 1e-9);
        EXPECT_NEAR(t * std::hypot(error[r], core), new_upper[r] - said[r], 1e-9);
        EXPECT_NEAR(said[r], 0.5 * (new_lower[r] + new_upper[r]), 1e-12);
    }
    EXPECT_GT(vemkn_fit_parameters(fit.get()), 4.0);
    EXPECT_LT(vemkn_fit_parameters(fit.get()), 25.0);
    ASSERT_NE(nullptr, vemkn_fit_covariance(fit.get()));

    Fit other;
    ASSERT_EQ(VEMKN_FIT_OK, rows::read(rows::text_of(fit.get()), other));
    std::vector<double> again(data.rows);
    ASSERT_EQ(VEMKN_FIT_OK,
              vemkn_fit_interval(other.get(),
                                 data.x.data(),
                                 data.rows,
                                 2,
                                 0,
                                 0.95,
                                 nullptr,
                                 again.data(),
                                 nullptr,
                                 nullptr));
    EXPECT_EQ(error, again);
}
