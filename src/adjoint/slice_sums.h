#pragma once

#include <algorithm>

#include "adjoint/slice.h"
#include "eval/team.h"

// The sums over slices of a gradient and an objective, which have one order whatever the team: that of the slices.

namespace VEMKN {

// What a team keeps of slices until it is added takes at most so many numbers for each thread, but always one slice: small
// gradients, and what large ones are formed from.
inline constexpr std::size_t KEPT_GRADIENTS = 32768, KEPT_SLICES = 524288;

// Numbers of a gradient.
template <NetworkModel Model>
std::size_t numbers_of_gradient(const Model& net)
{
    return numel(net) * numbers_of_an_entry(net.weights[0]);
}

// A gradient is formed for each slice and then added, unless it is large: then its own products are dealt out. So are those of
// OpenBLAS, whose bits may depend on how many rows are formed at a time.
template <NetworkModel Model>
bool keeps_gradients(const Model& net)
{
    if (net.nmult > 1) return true;
    return !multiplies_by_blas(net) && 2 * numbers_of_gradient(net) <= KEPT_GRADIENTS;
}

template <NetworkModel Model>
std::size_t swept_together(const Model& net, const Slices& slices)
{
    return slices_together(net, slices, SWEPT_FOR_AN_OUTPUT * numbers_of_an_entry(net.weights[0]));
}

// Each thread differentiates several slices in a row, keeps their gradients, and adds them in its turn.
template <NetworkModel Model, class AdjRun>
typename Model::SValue add_kept_gradients(const Model& net,
                                          const TransposedWeights<Model>& transposes,
                                          const Slices& slices,
                                          const TeamPermit& team,
                                          const AdjRun& adj_run,
                                          typename Model::Gradient& grad)
{
    struct Kept {
        explicit Kept(const typename Model::Gradient& shapes) : grad(zeros_like(shapes)) {}

        typename Model::SValue value{0.0};
        typename Model::Gradient grad;
    };

    struct Local {
        SliceWorkspace<Model> work;
        CallList<Kept> kept;
    };

    constexpr std::size_t MOST = 16;
    const std::size_t fit = KEPT_GRADIENTS / std::max<std::size_t>(numbers_of_gradient(net), 1);
    const std::size_t together = swept_together(net, slices);
    const Slices runs = runs_of(slices.count(), together, std::min(fit, MOST), team);
    const std::size_t of_value = net.weights.size();
    Turns turns(of_value + 1, team);
    typename Model::SValue total(0.0);
    const auto work_on = [&](Local& local, std::size_t run) {
        const std::size_t first = runs.first_row(run), n = runs.rows_of(run);
        SliceWorkspace<Model>& work = local.work;
        while (local.kept.size() < n) local.kept.emplace_back(grad);
        for (std::size_t j = 0; j < n; j += together) {
            const std::size_t these = std::min(together, n - j);
            adj_run(work, first + j, these);
            for (std::size_t k = 0; k < these; ++k) local.kept[j + k].value = work.values[k];
            const auto kept_grad = [&](std::size_t k) -> auto&
            {
                return local.kept[j + k].grad;
            };
            if (these == 1) {
                backward(net,
                         transposes,
                         work.cache,
                         work.outAdj,
                         work.sweep,
                         kept_grad(0),
                         Into::overwrite);
            } else {
                const Slices part = slices.part(first + j, these);
                backward_apart(
                    net, transposes, work.cache, work.outAdj, part, work.sweep, kept_grad);
            }
        }
        const SliceTurn turn(turns, run);
        turn.await(of_value);
        for (std::size_t j = 0; j < n; ++j) total += local.kept[j].value;
        turn.pass_on(of_value);
        for (std::size_t i = 0; i < grad.weights.size(); ++i) {
            turn.await(i);
            for (std::size_t j = 0; j < n; ++j) {
                do_add(grad.weights[i], local.kept[j].grad.weights[i]);
                do_add(grad.biases[i], local.kept[j].grad.biases[i]);
            }
            turn.pass_on(i);
        }
    };
    for_each_in_turn<Local>(runs.count(), team, turns, work_on);
    return total;
}

// What of a gradient is added at a time: a range of rows of one layer's weights, and with the first one its biases.
struct GradientPart {
    std::size_t layer;
    RowRange rows;
};

template <NetworkModel Model>
CallList<GradientPart> parts_of_gradient(const Model& net, const TeamPermit& team)
{
    const std::size_t pieces = 2 * static_cast<std::size_t>(team.size());
    CallList<GradientPart> parts;
    for (std::size_t i = 0; i < net.weights.size(); ++i) {
        const auto& W = net.weights[i];
        const std::size_t least = products_with(W) == By::kernels ? 8 : rows_of_a_sum(W.cols());
        const std::size_t sums = (W.rows() + least - 1) / least;
        const std::size_t at_once = std::max<std::size_t>((sums + pieces - 1) / pieces, 1) * least;
        // A layer without inputs has biases.
        std::size_t first = 0;
        do {
            parts.push_back({i, {first, std::min(at_once, W.rows() - first)}});
            first += at_once;
        } while (first < W.rows());
    }
    return parts;
}

// Adds a part of the gradient of a slice that was swept, as backward() does the whole.
template <NetworkModel Model>
void add_part(const GradientPart& part,
              const SliceWorkspace<Model>& work,
              typename Model::Saved& room,
              typename Model::Gradient& grad)
{
    const std::size_t i = part.layer;
    auto& gW = grad.weights[i];
    const bool last = i + 1 == grad.weights.size();
    const auto& Zbar = last ? work.sweep.output_Zbar : work.sweep.layers[i + 1].Hbar;
    const By by = products_with(gW);
    if (i == 0) {
        do_binmult_add(gW, transposed(work.cache.X), Zbar, room, by, WHOLE, part.rows);
    } else {
        do_binmult_add(gW, transposed(work.cache.H(i)), Zbar, room, by, WHOLE, part.rows);
    }
    if (part.rows.first == 0) add_colsum(Zbar, grad.biases[i], WHOLE);
}

// The threads run and sweep some slices each and keep what their gradients are formed from; then each adds all of it to its own
// parts of the gradient, which so stay with its processor. For networks of one pass.
template <NetworkModel Model, class AdjRun>
typename Model::SValue add_in_rounds(const Model& net,
                                     const TransposedWeights<Model>& transposes,
                                     const Slices& slices,
                                     const TeamPermit& team,
                                     const AdjRun& adj_run,
                                     typename Model::Gradient& grad)
{
    struct Kept {
        SliceWorkspace<Model> work;
        typename Model::SValue value{0.0};
    };

    constexpr std::size_t MOST = 4;
    std::size_t of_a_row = 0;
    for (const auto& W : net.weights) of_a_row += W.rows() + 3 * W.cols();
    const std::size_t of_a_slice =
        of_a_row * slices.rows_of(0) * numbers_of_an_entry(net.weights[0]);
    const std::size_t count = slices.count();
    const std::size_t of_a_thread =
        std::clamp(KEPT_SLICES / std::max<std::size_t>(of_a_slice, 1), std::size_t{1}, MOST);
    const std::size_t round = std::min(count, of_a_thread * static_cast<std::size_t>(team.size()));
    const CallList<GradientPart> parts = parts_of_gradient(net, team);
    CallList<const Kept*> of_slice(round);
    typename Model::SValue total(0.0);
    in_team(team, [&](TeamException& failure) {
        CallList<Kept> own;
        typename Model::Saved room;
        for (std::size_t first = 0; first < count; first += round) {
            const std::size_t n = std::min(round, count - first);
            std::size_t used = 0;
#pragma omp for schedule(static)
            for (std::size_t j = 0; j < n; ++j) {
                failure.guard([&] {
                    // Others hold on to what is in it: it must not move, should the system give one thread all of a round.
                    if (own.empty()) own.reserve(round);
                    if (used == own.size()) own.emplace_back();
                    Kept& kept = own[used++];
                    SliceWorkspace<Model>& work = kept.work;
                    adj_run(work, first + j, 1);
                    kept.value = work.values[0];
                    sweep(net, transposes, work.cache, work.outAdj, work.sweep, [](auto&&...) {});
                    of_slice[j] = &kept;
                });
            }
#pragma omp for schedule(static, 1)
            for (std::size_t p = 0; p < parts.size(); ++p) {
                failure.guard([&] {
                    for (std::size_t j = 0; j < n; ++j) {
                        add_part(parts[p], of_slice[j]->work, room, grad);
                        if (p == 0) total += of_slice[j]->value;  // one thread, in slice order
                    }
                });
            }
        }
    });
    return total;
}

// Differentiates slices and adds up their gradients in grad, and their parts of the value: adj_run(work, first, n) leaves the adjoint
// of the outputs of n slices in work.outAdj and their parts in work.values.
template <NetworkModel Model, class AdjRun>
typename Model::SValue adj_slices(const Model& net,
                                  const Slices& slices,
                                  const AdjRun& adj_run,
                                  typename Model::Gradient& grad)
{
    const TransposedWeights<Model> transposes(net);
    const TeamPermit team(slices.count(), worthwhile_threads(net, slices.rows(), 2));
    if (team.size() > 1 && keeps_gradients(net)) {
        return add_kept_gradients(net, transposes, slices, team, adj_run, grad);
    }
    if (team.size() > 1) return add_in_rounds(net, transposes, slices, team, adj_run, grad);
    SliceWorkspace<Model> work;
    typename Model::SValue total(0.0);
    const std::size_t together = swept_together(net, slices);
    for (std::size_t first = 0; first < slices.count(); first += together) {
        const std::size_t n = std::min(together, slices.count() - first);
        adj_run(work, first, n);
        for (std::size_t j = 0; j < n; ++j) total += work.values[j];
        if (n == 1) {
            backward(net, transposes, work.cache, work.outAdj, work.sweep, grad, Into::add);
        } else {
            const Slices part = slices.part(first, n);
            backward_together(net, transposes, work.cache, work.outAdj, part, work.sweep, grad);
        }
        look_at_flags();
    }
    return total;
}

}  // namespace VEMKN
