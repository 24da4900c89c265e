#include <gtest/gtest.h>

#include "adjoint/objective.h"
#include "support/capture.h"
#include "support/double_model.h"
#include "support/fp_state.h"

using namespace VEMKN;
using Matrix = MatrixTemplate<double>;

namespace {

// Some hundred roundings of numbers below 10.
constexpr double ROUNDING = 1e-12;

struct Problem {
    plain::Network network;
    std::size_t nrows;
    Numbers w, x, y;

    Problem(plain::Network shape, std::size_t rows, std::uint64_t seed)
        : network(std::move(shape)), nrows(rows)
    {
        Random random(seed);
        w = random.list(network.numel());
        x = random.list(nrows * network.numin);
        y = random.list(nrows * network.numout, -4, 4);
    }

    Matrix X() const { return matrix_of(x, nrows, network.numin); }

    Matrix Y() const { return matrix_of(y, nrows, network.numout); }

    plain::Reals gradient() const { return network.gradient(w, x, y, nrows, network.numin); }

    double objective() const
    {
        return static_cast<double>(network.objective(w, x, y, nrows, network.numin));
    }
};

Problem small(const std::string& activation, const std::string& norm, unsigned nmult = 1)
{
    return Problem({.numin = 3,
                    .numout = 2,
                    .nmult = nmult,
                    .sizes = {3, 4, 3},
                    .activation = activation,
                    .norm = norm},
                   7,
                   50);
}

// A gradient model that holds a value in every entry.
DoubleModel filled_like(const DoubleModel& net, double value)
{
    DoubleModel grad = net;
    setweights(grad, std::valarray<double>(value, numel(net)));
    return grad;
}

struct Swept {
    double value;
    Matrix outAdj;
    Matrix R;
    Numbers gradient;
};

// Whether the sweep has copies of the weights, transposed, as it gets for many slices.
enum class Copies { none, transposed };

TransposedWeights<DoubleModel> copies_for(const DoubleModel& net, Copies copies)
{
    if (copies == Copies::none) return {};
    return TransposedWeights<DoubleModel>(net);
}

Swept sweep(const Problem& problem,
            const DoubleModel& net,
            double seed,
            const Matrix& cotangent,
            Copies copies = Copies::none)
{
    const Matrix X = problem.X(), Y = problem.Y();
    Matrix outAdj = cotangent, R;
    SliceWorkspace<DoubleModel> work;
    work.transposes = copies_for(net, copies);
    DoubleModel grad = filled_like(net, 1e30);
    const double value = adj_computev(net, X, Y, seed, outAdj, R, work, grad);
    return {value, outAdj, R, flat(grad)};
}

Swept sweep(const Problem& problem, double seed, const Matrix& cotangent)
{
    return sweep(problem, model_of(problem.network, problem.w), seed, cotangent);
}

Swept sweep(const Problem& problem, double seed)
{
    return sweep(problem, seed, Matrix(problem.nrows, problem.network.numout));
}

}  // namespace

TEST(AdjComputev, GivesValueResidualsAndGradient)
{
    for (const char* norm : {"sum", "sum_log_dnorm_fat"}) {
        for (const char* activation : {"softplus", "atan", "relu", "id"}) {
            SCOPED_TRACE(std::string(activation) + " " + norm);
            const Problem p = small(activation, norm);
            const Swept s = sweep(p, 1.0);
            EXPECT_NEAR(p.objective(), s.value, ROUNDING);
            expect_close(s.R.store(), p.network.residuals(p.w, p.x, p.y, p.nrows, 3), ROUNDING);
            expect_close(s.gradient, p.gradient(), ROUNDING);
        }
    }
}

TEST(AdjComputev, RunsTheHiddenPassesBackwards)
{
    for (unsigned nmult = 1; nmult <= 4; ++nmult) {
        for (const Copies copies : {Copies::none, Copies::transposed}) {
            SCOPED_TRACE(nmult);
            const Problem p = small("softplus", "sum_log_dnorm_fat", nmult);
            const DoubleModel net = model_of(p.network, p.w);
            const Swept s = sweep(p, net, 1.0, Matrix(p.nrows, 2), copies);
            // The passes amplify; still only roundings.
            expect_close(s.gradient, p.gradient(), 100 * ROUNDING);
        }
    }
}

TEST(AdjComputev, ScalesTheGradientButNotTheValueByItsSeed)
{
    const Problem p = small("atan", "sum_log_dnorm_fat");
    const Swept one = sweep(p, 1.0), scaled = sweep(p, -2.5);
    EXPECT_EQ(bits(one.value), bits(scaled.value));
    plain::Reals truth = p.gradient();
    for (plain::Real& g : truth) g *= -2.5L;
    expect_close(scaled.gradient, truth, ROUNDING);
}

TEST(AdjComputev, SpreadsTheSeedOverTheOutputsUnderTheSumNorm)
{
    const Problem p = small("softplus", "sum");
    const Swept s = sweep(p, 3.0);
    EXPECT_EQ(bits_of(Numbers(14, 3.0 / 14)), bits_of(s.outAdj.store()));
}

TEST(AdjComputev, TakesACotangentOfTheElementsWhereTheSeedIsExactlyZero)
{
    for (const char* norm : {"sum", "sum_log_dnorm_fat"}) {
        for (const double zero : {0.0, -0.0}) {
            SCOPED_TRACE(std::string(norm) + " " + std::to_string(zero));
            const Problem p = small("softplus", norm);
            Random random(51);
            const Numbers cotangent = random.list(14);
            const Swept s = sweep(p, zero, matrix_of(cotangent, 7, 2));
            const plain::Reals u(cotangent.begin(), cotangent.end());
            expect_close(s.gradient, p.network.weighted_gradient(p.w, p.x, p.y, 7, 3, u), ROUNDING);
            EXPECT_NEAR(p.objective(), s.value, ROUNDING);
        }
    }
}

TEST(AdjComputev, KeepsACotangentOfOnesUnderTheSumNorm)
{
    const Problem p = small("softplus", "sum");
    Matrix ones(7, 2);
    ones.store() = 1.0;
    EXPECT_EQ(bits_of(Numbers(14, 1.0)), bits_of(sweep(p, 0.0, ones).outAdj.store()));
}

TEST(AdjComputev, TakesTheTiniestSeedAsASeed)
{
    // The comparison with 0.0 is exact: a cotangent that came in by mistake must not count.
    const Problem p = small("softplus", "sum");
    Matrix huge(7, 2);
    huge.store() = 1e10;
    const Swept s = sweep(p, 1e-300, huge);
    EXPECT_EQ(bits_of(Numbers(14, 1e-300 / 14)), bits_of(s.outAdj.store()));
}

TEST(AdjComputev, OverwritesTheGradient)
{
    const Problem p = small("relu", "sum_log_dnorm_fat", 2);
    const DoubleModel net = model_of(p.network, p.w);
    const Matrix X = p.X(), Y = p.Y();
    SliceWorkspace<DoubleModel> work;
    DoubleModel grad = filled_like(net, 1e30);
    Numbers first;
    for (int call = 0; call < 3; ++call) {
        Matrix outAdj(7, 2), R;
        adj_computev(net, X, Y, 1.0, outAdj, R, work, grad);
        if (call == 0) first = flat(grad);
        EXPECT_EQ(bits_of(first), bits_of(flat(grad)));
    }
}

TEST(AdjComputev, StandsWidthsOfZero)
{
    for (const std::vector<unsigned>& sizes : {std::vector<unsigned>{2, 0}, {2, 0, 3}, {2, 3, 0}}) {
        const Problem p(
            {.numin = 2, .numout = 2, .sizes = sizes, .activation = "softplus", .norm = "sum"},
            3,
            52);
        expect_close(sweep(p, 1.0).gradient, p.gradient(), ROUNDING);
    }
}

TEST(AdjComputev, SumsABiasGradientFromTheLastRowUp)
{
    // id and "sum": the adjoint of an output is the cotangent. Its column sum from the first row down would be 0.
    const Problem p(
        {.numin = 1, .numout = 1, .sizes = {1, 1}, .activation = "id", .norm = "sum"}, 3, 53);
    const Swept s = sweep(p, 0.0, matrix_of({1, 1e16, -1e16}, 3, 1));
    EXPECT_EQ(1.0, s.gradient[2]);
}

TEST(AdjComputev, SaysInvalidDimsAndGoesOn)
{
    const Problem p = small("id", "sum");
    DoubleModel net = model_of(p.network, p.w);
    net.biases[1].resize(5, 50.0);
    Capture err = Capture::error();
    const Swept s = sweep(p, net, 1.0, Matrix(7, 2));
    EXPECT_EQ("invalid dims\n", err.text());

    // What comes out is the network without that bias.
    Problem without = p;
    for (std::size_t i = 0; i < 3; ++i) without.w[p.network.offset(1) + i] = 0;
    EXPECT_NEAR(without.objective(), s.value, ROUNDING);
}

TEST(AdjComputev, PassesAQuietNanWithTrapsArmed)
{
    for (const char* norm : {"sum", "sum_log_dnorm_fat"}) {
        for (const char* activation : {"softplus", "atan", "relu", "id"}) {
            Problem p = small(activation, norm);
            p.y[3] = QUIET_NAN;
            const DoubleModel net = model_of(p.network, p.w);
            double value = 0;
            {
                const TrapsArmed traps;
                value = sweep(p, net, 1.0, Matrix(7, 2)).value;
            }
            EXPECT_TRUE(std::isnan(value)) << activation << " " << norm;
        }
    }
}

TEST(AdjObjv, OverwritesTheGradientWhereOneSliceTakesTheBatch)
{
    const Problem p = small("atan", "sum_log_dnorm_fat");
    for (const int batch : {7, 8, 1000}) {
        const DoubleModel net = model_of(p.network, p.w, batch, 4);
        DoubleModel grad = filled_like(net, 1e30);
        const Matrix X = p.X(), Y = p.Y();
        EXPECT_NEAR(p.objective(), adj_objv(net, X, Y, 1.0, grad), ROUNDING);
        expect_close(flat(grad), p.gradient(), ROUNDING);
    }
}

TEST(AdjObjv, AddsToTheGradientWhereSeveralSlicesDo)
{
    const Problem p = small("atan", "sum_log_dnorm_fat");
    for (const unsigned threads : {1u, 3u}) {
        const DoubleModel net = model_of(p.network, p.w, 2, threads);
        DoubleModel grad = filled_like(net, 0.5);
        const Matrix X = p.X(), Y = p.Y();
        EXPECT_NEAR(p.objective(), adj_objv(net, X, Y, 1.0, grad), ROUNDING);
        plain::Reals truth = p.gradient();
        for (plain::Real& g : truth) g += 0.5L;
        expect_close(flat(grad), truth, ROUNDING);
    }
}

TEST(AdjObjv, GivesOneRowMoreThanASliceTheSameGradient)
{
    const Problem p = small("softplus", "sum_log_dnorm_fat");
    const Matrix X = p.X(), Y = p.Y();
    for (const int batch : {6, 7}) {
        const DoubleModel net = model_of(p.network, p.w, batch, 2);
        DoubleModel grad = filled_like(net, 0.0);
        adj_objv(net, X, Y, 1.0, grad);
        expect_close(flat(grad), p.gradient(), ROUNDING);
    }
}

TEST(AdjObjv, ScalesTheGradientBySeedWithAndWithoutSlices)
{
    const Problem p = small("softplus", "sum_log_dnorm_fat");
    const Matrix X = p.X(), Y = p.Y();
    plain::Reals truth = p.gradient();
    for (plain::Real& g : truth) g *= 3;
    for (const int batch : {1, 3, 7}) {
        const DoubleModel net = model_of(p.network, p.w, batch, 2);
        DoubleModel grad = filled_like(net, 0.0);
        EXPECT_NEAR(p.objective(), adj_objv(net, X, Y, 3.0, grad), ROUNDING);
        expect_close(flat(grad), truth, 3 * ROUNDING);
    }
}

TEST(DoAdd, AddsEveryWeightAndBias)
{
    const Problem p = small("id", "sum");
    DoubleModel a = model_of(p.network, p.w);
    const DoubleModel b = filled_like(a, 0.25);
    do_add(a, b);
    Numbers truth = p.w;
    for (double& w : truth) w += 0.25;
    EXPECT_EQ(bits_of(truth), bits_of(flat(a)));
    EXPECT_EQ(bits_of(Numbers(p.w.size(), 0.25)), bits_of(flat(b)));
}

TEST(DoAdd, StopsAtTheLayersOfTheSummand)
{
    DoubleModel a = model_of("2 1 2 1 8 2 1 id sum");
    DoubleModel b = a;
    setweights(b, std::valarray<double>(1.0, numel(b)));
    b.weights.resize(1);
    b.biases.resize(1);
    do_add(a, b);
    EXPECT_EQ(bits_of(Numbers{1, 1, 1, 0, 0}), bits_of(flat(a)));
}

TEST(Setweights, ReadsBiasesBeforeWeightsLayerByLayer)
{
    DoubleModel net = model_of("2 1 2 1 8 2 3 id sum");
    Numbers w(numel(net));
    for (std::size_t i = 0; i < w.size(); ++i) w[i] = static_cast<double>(i);
    setweights(net, std::valarray<double>(w.data(), w.size()));
    EXPECT_EQ(bits_of(Numbers{0, 1, 2}), bits_of(net.biases[0]));
    EXPECT_EQ(bits_of(Numbers{3, 4, 5, 6, 7, 8}), bits_of(net.weights[0].store()));
    EXPECT_EQ(6.0, net.weights[0](1, 0));
    EXPECT_EQ(bits_of(Numbers{9}), bits_of(net.biases[1]));
    EXPECT_EQ(bits_of(Numbers{10, 11, 12}), bits_of(net.weights[1].store()));
    EXPECT_EQ(bits_of(w), bits_of(flat(net)));
}

TEST(Setweights0, ZeroesEveryParameter)
{
    const Problem p = small("id", "sum");
    DoubleModel net = model_of(p.network, p.w);
    setweights0(net);
    EXPECT_EQ(bits_of(Numbers(p.w.size(), 0.0)), bits_of(flat(net)));
}

TEST(ZerosLike, KeepsTheShapesAndLeavesTheModelAlone)
{
    const Problem p = small("id", "sum");
    const DoubleModel net = model_of(p.network, p.w);
    const DoubleModel zeros = zeros_like(net);
    EXPECT_EQ(bits_of(Numbers(p.w.size(), 0.0)), bits_of(flat(zeros)));
    EXPECT_EQ(bits_of(p.w), bits_of(flat(net)));
}
