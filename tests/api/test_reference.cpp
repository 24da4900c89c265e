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
          y(json.at("y").get<Numbers>()) {}

    void check(const std::string& name, const Numbers& computed) const {
        reference::expect_matches(expected, name, computed);
    }

    std::size_t elements() const { return std::size_t{nrows} * ycols; }

    const Json& expected;
    unsigned nw, nrows, xcols, ycols;
    Numbers w, x, y;
};

void check_values(VEMKNInfo* net, const Case& c) {
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

void check_gradient(VEMKNInfo* net, const Case& c) {
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

class ReferenceCase : public testing::TestWithParam<std::size_t> {
protected:
    const Json& json() const { return reference::cases()[GetParam()]; }
};

std::string name_of(const testing::TestParamInfo<std::size_t>& info) {
    return reference::test_name(reference::cases()[info.param]["name"]);
}

class Evaluation : public ReferenceCase {};

class Likelihood : public ReferenceCase {};

// A fresh handle, and then every [batch, threads] pair of the case.
template <class Check>
void with_every_setting(const Json& json, const Check& check) {
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

TEST_P(Evaluation, ValuesMatch) {
    with_every_setting(json(), check_values);
}

TEST_P(Evaluation, GradientMatches) {
    with_every_setting(json(), check_gradient);
}

TEST_P(Likelihood, NormAndLogpMatch) {
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
