// A C++ host that installs an error handler from the second header.
#include <vemkn.h>
#include <vemkn_errors.h>

#include <cstring>

struct Counter : yafad::ErrorHandler {
    int reports = 0;

    void report(yafad::Error&) override { ++reports; }
};

int main()
{
    Counter counter;
    yafad::ErrorHandler::getHandler() = &counter;
    VEMKNInfo* const net = initVEMKNet("2 1 2 1 8 2 2 id sum", 20);
    const bool good =
        vemk_numel(net) == 9 && g_ndd == 1 && std::strcmp(vemk_version(), VEMKN_VERSION) == 0;
    releaseVEMKNet(net);
    yafad::ErrorHandler::getHandler() = nullptr;
    return good && counter.reports == 0 ? 0 : 1;
}
