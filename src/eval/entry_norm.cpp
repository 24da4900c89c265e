#include "api/computing_call.h"
#include "api/refusals.h"
#include "eval/objective.h"

using namespace VEMKN;

namespace {

// A copy of rows x cols numbers, or zeros in place of a null pointer.
MatrixTemplate<double> input_matrix(const double* data, std::size_t rows, std::size_t cols)
{
    if (data == nullptr) return {rows, cols};
    return {data, rows, cols};
}

}  // namespace

int vemk_norm(::VEMKNInfo* net, const double* r, unsigned a, unsigned b, double* result)
{
    if (const auto why = no_handle(net)) return refuse("vemk_norm", why);
    if (const auto why = no_norm(net)) return refuse("vemk_norm", why);
    if (const auto why = too_many("elements", a, b)) return refuse("vemk_norm", why);
    return framed_call(*net, Enters::nothing, [&](Results& results) {
        const MatrixTemplate<double> R = input_matrix(r, a, b);
        results.write(result, R.size() == 0 ? 0.0 : mean_norm(net->model, R));
    });
}

int vemk_logp(::VEMKNInfo* net, const double* x, unsigned n, double* out)
{
    if (const auto why = no_handle(net)) return refuse("vemk_logp", why);
    if (const auto why = no_norm(net)) return refuse("vemk_logp", why);
    return framed_call(*net, Enters::nothing, [&](Results& results) {
        std::valarray<double> values(n);
        net->model.element_norm.forward(input_matrix(x, n, 1), values);
        results.write(out, values);
    });
}
