#pragma once

#include "fad/active.h"
#include "fad/elementary/fad1.h"
#include "model/model.h"

namespace VEMKN {

// The second model of a handle.
using CarrierModel =
    NNTemplate<yafad::MatrixCarrier, yafad::VectorCarrier, yafad::FO::Dynamic::Active<1>>;

}  // namespace VEMKN
