#pragma once

#include <algorithm>

#include "eval/forward.h"

namespace VEMKN {

// Groups of neighbouring cotangents, which are swept side by side: as few as keep each at no more than `most`, as equal as
// can be. They depend on nothing else, so that the number of threads does not show in the bits.
class CotangentGroups {
public:
    CotangentGroups(std::size_t cotangents, std::size_t most)
        : cotangents_(cotangents), count_((cotangents + most - 1) / most)
    {
    }

    std::size_t count() const { return count_; }

    std::size_t begin(std::size_t group) const { return cotangents_ * group / count_; }

    std::size_t end(std::size_t group) const { return begin(group + 1); }

    std::size_t size(std::size_t group) const { return end(group) - begin(group); }

    // The size of the largest one.
    std::size_t largest() const { return count_ == 0 ? 0 : (cotangents_ + count_ - 1) / count_; }

private:
    std::size_t cotangents_;
    std::size_t count_;
};

// No group is larger than lets the adjoints of a chunk of rows stay in the innermost cache: of wide layers one at a time is
// fastest (docs/performance.md).
template <class Model>
CotangentGroups cotangent_groups(const Model& net, std::size_t cotangents)
{
    constexpr std::size_t IN_CACHE = 4096, MOST = 8;
    std::size_t widest = 1;
    for (const auto& W : net.weights) widest = std::max(widest, W.cols());
    const std::size_t fit = IN_CACHE / (ROWS_OF_A_CHUNK * widest);
    return {cotangents, std::clamp<std::size_t>(fit, 1, MOST)};
}

}  // namespace VEMKN
