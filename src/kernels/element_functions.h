#pragma once

// The functions that act on one element each: activations, and the likelihood. Each is one struct that holds all there
// is to know of it:
//
//   SAVES                      whether the forward pass saves something for the backward sweep, the exponential that all of
//                              the functions below need: saved(x), computed once. Where it does not, x itself is handed
//                              over in its place
//   IS_SMOOTH                  whether it bends. One that does not is piecewise linear with slopes 0 and 1, and has none of
//                              the last four
//   value(x, saved)            y
//   vjp(x, saved, ybar)        the adjoint of x, in the order of operations that fixes its last bits
//   value_term(x, saved)       y, and the one term that all tangents of y need
//   tangent(x, term, dx)       the tangent of y from that term and the tangent of x
//   vjp_terms(x, saved, ybar)  the adjoint of x, and the two terms that all tangents of it need
//   vjp_tangent(x, terms, ...) the tangent of the adjoint from those and the tangents of ybar and x
//
// Terms are computed once an element, whatever the number of tangents. Which ones a function chooses follows from the
// order of operations of its tangents, which fixes their last bits and where they overflow.
//
// saved() is a function of its own for speed as well: exp and the log of its result in one loop are a chain of dependent
// instructions too long for a processor to overlap with the next element's (docs/performance.md).
//
// They are written over a lane type L (see kernels/lane.h): one double, or as many as a vector register holds. A branch is
// a quiet comparison and a selection, so that a quiet NaN takes the "else" without a trap; and since every lane computes
// both branches, a lane gets a harmless argument for the branch that is not its own: it then raises no exception that
// its own branch would not raise.

namespace VEMKN {

template <class L>
struct ValueTerm {
    typename L::V value, term;
};

template <class L>
struct VjpTerms {
    typename L::V vjp, term, ybar_term;
};

struct PiecewiseLinear {
    static constexpr bool IS_SMOOTH = false;
};

// One whose terms are the slope and, for the adjoint, ybar times the curvature, unless it says otherwise.
struct Smooth {
    static constexpr bool IS_SMOOTH = true;

    template <class L, class V = typename L::V>
    static V tangent(V, V slope, V dx)
    {
        return slope * dx;
    }

    template <class L, class V = typename L::V>
    static V vjp_tangent(V, V slope, V dybar, V ybar_curvature, V dx)
    {
        return slope * dybar + ybar_curvature * dx;
    }
};

// y = x
struct Id : PiecewiseLinear {
    static constexpr bool SAVES = false;

    template <class L, class V = typename L::V>
    static V value(V x, V)
    {
        return x;
    }

    template <class L, class V = typename L::V>
    static V vjp(V, V, V ybar)
    {
        return ybar;
    }
};

// y = max(x, 0), slope 1 at x = 0; keeps -0.0 and NaN.
struct Relu : PiecewiseLinear {
    static constexpr bool SAVES = false;

    template <class L, class V = typename L::V>
    static V value(V x, V)
    {
        return L::select(L::less(x, L::set(0.0)), L::set(0.0), x);
    }

    template <class L, class V = typename L::V>
    static V vjp(V x, V, V ybar)
    {
        return L::select(L::less(x, L::set(0.0)), L::set(0.0), ybar);
    }
};

// y = atan(x)
struct Atan : Smooth {
    static constexpr bool SAVES = false;

    template <class L, class V = typename L::V>
    static V value(V x, V)
    {
        return L::atan(x);
    }

    template <class L, class V = typename L::V>
    static V vjp(V x, V, V ybar)
    {
        return ybar / divisor<L>(x);
    }

    template <class L, class V = typename L::V>
    static ValueTerm<L> value_term(V x, V)
    {
        return {L::atan(x), divisor<L>(x)};
    }

    template <class L, class V = typename L::V>
    static V tangent(V, V d, V dx)
    {
        return dx / d;
    }

    template <class L, class V = typename L::V>
    static VjpTerms<L> vjp_terms(V x, V saved, V ybar)
    {
        return {vjp<L>(x, saved, ybar), divisor<L>(x), ybar * L::set(2.0) * x};
    }

    // ybar'/d - ybar 2 x x'/d^2. Divided by d twice, since d*d would overflow from |x| = 1e77 on, where nothing else does.
    template <class L, class V = typename L::V>
    static V vjp_tangent(V, V d, V dybar, V two_x_ybar, V dx)
    {
        return dybar / d - two_x_ybar * dx / d / d;
    }

private:
    template <class L, class V = typename L::V>
    static V divisor(V x)
    {
        return x * x + L::set(1.0);
    }
};

// y = log(1 + e^x). From CUTOFF on y = x to double precision; the cut-off keeps exp from overflowing.
struct Softplus : Smooth {
    static constexpr bool SAVES = true;
    static constexpr double CUTOFF = 300.0;

    // e = exp(x), from the cut-off on a stand-in that nobody uses
    template <class L, class V = typename L::V>
    static V saved(V x)
    {
        return L::exp(L::select(below<L>(x), x, L::set(0.0)));
    }

    template <class L, class V = typename L::V>
    static V value(V x, V e)
    {
        return L::select(below<L>(x), L::log(e + L::set(1.0)), x);
    }

    // slope = e/(1 + e), 1 from the cut-off on
    template <class L, class V = typename L::V>
    static V slope(V x, V e)
    {
        return L::select(below<L>(x), e / (L::set(1.0) + e), L::set(1.0));
    }

    template <class L, class V = typename L::V>
    static V vjp(V x, V e, V ybar)
    {
        return slope<L>(x, e) * ybar;
    }

    template <class L, class V = typename L::V>
    static ValueTerm<L> value_term(V x, V e)
    {
        return {value<L>(x, e), e};
    }

    // x' e/(e + 1), the product first
    template <class L, class V = typename L::V>
    static V tangent(V x, V e, V dx)
    {
        const auto bends = below<L>(x);
        const V dx_below = L::select(bends, dx, L::set(0.0));
        return L::select(bends, dx_below * e / (e + L::set(1.0)), dx);
    }

    template <class L, class V = typename L::V>
    static VjpTerms<L> vjp_terms(V x, V e, V ybar)
    {
        const V s = slope<L>(x, e);
        const V curvature = L::select(below<L>(x), s / (L::set(1.0) + e), L::set(0.0));
        return {s * ybar, s, curvature * L::select(below<L>(x), ybar, L::set(0.0))};
    }

    // From the cut-off on y = x, so x' does not enter, whatever it is.
    template <class L, class V = typename L::V>
    static V vjp_tangent(V x, V slope, V dybar, V ybar_curvature, V dx)
    {
        return slope * dybar + ybar_curvature * L::select(below<L>(x), dx, L::set(0.0));
    }

private:
    template <class L, class V = typename L::V>
    static auto below(V x)
    {
        return L::less(x, L::set(CUTOFF));
    }
};

// The density of a residual: a Gaussian core of standard deviation sigma for |x| < 6 sigma, a Cauchy tail beyond.
// Deliberate: the pieces do not join. At |x| = 6 sigma the core gives 1.8e-8 and the tail 3.8e-5, so an outlier costs
// less than a residual just inside, and its cost grows with the logarithm only.
struct FatDensity {
    static constexpr double PI = 3.141592653589793;
    static constexpr double TWO_PI = 6.283185307179586;
    static constexpr double TAIL_SCALE = 0.0004785973257525766;
    static constexpr double TAIL_SCALE_SQ = 2.290554002175179e-7;

    template <class L, class V = typename L::V>
    static auto in_core(V x, double sigma)
    {
        return L::less(L::abs(x), L::set(6.0 * sigma));
    }

    template <class L, class V = typename L::V>
    static V value(V x, double sigma)
    {
        const auto core = in_core<L>(x, sigma);
        return L::select(core,
                         gauss<L>(harmless<L>(core, x), sigma),
                         cauchy<L>(L::select(core, L::set(1.0), x), TAIL_SCALE));
    }

    template <class L, class V = typename L::V>
    static V gauss(V x, double sigma)
    {
        return L::exp(x * x / L::set(-2.0 * sigma * sigma)) *
               L::set(1.0 / __builtin_sqrt(TWO_PI * sigma * sigma));
    }

    template <class L, class V = typename L::V>
    static V cauchy(V x, double gamma)
    {
        return L::set(gamma) * (L::set(1.0) / (L::set(PI) * (x * x + L::set(TAIL_SCALE_SQ))));
    }

    // w * f'(x), given f = value(x, sigma).
    template <class L, class V = typename L::V>
    static V vjp(V x, V w, V f, double sigma)
    {
        const auto core = in_core<L>(x, sigma);
        const V x_core = harmless<L>(core, x), w_core = harmless<L>(core, w);
        const V x_tail = L::select(core, L::set(1.0), x), w_tail = L::select(core, L::set(0.0), w);
        const V slope = (x_core * w_core) / L::set(-2.0 * sigma * sigma);
        return L::select(core, L::set(2.0) * slope * f, vjp_cauchy<L>(x_tail, w_tail, TAIL_SCALE));
    }

    template <class L, class V = typename L::V>
    static V vjp_cauchy(V x, V w, double gamma)
    {
        const V d = L::set(PI) * (x * x + L::set(TAIL_SCALE_SQ));
        return L::set(-PI * gamma) * (L::set(2.0) * x * w) / (d * d);
    }

private:
    template <class L, class Mask, class V>
    static V harmless(Mask core, V x)
    {
        return L::select(core, x, L::set(0.0));
    }
};

// The constants of a likelihood that a model gives: the standard deviation of the core, and the logarithm of the core's
// density at zero.
struct LogpConstants {
    double bias, sigma;
};

// y = -log f(x) + BIAS with f the density above: 4.5 x^2 in the core, exactly 0 at 0.
struct LogDnorm : Smooth {
    static constexpr bool SAVES = true;
    static constexpr double SIGMA = 0.3333333333333333;
    static constexpr double BIAS = 0.17967375546343706;  // -log(SIGMA*sqrt(2*pi))
    static constexpr LogpConstants LOGP{BIAS, SIGMA};

    template <class L, class V = typename L::V>
    static V saved(V x)
    {
        return FatDensity::value<L>(x, SIGMA);
    }

    template <class L, class V = typename L::V>
    static V value(V x, V f)
    {
        const V y = L::set(BIAS) - L::log(f);
        // A vector logarithm may miss the last bit of BIAS.
        return L::select(L::equal(x, L::set(0.0)), L::set(0.0), y);
    }

    template <class L, class V = typename L::V>
    static V vjp(V x, V f, V ybar)
    {
        return FatDensity::vjp<L>(x, L::negate(ybar) / f, f, SIGMA);
    }

    template <class L, class V = typename L::V>
    static ValueTerm<L> value_term(V x, V f)
    {
        return {value<L>(x, f), slope_and_curvature<L>(x).slope};
    }

    template <class L, class V = typename L::V>
    static VjpTerms<L> vjp_terms(V x, V f, V ybar)
    {
        const auto s = slope_and_curvature<L>(x);
        return {vjp<L>(x, f, ybar), s.slope, s.curvature * ybar};
    }

private:
    template <class L>
    struct SlopeCurvature {
        typename L::V slope, curvature;
    };

    // -f'/f and its derivative: x/sigma^2 and 1/sigma^2 in the core, 2xq and 2q - (2xq)^2 with
    // q = 1/(x^2 + TAIL_SCALE_SQ) in the tail.
    template <class L, class V = typename L::V>
    static SlopeCurvature<L> slope_and_curvature(V x)
    {
        const auto core = FatDensity::in_core<L>(x, SIGMA);
        const V variance = L::set(SIGMA * SIGMA);
        const V x_core = L::select(core, x, L::set(0.0));
        const V x_tail = L::select(core, L::set(1.0), x);
        const V q = L::set(1.0) / (x_tail * x_tail + L::set(FatDensity::TAIL_SCALE_SQ));
        const V two_xq = L::set(2.0) * x_tail * q;
        return {L::select(core, x_core / variance, two_xq),
                L::select(core, L::set(1.0) / variance, L::set(2.0) * q - two_xq * two_xq)};
    }
};

// All of them. The kernels of each instruction set follow from this list.
template <class... F>
struct FunctionList {
};

using ElementFunctions = FunctionList<Id, Relu, Atan, Softplus, LogDnorm>;

}  // namespace VEMKN
