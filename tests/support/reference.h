#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// The reference cases of tests/reference: inputs, and results computed with 50 digits.

namespace reference {

using Json = nlohmann::json;
using Numbers = std::vector<double>;

inline const Json& cases()
{
    static const Json all = [] {
        Json list = Json::array();
        for (const char* name : {"chain",
                                 "kink",
                                 "likelihood",
                                 "padding",
                                 "plain",
                                 "range",
                                 "row_order",
                                 "shapes",
                                 "slices",
                                 "tail",
                                 "wide"}) {
            std::ifstream in(std::string(VEMKN_REFERENCE_DIR "/cases_") + name + ".json");
            if (!in) throw std::runtime_error(std::string("no reference cases: ") + name);
            Json file = Json::parse(in);
            for (Json& one : file["cases"]) list.push_back(std::move(one));
        }
        return list;
    }();
    return all;
}

inline std::vector<std::size_t> indices(const std::string& kind)
{
    std::vector<std::size_t> found;
    for (std::size_t i = 0; i < cases().size(); ++i) {
        if (cases()[i]["kind"] == kind) found.push_back(i);
    }
    return found;
}

// computed against expected[name], element by element; written so that a NaN fails.
inline void expect_matches(const Json& expected, const std::string& name, const Numbers& computed)
{
    const Numbers value = expected.at(name).at("value");
    const double tol = expected.at(name).at("tol");
    ASSERT_EQ(value.size(), computed.size()) << name;
    for (std::size_t i = 0; i < value.size(); ++i) {
        EXPECT_TRUE(std::abs(computed[i] - value[i]) <= tol)
            << name << "[" << i << "]: " << computed[i] << " is not " << value[i] << " to " << tol;
    }
}

inline std::string test_name(const std::string& case_name)
{
    std::string name = case_name;
    for (char& c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    }
    return name;
}

}  // namespace reference
