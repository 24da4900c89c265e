#include "network/function_tables.h"

namespace VEMKN {

namespace {

template <class Rows>
std::optional<std::size_t> row_named(const Rows& rows, std::string_view word)
{
    for (std::size_t row = 0; row < rows.size(); ++row) {
        if (rows[row].word == word) return row;
    }
    return {};
}

}  // namespace

FunctionRows function_rows(std::string_view activation_name, std::string_view norm_name)
{
    return {row_named(tables::ACTIVATION_ROWS<DoubleModel>, activation_name).value_or(0),
            row_named(tables::NORM_ROWS<DoubleModel>, norm_name)};
}

LogpConstants logp_of(const FunctionRows& rows)
{
    if (!rows.norm) return LOGP_OF_EVERY_MODEL;
    return tables::NORM_ROWS<DoubleModel>[*rows.norm].logp;
}

}  // namespace VEMKN
