#pragma once

#include <type_traits>

#include "fad/elementary/operations.h"

// Lazy expressions over vector carriers: a node records an operation, fetch() evaluates it. Nested nodes are evaluated
// inside out. A node refers to its carriers, which must outlive it, and holds its inner nodes and its numbers.

namespace yafad {

enum EFunction { ADD_SCALAR = 1, NEGATE = 2, MULTIPLY = 3, DIVIDE_SCALAR = 4, EXP = 5, LOG = 6 };

template <class T>
using Operand = std::conditional_t<std::is_same_v<T, VectorCarrier>, const VectorCarrier&, const T>;

// An operand as a carrier: itself, or what the node gives.
inline const VectorCarrier& evaluated(const VectorCarrier& x)
{
    return x;
}

template <class Node>
VectorCarrier evaluated(const Node& node)
{
    VectorCarrier result;
    node.fetch(result);
    return result;
}

// NEGATE, EXP or LOG of one operand.
template <class T, EFunction Function>
struct ExpResult {
    Operand<T> operand;

    void fetch(VectorCarrier& result) const
    {
        const VectorCarrier& t = evaluated(operand);
        if constexpr (Function == NEGATE) {
            result = t;
            each_part([](std::valarray<double>& part) { part = -part; }, result);
        } else if constexpr (Function == EXP) {
            do_exp(result, t);
        } else {
            static_assert(Function == LOG);
            do_log(result, t);
        }
    }
};

// ADD_SCALAR and DIVIDE_SCALAR of an operand and a double, MULTIPLY of two operands.
template <class T1, class T2, EFunction Function>
struct ExpResult2 {
    Operand<T1> left;
    Operand<T2> right;

    void fetch(VectorCarrier& result) const
    {
        const VectorCarrier& a = evaluated(left);
        if constexpr (Function == ADD_SCALAR) {
            result = a;
            result.value += right;
        } else if constexpr (Function == DIVIDE_SCALAR) {
            result = a;
            each_part([&](std::valarray<double>& part) { part /= right; }, result);
        } else {
            static_assert(Function == MULTIPLY);
            const VectorCarrier& b = evaluated(right);
            VectorCarrier product;
            product.set_tangents(a.tangents());
            product.value = a.value * b.value;
            for (std::size_t k = 0; k < a.tangents(); ++k) {
                product.derivatives[k] = a.derivatives[k] * b.value + a.value * b.derivatives[k];
            }
            result = std::move(product);
        }
    }

    operator VectorCarrier() const { return evaluated(*this); }
};

// What can stand in an expression.
template <class T>
inline constexpr bool IS_EXPRESSION = std::is_same_v<T, VectorCarrier>;
template <class T, EFunction F>
inline constexpr bool IS_EXPRESSION<ExpResult<T, F>> = true;
template <class T1, class T2, EFunction F>
inline constexpr bool IS_EXPRESSION<ExpResult2<T1, T2, F>> = true;

template <class T>
concept Expression = IS_EXPRESSION<T>;

template <Expression T>
ExpResult2<T, double, ADD_SCALAR> operator+(const T& t, double c)
{
    return {t, c};
}

template <Expression T>
ExpResult<T, NEGATE> operator-(const T& t)
{
    return {t};
}

template <Expression T1, Expression T2>
ExpResult2<T1, T2, MULTIPLY> operator*(const T1& a, const T2& b)
{
    return {a, b};
}

template <Expression T>
ExpResult2<T, double, DIVIDE_SCALAR> operator/(const T& t, double c)
{
    return {t, c};
}

template <Expression T>
ExpResult<T, EXP> exp(const T& t)
{
    return {t};
}

template <Expression T>
ExpResult<T, LOG> log(const T& t)
{
    return {t};
}

}  // namespace yafad
