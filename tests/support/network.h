#pragma once

#include <string>
#include <utility>

#include "vemkn.h"

// A handle that a test owns.
class Network {
public:
    explicit Network(const std::string& text)
        : net_(initVEMKNet(text.data(), static_cast<int>(text.size())))
    {
    }

    ~Network() { releaseVEMKNet(net_); }

    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;

    operator VEMKNInfo*() const { return net_; }

private:
    VEMKNInfo* net_;
};
