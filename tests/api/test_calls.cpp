#include <gtest/gtest.h>

#include "support/calls.h"
#include "support/capture.h"

namespace {

// A few hundred roundings of numbers below 10.
constexpr double ROUNDING = 1e-12;

plain::Network small()
{
    return {.numin = 3,
            .numout = 2,
            .sizes = {3, 4},
            .activation = "softplus",
            .norm = "sum_log_dnorm_fat"};
}

class EveryCall : public testing::TestWithParam<Entry> {
protected:
    const Entry& entry() const { return GetParam(); }

    // The entry point's results are those of the plain loops over the batch `as`.
    void expect_truth(VEMKNInfo* net,
                      const plain::Network& network,
                      const Call& call,
                      const Batch& as) const
    {
        Heard heard;
        Numbers computed;
        heard = listen([&] { computed = results_of(entry(), net, call); });
        EXPECT_EQ("", heard.err);
        expect_close(computed, truth_of(entry(), network, as), ROUNDING);
    }
};

}  // namespace

TEST_P(EveryCall, MatchesThePlainLoops)
{
    const plain::Network network = small();
    const Network net(network.text());
    for (const unsigned nrows : {1u, 2u, 31u, 32u, 33u, 70u}) {
        const Batch batch = random_batch(network, nrows, 3, nrows);
        SCOPED_TRACE(nrows);
        expect_truth(net, network, batch.call(), batch);
    }
}

TEST_P(EveryCall, TakesFewerInputColumnsThanTheNetwork)
{
    const plain::Network network = small();
    const Network net(network.text());
    for (const unsigned xcols : {0u, 1u, 2u}) {
        const Batch batch = random_batch(network, 40, xcols, xcols);
        SCOPED_TRACE(xcols);
        expect_truth(net, network, batch.call(), batch);
    }
}

TEST_P(EveryCall, TakesAnInputWidthThatIsNotTheFirstSize)
{
    for (const unsigned numin : {2u, 3u, 7u, 4294967295u}) {
        plain::Network network = small();
        network.numin = numin;
        const Network net(network.text());
        const unsigned xcols = std::min(numin, 3u);
        const Batch batch = random_batch(network, 40, xcols, numin);
        SCOPED_TRACE(numin);
        expect_truth(net, network, batch.call(), batch);
    }
}

TEST_P(EveryCall, TakesWidthsOfZero)
{
    for (const std::vector<unsigned>& sizes :
         {std::vector<unsigned>{3, 0}, {3, 0, 2}, {3, 2, 0}, {0, 2}, {0, 0}}) {
        plain::Network network = small();
        network.sizes = sizes;
        const Network net(network.text());
        const unsigned xcols = sizes[0];
        for (const unsigned nrows : {1u, 40u}) {
            const Batch batch = random_batch(network, nrows, xcols, 3);
            SCOPED_TRACE(testing::Message() << network.text() << ", rows " << nrows);
            expect_truth(net, network, batch.call(), batch);
        }
    }
}

TEST_P(EveryCall, UsesTheHandlesOwnWeightsForANullVector)
{
    const plain::Network network = small();
    const Network net(network.text());
    Batch batch = random_batch(network, 40, 3, 4);
    Call call = batch.call();
    call.w = nullptr;

    Batch zeros = batch;
    zeros.w.assign(batch.w.size(), 0.0);
    expect_truth(net, network, call, zeros);
    ASSERT_EQ(0, vemk_setweights(net, batch.w.data(), call.nw));
    expect_truth(net, network, call, batch);
}

TEST_P(EveryCall, TakesNullInputsAndTargetsForZeros)
{
    const plain::Network network = small();
    const Network net(network.text());
    const Batch batch = random_batch(network, 40, 3, 5);
    Batch no_inputs = batch, no_targets = batch, nothing = batch;
    no_inputs.x.assign(batch.x.size(), 0.0);
    no_targets.y.assign(batch.y.size(), 0.0);
    nothing.x = no_inputs.x;
    nothing.y = no_targets.y;

    Call call = batch.call();
    call.x = nullptr;
    expect_truth(net, network, call, no_inputs);
    call.y = nullptr;
    expect_truth(net, network, call, nothing);
    call.x = batch.x.data();
    expect_truth(net, network, call, no_targets);
}

TEST_P(EveryCall, SkipsNullOutputs)
{
    const plain::Network network = small();
    const Network net(network.text());
    const Batch batch = random_batch(network, 40, 3, 6);
    EXPECT_EQ(0, entry().run(net, batch.call()));
}

TEST_P(EveryCall, WritesItsResultsAndNothingBeyond)
{
    const plain::Network network = small();
    const Network net(network.text());
    const Batch batch = random_batch(network, 40, 3, 7);
    const Numbers expected = results_of(entry(), net, batch);
    Call call = batch.call();
    const std::size_t size = entry().array_size(call, 2);
    Numbers value(3, -5.0), array(size + 20, -5.0);
    call.value = value.data() + 1;
    call.array = array.data() + 10;
    ASSERT_EQ(0, entry().run(net, call));
    for (std::size_t i = 0; i < 10; ++i) {
        EXPECT_EQ(-5.0, array[i]);
        EXPECT_EQ(-5.0, array[size + 10 + i]);
    }
    EXPECT_EQ(-5.0, value[0]);
    EXPECT_EQ(-5.0, value[2]);
    EXPECT_EQ(std::string("vemk_g") == entry().name, value[1] == expected[0]);
}

TEST_P(EveryCall, MayWriteOverItsInputs)
{
    const plain::Network network = small();
    const Network net(network.text());
    const Batch batch = random_batch(network, 40, 3, 8);
    const Numbers expected = results_of(entry(), net, batch);
    const bool is_g = std::string("vemk_g") == entry().name;
    // Room for the results in each of the inputs in turn.
    for (int which = 0; which < 3; ++which) {
        Batch own = batch;
        Numbers& target = which == 0 ? own.w : which == 1 ? own.x : own.y;
        const std::size_t inputs = target.size(), outputs = expected.size();
        target.resize(std::max(inputs, outputs));
        double value = 0;
        Call call = own.call();
        call.nw = static_cast<unsigned>(batch.w.size());
        call.value = &value;
        call.array = target.data();
        ASSERT_EQ(0, entry().run(net, call));
        Numbers computed = target;
        if (is_g) computed.insert(computed.begin(), value);
        computed.resize(outputs);
        EXPECT_EQ(bits_of(expected), bits_of(computed)) << which;
    }
}

TEST_P(EveryCall, LeavesItsInputsAndTheHandleAlone)
{
    const plain::Network network = small();
    const Network net(network.text());
    const Batch batch = random_batch(network, 40, 3, 9), before = batch;
    Random random(10);
    const Numbers own = random.list(batch.w.size());
    ASSERT_EQ(0, vemk_setweights(net, own.data(), static_cast<unsigned>(own.size())));

    results_of(entry(), net, batch);
    EXPECT_EQ(bits_of(before.w), bits_of(batch.w));
    EXPECT_EQ(bits_of(before.x), bits_of(batch.x));
    EXPECT_EQ(bits_of(before.y), bits_of(batch.y));
    Numbers back(own.size());
    ASSERT_EQ(0, vemk_getweights(net, back.data(), static_cast<unsigned>(back.size())));
    EXPECT_EQ(bits_of(own), bits_of(back));

    // A later call still finds the old weights.
    Batch with_own = batch;
    with_own.w = own;
    Call call = batch.call();
    call.w = nullptr;
    expect_truth(net, network, call, with_own);
}

TEST_P(EveryCall, DoesNotLookAtTheStorageOrderSwitch)
{
    const plain::Network network = small();
    const Network net(network.text());
    const Batch batch = random_batch(network, 40, 3, 11);
    const Numbers expected = results_of(entry(), net, batch);
    vemk_major(net, 1);
    const Numbers switched = results_of(entry(), net, batch);
    vemk_major(net, 0);
    EXPECT_EQ(bits_of(expected), bits_of(switched));
}

TEST_P(EveryCall, GivesTheSameBitsOnTwoHandles)
{
    const plain::Network network = small();
    const Network one(network.text()), other(network.text());
    const Batch batch = random_batch(network, 40, 3, 12);
    EXPECT_EQ(bits_of(results_of(entry(), one, batch)), bits_of(results_of(entry(), other, batch)));
}

TEST_P(EveryCall, CutsSlicesWithoutChangingMoreThanRoundings)
{
    const plain::Network network = small();
    const Network net(network.text());
    const Batch batch = random_batch(network, 33, 3, 13);
    for (const unsigned threads : {1u, 2u, 5u}) {
        for (const int rows : {1, 2, 16, 31, 32, 33, 34, 1000}) {
            ASSERT_EQ(0, vemk_setpar(net, threads, rows));
            SCOPED_TRACE(testing::Message() << "batch " << rows << ", threads " << threads);
            expect_truth(net, network, batch.call(), batch);
        }
    }
}

TEST_P(EveryCall, PassesAQuietNanInTheData)
{
    for (const char* activation : {"softplus", "softplus_shifted", "atan", "relu", "id"}) {
        for (const char* norm : {"sum", "sum_log_dnorm_fat"}) {
            plain::Network network = small();
            network.activation = activation;
            network.norm = norm;
            const Network net(network.text());
            ASSERT_EQ(0, vemk_setpar(net, 3, 4));
            // Positive weights, so that relu cuts nothing off.
            Batch batch = random_batch(network, 33, 3, 14);
            for (double& w : batch.w) w = std::abs(w) + 0.1;
            for (double& x : batch.x) x = std::abs(x);
            batch.x[17 * 3 + 1] = QUIET_NAN;
            SCOPED_TRACE(std::string(activation) + " " + norm);
            const Numbers computed = results_of(entry(), net, batch);
            if (entry().array_size(batch.call(), 2) == 66) {
                for (std::size_t i = 0; i < 66; ++i) {
                    EXPECT_EQ(i / 2 == 17, std::isnan(computed[i])) << i;
                }
            } else {
                EXPECT_TRUE(std::isnan(computed[0]));
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Entries, EveryCall, testing::ValuesIn(ENTRIES), name_of);

namespace {

class NullWeightsOfAnyLength : public testing::TestWithParam<Entry> {};

class EmptyBatch : public testing::TestWithParam<Entry> {};

}  // namespace

TEST_P(NullWeightsOfAnyLength, PassWhereNothingOfThatLengthIsWritten)
{
    const Network net(small().text());
    Call call = random_batch(small(), 5, 3, 15).call();
    call.w = call.x = call.y = nullptr;
    Numbers array(10);
    call.array = array.data();
    for (const unsigned nw : {0u, 1u, 25u, 4294967295u}) {
        call.nw = nw;
        EXPECT_EQ(0, GetParam().run(net, call)) << nw;
    }
}

INSTANTIATE_TEST_SUITE_P(Entries,
                         NullWeightsOfAnyLength,
                         testing::ValuesIn(entries_where([](const Entry& e) {
                             return !e.needs_nw_with_null_w;
                         })),
                         name_of);

TEST_P(EmptyBatch, WritesNothing)
{
    const Network net(small().text());
    const Batch batch = random_batch(small(), 0, 3, 16);
    double untouched = -5;
    Call call = batch.call();
    call.array = &untouched;
    EXPECT_EQ(0, GetParam().run(net, call));
    EXPECT_EQ(-5.0, untouched);
}

INSTANTIATE_TEST_SUITE_P(Entries,
                         EmptyBatch,
                         testing::ValuesIn(entries_where([](const Entry& e) {
                             return e.takes_empty;
                         })),
                         name_of);

TEST(Compute, DoesNotLookAtItsSeventhArgument)
{
    const plain::Network network = small();
    const Network net(network.text());
    const Batch b = random_batch(network, 5, 3, 17);
    const auto nw = static_cast<unsigned>(b.w.size());
    Numbers first(10), second(10);
    ASSERT_EQ(0, vemk_compute(net, b.w.data(), nw, b.x.data(), 5, 3, 0, first.data()));
    ASSERT_EQ(0, vemk_compute(net, b.w.data(), nw, b.x.data(), 5, 3, UINT64_MAX, second.data()));
    EXPECT_EQ(bits_of(first), bits_of(second));
}

TEST(Compute, AndResidualNeedNoNorm)
{
    plain::Network network = small();
    network.norm = "l2";
    const Heard heard = listen([&] {
        const Network net(network.text());
        const Batch batch = random_batch(network, 40, 3, 18);
        for (const char* name : {"vemk_compute", "vemk_residual"}) {
            const Entry& entry = entry_named(name);
            expect_close(results_of(entry, net, batch), truth_of(entry, network, batch), ROUNDING);
        }
    });
    EXPECT_EQ("", heard.err);
}

TEST(Objv, IsTheResidualUnderTheSumNorm)
{
    plain::Network network = small();
    network.norm = "sum";
    const Network net(network.text());
    const Batch batch = random_batch(network, 5, 3, 19);
    EXPECT_EQ(bits_of(results_of(entry_named("vemk_residual"), net, batch)),
              bits_of(results_of(entry_named("vemk_objv"), net, batch)));
}

TEST(Obj, IsTheMeanOfTheElementNorms)
{
    const plain::Network network = small();
    const Network net(network.text());
    const Batch batch = random_batch(network, 40, 3, 20);
    double sum = 0;
    for (const double v : results_of(entry_named("vemk_objv"), net, batch)) sum += v;
    EXPECT_NEAR(sum / 80, results_of(entry_named("vemk_obj"), net, batch)[0], ROUNDING);
}

TEST(G, GivesTheValueOfObjToTheBit)
{
    const plain::Network network = small();
    const Network net(network.text());
    const Batch batch = random_batch(network, 40, 3, 21);
    for (const unsigned threads : {1u, 3u}) {
        ASSERT_EQ(0, vemk_setpar(net, threads, 4));
        EXPECT_EQ(bits(results_of(entry_named("vemk_obj"), net, batch)[0]),
                  bits(results_of(entry_named("vemk_g"), net, batch)[0]));
    }
}

TEST(G, WritesTheOutputThatIsWantedOnly)
{
    const plain::Network network = small();
    const Network net(network.text());
    const Batch batch = random_batch(network, 40, 3, 22);
    const Numbers all = results_of(entry_named("vemk_g"), net, batch);
    double value = 0;
    Numbers gradient(batch.w.size());
    Call call = batch.call();
    call.value = &value;
    ASSERT_EQ(0, entry_points::g.call(net, call));
    EXPECT_EQ(bits(all[0]), bits(value));
    call.value = nullptr;
    call.array = gradient.data();
    ASSERT_EQ(0, entry_points::g.call(net, call));
    EXPECT_EQ(bits_of(Numbers(all.begin() + 1, all.end())), bits_of(gradient));
}

TEST(G, GivesEachOutputBiasItsShareUnderSumAndId)
{
    // Output adjoint 1/(n*nout) in every element, n of which meet in each bias: 1/nout whatever the data.
    plain::Network network = small();
    network.norm = "sum";
    network.activation = "id";
    network.numout = 4;
    const Network net(network.text());
    for (const unsigned nrows : {1u, 32u, 70u}) {
        const Batch batch = random_batch(network, nrows, 3, 23);
        const Numbers all = results_of(entry_named("vemk_g"), net, batch);
        for (std::size_t i = 0; i < 4; ++i) {
            // A sum of 70 roundings at most.
            EXPECT_NEAR(0.25, all[1 + network.offset(1) + i], 70 * EPS);
        }
    }
}

TEST(G, OverwritesTheGradient)
{
    const plain::Network network = small();
    const Network net(network.text());
    const Batch batch = random_batch(network, 40, 3, 24);
    double value = QUIET_NAN;
    Numbers gradient(batch.w.size(), QUIET_NAN);
    Call call = batch.call();
    call.value = &value;
    call.array = gradient.data();
    Numbers first;
    for (int repetition = 0; repetition < 3; ++repetition) {
        ASSERT_EQ(0, entry_points::g.call(net, call));
        if (repetition == 0) first = gradient;
        EXPECT_EQ(bits_of(first), bits_of(gradient));
        EXPECT_FALSE(std::isnan(value));
    }
}

TEST(Norm, IsTheMeanOfTheSummingNorm)
{
    const double r[] = {1, 2, 3, 6};
    double result = 0;
    EXPECT_EQ(0, vemk_norm(Network("3 2 2 1 8 3 4 id sum"), r, 2, 2, &result));
    EXPECT_EQ(3.0, result);
    const Network likelihood("3 2 2 1 8 3 4 id sum_log_dnorm_fat");
    const double s[] = {1, -1, 0, 3};
    EXPECT_EQ(0, vemk_norm(likelihood, s, 1, 4, &result));
    const long double tail = plain::element_norm("sum_log_dnorm_fat", 3.0L);
    EXPECT_NEAR(static_cast<double>((9 + tail) / 4), result, 64 * EPS);
}

TEST(Norm, TakesTheMeanWhateverTheShape)
{
    const Network net("3 2 2 1 8 3 4 id sum");
    Random random(25);
    const Numbers r = random.list(12);
    double first = 0;
    ASSERT_EQ(0, vemk_norm(net, r.data(), 12, 1, &first));
    for (const auto& [a, b] : {std::pair(1u, 12u), std::pair(3u, 4u), std::pair(6u, 2u)}) {
        double result = 0;
        EXPECT_EQ(0, vemk_norm(net, r.data(), a, b, &result));
        EXPECT_EQ(bits(first), bits(result));
    }
}

TEST(Norm, OfNoElementsIsZero)
{
    for (const char* norm : {"sum", "sum_log_dnorm_fat"}) {
        const Network net(std::string("3 2 2 1 8 3 4 id ") + norm);
        for (const auto& [a, b] :
             {std::pair(0u, 0u), std::pair(0u, 7u), std::pair(4294967295u, 0u)}) {
            double result = QUIET_NAN;
            EXPECT_EQ(0, vemk_norm(net, nullptr, a, b, &result));
            EXPECT_EQ(bits(0.0), bits(result));
        }
    }
}

TEST(Norm, TakesNullForZerosAndSkipsANullResult)
{
    const Network net("3 2 2 1 8 3 4 id sum_log_dnorm_fat");
    double result = QUIET_NAN;
    EXPECT_EQ(0, vemk_norm(net, nullptr, 2, 3, &result));
    EXPECT_EQ(0.0, result);
    const double r[] = {1, 2};
    EXPECT_EQ(0, vemk_norm(net, r, 2, 1, nullptr));
}

TEST(Logp, GivesTheElementNorms)
{
    Random random(26);
    Numbers x = random.list(1000, -4, 4), y(x.size());
    const Network sum("3 2 2 1 8 3 4 id sum");
    EXPECT_EQ(0, vemk_logp(sum, x.data(), 1000, y.data()));
    EXPECT_EQ(bits_of(x), bits_of(y));

    const Network likelihood("3 2 2 1 8 3 4 id sum_log_dnorm_fat");
    x[0] = 0;
    EXPECT_EQ(0, vemk_logp(likelihood, x.data(), 1000, y.data()));
    EXPECT_EQ(0.0, y[0]);
    plain::Reals expected;
    for (const double value : x) {
        expected.push_back(
            plain::element_norm("sum_log_dnorm_fat", static_cast<long double>(value)));
    }
    // The exponent of the density, up to 18, is rounded a few times.
    expect_close(y, expected, 300 * EPS);
}

TEST(Logp, OfNothingWritesNothing)
{
    const Network net("3 2 2 1 8 3 4 id sum_log_dnorm_fat");
    double untouched = -5;
    EXPECT_EQ(0, vemk_logp(net, nullptr, 0, &untouched));
    EXPECT_EQ(-5.0, untouched);
}

TEST(Logp, TakesNullForZerosAndMayWriteOverItsArgument)
{
    const Network net("3 2 2 1 8 3 4 id sum_log_dnorm_fat");
    Numbers y(3, QUIET_NAN), x = {1, 0, -1};
    EXPECT_EQ(0, vemk_logp(net, nullptr, 3, y.data()));
    EXPECT_EQ(bits_of(Numbers(3, 0.0)), bits_of(y));
    EXPECT_EQ(0, vemk_logp(net, x.data(), 3, nullptr));
    ASSERT_EQ(0, vemk_logp(net, x.data(), 3, y.data()));
    ASSERT_EQ(0, vemk_logp(net, x.data(), 3, x.data()));
    EXPECT_EQ(bits_of(y), bits_of(x));
}

TEST(Logp, PassesAQuietNan)
{
    const Network net("3 2 2 1 8 3 4 id sum_log_dnorm_fat");
    Numbers x(9, 0.0), y(9);
    x[4] = QUIET_NAN;
    EXPECT_EQ(0, vemk_logp(net, x.data(), 9, y.data()));
    for (std::size_t i = 0; i < 9; ++i) EXPECT_EQ(i == 4, std::isnan(y[i]));
    double result = 0;
    EXPECT_EQ(0, vemk_norm(net, x.data(), 3, 3, &result));
    EXPECT_TRUE(std::isnan(result));
}
