#include "callbacks.h"

#include <algorithm>
#include <exception>

namespace vemkn_tao {
namespace {

/// An exception must not pass through PETSc's C; as an error of PETSc it reaches main, which ends all ranks.
template <class Work>
PetscErrorCode guarded(Work&& work)
{
    PetscFunctionBeginUser;
    try {
        work();
    } catch (const std::exception& error) {
        SETERRQ(PETSC_COMM_SELF, PETSC_ERR_LIB, "%s", error.what());
    }
    PetscFunctionReturn(0);
}

Callbacks& of(void* context)
{
    return *static_cast<Callbacks*>(context);
}

PetscErrorCode of_shell(Mat shell, Callbacks** callbacks)
{
    return MatShellGetContext(shell, callbacks);
}

template <class Function>
PetscErrorCode set_operation(Mat shell, MatOperation operation, Function* function)
{
    return MatShellSetOperation(shell, operation, reinterpret_cast<void (*)()>(function));
}

}  // namespace

PetscErrorCode Callbacks::create(MPI_Comm comm)
{
    PetscFunctionBeginUser;
    const auto nw = objective_.numel();
    PetscCall(VecCreateMPI(comm, PETSC_DECIDE, static_cast<PetscInt>(nw), &weights_));
    PetscCall(VecScatterCreateToAll(weights_, &to_all_, &all_));
    for (auto* whole : {&at_, &argument_, &result_}) whole->resize(nw);
    PetscFunctionReturn(0);
}

PetscErrorCode Callbacks::destroy()
{
    PetscFunctionBeginUser;
    PetscCall(MatDestroy(&shell_));
    PetscCall(VecDestroy(&residuals_));
    PetscCall(VecScatterDestroy(&to_all_));
    PetscCall(VecDestroy(&all_));
    PetscCall(VecDestroy(&weights_));
    PetscFunctionReturn(0);
}

PetscErrorCode Callbacks::attach_objective(Tao tao)
{
    PetscFunctionBeginUser;
    PetscInt own = 0;
    PetscCall(VecGetLocalSize(weights_, &own));
    PetscCall(MatCreateShell(PetscObjectComm((PetscObject)weights_),
                             own,
                             own,
                             PETSC_DETERMINE,
                             PETSC_DETERMINE,
                             this,
                             &shell_));
    PetscCall(set_operation(shell_, MATOP_MULT, hessian_product));
    PetscCall(set_operation(shell_, MATOP_MULT_TRANSPOSE, hessian_product));
    PetscCall(MatSetOption(shell_, MAT_SYMMETRIC, PETSC_TRUE));
    PetscCall(TaoSetSolution(tao, weights_));
    PetscCall(TaoSetObjective(tao, objective, this));
    PetscCall(TaoSetObjectiveAndGradient(tao, nullptr, objective_and_gradient, this));
    PetscCall(TaoSetHessian(tao, shell_, shell_, move, this));
    PetscFunctionReturn(0);
}

PetscErrorCode Callbacks::attach_least_squares(Tao tao)
{
    PetscFunctionBeginUser;
    const MPI_Comm comm = PetscObjectComm((PetscObject)weights_);
    const auto rows = static_cast<PetscInt>(objective_.own_residuals());
    PetscInt own = 0;
    PetscCall(VecGetLocalSize(weights_, &own));
    PetscCall(VecCreateMPI(comm, rows, PETSC_DETERMINE, &residuals_));
    PetscCall(MatCreateShell(comm, rows, own, PETSC_DETERMINE, PETSC_DETERMINE, this, &shell_));
    PetscCall(set_operation(shell_, MATOP_MULT, jacobian_product));
    PetscCall(set_operation(shell_, MATOP_MULT_TRANSPOSE, transposed_product));
    PetscCall(TaoSetSolution(tao, weights_));
    PetscCall(TaoSetResidualRoutine(tao, residuals_, residuals, this));
    PetscCall(TaoSetJacobianResidualRoutine(tao, shell_, shell_, move, this));
    PetscFunctionReturn(0);
}

PetscErrorCode Callbacks::test_jacobian(PetscBool* product_agrees, PetscBool* transposed_agrees)
{
    PetscFunctionBeginUser;
    const auto function = [](void* self, Vec x, Vec r) { return of(self).compute_residuals(x, r); };
    PetscCall(gather(weights_, at_));
    PetscCall(MatShellTestMult(shell_, function, weights_, this, product_agrees));
    PetscCall(MatShellTestMultTranspose(shell_, function, weights_, this, transposed_agrees));
    PetscFunctionReturn(0);
}

PetscErrorCode Callbacks::objective(Tao, Vec x, PetscReal* f, void* context)
{
    PetscFunctionBeginUser;
    Callbacks& self = of(context);
    PetscCall(self.gather(x, self.argument_));
    PetscCall(guarded([&] { *f = self.objective_.value(self.argument_.data()); }));
    PetscFunctionReturn(0);
}

PetscErrorCode Callbacks::objective_and_gradient(Tao, Vec x, PetscReal* f, Vec g, void* context)
{
    PetscFunctionBeginUser;
    Callbacks& self = of(context);
    PetscCall(self.gather(x, self.argument_));
    PetscCall(guarded(
        [&] { *f = self.objective_.gradient(self.argument_.data(), self.result_.data()); }));
    PetscCall(self.keep_own(self.result_, g));
    PetscFunctionReturn(0);
}

/// The shell holds no numbers: to compute it is to remember where it is.
PetscErrorCode Callbacks::move(Tao, Vec x, Mat shell, Mat, void* context)
{
    PetscFunctionBeginUser;
    Callbacks& self = of(context);
    PetscCall(self.gather(x, self.at_));
    PetscCall(MatAssemblyBegin(shell, MAT_FINAL_ASSEMBLY));
    PetscCall(MatAssemblyEnd(shell, MAT_FINAL_ASSEMBLY));
    PetscFunctionReturn(0);
}

PetscErrorCode Callbacks::hessian_product(Mat shell, Vec v, Vec hv)
{
    PetscFunctionBeginUser;
    Callbacks* self = nullptr;
    PetscCall(of_shell(shell, &self));
    PetscCall(self->gather(v, self->argument_));
    PetscCall(guarded([&] {
        self->objective_.hessian_product(
            self->at_.data(), self->argument_.data(), self->result_.data());
    }));
    PetscCall(self->keep_own(self->result_, hv));
    PetscFunctionReturn(0);
}

PetscErrorCode Callbacks::residuals(Tao, Vec x, Vec r, void* self)
{
    return of(self).compute_residuals(x, r);
}

PetscErrorCode Callbacks::compute_residuals(Vec x, Vec r)
{
    PetscFunctionBeginUser;
    double* own = nullptr;
    PetscCall(gather(x, argument_));
    PetscCall(VecGetArrayWrite(r, &own));
    PetscCall(guarded([&] { objective_.residuals(argument_.data(), own); }));
    PetscCall(VecRestoreArrayWrite(r, &own));
    PetscFunctionReturn(0);
}

PetscErrorCode Callbacks::jacobian_product(Mat shell, Vec v, Vec jv)
{
    PetscFunctionBeginUser;
    Callbacks* self = nullptr;
    double* own = nullptr;
    PetscCall(of_shell(shell, &self));
    PetscCall(self->gather(v, self->argument_));
    PetscCall(VecGetArrayWrite(jv, &own));
    PetscCall(guarded(
        [&] { self->objective_.jacobian_product(self->at_.data(), self->argument_.data(), own); }));
    PetscCall(VecRestoreArrayWrite(jv, &own));
    PetscFunctionReturn(0);
}

PetscErrorCode Callbacks::transposed_product(Mat shell, Vec u, Vec g)
{
    PetscFunctionBeginUser;
    Callbacks* self = nullptr;
    const double* own = nullptr;
    PetscCall(of_shell(shell, &self));
    PetscCall(VecGetArrayRead(u, &own));
    PetscCall(guarded(
        [&] { self->objective_.transposed_product(self->at_.data(), own, self->result_.data()); }));
    PetscCall(VecRestoreArrayRead(u, &own));
    PetscCall(self->keep_own(self->result_, g));
    PetscFunctionReturn(0);
}

PetscErrorCode Callbacks::gather(Vec from, std::vector<double>& to)
{
    PetscFunctionBeginUser;
    const double* numbers = nullptr;
    PetscCall(VecScatterBegin(to_all_, from, all_, INSERT_VALUES, SCATTER_FORWARD));
    PetscCall(VecScatterEnd(to_all_, from, all_, INSERT_VALUES, SCATTER_FORWARD));
    PetscCall(VecGetArrayRead(all_, &numbers));
    std::copy_n(numbers, to.size(), to.begin());
    PetscCall(VecRestoreArrayRead(all_, &numbers));
    PetscFunctionReturn(0);
}

PetscErrorCode Callbacks::keep_own(const std::vector<double>& from, Vec to) const
{
    PetscFunctionBeginUser;
    double* own = nullptr;
    PetscInt begin = 0;
    PetscInt end = 0;
    PetscCall(VecGetOwnershipRange(to, &begin, &end));
    PetscCall(VecGetArrayWrite(to, &own));
    std::copy(from.begin() + begin, from.begin() + end, own);
    PetscCall(VecRestoreArrayWrite(to, &own));
    PetscFunctionReturn(0);
}

}  // namespace vemkn_tao
