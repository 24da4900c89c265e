#include "library.h"

#include <filesystem>
#include <stdexcept>

#include "user_error.h"

namespace fit {

void accept(int code)
{
    switch (code) {
        case VEMKN_FIT_OK:
            return;
        case VEMKN_FIT_MEMORY:
        case VEMKN_FIT_INTERNAL:
            throw std::runtime_error(vemkn_fit_message());
        default:
            throw UserError(vemkn_fit_message());
    }
}

Model load_model(const std::string& path)
{
    std::error_code ignored;
    const bool is_folder = std::filesystem::is_directory(path, ignored);
    VEMKNFit* fit = nullptr;
    accept(vemkn_fit_load((is_folder ? path + "/model.json" : path).c_str(), &fit));
    return Model(fit);
}

std::string text_of(const VEMKNFit* model)
{
    std::size_t length = 0;
    accept(vemkn_fit_write(model, nullptr, 0, &length));
    std::string text(length + 1, '\0');
    accept(vemkn_fit_write(model, text.data(), text.size(), &length));
    text.resize(length);
    return text;
}

std::vector<std::string> columns_of(const VEMKNFit* model)
{
    std::vector<std::string> names;
    for (std::size_t i = 0; i < vemkn_fit_columns(model); ++i)
        names.emplace_back(vemkn_fit_column(model, i));
    return names;
}

std::vector<std::string> targets_of(const VEMKNFit* model)
{
    std::vector<std::string> names;
    for (std::size_t i = 0; i < vemkn_fit_targets(model); ++i)
        names.emplace_back(vemkn_fit_target(model, i));
    return names;
}

}  // namespace fit
