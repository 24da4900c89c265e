#ifndef VEMKN_FIT_LIBRARY_H
#define VEMKN_FIT_LIBRARY_H

#include <vemkn_fit.h>

#include <memory>
#include <string>
#include <vector>

#include "matrix.h"

namespace fit {

struct ReleaseModel {
    void operator()(VEMKNFit* fit) const { vemkn_fit_free(fit); }
};

/// A fit of the library: a model, which robust fits make and model files hold.
using Model = std::unique_ptr<VEMKNFit, ReleaseModel>;

/// @throw UserError for what the user gave, std::runtime_error for anything else, unless a call has succeeded
void accept(int code);

/** @param[in] path  model.json, or the folder that it is in
 * @throw UserError for a file that is no model which this version can use */
Model load_model(const std::string& path);

/// The text of its model file.
std::string text_of(const VEMKNFit* model);

/// Names of its input columns, as visible() shows them.
std::vector<std::string> columns_of(const VEMKNFit* model);

/// Names of its targets, likewise.
std::vector<std::string> targets_of(const VEMKNFit* model);

}  // namespace fit

#endif
