#pragma once

#include <cstddef>

#include "vemkn.h"

// The eleven entry points that compute, under one signature. Tests, benchmarks and scripts/same-bits call the library
// through it; it needs no test framework.

// The arguments as a host passes them, and where results go. Each entry point looks at those that it takes.
struct Call {
    const double* w = nullptr;
    unsigned nw = 0;
    const double* x = nullptr;
    const double* y = nullptr;  // targets; what vemk_norm and vemk_logp take
    unsigned nrows = 0;
    unsigned xcols = 0;
    unsigned ycols = 0;
    double* value = nullptr;  // the objective of vemk_g and vemk_Hv
    double* array =
        nullptr;  // outputs, residuals, norms, the gradient; the objective of vemk_obj and vemk_norm
    const double* v = nullptr;   // tangents or cotangents
    unsigned nv = 1;             // how many
    double* products = nullptr;  // Hessian-vector, Jacobian-vector and vector-Jacobian products

    std::size_t elements() const { return std::size_t{nrows} * ycols; }
};

// How many numbers go to each place of a call.
struct ResultSizes {
    std::size_t value, array, products;

    std::size_t all() const { return value + array + products; }
};

struct EntryPoint {
    const char* name;
    int (*call)(VEMKNInfo* net, const Call& c);
    ResultSizes (*sizes)(const Call& c);
};

namespace entry_points {

inline ResultSizes one_number(const Call&)
{
    return {0, 1, 0};
}

inline ResultSizes one_per_element(const Call& c)
{
    return {0, c.elements(), 0};
}

inline ResultSizes value_and_gradient(const Call& c)
{
    return {1, c.nw, 0};
}

inline ResultSizes hessian_products(const Call& c)
{
    return {1, c.nw, std::size_t{c.nw} * c.nv};
}

inline ResultSizes jacobian_products(const Call& c)
{
    return {0, c.elements(), c.elements() * c.nv};
}

inline ResultSizes one_product_jacobian(const Call& c)
{
    return {0, c.elements(), c.nw};
}

inline ResultSizes products_jacobian(const Call& c)
{
    return {0, c.elements(), std::size_t{c.nv} * c.nw};
}

inline constexpr EntryPoint compute = {"vemk_compute",
                                       [](VEMKNInfo* net, const Call& c) {
                                           return vemk_compute(
                                               net, c.w, c.nw, c.x, c.nrows, c.xcols, 0, c.array);
                                       },
                                       one_per_element};

inline constexpr EntryPoint residual = {
    "vemk_residual",
    [](VEMKNInfo* net, const Call& c) {
        return vemk_residual(net, c.w, c.nw, c.x, c.y, c.nrows, c.xcols, c.ycols, c.array);
    },
    one_per_element};

inline constexpr EntryPoint obj = {
    "vemk_obj",
    [](VEMKNInfo* net, const Call& c) {
        return vemk_obj(net, c.w, c.nw, c.x, c.y, c.nrows, c.xcols, c.ycols, c.array);
    },
    one_number};

inline constexpr EntryPoint objv = {
    "vemk_objv",
    [](VEMKNInfo* net, const Call& c) {
        return vemk_objv(net, c.w, c.nw, c.x, c.y, c.nrows, c.xcols, c.ycols, c.array);
    },
    one_per_element};

inline constexpr EntryPoint norm = {
    "vemk_norm",
    [](VEMKNInfo* net, const Call& c) { return vemk_norm(net, c.y, c.nrows, c.ycols, c.array); },
    one_number};

inline constexpr EntryPoint logp = {"vemk_logp",
                                    [](VEMKNInfo* net, const Call& c) {
                                        return vemk_logp(
                                            net, c.y, static_cast<unsigned>(c.elements()), c.array);
                                    },
                                    one_per_element};

inline constexpr EntryPoint g = {
    "vemk_g",
    [](VEMKNInfo* net, const Call& c) {
        return vemk_g(net, c.w, c.nw, c.x, c.y, c.nrows, c.xcols, c.ycols, c.value, c.array);
    },
    value_and_gradient};

inline constexpr EntryPoint Hv = {"vemk_Hv",
                                  [](VEMKNInfo* net, const Call& c) {
                                      return vemk_Hv(net,
                                                     c.w,
                                                     c.nw,
                                                     c.v,
                                                     c.nv,
                                                     c.x,
                                                     c.y,
                                                     c.nrows,
                                                     c.xcols,
                                                     c.ycols,
                                                     c.value,
                                                     c.array,
                                                     c.products);
                                  },
                                  hessian_products};

inline constexpr EntryPoint Jv = {
    "vemk_Jv",
    [](VEMKNInfo* net, const Call& c) {
        return vemk_Jv(
            net, c.w, c.nw, c.v, c.nv, c.x, c.y, c.nrows, c.xcols, c.ycols, c.array, c.products);
    },
    jacobian_products};

inline constexpr EntryPoint vJ = {
    "vemk_vJ",
    [](VEMKNInfo* net, const Call& c) {
        return vemk_vJ(
            net, c.w, c.nw, c.v, 0, c.x, c.y, c.nrows, c.xcols, c.ycols, c.array, c.products);
    },
    one_product_jacobian};

inline constexpr EntryPoint vJ_vec = {
    "vemk_vJ_vec",
    [](VEMKNInfo* net, const Call& c) {
        return vemk_vJ_vec(
            net, c.w, c.nw, c.v, c.nv, c.x, c.y, c.nrows, c.xcols, c.ycols, c.array, c.products);
    },
    products_jacobian};

inline constexpr EntryPoint ENTRY_POINTS[] = {
    compute, residual, obj, objv, norm, logp, g, Hv, Jv, vJ, vJ_vec};

}  // namespace entry_points

using entry_points::ENTRY_POINTS;

// Runs a call whose results go, one place after the other, to the numbers at `out`, which has room for sizes(c).all().
inline int run_into(const EntryPoint& entry, VEMKNInfo* net, Call c, double* out)
{
    const ResultSizes sizes = entry.sizes(c);
    c.value = out;
    c.array = c.value + sizes.value;
    c.products = c.array + sizes.array;
    return entry.call(net, c);
}
