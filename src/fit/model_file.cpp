#include "fit/model_file.h"

#include <vemkn.h>

#include "fit/failure.h"
#include "fit/model_reader.h"
#include "vemkn_fit.h"

namespace vemknfit {
namespace {

// Deeper than any model: texts that nest without end are refused before they are taken in.
constexpr int DEEPEST = 8;

Json json_of(const ColumnRule& rule)
{
    Json json{{"name", rule.name}};
    if (rule.period > 0.0) {
        json["period"] = rule.period;
    } else {
        json[rule.bounded ? "centre" : "mean"] = rule.centre;
        json[rule.bounded ? "spread" : "deviation"] = rule.spread;
    }
    return json;
}

Json json_of(const Summary& summary)
{
    return {{"objective", summary.objective},
            {"gradient_norm", summary.gradient},
            {"beyond_six_cores", summary.beyond},
            {"settled", summary.settled},
            {"notes", summary.notes}};
}

// The triangle of a symmetric matrix, row by row up to the diagonal.
std::vector<double> packed(const Matrix& matrix)
{
    std::vector<double> triangle;
    for (Eigen::Index r = 0; r < matrix.rows(); ++r)
        triangle.insert(triangle.end(), matrix.row(r).begin(), matrix.row(r).begin() + r + 1);
    return triangle;
}

Json json_of(const Uncertainty& uncertainty)
{
    if (uncertainty.covariance.size() == 0) return {{"none", uncertainty.why_none}};
    return {{"parameters", uncertainty.parameters},
            {"freedom", uncertainty.freedom},
            {"covariance", packed(uncertainty.covariance)}};
}

std::string dumped(const Json& json)
{
    try {
        return json.dump(1) + "\n";
    } catch (const Json::type_error&) {
        throw Failure(VEMKN_FIT_ARGUMENT, "a name of a column or target is not UTF-8");
    }
}

}  // namespace

std::string model_text(const Model& model)
{
    Json json{{"vemkn_model", MODEL_VERSION},
              {"software", VEMKN_VERSION},
              {"hidden", model.hidden},
              {"activation", model.activation},
              {"inputs", Json::array()},
              {"targets", Json::array()},
              {"method", model.method},
              {"norm", model.norm}};
    for (const ColumnRule& rule : model.inputs) json["inputs"].push_back(json_of(rule));
    for (const Target& target : model.targets)
        json["targets"].push_back(
            {{"name", target.name}, {"core", target.core}, {"shift", target.shift}});
    if (model.decay) json["decay"] = *model.decay;
    json["seed"] = model.seed;
    json["training_rows"] = model.rows;
    if (model.summary) json["summary"] = json_of(*model.summary);
    if (model.uncertainty) json["uncertainty"] = json_of(*model.uncertainty);
    json["weights"] = std::vector<double>(model.weights.begin(), model.weights.end());
    return dumped(json);
}

Model model_from(const std::string& text, const std::string& name)
{
    if (text.size() > LARGEST_MODEL_FILE)
        throw Failure(VEMKN_FIT_MODEL,
                      name + ": is larger than the " + std::to_string(LARGEST_MODEL_FILE) +
                          " bytes that a model may have");
    const auto not_too_deep = [&](int depth, Json::parse_event_t, const Json&) {
        if (depth > DEEPEST)
            throw Failure(VEMKN_FIT_MODEL, name + ": nests deeper than a model of vemkn-fit");
        return true;
    };
    const Json json = Json::parse(text, not_too_deep, false);
    if (json.is_discarded())
        throw Failure(VEMKN_FIT_MODEL, name + ": is not a model of vemkn-fit: no JSON");
    return ModelReader(json, name).model();
}

}  // namespace vemknfit
