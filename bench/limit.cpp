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
    double value;    // with inner: two passes
    double slope;    // the same with the slope beside it
    double pull;     // after value
    double bend;     // the same with slope and curvature beside it
    double tangent;  // the tangent of the value, given the slope
    double adjoint;  // the tangent of the adjoint
};

ElementSeconds measure(const VEMKN::ElementKernels& k, const VEMKN::SmoothKernels* smooth)
{
    // No multiple of 512: arrays 4096 bytes apart get in each other's way.
    constexpr std::size_t N = 488;
    const std::vector<double> x = uniform(N, 10), ybar = uniform(N, 11);
    std::vector<double> t = x, y(N), slope(N), bend(N);
    const auto per_element = [](const auto& work) { return best_seconds(work) / N; };
    const auto inner = [&] {
        if (k.inner != nullptr) k.inner(x.data(), t.data(), N);
    };
    ElementSeconds seconds{};
    seconds.value = per_element([&] {
        inner();
        k.value(x.data(), t.data(), y.data(), N);
    });
    seconds.pull = per_element([&] { k.pull(x.data(), t.data(), ybar.data(), y.data(), N); });
    seconds.tangent = per_element([&] {
        VEMKN::kernels().multiply_each(slope.data(), x.data(), y.data(), {1, N, 1, N, N});
    });
    if (smooth == nullptr) {
        seconds.slope = seconds.value;
        seconds.bend = seconds.adjoint = seconds.pull;
        seconds.tangent = seconds.pull;
        return seconds;
    }
    seconds.slope = per_element([&] {
        inner();
        smooth->value_slope(x.data(), t.data(), y.data(), slope.data(), N);
    });
    seconds.bend = per_element([&] {
        smooth->pull_slope_bend(
            x.data(), t.data(), ybar.data(), y.data(), slope.data(), bend.data(), N);
    });
    seconds.adjoint = per_element([&] {
        smooth->adj_tangent(
            x.data(), slope.data(), bend.data(), ybar.data(), x.data(), y.data(), {1, N, 1, N, N});
    });
    return seconds;
}

const ElementSeconds& element_seconds(const std::string& function)
{
    static std::map<std::string, ElementSeconds> measured;
    const auto [entry, is_new] = measured.try_emplace(function);
    if (!is_new) return entry->second;
    const VEMKN::Kernels& k = VEMKN::kernels();
    if (function == "relu") return entry->second = measure(k.relu, nullptr);
    if (function == "atan") return entry->second = measure(k.atan, &k.atan);
    if (function == "softplus") return entry->second = measure(k.softplus, &k.softplus);
    return entry->second = measure(k.log_dnorm, &k.log_dnorm);
}

// How often an entry point runs what over its batch.
struct Passes {
    double forward;   // products H W
    double backward;  // products H^T Zbar and Zbar W^T
    double
        tangents;  // directions through both, without the product that the inputs' tangent, which is 0, would ask for
    bool derivative;  // the functions' slopes come with their values
    bool curvature;
    double pulls;
};

Passes passes_of(const Entry& entry)
{
    const double n = entry.directions;
    if (entry.call == g || entry.call == vJ) return {1, 1, 0, false, false, 1};
    if (entry.call == vJ_vec) return {1, n, 0, false, false, n};
    if (entry.call == Jv) return {1, 0, n, true, false, 0};
    if (entry.call == Hv) return {1, 1, n, false, true, 1};
    return {1, 0, 0, false, false, 0};
}

double seconds_of(const Passes& passes, double elements, const ElementSeconds& each)
{
    double sum = passes.derivative ? each.slope : each.value;
    sum += passes.pulls * (passes.curvature ? each.bend : each.pull);
    sum += passes.tangents * (each.tangent + (passes.curvature ? each.adjoint : 0.0));
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
