#pragma once

#include <fstream>
#include <string>

// A number that the kernel gives for this process: "Threads:", "VmRSS:" (kilobytes).
inline long status_number(const std::string& name)
{
    std::ifstream status("/proc/self/status");
    std::string word;
    long number = -1;
    while (status >> word) {
        if (word == name) status >> number;
    }
    return number;
}
