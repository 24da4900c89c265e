#pragma once

#include "model/model.h"
#include "runtime/messages.h"

namespace VEMKN {

// Ends the process when a batch has more columns than the network takes or its first weight matrix has rows. Every call
// asks once, before any team is opened: ending the process from a worker would not be safe. What runs the network
// afterwards takes the width for granted.
template <class Model>
void stop_if_too_wide(const Model& net, std::size_t cols)
{
    const auto stop_at = [&](std::size_t limit) {
        write_error(message("too many predicates: ", cols, " > ", limit, "\n"));
        stop("too many predicates");
    };
    if (net.numin < cols) stop_at(net.numin);
    if (net.weights[0].rows() < cols) stop_at(net.weights[0].rows());
}

}  // namespace VEMKN
