#pragma once

#include <ostream>
#include <stdexcept>
#include <string>

#include "support/entry_points.h"
#include "support/network.h"
#include "support/numbers.h"
#include "support/plain_network.h"
#include "vemkn.h"

// The entry points that compute values and gradients over a batch, under one signature, so that a test of what they have
// in common is written once.

// An entry point as tests of all of them need to know it.
struct Entry {
    const char* name;
    int (*run)(VEMKNInfo* net, const Call& c);
    bool takes_targets;
    bool uses_norm;    // and so is refused for a network without one
    bool takes_empty;  // a batch of no rows is not refused
    bool needs_nw_with_null_w;
    bool runs_slices;  // with a team of threads

    std::size_t array_size(const Call& c, unsigned numout) const
    {
        if (std::string("vemk_obj") == name) return 1;
        if (std::string("vemk_g") == name) return c.nw;
        return std::size_t{c.nrows} * numout;
    }
};

// clang-format off
inline constexpr Entry ENTRIES[] = {
    //                                        targets  norm   empty  nw     slices
    {"vemk_compute",  entry_points::compute.call,  false,   false, true,  false, false},
    {"vemk_residual", entry_points::residual.call, true,    false, true,  false, false},
    {"vemk_obj",      entry_points::obj.call,      true,    true,  false, false, true},
    {"vemk_objv",     entry_points::objv.call,     true,    true,  true,  false, true},
    {"vemk_g",        entry_points::g.call,        true,    true,  false, true,  true},
};

// clang-format on

inline void PrintTo(const Entry& entry, std::ostream* out)
{
    *out << entry.name;
}

inline std::string name_of(const testing::TestParamInfo<Entry>& instance)
{
    return instance.param.name;
}

// The entry points of which that holds.
inline std::vector<Entry> entries_where(bool (*holds)(const Entry& entry))
{
    std::vector<Entry> list;
    for (const Entry& entry : ENTRIES) {
        if (holds(entry)) list.push_back(entry);
    }
    return list;
}

inline const Entry& entry_named(const std::string& name)
{
    for (const Entry& entry : ENTRIES) {
        if (name == entry.name) return entry;
    }
    throw std::out_of_range(name);
}

// Weights, inputs and targets that a test owns.
struct Batch {
    Numbers w, x, y;
    unsigned nrows = 0;
    unsigned xcols = 0;
    unsigned ycols = 0;

    Call call() const
    {
        return {.w = w.data(),
                .nw = static_cast<unsigned>(w.size()),
                .x = x.data(),
                .y = y.data(),
                .nrows = nrows,
                .xcols = xcols,
                .ycols = ycols};
    }
};

// Weights in [-1, 1], inputs in [-1, 1], targets on both sides of where the likelihood changes.
inline Batch random_batch(const plain::Network& network,
                          unsigned nrows,
                          unsigned xcols,
                          std::uint64_t seed)
{
    Random random(seed);
    Batch b;
    b.w = random.list(network.numel());
    b.x = random.list(std::size_t{nrows} * xcols);
    b.y = random.list(std::size_t{nrows} * network.numout, -4, 4);
    b.nrows = nrows;
    b.xcols = xcols;
    b.ycols = network.numout;
    return b;
}

// All that an entry point writes, the value of vemk_g in front; empty, and the test fails, if it refuses.
inline Numbers results_of(const Entry& entry, VEMKNInfo* net, const Call& call)
{
    Call c = call;
    double value = 0;
    Numbers array(entry.array_size(c, vemk_numout(net)));
    c.value = &value;
    c.array = array.data();
    const int status = entry.run(net, c);
    EXPECT_EQ(0, status) << entry.name;
    if (status != 0) return {};
    if (std::string("vemk_g") == entry.name) array.insert(array.begin(), value);
    return array;
}

inline Numbers results_of(const Entry& entry, VEMKNInfo* net, const Batch& batch)
{
    return results_of(entry, net, batch.call());
}

// The same from the plain loops.
inline plain::Reals truth_of(const Entry& entry, const plain::Network& network, const Batch& b)
{
    const std::string name = entry.name;
    if (name == "vemk_compute") return network.outputs(b.w, b.x, b.nrows, b.xcols);
    if (name == "vemk_residual") return network.residuals(b.w, b.x, b.y, b.nrows, b.xcols);
    if (name == "vemk_objv") return network.element_norms(b.w, b.x, b.y, b.nrows, b.xcols);
    plain::Reals all = {network.objective(b.w, b.x, b.y, b.nrows, b.xcols)};
    if (name == "vemk_obj") return all;
    const plain::Reals gradient = network.gradient(b.w, b.x, b.y, b.nrows, b.xcols);
    all.insert(all.end(), gradient.begin(), gradient.end());
    return all;
}
