#include <cfenv>

#include "adjoint/forward.h"
#include "fad/carriers.h"
#include "network/mknn.h"

using VEMKN::CarrierModel;

namespace {

// Every kind of entry, and each times 0.0.
const Numbers ANY = {2.0, -3.0, 0.0, -0.0, INF, -INF, QUIET_NAN};
const Numbers ANY_TIMES_ZERO = {0.0, -0.0, 0.0, -0.0, QUIET_NAN, QUIET_NAN, QUIET_NAN};

}  // namespace

TEST(VectorCarrier, OfAVectorHasAsManyTangentsAsAskedFor)
{
    // The process-wide count has no say here.
    const TangentCounts counts(5);
    for (const std::size_t n : TANGENTS) {
        SCOPED_TRACE(n);
        const VectorCarrier x(vector_of(ANY), n);
        expect_same(x.value, ANY, "value");
        ASSERT_EQ(n, x.tangents());
        for (const Vector& derivative : x.derivatives) {
            expect_same(derivative, ANY_TIMES_ZERO, "derivative");
        }
    }
}

TEST(VectorCarrier, OfANumberTakesTheLengthAndHasTheProcessWideNumberOfTangents)
{
    for (const std::size_t n : TANGENTS) {
        // Only the count for vectors and matrices matters.
        const TangentCounts counts(n, 7);
        const VectorCarrier x(-2.5, 4);
        expect_same(x.value, Numbers(4, -2.5), "value");
        ASSERT_EQ(n, x.tangents());
        for (const Vector& derivative : x.derivatives) {
            expect_same(derivative, Numbers(4, -0.0), "derivative");
        }
    }
}

TEST(VectorCarrier, OfANonFiniteNumberHasNanTangents)
{
    const TangentCounts counts(2);
    for (const double number : {INF, -INF, QUIET_NAN}) {
        const VectorCarrier x(number, 3);
        expect_same(x.value, Numbers(3, number), "value");
        for (const Vector& derivative : x.derivatives) {
            expect_same(derivative, Numbers(3, QUIET_NAN), "derivative");
        }
    }
}

TEST(VectorCarrier, WithoutTangentsDoesNotMultiplyByZero)
{
    // inf * 0.0 would be an invalid operation, for nothing; with traps armed it would end the process.
    std::feclearexcept(FE_ALL_EXCEPT);
    const TangentCounts counts(0);
    EXPECT_EQ(0u, VectorCarrier(vector_of({INF, -INF}), 0).tangents());
    EXPECT_EQ(0u, VectorCarrier(INF, 2).tangents());
    EXPECT_EQ(0u, MatrixCarrier(Matrix(ANY.data(), 7, 1)).tangents());
    EXPECT_EQ(0, std::fetestexcept(FE_INVALID));
}

TEST(VectorCarrier, MayBeEmpty)
{
    const TangentCounts counts(3);
    EXPECT_EQ(0u, VectorCarrier(1.0, 0).size());
    EXPECT_EQ(3u, VectorCarrier(1.0, 0).tangents());
    EXPECT_EQ(0u, VectorCarrier(Vector(), 2).size());
    EXPECT_EQ(2u, VectorCarrier(Vector(), 2).tangents());
    EXPECT_EQ(0u, VectorCarrier().size());
    EXPECT_EQ(0u, VectorCarrier().tangents());
}

TEST(VectorCarrier, AfterTheCreationOfANetworkHasOneTangent)
{
    const TangentCounts counts(6);
    releaseVEMKNet(initVEMKNet("1 1 2 1 8 1 1 id sum", 20));
    EXPECT_EQ(1u, VectorCarrier(1.0, 2).tangents());
}

TEST(VectorCarrier, IsCopiedWithEverythingItHolds)
{
    Random random(1);
    const VectorCarrier original = vector_carrier(random, {1, 2, 3}, 2);
    VectorCarrier copy = original;
    expect_same_carrier(copy, original);
    const VectorCarrier kept = original;
    copy.value[0] = 9;
    copy.derivatives[1][2] = 9;
    expect_same_carrier(original, kept);
}

TEST(VectorCarrier, SelectsTheEntriesOfAMaskAndOfItsNegation)
{
    const VectorCarrier x = vector_carrier({1, 2, 3, 4}, {{10, 20, 30, 40}, {-1, -2, -3, -4}});
    const std::valarray<bool> mask = {true, false, false, true};
    expect_same_carrier(x[mask], vector_carrier({1, 4}, {{10, 40}, {-1, -4}}));
    expect_same_carrier(x[!mask], vector_carrier({2, 3}, {{20, 30}, {-2, -3}}));
}

TEST(VectorCarrier, SelectsAllOrNothing)
{
    for (const std::size_t n : TANGENTS) {
        Random random(2);
        const VectorCarrier x = vector_carrier(random, {1, 2, 3}, n);
        expect_same_carrier(x[std::valarray<bool>(true, 3)], x);
        const VectorCarrier none = x[std::valarray<bool>(false, 3)];
        EXPECT_EQ(0u, none.size());
        ASSERT_EQ(n, none.tangents());
        for (const Vector& derivative : none.derivatives) EXPECT_EQ(0u, derivative.size());
    }
}

TEST(VectorCarrier, SelectsFromAnEmptyOne)
{
    const VectorCarrier empty(Vector(), 3);
    expect_same_carrier(empty[std::valarray<bool>()], empty);
    expect_same_carrier(empty[!std::valarray<bool>()], empty);
}

TEST(VectorCarrier, SelectsNonFiniteEntriesToTheBit)
{
    const VectorCarrier x = vector_carrier(ANY, {ANY});
    expect_same_carrier(x[std::valarray<bool>(true, ANY.size())], x);
}

TEST(VectorCarrier, ScattersInAscendingOrderAndLeavesTheRest)
{
    VectorCarrier x = vector_carrier({1, 2, 3, 4}, {{10, 20, 30, 40}, {-1, -2, -3, -4}});
    const std::valarray<bool> mask = {false, true, false, true};
    x.scatter(mask, vector_carrier({7, 8}, {{70, 80}, {-7, -8}}));
    expect_same_carrier(x, vector_carrier({1, 7, 3, 8}, {{10, 70, 30, 80}, {-1, -7, -3, -8}}));
}

TEST(VectorCarrier, ScatterUndoesSelection)
{
    for (const std::size_t n : TANGENTS) {
        Random random(3);
        const VectorCarrier x = vector_carrier(random, random.list(9), n);
        std::valarray<bool> mask(9);
        for (std::size_t i = 0; i < 9; ++i) mask[i] = random.below(2) == 0;
        VectorCarrier y(Vector(9), n);
        y.scatter(mask, x[mask]);
        y.scatter(!mask, x[!mask]);
        expect_same_carrier(y, x);
    }
}

TEST(MatrixCarrier, OfAMatrixHasTheProcessWideNumberOfTangentsOfItsShape)
{
    for (const std::size_t n : TANGENTS) {
        const TangentCounts counts(n, 7);
        const MatrixCarrier A(Matrix(ANY.data(), 7, 1));
        ASSERT_EQ(n, A.tangents());
        expect_shape(A, 7, 1);
        expect_same(A.value.store(), ANY, "value");
        for (const Matrix& derivative : A.derivatives) {
            expect_same(derivative.store(), ANY_TIMES_ZERO, "derivative");
        }
    }
}

TEST(MatrixCarrier, MayHaveNoElements)
{
    const TangentCounts counts(2);
    const MatrixCarrier A(Matrix(0, 3)), B(Matrix(4, 0));
    EXPECT_EQ(2u, A.tangents());
    expect_shape(A, 0, 3);
    expect_shape(B, 4, 0);
}

TEST(AsMatrix, ReshapesTheValueAndEveryDerivativeRowByRow)
{
    const VectorCarrier v = vector_carrier({1, 2, 3, 4, 5, 6}, {{10, 20, 30, 40, 50, 60}});
    const MatrixCarrier A = yafad::asMatrix(v, 2, 3);
    expect_shape(A, 2, 3);
    EXPECT_EQ(3.0, A.value(0, 2));
    EXPECT_EQ(4.0, A.value(1, 0));
    EXPECT_EQ(30.0, A.derivatives[0](0, 2));
    EXPECT_EQ(40.0, A.derivatives[0](1, 0));
}

TEST(AsMatrix, IsUndoneByAsVector)
{
    for (const std::size_t n : TANGENTS) {
        Random random(4);
        const VectorCarrier v = vector_carrier(random, random.list(12), n);
        for (const std::size_t rows : {1u, 2u, 3u, 4u, 6u, 12u}) {
            const MatrixCarrier A = yafad::asMatrix(v, rows, 12 / rows);
            expect_shape(A, rows, 12 / rows);
            expect_same_carrier(yafad::asVector(A), v);
        }
    }
}

TEST(AsMatrix, KeepsNonFiniteEntries)
{
    const VectorCarrier v = vector_carrier(ANY, {ANY, ANY_TIMES_ZERO});
    expect_same_carrier(yafad::asVector(yafad::asMatrix(v, 1, ANY.size())), v);
}

TEST(AsMatrix, OfNothingKeepsTheShape)
{
    const MatrixCarrier A = yafad::asMatrix(VectorCarrier(Vector(), 3), 0, 5);
    ASSERT_EQ(3u, A.tangents());
    expect_shape(A, 0, 5);
    EXPECT_EQ(0u, yafad::asVector(A).size());
    EXPECT_EQ(3u, yafad::asVector(A).tangents());
}

TEST(Colsum, SumsTheColumnsOfTheValueAndOfEveryDerivative)
{
    for (const std::size_t n : TANGENTS) {
        Random random(5);
        const MatrixCarrier A = random_matrix_carrier(random, 6, 4, n);
        const VectorCarrier s = yafad::colsum(A);
        ASSERT_EQ(n, s.tangents());
        const auto check = [](const Matrix& m, const Vector& sums) {
            ASSERT_EQ(m.cols(), sums.size());
            for (std::size_t c = 0; c < m.cols(); ++c) {
                double truth = m(m.rows() - 1, c);
                for (std::size_t r = m.rows() - 1; r-- > 0;) truth += m(r, c);
                EXPECT_EQ(bits(truth), bits(sums[c])) << "column " << c;
            }
        };
        check(A.value, s.value);
        for (std::size_t k = 0; k < n; ++k) check(A.derivatives[k], s.derivatives[k]);
    }
}

TEST(Colsum, GoesFromTheLastRowToTheFirst)
{
    // From the bottom the two large numbers cancel first; from the top the 1 would be lost in them.
    MatrixCarrier A(Matrix(3, 1), 1);
    A.value.store() = {1.0, 1e16, -1e16};
    A.derivatives[0].store() = {-1.0, -1e16, 1e16};
    expect_same_carrier(yafad::colsum(A), vector_carrier({1}, {{-1}}));
}

TEST(Colsum, OfNoRowsIsZero)
{
    const VectorCarrier s = yafad::colsum(MatrixCarrier(Matrix(0, 2), 3));
    expect_same_carrier(s, vector_carrier({0, 0}, {{0, 0}, {0, 0}, {0, 0}}));
    EXPECT_EQ(0u, yafad::colsum(MatrixCarrier(Matrix(3, 0), 1)).size());
}

TEST(Colsum, LetsNonFiniteEntriesThrough)
{
    MatrixCarrier A(Matrix(2, 3), 1);
    A.value.store() = {INF, QUIET_NAN, -0.0, 1, 1, -0.0};
    A.derivatives[0].store() = {INF, -INF, -0.0, -INF, 2, 0.0};
    expect_same_carrier(yafad::colsum(A),
                        vector_carrier({INF, QUIET_NAN, -0.0}, {{QUIET_NAN, -INF, 0.0}}));
}

TEST(Sum, AddsTheElementsOfTheValueAndOfEveryDerivative)
{
    for (const std::size_t n : TANGENTS) {
        const TangentCounts counts(n);
        Random random(6);
        const VectorCarrier v = vector_carrier(random, random.list(9), n);
        const Scalar s = yafad::sum(v);
        const auto in_order = [](const Vector& part) {
            double total = part[0];
            for (std::size_t i = 1; i < part.size(); ++i) total += part[i];
            return total;
        };
        EXPECT_EQ(n, s.N);
        EXPECT_EQ(bits(in_order(v.value)), bits(s.value));
        ASSERT_EQ(n, s.derivatives.size());
        for (std::size_t k = 0; k < n; ++k) {
            EXPECT_EQ(bits(in_order(v.derivatives[k])), bits(s.derivatives[k]));
        }
    }
}

TEST(Sum, GoesFromTheFirstElementToTheLast)
{
    const TangentCounts counts(1);
    const Scalar s = yafad::sum(vector_carrier({1e16, -1e16, 1}, {{-1e16, 1e16, -1}}));
    EXPECT_EQ(1.0, s.value);
    EXPECT_EQ(-1.0, s.derivatives[0]);
}

TEST(Sum, OfNothingIsZero)
{
    const TangentCounts counts(2);
    const Scalar s = yafad::sum(VectorCarrier(Vector(), 2));
    EXPECT_EQ(bits(0.0), bits(s.value));
    expect_same(s.derivatives, Numbers{0.0, 0.0}, "derivative");
}

namespace {

// 3-2-2 with all kinds of entries; nw = 2 + 6 + 2 + 4.
constexpr std::size_t NW = 14;

CarrierModel carrier_model(std::size_t tangents)
{
    const TangentCounts counts(tangents);
    return VEMKN::mknn<CarrierModel>(VEMKN::DescriptionText("3 2 2 1 8 3 2 atan sum"));
}

Numbers counting(double first)
{
    Numbers numbers(NW);
    for (std::size_t i = 0; i < NW; ++i) numbers[i] = first + static_cast<double>(i);
    return numbers;
}

}  // namespace

TEST(Mknn, StartsACarrierModelAtZeroWithTheProcessWideNumberOfTangents)
{
    for (const std::size_t n : TANGENTS) {
        const CarrierModel net = carrier_model(n);
        ASSERT_EQ(2u, net.weights.size());
        ASSERT_EQ(2u, net.biases.size());
        expect_shape(net.weights[0], 3, 2);
        expect_shape(net.weights[1], 2, 2);
        for (std::size_t i = 0; i < 2; ++i) {
            EXPECT_EQ(n, net.weights[i].tangents());
            EXPECT_EQ(n, net.biases[i].tangents());
        }
        const TangentCounts counts(n);
        expect_same_carrier(getweights(net), VectorCarrier(Vector(NW), n));
    }
}

TEST(SetWeights, FillsTheLayersOfACarrierModelInFlatOrder)
{
    CarrierModel net = carrier_model(2);
    setweights(net, vector_carrier(counting(100), {counting(200), counting(300)}));
    const auto check = [](const auto& part, const Numbers& value) {
        ASSERT_EQ(2u, part.tangents());
        for (std::size_t i = 0; i < value.size(); ++i) {
            EXPECT_EQ(value[i], store_of(part.value)[i]);
            EXPECT_EQ(value[i] + 100, store_of(part.derivatives[0])[i]);
            EXPECT_EQ(value[i] + 200, store_of(part.derivatives[1])[i]);
        }
    };
    check(net.biases[0], {100, 101});
    check(net.weights[0], {102, 103, 104, 105, 106, 107});
    check(net.biases[1], {108, 109});
    check(net.weights[1], {110, 111, 112, 113});
}

TEST(SetWeights, GivesEveryLayerTheNumberOfTangentsOfTheVector)
{
    for (const std::size_t before : TANGENTS) {
        for (const std::size_t after : TANGENTS) {
            CarrierModel net = carrier_model(before);
            Random random(7);
            const VectorCarrier w = vector_carrier(random, random.list(NW), after);
            setweights(net, w);
            expect_shape(net.weights[0], 3, 2);
            const TangentCounts counts(after);
            expect_same_carrier(getweights(net), w);
        }
    }
}

TEST(GetWeights, KeepsNonFiniteEntriesOfACarrierModel)
{
    CarrierModel net = carrier_model(1);
    Numbers w(NW), tangent(NW);
    for (std::size_t i = 0; i < NW; ++i) {
        w[i] = ANY[i % ANY.size()];
        tangent[i] = ANY[(i + 3) % ANY.size()];
    }
    const TangentCounts counts(1);
    setweights(net, vector_carrier(w, {tangent}));
    expect_same_carrier(getweights(net), vector_carrier(w, {tangent}));
}

TEST(DoAdd, AddsValuesAndDerivativesOfCarrierModels)
{
    for (const std::size_t n : TANGENTS) {
        const TangentCounts counts(n);
        CarrierModel a = carrier_model(n), b = carrier_model(n);
        Random random(8);
        const VectorCarrier wa = vector_carrier(random, random.list(NW), n);
        const VectorCarrier wb = vector_carrier(random, random.list(NW), n);
        setweights(a, wa);
        setweights(b, wb);
        do_add(a, b);
        VectorCarrier truth = wa;
        truth.value += wb.value;
        for (std::size_t k = 0; k < n; ++k) truth.derivatives[k] += wb.derivatives[k];
        expect_same_carrier(getweights(a), truth);
        expect_same_carrier(getweights(b), wb);
    }
}

TEST(SetWeights0, LeavesPlainZerosWhateverTheModelHeld)
{
    for (const std::size_t n : TANGENTS) {
        const TangentCounts counts(n);
        CarrierModel net = carrier_model(n);
        VectorCarrier w(Vector(QUIET_NAN, NW), n);
        for (Vector& derivative : w.derivatives) derivative = -INF;
        setweights(net, w);
        setweights0(net);
        // +0.0 each, not a product with zero, which would be NaN here.
        const VectorCarrier zeros = getweights(net);
        EXPECT_EQ(bits_of(Numbers(NW, 0.0)), bits_of(zeros.value));
        ASSERT_EQ(n, zeros.tangents());
        for (const Vector& derivative : zeros.derivatives) {
            EXPECT_EQ(bits_of(Numbers(NW, 0.0)), bits_of(derivative));
        }
        expect_shape(net.weights[0], 3, 2);
    }
}
