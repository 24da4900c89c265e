// What a fit notes of the scatter that it leaves.
#include <gtest/gtest.h>

#include <cmath>

#include "fit/random.h"
#include "rows.h"

using vemknfit::Random;

namespace {

// The notes of a fit of sin(2x) with this scatter: what it is multiplied by depends on x.
template <class Scatter>
std::string notes_of(std::uint64_t seed, Scatter scatter)
{
    rows::Data data(300, seed, 0.0);
    Random random(seed, 11);
    for (std::size_t r = 0; r < data.rows; ++r)
        data.y[r] = data.truth[r] + rows::NOISE * scatter(random, data.truth[r]);
    const rows::Fit fit = rows::fitted(data, rows::options());
    std::string notes;
    for (std::size_t i = 0; i < vemkn_fit_notes(fit.get()); ++i)
        notes += std::string(vemkn_fit_note(fit.get(), i)) + "\n";
    return notes;
}

}  // namespace

TEST(Notes, SpeakOfScatterThatIsSkewedOrGrows)
{
    const auto gaussian = [](Random& random, double) { return random.normal(); };
    for (const std::uint64_t seed : {1u, 2u, 3u})
        EXPECT_EQ(std::string::npos, notes_of(seed, gaussian).find("the scatter"));

    const auto exponential = [](Random& random, double) { return -std::log(random.uniform()); };
    EXPECT_NE(std::string::npos, notes_of(1, exponential).find("reaches further above"));
    const auto mirrored = [&](Random& random, double truth) { return -exponential(random, truth); };
    EXPECT_NE(std::string::npos, notes_of(1, mirrored).find("reaches further below"));

    const auto growing = [](Random& random, double truth) {
        return random.normal() * std::exp(truth);
    };
    EXPECT_NE(std::string::npos, notes_of(1, growing).find("grows with the fitted value"));
    const auto falling = [&](Random& random, double truth) { return growing(random, -truth); };
    EXPECT_NE(std::string::npos, notes_of(1, falling).find("falls with the fitted value"));
}
