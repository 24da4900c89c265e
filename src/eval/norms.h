#pragma once

#include <tuple>

#include "kernels/element_functions.h"

namespace VEMKN {

// A word of a description text, the element function that it stands for, and what a model with this norm says of its
// likelihood: vemk_logp_bias and vemk_logp_sigma. The element norm gives one value an element; the summing norm is its sum,
// from the first element to the last.
template <class F>
struct NormWord {
    using Function = F;

    // Both: no norm goes without saying what its constants are.
    constexpr NormWord(const char* of_description, LogpConstants of_likelihood)
        : word(of_description), logp(of_likelihood)
    {
    }

    const char* word;
    LogpConstants logp;
};

// What a model whose norm is no likelihood, or unknown, says of its likelihood.
inline constexpr LogpConstants LOGP_OF_EVERY_MODEL = LogDnorm::LOGP;

// The norms, in the order in which a description's word is compared with them. Function tables and the words that vemk_norms
// lists follow from this list.
// clang-format off
inline constexpr std::tuple NORMS{
    NormWord<LogDnorm>{"sum_log_dnorm_fat", LogDnorm::LOGP},      // -log f(R), f the density of the likelihood
    NormWord<Id>      {"sum",               LOGP_OF_EVERY_MODEL}, // R: signed, neither squares nor absolute values
};
// clang-format on

}  // namespace VEMKN
