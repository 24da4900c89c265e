#pragma once

#include <algorithm>

#include "api/batch.h"
#include "api/handle.h"
#include "eval/slices.h"
#include "runtime/call_memory.h"

namespace VEMKN {

// What a call takes memory for, by which the size of a block goes: a bound that holds for most networks. Where it does not, the
// thread takes another block; what is too much is not touched.
struct Needs {
    std::size_t rows = 0;            // that go through the network together
    std::size_t of_an_output = 0;    // numbers for each output of a layer and each of these rows
    std::size_t of_the_last = 0;     // numbers besides for each output of the last layer
    std::size_t of_a_parameter = 0;  // numbers for each weight and bias
    std::size_t of_results = 0;      // numbers of the calling thread alone
    bool are_swept = false;          // what all passes leave is kept, else that of two
};

// Rows of slices of which so many numbers are kept for each output of a layer.
inline std::size_t rows_together(const VEMKNInfo& net, const Batch& batch, std::size_t of_an_output)
{
    const Slices slices(batch.rows, net.model.batch);
    if (slices.single()) return batch.rows;
    return slices.rows(0, slices_together(net.model, slices, of_an_output)).count;
}

// Rows of a piece where nothing is summed over rows.
inline std::size_t rows_of_a_piece(const VEMKNInfo& net,
                                   const Batch& batch,
                                   std::size_t of_an_output)
{
    const Slices slices(batch.rows, net.model.batch);
    return pieces_of(net.model, slices, of_an_output, 1).most_rows();
}

inline std::size_t rows_of_a_chunk(const Batch& batch)
{
    return std::min<std::size_t>(batch.rows, ROWS_OF_A_CHUNK);
}

// What slices take that are differentiated: besides what is kept for every output, of those of the network the residuals and their
// adjoints, of all rows and of slices apart; of the parameters a gradient, that of a slice, and transposed weights.
//   numbers : of an entry
inline Needs needs_of_gradient(const VEMKNInfo& net, const Batch& batch, std::size_t numbers = 1)
{
    return {.rows = rows_together(net, batch, SWEPT_FOR_AN_OUTPUT * numbers),
            .of_an_output = (SWEPT_FOR_AN_OUTPUT + 1) * numbers,
            .of_the_last = 3 * numbers,
            .of_a_parameter = 3 * numbers,
            .are_swept = true};
}

// The bytes of a block for the calling thread, and for any further one.
inline BlockSizes block_sizes(const VEMKNInfo& net, const Needs& needs)
{
    // Arrays end in a line that is theirs alone; lists of them, and numbers of a row or two.
    constexpr std::size_t OF_AN_ARRAY = CACHE_LINE / sizeof(double), OF_A_LAYER = 48;
    const DoubleModel& model = net.model;
    const std::size_t chained = model.nmult == 1 ? 0 : model.nmult;
    const std::size_t passes =
        needs.are_swept ? model.nmult : std::min<std::size_t>(model.nmult, 2);
    std::size_t outputs = 0, parameters = 0, of_the_last = 0;
    for (std::size_t i = 0; i < model.weights.size(); ++i) {
        const std::size_t of_a_pass = needs.rows * model.weights[i].cols() + OF_AN_ARRAY;
        const std::size_t to_last = model.weights.size() - 1 - i;
        if (to_last == 0) of_the_last = needs.of_the_last * of_a_pass;
        if (to_last == 1) outputs += chained * of_a_pass;  // side by side
        outputs += (to_last == 0 ? 1 : passes) * of_a_pass;
        parameters += model.weights[i].size() + model.biases[i].size() + 2 * OF_AN_ARRAY;
    }
    const std::size_t of_lists = OF_A_LAYER * (model.weights.size() + 1);
    const std::size_t of_a_thread =
        of_lists + needs.of_an_output * outputs + of_the_last + needs.of_a_parameter * parameters;
    return {(of_a_thread + needs.of_results) * sizeof(double), of_a_thread * sizeof(double)};
}

}  // namespace VEMKN
