#include "model.h"

#include "escape.h"
#include "fit/failure.h"
#include "fit/model_file.h"
#include "user_error.h"

namespace fit {

std::string model_text(const Problem& problem, const Options& options, const Fit& fit)
{
    if (fit.model) return text_of(fit.model.get());
    vemknfit::Model model{.hidden = options.shape.hidden,
                          .activation = options.shape.activation,
                          .inputs = problem.inputs.rules(),
                          .weights = fit.weights,
                          .method = method_name(options.fit.method),
                          .norm = options.fit.norm,
                          .seed = options.fit.seed,
                          .rows = problem.training.size()};
    for (InputRule& rule : model.inputs) rule.name = visible(rule.name);
    for (std::size_t t = 0; t < problem.targets.scales.size(); ++t)
        model.targets.push_back({.name = visible(problem.columns.target_names[t]),
                                 .core = problem.targets.scales[t].core,
                                 .shift = problem.targets.scales[t].shift});
    try {
        return vemknfit::model_text(model);
    } catch (const vemknfit::Failure& failure) {
        throw UserError(failure.what());
    }
}

}  // namespace fit
