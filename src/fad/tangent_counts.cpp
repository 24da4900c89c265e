#include "fad/tangent_counts.h"

#include "runtime/gate.h"

std::uint64_t g_ndd = 1;

namespace yafad {

std::uint64_t FO::Dynamic::NDIR = 1;

std::uint64_t tangent_count = 1;
std::uint64_t scalar_tangent_count = 1;

void set_tangent_counts(std::uint64_t for_matrices, std::uint64_t for_scalars)
{
    g_ndd = tangent_count = for_matrices;
    FO::Dynamic::NDIR = scalar_tangent_count = for_scalars;
}

TangentLock::TangentLock(std::uint64_t tangents)
{
    VEMKN::pass_gate(tangents, [](std::uint64_t n) { set_tangent_counts(n, n); });
}

TangentLock::~TangentLock()
{
    VEMKN::leave_gate();
}

void reset_tangent_count()
{
    VEMKN::pass_gate(VEMKN::EXCLUSIVE, [](std::uint64_t) { g_ndd = tangent_count = 1; });
    VEMKN::leave_gate();
}

}  // namespace yafad
