#include "fit/model_reader.h"

#include <vemkn.h>

#include <cmath>

#include "fit/failure.h"
#include "vemkn_fit.h"

namespace vemknfit {
namespace {

constexpr std::size_t MOST_COLUMNS = 100000, MOST_LAYERS = 16, MOST_UNITS = 4096, MOST_NOTES = 1000;

}  // namespace

void ModelReader::fail(const std::string& what) const
{
    throw Failure(VEMKN_FIT_MODEL, name_ + ": " + what);
}

const Json& ModelReader::at(const Json& object, const char* key) const
{
    const auto found = object.is_object() ? object.find(key) : object.end();
    if (found == object.end()) fail(std::string("no \"") + key + "\"");
    return *found;
}

double ModelReader::number_at(const Json& object, const char* key) const
{
    const Json& value = at(object, key);
    if (!value.is_number() || !std::isfinite(value.get<double>()))
        fail(std::string("\"") + key + "\" is not a number");
    return value.get<double>();
}

double ModelReader::positive_at(const Json& object, const char* key) const
{
    const double value = number_at(object, key);
    if (!(value > 0.0)) fail(std::string("\"") + key + "\" is not positive");
    return value;
}

std::uint64_t ModelReader::count_at(const Json& object, const char* key) const
{
    const Json& value = at(object, key);
    if (!value.is_number_unsigned()) fail(std::string("\"") + key + "\" is not a whole number");
    return value.get<std::uint64_t>();
}

std::string ModelReader::text_at(const Json& object, const char* key) const
{
    const Json& value = at(object, key);
    if (!value.is_string()) fail(std::string("\"") + key + "\" is not a text");
    return value.get<std::string>();
}

const Json& ModelReader::list_at(const Json& object,
                                 const char* key,
                                 std::size_t least,
                                 std::size_t most) const
{
    const Json& value = at(object, key);
    if (!value.is_array() || value.size() < least || value.size() > most)
        fail(std::string("\"") + key + "\" is not a list of " + std::to_string(least) + " to " +
             std::to_string(most));
    return value;
}

void ModelReader::check_version() const
{
    if (!json_.is_object() || !json_.contains("vemkn_model")) fail("is not a model of vemkn-fit");
    const Json& version = json_["vemkn_model"];
    if (!version.is_number_integer() || version.get<double>() < 1.0)
        fail("\"vemkn_model\" is not the number of a version");
    if (version.get<double>() > MODEL_VERSION)
        fail("was written by a newer release of vemkn-fit: this one reads models of version " +
             std::to_string(MODEL_VERSION));
}

std::vector<unsigned> ModelReader::read_hidden() const
{
    std::vector<unsigned> hidden;
    for (const Json& width : list_at(json_, "hidden", 1, MOST_LAYERS)) {
        if (!width.is_number_integer() || width.get<double>() < 1.0 ||
            width.get<double>() > static_cast<double>(MOST_UNITS))
            fail("\"hidden\" has a width that is not 1 to " + std::to_string(MOST_UNITS));
        hidden.push_back(width.get<unsigned>());
    }
    return hidden;
}

std::string ModelReader::read_activation() const
{
    std::string activation = text_at(json_, "activation");
    for (unsigned i = 0; const char* const word = vemk_activations(i); ++i)
        if (activation == word) return activation;
    fail("unknown activation \"" + activation + "\"");
}

std::vector<ColumnRule> ModelReader::read_inputs() const
{
    std::vector<ColumnRule> rules;
    for (const Json& input : list_at(json_, "inputs", 1, MOST_COLUMNS)) {
        ColumnRule rule{.name = text_at(input, "name")};
        if (input.contains("period")) {
            rule.period = positive_at(input, "period");
        } else if (input.contains("spread")) {
            rule.centre = number_at(input, "centre");
            rule.spread = positive_at(input, "spread");
            rule.bounded = true;
        } else {
            rule.centre = number_at(input, "mean");
            rule.spread = positive_at(input, "deviation");
        }
        rules.push_back(std::move(rule));
    }
    return rules;
}

std::vector<Target> ModelReader::read_targets() const
{
    std::vector<Target> targets;
    for (const Json& target : list_at(json_, "targets", 1, MOST_COLUMNS))
        targets.push_back({.name = text_at(target, "name"),
                           .core = positive_at(target, "core"),
                           .shift = number_at(target, "shift")});
    return targets;
}

std::optional<Summary> ModelReader::read_summary() const
{
    if (!json_.contains("summary")) return {};
    const Json& json = json_["summary"];
    Summary summary{.objective = number_at(json, "objective"),
                    .gradient = number_at(json, "gradient_norm"),
                    .beyond = count_at(json, "beyond_six_cores")};
    const Json& settled = at(json, "settled");
    if (!settled.is_boolean()) fail("\"settled\" is neither true nor false");
    summary.settled = settled.get<bool>();
    for (const Json& note : list_at(json, "notes", 0, MOST_NOTES)) {
        if (!note.is_string()) fail("\"notes\" holds what is not a text");
        summary.notes.push_back(note.get<std::string>());
    }
    return summary;
}

Matrix ModelReader::read_covariance(const Json& json, Eigen::Index weights) const
{
    const auto size = static_cast<std::size_t>(weights * (weights + 1) / 2);
    const Json& list = list_at(json, "covariance", size, size);
    Matrix covariance(weights, weights);
    std::size_t at = 0;
    for (Eigen::Index r = 0; r < weights; ++r) {
        for (Eigen::Index c = 0; c <= r; ++c) {
            const Json& value = list[at++];
            if (!value.is_number() || !std::isfinite(value.get<double>()))
                fail("\"covariance\" holds what is not a number");
            covariance(r, c) = covariance(c, r) = value.get<double>();
        }
    }
    return covariance;
}

std::optional<Uncertainty> ModelReader::read_uncertainty(const Model& model) const
{
    if (!json_.contains("uncertainty")) return {};
    const Json& json = json_["uncertainty"];
    if (json.is_object() && json.contains("none"))
        return Uncertainty{.why_none = text_at(json, "none")};
    if (model.targets.size() != 1) fail("\"uncertainty\" is of more than one target");
    if (model.weights.size() > MOST_UNCERTAIN_WEIGHTS)
        fail("\"uncertainty\" is of more than " + std::to_string(MOST_UNCERTAIN_WEIGHTS) +
             " weights");
    Uncertainty uncertainty{.parameters = number_at(json, "parameters"),
                            .freedom = number_at(json, "freedom")};
    if (uncertainty.freedom < 1.0) fail("\"freedom\" is less than 1");
    uncertainty.covariance = read_covariance(json, model.weights.size());
    return uncertainty;
}

Vector ModelReader::read_weights(const Model& model) const
{
    const std::size_t expected =
        number_of_weights(InputMap(model.inputs).width(), model.hidden, model.targets.size());
    const Json& list = at(json_, "weights");
    if (!list.is_array() || list.size() != expected)
        fail("\"weights\" is not a list of " + std::to_string(expected) +
             " numbers, as the network has");
    Vector weights(static_cast<Eigen::Index>(expected));
    for (std::size_t i = 0; i < expected; ++i) {
        if (!list[i].is_number() || !std::isfinite(list[i].get<double>()))
            fail("\"weights\" holds what is not a number");
        weights[static_cast<Eigen::Index>(i)] = list[i].get<double>();
    }
    return weights;
}

Model ModelReader::model() const
{
    check_version();
    Model model{.hidden = read_hidden(),
                .activation = read_activation(),
                .inputs = read_inputs(),
                .targets = read_targets()};
    model.weights = read_weights(model);
    model.method = text_at(json_, "method");
    model.norm = text_at(json_, "norm");
    if (json_.contains("decay")) {
        model.decay = number_at(json_, "decay");
        if (*model.decay < 0.0) fail("\"decay\" is negative");
    }
    model.seed = count_at(json_, "seed");
    model.rows = count_at(json_, "training_rows");
    model.summary = read_summary();
    model.uncertainty = read_uncertainty(model);
    return model;
}

}  // namespace vemknfit
