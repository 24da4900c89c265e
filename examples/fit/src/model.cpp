#include "model.h"

#include <vemkn.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include "escape.h"
#include "user_error.h"

namespace fit {
namespace {

using Json = nlohmann::ordered_json;

constexpr int VERSION = 1;
constexpr std::size_t MOST_COLUMNS = 100000, MOST_LAYERS = 16, MOST_UNITS = 4096;

/// Takes a text apart and says what is wrong with it.
class Reader {
public:
    Reader(const Json& json, const std::string& name) : json_(json), name_(name) {}

    Model model() const
    {
        check_version();
        Shape shape = read_shape();
        std::vector<std::string> names;
        InputMap inputs(read_inputs());
        TargetMap targets = read_targets(names);
        shape.inputs = static_cast<unsigned>(inputs.width());
        shape.outputs = static_cast<unsigned>(names.size());
        Vector weights = read_weights(shape);
        return {std::move(shape),
                std::move(inputs),
                std::move(names),
                std::move(targets),
                std::move(weights)};
    }

private:
    [[noreturn]] void fail(const std::string& what) const { throw UserError(name_ + ": " + what); }

    const Json& at(const Json& object, const char* key) const
    {
        const auto found = object.is_object() ? object.find(key) : object.end();
        if (found == object.end()) fail(std::string("no \"") + key + "\"");
        return *found;
    }

    double number_at(const Json& object, const char* key) const
    {
        const Json& value = at(object, key);
        if (!value.is_number() || !std::isfinite(value.get<double>()))
            fail(std::string("\"") + key + "\" is not a number");
        return value.get<double>();
    }

    double positive_at(const Json& object, const char* key) const
    {
        const double value = number_at(object, key);
        if (!(value > 0.0)) fail(std::string("\"") + key + "\" is not positive");
        return value;
    }

    std::string text_at(const Json& object, const char* key) const
    {
        const Json& value = at(object, key);
        if (!value.is_string()) fail(std::string("\"") + key + "\" is not a text");
        return value.get<std::string>();
    }

    const Json& list_at(const Json& object, const char* key, std::size_t most) const
    {
        const Json& value = at(object, key);
        if (!value.is_array() || value.empty() || value.size() > most)
            fail(std::string("\"") + key + "\" is not a list of 1 to " + std::to_string(most));
        return value;
    }

    void check_version() const
    {
        if (!json_.is_object() || !json_.contains("vemkn_model"))
            fail("is not a model of vemkn-fit");
        const Json& version = json_["vemkn_model"];
        if (!version.is_number_integer() || version.get<double>() < 1.0)
            fail("\"vemkn_model\" is not the number of a version");
        if (version.get<double>() > VERSION)
            fail("was written by a newer release of vemkn-fit: this one reads models of version " +
                 std::to_string(VERSION));
    }

    Shape read_shape() const
    {
        Shape shape;
        for (const Json& width : list_at(json_, "hidden", MOST_LAYERS)) {
            if (!width.is_number_integer() || width.get<double>() < 1.0 ||
                width.get<double>() > static_cast<double>(MOST_UNITS))
                fail("\"hidden\" has a width that is not 1 to " + std::to_string(MOST_UNITS));
            shape.hidden.push_back(width.get<unsigned>());
        }
        shape.activation = text_at(json_, "activation");
        for (unsigned i = 0; const char* const word = vemk_activations(i); ++i)
            if (shape.activation == word) return shape;
        fail("unknown activation \"" + shape.activation + "\"");
    }

    std::vector<InputRule> read_inputs() const
    {
        std::vector<InputRule> rules;
        for (const Json& input : list_at(json_, "inputs", MOST_COLUMNS)) {
            InputRule rule{.name = text_at(input, "name")};
            if (input.contains("period")) {
                rule.period = positive_at(input, "period");
            } else {
                rule.mean = number_at(input, "mean");
                rule.deviation = positive_at(input, "deviation");
            }
            rules.push_back(std::move(rule));
        }
        return rules;
    }

    TargetMap read_targets(std::vector<std::string>& names) const
    {
        TargetMap map;
        for (const Json& target : list_at(json_, "targets", MOST_COLUMNS)) {
            names.push_back(text_at(target, "name"));
            map.scales.push_back(
                {.core = positive_at(target, "core"), .shift = number_at(target, "shift")});
        }
        return map;
    }

    Vector read_weights(const Shape& shape) const
    {
        const auto widths = shape.widths();
        std::size_t expected = 0;
        for (std::size_t i = 0; i + 1 < widths.size(); ++i)
            expected += (std::size_t{widths[i]} + 1) * widths[i + 1];
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

    const Json& json_;
    const std::string& name_;
};

Json json_of(const InputRule& rule)
{
    Json json{{"name", visible(rule.name)}};
    if (rule.period > 0.0) {
        json["period"] = rule.period;
    } else {
        json["mean"] = rule.mean;
        json["deviation"] = rule.deviation;
    }
    return json;
}

}  // namespace

Matrix Model::predict(const Matrix& columns) const
{
    const Network network(shape, "sum", {});
    return targets.undo(network.outputs(weights, inputs.apply(columns)));
}

std::string model_text(const Problem& problem,
                       const Options& options,
                       const Network& network,
                       const Fit& fit)
{
    Json json{{"vemkn_model", VERSION},
              {"software", VEMKN_VERSION},
              {"hidden", network.shape().hidden},
              {"activation", network.shape().activation},
              {"inputs", Json::array()},
              {"targets", Json::array()},
              {"method", method_name(options.fit.method)},
              {"norm", options.fit.norm}};
    for (const InputRule& rule : problem.inputs.rules()) json["inputs"].push_back(json_of(rule));
    for (std::size_t t = 0; t < problem.targets.scales.size(); ++t) {
        const TargetScale& scale = problem.targets.scales[t];
        json["targets"].push_back({{"name", visible(problem.columns.target_names[t])},
                                   {"core", scale.core},
                                   {"shift", scale.shift}});
    }
    if (fit.decay) json["decay"] = *fit.decay;
    json["seed"] = options.fit.seed;
    json["training_rows"] = problem.training.size();
    json["weights"] = std::vector<double>(fit.weights.begin(), fit.weights.end());
    return json.dump(1) + "\n";
}

Model model_from(const std::string& text, const std::string& name)
{
    const Json json = Json::parse(text, nullptr, false);
    if (json.is_discarded()) throw UserError(name + ": is not a model of vemkn-fit: no JSON");
    return Reader(json, name).model();
}

}  // namespace fit
