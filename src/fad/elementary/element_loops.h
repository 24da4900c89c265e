#pragma once

#include "fad/element_loops.h"
#include "fad/elementary/bundling.h"
#include "fad/elementary/linear.h"

// Element functions over carriers of separate derivatives, by way of bundles.

namespace yafad {

template <class F>
void apply(const MatrixCarrier& x, MatrixCarrier& y, MatrixTemplate<double>& saved)
{
    Bundle result = bundle(x);
    apply_to<F>(result, result);
    if (F::SAVES) {
        take_shape(x.value, saved);
        VEMKN::element_kernels<F>().saved(x.value.data(), saved.data(), x.size());
    }
    unbundle(result, y);
}

template <class F, class T>
void apply_to(const fad1<T>& x, VectorCarrier& v)
{
    Bundle result = bundle(x);
    apply_to<F>(result, result);
    fad1<T> y;
    unbundle(result, y);
    each_part(
        [](const T& from, std::valarray<double>& to) {
            std::copy_n(elements(from), from.size(), elements(to));
        },
        y,
        v);
}

template <class F, class T>
void sum_of(const fad1<T>& x, FO::Dynamic::Active<1>& s)
{
    sum_of<F>(bundle(x), s);
}

// Sum of the elements, from the first to the last.
inline FO::Dynamic::Active<1> sum(const VectorCarrier& v)
{
    FO::Dynamic::Active<1> s(0.0);
    sum_of<VEMKN::Id>(v, s);
    return s;
}

template <class F>
void adj_apply(const MatrixCarrier& x,
               const MatrixTemplate<double>& saved,
               const MatrixCarrier& ybar,
               MatrixCarrier& xbar)
{
    Bundle result;
    const WorkMatrix of_value(saved.data(), saved.rows(), saved.cols());
    adj_apply<F>(bundle(x), of_value, bundle(ybar), result);
    unbundle(result, xbar);
}

template <class F, class T>
void adj_apply_each(const fad1<T>& x, const VectorCarrier& ybar, fad1<T>& xbar)
{
    Bundle b = bundle(x), result;
    if constexpr (std::is_same_v<T, MatrixTemplate<double>>) {
        adj_apply_each<F>(b, bundle(asMatrix(ybar, x.rows(), x.cols())), result);
    } else {
        adj_apply_each<F>(b, bundle(ybar), result);
    }
    unbundle(result, xbar);
}

template <class F, class T>
void adj_apply_same(const fad1<T>& x, const FO::Dynamic::Active<1>& ybar, fad1<T>& xbar)
{
    Bundle result;
    adj_apply_same<F>(bundle(x), ybar, result);
    unbundle(result, xbar);
}

}  // namespace yafad
