#include <cstring>
#include <limits>
#include <memory>

#include "fit/file.h"
#include "fit/interface.h"
#include "fit/model_file.h"

namespace {

using namespace vemknfit;

constexpr double NONE = std::numeric_limits<double>::quiet_NaN();

void read_into(VEMKNFit** fit, const std::string& text, const std::string& name)
{
    *fit = std::make_unique<VEMKNFit>(model_from(text, name)).release();
}

// Member i of a list that the model has; else nothing.
template <class List>
const typename List::value_type* entry(const List& list, std::size_t i)
{
    return i < list.size() ? &list[i] : nullptr;
}

const Target* target_of(const VEMKNFit* fit, std::size_t i)
{
    return fit == nullptr ? nullptr : entry(fit->model.targets, i);
}

const Summary* summary_of(const VEMKNFit* fit)
{
    return fit == nullptr || !fit->model.summary ? nullptr : &*fit->model.summary;
}

// Where there is a covariance.
const Uncertainty* uncertainty_of(const VEMKNFit* fit)
{
    if (fit == nullptr || !fit->model.uncertainty) return nullptr;
    const Uncertainty& uncertainty = *fit->model.uncertainty;
    return uncertainty.covariance.size() == 0 ? nullptr : &uncertainty;
}

}  // namespace

int vemkn_fit_save(const VEMKNFit* fit, const char* path)
{
    return guarded([&] {
        check_given(fit, "fit");
        check_given(path, "path");
        write_file(path, model_text(fit->model));
    });
}

int vemkn_fit_load(const char* path, VEMKNFit** fit)
{
    if (fit != nullptr) *fit = nullptr;
    return guarded([&] {
        check_given(path, "path");
        check_given(fit, "fit");
        read_into(fit, read_file(path, LARGEST_MODEL_FILE), path);
    });
}

int vemkn_fit_write(const VEMKNFit* fit, char* text, size_t size, size_t* length)
{
    return guarded([&] {
        check_given(fit, "fit");
        check_given(length, "length");
        const std::string whole = model_text(fit->model);
        *length = whole.size();
        if (text != nullptr && whole.size() < size)
            std::memcpy(text, whole.c_str(), whole.size() + 1);
    });
}

int vemkn_fit_read(const char* text, size_t length, VEMKNFit** fit)
{
    if (fit != nullptr) *fit = nullptr;
    return guarded([&] {
        check_given(text, "text");
        check_given(fit, "fit");
        read_into(fit, std::string(text, length), "the text");
    });
}

size_t vemkn_fit_columns(const VEMKNFit* fit)
{
    return fit == nullptr ? 0 : fit->model.inputs.size();
}

const char* vemkn_fit_column(const VEMKNFit* fit, size_t i)
{
    const ColumnRule* const rule = fit == nullptr ? nullptr : entry(fit->model.inputs, i);
    return rule == nullptr ? nullptr : rule->name.c_str();
}

size_t vemkn_fit_targets(const VEMKNFit* fit)
{
    return fit == nullptr ? 0 : fit->model.targets.size();
}

const char* vemkn_fit_target(const VEMKNFit* fit, size_t i)
{
    const Target* const target = target_of(fit, i);
    return target == nullptr ? nullptr : target->name.c_str();
}

double vemkn_fit_core(const VEMKNFit* fit, size_t i)
{
    const Target* const target = target_of(fit, i);
    return target == nullptr ? NONE : target->core;
}

double vemkn_fit_shift(const VEMKNFit* fit, size_t i)
{
    const Target* const target = target_of(fit, i);
    return target == nullptr ? NONE : target->shift;
}

double vemkn_fit_decay(const VEMKNFit* fit)
{
    return fit == nullptr ? NONE : fit->model.decay.value_or(NONE);
}

double vemkn_fit_objective(const VEMKNFit* fit)
{
    const Summary* const summary = summary_of(fit);
    return summary == nullptr ? NONE : summary->objective;
}

double vemkn_fit_gradient(const VEMKNFit* fit)
{
    const Summary* const summary = summary_of(fit);
    return summary == nullptr ? NONE : summary->gradient;
}

int vemkn_fit_settled(const VEMKNFit* fit)
{
    const Summary* const summary = summary_of(fit);
    return summary != nullptr && summary->settled ? 1 : 0;
}

size_t vemkn_fit_rows(const VEMKNFit* fit)
{
    return fit == nullptr ? 0 : static_cast<size_t>(fit->model.rows);
}

size_t vemkn_fit_beyond(const VEMKNFit* fit)
{
    const Summary* const summary = summary_of(fit);
    return summary == nullptr ? 0 : static_cast<size_t>(summary->beyond);
}

size_t vemkn_fit_layers(const VEMKNFit* fit)
{
    return fit == nullptr ? 0 : fit->model.hidden.size();
}

unsigned vemkn_fit_width(const VEMKNFit* fit, size_t i)
{
    const unsigned* const width = fit == nullptr ? nullptr : entry(fit->model.hidden, i);
    return width == nullptr ? 0 : *width;
}

const char* vemkn_fit_activation(const VEMKNFit* fit)
{
    return fit == nullptr ? nullptr : fit->model.activation.c_str();
}

const char* vemkn_fit_method(const VEMKNFit* fit)
{
    return fit == nullptr ? nullptr : fit->model.method.c_str();
}

const double* vemkn_fit_weights(const VEMKNFit* fit, size_t* count)
{
    if (count != nullptr)
        *count = fit == nullptr ? 0 : static_cast<size_t>(fit->model.weights.size());
    return fit == nullptr ? nullptr : fit->model.weights.data();
}

const double* vemkn_fit_covariance(const VEMKNFit* fit)
{
    const Uncertainty* const uncertainty = uncertainty_of(fit);
    return uncertainty == nullptr ? nullptr : uncertainty->covariance.data();
}

double vemkn_fit_parameters(const VEMKNFit* fit)
{
    const Uncertainty* const uncertainty = uncertainty_of(fit);
    return uncertainty == nullptr ? NONE : uncertainty->parameters;
}

size_t vemkn_fit_notes(const VEMKNFit* fit)
{
    const Summary* const summary = summary_of(fit);
    return summary == nullptr ? 0 : summary->notes.size();
}

const char* vemkn_fit_note(const VEMKNFit* fit, size_t i)
{
    const Summary* const summary = summary_of(fit);
    const std::string* const note = summary == nullptr ? nullptr : entry(summary->notes, i);
    return note == nullptr ? nullptr : note->c_str();
}
