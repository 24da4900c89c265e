#pragma once

#include <tuple>

#include "kernels/element_functions.h"

namespace VEMKN {

// A word of a description text and the element function that it stands for.
template <class F>
struct ActivationWord {
    using Function = F;

    const char* word;
};

// The activations, in the order in which a description's word is compared with them. Function tables and the words that
// vemk_activations lists follow from this list. Deliberate: any other word is the first of them, without a message;
// "softmax" does not normalise, and "softplus_shifted" shifts nothing.
// clang-format off
inline constexpr std::tuple ACTIVATIONS{
    ActivationWord<Softplus>{"softplus"},          // y = log(1 + e^x)
    ActivationWord<Softplus>{"softmax"},           // y = log(1 + e^x)
    ActivationWord<Softplus>{"softplus_shifted"},  // y = log(1 + e^x)
    ActivationWord<Atan>{"atan"},                  // y = atan(x)
    ActivationWord<Relu>{"relu"},                  // y = max(x, 0)
    ActivationWord<Id>{"id"},                      // y = x
};
// clang-format on

}  // namespace VEMKN
