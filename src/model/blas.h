#pragma once

#include <algorithm>
#include <bit>

#include "model/linear.h"
#include "runtime/messages.h"

namespace VEMKN {

// One factor of a product: some elements of a stored matrix, to be used as they stand or transposed.
struct Factor : StridedView {
    bool transposed = false;

    Factor(const StridedView& elements) : StridedView(elements) {}

    Factor(const RowsView& m) : Factor(view_of(m)) {}

    template <class Store>
    Factor(const DoubleMatrix<Store>& m) : Factor(RowsView(m))
    {
    }

    Factor(const WeightsView& m) : Factor(RowsView(m)) {}

    // Shape as used.
    std::size_t used_rows() const { return transposed ? cols : rows; }

    std::size_t used_cols() const { return transposed ? rows : cols; }

    // Some rows, or columns, of the factor as used.
    Factor cut_rows(std::size_t first, std::size_t n) const { return cut(first, n, !transposed); }

    Factor cut_cols(std::size_t first, std::size_t n) const { return cut(first, n, transposed); }

private:
    Factor cut(std::size_t first, std::size_t n, bool stored_rows) const
    {
        Factor part = *this;
        part.data += first * (stored_rows ? pitch : 1);
        (stored_rows ? part.rows : part.cols) = n;
        return part;
    }
};

inline Factor transposed(Factor f)
{
    f.transposed = !f.transposed;
    return f;
}

// Who forms a product: our kernels, whose bits are the same on every processor, or OpenBLAS, which is faster where matrices
// are large.
enum class By { kernels, blas };

// What holds for all products of a layer of that many inputs and outputs, whatever the rows, tangents and cotangents.
constexpr By products_of_layer(std::size_t inputs, std::size_t outputs)
{
    constexpr std::size_t WIDEST = 384;
    return std::max(inputs, outputs) <= WIDEST ? By::kernels : By::blas;
}

// The same for a layer with those weights.
template <class Weights>
By products_with(const Weights& W)
{
    return products_of_layer(W.rows(), W.cols());
}

// Whether any layer leaves its products to OpenBLAS.
template <class Model>
bool multiplies_by_blas(const Model& net)
{
    return std::any_of(net.weights.begin(), net.weights.end(), [](const auto& W) {
        return products_with(W) == By::blas;
    });
}

// While one of these lives with `on` set, the calling thread leaves no product to OpenBLAS. Its kernels compute with
// whole registers: in the lanes beyond a matrix's edge an infinite factor meets a zero, which raises an exception that
// the product itself does not. So a call with traps whose arrays hold an infinity does without them.
class WithoutBlas {
public:
    explicit WithoutBlas(bool on);
    ~WithoutBlas();
    WithoutBlas(const WithoutBlas&) = delete;
    WithoutBlas& operator=(const WithoutBlas&) = delete;

    // Whether the calling thread does so.
    static bool here();

private:
    bool before_;
};

// A sum over rows that is not cut into parts.
inline constexpr std::size_t WHOLE = SIZE_MAX;

// C = A*B, or C += A*B: the one place that calls BLAS. A is m x k, B k x n as used, C m x n, its rows `pitch` apart, or n.
// A zero inner dimension gives zeros. With overwrite the old contents of C do not matter, NaN included. To add, our kernels
// form the products of `part` rows of B each, and add them one after the other. BLAS does not go on from C, and knows no
// parts: it forms the product and adds it.
void product(const Factor& A,
             const Factor& B,
             double* C,
             std::size_t pitch,
             Into into = Into::overwrite,
             By by = By::kernels,
             std::size_t part = WHOLE);

inline void product(
    const Factor& A, const Factor& B, double* C, Into into = Into::overwrite, By by = By::kernels)
{
    product(A, B, C, B.used_cols(), into, by);
}

// C = A*B. C is resized.
template <class Store>
void do_mult(const RowsView& A, const RowsView& B, DoubleMatrix<Store>& C, By by = By::kernels)
{
    C.resize(A.rows, B.cols);
    product(A, B, C.data(), Into::overwrite, by);
}

// C = A*B with one factor transposed. C is resized.
template <class Store>
void do_binmult(DoubleMatrix<Store>& C, const Factor& A, const Factor& B, By by = By::kernels)
{
    C.resize(A.used_rows(), B.used_cols());
    product(A, B, C.data(), Into::overwrite, by);
}

// body(from, to, length) for rows of n numbers here and there, which lie that far apart; for all at once where they follow one
// another.
template <class Body>
void for_each_row(const double* from,
                  std::size_t from_pitch,
                  double* to,
                  std::size_t to_pitch,
                  std::size_t rows,
                  std::size_t n,
                  const Body& body)
{
    const bool gaps = from_pitch != n || to_pitch != n;
    const std::size_t runs = gaps ? rows : 1, length = gaps ? n : rows * n;
    for (std::size_t r = 0; r < runs; ++r) body(from + r * from_pitch, to + r * to_pitch, length);
}

// Rows of n numbers += others.
inline void add_rows(const double* from,
                     std::size_t from_pitch,
                     double* to,
                     std::size_t to_pitch,
                     std::size_t rows,
                     std::size_t n)
{
    for_each_row(from, from_pitch, to, to_pitch, rows, n, kernels().add);
}

// Rows of n numbers = others.
inline void copy_rows(const double* from,
                      std::size_t from_pitch,
                      double* to,
                      std::size_t to_pitch,
                      std::size_t rows,
                      std::size_t n)
{
    const auto copy = [](const double* a, double* b, std::size_t length) {
        std::copy_n(a, length, b);
    };
    for_each_row(from, from_pitch, to, to_pitch, rows, n, copy);
}

// C += P for a rows x cols product P, the rows of C `pitch` apart. form(first, n, to) writes n rows of P; they are formed
// first and then added, a panel at a time so that it is added from cache. room holds a panel and grows to it.
template <class Store, class Form>
void add_in_panels(double* C,
                   std::size_t pitch,
                   std::size_t rows,
                   std::size_t cols,
                   std::size_t panel,
                   Store& room,
                   const Form& form)
{
    const std::size_t largest = std::min(panel, rows) * cols;
    if (room.size() < largest) set_size(room, largest);
    for (std::size_t first = 0; first < rows; first += panel) {
        const std::size_t n = std::min(panel, rows - first);
        form(first, n, std::begin(room));
        add_rows(std::begin(room), cols, C + first * pitch, pitch, n, cols);
    }
}

// How many rows of a matrix of sums are formed at a time: it depends on their length alone, so that the sums have the same bits
// whole and cut. A power of two, so that what is cut for a row of values fits rows of derivatives.
inline std::size_t rows_of_a_sum(std::size_t cols)
{
    constexpr std::size_t NUMBERS = 8192, LEAST = 32;
    return std::max(LEAST, std::bit_floor(NUMBERS / std::max<std::size_t>(cols, 1)));
}

// C += A*B, the product formed first, or the products of `part` rows of B each, one after the other; the rows of C are `pitch`
// apart. Where OpenBLAS forms it there is one part, in panels that room holds.
template <class Store>
void add_product(double* C,
                 std::size_t pitch,
                 const Factor& A,
                 const Factor& B,
                 Store& room,
                 By by,
                 std::size_t part = WHOLE)
{
    if (by == By::kernels) return product(A, B, C, pitch, Into::add, by, part);
    const std::size_t cols = B.used_cols();
    if (cols == 0) return;
    const auto form = [&](std::size_t first, std::size_t rows, double* panel) {
        product(A.cut_rows(first, rows), B, panel, Into::overwrite, by);
    };
    add_in_panels(C, pitch, A.used_rows(), cols, rows_of_a_sum(cols), room, form);
}

// The same in a range of the rows of C, which has its shape. Where OpenBLAS forms it, a range begins at a multiple of rows_of_a_sum.
template <class Store>
void do_binmult_add(DoubleMatrix<Store>& C,
                    const Factor& A,
                    const Factor& B,
                    DoubleMatrix<Store>& room,
                    By by,
                    std::size_t part,
                    const RowRange& range)
{
    double* const to = C.data() + range.first * C.cols();
    add_product(to, C.cols(), A.cut_rows(range.first, range.count), B, room.store(), by, part);
}

template <class Store>
void do_binmult_add(DoubleMatrix<Store>& C,
                    const Factor& A,
                    const Factor& B,
                    DoubleMatrix<Store>& room,
                    By by = By::kernels,
                    std::size_t part = WHOLE)
{
    do_binmult_add(C, A, B, room, by, part, {0, C.rows()});
}

// C = A + b: element by element where b has as many entries as A has elements, else b on every row of A where
// b has as many entries as A has columns; else "invalid dims\n" on standard error and C keeps the values of A.
// Returns whether the sum was formed.
// C may be A.
template <class Store, class Numbers = Store>
bool do_binplus(DoubleMatrix<Store>& C, const DoubleMatrix<Store>& A, const Numbers& b)
{
    if (&C != &A) C = A;
    if (b.size() == C.size()) {
        kernels().add(elements(b), C.data(), C.size());
    } else if (b.size() == C.cols()) {
        kernels().add_to_rows(elements(b), {C.data(), C.rows(), C.cols(), C.cols()});
    } else {
        write_error("invalid dims\n");
        return false;
    }
    return true;
}

}  // namespace VEMKN
