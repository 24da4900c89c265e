#include "show.h"

#include <cmath>
#include <string>

#include "command_line.h"
#include "fit/failure.h"
#include "library.h"
#include "standard_output.h"
#include "text.h"

namespace fit {
namespace {

/// A model may come from anywhere: no control character of it reaches a terminal.
std::string line(const std::string& label, const std::string& value)
{
    constexpr std::size_t WIDTH = 17;
    return label + std::string(WIDTH - label.size(), ' ') + vemknfit::printable(value) + "\n";
}

std::string line(const std::string& label, double value)
{
    return std::isnan(value) ? "" : line(label, number(value));
}

std::string network_of(const VEMKNFit* model)
{
    std::string text = std::to_string(vemkn_fit_columns(model)) + " columns, hidden ";
    for (std::size_t i = 0; i < vemkn_fit_layers(model); ++i)
        text += (i == 0 ? "" : "-") + std::to_string(vemkn_fit_width(model, i));
    std::size_t weights = 0;
    vemkn_fit_weights(model, &weights);
    return text + ", " + vemkn_fit_activation(model) + ", " + std::to_string(weights) + " weights";
}

std::string description_of(const VEMKNFit* model)
{
    std::string text = line("method", vemkn_fit_method(model));
    text += line("network", network_of(model));
    text += line("inputs", join(columns_of(model), ", "));
    const auto targets = targets_of(model);
    for (std::size_t t = 0; t < targets.size(); ++t)
        text += line("target",
                     targets[t] + ": core " + number(vemkn_fit_core(model, t)) + ", shift " +
                         number(vemkn_fit_shift(model, t)));
    text += line("rows", std::to_string(vemkn_fit_rows(model)));
    text += line("decay", vemkn_fit_decay(model));
    if (std::isnan(vemkn_fit_objective(model))) return text;
    text += line("beyond six cores", std::to_string(vemkn_fit_beyond(model)) + " rows");
    text += line("objective", vemkn_fit_objective(model));
    text += line("gradient norm", vemkn_fit_gradient(model));
    text += line("settled", vemkn_fit_settled(model) != 0 ? "yes" : "not quite");
    text += line("parameters", vemkn_fit_parameters(model));
    for (std::size_t i = 0; i < vemkn_fit_notes(model); ++i)
        text += line("note", vemkn_fit_note(model, i));
    return text;
}

}  // namespace

int run_show(int argc, char** argv)
{
    std::string path;
    bool json = false;
    CLI::App app("Shows what a model of vemkn-fit holds.\n", "vemkn-fit show");
    app.add_option("model", path, "model.json of a fit, or the folder that it is in")->required();
    app.add_flag("--json", json, "The text of the file, as this release writes it");
    if (const auto status = parse(app, argc, argv)) return *status;
    std::string text;
    {
        const LinesToStandardError quiet;
        const Model model = load_model(path);
        text = json ? text_of(model.get()) : description_of(model.get());
    }
    put_on_standard_output(text);
    return 0;
}

}  // namespace fit
