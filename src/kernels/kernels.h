#pragma once

#include <cstddef>

#include "eval/element_functions.h"

// Loops over arrays of doubles, compiled once for each instruction set that the library knows, chosen once when it is
// loaded. Arrays may be the same, but not overlap otherwise. All of them handle n = 0.

namespace VEMKN {

// Where n derivatives of a rows x cols matrix lie, or n adjoints: those of row r in derivative k begin at r*pitch + k*step.
// The cols numbers from there belong to the row of the matrix, whose rows follow one another without gaps.
struct SideBySide {
    std::size_t rows, cols, n, step, pitch;
};

// The loops of one element function; see eval/element_functions.h for what they compute. t is what inner() gave for x, or x
// itself where there is no inner function, and inner then null.
struct ElementKernels {
    void (*inner)(const double* x, double* t, std::size_t n);
    void (*value)(const double* x, const double* t, double* y, std::size_t n);
    void (*pull)(const double* x, const double* t, const double* ybar, double* xbar, std::size_t n);
    // xbar_k = pull(x, t, ybar_k) for every derivative or adjoint k
    void (*pull_each)(const double* x,
                      const double* t,
                      const double* ybar,
                      double* xbar,
                      const SideBySide& shape);
};

// The further loops of one that is not piecewise linear.
struct SmoothKernels : ElementKernels {
    void (*value_slope)(const double* x, const double* t, double* y, double* slope, std::size_t n);
    void (*pull_slope_bend)(const double* x,
                            const double* t,
                            const double* ybar,
                            double* xbar,
                            double* slope,
                            double* bend,
                            std::size_t n);
    // dxbar_k = adj_tangent(x, slope, dybar_k, bend, dx_k) for every derivative k
    void (*adj_tangent)(const double* x,
                        const double* slope,
                        const double* bend,
                        const double* dybar,
                        const double* dx,
                        double* dxbar,
                        const SideBySide& shape);
};

struct Kernels {
    const char* name;
    ElementKernels id;
    ElementKernels relu;
    SmoothKernels atan;
    SmoothKernels softplus;
    SmoothKernels log_dnorm;

    // to_k = a * b_k for every derivative k
    void (*multiply_each)(const double* a, const double* b, double* to, const SideBySide& shape);
    // to += a
    void (*add)(const double* a, double* to, std::size_t n);
    // to -= a
    void (*subtract)(const double* a, double* to, std::size_t n);
    // whether no element of a is infinite or NaN
    bool (*all_finite)(const double* a, std::size_t n);
    // every row of the rows x cols matrix to, `pitch` apart, += a
    void (*add_to_rows)(
        const double* a, double* to, std::size_t rows, std::size_t cols, std::size_t pitch);
    // to = sum of the rows of the rows x cols matrix a, `pitch` apart, from the last to the first; at least one row
    void (*sum_columns)(
        const double* a, std::size_t rows, std::size_t cols, std::size_t pitch, double* to);

    // Products of a rows x cols matrix A whose rows are `pitch` apart, and the outer product of two vectors. Neighbouring
    // elements of the vectors x, y and a are so many steps apart, where a step is told. Results are written, or added.

    // y = A*x
    void (*times_vector)(const double* A,
                         std::size_t pitch,
                         std::size_t rows,
                         std::size_t cols,
                         const double* x,
                         double* y,
                         std::size_t y_step,
                         bool add);
    // y = A^T*x
    void (*transposed_times_vector)(const double* A,
                                    std::size_t pitch,
                                    std::size_t rows,
                                    std::size_t cols,
                                    const double* x,
                                    std::size_t x_step,
                                    double* y,
                                    std::size_t y_step,
                                    bool add);
    // C = a*b^T, whose rows are `pitch` apart
    void (*outer_product)(const double* a,
                          std::size_t a_step,
                          std::size_t rows,
                          const double* b,
                          std::size_t cols,
                          double* C,
                          std::size_t pitch,
                          bool add);
};

enum class InstructionSet { sse2, avx2, avx512 };

// The best that this processor runs.
InstructionSet best_instruction_set();

// The kernels of one instruction set, which the processor must have.
const Kernels& kernels_of(InstructionSet set);

// The kernels in use.
const Kernels& kernels();

// The loops of element function F.
template <class F>
const auto& element_kernels();

template <>
inline const auto& element_kernels<Id>()
{
    return kernels().id;
}

template <>
inline const auto& element_kernels<Relu>()
{
    return kernels().relu;
}

template <>
inline const auto& element_kernels<Atan>()
{
    return kernels().atan;
}

template <>
inline const auto& element_kernels<Softplus>()
{
    return kernels().softplus;
}

template <>
inline const auto& element_kernels<LogDnorm>()
{
    return kernels().log_dnorm;
}

}  // namespace VEMKN
