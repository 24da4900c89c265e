#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "support/all_entries.h"
#include "support/capture.h"
#include "support/child.h"

// Counts and pointers that are wrong in every way, drawn at random. What each call has to do follows from the few rules
// of refused(); where a call is not refused, a null input is zeros (null weights are the handle's own) and a null output
// is not written. All arrays have exactly their length, so that AddressSanitizer sees whatever lies beyond.

namespace {

constexpr const char* TEXT = "3 2 2 1 8 3 4 softplus sum";
constexpr unsigned NUMEL = 26, NUMIN = 3, NUMOUT = 2;
constexpr double UNTOUCHED = -12345.678;

class Array {
public:
    Array(std::size_t n, double value) : n_(n), data_(new double[n])
    {
        std::fill_n(data_.get(), n, value);
    }

    Array(std::size_t n, Random& random) : Array(n, 0.0)
    {
        for (std::size_t i = 0; i < n; ++i) data_[i] = random.uniform(-1, 1);
    }

    double* data() const { return data_.get(); }

    bool holds_only(double value) const
    {
        return std::all_of(data_.get(), data_.get() + n_, [&](double x) { return x == value; });
    }

    std::vector<std::uint64_t> bits() const
    {
        return bits_of(Numbers(data_.get(), data_.get() + n_));
    }

private:
    std::size_t n_;
    std::unique_ptr<double[]> data_;
};

// Everything that a host hands over; `which` is its entry point.
struct Arguments {
    VEMKNInfo* net = nullptr;
    const double *w = nullptr, *v = nullptr, *x = nullptr, *y = nullptr;
    unsigned nw = NUMEL, nv = 1, nrows = 1, xcols = NUMIN, ycols = NUMOUT;
    double *value = nullptr, *first = nullptr, *second = nullptr;
};

struct Callee {
    const char* name;
    int (*run)(const Arguments& a);
    bool takes_targets, needs_nw_with_null_w, needs_rows, takes_tangents, takes_cotangents;
    int outputs;
    std::size_t (*first_length)(const Arguments& a);
    std::size_t (*second_length)(const Arguments& a);
};

std::size_t results(const Arguments& a)
{
    return std::size_t{a.nrows} * NUMOUT;
}

std::size_t one(const Arguments&)
{
    return 1;
}

std::size_t none(const Arguments&)
{
    return 0;
}

std::size_t weights(const Arguments&)
{
    return NUMEL;
}

std::size_t products(const Arguments& a)
{
    return std::size_t{NUMEL} * a.nv;
}

std::size_t derivatives(const Arguments& a)
{
    return results(a) * a.nv;
}

// clang-format off
const Callee CALLEES[] = {
    {"vemk_compute",  [](const Arguments& a) { return vemk_compute(a.net, a.w, a.nw, a.x, a.nrows, a.xcols, 7, a.first); },
     false, false, false, false, false, 1, results, none},
    {"vemk_residual", [](const Arguments& a) { return vemk_residual(a.net, a.w, a.nw, a.x, a.y, a.nrows, a.xcols, a.ycols, a.first); },
     true, false, false, false, false, 1, results, none},
    {"vemk_obj",      [](const Arguments& a) { return vemk_obj(a.net, a.w, a.nw, a.x, a.y, a.nrows, a.xcols, a.ycols, a.first); },
     true, false, true, false, false, 1, one, none},
    {"vemk_objv",     [](const Arguments& a) { return vemk_objv(a.net, a.w, a.nw, a.x, a.y, a.nrows, a.xcols, a.ycols, a.first); },
     true, false, false, false, false, 1, results, none},
    {"vemk_g",        [](const Arguments& a) { return vemk_g(a.net, a.w, a.nw, a.x, a.y, a.nrows, a.xcols, a.ycols, a.value, a.first); },
     true, true, true, false, false, 1, weights, none},
    {"vemk_Hv",       [](const Arguments& a) { return vemk_Hv(a.net, a.w, a.nw, a.v, a.nv, a.x, a.y, a.nrows, a.xcols, a.ycols, a.value, a.first, a.second); },
     true, true, false, true, false, 2, weights, products},
    {"vemk_Jv",       [](const Arguments& a) { return vemk_Jv(a.net, a.w, a.nw, a.v, a.nv, a.x, a.y, a.nrows, a.xcols, a.ycols, a.first, a.second); },
     true, true, false, true, false, 2, results, derivatives},
    {"vemk_vJ",       [](const Arguments& a) { return vemk_vJ(a.net, a.w, a.nw, a.v, 99, a.x, a.y, a.nrows, a.xcols, a.ycols, a.first, a.second); },
     true, true, false, false, false, 2, results, weights},
    {"vemk_vJ_vec",   [](const Arguments& a) { return vemk_vJ_vec(a.net, a.w, a.nw, a.v, a.nv, a.x, a.y, a.nrows, a.xcols, a.ycols, a.first, a.second); },
     true, true, false, false, true, 2, results, products},
};

// clang-format on

bool refused(const Callee& callee, const Arguments& a)
{
    constexpr std::uint64_t LIMIT = std::uint64_t{1} << 32;
    if (a.net == nullptr) return true;
    if ((a.w != nullptr || callee.needs_nw_with_null_w) && a.nw != NUMEL) return true;
    if (callee.takes_targets && a.ycols != NUMOUT) return true;
    if (results(a) >= LIMIT) return true;
    if (callee.needs_rows && a.nrows == 0) return true;
    if (callee.takes_tangents && products(a) >= LIMIT) return true;
    return callee.takes_cotangents && derivatives(a) >= LIMIT;
}

template <std::size_t N>
unsigned one_of(Random& random, const unsigned (&list)[N])
{
    return list[random.below(N)];
}

// A call with some of its arguments wrong: each of them now and then.
class Trial {
public:
    Trial(std::uint64_t seed, VEMKNInfo* net)
        : random_(seed), callee_(CALLEES[random_.below(std::size(CALLEES))])
    {
        given_.net = now_and_then(20) ? nullptr : net;
        if (now_and_then(6)) given_.nw = one_of(random_, {0, NUMEL - 1, NUMEL + 1, 4294967295u});
        if (now_and_then(6)) given_.ycols = one_of(random_, {0, 1, 3, 4294967295u});
        given_.xcols = random_.below(NUMIN + 1);
        given_.nv = random_.below(4);
        given_.nrows = random_.below(12);
        if (now_and_then(8)) given_.nrows = one_of(random_, {2147483648u, 4294967295u});
        if (now_and_then(8)) given_.nv = one_of(random_, {2147483648u, 4294967295u});
    }

    // Not among the refusals, but neither is it a result: an end of the process, or an amount of memory that only a
    // host that means it would ask for.
    bool is_beyond_this_test() const
    {
        if (refused(callee_, given_)) return false;
        const bool huge = given_.nv > 3 && (callee_.takes_tangents || callee_.takes_cotangents);
        return huge || (std::string("vemk_Hv") == callee_.name && given_.nrows == 0);
    }

    void expect_decided_result()
    {
        SCOPED_TRACE(testing::Message()
                     << callee_.name << ": nw " << given_.nw << ", nv " << given_.nv << ", rows "
                     << given_.nrows << ", xcols " << given_.xcols << ", ycols " << given_.ycols);
        const bool is_refused = refused(callee_, given_);
        make_arrays(is_refused);
        int status = 0;
        const Heard heard = listen([&] { status = callee_.run(given_); });
        EXPECT_EQ("", heard.out);
        if (is_refused) {
            EXPECT_EQ(-1, status);
            EXPECT_EQ(0u, heard.err.find(std::string(callee_.name) + ": refused: ")) << heard.err;
            EXPECT_EQ(heard.err.size() - 1, heard.err.find('\n')) << heard.err;
            EXPECT_TRUE(value_->holds_only(UNTOUCHED));
            EXPECT_TRUE(first_->holds_only(UNTOUCHED));
            EXPECT_TRUE(second_->holds_only(UNTOUCHED));
            return;
        }
        EXPECT_EQ(0, status);
        EXPECT_EQ("", heard.err);
        compare_with_the_full_call();
    }

private:
    bool now_and_then(unsigned n) { return random_.below(n) == 0; }

    void make_arrays(bool is_refused)
    {
        // A refused call must look into none of them.
        const Arguments sizes = is_refused ? Arguments{} : given_;
        const bool cotangents = !callee_.takes_tangents;
        const std::size_t one_tangent = cotangents ? results(sizes) : NUMEL;
        const bool single = !callee_.takes_tangents && !callee_.takes_cotangents;
        w_.emplace(NUMEL, random_);
        v_.emplace(one_tangent * (single ? 1 : sizes.nv), random_);
        x_.emplace(std::size_t{sizes.nrows} * sizes.xcols, random_);
        y_.emplace(results(sizes), random_);
        value_.emplace(1, UNTOUCHED);
        first_.emplace(callee_.first_length(sizes), UNTOUCHED);
        second_.emplace(callee_.second_length(sizes), UNTOUCHED);
        // Refusals hold whether weights are given or not, but for those decided above by their absence.
        const bool was_refused = is_refused;
        given_.w = now_and_then(3) ? nullptr : w_->data();
        if (refused(callee_, given_) != was_refused) given_.w = was_refused ? w_->data() : nullptr;
        given_.v = now_and_then(3) ? nullptr : v_->data();
        given_.x = now_and_then(3) ? nullptr : x_->data();
        given_.y = now_and_then(3) ? nullptr : y_->data();
        given_.value = now_and_then(3) ? nullptr : value_->data();
        given_.first = now_and_then(3) ? nullptr : first_->data();
        given_.second = now_and_then(3) ? nullptr : second_->data();
    }

    // The same call with nothing null.
    void compare_with_the_full_call() const
    {
        Arguments full = given_;
        const std::size_t inputs = 4096;
        const Array zeros(inputs, 0.0), own(NUMEL, 0.0);
        const Array value(1, UNTOUCHED), first(callee_.first_length(given_), UNTOUCHED),
            second(callee_.second_length(given_), UNTOUCHED);
        ASSERT_EQ(0, vemk_getweights(given_.net, own.data(), NUMEL));
        full.nw = NUMEL;
        if (full.w == nullptr) full.w = own.data();
        if (full.v == nullptr) full.v = zeros.data();
        if (full.x == nullptr) full.x = zeros.data();
        if (full.y == nullptr) full.y = zeros.data();
        full.value = value.data();
        full.first = first.data();
        full.second = second.data();
        ASSERT_EQ(0, callee_.run(full));
        expect_same_or_untouched(given_.value, *value_, value);
        expect_same_or_untouched(given_.first, *first_, first);
        expect_same_or_untouched(given_.second, *second_, second);
    }

    static void expect_same_or_untouched(const double* wanted,
                                         const Array& array,
                                         const Array& full)
    {
        if (wanted == nullptr) {
            EXPECT_TRUE(array.holds_only(UNTOUCHED));
        } else {
            EXPECT_EQ(full.bits(), array.bits());
        }
    }

    Random random_;
    const Callee& callee_;
    Arguments given_;
    std::optional<Array> w_, v_, x_, y_, value_, first_, second_;
};

}  // namespace

TEST(WrongArgumentsFault, WrongCountsAndNullPointersInEveryCombination_TheDecidedResult)
{
    const Network net(TEXT);
    const Array own(NUMEL, 0.25);
    ASSERT_EQ(0, vemk_setweights(net, own.data(), NUMEL));
    ASSERT_EQ(0, vemk_setpar(net, 2, 4));
    int trials = 0;
    for (std::uint64_t seed = 1; trials < 10'000; ++seed) {
        Trial trial(seed, net);
        if (trial.is_beyond_this_test()) continue;
        ++trials;
        trial.expect_decided_result();
        ASSERT_FALSE(HasFailure()) << "seed " << seed;
    }
}

// entry, rows
SCENE(has_four_billion_columns_of_nothing)
{
    const Network net(TEXT);
    const std::string name = arguments.at(0);
    for (const Callee& callee : CALLEES) {
        if (name != callee.name) continue;
        Arguments a;
        a.net = net;
        a.nrows = static_cast<unsigned>(std::stoul(arguments.at(1)));
        a.xcols = 4294967295u;
        callee.run(a);
    }
}

TEST(WrongArgumentsFault, FourBillionColumnsOfANullArray_TheFatalExitAtNoCost)
{
    for (const Callee& callee : CALLEES) {
        for (const char* nrows : {"1", "1000000"}) {
            const child::Outcome outcome =
                child::play("has_four_billion_columns_of_nothing", {callee.name, nrows});
            EXPECT_TRUE(outcome.exited_with(3)) << callee.name << ": " << outcome.description();
            EXPECT_EQ("too many predicates: 4294967295 > 3\nstop: too many predicates\n",
                      outcome.err);
        }
    }
}
