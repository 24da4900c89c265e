#include <gtest/gtest.h>

#include "support/network.h"
#include "support/reference.h"
#include "vemkn.h"

using reference::Json;
using reference::Numbers;

namespace {

struct Case {
    explicit Case(const Json& json)
        : expected(json.at("expected")),
          nw(json.at("numel")),
          nrows(json.at("nrows")),
          xcols(json.at("xcols")),
          ycols(json.at("ycols")),
          w(json.at("w").get<Numbers>()),
          x(json.at("x").get<Numbers>()),
          y(json.at("y").get<Numbers>())
    {
    }

    void check(const std::string& name, const Numbers& computed) const
    {
        reference::expect_matches(expected, name, computed);
    }

    std::size_t elements() const { return std::size_t{nrows} * ycols; }

    const Json& expected;
    unsigned nw, nrows, xcols, ycols;
    Numbers w, x, y;
};

void check_values(VEMKNInfo* net, const Case& c)
{
    Numbers out(c.elements());
    ASSERT_EQ(0, vemk_compute(net, c.w.data(), c.nw, c.x.data(), c.nrows, c.xcols, 0, out.data()));
    c.check("compute", out);
    ASSERT_EQ(
        0,
        vemk_residual(
            net, c.w.data(), c.nw, c.x.data(), c.y.data(), c.nrows, c.xcols, c.ycols, out.data()));
    c.check("residual", out);
    ASSERT_EQ(
        0,
        vemk_objv(
            net, c.w.data(), c.nw, c.x.data(), c.y.data(), c.nrows, c.xcols, c.ycols, out.data()));
    c.check("objv", out);
    Numbers obj(1);
    ASSERT_EQ(
        0,
        vemk_obj(
            net, c.w.data(), c.nw, c.x.data(), c.y.data(), c.nrows, c.xcols, c.ycols, obj.data()));
    c.check("obj", obj);
}

void check_gradient(VEMKNInfo* net, const Case& c)
{
    Numbers value(1), gradient(c.nw);
    ASSERT_EQ(0,
              vemk_g(net,
                     c.w.data(),
                     c.nw,
                     c.x.data(),
                     c.y.data(),
                     c.nrows,
                     c.xcols,
                     c.ycols,
                     value.data(),
                     gradient.data()));
    c.check("obj", value);
    c.check("gradient", gradient);
}

// The tangents of a case in one storage order, for as long as it lives.
class Tangents {
public:
    Tangents(const Json& json, const char* order)
        : nv(json.at(order).at("nv")), v(json.at(order).at("v").get<Numbers>())
    {
        vemk_major(nullptr, std::string(order) == "row");
    }

    ~Tangents() { vemk_major(nullptr, 0); }

    Tangents(const Tangents&) = delete;
    Tangents& operator=(const Tangents&) = delete;

    unsigned nv;
    Numbers v;
};

void check_Hv(VEMKNInfo* net, const Case& c, const Tangents& d, const std::string& result)
{
    Numbers value(1), gradient(c.nw), hv(std::size_t{c.nw} * d.nv);
    ASSERT_EQ(0,
              vemk_Hv(net,
                      c.w.data(),
                      c.nw,
                      d.v.data(),
                      d.nv,
                      c.x.data(),
                      c.y.data(),
                      c.nrows,
                      c.xcols,
                      c.ycols,
                      value.data(),
                      gradient.data(),
                      hv.data()));
    c.check("obj", value);
    c.check("gradient", gradient);
    c.check(result, hv);
}

void check_Jv(VEMKNInfo* net, const Case& c, const Tangents& d, const std::string& result)
{
    Numbers f(c.elements()), jac(c.elements() * d.nv);
    ASSERT_EQ(0,
              vemk_Jv(net,
                      c.w.data(),
                      c.nw,
                      d.v.data(),
                      d.nv,
                      c.x.data(),
                      c.y.data(),
                      c.nrows,
                      c.xcols,
                      c.ycols,
                      f.data(),
                      jac.data()));
    c.check("objv", f);
    c.check(result, jac);
}

void check_vJ(VEMKNInfo* net, const Case& c, unsigned k, const Numbers& u)
{
    Numbers r(c.elements()), products(std::size_t{k} * c.nw);
    ASSERT_EQ(0,
              vemk_vJ_vec(net,
                          c.w.data(),
                          c.nw,
                          u.data(),
                          k,
                          c.x.data(),
                          c.y.data(),
                          c.nrows,
                          c.xcols,
                          c.ycols,
                          r.data(),
                          products.data()));
    c.check("residual", r);
    c.check("vj", products);

    for (unsigned i = 0; i < k; ++i) {
        ASSERT_EQ(0,
                  vemk_vJ(net,
                          c.w.data(),
                          c.nw,
                          &u[i * c.elements()],
                          0,
                          c.x.data(),
                          c.y.data(),
                          c.nrows,
                          c.xcols,
                          c.ycols,
                          r.data(),
                          &products[std::size_t{i} * c.nw]));
    }
    c.check("residual", r);
    c.check("vj", products);
}

class ReferenceCase : public testing::TestWithParam<std::size_t> {
protected:
    const Json& json() const { return reference::cases()[GetParam()]; }
};

std::string name_of(const testing::TestParamInfo<std::size_t>& info)
{
    return reference::test_name(reference::cases()[info.param]["name"]);
}

class Evaluation : public ReferenceCase {};

class Likelihood : public ReferenceCase {};

// A fresh handle, and then every [batch, threads] pair of the case.
template <class Check>
void with_every_setting(const Json& json, const Check& check)
{
    const Network net(json.at("description"));
    const Case c(json);
    ASSERT_EQ(c.nw, vemk_numel(net));
    check(net, c);
    for (const Json& setting : json.at("settings")) {
        SCOPED_TRACE("batch, threads: " + setting.dump());
        ASSERT_EQ(0, vemk_setpar(net, setting[1].get<unsigned>(), setting[0].get<int>()));
        check(net, c);
    }
}

}  // namespace

TEST_P(Evaluation, ValuesMatch)
{
    with_every_setting(json(), check_values);
}

TEST_P(Evaluation, GradientMatches)
{
    with_every_setting(json(), check_gradient);
}

TEST_P(Evaluation, HessianProductsMatch)
{
    for (const char* order : {"column", "row"}) {
        if (!json().contains(order)) continue;
        const Tangents d(json(), order);
        with_every_setting(json(), [&](VEMKNInfo* net, const Case& c) {
            check_Hv(net, c, d, std::string("hv_") + order);
        });
    }
}

TEST_P(Evaluation, JacobianProductsMatch)
{
    for (const char* order : {"column", "row"}) {
        if (!json().contains(order)) continue;
        const Tangents d(json(), order);
        with_every_setting(json(), [&](VEMKNInfo* net, const Case& c) {
            check_Jv(net, c, d, std::string("jac_") + order);
        });
    }
}

TEST_P(Evaluation, TransposedJacobianProductsMatch)
{
    const unsigned k = json().at("u").at("k");
    const Numbers u = json().at("u").at("v");
    with_every_setting(json(), [&](VEMKNInfo* net, const Case& c) { check_vJ(net, c, k, u); });
}

TEST_P(Likelihood, NormAndLogpMatch)
{
    const Network net(json().at("description"));
    const Numbers r = json().at("r");
    const unsigned rows = json().at("rows"), cols = json().at("cols");
    Numbers norm(1), logp(r.size());
    ASSERT_EQ(0, vemk_norm(net, r.data(), rows, cols, norm.data()));
    reference::expect_matches(json().at("expected"), "norm", norm);
    ASSERT_EQ(0, vemk_logp(net, r.data(), static_cast<unsigned>(r.size()), logp.data()));
    reference::expect_matches(json().at("expected"), "logp", logp);
}

INSTANTIATE_TEST_SUITE_P(Reference,
                         Evaluation,
                         testing::ValuesIn(reference::indices("network")),
                         name_of);
INSTANTIATE_TEST_SUITE_P(Reference,
                         Likelihood,
                         testing::ValuesIn(reference::indices("likelihood")),
                         name_of);
