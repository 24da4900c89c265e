#pragma once

#include <array>
#include <optional>
#include <string_view>
#include <tuple>

#include "eval/activations.h"
#include "eval/block_row_loops.h"
#include "eval/element_loops.h"
#include "eval/norms.h"
#include "fad/element_loops.h"
#include "fad/elementary/element_loops.h"
#include "model/model.h"

// The functions that a description may name, for one type of models: every row of eval/activations.h and eval/norms.h with
// the forward routine and the adjoint that its element function gives. How a matrix applies an element function stands in
// the element loops of its kind.

namespace VEMKN {

namespace tables {

template <class Pair>
struct ActivationRow {
    std::string_view word;
    Pair pair;
};

template <class SummingPair, class ElementPair>
struct NormRow {
    std::string_view word;
    LogpConstants logp;
    SummingPair summing;
    ElementPair element;
};

// The rows that row(entry) gives for the entries of a list.
template <class List, class Row>
constexpr auto rows_of(const List& list, const Row& row)
{
    return std::apply([&](const auto&... entry) { return std::array{row(entry)...}; }, list);
}

// What the pointers of a model point to.
template <class Model, class F>
struct Routines {
    using Matrix = typename Model::Matrix;
    using Vector = typename Model::Vector;
    using SValue = typename Model::SValue;
    using Saved = typename Model::Saved;
    using Adjoint = typename Model::Adjoint;
    using AdjointVector = typename Model::AdjointVector;

    static void activation(const Matrix& x, Matrix& y, Saved& saved) { apply<F>(x, y, saved); }

    static void adj_activation(const Matrix& x,
                               const Saved& saved,
                               const Adjoint& ybar,
                               Adjoint& xbar)
    {
        adj_apply<F>(x, saved, ybar, xbar);
    }

    static void summing_norm(const Matrix& R, SValue& s) { sum_of<F>(R, s); }

    static void adj_summing_norm(const Matrix& R, const SValue& sbar, Matrix& Rbar)
    {
        adj_apply_same<F>(R, sbar, Rbar);
    }

    static void element_norm(const Matrix& R, Vector& v) { apply_to<F>(R, v); }

    static void adj_element_norm(const Matrix& R, const AdjointVector& vbar, Adjoint& Rbar)
    {
        adj_apply_each<F>(R, vbar, Rbar);
    }
};

template <class Model>
inline constexpr auto ACTIVATION_ROWS =
    rows_of(ACTIVATIONS, []<class F>(const ActivationWord<F>& entry) {
        using Of = Routines<Model, F>;
        return ActivationRow<typename Model::ActivationPair>{entry.word,
                                                             {Of::activation, Of::adj_activation}};
    });

template <class Model>
inline constexpr auto NORM_ROWS = rows_of(NORMS, []<class F>(const NormWord<F>& entry) {
    using Of = Routines<Model, F>;
    return NormRow<typename Model::SummingNormPair, typename Model::ElementNormPair>{
        entry.word,
        entry.logp,
        {Of::summing_norm, Of::adj_summing_norm},
        {Of::element_norm, Of::adj_element_norm}};
});

}  // namespace tables

// The rows of the functions that a description names, which are the same for every type of models.
struct FunctionRows {
    std::size_t activation = 0;  // the first one for an unknown name
    std::optional<std::size_t> norm;
};

FunctionRows function_rows(std::string_view activation_name, std::string_view norm_name);

// Gives a model its functions; without a known norm it has none.
template <class Model>
void set_functions(const FunctionRows& rows, Model& net)
{
    net.activation = tables::ACTIVATION_ROWS<Model>[rows.activation].pair;
    if (!rows.norm) return;
    const auto& norm = tables::NORM_ROWS<Model>[*rows.norm];
    net.summing_norm = norm.summing;
    net.element_norm = norm.element;
}

// The constants that go with the norm, or with an unknown one.
LogpConstants logp_of(const FunctionRows& rows);

}  // namespace VEMKN
