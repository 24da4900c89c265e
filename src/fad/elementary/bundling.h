#pragma once

#include <algorithm>
#include <type_traits>

#include "fad/bundle.h"
#include "fad/elementary/fad1.h"

namespace yafad {

// A carrier of separate derivatives as a bundle, and back.

template <class T>
void bundle(const fad1<T>& carrier, Bundle& b)
{
    if constexpr (std::is_same_v<T, MatrixTemplate<double>>) {
        b.set_shape(carrier.rows(), carrier.cols(), carrier.tangents());
    } else {
        b.set_shape(1, carrier.size(), carrier.tangents());
    }
    std::copy_n(elements(carrier.value), b.size(), b.value.data());
    for (std::size_t k = 0; k < b.tangents(); ++k) {
        const double* const from = elements(carrier.derivatives[k]);
        for (std::size_t r = 0; r < b.rows(); ++r) {
            std::copy_n(from + r * b.cols(), b.cols(), b.derivatives.at(k, r));
        }
    }
}

template <class T>
Bundle bundle(const fad1<T>& carrier)
{
    Bundle b;
    bundle(carrier, b);
    return b;
}

template <class T>
void unbundle(const Bundle& b, fad1<T>& carrier)
{
    const auto shape = [&](T& part) {
        if constexpr (std::is_same_v<T, MatrixTemplate<double>>) {
            part.resize(b.rows(), b.cols());
        } else {
            VEMKN::set_size(part, b.size());
        }
    };
    shape(carrier.value);
    std::copy_n(b.value.data(), b.size(), elements(carrier.value));
    carrier.set_tangents(b.tangents());
    for (std::size_t k = 0; k < b.tangents(); ++k) {
        shape(carrier.derivatives[k]);
        double* const to = elements(carrier.derivatives[k]);
        for (std::size_t r = 0; r < b.rows(); ++r) {
            std::copy_n(b.derivatives.at(k, r), b.cols(), to + r * b.cols());
        }
    }
}

}  // namespace yafad
