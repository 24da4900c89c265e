#include <gtest/gtest.h>

#include <functional>

#include "support/all_entries.h"

// A quiet NaN is no accident: it goes through every mask comparison without a trap and comes out where it belongs.

namespace {

// Where a NaN may come in.
struct Place {
    const char* name;
    void (*put)(Request& q);
};

const Place PLACES[] = {
    {"x", [](Request& q) { q.batch.x[q.batch.x.size() / 2] = QUIET_NAN; }},
    {"y", [](Request& q) { q.batch.y[q.batch.y.size() / 2] = QUIET_NAN; }},
    {"all of y", [](Request& q) { q.batch.y.assign(q.batch.y.size(), QUIET_NAN); }},
    {"a hidden bias", [](Request& q) { q.batch.w[1] = QUIET_NAN; }},
    {"the last weight", [](Request& q) { q.batch.w.back() = QUIET_NAN; }},
    {"all of w", [](Request& q) { q.batch.w.assign(q.batch.w.size(), QUIET_NAN); }},
};

struct Functions {
    const char* activation;
    const char* norm;
};

std::vector<Functions> all_functions()
{
    std::vector<Functions> all;
    for (const char* activation : {"softplus", "atan", "relu", "id"}) {
        for (const char* norm : {"sum", "sum_log_dnorm_fat"}) all.push_back({activation, norm});
    }
    return all;
}

// NaN exactly where the plain loops have one. They are right about values; of derivatives they only know that one
// with respect to anything is NaN when a value is.
void expect_nan_where_due(const Entry& entry,
                          const plain::Network& network,
                          VEMKNInfo* net,
                          const Request& q)
{
    const Numbers computed = results_of(entry, net, q.batch);
    const plain::Reals truth = truth_of(entry, network, q.batch);
    const std::size_t values = std::string("vemk_g") == entry.name ? 1 : truth.size();
    ASSERT_EQ(truth.size(), computed.size());
    for (std::size_t i = 0; i < values; ++i) {
        EXPECT_EQ(std::isnan(truth[i]), std::isnan(computed[i])) << entry.name << " " << i;
    }
}

void expect_passage(const Functions& functions, const Place& place, unsigned threads)
{
    SCOPED_TRACE(std::string(functions.activation) + " " + functions.norm + ", NaN in " +
                 place.name);
    const plain::Network network{.numin = 3,
                                 .numout = 2,
                                 .sizes = {3, 9, 5},
                                 .activation = functions.activation,
                                 .norm = functions.norm};
    const Network net(network.text());
    ASSERT_EQ(0, vemk_setpar(net, threads, 8));
    Request q = random_request(network, 35, 3, 2, 5);
    place.put(q);
    for (const AnyEntry& entry : ALL_ENTRIES) {
        const Reply reply = entry.run(net, q);
        EXPECT_EQ(0, reply.status) << entry.name;
        const bool ignores_y = std::string("vemk_compute") == entry.name;
        const bool in_y = place.name[0] == 'y' || std::string("all of y") == place.name;
        const bool due = entry.is_norm_alone() ? in_y : !(ignores_y && in_y);
        bool found = false;
        for (const double number : reply.numbers) found = found || std::isnan(number);
        EXPECT_EQ(due, found) << entry.name;
    }
    for (const Entry& entry : ENTRIES) expect_nan_where_due(entry, network, net, q);
}

}  // namespace

TEST(QuietNanFault, QuietNanInInputsTargetsAndWeights_PassesThroughEveryFunction)
{
    for (const Functions& functions : all_functions()) {
        for (const Place& place : PLACES) {
            for (const unsigned threads : {1u, 3u}) expect_passage(functions, place, threads);
        }
    }
}
