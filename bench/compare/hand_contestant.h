#pragma once

#include <algorithm>
#include <chrono>
#include <limits>
#include <optional>

#include "contestant.h"
#include "hand_network.h"

namespace compare {

// HandNetwork as a contestant. Its block size is the one that was fastest on the first rows, as somebody who writes for
// one network on one machine would choose it; the search is part of the preparation and not timed.
template <class Backend, class Activation>
class HandContestant : public Contestant {
public:
    explicit HandContestant(const Question& q) : q_(q)
    {
        Answer scratch = blank_answer(q);
        double best = std::numeric_limits<double>::infinity();
        for (const BlockSize size : candidates()) {
            HandNetwork<Backend, Activation> network(q.problem.shape.widths, size);
            const double seconds = shortest(network, scratch);
            if (seconds >= best) continue;
            best = seconds;
            size_ = size;
        }
        network_.emplace(q.problem.shape.widths, size_);
    }

    void answer(Answer& a) override { run(*network_, q_.problem.rows, a); }

    std::string setup() const override
    {
        return "blocks of " + std::to_string(size_.rows) + " rows, " +
               std::to_string(size_.tangents) + " tangents at a time";
    }

private:
    static constexpr unsigned TRIAL_ROWS = 2048;

    // Not multiples of 64: columns a power of two apart share their lines of the cache.
    std::vector<BlockSize> candidates() const
    {
        const unsigned N = q_.operation.tangents;
        std::vector<BlockSize> all;
        for (const unsigned rows : {24u, 56u, 104u, 120u, 184u, 248u, 504u, 1000u, 2040u}) {
            if (rows > 104 && rows > q_.problem.rows) break;
            for (unsigned G = 1; G <= std::max(N, 1u); G *= 2) {
                all.push_back({static_cast<int>(rows), static_cast<int>(G)});
            }
        }
        return all;
    }

    // Of a warm call; a call that takes long needs no repetition to be distinguished from another.
    double shortest(HandNetwork<Backend, Activation>& network, Answer& scratch)
    {
        using Clock = std::chrono::steady_clock;
        const unsigned rows = std::min(TRIAL_ROWS, q_.problem.rows);
        double best = std::numeric_limits<double>::infinity();
        double spent = 0.0;
        for (int i = 0; i < 1000 && (i < 3 || spent < 3e-3) && spent < 0.05; ++i) {
            const auto start = Clock::now();
            run(network, rows, scratch);
            const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
            best = std::min(best, seconds);
            spent += seconds;
        }
        return best;
    }

    void run(HandNetwork<Backend, Activation>& network, unsigned rows, Answer& a)
    {
        const bench::Problem& p = q_.problem;
        const Batch batch{p.w.data(), p.x.data(), p.y.data(), static_cast<int>(rows)};
        const double* v = q_.tangents.data();
        const int N = static_cast<int>(q_.operation.tangents);
        switch (q_.operation.kind) {
            case Operation::obj:
                a[0][0] = network.obj(batch);
                break;
            case Operation::g:
                a[0][0] = network.g(batch, a[1].data());
                break;
            case Operation::Hv:
                a[0][0] = network.Hv(batch, v, N, a[1].data(), a[2].data());
                break;
            case Operation::Jv:
                network.Jv(batch, v, N, a[0].data(), a[1].data());
                break;
            case Operation::vJ_vec:
                network.vJ_vec(batch, v, N, a[0].data(), a[1].data());
                break;
        }
    }

    const Question& q_;
    BlockSize size_{};
    std::optional<HandNetwork<Backend, Activation>> network_;
};

template <class Backend>
std::unique_ptr<Contestant> make_hand(const Question& q)
{
    if (q.activation == "atan") return std::make_unique<HandContestant<Backend, HandAtan>>(q);
    if (q.activation == "relu") return std::make_unique<HandContestant<Backend, HandRelu>>(q);
    return std::make_unique<HandContestant<Backend, HandSoftplus>>(q);
}

}  // namespace compare
