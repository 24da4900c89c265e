#include "network/description.h"

#include <sys/mman.h>
#include <unistd.h>

#include <locale>
#include <sstream>

#include "model/matrix.h"
#include "runtime/messages.h"

namespace VEMKN {

namespace {

// What a handle holds for each parameter: a double in the double model, a value and one tangent in the other.
constexpr std::uint64_t BYTES_PER_PARAMETER = 3 * sizeof(double);

// What a layer takes in both models even without parameters. Sizes, here and in the models; three matrices, of doubles, and
// a value and a derivative; three bias arrays of that kind, and two arrays that hold the derivatives. The latter are
// allocations of their own, and for an empty bias array the allocator gives the least it has.
constexpr std::uint64_t ALLOCATION = 2 * sizeof(void*), LEAST_ALLOCATION = 4 * sizeof(void*);
constexpr std::uint64_t BYTES_PER_LAYER =
    2 * sizeof(unsigned) + 3 * sizeof(MatrixTemplate<double>) + 5 * sizeof(std::valarray<double>) +
    2 * ALLOCATION + 3 * LEAST_ALLOCATION;

// What both models may take: half of the machine's memory, since every computing call takes memory of that order.
std::uint64_t memory_limit()
{
    return static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
           static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) / 2;
}

// Whether the process may have that much memory beside what it has: reserves it, touches none of it, gives it back.
bool can_reserve(std::uint64_t bytes)
{
    void* const area =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (area == MAP_FAILED) return false;
    munmap(area, bytes);
    return true;
}

// Bytes of both models, or something above limit as soon as it is known to be.
std::uint64_t bytes_needed(const Description& d, std::uint64_t limit)
{
    std::uint64_t bytes = d.nlayers * BYTES_PER_LAYER;
    for (std::size_t i = 0; i < d.nlayers && bytes <= limit; ++i) {
        if (d.rows(i) > UINT32_MAX) return limit + 1;
        // At most 2^32 * 2^32 + 2^32 parameters, so the product by 24 needs the wider type.
        const unsigned __int128 parameters =
            static_cast<unsigned __int128>(d.rows(i)) * d.cols(i) + d.cols(i);
        const unsigned __int128 layer = parameters * BYTES_PER_PARAMETER;
        if (layer > limit) return limit + 1;
        bytes += static_cast<std::uint64_t>(layer);
    }
    return bytes;
}

}  // namespace

std::uint64_t Description::rows(std::size_t i) const
{
    const std::uint64_t size = sizes[i];
    return i + 1 == nlayers ? size * nmult : size;
}

std::uint64_t Description::cols(std::size_t i) const
{
    return i + 1 == nlayers ? numout : sizes[i + 1];
}

Description parse_description(const std::string& text)
{
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    // Lack of memory while a word is read is an exception, not the end of the text.
    in.exceptions(std::ios_base::badbit);

    Description d;
    const auto read = [&](std::uint32_t& number) {
        if (in >> number) ++d.numbers;
    };
    for (auto* const number : {&d.numin, &d.numout, &d.nlayers, &d.nmult, &d.batch}) read(*number);
    if (d.numin == 0 || d.numout == 0 || d.nlayers == 0 || d.nmult == 0 || d.batch == 0) return d;

    const std::uint64_t limit = memory_limit();
    const std::uint64_t layers_only = d.nlayers * BYTES_PER_LAYER;
    if (layers_only > limit || !can_reserve(layers_only)) return d;
    set_size(d.sizes, d.nlayers);
    for (std::size_t i = 0; i < d.nlayers && in; ++i) read(d.sizes[i]);
    in >> d.activation_name >> d.norm_name;

    const std::uint64_t bytes = bytes_needed(d, limit);
    d.valid = bytes <= limit && can_reserve(bytes);
    return d;
}

std::optional<std::string> unfit_layers(std::size_t layers,
                                        std::uint32_t nmult,
                                        std::size_t first_size,
                                        std::size_t last_size)
{
    if (layers < 2) return message("the network has ", layers, " layers, needs at least 2");
    if (nmult == 1 || last_size == first_size) return {};
    return message("nmult is ",
                   nmult,
                   " and the last hidden width ",
                   last_size,
                   " differs from the first size ",
                   first_size);
}

}  // namespace VEMKN
