#ifndef VEMKN_TAO_OBJECTIVE_H
#define VEMKN_TAO_OBJECTIVE_H

#include <mpi.h>

#include <cstdint>
#include <vector>

#include "network.h"
#include "rows.h"

namespace vemkn_tao {

/** The objective over the rows of all ranks, and its derivatives. Every function is collective
 * unless it says otherwise, takes whole weight vectors (the same on every rank) and gives whole
 * results, the same on every rank.
 *
 * A rank's call gives a mean over its own rows; the mean over all rows is the sum of these with weights
 * rows of the rank / rows of all. That sum is the one reduction of each function. A rank without rows calls nothing
 * (a mean over no rows is refused) and adds zeros.
 *
 * Numbers that are not finite flow through the sums, so all ranks see them. A refused call throws
 * std::runtime_error on its rank alone: the caller has to end the other ranks. */
class Objective {
public:
    /// Keeps references: both have to live as long as this.
    Objective(MPI_Comm comm, const Network& network, const Rows& rows);

    unsigned numel() const { return nw_; }

    /// Residuals of this rank: its rows times the outputs.
    std::uint64_t own_residuals() const { return rows_.count * rows_.file.outputs; }

    /// Reduces 1 number.
    double value(const double* w);

    /// Objective; its gradient goes to g[numel()]. Reduces numel() + 1 numbers.
    double gradient(const double* w, double* g);

    /// Product of the Hessian with tangent v[numel()], to hv[numel()]. Reduces numel() numbers.
    void hessian_product(const double* w, const double* v, double* hv);

    /** Least squares, for the norm `sum`: r is the residuals divided by the root of their number over all
     * ranks, so that r'r/2 is half their mean square. To r[own_residuals()]; not collective. */
    void residuals(const double* w, double* r);

    /// Product of the Jacobian of r with v[numel()], to jv[own_residuals()]; not collective.
    void jacobian_product(const double* w, const double* v, double* jv);

    /// Product of its transpose with u[own_residuals()], to g[numel()]. Reduces numel() numbers.
    void transposed_product(const double* w, const double* u, double* g);

private:
    enum Call { obj, g, Hv, objv, Jv, vJ, reduction, calls };

    static constexpr const char* names[calls] = {
        "vemk_obj", "vemk_g", "vemk_Hv", "vemk_objv", "vemk_Jv", "vemk_vJ", "VemknReduce"};

    template <class Function>
    void on_own_rows(Call call, Function&& function) const;
    void reduce(double* numbers, unsigned count) const;

    MPI_Comm comm_;
    VEMKNInfo* net_;
    const Rows& rows_;
    unsigned nw_;
    double weight_;             // rows of this rank over rows of all
    double scale_;              // of the residuals in least squares
    std::vector<double> sums_;  // gradient and value, in one piece for one reduction
    int events_[calls] = {};    // of PETSc's -log_view
};

}  // namespace vemkn_tao

#endif
