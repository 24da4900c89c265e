#include <adolc/adolc.h>

#include <algorithm>

#include "contestant.h"

// The network on a general tool for automatic differentiation: the norms of a block of rows are recorded once over the
// weights, with inputs and targets as parameters that are exchanged from block to block; then its drivers run over the
// tape. What one gets from such a tool without writing a derivative, all tangents of Jv and all cotangents of vJ_vec in
// one of its sweeps.

namespace compare {

namespace {

constexpr double GAMMA_SQUARED = 2.290554002175179e-7;
constexpr double TAIL = 8.96905461146455;  // log(3 pi / (sqrt(2 pi) gamma))

adouble activated(const std::string& activation, const adouble& z)
{
    if (activation == "atan") return atan(z);
    if (activation == "relu") return fmax(z, 0.0);
    return log(1.0 + exp(z));
}

adouble normed(const adouble& r)
{
    const adouble square = r * r;
    adouble norm;
    condassign(norm, 4.0 - square, 4.5 * square, log(square + GAMMA_SQUARED) + TAIL);
    return norm;
}

// A matrix as an array of pointers to its rows, as the tool takes it.
class Rows {
public:
    Rows(std::size_t rows, std::size_t cols) : cols_(cols), elements_(rows * cols), rows_(rows)
    {
        point_at(elements_.data());
    }

    // The rows of somebody else's array from here on.
    double** of(double* elements)
    {
        point_at(elements);
        return rows_.data();
    }

    double** own() { return rows_.data(); }

private:
    void point_at(double* elements)
    {
        for (std::size_t i = 0; i < rows_.size(); ++i) rows_[i] = elements + i * cols_;
    }

    std::size_t cols_;
    std::vector<double> elements_;
    std::vector<double*> rows_;
};

class Adolc : public Contestant {
public:
    explicit Adolc(const Question& q)
        : q_(q),
          block_(rows_of_a_tape()),
          elements_(block_ * q.problem.nout),
          m_(static_cast<int>(q.operation.kind == Operation::vJ_vec ? 2 * elements_ : elements_)),
          n_(static_cast<int>(q.problem.nw)),
          N_(static_cast<int>(q.operation.tangents)),
          w_(q.problem.w),
          v_(q.tangents),
          data_(block_ * (q.problem.nin + q.problem.nout)),
          mean_(elements_, 1.0 / static_cast<double>(q.problem.y.size())),
          norms_(static_cast<std::size_t>(m_)),
          along_(norms_.size()),
          tangent_(w_.size()),
          gradient_(w_.size()),
          seed_rows_(w_.size(), q.operation.tangents),
          tangent_rows_(norms_.size(), q.operation.tangents),
          second_(w_.size(), 2),
          cotangents_(q.operation.tangents, norms_.size()),
          gradients_(q.operation.tangents, w_.size())
    {
        record();
    }

    void answer(Answer& a) override
    {
        const Operation kind = q_.operation.kind;
        if (kind != Operation::Jv) {
            for (std::vector<double>& part : a) std::fill(part.begin(), part.end(), 0.0);
        }
        for (unsigned row = 0; row < q_.problem.rows; row += block_) {
            take_rows(row);
            const std::size_t first = std::size_t{row} * q_.problem.nout;
            switch (kind) {
                case Operation::obj:
                    zos_forward(tag_, m_, n_, 0, w_.data(), norms_.data());
                    add_norms(a[0][0]);
                    break;
                case Operation::g:
                    zos_forward(tag_, m_, n_, 1, w_.data(), norms_.data());
                    add_norms(a[0][0]);
                    fos_reverse(tag_, m_, n_, mean_.data(), gradient_.data());
                    for (int i = 0; i < n_; ++i) a[1][i] += gradient_[i];
                    break;
                case Operation::Hv:
                    for (int k = 0; k < N_; ++k) hessian_product(a, k);
                    break;
                case Operation::Jv:
                    fov_forward(tag_,
                                m_,
                                n_,
                                N_,
                                w_.data(),
                                seed_rows_.of(v_.data()),
                                a[0].data() + first,
                                tangent_rows_.of(a[1].data() + first * N_));
                    break;
                case Operation::vJ_vec:
                    product_jacobian(a, first);
                    break;
            }
        }
    }

    std::string setup() const override { return "tape of " + std::to_string(block_) + " rows"; }

private:
    // A divisor of the number of rows, such that a tape stays in a cache of a megabyte or so.
    unsigned rows_of_a_tape() const
    {
        constexpr unsigned RECORDED = 20'000;
        unsigned block = std::clamp(RECORDED / q_.problem.nw, 1u, q_.problem.rows);
        while (q_.problem.rows % block != 0) --block;
        return block;
    }

    // The dependents are the norms and, for vJ_vec, the residuals after them, which no cotangent reaches.
    void record()
    {
        static short tags = 0;
        tag_ = tags++;
        const bench::Problem& p = q_.problem;
        trace_on(tag_);
        std::vector<adouble> w(w_.size());
        for (int i = 0; i < n_; ++i) w[i] <<= w_[i];
        std::vector<locint> parameter(data_.size());
        for (locint& index : parameter) index = mkparam_idx(0.25);
        std::vector<adouble> residuals;
        for (unsigned row = 0; row < block_; ++row) {
            std::vector<adouble> h(p.nin);
            for (unsigned j = 0; j < p.nin; ++j) h[j] = getparam(parameter[row * p.nin + j]);
            std::size_t at = 0;
            for (std::size_t i = 1; i < p.shape.widths.size(); ++i) {
                h = layer(w, at, h, p.shape.widths[i]);
            }
            for (unsigned j = 0; j < p.nout; ++j) {
                const locint target = parameter[block_ * p.nin + row * p.nout + j];
                const adouble residual = h[j] - getparam(target);
                double value;
                normed(residual) >>= value;
                residuals.push_back(residual);
            }
        }
        if (q_.operation.kind == Operation::vJ_vec) {
            double value;
            for (adouble& residual : residuals) residual >>= value;
        }
        trace_off();
    }

    // One layer; its biases and weights stand from place `at` on, which moves past them.
    std::vector<adouble> layer(const std::vector<adouble>& w,
                               std::size_t& at,
                               const std::vector<adouble>& h,
                               unsigned width) const
    {
        std::vector<adouble> out(width);
        for (unsigned j = 0; j < width; ++j) {
            adouble z = w[at + j];
            for (std::size_t i = 0; i < h.size(); ++i) z += h[i] * w[at + width + i * width + j];
            out[j] = activated(q_.activation, z);
        }
        at += width * (h.size() + 1);
        return out;
    }

    void take_rows(unsigned row)
    {
        const bench::Problem& p = q_.problem;
        std::copy_n(p.x.begin() + std::size_t{row} * p.nin, block_ * p.nin, data_.begin());
        std::copy_n(p.y.begin() + std::size_t{row} * p.nout,
                    block_ * p.nout,
                    data_.begin() + block_ * p.nin);
        set_param_vec(tag_, data_.size(), data_.data());
    }

    void add_norms(double& objective) const
    {
        for (const double norm : norms_) objective += norm * mean_[0];
    }

    void hessian_product(Answer& a, int k)
    {
        for (int i = 0; i < n_; ++i) tangent_[i] = v_[i * N_ + k];
        fos_forward(tag_, m_, n_, 2, w_.data(), tangent_.data(), norms_.data(), along_.data());
        hos_reverse(tag_, m_, n_, 1, mean_.data(), second_.own());
        if (k == 0) add_norms(a[0][0]);
        for (int i = 0; i < n_; ++i) {
            if (k == 0) a[1][i] += second_.own()[i][0];
            a[2][i * N_ + k] += second_.own()[i][1];
        }
    }

    void product_jacobian(Answer& a, std::size_t first)
    {
        const bench::Problem& p = q_.problem;
        zos_forward(tag_, m_, n_, 1, w_.data(), norms_.data());
        std::copy_n(norms_.begin() + elements_, elements_, a[0].begin() + first);
        for (int k = 0; k < N_; ++k) {
            std::copy_n(v_.begin() + k * p.y.size() + first, elements_, cotangents_.own()[k]);
        }
        fov_reverse(tag_, m_, n_, N_, cotangents_.own(), gradients_.own());
        for (int k = 0; k < N_; ++k) {
            for (int i = 0; i < n_; ++i) a[1][k * n_ + i] += gradients_.own()[k][i];
        }
    }

    const Question& q_;
    short tag_ = 0;
    unsigned block_, elements_;
    int m_, n_, N_;
    std::vector<double> w_, v_, data_, mean_, norms_, along_, tangent_, gradient_;
    Rows seed_rows_, tangent_rows_, second_, cotangents_, gradients_;
};

}  // namespace

std::unique_ptr<Contestant> make_adolc(const Question& question)
{
    // Some ten nanoseconds each, and more for each later sweep.
    constexpr double MOST_OPERATIONS = 1e8;
    const bench::Problem& p = question.problem;
    const double sweeps = std::max(1u, question.operation.tangents);
    if (sweeps * p.rows * p.nw > MOST_OPERATIONS) return nullptr;
    return std::make_unique<Adolc>(question);
}

}  // namespace compare
