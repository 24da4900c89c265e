#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <valarray>

namespace VEMKN {

// What a description text says, in the order in which it says it. A short or garbled text leaves the rest at 0.
struct Description {
    std::uint32_t numin = 0;
    std::uint32_t numout = 0;
    std::uint32_t nlayers = 0;
    std::uint32_t nmult = 0;
    std::uint32_t batch = 0;
    std::valarray<unsigned int> sizes;
    std::string activation_name;
    std::string norm_name;
    // How many of the numbers the text has: of the five and of the sizes that it announces.
    std::size_t numbers = 0;
    // None of the five numbers is 0, and both models of a handle fit half of the machine's memory.
    bool valid = false;

    // Height and width of weight matrix i.
    std::uint64_t rows(std::size_t i) const;
    std::uint64_t cols(std::size_t i) const;
};

// Throws nothing on bad content. Where the announced shapes are too large, nothing of their size is allocated.
Description parse_description(const std::string& text);

// Why layers like these cannot be evaluated, if so: too few, or a chain whose ends do not fit.
std::optional<std::string> unfit_layers(std::size_t layers,
                                        std::uint32_t nmult,
                                        std::size_t first_size,
                                        std::size_t last_size);

}  // namespace VEMKN
