#include <gtest/gtest.h>

#include <algorithm>

#include "support/all_entries.h"
#include "support/dual.h"
#include "support/size.h"

// Small networks, counts and settings drawn at random, and every entry point against plain loops in extended precision.
// 2,000 cases, 100,000 at full size; VEMKN_FIRST_CASE and VEMKN_CASES choose others.

namespace {

// Everything that a case is made of, drawn from one number.
struct Case {
    plain::Network network;
    Request request;
    unsigned threads = 1;
    int batch = 1;
    bool quiet = false;
    int row_order = 0;

    explicit Case(std::uint64_t seed)
    {
        Random random(seed * 0x9e3779b97f4a7c15u + 1);
        draw_network(random);
        const unsigned columns = std::min(network.numin, network.sizes.front());
        const unsigned xcols = random.below(4) == 0 ? random.below(columns + 1) : columns;
        const unsigned nrows = 1 + random.below(random.below(4) == 0 ? 40 : 8);
        request = random_request(network, nrows, xcols, random.below(4), seed);
        threads = random.below(10) == 0 ? 99999 : 1 + random.below(5);
        batch = 1 + static_cast<int>(random.below(nrows + 3));
        quiet = random.below(3) == 0;
        row_order = random.below(3) == 0 ? 1 + static_cast<int>(random.below(2)) : 0;
        request.own_weights = random.below(5) == 0;
        if (request.nv > request.nw()) row_order = 0;
        // A single tangent of a single weight is taken for 1.
        if (request.nw() == 1 && request.nv == 1) request.v[0] = 1.0;
    }

    std::string described() const
    {
        return '"' + network.text() + "\", rows " + std::to_string(request.batch.nrows) + " of " +
               std::to_string(request.batch.xcols) + ", tangents " + std::to_string(request.nv) +
               ", threads " + std::to_string(threads) + ", batch " + std::to_string(batch) +
               (quiet ? ", quiet" : "") + (row_order ? ", row order" : "") +
               (request.own_weights ? ", own weights" : "");
    }

private:
    void draw_network(Random& random)
    {
        const char* const activations[] = {
            "softplus", "softmax", "softplus_shifted", "atan", "relu", "id", "?"};
        const char* const norms[] = {"sum", "sum_log_dnorm_fat"};
        network.activation = activations[random.below(std::size(activations))];
        network.norm = norms[random.below(std::size(norms))];
        network.numout = 1 + random.below(3);
        network.nmult = random.below(3) == 0 ? 2 + random.below(2) : 1;
        const unsigned layers = 2 + random.below(random.below(4) == 0 ? 3 : 1);
        const unsigned widest = random.below(8) == 0 ? 11 : 5;
        for (unsigned i = 0; i < layers; ++i) network.sizes.push_back(random.below(widest));
        // The chain fits where the last hidden width is the first size.
        if (network.nmult > 1) network.sizes.back() = network.sizes.front();
        network.numin = random.below(2) == 0 ? std::max(1u, network.sizes[0]) : 1 + random.below(9);
    }
};

// The truth of all entry points for one case.
class Truth {
public:
    explicit Truth(const Case& c) : c_(c), q_(c.request), b_(c.request.batch) {}

    plain::Reals of(const std::string& name) const
    {
        if (name == "vemk_norm") return {mean(norms_of_targets())};
        if (name == "vemk_logp") return norms_of_targets();
        if (name == "vemk_Hv") return hessian_products();
        if (name == "vemk_Jv") return jacobian_products();
        if (name == "vemk_vJ") return transposed_products(1);
        if (name == "vemk_vJ_vec") return transposed_products(q_.nv);
        return truth_of(entry_named(name), c_.network, b_);
    }

private:
    plain::Reals norms_of_targets() const
    {
        plain::Reals all;
        for (const double y : b_.y) {
            all.push_back(plain::element_norm(c_.network.norm, static_cast<plain::Real>(y)));
        }
        return all;
    }

    static plain::Real mean(const plain::Reals& all)
    {
        plain::Real sum = 0;
        for (const plain::Real x : all) sum += x;
        return sum / static_cast<plain::Real>(all.size());
    }

    // Entry i of tangent d, of n entries each.
    std::size_t place(std::size_t i, std::size_t d, std::size_t n) const
    {
        return c_.row_order != 0 ? d * n + i : i * q_.nv + d;
    }

    plain::Reals tangent(std::size_t d) const
    {
        plain::Reals v;
        for (std::size_t k = 0; k < q_.nw(); ++k) v.push_back(q_.v[place(k, d, q_.nw())]);
        return v;
    }

    // The columns, one for each tangent, behind what comes first, in the order that the case asks for.
    plain::Reals joined(plain::Reals first,
                        const std::vector<plain::Reals>& columns,
                        std::size_t n) const
    {
        const std::size_t begin = first.size();
        first.resize(begin + n * columns.size());
        for (std::size_t d = 0; d < columns.size(); ++d) {
            for (std::size_t i = 0; i < n; ++i) first[begin + place(i, d, n)] = columns[d][i];
        }
        return first;
    }

    plain::Reals hessian_products() const
    {
        std::vector<plain::Reals> columns;
        for (std::size_t d = 0; d < q_.nv; ++d) {
            columns.push_back(plain::hessian_product(
                c_.network, b_.w, b_.x, b_.y, b_.nrows, b_.xcols, tangent(d)));
        }
        return joined(truth_of(entry_named("vemk_g"), c_.network, b_), columns, q_.nw());
    }

    plain::Reals jacobian_products() const
    {
        std::vector<plain::Reals> columns;
        for (std::size_t d = 0; d < q_.nv; ++d) {
            const plain::Reals v = tangent(d);
            std::vector<plain::Complex> at;
            for (std::size_t k = 0; k < v.size(); ++k) at.emplace_back(b_.w[k], v[k] * plain::STEP);
            plain::Reals column;
            for (const plain::Complex& r :
                 c_.network.residuals(at, b_.x, b_.y, b_.nrows, b_.xcols)) {
                column.push_back(plain::element_norm(c_.network.norm, r).imag() / plain::STEP);
            }
            columns.push_back(column);
        }
        return joined(truth_of(entry_named("vemk_objv"), c_.network, b_), columns, q_.elements());
    }

    plain::Reals transposed_products(std::size_t k) const
    {
        plain::Reals all = truth_of(entry_named("vemk_residual"), c_.network, b_);
        for (std::size_t i = 0; i < k; ++i) {
            const double* const u = q_.v.data() + i * q_.elements();
            const plain::Reals gradient = c_.network.weighted_gradient(
                b_.w, b_.x, b_.y, b_.nrows, b_.xcols, plain::Reals(u, u + q_.elements()));
            all.insert(all.end(), gradient.begin(), gradient.end());
        }
        return all;
    }

    const Case& c_;
    const Request& q_;
    const Batch& b_;
};

// Some dozens of products of some dozens of terms, each rounded; a likelihood near 18 is 18 times as steep as a residual
// near 1, and bends 18 times more sharply still.
constexpr long double TOLERANCE = 1e-11L;

void expect_truth(const AnyEntry& entry, const Case& c, const Numbers& computed)
{
    const plain::Reals truth = Truth(c).of(entry.name);
    ASSERT_EQ(truth.size(), computed.size()) << entry.name;
    plain::Real largest = 1;
    for (const plain::Real x : truth) largest = std::max(largest, std::fabs(x));
    for (std::size_t i = 0; i < truth.size(); ++i) {
        EXPECT_TRUE(std::fabs(computed[i] - truth[i]) <= TOLERANCE * largest)
            << entry.name << " " << i << ": " << computed[i] << " is not " << truth[i];
    }
}

void run(const Case& c)
{
    const Network net(c.network.text());
    ASSERT_EQ(c.network.numel(), vemk_numel(net));
    ASSERT_EQ(0, vemk_setpar(net, c.threads, c.batch));
    ASSERT_EQ(0, vemk_quiet(net, c.quiet));
    vemk_major(net, c.row_order);
    // The likelihood is not continuous: a residual at its edge, to rounding, may fall on either side.
    for (const plain::Real r : Truth(c).of("vemk_residual")) {
        if (std::fabs(std::fabs(r) - 2) < 1e-12L) return;
    }
    if (c.request.own_weights) {
        ASSERT_EQ(0, vemk_setweights(net, c.request.batch.w.data(), c.request.nw()));
    }
    for (const AnyEntry& entry : ALL_ENTRIES) {
        const Reply reply = entry.run(net, c.request);
        ASSERT_EQ(0, reply.status) << entry.name;
        expect_truth(entry, c, reply.numbers);
    }
    vemk_major(net, 0);
}

std::uint64_t number_from(const char* variable, std::uint64_t otherwise)
{
    const char* const text = std::getenv(variable);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

}  // namespace

TEST(RandomCalls, GiveWhatThePlainLoopsGive)
{
    const std::uint64_t first = number_from("VEMKN_FIRST_CASE", 1);
    const std::uint64_t cases = number_from(
        "VEMKN_CASES", static_cast<std::uint64_t>(usual_or_full(unless_sanitized(2'000), 100'000)));
    for (std::uint64_t seed = first; seed < first + cases; ++seed) {
        const Case c(seed);
        SCOPED_TRACE("case " + std::to_string(seed) + ": " + c.described());
        run(c);
        if (HasFailure()) return;
    }
}
