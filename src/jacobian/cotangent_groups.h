#pragma once

#include <algorithm>

#include "eval/forward.h"
#include "eval/shares.h"

namespace VEMKN {

// Groups of neighbouring cotangents, which are swept side by side. They are dealt to the threads in shares; each share is cut
// into as many groups, as equal as can be.
class CotangentGroups {
public:
    // None has more than `most`.
    CotangentGroups(std::size_t cotangents, unsigned threads, std::size_t most)
        : shares_(cotangents, threads)
    {
        if (cotangents != 0) of_share_ = (shares_.end(0) + most - 1) / most;
    }

    std::size_t count() const { return shares_.count() * of_share_; }

    // Its cotangents. The groups of a last share that is shorter than the others may be empty.
    std::size_t begin(std::size_t group) const { return cut(group / of_share_, group % of_share_); }

    std::size_t end(std::size_t group) const
    {
        return cut(group / of_share_, group % of_share_ + 1);
    }

    std::size_t size(std::size_t group) const { return end(group) - begin(group); }

    unsigned shares() const { return shares_.count(); }

    std::size_t of_share() const { return of_share_; }

private:
    std::size_t cut(std::size_t share, std::size_t groups) const
    {
        const auto s = static_cast<unsigned>(share);
        const std::size_t first = shares_.begin(s);
        return first + (shares_.end(s) - first) * groups / of_share_;
    }

    Shares shares_;
    std::size_t of_share_ = 1;
};

// A batch that fits one slice of the model is too little work for a team.
template <class Model>
unsigned sweeping_threads(const Model& net, std::size_t rows)
{
    return Slices(rows, net.batch).single() ? 1 : net.threads;
}

// No group is larger than lets the adjoints of a chunk of rows stay in the innermost cache: of wide layers one at a time is
// fastest (docs/performance.md).
template <class Model>
CotangentGroups cotangent_groups(const Model& net, std::size_t cotangents, std::size_t rows)
{
    constexpr std::size_t IN_CACHE = 4096, MOST = 8;
    std::size_t widest = 1;
    for (const auto& W : net.weights) widest = std::max(widest, W.cols());
    const std::size_t fit = IN_CACHE / (ROWS_OF_A_CHUNK * widest);
    return {cotangents, sweeping_threads(net, rows), std::clamp<std::size_t>(fit, 1, MOST)};
}

}  // namespace VEMKN
