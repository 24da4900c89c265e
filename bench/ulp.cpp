// The worst errors of the element kernels against MPFR, as the table of docs/accuracy.md: every kernel, every instruction
// set that this processor runs, the same points for all of them.
//
//     vemkn_ulp [points [first group [last group]]]     10,000,000 points a range, all groups, is minutes

#include <gmp.h>
#include <mpfr.h>

#include <cstdio>
#include <cstdlib>

#include "support/accuracy.h"
#include "support/instruction_sets.h"

namespace {

// A number of 128 bits that lies where it is declared: an mpfr_t of its own would allocate with every operation.
class Real {
public:
    explicit Real(double a = 0.0)
    {
        init();
        mpfr_set_d(number_, a, MPFR_RNDN);
    }

    Real(const Real& other)
    {
        init();
        mpfr_set(number_, other.number_, MPFR_RNDN);
    }

    Real& operator=(const Real& other)
    {
        if (this != &other) mpfr_set(number_, other.number_, MPFR_RNDN);
        return *this;
    }

    explicit operator long double() const { return mpfr_get_ld(number_, MPFR_RNDN); }

    friend Real operator+(const Real& a, const Real& b) { return of(mpfr_add, a, b); }

    friend Real operator-(const Real& a, const Real& b) { return of(mpfr_sub, a, b); }

    friend Real operator*(const Real& a, const Real& b) { return of(mpfr_mul, a, b); }

    friend Real operator/(const Real& a, const Real& b) { return of(mpfr_div, a, b); }

    friend Real operator-(const Real& a) { return Real(0.0) - a; }

    friend Real exp(const Real& a) { return of(mpfr_exp, a); }

    friend Real log(const Real& a) { return of(mpfr_log, a); }

    friend Real atan(const Real& a) { return of(mpfr_atan, a); }

    friend Real sqrt(const Real& a) { return of(mpfr_sqrt, a); }

private:
    static constexpr mpfr_prec_t BITS = 128;

    void init() { mpfr_custom_init_set(number_, MPFR_ZERO_KIND, 0, BITS, limbs_); }

    static Real of(int (*function)(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t), const Real& a)
    {
        Real result;
        function(result.number_, a.number_, MPFR_RNDN);
        return result;
    }

    static Real of(int (*function)(mpfr_ptr, mpfr_srcptr, mpfr_srcptr, mpfr_rnd_t),
                   const Real& a,
                   const Real& b)
    {
        Real result;
        function(result.number_, a.number_, b.number_, MPFR_RNDN);
        return result;
    }

    mp_limb_t limbs_[BITS / 64];
    mpfr_t number_;
};

using Group = accuracy::Group<Real>;

void print_group(const Group& group,
                 const std::vector<const VEMKN::Kernels*>& sets,
                 std::size_t points)
{
    constexpr std::size_t AT_ONCE = 10000;
    std::vector<std::vector<double>> worst(sets.size(),
                                           std::vector<double>(group.rows.size(), 0.0));
#pragma omp parallel for schedule(dynamic)
    for (std::size_t first = 0; first < points; first += AT_ONCE) {
        const accuracy::Sample<Real> sample(
            group, std::min(AT_ONCE, points - first), static_cast<unsigned>(first / AT_ONCE));
        std::vector<std::vector<double>> worst_here(sets.size(),
                                                    std::vector<double>(group.rows.size(), 0.0));
        for (std::size_t s = 0; s < sets.size(); ++s) sample.raise(*sets[s], worst_here[s]);
#pragma omp critical
        for (std::size_t s = 0; s < sets.size(); ++s) {
            for (std::size_t r = 0; r < group.rows.size(); ++r) {
                if (!(worst_here[s][r] <= worst[s][r])) worst[s][r] = worst_here[s][r];
            }
        }
    }
    for (std::size_t r = 0; r < group.rows.size(); ++r) {
        const accuracy::Row& row = group.rows[r];
        std::printf("| `%s` | %s | %g to %g%s | ",
                    group.name,
                    row.what,
                    group.low,
                    group.high,
                    group.logarithmic ? ", log" : "");
        if (row.floor == 0.0) {
            std::printf("result |");
        } else {
            std::printf("result, at least %g |", row.floor);
        }
        for (const auto& of_set : worst) std::printf(" %.3f |", of_set[r]);
        std::printf(" %g | %g |\n", row.bound, row.derived);
    }
    std::fflush(stdout);
}

std::size_t argument(int argc, char** argv, int at, std::size_t otherwise)
{
    return at < argc ? std::strtoull(argv[at], nullptr, 10) : otherwise;
}

}  // namespace

int main(int argc, char** argv)
{
    const auto& groups = accuracy::groups<Real>();
    const std::size_t points = argument(argc, argv, 1, 10000000);
    const std::size_t first = argument(argc, argv, 2, 0);
    const std::size_t last =
        std::min(argument(argc, argv, 3, first + groups.size()) + 1, groups.size());

    std::vector<const VEMKN::Kernels*> sets;
    for (const auto set : available_instruction_sets()) sets.push_back(&VEMKN::kernels_of(set));
    if (first == 0) {
        std::printf("| function | quantity | points | ulp of |");
        for (const VEMKN::Kernels* set : sets) std::printf(" %s |", set->name);
        std::printf(" bound | derived |\n|---|---|---|---|");
        for (std::size_t i = 0; i < sets.size() + 2; ++i) std::printf("---|");
        std::printf("\n");
    }
    for (std::size_t i = first; i < last; ++i) print_group(groups[i], sets, points);
    return 0;
}
