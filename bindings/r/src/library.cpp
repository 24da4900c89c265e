// The calls of the library. A C++ exception must not pass through R, which is C: it ends here.
#include <cfenv>
#include <new>

#include "glue.h"

namespace {

// An exception that leaves initVEMKNet leaves its traps armed, and R's next division by zero would end the process.
template <class Call>
int guarded(Call call) noexcept
{
    int status = exception_thrown;
    try {
        return call();
    } catch (const std::bad_alloc&) {
        status = no_memory;
    } catch (...) {
    }
    fedisableexcept(FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW);
    return status;
}

// The storage order is one variable for the whole process. Whoever else set it gets it back.
class Interleaved {
public:
    Interleaved() { vemk_major(nullptr, 0); }

    ~Interleaved() { vemk_major(nullptr, before_); }

    Interleaved(const Interleaved&) = delete;
    Interleaved& operator=(const Interleaved&) = delete;

private:
    int before_ = vemkn_rowmajor;
};

}  // namespace

int library_create(const char* text, int length, unsigned threads, int batch, VEMKNInfo** net)
{
    return guarded([&] {
        *net = initVEMKNet(text, length);
        vemk_quiet(*net, 1);
        return vemk_setpar(*net, threads, batch);
    });
}

int library_compute(const struct batch* b, double* out)
{
    return guarded(
        [&] { return vemk_compute(b->net, b->w, b->nw, b->x, b->rows, b->xcols, 0, out); });
}

int library_residual(const struct batch* b, double* out)
{
    return guarded([&] {
        return vemk_residual(b->net, b->w, b->nw, b->x, b->y, b->rows, b->xcols, b->ycols, out);
    });
}

int library_objective(const struct batch* b, double* value)
{
    return guarded([&] {
        return vemk_obj(b->net, b->w, b->nw, b->x, b->y, b->rows, b->xcols, b->ycols, value);
    });
}

int library_gradient(const struct batch* b, double* value, double* gradient)
{
    return guarded([&] {
        return vemk_g(
            b->net, b->w, b->nw, b->x, b->y, b->rows, b->xcols, b->ycols, value, gradient);
    });
}

int library_hessian(const struct batch* b,
                    const double* v,
                    unsigned nv,
                    double* value,
                    double* gradient,
                    double* product)
{
    return guarded([&] {
        const Interleaved order;
        return vemk_Hv(b->net,
                       b->w,
                       b->nw,
                       v,
                       nv,
                       b->x,
                       b->y,
                       b->rows,
                       b->xcols,
                       b->ycols,
                       value,
                       gradient,
                       product);
    });
}

int library_jacobian(
    const struct batch* b, const double* v, unsigned nv, double* norms, double* product)
{
    return guarded([&] {
        const Interleaved order;
        return vemk_Jv(
            b->net, b->w, b->nw, v, nv, b->x, b->y, b->rows, b->xcols, b->ycols, norms, product);
    });
}

int library_weighted(
    const struct batch* b, const double* u, unsigned k, double* residual, double* product)
{
    return guarded([&] {
        return vemk_vJ_vec(
            b->net, b->w, b->nw, u, k, b->x, b->y, b->rows, b->xcols, b->ycols, residual, product);
    });
}
