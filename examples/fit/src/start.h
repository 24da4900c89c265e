#ifndef VEMKN_FIT_START_H
#define VEMKN_FIT_START_H

#include "../../common/random.h"
#include "network.h"

namespace fit {

using examples::Random;

/** Random weights of the size that suits each layer's width, and output biases that bring the median
 * of every output to that of its target. Without the latter a robust likelihood may start with all
 * rows in its flat tails, where nothing pulls.
 * The biases are found by bisection through the network, as its activation acts on them. */
Vector starting_weights(const Network& network, const Batch& batch, Random& random);

}  // namespace fit

#endif
