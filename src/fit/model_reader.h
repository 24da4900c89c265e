#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "fit/model.h"

namespace vemknfit {

using Json = nlohmann::ordered_json;

// Of model files: a newer one is refused.
inline constexpr int MODEL_VERSION = 1;

// Takes the JSON of a model apart, or throws a Failure that says what is wrong with it. Refers to what it is made of.
class ModelReader {
public:
    ModelReader(const Json& json, const std::string& name) : json_(json), name_(name) {}

    Model model() const;

private:
    [[noreturn]] void fail(const std::string& what) const;

    const Json& at(const Json& object, const char* key) const;
    double number_at(const Json& object, const char* key) const;
    double positive_at(const Json& object, const char* key) const;
    std::uint64_t count_at(const Json& object, const char* key) const;
    std::string text_at(const Json& object, const char* key) const;
    const Json& list_at(const Json& object,
                        const char* key,
                        std::size_t least,
                        std::size_t most) const;

    void check_version() const;
    std::vector<unsigned> read_hidden() const;
    std::string read_activation() const;
    std::vector<ColumnRule> read_inputs() const;
    std::vector<Target> read_targets() const;
    std::optional<Summary> read_summary() const;
    std::optional<Uncertainty> read_uncertainty(const Model& model) const;
    Matrix read_covariance(const Json& json, Eigen::Index weights) const;
    Vector read_weights(const Model& model) const;

    const Json& json_;
    const std::string& name_;
};

}  // namespace vemknfit
