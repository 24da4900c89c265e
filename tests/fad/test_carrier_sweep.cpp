#include "adjoint/objective.h"
#include "api/work_model.h"
#include "fad/carriers.h"
#include "jacobian/derivative_calls.h"
#include "network/mknn.h"
#include "support/capture.h"

// The backward sweep over carriers on models made by hand: what the exported functions cannot ask for.

using VEMKN::CarrierWorkModel;
using VEMKN::RowsView;
using yafad::WorkScalar;

namespace {

Problem problem(const char* norm, unsigned nmult = 1)
{
    Random random(1);
    Problem p;
    p.shape = {.numin = 3,
               .numout = 2,
               .nmult = nmult,
               .sizes = {3, 4, 3},
               .activation = "atan",
               .norm = norm};
    p.nrows = 5;
    p.xcols = 3;
    p.fill(random);
    return p;
}

// The problem's weights with one tangent.
CarrierWorkModel carrier_model(const Problem& p, const Numbers& v)
{
    VEMKN::VEMKNInfo info;
    info.model = VEMKN::mknn<VEMKN::DoubleModel>(VEMKN::DescriptionText(p.shape.text()));
    info.derivative_model =
        VEMKN::mknn<VEMKN::CarrierModel>(VEMKN::DescriptionText(p.shape.text()));
    info.functions = VEMKN::function_rows(p.shape.activation, p.shape.norm);
    info.model.batch = 8;
    const yafad::Seeding seeding(false, static_cast<unsigned>(p.nw()), 1);
    return with_tangents(info, seeding, p.w.data(), v.data());
}

MatrixCarrier carrier_of(const yafad::Bundle& b)
{
    MatrixCarrier carrier;
    yafad::unbundle(b, carrier);
    return carrier;
}

// The parameters of a gradient with one tangent in their flat order.
VectorCarrier flat(const CarrierWorkModel& grad)
{
    VectorCarrier all(Vector(numel(grad)), 1);
    for_each_parameter(grad, [&](const yafad::Bundle& part, std::size_t first) {
        std::copy_n(part.value.data(), part.size(), &all.value[first]);
        std::copy_n(part.derivatives.data(), part.size(), &all.derivatives[0][first]);
    });
    return all;
}

RowsView rows_of(const Numbers& numbers, const Problem& p)
{
    return RowsView(numbers.data(), p.nrows, numbers.size() / p.nrows);
}

// The derivative of the gradient of a weighted sum of element norms, with weights that change too:
// d/dt grad(u + t du, w + t v).
plain::Reals plain_second_derivative(const Problem& p,
                                     const Numbers& v,
                                     const Numbers& u,
                                     const Numbers& du)
{
    const auto gradient = [&](long double t) {
        plain::Reals cotangent;
        for (std::size_t e = 0; e < u.size(); ++e) cotangent.push_back(u[e] + t * du[e]);
        std::vector<plain::Complex> at;
        for (std::size_t k = 0; k < p.w.size(); ++k) at.emplace_back(p.w[k] + t * v[k]);
        std::valarray<long double> g(at.size());
        for (std::size_t k = 0; k < at.size(); ++k) {
            const plain::Complex before = at[k];
            at[k] += plain::Complex(0, plain::STEP);
            g[k] = p.shape.weighted(at, p.x, p.y, p.nrows, p.xcols, cotangent).imag() / plain::STEP;
            at[k] = before;
        }
        return g;
    };
    const std::valarray<long double> slope = derivative(gradient, 0.0L, -11);
    return plain::Reals(std::begin(slope), std::end(slope));
}

struct Swept {
    WorkScalar value;
    MatrixCarrier outAdj;
    MatrixCarrier R;
    VectorCarrier gradient;
};

Swept sweep(const Problem& p,
            const CarrierWorkModel& net,
            const WorkScalar& seed,
            const MatrixCarrier& U)
{
    Swept result;
    yafad::Bundle outAdj = yafad::bundle(U), R;
    CarrierWorkModel grad = zeros_like(net);
    // The sweep overwrites whatever is there.
    for_each_parameter(grad, [](yafad::Bundle& part, std::size_t) {
        part.value.store() = 1e300;
        part.derivatives.fill(1e300);
    });
    VEMKN::SliceWorkspace<CarrierWorkModel> work;
    work.transposes = VEMKN::TransposedWeights<CarrierWorkModel>(net);
    result.value = adj_computev(net, rows_of(p.x, p), rows_of(p.y, p), seed, outAdj, R, work, grad);
    result.outAdj = carrier_of(outAdj);
    result.R = carrier_of(R);
    result.gradient = flat(grad);
    return result;
}

// The differences are good to 1e-13 of gradients of the size of ten, the sweeps to some hundred roundings.
constexpr double TOLERANCE = 1e-11;

}  // namespace

TEST(CarrierSweep, WithASeedOfZeroTakesACotangentOfTheElementNorms)
{
    const TangentCounts counts(1);
    for (const char* norm : NORMS) {
        for (const unsigned nmult : {1u, 2u, 3u}) {
            const Problem p = problem(norm, nmult);
            SCOPED_TRACE(described(p));
            Random random(2);
            const Numbers v = random.list(p.nw());
            const Numbers u = random.list(p.elements()), du = random.list(p.elements());
            MatrixCarrier U(Matrix(u.data(), p.nrows, p.ycols()), 1);
            U.derivatives[0] = Matrix(du.data(), p.nrows, p.ycols());

            const Swept swept = sweep(p, carrier_model(p, v), WorkScalar(0.0), U);
            expect_close(swept.gradient.value,
                         p.shape.weighted_gradient(
                             p.w, p.x, p.y, p.nrows, p.xcols, plain::Reals(u.begin(), u.end())),
                         TOLERANCE);
            expect_close(swept.gradient.derivatives[0],
                         plain_second_derivative(p, v, u, du),
                         TOLERANCE,
                         "derivative");
        }
    }
}

TEST(CarrierSweep, GoesByTheValueOfTheSeedAlone)
{
    // A seed of zero with a tangent is a seed of zero.
    const TangentCounts counts(1);
    const Problem p = problem("sum");
    Random random(3);
    const CarrierWorkModel net = carrier_model(p, random.list(p.nw()));
    const MatrixCarrier U = random_matrix_carrier(random, p.nrows, p.ycols(), 1);
    WorkScalar seed(-0.0);
    const Swept plain = sweep(p, net, seed, U);
    seed.derivatives[0] = 5.0;
    expect_same_carrier(sweep(p, net, seed, U).gradient, plain.gradient);
    // Under the plain sum the adjoint of the outputs is the cotangent.
    expect_same_carrier(plain.outAdj, U);
}

TEST(CarrierSweep, WithAnotherSeedTakesTheObjectiveAndItsTangents)
{
    const TangentCounts counts(1);
    for (const char* norm : NORMS) {
        const Problem p = problem(norm);
        Random random(4);
        const Numbers v = random.list(p.nw());
        const CarrierWorkModel net = carrier_model(p, v);
        // What is in the adjoint of the outputs beforehand does not matter then.
        const MatrixCarrier U = random_matrix_carrier(random, p.nrows, p.ycols(), 1);
        WorkScalar seed(-2.5);
        seed.derivatives[0] = 0.75;
        const Swept swept = sweep(p, net, seed, U);

        // d/dt (seed + t seed') grad(w + t v)
        const plain::Reals g = p.shape.gradient(p.w, p.x, p.y, p.nrows, p.xcols);
        const plain::Reals Hv = plain_hessian_product(p, v);
        plain::Reals value, slope;
        for (std::size_t k = 0; k < p.nw(); ++k) {
            value.push_back(-2.5L * g[k]);
            slope.push_back(-2.5L * Hv[k] + 0.75L * g[k]);
        }
        expect_close(swept.gradient.value, value, TOLERANCE);
        expect_close(swept.gradient.derivatives[0], slope, TOLERANCE, "derivative");

        // The value of the objective does not know the seed; its tangent is the gradient along v.
        EXPECT_NEAR(static_cast<double>(p.shape.objective(p.w, p.x, p.y, p.nrows, p.xcols)),
                    swept.value.value,
                    TOLERANCE);
        long double along = 0;
        for (std::size_t k = 0; k < p.nw(); ++k) along += g[k] * v[k];
        EXPECT_NEAR(static_cast<double>(along), swept.value.derivatives[0], TOLERANCE);
    }
}

TEST(CarrierSweep, GivesTheResidualsWithTheirTangents)
{
    const TangentCounts counts(1);
    const Problem p = problem("sum");
    Random random(5);
    const Numbers v = random.list(p.nw());
    const Swept swept = sweep(p, carrier_model(p, v), WorkScalar(1.0), MatrixCarrier(Matrix(), 1));
    expect_close(
        swept.R.value.store(), p.shape.residuals(p.w, p.x, p.y, p.nrows, p.xcols), TOLERANCE);
    const plain::Reals J = plain_jacobian(p);
    plain::Reals Jv(p.elements());
    for (std::size_t e = 0; e < p.elements(); ++e) {
        for (std::size_t k = 0; k < p.nw(); ++k) Jv[e] += J[e * p.nw() + k] * v[k];
    }
    expect_close(swept.R.derivatives[0].store(), Jv, TOLERANCE, "derivative");
}

TEST(CarrierSweep, ScalesTheGradientOfSlicesByItsSeed)
{
    const TangentCounts counts(1);
    const Problem p = problem("sum_log_dnorm_fat");
    Random random(6);
    const Numbers v = random.list(p.nw());
    const plain::Reals g = p.shape.gradient(p.w, p.x, p.y, p.nrows, p.xcols);
    const plain::Reals Hv = plain_hessian_product(p, v);
    for (const int batch : {2, 5}) {
        CarrierWorkModel net = carrier_model(p, v), grad = zeros_like(net);
        net.batch = batch;
        net.threads = 2;
        WorkScalar seed(3.0);
        seed.derivatives[0] = -1.0;
        adj_objv(net, rows_of(p.x, p), rows_of(p.y, p), seed, grad);
        const VectorCarrier gradient = flat(grad);
        plain::Reals value, slope;
        for (std::size_t k = 0; k < p.nw(); ++k) {
            value.push_back(3 * g[k]);
            slope.push_back(3 * Hv[k] - g[k]);
        }
        expect_close(gradient.value, value, TOLERANCE);
        expect_close(gradient.derivatives[0], slope, TOLERANCE, "derivative");
    }
}

TEST(CarrierSweep, SaysInvalidDimsOnceForABiasThatFitsNowhereAndGoesOn)
{
    const TangentCounts counts(1);
    Problem p = problem("sum");
    Random random(7);
    const Numbers v = random.list(p.nw());
    CarrierWorkModel net = carrier_model(p, v);
    // Five biases for a layer of four units: the layer then has none.
    net.biases[0] = yafad::bundle(VectorCarrier(Vector(1.0, 5), 1));
    Capture err = Capture::error();
    VEMKN::computev(net, rows_of(p.x, p));
    EXPECT_EQ("invalid dims\n", err.text());
}

TEST(CarrierSweep, GivesTheOutputsOfManyRowsAsOfEachRow)
{
    const TangentCounts counts(1);
    Problem p = problem("sum");
    p.nrows = 150;
    Random random(8);
    p.x = random.list(p.nrows * p.xcols);
    const CarrierWorkModel net = carrier_model(p, random.list(p.nw()));
    const MatrixCarrier together = carrier_of(VEMKN::computev(net, rows_of(p.x, p)));
    ASSERT_EQ(p.nrows, together.value.rows());
    for (std::size_t row = 0; row < p.nrows; ++row) {
        const MatrixCarrier alone =
            carrier_of(VEMKN::computev(net, RowsView(p.x.data() + row * p.xcols, 1, p.xcols)));
        for (std::size_t c = 0; c < p.shape.numout; ++c) {
            EXPECT_NEAR(alone.value(0, c), together.value(row, c), TOLERANCE) << row;
            EXPECT_NEAR(alone.derivatives[0](0, c), together.derivatives[0](row, c), TOLERANCE)
                << row;
        }
    }
}
