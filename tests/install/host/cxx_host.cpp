// A C++ host that installs an error handler from the second header.
#include <vemkn.h>
#include <vemkn_errors.h>

#include <cstring>

using Pole = yafad::Discontinuity<yafad::FO::Dynamic::Active<1>>;

// Looks at the operands, which the installed header describes.
struct Counter : yafad::ErrorHandler {
    int reports = 0;
    int with_operands = 0;

    void report(yafad::Error& error) override
    {
        ++reports;
        const auto* const pole = dynamic_cast<const Pole*>(&error);
        if (pole != nullptr && pole->right.value == 0.0 && pole->left.N == 2 &&
            pole->left.derivatives.size() == 2 && &pole->result == &pole->left) {
            ++with_operands;
        }
    }
};

int main()
{
    Counter counter;
    yafad::ErrorHandler::getHandler() = &counter;
    VEMKNInfo* const net = initVEMKNet("2 1 2 1 8 2 2 id sum", 20);
    const bool good =
        vemk_numel(net) == 9 && g_ndd == 1 && std::strcmp(vemk_version(), VEMKN_VERSION) == 0;
    // The objective of no rows: a division by zero of the seed, and of the mean.
    vemk_quiet(net, 1);
    vemk_Hv(net, nullptr, 9, nullptr, 2, nullptr, nullptr, 0, 2, 1, nullptr, nullptr, nullptr);
    releaseVEMKNet(net);
    yafad::ErrorHandler::getHandler() = nullptr;
    return good && counter.reports > 0 && counter.with_operands == counter.reports ? 0 : 1;
}
