#pragma once

#include "api/buffers.h"
#include "api/handle.h"
#include "fad/seeding.h"

namespace VEMKN {

// A copy of the handle's carrier model at the caller's weights (null: the handle's own ones, those of its double
// model), each with the caller's directions as derivatives.
inline CarrierModel with_tangents(const VEMKNInfo& net,
                                  const yafad::Seeding& seeding,
                                  const double* w,
                                  const double* v)
{
    CarrierModel model = net.derivative_model;
    const std::valarray<double> own =
        w == nullptr ? getweights(net.model) : std::valarray<double>();
    const double* const weights = w == nullptr ? std::begin(own) : w;
    for_each_parameter(
        model, [&](auto& part, std::size_t first) { seeding.seed(part, first, weights, v); });
    return model;
}

}  // namespace VEMKN
