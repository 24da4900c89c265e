#include "limit.h"

#include <cblas.h>

#include <map>

#include "kernels/kernels.h"
#include "yardstick.h"

namespace bench {

namespace {

// A limit is what the machine can do, so the best of several medians: a median alone is as slow as the moment.
double best_seconds(const std::function<void()>& work)
{
    double best = median_seconds(work);
    for (int again = 0; again < 4; ++again) best = std::min(best, median_seconds(work));
    return best;
}

// Seconds for one multiplication with addition in products of square matrices of one size.
double product_seconds(int n)
{
    const std::size_t area = std::size_t(n) * std::size_t(n);
    const std::vector<double> a = uniform(area, 8), b = uniform(area, 9);
    std::vector<double> c(area);
    const double seconds = best_seconds([&] {
        cblas_dgemm(CblasRowMajor,
                    CblasNoTrans,
                    CblasNoTrans,
                    n,
                    n,
                    n,
                    1.0,
                    a.data(),
                    n,
                    b.data(),
                    n,
                    0.0,
                    c.data(),
                    n);
    });
    return seconds / (static_cast<double>(area) * n);
}

// The same of the fastest size: where OpenBLAS has kernels for small products, the largest is not.
double product_seconds()
{
    static const double best = [] {
        const int before = openblas_get_num_threads();
        openblas_set_num_threads(1);
        const double seconds =
            std::min({product_seconds(64), product_seconds(96), product_seconds(512)});
        openblas_set_num_threads(before);
        return seconds;
    }();
    return best;
}

// Seconds an element of the loops of one element function.
struct ElementSeconds {
    double value;        // with what is saved for the sweep: two passes
    double value_term;   // the same with the term of its tangents beside it
    double vjp;          // after value
    double vjp_terms;    // the same with the terms of its tangents beside it
    double tangent;      // the tangent of the value, given the term
    double vjp_tangent;  // the tangent of the adjoint
};

template <class F>
ElementSeconds measure()
{
    const VEMKN::ElementKernels& k = VEMKN::element_kernels<F>();
    // No multiple of 512: arrays 4096 bytes apart get in each other's way.
    constexpr std::size_t N = 488;
    const std::vector<double> x = uniform(N, 10), ybar = uniform(N, 11);
    std::vector<double> saved = x, y(N), term(N, 1.0), ybar_term(N);
    const VEMKN::SideBySide flat{1, N, 1, N, N};
    const auto per_element = [](const auto& work) { return best_seconds(work) / N; };
    const auto save = [&] {
        if (k.saved != nullptr) k.saved(x.data(), saved.data(), N);
    };
    ElementSeconds seconds{};
    seconds.value = per_element([&] {
        save();
        k.value(x.data(), saved.data(), y.data(), N);
    });
    seconds.vjp = per_element([&] { k.vjp(x.data(), saved.data(), ybar.data(), y.data(), N); });
    if (!F::IS_SMOOTH) {
        seconds.value_term = seconds.value;
        seconds.vjp_terms = seconds.vjp_tangent = seconds.tangent = seconds.vjp;
        return seconds;
    }
    seconds.value_term = per_element([&] {
        save();
        k.value_term(x.data(), saved.data(), y.data(), term.data(), N);
    });
    seconds.tangent =
        per_element([&] { k.tangent(x.data(), term.data(), ybar.data(), y.data(), flat); });
    seconds.vjp_terms = per_element([&] {
        k.vjp_terms(
            x.data(), saved.data(), ybar.data(), y.data(), term.data(), ybar_term.data(), N);
    });
    seconds.vjp_tangent = per_element([&] {
        k.vjp_tangent(
            x.data(), term.data(), ybar_term.data(), ybar.data(), x.data(), y.data(), flat);
    });
    return seconds;
}

const ElementSeconds& element_seconds(const std::string& function)
{
    static std::map<std::string, ElementSeconds> measured;
    const auto [entry, is_new] = measured.try_emplace(function);
    if (!is_new) return entry->second;
    if (function == "relu") return entry->second = measure<VEMKN::Relu>();
    if (function == "atan") return entry->second = measure<VEMKN::Atan>();
    if (function == "softplus") return entry->second = measure<VEMKN::Softplus>();
    return entry->second = measure<VEMKN::LogDnorm>();
}

// How often an entry point runs what over its batch.
struct Passes {
    double forward;   // products H W
    double backward;  // products H^T Zbar and Zbar W^T
    double
        tangents;  // through both, without the product that the inputs' tangent, which is 0, would ask for
    bool derivative;  // the functions' slopes come with their values
    bool curvature;
    double vjps;
};

Passes passes_of(const Entry& entry)
{
    const double n = entry.tangents;
    if (entry.call == g || entry.call == vJ) return {1, 1, 0, false, false, 1};
    if (entry.call == vJ_vec) return {1, n, 0, false, false, n};
    if (entry.call == Jv) return {1, 0, n, true, false, 0};
    if (entry.call == Hv) return {1, 1, n, false, true, 1};
    return {1, 0, 0, false, false, 0};
}

double seconds_of(const Passes& passes, double elements, const ElementSeconds& each)
{
    double sum = passes.derivative ? each.value_term : each.value;
    sum += passes.vjps * (passes.curvature ? each.vjp_terms : each.vjp);
    sum += passes.tangents * (each.tangent + (passes.curvature ? each.vjp_tangent : 0.0));
    return elements * sum;
}

}  // namespace

double product_gflops()
{
    return 2e-9 / product_seconds();
}

double limit_seconds(const Entry& entry,
                     const Shape& shape,
                     const std::string& activation,
                     unsigned threads)
{
    const Passes passes = passes_of(entry);
    const double rows = shape.rows, outputs = shape.widths.back();
    double all = 0.0, units = 0.0;
    for (std::size_t i = 0; i + 1 < shape.widths.size(); ++i) {
        all += rows * shape.widths[i] * shape.widths[i + 1];
        units += shape.widths[i + 1];
    }
    // The input has neither tangent nor adjoint.
    const double twice = 2.0 * all - rows * shape.widths[0] * shape.widths[1];
    double multiplications = passes.forward * all + passes.backward * twice;
    multiplications += passes.tangents * twice;
    // d(H^T Zbar) and d(Zbar W^T) are two products each, but for the first layer's one.
    if (passes.curvature) {
        multiplications +=
            passes.tangents * (4.0 * all - 3.0 * rows * shape.widths[0] * shape.widths[1]);
    }
    // vemk_compute ends before the norm.
    const double normed = entry.call == compute ? 0.0 : rows * outputs;
    const double seconds = multiplications * product_seconds() +
                           seconds_of(passes, rows * units, element_seconds(activation)) +
                           seconds_of(passes, normed, element_seconds("log_dnorm"));
    return seconds / (entry.call == compute ? 1 : threads);
}

}  // namespace bench
