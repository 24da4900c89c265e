#pragma once

#include <string>

#include "fit/model.h"

namespace vemknfit {

// More than any model takes that can be read.
inline constexpr std::size_t LARGEST_MODEL_FILE = std::size_t{32} << 20U;

// A model as the text of a file, JSON: no time, host or path, every number to the last bit. docs/model.md describes it. Throws
// Failure for a name that is not UTF-8.
std::string model_text(const Model& model);

// name: of the file, for messages. Throws Failure for any text that is no model which this version can use; what a text asks for is
// checked before memory is taken for it.
Model model_from(const std::string& text, const std::string& name);

}  // namespace vemknfit
