#pragma once

#include <array>

#include "support/calls.h"

// All eleven entry points that compute, under one signature: what they give for one request, one number after the
// other. calls.h has the five of them whose arguments are the same but for names.

// What a host asks for: a batch, and nv directions or weightings (vemk_vJ takes the first).
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

struct AnyEntry {
    const char* name;
    Reply (*run)(VEMKNInfo* net, const Request& q);
    bool shares_rows;  // over a team of threads
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

namespace all_entries {

// One of the five of calls.h.
template <int WHICH>
Reply run_plain(VEMKNInfo* net, const Request& q)
{
    const Entry& entry = ENTRIES[WHICH];
    const bool value_first = std::string("vemk_g") == entry.name;
    Call c = q.batch.call();
    c.w = q.w();
    Reply reply{0, Numbers((value_first ? 1 : 0) + entry.array_size(c, vemk_numout(net)))};
    c.value = reply.numbers.data();
    c.array = reply.numbers.data() + (value_first ? 1 : 0);
    reply.status = entry.run(net, c);
    return reply;
}

inline Reply run_norm(VEMKNInfo* net, const Request& q)
{
    Reply reply{0, Numbers(1)};
    reply.status =
        vemk_norm(net, q.batch.y.data(), q.batch.nrows, q.batch.ycols, reply.numbers.data());
    return reply;
}

inline Reply run_logp(VEMKNInfo* net, const Request& q)
{
    Reply reply{0, Numbers(q.elements())};
    reply.status =
        vemk_logp(net, q.batch.y.data(), static_cast<unsigned>(q.elements()), reply.numbers.data());
    return reply;
}

inline Reply run_Hv(VEMKNInfo* net, const Request& q)
{
    const Batch& b = q.batch;
    Reply reply{0, Numbers(1 + q.nw() * (std::size_t{1} + q.nv))};
    double* const out = reply.numbers.data();
    reply.status = vemk_Hv(net,
                           q.w(),
                           q.nw(),
                           q.v.data(),
                           q.nv,
                           b.x.data(),
                           b.y.data(),
                           b.nrows,
                           b.xcols,
                           b.ycols,
                           out,
                           out + 1,
                           out + 1 + q.nw());
    return reply;
}

inline Reply run_Jv(VEMKNInfo* net, const Request& q)
{
    const Batch& b = q.batch;
    Reply reply{0, Numbers(q.elements() * (1 + q.nv))};
    double* const out = reply.numbers.data();
    reply.status = vemk_Jv(net,
                           q.w(),
                           q.nw(),
                           q.v.data(),
                           q.nv,
                           b.x.data(),
                           b.y.data(),
                           b.nrows,
                           b.xcols,
                           b.ycols,
                           out,
                           out + q.elements());
    return reply;
}

inline Reply run_vJ(VEMKNInfo* net, const Request& q)
{
    const Batch& b = q.batch;
    Reply reply{0, Numbers(q.elements() + q.nw())};
    double* const out = reply.numbers.data();
    reply.status = vemk_vJ(net,
                           q.w(),
                           q.nw(),
                           q.v.data(),
                           0,
                           b.x.data(),
                           b.y.data(),
                           b.nrows,
                           b.xcols,
                           b.ycols,
                           out,
                           out + q.elements());
    return reply;
}

inline Reply run_vJ_vec(VEMKNInfo* net, const Request& q)
{
    const Batch& b = q.batch;
    Reply reply{0, Numbers(q.elements() + std::size_t{q.nv} * q.nw())};
    double* const out = reply.numbers.data();
    reply.status = vemk_vJ_vec(net,
                               q.w(),
                               q.nw(),
                               q.v.data(),
                               q.nv,
                               b.x.data(),
                               b.y.data(),
                               b.nrows,
                               b.xcols,
                               b.ycols,
                               out,
                               out + q.elements());
    return reply;
}

}  // namespace all_entries

inline constexpr std::array<AnyEntry, 11> ALL_ENTRIES = {{
    {"vemk_compute", all_entries::run_plain<0>, false},
    {"vemk_residual", all_entries::run_plain<1>, false},
    {"vemk_obj", all_entries::run_plain<2>, true},
    {"vemk_objv", all_entries::run_plain<3>, true},
    {"vemk_norm", all_entries::run_norm, false},
    {"vemk_logp", all_entries::run_logp, false},
    {"vemk_g", all_entries::run_plain<4>, true},
    {"vemk_Hv", all_entries::run_Hv, true},
    {"vemk_Jv", all_entries::run_Jv, true},
    {"vemk_vJ", all_entries::run_vJ, true},
    {"vemk_vJ_vec", all_entries::run_vJ_vec, true},
}};

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
