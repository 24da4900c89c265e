#pragma once

#include <cstdint>
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
    // None of the five numbers is 0, and both models of a handle fit half of the machine's memory.
    bool valid = false;

    // Height and width of weight matrix i.
    std::uint64_t rows(std::size_t i) const;
    std::uint64_t cols(std::size_t i) const;
};

// Throws nothing on bad content. Where the announced shapes are too large, nothing of their size is allocated.
Description parse_description(const std::string& text);

}  // namespace VEMKN
