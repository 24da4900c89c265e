#pragma once

#include <array>

#include "support/calls.h"

// What all eleven entry points give for one request, one number after the other.

// What a host asks for: a batch, and nv tangents or cotangents (vemk_vJ takes the first).
struct Request {
    Batch batch;
    Numbers v;  // long enough for both
    unsigned nv = 1;
    bool own_weights = false;  // no weights are handed over: the handle's own are meant

    const double* w() const { return own_weights ? nullptr : batch.w.data(); }

    unsigned nw() const { return static_cast<unsigned>(batch.w.size()); }

    std::size_t elements() const { return std::size_t{batch.nrows} * batch.ycols; }
};

// A status, and everything that the call wrote.
struct Reply {
    int status = 0;
    Numbers numbers;
};

struct AnyEntry : EntryPoint {
    static Call call_for(const Request& q)
    {
        Call c = q.batch.call();
        c.w = q.w();
        c.v = q.v.data();
        c.nv = q.nv;
        return c;
    }

    Reply run(VEMKNInfo* net, const Request& q) const
    {
        const Call c = call_for(q);
        Reply reply{0, Numbers(sizes(c).all())};
        reply.status = run_into(*this, net, c, reply.numbers.data());
        return reply;
    }

    // No network runs, so neither weights nor inputs matter.
    bool is_norm_alone() const
    {
        return call == entry_points::norm.call || call == entry_points::logp.call;
    }
};

inline Request random_request(
    const plain::Network& network, unsigned nrows, unsigned xcols, unsigned nv, std::uint64_t seed)
{
    Request q;
    q.batch = random_batch(network, nrows, xcols, seed);
    q.nv = nv;
    q.v = Random(~seed).list(std::max<std::size_t>(1, nv) *
                             std::max<std::size_t>(q.nw(), q.elements()));
    return q;
}

constexpr auto every_entry()
{
    std::array<AnyEntry, std::size(ENTRY_POINTS)> all{};
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = {ENTRY_POINTS[i]};
    return all;
}

inline constexpr auto ALL_ENTRIES = every_entry();

inline const AnyEntry& any_entry_named(const std::string& name)
{
    for (const AnyEntry& entry : ALL_ENTRIES) {
        if (name == entry.name) return entry;
    }
    throw std::out_of_range(name);
}

// The bits of every entry point's reply, one list for each; a call that is refused gives an empty one.
inline std::vector<std::vector<std::uint64_t>> all_bits(VEMKNInfo* net, const Request& q)
{
    std::vector<std::vector<std::uint64_t>> all;
    for (const AnyEntry& entry : ALL_ENTRIES) {
        const Reply reply = entry.run(net, q);
        all.push_back(reply.status == 0 ? bits_of(reply.numbers) : std::vector<std::uint64_t>{});
    }
    return all;
}

// The network that tests of the process take: three widths, a curved activation, the likelihood.
inline plain::Network usual_network()
{
    return {.numin = 5,
            .numout = 2,
            .sizes = {5, 8, 6},
            .activation = "softplus",
            .norm = "sum_log_dnorm_fat"};
}
