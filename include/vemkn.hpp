/** @file
 * libvemkn for C++20: a handle that cleans up after itself, spans in, vectors out, exceptions for mistakes. Everything is
 * inline, on the C interface of vemkn.h alone; what that says of descriptions, flat order, traps and process-wide state
 * holds here too.
 *
 * SPDX-License-Identifier: BSD-3-Clause
 *
 * ## An example
 *
 *     // Gradient descent; a step that does not lower the objective, or leaves the finite numbers, is halved.
 *     #include <cstdio>
 *     #include <vemkn.hpp>
 *
 *     int main()
 *     {
 *         vemkn::Network net({.numin = 1, .numout = 1, .sizes = {1, 4}});
 *         net.set_quiet(true);
 *         const std::vector<double> x{-2, -1.5, -1, -0.5, 0, 0.5, 1, 1.5, 2};
 *         const std::vector<double> y{2.1, 1.4, 1.1, 0.8, 0.7, 0.9, 40, 1.5, 2};
 *         std::vector<double> w(net.numel());
 *         for (std::size_t k = 0; k < w.size(); ++k) w[k] = 0.3 * static_cast<double>(k % 4) - 0.4;
 *
 *         vemkn::Gradient here = net.value_and_gradient(w, x, y);
 *         for (double step = 1; step > 1e-6;) {
 *             std::vector<double> trial = w;
 *             for (std::size_t k = 0; k < w.size(); ++k) trial[k] -= step * here.gradient[k];
 *             const vemkn::Gradient there = net.value_and_gradient(trial, x, y);
 *             if (there.finite && there.value < here.value - 1e-6) {
 *                 w = trial;
 *                 here = there;
 *             } else {
 *                 step /= 2;
 *             }
 *         }
 *         std::printf("objective %.4f\n", here.value);
 *     }
 *
 * ## Shapes
 *
 * Matrices are flat, row by row. A batch has at least one row; x has numin() columns and y has numout(), and the number
 * of rows is what their lengths say. Every length is checked before the library is called, so that no call ends the
 * process for too many columns: a wrong one throws std::invalid_argument, and nothing has been computed.
 *
 * ## Numbers that are not finite
 *
 * They are results, not errors: a line search wants to see that a step went too far, and to go on. So no call throws for
 * them; every result has a flag `finite`, which is whether all of its numbers are, and a single objective is its own flag
 * (std::isfinite). That takes set_quiet(true). In a new network, as in a new handle, traps are armed during calls, and
 * arithmetic that makes a NaN or an infinity ends the process with SIGFPE.
 *
 * ## Errors
 *
 * std::invalid_argument: a wrong shape or setting, or a text that describes no network. std::runtime_error: the library
 * refused the call all the same (2^32 or more results); the reason is on standard error. std::logic_error: a network that
 * has been moved from, which can be destroyed or assigned to and nothing else. std::bad_alloc is passed through; it
 * leaves no trap armed that was not before, and BLAS at one thread where it comes out of a call of the library.
 *
 * ## Threads
 *
 * Const member functions may run at the same time, on one network too; they return what they computed and change
 * nothing. The others must not overlap with any call on the same network. A fork while another thread is inside
 * hessian_product or jacobian_product leaves the child with that call's order; a child that goes on computing is forked
 * outside them.
 */
#ifndef VEMKN_HPP
#define VEMKN_HPP

#include <algorithm>
#include <cfenv>
#include <climits>
#include <cmath>
#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "vemkn.h"

namespace vemkn {

namespace detail {

[[noreturn]] inline void wrong(const std::string& what)
{
    throw std::invalid_argument("vemkn: " + what);
}

// The word is one of the library's list; else the message names them.
inline void check_word(const char* what, const std::string& word, const char* (*list)(unsigned))
{
    std::string known;
    for (unsigned i = 0; const char* const listed = list(i); ++i) {
        if (word == listed) return;
        known += (i == 0 ? "" : ", ") + std::string(listed);
    }
    wrong(std::string(what) + " \"" + word + "\" is none of " + known);
}

}  // namespace detail

/** The words of a description text, see vemkn.h. */
struct Description {
    unsigned numin = 1;                  /**< input columns */
    unsigned numout = 1;                 /**< output columns */
    std::vector<unsigned> sizes{};       /**< widths of the layers' inputs, at least two */
    std::string activation = "softplus"; /**< of every layer: a word that vemk_activations lists */
    std::string norm = "sum_log_dnorm_fat"; /**< of the residuals: a word that vemk_norms lists */
    unsigned nmult = 1;                     /**< how often the hidden layers are applied */

    /** The words as initVEMKNet takes them.
     * @return the description text
     * @throws std::invalid_argument for an activation or a norm that the library does not list */
    std::string text() const
    {
        detail::check_word("activation", activation, vemk_activations);
        detail::check_word("norm", norm, vemk_norms);
        std::string words = std::to_string(numin) + " " + std::to_string(numout) + " " +
                            std::to_string(sizes.size()) + " " + std::to_string(nmult) + " 32 ";
        for (const unsigned size : sizes) words += std::to_string(size) + " ";
        return words + activation + " " + norm;
    }
};

/** How several tangents, and the products with them, lie in one vector: entry k of tangent d of nv, each of n entries,
 * is at [k*nv + d] or at [d*n + k]. */
enum class Order { interleaved, consecutive };

/** Numbers of a batch, rows * numout() of them, row by row. */
struct Values {
    std::vector<double> values; /**< the numbers */
    bool finite;                /**< whether every number here is */
};

/** What Network::value_and_gradient computes. */
struct Gradient {
    double value;                 /**< the objective */
    std::vector<double> gradient; /**< numel(), flat order */
    bool finite;                  /**< whether every number here is */
};

/** What Network::hessian_product computes. */
struct HessianProduct {
    double value;                 /**< the objective */
    std::vector<double> gradient; /**< numel(), flat order */
    std::vector<double> products; /**< numel() * nv, in the order of the tangents */
    bool finite;                  /**< whether every number here is */
};

/** What Network::jacobian_product computes. */
struct JacobianProduct {
    std::vector<double> values;   /**< rows * numout(), the element norm of every residual */
    std::vector<double> products; /**< rows * numout() * nv, in the order of the tangents */
    bool finite;                  /**< whether every number here is */
};

/** What Network::product_jacobian computes. */
struct ProductJacobian {
    std::vector<double> residuals; /**< rows * numout() */
    std::vector<double> products;  /**< k * numel(), one product after the other */
    bool finite;                   /**< whether every number here is */
};

namespace detail {

// Calls the library. An exception leaves the traps armed that the call had armed; they are put back as they were before.
template <class Result, class... Parameters>
Result call(Result (*entry)(Parameters...), std::type_identity_t<Parameters>... arguments)
{
    const int traps = fegetexcept();
    try {
        return entry(arguments...);
    } catch (...) {
        fedisableexcept(FE_ALL_EXCEPT);
        feenableexcept(traps);
        throw;
    }
}

// While one of these lives, vemkn_rowmajor is 0; the last one to go puts back what the first one found. They do not wait
// for each other, so calls of several threads overlap. The record is one for the process, whatever its visibility flags.
class Interleaved {
public:
    Interleaved()
    {
        const std::lock_guard lock(record().mutex);
        if (record().users++ > 0) return;
        record().found = vemkn_rowmajor;
        if (record().found != 0) vemk_major(nullptr, 0);
    }

    ~Interleaved()
    {
        const std::lock_guard lock(record().mutex);
        if (--record().users == 0 && record().found != 0) vemk_major(nullptr, record().found);
    }

    Interleaved(const Interleaved&) = delete;
    Interleaved& operator=(const Interleaved&) = delete;

private:
    struct Record {
        std::mutex mutex;
        unsigned users = 0;
        int found = 0;
    };

    VEMKN_API static Record& record()
    {
        static Record the_one;
        return the_one;
    }
};

// a, rows x cols, as cols x rows.
inline std::vector<double> transposed(std::span<const double> a, std::size_t rows, std::size_t cols)
{
    std::vector<double> t(a.size());
    for (std::size_t r = 0; r < rows; ++r) {
        for (std::size_t c = 0; c < cols; ++c) t[c * rows + r] = a[r * cols + c];
    }
    return t;
}

inline bool all_finite(std::span<const double> numbers)
{
    return std::ranges::all_of(numbers, [](double number) { return std::isfinite(number); });
}

inline unsigned count(std::size_t n, const char* what)
{
    if (n > UINT_MAX) wrong(std::to_string(n) + " " + what + " are too many");
    return static_cast<unsigned>(n);
}

}  // namespace detail

/** A network: a handle of the library and nothing else. Can be moved, not copied. */
class Network {
public:
    /** @param text  a description as in vemkn.h
     * @throws std::invalid_argument for a text that describes no network that can be evaluated: too few words or layers,
     *         a width of 0, an unknown norm, more than the machine's memory; what() says which. An unknown activation is
     *         softplus, as ever. The library may say more on standard error or output. */
    explicit Network(std::string_view text) : handle_(create(text))
    {
        if (!usable()) detail::wrong(fault(text));
    }

    /** As Network(description.text()).
     * @param description  the words of the text */
    explicit Network(const Description& description) : Network(description.text()) {}

    /** Input columns that x has: the first word of the text, or the first of the sizes where that is smaller.
     * @return their number */
    unsigned numin() const { return vemk_maxcols(handle()); }

    /** Output columns, and columns of y.
     * @return their number */
    unsigned numout() const { return vemk_numout(handle()); }

    /** Number of weights and biases.
     * @return the length of the flat vector */
    std::size_t numel() const { return vemk_numel(handle()); }

    /** The handle, for what this class leaves out (the likelihood helpers, single layers); the network keeps it.
     * @return never null
     * @throws std::logic_error for a network that has been moved from, as every member function does. */
    VEMKNInfo* handle() const
    {
        if (!handle_) throw std::logic_error("vemkn: the network has been moved from");
        return handle_.get();
    }

    /** Number of threads at most; 1 in a new network outside parallel regions.
     * @param threads  1 ... 99999
     * @throws std::invalid_argument unless 1 ... 99999 */
    void set_threads(unsigned threads)
    {
        // A slice size of 0 leaves it as it is.
        if (vemk_setpar(handle(), threads, 0) != 0) {
            detail::wrong(std::to_string(threads) + " threads");
        }
    }

    /** Rows of a slice; 32 in a new network.
     * @param rows  1 or more
     * @throws std::invalid_argument unless 1 or more */
    void set_batch(int rows)
    {
        if (vemk_setbatch(handle(), rows) != 0) {
            detail::wrong("slices of " + std::to_string(rows) + " rows");
        }
    }

    /** Whether calls let numbers that are not finite pass (true) or arm traps (false, as in a new network).
     * @param on  true for the quiet mode */
    void set_quiet(bool on) { vemk_quiet(handle(), on ? 1 : 0); }

    /** The weights that the network keeps for its owner: zeros at first. No computation reads them unless they are handed
     * in, as in net.objective(net.weights(), x, y).
     * @return numel() numbers, flat order */
    std::vector<double> weights() const
    {
        std::vector<double> w(numel());
        done("vemk_getweights",
             vemk_getweights(handle(), w.data(), detail::count(w.size(), "weights")));
        return w;
    }

    /** @param w  numel() numbers, flat order; copied */
    void set_weights(std::span<const double> w)
    {
        done("vemk_setweights", vemk_setweights(handle(), w.data(), weight_count(w)));
    }

    /** Outputs, on the calling thread.
     * @param w  numel() numbers, flat order
     * @param x  rows * numin()
     * @return rows * numout() outputs */
    Values compute(std::span<const double> w, std::span<const double> x) const
    {
        const Shape s = shape(w, x, x.size() / numin());
        Values r{std::vector<double>(s.results()), true};
        const int status = detail::call(
            vemk_compute, handle(), w.data(), s.nw, x.data(), s.rows, s.xcols, 0, r.values.data());
        r.finite = done("vemk_compute", status) && detail::all_finite(r.values);
        return r;
    }

    /** Residuals, output minus target, on the calling thread.
     * @param w  numel() numbers, flat order
     * @param x  rows * numin()
     * @param y  rows * numout()
     * @return rows * numout() residuals */
    Values residual(std::span<const double> w,
                    std::span<const double> x,
                    std::span<const double> y) const
    {
        return values("vemk_residual", vemk_residual, w, x, y);
    }

    /** Objective, the mean norm of the residuals.
     * @param w  numel() numbers, flat order
     * @param x  rows * numin()
     * @param y  rows * numout()
     * @return the objective; whether it is finite says itself */
    double objective(std::span<const double> w,
                     std::span<const double> x,
                     std::span<const double> y) const
    {
        const Shape s = shape(w, x, y);
        double value = 0.0;
        done("vemk_obj",
             detail::call(vemk_obj,
                          handle(),
                          w.data(),
                          s.nw,
                          x.data(),
                          y.data(),
                          s.rows,
                          s.xcols,
                          s.ycols,
                          &value));
        return value;
    }

    /** The norm of every residual.
     * @param w  numel() numbers, flat order
     * @param x  rows * numin()
     * @param y  rows * numout()
     * @return rows * numout() norms */
    Values objective_each(std::span<const double> w,
                          std::span<const double> x,
                          std::span<const double> y) const
    {
        return values("vemk_objv", vemk_objv, w, x, y);
    }

    /** Objective and its gradient.
     * @param w  numel() numbers, flat order
     * @param x  rows * numin()
     * @param y  rows * numout()
     * @return both */
    Gradient value_and_gradient(std::span<const double> w,
                                std::span<const double> x,
                                std::span<const double> y) const
    {
        const Shape s = shape(w, x, y);
        Gradient r{0.0, std::vector<double>(s.nw), true};
        const int status = detail::call(vemk_g,
                                        handle(),
                                        w.data(),
                                        s.nw,
                                        x.data(),
                                        y.data(),
                                        s.rows,
                                        s.xcols,
                                        s.ycols,
                                        &r.value,
                                        r.gradient.data());
        r.finite =
            done("vemk_g", status) && std::isfinite(r.value) && detail::all_finite(r.gradient);
        return r;
    }

    /** Objective, gradient and the products of the Hessian with nv tangents.
     *
     * The order is this call's alone. vemkn_rowmajor, which is one for the process, is set to 0 while such calls run and
     * then put back, so neither may the host write it meanwhile, nor call vemk_Hv or vemk_Jv itself expecting anything
     * but 0. Consecutive tangents cost a copy of them and of the products, and no more tangents.
     *
     * @param w      numel() numbers, flat order
     * @param v      numel() * nv, at least one tangent
     * @param x      rows * numin()
     * @param y      rows * numout()
     * @param order  of v and of the products
     * @return the objective, its gradient and the products */
    HessianProduct hessian_product(std::span<const double> w,
                                   std::span<const double> v,
                                   std::span<const double> x,
                                   std::span<const double> y,
                                   Order order = Order::interleaved) const
    {
        const Shape s = shape(w, x, y);
        const Tangents tangents(v, s.nw, order);
        HessianProduct r{0.0, std::vector<double>(s.nw), std::vector<double>(v.size()), true};
        {
            const detail::Interleaved interleaved;
            const int status = detail::call(vemk_Hv,
                                            handle(),
                                            w.data(),
                                            s.nw,
                                            tangents.data(),
                                            tangents.number(),
                                            x.data(),
                                            y.data(),
                                            s.rows,
                                            s.xcols,
                                            s.ycols,
                                            &r.value,
                                            r.gradient.data(),
                                            r.products.data());
            r.finite = done("vemk_Hv", status);
        }
        r.finite = r.finite && std::isfinite(r.value) && detail::all_finite(r.gradient) &&
                   detail::all_finite(r.products);
        tangents.put_in_order(r.products);
        return r;
    }

    /** The norm of every residual and its derivatives along nv tangents; vemkn_rowmajor as in hessian_product().
     * @param w      numel() numbers, flat order
     * @param v      numel() * nv, at least one tangent
     * @param x      rows * numin()
     * @param y      rows * numout()
     * @param order  of v and of the products
     * @return the norms and the products */
    JacobianProduct jacobian_product(std::span<const double> w,
                                     std::span<const double> v,
                                     std::span<const double> x,
                                     std::span<const double> y,
                                     Order order = Order::interleaved) const
    {
        const Shape s = shape(w, x, y);
        const Tangents tangents(v, s.nw, order);
        JacobianProduct r{std::vector<double>(s.results()),
                          std::vector<double>(s.results() * tangents.number()),
                          true};
        {
            const detail::Interleaved interleaved;
            const int status = detail::call(vemk_Jv,
                                            handle(),
                                            w.data(),
                                            s.nw,
                                            tangents.data(),
                                            tangents.number(),
                                            x.data(),
                                            y.data(),
                                            s.rows,
                                            s.xcols,
                                            s.ycols,
                                            r.values.data(),
                                            r.products.data());
            r.finite = done("vemk_Jv", status);
        }
        r.finite = r.finite && detail::all_finite(r.values) && detail::all_finite(r.products);
        tangents.put_in_order(r.products);
        return r;
    }

    /** Residuals, and for each of k cotangents u the sum over all residuals of u times the gradient of the residual's
     * norm. Rows are shared out over the threads, and cotangents where rows are few.
     *
     * @param w  numel() numbers, flat order
     * @param u  k * rows * numout(), one cotangent after the other, at least one
     * @param x  rows * numin()
     * @param y  rows * numout()
     * @return the residuals and the products */
    ProductJacobian product_jacobian(std::span<const double> w,
                                     std::span<const double> u,
                                     std::span<const double> x,
                                     std::span<const double> y) const
    {
        const Shape s = shape(w, x, y);
        const unsigned k = multiple(u, s.results(), "cotangent values");
        ProductJacobian r{
            std::vector<double>(s.results()), std::vector<double>(std::size_t{k} * s.nw), true};
        const int status = k == 1 ? detail::call(vemk_vJ,
                                                 handle(),
                                                 w.data(),
                                                 s.nw,
                                                 u.data(),
                                                 0,
                                                 x.data(),
                                                 y.data(),
                                                 s.rows,
                                                 s.xcols,
                                                 s.ycols,
                                                 r.residuals.data(),
                                                 r.products.data())
                                  : detail::call(vemk_vJ_vec,
                                                 handle(),
                                                 w.data(),
                                                 s.nw,
                                                 u.data(),
                                                 k,
                                                 x.data(),
                                                 y.data(),
                                                 s.rows,
                                                 s.xcols,
                                                 s.ycols,
                                                 r.residuals.data(),
                                                 r.products.data());
        r.finite = done(k == 1 ? "vemk_vJ" : "vemk_vJ_vec", status) &&
                   detail::all_finite(r.residuals) && detail::all_finite(r.products);
        return r;
    }

private:
    struct Release {
        void operator()(VEMKNInfo* net) const { releaseVEMKNet(net); }
    };

    // The counts of a call whose shapes are right.
    struct Shape {
        unsigned nw, rows, xcols, ycols;

        std::size_t results() const { return std::size_t{rows} * ycols; }
    };

    // Tangents as the library takes them, interleaved.
    class Tangents {
    public:
        Tangents(std::span<const double> v, unsigned nw, Order order)
            : given_(v),
              number_(multiple(v, nw, "tangent values")),
              turned_(order == Order::consecutive && number_ > 1)
        {
            if (turned_) copy_ = detail::transposed(v, number_, nw);
        }

        unsigned number() const { return number_; }

        const double* data() const { return turned_ ? copy_.data() : given_.data(); }

        // Interleaved products in the caller's order.
        void put_in_order(std::vector<double>& products) const
        {
            if (turned_) {
                products = detail::transposed(products, products.size() / number_, number_);
            }
        }

    private:
        std::span<const double> given_;
        unsigned number_;
        bool turned_;
        std::vector<double> copy_{};
    };

    static VEMKNInfo* create(std::string_view text)
    {
        if (text.size() > INT_MAX) detail::wrong("the text is too long");
        // The library wants a text, be it empty.
        return detail::call(
            initVEMKNet, text.empty() ? "" : text.data(), static_cast<int>(text.size()));
    }

    // What is wrong with a text, in words.
    static std::string fault(std::string_view text)
    {
        char sentence[400];
        vemk_check(text.data(), static_cast<int>(text.size()), sentence, sizeof sentence);
        std::string said = "\"";
        return said.append(text).append("\" describes no network: ").append(sentence);
    }

    // Whether the library would run the network and use its norm: it is asked to, for no rows. A text that breaks off
    // leaves widths of 0.
    bool usable() const
    {
        VEMKNInfo* const net = handle_.get();
        unsigned rows = 0, cols = 0;
        for (unsigned layer = 0; vemk_weights(net, layer, nullptr, &rows, &cols) == 0; ++layer) {
            if (rows == 0 || cols == 0) return false;
        }
        double value = 0.0;
        return detail::call(vemk_compute, net, nullptr, 0, nullptr, 0, 0, 0, nullptr) == 0 &&
               detail::call(vemk_norm, net, nullptr, 0, 0, &value) == 0;
    }

    // Whether all results were finite as far as the library looked, which it does in quiet mode.
    static bool done(const char* entry, int status)
    {
        if (status == -1)
            throw std::runtime_error(std::string("vemkn: ") + entry + " refused the call");
        return status == 0;
    }

    // How many blocks of that length these are, one or more.
    static unsigned multiple(std::span<const double> a, std::size_t length, const char* what)
    {
        if (a.empty() || a.size() % length != 0) {
            detail::wrong(std::to_string(a.size()) + " " + what + " are no multiple of " +
                          std::to_string(length));
        }
        return detail::count(a.size() / length, what);
    }

    unsigned weight_count(std::span<const double> w) const
    {
        if (w.size() != numel()) {
            detail::wrong(std::to_string(w.size()) + " weights, the network has " +
                          std::to_string(numel()));
        }
        return detail::count(w.size(), "weights");
    }

    Shape shape(std::span<const double> w, std::span<const double> x, std::size_t rows) const
    {
        const Shape s{weight_count(w), detail::count(rows, "rows"), numin(), numout()};
        if (rows == 0) detail::wrong("the batch has no rows");
        if (x.size() != rows * s.xcols) {
            detail::wrong(std::to_string(x.size()) + " inputs are not " + std::to_string(rows) +
                          " rows of " + std::to_string(s.xcols));
        }
        return s;
    }

    Shape shape(std::span<const double> w,
                std::span<const double> x,
                std::span<const double> y) const
    {
        if (y.size() % numout() != 0) {
            detail::wrong(std::to_string(y.size()) + " targets are not rows of " +
                          std::to_string(numout()));
        }
        return shape(w, x, y.size() / numout());
    }

    // One number for each residual, from an entry point of that form.
    Values values(const char* name,
                  decltype(&vemk_residual) entry,
                  std::span<const double> w,
                  std::span<const double> x,
                  std::span<const double> y) const
    {
        const Shape s = shape(w, x, y);
        Values r{std::vector<double>(s.results()), true};
        const int status = detail::call(entry,
                                        handle(),
                                        w.data(),
                                        s.nw,
                                        x.data(),
                                        y.data(),
                                        s.rows,
                                        s.xcols,
                                        s.ycols,
                                        r.values.data());
        r.finite = done(name, status) && detail::all_finite(r.values);
        return r;
    }

    std::unique_ptr<VEMKNInfo, Release> handle_;
};

}  // namespace vemkn

#endif /* VEMKN_HPP */
