#include "yardstick.h"

#include <cblas.h>

namespace bench {

double median_seconds(const std::function<void()>& work)
{
    using Clock = std::chrono::steady_clock;
    const auto run = [&](int times) {
        const auto start = Clock::now();
        for (int i = 0; i < times; ++i) work();
        return std::chrono::duration<double>(Clock::now() - start).count() / times;
    };
    const double first = run(1);
    const int times = std::clamp(static_cast<int>(2e-3 / std::max(first, 1e-9)), 1, 10000);
    std::vector<double> seconds;
    for (int repetition = 0; repetition < 7; ++repetition) seconds.push_back(run(times));
    std::nth_element(seconds.begin(), seconds.begin() + 3, seconds.end());
    return seconds[3];
}

namespace {

void gemm(CBLAS_TRANSPOSE ta,
          CBLAS_TRANSPOSE tb,
          int m,
          int n,
          int k,
          const double* a,
          int lda,
          const double* b,
          int ldb,
          double* c)
{
    cblas_dgemm(CblasRowMajor, ta, tb, m, n, k, 1.0, a, lda, b, ldb, 0.0, c, n);
}

}  // namespace

Products bare_products(const Shape& shape, unsigned batch)
{
    const unsigned widest = *std::max_element(shape.widths.begin(), shape.widths.end());
    const std::size_t area = std::size_t{std::max(batch, widest)} * widest;
    const std::vector<double> a = uniform(area, 5), b = uniform(area, 6);
    std::vector<double> c(area);

    const auto over_slices = [&](const std::function<void(int, int, int, bool)>& layer) {
        for (unsigned row = 0; row < shape.rows; row += batch) {
            const int m = static_cast<int>(std::min(batch, shape.rows - row));
            for (std::size_t i = 0; i + 1 < shape.widths.size(); ++i) {
                layer(m,
                      static_cast<int>(shape.widths[i]),
                      static_cast<int>(shape.widths[i + 1]),
                      i == 0);
            }
        }
    };
    const int before = openblas_get_num_threads();
    openblas_set_num_threads(1);
    Products seconds{};
    seconds.forward = median_seconds([&] {
        over_slices([&](int m, int k, int n, bool) {
            gemm(CblasNoTrans, CblasNoTrans, m, n, k, a.data(), k, b.data(), n, c.data());
        });
    });
    seconds.backward = median_seconds([&] {
        over_slices([&](int m, int k, int n, bool first) {
            gemm(CblasTrans, CblasNoTrans, k, n, m, a.data(), k, b.data(), n, c.data());
            if (first) return;
            gemm(CblasNoTrans, CblasTrans, m, k, n, a.data(), n, b.data(), n, c.data());
        });
    });
    openblas_set_num_threads(before);
    return seconds;
}

}  // namespace bench
