#ifndef VEMKN_TAO_NETWORK_H
#define VEMKN_TAO_NETWORK_H

#include <vemkn.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vemkn_tao {

/// A handle of the library in quiet mode, released at the end.
class Network {
public:
    /** @throws std::runtime_error if the text describes no network that can be evaluated, if its norm is unknown,
     *         or if threads or batch are out of the library's range. */
    Network(const std::string& description, int threads, int batch);

    /** Has to come before any call with data: a call with more inputs than the network takes would
     * end the process, one with fewer would take the missing ones for zeros.
     * @throws std::runtime_error if the network takes another number of inputs or outputs. */
    void check_width(std::uint64_t inputs, std::uint64_t outputs) const;

    VEMKNInfo* handle() const { return handle_.get(); }

    unsigned numel() const { return static_cast<unsigned>(vemk_numel(handle())); }

    unsigned inputs() const { return vemk_maxcols(handle()); }

    unsigned outputs() const { return vemk_numout(handle()); }

    /// Whether the norm is `sum`, whose element norms are the residuals themselves.
    bool plain_residuals() const;

    /** Seeded weights, the same on every rank: normal, with standard deviation `spread` over the root of the
     * number of the layer's inputs; biases have `spread` times a half. */
    std::vector<double> random_weights(std::uint64_t seed, double spread) const;

private:
    struct Release {
        void operator()(VEMKNInfo* net) const { releaseVEMKNet(net); }
    };

    std::unique_ptr<VEMKNInfo, Release> handle_;
};

}  // namespace vemkn_tao

#endif
