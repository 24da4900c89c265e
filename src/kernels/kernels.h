#pragma once

#include <cstddef>

#include "kernels/element_functions.h"

// Loops over arrays of doubles, compiled once for each instruction set that the library knows, chosen once when it is
// loaded. Arrays may be the same, but not overlap otherwise. All of them handle n = 0, but for a
// product, which has at least one row, one column and one term.

namespace VEMKN {

// Where n derivatives of a rows x cols matrix lie, or n adjoints: those of row r in derivative k begin at r*pitch + k*step.
// The cols numbers from there belong to the row of the matrix, whose rows follow one another without gaps.
struct SideBySide {
    std::size_t rows, cols, n, step, pitch;
};

// A rows x cols matrix whose rows are `pitch` apart.
template <class T>
struct StridedMatrix {
    T* data = nullptr;
    std::size_t rows = 0, cols = 0, pitch = 0;
};

using StridedView = StridedMatrix<const double>;

// The loops of one element function; see kernels/element_functions.h for what they compute. `saved` is what saved() gave for
// x, or x itself for a function that saves nothing. Null where the function does not have it.
struct ElementKernels {
    void (*saved)(const double* x, double* saved, std::size_t n);
    void (*value)(const double* x, const double* saved, double* y, std::size_t n);
    void (*vjp)(
        const double* x, const double* saved, const double* ybar, double* xbar, std::size_t n);
    // xbar_k = vjp(x, saved, ybar_k) for every derivative or adjoint k
    void (*vjp_each)(const double* x,
                     const double* saved,
                     const double* ybar,
                     double* xbar,
                     const SideBySide& shape);

    void (*value_term)(
        const double* x, const double* saved, double* y, double* term, std::size_t n);
    // dy_k = tangent(x, term, dx_k) for every derivative k
    void (*tangent)(
        const double* x, const double* term, const double* dx, double* dy, const SideBySide& shape);
    void (*vjp_terms)(const double* x,
                      const double* saved,
                      const double* ybar,
                      double* xbar,
                      double* term,
                      double* ybar_term,
                      std::size_t n);
    // dxbar_k = vjp_tangent(x, term, dybar_k, ybar_term, dx_k) for every derivative k
    void (*vjp_tangent)(const double* x,
                        const double* term,
                        const double* ybar_term,
                        const double* dybar,
                        const double* dx,
                        double* dxbar,
                        const SideBySide& shape);
};

template <class F>
struct KernelsOf : ElementKernels {
};

template <class List>
struct ElementTable;

template <class... F>
struct ElementTable<FunctionList<F...>> : KernelsOf<F>... {
};

// A sum replaces what stands there; is formed and then added to it, cut into parts that are formed and added one after the other;
// or goes on from it.
enum class Into { overwrite, add, go_on };

// A product: A is rows x inner, its element (i, l) at a[i*a_row + l*a_inner]; B is inner x cols and C rows x cols likewise. One
// of the two steps of A is 1, and one of those of B. To be added it is cut into products of `part` terms each, the last one of
// what remains.
struct ProductOf {
    const double* a;
    std::size_t a_row, a_inner;
    const double* b;
    std::size_t b_inner, b_col;
    double* c;
    std::size_t c_row, c_col;
    std::size_t rows, cols, inner;
    Into into;
    std::size_t part;
};

struct Kernels {
    const char* name;
    ElementTable<ElementFunctions> elements;

    // to += a
    void (*add)(const double* a, double* to, std::size_t n);
    // to -= a
    void (*subtract)(const double* a, double* to, std::size_t n);
    // whether no element of a is infinite or NaN
    bool (*all_finite)(const double* a, std::size_t n);
    // every row of `to` += a
    void (*add_to_rows)(const double* a, const StridedMatrix<double>& to);
    // to = sum of the rows of A, from the last to the first; at least one row. One that goes on starts with what `to` holds,
    // the sum of rows that come after these
    void (*sum_columns)(const StridedView& A, double* to, bool go_on);
    // to += such sums of `part` rows of A each, the last of what remains, one part after the other
    void (*add_column_sums)(const StridedView& A, std::size_t part, double* to);

    // C = A*B, or into C, each element of the product one chain of fused multiply-adds over the inner dimension, in ascending
    // order from zero.
    void (*product)(const ProductOf& factors);
};

// Those that the kernels are compiled for, in ascending order: on x86-64 baseline is for any processor; on aarch64 there is one, which
// every processor has.
#ifdef __x86_64__
enum class InstructionSet { baseline, sse4, avx2, avx512 };
inline constexpr InstructionSet INSTRUCTION_SETS[] = {
    InstructionSet::baseline, InstructionSet::sse4, InstructionSet::avx2, InstructionSet::avx512};
#else
enum class InstructionSet { neon };
inline constexpr InstructionSet INSTRUCTION_SETS[] = {InstructionSet::neon};
#endif

// Whether it has fused multiply-adds. All that do give the same bits.
constexpr bool is_fused(InstructionSet set)
{
#ifdef __x86_64__
    return set >= InstructionSet::avx2;
#else
    return set == InstructionSet::neon;
#endif
}

// Whether this processor runs its kernels.
bool processor_has(InstructionSet set);

// The best that it runs.
InstructionSet best_instruction_set();

// The kernels of one instruction set, which the processor must have.
const Kernels& kernels_of(InstructionSet set);

// The kernels in use.
const Kernels& kernels();

// The loops of element function F: of one table, and of the kernels in use.
template <class F>
const ElementKernels& element_kernels(const Kernels& of)
{
    return static_cast<const KernelsOf<F>&>(of.elements);
}

template <class F>
const ElementKernels& element_kernels()
{
    return element_kernels<F>(kernels());
}

}  // namespace VEMKN
