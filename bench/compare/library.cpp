#include "contestant.h"

namespace compare {

namespace {

// The library, through its C interface. A handle of its own, so that its threads and slice size are its own too.
class Library : public Contestant {
public:
    Library(const Question& q, unsigned threads, int batch)
        : q_(q), net_(initVEMKNet(q.problem.text.data(), static_cast<int>(q.problem.text.size())))
    {
        vemk_setpar(net_, threads, batch);
    }

    ~Library() override { releaseVEMKNet(net_); }

    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    void answer(Answer& a) override
    {
        const bench::Problem& p = q_.problem;
        const double *w = p.w.data(), *x = p.x.data(), *y = p.y.data(), *v = q_.tangents.data();
        const unsigned nw = p.nw, n = p.rows, nin = p.nin, nout = p.nout;
        const unsigned N = q_.operation.tangents;
        const auto out = [&a](std::size_t i) { return a[i].data(); };
        switch (q_.operation.kind) {
            case Operation::obj:
                vemk_obj(net_, w, nw, x, y, n, nin, nout, out(0));
                break;
            case Operation::g:
                vemk_g(net_, w, nw, x, y, n, nin, nout, out(0), out(1));
                break;
            case Operation::Hv:
                vemk_Hv(net_, w, nw, v, N, x, y, n, nin, nout, out(0), out(1), out(2));
                break;
            case Operation::Jv:
                vemk_Jv(net_, w, nw, v, N, x, y, n, nin, nout, out(0), out(1));
                break;
            case Operation::vJ_vec:
                vemk_vJ_vec(net_, w, nw, v, N, x, y, n, nin, nout, out(0), out(1));
                break;
        }
    }

private:
    const Question& q_;
    VEMKNInfo* net_;
};

}  // namespace

std::unique_ptr<Contestant> make_library(const Question& question, unsigned threads, int batch)
{
    return std::make_unique<Library>(question, threads, batch);
}

}  // namespace compare
