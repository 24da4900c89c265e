#include "objective.h"

#include <petsclog.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace vemkn_tao {
namespace {

/// Times its own life for the table of PETSc's -log_view.
class Logged {
public:
    explicit Logged(PetscLogEvent event) : event_(event)
    {
        PetscLogEventBegin(event_, nullptr, nullptr, nullptr, nullptr);
    }

    ~Logged() { PetscLogEventEnd(event_, nullptr, nullptr, nullptr, nullptr); }

    Logged(const Logged&) = delete;
    Logged& operator=(const Logged&) = delete;

private:
    PetscLogEvent event_;
};

void scale(double* numbers, std::uint64_t count, double factor)
{
    std::for_each(numbers, numbers + count, [factor](double& number) { number *= factor; });
}

}  // namespace

Objective::Objective(MPI_Comm comm, const Network& network, const Rows& rows)
    : comm_(comm),
      net_(network.handle()),
      rows_(rows),
      nw_(network.numel()),
      weight_(static_cast<double>(rows.count) / static_cast<double>(rows.file.rows)),
      scale_(1.0 / std::sqrt(static_cast<double>(rows.file.rows) *
                             static_cast<double>(rows.file.outputs))),
      sums_(nw_ + 1)
{
    for (int call = 0; call < calls; ++call)
        PetscLogEventRegister(names[call], PETSC_OBJECT_CLASSID, &events_[call]);
}

/// Calls the library with the rows of this rank, if there are any.
template <class Function>
void Objective::on_own_rows(Call call, Function&& function) const
{
    if (rows_.count == 0) return;
    const Logged log(events_[call]);
    const int status = function(rows_.x.data(),
                                rows_.y.data(),
                                static_cast<unsigned>(rows_.count),
                                static_cast<unsigned>(rows_.file.inputs),
                                static_cast<unsigned>(rows_.file.outputs));
    // 1 says that results are not all finite, which is for the optimiser to judge.
    if (status < 0) throw std::runtime_error(std::string(names[call]) + " refused the call");
}

void Objective::reduce(double* numbers, unsigned count) const
{
    const Logged log(events_[reduction]);
    if (MPI_Allreduce(MPI_IN_PLACE, numbers, static_cast<int>(count), MPI_DOUBLE, MPI_SUM, comm_) !=
        MPI_SUCCESS)
        throw std::runtime_error("the reduction failed");
}

double Objective::value(const double* w)
{
    double sum = 0.0;
    on_own_rows(obj, [&](auto x, auto y, auto n, auto nin, auto nout) {
        return vemk_obj(net_, w, nw_, x, y, n, nin, nout, &sum);
    });
    sum *= weight_;
    reduce(&sum, 1);
    return sum;
}

double Objective::gradient(const double* w, double* gradient)
{
    std::fill(sums_.begin(), sums_.end(), 0.0);
    on_own_rows(g, [&](auto x, auto y, auto n, auto nin, auto nout) {
        return vemk_g(net_, w, nw_, x, y, n, nin, nout, &sums_[nw_], sums_.data());
    });
    scale(sums_.data(), nw_ + 1, weight_);
    reduce(sums_.data(), nw_ + 1);
    std::copy_n(sums_.begin(), nw_, gradient);
    return sums_[nw_];
}

void Objective::hessian_product(const double* w, const double* v, double* hv)
{
    std::fill_n(hv, nw_, 0.0);
    on_own_rows(Hv, [&](auto x, auto y, auto n, auto nin, auto nout) {
        return vemk_Hv(net_, w, nw_, v, 1, x, y, n, nin, nout, nullptr, nullptr, hv);
    });
    scale(hv, nw_, weight_);
    reduce(hv, nw_);
}

// Under `sum` the element norm is the residual; unlike vemk_residual, vemk_objv works on all threads of the handle.
void Objective::residuals(const double* w, double* r)
{
    on_own_rows(objv, [&](auto x, auto y, auto n, auto nin, auto nout) {
        return vemk_objv(net_, w, nw_, x, y, n, nin, nout, r);
    });
    scale(r, own_residuals(), scale_);
}

void Objective::jacobian_product(const double* w, const double* v, double* jv)
{
    on_own_rows(Jv, [&](auto x, auto y, auto n, auto nin, auto nout) {
        return vemk_Jv(net_, w, nw_, v, 1, x, y, n, nin, nout, nullptr, jv);
    });
    scale(jv, own_residuals(), scale_);
}

void Objective::transposed_product(const double* w, const double* u, double* gu)
{
    std::fill_n(gu, nw_, 0.0);
    on_own_rows(vJ, [&](auto x, auto y, auto n, auto nin, auto nout) {
        return vemk_vJ(net_, w, nw_, u, 0, x, y, n, nin, nout, nullptr, gu);
    });
    scale(gu, nw_, scale_);
    reduce(gu, nw_);
}

}  // namespace vemkn_tao
