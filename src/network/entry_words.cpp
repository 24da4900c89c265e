#include <array>
#include <tuple>

#include "eval/activations.h"
#include "eval/norms.h"
#include "vemkn.h"

namespace {

// The word of entry i of a list, null past its end.
template <class List>
const char* word(const List& list, unsigned i)
{
    const auto words =
        std::apply([](const auto&... entry) { return std::array{entry.word...}; }, list);
    return i < words.size() ? words[i] : nullptr;
}

}  // namespace

const char* vemk_activations(unsigned i)
{
    return word(VEMKN::ACTIVATIONS, i);
}

const char* vemk_norms(unsigned i)
{
    return word(VEMKN::NORMS, i);
}
