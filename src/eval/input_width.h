#pragma once

#include "api/messages.h"
#include "model/model.h"

namespace VEMKN {

// Ends the process when a batch has more columns than the network takes or its first weight matrix has rows. Stands
// before any team is opened: ending the process from a worker would not be safe.
template <class Model>
void check_input_width(const Model& net, std::size_t ncols)
{
    const auto refuse = [&](std::size_t limit) {
        write_error(message("too many predicates: ", ncols, " > ", limit, "\n"));
        stop("too many predicates");
    };
    if (net.numin < ncols) refuse(net.numin);
    if (net.weights[0].rows() < ncols) refuse(net.weights[0].rows());
}

}  // namespace VEMKN
