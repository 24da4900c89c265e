#ifndef VEMKN_TAO_CALLBACKS_H
#define VEMKN_TAO_CALLBACKS_H

#include <petsctao.h>

#include <vector>

#include "objective.h"

namespace vemkn_tao {

/** What TAO calls. TAO's vectors are scattered: each rank owns a piece of the weights, and in least squares the
 * residuals of its rows. So every decision of TAO rests on the same reduced numbers on all ranks, also where their
 * processors round differently, and its own work on vectors is shared out. The library needs whole weights:
 * each function gathers them first, and keeps the rank's piece of what the objective gives. */
class Callbacks {
public:
    explicit Callbacks(Objective& objective) : objective_(objective) {}

    /// Makes the vector of weights and what gathers it; to be called once, before the functions below.
    PetscErrorCode create(MPI_Comm comm);
    PetscErrorCode destroy();

    /// Weights of this object, filled and read by the caller.
    Vec weights() const { return weights_; }

    /// Gives `tao` the objective, its gradient and a shell of its Hessian.
    PetscErrorCode attach_objective(Tao tao);

    /// Gives `tao` the residuals and a shell of their Jacobian. Norm `sum` only.
    PetscErrorCode attach_least_squares(Tao tao);

    /// Compares the Jacobian's shell with differences of the residuals, at weights().
    PetscErrorCode test_jacobian(PetscBool* product_agrees, PetscBool* transposed_agrees);

private:
    static PetscErrorCode objective(Tao tao, Vec x, PetscReal* f, void* self);
    static PetscErrorCode objective_and_gradient(Tao tao, Vec x, PetscReal* f, Vec g, void* self);
    static PetscErrorCode move(Tao tao, Vec x, Mat shell, Mat preconditioner, void* self);
    static PetscErrorCode hessian_product(Mat shell, Vec v, Vec hv);
    static PetscErrorCode residuals(Tao tao, Vec x, Vec r, void* self);
    static PetscErrorCode jacobian_product(Mat shell, Vec v, Vec jv);
    static PetscErrorCode transposed_product(Mat shell, Vec u, Vec g);

    PetscErrorCode gather(Vec from, std::vector<double>& to);
    PetscErrorCode keep_own(const std::vector<double>& from, Vec to) const;
    PetscErrorCode compute_residuals(Vec x, Vec r);

    Objective& objective_;
    Vec weights_ = nullptr;
    Vec all_ = nullptr;
    VecScatter to_all_ = nullptr;
    Vec residuals_ = nullptr;
    Mat shell_ = nullptr;           // Hessian or Jacobian
    std::vector<double> at_;        // the weights where the shell is
    std::vector<double> argument_;  // weights or a tangent, whole
    std::vector<double> result_;
};

}  // namespace vemkn_tao

#endif
